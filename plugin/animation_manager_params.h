// Copyright Marvolith contributors.
// The parameter ids of AnimationManagerMod's block, for the classes below the animation layer
// that read a node's mirror settings and root flag (the rig transform, the rig's root walk).
#pragma once

#include "host/core/ids.h"

namespace marvolith::animation_manager {

inline constexpr Class_ID kClassID(0x45596d58, 0x1e847b03);
inline constexpr BlockID kParamsBlock = 0;

inline constexpr ParamID kTags = 0;             // string: comma-separated keys
inline constexpr ParamID kRoot = 2;             // bool: the top of a rig for gathering
inline constexpr ParamID kMirrorPosAxis = 3;    // int: 0 X, 1 Y, 2 Z
inline constexpr ParamID kMirrorRotAxis = 4;    // int: 0 X, 1 Y, 2 Z
inline constexpr ParamID kUseMirrorPos = 5;     // bool
inline constexpr ParamID kUseMirrorRot = 6;     // bool
inline constexpr ParamID kUseMirrorNode = 7;    // bool
inline constexpr ParamID kMirrorNode = 8;       // node, not held as a reference of the block
inline constexpr ParamID kUseRetargetSize = 9;  // bool
inline constexpr ParamID kRetargetSize = 10;    // world
inline constexpr ParamID kGroup = 11;           // string: shares local layer weights in a rig

}  // namespace marvolith::animation_manager
