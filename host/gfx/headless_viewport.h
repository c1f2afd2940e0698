// Copyright Marvolith contributors.
// The headless viewport: a ViewExp with a camera whose graphics window records every primitive
// in world space into a display list instead of drawing it.
#pragma once

#include "host/gfx/display_list.h"
#include "host/gfx/graphics_window.h"
#include "host/gfx/view_camera.h"
#include "host/gfx/view_exp.h"

/// A graphics window that records. Each primitive's points are taken through the current
/// transform to world space and appended to the list with the current colour and the draw-on-top
/// state (GW_Z_BUFFER off). In pick mode nothing is recorded: primitives are projected through
/// the camera and tested against the hit region.
class HeadlessGraphicsWindow : public GraphicsWindow {
 public:
  HeadlessGraphicsWindow() = default;
  HeadlessGraphicsWindow(const HeadlessGraphicsWindow&) = delete;
  HeadlessGraphicsWindow& operator=(const HeadlessGraphicsWindow&) = delete;

  using GraphicsWindow::setColor;

  void setTransform(const Matrix3& m) override { tm_ = m; }
  Matrix3 getTransform() override { return tm_; }
  void setColor(ColorType t, float r, float g, float b) override;
  Point3 getColor(ColorType t) override;
  void setRndLimits(DWORD limits) override { limits_ = limits; }
  DWORD getRndLimits() override { return limits_; }
  DWORD getRndMode() override { return limits_; }
  int getWinSizeX() override { return camera_.WidthPx(); }
  int getWinSizeY() override { return camera_.HeightPx(); }
  DWORD transPoint(const Point3* in, Point3* out) override;
  DWORD wTransPoint(const Point3* in, IPoint3* out) override;

  void polyline(int ct, const Point3* xyz, const Point3* rgb, int closed, const int* es) override;
  void startSegments() override {}
  void segment(const Point3* xyz, int vis) override;
  void endSegments() override {}
  void startMarkers() override {}
  void marker(const Point3* xyz, MarkerType type) override;
  void endMarkers() override {}
  void text(const Point3* xyz, const char* s) override;
  void triangle(const Point3* xyz, const Point3* rgb) override;
  void polygon(int ct, const Point3* xyz, const Point3* rgb, const Point3* uvw) override;

  void setHitRegion(const HitRegion* region) override;
  void clearHitCode() override;
  /// In window mode (RECT_RGN or CIRCLE_RGN without crossing) a hit needs every primitive since
  /// clearHitCode wholly inside the region.
  bool checkHitCode() override { return hit_ && !window_miss_; }
  DWORD getHitDistance() override { return hit_distance_; }

  /// The camera that transPoint and pick mode project through.
  const ViewCamera& GetCamera() const { return camera_; }
  void SetCamera(const ViewCamera& camera) { camera_ = camera; }
  /// What was recorded.
  const DisplayList& GetDisplayList() const { return list_; }
  DisplayList& GetDisplayList() { return list_; }
  /// The node that following primitives are recorded for (0 for none).
  void SetDrawingNode(AnimHandle node) { node_ = node; }

 private:
  // Appends count world-space points of a new primitive of kind and colour; answers it.
  DisplayPrimitive& Add(PrimitiveKind kind, const Point3& color);
  // Pick mode: tests the object-space polyline (or the single point when count is 1).
  void HitTestPoints(const Point3* xyz, int count, bool closed, bool filled);
  bool Picking() const { return (limits_ & GW_PICK) != 0; }

  Matrix3 tm_;
  Point3 colors_[4] = {Point3(1, 1, 1), Point3(1, 1, 1), Point3(1, 1, 1), Point3(0, 0, 0)};
  DWORD limits_ = GW_DEFAULT_RND_LIMITS;
  ViewCamera camera_;
  DisplayList list_;
  AnimHandle node_ = 0;
  HitRegion region_;
  bool hit_ = false;
  bool window_miss_ = false;
  DWORD hit_distance_ = 0xFFFFFFFFu;
};

/// A headless viewport: a camera and a recording graphics window. Objects draw into it through
/// their Display as they would into a host viewport.
class HeadlessViewport : public ViewExp {
 public:
  /// A viewport with camera (a default front view when not given).
  explicit HeadlessViewport(const ViewCamera& camera = ViewCamera());
  HeadlessViewport(const HeadlessViewport&) = delete;
  HeadlessViewport& operator=(const HeadlessViewport&) = delete;

  GraphicsWindow* getGW() override { return &gw_; }
  int GetViewType() override { return gw_.GetCamera().ViewType(); }
  bool IsPerspView() override { return gw_.GetCamera().IsPersp(); }
  float GetFOV() override { return gw_.GetCamera().Fov(); }
  void GetAffineTM(Matrix3& tm) override { tm = gw_.GetCamera().WorldToView(); }
  float GetScreenScaleFactor(const Point3 world_point) override;
  Point2 MapViewToScreen(const Point3& p_vs) override;

  const ViewCamera& GetCamera() const { return gw_.GetCamera(); }
  /// Changes the camera; what was recorded stays.
  void SetCamera(const ViewCamera& camera) { gw_.SetCamera(camera); }
  HeadlessGraphicsWindow& GetHeadlessGW() { return gw_; }
  const DisplayList& GetDisplayList() const { return gw_.GetDisplayList(); }
  /// Empties the display list and resets the window's state for a new frame: identity transform,
  /// default render limits, white colours, no drawing node.
  void BeginFrame();

 private:
  HeadlessGraphicsWindow gw_;
};
