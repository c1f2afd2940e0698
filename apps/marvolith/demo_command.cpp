// Copyright Marvolith contributors.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "apps/marvolith/commands.h"
#include "apps/marvolith/rig_sheet.h"
#include "host/app/scene_file.h"
#include "host/gfx/view_exp.h"
#include "host/interpreter/runner.h"
#include "host/math/interval.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"

namespace marvolith::cli {
namespace {

constexpr int kDemoFrames[] = {0, 15, 30, 45, 60};
constexpr const char* kDemoPicture = "marvolith_demo.png";
constexpr const char* kDemoTemplateSheet = "marvolith_rig_templates.png";
constexpr int kDemoPictureFrame = 30;
constexpr const char* kRigNodes[] = {"rig_root", "rig_hips",  "rig_spine", "rig_chest",
                                     "rig_head", "rig_arm_l", "rig_hand_l"};

// What a rigger would type: control objects from the module on rig transforms, in a hierarchy,
// keyed through their Rotation XYZ tracks, the head driven by a wave and the hand's bend wired to
// the arm's swing.
constexpr const char* kRigScript = R"(
fn rigControl nm figure sz par p = (
  local c = ControlHelper name:nm
  c.type = figure
  c.size = sz
  c.controller = RigTransform()
  if par != undefined do c.parent = par
  c.pos = p
  c
)
root  = rigControl "rig_root"   34 60 undefined [0,0,0]
hips  = rigControl "rig_hips"   12 20 root  [0,0,40]
spine = rigControl "rig_spine"   5 24 hips  [0,0,55]
chest = rigControl "rig_chest"   5 30 spine [0,0,70]
head  = rigControl "rig_head"    9 12 chest [0,0,90]
arm   = rigControl "rig_arm_l"  16 10 chest [15,0,75]
hand  = rigControl "rig_hand_l" 31  8 arm   [38,0,75]
with animate on (
  at time 0  (root.pos = [0,0,0];   spine.rotation.controller.Y_Rotation = 0
              arm.rotation.controller.Y_Rotation = 0)
  at time 30 (root.pos = [40,0,0];  spine.rotation.controller.Y_Rotation = 20
              arm.rotation.controller.Y_Rotation = -60)
  at time 60 (root.pos = [80,30,0]; spine.rotation.controller.Y_Rotation = -10
              arm.rotation.controller.Y_Rotation = 30)
)
nod = FloatWave()
head.rotation.controller.Z_Rotation.controller = nod
follow = FloatConnection()
hand.rotation.controller.Y_Rotation.controller = follow
follow.SetTarget arm.rotation.controller.Y_Rotation.controller
-- An IK/FK leg under the hips whose goal steps forward and back, and a curve IK tail whose
-- middle point swings.
thigh = Point name:"thigh"
thigh.parent = hips
thigh.pos = [8,0,36]
knee = Point name:"knee"
knee.parent = thigh
knee.pos = [8,4,20]
ankle = Point name:"ankle"
ankle.parent = knee
ankle.pos = [8,0,4]
leg = CreateIKFKSolver thigh ankle
leg.controller.joints[3].name = "leg_end"
goal = leg.controller.goal
for n in leg.controller.joints do n.size = 5
goal.size = 8
leg.controller.target.size = 4
with animate on (
  at time 0  goal.pos = [0,0,4]
  at time 30 goal.pos = [45,10,14]
  at time 60 goal.pos = [90,30,4]
)
tail0 = Point name:"tail0"
tail0.parent = hips
tail0.pos = [0,-6,40]
prev = tail0
for i = 1 to 5 do (
  j = Point name:("tail" + i as string)
  j.parent = prev
  j.pos = [0, -6 - 8 * i, 40 - i]
  prev = j
)
tail = CreateCurveIKSolver tail0 prev 3 3 0 false true
tail.name = "tail_chain"
for i = 1 to 3 do (
  local p = tail.transform.controller.GetPoint i
  p.parent = hips
  p.size = 6
)
swing = tail.transform.controller.GetPoint 2
with animate on (
  at time 0  swing.pos = [-10,-26,40]
  at time 30 swing.pos = [50,-26,50]
  at time 60 swing.pos = [70,4,40]
)
)";
constexpr const char* kChainNodes[] = {"leg_end", "tail3", "tail5"};

std::vector<Point3> SamplePositions(std::span<const char* const> names) {
  Interface* ip = GetCOREInterface();
  std::vector<Point3> out;
  for (int frame : kDemoFrames) {
    for (const char* name : names) {
      INode* node = ip->GetINodeByName(name);
      out.push_back(node ? node->GetNodeTM(frame * ip->GetTicksPerFrame()).GetTrans() : Point3());
    }
  }
  return out;
}

std::vector<Point3> SamplePositions() {
  std::vector<Point3> out = SamplePositions(kRigNodes);
  const std::vector<Point3> chains = SamplePositions(kChainNodes);
  out.insert(out.end(), chains.begin(), chains.end());
  return out;
}

void PrintPositions(std::span<const char* const> names, const std::vector<Point3>& positions) {
  std::printf("World positions:\n%6s", "frame");
  for (const char* name : names) std::printf(" %24s", name);
  std::printf("\n");
  size_t k = 0;
  for (int frame : kDemoFrames) {
    std::printf("%6d", frame);
    for (size_t n = 0; n < names.size(); ++n, ++k) {
      char cell[64];
      std::snprintf(cell, sizeof(cell), "(%.1f, %.1f, %.1f)", positions[k].x, positions[k].y,
                    positions[k].z);
      std::printf(" %24s", cell);
    }
    std::printf("\n");
  }
}

}  // namespace

void AddDemoCommand(CLI::App& app) {
  auto* demo = app.add_subcommand("demo", "Show what this build can do, on built-in defaults");
  demo->callback([] {
    const LoadedPlugin* module = RequireModule();
    Interface* ip = GetCOREInterface();
    ip->Reset();
    std::printf("%s\n", VersionText());
    std::printf("Module: %s, %zu classes\n", module->path.c_str(), module->classes.size());
    std::printf(
        "Built: headless host (scene, keyframe controllers, undo, scene files, scripting, "
        "pictures); rig transform, static, Euler, connection, float math and twist "
        "controllers; control objects with 43 figures; constraints; IK/FK and curve IK "
        "chains; rig templates of every creature type with extras and .rig files\n");

    const ScriptResult built = TheScriptRunner().Run(kRigScript);
    if (!built.ok) throw CLI::RuntimeError("the demo rig script failed: " + built.ErrorText(), 1);
    std::printf(
        "Demo rig: %zu control objects on rig transforms, keyed over frames 0..60, the head "
        "on a wave, the hand wired to the arm\n",
        std::size(kRigNodes));
    PrintPositions(kRigNodes, SamplePositions(kRigNodes));
    std::printf(
        "Chains: an IK/FK leg of 3 joints reaching for a keyed goal, a curve IK tail of 6 joints "
        "over 3 points, one of them keyed\n");
    PrintPositions(kChainNodes, SamplePositions(kChainNodes));
    const std::vector<Point3> before = SamplePositions();

    // A picture of the rig mid-motion, beside the user.
    std::string error;
    const std::string picture = std::filesystem::absolute(kDemoPicture).string();
    if (!RenderOpenScene(kDemoPictureFrame * ip->GetTicksPerFrame(), VIEW_PERSP_USER, 800, 600,
                         picture, &error)) {
      throw CLI::RuntimeError(error, 1);
    }
    std::printf("Picture: %s (frame %d, perspective view, 800 x 600)\n", picture.c_str(),
                kDemoPictureFrame);

    std::vector<std::uint8_t> bytes;
    if (!SaveSceneToBytes(bytes, &error) || !LoadSceneFromBytes(bytes, &error))
      throw CLI::RuntimeError(error, 1);
    const bool same = SamplePositions() == before;
    std::printf("Scene file: %zu bytes; loaded back, evaluation %s\n", bytes.size(),
                same ? "identical" : "DIFFERS");
    ip->Reset();
    if (!same) throw CLI::RuntimeError("the demo rig evaluated differently after loading", 1);

    // The rig builder's starting point: every creature template, side by side.
    const std::string sheet = std::filesystem::absolute(kDemoTemplateSheet).string();
    int types = 0;
    if (!RenderRigTemplateSheet(sheet, &error, &types)) throw CLI::RuntimeError(error, 1);
    ip->Reset();
    std::printf("Rig templates: %d creature types drawn to %s\n", types, sheet.c_str());
  });
}

}  // namespace marvolith::cli
