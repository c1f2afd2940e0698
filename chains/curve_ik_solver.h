// Copyright Marvolith contributors.
// The curve IK solver: a spline through control points, sampled into straight steps and
// measured by arc length, and joints placed, turned, twisted and scaled along it. Pure functions
// over host math values and spans: no nodes, blocks or undo.
#pragma once

#include <span>
#include <vector>

#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"

namespace marvolith {

/// Kinds of control point. The numbers are stored in scenes and passed from script.
enum class CurvePointType : int { BezierCorner = 0, Bezier = 1, Corner = 2, Smooth = 3 };

/// How joints turn along the curve.
enum class CurveFollow : int { None = 0, Tangent = 1, Child = 2 };

/// Factors of the automatic tangents: the centred rule of a Smooth point, the one-sided rule that
/// looks past the span's far end, and the third of the chord when there is no neighbour at all.
inline constexpr float kCurveCentredTangent = 0.165f;
inline constexpr float kCurveOneSidedTangent = 0.666f;
inline constexpr float kCurveChordTangent = 0.333f;
/// Divisor floor of the solver's ratios (lengths, stretch, wave length).
inline constexpr float kCurveMinLength = 0.001f;

/// One control point of the curve, everything in the chain's space (the world seen through the
/// space matrix, see CurveIKInput::space_tm).
struct CurveIKPoint {
  /// The point's transform in chain space, with the up axis relabelling already applied.
  Matrix3 tm_cs;
  /// A CurvePointType number; values outside 0..3 count as Corner.
  int type = static_cast<int>(CurvePointType::Smooth);
  /// Bezier tangents come from the tangent nodes (true) or from the stored inner tangents.
  bool use_tangent_nodes = true;
  /// Tangent node positions in chain space, when the nodes exist (has_*_node).
  bool has_in_node = false;
  bool has_out_node = false;
  Point3 in_node_cs;
  Point3 out_node_cs;
  /// Stored tangents in the frame of tm_cs.
  Point3 inner_in;
  Point3 inner_out;
  /// Twist of the point, radians, and its wave amplitude factor.
  float twist = 0.0f;
  float wave_amplitude = 1.0f;
};

/// Parameters of one solve. Fractions are plain (1 is 100 percent), angles radians, lengths in
/// chain units.
struct CurveIKParams {
  bool closed = false;
  int steps = 16;  ///< samples per curved span; below 1 counts as 1
  float percent = 0.0f;
  float rotation = 0.0f;
  float twist = 0.0f;
  float manual_stretch = 1.0f;
  float auto_stretch = 1.0f;
  float squash = 0.0f;
  float backwards = 0.0f;
  float slide_joints = 1.0f;
  float chain_length = 0.0f;
  bool use_wave = false;
  float wave_amplitude = 0.0f;
  float wave_length = 100.0f;  ///< 0 is kept safe (floored at kCurveMinLength)
  float wave_orientation = 0.0f;
  float wave_phase = 0.0f;
  bool use_points_rotation = true;
  bool use_points_scale = true;
  bool additive_twist = false;
  int follow_type = static_cast<int>(CurveFollow::Child);
  int aim_axis = 0;
  bool aim_axis_flip = false;
};

/// One sample of the curve: a corner of the polyline the joints are measured on.
struct CurveSample {
  float length = 0.0f;  ///< arc length from the curve's start (after any wave)
  Point3 pos;           ///< chain space
  int span = 0;         ///< span index (the last sample belongs to the last span)
  int step = 0;         ///< step within the span; the last sample has step `steps`
  bool corner = false;  ///< the single sample of a straight span (covers the whole span)
};

/// Everything a solve reads.
struct CurveIKInput {
  std::span<const CurveIKPoint> points;
  /// Per joint: its place on the curve (0 start, 1 end) and its squash weight. Both the same
  /// size as the output.
  std::span<const float> joint_percents;
  std::span<const float> joint_squash;
  CurveIKParams params;
  /// Chain space to world: the final multiplication of every joint.
  Matrix3 space_tm;
};

/// What a solve keeps between solves: the points, the samples and per-joint scratch. Its
/// vectors only grow, so once sized by a solve of the same point, step and joint counts a solve
/// allocates nothing. The tables are readable for display.
class CurveIKWorkspace {
 public:
  /// Samples of the last solve, in chain space.
  std::span<const CurveSample> Samples() const { return samples_; }
  /// Cumulative length at the first sample of each span, and the total at the end (one entry
  /// per span plus one); empty without points.
  std::span<const float> PointLengths() const { return point_lengths_; }
  /// The four Bezier control points of each span (P0, P1, P2, P3), chain space.
  std::span<const Point3> SpanControls() const { return controls_; }
  float CurveLength() const { return curve_length_; }
  int StepsPerSpan() const { return steps_; }
  int SpanCount() const { return span_count_; }

 private:
  friend void SolveCurveIK(const CurveIKInput&, CurveIKWorkspace&, std::span<Matrix3>);
  friend void SmoothPointTangents(std::span<const Matrix3>,
                                  bool,
                                  std::span<Point3>,
                                  std::span<Point3>);
  friend struct CurveBuilder;

  std::vector<Matrix3> point_tms_;  // one per point, and the first again when closed
  std::vector<Quat> point_rots_;
  std::vector<Point3> point_scales_;
  std::vector<float> twists_;
  std::vector<float> amplitudes_;
  std::vector<Point3> controls_;
  std::vector<unsigned char> curved_;  // per span: sampled on its Bezier
  std::vector<CurveSample> samples_;
  std::vector<float> point_lengths_;
  std::vector<float> joint_f_;
  std::vector<int> joint_seg_;
  std::vector<Quat> joint_rot_;
  float curve_length_ = 0.0f;
  int steps_ = 1;
  int span_count_ = 0;
  bool waved_ = false;
};

/// Solves the chain: fills joints_ws (one world matrix per joint) and ws's tables.
///
/// The curve runs through the points in order (and back to the first when closed). Each span is
/// a cubic Bezier whose inner control points come from the point types: Smooth points take the
/// centred rule from their neighbours, Bezier points their tangent node or stored tangent (the
/// in tangent mirrors the out tangent), BezierCorner points both of their own, Corner points the
/// one-sided rules. A Smooth point without the neighbour, or a Bezier point whose tangent node is
/// missing, counts as Corner. A span with Corner ends is a straight line sampled once (unless the
/// wave is on); others get `steps` samples. Joints are placed by arc length (slide_joints 1) or
/// by span (0), stretched by auto/manual stretch, shifted by percent and backwards, and beyond
/// the curve's ends continue on the end tangents (a closed curve wraps instead).
///
/// Degenerate input: no point or no joint leaves joints_ws untouched and the tables empty (no
/// point) or built (no joint). One point puts every joint on it. Zero-length curves, spans and
/// wave lengths are guarded: results stay finite. joints_ws, joint_percents and joint_squash
/// must have the same size; when they do not, nothing is solved.
void SolveCurveIK(const CurveIKInput& in, CurveIKWorkspace& ws, std::span<Matrix3> joints_ws);

/// The automatic (Smooth) tangents of every point in the point's own frame, for storing as inner
/// tangents: in and out are the Smooth rule's P2 and P1 of the spans either side, transformed by
/// the inverse of the point's transform. An end of an open curve mirrors its one tangent through
/// the point; a lone point has both at its origin. in_local and out_local must have
/// point_tms.size() entries; otherwise nothing is written.
void SmoothPointTangents(std::span<const Matrix3> point_tms,
                         bool closed,
                         std::span<Point3> in_local,
                         std::span<Point3> out_local);

}  // namespace marvolith
