// Copyright Marvolith contributors.
// Custom attributes from scripts: `attributes` definitions and the custAttributes functions.
#include <algorithm>
#include <string>

#include "host/core/cust_attrib.h"
#include "host/interpreter/internal/runner_impl.h"
#include "host/interpreter/scripted_attrib.h"
#include "host/params/iparam_block2.h"
#include "host/scene/inode.h"
#include "host/scene/object.h"
#include "host/script/fp_interface.h"

using namespace script_internal;

namespace {

struct TypeName {
  const char* name;
  ParamType2 type;
};

// The parameter types of definitions by their script names; "<name>Tab" gives the table.
constexpr TypeName kParamTypes[] = {
    {"float", TYPE_FLOAT},       {"integer", TYPE_INT},       {"boolean", TYPE_BOOL},
    {"string", TYPE_STRING},     {"node", TYPE_INODE},        {"point3", TYPE_POINT3},
    {"point4", TYPE_POINT4},     {"angle", TYPE_ANGLE},       {"percent", TYPE_PCNT_FRAC},
    {"worldUnits", TYPE_WORLD},  {"color", TYPE_RGBA},        {"frgba", TYPE_FRGBA},
    {"time", TYPE_TIMEVALUE},    {"index", TYPE_INDEX},       {"matrix3", TYPE_MATRIX3},
    {"maxObject", TYPE_REFTARG}, {"filename", TYPE_FILENAME},
};

ParamType2 ParamTypeOf(const ScriptValue& v, const std::string& param) {
  if (!v.Is(FPType::TYPE_NAME)) {
    Raise("Runtime error: parameter " + param +
          " needs type:#<type>, got: " + ScriptValueString(v));
  }
  const std::string& name = v.AsString();
  for (const TypeName& t : kParamTypes) {
    if (ScriptNameEquals(name, t.name)) return t.type;
    if (ScriptNameEquals(name, std::string(t.name) + "Tab")) return t.type | TYPE_TAB;
  }
  Raise("Runtime error: unknown parameter type: " + ScriptValueString(v));
}

// The default of p in stored units, converted as a write of the parameter converts.
PBStoredValue StoredDefault(const std::string& param, ParamType2 type, const ScriptValue& v) {
  const PBKind kind = ParamKind(type);
  if (kind == PBKind::kNode || kind == PBKind::kRefTarg) {
    // Objects start empty; a script may say so.
    if (!v.IsUndefined()) Raise("Runtime error: parameter " + param + " takes no default");
    return ZeroStoredValue(kind);
  }
  const FPValue fp = ConvertParamValue(BaseParamType(type), v);
  switch (kind) {
    case PBKind::kInt:
      return fp.AsInt();
    case PBKind::kFloat:
      return fp.AsFloat();
    case PBKind::kPoint3:
      if (BaseParamType(type) == TYPE_RGBA) {
        const Color c = fp.AsColor();
        return Point3(c.r, c.g, c.b);
      }
      return fp.AsPoint3();
    case PBKind::kPoint4:
      return fp.AsPoint4();
    case PBKind::kMatrix3:
      return fp.AsMatrix3();
    case PBKind::kString:
      return fp.AsString();
    default:
      Raise("Runtime error: parameter " + param + " takes no default");
  }
}

// The attribute definition a value holds, or null.
ScriptedAttribDef* DefOf(const ScriptValue& v) {
  const ScriptClass* cls = v.AsClass();
  return cls ? dynamic_cast<ScriptedAttribDef*>(cls->desc) : nullptr;
}

ScriptedAttribDef* ExpectDef(const ScriptValue& v) {
  ScriptedAttribDef* def = DefOf(v);
  if (!def) throw ConversionError(v.ToFPValue(), "AttributeDef");
  return def;
}

// The animatable whose container custAttributes works on: a node's base object unless
// baseObject:false asks for the node itself.
Animatable* AttribOwner(ScriptCall& c) {
  const ScriptValue& v = c.Arg(0);
  if (INode* node = v.AsNode()) {
    const ScriptValue* base = c.Key("baseObject");
    if (base && !ToBool(*base, "baseObject")) return node;
    Object* obj = node->GetObjectRef();
    if (Animatable* b = obj ? obj->FindBaseObject() : nullptr) return b;
    return node;
  }
  if (v.GetKind() == ScriptValue::Kind::kValue) {
    if (Animatable* anim = AnimOf(v)) return anim;
  }
  throw ConversionError(v.ToFPValue(), "MAXWrapper");
}

int AttribCount(Animatable* owner) {
  ICustAttribContainer* cc = owner->GetCustAttribContainer();
  return cc ? cc->GetNumCustAttribs() : 0;
}

// The 0-based index of the attribute that v names in owner's container: a 1-based number or a
// definition (its first attribute). Raises, naming shown (the object as the script gave it), when
// there is none.
int AttribIndex(Animatable* owner, const ScriptValue& shown, const ScriptValue& v) {
  const int count = AttribCount(owner);
  if (ScriptedAttribDef* def = DefOf(v)) {
    ICustAttribContainer* cc = owner->GetCustAttribContainer();
    for (int i = 0; i < count; ++i) {
      auto* ca = dynamic_cast<ScriptedCustAttrib*>(cc->GetCustAttrib(i));
      if (ca && ca->GetDef() == def) return i;
    }
    Raise("Runtime error: no custom attribute " + std::string(def->ClassName()) + " on " +
          ScriptValueString(shown));
  }
  if (!v.IsNumber()) throw ConversionError(v.ToFPValue(), "Integer");
  const int i = ToInt(v);
  if (i < 1 || i > count)
    Raise("Runtime error: custom attribute index out of range: " + ScriptValueString(v));
  return i - 1;
}

ScriptValue AddAttrib(ScriptCall& c) {
  c.ExpectArgs(2, 2);
  Animatable* owner = AttribOwner(c);
  ScriptedAttribDef* def = ExpectDef(c.Arg(1));
  // One attribute of a definition per object, as the host keeps it.
  if (ICustAttribContainer* cc = owner->GetCustAttribContainer()) {
    for (int i = 0; i < cc->GetNumCustAttribs(); ++i) {
      auto* ca = dynamic_cast<ScriptedCustAttrib*>(cc->GetCustAttrib(i));
      if (ca && ca->GetDef() == def) return FPValue(false);
    }
  }
  if (!owner->GetCustAttribContainer()) owner->AllocCustAttribContainer();
  ICustAttribContainer* cc = owner->GetCustAttribContainer();
  if (!cc) Raise("Runtime error: " + ScriptValueString(c.Arg(0)) + " cannot hold attributes");
  cc->AppendCustAttrib(static_cast<CustAttrib*>(def->Create(false)));
  return FPValue(true);
}

ScriptValue CountAttribs(ScriptCall& c) {
  c.ExpectArgs(1, 1);
  return FPValue(AttribCount(AttribOwner(c)));
}

ScriptValue GetAttrib(ScriptCall& c) {
  c.ExpectArgs(2, 2);
  Animatable* owner = AttribOwner(c);
  const int i = AttribIndex(owner, c.Arg(0), c.Arg(1));
  return ObjectValue(owner->GetCustAttribContainer()->GetCustAttrib(i));
}

ScriptValue DeleteAttrib(ScriptCall& c) {
  c.ExpectArgs(2, 2);
  Animatable* owner = AttribOwner(c);
  const int i = AttribIndex(owner, c.Arg(0), c.Arg(1));
  owner->GetCustAttribContainer()->RemoveCustAttrib(i);
  return FPValue(true);
}

ScriptValue GetDefs(ScriptCall& c) {
  c.ExpectArgs(1, 1);
  Animatable* owner = AttribOwner(c);
  std::vector<ScriptValue> defs;
  ICustAttribContainer* cc = owner->GetCustAttribContainer();
  for (int i = 0; i < AttribCount(owner); ++i) {
    auto* ca = dynamic_cast<ScriptedCustAttrib*>(cc->GetCustAttrib(i));
    if (ca && ca->GetDef()) {
      defs.push_back(ScriptValue::Class({ca->GetDef(), ca->GetDef()->ClassName(), false}));
    } else {
      defs.emplace_back();
    }
  }
  return ScriptValue::Array(std::move(defs));
}

}  // namespace

ScriptValue ScriptRunner::Impl::EvalAttributes(const AstNode& n) {
  ScriptedAttribSpec spec;
  spec.name = n.text;
  Class_ID id;
  bool explicit_id = false;
  for (const AstNamed& k : n.keys) {
    if (!ScriptNameEquals(k.name, "attribID")) continue;  // version:, silentErrors: and the like
    ScriptValue v = Eval(*k.value);
    if (!v.IsArray() || v.Count() != 2 || !v.Items()[0].IsNumber() || !v.Items()[1].IsNumber())
      Raise("Runtime error: attribID wants #(a, b), got: " + ScriptValueString(v));
    id = Class_ID(static_cast<ULONG>(ToInt(v.Items()[0])), static_cast<ULONG>(ToInt(v.Items()[1])));
    explicit_id = true;
  }
  for (const auto& block : n.children) {
    ScriptedBlockSpec b;
    b.name = block->text;
    for (const auto& param : block->children) {
      ScriptedParamSpec p;
      p.name = param->text;
      for (const ScriptedParamSpec& other : b.params) {
        if (ScriptNameEquals(other.name, p.name))
          Raise("Runtime error: parameter " + p.name + " is defined twice");
      }
      const AstNode* type = nullptr;
      const AstNode* def = nullptr;
      bool animatable = true;
      for (const AstNamed& k : param->keys) {
        if (ScriptNameEquals(k.name, "type")) {
          type = k.value.get();
        } else if (ScriptNameEquals(k.name, "default")) {
          def = k.value.get();
        } else if (ScriptNameEquals(k.name, "animatable")) {
          animatable = ToBool(Eval(*k.value), "animatable");
        } else if (ScriptNameEquals(k.name, "tabSize")) {
          p.tab_size = ToInt(Eval(*k.value));
          if (p.tab_size < 0 || p.tab_size > IParamBlock2::kMaxLoadedEntries)
            Raise("Runtime error: tabSize out of range: " + std::to_string(p.tab_size));
        } else if (ScriptNameEquals(k.name, "tabSizeVariable")) {
          if (ToBool(Eval(*k.value), "tabSizeVariable")) p.flags |= P_VARIABLE_SIZE;
        }
        // ui:, enabled:, invisibleInTV:, localizedName: and the like serve the user interface.
      }
      if (!type) Raise("Runtime error: parameter " + p.name + " needs type:#<type>");
      p.type = ParamTypeOf(Eval(*type), p.name);
      if (animatable && KindCanAnimate(ParamKind(p.type))) p.flags |= P_ANIMATABLE;
      p.def = def ? StoredDefault(p.name, p.type, Eval(*def)) : ZeroStoredValue(ParamKind(p.type));
      b.params.push_back(std::move(p));
    }
    spec.blocks.push_back(std::move(b));
  }
  std::string error;
  ScriptedAttribDef* made = DefineScriptedAttrib(spec, explicit_id ? &id : nullptr, &error);
  if (!made) Raise("Runtime error: " + error);
  return ScriptValue::Class({made, made->ClassName(), false});
}

namespace script_internal {

ScriptValue AttribByName(Animatable* anim, std::string_view name) {
  ICustAttribContainer* cc = anim->GetCustAttribContainer();
  for (int i = 0; cc && i < cc->GetNumCustAttribs(); ++i) {
    CustAttrib* ca = cc->GetCustAttrib(i);
    if (!ca) continue;
    // A name with spaces reads with underscores, as scripts spell sub-anim names.
    std::string spelled = ca->GetName();
    std::replace(spelled.begin(), spelled.end(), ' ', '_');
    if (ScriptNameEquals(spelled, name)) return ObjectValue(ca);
  }
  return ScriptValue();
}

void RegisterAttributeGlobals() {
  RegisterScriptGlobal("custAttributes.add", AddAttrib);
  RegisterScriptGlobal("custAttributes.count", CountAttribs);
  RegisterScriptGlobal("custAttributes.get", GetAttrib);
  RegisterScriptGlobal("custAttributes.delete", DeleteAttrib);
  RegisterScriptGlobal("custAttributes.getDefs", GetDefs);
}

}  // namespace script_internal
