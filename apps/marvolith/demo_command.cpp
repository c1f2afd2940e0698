// Copyright Marvolith contributors.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/marvolith/commands.h"
#include "host/gfx/view_exp.h"
#include "host/io/scene_file.h"
#include "host/math/interval.h"
#include "host/registry/host_classes.h"
#include "host/scene/core_interface.h"
#include "host/scene/demo_scene.h"

namespace marvolith::cli {
namespace {

constexpr int kDemoFrames[] = {0, 15, 30, 45, 60, 75};
constexpr const char* kDemoPicture = "marvolith_demo.png";
constexpr int kDemoPictureFrame = 30;

// World positions of the demo nodes at the demo frames, in order.
std::vector<Point3> SamplePositions() {
  Interface* ip = GetCOREInterface();
  std::vector<Point3> out;
  for (int frame : kDemoFrames) {
    for (const char* name : kDemoNodeNames) {
      INode* node = ip->GetINodeByName(name);
      out.push_back(node ? node->GetNodeTM(frame * ip->GetTicksPerFrame()).GetTrans() : Point3());
    }
  }
  return out;
}

}  // namespace

void AddDemoCommand(CLI::App& app) {
  auto* demo = app.add_subcommand("demo", "Show what this build can do, on built-in defaults");
  demo->callback([] {
    RegisterHostClasses();
    Interface* ip = GetCOREInterface();
    ip->Reset();
    std::printf("%s\n", VersionText());
    std::printf("Headless host: %d ticks a second, %d ticks a frame, animation range %d..%d\n",
                TIME_TICKSPERSEC, ip->GetTicksPerFrame(),
                ip->GetAnimRange().Start() / ip->GetTicksPerFrame(),
                ip->GetAnimRange().End() / ip->GetTicksPerFrame());
    std::printf(
        "Built: host math, references, undo, parameter blocks, function publishing, "
        "class directory, core interface, keyframe controllers, scene nodes, scene "
        "files, viewport drawing and pictures\n");

    const std::vector<INode*> nodes = BuildDemoScene();
    std::printf(
        "Demo scene: %zu nodes in a chain, keyed over frames 0..60 (Bezier position, "
        "Euler XYZ, TCB rotation, Bezier scale)\n",
        nodes.size());
    std::printf("World positions:\n%6s", "frame");
    for (const char* name : kDemoNodeNames) std::printf(" %26s", name);
    std::printf("\n");
    const std::vector<Point3> before = SamplePositions();
    size_t k = 0;
    for (int frame : kDemoFrames) {
      std::printf("%6d", frame);
      for (size_t n = 0; n < std::size(kDemoNodeNames); ++n, ++k) {
        char cell[64];
        std::snprintf(cell, sizeof(cell), "(%.2f, %.2f, %.2f)", before[k].x, before[k].y,
                      before[k].z);
        std::printf(" %26s", cell);
      }
      std::printf("\n");
    }

    // A picture of the rig mid-motion, beside the user.
    std::string picture_error;
    const std::string picture = std::filesystem::absolute(kDemoPicture).string();
    if (!RenderOpenScene(kDemoPictureFrame * ip->GetTicksPerFrame(), VIEW_PERSP_USER, 800, 600,
                         picture, &picture_error)) {
      throw CLI::RuntimeError(picture_error, 1);
    }
    std::printf("Picture: %s (frame %d, perspective view, 800 x 600)\n", picture.c_str(),
                kDemoPictureFrame);

    std::vector<std::uint8_t> bytes;
    std::string error;
    if (!SaveSceneToBytes(bytes, &error) || !LoadSceneFromBytes(bytes, &error))
      throw CLI::RuntimeError(error, 1);
    const bool same = SamplePositions() == before;
    std::printf("Scene file: %zu bytes; loaded back, evaluation %s\n", bytes.size(),
                same ? "identical" : "DIFFERS");
    ip->Reset();
    if (!same) throw CLI::RuntimeError("the demo scene evaluated differently after loading", 1);
  });
}

}  // namespace marvolith::cli
