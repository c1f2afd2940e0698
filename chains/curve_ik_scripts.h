// Copyright Marvolith contributors.
// The script entry of curve chains: CreateCurveIKSolver and the build of a whole chain (chain
// helper, control points, tangent helpers and joint controllers) from a run of joints.
#pragma once

#include "host/script/script_primitives.h"

class INode;

namespace marvolith {

/// What a chain is built with; the dialog's and the script function's choices.
struct CurveIKBuildOptions {
  /// Control points along the run, at equal fractions of its length; below 2 counts as 2.
  int control_points = 3;
  /// CurvePointType of every point; outside 0..3 counts as Smooth.
  int type = 3;
  /// When above 0, the joints are replaced by a new run of this many bones (bones + 1 nodes,
  /// the last one the end of the last bone), spaced evenly along the old run; the old joints
  /// are left as they are. 0 or below keeps the joints.
  int bones = 0;
  /// Each joint gets a control helper ("CurveIKControl") as its child, at its transform.
  bool bones_controls = false;
  /// Points of the types with tangents (Bezier, BezierCorner) get in and out tangent helpers as
  /// their children, and read their tangents from them. Without them those points use stored
  /// tangents, set to the automatic (Smooth) ones.
  bool tangent_controls = true;
};

/// Builds a curve chain over the joints from start to end (end a descendant of start, or start
/// itself), in one undoable hold: the chain helper "CurveIKChain" with its CurveIKChain, the
/// points, the tangent helpers, a CurveIKControl on each joint at its share of the run's length,
/// and chain_length set to the curve's length. Names are made unique. Null, with nothing
/// created, for a null node or when start is not an ancestor of end.
INode* BuildCurveIKChain(INode* start, INode* end, const CurveIKBuildOptions& options);

/// The script function CreateCurveIKSolver(start, end, control_points, type, bones,
/// bones_controls [, tangent_controls]): checks its arguments (raising the script errors with
/// their fixed texts and the offending value), builds the chain and answers its node, or
/// undefined when start is not an ancestor of end.
FPValue CreateCurveIKSolverPrimitive(const PrimitiveCall& call);

/// Registers the curve chain's global script functions (at module start).
void RegisterCurveIKScriptFunctions();
/// Removes them again (module shut-down), so that no function of an unloaded module stays
/// registered; a second call does nothing.
void UnRegisterCurveIKScriptFunctions();

}  // namespace marvolith
