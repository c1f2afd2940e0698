// Copyright Marvolith contributors.
#include "controls/control_helper.h"

#include <algorithm>

#include "controls/display_transform.h"
#include "controls/figure_builders.h"
#include "host/gfx/view_exp.h"
#include "host/registry/class_desc.h"
#include "host/scene/inode.h"

namespace marvolith {
namespace {

/// Hands each polyline to a graphics window.
class WindowOut : public PolylineOut {
 public:
  explicit WindowOut(GraphicsWindow& gw) : gw_(gw) {}
  void Polyline(std::span<const Point3> points, bool closed) override {
    gw_.polyline(static_cast<int>(points.size()), points.data(), nullptr, closed ? 1 : 0, nullptr);
  }

 private:
  GraphicsWindow& gw_;
};

// The class's static tables, built at module load in this order: descriptor, block, interface.
ControlHelperClassDesc control_helper_cd;
ParamBlockDesc2 control_helper_pb{kControlParams,
                                  "params",
                                  0,
                                  &control_helper_cd,
                                  P_AUTO_CONSTRUCT,
                                  0,
                                  ControlParamDefs(/*with_scale=*/false)};
FPInterfaceDesc control_helper_fp{
    ICONTROLHELPER_HELPER_ID,  "IControlHelper",    FP_MIXIN, &control_helper_cd, {},
    ControlHelperProperties(), ControlHelperEnums()};

/// The 12 edges of the cube -1..1 as pairs of corners (bit 0 +X, bit 1 +Y, bit 2 +Z).
constexpr int kCubeEdges[12][2] = {{0, 1}, {2, 3}, {4, 5}, {6, 7}, {0, 2}, {1, 3},
                                   {4, 6}, {5, 7}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};

}  // namespace

ClassDesc2* GetControlHelperDesc() { return &control_helper_cd; }

ControlHelper::ControlHelper(bool loading) {
  if (!loading) control_helper_cd.MakeAutoParamBlocks(this);
}

void ControlHelper::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(ClassIndex::ControlHelper);
}

FPInterfaceDesc* ControlHelper::GetDesc() { return &control_helper_fp; }

Interval ControlHelper::ObjectValidity(TimeValue t) {
  Interval valid = FOREVER;
  ReadFigure(t, valid);
  return valid;
}

ObjectState ControlHelper::Eval(TimeValue t) {
  ObjectState os(this);
  os.NarrowObValid(ObjectValidity(t));
  return os;
}

Matrix3 ControlHelper::DisplayTM(TimeValue t, const Matrix3& node_tm, ViewExp* vpt) {
  IParamBlock2* pb = ParamBlock();
  if (!pb) return node_tm;
  DisplayTransformInput in;
  in.node_tm = node_tm;
  in.gizmo = GetGizmoTM();
  in.axis = pb->GetInt(kControlAxis, t);
  in.face_camera = vpt && pb->GetInt(kControlFaceCamera, t) != 0;
  if (in.face_camera) vpt->GetAffineTM(in.view_tm);
  Matrix3 tm = ComputeDisplayTM(in);
  if (vpt && pb->GetInt(kControlConstantScreenSize, t) != 0) {
    ApplyConstantScreenSize(tm,
                            vpt->GetScreenScaleFactor(tm.GetTrans()) * vpt->NonScalingObjectSize());
  }
  return tm;
}

void ControlHelper::DrawFigure(GraphicsWindow& gw, const FigureInput& in) {
  const size_t ring = static_cast<size_t>(PolylineBuilder::RingPointCount(in.steps));
  const size_t wanted = std::max(ring, kMinPointCapacity);
  if (points_.capacity() < wanted) points_.reserve(wanted);
  WindowOut out(gw);
  PolylineBuilder builder(in.steps, points_, out);
  const Point3 half = FigureHalfExtents(in);
  const bool draws = in.type > 0 && in.type < kControlTypeCount;
  if (draws && half == Point3(0, 0, 0)) {
    // Size 0: a point, and the offset line alone.
    const Point3 origin(0, 0, 0);
    gw.marker(&origin, POINT_MRKR);
    FigureInput line = in;
    line.type = static_cast<int>(ControlType::None);
    GenerateFigure(line, FigureSet::kHelper, builder);
    return;
  }
  GenerateFigure(in, FigureSet::kHelper, builder);
}

int ControlHelper::Display(TimeValue t, INode* inode, ViewExp* vpt, int) {
  IParamBlock2* pb = ParamBlock();
  if (!pb || !vpt) return 0;
  GraphicsWindow* gw = vpt->getGW();
  Interval valid = FOREVER;
  FigureInput in = ReadFigure(t, valid);
  const Matrix3 node_tm = inode ? inode->GetObjectTM(t) : Matrix3();
  const Matrix3 tm = DisplayTM(t, node_tm, vpt);
  in.pivot = node_tm.GetTrans() * Inverse(tm);

  const DWORD limits = gw->getRndLimits();
  if (pb->GetInt(kControlDrawOnTop, t) != 0) gw->setRndLimits(limits & ~GW_Z_BUFFER);
  gw->setTransform(tm);
  if (inode) gw->setColor(LINE_COLOR, NodeWireColor(inode));
  DrawFigure(*gw, in);
  if (GetSubobjectLevel() == kGizmoLevel) {
    // The gizmo's box: the figure's unit cube through gizmo and axis, without the view's tricks.
    const Point3 half = FigureHalfExtents(in);
    gw->setTransform(FigureToObject(t) * node_tm);
    gw->setColor(LINE_COLOR, kGizmoColor);
    for (const auto& edge : kCubeEdges) {
      Point3 line[2];
      for (int k = 0; k < 2; ++k) {
        const int c = edge[k];
        line[k] = Point3((c & 1) ? half.x : -half.x, (c & 2) ? half.y : -half.y,
                         (c & 4) ? half.z : -half.z);
      }
      gw->polyline(2, line, nullptr, 0, nullptr);
    }
  }
  gw->setRndLimits(limits);
  return 0;
}

int ControlHelper::HitTest(
    TimeValue t, INode* inode, int type, int crossing, int, IPoint2* p, ViewExp* vpt) {
  IParamBlock2* pb = ParamBlock();
  if (!pb || !vpt || !p) return 0;
  GraphicsWindow* gw = vpt->getGW();
  HitRegion region;
  MakeHitRegion(region, static_cast<DWORD>(type), crossing, 4, p);
  const DWORD limits = gw->getRndLimits();
  gw->setRndLimits(limits | GW_PICK);
  gw->setHitRegion(&region);
  gw->clearHitCode();
  Interval valid = FOREVER;
  FigureInput in = ReadFigure(t, valid);
  const Matrix3 node_tm = inode ? inode->GetObjectTM(t) : Matrix3();
  const Matrix3 tm = DisplayTM(t, node_tm, vpt);
  in.pivot = node_tm.GetTrans() * Inverse(tm);
  gw->setTransform(tm);
  DrawFigure(*gw, in);
  const bool hit = gw->checkHitCode();
  gw->setRndLimits(limits);
  return hit ? 1 : 0;
}

Box3 ControlHelper::FigureBox(TimeValue t, const Matrix3& tm, const Point3& origin_space) {
  Interval valid = FOREVER;
  FigureInput in = ReadFigure(t, valid);
  in.pivot = origin_space * Inverse(tm);
  PointBoxOut out(tm);
  const size_t ring = static_cast<size_t>(PolylineBuilder::RingPointCount(in.steps));
  if (points_.capacity() < ring) points_.reserve(std::max(ring, kMinPointCapacity));
  PolylineBuilder builder(in.steps, points_, out);
  GenerateFigure(in, FigureSet::kHelper, builder);
  Box3 box = out.Box();
  if (box.IsEmpty()) box += Point3(0, 0, 0) * tm;
  return box;
}

void ControlHelper::GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) {
  IParamBlock2* pb = ParamBlock();
  if (!pb) {
    box = Box3(Point3(0, 0, 0), Point3(0, 0, 0));
    return;
  }
  const bool view_dependent =
      inode && vpt &&
      (pb->GetInt(kControlFaceCamera, t) != 0 || pb->GetInt(kControlConstantScreenSize, t) != 0);
  if (view_dependent) {
    const Matrix3 node_tm = inode->GetObjectTM(t);
    box = FigureBox(t, DisplayTM(t, node_tm, vpt) * Inverse(node_tm), Point3(0, 0, 0));
  } else {
    box = FigureBox(t, FigureToObject(t), Point3(0, 0, 0));
  }
}

void ControlHelper::GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) {
  if (!ParamBlock()) {
    box = Box3(Point3(0, 0, 0), Point3(0, 0, 0));
    return;
  }
  const Matrix3 node_tm = inode ? inode->GetObjectTM(t) : Matrix3();
  box = FigureBox(t, DisplayTM(t, node_tm, vpt), node_tm.GetTrans());
}

void ControlHelper::GetDeformBBox(TimeValue t, Box3& box, const Matrix3* tm) {
  const Matrix3 to_object = FigureToObject(t);
  box = FigureBox(t, tm ? to_object * *tm : to_object, tm ? tm->GetTrans() : Point3(0, 0, 0));
}

RefTargetHandle ControlHelper::Clone(RemapDir& remap) {
  auto* clone = new ControlHelper(true);
  clone->ReplaceReference(0, remap.CloneRef(ParamBlock()));
  CopySelectionTo(*clone);
  BaseClone(this, clone, remap);
  return clone;
}

}  // namespace marvolith
