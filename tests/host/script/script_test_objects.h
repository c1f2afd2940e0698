// Copyright Marvolith contributors.
// Scene objects for the script tests: named nodes and a reference target with a published
// mixin interface covering every kind of member the dispatcher handles.
#pragma once

#include <string>
#include <vector>

#include "host/core/reference.h"
#include "host/registry/class_desc.h"
#include "host/scene/inode.h"
#include "host/scene/scene.h"
#include "host/script/fp_interface.h"
#include "host/script/script_errors.h"

namespace marvolith::test {

/// A new node without an object in the open scene, named name.
inline INode* MakeNode(const char* name) { return Scene::Active().CreateObjectNode(nullptr, name); }

/// Empties the open scene and the undo stacks at the end of a test, for the leak checks.
struct SceneCleaner {
  ~SceneCleaner() { Scene::Active().Reset(); }
};

inline constexpr Interface_ID kTestRigID(0x7e57a11, 0x5c41b7);
inline constexpr Class_ID kTestRigClassID(0x7e57a11, 0x5c41b7);
inline constexpr EnumID kPointTypes = 0;

// Function ids of ITestRig: functions first, then property pairs, as the toolkit's tables are laid.
enum : FunctionID {
  kGetLayerCount = 0,
  kAddLayer = 1,      // name: keyword string, index: keyword index (-1 appends); returns index
  kGetLayerName = 2,  // index
  kFindLayer = 3,     // name; returns index, -1 when absent
  kScale = 4,         // value float, by percent fraction optional (default 1)
  kTurn = 5,          // angle; returns twice the angle
  kPickNode = 6,      // nodes tab, which index; raises the host's Tab error out of range
  kCheckNode = 7,     // target value; raises a RuntimeError when not a node
  kGetOffsetPos = 8,
  kSetOffsetPos = 9,
  kGetLayerCountProp = 10,  // read-only property layer_count
  kGetPointType = 11,
  kSetPointType = 12,
  kGetActiveLayer = 13,
  kSetActiveLayer = 14,
  kSetFlag = 15,  // state: bool
};

/// The published interface of TestRig, written the way the toolkit writes its mixins.
class ITestRig : public FPMixinInterface {
 public:
  FPInterfaceDesc* GetDesc() override;

  virtual int GetLayerCount() = 0;
  virtual int AddLayer(std::string name, int index) = 0;
  virtual std::string GetLayerName(int index) = 0;
  virtual int FindLayer(std::string name) = 0;
  virtual float Scale(float value, float by) = 0;
  virtual float Turn(float radians) = 0;
  virtual INode* PickNode(Tab<INode*> nodes, int which) = 0;
  virtual bool CheckNode(FPValue target) = 0;
  virtual Point3 GetOffsetPos() = 0;
  virtual void SetOffsetPos(Point3 p) = 0;
  virtual int GetPointType() = 0;
  virtual void SetPointType(int type) = 0;
  virtual int GetActiveLayer() = 0;
  virtual void SetActiveLayer(int index) = 0;
  virtual void SetFlag(bool state) = 0;

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override {
    switch (fid) {
      case kGetLayerCount:
      case kGetLayerCountProp:
        return FPBind(result, p, this, &ITestRig::GetLayerCount);
      case kAddLayer:
        return FPBind(result, p, this, &ITestRig::AddLayer);
      case kGetLayerName:
        return FPBind(result, p, this, &ITestRig::GetLayerName);
      case kFindLayer:
        return FPBind(result, p, this, &ITestRig::FindLayer);
      case kScale:
        return FPBind(result, p, this, &ITestRig::Scale);
      case kTurn:
        return FPBind(result, p, this, &ITestRig::Turn);
      case kPickNode:
        return FPBind(result, p, this, &ITestRig::PickNode);
      case kCheckNode:
        return FPBind(result, p, this, &ITestRig::CheckNode);
      case kGetOffsetPos:
        return FPBind(result, p, this, &ITestRig::GetOffsetPos);
      case kSetOffsetPos:
        return FPBind(result, p, this, &ITestRig::SetOffsetPos);
      case kGetPointType:
        return FPBind(result, p, this, &ITestRig::GetPointType);
      case kSetPointType:
        return FPBind(result, p, this, &ITestRig::SetPointType);
      case kGetActiveLayer:
        return FPBind(result, p, this, &ITestRig::GetActiveLayer);
      case kSetActiveLayer:
        return FPBind(result, p, this, &ITestRig::SetActiveLayer);
      case kSetFlag:
        return FPBind(result, p, this, &ITestRig::SetFlag);
      default:
        return FPS_NO_SUCH_FUNCTION;
    }
  }
};

class TestRig : public ReferenceTarget, public ITestRig {
 public:
  Class_ID ClassID() override { return kTestRigClassID; }
  void GetClassName(MSTR& s, bool) const override { s = "Test Rig"; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  BaseInterface* GetInterface(Interface_ID id) override {
    return id == kTestRigID ? static_cast<ITestRig*>(this) : ReferenceTarget::GetInterface(id);
  }
  using ReferenceTarget::GetInterface;

  int GetLayerCount() override { return static_cast<int>(layers.size()); }
  int AddLayer(std::string name, int index) override {
    if (index < 0 || index > GetLayerCount()) index = GetLayerCount();
    layers.insert(layers.begin() + index, name);
    return index;
  }
  std::string GetLayerName(int index) override {
    return index >= 0 && index < GetLayerCount() ? layers[static_cast<size_t>(index)] : "";
  }
  int FindLayer(std::string name) override {
    for (int i = 0; i < GetLayerCount(); ++i) {
      if (layers[static_cast<size_t>(i)] == name) return i;
    }
    return -1;
  }
  float Scale(float value, float by) override { return value * by; }
  float Turn(float radians) override {
    last_radians = radians;
    return 2.0f * radians;
  }
  INode* PickNode(Tab<INode*> nodes, int which) override { return nodes[which]; }
  bool CheckNode(FPValue target) override {
    if (!target.AsNode())
      throw RuntimeError("Expected a Node for the first argument, in function CheckNode ", target);
    return true;
  }
  Point3 GetOffsetPos() override { return offset; }
  void SetOffsetPos(Point3 p) override { offset = p; }
  int GetPointType() override { return point_type; }
  void SetPointType(int type) override { point_type = type; }
  int GetActiveLayer() override { return active; }
  void SetActiveLayer(int index) override { active = index; }
  void SetFlag(bool state) override { flag = state; }

  std::vector<std::string> layers;
  float last_radians = 0.0f;
  Point3 offset;
  int point_type = 0;
  int active = 0;
  bool flag = false;
};

class TestRigClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool) override { return new TestRig; }
  const char* ClassName() override { return "Test Rig"; }
  SClass_ID SuperClassID() override { return REF_TARGET_CLASS_ID; }
  Class_ID ClassID() override { return kTestRigClassID; }
  const char* Category() override { return ""; }
};

inline TestRigClassDesc& TheTestRigClassDesc() {
  static TestRigClassDesc cd;
  return cd;
}

inline FPInterfaceDesc* ITestRig::GetDesc() {
  using enum FPType;
  static FPInterfaceDesc desc(
      kTestRigID, "interface", FP_MIXIN, &TheTestRigClassDesc(),
      {
          {kGetLayerCount, "GetLayerCount", TYPE_INT},
          {kAddLayer,
           "AddLayer",
           TYPE_INDEX,
           {FPArg("name", TYPE_STRING).KeyArg(""), FPArg("index", TYPE_INDEX).KeyArg(-1)}},
          {kGetLayerName, "GetLayerName", TYPE_STRING, {FPArg("index", TYPE_INDEX)}},
          {kFindLayer, "FindLayer", TYPE_INDEX, {FPArg("name", TYPE_STRING)}},
          {kScale,
           "Scale",
           TYPE_FLOAT,
           {FPArg("value", TYPE_FLOAT), FPArg("by", TYPE_PCNT_FRAC).Default(1.0)}},
          {kTurn, "Turn", TYPE_ANGLE, {FPArg("angle", TYPE_ANGLE)}},
          {kPickNode,
           "PickNode",
           TYPE_INODE,
           {FPArg("nodes", TYPE_INODE_TAB), FPArg("which", TYPE_INDEX)}},
          {kCheckNode, "CheckNode", TYPE_BOOL, {FPArg("target", TYPE_VALUE)}},
          {kSetFlag, "SetFlag", TYPE_VOID, {FPArg("state", TYPE_BOOL)}},
      },
      {
          FPPropertyDef(kGetOffsetPos, kSetOffsetPos, "offset_pos", TYPE_POINT3),
          FPPropertyDef(kGetLayerCountProp, FP_NO_FUNCTION, "layer_count", TYPE_INT),
          FPPropertyDef(kGetPointType, kSetPointType, "point_type", TYPE_ENUM).Enum(kPointTypes),
          FPPropertyDef(kGetActiveLayer, kSetActiveLayer, "active_layer", TYPE_INDEX),
      },
      {
          FPEnumDef(kPointTypes, {{"BezierCorner", 0},
                                  {"Bezier", 1},
                                  {"Corner", 2},
                                  {"Smooth", 3},
                                  {"FixedSmooth", 4}}),
      });
  return &desc;
}

}  // namespace marvolith::test
