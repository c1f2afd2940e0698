// Copyright Marvolith contributors.
// Scene objects: what a node references and shows. Base objects (geometry, helpers, shapes),
// modifiers with their contexts, derived objects that hold a modifier stack, and the object
// state that evaluation hands out.
#pragma once

#include <cstdint>
#include <vector>

#include "host/core/cust_attrib.h"
#include "host/core/reference.h"
#include "host/math/box3.h"
#include "host/math/interval.h"
#include "host/math/matrix3.h"

class INode;
class ViewExp;
class Object;
class CreateMouseCallBack;

/// Which parts of an object a modifier reads or writes.
using ChannelMask = std::uint32_t;
inline constexpr ChannelMask TOPO_CHANNEL = 1u << 0;
inline constexpr ChannelMask GEOM_CHANNEL = 1u << 1;
inline constexpr ChannelMask TEXMAP_CHANNEL = 1u << 2;
inline constexpr ChannelMask MTL_CHANNEL = 1u << 3;
inline constexpr ChannelMask SELECT_CHANNEL = 1u << 4;
inline constexpr ChannelMask SUBSEL_TYPE_CHANNEL = 1u << 5;
inline constexpr ChannelMask DISP_ATTRIB_CHANNEL = 1u << 6;
inline constexpr ChannelMask VERTCOLOR_CHANNEL = 1u << 7;
inline constexpr ChannelMask GFX_DATA_CHANNEL = 1u << 8;
inline constexpr ChannelMask DISP_APPROX_CHANNEL = 1u << 9;
inline constexpr ChannelMask TM_CHANNEL = 1u << 10;
inline constexpr ChannelMask EXTENSION_CHANNEL = 1u << 13;
inline constexpr ChannelMask OBJ_CHANNELS =
    TOPO_CHANNEL | GEOM_CHANNEL | SELECT_CHANNEL | TEXMAP_CHANNEL | MTL_CHANNEL |
    SUBSEL_TYPE_CHANNEL | DISP_ATTRIB_CHANNEL | VERTCOLOR_CHANNEL | GFX_DATA_CHANNEL |
    DISP_APPROX_CHANNEL | EXTENSION_CHANNEL;
inline constexpr ChannelMask ALL_CHANNELS = OBJ_CHANNELS | TM_CHANNEL;

/// The input type of a modifier that takes any object.
inline constexpr Class_ID defObjectClassID(0x0af12, 0x0af12);
/// Class of the host's derived object (super class GEN_DERIVOB_CLASS_ID).
inline constexpr Class_ID DERIVOB_CLASS_ID(0x2, 0);

/// The result of evaluating an object or a modifier stack at a time: the object to show and the
/// interval over which it holds.
class ObjectState {
 public:
  ObjectState() = default;
  /// obj's state, valid FOREVER until narrowed.
  explicit ObjectState(Object* ob) : obj(ob) {}

  /// The evaluated object; null when the node has none.
  Object* obj = nullptr;

  /// An object-to-world transform that a modifier imposed, or null: then the node's object TM
  /// places the object.
  const Matrix3* GetTM() const { return has_tm_ ? &tm_ : nullptr; }
  /// Imposes tm (null clears it), valid over valid.
  void SetTM(const Matrix3* tm, Interval valid);
  /// Validity of the imposed transform: FOREVER when there is none.
  Interval tmValid() const { return tm_valid_; }
  /// Validity of the object's parts.
  Interval obValid() const { return ob_valid_; }
  /// Narrows the object's validity (modifiers narrow it by their LocalValidity).
  void NarrowObValid(const Interval& iv) { ob_valid_ &= iv; }
  /// Object and transform validity together.
  Interval Validity() const { return ob_valid_ & tm_valid_; }

 private:
  Matrix3 tm_;
  bool has_tm_ = false;
  Interval tm_valid_ = FOREVER;
  Interval ob_valid_ = FOREVER;
};

/// Everything that sits in a node's object reference or in its modifier stack.
class BaseObject : public ReferenceTarget {
 public:
  /// Draws the object for inode into viewport vpt; answers 0. The headless host has no
  /// viewports: callers pass what they have, and the default draws nothing.
  virtual int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) { return 0; }
  /// The box of the object in its own space at t. The default is empty.
  virtual void GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) { box.Init(); }
  /// The box in world space: by default the local box through inode's object TM at t (the local
  /// box itself without a node).
  virtual void GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box);
  /// The name shown in lists and the modifier stack: the class name unless overridden.
  virtual MSTR GetObjectName(bool localized = true) { return ClassName(); }
  /// Interactive creation; the headless host creates no objects by mouse.
  virtual CreateMouseCallBack* GetCreateMouseCallBack() { return nullptr; }
};

/// An object that can sit in a node's object reference and be evaluated.
class Object : public BaseObject {
 public:
  /// The object's state at t. Objects that have nothing to compute answer ObjectState(this)
  /// narrowed to ObjectValidity(t).
  virtual ObjectState Eval(TimeValue t) = 0;
  /// Interval over which the object stays the same around t.
  virtual Interval ObjectValidity(TimeValue t) { return FOREVER; }

  /// True for shape objects (splines, text).
  virtual bool IsShapeObject() { return false; }
  /// Can this object present itself as class obtype: by default only as its own class.
  virtual bool CanConvertToType(Class_ID obtype) { return obtype == ClassID(); }
  /// This object as class obtype at t: itself for its own class, else null. A class that
  /// converts answers a new object, which the caller then owns.
  virtual Object* ConvertToType(TimeValue t, Class_ID obtype) {
    return obtype == ClassID() ? this : nullptr;
  }
  /// The object at the bottom of a derived-object chain; this object for a base object.
  virtual Object* FindBaseObject() { return this; }

  // Points of deformable objects. Objects without points answer 0 and ignore SetPoint.
  virtual bool IsDeformable() { return false; }
  virtual int NumPoints() { return 0; }
  virtual Point3 GetPoint(int i) { return Point3(); }
  virtual void SetPoint(int i, const Point3& p) {}
  /// Tells the object that SetPoint calls are done, so it can rebuild what depends on points.
  virtual void PointsWereChanged() {}

  /// A new object that a modifier stack may change without touching this one (channels names
  /// the parts that will change). The stack owns it. Null (the default) says the class cannot be
  /// copied: modifiers then see this object itself and must not change it.
  virtual Object* MakeShallowCopy(ChannelMask channels) { return nullptr; }
};

/// An object with geometry.
class GeomObject : public Object {
 public:
  SClass_ID SuperClassID() override { return GEOMOBJECT_CLASS_ID; }
};

/// A helper: an object that is drawn but not rendered (points, bones' helpers, controls).
class HelperObject : public Object {
 public:
  SClass_ID SuperClassID() override { return HELPER_CLASS_ID; }
};

/// A shape: curves in 3D, optionally rendered as a mesh. The two display flags are saved with
/// the shape by the scene file, so subclasses need not save them.
class ShapeObject : public GeomObject {
 public:
  SClass_ID SuperClassID() override { return SHAPE_CLASS_ID; }
  bool IsShapeObject() override { return true; }

  /// Is the shape rendered (default false).
  bool GetRenderable() const { return renderable_; }
  void SetRenderable(bool on) { renderable_ = on; }
  /// Is the render mesh shown in viewports (default false).
  bool GetDispRenderMesh() const { return disp_render_mesh_; }
  void SetDispRenderMesh(bool on) { disp_render_mesh_ = on; }

  // Curves. A shape without curves (the default) answers 0 curves; the queries then answer
  // the origin and a zero length.
  virtual int NumberOfCurves() { return 0; }
  virtual bool CurveClosed(TimeValue t, int curve) { return false; }
  /// The point at param (0..1 along the curve) in object space.
  virtual Point3 InterpCurve3D(TimeValue t, int curve, float param) { return Point3(); }
  /// The unit tangent at param.
  virtual Point3 TangentCurve3D(TimeValue t, int curve, float param) { return Point3(); }
  virtual float LengthOfCurve(TimeValue t, int curve) { return 0.0f; }

  void BaseClone(ReferenceTarget* from, ReferenceTarget* to, RemapDir& remap) override;

 private:
  bool renderable_ = false;
  bool disp_render_mesh_ = false;
};

/// Data a modifier keeps per application (per node it is applied to). Owned by its ModContext.
class LocalModData {
 public:
  virtual ~LocalModData() = default;
  /// A copy for a cloned application.
  virtual LocalModData* Clone() = 0;
};

/// What one application of a modifier knows of its place: the gizmo's transform and box in the
/// object's space, and the modifier's local data. A ModContext owns all three.
class ModContext {
 public:
  ModContext() = default;
  /// Takes ownership of the three (any may be null).
  ModContext(Matrix3* tm, Box3* box, LocalModData* local_data)
      : tm(tm), box(box), localData(local_data) {}
  /// Deep copy (the local data through its Clone).
  ModContext(const ModContext& other);
  ModContext& operator=(const ModContext&) = delete;
  ~ModContext();

  Matrix3* tm = nullptr;
  Box3* box = nullptr;
  LocalModData* localData = nullptr;
};

/// A modifier in a derived object's stack. The stack applies its modifiers from the bottom up;
/// each one receives the state left by the one below and changes it in place.
///
/// The stack keeps the modifier's name and enabled state; the scene file saves both, so
/// subclasses save only their own data.
class Modifier : public BaseObject {
 public:
  SClass_ID SuperClassID() override { return OSM_CLASS_ID; }

  /// Changes *os at t. os->obj may be replaced by a new object the modifier makes (the stack then
  /// owns it). node is the node being evaluated, or null when the stack is evaluated alone.
  virtual void ModifyObject(TimeValue t, ModContext& mc, ObjectState* os, INode* node) = 0;
  /// Interval over which the modifier's effect stays the same around t.
  virtual Interval LocalValidity(TimeValue t) { return FOREVER; }
  /// The parts of the object the modifier reads.
  virtual ChannelMask ChannelsUsed() { return GEOM_CHANNEL | TOPO_CHANNEL; }
  /// The parts it changes. A modifier that changes nothing (0, the default) receives the object
  /// below as it is; one that changes parts receives a copy when the object can make one.
  virtual ChannelMask ChannelsChanged() { return 0; }
  /// The class of object the modifier works on; defObjectClassID (the default) takes any. The
  /// stack skips the modifier when the object cannot be converted to that type.
  virtual Class_ID InputType() { return defObjectClassID; }
  /// Called when something below the modifier in the stack changed.
  virtual void NotifyInputChanged(const Interval& change_int,
                                  PartID part_id,
                                  RefMessage message,
                                  ModContext* mc) {}

  /// Enabled modifiers are applied; a disabled one is skipped. Undoable; tells dependents
  /// REFMSG_CHANGE.
  bool IsEnabled() const { return enabled_; }
  void EnableMod() { SetEnabled(true); }
  void DisableMod() { SetEnabled(false); }
  void SetEnabled(bool on);
  /// The name shown in the stack: the one set by SetName, else GetObjectName().
  MSTR GetName(bool localized = true);
  /// Sets the stack name (empty returns to the class name). Undoable; tells dependents
  /// REFMSG_NODE_NAMECHANGE.
  void SetName(const MSTR& name);
  /// The name as set, empty when none was.
  const MSTR& GetSetName() const { return name_; }

  void BaseClone(ReferenceTarget* from, ReferenceTarget* to, RemapDir& remap) override;

 private:
  friend class ModifierStateRestore;
  MSTR name_;
  bool enabled_ = true;
};

/// A derived object: a base object with a stack of modifiers on top. Index 0 of the stack is the
/// top (applied last), NumModifiers()-1 the bottom. References: 0 is the base object, 1 + i is
/// modifier i. Every change of the stack is undoable and tells dependents REFMSG_CHANGE and
/// REFMSG_SUBANIM_STRUCTURE_CHANGED.
class IDerivedObject : public Object {
 public:
  SClass_ID SuperClassID() override { return GEN_DERIVOB_CLASS_ID; }
  Class_ID ClassID() override { return DERIVOB_CLASS_ID; }

  /// Inserts mod before stack index before (0 puts it on top; NumModifiers() or more at the
  /// bottom). The derived object takes mc (a new empty one when null). A null mod or one that is
  /// in this stack already is ignored.
  virtual void AddModifier(Modifier* mod, ModContext* mc = nullptr, int before = 0) = 0;
  /// Removes modifier index (deleting it when nothing else references it); out of range ignored.
  virtual void DeleteModifier(int index = 0) = 0;
  virtual int NumModifiers() = 0;
  /// Modifier index, or null when out of range.
  virtual Modifier* GetModifier(int index) = 0;
  /// Replaces modifier index keeping its context; out of range or null ignored.
  virtual void SetModifier(int index, Modifier* mod) = 0;
  /// The context of modifier index, or null.
  virtual ModContext* GetModContext(int index) = 0;
  /// The object below the stack (itself possibly a derived object).
  virtual Object* GetObjRef() = 0;
  /// Replaces the object below the stack; REF_FAIL when the reference would close a loop.
  virtual RefResult ReferenceObject(Object* pob) = 0;
  /// The stack evaluated for node at t from the bottom up to and including modifier
  /// last_index (0, the default, is the whole stack).
  virtual ObjectState EvalStack(TimeValue t, INode* node, int last_index = 0) = 0;
};

/// A new derived object over pob (which may be null and set later by ReferenceObject).
IDerivedObject* CreateDerivedObject(Object* pob = nullptr);
