// Copyright Marvolith contributors.
#include "controllers/rig_frames.h"

#include <cmath>

#include "host/math/affine.h"

namespace marvolith {
namespace {

// The inverse of the offset's stretch, which takes it back out of O * parent so that only the
// offset's rotation and translation stay in front of the tracks. A collapsed factor stays
// collapsed rather than blowing up.
Matrix3 InverseStretch(const ScaleValue& os) {
  Point3 inv;
  for (int i = 0; i < 3; ++i) {
    inv[i] = std::fabs(os.s[i]) > kOffsetStretchMinFactor ? 1.0f / os.s[i] : 0.0f;
  }
  return MatrixFromScaleValue(ScaleValue(inv, os.q));
}

}  // namespace

RigFrames RigTrackFrames(const RigFrameInput& in) {
  RigFrames f;
  f.in = in;
  if (in.figure_mode) {
    // Edits of the figure pose are taken in the parent's frame; the offset stays whole.
    f.position_ws = in.parent_ws;
    f.rotation_ws = in.parent_ws;
    return f;
  }
  DecomposeMatrix(in.offset, f.offset_pos, f.offset_rot, f.offset_scale);
  f.stretch = MatrixFromScaleValue(f.offset_scale);
  f.inverse_stretch = InverseStretch(f.offset_scale);
  if (in.straight_scale) f.parent_lengths = GetScaleLengths(in.parent_ws);
  if (in.independent_offset) {
    f.position_ws = in.parent_ws;
    f.position_ws.PreTranslate(f.offset_pos);
  } else {
    // Whole offset: the position track moves in the offset's scaled frame.
    f.position_ws = in.offset * in.parent_ws;
  }
  f.rotation_ws = f.TurnFrame(f.position_ws, false);
  return f;
}

Matrix3 RigFrames::AxesFrame(Matrix3 moved_ws, bool orthogonal) const {
  if (in.figure_mode) return moved_ws;
  // Whole offset: its stretch comes out here, to go in after the scale track (Finish).
  if (!in.independent_offset) moved_ws = inverse_stretch * moved_ws;
  if (orthogonal) moved_ws.Orthogonalize();
  return moved_ws;
}

Matrix3 RigFrames::TurnFrame(const Matrix3& moved_ws, bool orthogonal) const {
  Matrix3 frame_ws = AxesFrame(moved_ws, orthogonal);
  if (!in.figure_mode && in.independent_offset) frame_ws.PreRotate(offset_rot);
  return frame_ws;
}

Matrix3 RigFrames::Finish(Matrix3 scaled_ws) const {
  if (in.figure_mode) return scaled_ws;
  // Axis-aligned scales commute, so the stretch after the scale track is the same product as
  // the offset's scale in front of the track's.
  scaled_ws = stretch * scaled_ws;
  if (in.straight_scale) {
    const Point3 own_lengths = GetScaleLengths(scaled_ws);
    scaled_ws.Orthogonalize();
    scaled_ws.PreScale(parent_lengths * own_lengths);
  }
  return scaled_ws;
}

}  // namespace marvolith
