// Copyright Marvolith contributors.
#include "host/scene/core_interface.h"

#include <gtest/gtest.h>

#include <vector>

#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {
namespace {

class CoreInterfaceTest : public ::testing::Test {
 protected:
  void SetUp() override { GetCOREInterface()->Reset(); }
  void TearDown() override {
    GetCOREInterface()->Reset();
    theHold.Clear();
  }
};

std::vector<int> g_calls;
void Record(void* param, NotifyInfo* info) {
  g_calls.push_back(*static_cast<int*>(param) * 1000 + info->intcode);
}
void UnregisterSelf(void* param, NotifyInfo* info) {
  g_calls.push_back(-1);
  UnRegisterNotification(&UnregisterSelf, param, info->intcode);
}

TEST_F(CoreInterfaceTest, NotificationsReachTheirCodeOnly) {
  g_calls.clear();
  int a = 1, b = 2;
  ASSERT_TRUE(RegisterNotification(&Record, &a, NOTIFY_SYSTEM_STARTUP));
  EXPECT_FALSE(RegisterNotification(&Record, &a, NOTIFY_SYSTEM_STARTUP)) << "no duplicates";
  ASSERT_TRUE(RegisterNotification(&Record, &b, NOTIFY_SYSTEM_SHUTDOWN));
  ASSERT_TRUE(RegisterNotification(&UnregisterSelf, nullptr, NOTIFY_SYSTEM_STARTUP));

  BroadcastNotification(NOTIFY_SYSTEM_STARTUP);
  BroadcastNotification(NOTIFY_SYSTEM_STARTUP);
  BroadcastNotification(NOTIFY_SYSTEM_SHUTDOWN);
  EXPECT_EQ(g_calls, (std::vector<int>{1000 + 0x50, -1, 1000 + 0x50, 2000 + 0x49}));

  EXPECT_TRUE(UnRegisterNotification(&Record, &a, NOTIFY_SYSTEM_STARTUP));
  EXPECT_FALSE(UnRegisterNotification(&Record, &a, NOTIFY_SYSTEM_STARTUP));
  EXPECT_TRUE(UnRegisterNotification(&Record, &b, NOTIFY_SYSTEM_SHUTDOWN));
}

TEST_F(CoreInterfaceTest, TimeFramesAndCallbacks) {
  Interface* ip = GetCOREInterface();
  EXPECT_EQ(ip->GetTicksPerFrame(), 160);
  struct Seen : TimeChangeCallback {
    std::vector<TimeValue> times;
    void TimeChanged(TimeValue t) override { times.push_back(t); }
  } seen;
  ip->RegisterTimeChangeCallback(&seen);
  ip->SetTime(320);
  ip->SetTime(320);
  ip->UnRegisterTimeChangeCallback(&seen);
  ip->SetTime(480);
  EXPECT_EQ(seen.times, std::vector<TimeValue>{320}) << "told once, only while registered";

  EXPECT_TRUE(ip->SetFrameRate(25));
  EXPECT_EQ(ip->GetTicksPerFrame(), 192);
  EXPECT_FALSE(ip->SetFrameRate(7)) << "7 does not divide 4800";
  EXPECT_FALSE(ip->SetFrameRate(0));
  EXPECT_EQ(ip->GetTicksPerFrame(), 192);
  EXPECT_FALSE(ip->SetAnimRange(Interval(100, 0)));
}

TEST_F(CoreInterfaceTest, AnimateSuspendNests) {
  AnimateOn();
  EXPECT_TRUE(Animating());
  {
    AnimateSuspend outer;
    AnimateSuspend inner;
    EXPECT_FALSE(Animating());
  }
  EXPECT_TRUE(Animating());
  AnimateOff();
  EXPECT_FALSE(Animating());
}

TEST_F(CoreInterfaceTest, SelectionIsUndoableAndForgetsDeletedNodes) {
  Interface* ip = GetCOREInterface();
  INode* a = ip->CreateObjectNode(nullptr);
  INode* b = ip->CreateObjectNode(nullptr);
  ip->SelectNode(a);
  theHold.Begin();
  ip->SelectNode(b, /*clear_sel=*/false);
  theHold.Accept("Select");
  ASSERT_EQ(ip->GetSelNodeCount(), 2);
  EXPECT_EQ(ip->GetSelNode(1), b);

  theHold.Undo();
  EXPECT_EQ(ip->GetSelNodeCount(), 1);
  EXPECT_FALSE(ip->IsSelected(b));
  theHold.Redo();
  EXPECT_TRUE(ip->IsSelected(b));

  a->DeleteMe();
  EXPECT_EQ(ip->GetSelNodeCount(), 1);
  EXPECT_EQ(ip->GetSelNode(0), b);
  EXPECT_EQ(ip->GetSelNode(1), nullptr);
  b->DeleteMe();
  EXPECT_EQ(ip->GetSelNodeCount(), 0);
}

}  // namespace
}  // namespace marvolith::test
