// Copyright Marvolith contributors.
// The layered controllers: FloatLayers, PositionLayers, RotationLayers and ScaleLayers hold one
// ordinary controller per layer of their AnimationLayers and blend them (layers/layer_blend.h)
// in GetValue; SetValue writes through the active layer so that the value lands where the user
// put it. IAnimationLayers is their published interface; it acts on the shared stack.
#pragma once

#include <string>
#include <vector>

#include "host/base/tab.h"
#include "host/core/control.h"
#include "host/script/fp_interface.h"
#include "layers/animation_layers.h"
#include "layers/layer_blend.h"

namespace marvolith {

enum AnimationLayersFunction : FunctionID {
  kLayersGetLayerCount = 0,
  kLayersAddAdjustmentLayer = 1,
  kLayersAddOverrideLayer = 2,
  kLayersRemoveLayer = 3,
  kLayersCollapseLayers = 4,
  kLayersMoveLayerUp = 5,
  kLayersMoveLayerDown = 6,
  kLayersGetLayerControl = 7,
  kLayersSetLayerControl = 8,
  kLayersGetLayerName = 9,
  kLayersSetLayerName = 10,
  kLayersGetLayerType = 11,
  kLayersSetLayerType = 12,
  kLayersGetLayerIgnore = 13,
  kLayersSetLayerIgnore = 14,
  kLayersGetLayerGlobalWeight = 15,
  kLayersSetLayerGlobalWeight = 16,
  kLayersGetLayerGlobalWeightControl = 17,
  kLayersSetLayerGlobalWeightControl = 18,
  kLayersGetLayerLocalWeight = 19,
  kLayersSetLayerLocalWeight = 20,
  kLayersGetLayerLocalWeightControl = 21,
  kLayersSetLayerLocalWeightControl = 22,
  kLayersGetActiveLayer = 23,
  kLayersSetActiveLayer = 24,
  kLayersGetDisplayAllLayersKeysTracks = 25,
  kLayersSetDisplayAllLayersKeysTracks = 26,
  kLayersGetIgnoreAboveActive = 27,
  kLayersSetIgnoreAboveActive = 28,
  kLayersGetEulerBlending = 29,
  kLayersSetEulerBlending = 30,
};

/// The script interface of every layered controller ("interface"); GetInterface with
/// animation_layers::kInterfaceID answers it. Indices are 0-based here; the script's index type
/// makes them 1-based. A call on a controller without AnimationLayers does nothing.
class IAnimationLayers : public FPMixinInterface {
 public:
  FPInterfaceDesc* GetDesc() override;

  virtual int GetLayerCount() = 0;
  virtual void AddAdjustmentLayer(const std::string& name, int index) = 0;
  virtual void AddOverrideLayer(const std::string& name, int index) = 0;
  virtual void RemoveLayer(int index) = 0;
  virtual void CollapseLayers() = 0;
  virtual void MoveLayerUp(int index) = 0;
  virtual void MoveLayerDown(int index) = 0;
  virtual Control* GetLayerControl(int index) = 0;
  virtual void SetLayerControl(int index, Control* control) = 0;
  virtual std::string GetLayerName(int index) = 0;
  virtual void SetLayerName(int index, const std::string& name) = 0;
  virtual int GetLayerType(int index) = 0;
  virtual void SetLayerType(int index, int type) = 0;
  virtual bool GetLayerIgnore(int index) = 0;
  virtual void SetLayerIgnore(int index, bool state) = 0;
  virtual float GetLayerGlobalWeight(int index) = 0;
  virtual void SetLayerGlobalWeight(int index, float weight) = 0;
  virtual Control* GetLayerGlobalWeightControl(int index) = 0;
  virtual void SetLayerGlobalWeightControl(int index, Control* control) = 0;
  virtual float GetLayerLocalWeight(int index) = 0;
  virtual void SetLayerLocalWeight(int index, float weight) = 0;
  virtual Control* GetLayerLocalWeightControl(int index) = 0;
  virtual void SetLayerLocalWeightControl(int index, Control* control) = 0;
  virtual int GetActiveLayer() = 0;
  virtual void SetActiveLayer(int index) = 0;
  virtual bool GetDisplayAllLayersKeysTracks() = 0;
  virtual void SetDisplayAllLayersKeysTracks(bool state) = 0;
  virtual bool GetIgnoreAboveActive() = 0;
  virtual void SetIgnoreAboveActive(bool state) = 0;
  virtual bool GetEulerBlending() = 0;
  virtual void SetEulerBlending(bool state) = 0;

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
};

/// Base of the four layered classes. References: 0 the AnimationLayers, 1..n the layer
/// controllers (entries may be null), n + 1 the AnimLayersLocalWeights or null; any index that
/// is neither 0 nor inside the tab is the weights reference. Chunks: 0 the locked byte, 1 the
/// int32 layer count.
class AnimationLayersControl : public Control, public IAnimationLayers, public ILockedTrackImp {
 public:
  ~AnimationLayersControl() override;

  void* GetInterface(ULONG id) override;
  BaseInterface* GetInterface(Interface_ID id) override;

  int NumRefs() override;
  RefTargetHandle GetReference(int i) override;
  int NumSubs() override;
  Animatable* SubAnim(int i) override;
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int sub_num) override;
  bool CanAssignController(int sub_anim) override;
  bool AssignController(Animatable* control, int sub_anim) override;
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

  void GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) override;
  void SetValue(TimeValue t, void* val, int commit, GetSetMethod method) override;
  /// Makes `from` (or the base layer of a layered `from`) this track's base layer.
  void Copy(Control* from) override;
  bool IsLeaf() override { return false; }
  bool IsKeyable() override { return !GetLocked(); }

  // Key operations go to the active layer's controller; the editing ones do nothing while the
  // track is locked.
  int NumKeys() override;
  TimeValue GetKeyTime(int index) override;
  int GetKeyIndex(TimeValue t) override;
  bool GetNextKeyTime(TimeValue t, DWORD flags, TimeValue& nt) override;
  void CopyKeysFromTime(TimeValue src, TimeValue dst, DWORD flags) override;
  void AddNewKey(TimeValue t, DWORD flags) override;
  void DeleteKeyAtTime(TimeValue t) override;
  bool IsKeyAtTime(TimeValue t, DWORD flags) override;
  void DeleteKeys(DWORD flags) override;
  void DeleteKeyByIndex(int index) override;
  void SelectKeyByIndex(int index, bool select) override;
  bool IsKeySelected(int index) override;
  int NumSelKeys() override;
  void MapKeys(TimeMap* map, DWORD flags) override;
  Interval GetTimeRange(DWORD flags) override;
  int GetKeyTimes(Tab<TimeValue>& times, Interval range, DWORD flags) override;
  bool IsAnimated() override;

  // The layer operations, in the order the class adds them.
  void SyncLayerCount(bool keep_undo);
  void InsertLayerController(int type, int index);
  void RemoveLayerController(int index);
  virtual void CollapseLayerControllers() = 0;
  void MoveLayerControllerUp(int index);
  void MoveLayerControllerDown(int index);
  void SetLayerControllerCount(int n);
  /// Every key time of the layers and their weights (ignored layers above the base left out),
  /// once each, ascending; start and end the first and last, 0 and 0 when there is none.
  void GetKeyTimeRange(std::vector<TimeValue>& times, TimeValue& start, TimeValue& end);
  void CollectKeyTimes(std::vector<TimeValue>& times);
  /// The controller of a new layer: the base layer's class when it is a keyable leaf of this
  /// super class, else the default; an Override (type 1) starts at the blended value.
  virtual Control* NewLayerController(int type) = 0;
  void HoldLayerControllers();
  virtual void GetLayeredValue(
      TimeValue t, void* val, Interval& valid, GetSetMethod method, int first, int last) = 0;
  virtual void SetLayeredValue(TimeValue t, void* val, int commit, GetSetMethod method) = 0;

  AnimationLayers* GetAnimationLayers() const { return layers_; }
  AnimLayersLocalWeights* GetLocalWeights() const { return local_weights_; }
  int LayerControllerCount() const { return layer_controls_.Count(); }
  Control* LayerController(int index) const;
  Tab<Control*>& LayerTab() { return layer_controls_; }
  /// After undo or redo of the tab: tells the dependents REFMSG_CHANGE and 258.
  void TabRestored();

  /// The blend's inputs for layer i at t: false to skip it (ignored above the base, weight
  /// exactly 0, no controller). Narrows valid by the weights read.
  bool LayerShareAt(int i, TimeValue t, Interval& valid, LayerShare& share);
  /// min(effective layer count, tab size).
  int BlendCount();

  // IAnimationLayers: each acts on the shared AnimationLayers.
  int GetLayerCount() override;
  void AddAdjustmentLayer(const std::string& name, int index) override;
  void AddOverrideLayer(const std::string& name, int index) override;
  void RemoveLayer(int index) override;
  void CollapseLayers() override;
  void MoveLayerUp(int index) override;
  void MoveLayerDown(int index) override;
  Control* GetLayerControl(int index) override;
  void SetLayerControl(int index, Control* control) override;
  std::string GetLayerName(int index) override;
  void SetLayerName(int index, const std::string& name) override;
  int GetLayerType(int index) override;
  void SetLayerType(int index, int type) override;
  bool GetLayerIgnore(int index) override;
  void SetLayerIgnore(int index, bool state) override;
  float GetLayerGlobalWeight(int index) override;
  void SetLayerGlobalWeight(int index, float weight) override;
  Control* GetLayerGlobalWeightControl(int index) override;
  void SetLayerGlobalWeightControl(int index, Control* control) override;
  float GetLayerLocalWeight(int index) override;
  void SetLayerLocalWeight(int index, float weight) override;
  Control* GetLayerLocalWeightControl(int index) override;
  void SetLayerLocalWeightControl(int index, Control* control) override;
  int GetActiveLayer() override;
  void SetActiveLayer(int index) override;
  bool GetDisplayAllLayersKeysTracks() override;
  void SetDisplayAllLayersKeysTracks(bool state) override;
  bool GetIgnoreAboveActive() override;
  void SetIgnoreAboveActive(bool state) override;
  bool GetEulerBlending() override;
  void SetEulerBlending(bool state) override;

 protected:
  void SetReference(int i, RefTargetHandle target) override;
  /// Clone's common part: remaps the stack, the layers and the weights into `to`.
  void CloneInto(AnimationLayersControl* to, RemapDir& remap);

  AnimationLayers* layers_ = nullptr;
  Tab<Control*> layer_controls_;
  AnimLayersLocalWeights* local_weights_ = nullptr;
};

class FloatLayers final : public AnimationLayersControl {
 public:
  explicit FloatLayers(bool loading = false);
  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return CTRL_FLOAT_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  RefTargetHandle Clone(RemapDir& remap) override;
  void CollapseLayerControllers() override;
  Control* NewLayerController(int type) override;
  void GetLayeredValue(
      TimeValue t, void* val, Interval& valid, GetSetMethod method, int first, int last) override;
  void SetLayeredValue(TimeValue t, void* val, int commit, GetSetMethod method) override;
};

class PositionLayers final : public AnimationLayersControl {
 public:
  explicit PositionLayers(bool loading = false);
  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return CTRL_POSITION_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  RefTargetHandle Clone(RemapDir& remap) override;
  void CollapseLayerControllers() override;
  Control* NewLayerController(int type) override;
  void GetLayeredValue(
      TimeValue t, void* val, Interval& valid, GetSetMethod method, int first, int last) override;
  void SetLayeredValue(TimeValue t, void* val, int commit, GetSetMethod method) override;
};

class RotationLayers final : public AnimationLayersControl {
 public:
  explicit RotationLayers(bool loading = false);
  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return CTRL_ROTATION_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  RefTargetHandle Clone(RemapDir& remap) override;
  void CollapseLayerControllers() override;
  Control* NewLayerController(int type) override;
  void GetLayeredValue(
      TimeValue t, void* val, Interval& valid, GetSetMethod method, int first, int last) override;
  void SetLayeredValue(TimeValue t, void* val, int commit, GetSetMethod method) override;
  /// The Euler order of the base layer's IEulerControl, 0 without one.
  int BlendOrder();
  /// Blended Euler angles by axis of layers [first, last).
  void BlendedEuler(TimeValue t, Interval& valid, int first, int last, float by_axis[3]);
};

class ScaleLayers final : public AnimationLayersControl {
 public:
  explicit ScaleLayers(bool loading = false);
  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return CTRL_SCALE_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  RefTargetHandle Clone(RemapDir& remap) override;
  void CollapseLayerControllers() override;
  Control* NewLayerController(int type) override;
  void GetLayeredValue(
      TimeValue t, void* val, Interval& valid, GetSetMethod method, int first, int last) override;
  void SetLayeredValue(TimeValue t, void* val, int commit, GetSetMethod method) override;
};

/// The layered controller behind anim (the interface test), or null.
AnimationLayersControl* AsLayeredControl(Animatable* anim);

/// A new layered controller of the class for super class sclass (float, position, rotation,
/// scale; null for another) wrapping `original`: reference 0 = layers, the weights, `original`
/// (or the base layer of a layered original, or a new default) as layer 0, then one controller
/// per further layer of the stack.
AnimationLayersControl* WrapInLayers(SClass_ID sclass,
                                     Control* original,
                                     AnimationLayers* layers,
                                     AnimLayersLocalWeights* weights);

ClassDesc2* GetFloatLayersDesc();
ClassDesc2* GetPositionLayersDesc();
ClassDesc2* GetRotationLayersDesc();
ClassDesc2* GetScaleLayersDesc();

}  // namespace marvolith
