// Copyright Marvolith contributors.
// The layered controllers as objects: references and sub-anims, the stack's messages, keys and
// the lock, the controller of a new layer, validity, allocation, clone, save/load and the
// script interface. Blend values are checked on the cores and, through nodes, by the landing
// tests.
#include "layers/layer_control.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "controllers/rotation_xyz.h"
#include "host/app/scene_file.h"
#include "host/controllers/control_interfaces.h"
#include "host/controllers/controller_classes.h"
#include "host/core/clock.h"
#include "host/math/affine.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "layers/animation_layers.h"
#include "tests/layers/layers_fixture.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {
namespace {

constexpr float kDeg = 3.14159265358979f / 180.0f;

// The absolute value of a controller of value type T at t.
template <typename T>
T At(Control* c, TimeValue t = 0) {
  T v{};
  Interval valid = FOREVER;
  c->GetValue(t, &v, valid, CTRL_ABSOLUTE);
  return v;
}

// c holding v at time 0, no undo recorded.
template <typename T>
Control* Holding(Control* c, T v) {
  HoldSuspend no_undo;
  c->SetValue(0, &v, 1, CTRL_ABSOLUTE);
  return c;
}
Control* FloatOf(float v) { return Holding(CreateInterpFloat(), v); }
Control* PositionOf(const Point3& p) { return Holding(CreateInterpPosition(), p); }

// A RotationXYZ of the given order holding angles by axis (radians).
Control* EulerOf(float x, float y, float z, int order = 0) {
  HoldSuspend no_undo;
  auto* r = new RotationXYZ();
  r->SetOrder(order);
  float e[3] = {x, y, z};
  Control* axes[3] = {r->GetXController(), r->GetYController(), r->GetZController()};
  for (int i = 0; i < 3; ++i) axes[i]->SetValue(0, &e[i], 1, CTRL_ABSOLUTE);
  return r;
}

void ExpectQuatNear(const Quat& a, const Quat& b) {
  const float d = std::fabs(a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w);
  EXPECT_NEAR(d, 1.0f, 1e-5f) << "quaternions differ";
}

class LayerControlTest : public LayersTest {
 protected:
  void SetUp() override {
    LayersTest::SetUp();
    for (ClassDesc2* cd : {GetFloatLayersDesc(), GetPositionLayersDesc(), GetRotationLayersDesc(),
                           GetScaleLayersDesc(), GetRotationXYZDesc()}) {
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    }
    GetCOREInterface()->SetTime(0);
    layers_ = NewLayers();
    weights_ = Keep(new AnimLayersLocalWeights());
    weights_->ReplaceReference(AnimLayersLocalWeights::kLayersRef, layers_);
    weights_->SyncWeights();
    holder_ = Keep(new TestTarget(8));
  }
  void TearDown() override {
    AnimateOff();
    GetCOREInterface()->Reset();
    theHold.Clear();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    LayersTest::TearDown();
  }

  // A layered track of the set kept alive by the holder.
  AnimationLayersControl* Wrap(SClass_ID sclass, Control* original) {
    AnimationLayersControl* c = WrapInLayers(sclass, original, layers_, weights_);
    holder_->ReplaceReference(next_slot_++, c);
    return c;
  }

  AnimationLayers* layers_ = nullptr;
  AnimLayersLocalWeights* weights_ = nullptr;
  TestTarget* holder_ = nullptr;
  int next_slot_ = 0;

 private:
  std::vector<ClassDesc2*> added_;
};

// ---------------------------------------------------------------------------------------------
// References, sub-anims, messages.

TEST_F(LayerControlTest, ReferencesKeepTheWeightsLastAsTheTabGrowsAndShrinks) {
  Control* base = FloatOf(10.0f);
  AnimationLayersControl* track = Wrap(CTRL_FLOAT_CLASS_ID, base);
  ASSERT_NE(track, nullptr);
  theHold.Clear();
  EXPECT_EQ(track->NumRefs(), 3);
  EXPECT_EQ(track->GetReference(0), layers_);
  EXPECT_EQ(track->GetReference(1), base);
  EXPECT_EQ(track->GetReference(2), weights_);
  EXPECT_EQ(track->GetReference(99), weights_);
  EXPECT_EQ(AsLayeredControl(track), track);
  EXPECT_EQ(AsLayeredControl(base), nullptr);

  track->AddAdjustmentLayer("fix", -1);
  ASSERT_EQ(track->NumRefs(), 4);
  EXPECT_EQ(track->GetReference(1), base);
  ASSERT_NE(track->GetReference(2), nullptr);
  EXPECT_EQ(track->GetReference(2)->ClassID(), base->ClassID()) << "a keyable leaf is copied";
  EXPECT_EQ(track->GetReference(3), weights_);
  EXPECT_EQ(track->SubNumToRefNum(1), 2);
  EXPECT_EQ(track->SubNumToRefNum(2), -1);

  // Undo and redo of the tab keep the weights last.
  Control* layer = track->LayerController(1);
  theHold.Undo();
  EXPECT_EQ(track->NumRefs(), 3);
  EXPECT_EQ(track->GetReference(2), weights_);
  theHold.Redo();
  EXPECT_EQ(track->LayerController(1), layer);
  EXPECT_EQ(track->GetReference(3), weights_);

  // SetLayerControl swaps one layer's controller undoably; another kind, or an index off the
  // tab, is refused.
  Control* other = FloatOf(7.0f);
  Control* wrong = CreateInterpPosition();
  holder_->ReplaceReference(6, wrong);
  track->SetLayerControl(1, other);
  EXPECT_EQ(track->GetLayerControl(1), other);
  EXPECT_FLOAT_EQ(At<float>(track), 17.0f);
  theHold.Undo();
  EXPECT_EQ(track->GetLayerControl(1), layer);
  EXPECT_FLOAT_EQ(At<float>(track), 10.0f);
  theHold.Redo();
  track->SetLayerControl(1, wrong);
  track->SetLayerControl(5, FloatOf(1.0f));
  EXPECT_EQ(track->GetLayerControl(1), other);
  EXPECT_EQ(track->NumRefs(), 4);

  track->RemoveLayer(1);
  EXPECT_EQ(track->NumRefs(), 3);
  EXPECT_EQ(track->GetReference(2), weights_);
  // Wrapping a layered track again takes its base, not the track.
  AnimationLayersControl* again = Wrap(CTRL_FLOAT_CLASS_ID, track);
  EXPECT_EQ(again->LayerController(0), base);
}

TEST_F(LayerControlTest, SubAnimShowsOnlyTheActiveLayerUnlessAllAreDisplayed) {
  AnimationLayersControl* track = Wrap(CTRL_FLOAT_CLASS_ID, FloatOf(1.0f));
  track->AddAdjustmentLayer("a", -1);
  track->AddAdjustmentLayer("b", -1);
  ASSERT_EQ(track->GetActiveLayer(), 2);
  EXPECT_EQ(track->NumSubs(), 3);
  EXPECT_EQ(track->SubAnim(0), nullptr);
  EXPECT_EQ(track->SubAnim(1), nullptr);
  EXPECT_EQ(track->SubAnim(2), track->LayerController(2));
  EXPECT_EQ(track->SubAnimName(1), "a");
  EXPECT_EQ(track->SubAnimName(7), "");

  track->SetDisplayAllLayersKeysTracks(true);
  EXPECT_EQ(track->NumSubs(), 3);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(track->SubAnim(i), track->LayerController(i)) << i;
}

TEST_F(LayerControlTest, OnlyItsOwnStackMovesTheTab) {
  AnimationLayersControl* track = Wrap(CTRL_FLOAT_CLASS_ID, FloatOf(1.0f));
  auto* other = new AnimationLayers();
  holder_->ReplaceReference(7, other);
  PartID part = 0;
  EXPECT_EQ(track->NotifyRefChanged(FOREVER, other, part, kLayerAddedOverrideMsg, true),
            REF_SUCCEED);
  EXPECT_EQ(track->LayerControllerCount(), 1);

  // A second track on the same set follows every change of the stack.
  AnimationLayersControl* second = Wrap(CTRL_FLOAT_CLASS_ID, FloatOf(2.0f));
  track->AddOverrideLayer("o", -1);
  track->AddAdjustmentLayer("a", 1);
  EXPECT_EQ(second->LayerControllerCount(), 3);
  Control* at1 = second->LayerController(1);
  Control* at2 = second->LayerController(2);
  track->MoveLayerUp(2);
  EXPECT_EQ(second->LayerController(1), at2);
  EXPECT_EQ(second->LayerController(2), at1);
  track->RemoveLayer(1);
  EXPECT_EQ(second->LayerControllerCount(), 2);
  EXPECT_EQ(second->LayerController(1), at1);
}

// ---------------------------------------------------------------------------------------------
// Keys and the lock.

TEST_F(LayerControlTest, KeysGoToTheActiveLayerAndWaitWhileLocked) {
  Control* base = FloatOf(0.0f);
  AnimationLayersControl* track = Wrap(CTRL_FLOAT_CLASS_ID, base);
  const int tpf = GetCOREInterface()->GetTicksPerFrame();
  base->AddNewKey(0, 0);
  base->AddNewKey(10 * tpf, 0);
  EXPECT_EQ(track->NumKeys(), 2);
  EXPECT_EQ(track->GetKeyTime(1), 10 * tpf);

  track->AddAdjustmentLayer("", -1);
  EXPECT_EQ(track->NumKeys(), 0) << "an added layer has no keys";
  track->AddNewKey(5 * tpf, 0);
  EXPECT_EQ(track->NumKeys(), 1);
  EXPECT_TRUE(track->IsKeyAtTime(5 * tpf, 0));
  EXPECT_EQ(base->NumKeys(), 2);

  auto* lock = static_cast<ILockedTrack*>(track->GetInterface(I_LOCKED));
  ASSERT_NE(lock, nullptr);
  lock->SetLocked(true);
  EXPECT_FALSE(track->IsKeyable());
  track->AddNewKey(7 * tpf, 0);
  track->DeleteKeys(0);
  track->DeleteKeyAtTime(5 * tpf);
  float v = 5.0f;
  track->SetValue(0, &v, 1, CTRL_ABSOLUTE);
  EXPECT_EQ(track->NumKeys(), 1);
  EXPECT_FLOAT_EQ(At<float>(track), 0.0f);

  lock->SetLocked(false);
  // An ignored active layer is left out of the blend and takes no write.
  float three = 3.0f;
  track->SetValue(0, &three, 1, CTRL_ABSOLUTE);
  EXPECT_FLOAT_EQ(At<float>(track), 3.0f);
  track->SetLayerIgnore(1, true);
  EXPECT_FLOAT_EQ(At<float>(track), 0.0f);
  track->SetValue(0, &v, 1, CTRL_ABSOLUTE);
  EXPECT_FLOAT_EQ(At<float>(track->LayerController(1)), 3.0f);

  track->SetActiveLayer(0);
  track->DeleteKeyAtTime(10 * tpf);
  EXPECT_EQ(base->NumKeys(), 1);
}

// ---------------------------------------------------------------------------------------------
// The controller of a new layer.

TEST_F(LayerControlTest, NewLayersTakeTheBaseClassOrTheDefault) {
  AnimationLayersControl* euler = Wrap(CTRL_ROTATION_CLASS_ID, EulerOf(0, 0, 0, 4));
  AnimationLayersControl* tcb = Wrap(CTRL_ROTATION_CLASS_ID, CreateInterpRotation());
  AnimationLayersControl* none = Wrap(CTRL_ROTATION_CLASS_ID, nullptr);
  AnimationLayersControl* pos = Wrap(CTRL_POSITION_CLASS_ID, CreateInterpPosition());
  ASSERT_NE(none->LayerController(0), nullptr);
  euler->AddAdjustmentLayer("", -1);

  // A RotationXYZ is no leaf: its layers are new RotationXYZ in XYZ order; the blend keeps
  // reading the order of the base.
  Control* e1 = euler->LayerController(1);
  ASSERT_NE(e1, nullptr);
  EXPECT_EQ(e1->ClassID(), GetRotationXYZDesc()->ClassID());
  auto* order = static_cast<IEulerControl*>(e1->GetInterface(I_EULERCTRL));
  ASSERT_NE(order, nullptr);
  EXPECT_EQ(order->GetOrder(), 0);
  EXPECT_EQ(static_cast<RotationLayers*>(euler)->BlendOrder(), 4);
  EXPECT_EQ(static_cast<RotationLayers*>(tcb)->BlendOrder(), 0) << "a non-Euler base reads XYZ";
  EXPECT_EQ(tcb->LayerController(1)->ClassID(), tcb->LayerController(0)->ClassID());
  EXPECT_EQ(pos->LayerController(1)->ClassID(), pos->LayerController(0)->ClassID());
  // Without a base, the new layer is a RotationXYZ in XYZ order.
  Control* n1 = none->LayerController(1);
  EXPECT_EQ(n1->ClassID(), GetRotationXYZDesc()->ClassID());
  // A layer track is a separate controller, not the base again.
  EXPECT_NE(pos->LayerController(1), pos->LayerController(0));
}

TEST_F(LayerControlTest, AnOverrideLayerStartsAtThePoseOnScreen) {
  AnimationLayersControl* pos = Wrap(CTRL_POSITION_CLASS_ID, PositionOf(Point3(1, 2, 3)));
  AnimationLayersControl* rot = Wrap(CTRL_ROTATION_CLASS_ID, EulerOf(0, 0, 200 * kDeg));
  pos->AddAdjustmentLayer("", -1);
  Point3 d(4, 0, 0);
  pos->SetValue(0, &d, 1, CTRL_ABSOLUTE);  // the layer holds (3, -2, -3)
  const Point3 before = At<Point3>(pos);
  EXPECT_NEAR(before.x, 4.0f, 1e-5f);
  const Quat rot_before = At<Quat>(rot);

  pos->AddOverrideLayer("", -1);
  EXPECT_LT(Length(At<Point3>(pos) - before), 1e-5f);
  EXPECT_LT(Length(At<Point3>(pos->LayerController(2)) - Point3(4, 0, 0)), 1e-5f);

  // The rotation is seeded through its angles: the turn beyond a half turn survives.
  ExpectQuatNear(At<Quat>(rot), rot_before);
  Control* z = rot->LayerController(2)->GetZController();
  ASSERT_NE(z, nullptr);
  EXPECT_NEAR(At<float>(z), 200 * kDeg, 1e-4f);
  // An Adjustment layer starts empty.
  EXPECT_NEAR(At<float>(rot->LayerController(1)->GetZController()), 0.0f, 1e-6f);
}

TEST_F(LayerControlTest, AKeyedWeightNarrowsValidityWithoutAllocating) {
  AnimationLayersControl* track = Wrap(CTRL_FLOAT_CLASS_ID, FloatOf(1.0f));
  Interval valid = FOREVER;
  float v = 0.0f;
  track->GetValue(0, &v, valid, CTRL_ABSOLUTE);
  EXPECT_TRUE(valid.IsInfinite());
  const int tpf = GetCOREInterface()->GetTicksPerFrame();
  AnimateOn();
  layers_->SetWeight(0, 1.0f, 0);
  layers_->SetWeight(0, 0.5f, 10 * tpf);
  AnimateOff();
  valid = FOREVER;
  AllocationScope scope;
  track->GetValue(5 * tpf, &v, valid, CTRL_ABSOLUTE);
  EXPECT_EQ(scope.Count(), 0u) << "reading a keyed weight allocates nothing";
  EXPECT_FALSE(valid.IsInfinite()) << "an animated weight narrows the interval";
  EXPECT_TRUE(valid.InInterval(5 * tpf));
}

// Euler blending sums angles: the world rotation cannot tell 40 degrees from 400, so this is
// checked on the layer's own angle.
TEST_F(LayerControlTest, RelativeTurnsStayContinuousUnderEulerBlending) {
  auto* rot = static_cast<RotationLayers*>(Wrap(CTRL_ROTATION_CLASS_ID, EulerOf(0, 0, 90 * kDeg)));
  rot->AddAdjustmentLayer("", -1);
  Control* z1 = rot->LayerController(1)->GetZController();
  float turn = 200 * kDeg;
  z1->SetValue(0, &turn, 1, CTRL_ABSOLUTE);
  float e[3];
  Interval valid = FOREVER;
  rot->BlendedEuler(0, valid, 0, 2, e);
  EXPECT_NEAR(e[2], 290 * kDeg, 1e-4f);
  // A relative turn of 200 degrees more leaves the layer at 400, not at 40. (The host's
  // angle-axis turns the other way round than a positive Euler angle.)
  AngAxis more(Point3(0, 0, 1), -200 * kDeg);
  rot->SetValue(0, &more, 1, CTRL_RELATIVE);
  EXPECT_NEAR(std::fabs(At<float>(z1)), 400 * kDeg, 1e-3f);
}

TEST_F(LayerControlTest, EvaluationAllocatesNothing) {
  AnimationLayersControl* tracks[4] = {
      Wrap(CTRL_FLOAT_CLASS_ID, FloatOf(1.0f)),
      Wrap(CTRL_POSITION_CLASS_ID, PositionOf(Point3(1, 2, 3))),
      Wrap(CTRL_ROTATION_CLASS_ID, EulerOf(0.1f, 0.2f, 0.3f)),
      Wrap(CTRL_SCALE_CLASS_ID, CreateInterpScale()),
  };
  tracks[0]->AddAdjustmentLayer("", -1);
  tracks[0]->AddOverrideLayer("", -1);
  tracks[0]->SetLayerGlobalWeight(2, 0.5f);
  auto evaluate = [&] {
    float f = 0.0f;
    Point3 p;
    Quat q;
    ScaleValue s;
    Matrix3 m;
    Interval valid = FOREVER;
    tracks[0]->GetValue(0, &f, valid, CTRL_ABSOLUTE);
    tracks[0]->GetValue(0, &f, valid, CTRL_RELATIVE);
    tracks[1]->GetValue(0, &p, valid, CTRL_ABSOLUTE);
    tracks[1]->GetValue(0, &m, valid, CTRL_RELATIVE);
    tracks[2]->GetValue(0, &q, valid, CTRL_ABSOLUTE);
    tracks[2]->GetValue(0, &m, valid, CTRL_RELATIVE);
    tracks[3]->GetValue(0, &s, valid, CTRL_ABSOLUTE);
    tracks[3]->GetValue(0, &m, valid, CTRL_RELATIVE);
  };
  for (bool euler : {true, false}) {
    layers_->SetEulerBlending(euler);
    evaluate();  // caches of the controllers below fill here
    AllocationScope scope;
    evaluate();
    EXPECT_EQ(scope.Count(), 0u) << (euler ? "Euler" : "quaternion");
  }
}

// ---------------------------------------------------------------------------------------------
// Clone, save/load, the script interface.

TEST_F(LayerControlTest, CloneCopiesTheLayersAndKeepsTheirValues) {
  AnimationLayersControl* track = Wrap(CTRL_FLOAT_CLASS_ID, FloatOf(10.0f));
  track->AddAdjustmentLayer("", -1);
  float three = 3.0f;
  track->SetValue(0, &three, 1, CTRL_RELATIVE);
  auto* clone = dynamic_cast<AnimationLayersControl*>(CloneRefHierarchy(track));
  ASSERT_NE(clone, nullptr);
  holder_->ReplaceReference(next_slot_++, clone);
  EXPECT_EQ(clone->ClassID(), track->ClassID());
  ASSERT_EQ(clone->LayerControllerCount(), 2);
  EXPECT_NE(clone->LayerController(1), track->LayerController(1));
  EXPECT_NE(clone->GetAnimationLayers(), nullptr);
  EXPECT_NE(clone->GetLocalWeights(), nullptr);
  EXPECT_FLOAT_EQ(At<float>(clone), 13.0f);
}

TEST_F(LayerControlTest, ScenesWithLayeredTracksSaveAndLoadByteForByte) {
  INode* node = GetCOREInterface()->CreateObjectNode(nullptr, "box");
  Control* tm = node->GetTMController();
  const SClass_ID kinds[3] = {CTRL_POSITION_CLASS_ID, CTRL_ROTATION_CLASS_ID, CTRL_SCALE_CLASS_ID};
  for (int part = 0; part < 3; ++part) {
    auto* original = static_cast<Control*>(tm->GetReference(part));
    tm->ReplaceReference(part, WrapInLayers(kinds[part], original, layers_, weights_));
  }
  auto* pos = AsLayeredControl(tm->GetPositionController());
  ASSERT_NE(pos, nullptr);
  pos->AddAdjustmentLayer("up", -1);
  Point3 up(0, 0, 5);
  pos->SetValue(0, &up, 1, CTRL_ABSOLUTE);
  static_cast<ILockedTrack*>(pos->GetInterface(I_LOCKED))->SetLocked(true);

  std::vector<std::uint8_t> first, second;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(first, second);

  INode* loaded = GetCOREInterface()->GetINodeByName("box");
  ASSERT_NE(loaded, nullptr);
  auto* lpos = AsLayeredControl(loaded->GetTMController()->GetPositionController());
  ASSERT_NE(lpos, nullptr);
  ASSERT_EQ(lpos->LayerControllerCount(), 2);
  EXPECT_NE(lpos->GetLocalWeights(), nullptr);
  EXPECT_EQ(lpos->GetReference(3), lpos->GetLocalWeights());
  EXPECT_TRUE(lpos->GetLocked());
  EXPECT_NEAR(At<Point3>(lpos).z, 5.0f, 1e-5f);
  EXPECT_EQ(lpos->GetLayerName(1), "up");
}

TEST_F(LayerControlTest, TheInterfaceAnswersAndCallsItsFunctionsByScriptIndex) {
  AnimationLayersControl* track = Wrap(CTRL_SCALE_CLASS_ID, CreateInterpScale());
  auto* fp = static_cast<IAnimationLayers*>(track->GetInterface(animation_layers::kInterfaceID));
  ASSERT_NE(fp, nullptr);
  FPInterfaceDesc* desc = fp->GetDesc();
  ASSERT_NE(desc, nullptr);
  EXPECT_EQ(desc->InternalName(), "interface");
  EXPECT_EQ(desc->OwnerClass(), GetScaleLayersDesc());
  ASSERT_EQ(desc->Functions().size(), 31u);
  for (int i = 0; i < 31; ++i) EXPECT_EQ(desc->Functions()[i].id, i) << i;
  const FPFunctionDef* add = desc->FindFunction("AddOverrideLayer");
  ASSERT_NE(add, nullptr);
  ASSERT_EQ(add->params.size(), 2u);
  EXPECT_TRUE(add->params[0].keyword && add->params[1].keyword);

  FPValue result;
  FPParams none;
  FPParams args{FPValue("top"), FPValue::Index(-1)};
  ASSERT_EQ(fp->Invoke(kLayersAddOverrideLayer, &args, result), FPS_OK);
  ASSERT_EQ(fp->Invoke(kLayersGetLayerCount, &none, result), FPS_OK);
  EXPECT_EQ(result.Get<int>(), 2);
  FPParams which{FPValue::Index(1)};
  ASSERT_EQ(fp->Invoke(kLayersGetLayerName, &which, result), FPS_OK);
  EXPECT_EQ(result.Get<std::string>(), "top");
  ASSERT_EQ(fp->Invoke(kLayersGetLayerControl, &which, result), FPS_OK);
  EXPECT_EQ(result.Get<Control*>(), track->LayerController(1));
}

}  // namespace
}  // namespace marvolith::test
