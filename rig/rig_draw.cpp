// Copyright Marvolith contributors.
#include "rig/rig_draw.h"

#include <algorithm>
#include <cmath>

namespace marvolith {
namespace {

// Proportions of a bone preview, as fractions of the bone's length: a slim octahedron whose
// square ring stands near the root, like the host's own bones.
constexpr float kBoneRingAt = 0.1f;
constexpr float kBoneWidth = 0.08f;
// Body segments (kPointWide) are drawn fatter, and fins stick out sideways from the side corners.
constexpr float kWideBoneWidth = 0.3f;
constexpr float kFinAt = 0.4f;
constexpr float kFinReach = 2.5f;
// Below this length (rig units) a bone has no direction: all its points sit on the root.
constexpr float kMinBoneLength = 1e-6f;

// Half size of a point's marker in rig units (1.0 is helper_size); derived points get half.
constexpr float kMarkerHalf = 0.012f;
constexpr float kHiddenMarkerScale = 0.5f;
// Derived points are drawn dimmer than the side colour.
constexpr float kHiddenDim = 0.55f;

// The 17 points trace the octahedron as one open polyline: root s, ring corners r0 (up),
// r1 (side), r2 (down), r3 (other side), tip t, and one point m0..m3 on each edge from a ring
// corner to the tip. Each of the 12 edges is drawn once; the m points lie on their edge unless
// they make a fin.
//   s r0 r1 r2 r3 r0 m0 t m1 r1 s r2 m2 t m3 r3 s
enum : int { kS = -1, kT = -2, kM0 = -10, kM1 = -11, kM2 = -12, kM3 = -13 };
constexpr int kBonePath[kRigBonePreviewCount] = {kS, 0,  1, 2,   3,  0,   kM0, kT, kM1,
                                                 1,  kS, 2, kM2, kT, kM3, 3,   kS};

bool ValidIndex(const RigTemplate& t, int i) { return i >= 0 && i < t.NumPoints(); }

// Two unit axes across the bone direction d (unit): up is as near world Z as d allows.
void CrossAxes(const Point3& d, Point3& side, Point3& up) {
  const Point3 ref = std::fabs(d.z) > 0.9f ? Point3::YAxis : Point3::ZAxis;
  side = Normalize(CrossProd(ref, d));
  up = CrossProd(d, side);
}

void BuildBonePreview(const RigPoint& p, const Point3& child, std::vector<Point3>& out) {
  out.assign(kRigBonePreviewCount, p.pos);
  const Point3 delta = child - p.pos;
  const float length = Length(delta);
  // Zero-length bone: every point stays on the root, no direction to divide by.
  if (!(length > kMinBoneLength) || !std::isfinite(length)) return;
  const Point3 d = delta / length;
  Point3 side, up;
  CrossAxes(d, side, up);
  const float half = 0.5f * length * ((p.flags & kPointWide) ? kWideBoneWidth : kBoneWidth);
  const Point3 ring_center = p.pos + d * (kBoneRingAt * length);
  const Point3 ring[4] = {ring_center + up * half, ring_center + side * half,
                          ring_center - up * half, ring_center - side * half};
  auto mid = [&](int corner) {
    Point3 m = ring[corner] + (child - ring[corner]) * kFinAt;
    // A fin: the side corners' edges bend out into a flat triangle.
    if ((p.flags & kPointFins) && (corner == 1 || corner == 3))
      m += (corner == 1 ? side : -side) * (half * kFinReach);
    return m;
  };
  for (int i = 0; i < kRigBonePreviewCount; ++i) {
    const int k = kBonePath[i];
    if (k >= 0)
      out[i] = ring[k];
    else if (k == kS)
      out[i] = p.pos;
    else if (k == kT)
      out[i] = child;
    else
      out[i] = mid(kM0 - k);
  }
}

// The one preview point of a point without a bone: its parent's position pulled toward it by
// the parent's marker, so the connecting line meets the marker and not its centre; the point
// itself when there is no parent.
Point3 ParentLineEnd(const RigTemplate& t, const RigPoint& p) {
  if (!ValidIndex(t, p.parent)) return p.pos;
  const Point3 parent = t.Points()[p.parent].pos;
  const Point3 delta = p.pos - parent;
  const float length = Length(delta);
  if (!(length > 2.0f * kMarkerHalf) || !std::isfinite(length)) return parent;
  return parent + delta * (kMarkerHalf / length);
}

bool CoveredByParentBone(const RigTemplate& t, int i) {
  const RigPoint& p = t.Points()[i];
  if (!ValidIndex(t, p.parent)) return false;
  const RigPoint& parent = t.Points()[p.parent];
  return parent.first_child == i && HasBonePreview(parent);
}

void Segment(GraphicsWindow& gw, const Point3& a, const Point3& b) {
  const Point3 line[2] = {a, b};
  gw.polyline(2, line, nullptr, 0, nullptr);
}

// A cross of three axis lines: end points and derived points.
void DrawCross(GraphicsWindow& gw, const Point3& c, float h) {
  Segment(gw, c - Point3(h, 0, 0), c + Point3(h, 0, 0));
  Segment(gw, c - Point3(0, h, 0), c + Point3(0, h, 0));
  Segment(gw, c - Point3(0, 0, h), c + Point3(0, 0, h));
}

// A small cube: two closed squares and four uprights.
void DrawBox(GraphicsWindow& gw, const Point3& c, float h) {
  const Point3 bottom[4] = {c + Point3(-h, -h, -h), c + Point3(h, -h, -h), c + Point3(h, h, -h),
                            c + Point3(-h, h, -h)};
  const Point3 top[4] = {c + Point3(-h, -h, h), c + Point3(h, -h, h), c + Point3(h, h, h),
                         c + Point3(-h, h, h)};
  gw.polyline(4, bottom, nullptr, 1, nullptr);
  gw.polyline(4, top, nullptr, 1, nullptr);
  for (int k = 0; k < 4; ++k) Segment(gw, bottom[k], top[k]);
}

Point3 MarkerColor(const RigPoint& p, const RigDrawStyle& style) {
  if (p.selected) return style.selected;
  if (p.IsRight()) return style.right;
  if (p.IsLeft()) return style.left;
  return style.wire;
}

}  // namespace

bool HasBonePreview(const RigPoint& p) {
  return p.preview.size() == static_cast<std::size_t>(kRigBonePreviewCount);
}

void BuildRigPreviews(RigTemplate& t) {
  std::vector<RigPoint>& points = t.Points();
  for (RigPoint& p : points) {
    if ((p.flags & kPointBonePreview) && ValidIndex(t, p.first_child)) {
      BuildBonePreview(p, points[p.first_child].pos, p.preview);
    } else {
      p.preview.assign(1, ParentLineEnd(t, p));
    }
  }
}

void DrawRigTemplate(GraphicsWindow& gw,
                     RigTemplate& t,
                     const Matrix3& rig_to_world,
                     const RigDrawStyle& style) {
  BuildRigPreviews(t);
  const DWORD limits = gw.getRndLimits();
  if (style.on_top) gw.setRndLimits(limits & ~GW_Z_BUFFER);
  gw.setTransform(rig_to_world);

  const std::vector<RigPoint>& points = t.Points();
  // Structure first, in the wire colour, so the markers stand over it.
  gw.setColor(LINE_COLOR, style.wire);
  for (int i = 0; i < t.NumPoints(); ++i) {
    const RigPoint& p = points[i];
    if (p.Hidden()) continue;  // a derived point lies on a line already drawn
    if (HasBonePreview(p)) gw.polyline(kRigBonePreviewCount, p.preview.data(), nullptr, 0, nullptr);
    if (ValidIndex(t, p.parent) && !CoveredByParentBone(t, i))
      Segment(gw, p.pos, ParentLineEnd(t, p));
    if (ValidIndex(t, p.line_target)) Segment(gw, p.pos, points[p.line_target].pos);
  }
  for (const RigPoint& p : points) {
    const Point3 color = MarkerColor(p, style);
    if (p.Hidden()) {
      gw.setColor(LINE_COLOR, color * kHiddenDim);
      DrawCross(gw, p.pos, kMarkerHalf * kHiddenMarkerScale);
    } else if (p.flags & kPointEnd) {
      gw.setColor(LINE_COLOR, color);
      DrawCross(gw, p.pos, kMarkerHalf);
    } else {
      gw.setColor(LINE_COLOR, color);
      DrawBox(gw, p.pos, kMarkerHalf);
    }
  }
  gw.setRndLimits(limits);
}

Box3 RigTemplateBounds(const RigTemplate& t, const Matrix3& rig_to_world) {
  Box3 box;
  for (const RigPoint& p : t.Points()) {
    box += p.pos * rig_to_world;
    for (const Point3& q : p.preview) box += q * rig_to_world;
  }
  return box;
}

}  // namespace marvolith
