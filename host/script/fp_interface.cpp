// Copyright Marvolith contributors.
#include "host/script/fp_interface.h"

#include <algorithm>

#include "host/base/exceptions.h"
#include "host/core/animatable.h"
#include "host/core/diagnostics.h"
#include "host/registry/class_desc.h"

bool ScriptNameEquals(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

int FPFunctionDef::PositionalCount() const {
  return static_cast<int>(
      std::count_if(params.begin(), params.end(), [](const FPParamDef& p) { return !p.keyword; }));
}

int FPFunctionDef::RequiredCount() const {
  int n = 0;
  for (const FPParamDef& p : params) {
    if (p.keyword) continue;
    if (p.default_value) break;
    ++n;
  }
  return n;
}

std::optional<int> FPEnumDef::Find(std::string_view name) const {
  for (const Item& item : items) {
    if (ScriptNameEquals(item.name, name)) return item.value;
  }
  return std::nullopt;
}

const std::string* FPEnumDef::NameOf(int value) const {
  for (const Item& item : items) {
    if (item.value == value) return &item.name;
  }
  return nullptr;
}

Interface_ID FPInterface::GetID() {
  FPInterfaceDesc* desc = GetDesc();
  return desc ? desc->ID() : Interface_ID();
}

FPStatus FPInterface::Invoke(FunctionID fid, FPParams* p, FPValue& result) {
  FPInterfaceDesc* desc = GetDesc();
  FPMember member = desc ? desc->FindMember(fid) : FPMember();
  if (!member) {
    result = FPValue();
    return FPS_NO_SUCH_FUNCTION;
  }
  int wanted = 0;
  FPType result_type = FPType::TYPE_VOID;
  switch (member.kind) {
    case FPMember::Kind::kFunction:
      wanted = static_cast<int>(member.function->params.size());
      result_type = member.function->result_type;
      break;
    case FPMember::Kind::kGetter:
      result_type = member.property->type;
      break;
    case FPMember::Kind::kSetter:
      wanted = 1;
      break;
    case FPMember::Kind::kNone:
      break;
  }
  // The host reads arguments through its checked array: a missing one raises there. Raising
  // before the call keeps a half-run member from seeing a short argument list.
  if ((p ? p->Count() : 0) < wanted) throw MaxSDK::Util::ArrayOutOfRangeException();

  FPParams none;
  result = FPValue();
  FPStatus status = Dispatch(fid, p ? *p : none, result);
  if (status != FPS_OK) return status;
  if (!result.CoerceTo(result_type)) {
    // The class returned a value of another kind than its table declares: a programmer error.
    MV_ASSERT(!"published result does not match its declared type");
  }
  return status;
}

FPInterfaceDesc::FPInterfaceDesc(Interface_ID id,
                                 std::string internal_name,
                                 DWORD flags,
                                 ClassDesc2* cd,
                                 std::vector<FPFunctionDef> functions,
                                 std::vector<FPPropertyDef> properties,
                                 std::vector<FPEnumDef> enums)
    : id_(id),
      internal_name_(std::move(internal_name)),
      flags_(flags),
      cd_(cd),
      functions_(std::move(functions)),
      properties_(std::move(properties)),
      enums_(std::move(enums)) {
  BuildIndex();
  if (cd_) cd_->AddInterface(this);
  if (flags_ & FP_CORE) RegisterCOREInterface(this);
}

FPInterfaceDesc::~FPInterfaceDesc() {
  if (flags_ & FP_CORE) UnRegisterCOREInterface(this);
}

void FPInterfaceDesc::BuildIndex() {
  for (FPFunctionDef& f : functions_) {
    by_id_.push_back({f.id, {FPMember::Kind::kFunction, &f, nullptr}});
    for (FPParamDef& param : f.params) {
      // Defaults are written as plain literals (-1 for an index, 1.0 for a fraction); they take
      // the argument's own type here, once.
      if (param.default_value && !param.default_value->CoerceTo(param.type)) {
        MV_ASSERT(!"default value does not fit its argument's type");
        param.default_value.reset();
      }
    }
  }
  for (FPPropertyDef& prop : properties_) {
    by_id_.push_back({prop.getter_id, {FPMember::Kind::kGetter, nullptr, &prop}});
    if (!prop.ReadOnly())
      by_id_.push_back({prop.setter_id, {FPMember::Kind::kSetter, nullptr, &prop}});
  }
  std::stable_sort(by_id_.begin(), by_id_.end(),
                   [](const IdEntry& a, const IdEntry& b) { return a.id < b.id; });
  auto dup = std::adjacent_find(by_id_.begin(), by_id_.end(),
                                [](const IdEntry& a, const IdEntry& b) { return a.id == b.id; });
  if (dup != by_id_.end()) {
    MV_ASSERT(!"two members of one interface share a function id");
    // Keep the first definition of each id.
    by_id_.erase(std::unique(by_id_.begin(), by_id_.end(),
                             [](const IdEntry& a, const IdEntry& b) { return a.id == b.id; }),
                 by_id_.end());
  }
}

FPMember FPInterfaceDesc::FindMember(FunctionID id) const {
  auto it = std::lower_bound(by_id_.begin(), by_id_.end(), id,
                             [](const IdEntry& e, FunctionID v) { return e.id < v; });
  return it != by_id_.end() && it->id == id ? it->member : FPMember();
}

const FPFunctionDef* FPInterfaceDesc::FindFunction(std::string_view name) const {
  for (const FPFunctionDef& f : functions_) {
    if (ScriptNameEquals(f.internal_name, name)) return &f;
  }
  return nullptr;
}

const FPPropertyDef* FPInterfaceDesc::FindProperty(std::string_view name) const {
  for (const FPPropertyDef& p : properties_) {
    if (ScriptNameEquals(p.internal_name, name)) return &p;
  }
  return nullptr;
}

const FPEnumDef* FPInterfaceDesc::FindEnum(EnumID id) const {
  for (const FPEnumDef& e : enums_) {
    if (e.id == id) return &e;
  }
  return nullptr;
}

FPInterface* GetFPInterface(Animatable* anim, Interface_ID id) {
  return anim ? dynamic_cast<FPInterface*>(anim->GetInterface(id)) : nullptr;
}

namespace {
// Never destroyed: core interfaces unregister from static destructors in any order.
std::vector<FPInterface*>& CoreInterfaces() {
  static auto* list = new std::vector<FPInterface*>();
  return *list;
}
}  // namespace

bool RegisterCOREInterface(FPInterface* fpi) {
  if (!fpi || GetCOREInterface(fpi->GetID())) return false;
  CoreInterfaces().push_back(fpi);
  return true;
}

bool UnRegisterCOREInterface(FPInterface* fpi) {
  auto& list = CoreInterfaces();
  auto it = std::find(list.begin(), list.end(), fpi);
  if (it == list.end()) return false;
  list.erase(it);
  return true;
}

FPInterface* GetCOREInterface(Interface_ID id) {
  for (FPInterface* fpi : CoreInterfaces()) {
    if (fpi->GetID() == id) return fpi;
  }
  return nullptr;
}

FPInterface* GetCOREInterface(const char* name) {
  if (!name) return nullptr;
  for (FPInterface* fpi : CoreInterfaces()) {
    FPInterfaceDesc* desc = fpi->GetDesc();
    if (desc && ScriptNameEquals(desc->InternalName(), name)) return fpi;
  }
  return nullptr;
}

int NumCOREInterfaces() { return static_cast<int>(CoreInterfaces().size()); }

FPInterface* GetCOREInterfaceAt(int i) {
  auto& list = CoreInterfaces();
  return i >= 0 && i < static_cast<int>(list.size()) ? list[static_cast<size_t>(i)] : nullptr;
}

// The class's published interfaces, looked up the way the core interfaces are.
FPInterface* ClassDesc2::GetInterface(Interface_ID id) {
  for (FPInterface* fpi : interfaces_) {
    if (fpi->GetID() == id) return fpi;
  }
  return nullptr;
}

FPInterface* ClassDesc2::GetInterface(const char* name) {
  if (!name) return nullptr;
  for (FPInterface* fpi : interfaces_) {
    FPInterfaceDesc* desc = fpi->GetDesc();
    if (desc && ScriptNameEquals(desc->InternalName(), name)) return fpi;
  }
  return nullptr;
}
