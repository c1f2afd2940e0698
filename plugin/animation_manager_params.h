// Copyright Marvolith contributors.
// The parameter ids of AnimationManagerMod's block, for the classes below the animation layer
// that read a node's mirror settings and root flag (the rig transform, the rig's root walk).
#pragma once

#include "host/base/ids.h"

class INode;
class IParamBlock2;

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

/// The parameter block of the AnimationManagerMod on node's modifier stack: the first modifier of
/// class kClassID found walking the object reference's derived objects from the top of each
/// stack down. Null for a null node, a node without such a modifier, or a modifier without a
/// block of id kParamsBlock. Read generically by parameter id, so classes below the animation
/// layer need not know the modifier's class.
IParamBlock2* FindManagerParams(INode* node);

/// The root of the rig that node belongs to, walking up from node itself: the first node whose
/// manager modifier has `root` set, or else the node whose parent is the scene root. Null for a
/// null node or the scene root itself.
INode* FindRigRoot(INode* node);

}  // namespace marvolith::animation_manager
