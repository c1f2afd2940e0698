// Copyright Marvolith contributors.
// The curve chain and its joint controllers in scenes of real nodes: evaluation, invalidation,
// the published interface, edits of joints, undo and files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "host/controllers/controller_classes.h"
#include "host/gfx/draw_scene.h"
#include "host/gfx/headless_viewport.h"
#include "host/io/chunk_stream.h"
#include "support/lock_chunk.h"
#include "tests/chains/curve_ik_fixture.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/controller_test_util.h"

namespace marvolith::test {
namespace {

constexpr float kPi = 3.14159265f;

// The offset controller's local transform (its value under an identity parent).
Matrix3 OffsetLocal(CurveIKControl* c) {
  Matrix3 m;
  Interval ignored = FOREVER;
  c->Offset()->GetValue(0, &m, ignored, CTRL_RELATIVE);
  return m;
}

TEST_F(CurveIKTest, JointsLieOnTheCurveAndFollowItsPoints) {
  Rig r = MakeRig({{0, 0, 0}, {20, 10, 0}, {40, 0, 0}});
  EXPECT_POINT3_NEAR(Pos(r.joints[0]), Point3(0, 0, 0), kTol);
  EXPECT_POINT3_NEAR(Pos(r.joints[4]), Point3(40, 0, 0), kTol);
  EXPECT_GT(Pos(r.joints[2]).y, 5.0f) << "the middle joint rides the curve's bump";
  EXPECT_MATRIX3_NEAR(r.chain_node->GetNodeTM(0), r.joints[4]->GetNodeTM(0), kTol)
      << "the chain's node sits on the last joint";

  r.points[2]->SetNodeTM(0, TransMatrix(Point3(40, 0, 30)));
  EXPECT_POINT3_NEAR(Pos(r.joints[4]), Point3(40, 0, 30), kTol) << "a point's move reaches joints";
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

  // A joint's own percent is read by the chain: changing it moves that joint.
  r.controls[4]->ParamBlock()->SetValue(kCurveControlPercent, 0, 0.0f);
  EXPECT_POINT3_NEAR(Pos(r.joints[4]), Point3(0, 0, 0), kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

  // Chain parameters reach every joint.
  r.chain->ParamBlock()->SetValue(kCurvePercent, 0, 0.5f);
  EXPECT_GT(Length(Pos(r.joints[0])), 1.0f);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

TEST_F(CurveIKTest, SpaceFollowsTheFirstJointsParent) {
  INode* parent = Node("parent");
  Rig r = MakeRig({{0, 0, 0}, {20, 0, 0}, {40, 0, 0}}, 3, parent);
  IParamBlock2* pb = r.chain->ParamBlock();
  pb->SetValue(kCurveUsePointsRotation, 0, false);
  pb->SetValue(kCurveFollowType, 0, 0);
  EXPECT_POINT3_NEAR(Normalize(r.joints[1]->GetNodeTM(0).GetRow(1)), Point3(0, 1, 0), kTol);
  // Turning the parent (which the chain does not reference) turns the joints' frames.
  parent->SetNodeTM(0, RotateXMatrix(kPi / 2));
  EXPECT_POINT3_NEAR(Normalize(r.joints[1]->GetNodeTM(0).GetRow(1)), Point3(0, 0, 1), kTol);
  EXPECT_POINT3_NEAR(Pos(r.joints[1]), Point3(20, 0, 0), kTol) << "the points stay put";
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

  // World space ignores the parent; a space node takes its place.
  pb->SetValue(kCurveParentSpace, 0, 0);
  EXPECT_POINT3_NEAR(Normalize(r.joints[1]->GetNodeTM(0).GetRow(1)), Point3(0, 1, 0), kTol);
  INode* space = Node("space", RotateZMatrix(kPi / 2));
  pb->SetValue(kCurveParentSpace, 0, 2);
  pb->SetValue(kCurveParentSpaceNode, 0, space);
  EXPECT_POINT3_NEAR(Normalize(r.joints[1]->GetNodeTM(0).GetRow(1)), Point3(-1, 0, 0), kTol);
  space->SetNodeTM(0, Matrix3());
  EXPECT_POINT3_NEAR(Normalize(r.joints[1]->GetNodeTM(0).GetRow(1)), Point3(0, 1, 0), kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

TEST_F(CurveIKTest, InterfaceKeepsTablesInStepAndRefusesBadIndices) {
  Rig r = MakeRig({{0, 0, 0}, {20, 10, 0}, {40, 0, 0}});
  CurveIKChain* c = r.chain;
  IParamBlock2* pb = c->ParamBlock();
  INode* extra = Node("extra", TransMatrix(Point3(60, 0, 0)));
  INode* tangent = Node("tangent", TransMatrix(Point3(50, 5, 0)));
  ASSERT_TRUE(c->AddPoint(extra, 1, nullptr, tangent, 0.5f, 0.25f, false));
  const ParamID tabs[] = {kCurvePoints,          kCurvePointsTypes,     kCurveInTangents,
                          kCurveOutTangents,     kCurveInnerInTangents, kCurveInnerOutTangents,
                          kCurveUseTangentNodes, kCurvePointsTwist,     kCurvePointsWaveAmplitude};
  for (ParamID id : tabs) EXPECT_EQ(pb->Count(id), 4) << id;
  EXPECT_POINT3_NEAR(Pos(r.joints[4]), Point3(60, 0, 0), kTol);

  ASSERT_TRUE(c->RemovePoint(1));
  for (ParamID id : tabs) EXPECT_EQ(pb->Count(id), 3) << id;
  EXPECT_EQ(c->GetPoint(1), r.points[2]);
  EXPECT_EQ(c->GetPointType(2), 1) << "the later entries moved down together";

  for (int bad : {-1, 3, 100}) {
    SCOPED_TRACE(bad);
    EXPECT_FALSE(c->RemovePoint(bad));
    EXPECT_FALSE(c->SetPoint(bad, extra));
    EXPECT_EQ(c->GetPoint(bad), nullptr);
    EXPECT_FALSE(c->SetPointType(bad, 1));
    EXPECT_EQ(c->GetPointType(bad), -1);
    EXPECT_FALSE(c->SetInTangent(bad, extra));
    EXPECT_EQ(c->GetInTangent(bad), nullptr);
    EXPECT_FALSE(c->SetOutTangent(bad, extra));
    EXPECT_EQ(c->GetOutTangent(bad), nullptr);
    EXPECT_FALSE(c->SetTwist(bad, 1.0f));
    EXPECT_EQ(c->GetTwist(bad), 0.0f);
    EXPECT_FALSE(c->SetAmplitude(bad, 1.0f));
    EXPECT_EQ(c->GetAmplitude(bad), 0.0f);
    EXPECT_FALSE(c->SetUseTangentNodes(bad, true));
    EXPECT_FALSE(c->GetUseTangentNodes(bad));
  }
  EXPECT_FALSE(c->SetPointType(0, 4)) << "no such type";
  EXPECT_FALSE(c->AddPoint(nullptr, 3, nullptr, nullptr, 0, 1, true));
  EXPECT_EQ(c->NumPoints(), 3);
}

TEST_F(CurveIKTest, ResetLengthAndTangents) {
  Rig r = MakeRig({{0, 0, 0}, {30, 0, 0}, {30, 40, 0}}, 4);
  CurveIKChain* c = r.chain;
  IParamBlock2* pb = c->ParamBlock();
  c->ResetLength();
  const float length = pb->GetFloat(kCurveChainLength);
  EXPECT_NEAR(length, c->Workspace().CurveLength(), 1e-4f);
  EXPECT_GT(length, 50.0f);
  // At rest length without auto stretch the chain covers the curve as before.
  const Point3 end = Pos(r.joints[3]);
  pb->SetValue(kCurveAutoStretch, 0, 0.0f);
  EXPECT_POINT3_NEAR(Pos(r.joints[3]), end, kTol);

  // Stored Smooth tangents on Bezier points without nodes give the inner span the Smooth shape.
  const std::vector<Point3> smooth(c->Workspace().SpanControls().begin(),
                                   c->Workspace().SpanControls().end());
  c->ResetTangents();
  for (int i = 0; i < 3; ++i) {
    c->SetPointType(i, 1);
    c->SetUseTangentNodes(i, false);
  }
  r.joints[0]->GetNodeTM(0);
  const std::span<const Point3> stored = c->Workspace().SpanControls();
  ASSERT_EQ(stored.size(), smooth.size());
  EXPECT_POINT3_NEAR(stored[2], smooth[2], kTol);
  EXPECT_POINT3_NEAR(stored[5], smooth[5], kTol);
}

TEST_F(CurveIKTest, MovingChainNodesWritesNothingToTheJoints) {
  Rig r = MakeRig({{0, 0, 0}, {20, 10, 0}, {40, 0, 0}});
  Interface* ip = GetCOREInterface();
  // A relative edit while a point or tangent node of the chain is selected: those nodes are
  // being moved, and the joint follows them rather than taking the edit.
  SetXFormPacket move(Point3(0, 0, 5), r.joints[2]->GetParentTM(0), Matrix3());
  ip->SelectNode(r.points[1]);
  ip->SelectNode(r.joints[2], false);
  r.controls[2]->SetValue(0, &move, 1, CTRL_RELATIVE);
  r.points[1]->Move(0, Matrix3(), Point3(0, 0, 5));
  EXPECT_MATRIX3_NEAR(OffsetLocal(r.controls[2]), Matrix3(), 0.0f);
  EXPECT_NEAR(Pos(r.points[1]).z, 5.0f, kTol);
  EXPECT_GT(Pos(r.joints[2]).z, 1.0f) << "the joint followed the point";
  ip->ClearNodeSelection();
  ip->SelectNode(r.joints[2]);
  r.controls[2]->SetValue(0, &move, 1, CTRL_RELATIVE);
  EXPECT_NEAR(OffsetLocal(r.controls[2]).GetTrans().Length(), 5.0f, kTol)
      << "without the chain's nodes selected the edit is the joint's own";
  // A fresh offset in an empty slot starts at rest.
  ASSERT_TRUE(r.controls[2]->SetOffset(nullptr));
  ASSERT_TRUE(r.controls[2]->SetOffset(NewDefaultMatrix3Controller()));
  EXPECT_MATRIX3_NEAR(OffsetLocal(r.controls[2]), Matrix3(), 0.0f);

  // A move of the node goes into its offset, local to the solved matrix.
  const Matrix3 before = r.joints[2]->GetNodeTM(0);
  r.joints[2]->Move(0, Matrix3(), Point3(0, 0, 3));
  EXPECT_POINT3_NEAR(Pos(r.joints[2]), before.GetTrans() + Point3(0, 0, 3), kTol);
  EXPECT_FALSE(OffsetLocal(r.controls[2]).Equals(Matrix3(), 1e-4f));
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

  // Locked, the joint takes nothing.
  r.controls[2]->SetLocked(true);
  r.joints[2]->Move(0, Matrix3(), Point3(0, 0, 3));
  EXPECT_POINT3_NEAR(Pos(r.joints[2]), before.GetTrans() + Point3(0, 0, 3), kTol);
}

TEST_F(CurveIKTest, UndoRedoKeepsCachesTrue) {
  Rig r = MakeRig({{0, 0, 0}, {20, 10, 0}, {40, 0, 0}});
  const Point3 start = Pos(r.joints[4]);
  INode* extra = Node("extra", TransMatrix(Point3(60, 20, 0)));
  Undoable("add", [&] { r.chain->AddPoint(extra, 3, nullptr, nullptr, 0, 1, true); });
  const Point3 added = Pos(r.joints[4]);
  EXPECT_POINT3_NEAR(added, Point3(60, 20, 0), kTol);
  Undoable("percent",
           [&] { r.controls[4]->ParamBlock()->SetValue(kCurveControlPercent, 0, 0.5f); });
  const Point3 moved = Pos(r.joints[4]);
  Undoable("stretch", [&] { r.chain->ParamBlock()->SetValue(kCurveManualStretch, 0, 0.5f); });
  const Point3 stretched = Pos(r.joints[4]);
  Undoable("remove", [&] { r.chain->RemovePoint(3); });

  const std::vector<Point3> expected = {stretched, moved, added, start};
  for (const Point3& want : expected) {
    theHold.Undo();
    EXPECT_POINT3_NEAR(Pos(r.joints[4]), want, kTol);
    EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  }
  for (int i = 0; i < 3; ++i) {
    theHold.Redo();
    EXPECT_POINT3_NEAR(Pos(r.joints[4]), expected[static_cast<size_t>(2 - i)], kTol);
    EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  }
}

TEST_F(CurveIKTest, ClonesAndFilesEvaluateAlike) {
  Rig r = MakeRig({{0, 0, 0}, {20, 10, 0}, {40, 0, 5}});
  {
    SCOPED_TRACE("a cloned chain reads the same points and joints");
    RemapDir remap;
    auto* clone = dynamic_cast<CurveIKChain*>(r.chain->Clone(remap));
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(clone->GetPoint(2), r.points[2]);
    Matrix3 m;
    Interval valid = FOREVER;
    clone->GetValue(0, &m, valid);
    EXPECT_MATRIX3_NEAR(m, r.joints[4]->GetNodeTM(0), kTol);
    clone->MaybeAutoDelete();
    auto* control = dynamic_cast<CurveIKControl*>(r.controls[2]->Clone(remap));
    ASSERT_NE(control, nullptr);
    EXPECT_EQ(control->Chain(), r.chain);
    EXPECT_NE(control->Offset(), r.controls[2]->Offset()) << "a joint clone owns its offset";
    EXPECT_MATRIX3_NEAR(WorldAt(control, 0, Matrix3()), r.joints[2]->GetNodeTM(0), kTol);
    control->MaybeAutoDelete();
  }
  r.chain->ParamBlock()->SetValue(kCurveSteps, 0, 7);
  r.chain->SetLocked(true);
  r.controls[1]->ParamBlock()->SetValue(kCurveControlSquash, 0, 0.3f);
  std::vector<Matrix3> before;
  for (INode* j : r.joints) before.push_back(j->GetNodeTM(0));
  RoundTrip();
  INode* chain_node = GetCOREInterface()->GetINodeByName("chain");
  ASSERT_NE(chain_node, nullptr);
  CurveIKChain* chain = FindCurveIKChain(chain_node);
  ASSERT_NE(chain, nullptr);
  EXPECT_TRUE(chain->GetLocked());
  EXPECT_EQ(chain->NumPoints(), 3);
  for (size_t i = 0; i < before.size(); ++i) {
    INode* j = GetCOREInterface()->GetINodeByName(("joint" + std::to_string(i)).c_str());
    ASSERT_NE(j, nullptr);
    EXPECT_MATRIX3_NEAR(j->GetNodeTM(0), before[i], kTol);
  }
}

TEST_F(CurveIKTest, EvaluationAllocatesNothingOnceSolved) {
  Rig r = MakeRig({{0, 0, 0}, {20, 10, 0}, {40, 0, 0}, {60, 0, 0}}, 12);
  r.chain->ParamBlock()->SetValue(kCurveUseWave, 0, true);  // the wave samples every span
  r.chain->ParamBlock()->SetValue(kCurveWaveAmplitude, 0, 1.0f);
  AnimateOn();
  r.chain->ParamBlock()->SetValue(kCurvePercent, 4800, 0.5f);
  AnimateOff();
  Matrix3 m;
  Interval valid = FOREVER;
  r.chain->GetValue(0, &m, valid);
  EXPECT_LT(valid.End(), 4800) << "an animated percent narrows the validity";
  const AllocationScope allocations;
  for (TimeValue t = 0; t < 20; ++t) {
    valid = FOREVER;
    r.chain->GetValue(t * 160, &m, valid);
  }
  EXPECT_EQ(allocations.Count(), 0u);
}

TEST_F(CurveIKTest, DisplayDrawsCurveAndTangents) {
  Rig r = MakeRig({{0, 0, 0}, {20, 10, 0}, {40, 0, 0}});
  IParamBlock2* pb = r.chain->ParamBlock();
  HeadlessViewport vpt;
  auto lines = [&] {
    vpt.BeginFrame();
    DrawSceneOptions options;
    options.empty_node_axes = false;
    DrawScene(0, vpt, options);
    std::vector<size_t> sizes;
    for (const DisplayPrimitive& p : vpt.GetDisplayList().primitives) {
      if (p.node == Animatable::GetHandleByAnim(r.chain_node) &&
          p.kind == PrimitiveKind::kPolyline) {
        sizes.push_back(p.count);
      }
    }
    return sizes;
  };
  EXPECT_EQ(lines(), std::vector<size_t>(4, 2)) << "tangents always, the curve when selected";
  GetCOREInterface()->SelectNode(r.chain_node);
  std::vector<size_t> selected = lines();
  ASSERT_EQ(selected.size(), 5u);
  EXPECT_EQ(selected[0], r.chain->Workspace().Samples().size());
  pb->SetValue(kCurveDisplayTangents, 0, 0);
  pb->SetValue(kCurveDisplayCurve, 0, 0);
  EXPECT_TRUE(lines().empty());
}

TEST_F(CurveIKTest, StepsStoredAsZeroLoadAsOne) {
  Rig r = MakeRig({{0, 0, 0}, {20, 10, 0}, {40, 0, 0}});
  // The block refuses 0 (its range starts at 1), but older scenes hold it: write a marker value,
  // patch its bytes to 0 and load.
  constexpr int kMarker = 77771;
  r.chain->ParamBlock()->SetValue(kCurveSteps, 0, kMarker);
  std::vector<std::uint8_t> bytes;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(bytes, &error)) << error;
  std::uint8_t marker[4];
  std::memcpy(marker, &kMarker, 4);
  auto at = std::search(bytes.begin(), bytes.end(), marker, marker + 4);
  ASSERT_NE(at, bytes.end());
  ASSERT_EQ(std::search(at + 1, bytes.end(), marker, marker + 4), bytes.end()) << "one place";
  std::fill(at, at + 4, 0);
  ASSERT_TRUE(LoadSceneFromBytes(bytes, &error)) << error;
  CurveIKChain* chain = FindCurveIKChain(GetCOREInterface()->GetINodeByName("chain"));
  ASSERT_NE(chain, nullptr);
  EXPECT_EQ(chain->ParamBlock()->GetInt(kCurveSteps), 0);
  INode* last = GetCOREInterface()->GetINodeByName("joint4");
  const Matrix3 loaded = last->GetNodeTM(0);
  EXPECT_EQ(chain->Workspace().StepsPerSpan(), 1);
  EXPECT_EQ(chain->Workspace().Samples().size(), 3u);
  chain->ParamBlock()->SetValue(kCurveSteps, 0, 1);
  EXPECT_MATRIX3_NEAR(last->GetNodeTM(0), loaded, 1e-5f);
}

TEST_F(CurveIKTest, ControlSkipsUnknownChunks) {
  ChunkWriter w;
  w.BeginChunk(1);
  w.BeginChunk(0x7777);
  const float junk = 3.0f;
  ULONG written = 0;
  w.Write(&junk, sizeof(junk), &written);
  w.EndChunk();
  ASSERT_EQ(SaveLockChunk(&w, true), IO_OK);
  w.EndChunk();
  auto* fresh = new CurveIKControl(false);
  EXPECT_EQ(LoadBytes(fresh, w.Bytes()), IO_OK);
  EXPECT_TRUE(fresh->GetLocked());
  fresh->MaybeAutoDelete();
}

TEST_F(CurveIKTest, GimbalProxyTurnsInTheSolvedFrame) {
  Rig r = MakeRig({{0, 0, 0}, {0, 20, 0}, {0, 40, 0}});
  CurveIKControl* c = r.controls[1];
  r.joints[1]->GetNodeTM(0);
  Control* real = GetRealRotationController(c);
  ASSERT_NE(real, nullptr);
  EXPECT_EQ(c->GetRotationController(), real) << "not in gimbal coordinates";
  Interface* ip = GetCOREInterface();
  ip->SetRefCoordSys(COORDS_GIMBAL);
  Control* proxy = c->GetRotationController();
  ASSERT_NE(proxy, real);
  EXPECT_EQ(proxy, GetGimbalProxy());
  // The proxy's parent rotation is the solved frame: X along the curve (+Y here).
  auto* list = static_cast<IListControl*>(proxy->GetInterface(LIST_CONTROLLER_INTERFACE));
  ASSERT_NE(list, nullptr);
  Quat parent_rot;
  Interval iv = FOREVER;
  list->GetSubCtrl(0)->GetValue(0, &parent_rot, iv, CTRL_ABSOLUTE);
  EXPECT_POINT3_NEAR(Point3(1, 0, 0) * MatrixOf(parent_rot), Point3(0, 1, 0), kTol);
  ip->SetPivotMode(PIV_PIVOT_ONLY);
  EXPECT_EQ(c->GetRotationController(), real);
  EXPECT_FALSE(c->CanAssignController(0));
  EXPECT_FALSE(c->CanAssignController(1));
}

}  // namespace
}  // namespace marvolith::test
