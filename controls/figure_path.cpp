// Copyright Marvolith contributors.
#include "controls/internal/figure_path.h"

#include <algorithm>
#include <cmath>

namespace marvolith::figure {

void FigureWriter::MoveTo(const Point3& p) {
  if (open_) EndPath();
  sink_.BeginPath();
  const Point3 q = P(p);
  pending_ = {q, q, q, false};
  start_ = q;
  open_ = true;
}

void FigureWriter::MoveTo(const Point3& p, const Point3& in) {
  MoveTo(p);
  pending_.in = P(in);
  pending_.bezier = true;
}

void FigureWriter::Emit() { sink_.AddKnot(pending_); }

void FigureWriter::LineTo(const Point3& p) {
  if (!open_) return MoveTo(p);
  const Point3 q = P(p);
  if (q == pending_.p) return;
  // A straight segment out of a Bezier knot: its handle on the line, where a corner's would be.
  if (pending_.bezier) pending_.out = pending_.p + (q - pending_.p) / 3.0f;
  const Point3 prev = pending_.p;
  Emit();
  pending_ = {q, q + (prev - q) / 3.0f, q, false};
}

void FigureWriter::CurveTo(const Point3& c1, const Point3& c2, const Point3& p) {
  if (!open_) MoveTo(p);
  pending_.out = P(c1);
  pending_.bezier = true;
  Emit();
  const Point3 q = P(p);
  pending_ = {q, P(c2), q, true};
}

void FigureWriter::ArcTo(const Point3& center, float rx, float ry, float a0, float a1) {
  const float sweep = a1 - a0;
  const int pieces = std::max(1, static_cast<int>(std::ceil(std::fabs(sweep) / kHalfPi - 1e-4f)));
  const float da = sweep / static_cast<float>(pieces);
  // Handle length of a circular arc of angle da: 4/3 tan(da / 4), signed with the direction.
  const float k = 4.0f / 3.0f * std::tan(da / 4.0f);
  auto at = [&](float a) { return center + Point3(rx * std::cos(a), ry * std::sin(a), 0.0f); };
  auto tangent = [&](float a) { return Point3(-rx * std::sin(a), ry * std::cos(a), 0.0f); };
  for (int i = 0; i < pieces; ++i) {
    const float s = a0 + da * static_cast<float>(i);
    const float e = s + da;
    CurveTo(at(s) + tangent(s) * k, at(e) - tangent(e) * k, at(e));
  }
}

void FigureWriter::ClosePath() {
  if (!open_) return;
  // The start's incoming handle was given to MoveTo; a straight closing segment needs the last
  // knot's handle on the line.
  if (pending_.bezier) pending_.out = pending_.p + (start_ - pending_.p) / 3.0f;
  Emit();
  sink_.EndPath(true);
  open_ = false;
}

void FigureWriter::CloseCurve(const Point3& c1) {
  if (!open_) return;
  pending_.out = P(c1);
  pending_.bezier = true;
  Emit();
  sink_.EndPath(true);
  open_ = false;
}

void FigureWriter::EndPath() {
  if (!open_) return;
  Emit();
  sink_.EndPath(false);
  open_ = false;
}

void FigureWriter::Line(const Point3& a, const Point3& b) {
  MoveTo(a);
  LineTo(b);
  EndPath();
}

void FigureWriter::RawLine(const Point3& a, const Point3& b) {
  if (open_) EndPath();
  sink_.BeginPath();
  sink_.AddKnot({a, a, a, false});
  sink_.AddKnot({b, b, b, false});
  sink_.EndPath(false);
}

void FigureWriter::Polygon(std::span<const Point3> points, bool closed) {
  if (points.empty()) return;
  MoveTo(points[0]);
  for (size_t i = 1; i < points.size(); ++i) LineTo(points[i]);
  if (closed) {
    ClosePath();
  } else {
    EndPath();
  }
}

void FigureWriter::Ring(const FigureRing& ring) {
  if (open_) EndPath();
  FigureRing r = ring;
  r.center = P(ring.center);
  r.u = V(ring.u);
  r.v = V(ring.v);
  r.warp = V(ring.warp);
  sink_.AddRing(r);
}

void FigureWriter::Table(std::span<const PathCmd> cmds) {
  // Icon space is half of unit space.
  auto at = [](float x, float y) { return Point3(2.0f * x, 2.0f * y, 0.0f); };
  size_t closing_curve = cmds.size();  // the curve that closes the current path onto its start
  for (size_t i = 0; i < cmds.size(); ++i) {
    const PathCmd& c = cmds[i];
    switch (c.op) {
      case PathCmd::kMove: {
        size_t j = i + 1;
        while (j < cmds.size() && cmds[j].op != PathCmd::kMove && cmds[j].op != PathCmd::kClose &&
               cmds[j].op != PathCmd::kEnd)
          ++j;
        const bool closes_on_curve = j < cmds.size() && cmds[j].op == PathCmd::kClose &&
                                     j > i + 1 && cmds[j - 1].op == PathCmd::kCurve &&
                                     cmds[j - 1].x == c.x && cmds[j - 1].y == c.y;
        if (closes_on_curve) {
          // The start takes the closing curve's handle, and that curve ends the path.
          closing_curve = j - 1;
          MoveTo(at(c.x, c.y), at(cmds[j - 1].x2, cmds[j - 1].y2));
        } else {
          closing_curve = cmds.size();
          MoveTo(at(c.x, c.y));
        }
        break;
      }
      case PathCmd::kLine:
        LineTo(at(c.x, c.y));
        break;
      case PathCmd::kCurve:
        if (i == closing_curve) {
          CloseCurve(at(c.x1, c.y1));
          ++i;  // its close is done
        } else {
          CurveTo(at(c.x1, c.y1), at(c.x2, c.y2), at(c.x, c.y));
        }
        break;
      case PathCmd::kClose:
        ClosePath();
        break;
      case PathCmd::kEnd:
        EndPath();
        break;
    }
  }
  if (open_) EndPath();
}

}  // namespace marvolith::figure
