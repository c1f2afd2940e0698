// Copyright Marvolith contributors.
#include "host/params/param_block_desc2.h"

#include <strings.h>

#include <cmath>
#include <numbers>

#include "host/core/diagnostics.h"
#include "host/params/iparam_block2.h"
#include "host/registry/class_desc.h"

namespace {
// Ids up to this value are looked up through a direct table; larger ones by a scan.
constexpr int kMaxDirectId = 4095;

void TableError(bool ok, const char* line) {
  MV_ASSERT(ok);
  if (!ok) LogLine(line);
}
}  // namespace

PBStoredValue ZeroStoredValue(PBKind kind) {
  switch (kind) {
    case PBKind::kInt:
      return 0;
    case PBKind::kFloat:
      return 0.0f;
    case PBKind::kPoint3:
      return Point3();
    case PBKind::kPoint4:
      return Point4();
    case PBKind::kMatrix3:
      return Matrix3();
    case PBKind::kString:
      return std::string();
    case PBKind::kNode:
    case PBKind::kRefTarg:
      return static_cast<ReferenceTarget*>(nullptr);
    case PBKind::kNone:
      break;
  }
  return std::monostate();
}

ParamDef::ParamDef(
    ParamID id, const char* name, ParamType2 param_type, int param_flags, int local_name_id)
    : ID(id),
      int_name(name ? name : ""),
      type(param_type),
      flags(param_flags),
      local_name(local_name_id),
      def(ZeroStoredValue(ParamKind(param_type))) {}

ParamDef& ParamDef::TabSize(int count) {
  tab_size = count < 0 ? 0 : count;
  return *this;
}

ParamDef& ParamDef::SetNumber(double v) {
  const PBKind kind = ParamKind(type);
  if (kind == PBKind::kInt) {
    def = static_cast<int>(std::lround(v));
  } else if (kind == PBKind::kFloat) {
    def = static_cast<float>(v);
  } else {
    TableError(false, "Marvolith: a parameter table gives a number default to a non-number.\n");
  }
  return *this;
}

ParamDef& ParamDef::Default(bool v) { return SetNumber(v ? 1.0 : 0.0); }
ParamDef& ParamDef::Default(int v) { return SetNumber(v); }
ParamDef& ParamDef::Default(float v) { return SetNumber(v); }
ParamDef& ParamDef::Default(double v) { return SetNumber(v); }

ParamDef& ParamDef::Default(const Point3& v) {
  const bool ok = ParamKind(type) == PBKind::kPoint3;
  TableError(ok, "Marvolith: a parameter table gives a Point3 default to another kind.\n");
  if (ok) def = v;
  return *this;
}

ParamDef& ParamDef::Default(const Color& v) { return Default(Point3(v.r, v.g, v.b)); }

ParamDef& ParamDef::Default(const Point4& v) {
  const bool ok = ParamKind(type) == PBKind::kPoint4;
  TableError(ok, "Marvolith: a parameter table gives a Point4 default to another kind.\n");
  if (ok) def = v;
  return *this;
}

ParamDef& ParamDef::Default(const AColor& v) { return Default(Point4(v.r, v.g, v.b, v.a)); }

ParamDef& ParamDef::Default(const Matrix3& v) {
  const bool ok = ParamKind(type) == PBKind::kMatrix3;
  TableError(ok, "Marvolith: a parameter table gives a Matrix3 default to another kind.\n");
  if (ok) def = v;
  return *this;
}

ParamDef& ParamDef::Default(const char* v) {
  const bool ok = ParamKind(type) == PBKind::kString;
  TableError(ok, "Marvolith: a parameter table gives a string default to another kind.\n");
  if (ok) def = std::string(v ? v : "");
  return *this;
}

ParamDef& ParamDef::Range(double low, double high) {
  has_range = true;
  range_low = std::min(low, high);
  range_high = std::max(low, high);
  return *this;
}

ParamDef& ParamDef::Accessor(PBAccessor* a) {
  accessor = a;
  return *this;
}

ParamDef& ParamDef::Validator(PBValidator* v) {
  validator = v;
  return *this;
}

ParamDef& ParamDef::Label(const char* text) {
  label = text;
  return *this;
}

bool ParamDef::StoredRange(double& low, double& high) const {
  const PBKind kind = ParamKind(type);
  if (!has_range || (kind != PBKind::kInt && kind != PBKind::kFloat)) return false;
  // The tables give ranges in the units the user sees.
  double scale = 1.0;
  if (BaseParamType(type) == TYPE_PCNT_FRAC) scale = 0.01;
  if (BaseParamType(type) == TYPE_ANGLE) scale = std::numbers::pi / 180.0;
  low = range_low * scale;
  high = range_high * scale;
  return true;
}

const char* ParamDef::DisplayName() const {
  if (label && *label) return label;
  return int_name ? int_name : "";
}

ParamBlockDesc2::ParamBlockDesc2(BlockID id,
                                 const char* name,
                                 int local,
                                 ClassDesc2* class_desc,
                                 int block_flags,
                                 std::initializer_list<ParamDef> params)
    : ID(id), int_name(name), local_name(local), cd(class_desc), flags(block_flags) {
  Init(std::span(params.begin(), params.size()), 0, 0, 0);
}

ParamBlockDesc2::ParamBlockDesc2(BlockID id,
                                 const char* name,
                                 int local,
                                 ClassDesc2* class_desc,
                                 int block_flags,
                                 int arg1,
                                 std::initializer_list<ParamDef> params)
    : ParamBlockDesc2(id,
                      name,
                      local,
                      class_desc,
                      block_flags,
                      arg1,
                      std::span<const ParamDef>(params.begin(), params.size())) {}

ParamBlockDesc2::ParamBlockDesc2(BlockID id,
                                 const char* name,
                                 int local,
                                 ClassDesc2* class_desc,
                                 int block_flags,
                                 int arg1,
                                 int arg2,
                                 std::initializer_list<ParamDef> params)
    : ID(id), int_name(name), local_name(local), cd(class_desc), flags(block_flags) {
  Init(std::span(params.begin(), params.size()), 2, arg1, arg2);
}

ParamBlockDesc2::ParamBlockDesc2(BlockID id,
                                 const char* name,
                                 int local,
                                 ClassDesc2* class_desc,
                                 int block_flags,
                                 int arg1,
                                 std::span<const ParamDef> params)
    : ID(id), int_name(name), local_name(local), cd(class_desc), flags(block_flags) {
  Init(params, 1, arg1, 0);
}

void ParamBlockDesc2::Init(std::span<const ParamDef> params,
                           int arg_count,
                           int arg1,
                           int arg2) {
  // The flags' arguments come in the host's order: version, then reference index.
  const int args[2] = {arg1, arg2};
  int next = 0;
  const int wanted = ((flags & P_VERSION) ? 1 : 0) + ((flags & P_AUTO_CONSTRUCT) ? 1 : 0);
  TableError(wanted == arg_count,
             "Marvolith: a parameter block table has arguments that do not match its flags.\n");
  if ((flags & P_VERSION) && next < arg_count) version = args[next++];
  if ((flags & P_AUTO_CONSTRUCT) && next < arg_count) ref_no = args[next++];
  if ((flags & P_AUTO_CONSTRUCT) && ref_no < 0) flags &= ~P_AUTO_CONSTRUCT;

  paramdefs_.assign(params.begin(), params.end());
  for (size_t i = 0; i < paramdefs_.size(); ++i) {
    const ParamDef& pd = paramdefs_[i];
    TableError(ParamKind(pd.type) != PBKind::kNone,
               "Marvolith: a parameter block table has a parameter of an unknown type.\n");
    const bool direct = pd.ID >= 0 && pd.ID <= kMaxDirectId;
    bool duplicate = false;
    for (size_t j = 0; j < i; ++j) duplicate = duplicate || paramdefs_[j].ID == pd.ID;
    TableError(!duplicate, "Marvolith: a parameter block table has two parameters with one id.\n");
    if (!direct || duplicate) continue;
    if (index_by_id_.size() <= static_cast<size_t>(pd.ID))
      index_by_id_.resize(static_cast<size_t>(pd.ID) + 1, -1);
    index_by_id_[static_cast<size_t>(pd.ID)] = static_cast<int>(i);
  }
  if (cd) cd->AddParamBlockDesc(this);
}

int ParamBlockDesc2::IDtoIndex(ParamID id) const {
  if (id >= 0 && static_cast<size_t>(id) < index_by_id_.size())
    return index_by_id_[static_cast<size_t>(id)];
  if (id >= 0 && id <= kMaxDirectId) return -1;
  for (size_t i = 0; i < paramdefs_.size(); ++i) {
    if (paramdefs_[i].ID == id) return static_cast<int>(i);
  }
  return -1;
}

const ParamDef* ParamBlockDesc2::GetParamDef(ParamID id) const {
  return GetParamDefByIndex(IDtoIndex(id));
}

const ParamDef* ParamBlockDesc2::GetParamDefByIndex(int i) const {
  return i >= 0 && i < Count() ? &paramdefs_[static_cast<size_t>(i)] : nullptr;
}

ParamID ParamBlockDesc2::IndextoID(int i) const {
  const ParamDef* pd = GetParamDefByIndex(i);
  return pd ? pd->ID : ParamID(-1);
}

int ParamBlockDesc2::NameToIndex(const char* name) const {
  if (!name || !*name) return -1;
  for (size_t i = 0; i < paramdefs_.size(); ++i) {
    const char* n = paramdefs_[i].int_name;
    if (n && *n && strcasecmp(n, name) == 0) return static_cast<int>(i);
  }
  return -1;
}

// ClassDesc2 members that belong to parameter blocks.

ParamBlockDesc2* ClassDesc2::GetParamBlockDescByID(BlockID id) {
  for (ParamBlockDesc2* pbd : pbdescs_) {
    if (pbd->ID == id) return pbd;
  }
  return nullptr;
}

void ClassDesc2::MakeAutoParamBlocks(ReferenceMaker* owner) {
  if (!owner) return;
  for (ParamBlockDesc2* pbd : pbdescs_) {
    if (!(pbd->flags & P_AUTO_CONSTRUCT)) continue;
    IParamBlock2* block = CreateParameterBlock2(pbd, owner);
    if (owner->ReplaceReference(pbd->ref_no, block) != REF_SUCCEED) {
      LogLine("Marvolith: an automatic parameter block could not be referenced by its owner.\n");
      block->MaybeAutoDelete();
    }
  }
}
