// Copyright Marvolith contributors.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/controllers/controller_classes.h"
#include "host/core/cust_attrib.h"
#include "host/io/chunk_stream.h"
#include "host/params/iparam_block2.h"
#include "tests/host/params/param_test_objects.h"

namespace marvolith::test {
namespace {

std::vector<std::uint8_t> SaveBlock(IParamBlock2* pb) {
  ChunkWriter w;
  EXPECT_EQ(pb->Save(&w), IO_OK);
  EXPECT_TRUE(w.Ok());
  return w.Bytes();
}

IOResult LoadBlock(IParamBlock2* pb, const std::vector<std::uint8_t>& bytes) {
  ChunkReader r(bytes);
  return pb->Load(&r);
}

// A block made as the scene file makes one: through the class directory, without descriptor.
IParamBlock2* BlockForLoading() {
  RegisterHostClasses();
  ClassDirectory::Get().AddClass(&TestOwnerClassDesc());
  return static_cast<IParamBlock2*>(
      CreateInstance(PARAMETER_BLOCK2_CLASS_ID, Class_ID(0x82, 0), true));
}

// Every data parameter and every data table away from its default. Nodes, targets and
// controllers are references of the block and are left out: outside a scene nothing links them.
void FillData(IParamBlock2* pb) {
  pb->SetValue(kInt, 0, 9);
  pb->SetValue(kBool, 0, false);
  pb->SetValue(kFloat, 0, -2.5f);
  pb->SetValue(kAngle, 0, 0.75f);
  pb->SetValue(kPcnt, 0, 0.3f);
  pb->SetValue(kWorld, 0, 42.0f);
  pb->SetValue(kColor, 0, Color(0.1f, 0.2f, 0.3f));
  pb->SetValue(kPoint3, 0, Point3(1, -2, 3));
  pb->SetValue(kPoint4, 0, Point4(1, 2, 3, 4));
  pb->SetValue(kAColor, 0, AColor(0.5f, 0.25f, 0.125f, 1.0f));
  pb->SetValue(kMatrix, 0, RotateYMatrix(0.4f) * TransMatrix(Point3(5, 6, 7)));
  pb->SetValue(kString, 0, "r_hand \xc3\xa9");
  pb->SetValue(kFile, 0, "C:\\rigs\\biped.rig");
  pb->SetValue(kIndex, 0, 2);
  pb->SetValue(kTime, 0, -4800);
  pb->SetValue(kAnimFloat, 0, 0.6f);
  pb->SetValue(kAnimPoint3, 0, Point3(0.5f, 0, 0));
  const float weights[3] = {10, 20, 30};
  pb->SetCount(kAnimFloatTab, 0);
  pb->Append(kAnimFloatTab, 3, weights);
  const int ints[2] = {-1, 5};
  pb->Append(ParamID(kTabBase + kInt), 2, ints);
  const char* names[3] = {"a", "", "spine_3"};
  pb->Append(ParamID(kTabBase + kString), 3, names);
  const Matrix3 ms[1] = {ScaleMatrix(Point3(1, 2, 3))};
  pb->Append(ParamID(kTabBase + kMatrix), 1, ms);
  const Point4 p4[2] = {Point4(1, 1, 1, 1), Point4(0, 0, 0, 2)};
  pb->Append(ParamID(kTabBase + kPoint4), 2, p4);
  const bool flags[2] = {true, false};
  pb->Append(ParamID(kTabBase + kBool), 2, flags);
}

TEST_F(ParamBlockTest, SaveLoadKeepsEveryDataTypeAndGivesTheSameBytes) {
  FillData(pb);
  const std::vector<std::uint8_t> first = SaveBlock(pb);

  {
    SCOPED_TRACE("into a block made with its descriptor");
    auto* other = sweep.Keep(new TestOwner);
    ASSERT_EQ(LoadBlock(other->pblock, first), IO_OK);
    EXPECT_EQ(Dump(other->pblock), Dump(pb));
    EXPECT_EQ(SaveBlock(other->pblock), first);
  }
  {
    SCOPED_TRACE("into a block made by the class directory");
    IParamBlock2* loaded = sweep.Keep(BlockForLoading());
    ASSERT_NE(loaded, nullptr);
    ASSERT_EQ(LoadBlock(loaded, first), IO_OK);
    EXPECT_EQ(loaded->GetDesc(), &TestBlockDesc());
    EXPECT_EQ(Dump(loaded), Dump(pb));
    EXPECT_EQ(SaveBlock(loaded), first);
  }
  EXPECT_EQ(theHold.UndoCount(), 0) << "loading records nothing";
}

// The documented layout, written out by hand: what the writer and reader share cannot hide a
// mistake here.
struct HandChunks {
  std::vector<std::uint8_t> bytes;
  size_t open = 0;
  void Begin(std::uint16_t id) {
    open = bytes.size();
    Raw(id);
    Raw(std::uint32_t{0});
  }
  void End() {
    const auto length = static_cast<std::uint32_t>(bytes.size() - open);
    std::memcpy(bytes.data() + open + 2, &length, 4);
  }
  template <typename T>
  void Raw(const T& v) {
    const auto* p = reinterpret_cast<const std::uint8_t*>(&v);
    bytes.insert(bytes.end(), p, p + sizeof(T));
  }
  void Param(std::int32_t id, std::int32_t type, std::int32_t count) {
    Begin(0x0002);
    Raw(id);
    Raw(type);
    Raw(count);
  }
};

TEST_F(ParamBlockTest, ReadsABlockWrittenFromTheDocumentedLayout) {
  HandChunks h;
  h.Begin(0x0001);
  h.Raw(std::int32_t{kTestBlock});
  h.Raw(std::int32_t{kTestBlockVersion});
  h.Raw(std::uint32_t{REF_TARGET_CLASS_ID});
  h.Raw(std::uint32_t{0x7e57});
  h.Raw(std::uint32_t{0x9a9a});
  h.End();
  h.Param(kInt, TYPE_INT, 1);
  h.Raw(std::int32_t{-7});
  h.End();
  h.Param(kTabBase + kString, TYPE_STRING_TAB, 2);
  h.Raw(std::uint32_t{2});
  h.Raw('a');
  h.Raw('b');
  h.Raw(std::uint32_t{0});
  h.End();
  h.Param(kPoint3, TYPE_POINT3, 1);
  for (float f : {1.0f, 2.0f, 3.0f}) h.Raw(f);
  h.End();
  h.Param(999, TYPE_FLOAT, 1);  // a parameter this descriptor does not have: skipped
  h.Raw(1.0f);
  h.End();
  h.Param(kFloat, TYPE_INT, 1);  // another kind than the descriptor's: skipped
  h.Raw(std::int32_t{4});
  h.End();
  h.Begin(0x0077);  // an unknown chunk: skipped
  h.Raw(std::int32_t{1});
  h.End();

  IParamBlock2* loaded = sweep.Keep(BlockForLoading());
  ASSERT_EQ(LoadBlock(loaded, h.bytes), IO_OK);
  EXPECT_EQ(loaded->GetInt(kInt), -7);
  ASSERT_EQ(loaded->Count(ParamID(kTabBase + kString)), 2);
  EXPECT_STREQ(loaded->GetStr(ParamID(kTabBase + kString), 0, 0), "ab");
  EXPECT_STREQ(loaded->GetStr(ParamID(kTabBase + kString), 0, 1), "");
  EXPECT_EQ(loaded->GetPoint3(kPoint3), Point3(1, 2, 3));
  EXPECT_EQ(loaded->GetFloat(kFloat), 1.5f) << "a skipped parameter keeps its default";
  EXPECT_EQ(loaded->GetFloat(kWorld), 10.0f) << "a parameter missing from the file too";
  EXPECT_EQ(loaded->Count(kAnimFloatTab), 2) << "a missing table keeps its initial size";

  // The writer agrees with the layout: a fresh block starts with the same header chunk.
  const std::vector<std::uint8_t> saved = SaveBlock(pb);
  ASSERT_GE(saved.size(), 26u);
  EXPECT_TRUE(std::equal(saved.begin(), saved.begin() + 26, h.bytes.begin()));
}

TEST_F(ParamBlockTest, DamagedBlocksFailCleanlyAndKeepDefaults) {
  FillData(pb);
  const std::vector<std::uint8_t> good = SaveBlock(pb);
  auto* fresh = sweep.Keep(new TestOwner);
  const std::string defaults = Dump(fresh->pblock);

  // Every truncation: a cut between chunks loads what is there, any other fails.
  for (size_t n = 0; n < good.size(); ++n) {
    SCOPED_TRACE(::testing::Message() << "first " << n << " bytes");
    auto* owner = sweep.Keep(new TestOwner);
    std::vector<std::uint8_t> cut(good.begin(), good.begin() + static_cast<long>(n));
    if (LoadBlock(owner->pblock, cut) != IO_OK) {
      EXPECT_EQ(Dump(owner->pblock), defaults);
    }
  }

  auto fails = [&](std::vector<std::uint8_t> bytes, const char* what) {
    SCOPED_TRACE(what);
    auto* owner = sweep.Keep(new TestOwner);
    EXPECT_EQ(LoadBlock(owner->pblock, bytes), IO_ERROR);
    EXPECT_EQ(Dump(owner->pblock), defaults);
  };
  // Offsets: header chunk 0..25, then the first parameter chunk (kInt): its header at 26,
  // id at 32, type at 36, count at 40, value at 44.
  std::vector<std::uint8_t> bad = good;
  const std::int32_t minus_one = -1, two = 2;
  std::memcpy(bad.data() + 40, &minus_one, 4);
  fails(bad, "negative count");
  bad = good;
  std::memcpy(bad.data() + 40, &two, 4);
  fails(bad, "a plain parameter with two entries");
  bad = good;
  bad[6] = 0x05;  // block id 5
  fails(bad, "a block of another id");
  fails(std::vector<std::uint8_t>(good.begin() + 26, good.end()), "no header first");
  bad = good;
  bad[2] = 25;  // header chunk one byte short: 19 bytes of data
  fails(bad, "a header of the wrong size");

  IParamBlock2* orphan = sweep.Keep(BlockForLoading());
  bad = good;
  bad[14] = 0x01;  // owner class part A: no such class
  EXPECT_EQ(LoadBlock(orphan, bad), IO_ERROR);
}

RC_GTEST_PROP(ParamBlockIo, ByteFlipsNeverCrashAndFailToDefaults, ()) {
  SceneSweeper sweep;
  auto* owner = sweep.Keep(new TestOwner);
  FillData(owner->pblock);
  std::vector<std::uint8_t> bytes = SaveBlock(owner->pblock);
  const std::string defaults = Dump(sweep.Keep(new TestOwner)->pblock);
  const auto at = *rc::gen::inRange<size_t>(0, bytes.size());
  bytes[at] = *rc::gen::arbitrary<std::uint8_t>();
  auto* target = sweep.Keep(new TestOwner);
  if (LoadBlock(target->pblock, bytes) != IO_OK) RC_ASSERT(Dump(target->pblock) == defaults);
  theHold.Clear();
}

RC_GTEST_PROP(ParamBlockIo, SaveLoadSaveGivesTheSameBytes, ()) {
  SceneSweeper sweep;
  auto* owner = sweep.Keep(new TestOwner);
  IParamBlock2* pb = owner->pblock;
  pb->SetValue(kInt, 0, *rc::gen::inRange(-10, 11));
  pb->SetValue(kFloat, 0, *rc::gen::arbitrary<float>());
  const auto names =
      *rc::gen::container<std::vector<std::string>>(rc::gen::arbitrary<std::string>());
  for (const std::string& n : names) {
    const char* text = n.c_str();
    pb->Append(ParamID(kTabBase + kString), 1, &text);
  }
  const auto points = *rc::gen::container<std::vector<float>>(rc::gen::arbitrary<float>());
  for (float f : points) {
    const Point3 p(f, -f, 0.5f * f);
    pb->Append(ParamID(kTabBase + kPoint3), 1, &p);
  }
  const std::vector<std::uint8_t> first = SaveBlock(pb);
  auto* other = sweep.Keep(new TestOwner);
  RC_ASSERT(LoadBlock(other->pblock, first) == IO_OK);
  RC_ASSERT(SaveBlock(other->pblock) == first);
  theHold.Clear();
}

TEST_F(ParamBlockTest, SlotCheckTakesOnlyTheKindEachSlotHolds) {
  INode* node = NewNode();
  auto* target = sweep.Keep(new TestTarget);
  auto* check = static_cast<IRefSlotCheck*>(pb->GetInterface(I_REFSLOTCHECK));
  ASSERT_NE(check, nullptr);
  auto* fl = sweep.Keep(new FakeFloat);
  // Slots in table order: kNode, kRefTarg, kAnimFloat, kAnimPoint3, then the two weights.
  EXPECT_TRUE(check->CanReferenceAt(0, node));
  EXPECT_FALSE(check->CanReferenceAt(0, target));
  EXPECT_TRUE(check->CanReferenceAt(1, target));
  EXPECT_TRUE(check->CanReferenceAt(2, fl));
  EXPECT_FALSE(check->CanReferenceAt(3, fl)) << "a Point3 parameter takes no float track";
  EXPECT_FALSE(check->CanReferenceAt(2, node));
  EXPECT_FALSE(check->CanReferenceAt(pb->NumRefs(), fl));
}

// ---------------------------------------------------------------------------------------------
// In a scene file: references relinked, P_NO_REF nodes back-patched, the owner found.

enum : ParamID { kLinkNode = 0, kLinkWeak, kLinkAnim, kLinkNames };

class LinkAttrib : public CustAttrib {
 public:
  static constexpr Class_ID kClassID{0x7e57, 0x9b01};
  explicit LinkAttrib(bool loading = false);
  Class_ID ClassID() override { return kClassID; }
  void GetClassName(MSTR& s, bool = true) const override { s = "LinkAttrib"; }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock : nullptr; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  IParamBlock2* pblock = nullptr;

 protected:
  void SetReference(int i, RefTargetHandle t) override {
    if (i == 0) pblock = static_cast<IParamBlock2*>(t);
  }
};

class LinkAttribDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool loading) override { return new LinkAttrib(loading); }
  const char* ClassName() override { return "LinkAttrib"; }
  SClass_ID SuperClassID() override { return CUST_ATTRIB_CLASS_ID; }
  Class_ID ClassID() override { return LinkAttrib::kClassID; }
  const char* Category() override { return ""; }
};
LinkAttribDesc link_cd;
ParamBlockDesc2 link_pb(0,
                        "links",
                        0,
                        &link_cd,
                        P_AUTO_CONSTRUCT,
                        0,
                        {
                            ParamDef(kLinkNode, "node", TYPE_INODE, 0),
                            ParamDef(kLinkWeak, "weak", TYPE_INODE, P_NO_REF),
                            ParamDef(kLinkAnim, "anim", TYPE_FLOAT, P_ANIMATABLE),
                            ParamDef(kLinkNames, "names", TYPE_STRING_TAB, 0),
                        });
LinkAttrib::LinkAttrib(bool loading) {
  if (!loading) link_cd.MakeAutoParamBlocks(this);
}

TEST(ParamBlockSceneIo, ReferencesWeakNodesAndOwnerComeBackFromASceneFile) {
  RegisterHostClasses();
  ClassDirectory::Get().AddClass(&link_cd);
  Interface* ip = GetCOREInterface();
  ip->Reset();
  INode* holder = ip->CreateObjectNode(nullptr, "holder");
  INode* aim = ip->CreateObjectNode(nullptr, "aim");
  holder->AllocCustAttribContainer();
  auto* attr = new LinkAttrib;
  holder->GetCustAttribContainer()->AppendCustAttrib(attr);
  IParamBlock2* pb = attr->pblock;
  pb->SetValue(kLinkNode, 0, aim);
  pb->SetValue(kLinkWeak, 0, aim);
  ASSERT_TRUE(pb->SetController(kLinkAnim, 0, NewDefaultFloatController()));
  AnimateOn();
  pb->SetValue(kLinkAnim, 0, 1.0f);
  pb->SetValue(kLinkAnim, 4800, 3.0f);
  AnimateOff();
  const char* names[2] = {"x", "yz"};
  pb->Append(kLinkNames, 2, names);

  std::vector<std::uint8_t> first, second;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;

  INode* holder2 = ip->GetINodeByName("holder");
  INode* aim2 = ip->GetINodeByName("aim");
  ASSERT_TRUE(holder2 && aim2);
  auto* attr2 = dynamic_cast<LinkAttrib*>(holder2->GetCustAttribContainer()->GetCustAttrib(0));
  ASSERT_NE(attr2, nullptr);
  IParamBlock2* pb2 = attr2->pblock;
  ASSERT_NE(pb2, nullptr);
  EXPECT_EQ(pb2->GetDesc(), &link_pb);
  EXPECT_EQ(pb2->GetOwner(), attr2) << "the owner is found among the dependents";
  EXPECT_EQ(pb2->GetINode(kLinkNode), aim2);
  EXPECT_EQ(pb2->GetINode(kLinkWeak), aim2) << "P_NO_REF node back-patched";
  ASSERT_NE(pb2->GetController(kLinkAnim), nullptr);
  EXPECT_FLOAT_EQ(pb2->GetFloat(kLinkAnim, 2400), 2.0f);
  EXPECT_STREQ(pb2->GetStr(kLinkNames, 0, 1), "yz");

  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(second, first);
  ip->Reset();
}

}  // namespace
}  // namespace marvolith::test
