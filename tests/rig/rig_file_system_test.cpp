// Copyright Marvolith contributors.
// .rig files through RigSystem: what a saved template brings back, what the format drops, and
// that a load is one undoable step that a bad file never starts.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "plugin/strings.h"
#include "rig/rig_file.h"
#include "rig/rig_system.h"

namespace marvolith::test {
namespace {

namespace fs = std::filesystem;

// What a user sees of a template: visible points, extras and the block's values.
struct RigState {
  std::vector<std::pair<std::string, Point3>> points;
  std::vector<RigExtra> extras;
  RigParamValues ints;
  float helper_size = 0.0f;
  std::string rig_name;
  Point3 color;
  bool operator==(const RigState&) const = default;
};

RigState StateOf(RigSystem* rig) {
  RigState s;
  for (const RigPoint& p : rig->Template().Points())
    if (!p.Hidden()) s.points.emplace_back(p.name, p.pos);
  s.extras = rig->Extras();
  s.ints = rig->ReadParams();
  s.helper_size = rig->ParamBlock()->GetFloat(kRigHelperSize);
  s.rig_name = rig->ParamBlock()->GetStr(kRigName);
  s.color = rig->ParamBlock()->GetPoint3(kRigColor1);
  return s;
}

class RigFileSystemTest : public ::testing::Test {
 protected:
  void SetUp() override {
    GetCOREInterface()->Reset();
    RegisterHostClasses();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    for (ClassDesc2* cd : {GetRigDesc(), GetRigSystemDesc()})
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    theHold.Clear();
    std::string pattern = (fs::temp_directory_path() / "marvolith_rig_load_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    GetCOREInterface()->Reset();
    theHold.Clear();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    SetModuleInstance(nullptr);
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  RigSystem* NewRig(const char* name) {
    auto* rig = new RigSystem();
    GetCOREInterface()->CreateObjectNode(rig, name);
    return rig;
  }
  std::string Path(const char* name) const { return (dir_ / name).string(); }
  // A rig unlike the defaults in every kind of value the file keeps.
  RigSystem* EditedRig() {
    RigSystem* rig = NewRig("edited");
    IParamBlock2* pb = rig->ParamBlock();
    pb->SetValue(kRigSpineBones, 0, 4);
    pb->SetValue(kRigHelperSize, 0, 2.5f);
    pb->SetValue(kRigName, 0, "Hero");
    pb->SetValue(kRigColor1, 0, Point3(0.1f, 0.2f, 0.3f));
    rig->SetPointPos(FirstVisible(rig), Point3(0.5f, -1.0f, 7.0f), kSideNone, -1, -1);
    EXPECT_TRUE(rig->AddExtra("antenna", FirstVisible(rig), kSideCenter, 3, 5, true));
    EXPECT_TRUE(rig->AddExtra("strap", "antenna_1", kSideRight, 2, 4, false));
    return rig;
  }
  static std::string FirstVisible(RigSystem* rig) {
    for (const RigPoint& p : rig->Template().Points())
      if (!p.Hidden()) return p.name;
    return {};
  }
  static std::vector<std::uint8_t> SceneBytes() {
    std::vector<std::uint8_t> bytes;
    std::string error;
    EXPECT_TRUE(SaveSceneToBytes(bytes, &error)) << error;
    return bytes;
  }

  fs::path dir_;

 private:
  std::vector<ClassDesc2*> added_;
};

TEST_F(RigFileSystemTest, SavedTemplateLoadsBackWithoutTheExtrasBoneSettings) {
  RigSystem* source = EditedRig();
  ASSERT_TRUE(source->Save(Path("hero.rig")));
  RigSystem* target = NewRig("target");
  ASSERT_NE(StateOf(target), StateOf(source));
  ASSERT_TRUE(target->Load(Path("hero.rig")));

  RigState want = StateOf(source);
  // Bone settings of extras are not in the file: two bones, bones off.
  for (RigExtra& e : want.extras) {
    e.num_bones = 2;
    e.flags &= ~kExtraUseBones;
  }
  const RigState got = StateOf(target);
  EXPECT_EQ(got.points, want.points);
  EXPECT_EQ(got.extras, want.extras);
  EXPECT_EQ(got, want);
  ASSERT_EQ(target->GetNumExtras(), 2);
  EXPECT_FALSE(target->Extras()[0].UseBones());
  EXPECT_EQ(target->GetExtraNumBones(0), 2);
  EXPECT_EQ(target->GetExtraNumControls(0), 3);
}

TEST_F(RigFileSystemTest, PointsTheTemplateLacksAreSkipped) {
  RigSystem* rig = NewRig("rig");
  const std::string known = FirstVisible(rig);
  const std::size_t count = rig->Template().Points().size();
  RigFileData data;
  data.points = {{"no_such_point", Point3(9, 9, 9)}, {known, Point3(1, 2, 3)}};
  ASSERT_TRUE(WriteRigFile(Path("partial.rig"), data, nullptr));
  ASSERT_TRUE(rig->Load(Path("partial.rig")));
  EXPECT_EQ(rig->Template().Find("no_such_point"), -1);
  EXPECT_EQ(rig->Template().Points().size(), count);
  EXPECT_EQ(rig->GetPointPos(known, kSideNone, -1, -1), Point3(1, 2, 3));
}

TEST_F(RigFileSystemTest, ABadFileChangesNothing) {
  EditedRig();
  std::ofstream(Path("corrupt.rig"), std::ios::binary) << std::string("\x08\0\0\0garbage!", 12);
  const std::vector<std::uint8_t> before = SceneBytes();
  const int undo_count = theHold.UndoCount();
  RigSystem* rig = NewRig("loader");
  const std::vector<std::uint8_t> with_loader = SceneBytes();
  EXPECT_FALSE(rig->Load(Path("corrupt.rig")));
  EXPECT_FALSE(rig->Load(Path("missing.rig")));
  EXPECT_EQ(SceneBytes(), with_loader);
  EXPECT_NE(before, with_loader);  // the comparison sees the rigs at all
  EXPECT_EQ(theHold.UndoCount(), undo_count);
}

TEST_F(RigFileSystemTest, OneUndoTakesTheLoadBack) {
  ASSERT_TRUE(EditedRig()->Save(Path("hero.rig")));
  RigSystem* rig = NewRig("rig");
  ASSERT_TRUE(rig->AddExtra("fin", FirstVisible(rig), kSideNone, 1, 2, false));
  const RigState before = StateOf(rig);
  const std::vector<std::uint8_t> scene_before = SceneBytes();
  ASSERT_TRUE(rig->Load(Path("hero.rig")));
  const RigState loaded = StateOf(rig);
  ASSERT_NE(loaded, before);
  EXPECT_EQ(theHold.UndoName(), "Load Rig Template");
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(StateOf(rig), before);
  EXPECT_EQ(SceneBytes(), scene_before);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(StateOf(rig), loaded);
}

}  // namespace
}  // namespace marvolith::test
