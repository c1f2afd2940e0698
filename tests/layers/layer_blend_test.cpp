// Copyright Marvolith contributors.
#include "layers/layer_blend.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "host/math/affine.h"
#include "host/math/euler.h"

namespace marvolith {
namespace {

constexpr float kPi = 3.14159265358979f;
constexpr float kDeg = kPi / 180.0f;

enum class Kind { Float, Position, Rotation, Scale, Euler };

// One layer of a test stack: the values its controller would hold, by kind.
struct TestLayer {
  int type = kLayerOverride;
  float weight = 1.0f;
  float f = 0.0f;
  Point3 p;
  Quat q;
  ScaleValue s;
};

// A `Layers` source over plain values. Matrices are applied as the host's controllers apply
// themselves relative (position and rotation before the running matrix); a scale layer
// multiplies the running stretch, as an Adjustment stack of stretches composes.
struct TestStack {
  Kind kind = Kind::Float;
  std::vector<TestLayer> layers;

  bool Share(int i, LayerShare& out) const {
    out.weight = layers[i].weight;
    out.additive = IsAdditiveLayer(i, layers[i].type);
    return true;
  }
  void Apply(int i, float& v) const { v += layers[i].f; }
  void Apply(int i, Matrix3& m) const {
    if (kind == Kind::Position) m.PreTranslate(layers[i].p);
    if (kind == Kind::Rotation) m.PreRotate(layers[i].q);
    if (kind == Kind::Scale) ApplyScaling(m, layers[i].s);
  }
  void ReadEuler(int i, float e[3]) const {
    for (int a = 0; a < 3; ++a) e[a] = layers[i].p[a];
  }
  int Count() const { return static_cast<int>(layers.size()); }

  float Float(float initial = 0.0f) const { return BlendFloatLayers(initial, 0, Count(), *this); }
  Point3 Position() const { return BlendPositionLayers(Matrix3(), 0, Count(), *this).GetTrans(); }
  Quat Rotation() const {
    Quat q;
    BlendRotationLayers(Matrix3(), q, 0, Count(), *this);
    return q;
  }
  ScaleValue Scale() const {
    ScaleValue v;
    BlendScaleLayers(Matrix3(), v, 0, Count(), *this);
    return v;
  }
};

// A layer of the given type and weight whose controller holds `value` (an Euler layer holds its
// angles by axis as a Point3).
template <class T>
TestLayer Layer(int type, float w, const T& value) {
  TestLayer l;
  l.type = type;
  l.weight = w;
  if constexpr (std::is_same_v<T, float>) {
    l.f = value;
  } else if constexpr (std::is_same_v<T, Point3>) {
    l.p = value;
  } else if constexpr (std::is_same_v<T, Quat>) {
    l.q = value;
  } else {
    l.s = value;
  }
  return l;
}

Quat RotZ(float deg) { return Quat(RotateZMatrix(deg * kDeg)); }

void ExpectNear(const Point3& a, const Point3& b, float eps = 1e-5f) {
  EXPECT_NEAR(a.x, b.x, eps);
  EXPECT_NEAR(a.y, b.y, eps);
  EXPECT_NEAR(a.z, b.z, eps);
}

void ExpectNear(const Matrix3& a, const Matrix3& b, float eps = 1e-5f) {
  for (int r = 0; r < 4; ++r) ExpectNear(a.GetRow(r), b.GetRow(r), eps);
}

void ExpectSameRotation(const Quat& a, const Quat& b, float eps = 1e-5f) {
  EXPECT_TRUE(a.EqualsRotation(b, eps)) << a.x << " " << a.y << " " << a.z << " " << a.w << " vs "
                                        << b.x << " " << b.y << " " << b.z << " " << b.w;
}

// --- Hand-checked blends ----------------------------------------------------------------------

TEST(FloatLayerBlend, WeightsTypesAndTheBaseLayerDecideTheBlend) {
  // Two layers: the base holding 10 at base_w, and one of type holding v at w. Weights are not
  // clamped: 2 overshoots, a negative weight reverses. The base at weight 0 leaves the initial
  // value for the layers above.
  const struct {
    const char* what;
    float base_w;
    int type;
    float w, v, initial, want;
  } cases[] = {
      {"Adjustment adds its share", 1, kLayerAdjustment, 0.5f, 3, 0, 11.5f},
      {"Override cross-fades", 1, kLayerOverride, 0.5f, 20, 0, 15},
      {"Adjustment at 2", 1, kLayerAdjustment, 2, 3, 0, 16},
      {"Adjustment at -1", 1, kLayerAdjustment, -1, 3, 0, 7},
      {"Override at 2", 1, kLayerOverride, 2, 20, 0, 30},
      {"Override at 0", 1, kLayerOverride, 0, 20, 0, 10},
      {"base at 0", 0, kLayerAdjustment, 1, 3, 0, 3},
      {"base at 0, relative", 0, kLayerAdjustment, 1, 3, 7, 10},
      {"base at 0.5", 0.5f, kLayerAdjustment, 1, 3, 0, 8},
  };
  for (const auto& c : cases) {
    const TestStack s{Kind::Float,
                      {Layer(kLayerOverride, c.base_w, 10.0f), Layer(c.type, c.w, c.v)}};
    EXPECT_FLOAT_EQ(s.Float(c.initial), c.want) << c.what;
    if (c.base_w != 0.5f) continue;
    // A first at or after last leaves the initial value; a sub-range blends only its layers.
    EXPECT_FLOAT_EQ(BlendFloatLayers(7.0f, 2, 2, s), 7.0f);
    EXPECT_FLOAT_EQ(BlendFloatLayers(7.0f, 2, 1, s), 7.0f);
    EXPECT_FLOAT_EQ(BlendFloatLayers(0.0f, 0, 1, s), 5.0f);
  }
  // An Override restarts from the initial value, not from the Adjustment under it: 13 fades
  // towards 20 by half. Relative reads start from the incoming value.
  const TestStack restart{Kind::Float,
                          {Layer(kLayerOverride, 1.0f, 10.0f), Layer(kLayerAdjustment, 1.0f, 3.0f),
                           Layer(kLayerOverride, 0.5f, 20.0f)}};
  EXPECT_FLOAT_EQ(restart.Float(), 16.5f);
  EXPECT_FLOAT_EQ(restart.Float(100.0f), 116.5f);

  // Writing through the active layer undoes its share. Base 10 under an Adjustment at 0.5: 12
  // needs (12 - 10) / 0.5 = 4; under an Override at 0.5, 16 needs (16 - 0.5 * 10) / 0.5 = 22.
  EXPECT_FLOAT_EQ(SolveFloatLayer(12.0f, 10.0f, 0.5f, kLayerAdjustment), 4.0f);
  EXPECT_FLOAT_EQ(SolveFloatLayer(16.0f, 10.0f, 0.5f, kLayerOverride), 22.0f);
  // Weight 0 cannot be written: the wanted value comes back instead of infinities.
  EXPECT_FLOAT_EQ(SolveFloatLayer(12.0f, 10.0f, 0.0f, kLayerOverride), 12.0f);
}

TEST(TransformLayerBlend, PositionsRotationsAndScalesFadeAddAndMultiply) {
  const TestStack pos{Kind::Position,
                      {Layer(kLayerOverride, 1.0f, Point3(1, 2, 3)),
                       Layer(kLayerAdjustment, -2.0f, Point3(10, 0, 0)),
                       Layer(kLayerOverride, 0.25f, Point3(0, 0, 4))}};
  // (1,2,3) - 2 (10,0,0) = (-19,2,3); then a quarter of the way to (0,0,4).
  ExpectNear(pos.Position(), {-14.25f, 1.5f, 3.25f});

  TestStack rot{Kind::Rotation,
                {Layer(kLayerOverride, 1.0f, RotZ(90)), Layer(kLayerAdjustment, 0.5f, RotZ(90))}};
  ExpectSameRotation(rot.Rotation(), RotZ(135));
  rot.layers[1].weight = 2.0f;
  ExpectSameRotation(rot.Rotation(), RotZ(270));
  rot.layers[1] = Layer(kLayerOverride, 0.5f, Quat());
  ExpectSameRotation(rot.Rotation(), RotZ(45));
  rot.layers[0].weight = 0.0f;
  ExpectSameRotation(rot.Rotation(), Quat());

  // An Adjustment multiplies the base's (2,2,2) into (6,2,2): half way is (4,2,2); the Override
  // then goes half way to 1.
  const TestStack scl{Kind::Scale,
                      {Layer(kLayerOverride, 1.0f, ScaleValue(Point3(2, 2, 2))),
                       Layer(kLayerAdjustment, 0.5f, ScaleValue(Point3(3, 1, 1))),
                       Layer(kLayerOverride, 0.5f, ScaleValue(Point3(1, 1, 1)))}};
  ExpectNear(scl.Scale().s, {2.5f, 1.5f, 1.5f});
  // The stretch rotation slerps: half of a 60 degree stretch axis turn.
  const TestStack axis{Kind::Scale, {Layer(kLayerOverride, 0.5f, ScaleValue({1, 1, 3}, RotZ(60)))}};
  ExpectNear(MatrixFromScaleValue(axis.Scale()),
             MatrixFromScaleValue(ScaleValue({1, 1, 2}, RotZ(30))));
}

TEST(TransformLayerBlend, RelativeReadsKeepWhatTheIncomingMatrixHolds) {
  Matrix3 turned = RotateZMatrix(90.0f * kDeg);
  turned.SetTrans({5, 0, 0});
  // A position moves in the incoming frame: the layer's +X is the frame's +Y.
  const TestStack half{Kind::Position, {Layer(kLayerOverride, 0.5f, Point3(1, 0, 0))}};
  Matrix3 want = turned;
  want.SetTrans({5, 0.5f, 0});
  ExpectNear(BlendPositionLayers(turned, 0, 1, half), want);
  // A scale applies before the incoming rotation.
  const TestStack one{Kind::Scale, {Layer(kLayerOverride, 1.0f, ScaleValue(Point3(2, 3, 4)))}};
  ScaleValue rel;
  ExpectNear(BlendScaleLayers(turned, rel, 0, 1, one), ScaleMatrix({2, 3, 4}) * turned);

  // A rotation keeps the translation and the stretch, a non-uniform one and a mirror included.
  const TestStack rot{Kind::Rotation, {Layer(kLayerOverride, 0.5f, RotZ(90))}};
  TestStack full = rot;
  full.layers[0].weight = 1.0f;
  Quat q;
  for (const Point3& k : {Point3(2, 2, 2), Point3(2, 3, 4), Point3(-1, -1, -1)}) {
    Matrix3 m0 = ScaleMatrix(k);
    m0.SetTrans({1, 2, 3});
    Matrix3 plain = m0;
    plain.PreRotate(RotZ(90));
    ExpectNear(BlendRotationLayers(m0, q, 0, 1, full), plain);
    if (k.x != k.y) continue;  // a half turn is defined for a uniform stretch only
    Matrix3 halfway = m0;
    halfway.PreRotate(RotZ(45));
    ExpectNear(BlendRotationLayers(m0, q, 0, 1, rot), halfway);
    if (k.x > 0) ExpectSameRotation(q, RotZ(45));
  }
}

TEST(EulerLayerBlend, SumsAnglesAndKeepsWholeTurns) {
  float acc[3] = {9, 9, 9};
  TestStack s{Kind::Euler,
              {Layer(kLayerOverride, 1.0f, Point3(0.1f, 0.2f, 0.3f)),
               Layer(kLayerAdjustment, 2.0f, Point3(1.0f, 0.0f, 0.0f)),
               Layer(kLayerOverride, 0.5f, Point3(0.0f, 0.0f, 0.0f))}};
  BlendEulerLayers(acc, 0, 3, s);
  ExpectNear({acc[0], acc[1], acc[2]}, {1.05f, 0.1f, 0.15f});
  // Two turns of 4 radians stay 8 radians, beyond a whole turn.
  s.layers = {Layer(kLayerOverride, 1.0f, Point3(4, 0, 0)),
              Layer(kLayerAdjustment, 1, Point3(4, 0, 0))};
  BlendEulerLayers(acc, 0, 2, s);
  EXPECT_FLOAT_EQ(acc[0], 8.0f);
  // Nothing blended: zero whatever the incoming angles.
  BlendEulerLayers(acc, 1, 1, s);
  EXPECT_EQ(acc[0], 0.0f);
}

TEST(EulerByAxis, OrdersMatchTheHostsSequenceConventions) {
  const float by_axis[3] = {0.3f, -0.7f, 1.1f};
  for (int order = 0; order < 6; ++order) {
    SCOPED_TRACE(order);
    float seq[3];
    for (int step = 0; step < 3; ++step) seq[step] = by_axis[EulerOrderAxis(order, step)];
    Matrix3 host;
    EulerToMatrix(seq, host, order);
    const Matrix3 m = EulerByAxisToMatrix(by_axis, order);
    ExpectNear(m, host);
    float back[3];
    QuatToEulerByAxis(Quat(m), order, back);
    for (int a = 0; a < 3; ++a) EXPECT_NEAR(back[a], by_axis[a], 1e-5f);
    // Continuous conversion follows angles a whole turn away.
    float near[3] = {by_axis[0] + 2 * kPi, by_axis[1], by_axis[2]};
    ContinuousQuatToEulerByAxis(Quat(m), order, near);
    EXPECT_NEAR(near[0], by_axis[0] + 2 * kPi, 1e-4f);
  }
  // Orders above the Tait-Bryan ones read as XYZ.
  ExpectNear(EulerByAxisToMatrix(by_axis, 7), EulerByAxisToMatrix(by_axis, 0));
}

TEST(EulerTurn, LargeTurnsStepSoTheAnglesFollow) {
  // An AngAxis turns by the left-hand rule: 200 degrees about +X is -200 on the X angle. In one
  // step the nearest angles would be +160; in steps of 135 and 65 the angle follows.
  float e[3] = {0, 0, 0};
  ApplyEulerTurn(e, 0, AngAxis({1, 0, 0}, 200 * kDeg));
  EXPECT_NEAR(e[0], -200 * kDeg, 1e-4f);
  EXPECT_NEAR(e[1], 0, 1e-5f);
  EXPECT_NEAR(e[2], 0, 1e-5f);
  ApplyEulerTurn(e, 0, AngAxis({1, 0, 0}, -560 * kDeg));
  EXPECT_NEAR(e[0], 360 * kDeg, 1e-4f);
  // A turn that is not finite leaves the angles.
  ApplyEulerTurn(e, 0, AngAxis({1, 0, 0}, NAN));
  EXPECT_NEAR(e[0], 360 * kDeg, 1e-4f);
}

RC_GTEST_PROP(EulerTurnLaws, TheAnglesReachTheTurnedRotation, ()) {
  const int order = *rc::gen::inRange(0, 6);
  float e[3];
  for (float& a : e) a = *rc::gen::inRange(-150, 150) * kDeg;
  const Point3 axis(*rc::gen::inRange(-10, 11) * 0.1f, *rc::gen::inRange(-10, 11) * 0.1f, 1.0f);
  const float angle = *rc::gen::inRange(-720, 720) * kDeg;
  const Quat want = Quat(EulerByAxisToMatrix(e, order)) * Quat(AngAxis(axis, angle));
  ApplyEulerTurn(e, order, AngAxis(axis, angle));
  RC_ASSERT(Quat(EulerByAxisToMatrix(e, order)).EqualsRotation(Normalize(want), 1e-3f));
}

// --- Solving for the active layer: blending the solution gives the wanted value back ----------

float AnyWeight() {
  const float w = *rc::gen::inRange(30, 250) * 0.01f;
  return *rc::gen::arbitrary<bool>() ? w : -w;
}
int AnyType() { return *rc::gen::element(kLayerAdjustment, kLayerOverride); }
Quat AnyRotation(float max_deg) {
  const Point3 axis(*rc::gen::inRange(-10, 11) * 0.1f, *rc::gen::inRange(-10, 11) * 0.1f,
                    *rc::gen::element(-1.0f, 1.0f));
  return Quat(AngAxis(Normalize(axis), *rc::gen::inRange(-100, 101) * 0.01f * max_deg * kDeg));
}
// Distinct factors: a stretch with two equal factors has no one axis system to read back.
Point3 AnyStretch() {
  return {*rc::gen::inRange(3, 13) * 0.1f, *rc::gen::inRange(16, 26) * 0.1f,
          *rc::gen::inRange(29, 40) * 0.1f};
}

RC_GTEST_PROP(LayerSolveLaws, FloatPositionAndEulerLandOnTheWantedValue, ()) {
  const int type = AnyType();
  const float w = AnyWeight();
  const float below = *rc::gen::inRange(-1000, 1000) * 0.1f;
  const float v = *rc::gen::inRange(-1000, 1000) * 0.1f;
  TestStack s{Kind::Float, {Layer(kLayerOverride, 1.0f, below), Layer(type, w, 0.0f)}};
  s.layers[1].f = SolveFloatLayer(v, below, w, type);
  RC_ASSERT(std::fabs(s.Float() - v) <= 1e-3f);

  const Point3 below_p(below, -below, 0.5f * v);
  const Point3 v_p(v, 2.0f, -below);
  TestStack p{Kind::Position, {Layer(kLayerOverride, 1.0f, below_p), Layer(type, w, Point3())}};
  p.layers[1].p = SolvePositionLayer(v_p, below_p, w, type);
  RC_ASSERT(Length(p.Position() - v_p) <= 1e-3f);
}

RC_GTEST_PROP(LayerSolveLaws, RotationLandsOnTheWantedValue, ()) {
  const int type = AnyType();
  const float w = AnyWeight();
  const Quat below = AnyRotation(170.0f);
  // The wanted value is one the layer can reach: a layer turned less than a half turn away.
  TestStack s{Kind::Rotation,
              {Layer(kLayerOverride, 1.0f, below),
               Layer(type, w, AnyRotation(150.0f) * (type == kLayerOverride ? below : Quat()))}};
  const Quat v = s.Rotation();
  s.layers[1].q = SolveRotationLayer(v, below, w, type);
  RC_ASSERT(s.Rotation().EqualsRotation(v, 1e-3f));
}

RC_GTEST_PROP(LayerSolveLaws, ScaleLandsOnTheWantedValue, ()) {
  const int type = AnyType();
  // Weights away from 0 keep the solved stretch axes within the turn that a decomposition reads
  // back as the same axes (a quarter turn would swap them).
  const float w = AnyWeight() > 0.0f ? *rc::gen::inRange(60, 250) * 0.01f : -0.8f;
  // Adjustments compose stretches along one axis system; Overrides may turn theirs a little.
  const bool turned = type == kLayerOverride;
  const ScaleValue below(AnyStretch(), turned ? AnyRotation(10.0f) : Quat());
  const ScaleValue layer(AnyStretch(), turned ? AnyRotation(10.0f) : Quat());
  TestStack s{Kind::Scale, {Layer(kLayerOverride, 1.0f, below), Layer(type, w, layer)}};
  const ScaleValue v = s.Scale();
  RC_PRE(v.s.x > 0.05f && v.s.y > 0.05f && v.s.z > 0.05f);
  ScaleValue solved;
  RC_ASSERT(SolveScaleLayer(v, below, w, type, solved));
  s.layers[1].s = solved;
  const Matrix3 got = MatrixFromScaleValue(s.Scale());
  const Matrix3 want = MatrixFromScaleValue(v);
  for (int r = 0; r < 3; ++r) RC_ASSERT(Length(got.GetRow(r) - want.GetRow(r)) <= 2e-3f);
}

// The steps read rigid and row-scaled matrices without a polar decomposition; they must agree with
// the decomposition they stand for.
RC_GTEST_PROP(LayerStepLaws, RigidAndRowScaledMatricesBlendAsTheirDecomposition, ()) {
  const float w = AnyWeight();
  const Quat start = AnyRotation(170.0f);
  Matrix3 m;
  AnyRotation(170.0f).MakeMatrix(m);
  m.SetTrans({1, -2, 3});
  const bool scaled = *rc::gen::arbitrary<bool>();
  if (scaled) m = ScaleMatrix(AnyStretch()) * m;

  AffineParts parts;
  decomp_affine(m, &parts);
  Quat q = start;
  Matrix3 got = m;
  BlendRotationStep(got, q, w);
  Quat n = parts.q;
  n.MakeClosest(start);
  AffineParts want_parts = parts;
  want_parts.q = Slerp(start, n, w);
  RC_ASSERT(q.EqualsRotation(want_parts.q, 1e-4f));
  const Matrix3 want = ComposeAffine(want_parts);
  for (int r = 0; r < 4; ++r) RC_ASSERT(Length(got.GetRow(r) - want.GetRow(r)) <= 1e-4f);

  const ScaleValue from(AnyStretch(), AnyRotation(20.0f));
  ScaleValue v = from;
  got = m;
  BlendScaleStep(got, v, w);
  ScaleValue want_v(from.s + (parts.k - from.s) * w,
                    Slerp(from.q, MakeClosest(parts.u, from.q), w));
  Matrix3 want_m = m;
  ApplyScaleValue(want_m, want_v);
  const Matrix3 got_stretch = MatrixFromScaleValue(v);
  const Matrix3 want_stretch = MatrixFromScaleValue(want_v);
  for (int r = 0; r < 3; ++r) {
    RC_ASSERT(Length(got_stretch.GetRow(r) - want_stretch.GetRow(r)) <= 1e-3f);
  }
  for (int r = 0; r < 4; ++r) RC_ASSERT(Length(got.GetRow(r) - want_m.GetRow(r)) <= 1e-3f);
}

TEST(ScaleLayerSolve, AdjustmentOverAZeroStretchCannotBeWritten) {
  ScaleValue out(Point3(7, 7, 7));
  EXPECT_FALSE(SolveScaleLayer(ScaleValue(Point3(1, 2, 3)), ScaleValue(Point3(1, 0, 1)), 0.5f,
                               kLayerAdjustment, out));
  EXPECT_EQ(out.s.x, 7.0f);
  // An Override does not divide by what lies below, so it can.
  EXPECT_TRUE(SolveScaleLayer(ScaleValue(Point3(1, 2, 3)), ScaleValue(Point3(1, 0, 1)), 0.5f,
                              kLayerOverride, out));
  ExpectNear(out.s, {1, 4, 5});
}

TEST(BakedKeys, TangentsMeasureHalfAFrameEachSide) {
  const BakedTangents t = BakeTangents(5.0f, 4.0f, 7.0f, 80);
  EXPECT_FLOAT_EQ(t.in, -1.0f / 80.0f);
  EXPECT_FLOAT_EQ(t.out, 2.0f / 80.0f);
  const BakedTangents flat = BakeTangents(5.0f, 4.0f, 7.0f, 0);
  EXPECT_EQ(flat.in, 0.0f);
  EXPECT_EQ(flat.out, 0.0f);
  EXPECT_EQ(std::bit_cast<std::uint32_t>(BakedTangentLength()), 0x3EAAAA9Fu);
}

}  // namespace
}  // namespace marvolith
