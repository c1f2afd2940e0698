// Copyright Marvolith contributors.
#include <gtest/gtest.h>

#include <cstring>

#include "host/controllers/keyframe_control.h"
#include "tests/support/controller_test_util.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

class KeyframeTest : public ControllerTest {
 protected:
  /// A Bezier float through (0, 0) and (100, 10), linear in and out.
  BezierFloatControl* Ramp() {
    auto* c = Keep(new BezierFloatControl());
    IBezFloatKey a = BezKey(0, 0.0f), b = BezKey(100, 10.0f);
    c->AppendKey(&a);
    c->AppendKey(&b);
    return c;
  }
};

TEST_F(KeyframeTest, InterpolatesLinearSteppedAndCustomSegments) {
  auto* c = Ramp();
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 25), 2.5f);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 100), 10.0f);
  {
    SCOPED_TRACE("stepped out holds the key, stepped in jumps right after it");
    IBezFloatKey k = BezKey(0, 0.0f, SetOutTanType(kLinear, BEZKEY_STEP));
    c->SetKey(0, &k);
    EXPECT_FLOAT_EQ(ValueAt<float>(c, 99), 0.0f);
    k.flags = kLinear;
    c->SetKey(0, &k);
    IBezFloatKey k1 = BezKey(100, 10.0f, SetInTanType(kLinear, BEZKEY_STEP));
    c->SetKey(1, &k1);
    EXPECT_FLOAT_EQ(ValueAt<float>(c, 0), 0.0f);
    EXPECT_FLOAT_EQ(ValueAt<float>(c, 1), 10.0f);
  }
  {
    SCOPED_TRACE("custom tangents: control values 0, 6.667, 10, 10 give 7.5 half way");
    IBezFloatKey k0 = BezKey(0, 0.0f, TangentFlags(BEZKEY_USER));
    k0.outtan = 0.2f;
    IBezFloatKey k1 = BezKey(100, 10.0f, TangentFlags(BEZKEY_USER));
    c->SetKey(0, &k0);
    c->SetKey(1, &k1);
    EXPECT_NEAR(ValueAt<float>(c, 50), 7.5f, 1e-5f);
  }
}

TEST_F(KeyframeTest, AutomaticTangentsAreStoredInTheKeys) {
  auto* c = Keep(new BezierFloatControl());
  for (auto [t, v] : {std::pair{0, 0.0f}, {100, 10.0f}, {200, 0.0f}}) {
    IBezFloatKey k = BezKey(t, v, TangentFlags(BEZKEY_SMOOTH));
    c->AppendKey(&k);
  }
  IBezFloatKey k;
  c->GetKey(0, &k);
  EXPECT_FLOAT_EQ(k.outtan, 0.1f);
  c->GetKey(2, &k);
  EXPECT_FLOAT_EQ(k.intan, 0.1f) << "in tangents point backwards: the negated slope";
  c->GetKey(1, &k);
  EXPECT_FLOAT_EQ(k.outtan, 0.0f);
  EXPECT_NEAR(ValueAt<float>(c, 50), 6.25f, 1e-5f) << "control values 0, 3.33, 10, 10";
  // Loop wraps the end keys' neighbours: key 0 now sits between (-100, 10) and (100, 10).
  c->SetORT(ORT_LOOP, ORT_AFTER);
  c->GetKey(0, &k);
  EXPECT_FLOAT_EQ(k.outtan, 0.0f);
}

TEST_F(KeyframeTest, TCBPassesThroughKeysWithKochanekBartelsTangents) {
  auto* c = Keep(new TCBFloatControl());
  for (auto [t, v] : {std::pair{0, 0.0f}, {100, 10.0f}, {200, 0.0f}}) {
    ITCBFloatKey k;
    k.time = t;
    k.val = v;
    c->AppendKey(&k);
  }
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 100), 10.0f);
  EXPECT_NEAR(ValueAt<float>(c, 50), 6.25f, 1e-5f) << "Hermite(0.5; 0, 10, 10, 0)";
  ITCBFloatKey k;
  c->GetKey(0, &k);
  k.easeOut = 1.0f;
  c->SetKey(0, &k);
  EXPECT_NEAR(ValueAt<float>(c, 50), 2.96875f, 1e-5f) << "eased to u = 0.25";
}

TEST_F(KeyframeTest, TCBRotationKeysAreRelativeAndEditsKeepOtherKeys) {
  auto* c = Keep(new TCBRotationControl());
  ITCBRotKey k;
  k.time = 0;
  k.val = AngAxis(Point3::ZAxis, 0.5f);
  c->AppendKey(&k);
  k.time = 100;
  k.val = AngAxis(Point3::XAxis, 0.7f);
  c->AppendKey(&k);
  const Quat q1 = Quat(AngAxis(Point3::ZAxis, 0.5f)) * Quat(AngAxis(Point3::XAxis, 0.7f));
  EXPECT_QUAT_NEAR(ValueAt<Quat>(c, 100), q1, 1e-6f);
  // A key inserted between them leaves the later key's absolute rotation where it was.
  AnimateOn();
  Quat mid(AngAxis(Point3::YAxis, 1.0f));
  c->SetValue(50, &mid);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(c, 50), mid, 1e-6f);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(c, 100), q1, 1e-5f);
  c->DeleteKeyAtTime(0);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(c, 100), q1, 1e-5f);
  // Without animate mode the whole curve turns with the edit.
  AnimateOff();
  Quat target(AngAxis(Point3::XAxis, -0.3f));
  c->SetValue(75, &target);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(c, 75), target, 1e-5f);
  EXPECT_EQ(c->NumKeys(), 2);
}

TEST_F(KeyframeTest, OutOfRangeTypesForFloatAndPosition) {
  struct Case {
    int type;
    TimeValue t;
    float expected;  // value of the ramp 0..10 over 0..100
  };
  const Case cases[] = {
      {ORT_CONSTANT, -50, 0},
      {ORT_CONSTANT, 150, 10},
      {ORT_CYCLE, 150, 5},
      {ORT_CYCLE, -25, 7.5f},
      {ORT_LOOP, 130, 3},
      {ORT_OSCILLATE, 180, 2},
      {ORT_OSCILLATE, -30, 3},
      {ORT_LINEAR, 150, 15},
      {ORT_LINEAR, -50, -5},
      {ORT_RELATIVE_REPEAT, 250, 25},
      {ORT_RELATIVE_REPEAT, -25, -2.5f},
      {ORT_IDENTITY, 150, 0},
  };
  auto* f = Ramp();
  auto* p = Keep(new BezierPositionControl());
  for (auto [t, v] : {std::pair{0, Point3(0, 0, 0)}, {100, Point3(10, 20, -30)}}) {
    IBezPoint3Key k;
    k.time = t;
    k.flags = kLinear;
    k.val = v;
    p->AppendKey(&k);
  }
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "type " << c.type << " at " << c.t);
    const int side = c.t < 0 ? ORT_BEFORE : ORT_AFTER;
    f->SetORT(c.type, side);
    p->SetORT(c.type, side);
    EXPECT_NEAR(ValueAt<float>(f, c.t), c.expected, 1e-4f);
    EXPECT_POINT3_NEAR(ValueAt<Point3>(p, c.t), Point3(1, 2, -3) * c.expected, 1e-3f);
  }
}

TEST_F(KeyframeTest, ValidityNarrowsOnlyWhereTheValueChanges) {
  auto* c = Ramp();
  IBezFloatKey k = BezKey(200, 10.0f);
  c->AppendKey(&k);
  Interval iv;
  ValueAt<float>(c, 50, &iv);
  EXPECT_EQ(iv, Interval(50, 50));
  ValueAt<float>(c, 150, &iv);
  EXPECT_EQ(iv, Interval(100, 200)) << "a flat segment holds over its keys";
  ValueAt<float>(c, 300, &iv);
  EXPECT_EQ(iv, Interval(200, TIME_PosInfinity));
  ValueAt<float>(c, -1, &iv);
  EXPECT_EQ(iv, Interval(TIME_NegInfinity, 0));
  k = BezKey(0, 0.0f, SetOutTanType(kLinear, BEZKEY_STEP));
  c->SetKey(0, &k);
  ValueAt<float>(c, 0, &iv);
  EXPECT_EQ(iv, Interval(0, 99));
  c->SetORT(ORT_CYCLE, ORT_AFTER);
  ValueAt<float>(c, 300, &iv);
  EXPECT_EQ(iv, Interval(300, 300));
  auto* constant = Keep(new BezierFloatControl());
  ValueAt<float>(constant, 7, &iv);
  EXPECT_TRUE(iv.IsInfinite());
}

TEST_F(KeyframeTest, SetValueKeysWithAnimateAndMovesTheCurveWithout) {
  auto* c = Keep(new BezierFloatControl());
  float v = 5.0f;
  c->SetValue(40, &v);
  EXPECT_EQ(c->NumKeys(), 0);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 1000), 5.0f) << "no keys: the constant changes";

  c = Ramp();
  v = 20.0f;
  c->SetValue(50, &v);  // the curve read 5 there: every key moves by 15
  EXPECT_EQ(c->NumKeys(), 2);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 0), 15.0f);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 50), 20.0f);

  AnimateOn();
  v = 3.0f;
  c->SetValue(50, &v, 1, CTRL_RELATIVE);
  EXPECT_EQ(c->NumKeys(), 3);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 50), 23.0f);
  v = -1.0f;
  c->SetValue(100, &v);
  EXPECT_EQ(c->NumKeys(), 3) << "a key at t takes the value";
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 100), -1.0f);

  // commit 0: seen at its time only, until committed or dropped.
  v = 99.0f;
  c->SetValue(70, &v, 0);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 70), 99.0f);
  EXPECT_EQ(c->NumKeys(), 3);
  c->RestoreValue(70);
  EXPECT_NE(ValueAt<float>(c, 70), 99.0f);
  c->SetValue(70, &v, 0);
  c->CommitValue(70);
  EXPECT_EQ(c->NumKeys(), 4);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 70), 99.0f);
}

TEST_F(KeyframeTest, ScaleAndRotationSetValueCompose) {
  auto* s = Keep(new BezierScaleControl());
  ScaleValue twice(Point3(2, 2, 2));
  s->SetValue(0, &twice, 1, CTRL_RELATIVE);
  s->SetValue(0, &twice, 1, CTRL_RELATIVE);
  EXPECT_POINT3_NEAR(ValueAt<ScaleValue>(s, 0).s, Point3(4, 4, 4), 1e-6f);
  auto* r = Keep(new TCBRotationControl());
  AngAxis turn(Point3::ZAxis, 0.4f);
  r->SetValue(0, &turn, 1, CTRL_RELATIVE);
  r->SetValue(0, &turn, 1, CTRL_RELATIVE);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(r, 0), Quat(AngAxis(Point3::ZAxis, 0.8f)), 1e-6f);
}

TEST_F(KeyframeTest, KeyOperationsAndSelection) {
  auto* c = Ramp();
  TestTarget* heard = Listen(c);
  c->AddNewKey(50, ADDKEY_SELECT);
  ASSERT_EQ(c->NumKeys(), 3);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 50), 5.0f) << "a new key takes the curve's value";
  EXPECT_TRUE(c->IsKeySelected(1));
  EXPECT_EQ(c->NumSelKeys(), 1);
  EXPECT_GE(heard->Count(REFMSG_KEY_SELECTION_CHANGED), 1);
  c->AddNewKey(50, 0);
  EXPECT_EQ(c->NumKeys(), 3);
  {
    SCOPED_TRACE("per-channel bits decide when set");
    auto* p = Keep(new BezierPoint3Control());
    IBezPoint3Key k;
    k.flags = IKEY_YSEL;
    p->AppendKey(&k);
    EXPECT_TRUE(p->IsKeySelected(0));
    p->SelectKeyByIndex(0, true);
    p->GetKey(0, &k);
    EXPECT_EQ(k.flags & (IKEY_SELECTED | IKEY_ALLSEL), IKEY_SELECTED);
    p->SelectKeyByIndex(0, false);
    EXPECT_FALSE(p->IsKeySelected(0));
  }
  // Move the selected key by +50: it lands on the key at 100 and replaces it.
  struct Offset : TimeMap {
    TimeValue map(TimeValue t) override { return t + 50; }
  } offset;
  c->MapKeys(&offset, TRACK_DOSEL);
  ASSERT_EQ(c->NumKeys(), 2);
  EXPECT_EQ(c->GetKeyTime(1), 100);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 100), 5.0f);
  TimeValue nt = 0;
  EXPECT_TRUE(c->GetNextKeyTime(0, NEXTKEY_RIGHT, nt));
  EXPECT_EQ(nt, 100);
  EXPECT_FALSE(c->GetNextKeyTime(0, NEXTKEY_LEFT, nt));
  c->CopyKeysFromTime(0, 300, 0);
  EXPECT_EQ(c->GetTimeRange(TIMERANGE_ALL), Interval(0, 300));
  EXPECT_EQ(c->GetTimeRange(TIMERANGE_SELONLY), Interval(100, 100));
  Tab<TimeValue> times;
  EXPECT_EQ(c->GetKeyTimes(times, Interval(1, 1000), 0), 2);
  c->DeleteKeys(TRACK_DOSEL);
  EXPECT_EQ(c->NumKeys(), 2);
  AnimateOn();
  float v = 6.0f;
  c->SetValue(300, &v);
  AnimateOff();
  GetCOREInterface()->SetTime(150);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 150), 3.0f);
  c->DeleteKeys(TRACK_DOALL);
  EXPECT_EQ(c->NumKeys(), 0);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 0), 3.0f) << "the value at the current time stays";
}

TEST_F(KeyframeTest, IKeyControlRoundTripsRawRecordsOfTheDocumentedSizes) {
  struct Case {
    Control* c;
    int words;  // 32-bit words after time and flags
    int value_word;
  };
  const Case cases[] = {{Keep(new BezierFloatControl()), 5, 2},
                        {Keep(new BezierPositionControl()), 15, 6},
                        {Keep(new BezierColorControl()), 15, 6},
                        {Keep(new BezierScaleControl()), 19, 6},
                        {Keep(new BezierPoint4Control()), 20, 8}};
  for (const Case& cs : cases) {
    SCOPED_TRACE(cs.c->ClassName());
    auto* keys = static_cast<IKeyControl*>(cs.c->GetInterface(I_KEYCONTROL));
    ASSERT_NE(keys, nullptr);
    ASSERT_EQ(keys->GetKeySize(), 8 + 4 * cs.words);
    // A record built from the documented offsets: time, flags, then floats (custom tangents,
    // so nothing is recomputed over them).
    std::uint32_t raw[2 + 20];
    raw[0] = 40;
    raw[1] = 0x1680;
    for (int i = 0; i < cs.words; ++i) {
      float f = 0.25f * static_cast<float>(i + 1);
      std::memcpy(&raw[2 + i], &f, 4);
    }
    ASSERT_EQ(keys->AppendKey(reinterpret_cast<IKey*>(raw)), 0);
    std::uint32_t back[2 + 20] = {};
    keys->GetKey(0, reinterpret_cast<IKey*>(back));
    EXPECT_EQ(std::memcmp(raw, back, keys->GetKeySize()), 0);
    float first_value = 0;
    std::memcpy(&first_value, &raw[2 + cs.value_word], 4);
    float read[7] = {};
    Interval iv = FOREVER;
    cs.c->GetValue(40, read, iv);
    EXPECT_FLOAT_EQ(read[0], first_value);
    raw[0] = 0x7FFFFFFF;
    EXPECT_EQ(keys->AppendKey(reinterpret_cast<IKey*>(raw)), -1) << "invalid key time";
    raw[0] = 0x80000000u;
    keys->SetKey(0, reinterpret_cast<IKey*>(raw));
    EXPECT_EQ(cs.c->GetKeyTime(0), 40);
  }
  EXPECT_EQ(Keep(new TCBFloatControl())->GetKeySize(), 32);
  EXPECT_EQ(Keep(new TCBRotationControl())->GetKeySize(), 44);
  EXPECT_EQ(Keep(new TCBScaleControl())->GetKeySize(), 56);
}

TEST_F(KeyframeTest, LockedTracksIgnoreEdits) {
  auto* c = Ramp();
  auto* locked = static_cast<ILockedTrack*>(c->GetInterface(I_LOCKED));
  ASSERT_NE(locked, nullptr);
  locked->SetLocked(true);
  float v = 50.0f;
  c->SetValue(50, &v);
  AnimateOn();
  c->SetValue(50, &v);
  c->AddNewKey(30, 0);
  c->DeleteKeys(TRACK_DOALL);
  IBezFloatKey k = BezKey(100, 77.0f);
  c->SetKey(1, &k);
  struct Later : TimeMap {
    TimeValue map(TimeValue t) override { return t + 5; }
  } later;
  c->MapKeys(&later, 0);
  EXPECT_EQ(c->NumKeys(), 2);
  EXPECT_EQ(c->GetKeyTime(1), 100);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 50), 5.0f);
}

TEST_F(KeyframeTest, CopyAndCloneTakeTheCurveOrTheValue) {
  auto* c = Ramp();
  c->SetORT(ORT_CYCLE, ORT_AFTER);
  auto* same = Keep(new BezierFloatControl());
  same->Copy(c);
  EXPECT_FLOAT_EQ(ValueAt<float>(same, 150), 5.0f);
  auto* other = Keep(new TCBFloatControl());
  GetCOREInterface()->SetTime(30);
  other->Copy(c);
  EXPECT_EQ(other->NumKeys(), 0);
  EXPECT_FLOAT_EQ(ValueAt<float>(other, 999), 3.0f);
  auto* clone = static_cast<Control*>(Keep(CloneRefHierarchy(c)));
  EXPECT_FLOAT_EQ(ValueAt<float>(clone, 25), 2.5f);
  float v = 1.0f;
  clone->SetValue(0, &v);
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 0), 0.0f) << "the clone is independent";
}

}  // namespace
}  // namespace marvolith::test
