// Copyright Marvolith contributors.
// Control: the base of every controller, the SetValue packet of transform controllers, and the
// locked-track interface.
#pragma once

#include "host/core/reference.h"
#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"
#include "host/math/scale_value.h"

class INode;
class ViewExp;

/// How GetValue and SetValue combine with the incoming value.
enum GetSetMethod { CTRL_RELATIVE = 0, CTRL_ABSOLUTE = 1 };

/// Commands of a transform controller's SetValue.
enum SetXFormCommand { XFORM_MOVE = 0, XFORM_ROTATE = 1, XFORM_SCALE = 2, XFORM_SET = 3 };

/// What a transform (matrix) controller receives in SetValue. For XFORM_SET, tmAxis is the world
/// matrix to reach under the parent tmParent; for the others, p, q/aa or p (scale) is a delta in the
/// axis system tmAxis.
class SetXFormPacket {
 public:
  SetXFormPacket() = default;
  /// XFORM_SET: reach world matrix `world` under `parent`.
  SetXFormPacket(const Matrix3& world, const Matrix3& parent)
      : command(XFORM_SET), tmParent(parent), tmAxis(world) {}
  /// XFORM_MOVE by move, given in the axis system axis.
  SetXFormPacket(const Point3& move, const Matrix3& parent, const Matrix3& axis)
      : command(XFORM_MOVE), tmParent(parent), tmAxis(axis), p(move) {}
  /// XFORM_ROTATE by rot about the axis system axis (its origin unless local_origin).
  SetXFormPacket(const Quat& rot, bool local_origin, const Matrix3& parent, const Matrix3& axis)
      : command(XFORM_ROTATE),
        tmParent(parent),
        tmAxis(axis),
        q(rot),
        aa(rot),
        localOrigin(local_origin) {}
  SetXFormPacket(const AngAxis& rot, bool local_origin, const Matrix3& parent, const Matrix3& axis)
      : command(XFORM_ROTATE),
        tmParent(parent),
        tmAxis(axis),
        q(rot),
        aa(rot),
        localOrigin(local_origin) {}
  /// XFORM_SCALE by factors scale in the axis system axis.
  static SetXFormPacket Scale(const Point3& scale, bool local_origin, const Matrix3& parent,
                              const Matrix3& axis) {
    SetXFormPacket pk;
    pk.command = XFORM_SCALE;
    pk.p = scale;
    pk.localOrigin = local_origin;
    pk.tmParent = parent;
    pk.tmAxis = axis;
    return pk;
  }

  SetXFormCommand command = XFORM_SET;
  Matrix3 tmParent;
  Matrix3 tmAxis;
  Point3 p;
  Quat q;
  AngAxis aa;
  bool localOrigin = false;
};

/// Number of the interface that answers the object as a Control (Animatable::GetInterface).
inline constexpr ULONG I_CONTROL = 0x1010;
/// Number of the key access interface IKeyControl.
inline constexpr ULONG I_KEYCONTROL = 0x1100;
/// Number of the locked-track interface for Animatable::GetInterface(ULONG).
inline constexpr ULONG I_LOCKED = 5008;
/// Number of the Euler rotation interface for Animatable::GetInterface(ULONG).
inline constexpr ULONG I_EULERCTRL = 4992;

// Out-of-range types and which end they apply to.
inline constexpr int ORT_BEFORE = 1;
inline constexpr int ORT_AFTER = 2;
inline constexpr int ORT_CONSTANT = 1;
inline constexpr int ORT_CYCLE = 2;
inline constexpr int ORT_LOOP = 3;
inline constexpr int ORT_OSCILLATE = 4;  ///< ping pong
inline constexpr int ORT_LINEAR = 5;
inline constexpr int ORT_IDENTITY = 6;
inline constexpr int ORT_RELATIVE_REPEAT = 7;

/// Base of every controller. `val` of GetValue/SetValue points to a value of the controller's
/// kind (float, Point3, Quat, ScaleValue) or, for relative GetValue of position, rotation and scale
/// and for every transform controller, a Matrix3 (a SetXFormPacket for transform SetValue).
class Control : public ReferenceTarget {
 public:
  void* GetInterface(ULONG id) override {
    return id == I_CONTROL ? static_cast<Control*>(this) : ReferenceTarget::GetInterface(id);
  }
  using ReferenceTarget::GetInterface;

  /// Evaluates at t into *val and narrows valid to the interval over which the result holds.
  virtual void GetValue(TimeValue t, void* val, Interval& valid,
                        GetSetMethod method = CTRL_ABSOLUTE) = 0;
  /// Sets the value at t. With animate on, keyframe controllers key it; commit false may leave
  /// the change pending until CommitValue.
  virtual void SetValue(TimeValue t, void* val, int commit = 1,
                        GetSetMethod method = CTRL_ABSOLUTE) = 0;
  /// Adopts the value (and locked state) of from, which this controller replaces in the scene.
  virtual void Copy(Control* from) {}
  virtual void CommitValue(TimeValue t) {}
  virtual void RestoreValue(TimeValue t) {}

  virtual bool IsLeaf() { return true; }
  virtual bool IsKeyable() { return true; }
  virtual bool IsReplaceable() { return true; }
  virtual bool CanCopyAnim() { return true; }
  virtual bool InheritsParentTransform() { return true; }
  /// A transform controller keeps its node's world transform tm when the node moves from
  /// old_parent to new_parent; answers true when it did.
  virtual bool ChangeParents(TimeValue t, const Matrix3& old_parent, const Matrix3& new_parent,
                             const Matrix3& tm) {
    return false;
  }

  /// Draws what the controller shows in the viewport for inode at t (view lines of constraints),
  /// after the node's object; answers nonzero when it drew. Most controllers draw nothing.
  virtual int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) { return 0; }

  // Sub-controllers of transform (and list) controllers.
  virtual Control* GetPositionController() { return nullptr; }
  virtual Control* GetRotationController() { return nullptr; }
  virtual Control* GetScaleController() { return nullptr; }
  virtual bool SetPositionController(Control* c) { return false; }
  virtual bool SetRotationController(Control* c) { return false; }
  virtual bool SetScaleController(Control* c) { return false; }
  virtual Control* GetXController() { return nullptr; }
  virtual Control* GetYController() { return nullptr; }
  virtual Control* GetZController() { return nullptr; }

  // Out-of-range types.
  virtual void SetORT(int ort, int type) {}
  virtual int GetORT(int type) { return ORT_CONSTANT; }
  virtual void EnableORTs(bool enable) {}
};

/// A track that can be locked against edits.
class ILockedTrack {
 public:
  virtual ~ILockedTrack() = default;
  virtual bool GetLocked(bool check_override = true) = 0;
  virtual void SetLocked(bool locked, bool set_children = false) = 0;
  virtual bool IsOverridable() { return false; }
};

/// The locked flag that controllers mix in. SetValue and key operations do nothing while locked;
/// the flag is saved with the controller (one byte).
class ILockedTrackImp : public ILockedTrack {
 public:
  bool GetLocked(bool check_override = true) override { return locked_; }
  void SetLocked(bool locked, bool set_children = false) override { locked_ = locked; }

 protected:
  bool locked_ = false;
};

/// A Control with the locked-track interface (GetInterface(I_LOCKED)).
class LockableControl : public Control, public ILockedTrackImp {
 public:
  void* GetInterface(ULONG id) override {
    if (id == I_LOCKED) return static_cast<ILockedTrack*>(this);
    return Control::GetInterface(id);
  }
  using Control::GetInterface;
};

