// Copyright Marvolith contributors.
#include "controllers/rig_control.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

#include "controllers/dummy_controls.h"
#include "controllers/rotation_xyz.h"
#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/controllers/control_interfaces.h"
#include "host/controllers/prs_control.h"
#include "host/math/affine.h"
#include "host/params/iparamb2.h"
#include "host/scene/scene.h"
#include "host/script/fp_dispatch.h"
#include "plugin/animation_manager_params.h"
#include "plugin/strings.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"
#include "tests/support/scene_objects.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {
namespace {
namespace am = animation_manager;

constexpr float kTol = 2e-4f;
const Matrix3 kMirrorX = ScaleMatrix(Point3(-1, 1, 1));

// A stand-in of the animation layer's manager modifier: its Class_ID and parameter ids only.
class TestManagerMod : public Modifier {
 public:
  explicit TestManagerMod(bool loading = false);
  Class_ID ClassID() override { return am::kClassID; }
  void GetClassName(MSTR& s, bool = true) const override { s = "Test Manager"; }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override { return id == 0 ? pblock : nullptr; }
  void ModifyObject(TimeValue, ModContext&, ObjectState*, INode*) override {}
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  IParamBlock2* pblock = nullptr;

 protected:
  void SetReference(int i, RefTargetHandle t) override {
    if (i == 0) pblock = dynamic_cast<IParamBlock2*>(t);
  }
};

class TestManagerDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool loading) override { return new TestManagerMod(loading); }
  const char* ClassName() override { return "Test Manager"; }
  SClass_ID SuperClassID() override { return OSM_CLASS_ID; }
  Class_ID ClassID() override { return am::kClassID; }
  const char* Category() override { return ""; }
} manager_cd;

ParamBlockDesc2 manager_pb(am::kParamsBlock,
                           "params",
                           0,
                           &manager_cd,
                           P_AUTO_CONSTRUCT,
                           0,
                           {ParamDef(am::kTags, "tags", TYPE_STRING, 0),
                            ParamDef(am::kRoot, "root", TYPE_BOOL, 0),
                            ParamDef(am::kMirrorPosAxis, "mirror_pos_axis", TYPE_INT, 0),
                            ParamDef(am::kMirrorRotAxis, "mirror_rot_axis", TYPE_INT, 0),
                            ParamDef(am::kUseMirrorPos, "use_mirror_pos", TYPE_BOOL, 0),
                            ParamDef(am::kUseMirrorRot, "use_mirror_rot", TYPE_BOOL, 0),
                            ParamDef(am::kMirrorNode, "mirror_node", TYPE_INODE, P_NO_REF)});

TestManagerMod::TestManagerMod(bool loading) {
  if (!loading) manager_cd.MakeAutoParamBlocks(this);
}

struct ParentCase {
  const char* name;
  Matrix3 tm;
  bool orthonormal;
};

std::vector<ParentCase> Parents() {
  const Matrix3 turned = MatrixOf(QFromAngAxis(0.7f, Normalize(Point3(1, 2, 3))));
  const Matrix3 placed = turned * TransMatrix(Point3(1, -2, 3));
  return {{"identity", Matrix3(), true},
          {"moved", TransMatrix(Point3(3, -2, 5)), true},
          {"rotated", placed, true},
          {"non-uniform scale", ScaleMatrix(Point3(2.0f, 0.5f, 1.5f)) * placed, false},
          {"mirrored -1 X", kMirrorX * placed, true}};
}

// Offsets: none, a posed one, and a left-side one (negative determinant).
std::vector<Matrix3> Offsets() {
  const Matrix3 posed = RotateZMatrix(0.4f) * RotateXMatrix(-0.3f) * TransMatrix(Point3(1, 2, -1));
  return {Matrix3(), posed, kMirrorX * posed};
}

Matrix3 World(Control* c, const Matrix3& parent, TimeValue t = 0) {
  Matrix3 m = parent;
  Interval valid = FOREVER;
  c->GetValue(t, &m, valid, CTRL_RELATIVE);
  return m;
}

Matrix3 Rows(Matrix3 m) {
  m.NoTrans();
  return m;
}

void SetTracks(Control* c, const Point3& p, const Quat& q, const ScaleValue& s, TimeValue t = 0) {
  c->GetPositionController()->SetValue(t, const_cast<Point3*>(&p));
  GetRealRotationController(c)->SetValue(t, const_cast<Quat*>(&q));
  c->GetScaleController()->SetValue(t, const_cast<ScaleValue*>(&s));
}

RigControl* NewRig(const Matrix3& offset, bool independent = true, bool straight = false) {
  auto* rc = new RigControl;
  rc->ParamBlock()->SetValue(kRigOffsetTM, 0, offset);
  rc->ParamBlock()->SetValue(kRigIndependentOffset, 0, independent);
  rc->ParamBlock()->SetValue(kRigStraightScale, 0, straight);
  return rc;
}

class RigControlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    RegisterSceneTestClasses();
    instance_ = GetModuleInstance();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    for (ClassDesc2* cd : {GetRigControlDesc(), GetDummyFloatDesc(), GetDummyRotationDesc(),
                           GetRotationXYZDesc(), static_cast<ClassDesc2*>(&manager_cd)}) {
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    }
    GetCOREInterface()->Reset();
  }
  void TearDown() override {
    ReleaseGimbalProxy();
    AnimateOff();
    GetCOREInterface()->Reset();
    theHold.Clear();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    SetModuleInstance(instance_);
  }
  template <typename T>
  T* Keep(T* target) {
    return sweep_.Keep(target);
  }

  static INode* RigNode(const char* name, INode* parent = nullptr) {
    INode* node = GetCOREInterface()->CreateObjectNode(nullptr, name);
    node->SetTMController(new RigControl);
    if (parent) parent->AttachChild(node, 0);
    return node;
  }
  static RigControl* Rig(INode* node) { return FindRigControl(node->GetTMController()); }
  static IParamBlock2* AddManager(INode* node, const char* tags) {
    IDerivedObject* derived = CreateDerivedObject(new TestHelper);
    node->SetObjectRef(derived);
    auto* mod = new TestManagerMod;
    derived->AddModifier(mod);
    mod->pblock->SetValue(am::kTags, 0, tags);
    return mod->pblock;
  }
  // A left/right pair mirrored across X, each the other's mirror node.
  static void Pair(INode* right, INode* left) {
    for (auto [node, other, tags] : {std::tuple{right, left, "r_arm"}, {left, right, "l_arm"}}) {
      IParamBlock2* m = AddManager(node, tags);
      m->SetValue(am::kUseMirrorPos, 0, true);
      m->SetValue(am::kUseMirrorRot, 0, true);
      m->SetValue(am::kMirrorPosAxis, 0, 0);
      m->SetValue(am::kMirrorRotAxis, 0, 0);
      m->SetValue(am::kMirrorNode, 0, other);
    }
  }

 private:
  SceneSweeper sweep_;
  std::vector<ClassDesc2*> added_;
  HINSTANCE instance_ = nullptr;
};

TEST_F(RigControlTest, IdentityOffsetEvaluatesAsPlainPRS) {
  const Point3 p(1, 2, 3);
  const Quat q = QFromAngAxis(1.1f, Normalize(Point3(0.3f, -1, 0.5f)));
  const ScaleValue s(Point3(1.2f, 0.8f, 1.5f), QFromAngAxis(0.3f, Point3::ZAxis));
  auto* prs = Keep(new PRSControl);
  SetTracks(prs, p, q, s);
  for (bool independent : {true, false}) {
    RigControl* rc = Keep(NewRig(Matrix3(), independent));
    SetTracks(rc, p, q, s);
    for (const ParentCase& pc : Parents()) {
      SCOPED_TRACE(std::string(pc.name) + (independent ? " independent" : " whole"));
      EXPECT_MATRIX3_NEAR(World(rc, pc.tm), World(prs, pc.tm), kTol);
    }
  }
  RigControl* posed = Keep(NewRig(Offsets()[2], true, true));
  const Matrix3 skewed = Parents()[3].tm;
  World(posed, Matrix3());
  AllocationScope scope;
  World(posed, skewed);
  EXPECT_EQ(scope.Count(), 0u) << "evaluation allocates nothing";
}

TEST_F(RigControlTest, EveryCommandLandsWhereThePacketAsks) {
  const Matrix3 axis =
      MatrixOf(QFromAngAxis(-0.9f, Normalize(Point3(2, 1, -1)))) * TransMatrix(Point3(4, 4, 4));
  const Matrix3 target = ScaleMatrix(Point3(1.5f, 0.8f, 1.2f)) * RotateYMatrix(0.6f) *
                         RotateZMatrix(-1.2f) * TransMatrix(Point3(-3, 1, 7));
  for (const ParentCase& pc : Parents()) {
    for (const Matrix3& offset : Offsets()) {
      for (int mode = 0; mode < 8; ++mode) {
        const bool figure = mode & 1, independent = mode & 2, straight = mode & 4;
        SCOPED_TRACE(std::string(pc.name) + " mode " + std::to_string(mode) + " offset " +
                     Show(offset));
        RigControl* rc = Keep(NewRig(offset, independent, straight));
        rc->ParamBlock()->SetValue(kRigFigureMode, 0, figure);
        SetTracks(rc, Point3(0.5f, -1, 2), QFromAngAxis(0.8f, Point3(1, 0, 1)), ScaleValue());

        Matrix3 before = World(rc, pc.tm);
        SetXFormPacket move(Point3(0.5f, -1, 2), pc.tm, axis);
        rc->SetValue(0, &move);
        before.Translate(VectorTransform(axis, move.p));
        EXPECT_MATRIX3_NEAR(World(rc, pc.tm), before, kTol) << "move";

        if (!figure || pc.orthonormal) {  // a figure turn cannot follow a skewing parent
          before = World(rc, pc.tm);
          SetXFormPacket turn(AngAxis(Point3(0, 1, 1), 0.6f), true, pc.tm, axis);
          rc->SetValue(0, &turn);
          const Matrix3 spin = RotAngleAxisMatrix(VectorTransform(axis, turn.aa.axis), 0.6f);
          EXPECT_MATRIX3_NEAR(Rows(World(rc, pc.tm)), Rows(before) * spin, kTol) << "rotate";
          EXPECT_POINT3_NEAR(World(rc, pc.tm).GetTrans(), before.GetTrans(), kTol);
        }

        // Straight scale never skews: it scales along the node's own axes.
        before = World(rc, pc.tm);
        Matrix3 own = before;
        own.Orthogonalize();
        const Matrix3 scale_axis = straight ? own : axis;
        const Point3 factors(1.5f, 0.5f, 2.0f);
        SetXFormPacket grow = SetXFormPacket::Scale(factors, true, pc.tm, scale_axis);
        rc->SetValue(0, &grow);
        const Matrix3 expect = straight ? ScaleMatrix(factors) * Rows(before)
                                        : Rows(before) * Inverse(Rows(scale_axis)) *
                                              ScaleMatrix(factors) * Rows(scale_axis);
        EXPECT_MATRIX3_NEAR(Rows(World(rc, pc.tm)), expect, kTol) << "scale";

        SetXFormPacket set(target, pc.tm);
        rc->SetValue(0, &set);
        EXPECT_MATRIX3_NEAR(World(rc, pc.tm), target, kTol) << "set";
      }
    }
  }
}

// XFORM_SET reaches any non-degenerate world under any parent and offset; with straight_scale
// any world without skew, when the offset has unit scale.
RC_GTEST_PROP(RigControlLaws, SetReachesTheWorldAsked, ()) {
  const bool straight = *rc::gen::arbitrary<bool>();
  const bool independent = *rc::gen::arbitrary<bool>();
  const Matrix3 parent = *GenAffine();
  const Matrix3 offset =
      straight ? *GenRotationMatrix() * TransMatrix(*GenPoint3(5.0f)) : *GenAffine();
  const Point3 factors(*GenFloat(0.3f, 3.0f), *GenFloat(0.3f, 3.0f), *GenFloat(0.3f, 3.0f));
  const Matrix3 world =
      straight ? ScaleMatrix(factors) * *GenRotationMatrix() * TransMatrix(*GenPoint3(5.0f))
               : *GenAffine();
  RigControl* rc = NewRig(offset, independent, straight);
  SetXFormPacket set(world, parent);
  rc->SetValue(0, &set);
  const Matrix3 got = World(rc, parent);
  rc->DeleteMe();
  RC_ASSERT_MATRIX3_NEAR(got, world, 2e-3f);
}

TEST_F(RigControlTest, StraightScaleGivesChildrenOrthogonalAxesAndTheSameFactors) {
  for (const ParentCase& pc : Parents()) {
    SCOPED_TRACE(pc.name);
    RigControl* rc = Keep(NewRig(Matrix3(), true, true));
    SetTracks(rc, Point3(1, 0, 0), QFromAngAxis(0.5f, Point3::ZAxis), ScaleValue(Point3(2, 1, 3)));
    const Matrix3 w = World(rc, pc.tm);
    const Point3 parent_len = GetScaleLengths(pc.tm);
    EXPECT_POINT3_NEAR(GetScaleLengths(w), parent_len * Point3(2, 1, 3), kTol);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(DotProd(w[i], w[(i + 1) % 3]), 0.0f, kTol) << i;
  }
}

TEST_F(RigControlTest, FigureModeIgnoresTheTracksKeysAcrossTheRig) {
  INode* above = RigNode("above");
  INode* root = RigNode("root", above);
  INode* mid = RigNode("mid", root);
  INode* tip = RigNode("tip", mid);
  AddManager(root, "root")->SetValue(am::kRoot, 0, true);
  const Matrix3 offset = Offsets()[1];
  Rig(tip)->SetOffsetTM(offset);
  AnimateOn();
  SetTracks(Rig(tip), Point3(5, 0, 0), QFromAngAxis(1.0f, Point3::XAxis), ScaleValue(), 4800);
  AnimateOff();

  CallFunction(GetFPInterface(Rig(tip), IRIGCONTROL_ID), "figure_mode", std::vector<FPValue>{true});
  for (INode* n : {root, mid, tip}) EXPECT_TRUE(Rig(n)->GetFigureMode()) << n->GetName();
  EXPECT_FALSE(Rig(above)->GetFigureMode()) << "above the rig's root";
  for (TimeValue t : {0, 2400, 4800}) {
    EXPECT_MATRIX3_NEAR(tip->GetNodeTM(t), offset * mid->GetNodeTM(t), kTol) << t;
  }
  Rig(root)->SetFigureMode(false);
  for (INode* n : {root, mid, tip}) EXPECT_FALSE(Rig(n)->GetFigureMode()) << n->GetName();
  EXPECT_FALSE(tip->GetNodeTM(4800).Equals(offset * mid->GetNodeTM(4800), 1e-3f));
}

TEST_F(RigControlTest, ResetFigureKeepsTheWorldAndZeroesTheTracksUndoably) {
  // Every combination of the offset options, a scale track holding a non-uniform scale (or
  // none at all), and parents with non-uniform scale and mirroring.
  const std::vector<ScaleValue> scales = {ScaleValue(Point3(2, 3, 4)),
                                          ScaleValue(Point3(2, 1, 1), QFromAngAxis(0.4f, Point3::XAxis))};
  for (const ParentCase& pc : Parents()) {
    for (int mode = 0; mode < 12; ++mode) {
      const bool independent = mode & 1, straight = mode & 2;
      const int scale_case = mode >> 2;  // 0, 1: a scale track's value; 2: no scale track
      if (straight && scale_case == 1) continue;  // straight scale never skews: no axis system
      SCOPED_TRACE(std::string(pc.name) + " mode " + std::to_string(mode));
      GetCOREInterface()->Reset();
      INode* parent = GetCOREInterface()->CreateObjectNode(nullptr, "parent");
      parent->SetNodeTM(0, pc.tm);
      INode* node = RigNode("node", parent);
      RigControl* rc = Rig(node);
      rc->ParamBlock()->SetValue(kRigIndependentOffset, 0, independent);
      rc->ParamBlock()->SetValue(kRigStraightScale, 0, straight);
      rc->SetOffsetTM(Offsets()[2]);
      SetTracks(rc, Point3(1, 2, 3), QFromAngAxis(0.7f, Point3(0, 1, 1)),
                scales[scale_case == 2 ? 0 : scale_case]);
      if (scale_case == 2) rc->ReplaceReference(3, nullptr);
      const Matrix3 world = node->GetNodeTM(0);
      const Matrix3 old_offset = rc->GetOffsetTM();

      FPResult r = CallFunction(GetFPInterface(rc, IRIGCONTROL_ID), "ResetFigure", {});
      EXPECT_EQ(r.status, FPS_OK);
      EXPECT_EQ(theHold.UndoName(), "Reset Figure");
      EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), world, kTol);
      EXPECT_MATRIX3_NEAR(World(rc, Matrix3()), rc->GetOffsetTM(), kTol) << "tracks at rest";
      ASSERT_TRUE(theHold.Undo());
      EXPECT_MATRIX3_NEAR(rc->GetOffsetTM(), old_offset, 0);
      EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), world, kTol);
      ASSERT_TRUE(theHold.Redo());
      EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), world, kTol);
    }
  }
}

TEST_F(RigControlTest, OffsetEditsCopyToTheMirrorNodeOnce) {
  const Matrix3 edit = RotateYMatrix(0.3f) * RotateZMatrix(-0.2f) * TransMatrix(Point3(1, 2, 3));
  for (const Matrix3& tail : {Matrix3(), kMirrorX}) {  // a left side of negative determinant
    SCOPED_TRACE(Show(tail));
    GetCOREInterface()->Reset();
    INode* right = RigNode("r");
    INode* left = RigNode("l");
    Pair(right, left);
    RigControl* r = Rig(right);
    RigControl* l = Rig(left);
    const Matrix3 start = Offsets()[1];
    r->SetOffsetTM(start);
    l->ParamBlock()->SetValue(kRigOffsetTM, 0, kMirrorX * start * kMirrorX * tail);
    auto symmetric = [&] { return kMirrorX * r->GetOffsetTM() * kMirrorX * tail; };

    theHold.Begin();
    r->SetOffsetTM(edit);
    theHold.Accept("edit");
    EXPECT_MATRIX3_NEAR(l->GetOffsetTM(), symmetric(), kTol);
    theHold.Undo();
    EXPECT_MATRIX3_NEAR(r->GetOffsetTM(), start, kTol);
    EXPECT_MATRIX3_NEAR(l->GetOffsetTM(), symmetric(), kTol);

    // Moving both sides at once in figure mode: each takes its own move only.
    for (RigControl* rc : {r, l}) rc->ParamBlock()->SetValue(kRigFigureMode, 0, true);
    GetCOREInterface()->SelectNode(right);
    GetCOREInterface()->SelectNode(left, false);
    const Point3 l0 = l->GetOffsetPos(), r0 = r->GetOffsetPos();
    SetXFormPacket move(Point3(0.5f, 0, 1), Matrix3(), Matrix3());
    for (RigControl* rc : {r, l}) rc->SetValue(0, &move);
    EXPECT_POINT3_NEAR(r->GetOffsetPos(), r0 + move.p, kTol);
    EXPECT_POINT3_NEAR(l->GetOffsetPos(), l0 + move.p, kTol);

    // The right side alone: its move reaches the left as a mirror image.
    GetCOREInterface()->SelectNode(right);
    l->ParamBlock()->SetValue(kRigOffsetTM, 0, symmetric());
    r->SetValue(0, &move);
    EXPECT_MATRIX3_NEAR(l->GetOffsetTM(), symmetric(), kTol);

    // Disconnected (both sides switch together), edits stay on their side.
    r->ParamBlock()->SetValue(kRigConnectMirrorOffset, 0, false);
    EXPECT_EQ(l->ParamBlock()->GetInt(kRigConnectMirrorOffset), 0);
    const Matrix3 kept = l->GetOffsetTM();
    r->SetOffsetTM(start);
    EXPECT_MATRIX3_NEAR(l->GetOffsetTM(), kept, 0);
  }
}

TEST_F(RigControlTest, RightSideMovesMirrorInLocalCoordinates) {
  INode* right = RigNode("r");
  INode* left = RigNode("l");
  Pair(right, left);
  GetCOREInterface()->SetRefCoordSys(COORDS_LOCAL);
  GetCOREInterface()->SelectNode(right);
  SetXFormPacket move(Point3(1, 0, 0), Matrix3(), Matrix3());
  Rig(right)->SetValue(0, &move);
  EXPECT_POINT3_NEAR(right->GetNodeTM(0).GetTrans(), Point3(-1, 0, 0), kTol);
  {
    MirrorEditSuspend plain;
    Rig(right)->SetValue(0, &move);
  }
  EXPECT_POINT3_NEAR(right->GetNodeTM(0).GetTrans(), Point3(0, 0, 0), kTol);
  GetCOREInterface()->SelectNode(left);
  Rig(left)->SetValue(0, &move);
  EXPECT_POINT3_NEAR(left->GetNodeTM(0).GetTrans(), Point3(1, 0, 0), kTol) << "left side as is";
}

TEST_F(RigControlTest, GimbalProxyShowsTheEulerAxesAndWritesThroughToTheRealTrack) {
  INode* node = RigNode("node");
  RigControl* rc = Rig(node);
  rc->SetOffsetTM(RotateZMatrix(0.25f));
  Interface* ip = GetCOREInterface();
  ip->SetRefCoordSys(COORDS_GIMBAL);
  Control* real = GetRealRotationController(rc);
  ASSERT_EQ(real->ClassID(), GetRotationXYZDesc()->ClassID());

  Control* proxy = rc->GetRotationController();
  ASSERT_NE(proxy, real);
  auto* list = static_cast<IListControl*>(proxy->GetInterface(LIST_CONTROLLER_INTERFACE));
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->GetListCount(), 2);
  EXPECT_EQ(list->GetName(0), "Parent Rot");
  EXPECT_EQ(list->GetName(1), "Euler Rot");
  EXPECT_EQ(list->GetActive(), 1);
  auto* z = dynamic_cast<DummyFloat*>(list->GetSubCtrl(1)->GetZController());
  ASSERT_NE(z, nullptr);
  EXPECT_EQ(z->GetControl(), real->GetZController());
  EXPECT_NEAR(z->GetOffset(), 0.25f, 1e-6f);
  float v = 1.0f;
  z->SetValue(0, &v);
  Interval iv = FOREVER;
  real->GetZController()->GetValue(0, &v, iv);
  EXPECT_NEAR(v, 0.75f, 1e-6f) << "the gizmo's angle less the offset";

  ip->SetPivotMode(PIV_PIVOT_ONLY);
  EXPECT_EQ(rc->GetRotationController(), real);
  ip->SetPivotMode(PIV_NONE);
  rc->ParamBlock()->SetValue(kRigFigureMode, 0, true);
  EXPECT_EQ(rc->GetRotationController(), real);
}

TEST_F(RigControlTest, PublishedOffsetPartsRebuildTheOffset) {
  RigControl* rc = Keep(new RigControl);
  FPInterface* fpi = GetFPInterface(rc, IRIGCONTROL_ID);
  ASSERT_NE(fpi, nullptr);
  const Quat q = QFromAngAxis(0.5f, Point3::YAxis);
  SetProperty(fpi, "offset_pos", FPValue(Point3(1, 2, 3)));
  SetProperty(fpi, "offset_scale", FPValue(Point3(2, 2, 2)));
  EXPECT_EQ(SetProperty(fpi, "offset_rot", FPValue(q)).status, FPS_OK);
  EXPECT_MATRIX3_NEAR(GetProperty(fpi, "offset_tm").value.AsMatrix3(),
                      ScaleMatrix(Point3(2, 2, 2)) * MatrixOf(q) * TransMatrix(Point3(1, 2, 3)),
                      kTol);

  // A left-side offset: negative z scale, right-handed rotation, and the parts rebuild it.
  const Matrix3 left = kMirrorX * ScaleMatrix(Point3(2, 3, 4)) * RotateZMatrix(0.5f);
  SetProperty(fpi, "offset_tm", FPValue(left));
  const Point3 s = GetProperty(fpi, "offset_scale").value.AsPoint3();
  EXPECT_LT(s.z, 0.0f);
  EXPECT_GT(MatrixOf(rc->GetOffsetRot()).Determinant(), 0.0f);
  SetProperty(fpi, "offset_scale", FPValue(s));
  SetProperty(fpi, "offset_rot", GetProperty(fpi, "offset_rot").value);
  EXPECT_MATRIX3_NEAR(rc->GetOffsetTM(), left, kTol);
  rc->SetOffsetTM(ScaleMatrix(Point3(1, 0, 1)));
  EXPECT_QUAT_NEAR(rc->GetOffsetRot(), Quat(), 0) << "a zero row gives no rotation";
}

TEST_F(RigControlTest, CopyCloneAndReparentKeepThePose) {
  auto* prs = Keep(new PRSControl);
  SetTracks(prs, Point3(1, 2, 3), QFromAngAxis(0.4f, Point3::XAxis), ScaleValue(Point3(1, 2, 1)));
  RigControl* rc = Keep(new RigControl);
  prs->SetLocked(true);
  rc->Copy(prs);
  EXPECT_MATRIX3_NEAR(World(rc, Parents()[2].tm), World(prs, Parents()[2].tm), kTol);
  EXPECT_TRUE(rc->GetLocked());
  SetXFormPacket move(Point3(1, 0, 0), Matrix3(), Matrix3());
  const Matrix3 locked_world = World(rc, Matrix3());
  rc->SetValue(0, &move);
  rc->ResetFigure();
  EXPECT_MATRIX3_NEAR(World(rc, Matrix3()), locked_world, 0) << "locked";

  auto* clone = dynamic_cast<RigControl*>(Keep(CloneRefHierarchy(rc)));
  ASSERT_NE(clone, nullptr);
  EXPECT_TRUE(clone->GetLocked());
  clone->SetOffsetPos(Point3(9, 9, 9));
  EXPECT_MATRIX3_NEAR(World(rc, Matrix3()), locked_world, 0) << "the clone owns its block";

  INode* a = RigNode("a");
  INode* b = RigNode("b");
  a->SetNodeTM(0, Parents()[3].tm);
  Rig(b)->SetOffsetTM(Offsets()[1]);
  const Matrix3 world = b->GetNodeTM(0);
  a->AttachChild(b, 1);
  EXPECT_MATRIX3_NEAR(b->GetNodeTM(0), world, kTol);
}

TEST_F(RigControlTest, ScenesRoundTripByteForByte) {
  INode* root = RigNode("root");
  INode* arm = RigNode("arm", root);
  Pair(arm, root);
  Rig(arm)->SetOffsetTM(Offsets()[2]);
  SetTracks(Rig(arm), Point3(1, 0, 2), QFromAngAxis(0.3f, Point3::ZAxis),
            ScaleValue(Point3(1, 2, 1)));
  Rig(root)->ParamBlock()->SetValue(kRigStraightScale, 0, true);
  Rig(root)->SetLocked(true);
  // Stand-ins on a plain node: its X reads arm's Z angle plus an offset, its rotation is fixed.
  INode* viewer = GetCOREInterface()->CreateObjectNode(nullptr, "viewer");
  auto* dummy = new DummyFloat;
  dummy->Set(GetRealRotationController(Rig(arm))->GetZController(), 0.5f);
  viewer->GetTMController()->GetPositionController()->AssignController(dummy, 0);
  auto* frame = new DummyRotation;
  frame->Set(QFromAngAxis(0.2f, Point3::YAxis), true);
  viewer->GetTMController()->SetRotationController(frame);
  float z = 0.0f;
  Interval iv = FOREVER;
  dummy->GetControl()->GetValue(0, &z, iv);
  EXPECT_NEAR(viewer->GetNodeTM(0).GetTrans().x, z + 0.5f, 1e-5f);
  std::vector<Matrix3> before;
  for (INode* n : {root, arm, viewer}) before.push_back(n->GetNodeTM(0));

  std::vector<std::uint8_t> first, second;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(first, second);
  int i = 0;
  for (const char* name : {"root", "arm", "viewer"}) {
    INode* n = GetCOREInterface()->GetINodeByName(name);
    ASSERT_NE(n, nullptr);
    EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), before[i++], kTol) << name;
  }
  EXPECT_TRUE(Rig(GetCOREInterface()->GetINodeByName("root"))->GetLocked());
}

}  // namespace
}  // namespace marvolith::test
