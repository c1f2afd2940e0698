// Copyright Marvolith contributors.
// `marvolith render`: a picture of a scene as a viewport would draw it.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "apps/marvolith/commands.h"
#include "host/app/scene_file.h"
#include "host/gfx/draw_scene.h"
#include "host/gfx/headless_viewport.h"
#include "host/render/render.h"
#include "host/scene/core_interface.h"
#include "host/scene/scene.h"

namespace marvolith::cli {
namespace {

// The names --view accepts. "side" is the left view, as in the host's default layout.
const std::map<std::string, int>& ViewNames() {
  static const std::map<std::string, int> names = {
      {"front", VIEW_FRONT},   {"back", VIEW_BACK},       {"side", VIEW_LEFT},
      {"left", VIEW_LEFT},     {"right", VIEW_RIGHT},     {"top", VIEW_TOP},
      {"bottom", VIEW_BOTTOM}, {"persp", VIEW_PERSP_USER}};
  return names;
}

}  // namespace

bool RenderOpenScene(TimeValue t,
                     int view_type,
                     int width_px,
                     int height_px,
                     const std::string& path,
                     std::string* error,
                     int* nodes_drawn) {
  const ViewCamera camera = ViewCamera::Framing(view_type, SceneWorldBox(t), width_px, height_px);
  HeadlessViewport viewport(camera);
  DrawScene(t, viewport);
  if (nodes_drawn) {
    std::vector<INode*> nodes;
    Scene::Active().CollectNodes(nodes);
    *nodes_drawn = 0;
    for (INode* node : nodes) *nodes_drawn += node->IsHidden() ? 0 : 1;
  }
  return RenderToFile(viewport.GetDisplayList(), camera, RenderOptions(), path, error);
}

void AddRenderCommand(CLI::App& app) {
  auto* render = app.add_subcommand(
      "render", "Draw a scene's objects, bones and helpers as a viewport would, to PNG or SVG");
  // Option values live as long as the program (CLI11 keeps pointers to them).
  static std::string scene_value, view_value = "persp", out_value;
  static int frame_value = 0, width_value = 800, height_value = 600;
  render->add_option("SCENE", scene_value, "Scene file")->required();
  render->add_option("--frame", frame_value, "Frame to draw (default 0)");
  std::vector<std::string> views;
  for (const auto& [name, type] : ViewNames()) views.push_back(name);
  render->add_option("--view", view_value, "View: front, side, top or persp (default persp)")
      ->check(CLI::IsMember(views));
  render->add_option("--out", out_value, "Picture to write: FILE.png or FILE.svg")->required();
  render->add_option("--width", width_value, "Width in pixels (default 800)")
      ->check(CLI::Range(16, 8192));
  render->add_option("--height", height_value, "Height in pixels (default 600)")
      ->check(CLI::Range(16, 8192));
  render->callback([] {
    if (!ImageFormatForPath(out_value))
      Refuse("the picture file '" + out_value + "' must end in .png or .svg");
    LoadSceneOrRefuse(scene_value);
    std::string error;
    Interface* ip = GetCOREInterface();
    const TimeValue t = frame_value * ip->GetTicksPerFrame();
    int drawn = 0;
    if (!RenderOpenScene(t, ViewNames().at(view_value), width_value, height_value, out_value,
                         &error, &drawn)) {
      Refuse(error);
    }
    std::printf("%s: %d nodes at frame %d, %s view, %d x %d\n", out_value.c_str(), drawn,
                frame_value, view_value.c_str(), width_value, height_value);
  });
}

}  // namespace marvolith::cli
