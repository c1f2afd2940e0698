// Copyright Marvolith contributors.
// The built-in demo scene of the marvolith tool: a small keyed hierarchy.
#pragma once

#include <vector>

#include "host/scene/inode.h"

/// Names of the demo scene's nodes, parents first.
inline constexpr const char* kDemoNodeNames[] = {"demo_root", "demo_spine", "demo_arm",
                                                 "demo_hand"};

/// Adds the demo scene to the open scene: four nodes in a chain, each on a PRS controller,
/// animated over frames 0..60:
///   demo_root   Bezier position keys (looping after the last key), Euler XYZ Z keys;
///   demo_spine  at (0, 0, 20) on its parent, Euler X keys played ping-pong after the last key;
///   demo_arm    at (15, 0, 10), a TCB rotation track turning about Y;
///   demo_hand   at (20, 0, 0), Bezier scale keys growing to 1.5.
/// Built with theHold suspended (it is not a user action) and animate mode restored afterwards.
/// Answers the nodes in the order of kDemoNodeNames.
std::vector<INode*> BuildDemoScene();

/// Adds node_count nodes to the open scene as a binary tree (node i under node (i - 1) / 2, node 0
/// under the root; the tree is about log2(node_count) deep), for benchmarks and tests of
/// evaluation at scale. Every node has the default PRS with keys on frames 0, 50 and 100 for its
/// position and on 0 and 100 for its rotation, all different, so every frame in between
/// evaluates every track. Names are "node_<i>". Built with theHold suspended.
std::vector<INode*> BuildKeyedHierarchy(int node_count);
