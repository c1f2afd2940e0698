// Copyright Marvolith contributors.
// The template of a rig as plain data: its points (RigPoint), the primitives that add them while
// a template is regenerated (keeping the user's edits by name, mirroring the left half), the
// links of derived points to their anchors, and the name rule of point queries. Nothing here
// touches the scene: RigSystem owns one RigTemplate and regenerates it from its block.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "rig/rig_params.h"

namespace marvolith {

/// Bits of RigPoint::flags. Right and left are added by the sided primitive; hidden marks a
/// derived point (never selected, never counted for component selection). The drawing bits say
/// how a point is drawn and which preview it gets.
enum RigPointFlag : std::uint32_t {
  kPointRight = 1u << 0,
  kPointLeft = 1u << 1,
  /// An end point: drawn as a small cross, no bone preview of its own.
  kPointEnd = 1u << 2,
  kPointHidden = 1u << 4,
  /// A bone preview toward the first child (17 points) instead of a line to the parent.
  kPointBonePreview = 1u << 11,
  /// Drawing variants of the bone preview: with side fins, and wide (a body segment).
  kPointFins = 1u << 7,
  kPointWide = 1u << 8,
};

/// One template point. Its world position is pos * helper_size * the object's transform.
struct RigPoint {
  /// RigComponent; kComponentExtraBase + i for the points of extra i.
  int component = 0;
  /// Full name with side prefix and indices ("l_finger_2_3"): the key everything finds it by.
  std::string name;
  std::uint32_t flags = 0;
  /// In rig units: 1.0 is helper_size.
  Point3 pos;
  /// For a derived point, the fraction from link1 to link2 it follows.
  float blend = 0.0f;
  int selected = 0;
  int parent = -1;
  /// The first child added that is not hidden: the direction of the bone preview.
  int first_child = -1;
  int link1 = -1;
  int link2 = -1;
  int line_target = -1;
  int group = -1;
  std::string spare_name_1;
  std::string spare_name_2;
  /// Display geometry, rebuilt by the drawing code: one point on the way to the parent, or the
  /// 17 points of a bone preview.
  std::vector<Point3> preview;

  bool Hidden() const { return (flags & kPointHidden) != 0; }
  bool IsRight() const { return (flags & kPointRight) != 0; }
  bool IsLeft() const { return (flags & kPointLeft) != 0; }
};

/// The indices of a sided pair; -1 for a side that was not made.
struct SidedIndex {
  int right = -1;
  int left = -1;
  /// The index on side (kSideRight or kSideLeft); right for any other side.
  int On(int side) const { return side == kSideLeft ? left : right; }
};

/// "r_%s" for side 0, "l_%s" for side 1, the name as is otherwise; then "%s_%d" with index + 1
/// when index is not negative, and the same for sub_index.
std::string ComposePointName(std::string_view name, int side, int index, int sub_index);

/// The template: points in creation order, and during a regeneration the previous list.
class RigTemplate {
 public:
  const std::vector<RigPoint>& Points() const { return points_; }
  std::vector<RigPoint>& Points() { return points_; }
  int NumPoints() const { return static_cast<int>(points_.size()); }

  /// The first point named exactly name; -1 when none is.
  int Find(std::string_view name) const;

  /// Starts a regeneration: the live list becomes the previous list (searched by name) and the
  /// live list is emptied. With forget_previous (a type change) the old points are dropped, so
  /// every point takes its default.
  void BeginRegeneration(bool forget_previous);
  /// Ends it: drops the previous list, rebuilds the links and puts derived points back on the
  /// line between their anchors.
  void EndRegeneration();

  /// The component whose points are selected when points are made without keeping the previous
  /// ones (see AddPoint); -1 for none.
  void SetSelectedComponent(int component) { selected_component_ = component; }

  /// Appends a point and answers its index. pos is multiplied by tm; the name is base, or
  /// "%s_%d" with index + 1 when index is not negative. The point becomes its parent's first
  /// child when the parent has none and the point is not hidden. With keep_previous the previous
  /// point of the same name gives its position and selected state (hidden points excepted);
  /// without, a point of the selected component is selected unless hidden. link is the point it
  /// follows (link1), -1 for none.
  int AddPoint(int component,
               std::string_view base,
               int index,
               const Point3& pos,
               int parent,
               const Matrix3& tm,
               bool keep_previous,
               std::uint32_t flags,
               int link = -1);

  /// The sided form. Side kSideCenter (or any value outside 0..2) makes one point as AddPoint.
  /// Otherwise side 0 or 2 make the right point "r_..." with tm, parent.right and flags |
  /// kPointRight; side 1 or 2 the left point "l_..." with tm * ScaleMatrix(-1, 1, 1),
  /// parent.left and flags | kPointLeft. For a center point both indices are that point.
  SidedIndex AddSidedPoint(int component,
                           std::string_view base,
                           int index,
                           const Point3& pos,
                           SidedIndex parent,
                           const Matrix3& tm,
                           int side,
                           bool keep_previous,
                           std::uint32_t flags,
                           SidedIndex link = {});

  /// A derived point: hidden, at blend between link1 and link2 (already made, same side), and
  /// following them when they move. Sided like AddSidedPoint; the positions come from the
  /// anchors, so no transform is needed.
  SidedIndex AddDerivedPoint(int component,
                             std::string_view base,
                             int index,
                             SidedIndex link1,
                             SidedIndex link2,
                             float blend,
                             SidedIndex parent,
                             int side,
                             std::uint32_t flags = 0);

  /// Marks the links for rebuilding (the point list changed).
  void MarkLinksDirty() { links_dirty_ = true; }
  /// Puts each derived point whose anchors moved since the last call back at its blend between
  /// link1 and link2. Rebuilds the links first when they are dirty; does nothing when no anchor
  /// moved.
  void UpdateDependants();

  /// The indices of the points derived from point i (empty for a bad index). Rebuilds dirty
  /// links.
  const std::vector<int>& DerivedFrom(int i);

 private:
  void RebuildLinks();

  std::vector<RigPoint> points_;
  std::vector<RigPoint> previous_;
  int selected_component_ = -1;
  std::vector<std::vector<int>> links_;
  struct TrackedAnchor {
    int point;
    Point3 pos;
  };
  std::vector<TrackedAnchor> tracked_;
  bool links_dirty_ = true;
};

}  // namespace marvolith
