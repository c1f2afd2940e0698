// Copyright Marvolith contributors.
// Template builders. Every part builder lays its points out in a local frame of its own and takes
// a Matrix3 that places that frame in rig units (row vectors: local * part_tm). Creatures compose
// the parts. Conventions of the local frames: Z is up, the creature faces -Y, and the right side
// is -X; the left side is made by AddSidedPoint as the mirrored copy.
//
// Names: a part made once has plain roles ("clavicle", "thigh"); the second and later pair of
// arms or legs appends its one-based pair number to every role of the pair ("clavicle_2",
// "finger_2_1_3"), so raising a pair count keeps the names, and the user's edits, of the first.
// Several tails or ponytails are numbered per tail ("tail_2_4"), a single one is not ("tail_4").
#include "rig/rig_templates.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace marvolith {
namespace {

constexpr float kPi = 3.14159265358979f;
// Counts are clamped to the block's ranges so a bad value can't make thousands of points.
constexpr int kMaxCount = 99;

int Count(const RigParamValues& p, int id, int low) { return std::clamp(p[id], low, kMaxCount); }

// Points of a chain that has controls and, optionally, more bones: the bones decide when used.
int ChainCount(const RigParamValues& p, int controls_id, int bones_id, int use_bones_id) {
  return p[use_bones_id] ? Count(p, bones_id, 1) : Count(p, controls_id, 1);
}

std::string Numbered(std::string_view base, int index) {
  return std::string(base) + "_" + std::to_string(index + 1);
}

// The role of pair `pair`: plain for the first pair, numbered for the others.
std::string PairRole(std::string_view role, int pair) {
  return pair == 0 ? std::string(role) : Numbered(role, pair);
}

Matrix3 Uniform(float s) { return ScaleMatrix(Point3(s, s, s)); }

Point3 Lerp(const Point3& a, const Point3& b, float u) { return a + (b - a) * u; }

SidedIndex Both(int i) { return {i, i}; }

// The joint layout of a leg: plantigrade (kind 0), a front leg or a hind leg with a cannon.
enum class LegShape { kPlantigrade, kFront, kHind };

// The roles of a leg kind and of its foot, and the parameters that count its parts.
struct LegRoles {
  LegShape shape = LegShape::kPlantigrade;
  const char* clavicle = "leg_clavicle";
  const char* upper = "thigh";
  const char* lower = "calf";
  const char* cannon = nullptr;  // null: no cannon joint
  const char* foot = "foot";
  const char* toe = "toe";
  const char* metatarsal = "metatarsal";
  int upper_twist_id = kRigThighTwistBones;
  int lower_twist_id = kRigCalfTwistBones;
  int cannon_twist_id = kRigCannonTwistBones;
  // The hand version of a foot counts fingers instead of toes.
  int toes_id = kRigToes;
  int toe_bones_id = kRigToeBones;
  int metatarsals_id = kRigMetatarsals;
  int component = kComponentLegs;
  int toe_component = kComponentToes;
};

constexpr LegRoles kLegKind0{};
constexpr LegRoles kLegKind1{.shape = LegShape::kFront,
                             .upper = "front_thigh",
                             .lower = "front_calf",
                             .cannon = "front_cannon",
                             .foot = "front_foot",
                             .toe = "front_toe",
                             .metatarsal = "front_metatarsal"};
// Front legs that carry arm names (the quadruped's), with a hand and fingers for a foot.
constexpr LegRoles kLegKind1Arms{.shape = LegShape::kFront,
                                 .clavicle = "clavicle",
                                 .upper = "upper_arm",
                                 .lower = "forearm",
                                 .cannon = "front_cannon",
                                 .foot = "hand",
                                 .toe = "finger",
                                 .metatarsal = "metacarpal",
                                 .upper_twist_id = kRigUpperArmTwistBones,
                                 .lower_twist_id = kRigForearmTwistBones,
                                 .cannon_twist_id = kRigFrontCannonTwistBones,
                                 .toes_id = kRigFingers,
                                 .toe_bones_id = kRigFingerBones,
                                 .metatarsals_id = kRigMetacarpals,
                                 .component = kComponentArms,
                                 .toe_component = kComponentFingers};
constexpr LegRoles kLegKind2{.shape = LegShape::kHind, .cannon = "cannon"};

// Height of the ankle above the sole in foot units: a foot part placed at an ankle of height h
// is scaled by h / kAnkleHeight so that its sole rests on the ground.
constexpr float kAnkleHeight = 0.28f;

class Builder {
 public:
  // The points of a spine that later parts hang on.
  struct Spine {
    int pelvis = -1;
    std::vector<int> members;  // "spine_1".."spine_n"
    int Chest() const { return members.empty() ? pelvis : members.back(); }
  };

  Builder(RigTemplate& t, const RigParamValues& p, bool keep_previous)
      : t_(t), p_(p), keep_(keep_previous) {}

  void Build(int type);

 private:
  // One center point.
  int Center(int component,
             std::string_view name,
             int index,
             const Point3& pos,
             int parent,
             const Matrix3& tm,
             std::uint32_t flags) {
    return t_
        .AddSidedPoint(component, name, index, pos, Both(parent), tm, kSideCenter, keep_, flags)
        .right;
  }
  SidedIndex Sided(int component,
                   std::string_view name,
                   int index,
                   const Point3& pos,
                   SidedIndex parent,
                   const Matrix3& tm,
                   std::uint32_t flags) {
    return t_.AddSidedPoint(component, name, index, pos, parent, tm, side_, keep_, flags);
  }
  // In-between points from a to b at i / count for i = 1..count-1: a segment with count twist
  // bones gets count - 1 derived points, the first bone starting at a itself.
  void Twists(int component, std::string_view role, int count, SidedIndex a, SidedIndex b) {
    for (int i = 1; i < count; ++i)
      t_.AddDerivedPoint(component, std::string(role) + "_twist", i - 1, a, b,
                         static_cast<float>(i) / static_cast<float>(count), a, side_);
  }

  Spine BuildSpine(const Matrix3& tm,
                   std::string_view pelvis_role,
                   std::string_view spine_role,
                   std::uint32_t segment_flags,
                   int parent = -1);
  void BuildArmsOnSpine(const Spine& spine, float scale);
  int BuildHead(const Matrix3& tm, int parent);
  void BuildFace(const Matrix3& tm, int head);
  void BuildArm(const Matrix3& tm, int pair, SidedIndex parent);
  // Hand and foot answer their own point (the wrist, the ankle).
  SidedIndex BuildHand(const Matrix3& tm, std::string_view hand_role, int pair, SidedIndex parent);
  void BuildLeg(const Matrix3& tm, const LegRoles& roles, int pair, SidedIndex parent);
  SidedIndex BuildFoot(const Matrix3& tm, const LegRoles& roles, int pair, SidedIndex parent);
  void BuildTails(const Matrix3& tm,
                  std::string_view role,
                  int component,
                  int count,
                  int points,
                  int parent,
                  float spread);
  void BuildInsectLeg(const Matrix3& tm, int pair, SidedIndex parent);

  // Creatures.
  void BuildBiped(bool hooved);
  void BuildQuadruped();
  void BuildCentaur();
  void BuildInsect();
  void BuildFaceOnly();
  void BuildBackLegs(int pelvis);
  void BuildTail(int parent, float scale, const Point3& at);
  // The matrix of a lone sided part: at the origin for one side, apart for both.
  Matrix3 LonePart(float scale, float x, const Point3& at) const {
    Matrix3 tm = Uniform(side_ == kSideBoth ? scale : 1.0f);
    tm.Translate(Point3(side_ == kSideBoth ? x : 0.0f, 0.0f, 0.0f) + at);
    return tm;
  }

  RigTemplate& t_;
  const RigParamValues& p_;
  bool keep_;
  // Whole creatures are built on both sides; the lone parts on the sides `side` asks for.
  int side_ = kSideBoth;
};

Builder::Spine Builder::BuildSpine(const Matrix3& tm,
                                   std::string_view pelvis_role,
                                   std::string_view spine_role,
                                   std::uint32_t segment_flags,
                                   int parent) {
  // Local frame: the pelvis at the origin, the chain up +Z to the chest at 1.
  Spine s;
  const std::uint32_t flags = kPointBonePreview | segment_flags;
  s.pelvis = Center(kComponentSpine, pelvis_role, -1, Point3(0, 0, 0), parent, tm, flags);
  const int n = ChainCount(p_, kRigSpineControls, kRigSpineBones, kRigUseSpineBones);
  parent = s.pelvis;
  for (int i = 0; i < n; ++i) {
    const float u = n == 1 ? 0.5f : static_cast<float>(i) / static_cast<float>(n - 1);
    parent =
        Center(kComponentSpine, spine_role, i, Point3(0, 0, 0.15f + 0.85f * u), parent, tm, flags);
    s.members.push_back(parent);
  }
  return s;
}

int Builder::BuildHead(const Matrix3& tm, int parent) {
  // Local frame: the neck rises from the origin; the head at 0.35, its end (the crown) at 1.
  const int n = ChainCount(p_, kRigNeckControls, kRigNeckBones, kRigUseNeckBones);
  for (int i = 0; i < n; ++i)
    parent = Center(kComponentNeck, "neck", i,
                    Point3(0, 0, 0.02f + 0.33f * static_cast<float>(i) / static_cast<float>(n)),
                    parent, tm, kPointBonePreview);
  const int head =
      Center(kComponentHead, "head", -1, Point3(0, 0, 0.35f), parent, tm, kPointBonePreview);
  Center(kComponentHead, "head_end", -1, Point3(0, 0, 1.0f), head, tm, kPointEnd);
  // The face frame: the head point at its origin, the head end at (0, 0, 1).
  Matrix3 face_tm = Uniform(0.65f);
  face_tm.Translate(Point3(0, 0, 0.35f));
  face_tm = face_tm * tm;
  if (p_[kRigFangs])
    Sided(kComponentHead, "fang", -1, Point3(-0.08f, -0.45f, 0.05f), Both(head), face_tm,
          kPointEnd);
  const int ponytails = Count(p_, kRigPonytails, 0);
  if (ponytails > 0) {
    // Down the back of the head.
    Matrix3 pony_tm = Uniform(0.8f);
    pony_tm.Translate(Point3(0, 0.35f, 0.75f));
    BuildTails(pony_tm * face_tm, "ponytail", kComponentPonytail, ponytails,
               ChainCount(p_, kRigPonytailControls, kRigPonytailBones, kRigUsePonytailBones), head,
               0.15f);
  }
  if (p_[kRigFace]) BuildFace(face_tm, head);
  return head;
}

void Builder::BuildFace(const Matrix3& tm, int head) {
  // Face frame: the head point at the origin, the crown at z 1, the face toward -Y.
  const SidedIndex h = Both(head);
  const SidedIndex eye =
      Sided(kComponentEyes, "eye", -1, Point3(-0.16f, -0.38f, 0.55f), h, tm, kPointEnd);
  const int jaw =
      Center(kComponentChin, "jaw", -1, Point3(0, -0.1f, 0.3f), head, tm, kPointBonePreview);
  const int chin = Center(kComponentChin, "chin", -1, Point3(0, -0.5f, -0.02f), jaw, tm, 0);

  // A region: a control point and its corner, and derived points for the bones between them.
  auto region = [&](int component, std::string_view role, SidedIndex a, SidedIndex b,
                    int controls_id, int bones_id, int use_id) {
    const int n = ChainCount(p_, controls_id, bones_id, use_id);
    for (int i = 0; i < n; ++i)
      t_.AddDerivedPoint(component, std::string(role) + "_bone", i, a, b,
                         static_cast<float>(i + 1) / static_cast<float>(n + 1), a, side_);
  };

  const SidedIndex brow =
      Sided(kComponentEyebrows, "eyebrow", -1, Point3(-0.07f, -0.45f, 0.7f), h, tm, 0);
  const SidedIndex brow_corner = Sided(kComponentEyebrows, "eyebrow_corner", -1,
                                       Point3(-0.3f, -0.36f, 0.7f), brow, tm, kPointEnd);
  region(kComponentEyebrows, "eyebrow", brow, brow_corner, kRigEyebrowsControls, kRigEyebrowsBones,
         kRigUseEyebrowBones);

  const SidedIndex lid_corner = Sided(kComponentEyelids, "eyelid_bottom_corner", -1,
                                      Point3(-0.27f, -0.36f, 0.55f), eye, tm, kPointEnd);
  const SidedIndex lid_top =
      Sided(kComponentEyelids, "eyelid_top", -1, Point3(-0.16f, -0.44f, 0.6f), eye, tm, 0);
  const SidedIndex lid_bottom =
      Sided(kComponentEyelids, "eyelid_bottom", -1, Point3(-0.16f, -0.43f, 0.5f), eye, tm, 0);
  region(kComponentEyelids, "eyelid_top", lid_top, lid_corner, kRigEyelidsControls,
         kRigEyelidsBones, kRigUseEyelidBones);
  region(kComponentEyelids, "eyelid_bottom", lid_bottom, lid_corner, kRigEyelidsControls,
         kRigEyelidsBones, kRigUseEyelidBones);

  const SidedIndex cheekbone =
      Sided(kComponentCheekbones, "cheekbone", -1, Point3(-0.14f, -0.42f, 0.43f), h, tm, 0);
  const SidedIndex cheekbone_corner = Sided(kComponentCheekbones, "cheekbone_corner", -1,
                                            Point3(-0.33f, -0.3f, 0.45f), cheekbone, tm, kPointEnd);
  region(kComponentCheekbones, "cheekbone", cheekbone, cheekbone_corner, kRigCheekboneControls,
         kRigCheekboneBones, kRigUseCheekboneBones);

  Sided(kComponentCheekbones, "cheek", -1, Point3(-0.25f, -0.38f, 0.25f), h, tm, 0);

  const int nose = Center(kComponentNose, "nose", -1, Point3(0, -0.56f, 0.4f), head, tm, 0);
  const SidedIndex nasolabial =
      Sided(kComponentNasolabial, "nasolabial", -1, Point3(-0.08f, -0.47f, 0.33f), h, tm, 0);
  // The nose's bones run from the tip to the nostril wings.
  region(kComponentNose, "nose", Both(nose), nasolabial, kRigNoseControls, kRigNoseBones,
         kRigUseNoseBones);
  const SidedIndex nasolabial_corner =
      Sided(kComponentNasolabial, "nasolabial_corner", -1, Point3(-0.15f, -0.44f, 0.15f),
            nasolabial, tm, kPointEnd);
  region(kComponentNasolabial, "nasolabial", nasolabial, nasolabial_corner, kRigNasolabialControls,
         kRigNasolabialBones, kRigUseNasolabialBones);

  const SidedIndex lip_corner =
      Sided(kComponentLips, "lip_corner", -1, Point3(-0.12f, -0.45f, 0.18f), h, tm, 0);
  const int lip_top = Center(kComponentLips, "lip_top", -1, Point3(0, -0.52f, 0.22f), head, tm, 0);
  region(kComponentLips, "lip_top", Both(lip_top), lip_corner, kRigLipsControls, kRigLipsBones,
         kRigUseLipsBones);
  const int lip_bottom =
      Center(kComponentLips, "lip_bottom", -1, Point3(0, -0.5f, 0.13f), jaw, tm, 0);
  const SidedIndex lip_bottom_corner =
      Sided(kComponentLips, "lip_bottom_corner", -1, Point3(-0.09f, -0.47f, 0.13f), Both(jaw), tm,
            kPointEnd);
  region(kComponentLips, "lip_bottom", Both(lip_bottom), lip_bottom_corner, kRigLipsControls,
         kRigLipsBones, kRigUseLipsBones);

  const SidedIndex chin_corner = Sided(kComponentChin, "chin_corner", -1,
                                       Point3(-0.12f, -0.45f, 0.0f), Both(chin), tm, kPointEnd);
  region(kComponentChin, "chin", Both(chin), chin_corner, kRigChinControls, kRigChinBones,
         kRigUseChinBones);

  // The tongue is a chain from the back of the mouth forward.
  const int tongue = ChainCount(p_, kRigTongueControls, kRigTongueBones, kRigUseTongueBones);
  int parent = jaw;
  for (int i = 0; i < tongue; ++i) {
    const float u = tongue == 1 ? 0.0f : static_cast<float>(i) / static_cast<float>(tongue - 1);
    parent = Center(kComponentTongue, "tongue", i, Point3(0, -0.2f - 0.22f * u, 0.19f), parent, tm,
                    kPointBonePreview);
  }
}

void Builder::BuildArm(const Matrix3& tm, int pair, SidedIndex parent) {
  const std::uint32_t bone = kPointBonePreview;
  const SidedIndex clavicle =
      Sided(kComponentArms, PairRole("clavicle", pair), -1, Point3(-0.04f, 0, 0), parent, tm, bone);
  const SidedIndex upper = Sided(kComponentArms, PairRole("upper_arm", pair), -1,
                                 Point3(-0.2f, 0, 0), clavicle, tm, bone);
  const SidedIndex fore = Sided(kComponentArms, PairRole("forearm", pair), -1,
                                Point3(-0.51f, 0.05f, -0.25f), upper, tm, bone);
  Matrix3 hand_tm = Uniform(0.35f) * RotateXMatrix(0.0f) * RotateYMatrix(-0.62831855f) *
                    RotateZMatrix(0.15707964f);
  hand_tm.Translate(Point3(-0.78f, 0, -0.49f));
  const SidedIndex hand = BuildHand(hand_tm * tm, PairRole("hand", pair), pair, fore);
  Twists(kComponentArms, PairRole("upper_arm", pair), Count(p_, kRigUpperArmTwistBones, 0), upper,
         fore);
  Twists(kComponentArms, PairRole("forearm", pair), Count(p_, kRigForearmTwistBones, 0), fore,
         hand);
}

SidedIndex Builder::BuildHand(const Matrix3& tm,
                              std::string_view hand_role,
                              int pair,
                              SidedIndex parent) {
  // Local frame: the wrist at the origin, the fingers along -X, the thumb toward -Y (front).
  const SidedIndex hand =
      Sided(kComponentArms, hand_role, -1, Point3(0, 0, 0), parent, tm, kPointBonePreview);
  Sided(kComponentArms, std::string(hand_role) + "_end", -1, Point3(-0.36f, 0, 0), hand, tm,
        kPointEnd);
  const int fingers = Count(p_, kRigFingers, 0);
  const int joints = Count(p_, kRigFingerBones, 1);
  for (int f = 0; f < fingers; ++f) {
    // With more than one finger the first is the thumb, set forward and turned down.
    const bool thumb = f == 0 && fingers > 1;
    const int others = fingers - (fingers > 1 ? 1 : 0);
    const int k = f - (fingers > 1 ? 1 : 0);
    const float y = others == 1
                        ? 0.0f
                        : -0.12f + 0.24f * static_cast<float>(k) / static_cast<float>(others - 1);
    const Point3 base = thumb ? Point3(-0.1f, -0.16f, -0.05f) : Point3(-0.42f, y, 0);
    const Point3 dir = thumb ? Point3(-0.22f, -0.2f, -0.06f) : Point3(-0.45f, y * 0.3f, 0);
    SidedIndex up = hand;
    if (p_[kRigMetacarpals])
      up = Sided(kComponentFingers, PairRole("metacarpal", pair), f,
                 Lerp(Point3(-0.08f, 0, 0), base, 0.3f), hand, tm, kPointBonePreview);
    for (int j = 0; j < joints; ++j) {
      const float u = static_cast<float>(j) / static_cast<float>(joints);
      up = Sided(kComponentFingers, Numbered(PairRole("finger", pair), f), j, base + dir * u, up,
                 tm, j + 1 < joints ? kPointBonePreview : 0u);
    }
  }
  return hand;
}

void Builder::BuildLeg(const Matrix3& tm, const LegRoles& roles, int pair, SidedIndex parent) {
  // Local frame in leg units: the hip at height 1, the sole on the ground at 0.
  const bool cannon = roles.cannon != nullptr;
  const std::uint32_t bone = kPointBonePreview;
  Point3 at[5];
  if (roles.shape == LegShape::kPlantigrade) {
    // Plantigrade: hip, knee forward, ankle.
    at[0] = Point3(-0.03f, 0, 1.0f);
    at[1] = Point3(-0.16f, 0, 0.97f);
    at[2] = Point3(-0.17f, -0.04f, 0.53f);
    at[4] = Point3(-0.17f, 0.0f, 0.1f);
  } else if (roles.shape == LegShape::kFront) {
    // Front leg: shoulder blade, shoulder, elbow back, knee, fetlock.
    at[0] = Point3(-0.05f, 0.02f, 1.05f);
    at[1] = Point3(-0.16f, -0.05f, 0.85f);
    at[2] = Point3(-0.16f, 0.05f, 0.55f);
    at[3] = Point3(-0.16f, -0.01f, 0.3f);
    at[4] = Point3(-0.16f, 0.0f, 0.08f);
  } else {
    // Hind leg: hip, stifle forward, hock back, fetlock.
    at[0] = Point3(-0.05f, 0, 1.0f);
    at[1] = Point3(-0.18f, 0, 0.95f);
    at[2] = Point3(-0.18f, -0.18f, 0.6f);
    at[3] = Point3(-0.18f, 0.1f, 0.32f);
    at[4] = Point3(-0.18f, 0.05f, 0.08f);
  }
  const int c = roles.component;
  const SidedIndex clav = Sided(c, PairRole(roles.clavicle, pair), -1, at[0], parent, tm, bone);
  const SidedIndex upper = Sided(c, PairRole(roles.upper, pair), -1, at[1], clav, tm, bone);
  const SidedIndex lower = Sided(c, PairRole(roles.lower, pair), -1, at[2], upper, tm, bone);
  SidedIndex above_foot = lower;
  if (cannon) above_foot = Sided(c, PairRole(roles.cannon, pair), -1, at[3], lower, tm, bone);
  Matrix3 foot_tm = Uniform(at[4].z / kAnkleHeight);
  foot_tm.Translate(at[4]);
  const SidedIndex foot = BuildFoot(foot_tm * tm, roles, pair, above_foot);
  Twists(c, PairRole(roles.upper, pair), Count(p_, roles.upper_twist_id, 0), upper, lower);
  Twists(c, PairRole(roles.lower, pair), Count(p_, roles.lower_twist_id, 0), lower,
         cannon ? above_foot : foot);
  if (cannon)
    Twists(c, PairRole(roles.cannon, pair), Count(p_, roles.cannon_twist_id, 0), above_foot, foot);
}

SidedIndex Builder::BuildFoot(const Matrix3& tm,
                              const LegRoles& roles,
                              int pair,
                              SidedIndex parent) {
  // Local frame in foot units: the ankle at the origin, the sole at -kAnkleHeight, toes to -Y.
  const std::string role = PairRole(roles.foot, pair);
  const int c = roles.component;
  const SidedIndex foot = Sided(c, role, -1, Point3(0, 0, 0), parent, tm, kPointBonePreview);
  Sided(c, role + "_end", -1, Point3(0, -0.55f, -0.22f), foot, tm, kPointEnd);
  if (p_[kRigReverseFoot]) {
    const float sole = -kAnkleHeight;
    Sided(c, role + "_inner", -1, Point3(0.2f, -0.5f, sole), foot, tm, kPointEnd);
    Sided(c, role + "_outer", -1, Point3(-0.2f, -0.5f, sole), foot, tm, kPointEnd);
    Sided(c, role + "_heel", -1, Point3(0, 0.2f, sole), foot, tm, kPointEnd);
    Sided(c, role + "_tip", -1, Point3(0, -0.95f, sole), foot, tm, kPointEnd);
  }
  const int toes = Count(p_, roles.toes_id, 0);
  const int joints = Count(p_, roles.toe_bones_id, 1);
  for (int t = 0; t < toes; ++t) {
    const float x =
        toes == 1 ? 0.0f : 0.16f - 0.32f * static_cast<float>(t) / static_cast<float>(toes - 1);
    SidedIndex up = foot;
    if (p_[roles.metatarsals_id])
      up = Sided(roles.toe_component, PairRole(roles.metatarsal, pair), t,
                 Point3(x * 0.7f, -0.3f, -0.15f), foot, tm, kPointBonePreview);
    for (int j = 0; j < joints; ++j) {
      const float u = static_cast<float>(j) / static_cast<float>(joints);
      up = Sided(roles.toe_component, Numbered(PairRole(roles.toe, pair), t), j,
                 Point3(x, -0.62f - 0.26f * u, -0.23f), up, tm,
                 j + 1 < joints ? kPointBonePreview : 0u);
    }
  }
  return foot;
}

void Builder::BuildTails(const Matrix3& tm,
                         std::string_view role,
                         int component,
                         int count,
                         int points,
                         int parent,
                         float spread) {
  // Local frame: from the origin backward (+Y), drooping; several tails fan out in X.
  for (int k = 0; k < count; ++k) {
    const std::string base = count == 1 ? std::string(role) : Numbered(role, k);
    const float x =
        count == 1 ? 0.0f : spread * (static_cast<float>(k) / static_cast<float>(count - 1) - 0.5f);
    int up = parent;
    for (int i = 0; i < points; ++i) {
      const float u = static_cast<float>(i) / static_cast<float>(points);
      up = Center(component, base, i, Point3(x * (0.3f + u), 0.1f + 0.9f * u, -0.3f * u * u), up,
                  tm, i + 1 < points ? kPointBonePreview : 0u);
    }
  }
}

void Builder::BuildInsectLeg(const Matrix3& tm, int pair, SidedIndex parent) {
  // Local frame: the coxa at the origin, the leg spreading to -X, the tip on the ground at -1.
  static constexpr const char* kRoles[] = {"coxa",       "femur",  "tibia",
                                           "metatarsus", "tarsus", "leg_tip"};
  static constexpr Point3 kAt[] = {Point3(-0.05f, 0, 0),     Point3(-0.15f, 0, 0.05f),
                                   Point3(-0.5f, 0, 0.35f),  Point3(-0.75f, 0, -0.3f),
                                   Point3(-0.85f, 0, -0.8f), Point3(-0.9f, 0, -1.0f)};
  SidedIndex up = parent;
  for (int i = 0; i < 6; ++i)
    up = Sided(kComponentLegs, PairRole(kRoles[i], pair), -1, kAt[i], up, tm,
               i < 5 ? kPointBonePreview : kPointEnd);
}

// The member of a spine that pair `pair` of `pairs` hangs on: the chest for the first pair,
// lower members for the later ones, in proportion to the pair index.
int SpineMemberForPair(const std::vector<int>& members, int pair, int pairs) {
  const int n = static_cast<int>(members.size());
  const float u = 1.0f - static_cast<float>(pair) / static_cast<float>(std::max(pairs, 1));
  return members[std::clamp(static_cast<int>(std::lround(static_cast<float>(n - 1) * u)), 0,
                            n - 1)];
}

void Builder::BuildArmsOnSpine(const Spine& spine, float scale) {
  const int arm_pairs = Count(p_, kRigArmPairs, 0);
  for (int a = 0; a < arm_pairs && !spine.members.empty(); ++a) {
    const int at = SpineMemberForPair(spine.members, a, arm_pairs);
    Matrix3 arm_tm = Uniform(scale);
    arm_tm.Translate(t_.Points()[at].pos - Point3(0, 0, 0.02f));
    BuildArm(arm_tm, a, Both(at));
  }
}

void Builder::BuildBiped(bool hooved) {
  Matrix3 spine_tm = Uniform(0.29f);
  spine_tm.Translate(Point3(0, 0, 0.55f));
  const Spine spine = BuildSpine(spine_tm, "pelvis", "spine", kPointWide);
  if (p_[kRigHeads] > 0) {
    Matrix3 head_tm = Uniform(0.16f);
    head_tm.Translate(Point3(0, 0, 0.84f));
    BuildHead(head_tm, spine.Chest());
  }
  BuildArmsOnSpine(spine, 0.39f);
  const int leg_pairs = Count(p_, kRigLegPairs, 0);
  for (int l = 0; l < leg_pairs; ++l) {
    Matrix3 leg_tm = Uniform(0.55f);
    leg_tm.Translate(Point3(0, 0.2f * static_cast<float>(l), 0));
    BuildLeg(leg_tm, hooved ? kLegKind2 : kLegKind0, l, Both(spine.pelvis));
  }
  BuildTail(spine.pelvis, 0.45f, Point3(0, 0.04f, 0.53f));
}

// The horizontal body of four-legged creatures: pelvis at the back, chest at the front.
Matrix3 HorizontalBodyTm() {
  Matrix3 tm = Uniform(0.49f) * RotateXMatrix(kPi / 2);  // +Z (up the spine) turns to -Y
  tm.Translate(Point3(0, 0.24f, 0.55f));
  return tm;
}

void Builder::BuildQuadruped() {
  const Spine spine = BuildSpine(HorizontalBodyTm(), "pelvis", "spine", kPointWide);
  if (p_[kRigHeads] > 0) {
    Matrix3 head_tm = Uniform(0.25f) * RotateXMatrix(0.6f);
    head_tm.Translate(Point3(0, -0.28f, 0.56f));
    BuildHead(head_tm, spine.Chest());
  }
  // Front legs carry the arm names, so hand and finger roles apply to the front feet.
  const int arm_pairs = Count(p_, kRigArmPairs, 0);
  for (int a = 0; a < arm_pairs && !spine.members.empty(); ++a) {
    const int at = SpineMemberForPair(spine.members, a, arm_pairs);
    Matrix3 leg_tm = Uniform(0.55f);
    leg_tm.Translate(Point3(0, t_.Points()[at].pos.y, 0));
    BuildLeg(leg_tm, kLegKind1Arms, a, Both(at));
  }
  BuildBackLegs(spine.pelvis);
  BuildTail(spine.pelvis, 0.4f, Point3(0, 0.27f, 0.56f));
}

void Builder::BuildBackLegs(int pelvis) {
  const int leg_pairs = Count(p_, kRigLegPairs, 0);
  for (int l = 0; l < leg_pairs; ++l) {
    Matrix3 leg_tm = Uniform(0.55f);
    leg_tm.Translate(Point3(0, 0.26f - 0.15f * static_cast<float>(l), 0));
    BuildLeg(leg_tm, kLegKind2, l, Both(pelvis));
  }
}

void Builder::BuildTail(int parent, float scale, const Point3& at) {
  const int tails = Count(p_, kRigTails, 0);
  if (tails == 0) return;
  Matrix3 tail_tm = Uniform(scale);
  tail_tm.Translate(at);
  BuildTails(tail_tm, "tail", kComponentTail, tails,
             ChainCount(p_, kRigTailControls, kRigTailBones, kRigUseTailBones), parent, 0.4f);
}

void Builder::BuildCentaur() {
  const Spine body = BuildSpine(HorizontalBodyTm(), "pelvis", "spine", kPointWide);
  BuildBackLegs(body.pelvis);
  BuildTail(body.pelvis, 0.4f, Point3(0, 0.27f, 0.56f));
  // The upright body stands on the front of the horizontal one.
  Matrix3 upper_tm = Uniform(0.3f);
  upper_tm.Translate(Point3(0, -0.27f, 0.6f));
  const Spine upper = BuildSpine(upper_tm, "upper_pelvis", "upper_spine", kPointWide, body.Chest());
  if (p_[kRigHeads] > 0) {
    Matrix3 head_tm = Uniform(0.16f);
    head_tm.Translate(Point3(0, -0.27f, 0.9f));
    BuildHead(head_tm, upper.Chest());
  }
  BuildArmsOnSpine(upper, 0.39f);
  // Both leg pairs have a clavicle; the front one is renamed to keep names unique.
  LegRoles front = kLegKind1;
  front.clavicle = "front_leg_clavicle";
  Matrix3 leg_tm = Uniform(0.55f);
  leg_tm.Translate(Point3(0, -0.22f, 0));
  BuildLeg(leg_tm, front, 0, Both(body.Chest()));
}

void Builder::BuildInsect() {
  Matrix3 body_tm = Uniform(0.6f) * RotateXMatrix(kPi / 2);
  body_tm.Translate(Point3(0, 0.3f, 0.4f));
  const Spine body = BuildSpine(body_tm, "pelvis", "spine", kPointWide | kPointFins);
  if (p_[kRigHeads] > 0) {
    // Tilted forward, so the ponytails (antennae) rise from its top.
    Matrix3 head_tm = Uniform(0.2f) * RotateXMatrix(1.2f);
    head_tm.Translate(Point3(0, -0.33f, 0.42f));
    BuildHead(head_tm, body.Chest());
  }
  const int pairs = Count(p_, kRigLegPairs, 0);
  const int n = static_cast<int>(body.members.size());
  for (int k = 0; k < pairs && n > 0; ++k) {
    // Pairs spread over the thorax from front to back, the front ones reaching forward.
    const float u = pairs == 1 ? 0.5f : static_cast<float>(k) / static_cast<float>(pairs - 1);
    const int at = body.members[std::clamp(
        static_cast<int>(std::lround((n - 1) * (0.85f - 0.5f * u))), 0, n - 1)];
    Matrix3 leg_tm = Uniform(0.4f) * RotateZMatrix(pairs == 1 ? 0.0f : 0.5f - u);
    leg_tm.Translate(Point3(0, t_.Points()[at].pos.y, 0.4f));
    BuildInsectLeg(leg_tm, k, Both(at));
  }
  BuildTail(body.pelvis, 0.5f, Point3(0, 0.32f, 0.4f));
}

void Builder::BuildFaceOnly() {
  const int head =
      Center(kComponentHead, "head", -1, Point3(0, 0, 0), -1, Matrix3(), kPointBonePreview);
  Center(kComponentHead, "head_end", -1, Point3(0, 0, 1.0f), head, Matrix3(), kPointEnd);
  BuildFace(Matrix3(), head);
}

// The types that build a lone part, on the sides the parameter `side` asks for.
bool TakesSide(int type) {
  switch (type) {
    case kRigTypeHands:
    case kRigTypeFeet:
    case kRigTypeArms:
    case kRigTypeLegs:
    case kRigTypeFrontLegs:
    case kRigTypeBackLegs:
    case kRigTypeFrontPaws:
    case kRigTypeBackPaws:
    case kRigTypeInsectLeg:
      return true;
    default:
      return false;
  }
}

void Builder::Build(int type) {
  if (TakesSide(type)) side_ = std::clamp(p_[kRigSide], 0, 2);
  switch (type) {
    case kRigTypeBiped:
      BuildBiped(false);
      break;
    case kRigTypeHands:
      BuildHand(LonePart(0.8f, -0.2f, Point3(0, 0, 0)), "hand", 0, {});
      break;
    case kRigTypeFeet:
      BuildFoot(LonePart(1.0f, -0.4f, Point3(0, 0, kAnkleHeight)), kLegKind0, 0, {});
      break;
    case kRigTypeFrontPaws:
      BuildFoot(LonePart(1.0f, -0.4f, Point3(0, 0, kAnkleHeight)), kLegKind1, 0, {});
      break;
    case kRigTypeBackPaws:
      BuildFoot(LonePart(1.0f, -0.4f, Point3(0, 0, kAnkleHeight)), kLegKind2, 0, {});
      break;
    case kRigTypeArms: {
      const int pairs = Count(p_, kRigArmPairs, 0);
      for (int a = 0; a < pairs; ++a) {
        Matrix3 arm_tm = Uniform(0.39f);
        arm_tm.Translate(Point3(0, 0, 0.82f - 0.15f * static_cast<float>(a)));
        BuildArm(arm_tm, a, {});
      }
      break;
    }
    case kRigTypeLegs:
      BuildLeg(Uniform(0.55f), kLegKind0, 0, {});
      break;
    case kRigTypeSpine: {
      Matrix3 spine_tm = Uniform(0.29f);
      spine_tm.Translate(Point3(0, 0, 0.55f));
      BuildSpine(spine_tm, "pelvis", "spine", kPointWide);
      break;
    }
    case kRigTypeHead:
      BuildHead(Matrix3(), -1);
      break;
    case kRigTypeTail:
      BuildTail(-1, 1.0f, Point3(0, 0, 0.5f));
      break;
    case kRigTypeFrontLegs:
    case kRigTypeBackLegs: {
      const bool front = type == kRigTypeFrontLegs;
      const int pelvis = Center(kComponentSpine, "pelvis", -1, Point3(0, 0, front ? 0.58f : 0.55f),
                                -1, Matrix3(), kPointBonePreview | kPointWide);
      BuildLeg(Uniform(0.55f), front ? kLegKind1 : kLegKind2, 0, Both(pelvis));
      break;
    }
    case kRigTypeQuadruped:
      BuildQuadruped();
      break;
    case kRigTypeMinotaur:
      BuildBiped(true);
      break;
    case kRigTypeCentaur:
      BuildCentaur();
      break;
    case kRigTypeInsectLeg:
      BuildInsectLeg(LonePart(1.0f, 0.0f, Point3(0, 0, 1.0f)), 0, {});
      break;
    case kRigTypeInsect:
      BuildInsect();
      break;
    case kRigTypeFace:
      BuildFaceOnly();
      break;
    default:
      // Ears (8) and the types from 19 on have no template: only extras make points.
      break;
  }
}

}  // namespace

void BuildRigTemplate(RigTemplate& t, const RigParamValues& p, bool keep_previous) {
  Builder(t, p, keep_previous).Build(p[kRigType]);
}

}  // namespace marvolith
