// Copyright Marvolith contributors.
#include "host/objects/point_helper.h"

#include <algorithm>

#include "host/gfx/graphics_window.h"
#include "host/gfx/view_exp.h"
#include "host/registry/class_desc.h"
#include "host/scene/inode.h"

namespace {

// The host's point helper measures a constant screen size in 360ths of the view's width.
constexpr float kScreenSizeDivisor = 360.0f;

class PointHelpClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return true; }
  Animatable* Create(bool loading) override { return new PointHelpObject(loading); }
  const char* ClassName() override { return "Point"; }
  const char* InternalName() override { return "Point"; }
  SClass_ID SuperClassID() override { return HELPER_CLASS_ID; }
  Class_ID ClassID() override { return POINTHELP_CLASSID; }
  const char* Category() override { return "Standard"; }
};

PointHelpClassDesc point_cd;

ParamDef Flag(ParamID id, const char* name, const char* label, bool def) {
  return ParamDef(id, name, TYPE_BOOL, 0).Default(def).Label(label);
}

ParamBlockDesc2 point_pb(
    kPointHelpParams,
    "pointobj_params",
    0,
    &point_cd,
    P_AUTO_CONSTRUCT,
    0,
    {
        ParamDef(pointobj_size, "size", TYPE_WORLD, P_ANIMATABLE)
            .Default(20.0f)
            .Range(0.0, 1e30)
            .Label("Size"),
        Flag(pointobj_centermarker, "centermarker", "Center Marker", false),
        Flag(pointobj_axistripod, "axistripod", "Axis Tripod", false),
        Flag(pointobj_cross, "cross", "Cross", true),
        Flag(pointobj_box, "box", "Box", false),
        Flag(pointobj_screensize, "constantscreensize", "Constant Screen Size", false),
        Flag(pointobj_drawontop, "drawontop", "Draw On Top", false),
    });

}  // namespace

void BuildPointHelperLines(const PointHelperInput& in, std::vector<Segment3>& out) {
  out.clear();
  const float h = 0.5f * std::max(in.size, 0.0f);
  if (in.center_marker) {
    const float m = 0.1f * h;
    out.push_back({Point3(-m, -m, 0), Point3(m, m, 0)});
    out.push_back({Point3(-m, m, 0), Point3(m, -m, 0)});
  }
  if (in.axis_tripod) {
    out.push_back({Point3(0, 0, 0), Point3(h, 0, 0)});
    out.push_back({Point3(0, 0, 0), Point3(0, h, 0)});
    out.push_back({Point3(0, 0, 0), Point3(0, 0, h)});
  }
  if (in.cross) {
    out.push_back({Point3(-h, 0, 0), Point3(h, 0, 0)});
    out.push_back({Point3(0, -h, 0), Point3(0, h, 0)});
    out.push_back({Point3(0, 0, -h), Point3(0, 0, h)});
  }
  if (in.box) {
    // Corner i has bit 0 for +X, bit 1 for +Y, bit 2 for +Z; an edge joins corners one bit apart.
    auto corner = [h](int i) {
      return Point3((i & 1) ? h : -h, (i & 2) ? h : -h, (i & 4) ? h : -h);
    };
    for (int i = 0; i < 8; ++i) {
      for (int bit = 1; bit < 8; bit <<= 1) {
        if (!(i & bit)) out.push_back({corner(i), corner(i | bit)});
      }
    }
  }
}

ClassDesc2* GetPointHelpDesc() { return &point_cd; }

PointHelpObject::PointHelpObject(bool loading) {
  if (!loading) point_cd.MakeAutoParamBlocks(this);
}

MSTR PointHelpObject::SubAnimName(int i, bool localized) {
  return i == 0 ? MSTR("Parameters") : MSTR();
}

IParamBlock2* PointHelpObject::GetParamBlockByID(BlockID id) {
  return pblock_ && pblock_->ID() == id ? pblock_ : nullptr;
}

void PointHelpObject::SetReference(int i, RefTargetHandle target) {
  if (i != 0) return;
  pblock_ = static_cast<IParamBlock2*>(target);
  lines_valid_ = NEVER;
}

RefResult PointHelpObject::NotifyRefChanged(const Interval& change_int,
                                            RefTargetHandle target,
                                            PartID& part_id,
                                            RefMessage message,
                                            bool propagate) {
  if (message == REFMSG_CHANGE && target == pblock_) lines_valid_ = NEVER;
  return REF_SUCCEED;
}

PointHelperInput PointHelpObject::GetInput(TimeValue t, Interval& valid) {
  PointHelperInput in;
  if (!pblock_) return in;
  pblock_->GetValue(pointobj_size, t, in.size, valid);
  auto flag = [&](ParamID id, bool& v) {
    int x = v ? 1 : 0;
    pblock_->GetValue(id, t, x, valid);
    v = x != 0;
  };
  flag(pointobj_centermarker, in.center_marker);
  flag(pointobj_axistripod, in.axis_tripod);
  flag(pointobj_cross, in.cross);
  flag(pointobj_box, in.box);
  return in;
}

const std::vector<Segment3>& PointHelpObject::GetLines(TimeValue t) {
  if (!lines_valid_.InInterval(t)) {
    Interval valid = FOREVER;
    BuildPointHelperLines(GetInput(t, valid), lines_);
    lines_valid_ = valid;
  }
  return lines_;
}

Interval PointHelpObject::ObjectValidity(TimeValue t) {
  Interval valid = FOREVER;
  GetInput(t, valid);
  return valid;
}

ObjectState PointHelpObject::Eval(TimeValue t) {
  ObjectState os(this);
  os.NarrowObValid(ObjectValidity(t));
  return os;
}

float PointHelpObject::ScreenSizeFactor(TimeValue t, ViewExp* vpt, const Point3& pivot_ws) {
  if (!vpt || !pblock_ || !pblock_->GetInt(pointobj_screensize, t)) return 1.0f;
  return vpt->NonScalingObjectSize() * vpt->GetVPWorldWidth(pivot_ws) / kScreenSizeDivisor;
}

Matrix3 PointHelpObject::DisplayTM(TimeValue t, INode* inode, ViewExp* vpt) {
  Matrix3 tm = inode ? inode->GetObjectTM(t) : Matrix3();
  const float f = ScreenSizeFactor(t, vpt, tm.GetTrans());
  if (f != 1.0f) tm.PreScale(Point3(f, f, f));
  return tm;
}

int PointHelpObject::Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) {
  if (!inode || !vpt) return 0;
  GraphicsWindow* gw = vpt->getGW();
  const std::vector<Segment3>& lines = GetLines(t);
  const DWORD limits = gw->getRndLimits();
  if (pblock_ && pblock_->GetInt(pointobj_drawontop, t)) gw->setRndLimits(limits & ~GW_Z_BUFFER);
  gw->setTransform(DisplayTM(t, inode, vpt));
  gw->setColor(LINE_COLOR, NodeWireColor(inode));
  gw->startSegments();
  for (const Segment3& line : lines) {
    const Point3 ends[2] = {line.a, line.b};
    gw->segment(ends, 1);
  }
  gw->endSegments();
  gw->setRndLimits(limits);
  return 0;
}

void PointHelpObject::GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) {
  box = SegmentsBox(GetLines(t));
  if (box.IsEmpty()) box += Point3(0, 0, 0);
  const float f =
      ScreenSizeFactor(t, vpt, inode ? inode->GetObjectTM(t).GetTrans() : Point3::Origin);
  if (f != 1.0f) box = box * ScaleMatrix(Point3(f, f, f));
}

void PointHelpObject::GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) {
  if (!inode) {
    GetLocalBoundBox(t, inode, vpt, box);
    return;
  }
  const Matrix3 tm = DisplayTM(t, inode, vpt);
  box = SegmentsBox(GetLines(t), &tm);
  if (box.IsEmpty()) box += tm.GetTrans();
}

RefTargetHandle PointHelpObject::Clone(RemapDir& remap) {
  auto* clone = new PointHelpObject(true);
  clone->ReplaceReference(0, remap.CloneRef(pblock_));
  BaseClone(this, clone, remap);
  return clone;
}
