// Copyright Marvolith contributors.
#include "host/gfx/view_camera.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr float kMinFovRad = 0.0174533f;  // 1 degree
constexpr float kMaxFovRad = 2.96706f;    // 170 degrees
// Direction from the target to a user view's eye: 30 degrees to the right of the front view and
// 25 degrees above it.
constexpr float kUserAzimuthRad = 0.523599f;
constexpr float kUserElevationRad = 0.436332f;
// Extent given to a box with none, and the box framed when there is no box at all.
constexpr float kPointBoxExtent = 10.0f;
constexpr float kEmptyBoxHalf = 50.0f;
constexpr float kNoExtent = 1e-6f;

Matrix3 Frame(const Point3& right, const Point3& up, const Point3& back) {
  return Matrix3(right, up, back, Point3());
}

Matrix3 UserAxes() {
  const float ce = std::cos(kUserElevationRad);
  const Point3 back(std::sin(kUserAzimuthRad) * ce, -std::cos(kUserAzimuthRad) * ce,
                    std::sin(kUserElevationRad));
  // right = world up x back, so that the horizon stays level; up completes the frame.
  const Point3 right = (Point3::ZAxis ^ back).Normalize();
  return Frame(right, back ^ right, back);
}

bool Finite(float v) { return std::isfinite(v); }

}  // namespace

Matrix3 ViewAxes(int view_type) {
  switch (view_type) {
    case VIEW_BACK:
      return Frame({-1, 0, 0}, {0, 0, 1}, {0, 1, 0});
    case VIEW_LEFT:
      return Frame({0, -1, 0}, {0, 0, 1}, {-1, 0, 0});
    case VIEW_RIGHT:
      return Frame({0, 1, 0}, {0, 0, 1}, {1, 0, 0});
    case VIEW_TOP:
      return Frame({1, 0, 0}, {0, 1, 0}, {0, 0, 1});
    case VIEW_BOTTOM:
      return Frame({1, 0, 0}, {0, -1, 0}, {0, 0, -1});
    case VIEW_ISO_USER:
    case VIEW_PERSP_USER:
      return UserAxes();
    default:
      return Frame({1, 0, 0}, {0, 0, 1}, {0, -1, 0});
  }
}

ViewCamera::ViewCamera() : view_to_world_(ViewAxes(VIEW_FRONT)) {
  *this = Resized(width_px_, height_px_);
}

ViewCamera ViewCamera::Orthographic(
    int view_type, const Point3& center_ws, float width_ws, int width_px, int height_px) {
  ViewCamera c;
  c.view_type_ = view_type == VIEW_PERSP_USER ? VIEW_ISO_USER : view_type;
  c.persp_ = false;
  c.view_to_world_ = ViewAxes(view_type);
  c.view_to_world_.SetTrans(center_ws);
  c.ortho_width_ = (Finite(width_ws) && width_ws > 0.0f) ? width_ws : 1.0f;
  return c.Resized(width_px, height_px);
}

ViewCamera ViewCamera::Perspective(const Matrix3& view_to_world,
                                   float fov_rad,
                                   int width_px,
                                   int height_px) {
  ViewCamera c;
  c.view_type_ = VIEW_PERSP_USER;
  c.persp_ = true;
  c.fov_ = Finite(fov_rad) ? std::clamp(fov_rad, kMinFovRad, kMaxFovRad) : kDefaultFovRad;
  // Orthonormalise: keep the viewing direction, then the right vector's part across it.
  const Point3 back = view_to_world.GetRow(2).Normalize();
  const Point3 right =
      (view_to_world.GetRow(0) - back * (view_to_world.GetRow(0) % back)).Normalize();
  if (back.LengthSquared() < 0.5f || right.LengthSquared() < 0.5f) {
    c.view_to_world_ = ViewAxes(VIEW_PERSP_USER);  // degenerate frame: the user view's axes
  } else {
    c.view_to_world_ = Frame(right, back ^ right, back);
  }
  c.view_to_world_.SetTrans(view_to_world.GetTrans());
  return c.Resized(width_px, height_px);
}

ViewCamera ViewCamera::Framing(
    int view_type, const Box3& box_ws, int width_px, int height_px, float margin) {
  Box3 box = box_ws;
  if (box.IsEmpty()) {
    box = Box3(Point3(-kEmptyBoxHalf, -kEmptyBoxHalf, -kEmptyBoxHalf),
               Point3(kEmptyBoxHalf, kEmptyBoxHalf, kEmptyBoxHalf));
  }
  const Point3 center = box.Center();
  const Point3 extent = box.Width();
  if (std::max({extent.x, extent.y, extent.z}) < kNoExtent) box.EnlargeBy(kPointBoxExtent * 0.5f);
  if (!(margin >= 1.0f)) margin = 1.0f;
  const int w = std::max(width_px, 1), h = std::max(height_px, 1);
  const float aspect = static_cast<float>(w) / static_cast<float>(h);
  const Matrix3 axes = ViewAxes(view_type);

  if (view_type == VIEW_PERSP_USER) {
    const float radius = box.Width().Length() * 0.5f * margin;
    const float half_h = kDefaultFovRad * 0.5f;
    const float half_v = std::atan(std::tan(half_h) / aspect);
    const float dist = radius / std::sin(std::min(half_h, half_v));
    Matrix3 frame = axes;
    frame.SetTrans(center + axes.GetRow(2) * dist);
    return Perspective(frame, kDefaultFovRad, w, h);
  }
  float half_x = 0.0f, half_y = 0.0f;
  for (int i = 0; i < 8; ++i) {
    const Point3 d = box[i] - center;
    half_x = std::max(half_x, std::fabs(d % axes.GetRow(0)));
    half_y = std::max(half_y, std::fabs(d % axes.GetRow(1)));
  }
  float width = 2.0f * std::max(half_x, half_y * aspect) * margin;
  if (width < kNoExtent) width = kPointBoxExtent * margin;  // seen end-on: a line along the view
  return Orthographic(view_type, center, width, w, h);
}

ViewCamera ViewCamera::Resized(int width_px, int height_px) const {
  ViewCamera c = *this;
  c.width_px_ = std::max(width_px, 1);
  c.height_px_ = std::max(height_px, 1);
  c.world_to_view_ = Inverse(c.view_to_world_);
  c.focal_px_ = static_cast<float>(c.width_px_) * 0.5f / std::tan(c.fov_ * 0.5f);
  c.px_per_unit_ = static_cast<float>(c.width_px_) / c.ortho_width_;
  return c;
}

DWORD ViewCamera::Project(const Point3& p_ws, Point3& screen) const {
  return ProjectView(p_ws * world_to_view_, screen);
}

DWORD ViewCamera::ProjectView(const Point3& p_vs, Point3& screen) const {
  const float cx = static_cast<float>(width_px_) * 0.5f;
  const float cy = static_cast<float>(height_px_) * 0.5f;
  const float depth = -p_vs.z;
  float scale = px_per_unit_;
  if (persp_) {
    if (!(depth >= kPerspNearClip)) {
      screen = Point3(cx, cy, depth);
      return CLIP_FRONT;
    }
    scale = focal_px_ / depth;  // perspective divide
  }
  screen = Point3(cx + p_vs.x * scale, cy - p_vs.y * scale, depth);
  DWORD flags = 0;
  if (screen.x < 0.0f) flags |= CLIP_LEFT;
  if (screen.x > static_cast<float>(width_px_)) flags |= CLIP_RIGHT;
  if (screen.y < 0.0f) flags |= CLIP_TOP;
  if (screen.y > static_cast<float>(height_px_)) flags |= CLIP_BOTTOM;
  return flags;
}

bool ViewCamera::ClipToNear(Point3& a_vs, Point3& b_vs) const {
  if (!persp_) return true;
  const float da = -a_vs.z, db = -b_vs.z;
  const bool a_in = da >= kPerspNearClip, b_in = db >= kPerspNearClip;
  if (a_in && b_in) return true;
  if (!a_in && !b_in) return false;
  // The point where depth equals the near distance, by linear interpolation along the segment.
  const float s = (kPerspNearClip - da) / (db - da);
  Point3 cut = a_vs + (b_vs - a_vs) * s;
  cut.z = -kPerspNearClip;  // exactly on the plane, so that rounding cannot put it behind
  (a_in ? b_vs : a_vs) = cut;
  return true;
}

float ViewCamera::WorldWidthAt(const Point3& p_ws) const {
  if (!persp_) return ortho_width_;
  const float depth = std::max(-(p_ws * world_to_view_).z, kPerspNearClip);
  return static_cast<float>(width_px_) * depth / focal_px_;
}
