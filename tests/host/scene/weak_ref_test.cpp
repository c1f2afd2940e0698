// Copyright Marvolith contributors.
// Weak references: an observer hears the nodes it watches without depending on them, survives
// their deletion and undo, saves and loads them, and never loops through them.
#include <gtest/gtest.h>

#include "host/app/scene_file.h"
#include "host/core/weak_ref.h"
#include "host/scene/core_interface.h"
#include "host/scene/scene.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "tests/support/math_matchers.h"
#include "tests/support/scene_objects.h"

namespace marvolith::test {
namespace {

constexpr USHORT kSlotsChunk = 9;

// A node's transform controller that also watches nodes, its own node among them: each change
// it hears from them it passes to its dependents, which is what a solver watching its goal does.
class Watcher : public TestTransform, public WeakRefOwner {
 public:
  static constexpr Class_ID kClassID{0x7e57, 0x1f0};
  Watcher() : WeakRefOwner(2) {}
  Class_ID ClassID() override { return kClassID; }
  void* GetInterface(ULONG id) override {
    if (id == I_INDIRECT_REFMAKER) return static_cast<IIndirectReferenceMaker*>(this);
    return TestTransform::GetInterface(id);
  }
  IOResult Save(ISave* isave) override { return SaveWeakSlots(isave, kSlotsChunk); }
  IOResult Load(ILoad* iload) override {
    return ForEachChunk(iload, [&](USHORT id) {
      return id == kSlotsChunk ? LoadWeakSlots(iload) : IO_OK;
    });
  }

  int changes = 0;
  int deletions = 0;

 protected:
  void WeakRefChanged(int, int, RefTargetHandle, PartID, RefMessage message) override {
    if (message == REFMSG_TARGET_DELETED) ++deletions;
    if (message != REFMSG_CHANGE) return;
    ++changes;
    NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  }
};

void RegisterWatcher() {
  RegisterSceneTestClasses();
  static TestClassDesc<Watcher, CTRL_MATRIX3_CLASS_ID> desc;
  ClassDirectory::Get().AddClass(&desc);
}

class WeakRefTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterWatcher();
    GetCOREInterface()->Reset();
  }
  void TearDown() override { GetCOREInterface()->Reset(); }
};

TEST_F(WeakRefTest, ObservesItsOwnNodeWithoutLooping) {
  INode* node = MakeTestNode("watched");
  auto* w = new Watcher;
  ASSERT_TRUE(node->SetTMController(w));
  ASSERT_EQ(w->AppendWeakRef(0, node), 0) << "a weak edge over an existing dependency is allowed";
  EXPECT_EQ(node->NumDependents(), 0) << "watching is not depending";

  w->changes = 0;
  node->Move(0, Matrix3(), Point3(1, 2, 3));
  // The move is two broadcasts (the controller's change, the node's invalidation); the echo of
  // what the watcher passes on must not come back round, or this would never end.
  EXPECT_GE(w->changes, 1);
  EXPECT_LE(w->changes, 2);
  EXPECT_POINT3_NEAR(node->GetNodeTM(0).GetTrans(), Point3(1, 2, 3), 1e-5f);

  // A parent's move reaches the watcher through the watched node.
  INode* parent = MakeTestNode("parent");
  parent->AttachChild(node, 1);
  w->changes = 0;
  parent->Move(0, Matrix3(), Point3(0, 0, 5));
  EXPECT_GE(w->changes, 1);
}

TEST_F(WeakRefTest, DeletionEmptiesTheEntryAndUndoBringsItBack) {
  INode* host_node = MakeTestNode("host");
  auto* w = new Watcher;
  host_node->SetTMController(w);
  INode* other = MakeTestNode("other");

  theHold.Begin();
  w->AppendWeakRef(1, other);
  theHold.Accept("Watch");
  ASSERT_EQ(w->GetWeakRef(1, 0), other);

  theHold.Begin();
  other->Delete(0, 0);
  theHold.Accept("Delete");
  EXPECT_EQ(w->deletions, 1);
  EXPECT_EQ(w->WeakCount(1), 1) << "the entry stays, empty";
  EXPECT_EQ(w->GetWeakRef(1, 0), nullptr);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(w->GetWeakRef(1, 0), other);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(w->WeakCount(1), 0) << "the append is undone";
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(w->GetWeakRef(1, 0), other);

  EXPECT_FALSE(w->SetWeakRef(1, 5, other)) << "bad indices are ignored";
  EXPECT_EQ(w->AppendWeakRef(7, other), -1);
}

TEST_F(WeakRefTest, SavesAndLoadsThroughTheIndirectInterface) {
  INode* a = MakeTestNode("a");
  INode* b = MakeTestNode("b", nullptr, Point3(3, 0, 0));
  auto* w = new Watcher;
  a->SetTMController(w);
  w->AppendWeakRef(0, a);
  w->AppendWeakRef(1, b);
  w->AppendWeakRef(1, nullptr);

  std::vector<std::uint8_t> bytes;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(bytes, &error)) << error;
  ASSERT_TRUE(LoadSceneFromBytes(bytes, &error)) << error;
  INode* la = GetCOREInterface()->GetINodeByName("a");
  INode* lb = GetCOREInterface()->GetINodeByName("b");
  ASSERT_TRUE(la && lb);
  auto* lw = dynamic_cast<Watcher*>(la->GetTMController());
  ASSERT_NE(lw, nullptr);
  EXPECT_EQ(lw->GetWeakRef(0, 0), la);
  ASSERT_EQ(lw->WeakCount(1), 2);
  EXPECT_EQ(lw->GetWeakRef(1, 0), lb);
  EXPECT_EQ(lw->GetWeakRef(1, 1), nullptr);
  lw->changes = 0;
  lb->Move(0, Matrix3(), Point3(1, 0, 0));
  EXPECT_GE(lw->changes, 1) << "the loaded watcher hears its nodes";

  std::vector<std::uint8_t> again;
  ASSERT_TRUE(SaveSceneToBytes(again, &error)) << error;
  EXPECT_NE(again, bytes) << "b moved";
  lb->Move(0, Matrix3(), Point3(-1, 0, 0));
  ASSERT_TRUE(SaveSceneToBytes(again, &error)) << error;
  EXPECT_EQ(again, bytes) << "re-saved byte for byte";
}

}  // namespace
}  // namespace marvolith::test
