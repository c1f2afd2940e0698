// Copyright Marvolith contributors.
#include "host/scene/layer.h"

#include <algorithm>
#include <vector>

#include "host/core/diagnostics.h"
#include "host/registry/class_desc.h"
#include "host/scene/inode.h"
#include "host/scene/internal/node.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "support/hold_record.h"
#include "support/ref_slot_check.h"

namespace marvolith_scene {
namespace {

constexpr USHORT kLayerNameChunk = 0x0100;
constexpr USHORT kLayerFlagsChunk = 0x0110;
constexpr USHORT kManagerCountChunk = 0x0100;
constexpr USHORT kManagerCurrentChunk = 0x0110;
constexpr DWORD kLayerHidden = 1u << 0;
constexpr DWORD kLayerFrozen = 1u << 1;
// A file that claims more layers than this is damaged.
constexpr int kMaxLayers = 1 << 16;

class Layer;

ILayerManager* ManagerOf(ILayer* layer) {
  DependentIterator it(layer);
  while (ReferenceMaker* dep = it.Next()) {
    if (auto* mgr = dynamic_cast<ILayerManager*>(dep)) return mgr;
  }
  return nullptr;
}

struct LayerState {
  MSTR name;
  DWORD flags = 0;
};

// Undo of a layer's name and flags; one record per hold.
class LayerStateRestore : public RestoreObj {
 public:
  explicit LayerStateRestore(Layer* layer);
  void Restore(int is_undo) override;
  void Redo() override;
  void EndHold() override;
  MSTR Description() override { return "Layer"; }

 private:
  Layer* Find();
  AnimHandle handle_;
  LayerState before_;
  LayerState after_;
};

class Layer : public ILayer, public IRefSlotCheck {
 public:
  explicit Layer(const MSTR& name) { state_.name = name; }

  void GetClassName(MSTR& s, bool localized = true) const override { s = "Layer"; }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? parent_ : nullptr; }
  void* GetInterface(ULONG id) override {
    if (id == I_REFSLOTCHECK) return static_cast<IRefSlotCheck*>(this);
    return ILayer::GetInterface(id);
  }
  using ILayer::GetInterface;
  bool CanReferenceAt(int i, ReferenceTarget* target) override {
    return i == 0 && target != this && dynamic_cast<ILayer*>(target) != nullptr;
  }
  RefResult NotifyRefChanged(
      const Interval&, RefTargetHandle target, PartID& part_id, RefMessage message, bool) override {
    // A parent layer's display change reaches this layer's nodes and child layers.
    if (target == parent_ && message == REFMSG_CHANGE) {
      part_id = PART_DISPLAY;
      return REF_SUCCEED;
    }
    return REF_STOP;
  }

  MSTR GetName() override { return state_.name; }
  bool SetName(const MSTR& name) override {
    if (name.empty() || state_.name == kDefaultLayerName || name == state_.name) {
      return !name.empty() && name == state_.name;
    }
    ILayerManager* mgr = ManagerOf(this);
    if (mgr && mgr->GetLayer(name)) return false;
    LayerState s = state_;
    s.name = name;
    Change(s);
    return true;
  }
  bool AddToLayer(INode* node) override {
    if (!node || node->GetNodeLayer() == this) return false;
    return node->ReplaceReference(kLayerRef, this, false) == REF_SUCCEED;
  }
  void Nodes(Tab<INode*>& nodes) override {
    nodes.ZeroCount();
    DependentIterator it(this);
    while (ReferenceMaker* dep = it.Next()) {
      auto* node = dynamic_cast<INode*>(dep);
      if (node && node->GetNodeLayer() == this) nodes.Append(node);
    }
  }
  void Hide(bool on) override { SetFlag(kLayerHidden, on); }
  bool IsHidden(bool check_parents) override {
    return (state_.flags & kLayerHidden) || (check_parents && parent_ && parent_->IsHidden(true));
  }
  void Freeze(bool on) override { SetFlag(kLayerFrozen, on); }
  bool IsFrozen(bool check_parents) override {
    return (state_.flags & kLayerFrozen) || (check_parents && parent_ && parent_->IsFrozen(true));
  }
  ILayer* GetParentLayer() override { return parent_; }
  bool SetParentLayer(ILayer* parent) override {
    if (state_.name == kDefaultLayerName) return false;
    for (ILayer* a = parent; a; a = a->GetParentLayer()) {
      if (a == this) return false;
    }
    if (parent == parent_) return true;
    if (ReplaceReference(0, parent, false) != REF_SUCCEED) return false;
    NotifyDependents(FOREVER, PART_DISPLAY, REFMSG_CHANGE);
    return true;
  }
  int GetNumOfChildLayers() override { return static_cast<int>(ChildLayers().size()); }
  ILayer* GetChildLayer(int i) override {
    auto kids = ChildLayers();
    return i >= 0 && i < static_cast<int>(kids.size()) ? kids[static_cast<size_t>(i)] : nullptr;
  }

  IOResult Save(ISave* isave) override {
    isave->BeginChunk(kLayerNameChunk);
    isave->WriteWString(state_.name);
    isave->EndChunk();
    return SaveChunk(isave, kLayerFlagsChunk, state_.flags);
  }
  IOResult Load(ILoad* iload) override {
    return ForEachChunk(iload, [&](USHORT id) {
      if (id == kLayerNameChunk) return iload->ReadWStringChunk(state_.name);
      if (id == kLayerFlagsChunk) return LoadValue(iload, state_.flags);
      return IO_OK;
    });
  }

  const LayerState& State() const { return state_; }
  void Apply(const LayerState& s) {
    state_ = s;
    NotifyDependents(FOREVER, PART_DISPLAY, REFMSG_CHANGE);
  }

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i == 0) parent_ = dynamic_cast<ILayer*>(target);
  }

 private:
  std::vector<ILayer*> ChildLayers() {
    std::vector<ILayer*> kids;
    DependentIterator it(this);
    while (ReferenceMaker* dep = it.Next()) {
      auto* layer = dynamic_cast<ILayer*>(dep);
      if (layer && layer->GetParentLayer() == this) kids.push_back(layer);
    }
    return kids;
  }
  void SetFlag(DWORD bit, bool on) {
    if (((state_.flags & bit) != 0) == on) return;
    LayerState s = state_;
    s.flags = on ? (s.flags | bit) : (s.flags & ~bit);
    Change(s);
  }
  void Change(const LayerState& s) {
    if (HoldWantsRecord(this)) theHold.Put(new LayerStateRestore(this));
    Apply(s);
  }

  ILayer* parent_ = nullptr;
  LayerState state_;
};

LayerStateRestore::LayerStateRestore(Layer* layer)
    : handle_(Animatable::GetHandleByAnim(layer)), before_(layer->State()) {}
Layer* LayerStateRestore::Find() {
  return dynamic_cast<Layer*>(Animatable::FindAnimIncludingDeleted(handle_));
}
void LayerStateRestore::Restore(int is_undo) {
  Layer* layer = Find();
  if (!layer) return;
  if (is_undo) after_ = layer->State();
  layer->Apply(before_);
}
void LayerStateRestore::Redo() {
  if (Layer* layer = Find()) layer->Apply(after_);
}
void LayerStateRestore::EndHold() {
  if (Layer* layer = Find()) layer->ClearAFlag(A_HELD);
}

class LayerManager;

// Undo of which slot of the manager holds which layer; placed as AttribLayoutRestore is.
class LayerListRestore : public RestoreObj {
 public:
  explicit LayerListRestore(LayerManager* mgr);
  void Restore(int is_undo) override;
  void Redo() override;
  MSTR Description() override { return "Layers"; }

 private:
  LayerManager* Find();
  AnimHandle handle_;
  std::vector<ILayer*> before_;
  std::vector<ILayer*> after_;
};

class LayerManager : public ILayerManager, public IRefSlotCheck {
 public:
  void GetClassName(MSTR& s, bool localized = true) const override { s = "Layer Manager"; }
  int NumRefs() override { return static_cast<int>(layers_.size()); }
  RefTargetHandle GetReference(int i) override { return GetLayer(i); }
  void* GetInterface(ULONG id) override {
    if (id == I_REFSLOTCHECK) return static_cast<IRefSlotCheck*>(this);
    return ILayerManager::GetInterface(id);
  }
  using ILayerManager::GetInterface;
  bool CanReferenceAt(int i, ReferenceTarget* target) override {
    return i >= 0 && i < NumRefs() && dynamic_cast<ILayer*>(target) != nullptr;
  }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_STOP;
  }

  ILayer* CreateLayer(const MSTR& name) override {
    MSTR unique =
        MakeUniqueName(name, "Layer001", [this](const MSTR& n) { return GetLayer(n) != nullptr; });
    ILayer* layer = NewLayer(unique);
    Append(layer);
    return layer;
  }
  ILayer* GetLayer(const MSTR& name) override {
    for (ILayer* layer : layers_) {
      if (layer && layer->GetName() == name) return layer;
    }
    return nullptr;
  }
  int GetLayerCount() override { return static_cast<int>(layers_.size()); }
  ILayer* GetLayer(int i) override {
    return i >= 0 && i < GetLayerCount() ? layers_[static_cast<size_t>(i)] : nullptr;
  }
  bool DeleteLayer(const MSTR& name) override {
    ILayer* layer = GetLayer(name);
    if (!layer || name == kDefaultLayerName || layer->GetNumOfChildLayers() > 0) return false;
    Tab<INode*> nodes;
    layer->Nodes(nodes);
    if (nodes.Count() > 0) return false;
    const int i =
        static_cast<int>(std::find(layers_.begin(), layers_.end(), layer) - layers_.begin());
    if (GetCurrentLayer() == layer) current_ = 0;
    ReplaceReference(i, nullptr);
    PutLayout();
    layers_.erase(layers_.begin() + i);
    return true;
  }
  ILayer* GetCurrentLayer() override {
    ILayer* layer = GetLayer(current_);
    return layer ? layer : GetLayer(0);
  }
  bool SetCurrentLayer(const MSTR& name) override {
    ILayer* layer = GetLayer(name);
    if (!layer) return false;
    current_ = static_cast<int>(std::find(layers_.begin(), layers_.end(), layer) - layers_.begin());
    return true;
  }

  IOResult Save(ISave* isave) override {
    int count = GetLayerCount();
    if (SaveChunk(isave, kManagerCountChunk, count) != IO_OK) return IO_ERROR;
    return SaveChunk(isave, kManagerCurrentChunk, current_);
  }
  IOResult Load(ILoad* iload) override {
    const IOResult res = ForEachChunk(iload, [&](USHORT id) {
      if (id == kManagerCountChunk) {
        int count = 0;
        if (LoadValue(iload, count) != IO_OK || count < 1 || count > kMaxLayers || !layers_.empty())
          return IO_ERROR;
        layers_.assign(static_cast<size_t>(count), nullptr);
      } else if (id == kManagerCurrentChunk) {
        return LoadValue(iload, current_);
      }
      return IO_OK;
    });
    if (res == IO_OK && (current_ < 0 || current_ >= GetLayerCount())) current_ = 0;
    return res;
  }

  void Append(ILayer* layer) {
    PutLayout();
    layers_.push_back(nullptr);
    if (ReplaceReference(NumRefs() - 1, layer) != REF_SUCCEED) layers_.pop_back();
  }
  std::vector<ILayer*>& Layers() { return layers_; }

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i >= 0 && i < NumRefs()) layers_[static_cast<size_t>(i)] = dynamic_cast<ILayer*>(target);
  }

 private:
  void PutLayout() {
    if (theHold.Holding()) theHold.Put(new LayerListRestore(this));
  }
  std::vector<ILayer*> layers_;
  int current_ = 0;
};

LayerListRestore::LayerListRestore(LayerManager* mgr)
    : handle_(Animatable::GetHandleByAnim(mgr)), before_(mgr->Layers()) {}
LayerManager* LayerListRestore::Find() {
  return dynamic_cast<LayerManager*>(Animatable::FindAnimIncludingDeleted(handle_));
}
void LayerListRestore::Restore(int is_undo) {
  LayerManager* mgr = Find();
  if (!mgr) return;
  if (is_undo) after_ = mgr->Layers();
  mgr->Layers() = before_;
}
void LayerListRestore::Redo() {
  if (LayerManager* mgr = Find()) mgr->Layers() = after_;
}

class LayerClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool) override { return new Layer(MSTR()); }
  const char* ClassName() override { return "Layer"; }
  SClass_ID SuperClassID() override { return LAYER_CLASS_ID; }
  Class_ID ClassID() override { return LAYER_OBJECT_CLASS_ID; }
  const char* Category() override { return ""; }
};

class LayerManagerClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool loading) override { return NewLayerManager(loading); }
  const char* ClassName() override { return "Layer Manager"; }
  SClass_ID SuperClassID() override { return REF_TARGET_CLASS_ID; }
  Class_ID ClassID() override { return LAYER_MANAGER_CLASS_ID; }
  const char* Category() override { return ""; }
};

}  // namespace

ILayer* NewLayer(const MSTR& name) { return new Layer(name); }

ILayerManager* NewLayerManager(bool loading) {
  auto* mgr = new LayerManager;
  if (!loading) mgr->Append(NewLayer(kDefaultLayerName));
  return mgr;
}

ClassDesc2* GetLayerClassDesc() {
  static LayerClassDesc desc;
  return &desc;
}
ClassDesc2* GetLayerManagerClassDesc() {
  static LayerManagerClassDesc desc;
  return &desc;
}

}  // namespace marvolith_scene
