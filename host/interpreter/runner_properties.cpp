// Copyright Marvolith contributors.
// Properties of script values: nodes, parameter blocks, published interfaces, tracks and the
// components of points, quaternions, colours and matrices.
#include <algorithm>
#include <climits>
#include <numbers>

#include "host/core/control.h"
#include "host/core/cust_attrib.h"
#include "host/interpreter/internal/runner_impl.h"
#include "host/math/affine.h"
#include "host/params/iparam_block2.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/scene/object.h"
#include "host/scene/scene.h"
#include "host/script/fp_dispatch.h"
#include "host/script/script_value.h"

namespace script_internal {
namespace {

constexpr float kDegPerRad = static_cast<float>(180.0 / std::numbers::pi);
constexpr int kMaxArrayCount = 10'000'000;

bool Named(std::string_view name, std::string_view want) { return ScriptNameEquals(name, want); }

[[noreturn]] void ReadOnly(std::string_view name) {
  Raise("Cannot set read-only property: " + std::string(name));
}

[[noreturn]] void CannotConvert(const ScriptValue& v, std::string_view type) {
  Raise("Unable to convert: " + ScriptValueString(v) + " to type: " + std::string(type));
}

Point3 ToPoint3(const ScriptValue& v) {
  if (!v.Is(FPType::TYPE_POINT3)) CannotConvert(v, "Point3");
  return v.AsPoint3();
}

Quat ToQuat(const ScriptValue& v) {
  if (!v.Is(FPType::TYPE_QUAT) && !v.Is(FPType::TYPE_ANGAXIS)) CannotConvert(v, "Quat");
  return v.Fp().AsQuat();
}

Matrix3 ToMatrix(const ScriptValue& v) {
  if (!v.Is(FPType::TYPE_MATRIX3)) CannotConvert(v, "Matrix3");
  return v.Fp().AsMatrix3();
}

// ---------------------------------------------------------------------------------------------
// Parameter blocks.

struct ParamRef {
  IParamBlock2* pb = nullptr;
  const ParamDef* def = nullptr;
};

bool FindParamIn(Animatable* anim, const std::string& name, ParamRef& out) {
  for (int i = 0; i < anim->NumParamBlocks(); ++i) {
    IParamBlock2* pb = anim->GetParamBlock(i);
    if (!pb || !pb->GetDesc()) continue;
    const int index = pb->GetDesc()->NameToIndex(name.c_str());
    if (index >= 0) {
      out = {pb, pb->GetDesc()->GetParamDefByIndex(index)};
      return out.def != nullptr;
    }
  }
  return false;
}

// A parameter of anim's own blocks, else of the blocks of its custom attributes.
bool FindParam(Animatable* anim, std::string_view name, ParamRef& out) {
  const std::string key(name);
  if (FindParamIn(anim, key, out)) return true;
  if (ICustAttribContainer* cc = anim->GetCustAttribContainer()) {
    for (int i = 0; i < cc->GetNumCustAttribs(); ++i) {
      CustAttrib* ca = cc->GetCustAttrib(i);
      if (ca && FindParamIn(ca, key, out)) return true;
    }
  }
  return false;
}

ScriptValue ReadEntry(IParamBlock2* pb, const ParamDef& def, TimeValue t, int i) {
  const ParamType2 base = BaseParamType(def.type);
  const ParamID id = def.ID;
  switch (ParamKind(base)) {
    case PBKind::kInt: {
      const int v = pb->GetInt(id, t, i);
      if (base == TYPE_BOOL) return FPValue(v != 0);
      if (base == TYPE_INDEX) return FPValue::Index(v);
      if (base == TYPE_TIMEVALUE) return FPValue::Time(v);
      return FPValue(v);
    }
    case PBKind::kFloat: {
      const float f = pb->GetFloat(id, t, i);
      if (base == TYPE_ANGLE) return FPValue::Angle(f);
      if (base == TYPE_PCNT_FRAC) return FPValue::PcntFrac(f);
      return FPValue(f);
    }
    case PBKind::kPoint3: {
      const Point3 p = pb->GetPoint3(id, t, i);
      return base == TYPE_RGBA ? FPValue(Color(p)) : FPValue(p);
    }
    case PBKind::kPoint4:
      return FPValue(pb->GetPoint4(id, t, i));
    case PBKind::kMatrix3:
      return FPValue(pb->GetMatrix3(id, t, i));
    case PBKind::kString:
      return FPValue(pb->GetStr(id, t, i));
    case PBKind::kNode:
      return FPValue(pb->GetINode(id, t, i));
    case PBKind::kRefTarg:
      return ObjectValue(pb->GetReferenceTarget(id, t, i));
    case PBKind::kNone:
      break;
  }
  return ScriptValue();
}

ScriptValue ReadParam(const ParamRef& ref, TimeValue t) {
  if (!IsParamTypeTab(ref.def->type)) return ReadEntry(ref.pb, *ref.def, t, 0);
  std::vector<ScriptValue> items;
  const int count = ref.pb->Count(ref.def->ID);
  for (int i = 0; i < count; ++i) items.push_back(ReadEntry(ref.pb, *ref.def, t, i));
  return ScriptValue::Array(std::move(items));
}

}  // namespace

FPValue ConvertParamValue(ParamType2 base, const ScriptValue& v) {
  switch (base) {
    case TYPE_RGBA:
      if (v.Is(FPType::TYPE_COLOR)) return v.Fp();
      if (v.Is(FPType::TYPE_POINT3)) return FPValue(Color(v.AsPoint3() / 255.0f));
      CannotConvert(v, "Color");
    case TYPE_HSV:
      return FPValue(ToPoint3(v));
    case TYPE_COLOR_CHANNEL:
      return FPValue(ToFloat(v));
    case TYPE_RADIOBTN_INDEX:
      return FPValue(ToInt(v));
    case TYPE_FRGBA:
      if (v.Is(FPType::TYPE_COLOR)) {
        const Color c = v.Fp().AsColor();
        return FPValue(Point4(c.r, c.g, c.b, 1.0f));
      }
      if (!v.Is(FPType::TYPE_POINT4)) CannotConvert(v, "Color");
      return v.Fp();
    default:
      return FromScriptValue(v.ToFPValue(), static_cast<FPType>(base));
  }
}

namespace {

// The C++ form of v for an entry of def; raises when v does not convert.
FPValue ConvertEntry(const ParamDef& def, const ScriptValue& v) {
  return ConvertParamValue(BaseParamType(def.type), v);
}

bool WriteEntry(IParamBlock2* pb, const ParamDef& def, const FPValue& c, TimeValue t, int i) {
  const ParamType2 base = BaseParamType(def.type);
  const ParamID id = def.ID;
  switch (ParamKind(base)) {
    case PBKind::kInt:
      return pb->SetValue(id, t, c.AsInt(), i);
    case PBKind::kFloat:
      return pb->SetValue(id, t, c.AsFloat(), i);
    case PBKind::kPoint3:
      if (base == TYPE_RGBA) return pb->SetValue(id, t, c.AsColor(), i);
      return pb->SetValue(id, t, c.AsPoint3(), i);
    case PBKind::kPoint4:
      return pb->SetValue(id, t, c.AsPoint4(), i);
    case PBKind::kMatrix3:
      return pb->SetValue(id, t, c.AsMatrix3(), i);
    case PBKind::kString:
      return pb->SetValue(id, t, MSTR(c.AsString()), i);
    case PBKind::kNode:
      return pb->SetValue(id, t, c.AsNode(), i);
    case PBKind::kRefTarg:
      return pb->SetValue(id, t, c.AsRefTarg(), i);
    case PBKind::kNone:
      break;
  }
  return false;
}

[[noreturn]] void Refused(const ParamDef& def, const ScriptValue& v) {
  Raise("Runtime error: " + std::string(def.int_name ? def.int_name : "the parameter") +
        " refused the value " + ScriptValueString(v));
}

void WriteParam(const ParamRef& ref, const ScriptValue& v, TimeValue t) {
  const ParamDef& def = *ref.def;
  if (!IsParamTypeTab(def.type)) {
    if (!WriteEntry(ref.pb, def, ConvertEntry(def, v), t, 0)) Refused(def, v);
    return;
  }
  if (!v.IsArray()) CannotConvert(v, "Array");
  // Every entry converts before anything changes.
  std::vector<FPValue> entries;
  for (const ScriptValue& item : v.Items()) entries.push_back(ConvertEntry(def, item));
  if (!ref.pb->SetCount(def.ID, static_cast<int>(entries.size()))) Refused(def, v);
  for (size_t i = 0; i < entries.size(); ++i) {
    if (!WriteEntry(ref.pb, def, entries[i], t, static_cast<int>(i))) Refused(def, v);
  }
}

// ---------------------------------------------------------------------------------------------
// Published interfaces of objects.

std::vector<FPInterface*> Mixins(Animatable* anim) {
  std::vector<FPInterface*> out;
  ClassDesc2* cd = ClassDirectory::Get().FindClass(anim->SuperClassID(), anim->ClassID());
  if (!cd) return out;
  for (int i = 0; i < cd->NumInterfaces(); ++i) {
    FPInterface* table = cd->GetInterfaceAt(i);
    FPInterfaceDesc* desc = table ? table->GetDesc() : nullptr;
    if (!desc || !(desc->Flags() & FP_MIXIN)) continue;
    if (FPInterface* fpi = GetFPInterface(anim, desc->ID())) out.push_back(fpi);
  }
  return out;
}

ScriptValue FromResult(const FPResult& r, std::string_view name) {
  if (r.status != FPS_OK) Raise("Runtime error: " + std::string(name) + " failed");
  return ScriptValue(r.value);
}

int FindSubAnimIndex(Animatable* anim, std::string_view name) {
  for (int i = 0; i < anim->NumSubs(); ++i) {
    if (Named(ScriptSubAnimName(anim, i), name)) return i;
  }
  return -1;
}

int FindSubAnimOf(Animatable* parent, Animatable* sub) {
  if (!parent || !sub) return -1;
  for (int i = 0; i < parent->NumSubs(); ++i) {
    if (parent->SubAnim(i) == sub) return i;
  }
  return -1;
}

// ---------------------------------------------------------------------------------------------
// Generic animatables: parameters, published properties, sub-anims.

bool GetAnimProperty(Animatable* anim, std::string_view name, TimeValue t, ScriptValue& out) {
  ParamRef ref;
  if (FindParam(anim, name, ref)) {
    out = ReadParam(ref, t);
    return true;
  }
  for (FPInterface* fpi : Mixins(anim)) {
    FPInterfaceDesc* desc = fpi->GetDesc();
    if (desc->FindProperty(name)) {
      out = FromResult(GetProperty(fpi, name), name);
      return true;
    }
    if (Named(desc->InternalName(), name)) {
      out = ScriptValue::Mixin(anim, desc->ID());
      return true;
    }
  }
  if (ScriptValue ca = AttribByName(anim, name); !ca.IsUndefined()) {
    out = std::move(ca);
    return true;
  }
  if (const int i = FindSubAnimIndex(anim, name); i >= 0) {
    out = SubAnimValue(anim, i, t);
    return true;
  }
  if (Named(name, "numSubs")) {
    out = FPValue(anim->NumSubs());
    return true;
  }
  if (auto* c = dynamic_cast<Control*>(anim)) {
    if (Named(name, "value")) {
      out = ControllerValue(c, t);
      return true;
    }
    if (GetControllerExtra(c, name, out)) return true;
    if (Named(name, "isAnimated")) {
      out = FPValue(c->IsAnimated());
      return true;
    }
  }
  return false;
}

void SetControllerValue(Control* c, const ScriptValue& v, TimeValue t);

bool SetAnimProperty(Animatable* anim, std::string_view name, const ScriptValue& v, TimeValue t) {
  ParamRef ref;
  if (FindParam(anim, name, ref)) {
    WriteParam(ref, v, t);
    return true;
  }
  for (FPInterface* fpi : Mixins(anim)) {
    if (fpi->GetDesc()->FindProperty(name)) {
      FromResult(SetProperty(fpi, name, v.ToFPValue()), name);
      return true;
    }
  }
  if (const int i = FindSubAnimIndex(anim, name); i >= 0) {
    SetSubAnimValue(anim, i, v, t);
    return true;
  }
  if (auto* c = dynamic_cast<Control*>(anim); c && Named(name, "value")) {
    SetControllerValue(c, v, t);
    return true;
  }
  if (auto* c = dynamic_cast<Control*>(anim)) return SetControllerExtra(c, name, v);
  return false;
}

void SetControllerValue(Control* c, const ScriptValue& v, TimeValue t) {
  switch (c->SuperClassID()) {
    case CTRL_FLOAT_CLASS_ID: {
      float f = ToFloat(v);
      c->SetValue(t, &f);
      return;
    }
    case CTRL_POINT3_CLASS_ID:
    case CTRL_POSITION_CLASS_ID: {
      Point3 p = v.Is(FPType::TYPE_COLOR)
                     ? Point3(v.Fp().AsColor().r, v.Fp().AsColor().g, v.Fp().AsColor().b)
                     : ToPoint3(v);
      c->SetValue(t, &p);
      return;
    }
    case CTRL_ROTATION_CLASS_ID: {
      Quat q = ToQuat(v);
      c->SetValue(t, &q);
      return;
    }
    case CTRL_SCALE_CLASS_ID: {
      ScaleValue s(ToPoint3(v));
      c->SetValue(t, &s);
      return;
    }
    case CTRL_POINT4_CLASS_ID: {
      if (!v.Is(FPType::TYPE_POINT4)) CannotConvert(v, "Point4");
      Point4 p = v.Fp().AsPoint4();
      c->SetValue(t, &p);
      return;
    }
    case CTRL_MATRIX3_CLASS_ID: {
      SetXFormPacket packet(ToMatrix(v), Matrix3());
      c->SetValue(t, &packet);
      return;
    }
    default:
      Raise("Runtime error: cannot set the value of " + ScriptValueString(ObjectValue(c)));
  }
}

// ---------------------------------------------------------------------------------------------
// Nodes.

Color WireColor(DWORD bgr) {
  return {static_cast<float>(bgr & 0xffu) / 255.0f, static_cast<float>((bgr >> 8) & 0xffu) / 255.0f,
          static_cast<float>((bgr >> 16) & 0xffu) / 255.0f};
}

DWORD WireColorWord(const Color& c) {
  auto byte = [](float f) { return static_cast<DWORD>(std::clamp(f, 0.0f, 1.0f) * 255.0f + 0.5f); };
  return byte(c.r) | (byte(c.g) << 8) | (byte(c.b) << 16);
}

Matrix3 Compose(const ScaleValue& s, const Quat& q, const Point3& p) {
  Matrix3 r;
  q.MakeMatrix(r);
  return MatrixFromScaleValue(s) * r * TransMatrix(p);
}

std::vector<ScriptValue> ModifiersOf(INode* node) {
  std::vector<ScriptValue> out;
  Object* obj = node->GetObjectRef();
  // Derived objects may stack; their modifiers list from the top down.
  for (int guard = 0; obj && obj->SuperClassID() == GEN_DERIVOB_CLASS_ID && guard < 64; ++guard) {
    auto* derived = static_cast<IDerivedObject*>(obj);
    for (int i = 0; i < derived->NumModifiers(); ++i) {
      out.push_back(ObjectValue(derived->GetModifier(i)));
    }
    obj = derived->GetObjRef();
  }
  return out;
}

Animatable* BaseObjectOf(INode* node) {
  Object* obj = node->GetObjectRef();
  return obj ? obj->FindBaseObject() : nullptr;
}

bool GetNodeProperty(INode* node, std::string_view name, TimeValue t, ScriptValue& out) {
  if (Named(name, "name")) {
    out = FPValue(node->GetName());
  } else if (Named(name, "pos") || Named(name, "position")) {
    // In the current coordinate system (world outside `in coordsys`).
    out = FPValue(node->GetNodeTM(t).GetTrans() * Inverse(CoordSysFrame(node, t)));
  } else if (Named(name, "rotation")) {
    out = FPValue(Quat(node->GetNodeTM(t)));
  } else if (Named(name, "scale")) {
    Point3 p;
    Quat q;
    ScaleValue s;
    DecomposeMatrix(node->GetNodeTM(t) * Inverse(node->GetParentTM(t)), p, q, s);
    out = FPValue(s.s);
  } else if (Named(name, "transform")) {
    out = FPValue(node->GetNodeTM(t));
  } else if (Named(name, "objectOffsetPos")) {
    out = FPValue(node->GetObjOffsetPos());
  } else if (Named(name, "objectOffsetRot")) {
    out = FPValue(node->GetObjOffsetRot());
  } else if (Named(name, "objectOffsetScale")) {
    out = FPValue(node->GetObjOffsetScale().s);
  } else if (Named(name, "parent")) {
    INode* parent = node->GetParentNode();
    out = parent && !parent->IsRootNode() ? ScriptValue(FPValue(parent)) : ScriptValue();
  } else if (Named(name, "children")) {
    std::vector<ScriptValue> kids;
    for (int i = 0; i < node->NumberOfChildren(); ++i) {
      kids.emplace_back(FPValue(node->GetChildNode(i)));
    }
    out = ScriptValue::Array(std::move(kids));
  } else if (Named(name, "controller")) {
    out = ObjectValue(node->GetTMController());
  } else if (Named(name, "baseObject")) {
    out = ObjectValue(BaseObjectOf(node));
  } else if (Named(name, "modifiers")) {
    out = ScriptValue::Array(ModifiersOf(node));
  } else if (Named(name, "isHidden")) {
    out = FPValue(node->IsHidden());
  } else if (Named(name, "isFrozen")) {
    out = FPValue(node->IsFrozen());
  } else if (Named(name, "isSelected")) {
    out = FPValue(node->Selected());
  } else if (Named(name, "wirecolor")) {
    out = FPValue(WireColor(node->GetWireColor()));
  } else if (Named(name, "handle")) {
    const AnimHandle h = Animatable::GetHandleByAnim(node);
    out = FPValue(static_cast<int>(std::min<AnimHandle>(h, INT_MAX)));
  } else if (Animatable* obj = BaseObjectOf(node)) {
    return GetAnimProperty(obj, name, t, out);
  } else {
    return false;
  }
  return true;
}

bool SetNodeProperty(INode* node, std::string_view name, const ScriptValue& v, TimeValue t) {
  if (Named(name, "name")) {
    node->SetName(ToText(v));
  } else if (Named(name, "pos") || Named(name, "position")) {
    // A move in world axes moves the position track only, whatever the locks say.
    const Point3 target_ws = ToPoint3(v) * CoordSysFrame(node, t);
    const Point3 delta = target_ws - node->GetNodeTM(t).GetTrans();
    node->Move(t, Matrix3(), delta, false, true, PIV_NONE, true);
  } else if (Named(name, "rotation")) {
    Point3 p;
    Quat q;
    ScaleValue s;
    DecomposeMatrix(node->GetNodeTM(t), p, q, s);
    node->SetNodeTM(t, Compose(s, ToQuat(v), p));
  } else if (Named(name, "scale")) {
    const Matrix3 parent = node->GetParentTM(t);
    Point3 p;
    Quat q;
    ScaleValue s;
    DecomposeMatrix(node->GetNodeTM(t) * Inverse(parent), p, q, s);
    node->SetNodeTM(t, Compose(ScaleValue(ToPoint3(v)), q, p) * parent);
  } else if (Named(name, "transform")) {
    node->SetNodeTM(t, ToMatrix(v));
  } else if (Named(name, "objectOffsetPos")) {
    node->SetObjOffsetPos(ToPoint3(v));
  } else if (Named(name, "objectOffsetRot")) {
    node->SetObjOffsetRot(ToQuat(v));
  } else if (Named(name, "objectOffsetScale")) {
    node->SetObjOffsetScale(ScaleValue(ToPoint3(v)));
  } else if (Named(name, "parent")) {
    if (v.IsUndefined()) {
      node->Detach(t, 1);
    } else if (INode* parent = v.AsNode()) {
      parent->AttachChild(node, 1);
    } else {
      CannotConvert(v, "Node");
    }
  } else if (Named(name, "controller")) {
    Control* c = v.AsControl();
    if (!c || !node->SetTMController(c)) {
      Raise("Runtime error: " + ScriptValueString(v) + " cannot be the transform controller of " +
            ScriptValueString(FPValue(node)));
    }
  } else if (Named(name, "isHidden")) {
    node->Hide(ToBool(v, "isHidden"));
  } else if (Named(name, "isFrozen")) {
    node->Freeze(ToBool(v, "isFrozen"));
  } else if (Named(name, "isSelected")) {
    if (ToBool(v, "isSelected")) {
      GetCOREInterface()->SelectNode(node, false);
    } else {
      GetCOREInterface()->DeSelectNode(node);
    }
  } else if (Named(name, "wirecolor")) {
    if (!v.Is(FPType::TYPE_COLOR)) CannotConvert(v, "Color");
    node->SetWireColor(WireColorWord(v.Fp().AsColor()));
  } else if (Named(name, "children") || Named(name, "baseObject") || Named(name, "modifiers") ||
             Named(name, "handle")) {
    ReadOnly(name);
  } else if (Animatable* obj = BaseObjectOf(node)) {
    return SetAnimProperty(obj, name, v, t);
  } else {
    return false;
  }
  return true;
}

// ---------------------------------------------------------------------------------------------
// Components of values.

bool GetComponent(const ScriptValue& obj, std::string_view name, ScriptValue& out) {
  using enum FPType;
  const FPValue& v = obj.Fp();
  static constexpr const char* kXYZW[] = {"x", "y", "z", "w"};
  auto axis = [name](int count) {
    for (int i = 0; i < count; ++i) {
      if (Named(name, kXYZW[i])) return i;
    }
    return -1;
  };
  if (obj.IsPoint2()) {
    if (int i = axis(2); i >= 0) out = FPValue(i == 0 ? obj.AsPoint2().x : obj.AsPoint2().y);
    return axis(2) >= 0;
  }
  if (obj.Is(TYPE_POINT3)) {
    if (int i = axis(3); i >= 0) out = FPValue(v.AsPoint3()[i]);
    return axis(3) >= 0;
  }
  if (obj.Is(TYPE_POINT4)) {
    if (int i = axis(4); i >= 0) out = FPValue(v.AsPoint4()[i]);
    return axis(4) >= 0;
  }
  if (obj.Is(TYPE_QUAT) || obj.Is(TYPE_ANGAXIS)) {
    if (obj.Is(TYPE_QUAT) && axis(4) >= 0) {
      out = FPValue(v.AsQuat()[axis(4)]);
      return true;
    }
    const AngAxis aa = v.AsAngAxis();
    if (Named(name, "angle")) out = FPValue(aa.angle * kDegPerRad);
    if (Named(name, "axis")) out = FPValue(aa.axis);
    return Named(name, "angle") || Named(name, "axis");
  }
  if (obj.Is(TYPE_COLOR)) {
    static constexpr const char* kRGB[] = {"r", "g", "b"};
    for (int i = 0; i < 3; ++i) {
      if (Named(name, kRGB[i])) {
        out = FPValue(v.AsColor()[i] * 255.0f);
        return true;
      }
    }
    return false;
  }
  if (obj.Is(TYPE_MATRIX3)) {
    const Matrix3 m = v.AsMatrix3();
    static constexpr const char* kRows[] = {"row1", "row2", "row3", "row4"};
    for (int i = 0; i < 4; ++i) {
      if (Named(name, kRows[i])) {
        out = FPValue(m.GetRow(i));
        return true;
      }
    }
    if (Named(name, "translation") || Named(name, "pos")) {
      out = FPValue(m.GetTrans());
    } else if (Named(name, "rotation") || Named(name, "rotationpart")) {
      out = FPValue(Quat(m));
    } else if (Named(name, "scale") || Named(name, "scalepart")) {
      out = FPValue(GetScaleLengths(m));
    } else {
      return false;
    }
    return true;
  }
  if (obj.Is(TYPE_TIMEVALUE)) {
    if (Named(name, "ticks")) {
      out = FPValue(v.AsTime());
    } else if (Named(name, "frame")) {
      out = FPValue(static_cast<double>(v.AsTime()) / GetCOREInterface()->GetTicksPerFrame());
    } else {
      return false;
    }
    return true;
  }
  if (obj.Is(TYPE_BITARRAY) && (Named(name, "count") || Named(name, "numberSet"))) {
    const BitArray& bits = v.AsBitArray();
    out = FPValue(Named(name, "count") ? bits.GetSize() : bits.NumberSet());
    return true;
  }
  if (obj.Is(TYPE_STRING) && Named(name, "count")) {
    out = FPValue(static_cast<int>(std::min<size_t>(v.AsString().size(), INT_MAX)));
    return true;
  }
  if (obj.GetKind() == ScriptValue::Kind::kInterval) {
    if (Named(name, "start")) out = FPValue::Time(obj.AsInterval().Start());
    if (Named(name, "end")) out = FPValue::Time(obj.AsInterval().End());
    return Named(name, "start") || Named(name, "end");
  }
  return false;
}

bool GetSubAnimProperty(const ScriptValue& obj,
                        std::string_view name,
                        TimeValue t,
                        ScriptValue& out) {
  Animatable* parent = obj.SubAnimParent();
  if (!parent) Raise("Runtime error: the track's object has been deleted");
  const int index = obj.SubAnimIndex();
  Animatable* sub = parent->SubAnim(index);
  if (Named(name, "controller") || Named(name, "track")) {
    auto* c = dynamic_cast<Control*>(sub);
    out = c ? ScriptValue(FPValue(c)) : ScriptValue();
  } else if (Named(name, "value")) {
    out = SubAnimValue(parent, index, t);
  } else if (Named(name, "isAnimated")) {
    out = FPValue(sub && sub->IsAnimated());
  } else if (Named(name, "name")) {
    out = FPValue(parent->SubAnimName(index));
  } else if (Named(name, "parent")) {
    out = ObjectValue(parent);
  } else if (Named(name, "index")) {
    out = FPValue(index + 1);
  } else if (Named(name, "object")) {
    out = ObjectValue(sub);
  } else if (sub) {
    return GetAnimProperty(sub, name, t, out);
  } else {
    return false;
  }
  return true;
}

}  // namespace

std::string ScriptSubAnimName(Animatable* parent, int index) {
  std::string name = parent->SubAnimName(index);
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

Animatable* AnimOf(const ScriptValue& v) {
  switch (v.GetKind()) {
    case ScriptValue::Kind::kValue:
      return v.AsRefTarg();
    case ScriptValue::Kind::kSubAnim: {
      Animatable* parent = v.SubAnimParent();
      return parent ? parent->SubAnim(v.SubAnimIndex()) : nullptr;
    }
    case ScriptValue::Kind::kMixin:
      return v.MixinOwner();
    default:
      return nullptr;
  }
}

ScriptValue ObjectValue(Animatable* anim) {
  if (!anim) return ScriptValue();
  if (auto* node = dynamic_cast<INode*>(anim)) return FPValue(node);
  if (auto* c = dynamic_cast<Control*>(anim)) return FPValue(c);
  if (auto* t = dynamic_cast<ReferenceTarget*>(anim)) return FPValue(t);
  return ScriptValue();
}

std::vector<INode*> AllNodes() {
  std::vector<INode*> nodes;
  Scene::Active().CollectNodes(nodes);
  return nodes;
}

INode* FindNodeByName(std::string_view name) {
  for (INode* node : AllNodes()) {
    if (Named(node->GetName(), name)) return node;
  }
  return nullptr;
}

ScriptValue ControllerValue(Control* c, TimeValue t) {
  Interval valid = FOREVER;
  switch (c->SuperClassID()) {
    case CTRL_FLOAT_CLASS_ID: {
      float f = 0.0f;
      c->GetValue(t, &f, valid);
      return FPValue(f);
    }
    case CTRL_POINT3_CLASS_ID:
    case CTRL_POSITION_CLASS_ID: {
      Point3 p;
      c->GetValue(t, &p, valid);
      return FPValue(p);
    }
    case CTRL_ROTATION_CLASS_ID: {
      Quat q;
      c->GetValue(t, &q, valid);
      return FPValue(q);
    }
    case CTRL_SCALE_CLASS_ID: {
      ScaleValue s;
      c->GetValue(t, &s, valid);
      return FPValue(s.s);
    }
    case CTRL_POINT4_CLASS_ID: {
      Point4 p;
      c->GetValue(t, &p, valid);
      return FPValue(p);
    }
    case CTRL_MATRIX3_CLASS_ID: {
      // Relative to the identity: the transform the controller gives under its parent.
      Matrix3 m;
      c->GetValue(t, &m, valid, CTRL_RELATIVE);
      return FPValue(m);
    }
    default:
      return ScriptValue();
  }
}

ScriptValue SubAnimValue(Animatable* parent, int index, TimeValue t) {
  if (auto* pb = dynamic_cast<IParamBlock2*>(parent)) {
    int tab = -1;
    const ParamID id = pb->AnimNumToParamID(index, tab);
    const ParamDef* def = id >= 0 ? pb->GetDesc()->GetParamDef(id) : nullptr;
    if (def) return ReadEntry(pb, *def, t, std::max(tab, 0));
  }
  Animatable* sub = parent->SubAnim(index);
  if (auto* c = dynamic_cast<Control*>(sub)) {
    ScriptValue v = ControllerValue(c, t);
    // A float track reads in its parent's display units: an Euler angle in degrees.
    if (v.Is(FPType::TYPE_FLOAT)) return FPValue(parent->GetParamDimension(index)->Convert(v.AsFloat()));
    return v;
  }
  return ObjectValue(sub);
}

void SetSubAnimValue(Animatable* parent, int index, const ScriptValue& v, TimeValue t) {
  if (auto* pb = dynamic_cast<IParamBlock2*>(parent)) {
    int tab = -1;
    const ParamID id = pb->AnimNumToParamID(index, tab);
    const ParamDef* def = id >= 0 ? pb->GetDesc()->GetParamDef(id) : nullptr;
    if (def) {
      if (!WriteEntry(pb, *def, ConvertEntry(*def, v), t, std::max(tab, 0))) Refused(*def, v);
      return;
    }
  }
  if (auto* c = dynamic_cast<Control*>(parent->SubAnim(index))) {
    if (c->SuperClassID() == CTRL_FLOAT_CLASS_ID && v.IsNumber()) {
      SetControllerValue(c, FPValue(parent->GetParamDimension(index)->UnConvert(v.AsFloat())), t);
    } else {
      SetControllerValue(c, v, t);
    }
    return;
  }
  Raise("Runtime error: cannot set the value of " +
        ScriptValueString(ScriptValue::SubAnim(parent, index)));
}

void AssignSubAnimController(Animatable* parent, int index, const ScriptValue& c) {
  Control* control = c.AsControl();
  if (!control || !parent->CanAssignController(index) ||
      !parent->AssignController(control, index)) {
    Raise("Runtime error: cannot assign " + ScriptValueString(c) + " to " +
          ScriptValueString(ScriptValue::SubAnim(parent, index)));
  }
}

bool GetProperty(const ScriptValue& obj, std::string_view name, TimeValue t, ScriptValue& out) {
  switch (obj.GetKind()) {
    case ScriptValue::Kind::kArray:
      if (!Named(name, "count")) return false;
      out = FPValue(obj.Count());
      return true;
    case ScriptValue::Kind::kSubAnim:
      return GetSubAnimProperty(obj, name, t, out);
    case ScriptValue::Kind::kMixin: {
      FPInterface* fpi = obj.AsMixin();
      if (!fpi) Raise("Runtime error: the object of this interface has been deleted");
      FPResult r = GetProperty(fpi, name);
      if (r.status == FPS_NO_SUCH_FUNCTION) return false;
      out = FromResult(r, name);
      return true;
    }
    case ScriptValue::Kind::kStruct: {
      const GlobalEntry* g = FindGlobal(obj.StructName() + "." + LowerName(name));
      if (!g) return false;
      out = g->fn ? ScriptValue::Function(g->function)
                  : g->getter ? g->getter(TheScriptRunner()) : ScriptValue();
      return true;
    }
    case ScriptValue::Kind::kInterval:
    case ScriptValue::Kind::kPoint2:
      return GetComponent(obj, name, out);
    case ScriptValue::Kind::kStructInstance:
      return GetStructMember(obj, name, out);
    default:
      break;
  }
  if (obj.GetKind() != ScriptValue::Kind::kValue) return false;
  if (obj.Is(FPType::TYPE_INTERFACE)) {
    FPResult r = GetProperty(obj.Fp().AsInterface(), name);
    if (r.status == FPS_NO_SUCH_FUNCTION) return false;
    out = FromResult(r, name);
    return true;
  }
  if (INode* node = obj.AsNode()) return GetNodeProperty(node, name, t, out);
  if (Animatable* anim = AnimOf(obj)) return GetAnimProperty(anim, name, t, out);
  return GetComponent(obj, name, out);
}

bool SetProperty(const ScriptValue& obj, std::string_view name, const ScriptValue& v, TimeValue t) {
  switch (obj.GetKind()) {
    case ScriptValue::Kind::kArray:
      if (!Named(name, "count")) return false;
      {
        const int n = ToInt(v);
        if (n < 0 || n > kMaxArrayCount)
          Raise("Runtime error: bad array count: " + ScriptValueString(v));
        obj.Items().resize(static_cast<size_t>(n));
      }
      return true;
    case ScriptValue::Kind::kSubAnim: {
      Animatable* parent = obj.SubAnimParent();
      if (!parent) Raise("Runtime error: the track's object has been deleted");
      if (Named(name, "controller") || Named(name, "track")) {
        AssignSubAnimController(parent, obj.SubAnimIndex(), v);
        return true;
      }
      if (Named(name, "value")) {
        SetSubAnimValue(parent, obj.SubAnimIndex(), v, t);
        return true;
      }
      Animatable* sub = parent->SubAnim(obj.SubAnimIndex());
      return sub && SetAnimProperty(sub, name, v, t);
    }
    case ScriptValue::Kind::kStruct: {
      const GlobalEntry* g = FindGlobal(obj.StructName() + "." + LowerName(name));
      if (!g) return false;
      if (!g->setter) ReadOnly(name);
      g->setter(TheScriptRunner(), v);
      return true;
    }
    case ScriptValue::Kind::kMixin: {
      FPInterface* fpi = obj.AsMixin();
      if (!fpi) Raise("Runtime error: the object of this interface has been deleted");
      FPResult r = SetProperty(fpi, name, v.ToFPValue());
      if (r.status == FPS_NO_SUCH_FUNCTION) return false;
      FromResult(r, name);
      return true;
    }
    case ScriptValue::Kind::kStructInstance:
      return SetStructMember(obj, name, v);
    case ScriptValue::Kind::kValue:
      break;
    default:
      return false;
  }
  if (obj.Is(FPType::TYPE_INTERFACE)) {
    FPResult r = SetProperty(obj.Fp().AsInterface(), name, v.ToFPValue());
    if (r.status == FPS_NO_SUCH_FUNCTION) return false;
    FromResult(r, name);
    return true;
  }
  if (INode* node = obj.AsNode()) return SetNodeProperty(node, name, v, t);
  if (Animatable* anim = AnimOf(obj)) return SetAnimProperty(anim, name, v, t);
  return false;
}

bool WithComponent(const ScriptValue& obj,
                   std::string_view name,
                   const ScriptValue& v,
                   ScriptValue& out) {
  using enum FPType;
  ScriptValue current;
  if (!GetComponent(obj, name, current) || obj.Is(TYPE_STRING) || obj.Is(TYPE_TIMEVALUE)) {
    return false;
  }
  const FPValue& fp = obj.Fp();
  static constexpr const char* kXYZW[] = {"x", "y", "z", "w"};
  int axis = -1;
  for (int i = 0; i < 4; ++i) {
    if (Named(name, kXYZW[i])) axis = i;
  }
  if (obj.IsPoint2() && axis >= 0) {
    Point2 p = obj.AsPoint2();
    (axis == 0 ? p.x : p.y) = ToFloat(v);
    out = ScriptValue::OfPoint2(p);
  } else if (obj.Is(TYPE_POINT3) && axis >= 0) {
    Point3 p = fp.AsPoint3();
    p[axis] = ToFloat(v);
    out = FPValue(p);
  } else if (obj.Is(TYPE_POINT4) && axis >= 0) {
    Point4 p = fp.AsPoint4();
    p[axis] = ToFloat(v);
    out = FPValue(p);
  } else if (obj.Is(TYPE_QUAT) && axis >= 0) {
    Quat q = fp.AsQuat();
    q[axis] = ToFloat(v);
    out = FPValue(q);
  } else if (obj.Is(TYPE_COLOR)) {
    Color c = fp.AsColor();
    c[Named(name, "r") ? 0 : Named(name, "g") ? 1 : 2] = ToFloat(v) / 255.0f;
    out = FPValue(c);
  } else if (obj.Is(TYPE_MATRIX3)) {
    Matrix3 m = fp.AsMatrix3();
    static constexpr const char* kRows[] = {"row1", "row2", "row3", "row4"};
    int row = Named(name, "translation") || Named(name, "pos") ? 3 : -1;
    for (int i = 0; i < 4; ++i) {
      if (Named(name, kRows[i])) row = i;
    }
    if (row < 0) Raise("Cannot set read-only property: " + std::string(name));
    m.SetRow(row, ToPoint3(v));
    out = FPValue(m);
  } else if (obj.GetKind() == ScriptValue::Kind::kInterval) {
    const ::Interval iv = obj.AsInterval();
    out = Named(name, "start") ? ScriptValue::OfInterval(ToTime(v), iv.End())
                               : ScriptValue::OfInterval(iv.Start(), ToTime(v));
  } else {
    Raise("Cannot set read-only property: " + std::string(name));
  }
  return true;
}

ScriptValue FindSubAnim(const ScriptValue& obj, std::string_view name) {
  if (obj.GetKind() == ScriptValue::Kind::kSubAnim) {
    Animatable* sub = AnimOf(obj);
    return sub ? FindSubAnim(ObjectValue(sub), name) : ScriptValue();
  }
  if (INode* node = obj.AsNode()) {
    if (Named(name, "transform")) return ScriptValue::SubAnim(node, 0);
    Control* tm = node->GetTMController();
    Control* part = nullptr;
    if (tm && (Named(name, "pos") || Named(name, "position"))) part = tm->GetPositionController();
    if (tm && Named(name, "rotation")) part = tm->GetRotationController();
    if (tm && Named(name, "scale")) part = tm->GetScaleController();
    if (const int i = FindSubAnimOf(tm, part); i >= 0) return ScriptValue::SubAnim(tm, i);
    Animatable* obj_anim = BaseObjectOf(node);
    return obj_anim ? FindSubAnim(ObjectValue(obj_anim), name) : ScriptValue();
  }
  if (obj.GetKind() != ScriptValue::Kind::kValue) return ScriptValue();
  Animatable* anim = AnimOf(obj);
  if (!anim) return ScriptValue();
  if (const int i = FindSubAnimIndex(anim, name); i >= 0) return ScriptValue::SubAnim(anim, i);
  ParamRef ref;
  if (FindParam(anim, name, ref) && !IsParamTypeTab(ref.def->type)) {
    const int num = ref.pb->GetAnimNum(ref.def->ID, 0);
    if (num >= 0) return ScriptValue::SubAnim(ref.pb, num);
  }
  return ScriptValue();
}

FPInterface* FindMethodInterface(const ScriptValue& obj, std::string_view name) {
  Animatable* anim = nullptr;
  if (INode* node = obj.AsNode()) {
    anim = BaseObjectOf(node);
  } else {
    anim = AnimOf(obj);
  }
  if (!anim) return nullptr;
  for (FPInterface* fpi : Mixins(anim)) {
    if (fpi->GetDesc()->FindFunction(name) || fpi->GetDesc()->FindProperty(name)) return fpi;
  }
  return nullptr;
}

}  // namespace script_internal
