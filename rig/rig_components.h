// Copyright Marvolith contributors.
// The component table: what the components list offers for selection, and for each component
// the value rows, feature toggle and use-bones switch that its widgets are bound to.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "rig/rig_params.h"

namespace marvolith {

/// One labelled value of a component row: the widget's label and the parameter it edits.
struct RigComponentValue {
  const char* label = nullptr;
  int param = -1;
};

/// One row of the table. Up to four values (a null label hides the widget), a feature toggle,
/// and a use-bones switch that enables value `bones_dependency` (1-based: 2 or 3) only while on.
struct RigComponentRow {
  int id;
  const char* name;
  RigComponentValue values[4];
  RigComponentValue toggle;
  int use_bones_param;
  int bones_dependency;
};

/// The table in list order: the nine body rows, then the eight face rows.
std::span<const RigComponentRow> RigComponentTable();
/// The row of component id; null for the eyes (11), extras and unknown ids.
const RigComponentRow* FindRigComponentRow(int id);

/// What the list shows for p: the body rows always, the face rows when `face` is on or the type
/// is Face and `morpher_based` is off.
std::vector<const RigComponentRow*> ListedRigComponents(const RigParamValues& p);

/// Whether a widget bound to param shows for type: the front cannon twists only for the
/// quadruped, the cannon twists for types 9..13, fangs for the insect; every other one shows.
bool RigComponentValueShown(int param, int type);
/// Whether value slot (0-based) of row is enabled under p: a value that depends on the row's
/// use-bones switch is enabled only while the switch is on.
bool RigComponentValueEnabled(const RigComponentRow& row, int slot, const RigParamValues& p);

/// One line per listed component, then one per extra name (ids from 1000): "id<TAB>name", and
/// for each shown value "<TAB>label value" with its present value; a disabled value is marked
/// "(off)". For scripts and the command line.
std::string DescribeRigComponents(const RigParamValues& p, std::span<const std::string> extras);

}  // namespace marvolith
