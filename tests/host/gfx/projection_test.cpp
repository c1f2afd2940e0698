// Copyright Marvolith contributors.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>

#include "host/gfx/headless_viewport.h"
#include "host/gfx/view_camera.h"
#include "tests/support/math_matchers.h"

namespace {

// 200 x 100 pixels, 100 world units wide: 2 pixels a unit, the origin at pixel (100, 50).
ViewCamera Ortho(int view_type) {
  return ViewCamera::Orthographic(view_type, Point3(), 100.0f, 200, 100);
}

TEST(ViewCamera, FixedViewsPutTheWorldAxesWhereTheHostDoes) {
  struct Case {
    int view;
    const char* name;
    Point3 right_ws, up_ws, along_ws;  // screen right, screen up, viewing direction
  };
  const Case cases[] = {
      {VIEW_FRONT, "front", {1, 0, 0}, {0, 0, 1}, {0, 1, 0}},
      {VIEW_BACK, "back", {-1, 0, 0}, {0, 0, 1}, {0, -1, 0}},
      {VIEW_LEFT, "left", {0, -1, 0}, {0, 0, 1}, {1, 0, 0}},
      {VIEW_RIGHT, "right", {0, 1, 0}, {0, 0, 1}, {-1, 0, 0}},
      {VIEW_TOP, "top", {1, 0, 0}, {0, 1, 0}, {0, 0, -1}},
      {VIEW_BOTTOM, "bottom", {1, 0, 0}, {0, -1, 0}, {0, 0, 1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const ViewCamera cam = Ortho(c.view);
    Point3 s;
    EXPECT_EQ(cam.Project(c.right_ws * 10.0f, s), 0u);
    EXPECT_POINT3_NEAR(s, Point3(120, 50, 0), 1e-4f);
    EXPECT_EQ(cam.Project(c.up_ws * 10.0f + c.along_ws * 7.0f, s), 0u);
    EXPECT_POINT3_NEAR(s, Point3(100, 30, 7), 1e-4f) << "depth grows along the view";
    EXPECT_EQ(cam.Project(c.right_ws * -60.0f + c.up_ws * 30.0f, s), CLIP_LEFT | CLIP_TOP);
    EXPECT_EQ(cam.Project(c.right_ws * 60.0f - c.up_ws * 30.0f, s), CLIP_RIGHT | CLIP_BOTTOM);
    // The affine TM is the inverse of the camera frame, as the host's view matrix.
    EXPECT_MATRIX3_NEAR(cam.WorldToView() * cam.ViewToWorld(), Matrix3(), 1e-6f);
    EXPECT_FLOAT_EQ(cam.WorldWidthAt(c.along_ws * 500.0f), 100.0f);
  }
}

TEST(ViewCamera, PerspectiveDividesByDepthAndClipsBehindTheEye) {
  // Eye at (0, -100, 0) looking along +Y; a 90 degree field: focal length = half the width.
  Matrix3 frame = ViewAxes(VIEW_FRONT);
  frame.SetTrans(Point3(0, -100, 0));
  const ViewCamera cam = ViewCamera::Perspective(frame, 1.5707964f, 200, 100);
  Point3 s;
  EXPECT_EQ(cam.Project(Point3(10, 0, 0), s), 0u);
  EXPECT_POINT3_NEAR(s, Point3(110, 50, 100), 1e-3f);
  EXPECT_EQ(cam.Project(Point3(10, 100, 5), s), 0u);
  EXPECT_POINT3_NEAR(s, Point3(105, 47.5f, 200), 1e-3f) << "twice as far, half the offset";
  EXPECT_EQ(cam.Project(Point3(0, -150, 0), s), CLIP_FRONT);
  EXPECT_NEAR(cam.WorldWidthAt(Point3(0, 100, 0)), 400.0f, 1e-2f) << "2 d tan(fov / 2)";
  EXPECT_NEAR(cam.WorldWidthAt(Point3(0, -300, 0)), 2 * kPerspNearClip, 1e-5f);

  // A line through the eye's plane is cut exactly at the near plane and projects there.
  Point3 a = Point3(10, -150, 0) * cam.WorldToView();
  Point3 b = Point3(10, 0, 0) * cam.WorldToView();
  ASSERT_TRUE(cam.ClipToNear(a, b));
  EXPECT_EQ(-a.z, kPerspNearClip);
  EXPECT_EQ(cam.ProjectView(a, s), CLIP_RIGHT) << "far right, never the centre";
  Point3 c = Point3(0, -150, 0) * cam.WorldToView(), d = Point3(0, -120, 0) * cam.WorldToView();
  EXPECT_FALSE(cam.ClipToNear(c, d));
}

TEST(HeadlessViewport, AnswersTheCameraToObjects) {
  Matrix3 frame = ViewAxes(VIEW_TOP);
  frame.SetTrans(Point3(0, 0, 50));
  HeadlessViewport vpt(ViewCamera::Perspective(frame, kDefaultFovRad, 320, 240));
  EXPECT_TRUE(vpt.IsPerspView());
  EXPECT_EQ(vpt.GetViewType(), VIEW_PERSP_USER);
  EXPECT_EQ(vpt.getViewportDim(), IPoint2(320, 240));
  EXPECT_NEAR(vpt.GetScreenScaleFactor(Point3(3, 4, 0)), 2 * 50 * std::tan(kDefaultFovRad / 2),
              1e-3f);
  Matrix3 affine;
  vpt.GetAffineTM(affine);
  EXPECT_POINT3_NEAR(Point3(0, 0, 0) * affine, Point3(0, 0, -50), 1e-5f);
  const Point2 centre = vpt.MapViewToScreen(Point3(0, 0, -50));
  EXPECT_FLOAT_EQ(centre.x, 160.0f);
  EXPECT_FLOAT_EQ(centre.y, 120.0f);

  // wTransPoint goes through the window's transform and rounds.
  vpt.SetCamera(Ortho(VIEW_FRONT));
  vpt.getGW()->setTransform(TransMatrix(Point3(10, 0, 0)));
  IPoint3 ip;
  const Point3 p(0.3f, 0, 0.2f);
  EXPECT_EQ(vpt.getGW()->wTransPoint(&p, &ip), 0u);
  EXPECT_EQ(ip, IPoint3(121, 50, 0));
}

// Whatever the box, its framing shows all of it: every corner lands inside the window.
RC_GTEST_PROP(ViewCamera, FramingShowsTheWholeBox, ()) {
  const int view =
      *rc::gen::element<int>(VIEW_FRONT, VIEW_LEFT, VIEW_TOP, VIEW_ISO_USER, VIEW_PERSP_USER);
  auto coord = rc::gen::map(rc::gen::inRange(-100000, 100000), [](int v) { return v / 100.0f; });
  const Point3 a(*coord, *coord, *coord), b(*coord, *coord, *coord);
  const int w = *rc::gen::inRange(16, 1200), h = *rc::gen::inRange(16, 1200);
  const ViewCamera cam = ViewCamera::Framing(view, Box3(a, b), w, h);
  for (int i = 0; i < 8; ++i) {
    Point3 s;
    RC_ASSERT(cam.Project(Box3(a, b)[i], s) == 0u);
  }
}

}  // namespace
