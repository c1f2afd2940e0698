// Copyright Marvolith contributors.
#include "host/io/ini_file.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace marvolith::test {
namespace {

class IniFileTest : public ::testing::Test {
 protected:
  void TearDown() override { std::filesystem::remove(path); }
  std::string Contents() {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
  void Write(const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

  std::string path = (std::filesystem::temp_directory_path() /
                      ("marvolith_ini_" + std::to_string(::getpid()) + ".ini"))
                         .string();
};

TEST_F(IniFileTest, ReadsWhatTheHostWrites) {
  Write("; settings\r\n[Main]\r\n Size = 12 \r\nname=\"quoted value\"\r\n[Other]\r\nsize=3\r\n");
  EXPECT_EQ(ReadIniValue(path, "main", "SIZE"), "12");
  EXPECT_EQ(ReadIniValue(path, "Main", "name"), "quoted value");
  EXPECT_EQ(ReadIniValue(path, "Other", "size"), "3");
  EXPECT_EQ(ReadIniValue(path, "Main", "missing"), std::nullopt);
  EXPECT_EQ(ReadIniValue(path + ".none", "Main", "Size"), std::nullopt);
  EXPECT_EQ(ReadIniSections(path), (std::vector<std::string>{"Main", "Other"}));
  EXPECT_EQ(ReadIniKeys(path, "MAIN"), (std::vector<std::string>{"Size", "name"}));

  char buf[4];
  EXPECT_EQ(MaxSDK::Util::GetPrivateProfileString("Main", "name", "", buf, 4, path.c_str()), 3u);
  EXPECT_STREQ(buf, "quo") << "cut to the buffer, zero-terminated";
  EXPECT_EQ(MaxSDK::Util::GetPrivateProfileString("Main", "no", "d", buf, 4, path.c_str()), 1u);
  EXPECT_STREQ(buf, "d");
  EXPECT_EQ(MaxSDK::Util::GetPrivateProfileString("Main", "name", "", nullptr, 4, path.c_str()),
            0u);
}

TEST_F(IniFileTest, WritesKeepEverythingElse) {
  ASSERT_TRUE(WritePrivateProfileString("A", "one", "1", path.c_str()));
  ASSERT_TRUE(WritePrivateProfileString("B", "x", "y", path.c_str()));
  ASSERT_TRUE(WritePrivateProfileString("a", "two", "2", path.c_str()));
  ASSERT_TRUE(WritePrivateProfileString("A", "ONE", "11", path.c_str()));
  EXPECT_EQ(Contents(), "[A]\none=11\ntwo=2\n[B]\nx=y\n");
  ASSERT_TRUE(WritePrivateProfileString("A", "one", nullptr, path.c_str()));
  EXPECT_EQ(Contents(), "[A]\ntwo=2\n[B]\nx=y\n");
  ASSERT_TRUE(WritePrivateProfileString("A", nullptr, nullptr, path.c_str()));
  EXPECT_EQ(Contents(), "[B]\nx=y\n");
  EXPECT_FALSE(WritePrivateProfileString("A", "k", "v", "/no/such/dir/x.ini"));
}

}  // namespace
}  // namespace marvolith::test
