// Copyright Marvolith contributors.
#include "chains/ikfk_scripts.h"

#include <vector>

#include "chains/ikfk_chain.h"
#include "chains/ikfk_control.h"
#include "chains/ikfk_link.h"
#include "controls/control_helper.h"
#include "controls/control_object.h"
#include "host/core/clock.h"
#include "host/params/iparamb2.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/script/script_errors.h"
#include "host/undo/hold.h"
#include "plugin/strings.h"

namespace marvolith {
namespace {

constexpr const char* kFunction = "CreateIKFKSolver";
// Figures of the helpers (ControlHelper `type`).
constexpr int kChainShape = 37;
constexpr int kGoalShape = 42;
constexpr int kTargetShape = 9;

/// A control helper node of figure shape (the helper's default when shape is negative), named
/// from base made unique, at world transform tm_ws under parent (the root when null).
INode* NewHelper(const char* base, int shape, const Matrix3& tm_ws, INode* parent, TimeValue t) {
  auto* helper = new ControlHelper;
  if (shape >= 0) helper->GetParamBlock(0)->SetValue(kControlType, 0, shape);
  Interface* ip = GetCOREInterface();
  MSTR name(base);
  ip->MakeNameUnique(name);
  INode* node = ip->CreateObjectNode(helper, name.c_str());
  if (parent && !parent->IsRootNode()) parent->AttachChild(node, 0);
  node->SetNodeTM(t, tm_ws);
  return node;
}

/// Gives node an IKFKControl of the chain whose local controller holds local_ls (the node's
/// transform relative to the frame its member type evaluates in).
IKFKControl* MakeMember(
    INode* node, INode* chain_node, int type, int index, const Matrix3& local_ls, TimeValue t) {
  auto* member = new IKFKControl;
  node->SetTMController(member);
  member->SetMember(chain_node, type, index);
  SetXFormPacket set(local_ls, Matrix3());
  if (Control* sub = member->SubControl()) sub->SetValue(t, &set, 1, CTRL_RELATIVE);
  return member;
}

INode* NodeArgument(const FPValue& v, const char* which) {
  if (v.Type() != FPType::TYPE_INODE) {
    throw RuntimeError(
        std::string("Expected a Node for the ") + which + " argument, in function " + kFunction, v);
  }
  return v.AsNode();
}

void RequireValid(INode* node, const FPValue& v, const char* role) {
  if (!node) {
    throw RuntimeError(
        std::string("Expected a valid Node for ") + role + ", in function " + kFunction, v);
  }
}

}  // namespace

FPValue CreateIKFKSolver(const PrimitiveCall& call) {
  const int got = static_cast<int>(call.args.size());
  if (got != 2) throw ArgCountError(kFunction, 2, got);
  INode* start = NodeArgument(call.args[0], "first");
  INode* end = NodeArgument(call.args[1], "second");
  RequireValid(start, call.args[0], "Start Joint");
  RequireValid(end, call.args[1], "End Joint");

  // Joints from the end up to the start, each put in front.
  std::vector<INode*> joints;
  for (INode* n = end;; n = n->GetParentNode()) {
    if (!n || n->IsRootNode()) return FPValue();  // start is not above end
    joints.insert(joints.begin(), n);
    if (n == start) break;
  }

  const TimeValue t = call.time;
  AnimateSuspend no_keys;  // a new chain is a pose, not animation
  theHold.Begin();
  INode* outer = start->GetParentNode();
  const Matrix3 outer_ws = outer && !outer->IsRootNode() ? outer->GetNodeTM(t) : Matrix3();

  std::vector<INode*> members;
  std::vector<Matrix3> joint_ws;
  INode* parent = outer;
  for (INode* joint : joints) {
    joint_ws.push_back(joint->GetNodeTM(t));
    parent = NewHelper("IKFKControl", -1, joint_ws.back(), parent, t);
    members.push_back(parent);
  }
  const Matrix3& end_ws = joint_ws.back();
  INode* chain_node = NewHelper("IKFKChain", kChainShape, end_ws, nullptr, t);
  INode* goal = NewHelper("IKFKGoal", kGoalShape, end_ws, nullptr, t);
  INode* target = NewHelper("IKFKTarget", kTargetShape, joint_ws[joint_ws.size() / 2], nullptr, t);

  auto* chain = new IKFKChain;
  chain_node->SetTMController(chain);
  for (size_t i = 0; i < members.size(); ++i) {
    const Matrix3& above_ws = i == 0 ? outer_ws : joint_ws[i - 1];
    MakeMember(members[i], chain_node, kIKFKMemberJoint, static_cast<int>(i),
               joint_ws[i] * Inverse(above_ws), t);
  }
  // Goal and target can switch their parent space over time: each gets an (empty) link track.
  MakeMember(goal, chain_node, kIKFKMemberGoal, 0, end_ws, t)->SetLink(new IKFKLink);
  MakeMember(target, chain_node, kIKFKMemberTarget, 0, joint_ws[joint_ws.size() / 2], t)
      ->SetLink(new IKFKLink);

  IParamBlock2* pb = chain->ParamBlock();
  for (INode* member : members) pb->Append(kIKFKJoints, 1, &member);
  pb->SetValue(kIKFKGoal, 0, goal);
  pb->SetValue(kIKFKTarget, 0, target);
  // Goal and target take the joints' pose, so that switching the new chain to IK moves nothing.
  chain->MatchIK(t, true, true, -1, true, true);

  const char* text = GetString(IDS_CREATE_IKFK_SOLVER);
  theHold.Accept(text ? text : "Create IKFK Solver");
  return FPValue(chain_node);
}

void RegisterIKFKScriptFunctions() { RegisterScriptPrimitive(kFunction, &CreateIKFKSolver); }

}  // namespace marvolith
