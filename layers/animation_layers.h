// Copyright Marvolith contributors.
// AnimationLayers, the shared layer list of one set of layered nodes (names, types, ignore
// flags, global weights), and AnimLayersLocalWeights, the per-layer weights of one group of
// nodes. The layered controllers (layers/layer_control.h) follow the list through private
// messages; every structural change is one undo step named "Animation Layers Change".
#pragma once

#include <string>
#include <vector>

#include "host/base/tab.h"
#include "host/core/control.h"
#include "host/params/iparam_block2.h"
#include "host/registry/class_desc.h"
#include "host/undo/hold.h"
#include "plugin/animation_layers_params.h"

namespace marvolith {

/// Class of AnimLayersLocalWeights (super class REF_TARGET_CLASS_ID).
inline constexpr Class_ID kAnimLayersLocalWeightsClassID(0x45596d56, 0x1e847b68);

/// Private messages from an AnimationLayers to its dependents; the part id is the layer index.
/// Receivers answer REF_STOP so that the message travels no further.
inline constexpr RefMessage kLayerAddedAdjustmentMsg = 0xDAC02C7C;
inline constexpr RefMessage kLayerAddedOverrideMsg = 0xDAC02C7D;
inline constexpr RefMessage kLayerRemovedMsg = 0xDAC02C7E;
inline constexpr RefMessage kLayersCollapseMsg = 0xDAC02C7F;
inline constexpr RefMessage kLayerMovedUpMsg = 0xDAC02C80;
inline constexpr RefMessage kLayerMovedDownMsg = 0xDAC02C81;
inline constexpr RefMessage kLayersResetMsg = 0xDAC02C82;

/// The undo name of every structural or attribute change of a layer stack.
inline constexpr const char* kLayersHoldName = "Animation Layers Change";

/// Called at the end of undoing or redoing a layer change and after every change of the stack:
/// a front end with a layer list refreshes it (`refresh`: re-read the selection). None is set
/// headless.
using LayersUIUpdate = void (*)(bool refresh);
void SetLayersUIUpdate(LayersUIUpdate update);
void UpdateLayersUI(bool refresh);

/// A new float controller of the host's default class holding value at time 0 (not keyed).
Control* NewWeightController(float value = 1.0f);

class AnimationLayers : public ReferenceTarget {
 public:
  static constexpr int kParamsRef = 0;

  /// A new stack: the block, one layer "Base Layer" of type Override, Euler blending on. With
  /// loading true the block and weights come from the scene file instead.
  explicit AnimationLayers(bool loading = false);
  ~AnimationLayers() override;

  Class_ID ClassID() override { return animation_layers::kClassID; }
  SClass_ID SuperClassID() override { return REF_TARGET_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;

  // References: 0 the block, 1..n the global weight controllers of the layers.
  int NumRefs() override;
  RefTargetHandle GetReference(int i) override;
  // Sub-anims: one weight controller per layer, named after the layer; only the active one
  // unless display_all_layers_keys_tracks.
  int NumSubs() override;
  Animatable* SubAnim(int i) override;
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int sub_num) override;
  bool AssignController(Animatable* control, int sub_anim) override;
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;

  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  RefTargetHandle Clone(RemapDir& remap) override;
  /// Chunk 1: int32 count of the weight tab.
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

  // Accessors with the base layer's rules: layer 0 and indices outside the tabs read as
  // Override and not ignored; the active layer is clamped to the layers.
  int GetLayerCount();
  /// The layer count, or active + 1 under ignore_above_active (never more than the count).
  int GetEffectiveLayerCount();
  int GetLayerType(int index);
  bool GetLayerIgnore(int index);
  std::string GetLayerName(int index);  ///< "" out of range
  int GetActiveLayer();
  bool GetDisplayAllLayersKeysTracks();
  bool GetIgnoreAboveActive();
  bool GetEulerBlending();
  /// The global weight controller of a layer, or null.
  Control* GetWeightControl(int index);
  /// Its value at t (absolute), narrowing valid; 0 out of range or without controller.
  float GetWeight(int index, TimeValue t, Interval& valid);

  // Structural operations: each is one held step "Animation Layers Change" with the UI markers,
  // and tells the controllers by its private message. Bad indices are ignored.
  /// Adds a layer of type 0 or 1; an empty name makes "Anim Layer NN"; a negative index puts it
  /// above the active layer. The new layer becomes active.
  void AddLayer(int type, const std::string& name, int index);
  void RemoveLayer(int index);    ///< not the base layer
  void MoveLayerUp(int index);    ///< 2 <= index < count
  void MoveLayerDown(int index);  ///< 1 <= index < count - 1
  /// Bakes every track of the set into its base layer and leaves one "Base Layer".
  void CollapseLayers();

  // Attribute setters: held, nothing when equal to the present value.
  void SetLayerName(int index, const std::string& name);
  void SetLayerType(int index, int type);
  void SetLayerIgnore(int index, bool ignore);
  void SetActiveLayer(int index);
  void SetDisplayAllLayersKeysTracks(bool on);
  void SetIgnoreAboveActive(bool on);
  void SetEulerBlending(bool on);
  /// Held SetValue (absolute) of the weight controller at t.
  void SetWeight(int index, float weight, TimeValue t);
  /// Held reference replacement of a layer's weight controller (a float controller).
  void SetWeightControl(int index, Control* control);

  /// Resizes the three parameter tabs to the count of `types` and the weight tab with them,
  /// filling new weights with NewWeightController(1.0).
  void SyncTabs();

  /// Puts an AnimationLayersRestore ("Layers Weight Controls") of the weight tab when holding.
  void HoldWeights();
  Tab<Control*>& WeightTab() { return weights_; }
  /// After undo or redo put the tab back: tells the dependents REFMSG_CHANGE and 258.
  void TabRestored();

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  IParamBlock2* pblock_ = nullptr;
  Tab<Control*> weights_;
};

class AnimLayersLocalWeights : public ReferenceTarget {
 public:
  static constexpr int kLayersRef = 0;

  explicit AnimLayersLocalWeights(bool loading = false);
  ~AnimLayersLocalWeights() override;

  Class_ID ClassID() override { return kAnimLayersLocalWeightsClassID; }
  SClass_ID SuperClassID() override { return REF_TARGET_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;

  // References: 0 the AnimationLayers, 1..n one float weight per layer.
  int NumRefs() override;
  RefTargetHandle GetReference(int i) override;
  int NumSubs() override;
  Animatable* SubAnim(int i) override;
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int sub_num) override;
  bool AssignController(Animatable* control, int sub_anim) override;

  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  RefTargetHandle Clone(RemapDir& remap) override;
  /// Chunk 1: int32 count of the weight tab.
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

  AnimationLayers* GetAnimationLayers() const { return layers_; }
  /// Brings the weight tab to the layer count of the AnimationLayers (new weights 1.0).
  void SyncWeights();
  Control* GetWeightControl(int index);
  float GetWeight(int index, TimeValue t, Interval& valid);
  void SetWeight(int index, float weight, TimeValue t);
  void SetWeightControl(int index, Control* control);

  /// Puts an AnimLayersLocalWeightsRestore ("Layers Local Weight Controls") when holding.
  void HoldWeights();
  Tab<Control*>& WeightTab() { return weights_; }
  void TabRestored();

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  AnimationLayers* layers_ = nullptr;
  Tab<Control*> weights_;
};

/// The AnimationLayers behind anim when it is one (class id and super class), else null.
AnimationLayers* AsAnimationLayers(Animatable* anim);
AnimLayersLocalWeights* AsLocalWeights(Animatable* anim);

/// Opening (before true) and closing marker of a layer change: at the end of undoing or redoing
/// it refreshes the layer UI.
class AnimationLayersUIRestore : public RestoreObj {
 public:
  AnimationLayersUIRestore(bool before, bool refresh) : before_(before), refresh_(refresh) {}
  void Restore(int is_undo) override;
  void Redo() override;
  MSTR Description() override { return "Animation Layers"; }

 private:
  bool before_;
  bool refresh_;
};

ClassDesc2* GetAnimationLayersDesc();
ClassDesc2* GetAnimLayersLocalWeightsDesc();

}  // namespace marvolith
