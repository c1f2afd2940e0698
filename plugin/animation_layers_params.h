// Copyright Marvolith contributors.
// Identity and parameter ids of AnimationLayers, the shared object of one layer stack, for the
// code that reads a stack without depending on the layer classes (the Track View filter).
#pragma once

#include "host/base/ids.h"

namespace marvolith::animation_layers {

/// Class of AnimationLayers (super class REF_TARGET_CLASS_ID). Every layered controller answers
/// GetInterface(kInterfaceID), whose two words are the same.
inline constexpr Class_ID kClassID(0x45596d56, 0x1e847b69);
inline constexpr Interface_ID kInterfaceID(0x45596d56, 0x1e847b69);
/// Reference of a layered controller that holds its AnimationLayers.
inline constexpr int kLayersRef = 0;

inline constexpr BlockID kParamsBlock = 0;
inline constexpr ParamID kNames = 0;                       // string tab: layer names
inline constexpr ParamID kTypes = 1;                       // int tab: 0 Adjustment, 1 Override
inline constexpr ParamID kIgnore = 2;                      // bool tab
inline constexpr ParamID kActiveLayer = 3;                 // index: the layer that takes edits
inline constexpr ParamID kDisplayAllLayersKeysTracks = 4;  // bool
inline constexpr ParamID kIgnoreAboveActive = 6;           // bool
inline constexpr ParamID kEulerBlending = 7;               // bool

}  // namespace marvolith::animation_layers
