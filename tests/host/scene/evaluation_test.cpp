// Copyright Marvolith contributors.
// Node evaluation with the host's keyframe controllers: caches against fresh evaluation, every
// out-of-range type, and no allocation on the evaluation path.
#include <gtest/gtest.h>

#include <vector>

#include "host/controllers/controller_classes.h"
#include "host/scene/core_interface.h"
#include "host/scene/demo_scene.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

class EvaluationTest : public ::testing::Test {
 protected:
  void SetUp() override { GetCOREInterface()->Reset(); }
  void TearDown() override {
    AnimateOff();
    GetCOREInterface()->Reset();
  }
};

// The node's world transform computed from the controllers directly, without any node cache.
Matrix3 Fresh(INode* node, TimeValue t) {
  if (!node || node->IsRootNode()) return Matrix3();
  Matrix3 tm = Fresh(node->GetParentNode(), t);
  Interval iv = FOREVER;
  node->GetTMController()->GetValue(t, &tm, iv, CTRL_RELATIVE);
  return tm;
}

TEST_F(EvaluationTest, CachedTransformsMatchFreshOnesForEveryOutOfRangeType) {
  const TimeValue f = GetCOREInterface()->GetTicksPerFrame();
  for (int ort : {ORT_CONSTANT, ORT_CYCLE, ORT_LOOP, ORT_OSCILLATE, ORT_LINEAR, ORT_IDENTITY,
                  ORT_RELATIVE_REPEAT}) {
    SCOPED_TRACE(ort);
    GetCOREInterface()->Reset();
    std::vector<INode*> nodes = BuildKeyedHierarchy(7);
    Control* pos = nodes[1]->GetTMController()->GetPositionController();
    Control* rot = nodes[0]->GetTMController()->GetRotationController();
    pos->SetORT(ort, ORT_BEFORE);
    pos->SetORT(ort, ORT_AFTER);
    rot->SetORT(ort, ORT_AFTER);
    // Times before, inside and after the keys, visited out of order and twice, so that cached
    // results are met at times other than the ones they were made for.
    const std::vector<TimeValue> times = {-130 * f, 25 * f,  250 * f, 100 * f, -130 * f, 0,
                                          175 * f,  101 * f, 25 * f,  250 * f, -1};
    for (TimeValue t : times) {
      for (INode* node : nodes) {
        Interval valid = FOREVER;
        Matrix3 tm = node->GetNodeTM(t, &valid);
        ASSERT_MATRIX3_NEAR(tm, Fresh(node, t), 1e-4f) << node->GetName() << " at " << t;
        ASSERT_TRUE(valid.InInterval(t));
      }
    }
    // Past the keys, node 1 (a looping or cycling position) is where it was one period back.
    if (ort == ORT_LOOP || ort == ORT_CYCLE) {
      Matrix3 local_after = nodes[1]->GetNodeTM(250 * f) * Inverse(nodes[0]->GetNodeTM(250 * f));
      Matrix3 local_50 = nodes[1]->GetNodeTM(50 * f) * Inverse(nodes[0]->GetNodeTM(50 * f));
      EXPECT_POINT3_NEAR(local_after.GetTrans(), local_50.GetTrans(), 1e-3f);
    }
  }
}

TEST_F(EvaluationTest, ChangingAKeyOrReparentingReachesCachedDescendants) {
  const TimeValue f = GetCOREInterface()->GetTicksPerFrame();
  std::vector<INode*> nodes = BuildKeyedHierarchy(15);
  for (INode* n : nodes) n->GetNodeTM(30 * f);
  theHold.Begin();
  AnimateOn();
  Point3 p(100, 0, 0);
  nodes[1]->GetTMController()->GetPositionController()->SetValue(50 * f, &p);
  AnimateOff();
  theHold.Accept("Key");
  for (INode* n : nodes) EXPECT_MATRIX3_NEAR(n->GetNodeTM(30 * f), Fresh(n, 30 * f), 1e-4f);
  theHold.Undo();
  for (INode* n : nodes) EXPECT_MATRIX3_NEAR(n->GetNodeTM(30 * f), Fresh(n, 30 * f), 1e-4f);
  const Matrix3 leaf_ws = nodes[14]->GetNodeTM(30 * f);
  GetCOREInterface()->SetTime(30 * f);
  nodes[2]->AttachChild(nodes[6], 1);  // node 14's parent, kept in place by the PRS
  EXPECT_MATRIX3_NEAR(nodes[14]->GetNodeTM(30 * f), leaf_ws, 1e-3f);
  EXPECT_MATRIX3_NEAR(nodes[14]->GetNodeTM(60 * f), Fresh(nodes[14], 60 * f), 1e-4f);
}

TEST_F(EvaluationTest, EvaluatingAThousandKeyedNodesAtANewTimeAllocatesNothing) {
  const TimeValue f = GetCOREInterface()->GetTicksPerFrame();
  std::vector<INode*> nodes = BuildKeyedHierarchy(1000);
  for (INode* n : nodes) n->GetNodeTM(10 * f);
  AllocationScope scope;
  for (auto it = nodes.rbegin(); it != nodes.rend(); ++it) (*it)->GetNodeTM(37 * f + 5);
  for (INode* n : nodes) n->GetNodeTM(83 * f);
  EXPECT_EQ(scope.Count(), 0u);
  EXPECT_MATRIX3_NEAR(nodes[999]->GetNodeTM(83 * f), Fresh(nodes[999], 83 * f), 1e-3f);
}

}  // namespace
}  // namespace marvolith::test
