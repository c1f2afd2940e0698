// Copyright Marvolith contributors.
#include "host/gfx/draw_scene.h"

#include <vector>

#include "host/core/animatable.h"
#include "host/core/control.h"
#include "host/gfx/headless_viewport.h"
#include "host/scene/inode.h"
#include "host/scene/scene.h"

namespace {

// The colours of a bare node's tripod: X red, Y green, Z blue, as the host's axis colours.
constexpr Point3 kAxisColors[3] = {{0.9f, 0.15f, 0.15f}, {0.2f, 0.8f, 0.2f}, {0.2f, 0.4f, 1.0f}};

void DrawLink(GraphicsWindow& gw, INode* node, TimeValue t) {
  INode* parent = node->GetParentNode();
  if (!parent || parent->IsRootNode()) return;
  const Point3 ends[2] = {node->GetNodeTM(t).GetTrans(), parent->GetNodeTM(t).GetTrans()};
  gw.setTransform(Matrix3());
  gw.polyline(2, ends, nullptr, 0, nullptr);
}

void DrawNodeAxes(GraphicsWindow& gw, INode* node, TimeValue t, float length) {
  // The node's axes without its scale, so that every tripod has the same length.
  Matrix3 tm = node->GetNodeTM(t);
  tm.Orthogonalize();
  gw.setTransform(tm);
  const Point3 saved = gw.getColor(LINE_COLOR);
  const Point3 tips[3] = {Point3::XAxis * length, Point3::YAxis * length, Point3::ZAxis * length};
  for (int axis = 0; axis < 3; ++axis) {
    gw.setColor(LINE_COLOR, kAxisColors[axis]);
    const Point3 line[2] = {Point3::Origin, tips[axis]};
    gw.polyline(2, line, nullptr, 0, nullptr);
  }
  gw.setColor(LINE_COLOR, saved);
}

void AddNodeBox(TimeValue t, INode* node, ViewExp* vpt, Box3& out) {
  const ObjectState& os = node->EvalWorldState(t);
  if (!os.obj) {
    // Room for the tripod DrawScene gives a bare node by default.
    Box3 tripod(node->GetNodeTM(t).GetTrans(), node->GetNodeTM(t).GetTrans());
    tripod.EnlargeBy(DrawSceneOptions().empty_node_axis_length);
    out += tripod;
    return;
  }
  Box3 box;
  os.obj->GetWorldBoundBox(t, node, vpt, box);
  out += box;
}

}  // namespace

void DrawScene(TimeValue t, ViewExp& vpt, const DrawSceneOptions& options) {
  GraphicsWindow& gw = *vpt.getGW();
  auto* recorder = dynamic_cast<HeadlessGraphicsWindow*>(&gw);
  const Matrix3 saved_tm = gw.getTransform();
  const DWORD saved_limits = gw.getRndLimits();
  const Point3 saved_colors[3] = {gw.getColor(LINE_COLOR), gw.getColor(FILL_COLOR),
                                  gw.getColor(TEXT_COLOR)};

  std::vector<INode*> nodes;
  Scene::Active().CollectNodes(nodes);
  for (INode* node : nodes) {
    if (node->IsHidden()) continue;
    if (recorder) recorder->SetDrawingNode(Animatable::GetHandleByAnim(node));
    const Point3 wire = NodeWireColor(node);
    gw.setRndLimits(saved_limits);
    gw.setColor(LINE_COLOR, wire);
    gw.setColor(TEXT_COLOR, wire);
    if (options.links) DrawLink(gw, node, t);

    const ObjectState& os = node->EvalWorldState(t);
    if (os.obj) {
      gw.setTransform(os.GetTM() ? *os.GetTM() : node->GetObjectTM(t));
      os.obj->Display(t, node, &vpt, options.display_flags);
    } else if (options.empty_node_axes) {
      DrawNodeAxes(gw, node, t, options.empty_node_axis_length);
    }
    // Then the transform controller's own drawing (a constraint's view line), over the object.
    if (Control* tm = node->GetTMController()) {
      gw.setRndLimits(saved_limits);
      gw.setColor(LINE_COLOR, wire);
      tm->Display(t, node, &vpt, options.display_flags);
    }
  }

  if (recorder) recorder->SetDrawingNode(0);
  gw.setTransform(saved_tm);
  gw.setRndLimits(saved_limits);
  gw.setColor(LINE_COLOR, saved_colors[0]);
  gw.setColor(FILL_COLOR, saved_colors[1]);
  gw.setColor(TEXT_COLOR, saved_colors[2]);
}

Box3 SceneWorldBox(TimeValue t, ViewExp* vpt) {
  std::vector<INode*> nodes;
  Scene::Active().CollectNodes(nodes);
  Box3 box;
  for (INode* node : nodes) {
    if (!node->IsHidden()) AddNodeBox(t, node, vpt, box);
  }
  return box;
}

Box3 NodesWorldBox(TimeValue t, std::span<INode* const> nodes, ViewExp* vpt) {
  Box3 box;
  for (INode* node : nodes) {
    if (node) AddNodeBox(t, node, vpt, box);
  }
  return box;
}
