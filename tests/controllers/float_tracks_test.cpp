// Copyright Marvolith contributors.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "controllers/connection_controls.h"
#include "controllers/float_expose_tm.h"
#include "controllers/float_math.h"
#include "controllers/float_operation.h"
#include "controllers/float_wave.h"
#include "controllers/twist_poses.h"
#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/controllers/controller_classes.h"
#include "host/scene/scene.h"
#include "plugin/strings.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/controller_test_util.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

class FloatTracksTest : public ControllerTest {
 protected:
  void SetUp() override {
    ControllerTest::SetUp();
    RegisterHostClasses();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    for (ClassDesc2* cd : {GetFloatExposeTMDesc(), GetFloatOperationDesc(), GetFloatWaveDesc(),
                           GetTwistPosesFloatDesc(), GetTwistPosesRotationDesc()}) {
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    }
    parent = ip->CreateObjectNode(nullptr, "parent");
    child = ip->CreateObjectNode(nullptr, "child");
    reader = ip->CreateObjectNode(nullptr, "reader");
    parent->AttachChild(child, 0);
    parent->SetNodeTM(0, RotateYMatrix(0.7f) * TransMatrix(Point3(5, -3, 2)));
    local = ScaleMatrix(Point3(1, 2, 3)) * RotateZMatrix(0.6f) * TransMatrix(Point3(3, 4, 0));
    child->SetNodeTM(0, local * parent->GetNodeTM(0));
    theHold.Clear();
  }
  void TearDown() override {
    ControllerTest::TearDown();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    SetModuleInstance(nullptr);
  }
  /// Puts c on the reader node's X position.
  template <typename C>
  C* OnReader(C* c) {
    EXPECT_TRUE(reader->GetTMController()->GetPositionController()->AssignController(c, 0));
    return c;
  }
  float ReaderX(TimeValue t = 0) { return reader->GetNodeTM(t).GetTrans().x; }

  Interface* ip = GetCOREInterface();
  INode* parent = nullptr;
  INode* child = nullptr;
  INode* reader = nullptr;
  Matrix3 local;

 private:
  std::vector<ClassDesc2*> added_;
};

TEST_F(FloatTracksTest, ExposeTMReadsEachPartInItsSpace) {
  auto* e = OnReader(new FloatExposeTM);
  IParamBlock2* pb = e->GetParamBlock(0);
  float kept = 7.5f;
  Interval valid = FOREVER;
  e->GetValue(0, &kept, valid, CTRL_RELATIVE);
  EXPECT_EQ(kept, 7.5f) << "no node: the value stays";
  ASSERT_TRUE(pb->SetValue(kExposeNode, 0, child));
  struct Case {
    const char* name;
    ExposeType type;
    int axis;
    float expected;
  };
  const Case cases[] = {
      {"position", ExposeType::Position, 1, 4.0f},
      {"rotation in radians", ExposeType::Rotation, 2, 0.6f},
      {"scale", ExposeType::Scale, 2, 3.0f},
      {"distance", ExposeType::Distance, 0, 5.0f},
      {"twist", ExposeType::Quaternion, 2, 0.6f},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    pb->SetValue(kExposeType, 0, static_cast<int>(c.type));
    pb->SetValue(kExposeAxis, 0, c.axis);
    EXPECT_NEAR(ReaderX(), c.expected, 1e-4f);
  }
  {
    SCOPED_TRACE("world, and a reference node instead of the parent");
    pb->SetValue(kExposeType, 0, 0);
    pb->SetValue(kExposeAxis, 0, 0);
    pb->SetValue(kExposeLocalWorld, 0, 1);
    EXPECT_NEAR(ReaderX(), child->GetNodeTM(0).GetTrans().x, 1e-4f);
    pb->SetValue(kExposeLocalWorld, 0, 0);
    pb->SetValue(kExposeUseParent, 0, 0);
    EXPECT_NEAR(ReaderX(), child->GetNodeTM(0).GetTrans().x, 1e-4f) << "no reference: world";
    pb->SetValue(kExposeLocalRefNode, 0, parent);
    EXPECT_NEAR(ReaderX(), 3.0f, 1e-4f);
  }
  pb->SetValue(kExposeWeight, 0, -2.0f);
  pb->SetValue(kExposeOffset, 0, 1.0f);
  EXPECT_NEAR(ReaderX(), -5.0f, 1e-4f);
  child->SetNodeTM(0, TransMatrix(Point3(1, 0, 0)) * parent->GetNodeTM(0));
  EXPECT_NEAR(ReaderX(), -1.0f, 1e-4f) << "moving the node reaches the reader";
  EXPECT_FALSE(pb->SetValue(kExposeNode, 0, reader)) << "its own node would be a loop";
  EXPECT_EQ(pb->GetINode(kExposeNode), child);
}

TEST_F(FloatTracksTest, OperationSolvesForAAndUndoes) {
  auto* op = OnReader(new FloatOperation);
  IParamBlock2* pb = op->GetParamBlock(0);
  pb->SetValue(kOperationA, 0, 3.0f);
  pb->SetValue(kOperationB, 0, 4.0f);
  pb->SetValue(kOperationOp, 0, static_cast<int>(FloatOp::Multiply));
  pb->SetValue(kOperationNegative, 0, 1);
  EXPECT_FLOAT_EQ(ReaderX(), -12.0f);
  theHold.Clear();
  theHold.Begin();
  float v = 20.0f;
  op->SetValue(0, &v);
  theHold.Accept("Set");
  EXPECT_FLOAT_EQ(pb->GetFloat(kOperationA), -5.0f);
  EXPECT_FLOAT_EQ(ReaderX(), 20.0f);
  float dv = 4.0f;
  op->SetValue(0, &dv, 1, CTRL_RELATIVE);
  EXPECT_FLOAT_EQ(ReaderX(), 24.0f);
  theHold.Undo();
  EXPECT_FLOAT_EQ(pb->GetFloat(kOperationA), 3.0f);
  op->SetLocked(true);
  op->SetValue(0, &v);
  EXPECT_FLOAT_EQ(pb->GetFloat(kOperationA), 3.0f) << "locked";
}

TEST_F(FloatTracksTest, WaveMovesOnlyWithItsPhase) {
  auto* w = OnReader(new FloatWave);
  IParamBlock2* pb = w->GetParamBlock(0);
  pb->SetValue(kWaveType, 0, static_cast<int>(WaveType::Loop));
  EXPECT_FLOAT_EQ(ReaderX(0), -100.0f);
  EXPECT_FLOAT_EQ(ReaderX(4800), -100.0f) << "time alone does not move it";
  Control* phase = NewDefaultFloatController();
  AnimateOn();
  for (TimeValue t : {0, 4800}) {
    float v = t / 96.0f;  // 0 to 50: half a period
    phase->SetValue(t, &v);
  }
  AnimateOff();
  ASSERT_TRUE(pb->SetController(kWavePhase, 0, phase, false));
  EXPECT_FLOAT_EQ(ReaderX(4800), 0.0f);
  Interval valid = FOREVER;
  ValueAt<float>(w, 2400, &valid);
  EXPECT_EQ(valid, Interval(2400, 2400));
}

TEST_F(FloatTracksTest, EvaluationAllocatesNothing) {
  auto* expose = OnReader(new FloatExposeTM);
  expose->GetParamBlock(0)->SetValue(kExposeNode, 0, child);
  expose->GetParamBlock(0)->SetValue(kExposeType, 0, static_cast<int>(ExposeType::Quaternion));
  auto* twist = Keep(new TwistPosesFloat);
  twist->GetParamBlock(0)->SetValue(kTwistTargetNode, 0, child);
  ASSERT_TRUE(twist->AddPose());
  child->SetNodeTM(0, RotateZMatrix(1.0f) * child->GetNodeTM(0));
  ASSERT_TRUE(twist->AddPose());
  auto* curve = Keep(new FloatConnection);
  ASSERT_EQ(curve->Connect(child->GetTMController()->GetPositionController(), 1),
            ConnectResult::kConnected);
  curve->GetParamBlock(0)->SetValue(kConnTransform, 0,
                                    static_cast<int>(ConnectionTransform::Curve));
  ASSERT_NE(curve->GetCurveControl(true), nullptr);
  Control* const tracks[] = {expose, twist, curve, Keep(new FloatWave), Keep(new FloatOperation)};
  for (TimeValue t : {0, 800}) {
    child->InvalidateTM();
    for (Control* c : tracks) {
      float v = 0.0f;
      Interval valid = FOREVER;
      AllocationScope scope;
      c->GetValue(t, &v, valid, CTRL_ABSOLUTE);
      EXPECT_EQ(scope.Count(), 0u) << c->ClassName() << " at " << t;
    }
  }
}

// ---- Scenes ----

TEST_F(FloatTracksTest, SceneOfEveryClassResavesTheSameBytes) {
  auto* e = OnReader(new FloatExposeTM);
  e->GetParamBlock(0)->SetValue(kExposeNode, 0, child);
  e->GetParamBlock(0)->SetValue(kExposeType, 0, 1);
  Control* pos = reader->GetTMController()->GetPositionController();
  auto* op = new FloatOperation;
  ASSERT_TRUE(pos->AssignController(op, 1));
  op->GetParamBlock(0)->SetValue(kOperationOp, 0, static_cast<int>(FloatOp::Power));
  op->GetParamBlock(0)->SetValue(kOperationA, 0, 2.0f);
  op->GetParamBlock(0)->SetValue(kOperationB, 0, 0.5f);
  auto* w = new FloatWave;
  ASSERT_TRUE(pos->AssignController(w, 2));
  w->GetParamBlock(0)->SetValue(kWavePhase, 0, 30.0f);
  w->SetLocked(true);
  auto* twist = new TwistPosesRotation;
  ASSERT_TRUE(reader->GetTMController()->SetRotationController(twist));
  twist->GetParamBlock(0)->SetValue(kTwistTargetNode, 0, child);
  ASSERT_TRUE(twist->AddPose());
  child->SetNodeTM(0, RotateXMatrix(0.3f) * child->GetNodeTM(0));
  INode* other = ip->CreateObjectNode(nullptr, "other");
  auto* twist_float = new TwistPosesFloat;
  ASSERT_TRUE(other->GetTMController()->GetPositionController()->AssignController(twist_float, 0));
  twist_float->GetParamBlock(0)->SetValue(kTwistTargetNode, 0, child);
  twist_float->GetParamBlock(0)->SetValue(kTwistAxis, 0, 2);
  theHold.Clear();
  const Matrix3 before = reader->GetNodeTM(0);
  const Matrix3 other_before = other->GetNodeTM(0);
  std::string error;
  Bytes first;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ip->Reset();
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
  INode* loaded = ip->GetINodeByName("reader");
  ASSERT_NE(loaded, nullptr);
  EXPECT_MATRIX3_NEAR(loaded->GetNodeTM(0), before, 1e-5f);
  EXPECT_MATRIX3_NEAR(ip->GetINodeByName("other")->GetNodeTM(0), other_before, 1e-5f);
  auto* loaded_twist =
      dynamic_cast<TwistPosesRotation*>(loaded->GetTMController()->GetRotationController());
  ASSERT_NE(loaded_twist, nullptr);
  EXPECT_EQ(loaded_twist->PoseCount(), 1);
  Bytes second;
  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(first, second);
}

}  // namespace
}  // namespace marvolith::test
