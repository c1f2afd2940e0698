// Copyright Marvolith contributors.
#include "host/objects/object_geometry.h"

#include <algorithm>

namespace {

// Two faces whose unit normals agree this closely lie in one plane (about 0.8 degrees).
constexpr float kFlatEdgeCos = 0.9999f;

}  // namespace

void TriMesh::GetEdges(std::vector<std::array<int, 2>>& out) const {
  out.clear();
  const int n = static_cast<int>(verts.size());
  for (const auto& f : faces) {
    if (std::any_of(f.begin(), f.end(), [n](int i) { return i < 0 || i >= n; })) continue;
    for (int k = 0; k < 3; ++k) {
      std::array<int, 2> e{std::min(f[k], f[(k + 1) % 3]), std::max(f[k], f[(k + 1) % 3])};
      // Meshes here have tens of faces: a scan is cheaper than a set.
      if (std::find(out.begin(), out.end(), e) == out.end()) out.push_back(e);
    }
  }
}

void TriMesh::GetVisibleEdges(std::vector<std::array<int, 2>>& out) const {
  GetEdges(out);
  auto normal = [this](const std::array<int, 3>& f) {
    const Point3& a = verts[static_cast<size_t>(f[0])];
    return ((verts[static_cast<size_t>(f[1])] - a) ^ (verts[static_cast<size_t>(f[2])] - a))
        .Normalize();
  };
  auto has = [](const std::array<int, 3>& f, int v) { return f[0] == v || f[1] == v || f[2] == v; };
  const int n = static_cast<int>(verts.size());
  std::erase_if(out, [&](const std::array<int, 2>& e) {
    // The faces on the edge; a flat pair hides it. Degenerate faces have a zero normal and hide
    // nothing.
    Point3 first;
    int found = 0;
    for (const auto& f : faces) {
      if (std::any_of(f.begin(), f.end(), [n](int i) { return i < 0 || i >= n; })) continue;
      if (!has(f, e[0]) || !has(f, e[1])) continue;
      if (found++ == 0) {
        first = normal(f);
      } else {
        return found == 2 && (first % normal(f)) > kFlatEdgeCos;
      }
    }
    return false;
  });
}

Box3 TriMesh::BoundBox(const Matrix3* tm) const {
  Box3 box;
  for (const Point3& p : verts) box += tm ? p * *tm : p;
  return box;
}

Box3 SegmentsBox(std::span<const Segment3> segments, const Matrix3* tm) {
  Box3 box;
  for (const Segment3& s : segments) {
    box += tm ? s.a * *tm : s.a;
    box += tm ? s.b * *tm : s.b;
  }
  return box;
}
