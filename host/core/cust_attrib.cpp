// Copyright Marvolith contributors.
#include "host/core/cust_attrib.h"

#include "host/undo/hold.h"

namespace {

CustAttribContainerFactory& ContainerFactory() {
  static CustAttribContainerFactory factory = nullptr;
  return factory;
}

// Undo of an owner losing its container: the container comes back through its own deletion
// record; this puts the owner's pointer back. Keeps the container's memory while it exists.
class OwnerLinkRestore : public RestoreObj {
 public:
  OwnerLinkRestore(Animatable* owner, ICustAttribContainer* cc)
      : owner_(Animatable::GetHandleByAnim(owner)), cc_(cc) {
    cc_->IncHoldCount();
  }
  ~OwnerLinkRestore() override { cc_->DecHoldCount(); }
  void Restore(int) override {
    if (Animatable* owner = Animatable::FindAnimIncludingDeleted(owner_))
      owner->SetCustAttribContainer(cc_);
  }
  void Redo() override {
    if (Animatable* owner = Animatable::FindAnimIncludingDeleted(owner_))
      owner->SetCustAttribContainer(nullptr);
  }
  MSTR Description() override { return "Custom attributes"; }

 private:
  AnimHandle owner_;
  ICustAttribContainer* cc_;
};


}  // namespace

void SetCustAttribContainerFactory(CustAttribContainerFactory factory) {
  ContainerFactory() = factory;
}

void Animatable::AllocCustAttribContainer() {
  if (GetCustAttribContainer()) return;
  if (!ContainerFactory()) return;  // no provider loaded: nothing can hold attributes
  ICustAttribContainer* cc = ContainerFactory()();
  cc->SetOwner(this);
  SetCustAttribContainer(cc);
}

void Animatable::DeleteCustAttribContainer() {
  ICustAttribContainer* cc = custattrib_;
  if (!cc) return;
  if (theHold.Holding()) theHold.Put(new OwnerLinkRestore(this, cc));
  custattrib_ = nullptr;
  cc->DeleteMe();
}

void CloneCustAttribs(ReferenceTarget* from, ReferenceTarget* to, RemapDir& remap) {
  ICustAttribContainer* src = from ? from->GetCustAttribContainer() : nullptr;
  if (!src || !to || src->GetNumCustAttribs() == 0) return;
  to->AllocCustAttribContainer();
  ICustAttribContainer* dst = to->GetCustAttribContainer();
  if (!dst) return;
  for (int i = 0; i < src->GetNumCustAttribs(); ++i) {
    CustAttrib* ca = src->GetCustAttrib(i);
    if (!ca || !ca->CheckCopyAttribTo(dst)) continue;
    auto* copy = dynamic_cast<CustAttrib*>(remap.CloneRef(ca));
    if (copy) dst->AppendCustAttrib(copy);
  }
}

