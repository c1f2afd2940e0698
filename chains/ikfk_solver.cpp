// Copyright Marvolith contributors.
#include "chains/ikfk_solver.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "host/math/geometry.h"
#include "host/math/tolerances.h"

namespace marvolith {
namespace {

constexpr float kPi = std::numbers::pi_v<float>;
/// Below this a direction counts as zero where the solver picks a fallback axis.
constexpr float kTinyLength = 1e-6f;
/// Two bone directions whose cross product is shorter than this are collinear: their plane is
/// noise, and the bend takes a fallback plane (towards -Y of the joint above).
constexpr float kCollinearSine = 1e-4f;

float Clamp01(float v) { return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f; }  // NaN reads as 0
float FiniteOr(float v, float fallback) { return std::isfinite(v) ? v : fallback; }
bool IsFinite(const Point3& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}
bool IsFinite(const Quat& q) {
  return std::isfinite(q.x) && std::isfinite(q.y) && std::isfinite(q.z) && std::isfinite(q.w);
}

/// v * Matrix(q): v turned by q. Quat::MakeMatrix's entries (in double, rounded to float as it
/// stores them) applied directly, without building the matrix: the N-joint search turns every
/// bone in every step, and its stopping test is sensitive enough to need the same rounding. A
/// zero or non-finite q leaves v as it is, as its identity matrix would.
Point3 Turn(const Point3& v, const Quat& q) {
  const double len2 = double(q.x) * q.x + double(q.y) * q.y + double(q.z) * q.z + double(q.w) * q.w;
  if (!(len2 > 0.0) || !std::isfinite(len2)) return v;
  const double s = 2.0 / len2;
  const double xx = q.x * q.x * s, yy = q.y * q.y * s, zz = q.z * q.z * s;
  const double xy = q.x * q.y * s, xz = q.x * q.z * s, yz = q.y * q.z * s;
  const double wx = q.w * q.x * s, wy = q.w * q.y * s, wz = q.w * q.z * s;
  const Point3 r0(float(1.0 - (yy + zz)), float(xy - wz), float(xz + wy));
  const Point3 r1(float(xy + wz), float(1.0 - (xx + zz)), float(yz - wx));
  const Point3 r2(float(xz - wy), float(yz + wx), float(1.0 - (xx + yy)));
  return {v.x * r0.x + v.y * r1.x + v.z * r2.x, v.x * r0.y + v.y * r1.y + v.z * r2.y,
          v.x * r0.z + v.y * r1.z + v.z * r2.z};
}

/// QFromAngAxis(angle, axis) for a unit axis, in float: the N-joint search makes one per inner
/// joint and step.
Quat AboutUnitAxis(float angle, const Point3& axis) {
  const float s = std::sin(0.5f * angle);
  return Quat(axis * s, std::cos(0.5f * angle));
}

/// The rotation of m. Quat(Matrix3) normalises rows itself, so only skewed rows need the
/// (costly) polar decomposition first.
Quat RotationOf(Matrix3 m) {
  const Point3 r0 = m.GetRow(0), r1 = m.GetRow(1), r2 = m.GetRow(2);
  const float skew = std::fabs(r0 % r1) + std::fabs(r1 % r2) + std::fabs(r2 % r0);
  const float scale = r0.LengthSquared() + r1.LengthSquared() + r2.LengthSquared();
  if (!(skew <= 1e-6f * scale)) m.Orthogonalize();
  return Quat(m);
}

/// Unit vector perpendicular to `along` (which may be zero), from `preferred` with its component
/// along `along` removed, else from `second`.
Point3 PerpendicularAxis(const Point3& along, const Point3& preferred, const Point3& second) {
  const Point3 a = Normalize(along);
  Point3 n = preferred - a * (preferred % a);
  if (n.Length() > kTinyLength) return Normalize(n);
  n = second - a * (second % a);
  return Normalize(n);
}

/// The solve's parameters after the NaN and range rules of IKFKSolveInput.
struct Params {
  float w;
  float manual_stretch;
  float auto_stretch;
  float soft_ik;
  float flexion_bias;
  float swivel_angle;
};

Params ReadParams(const IKFKSolveInput& in) {
  return {Clamp01(FiniteOr(in.ikfk_blend, 1.0f)),
          std::max(FiniteOr(in.manual_stretch, 1.0f), 0.0f),
          Clamp01(in.auto_stretch),
          Clamp01(in.soft_ik),
          FiniteOr(in.flexion_bias, 0.0f),
          FiniteOr(in.swivel_angle, 0.0f)};
}

/// The reach of the IK solve: where the goal is, how far, and the chain's length, after the soft
/// zone and the automatic stretch (which scale the bones in place).
struct Reach {
  Point3 root;
  Point3 goal;
  float distance;
  float length;
  float stretch_factor = 1.0f;
};

void ScaleBones(std::span<Point3> bones, float f) {
  for (Point3& b : bones) b *= f;
}

/// Soft IK, then the stretch of an unreachable goal; a = auto_stretch * w.
void SoftAndStretch(std::span<Point3> bones, float soft_ik, float a, Reach& r) {
  if (soft_ik > 0.0f && r.length > 0.0f) {
    const float z = soft_ik * r.length;
    if (r.distance > r.length - z) {
      // An exponential that nears the chain's length but never reaches it.
      const float s = r.length - std::exp(-(r.distance - (r.length - z)) / z) * z;
      if (a > 0.0f) {
        const float f = (SafeDiv(r.distance, s, kSolverSafeDivEpsilon) - 1.0f) * a + 1.0f;
        ScaleBones(bones, f);
        r.length *= f;
        r.stretch_factor *= f;
      }
      if (a < 1.0f) {
        const Point3 held = r.root + Normalize(r.goal - r.root) * s;
        r.goal = held + (r.goal - held) * a;
        r.distance = (r.distance - s) * a + s;
      }
    }
  }
  if (!(r.length > r.distance) && a > 0.0f) {
    // Out of reach: the straight chain stretches by a of the missing length.
    const float f = (SafeDiv(r.distance, r.length, kSolverSafeDivEpsilon) - 1.0f) * a + 1.0f;
    ScaleBones(bones, f);
    r.length *= f;
    r.stretch_factor *= f;
  }
}

/// The frame the bend is placed in (a rotation in the parent frame): LookFrame with a target,
/// the preferred swivel frame without.
Quat SwivelRotation(const IKFKSolveInput& in,
                    const Params& prm,
                    const Reach& r,
                    const Quat& qp,
                    const Matrix3& parent_inv) {
  const Point3 target = parent_inv.PointTransform(in.target_ws.GetTrans());
  if (in.target_active && IsFinite(target)) return Quat(LookFrame(r.root, r.goal, target));
  const Quat qp_eff =
      EffectivePreferredRotation(qp, in.parent_space, in.swivel_space_ws, in.parent_ws);
  return SwivelFrame(r.root, r.goal, qp_eff, prm.swivel_angle);
}

float ChainLength(std::span<const Point3> positions) {
  float length = 0.0f;
  for (std::size_t i = 1; i < positions.size(); ++i) length += positions[i].Length();
  return length;
}

/// Two and fewer joints: joint 0 aims its bone (X without a bone) at the goal.
void SolveSingleBone(const IKFKSolveInput& in,
                     const Params& prm,
                     Reach& r,
                     const Matrix3& parent_inv,
                     IKFKWorkspace& ws) {
  const std::size_t n = ws.ik.size();
  const float a = prm.auto_stretch * prm.w;
  if (n == 2 && a > 0.0f && r.distance > r.length) {
    const float f = (SafeDiv(r.distance, r.length, kSolverSafeDivEpsilon) - 1.0f) * a + 1.0f;
    ws.positions[1] *= f;
    r.stretch_factor *= f;
  }
  const Quat s = SwivelRotation(in, prm, r, ws.preferred[0], parent_inv);
  const Point3 bone = n == 2 ? ws.positions[1] : Point3::XAxis;
  ws.ik[0] = Conjugate(AimXFast(Normalize(bone))) * s;
}

/// Three joints: the triangle of the two bones and the goal distance, the elbow at +Y of the
/// swivel frame, the lower bone turned from its preferred direction within the bend plane.
void SolveTwoBone(const IKFKSolveInput& in,
                  const Params& prm,
                  Reach& r,
                  const Matrix3& parent_inv,
                  IKFKWorkspace& ws) {
  SoftAndStretch(std::span(ws.positions).subspan(1), prm.soft_ik, prm.auto_stretch * prm.w, r);
  const Point3 upper = ws.positions[1];
  const Point3 lower_pref = Turn(ws.positions[2], ws.preferred[1]);  // in joint 0's frame
  const float l1 = upper.Length();
  const float l2 = lower_pref.Length();
  const float d = r.distance;

  // Bend angle between the bones by the law of cosines. Clamping covers the triangle's
  // degenerate cases: out of reach (straight, elbow at x = L1), L2 - L1 > D (folded back,
  // x = -L1) and L1 - L2 > D (folded, x = L1).
  const float cos_bend = std::clamp(
      SafeDiv(d * d - l1 * l1 - l2 * l2, 2.0f * l1 * l2, kSolverSafeDivEpsilon), -1.0f, 1.0f);
  const float sin_bend = std::sqrt(std::max(0.0f, 1.0f - cos_bend * cos_bend));

  // The bend plane in joint 0's frame: the preferred bend's, else bending towards -Y.
  const Point3 u = upper.Length() > kTinyLength ? Normalize(upper) : Point3::XAxis;
  const Point3 cross = u ^ Normalize(lower_pref);
  const Point3 normal = cross.Length() > kCollinearSine
                            ? Normalize(cross)
                            : PerpendicularAxis(u, -Point3::ZAxis, -Point3::YAxis);
  const Point3 side = Normalize(normal ^ u);  // towards the lower bone
  const Point3 lower = (u * cos_bend + side * sin_bend) * l2;
  const Point3 end = upper + lower;

  // Joint 1: the preferred rotation, then the turn about the bend normal onto the new lower bone.
  const Point3 lp = Normalize(lower_pref);
  const Point3 ln = Normalize(lower);
  // QFromAngAxis(-turn, normal), turn = atan2(sin, cos): right-handed about `normal`.
  const HalfAngle turn = HalfAngleOf(lp % ln, (lp ^ ln) % normal);
  ws.ik[1] = ws.preferred[1] * Quat(normal * -turn.sin, turn.cos);

  // Joint 0: aim the end at the goal, then turn about the aim line so the elbow's offset from
  // it (ê x normal) lies on the swivel frame's +Y.
  const Quat aim = AimXFast(Normalize(end));
  const Point3 elbow_dir = Turn(Normalize(end) ^ normal, Conjugate(aim));
  // XRotation(-atan2(z, y)); no offset (elbow on the aim line) gives no turn.
  const HalfAngle elbow = HalfAngleOf(elbow_dir.y, elbow_dir.z);
  const Quat s = SwivelRotation(in, prm, r, ws.preferred[0], parent_inv);
  ws.ik[0] = Conjugate(aim) * Quat(elbow.sin, 0.0f, 0.0f, elbow.cos) * s;
}

/// The chain's end in joint 0's frame for the current bend angles (joint rotations written to
/// ws.ik[1 .. n-2]).
Point3 ChainEnd(IKFKWorkspace& ws) {
  const std::size_t n = ws.ik.size();
  Quat frame;  // joint i - 1 relative to joint 0
  Point3 end;
  for (std::size_t i = 1; i < n; ++i) {
    end += Turn(ws.positions[i], frame);
    if (i + 1 < n) {
      ws.ik[i] = ws.bases[i] * AboutUnitAxis(ws.angles[i], ws.axes[i]);
      frame = ws.ik[i] * frame;
    }
  }
  return end;
}

/// Four joints and more: a false-position search on the inner joints' bend angles for the end
/// distance D, then the chain is aimed at the goal in the swivel frame.
void SolveNJoint(const IKFKSolveInput& in,
                 const Params& prm,
                 int iterations,
                 Reach& r,
                 const Matrix3& parent_inv,
                 IKFKWorkspace& ws) {
  const std::size_t n = ws.ik.size();
  SoftAndStretch(std::span(ws.positions).subspan(1), prm.soft_ik, prm.auto_stretch * prm.w, r);
  const float inner_span = static_cast<float>(n - 3);

  // Split each inner joint's FK rotation into a straight base and a bend about its axis.
  for (std::size_t i = 1; i + 1 < n; ++i) {
    const Point3 u = ws.positions[i];
    const Point3 v = Turn(ws.positions[i + 1], ws.fk[i]);
    // AngAxis(axis, angle) turns u onto v in the host's quaternion sense: axis = v x u.
    const Point3 cross = Normalize(v) ^ Normalize(u);
    const Point3 axis = cross.Length() > kCollinearSine
                            ? Normalize(cross)
                            : PerpendicularAxis(u, Point3::ZAxis, Point3::YAxis);
    const float angle = AngleBetween(Normalize(u), Normalize(v));
    ws.axes[i] = axis;
    ws.bases[i] = ws.fk[i] * Conjugate(QFromAngAxis(angle, axis));
    // Flexion bias: a ramp from +1 at the first inner joint to -1 at the last.
    const float ramp = 1.0f - 2.0f * static_cast<float>(i - 1) / inner_span;
    ws.angles[i] =
        std::clamp(angle + ramp * prm.flexion_bias, -kIKFKMaxStartAngle, kIKFKMaxStartAngle);
  }
  ws.angles[0] = 0.0f;
  ws.angles[n - 1] = 0.0f;
  std::span<float> angles = std::span(ws.angles).subspan(1, n - 2);
  std::span<float> previous = std::span(ws.previous).subspan(1, n - 2);
  std::span<float> bracket = std::span(ws.bracket).subspan(1, n - 2);

  const float target = r.distance;
  if (!(r.length > target)) {
    std::fill(angles.begin(), angles.end(), 0.0f);  // out of reach: straight
  } else if (iterations > 0) {
    float d = ChainEnd(ws).Length();
    enum class State {
      Opening,
      Closing,
      Bracketed
    } state = target > d ? State::Opening : State::Closing;
    float d_previous = d;   // distance of `previous` (the bracket's other end once bracketed)
    float d_bracket = d;    // distance of `bracket` while bracketed
    int last_replaced = 0;  // +1 the bracket end, -1 the previous end
    for (int step = 0; step < iterations; ++step) {
      if (state != State::Bracketed) {
        std::copy(angles.begin(), angles.end(), previous.begin());
        d_previous = d;
      }
      if (state == State::Opening) {
        float m = 0.0f;
        for (float a : angles) m = std::max(m, std::fabs(a));
        const float k = m > kIKFKSearchStep ? kIKFKSearchStep / m : 1.0f;
        for (float& a : angles) a -= k * a;  // the largest bend falls by one step
      } else if (state == State::Closing) {
        for (float& a : angles) a = std::min(a + kIKFKSearchStep, kPi);
      } else {
        // Secant step between the two ends of the bracket.
        const float r_step = SafeDiv(target - d_previous, d_bracket - d_previous, 1e-12f);
        for (std::size_t j = 0; j < angles.size(); ++j) {
          angles[j] = (bracket[j] - previous[j]) * r_step + previous[j];
        }
      }
      const float d_new = ChainEnd(ws).Length();
      if (state == State::Opening && d_new > target) {
        state = State::Bracketed;
        std::copy(angles.begin(), angles.end(), bracket.begin());
        d_bracket = d_new;
      } else if (state == State::Closing) {
        if (d_new > d) {
          // Folded past the point where bending shortens the chain: the former bend stands.
          std::copy(previous.begin(), previous.end(), angles.begin());
          break;
        }
        if (target > d_new) {
          state = State::Bracketed;
          std::copy(angles.begin(), angles.end(), bracket.begin());
          d_bracket = d_new;
        }
      } else if (state == State::Bracketed) {
        const bool done = std::fabs(d_new - d) < kIKFKSearchTolerance || d_new == target;
        // Replace the end whose residual has the new point's sign; an end kept twice in a row
        // has its residual halved (Illinois), so the search does not stall on one side.
        if ((d_new - target) * (d_bracket - target) > 0.0f) {
          std::copy(angles.begin(), angles.end(), bracket.begin());
          d_bracket = d_new;
          if (last_replaced == 1) d_previous = target + (d_previous - target) * 0.5f;
          last_replaced = 1;
        } else {
          std::copy(angles.begin(), angles.end(), previous.begin());
          d_previous = d_new;
          if (last_replaced == -1) d_bracket = target + (d_bracket - target) * 0.5f;
          last_replaced = -1;
        }
        d = d_new;
        if (done) break;
        continue;
      }
      d = d_new;
    }
  }

  const Point3 end = ChainEnd(ws);  // writes the inner joints' rotations
  const Quat s = SwivelRotation(in, prm, r, ws.preferred[0], parent_inv);
  ws.ik[0] = Conjugate(AimXFast(Normalize(end))) * s;
}

}  // namespace

void IKFKWorkspace::Resize(std::size_t joint_count) {
  if (positions.size() == joint_count) return;  // all buffers share one size
  for (auto* v : {&positions, &scales, &axes}) v->resize(joint_count);
  for (auto* v : {&fk, &ik, &preferred, &bases, &blended}) v->resize(joint_count);
  for (auto* v : {&angles, &previous, &bracket}) v->resize(joint_count);
}

IKFKJointFK JointFKFromMatrix(const Matrix3& local) {
  IKFKJointFK fk;
  fk.position = local.GetTrans();
  fk.scale = Point3(local.GetRow(0).Length(), local.GetRow(1).Length(), local.GetRow(2).Length());
  fk.rotation = RotationOf(local);
  return fk;
}

Quat RotationSpaceDelta(const Matrix3& rotation_space_ws,
                        const Matrix3& parent_ws,
                        bool keep_initial,
                        const Matrix3& initial_offset,
                        float weight) {
  const Matrix3 r_ws = keep_initial ? initial_offset * rotation_space_ws : rotation_space_ws;
  Quat r = RotationOf(r_ws * Inverse(parent_ws));
  r.MakeClosest(Quat());
  return Slerp(Quat(), r, Clamp01(weight));
}

Quat EffectivePreferredRotation(const Quat& qp,
                                int parent_space,
                                const Matrix3& swivel_space_ws,
                                const Matrix3& parent_ws) {
  if (parent_space != 0) return qp;
  return qp * RotationOf(swivel_space_ws * InverseOfRigid(parent_ws));
}

Quat SwivelFrame(const Point3& root_ps, const Point3& goal_ps, const Quat& qp, float swivel_angle) {
  // The goal direction in qp's frame (Turn normalises, so the conjugate inverts).
  const Point3 v = Turn(goal_ps - root_ps, Conjugate(qp));
  return XRotation(swivel_angle) * AimXFast(Normalize(v)) * qp;
}

float SoftIKLimit(float d, float chain_length, float soft_ik) {
  const float soft = Clamp01(soft_ik);
  const float z = soft * chain_length;
  if (!(z > 0.0f) || !(d > chain_length - z)) return d;
  return chain_length - std::exp(-(d - (chain_length - z)) / z) * z;
}

bool SolveIKFK(const IKFKSolveInput& in, IKFKSolveOutput& out, IKFKWorkspace& ws) {
  const std::size_t n = in.joints_fk.size();
  if (out.joint_tms.size() != n || out.joint_positions.size() != n ||
      out.joint_rotations.size() != n || out.preferred_rotations.size() != n ||
      (!in.preferred_ls.empty() && in.preferred_ls.size() != n)) {
    return false;
  }
  ws.Resize(n);
  const Params prm = ReadParams(in);
  out.stretch_factor = 1.0f;

  // FK values; bone vectors carry the scale of the joints above them and the manual stretch,
  // and scale accumulates down the chain. Non-finite values read as the rest pose.
  for (std::size_t i = 0; i < n; ++i) {
    const IKFKJointFK& j = in.joints_fk[i];
    ws.positions[i] = IsFinite(j.position) ? j.position : Point3();
    ws.fk[i] = IsFinite(j.rotation) ? Normalize(j.rotation) : Quat();
    ws.scales[i] = IsFinite(j.scale) ? j.scale : Point3(1, 1, 1);
    if (i > 0) {
      ws.positions[i] = ws.positions[i] * ws.scales[i - 1] * prm.manual_stretch;
      ws.scales[i] = ws.scales[i] * ws.scales[i - 1];
    }
  }
  if (n > 0 && prm.w < 1.0f) ws.fk[0] = ws.fk[0] * Normalize(in.rotation_space_delta);
  for (std::size_t i = 0; i < n; ++i) {
    ws.preferred[i] = in.preferred_ls.empty() ? ws.fk[i] : Normalize(in.preferred_ls[i]);
    ws.ik[i] = ws.fk[i];
  }

  if (prm.w > 0.0f && n > 0) {
    const Matrix3 parent_inv = InverseOfRigid(in.parent_ws);
    Reach r;
    r.root = ws.positions[0];
    r.goal = parent_inv.PointTransform(in.goal_ws.GetTrans());
    if (!IsFinite(r.goal)) r.goal = r.root;  // no usable goal: it sits on the root
    r.distance = (r.goal - r.root).Length();
    r.length = ChainLength(ws.positions);
    if (n <= 2) {
      SolveSingleBone(in, prm, r, parent_inv, ws);
    } else if (n == 3) {
      SolveTwoBone(in, prm, r, parent_inv, ws);
    } else {
      SolveNJoint(in, prm, in.iterations, r, parent_inv, ws);
    }
    out.stretch_factor = r.stretch_factor;

    const bool last_takes_goal =
        in.last_joint_ik_rotation && n >= 2 && !(n == 2 && in.partial == 1);
    if (last_takes_goal) {
      // The last joint's local rotation that gives it the goal's rotation in the parent frame:
      // goal rotation * Inverse(rotation of joint n - 2).
      Quat above;
      for (std::size_t i = 0; i + 1 < n; ++i) above = ws.ik[i] * above;
      const Quat goal_rot = RotationOf(in.goal_ws * parent_inv);
      if (IsFinite(goal_rot)) ws.ik[n - 1] = goal_rot * Conjugate(above);
    }
  }

  // Blend toward FK in world orientation (parent frame), each bone by the short way.
  Quat* result = ws.ik.data();
  if (prm.w < 1.0f) {
    Quat fk_above, ik_above, blend_above;
    for (std::size_t i = 0; i < n; ++i) {
      fk_above = ws.fk[i] * fk_above;
      ik_above = ws.ik[i] * ik_above;
      Quat ik_world = ik_above;
      ik_world.MakeClosest(fk_above);
      const Quat world = prm.w > 0.0f ? Slerp(fk_above, ik_world, prm.w) : fk_above;
      ws.blended[i] = prm.w > 0.0f ? world * Conjugate(blend_above) : ws.fk[i];
      blend_above = world;
    }
    result = ws.blended.data();
  }
  if (in.partial >= 0 && static_cast<std::size_t>(in.partial) < n) {
    for (std::size_t i = 0; i < n; ++i) {
      if (static_cast<int>(i) != in.partial) result[i] = ws.fk[i];
    }
  }

  // Results: world = local * above, the scale put in front once the child is placed.
  Matrix3 above_ps;
  for (std::size_t i = 0; i < n; ++i) {
    Matrix3 local;
    result[i].MakeMatrix(local);
    local.SetTrans(ws.positions[i]);
    above_ps = local * above_ps;
    out.joint_positions[i] = above_ps.GetTrans();
    out.joint_rotations[i] = result[i];
    out.preferred_rotations[i] = ws.fk[i];
    Matrix3 world = above_ps * in.parent_ws;
    if (ws.scales[i] != Point3(1, 1, 1)) world.PreScale(ws.scales[i]);  // a no-op at 1
    out.joint_tms[i] = world;
  }
  return true;
}

}  // namespace marvolith
