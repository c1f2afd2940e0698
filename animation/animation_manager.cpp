// Copyright Marvolith contributors.
#include "animation/animation_manager.h"

#include <algorithm>

#include "animation/animation_manager_mod.h"
#include "host/scene/core_interface.h"
#include "layers/layer_sets.h"
#include "plugin/animation_manager_params.h"

namespace marvolith {
namespace {

using enum FPType;

void AddOnce(std::vector<INode*>& nodes, INode* node) {
  if (std::find(nodes.begin(), nodes.end(), node) == nodes.end()) nodes.push_back(node);
}

// Depth first from top, children in order; with only_managed the nodes without a manager
// modifier are passed over (their children are still visited).
void Collect(INode* top, bool only_managed, std::vector<INode*>& nodes) {
  if (!only_managed || FindAnimationManagerMod(top)) AddOnce(nodes, top);
  for (int i = 0, n = top->NumberOfChildren(); i < n; ++i) {
    if (INode* child = top->GetChildNode(i)) Collect(child, only_managed, nodes);
  }
}

std::vector<INode*> SelectedNodes() {
  Interface* ip = GetCOREInterface();
  std::vector<INode*> selection;
  for (int i = 0, n = ip->GetSelNodeCount(); i < n; ++i) {
    if (INode* node = ip->GetSelNode(i)) selection.push_back(node);
  }
  return selection;
}

std::vector<INode*> FromTab(const Tab<INode*>& tab) {
  std::vector<INode*> nodes;
  for (int i = 0; i < tab.Count(); ++i) {
    if (tab[i]) AddOnce(nodes, tab[i]);
  }
  return nodes;
}

TimeValue Now() { return GetCOREInterface()->GetTime(); }

}  // namespace

void GatherNodes(std::vector<INode*>& nodes, DWORD flags) {
  if (flags & kGatherAllNodes) {
    nodes.clear();
    INode* root = GetCOREInterface()->GetRootNode();
    for (int i = 0, n = root ? root->NumberOfChildren() : 0; i < n; ++i) {
      if (INode* child = root->GetChildNode(i)) Collect(child, false, nodes);
    }
    return;
  }
  const std::vector<INode*> selection = SelectedNodes();
  if (selection.empty()) return;
  nodes.clear();
  if (!(flags & kGatherWholeRig)) {
    nodes = selection;
    return;
  }
  if ((flags & kGatherCtrl) && !(flags & kGatherNoLimb)) {
    for (INode* node : selection) {
      INode* top = animation_manager::FindRigRoot(node);
      if (top) Collect(top, FindAnimationManagerMod(node) != nullptr, nodes);
    }
    return;
  }
  std::vector<INode*> tops;
  for (INode* node : selection) {
    if (INode* top = animation_manager::FindRigRoot(node)) AddOnce(tops, top);
  }
  for (INode* top : tops) Collect(top, true, nodes);
}

void EnableLayers(DWORD flags) {
  std::vector<INode*> nodes;
  GatherNodes(nodes, flags | kGatherWholeRig);
  EnableLayers(nodes, (flags & kLayersKeepExistingSets) != 0);
}

void DisableLayers(DWORD flags) {
  std::vector<INode*> nodes;
  GatherNodes(nodes, flags | kGatherWholeRig);
  DisableLayers(nodes);
}

// ---------------------------------------------------------------------------------------------
// The script interface.

AnimationManager::AnimationManager()
    : FPStaticInterface(
          ANIMATION_MANAGER_INTERFACE_ID,
          "AnimationManager",
          FP_CORE,
          nullptr,
          {
              {kEnableLayers, "EnableLayers", TYPE_VOID},
              {kAddAdjustmentLayer,
               "addAdjustmentLayer",
               TYPE_VOID,
               {FPArg("name", TYPE_STRING).KeyArg(""), FPArg("index", TYPE_INDEX).KeyArg(-1)}},
              {kAddOverrideLayer,
               "addOverrideLayer",
               TYPE_VOID,
               {FPArg("name", TYPE_STRING).KeyArg(""), FPArg("index", TYPE_INDEX).KeyArg(-1)}},
              {kRemoveLayer, "RemoveLayer", TYPE_VOID, {FPArg("index", TYPE_INDEX)}},
              {kCollapseLayers, "CollapseLayers", TYPE_VOID},
              {kMoveLayerUp, "MoveLayerUp", TYPE_VOID, {FPArg("index", TYPE_INDEX)}},
              {kMoveLayerDown, "MoveLayerDown", TYPE_VOID, {FPArg("index", TYPE_INDEX)}},
              {kDisableLayers, "DisableLayers", TYPE_VOID},
              {kGetLayerCount, "GetLayerCount", TYPE_INT},
              {kGetLayerName, "GetLayerName", TYPE_STRING, {FPArg("index", TYPE_INDEX)}},
              {kSetLayerName,
               "SetLayerName",
               TYPE_VOID,
               {FPArg("index", TYPE_INDEX), FPArg("string", TYPE_STRING)}},
              {kGetLayerType, "GetLayerType", TYPE_INT, {FPArg("index", TYPE_INDEX)}},
              {kSetLayerType,
               "SetLayerType",
               TYPE_VOID,
               {FPArg("index", TYPE_INDEX), FPArg("type", TYPE_INT)}},
              {kGetLayerIgnore, "GetLayerIgnore", TYPE_BOOL, {FPArg("index", TYPE_INDEX)}},
              {kSetLayerIgnore,
               "SetLayerIgnore",
               TYPE_VOID,
               {FPArg("index", TYPE_INDEX), FPArg("state", TYPE_BOOL)}},
              {kGetLayerGlobalWeight,
               "GetLayerGlobalWeight",
               TYPE_PCNT_FRAC,
               {FPArg("index", TYPE_INDEX)}},
              {kSetLayerGlobalWeight,
               "SetLayerGlobalWeight",
               TYPE_VOID,
               {FPArg("index", TYPE_INDEX), FPArg("weight", TYPE_PCNT_FRAC)}},
              {kGetLayerGlobalWeightControl,
               "GetLayerGlobalWeightControl",
               TYPE_CONTROL,
               {FPArg("index", TYPE_INDEX)}},
              {kSetLayerGlobalWeightControl,
               "SetLayerGlobalWeightControl",
               TYPE_VOID,
               {FPArg("index", TYPE_INDEX), FPArg("controller", TYPE_CONTROL)}},
              {kGetLayerLocalWeight,
               "GetLayerLocalWeight",
               TYPE_PCNT_FRAC,
               {FPArg("index", TYPE_INDEX)}},
              {kSetLayerLocalWeight,
               "SetLayerLocalWeight",
               TYPE_VOID,
               {FPArg("index", TYPE_INDEX), FPArg("weight", TYPE_PCNT_FRAC)}},
              {kGetLayerLocalWeightControl,
               "GetLayerLocalWeightControl",
               TYPE_CONTROL,
               {FPArg("index", TYPE_INDEX)}},
              {kSetLayerLocalWeightControl,
               "SetLayerLocalWeightControl",
               TYPE_VOID,
               {FPArg("index", TYPE_INDEX), FPArg("controller", TYPE_CONTROL)}},
              {kGetActiveLayer, "GetActiveLayer", TYPE_INDEX},
              {kSetActiveLayer, "SetActiveLayer", TYPE_VOID, {FPArg("index", TYPE_INDEX)}},
              {kGetDisplayAllLayersKeysTracks, "GetDisplayAllLayersKeysTracks", TYPE_BOOL},
              {kSetDisplayAllLayersKeysTracks,
               "SetDisplayAllLayersKeysTracks",
               TYPE_VOID,
               {FPArg("state", TYPE_BOOL)}},
              {kGetIgnoreAboveActive, "GetIgnoreAboveActive", TYPE_BOOL},
              {kSetIgnoreAboveActive,
               "SetIgnoreAboveActive",
               TYPE_VOID,
               {FPArg("state", TYPE_BOOL)}},
              {kGetEulerBlending, "GetEulerBlending", TYPE_BOOL},
              {kSetEulerBlending, "SetEulerBlending", TYPE_VOID, {FPArg("state", TYPE_BOOL)}},
              {kEnableLayersOnNodes,
               "EnableLayersOnNodes",
               TYPE_VOID,
               {FPArg("nodes", TYPE_INODE_TAB),
                FPArg("keepExistingSets", TYPE_BOOL).KeyArg(false)}},
              {kDisableLayersOnNodes,
               "DisableLayersOnNodes",
               TYPE_VOID,
               {FPArg("nodes", TYPE_INODE_TAB)}},
          }) {}

namespace {

// The layer set of the selection, or null.
FoundLayers SelectionLayers() { return GetAnimLayers(SelectedNodes()); }

AnimationLayers* SelectionSet() { return SelectionLayers().layers; }

AnimLayersLocalWeights* SelectionWeights() {
  const FoundLayers found = SelectionLayers();
  return found.layers ? found.local_weights : nullptr;
}

}  // namespace

void AnimationManager::EnableLayersOfRig() { EnableLayers(DWORD{0}); }

void AnimationManager::DisableLayersOfRig() { DisableLayers(DWORD{0}); }

void AnimationManager::EnableLayersOnNodes(const Tab<INode*>& nodes, bool keep_existing_sets) {
  EnableLayers(FromTab(nodes), keep_existing_sets);
}

void AnimationManager::DisableLayersOnNodes(const Tab<INode*>& nodes) {
  DisableLayers(FromTab(nodes));
}

void AnimationManager::AddAdjustmentLayer(const std::string& name, int index) {
  if (AnimationLayers* set = SelectionSet()) set->AddLayer(0, name, index);
}

void AnimationManager::AddOverrideLayer(const std::string& name, int index) {
  if (AnimationLayers* set = SelectionSet()) set->AddLayer(1, name, index);
}

void AnimationManager::RemoveLayer(int index) {
  if (AnimationLayers* set = SelectionSet()) set->RemoveLayer(index);
}

void AnimationManager::CollapseLayers() {
  if (AnimationLayers* set = SelectionSet()) set->CollapseLayers();
}

void AnimationManager::MoveLayerUp(int index) {
  if (AnimationLayers* set = SelectionSet()) set->MoveLayerUp(index);
}

void AnimationManager::MoveLayerDown(int index) {
  if (AnimationLayers* set = SelectionSet()) set->MoveLayerDown(index);
}

int AnimationManager::GetLayerCount() {
  AnimationLayers* set = SelectionSet();
  return set ? set->GetLayerCount() : 0;
}

std::string AnimationManager::GetLayerName(int index) {
  AnimationLayers* set = SelectionSet();
  return set ? set->GetLayerName(index) : std::string();
}

void AnimationManager::SetLayerName(int index, const std::string& name) {
  if (AnimationLayers* set = SelectionSet()) set->SetLayerName(index, name);
}

int AnimationManager::GetLayerType(int index) {
  AnimationLayers* set = SelectionSet();
  return set ? set->GetLayerType(index) : 0;
}

void AnimationManager::SetLayerType(int index, int type) {
  if (AnimationLayers* set = SelectionSet()) set->SetLayerType(index, type);
}

bool AnimationManager::GetLayerIgnore(int index) {
  AnimationLayers* set = SelectionSet();
  return set && set->GetLayerIgnore(index);
}

void AnimationManager::SetLayerIgnore(int index, bool state) {
  if (AnimationLayers* set = SelectionSet()) set->SetLayerIgnore(index, state);
}

float AnimationManager::GetLayerGlobalWeight(int index) {
  AnimationLayers* set = SelectionSet();
  Interval valid = FOREVER;
  return set ? set->GetWeight(index, Now(), valid) : 0.0f;
}

void AnimationManager::SetLayerGlobalWeight(int index, float weight) {
  if (AnimationLayers* set = SelectionSet()) set->SetWeight(index, weight, Now());
}

Control* AnimationManager::GetLayerGlobalWeightControl(int index) {
  AnimationLayers* set = SelectionSet();
  return set ? set->GetWeightControl(index) : nullptr;
}

void AnimationManager::SetLayerGlobalWeightControl(int index, Control* controller) {
  if (AnimationLayers* set = SelectionSet()) set->SetWeightControl(index, controller);
}

float AnimationManager::GetLayerLocalWeight(int index) {
  AnimLayersLocalWeights* weights = SelectionWeights();
  Interval valid = FOREVER;
  return weights ? weights->GetWeight(index, Now(), valid) : 0.0f;
}

void AnimationManager::SetLayerLocalWeight(int index, float weight) {
  if (AnimLayersLocalWeights* weights = SelectionWeights())
    weights->SetWeight(index, weight, Now());
}

Control* AnimationManager::GetLayerLocalWeightControl(int index) {
  AnimLayersLocalWeights* weights = SelectionWeights();
  return weights ? weights->GetWeightControl(index) : nullptr;
}

void AnimationManager::SetLayerLocalWeightControl(int index, Control* controller) {
  if (AnimLayersLocalWeights* weights = SelectionWeights()) {
    weights->SetWeightControl(index, controller);
  }
}

int AnimationManager::GetActiveLayer() {
  AnimationLayers* set = SelectionSet();
  return set ? set->GetActiveLayer() : 0;
}

void AnimationManager::SetActiveLayer(int index) {
  if (AnimationLayers* set = SelectionSet()) set->SetActiveLayer(index);
}

bool AnimationManager::GetDisplayAllLayersKeysTracks() {
  AnimationLayers* set = SelectionSet();
  return set && set->GetDisplayAllLayersKeysTracks();
}

void AnimationManager::SetDisplayAllLayersKeysTracks(bool state) {
  if (AnimationLayers* set = SelectionSet()) set->SetDisplayAllLayersKeysTracks(state);
}

bool AnimationManager::GetIgnoreAboveActive() {
  AnimationLayers* set = SelectionSet();
  return set && set->GetIgnoreAboveActive();
}

void AnimationManager::SetIgnoreAboveActive(bool state) {
  if (AnimationLayers* set = SelectionSet()) set->SetIgnoreAboveActive(state);
}

bool AnimationManager::GetEulerBlending() {
  AnimationLayers* set = SelectionSet();
  return set && set->GetEulerBlending();
}

void AnimationManager::SetEulerBlending(bool state) {
  if (AnimationLayers* set = SelectionSet()) set->SetEulerBlending(state);
}

FPStatus AnimationManager::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  using M = AnimationManager;
  switch (fid) {
    case kEnableLayers:
      return FPBind(result, p, this, &M::EnableLayersOfRig);
    case kDisableLayers:
      return FPBind(result, p, this, &M::DisableLayersOfRig);
    case kEnableLayersOnNodes:
      return FPBind(result, p, this, &M::EnableLayersOnNodes);
    case kDisableLayersOnNodes:
      return FPBind(result, p, this, &M::DisableLayersOnNodes);
    case kAddAdjustmentLayer:
      return FPBind(result, p, this, &M::AddAdjustmentLayer);
    case kAddOverrideLayer:
      return FPBind(result, p, this, &M::AddOverrideLayer);
    case kRemoveLayer:
      return FPBind(result, p, this, &M::RemoveLayer);
    case kCollapseLayers:
      return FPBind(result, p, this, &M::CollapseLayers);
    case kMoveLayerUp:
      return FPBind(result, p, this, &M::MoveLayerUp);
    case kMoveLayerDown:
      return FPBind(result, p, this, &M::MoveLayerDown);
    case kGetLayerCount:
      return FPBind(result, p, this, &M::GetLayerCount);
    case kGetLayerName:
      return FPBind(result, p, this, &M::GetLayerName);
    case kSetLayerName:
      return FPBind(result, p, this, &M::SetLayerName);
    case kGetLayerType:
      return FPBind(result, p, this, &M::GetLayerType);
    case kSetLayerType:
      return FPBind(result, p, this, &M::SetLayerType);
    case kGetLayerIgnore:
      return FPBind(result, p, this, &M::GetLayerIgnore);
    case kSetLayerIgnore:
      return FPBind(result, p, this, &M::SetLayerIgnore);
    case kGetLayerGlobalWeight:
      return FPBind(result, p, this, &M::GetLayerGlobalWeight);
    case kSetLayerGlobalWeight:
      return FPBind(result, p, this, &M::SetLayerGlobalWeight);
    case kGetLayerGlobalWeightControl:
      return FPBind(result, p, this, &M::GetLayerGlobalWeightControl);
    case kSetLayerGlobalWeightControl:
      return FPBind(result, p, this, &M::SetLayerGlobalWeightControl);
    case kGetLayerLocalWeight:
      return FPBind(result, p, this, &M::GetLayerLocalWeight);
    case kSetLayerLocalWeight:
      return FPBind(result, p, this, &M::SetLayerLocalWeight);
    case kGetLayerLocalWeightControl:
      return FPBind(result, p, this, &M::GetLayerLocalWeightControl);
    case kSetLayerLocalWeightControl:
      return FPBind(result, p, this, &M::SetLayerLocalWeightControl);
    case kGetActiveLayer:
      return FPBind(result, p, this, &M::GetActiveLayer);
    case kSetActiveLayer:
      return FPBind(result, p, this, &M::SetActiveLayer);
    case kGetDisplayAllLayersKeysTracks:
      return FPBind(result, p, this, &M::GetDisplayAllLayersKeysTracks);
    case kSetDisplayAllLayersKeysTracks:
      return FPBind(result, p, this, &M::SetDisplayAllLayersKeysTracks);
    case kGetIgnoreAboveActive:
      return FPBind(result, p, this, &M::GetIgnoreAboveActive);
    case kSetIgnoreAboveActive:
      return FPBind(result, p, this, &M::SetIgnoreAboveActive);
    case kGetEulerBlending:
      return FPBind(result, p, this, &M::GetEulerBlending);
    case kSetEulerBlending:
      return FPBind(result, p, this, &M::SetEulerBlending);
    default:
      return FPS_NO_SUCH_FUNCTION;
  }
}

namespace {
// Built with the module's static objects, so scripts reach the interface once the module loads.
AnimationManager g_animation_manager;
}  // namespace

AnimationManager& GetAnimationManager() { return g_animation_manager; }

}  // namespace marvolith
