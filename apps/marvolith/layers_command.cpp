// Copyright Marvolith contributors.
// `marvolith layers list|add|weight|active|collapse SCENE ...`: the animation layers of a scene
// file. Everything goes through the loaded module: the AnimationManager core interface acts on
// the nodes selected here, and a layered track is told by its published layers interface.
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "apps/marvolith/commands.h"
#include "host/app/scene_file.h"
#include "host/controllers/control_interfaces.h"
#include "host/scene/core_interface.h"
#include "host/scene/scene.h"
#include "host/script/fp_dispatch.h"

namespace marvolith::cli {
namespace {

// What every layered controller answers; its reference 0 is the set it belongs to.
constexpr Interface_ID kLayersInterfaceID(0x45596D56, 0x1E847B69);
// Lists nest; a damaged file cannot make the walk endless.
constexpr int kMaxListDepth = 64;

struct LayerSet {
  ReferenceTarget* stack = nullptr;
  std::vector<INode*> nodes;
};

FPInterface* Manager() {
  FPInterface* fpi = GetCOREInterface("AnimationManager");
  if (!fpi) Refuse("the module publishes no AnimationManager interface");
  return fpi;
}

FPValue CallManager(const char* function,
                    std::vector<FPValue> args = {},
                    std::vector<FPKeyArg> keys = {}) {
  const FPResult result = CallFunction(Manager(), function, args, keys);
  if (result.status != FPS_OK) Refuse(std::string("AnimationManager.") + function + " failed");
  return result.value;
}

// The set of a track: through lists at their active item.
ReferenceTarget* SetOfTrack(Control* c) {
  for (int depth = 0; c && depth < kMaxListDepth; ++depth) {
    if (GetFPInterface(c, kLayersInterfaceID))
      return dynamic_cast<ReferenceTarget*>(c->GetReference(0));
    auto* list = dynamic_cast<IListControl*>(c->GetInterface(LIST_CONTROLLER_INTERFACE));
    if (!list || list->GetListCount() <= 0) return nullptr;
    const int active = list->GetActive();
    c = list->GetSubCtrl(active < 0                       ? 0
                         : active >= list->GetListCount() ? list->GetListCount() - 1
                                                          : active);
  }
  return nullptr;
}

// The set of a node's first layered transform track, or null.
ReferenceTarget* SetOfNode(INode* node) {
  Control* tm = node->GetTMController();
  if (!tm) return nullptr;
  for (Control* c :
       {tm->GetPositionController(), tm->GetRotationController(), tm->GetScaleController()}) {
    if (ReferenceTarget* set = SetOfTrack(c)) return set;
  }
  return nullptr;
}

// The layer sets of the open scene in the order their first node comes.
std::vector<LayerSet> SceneSets() {
  std::vector<INode*> nodes;
  Scene::Active().CollectNodes(nodes);
  std::vector<LayerSet> sets;
  for (INode* node : nodes) {
    ReferenceTarget* stack = SetOfNode(node);
    if (!stack) continue;
    LayerSet* found = nullptr;
    for (LayerSet& set : sets) {
      if (set.stack == stack) found = &set;
    }
    if (!found) found = &sets.emplace_back(LayerSet{stack, {}});
    found->nodes.push_back(node);
  }
  return sets;
}

std::string NodeNames(const std::vector<INode*>& nodes) {
  std::string text;
  for (INode* node : nodes) text += (text.empty() ? "" : ", ") + std::string(node->GetName());
  return text;
}

void Select(const std::vector<INode*>& nodes) {
  Interface* ip = GetCOREInterface();
  ip->ClearNodeSelection(false);
  for (INode* node : nodes) ip->SelectNode(node, false);
}

std::vector<INode*> NodesOrRefuse(const std::string& scene, const std::string& list) {
  std::vector<INode*> nodes;
  std::stringstream names(list);
  std::string name;
  while (std::getline(names, name, ',')) {
    if (name.empty()) continue;
    INode* node = GetCOREInterface()->GetINodeByName(name.c_str());
    if (!node) Refuse("no node called '" + name + "' in " + scene);
    nodes.push_back(node);
  }
  if (nodes.empty()) Refuse("--nodes names no node");
  return nodes;
}

// The manager acts on the last set it meets among the selected nodes: nodes on different sets
// would change only some of them.
void OneSetOrRefuse(const std::vector<INode*>& nodes) {
  for (INode* node : nodes) {
    if (SetOfNode(node) != SetOfNode(nodes.front())) {
      Refuse("the nodes " + NodeNames(nodes) + " are on different layer sets");
    }
  }
}

// The nodes a command acts on: those named (which must be on a set), else the scene's only set.
std::vector<INode*> TargetOrRefuse(const std::string& scene, const std::string& node_list) {
  if (!node_list.empty()) {
    std::vector<INode*> nodes = NodesOrRefuse(scene, node_list);
    for (INode* node : nodes) {
      if (!SetOfNode(node)) Refuse(std::string("the node '") + node->GetName() + "' has no layers");
    }
    OneSetOrRefuse(nodes);
    return nodes;
  }
  const std::vector<LayerSet> sets = SceneSets();
  if (sets.empty()) Refuse(scene + " has no animation layers");
  if (sets.size() > 1) {
    Refuse(scene + " holds " + std::to_string(sets.size()) +
           " layer sets: name the nodes with --nodes");
  }
  return sets.front().nodes;
}

void CheckLayerOrRefuse(int layer, int count, int first = 1) {
  if (layer < first || layer > count) {
    Refuse("layer " + std::to_string(layer) + " is outside " + std::to_string(first) + ".." +
           std::to_string(count));
  }
}

void SaveSceneOrRefuse(const std::string& scene, const std::string& out) {
  std::string error;
  if (!SaveScene(out.empty() ? scene : out, &error)) Refuse(Plain(error));
}

void ListSets(const std::string& scene) {
  const std::vector<LayerSet> sets = SceneSets();
  if (sets.empty()) std::printf("%s: no animation layers\n", scene.c_str());
  for (size_t s = 0; s < sets.size(); ++s) {
    std::printf("layer set %zu: %s\n", s + 1, NodeNames(sets[s].nodes).c_str());
    Select(sets[s].nodes);
    const int count = CallManager("GetLayerCount").AsInt();
    const int active = CallManager("GetActiveLayer").AsInt();
    for (int i = 1; i <= count; ++i) {
      const std::string name = CallManager("GetLayerName", {FPValue(i)}).AsString();
      const int type = CallManager("GetLayerType", {FPValue(i)}).AsInt();
      const bool ignore = CallManager("GetLayerIgnore", {FPValue(i)}).AsBool();
      const float weight = CallManager("GetLayerGlobalWeight", {FPValue(i)}).AsFloat();
      std::printf("%d\t%s\t%s\t%s\t%g\t%s\n", i, name.c_str(),
                  type == 0 ? "adjustment" : "override", ignore ? "ignored" : "-", weight,
                  i == active ? "active" : "");
    }
  }
}

// Options shared by the subcommands that change a scene.
struct Edit {
  std::string scene, out, nodes, name, type = "adjustment";
  int layer = 0;
  int index = 0;
  double value = 0.0;
  bool local = false;
};

CLI::App* AddEditCommand(CLI::App& layers,
                         const char* name,
                         const char* description,
                         std::shared_ptr<Edit> edit) {
  auto* cmd = layers.add_subcommand(name, description);
  cmd->add_option("SCENE", edit->scene, "Scene file")->required();
  cmd->add_option("--out", edit->out, "Scene file to write (default: SCENE itself)");
  return cmd;
}

void AddListCommand(CLI::App& layers) {
  auto* cmd = layers.add_subcommand(
      "list", "List each layer set: its nodes, then index, name, type, ignore, weight, active");
  static std::string scene_value;
  cmd->add_option("SCENE", scene_value, "Scene file")->required();
  cmd->callback([] {
    RequireModule();
    LoadSceneOrRefuse(scene_value);
    ListSets(scene_value);
  });
}

void AddAddCommand(CLI::App& layers) {
  auto edit = std::make_shared<Edit>();
  auto* cmd =
      AddEditCommand(layers, "add", "Add a layer to the set of nodes (put on layers first)", edit);
  cmd->add_option("--nodes", edit->nodes, "Nodes, comma-separated")->required();
  cmd->add_option("--name", edit->name, "Layer name (default: Anim Layer NN)");
  cmd->add_option("--type", edit->type, "adjustment (default) or override")
      ->check(CLI::IsMember({"adjustment", "override"}));
  cmd->add_option("--index", edit->index,
                  "Position of the new layer, 2 or more (default: above the active one)");
  cmd->callback([edit] {
    RequireModule();
    LoadSceneOrRefuse(edit->scene);
    const std::vector<INode*> nodes = NodesOrRefuse(edit->scene, edit->nodes);
    bool all_layered = true;
    for (INode* node : nodes) all_layered = all_layered && SetOfNode(node);
    if (!all_layered) {
      Tab<INode*> tab;
      for (INode* node : nodes) tab.Append(1, &node);
      CallManager("EnableLayersOnNodes", {FPValue(tab)});
    }
    OneSetOrRefuse(nodes);
    Select(nodes);
    const int count = CallManager("GetLayerCount").AsInt();
    if (count < 1) Refuse("the nodes " + NodeNames(nodes) + " could not be put on layers");
    std::vector<FPKeyArg> keys = {{"name", FPValue(edit->name)}};
    if (edit->index != 0) {
      CheckLayerOrRefuse(edit->index, count + 1, 2);  // the base layer stays first
      keys.push_back({"index", FPValue(edit->index)});
    }
    CallManager(edit->type == "override" ? "addOverrideLayer" : "addAdjustmentLayer", {}, keys);
    const int active = CallManager("GetActiveLayer").AsInt();
    const std::string name = CallManager("GetLayerName", {FPValue(active)}).AsString();
    SaveSceneOrRefuse(edit->scene, edit->out);
    std::printf("layer %d '%s' added (%s) to the set of %s\n", active, name.c_str(),
                edit->type.c_str(), NodeNames(nodes).c_str());
  });
}

void AddWeightCommand(CLI::App& layers) {
  auto edit = std::make_shared<Edit>();
  auto* cmd = AddEditCommand(layers, "weight", "Set a layer's weight, in percent", edit);
  cmd->add_option("--layer", edit->layer, "Layer, 1-based")->required();
  cmd->add_option("--value", edit->value, "Weight in percent (100 is full)")->required();
  cmd->add_option("--nodes", edit->nodes, "Nodes of the set, comma-separated");
  cmd->add_flag("--local", edit->local, "The local weight the nodes share, not the global one");
  cmd->callback([edit] {
    RequireModule();
    LoadSceneOrRefuse(edit->scene);
    Select(TargetOrRefuse(edit->scene, edit->nodes));
    CheckLayerOrRefuse(edit->layer, CallManager("GetLayerCount").AsInt());
    const FPValue shared =
        edit->local ? CallManager("GetLayerLocalWeightControl", {FPValue(edit->layer)}) : FPValue();
    if (edit->local && (shared.IsUndefined() || shared.IsNullPointer())) {
      Refuse("the nodes do not share one set of local weights: name them with --nodes");
    }
    CallManager(edit->local ? "SetLayerLocalWeight" : "SetLayerGlobalWeight",
                {FPValue(edit->layer), FPValue(static_cast<float>(edit->value))});
    SaveSceneOrRefuse(edit->scene, edit->out);
    std::printf("layer %d: %s weight %g\n", edit->layer, edit->local ? "local" : "global",
                edit->value);
  });
}

void AddActiveCommand(CLI::App& layers) {
  auto edit = std::make_shared<Edit>();
  auto* cmd = AddEditCommand(layers, "active", "Make a layer the active one", edit);
  cmd->add_option("--layer", edit->layer, "Layer, 1-based")->required();
  cmd->add_option("--nodes", edit->nodes, "Nodes of the set, comma-separated");
  cmd->callback([edit] {
    RequireModule();
    LoadSceneOrRefuse(edit->scene);
    Select(TargetOrRefuse(edit->scene, edit->nodes));
    CheckLayerOrRefuse(edit->layer, CallManager("GetLayerCount").AsInt());
    CallManager("SetActiveLayer", {FPValue(edit->layer)});
    SaveSceneOrRefuse(edit->scene, edit->out);
    std::printf("layer %d is active\n", edit->layer);
  });
}

void AddCollapseCommand(CLI::App& layers) {
  auto edit = std::make_shared<Edit>();
  auto* cmd = AddEditCommand(layers, "collapse", "Bake a set's layers into its base layer", edit);
  cmd->add_option("--nodes", edit->nodes, "Nodes of the set, comma-separated");
  cmd->callback([edit] {
    RequireModule();
    LoadSceneOrRefuse(edit->scene);
    const std::vector<INode*> nodes = TargetOrRefuse(edit->scene, edit->nodes);
    Select(nodes);
    const int before = CallManager("GetLayerCount").AsInt();
    CallManager("CollapseLayers");
    SaveSceneOrRefuse(edit->scene, edit->out);
    std::printf("%d layers collapsed into the base layer of %s\n", before,
                NodeNames(nodes).c_str());
  });
}

}  // namespace

void AddLayersCommands(CLI::App& app) {
  auto* layers = app.add_subcommand("layers", "Animation layers of a scene file");
  layers->require_subcommand(1);
  AddListCommand(*layers);
  AddAddCommand(*layers);
  AddWeightCommand(*layers);
  AddActiveCommand(*layers);
  AddCollapseCommand(*layers);
}

}  // namespace marvolith::cli
