// Copyright Marvolith contributors.
// The module's two Track View filters: one hides the tracks of inactive animation layers, one
// hides RotationXYZ controllers. Each installs itself at NOTIFY_SYSTEM_STARTUP.
#pragma once

#include <cstdint>

class Animatable;

namespace marvolith {

inline constexpr std::uint64_t kAnimationLayersActiveFilterId = 0x8b57c48e683a39ccull;
inline constexpr std::uint64_t kRotationXYZFilterId = 0x2f4c4168333e373full;

/// "Animation Layers Active Filter": shows everything but the tracks of inactive layers. When
/// parent is an AnimationLayers object (by super class and Class_ID), or a layered controller
/// (it answers the layer interface) whose reference 0 is one, track sub_num of parent below the
/// layer count is shown only if it is the active layer (clamped into the layers) or
/// `display_all_layers_keys_tracks` is on. Every other track is shown.
bool AnimationLayersActiveFilter(Animatable* anim, Animatable* parent, int sub_num);

/// Answers false for an anim whose Class_ID is RotationXYZ's, true otherwise.
bool RotationXYZFilter(Animatable* anim, Animatable* parent, int sub_num);

/// Add the filters to the host's Track View filter registry: the layer filter named "Animation
/// Layers Active Filter", enabled and listed; the RotationXYZ filter without a name, enabled
/// and not listed. Without a registry nothing happens; a filter already there stays.
void InstallAnimationLayersActiveFilter();
void InstallRotationXYZFilter();

}  // namespace marvolith
