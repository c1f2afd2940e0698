// Copyright Marvolith contributors.
#include "chains/ikfk_link.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

#include "host/params/iparamb2.h"
#include "tests/chains/ikfk_link_fixture.h"
#include "tests/support/alloc_counter.h"

namespace marvolith::test {
namespace {

constexpr TimeValue F = kFrame;

Matrix3 World(INode* n, TimeValue t) {
  n->InvalidateTM();
  return n->GetNodeTM(t);
}

float LinkValue(IKFKLink* link, TimeValue t) {
  float v = -1.0f;
  Interval iv = FOREVER;
  link->GetValue(t, &v, iv, CTRL_ABSOLUTE);
  return v;
}

TEST_F(IKFKLinkTest, AnEmptyOrUnevenBlockLeavesTheMatrixAlone) {
  auto* link = new IKFKLink;
  INode* a = Node("a", Pose(0.3f, {1, 2, 3}));
  const Matrix3 before = Pose(-1.0f, {7, 8, 9});
  Matrix3 val = before;
  Interval valid = FOREVER;
  EXPECT_FALSE(link->Evaluate(0, val, valid));
  EXPECT_TRUE(val.Equals(before, 0.0f));
  EXPECT_EQ(valid, FOREVER);

  // A target without a start time: the tabs disagree and nothing is evaluated or counted.
  IParamBlock2* pb = link->GetParamBlockByID(kIKFKLinkParams);
  ASSERT_NE(pb, nullptr);
  pb->Append(kLinkTargets, 1, &a);
  EXPECT_FALSE(link->Evaluate(0, val, valid));
  EXPECT_TRUE(val.Equals(before, 0.0f));
  EXPECT_EQ(link->GetNumTargets(), 0);
  EXPECT_EQ(link->NumKeys(), 0);
  EXPECT_EQ(link->GetNode(0), nullptr);
  EXPECT_FALSE(link->AddTarget(a, 5)) << "an uneven block is not edited";
  EXPECT_EQ(link->AddWorld(5), -1);
  link->DeleteMe();
}

TEST_F(IKFKLinkTest, BeforeTheFirstStartLinkZeroAppliesWithoutOffset) {
  auto* link = new IKFKLink;
  INode* a = MovingNode("a", {0, 0, 0}, {100, 0, 0}, 1.0f);
  INode* b = Node("b", Pose(0.5f, {0, 5, 0}));
  ASSERT_TRUE(link->AddTarget(a, 10, false));
  ASSERT_TRUE(link->AddTarget(b, 20, false));
  Matrix3 val;
  Interval valid = FOREVER;
  ASSERT_TRUE(link->Evaluate(3 * F, val, valid));
  EXPECT_MATRIX3_NEAR(val, a->GetNodeTM(3 * F), 1e-5f);
  EXPECT_TRUE(valid.InInterval(3 * F));
  EXPECT_LT(valid.End(), 20 * F) << "link 1 takes over at its start";
  link->DeleteMe();
}

TEST_F(IKFKLinkTest, SwitchesCarryTheMatrixSoTheOwnerNeverJumps) {
  // Targets that turn and move all the time, before and after every switch.
  INode* a = MovingNode("a", {0, 0, 0}, {50, 0, 0}, 1.0f);
  INode* b = MovingNode("b", {0, 10, 0}, {0, -30, 20}, -2.0f);
  INode* c = MovingNode("c", {5, 5, 5}, {-40, 0, 0}, 0.5f);
  INode* owner = Owner("owner", Pose(0.2f, {1, 0, 0}));
  IKFKLink* link = LinkOf(owner);
  ASSERT_TRUE(link->AddTarget(a, 0, false));
  ASSERT_TRUE(link->AddTarget(b, 10, false));
  ASSERT_TRUE(link->AddTarget(c, 20, false));
  ASSERT_EQ(link->GetNumTargets(), 3);

  for (int k = 1; k < 3; ++k) {
    SCOPED_TRACE(k);
    const TimeValue s = link->GetKeyTime(k);
    Interval ignored = FOREVER;
    Matrix3 at_switch;
    ASSERT_TRUE(link->Evaluate(s, at_switch, ignored));
    EXPECT_MATRIX3_NEAR(at_switch, link->LinkTM(k - 1, s, ignored), 1e-4f);
    // One tick apart the owner moves no more than its targets do in a tick.
    EXPECT_MATRIX3_NEAR(World(owner, s), World(owner, s - 1), 1e-2f);
  }
  // After the switch the owner follows the new target rigidly.
  const Matrix3 c20 = c->GetNodeTM(20 * F), c40 = c->GetNodeTM(40 * F);
  EXPECT_MATRIX3_NEAR(World(owner, 40 * F) * Inverse(c40), World(owner, 20 * F) * Inverse(c20),
                      1e-3f);
}

TEST_F(IKFKLinkTest, StillTargetsHoldTheOwnerAcrossEverySwitch) {
  INode* a = Node("a", Pose(0.4f, {10, 0, 0}));
  INode* b = Node("b", Pose(-1.2f, {0, 10, 0}));
  INode* c = Node("c", Pose(2.0f, {0, 0, 10}));
  INode* owner = Owner("owner", Pose(0.1f, {0, 2, 0}));
  IKFKLink* link = LinkOf(owner);
  ASSERT_TRUE(link->AddTarget(a, 0, false));
  ASSERT_TRUE(link->AddTarget(b, 10, false));
  ASSERT_TRUE(link->AddTarget(c, 20, false));
  const Matrix3 at_start = World(owner, 0);
  EXPECT_MATRIX3_NEAR(World(owner, 20 * F), World(owner, 20 * F - 1), 1e-5f);
  EXPECT_MATRIX3_NEAR(World(owner, 30 * F), at_start, 1e-5f);

  // The validity of each link is its own span.
  Matrix3 val;
  Interval valid = FOREVER;
  ASSERT_TRUE(link->Evaluate(15 * F, val, valid));
  EXPECT_EQ(valid, Interval(10 * F, 20 * F - 1));
  valid = FOREVER;
  ASSERT_TRUE(link->Evaluate(25 * F, val, valid));
  EXPECT_EQ(valid, Interval(20 * F, TIME_PosInfinity));
}

TEST_F(IKFKLinkTest, AWorldLinkHoldsTheMatrixOfItsStart) {
  INode* a = MovingNode("a", {0, 0, 0}, {100, 0, 0}, 1.0f);
  auto* link = new IKFKLink;
  EXPECT_EQ(link->AddWorld(0, false), 0);
  Matrix3 val = Pose(1.0f, {3, 3, 3});
  Interval valid = FOREVER;
  ASSERT_TRUE(link->Evaluate(50 * F, val, valid));
  EXPECT_MATRIX3_NEAR(val, Matrix3(), 0.0f) << "a world link alone is the identity";
  EXPECT_EQ(valid, FOREVER) << "the world never changes";

  ASSERT_TRUE(link->AddTarget(a, 10, false));
  EXPECT_EQ(link->AddWorld(30, false), 2);
  EXPECT_EQ(link->GetNode(2), nullptr);
  Interval ignored = FOREVER;
  ASSERT_TRUE(link->Evaluate(60 * F, val, ignored));
  EXPECT_MATRIX3_NEAR(val, link->LinkTM(1, 30 * F, ignored), 1e-4f)
      << "back in the world the owner stays where the target left it";
  link->DeleteMe();
}

TEST_F(IKFKLinkTest, TheValueIsTheNumberOfTheActiveLink) {
  auto* link = new IKFKLink;
  EXPECT_EQ(LinkValue(link, 0), 0.0f);
  link->AddWorld(5, false);
  EXPECT_EQ(LinkValue(link, 50 * F), 0.0f) << "one link: 0";
  link->AddWorld(15, false);
  link->AddWorld(25, false);
  EXPECT_EQ(LinkValue(link, 0), 0.0f) << "before the first start: link 0";
  EXPECT_EQ(LinkValue(link, 10 * F), 0.0f);
  EXPECT_EQ(LinkValue(link, 15 * F - 1), 0.0f);
  EXPECT_EQ(LinkValue(link, 15 * F), 1.0f);
  EXPECT_EQ(LinkValue(link, 24 * F), 1.0f);
  EXPECT_EQ(LinkValue(link, 90 * F), 2.0f);
  Interval valid = FOREVER;
  float v = 0.0f;
  link->GetValue(20 * F, &v, valid, CTRL_ABSOLUTE);
  EXPECT_EQ(valid, Interval(15 * F, 25 * F - 1));
  // Relative reads add the number.
  v = 10.0f;
  link->GetValue(20 * F, &v, valid, CTRL_RELATIVE);
  EXPECT_EQ(v, 11.0f);
  link->DeleteMe();
}

TEST_F(IKFKLinkTest, KeepTMKeepsTheOwnerWhenTheFirstLinkChanges) {
  INode* a = Node("a", Pose(0.4f, {10, 0, 0}));
  INode* b = Node("b", Pose(-1.2f, {0, 10, 0}));
  INode* owner = Owner("owner", Pose(0.1f, {0, 2, 0}));
  IKFKLink* link = LinkOf(owner);
  ASSERT_TRUE(link->AddTarget(a, 10, true));
  const Matrix3 home = World(owner, 10 * F);
  EXPECT_MATRIX3_NEAR(home, Pose(0.1f, {0, 2, 0}), 1e-5f) << "the first link keeps the owner";

  // A new link 0 before a: without keepTM the owner jumps onto b's frame ...
  ASSERT_TRUE(link->AddTarget(b, 0, false));
  EXPECT_FALSE(World(owner, 0).Equals(home, 1e-3f));
  ASSERT_TRUE(link->DeleteTarget(0, false));
  EXPECT_MATRIX3_NEAR(World(owner, 0), home, 1e-5f);
  // ... with it the owner stays.
  ASSERT_TRUE(link->AddTarget(b, 0, true));
  EXPECT_MATRIX3_NEAR(World(owner, 0), home, 1e-4f);
  EXPECT_MATRIX3_NEAR(World(owner, 10 * F), home, 1e-4f);
  // Deleting link 0 again keeps it too, now that a is the first link.
  ASSERT_TRUE(link->DeleteTarget(0, true));
  EXPECT_EQ(link->GetNode(0), a);
  EXPECT_MATRIX3_NEAR(World(owner, 0), home, 1e-4f);
}

TEST_F(IKFKLinkTest, DeletingTheMiddleLinkKeepsTheLaterLinks) {
  INode* a = Node("a", Pose(0.4f, {10, 0, 0}));
  INode* b = Node("b", Pose(-1.2f, {0, 10, 0}));
  INode* c = Node("c", Pose(2.0f, {0, 0, 10}));
  INode* owner = Owner("owner", Pose(0.1f, {0, 2, 0}));
  IKFKLink* link = LinkOf(owner);
  ASSERT_TRUE(link->AddTarget(a, 0));
  ASSERT_TRUE(link->AddTarget(b, 10));
  ASSERT_TRUE(link->AddTarget(c, 20));
  const Matrix3 later = World(owner, 30 * F);
  ASSERT_TRUE(link->DeleteTarget(1, true));
  ASSERT_EQ(link->GetNumTargets(), 2);
  EXPECT_EQ(link->GetNode(1), c);
  EXPECT_EQ(link->GetFrameNo(1), 20);
  EXPECT_MATRIX3_NEAR(World(owner, 30 * F), later, 1e-4f);
  EXPECT_MATRIX3_NEAR(World(owner, 15 * F), later, 1e-4f);
}

TEST_F(IKFKLinkTest, SetFrameNoKeepsTheOrderAndTheOwner) {
  INode* a = Node("a", Pose(0.4f, {10, 0, 0}));
  INode* b = Node("b", Pose(-1.2f, {0, 10, 0}));
  INode* c = Node("c", Pose(2.0f, {0, 0, 10}));
  INode* owner = Owner("owner", Pose(0.1f, {0, 2, 0}));
  IKFKLink* link = LinkOf(owner);
  ASSERT_TRUE(link->AddTarget(a, 0));
  ASSERT_TRUE(link->AddTarget(b, 10));
  ASSERT_TRUE(link->AddTarget(c, 20));
  link->SelectKeyByIndex(0, true);

  // a moves past b: b becomes link 0, a link 1, and the owner stays at a's new start.
  const Matrix3 at15 = World(owner, 15 * F);
  ASSERT_TRUE(link->SetFrameNo(0, 15));
  EXPECT_EQ(link->GetNode(0), b);
  EXPECT_EQ(link->GetNode(1), a);
  EXPECT_EQ(link->GetNode(2), c);
  EXPECT_EQ(link->GetFrameNo(0), 10);
  EXPECT_EQ(link->GetFrameNo(1), 15);
  EXPECT_TRUE(link->IsKeySelected(1)) << "the selection moves with its link";
  EXPECT_FALSE(link->IsKeySelected(0));
  EXPECT_MATRIX3_NEAR(World(owner, 15 * F), at15, 1e-4f);

  ASSERT_TRUE(link->SetFrameNo(2, -3));
  EXPECT_EQ(link->GetNode(0), c);
  EXPECT_EQ(link->GetFrameNo(0), -3);
}

TEST_F(IKFKLinkTest, BadIndicesAnswerTheFailureValuesAndChangeNothing) {
  INode* a = Node("a", Pose(0.4f, {10, 0, 0}));
  INode* owner = Owner("owner", Pose(0.1f, {0, 2, 0}));
  IKFKLink* link = LinkOf(owner);
  ASSERT_TRUE(link->AddTarget(a, 4));
  for (int bad : {-1, 1, 100}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(link->GetNode(bad), nullptr);
    EXPECT_EQ(link->GetFrameNo(bad), 0);
    EXPECT_FALSE(link->SetFrameNo(bad, 2));
    EXPECT_FALSE(link->DeleteTarget(bad));
    EXPECT_EQ(link->GetKeyTime(bad), 0);
    EXPECT_FALSE(link->IsKeySelected(bad));
  }
  EXPECT_FALSE(link->AddTarget(owner, 8)) << "the owner would depend on itself";
  EXPECT_EQ(link->GetNumTargets(), 1);
  EXPECT_EQ(link->GetFrameNo(0), 4);
  EXPECT_FALSE(theHold.Holding()) << "refusals leave no hold open";

  // Frames far out stay inside the time range instead of wrapping round.
  ASSERT_TRUE(link->AddTarget(nullptr, std::numeric_limits<int>::max(), false));
  EXPECT_GT(link->GetKeyTime(1), link->GetKeyTime(0));
  ASSERT_TRUE(link->AddTarget(nullptr, std::numeric_limits<int>::min(), false));
  EXPECT_LT(link->GetKeyTime(0), 0);
  EXPECT_EQ(link->GetNode(1), a);
}

TEST_F(IKFKLinkTest, ATargetScaledToNothingGivesNoNaN) {
  INode* flat = Node("flat", ScaleMatrix(Point3(0, 0, 0)));
  INode* owner = Owner("owner", Pose(0.1f, {0, 2, 0}));
  IKFKLink* link = LinkOf(owner);
  ASSERT_EQ(link->AddWorld(0), 0);
  ASSERT_TRUE(link->AddTarget(flat, 10));
  const Matrix3 w = World(owner, 20 * F);
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 3; ++c) EXPECT_TRUE(std::isfinite(w.GetRow(r)[c])) << r << "," << c;
  }
}

TEST_F(IKFKLinkTest, EvaluationAllocatesNothing) {
  INode* a = Node("a", Pose(0.4f, {10, 0, 0}));
  INode* b = Node("b", Pose(-1.2f, {0, 10, 0}));
  auto* link = new IKFKLink;
  link->AddTarget(a, 0, false);
  link->AddTarget(b, 10, false);
  link->AddWorld(20, false);
  Matrix3 val;
  float v = 0.0f;
  Interval iv = FOREVER;
  link->Evaluate(30 * F, val, iv);  // the nodes fill their caches first
  AllocationScope scope;
  for (TimeValue t : {-5 * F, 5 * F, 15 * F, 30 * F}) {
    iv = FOREVER;
    link->Evaluate(t, val, iv);
    link->GetValue(t, &v, iv, CTRL_ABSOLUTE);
  }
  EXPECT_EQ(scope.Count(), 0u);
  link->DeleteMe();
}

TEST_F(IKFKLinkTest, EveryChangeUndoesAndRedoes) {
  INode* a = Node("a", Pose(0.4f, {10, 0, 0}));
  INode* b = Node("b", Pose(-1.2f, {0, 10, 0}));
  INode* owner = Owner("owner", Pose(0.1f, {0, 2, 0}));
  IKFKLink* link = LinkOf(owner);
  struct Step {
    const char* name;
    std::function<void()> edit;
  };
  const Step steps[] = {
      {"add a", [&] { link->AddTarget(a, 10); }},   {"add b first", [&] { link->AddTarget(b, 0); }},
      {"add world", [&] { link->AddWorld(20); }},   {"move b", [&] { link->SetFrameNo(0, 15); }},
      {"delete a", [&] { link->DeleteTarget(0); }},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.name);
    const int count = link->GetNumTargets();
    const Matrix3 before = World(owner, 0);
    const int undo_count = theHold.UndoCount();
    step.edit();
    EXPECT_EQ(theHold.UndoCount(), undo_count + 1) << "one entry per change";
    const int after_count = link->GetNumTargets();
    const int after_frame = after_count ? link->GetFrameNo(0) : 0;
    const Matrix3 after = World(owner, 0);
    ASSERT_TRUE(theHold.Undo());
    EXPECT_EQ(link->GetNumTargets(), count);
    EXPECT_MATRIX3_NEAR(World(owner, 0), before, 1e-4f);
    EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
    ASSERT_TRUE(theHold.Redo());
    EXPECT_EQ(link->GetNumTargets(), after_count);
    if (after_count) {
      EXPECT_EQ(link->GetFrameNo(0), after_frame);
    }
    EXPECT_MATRIX3_NEAR(World(owner, 0), after, 1e-4f);
    EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  }
}

TEST_F(IKFKLinkTest, LinksAreTheKeys) {
  auto* link = new IKFKLink;
  INode* a = Node("a");
  INode* b = Node("b");
  INode* c = Node("c");
  EXPECT_EQ(link->GetTimeRange(TIMERANGE_ALL), NEVER);
  link->AddTarget(a, 0, false);
  link->AddTarget(b, 10, false);
  link->AddTarget(c, 20, false);
  EXPECT_EQ(link->NumKeys(), 3);
  EXPECT_EQ(link->GetKeyTime(1), 10 * F);
  EXPECT_EQ(link->GetKeyIndex(20 * F), 2);
  EXPECT_EQ(link->GetKeyIndex(21 * F), -1);
  EXPECT_EQ(link->GetTimeRange(TIMERANGE_ALL), Interval(0, 20 * F));
  TimeValue next = 0;
  ASSERT_TRUE(link->GetNextKeyTime(5 * F, NEXTKEY_RIGHT, next));
  EXPECT_EQ(next, 10 * F);
  ASSERT_TRUE(link->GetNextKeyTime(15 * F, NEXTKEY_LEFT, next));
  EXPECT_EQ(next, 10 * F);
  EXPECT_FALSE(link->GetNextKeyTime(20 * F, NEXTKEY_RIGHT, next));

  // Moving the selected first key past the others keeps each link with its target.
  TestTarget watcher(1);
  watcher.ReplaceReference(0, link);
  link->SelectKeyByIndex(0, true);
  EXPECT_EQ(watcher.Count(REFMSG_KEY_SELECTION_CHANGED), 1) << "key views redraw their marks";
  EXPECT_EQ(link->NumSelKeys(), 1);
  EXPECT_EQ(link->GetTimeRange(TIMERANGE_SELONLY), Interval(0, 0));
  struct Shift : TimeMap {
    TimeValue map(TimeValue t) override { return t + 15 * F; }
  } shift;
  Undoable("map", [&] { link->MapKeys(&shift, TRACK_DOSEL); });
  EXPECT_EQ(link->GetNode(0), b);
  EXPECT_EQ(link->GetNode(1), a);
  EXPECT_EQ(link->GetKeyTime(1), 15 * F);
  EXPECT_TRUE(link->IsKeySelected(1));
  theHold.Undo();
  EXPECT_EQ(link->GetNode(0), a);
  EXPECT_EQ(link->GetKeyTime(0), 0);

  Tab<TimeValue> times;
  EXPECT_EQ(link->GetKeyTimes(times, Interval(5 * F, 30 * F), 0), 2);
  link->DeleteKeys(TRACK_DOSEL);
  EXPECT_EQ(link->NumKeys(), 2);
  EXPECT_EQ(link->GetNode(0), b);
  link->DeleteKeyAtTime(20 * F);
  EXPECT_EQ(link->NumKeys(), 1);
  link->DeleteKeys(TRACK_DOALL);
  EXPECT_EQ(link->NumKeys(), 0);
  watcher.ReplaceReference(0, nullptr);
  link->DeleteMe();
}

TEST_F(IKFKLinkTest, SavesLoadsAndClones) {
  INode* a = MovingNode("a", {0, 0, 0}, {10, 0, 0});
  INode* owner = Owner("owner", Pose(0.1f, {0, 2, 0}));
  IKFKLink* link = LinkOf(owner);
  link->AddTarget(a, 0);
  link->AddWorld(12);
  link->SelectKeyByIndex(1, true);
  const Matrix3 at20 = World(owner, 20 * F);
  RoundTrip();

  // The loaded scene has the same links.
  INode* loaded = GetCOREInterface()->GetINodeByName("owner");
  ASSERT_NE(loaded, nullptr);
  auto* c = dynamic_cast<LinkedTransform*>(loaded->GetTMController());
  ASSERT_NE(c, nullptr);
  IKFKLink* back = c->Link();
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->GetNumTargets(), 2);
  EXPECT_EQ(back->GetNode(0), GetCOREInterface()->GetINodeByName("a"));
  EXPECT_EQ(back->GetFrameNo(1), 12);
  EXPECT_TRUE(back->IsKeySelected(1));
  EXPECT_MATRIX3_NEAR(World(loaded, 20 * F), at20, 1e-5f);

  RemapDir remap;
  auto* copy = static_cast<IKFKLink*>(remap.CloneRef(back));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->GetNumTargets(), 2);
  EXPECT_EQ(copy->GetNode(0), back->GetNode(0));
  EXPECT_NE(copy->GetParamBlockByID(kIKFKLinkParams), back->GetParamBlockByID(kIKFKLinkParams));
  copy->DeleteMe();
}

TEST_F(IKFKLinkTest, KeepNodeInPlaceMovesTheNodeUnderItsNewParent) {
  INode* n = Node("n", Pose(0.7f, {1, 2, 3}));
  const Matrix3 world = World(n, 0);
  const Matrix3 old_parent;  // the node sits under the root
  const Matrix3 new_parent = Pose(1.0f, {5, 0, 0});
  AnimateOn();
  KeepNodeInPlace(n, 0, old_parent, new_parent);
  EXPECT_TRUE(Animating()) << "animate mode comes back";
  AnimateOff();
  // The host's transform now holds the local transform that gives world under new_parent.
  Matrix3 under_new = new_parent;
  Interval iv = FOREVER;
  n->GetTMController()->GetValue(0, &under_new, iv, CTRL_RELATIVE);
  EXPECT_MATRIX3_NEAR(under_new, world, 1e-4f);
  KeepNodeInPlace(nullptr, 0, old_parent, new_parent);  // nothing to keep
}

}  // namespace
}  // namespace marvolith::test
