// Copyright Marvolith contributors.
// PBAccessor and PBValidator: per-parameter callbacks of a parameter block.
#pragma once

#include "host/base/tab.h"
#include "host/params/pb2_value.h"

class ReferenceMaker;

/// What changed in a table, for PBAccessor::TabChanged.
enum tab_changes {
  tab_insert,       ///< count entries inserted at tab_index
  tab_append,       ///< count entries appended, the first at tab_index
  tab_delete,       ///< count entries deleted from tab_index
  tab_ref_deleted,  ///< the target of entry tab_index was deleted; the entry reads null now
  tab_setcount,     ///< the table was resized to count entries (tab_index is 0)
  tab_sort,
};

/// Hooks on one parameter: called on every read, write and table change of it. One accessor
/// may serve many parameters and classes (it is told the owner and parameter id); accessors are
/// static objects that outlive every block.
class PBAccessor {
 public:
  virtual ~PBAccessor() = default;
  /// After the block has read the value (from its store or controller): may replace v and
  /// narrow valid. t is the time the parameter was read at (0 for non-animatable parameters).
  virtual void Get(
      PB2Value& v, ReferenceMaker* owner, ParamID id, int tab_index, TimeValue t, Interval& valid) {
  }
  /// Before the block stores v (already validated and clamped to the range): may replace it.
  virtual void Set(PB2Value& v, ReferenceMaker* owner, ParamID id, int tab_index, TimeValue t) {}
  /// After a table change. tab is a copy of the table's values after the change (string values
  /// point into the block and stay valid for the call); writing to it changes nothing.
  virtual void TabChanged(tab_changes change_code,
                          Tab<PB2Value>* tab,
                          ReferenceMaker* owner,
                          ParamID id,
                          int tab_index,
                          int count) {}
};

/// Vets a value before it is written; a refused value leaves the parameter unchanged, SetValue
/// answers false and no message is sent. Called for SetValue, not for table inserts.
class PBValidator {
 public:
  virtual ~PBValidator() = default;
  virtual bool Validate(PB2Value& v) { return true; }
  /// The form the block calls; by default it asks the one-argument form.
  virtual bool Validate(PB2Value& v, ReferenceMaker* owner, ParamID id, int tab_index) {
    return Validate(v);
  }
};
