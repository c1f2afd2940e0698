// Copyright Marvolith contributors.
// The block "params" of RigSystem as a table, and the presets a type change writes.
#include "rig/internal/rig_system_parts.h"

namespace marvolith::rig_internal {

std::vector<ParamDef> RigParamDefs(PBAccessor* structural, PBAccessor* selection) {
  auto flag = [&](ParamID id, const char* name, const char* label, bool def) {
    return ParamDef(id, name, TYPE_BOOL, 0).Default(def).Label(label).Accessor(structural);
  };
  auto count = [&](ParamID id, const char* name, const char* label, int def, int low) {
    return ParamDef(id, name, TYPE_INT, 0)
        .Default(def)
        .Range(low, 99)
        .Label(label)
        .Accessor(structural);
  };
  auto color = [](ParamID id, const char* name, const char* label, Point3 def) {
    return ParamDef(id, name, TYPE_RGBA, 0).Default(def).Label(label);
  };
  return {
      ParamDef(kRigNodes, "", TYPE_INODE_TAB, P_NO_REF | P_RESET_DEFAULT).TabSize(0).Label("Nodes"),
      ParamDef(kRigActive, "", TYPE_BOOL, P_RESET_DEFAULT).Default(true).Label("Active"),
      ParamDef(kRigName, "rig_name", TYPE_STRING, P_RESET_DEFAULT).Default("Rig").Label("Rig Name"),
      // The type has no script name: script reaches it as the interface's property `type`.
      ParamDef(kRigType, "", TYPE_INDEX, P_RESET_DEFAULT)
          .Default(0)
          .Label("Helper Type")
          .Accessor(structural),
      ParamDef(kRigHelperSize, "helper_size", TYPE_WORLD, 0)
          .Default(100.0f)
          .Range(0.0, 1e30)
          .Label("Size"),
      ParamDef(kRigDrawOnTop, "draw_on_top", TYPE_BOOL, 0).Default(true).Label("Draw On Top"),
      ParamDef(kRigSide, "side", TYPE_INT, 0)
          .Default(2)
          .Range(0, 2)
          .Label("Side")
          .Accessor(structural),
      ParamDef(kRigAffectChildren, "affect_children", TYPE_BOOL, 0)
          .Default(true)
          .Label("Affect Children"),
      ParamDef(kRigAffectMirror, "affect_mirror", TYPE_BOOL, 0)
          .Default(true)
          .Label("Affect Mirror"),
      ParamDef(kRigMirrorRelativeToParent, "mirror_relative_to_parent", TYPE_BOOL, 0)
          .Default(true)
          .Label("Mirror Relative to Parent"),
      flag(kRigIKFKSolvers, "ikfk_solvers", "IKFK Solvers", true),
      flag(kRigSubControls, "sub_controls", "Sub Controls", false),
      flag(kRigBendyControls, "bendy_controls", "Bendy Controls", false),
      flag(kRigRootBone, "root_bone", "Root Bone", false),
      flag(kRigCorrectiveBones, "corrective_bones", "Corrective Bones", false),
      flag(kRigEndBones, "end_bones", "Bend Bones", false),
      color(kRigColor1, "color_1", "Color 1", Point3(0.75f, 0.0f, 0.0f)),
      color(kRigColor2, "color_2", "Color 2", Point3(1.0f, 0.25f, 0.0f)),
      color(kRigColor3, "color_3", "Color 3", Point3(0.25f, 1.0f, 0.0f)),
      color(kRigColor4, "color_4", "Color 4", Point3(1.0f, 1.0f, 0.0f)),
      color(kRigColor5, "color_5", "Color 5", Point3(0.0f, 0.0f, 0.75f)),
      color(kRigColor6, "color_6", "Color 6", Point3(0.0f, 0.25f, 1.0f)),
      ParamDef(kRigHeads, "heads", TYPE_INT, 0)
          .Default(1)
          .Range(0, 1)
          .Label("Heads")
          .Accessor(structural),
      count(kRigNeckControls, "neck_controls", "Neck Controls", 1, 1),
      count(kRigNeckBones, "neck_bones", "Neck Bones", 1, 1),
      flag(kRigUseNeckBones, "use_neck_bones", "Use Neck Bones", false),
      count(kRigPonytails, "ponytails", "Ponytails", 0, 0),
      count(kRigPonytailControls, "ponytail_controls", "Ponytail Controls", 3, 1),
      count(kRigPonytailBones, "ponytail_bones", "Ponytail Bones", 6, 1),
      flag(kRigUsePonytailBones, "use_ponytail_bones", "Use Ponytail Bones", false),
      flag(kRigFangs, "fangs", "fANGS", true),
      count(kRigSpineControls, "spine_controls", "Spine Controls", 3, 1),
      count(kRigSpineBones, "spine_bones", "Spine Bones", 6, 1),
      flag(kRigUseSpineBones, "use_spine_bones", "Use Spine Bones", true),
      flag(kRigIKSpine, "ik_spine", "IK Spine", true),
      count(kRigTails, "tails", "Tails", 0, 0),
      count(kRigTailControls, "tail_controls", "Tail Controls", 3, 1),
      count(kRigTailBones, "tail_bones", "Tail Bones", 6, 1),
      flag(kRigUseTailBones, "use_tail_bones", "Use Tail Bones", false),
      count(kRigArmPairs, "arm_pairs", "Arm Pairs", 1, 0),
      count(kRigFingers, "fingers", "Hand Fingers", 5, 0),
      count(kRigFingerBones, "finger_bones", "Hand Finger Bones", 3, 1),
      flag(kRigMetacarpals, "metacarpals", "Metacarpals", false),
      count(kRigLegPairs, "leg_pairs", "Leg Pairs", 1, 0),
      count(kRigToes, "toes", "Toes", 1, 0),
      count(kRigToeBones, "toe_bones", "Toe Bones", 1, 1),
      flag(kRigMetatarsals, "metatarsals", "Metatarsals", false),
      flag(kRigReverseFoot, "reverse_foot", "Reverse Foot", true),
      count(kRigUpperArmTwistBones, "upper_arm_twist_bones", "Upper Arm TwistBones", 3, 0),
      count(kRigForearmTwistBones, "forearm_twist_bones", "Fore Arm TwistBones", 3, 0),
      count(kRigFrontCannonTwistBones, "front_cannon_twist_bones", "Front Cannon", 3, 0),
      count(kRigThighTwistBones, "thigh_twist_bones", "Thigh Twistbones", 3, 0),
      count(kRigCalfTwistBones, "calf_twist_bones", "Calf Twistbones", 3, 0),
      count(kRigCannonTwistBones, "cannon_twist_bones", "Cannon", 3, 0),
      flag(kRigFace, "face", "Face", false),
      flag(kRigMorpherBased, "morpher_based", "Morpher", false),
      count(kRigEyelidsControls, "eyelids_controls", "Eyelid Controls", 1, 1),
      count(kRigEyelidsBones, "eyelids_bones", "Eyelid Bones", 3, 1),
      flag(kRigUseEyelidBones, "use_eyelid_bones", "Use Eyelid Bones", false),
      count(kRigEyebrowsControls, "eyebrows_controls", "Eyebrow Controls", 3, 1),
      count(kRigEyebrowsBones, "eyebrows_bones", "Eyebrow Bones", 7, 1),
      flag(kRigUseEyebrowBones, "use_eyebrow_bones", "Use Eyebrow Bones", false),
      count(kRigCheekboneControls, "cheekbone_controls", "Cheekbone Controls", 3, 1),
      count(kRigCheekboneBones, "cheekbone_bones", "Cheekbone Bones", 7, 1),
      flag(kRigUseCheekboneBones, "use_cheekbone_bones", "Use Cheekbone Bones", false),
      count(kRigNoseControls, "nose_controls", "Nose Controls", 1, 1),
      count(kRigNoseBones, "nose_bones", "Nose Bones", 2, 1),
      flag(kRigUseNoseBones, "use_nose_bones", "Use Nose Bones", false),
      count(kRigLipsControls, "lips_controls", "Lip Controls", 1, 1),
      count(kRigLipsBones, "lips_bones", "Lip Bones", 3, 1),
      flag(kRigUseLipsBones, "use_lips_bones", "Use Lip Bones", false),
      count(kRigNasolabialControls, "nasolabial_controls", "Nasolabial Controls", 1, 1),
      count(kRigNasolabialBones, "nasolabial_bones", "Nasolabial Bones", 3, 1),
      flag(kRigUseNasolabialBones, "use_nasolabial_bones", "Use Nasolabial Bones", true),
      count(kRigChinControls, "chin_controls", "Chin Controls", 1, 1),
      count(kRigChinBones, "chin_bones", "Chin Bones", 3, 1),
      flag(kRigUseChinBones, "use_chin_bones", "Use Chin Bones", false),
      count(kRigTongueControls, "tongue_controls", "Tongue Controls", 2, 1),
      count(kRigTongueBones, "tongue_bones", "Tongue Bones", 4, 1),
      flag(kRigUseTongueBones, "use_tongue_bones", "Use Tongue Bones", false),
      ParamDef(kRigSelectedComponent, "selected_component", TYPE_INDEX, 0)
          .Default(0)
          .Label("Selected Component")
          .Accessor(selection),
  };
}

TypePreset PresetOfType(int type) {
  TypePreset p;
  switch (type) {
    case kRigTypeTail:
    case kRigTypeMinotaur:
    case kRigTypeCentaur:
      p.tails = 1;
      break;
    case kRigTypeQuadruped:
      p.tails = 1;
      p.fingers = 1;
      p.finger_bones = 1;
      break;
    case kRigTypeInsect:
      p.arm_pairs = 0;
      p.leg_pairs = 3;
      p.tails = 1;
      p.ponytails = 2;
      p.fangs = 1;
      break;
    default:
      break;
  }
  return p;
}

}  // namespace marvolith::rig_internal
