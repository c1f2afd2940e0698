// Copyright Marvolith contributors.
#include "chains/ikfk_link.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "host/params/iparamb2.h"
#include "tests/chains/ikfk_link_fixture.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/chunk_bytes.h"
#include "tests/support/controller_test_util.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {
namespace {

constexpr TimeValue F = kFrame;

TEST_F(IKFKLinkTest, EmptyOrUnevenBlocksLeaveTheMatrixAlone) {
  auto* link = new IKFKLink;
  INode* a = Node("a", Pose(0.3f, {1, 2, 3}));
  const Matrix3 before = Pose(-1.0f, {7, 8, 9});
  Matrix3 val = before;
  Interval valid = FOREVER;
  EXPECT_FALSE(link->Evaluate(0, val, valid));
  // A target without a start time: nothing is evaluated, counted or edited.
  link->GetParamBlockByID(kIKFKLinkParams)->Append(kLinkTargets, 1, &a);
  EXPECT_FALSE(link->Evaluate(0, val, valid));
  EXPECT_TRUE(val.Equals(before, 0.0f));
  EXPECT_EQ(valid, FOREVER);
  EXPECT_EQ(link->NumKeys(), 0);
  EXPECT_EQ(link->GetNode(0), nullptr);
  EXPECT_FALSE(link->AddTarget(a, 5));
  link->DeleteMe();
}

TEST_F(IKFKLinkTest, StillTargetsHoldTheOwnerAcrossEverySwitch) {
  INode* a = Node("a", Pose(0.4f, {10, 0, 0}));
  INode* b = Node("b", Pose(-1.2f, {0, 10, 0}));
  INode* owner = Owner(Pose(0.1f, {0, 2, 0}));
  IKFKLink* link = LinkOf(owner);
  ASSERT_TRUE(link->AddTarget(b, 10, false));
  EXPECT_MATRIX3_NEAR(World(owner, 0), Pose(0.1f, {0, 2, 0}) * b->GetNodeTM(0), 1e-5f)
      << "before its start link 0 applies without offset";
  const Matrix3 home = World(owner, 0);
  ASSERT_TRUE(link->AddTarget(a, 20, false));
  EXPECT_EQ(link->AddWorld(30, false), 2);
  EXPECT_EQ(link->GetNode(2), nullptr);
  for (TimeValue t : {20 * F - 1, 20 * F, 30 * F, 90 * F}) {
    EXPECT_MATRIX3_NEAR(World(owner, t), home, 1e-5f) << "at " << t;
  }
  // Each link is valid over its own span; the world link never changes.
  Matrix3 val;
  Interval valid = FOREVER;
  ASSERT_TRUE(link->Evaluate(25 * F, val, valid));
  EXPECT_EQ(valid, Interval(20 * F, 30 * F - 1));
  valid = FOREVER;
  ASSERT_TRUE(link->Evaluate(50 * F, val, valid));
  EXPECT_EQ(valid, Interval(30 * F, TIME_PosInfinity));
}

TEST_F(IKFKLinkTest, MovingTargetsNeverMakeTheOwnerJump) {
  INode* a = MovingNode("a", {0, 0, 0}, {50, 0, 0}, 1.0f);
  INode* b = MovingNode("b", {0, 10, 0}, {0, -30, 20}, -2.0f);
  INode* c = MovingNode("c", {5, 5, 5}, {-40, 0, 0}, 0.5f);
  INode* owner = Owner(Pose(0.2f, {1, 0, 0}));
  IKFKLink* link = LinkOf(owner);
  for (auto [node, frame] : {std::pair{a, 0}, {b, 10}, {c, 20}})
    link->AddTarget(node, frame, false);
  for (int k = 1; k < 3; ++k) {
    const TimeValue s = link->GetKeyTime(k);
    Interval ignored = FOREVER;
    Matrix3 at_switch;
    ASSERT_TRUE(link->Evaluate(s, at_switch, ignored));
    EXPECT_MATRIX3_NEAR(at_switch, link->LinkTM(k - 1, s, ignored), 1e-4f) << k;
    EXPECT_MATRIX3_NEAR(World(owner, s), World(owner, s - 1), 1e-2f) << "a tick's motion";
  }
  // After its switch the owner rides on c rigidly.
  EXPECT_MATRIX3_NEAR(World(owner, 40 * F) * Inverse(c->GetNodeTM(40 * F)),
                      World(owner, 20 * F) * Inverse(c->GetNodeTM(20 * F)), 1e-3f);
}

TEST_F(IKFKLinkTest, TheValueIsTheNumberOfTheActiveLink) {
  auto* link = new IKFKLink;
  auto value = [link](TimeValue t, Interval* valid = nullptr) {
    float v = 0.5f;
    Interval iv = FOREVER;
    link->GetValue(t, &v, valid ? *valid : iv, CTRL_ABSOLUTE);
    return v;
  };
  link->AddWorld(5, false);
  EXPECT_EQ(value(50 * F), 0.0f) << "one link";
  link->AddWorld(15, false);
  link->AddWorld(25, false);
  EXPECT_EQ(value(0), 0.0f) << "before the first start";
  EXPECT_EQ(value(15 * F - 1), 0.0f);
  EXPECT_EQ(value(15 * F), 1.0f);
  EXPECT_EQ(value(90 * F), 2.0f);
  Interval valid = FOREVER;
  value(20 * F, &valid);
  EXPECT_EQ(valid, Interval(15 * F, 25 * F - 1));
  link->DeleteMe();
}

TEST_F(IKFKLinkTest, EditsWithKeepTMLeaveTheOwnerInPlace) {
  INode* a = Node("a", Pose(0.4f, {10, 0, 0}));
  INode* b = Node("b", Pose(-1.2f, {0, 10, 0}));
  INode* c = Node("c", Pose(2.0f, {0, 0, 10}));
  INode* owner = Owner(Pose(0.1f, {0, 2, 0}));
  IKFKLink* link = LinkOf(owner);
  AnimateOn();
  ASSERT_TRUE(link->AddTarget(a, 10));
  EXPECT_TRUE(Animating()) << "animate mode comes back after the fix-up";
  AnimateOff();
  const Matrix3 home = Pose(0.1f, {0, 2, 0});
  EXPECT_MATRIX3_NEAR(World(owner, 10 * F), home, 1e-5f);

  // A new first link: without keepTM the owner jumps onto b's frame, with it it stays.
  ASSERT_TRUE(link->AddTarget(b, 0, false));
  EXPECT_FALSE(World(owner, 0).Equals(home, 1e-3f));
  ASSERT_TRUE(link->DeleteTarget(0, false));
  ASSERT_TRUE(link->AddTarget(b, 0));
  EXPECT_MATRIX3_NEAR(World(owner, 0), home, 1e-4f);
  EXPECT_MATRIX3_NEAR(World(owner, 10 * F), home, 1e-4f);

  // b 0, a 10, c 20: moving b past a re-sorts the links, with b's key selection.
  ASSERT_TRUE(link->AddTarget(c, 20));
  link->SelectKeyByIndex(0, true);
  ASSERT_TRUE(link->SetFrameNo(0, 15));
  EXPECT_EQ(link->GetNode(0), a);
  EXPECT_EQ(link->GetNode(1), b);
  EXPECT_EQ(link->GetFrameNo(1), 15);
  EXPECT_TRUE(link->IsKeySelected(1) && !link->IsKeySelected(0));
  EXPECT_MATRIX3_NEAR(World(owner, 15 * F), home, 1e-4f);
  ASSERT_TRUE(link->SetFrameNo(2, -3));
  EXPECT_EQ(link->GetNode(0), c);
  EXPECT_EQ(link->GetFrameNo(0), -3);

  // Deleting a middle link keeps the later ones where they were.
  const Matrix3 later = World(owner, 30 * F);
  ASSERT_TRUE(link->DeleteTarget(1));
  EXPECT_EQ(link->GetNumTargets(), 2);
  EXPECT_MATRIX3_NEAR(World(owner, 30 * F), later, 1e-4f);
}

TEST_F(IKFKLinkTest, BadInputAnswersTheFailureValues) {
  INode* a = Node("a", Pose(0.4f, {10, 0, 0}));
  INode* owner = Owner(Pose(0.1f, {0, 2, 0}));
  IKFKLink* link = LinkOf(owner);
  ASSERT_TRUE(link->AddTarget(a, 4));
  for (int bad : {-1, 1}) {
    EXPECT_EQ(link->GetNode(bad), nullptr);
    EXPECT_EQ(link->GetFrameNo(bad), 0);
    EXPECT_FALSE(link->SetFrameNo(bad, 2));
    EXPECT_FALSE(link->DeleteTarget(bad));
  }
  EXPECT_FALSE(link->AddTarget(owner, 8)) << "the owner would depend on itself";
  EXPECT_EQ(link->GetNumTargets(), 1);
  EXPECT_FALSE(theHold.Holding());
  // Frames far out stay inside the time range instead of wrapping round.
  ASSERT_TRUE(link->AddTarget(nullptr, std::numeric_limits<int>::max(), false));
  ASSERT_TRUE(link->AddTarget(nullptr, std::numeric_limits<int>::min(), false));
  EXPECT_LT(link->GetKeyTime(0), 0);
  EXPECT_EQ(link->GetNode(1), a);
  EXPECT_GT(link->GetKeyTime(2), 0);
}

TEST_F(IKFKLinkTest, EveryChangeUndoesAndRedoes) {
  INode* a = Node("a", Pose(0.4f, {10, 0, 0}));
  INode* b = Node("b", Pose(-1.2f, {0, 10, 0}));
  INode* owner = Owner(Pose(0.1f, {0, 2, 0}));
  IKFKLink* link = LinkOf(owner);
  const std::function<void()> edits[] = {
      [&] { link->AddTarget(a, 10); },  [&] { link->AddTarget(b, 0); }, [&] { link->AddWorld(20); },
      [&] { link->SetFrameNo(0, 15); }, [&] { link->DeleteTarget(0); },
  };
  for (const auto& edit : edits) {
    const int count = link->GetNumTargets(), undo_count = theHold.UndoCount();
    const Matrix3 before = World(owner, 0);
    edit();
    EXPECT_EQ(theHold.UndoCount(), undo_count + 1) << "one entry per change";
    const int after_count = link->GetNumTargets(), after_frame = link->GetFrameNo(0);
    const Matrix3 after = World(owner, 0);
    ASSERT_TRUE(theHold.Undo());
    EXPECT_EQ(link->GetNumTargets(), count);
    EXPECT_MATRIX3_NEAR(World(owner, 0), before, 1e-4f);
    EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
    ASSERT_TRUE(theHold.Redo());
    EXPECT_EQ(link->GetNumTargets(), after_count);
    EXPECT_EQ(link->GetFrameNo(0), after_frame);
    EXPECT_MATRIX3_NEAR(World(owner, 0), after, 1e-4f);
    EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  }
}

TEST_F(IKFKLinkTest, LinksAreTheKeys) {
  auto* link = new IKFKLink;
  INode* a = Node("a");
  INode* b = Node("b");
  for (auto [node, frame] : {std::pair{a, 0}, {b, 10}, {nullptr, 20}}) {
    link->AddTarget(node, frame, false);
  }
  EXPECT_EQ(link->GetKeyIndex(20 * F), 2);
  EXPECT_EQ(link->GetTimeRange(TIMERANGE_ALL), Interval(0, 20 * F));
  TimeValue next = 0;
  ASSERT_TRUE(link->GetNextKeyTime(15 * F, NEXTKEY_LEFT, next));
  EXPECT_EQ(next, 10 * F);

  // Moving the selected first key past the others keeps each link with its target.
  TestTarget watcher(1);
  watcher.ReplaceReference(0, link);
  link->SelectKeyByIndex(0, true);
  EXPECT_EQ(watcher.Count(REFMSG_KEY_SELECTION_CHANGED), 1) << "key views redraw their marks";
  EXPECT_EQ(link->GetTimeRange(TIMERANGE_SELONLY), Interval(0, 0));
  struct Shift : TimeMap {
    TimeValue map(TimeValue t) override { return t + 15 * F; }
  } shift;
  link->MapKeys(&shift, TRACK_DOSEL);
  EXPECT_EQ(link->GetNode(0), b);
  EXPECT_EQ(link->GetNode(1), a);
  EXPECT_EQ(link->GetKeyTime(1), 15 * F);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(link->GetNode(0), a);

  link->DeleteKeys(TRACK_DOSEL);
  EXPECT_EQ(link->GetNode(0), b);
  link->DeleteKeys(TRACK_DOALL);
  EXPECT_EQ(link->NumKeys(), 0);
  link->DeleteMe();
}

TEST_F(IKFKLinkTest, SavesLoadsAndClones) {
  INode* owner = Owner(Pose(0.1f, {0, 2, 0}));
  LinkOf(owner)->AddTarget(MovingNode("a", {0, 0, 0}, {10, 0, 0}, 1.0f), 0);
  LinkOf(owner)->AddWorld(12);
  LinkOf(owner)->SelectKeyByIndex(1, true);
  const Matrix3 at20 = World(owner, 20 * F);
  RoundTrip();
  INode* loaded = GetCOREInterface()->GetINodeByName("owner");
  IKFKLink* back = LinkOf(loaded);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->GetNode(0), GetCOREInterface()->GetINodeByName("a"));
  EXPECT_TRUE(back->IsKeySelected(1));
  EXPECT_MATRIX3_NEAR(World(loaded, 20 * F), at20, 1e-5f);

  RemapDir remap;
  auto* copy = static_cast<IKFKLink*>(remap.CloneRef(back));
  EXPECT_EQ(copy->GetFrameNo(1), 12);
  EXPECT_NE(copy->GetParamBlockByID(kIKFKLinkParams), back->GetParamBlockByID(kIKFKLinkParams));
  copy->DeleteMe();

  // Chunks of a later version are skipped.
  const Bytes unknown = ContainerChunk(1, {DataChunk(0x7777, Bytes{1, 2, 3})});
  for (ClassDesc2* cd : {GetIKFKLinkDesc(), GetIKFKDisplayModDesc()}) {
    auto* fresh = static_cast<ReferenceTarget*>(cd->Create(true));
    EXPECT_EQ(LoadBytes(fresh, unknown), IO_OK) << cd->ClassName();
    fresh->DeleteMe();
  }
}

TEST_F(IKFKLinkTest, EvaluationAllocatesNothing) {
  auto* link = new IKFKLink;
  link->AddTarget(Node("a", Pose(0.4f, {10, 0, 0})), 0, false);
  link->AddTarget(Node("b", Pose(-1.2f, {0, 10, 0})), 10, false);
  link->AddWorld(20, false);
  Matrix3 val;
  float v = 0.0f;
  Interval iv = FOREVER;
  link->Evaluate(30 * F, val, iv);  // the nodes fill their caches first
  AllocationScope scope;
  for (TimeValue t : {-5 * F, 5 * F, 15 * F, 30 * F}) {
    link->Evaluate(t, val, iv);
    link->GetValue(t, &v, iv, CTRL_ABSOLUTE);
  }
  EXPECT_EQ(scope.Count(), 0u);
  link->DeleteMe();
}

}  // namespace
}  // namespace marvolith::test
