// Copyright Marvolith contributors.
// A scene per test with the IKFK classes registered, limbs of plain joints, and chains built over
// them by CreateIKFKSolver.
#pragma once

#include <vector>

#include "chains/ikfk_chain.h"
#include "chains/ikfk_control.h"
#include "chains/ikfk_link.h"
#include "chains/ikfk_scripts.h"
#include "controls/control_helper.h"
#include "host/params/iparamb2.h"
#include "tests/chains/chain_scene_fixture.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {

/// Two poses joint by joint: whole matrices, or only positions.
inline void ExpectPoseNear(const std::vector<Matrix3>& a,
                           const std::vector<Matrix3>& b,
                           float tol,
                           bool positions_only = false) {
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) {
    SCOPED_TRACE(::testing::Message() << "joint " << i);
    if (positions_only) {
      EXPECT_POINT3_NEAR(a[i].GetTrans(), b[i].GetTrans(), tol);
    } else {
      EXPECT_MATRIX3_NEAR(a[i], b[i], tol);
    }
  }
}

/// A chain made by CreateIKFKSolver and its parts.
struct Limb {
  std::vector<INode*> bones;    ///< the plain joints the chain was made over
  std::vector<INode*> members;  ///< the chain's joints (helpers with IKFKControl)
  INode* chain_node = nullptr;
  IKFKChain* chain = nullptr;
  INode* goal = nullptr;
  INode* target = nullptr;

  IParamBlock2* Params() const { return chain->ParamBlock(); }
  IKFKControl* Member(size_t i) const {
    return dynamic_cast<IKFKControl*>(members[i]->GetTMController());
  }
  /// World transforms of the chain's joints at t.
  std::vector<Matrix3> Pose(TimeValue t = 0) const {
    std::vector<Matrix3> pose;
    for (INode* m : members) pose.push_back(m->GetNodeTM(t));
    return pose;
  }
  /// Distances between successive joints at t.
  std::vector<float> BoneLengths(TimeValue t = 0) const {
    std::vector<float> lengths;
    const std::vector<Matrix3> pose = Pose(t);
    for (size_t i = 1; i < pose.size(); ++i) {
      lengths.push_back(Length(pose[i].GetTrans() - pose[i - 1].GetTrans()));
    }
    return lengths;
  }
};

class IKFKChainTest : public ChainSceneTest {
 protected:
  IKFKChainTest()
      : ChainSceneTest({GetIKFKChainDesc(), GetIKFKControlDesc(), GetIKFKLinkDesc(),
                        GetControlHelperDesc()}) {}

  /// Plain joints at the given world positions, each the child of the one before, the first
  /// under parent. Each joint's +X points at the next and its Z is the normal of the XZ plane.
  static std::vector<INode*> Bones(const std::vector<Point3>& points, INode* parent = nullptr) {
    std::vector<INode*> bones;
    for (size_t i = 0; i < points.size(); ++i) {
      const Point3 dir =
          i + 1 < points.size() ? points[i + 1] - points[i] : points[i] - points[i - 1];
      Matrix3 tm = AimXMatrix(dir);
      tm.SetTrans(points[i]);
      bones.push_back(
          Node(("bone" + std::to_string(i)).c_str(), tm, bones.empty() ? parent : bones.back()));
    }
    return bones;
  }

  /// CreateIKFKSolver over bones (start to end); fails the test when it answers no chain.
  static Limb MakeLimb(const std::vector<INode*>& bones) {
    Limb limb;
    limb.bones = bones;
    const FPValue args[2] = {FPValue(bones.front()), FPValue(bones.back())};
    PrimitiveCall call;
    call.function = "CreateIKFKSolver";
    call.args = args;
    const FPValue result = CreateIKFKSolver(call);
    limb.chain_node = result.Type() == FPType::TYPE_INODE ? result.AsNode() : nullptr;
    EXPECT_NE(limb.chain_node, nullptr);
    if (!limb.chain_node) return limb;
    limb.chain = dynamic_cast<IKFKChain*>(limb.chain_node->GetTMController());
    for (int i = 0; i < limb.chain->NumJoints(); ++i) {
      limb.members.push_back(limb.chain->JointNode(i));
    }
    limb.goal = limb.chain->GoalNode();
    limb.target = limb.chain->TargetNode();
    return limb;
  }

  /// An arm bent in the XZ plane: shoulder, elbow, wrist.
  static std::vector<Point3> ArmPoints() { return {{0, 0, 0}, {10, 0, 2}, {20, 0, 0}}; }
  /// A five-joint leg bent in the XZ plane.
  static std::vector<Point3> LegPoints() {
    return {{0, 0, 0}, {6, 0, 2}, {12, 0, 3}, {18, 0, 2}, {24, 0, 0}};
  }

  /// Every node's cached transform against a fresh evaluation, with every chain's cached solve
  /// dropped as well: a chain that kept a stale solve fails here.
  static ::testing::AssertionResult ChainsAgreeWithFreshSolve(TimeValue t) {
    const std::vector<INode*> nodes = AllNodes();
    std::vector<Matrix3> cached;
    for (INode* n : nodes) cached.push_back(n->GetNodeTM(t));
    for (INode* n : nodes) {
      if (auto* chain = dynamic_cast<IKFKChain*>(n->GetTMController())) chain->MarkDirty();
    }
    ::testing::AssertionResult plain = CachesAgreeWithFreshEvaluation(t);
    if (!plain) return plain;
    for (size_t i = 0; i < nodes.size(); ++i) {
      if (!nodes[i]->GetNodeTM(t).Equals(cached[i], 1e-5f)) {
        return ::testing::AssertionFailure() << nodes[i]->GetName() << " answered a stale solve";
      }
    }
    return ::testing::AssertionSuccess();
  }

 private:
  static Matrix3 AimXMatrix(const Point3& dir) {
    Matrix3 m;
    const Point3 x = Normalize(dir);
    // Bent in the XZ plane, as bones are: Z is the bend axis, Y lies in the plane.
    const Point3 z = Normalize(CrossProd(x, Point3(0, 0, 1)));
    m.SetRow(0, x);
    m.SetRow(1, Normalize(CrossProd(z, x)));
    m.SetRow(2, z);
    return m;
  }
};

}  // namespace marvolith::test
