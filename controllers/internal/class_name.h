// Copyright Marvolith contributors.
// The user-visible name of one of the module's classes, for Animatable::GetClassName.
#pragma once

#include "plugin/class_table.h"
#include "plugin/strings.h"

namespace marvolith::controllers_internal {

/// The class name from the module's string table; the fixed internal name while the module's
/// instance handle is not set (the string table cannot be read then).
inline const char* ClassNameOf(ClassIndex index) {
  const char* name = GetString(GetClassInfo(index).class_name_id);
  return name ? name : GetClassInfo(index).internal_name;
}

}  // namespace marvolith::controllers_internal
