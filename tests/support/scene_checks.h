// Copyright Marvolith contributors.
// Checks over a whole scene that tests of structural edits run after every undo and redo.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "host/scene/inode.h"
#include "host/scene/scene.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {

/// Every node of the open scene.
inline std::vector<INode*> AllNodes() {
  std::vector<INode*> nodes;
  Scene::Active().CollectNodes(nodes);
  return nodes;
}

/// Every node's transform as the caches answer, then again after dropping every cache: both
/// must agree, or a cache outlived the change that should have dropped it.
inline ::testing::AssertionResult CachesAgreeWithFreshEvaluation(TimeValue t) {
  const std::vector<INode*> nodes = AllNodes();
  std::vector<Matrix3> cached;
  for (INode* n : nodes) cached.push_back(n->GetNodeTM(t));
  for (INode* n : nodes) n->InvalidateTM();
  for (size_t i = 0; i < nodes.size(); ++i) {
    const Matrix3 fresh = nodes[i]->GetNodeTM(t);
    if (!fresh.Equals(cached[i], 1e-5f)) {
      return ::testing::AssertionFailure()
             << nodes[i]->GetName() << " answers " << Show(cached[i].GetTrans())
             << " from its cache but " << Show(fresh.GetTrans()) << " when evaluated afresh";
    }
  }
  return ::testing::AssertionSuccess();
}

}  // namespace marvolith::test
