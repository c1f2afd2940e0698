// Copyright Marvolith contributors.
// ViewExp: a viewport as objects see it while they draw: its graphics window, its camera and the
// scale factors for figures of constant screen size.
#pragma once

#include "host/gfx/graphics_window.h"
#include "host/math/matrix3.h"
#include "host/math/point3.h"

/// The kinds of view. The fixed views look along the world's axes (the host is Z-up):
///   VIEW_FRONT  along +Y (screen right +X, up +Z)    VIEW_BACK   along -Y (right -X, up +Z)
///   VIEW_LEFT   along +X (screen right -Y, up +Z)    VIEW_RIGHT  along -X (right +Y, up +Z)
///   VIEW_TOP    along -Z (screen right +X, up +Y)    VIEW_BOTTOM along +Z (right +X, up -Y)
/// VIEW_PERSP_USER is a perspective view from the front, right and above; VIEW_ISO_USER the same
/// direction drawn orthographically.
enum ViewType {
  VIEW_LEFT,
  VIEW_RIGHT,
  VIEW_TOP,
  VIEW_BOTTOM,
  VIEW_FRONT,
  VIEW_BACK,
  VIEW_ISO_USER,
  VIEW_PERSP_USER,
  VIEW_CAMERA,
  VIEW_GRID,
  VIEW_NONE,
};

/// A viewport. View space is the host's: x to the screen's right, y up, z towards the viewer, so
/// what is in front of a perspective eye has negative z.
class ViewExp {
 public:
  virtual ~ViewExp() = default;

  /// The viewport's graphics window (never null).
  virtual GraphicsWindow* getGW() = 0;
  /// One of ViewType.
  virtual int GetViewType() = 0;
  virtual bool IsPerspView() = 0;
  /// Horizontal field of view in radians (of the perspective view; the default for others).
  virtual float GetFOV() = 0;
  /// The world-to-view transform: p_vs = p_ws * tm. Its inverse places the camera: rows 0, 1, 2
  /// are the screen's right, up and the direction towards the viewer, row 3 the eye (the centre
  /// of the view for an orthographic one).
  virtual void GetAffineTM(Matrix3& tm) = 0;
  /// The width of the viewport in world units at world_point: the view's width for an
  /// orthographic view, the width at the point's depth for a perspective one (at the near plane
  /// for a point behind it). Figures of constant screen size scale by it (a ControlHelper by
  /// 0.005 of it, a point helper by 1/360 of it): one world unit per pixel is
  /// GetScreenScaleFactor(p) / getGW()->getWinSizeX().
  virtual float GetScreenScaleFactor(const Point3 world_point) = 0;
  /// The same width; the host's older name for it.
  float GetVPWorldWidth(const Point3 world_point) { return GetScreenScaleFactor(world_point); }
  /// The user's scale for objects of constant screen size (the host's preference; 1 here).
  virtual float NonScalingObjectSize() { return 1.0f; }
  /// The view-space point p_vs on the screen, in pixels (top left origin, y down). A point at or
  /// behind a perspective eye answers the centre of the screen.
  virtual Point2 MapViewToScreen(const Point3& p_vs) = 0;
  /// Window size in pixels.
  IPoint2 getViewportDim() { return getGW()->getViewportDim(); }
  /// True while the viewport exists (always, for a headless one).
  virtual bool IsAlive() { return true; }
};
