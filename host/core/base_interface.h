// Copyright Marvolith contributors.
// BaseInterface: the root of interfaces reached by Interface_ID (function publishing included).
#pragma once

#include "host/base/ids.h"

class BaseInterface {
 public:
  virtual ~BaseInterface() = default;
  virtual Interface_ID GetID() = 0;
  /// This interface when id is its own, else null; extension interfaces may answer others.
  virtual BaseInterface* GetInterface(Interface_ID id) { return id == GetID() ? this : nullptr; }
};
