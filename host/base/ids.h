// Copyright Marvolith contributors.
// Class, super class and interface identifiers; reference results, messages and part ids.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

/// The host's string: UTF-8 text in this provider.
using MSTR = std::string;
using WStr = std::string;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using SClass_ID = std::uint32_t;
using ParamID = std::int16_t;
using BlockID = std::int16_t;
/// A stable number for an Animatable; never reused, valid after the object is gone.
using AnimHandle = std::uint64_t;

/// A class identifier: two 32-bit words. Unique only within a super class.
class Class_ID {
 public:
  constexpr Class_ID() : a_(0xffffffffu), b_(0xffffffffu) {}
  constexpr Class_ID(ULONG a, ULONG b) : a_(a), b_(b) {}
  constexpr ULONG PartA() const { return a_; }
  constexpr ULONG PartB() const { return b_; }
  constexpr bool operator==(const Class_ID& o) const { return a_ == o.a_ && b_ == o.b_; }
  constexpr bool operator<(const Class_ID& o) const {
    return a_ < o.a_ || (a_ == o.a_ && b_ < o.b_);
  }

 private:
  ULONG a_;
  ULONG b_;
};

/// Identifies a published interface; the program's interfaces reuse their class's pair.
class Interface_ID {
 public:
  constexpr Interface_ID() : a_(0xffffffffu), b_(0xffffffffu) {}
  constexpr Interface_ID(ULONG a, ULONG b) : a_(a), b_(b) {}
  constexpr explicit Interface_ID(const Class_ID& c) : a_(c.PartA()), b_(c.PartB()) {}
  constexpr ULONG PartA() const { return a_; }
  constexpr ULONG PartB() const { return b_; }
  constexpr bool operator==(const Interface_ID& o) const { return a_ == o.a_ && b_ == o.b_; }
  constexpr bool operator<(const Interface_ID& o) const {
    return a_ < o.a_ || (a_ == o.a_ && b_ < o.b_);
  }

 private:
  ULONG a_;
  ULONG b_;
};

template <>
struct std::hash<Class_ID> {
  std::size_t operator()(const Class_ID& c) const noexcept {
    return (std::size_t(c.PartA()) << 32) ^ c.PartB();
  }
};
template <>
struct std::hash<Interface_ID> {
  std::size_t operator()(const Interface_ID& c) const noexcept {
    return (std::size_t(c.PartA()) << 32) ^ c.PartB();
  }
};

// Super classes.
inline constexpr SClass_ID BASENODE_CLASS_ID = 0x00000001;
inline constexpr SClass_ID GEN_DERIVOB_CLASS_ID = 0x00000002;
inline constexpr SClass_ID GEOMOBJECT_CLASS_ID = 0x00000010;
inline constexpr SClass_ID CAMERA_CLASS_ID = 0x00000020;
inline constexpr SClass_ID LIGHT_CLASS_ID = 0x00000030;
inline constexpr SClass_ID SHAPE_CLASS_ID = 0x00000040;
inline constexpr SClass_ID HELPER_CLASS_ID = 0x00000050;
inline constexpr SClass_ID SYSTEM_CLASS_ID = 0x00000060;
inline constexpr SClass_ID PARAMETER_BLOCK2_CLASS_ID = 0x00000082;
inline constexpr SClass_ID REF_MAKER_CLASS_ID = 0x00000100;
inline constexpr SClass_ID REF_TARGET_CLASS_ID = 0x00000200;
inline constexpr SClass_ID OSM_CLASS_ID = 0x00000810;
inline constexpr SClass_ID WSM_CLASS_ID = 0x00000820;
inline constexpr SClass_ID SCENE_IMPORT_CLASS_ID = 0x00000a10;
inline constexpr SClass_ID SCENE_EXPORT_CLASS_ID = 0x00000a20;
inline constexpr SClass_ID CUST_ATTRIB_CLASS_ID = 0x00000c30;
inline constexpr SClass_ID LAYER_CLASS_ID = 0x000010f0;
inline constexpr SClass_ID CTRL_FLOAT_CLASS_ID = 0x00009003;
inline constexpr SClass_ID CTRL_POINT3_CLASS_ID = 0x00009005;
inline constexpr SClass_ID CTRL_MATRIX3_CLASS_ID = 0x00009008;
inline constexpr SClass_ID CTRL_POSITION_CLASS_ID = 0x0000900b;
inline constexpr SClass_ID CTRL_ROTATION_CLASS_ID = 0x0000900c;
inline constexpr SClass_ID CTRL_SCALE_CLASS_ID = 0x0000900d;
inline constexpr SClass_ID CTRL_POINT4_CLASS_ID = 0x00009012;
/// Passed to NotifyDependents to reach every dependent whatever its super class.
inline constexpr SClass_ID NOTIFY_ALL = 0xfffffff0;

// Results of reference operations and of NotifyRefChanged.
using RefResult = int;
inline constexpr RefResult REF_FAIL = 0;
inline constexpr RefResult REF_SUCCEED = 1;
inline constexpr RefResult REF_DONTCARE = 2;
inline constexpr RefResult REF_STOP = 3;
inline constexpr RefResult REF_INVALID = 4;

/// Reference messages. Numbers not listed here are passed through untouched. The toolkit's
/// classes use these numbers as given; private messages of one class family live here too, so
/// that no two families pick the same number.
using RefMessage = std::uint32_t;
inline constexpr RefMessage REFMSG_LOOPTEST = 0x00000010;
inline constexpr RefMessage REFMSG_TARGET_DELETED = 0x00000020;  // 32
inline constexpr RefMessage REFMSG_MODAPP_DELETING = 0x00000021;
inline constexpr RefMessage REFMSG_EVAL = 0x00000030;
inline constexpr RefMessage REFMSG_RESET_ORIGIN = 0x00000040;
inline constexpr RefMessage REFMSG_CHANGE = 0x00000050;  // 80
inline constexpr RefMessage REFMSG_FLAGDEPENDENTS = 0x00000070;
inline constexpr RefMessage REFMSG_TARGET_SELECTIONCHANGE = 0x00000080;
inline constexpr RefMessage REFMSG_BEGIN_EDIT = 0x00000090;
inline constexpr RefMessage REFMSG_END_EDIT = 0x000000a0;
inline constexpr RefMessage REFMSG_DISABLE = 0x000000b0;
inline constexpr RefMessage REFMSG_ENABLE = 0x000000c0;
inline constexpr RefMessage REFMSG_NODE_NAMECHANGE = 0x000000f0;
/// The sub-anims of the sender were added, removed or reordered (sent beside REFMSG_CHANGE).
inline constexpr RefMessage REFMSG_SUBANIM_STRUCTURE_CHANGED = 0x00000102;  // 258
inline constexpr RefMessage REFMSG_REF_DELETED = 0x00000104;
inline constexpr RefMessage REFMSG_REF_ADDED = 0x00000105;
/// A connection asks the chain above it whether its target reaches back to it.
inline constexpr RefMessage REFMSG_CONNECTION_LOOP_TEST = 0x00000107;  // 263
/// Asks whether a track can be keyed; the part id carries a pointer to an int answer.
inline constexpr RefMessage REFMSG_KEYABLE_QUERY = 0x00000108;  // 264
inline constexpr RefMessage REFMSG_NODE_LINK = 0x0000010b;
inline constexpr RefMessage REFMSG_NODE_WSCACHE_UPDATED = 0x0000010d;
/// A node's handle changed (a merge renumbers nodes): weak observers re-find their targets.
inline constexpr RefMessage REFMSG_NODE_HANDLE_CHANGED = 0x00000112;  // 274
inline constexpr RefMessage REFMSG_KEY_SELECTION_CHANGED = 0x00000239;  // 569
inline constexpr RefMessage REFMSG_USER = 0x00010000;

/// Which parts of an object a change touches. PART_TM (4096) is the transform part: a target
/// node's move reaches its users with it, inside the mask PART_TOPO | PART_GEOM | PART_TM (0x1003)
/// that constraints test.
using PartID = std::uint64_t;
inline constexpr PartID PART_TOPO = 1u << 0;
inline constexpr PartID PART_GEOM = 1u << 1;
inline constexpr PartID PART_TEXMAP = 1u << 2;
inline constexpr PartID PART_MTL = 1u << 3;
inline constexpr PartID PART_SELECT = 1u << 4;
inline constexpr PartID PART_SUBSEL_TYPE = 1u << 5;
inline constexpr PartID PART_DISPLAY = 1u << 6;
inline constexpr PartID PART_TM = 1u << 12;
inline constexpr PartID PART_OBJ = PART_TOPO | PART_GEOM;
/// What a moved target sends and what a constraint listens for.
inline constexpr PartID PART_TARGET_MOVED_MASK = PART_TOPO | PART_GEOM | PART_TM;
inline constexpr PartID PART_ALL = 0xffffffffffffffffull;
/// The part used when layers or their weights change: every channel but the node's own ones.
inline constexpr PartID PART_LAYER_CHANGE = 0x800037ffull;

/// Result of every ISave/ILoad operation.
enum IOResult { IO_OK = 0, IO_END = 1, IO_ERROR = 2 };
