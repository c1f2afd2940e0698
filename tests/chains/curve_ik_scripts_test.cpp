// Copyright Marvolith contributors.
// Building curve chains from runs of joints, and the script function's argument checks.
#include "chains/curve_ik_scripts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/scene/scene.h"
#include "host/script/script_errors.h"
#include "tests/chains/curve_ik_fixture.h"

namespace marvolith::test {
namespace {

std::vector<INode*> NodesNamed(const std::string& prefix) {
  std::vector<INode*> out;
  for (INode* n : AllNodes()) {
    if (std::string(n->GetName()).rfind(prefix, 0) == 0) out.push_back(n);
  }
  return out;
}

class CurveIKBuildTest : public CurveIKTest {
 protected:
  // A bent run of four joints: 10 along X, then 20 along Y, then 10 along X.
  void SetUp() override {
    CurveIKTest::SetUp();
    root = Node("root", TransMatrix(Point3(0, 0, 0)));
    j1 = Node("j1", TransMatrix(Point3(10, 0, 0)), root);
    j2 = Node("j2", TransMatrix(Point3(10, 20, 0)), j1);
    j3 = Node("j3", TransMatrix(Point3(20, 20, 0)), j2);
  }
  INode* root = nullptr;
  INode* j1 = nullptr;
  INode* j2 = nullptr;
  INode* j3 = nullptr;
};

TEST_F(CurveIKBuildTest, BuildsPointsControlsAndLength) {
  CurveIKBuildOptions o;
  o.control_points = 3;
  o.type = 3;
  o.tangent_controls = false;
  INode* chain_node = BuildCurveIKChain(root, j3, o);
  ASSERT_NE(chain_node, nullptr);
  CurveIKChain* chain = FindCurveIKChain(chain_node);
  ASSERT_NE(chain, nullptr);
  EXPECT_EQ(chain->NumPoints(), 3);
  EXPECT_TRUE(NodesNamed("CurveIKInTangent").empty()) << "Smooth without tangent controls";
  EXPECT_TRUE(NodesNamed("CurveIKOutTangent").empty());
  EXPECT_TRUE(NodesNamed("CurveIKControl").empty()) << "no bones controls asked";
  // Points at equal fractions of the run's 40 units: the start, half way (10, 10), the end.
  EXPECT_POINT3_NEAR(Pos(chain->GetPoint(1)), Point3(10, 10, 0), kTol);
  EXPECT_POINT3_NEAR(Pos(chain->GetPoint(2)), Point3(20, 20, 0), kTol);
  // Each joint's percent is its share of the run.
  const float want[] = {0.0f, 0.25f, 0.75f, 1.0f};
  const INode* joints[] = {root, j1, j2, j3};
  for (int i = 0; i < 4; ++i) {
    auto* c = dynamic_cast<CurveIKControl*>(const_cast<INode*>(joints[i])->GetTMController());
    ASSERT_NE(c, nullptr) << i;
    EXPECT_NEAR(c->ParamBlock()->GetFloat(kCurveControlPercent), want[i], 1e-5f);
    EXPECT_EQ(c->ParamBlock()->GetInt(kCurveControlIndex), i);
    EXPECT_EQ(c->Chain(), chain);
  }
  EXPECT_NEAR(chain->ParamBlock()->GetFloat(kCurveChainLength), chain->Workspace().CurveLength(),
              1e-4f);
  EXPECT_POINT3_NEAR(Pos(root), Point3(0, 0, 0), kTol);
  EXPECT_POINT3_NEAR(Pos(j3), Point3(20, 20, 0), kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  RoundTrip();
}

TEST_F(CurveIKBuildTest, TangentHelpersAndBonesControls) {
  CurveIKBuildOptions o;
  o.control_points = 2;
  o.type = 1;
  o.bones_controls = true;
  INode* chain_node = BuildCurveIKChain(root, j3, o);
  ASSERT_NE(chain_node, nullptr);
  CurveIKChain* chain = FindCurveIKChain(chain_node);
  EXPECT_EQ(chain->NumPoints(), 2) << "two control points: a single span";
  EXPECT_EQ(chain->Workspace().SpanCount(), 1);
  EXPECT_EQ(NodesNamed("CurveIKInTangent").size(), 2u);
  EXPECT_EQ(NodesNamed("CurveIKOutTangent").size(), 2u);
  for (int i = 0; i < 2; ++i) {
    ASSERT_NE(chain->GetInTangent(i), nullptr);
    EXPECT_EQ(chain->GetInTangent(i)->GetParentNode(), chain->GetPoint(i));
    EXPECT_EQ(chain->GetOutTangent(i)->GetParentNode(), chain->GetPoint(i));
    EXPECT_TRUE(chain->GetUseTangentNodes(i));
  }
  // The out tangent of the start lies a third of the way towards the next point on the run.
  EXPECT_POINT3_NEAR(Pos(chain->GetOutTangent(0)), Point3(10, 3.3333f, 0), kTol);
  const std::vector<INode*> controls = NodesNamed("CurveIKControl");
  ASSERT_EQ(controls.size(), 4u);
  std::vector<INode*> parents;
  for (INode* c : controls) parents.push_back(c->GetParentNode());
  for (INode* j : {root, j1, j2, j3}) {
    EXPECT_EQ(std::count(parents.begin(), parents.end(), j), 1) << j->GetName();
  }
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

TEST_F(CurveIKBuildTest, RespacesToTheAskedNumberOfBones) {
  CurveIKBuildOptions o;
  o.bones = 4;
  INode* chain_node = BuildCurveIKChain(root, j3, o);
  ASSERT_NE(chain_node, nullptr);
  CurveIKChain* chain = FindCurveIKChain(chain_node);
  ASSERT_EQ(chain->NumJoints(), 5);
  const std::vector<INode*> bones = NodesNamed("CurveIKBone");
  ASSERT_EQ(bones.size(), 5u);
  EXPECT_TRUE(dynamic_cast<CurveIKControl*>(j1->GetTMController()) == nullptr)
      << "the old joints are left as they were";
  EXPECT_POINT3_NEAR(Pos(j1), Point3(10, 0, 0), kTol);
  for (size_t i = 1; i < bones.size(); ++i) EXPECT_EQ(bones[i]->GetParentNode(), bones[i - 1]);
  // Evenly along the old run, 10 apart: the corners and two points on the long leg.
  auto* first = dynamic_cast<CurveIKControl*>(bones[2]->GetTMController());
  ASSERT_NE(first, nullptr);
  EXPECT_NEAR(first->ParamBlock()->GetFloat(kCurveControlPercent), 0.5f, 1e-5f);
  EXPECT_POINT3_NEAR(Pos(bones[0]), Point3(0, 0, 0), kTol);
  EXPECT_POINT3_NEAR(Pos(bones[4]), Point3(20, 20, 0), kTol);
}

TEST_F(CurveIKBuildTest, OneUndoStepTakesItAllBackAndRefusalsMakeNothing) {
  INode* stranger = Node("stranger");
  const size_t before = AllNodes().size();
  EXPECT_EQ(BuildCurveIKChain(stranger, j3, CurveIKBuildOptions()), nullptr);
  EXPECT_EQ(BuildCurveIKChain(j3, root, CurveIKBuildOptions()), nullptr) << "the wrong way up";
  EXPECT_EQ(BuildCurveIKChain(nullptr, j3, CurveIKBuildOptions()), nullptr);
  EXPECT_EQ(AllNodes().size(), before);
  EXPECT_FALSE(theHold.Holding());
  const Matrix3 j2_before = j2->GetNodeTM(0);
  CurveIKBuildOptions o;
  o.type = 0;
  o.bones_controls = true;
  ASSERT_NE(BuildCurveIKChain(root, j3, o), nullptr);
  const size_t after = AllNodes().size();
  EXPECT_EQ(after, before + 1 + 3 + 6 + 4);
  theHold.Undo();
  EXPECT_EQ(AllNodes().size(), before);
  EXPECT_EQ(dynamic_cast<CurveIKControl*>(j2->GetTMController()), nullptr);
  EXPECT_MATRIX3_NEAR(j2->GetNodeTM(0), j2_before, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  theHold.Redo();
  EXPECT_EQ(AllNodes().size(), after);
  EXPECT_NE(dynamic_cast<CurveIKControl*>(j2->GetTMController()), nullptr);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  EXPECT_NE(BuildCurveIKChain(j3, j3, CurveIKBuildOptions()), nullptr) << "one joint, one run";
}

TEST_F(CurveIKBuildTest, ScriptFunctionChecksItsArguments) {
  const auto call = [](std::vector<FPValue> args) {
    PrimitiveCall c;
    c.function = "CreateCurveIKSolver";
    c.args = args;
    return CreateCurveIKSolverPrimitive(c);
  };
  const auto text_of = [&](std::vector<FPValue> args) -> std::string {
    try {
      call(std::move(args));
    } catch (const RuntimeError& e) {
      return e.Text();
    } catch (const ArgCountError& e) {
      return "count " + std::to_string(e.Wanted()) + " " + std::to_string(e.Got());
    }
    return "no error";
  };
  const FPValue s(root), e(j3), n(3), f(false);
  EXPECT_EQ(text_of({s, e, n, n, n}), "count 6 5");
  EXPECT_EQ(text_of({s, e, n, n, n, f, f, f}), "count 6 8");
  const std::string fn = ", in function CreateCurveIKSolver";
  EXPECT_EQ(text_of({n, e, n, n, n, f}), "Expected a Node for the first argument" + fn);
  EXPECT_EQ(text_of({s, FPValue(), n, n, n, f}), "Expected a Node for the second argument" + fn);
  EXPECT_EQ(text_of({s, e, f, n, n, f}), "Expected a Number for the third argument" + fn);
  EXPECT_EQ(text_of({s, e, n, "x", n, f}), "Expected a Number for the fourth argument" + fn);
  EXPECT_EQ(text_of({s, e, n, n, s, f}), "Expected a Number for the fifth argument" + fn);
  EXPECT_EQ(text_of({s, e, n, n, n, n}),
            "Expected a Bool for the sixth argument  (Bones Controls)" + fn);
  EXPECT_EQ(text_of({s, e, n, n, n, f, n}),
            "Expected a Bool for the seventh argument (Tangent Controls)" + fn);
  const FPValue gone(static_cast<INode*>(nullptr));
  EXPECT_EQ(text_of({gone, e, n, n, n, f}),
            "Expected a valid Node for Start Joint, in function CurveIKSolverDlg");
  EXPECT_EQ(text_of({s, gone, n, n, n, f}),
            "Expected a valid Node for End Joint, in function CurveIKSolverDlg");
  EXPECT_TRUE(call({j3, root, n, n, n, f}).IsUndefined());
  const FPValue made = call({s, e, FPValue(2.0f), FPValue(1), FPValue(0), f});
  ASSERT_EQ(made.Type(), FPType::TYPE_INODE);
  CurveIKChain* chain = FindCurveIKChain(made.AsNode());
  ASSERT_NE(chain, nullptr);
  EXPECT_EQ(chain->NumPoints(), 2);
  EXPECT_EQ(chain->GetPointType(0), 1);
  EXPECT_NE(chain->GetOutTangent(0), nullptr) << "tangent controls default to true";
}

}  // namespace
}  // namespace marvolith::test
