// Copyright Marvolith contributors.
#include "host/objects/bezier_shape.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "host/core/diagnostics.h"
#include "support/chunk_helpers.h"

namespace {

constexpr USHORT kStepsChunk = 0x0001;
constexpr USHORT kSplineChunk = 0x0010;
constexpr USHORT kClosedChunk = 0x0011;
constexpr USHORT kKnotsChunk = 0x0012;

// A knot as files hold it.
struct KnotRecord {
  std::int32_t ktype;
  std::int32_t ltype;
  float p[9];
};
static_assert(sizeof(KnotRecord) == 44);

// Below this squared length a derivative or chord counts as zero.
constexpr float kZeroLengthSquared = 1e-20f;

Point3 Bezier(const Point3 (&p)[4], float t) {
  const float s = 1.0f - t;
  return p[0] * (s * s * s) + p[1] * (3 * s * s * t) + p[2] * (3 * s * t * t) + p[3] * (t * t * t);
}

Point3 BezierDerivative(const Point3 (&p)[4], float t) {
  const float s = 1.0f - t;
  return (p[1] - p[0]) * (3 * s * s) + (p[2] - p[1]) * (6 * s * t) + (p[3] - p[2]) * (3 * t * t);
}

float SegmentArc(const Point3 (&p)[4]) {
  float length = 0.0f;
  Point3 prev = p[0];
  for (int k = 1; k <= Spline3D::kArcSteps; ++k) {
    const Point3 next = Bezier(p, float(k) / Spline3D::kArcSteps);
    length += Length(next - prev);
    prev = next;
  }
  return length;
}

// The parameter of segment p at which the chord sum reaches `target` (0..arc).
float ParamAtLength(const Point3 (&p)[4], float target) {
  float walked = 0.0f;
  Point3 prev = p[0];
  for (int k = 1; k <= Spline3D::kArcSteps; ++k) {
    const Point3 next = Bezier(p, float(k) / Spline3D::kArcSteps);
    const float step = Length(next - prev);
    if (walked + step >= target && step > 0.0f) {
      return (float(k - 1) + (target - walked) / step) / Spline3D::kArcSteps;
    }
    walked += step;
    prev = next;
  }
  return 1.0f;
}

// Adds to box the points where one coordinate of the segment has an extreme inside (0, 1): the
// roots of the derivative a t^2 + b t + c (times 3).
void AddExtremes(const Point3 (&p)[4], Box3& box) {
  for (int axis = 0; axis < 3; ++axis) {
    const float p0 = p[0][axis], p1 = p[1][axis], p2 = p[2][axis], p3 = p[3][axis];
    const double a = -p0 + 3.0 * p1 - 3.0 * p2 + p3;
    const double b = 2.0 * (p0 - 2.0 * p1 + p2);
    const double c = p1 - p0;
    double roots[2];
    int n = 0;
    if (std::abs(a) < 1e-12) {
      if (std::abs(b) > 1e-12) roots[n++] = -c / b;  // quadratic term gone: one root
    } else {
      const double disc = b * b - 4.0 * a * c;
      if (disc >= 0.0) {
        const double r = std::sqrt(disc);
        roots[n++] = (-b + r) / (2.0 * a);
        roots[n++] = (-b - r) / (2.0 * a);
      }
    }
    for (int i = 0; i < n; ++i) {
      if (roots[i] > 0.0 && roots[i] < 1.0) box += Bezier(p, static_cast<float>(roots[i]));
    }
  }
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Spline3D

int Spline3D::Segments() const {
  const int n = KnotCount();
  if (n < 2) return 0;
  return closed_ ? n : n - 1;
}

void Spline3D::SetClosed(bool closed) {
  closed_ = closed;
  ComputeBezPoints();
}

int Spline3D::AddKnot(const SplineKnot& k, int where) {
  if (where == -1) where = KnotCount();
  if (where < 0 || where > KnotCount()) return -1;
  knots_.insert(knots_.begin() + where, k);
  ComputeBezPoints();
  return where;
}

bool Spline3D::DeleteKnot(int where) {
  if (where < 0 || where >= KnotCount()) return false;
  knots_.erase(knots_.begin() + where);
  ComputeBezPoints();
  return true;
}

void Spline3D::NewSpline() {
  knots_.clear();
  closed_ = false;
}

SplineKnot Spline3D::GetKnot(int i) const {
  return i >= 0 && i < KnotCount() ? knots_[static_cast<size_t>(i)] : SplineKnot();
}

void Spline3D::SetKnot(int i, const SplineKnot& k) {
  if (i < 0 || i >= KnotCount()) return;
  knots_[static_cast<size_t>(i)] = k;
  ComputeBezPoints();
}

Point3 Spline3D::GetKnotPoint(int i) const { return GetKnot(i).Knot(); }
Point3 Spline3D::GetInVec(int i) const { return GetKnot(i).InVec(); }
Point3 Spline3D::GetOutVec(int i) const { return GetKnot(i).OutVec(); }
int Spline3D::GetKnotType(int i) const {
  return i >= 0 && i < KnotCount() ? GetKnot(i).Ktype() : -1;
}
int Spline3D::GetLineType(int i) const {
  return i >= 0 && i < KnotCount() ? GetKnot(i).Ltype() : -1;
}

void Spline3D::SetKnotPoint(int i, const Point3& p) {
  if (i < 0 || i >= KnotCount()) return;
  SplineKnot& k = knots_[static_cast<size_t>(i)];
  // The handles travel with their knot.
  const Point3 d = p - k.Knot();
  k.SetKnot(p);
  k.SetInVec(k.InVec() + d);
  k.SetOutVec(k.OutVec() + d);
  ComputeBezPoints();
}

void Spline3D::SetInVec(int i, const Point3& p) {
  if (i < 0 || i >= KnotCount()) return;
  knots_[static_cast<size_t>(i)].SetInVec(p);
  ComputeBezPoints();
}

void Spline3D::SetOutVec(int i, const Point3& p) {
  if (i < 0 || i >= KnotCount()) return;
  knots_[static_cast<size_t>(i)].SetOutVec(p);
  ComputeBezPoints();
}

void Spline3D::SetKnotType(int i, int type) {
  if (i < 0 || i >= KnotCount()) return;
  knots_[static_cast<size_t>(i)].SetKtype(type);
  ComputeBezPoints();
}

void Spline3D::SetLineType(int i, int type) {
  if (i < 0 || i >= KnotCount()) return;
  knots_[static_cast<size_t>(i)].SetLtype(type);
  ComputeBezPoints();
}

void Spline3D::ComputeBezPoints() {
  const int n = KnotCount();
  auto at = [&](int i) -> SplineKnot& { return knots_[static_cast<size_t>(i)]; };
  for (int i = 0; i < n; ++i) {
    SplineKnot& k = at(i);
    const Point3 p = k.Knot();
    const bool has_prev = closed_ ? n > 1 : i > 0;
    const bool has_next = closed_ ? n > 1 : i < n - 1;
    const Point3 prev = has_prev ? at((i + n - 1) % n).Knot() : p;
    const Point3 next = has_next ? at((i + 1) % n).Knot() : p;
    switch (k.Ktype()) {
      case KTYPE_AUTO: {
        const Point3 d = next - prev;
        if (has_prev && has_next && d.LengthSquared() > kZeroLengthSquared) {
          // Smooth: the tangent is parallel to next - previous; each handle reaches a third of
          // the distance to its neighbour.
          const Point3 dir = d / Length(d);
          k.SetInVec(p - dir * (Length(p - prev) / 3.0f));
          k.SetOutVec(p + dir * (Length(next - p) / 3.0f));
        } else {
          // An open end, or neighbours on top of each other: as a corner.
          k.SetInVec(p + (prev - p) / 3.0f);
          k.SetOutVec(p + (next - p) / 3.0f);
        }
        break;
      }
      case KTYPE_CORNER:
        k.SetInVec(p + (prev - p) / 3.0f);
        k.SetOutVec(p + (next - p) / 3.0f);
        break;
      default:
        break;
    }
  }
  // Straight segments override whatever the knots at their ends say.
  for (int s = 0; s < Segments(); ++s) {
    SplineKnot& a = at(s);
    SplineKnot& b = at((s + 1) % n);
    if (a.Ltype() != LTYPE_LINE) continue;
    a.SetOutVec(a.Knot() + (b.Knot() - a.Knot()) / 3.0f);
    b.SetInVec(b.Knot() + (a.Knot() - b.Knot()) / 3.0f);
  }
}

void Spline3D::SegmentPoints(int segment, Point3 (&p)[4]) const {
  const int n = KnotCount();
  const SplineKnot& a = knots_[static_cast<size_t>(segment)];
  const SplineKnot& b = knots_[static_cast<size_t>((segment + 1) % n)];
  p[0] = a.Knot();
  p[1] = a.OutVec();
  p[2] = b.InVec();
  p[3] = b.Knot();
}

Point3 Spline3D::InterpBezier3D(int segment, float t) const {
  if (segment < 0 || segment >= Segments()) return KnotCount() > 0 ? knots_[0].Knot() : Point3();
  Point3 p[4];
  SegmentPoints(segment, p);
  return Bezier(p, std::clamp(t, 0.0f, 1.0f));
}

Point3 Spline3D::TangentBezier3D(int segment, float t) const {
  if (segment < 0 || segment >= Segments()) return Point3();
  Point3 p[4];
  SegmentPoints(segment, p);
  t = std::clamp(t, 0.0f, 1.0f);
  Point3 d = BezierDerivative(p, t);
  if (d.LengthSquared() <= kZeroLengthSquared) {
    // A handle on its knot: the direction just inside the segment.
    d = BezierDerivative(p, t < 0.5f ? t + 1e-3f : t - 1e-3f);
  }
  if (d.LengthSquared() <= kZeroLengthSquared) d = p[3] - p[0];
  if (d.LengthSquared() <= kZeroLengthSquared) return Point3();
  return d / Length(d);
}

void Spline3D::Locate(float u, int ptype, int& segment, float& t) const {
  const int segs = Segments();
  u = std::clamp(std::isnan(u) ? 0.0f : u, 0.0f, 1.0f);
  if (ptype == PARAM_NORMALIZED) {
    const float total = SplineLength();
    if (total > 0.0f) {
      float target = u * total;
      for (int s = 0; s < segs; ++s) {
        Point3 p[4];
        SegmentPoints(s, p);
        const float arc = SegmentArc(p);
        if (target <= arc || s == segs - 1) {
          segment = s;
          t = arc > 0.0f ? ParamAtLength(p, std::min(target, arc)) : 0.0f;
          return;
        }
        target -= arc;
      }
    }
  }
  // PARAM_SIMPLE, and a spline of zero length.
  const float scaled = u * static_cast<float>(segs);
  segment = std::min(static_cast<int>(scaled), segs - 1);
  t = scaled - static_cast<float>(segment);
}

Point3 Spline3D::InterpCurve3D(float u, int ptype) const {
  if (Segments() == 0) return KnotCount() > 0 ? knots_[0].Knot() : Point3();
  int segment = 0;
  float t = 0.0f;
  Locate(u, ptype, segment, t);
  return InterpBezier3D(segment, t);
}

Point3 Spline3D::TangentCurve3D(float u, int ptype) const {
  if (Segments() == 0) return Point3();
  int segment = 0;
  float t = 0.0f;
  Locate(u, ptype, segment, t);
  return TangentBezier3D(segment, t);
}

float Spline3D::SegmentLength(int segment) const {
  if (segment < 0 || segment >= Segments()) return 0.0f;
  Point3 p[4];
  SegmentPoints(segment, p);
  return SegmentArc(p);
}

float Spline3D::SplineLength() const {
  float total = 0.0f;
  for (int s = 0; s < Segments(); ++s) total += SegmentLength(s);
  return total;
}

Box3 Spline3D::GetBBox(const Matrix3* tm) const {
  Box3 box;
  if (KnotCount() == 0) return box;
  box += tm ? knots_[0].Knot() * *tm : knots_[0].Knot();
  for (int s = 0; s < Segments(); ++s) {
    Point3 p[4];
    SegmentPoints(s, p);
    // A cubic Bezier's shape is invariant under affine maps: transform the control points.
    if (tm) {
      for (Point3& q : p) q = q * *tm;
    }
    box += p[0];
    box += p[3];
    AddExtremes(p, box);
  }
  return box;
}

void Spline3D::Transform(const Matrix3& tm) {
  for (SplineKnot& k : knots_) {
    k.SetKnot(k.Knot() * tm);
    k.SetInVec(k.InVec() * tm);
    k.SetOutVec(k.OutVec() * tm);
  }
  ComputeBezPoints();
}

void Spline3D::Polyline(int steps, std::vector<Point3>& out) const {
  steps = std::clamp(steps, 0, 100);
  const int segs = Segments();
  if (segs == 0) {
    if (KnotCount() > 0) out.push_back(knots_[0].Knot());
    return;
  }
  for (int s = 0; s < segs; ++s) {
    Point3 p[4];
    SegmentPoints(s, p);
    for (int k = 0; k <= steps; ++k) out.push_back(Bezier(p, float(k) / float(steps + 1)));
  }
  out.push_back(closed_ ? knots_[0].Knot() : knots_.back().Knot());
}

// ---------------------------------------------------------------------------------------------
// BezierShape

Spline3D* BezierShape::NewSpline() { return &splines_.emplace_back(); }

Spline3D* BezierShape::AddSpline(const Spline3D& spline) { return &splines_.emplace_back(spline); }

Spline3D* BezierShape::GetSpline(int i) {
  return i >= 0 && i < SplineCount() ? &splines_[static_cast<size_t>(i)] : nullptr;
}

const Spline3D* BezierShape::GetSpline(int i) const {
  return i >= 0 && i < SplineCount() ? &splines_[static_cast<size_t>(i)] : nullptr;
}

bool BezierShape::DeleteSpline(int i) {
  if (i < 0 || i >= SplineCount()) return false;
  splines_.erase(splines_.begin() + i);
  return true;
}

void BezierShape::Transform(const Matrix3& tm) {
  for (Spline3D& s : splines_) s.Transform(tm);
}

Box3 BezierShape::GetBoundingBox(const Matrix3* tm) const {
  Box3 box;
  for (const Spline3D& s : splines_) box += s.GetBBox(tm);
  return box;
}

IOResult BezierShape::Save(ISave* isave) const {
  if (SaveChunk(isave, kStepsChunk, static_cast<std::int32_t>(steps)) != IO_OK) return IO_ERROR;
  std::vector<KnotRecord> records;
  for (const Spline3D& s : splines_) {
    isave->BeginChunk(kSplineChunk);
    const std::uint8_t closed = s.Closed() ? 1 : 0;
    IOResult res = SaveChunk(isave, kClosedChunk, closed);
    records.clear();
    for (int i = 0; i < s.KnotCount(); ++i) {
      const SplineKnot k = s.GetKnot(i);
      KnotRecord r{k.Ktype(), k.Ltype(), {}};
      const Point3 pts[3] = {k.Knot(), k.InVec(), k.OutVec()};
      for (int j = 0; j < 3; ++j) {
        r.p[3 * j] = pts[j].x;
        r.p[3 * j + 1] = pts[j].y;
        r.p[3 * j + 2] = pts[j].z;
      }
      records.push_back(r);
    }
    isave->BeginChunk(kKnotsChunk);
    ULONG written = 0;
    const auto bytes = static_cast<ULONG>(records.size() * sizeof(KnotRecord));
    if (bytes > 0 && (isave->Write(records.data(), bytes, &written) != IO_OK || written != bytes))
      res = IO_ERROR;
    isave->EndChunk();
    isave->EndChunk();
    if (res != IO_OK) return IO_ERROR;
  }
  return IO_OK;
}

IOResult BezierShape::Load(ILoad* iload) {
  NewShape();
  const IOResult res = ForEachChunk(iload, [&](USHORT id) {
    if (id == kStepsChunk) {
      std::int32_t s = 0;
      if (LoadValue(iload, s) != IO_OK || s < 0 || s > 100) return IO_ERROR;
      steps = s;
    } else if (id == kSplineChunk) {
      Spline3D spline;
      bool closed = false;
      const IOResult sub = ForEachChunk(iload, [&](USHORT sid) {
        if (sid == kClosedChunk) {
          std::uint8_t c = 0;
          if (LoadValue(iload, c) != IO_OK || c > 1) return IO_ERROR;
          closed = c != 0;
        } else if (sid == kKnotsChunk) {
          const ULONG length = iload->CurChunkLength();
          if (length % sizeof(KnotRecord) != 0) return IO_ERROR;
          std::vector<KnotRecord> records(length / sizeof(KnotRecord));
          ULONG read = 0;
          if (length > 0 && (iload->Read(records.data(), length, &read) != IO_OK || read != length))
            return IO_ERROR;
          for (const KnotRecord& r : records) {
            if (r.ktype < KTYPE_AUTO || r.ktype > KTYPE_BEZIER_CORNER || r.ltype < LTYPE_CURVE ||
                r.ltype > LTYPE_LINE)
              return IO_ERROR;
            spline.AddKnot(SplineKnot(r.ktype, r.ltype, Point3(r.p[0], r.p[1], r.p[2]),
                                      Point3(r.p[3], r.p[4], r.p[5]),
                                      Point3(r.p[6], r.p[7], r.p[8])));
          }
        }
        return IO_OK;
      });
      if (sub != IO_OK) return IO_ERROR;
      spline.SetClosed(closed);
      splines_.push_back(std::move(spline));
    }
    return IO_OK;
  });
  if (res == IO_OK) return IO_OK;
  NewShape();
  LogLine("Marvolith: a spline shape in the file is damaged.\n");
  return IO_ERROR;
}
