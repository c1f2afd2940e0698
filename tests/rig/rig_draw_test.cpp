// Copyright Marvolith contributors.
// Drawing of a template: bone previews, markers, connecting lines, colours and bounds, on small
// templates made by hand.
#include "rig/rig_draw.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "host/gfx/headless_viewport.h"

namespace marvolith {
namespace {

// Indices of the 17 preview points: root, the ring corners and the tip as BuildRigPreviews
// traces them.
constexpr int kRoot = 0;
constexpr int kRingUp = 1, kRingSide = 2, kRingDown = 3, kRingOtherSide = 4;
constexpr int kTip = 7;
constexpr int kFinSide = 8;

bool Finite(const Point3& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

bool Near(const Point3& a, const Point3& b, float tol = 1e-5f) { return Length(a - b) <= tol; }

// A bone from a toward b, and a second child the preview must not point at.
RigTemplate Bone(const Point3& a, const Point3& b, std::uint32_t flags = kPointBonePreview) {
  RigTemplate t;
  const int root = t.AddPoint(kComponentSpine, "root", -1, a, -1, Matrix3(), false, flags);
  t.AddPoint(kComponentSpine, "child", -1, b, root, Matrix3(), false, kPointEnd);
  t.AddPoint(kComponentSpine, "other", -1, a + Point3(0.3f, 0.3f, 0), root, Matrix3(), false, 0);
  return t;
}

TEST(RigPreviewTest, BonePreviewIsASlimOctahedronTowardTheFirstChild) {
  const Point3 root(0.1f, -0.2f, 0.5f);
  // Directions along each axis (Z is the degenerate one for the ring's up axis), a slanted one,
  // and a mirrored-looking one with negative X.
  const Point3 targets[] = {root + Point3(0.5f, 0, 0),        root + Point3(0, 0.5f, 0),
                            root + Point3(0, 0, 0.5f),        root + Point3(0, 0, -0.5f),
                            root + Point3(0.3f, -0.2f, 0.4f), root + Point3(-0.4f, 0.1f, 0)};
  for (const Point3& child : targets) {
    SCOPED_TRACE(::testing::Message() << "child " << child.x << " " << child.y << " " << child.z);
    RigTemplate t = Bone(root, child);
    BuildRigPreviews(t);
    const std::vector<Point3>& pv = t.Points()[0].preview;
    ASSERT_EQ(pv.size(), 17u);
    EXPECT_TRUE(HasBonePreview(t.Points()[0]));
    const float length = Length(child - root);
    const Point3 d = (child - root) / length;
    EXPECT_TRUE(Near(pv[kRoot], root));
    EXPECT_TRUE(Near(pv[kTip], child));
    EXPECT_TRUE(Near(pv[13], child));
    const Point3 ring_center =
        (pv[kRingUp] + pv[kRingSide] + pv[kRingDown] + pv[kRingOtherSide]) * 0.25f;
    EXPECT_NEAR(DotProd(ring_center - root, d), 0.1f * length, 1e-5f);
    EXPECT_TRUE(Near(ring_center, root + d * (0.1f * length)));
    EXPECT_NEAR(Length(pv[kRingUp] - pv[kRingDown]), 0.08f * length, 1e-5f);
    EXPECT_NEAR(Length(pv[kRingSide] - pv[kRingOtherSide]), 0.08f * length, 1e-5f);
    // The ring is square and across the bone.
    EXPECT_NEAR(DotProd(pv[kRingUp] - pv[kRingDown], d), 0.0f, 1e-5f);
    EXPECT_NEAR(DotProd(pv[kRingUp] - pv[kRingDown], pv[kRingSide] - pv[kRingOtherSide]), 0.0f,
                1e-6f);
    for (const Point3& p : pv) {
      EXPECT_TRUE(Finite(p));
      EXPECT_LE(Length(p - root), length + 1e-5f);
    }
    // Without fins the edge points lie on their ring-to-tip edges.
    EXPECT_NEAR(Length(CrossProd(pv[kFinSide] - pv[kRingSide], child - pv[kRingSide])), 0.0f,
                1e-5f);
  }
}

TEST(RigPreviewTest, FinsAndWideVariants) {
  const Point3 root(0, 0, 0), child(0, 1, 0);
  RigTemplate plain = Bone(root, child);
  RigTemplate fins = Bone(root, child, kPointBonePreview | kPointFins);
  RigTemplate wide = Bone(root, child, kPointBonePreview | kPointWide);
  BuildRigPreviews(plain);
  BuildRigPreviews(fins);
  BuildRigPreviews(wide);
  const auto& p = plain.Points()[0].preview;
  const auto& f = fins.Points()[0].preview;
  const auto& w = wide.Points()[0].preview;
  ASSERT_EQ(f.size(), 17u);
  ASSERT_EQ(w.size(), 17u);
  // A fin reaches out sideways well beyond the ring; root, ring and tip stay.
  const Point3 side = Normalize(p[kRingSide] - p[kRingOtherSide]);
  EXPECT_GT(DotProd(f[kFinSide], side), 2.0f * DotProd(f[kRingSide], side));
  for (int i : {kRoot, kRingUp, kRingSide, kRingDown, kRingOtherSide, kTip})
    EXPECT_TRUE(Near(f[i], p[i])) << i;
  // A wide bone is fatter than a plain one of the same length.
  EXPECT_GT(Length(w[kRingUp] - w[kRingDown]), 3.0f * Length(p[kRingUp] - p[kRingDown]));
}

TEST(RigPreviewTest, DegenerateBonesAndPointsWithoutBones) {
  {
    SCOPED_TRACE("zero-length bone");
    RigTemplate t = Bone(Point3(0.2f, 0.3f, 0.4f), Point3(0.2f, 0.3f, 0.4f));
    BuildRigPreviews(t);
    ASSERT_EQ(t.Points()[0].preview.size(), 17u);
    for (const Point3& p : t.Points()[0].preview) EXPECT_TRUE(Near(p, Point3(0.2f, 0.3f, 0.4f)));
  }
  {
    SCOPED_TRACE("bone flag without a child: a point toward the parent");
    RigTemplate t;
    const int a = t.AddPoint(0, "a", -1, Point3(0, 0, 0), -1, Matrix3(), false, 0);
    t.AddPoint(0, "b", -1, Point3(0, 0, 1), a, Matrix3(), false, kPointBonePreview);
    BuildRigPreviews(t);
    ASSERT_EQ(t.Points()[1].preview.size(), 1u);
    EXPECT_FALSE(HasBonePreview(t.Points()[1]));
    // The point on the way to the parent lies on the line, next to the parent.
    const Point3 q = t.Points()[1].preview[0];
    EXPECT_NEAR(q.x, 0.0f, 1e-6f);
    EXPECT_NEAR(q.y, 0.0f, 1e-6f);
    EXPECT_GT(q.z, 0.0f);
    EXPECT_LT(q.z, 0.1f);
    ASSERT_EQ(t.Points()[0].preview.size(), 1u);  // no parent: the point itself
    EXPECT_TRUE(Near(t.Points()[0].preview[0], Point3(0, 0, 0)));
  }
  {
    SCOPED_TRACE("a moved child updates the preview");
    RigTemplate t = Bone(Point3(0, 0, 0), Point3(1, 0, 0));
    BuildRigPreviews(t);
    t.Points()[1].pos = Point3(0, 2, 0);
    BuildRigPreviews(t);
    EXPECT_TRUE(Near(t.Points()[0].preview[kTip], Point3(0, 2, 0)));
  }
}

// A small creature: a two-bone spine with an end, a sided pair of hips, a derived point between
// pelvis and chest, and a line from the head end to a hip.
struct SmallTemplate {
  RigTemplate t;
  int pelvis, chest, head_end, derived;
  SidedIndex hips;
  SmallTemplate() {
    pelvis = t.AddPoint(kComponentSpine, "pelvis", -1, Point3(0, 0, 0.5f), -1, Matrix3(), false,
                        kPointBonePreview);
    chest = t.AddPoint(kComponentSpine, "spine", 0, Point3(0, 0, 1.0f), pelvis, Matrix3(), false,
                       kPointBonePreview);
    head_end = t.AddPoint(kComponentHead, "head_end", -1, Point3(0, 0.05f, 1.3f), chest, Matrix3(),
                          false, kPointEnd);
    hips = t.AddSidedPoint(kComponentLegs, "hip", -1, Point3(-0.1f, 0, 0.45f), {pelvis, pelvis},
                           Matrix3(), kSideBoth, false, 0);
    derived = t.AddDerivedPoint(kComponentSpine, "spine_twist", -1, {pelvis, pelvis},
                                {chest, chest}, 0.5f, {pelvis, pelvis}, kSideCenter)
                  .right;
    t.Points()[head_end].line_target = hips.right;
    t.Points()[chest].selected = 1;
  }
};

TEST(RigDrawTest, DrawsBonesMarkersAndLinesInTheirColours) {
  SmallTemplate s;
  RigDrawStyle style;
  HeadlessViewport viewport;
  GraphicsWindow& gw = *viewport.getGW();
  const DWORD limits = GW_WIREFRAME | GW_Z_BUFFER | GW_ILLUM;
  gw.setRndLimits(limits);
  DrawRigTemplate(gw, s.t, Matrix3(), style);
  EXPECT_EQ(gw.getRndLimits(), limits);

  const DisplayList& list = viewport.GetDisplayList();
  int bones = 0;
  std::map<std::tuple<float, float, float>, int> lines_by_color;
  for (const DisplayPrimitive& p : list.primitives) {
    ASSERT_EQ(p.kind, PrimitiveKind::kPolyline);
    EXPECT_TRUE(p.draw_on_top);
    if (p.count == 17) ++bones;
    lines_by_color[{p.color.x, p.color.y, p.color.z}] += p.count - 1 + (p.closed ? 1 : 0);
  }
  EXPECT_EQ(bones, 2);
  auto lines = [&](const Point3& c) {
    auto it = lines_by_color.find({c.x, c.y, c.z});
    return it == lines_by_color.end() ? 0 : it->second;
  };
  // A box marker is 12 lines, a cross 3.
  // Wire: two bones of 16 lines, the hips' lines to the pelvis (the chest and the head end are
  // covered by their parents' bones, the derived point lies on the pelvis bone), the line
  // target, the pelvis box and the head end's cross.
  EXPECT_EQ(lines(style.wire), 2 * 16 + 2 + 1 + 12 + 3);
  EXPECT_EQ(lines(style.selected), 12);
  EXPECT_EQ(lines(style.right), 12);
  EXPECT_EQ(lines(style.left), 12);
  EXPECT_EQ(lines(style.wire * 0.55f), 3) << "the derived point: a small dim cross";
  EXPECT_EQ(list.LineCount(), 32 + 3 + 48 + 6);

  // Left mirrors right.
  const Point3 l = s.t.Points()[s.hips.left].pos;
  EXPECT_NEAR(l.x, 0.1f, 1e-6f);
}

TEST(RigDrawTest, OnTopOffKeepsTheZBufferAndPickModeRecordsNothing) {
  SmallTemplate s;
  RigDrawStyle style;
  style.on_top = false;
  HeadlessViewport viewport;
  DrawRigTemplate(*viewport.getGW(), s.t, Matrix3(), style);
  ASSERT_FALSE(viewport.GetDisplayList().primitives.empty());
  for (const DisplayPrimitive& p : viewport.GetDisplayList().primitives)
    EXPECT_FALSE(p.draw_on_top);

  viewport.BeginFrame();
  GraphicsWindow& gw = *viewport.getGW();
  gw.setRndLimits(gw.getRndLimits() | GW_PICK);
  HitRegion region;
  IPoint2 far_corner(0, 0);
  MakeHitRegion(region, POINT_RGN, 1, 2, &far_corner);
  gw.setHitRegion(&region);
  gw.clearHitCode();
  DrawRigTemplate(gw, s.t, Matrix3(), style);
  EXPECT_TRUE(viewport.GetDisplayList().primitives.empty());
  EXPECT_NE(gw.getRndLimits() & GW_PICK, 0u);
}

TEST(RigDrawTest, BoundsFollowTheRigTransform) {
  SmallTemplate s;
  {
    SCOPED_TRACE("empty template");
    RigTemplate empty;
    EXPECT_TRUE(RigTemplateBounds(empty, Matrix3()).IsEmpty());
    HeadlessViewport viewport;
    DrawRigTemplate(*viewport.getGW(), empty, Matrix3(), RigDrawStyle());
    EXPECT_TRUE(viewport.GetDisplayList().primitives.empty());
  }
  const float helper_size = 100.0f;
  const Matrix3 node_tm = RotateZMatrix(0.7f) * TransMatrix(Point3(10, -20, 5));
  const Matrix3 rig_to_world = ScaleMatrix(Point3(helper_size, helper_size, helper_size)) * node_tm;
  BuildRigPreviews(s.t);
  const Box3 box = RigTemplateBounds(s.t, rig_to_world);
  ASSERT_FALSE(box.IsEmpty());
  for (const RigPoint& p : s.t.Points()) {
    const Point3 w = p.pos * rig_to_world;
    for (int k = 0; k < 3; ++k) {
      EXPECT_LE(w[k], box.Max()[k] + 1e-3f) << p.name;
      EXPECT_GE(w[k], box.Min()[k] - 1e-3f) << p.name;
    }
  }
  // The head end (highest point) is at rig height 1.3.
  EXPECT_NEAR(box.Max().z, 5.0f + 1.3f * helper_size, 1e-3f);

  // What is drawn lies in the bounds grown by a marker.
  HeadlessViewport viewport;
  DrawRigTemplate(*viewport.getGW(), s.t, rig_to_world, RigDrawStyle());
  const Box3 drawn = viewport.GetDisplayList().Bounds();
  const float marker = 0.012f * helper_size * std::sqrt(3.0f) + 1e-3f;
  for (int k = 0; k < 3; ++k) {
    EXPECT_LE(drawn.Max()[k], box.Max()[k] + marker) << k;
    EXPECT_GE(drawn.Min()[k], box.Min()[k] - marker) << k;
    EXPECT_GE(drawn.Max()[k], box.Max()[k] - 1e-3f) << k;
    EXPECT_LE(drawn.Min()[k], box.Min()[k] + 1e-3f) << k;
  }
}

}  // namespace
}  // namespace marvolith
