// Copyright Marvolith contributors.
// Integer settings, script settings and history lists, each in a settings directory of its own;
// and the version number.
#include "plugin/settings.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <climits>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/io/ini_file.h"
#include "plugin/history_list.h"
#include "plugin/version.h"

namespace marvolith {
namespace {

namespace fs = std::filesystem;

class SettingsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const char* old = getenv(kEnv)) saved_ = old;
    std::string pattern = (fs::temp_directory_path() / "marvolith_settings_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
    setenv(kEnv, dir_.c_str(), 1);
  }
  void TearDown() override {
    if (saved_) {
      setenv(kEnv, saved_->c_str(), 1);
    } else {
      unsetenv(kEnv);
    }
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  std::string Ini() const { return dir_ + "/3dsMax.ini"; }
  void Store(const char* section, const char* key, const std::string& text) {
    ASSERT_TRUE(WritePrivateProfileString(section, key, text.c_str(), Ini().c_str()));
  }

  static constexpr const char* kEnv = "MARVOLITH_SETTINGS_DIR";
  std::string dir_;
  std::optional<std::string> saved_;
};

TEST_F(SettingsTest, IntegerSettingsInTheHostIniFile) {
  EXPECT_EQ(SettingsFilePath(), Ini());
  EXPECT_EQ(ReadSettingInt("Marvolith", "CurveEditor_TreeMode"), 0) << "no file yet";
  for (int v : {-3, INT_MAX, INT_MIN}) {
    ASSERT_TRUE(WriteSettingInt("AnimationManager", "AnimationManager_SizeX", v));
    EXPECT_EQ(ReadSettingInt("AnimationManager", "AnimationManager_SizeX"), v);
  }
  EXPECT_EQ(ReadSettingInt("AnimationManager", "isTrack"), 0) << "absent key";
  // Texts stored by hand read as _wtoi reads them, from a buffer of 64 characters.
  const std::pair<std::string, int> cases[] = {{"abc", 0},
                                               {"12abc", 12},
                                               {"-7 px", -7},
                                               {"99999999999", INT_MAX},
                                               {"-99999999999", INT_MIN},
                                               {std::string(62, '0') + "42", 4}};
  for (const auto& [text, value] : cases) {
    Store("Marvolith", "Odd", text);
    EXPECT_EQ(ReadSettingInt("Marvolith", "Odd"), value) << text;
  }
}

TEST_F(SettingsTest, ScriptSettingsTellAbsentFromZero) {
  int out = 77;
  EXPECT_FALSE(ReadScriptSetting("ImportStartFrame", out)) << "no file yet";
  Store("Marvolith", "Blank", "");
  Store("Elsewhere", "ImportStartFrame", "5");
  EXPECT_FALSE(ReadScriptSetting("ImportStartFrame", out)) << "absent from section Marvolith";
  EXPECT_FALSE(ReadScriptSetting("Blank", out)) << "empty text";
  EXPECT_EQ(out, 77) << "a false answer leaves out alone";
  Store("Marvolith", "Word", "abc");
  EXPECT_TRUE(ReadScriptSetting("Word", out));
  EXPECT_EQ(out, 0) << "a text that is not a number reads as 0, and true";
  ASSERT_TRUE(WriteScriptSetting("BakeSceneEndFrame", -120));
  EXPECT_TRUE(ReadScriptSetting("BakeSceneEndFrame", out));
  EXPECT_EQ(out, -120);
  EXPECT_EQ(ReadSettingInt("Marvolith", "BakeSceneEndFrame"), -120) << "the same file";
}

std::vector<std::string> Folders(const HistoryList& h) {
  std::vector<std::string> out;
  for (int i = 0; i < h.List().Count(); ++i) out.push_back(h.List().Path(i));
  return out;
}

TEST_F(SettingsTest, HistoryListsKeepRecentFoldersPerSection) {
  EXPECT_EQ(HistoryList().Section(), "MarvolithHistory");
  HistoryList anim(kAnimHistorySection);
  EXPECT_EQ(anim.InitialDir(), "");
  for (const char* folder : {"/a", "/c/", " /a"}) ASSERT_TRUE(anim.RememberFolder(folder));
  ASSERT_TRUE(anim.RememberFile("/c/run.anim"));
  EXPECT_FALSE(anim.RememberFile("bare.anim"));
  EXPECT_FALSE(anim.RememberFolder("x\ny"));
  const std::vector<std::string> expected = {"/c", " /a", "/a"};
  EXPECT_EQ(Folders(anim), expected) << "most recent first, no repeats, blanks kept";
  HistoryList reloaded(kAnimHistorySection);
  EXPECT_EQ(Folders(reloaded), expected);
  EXPECT_EQ(reloaded.InitialDir(), "/c");

  HistoryList rig(kRigHistorySection);
  EXPECT_EQ(rig.List().Count(), 0) << "sections are separate";
  for (int i = 0; i < bmmHistoryList::kMaxEntries + 5; ++i)
    ASSERT_TRUE(rig.RememberFolder("/rig/" + std::to_string(i)));
  ASSERT_TRUE(rig.RememberFile("/top.rig"));
  const std::vector<std::string> kept = Folders(HistoryList(kRigHistorySection));
  ASSERT_EQ(kept.size(), static_cast<size_t>(bmmHistoryList::kMaxEntries));
  EXPECT_EQ(kept.front(), "/");
  EXPECT_EQ(kept.back(), "/rig/6") << "the oldest drop off";
  EXPECT_EQ(ReadIniSections(Ini()),
            (std::vector<std::string>{"AnimMgrHistory", "RigSystemHistory"}));

  // A shorter list replaces a longer one; a hand-edited list loses empty and repeated entries.
  bmmHistoryList list;
  list.NewPath("/only");
  ASSERT_TRUE(list.SaveList(kRigHistorySection));
  EXPECT_EQ(Folders(HistoryList(kRigHistorySection)), (std::vector<std::string>{"/only"}));
  const std::pair<const char*, const char*> by_hand[] = {
      {"Path1", "/p"}, {"Path2", ""}, {"Path3", "/p/"}, {"Path4", "/q"}};
  for (const auto& [key, folder] : by_hand) Store(kPoseHistorySection, key, folder);
  EXPECT_EQ(Folders(HistoryList(kPoseHistorySection)), (std::vector<std::string>{"/p", "/q"}));
}

TEST(VersionTest, NumberReadAsThreeFields) {
  EXPECT_EQ(kVersionNumber, 20202);
  EXPECT_EQ(VersionNumber("1.2.3"), 10203);
  EXPECT_EQ(VersionNumber("10.0.1"), 100001);
  EXPECT_EQ(VersionNumber("2.1"), 20100) << "fields not read count as 0";
  EXPECT_EQ(VersionNumber("2.x.5"), 20000) << "reading stops at the first bad field";
  EXPECT_EQ(VersionNumber(""), 0);
}

}  // namespace
}  // namespace marvolith
