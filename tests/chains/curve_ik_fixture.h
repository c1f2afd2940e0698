// Copyright Marvolith contributors.
// A scene per test with the curve chain classes registered, and a builder of a curve chain of
// plain joint and point nodes.
#pragma once

#include <string>
#include <vector>

#include "chains/curve_ik_chain.h"
#include "chains/curve_ik_control.h"
#include "controllers/rig_control.h"
#include "controllers/rotation_xyz.h"
#include "controls/control_helper.h"
#include "host/params/iparamb2.h"
#include "host/scene/inode.h"
#include "tests/chains/chain_scene_fixture.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {

inline constexpr float kTol = 2e-3f;

class CurveIKTest : public ChainSceneTest {
 protected:
  CurveIKTest()
      : ChainSceneTest({GetCurveIKChainDesc(), GetCurveIKControlDesc(), GetControlHelperDesc(),
                        GetRigControlDesc(), GetRotationXYZDesc()}) {}
  void TearDown() override {
    ReleaseGimbalProxy();
    ChainSceneTest::TearDown();
  }

  /// A chain of joint_count joints along X (10 apart, each the child of the one before, the
  /// first under `parent` when given) on a curve through `points` (Smooth points of plain
  /// nodes), each joint with a CurveIKControl at an even percent.
  struct Rig {
    INode* chain_node = nullptr;
    CurveIKChain* chain = nullptr;
    std::vector<INode*> joints;
    std::vector<INode*> points;
    std::vector<CurveIKControl*> controls;
  };
  static Rig MakeRig(const std::vector<Point3>& points,
                     int joint_count = 5,
                     INode* parent = nullptr) {
    Rig r;
    for (size_t i = 0; i < points.size(); ++i) {
      r.points.push_back(Node(("point" + std::to_string(i)).c_str(), TransMatrix(points[i])));
    }
    for (int i = 0; i < joint_count; ++i) {
      INode* up = i == 0 ? parent : r.joints.back();
      r.joints.push_back(Node(("joint" + std::to_string(i)).c_str(),
                              TransMatrix(Point3(10.0f * static_cast<float>(i), 0, 0)), up));
    }
    r.chain_node = Node("chain");
    r.chain = new CurveIKChain;
    EXPECT_TRUE(r.chain_node->SetTMController(r.chain));
    for (INode* p : r.points) EXPECT_TRUE(r.chain->AddPoint(p, 3, nullptr, nullptr, 0, 1, true));
    IParamBlock2* pb = r.chain->ParamBlock();
    pb->Append(kCurveJoints, joint_count, r.joints.data());
    for (int i = 0; i < joint_count; ++i) {
      auto* c = new CurveIKControl;
      c->ParamBlock()->SetValue(kCurveControlChainNode, 0, r.chain_node);
      c->ParamBlock()->SetValue(kCurveControlIndex, 0, i);
      c->ParamBlock()->SetValue(kCurveControlPercent, 0,
                                static_cast<float>(i) / static_cast<float>(joint_count - 1));
      EXPECT_TRUE(r.joints[static_cast<size_t>(i)]->SetTMController(c));
      r.controls.push_back(c);
    }
    return r;
  }
};

}  // namespace marvolith::test
