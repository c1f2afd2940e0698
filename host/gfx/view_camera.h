// Copyright Marvolith contributors.
// ViewCamera: the camera of a headless viewport and its projection from world space to pixels,
// orthographic along the world's axes or perspective; framing of world boxes.
#pragma once

#include "host/gfx/graphics_window.h"
#include "host/gfx/view_exp.h"
#include "host/math/box3.h"
#include "host/math/matrix3.h"
#include "host/math/point3.h"

/// The host's default field of view: 45 degrees, horizontal.
inline constexpr float kDefaultFovRad = 0.785398163f;
/// Nearest depth a perspective view draws, in world units.
inline constexpr float kPerspNearClip = 0.01f;

/// The camera frame of a view type (view_to_world without the position): rows 0, 1, 2 are the
/// screen's right, up and towards-the-viewer directions in world space (see ViewType). Unknown
/// types answer the front view's axes.
Matrix3 ViewAxes(int view_type);

/// A camera of a given pixel size. Orthographic cameras map view x, y to pixels linearly: the
/// view's centre (row 3 of ViewToWorld) lands in the middle of the window, OrthoWidth world units
/// span the window's width. Perspective cameras put the eye at row 3 and divide by depth: a
/// point at view-space depth d (d = -z) and x lands at width / 2 + x * f / d with
/// f = (width / 2) / tan(fov / 2). Pixels are square; y runs down the screen.
class ViewCamera {
 public:
  /// A front view 100 units wide at 640 x 480, centred at the origin.
  ViewCamera();

  /// An orthographic view of type view_type (its axes from ViewAxes; VIEW_PERSP_USER gives
  /// VIEW_ISO_USER, its orthographic twin) centred at center_ws,
  /// width_ws world units across. Sizes below 1 pixel count as 1; width_ws of zero, negative or
  /// not finite counts as 1.
  static ViewCamera Orthographic(
      int view_type, const Point3& center_ws, float width_ws, int width_px, int height_px);
  /// A perspective view with the camera frame view_to_world (rows: right, up, towards the viewer,
  /// eye; orthonormalised here) and horizontal field of view fov_rad (clamped to 1..170
  /// degrees). Its type is VIEW_PERSP_USER.
  static ViewCamera Perspective(const Matrix3& view_to_world,
                                float fov_rad,
                                int width_px,
                                int height_px);
  /// A camera of view_type that shows box_ws whole, with margin (at least 1) of room around it:
  /// the fixed and iso views look at the box's centre and are just wide enough for the box's
  /// projected extent times margin; VIEW_PERSP_USER looks from the front, right and above at
  /// the centre from the distance at which the box's bounding sphere times margin fits the
  /// narrower field of view. An empty box frames the cube of 100 around the origin; a box of
  /// no extent (a point) is given an extent of 10.
  static ViewCamera Framing(
      int view_type, const Box3& box_ws, int width_px, int height_px, float margin = 1.1f);

  int ViewType() const { return view_type_; }
  bool IsPersp() const { return persp_; }
  /// Horizontal field of view (kDefaultFovRad for orthographic cameras).
  float Fov() const { return fov_; }
  /// World units across the window (orthographic cameras).
  float OrthoWidth() const { return ortho_width_; }
  int WidthPx() const { return width_px_; }
  int HeightPx() const { return height_px_; }
  /// Camera frame: right, up, towards the viewer, eye (or view centre).
  const Matrix3& ViewToWorld() const { return view_to_world_; }
  /// The inverse of ViewToWorld: the host's affine TM of the view.
  const Matrix3& WorldToView() const { return world_to_view_; }

  /// The same camera with another window size: the orthographic width and the field of view
  /// are kept.
  ViewCamera Resized(int width_px, int height_px) const;

  /// p_ws on the screen: x, y in pixels, z the depth (world units in front of the eye; for an
  /// orthographic view, in front of the view's centre plane, possibly negative). Answers the
  /// clip flags; a point with CLIP_FRONT set answers the window's centre for x and y.
  DWORD Project(const Point3& p_ws, Point3& screen) const;
  /// As Project for a point already in view space.
  DWORD ProjectView(const Point3& p_vs, Point3& screen) const;
  /// Clips the view-space segment a..b to the perspective near plane; false when nothing of it
  /// is in front of the plane. Orthographic cameras answer true and change nothing.
  bool ClipToNear(Point3& a_vs, Point3& b_vs) const;
  /// Width of the window in world units at p_ws (see ViewExp::GetScreenScaleFactor).
  float WorldWidthAt(const Point3& p_ws) const;

 private:
  int view_type_ = VIEW_FRONT;
  bool persp_ = false;
  float fov_ = kDefaultFovRad;
  float ortho_width_ = 100.0f;
  int width_px_ = 640;
  int height_px_ = 480;
  Matrix3 view_to_world_;
  Matrix3 world_to_view_;
  float focal_px_ = 0.0f;     // perspective: (width / 2) / tan(fov / 2)
  float px_per_unit_ = 6.4f;  // orthographic: width_px / ortho_width
};
