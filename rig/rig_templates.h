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
void BuildRigTemplate(RigTemplate& t, const RigParamValues& p, bool keep_previous);

}  // namespace marvolith
