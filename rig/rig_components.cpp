// Copyright Marvolith contributors.
#include "rig/rig_components.h"

#include <array>

namespace marvolith {
namespace {

constexpr RigComponentValue kNone{};

constexpr std::array<RigComponentRow, 17> kRows = {{
    {kComponentArms,
     "Arms",
     {{"Arm Pairs:", kRigArmPairs},
      {"Upper Arm Twists:", kRigUpperArmTwistBones},
      {"Forearm Twists:", kRigForearmTwistBones},
      {"Front Cannon Twists:", kRigFrontCannonTwistBones}},
     kNone,
     -1,
     0},
    {kComponentFingers,
     "Fingers",
     {{"Fingers:", kRigFingers}, {"Finger Bones:", kRigFingerBones}, kNone, kNone},
     {"Metacarpals", kRigMetacarpals},
     -1,
     0},
    {kComponentHead,
     "Head",
     {{"Heads:", kRigHeads}, kNone, kNone, kNone},
     {"Fangs", kRigFangs},
     -1,
     0},
    {kComponentLegs,
     "Legs",
     {{"Leg Pairs:", kRigLegPairs},
      {"Thigh Twists:", kRigThighTwistBones},
      {"Calf Twists:", kRigCalfTwistBones},
      {"Cannon Twists:", kRigCannonTwistBones}},
     {"Reverse Foot", kRigReverseFoot},
     -1,
     0},
    {kComponentNeck,
     "Neck",
     {{"Neck Controls:", kRigNeckControls}, {"Neck Bones:", kRigNeckBones}, kNone, kNone},
     kNone,
     kRigUseNeckBones,
     2},
    {kComponentPonytail,
     "Ponytail",
     {{"Ponytails:", kRigPonytails},
      {"Ponytail Controls:", kRigPonytailControls},
      {"Ponytail Bones:", kRigPonytailBones},
      kNone},
     kNone,
     kRigUsePonytailBones,
     3},
    {kComponentSpine,
     "Spine",
     {{"Spine Controls:", kRigSpineControls}, {"Spine Bones:", kRigSpineBones}, kNone, kNone},
     {"IK Spine", kRigIKSpine},
     kRigUseSpineBones,
     2},
    {kComponentTail,
     "Tail",
     {{"Tails:", kRigTails},
      {"Tail Controls:", kRigTailControls},
      {"Tail Bones:", kRigTailBones},
      kNone},
     kNone,
     kRigUseTailBones,
     3},
    {kComponentToes,
     "Toes",
     {{"Toes:", kRigToes}, {"Toe Bones:", kRigToeBones}, kNone, kNone},
     {"Metatarsals", kRigMetatarsals},
     -1,
     0},
    {kComponentCheekbones,
     "Cheekbones",
     {{"Cheekbone Controls:", kRigCheekboneControls},
      {"Cheekbone Bones:", kRigCheekboneBones},
      kNone,
      kNone},
     kNone,
     kRigUseCheekboneBones,
     2},
    {kComponentChin,
     "Chin",
     {{"Chin Controls:", kRigChinControls}, {"Chin Bones:", kRigChinBones}, kNone, kNone},
     kNone,
     kRigUseChinBones,
     2},
    {kComponentEyebrows,
     "Eyebrows",
     {{"Eyebrow Controls:", kRigEyebrowsControls},
      {"Eyebrow Bones:", kRigEyebrowsBones},
      kNone,
      kNone},
     kNone,
     kRigUseEyebrowBones,
     2},
    {kComponentEyelids,
     "Eyelids",
     {{"Eyelid Controls:", kRigEyelidsControls}, {"Eyelid Bones:", kRigEyelidsBones}, kNone, kNone},
     kNone,
     kRigUseEyelidBones,
     2},
    {kComponentLips,
     "Lips",
     {{"Lip Controls:", kRigLipsControls}, {"Lip Bones:", kRigLipsBones}, kNone, kNone},
     kNone,
     kRigUseLipsBones,
     2},
    {kComponentNasolabial,
     "Nasolabial",
     {{"Nasolabial Controls:", kRigNasolabialControls},
      {"Nasolabial Bones:", kRigNasolabialBones},
      kNone,
      kNone},
     kNone,
     kRigUseNasolabialBones,
     2},
    {kComponentNose,
     "Nose",
     {{"Nose Controls:", kRigNoseControls}, {"Nose Bones:", kRigNoseBones}, kNone, kNone},
     kNone,
     kRigUseNoseBones,
     2},
    {kComponentTongue,
     "Tongue",
     {{"Tongue Controls:", kRigTongueControls}, {"Tongue Bones:", kRigTongueBones}, kNone, kNone},
     kNone,
     kRigUseTongueBones,
     2},
}};

constexpr int kBodyRows = 9;

}  // namespace

std::span<const RigComponentRow> RigComponentTable() { return kRows; }

const RigComponentRow* FindRigComponentRow(int id) {
  for (const RigComponentRow& row : kRows)
    if (row.id == id) return &row;
  return nullptr;
}

std::vector<const RigComponentRow*> ListedRigComponents(const RigParamValues& p) {
  const bool face = (p[kRigFace] != 0 || p[kRigType] == kRigTypeFace) && p[kRigMorpherBased] == 0;
  const int count = face ? static_cast<int>(kRows.size()) : kBodyRows;
  std::vector<const RigComponentRow*> rows;
  rows.reserve(count);
  for (int i = 0; i < count; ++i) rows.push_back(&kRows[i]);
  return rows;
}

bool RigComponentValueShown(int param, int type) {
  switch (param) {
    case kRigFrontCannonTwistBones:
      return type == kRigTypeQuadruped;
    case kRigCannonTwistBones:
      return type >= kRigTypeFrontLegs && type <= kRigTypeCentaur;
    case kRigFangs:
      return type == kRigTypeInsect;
    default:
      return true;
  }
}

bool RigComponentValueEnabled(const RigComponentRow& row, int slot, const RigParamValues& p) {
  if (row.use_bones_param < 0 || slot + 1 != row.bones_dependency) return true;
  return p[row.use_bones_param] != 0;
}

std::string DescribeRigComponents(const RigParamValues& p, std::span<const std::string> extras) {
  std::string out;
  const int type = p[kRigType];
  for (const RigComponentRow* row : ListedRigComponents(p)) {
    out += std::to_string(row->id) + "\t" + row->name;
    for (int slot = 0; slot < 4; ++slot) {
      const RigComponentValue& v = row->values[slot];
      if (!v.label || !RigComponentValueShown(v.param, type)) continue;
      out += std::string("\t") + v.label + " " + std::to_string(p[v.param]);
      if (!RigComponentValueEnabled(*row, slot, p)) out += " (off)";
    }
    if (row->toggle.label && RigComponentValueShown(row->toggle.param, type))
      out += std::string("\t") + row->toggle.label + (p[row->toggle.param] ? " on" : " off");
    out += "\n";
  }
  for (size_t i = 0; i < extras.size(); ++i)
    out += std::to_string(kComponentExtraBase + static_cast<int>(i)) + "\t" + extras[i] + "\n";
  return out;
}

}  // namespace marvolith
