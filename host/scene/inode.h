// Copyright Marvolith contributors.
// INode: a node of the scene. The operations are declared by the headless scene.
#pragma once

#include "host/core/reference.h"

class INode : public ReferenceTarget {
 public:
  SClass_ID SuperClassID() override { return BASENODE_CLASS_ID; }
};
