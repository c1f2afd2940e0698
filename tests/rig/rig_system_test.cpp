// Copyright Marvolith contributors.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <functional>

#include "host/base/exceptions.h"
#include "host/io/chunk_stream.h"
#include "rig/rig_file.h"
#include "tests/rig/rig_fixture.h"

namespace marvolith::test {
namespace {

using MaxSDK::Util::TabOutOfRangeException;

// A point derived between two anchors, or -1.
int FirstDerivedPoint(const RigSystem* rig) {
  const auto& pts = rig->Template().Points();
  for (int i = 0; i < static_cast<int>(pts.size()); ++i)
    if (pts[i].Hidden() && pts[i].link1 >= 0 && pts[i].link2 >= 0) return i;
  return -1;
}

std::string TempPath(const char* name) {
  return (std::filesystem::temp_directory_path() /
          (std::string("marvolith_rig_") + std::to_string(::getpid()) + "_" + name))
      .string();
}

TEST_F(RigTest, TypeChangeWritesItsPresetsOverUserCounts) {
  RigSystem* rig = MakeRig();
  SetParam(rig, kRigFingers, 2);
  SetParam(rig, kRigTails, 4);
  SetParam(rig, kRigType, kRigTypeQuadruped);
  EXPECT_EQ(Param(rig, kRigFingers), 1);
  EXPECT_EQ(Param(rig, kRigFingerBones), 1);
  EXPECT_EQ(Param(rig, kRigTails), 1);
  SetParam(rig, kRigFingers, 4);
  SetParam(rig, kRigType, kRigTypeInsect);
  EXPECT_EQ(Param(rig, kRigArmPairs), 0);
  EXPECT_EQ(Param(rig, kRigLegPairs), 3);
  EXPECT_EQ(Param(rig, kRigPonytails), 2);
  EXPECT_EQ(Param(rig, kRigFingers), 5) << "overwritten although the user set it";
  SetParam(rig, kRigType, kRigTypeBiped);
  EXPECT_EQ(Param(rig, kRigArmPairs), 1);
  EXPECT_EQ(Param(rig, kRigLegPairs), 1);
  EXPECT_EQ(Param(rig, kRigTails), 0);
  EXPECT_EQ(Param(rig, kRigFangs), 0);
  {
    SCOPED_TRACE("undo of a type change takes its presets back");
    const RigSnapshot before = Snapshot(rig);
    Undoable("type", [&] { SetParam(rig, kRigType, kRigTypeInsect); });
    ASSERT_TRUE(theHold.Undo());
    EXPECT_EQ(Param(rig, kRigType), kRigTypeBiped);
    EXPECT_EQ(Param(rig, kRigLegPairs), 1);
    EXPECT_EQ(Snapshot(rig).names, before.names);
  }
}

TEST_F(RigTest, SpineCountChangeKeepsEditsByName) {
  RigSystem* rig = MakeRig();
  ASSERT_GE(rig->Template().Find("spine_2"), 0);
  const Point3 moved(0.3f, -0.2f, 0.9f);
  rig->SetPointPos("spine", moved, kSideNone, 1, -1);
  EXPECT_EQ(rig->GetPointPos("spine", kSideNone, 1, -1), moved) << "index 0 is _1";
  const Point3 default_spine_1 = rig->GetPointPos("spine_1", kSideNone, -1, -1);
  SetParam(rig, kRigSpineBones, 9);
  EXPECT_GE(rig->Template().Find("spine_9"), 0);
  EXPECT_EQ(rig->GetPointPos("spine_2", kSideNone, -1, -1), moved);
  EXPECT_EQ(rig->GetPointPos("spine_1", kSideNone, -1, -1), default_spine_1);
  SetParam(rig, kRigSpineBones, 3);
  EXPECT_LT(rig->Template().Find("spine_9"), 0);
  EXPECT_EQ(rig->GetPointPos("spine_2", kSideNone, -1, -1), moved);
  EXPECT_EQ(rig->GetPointPos("no_such_point", kSideNone, -1, -1), Point3(0, 0, 0));
  EXPECT_EQ(rig->GetPointParent("no_such_point", kSideNone, -1, -1), "");
  EXPECT_EQ(rig->GetPointParent("spine", kSideNone, 1, -1), "spine_1");
  {
    SCOPED_TRACE("a type change forgets the edits");
    SetParam(rig, kRigType, kRigTypeMinotaur);
    SetParam(rig, kRigType, kRigTypeBiped);
    EXPECT_NE(rig->GetPointPos("spine_2", kSideNone, -1, -1), moved);
  }
}

TEST_F(RigTest, OneSideMakesNoPointsOfTheOther) {
  // Whole creatures are always built on both sides; the lone parts follow `side`.
  RigSystem* rig = MakeRig();
  SetParam(rig, kRigType, kRigTypeArms);
  EXPECT_GT(CountPrefixed(rig, "l_"), 0);
  EXPECT_EQ(CountPrefixed(rig, "l_"), CountPrefixed(rig, "r_"));
  SetParam(rig, kRigSide, 0);
  EXPECT_EQ(CountPrefixed(rig, "l_"), 0);
  EXPECT_GT(CountPrefixed(rig, "r_"), 0);
  SetParam(rig, kRigSide, 1);
  EXPECT_EQ(CountPrefixed(rig, "r_"), 0);
}

TEST_F(RigTest, TypesWithoutTemplateKeepOnlyTheExtras) {
  RigSystem* rig = MakeRig();
  ASSERT_TRUE(rig->AddExtra("antenna", "head", kSideNone, 2, 2, false));
  for (int type : {8, 19, 20, 23, 27}) {
    SCOPED_TRACE(type);
    SetParam(rig, kRigType, type);
    ASSERT_EQ(rig->Template().NumPoints(), 3) << "two controls, three points";
    for (const RigPoint& p : rig->Template().Points()) EXPECT_EQ(p.component, kComponentExtraBase);
    EXPECT_EQ(rig->Template().Points()[0].parent, -1) << "no parent point left";
  }
}

TEST_F(RigTest, DerivedPointsFollowTheirAnchors) {
  RigSystem* rig = MakeRig();
  const int d = FirstDerivedPoint(rig);
  ASSERT_GE(d, 0);
  const RigPoint derived = rig->Template().Points()[d];
  const std::string anchor = rig->Template().Points()[derived.link2].name;
  rig->SetPointPos(anchor, Point3(2, 3, 4), kSideNone, -1, -1);
  const Point3 a = rig->Template().Points()[derived.link1].pos;
  const Point3 expected = a + (Point3(2, 3, 4) - a) * derived.blend;
  EXPECT_LT(Length(rig->Template().Points()[d].pos - expected), 1e-5f);
}

TEST_F(RigTest, ExtraNamesAreUniqueAndNotReserved) {
  RigSystem* rig = MakeRig();
  ASSERT_TRUE(rig->AddExtra("", "", kSideNone, 1, 2, false));
  EXPECT_EQ(rig->GetExtraName(0), "extra_1") << "an empty name takes the default";
  EXPECT_EQ(rig->GetExtraParent(0), rig->Template().Points().front().name);
  ASSERT_TRUE(rig->AddExtra("Cape", "", kSideNone, 1, 2, false));
  ASSERT_TRUE(rig->AddExtra("cape", "", kSideNone, 1, 2, false));
  ASSERT_TRUE(rig->AddExtra("spine_3", "", kSideNone, 1, 2, false));
  ASSERT_TRUE(rig->AddExtra("Hand", "", kSideNone, 1, 2, false));
  ASSERT_TRUE(rig->AddExtra("UIPanel", "", kSideNone, 1, 2, false));
  std::vector<std::string> names;
  for (int i = 0; i < rig->GetNumExtras(); ++i) names.push_back(rig->GetExtraName(i));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"Cape", "UIPanel", "extra_1", "extra_2", "extra_3",
                                             "extra_4"}));
  {
    SCOPED_TRACE("the lowest free number");
    for (int i = 0; i < rig->GetNumExtras(); ++i) {
      if (rig->GetExtraName(i) == "extra_2") {
        ASSERT_TRUE(rig->RemoveExtra(i));
      }
    }
    ASSERT_TRUE(rig->AddExtra("EXTRA_1", "", kSideNone, 1, 2, false));
    int found = 0;
    for (int i = 0; i < rig->GetNumExtras(); ++i) found += rig->GetExtraName(i) == "extra_2";
    EXPECT_EQ(found, 1);
  }
  EXPECT_TRUE(IsReservedRigName("upper_arm_2_3"));
  EXPECT_TRUE(IsReservedRigName("Head"));
  EXPECT_FALSE(IsReservedRigName("UIPanel")) << "only the candidate is lowered";
  EXPECT_FALSE(IsReservedRigName("uipanel"));
  EXPECT_FALSE(IsReservedRigName("forearm"));
  EXPECT_FALSE(IsReservedRigName("spine_x"));
}

TEST_F(RigTest, ExtraSideFollowsItsParent) {
  RigSystem* rig = MakeRig();
  ASSERT_TRUE(rig->AddExtra("a", "r_hand", kSideNone, 1, 2, false));
  ASSERT_TRUE(rig->AddExtra("b", "L_hand", kSideNone, 1, 2, false));
  ASSERT_TRUE(rig->AddExtra("c", "head", kSideNone, 1, 2, false));
  ASSERT_TRUE(rig->AddExtra("d", "r_hand", kSideLeft, 1, 2, false));
  ASSERT_TRUE(rig->AddExtra("e", "r_hand", kSideBoth, 1, 2, false));
  EXPECT_FALSE(rig->AddExtra("f", "r_hand", 4, 1, 2, false));
  ASSERT_EQ(rig->GetNumExtras(), 5);
  EXPECT_EQ(rig->GetExtraSide(0), kSideRight);
  EXPECT_EQ(rig->GetExtraSide(1), kSideLeft);
  EXPECT_EQ(rig->GetExtraSide(2), kSideCenter);
  EXPECT_EQ(rig->GetExtraSide(3), kSideLeft);
  EXPECT_EQ(rig->GetExtraParent(3), "l_hand") << "the parent on the matching side";
  const RigTemplate& t = rig->Template();
  EXPECT_GE(t.Find("r_a_1"), 0);
  EXPECT_LT(t.Find("l_a_1"), 0);
  EXPECT_GE(t.Find("c_2"), 0);
  EXPECT_LT(t.Find("c_3"), 0) << "one control: two points";
  ASSERT_GE(t.Find("l_e_1"), 0);
  ASSERT_GE(t.Find("r_e_1"), 0);
  EXPECT_EQ(t.Points()[t.Find("l_e_1")].parent, t.Find("l_hand"));
  EXPECT_EQ(t.Points()[t.Find("r_e_1")].parent, t.Find("r_hand"));
  EXPECT_EQ(t.Points()[t.Find("r_e_2")].parent, t.Find("r_e_1"));
}

TEST_F(RigTest, ExtrasStandAfterTheExtraTheyHangFrom) {
  RigSystem* rig = MakeRig();
  ASSERT_TRUE(rig->AddExtra("tip", "stem_2", kSideNone, 1, 2, false));
  EXPECT_EQ(Param(rig, kRigSelectedComponent), kComponentExtraBase + 0);
  ASSERT_TRUE(rig->AddExtra("stem", "head", kSideNone, 3, 2, false));
  ASSERT_EQ(rig->GetNumExtras(), 2);
  EXPECT_EQ(rig->GetExtraName(0), "stem");
  EXPECT_EQ(rig->GetExtraName(1), "tip");
  EXPECT_EQ(Param(rig, kRigSelectedComponent), kComponentExtraBase + 0)
      << "the new extra's own index";
  const RigTemplate& t = rig->Template();
  ASSERT_GE(t.Find("tip_1"), 0);
  EXPECT_EQ(t.Points()[t.Find("tip_1")].parent, t.Find("stem_2"));
  EXPECT_EQ(t.Points()[t.Find("tip_1")].component, kComponentExtraBase + 1);
  {
    SCOPED_TRACE("a rename carries the children along");
    rig->SetExtraName(0, "trunk");
    EXPECT_EQ(rig->GetExtraParent(1), "trunk_2");
    EXPECT_EQ(t.Points()[t.Find("tip_1")].parent, t.Find("trunk_2"));
  }
}

TEST_F(RigTest, EveryExtraEditUndoesAndRedoes) {
  RigSystem* rig = MakeRig();
  ASSERT_TRUE(rig->AddExtra("stem", "head", kSideNone, 2, 2, false));
  ASSERT_TRUE(rig->AddExtra("leaf", "r_hand", kSideNone, 1, 2, false));
  theHold.Clear();
  struct Edit {
    const char* what;
    std::function<void()> run;
  };
  const std::vector<Edit> edits = {
      {"add", [&] { rig->AddExtra("frond", "stem_1", kSideNone, 2, 3, true); }},
      {"remove", [&] { rig->RemoveExtra(0); }},
      {"name", [&] { rig->SetExtraName(1, "petal"); }},
      {"parent", [&] { rig->SetExtraParent(0, "leaf_2"); }},
      {"side", [&] { rig->SetExtraSide(0, kSideBoth); }},
      {"controls", [&] { rig->SetExtraNumControls(1, 5); }},
      {"bones", [&] { rig->SetExtraNumBones(1, 7); }},
      {"point", [&] { rig->SetPointPos("spine", Point3(1, 2, 3), kSideNone, 0, -1); }},
      {"derived", [&] { rig->SetPointPos("hand", Point3(-1, 0, 0), kSideRight, -1, -1); }},
  };
  for (const Edit& e : edits) {
    SCOPED_TRACE(e.what);
    const RigSnapshot before = Snapshot(rig);
    Undoable(e.what, e.run);
    const RigSnapshot after = Snapshot(rig);
    EXPECT_NE(after, before) << "the edit changed something";
    ASSERT_TRUE(theHold.Undo());
    EXPECT_EQ(Snapshot(rig), before);
    ASSERT_TRUE(theHold.Redo());
    EXPECT_EQ(Snapshot(rig), after);
    ASSERT_TRUE(theHold.Undo());
  }
}

TEST_F(RigTest, BadExtraIndicesRaise) {
  RigSystem* rig = MakeRig();
  ASSERT_TRUE(rig->AddExtra("stem", "head", kSideNone, 1, 2, false));
  for (int bad : {-1, 1, 100}) {
    SCOPED_TRACE(bad);
    EXPECT_THROW(rig->RemoveExtra(bad), TabOutOfRangeException);
    EXPECT_THROW(rig->GetExtraName(bad), TabOutOfRangeException);
    EXPECT_THROW(rig->SetExtraName(bad, "x"), TabOutOfRangeException);
    EXPECT_THROW(rig->GetExtraParent(bad), TabOutOfRangeException);
    EXPECT_THROW(rig->SetExtraParent(bad, "x"), TabOutOfRangeException);
    EXPECT_THROW(rig->GetExtraSide(bad), TabOutOfRangeException);
    EXPECT_THROW(rig->SetExtraSide(bad, 1), TabOutOfRangeException);
    EXPECT_THROW(rig->SetExtraSide(bad, 9), TabOutOfRangeException);
    EXPECT_THROW(rig->GetExtraNumControls(bad), TabOutOfRangeException);
    EXPECT_THROW(rig->SetExtraNumControls(bad, 2), TabOutOfRangeException);
    EXPECT_THROW(rig->GetExtraNumBones(bad), TabOutOfRangeException);
    EXPECT_THROW(rig->SetExtraNumBones(bad, 2), TabOutOfRangeException);
  }
  EXPECT_EQ(rig->GetNumExtras(), 1);
}

TEST_F(RigTest, RigFileRestoresTemplateAndUndoesAsOne) {
  RigSystem* rig = MakeRig();
  SetParam(rig, kRigSpineBones, 4);
  rig->ParamBlock()->SetValue(kRigName, 0, "Hero");
  rig->ParamBlock()->SetValue(kRigHelperSize, 0, 42.0f);
  ASSERT_TRUE(rig->AddExtra("stem", "head", kSideNone, 3, 5, true));
  ASSERT_TRUE(rig->AddExtra("leaf", "r_hand", kSideBoth, 1, 2, false));
  rig->SetPointPos("spine", Point3(0.1f, 0.2f, 0.3f), kSideNone, 2, -1);
  rig->SetPointPos("stem", Point3(0.5f, 0.5f, 1.5f), kSideNone, 1, -1);
  const std::string path = TempPath("template.rig");
  ASSERT_TRUE(rig->Save(path));
  RigSnapshot saved = Snapshot(rig);

  RigSystem* other = MakeRig("other");
  SetParam(other, kRigType, kRigTypeMinotaur);
  ASSERT_TRUE(other->AddExtra("junk", "", kSideNone, 1, 2, false));
  theHold.Clear();
  const RigSnapshot before = Snapshot(other);
  ASSERT_TRUE(other->Load(path));
  EXPECT_EQ(std::string(other->ParamBlock()->GetStr(kRigName)), "Hero");
  EXPECT_FLOAT_EQ(other->ParamBlock()->GetFloat(kRigHelperSize), 42.0f);
  EXPECT_EQ(Param(other, kRigSpineBones), 4);
  EXPECT_EQ(Param(other, kRigType), kRigTypeBiped);
  // num_bones and use_bones are not in the format: they come back as 2 and off.
  for (RigExtra& e : saved.extras) {
    e.num_bones = 2;
    e.flags &= ~kExtraUseBones;
  }
  EXPECT_EQ(Snapshot(other), saved);
  const RigSnapshot loaded = Snapshot(other);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(Snapshot(other), before);
  EXPECT_EQ(Param(other, kRigType), kRigTypeMinotaur);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(Snapshot(other), loaded);
  std::remove(path.c_str());
}

TEST_F(RigTest, RigFileFailuresChangeNothingAndUnknownPointsAreSkipped) {
  RigSystem* rig = MakeRig();
  const RigSnapshot before = Snapshot(rig);
  EXPECT_FALSE(rig->Load(TempPath("missing.rig")));
  EXPECT_FALSE(rig->Save(TempPath("no_such_dir") + "/x.rig"));
  const std::string garbage = TempPath("garbage.rig");
  {
    std::FILE* f = std::fopen(garbage.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fputs("not a rig", f);
    std::fclose(f);
  }
  EXPECT_FALSE(rig->Load(garbage));
  EXPECT_EQ(Snapshot(rig), before);
  EXPECT_FALSE(rig->LoadDlg()) << "no dialog: cancelled";
  EXPECT_FALSE(rig->SaveDlg());

  RigFileData data;
  data.points.push_back({"ghost_point", Point3(9, 9, 9)});
  data.points.push_back({"spine_1", Point3(0, 0, 7)});
  std::string error;
  ASSERT_TRUE(WriteRigFile(garbage, data, &error)) << error;
  ASSERT_TRUE(rig->Load(garbage));
  EXPECT_LT(rig->Template().Find("ghost_point"), 0);
  EXPECT_EQ(rig->GetPointPos("spine_1", kSideNone, -1, -1), Point3(0, 0, 7));
  std::remove(garbage.c_str());
}

TEST_F(RigTest, SceneRoundTripKeepsTheTemplateByteForByte) {
  RigSystem* rig = MakeRig();
  ASSERT_TRUE(rig->AddExtra("stem", "head", kSideNone, 2, 4, true));
  rig->SetPointPos("spine", Point3(0.1f, 0.2f, 0.3f), kSideNone, 0, -1);
  const RigSnapshot before = Snapshot(rig);
  std::vector<std::uint8_t> first, second;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
  INode* node = GetCOREInterface()->GetINodeByName("rig");
  ASSERT_NE(node, nullptr);
  auto* loaded = dynamic_cast<RigSystem*>(node->GetObjectRef());
  ASSERT_NE(loaded, nullptr);
  EXPECT_EQ(Snapshot(loaded), before);
  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(first, second);
}

TEST_F(RigTest, ObjectChunksSkipUnknownOnesAndResaveTheSame) {
  RigSystem* rig = MakeRig();
  ASSERT_TRUE(rig->AddExtra("stem", "head", kSideNone, 2, 4, true));
  ChunkWriter plain;
  ASSERT_EQ(rig->Save(&plain), IO_OK);
  ChunkWriter extended;
  const std::uint32_t junk = 0xdeadbeef;
  ULONG written = 0;
  extended.BeginChunk(0x77);
  extended.Write(&junk, sizeof(junk), &written);
  extended.EndChunk();
  ASSERT_EQ(rig->Save(&extended), IO_OK);
  ASSERT_TRUE(plain.Ok() && extended.Ok());

  RigSystem copy(true);
  ChunkReader reader(extended.Bytes());
  ASSERT_EQ(copy.Load(&reader), IO_OK);
  EXPECT_EQ(Snapshot(&copy), Snapshot(rig));
  ChunkWriter again;
  ASSERT_EQ(copy.Save(&again), IO_OK);
  EXPECT_EQ(again.Bytes(), plain.Bytes());
  {
    SCOPED_TRACE("an empty object keeps its defaults");
    RigSystem empty(true);
    ChunkReader none(std::span<const std::uint8_t>{});
    EXPECT_EQ(empty.Load(&none), IO_OK);
    EXPECT_EQ(empty.Template().NumPoints(), 0);
    EXPECT_EQ(empty.GetNumExtras(), 0);
  }
}

TEST_F(RigTest, CloneCopiesPointsAndExtras) {
  RigSystem* rig = MakeRig();
  ASSERT_TRUE(rig->AddExtra("stem", "head", kSideNone, 2, 4, true));
  rig->SetPointPos("spine", Point3(0.1f, 0.2f, 0.3f), kSideNone, 0, -1);
  RemapDir remap;
  auto* clone = dynamic_cast<RigSystem*>(rig->Clone(remap));
  ASSERT_NE(clone, nullptr);
  EXPECT_EQ(Snapshot(clone), Snapshot(rig));
  EXPECT_NE(clone->ParamBlock(), rig->ParamBlock());
  clone->SetExtraName(0, "other");
  EXPECT_EQ(rig->GetExtraName(0), "stem") << "a deep copy";
  GetCOREInterface()->CreateObjectNode(clone, "clone");
}

TEST_F(RigTest, CreationSizesTheTemplateFromTheFirstClick) {
  RigSystem* rig = MakeRig();
  Matrix3 mat;
  EXPECT_EQ(rig->CreationPoint(MOUSE_POINT, 0, Point3(10, 20, 0), mat), CREATE_CONTINUE);
  EXPECT_EQ(mat.GetTrans(), Point3(10, 20, 0));
  EXPECT_FLOAT_EQ(rig->ParamBlock()->GetFloat(kRigHelperSize), 0.0f);
  EXPECT_EQ(rig->CreationPoint(MOUSE_MOVE, 1, Point3(13, 24, 0), mat), CREATE_CONTINUE);
  EXPECT_FLOAT_EQ(rig->ParamBlock()->GetFloat(kRigHelperSize), 5.0f);
  EXPECT_EQ(rig->CreationPoint(MOUSE_POINT, 1, Point3(10, 28, 0), mat), CREATE_STOP);
  EXPECT_FLOAT_EQ(rig->ParamBlock()->GetFloat(kRigHelperSize), 8.0f);
}

}  // namespace
}  // namespace marvolith::test
