// Copyright Marvolith contributors.
#include "chains/ikfk_display_mod.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "host/controllers/controller_classes.h"
#include "host/params/iparamb2.h"
#include "plugin/class_table.h"
#include "tests/chains/ikfk_link_fixture.h"

namespace marvolith::test {
namespace {

// A deformable object: a list of points.
class PointsObject : public GeomObject {
 public:
  static constexpr Class_ID kClassID{0x7e57, 0x1a1};
  explicit PointsObject(std::vector<Point3> p = {}) : points(std::move(p)) {}
  Class_ID ClassID() override { return kClassID; }
  void GetClassName(MSTR& s, bool = true) const override { s = "Points"; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  ObjectState Eval(TimeValue) override { return ObjectState(this); }
  bool IsDeformable() override { return deformable; }
  int NumPoints() override { return static_cast<int>(points.size()); }
  Point3 GetPoint(int i) override { return points[static_cast<size_t>(i)]; }
  void SetPoint(int i, const Point3& p) override { points[static_cast<size_t>(i)] = p; }
  void PointsWereChanged() override { ++changes; }
  Object* MakeShallowCopy(ChannelMask) override {
    auto* c = new PointsObject(points);
    c->deformable = deformable;
    return c;
  }
  RefTargetHandle Clone(RemapDir& remap) override {
    auto* c = new PointsObject(points);
    BaseClone(this, c, remap);
    return c;
  }

  std::vector<Point3> points;
  bool deformable = true;
  int changes = 0;
};

// Stand-ins with the class ids and block ids of the chain's joint control and of the chain, so
// that the modifier's generic reading is tested against the layout it relies on.
class StandInControlDesc : public ClassDesc2 {
 public:
  explicit StandInControlDesc(ClassIndex index) : index_(index) {}
  bool IsPublic() override { return false; }
  Animatable* Create(bool) override;
  const char* ClassName() override { return "stand-in"; }
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  Class_ID ClassID() override { return GetClassInfo(index_).class_id; }
  const char* Category() override { return "Test"; }

 private:
  ClassIndex index_;
};

class StandInControl : public Control {
 public:
  explicit StandInControl(StandInControlDesc* cd) : cd_(cd) { cd->MakeAutoParamBlocks(this); }
  Class_ID ClassID() override { return cd_->ClassID(); }
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override { return id == 0 ? pblock_ : nullptr; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  void GetValue(TimeValue, void*, Interval&, GetSetMethod) override {}  // stays at the parent
  void SetValue(TimeValue, void*, int, GetSetMethod) override {}
  RefTargetHandle Clone(RemapDir&) override { return nullptr; }
  IParamBlock2* Block() { return pblock_; }

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i == 0) pblock_ = static_cast<IParamBlock2*>(target);
  }

 private:
  StandInControlDesc* cd_;
  IParamBlock2* pblock_ = nullptr;
};

Animatable* StandInControlDesc::Create(bool) { return new StandInControl(this); }

StandInControlDesc control_cd(ClassIndex::IKFKControl);
ParamBlockDesc2 control_pb{0,
                           "params",
                           0,
                           &control_cd,
                           P_AUTO_CONSTRUCT,
                           0,
                           {
                               ParamDef(0, "ikfkchain_node", TYPE_INODE, 0),
                               ParamDef(1, "type", TYPE_INDEX, 0).Default(0),
                           }};
StandInControlDesc chain_cd(ClassIndex::IKFKChain);
ParamBlockDesc2 chain_pb{0,
                         "params",
                         0,
                         &chain_cd,
                         P_AUTO_CONSTRUCT,
                         0,
                         {
                             ParamDef(6, "ikfk_blend", TYPE_PCNT_FRAC, P_ANIMATABLE).Default(1.0f),
                             ParamDef(24, "affect_helpers_display", TYPE_BOOL, 0).Default(true),
                         }};

TEST(IKFKDisplayFactorTest, FollowsTheBlendAwayFromTheControlsMode) {
  IKFKDisplayInput in;
  EXPECT_EQ(IKFKDisplayFactor(in), 0.5f) << "not a chain control";
  in.is_ikfk_control = true;
  EXPECT_EQ(IKFKDisplayFactor(in), 1.0f) << "no chain, or the chain leaves the display alone";
  in.chain_affects_display = true;
  in.blend = 0.25f;
  for (int type : {1, 2, 3}) {
    in.type = type;
    EXPECT_FLOAT_EQ(IKFKDisplayFactor(in), 0.25f) << "goal family shrinks toward FK";
  }
  in.type = 0;
  EXPECT_FLOAT_EQ(IKFKDisplayFactor(in), 0.75f) << "joints shrink toward IK";
  in.blend = 1.0f;
  EXPECT_EQ(IKFKDisplayFactor(in), 0.0f) << "FK controls vanish in pure IK";

  // Blends past the range and NaN.
  in.blend = 1.5f;
  EXPECT_EQ(IKFKDisplayFactor(in), 0.0f);
  in.type = 1;
  EXPECT_EQ(IKFKDisplayFactor(in), 1.0f);
  in.blend = -2.0f;
  EXPECT_EQ(IKFKDisplayFactor(in), 0.0f);
  in.blend = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(IKFKDisplayFactor(in), 1.0f);
}

class IKFKDisplayModTest : public IKFKLinkTest {
 protected:
  /// A node showing obj through a stack with one IKFKDisplayMod.
  INode* Shown(PointsObject* obj, IKFKDisplayMod** mod_out = nullptr) {
    INode* node = GetCOREInterface()->CreateObjectNode(nullptr, "shown");
    IDerivedObject* derived = CreateDerivedObject(obj);
    auto* mod = new IKFKDisplayMod;
    derived->AddModifier(mod);
    node->SetObjectRef(derived);
    if (mod_out) *mod_out = mod;
    return node;
  }
  static std::vector<Point3> PointsOf(INode* node, TimeValue t, Interval* valid = nullptr) {
    const ObjectState& os = node->EvalWorldState(t);
    if (valid) *valid = os.obValid();
    auto* obj = dynamic_cast<PointsObject*>(os.obj);
    return obj ? obj->points : std::vector<Point3>{};
  }
  /// Puts a stand-in joint control of `type` on node, with a stand-in chain on a chain node.
  static StandInControl* MakeChainControl(INode* node, int type, StandInControl** chain_out) {
    auto* control = static_cast<StandInControl*>(control_cd.Create(false));
    auto* chain = static_cast<StandInControl*>(chain_cd.Create(false));
    INode* chain_node = GetCOREInterface()->CreateObjectNode(nullptr, "chain");
    chain_node->SetTMController(chain);
    control->Block()->SetValue(0, 0, chain_node);
    control->Block()->SetValue(1, 0, type);
    node->SetTMController(control);
    *chain_out = chain;
    return control;
  }
};

TEST_F(IKFKDisplayModTest, ScalesPointsAboutTheirBoxCentre) {
  auto* obj = new PointsObject({{0, 0, 0}, {2, 4, 6}, {1, 1, 1}});
  IKFKDisplayMod* mod = nullptr;
  INode* node = Shown(obj, &mod);
  MSTR name;
  mod->GetClassName(name);
  EXPECT_EQ(name, MSTR("IKFK Display"));
  // A node without a chain control: half size, about the centre (1, 2, 3).
  const std::vector<Point3> p = PointsOf(node, 0);
  ASSERT_EQ(p.size(), 3u);
  EXPECT_POINT3_NEAR(p[0], Point3(0.5f, 1, 1.5f), 1e-6f);
  EXPECT_POINT3_NEAR(p[1], Point3(1.5f, 3, 4.5f), 1e-6f);
  EXPECT_POINT3_NEAR(p[2], Point3(1, 1.5f, 2), 1e-6f);
  EXPECT_EQ(obj->points[1], Point3(2, 4, 6)) << "the stack changed a copy";
}

TEST_F(IKFKDisplayModTest, ASinglePointOrAnObjectThatCannotDeformStays) {
  INode* node = Shown(new PointsObject({{3, -4, 5}}));
  const std::vector<Point3> p = PointsOf(node, 0);
  ASSERT_EQ(p.size(), 1u);
  EXPECT_EQ(p[0], Point3(3, -4, 5));

  auto* rigid = new PointsObject({{0, 0, 0}, {2, 2, 2}});
  rigid->deformable = false;
  INode* other = Shown(rigid);
  EXPECT_EQ(PointsOf(other, 0)[1], Point3(2, 2, 2));
}

TEST_F(IKFKDisplayModTest, FollowsTheChainBlendAndItsValidity) {
  auto* obj = new PointsObject({{-1, -1, -1}, {1, 1, 1}, {3, 1, 1}});
  INode* node = Shown(obj);
  StandInControl* chain = nullptr;
  MakeChainControl(node, 0, &chain);

  // A joint in pure IK collapses to its centre (1, 0, 0).
  for (const Point3& q : PointsOf(node, 0)) EXPECT_POINT3_NEAR(q, Point3(1, 0, 0), 1e-6f);

  // An animated blend: 1 - b for the joint, valid only where the blend's track says.
  Control* blend = NewDefaultFloatController();
  ASSERT_TRUE(chain->Block()->SetController(6, 0, blend, false));
  AnimateOn();
  float v = 0.0f;
  blend->SetValue(0, &v);
  v = 1.0f;
  blend->SetValue(100 * kFrame, &v);
  AnimateOff();
  // The modifier holds no reference to the chain: the chain drops its members' world states.
  node->InvalidateWS();
  Interval valid;
  const std::vector<Point3> mid = PointsOf(node, 50 * kFrame, &valid);
  float b = 0.0f;
  Interval ignored = FOREVER;
  blend->GetValue(50 * kFrame, &b, ignored);
  ASSERT_GT(b, 0.05f);
  ASSERT_LT(b, 0.95f);
  EXPECT_POINT3_NEAR(mid[2], Point3(1 + 2 * (1 - b), 0 + 1 * (1 - b), 0 + 1 * (1 - b)), 1e-5f);
  EXPECT_FALSE(valid.InInterval(60 * kFrame)) << "the object is re-evaluated as the blend moves";
  EXPECT_TRUE(valid.InInterval(50 * kFrame));

  // The display switch off: full size.
  chain->Block()->SetValue(24, 0, false);
  node->InvalidateWS();
  EXPECT_EQ(PointsOf(node, 50 * kFrame)[2], Point3(3, 1, 1));
}

TEST_F(IKFKDisplayModTest, TheGoalShrinksAsTheChainGoesToFK) {
  INode* node = Shown(new PointsObject({{0, 0, 0}, {4, 0, 0}}));
  StandInControl* chain = nullptr;
  MakeChainControl(node, 1, &chain);
  chain->Block()->SetValue(6, 0, 0.25f);
  const std::vector<Point3> p = PointsOf(node, 0);
  EXPECT_POINT3_NEAR(p[0], Point3(1.5f, 0, 0), 1e-6f);
  EXPECT_POINT3_NEAR(p[1], Point3(2.5f, 0, 0), 1e-6f);
}

TEST_F(IKFKDisplayModTest, SavesLoadsAndClones) {
  Shown(new PointsObject({{0, 0, 0}, {1, 1, 1}}));
  // The test's points object is not a registered class; save the modifier on a helper.
  INode* helper = GetCOREInterface()->CreateObjectNode(new TestHelper, "helper");
  IDerivedObject* derived = CreateDerivedObject(new TestHelper);
  derived->AddModifier(new IKFKDisplayMod);
  helper->SetObjectRef(derived);
  GetCOREInterface()->GetINodeByName("shown")->Delete(0);
  RoundTrip();

  auto* loaded =
      dynamic_cast<IDerivedObject*>(GetCOREInterface()->GetINodeByName("helper")->GetObjectRef());
  ASSERT_NE(loaded, nullptr);
  auto* mod = dynamic_cast<IKFKDisplayMod*>(loaded->GetModifier(0));
  ASSERT_NE(mod, nullptr);
  ASSERT_NE(mod->GetParamBlockByID(0), nullptr);
  RemapDir remap;
  auto* copy = dynamic_cast<IKFKDisplayMod*>(remap.CloneRef(mod));
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy->GetParamBlockByID(0), mod->GetParamBlockByID(0));
  copy->DeleteMe();
}

}  // namespace
}  // namespace marvolith::test
