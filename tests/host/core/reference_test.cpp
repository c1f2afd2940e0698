// Copyright Marvolith contributors.
#include "host/core/reference.h"

#include <gtest/gtest.h>

#include "host/undo/hold.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {
namespace {

class ReferenceTest : public ::testing::Test {
 protected:
  void TearDown() override { theHold.Clear(); }
  SceneSweeper sweep;
};

TEST_F(ReferenceTest, MessagesTravelUpUnlessStopped) {
  // c -> b -> a: c references b, b references a.
  auto* a = new TestTarget;
  auto* b = new TestTarget;
  auto* c = sweep.Keep(new TestTarget);
  ASSERT_EQ(b->ReplaceReference(0, a), REF_SUCCEED);
  ASSERT_EQ(c->ReplaceReference(0, b), REF_SUCCEED);

  a->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  EXPECT_EQ(b->Count(REFMSG_CHANGE), 1);
  ASSERT_EQ(c->Count(REFMSG_CHANGE), 1);
  EXPECT_EQ(c->heard.back().from, b) << "the message arrives from the dependent that passed it on";

  b->stop = true;
  a->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  EXPECT_EQ(b->Count(REFMSG_CHANGE), 2);
  EXPECT_EQ(c->Count(REFMSG_CHANGE), 1) << "REF_STOP ends the branch";

  b->stop = false;
  const RefMessage kPrivate = REFMSG_USER + 0x1234;
  a->NotifyDependents(FOREVER, PART_ALL, kPrivate);
  EXPECT_EQ(c->Count(kPrivate), 1) << "private message numbers pass through untouched";

  a->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE, NOTIFY_ALL, /*propagate=*/false);
  EXPECT_EQ(b->Count(REFMSG_CHANGE), 3);
  EXPECT_EQ(c->Count(REFMSG_CHANGE), 1);
}

TEST_F(ReferenceTest, DependentsAreListedOncePerMaker) {
  auto* shared = new TestTarget;
  auto* m1 = sweep.Keep(new TestTarget);
  auto* m2 = sweep.Keep(new TestTarget);
  m1->ReplaceReference(0, shared);
  m1->ReplaceReference(1, shared);
  m2->ReplaceReference(0, shared);
  EXPECT_EQ(shared->NumDependents(), 2);
  DependentIterator it(shared);
  EXPECT_EQ(it.Next(), m1);
  EXPECT_EQ(it.Next(), m2);
  EXPECT_EQ(it.Next(), nullptr);

  shared->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  EXPECT_EQ(m1->Count(REFMSG_CHANGE), 1) << "a maker with two slots on one target hears once";

  m1->DeleteReference(0);
  EXPECT_EQ(shared->NumDependents(), 2) << "m1 still holds slot 1";
  m1->DeleteReference(1);
  EXPECT_EQ(shared->NumDependents(), 1);
}

TEST_F(ReferenceTest, DeletedTargetNotifiesAndLeavesDeadHandle) {
  auto* target = new TestTarget;
  auto* maker = sweep.Keep(new TestTarget);
  maker->ReplaceReference(1, target);
  const AnimHandle handle = Animatable::GetHandleByAnim(target);
  ASSERT_EQ(Animatable::GetAnimByHandle(handle), target);
  const int live = Animatable::LiveCount();

  target->DeleteMe();

  EXPECT_EQ(maker->Count(REFMSG_TARGET_DELETED), 1);
  EXPECT_EQ(maker->GetReference(1), nullptr);
  EXPECT_EQ(Animatable::GetAnimByHandle(handle), nullptr);
  EXPECT_EQ(Animatable::LiveCount(), live - 1);
  EXPECT_NE(Animatable::GetHandleByAnim(maker), handle) << "handles are never reused";
}

TEST_F(ReferenceTest, UnreferencedTargetsAreDeletedWithTheirSubtree) {
  auto* leaf = new TestTarget;
  auto* mid = new TestTarget;
  auto* root = sweep.Keep(new TestTarget);
  mid->ReplaceReference(0, leaf);
  root->ReplaceReference(0, mid);
  const AnimHandle mid_h = Animatable::GetHandleByAnim(mid);
  const AnimHandle leaf_h = Animatable::GetHandleByAnim(leaf);

  {
    SCOPED_TRACE("a target kept by another maker survives");
    auto* other = sweep.Keep(new TestTarget);
    other->ReplaceReference(0, leaf);
    root->DeleteReference(0);
    EXPECT_EQ(Animatable::GetAnimByHandle(mid_h), nullptr);
    EXPECT_EQ(Animatable::GetAnimByHandle(leaf_h), leaf);
    other->DeleteReference(0);
    EXPECT_EQ(Animatable::GetAnimByHandle(leaf_h), nullptr);
  }
  {
    SCOPED_TRACE("del_old false keeps the old target");
    auto* kept = new TestTarget;
    root->ReplaceReference(0, kept);
    root->ReplaceReference(0, nullptr, /*del_old=*/false);
    EXPECT_EQ(Animatable::GetAnimByHandle(Animatable::GetHandleByAnim(kept)), kept);
    kept->DeleteMe();
  }
}

TEST_F(ReferenceTest, DiamondsDeliverOneMessagePerMaker) {
  // k levels of two makers, each referencing both makers of the level below: 2^(k+1) - 2 paths
  // lead from the bottom to the top, but each maker must hear a change once.
  constexpr int kLevels = 16;
  auto* bottom = new TestTarget;
  std::vector<TestTarget*> below{bottom};
  std::vector<TestTarget*> all;
  for (int level = 0; level < kLevels; ++level) {
    std::vector<TestTarget*> here;
    for (int i = 0; i < 2; ++i) {
      auto* m = new TestTarget;
      for (size_t s = 0; s < below.size(); ++s) m->ReplaceReference(static_cast<int>(s), below[s]);
      here.push_back(m);
      all.push_back(m);
    }
    below = here;
  }
  for (TestTarget* top : below) sweep.Keep(top);
  for (TestTarget* m : all) m->heard.clear();

  bottom->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  size_t delivered = 0;
  for (TestTarget* m : all) {
    EXPECT_EQ(m->Count(REFMSG_CHANGE), 1);
    delivered += m->heard.size();
  }
  EXPECT_EQ(delivered, size_t(2 * kLevels));

  // Each call is a broadcast of its own.
  bottom->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  EXPECT_EQ(below[0]->Count(REFMSG_CHANGE), 2);

  {
    RefMsgsSuspend quiet;
    bottom->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
    {
      RefMsgsSuspend nested;
    }
    bottom->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  }
  EXPECT_EQ(below[0]->Count(REFMSG_CHANGE), 2) << "nothing travels while messages are disabled";
  EXPECT_FALSE(RefMsgsDisabled());
}

TEST_F(ReferenceTest, SlotChangesReachTheDependentsForwardUndoneAndRedone) {
  auto* maker = new TestTarget;
  auto* user = sweep.Keep(new TestTarget);
  user->ReplaceReference(0, maker);
  auto* part = new TestTarget;
  theHold.Begin();
  maker->ReplaceReference(0, part);
  theHold.Accept("Assign");
  EXPECT_EQ(user->Count(REFMSG_CHANGE), 1);
  EXPECT_EQ(user->Count(REFMSG_SUBANIM_STRUCTURE_CHANGED), 1);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(user->Count(REFMSG_CHANGE), 2) << "the undone slot change is told";
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(user->Count(REFMSG_CHANGE), 3) << "and the redone one";
}

TEST_F(ReferenceTest, LoopsAreFoundAndRefused) {
  auto* a = sweep.Keep(new TestTarget);
  auto* b = new TestTarget;
  auto* c = new TestTarget;
  a->ReplaceReference(0, b);
  b->ReplaceReference(0, c);

  EXPECT_EQ(a->TestForLoop(FOREVER, c), REF_FAIL) << "c referencing a would close a -> b -> c";
  EXPECT_EQ(c->TestForLoop(FOREVER, a), REF_SUCCEED);
  EXPECT_EQ(a->TestForLoop(FOREVER, a), REF_FAIL);
  EXPECT_EQ(c->ReplaceReference(0, a), REF_FAIL);
  EXPECT_EQ(c->GetReference(0), nullptr);
  EXPECT_EQ(a->ReplaceReference(1, a), REF_FAIL);
  EXPECT_EQ(a->ReplaceReference(5, c), REF_FAIL) << "bad slot";
  EXPECT_EQ(a->ReplaceReference(1, c), REF_SUCCEED) << "a diamond is not a loop";
}

TEST_F(ReferenceTest, ReferenceChangesUndoAndRedo) {
  auto* first = new TestTarget;
  auto* maker = sweep.Keep(new TestTarget);
  maker->ReplaceReference(0, first);
  const AnimHandle first_h = Animatable::GetHandleByAnim(first);
  auto* second = new TestTarget;
  const AnimHandle second_h = Animatable::GetHandleByAnim(second);

  theHold.Begin();
  maker->ReplaceReference(0, second);
  theHold.Accept("Replace");
  ASSERT_EQ(maker->GetReference(0), second);
  EXPECT_EQ(Animatable::GetAnimByHandle(first_h), first) << "kept alive for undo";
  EXPECT_EQ(first->NumDependents(), 0);

  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(maker->GetReference(0), first);
  EXPECT_EQ(first->NumDependents(), 1);
  EXPECT_EQ(second->NumDependents(), 0);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(maker->GetReference(0), second);

  theHold.Clear();
  EXPECT_EQ(Animatable::GetAnimByHandle(first_h), nullptr) << "freed once undo lets go";
  EXPECT_EQ(Animatable::GetAnimByHandle(second_h), second);
}

TEST_F(ReferenceTest, DeletionUndoesWithItsReferences) {
  auto* child = new TestTarget;
  auto* target = new TestTarget;
  auto* maker = sweep.Keep(new TestTarget);
  target->ReplaceReference(0, child);
  maker->ReplaceReference(0, target);
  const AnimHandle target_h = Animatable::GetHandleByAnim(target);
  const AnimHandle child_h = Animatable::GetHandleByAnim(child);
  const int live = Animatable::LiveCount();

  theHold.Begin();
  target->DeleteMe();
  theHold.Accept("Delete");
  EXPECT_EQ(Animatable::GetAnimByHandle(target_h), nullptr);
  EXPECT_EQ(maker->GetReference(0), nullptr);
  EXPECT_EQ(Animatable::LiveCount(), live) << "memory is kept while undo can bring it back";

  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(Animatable::GetAnimByHandle(target_h), target);
  EXPECT_EQ(maker->GetReference(0), target);
  EXPECT_EQ(target->GetReference(0), child);
  EXPECT_EQ(Animatable::GetAnimByHandle(child_h), child);

  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(Animatable::GetAnimByHandle(target_h), nullptr);
  theHold.Clear();
  EXPECT_EQ(Animatable::LiveCount(), live - 2) << "target and its child are freed";
}

TEST_F(ReferenceTest, CloneSharesOneCopyOfSharedTargets) {
  struct CountingProc : PostPatchProc {
    int* runs;
    explicit CountingProc(int* r) : runs(r) {}
    int Proc(RemapDir&) override { return ++*runs; }
  };
  auto* shared = new TestTarget;
  shared->value = 7;
  auto* original = sweep.Keep(new TestTarget);
  original->ReplaceReference(0, shared);
  original->ReplaceReference(1, shared);

  RemapDir remap;
  int runs = 0;
  remap.AddPostPatchProc(new CountingProc(&runs), true);
  RefTargetHandle patched = nullptr;
  remap.PatchPointer(&patched, shared);
  auto* copy = sweep.Keep(static_cast<TestTarget*>(remap.CloneRef(original)));
  remap.Backpatch();

  ASSERT_NE(copy, original);
  auto* shared_copy = static_cast<TestTarget*>(copy->GetReference(0));
  EXPECT_NE(shared_copy, shared);
  EXPECT_EQ(copy->GetReference(1), shared_copy);
  EXPECT_EQ(shared_copy->value, 7);
  EXPECT_EQ(patched, shared_copy) << "pointers are patched to the clone";
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(remap.CloneRef(nullptr), nullptr);
}

}  // namespace
}  // namespace marvolith::test
