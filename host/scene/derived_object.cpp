// Copyright Marvolith contributors.
// The derived object: a base object and a modifier stack, evaluated bottom up.
#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "host/core/diagnostics.h"
#include "host/registry/class_desc.h"
#include "host/scene/inode.h"
#include "host/scene/object.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "support/ref_slot_check.h"

namespace {

constexpr USHORT kModCountChunk = 0x0100;
constexpr USHORT kModContextChunk = 0x0110;  // one per modifier, top first
constexpr USHORT kModContextTMChunk = 0x0111;
constexpr USHORT kModContextBoxChunk = 0x0112;
// A file that claims more modifiers than this is damaged.
constexpr int kMaxModifiers = 4096;

class DerivedObject;

// Undo of the layout of the stack (which slot holds what, and the contexts). The reference
// records of the same change put the modifiers themselves back, so a layout record is put where
// undo needs the slot empty: before a slot is inserted, and after a slot is emptied and before it
// is removed.
class StackLayoutRestore : public RestoreObj {
 public:
  explicit StackLayoutRestore(DerivedObject* dob);
  void Restore(int is_undo) override;
  void Redo() override;
  MSTR Description() override { return "Modifier stack"; }

 private:
  struct Layout {
    std::vector<Modifier*> mods;
    std::vector<std::shared_ptr<ModContext>> contexts;
  };
  void Apply(const Layout& layout);
  AnimHandle handle_;
  Layout before_;
  Layout after_;
};

class DerivedObject : public IDerivedObject, public IRefSlotCheck {
 public:
  DerivedObject() = default;
  ~DerivedObject() override { FreeTemps(); }

  void GetClassName(MSTR& s, bool localized = true) const override { s = "Derived Object"; }
  int NumRefs() override { return 1 + static_cast<int>(mods_.size()); }
  RefTargetHandle GetReference(int i) override {
    if (i == 0) return base_;
    return i > 0 && i < NumRefs() ? mods_[static_cast<size_t>(i - 1)] : nullptr;
  }
  int NumSubs() override { return NumRefs(); }
  Animatable* SubAnim(int i) override { return GetReference(i); }
  MSTR SubAnimName(int i, bool localized = true) override {
    if (i == 0) return "Object";
    Modifier* mod = GetModifier(i - 1);
    return mod ? mod->GetName(localized) : MSTR();
  }
  int SubNumToRefNum(int sub_num) override {
    return sub_num >= 0 && sub_num < NumRefs() ? sub_num : -1;
  }

  void* GetInterface(ULONG id) override {
    if (id == I_REFSLOTCHECK) return static_cast<IRefSlotCheck*>(this);
    return IDerivedObject::GetInterface(id);
  }
  using IDerivedObject::GetInterface;
  bool CanReferenceAt(int i, ReferenceTarget* target) override {
    if (i == 0) return dynamic_cast<Object*>(target) != nullptr;
    return i > 0 && i < NumRefs() && dynamic_cast<Modifier*>(target) != nullptr;
  }

  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool) override {
    if (message != REFMSG_CHANGE) return REF_SUCCEED;
    valid_.SetEmpty();
    // Modifiers above the part that changed hear that their input changed.
    int from = static_cast<int>(mods_.size());
    if (target != base_) {
      auto it = std::find(mods_.begin(), mods_.end(), target);
      from = it == mods_.end() ? 0 : static_cast<int>(it - mods_.begin());
    }
    for (int i = from - 1; i >= 0; --i) {
      if (mods_[static_cast<size_t>(i)])
        mods_[static_cast<size_t>(i)]->NotifyInputChanged(change_int, part_id, message,
                                                          contexts_[static_cast<size_t>(i)].get());
    }
    return REF_SUCCEED;
  }

  Interval ObjectValidity(TimeValue t) override {
    return base_ ? base_->ObjectValidity(t) : FOREVER;
  }
  ObjectState Eval(TimeValue t) override { return EvalStack(t, nullptr, 0); }
  Object* FindBaseObject() override { return base_ ? base_->FindBaseObject() : nullptr; }
  bool IsShapeObject() override { return base_ && base_->IsShapeObject(); }
  void GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override {
    ObjectState os = EvalStack(t, inode, 0);
    if (os.obj && os.obj != this) {
      os.obj->GetLocalBoundBox(t, inode, vpt, box);
    } else {
      box.Init();
    }
  }
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override {
    ObjectState os = EvalStack(t, inode, 0);
    return os.obj && os.obj != this ? os.obj->Display(t, inode, vpt, flags) : 0;
  }

  void AddModifier(Modifier* mod, ModContext* mc, int before) override {
    std::shared_ptr<ModContext> context(mc ? mc : new ModContext);
    if (!mod || std::find(mods_.begin(), mods_.end(), mod) != mods_.end()) return;
    const int at = std::clamp(before, 0, NumModifiers());
    PutLayout();
    mods_.insert(mods_.begin() + at, nullptr);
    contexts_.insert(contexts_.begin() + at, std::move(context));
    if (ReplaceReference(1 + at, mod) != REF_SUCCEED) {
      mods_.erase(mods_.begin() + at);
      contexts_.erase(contexts_.begin() + at);
      return;
    }
    StackChanged();
  }

  void DeleteModifier(int index) override {
    if (index < 0 || index >= NumModifiers()) return;
    // Slot first, then layout: undo restores the layout (an empty slot) before the reference.
    ReplaceReference(1 + index, nullptr);
    PutLayout();
    mods_.erase(mods_.begin() + index);
    contexts_.erase(contexts_.begin() + index);
    PutLayout();
    StackChanged();
  }

  int NumModifiers() override { return static_cast<int>(mods_.size()); }
  Modifier* GetModifier(int index) override {
    return index >= 0 && index < NumModifiers() ? mods_[static_cast<size_t>(index)] : nullptr;
  }
  void SetModifier(int index, Modifier* mod) override {
    if (!mod || index < 0 || index >= NumModifiers()) return;
    if (ReplaceReference(1 + index, mod) == REF_SUCCEED) StackChanged();
  }
  ModContext* GetModContext(int index) override {
    return index >= 0 && index < NumModifiers() ? contexts_[static_cast<size_t>(index)].get()
                                                : nullptr;
  }
  Object* GetObjRef() override { return base_; }
  RefResult ReferenceObject(Object* pob) override {
    RefResult r = ReplaceReference(0, pob);
    if (r == REF_SUCCEED) StackChanged();
    return r;
  }

  ObjectState EvalStack(TimeValue t, INode* node, int last_index) override {
    FreeTemps();
    if (!base_) return ObjectState();
    ObjectState os = base_->Eval(t);
    os.NarrowObValid(base_->ObjectValidity(t));
    bool owned = false;  // os.obj is an object of this evaluation, free to change
    const int last = std::max(0, last_index);
    for (int i = NumModifiers() - 1; i >= last; --i) {
      Modifier* mod = mods_[static_cast<size_t>(i)];
      if (!mod || !mod->IsEnabled() || !os.obj) continue;
      const Class_ID input = mod->InputType();
      if (!(input == defObjectClassID) && !(os.obj->ClassID() == input)) {
        if (!os.obj->CanConvertToType(input)) continue;
        Object* converted = os.obj->ConvertToType(t, input);
        if (!converted) continue;
        if (converted != os.obj) {
          temps_.push_back(converted);
          os.obj = converted;
          owned = true;
        }
      }
      if (mod->ChannelsChanged() != 0 && !owned) {
        if (Object* copy = os.obj->MakeShallowCopy(mod->ChannelsChanged())) {
          temps_.push_back(copy);
          os.obj = copy;
          owned = true;
        }
      }
      Object* before = os.obj;
      mod->ModifyObject(t, *contexts_[static_cast<size_t>(i)], &os, node);
      if (os.obj != before && os.obj && !os.obj->HasDependents() &&
          std::find(temps_.begin(), temps_.end(), os.obj) == temps_.end()) {
        temps_.push_back(os.obj);  // a new object the modifier made
        owned = true;
      }
      os.NarrowObValid(mod->LocalValidity(t));
    }
    valid_ = os.Validity();
    return os;
  }

  IOResult Save(ISave* isave) override {
    int count = NumModifiers();
    if (SaveChunk(isave, kModCountChunk, count) != IO_OK) return IO_ERROR;
    for (const auto& mc : contexts_) {
      isave->BeginChunk(kModContextChunk);
      if (mc->tm) SaveChunk(isave, kModContextTMChunk, *mc->tm);
      if (mc->box) SaveChunk(isave, kModContextBoxChunk, *mc->box);
      isave->EndChunk();
    }
    return IO_OK;
  }

  IOResult Load(ILoad* iload) override {
    size_t next_context = 0;
    return ForEachChunk(iload, [&](USHORT id) {
      if (id == kModCountChunk) {
        int count = 0;
        if (LoadValue(iload, count) != IO_OK || count < 0 || count > kMaxModifiers ||
            !mods_.empty())
          return IO_ERROR;
        mods_.assign(static_cast<size_t>(count), nullptr);
        contexts_.clear();
        for (int i = 0; i < count; ++i) contexts_.push_back(std::make_shared<ModContext>());
      } else if (id == kModContextChunk) {
        if (next_context >= contexts_.size()) return IO_ERROR;
        return LoadContext(iload, *contexts_[next_context++]);
      }
      return IO_OK;
    });
  }

  RefTargetHandle Clone(RemapDir& remap) override {
    auto* dob = new DerivedObject;
    dob->ReplaceReference(0, remap.CloneRef(base_));
    for (int i = NumModifiers() - 1; i >= 0; --i) {
      auto* mod = static_cast<Modifier*>(remap.CloneRef(mods_[static_cast<size_t>(i)]));
      dob->AddModifier(mod, new ModContext(*contexts_[static_cast<size_t>(i)]), 0);
    }
    BaseClone(this, dob, remap);
    return dob;
  }

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i == 0) {
      base_ = dynamic_cast<Object*>(target);
    } else if (i > 0 && i < NumRefs()) {
      mods_[static_cast<size_t>(i - 1)] = dynamic_cast<Modifier*>(target);
    }
    valid_.SetEmpty();
  }

 private:
  friend class StackLayoutRestore;

  static IOResult LoadContext(ILoad* iload, ModContext& mc) {
    return ForEachChunk(iload, [&](USHORT id) {
      if (id == kModContextTMChunk) {
        Matrix3 tm;
        if (LoadValue(iload, tm) != IO_OK) return IO_ERROR;
        tm.ValidateFlags();
        delete mc.tm;
        mc.tm = new Matrix3(tm);
      } else if (id == kModContextBoxChunk) {
        Box3 box;
        if (LoadValue(iload, box) != IO_OK) return IO_ERROR;
        delete mc.box;
        mc.box = new Box3(box);
      }
      return IO_OK;
    });
  }

  void PutLayout() {
    if (theHold.Holding()) theHold.Put(new StackLayoutRestore(this));
  }
  void StackChanged() {
    valid_.SetEmpty();
    NotifyDependents(FOREVER, PART_ALL & ~PART_TM, REFMSG_CHANGE);
    NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
  }
  // Objects made by the last evaluation (copies, conversions) are freed before the next one.
  void FreeTemps() {
    if (temps_.empty()) return;
    HoldSuspend suspend;
    for (Object* obj : temps_) {
      if (!obj->HasDependents()) obj->DeleteMe();
    }
    temps_.clear();
  }

  Object* base_ = nullptr;
  std::vector<Modifier*> mods_;  // index 0 is the top of the stack
  // Shared with the stack layout undo records, which must bring a removed context back.
  std::vector<std::shared_ptr<ModContext>> contexts_;
  std::vector<Object*> temps_;
  Interval valid_ = NEVER;
};

StackLayoutRestore::StackLayoutRestore(DerivedObject* dob)
    : handle_(Animatable::GetHandleByAnim(dob)), before_{dob->mods_, dob->contexts_} {}

void StackLayoutRestore::Apply(const Layout& layout) {
  auto* dob = dynamic_cast<DerivedObject*>(Animatable::FindAnimIncludingDeleted(handle_));
  if (!dob) return;
  dob->mods_ = layout.mods;
  dob->contexts_ = layout.contexts;
  dob->StackChanged();
}

void StackLayoutRestore::Restore(int is_undo) {
  auto* dob = dynamic_cast<DerivedObject*>(Animatable::FindAnimIncludingDeleted(handle_));
  if (!dob) return;
  if (is_undo) after_ = Layout{dob->mods_, dob->contexts_};
  Apply(before_);
}

void StackLayoutRestore::Redo() { Apply(after_); }

class DerivedObjectClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool) override { return new DerivedObject; }
  const char* ClassName() override { return "Derived Object"; }
  SClass_ID SuperClassID() override { return GEN_DERIVOB_CLASS_ID; }
  Class_ID ClassID() override { return DERIVOB_CLASS_ID; }
  const char* Category() override { return ""; }
};

}  // namespace

IDerivedObject* CreateDerivedObject(Object* pob) {
  auto* dob = new DerivedObject;
  if (pob) dob->ReferenceObject(pob);
  return dob;
}

ClassDesc2* GetDerivedObjectClassDesc() {
  static DerivedObjectClassDesc desc;
  return &desc;
}
