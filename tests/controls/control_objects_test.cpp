// Copyright Marvolith contributors.
// ControlHelper and ControlShape as scene objects: drawing, boxes, the shape cache, gizmo edits
// and their undo, the published interface, creation by mouse, and save and load.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>

#include "controls/display_transform.h"
#include "host/app/scene_file.h"
#include "host/gfx/headless_viewport.h"
#include "host/io/chunk_stream.h"
#include "host/math/affine.h"
#include "host/scene/inode.h"
#include "host/script/fp_dispatch.h"
#include "host/script/script_errors.h"
#include "tests/controls/controls_test_util.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/math_generators.h"

namespace marvolith::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

Box3 Grown(Box3 box) {
  box.EnlargeBy(1e-4f * (1.0f + Length(box.Width())));
  return box;
}

/// Every point drawn into vp lies in box.
::testing::AssertionResult BoxHoldsDrawing(const Box3& box, const DisplayList& list) {
  const Box3 grown = Grown(box);
  for (const Point3& p : list.points_ws) {
    if (!grown.Contains(p)) {
      return ::testing::AssertionFailure()
             << "(" << p.x << ", " << p.y << ", " << p.z << ") outside the box";
    }
  }
  return ::testing::AssertionSuccess();
}

class ControlObjectsTest : public ControlsTest {
 protected:
  static IParamBlock2* ParamBlock(ControlHelper* h) { return h->ParamBlock(); }
  ControlHelper* NewHelper(int type) {
    auto* h = new ControlHelper;
    h->SetType(type);
    return h;
  }
  HeadlessViewport vp{ViewCamera::Orthographic(VIEW_TOP, Point3(0, 0, 0), 100.0f, 400, 400)};
};

TEST_F(ControlObjectsTest, DisplayDrawsInTheNodesSpaceAndRestoresTheWindow) {
  ControlHelper* h = NewHelper(static_cast<int>(ControlType::Circle));
  INode* node = ip->CreateObjectNode(h, "ctrl");
  node->SetNodeTM(0, TransMatrix(Point3(30, 0, 0)));
  ParamBlock(h)->SetValue(kControlDrawOnTop, 0, true);
  vp.BeginFrame();
  h->Display(0, node, &vp, 0);
  const DisplayList& list = vp.GetDisplayList();
  ASSERT_EQ(list.Count(PrimitiveKind::kPolyline), 1);
  EXPECT_TRUE(list.primitives[0].draw_on_top);
  EXPECT_POINT3_NEAR(list.Bounds().Center(), Point3(30, 0, 0), 1e-4f);
  EXPECT_EQ(vp.getGW()->getRndLimits(), GW_DEFAULT_RND_LIMITS);

  // Size 0 is a point; the gizmo level adds the gizmo's box.
  ParamBlock(h)->SetValue(kControlSize, 0, 0.0f);
  vp.BeginFrame();
  h->Display(0, node, &vp, 0);
  EXPECT_EQ(vp.GetDisplayList().Count(PrimitiveKind::kMarker), 1);
  EXPECT_EQ(vp.GetDisplayList().LineCount(), 0);
  ParamBlock(h)->SetValue(kControlSize, 0, 20.0f);
  h->ActivateSubobjSel(kGizmoLevel);
  vp.BeginFrame();
  h->Display(0, node, &vp, 0);
  EXPECT_EQ(vp.GetDisplayList().Count(PrimitiveKind::kPolyline), 1 + 12);
  EXPECT_EQ(vp.GetDisplayList().primitives.back().color, kGizmoColor);

  // A type outside the enumeration is kept and draws nothing.
  h->SetType(77);
  EXPECT_EQ(h->GetType(), 77);
  vp.BeginFrame();
  h->Display(0, node, &vp, 0);
  EXPECT_EQ(vp.GetDisplayList().LineCount(), 12);
}

TEST_F(ControlObjectsTest, ConstantScreenSizeFollowsTheViewsWidth) {
  ControlHelper* h = Keep(NewHelper(static_cast<int>(ControlType::Circle)));
  ParamBlock(h)->SetValue(kControlConstantScreenSize, 0, true);
  for (float width : {100.0f, 400.0f}) {
    vp.SetCamera(ViewCamera::Orthographic(VIEW_TOP, Point3(0, 0, 0), width, 400, 400));
    vp.BeginFrame();
    h->Display(0, nullptr, &vp, 0);
    // Radius 10 times 0.005 of the view's width.
    EXPECT_NEAR(vp.GetDisplayList().Bounds().Width().x, 20.0f * kConstantScreenFactor * width,
                1e-3f);
    Box3 box;
    h->GetWorldBoundBox(0, nullptr, &vp, box);
    EXPECT_TRUE(BoxHoldsDrawing(box, vp.GetDisplayList()));
  }
}

TEST_F(ControlObjectsTest, HitTestFindsTheWireAndNothingWithoutABlock) {
  ControlHelper* h = Keep(NewHelper(static_cast<int>(ControlType::Circle)));
  // The top view is 100 units over 400 pixels: the ring of radius 10 passes 40 px right of centre.
  IPoint2 on_rim(240, 200);
  IPoint2 centre(200, 200);
  EXPECT_EQ(h->HitTest(0, nullptr, POINT_RGN, 1, 0, &on_rim, &vp), 1);
  EXPECT_EQ(h->HitTest(0, nullptr, POINT_RGN, 1, 0, &centre, &vp), 0);
  EXPECT_EQ(vp.getGW()->getRndLimits(), GW_DEFAULT_RND_LIMITS);
  auto* loading = Keep(new ControlHelper(true));
  EXPECT_EQ(loading->HitTest(0, nullptr, POINT_RGN, 1, 0, &on_rim, &vp), 0);
  vp.BeginFrame();
  loading->Display(0, nullptr, &vp, 0);
  EXPECT_TRUE(vp.GetDisplayList().primitives.empty());
}

RC_GTEST_FIXTURE_PROP(ControlObjectsTest, BoxesHoldEveryDrawnPoint, ()) {
  auto* h = new ControlHelper;
  auto* s = new ControlShape;
  for (IParamBlock2* pb : {h->ParamBlock(), s->ParamBlock()}) {
    pb->SetValue(kControlType, 0, *rc::gen::inRange(0, kControlTypeCount));
    pb->SetValue(kControlUniform, 0, *rc::gen::arbitrary<bool>());
    for (ParamID id : {kControlSize, kControlLength, kControlWidth, kControlHeight})
      pb->SetValue(id, 0, *GenFloat(0.0f, 60.0f));
    pb->SetValue(kControlThickness, 0, *GenFloat(0.0f, 1.0f));
    pb->SetValue(kControlCorner, 0, *GenFloat(0.0f, 20.0f));
    pb->SetValue(kControlSteps, 0, *rc::gen::inRange(0, 12));
    pb->SetValue(kControlWarpAmount, 0, *GenFloat(-1.0f, 1.0f));
    pb->SetValue(kControlWarpAxis, 0, *rc::gen::inRange(0, 3));
    pb->SetValue(kControlAxis, 0, *rc::gen::inRange(0, 3));
    pb->SetValue(kControlOffsetLine, 0, *rc::gen::arbitrary<bool>());
    pb->SetValue(kControlFaceCamera, 0, *rc::gen::arbitrary<bool>());
    pb->SetValue(kControlConstantScreenSize, 0, *rc::gen::arbitrary<bool>());
    pb->SetValue(kControlGizmo, 0, *GenAffine());
  }
  INode* hn = ip->CreateObjectNode(h, "helper");
  INode* sn = ip->CreateObjectNode(s, "shape");
  const Matrix3 place = *GenRotationMatrix() * TransMatrix(*GenPoint3(50.0f));
  hn->SetNodeTM(0, place);
  sn->SetNodeTM(0, place);
  const bool persp = *rc::gen::arbitrary<bool>();
  vp.SetCamera(persp
                   ? ViewCamera::Framing(VIEW_PERSP_USER,
                                         Box3(Point3(-80, -80, -80), Point3(80, 80, 80)), 320, 240)
                   : ViewCamera::Orthographic(VIEW_FRONT, Point3(0, 0, 0), 150.0f, 320, 240));
  for (auto [obj, node] : {std::pair<BaseObject*, INode*>(h, hn), {s, sn}}) {
    vp.BeginFrame();
    obj->Display(0, node, &vp, 0);
    Box3 world;
    obj->GetWorldBoundBox(0, node, &vp, world);
    RC_ASSERT(BoxHoldsDrawing(world, vp.GetDisplayList()));
    // The local box holds the same points in object space.
    Box3 local;
    obj->GetLocalBoundBox(0, node, &vp, local);
    const Matrix3 to_object = Inverse(node->GetObjectTM(0));
    const Box3 grown = Grown(local);
    for (const Point3& p : vp.GetDisplayList().points_ws) {
      const Point3 q = p * to_object;
      RC_ASSERT(grown.Contains(q) ||
                Length(q - grown.Center()) < 1e-3f * Length(grown.Width()) + 1e-3f);
    }
  }
}

TEST_F(ControlObjectsTest, LetteringShapeIsEmptyWithAPointBox) {
  auto* s = Keep(new ControlShape);
  s->SetType(static_cast<int>(ControlType::IKFK));
  s->ParamBlock()->SetValue(kControlOffsetLine, 0, true);
  EXPECT_EQ(s->NumberOfCurves(), 0);
  Box3 box;
  s->GetLocalBoundBox(0, nullptr, nullptr, box);
  EXPECT_EQ(box.Min(), Point3(0, 0, 0));
  EXPECT_EQ(box.Max(), Point3(0, 0, 0));
}

TEST_F(ControlObjectsTest, ShapeCacheIsRebuiltOnlyOutsideItsValidity) {
  auto* s = Keep(new ControlShape);
  s->SetType(static_cast<int>(ControlType::Circle));
  IParamBlock2* pb = s->ParamBlock();
  EXPECT_TRUE(s->ShapeValidity().Empty());
  EXPECT_EQ(s->GetShape(0).GetSpline(0)->KnotCount(), 4);
  EXPECT_TRUE(s->ShapeValidity().IsInfinite()) << "nothing is animated";
  EXPECT_NEAR(s->LengthOfCurve(0, 0), 20.0f * kPi, 0.02f) << "a Bezier circle of radius 10";
  EXPECT_TRUE(s->CurveClosed(0, 0));
  EXPECT_POINT3_NEAR(s->InterpCurve3D(0, 0, 0.25f), Point3(0, 10, 0), 0.01f);
  const BezierShape* cached = &s->GetShape(500);
  EXPECT_EQ(cached->steps, 6);

  // A parameter change empties the interval; the next read builds the new figure.
  pb->SetValue(kControlSteps, 0, 2);
  EXPECT_EQ(s->ShapeValidity().Start(), TIME_NegInfinity);
  EXPECT_EQ(s->ShapeValidity().End(), TIME_NegInfinity);
  EXPECT_EQ(s->GetShape(0).steps, 2);

  // `gizmo` and `axis` place the splines in object space.
  pb->SetValue(kControlAxis, 0, 0);
  pb->SetValue(kControlGizmo, 0, TransMatrix(Point3(0, 0, 7)));
  Box3 box;
  s->GetLocalBoundBox(0, nullptr, nullptr, box);
  EXPECT_POINT3_NEAR(box.Min(), Point3(0, -10, -3), 1e-4f);
  EXPECT_POINT3_NEAR(box.Max(), Point3(0, 10, 17), 1e-4f);

  // An animated size narrows the validity to its keys' span; `scale` multiplies the figure.
  AnimateOn();
  pb->SetValue(kControlSize, 0, 10.0f);
  pb->SetValue(kControlSize, 1600, 30.0f);
  AnimateOff();
  pb->SetValue(kControlScale, 0, 2.0f);
  s->GetShape(0);
  EXPECT_FALSE(s->ShapeValidity().InInterval(800));
  EXPECT_NEAR(s->GetShape(0).GetBoundingBox().Width().y, 20.0f, 1e-3f);
  EXPECT_NEAR(s->GetShape(1600).GetBoundingBox().Width().y, 60.0f, 1e-3f);
}

TEST_F(ControlObjectsTest, GizmoEditsAreUndoable) {
  ControlHelper* h = NewHelper(static_cast<int>(ControlType::Box));
  INode* node = ip->CreateObjectNode(h, "ctrl");
  node->SetNodeTM(0, RotateZMatrix(0.5f) * TransMatrix(Point3(10, 0, 0)));
  const Matrix3 partm = node->GetObjectTM(0);
  const Matrix3 world;  // edits in world axes
  auto gizmo_ws = [&] { return h->GetGizmoTM() * partm; };

  theHold.Begin();
  h->Move(0, partm, world, Point3(0, 0, 5));
  theHold.Accept("Move");
  EXPECT_POINT3_NEAR(gizmo_ws().GetTrans(), Point3(10, 0, 5), 1e-4f);
  const Matrix3 moved = h->GetGizmoTM();

  theHold.Begin();
  h->Rotate(0, partm, world, Quat(AngAxis(Point3(0, 0, 1), 1.0f)), true);
  theHold.Accept("Rotate");
  EXPECT_POINT3_NEAR(gizmo_ws().GetTrans(), Point3(10, 0, 5), 1e-4f) << "turned about itself";
  theHold.Begin();
  h->Scale(0, partm, world, Point3(2, 2, 2), false);
  theHold.Accept("Scale");
  EXPECT_POINT3_NEAR(gizmo_ws().GetTrans(), Point3(20, 0, 10), 1e-4f)
      << "scaled about the world's origin";
  EXPECT_POINT3_NEAR(GetScaleLengths(h->GetGizmoTM()), Point3(2, 2, 2), 1e-4f);
  const Matrix3 scaled = h->GetGizmoTM();

  theHold.Begin();
  h->ResetGizmo();
  theHold.Accept("Reset Gizmo");
  EXPECT_TRUE(h->GetGizmoTM().IsIdentity());

  ASSERT_TRUE(theHold.Undo());
  EXPECT_MATRIX3_NEAR(h->GetGizmoTM(), scaled, 1e-6f);
  ASSERT_TRUE(theHold.Undo());
  ASSERT_TRUE(theHold.Undo());
  EXPECT_MATRIX3_NEAR(h->GetGizmoTM(), moved, 1e-6f);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_TRUE(h->GetGizmoTM().IsIdentity());
  ASSERT_TRUE(theHold.Redo());
  EXPECT_MATRIX3_NEAR(h->GetGizmoTM(), moved, 1e-6f);
}

TEST_F(ControlObjectsTest, InterfaceSetsTheGizmoByParts) {
  ControlShape* s = Keep(new ControlShape);
  FPInterface* fpi = GetFPInterface(s, ICONTROLHELPER_SHAPE_ID);
  ASSERT_NE(fpi, nullptr);
  EXPECT_EQ(GetFPInterface(s, ICONTROLHELPER_HELPER_ID), nullptr);
  EXPECT_EQ(SetProperty(fpi, "type", FPValue::Name("Gear")).status, FPS_OK);
  EXPECT_EQ(s->GetType(), static_cast<int>(ControlType::Gear));
  EXPECT_EQ(GetProperty(fpi, "type").value.AsString(), "Gear");

  const Quat q(AngAxis(Normalize(Point3(1, 2, 3)), 0.8f));
  s->SetGizmoScale(Point3(2, 3, 4));
  s->SetGizmoRot(q);
  s->SetGizmoPos(Point3(5, 6, 7));
  EXPECT_QUAT_NEAR(GetProperty(fpi, "gizmoRot").value.AsQuat(), q, 1e-5f);
  EXPECT_POINT3_NEAR(s->GetGizmoScale(), Point3(2, 3, 4), 1e-4f);
  Matrix3 r;
  q.MakeMatrix(r);
  EXPECT_MATRIX3_NEAR(s->GetGizmoTM(),
                      ScaleMatrix(Point3(2, 3, 4)) * r * TransMatrix(Point3(5, 6, 7)), 1e-4f);
}

TEST_F(ControlObjectsTest, CreationDragSetsTheSizesFromTheFirstClick) {
  ControlHelper* h = Keep(NewHelper(static_cast<int>(ControlType::Sphere)));
  CreateMouseCallBack* cb = h->GetCreateMouseCallBack();
  ASSERT_NE(cb, nullptr);
  Matrix3 mat;
  // Top view, 100 units over 400 px: 4 px a unit, the centre at (200, 200).
  EXPECT_EQ(cb->proc(&vp, MOUSE_POINT, 0, 0, IPoint2(240, 200), mat), CREATE_CONTINUE);
  EXPECT_POINT3_NEAR(mat.GetTrans(), Point3(10, 0, 0), 1e-4f);
  EXPECT_EQ(h->ParamBlock()->GetFloat(kControlSize), 0.0f);
  EXPECT_EQ(cb->proc(&vp, MOUSE_MOVE, 1, 0, IPoint2(240, 160), mat), CREATE_CONTINUE);
  for (ParamID id : {kControlSize, kControlLength, kControlWidth, kControlHeight})
    EXPECT_NEAR(h->ParamBlock()->GetFloat(id), 10.0f, 1e-4f) << id;
  EXPECT_EQ(cb->proc(&vp, MOUSE_POINT, 1, 0, IPoint2(200, 200), mat), CREATE_STOP);
  EXPECT_NEAR(h->ParamBlock()->GetFloat(kControlSize), 10.0f, 1e-4f);
  EXPECT_EQ(cb->proc(&vp, MOUSE_ABORT, 1, 0, IPoint2(), mat), CREATE_ABORT);

  // A perspective view looking at the construction plane hits it under the cursor.
  HeadlessViewport persp(
      ViewCamera::Framing(VIEW_PERSP_USER, Box3(Point3(-10, -10, 0), Point3(10, 10, 0)), 320, 240));
  ASSERT_EQ(cb->proc(&persp, MOUSE_POINT, 0, 0, IPoint2(100, 150), mat), CREATE_CONTINUE);
  EXPECT_NEAR(mat.GetTrans().z, 0.0f, 1e-4f);
  Point3 screen;
  persp.GetCamera().Project(mat.GetTrans(), screen);
  EXPECT_NEAR(screen.x, 100.0f, 0.05f);
  EXPECT_NEAR(screen.y, 150.0f, 0.05f);
}

TEST_F(ControlObjectsTest, FaceSelectionChunkAndItsUndo) {
  auto* h = Keep(NewHelper(5));
  BitArray sel(10);
  sel.Set(1);
  sel.Set(9);
  theHold.Begin();
  h->SetSelectorFaceSel(sel);
  theHold.Accept("Select");
  // Chunk 0x0100: bit count (u32), then the bits eight to a byte.
  ChunkWriter w;
  w.BeginChunk(1);
  ASSERT_EQ(h->Save(&w), IO_OK);
  w.EndChunk();
  const Bytes expected = {0x01, 0x00, 0x12, 0x00, 0x00, 0x80,  // container 1, 18 bytes
                          0x00, 0x01, 0x0c, 0x00, 0x00, 0x00,  // chunk 0x0100, 12 bytes
                          10,   0,    0,    0,    0x02, 0x02};
  EXPECT_EQ(w.Bytes(), expected);
  auto* back = Keep(new ControlHelper(true));
  ChunkReader r(w.Bytes());
  ASSERT_EQ(r.OpenChunk(), IO_OK);
  ASSERT_EQ(back->Load(&r), IO_OK);
  EXPECT_EQ(back->GetSelectorFaceSel(), sel);

  Bytes damaged = expected;
  damaged[12] = 20;  // 20 bits would need 3 bytes
  ChunkReader bad(damaged);
  ASSERT_EQ(bad.OpenChunk(), IO_OK);
  EXPECT_EQ(back->Load(&bad), IO_ERROR);

  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(h->GetSelectorFaceSel().GetSize(), 0);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(h->GetSelectorFaceSel(), sel);
}

TEST_F(ControlObjectsTest, FaceSelectionIsPublishedAndUndoable) {
  auto* h = Keep(NewHelper(5));
  FPInterface* fpi = GetFPInterface(h, ICONTROLHELPER_HELPER_ID);
  ASSERT_NE(fpi, nullptr);
  // Script element numbers are 1-based: #(2, 4) selects faces 1 and 3.
  const FPValue numbers = FPValue::Table(FPType::TYPE_VALUE_TAB, {FPValue(2), FPValue(4)});
  theHold.Begin();
  ASSERT_EQ(SetProperty(fpi, "selector_face_sel", numbers).status, FPS_OK);
  theHold.Accept("Select");
  BitArray want(4);
  want.Set(1);
  want.Set(3);
  EXPECT_EQ(h->GetSelectorFaceSel(), want);
  EXPECT_EQ(GetProperty(fpi, "selector_face_sel").value.AsBitArray(), want);
  EXPECT_THROW(SetProperty(fpi, "selector_face_sel", FPValue::Table(FPType::TYPE_VALUE_TAB,
                                                                    {FPValue(0)})),
               ConversionError);
  EXPECT_EQ(h->GetSelectorFaceSel(), want) << "a refused value leaves the selection";
  ASSERT_TRUE(theHold.Undo());
  EXPECT_TRUE(h->GetSelectorFaceSel().IsEmpty());
}

TEST_F(ControlObjectsTest, SceneRoundTripKeepsBothClasses) {
  ControlHelper* h = NewHelper(static_cast<int>(ControlType::Arrow));
  auto* s = new ControlShape;
  INode* hn = ip->CreateObjectNode(h, "helper");
  INode* sn = ip->CreateObjectNode(s, "shape");
  s->SetType(static_cast<int>(ControlType::Peanut));
  s->ParamBlock()->SetValue(kControlScale, 0, 1.5f);
  s->ParamBlock()->SetValue(kControlSelectorNode, 0, hn);
  h->ParamBlock()->SetValue(kControlThickness, 0, 0.8f);
  h->ParamBlock()->SetValue(kControlSelectorColor, 0, Point3(1, 0.5f, 0));
  h->SetGizmoTM(RotateXMatrix(0.4f) * TransMatrix(Point3(1, 2, 3)));
  BitArray sel(5);
  sel.Set(3);
  s->SetSelectorFaceSel(sel);
  sn->SetNodeTM(0, TransMatrix(Point3(0, 40, 0)));
  vp.BeginFrame();
  h->Display(0, hn, &vp, 0);
  const DisplayList drawn = vp.GetDisplayList();
  const BezierShape shape = s->GetShape(0);

  Bytes first;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ip->Reset();
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
  INode* hn2 = ip->GetINodeByName("helper");
  INode* sn2 = ip->GetINodeByName("shape");
  ASSERT_TRUE(hn2 && sn2);
  auto* h2 = dynamic_cast<ControlHelper*>(hn2->GetObjectRef());
  auto* s2 = dynamic_cast<ControlShape*>(sn2->GetObjectRef());
  ASSERT_TRUE(h2 && s2);
  vp.BeginFrame();
  h2->Display(0, hn2, &vp, 0);
  EXPECT_EQ(vp.GetDisplayList().points_ws, drawn.points_ws);
  EXPECT_TRUE(s2->GetShape(0) == shape);
  EXPECT_EQ(s2->GetSelectorFaceSel(), sel);
  EXPECT_EQ(s2->ParamBlock()->GetINode(kControlSelectorNode), hn2);
  EXPECT_EQ(h2->ParamBlock()->GetPoint3(kControlSelectorColor), Point3(1, 0.5f, 0));
  Bytes second;
  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(first, second);
}

TEST_F(ControlObjectsTest, CloneCopiesBlockAndSelection) {
  auto* s = Keep(new ControlShape);
  s->SetType(static_cast<int>(ControlType::Star));
  s->SetSelectorFaceSel(BitArray(3));
  auto* clone = Keep(dynamic_cast<ControlShape*>(CloneRefHierarchy(s)));
  ASSERT_NE(clone, nullptr);
  EXPECT_NE(clone->ParamBlock(), s->ParamBlock());
  EXPECT_EQ(clone->GetType(), static_cast<int>(ControlType::Star));
  EXPECT_EQ(clone->GetSelectorFaceSel().GetSize(), 3);
}

TEST_F(ControlObjectsTest, DrawingAllocatesOnlyThePointArray) {
  // The same figure drawn again allocates nothing; a fresh helper only reserves its point array
  // (the viewport's list, warmed by the first helper, keeps its storage across frames).
  for (int type = 1; type < kControlTypeCount; ++type) {
    SCOPED_TRACE(ControlTypeName(type));
    ControlHelper* warm = NewHelper(type);
    ControlHelper* fresh = NewHelper(type);
    INode* a = ip->CreateObjectNode(warm, "a");
    INode* b = ip->CreateObjectNode(fresh, "b");
    ParamBlock(warm)->SetValue(kControlOffsetLine, 0, true);
    ParamBlock(fresh)->SetValue(kControlOffsetLine, 0, true);
    vp.BeginFrame();
    warm->Display(0, a, &vp, 0);
    b->GetObjectTM(0);
    vp.BeginFrame();
    {
      AllocationScope scope;
      warm->Display(0, a, &vp, 0);
      EXPECT_EQ(scope.Count(), 0u);
    }
    vp.BeginFrame();
    {
      AllocationScope scope;
      fresh->Display(0, b, &vp, 0);
      EXPECT_EQ(scope.Count(), 1u);
    }
  }
}

}  // namespace
}  // namespace marvolith::test
