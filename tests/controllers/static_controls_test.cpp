// Copyright Marvolith contributors.
#include "controllers/static_controls.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "controllers/rotation_xyz.h"
#include "host/app/scene_file.h"
#include "host/controllers/controller_classes.h"
#include "host/math/affine.h"
#include "host/math/euler.h"
#include "host/scene/inode.h"
#include "plugin/strings.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/controller_test_util.h"
#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

class StaticControlsTest : public ControllerTest {
 protected:
  template <typename C>
  C* Make(const typename C::ValueType& v) {
    auto* c = Keep(new C);
    c->SetStaticValue(v);
    return c;
  }
  Interface* ip = GetCOREInterface();
};

// Each command through a node under a parent of each kind, checked against what the command
// means in world space: points of the node move, turn or stretch about the command's center.
TEST_F(StaticControlsTest, TransformCommandsUnderEveryParent) {
  const struct {
    const char* name;
    Matrix3 tm;
  } parents[] = {
      {"identity", Matrix3()},
      {"moved", TransMatrix(Point3(10, -5, 3))},
      {"rotated", RotateYMatrix(0.8f) * RotateZMatrix(-0.4f) * TransMatrix(Point3(1, 2, 3))},
      {"non-uniform scale", ScaleMatrix(Point3(2, 0.5f, 3)) * RotateXMatrix(0.3f)},
      {"mirrored -1 X",
       ScaleMatrix(Point3(-1, 1, 1)) * RotateZMatrix(0.5f) * TransMatrix(Point3(0, 3, 0))},
  };
  const Matrix3 axis_rot = RotateXMatrix(0.6f) * RotateZMatrix(1.1f);
  const Matrix3 axis = axis_rot * TransMatrix(Point3(3, -2, 5));
  const AngAxis turn(Normalize(Point3(1, 2, -1)), 0.9f);
  const Matrix3 turn_ws = RotAngleAxisMatrix(axis_rot.VectorTransform(turn.axis), turn.angle);
  const Point3 factors(1.5f, 0.5f, 2.0f);
  const Point3 samples[4] = {Point3(), Point3::XAxis, Point3::YAxis, Point3::ZAxis};
  for (const auto& pc : parents) {
    SCOPED_TRACE(pc.name);
    ip->Reset();
    INode* parent = ip->CreateObjectNode(nullptr, "parent");
    parent->SetTMController(new StaticTransform);
    static_cast<StaticTransform*>(parent->GetTMController())->SetStaticValue(pc.tm);
    INode* node = ip->CreateObjectNode(nullptr, "node");
    node->SetTMController(new StaticTransform);
    parent->AttachChild(node, 0);
    const Matrix3 target = RotateYMatrix(-0.7f) * TransMatrix(Point3(7, 8, 9));
    node->SetNodeTM(0, target);
    EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), target, 1e-4f);
    for (int command : {XFORM_ROTATE, XFORM_SCALE})
      for (bool local_origin : {true, false}) {
        SCOPED_TRACE(testing::Message() << "command " << command << " local " << local_origin);
        const Matrix3 before = node->GetNodeTM(0);
        const Point3 center = local_origin ? before.GetTrans() : axis.GetTrans();
        command == XFORM_ROTATE ? node->Rotate(0, axis, turn, local_origin)
                                : node->Scale(0, axis, factors, local_origin);
        for (const Point3& x : samples) {
          const Point3 d = before.PointTransform(x) - center;
          const Point3 moved =
              command == XFORM_ROTATE
                  ? turn_ws.VectorTransform(d)
                  : axis_rot.VectorTransform(Inverse(axis_rot).VectorTransform(d) * factors);
          EXPECT_POINT3_NEAR(node->GetNodeTM(0).PointTransform(x), center + moved, 1e-3f);
        }
      }
    const Matrix3 before = node->GetNodeTM(0);
    node->Move(0, axis, Point3(1, -2, 0.5f));
    Matrix3 expected = before;
    expected.Translate(axis.VectorTransform(Point3(1, -2, 0.5f)));
    EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), expected, 1e-4f) << "moves along tmAxis";
  }
}

TEST_F(StaticControlsTest, TransformLockAnimateAndUndo) {
  const Matrix3 local = RotateZMatrix(0.3f) * TransMatrix(Point3(1, 2, 3));
  const Matrix3 parent = RotateXMatrix(0.4f);
  SetXFormPacket packets[4] = {
      SetXFormPacket(Point3(1, 0, 0), parent, Matrix3()),
      SetXFormPacket(AngAxis(Point3::ZAxis, 0.5f), true, parent, Matrix3()),
      SetXFormPacket::Scale(Point3(2, 2, 2), false, parent, Matrix3()),
      SetXFormPacket(TransMatrix(Point3(5, 5, 5)), parent)};
  auto* locked = Make<StaticTransform>(local);
  locked->SetLocked(true);
  auto* off = Make<StaticTransform>(local);
  auto* on = Make<StaticTransform>(local);
  TestTarget* heard = Listen(off);
  theHold.Begin();
  for (SetXFormPacket& pk : packets) {
    locked->SetValue(0, &pk);
    off->SetValue(0, &pk);
    AnimateOn();
    on->SetValue(4800, &pk, 0);
    AnimateOff();
  }
  theHold.Accept("Move");
  EXPECT_EQ(locked->GetStaticValue(), local) << "locked: all four commands do nothing";
  EXPECT_EQ(on->GetStaticValue(), off->GetStaticValue()) << "animate, time and commit don't count";
  EXPECT_EQ(heard->Count(REFMSG_CHANGE), 4);
  const Matrix3 after = off->GetStaticValue();
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(off->GetStaticValue(), local);
  EXPECT_EQ(heard->Count(REFMSG_CHANGE), 5);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(off->GetStaticValue(), after);
  // Absolute evaluation is the local transform, relative the world; valid for all time.
  Interval iv = FOREVER;
  Matrix3 m = parent;
  AllocationScope evaluation;
  off->GetValue(123, &m, iv, CTRL_RELATIVE);
  EXPECT_EQ(evaluation.Count(), 0u);
  EXPECT_MATRIX3_NEAR(m, after * parent, 1e-6f);
  off->GetValue(123, &m, iv, CTRL_ABSOLUTE);
  EXPECT_EQ(m, after);
  EXPECT_TRUE(iv.IsInfinite());
}

TEST_F(StaticControlsTest, ValueKindsSetAndApplyByTheirRules) {
  Interval iv = FOREVER;
  auto* f = Make<StaticFloat>(2.5f);
  float one = 1.0f, sum = 1.0f;
  f->SetValue(0, &one, 1, CTRL_RELATIVE);
  f->GetValue(99, &sum, iv, CTRL_RELATIVE);
  EXPECT_EQ(sum, 4.5f);

  auto* p = Make<StaticPosition>(Point3(1, 2, 3));
  Point3 d(1, 1, 1);
  p->SetValue(0, &d, 1, CTRL_RELATIVE);
  Matrix3 m = RotateZMatrix(1.0f);
  p->GetValue(0, &m, iv, CTRL_RELATIVE);
  EXPECT_MATRIX3_NEAR(m, TransMatrix(Point3(2, 3, 4)) * RotateZMatrix(1.0f), 1e-6f);

  const Quat q0(AngAxis(Point3::XAxis, 0.4f));
  auto* r = Make<StaticRotation>(q0);
  AngAxis turn(Point3::ZAxis, 0.7f);
  r->SetValue(0, &turn, 1, CTRL_RELATIVE);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(r, 0), q0 * Quat(turn), 1e-6f) << "turns after the present one";

  const Quat axis(AngAxis(Normalize(Point3(1, 1, 0)), 0.5f));
  auto* s = Make<StaticScale>(ScaleValue(Point3(2, 3, 4), axis));
  ScaleValue half(Point3(0.5f, 2, 1), axis);
  s->SetValue(0, &half, 1, CTRL_RELATIVE);
  EXPECT_POINT3_NEAR(ValueAt<ScaleValue>(s, 0).s, Point3(1, 6, 4), 1e-6f);
  EXPECT_QUAT_NEAR(ValueAt<ScaleValue>(s, 0).q, axis, 1e-7f);
  m = TransMatrix(Point3(1, 0, 0));
  s->GetValue(0, &m, iv, CTRL_RELATIVE);
  EXPECT_MATRIX3_NEAR(m, MatrixFromScaleValue(s->GetStaticValue()) * TransMatrix(Point3(1, 0, 0)),
                      1e-5f);
  EXPECT_TRUE(iv.IsInfinite());

  static_cast<ILockedTrack*>(p->GetInterface(I_LOCKED))->SetLocked(true);
  p->SetValue(0, &d);
  EXPECT_EQ(p->GetStaticValue(), Point3(2, 3, 4)) << "locked";

  // Copy takes the value at time 0 and the lock, from the same kind of value only.
  ip->SetTime(4800);
  auto* bezier = Keep(NewDefaultPositionController());
  AnimateOn();
  Point3 a(1, 2, 3), b(4, 5, 6);
  bezier->SetValue(0, &a);
  bezier->SetValue(4800, &b);
  auto* copy = Make<StaticPosition>(Point3());
  copy->Copy(bezier);
  EXPECT_EQ(copy->GetStaticValue(), a);
  f->Copy(p);
  EXPECT_EQ(f->GetStaticValue(), 3.5f);
  EXPECT_TRUE(f->GetLocked());
}

TEST_F(StaticControlsTest, ChunkLayoutsAreByteExact) {
  const ScaleValue sv(Point3(2, -3, 4), Quat(AngAxis(Normalize(Point3(1, 2, 3)), 0.6f)));
  const Bytes scale_bytes = ContainerChunk(1, {DataChunk(0, RawBytes(sv)), DataChunk(1, {1})});
  auto* s = Make<StaticScale>(sv);
  s->SetLocked(true);
  EXPECT_EQ(SaveBytes(s), scale_bytes);
  auto* loaded = Keep(new StaticScale);
  ASSERT_EQ(LoadBytes(loaded, scale_bytes), IO_OK);
  EXPECT_EQ(loaded->GetStaticValue(), sv) << "the axis system survives";
  EXPECT_TRUE(loaded->GetLocked());
  EXPECT_EQ(SaveBytes(Make<StaticFloat>(1.5f)),
            ContainerChunk(1, {DataChunk(0, RawBytes(1.5f)), DataChunk(1, {0})}));
  EXPECT_EQ(SaveBytes(Make<StaticRotation>(Quat())).size(), 6u + 6 + 16 + 6 + 1);
  EXPECT_EQ(SaveBytes(Make<StaticTransform>(Matrix3())).size(), 6u + 6 + 52 + 6 + 1);

  // A matrix's stored flags are checked against its values; a wrong size fails, changing nothing.
  Bytes m = RawBytes(TransMatrix(Point3(1, 0, 0)));
  m[48] = static_cast<std::uint8_t>(MAT_IDENT);
  auto* t = Make<StaticTransform>(Matrix3());
  ASSERT_EQ(LoadBytes(t, ContainerChunk(1, {DataChunk(9, {1, 2}), DataChunk(0, m)})), IO_OK);
  EXPECT_EQ(t->GetStaticValue(), TransMatrix(Point3(1, 0, 0)));
  EXPECT_FALSE(t->GetStaticValue().IsIdentity());
  auto* f = Make<StaticFloat>(3.0f);
  EXPECT_EQ(LoadBytes(f, ContainerChunk(1, {DataChunk(0, RawBytes(2.0))})), IO_ERROR);
  EXPECT_EQ(f->GetStaticValue(), 3.0f);
}

template <typename C>
void CheckResave(const typename C::ValueType& v, bool locked) {
  SceneSweeper sweep;
  auto* c = sweep.Keep(new C);
  c->SetStaticValue(v);
  c->SetLocked(locked);
  const Bytes first = SaveBytes(c);
  auto* loaded = sweep.Keep(new C);
  RC_ASSERT(LoadBytes(loaded, first) == IO_OK);
  RC_ASSERT(SaveBytes(loaded) == first);
}

RC_GTEST_PROP(StaticControlsChunks, SaveLoadSaveGivesTheSameBytes, ()) {
  const bool locked = *rc::gen::arbitrary<bool>();
  CheckResave<StaticFloat>(*GenFloat(-1e6f, 1e6f), locked);
  CheckResave<StaticPosition>(*GenPoint3(1e4f), locked);
  CheckResave<StaticRotation>(*GenRotation(), locked);
  CheckResave<StaticScale>(ScaleValue(*GenPoint3(10.0f), *GenRotation()), locked);
  CheckResave<StaticTransform>(*GenAffine(), locked);
}

// The module's descriptors in the class directory for the test, so the scene file can make them.
class StaticScenesTest : public StaticControlsTest {
 protected:
  void SetUp() override {
    StaticControlsTest::SetUp();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    for (ClassDesc2* d : descs_) ClassDirectory::Get().AddClass(d);
  }
  void TearDown() override {
    StaticControlsTest::TearDown();
    for (ClassDesc2* d : descs_) ClassDirectory::Get().RemoveClass(d);
    SetModuleInstance(nullptr);
  }
  static Bytes Save() {
    Bytes bytes;
    std::string error;
    EXPECT_TRUE(SaveSceneToBytes(bytes, &error)) << error;
    return bytes;
  }
  ClassDesc2* descs_[7] = {GetStaticFloatDesc(), GetStaticPositionDesc(),  GetStaticRotationDesc(),
                           GetStaticScaleDesc(), GetStaticTransformDesc(), GetRotationXYZDesc(),
                           GetStepFloatDesc()};
};

TEST_F(StaticScenesTest, SceneHoldingEveryClassRoundTripsByteForByte) {
  INode* root = ip->CreateObjectNode(nullptr, "statics");
  auto* tm = new StaticTransform;
  root->SetTMController(tm);
  tm->SetStaticValue(ScaleMatrix(Point3(-1, 1, 1)) * RotateZMatrix(0.4f) *
                     TransMatrix(Point3(1, 2, 3)));
  INode* child = ip->CreateObjectNode(nullptr, "child");
  root->AttachChild(child, 0);
  Control* prs = child->GetTMController();
  auto* pos = new StaticPosition;
  pos->SetStaticValue(Point3(4, 5, 6));
  auto* rot = new RotationXYZ;
  auto* y = new StaticFloat;
  y->SetStaticValue(0.4f);
  auto* scale = new StaticScale;
  scale->SetStaticValue(ScaleValue(Point3(1, 2, 3), Quat(AngAxis(Point3::ZAxis, 0.3f))));
  ASSERT_TRUE(prs->SetPositionController(pos) && prs->SetRotationController(rot) &&
              prs->SetScaleController(scale) && rot->AssignController(y, 1));
  rot->SetOrder(EULERTYPE_ZXY);
  AnimateOn();
  Quat q(AngAxis(Point3::XAxis, 0.8f));
  rot->SetValue(3200, &q);
  AnimateOff();
  rot->SetLocked(true);
  INode* other = ip->CreateObjectNode(nullptr, "other");
  auto* srot = new StaticRotation;
  srot->SetStaticValue(Quat(AngAxis(Point3::YAxis, 1.0f)));
  ASSERT_TRUE(other->GetTMController()->SetRotationController(srot));

  const char* names[3] = {"statics", "child", "other"};
  std::vector<Matrix3> before;
  for (const char* n : names)
    for (TimeValue t : {0, 1600, 3200}) before.push_back(ip->GetINodeByName(n)->GetNodeTM(t));
  const Bytes first = Save();
  ip->Reset();
  std::string error;
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
  size_t k = 0;
  for (const char* n : names)
    for (TimeValue t : {0, 1600, 3200})
      EXPECT_MATRIX3_NEAR(ip->GetINodeByName(n)->GetNodeTM(t), before[k++], 1e-6f);
  auto* loaded = dynamic_cast<RotationXYZ*>(
      ip->GetINodeByName("child")->GetTMController()->GetRotationController());
  ASSERT_NE(loaded, nullptr);
  EXPECT_TRUE(loaded->GetLocked());
  EXPECT_EQ(Save(), first);
}

TEST_F(StaticScenesTest, StepFloatIsRegisteredButNotBuilt) {
  EXPECT_STREQ(GetStepFloatDesc()->ClassName(), "Step Float");
  EXPECT_EQ(CreateInstance(CTRL_FLOAT_CLASS_ID, GetStepFloatDesc()->ClassID()), nullptr);
}

}  // namespace
}  // namespace marvolith::test
