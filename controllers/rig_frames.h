// Copyright Marvolith contributors.
// The pure core of RigControl: the frames its position, rotation and scale tracks are applied
// in, from the parent, the offset and the offset options. Evaluation and every edit path use it.
#pragma once

#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"
#include "host/math/scale_value.h"

namespace marvolith {

/// Offset stretch factors at or below this count as collapsed: they have no inverse, and the
/// inverse stretch keeps them collapsed (factor 0).
inline constexpr float kOffsetStretchMinFactor = 1e-12f;

/// What the frames depend on, as plain values.
struct RigFrameInput {
  Matrix3 parent_ws;               ///< the parent's world transform
  Matrix3 offset;                  ///< offsetTM: the figure pose, relative to the parent
  bool figure_mode = false;        ///< edits go into the offset; the tracks are not applied
  bool independent_offset = true;  ///< offset parts apply each before its own track
  bool straight_scale = false;     ///< children inherit an orthogonal frame, scale as factors
};

/// The frames of one evaluation or edit, with the offset split once (the shared decomposition:
/// offset = MatrixFromScaleValue(offset_scale) * Matrix(offset_rot) * TransMatrix(offset_pos)).
///
/// Evaluation, with p, q, s the tracks' relative GetValue:
///   world_ws = Finish(s(q(TurnFrame(p(position_ws), straight_scale))))
/// that is, for an independent offset S(Os) * S(s) * Ortho(q * Oq * T(p) * T(Op) * parent), and
/// for a whole one S(Os) * S(s) * Ortho(q * S(Os)^-1 * T(p) * O * parent): the offset's stretch
/// goes in after the scale track, which orthogonalises what it is applied to and would drop it.
/// In figure mode every frame is the parent (edits are taken in the parent's frame), the offset
/// parts are left at rest and the step functions return their argument.
struct RigFrames {
  RigFrameInput in;
  Point3 offset_pos;                        ///< Op
  Quat offset_rot;                          ///< Oq
  ScaleValue offset_scale;                  ///< Os, factors signed (a mirror shows as -1, -1, -1)
  Matrix3 stretch;                          ///< MatrixFromScaleValue(Os)
  Matrix3 inverse_stretch;                  ///< its inverse, collapsed factors kept at 0
  Point3 parent_lengths{1.0f, 1.0f, 1.0f};  ///< parent row lengths with straight_scale, else 1
  /// The frame the position track is applied to: T(Op) * parent (independent) or O * parent.
  Matrix3 position_ws;
  /// The frame the rotation track is applied to while the position track is at rest:
  /// TurnFrame(position_ws, false). Edits that turn or scale measure their axes in it.
  Matrix3 rotation_ws;

  /// From the frame after the position track, the frame the Euler axes of the rotation track
  /// show in: without the offset's stretch (whole offset), orthogonalised when `orthogonal`.
  Matrix3 AxesFrame(Matrix3 moved_ws, bool orthogonal) const;
  /// AxesFrame with the offset's rotation in front (independent offset): the frame the rotation
  /// track is applied to.
  Matrix3 TurnFrame(const Matrix3& moved_ws, bool orthogonal) const;
  /// The world from the frame after the scale track: the offset's stretch in front, and with
  /// straight_scale the parent's row lengths times the node's own as pure factors on an
  /// orthogonal frame.
  Matrix3 Finish(Matrix3 scaled_ws) const;
};

/// The frames for in. Allocates nothing; a degenerate offset (collapsed stretch) gives finite
/// frames with that direction collapsed.
RigFrames RigTrackFrames(const RigFrameInput& in);

}  // namespace marvolith
