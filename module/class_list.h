// Copyright Marvolith contributors.
// The module's table of 70 class descriptors, in the order LibClassDesc hands them to the host.
#pragma once

#include "host/registry/class_desc.h"
#include "plugin/class_table.h"

namespace marvolith {

/// Stands in for a class that is not implemented yet: identity, names and flags come from the
/// class table, so the host registers the class, but Create answers null.
class PendingClassDesc : public MarvolithClassDesc {
 public:
  explicit PendingClassDesc(ClassIndex index) : MarvolithClassDesc(index) {}
  Animatable* Create(bool loading) override { return nullptr; }
};

/// The descriptor at index of the module's table: the class's own descriptor when the class
/// exists, a PendingClassDesc otherwise. Null for an index above 69.
ClassDesc2* GetModuleClassDesc(unsigned int index);

}  // namespace marvolith
