// Copyright Marvolith contributors.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "host/app/host_classes.h"
#include "host/gfx/draw_scene.h"
#include "host/gfx/headless_viewport.h"
#include "host/objects/bone_object.h"
#include "host/objects/point_helper.h"
#include "host/objects/spline_shape.h"
#include "host/objects/text_shape.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"

namespace {

class ObjectDisplayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    ip->Reset();
  }
  void TearDown() override { ip->Reset(); }

  template <typename T>
  T* Make(SClass_ID sclass, Class_ID cid) {
    return dynamic_cast<T*>(CreateInstance(sclass, cid));
  }
  // Draws node's object alone into a fresh frame of vpt; answers the list.
  static const DisplayList& Draw(INode* node, HeadlessViewport& vpt) {
    vpt.BeginFrame();
    node->EvalWorldState(0).obj->Display(0, node, &vpt, 0);
    return vpt.GetDisplayList();
  }
  // Every recorded point lies in the object's world box (with a little slack for rounding).
  static void ExpectInsideWorldBox(INode* node, HeadlessViewport& vpt) {
    Box3 box;
    node->EvalWorldState(0).obj->GetWorldBoundBox(0, node, &vpt, box);
    box.EnlargeBy(1e-3f * std::max(1.0f, box.Width().Length()));
    for (const Point3& p : vpt.GetDisplayList().points_ws)
      EXPECT_TRUE(box.Contains(p)) << "(" << p.x << ", " << p.y << ", " << p.z << ")";
  }

  Interface* ip = GetCOREInterface();
  HeadlessViewport vpt{ViewCamera::Orthographic(VIEW_FRONT, Point3(), 200.0f, 400, 300)};
};

// The host's usual table of node transforms, the mirrored one included.
std::vector<std::pair<std::string, Matrix3>> Placements() {
  Matrix3 rotated = RotateXMatrix(0.7f) * RotateZMatrix(-1.1f);
  rotated.SetTrans(Point3(3, -4, 5));
  return {{"identity", Matrix3()},
          {"moved", TransMatrix(Point3(30, 10, -5))},
          {"rotated", rotated},
          {"non-uniform scale", ScaleMatrix(Point3(2, 0.5f, 3))},
          {"mirrored", ScaleMatrix(Point3(-1, 1, 1)) * TransMatrix(Point3(-20, 0, 0))}};
}

TEST_F(ObjectDisplayTest, PointHelperDrawsItsFiguresOnTopWhenAsked) {
  auto* point = Make<PointHelpObject>(HELPER_CLASS_ID, POINTHELP_CLASSID);
  INode* node = ip->CreateObjectNode(point, "point");
  IParamBlock2* pb = point->GetParamBlock(0);
  EXPECT_EQ(Draw(node, vpt).LineCount(), 3);
  for (ParamID id : {pointobj_centermarker, pointobj_axistripod, pointobj_box})
    pb->SetValue(id, 0, true);
  pb->SetValue(pointobj_drawontop, 0, true);
  for (const auto& [name, tm] : Placements()) {
    SCOPED_TRACE(name);
    node->SetNodeTM(0, tm);
    const DisplayList& list = Draw(node, vpt);
    EXPECT_EQ(list.LineCount(), 2 + 3 + 3 + 12);
    for (const DisplayPrimitive& p : list.primitives) EXPECT_TRUE(p.draw_on_top);
    ExpectInsideWorldBox(node, vpt);
  }
  EXPECT_EQ(vpt.getGW()->getRndLimits(), GW_DEFAULT_RND_LIMITS) << "limits restored";
}

TEST_F(ObjectDisplayTest, ConstantScreenSizeKeepsThePixelSizeAtAnyDistance) {
  auto* point = Make<PointHelpObject>(HELPER_CLASS_ID, POINTHELP_CLASSID);
  INode* node = ip->CreateObjectNode(point, "point");
  point->GetParamBlock(0)->SetValue(pointobj_screensize, 0, true);
  Matrix3 eye = ViewAxes(VIEW_FRONT);
  eye.SetTrans(Point3(0, -100, 0));
  vpt.SetCamera(ViewCamera::Perspective(eye, kDefaultFovRad, 360, 240));
  // size 20 of 360ths of the view's width: the cross's X line spans 20 pixels.
  for (float y : {0.0f, 200.0f, 900.0f}) {
    SCOPED_TRACE(y);
    node->SetNodeTM(0, TransMatrix(Point3(5, y, 0)));
    const DisplayList& list = Draw(node, vpt);
    Point3 a, b;
    vpt.GetCamera().Project(list.points_ws[0], a);
    vpt.GetCamera().Project(list.points_ws[1], b);
    EXPECT_NEAR(b.x - a.x, 20.0f, 1e-2f);
    ExpectInsideWorldBox(node, vpt);
  }
  Box3 plain;
  point->GetWorldBoundBox(0, node, nullptr, plain);
  EXPECT_FLOAT_EQ(plain.Width().x, 20.0f) << "without a viewport, world units";
}

TEST_F(ObjectDisplayTest, BoneDrawsItsVisibleEdges) {
  auto* bone = Make<BoneObj>(GEOMOBJECT_CLASS_ID, BONE_OBJ_CLASSID);
  INode* node = ip->CreateObjectNode(bone, "bone");
  IParamBlock2* pb = bone->GetParamBlock(0);
  pb->SetValue(boneobj_length, 0, 40.0f);
  // Nose spokes, full ring, four long edges and end ring: the quads' diagonals stay hidden.
  EXPECT_EQ(Draw(node, vpt).LineCount(), 16);
  pb->SetValue(boneobj_sidefins, 0, true);
  pb->SetValue(boneobj_frontfin, 0, true);
  for (const auto& [name, tm] : Placements()) {
    SCOPED_TRACE(name);
    node->SetNodeTM(0, tm);
    EXPECT_EQ(Draw(node, vpt).LineCount(), 16 + 3 * 4) << "each fin is an outlined plate";
    ExpectInsideWorldBox(node, vpt);
  }
}

TEST_F(ObjectDisplayTest, ShapesDrawTheirSplinesInterpolated) {
  auto* shape = new SplineShape;
  INode* node = ip->CreateObjectNode(shape, "shape");
  shape->EditShape([](BezierShape& s) {
    s.steps = 2;
    Spline3D* ring = s.NewSpline();
    for (int i = 0; i < 4; ++i) {
      const float a = 1.5707964f * static_cast<float>(i);
      const Point3 p(10 * std::cos(a), 10 * std::sin(a), 0);
      ring->AddKnot(SplineKnot(KTYPE_AUTO, LTYPE_CURVE, p, p, p));
    }
    ring->SetClosed();
    Spline3D* line = s.NewSpline();
    line->AddKnot(SplineKnot(KTYPE_CORNER, LTYPE_CURVE, Point3(0, 0, 0), {}, {}));
    line->AddKnot(SplineKnot(KTYPE_CORNER, LTYPE_CURVE, Point3(0, 0, 30), {}, {}));
  });
  for (const auto& [name, tm] : Placements()) {
    SCOPED_TRACE(name);
    node->SetNodeTM(0, tm);
    const DisplayList& list = Draw(node, vpt);
    ASSERT_EQ(list.primitives.size(), 2u);
    EXPECT_TRUE(list.primitives[0].closed);
    EXPECT_EQ(list.primitives[0].count, 4u * 3u) << "steps + 1 pieces a segment";
    EXPECT_EQ(list.primitives[1].count, 4u);
    ExpectInsideWorldBox(node, vpt);
  }

  auto* text = Make<TextShape>(SHAPE_CLASS_ID, TEXT_CLASS_ID);
  INode* label = ip->CreateObjectNode(text, "label");
  text->SetText("AH");
  const DisplayList& list = Draw(label, vpt);
  EXPECT_EQ(list.primitives.size(), 5u) << "A has two strokes, H three";
  EXPECT_EQ(list.LineCount(), 2 + 1 + 1 + 1 + 1);
  ExpectInsideWorldBox(label, vpt);
}

}  // namespace
