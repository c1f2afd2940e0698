// Copyright Marvolith contributors.
// The module's class table: identity, names and flags of the 70 classes, in the order the host
// reads them through LibClassDesc. The order is part of the contract and is never sorted.
#pragma once

#include "host/base/ids.h"
#include "host/registry/class_desc.h"

namespace marvolith {

/// Position of each class in the module's table.
enum class ClassIndex : int {
  StaticFloat = 0,
  StepFloat = 1,
  MsgChecker = 2,
  StretchConstraint = 3,
  AimConstraint = 4,
  FloatExposeTM = 5,
  FloatConnection = 6,
  ScaleConstraint = 7,
  TransformConstraint = 8,
  StaticPosition = 9,
  StaticRotation = 10,
  StaticScale = 11,
  StaticTransform = 12,
  CurveIKControl = 13,
  CurveIKChain = 14,
  ControlHelper = 15,
  UIPanel = 16,
  UIGroup = 17,
  UIImage = 18,
  UIPicker = 19,
  UIVisibility = 20,
  UIToggle = 21,
  UIAction = 22,
  UISlider = 23,
  UI2DSlider = 24,
  UISpinner = 25,
  UI2DSpinner = 26,
  UIPanelHolder = 27,
  Rig = 28,
  RigSystem = 29,
  IKFKChain = 30,
  IKFKControl = 31,
  IKFKLink = 32,
  ParentConstraint = 33,
  RotationSpace = 34,
  PoseKit = 35,
  PoseKitHolder = 36,
  LimbAttrib = 37,
  CurveAttrib = 38,
  HeadAttrib = 39,
  FootAttrib = 40,
  LinkAttrib = 41,
  FloatOperation = 42,
  FloatWave = 43,
  RigControl = 44,
  PositionConnection = 45,
  RotationConnection = 46,
  ScaleConnection = 47,
  MirrorMorph = 48,
  CorrectiveMorph = 49,
  Dynamics = 50,
  AnimationManagerMod = 51,
  RootAttrib = 52,
  RootConstraint = 53,
  TwistPosesFloat = 54,
  TwistPosesRotation = 55,
  UILabel = 56,
  DummyFloat = 57,
  DummyRotation = 58,
  AnimationLayers = 59,
  FloatLayers = 60,
  PositionLayers = 61,
  RotationLayers = 62,
  ScaleLayers = 63,
  ControlShape = 64,
  IKFKDisplayMod = 65,
  AnimLayersLocalWeights = 66,
  RotationXYZ = 67,
  FBXExporter = 68,
  FBXImporter = 69,
};

inline constexpr int kClassCount = 70;

/// One row of the table. Names that a user sees are string-table ids; the internal (script) name
/// is fixed text.
struct ClassInfo {
  const char* descriptor;  ///< the descriptor's C++ class name, e.g. "RigControlClassDesc"
  int class_name_id;       ///< string id of ClassName
  const char* internal_name;
  SClass_ID super_class;
  Class_ID class_id;
  int category_id;  ///< string id of Category
  bool is_public;
};

/// The row at index; index must be a valid ClassIndex.
const ClassInfo& GetClassInfo(ClassIndex index);

/// What Animatable::GetClassName answers for an object of the class at index: the ClassName from
/// the module's string table, or the fixed internal name while that table cannot be read (no
/// module instance yet). The text may sit in the string table's shared buffer: copy it before
/// the next string lookup.
const char* ClassNameOf(ClassIndex index);

/// Base of every descriptor of the module: identity, names and flags come from the class table,
/// names through the module's string table. Subclasses add Create.
class MarvolithClassDesc : public ClassDesc2 {
 public:
  explicit MarvolithClassDesc(ClassIndex index) : index_(index) {}

  bool IsPublic() override { return GetClassInfo(index_).is_public; }
  const char* ClassName() override;
  const char* InternalName() override { return GetClassInfo(index_).internal_name; }
  SClass_ID SuperClassID() override { return GetClassInfo(index_).super_class; }
  Class_ID ClassID() override { return GetClassInfo(index_).class_id; }
  const char* Category() override;
  HINSTANCE HInstance() override;
  ClassIndex Index() const { return index_; }

 private:
  ClassIndex index_;
};

}  // namespace marvolith
