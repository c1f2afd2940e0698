// Copyright Marvolith contributors.
#include "plugin/marvolith_interface.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "host/app/host_classes.h"
#include "host/base/exceptions.h"
#include "host/interpreter/runner.h"
#include "host/objects/point_helper.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/script/fp_dispatch.h"

namespace marvolith {
namespace {

using M = MarvolithInterface;

// Members answering the failure value until their subsystem lands. Take a member off when its
// issue completes it: the list can only shrink.
const std::set<FunctionID> kPendingMembers = {M::kGetUIPanelHolder,
                                              M::kGetPoseKitHolder,
                                              M::kAbout,
                                              M::kOpenCurveEditor,
                                              M::kGetReplaceNativeCurveEditor,
                                              M::kSetReplaceNativeCurveEditor};

// Counts the change messages a referenced object sends over all time for all parts.
class Listener : public ReferenceTarget {
 public:
  explicit Listener(ReferenceTarget* t) { ReplaceReference(0, t); }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int) override { return target_; }
  RefResult NotifyRefChanged(
      const Interval& iv, RefTargetHandle, PartID& part, RefMessage msg, bool) override {
    changes += msg == REFMSG_CHANGE && iv == FOREVER && part == PART_ALL;
    return REF_SUCCEED;
  }
  int changes = 0;

 protected:
  void SetReference(int, RefTargetHandle t) override { target_ = t; }
  RefTargetHandle target_ = nullptr;
};

class MarvolithInterfaceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    global.ResetState();
  }
  void TearDown() override {
    for (Listener* l : listeners_) l->DeleteMe();
    GetCOREInterface()->Reset();
    global.ResetState();
  }
  INode* Node(Object* obj) { return GetCOREInterface()->CreateObjectNode(obj); }
  Listener* Listen(ReferenceTarget* t) { return listeners_.emplace_back(new Listener(t)); }
  FPResult Call(FunctionID id, std::vector<FPValue> args = {}) {
    return CallFunction(&global, id, args);
  }

  MarvolithInterface& global = GetMarvolithInterface();
  std::vector<Listener*> listeners_;
};

TEST_F(MarvolithInterfaceTest, ActivePanelAndKitStoreBaseObjectOnlyPanelTellsDependents) {
  ASSERT_EQ(GetCOREInterface("marvolith"), &global) << "a core interface, found without case";
  struct Field {
    const char* name;
    FunctionID get, set;
    INode* (M::*node)() const;
    ReferenceTarget* (M::*object)() const;
    int changes;
  };
  for (const Field& f : {Field{"activeUIPanel", M::kGetActiveUIPanel, M::kSetActiveUIPanel,
                               &M::ActiveUIPanel, &M::ActiveUIPanelObject, 1},
                         Field{"activePoseKit", M::kGetActivePoseKit, M::kSetActivePoseKit,
                               &M::ActivePoseKit, &M::ActivePoseKitObject, 0}}) {
    SCOPED_TRACE(f.name);
    auto* point = new PointHelpObject();
    // Two stacks deep: the walk goes through every derived object to the base object.
    INode* node = Node(CreateDerivedObject(CreateDerivedObject(point)));
    Listener* heard = Listen(point);
    ASSERT_EQ(Call(f.set, {FPValue(node)}).status, FPS_OK);
    EXPECT_EQ((global.*f.node)(), node);
    EXPECT_EQ((global.*f.object)(), point);
    EXPECT_EQ(heard->changes, f.changes);
    EXPECT_EQ(GetProperty(&global, f.name).value, FPValue(node));

    // Undefined clears both fields and says nothing.
    ASSERT_EQ(SetProperty(&global, f.name, FPValue()).status, FPS_OK);
    EXPECT_EQ((global.*f.node)(), nullptr);
    EXPECT_EQ((global.*f.object)(), nullptr);
    EXPECT_TRUE(Call(f.get).value.IsUndefined());
    EXPECT_EQ(heard->changes, f.changes);

    // A stack with nothing below: node kept, object null, no message.
    IDerivedObject* empty = CreateDerivedObject(nullptr);
    INode* bare = Node(empty);
    Listener* on_stack = Listen(empty);
    Call(f.set, {FPValue(bare)});
    EXPECT_EQ((global.*f.node)(), bare);
    EXPECT_EQ((global.*f.object)(), nullptr);
    EXPECT_EQ(on_stack->changes, 0);

    // A deleted node reads as null, not as a dangling pointer.
    GetCOREInterface()->DeleteNode(bare, false);
    EXPECT_TRUE(GetProperty(&global, f.name).value.IsUndefined());
  }
}

TEST_F(MarvolithInterfaceTest, TransformFlagAndReadOnlyCurrentAction) {
  ASSERT_EQ(Call(M::kSetUIPanelTransforming, {FPValue(true)}).status, FPS_OK);
  EXPECT_EQ(GetProperty(&global, "uiPanelTransforming").value, FPValue(true));
  ASSERT_EQ(SetProperty(&global, "uiPanelTransforming", FPValue(false)).status, FPS_OK);
  EXPECT_EQ(Call(M::kGetUIPanelTransforming).value, FPValue(false));

  auto* action = new PointHelpObject();
  Node(action);
  global.SetCurrentUIAction(action);
  EXPECT_EQ(Call(M::kGetCurrentUIAction).value.AsRefTarg(), action);
  for (const FPValue& v : {FPValue(Node(new PointHelpObject())), FPValue()}) {
    EXPECT_EQ(Call(M::kSetCurrentUIAction, {v}).status, FPS_OK);
    EXPECT_EQ(global.CurrentUIAction(), action) << "scripts cannot change the running action";
  }
  for (FunctionID setter : {1, 3, 5, 7, 15}) {
    SCOPED_TRACE(setter);
    try {
      Call(setter);
      ADD_FAILURE() << "a setter without argument ran";
    } catch (const MaxSDK::Util::OutOfRangeException& e) {
      EXPECT_STREQ(e.what(),
                   "Argument index out of bounds, passed into a MaxSDK::Array::operator[]");
    }
  }
}

TEST_F(MarvolithInterfaceTest, MemberIdsPendingMembersAndPointTypes) {
  for (int id = -2; id <= 17; ++id) {
    SCOPED_TRACE(id);
    const FPMember member = global.FindMember(static_cast<FunctionID>(id));
    const bool published = id >= 0 && id <= 15 && id != 11 && id != 12;
    EXPECT_EQ(static_cast<bool>(member), published);
    std::vector<FPValue> args;
    if (member.kind == FPMember::Kind::kSetter)
      args.push_back(member.property->type == FPType::TYPE_BOOL ? FPValue(false) : FPValue());
    const FPResult r = Call(static_cast<FunctionID>(id), args);
    const bool fails = !published || kPendingMembers.count(static_cast<FunctionID>(id)) > 0;
    EXPECT_EQ(r.status, fails ? FPS_NO_SUCH_FUNCTION : FPS_OK);
    EXPECT_TRUE(!fails || r.value.IsUndefined());
  }
  for (const char* name : {"GetUIPanelHolder", "GetPoseKitHolder", "About", "OpenCurveEditor"})
    EXPECT_EQ(CallFunction(&global, name, {}).status, FPS_NO_SUCH_FUNCTION) << name;

  const FPEnumDef* types = global.FindEnum(M::kPointTypeEnumId);
  ASSERT_TRUE(types && types->items.size() == 5u);
  const char* names[] = {"BezierCorner", "Bezier", "Corner", "Smooth", "FixedSmooth"};
  for (int v = 0; v < 5; ++v) EXPECT_EQ(types->Find(names[v]), v) << names[v];
}

TEST_F(MarvolithInterfaceTest, ThroughScripts) {
  ScriptRunner runner;
  auto run = [&runner](const char* text) {
    ScriptResult r = runner.Run(text);
    EXPECT_TRUE(r.ok) << text << "\n" << r.ErrorText();
    return ScriptValueString(r.value);
  };
  run("Point name:\"Point001\"; Point name:\"Point002\"");
  INode* p2 = GetCOREInterface()->GetINodeByName("Point002");
  run("Marvolith.activeUIPanel = $Point001; Marvolith.activePoseKit = $Point002");
  EXPECT_EQ(global.ActivePoseKitObject(), p2->GetObjectRef());
  EXPECT_EQ(run("Marvolith.activeUIPanel == $Point001 and Marvolith.activePoseKit == $Point002"),
            "true");
  EXPECT_EQ(run("Marvolith.uiPanelTransforming = true; Marvolith.uiPanelTransforming"), "true");
  EXPECT_EQ(run("Marvolith.currentUIAction = $Point001; Marvolith.currentUIAction"), "undefined");
  run("Marvolith.activeUIPanel = undefined");
  EXPECT_EQ(global.ActiveUIPanelObject(), nullptr);
  for (const char* text : {"Marvolith.activePoseKit = 5", "Marvolith.GetUIPanelHolder()"})
    EXPECT_FALSE(runner.Run(text).ok) << text;
  EXPECT_EQ(global.ActivePoseKit(), p2) << "a value that does not convert changes nothing";
}

}  // namespace
}  // namespace marvolith
