// Copyright Marvolith contributors.
#include "rig/rig_template.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace marvolith {
namespace {

std::string IndexedName(std::string_view base, int index) {
  std::string name(base);
  if (index >= 0) name += "_" + std::to_string(index + 1);
  return name;
}

Point3 Lerp(const Point3& a, const Point3& b, float u) { return a + (b - a) * u; }

}  // namespace

std::string ComposePointName(std::string_view name, int side, int index, int sub_index) {
  std::string out;
  if (side == kSideRight)
    out = "r_";
  else if (side == kSideLeft)
    out = "l_";
  out += name;
  return IndexedName(IndexedName(out, index), sub_index);
}

int RigTemplate::Find(std::string_view name) const {
  for (int i = 0; i < NumPoints(); ++i)
    if (points_[i].name == name) return i;
  return -1;
}

void RigTemplate::BeginRegeneration(bool forget_previous) {
  previous_.clear();
  if (!forget_previous) previous_ = std::move(points_);
  points_.clear();
  links_dirty_ = true;
}

void RigTemplate::EndRegeneration() {
  previous_.clear();
  previous_.shrink_to_fit();
  links_dirty_ = true;
  tracked_.clear();
  UpdateDependants();
}

int RigTemplate::AddPoint(int component,
                          std::string_view base,
                          int index,
                          const Point3& pos,
                          int parent,
                          const Matrix3& tm,
                          bool keep_previous,
                          std::uint32_t flags,
                          int link) {
  RigPoint point;
  point.component = component;
  point.name = IndexedName(base, index);
  point.flags = flags;
  point.pos = pos * tm;
  point.parent = parent >= 0 && parent < NumPoints() ? parent : -1;
  point.link1 = link >= 0 && link < NumPoints() ? link : -1;
  const int self = NumPoints();
  if (point.parent >= 0 && points_[point.parent].first_child < 0 && !point.Hidden())
    points_[point.parent].first_child = self;
  if (keep_previous) {
    for (const RigPoint& old : previous_) {
      if (old.name != point.name) continue;
      if (!point.Hidden()) {
        point.pos = old.pos;
        point.selected = old.selected;
      }
      break;
    }
  } else if (!point.Hidden() && component == selected_component_) {
    point.selected = 1;
  }
  points_.push_back(std::move(point));
  links_dirty_ = true;
  return self;
}

SidedIndex RigTemplate::AddSidedPoint(int component,
                                      std::string_view base,
                                      int index,
                                      const Point3& pos,
                                      SidedIndex parent,
                                      const Matrix3& tm,
                                      int side,
                                      bool keep_previous,
                                      std::uint32_t flags,
                                      SidedIndex link) {
  SidedIndex made;
  if (side < kSideRight || side > kSideBoth) {
    made.right = made.left =
        AddPoint(component, base, index, pos, parent.right, tm, keep_previous, flags, link.right);
    return made;
  }
  if (side == kSideRight || side == kSideBoth)
    made.right = AddPoint(component, "r_" + std::string(base), index, pos, parent.right, tm,
                          keep_previous, flags | kPointRight, link.right);
  if (side == kSideLeft || side == kSideBoth)
    made.left = AddPoint(component, "l_" + std::string(base), index, pos, parent.left,
                         tm * ScaleMatrix(Point3(-1.0f, 1.0f, 1.0f)), keep_previous,
                         flags | kPointLeft, link.left);
  return made;
}

SidedIndex RigTemplate::AddDerivedPoint(int component,
                                        std::string_view base,
                                        int index,
                                        SidedIndex link1,
                                        SidedIndex link2,
                                        float blend,
                                        SidedIndex parent,
                                        int side,
                                        std::uint32_t flags) {
  auto make = [&](int a, int b, int par, std::string_view name, std::uint32_t side_flag) {
    if (a < 0 || b < 0 || a >= NumPoints() || b >= NumPoints()) return -1;
    const Point3 pos = Lerp(points_[a].pos, points_[b].pos, blend);
    const int i = AddPoint(component, name, index, pos, par, Matrix3(), false,
                           flags | side_flag | kPointHidden, a);
    points_[i].link2 = b;
    points_[i].blend = blend;
    return i;
  };
  SidedIndex made;
  if (side < kSideRight || side > kSideBoth) {
    made.right = made.left = make(link1.right, link2.right, parent.right, base, 0);
    return made;
  }
  if (side == kSideRight || side == kSideBoth)
    made.right =
        make(link1.right, link2.right, parent.right, "r_" + std::string(base), kPointRight);
  if (side == kSideLeft || side == kSideBoth)
    made.left = make(link1.left, link2.left, parent.left, "l_" + std::string(base), kPointLeft);
  return made;
}

void RigTemplate::RebuildLinks() {
  links_.assign(points_.size(), {});
  for (int i = 0; i < NumPoints(); ++i) {
    const RigPoint& p = points_[i];
    if (p.link1 < 0 || p.link2 < 0 || p.link1 >= NumPoints() || p.link2 >= NumPoints()) continue;
    links_[p.link1].push_back(i);
    links_[p.link2].push_back(i);
  }
  // Anchors not yet tracked start from a position no point has, so their dependants update.
  std::vector<TrackedAnchor> tracked;
  for (int i = 0; i < NumPoints(); ++i) {
    if (links_[i].empty()) continue;
    auto old = std::find_if(tracked_.begin(), tracked_.end(),
                            [i](const TrackedAnchor& a) { return a.point == i; });
    const float kUntracked = std::numeric_limits<float>::quiet_NaN();
    tracked.push_back({i, old != tracked_.end() ? old->pos
                                                 : Point3(kUntracked, kUntracked, kUntracked)});
  }
  tracked_ = std::move(tracked);
  links_dirty_ = false;
}

const std::vector<int>& RigTemplate::DerivedFrom(int i) {
  static const std::vector<int> kNone;
  if (links_dirty_) RebuildLinks();
  return i >= 0 && i < static_cast<int>(links_.size()) ? links_[i] : kNone;
}

void RigTemplate::UpdateDependants() {
  if (links_dirty_) RebuildLinks();
  for (TrackedAnchor& anchor : tracked_) {
    const Point3& now = points_[anchor.point].pos;
    if (now == anchor.pos) continue;
    for (int d : links_[anchor.point]) {
      RigPoint& p = points_[d];
      p.pos = Lerp(points_[p.link1].pos, points_[p.link2].pos, p.blend);
    }
    anchor.pos = now;
  }
}

}  // namespace marvolith
