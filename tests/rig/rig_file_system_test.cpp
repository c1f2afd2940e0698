// Copyright Marvolith contributors.
// .rig files through RigSystem, seen from the file and the scene: a loaded template saves to the
// same bytes, a bad file touches no scene byte and leaves no undo step, and undoing a load gives
// back the scene byte for byte.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "rig/rig_file.h"
#include "tests/rig/rig_fixture.h"

namespace marvolith::test {
namespace {

namespace fs = std::filesystem;

class RigFileSystemTest : public RigTest {
 protected:
  void SetUp() override {
    RigTest::SetUp();
    std::string pattern = (fs::temp_directory_path() / "marvolith_rig_load_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    RigTest::TearDown();
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  std::string Path(const char* name) const { return (dir_ / name).string(); }

  // A rig unlike the defaults in every kind of value the file keeps (int, bool, world, string,
  // colour, points, extras).
  static RigSystem* EditedRig() {
    RigSystem* rig = MakeRig("edited");
    IParamBlock2* pb = rig->ParamBlock();
    SetParam(rig, kRigSpineBones, 4);
    SetParam(rig, kRigIKSpine, 1);
    pb->SetValue(kRigHelperSize, 0, 2.5f);
    pb->SetValue(kRigName, 0, "Hero");
    pb->SetValue(kRigColor1, 0, Point3(0.1f, 0.2f, 0.3f));
    rig->SetPointPos("spine", Point3(0.5f, -1.0f, 7.0f), kSideNone, 1, -1);
    EXPECT_TRUE(rig->AddExtra("antenna", "head", kSideCenter, 3, 5, true));
    EXPECT_TRUE(rig->AddExtra("strap", "r_hand", kSideRight, 2, 4, false));
    return rig;
  }
  static std::vector<std::uint8_t> SceneBytes() {
    std::vector<std::uint8_t> bytes;
    std::string error;
    EXPECT_TRUE(SaveSceneToBytes(bytes, &error)) << error;
    return bytes;
  }
  static std::vector<char> FileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

  fs::path dir_;
};

TEST_F(RigFileSystemTest, ALoadedTemplateSavesTheSameFile) {
  ASSERT_TRUE(EditedRig()->Save(Path("a.rig")));
  RigSystem* other = MakeRig("other");
  SetParam(other, kRigType, kRigTypeMinotaur);
  ASSERT_TRUE(other->Load(Path("a.rig")));
  EXPECT_EQ(other->ParamBlock()->GetPoint3(kRigColor1), Point3(0.1f, 0.2f, 0.3f));
  EXPECT_EQ(Param(other, kRigIKSpine), 1);
  ASSERT_TRUE(other->Save(Path("b.rig")));
  const std::vector<char> a = FileBytes(Path("a.rig"));
  EXPECT_GT(a.size(), 100u);
  EXPECT_EQ(FileBytes(Path("b.rig")), a);
}

TEST_F(RigFileSystemTest, ABadFileTouchesNoSceneByteAndLeavesNoUndoStep) {
  RigSystem* rig = EditedRig();
  ASSERT_TRUE(rig->Save(Path("good.rig")));
  const std::vector<char> good = FileBytes(Path("good.rig"));
  // A real file cut short, and one whose root offset points past its end.
  std::ofstream(Path("cut.rig"), std::ios::binary).write(good.data(), good.size() - 9);
  std::vector<char> bad_root = good;
  bad_root[2] = 0x7F;
  std::ofstream(Path("root.rig"), std::ios::binary).write(bad_root.data(), bad_root.size());

  RigSystem* loader = MakeRig("loader");
  const std::vector<std::uint8_t> before = SceneBytes();
  const int undo_count = theHold.UndoCount();
  for (const char* name : {"cut.rig", "root.rig", "missing.rig"})
    EXPECT_FALSE(loader->Load(Path(name))) << name;
  EXPECT_EQ(SceneBytes(), before);
  EXPECT_EQ(theHold.UndoCount(), undo_count);
  EXPECT_EQ(theHold.HoldLevel(), 0);
}

TEST_F(RigFileSystemTest, UndoingALoadGivesBackTheSceneByteForByte) {
  ASSERT_TRUE(EditedRig()->Save(Path("hero.rig")));
  RigSystem* rig = MakeRig("rig");
  ASSERT_TRUE(rig->AddExtra("fin", "spine_2", kSideNone, 1, 2, false));
  const std::vector<std::uint8_t> before = SceneBytes();
  const int undo_count = theHold.UndoCount();
  ASSERT_TRUE(rig->Load(Path("hero.rig")));
  const std::vector<std::uint8_t> loaded = SceneBytes();
  ASSERT_NE(loaded, before);
  EXPECT_EQ(theHold.UndoCount(), undo_count + 1);
  EXPECT_EQ(std::string(theHold.UndoName()), "Load Rig Template");
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(SceneBytes(), before);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(SceneBytes(), loaded);
}

}  // namespace
}  // namespace marvolith::test
