// Copyright Marvolith contributors.
// The module's string table and its one lookup routine.
#pragma once

#include "host/registry/class_desc.h"

namespace marvolith {

// String ids that code names; class names have ids 1000 + class index (256 for UIAction).
inline constexpr int IDS_CATEGORY_ANIMATION = 100;
inline constexpr int IDS_CATEGORY_SPLINES = 101;
inline constexpr int IDS_CATEGORY_NONE = 102;
inline constexpr int IDS_LIB_DESCRIPTION = 1;
inline constexpr int IDS_ANIM_LAYERS_ACTIVE_FILTER = 962;
/// The stem of new animation layer names ("Anim Layer 01").
inline constexpr int IDS_ANIM_LAYER = 963;
/// The label of the aim and stretch constraints' `viewline_length_abs`.
inline constexpr int IDS_UP_AXIS_FLIP = 53;
/// The undo entry of StretchConstraint::ResetLength.
inline constexpr int IDS_RESET_LENGTH = 702;
/// The undo entry of CreateIKFKSolver.
inline constexpr int IDS_CREATE_IKFK_SOLVER = 759;

// AnimationManagerMod's parameter labels; `group` shares the label of `tags`.
inline constexpr int IDS_AM_TAGS = 2000;
inline constexpr int IDS_AM_ROOT = 2001;
inline constexpr int IDS_AM_MIRROR_POS_AXIS = 2002;
inline constexpr int IDS_AM_MIRROR_ROT_AXIS = 2003;
inline constexpr int IDS_AM_USE_MIRROR_POS = 2004;
inline constexpr int IDS_AM_USE_MIRROR_ROT = 2005;
inline constexpr int IDS_AM_USE_MIRROR_NODE = 2006;
inline constexpr int IDS_AM_MIRROR_NODE = 2007;
inline constexpr int IDS_AM_USE_RETARGET_SIZE = 2008;
inline constexpr int IDS_AM_RETARGET_SIZE = 2009;
inline constexpr int IDS_AM_SELECT_MIRROR_NODE = 2010;

/// The text of string id, copied into one static buffer of 512 characters shared by every call,
/// so a caller that needs two texts at once copies the first. Null when the module instance is
/// not set or the id is unknown.
const char* GetString(int id);

/// The module's instance handle, set when the module is attached to the process; null before.
HINSTANCE GetModuleInstance();
/// Stores the instance handle (the module's attach routine; tests that use descriptors call it).
void SetModuleInstance(HINSTANCE instance);

}  // namespace marvolith
