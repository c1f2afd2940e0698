// Copyright Marvolith contributors.
#include "controllers/twist_poses.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "host/app/host_classes.h"
#include "host/scene/scene.h"
#include "host/script/fp_dispatch.h"
#include "plugin/strings.h"
#include "tests/support/controller_test_util.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

class TwistPosesTest : public ControllerTest {
 protected:
  void SetUp() override {
    ControllerTest::SetUp();
    RegisterHostClasses();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    upper = ip->CreateObjectNode(nullptr, "upper");
    forearm = ip->CreateObjectNode(nullptr, "forearm");
    bone = ip->CreateObjectNode(nullptr, "twist");
    upper->AttachChild(forearm, 0);
    upper->SetNodeTM(0, RotateYMatrix(-0.4f) * TransMatrix(Point3(0, 0, 20)));
    SetForearm(Matrix3());
    reading = new TwistPosesFloat;
    EXPECT_TRUE(bone->GetTMController()->GetPositionController()->AssignController(reading, 0));
    reading->GetParamBlock(0)->SetValue(kTwistTargetNode, 0, forearm);
    turning = new TwistPosesRotation;
    EXPECT_TRUE(bone->GetTMController()->SetRotationController(turning));
    turning->GetParamBlock(0)->SetValue(kTwistTargetNode, 0, forearm);
    theHold.Clear();
  }
  void TearDown() override {
    ControllerTest::TearDown();
    SetModuleInstance(nullptr);
  }
  /// Places the forearm at rot_ls in its parent's space, 10 units out along the parent's X.
  void SetForearm(const Matrix3& rot_ls) {
    forearm->SetNodeTM(0, rot_ls * TransMatrix(Point3(10, 0, 0)) * upper->GetNodeTM(0));
  }
  float Twist() { return ValueAt<float>(reading, 0); }
  /// The bone's rotation: the twist as a turn about X.
  Matrix3 BoneRotation() {
    Matrix3 m = bone->GetNodeTM(0);
    m.NoTrans();
    return m;
  }

  Interface* ip = GetCOREInterface();
  INode* upper = nullptr;
  INode* forearm = nullptr;
  INode* bone = nullptr;
  TwistPosesFloat* reading = nullptr;
  TwistPosesRotation* turning = nullptr;
};

TEST_F(TwistPosesTest, PosesSetTheZeroOfTheTwist) {
  SetForearm(RotateXMatrix(0.5f));
  EXPECT_NEAR(Twist(), -0.5f, 1e-5f) << "no poses: measured against the parent's Z";
  ASSERT_TRUE(reading->AddPose());
  EXPECT_NEAR(Twist(), 0.0f, 1e-5f) << "the pose is the new zero";
  SetForearm(RotateXMatrix(0.9f));
  EXPECT_NEAR(Twist(), -0.4f, 1e-5f);
  // A single pose: swung a quarter turn and more away the twist stays defined and continuous.
  std::vector<float> readings;
  for (float swing : {0.0f, 0.7f, 1.5707964f, 2.2f, 3.0f}) {
    SetForearm(RotateXMatrix(0.9f) * RotateZMatrix(swing));
    readings.push_back(Twist());
    EXPECT_TRUE(std::isfinite(readings.back())) << swing;
  }
  EXPECT_NEAR(readings[1], readings[0], 0.3f) << "no flip within the pose's reach";
  // Weight and offset come last.
  SetForearm(RotateXMatrix(0.9f));
  reading->GetParamBlock(0)->SetValue(kTwistWeight, 0, 0.5f);
  reading->GetParamBlock(0)->SetValue(kTwistOffset, 0, 1.0f);
  EXPECT_NEAR(Twist(), -0.2f + 1.0f, 1e-5f);
}

TEST_F(TwistPosesTest, RotationTwinReproducesTheTwist) {
  ASSERT_TRUE(turning->AddPose());
  SetForearm(RotateXMatrix(0.6f));
  EXPECT_MATRIX3_NEAR(BoneRotation(), RotateXMatrix(0.6f), 1e-5f);
  turning->GetParamBlock(0)->SetValue(kTwistAxis, 0, 2);
  SetForearm(RotateZMatrix(-0.3f));
  EXPECT_MATRIX3_NEAR(BoneRotation(), RotateZMatrix(-0.3f), 1e-5f);
  Matrix3 parent = TransMatrix(Point3(1, 2, 3));
  Interval valid = FOREVER;
  turning->GetValue(0, &parent, valid, CTRL_RELATIVE);
  EXPECT_MATRIX3_NEAR(parent, RotateZMatrix(-0.3f) * TransMatrix(Point3(1, 2, 3)), 1e-5f);
}

TEST_F(TwistPosesTest, PoseEditsAreUndoableOneHoldEach) {
  ASSERT_TRUE(reading->AddPose());
  SetForearm(RotateZMatrix(1.0f));
  ASSERT_TRUE(reading->AddPose());
  IParamBlock2* pb = reading->GetParamBlock(0);
  EXPECT_EQ(reading->PoseCount(), 2);
  EXPECT_EQ(pb->GetInt(kTwistSelPose), 1);
  EXPECT_EQ(theHold.UndoCount(), 2);
  EXPECT_EQ(theHold.UndoName(), "Parameter Change");
  pb->SetValue(kTwistTwists, 0, 0.25f, 1);
  SetForearm(RotateZMatrix(0.5f));
  ASSERT_TRUE(reading->SetPose(1));
  EXPECT_MATRIX3_NEAR(pb->GetMatrix3(kTwistPoses, 0, 1),
                      RotateZMatrix(0.5f) * TransMatrix(Point3(10, 0, 0)), 1e-5f);
  EXPECT_FLOAT_EQ(pb->GetFloat(kTwistTwists, 0, 1), 0.25f) << "the twist stays with the pose";
  ASSERT_TRUE(reading->DeletePose(0));
  EXPECT_EQ(pb->Count(kTwistPoses), 1);
  EXPECT_EQ(pb->Count(kTwistTwists), 1);
  EXPECT_FLOAT_EQ(pb->GetFloat(kTwistTwists, 0, 0), 0.25f) << "pose and twist go together";
  EXPECT_EQ(pb->GetInt(kTwistSelPose), 0);
  EXPECT_FALSE(reading->DeletePose(1));
  EXPECT_FALSE(reading->SetPose(-1));
  theHold.Undo();
  EXPECT_EQ(reading->PoseCount(), 2);
  EXPECT_FLOAT_EQ(pb->GetFloat(kTwistTwists, 0, 0), 0.0f);
  theHold.Undo();
  EXPECT_MATRIX3_NEAR(pb->GetMatrix3(kTwistPoses, 0, 1),
                      RotateZMatrix(1.0f) * TransMatrix(Point3(10, 0, 0)), 1e-5f);
  theHold.Redo();
  theHold.Redo();
  EXPECT_EQ(reading->PoseCount(), 1);
  // Through the published interface: 1-based indices.
  FPInterface* fpi = GetFPInterface(reading, Interface_ID(reading->ClassID()));
  EXPECT_TRUE(CallFunction(fpi, "AddPose", {}).value.AsBool());
  const FPValue first[] = {FPValue(1)};
  EXPECT_TRUE(CallFunction(fpi, "DeletePose", first).value.AsBool());
  EXPECT_EQ(reading->PoseCount(), 1);
  reading->GetParamBlock(0)->SetValue(kTwistTargetNode, 0, static_cast<INode*>(nullptr));
  EXPECT_FALSE(reading->AddPose()) << "no target node";
}

}  // namespace
}  // namespace marvolith::test
