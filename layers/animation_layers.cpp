// Copyright Marvolith contributors.
#include "layers/animation_layers.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "host/controllers/controller_classes.h"
#include "host/core/clock.h"
#include "host/core/reference.h"
#include "host/params/param_block_desc2.h"
#include "host/scene/core_interface.h"
#include "plugin/class_table.h"
#include "plugin/strings.h"
#include "support/chunk_helpers.h"
#include "support/hold_record.h"

namespace marvolith {

namespace al = animation_layers;

namespace {

constexpr const char* kBaseLayerName = "Base Layer";
constexpr USHORT kWeightCountChunk = 1;

LayersUIUpdate g_ui_update = nullptr;

class AnimationLayersClassDesc : public MarvolithClassDesc {
 public:
  AnimationLayersClassDesc() : MarvolithClassDesc(ClassIndex::AnimationLayers) {}
  Animatable* Create(bool loading) override { return new AnimationLayers(loading); }
};

class LocalWeightsClassDesc : public MarvolithClassDesc {
 public:
  LocalWeightsClassDesc() : MarvolithClassDesc(ClassIndex::AnimLayersLocalWeights) {}
  Animatable* Create(bool loading) override { return new AnimLayersLocalWeights(loading); }
};

// The static tables, built at module load in this order: descriptors, then the block.
AnimationLayersClassDesc animation_layers_cd;
LocalWeightsClassDesc local_weights_cd;

ParamBlockDesc2 animation_layers_pb(
    al::kParamsBlock,
    "params",
    0,
    &animation_layers_cd,
    P_AUTO_CONSTRUCT,
    AnimationLayers::kParamsRef,
    {
        ParamDef(al::kNames, "names", TYPE_STRING_TAB, P_VARIABLE_SIZE).TabSize(0).Label("Names"),
        ParamDef(al::kTypes, "types", TYPE_INT_TAB, P_VARIABLE_SIZE).TabSize(0).Label("Types"),
        ParamDef(al::kIgnore, "ignore", TYPE_BOOL_TAB, P_VARIABLE_SIZE)
            .TabSize(0)
            .Default(false)
            .Label("Ignore"),
        ParamDef(al::kActiveLayer, "active_layer", TYPE_INDEX, 0)
            .Default(0)
            .Range(0, 2147483647)
            .Label("Active Layer"),
        ParamDef(al::kDisplayAllLayersKeysTracks, "display_all_layers_keys_tracks", TYPE_BOOL, 0)
            .Default(false)
            .Label("Display All Layers Keys Tracks"),
        ParamDef(al::kIgnoreAboveActive, "ignore_above_active", TYPE_BOOL, 0)
            .Default(true)
            .Label("Ignore Above Active"),
        ParamDef(al::kEulerBlending, "euler_blending", TYPE_BOOL, 0)
            .Default(false)
            .Label("Euler Blending"),
    });

// Undo record of a weight tab (references 1..n of owner), one per hold: the tab before the hold
// and, at the first undo, the tab after it. Both are kept as handles; putting one back relinks
// every slot, so that the dependents stay exact whatever the reference records of the hold did.
template <typename Owner>
class WeightTabRestore : public RestoreObj {
 public:
  WeightTabRestore(Owner* owner, const char* name)
      : handle_(Animatable::GetHandleByAnim(owner)), before_(Handles(owner)), name_(name) {}
  void Restore(int is_undo) override {
    Owner* owner = Get();
    if (!owner) return;
    if (is_undo) after_ = Handles(owner);
    Put(owner, before_);
  }
  void Redo() override {
    if (Owner* owner = Get()) Put(owner, after_);
  }
  void EndHold() override {
    if (Owner* owner = Get()) owner->ClearAFlag(A_HELD);
  }
  MSTR Description() override { return name_; }

 private:
  static std::vector<AnimHandle> Handles(Owner* owner) {
    Tab<Control*>& tab = owner->WeightTab();
    std::vector<AnimHandle> handles(static_cast<size_t>(tab.Count()), 0);
    for (int i = 0; i < tab.Count(); ++i) {
      if (tab[i]) handles[static_cast<size_t>(i)] = Animatable::GetHandleByAnim(tab[i]);
    }
    return handles;
  }
  static void Put(Owner* owner, const std::vector<AnimHandle>& handles) {
    for (int i = 1; i < owner->NumRefs(); ++i) {
      if (owner->GetReference(i)) RefAccess::Relink(owner, i, nullptr);
    }
    Tab<Control*>& tab = owner->WeightTab();
    tab.SetCount(static_cast<int>(handles.size()));
    for (int i = 0; i < tab.Count(); ++i) tab[i] = nullptr;
    for (int i = 0; i < tab.Count(); ++i) {
      const AnimHandle h = handles[static_cast<size_t>(i)];
      auto* target =
          h ? dynamic_cast<ReferenceTarget*>(Animatable::FindAnimIncludingDeleted(h)) : nullptr;
      if (target) RefAccess::Relink(owner, i + 1, target);
    }
    owner->TabRestored();
  }
  Owner* Get() { return dynamic_cast<Owner*>(Animatable::GetAnimByHandle(handle_)); }

  AnimHandle handle_;
  std::vector<AnimHandle> before_;
  std::vector<AnimHandle> after_;
  const char* name_;
};

// Parts of the structural operations, defined with them below.
std::string NextLayerName(IParamBlock2* pb);
void InsertLayerEntries(AnimationLayers* layers, int type, const std::string& name, int index);
void SwapLayers(AnimationLayers* layers, int a, int b);
void SetBoolParam(IParamBlock2* pb, ParamID id, bool on);

using AnimationLayersRestore = WeightTabRestore<AnimationLayers>;
using AnimLayersLocalWeightsRestore = WeightTabRestore<AnimLayersLocalWeights>;

bool IsFloatController(Animatable* anim) {
  return anim && anim->SuperClassID() == CTRL_FLOAT_CLASS_ID && dynamic_cast<Control*>(anim);
}

void NotifyStructure(ReferenceTarget* target, PartID part = PART_ALL) {
  target->NotifyDependents(FOREVER, part, REFMSG_CHANGE);
  target->NotifyDependents(FOREVER, part, REFMSG_SUBANIM_STRUCTURE_CHANGED);
}

// One complete undo step named as every layer change is; nests inside a caller's hold.
template <typename F>
void LayersStep(F&& edit) {
  theHold.Begin();
  edit();
  theHold.Accept(kLayersHoldName);
}

// A structural change, bracketed by the UI markers so that undo and redo refresh the layer list
// once, at their end.
template <typename F>
void StructuralStep(F&& edit) {
  theHold.Begin();
  theHold.Put(new AnimationLayersUIRestore(true, false));
  edit();
  UpdateLayersUI(false);
  theHold.Put(new AnimationLayersUIRestore(false, false));
  theHold.Accept(kLayersHoldName);
}

// Runs edit with the block's change messages off; a failure inside still turns them back on so
// that the closing steps of the change run.
template <typename F>
void WithBlockQuiet(IParamBlock2* pb, F&& edit) {
  pb->EnableNotifications(false);
  try {
    edit();
  } catch (...) {
    // The change stops where it failed; the stack stays consistent through SyncTabs.
  }
  pb->EnableNotifications(true);
}

void RedrawNow() {
  Interface* ip = GetCOREInterface();
  ip->RedrawViews(ip->GetTime());
}

// Brings the weight tab of owner (references 1..n) to count entries. Surplus references are
// cleared before the tab shrinks, while their slots still exist; new entries get a weight of 1.
template <typename Owner>
void ResizeWeightTab(Owner* owner, int count) {
  Tab<Control*>& tab = owner->WeightTab();
  const int old = tab.Count();
  if (old == count) return;
  for (int i = count; i < old; ++i) {
    if (tab[i]) owner->ReplaceReference(i + 1, nullptr);
  }
  owner->HoldWeights();
  tab.SetCount(count);
  for (int i = old; i < count; ++i) {
    tab[i] = nullptr;
    owner->ReplaceReference(i + 1, NewWeightController(1.0f));
  }
}

template <typename Owner>
void InsertWeight(Owner* owner, int index) {
  Tab<Control*>& tab = owner->WeightTab();
  index = std::clamp(index, 0, tab.Count());
  owner->HoldWeights();
  Control* none = nullptr;
  tab.Insert(index, 1, &none);
  owner->ReplaceReference(index + 1, NewWeightController(1.0f));
}

template <typename Owner>
void DeleteWeight(Owner* owner, int index) {
  Tab<Control*>& tab = owner->WeightTab();
  if (index < 0 || index >= tab.Count()) return;
  owner->ReplaceReference(index + 1, nullptr);
  owner->HoldWeights();
  tab.Delete(index, 1);
}

template <typename Owner>
void SwapWeights(Owner* owner, int a, int b) {
  Tab<Control*>& tab = owner->WeightTab();
  if (a < 0 || b < 0 || a >= tab.Count() || b >= tab.Count() || a == b) return;
  owner->HoldWeights();
  std::swap(tab[a], tab[b]);
}

template <typename Owner>
void ResetWeights(Owner* owner) {
  ResizeWeightTab(owner, 0);
  ResizeWeightTab(owner, 1);
}

float WeightValue(Control* c, TimeValue t, Interval& valid) {
  if (!c) return 0.0f;
  float v = 0.0f;
  c->GetValue(t, &v, valid, CTRL_ABSOLUTE);
  return v;
}

// A held absolute SetValue of a weight, nothing when the value is already there.
void SetWeightValue(Control* c, float weight, TimeValue t) {
  if (!c || !std::isfinite(weight)) return;
  Interval valid = FOREVER;
  if (WeightValue(c, t, valid) == weight) return;
  LayersStep([&] { c->SetValue(t, &weight, 1, CTRL_ABSOLUTE); });
}

template <typename Owner>
bool ReplaceWeight(Owner* owner, int index, Control* control) {
  Tab<Control*>& tab = owner->WeightTab();
  if (index < 0 || index >= tab.Count() || !IsFloatController(control)) return false;
  if (tab[index] == control) return true;
  if (owner->ReplaceReference(index + 1, control) != REF_SUCCEED) return false;
  NotifyStructure(owner, 0);
  return true;
}

// The weight tab's part of Clone: the tab sized like the original's, each weight cloned through
// remap into the same slot (references 1..n in both classes).
template <typename Owner>
void CloneWeightsInto(Owner* from, Owner* to, RemapDir& remap) {
  Tab<Control*>& src = from->WeightTab();
  to->WeightTab().SetCount(src.Count());
  for (int i = 0; i < src.Count(); ++i) {
    to->WeightTab()[i] = nullptr;
    if (src[i]) to->ReplaceReference(i + 1, remap.CloneRef(src[i]));
  }
}

// Chunk 1 of both classes: the weight count, so that the references can be restored into it.
template <typename Owner>
IOResult LoadWeightCount(Owner* owner, ILoad* iload) {
  return ForEachChunk(iload, [&](USHORT id) {
    if (id != kWeightCountChunk) return IO_OK;
    std::int32_t count = 0;
    const IOResult r = LoadValue(iload, count);
    if (r != IO_OK) return r;
    if (count < 0) return IO_ERROR;
    owner->WeightTab().SetCount(count);
    for (int i = 0; i < count; ++i) owner->WeightTab()[i] = nullptr;
    return IO_OK;
  });
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Hooks and helpers.

void SetLayersUIUpdate(LayersUIUpdate update) { g_ui_update = update; }

void UpdateLayersUI(bool refresh) {
  if (g_ui_update) g_ui_update(refresh);
}

Control* NewWeightController(float value) {
  Control* c = NewDefaultFloatController();
  if (!c) return nullptr;
  AnimateSuspend no_keys;
  c->SetValue(0, &value, 1, CTRL_ABSOLUTE);
  return c;
}

AnimationLayers* AsAnimationLayers(Animatable* anim) {
  if (!anim || anim->ClassID() != al::kClassID || anim->SuperClassID() != REF_TARGET_CLASS_ID)
    return nullptr;
  return dynamic_cast<AnimationLayers*>(anim);
}

AnimLayersLocalWeights* AsLocalWeights(Animatable* anim) {
  if (!anim || anim->ClassID() != kAnimLayersLocalWeightsClassID ||
      anim->SuperClassID() != REF_TARGET_CLASS_ID)
    return nullptr;
  return dynamic_cast<AnimLayersLocalWeights*>(anim);
}

ClassDesc2* GetAnimationLayersDesc() { return &animation_layers_cd; }
ClassDesc2* GetAnimLayersLocalWeightsDesc() { return &local_weights_cd; }

void AnimationLayersUIRestore::Restore(int) {
  // The opening marker is the last record undone.
  if (before_) UpdateLayersUI(refresh_);
}

void AnimationLayersUIRestore::Redo() {
  // The closing marker is the last record redone.
  if (!before_) UpdateLayersUI(refresh_);
}

// ---------------------------------------------------------------------------------------------
// AnimationLayers: identity and references.

AnimationLayers::AnimationLayers(bool loading) {
  if (loading) return;
  HoldSuspend no_undo;
  animation_layers_cd.MakeAutoParamBlocks(this);
  if (!pblock_) return;
  InsertLayerEntries(this, 1, kBaseLayerName, 0);
  // New stacks blend rotations as Euler angles; the block default stays false for old scenes.
  pblock_->SetValue(al::kEulerBlending, 0, true);
}

AnimationLayers::~AnimationLayers() = default;

void AnimationLayers::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(ClassIndex::AnimationLayers);
}

int AnimationLayers::NumRefs() { return weights_.Count() + 1; }

RefTargetHandle AnimationLayers::GetReference(int i) {
  if (i == kParamsRef) return pblock_;
  return i >= 1 && i <= weights_.Count() ? weights_[i - 1] : nullptr;
}

void AnimationLayers::SetReference(int i, RefTargetHandle target) {
  if (i == kParamsRef) {
    pblock_ = dynamic_cast<IParamBlock2*>(target);
  } else if (i >= 1 && i <= weights_.Count()) {
    weights_[i - 1] = dynamic_cast<Control*>(target);
  }
}

IParamBlock2* AnimationLayers::GetParamBlockByID(BlockID id) {
  return id == al::kParamsBlock ? pblock_ : nullptr;
}

int AnimationLayers::NumSubs() { return GetLayerCount(); }

Animatable* AnimationLayers::SubAnim(int i) {
  if (i < 0 || i >= weights_.Count()) return nullptr;
  return GetDisplayAllLayersKeysTracks() || i == GetActiveLayer() ? weights_[i] : nullptr;
}

MSTR AnimationLayers::SubAnimName(int i, bool) { return GetLayerName(i); }

int AnimationLayers::SubNumToRefNum(int sub_num) {
  return sub_num >= 0 && sub_num < GetLayerCount() ? sub_num + 1 : -1;
}

bool AnimationLayers::AssignController(Animatable* control, int sub_anim) {
  return ReplaceWeight(this, sub_anim, dynamic_cast<Control*>(control));
}

RefResult AnimationLayers::NotifyRefChanged(
    const Interval&, RefTargetHandle target, PartID& part_id, RefMessage message, bool) {
  if (!pblock_ || target != pblock_) return REF_SUCCEED;
  if (message == REFMSG_KEYABLE_QUERY) {
    *reinterpret_cast<int*>(part_id) = 1;
    return REF_STOP;
  }
  if (message != REFMSG_CHANGE) return REF_SUCCEED;
  switch (pblock_->LastNotifyParamID()) {
    case al::kActiveLayer:
      UpdateLayersUI(false);
      NotifyDependents(FOREVER, PART_LAYER_CHANGE, REFMSG_SUBANIM_STRUCTURE_CHANGED);
      break;
    case al::kDisplayAllLayersKeysTracks:
      NotifyDependents(FOREVER, PART_LAYER_CHANGE, REFMSG_SUBANIM_STRUCTURE_CHANGED);
      break;
    case al::kNames:
    case al::kTypes:
    case al::kIgnore:
      UpdateLayersUI(false);
      break;
    default:
      break;
  }
  return REF_SUCCEED;
}

RefTargetHandle AnimationLayers::Clone(RemapDir& remap) {
  auto* c = new AnimationLayers(true);
  c->ReplaceReference(kParamsRef, remap.CloneRef(pblock_));
  CloneWeightsInto(this, c, remap);
  BaseClone(this, c, remap);
  return c;
}

IOResult AnimationLayers::Save(ISave* isave) {
  return SaveChunk(isave, kWeightCountChunk, static_cast<std::int32_t>(weights_.Count()));
}

IOResult AnimationLayers::Load(ILoad* iload) { return LoadWeightCount(this, iload); }

// ---------------------------------------------------------------------------------------------
// AnimationLayers: accessors.

int AnimationLayers::GetLayerCount() { return pblock_ ? pblock_->Count(al::kTypes) : 0; }

int AnimationLayers::GetEffectiveLayerCount() {
  const int count = GetLayerCount();
  if (!GetIgnoreAboveActive()) return count;
  const int active = GetActiveLayer();
  return active < 0 ? 0 : std::min(active + 1, count);
}

int AnimationLayers::GetLayerType(int index) {
  if (!pblock_ || index <= 0 || index >= pblock_->Count(al::kTypes)) return 1;
  return pblock_->GetInt(al::kTypes, 0, index);
}

bool AnimationLayers::GetLayerIgnore(int index) {
  if (!pblock_ || index <= 0 || index >= pblock_->Count(al::kIgnore)) return false;
  return pblock_->GetInt(al::kIgnore, 0, index) != 0;
}

std::string AnimationLayers::GetLayerName(int index) {
  if (!pblock_ || index < 0 || index >= pblock_->Count(al::kNames)) return std::string();
  const char* name = pblock_->GetStr(al::kNames, 0, index);
  return name ? std::string(name) : std::string();
}

int AnimationLayers::GetActiveLayer() {
  const int count = GetLayerCount();
  if (!pblock_ || count == 0) return 0;
  return std::clamp(pblock_->GetInt(al::kActiveLayer), 0, count - 1);
}

bool AnimationLayers::GetDisplayAllLayersKeysTracks() {
  return pblock_ && pblock_->GetInt(al::kDisplayAllLayersKeysTracks) != 0;
}

bool AnimationLayers::GetIgnoreAboveActive() {
  return pblock_ && pblock_->GetInt(al::kIgnoreAboveActive) != 0;
}

bool AnimationLayers::GetEulerBlending() {
  return pblock_ && pblock_->GetInt(al::kEulerBlending) != 0;
}

Control* AnimationLayers::GetWeightControl(int index) {
  return index >= 0 && index < weights_.Count() ? weights_[index] : nullptr;
}

float AnimationLayers::GetWeight(int index, TimeValue t, Interval& valid) {
  return WeightValue(GetWeightControl(index), t, valid);
}

// ---------------------------------------------------------------------------------------------
// AnimationLayers: structure.

namespace {

std::string NextLayerName(IParamBlock2* pb) {
  const char* text = GetString(IDS_ANIM_LAYER);
  const std::string stem = text ? text : "Anim Layer";
  int highest = 0;
  for (int i = 0, n = pb ? pb->Count(al::kNames) : 0; i < n; ++i) {
    const char* name = pb->GetStr(al::kNames, 0, i);
    if (!name || std::strncmp(name, stem.c_str(), stem.size()) != 0) continue;
    int number = 0;
    if (std::sscanf(name + stem.size(), " %d", &number) == 1) highest = std::max(highest, number);
  }
  char buffer[256];
  std::snprintf(buffer, sizeof(buffer), "%s %02d", stem.c_str(), highest + 1);
  return buffer;
}

void InsertLayerEntries(AnimationLayers* layers, int type, const std::string& name, int index) {
  IParamBlock2* pb = layers->GetParamBlock(0);
  layers->SyncTabs();
  pb->Insert(al::kTypes, index, 1, static_cast<const int*>(nullptr));
  pb->SetValue(al::kTypes, 0, type, index);
  pb->Insert(al::kIgnore, index, 1, static_cast<const int*>(nullptr));
  pb->Insert(al::kNames, index, 1, static_cast<const int*>(nullptr));
  pb->SetValue(al::kNames, 0, name.c_str(), index);
  InsertWeight(layers, index);
  pb->SetValue(al::kActiveLayer, 0, index);
}

// Swaps the entries of layers a and b in every tab; the active layer moves with its layer.
void SwapLayers(AnimationLayers* layers, int a, int b) {
  IParamBlock2* pb = layers->GetParamBlock(0);
  layers->SyncTabs();
  const std::string name_a = layers->GetLayerName(a);
  const std::string name_b = layers->GetLayerName(b);
  pb->SetValue(al::kNames, 0, name_b.c_str(), a);
  pb->SetValue(al::kNames, 0, name_a.c_str(), b);
  for (ParamID id : {al::kTypes, al::kIgnore}) {
    const int value_a = pb->GetInt(id, 0, a);
    pb->SetValue(id, 0, pb->GetInt(id, 0, b), a);
    pb->SetValue(id, 0, value_a, b);
  }
  SwapWeights(layers, a, b);
  const int active = layers->GetActiveLayer();
  if (active == a) {
    pb->SetValue(al::kActiveLayer, 0, b);
  } else if (active == b) {
    pb->SetValue(al::kActiveLayer, 0, a);
  }
}

void SetBoolParam(IParamBlock2* pb, ParamID id, bool on) {
  if (!pb || (pb->GetInt(id) != 0) == on) return;
  LayersStep([&] { pb->SetValue(id, 0, on); });
}

}  // namespace

void AnimationLayers::AddLayer(int type, const std::string& name, int index) {
  if (!pblock_ || (type != 0 && type != 1)) return;
  const std::string layer_name = name.empty() ? NextLayerName(pblock_) : name;
  StructuralStep([&] {
    const int count = GetLayerCount();
    if (index < 0) index = GetActiveLayer() + 1;
    index = std::clamp(index, 0, count);
    WithBlockQuiet(pblock_, [&] { InsertLayerEntries(this, type, layer_name, index); });
    NotifyDependents(FOREVER, static_cast<PartID>(index),
                     type == 0 ? kLayerAddedAdjustmentMsg : kLayerAddedOverrideMsg);
    NotifyStructure(this);
  });
}

void AnimationLayers::RemoveLayer(int index) {
  if (!pblock_ || index < 1 || index >= GetLayerCount()) return;
  StructuralStep([&] {
    WithBlockQuiet(pblock_, [&] {
      SyncTabs();
      const int active = GetActiveLayer();
      pblock_->Delete(al::kNames, index, 1);
      pblock_->Delete(al::kTypes, index, 1);
      pblock_->Delete(al::kIgnore, index, 1);
      pblock_->SetValue(al::kActiveLayer, 0, active >= index ? active - 1 : active);
      DeleteWeight(this, index);
    });
    NotifyDependents(FOREVER, static_cast<PartID>(index), kLayerRemovedMsg);
    NotifyStructure(this);
  });
  RedrawNow();
}

void AnimationLayers::MoveLayerUp(int index) {
  if (!pblock_ || index < 2 || index >= GetLayerCount()) return;
  StructuralStep([&] {
    // The controllers swap first, while the stack still has the old order.
    NotifyDependents(FOREVER, static_cast<PartID>(index), kLayerMovedUpMsg);
    WithBlockQuiet(pblock_, [&] { SwapLayers(this, index, index - 1); });
    NotifyStructure(this);
  });
}

void AnimationLayers::MoveLayerDown(int index) {
  if (!pblock_ || index < 1 || index >= GetLayerCount() - 1) return;
  StructuralStep([&] {
    NotifyDependents(FOREVER, static_cast<PartID>(index), kLayerMovedDownMsg);
    WithBlockQuiet(pblock_, [&] { SwapLayers(this, index, index + 1); });
    NotifyStructure(this);
  });
}

void AnimationLayers::CollapseLayers() {
  if (!pblock_) return;
  theHold.Begin();
  // The controllers bake while the layers and weights still exist; then the local weights reset.
  NotifyDependents(FOREVER, 0, kLayersCollapseMsg);
  NotifyDependents(FOREVER, 0, kLayersResetMsg);
  theHold.Put(new AnimationLayersUIRestore(true, false));
  WithBlockQuiet(pblock_, [&] {
    pblock_->ZeroCount(al::kNames);
    pblock_->ZeroCount(al::kTypes);
    pblock_->ZeroCount(al::kIgnore);
    ResizeWeightTab(this, 0);
    pblock_->SetCount(al::kTypes, 1);
    pblock_->SetValue(al::kTypes, 0, 1, 0);
    pblock_->SetCount(al::kIgnore, 1);
    pblock_->SetValue(al::kIgnore, 0, false, 0);
    pblock_->SetCount(al::kNames, 1);
    pblock_->SetValue(al::kNames, 0, kBaseLayerName, 0);
    ResizeWeightTab(this, 1);
    pblock_->SetValue(al::kActiveLayer, 0, 0);
  });
  NotifyStructure(this);
  UpdateLayersUI(false);
  theHold.Put(new AnimationLayersUIRestore(false, false));
  theHold.Accept(kLayersHoldName);
  RedrawNow();
}

void AnimationLayers::SyncTabs() {
  if (!pblock_) return;
  const int count = pblock_->Count(al::kTypes);
  if (pblock_->Count(al::kNames) != count) pblock_->SetCount(al::kNames, count);
  if (pblock_->Count(al::kIgnore) != count) pblock_->SetCount(al::kIgnore, count);
  ResizeWeightTab(this, count);
}

// ---------------------------------------------------------------------------------------------
// AnimationLayers: attribute setters.

void AnimationLayers::SetLayerName(int index, const std::string& name) {
  if (!pblock_ || index < 0 || index >= pblock_->Count(al::kNames)) return;
  if (GetLayerName(index) == name) return;
  LayersStep([&] { pblock_->SetValue(al::kNames, 0, name.c_str(), index); });
}

void AnimationLayers::SetLayerType(int index, int type) {
  // The base layer is always an Override layer: its entry is not written.
  if (!pblock_ || index < 1 || index >= pblock_->Count(al::kTypes)) return;
  if ((type != 0 && type != 1) || GetLayerType(index) == type) return;
  LayersStep([&] { pblock_->SetValue(al::kTypes, 0, type, index); });
}

void AnimationLayers::SetLayerIgnore(int index, bool ignore) {
  // The base layer cannot be ignored.
  if (!pblock_ || index < 1 || index >= pblock_->Count(al::kIgnore)) return;
  if (GetLayerIgnore(index) == ignore) return;
  LayersStep([&] { pblock_->SetValue(al::kIgnore, 0, ignore, index); });
}

void AnimationLayers::SetActiveLayer(int index) {
  if (!pblock_ || index < 0 || index >= GetLayerCount() || index == GetActiveLayer()) return;
  LayersStep([&] { pblock_->SetValue(al::kActiveLayer, 0, index); });
}

void AnimationLayers::SetDisplayAllLayersKeysTracks(bool on) {
  SetBoolParam(pblock_, al::kDisplayAllLayersKeysTracks, on);
}

void AnimationLayers::SetIgnoreAboveActive(bool on) {
  SetBoolParam(pblock_, al::kIgnoreAboveActive, on);
}

void AnimationLayers::SetEulerBlending(bool on) { SetBoolParam(pblock_, al::kEulerBlending, on); }

void AnimationLayers::SetWeight(int index, float weight, TimeValue t) {
  SetWeightValue(GetWeightControl(index), weight, t);
}

void AnimationLayers::SetWeightControl(int index, Control* control) {
  if (GetWeightControl(index) == control || !IsFloatController(control)) return;
  LayersStep([&] { ReplaceWeight(this, index, control); });
}

void AnimationLayers::HoldWeights() {
  if (HoldWantsRecord(this))
    theHold.Put(new AnimationLayersRestore(this, "Layers Weight Controls"));
}

void AnimationLayers::TabRestored() { NotifyStructure(this); }

// ---------------------------------------------------------------------------------------------
// AnimLayersLocalWeights.

AnimLayersLocalWeights::AnimLayersLocalWeights(bool) {}

AnimLayersLocalWeights::~AnimLayersLocalWeights() = default;

void AnimLayersLocalWeights::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(ClassIndex::AnimLayersLocalWeights);
}

int AnimLayersLocalWeights::NumRefs() { return weights_.Count() + 1; }

RefTargetHandle AnimLayersLocalWeights::GetReference(int i) {
  if (i == kLayersRef) return layers_;
  return i >= 1 && i <= weights_.Count() ? weights_[i - 1] : nullptr;
}

void AnimLayersLocalWeights::SetReference(int i, RefTargetHandle target) {
  if (i == kLayersRef) {
    layers_ = AsAnimationLayers(target);
  } else if (i >= 1 && i <= weights_.Count()) {
    weights_[i - 1] = dynamic_cast<Control*>(target);
  }
}

int AnimLayersLocalWeights::NumSubs() { return layers_ ? layers_->GetLayerCount() : 0; }

Animatable* AnimLayersLocalWeights::SubAnim(int i) {
  if (!layers_ || i < 0 || i >= weights_.Count()) return nullptr;
  return layers_->GetDisplayAllLayersKeysTracks() || i == layers_->GetActiveLayer() ? weights_[i]
                                                                                    : nullptr;
}

MSTR AnimLayersLocalWeights::SubAnimName(int i, bool) {
  return layers_ ? layers_->GetLayerName(i) : MSTR();
}

int AnimLayersLocalWeights::SubNumToRefNum(int sub_num) {
  return sub_num >= 0 && sub_num < NumSubs() ? sub_num + 1 : -1;
}

bool AnimLayersLocalWeights::AssignController(Animatable* control, int sub_anim) {
  return ReplaceWeight(this, sub_anim, dynamic_cast<Control*>(control));
}

RefResult AnimLayersLocalWeights::NotifyRefChanged(
    const Interval&, RefTargetHandle target, PartID& part_id, RefMessage message, bool) {
  if (!layers_ || target != layers_) {
    if (message == REFMSG_CHANGE) UpdateLayersUI(false);
    return REF_SUCCEED;
  }
  const int index = static_cast<int>(part_id);
  switch (message) {
    case kLayerAddedAdjustmentMsg:
    case kLayerAddedOverrideMsg:
      InsertWeight(this, index);
      return REF_STOP;
    case kLayerRemovedMsg:
      DeleteWeight(this, index);
      SyncWeights();
      return REF_STOP;
    case kLayersCollapseMsg:
      return REF_STOP;
    case kLayerMovedUpMsg:
      SwapWeights(this, index, index - 1);
      return REF_STOP;
    case kLayerMovedDownMsg:
      SwapWeights(this, index, index + 1);
      return REF_STOP;
    case kLayersResetMsg:
      ResetWeights(this);
      return REF_STOP;
    default:
      return REF_SUCCEED;
  }
}

RefTargetHandle AnimLayersLocalWeights::Clone(RemapDir& remap) {
  auto* c = new AnimLayersLocalWeights(true);
  c->ReplaceReference(kLayersRef, remap.CloneRef(layers_));
  CloneWeightsInto(this, c, remap);
  BaseClone(this, c, remap);
  return c;
}

IOResult AnimLayersLocalWeights::Save(ISave* isave) {
  return SaveChunk(isave, kWeightCountChunk, static_cast<std::int32_t>(weights_.Count()));
}

IOResult AnimLayersLocalWeights::Load(ILoad* iload) { return LoadWeightCount(this, iload); }

void AnimLayersLocalWeights::SyncWeights() {
  if (layers_) ResizeWeightTab(this, layers_->GetLayerCount());
}

Control* AnimLayersLocalWeights::GetWeightControl(int index) {
  return index >= 0 && index < weights_.Count() ? weights_[index] : nullptr;
}

float AnimLayersLocalWeights::GetWeight(int index, TimeValue t, Interval& valid) {
  return WeightValue(GetWeightControl(index), t, valid);
}

void AnimLayersLocalWeights::SetWeight(int index, float weight, TimeValue t) {
  SetWeightValue(GetWeightControl(index), weight, t);
}

void AnimLayersLocalWeights::SetWeightControl(int index, Control* control) {
  if (GetWeightControl(index) == control || !IsFloatController(control)) return;
  LayersStep([&] { ReplaceWeight(this, index, control); });
}

void AnimLayersLocalWeights::HoldWeights() {
  if (HoldWantsRecord(this))
    theHold.Put(new AnimLayersLocalWeightsRestore(this, "Layers Local Weight Controls"));
}

void AnimLayersLocalWeights::TabRestored() { NotifyStructure(this); }

}  // namespace marvolith
