// Copyright Marvolith contributors.
#include "host/params/iparam_block2.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <string>

#include "host/base/scoped_flag.h"
#include "host/core/weak_ref.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "support/hold_record.h"

namespace {

ParamControllerFactory& Factory() {
  static ParamControllerFactory factory = nullptr;
  return factory;
}

bool IsTab(const ParamDef& pd) { return IsParamTypeTab(pd.type); }

// Animatable parameters of a kind that a controller can hold: these are the sub-anims.
bool IsAnimatable(const ParamDef& pd) {
  return (pd.flags & P_ANIMATABLE) != 0 && KindCanAnimate(ParamKind(pd.type));
}

bool HoldsReference(const ParamDef& pd) {
  const PBKind kind = ParamKind(pd.type);
  return (kind == PBKind::kNode || kind == PBKind::kRefTarg) && (pd.flags & P_NO_REF) == 0;
}

// Parameters whose entries each take one reference slot: a controller or a target.
bool HasRefSlots(const ParamDef& pd) { return IsAnimatable(pd) || HoldsReference(pd); }

SClass_ID ControllerClass(PBKind kind) {
  switch (kind) {
    case PBKind::kFloat:
      return CTRL_FLOAT_CLASS_ID;
    case PBKind::kPoint3:
      return CTRL_POINT3_CLASS_ID;
    case PBKind::kPoint4:
      return CTRL_POINT4_CLASS_ID;
    default:
      return 0;
  }
}

ReferenceTarget* TargetOf(const PBStoredValue& value) {
  const auto* target = std::get_if<ReferenceTarget*>(&value);
  return target ? *target : nullptr;
}

void EvalController(Control* c, TimeValue t, PB2Value& v, Interval& valid) {
  switch (v.Kind()) {
    case PBKind::kFloat: {
      float f = v.GetFloat();
      c->GetValue(t, &f, valid, CTRL_ABSOLUTE);
      v.SetFloat(f);
      break;
    }
    case PBKind::kPoint3: {
      Point3 p = v.GetPoint3();
      c->GetValue(t, &p, valid, CTRL_ABSOLUTE);
      v.SetPoint3(p);
      break;
    }
    case PBKind::kPoint4: {
      Point4 p = v.GetPoint4();
      c->GetValue(t, &p, valid, CTRL_ABSOLUTE);
      v.SetPoint4(p);
      break;
    }
    default:
      break;
  }
}

void SetControllerValue(Control* c, TimeValue t, const PB2Value& v) {
  switch (v.Kind()) {
    case PBKind::kFloat: {
      float f = v.GetFloat();
      c->SetValue(t, &f, 1, CTRL_ABSOLUTE);
      break;
    }
    case PBKind::kPoint3: {
      Point3 p = v.GetPoint3();
      c->SetValue(t, &p, 1, CTRL_ABSOLUTE);
      break;
    }
    case PBKind::kPoint4: {
      Point4 p = v.GetPoint4();
      c->SetValue(t, &p, 1, CTRL_ABSOLUTE);
      break;
    }
    default:
      break;
  }
}

// Clamps a number into the parameter's range; NaN stays NaN.
void Clamp(const ParamDef& pd, PB2Value& v) {
  double low = 0.0, high = 0.0;
  if (!pd.StoredRange(low, high)) return;
  if (v.Kind() == PBKind::kInt) {
    // Integer bounds inside the range, kept inside int.
    const double lo = std::clamp(std::ceil(low), double(INT_MIN), double(INT_MAX));
    const double hi = std::clamp(std::floor(high), double(INT_MIN), double(INT_MAX));
    if (lo > hi) return;
    v.SetInt(std::clamp(v.GetInt(), static_cast<int>(lo), static_cast<int>(hi)));
  } else if (v.Kind() == PBKind::kFloat) {
    float f = v.GetFloat();
    if (f < low) f = static_cast<float>(low);
    if (f > high) f = static_cast<float>(high);
    v.SetFloat(f);
  }
}

void LogKindMismatch() {
  LogLine("Marvolith: a parameter was read or written as another kind than its own.\n");
}

}  // namespace

ParamControllerFactory SetParamControllerFactory(ParamControllerFactory factory) {
  ParamControllerFactory old = Factory();
  Factory() = factory;
  return old;
}

ParamControllerFactory GetParamControllerFactory() { return Factory(); }

// Undo of every change of one block within a hold: the whole stored state before the first
// change, and the state after it, captured at undo. Every target either state mentions is kept
// alive while the record exists.
class ParamBlockRestore : public RestoreObj {
 public:
  explicit ParamBlockRestore(IParamBlock2* pb)
      : block_(Animatable::GetHandleByAnim(pb)), before_(pb->params_) {
    Keep(before_, true);
  }
  ~ParamBlockRestore() override {
    Keep(after_, false);
    Keep(before_, false);
  }
  void Restore(int is_undo) override {
    IParamBlock2* pb = Find();
    if (!pb) return;
    if (is_undo) {
      IParamBlock2::State now = pb->params_;
      Keep(now, true);  // before releasing an older capture that may hold the same targets
      Keep(after_, false);
      after_ = std::move(now);
    }
    pb->ApplyState(before_);
  }
  void Redo() override {
    if (IParamBlock2* pb = Find()) pb->ApplyState(after_);
  }
  void EndHold() override {
    if (IParamBlock2* pb = Find()) pb->ClearAFlag(A_HELD);
  }
  int Size() override {
    size_t n = 0;
    for (const auto& entries : before_) n += entries.size();
    return static_cast<int>(sizeof(*this) + n * sizeof(IParamBlock2::Entry));
  }
  MSTR Description() override { return "Parameter change"; }

 private:
  IParamBlock2* Find() const {
    return static_cast<IParamBlock2*>(Animatable::FindAnimIncludingDeleted(block_));
  }
  static void Keep(const IParamBlock2::State& state, bool keep) {
    for (const auto& entries : state) {
      for (const auto& entry : entries) {
        for (ReferenceTarget* target :
             {TargetOf(entry.value), static_cast<ReferenceTarget*>(entry.control)}) {
          if (!target) continue;
          if (keep) {
            target->IncHoldCount();
          } else {
            target->DecHoldCount();
          }
        }
      }
    }
  }

  AnimHandle block_;
  IParamBlock2::State before_;
  IParamBlock2::State after_;
};

// Completes a clone once the whole clone is mapped: the owner becomes the owner's clone, node
// entries point at the clones of their nodes when those were cloned too.
class ParamBlockPostPatch : public PostPatchProc {
 public:
  ParamBlockPostPatch(IParamBlock2* clone, ReferenceMaker* original_owner)
      : clone_(Animatable::GetHandleByAnim(clone)),
        owner_(Animatable::GetHandleByAnim(original_owner)) {}

  int Proc(RemapDir& remap) override {
    auto* pb = static_cast<IParamBlock2*>(Animatable::GetAnimByHandle(clone_));
    if (!pb) return 0;
    auto* owner = static_cast<ReferenceMaker*>(Animatable::FindAnimIncludingDeleted(owner_));
    if (owner && owner->IsRefTarget()) {
      if (ReferenceTarget* mapped = remap.FindMapping(static_cast<ReferenceTarget*>(owner)))
        pb->SetOwner(mapped);
    }
    for (int pi = 0; pi < pb->NumParams(); ++pi) {
      const ParamDef& pd = *pb->Def(pi);
      if (ParamKind(pd.type) != PBKind::kNode) continue;
      auto& entries = pb->params_[static_cast<size_t>(pi)];
      for (size_t e = 0; e < entries.size(); ++e) {
        ReferenceTarget* node = pb->StoredAsValue(pi, entries[e]).GetReferenceTarget();
        ReferenceTarget* mapped = node ? remap.FindMapping(node) : nullptr;
        if (!mapped || mapped == node) continue;
        if (HoldsReference(pd)) {
          pb->ReplaceReference(pb->RefSlot(pi, static_cast<int>(e)), mapped, false);
        } else {
          entries[e].value = Animatable::GetHandleByAnim(mapped);
        }
      }
    }
    return 1;
  }

 private:
  AnimHandle clone_;
  AnimHandle owner_;
};

IParamBlock2* CreateParameterBlock2(ParamBlockDesc2* desc, ReferenceMaker* owner) {
  if (!desc) return nullptr;
  return new IParamBlock2(desc, owner);
}

IParamBlock2::IParamBlock2(ParamBlockDesc2* desc, ReferenceMaker* owner)
    : desc_(desc), owner_(GetHandleByAnim(owner)) {
  params_.resize(static_cast<size_t>(desc_->Count()));
  for (int pi = 0; pi < desc_->Count(); ++pi) {
    const ParamDef& pd = *Def(pi);
    params_[static_cast<size_t>(pi)].assign(static_cast<size_t>(IsTab(pd) ? pd.tab_size : 1),
                                            NewEntry(pi));
  }
  RebuildMaps();
}

// The monitors of a block's P_NO_REF targets, one per distinct target handle.
class IParamBlock2::WeakWatch : public IRefTargMonitor {
 public:
  explicit WeakWatch(IParamBlock2& pb) : pb_(pb) {}
  ~WeakWatch() override {
    HoldSuspend quiet;
    for (auto& [handle, monitor] : monitors_) delete monitor;
  }

  // Watches exactly the handles given: monitors of handles no entry names any more go, new ones
  // come, and a monitor whose target came back (undo of its deletion) watches it again.
  void Sync(const std::vector<AnimHandle>& handles) {
    for (size_t i = 0; i < monitors_.size();) {
      if (std::find(handles.begin(), handles.end(), monitors_[i].first) == handles.end()) {
        delete monitors_[i].second;
        monitors_.erase(monitors_.begin() + static_cast<std::ptrdiff_t>(i));
      } else {
        ++i;
      }
    }
    for (AnimHandle h : handles) {
      auto* target = static_cast<ReferenceTarget*>(GetAnimByHandle(h));
      auto it = std::find_if(monitors_.begin(), monitors_.end(),
                             [h](const auto& m) { return m.first == h; });
      if (it == monitors_.end()) {
        if (target) monitors_.emplace_back(h, new RefTargMonitorRefMaker(*this, target));
      } else if (target && it->second->GetRef() != target) {
        it->second->SetRef(target);
      }
    }
  }

  RefResult ProcessRefTargMonitorMsg(const Interval& change_int, RefTargetHandle target,
                                     PartID& part_id, RefMessage message,
                                     bool from_monitored_target, bool,
                                     RefTargMonitorRefMaker*) override {
    if (!from_monitored_target || busy_ || !pb_.notifications_) return REF_SUCCEED;
    if (message != REFMSG_CHANGE && message != REFMSG_TARGET_DELETED) return REF_SUCCEED;
    // What the owner does about the change may move the watched node again: a weak edge must
    // not loop, so that second change is not passed on.
    ScopedFlag busy(busy_);
    int tab = 0;
    const ParamID id = pb_.ParamOfWeakTarget(target, tab);
    if (id >= 0) {
      pb_.last_notify_id_ = id;
      pb_.last_notify_tab_ = tab;
    }
    pb_.NotifyDependents(change_int, message == REFMSG_CHANGE ? part_id : PART_ALL,
                         REFMSG_CHANGE);
    return REF_SUCCEED;
  }

 private:
  IParamBlock2& pb_;
  std::vector<std::pair<AnimHandle, RefTargMonitorRefMaker*>> monitors_;
  bool busy_ = false;
};

IParamBlock2::~IParamBlock2() = default;

void IParamBlock2::WatchWeakTargets() {
  std::vector<AnimHandle> handles;
  for (int pi = 0; pi < NumParams(); ++pi) {
    const ParamDef& pd = *Def(pi);
    const PBKind kind = ParamKind(pd.type);
    if ((kind != PBKind::kNode && kind != PBKind::kRefTarg) || HoldsReference(pd)) continue;
    for (const Entry& e : params_[static_cast<size_t>(pi)]) {
      const auto* h = std::get_if<AnimHandle>(&e.value);
      if (h && *h && std::find(handles.begin(), handles.end(), *h) == handles.end())
        handles.push_back(*h);
    }
  }
  if (handles.empty() && !weak_watch_) return;
  if (!weak_watch_) weak_watch_ = std::make_unique<WeakWatch>(*this);
  weak_watch_->Sync(handles);
}

ParamID IParamBlock2::ParamOfWeakTarget(ReferenceTarget* target, int& tab_index) const {
  const AnimHandle h = GetHandleByAnim(target);
  for (int pi = 0; pi < NumParams(); ++pi) {
    const auto& entries = params_[static_cast<size_t>(pi)];
    for (size_t e = 0; e < entries.size(); ++e) {
      const auto* stored = std::get_if<AnimHandle>(&entries[e].value);
      if (stored && *stored == h) {
        tab_index = IsTab(*Def(pi)) ? static_cast<int>(e) : 0;
        return Def(pi)->ID;
      }
    }
  }
  return -1;
}

ReferenceMaker* IParamBlock2::GetOwner() const {
  return static_cast<ReferenceMaker*>(FindAnimIncludingDeleted(owner_));
}

void IParamBlock2::SetOwner(ReferenceMaker* owner) { owner_ = GetHandleByAnim(owner); }

ParamType2 IParamBlock2::GetParameterType(ParamID id) const {
  const ParamDef* pd = desc_->GetParamDef(id);
  return pd ? pd->type : -1;
}

// ---------------------------------------------------------------------------------------------
// Stored values.

IParamBlock2::Entry IParamBlock2::NewEntry(int pi) const {
  const ParamDef& pd = *Def(pi);
  const PBKind kind = ParamKind(pd.type);
  Entry entry;
  if ((kind == PBKind::kNode || kind == PBKind::kRefTarg) && !HoldsReference(pd)) {
    entry.value = AnimHandle{0};
  } else {
    entry.value = (pd.flags & P_NO_INIT) ? ZeroStoredValue(kind) : pd.def;
  }
  return entry;
}

PB2Value IParamBlock2::StoredAsValue(int pi, const Entry& entry) const {
  PB2Value v(Def(pi)->type);
  const PBStoredValue& s = entry.value;
  switch (v.Kind()) {
    case PBKind::kInt:
      if (auto* x = std::get_if<int>(&s)) v.SetInt(*x);
      break;
    case PBKind::kFloat:
      if (auto* x = std::get_if<float>(&s)) v.SetFloat(*x);
      break;
    case PBKind::kPoint3:
      if (auto* x = std::get_if<Point3>(&s)) v.SetPoint3(*x);
      break;
    case PBKind::kPoint4:
      if (auto* x = std::get_if<Point4>(&s)) v.SetPoint4(*x);
      break;
    case PBKind::kMatrix3:
      if (auto* x = std::get_if<Matrix3>(&s)) v.SetMatrix3(*x);
      break;
    case PBKind::kString:
      if (auto* x = std::get_if<std::string>(&s)) v.SetStr(x->c_str());
      break;
    case PBKind::kNode:
    case PBKind::kRefTarg:
      if (auto* h = std::get_if<AnimHandle>(&s)) {
        // Weak entries: a deleted target reads null.
        v.SetReferenceTarget(static_cast<ReferenceTarget*>(GetAnimByHandle(*h)));
      } else {
        v.SetReferenceTarget(TargetOf(s));
      }
      break;
    case PBKind::kNone:
      break;
  }
  return v;
}

PBStoredValue IParamBlock2::ValueAsStored(int pi, const PB2Value& v) const {
  const ParamDef& pd = *Def(pi);
  switch (ParamKind(pd.type)) {
    case PBKind::kInt:
      return v.GetInt();
    case PBKind::kFloat:
      return v.GetFloat();
    case PBKind::kPoint3:
      return v.GetPoint3();
    case PBKind::kPoint4:
      return v.GetPoint4();
    case PBKind::kMatrix3:
      return v.GetMatrix3();
    case PBKind::kString:
      return std::string(v.GetStr());
    case PBKind::kNode:
    case PBKind::kRefTarg:
      if (!HoldsReference(pd)) return GetHandleByAnim(v.GetReferenceTarget());
      return v.GetReferenceTarget();
    case PBKind::kNone:
      break;
  }
  return std::monostate();
}

bool IParamBlock2::Retag(int pi, const PB2Value& v, PB2Value& out) const {
  out = PB2Value(Def(pi)->type);
  switch (out.Kind()) {
    case PBKind::kInt:
      return v.Kind() == PBKind::kInt && out.SetInt(v.GetInt());
    case PBKind::kFloat:
      return v.Kind() == PBKind::kFloat && out.SetFloat(v.GetFloat());
    case PBKind::kPoint3:
      return v.Kind() == PBKind::kPoint3 && out.SetPoint3(v.GetPoint3());
    case PBKind::kPoint4:
      return v.Kind() == PBKind::kPoint4 && out.SetPoint4(v.GetPoint4());
    case PBKind::kMatrix3:
      return v.Kind() == PBKind::kMatrix3 && out.SetMatrix3(v.GetMatrix3());
    case PBKind::kString:
      return v.Kind() == PBKind::kString && out.SetStr(v.GetStr());
    case PBKind::kNode:
    case PBKind::kRefTarg:
      return (v.Kind() == PBKind::kNode || v.Kind() == PBKind::kRefTarg) &&
             out.SetReferenceTarget(v.GetReferenceTarget());
    case PBKind::kNone:
      break;
  }
  return false;
}

PB2Value IParamBlock2::CurrentValue(int pi, int e) {
  const Entry& entry = params_[static_cast<size_t>(pi)][static_cast<size_t>(e)];
  PB2Value v = StoredAsValue(pi, entry);
  if (entry.control) {
    Interval valid = FOREVER;
    EvalController(entry.control, GetCOREInterface()->GetTime(), v, valid);
  }
  return v;
}

// ---------------------------------------------------------------------------------------------
// Reading.

int IParamBlock2::Find(ParamID id, PBKind want) const {
  const int pi = desc_->IDtoIndex(id);
  if (pi < 0) {
    LogLine("Marvolith: a parameter block has no parameter with the id asked for.\n");
    return -1;
  }
  const PBKind kind = ParamKind(Def(pi)->type);
  // A node is a reference target too.
  if (want != PBKind::kNone && kind != want &&
      !(want == PBKind::kRefTarg && kind == PBKind::kNode)) {
    LogKindMismatch();
    return -1;
  }
  return pi;
}

int IParamBlock2::EntryIndex(int pi, int tab_index) const {
  const int count = static_cast<int>(params_[static_cast<size_t>(pi)].size());
  if (!IsTab(*Def(pi))) return count > 0 ? 0 : -1;
  return tab_index >= 0 && tab_index < count ? tab_index : -1;
}

bool IParamBlock2::Read(
    ParamID id, TimeValue t, PB2Value& v, Interval& valid, int tab_index, PBKind want) {
  const int pi = Find(id, want);
  if (pi < 0) return false;
  const int e = EntryIndex(pi, tab_index);
  if (e < 0) return false;
  const ParamDef& pd = *Def(pi);
  if (!IsAnimatable(pd)) t = 0;
  const Entry& entry = params_[static_cast<size_t>(pi)][static_cast<size_t>(e)];
  v = StoredAsValue(pi, entry);
  if (entry.control) EvalController(entry.control, t, v, valid);
  if (pd.accessor) pd.accessor->Get(v, GetOwner(), id, IsTab(pd) ? e : 0, t, valid);
  return true;
}

PB2Value IParamBlock2::ReadOrDefault(ParamID id, TimeValue t, int tab_index, PBKind want) {
  PB2Value v;
  Interval valid = FOREVER;
  if (Read(id, t, v, valid, tab_index, want)) return v;
  const ParamDef* pd = desc_->GetParamDef(id);
  if (!pd) return v;
  // The table's default, read in place so that strings point at the descriptor's text.
  v = PB2Value(pd->type);
  const PBStoredValue& d = pd->def;
  if (auto* x = std::get_if<int>(&d)) v.SetInt(*x);
  if (auto* x = std::get_if<float>(&d)) v.SetFloat(*x);
  if (auto* x = std::get_if<Point3>(&d)) v.SetPoint3(*x);
  if (auto* x = std::get_if<Point4>(&d)) v.SetPoint4(*x);
  if (auto* x = std::get_if<Matrix3>(&d)) v.SetMatrix3(*x);
  if (auto* x = std::get_if<std::string>(&d)) v.SetStr(x->c_str());
  return v;
}

int IParamBlock2::GetInt(ParamID id, TimeValue t, int tab_index) {
  return ReadOrDefault(id, t, tab_index, PBKind::kInt).GetInt();
}
float IParamBlock2::GetFloat(ParamID id, TimeValue t, int tab_index) {
  return ReadOrDefault(id, t, tab_index, PBKind::kFloat).GetFloat();
}
TimeValue IParamBlock2::GetTimeValue(ParamID id, TimeValue t, int tab_index) {
  return ReadOrDefault(id, t, tab_index, PBKind::kInt).GetTimeValue();
}
Point3 IParamBlock2::GetPoint3(ParamID id, TimeValue t, int tab_index) {
  return ReadOrDefault(id, t, tab_index, PBKind::kPoint3).GetPoint3();
}
Color IParamBlock2::GetColor(ParamID id, TimeValue t, int tab_index) {
  return ReadOrDefault(id, t, tab_index, PBKind::kPoint3).GetColor();
}
Point4 IParamBlock2::GetPoint4(ParamID id, TimeValue t, int tab_index) {
  return ReadOrDefault(id, t, tab_index, PBKind::kPoint4).GetPoint4();
}
AColor IParamBlock2::GetAColor(ParamID id, TimeValue t, int tab_index) {
  return ReadOrDefault(id, t, tab_index, PBKind::kPoint4).GetAColor();
}
Matrix3 IParamBlock2::GetMatrix3(ParamID id, TimeValue t, int tab_index) {
  return ReadOrDefault(id, t, tab_index, PBKind::kMatrix3).GetMatrix3();
}
const char* IParamBlock2::GetStr(ParamID id, TimeValue t, int tab_index) {
  return ReadOrDefault(id, t, tab_index, PBKind::kString).GetStr();
}
INode* IParamBlock2::GetINode(ParamID id, TimeValue t, int tab_index) {
  return ReadOrDefault(id, t, tab_index, PBKind::kNode).GetINode();
}
ReferenceTarget* IParamBlock2::GetReferenceTarget(ParamID id, TimeValue t, int tab_index) {
  return ReadOrDefault(id, t, tab_index, PBKind::kRefTarg).GetReferenceTarget();
}

bool IParamBlock2::GetValue(ParamID id, TimeValue t, int& v, Interval& valid, int tab_index) {
  PB2Value x;
  if (!Read(id, t, x, valid, tab_index, PBKind::kInt)) return false;
  v = x.GetInt();
  return true;
}
bool IParamBlock2::GetValue(ParamID id, TimeValue t, bool& v, Interval& valid, int tab_index) {
  PB2Value x;
  if (!Read(id, t, x, valid, tab_index, PBKind::kInt)) return false;
  v = x.GetBool();
  return true;
}
bool IParamBlock2::GetValue(ParamID id, TimeValue t, float& v, Interval& valid, int tab_index) {
  PB2Value x;
  if (!Read(id, t, x, valid, tab_index, PBKind::kFloat)) return false;
  v = x.GetFloat();
  return true;
}
bool IParamBlock2::GetValue(ParamID id, TimeValue t, Point3& v, Interval& valid, int tab_index) {
  PB2Value x;
  if (!Read(id, t, x, valid, tab_index, PBKind::kPoint3)) return false;
  v = x.GetPoint3();
  return true;
}
bool IParamBlock2::GetValue(ParamID id, TimeValue t, Color& v, Interval& valid, int tab_index) {
  PB2Value x;
  if (!Read(id, t, x, valid, tab_index, PBKind::kPoint3)) return false;
  v = x.GetColor();
  return true;
}
bool IParamBlock2::GetValue(ParamID id, TimeValue t, Point4& v, Interval& valid, int tab_index) {
  PB2Value x;
  if (!Read(id, t, x, valid, tab_index, PBKind::kPoint4)) return false;
  v = x.GetPoint4();
  return true;
}
bool IParamBlock2::GetValue(ParamID id, TimeValue t, AColor& v, Interval& valid, int tab_index) {
  PB2Value x;
  if (!Read(id, t, x, valid, tab_index, PBKind::kPoint4)) return false;
  v = x.GetAColor();
  return true;
}
bool IParamBlock2::GetValue(ParamID id, TimeValue t, Matrix3& v, Interval& valid, int tab_index) {
  PB2Value x;
  if (!Read(id, t, x, valid, tab_index, PBKind::kMatrix3)) return false;
  v = x.GetMatrix3();
  return true;
}
bool IParamBlock2::GetValue(
    ParamID id, TimeValue t, const char*& v, Interval& valid, int tab_index) {
  PB2Value x;
  if (!Read(id, t, x, valid, tab_index, PBKind::kString)) return false;
  v = x.GetStr();
  return true;
}
bool IParamBlock2::GetValue(ParamID id, TimeValue t, INode*& v, Interval& valid, int tab_index) {
  PB2Value x;
  if (!Read(id, t, x, valid, tab_index, PBKind::kNode)) return false;
  v = x.GetINode();
  return true;
}
bool IParamBlock2::GetValue(
    ParamID id, TimeValue t, ReferenceTarget*& v, Interval& valid, int tab_index) {
  PB2Value x;
  if (!Read(id, t, x, valid, tab_index, PBKind::kRefTarg)) return false;
  v = x.GetReferenceTarget();
  return true;
}
bool IParamBlock2::GetValue(ParamID id, TimeValue t, PB2Value& v, Interval& valid, int tab_index) {
  return Read(id, t, v, valid, tab_index, PBKind::kNone);
}

// ---------------------------------------------------------------------------------------------
// Writing.

bool IParamBlock2::Write(ParamID id, TimeValue t, PB2Value given, int tab_index) {
  const int pi = Find(id, PBKind::kNone);
  if (pi < 0) return false;
  PB2Value v;
  if (!Retag(pi, given, v)) {
    LogKindMismatch();
    return false;
  }
  if (EntryIndex(pi, tab_index) < 0) return false;
  const ParamDef& pd = *Def(pi);
  const bool animatable = IsAnimatable(pd);
  if (!animatable) t = 0;
  const int tab = IsTab(pd) ? tab_index : 0;
  Clamp(pd, v);

  auto closes_loop = [&](ReferenceTarget* target) {
    if (!target || !HoldsReference(pd) || target->TestForLoop(FOREVER, this) != REF_FAIL)
      return false;
    LogLine("Marvolith: a parameter was not set because its reference would close a loop.\n");
    return true;
  };
  if (closes_loop(v.GetReferenceTarget())) return false;
  ReferenceMaker* owner = GetOwner();
  if (pd.validator && !pd.validator->Validate(v, owner, id, tab)) return false;
  if (pd.accessor) {
    ReferenceTarget* before = v.GetReferenceTarget();
    pd.accessor->Set(v, owner, id, tab, t);
    if (v.GetReferenceTarget() != before && closes_loop(v.GetReferenceTarget())) return false;
  }
  // The accessor may have changed the table.
  const int e = EntryIndex(pi, tab_index);
  if (e < 0) return false;

  if (Control* c = params_[static_cast<size_t>(pi)][static_cast<size_t>(e)].control) {
    SetControllerValue(c, t, v);
    return true;
  }
  if (animatable && Animating() && AnimateWrite(pi, e, t, v)) return true;

  HoldState();
  if (HoldsReference(pd)) {
    if (!ReplaceSlot(RefSlot(pi, e), v.GetReferenceTarget())) return false;
  } else {
    params_[static_cast<size_t>(pi)][static_cast<size_t>(e)].value = ValueAsStored(pi, v);
  }
  NotifyChanged(id, tab);
  return true;
}

// The one place where animate mode turns a plain parameter into an animated one.
bool IParamBlock2::AnimateWrite(int pi, int e, TimeValue t, const PB2Value& v) {
  ParamControllerFactory factory = Factory();
  if (!factory) return false;
  const ParamDef& pd = *Def(pi);
  Control* c = factory(BaseParamType(pd.type));
  if (!c) return false;
  if (!SetController(pd.ID, IsTab(pd) ? e : 0, c, /*preserve_value=*/true)) {
    c->MaybeAutoDelete();
    return false;
  }
  SetControllerValue(c, t, v);
  return true;
}

bool IParamBlock2::SetValue(ParamID id, TimeValue t, int v, int tab_index) {
  PB2Value x(TYPE_INT);
  x.SetInt(v);
  return Write(id, t, x, tab_index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, bool v, int tab_index) {
  PB2Value x(TYPE_BOOL);
  x.SetBool(v);
  return Write(id, t, x, tab_index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, float v, int tab_index) {
  PB2Value x(TYPE_FLOAT);
  x.SetFloat(v);
  return Write(id, t, x, tab_index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, const Point3& v, int tab_index) {
  PB2Value x(TYPE_POINT3);
  x.SetPoint3(v);
  return Write(id, t, x, tab_index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, const Color& v, int tab_index) {
  PB2Value x(TYPE_RGBA);
  x.SetColor(v);
  return Write(id, t, x, tab_index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, const Point4& v, int tab_index) {
  PB2Value x(TYPE_POINT4);
  x.SetPoint4(v);
  return Write(id, t, x, tab_index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, const AColor& v, int tab_index) {
  PB2Value x(TYPE_FRGBA);
  x.SetAColor(v);
  return Write(id, t, x, tab_index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, const Matrix3& v, int tab_index) {
  PB2Value x(TYPE_MATRIX3);
  x.SetMatrix3(v);
  return Write(id, t, x, tab_index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, const char* v, int tab_index) {
  PB2Value x(TYPE_STRING);
  x.SetStr(v);
  return Write(id, t, x, tab_index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, const MSTR& v, int tab_index) {
  return SetValue(id, t, v.c_str(), tab_index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, INode* v, int tab_index) {
  PB2Value x(TYPE_INODE);
  x.SetINode(v);
  return Write(id, t, x, tab_index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, ReferenceTarget* v, int tab_index) {
  PB2Value x(TYPE_REFTARG);
  x.SetReferenceTarget(v);
  return Write(id, t, x, tab_index);
}
bool IParamBlock2::SetValue(ParamID id, TimeValue t, const PB2Value& v, int tab_index) {
  return Write(id, t, v, tab_index);
}

// ---------------------------------------------------------------------------------------------
// Tables.

int IParamBlock2::Count(ParamID id) {
  const int pi = Find(id, PBKind::kNone);
  return pi < 0 ? 0 : static_cast<int>(params_[static_cast<size_t>(pi)].size());
}

int IParamBlock2::InsertValues(
    ParamID id, int at, int num, const PB2Value* values, tab_changes code) {
  const int pi = Find(id, PBKind::kNone);
  if (pi < 0) return -1;
  const ParamDef& pd = *Def(pi);
  if (!IsTab(pd)) {
    LogLine("Marvolith: a table operation was asked of a parameter that is not a table.\n");
    return -1;
  }
  auto& entries = params_[static_cast<size_t>(pi)];
  const int count = static_cast<int>(entries.size());
  if (at < 0 || at > count || num < 0) return -1;
  if (num == 0) return at;

  // Everything is checked before anything changes.
  std::vector<Entry> added(static_cast<size_t>(num), NewEntry(pi));
  std::vector<ReferenceTarget*> targets(static_cast<size_t>(num), nullptr);
  for (size_t i = 0; values && i < added.size(); ++i) {
    PB2Value v = values[i];
    Clamp(pd, v);
    if (HoldsReference(pd)) {
      targets[i] = v.GetReferenceTarget();
      if (targets[i] && targets[i]->TestForLoop(FOREVER, this) == REF_FAIL) {
        LogLine("Marvolith: a table insert was refused because a reference would close a loop.\n");
        return -1;
      }
    } else {
      added[i].value = ValueAsStored(pi, v);
    }
  }

  HoldState();
  entries.insert(entries.begin() + at, added.begin(), added.end());
  RebuildMaps();
  for (size_t i = 0; i < targets.size(); ++i) {
    if (targets[i]) ReplaceSlot(RefSlot(pi, at + static_cast<int>(i)), targets[i]);
  }
  if (code == tab_setcount) {
    CallTabChanged(pi, code, 0, count + num);
  } else {
    CallTabChanged(pi, code, at, num);
  }
  NotifyChanged(pd.ID, at);
  return at;
}

bool IParamBlock2::ShrinkTo(int pi, int count, int start, tab_changes code) {
  auto& entries = params_[static_cast<size_t>(pi)];
  const int old_count = static_cast<int>(entries.size());
  const int end = std::min(old_count, start + (old_count - count));
  const ParamDef& pd = *Def(pi);
  HoldState();
  if (HasRefSlots(pd)) {
    for (int e = start; e < end; ++e) {
      if (GetReference(RefSlot(pi, e))) ReplaceSlot(RefSlot(pi, e), nullptr);
    }
  }
  entries.erase(entries.begin() + start, entries.begin() + end);
  RebuildMaps();
  if (code == tab_setcount) {
    CallTabChanged(pi, code, 0, count);
  } else {
    CallTabChanged(pi, code, start, end - start);
  }
  NotifyChanged(pd.ID, start);
  return true;
}

int IParamBlock2::Delete(ParamID id, int start, int num) {
  const int pi = Find(id, PBKind::kNone);
  if (pi < 0) return -1;
  if (!IsTab(*Def(pi))) {
    LogLine("Marvolith: a table operation was asked of a parameter that is not a table.\n");
    return -1;
  }
  const int count = static_cast<int>(params_[static_cast<size_t>(pi)].size());
  if (start < 0 || start >= count || num <= 0) return count;
  const int removed = std::min(num, count - start);
  ShrinkTo(pi, count - removed, start, tab_delete);
  return count - removed;
}

bool IParamBlock2::SetCount(ParamID id, int n) {
  const int pi = Find(id, PBKind::kNone);
  if (pi < 0 || n < 0) return false;
  if (!IsTab(*Def(pi))) {
    LogLine("Marvolith: a table operation was asked of a parameter that is not a table.\n");
    return false;
  }
  const int count = static_cast<int>(params_[static_cast<size_t>(pi)].size());
  if (n > count) return InsertValues(id, count, n - count, nullptr, tab_setcount) >= 0;
  if (n < count) return ShrinkTo(pi, n, n, tab_setcount);
  return true;
}

bool IParamBlock2::Resize(ParamID id, int n) {
  const int pi = Find(id, PBKind::kNone);
  if (pi < 0 || n < 0 || !IsTab(*Def(pi))) return false;
  params_[static_cast<size_t>(pi)].reserve(static_cast<size_t>(n));
  return true;
}

void IParamBlock2::CallTabChanged(int pi, tab_changes code, int tab_index, int count) {
  const ParamDef& pd = *Def(pi);
  if (!pd.accessor) return;
  const int n = static_cast<int>(params_[static_cast<size_t>(pi)].size());
  Tab<PB2Value> tab;
  tab.Resize(n);
  for (int e = 0; e < n; ++e) tab.Append(CurrentValue(pi, e));
  pd.accessor->TabChanged(code, &tab, GetOwner(), pd.ID, tab_index, count);
}

// ---------------------------------------------------------------------------------------------
// Controllers.

Control* IParamBlock2::GetController(ParamID id, int tab_index) {
  const int pi = Find(id, PBKind::kNone);
  if (pi < 0) return nullptr;
  const int e = EntryIndex(pi, tab_index);
  return e < 0 ? nullptr : params_[static_cast<size_t>(pi)][static_cast<size_t>(e)].control;
}

bool IParamBlock2::SetController(ParamID id, int tab_index, Control* c, bool preserve_value) {
  const int pi = Find(id, PBKind::kNone);
  if (pi < 0) return false;
  const int e = EntryIndex(pi, tab_index);
  if (e < 0) return false;
  const ParamDef& pd = *Def(pi);
  if (!IsAnimatable(pd)) {
    LogLine("Marvolith: a controller was offered to a parameter that cannot be animated.\n");
    return false;
  }
  if (params_[static_cast<size_t>(pi)][static_cast<size_t>(e)].control == c) return true;
  if (c && c->SuperClassID() != ControllerClass(ParamKind(pd.type))) {
    LogLine("Marvolith: a parameter refused a controller of another kind.\n");
    return false;
  }
  if (c && c->TestForLoop(FOREVER, this) == REF_FAIL) {
    LogLine("Marvolith: a parameter refused a controller that would close a loop.\n");
    return false;
  }
  const PB2Value present = CurrentValue(pi, e);
  if (c && preserve_value) {
    AnimateSuspend no_keys;
    SetControllerValue(c, GetCOREInterface()->GetTime(), present);
  }
  HoldState();
  // The stored value carries on from the present one once the controller is gone.
  params_[static_cast<size_t>(pi)][static_cast<size_t>(e)].value = ValueAsStored(pi, present);
  if (!ReplaceSlot(RefSlot(pi, e), c)) return false;
  NotifyChanged(id, IsTab(pd) ? e : 0);
  return true;
}

// ---------------------------------------------------------------------------------------------
// Reset.

void IParamBlock2::ResetParam(int pi) {
  const ParamDef& pd = *Def(pi);
  auto& entries = params_[static_cast<size_t>(pi)];
  if (HasRefSlots(pd)) {
    for (int e = 0; e < static_cast<int>(entries.size()); ++e) {
      if (GetReference(RefSlot(pi, e))) ReplaceSlot(RefSlot(pi, e), nullptr);
    }
  }
  const int n = IsTab(pd) ? pd.tab_size : 1;
  entries.assign(static_cast<size_t>(n), NewEntry(pi));
  RebuildMaps();
  if (!pd.accessor) return;
  if (IsTab(pd)) {
    CallTabChanged(pi, tab_setcount, 0, n);
  } else if (!HoldsReference(pd)) {
    PB2Value v = StoredAsValue(pi, entries[0]);
    pd.accessor->Set(v, GetOwner(), pd.ID, 0, 0);
    PB2Value kept;
    if (Retag(pi, v, kept)) params_[static_cast<size_t>(pi)][0].value = ValueAsStored(pi, kept);
  }
}

bool IParamBlock2::Reset(ParamID id) {
  const int pi = Find(id, PBKind::kNone);
  if (pi < 0) return false;
  HoldState();
  ResetParam(pi);
  NotifyChanged(id, 0);
  return true;
}

void IParamBlock2::ResetAll() {
  HoldState();
  for (int pi = 0; pi < NumParams(); ++pi) ResetParam(pi);
  NotifyChanged(-1, 0);
}

// ---------------------------------------------------------------------------------------------
// Sub-anims.

namespace {
class ParamValueAnim final : public Animatable {
 public:
  SClass_ID SuperClassID() override { return PARAM_VALUE_SUPER_CLASS_ID; }
  Class_ID ClassID() override { return PARAM_VALUE_CLASS_ID; }
  void GetClassName(MSTR& s, bool) const override { s = "Parameter Value"; }
  void DeleteThis() override {}  // shared for the program's life
};
}  // namespace

Animatable* GetParamValueAnim() {
  // Made once and never freed: handles and flags of animatables outlive static destruction.
  static ParamValueAnim* anim = new ParamValueAnim;
  return anim;
}

Animatable* IParamBlock2::SubAnim(int i) {
  int tab = 0;
  const ParamID id = AnimNumToParamID(i, tab);
  if (id < 0) return nullptr;
  Control* c = GetController(id, tab < 0 ? 0 : tab);
  return c ? static_cast<Animatable*>(c) : GetParamValueAnim();
}

MSTR IParamBlock2::SubAnimName(int i, bool localized) {
  int tab = 0;
  const ParamID id = AnimNumToParamID(i, tab);
  if (id < 0) return MSTR();
  MSTR name = desc_->GetParamDef(id)->DisplayName();
  if (tab >= 0) name += " " + std::to_string(tab + 1);
  return name;
}

ParamDimension* IParamBlock2::GetParamDimension(int i) {
  int tab = 0;
  const ParamID id = AnimNumToParamID(i, tab);
  if (id < 0) return defaultDim;
  switch (desc_->GetParamDef(id)->type & ~TYPE_TAB) {
    case TYPE_ANGLE:
      return stdAngleDim;
    case TYPE_PCNT_FRAC:
      return stdPercentDim;
    case TYPE_WORLD:
      return stdWorldDim;
    default:
      return defaultDim;
  }
}

bool IParamBlock2::CanAssignController(int sub_anim) {
  int tab = 0;
  return AnimNumToParamID(sub_anim, tab) >= 0;
}

bool IParamBlock2::AssignController(Animatable* control, int sub_anim) {
  int tab = 0;
  const ParamID id = AnimNumToParamID(sub_anim, tab);
  if (id < 0) return false;
  if (tab < 0) tab = 0;
  const PBKind kind = ParamKind(GetParameterType(id));
  if (control && control->SuperClassID() != ControllerClass(kind)) return false;
  auto* c = static_cast<Control*>(control);
  Control* old = GetController(id, tab);
  if (c && old && c != old) {
    c->Copy(old);
    return SetController(id, tab, c, /*preserve_value=*/false);
  }
  return SetController(id, tab, c, /*preserve_value=*/true);
}

int IParamBlock2::SubNumToRefNum(int sub_num) {
  int tab = 0;
  const ParamID id = AnimNumToParamID(sub_num, tab);
  if (id < 0) return -1;
  return RefSlot(desc_->IDtoIndex(id), tab < 0 ? 0 : tab);
}

ParamID IParamBlock2::AnimNumToParamID(int anim_num, int& tab_index) const {
  tab_index = -1;
  if (anim_num < 0 || anim_num >= anim_base_.back()) return -1;
  const auto it = std::upper_bound(anim_base_.begin(), anim_base_.end(), anim_num);
  const int pi = static_cast<int>(it - anim_base_.begin()) - 1;
  const ParamDef& pd = *Def(pi);
  if (IsTab(pd)) tab_index = anim_num - anim_base_[static_cast<size_t>(pi)];
  return pd.ID;
}

int IParamBlock2::GetAnimNum(ParamID id, int tab_index) const {
  const int pi = desc_->IDtoIndex(id);
  if (pi < 0 || !IsAnimatable(*Def(pi))) return -1;
  const int e = EntryIndex(pi, tab_index);
  return e < 0 ? -1 : anim_base_[static_cast<size_t>(pi)] + e;
}

// ---------------------------------------------------------------------------------------------
// References.

void IParamBlock2::RebuildMaps() {
  const size_t n = params_.size();
  ref_base_.assign(n + 1, 0);
  anim_base_.assign(n + 1, 0);
  for (size_t pi = 0; pi < n; ++pi) {
    const ParamDef& pd = *Def(static_cast<int>(pi));
    const int count = static_cast<int>(params_[pi].size());
    ref_base_[pi + 1] = ref_base_[pi] + (HasRefSlots(pd) ? count : 0);
    anim_base_[pi + 1] = anim_base_[pi] + (IsAnimatable(pd) ? count : 0);
  }
}

bool IParamBlock2::SlotToEntry(int slot, int& pi, int& e) const {
  if (slot < 0 || slot >= ref_base_.back()) return false;
  const auto it = std::upper_bound(ref_base_.begin(), ref_base_.end(), slot);
  pi = static_cast<int>(it - ref_base_.begin()) - 1;
  e = slot - ref_base_[static_cast<size_t>(pi)];
  return true;
}

RefTargetHandle IParamBlock2::GetReference(int i) {
  int pi = 0, e = 0;
  if (!SlotToEntry(i, pi, e)) return nullptr;
  const Entry& entry = params_[static_cast<size_t>(pi)][static_cast<size_t>(e)];
  return IsAnimatable(*Def(pi)) ? entry.control : TargetOf(entry.value);
}

void IParamBlock2::SetReference(int i, RefTargetHandle target) {
  int pi = 0, e = 0;
  if (!SlotToEntry(i, pi, e)) return;
  Entry& entry = params_[static_cast<size_t>(pi)][static_cast<size_t>(e)];
  if (IsAnimatable(*Def(pi))) {
    entry.control = static_cast<Control*>(target);
  } else {
    entry.value = target;
  }
}

bool IParamBlock2::ReplaceSlot(int slot, ReferenceTarget* target) {
  // The block's own record covers its references; a slot record would go stale as soon as a
  // table before it changes size.
  HoldSuspend own_record_covers_it;
  return ReplaceReference(slot, target) == REF_SUCCEED;
}

ParamID IParamBlock2::ParamOfTarget(ReferenceTarget* target, int& tab_index) const {
  for (int pi = 0; pi < NumParams(); ++pi) {
    const ParamDef& pd = *Def(pi);
    if (!HasRefSlots(pd)) continue;
    const auto& entries = params_[static_cast<size_t>(pi)];
    for (size_t e = 0; e < entries.size(); ++e) {
      if (entries[e].control == target || TargetOf(entries[e].value) == target) {
        tab_index = IsTab(pd) ? static_cast<int>(e) : 0;
        return pd.ID;
      }
    }
  }
  return -1;
}

void IParamBlock2::DropTarget(ReferenceTarget* target) {
  for (int pi = 0; pi < NumParams(); ++pi) {
    const ParamDef& pd = *Def(pi);
    if (!HasRefSlots(pd)) continue;
    // Indexed loop: the accessor and the owner may change the table while they hear of it.
    for (size_t e = 0; e < params_[static_cast<size_t>(pi)].size(); ++e) {
      const Entry& entry = params_[static_cast<size_t>(pi)][e];
      const bool is_control = entry.control && entry.control == target;
      if (!is_control && TargetOf(entry.value) != target) continue;
      const int ei = static_cast<int>(e);
      HoldState();
      // A deleted controller leaves its last value behind.
      if (is_control)
        params_[static_cast<size_t>(pi)][e].value = ValueAsStored(pi, CurrentValue(pi, ei));
      RefAccess::Relink(this, RefSlot(pi, ei), nullptr);
      if (IsTab(pd)) CallTabChanged(pi, tab_ref_deleted, ei, 1);
      NotifyChanged(pd.ID, IsTab(pd) ? ei : 0);
    }
  }
}

RefResult IParamBlock2::NotifyRefChanged(const Interval& change_int,
                                         RefTargetHandle target,
                                         PartID& part_id,
                                         RefMessage message,
                                         bool propagate) {
  if (message == REFMSG_TARGET_DELETED) {
    DropTarget(target);
    return REF_SUCCEED;
  }
  if (message == REFMSG_CHANGE) {
    if (!notifications_) return REF_STOP;
    int tab = 0;
    const ParamID id = ParamOfTarget(target, tab);
    if (id >= 0) {
      last_notify_id_ = id;
      last_notify_tab_ = tab;
    }
  }
  return REF_SUCCEED;
}

RefTargetHandle IParamBlock2::Clone(RemapDir& remap) {
  auto* clone = new IParamBlock2(desc_, nullptr);
  clone->params_ = params_;
  clone->RebuildMaps();
  // The copied slots are linked afresh, so that the targets list the clone as a dependent.
  for (int slot = 0; slot < clone->NumRefs(); ++slot) clone->SetReference(slot, nullptr);
  for (int slot = 0; slot < NumRefs(); ++slot) {
    ReferenceTarget* target = GetReference(slot);
    if (!target) continue;
    int pi = 0, e = 0;
    SlotToEntry(slot, pi, e);
    const bool node = ParamKind(Def(pi)->type) == PBKind::kNode;
    clone->ReplaceReference(slot, node ? target : remap.CloneRef(target));
  }
  clone->notifications_ = notifications_;
  clone->WatchWeakTargets();
  BaseClone(this, clone, remap);
  remap.AddPostPatchProc(new ParamBlockPostPatch(clone, GetOwner()), true);
  return clone;
}

// ---------------------------------------------------------------------------------------------
// Undo and messages.

void IParamBlock2::HoldState() {
  if (HoldWantsRecord(this)) theHold.Put(new ParamBlockRestore(this));
}

void IParamBlock2::ApplyState(const State& state) {
  const State previous = params_;
  std::vector<AnimHandle> dropped;
  for (int i = 0, n = NumRefs(); i < n; ++i) {
    dropped.push_back(GetHandleByAnim(GetReference(i)));
    RefAccess::Relink(this, i, nullptr);
  }
  params_ = state;
  RebuildMaps();
  // The copied slots hold their targets without the dependent links: link them afresh.
  std::vector<ReferenceTarget*> targets(static_cast<size_t>(NumRefs()));
  for (int i = 0; i < NumRefs(); ++i) {
    targets[static_cast<size_t>(i)] = GetReference(i);
    SetReference(i, nullptr);
  }
  for (int i = 0; i < NumRefs(); ++i) {
    if (targets[static_cast<size_t>(i)])
      RefAccess::Relink(this, i, targets[static_cast<size_t>(i)]);
  }
  // A target that only this block used and that no record keeps (one added within a hold that is
  // cancelled) is deleted, as ReplaceReference would have. By handle: deleting one target may
  // free another.
  for (AnimHandle h : dropped) {
    if (auto* target = static_cast<ReferenceTarget*>(FindAnimIncludingDeleted(h)))
      target->MaybeAutoDelete();
  }
  TellAccessors(previous);
  NotifyChanged(-1, 0);
}

void IParamBlock2::TellAccessors(const State& previous) {
  // Undo and redo change values behind the accessors' backs: those that keep caches hear the
  // restored values as writes, and table sizes as a new count. What they answer is not kept:
  // the restored state is the truth.
  for (int pi = 0; pi < NumParams() && pi < static_cast<int>(previous.size()); ++pi) {
    const ParamDef& pd = *Def(pi);
    if (!pd.accessor) continue;
    const auto& before = previous[static_cast<size_t>(pi)];
    const int n = static_cast<int>(params_[static_cast<size_t>(pi)].size());
    if (IsTab(pd) && n != static_cast<int>(before.size())) CallTabChanged(pi, tab_setcount, 0, n);
    // Entries a table gained are told by the count alone, as an append tells them.
    for (int e = 0; e < n && e < static_cast<int>(before.size()); ++e) {
      const Entry& now = params_[static_cast<size_t>(pi)][static_cast<size_t>(e)];
      const Entry& was = before[static_cast<size_t>(e)];
      if (was.value == now.value && was.control == now.control) continue;
      PB2Value v = CurrentValue(pi, e);
      pd.accessor->Set(v, GetOwner(), pd.ID, IsTab(pd) ? e : 0, 0);
    }
  }
}

void IParamBlock2::NotifyChanged(ParamID id, int tab_index) {
  WatchWeakTargets();
  last_notify_id_ = id;
  last_notify_tab_ = tab_index;
  if (notifications_) NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}
