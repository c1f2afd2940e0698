// Copyright Marvolith contributors.
#include "controllers/node_space.h"

namespace marvolith {

Matrix3 NodeSpaceTM(INode* node, TimeValue t, const NodeSpace& space, Interval& valid) {
  Matrix3 m = node->GetNodeTM(t, &valid);
  if (!space.local) return m;
  INode* ref = nullptr;
  if (space.use_parent) {
    INode* parent = node->GetParentNode();
    if (parent && !parent->IsRootNode()) ref = parent;
  } else {
    ref = space.local_reference;
  }
  if (ref) m = m * Inverse(ref->GetNodeTM(t, &valid));  // local = world * Inverse(reference_ws)
  return m;
}

bool NodeLoopValidator::Validate(PB2Value& v, ReferenceMaker* owner, ParamID, int) {
  INode* node = v.GetINode();
  if (!node || !owner) return true;
  return node->TestForLoop(FOREVER, owner) != REF_FAIL;
}

NodeLoopValidator& GetNodeLoopValidator() {
  static NodeLoopValidator validator;
  return validator;
}

}  // namespace marvolith
