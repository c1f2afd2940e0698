// Copyright Marvolith contributors.
#include "host/interpreter/scripted_attrib.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <utility>

#include "host/core/diagnostics.h"
#include "host/params/iparam_block2.h"
#include "support/chunk_helpers.h"

namespace {

constexpr USHORT kClassIdChunk = 0x0001;
constexpr USHORT kSpecChunk = 0x0002;

// Definitions made this session; never freed, since blocks and the class directory point at
// them until the process ends.
std::vector<ScriptedAttribDef*>& Definitions() {
  static auto* defs = new std::vector<ScriptedAttribDef*>();
  return *defs;
}

// ---------------------------------------------------------------------------------------------
// The canonical text: one record a line, strings as <byte count>:<bytes> so that any name
// survives, floats in hexadecimal so that they come back bit for bit.

void PutString(std::string& out, const std::string& s) {
  out += std::to_string(s.size());
  out += ':';
  out += s;
}

void PutFloat(std::string& out, float f) {
  char buf[48];
  std::snprintf(buf, sizeof buf, " %a", static_cast<double>(f));
  out += buf;
}

void PutDefault(std::string& out, const ScriptedParamSpec& p) {
  switch (ParamKind(p.type)) {
    case PBKind::kInt:
      out += ' ' + std::to_string(std::get<int>(p.def));
      return;
    case PBKind::kFloat:
      PutFloat(out, std::get<float>(p.def));
      return;
    case PBKind::kPoint3: {
      const Point3& v = std::get<Point3>(p.def);
      for (int i = 0; i < 3; ++i) PutFloat(out, v[i]);
      return;
    }
    case PBKind::kPoint4: {
      const Point4& v = std::get<Point4>(p.def);
      for (int i = 0; i < 4; ++i) PutFloat(out, v[i]);
      return;
    }
    case PBKind::kMatrix3: {
      const Matrix3& m = std::get<Matrix3>(p.def);
      for (int r = 0; r < 4; ++r) {
        for (int i = 0; i < 3; ++i) PutFloat(out, m.GetRow(r)[i]);
      }
      return;
    }
    case PBKind::kString:
      out += ' ';
      PutString(out, std::get<std::string>(p.def));
      return;
    default:
      out += " -";
      return;
  }
}

// Reads the records of the canonical text; every read is checked.
class SpecReader {
 public:
  explicit SpecReader(const std::string& text) : s_(text) {}

  bool AtEnd() const { return pos_ >= s_.size(); }
  bool Char(char& c) {
    if (AtEnd()) return false;
    c = s_[pos_++];
    return true;
  }
  bool Expect(char want) {
    char c = 0;
    return Char(c) && c == want;
  }
  bool String(std::string& out) {
    size_t n = 0;
    bool digits = false;
    while (!AtEnd() && s_[pos_] >= '0' && s_[pos_] <= '9') {
      n = n * 10 + static_cast<size_t>(s_[pos_++] - '0');
      if (n > s_.size()) return false;
      digits = true;
    }
    if (!digits || !Expect(':') || s_.size() - pos_ < n) return false;
    out = s_.substr(pos_, n);
    pos_ += n;
    return true;
  }
  bool Int(int& v) {
    if (!Expect(' ')) return false;
    const char* begin = s_.c_str() + pos_;
    char* end = nullptr;
    const long x = std::strtol(begin, &end, 10);
    if (end == begin || x < INT32_MIN || x > INT32_MAX) return false;
    pos_ += static_cast<size_t>(end - begin);
    v = static_cast<int>(x);
    return true;
  }
  bool Float(float& v) {
    if (!Expect(' ')) return false;
    const char* begin = s_.c_str() + pos_;
    char* end = nullptr;
    const double x = std::strtod(begin, &end);
    if (end == begin) return false;
    pos_ += static_cast<size_t>(end - begin);
    v = static_cast<float>(x);
    return true;
  }

 private:
  const std::string& s_;
  size_t pos_ = 0;
};

bool ReadDefault(SpecReader& r, ScriptedParamSpec& p) {
  switch (ParamKind(p.type)) {
    case PBKind::kInt: {
      int v = 0;
      if (!r.Int(v)) return false;
      p.def = v;
      return true;
    }
    case PBKind::kFloat: {
      float v = 0.0f;
      if (!r.Float(v)) return false;
      p.def = v;
      return true;
    }
    case PBKind::kPoint3: {
      Point3 v;
      for (int i = 0; i < 3; ++i) {
        if (!r.Float(v[i])) return false;
      }
      p.def = v;
      return true;
    }
    case PBKind::kPoint4: {
      Point4 v;
      for (int i = 0; i < 4; ++i) {
        if (!r.Float(v[i])) return false;
      }
      p.def = v;
      return true;
    }
    case PBKind::kMatrix3: {
      Matrix3 m;
      for (int row = 0; row < 4; ++row) {
        Point3 v;
        for (int i = 0; i < 3; ++i) {
          if (!r.Float(v[i])) return false;
        }
        m.SetRow(row, v);
      }
      p.def = m;
      return true;
    }
    case PBKind::kString: {
      std::string s;
      if (!r.Expect(' ') || !r.String(s)) return false;
      p.def = std::move(s);
      return true;
    }
    case PBKind::kNode:
    case PBKind::kRefTarg:
      p.def = ZeroStoredValue(ParamKind(p.type));
      return r.Expect(' ') && r.Expect('-');
    case PBKind::kNone:
      break;
  }
  return false;
}

// 64-bit FNV-1a: the class of a definition without an attribID.
Class_ID HashClassID(const std::string& text) {
  std::uint64_t h = 0xcbf29ce484222325ull;
  for (unsigned char c : text) {
    h ^= c;
    h *= 0x100000001b3ull;
  }
  return Class_ID(static_cast<ULONG>(h >> 32), static_cast<ULONG>(h & 0xffffffffu));
}

// The class through which scene files make attribute objects; Load gives them a definition.
class ScriptedCustAttribClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool loading) override {
    return loading ? new ScriptedCustAttrib(nullptr, true) : nullptr;
  }
  const char* ClassName() override { return "ScriptedCustAttrib"; }
  const char* InternalName() override { return "ScriptedCustAttrib"; }
  SClass_ID SuperClassID() override { return CUST_ATTRIB_CLASS_ID; }
  Class_ID ClassID() override { return SCRIPTED_CUSTATTRIB_CLASS_ID; }
  const char* Category() override { return ""; }
};

}  // namespace

std::string ScriptedSpecText(const ScriptedAttribSpec& spec) {
  std::string out = "A ";
  PutString(out, spec.name);
  out += '\n';
  for (const ScriptedBlockSpec& b : spec.blocks) {
    out += "B ";
    PutString(out, b.name);
    out += '\n';
    for (const ScriptedParamSpec& p : b.params) {
      out += "P ";
      PutString(out, p.name);
      out += ' ' + std::to_string(p.type) + ' ' + std::to_string(p.flags) + ' ' +
             std::to_string(p.tab_size);
      PutDefault(out, p);
      out += '\n';
    }
  }
  return out;
}

bool ParseScriptedSpecText(const std::string& text, ScriptedAttribSpec& spec) {
  SpecReader r(text);
  spec = {};
  if (!r.Expect('A') || !r.Expect(' ') || !r.String(spec.name) || !r.Expect('\n')) return false;
  while (!r.AtEnd()) {
    char c = 0;
    if (!r.Char(c) || !r.Expect(' ')) return false;
    if (c == 'B') {
      ScriptedBlockSpec b;
      if (!r.String(b.name) || !r.Expect('\n')) return false;
      spec.blocks.push_back(std::move(b));
      continue;
    }
    ScriptedParamSpec p;
    if (c != 'P' || spec.blocks.empty() || !r.String(p.name) || !r.Int(p.type) || !r.Int(p.flags) ||
        !r.Int(p.tab_size) || p.tab_size < 0 || p.tab_size > IParamBlock2::kMaxLoadedEntries)
      return false;
    if (ParamKind(p.type) == PBKind::kNone || !ReadDefault(r, p) || !r.Expect('\n')) return false;
    spec.blocks.back().params.push_back(std::move(p));
  }
  return true;
}

// ---------------------------------------------------------------------------------------------
// ScriptedAttribDef

ScriptedAttribDef::ScriptedAttribDef(ScriptedAttribSpec spec, Class_ID id)
    : spec_(std::move(spec)), text_(ScriptedSpecText(spec_)), id_(id) {
  for (size_t b = 0; b < spec_.blocks.size(); ++b) {
    const ScriptedBlockSpec& block = spec_.blocks[b];
    std::vector<ParamDef> defs;
    for (size_t i = 0; i < block.params.size(); ++i) {
      const ScriptedParamSpec& p = block.params[i];
      ParamDef pd(static_cast<ParamID>(i), p.name.c_str(), p.type, p.flags);
      pd.TabSize(p.tab_size);
      pd.def = p.def;
      defs.push_back(std::move(pd));
    }
    // Construction registers the block with this class.
    blocks_.push_back(std::make_unique<ParamBlockDesc2>(
        static_cast<BlockID>(b), block.name.c_str(), 0, this, P_AUTO_CONSTRUCT, static_cast<int>(b),
        std::span<const ParamDef>(defs)));
  }
}

Animatable* ScriptedAttribDef::Create(bool loading) {
  return new ScriptedCustAttrib(this, loading);
}

ScriptedAttribDef* DefineScriptedAttrib(const ScriptedAttribSpec& spec,
                                        const Class_ID* explicit_id,
                                        std::string* error) {
  const std::string text = ScriptedSpecText(spec);
  const Class_ID id = explicit_id ? *explicit_id : HashClassID(text);
  for (ScriptedAttribDef* def : Definitions()) {
    if (def->ClassID() != id) continue;
    if (def->Text() == text) return def;
    if (error) {
      *error =
          "attributes " + spec.name + " has the class of another definition with other parameters";
    }
    return nullptr;
  }
  if (ClassDirectory::Get().FindClass(CUST_ATTRIB_CLASS_ID, id)) {
    if (error) *error = "attributes " + spec.name + " has the class of a registered class";
    return nullptr;
  }
  auto* def = new ScriptedAttribDef(spec, id);
  Definitions().push_back(def);
  ClassDirectory::Get().AddClass(def);
  return def;
}

// ---------------------------------------------------------------------------------------------
// ScriptedCustAttrib

ScriptedCustAttrib::ScriptedCustAttrib(ScriptedAttribDef* def, bool loading) : def_(def) {
  if (!def_) return;
  blocks_.assign(static_cast<size_t>(def_->BlockCount()), nullptr);
  if (!loading) def_->MakeAutoParamBlocks(this);
}

void ScriptedCustAttrib::GetClassName(MSTR& s, bool) const {
  s = def_ ? def_->Spec().name : MSTR("ScriptedCustAttrib");
}

MSTR ScriptedCustAttrib::GetName(bool) { return ClassName(); }

RefTargetHandle ScriptedCustAttrib::GetReference(int i) {
  return i >= 0 && i < NumRefs() ? blocks_[static_cast<size_t>(i)] : nullptr;
}

void ScriptedCustAttrib::SetReference(int i, RefTargetHandle target) {
  if (i < 0 || i >= NumRefs()) return;
  auto* pb = static_cast<IParamBlock2*>(target);
  blocks_[static_cast<size_t>(i)] = pb;
  // A block read from a file cannot find this owner by class: every definition shares it.
  if (pb && !pb->GetOwner()) pb->SetOwner(this);
}

MSTR ScriptedCustAttrib::SubAnimName(int i, bool) {
  return def_ && i >= 0 && i < NumRefs() ? def_->Spec().blocks[static_cast<size_t>(i)].name
                                         : MSTR();
}

IParamBlock2* ScriptedCustAttrib::GetParamBlock(int i) {
  return static_cast<IParamBlock2*>(GetReference(i));
}

IParamBlock2* ScriptedCustAttrib::GetParamBlockByID(BlockID id) {
  for (IParamBlock2* pb : blocks_) {
    if (pb && pb->ID() == id) return pb;
  }
  return nullptr;
}

RefResult ScriptedCustAttrib::NotifyRefChanged(
    const Interval&, RefTargetHandle, PartID&, RefMessage, bool) {
  return REF_SUCCEED;
}

RefTargetHandle ScriptedCustAttrib::Clone(RemapDir& remap) {
  auto* clone = new ScriptedCustAttrib(def_, true);
  for (int i = 0; i < NumRefs(); ++i) clone->ReplaceReference(i, remap.CloneRef(GetReference(i)));
  BaseClone(this, clone, remap);
  return clone;
}

IOResult ScriptedCustAttrib::Save(ISave* isave) {
  if (!def_) return IO_ERROR;
  const std::uint32_t id[2] = {def_->ClassID().PartA(), def_->ClassID().PartB()};
  if (SaveChunk(isave, kClassIdChunk, id) != IO_OK) return IO_ERROR;
  isave->BeginChunk(kSpecChunk);
  const IOResult res = isave->WriteWString(def_->Text());
  isave->EndChunk();
  return res;
}

IOResult ScriptedCustAttrib::Load(ILoad* iload) {
  std::uint32_t id[2] = {0, 0};
  bool have_id = false;
  std::string text;
  const IOResult res = ForEachChunk(iload, [&](USHORT chunk) {
    if (chunk == kClassIdChunk) {
      have_id = true;
      return LoadValue(iload, id);
    }
    if (chunk == kSpecChunk) return iload->ReadWStringChunk(text);
    return IO_OK;
  });
  if (res != IO_OK) return res;
  ScriptedAttribSpec spec;
  if (!have_id || !ParseScriptedSpecText(text, spec)) {
    LogLine("Marvolith: a scripted attribute's definition could not be read.\n");
    return IO_ERROR;
  }
  const Class_ID cid(id[0], id[1]);
  std::string error;
  ScriptedAttribDef* def = DefineScriptedAttrib(spec, &cid, &error);
  if (!def) {
    LogLine("Marvolith: " + error + ".\n");
    return IO_ERROR;
  }
  def_ = def;
  blocks_.assign(static_cast<size_t>(def_->BlockCount()), nullptr);
  return IO_OK;
}

void RegisterScriptedAttribClass() {
  static ScriptedCustAttribClassDesc desc;
  static const bool added = ClassDirectory::Get().AddClass(&desc);
  (void)added;
}
