// Copyright Marvolith contributors.
#include "controllers/rotation_xyz.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstdint>
#include <numbers>

#include "host/controllers/controller_classes.h"
#include "host/controllers/xyz_control.h"
#include "host/math/euler.h"
#include "support/track_assign.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/controller_test_util.h"
#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

class RotationXYZTest : public ControllerTest {
 protected:
  RotationXYZ* Make(float x = 0, float y = 0, float z = 0) {
    auto* r = Keep(new RotationXYZ());
    SetChannels(r, 0, Point3(x, y, z));
    return r;
  }
  static void SetChannels(RotationXYZ* r, TimeValue t, Point3 v) {
    for (int i = 0; i < 3; ++i) static_cast<Control*>(r->SubAnim(i))->SetValue(t, &v[i]);
  }
  static Point3 Channels(RotationXYZ* r, TimeValue t) {
    return {ValueAt<float>(r->GetXController(), t), ValueAt<float>(r->GetYController(), t),
            ValueAt<float>(r->GetZController(), t)};
  }
};

TEST_F(RotationXYZTest, GimbalTurnAddsTheWholeAngleToOneChannel) {
  auto* r = Make();
  AnimateOn();
  // 400 degrees forward on X, about -X in the quaternion's sense: no wrap to 40.
  const float a400 = 400.0f * std::numbers::pi_v<float> / 180.0f;
  AngAxis turn(-Point3::XAxis, a400);
  r->SetValue(4800, &turn, 1, CTRL_RELATIVE);
  EXPECT_POINT3_NEAR(Channels(r, 4800), Point3(a400, 0, 0), 1e-5f);
  EXPECT_TRUE(r->GetXController()->IsKeyAtTime(4800, 0));
  for (int order = 0; order < kEulerOrderCount; ++order) {
    const float seq0[3] = {0.3f, 0.5f, -0.2f};
    Point3 axes[3];
    EulerGimbalAxes(seq0, order, axes);
    for (int k = 0; k < 3; ++k) {
      float seq[3] = {seq0[0], seq0[1], seq0[2]};
      EXPECT_EQ(TurnEulerSequence(seq, order, AngAxis(axes[k] * -3.0f, 7.0f)).gimbal_step, k);
      for (int s = 0; s < 3; ++s) EXPECT_EQ(seq[s], seq0[s] - (s == k ? 7.0f : 0.0f)) << order;
    }
  }
}

// Turning one angle forward is the turn about its gimbal axis in the quaternion's sense, so the
// straight path and the stepped path agree near a gimbal axis.
RC_GTEST_PROP(RotationXYZCore, GimbalAxesTurnTheirAngle, ()) {
  const int order = *rc::gen::inRange(0, kEulerOrderCount);
  const int k = *rc::gen::inRange(0, 3);
  const Point3 e = *GenEulerAwayFromLock(order);
  const float d = *GenFloat(-2.0f, 2.0f);
  float seq[3] = {e.x, e.y, e.z};
  Point3 axes[3];
  EulerGimbalAxes(seq, order, axes);
  const Quat expected = EulerSequenceToQuat(seq, order) * Quat(AngAxis(axes[k], d));
  seq[k] += d;
  RC_ASSERT_QUAT_NEAR(EulerSequenceToQuat(seq, order), expected, 2e-5f);
}

TEST_F(RotationXYZTest, FreeAxisTurnStepsAndKeepsContinuity) {
  AngAxis turn(Normalize(Point3(1.0f, 2.0f, 0.5f)), 5.0f);
  // Oracle: the same turn followed in many small steps.
  float fine[3] = {0, 0, 0}, one_step[3] = {0, 0, 0};
  Quat q;
  for (int i = 0; i < 400; ++i) {
    q = Normalize(q * QFromAngAxis(turn.angle / 400.0f, turn.axis));
    ContinuousQuatToEuler(q, fine, EULERTYPE_XYZ);
  }
  ContinuousQuatToEuler(q, one_step, EULERTYPE_XYZ);
  ASSERT_GT(std::fabs(one_step[0] - fine[0]), 1.0f) << "a turn one conversion gets wrong";
  float seq[3] = {0, 0, 0};
  EXPECT_EQ(TurnEulerSequence(seq, EULERTYPE_XYZ, turn).steps, 3);
  auto* r = Make();
  r->SetValue(0, &turn, 1, CTRL_RELATIVE);
  EXPECT_POINT3_NEAR(Channels(r, 0), Point3(fine), 1e-3f);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(r, 0), Quat(turn), 1e-5f);

  // Repeated-axis orders decompose, then keep the whole turns each angle held.
  const float turns = 2.0f * kWholeTurn;
  float rep[3] = {0.3f + turns, 0.8f, -0.2f - turns};
  const Quat before = EulerSequenceToQuat(rep, EULERTYPE_ZXZ);
  TurnEulerSequence(rep, EULERTYPE_ZXZ, AngAxis(turn.axis, 0.1f));
  EXPECT_QUAT_NEAR(EulerSequenceToQuat(rep, EULERTYPE_ZXZ), before * Quat(AngAxis(turn.axis, 0.1f)),
                   1e-5f);
  EXPECT_NEAR(rep[0], 0.3f + turns, 0.3f);
  EXPECT_NEAR(rep[2], -0.2f - turns, 0.3f);
}

TEST_F(RotationXYZTest, AbsoluteWriteContinuesFromPresentAnglesOrLastKey) {
  auto* r = Make(3.0f);
  Quat beyond_half_turn(RotateXMatrix(3.2f));
  r->SetValue(0, &beyond_half_turn);
  EXPECT_NEAR(ValueAt<float>(r->GetXController(), 0), 3.2f, 1e-4f) << "not -3.08";
  // X keyed 6 at 0 and 0 at 9600: near 3 at 4800, where 0.5 is nearest; 0.5 + 2 pi is nearest
  // the last key.
  Quat half(RotateXMatrix(0.5f));
  for (bool animate : {false, true}) {
    auto* k = Make();
    AnimateOn();
    SetChannels(k, 0, Point3(6, 0, 0));
    SetChannels(k, 9600, Point3());
    animate ? AnimateOn() : AnimateOff();
    k->SetValue(4800, &half);
    EXPECT_NEAR(ValueAt<float>(k->GetXController(), 4800), animate ? 0.5f + kWholeTurn : 0.5f,
                1e-4f);
  }
}

// Floats near a huge angle lie whole radians apart: keeping the turns would miss the rotation.
TEST_F(RotationXYZTest, AbsoluteWriteLandsOnTheRotationWhateverTheChannelsHold) {
  const Quat wanted(RotateXMatrix(0.3f) * RotateYMatrix(-1.1f) * RotateZMatrix(2.0f));
  for (float big : {1e9f * std::numbers::pi_v<float> / 180.0f, -3e7f, 1e5f, 40.0f}) {
    SCOPED_TRACE(big);
    auto* r = Make(big, 0.5f, -big);
    r->SetValue(0, const_cast<Quat*>(&wanted));
    EXPECT_QUAT_NEAR(ValueAt<Quat>(r, 0), wanted, 1e-4f);
    if (std::fabs(big) < 1e3f) {
      EXPECT_NEAR(ValueAt<float>(r->GetXController(), 0), big, kWholeTurn) << "turns kept";
    }
  }
}

TEST_F(RotationXYZTest, SetOrderChangesMeaningNotNumbersAndUndoes) {
  auto* r = Make(0.1f, 0.2f, 0.3f);
  TestTarget* heard = Listen(r);
  for (int bad : {9, 100, -1, 0}) r->SetOrder(bad);
  EXPECT_TRUE(heard->heard.empty());
  const Quat xyz = ValueAt<Quat>(r, 0);
  theHold.Begin();
  r->SetOrder(EULERTYPE_ZYX);
  theHold.Accept("Change Euler Order");
  EXPECT_EQ(heard->Count(REFMSG_SUBANIM_STRUCTURE_CHANGED), 1);
  EXPECT_EQ(Channels(r, 0), Point3(0.1f, 0.2f, 0.3f));
  const float seq[3] = {0.3f, 0.2f, 0.1f};  // Z, Y, X in sequence order
  Matrix3 zyx;
  EulerToMatrix(seq, zyx, EULERTYPE_ZYX);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(r, 0), Quat(zyx), 1e-6f);
  Matrix3 m = TransMatrix(Point3(1, 2, 3));
  Interval iv = FOREVER;
  AllocationScope evaluation;
  r->GetValue(0, &m, iv, CTRL_RELATIVE);
  EXPECT_EQ(evaluation.Count(), 0u);
  EXPECT_MATRIX3_NEAR(m, zyx * TransMatrix(Point3(1, 2, 3)), 1e-6f);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(ValueAt<Quat>(r, 0), xyz);
}

TEST_F(RotationXYZTest, UndoRestoresAnglesExactlyAndLockedTracksIgnoreWrites) {
  auto* r = Make(0.1f, 0.2f, 0.3f);
  const Quat before = ValueAt<Quat>(r, 0);
  Quat target(AngAxis(Normalize(Point3(1, -1, 2)), 2.5f));
  AngAxis turn(Point3::ZAxis, 4.0f);
  theHold.Begin();
  r->SetValue(0, &target);
  r->SetValue(0, &turn, 1, CTRL_RELATIVE);
  theHold.Accept("Rotate");
  const Point3 after = Channels(r, 0);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(Channels(r, 0), Point3(0.1f, 0.2f, 0.3f));
  EXPECT_EQ(ValueAt<Quat>(r, 0), before) << "the cache must not serve the undone value";
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(Channels(r, 0), after);

  static_cast<ILockedTrack*>(r->GetInterface(I_LOCKED))->SetLocked(true);
  AnimateOn();
  r->SetValue(0, &target);
  r->SetValue(480, &turn, 1, CTRL_RELATIVE);
  r->AddNewKey(960, 0);
  EXPECT_EQ(Channels(r, 0), after);
  EXPECT_FALSE(r->IsAnimated());
}

TEST_F(RotationXYZTest, CopyKeepsTheRotation) {
  auto* tcb = Keep(CreateInterpRotation());
  Quat q(AngAxis(Normalize(Point3(0.2f, 1, -0.4f)), 1.3f));
  tcb->SetValue(0, &q);
  auto* r = Make();
  r->SetOrder(EULERTYPE_YZX);
  r->Copy(tcb);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(r, 0), q, 1e-5f);
  // A keyed Euler track hands over its channels, order and lock.
  auto* euler = Keep(new EulerXYZControl());
  euler->SetOrder(EULERTYPE_ZXY);
  AnimateOn();
  euler->SetValue(1600, &q);
  euler->SetLocked(true);
  r->Copy(euler);
  EXPECT_EQ(r->GetXController(), euler->GetXController());
  EXPECT_QUAT_NEAR(ValueAt<Quat>(r, 1600), q, 1e-5f);
  EXPECT_TRUE(IsTrackLocked(r));
}

TEST_F(RotationXYZTest, ChunkLayoutIsByteExact) {
  auto* r = Make();
  r->SetOrder(EULERTYPE_ZYX);
  r->SetLocked(true);
  JointParamsEuler joints{{Point3(-1, -2, -3), Point3(1, 2, 3)}};
  r->SetJointParams(&joints);
  const Bytes expected =
      ContainerChunk(1, {ContainerChunk(4098, {DataChunk(144, RawBytes(Point3(-1, -2, -3))),
                                               DataChunk(144, RawBytes(Point3(1, 2, 3)))}),
                         DataChunk(4099, RawBytes(std::int32_t(105))),
                         DataChunk(9525, RawBytes(std::int32_t(1)))});
  EXPECT_EQ(SaveBytes(r), expected);
  auto* loaded = Keep(new RotationXYZ(true));
  ASSERT_EQ(LoadBytes(loaded, expected), IO_OK);
  EXPECT_EQ(*loaded->GetJointParams(), joints);
  EXPECT_EQ(SaveBytes(loaded), expected);
  EXPECT_EQ(SaveBytes(Make()), ContainerChunk(1, {DataChunk(4099, RawBytes(std::int32_t(0))),
                                                  DataChunk(9525, RawBytes(std::int32_t(0)))}));
  // Stored order -> loaded order and older flag; unknown chunks are skipped.
  struct Case {
    std::int32_t stored;
    int order;
    bool older;
  };
  for (Case c : {Case{105, 5, false}, Case{5, 5, true}, Case{7, 7, false}, Case{208, 8, false},
                 Case{109, 0, false}, Case{-3, 0, false}, Case{12, 0, false}}) {
    auto* x = Keep(new RotationXYZ(true));
    const IOResult res =
        LoadBytes(x, ContainerChunk(1, {DataChunk(77, {9}), DataChunk(4099, RawBytes(c.stored))}));
    EXPECT_EQ(res, c.order == 0 ? IO_ERROR : IO_OK) << c.stored;
    EXPECT_EQ(x->GetOrder(), c.order) << c.stored;
    EXPECT_EQ(x->HasOlderOrder(), c.older) << c.stored;
  }
}

RC_GTEST_PROP(RotationXYZChunks, SaveLoadSaveGivesTheSameBytes, ()) {
  SceneSweeper sweep;
  auto* r = sweep.Keep(new RotationXYZ());
  r->SetOrder(*rc::gen::inRange(0, kEulerOrderCount));
  r->SetLocked(*rc::gen::arbitrary<bool>());
  if (*rc::gen::arbitrary<bool>()) {
    JointParamsEuler joints;
    for (int i = *rc::gen::inRange(0, 4); i > 0; --i) joints.records.push_back(*GenPoint3(10.0f));
    r->SetJointParams(&joints);
  }
  const Bytes first = SaveBytes(r);
  auto* loaded = sweep.Keep(new RotationXYZ(true));
  RC_ASSERT(LoadBytes(loaded, first) == IO_OK);
  RC_ASSERT(SaveBytes(loaded) == first);
}

}  // namespace
}  // namespace marvolith::test
