// Copyright Marvolith contributors.
#include "chains/ikfk_display_mod.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "host/params/iparamb2.h"
#include "plugin/class_table.h"
#include "tests/chains/ikfk_link_fixture.h"

namespace marvolith::test {
namespace {

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

// Stand-ins with the class ids and block layouts of the chain's control and of the chain, so
// that the modifier's reading by id is tested against the layout it relies on.
class StandInDesc : public ClassDesc2 {
 public:
  explicit StandInDesc(ClassIndex index) : id_(GetClassInfo(index).class_id) {}
  bool IsPublic() override { return false; }
  Animatable* Create(bool) override;
  const char* ClassName() override { return "stand-in"; }
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  Class_ID ClassID() override { return id_; }
  const char* Category() override { return "Test"; }

 private:
  Class_ID id_;
};

class StandIn : public Control {
 public:
  explicit StandIn(StandInDesc* cd) : cd_(cd) { cd->MakeAutoParamBlocks(this); }
  Class_ID ClassID() override { return cd_->ClassID(); }
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pb : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override { return id == 0 ? pb : nullptr; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  void GetValue(TimeValue, void*, Interval&, GetSetMethod) override {}  // stays at the parent
  void SetValue(TimeValue, void*, int, GetSetMethod) override {}
  RefTargetHandle Clone(RemapDir&) override { return nullptr; }

  IParamBlock2* pb = nullptr;

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i == 0) pb = static_cast<IParamBlock2*>(target);
  }

 private:
  StandInDesc* cd_;
};

Animatable* StandInDesc::Create(bool) { return new StandIn(this); }

StandInDesc control_cd(ClassIndex::IKFKControl);
ParamBlockDesc2 control_pb{
    0,
    "params",
    0,
    &control_cd,
    P_AUTO_CONSTRUCT,
    0,
    {ParamDef(0, "ikfkchain_node", TYPE_INODE, 0), ParamDef(1, "type", TYPE_INDEX, 0).Default(0)}};
StandInDesc chain_cd(ClassIndex::IKFKChain);
ParamBlockDesc2 chain_pb{0,
                         "params",
                         0,
                         &chain_cd,
                         P_AUTO_CONSTRUCT,
                         0,
                         {ParamDef(6, "ikfk_blend", TYPE_PCNT_FRAC, P_ANIMATABLE).Default(1.0f),
                          ParamDef(24, "affect_helpers_display", TYPE_BOOL, 0).Default(true)}};

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

class IKFKDisplayModTest : public IKFKLinkTest {
 protected:
  /// A node showing obj through a stack with one IKFKDisplayMod.
  static INode* Shown(PointsObject* obj) {
    INode* node = GetCOREInterface()->CreateObjectNode(nullptr, "shown");
    IDerivedObject* derived = CreateDerivedObject(obj);
    derived->AddModifier(new IKFKDisplayMod);
    node->SetObjectRef(derived);
    return node;
  }
  static std::vector<Point3> PointsOf(INode* node, TimeValue t, Interval* valid = nullptr) {
    node->InvalidateWS();  // the chain does this when its blend changes
    const ObjectState& os = node->EvalWorldState(t);
    if (valid) *valid = os.obValid();
    return static_cast<PointsObject*>(os.obj)->points;
  }
  /// Puts a stand-in control of `type` on node, on a chain node with a stand-in chain.
  static StandIn* ChainControl(INode* node, int type) {
    auto* control = static_cast<StandIn*>(control_cd.Create(false));
    auto* chain = static_cast<StandIn*>(chain_cd.Create(false));
    INode* chain_node = GetCOREInterface()->CreateObjectNode(nullptr, "chain");
    chain_node->SetTMController(chain);
    control->pb->SetValue(0, 0, chain_node);
    control->pb->SetValue(1, 0, type);
    node->SetTMController(control);
    return chain;
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
  MSTR name;
  static_cast<IDerivedObject*>(node->GetObjectRef())->GetModifier(0)->GetClassName(name);
  EXPECT_EQ(name, MSTR("IKFK Display"));

  // A single point, and an object that cannot deform, stay.
  EXPECT_EQ(PointsOf(Shown(new PointsObject({{3, -4, 5}})), 0)[0], Point3(3, -4, 5));
  EXPECT_EQ(PointsOf(Shown(new PointsObject({{0, 0, 0}, {2, 2, 2}}, false)), 0)[1],
            Point3(2, 2, 2));
}

TEST_F(IKFKDisplayModTest, FollowsTheChainBlendAndItsValidity) {
  INode* goal = Shown(new PointsObject({{0, 0, 0}, {4, 0, 0}}));
  ChainControl(goal, 1)->pb->SetValue(6, 0, 0.25f);
  EXPECT_POINT3_NEAR(PointsOf(goal, 0)[1], Point3(2.5f, 0, 0), 1e-6f) << "the goal at 0.25";

  INode* joint = Shown(new PointsObject({{-1, -1, -1}, {1, 1, 1}, {3, 1, 1}}));
  StandIn* chain = ChainControl(joint, 0);
  for (const Point3& q : PointsOf(joint, 0)) EXPECT_POINT3_NEAR(q, Point3(1, 0, 0), 1e-6f);

  // An animated blend: the joint at 1 - b, valid only where the blend's track says.
  Control* blend = NewDefaultFloatController();
  ASSERT_TRUE(chain->pb->SetController(6, 0, blend, false));
  AnimateOn();
  for (auto [t, v] : {std::pair{0, 0.0f}, {100 * kFrame, 1.0f}}) blend->SetValue(t, &v);
  AnimateOff();
  float b = 0.0f;
  Interval valid = FOREVER;
  blend->GetValue(50 * kFrame, &b, valid);
  ASSERT_TRUE(b > 0.05f && b < 0.95f);
  const Point3 far = PointsOf(joint, 50 * kFrame, &valid)[2];
  EXPECT_POINT3_NEAR(far, Point3(1, 0, 0) + Point3(2, 1, 1) * (1 - b), 1e-5f);
  EXPECT_TRUE(valid.InInterval(50 * kFrame) && !valid.InInterval(60 * kFrame));

  chain->pb->SetValue(24, 0, false);
  EXPECT_EQ(PointsOf(joint, 50 * kFrame)[2], Point3(3, 1, 1)) << "the display switch off";
}

}  // namespace
}  // namespace marvolith::test
