// Copyright Marvolith contributors.
// The tool's view of rig templates: type names, block settings by script name, the published
// interface found by function name, and the contact sheet of the creature types against its
// golden picture (compared with a tolerance; MARVOLITH_UPDATE_GOLDEN=1 writes it anew).
#include "apps/marvolith/rig_sheet.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "host/app/host_classes.h"
#include "host/scene/scene.h"
#include "host/undo/hold.h"
#include "plugin/strings.h"
#include "rig/rig_system.h"
#include "tests/support/golden_picture.h"

namespace marvolith {
namespace {

const std::string kGoldenPath = std::string(MARVOLITH_RIG_GOLDEN_DIR) + "/rig_templates_sheet.png";

class RigSheetTest : public ::testing::Test {
 protected:
  void SetUp() override {
    GetCOREInterface()->Reset();
    RegisterHostClasses();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    for (ClassDesc2* cd : {GetRigDesc(), GetRigSystemDesc()})
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    theHold.Clear();
  }
  void TearDown() override {
    GetCOREInterface()->Reset();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    SetModuleInstance(nullptr);
  }
  int NodeCount() {
    std::vector<INode*> nodes;
    Scene::Active().CollectNodes(nodes);
    return static_cast<int>(nodes.size());
  }

 private:
  std::vector<ClassDesc2*> added_;
};

TEST(RigTypeNamesTest, NamesInAnyCaseAndNumbersInRange) {
  EXPECT_EQ(ParseRigType("biped"), 0);
  EXPECT_EQ(ParseRigType("QUADRUPED"), 11);
  EXPECT_EQ(ParseRigType("Tentacle"), 27);
  EXPECT_EQ(ParseRigType("frontlegs"), 9);
  EXPECT_EQ(ParseRigType("0"), 0);
  EXPECT_EQ(ParseRigType("27"), 27);
  for (const char* bad : {"28", "-1", "3x", "", "bipeds", " biped", "1.5"})
    EXPECT_FALSE(ParseRigType(bad).has_value()) << bad;
  const std::string choices = RigTypeChoices();
  EXPECT_EQ(choices.rfind("biped, hands, feet,", 0), 0u) << choices;
  EXPECT_NE(choices.find("insectleg, insect, face, ant,"), std::string::npos) << choices;
  // Every name the list offers is accepted back.
  for (std::string_view name : kRigSheetTypeNames)
    EXPECT_TRUE(ParseRigType(name).has_value()) << name;
}

TEST_F(RigSheetTest, SettingsByScriptNameAreCheckedBeforeTheyAreWritten) {
  std::string error;
  INode* node = CreateRigNode("rig", &error);
  ASSERT_NE(node, nullptr) << error;
  Object* rig = node->GetObjectRef();
  IParamBlock2* pb = rig->GetParamBlockByID(0);
  const ParamID spine = pb->GetDesc()->IndextoID(pb->GetDesc()->NameToIndex("spine_bones"));
  const ParamID fangs = pb->GetDesc()->IndextoID(pb->GetDesc()->NameToIndex("fangs"));
  const ParamID color = pb->GetDesc()->IndextoID(pb->GetDesc()->NameToIndex("color_2"));
  const ParamID size = pb->GetDesc()->IndextoID(pb->GetDesc()->NameToIndex("helper_size"));
  const ParamID name = pb->GetDesc()->IndextoID(pb->GetDesc()->NameToIndex("rig_name"));

  struct Bad {
    const char* setting;
    const char* message;
  };
  for (const Bad& bad : {
           Bad{"spine_bones=abc", "bad value 'abc' for spine_bones: expected a whole number"},
           Bad{"spine_bones=0", "bad value '0' for spine_bones: outside 1..99"},
           Bad{"spine_bones=2.5", "bad value '2.5' for spine_bones: expected a whole number"},
           Bad{"fangs=maybe", "bad value 'maybe' for fangs: expected true or false"},
           Bad{"color_2=1,0", "bad value '1,0' for color_2: expected three numbers r,g,b"},
           Bad{"color_2=1,0,0,0", "bad value '1,0,0,0' for color_2: expected three numbers r,g,b"},
           Bad{"helper_size=nan", "bad value 'nan' for helper_size: expected a number"},
           Bad{"helper_size=-3", "bad value '-3' for helper_size: outside 0..1e+30"},
           Bad{"no_such=1", "the Rig object has no parameter 'no_such'"},
           Bad{"spine_bones", "--set 'spine_bones' is not name=value"},
           Bad{"=4", "--set '=4' is not name=value"},
       }) {
    SCOPED_TRACE(bad.setting);
    error.clear();
    EXPECT_FALSE(ApplyRigSetting(rig, bad.setting, &error));
    EXPECT_EQ(error, bad.message);
  }
  EXPECT_EQ(pb->GetInt(spine), 6);
  EXPECT_EQ(pb->GetInt(fangs), 1);
  EXPECT_FLOAT_EQ(pb->GetFloat(size), 100.0f);

  for (const char* good :
       {"spine_bones=4", "fangs=off", "color_2=0.5,0.25,1", "helper_size=42.5", "rig_name=Beast"})
    EXPECT_TRUE(ApplyRigSetting(rig, good, &error)) << good << ": " << error;
  EXPECT_EQ(pb->GetInt(spine), 4);
  EXPECT_EQ(pb->GetInt(fangs), 0);
  EXPECT_FLOAT_EQ(pb->GetColor(color).g, 0.25f);
  EXPECT_FLOAT_EQ(pb->GetFloat(size), 42.5f);
  EXPECT_STREQ(pb->GetStr(name), "Beast");
  for (const char* on : {"fangs=TRUE", "fangs=1", "fangs=on"}) {
    pb->SetValue(fangs, 0, false);
    EXPECT_TRUE(ApplyRigSetting(rig, on, &error));
    EXPECT_EQ(pb->GetInt(fangs), 1) << on;
  }

  // The type has no script name; the interface is found by its functions.
  EXPECT_TRUE(SetRigType(rig, 11, &error));
  EXPECT_EQ(pb->GetInt(kRigTypeParamId), 11);
  EXPECT_TRUE(IsRigObject(rig));
  EXPECT_NE(RigInterfaceWith(rig, "Save"), nullptr);
  EXPECT_EQ(RigInterfaceWith(rig, "NoSuchFunction"), nullptr);
}

TEST_F(RigSheetTest, OneLabelledCellPerTemplatedTypeAndNothingLeftInTheScene) {
  std::vector<SheetCell> cells;
  std::string error;
  ASSERT_TRUE(BuildRigTemplateSheet(cells, &error)) << error;
  ASSERT_EQ(cells.size(), 18u);
  size_t cell = 0;
  for (int type = 0; type <= 18; ++type) {
    if (type == 8) continue;  // Ears: no template
    SCOPED_TRACE(type);
    EXPECT_EQ(cells[cell].label, kRigSheetTypeNames[type]);
    EXPECT_GT(cells[cell].list.LineCount(), 0);
    ++cell;
  }
  // The biped has more to draw than its spine alone.
  EXPECT_GT(cells[0].list.LineCount(), 2 * cells[5].list.LineCount());
  EXPECT_EQ(NodeCount(), 0);

  ClassDirectory::Get().RemoveClass(GetRigDesc());
  EXPECT_FALSE(BuildRigTemplateSheet(cells, &error));
  EXPECT_EQ(error, "the Rig class is not registered");
  ClassDirectory::Get().AddClass(GetRigDesc());
}

TEST_F(RigSheetTest, MatchesTheGoldenPicture) {
  const std::filesystem::path out =
      std::filesystem::temp_directory_path() / "marvolith_rig_templates_sheet.png";
  std::string error;
  int types = 0;
  ASSERT_TRUE(RenderRigTemplateSheet(out.string(), &error, &types)) << error;
  EXPECT_EQ(types, 18);
  test::ExpectMatchesGoldenPicture(out, kGoldenPath);
}

}  // namespace
}  // namespace marvolith
