// Copyright Marvolith contributors.
// AnimationLayersControl: references, sub-anims, the reactions to the stack's messages, the
// layer tab and its undo record, keys, save/load and wrapping.
#include "layers/layer_control.h"

#include <cstdint>

#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "plugin/class_table.h"
#include "support/chunk_helpers.h"

namespace marvolith {

namespace {

constexpr USHORT kLockedChunk = 0;
constexpr USHORT kCountChunk = 1;

// The layer tab before and after a structural change. It keeps pointers, not references: the
// reference records put around it (by ReplaceReference and DeleteReference) keep the targets
// alive and the dependents exact; this record only puts the slots back in their places.
class AnimationLayersControlRestore : public RestoreObj {
 public:
  explicit AnimationLayersControlRestore(AnimationLayersControl* owner)
      : handle_(Animatable::GetHandleByAnim(owner)), undo_(owner->LayerTab()) {}
  void Restore(int is_undo) override {
    AnimationLayersControl* owner = Get();
    if (!owner) return;
    if (is_undo) redo_ = owner->LayerTab();
    owner->LayerTab() = undo_;
    owner->TabRestored();
  }
  void Redo() override {
    AnimationLayersControl* owner = Get();
    if (!owner) return;
    owner->LayerTab() = redo_;
    owner->TabRestored();
  }
  MSTR Description() override { return "Layers Control"; }

 private:
  AnimationLayersControl* Get() {
    return dynamic_cast<AnimationLayersControl*>(Animatable::GetAnimByHandle(handle_));
  }
  AnimHandle handle_;
  Tab<Control*> undo_;
  Tab<Control*> redo_;
};

bool IsLayerMessage(RefMessage m) {
  return m == kLayerAddedAdjustmentMsg || m == kLayerAddedOverrideMsg || m == kLayerRemovedMsg ||
         m == kLayersCollapseMsg || m == kLayerMovedUpMsg || m == kLayerMovedDownMsg ||
         m == kLayersResetMsg;
}

}  // namespace

AnimationLayersControl::~AnimationLayersControl() = default;

// ---------------------------------------------------------------------------------------------
// Interfaces.

void* AnimationLayersControl::GetInterface(ULONG id) {
  if (id == I_LOCKED) return static_cast<ILockedTrack*>(this);
  return Control::GetInterface(id);
}

BaseInterface* AnimationLayersControl::GetInterface(Interface_ID id) {
  if (id == animation_layers::kInterfaceID) return static_cast<IAnimationLayers*>(this);
  return Control::GetInterface(id);
}

AnimationLayersControl* AsLayeredControl(Animatable* anim) {
  if (!anim) return nullptr;
  auto* fp = dynamic_cast<IAnimationLayers*>(anim->GetInterface(animation_layers::kInterfaceID));
  return dynamic_cast<AnimationLayersControl*>(fp);
}

// ---------------------------------------------------------------------------------------------
// References and sub-anims.

int AnimationLayersControl::NumRefs() { return layer_controls_.Count() + 2; }

RefTargetHandle AnimationLayersControl::GetReference(int i) {
  if (i == animation_layers::kLayersRef) return layers_;
  if (i >= 1 && i <= layer_controls_.Count()) return layer_controls_[i - 1];
  return local_weights_;
}

void AnimationLayersControl::SetReference(int i, RefTargetHandle target) {
  if (i == animation_layers::kLayersRef) {
    layers_ = AsAnimationLayers(target);
  } else if (i >= 1 && i <= layer_controls_.Count()) {
    auto* c = dynamic_cast<Control*>(target);
    layer_controls_[i - 1] = c && c->SuperClassID() == SuperClassID() ? c : nullptr;
  } else {
    local_weights_ = AsLocalWeights(target);
  }
}

Control* AnimationLayersControl::LayerController(int index) const {
  return index >= 0 && index < layer_controls_.Count() ? layer_controls_[index] : nullptr;
}

int AnimationLayersControl::NumSubs() { return layers_ ? layers_->GetLayerCount() : 0; }

Animatable* AnimationLayersControl::SubAnim(int i) {
  if (!layers_) return nullptr;
  if (!layers_->GetDisplayAllLayersKeysTracks() && i != layers_->GetActiveLayer()) return nullptr;
  return LayerController(i);
}

MSTR AnimationLayersControl::SubAnimName(int i, bool) {
  return layers_ ? layers_->GetLayerName(i) : MSTR();
}

int AnimationLayersControl::SubNumToRefNum(int sub_num) {
  return sub_num >= 0 && sub_num < layer_controls_.Count() && sub_num < NumSubs() ? sub_num + 1
                                                                                  : -1;
}

bool AnimationLayersControl::CanAssignController(int sub_anim) {
  return sub_anim >= 0 && sub_anim < layer_controls_.Count();
}

bool AnimationLayersControl::AssignController(Animatable* control, int sub_anim) {
  if (!CanAssignController(sub_anim)) return false;
  auto* c = dynamic_cast<Control*>(control);
  if (control && (!c || c->SuperClassID() != SuperClassID())) return false;
  if (c && c->TestForLoop(FOREVER, this) == REF_FAIL) return false;
  ReplaceReference(sub_anim + 1, c);
  NotifyDependents(FOREVER, 0, REFMSG_CHANGE);
  NotifyDependents(FOREVER, 0, REFMSG_SUBANIM_STRUCTURE_CHANGED);
  return true;
}

RefResult AnimationLayersControl::NotifyRefChanged(
    const Interval&, RefTargetHandle target, PartID& part_id, RefMessage message, bool) {
  if (!IsLayerMessage(message)) return REF_SUCCEED;
  // The same numbers may come from another set the weights or a layer hang from.
  if (!layers_ || target != layers_) return REF_SUCCEED;
  const int index = static_cast<int>(part_id);
  switch (message) {
    case kLayerAddedAdjustmentMsg:
      InsertLayerController(kLayerAdjustment, index);
      break;
    case kLayerAddedOverrideMsg:
      InsertLayerController(kLayerOverride, index);
      break;
    case kLayerRemovedMsg:
      RemoveLayerController(index);
      break;
    case kLayersCollapseMsg:
      CollapseLayerControllers();
      break;
    case kLayerMovedUpMsg:
      MoveLayerControllerUp(index);
      break;
    case kLayerMovedDownMsg:
      MoveLayerControllerDown(index);
      break;
    default:
      break;
  }
  return REF_STOP;
}

// ---------------------------------------------------------------------------------------------
// The layer tab.

void AnimationLayersControl::HoldLayerControllers() {
  // Each structural change records the whole tab, not only the first one of a hold: the
  // reference records of its slots interleave with it and replay in its layout.
  if (theHold.Holding()) theHold.Put(new AnimationLayersControlRestore(this));
}

void AnimationLayersControl::TabRestored() {
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
}

void AnimationLayersControl::SyncLayerCount(bool keep_undo) {
  if (!layers_) return;
  const int n = layers_->GetLayerCount();
  const int old = layer_controls_.Count();
  if (n == old) return;
  for (int i = n; i < old; ++i) DeleteReference(i + 1);
  if (keep_undo) HoldLayerControllers();
  layer_controls_.SetCount(n);
  for (int i = old; i < n; ++i) layer_controls_[i] = nullptr;
  for (int i = old; i < n; ++i) ReplaceReference(i + 1, NewLayerController(kLayerAdjustment));
}

void AnimationLayersControl::InsertLayerController(int type, int index) {
  if (!layers_) return;
  // The stack has the new layer already; the tab catches up to the count before it.
  const int before = layers_->GetLayerCount() - 1;
  if (index < 0 || index > before) return;
  const int old = layer_controls_.Count();
  for (int i = before; i < old; ++i) DeleteReference(i + 1);
  HoldLayerControllers();
  layer_controls_.SetCount(before);
  for (int i = old; i < before; ++i) layer_controls_[i] = nullptr;
  for (int i = old; i < before; ++i) ReplaceReference(i + 1, NewLayerController(kLayerAdjustment));
  HoldLayerControllers();
  Control* none = nullptr;
  layer_controls_.Insert(index, 1, &none);
  ReplaceReference(index + 1, NewLayerController(type));
  TabRestored();
}

void AnimationLayersControl::RemoveLayerController(int index) {
  if (index < 0 || index >= layer_controls_.Count()) return;
  DeleteReference(index + 1);
  HoldLayerControllers();
  layer_controls_.Delete(index, 1);
  SyncLayerCount(true);
  TabRestored();
}

void AnimationLayersControl::MoveLayerControllerUp(int index) {
  if (index < 1 || index >= layer_controls_.Count()) return;
  HoldLayerControllers();
  std::swap(layer_controls_[index], layer_controls_[index - 1]);
  TabRestored();
}

void AnimationLayersControl::MoveLayerControllerDown(int index) {
  if (index < 0 || index >= layer_controls_.Count() - 1) return;
  HoldLayerControllers();
  std::swap(layer_controls_[index], layer_controls_[index + 1]);
  TabRestored();
}

void AnimationLayersControl::SetLayerControllerCount(int n) {
  const int old = layer_controls_.Count();
  layer_controls_.SetCount(n);
  for (int i = old; i < n; ++i) layer_controls_[i] = nullptr;
}

// ---------------------------------------------------------------------------------------------
// Values and copying.

int AnimationLayersControl::BlendCount() {
  if (!layers_) return 0;
  return std::min(layers_->GetEffectiveLayerCount(), layer_controls_.Count());
}

bool AnimationLayersControl::LayerShareAt(int i, TimeValue t, Interval& valid, LayerShare& share) {
  if (!layers_ || i < 0 || i >= layer_controls_.Count()) return false;
  if (i > 0 && layers_->GetLayerIgnore(i)) return false;
  float w = layers_->GetWeight(i, t, valid);
  if (local_weights_ && w != 0.0f) w *= local_weights_->GetWeight(i, t, valid);
  if (w == 0.0f || !layer_controls_[i]) return false;
  share.weight = w;
  share.additive = IsAdditiveLayer(i, layers_->GetLayerType(i));
  return true;
}

void AnimationLayersControl::GetValue(TimeValue t,
                                      void* val,
                                      Interval& valid,
                                      GetSetMethod method) {
  if (!val || !layers_) return;
  GetLayeredValue(t, val, valid, method, 0, layers_->GetEffectiveLayerCount());
}

void AnimationLayersControl::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (!val) return;
  SetLayeredValue(t, val, commit, method);
}

void AnimationLayersControl::Copy(Control* from) {
  if (layer_controls_.Count() == 0) {
    // Recorded, so that undoing the weights reference set before finds it where it was put.
    HoldLayerControllers();
    SetLayerControllerCount(1);
  }
  Control* base = from;
  if (AnimationLayersControl* layered = AsLayeredControl(from)) base = layered->LayerController(0);
  if (base && base->SuperClassID() != SuperClassID()) base = nullptr;
  if (!base) base = NewLayerController(kLayerAdjustment);
  ReplaceReference(1, base);
}

AnimationLayersControl* WrapInLayers(SClass_ID sclass,
                                     Control* original,
                                     AnimationLayers* layers,
                                     AnimLayersLocalWeights* weights) {
  AnimationLayersControl* c = nullptr;
  switch (sclass) {
    case CTRL_FLOAT_CLASS_ID:
      c = new FloatLayers();
      break;
    case CTRL_POSITION_CLASS_ID:
      c = new PositionLayers();
      break;
    case CTRL_ROTATION_CLASS_ID:
      c = new RotationLayers();
      break;
    case CTRL_SCALE_CLASS_ID:
      c = new ScaleLayers();
      break;
    default:
      return nullptr;
  }
  c->ReplaceReference(animation_layers::kLayersRef, layers);
  // The tab is empty yet, so reference 1 is the weights one.
  c->ReplaceReference(1, weights);
  c->Copy(original);
  c->SyncLayerCount(true);
  return c;
}

void AnimationLayersControl::CloneInto(AnimationLayersControl* to, RemapDir& remap) {
  to->ReplaceReference(animation_layers::kLayersRef, remap.CloneRef(layers_));
  const int n = layer_controls_.Count();
  to->SetLayerControllerCount(n);
  for (int i = 0; i < n; ++i) {
    if (layer_controls_[i]) to->ReplaceReference(i + 1, remap.CloneRef(layer_controls_[i]));
  }
  to->ReplaceReference(n + 1, remap.CloneRef(local_weights_));
  to->locked_ = locked_;
  BaseClone(this, to, remap);
}

// ---------------------------------------------------------------------------------------------
// Save and load.

IOResult AnimationLayersControl::Save(ISave* isave) {
  if (SaveChunk(isave, kLockedChunk, static_cast<std::uint8_t>(locked_ ? 1 : 0)) != IO_OK) {
    return IO_ERROR;
  }
  return SaveChunk(isave, kCountChunk, static_cast<std::int32_t>(layer_controls_.Count()));
}

IOResult AnimationLayersControl::Load(ILoad* iload) {
  return ForEachChunk(iload, [&](USHORT id) -> IOResult {
    if (id == kLockedChunk) {
      std::uint8_t b = 0;
      if (LoadValue(iload, b) != IO_OK) return IO_ERROR;
      locked_ = b != 0;
    } else if (id == kCountChunk) {
      std::int32_t n = 0;
      if (LoadValue(iload, n) != IO_OK || n < 0) return IO_ERROR;
      SetLayerControllerCount(n);
    }
    return IO_OK;
  });
}

// ---------------------------------------------------------------------------------------------
// Keys: the active layer's controller answers; edits wait while the track is locked.

namespace {
Control* ActiveOf(AnimationLayersControl* c) {
  AnimationLayers* layers = c->GetAnimationLayers();
  return layers ? c->LayerController(layers->GetActiveLayer()) : nullptr;
}
}  // namespace

int AnimationLayersControl::NumKeys() {
  Control* c = ActiveOf(this);
  return c ? c->NumKeys() : 0;
}

TimeValue AnimationLayersControl::GetKeyTime(int index) {
  Control* c = ActiveOf(this);
  return c ? c->GetKeyTime(index) : 0;
}

int AnimationLayersControl::GetKeyIndex(TimeValue t) {
  Control* c = ActiveOf(this);
  return c ? c->GetKeyIndex(t) : -1;
}

bool AnimationLayersControl::GetNextKeyTime(TimeValue t, DWORD flags, TimeValue& nt) {
  Control* c = ActiveOf(this);
  return c && c->GetNextKeyTime(t, flags, nt);
}

void AnimationLayersControl::CopyKeysFromTime(TimeValue src, TimeValue dst, DWORD flags) {
  Control* c = ActiveOf(this);
  if (c && !GetLocked()) c->CopyKeysFromTime(src, dst, flags);
}

void AnimationLayersControl::AddNewKey(TimeValue t, DWORD flags) {
  Control* c = ActiveOf(this);
  if (c && !GetLocked()) c->AddNewKey(t, flags);
}

void AnimationLayersControl::DeleteKeyAtTime(TimeValue t) {
  Control* c = ActiveOf(this);
  if (c && !GetLocked()) c->DeleteKeyAtTime(t);
}

bool AnimationLayersControl::IsKeyAtTime(TimeValue t, DWORD flags) {
  Control* c = ActiveOf(this);
  return c && c->IsKeyAtTime(t, flags);
}

void AnimationLayersControl::DeleteKeys(DWORD flags) {
  Control* c = ActiveOf(this);
  if (c && !GetLocked()) c->DeleteKeys(flags);
}

void AnimationLayersControl::DeleteKeyByIndex(int index) {
  Control* c = ActiveOf(this);
  if (c && !GetLocked()) c->DeleteKeyByIndex(index);
}

void AnimationLayersControl::SelectKeyByIndex(int index, bool select) {
  Control* c = ActiveOf(this);
  if (c) c->SelectKeyByIndex(index, select);
}

bool AnimationLayersControl::IsKeySelected(int index) {
  Control* c = ActiveOf(this);
  return c && c->IsKeySelected(index);
}

int AnimationLayersControl::NumSelKeys() {
  Control* c = ActiveOf(this);
  return c ? c->NumSelKeys() : 0;
}

void AnimationLayersControl::MapKeys(TimeMap* map, DWORD flags) {
  Control* c = ActiveOf(this);
  if (c && !GetLocked()) c->MapKeys(map, flags);
}

Interval AnimationLayersControl::GetTimeRange(DWORD flags) {
  Control* c = ActiveOf(this);
  return c ? c->GetTimeRange(flags) : NEVER;
}

int AnimationLayersControl::GetKeyTimes(Tab<TimeValue>& times, Interval range, DWORD flags) {
  Control* c = ActiveOf(this);
  return c ? c->GetKeyTimes(times, range, flags) : 0;
}

bool AnimationLayersControl::IsAnimated() {
  Control* c = ActiveOf(this);
  return c && c->IsAnimated();
}

}  // namespace marvolith
