// Copyright Marvolith contributors.
#include "rig/rig_templates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace marvolith {
namespace {

// What a type change writes into the block before the template is regenerated (RigSystem owns
// the real one); the golden lists are the templates a user gets on picking a type.
RigParamValues TypeDefaults(int type) {
  RigParamValues p;
  p.Set(kRigType, type);
  int arms = 1, legs = 1, tails = 0, ponytails = 0, fangs = 0, fingers = 5, finger_bones = 3;
  if (type == kRigTypeTail || type == kRigTypeMinotaur || type == kRigTypeCentaur) tails = 1;
  if (type == kRigTypeQuadruped) tails = 1, fingers = 1, finger_bones = 1;
  if (type == kRigTypeInsect) arms = 0, legs = 3, tails = 1, ponytails = 2, fangs = 1;
  p.Set(kRigArmPairs, arms);
  p.Set(kRigLegPairs, legs);
  p.Set(kRigTails, tails);
  p.Set(kRigPonytails, ponytails);
  p.Set(kRigFangs, fangs);
  p.Set(kRigFingers, fingers);
  p.Set(kRigFingerBones, finger_bones);
  return p;
}

RigTemplate Build(const RigParamValues& p) {
  RigTemplate t;
  t.BeginRegeneration(true);
  BuildRigTemplate(t, p, false);
  t.EndRegeneration();
  return t;
}

RigParamValues With(RigParamValues p, int id, int value) {
  p.Set(id, value);
  return p;
}

bool Has(const RigTemplate& t, const std::string& name) { return t.Find(name) >= 0; }

const RigPoint& At(const RigTemplate& t, const std::string& name) {
  const int i = t.Find(name);
  EXPECT_GE(i, 0) << name;
  static const RigPoint kMissing;
  return i >= 0 ? t.Points()[i] : kMissing;
}

std::string ParentName(const RigTemplate& t, const RigPoint& p) {
  return p.parent >= 0 ? t.Points()[p.parent].name : "-";
}

int CountPrefixed(const RigTemplate& t, const std::string& prefix) {
  return static_cast<int>(std::count_if(t.Points().begin(), t.Points().end(),
                                        [&](auto& p) { return p.name.rfind(prefix, 0) == 0; }));
}

// One line a point: name, parent name, side (R, L or C) and "hidden" for derived points.
std::string Listing(const RigTemplate& t) {
  std::ostringstream out;
  for (const RigPoint& p : t.Points())
    out << p.name << ' ' << ParentName(t, p) << ' '
        << (p.IsRight()  ? 'R'
            : p.IsLeft() ? 'L'
                         : 'C')
        << (p.Hidden() ? " hidden" : "") << '\n';
  return out.str();
}

std::filesystem::path GoldenDir() {
  return std::filesystem::path(__FILE__).parent_path() / "golden";
}

TEST(RigTemplates, EveryTypeMatchesItsReviewedPointList) {
  const bool update = std::getenv("MARVOLITH_UPDATE_GOLDEN") != nullptr;
  for (int type = 0; type < kRigTypeCount; ++type) {
    const std::string listing = Listing(Build(TypeDefaults(type)));
    const auto path = GoldenDir() / ("type_" + std::to_string(type) + ".txt");
    if (update) {
      std::ofstream(path) << listing;
      continue;
    }
    std::ifstream in(path);
    ASSERT_TRUE(in) << "missing " << path << " (MARVOLITH_UPDATE_GOLDEN=1 writes it)";
    std::stringstream golden;
    golden << in.rdbuf();
    EXPECT_EQ(listing, golden.str()) << "type " << type << " (" << RigTypeName(type) << ")";
  }
}

// Parameter sets that stress naming: several pairs, tails and ponytails, every optional part.
std::vector<RigParamValues> Variants(int type) {
  RigParamValues rich = TypeDefaults(type);
  for (auto [id, v] : {std::pair{kRigArmPairs, 2},
                       {kRigLegPairs, 2},
                       {kRigTails, 2},
                       {kRigPonytails, 2},
                       {kRigFace, 1},
                       {kRigFangs, 1},
                       {kRigMetacarpals, 1},
                       {kRigMetatarsals, 1},
                       {kRigToes, 3},
                       {kRigUseNeckBones, 1},
                       {kRigUseTailBones, 1},
                       {kRigUseEyebrowBones, 1}})
    rich.Set(id, v);
  return {TypeDefaults(type), rich, With(TypeDefaults(type), kRigFace, 1)};
}

TEST(RigTemplates, NamesAreUniqueAndParentsComeFirstOnTheirOwnSide) {
  for (int type = 0; type < kRigTypeCount; ++type) {
    for (const RigParamValues& p : Variants(type)) {
      const RigTemplate t = Build(p);
      std::set<std::string> names;
      for (int i = 0; i < t.NumPoints(); ++i) {
        const RigPoint& pt = t.Points()[i];
        EXPECT_TRUE(names.insert(pt.name).second) << "type " << type << " repeats " << pt.name;
        EXPECT_LT(pt.parent, i) << pt.name;
        EXPECT_TRUE(std::isfinite(pt.pos.x) && std::isfinite(pt.pos.y) && std::isfinite(pt.pos.z))
            << pt.name;
        if (pt.parent < 0) continue;
        const RigPoint& parent = t.Points()[pt.parent];
        // A sided point hangs on its own side or on the middle, never across.
        if (pt.IsRight()) {
          EXPECT_FALSE(parent.IsLeft()) << pt.name;
        } else if (pt.IsLeft()) {
          EXPECT_FALSE(parent.IsRight()) << pt.name;
        } else {
          EXPECT_FALSE(parent.IsRight() || parent.IsLeft()) << pt.name;
        }
      }
    }
  }
}

TEST(RigTemplates, LeftPointsMirrorRightPoints) {
  for (int type = 0; type < kRigTypeCount; ++type) {
    for (const RigParamValues& p : Variants(type)) {
      const RigTemplate t = Build(p);
      int pairs = 0;
      for (const RigPoint& left : t.Points()) {
        if (!left.IsLeft()) continue;
        ASSERT_EQ(left.name.rfind("l_", 0), 0u) << left.name;
        const std::string right_name = "r_" + left.name.substr(2);
        const int r = t.Find(right_name);
        ASSERT_GE(r, 0) << "type " << type << ": no " << right_name;
        const RigPoint& right = t.Points()[r];
        EXPECT_TRUE(right.IsRight());
        EXPECT_NEAR(left.pos.x, -right.pos.x, 1e-5f) << left.name;
        EXPECT_NEAR(left.pos.y, right.pos.y, 1e-5f) << left.name;
        EXPECT_NEAR(left.pos.z, right.pos.z, 1e-5f) << left.name;
        // The right side stands at -X.
        EXPECT_LE(right.pos.x, 1e-5f) << right.name;
        const std::string lp = ParentName(t, left), rp = ParentName(t, right);
        EXPECT_EQ(lp.rfind("l_", 0) == 0 ? "r_" + lp.substr(2) : lp, rp) << left.name;
        ++pairs;
      }
      if (type != 5 && type != 6 && type != 7 && type != 8 && type < 18) {
        EXPECT_GT(pairs, 0) << "type " << type;
      }
    }
  }
}

TEST(RigTemplates, CountsFollowTheParameters) {
  const RigParamValues biped = TypeDefaults(kRigTypeBiped);
  {
    // The spine's bones decide while they are used, its controls otherwise.
    const RigTemplate four = Build(With(biped, kRigSpineBones, 4));
    EXPECT_TRUE(Has(four, "spine_4"));
    EXPECT_FALSE(Has(four, "spine_5"));
    const RigTemplate controls = Build(With(biped, kRigUseSpineBones, 0));
    EXPECT_TRUE(Has(controls, "spine_3"));
    EXPECT_FALSE(Has(controls, "spine_4"));
  }
  {
    const RigTemplate t = Build(With(biped, kRigFingers, 0));
    EXPECT_TRUE(Has(t, "r_hand_end"));
    EXPECT_EQ(CountPrefixed(t, "r_finger"), 0);
  }
  {
    const RigTemplate t = Build(With(biped, kRigFingerBones, 1));
    EXPECT_EQ(CountPrefixed(t, "r_finger"), 5);
  }
  {
    const RigTemplate t = Build(With(With(biped, kRigMetacarpals, 1), kRigFingers, 2));
    EXPECT_EQ(At(t, "l_finger_2_1").parent, t.Find("l_metacarpal_2"));
    EXPECT_EQ(At(t, "l_finger_2_3").parent, t.Find("l_finger_2_2"));
  }
  {
    const RigTemplate t = Build(With(With(biped, kRigToes, 0), kRigMetatarsals, 1));
    EXPECT_EQ(CountPrefixed(t, "r_toe"), 0);
    EXPECT_EQ(CountPrefixed(t, "r_metatarsal"), 0);
    EXPECT_TRUE(Has(t, "r_foot_heel"));
    const RigTemplate toes = Build(With(With(biped, kRigToes, 2), kRigMetatarsals, 1));
    EXPECT_EQ(At(toes, "r_toe_2_1").parent, toes.Find("r_metatarsal_2"));
    EXPECT_FALSE(Has(Build(With(biped, kRigReverseFoot, 0)), "r_foot_heel"));
  }
  // Lone parts follow `side`; whole creatures always have both sides.
  EXPECT_EQ(Listing(Build(With(biped, kRigSide, 0))), Listing(Build(biped)));
  for (int type : {1, 2, 3, 4, 9, 10, 14, 15, 16}) {
    const RigTemplate right = Build(With(TypeDefaults(type), kRigSide, 0));
    EXPECT_EQ(CountPrefixed(right, "l_"), 0) << type;
    const RigTemplate left = Build(With(TypeDefaults(type), kRigSide, 1));
    EXPECT_EQ(CountPrefixed(left, "r_"), 0) << type;
    EXPECT_EQ(CountPrefixed(left, "l_"), CountPrefixed(Build(TypeDefaults(type)), "l_"));
  }
  {
    // A second arm pair hangs lower on the spine, under its own names.
    const RigTemplate t = Build(With(biped, kRigArmPairs, 2));
    EXPECT_TRUE(Has(t, "r_finger_2_1_3"));
    const RigPoint& first = At(t, "l_clavicle");
    const RigPoint& second = At(t, "l_clavicle_2");
    EXPECT_LT(second.pos.z, first.pos.z - 0.05f);
    EXPECT_EQ(t.Points()[first.parent].name, "spine_6");
    EXPECT_NE(t.Points()[second.parent].name, "spine_6");
    EXPECT_EQ(CountPrefixed(Build(With(biped, kRigArmPairs, 0)), "r_clavicle"), 0);
  }
  {
    const RigTemplate two = Build(With(TypeDefaults(kRigTypeTail), kRigTails, 2));
    EXPECT_TRUE(Has(two, "tail_1_3"));
    EXPECT_TRUE(Has(two, "tail_2_1"));
    EXPECT_FALSE(Has(two, "tail_1"));
  }
  {
    // n twist bones split a segment in n: n - 1 points between its ends; 0 and 1 make none.
    const RigTemplate t = Build(With(biped, kRigUpperArmTwistBones, 4));
    EXPECT_TRUE(Has(t, "r_upper_arm_twist_3"));
    EXPECT_FALSE(Has(t, "r_upper_arm_twist_4"));
    for (int n : {0, 1})
      EXPECT_EQ(CountPrefixed(Build(With(biped, kRigForearmTwistBones, n)), "r_forearm_twist"), 0);
  }
}

TEST(RigTemplates, HeadsAndFace) {
  const RigParamValues biped = TypeDefaults(kRigTypeBiped);
  const RigTemplate headless = Build(With(biped, kRigHeads, 0));
  EXPECT_FALSE(Has(headless, "head"));
  EXPECT_FALSE(Has(Build(biped), "r_eyebrow"));

  const RigTemplate faced = Build(With(biped, kRigFace, 1));
  EXPECT_EQ(ParentName(faced, At(faced, "r_eyebrow")), "head");
  // The face lies inside the head, in front of it.
  const RigPoint& head = At(faced, "head");
  const RigPoint& crown = At(faced, "head_end");
  for (const char* name : {"r_eye", "nose", "chin", "l_lip_corner"}) {
    const Point3& p = At(faced, name).pos;
    EXPECT_LT(p.y, head.pos.y) << name;
    EXPECT_GT(p.z, head.pos.z - 0.05f) << name;
    EXPECT_LT(p.z, crown.pos.z) << name;
  }
  // Region bones: the bones count while they are used, else the controls.
  EXPECT_EQ(CountPrefixed(faced, "r_eyebrow_bone"), 3);
  EXPECT_EQ(CountPrefixed(Build(With(With(biped, kRigFace, 1), kRigUseEyebrowBones, 1)),
                          "r_eyebrow_bone"),
            7);
}

TEST(RigTemplates, LonePartsStandApartOnlyWithBothSides) {
  const RigTemplate hands = Build(TypeDefaults(kRigTypeHands));
  EXPECT_NEAR(At(hands, "r_hand").pos.x, -0.2f, 1e-5f);
  EXPECT_NEAR(At(hands, "l_hand").pos.x, 0.2f, 1e-5f);
  // Scaled by 0.8: the hand's end sits 0.8 of its unscaled distance from the wrist.
  const RigTemplate one_hand = Build(With(TypeDefaults(kRigTypeHands), kRigSide, 0));
  EXPECT_NEAR(At(one_hand, "r_hand").pos.x, 0.0f, 1e-5f);
  EXPECT_NEAR(At(hands, "r_hand_end").pos.x - At(hands, "r_hand").pos.x,
              0.8f * (At(one_hand, "r_hand_end").pos.x - At(one_hand, "r_hand").pos.x), 1e-5f);
  for (int type : {kRigTypeFeet, kRigTypeFrontPaws, kRigTypeBackPaws}) {
    const std::string foot = type == kRigTypeFrontPaws ? "front_foot" : "foot";
    EXPECT_NEAR(At(Build(TypeDefaults(type)), "r_" + foot).pos.x, -0.4f, 1e-5f) << type;
    EXPECT_NEAR(At(Build(With(TypeDefaults(type), kRigSide, 1)), "l_" + foot).pos.x, 0.0f, 1e-5f);
  }
}

TEST(RigTemplates, CreaturesStandOnTheGround) {
  for (int type : {kRigTypeBiped, kRigTypeQuadruped, kRigTypeMinotaur, kRigTypeCentaur,
                   kRigTypeInsect, kRigTypeLegs, kRigTypeFeet}) {
    const RigTemplate t = Build(TypeDefaults(type));
    float low = 1e9f, high = -1e9f;
    for (const RigPoint& p : t.Points())
      low = std::min(low, p.pos.z), high = std::max(high, p.pos.z);
    EXPECT_NEAR(low, 0.0f, 0.02f) << RigTypeName(type);
    EXPECT_LT(high, 1.3f) << RigTypeName(type);
  }
  const RigTemplate biped = Build(TypeDefaults(kRigTypeBiped));
  EXPECT_NEAR(At(biped, "head_end").pos.z, 1.0f, 0.05f);
  // Faces -Y: the toes are ahead of the heel, the nose (of a quadruped) ahead of the tail.
  EXPECT_LT(At(biped, "r_toe_1_1").pos.y, At(biped, "r_foot_heel").pos.y);
  const RigTemplate quad = Build(TypeDefaults(kRigTypeQuadruped));
  EXPECT_LT(At(quad, "head_end").pos.y, At(quad, "tail_1").pos.y);
  EXPECT_LT(At(quad, "r_hand").pos.y, At(quad, "r_foot").pos.y);
  const RigTemplate centaur = Build(TypeDefaults(kRigTypeCentaur));
  EXPECT_GT(At(centaur, "upper_spine_6").pos.z, At(centaur, "spine_6").pos.z + 0.2f);
}

TEST(RigTemplates, UserEditsSurviveARegenerationByName) {
  RigParamValues p = TypeDefaults(kRigTypeBiped);
  RigTemplate t = Build(p);
  const Point3 moved(0.3f, -0.2f, 0.7f);
  const Point3 spine_3 = At(t, "spine_3").pos;
  t.Points()[t.Find("spine_2")].pos = moved;

  p.Set(kRigSpineBones, 8);
  const RigTemplate fresh = Build(p);
  t.BeginRegeneration(false);
  BuildRigTemplate(t, p, true);
  t.EndRegeneration();
  EXPECT_EQ(At(t, "spine_2").pos, moved);
  EXPECT_EQ(At(t, "spine_3").pos, spine_3);
  // New points take their defaults.
  EXPECT_EQ(At(t, "spine_8").pos, At(fresh, "spine_8").pos);
  EXPECT_NE(At(t, "spine_8").pos, Point3());

  t.BeginRegeneration(false);
  BuildRigTemplate(t, p, false);
  t.EndRegeneration();
  EXPECT_EQ(At(t, "spine_2").pos, At(fresh, "spine_2").pos);
}

TEST(RigTemplates, DerivedPointsFollowTheirAnchors) {
  RigTemplate t = Build(TypeDefaults(kRigTypeBiped));
  const int twist = t.Find("l_upper_arm_twist_1");
  ASSERT_GE(twist, 0);
  const RigPoint& d = t.Points()[twist];
  EXPECT_EQ(t.Points()[d.link1].name, "l_upper_arm");
  EXPECT_EQ(t.Points()[d.link2].name, "l_forearm");
  t.Points()[t.Find("l_forearm")].pos = Point3(1, 1, 1);
  t.UpdateDependants();
  const Point3 a = At(t, "l_upper_arm").pos;
  const Point3 expected = a + (Point3(1, 1, 1) - a) * (1.0f / 3.0f);
  EXPECT_TRUE(At(t, "l_upper_arm_twist_1").pos.Equals(expected, 1e-5f));

  RigTemplate face = Build(TypeDefaults(kRigTypeFace));
  face.Points()[face.Find("r_eyebrow_corner")].pos = Point3(-2, 0, 0);
  face.UpdateDependants();
  const Point3 brow = At(face, "r_eyebrow").pos;
  EXPECT_TRUE(
      At(face, "r_eyebrow_bone_2").pos.Equals(brow + (Point3(-2, 0, 0) - brow) * 0.5f, 1e-5f));
}

TEST(RigTemplates, BadParameterValuesAreClamped) {
  RigParamValues p = TypeDefaults(kRigTypeArms);
  p.Set(kRigSide, 7);
  EXPECT_EQ(Listing(Build(p)), Listing(Build(With(p, kRigSide, 2))));
  p.Set(kRigSide, -3);
  EXPECT_EQ(CountPrefixed(Build(p), "l_"), 0);
  p = TypeDefaults(kRigTypeBiped);
  p.Set(kRigArmPairs, -4);
  p.Set(kRigFingerBones, 0);
  p.Set(kRigSpineBones, 100000);
  const RigTemplate t = Build(p);
  EXPECT_EQ(CountPrefixed(t, "r_clavicle"), 0);
  EXPECT_TRUE(Has(t, "spine_99"));
  EXPECT_FALSE(Has(t, "spine_100"));
  EXPECT_TRUE(Has(Build(With(TypeDefaults(kRigTypeHands), kRigFingerBones, 0)), "r_finger_1_1"));
  for (int type : {-1, 28, 1000}) EXPECT_EQ(Build(With(p, kRigType, type)).NumPoints(), 0);
}

}  // namespace
}  // namespace marvolith
