// Copyright Marvolith contributors.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "host/controllers/controller_classes.h"
#include "host/objects/bone_object.h"
#include "host/objects/point_helper.h"
#include "host/scene/inode.h"
#include "tests/host/objects/object_test_util.h"

namespace marvolith::test {
namespace {

TriMesh Bone(float w, float h, float taper, float len) {
  BoneShapeInput in;
  in.width = w;
  in.height = h;
  in.taper = taper;
  in.length = len;
  TriMesh m;
  BuildBoneMesh(in, m);
  return m;
}

TEST(BoneMesh, DimensionsFollowWidthHeightTaperAndLength) {
  struct Case {
    float w, h, taper, len;
  };
  for (const Case& c : {Case{10, 10, 0.9f, 50}, Case{4, 8, 0, 20}, Case{6, 2, -1, 10},
                        Case{10, 10, 1, 0}, Case{10, 4, 0.5f, 3}}) {
    SCOPED_TRACE(::testing::Message()
                 << c.w << " x " << c.h << ", taper " << c.taper << ", length " << c.len);
    const TriMesh m = Bone(c.w, c.h, c.taper, c.len);
    ASSERT_EQ(m.verts.size(), 9u);
    ASSERT_EQ(m.faces.size(), 14u);
    const float end = 1.0f - c.taper;
    const Box3 b = m.BoundBox();
    EXPECT_FLOAT_EQ(b.Min().x, 0.0f);
    EXPECT_FLOAT_EQ(b.Max().x, c.len);
    EXPECT_FLOAT_EQ(b.Max().y, 0.5f * c.w * std::max(1.0f, end));
    EXPECT_FLOAT_EQ(b.Min().y, -0.5f * c.w * std::max(1.0f, end));
    EXPECT_FLOAT_EQ(b.Max().z, 0.5f * c.h * std::max(1.0f, end));
    // The full cross-section stands at the nose, the tapered one at the end.
    const float nose = std::min(0.5f * c.len, 0.5f * std::min(c.w, c.h));
    EXPECT_EQ(m.verts[1], Point3(nose, 0.5f * c.w, 0.5f * c.h));
    EXPECT_EQ(m.verts[7], Point3(c.len, -0.5f * c.w * end, -0.5f * c.h * end));
  }
}

TEST(BoneMesh, BodyIsAClosedSurfaceAndFinsStandOut) {
  const TriMesh body = Bone(10, 6, 0.5f, 40);
  std::map<std::array<int, 2>, int> uses;
  for (const auto& f : body.faces) {
    for (int k = 0; k < 3; ++k)
      ++uses[{std::min(f[k], f[(k + 1) % 3]), std::max(f[k], f[(k + 1) % 3])}];
  }
  for (const auto& [edge, n] : uses) EXPECT_EQ(n, 2) << edge[0] << "-" << edge[1];
  std::vector<std::array<int, 2>> edges;
  body.GetEdges(edges);
  EXPECT_EQ(edges.size(), uses.size());
  EXPECT_EQ(int(body.verts.size()) - int(edges.size()) + int(body.faces.size()), 2) << "Euler";

  BoneShapeInput in;
  in.width = 10;
  in.height = 6;
  in.taper = 0.5f;
  in.length = 40;
  in.side = {true, 3.0f, 0.25f, 0.25f};
  in.front = {true, 2.0f, 0.0f, 0.0f};
  in.back = {true, 1.0f, 0.8f, 0.7f};
  TriMesh m;
  BuildBoneMesh(in, m);
  ASSERT_EQ(m.verts.size(), 9u + 4 * 4);
  const Box3 b = m.BoundBox();
  // Side fin: outer edge from a quarter of the base on; the half width there is
  // 5 - 2.5 * 0.25 (nose 3, base 3..40) plus the fin's 3.
  EXPECT_FLOAT_EQ(b.Max().y, 5.0f - 2.5f * 0.25f + 3.0f);
  EXPECT_FLOAT_EQ(b.Min().y, -b.Max().y);
  EXPECT_FLOAT_EQ(b.Max().z, 3.0f + 2.0f) << "front fin untapered: full height at the nose";
  // Back fin tapers 0.8 + 0.7 > 1: its outer edge is one point in the middle of the overlap.
  EXPECT_EQ(m.verts[23], m.verts[24]);
  EXPECT_FLOAT_EQ(m.verts[23].x, 3.0f + 37.0f * 0.55f);
}

TEST_F(ObjectTest, BoneBoxFollowsItsBlockWithUndoAndAnimation) {
  auto* bone = Make<BoneObj>(GEOMOBJECT_CLASS_ID, BONE_OBJ_CLASSID);
  ASSERT_NE(bone, nullptr);
  INode* node = ip->CreateObjectNode(bone, "bone");
  IParamBlock2* pb = bone->GetParamBlock(0);
  Box3 box;
  Undoable([&] {
    pb->SetValue(boneobj_width, 0, 20.0f);
    pb->SetValue(boneobj_taper, 0, 0.0f);
  });
  bone->GetLocalBoundBox(0, node, nullptr, box);
  EXPECT_FLOAT_EQ(box.Max().y, 10.0f);
  ASSERT_TRUE(theHold.Undo());
  bone->GetLocalBoundBox(0, node, nullptr, box);
  EXPECT_FLOAT_EQ(box.Max().y, 5.0f) << "the cached mesh is dropped on undo";

  node->SetNodeTM(0, TransMatrix(Point3(100, 0, 0)));
  bone->GetWorldBoundBox(0, node, nullptr, box);
  EXPECT_FLOAT_EQ(box.Min().x, 100.0f);
  EXPECT_FLOAT_EQ(box.Max().x, 110.0f);

  EXPECT_TRUE(bone->ObjectValidity(2400).IsInfinite());
  ASSERT_TRUE(pb->SetController(boneobj_length, 0, NewDefaultFloatController()));
  AnimateOn();
  pb->SetValue(boneobj_length, 0, 10.0f);
  pb->SetValue(boneobj_length, 4800, 30.0f);
  AnimateOff();
  const ObjectState os = bone->Eval(2400);
  EXPECT_EQ(os.obj, bone);
  EXPECT_TRUE(os.obValid().InInterval(2400));
  EXPECT_FALSE(os.obValid().InInterval(0)) << "valid only while the length holds";
  bone->GetLocalBoundBox(4800, node, nullptr, box);
  EXPECT_FLOAT_EQ(box.Max().x, 30.0f);
}

TEST(PointHelperLines, EachFigureDrawsItsLines) {
  struct Case {
    const char* name;
    PointHelperInput in;
    size_t count;
    Box3 box;
  };
  const float s = 20.0f, h = 10.0f;
  const Case cases[] = {
      {"centre marker",
       {s, true, false, false, false},
       2,
       Box3(Point3(-1, -1, 0), Point3(1, 1, 0))},
      {"axis tripod", {s, false, true, false, false}, 3, Box3(Point3(0, 0, 0), Point3(h, h, h))},
      {"cross", {s, false, false, true, false}, 3, Box3(Point3(-h, -h, -h), Point3(h, h, h))},
      {"box", {s, false, false, false, true}, 12, Box3(Point3(-h, -h, -h), Point3(h, h, h))},
      {"all", {s, true, true, true, true}, 20, Box3(Point3(-h, -h, -h), Point3(h, h, h))},
      {"none", {s, false, false, false, false}, 0, Box3()},
  };
  std::vector<Segment3> lines;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    BuildPointHelperLines(c.in, lines);
    ASSERT_EQ(lines.size(), c.count);
    const Box3 b = SegmentsBox(lines);
    EXPECT_EQ(b.IsEmpty(), c.box.IsEmpty());
    if (!b.IsEmpty()) {
      EXPECT_EQ(b.Min(), c.box.Min());
      EXPECT_EQ(b.Max(), c.box.Max());
    }
  }
  // The box's edges: twelve axis-aligned lines of the full size, none twice.
  BuildPointHelperLines({s, false, false, false, true}, lines);
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_FLOAT_EQ(Length(lines[i].b - lines[i].a), s);
    for (size_t j = 0; j < i; ++j)
      EXPECT_FALSE(lines[i].a == lines[j].a && lines[i].b == lines[j].b);
  }
}

TEST_F(ObjectTest, PointHelperFollowsItsFlags) {
  auto* point = Make<PointHelpObject>(HELPER_CLASS_ID, POINTHELP_CLASSID);
  ASSERT_NE(point, nullptr);
  INode* node = ip->CreateObjectNode(point, "point");
  IParamBlock2* pb = point->GetParamBlock(0);
  EXPECT_EQ(point->GetLines(0).size(), 3u) << "a new point shows its cross";
  pb->SetValue(pointobj_cross, 0, false);
  Box3 box;
  point->GetLocalBoundBox(0, node, nullptr, box);
  EXPECT_EQ(box.Min(), Point3(0, 0, 0)) << "nothing drawn: the box of the pivot";
  EXPECT_EQ(box.Max(), Point3(0, 0, 0));
  pb->SetValue(pointobj_box, 0, true);
  pb->SetValue(pointobj_size, 0, 4.0f);
  point->GetWorldBoundBox(0, node, nullptr, box);
  EXPECT_EQ(box.Max(), Point3(2, 2, 2));
  pb->SetValue(pointobj_size, 0, -4.0f);
  EXPECT_FLOAT_EQ(pb->GetFloat(pointobj_size), 0.0f) << "size is clamped at 0";
}

}  // namespace
}  // namespace marvolith::test
