// Copyright Marvolith contributors.
#include "host/undo/hold.h"

#include <gtest/gtest.h>

#include "support/hold_record.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {
namespace {

// An object whose value changes follow the one-record-per-hold idiom.
class Counter : public TestTarget {
 public:
  void Set(int v);
  int records_made = 0;
};

class CounterRestore : public RestoreObj {
 public:
  explicit CounterRestore(Counter* c) : handle_(Animatable::GetHandleByAnim(c)), before_(c->value) {}
  void Restore(int is_undo) override {
    auto* c = static_cast<Counter*>(Animatable::GetAnimByHandle(handle_));
    if (!c) return;
    if (is_undo) after_ = c->value;
    restoring_seen = theHold.Restoring() && IsUndoingOrRedoing();
    c->value = before_;
  }
  void Redo() override {
    auto* c = static_cast<Counter*>(Animatable::GetAnimByHandle(handle_));
    if (!c) return;
    redoing_seen = theHold.Redoing() && IsUndoingOrRedoing();
    c->value = after_;
  }
  void EndHold() override {
    if (auto* c = Animatable::GetAnimByHandle(handle_)) c->ClearAFlag(A_HELD);
  }
  static inline bool restoring_seen = false;
  static inline bool redoing_seen = false;

 private:
  AnimHandle handle_;
  int before_;
  int after_ = 0;
};

void Counter::Set(int v) {
  if (HoldWantsRecord(this)) {
    theHold.Put(new CounterRestore(this));
    ++records_made;
  }
  value = v;
}

class HoldTest : public ::testing::Test {
 protected:
  void TearDown() override { theHold.Clear(); }
  SceneSweeper sweep;
  Counter* counter = sweep.Keep(new Counter);
};

TEST_F(HoldTest, OneRecordPerHoldAndExactUndoRedo) {
  counter->Set(1);
  EXPECT_EQ(counter->records_made, 0) << "no hold, no record";

  theHold.Begin();
  counter->Set(2);
  counter->Set(3);
  theHold.Accept("Change");
  EXPECT_EQ(counter->records_made, 1);
  EXPECT_FALSE(counter->TestAFlag(A_HELD)) << "EndHold clears the flag";
  EXPECT_EQ(theHold.UndoName(), "Change");

  theHold.Begin();
  counter->Set(4);
  theHold.Accept("Again");
  EXPECT_EQ(counter->records_made, 2) << "the next hold records again";

  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(counter->value, 3);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(counter->value, 1);
  EXPECT_TRUE(CounterRestore::restoring_seen);
  EXPECT_FALSE(theHold.Undo());
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(counter->value, 3);
  EXPECT_TRUE(CounterRestore::redoing_seen);
  EXPECT_FALSE(IsUndoingOrRedoing());
  EXPECT_EQ(theHold.RedoName(), "Again");

  theHold.Begin();
  counter->Set(9);
  theHold.Accept("New branch");
  EXPECT_EQ(theHold.RedoCount(), 0) << "a new entry drops the redo stack";
  EXPECT_FALSE(theHold.Redo());
}

TEST_F(HoldTest, CancelledHoldChangesNothing) {
  counter->Set(5);
  theHold.Begin();
  counter->Set(6);
  theHold.Cancel();
  EXPECT_EQ(counter->value, 5);
  EXPECT_EQ(theHold.UndoCount(), 0);
  EXPECT_FALSE(counter->TestAFlag(A_HELD));

  theHold.Begin();
  theHold.Accept("Nothing");
  EXPECT_EQ(theHold.UndoCount(), 0) << "an empty hold leaves no entry";
}

TEST_F(HoldTest, NestedHoldsMakeOneEntry) {
  auto* other = sweep.Keep(new Counter);
  theHold.Begin();
  counter->Set(1);
  theHold.Begin();
  other->Set(2);
  theHold.Cancel();
  EXPECT_EQ(other->value, 0) << "the inner cancel restores only what the inner hold made";
  EXPECT_EQ(counter->value, 1);
  theHold.Begin();
  other->Set(3);
  theHold.Accept("Inner");
  EXPECT_TRUE(theHold.Holding());
  theHold.Accept("Outer");
  ASSERT_EQ(theHold.UndoCount(), 1);
  EXPECT_EQ(theHold.UndoName(), "Outer");
  theHold.Undo();
  EXPECT_EQ(counter->value, 0);
  EXPECT_EQ(other->value, 0);
}

TEST_F(HoldTest, InnerCancelRestoresWhatTheOuterLevelRecordedFirst) {
  theHold.Begin();
  counter->Set(1);  // the outer level records the object
  theHold.Begin();
  counter->Set(2);
  theHold.Cancel();
  EXPECT_EQ(counter->value, 1) << "the inner cancel goes back to where the inner level began";
  theHold.Begin();
  counter->Set(3);
  theHold.Accept("Inner");
  theHold.Accept("Outer");
  theHold.Undo();
  EXPECT_EQ(counter->value, 0);
  theHold.Redo();
  EXPECT_EQ(counter->value, 3);
}

TEST_F(HoldTest, CapturedRecordsStayWithTheirCaller) {
  // A record that acts while undoing keeps the records of its own action.
  theHold.BeginCapture();
  EXPECT_TRUE(theHold.Holding()) << "a capture records even without an open hold";
  counter->Set(5);
  theHold.Suspend();
  EXPECT_FALSE(theHold.Holding()) << "suspending inside a capture still suspends";
  theHold.Resume();
  auto records = theHold.EndCapture();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_FALSE(counter->TestAFlag(A_HELD)) << "EndCapture ends the records' hold";
  EXPECT_EQ(theHold.UndoCount(), 0) << "nothing reached the undo stack";
  records[0]->Restore(0);
  EXPECT_EQ(counter->value, 0);
}

TEST_F(HoldTest, SuspendNestsAndDropsRecords) {
  theHold.Begin();
  theHold.Suspend();
  theHold.Suspend();
  theHold.Resume();
  EXPECT_TRUE(theHold.IsSuspended());
  EXPECT_FALSE(theHold.Holding());
  counter->Set(1);
  theHold.Resume();
  EXPECT_FALSE(theHold.IsSuspended());
  EXPECT_TRUE(theHold.Holding());
  {
    HoldSuspend guard;
    counter->Set(2);
  }
  theHold.Accept("Suspended");
  EXPECT_EQ(counter->records_made, 0);
  EXPECT_EQ(theHold.UndoCount(), 0);
}

TEST_F(HoldTest, RestoreKeepsTheHoldOpenForDrags) {
  theHold.Begin();
  for (int move = 1; move <= 3; ++move) {
    theHold.Restore();
    EXPECT_EQ(counter->value, 0) << "each move starts from the state at Begin";
    counter->Set(move * 10);
  }
  theHold.Accept("Drag");
  EXPECT_EQ(counter->value, 30);
  EXPECT_EQ(counter->records_made, 3);
  theHold.Undo();
  EXPECT_EQ(counter->value, 0);
}

TEST_F(HoldTest, UndoLevelsDropTheOldest) {
  theHold.SetMaxLevels(2);
  for (int v = 1; v <= 3; ++v) {
    theHold.Begin();
    counter->Set(v);
    theHold.Accept("Step " + std::to_string(v));
  }
  EXPECT_EQ(theHold.UndoCount(), 2);
  EXPECT_EQ(theHold.UndoName(1), "Step 2");
  theHold.SetMaxLevels(100);
}

}  // namespace
}  // namespace marvolith::test
