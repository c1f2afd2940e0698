// Copyright Marvolith contributors.
// The template builders: the points each rig type makes (names, parents, sides, mirroring and
// default positions), composed from part builders that each take a Matrix3.
#pragma once

#include "rig/rig_params.h"
#include "rig/rig_template.h"

namespace marvolith {

/// Adds the points of the template of p[kRigType] to t, which is inside a regeneration (see
/// RigTemplate::BeginRegeneration). Types 8 and 19..27 add nothing. keep_previous is passed to
/// every point (false: no user edit is kept and the selected component's points get selected).
/// Counts are clamped to 0..99 (chains to 1..99) and `side` to 0..2.
///
/// Names that builders look up: the first pair of arms or legs has plain roles ("r_clavicle",
/// "l_finger_2_3", "r_foot_heel"); a later pair appends its one-based number to each role
/// ("r_clavicle_2", "r_finger_2_1_3", "r_foot_2_heel"). One tail or ponytail is "tail_%d", several
/// are "tail_%d_%d" (tail, joint). Twist points "<role>_twist_%d" are hidden, derived between a
/// joint and the next. The centaur's upright body is "upper_pelvis", "upper_spine_%d", and its
/// front legs' clavicle is "front_leg_clavicle" (the hind legs keep "leg_clavicle"). Face regions
/// have hidden "<region>_bone_%d" points between the region's point and its corner.
void BuildRigTemplate(RigTemplate& t, const RigParamValues& p, bool keep_previous);

}  // namespace marvolith
