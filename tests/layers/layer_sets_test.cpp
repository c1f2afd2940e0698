// Copyright Marvolith contributors.
// Putting nodes on layer sets and taking them off: what is wrapped (transform tracks, lists at
// their active item, float custom attribute parameters), what is kept, and that undo and redo
// give back the very controllers and the evaluation.
#include "layers/layer_sets.h"

#include <gtest/gtest.h>

#include <vector>

#include "controllers/rig_control.h"
#include "host/app/host_classes.h"
#include "host/controllers/control_interfaces.h"
#include "host/controllers/controller_classes.h"
#include "host/core/clock.h"
#include "host/core/cust_attrib.h"
#include "host/params/param_block_desc2.h"
#include "host/scene/core_interface.h"
#include "host/script/script_entry.h"
#include "host/undo/hold.h"
#include "layers/layer_control.h"
#include "plugin/strings.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

constexpr TimeValue kFrame = 160;
constexpr Class_ID kPositionListClassID(0x4b4b1002, 0);
const TimeValue kTimes[] = {0, 5 * kFrame, 10 * kFrame, 20 * kFrame};

class LayerSetsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    instance_ = GetModuleInstance();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    for (ClassDesc2* cd : {GetAnimationLayersDesc(), GetAnimLayersLocalWeightsDesc(),
                           GetFloatLayersDesc(), GetPositionLayersDesc(), GetRotationLayersDesc(),
                           GetScaleLayersDesc(), GetRigControlDesc()}) {
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    }
    GetCOREInterface()->Reset();
  }
  void TearDown() override {
    AnimateOff();
    GetCOREInterface()->Reset();
    theHold.Clear();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    SetModuleInstance(instance_);
  }

  /// A node keyed at 0, 10 and 20 frames: it moves, turns about Z and grows.
  static INode* KeyedNode(const char* name) {
    INode* node = GetCOREInterface()->CreateObjectNode(nullptr, name);
    AnimateOn();
    for (int i = 0; i < 3; ++i) {
      Matrix3 tm = RotateZMatrix(0.4f * i) * ScaleMatrix(Point3(1, 1, 1) * (1.0f + 0.25f * i));
      tm.SetTrans(Point3(10.0f * i, -3.0f * i * i, 2.0f));
      node->SetNodeTM(10 * kFrame * i, tm);
    }
    AnimateOff();
    return node;
  }

  static std::vector<Matrix3> Motion(INode* node) {
    std::vector<Matrix3> out;
    for (TimeValue t : kTimes) out.push_back(node->GetNodeTM(t));
    return out;
  }

  static void ExpectMotion(INode* node, const std::vector<Matrix3>& expected) {
    const std::vector<Matrix3> got = Motion(node);
    for (size_t i = 0; i < got.size(); ++i) {
      SCOPED_TRACE(::testing::Message() << "time " << kTimes[i]);
      EXPECT_MATRIX3_NEAR(got[i], expected[i], 1e-5f);
    }
  }

  struct Tracks {
    Control* pos;
    Control* rot;
    Control* scl;
    bool operator==(const Tracks&) const = default;
  };
  static Tracks TracksOf(INode* node) {
    Control* tm = node->GetTMController();
    return {tm->GetPositionController(), tm->GetRotationController(), tm->GetScaleController()};
  }
  static AnimationLayersControl* Layered(Control* c) { return AsLayeredControl(c); }

  static void Enable(std::vector<INode*> nodes, bool keep = false) { EnableLayers(nodes, keep); }

 private:
  std::vector<ClassDesc2*> added_;
  HINSTANCE instance_ = nullptr;
};

TEST_F(LayerSetsTest, WrapAndUnwrapGiveBackTheControllersAndMotionThroughUndoAndRedo) {
  INode* node = KeyedNode("arm");
  const Tracks plain = TracksOf(node);
  const std::vector<Matrix3> motion = Motion(node);

  Enable({node});
  EXPECT_EQ(theHold.UndoName(), kLayersHoldName);
  const Tracks layered = TracksOf(node);
  const FoundLayers found = GetAnimLayers({node});
  ASSERT_NE(found.layers, nullptr);
  EXPECT_FALSE(found.multiple);
  const Control* bases[3] = {plain.pos, plain.rot, plain.scl};
  for (int i = 0; Control * c : {layered.pos, layered.rot, layered.scl}) {
    AnimationLayersControl* l = Layered(c);
    ASSERT_NE(l, nullptr);
    EXPECT_EQ(l->GetAnimationLayers(), found.layers);
    EXPECT_NE(l->GetLocalWeights(), nullptr);
    EXPECT_EQ(l->LayerController(0), bases[i++]) << "the plain track is the base layer";
  }
  ExpectMotion(node, motion);

  // A layer above the base moves the node; taking the layers off drops it without baking.
  found.layers->AddLayer(0, "lift", -1);
  theHold.Begin();
  AnimateOn();
  Point3 up(0, 0, 5);
  layered.pos->SetValue(10 * kFrame, &up, 1, CTRL_RELATIVE);
  AnimateOff();
  theHold.Accept("key");
  EXPECT_GT(Length(node->GetNodeTM(10 * kFrame).GetTrans() - motion[2].GetTrans()), 1.0f);

  DisableLayers({node});
  EXPECT_EQ(TracksOf(node), plain);
  ExpectMotion(node, motion);
  EXPECT_EQ(GetAnimLayers({node}).layers, nullptr);

  ASSERT_TRUE(theHold.Undo());  // disable
  EXPECT_EQ(TracksOf(node), layered);
  ASSERT_TRUE(theHold.Undo());  // the key on the layer
  ASSERT_TRUE(theHold.Undo());  // the layer
  ASSERT_TRUE(theHold.Undo());  // enable
  EXPECT_EQ(TracksOf(node), plain);
  ExpectMotion(node, motion);
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(TracksOf(node), plain);
  ExpectMotion(node, motion);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(TracksOf(node), layered);
}

TEST_F(LayerSetsTest, EnablingTwiceOnTheSameSetChangesNothing) {
  INode* a = KeyedNode("a");
  INode* b = KeyedNode("b");
  Enable({a, b});
  const Tracks ta = TracksOf(a), tb = TracksOf(b);
  AnimationLayers* set = Layered(ta.pos)->GetAnimationLayers();
  EXPECT_EQ(Layered(tb.rot)->GetAnimationLayers(), set);
  AnimLayersLocalWeights* wa = Layered(ta.pos)->GetLocalWeights();
  AnimLayersLocalWeights* wb = Layered(tb.pos)->GetLocalWeights();
  const std::vector<Matrix3> motion = Motion(a);

  for (bool keep : {false, true}) {
    SCOPED_TRACE(keep ? "keeping sets" : "one set");
    Enable({a, b}, keep);
    EXPECT_EQ(TracksOf(a), ta);
    EXPECT_EQ(TracksOf(b), tb);
    EXPECT_EQ(Layered(ta.scl)->GetLocalWeights(), wa);
    EXPECT_EQ(Layered(tb.scl)->GetLocalWeights(), wb);
    EXPECT_EQ(Layered(ta.pos)->LayerControllerCount(), set->GetLayerCount());
    ExpectMotion(a, motion);
  }
}

TEST_F(LayerSetsTest, SeparateSetsAreDetectedKeptOrJoined) {
  INode* a = KeyedNode("a");
  INode* b = KeyedNode("b");
  Enable({a});
  Enable({b});
  AnimationLayers* set_a = Layered(TracksOf(a).pos)->GetAnimationLayers();
  AnimationLayers* set_b = Layered(TracksOf(b).pos)->GetAnimationLayers();
  ASSERT_NE(set_a, set_b);
  const std::vector<Matrix3> motion_a = Motion(a), motion_b = Motion(b);
  set_a->AddLayer(1, "pose", -1);  // an Override holding the pose of frame 0
  EXPECT_MATRIX3_NEAR(a->GetNodeTM(20 * kFrame), motion_a[0], 1e-5f);

  FoundLayers found = GetAnimLayers({a, b});
  EXPECT_TRUE(found.multiple);
  EXPECT_EQ(found.layers, set_b);  // the last set seen
  EXPECT_EQ(found.local_weights, nullptr);
  found = GetAnimLayers({a, a});
  EXPECT_FALSE(found.multiple);
  EXPECT_EQ(found.local_weights, Layered(TracksOf(a).pos)->GetLocalWeights());

  // Keeping the sets: each node stays on its own, and a track holding weights of another set
  // gets weights of its own.
  AnimationLayersControl* stray = Layered(TracksOf(a).scl);
  AnimLayersLocalWeights* weights_b = Layered(TracksOf(b).pos)->GetLocalWeights();
  stray->ReplaceReference(stray->NumRefs() - 1, weights_b);
  Enable({a, b}, true);
  EXPECT_EQ(Layered(TracksOf(a).rot)->GetAnimationLayers(), set_a);
  EXPECT_EQ(Layered(TracksOf(b).rot)->GetAnimationLayers(), set_b);
  EXPECT_EQ(TracksOf(a).scl, stray);
  ASSERT_NE(stray->GetLocalWeights(), nullptr);
  EXPECT_EQ(stray->GetLocalWeights()->GetAnimationLayers(), set_a);
  EXPECT_EQ(Layered(TracksOf(b).pos)->GetLocalWeights(), weights_b);

  // Joining them: a's tracks are wrapped again on b's set, keeping their base layers only.
  Control* base_a = Layered(TracksOf(a).pos)->LayerController(0);
  Enable({a, b}, false);
  for (Control* c : {TracksOf(a).pos, TracksOf(a).rot, TracksOf(a).scl}) {
    ASSERT_NE(Layered(c), nullptr);
    EXPECT_EQ(Layered(c)->GetAnimationLayers(), set_b);
    EXPECT_EQ(Layered(c)->LayerControllerCount(), set_b->GetLayerCount());
  }
  EXPECT_EQ(Layered(TracksOf(a).pos)->LayerController(0), base_a);
  EXPECT_FALSE(GetAnimLayers({a, b}).multiple);
  ExpectMotion(b, motion_b);
  ExpectMotion(a, motion_a);
}

TEST_F(LayerSetsTest, ListsAreEnteredAtTheirActiveItem) {
  INode* node = GetCOREInterface()->CreateObjectNode(nullptr, "listed");
  auto* outer = static_cast<Control*>(CreateInstance(CTRL_POSITION_CLASS_ID, kPositionListClassID));
  auto* inner = static_cast<Control*>(CreateInstance(CTRL_POSITION_CLASS_ID, kPositionListClassID));
  ASSERT_TRUE(outer && inner);
  auto* outer_list = static_cast<IListControl*>(outer->GetInterface(LIST_CONTROLLER_INTERFACE));
  auto* inner_list = static_cast<IListControl*>(inner->GetInterface(LIST_CONTROLLER_INTERFACE));
  // Assigned to the node, the list takes the node's track as its first item.
  node->GetTMController()->SetPositionController(outer);
  Control* first = outer_list->GetSubCtrl(0);
  Control* deep_a = NewDefaultPositionController();
  Control* deep_b = NewDefaultPositionController();
  Point3 q(0, 0, 4);
  deep_b->SetValue(0, &q, 1, CTRL_ABSOLUTE);
  inner_list->Append(deep_a);
  inner_list->Append(deep_b);
  inner_list->SetActive(1);
  outer_list->Append(inner);
  outer_list->SetActive(1);
  ASSERT_EQ(outer_list->GetListCount(), 2);
  const Point3 before = node->GetNodeTM(0).GetTrans();

  Enable({node});
  EXPECT_EQ(node->GetTMController()->GetPositionController(), outer);
  EXPECT_EQ(outer_list->GetSubCtrl(0), first);
  EXPECT_EQ(outer_list->GetSubCtrl(1), inner);
  EXPECT_EQ(inner_list->GetSubCtrl(0), deep_a);
  AnimationLayersControl* layered = Layered(inner_list->GetSubCtrl(1));
  ASSERT_NE(layered, nullptr);
  EXPECT_EQ(layered->LayerController(0), deep_b);
  EXPECT_POINT3_NEAR(node->GetNodeTM(0).GetTrans(), before, 1e-5f);
  EXPECT_NE(GetAnimLayers({node}).layers, nullptr);

  DisableLayers({node});
  EXPECT_EQ(inner_list->GetSubCtrl(1), deep_b);
  EXPECT_POINT3_NEAR(node->GetNodeTM(0).GetTrans(), before, 1e-5f);
}

TEST_F(LayerSetsTest, FloatParametersOfCustomAttributesAreWrapped) {
  ASSERT_TRUE(ExecuteMAXScriptScript(R"(
    fxDef = attributes "Fx" (
      parameters main (
        blend type:#float default:0.25
        steps type:#integer default:3
        fixed type:#float default:2.0 animatable:false
      )
    )
    p = Point name:"attributed"
    custAttributes.add p fxDef
  )"));
  INode* node = GetCOREInterface()->GetINodeByName("attributed");
  ASSERT_NE(node, nullptr);
  CustAttrib* attrib = node->GetObjectRef()->GetCustAttribContainer()->GetCustAttrib(0);
  IParamBlock2* pb = attrib->GetParamBlock(0);
  auto id_of = [pb](const char* name) { return pb->IndextoID(pb->GetDesc()->NameToIndex(name)); };
  const ParamID blend = id_of("blend"), steps = id_of("steps"), fixed = id_of("fixed");
  ASSERT_EQ(pb->GetController(blend), nullptr);

  Enable({node});
  AnimationLayersControl* layered = Layered(pb->GetController(blend));
  ASSERT_NE(layered, nullptr);
  EXPECT_EQ(layered->SuperClassID(), CTRL_FLOAT_CLASS_ID);
  EXPECT_EQ(layered->GetAnimationLayers(), Layered(TracksOf(node).pos)->GetAnimationLayers());
  EXPECT_FLOAT_EQ(pb->GetFloat(blend, 0), 0.25f);  // the value lives on in the base layer
  EXPECT_EQ(pb->GetController(steps), nullptr);
  EXPECT_EQ(pb->GetController(fixed), nullptr);

  DisableLayers({node});
  Control* back = pb->GetController(blend);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(Layered(back), nullptr);
  EXPECT_FLOAT_EQ(pb->GetFloat(blend, 0), 0.25f);

  // Undo gives back the very controllers: the layered one, then none.
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(pb->GetController(blend), layered);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(pb->GetController(blend), nullptr);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(pb->GetController(blend), layered);
  EXPECT_FLOAT_EQ(pb->GetFloat(blend, 0), 0.25f);
}

TEST_F(LayerSetsTest, RigControlIsStillFoundUnderLayeredTracks) {
  INode* node = GetCOREInterface()->CreateObjectNode(nullptr, "control");
  auto* rig =
      static_cast<Control*>(CreateInstance(CTRL_MATRIX3_CLASS_ID, GetRigControlDesc()->ClassID()));
  ASSERT_NE(rig, nullptr);
  node->SetTMController(rig);
  Matrix3 tm = RotateZMatrix(0.3f);
  tm.SetTrans(Point3(4, 5, 6));
  node->SetNodeTM(0, tm);

  Enable({node});
  for (Control* c :
       {rig->GetPositionController(), rig->GetRotationController(), rig->GetScaleController()}) {
    EXPECT_NE(Layered(c), nullptr);
  }
  EXPECT_EQ(FindRigControl(node->GetTMController()), rig);
  EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), tm, 1e-5f);
}

TEST_F(LayerSetsTest, EmptyListsAndATrackWithoutBaseLayerAreHandled) {
  EnableLayers({}, false);
  DisableLayers({});
  EXPECT_EQ(theHold.UndoCount(), 0);
  const FoundLayers found = GetAnimLayers({nullptr});
  EXPECT_TRUE(found.layers == nullptr && found.local_weights == nullptr && !found.multiple);

  // Taking the layers off a track that lost its base layer leaves a fresh default.
  INode* node = KeyedNode("hollow");
  Enable({node});
  AnimationLayersControl* pos = Layered(TracksOf(node).pos);
  pos->ReplaceReference(1, nullptr);  // layer 0
  ASSERT_EQ(pos->LayerController(0), nullptr);
  DisableLayers({node});
  Control* fresh = TracksOf(node).pos;
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(Layered(fresh), nullptr);
  EXPECT_EQ(fresh->SuperClassID(), CTRL_POSITION_CLASS_ID);
  EXPECT_POINT3_NEAR(node->GetNodeTM(10 * kFrame).GetTrans(), Point3(0, 0, 0), 1e-5f);
}

}  // namespace
}  // namespace marvolith::test
