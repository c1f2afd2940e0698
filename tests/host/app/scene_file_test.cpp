// Copyright Marvolith contributors.
#include "host/app/scene_file.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "host/app/host_classes.h"
#include "host/controllers/controller_classes.h"
#include "host/core/diagnostics.h"
#include "host/io/chunk_stream.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/demo_scene.h"
#include "host/scene/layer.h"
#include "host/scene/scene.h"
#include "host/undo/hold.h"
#include "tests/support/math_matchers.h"
#include "tests/support/scene_objects.h"

namespace marvolith::test {
namespace {

class SceneFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    RegisterSceneTestClasses();
    GetCOREInterface()->Reset();
  }
  void TearDown() override {
    AnimateOff();
    GetCOREInterface()->Reset();
  }

  static std::vector<std::uint8_t> Save() {
    std::vector<std::uint8_t> bytes;
    std::string error;
    EXPECT_TRUE(SaveSceneToBytes(bytes, &error)) << error;
    return bytes;
  }
  static TestTransform* Ctrl(INode* n) { return static_cast<TestTransform*>(n->GetTMController()); }
  Interface* ip = GetCOREInterface();
};

// A scene that uses every host class: nodes in a keyed hierarchy, a constraint, an object with a
// modifier stack, custom attributes with a weak node pointer, nested and hidden layers, and core
// interface state.
void BuildRichScene() {
  Interface* ip = GetCOREInterface();
  INode* hips = MakeTestNode("hips", nullptr, Point3(0, 0, 90));
  auto* hc = static_cast<TestTransform*>(hips->GetTMController());
  hc->AddKey(0, Point3(0, 0, 90), 0.0f);
  hc->AddKey(3200, Point3(40, 10, 95), 1.2f);
  INode* spine = MakeTestNode("spine", hips, Point3(0, 0, 10), 0.1f);
  INode* arm = MakeTestNode("arm", spine, Point3(15, 0, 0), -0.3f);
  INode* follower = MakeTestNode("follower", nullptr, Point3(0, 5, 0));
  static_cast<TestTransform*>(follower->GetTMController())->SetTarget(arm);

  auto* helper = new TestHelper;
  helper->size = 3.0f;
  IDerivedObject* dob = CreateDerivedObject(helper);
  auto* mod = new TestModifier;
  mod->factor = 1.5f;
  mod->SetName("Grow");
  dob->AddModifier(mod);
  auto* off = new TestModifier;
  off->DisableMod();
  dob->AddModifier(off, nullptr, 1);
  arm->SetObjectRef(dob);
  arm->SetWireColor(0x00cab9ad);
  arm->SetBoneNodeOnOff(true, 0);
  arm->SetTransformLockBits(INODE_LOCK_ALL);
  arm->SetObjOffsetScale(ScaleValue(Point3(-1, 1, 1)));

  mod->AllocCustAttribContainer();
  auto* attr = new TestAttrib;
  attr->value = 0.75f;
  attr->watched = hips;
  mod->GetCustAttribContainer()->AppendCustAttrib(attr);
  spine->AllocCustAttribContainer();
  spine->GetCustAttribContainer()->AppendCustAttrib(new TestAttrib);

  ILayerManager* layers = ip->GetLayerManager();
  ILayer* controls = layers->CreateLayer("controls");
  ILayer* hidden = layers->CreateLayer("hidden");
  hidden->SetParentLayer(controls);
  hidden->Hide(true);
  hidden->AddToLayer(follower);
  controls->AddToLayer(arm);

  ip->SetFrameRate(25);
  ip->SetAnimRange(Interval(-960, 4800));
  ip->SetTime(1920);
  ip->SetRefCoordSys(COORDS_LOCAL);
  ip->SelectNode(spine);
  ip->SelectNode(follower, false);
  theHold.Clear();
}

TEST_F(SceneFileTest, RoundTripEvaluatesAlikeRestoresEverythingAndResavesTheSameBytes) {
  BuildRichScene();
  const std::vector<const char*> names = {"hips", "spine", "arm", "follower"};
  const std::vector<TimeValue> times = {-500, 0, 1234, 3200, 9000};
  std::vector<Matrix3> before;
  for (const char* n : names)
    for (TimeValue t : times) before.push_back(ip->GetINodeByName(n)->GetNodeTM(t));
  const float size_before =
      static_cast<TestHelper*>(ip->GetINodeByName("arm")->EvalWorldState(0).obj)->size;
  const std::vector<std::uint8_t> bytes = Save();

  ip->Reset();
  std::string error;
  ASSERT_TRUE(LoadSceneFromBytes(bytes, &error)) << error;
  size_t k = 0;
  for (const char* n : names) {
    INode* node = ip->GetINodeByName(n);
    ASSERT_NE(node, nullptr) << n;
    for (TimeValue t : times) EXPECT_MATRIX3_NEAR(node->GetNodeTM(t), before[k++], 0) << n << t;
  }
  EXPECT_EQ(Save(), bytes);

  INode* hips = ip->GetINodeByName("hips");
  INode* spine = ip->GetINodeByName("spine");
  INode* arm = ip->GetINodeByName("arm");
  INode* follower = ip->GetINodeByName("follower");
  EXPECT_EQ(spine->GetParentNode(), hips);
  EXPECT_EQ(Ctrl(follower)->GetReference(0), arm) << "references come back as objects";
  EXPECT_EQ(FindOwnerNode(Ctrl(arm)), arm);
  EXPECT_EQ(arm->GetWireColor(), 0x00cab9adu);
  EXPECT_TRUE(arm->GetBoneNodeOnOff());
  EXPECT_EQ(arm->GetTransformLockBits(), INODE_LOCK_ALL);
  EXPECT_EQ(arm->GetObjOffsetScale().s, Point3(-1, 1, 1));
  auto* dob = dynamic_cast<IDerivedObject*>(arm->GetObjectRef());
  ASSERT_NE(dob, nullptr);
  ASSERT_EQ(dob->NumModifiers(), 2);
  EXPECT_EQ(dob->GetModifier(0)->GetName(), "Grow");
  EXPECT_FALSE(dob->GetModifier(1)->IsEnabled());
  EXPECT_FLOAT_EQ(static_cast<TestHelper*>(arm->EvalWorldState(0).obj)->size, size_before);
  ICustAttribContainer* cc = dob->GetModifier(0)->GetCustAttribContainer();
  ASSERT_NE(cc, nullptr);
  ASSERT_EQ(cc->GetNumCustAttribs(), 1);
  auto* attr = static_cast<TestAttrib*>(cc->GetCustAttrib(0));
  EXPECT_FLOAT_EQ(attr->value, 0.75f);
  EXPECT_EQ(attr->watched, hips) << "back-patched pointer";
  EXPECT_EQ(cc->GetOwner(), dob->GetModifier(0));
  ASSERT_NE(spine->GetCustAttribContainer(), nullptr);

  ILayerManager* layers = ip->GetLayerManager();
  ASSERT_EQ(layers->GetLayerCount(), 3);
  EXPECT_EQ(follower->GetNodeLayer()->GetName(), "hidden");
  EXPECT_EQ(layers->GetLayer("hidden")->GetParentLayer(), layers->GetLayer("controls"));
  EXPECT_TRUE(follower->IsHidden());
  EXPECT_EQ(hips->GetNodeLayer(), layers->GetLayer(0));

  EXPECT_EQ(ip->GetTicksPerFrame(), 192);
  EXPECT_EQ(ip->GetAnimRange(), Interval(-960, 4800));
  EXPECT_EQ(ip->GetTime(), 1920);
  EXPECT_EQ(ip->GetRefCoordSys(), COORDS_LOCAL);
  ASSERT_EQ(ip->GetSelNodeCount(), 2);
  EXPECT_EQ(ip->GetSelNode(1), follower);
  EXPECT_EQ(theHold.UndoCount(), 0);
}

// Every node's world transform at a few times, by name.
std::vector<std::pair<std::string, Matrix3>> Sample(const std::vector<TimeValue>& times) {
  std::vector<INode*> nodes;
  Scene::Active().CollectNodes(nodes);
  std::vector<std::pair<std::string, Matrix3>> out;
  for (INode* n : nodes)
    for (TimeValue t : times) out.emplace_back(n->GetName(), n->GetNodeTM(t));
  return out;
}

void ExpectSameSamples(const std::vector<std::pair<std::string, Matrix3>>& a,
                       const std::vector<std::pair<std::string, Matrix3>>& b) {
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(a[i].first, b[i].first);
    EXPECT_MATRIX3_NEAR(a[i].second, b[i].second, 0) << a[i].first << " sample " << i;
  }
}

TEST_F(SceneFileTest, DemoSceneRoundTrips) {
  BuildDemoScene();
  const std::vector<TimeValue> times = {-800, 0, 2400, 4000, 9600, 20000};
  const auto before = Sample(times);
  const std::vector<std::uint8_t> bytes = Save();
  ip->Reset();
  std::string error;
  ASSERT_TRUE(LoadSceneFromBytes(bytes, &error)) << error;
  ExpectSameSamples(Sample(times), before);
  EXPECT_EQ(Save(), bytes);
  INode* arm = ip->GetINodeByName("demo_arm");
  ASSERT_NE(arm, nullptr);
  Control* rot = arm->GetTMController()->GetRotationController();
  EXPECT_EQ(rot->ClassID(), Class_ID(0x442313, 0)) << "the TCB rotation came back as itself";
  EXPECT_EQ(FindOwnerNode(arm->GetTMController()), arm);
  EXPECT_EQ(Animatable::GetAnimByHandle(Animatable::GetHandleByAnim(rot)), rot);
}

// One node per registered controller class that a node can hold (as its transform controller,
// as a PRS track, or as an Euler channel), keyed through SetNodeTM with animate on.
TEST_F(SceneFileTest, EveryHostControllerClassRoundTrips) {
  ClassDirectory& dir = ClassDirectory::Get();
  int placed = 0;
  for (int i = 0; i < dir.Count(); ++i) {
    ClassDesc2* cd = dir.At(i);
    const SClass_ID sc = cd->SuperClassID();
    if (cd->ClassID().PartA() == 0x7e57) continue;  // this test's own classes
    if (sc != CTRL_MATRIX3_CLASS_ID && sc != CTRL_POSITION_CLASS_ID &&
        sc != CTRL_ROTATION_CLASS_ID && sc != CTRL_SCALE_CLASS_ID && sc != CTRL_FLOAT_CLASS_ID)
      continue;
    auto* c = dynamic_cast<Control*>(cd->Create(false));
    ASSERT_NE(c, nullptr) << cd->ClassName();
    INode* node = ip->CreateObjectNode(nullptr, cd->ClassName());
    Control* prs = node->GetTMController();
    bool ok = false;
    if (sc == CTRL_MATRIX3_CLASS_ID) ok = node->SetTMController(c);
    if (sc == CTRL_POSITION_CLASS_ID) ok = prs->SetPositionController(c);
    if (sc == CTRL_ROTATION_CLASS_ID) ok = prs->SetRotationController(c);
    if (sc == CTRL_SCALE_CLASS_ID) ok = prs->SetScaleController(c);
    if (sc == CTRL_FLOAT_CLASS_ID) ok = prs->GetRotationController()->AssignController(c, 0);
    if (!ok) {
      c->DeleteMe();
      ADD_FAILURE() << cd->ClassName() << " could not be placed on a node";
      continue;
    }
    ++placed;
    AnimateOn();
    for (int k = 0; k < 3; ++k) {
      const float a = 0.4f * static_cast<float>(k + 1);
      node->SetNodeTM(k * 1600, RotateXMatrix(a) * RotateZMatrix(-a) *
                                    TransMatrix(Point3(10.0f * k, 3.0f, -2.0f * k)));
    }
    AnimateOff();
  }
  EXPECT_GE(placed, 10) << "keyframe, Euler, XYZ, PRS and list controllers are expected";
  const std::vector<TimeValue> times = {-1000, 0, 800, 1600, 2000, 3200, 8000};
  const auto before = Sample(times);
  const std::vector<std::uint8_t> bytes = Save();
  ip->Reset();
  std::string error;
  ASSERT_TRUE(LoadSceneFromBytes(bytes, &error)) << error;
  ExpectSameSamples(Sample(times), before);
  EXPECT_EQ(Save(), bytes);
}

TEST_F(SceneFileTest, DamagedTruncatedForeignAndNewerFilesLeaveTheSceneAlone) {
  BuildRichScene();
  const std::vector<std::uint8_t> good = Save();
  INode* hips = ip->GetINodeByName("hips");
  const int live = Animatable::LiveCount();
  std::vector<std::string> lines;
  auto old_sink = SetLogSink([&lines](std::string_view l) { lines.emplace_back(l); });
  auto refused = [&](std::span<const std::uint8_t> data, const std::string& expect) {
    std::string error;
    EXPECT_FALSE(LoadSceneFromBytes(data, &error));
    EXPECT_EQ(error.rfind("Marvolith: ", 0), 0u) << error;
    EXPECT_NE(error.find(expect), std::string::npos) << error;
    EXPECT_EQ(ip->GetINodeByName("hips"), hips);
    EXPECT_EQ(Animatable::LiveCount(), live) << "what the load made is freed";
  };
  {
    SCOPED_TRACE("every truncation");
    for (size_t n = 0; n < good.size(); n += 1 + n / 64)
      refused(std::span(good.data(), n), n < 12 ? "not a Marvolith scene" : "Marvolith");
  }
  {
    SCOPED_TRACE("foreign and newer");
    const char text[] = "PK\3\4 this is a zip file, not a scene";
    refused(std::span(reinterpret_cast<const std::uint8_t*>(text), sizeof(text)),
            "not a Marvolith scene file");
    std::vector<std::uint8_t> newer = good;
    newer[8] = 2;
    refused(newer, "version 2");
  }
  {
    SCOPED_TRACE("unknown class of the root node");
    // The class table opens at byte 12 (6-byte container header); its first entry's data starts
    // at 12 + 6 + 6: super class, then the two words of the class id.
    std::vector<std::uint8_t> unknown = good;
    const std::uint32_t bad = 0xdeadbeef;
    std::memcpy(&unknown[12 + 6 + 6 + 4], &bad, 4);
    // Its children cannot take a stand-in as their parent, so linking refuses the file.
    refused(unknown, "the scene file links object");
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& l) {
      return l.find("unknown class (super class 0x1, class (0xdeadbeef, 0x0))") != std::string::npos;
    })) << "the missing class is named";
  }
  {
    SCOPED_TRACE("flipped bytes");
    for (size_t i = 12; i < good.size(); i += 7) {
      std::vector<std::uint8_t> bad = good;
      bad[i] ^= 0xa5;
      std::string error;
      if (!LoadSceneFromBytes(bad, &error)) {
        EXPECT_EQ(ip->GetINodeByName("hips"), hips);
        EXPECT_EQ(Animatable::LiveCount(), live);
      } else {
        // A flip in plain data (a value, a name) can still be a good scene; put ours back.
        ASSERT_TRUE(LoadSceneFromBytes(good, &error)) << error;
        hips = ip->GetINodeByName("hips");
      }
    }
  }
  SetLogSink(old_sink);
  EXPECT_FALSE(lines.empty());
}

// A module that is not loaded: its objects stay as placeholders that keep their data and
// references, and the file saves back byte for byte; with the module back they are whole again.
TEST_F(SceneFileTest, UnknownClassesLoadAsPlaceholdersAndSaveBackUnchanged) {
  BuildRichScene();
  const Point3 arm_pos = ip->GetINodeByName("arm")->GetNodeTM(0).GetTrans();
  const std::vector<std::uint8_t> good = Save();
  ClassDirectory& dir = ClassDirectory::Get();
  std::vector<ClassDesc2*> gone;
  for (auto [sclass, cid] : {std::pair{CTRL_MATRIX3_CLASS_ID, TestTransform::kClassID},
                             {HELPER_CLASS_ID, TestHelper::kClassID},
                             {OSM_CLASS_ID, TestModifier::kClassID}}) {
    ClassDesc2* cd = dir.FindClass(sclass, cid);
    ASSERT_NE(cd, nullptr);
    ASSERT_TRUE(dir.RemoveClass(cd));
    gone.push_back(cd);
  }
  std::vector<std::string> notes;
  std::vector<std::string> lines;
  auto old_sink = SetLogSink([&lines](std::string_view l) { lines.emplace_back(l); });
  std::string error;
  const bool loaded = LoadSceneFromBytes(good, &error, &notes);
  SetLogSink(old_sink);
  for (ClassDesc2* cd : gone) dir.AddClass(cd);
  ASSERT_TRUE(loaded) << error;

  ASSERT_EQ(notes.size(), 3u) << "one line per missing class";
  EXPECT_NE(notes[0].find("unknown class (super class 0x9008, class ("), std::string::npos)
      << notes[0];
  EXPECT_EQ(std::count(lines.begin(), lines.end(), notes[0] + "\n"), 1);
  INode* arm = ip->GetINodeByName("arm");
  ASSERT_NE(arm, nullptr);
  EXPECT_EQ(arm->GetTMController()->ClassID(), TestTransform::kClassID);
  EXPECT_MATRIX3_NEAR(arm->GetNodeTM(0), Matrix3(), 0) << "a missing transform leaves the parent's";
  EXPECT_EQ(arm->GetObjectRef()->FindBaseObject()->ClassID(), TestHelper::kClassID);
  EXPECT_NE(arm->EvalWorldState(0).obj, nullptr) << "the stack evaluates through placeholders";

  const std::vector<std::uint8_t> resaved = Save();
  EXPECT_EQ(resaved, good) << "saved back byte for byte";
  ASSERT_TRUE(LoadSceneFromBytes(resaved, &error)) << error;
  EXPECT_POINT3_NEAR(ip->GetINodeByName("arm")->GetNodeTM(0).GetTrans(), arm_pos, 1e-4f)
      << "with the classes back, the objects are whole";
}

// Writes the smallest good file by hand, from the layout in scene_file.h, so that the writer and
// the reader cannot share a mistake.
TEST_F(SceneFileTest, HandWrittenMinimalFileLoads) {
  ChunkWriter w;
  auto u32 = [&w](std::uint32_t v) {
    ULONG n = 0;
    w.Write(&v, 4, &n);
  };
  // One line per chunk, to read like the layout it follows.
  // clang-format off
  w.BeginChunk(0x0001);
  w.BeginChunk(0x0002); u32(BASENODE_CLASS_ID); u32(1); u32(0); w.EndChunk();
  w.BeginChunk(0x0002); u32(REF_TARGET_CLASS_ID); u32(0x7e3a1c00); u32(2); w.EndChunk();
  w.BeginChunk(0x0002); u32(LAYER_CLASS_ID); u32(0x7e3a1c00); u32(1); w.EndChunk();
  w.EndChunk();
  w.BeginChunk(0x0010);
  // 0: the root node (flags chunk 0x120 = root bit 0x20), 4 slots, all empty.
  w.BeginChunk(0x0011);
  w.BeginChunk(0x0012); u32(0); w.EndChunk();
  w.BeginChunk(0x0013); u32(4); for (int i = 0; i < 4; ++i) u32(0xffffffff); w.EndChunk();
  w.BeginChunk(0x0020); w.BeginChunk(0x0120); u32(0x20); w.EndChunk(); w.EndChunk();
  w.EndChunk();
  // 1: the layer manager with one layer (object 2), current 0.
  w.BeginChunk(0x0011);
  w.BeginChunk(0x0012); u32(1); w.EndChunk();
  w.BeginChunk(0x0013); u32(1); u32(2); w.EndChunk();
  w.BeginChunk(0x0020); w.BeginChunk(0x0100); u32(1); w.EndChunk(); w.EndChunk();
  w.EndChunk();
  // 2: layer "0".
  w.BeginChunk(0x0011);
  w.BeginChunk(0x0012); u32(2); w.EndChunk();
  w.BeginChunk(0x0020); w.BeginChunk(0x0100); w.WriteWString("0"); w.EndChunk(); w.EndChunk();
  w.EndChunk();
  w.EndChunk();
  w.BeginChunk(0x0030);
  w.BeginChunk(0x0031); u32(0); w.EndChunk();
  w.BeginChunk(0x0032); u32(1); w.EndChunk();
  w.EndChunk();
  // clang-format on
  ASSERT_TRUE(w.Ok());
  std::vector<std::uint8_t> file = {'M', 'V', 'L', 'S', 'C', 'E', 'N', 'E', 1, 0, 0, 0};
  file.insert(file.end(), w.Bytes().begin(), w.Bytes().end());

  MakeTestNode("old");
  std::string error;
  ASSERT_TRUE(LoadSceneFromBytes(file, &error)) << error;
  EXPECT_EQ(ip->GetINodeByName("old"), nullptr);
  EXPECT_EQ(ip->GetRootNode()->NumberOfChildren(), 0);
  EXPECT_EQ(ip->GetLayerManager()->GetCurrentLayer()->GetName(), "0");
  INode* fresh = ip->CreateObjectNode(nullptr, "fresh");
  EXPECT_EQ(fresh->GetParentNode(), ip->GetRootNode());
}

RC_GTEST_PROP(SceneFileProperty, SaveLoadSaveGivesTheSameBytes, ()) {
  RegisterSceneTestClasses();
  Interface* ip = GetCOREInterface();
  ip->Reset();
  const int count = *rc::gen::inRange(1, 12);
  std::vector<INode*> nodes;
  for (int i = 0; i < count; ++i) {
    const int parent = *rc::gen::inRange(-1, i);
    const auto x = static_cast<float>(*rc::gen::inRange(-100, 100));
    INode* n = MakeTestNode(("n" + std::to_string(i)).c_str(),
                            parent < 0 ? nullptr : nodes[static_cast<size_t>(parent)],
                            Point3(x, 1, 2), x / 50.0f);
    if (*rc::gen::arbitrary<bool>()) {
      static_cast<TestTransform*>(n->GetTMController())->AddKey(160 * i, Point3(x, x, x), 0.5f);
    }
    nodes.push_back(n);
  }
  std::vector<std::uint8_t> first;
  RC_ASSERT(SaveSceneToBytes(first));
  const Matrix3 last = nodes.back()->GetNodeTM(480);
  ip->Reset();
  RC_ASSERT(LoadSceneFromBytes(first));
  std::vector<std::uint8_t> second;
  RC_ASSERT(SaveSceneToBytes(second));
  RC_ASSERT(first == second);
  RC_ASSERT(ip->GetINodeByName(("n" + std::to_string(count - 1)).c_str())->GetNodeTM(480) == last);
  ip->Reset();
}

}  // namespace
}  // namespace marvolith::test
