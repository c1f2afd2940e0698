// Copyright Marvolith contributors.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/app/scene_file.h"
#include "host/objects/bone_object.h"
#include "host/objects/morpher.h"
#include "host/objects/point_helper.h"
#include "host/objects/spline_shape.h"
#include "host/objects/text_shape.h"
#include "host/scene/inode.h"
#include "tests/host/objects/object_test_util.h"

namespace marvolith::test {
namespace {

// One node per object class, each away from its defaults.
void BuildObjects(Interface* ip) {
  auto* bone = static_cast<BoneObj*>(CreateInstance(GEOMOBJECT_CLASS_ID, BONE_OBJ_CLASSID));
  bone->GetParamBlock(0)->SetValue(boneobj_length, 0, 33.0f);
  bone->GetParamBlock(0)->SetValue(boneobj_frontfin, 0, true);
  INode* bone_node = ip->CreateObjectNode(bone, "Rig_bone_spine_1");

  auto* point = static_cast<PointHelpObject*>(CreateInstance(HELPER_CLASS_ID, POINTHELP_CLASSID));
  point->GetParamBlock(0)->SetValue(pointobj_axistripod, 0, true);
  point->GetParamBlock(0)->SetValue(pointobj_size, 0, 7.5f);
  ip->CreateObjectNode(point, "Rig_helper_head");

  auto* line = static_cast<SplineShape*>(CreateInstance(SHAPE_CLASS_ID, SPLINESHAPE_CLASSID));
  line->EditShape([](BezierShape& s) {
    Spline3D* sp = s.NewSpline();
    sp->AddKnot(SplineKnot(KTYPE_AUTO, LTYPE_CURVE, Point3(0, 0, 0), Point3(), Point3()));
    sp->AddKnot(
        SplineKnot(KTYPE_BEZIER, LTYPE_CURVE, Point3(5, 5, 0), Point3(4, 5, 0), Point3(6, 5, 0)));
    sp->AddKnot(SplineKnot(KTYPE_CORNER, LTYPE_LINE, Point3(9, 0, 1), Point3(), Point3()));
    sp->SetClosed();
  });
  line->SetRenderable(true);
  ip->CreateObjectNode(line, "line");

  auto* text = static_cast<TextShape*>(CreateInstance(SHAPE_CLASS_ID, TEXT_CLASS_ID));
  text->SetText("Morpher");
  IDerivedObject* dob = CreateDerivedObject(text);
  auto* morpher = static_cast<Morpher*>(CreateInstance(OSM_CLASS_ID, MORPHER_CLASS_ID));
  dob->AddModifier(morpher);
  ip->CreateObjectNode(dob, "Rig_Morpher");
  morpher->AddChannel("RBrowEndUp", bone_node);
  morpher->AddChannel("LBrowEndUp");
  morpher->SetChannelActive(1, false);
  AnimateOn();
  morpher->SetChannelWeight(0, 0, 10.0f);
  morpher->SetChannelWeight(0, 4800, 90.0f);
  AnimateOff();
}

TEST_F(ObjectTest, EveryObjectSavesLoadsAndSavesTheSameBytes) {
  BuildObjects(ip);
  std::vector<std::uint8_t> first, second;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;

  INode* bone_node = ip->GetINodeByName("Rig_bone_spine_1");
  ASSERT_NE(bone_node, nullptr);
  auto* bone = dynamic_cast<BoneObj*>(bone_node->GetObjectRef());
  ASSERT_NE(bone, nullptr);
  Box3 box;
  bone->GetLocalBoundBox(0, bone_node, nullptr, box);
  EXPECT_FLOAT_EQ(box.Max().x, 33.0f);
  EXPECT_EQ(bone->GetMesh(0).verts.size(), 13u) << "the front fin";

  auto* point =
      dynamic_cast<PointHelpObject*>(ip->GetINodeByName("Rig_helper_head")->GetObjectRef());
  ASSERT_NE(point, nullptr);
  EXPECT_EQ(point->GetLines(0).size(), 6u) << "tripod and cross";
  EXPECT_FLOAT_EQ(point->GetParamBlock(0)->GetFloat(pointobj_size), 7.5f);

  auto* line = dynamic_cast<SplineShape*>(ip->GetINodeByName("line")->GetObjectRef());
  ASSERT_NE(line, nullptr);
  ASSERT_EQ(line->NumberOfCurves(), 1);
  EXPECT_TRUE(line->CurveClosed(0, 0));
  EXPECT_EQ(line->GetShape().GetSpline(0)->GetOutVec(1), Point3(6, 5, 0));
  EXPECT_TRUE(line->GetRenderable());

  INode* morph_node = ip->GetINodeByName("Rig_Morpher");
  auto* dob = dynamic_cast<IDerivedObject*>(morph_node->GetObjectRef());
  ASSERT_NE(dob, nullptr);
  auto* text = dynamic_cast<TextShape*>(dob->GetObjRef());
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text->GetText(), "Morpher");
  EXPECT_EQ(text->NumberOfCurves(), 11);
  MaxMorphModifier mm(dob->GetModifier(0));
  ASSERT_EQ(mm.NumMorphChannels(), 2);
  EXPECT_EQ(mm.GetMorphChannel(0).GetName(), "RBrowEndUp");
  EXPECT_EQ(mm.GetMorphChannel(0).GetMorphTarget(), bone_node);
  EXPECT_FALSE(mm.GetMorphChannel(1).IsActive());
  EXPECT_NEAR(mm.GetMorphChannel(0).GetMorphWeight(4800), 90.0f, 1e-4f);

  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(second, first);
}

TEST_F(ObjectTest, ClonesAreEqualAndIndependent) {
  BuildObjects(ip);
  {
    SCOPED_TRACE("bone");
    auto* bone = ip->GetINodeByName("Rig_bone_spine_1")->GetObjectRef();
    auto* copy = static_cast<BoneObj*>(CloneRefHierarchy(bone));
    ip->CreateObjectNode(copy, "copy");
    EXPECT_FLOAT_EQ(copy->GetParamBlock(0)->GetFloat(boneobj_length), 33.0f);
    copy->GetParamBlock(0)->SetValue(boneobj_length, 0, 1.0f);
    EXPECT_FLOAT_EQ(bone->GetParamBlock(0)->GetFloat(boneobj_length), 33.0f);
    EXPECT_EQ(copy->GetParamBlock(0)->GetOwner(), copy);
  }
  {
    SCOPED_TRACE("spline shape");
    auto* line = static_cast<SplineShape*>(ip->GetINodeByName("line")->GetObjectRef());
    auto* copy = static_cast<SplineShape*>(CloneRefHierarchy(line));
    ip->CreateObjectNode(copy, "line copy");
    EXPECT_TRUE(copy->GetShape() == line->GetShape());
    EXPECT_TRUE(copy->GetRenderable());
    copy->SetShape(BezierShape());
    EXPECT_EQ(line->NumberOfCurves(), 1);
  }
  {
    SCOPED_TRACE("text with Morpher");
    auto* dob = static_cast<IDerivedObject*>(ip->GetINodeByName("Rig_Morpher")->GetObjectRef());
    auto* copy = static_cast<IDerivedObject*>(CloneRefHierarchy(dob));
    ip->CreateObjectNode(copy, "Morpher copy");
    auto* morpher = static_cast<Morpher*>(copy->GetModifier(0));
    ASSERT_EQ(morpher->NumChannels(), 2);
    EXPECT_NE(morpher->GetChannelWeightController(0),
              static_cast<Morpher*>(dob->GetModifier(0))->GetChannelWeightController(0))
        << "weight tracks are cloned";
    morpher->DeleteChannel(0);
    EXPECT_EQ(static_cast<Morpher*>(dob->GetModifier(0))->NumChannels(), 2);
    EXPECT_STREQ(static_cast<TextShape*>(copy->GetObjRef())->GetText(), "Morpher");
  }
}

}  // namespace
}  // namespace marvolith::test
