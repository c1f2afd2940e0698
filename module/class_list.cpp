// Copyright Marvolith contributors.
#include "module/class_list.h"

#include <array>
#include <cstddef>
#include <utility>

#include "animation/animation_manager.h"
#include "animation/animation_manager_mod.h"
#include "chains/curve_ik_chain.h"
#include "chains/curve_ik_control.h"
#include "chains/ikfk_chain.h"
#include "chains/ikfk_control.h"
#include "chains/ikfk_display_mod.h"
#include "chains/ikfk_link.h"
#include "constraints/aim_constraint.h"
#include "constraints/blend_constraints.h"
#include "constraints/parent_constraint.h"
#include "constraints/root_constraint.h"
#include "constraints/rotation_space.h"
#include "constraints/stretch_constraint.h"
#include "controllers/connection_controls.h"
#include "controllers/dummy_controls.h"
#include "controllers/float_expose_tm.h"
#include "controllers/float_operation.h"
#include "controllers/float_wave.h"
#include "controllers/rig_control.h"
#include "controllers/rotation_xyz.h"
#include "controllers/static_controls.h"
#include "controllers/twist_poses.h"
#include "controls/control_helper.h"
#include "controls/control_shape.h"
#include "host/core/diagnostics.h"
#include "layers/animation_layers.h"
#include "layers/layer_control.h"
#include "rig/rig_system.h"

namespace marvolith {
namespace {

using ClassTable = std::array<ClassDesc2*, kClassCount>;

// The manager's scripting interface is a static object that nothing in the module calls; naming
// it here keeps it in the module however the link is made.
[[maybe_unused]] AnimationManager* const kAnimationManagerGlobal = &GetAnimationManager();

template <std::size_t... I>
std::array<PendingClassDesc, sizeof...(I)> MakePendingDescs(std::index_sequence<I...>) {
  return {PendingClassDesc(static_cast<ClassIndex>(I))...};
}

// Stand-ins for the classes not built yet, built at module load like the real descriptors.
std::array<PendingClassDesc, kClassCount> pending_descs =
    MakePendingDescs(std::make_index_sequence<kClassCount>());

// The classes that exist, each with its folder's descriptor. Adding a class here also takes it
// off the list of pending classes in the module's tests.
void PutImplementedClasses(ClassTable& table) {
  auto put = [&table](ClassIndex index, ClassDesc2* cd) {
    table[static_cast<std::size_t>(index)] = cd;
  };
  put(ClassIndex::StaticFloat, GetStaticFloatDesc());
  put(ClassIndex::StretchConstraint, GetStretchConstraintDesc());
  put(ClassIndex::AimConstraint, GetAimConstraintDesc());
  put(ClassIndex::StaticPosition, GetStaticPositionDesc());
  put(ClassIndex::StaticRotation, GetStaticRotationDesc());
  put(ClassIndex::StaticScale, GetStaticScaleDesc());
  put(ClassIndex::StaticTransform, GetStaticTransformDesc());
  put(ClassIndex::FloatExposeTM, GetFloatExposeTMDesc());
  put(ClassIndex::FloatConnection, GetFloatConnectionDesc());
  put(ClassIndex::FloatOperation, GetFloatOperationDesc());
  put(ClassIndex::FloatWave, GetFloatWaveDesc());
  put(ClassIndex::RigControl, GetRigControlDesc());
  put(ClassIndex::Rig, GetRigDesc());
  put(ClassIndex::RigSystem, GetRigSystemDesc());
  put(ClassIndex::PositionConnection, GetPositionConnectionDesc());
  put(ClassIndex::RotationConnection, GetRotationConnectionDesc());
  put(ClassIndex::ScaleConnection, GetScaleConnectionDesc());
  put(ClassIndex::TwistPosesFloat, GetTwistPosesFloatDesc());
  put(ClassIndex::TwistPosesRotation, GetTwistPosesRotationDesc());
  put(ClassIndex::IKFKChain, GetIKFKChainDesc());
  put(ClassIndex::IKFKControl, GetIKFKControlDesc());
  put(ClassIndex::DummyFloat, GetDummyFloatDesc());
  put(ClassIndex::DummyRotation, GetDummyRotationDesc());
  put(ClassIndex::RotationXYZ, GetRotationXYZDesc());
  put(ClassIndex::ControlHelper, GetControlHelperDesc());
  put(ClassIndex::ControlShape, GetControlShapeDesc());
  put(ClassIndex::AnimationManagerMod, GetAnimationManagerModDesc());
  put(ClassIndex::ParentConstraint, GetParentConstraintDesc());
  put(ClassIndex::ScaleConstraint, GetScaleConstraintDesc());
  put(ClassIndex::TransformConstraint, GetTransformConstraintDesc());
  put(ClassIndex::RootConstraint, GetRootConstraintDesc());
  put(ClassIndex::RotationSpace, GetRotationSpaceDesc());
  put(ClassIndex::IKFKLink, GetIKFKLinkDesc());
  put(ClassIndex::IKFKDisplayMod, GetIKFKDisplayModDesc());
  put(ClassIndex::CurveIKControl, GetCurveIKControlDesc());
  put(ClassIndex::CurveIKChain, GetCurveIKChainDesc());
  put(ClassIndex::AnimationLayers, GetAnimationLayersDesc());
  put(ClassIndex::AnimLayersLocalWeights, GetAnimLayersLocalWeightsDesc());
  put(ClassIndex::FloatLayers, GetFloatLayersDesc());
  put(ClassIndex::PositionLayers, GetPositionLayersDesc());
  put(ClassIndex::RotationLayers, GetRotationLayersDesc());
  put(ClassIndex::ScaleLayers, GetScaleLayersDesc());
}

ClassTable BuildTable() {
  ClassTable table{};
  PutImplementedClasses(table);
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (table[i]) {
      // A descriptor in the wrong row would register a class under another identity.
      const ClassInfo& info = GetClassInfo(static_cast<ClassIndex>(i));
      MV_ASSERT(table[i]->ClassID() == info.class_id &&
                table[i]->SuperClassID() == info.super_class);
    } else {
      table[i] = &pending_descs[i];
    }
  }
  return table;
}

}  // namespace

ClassDesc2* GetModuleClassDesc(unsigned int index) {
  static const ClassTable table = BuildTable();
  return index < table.size() ? table[index] : nullptr;
}

}  // namespace marvolith
