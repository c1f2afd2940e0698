// Copyright Marvolith contributors.
#include "rig/rig_params.h"

#include <cctype>
#include <charconv>
#include <string>

namespace marvolith {
namespace {

constexpr const char* kTypeNames[kRigTypeCount] = {
    "Biped",     "Hands",    "Feet",      "Arms",      "Legs",      "Spine",     "Head",
    "Tail",      "Ears",     "FrontLegs", "BackLegs",  "Quadruped", "Minotaur",  "Centaur",
    "FrontPaws", "BackPaws", "InsectLeg", "Insect",    "Face",      "Ant",       "Bird",
    "Octopus",   "Snake",    "Fish",      "Claws",     "BirdLeg",   "Wing",      "Tentacle",
};

struct IntDefault {
  int id;
  int value;
};

// Every int, bool and index parameter of the block with its default.
constexpr IntDefault kIntDefaults[] = {
    {kRigActive, 1},
    {kRigType, 0},
    {kRigDrawOnTop, 1},
    {kRigSide, 2},
    {kRigAffectChildren, 1},
    {kRigAffectMirror, 1},
    {kRigMirrorRelativeToParent, 1},
    {kRigIKFKSolvers, 1},
    {kRigSubControls, 0},
    {kRigBendyControls, 0},
    {kRigRootBone, 0},
    {kRigCorrectiveBones, 0},
    {kRigEndBones, 0},
    {kRigHeads, 1},
    {kRigNeckControls, 1},
    {kRigNeckBones, 1},
    {kRigUseNeckBones, 0},
    {kRigPonytails, 0},
    {kRigPonytailControls, 3},
    {kRigPonytailBones, 6},
    {kRigUsePonytailBones, 0},
    {kRigFangs, 1},
    {kRigSpineControls, 3},
    {kRigSpineBones, 6},
    {kRigUseSpineBones, 1},
    {kRigIKSpine, 1},
    {kRigTails, 0},
    {kRigTailControls, 3},
    {kRigTailBones, 6},
    {kRigUseTailBones, 0},
    {kRigArmPairs, 1},
    {kRigFingers, 5},
    {kRigFingerBones, 3},
    {kRigMetacarpals, 0},
    {kRigLegPairs, 1},
    {kRigToes, 1},
    {kRigToeBones, 1},
    {kRigMetatarsals, 0},
    {kRigReverseFoot, 1},
    {kRigUpperArmTwistBones, 3},
    {kRigForearmTwistBones, 3},
    {kRigFrontCannonTwistBones, 3},
    {kRigThighTwistBones, 3},
    {kRigCalfTwistBones, 3},
    {kRigCannonTwistBones, 3},
    {kRigFace, 0},
    {kRigMorpherBased, 0},
    {kRigEyelidsControls, 1},
    {kRigEyelidsBones, 3},
    {kRigUseEyelidBones, 0},
    {kRigEyebrowsControls, 3},
    {kRigEyebrowsBones, 7},
    {kRigUseEyebrowBones, 0},
    {kRigCheekboneControls, 3},
    {kRigCheekboneBones, 7},
    {kRigUseCheekboneBones, 0},
    {kRigNoseControls, 1},
    {kRigNoseBones, 2},
    {kRigUseNoseBones, 0},
    {kRigLipsControls, 1},
    {kRigLipsBones, 3},
    {kRigUseLipsBones, 0},
    {kRigNasolabialControls, 1},
    {kRigNasolabialBones, 3},
    {kRigUseNasolabialBones, 1},
    {kRigChinControls, 1},
    {kRigChinBones, 3},
    {kRigUseChinBones, 0},
    {kRigTongueControls, 2},
    {kRigTongueBones, 4},
    {kRigUseTongueBones, 0},
    {kRigSelectedComponent, 0},
};

bool EqualNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

}  // namespace

const char* RigTypeName(int type) {
  return type >= 0 && type < kRigTypeCount ? kTypeNames[type] : nullptr;
}

int RigTypeFromText(std::string_view text) {
  for (int type = 0; type < kRigTypeCount; ++type)
    if (EqualNoCase(text, kTypeNames[type])) return type;
  int number = -1;
  const char* end = text.data() + text.size();
  auto [ptr, ec] = std::from_chars(text.data(), end, number);
  if (text.empty() || ec != std::errc() || ptr != end) return -1;
  return number >= 0 && number < kRigTypeCount ? number : -1;
}

RigParamValues::RigParamValues() {
  for (const IntDefault& d : kIntDefaults) values_[d.id] = d.value;
}

bool IsRigIntParam(int id) {
  for (const IntDefault& d : kIntDefaults)
    if (d.id == id) return true;
  return false;
}

}  // namespace marvolith
