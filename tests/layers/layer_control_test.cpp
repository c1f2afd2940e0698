// Copyright Marvolith contributors.
// The layered controllers as objects: references and sub-anims, the stack's messages, keys and
// the lock, the controller of a new layer, blending through real controllers, clone, save/load
// and undo of the tab.
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

// The rotation of a positive Euler angle about Z, in degrees.
Quat ZTurn(float degrees) { return Quat(RotateZMatrix(degrees * kDeg)); }

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
  const Point3 after = At<Point3>(pos);
  EXPECT_NEAR(after.x, before.x, 1e-5f);
  EXPECT_NEAR(after.y, before.y, 1e-5f);
  EXPECT_NEAR(after.z, before.z, 1e-5f);
  const Point3 seeded = At<Point3>(pos->LayerController(2));
  EXPECT_NEAR(seeded.x, 4.0f, 1e-5f);
  EXPECT_NEAR(seeded.y, 0.0f, 1e-5f);
  EXPECT_NEAR(seeded.z, 0.0f, 1e-5f);

  // The rotation is seeded through its angles: the turn beyond a half turn survives.
  ExpectQuatNear(At<Quat>(rot), rot_before);
  Control* z = rot->LayerController(2)->GetZController();
  ASSERT_NE(z, nullptr);
  EXPECT_NEAR(At<float>(z), 200 * kDeg, 1e-4f);
  // An Adjustment layer starts empty.
  EXPECT_NEAR(At<float>(rot->LayerController(1)->GetZController()), 0.0f, 1e-6f);
}

// ---------------------------------------------------------------------------------------------
// Blending and writing.

TEST_F(LayerControlTest, FloatBlendsAndWritesLandOnTheActiveLayer) {
  AnimationLayersControl* track = Wrap(CTRL_FLOAT_CLASS_ID, FloatOf(10.0f));
  track->AddAdjustmentLayer("", -1);
  float three = 3.0f;
  track->LayerController(1)->SetValue(0, &three, 1, CTRL_ABSOLUTE);
  track->SetLayerGlobalWeight(1, 0.5f);
  EXPECT_FLOAT_EQ(At<float>(track), 11.5f);
  float v = 12.0f;
  track->SetValue(0, &v, 1, CTRL_ABSOLUTE);
  EXPECT_FLOAT_EQ(At<float>(track->LayerController(1)), 4.0f);
  EXPECT_FLOAT_EQ(At<float>(track), 12.0f);
  // Relative writes divide by the weight too.
  float step = 1.0f;
  track->SetValue(0, &step, 1, CTRL_RELATIVE);
  EXPECT_FLOAT_EQ(At<float>(track->LayerController(1)), 6.0f);

  // Override at 0.5: a cross-fade; the weight of 2 on an Adjustment overshoots.
  track->SetLayerType(1, kLayerOverride);
  float twenty = 20.0f;
  track->LayerController(1)->SetValue(0, &twenty, 1, CTRL_ABSOLUTE);
  EXPECT_FLOAT_EQ(At<float>(track), 15.0f);
  v = 16.0f;
  track->SetValue(0, &v, 1, CTRL_ABSOLUTE);
  EXPECT_FLOAT_EQ(At<float>(track->LayerController(1)), 22.0f);
  track->SetLayerType(1, kLayerAdjustment);
  track->LayerController(1)->SetValue(0, &three, 1, CTRL_ABSOLUTE);
  track->SetLayerGlobalWeight(1, 2.0f);
  EXPECT_FLOAT_EQ(At<float>(track), 16.0f);

  // The local weight multiplies the global one; at 0 nothing can be written.
  track->SetLayerLocalWeight(1, 0.25f);
  EXPECT_FLOAT_EQ(track->GetLayerLocalWeight(1), 0.25f);
  EXPECT_FLOAT_EQ(At<float>(track), 11.5f);
  track->SetLayerLocalWeight(1, 0.0f);
  EXPECT_FLOAT_EQ(At<float>(track), 10.0f);
  v = 50.0f;
  track->SetValue(0, &v, 1, CTRL_ABSOLUTE);
  EXPECT_FLOAT_EQ(At<float>(track->LayerController(1)), 3.0f);
  // An ignored layer is left out, and cannot be written.
  track->SetLayerLocalWeight(1, 1.0f);
  track->SetLayerIgnore(1, true);
  EXPECT_FLOAT_EQ(At<float>(track), 10.0f);
  track->SetValue(0, &v, 1, CTRL_ABSOLUTE);
  EXPECT_FLOAT_EQ(At<float>(track->LayerController(1)), 3.0f);
}

TEST_F(LayerControlTest, ValidityNarrowsByTheLayersAndWeightsRead) {
  AnimationLayersControl* track = Wrap(CTRL_FLOAT_CLASS_ID, FloatOf(1.0f));
  Interval valid = FOREVER;
  float v = 0.0f;
  track->GetValue(0, &v, valid, CTRL_ABSOLUTE);
  EXPECT_TRUE(valid.IsInfinite());
  const int tpf = GetCOREInterface()->GetTicksPerFrame();
  Control* w = layers_->GetWeightControl(0);
  {
    AnimateOn();
    float one = 1.0f, half = 0.5f;
    w->SetValue(0, &one, 1, CTRL_ABSOLUTE);
    w->SetValue(10 * tpf, &half, 1, CTRL_ABSOLUTE);
    AnimateOff();
  }
  valid = FOREVER;
  track->GetValue(5 * tpf, &v, valid, CTRL_ABSOLUTE);
  EXPECT_FALSE(valid.IsInfinite()) << "an animated weight narrows the interval";
  EXPECT_TRUE(valid.InInterval(5 * tpf));
}

TEST_F(LayerControlTest, PositionScaleAndRotationBlendThroughTheirLayers) {
  AnimationLayersControl* pos = Wrap(CTRL_POSITION_CLASS_ID, PositionOf(Point3(1, 2, 3)));
  pos->AddAdjustmentLayer("", -1);
  Point3 d(2, 0, 0);
  pos->LayerController(1)->SetValue(0, &d, 1, CTRL_ABSOLUTE);
  pos->SetLayerGlobalWeight(1, 0.5f);
  Point3 p = At<Point3>(pos);
  EXPECT_NEAR(p.x, 2.0f, 1e-5f);
  EXPECT_NEAR(p.y, 2.0f, 1e-5f);
  EXPECT_NEAR(p.z, 3.0f, 1e-5f);
  Point3 move(1, 1, 0);
  pos->SetValue(0, &move, 1, CTRL_RELATIVE);
  p = At<Point3>(pos);
  EXPECT_NEAR(p.x, 3.0f, 1e-5f);
  EXPECT_NEAR(p.y, 3.0f, 1e-5f);

  // An Adjustment scale layer multiplies the scale under it.
  AnimationLayersControl* scl =
      Wrap(CTRL_SCALE_CLASS_ID, Holding(CreateInterpScale(), ScaleValue(Point3(2, 2, 2))));
  ScaleValue s;
  Interval valid = FOREVER;
  ScaleValue one_and_half(Point3(1.5f, 1.5f, 1.5f));
  scl->LayerController(1)->SetValue(0, &one_and_half, 1, CTRL_ABSOLUTE);
  scl->SetLayerGlobalWeight(1, 1.0f);
  scl->GetValue(0, &s, valid, CTRL_ABSOLUTE);
  EXPECT_NEAR(s.s.x, 3.0f, 1e-4f);
  ScaleValue wanted(Point3(4, 4, 4));
  scl->SetValue(0, &wanted, 1, CTRL_ABSOLUTE);
  scl->GetValue(0, &s, valid, CTRL_ABSOLUTE);
  EXPECT_NEAR(s.s.x, 4.0f, 1e-4f);

  // Quaternion path: an Override at 0.5 goes half way.
  layers_->SetEulerBlending(false);
  AnimationLayersControl* rot = Wrap(CTRL_ROTATION_CLASS_ID, EulerOf(0, 0, 90 * kDeg));
  rot->SetLayerType(1, kLayerOverride);
  rot->SetLayerGlobalWeight(1, 0.5f);
  const Quat z0 = At<Quat>(rot->LayerController(0));
  ExpectQuatNear(At<Quat>(rot), ZTurn(45));
  Quat wanted_q = ZTurn(60);
  rot->SetValue(0, &wanted_q, 1, CTRL_ABSOLUTE);
  ExpectQuatNear(At<Quat>(rot), wanted_q);
  ExpectQuatNear(At<Quat>(rot->LayerController(0)), z0);
}

TEST_F(LayerControlTest, EulerBlendingSumsAnglesBeyondAHalfTurn) {
  ASSERT_TRUE(layers_->GetEulerBlending());
  auto* rot = static_cast<RotationLayers*>(Wrap(CTRL_ROTATION_CLASS_ID, EulerOf(0, 0, 90 * kDeg)));
  rot->AddAdjustmentLayer("", -1);
  Control* z1 = rot->LayerController(1)->GetZController();
  float turn = 200 * kDeg;
  z1->SetValue(0, &turn, 1, CTRL_ABSOLUTE);
  float e[3];
  Interval valid = FOREVER;
  rot->BlendedEuler(0, valid, 0, 2, e);
  EXPECT_NEAR(e[2], 290 * kDeg, 1e-4f);
  ExpectQuatNear(At<Quat>(rot), ZTurn(290));

  // A relative turn of 200 degrees stays continuous: the layer ends at 400, not at 40. (The
  // host's angle-axis turns the other way round than a positive Euler angle.)
  AngAxis more(Point3(0, 0, 1), -200 * kDeg);
  rot->SetValue(0, &more, 1, CTRL_RELATIVE);
  EXPECT_NEAR(std::fabs(At<float>(z1)), 400 * kDeg, 1e-3f);
  // A non-Euler base reads order 0.
  AnimationLayersControl* tcb = Wrap(CTRL_ROTATION_CLASS_ID, CreateInterpRotation());
  EXPECT_EQ(static_cast<RotationLayers*>(tcb)->BlendOrder(), 0);
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

TEST_F(LayerControlTest, CollapseBakesEachKindIntoOneLayerHoldingTheValuesAtTheKeys) {
  const int tpf = GetCOREInterface()->GetTicksPerFrame();
  AnimationLayersControl* f = Wrap(CTRL_FLOAT_CLASS_ID, FloatOf(0.0f));
  AnimationLayersControl* p = Wrap(CTRL_POSITION_CLASS_ID, PositionOf(Point3(1, 2, 3)));
  AnimationLayersControl* r = Wrap(CTRL_ROTATION_CLASS_ID, EulerOf(0, 0, 30 * kDeg));
  AnimationLayersControl* s = Wrap(CTRL_SCALE_CLASS_ID, CreateInterpScale());
  f->AddAdjustmentLayer("", -1);
  AnimateOn();
  for (TimeValue t : {0, 10 * tpf}) {
    const float k = t == 0 ? 1.0f : 3.0f;
    float fv = 10.0f * k;
    Point3 pv(k, 0, 0);
    Quat rv = ZTurn(40 * k);
    ScaleValue sv(Point3(k, k, k));
    f->SetValue(t, &fv, 1, CTRL_ABSOLUTE);
    p->SetValue(t, &pv, 1, CTRL_ABSOLUTE);
    r->SetValue(t, &rv, 1, CTRL_ABSOLUTE);
    s->SetValue(t, &sv, 1, CTRL_ABSOLUTE);
  }
  AnimateOff();
  f->SetLayerGlobalWeight(1, 0.5f);
  struct Sample {
    float f;
    Point3 p;
    Quat r;
    ScaleValue s;
  };
  auto sample = [&](TimeValue t) {
    Sample out;
    Interval valid = FOREVER;
    out.f = At<float>(f, t);
    out.p = At<Point3>(p, t);
    out.r = At<Quat>(r, t);
    s->GetValue(t, &out.s, valid, CTRL_ABSOLUTE);
    return out;
  };
  const Sample before[2] = {sample(0), sample(10 * tpf)};

  f->CollapseLayers();
  for (AnimationLayersControl* c : {f, p, r, s}) {
    ASSERT_EQ(c->LayerControllerCount(), 1);
    EXPECT_EQ(c->GetLayerCount(), 1);
  }
  EXPECT_EQ(f->LayerController(0)->ClassID(), Class_ID(0x2007, 0));
  EXPECT_EQ(f->LayerController(0)->NumKeys(), 2);
  EXPECT_EQ(s->LayerController(0)->ClassID(), Class_ID(0x2010, 0));
  EXPECT_EQ(r->LayerController(0)->ClassID(), GetRotationXYZDesc()->ClassID());
  for (int i = 0; i < 2; ++i) {
    const Sample after = sample(i * 10 * tpf);
    EXPECT_NEAR(after.f, before[i].f, 1e-4f) << i;
    EXPECT_NEAR(after.p.x, before[i].p.x, 1e-4f) << i;
    EXPECT_NEAR(after.p.y, before[i].p.y, 1e-4f) << i;
    ExpectQuatNear(after.r, before[i].r);
    EXPECT_NEAR(after.s.s.x, before[i].s.s.x, 1e-4f) << i;
    EXPECT_NEAR(after.s.s.z, before[i].s.s.z, 1e-4f) << i;
  }

  // One step undoes the whole collapse: the layers come back with their values.
  ASSERT_TRUE(theHold.Undo());
  for (AnimationLayersControl* c : {f, p, r, s}) {
    ASSERT_EQ(c->LayerControllerCount(), 2);
    EXPECT_EQ(c->GetReference(3), weights_);
  }
  EXPECT_FLOAT_EQ(At<float>(f, 10 * tpf), before[1].f);
  EXPECT_FLOAT_EQ(At<float>(f->LayerController(1), 10 * tpf), 30.0f);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(f->LayerControllerCount(), 1);
  EXPECT_NEAR(At<float>(f, 10 * tpf), before[1].f, 1e-4f);
}

// ---------------------------------------------------------------------------------------------
// Clone, save/load, undo.

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
  Undoable("wrap", [&] {
    tm->SetPositionController(
        WrapInLayers(CTRL_POSITION_CLASS_ID, tm->GetPositionController(), layers_, weights_));
    tm->SetRotationController(
        WrapInLayers(CTRL_ROTATION_CLASS_ID, tm->GetRotationController(), layers_, weights_));
    tm->SetScaleController(
        WrapInLayers(CTRL_SCALE_CLASS_ID, tm->GetScaleController(), layers_, weights_));
  });
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

TEST_F(LayerControlTest, TabChangesAndSetLayerControlUndoAndRedo) {
  Control* base = FloatOf(10.0f);
  AnimationLayersControl* track = Wrap(CTRL_FLOAT_CLASS_ID, base);
  theHold.Clear();
  track->AddAdjustmentLayer("", -1);
  Control* layer = track->LayerController(1);
  ASSERT_EQ(track->NumRefs(), 4);
  theHold.Undo();
  EXPECT_EQ(track->LayerControllerCount(), 1);
  EXPECT_EQ(track->NumRefs(), 3);
  EXPECT_EQ(track->GetReference(2), weights_);
  theHold.Redo();
  ASSERT_EQ(track->LayerControllerCount(), 2);
  EXPECT_EQ(track->LayerController(1), layer);
  EXPECT_EQ(track->GetReference(3), weights_);

  Control* other = FloatOf(7.0f);
  track->SetLayerControl(1, other);
  EXPECT_EQ(track->GetLayerControl(1), other);
  EXPECT_FLOAT_EQ(At<float>(track), 17.0f);
  theHold.Undo();
  EXPECT_EQ(track->GetLayerControl(1), layer);
  EXPECT_FLOAT_EQ(At<float>(track), 10.0f);
  theHold.Redo();
  EXPECT_EQ(track->GetLayerControl(1), other);
  // A controller of another kind, or an index off the tab, is refused.
  Control* wrong = CreateInterpPosition();
  Control* spare = FloatOf(1.0f);
  holder_->ReplaceReference(6, wrong);
  holder_->ReplaceReference(7, spare);
  track->SetLayerControl(1, wrong);
  track->SetLayerControl(5, spare);
  EXPECT_EQ(track->GetLayerControl(1), other);

  track->AddAdjustmentLayer("", -1);
  Control* top = track->LayerController(2);
  track->MoveLayerUp(2);
  EXPECT_EQ(track->LayerController(1), top);
  theHold.Undo();
  EXPECT_EQ(track->LayerController(1), other);
  EXPECT_EQ(track->LayerController(2), top);

  track->RemoveLayer(1);
  EXPECT_EQ(track->LayerController(1), top);
  theHold.Undo();
  EXPECT_EQ(track->LayerController(1), other);
  EXPECT_EQ(track->LayerController(2), top);
  EXPECT_EQ(track->GetReference(4), weights_);
  EXPECT_FLOAT_EQ(At<float>(track->LayerController(1)), 7.0f);
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
