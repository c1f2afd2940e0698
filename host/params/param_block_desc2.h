// Copyright Marvolith contributors.
// ParamBlockDesc2 and ParamDef: the static table that describes one parameter block of a class.
#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "host/base/ids.h"
#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/params/param_types.h"

class ClassDesc2;
class PBAccessor;
class PBValidator;
class ReferenceTarget;

/// A value as a block keeps it: one alternative per kind (PBKind), with nodes and reference
/// targets as the target pointer, or as the target's AnimHandle for P_NO_REF parameters. Plain
/// data, so that blocks can be written as flat chunks.
using PBStoredValue = std::variant<std::monostate,
                                   int,
                                   float,
                                   Point3,
                                   Point4,
                                   Matrix3,
                                   std::string,
                                   ReferenceTarget*,
                                   AnimHandle>;

/// The zero value of kind: 0, the origin, the identity, "", null.
PBStoredValue ZeroStoredValue(PBKind kind);

/// One row of a block's table: a parameter's id, script name, type, flags, label, default,
/// range, table size and callbacks. Built in place with chained setters:
///
///   ParamDef(kWeight, "weight", TYPE_FLOAT_TAB, P_ANIMATABLE).TabSize(0).Default(50.0f)
///       .Range(0.0, 100.0).Label("Parent Weight")
class ParamDef {
 public:
  /// local_name is the label's string id; Label gives the text this host shows.
  ParamDef(ParamID id, const char* int_name, ParamType2 type, int flags, int local_name = 0);

  /// Initial entry count of a table parameter (0 by default); ignored for other types.
  ParamDef& TabSize(int count);
  /// The default value, in stored units (radians for TYPE_ANGLE, a fraction for
  /// TYPE_PCNT_FRAC); for a table, the value of each new entry. Numbers convert between the int
  /// and float kinds (rounded to the nearest int); any other mix of kinds is a table error.
  ParamDef& Default(bool v);
  ParamDef& Default(int v);
  ParamDef& Default(float v);
  ParamDef& Default(double v);
  ParamDef& Default(const Point3& v);
  ParamDef& Default(const Color& v);
  ParamDef& Default(const Point4& v);
  ParamDef& Default(const AColor& v);
  ParamDef& Default(const Matrix3& v);
  ParamDef& Default(const char* v);
  /// The inclusive range of an int or float parameter, in display units as the tables give it:
  /// percent for TYPE_PCNT_FRAC (0 to 100 is a stored 0 to 1) and degrees for TYPE_ANGLE.
  /// SetValue, Append and Insert clamp written values into it; reads are not clamped, so a
  /// controller may animate beyond it. Ignored for other kinds.
  ParamDef& Range(double low, double high);
  /// Callbacks; static objects that outlive every block. Null clears.
  ParamDef& Accessor(PBAccessor* accessor);
  ParamDef& Validator(PBValidator* validator);
  /// The display name (track view, sub-anim names); the script name stands in when absent.
  ParamDef& Label(const char* text);

  /// The range in stored units (see Range); false when the parameter has none.
  bool StoredRange(double& low, double& high) const;
  /// The display name: the label, else the script name, else "".
  const char* DisplayName() const;

  ParamID ID;
  const char* int_name;  ///< script name; may be empty
  ParamType2 type;
  int flags;
  int local_name;
  const char* label = nullptr;
  int tab_size = 0;
  PBStoredValue def;  ///< normalised to the type's kind
  bool has_range = false;
  double range_low = 0.0;   ///< display units
  double range_high = 0.0;  ///< display units
  PBAccessor* accessor = nullptr;
  PBValidator* validator = nullptr;

 private:
  ParamDef& SetNumber(double v);
};

/// The static description of one parameter block of a class: block id, internal name, owner
/// class, block flags and the parameter table. Construct it as a static object after the class's
/// ClassDesc2 (in the same file): construction registers it with cd.
///
/// The integers between flags and the table are the flags' arguments, in the host's order: the
/// version when flags has P_VERSION, then the owner's reference index when it has
/// P_AUTO_CONSTRUCT. Their number must match the flags.
///
///   static ParamBlockDesc2 rig_control_pb(kRigControlParams, "params", 0, &rig_control_cd,
///       P_AUTO_CONSTRUCT, kPBlockRef, {
///         ParamDef(kFigureMode, "figure_mode", TYPE_BOOL, P_RESET_DEFAULT).Default(false),
///         ParamDef(kOffsetTM, "offsetTM", TYPE_MATRIX3, P_RESET_DEFAULT),
///       });
///
/// A table error (an argument count that does not match the flags, a duplicated parameter id, an
/// unknown type, a default of the wrong kind) is a programmer error: asserted, and logged in
/// builds without assertions.
class ParamBlockDesc2 {
 public:
  ParamBlockDesc2(BlockID id,
                  const char* int_name,
                  int local_name,
                  ClassDesc2* cd,
                  int flags,
                  std::initializer_list<ParamDef> params);
  ParamBlockDesc2(BlockID id,
                  const char* int_name,
                  int local_name,
                  ClassDesc2* cd,
                  int flags,
                  int arg1,
                  std::initializer_list<ParamDef> params);
  ParamBlockDesc2(BlockID id,
                  const char* int_name,
                  int local_name,
                  ClassDesc2* cd,
                  int flags,
                  int arg1,
                  int arg2,
                  std::initializer_list<ParamDef> params);
  /// A table built at run time (classes that share most of their rows), one flag argument.
  ParamBlockDesc2(BlockID id,
                  const char* int_name,
                  int local_name,
                  ClassDesc2* cd,
                  int flags,
                  int arg1,
                  std::span<const ParamDef> params);
  ParamBlockDesc2(const ParamBlockDesc2&) = delete;
  ParamBlockDesc2& operator=(const ParamBlockDesc2&) = delete;

  /// Number of parameters.
  int Count() const { return static_cast<int>(paramdefs_.size()); }
  /// The definition of parameter id, or null.
  const ParamDef* GetParamDef(ParamID id) const;
  /// The definition at table index i, or null.
  const ParamDef* GetParamDefByIndex(int i) const;
  /// Table index of parameter id, or -1.
  int IDtoIndex(ParamID id) const;
  /// Id of the parameter at table index i, or -1.
  ParamID IndextoID(int i) const;
  /// Table index of the parameter whose script name is name (case-insensitive, as scripts
  /// compare), or -1. Empty script names never match.
  int NameToIndex(const char* name) const;

  BlockID ID;
  const char* int_name;
  int local_name;
  ClassDesc2* cd;
  int flags;
  int version = 0;  ///< with P_VERSION
  int ref_no = -1;  ///< with P_AUTO_CONSTRUCT: the owner's reference index of the block

 private:
  void Init(std::span<const ParamDef> params, int arg_count, int arg1, int arg2);

  std::vector<ParamDef> paramdefs_;
  std::vector<int> index_by_id_;  // id -> table index (-1 none), for ids 0..kMaxDirectId
};
