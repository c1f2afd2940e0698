// Copyright Marvolith contributors.
// `marvolith scene ...`: inspect, evaluate, re-save and make headless scene files.
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "apps/marvolith/commands.h"
#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/scene/core_interface.h"
#include "host/scene/demo_scene.h"
#include "host/scene/inode.h"
#include "host/scene/layer.h"
#include "host/scene/scene.h"

namespace marvolith::cli {
namespace {

std::string ClassNameOf(Animatable* anim) {
  if (!anim) return "none";
  MSTR name = anim->ClassName();
  return name.empty() ? "unnamed class" : name;
}

std::string ControllerText(Control* c) {
  if (!c) return "no controller";
  std::string text = ClassNameOf(c);
  Control* parts[3] = {c->GetPositionController(), c->GetRotationController(),
                       c->GetScaleController()};
  if (parts[0] || parts[1] || parts[2]) {
    text +=
        ": " + ClassNameOf(parts[0]) + ", " + ClassNameOf(parts[1]) + ", " + ClassNameOf(parts[2]);
  }
  return text;
}

void PrintTree(INode* node, int depth) {
  for (int i = 0; i < node->NumberOfChildren(); ++i) {
    INode* child = node->GetChildNode(i);
    std::printf("%*s%s [%s]", 2 * (depth + 1), "", child->GetName(),
                ControllerText(child->GetTMController()).c_str());
    if (Object* obj = child->GetObjectRef()) std::printf(" object %s", ClassNameOf(obj).c_str());
    std::printf(" layer %s\n",
                child->GetNodeLayer() ? child->GetNodeLayer()->GetName().c_str() : "none");
    PrintTree(child, depth + 1);
  }
}

struct FrameRange {
  int first = 0;
  int last = 0;
  int step = 1;
};

/// Parses A:B or A:B:STEP (integers, A <= B, STEP > 0).
std::optional<FrameRange> ParseFrames(const std::string& text) {
  FrameRange r;
  char extra = 0;
  int n = std::sscanf(text.c_str(), "%d:%d:%d%c", &r.first, &r.last, &r.step, &extra);
  if (n == 2) {
    r.step = 1;
    n = std::sscanf(text.c_str(), "%d:%d%c", &r.first, &r.last, &extra);
    if (n != 2) return std::nullopt;
  } else if (n != 3) {
    return std::nullopt;
  }
  if (r.step <= 0 || r.first > r.last) return std::nullopt;
  return r;
}

}  // namespace

void AddSceneCommands(CLI::App& app) {
  auto* scene = app.add_subcommand("scene", "Inspect, evaluate and write headless scene files");
  scene->require_subcommand(1);

  auto* info = scene->add_subcommand("info", "Print a scene file's node tree and controllers");
  // Option values live as long as the program (CLI11 keeps pointers to them).
  static std::string info_file_value, eval_file_value, eval_node_value, eval_frames_value,
      resave_in_value, resave_out_value, demo_out_value;
  auto* info_file = &info_file_value;
  info->add_option("FILE", *info_file, "Scene file")->required();
  info->callback([info_file] {
    LoadSceneOrRefuse(*info_file);
    Interface* ip = GetCOREInterface();
    std::vector<INode*> nodes;
    Scene::Active().CollectNodes(nodes);
    std::printf(
        "%s: %zu nodes, %d fps, frames %d..%d, %d layers\n", info_file->c_str(), nodes.size(),
        ip->GetFrameRate(), ip->GetAnimRange().Start() / ip->GetTicksPerFrame(),
        ip->GetAnimRange().End() / ip->GetTicksPerFrame(), ip->GetLayerManager()->GetLayerCount());
    std::printf("%s\n", ip->GetRootNode()->GetName());
    PrintTree(ip->GetRootNode(), 0);
  });

  auto* eval = scene->add_subcommand(
      "eval", "Print a node's world matrix per frame: the frame, then the 12 values row by row");
  auto* eval_file = &eval_file_value;
  auto* eval_node = &eval_node_value;
  auto* eval_frames = &eval_frames_value;
  eval->add_option("FILE", *eval_file, "Scene file")->required();
  eval->add_option("--node", *eval_node, "Node name")->required();
  eval->add_option("--frames", *eval_frames, "Frames A:B or A:B:STEP")->required();
  eval->callback([eval_file, eval_node, eval_frames] {
    std::optional<FrameRange> range = ParseFrames(*eval_frames);
    if (!range) {
      Refuse("--frames wants A:B or A:B:STEP with A <= B and STEP > 0, not '" + *eval_frames + "'");
    }
    LoadSceneOrRefuse(*eval_file);
    Interface* ip = GetCOREInterface();
    INode* node = ip->GetINodeByName(eval_node->c_str());
    if (!node) Refuse("no node called '" + *eval_node + "' in the scene");
    for (long frame = range->first; frame <= range->last; frame += range->step) {
      const Matrix3 tm = node->GetNodeTM(static_cast<TimeValue>(frame * ip->GetTicksPerFrame()));
      std::printf("%ld", frame);
      for (int row = 0; row < 4; ++row) {
        const Point3& p = tm.GetRow(row);
        std::printf(" %.6g %.6g %.6g", p.x, p.y, p.z);
      }
      std::printf("\n");
    }
  });

  auto* resave = scene->add_subcommand("resave", "Load a scene file and save it again");
  auto* resave_in = &resave_in_value;
  auto* resave_out = &resave_out_value;
  resave->add_option("IN", *resave_in, "Scene file to read")->required();
  resave->add_option("OUT", *resave_out, "Scene file to write")->required();
  resave->callback([resave_in, resave_out] {
    LoadSceneOrRefuse(*resave_in);
    std::string error;
    if (!SaveScene(*resave_out, &error)) Refuse(Plain(error));
  });

  auto* demo = scene->add_subcommand("demo", "Write the built-in demo scene");
  auto* demo_out = &demo_out_value;
  demo->add_option("OUT", *demo_out, "Scene file to write")->required();
  demo->callback([demo_out] {
    RegisterHostClasses();
    GetCOREInterface()->Reset();
    BuildDemoScene();
    std::string error;
    if (!SaveScene(*demo_out, &error)) Refuse(Plain(error));
  });
}

}  // namespace marvolith::cli
