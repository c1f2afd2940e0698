// Copyright Marvolith contributors.
#include "chains/ikfk_display_mod.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "host/controllers/controller_classes.h"
#include "tests/chains/ikfk_chain_fixture.h"

namespace marvolith::test {
namespace {

constexpr TimeValue kFrame = 160;

// A list of points; deformable unless told otherwise.
class PointsObject : public GeomObject {
 public:
  explicit PointsObject(std::vector<Point3> p, bool deform = true)
      : points(std::move(p)), deformable(deform) {}
  Class_ID ClassID() override { return Class_ID(0x7e57, 0x1a1); }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  ObjectState Eval(TimeValue) override { return ObjectState(this); }
  bool IsDeformable() override { return deformable; }
  int NumPoints() override { return static_cast<int>(points.size()); }
  Point3 GetPoint(int i) override { return points[static_cast<size_t>(i)]; }
  void SetPoint(int i, const Point3& p) override { points[static_cast<size_t>(i)] = p; }
  Object* MakeShallowCopy(ChannelMask) override { return new PointsObject(points, deformable); }
  RefTargetHandle Clone(RemapDir&) override { return new PointsObject(points, deformable); }

  std::vector<Point3> points;
  bool deformable;
};

TEST(IKFKDisplayFactorTest, FollowsTheBlendAwayFromTheControlsMode) {
  IKFKDisplayInput in;
  EXPECT_EQ(IKFKDisplayFactor(in), 0.5f) << "not a chain control";
  in.is_ikfk_control = true;
  EXPECT_EQ(IKFKDisplayFactor(in), 1.0f) << "no chain, or the chain leaves the display alone";
  in.chain_affects_display = true;
  in.blend = 0.25f;
  for (int type : {1, 2, 3}) {
    in.type = type;
    EXPECT_FLOAT_EQ(IKFKDisplayFactor(in), 0.25f) << "the goal family shrinks toward FK";
  }
  in.type = 0;
  EXPECT_FLOAT_EQ(IKFKDisplayFactor(in), 0.75f) << "joints shrink toward IK";
  // Blends past the range neither grow nor mirror the shape; NaN leaves it as built.
  in.blend = 1.5f;
  EXPECT_EQ(IKFKDisplayFactor(in), 0.0f);
  in.type = 1;
  EXPECT_EQ(IKFKDisplayFactor(in), 1.0f);
  in.blend = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(IKFKDisplayFactor(in), 1.0f);
}

class IKFKDisplayModTest : public IKFKChainTest {
 protected:
  /// Makes node show obj through a stack with one IKFKDisplayMod.
  static INode* Shown(PointsObject* obj, INode* node = nullptr) {
    if (!node) node = GetCOREInterface()->CreateObjectNode(nullptr, "shown");
    IDerivedObject* derived = CreateDerivedObject(obj);
    derived->AddModifier(new IKFKDisplayMod);
    node->SetObjectRef(derived);
    return node;
  }
  static std::vector<Point3> PointsOf(INode* node, TimeValue t, Interval* valid = nullptr) {
    node->InvalidateWS();
    const ObjectState& os = node->EvalWorldState(t);
    if (valid) *valid = os.obValid();
    return static_cast<PointsObject*>(os.obj)->points;
  }
};

TEST_F(IKFKDisplayModTest, ScalesPointsAboutTheirBoxCentre) {
  auto* obj = new PointsObject({{0, 0, 0}, {2, 4, 6}, {1, 1, 1}});
  INode* node = Shown(obj);
  // Without a chain control: half size about the centre (1, 2, 3), on a copy.
  const std::vector<Point3> p = PointsOf(node, 0);
  EXPECT_POINT3_NEAR(p[0], Point3(0.5f, 1, 1.5f), 1e-6f);
  EXPECT_POINT3_NEAR(p[1], Point3(1.5f, 3, 4.5f), 1e-6f);
  EXPECT_POINT3_NEAR(p[2], Point3(1, 1.5f, 2), 1e-6f);
  EXPECT_EQ(obj->points[1], Point3(2, 4, 6));
  // A single point, and an object that cannot deform, stay.
  EXPECT_EQ(PointsOf(Shown(new PointsObject({{3, -4, 5}})), 0)[0], Point3(3, -4, 5));
  EXPECT_EQ(PointsOf(Shown(new PointsObject({{0, 0, 0}, {2, 2, 2}}, false)), 0)[1],
            Point3(2, 2, 2));
}

TEST_F(IKFKDisplayModTest, FollowsTheChainBlendAndItsValidity) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_TRUE(limb.chain);
  limb.Params()->SetValue(kIKFKBlend, 0, 0.25f);
  INode* goal = Shown(new PointsObject({{0, 0, 0}, {4, 0, 0}}), limb.goal);
  EXPECT_POINT3_NEAR(PointsOf(goal, 0)[1], Point3(2.5f, 0, 0), 1e-6f) << "the goal at 0.25";
  // A blend change at the same frame reaches the shape without anyone dropping its cache.
  limb.Params()->SetValue(kIKFKBlend, 0, 0.75f);
  const ObjectState& again = goal->EvalWorldState(0);
  EXPECT_POINT3_NEAR(static_cast<PointsObject*>(again.obj)->points[1], Point3(3.5f, 0, 0), 1e-6f)
      << "the goal at 0.75, same frame";
  Interval ignored = FOREVER;
  EXPECT_EQ(IKFKDisplayFactor(ReadIKFKDisplayInput(limb.bones[0], 0, ignored)), 0.5f)
      << "a plain bone of the limb";

  // An animated blend: the joint at 1 - b, valid only where the blend's track says.
  INode* joint = Shown(new PointsObject({{-1, -1, -1}, {1, 1, 1}, {3, 1, 1}}), limb.members[1]);
  Control* blend = NewDefaultFloatController();
  ASSERT_TRUE(limb.Params()->SetController(kIKFKBlend, 0, blend, false));
  AnimateOn();
  for (auto [t, v] : {std::pair{0, 0.0f}, {100 * kFrame, 1.0f}}) blend->SetValue(t, &v);
  AnimateOff();
  for (const Point3& q : PointsOf(joint, 100 * kFrame)) {
    EXPECT_POINT3_NEAR(q, Point3(1, 0, 0), 1e-6f) << "pure IK: the joint's shape shrinks away";
  }
  float b = 0.0f;
  Interval valid = FOREVER;
  blend->GetValue(50 * kFrame, &b, valid);
  ASSERT_TRUE(b > 0.05f && b < 0.95f);
  const Point3 far = PointsOf(joint, 50 * kFrame, &valid)[2];
  EXPECT_POINT3_NEAR(far, Point3(1, 0, 0) + Point3(2, 1, 1) * (1 - b), 1e-5f);
  EXPECT_TRUE(valid.InInterval(50 * kFrame) && !valid.InInterval(60 * kFrame));

  limb.Params()->SetValue(kIKFKAffectHelpersDisplay, 0, false);
  EXPECT_EQ(PointsOf(joint, 50 * kFrame)[2], Point3(3, 1, 1)) << "the display switch off";
}

}  // namespace
}  // namespace marvolith::test
