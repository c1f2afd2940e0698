// Copyright Marvolith contributors.
#include "chains/curve_ik_scripts.h"

#include <algorithm>
#include <string>
#include <vector>

#include "chains/curve_ik_chain.h"
#include "chains/curve_ik_control.h"
#include "chains/curve_ik_solver.h"
#include "controls/control_helper.h"
#include "host/math/geometry.h"
#include "host/objects/bone_object.h"
#include "host/params/iparamb2.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/script/script_errors.h"
#include "host/undo/hold.h"

namespace marvolith {
namespace {

constexpr const char* kFunction = "CreateCurveIKSolver";
/// The end of a re-spaced run is a short bone of this share of the bones' length.
constexpr float kEndBoneShare = 0.25f;

// The run of joints as a polyline: world positions and cumulative lengths.
struct Run {
  std::vector<INode*> joints;
  std::vector<Point3> pos;
  std::vector<float> length;  // from the start to each joint
  float Total() const { return length.empty() ? 0.0f : length.back(); }

  // The joint whose segment holds arc length l (the last segment's start beyond the end).
  size_t SegmentAt(float l) const {
    for (size_t i = 0; i + 1 < pos.size(); ++i) {
      if (l <= length[i + 1]) return i;
    }
    return pos.size() >= 2 ? pos.size() - 2 : 0;
  }
  // The point at arc length l, clamped to the run.
  Point3 At(float l) const {
    if (pos.size() < 2) return pos.empty() ? Point3() : pos[0];
    l = std::clamp(l, 0.0f, Total());
    const size_t i = SegmentAt(l);
    const float f = SafeDiv(l - length[i], length[i + 1] - length[i], kSolverSafeDivEpsilon);
    return pos[i] + (pos[i + 1] - pos[i]) * std::clamp(f, 0.0f, 1.0f);
  }
  void Measure() {
    pos.clear();
    length.clear();
    for (INode* j : joints) {
      pos.push_back(j->GetNodeTM(GetCOREInterface()->GetTime()).GetTrans());
      length.push_back(length.empty() ? 0.0f
                                      : length.back() + Length(pos.back() - pos[pos.size() - 2]));
    }
  }
};

// Joints from start to end by walking up end's parents; false when the walk passes the root
// before it meets start.
bool CollectJoints(INode* start, INode* end, std::vector<INode*>& out) {
  out.clear();
  for (INode* n = end; n; n = n->GetParentNode()) {
    if (n->IsRootNode()) return false;
    out.insert(out.begin(), n);
    if (n == start) return true;
  }
  return false;
}

Matrix3 Rotation(const Matrix3& tm) {
  Matrix3 r = tm;
  r.NoTrans();
  r.Orthogonalize();
  return r;
}

INode* NewHelper(const char* name, const Matrix3& tm_ws, INode* parent = nullptr) {
  INode* node = GetCOREInterface()->CreateObjectNode(new ControlHelper, name);
  if (parent) parent->AttachChild(node, 0);
  node->SetNodeTM(GetCOREInterface()->GetTime(), tm_ws);
  return node;
}

// A new run of `bones` bones (bones + 1 nodes) spaced evenly along the old one, each aiming at
// the next with the up direction of the old joint it lies on.
std::vector<INode*> Respace(const Run& old, int bones) {
  const TimeValue t = GetCOREInterface()->GetTime();
  const float step = old.Total() / static_cast<float>(bones);
  INode* parent = old.joints[0]->GetParentNode();
  std::vector<INode*> made;
  Matrix3 last_rot;
  for (int i = 0; i <= bones; ++i) {
    const float l = step * static_cast<float>(i);
    const Point3 here = old.At(l);
    const Point3 up = old.joints[old.SegmentAt(l)]->GetNodeTM(t).GetRow(1);
    Matrix3 tm = i < bones ? AimFrame(old.At(l + step) - here, up) : last_rot;
    last_rot = tm;
    tm.SetTrans(here);
    auto* bone = new BoneObj;
    const float bone_length = i < bones ? step : step * kEndBoneShare;
    if (IParamBlock2* pb = bone->GetParamBlock(0)) {
      pb->SetValue(boneobj_length, 0, bone_length);
      pb->SetValue(boneobj_width, 0, bone_length * kEndBoneShare);
      pb->SetValue(boneobj_height, 0, bone_length * kEndBoneShare);
    }
    INode* node = GetCOREInterface()->CreateObjectNode(bone, "CurveIKBone");
    if (parent && !parent->IsRootNode()) parent->AttachChild(node, 0);
    node->SetNodeTM(t, tm);
    parent = node;
    made.push_back(node);
  }
  return made;
}

bool IsNumber(const FPValue& v) {
  switch (v.Type()) {
    case FPType::TYPE_INT:
    case FPType::TYPE_FLOAT:
    case FPType::TYPE_ANGLE:
    case FPType::TYPE_PCNT_FRAC:
    case FPType::TYPE_WORLD:
    case FPType::TYPE_TIMEVALUE:
    case FPType::TYPE_INDEX:
      return true;
    default:
      return false;
  }
}

}  // namespace

INode* BuildCurveIKChain(INode* start, INode* end, const CurveIKBuildOptions& options) {
  if (!start || !end) return nullptr;
  Run run;
  if (!CollectJoints(start, end, run.joints)) return nullptr;
  Interface* ip = GetCOREInterface();
  const TimeValue t = ip->GetTime();
  const int point_count = std::max(options.control_points, 2);
  const int type = options.type >= 0 && options.type <= 3
                       ? options.type
                       : static_cast<int>(CurvePointType::Smooth);
  const bool with_tangents =
      options.tangent_controls && (type == static_cast<int>(CurvePointType::Bezier) ||
                                   type == static_cast<int>(CurvePointType::BezierCorner));

  const bool began = !theHold.Holding();
  if (began) theHold.Begin();
  run.Measure();
  if (options.bones > 0) {
    run.joints = Respace(run, options.bones);
    run.Measure();
  }
  const float total = run.Total();

  INode* chain_node = NewHelper("CurveIKChain", run.joints.back()->GetNodeTM(t));
  auto* chain = new CurveIKChain;
  chain_node->SetTMController(chain);

  // Control points at equal fractions of the run, turned as the joint they lie on.
  const float spacing = total / static_cast<float>(point_count - 1);
  for (int k = 0; k < point_count; ++k) {
    const float l = spacing * static_cast<float>(k);
    Matrix3 tm = Rotation(run.joints[run.SegmentAt(l)]->GetNodeTM(t));
    const Point3 at = run.At(l);
    tm.SetTrans(at);
    INode* point = NewHelper("CurveIKPoint", tm);
    INode* in = nullptr;
    INode* out = nullptr;
    if (with_tangents) {
      // A third of the way to each neighbouring point; the ends mirror their one neighbour.
      const Point3 ahead =
          k + 1 < point_count ? run.At(l + spacing / 3.0f) : at * 2.0f - run.At(l - spacing / 3.0f);
      const Point3 behind = k > 0 ? run.At(l - spacing / 3.0f) : at * 2.0f - ahead;
      Matrix3 in_tm = tm, out_tm = tm;
      in_tm.SetTrans(behind);
      out_tm.SetTrans(ahead);
      in = NewHelper("CurveIKInTangent", in_tm, point);
      out = NewHelper("CurveIKOutTangent", out_tm, point);
    }
    chain->AddPoint(point, type, in, out, 0.0f, 1.0f, options.tangent_controls);
  }

  IParamBlock2* pb = chain->ParamBlock();
  pb->Append(kCurveJoints, static_cast<int>(run.joints.size()), run.joints.data());
  for (size_t i = 0; i < run.joints.size(); ++i) {
    INode* joint = run.joints[i];
    if (options.bones_controls) NewHelper("CurveIKControl", joint->GetNodeTM(t), joint);
    auto* control = new CurveIKControl;
    IParamBlock2* cpb = control->ParamBlock();
    cpb->SetValue(kCurveControlChainNode, 0, chain_node);
    cpb->SetValue(kCurveControlIndex, 0, static_cast<int>(i));
    cpb->SetValue(kCurveControlPercent, 0, SafeDiv(run.length[i], total, kSolverSafeDivEpsilon));
    joint->SetTMController(control);
  }
  if (!options.tangent_controls) chain->ResetTangents();
  chain->ResetLength();
  if (began) theHold.Accept("Create Curve IK Solver");
  ip->RedrawViews(t);
  return chain_node;
}

FPValue CreateCurveIKSolverPrimitive(const PrimitiveCall& call) {
  const int count = static_cast<int>(call.args.size());
  if (count != 6 && count != 7) throw ArgCountError(kFunction, 6, count);
  const auto& a = call.args;
  static constexpr const char* kTexts[7] = {
      "Expected a Node for the first argument, in function CreateCurveIKSolver",
      "Expected a Node for the second argument, in function CreateCurveIKSolver",
      "Expected a Number for the third argument, in function CreateCurveIKSolver",
      "Expected a Number for the fourth argument, in function CreateCurveIKSolver",
      "Expected a Number for the fifth argument, in function CreateCurveIKSolver",
      "Expected a Bool for the sixth argument  (Bones Controls), in function CreateCurveIKSolver",
      "Expected a Bool for the seventh argument (Tangent Controls), in function "
      "CreateCurveIKSolver",
  };
  for (int i = 0; i < count; ++i) {
    const FPType want = i < 2 ? FPType::TYPE_INODE : i < 5 ? FPType::TYPE_FLOAT : FPType::TYPE_BOOL;
    const bool ok = want == FPType::TYPE_FLOAT ? IsNumber(a[i]) : a[i].Type() == want;
    if (!ok) throw RuntimeError(kTexts[i], a[i]);
  }
  // The dialog's name stands in these two texts of the script function as well.
  if (!a[0].AsNode()) {
    throw RuntimeError("Expected a valid Node for Start Joint, in function CurveIKSolverDlg", a[0]);
  }
  if (!a[1].AsNode()) {
    throw RuntimeError("Expected a valid Node for End Joint, in function CurveIKSolverDlg", a[1]);
  }
  CurveIKBuildOptions options;
  options.control_points = static_cast<int>(a[2].AsFloat());
  options.type = static_cast<int>(a[3].AsFloat());
  options.bones = static_cast<int>(a[4].AsFloat());
  options.bones_controls = a[5].AsBool();
  options.tangent_controls = count == 7 ? a[6].AsBool() : true;
  INode* chain = BuildCurveIKChain(a[0].AsNode(), a[1].AsNode(), options);
  return chain ? FPValue(chain) : FPValue();
}

void RegisterCurveIKScriptFunctions() {
  RegisterScriptPrimitive(kFunction, &CreateCurveIKSolverPrimitive);
}

void UnRegisterCurveIKScriptFunctions() {
  if (FindScriptPrimitive(kFunction) == &CreateCurveIKSolverPrimitive) {
    UnRegisterScriptPrimitive(kFunction);
  }
}

}  // namespace marvolith
