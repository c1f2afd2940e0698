// Copyright Marvolith contributors.
// Plain geometry records the host's objects build: triangle meshes and line segments in an
// object's local space.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "host/math/box3.h"
#include "host/math/matrix3.h"
#include "host/math/point3.h"

/// A triangle mesh: vertices and faces of three vertex indices (counter-clockwise seen from
/// outside where the object has an outside).
struct TriMesh {
  std::vector<Point3> verts;
  std::vector<std::array<int, 3>> faces;

  /// Empties the mesh, keeping its storage for the next build.
  void Clear() {
    verts.clear();
    faces.clear();
  }
  /// The distinct edges of the faces, each once with its lower index first, in the order the
  /// faces first name them. Faces with an index out of range are ignored.
  void GetEdges(std::vector<std::array<int, 2>>& out) const;
  /// The edges a wireframe shows: GetEdges without those between two faces that lie in one plane
  /// and face the same way (the diagonals of flat quads), as the host hides them.
  void GetVisibleEdges(std::vector<std::array<int, 2>>& out) const;
  /// The box of the vertices, each taken through tm when given; empty without vertices.
  Box3 BoundBox(const Matrix3* tm = nullptr) const;
};

/// A straight line from a to b.
struct Segment3 {
  Point3 a;
  Point3 b;
};

/// The box of the end points of segments, each taken through tm when given; empty for none.
Box3 SegmentsBox(std::span<const Segment3> segments, const Matrix3* tm = nullptr);
