// Copyright Marvolith contributors.
#include "plugin/class_table.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>

#include "plugin/strings.h"

namespace marvolith {
namespace {

// The registry as documented, row by row, written out independently of the module's own table.
struct Row {
  const char* descriptor;
  const char* class_name;
  const char* internal_name;
  SClass_ID super_class;
  ULONG a, b;
  const char* category;
  bool is_public;
};

constexpr SClass_ID kFloat = CTRL_FLOAT_CLASS_ID, kPos = CTRL_POSITION_CLASS_ID,
                    kRot = CTRL_ROTATION_CLASS_ID, kScale = CTRL_SCALE_CLASS_ID,
                    kMat = CTRL_MATRIX3_CLASS_ID, kRef = REF_TARGET_CLASS_ID,
                    kHelper = HELPER_CLASS_ID, kAttrib = CUST_ATTRIB_CLASS_ID, kOsm = OSM_CLASS_ID;
constexpr ULONG kCtl = 0x45596d56, kObj = 0x45596d57, kMod = 0x45596d58;

// clang-format off
const Row kRows[kClassCount] = {
    {"StaticFloatClassDesc", "Static Float", "StaticFloat", kFloat, kCtl, 0x1e847b36, "Animation", true},
    {"StepFloatClassDesc", "Step Float", "StepFloat", kFloat, kCtl, 0x1e847b37, "Animation", true},
    {"MsgCheckerClassDesc", "MsgChecker", "MsgChecker", kRef, 0x8443dfa5, 0x3f434885, "Animation", true},
    {"StretchConstraintClassDesc", "Stretch Constraint", "StretchConstraint", kMat, kCtl, 0x1e847b40, "Animation", true},
    {"AimConstraintClassDesc", "Aim Constraint", "AimConstraint", kRot, kCtl, 0x1e847b39, "Animation", true},
    {"FloatExposeTMClassDesc", "Float Expose TM", "FloatExposeTM", kFloat, kCtl, 0x1e847b41, "Animation", true},
    {"FloatConnectionClassDesc", "Float Connection", "FloatConnection", kFloat, kCtl, 0x1e847b43, "Animation", true},
    {"ScaleConstraintClassDesc", "Scale Constraint", "ScaleConstraint", kScale, kCtl, 0x1e847b44, "Animation", true},
    {"TransformConstraintClassDesc", "Transform Constraint", "TransformConstraint", kMat, kCtl, 0x1e847b45, "Animation", true},
    {"StaticPositionClassDesc", "Static Position", "StaticPosition", kPos, kCtl, 0x1e847b50, "Animation", true},
    {"StaticRotationClassDesc", "Static Rotation", "StaticRotation", kRot, kCtl, 0x1e847b47, "Animation", true},
    {"StaticScaleClassDesc", "Static Scale", "StaticScale", kScale, kCtl, 0x1e847b48, "Animation", true},
    {"StaticTransformClassDesc", "Static Transform", "StaticTransform", kMat, kCtl, 0x1e847b49, "Animation", true},
    {"CurveIKControlClassDesc", "CurveIK Control", "CurveIKControl", kMat, kCtl, 0x1e847b51, "Animation", false},
    {"CurveIKChainClassDesc", "CurveIK Chain", "CurveIKChain", kMat, kCtl, 0x1e847b52, "Animation", false},
    {"ControlHelperClassDesc", "Control Helper", "ControlHelper", kHelper, kObj, 0x1e847b30, "", true},
    {"UIPanelClassDesc", "UI Panel", "UIPanel", kHelper, kCtl, 0x1e847f00, "", true},
    {"UIGroupClassDesc", "UIGroup", "UIGroup", kRef, kCtl, 0x1e847f01, "Animation", true},
    {"UIImageClassDesc", "UIImage", "UIImage", kRef, kCtl, 0x1e847f03, "Animation", true},
    {"UIPickerClassDesc", "UIPicker", "UIPicker", kRef, kCtl, 0x1e847f04, "Animation", true},
    {"UIVisibilityClassDesc", "UIVisibility", "UIVisibility", kRef, kCtl, 0x1e847f0b, "Animation", true},
    {"UIToggleClassDesc", "UIToggle", "UIToggle", kRef, kCtl, 0x1e847f05, "Animation", true},
    {"UIActionClassDesc", "Vertical Offset", "UIAction", kRef, kCtl, 0x1e847f06, "Animation", true},
    {"UISliderClassDesc", "UISlider", "UISlider", kRef, kCtl, 0x1e847f07, "Animation", true},
    {"UI2DSliderClassDesc", "UI2DSlider", "UI2DSlider", kRef, kCtl, 0x1e847f08, "Animation", true},
    {"UISpinnerClassDesc", "UISpinner", "UISpinner", kRef, kCtl, 0x1e847f09, "Animation", true},
    {"UI2DSpinnerClassDesc", "UI2DSpinner", "UI2DSpinner", kRef, kCtl, 0x1e847f0a, "Animation", true},
    {"UIPanelHolderClassDesc", "UIPanel Holder", "UIPanelHolder", kFloat, kCtl, 0x1e847f99, "Animation", false},
    {"RigClassDesc", "Rig", "Rig", kHelper, kObj, 0x1e847b40, "", false},
    {"RigSystemClassDesc", "Rig", "Rig", SYSTEM_CLASS_ID, kObj, 0x1e847b41, "", true},
    {"IKFKChainClassDesc", "IKFK Chain", "IKFKChain", kMat, kCtl, 0x1e847b60, "Animation", false},
    {"IKFKControlClassDesc", "IKFK Control", "IKFKControl", kMat, kCtl, 0x1e847b62, "Animation", false},
    {"IKFKLinkClassDesc", "IKFK Link", "IKFKLink", kFloat, kCtl, 0x1e847b63, "Animation", false},
    {"ParentConstraintClassDesc", "Parent Constraint", "ParentConstraint", kMat, kCtl, 0x1e847b54, "Animation", true},
    {"RotationSpaceClassDesc", "Rotation Space", "RotationSpace", kMat, kCtl, 0x1e847b55, "Animation", true},
    {"PoseKitClassDesc", "Pose Kit", "PoseKit", kHelper, kCtl, 0x1e847000, "", true},
    {"PoseKitHolderClassDesc", "Pose Kit Holder", "PoseKitHolder", kFloat, kCtl, 0x1e847f0a, "Animation", false},
    {"LimbAttribClassDesc", "LimbAttrib", "LimbAttrib", kAttrib, kCtl, 0x1e848001, "", true},
    {"CurveAttribClassDesc", "CurveAttrib", "CurveAttrib", kAttrib, kCtl, 0x1e848002, "", true},
    {"HeadAttribClassDesc", "HeadAttrib", "HeadAttrib", kAttrib, kCtl, 0x1e848003, "", true},
    {"FootAttribClassDesc", "FootAttrib", "FootAttrib", kAttrib, kCtl, 0x1e848004, "", true},
    {"LinkAttribClassDesc", "LinkAttrib", "LinkAttrib", kAttrib, kCtl, 0x1e848005, "", true},
    {"FloatOperationClassDesc", "Float Operation", "FloatOperation", kFloat, kCtl, 0x1e847b56, "Animation", true},
    {"FloatWaveClassDesc", "Float Wave", "FloatWave", kFloat, kCtl, 0x1e847b57, "Animation", true},
    {"RigControlClassDesc", "Rig Transform", "RigTransform", kMat, kCtl, 0x1e847b58, "Animation", true},
    {"PositionConnectionClassDesc", "Position Connection", "PositionConnection", kPos, kCtl, 0x1e847b59, "Animation", true},
    {"RotationConnectionClassDesc", "Rotation Connection", "RotationConnection", kRot, kCtl, 0x1e847b60, "Animation", true},
    {"ScaleConnectionClassDesc", "Scale Connection", "ScaleConnection", kScale, kCtl, 0x1e847b61, "Animation", true},
    {"MirrorMorphClassDesc", "Mirror Morph", "MirrorMorph", kOsm, kMod, 0x1e847b01, "", true},
    {"CorrectiveMorphClassDesc", "CorrectiveMorph", "CorrectiveMorph", kOsm, kMod, 0x1e847b02, "", true},
    {"DynamicsClassDesc", "Dynamics", "Dynamics", kHelper, kCtl, 0x1e847001, "", false},
    {"AnimationManagerModClassDesc", "Animation Manager", "AnimationManagerMod", kOsm, kMod, 0x1e847b03, "", true},
    {"RootAttribClassDesc", "RootAttrib", "RootAttrib", kAttrib, kCtl, 0x1e848006, "", true},
    {"RootConstraintClassDesc", "Root Constraint", "RootConstraint", kMat, kCtl, 0x1e847b64, "Animation", true},
    {"TwistPosesFloatClassDesc", "Twist Poses Float", "TwistPosesFloat", kFloat, kCtl, 0x1e847b65, "Animation", true},
    {"TwistPosesRotationClassDesc", "Twist Poses Rotation", "TwistPosesRotation", kRot, kCtl, 0x1e847b66, "Animation", true},
    {"UILabelClassDesc", "UI Label", "UILabel", kRef, kCtl, 0x1e847f0c, "Animation", true},
    {"DummyFloatClassDesc", "Dummy Float", "DummyFloat", kFloat, kCtl, 0x1e847b67, "Animation", false},
    {"DummyRotationClassDesc", "Dummy Rotation", "DummyRotation", kRot, kCtl, 0x1e847b68, "Animation", false},
    {"AnimationLayersClassDesc", "Animation Layers", "AnimationLayers", kRef, kCtl, 0x1e847b69, "Animation", false},
    {"FloatLayersClassDesc", "Float Layers", "FloatLayers", kFloat, kCtl, 0x1e847b70, "Animation", false},
    {"PositionLayersClassDesc", "Position Layers", "PositionLayers", kPos, kCtl, 0x1e847b71, "Animation", false},
    {"RotationLayersClassDesc", "Rotation Layers", "RotationLayers", kRot, kCtl, 0x1e847b72, "Animation", false},
    {"ScaleLayersClassDesc", "Scale Layers", "ScaleLayers", kScale, kCtl, 0x1e847b73, "Animation", false},
    {"ControlShapeClassDesc", "Control Shape", "ControlShape", SHAPE_CLASS_ID, kObj, 0xed40c435, "Splines", true},
    {"IKFKDisplayModClassDesc", "IKFK Display", "IKFKDisplayMod", kOsm, kMod, 0x3397fdc, "", true},
    {"AnimLayersLocalWeightsClassDesc", "Animation Layers Local Weights", "AnimLayersLocalWeights", kRef, kCtl, 0x1e847b68, "Animation", false},
    {"RotationXYZClassDesc", "Rotation XYZ", "Rotation XYZ", kRot, kCtl, 0x1e847b74, "Animation", true},
    {"FBXExporterClassDesc", "Marvolith FBX Exporter", "MarvolithFBXExporter", SCENE_EXPORT_CLASS_ID, 0x61a849d3, 0x2e7b530c, "", true},
    {"FBXImporterClassDesc", "Marvolith FBX Importer", "MarvolithFBXImporter", SCENE_IMPORT_CLASS_ID, 0x5d9b730a, 0x37c248f1, "", true},
};
// clang-format on

// A descriptor of any row, for what the base class answers.
class RowClassDesc : public MarvolithClassDesc {
 public:
  using MarvolithClassDesc::MarvolithClassDesc;
  Animatable* Create(bool) override { return nullptr; }
};

class ClassTableTest : public ::testing::Test {
 protected:
  void SetUp() override { SetModuleInstance(&instance_); }
  void TearDown() override { SetModuleInstance(nullptr); }
  int instance_ = 0;
};

TEST_F(ClassTableTest, EveryRowMatchesTheDocumentedRegistry) {
  for (int i = 0; i < kClassCount; ++i) {
    SCOPED_TRACE(kRows[i].descriptor);
    const ClassInfo& info = GetClassInfo(static_cast<ClassIndex>(i));
    RowClassDesc cd(static_cast<ClassIndex>(i));
    EXPECT_STREQ(info.descriptor, kRows[i].descriptor);
    const char* name = cd.ClassName();
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(std::string(name), kRows[i].class_name);
    EXPECT_STREQ(cd.InternalName(), kRows[i].internal_name);
    EXPECT_EQ(cd.SuperClassID(), kRows[i].super_class);
    EXPECT_EQ(cd.ClassID(), Class_ID(kRows[i].a, kRows[i].b));
    const char* category = cd.Category();
    ASSERT_NE(category, nullptr);
    EXPECT_STREQ(category, kRows[i].category);
    EXPECT_EQ(cd.IsPublic(), kRows[i].is_public);
    EXPECT_EQ(cd.HInstance(), &instance_);
    EXPECT_EQ(cd.Index(), static_cast<ClassIndex>(i));
    EXPECT_EQ(std::string(ClassNameOf(cd.Index())), kRows[i].class_name) << "objects' name";
  }
}

TEST_F(ClassTableTest, ObjectsAnswerTheirInternalNameWithoutAStringTable) {
  SetModuleInstance(nullptr);
  for (int i = 0; i < kClassCount; ++i) {
    EXPECT_STREQ(ClassNameOf(static_cast<ClassIndex>(i)), kRows[i].internal_name);
  }
}

TEST_F(ClassTableTest, SharedClassIdsAreSeparatedBySuperClass) {
  // Identity within the host is the pair (super class, Class_ID): no two rows may share it.
  std::set<std::pair<SClass_ID, Class_ID>> seen;
  for (int i = 0; i < kClassCount; ++i) {
    const ClassInfo& info = GetClassInfo(static_cast<ClassIndex>(i));
    EXPECT_TRUE(seen.insert({info.super_class, info.class_id}).second) << info.descriptor;
  }
  // The pairs that scenes depend on: same Class_ID, different super class.
  const std::pair<ClassIndex, ClassIndex> shared[] = {
      {ClassIndex::IKFKChain, ClassIndex::RotationConnection},
      {ClassIndex::DummyRotation, ClassIndex::AnimLayersLocalWeights},
      {ClassIndex::UI2DSpinner, ClassIndex::PoseKitHolder},
  };
  for (auto [x, y] : shared) {
    SCOPED_TRACE(GetClassInfo(x).descriptor);
    EXPECT_EQ(GetClassInfo(x).class_id, GetClassInfo(y).class_id);
    EXPECT_NE(GetClassInfo(x).super_class, GetClassInfo(y).super_class);
  }
}

TEST(StringTableTest, LookupNeedsTheModuleInstanceAndAKnownId) {
  SetModuleInstance(nullptr);
  EXPECT_EQ(GetString(IDS_LIB_DESCRIPTION), nullptr) << "before the module is attached";
  int instance = 0;
  SetModuleInstance(&instance);
  EXPECT_STREQ(GetString(IDS_LIB_DESCRIPTION), "Marvolith Animation");
  EXPECT_STREQ(GetString(256), "Vertical Offset");
  EXPECT_STREQ(GetString(IDS_ANIM_LAYERS_ACTIVE_FILTER), "Animation Layers Active Filter");
  EXPECT_EQ(GetString(1022), nullptr) << "UIAction's row uses 256, not a string of its own";
  EXPECT_EQ(GetString(0), nullptr);
  EXPECT_EQ(GetString(-1), nullptr);
  EXPECT_EQ(GetString(99999), nullptr);
  SetModuleInstance(nullptr);
}

TEST(StringTableTest, EveryLookupSharesOneBuffer) {
  int instance = 0;
  SetModuleInstance(&instance);
  const char* first = GetString(IDS_CATEGORY_ANIMATION);
  ASSERT_NE(first, nullptr);
  const std::string copy = first;
  const char* second = GetString(IDS_CATEGORY_SPLINES);
  EXPECT_EQ(first, second) << "one static buffer";
  EXPECT_STREQ(first, "Splines") << "the second lookup overwrote the first text";
  EXPECT_EQ(copy, "Animation");
  // An unknown id answers null and leaves the buffer alone.
  EXPECT_EQ(GetString(12345), nullptr);
  EXPECT_STREQ(second, "Splines");
  SetModuleInstance(nullptr);
}

}  // namespace
}  // namespace marvolith
