// Copyright Marvolith contributors.
#include "constraints/stretch_constraint.h"

#include "constraints/aim_frames.h"
#include "constraints/view_line.h"
#include "controllers/node_space.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "plugin/strings.h"

namespace marvolith {
namespace {

class StretchConstraintClassDesc : public MarvolithClassDesc {
 public:
  StretchConstraintClassDesc() : MarvolithClassDesc(ClassIndex::StretchConstraint) {}
  Animatable* Create(bool loading) override { return new StretchConstraint(loading); }
};

// The class's static tables, built at module load in this order: descriptor, block, interface.
StretchConstraintClassDesc stretch_cd;
ParamBlockDesc2 stretch_pb(
    kStretchConstraintParams,
    "params",
    0,
    &stretch_cd,
    P_AUTO_CONSTRUCT,
    0,
    {
        ParamDef(kStretchStart, "start", TYPE_INODE, 0).Validator(&GetNodeLoopValidator()),
        ParamDef(kStretchUseStart, "use_start", TYPE_BOOL, 0).Default(true),
        ParamDef(kStretchEnd, "end", TYPE_INODE, 0).Validator(&GetNodeLoopValidator()),
        ParamDef(kStretchUseEnd, "use_end", TYPE_BOOL, 0).Default(true),
        ParamDef(kStretchAimAxis, "aim_axis", TYPE_INT, 0).Default(0).Range(0, 2),
        ParamDef(kStretchAimAxisFlip, "aim_axis_flip", TYPE_BOOL, 0).Default(false),
        ParamDef(kStretchAlignAxis, "align_axis", TYPE_INT, 0)
            .Default(0)
            .Range(0, 2)
            .Label("Up Axis"),
        ParamDef(kStretchAlignAxisFlip, "align_axis_flip", TYPE_BOOL, 0).Default(false),
        ParamDef(kStretchAlign, "align", TYPE_INT, 0).Default(2).Range(0, 3),
        ParamDef(kStretchInheritScale, "inherit_scale", TYPE_INT, 0).Default(2).Range(0, 3),
        ParamDef(kStretchScaleActive, "stretch_scale_active", TYPE_BOOL, 0).Default(true),
        ParamDef(kStretchStretch, "stretch", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Range(-1000000.0, 1000000.0),
        ParamDef(kStretchSquash, "squash", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Range(-1000000.0, 1000000.0),
        ParamDef(kStretchLength, "length", TYPE_WORLD, P_ANIMATABLE)
            .Default(20.0f)
            .Range(0.0, 1000000.0),
        ParamDef(kStretchViewlineLength, "viewline_length", TYPE_FLOAT, 0)
            .Default(100.0f)
            .Range(0.0, 1e30),
        // Labelled with the up axis flip's text, as the constraint has always shown it.
        ParamDef(kStretchViewlineLengthAbs, "viewline_length_abs", TYPE_BOOL, 0, IDS_UP_AXIS_FLIP)
            .Default(true)
            .Label("Up Axis Flip"),
    });
FPInterfaceDesc stretch_fp{ISTRETCHCONSTRAINT_ID,
                           "StretchConstraint",
                           FP_MIXIN,
                           &stretch_cd,
                           {FPFunctionDef(kStretchResetLength, "ResetLength", FPType::TYPE_VOID)}};

}  // namespace

ClassDesc2* GetStretchConstraintDesc() { return &stretch_cd; }

FPInterfaceDesc* IStretchConstraint::GetDesc() { return &stretch_fp; }

FPStatus IStretchConstraint::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  if (fid == kStretchResetLength) return FPBind(result, p, this, &IStretchConstraint::ResetLength);
  return FPS_NO_SUCH_FUNCTION;
}

StretchConstraint::StretchConstraint(bool loading) {
  if (!loading) stretch_cd.MakeAutoParamBlocks(this);
}

MarvolithClassDesc* StretchConstraint::GetClassDesc() const { return &stretch_cd; }

BaseInterface* StretchConstraint::GetInterface(Interface_ID id) {
  if (id == ISTRETCHCONSTRAINT_ID) return static_cast<IStretchConstraint*>(this);
  return BlockConstraint::GetInterface(id);
}

void StretchConstraint::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!pblock_ || !val) return;
  Matrix3& tm_ws = *static_cast<Matrix3*>(val);
  parent_ws_ = method == CTRL_RELATIVE ? tm_ws : Matrix3();

  StretchInput in;
  in.parent_ws = parent_ws_;
  pblock_->GetValue(kStretchAlign, t, in.align, valid);
  pblock_->GetValue(kStretchInheritScale, t, in.inherit_scale, valid);

  INode* start = nullptr;
  bool use_start = true;
  pblock_->GetValue(kStretchStart, t, start, valid);
  pblock_->GetValue(kStretchUseStart, t, use_start, valid);
  Matrix3 start_ws;
  if (start && use_start) {
    start_ws = start->GetNodeTM(t, &valid);
    in.start_ws = &start_ws;
  }
  INode* end = nullptr;
  bool use_end = true;
  pblock_->GetValue(kStretchEnd, t, end, valid);
  pblock_->GetValue(kStretchUseEnd, t, use_end, valid);
  Matrix3 end_ws;
  if (end) {
    end_ws = end->GetNodeTM(t, &valid);
    in.end_ws = &end_ws;
    in.end_active = use_end;
  }
  if (in.end_active) {
    pblock_->GetValue(kStretchAimAxis, t, in.axes.aim_axis, valid);
    pblock_->GetValue(kStretchAimAxisFlip, t, in.axes.aim_flip, valid);
    pblock_->GetValue(kStretchAlignAxis, t, in.axes.align_axis, valid);
    pblock_->GetValue(kStretchAlignAxisFlip, t, in.axes.align_flip, valid);
    pblock_->GetValue(kStretchScaleActive, t, in.stretch_active, valid);
    if (in.stretch_active) {
      pblock_->GetValue(kStretchStretch, t, in.stretch, valid);
      pblock_->GetValue(kStretchSquash, t, in.squash, valid);
      pblock_->GetValue(kStretchLength, t, in.length, valid);
    }
  }

  const StretchResult r = StretchFrame(in);
  measured_ = r.measured;
  if (r.measured) current_length_ = r.distance;
  tm_ws = r.tm_ws;
}

int StretchConstraint::Display(TimeValue t, INode* inode, ViewExp* vpt, int) {
  if (!pblock_ || !inode || !vpt) return 0;
  INode* end = pblock_->GetINode(kStretchEnd);
  if (!end || pblock_->GetInt(kStretchUseEnd) == 0) return 0;
  ViewLine line;
  line.node_ws = inode->GetNodeTM(t);
  line.target_ws = end->GetNodeTM(t).GetTrans();
  line.axis = pblock_->GetInt(kStretchAimAxis);
  line.flip = pblock_->GetInt(kStretchAimAxisFlip) != 0;
  line.length = pblock_->GetFloat(kStretchViewlineLength);
  line.absolute = pblock_->GetInt(kStretchViewlineLengthAbs) != 0;
  DrawViewLine(*vpt, line);
  return 1;
}

RefTargetHandle StretchConstraint::Clone(RemapDir& remap) {
  auto* c = new StretchConstraint(true);
  c->parent_ws_ = parent_ws_;
  c->current_length_ = current_length_;
  c->measured_ = measured_;
  CloneInto(c, remap);
  return c;
}

void StretchConstraint::ResetLength() {
  if (!pblock_ || GetLocked()) return;
  Interface* ip = GetCOREInterface();
  const TimeValue t = ip->GetTime();
  if (pblock_->GetInt(kStretchScaleActive, t) == 0) return;
  // Measure at the current time: the kept length may come from another time or a stale parent.
  INode* node = FindOwnerNode(this);
  Matrix3 tm_ws = node ? node->GetParentTM(t) : parent_ws_;
  Interval ignored = FOREVER;
  GetValue(t, &tm_ws, ignored, CTRL_RELATIVE);
  if (!measured_) return;  // no active end: nothing was measured

  const bool began = !theHold.Holding();
  if (began) theHold.Begin();
  pblock_->SetValue(kStretchLength, t, current_length_);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  if (began) {
    const char* text = GetString(IDS_RESET_LENGTH);
    theHold.Accept(text ? text : "Reset Length");
  }
  ip->RedrawViews(t);
}

}  // namespace marvolith
