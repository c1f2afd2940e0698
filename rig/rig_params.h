// Copyright Marvolith contributors.
// The parameters of a rig template by their block ids, the rig types and sides, and the plain
// copy of the block's int and bool values that the template builders read.
#pragma once

#include <array>
#include <string_view>

#include "host/base/ids.h"

namespace marvolith {

/// Ids of the RigSystem block "params" (block 0). The ids are stored in scene and .rig files.
enum RigParam : int {
  kRigNodes = 0,
  kRigActive = 1,
  kRigName = 2,
  kRigType = 3,
  kRigHelperSize = 4,
  kRigDrawOnTop = 5,
  kRigSide = 6,
  kRigAffectChildren = 7,
  kRigAffectMirror = 8,
  kRigMirrorRelativeToParent = 9,
  kRigColor1 = 10,
  kRigColor2 = 11,
  kRigColor3 = 12,
  kRigColor4 = 13,
  kRigColor5 = 14,
  kRigColor6 = 15,
  kRigIKFKSolvers = 16,
  kRigSubControls = 19,
  kRigBendyControls = 20,
  kRigRootBone = 21,
  kRigCorrectiveBones = 22,
  kRigEndBones = 23,
  kRigFingers = 31,
  kRigFingerBones = 32,
  kRigMetacarpals = 33,
  kRigToes = 34,
  kRigToeBones = 35,
  kRigMetatarsals = 36,
  kRigReverseFoot = 37,
  kRigUpperArmTwistBones = 38,
  kRigForearmTwistBones = 39,
  kRigFrontCannonTwistBones = 40,
  kRigThighTwistBones = 41,
  kRigCalfTwistBones = 42,
  kRigCannonTwistBones = 43,
  kRigSpineControls = 44,
  kRigSpineBones = 46,
  kRigIKSpine = 47,
  kRigNeckControls = 48,
  kRigNeckBones = 49,
  kRigFace = 50,
  kRigMorpherBased = 51,
  kRigEyelidsControls = 52,
  kRigEyelidsBones = 53,
  kRigEyebrowsControls = 54,
  kRigEyebrowsBones = 55,
  kRigCheekboneControls = 56,
  kRigCheekboneBones = 57,
  kRigNoseControls = 58,
  kRigNoseBones = 59,
  kRigLipsControls = 60,
  kRigLipsBones = 61,
  kRigNasolabialControls = 62,
  kRigNasolabialBones = 63,
  kRigChinControls = 64,
  kRigChinBones = 65,
  kRigTongueControls = 66,
  kRigTongueBones = 67,
  kRigTailControls = 68,
  kRigTailBones = 69,
  kRigFangs = 72,
  kRigHeads = 74,
  kRigPonytails = 75,
  kRigTails = 76,
  kRigArmPairs = 77,
  kRigLegPairs = 78,
  kRigPonytailControls = 79,
  kRigPonytailBones = 80,
  kRigSelectedComponent = 81,
  kRigUseSpineBones = 82,
  kRigUseNeckBones = 83,
  kRigUseTailBones = 84,
  kRigUsePonytailBones = 85,
  kRigUseEyelidBones = 86,
  kRigUseEyebrowBones = 87,
  kRigUseCheekboneBones = 88,
  kRigUseNoseBones = 89,
  kRigUseLipsBones = 90,
  kRigUseNasolabialBones = 91,
  kRigUseChinBones = 92,
  kRigUseTongueBones = 93,
};
/// One past the highest id.
inline constexpr int kRigParamIdCount = 94;

/// Rig types (the enumeration `type`). Types 19 and above have no template and no builder.
enum RigType : int {
  kRigTypeBiped = 0,
  kRigTypeHands = 1,
  kRigTypeFeet = 2,
  kRigTypeArms = 3,
  kRigTypeLegs = 4,
  kRigTypeSpine = 5,
  kRigTypeHead = 6,
  kRigTypeTail = 7,
  kRigTypeEars = 8,
  kRigTypeFrontLegs = 9,
  kRigTypeBackLegs = 10,
  kRigTypeQuadruped = 11,
  kRigTypeMinotaur = 12,
  kRigTypeCentaur = 13,
  kRigTypeFrontPaws = 14,
  kRigTypeBackPaws = 15,
  kRigTypeInsectLeg = 16,
  kRigTypeInsect = 17,
  kRigTypeFace = 18,
  kRigTypeAnt = 19,
  kRigTypeTentacle = 27,
};
inline constexpr int kRigTypeCount = 28;
/// The first type that has no template of its own.
inline constexpr int kRigFirstTypeWithoutTemplate = 19;

/// "Biped", "Hands", ... "Tentacle"; null outside 0..27.
const char* RigTypeName(int type);
/// The type of a name (case-insensitive) or of a decimal number 0..27; -1 for anything else.
int RigTypeFromText(std::string_view text);

/// Sides of points, extras and point queries. The parameter `side` takes 0..2 only.
enum RigSide : int {
  kSideNone = -1,
  kSideRight = 0,
  kSideLeft = 1,
  kSideBoth = 2,
  kSideCenter = 3,
};

/// Component ids: what a point belongs to, and what `selected_component` selects. Extras count
/// from kComponentExtraBase: the extra with index i is kComponentExtraBase + i.
enum RigComponent : int {
  kComponentSpine = 0,
  kComponentNeck = 1,
  kComponentHead = 2,
  kComponentArms = 3,
  kComponentFingers = 4,
  kComponentLegs = 5,
  kComponentToes = 6,
  kComponentTail = 7,
  kComponentPonytail = 8,
  kComponentCheekbones = 9,
  kComponentChin = 10,
  kComponentEyes = 11,
  kComponentEyebrows = 12,
  kComponentEyelids = 13,
  kComponentLips = 14,
  kComponentNasolabial = 15,
  kComponentNose = 16,
  kComponentTongue = 17,
  kComponentExtraBase = 1000,
};

/// The int and bool parameters of a block by id (colours, sizes and strings are not here):
/// what the template builders read, and the "previous values" a regeneration compares with.
/// Ids that are not int or bool parameters hold 0.
class RigParamValues {
 public:
  /// The block's defaults.
  RigParamValues();
  int operator[](int id) const { return id >= 0 && id < kRigParamIdCount ? values_[id] : 0; }
  void Set(int id, int value) {
    if (id >= 0 && id < kRigParamIdCount) values_[id] = value;
  }
  bool operator==(const RigParamValues&) const = default;

 private:
  std::array<int, kRigParamIdCount> values_{};
};

/// Whether id is an int, bool or index parameter of the block (the ones RigParamValues keeps).
bool IsRigIntParam(int id);

}  // namespace marvolith
