// Copyright Marvolith contributors.
// ICurveCtl: the host's curve control, a reference target that holds a list of curves of
// points in an (x, y) plane and answers y for any x. Controllers use it to map one value onto
// another through a user-drawn curve.
#pragma once

#include <memory>
#include <vector>

#include "host/core/reference.h"
#include "host/math/point3.h"

/// Class of the curve control; created with CreateInstance(REF_MAKER_CLASS_ID, this id).
inline constexpr Class_ID CURVE_CONTROL_CLASS_ID(0x14585773, 0x483a7dcf);

// Point flags. A Bezier point uses its in and out handles; a corner point ignores them, so the
// segments beside it are straight on its side.
inline constexpr int CURVEP_BEZIER = 1 << 0;
inline constexpr int CURVEP_CORNER = 1 << 1;

/// One point of a curve: its position, and its in and out handles as offsets from it.
struct CurvePoint {
  Point2 p;
  Point2 in;
  Point2 out;
  int flags = CURVEP_CORNER;
  bool operator==(const CurvePoint&) const = default;
};

class ICurveCtl;

/// One curve of a curve control: points ordered by x. Edits go through the owning control, which
/// records them for undo and tells its dependents REFMSG_CHANGE. A curve object stays valid until
/// the control's curve count changes.
class ICurve {
 public:
  int GetNumPts() const { return static_cast<int>(points_.size()); }
  /// Point i; the default point for an index out of range. t is accepted for the host's
  /// signature: points are not animated here.
  CurvePoint GetPoint(TimeValue t, int i) const;
  /// Replaces point i (out of range: nothing). With check_range the point's x is limited to
  /// lie between its neighbours, so the points stay ordered.
  void SetPoint(TimeValue t, int i, const CurvePoint& pt, bool check_range = true);
  /// Inserts pt before index i (0..count; others append), x limited between the neighbours.
  void Insert(int i, const CurvePoint& pt);
  /// Removes point i (out of range: nothing).
  void Delete(int i);
  /// y at x. Before the first point and after the last the end values hold; between points
  /// each segment is a cubic Bezier from p through p + out and the next point's p + in (handle
  /// x kept inside the segment so the curve stays a function of x), or straight where a corner
  /// point ends it. No points give 0. valid is not narrowed: points are not animated.
  float GetValue(TimeValue t, float x, Interval* valid = nullptr) const;

 private:
  friend class ICurveCtl;
  explicit ICurve(ICurveCtl* owner) : owner_(owner) {}
  float ClampX(int i, float x) const;

  ICurveCtl* owner_;
  std::vector<CurvePoint> points_;
};

/// The curve control. New controls hold one curve from (0, 0) to (1, 1) with corner points.
///
/// Every change is undoable (the whole set of curves is recorded once per hold) and tells
/// dependents REFMSG_CHANGE. Saves each curve as one chunk 0x0010: point count (u32), then per
/// point p, in, out (six f32) and flags (i32); loading refuses counts above kMaxLoadedPoints.
class ICurveCtl : public ReferenceTarget {
 public:
  static constexpr int kMaxLoadedPoints = 1 << 16;
  using State = std::vector<std::vector<CurvePoint>>;

  /// loading true makes no default curve (Load fills it).
  explicit ICurveCtl(bool loading = false);
  ~ICurveCtl() override;

  SClass_ID SuperClassID() override { return REF_MAKER_CLASS_ID; }
  Class_ID ClassID() override { return CURVE_CONTROL_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override { s = "CurveControl"; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }

  int GetNumCurves() const { return static_cast<int>(curves_.size()); }
  /// Grows with curves from (0, 0) to (1, 1) or shrinks from the end. Negative counts: nothing.
  void SetNumCurves(int n);
  /// Curve i, or null out of range.
  ICurve* GetControlCurve(int i);

  State GetState() const;
  /// Replaces every curve's points (no undo record; restore records use it).
  void SetState(const State& state);

  RefTargetHandle Clone(RemapDir& remap) override;
  IOResult Save(ISave* isave) override;
  /// IO_ERROR, with the control left as it was, for a damaged chunk.
  IOResult Load(ILoad* iload) override;

 private:
  friend class ICurve;
  friend class CurveCtlRestore;
  void BeforeChange();
  void AfterChange();

  std::vector<std::unique_ptr<ICurve>> curves_;
};

/// Registers the curve control class in the class directory; later calls do nothing.
void RegisterCurveControlClass();
