// Copyright Marvolith contributors.
// Classes for the script runner tests: a helper object that scripts create by its internal name,
// with a parameter block of every kind the runner converts, and a core interface.
#pragma once

#include "host/app/host_classes.h"
#include "host/params/iparam_block2.h"
#include "host/registry/class_desc.h"
#include "host/scene/object.h"
#include "host/script/fp_interface.h"
#include "tests/host/script/script_test_objects.h"

namespace marvolith::test {

inline constexpr Class_ID kTestPointClassID(0x7e57, 0x5c01);

enum : ParamID {
  kSize,     // float, animatable, range 0..1000
  kSpin,     // angle, degrees in script
  kAmount,   // percent
  kVisible,  // bool
  kPick,     // index, 1-based in script
  kLabel,    // string
  kTarget,   // node
  kWeights,  // float table
  kTint,     // colour
};

ClassDesc2& TestPointClassDesc();

/// A point helper made by scripts as TestPoint, its parameters in block 0 at reference 0.
class TestPoint : public HelperObject {
 public:
  explicit TestPoint(bool make_blocks = true) {
    if (make_blocks) TestPointClassDesc().MakeAutoParamBlocks(this);
  }
  Class_ID ClassID() override { return kTestPointClassID; }
  void GetClassName(MSTR& s, bool = true) const override { s = "TestPoint"; }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock : nullptr; }
  int NumSubs() override { return 1; }
  Animatable* SubAnim(int i) override { return i == 0 ? pblock : nullptr; }
  MSTR SubAnimName(int, bool = true) override { return "Parameters"; }
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock : nullptr; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  ObjectState Eval(TimeValue) override { return ObjectState(this); }

  IParamBlock2* pblock = nullptr;

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i == 0) pblock = static_cast<IParamBlock2*>(target);
  }
};

class TestPointDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return true; }
  Animatable* Create(bool loading) override { return new TestPoint(!loading); }
  const char* ClassName() override { return "TestPoint"; }
  const char* InternalName() override { return "TestPoint"; }
  SClass_ID SuperClassID() override { return HELPER_CLASS_ID; }
  Class_ID ClassID() override { return kTestPointClassID; }
  const char* Category() override { return "Test"; }
};

inline ClassDesc2& TestPointClassDesc() {
  static TestPointDesc cd;
  static ParamBlockDesc2 pb(
      0, "params", 0, &cd, P_AUTO_CONSTRUCT, 0,
      {
          ParamDef(kSize, "size", TYPE_FLOAT, P_ANIMATABLE).Default(10.0f).Range(0.0, 1000.0),
          ParamDef(kSpin, "spin", TYPE_ANGLE, 0),
          ParamDef(kAmount, "amount", TYPE_PCNT_FRAC, 0).Default(0.5f),
          ParamDef(kVisible, "visible", TYPE_BOOL, 0).Default(true),
          ParamDef(kPick, "pick", TYPE_INDEX, 0),
          ParamDef(kLabel, "label", TYPE_STRING, 0).Default("none"),
          ParamDef(kTarget, "target", TYPE_INODE, 0),
          ParamDef(kWeights, "weights", TYPE_FLOAT_TAB, P_VARIABLE_SIZE).TabSize(0),
          ParamDef(kTint, "tint", TYPE_RGBA, 0),
      });
  return cd;
}

/// A core interface "TestCore": Greet name, and a read-write count.
class TestCore : public FPStaticInterface {
 public:
  enum : FunctionID { kGreet, kGetCount, kSetCount };
  TestCore()
      : FPStaticInterface(
            Interface_ID(0x7e57c0, 0x1),
            "TestCore",
            FP_CORE,
            nullptr,
            {{kGreet, "Greet", FPType::TYPE_STRING, {FPArg("name", FPType::TYPE_STRING)}}},
            {FPPropertyDef(kGetCount, kSetCount, "count", FPType::TYPE_INT)}) {}
  int count = 0;

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override {
    switch (fid) {
      case kGreet:
        result = FPValue("hello " + p[0].AsString());
        return FPS_OK;
      case kGetCount:
        result = FPValue(count);
        return FPS_OK;
      case kSetCount:
        count = p[0].AsInt();
        return FPS_OK;
      default:
        return FPS_NO_SUCH_FUNCTION;
    }
  }
};

inline TestCore& TheTestCore() {
  static TestCore core;
  return core;
}

/// Registers the host's classes and the test classes (once).
inline void RegisterRunnerTestClasses() {
  static bool done = false;
  if (done) return;
  done = true;
  RegisterHostClasses();
  ClassDirectory::Get().AddClass(&TestPointClassDesc());
  ClassDirectory::Get().AddClass(&TheTestRigClassDesc());
  // The rig's table joins its class on first use.
  auto* probe = new TestRig;
  probe->GetDesc();
  probe->DeleteMe();
  TheTestCore();
}

}  // namespace marvolith::test
