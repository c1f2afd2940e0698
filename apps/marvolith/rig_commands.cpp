// Copyright Marvolith contributors.
// `marvolith rig ...`: pictures of rig templates, the contact sheet of the creature types, .rig
// files in and out of a scene's Rig object, and the point list for pipeline scripts. Everything
// goes through the loaded module: the Rig class from the class directory, its block by script
// name, its published functions by name.
#include <flatbuffers/flatbuffers.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "apps/marvolith/commands.h"
#include "apps/marvolith/rig_sheet.h"
#include "host/app/scene_file.h"
#include "host/scene/scene.h"
#include "host/script/fp_dispatch.h"

namespace marvolith::cli {
namespace {

const std::map<std::string, int>& ViewNames() {
  static const std::map<std::string, int> names = {
      {"front", VIEW_FRONT}, {"side", VIEW_LEFT}, {"top", VIEW_TOP}, {"persp", VIEW_PERSP_USER}};
  return names;
}

int ParseTypeOrRefuse(const std::string& text) {
  const auto type = ParseRigType(text);
  if (!type) Refuse("unknown rig type '" + text + "': use " + RigTypeChoices());
  return *type;
}

// A new Rig node of type with the settings applied, in the open scene.
INode* MakeRigOrRefuse(int type, const std::vector<std::string>& settings) {
  std::string error;
  INode* node = CreateRigNode("Rig", &error);
  if (!node) Refuse(error);
  Object* object = node->GetObjectRef();
  if (!SetRigType(object, type, &error)) Refuse(error);
  for (const std::string& setting : settings)
    if (!ApplyRigSetting(object, setting, &error)) Refuse(error);
  return node;
}

// The Rig node of the open scene: the one named name, or the only one.
INode* FindRigNodeOrRefuse(const std::string& scene, const std::string& name) {
  std::vector<INode*> nodes;
  Scene::Active().CollectNodes(nodes);
  if (!name.empty()) {
    for (INode* node : nodes) {
      if (name != node->GetName()) continue;
      if (!IsRigObject(node->GetObjectRef()))
        Refuse("the node '" + name + "' in " + scene + " is not a Rig object");
      return node;
    }
    Refuse("no node named '" + name + "' in " + scene);
  }
  INode* found = nullptr;
  int count = 0;
  for (INode* node : nodes) {
    if (!IsRigObject(node->GetObjectRef())) continue;
    found = node;
    ++count;
  }
  if (count == 0) Refuse("no Rig object in " + scene);
  if (count > 1)
    Refuse(scene + " holds " + std::to_string(count) + " Rig objects: name one with --node");
  return found;
}

// Calls the Rig object's published function with one file name; its bool answer.
bool CallFileFunction(INode* node, const char* function, const std::string& path) {
  FPInterface* fpi = RigInterfaceWith(node->GetObjectRef(), function);
  if (!fpi) Refuse(std::string("the Rig object publishes no ") + function + " function");
  const FPValue args[] = {FPValue(path)};
  const FPResult result = CallFunction(fpi, function, args);
  return result.status == FPS_OK && result.value.AsBool();
}

struct FilePoint {
  std::string name;
  Point3 pos;
};

// The points of a .rig buffer (root field 4: a vector of tables of name (4) and a position of
// three floats (6)), checked by the verifier as it walks; false for a damaged buffer.
bool ReadRigFilePoints(const std::vector<std::uint8_t>& bytes, std::vector<FilePoint>& out) {
  struct Vec3 {
    float x, y, z;
  };
  using PointTables = flatbuffers::Vector<flatbuffers::Offset<flatbuffers::Table>>;
  flatbuffers::Verifier verifier(bytes.data(), bytes.size());
  if (bytes.size() < sizeof(flatbuffers::uoffset_t) || verifier.VerifyOffset(0) == 0) return false;
  const auto* root = flatbuffers::GetRoot<flatbuffers::Table>(bytes.data());
  if (!root->VerifyTableStart(verifier) || !root->VerifyOffset(verifier, 4)) return false;
  const auto* points = root->GetPointer<const PointTables*>(4);
  if (points && !verifier.VerifyVector(points)) return false;
  out.clear();
  for (flatbuffers::uoffset_t i = 0; points && i < points->size(); ++i) {
    const flatbuffers::Table* p = points->Get(i);
    if (!p->VerifyTableStart(verifier) || !p->VerifyOffset(verifier, 4) ||
        !p->VerifyField<Vec3>(verifier, 6, alignof(float)))
      return false;
    const auto* name = p->GetPointer<const flatbuffers::String*>(4);
    if ((name && !verifier.VerifyString(name)) || !verifier.EndTable()) return false;
    const Vec3* pos = p->GetStruct<const Vec3*>(6);
    out.push_back(
        {name ? name->str() : std::string(), pos ? Point3(pos->x, pos->y, pos->z) : Point3()});
  }
  return true;
}

// The point names of node's template with their positions: what its Save writes (points that
// are not derived), read back from a file of the system's temporary folder.
std::vector<FilePoint> TemplatePointsOrRefuse(INode* node) {
  const std::filesystem::path tmp =
      std::filesystem::temp_directory_path() /
      ("marvolith_points_" + std::to_string(static_cast<unsigned long>(::getpid())) + ".rig");
  const bool saved = CallFileFunction(node, "Save", tmp.string());
  std::vector<std::uint8_t> bytes;
  if (saved) {
    std::ifstream in(tmp, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  std::error_code ignored;
  std::filesystem::remove(tmp, ignored);
  std::vector<FilePoint> points;
  if (!saved || !ReadRigFilePoints(bytes, points))
    Refuse("the Rig object's template could not be read");
  return points;
}

const char* SideOf(const std::string& name) {
  if (name.rfind("r_", 0) == 0) return "right";
  if (name.rfind("l_", 0) == 0) return "left";
  return "center";
}

void AddTemplateCommand(CLI::App& rig) {
  auto* cmd = rig.add_subcommand("template", "Draw the template of one rig type to PNG or SVG");
  // Option values live as long as the program (CLI11 keeps pointers to them).
  static std::string type_value, view_value = "persp", size_value = "800x600", out_value;
  static std::vector<std::string> set_values;
  cmd->add_option("--type", type_value, "Rig type: a name (biped, quadruped, ...) or 0..27")
      ->required();
  cmd->add_option("--set", set_values, "name=value of a block parameter (repeatable)");
  std::vector<std::string> views;
  for (const auto& [name, type] : ViewNames()) views.push_back(name);
  cmd->add_option("--view", view_value, "View: front, side, top or persp (default persp)")
      ->check(CLI::IsMember(views));
  cmd->add_option("--size", size_value, "Picture size WxH in pixels (default 800x600)");
  cmd->add_option("--out", out_value, "Picture to write: FILE.png or FILE.svg")->required();
  cmd->callback([] {
    RequireModule();
    const int type = ParseTypeOrRefuse(type_value);
    int width = 0, height = 0;
    char extra = 0;
    if (std::sscanf(size_value.c_str(), "%dx%d%c", &width, &height, &extra) != 2 || width < 16 ||
        height < 16 || width > 8192 || height > 8192)
      Refuse("--size '" + size_value + "' is not WxH with 16..8192 pixels each way");
    if (!ImageFormatForPath(out_value))
      Refuse("the picture file '" + out_value + "' must end in .png or .svg");
    INode* node = MakeRigOrRefuse(type, set_values);
    HeadlessViewport viewport;
    DrawRigNode(node, viewport);
    const DisplayList& list = viewport.GetDisplayList();
    const ViewCamera camera =
        ViewCamera::Framing(ViewNames().at(view_value), list.Bounds(), width, height);
    std::string error;
    if (!RenderToFile(list, camera, RenderOptions(), out_value, &error)) Refuse(Plain(error));
    std::printf("%s: %s template, %d lines, %s view, %d x %d\n", out_value.c_str(),
                std::string(kRigSheetTypeNames[type]).c_str(), list.LineCount(), view_value.c_str(),
                width, height);
  });
}

void AddSheetCommand(CLI::App& rig) {
  auto* cmd = rig.add_subcommand(
      "sheet", "Draw the template of every creature type, labelled, on one PNG or SVG sheet");
  static std::string out_value;
  cmd->add_option("--out", out_value, "Picture to write: FILE.png or FILE.svg")->required();
  cmd->callback([] {
    RequireModule();
    std::string error;
    int types = 0;
    if (!RenderRigTemplateSheet(out_value, &error, &types)) Refuse(Plain(error));
    std::printf("%d rig types drawn to %s\n", types, out_value.c_str());
  });
}

void AddSaveTemplateCommand(CLI::App& rig) {
  auto* cmd =
      rig.add_subcommand("save-template", "Write the template of a scene's Rig object to .rig");
  static std::string scene_value, rig_value, node_value;
  cmd->add_option("SCENE", scene_value, "Scene file")->required();
  cmd->add_option("OUT", rig_value, "Template file to write (.rig)")->required();
  cmd->add_option("--node", node_value, "The Rig node (default: the scene's only one)");
  cmd->callback([] {
    RequireModule();
    LoadSceneOrRefuse(scene_value);
    INode* node = FindRigNodeOrRefuse(scene_value, node_value);
    if (!CallFileFunction(node, "Save", rig_value))
      Refuse("could not write the template file " + rig_value);
    std::printf("%s: template of '%s' written\n", rig_value.c_str(), node->GetName());
  });
}

void AddLoadTemplateCommand(CLI::App& rig) {
  auto* cmd = rig.add_subcommand(
      "load-template", "Apply a .rig template to a scene's Rig object and save the scene");
  static std::string scene_value, rig_value, node_value, out_value;
  cmd->add_option("SCENE", scene_value, "Scene file")->required();
  cmd->add_option("IN", rig_value, "Template file to read (.rig)")->required();
  cmd->add_option("--node", node_value, "The Rig node (default: the scene's only one)");
  cmd->add_option("--out", out_value, "Scene file to write (default: SCENE itself)");
  cmd->callback([] {
    RequireModule();
    LoadSceneOrRefuse(scene_value);
    INode* node = FindRigNodeOrRefuse(scene_value, node_value);
    if (!CallFileFunction(node, "Load", rig_value))
      Refuse("could not load the template file " + rig_value);
    const std::string out = out_value.empty() ? scene_value : out_value;
    std::string error;
    if (!SaveScene(out, &error)) Refuse(Plain(error));
    std::printf("%s: template %s applied to '%s'\n", out.c_str(), rig_value.c_str(),
                node->GetName());
  });
}

// The options of a listing command: a scene's Rig node, or a new template of a type.
struct RigSource {
  std::string scene, type, node;
  std::vector<std::string> sets;
};

// A listing subcommand that runs list on the Rig node its options name.
void AddListingCommand(CLI::App& rig,
                       const char* name,
                       const char* description,
                       void (*list)(INode* node)) {
  auto* cmd = rig.add_subcommand(name, description);
  auto source = std::make_shared<RigSource>();
  cmd->add_option("SCENE", source->scene, "Scene file with a Rig object");
  cmd->add_option("--type", source->type, "A new template of this rig type instead of a scene");
  cmd->add_option("--set", source->sets, "With --type: name=value of a block parameter");
  cmd->add_option("--node", source->node, "The Rig node (default: the scene's only one)");
  cmd->callback([source, name, list] {
    RequireModule();
    if (source->scene.empty() == source->type.empty())
      Refuse(std::string("rig ") + name + " takes a SCENE or --type, one of them");
    INode* node = nullptr;
    if (!source->type.empty()) {
      node = MakeRigOrRefuse(ParseTypeOrRefuse(source->type), source->sets);
    } else {
      LoadSceneOrRefuse(source->scene);
      node = FindRigNodeOrRefuse(source->scene, source->node);
    }
    list(node);
  });
}

void ListPoints(INode* node) {
  const std::vector<FilePoint> points = TemplatePointsOrRefuse(node);
  FPInterface* fpi = RigInterfaceWith(node->GetObjectRef(), "GetPointParent");
  if (!fpi) Refuse("the Rig object publishes no GetPointParent function");
  for (const FilePoint& p : points) {
    const FPValue args[] = {FPValue(p.name)};
    const FPResult parent = CallFunction(fpi, "GetPointParent", args);
    std::printf("%s\t%s\t%s\t%g\t%g\t%g\n", p.name.c_str(),
                parent.status == FPS_OK ? parent.value.AsString().c_str() : "", SideOf(p.name),
                p.pos.x, p.pos.y, p.pos.z);
  }
}

void ListComponents(INode* node) {
  FPInterface* fpi = RigInterfaceWith(node->GetObjectRef(), "GetPointParent");
  const FPResult listed = fpi ? GetProperty(fpi, "components") : FPResult{};
  if (!fpi || listed.status != FPS_OK) Refuse("the Rig object publishes no components property");
  std::fputs(listed.value.AsString().c_str(), stdout);
}

}  // namespace

void AddRigCommands(CLI::App& app) {
  auto* rig = app.add_subcommand("rig", "Rig templates: pictures, the type sheet, .rig files");
  rig->require_subcommand(1);
  AddTemplateCommand(*rig);
  AddSheetCommand(*rig);
  AddSaveTemplateCommand(*rig);
  AddLoadTemplateCommand(*rig);
  AddListingCommand(*rig, "points",
                    "List a template's points: name, parent, side, x, y, z (tab-separated)",
                    ListPoints);
  AddListingCommand(*rig, "components",
                    "List a template's selectable components with their values (tab-separated)",
                    ListComponents);
}

}  // namespace marvolith::cli
