// Copyright Marvolith contributors.
// The component table's listing rules: face rows, per-type value rows, use-bones dependencies.
#include "rig/rig_components.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace marvolith::test {
namespace {

RigParamValues With(std::initializer_list<std::pair<int, int>> values) {
  RigParamValues p;
  for (auto [id, v] : values) p.Set(id, v);
  return p;
}

TEST(RigComponents, FaceRowsOnlyWithAFaceAndWithoutMorphs) {
  EXPECT_EQ(ListedRigComponents(RigParamValues()).size(), 9u);
  EXPECT_EQ(ListedRigComponents(With({{kRigFace, 1}})).size(), 17u);
  EXPECT_EQ(ListedRigComponents(With({{kRigType, kRigTypeFace}})).size(), 17u);
  EXPECT_EQ(ListedRigComponents(With({{kRigFace, 1}, {kRigMorpherBased, 1}})).size(), 9u);
  // List order is the table's: arms first, tongue last; the eyes have no row.
  const auto rows = ListedRigComponents(With({{kRigFace, 1}}));
  EXPECT_STREQ(rows.front()->name, "Arms");
  EXPECT_STREQ(rows.back()->name, "Tongue");
  EXPECT_EQ(FindRigComponentRow(kComponentEyes), nullptr);
  std::set<int> ids;
  for (const RigComponentRow* row : rows) ids.insert(row->id);
  EXPECT_EQ(ids.size(), rows.size());
}

TEST(RigComponents, ValueRowsShownByType) {
  for (int type = 0; type < kRigTypeCount; ++type) {
    SCOPED_TRACE(type);
    EXPECT_EQ(RigComponentValueShown(kRigFrontCannonTwistBones, type), type == 11);
    EXPECT_EQ(RigComponentValueShown(kRigCannonTwistBones, type), type >= 9 && type <= 13);
    EXPECT_EQ(RigComponentValueShown(kRigFangs, type), type == 17);
    EXPECT_TRUE(RigComponentValueShown(kRigSpineBones, type));
  }
}

TEST(RigComponents, UseBonesEnablesItsDependentValueOnly) {
  const RigComponentRow& spine = *FindRigComponentRow(kComponentSpine);
  const RigComponentRow& tail = *FindRigComponentRow(kComponentTail);
  const RigParamValues on = With({{kRigUseSpineBones, 1}, {kRigUseTailBones, 1}});
  const RigParamValues off = With({{kRigUseSpineBones, 0}, {kRigUseTailBones, 0}});
  EXPECT_TRUE(RigComponentValueEnabled(spine, 1, on));
  EXPECT_FALSE(RigComponentValueEnabled(spine, 1, off));
  EXPECT_TRUE(RigComponentValueEnabled(spine, 0, off));
  // The tail's bones are its third value.
  EXPECT_FALSE(RigComponentValueEnabled(tail, 2, off));
  EXPECT_TRUE(RigComponentValueEnabled(tail, 1, off));
  const RigComponentRow& arms = *FindRigComponentRow(kComponentArms);
  EXPECT_TRUE(RigComponentValueEnabled(arms, 1, off));
}

TEST(RigComponents, DescriptionListsValuesAndExtras) {
  const std::string extras[] = {"antenna", "cape"};
  const std::string text =
      DescribeRigComponents(With({{kRigType, kRigTypeInsect}, {kRigUseTailBones, 0}}), extras);
  EXPECT_NE(text.find("2\tHead\tHeads: 1\tFangs on\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\tTail Bones: 6 (off)\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("Cannon"), std::string::npos) << text;
  EXPECT_NE(text.find("1000\tantenna\n1001\tcape\n"), std::string::npos) << text;
}

}  // namespace
}  // namespace marvolith::test
