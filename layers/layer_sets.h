// Copyright Marvolith contributors.
// Putting the tracks of a set of nodes on layers and taking them off again, and finding the
// layer stack a set of nodes is on. One AnimationLayers serves the whole set; the nodes of one
// rig group (the manager modifier's `group`, case-insensitive) share one AnimLayersLocalWeights.
#pragma once

#include <vector>

#include "host/scene/inode.h"
#include "layers/animation_layers.h"

namespace marvolith {

/// What GetAnimLayers found.
struct FoundLayers {
  /// The last set met, or null.
  AnimationLayers* layers = nullptr;
  /// More than one distinct set among the nodes' tracks.
  bool multiple = false;
  /// The weights all the nodes share, or null when they differ (or there are none).
  AnimLayersLocalWeights* local_weights = nullptr;
};

/// The layer stack of nodes: their position, rotation and scale tracks, then the tracks of the
/// custom attributes of their objects and modifiers, then every sub-anim below their transform
/// controllers (cycles stopped).
FoundLayers GetAnimLayers(const std::vector<INode*>& nodes);

/// Wraps every animatable float-like parameter of the custom attributes of the nodes' objects
/// and modifiers, and the position, rotation and scale tracks of their transform controllers,
/// in layered controllers of one set (the nodes' existing set, or a new one; with
/// keep_existing_sets each node keeps its own set). Lists are entered at their active item.
/// One held step "Animation Layers Change"; nothing for an empty list.
void EnableLayers(const std::vector<INode*>& nodes, bool keep_existing_sets);

/// Replaces every layered track of the nodes by its base layer (a fresh default when that is
/// null); layers above the base are dropped without baking. One held step.
void DisableLayers(const std::vector<INode*>& nodes);

}  // namespace marvolith
