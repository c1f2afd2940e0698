// Copyright Marvolith contributors.
// AnimationManager, the scripting core interface of the animation manager, and the manager's
// node gathering. For now it publishes the layer operations: putting the gathered or given nodes
// on a layer set and taking them off, and acting on the layer set of the selection.
#pragma once

#include <string>
#include <vector>

#include "host/base/tab.h"
#include "host/core/control.h"
#include "host/scene/inode.h"
#include "host/script/fp_interface.h"

namespace marvolith {

inline constexpr Interface_ID ANIMATION_MANAGER_INTERFACE_ID(0x4BC7724E, 0x227423FB);

/// Bits of the manager's flag word that gathering reads.
inline constexpr DWORD kGatherNoLimb = 0x2;      ///< cancels the per-limb gathering of kGatherCtrl
inline constexpr DWORD kGatherAllNodes = 0x4;    ///< every node of the scene
inline constexpr DWORD kGatherWholeRig = 0x8;    ///< the whole rig of the selection
inline constexpr DWORD kGatherCtrl = 0x4000000;  ///< the Ctrl key was held: only the limb
inline constexpr DWORD kLayersKeepExistingSets = kGatherCtrl;

/// The nodes an operation with flags works on, into nodes:
/// - kGatherAllNodes: every node of the scene, parents before children;
/// - otherwise from the selection; an empty selection leaves nodes as they were;
/// - without kGatherWholeRig: the selection itself;
/// - with kGatherCtrl and not kGatherNoLimb: from the rig top above each selected node (the first
///   node up whose manager modifier has `root` set, else the child of the scene root), that top
///   and everything below it, keeping only nodes with a manager modifier when the selected node
///   has one;
/// - else from each distinct rig top of the selection, the nodes with a manager modifier below
///   it (the top included).
/// Depth first, children in order, each node once.
void GatherNodes(std::vector<INode*>& nodes, DWORD flags);

/// Layers on the nodes gathered with flags | kGatherWholeRig; kLayersKeepExistingSets keeps each
/// node's own set. Nothing when no node is gathered.
void EnableLayers(DWORD flags);
/// Takes the layers off the nodes gathered with flags | kGatherWholeRig.
void DisableLayers(DWORD flags);

/// The static core interface "AnimationManager". The layer functions act on the layer set found
/// on the selected nodes and do nothing (answer 0, "" or undefined) when there is none; indices
/// are 0-based here, 1-based in scripts, and bad ones are ignored.
class AnimationManager : public FPStaticInterface {
 public:
  enum : FunctionID {
    kEnableLayers = 29,
    kAddAdjustmentLayer = 30,
    kAddOverrideLayer = 31,
    kRemoveLayer = 32,
    kCollapseLayers = 33,
    kMoveLayerUp = 34,
    kMoveLayerDown = 35,
    kDisableLayers = 36,
    kGetLayerCount = 37,
    kGetLayerName = 38,
    kSetLayerName = 39,
    kGetLayerType = 40,
    kSetLayerType = 41,
    kGetLayerIgnore = 42,
    kSetLayerIgnore = 43,
    kGetLayerGlobalWeight = 44,
    kSetLayerGlobalWeight = 45,
    kGetLayerGlobalWeightControl = 46,
    kSetLayerGlobalWeightControl = 47,
    kGetLayerLocalWeight = 48,
    kSetLayerLocalWeight = 49,
    kGetLayerLocalWeightControl = 50,
    kSetLayerLocalWeightControl = 51,
    kGetActiveLayer = 52,
    kSetActiveLayer = 53,
    kGetDisplayAllLayersKeysTracks = 54,
    kSetDisplayAllLayersKeysTracks = 55,
    kGetIgnoreAboveActive = 56,
    kSetIgnoreAboveActive = 57,
    kGetEulerBlending = 58,
    kSetEulerBlending = 59,
    kEnableLayersOnNodes = 63,
    kDisableLayersOnNodes = 64,
  };

  AnimationManager();

  void EnableLayersOfRig();
  void DisableLayersOfRig();
  void EnableLayersOnNodes(const Tab<INode*>& nodes, bool keep_existing_sets);
  void DisableLayersOnNodes(const Tab<INode*>& nodes);

  void AddAdjustmentLayer(const std::string& name, int index);
  void AddOverrideLayer(const std::string& name, int index);
  void RemoveLayer(int index);
  void CollapseLayers();
  void MoveLayerUp(int index);
  void MoveLayerDown(int index);

  int GetLayerCount();
  std::string GetLayerName(int index);
  void SetLayerName(int index, const std::string& name);
  int GetLayerType(int index);
  void SetLayerType(int index, int type);
  bool GetLayerIgnore(int index);
  void SetLayerIgnore(int index, bool state);
  /// At the current time; 0 out of range.
  float GetLayerGlobalWeight(int index);
  void SetLayerGlobalWeight(int index, float weight);
  Control* GetLayerGlobalWeightControl(int index);
  void SetLayerGlobalWeightControl(int index, Control* controller);
  /// On the local weights the selection shares; 0 when its nodes have different ones.
  float GetLayerLocalWeight(int index);
  void SetLayerLocalWeight(int index, float weight);
  Control* GetLayerLocalWeightControl(int index);
  void SetLayerLocalWeightControl(int index, Control* controller);
  int GetActiveLayer();
  void SetActiveLayer(int index);
  bool GetDisplayAllLayersKeysTracks();
  void SetDisplayAllLayersKeysTracks(bool state);
  bool GetIgnoreAboveActive();
  void SetIgnoreAboveActive(bool state);
  bool GetEulerBlending();
  void SetEulerBlending(bool state);

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
};

/// The one instance, registered as a core interface with the module's static objects.
AnimationManager& GetAnimationManager();

}  // namespace marvolith
