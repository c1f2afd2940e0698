// Copyright Marvolith contributors.
// Euler XYZ, position and scale XYZ, PRS and the list controllers.
#include <gtest/gtest.h>

#include "host/controllers/controller_classes.h"
#include "host/controllers/list_control.h"
#include "host/controllers/prs_control.h"
#include "host/controllers/xyz_control.h"
#include "host/math/euler.h"
#include "tests/support/controller_test_util.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

using CompoundTest = ControllerTest;

void SetFloat(Control* c, TimeValue t, float v) { c->SetValue(t, &v); }

TEST_F(CompoundTest, EulerOrderChangeKeepsTheChannels) {
  auto* e = Keep(new EulerXYZControl());
  auto* euler = static_cast<IEulerControl*>(e->GetInterface(I_EULERCTRL));
  ASSERT_NE(euler, nullptr);
  SetFloat(e->GetXController(), 0, 0.3f);
  SetFloat(e->GetYController(), 0, -0.4f);
  SetFloat(e->GetZController(), 0, 1.1f);
  const Quat xyz(RotateXMatrix(0.3f) * RotateYMatrix(-0.4f) * RotateZMatrix(1.1f));
  EXPECT_QUAT_NEAR(ValueAt<Quat>(e, 0), xyz, 1e-6f);

  theHold.Begin();
  euler->SetOrder(EULERTYPE_ZYX);
  theHold.Accept("Change Euler Order");
  EXPECT_FLOAT_EQ(ValueAt<float>(e->GetXController(), 0), 0.3f);
  EXPECT_FLOAT_EQ(ValueAt<float>(e->GetZController(), 0), 1.1f);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(e, 0),
                   Quat(RotateZMatrix(1.1f) * RotateYMatrix(-0.4f) * RotateXMatrix(0.3f)), 1e-6f);
  euler->SetOrder(9);
  EXPECT_EQ(euler->GetOrder(), EULERTYPE_ZYX);
  euler->SetOrder(EULERTYPE_XYX);  // the third step uses the channel left over: Z
  EXPECT_QUAT_NEAR(ValueAt<Quat>(e, 0),
                   Quat(RotateXMatrix(0.3f) * RotateYMatrix(-0.4f) * RotateXMatrix(1.1f)), 1e-6f);
  theHold.Clear();
  theHold.Begin();
  euler->SetOrder(EULERTYPE_YZX);
  theHold.Accept("Change Euler Order");
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(euler->GetOrder(), EULERTYPE_XYX);
}

TEST_F(CompoundTest, EulerSetValueKeepsAnglesContinuous) {
  auto* e = Keep(new EulerXYZControl());
  SetFloat(e->GetXController(), 0, 3.0f);
  Quat beyond_half_turn(RotateXMatrix(3.2f));
  e->SetValue(0, &beyond_half_turn);
  EXPECT_NEAR(ValueAt<float>(e->GetXController(), 0), 3.2f, 1e-4f);
  // Five radians about X in the quaternion's sense turn the X angle back by five, in steps.
  AngAxis turn(Point3::XAxis, 5.0f);
  e->SetValue(0, &turn, 1, CTRL_RELATIVE);
  EXPECT_NEAR(ValueAt<float>(e->GetXController(), 0), -1.8f, 1e-4f);
  EXPECT_NEAR(ValueAt<float>(e->GetYController(), 0), 0.0f, 1e-4f);
  // Key operations reach the channels.
  e->AddNewKey(50, 0);
  EXPECT_EQ(e->NumKeys(), 1);
  EXPECT_EQ(e->GetXController()->NumKeys(), 1);
  EXPECT_TRUE(e->IsKeyAtTime(50, 0));
  e->DeleteKeyByIndex(0);
  EXPECT_FALSE(e->IsAnimated());
}

TEST_F(CompoundTest, PositionAndScaleXYZ) {
  auto* p = Keep(new PositionXYZControl());
  Point3 v(1, 2, 3);
  p->SetValue(0, &v);
  p->SetValue(0, &v, 1, CTRL_RELATIVE);
  EXPECT_POINT3_NEAR(ValueAt<Point3>(p, 0), Point3(2, 4, 6), 0.0f);
  EXPECT_EQ(p->SubAnimName(1), "Y Position");
  auto* s = Keep(new ScaleXYZControl());
  EXPECT_POINT3_NEAR(ValueAt<ScaleValue>(s, 0).s, Point3(1, 1, 1), 0.0f);
  EXPECT_FALSE(p->AssignController(NewDefaultPoint3Controller(), 0)) << "channels are floats";
}

// The PRS reaches or moves the world matrix as each packet asks, under every kind of parent.
TEST_F(CompoundTest, PRSHandlesEverySetXFormCommandUnderEachParent) {
  const struct {
    const char* name;
    Matrix3 parent;
  } parents[] = {
      {"identity", Matrix3()},
      {"moved", TransMatrix(Point3(5, -3, 2))},
      {"rotated", RotateXMatrix(0.7f) * RotateZMatrix(-1.2f) * TransMatrix(Point3(1, 2, 3))},
      {"non-uniform scale",
       ScaleMatrix(Point3(2, 0.5f, 1.5f)) * RotateYMatrix(0.4f) * TransMatrix(Point3(-2, 0, 4))},
      {"mirrored -1 X",
       ScaleMatrix(Point3(-1, 1, 1)) * RotateZMatrix(0.3f) * TransMatrix(Point3(0, 1, 0))},
  };
  const Matrix3 target = ScaleMatrix(Point3(1.2f, 0.8f, 1.1f)) * RotateXMatrix(0.4f) *
                         RotateYMatrix(-0.9f) * TransMatrix(Point3(3, 1, -2));
  for (const auto& [name, parent] : parents) {
    SCOPED_TRACE(name);
    auto* prs = Keep(static_cast<PRSControl*>(NewDefaultMatrix3Controller()));
    SetXFormPacket set(target, parent);
    prs->SetValue(0, &set);
    ASSERT_MATRIX3_NEAR(WorldAt(prs, 0, parent), target, 1e-4f);

    Matrix3 w = WorldAt(prs, 0, parent);
    SetXFormPacket move(Point3(1, 2, 3), parent, w);
    prs->SetValue(0, &move);
    Matrix3 expected = w;
    expected.SetTrans(w.GetTrans() + VectorTransform(w, Point3(1, 2, 3)));
    EXPECT_MATRIX3_NEAR(WorldAt(prs, 0, parent), expected, 1e-4f) << "move in the node's axes";

    w = WorldAt(prs, 0, parent);
    const Matrix3 turn = RotAngleAxisMatrix(Point3::ZAxis, 0.5f);
    SetXFormPacket spin(AngAxis(Point3::ZAxis, 0.5f), true, parent, Matrix3());
    prs->SetValue(0, &spin);
    expected = w;
    expected.NoTrans();
    expected = expected * turn;
    expected.SetTrans(w.GetTrans());
    EXPECT_MATRIX3_NEAR(WorldAt(prs, 0, parent), expected, 1e-4f) << "turn about its own origin";

    w = WorldAt(prs, 0, parent);
    const Point3 center(1, -1, 2);
    SetXFormPacket orbit(AngAxis(Point3::YAxis, -0.8f), false, parent, TransMatrix(center));
    prs->SetValue(0, &orbit);
    expected =
        w * TransMatrix(-center) * RotAngleAxisMatrix(Point3::YAxis, -0.8f) * TransMatrix(center);
    EXPECT_MATRIX3_NEAR(WorldAt(prs, 0, parent), expected, 1e-4f) << "turn about the axis origin";

    w = WorldAt(prs, 0, parent);
    SetXFormPacket grow = SetXFormPacket::Scale(Point3(2, 1, 0.5f), true, parent, w);
    prs->SetValue(0, &grow);
    EXPECT_MATRIX3_NEAR(WorldAt(prs, 0, parent), ScaleMatrix(Point3(2, 1, 0.5f)) * w, 1e-4f)
        << "scale along the node's own axes";

    const Matrix3 other_parent = RotateYMatrix(1.0f) * TransMatrix(Point3(0, 0, 9));
    w = WorldAt(prs, 0, parent);
    EXPECT_TRUE(prs->ChangeParents(0, parent, other_parent, w));
    EXPECT_MATRIX3_NEAR(WorldAt(prs, 0, other_parent), w, 1e-4f) << "the world stays put";
  }
}

TEST_F(CompoundTest, PRSKeysWithAnimateAndIgnoresWritesWhenLocked) {
  auto* prs = Keep(static_cast<PRSControl*>(NewDefaultMatrix3Controller()));
  const Matrix3 w = RotateZMatrix(0.5f) * TransMatrix(Point3(1, 2, 3));
  AnimateOn();
  SetXFormPacket set(w, Matrix3());
  prs->SetValue(100, &set);
  EXPECT_TRUE(prs->IsKeyAtTime(100, KEYAT_POSITION));
  EXPECT_TRUE(prs->IsKeyAtTime(100, KEYAT_ROTATION));
  EXPECT_MATRIX3_NEAR(WorldAt(prs, 100, Matrix3()), w, 1e-5f);
  prs->SetLocked(true);
  SetXFormPacket back{Matrix3(), Matrix3()};
  prs->SetValue(100, &back);
  EXPECT_MATRIX3_NEAR(WorldAt(prs, 100, Matrix3()), w, 1e-5f);
}

TEST_F(CompoundTest, FloatAndPositionListsSumWeightedItemsAndWriteTheActiveOne) {
  auto* list = Keep(new ListControl(CTRL_FLOAT_CLASS_ID));
  auto* il = static_cast<IListControl*>(list->GetInterface(LIST_CONTROLLER_INTERFACE));
  ASSERT_EQ(il, static_cast<IListControl*>(list));
  Control* a = NewDefaultFloatController();
  Control* b = NewDefaultFloatController();
  SetFloat(a, 0, 2.0f);
  SetFloat(b, 0, 3.0f);
  EXPECT_EQ(il->Append(a, "A"), 0);
  EXPECT_EQ(il->Append(b), 1);
  EXPECT_EQ(il->Append(NewDefaultPositionController()), -1) << "wrong super class";
  il->SetSubCtrlWeight(1, 0.5f);
  EXPECT_FLOAT_EQ(ValueAt<float>(list, 0), 3.5f);
  EXPECT_EQ(il->GetName(0), "A");
  EXPECT_EQ(il->GetName(1), "Bezier Float");
  il->SetActive(1);
  SetFloat(list, 0, 10.0f);
  EXPECT_FLOAT_EQ(ValueAt<float>(list, 0), 10.0f);
  EXPECT_FLOAT_EQ(ValueAt<float>(b, 0), 16.0f) << "(10 - 2) / 0.5";

  auto* positions = Keep(new ListControl(CTRL_POSITION_CLASS_ID));
  Control* p0 = NewDefaultPositionController();
  Point3 v(1, 2, 3);
  p0->SetValue(0, &v);
  positions->Append(p0);
  positions->Append(NewDefaultPositionController());
  positions->SetSubCtrlWeight(0, 2.0f);
  EXPECT_POINT3_NEAR(ValueAt<Point3>(positions, 0), Point3(2, 4, 6), 0.0f);
  EXPECT_POINT3_NEAR(WorldAt(positions, 0, Matrix3()).GetTrans(), Point3(2, 4, 6), 0.0f);
}

TEST_F(CompoundTest, RotationListComposesWeightedItemsInOrder) {
  auto* list = Keep(new ListControl(CTRL_ROTATION_CLASS_ID));
  Control* parent_rot = CreateInterpRotation();
  Control* euler = NewDefaultRotationController();
  Quat q0(AngAxis(Point3::ZAxis, 1.0f));
  Quat q1(AngAxis(Point3::XAxis, 0.6f));
  parent_rot->SetValue(0, &q0);
  euler->SetValue(0, &q1);
  list->Append(parent_rot, "Parent Rot");
  list->Append(euler, "Euler Rot");
  list->SetActive(1);
  const Quat total = ValueAt<Quat>(list, 0);
  EXPECT_QUAT_NEAR(total, q1 * q0, 1e-6f);
  // The absolute value and the relative chain of the items agree.
  EXPECT_MATRIX3_NEAR(WorldAt(list, 0, Matrix3()), MatrixOf(total), 1e-6f);
  Matrix3 chained;
  Interval iv = FOREVER;
  parent_rot->GetValue(0, &chained, iv, CTRL_RELATIVE);
  euler->GetValue(0, &chained, iv, CTRL_RELATIVE);
  EXPECT_MATRIX3_NEAR(chained, MatrixOf(total), 1e-6f);

  list->SetSubCtrlWeight(0, 0.5f);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(list, 0), q1 * Quat(AngAxis(Point3::ZAxis, 0.5f)), 1e-6f);
  const Quat target(AngAxis(Normalize(Point3(1, 1, 0)), 2.0f));
  Quat write = target;
  list->SetValue(0, &write);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(list, 0), target, 1e-5f) << "written through the active item";
  EXPECT_QUAT_NEAR(ValueAt<Quat>(parent_rot, 0), q0, 0.0f);
}

TEST_F(CompoundTest, ScaleListComposesFactors) {
  auto* list = Keep(new ListControl(CTRL_SCALE_CLASS_ID));
  Control* a = NewDefaultScaleController();
  Control* b = NewDefaultScaleController();
  ScaleValue sa(Point3(2, 2, 2)), sb(Point3(1, 3, 1));
  a->SetValue(0, &sa);
  b->SetValue(0, &sb);
  list->Append(a);
  list->Append(b);
  EXPECT_POINT3_NEAR(ValueAt<ScaleValue>(list, 0).s, Point3(2, 6, 2), 1e-6f);
  ScaleValue want(Point3(4, 4, 4));
  list->SetValue(0, &want);  // active item 0
  EXPECT_POINT3_NEAR(ValueAt<ScaleValue>(list, 0).s, Point3(4, 4, 4), 1e-5f);
}

TEST_F(CompoundTest, ListStructureUndoesAndRedoes) {
  auto* list = Keep(new ListControl(CTRL_FLOAT_CLASS_ID));
  Control* a = NewDefaultFloatController();
  Control* b = NewDefaultFloatController();
  SetFloat(a, 0, 1.0f);
  SetFloat(b, 0, 10.0f);
  list->Append(a, "A");
  list->Append(b, "B");
  theHold.Begin();
  Control* c = NewDefaultFloatController();
  SetFloat(c, 0, 100.0f);
  list->Append(c, "C");
  list->DeleteItem(0);
  list->SetName(0, "First");
  list->SetActive(1);
  theHold.Accept("List Change");
  EXPECT_EQ(list->GetListCount(), 2);
  EXPECT_FLOAT_EQ(ValueAt<float>(list, 0), 110.0f);
  ASSERT_TRUE(theHold.Undo());
  ASSERT_EQ(list->GetListCount(), 2);
  EXPECT_EQ(list->GetSubCtrl(0), a);
  EXPECT_EQ(list->GetName(1), "B");
  EXPECT_EQ(list->GetActive(), 0);
  EXPECT_FLOAT_EQ(ValueAt<float>(list, 0), 11.0f);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(list->GetSubCtrl(1), c);
  EXPECT_EQ(list->GetName(0), "First");
  EXPECT_EQ(list->GetActive(), 1);
  EXPECT_FLOAT_EQ(ValueAt<float>(list, 0), 110.0f);
}

}  // namespace
}  // namespace marvolith::test
