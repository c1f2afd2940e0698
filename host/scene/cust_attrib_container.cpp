// Copyright Marvolith contributors.
#include "host/scene/cust_attrib_container.h"

#include <algorithm>
#include <vector>

#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "support/ref_slot_check.h"

namespace {

constexpr USHORT kCountChunk = 0x0100;
// A file that claims more attributes than this is damaged.
constexpr int kMaxAttribs = 4096;

class CustAttribContainer;

// Undo of which slot holds what (the attributes themselves come back through their reference
// records). Put where undo needs the slot empty: before a slot is inserted, and after a slot is
// emptied and before it is removed.
class AttribLayoutRestore : public RestoreObj {
 public:
  explicit AttribLayoutRestore(CustAttribContainer* cc);
  void Restore(int is_undo) override;
  void Redo() override;
  MSTR Description() override { return "Custom attributes"; }

 private:
  CustAttribContainer* Find();
  AnimHandle handle_;
  std::vector<CustAttrib*> before_;
  std::vector<CustAttrib*> after_;
};

class CustAttribContainer : public ICustAttribContainer, public IRefSlotCheck {
 public:
  // Kept by its owner, not by references: only the owner's deletion ends it.
  CustAttribContainer() { SetAFlag(A_LOCK_TARGET); }

  Class_ID ClassID() override { return CUSTATTRIB_CONTAINER_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override { s = "Custom Attributes"; }

  int NumRefs() override { return GetNumCustAttribs(); }
  RefTargetHandle GetReference(int i) override { return GetCustAttrib(i); }
  int NumSubs() override { return GetNumCustAttribs(); }
  Animatable* SubAnim(int i) override { return GetCustAttrib(i); }
  MSTR SubAnimName(int i, bool localized = true) override {
    CustAttrib* ca = GetCustAttrib(i);
    return ca ? ca->GetName(localized) : MSTR();
  }
  int SubNumToRefNum(int sub_num) override {
    return sub_num >= 0 && sub_num < NumRefs() ? sub_num : -1;
  }
  void* GetInterface(ULONG id) override {
    if (id == I_REFSLOTCHECK) return static_cast<IRefSlotCheck*>(this);
    return ICustAttribContainer::GetInterface(id);
  }
  using ICustAttribContainer::GetInterface;
  bool CanReferenceAt(int i, ReferenceTarget* target) override {
    return i >= 0 && i < NumRefs() && dynamic_cast<CustAttrib*>(target) != nullptr;
  }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }

  int GetNumCustAttribs() override { return static_cast<int>(attribs_.size()); }
  CustAttrib* GetCustAttrib(int i) override {
    return i >= 0 && i < GetNumCustAttribs() ? attribs_[static_cast<size_t>(i)] : nullptr;
  }
  void AppendCustAttrib(CustAttrib* attr) override { InsertCustAttrib(GetNumCustAttribs(), attr); }
  void SetCustAttrib(int i, CustAttrib* attr) override {
    if (!attr || i < 0 || i >= GetNumCustAttribs()) return;
    if (ReplaceReference(i, attr) == REF_SUCCEED) Changed();
  }
  void InsertCustAttrib(int i, CustAttrib* attr) override {
    if (!attr || i < 0 || i > GetNumCustAttribs()) return;
    PutLayout();
    attribs_.insert(attribs_.begin() + i, nullptr);
    if (ReplaceReference(i, attr) != REF_SUCCEED) {
      attribs_.erase(attribs_.begin() + i);
      return;
    }
    Changed();
  }
  void RemoveCustAttrib(int i) override {
    if (i < 0 || i >= GetNumCustAttribs()) return;
    ReplaceReference(i, nullptr);
    PutLayout();
    attribs_.erase(attribs_.begin() + i);
    Changed();
  }
  Animatable* GetOwner() override { return Animatable::GetAnimByHandle(owner_); }
  void SetOwner(Animatable* owner) override { owner_ = Animatable::GetHandleByAnim(owner); }

  IOResult Save(ISave* isave) override {
    int count = GetNumCustAttribs();
    return SaveChunk(isave, kCountChunk, count);
  }
  IOResult Load(ILoad* iload) override {
    return ForEachChunk(iload, [&](USHORT id) {
      if (id != kCountChunk) return IO_OK;
      int count = 0;
      if (LoadValue(iload, count) != IO_OK || count < 0 || count > kMaxAttribs || !attribs_.empty())
        return IO_ERROR;
      attribs_.assign(static_cast<size_t>(count), nullptr);
      return IO_OK;
    });
  }

  std::vector<CustAttrib*>& Attribs() { return attribs_; }
  void Changed() { NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED); }

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i >= 0 && i < GetNumCustAttribs())
      attribs_[static_cast<size_t>(i)] = dynamic_cast<CustAttrib*>(target);
  }

 private:
  void PutLayout() {
    if (theHold.Holding()) theHold.Put(new AttribLayoutRestore(this));
  }

  std::vector<CustAttrib*> attribs_;
  AnimHandle owner_ = 0;
};

AttribLayoutRestore::AttribLayoutRestore(CustAttribContainer* cc)
    : handle_(Animatable::GetHandleByAnim(cc)), before_(cc->Attribs()) {}

CustAttribContainer* AttribLayoutRestore::Find() {
  return dynamic_cast<CustAttribContainer*>(Animatable::FindAnimIncludingDeleted(handle_));
}

void AttribLayoutRestore::Restore(int is_undo) {
  CustAttribContainer* cc = Find();
  if (!cc) return;
  if (is_undo) after_ = cc->Attribs();
  cc->Attribs() = before_;
  cc->Changed();
}

void AttribLayoutRestore::Redo() {
  if (CustAttribContainer* cc = Find()) {
    cc->Attribs() = after_;
    cc->Changed();
  }
}



}  // namespace

bool LinkCustAttribContainer(Animatable* owner, ICustAttribContainer* cc) {
  auto* container = dynamic_cast<CustAttribContainer*>(cc);
  if (!owner || !container || owner->GetCustAttribContainer()) return false;
  container->SetOwner(owner);
  owner->SetCustAttribContainer(container);
  return true;
}

ICustAttribContainer* NewCustAttribContainer() { return new CustAttribContainer; }

namespace {
// Animatable::AllocCustAttribContainer makes this provider's container from the start.
const bool kFactorySet = (SetCustAttribContainerFactory(&NewCustAttribContainer), true);
}  // namespace
