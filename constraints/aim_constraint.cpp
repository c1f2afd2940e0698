// Copyright Marvolith contributors.
#include "constraints/aim_constraint.h"

#include "constraints/aim_frames.h"
#include "constraints/view_line.h"
#include "controllers/node_space.h"
#include "host/math/geometry.h"
#include "host/registry/class_desc.h"
#include "host/scene/inode.h"
#include "plugin/strings.h"

namespace marvolith {
namespace {

class AimConstraintClassDesc : public MarvolithClassDesc {
 public:
  AimConstraintClassDesc() : MarvolithClassDesc(ClassIndex::AimConstraint) {}
  Animatable* Create(bool loading) override { return new AimConstraint(loading); }
};

// The class's static tables, built at module load in this order: descriptor, block.
AimConstraintClassDesc aim_cd;
ParamBlockDesc2 aim_pb(
    kAimConstraintParams,
    "params",
    0,
    &aim_cd,
    P_AUTO_CONSTRUCT,
    0,
    {
        ParamDef(kAimTarget, "target", TYPE_INODE, 0)
            .Validator(&GetNodeLoopValidator())
            .Label("Target Node"),
        ParamDef(kAimUseTarget, "use_target", TYPE_BOOL, 0).Default(true),
        ParamDef(kAimAimAxis, "aim_axis", TYPE_INT, 0).Default(0).Range(0, 2),
        ParamDef(kAimAimAxisFlip, "aim_axis_flip", TYPE_BOOL, 0).Default(false),
        ParamDef(kAimAlignAxis, "align_axis", TYPE_INT, 0).Default(0).Range(0, 2).Label("Up Axis"),
        ParamDef(kAimAlignAxisFlip, "align_axis_flip", TYPE_BOOL, 0).Default(false),
        ParamDef(kAimAlign, "align", TYPE_INT, 0).Default(1).Range(0, 2),
        ParamDef(kAimAlignNode, "align_node", TYPE_INODE, 0).Validator(&GetNodeLoopValidator()),
        ParamDef(kAimViewlineLength, "viewline_length", TYPE_FLOAT, 0)
            .Default(100.0f)
            .Range(0.0, 1e30),
        // Labelled with the up axis flip's text, as the constraint has always shown it.
        ParamDef(kAimViewlineLengthAbs, "viewline_length_abs", TYPE_BOOL, 0, IDS_UP_AXIS_FLIP)
            .Default(true)
            .Label("Up Axis Flip"),
    });

}  // namespace

ClassDesc2* GetAimConstraintDesc() { return &aim_cd; }

AimConstraint::AimConstraint(bool loading) {
  if (!loading) aim_cd.MakeAutoParamBlocks(this);
}

MarvolithClassDesc* AimConstraint::GetClassDesc() const { return &aim_cd; }

void AimConstraint::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!pblock_ || !val) return;
  if (method == CTRL_RELATIVE) parent_ws_ = *static_cast<const Matrix3*>(val);

  int align = static_cast<int>(AimAlign::Parent);
  pblock_->GetValue(kAimAlign, t, align, valid);
  Matrix3 align_node_ws;
  const Matrix3* align_node = nullptr;
  if (align == static_cast<int>(AimAlign::Node)) {
    INode* node = nullptr;
    pblock_->GetValue(kAimAlignNode, t, node, valid);
    if (node) {
      align_node_ws = node->GetNodeTM(t, &valid);
      align_node = &align_node_ws;
    }
  }
  const Matrix3 a_ws = AimAlignFrame(parent_ws_, align, align_node);

  INode* target = nullptr;
  bool use_target = true;
  pblock_->GetValue(kAimTarget, t, target, valid);
  pblock_->GetValue(kAimUseTarget, t, use_target, valid);
  if (!target || !use_target) {  // no target: the frame, not turned
    if (method == CTRL_RELATIVE) {
      *static_cast<Matrix3*>(val) = a_ws;
    } else {
      *static_cast<Quat*>(val) = Quat();
    }
    return;
  }
  AimAxes axes;
  pblock_->GetValue(kAimAimAxis, t, axes.aim_axis, valid);
  pblock_->GetValue(kAimAimAxisFlip, t, axes.aim_flip, valid);
  pblock_->GetValue(kAimAlignAxis, t, axes.align_axis, valid);
  pblock_->GetValue(kAimAlignAxisFlip, t, axes.align_flip, valid);
  const AimResult aim = AimAt(a_ws, target->GetNodeTM(t, &valid).GetTrans(), axes);
  if (method == CTRL_RELATIVE) {
    *static_cast<Matrix3*>(val) = aim.World();
  } else {
    *static_cast<Quat*>(val) = aim.q;
  }
}

int AimConstraint::Display(TimeValue t, INode* inode, ViewExp* vpt, int) {
  if (!pblock_ || !inode || !vpt) return 0;
  INode* target = pblock_->GetINode(kAimTarget);
  if (!target || pblock_->GetInt(kAimUseTarget) == 0) return 0;
  ViewLine line;
  line.node_ws = inode->GetNodeTM(t);
  line.target_ws = target->GetNodeTM(t).GetTrans();
  line.axis = pblock_->GetInt(kAimAimAxis);
  line.flip = pblock_->GetInt(kAimAimAxisFlip) != 0;
  line.length = pblock_->GetFloat(kAimViewlineLength);
  line.absolute = pblock_->GetInt(kAimViewlineLengthAbs) != 0;
  DrawViewLine(*vpt, line);
  return 1;
}

RefTargetHandle AimConstraint::Clone(RemapDir& remap) {
  auto* c = new AimConstraint(true);
  c->parent_ws_ = parent_ws_;
  CloneInto(c, remap);
  return c;
}

}  // namespace marvolith
