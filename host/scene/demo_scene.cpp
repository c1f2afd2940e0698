// Copyright Marvolith contributors.
#include "host/scene/demo_scene.h"

#include <algorithm>
#include <numbers>
#include <string>

#include "host/controllers/controller_classes.h"
#include "host/math/matrix3.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"

namespace {

constexpr float kDegToRad = std::numbers::pi_v<float> / 180.0f;

Quat EulerQuat(float x_deg, float y_deg, float z_deg) {
  return Quat(RotateXMatrix(x_deg * kDegToRad) * RotateYMatrix(y_deg * kDegToRad) *
              RotateZMatrix(z_deg * kDegToRad));
}

void SetPos(Control* prs, TimeValue t, Point3 p) {
  if (Control* c = prs->GetPositionController()) c->SetValue(t, &p, 1, CTRL_ABSOLUTE);
}
void SetRot(Control* prs, TimeValue t, Quat q) {
  if (Control* c = prs->GetRotationController()) c->SetValue(t, &q, 1, CTRL_ABSOLUTE);
}
void SetScale(Control* prs, TimeValue t, ScaleValue s) {
  if (Control* c = prs->GetScaleController()) c->SetValue(t, &s, 1, CTRL_ABSOLUTE);
}

}  // namespace

std::vector<INode*> BuildDemoScene() {
  HoldSuspend no_undo;
  Interface* ip = GetCOREInterface();
  const TimeValue f = ip->GetTicksPerFrame();
  std::vector<INode*> nodes;
  for (const char* name : kDemoNodeNames) {
    INode* node = ip->CreateObjectNode(nullptr, name);
    if (!nodes.empty()) nodes.back()->AttachChild(node, 0);
    nodes.push_back(node);
  }
  Control* root = nodes[0]->GetTMController();
  Control* spine = nodes[1]->GetTMController();
  Control* arm = nodes[2]->GetTMController();
  Control* hand = nodes[3]->GetTMController();
  root->SetPositionController(CreateInterpPosition());
  arm->SetRotationController(CreateInterpRotation());

  // Rest offsets on the parents, as constants (animate off).
  const bool was_animating = Animating();
  AnimateOff();
  SetPos(spine, 0, Point3(0, 0, 20));
  SetPos(arm, 0, Point3(15, 0, 10));
  SetPos(hand, 0, Point3(20, 0, 0));

  AnimateOn();
  SetPos(root, 0, Point3(0, 0, 0));
  SetPos(root, 30 * f, Point3(40, 0, 0));
  SetPos(root, 60 * f, Point3(40, 30, 0));
  root->GetPositionController()->SetORT(ORT_LOOP, ORT_AFTER);
  SetRot(root, 0, Quat());
  SetRot(root, 60 * f, EulerQuat(0, 0, 90));

  SetRot(spine, 0, Quat());
  SetRot(spine, 30 * f, EulerQuat(20, 0, 0));
  SetRot(spine, 60 * f, Quat());
  if (Control* x = spine->GetRotationController()->GetXController())
    x->SetORT(ORT_OSCILLATE, ORT_AFTER);

  SetRot(arm, 0, Quat());
  SetRot(arm, 45 * f, EulerQuat(0, 60, 0));

  SetScale(hand, 0, ScaleValue(Point3(1, 1, 1)));
  SetScale(hand, 60 * f, ScaleValue(Point3(1.5f, 1.5f, 1.5f)));
  if (!was_animating) AnimateOff();
  return nodes;
}

std::vector<INode*> BuildKeyedHierarchy(int node_count) {
  HoldSuspend no_undo;
  Interface* ip = GetCOREInterface();
  const TimeValue f = ip->GetTicksPerFrame();
  const bool was_animating = Animating();
  std::vector<INode*> nodes;
  nodes.reserve(static_cast<size_t>(std::max(node_count, 0)));
  for (int i = 0; i < node_count; ++i) {
    INode* node = ip->CreateObjectNode(nullptr, ("node_" + std::to_string(i)).c_str());
    if (i > 0) nodes[static_cast<size_t>((i - 1) / 2)]->AttachChild(node, 0);
    nodes.push_back(node);
    Control* prs = node->GetTMController();
    const float k = static_cast<float>(i % 17) + 1.0f;
    AnimateOn();
    SetPos(prs, 0, Point3(k, 0, 1));
    SetPos(prs, 50 * f, Point3(k, 0.5f * k, 2));
    SetPos(prs, 100 * f, Point3(0, k, 1));
    SetRot(prs, 0, EulerQuat(0, 0, 2 * k));
    SetRot(prs, 100 * f, EulerQuat(k, 3 * k, -2 * k));
  }
  if (!was_animating) AnimateOff();
  return nodes;
}
