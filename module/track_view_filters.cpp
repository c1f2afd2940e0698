// Copyright Marvolith contributors.
#include "module/track_view_filters.h"

#include "host/core/reference.h"
#include "host/params/iparam_block2.h"
#include "host/scene/core_interface.h"
#include "host/script/track_view_filter.h"
#include "plugin/animation_layers_params.h"
#include "plugin/class_table.h"
#include "plugin/strings.h"

namespace marvolith {
namespace {

namespace layers = animation_layers;

bool IsAnimationLayers(Animatable* anim) {
  return anim && anim->SuperClassID() == REF_TARGET_CLASS_ID && anim->ClassID() == layers::kClassID;
}

// The layer stack whose tracks are parent's sub-anims, or null.
Animatable* LayerStackOf(Animatable* parent) {
  if (!parent) return nullptr;
  if (IsAnimationLayers(parent)) return parent;
  if (!parent->GetInterface(layers::kInterfaceID)) return nullptr;
  auto* maker = dynamic_cast<ReferenceMaker*>(parent);
  ReferenceTarget* stack = maker ? maker->GetReference(layers::kLayersRef) : nullptr;
  return IsAnimationLayers(stack) ? stack : nullptr;
}

// Installs a filter when the host has finished starting. Built with the module's static
// objects, so the callback is in place before LibInitialize runs.
class StartupFilterInstaller {
 public:
  StartupFilterInstaller(void (*install)(), std::uint64_t filter_id)
      : install_(install), filter_id_(filter_id) {
    RegisterNotification(&Run, this, NOTIFY_SYSTEM_STARTUP);
  }
  // Runs when the module's code goes away (the end of the process): nothing may call it then.
  ~StartupFilterInstaller() {
    UnRegisterNotification(&Run, this, NOTIFY_SYSTEM_STARTUP);
    if (ITrackViewFilterRegistry* registry = GetTrackViewFilterRegistry())
      registry->RemoveFilter(filter_id_);
  }
  StartupFilterInstaller(const StartupFilterInstaller&) = delete;
  StartupFilterInstaller& operator=(const StartupFilterInstaller&) = delete;

 private:
  static void Run(void* param, NotifyInfo*) {
    static_cast<StartupFilterInstaller*>(param)->install_();
  }

  void (*install_)();
  std::uint64_t filter_id_;
};

StartupFilterInstaller g_layers_filter_installer(&InstallAnimationLayersActiveFilter,
                                                 kAnimationLayersActiveFilterId);
StartupFilterInstaller g_rotation_filter_installer(&InstallRotationXYZFilter, kRotationXYZFilterId);

}  // namespace

bool AnimationLayersActiveFilter(Animatable*, Animatable* parent, int sub_num) {
  Animatable* stack = LayerStackOf(parent);
  IParamBlock2* pb = stack ? stack->GetParamBlockByID(layers::kParamsBlock) : nullptr;
  if (!pb) return true;
  const int count = pb->Count(layers::kTypes);
  if (sub_num < 0 || sub_num >= count) return true;
  if (pb->GetInt(layers::kDisplayAllLayersKeysTracks) != 0) return true;
  int active = pb->GetInt(layers::kActiveLayer);
  if (active < 0) active = 0;
  if (active >= count) active = count - 1;
  return sub_num == active;
}

bool RotationXYZFilter(Animatable* anim, Animatable*, int) {
  return !anim || !(anim->ClassID() == GetClassInfo(ClassIndex::RotationXYZ).class_id);
}

void InstallAnimationLayersActiveFilter() {
  ITrackViewFilterRegistry* registry = GetTrackViewFilterRegistry();
  if (!registry) return;
  const char* name = GetString(IDS_ANIM_LAYERS_ACTIVE_FILTER);
  registry->AddFilter(&AnimationLayersActiveFilter, name ? name : "",
                      kAnimationLayersActiveFilterId, true, true);
}

void InstallRotationXYZFilter() {
  if (ITrackViewFilterRegistry* registry = GetTrackViewFilterRegistry())
    registry->AddFilter(&RotationXYZFilter, "", kRotationXYZFilterId, true, false);
}

}  // namespace marvolith
