// Copyright Marvolith contributors.
// The list controllers' weights as float tracks: blending, sub-anims, undo, files, clones and
// the node caches that depend on them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string>
#include <vector>

#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/controllers/controller_classes.h"
#include "host/controllers/keys.h"
#include "host/controllers/list_control.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "tests/support/controller_test_util.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

class ListWeightTest : public ControllerTest {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    ControllerTest::SetUp();
  }
  void TearDown() override {
    AnimateOff();
    ControllerTest::TearDown();
  }
};

Control* FloatHolding(float v) {
  Control* c = NewDefaultFloatController();
  c->SetValue(0, &v);
  return c;
}

Control* PositionHolding(const Point3& p) {
  Control* c = NewDefaultPositionController();
  Point3 v = p;
  c->SetValue(0, &v);
  return c;
}

// Keys item index's weight at the given (time, weight) pairs.
void KeyWeight(ListControl* list,
               int index,
               std::initializer_list<std::pair<TimeValue, float>> keys) {
  AnimateOn();
  for (auto [t, w] : keys) list->SetSubCtrlWeight(index, w, t);
  AnimateOff();
}

TEST_F(ListWeightTest, KeyedWeightBlendsTheListBetweenItsKeys) {
  {
    SCOPED_TRACE("float list");
    auto* list = Keep(new ListControl(CTRL_FLOAT_CLASS_ID));
    list->Append(FloatHolding(2.0f), "base");
    list->Append(FloatHolding(10.0f), "blend");
    KeyWeight(list, 1, {{0, 0.0f}, {1600, 1.0f}});
    EXPECT_EQ(list->GetWeightController(1)->NumKeys(), 2);
    EXPECT_EQ(list->GetWeightController(0)->NumKeys(), 0) << "only the keyed weight has keys";
    EXPECT_FLOAT_EQ(ValueAt<float>(list, 0), 2.0f);
    EXPECT_FLOAT_EQ(ValueAt<float>(list, 1600), 12.0f);
    Interval valid = FOREVER;
    const float mid = ValueAt<float>(list, 800, &valid);
    const float w = list->GetSubCtrlWeight(1, 800);
    EXPECT_GT(w, 0.0f);
    EXPECT_LT(w, 1.0f);
    EXPECT_FLOAT_EQ(mid, 2.0f + 10.0f * w);
    EXPECT_FALSE(valid == FOREVER) << "the weight's animation narrows the list's validity";
    // Writing through the active item divides by the weight at that time.
    list->SetActive(1);
    float want = 7.0f;
    list->SetValue(800, &want);
    EXPECT_NEAR(ValueAt<float>(list, 800), 7.0f, 1e-4f);
  }
  {
    SCOPED_TRACE("rotation list");
    auto* list = Keep(new ListControl(CTRL_ROTATION_CLASS_ID));
    Control* turn = CreateInterpRotation();
    Quat q(AngAxis(Point3::ZAxis, 1.2f));
    turn->SetValue(0, &q);
    list->Append(turn);
    KeyWeight(list, 0, {{0, 0.0f}, {3200, 1.0f}});
    EXPECT_QUAT_NEAR(ValueAt<Quat>(list, 0), Quat(), 1e-6f);
    EXPECT_QUAT_NEAR(ValueAt<Quat>(list, 3200), q, 1e-6f);
    const float w = list->GetSubCtrlWeight(0, 1000);
    EXPECT_QUAT_NEAR(ValueAt<Quat>(list, 1000), Quat(AngAxis(Point3::ZAxis, 1.2f * w)), 1e-5f);
    // The relative chain (a node's evaluation) reads the same weight.
    EXPECT_MATRIX3_NEAR(WorldAt(list, 1000, Matrix3()), MatrixOf(ValueAt<Quat>(list, 1000)), 1e-5f);
  }
}

TEST_F(ListWeightTest, WeightsAreSubAnimsAfterTheItemsAndMoveWithThem) {
  auto* list = Keep(new ListControl(CTRL_FLOAT_CLASS_ID));
  Control* a = FloatHolding(1.0f);
  Control* b = FloatHolding(10.0f);
  list->Append(a, "A");
  list->Append(b);
  list->SetSubCtrlWeight(0, 0.25f);
  ASSERT_EQ(list->NumSubs(), 4);
  EXPECT_EQ(list->NumRefs(), 4);
  EXPECT_EQ(list->SubAnim(0), a);
  EXPECT_EQ(list->SubAnim(1), b);
  Control* wa = list->GetWeightController(0);
  Control* wb = list->GetWeightController(1);
  ASSERT_TRUE(wa && wb && wa != wb);
  EXPECT_EQ(list->SubAnim(2), wa);
  EXPECT_EQ(list->SubAnim(3), wb);
  EXPECT_EQ(list->SubAnimName(2), "Weight: A");
  EXPECT_EQ(list->SubAnimName(3), "Weight: Bezier Float") << "an unnamed item's class name";
  EXPECT_EQ(list->SubNumToRefNum(3), 3);
  EXPECT_EQ(list->SubNumToRefNum(4), -1);
  EXPECT_EQ(list->SubAnim(4), nullptr);
  list->SetName(0, "Base");
  EXPECT_EQ(list->SubAnimName(2), "Weight: Base");

  {
    SCOPED_TRACE("assigning to a weight sub-anim");
    EXPECT_FALSE(list->AssignController(NewDefaultPositionController(), 2)) << "not a float";
    Control* fresh = NewDefaultFloatController();
    ASSERT_TRUE(list->AssignController(fresh, 2));
    EXPECT_EQ(list->GetWeightController(0), fresh);
    EXPECT_FLOAT_EQ(list->GetSubCtrlWeight(0, 0), 0.25f) << "the new track adopts the weight";
    EXPECT_EQ(list->GetSubCtrl(0), a);
    wa = fresh;
  }
  {
    SCOPED_TRACE("one past the last sub-anim appends");
    Control* c = FloatHolding(100.0f);
    ASSERT_TRUE(list->AssignController(c, 4));
    ASSERT_EQ(list->GetListCount(), 3);
    EXPECT_EQ(list->SubAnim(2), c);
    EXPECT_EQ(list->SubAnim(3), wa) << "the weights follow the items";
    EXPECT_EQ(list->SubAnim(4), wb);
    EXPECT_FLOAT_EQ(list->GetSubCtrlWeight(2, 0), 1.0f);
    EXPECT_FLOAT_EQ(ValueAt<float>(list, 0), 0.25f + 10.0f + 100.0f);
  }
  {
    SCOPED_TRACE("replacing and deleting items");
    Control* b2 = NewDefaultFloatController();
    ASSERT_TRUE(list->SetSubCtrl(1, b2));
    EXPECT_FLOAT_EQ(ValueAt<float>(b2, 0), 10.0f) << "adopts the item it replaces";
    EXPECT_EQ(list->GetWeightController(1), wb) << "a replaced item keeps its weight";
    list->SetSubCtrlWeight(1, 0.5f);
    list->DeleteItem(0);
    ASSERT_EQ(list->GetListCount(), 2);
    EXPECT_EQ(list->GetWeightController(0), wb);
    EXPECT_EQ(list->SubAnim(2), wb);
    EXPECT_FLOAT_EQ(ValueAt<float>(list, 0), 0.5f * 10.0f + 100.0f);
  }
  {
    SCOPED_TRACE("bad indices and values, and a deleted track");
    EXPECT_FLOAT_EQ(list->GetSubCtrlWeight(5, 0), 0.0f);
    EXPECT_EQ(list->GetWeightController(-1), nullptr);
    list->SetSubCtrlWeight(-1, 2.0f);
    list->SetSubCtrlWeight(0, std::numeric_limits<float>::quiet_NaN());
    EXPECT_FLOAT_EQ(list->GetSubCtrlWeight(0, 0), 0.5f) << "NaN is ignored";
    wb->DeleteMe();
    EXPECT_EQ(list->GetWeightController(0), nullptr);
    EXPECT_FLOAT_EQ(ValueAt<float>(list, 0), 10.0f + 100.0f) << "no track counts as weight 1";
    list->SetSubCtrlWeight(0, 2.0f);
    ASSERT_NE(list->GetWeightController(0), nullptr) << "setting makes a new track";
    EXPECT_FLOAT_EQ(ValueAt<float>(list, 0), 20.0f + 100.0f);
  }
}

TEST_F(ListWeightTest, UndoRedoOfAppendAndDeleteBringsAnimatedWeightsBack) {
  auto* list = Keep(new ListControl(CTRL_FLOAT_CLASS_ID));
  Control* a = FloatHolding(1.0f);
  Control* b = FloatHolding(10.0f);
  list->Append(a, "A");
  list->Append(b, "B");
  KeyWeight(list, 1, {{0, 0.0f}, {1600, 1.0f}});
  Control* wb = list->GetWeightController(1);
  const float b_mid = list->GetSubCtrlWeight(1, 800);

  theHold.Begin();
  Control* c = FloatHolding(100.0f);
  list->Append(c, "C");
  KeyWeight(list, 2, {{0, 1.0f}, {1600, 0.0f}});
  theHold.Accept("Append");
  Control* wc = list->GetWeightController(2);
  const float c_mid = list->GetSubCtrlWeight(2, 800);
  const float appended = 1.0f + 10.0f * b_mid + 100.0f * c_mid;
  EXPECT_FLOAT_EQ(ValueAt<float>(list, 800), appended);

  theHold.Begin();
  list->DeleteItem(1);
  theHold.Accept("Delete");
  ASSERT_EQ(list->GetListCount(), 2);
  EXPECT_EQ(list->GetWeightController(1), wc);
  EXPECT_FLOAT_EQ(ValueAt<float>(list, 800), 1.0f + 100.0f * c_mid);

  ASSERT_TRUE(theHold.Undo());
  {
    SCOPED_TRACE("delete undone");
    ASSERT_EQ(list->GetListCount(), 3);
    EXPECT_EQ(list->GetSubCtrl(1), b);
    EXPECT_EQ(list->GetWeightController(1), wb);
    EXPECT_EQ(list->SubAnim(4), wb);
    EXPECT_EQ(wb->NumKeys(), 2);
    EXPECT_FLOAT_EQ(ValueAt<float>(list, 800), appended);
  }
  ASSERT_TRUE(theHold.Undo());
  {
    SCOPED_TRACE("append undone");
    ASSERT_EQ(list->GetListCount(), 2);
    EXPECT_EQ(list->NumSubs(), 4);
    EXPECT_EQ(list->GetWeightController(1), wb);
    EXPECT_FLOAT_EQ(ValueAt<float>(list, 800), 1.0f + 10.0f * b_mid);
  }
  ASSERT_TRUE(theHold.Redo());
  {
    SCOPED_TRACE("append redone");
    ASSERT_EQ(list->GetListCount(), 3);
    EXPECT_EQ(list->GetSubCtrl(2), c);
    EXPECT_EQ(list->GetWeightController(2), wc);
    EXPECT_EQ(wc->NumKeys(), 2) << "the weight's keys come back with it";
    EXPECT_FLOAT_EQ(ValueAt<float>(list, 800), appended);
  }
  ASSERT_TRUE(theHold.Redo());
  {
    SCOPED_TRACE("delete redone");
    ASSERT_EQ(list->GetListCount(), 2);
    EXPECT_EQ(list->GetWeightController(1), wc);
    EXPECT_EQ(list->SubAnimName(3), "Weight: C");
    EXPECT_FLOAT_EQ(ValueAt<float>(list, 800), 1.0f + 100.0f * c_mid);
  }
}

std::vector<std::uint8_t> SaveScene() {
  std::vector<std::uint8_t> bytes;
  std::string error;
  EXPECT_TRUE(SaveSceneToBytes(bytes, &error)) << error;
  return bytes;
}

IListControl* PositionList(INode* node) {
  Control* pos = node ? node->GetTMController()->GetPositionController() : nullptr;
  return pos ? static_cast<IListControl*>(pos->GetInterface(LIST_CONTROLLER_INTERFACE)) : nullptr;
}

TEST_F(ListWeightTest, FilesAndClonesKeepWeightTracksAndOlderFilesGetThem) {
  Interface* ip = GetCOREInterface();
  {
    SCOPED_TRACE("scene round trip");
    auto* list = new ListControl(CTRL_POSITION_CLASS_ID);
    list->Append(PositionHolding(Point3(10, 0, 0)), "move");
    list->Append(PositionHolding(Point3(0, 4, 0)), "lift");
    KeyWeight(list, 1, {{0, 0.0f}, {1600, 2.0f}});
    INode* node = ip->CreateObjectNode(nullptr, "mover");
    ASSERT_TRUE(node->GetTMController()->SetPositionController(list));
    const Point3 before = node->GetNodeTM(800).GetTrans();
    const std::vector<std::uint8_t> bytes = SaveScene();
    ip->Reset();
    std::string error;
    ASSERT_TRUE(LoadSceneFromBytes(bytes, &error)) << error;
    INode* loaded = ip->GetINodeByName("mover");
    IListControl* il = PositionList(loaded);
    ASSERT_NE(il, nullptr);
    auto* ll = static_cast<ListControl*>(loaded->GetTMController()->GetPositionController());
    ASSERT_NE(ll->GetWeightController(1), nullptr);
    EXPECT_EQ(ll->GetWeightController(1)->NumKeys(), 2);
    EXPECT_POINT3_NEAR(loaded->GetNodeTM(800).GetTrans(), before, 1e-6f);
    EXPECT_EQ(SaveScene(), bytes) << "save, load, save gives the same bytes";
  }
  {
    SCOPED_TRACE("clone");
    auto* list = Keep(new ListControl(CTRL_FLOAT_CLASS_ID));
    list->Append(FloatHolding(3.0f));
    KeyWeight(list, 0, {{0, 1.0f}, {1600, 0.0f}});
    auto* copy = static_cast<ListControl*>(CloneRefHierarchy(list));
    ASSERT_NE(copy, nullptr);
    Keep(copy);
    ASSERT_NE(copy->GetWeightController(0), nullptr);
    EXPECT_NE(copy->GetWeightController(0), list->GetWeightController(0)) << "not shared";
    EXPECT_FLOAT_EQ(ValueAt<float>(copy, 800), ValueAt<float>(list, 800));
    list->SetSubCtrlWeight(0, 5.0f, 800);
    EXPECT_FLOAT_EQ(copy->GetSubCtrlWeight(0, 0), 1.0f);
  }
  {
    SCOPED_TRACE("older chunks: weights as floats");
    float weights[2] = {0.25f, 0.75f};
    Bytes floats(sizeof weights);
    std::memcpy(floats.data(), weights, sizeof weights);
    const Bytes old = Chunk(1,
                            Cat({Chunk(0x0100, RawBytes(std::int32_t(2))),
                                 Chunk(0x0110, RawBytes(std::int32_t(1))), Chunk(0x0120, floats)}),
                            true);
    auto* list = new ListControl(CTRL_FLOAT_CLASS_ID);
    ASSERT_EQ(LoadBytes(list, old), IO_OK);
    ASSERT_EQ(list->NumSubs(), 4);
    ASSERT_NE(list->GetWeightController(0), nullptr);
    ASSERT_NE(list->GetWeightController(1), nullptr);
    EXPECT_FLOAT_EQ(list->GetSubCtrlWeight(0, 0), 0.25f);
    EXPECT_FLOAT_EQ(list->GetSubCtrlWeight(1, 4800), 0.75f);
    EXPECT_EQ(list->GetWeightController(1)->NumKeys(), 0);
    // The items come from the scene's references; here they are put in by hand.
    ASSERT_TRUE(list->SetSubCtrl(0, FloatHolding(4.0f)));
    ASSERT_TRUE(list->SetSubCtrl(1, FloatHolding(8.0f)));
    EXPECT_FLOAT_EQ(ValueAt<float>(list, 0), 1.0f + 6.0f);
    const Bytes resaved = SaveBytes(list);
    EXPECT_EQ(std::search(resaved.begin(), resaved.end(), floats.begin(), floats.end()),
              resaved.end())
        << "the weights are written as tracks now, not as floats";
    // And the converted list goes through a scene like any other.
    INode* node = ip->CreateObjectNode(nullptr, "old");
    ASSERT_TRUE(node->GetTMController()->GetRotationController()->AssignController(list, 0));
    const std::vector<std::uint8_t> bytes = SaveScene();
    ip->Reset();
    std::string error;
    ASSERT_TRUE(LoadSceneFromBytes(bytes, &error)) << error;
    Control* euler = ip->GetINodeByName("old")->GetTMController()->GetRotationController();
    auto* loaded = dynamic_cast<ListControl*>(euler->SubAnim(0));
    ASSERT_NE(loaded, nullptr);
    EXPECT_FLOAT_EQ(loaded->GetSubCtrlWeight(0, 0), 0.25f);
    EXPECT_FLOAT_EQ(ValueAt<float>(loaded, 0), 7.0f);
  }
}

TEST_F(ListWeightTest, NodeDropsItsCachedTransformWhenAWeightKeyChanges) {
  Interface* ip = GetCOREInterface();
  auto* list = new ListControl(CTRL_POSITION_CLASS_ID);
  list->Append(PositionHolding(Point3(10, 0, 0)));
  KeyWeight(list, 0, {{0, 0.0f}, {1600, 1.0f}});
  INode* node = ip->CreateObjectNode(nullptr, "follower");
  ASSERT_TRUE(node->GetTMController()->SetPositionController(list));
  EXPECT_POINT3_NEAR(node->GetNodeTM(1600).GetTrans(), Point3(10, 0, 0), 1e-6f);
  {
    SCOPED_TRACE("a key edited through the track's key interface");
    auto* keys = static_cast<IKeyControl*>(
        list->SubAnim(list->GetListCount())->GetInterface(I_KEYCONTROL));  // weight 0
    ASSERT_NE(keys, nullptr);
    IBezFloatKey k;
    keys->GetKey(1, &k);
    k.val = 0.5f;
    keys->SetKey(1, &k);
    EXPECT_POINT3_NEAR(node->GetNodeTM(1600).GetTrans(), Point3(5, 0, 0), 1e-6f);
  }
  {
    SCOPED_TRACE("a key set through the list in animate mode");
    KeyWeight(list, 0, {{1600, 3.0f}});
    EXPECT_EQ(list->GetWeightController(0)->NumKeys(), 2);
    EXPECT_POINT3_NEAR(node->GetNodeTM(1600).GetTrans(), Point3(30, 0, 0), 1e-6f);
  }
  {
    SCOPED_TRACE("undo of the key");
    theHold.Begin();
    KeyWeight(list, 0, {{1600, 0.0f}});
    theHold.Accept("Weight");
    EXPECT_POINT3_NEAR(node->GetNodeTM(1600).GetTrans(), Point3(0, 0, 0), 1e-6f);
    ASSERT_TRUE(theHold.Undo());
    EXPECT_POINT3_NEAR(node->GetNodeTM(1600).GetTrans(), Point3(30, 0, 0), 1e-6f);
  }
}

}  // namespace
}  // namespace marvolith::test
