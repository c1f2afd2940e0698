// Copyright Marvolith contributors.
#include <gtest/gtest.h>

#include <algorithm>

#include "host/app/host_classes.h"
#include "host/core/animatable.h"
#include "host/core/control.h"
#include "host/gfx/draw_scene.h"
#include "host/gfx/headless_viewport.h"
#include "host/objects/point_helper.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "tests/support/math_matchers.h"

namespace {

// A rotation track that keeps the frame it is given and draws one marker at its node's pivot.
class MarkerRotation : public Control {
 public:
  Class_ID ClassID() override { return Class_ID(0x7e57, 0x2d1); }
  SClass_ID SuperClassID() override { return CTRL_ROTATION_CLASS_ID; }
  void GetClassName(MSTR& s, bool = true) const override { s = "Marker Rotation"; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  void GetValue(TimeValue, void* val, Interval&, GetSetMethod method) override {
    if (method == CTRL_ABSOLUTE) *static_cast<Quat*>(val) = Quat();
  }
  void SetValue(TimeValue, void*, int, GetSetMethod) override {}
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int) override {
    GraphicsWindow* gw = vpt->getGW();
    gw->setTransform(Matrix3());
    const Point3 pivot = inode->GetNodeTM(t).GetTrans();
    gw->marker(&pivot, CIRCLE_MRKR);
    ++calls;
    return 1;
  }
  int calls = 0;
};

// Front view, 2 pixels a unit, origin at pixel (100, 50).
ViewCamera Front() { return ViewCamera::Orthographic(VIEW_FRONT, Point3(), 100.0f, 200, 100); }

TEST(HeadlessGraphicsWindow, RecordsPrimitivesInWorldSpaceWithTheirState) {
  HeadlessViewport vpt(Front());
  GraphicsWindow& gw = *vpt.getGW();
  const DisplayList& list = vpt.GetDisplayList();
  Matrix3 tm = RotateZMatrix(1.5707964f);
  tm.SetTrans(Point3(5, 0, 0));
  gw.setTransform(tm);
  gw.setColor(LINE_COLOR, 1, 0, 0);
  const Point3 square[4] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
  gw.polyline(4, square, nullptr, 1, nullptr);
  ASSERT_EQ(list.primitives.size(), 1u);
  EXPECT_TRUE(list.primitives[0].closed);
  EXPECT_FALSE(list.primitives[0].draw_on_top);
  EXPECT_EQ(list.primitives[0].color, Point3(1, 0, 0));
  EXPECT_POINT3_NEAR(list.Points(list.primitives[0])[2], Point3(4, 1, 0), 1e-6f)
      << "object space through the transform: (1, 1) turned a quarter about Z, moved 5 in X";
  EXPECT_EQ(list.LineCount(), 4);

  {
    SCOPED_TRACE("edge states and vertex colours split a polyline into runs");
    vpt.BeginFrame();
    const int es[4] = {GW_EDGE_VIS, GW_EDGE_SKIP, GW_EDGE_VIS, GW_EDGE_VIS};
    const Point3 rgb[4] = {{1, 1, 1}, {1, 1, 1}, {0, 0, 1}, {0, 0, 1}};
    gw.polyline(4, square, nullptr, 1, es);
    EXPECT_EQ(list.primitives.size(), 2u);
    EXPECT_EQ(list.LineCount(), 3);
    vpt.BeginFrame();
    gw.polyline(4, square, rgb, 0, nullptr);
    ASSERT_EQ(list.primitives.size(), 2u);
    EXPECT_EQ(list.primitives[1].color, Point3(0, 0, 1));
    EXPECT_EQ(list.primitives[1].count, 2u);
  }
  {
    SCOPED_TRACE("z-buffer off marks draw-on-top; markers, text and fills keep their colours");
    vpt.BeginFrame();
    gw.setRndLimits(gw.getRndLimits() & ~GW_Z_BUFFER);
    gw.setColor(MARKER_COLOR, 0, 1, 0);
    gw.setColor(TEXT_COLOR, 0, 0, 1);
    gw.setColor(FILL_COLOR, 1, 1, 0);
    gw.marker(&square[1], CIRCLE_MRKR);
    gw.text(&square[2], "Root");
    gw.text(&square[2], "");
    gw.triangle(square, nullptr);
    const Point3 seg[2] = {square[0], square[3]};
    gw.segment(seg, 0);
    ASSERT_EQ(list.primitives.size(), 3u);
    EXPECT_TRUE(std::all_of(list.primitives.begin(), list.primitives.end(),
                            [](const DisplayPrimitive& p) { return p.draw_on_top; }));
    EXPECT_EQ(list.primitives[0].marker, CIRCLE_MRKR);
    EXPECT_EQ(list.primitives[0].color, Point3(0, 1, 0));
    EXPECT_EQ(list.texts.at(static_cast<size_t>(list.primitives[1].text)), "Root");
    EXPECT_EQ(list.primitives[1].color, Point3(0, 0, 1));
    EXPECT_EQ(list.primitives[2].kind, PrimitiveKind::kPolygon);
    EXPECT_EQ(list.primitives[2].color, Point3(1, 1, 0));
  }
}

TEST(HeadlessGraphicsWindow, PickModeTestsAgainstTheRegionAndRecordsNothing) {
  HeadlessViewport vpt(Front());
  GraphicsWindow& gw = *vpt.getGW();
  gw.setRndLimits(gw.getRndLimits() | GW_PICK);
  const Point3 line[2] = {{-10, 0, 0}, {10, 0, 0}};  // pixels (80, 50) to (120, 50)
  auto hits = [&](DWORD type, int crossing, IPoint2 a, IPoint2 b) {
    const IPoint2 pts[2] = {a, b};
    HitRegion hr;
    MakeHitRegion(hr, type, crossing, 3, pts);
    gw.setHitRegion(&hr);
    gw.clearHitCode();
    gw.polyline(2, line, nullptr, 0, nullptr);
    return gw.checkHitCode();
  };
  EXPECT_TRUE(hits(POINT_RGN, 1, {100, 52}, {}));
  EXPECT_EQ(gw.getHitDistance(), 2u);
  EXPECT_FALSE(hits(POINT_RGN, 1, {100, 54}, {}));
  EXPECT_FALSE(hits(POINT_RGN, 1, {125, 50}, {})) << "beyond the end by more than epsilon";
  EXPECT_TRUE(hits(RECT_RGN, 1, {110, 40}, {130, 60})) << "crossing: touching is enough";
  EXPECT_FALSE(hits(RECT_RGN, 0, {110, 40}, {130, 60})) << "window: must lie inside";
  EXPECT_TRUE(hits(RECT_RGN, 0, {70, 40}, {130, 60}));
  EXPECT_TRUE(hits(CIRCLE_RGN, 1, {100, 60}, {100, 50}));
  EXPECT_TRUE(vpt.GetDisplayList().primitives.empty());
}

class DrawSceneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    ip->Reset();
  }
  void TearDown() override { ip->Reset(); }

  INode* PointNode(const char* name, const Point3& pos, DWORD wire) {
    auto* obj = dynamic_cast<PointHelpObject*>(CreateInstance(HELPER_CLASS_ID, POINTHELP_CLASSID));
    INode* node = ip->CreateObjectNode(obj, name);
    node->SetNodeTM(0, TransMatrix(pos));
    node->SetWireColor(wire);
    return node;
  }
  static std::vector<const DisplayPrimitive*> Of(const DisplayList& list, INode* node) {
    std::vector<const DisplayPrimitive*> out;
    for (const DisplayPrimitive& p : list.primitives) {
      if (p.node == Animatable::GetHandleByAnim(node)) out.push_back(&p);
    }
    return out;
  }

  Interface* ip = GetCOREInterface();
};

TEST_F(DrawSceneTest, DrawsVisibleNodesInTheirWireColourAndSkipsHiddenOnes) {
  INode* plain = PointNode("plain", Point3(10, 0, 0), 0x0000ff);  // red, as 0x00BBGGRR
  INode* chosen = PointNode("chosen", Point3(20, 0, 0), 0x00ff00);
  INode* frozen = PointNode("frozen", Point3(30, 0, 0), 0x00ff00);
  INode* hidden = PointNode("hidden", Point3(40, 0, 0), 0x00ff00);
  INode* bare = ip->CreateObjectNode(nullptr, "bare");
  plain->AttachChild(bare, 0);
  ip->SelectNode(chosen);
  frozen->Freeze(true);
  hidden->Hide(true);

  HeadlessViewport vpt(Front());
  GraphicsWindow& gw = *vpt.getGW();
  gw.setColor(LINE_COLOR, 0.1f, 0.2f, 0.3f);
  DrawScene(0, vpt);
  const DisplayList& list = vpt.GetDisplayList();
  EXPECT_EQ(gw.getColor(LINE_COLOR), Point3(0.1f, 0.2f, 0.3f)) << "window state restored";
  EXPECT_TRUE(Of(list, hidden).empty());
  for (auto [node, color] : {std::pair{plain, Point3(1, 0, 0)}, std::pair{chosen, GetSelColor()},
                             std::pair{frozen, GetFreezeColor()}}) {
    SCOPED_TRACE(node->GetName());
    const auto prims = Of(list, node);
    ASSERT_EQ(prims.size(), 3u) << "the default point helper is a cross of 3 lines";
    for (const DisplayPrimitive* p : prims) EXPECT_EQ(p->color, color);
    EXPECT_POINT3_NEAR(list.Points(*prims[0])[0], node->GetNodeTM(0).GetTrans() - Point3(10, 0, 0),
                       1e-4f);
  }
  // The bare child: a link to its parent, then its tripod; all of it inside the scene's box.
  const auto bare_prims = Of(list, bare);
  ASSERT_EQ(bare_prims.size(), 4u);
  EXPECT_POINT3_NEAR(list.Points(*bare_prims[0])[1], Point3(10, 0, 0), 1e-5f);
  Box3 box = SceneWorldBox(0);
  box.EnlargeBy(1e-4f);
  for (const Point3& p : list.points_ws) EXPECT_TRUE(box.Contains(p)) << p.x << " " << p.z;
  EXPECT_FALSE(box.Contains(Point3(45, 0, 0))) << "the hidden node's cross does not count";
}

// A transform controller draws after the object, reached through the PRS that holds it.
TEST_F(DrawSceneTest, TransformControllersDrawAfterTheObjectThroughThePRS) {
  INode* node = PointNode("aimed", Point3(10, 0, 5), 0x0000ff);
  auto* marker = new MarkerRotation;
  ASSERT_TRUE(node->GetTMController()->SetRotationController(marker));
  HeadlessViewport vpt(Front());
  DrawScene(0, vpt);
  EXPECT_EQ(marker->calls, 1);
  const auto prims = Of(vpt.GetDisplayList(), node);
  ASSERT_EQ(prims.size(), 4u) << "the helper's cross, then the controller's marker";
  EXPECT_EQ(prims.back()->kind, PrimitiveKind::kMarker);
  EXPECT_EQ(prims.back()->color, Point3(1, 0, 0)) << "in the node's wire colour";
  EXPECT_POINT3_NEAR(vpt.GetDisplayList().Points(*prims.back())[0], Point3(10, 0, 5), 1e-5f);

  node->Hide(true);
  vpt.BeginFrame();
  DrawScene(0, vpt);
  EXPECT_EQ(marker->calls, 1) << "a hidden node's controller does not draw";
}

}  // namespace
