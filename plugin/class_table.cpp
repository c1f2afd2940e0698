// Copyright Marvolith contributors.
#include "plugin/class_table.h"

#include "plugin/strings.h"

namespace marvolith {
namespace {

// Three rows look wrong and are kept: UIAction's class name is string 256, "Vertical Offset";
// Rig and RigSystem share a class name and internal name; "Rotation XYZ" keeps its blank as
// internal name. Shared Class_IDs differ by super class.
constexpr ClassInfo kClasses[kClassCount] = {
    {"StaticFloatClassDesc", 1000, "StaticFloat", CTRL_FLOAT_CLASS_ID, Class_ID(0x45596d56, 0x1e847b36), IDS_CATEGORY_ANIMATION, true},
    {"StepFloatClassDesc", 1001, "StepFloat", CTRL_FLOAT_CLASS_ID, Class_ID(0x45596d56, 0x1e847b37), IDS_CATEGORY_ANIMATION, true},
    {"MsgCheckerClassDesc", 1002, "MsgChecker", REF_TARGET_CLASS_ID, Class_ID(0x8443dfa5, 0x3f434885), IDS_CATEGORY_ANIMATION, true},
    {"StretchConstraintClassDesc", 1003, "StretchConstraint", CTRL_MATRIX3_CLASS_ID, Class_ID(0x45596d56, 0x1e847b40), IDS_CATEGORY_ANIMATION, true},
    {"AimConstraintClassDesc", 1004, "AimConstraint", CTRL_ROTATION_CLASS_ID, Class_ID(0x45596d56, 0x1e847b39), IDS_CATEGORY_ANIMATION, true},
    {"FloatExposeTMClassDesc", 1005, "FloatExposeTM", CTRL_FLOAT_CLASS_ID, Class_ID(0x45596d56, 0x1e847b41), IDS_CATEGORY_ANIMATION, true},
    {"FloatConnectionClassDesc", 1006, "FloatConnection", CTRL_FLOAT_CLASS_ID, Class_ID(0x45596d56, 0x1e847b43), IDS_CATEGORY_ANIMATION, true},
    {"ScaleConstraintClassDesc", 1007, "ScaleConstraint", CTRL_SCALE_CLASS_ID, Class_ID(0x45596d56, 0x1e847b44), IDS_CATEGORY_ANIMATION, true},
    {"TransformConstraintClassDesc", 1008, "TransformConstraint", CTRL_MATRIX3_CLASS_ID, Class_ID(0x45596d56, 0x1e847b45), IDS_CATEGORY_ANIMATION, true},
    {"StaticPositionClassDesc", 1009, "StaticPosition", CTRL_POSITION_CLASS_ID, Class_ID(0x45596d56, 0x1e847b50), IDS_CATEGORY_ANIMATION, true},
    {"StaticRotationClassDesc", 1010, "StaticRotation", CTRL_ROTATION_CLASS_ID, Class_ID(0x45596d56, 0x1e847b47), IDS_CATEGORY_ANIMATION, true},
    {"StaticScaleClassDesc", 1011, "StaticScale", CTRL_SCALE_CLASS_ID, Class_ID(0x45596d56, 0x1e847b48), IDS_CATEGORY_ANIMATION, true},
    {"StaticTransformClassDesc", 1012, "StaticTransform", CTRL_MATRIX3_CLASS_ID, Class_ID(0x45596d56, 0x1e847b49), IDS_CATEGORY_ANIMATION, true},
    {"CurveIKControlClassDesc", 1013, "CurveIKControl", CTRL_MATRIX3_CLASS_ID, Class_ID(0x45596d56, 0x1e847b51), IDS_CATEGORY_ANIMATION, false},
    {"CurveIKChainClassDesc", 1014, "CurveIKChain", CTRL_MATRIX3_CLASS_ID, Class_ID(0x45596d56, 0x1e847b52), IDS_CATEGORY_ANIMATION, false},
    {"ControlHelperClassDesc", 1015, "ControlHelper", HELPER_CLASS_ID, Class_ID(0x45596d57, 0x1e847b30), IDS_CATEGORY_NONE, true},
    {"UIPanelClassDesc", 1016, "UIPanel", HELPER_CLASS_ID, Class_ID(0x45596d56, 0x1e847f00), IDS_CATEGORY_NONE, true},
    {"UIGroupClassDesc", 1017, "UIGroup", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847f01), IDS_CATEGORY_ANIMATION, true},
    {"UIImageClassDesc", 1018, "UIImage", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847f03), IDS_CATEGORY_ANIMATION, true},
    {"UIPickerClassDesc", 1019, "UIPicker", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847f04), IDS_CATEGORY_ANIMATION, true},
    {"UIVisibilityClassDesc", 1020, "UIVisibility", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847f0b), IDS_CATEGORY_ANIMATION, true},
    {"UIToggleClassDesc", 1021, "UIToggle", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847f05), IDS_CATEGORY_ANIMATION, true},
    {"UIActionClassDesc", 256, "UIAction", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847f06), IDS_CATEGORY_ANIMATION, true},
    {"UISliderClassDesc", 1023, "UISlider", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847f07), IDS_CATEGORY_ANIMATION, true},
    {"UI2DSliderClassDesc", 1024, "UI2DSlider", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847f08), IDS_CATEGORY_ANIMATION, true},
    {"UISpinnerClassDesc", 1025, "UISpinner", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847f09), IDS_CATEGORY_ANIMATION, true},
    {"UI2DSpinnerClassDesc", 1026, "UI2DSpinner", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847f0a), IDS_CATEGORY_ANIMATION, true},
    {"UIPanelHolderClassDesc", 1027, "UIPanelHolder", CTRL_FLOAT_CLASS_ID, Class_ID(0x45596d56, 0x1e847f99), IDS_CATEGORY_ANIMATION, false},
    {"RigClassDesc", 1028, "Rig", HELPER_CLASS_ID, Class_ID(0x45596d57, 0x1e847b40), IDS_CATEGORY_NONE, false},
    {"RigSystemClassDesc", 1029, "Rig", SYSTEM_CLASS_ID, Class_ID(0x45596d57, 0x1e847b41), IDS_CATEGORY_NONE, true},
    {"IKFKChainClassDesc", 1030, "IKFKChain", CTRL_MATRIX3_CLASS_ID, Class_ID(0x45596d56, 0x1e847b60), IDS_CATEGORY_ANIMATION, false},
    {"IKFKControlClassDesc", 1031, "IKFKControl", CTRL_MATRIX3_CLASS_ID, Class_ID(0x45596d56, 0x1e847b62), IDS_CATEGORY_ANIMATION, false},
    {"IKFKLinkClassDesc", 1032, "IKFKLink", CTRL_FLOAT_CLASS_ID, Class_ID(0x45596d56, 0x1e847b63), IDS_CATEGORY_ANIMATION, false},
    {"ParentConstraintClassDesc", 1033, "ParentConstraint", CTRL_MATRIX3_CLASS_ID, Class_ID(0x45596d56, 0x1e847b54), IDS_CATEGORY_ANIMATION, true},
    {"RotationSpaceClassDesc", 1034, "RotationSpace", CTRL_MATRIX3_CLASS_ID, Class_ID(0x45596d56, 0x1e847b55), IDS_CATEGORY_ANIMATION, true},
    {"PoseKitClassDesc", 1035, "PoseKit", HELPER_CLASS_ID, Class_ID(0x45596d56, 0x1e847000), IDS_CATEGORY_NONE, true},
    {"PoseKitHolderClassDesc", 1036, "PoseKitHolder", CTRL_FLOAT_CLASS_ID, Class_ID(0x45596d56, 0x1e847f0a), IDS_CATEGORY_ANIMATION, false},
    {"LimbAttribClassDesc", 1037, "LimbAttrib", CUST_ATTRIB_CLASS_ID, Class_ID(0x45596d56, 0x1e848001), IDS_CATEGORY_NONE, true},
    {"CurveAttribClassDesc", 1038, "CurveAttrib", CUST_ATTRIB_CLASS_ID, Class_ID(0x45596d56, 0x1e848002), IDS_CATEGORY_NONE, true},
    {"HeadAttribClassDesc", 1039, "HeadAttrib", CUST_ATTRIB_CLASS_ID, Class_ID(0x45596d56, 0x1e848003), IDS_CATEGORY_NONE, true},
    {"FootAttribClassDesc", 1040, "FootAttrib", CUST_ATTRIB_CLASS_ID, Class_ID(0x45596d56, 0x1e848004), IDS_CATEGORY_NONE, true},
    {"LinkAttribClassDesc", 1041, "LinkAttrib", CUST_ATTRIB_CLASS_ID, Class_ID(0x45596d56, 0x1e848005), IDS_CATEGORY_NONE, true},
    {"FloatOperationClassDesc", 1042, "FloatOperation", CTRL_FLOAT_CLASS_ID, Class_ID(0x45596d56, 0x1e847b56), IDS_CATEGORY_ANIMATION, true},
    {"FloatWaveClassDesc", 1043, "FloatWave", CTRL_FLOAT_CLASS_ID, Class_ID(0x45596d56, 0x1e847b57), IDS_CATEGORY_ANIMATION, true},
    {"RigControlClassDesc", 1044, "RigTransform", CTRL_MATRIX3_CLASS_ID, Class_ID(0x45596d56, 0x1e847b58), IDS_CATEGORY_ANIMATION, true},
    {"PositionConnectionClassDesc", 1045, "PositionConnection", CTRL_POSITION_CLASS_ID, Class_ID(0x45596d56, 0x1e847b59), IDS_CATEGORY_ANIMATION, true},
    {"RotationConnectionClassDesc", 1046, "RotationConnection", CTRL_ROTATION_CLASS_ID, Class_ID(0x45596d56, 0x1e847b60), IDS_CATEGORY_ANIMATION, true},
    {"ScaleConnectionClassDesc", 1047, "ScaleConnection", CTRL_SCALE_CLASS_ID, Class_ID(0x45596d56, 0x1e847b61), IDS_CATEGORY_ANIMATION, true},
    {"MirrorMorphClassDesc", 1048, "MirrorMorph", OSM_CLASS_ID, Class_ID(0x45596d58, 0x1e847b01), IDS_CATEGORY_NONE, true},
    {"CorrectiveMorphClassDesc", 1049, "CorrectiveMorph", OSM_CLASS_ID, Class_ID(0x45596d58, 0x1e847b02), IDS_CATEGORY_NONE, true},
    {"DynamicsClassDesc", 1050, "Dynamics", HELPER_CLASS_ID, Class_ID(0x45596d56, 0x1e847001), IDS_CATEGORY_NONE, false},
    {"AnimationManagerModClassDesc", 1051, "AnimationManagerMod", OSM_CLASS_ID, Class_ID(0x45596d58, 0x1e847b03), IDS_CATEGORY_NONE, true},
    {"RootAttribClassDesc", 1052, "RootAttrib", CUST_ATTRIB_CLASS_ID, Class_ID(0x45596d56, 0x1e848006), IDS_CATEGORY_NONE, true},
    {"RootConstraintClassDesc", 1053, "RootConstraint", CTRL_MATRIX3_CLASS_ID, Class_ID(0x45596d56, 0x1e847b64), IDS_CATEGORY_ANIMATION, true},
    {"TwistPosesFloatClassDesc", 1054, "TwistPosesFloat", CTRL_FLOAT_CLASS_ID, Class_ID(0x45596d56, 0x1e847b65), IDS_CATEGORY_ANIMATION, true},
    {"TwistPosesRotationClassDesc", 1055, "TwistPosesRotation", CTRL_ROTATION_CLASS_ID, Class_ID(0x45596d56, 0x1e847b66), IDS_CATEGORY_ANIMATION, true},
    {"UILabelClassDesc", 1056, "UILabel", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847f0c), IDS_CATEGORY_ANIMATION, true},
    {"DummyFloatClassDesc", 1057, "DummyFloat", CTRL_FLOAT_CLASS_ID, Class_ID(0x45596d56, 0x1e847b67), IDS_CATEGORY_ANIMATION, false},
    {"DummyRotationClassDesc", 1058, "DummyRotation", CTRL_ROTATION_CLASS_ID, Class_ID(0x45596d56, 0x1e847b68), IDS_CATEGORY_ANIMATION, false},
    {"AnimationLayersClassDesc", 1059, "AnimationLayers", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847b69), IDS_CATEGORY_ANIMATION, false},
    {"FloatLayersClassDesc", 1060, "FloatLayers", CTRL_FLOAT_CLASS_ID, Class_ID(0x45596d56, 0x1e847b70), IDS_CATEGORY_ANIMATION, false},
    {"PositionLayersClassDesc", 1061, "PositionLayers", CTRL_POSITION_CLASS_ID, Class_ID(0x45596d56, 0x1e847b71), IDS_CATEGORY_ANIMATION, false},
    {"RotationLayersClassDesc", 1062, "RotationLayers", CTRL_ROTATION_CLASS_ID, Class_ID(0x45596d56, 0x1e847b72), IDS_CATEGORY_ANIMATION, false},
    {"ScaleLayersClassDesc", 1063, "ScaleLayers", CTRL_SCALE_CLASS_ID, Class_ID(0x45596d56, 0x1e847b73), IDS_CATEGORY_ANIMATION, false},
    {"ControlShapeClassDesc", 1064, "ControlShape", SHAPE_CLASS_ID, Class_ID(0x45596d57, 0xed40c435), IDS_CATEGORY_SPLINES, true},
    {"IKFKDisplayModClassDesc", 1065, "IKFKDisplayMod", OSM_CLASS_ID, Class_ID(0x45596d58, 0x3397fdc), IDS_CATEGORY_NONE, true},
    {"AnimLayersLocalWeightsClassDesc", 1066, "AnimLayersLocalWeights", REF_TARGET_CLASS_ID, Class_ID(0x45596d56, 0x1e847b68), IDS_CATEGORY_ANIMATION, false},
    {"RotationXYZClassDesc", 1067, "Rotation XYZ", CTRL_ROTATION_CLASS_ID, Class_ID(0x45596d56, 0x1e847b74), IDS_CATEGORY_ANIMATION, true},
    {"FBXExporterClassDesc", 1068, "MarvolithFBXExporter", SCENE_EXPORT_CLASS_ID, Class_ID(0x61a849d3, 0x2e7b530c), IDS_CATEGORY_NONE, true},
    {"FBXImporterClassDesc", 1069, "MarvolithFBXImporter", SCENE_IMPORT_CLASS_ID, Class_ID(0x5d9b730a, 0x37c248f1), IDS_CATEGORY_NONE, true},
};

}  // namespace

const ClassInfo& GetClassInfo(ClassIndex index) { return kClasses[static_cast<int>(index)]; }

const char* ClassNameOf(ClassIndex index) {
  const char* name = GetString(GetClassInfo(index).class_name_id);
  return name ? name : GetClassInfo(index).internal_name;
}

const char* MarvolithClassDesc::ClassName() { return GetString(GetClassInfo(index_).class_name_id); }

const char* MarvolithClassDesc::Category() { return GetString(GetClassInfo(index_).category_id); }

HINSTANCE MarvolithClassDesc::HInstance() { return GetModuleInstance(); }

}  // namespace marvolith
