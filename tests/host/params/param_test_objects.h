// Copyright Marvolith contributors.
// Test owner of a parameter block with every type, fake controllers, a test node, and counting
// accessor and validator.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/params/iparamb2.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/scene/scene.h"
#include "host/undo/hold.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {

// Parameters of the test block: one of each type, animatable ones, and each table form.
enum : ParamID {
  kInt = 0,
  kBool,
  kFloat,
  kAngle,
  kPcnt,
  kWorld,
  kColor,
  kPoint3,
  kPoint4,
  kAColor,
  kMatrix,
  kString,
  kFile,
  kNode,
  kRefTarg,
  kIndex,
  kTime,
  kAnimFloat,
  kAnimPoint3,
  kWeakNode,
  kAnimFloatTab,
  kTabBase = 100,  // kTabBase + plain id: the table form of that plain parameter's type
};
inline constexpr BlockID kTestBlock = 0;
inline constexpr int kTestBlockVersion = 2;

/// Counts every callback and can change the values it is handed.
class CountingAccessor : public PBAccessor {
 public:
  struct TabCall {
    tab_changes code;
    ParamID id;
    int tab_index;
    int count;
    int tab_count;  // entries in the table copy it was given
  };
  void Get(PB2Value& v,
           ReferenceMaker* owner,
           ParamID id,
           int tab_index,
           TimeValue t,
           Interval& valid) override;
  void Set(PB2Value& v, ReferenceMaker* owner, ParamID id, int tab_index, TimeValue t) override;
  void TabChanged(tab_changes code,
                  Tab<PB2Value>* tab,
                  ReferenceMaker* owner,
                  ParamID id,
                  int tab_index,
                  int count) override;
  void Clear() { *this = CountingAccessor(); }

  int gets = 0;
  int sets = 0;
  TimeValue last_get_time = -1;
  ReferenceMaker* last_owner = nullptr;
  std::vector<TabCall> tab_calls;
  float get_offset = 0.0f;  // added to float values read
  float set_scale = 1.0f;   // float values written are multiplied by it
};

/// Refuses negative floats and the node in `forbidden`.
class TestValidator : public PBValidator {
 public:
  using PBValidator::Validate;
  bool Validate(PB2Value& v) override;
  int calls = 0;
  INode* forbidden = nullptr;
};

extern CountingAccessor test_accessor;
extern TestValidator test_validator;

/// A controller of value type T that returns its value, narrowed by `validity`, and tells its
/// dependents when set.
template <typename T, SClass_ID kSuperClass>
class FakeControl : public Control {
 public:
  explicit FakeControl(T v = T()) : value(v) {}
  SClass_ID SuperClassID() override { return kSuperClass; }
  void GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) override {
    *static_cast<T*>(val) = value;
    valid &= validity;
    last_get_time = t;
  }
  void SetValue(TimeValue t, void* val, int, GetSetMethod) override {
    value = *static_cast<T*>(val);
    last_set_time = t;
    ++set_count;
    NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  RefTargetHandle Clone(RemapDir& remap) override {
    auto* c = new FakeControl(value);
    c->validity = validity;
    BaseClone(this, c, remap);
    return c;
  }

  T value;
  Interval validity = FOREVER;
  TimeValue last_get_time = -1;
  TimeValue last_set_time = -1;
  int set_count = 0;
};
using FakeFloat = FakeControl<float, CTRL_FLOAT_CLASS_ID>;
using FakePoint3 = FakeControl<Point3, CTRL_POINT3_CLASS_ID>;

/// The object that owns the test block at reference 0, and records the parameter of every
/// change message it hears from it.
class TestOwner : public ReferenceTarget {
 public:
  explicit TestOwner(bool make_blocks = true);
  Class_ID ClassID() override { return Class_ID(0x7e57, 0x9a9a); }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock : nullptr; }
  RefResult NotifyRefChanged(
      const Interval&, RefTargetHandle target, PartID&, RefMessage message, bool) override;
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock : nullptr; }
  RefTargetHandle Clone(RemapDir& remap) override;

  IParamBlock2* pblock = nullptr;
  std::vector<ParamID> heard;  // LastNotifyParamID of each REFMSG_CHANGE from the block

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i == 0) pblock = static_cast<IParamBlock2*>(target);
  }
};

ClassDesc2& TestOwnerClassDesc();
ParamBlockDesc2& TestBlockDesc();

/// Every parameter and entry of pb as text (values read at time 0, controllers by address), so
/// that tests compare whole block states.
std::string Dump(IParamBlock2* pb);

/// A fresh owner with its block per test; the undo stacks, animate mode and the controller
/// factory are reset after each.
class ParamBlockTest : public ::testing::Test {
 protected:
  void SetUp() override {
    test_accessor.Clear();
    test_validator = TestValidator();
    owner = sweep.Keep(new TestOwner);
    pb = owner->pblock;
  }
  void TearDown() override {
    theHold.Clear();
    AnimateOff();
    SetParamControllerFactory(nullptr);
  }
  /// A node outside any scene; deleted at the end of the test.
  INode* NewNode() { return sweep.Keep(NewSceneNode(false)); }

  SceneSweeper sweep;
  TestOwner* owner = nullptr;
  IParamBlock2* pb = nullptr;
};

}  // namespace marvolith::test
