// Copyright Marvolith contributors.
// What the files of RigSystem share inside the rig folder: the block's table and accessors, the
// undo records of extras and points, and the module-level suppress flag of
// `selected_component`.
#pragma once

#include <string>
#include <vector>

#include "host/params/param_block_desc2.h"
#include "host/undo/hold.h"
#include "rig/rig_system.h"

namespace marvolith::rig_internal {

/// The rows of the block "params" in the order of the table (structural parameters carry
/// structural, `selected_component` carries selection).
std::vector<ParamDef> RigParamDefs(PBAccessor* structural, PBAccessor* selection);

/// The presets written when the type is set: arm_pairs, leg_pairs, tails, ponytails, fangs,
/// fingers, finger_bones of type.
struct TypePreset {
  int arm_pairs = 1;
  int leg_pairs = 1;
  int tails = 0;
  int ponytails = 0;
  int fangs = 0;
  int fingers = 5;
  int finger_bones = 3;
};
TypePreset PresetOfType(int type);

/// Set while the code itself writes `selected_component`: its accessor then only stores.
extern bool g_suppress_selected_component;

/// Undo record of the extras list: the list before, and after (taken on undo) for redo. The
/// operation's name tells them apart in the history.
class ExtraListRestore : public RestoreObj {
 public:
  ExtraListRestore(RigSystem* rig, const char* name);
  void Restore(int is_undo) override;
  void Redo() override;
  int Size() override;
  MSTR Description() override { return name_; }

 private:
  RigSystem* Get() const;
  AnimHandle handle_;
  std::vector<RigExtra> before_;
  std::vector<RigExtra> after_;
  const char* name_;
};

/// One record per operation, named after it.
class AddExtraRestore : public ExtraListRestore {
 public:
  explicit AddExtraRestore(RigSystem* rig) : ExtraListRestore(rig, "Add Extra") {}
};
class RemoveExtraRestore : public ExtraListRestore {
 public:
  explicit RemoveExtraRestore(RigSystem* rig) : ExtraListRestore(rig, "Remove Extra") {}
};
class SortExtraRestore : public ExtraListRestore {
 public:
  explicit SortExtraRestore(RigSystem* rig) : ExtraListRestore(rig, "Sort Extras") {}
};
class ExtraRestore : public ExtraListRestore {
 public:
  explicit ExtraRestore(RigSystem* rig) : ExtraListRestore(rig, "Extra Change") {}
};

/// Undo record of the template points' positions and selection (one per hold, the A_HELD
/// idiom): put back by name, so a regeneration in between does not misplace them.
class PointsRestore : public RestoreObj {
 public:
  explicit PointsRestore(RigSystem* rig);
  void Restore(int is_undo) override;
  void Redo() override;
  void EndHold() override;
  int Size() override;
  MSTR Description() override { return "Rig Points"; }

 private:
  RigSystem* Get() const;
  AnimHandle handle_;
  std::vector<RigPoint> before_;
  std::vector<RigPoint> after_;
};

/// Puts an extras record of type R when theHold is holding.
template <typename R>
void HoldExtras(RigSystem* rig) {
  if (theHold.Holding()) theHold.Put(new R(rig));
}
/// Puts a PointsRestore once per hold.
void HoldPoints(RigSystem* rig);

/// The extras ordered so that an extra whose parent is a point of another extra follows it: a
/// depth walk from the roots, siblings by name. Extras in a parent cycle follow in name order.
std::vector<RigExtra> SortExtras(const std::vector<RigExtra>& extras);

/// Whether point_name (side prefix allowed) is a point of the chain of extra_name.
bool IsPointOfExtra(const std::string& point_name, const std::string& extra_name);

}  // namespace marvolith::rig_internal
