// Copyright Marvolith contributors.
// The IKFK chain's global script functions: CreateIKFKSolver builds a chain over a run of joints.
#pragma once

#include "host/script/script_primitives.h"

namespace marvolith {

/// CreateIKFKSolver start_joint end_joint: in one undoable step ("Create IKFK Solver") makes a
/// control helper per joint ("IKFKControl...", in a hierarchy over the start joint's parent,
/// each at its joint) driven by an IKFKControl member, a chain helper ("IKFKChain...", shape 37)
/// with the IKFKChain controller, a goal ("IKFKGoal...", shape 42) on the end joint and a swivel
/// target ("IKFKTarget...", shape 9) placed in the bend plane, both with an empty IKFKLink
/// track; the chain starts in IK, matched to
/// the joints' pose. Answers the chain's node, or undefined (nothing made) when the start joint
/// is not an ancestor of the end joint. Raises an argument count error for other than two
/// arguments and a RuntimeError naming the first bad argument. The joints themselves are not
/// changed.
FPValue CreateIKFKSolver(const PrimitiveCall& call);

/// Registers the functions above with the script interpreter (module start-up).
void RegisterIKFKScriptFunctions();

}  // namespace marvolith
