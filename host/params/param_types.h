// Copyright Marvolith contributors.
// Parameter types and flags of parameter blocks: the numbers of the host's tables.
#pragma once

#include <cstdint>

/// A parameter's type: one of the TYPE_ constants, with the TYPE_TAB bit for a table of them.
/// The numbers are the host's, so masks over type numbers written by the toolkit hold.
using ParamType2 = int;

/// Bit that turns a type into a table of that type (TYPE_FLOAT_TAB is TYPE_FLOAT | TYPE_TAB).
inline constexpr ParamType2 TYPE_TAB = 0x0800;

inline constexpr ParamType2 TYPE_FLOAT = 0;
inline constexpr ParamType2 TYPE_INT = 1;
inline constexpr ParamType2 TYPE_RGBA = 2;  ///< Color, stored as a Point3
inline constexpr ParamType2 TYPE_POINT3 = 3;
inline constexpr ParamType2 TYPE_BOOL = 4;
inline constexpr ParamType2 TYPE_ANGLE = 5;      ///< float in radians
inline constexpr ParamType2 TYPE_PCNT_FRAC = 6;  ///< float fraction; 1 is 100 percent
inline constexpr ParamType2 TYPE_WORLD = 7;      ///< float length in system units
inline constexpr ParamType2 TYPE_STRING = 8;
inline constexpr ParamType2 TYPE_FILENAME = 9;
inline constexpr ParamType2 TYPE_HSV = 10;             ///< Point3
inline constexpr ParamType2 TYPE_COLOR_CHANNEL = 11;   ///< float
inline constexpr ParamType2 TYPE_TIMEVALUE = 12;       ///< int ticks
inline constexpr ParamType2 TYPE_RADIOBTN_INDEX = 13;  ///< int
inline constexpr ParamType2 TYPE_INODE = 17;
inline constexpr ParamType2 TYPE_REFTARG = 18;
inline constexpr ParamType2 TYPE_INDEX = 19;  ///< int, 0-based
inline constexpr ParamType2 TYPE_MATRIX3 = 20;
inline constexpr ParamType2 TYPE_POINT4 = 22;
inline constexpr ParamType2 TYPE_FRGBA = 23;  ///< AColor, stored as a Point4

inline constexpr ParamType2 TYPE_FLOAT_TAB = TYPE_FLOAT | TYPE_TAB;
inline constexpr ParamType2 TYPE_INT_TAB = TYPE_INT | TYPE_TAB;
inline constexpr ParamType2 TYPE_RGBA_TAB = TYPE_RGBA | TYPE_TAB;
inline constexpr ParamType2 TYPE_POINT3_TAB = TYPE_POINT3 | TYPE_TAB;
inline constexpr ParamType2 TYPE_BOOL_TAB = TYPE_BOOL | TYPE_TAB;
inline constexpr ParamType2 TYPE_ANGLE_TAB = TYPE_ANGLE | TYPE_TAB;
inline constexpr ParamType2 TYPE_PCNT_FRAC_TAB = TYPE_PCNT_FRAC | TYPE_TAB;
inline constexpr ParamType2 TYPE_WORLD_TAB = TYPE_WORLD | TYPE_TAB;
inline constexpr ParamType2 TYPE_STRING_TAB = TYPE_STRING | TYPE_TAB;
inline constexpr ParamType2 TYPE_FILENAME_TAB = TYPE_FILENAME | TYPE_TAB;
inline constexpr ParamType2 TYPE_HSV_TAB = TYPE_HSV | TYPE_TAB;
inline constexpr ParamType2 TYPE_COLOR_CHANNEL_TAB = TYPE_COLOR_CHANNEL | TYPE_TAB;
inline constexpr ParamType2 TYPE_TIMEVALUE_TAB = TYPE_TIMEVALUE | TYPE_TAB;
inline constexpr ParamType2 TYPE_RADIOBTN_INDEX_TAB = TYPE_RADIOBTN_INDEX | TYPE_TAB;
inline constexpr ParamType2 TYPE_INODE_TAB = TYPE_INODE | TYPE_TAB;
inline constexpr ParamType2 TYPE_REFTARG_TAB = TYPE_REFTARG | TYPE_TAB;
inline constexpr ParamType2 TYPE_INDEX_TAB = TYPE_INDEX | TYPE_TAB;
inline constexpr ParamType2 TYPE_MATRIX3_TAB = TYPE_MATRIX3 | TYPE_TAB;
inline constexpr ParamType2 TYPE_POINT4_TAB = TYPE_POINT4 | TYPE_TAB;
inline constexpr ParamType2 TYPE_FRGBA_TAB = TYPE_FRGBA | TYPE_TAB;

/// True for a table type.
constexpr bool IsParamTypeTab(ParamType2 type) { return (type & TYPE_TAB) != 0; }
/// The type without the table bit.
constexpr ParamType2 BaseParamType(ParamType2 type) { return type & ~TYPE_TAB; }

/// How a value of a type is held. Types of one kind read and write through the same calls:
/// GetPoint3 reads a TYPE_RGBA parameter, SetValue(int) writes a TYPE_BOOL one.
enum class PBKind : std::uint8_t {
  kNone,     ///< not a parameter type of this host
  kInt,      ///< INT, BOOL, INDEX, RADIOBTN_INDEX, TIMEVALUE
  kFloat,    ///< FLOAT, ANGLE, PCNT_FRAC, WORLD, COLOR_CHANNEL
  kPoint3,   ///< POINT3, RGBA, HSV
  kPoint4,   ///< POINT4, FRGBA
  kMatrix3,  ///< MATRIX3
  kString,   ///< STRING, FILENAME
  kNode,     ///< INODE
  kRefTarg,  ///< REFTARG
};

/// The kind of type (the table bit is ignored); kNone for numbers this host does not hold.
constexpr PBKind ParamKind(ParamType2 type) {
  switch (BaseParamType(type)) {
    case TYPE_INT:
    case TYPE_BOOL:
    case TYPE_INDEX:
    case TYPE_RADIOBTN_INDEX:
    case TYPE_TIMEVALUE:
      return PBKind::kInt;
    case TYPE_FLOAT:
    case TYPE_ANGLE:
    case TYPE_PCNT_FRAC:
    case TYPE_WORLD:
    case TYPE_COLOR_CHANNEL:
      return PBKind::kFloat;
    case TYPE_POINT3:
    case TYPE_RGBA:
    case TYPE_HSV:
      return PBKind::kPoint3;
    case TYPE_POINT4:
    case TYPE_FRGBA:
      return PBKind::kPoint4;
    case TYPE_MATRIX3:
      return PBKind::kMatrix3;
    case TYPE_STRING:
    case TYPE_FILENAME:
      return PBKind::kString;
    case TYPE_INODE:
      return PBKind::kNode;
    case TYPE_REFTARG:
      return PBKind::kRefTarg;
    default:
      return PBKind::kNone;
  }
}

/// True when a parameter of kind can hold a host controller: float kinds take a float
/// controller, Point3 kinds a Point3 controller and Point4 kinds a Point4 controller.
constexpr bool KindCanAnimate(PBKind kind) {
  return kind == PBKind::kFloat || kind == PBKind::kPoint3 || kind == PBKind::kPoint4;
}

// Parameter flags (ParamDef::flags). The numbers are the host's.
inline constexpr int P_ANIMATABLE = 0x0001;  ///< may hold a controller; a sub-anim of the block
inline constexpr int P_TRANSIENT = 0x0002;   ///< not saved with the block
inline constexpr int P_NO_INIT = 0x0004;     ///< starts zero instead of the default
/// UI and track view hints; the headless host keeps them for the tables and acts on none.
inline constexpr int P_COMPUTED_NAME = 0x0008;
inline constexpr int P_INVISIBLE = 0x0010;
/// The default is not replaced by the last value a user set ("sticky" defaults). This host has
/// no sticky defaults, so every new block starts from the table's default anyway.
inline constexpr int P_RESET_DEFAULT = 0x0020;
inline constexpr int P_SUBANIM = 0x0040;
inline constexpr int P_TV_SHOW_ALL = 0x0080;
/// A node or reference-target parameter that the block does not reference: it hears nothing of
/// the target, does not keep it, and reads null once the target is deleted.
inline constexpr int P_NO_REF = 0x0100;
inline constexpr int P_OWNERS_REF = 0x0200;  ///< kept for the tables; held by the block here
inline constexpr int P_CAN_CONVERT = 0x0400;
inline constexpr int P_SUBTEX = 0x0800;
inline constexpr int P_VARIABLE_SIZE = 0x1000;  ///< the table's size may change (UI hint)
inline constexpr int P_NO_AUTO_LABELS = 0x2000;
inline constexpr int P_SHORT_LABELS = 0x4000;
/// Read-only to the user and to scripts; SetValue from code still writes.
inline constexpr int P_READ_ONLY = 0x8000;

// Block flags (ParamBlockDesc2::flags).
/// ClassDesc2::MakeAutoParamBlocks makes the block and puts it in the owner's reference RefNo().
inline constexpr int P_AUTO_CONSTRUCT = 0x0002;
/// An automatic rollup; the headless host builds no UI, so the flag takes no arguments here.
inline constexpr int P_AUTO_UI = 0x0004;
/// The block has a category; kept for the tables, takes no arguments here.
inline constexpr int P_HASCATEGORY = 0x0100;
/// The descriptor carries a version number (for loading older blocks).
inline constexpr int P_VERSION = 0x0400;
