// Copyright Marvolith contributors.
// Reading a node's transform in a chosen space, and the validator that keeps node parameters
// from closing a dependency loop. Shared by the tracks that read nodes.
#pragma once

#include "host/math/matrix3.h"
#include "host/params/pb_accessor.h"
#include "host/scene/inode.h"

namespace marvolith {

/// Where a node's transform is read.
struct NodeSpace {
  bool local = true;  ///< false: world space
  bool use_parent = true;
  INode* local_reference = nullptr;  ///< the reference when use_parent is off; may be null
};

/// The world transform of node at t, and in local space that transform times the inverse of the
/// reference R: the parent's world transform with use_parent on (the identity under the scene
/// root), else local_reference's, else the identity. valid narrows by every transform read.
/// node must not be null.
Matrix3 NodeSpaceTM(INode* node, TimeValue t, const NodeSpace& space, Interval& valid);

/// Refuses a node whose evaluation depends on the block's owner (the owner is reachable from the
/// node through references: its own node, a child of it, a node constrained to it). Null passes.
class NodeLoopValidator : public PBValidator {
 public:
  using PBValidator::Validate;
  bool Validate(PB2Value& v, ReferenceMaker* owner, ParamID id, int tab_index) override;
};

/// The one validator object the node parameters of this folder share.
NodeLoopValidator& GetNodeLoopValidator();

}  // namespace marvolith
