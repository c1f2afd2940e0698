// Copyright Marvolith contributors.
// Operators, conversions and classes of script values.
#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cmath>
#include <numbers>

#include "host/interpreter/internal/runner_impl.h"
#include "host/interpreter/scripted_attrib.h"
#include "host/math/euler.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/script/script_value.h"

namespace script_internal {
namespace {

constexpr float kRadPerDeg = static_cast<float>(std::numbers::pi / 180.0);

const char* OpText(TokenKind op) {
  switch (op) {
    case TokenKind::kPlus:
      return "+";
    case TokenKind::kMinus:
      return "-";
    case TokenKind::kTimes:
      return "*";
    case TokenKind::kDiv:
      return "/";
    case TokenKind::kPower:
      return "^";
    case TokenKind::kEq:
      return "==";
    case TokenKind::kNe:
      return "!=";
    case TokenKind::kLt:
      return "<";
    case TokenKind::kLe:
      return "<=";
    case TokenKind::kGt:
      return ">";
    case TokenKind::kGe:
      return ">=";
    default:
      return "?";
  }
}

[[noreturn]] void CannotConvert(const ScriptValue& v, std::string_view type) {
  Raise("Unable to convert: " + ScriptValueString(v) + " to type: " + std::string(type));
}

[[noreturn]] void DivideByZero() { Raise("Runtime error: divide by zero"); }

// A 32-bit integer result of a wider computation wraps, as the host's script integers do.
FPValue WrapInt(long long v) { return FPValue(static_cast<int>(static_cast<std::uint32_t>(v))); }

FPValue IntArithmetic(TokenKind op, long long a, long long b) {
  switch (op) {
    case TokenKind::kPlus:
      return WrapInt(a + b);
    case TokenKind::kMinus:
      return WrapInt(a - b);
    case TokenKind::kTimes:
      return WrapInt(a * b);
    case TokenKind::kDiv:
      if (b == 0) DivideByZero();
      return WrapInt(a / b);
    default: {
      const double p = std::pow(static_cast<double>(a), static_cast<double>(b));
      if (b >= 0 && std::isfinite(p) && std::fabs(p) <= INT_MAX)
        return FPValue(static_cast<int>(p));
      return FPValue(p);
    }
  }
}

FPValue FloatArithmetic(TokenKind op, double a, double b) {
  switch (op) {
    case TokenKind::kPlus:
      return FPValue(a + b);
    case TokenKind::kMinus:
      return FPValue(a - b);
    case TokenKind::kTimes:
      return FPValue(a * b);
    case TokenKind::kDiv:
      if (b == 0.0) DivideByZero();
      return FPValue(a / b);
    default:
      return FPValue(std::pow(a, b));
  }
}

TimeValue ClampTicks(double ticks) {
  if (std::isnan(ticks)) return 0;
  return static_cast<TimeValue>(
      std::clamp(std::round(ticks), double(TIME_NegInfinity), double(TIME_PosInfinity)));
}

// Parses a whole string as a number; false when it is not one.
bool ParseNumber(const std::string& s, double& out, bool& integral) {
  const char* first = s.data();
  const char* last = s.data() + s.size();
  while (first < last && (*first == ' ' || *first == '\t')) ++first;
  while (last > first && (last[-1] == ' ' || last[-1] == '\t')) --last;
  if (first == last) return false;
  if (*first == '+') ++first;
  long long i = 0;
  auto [pi, ei] = std::from_chars(first, last, i);
  if (ei == std::errc() && pi == last) {
    out = static_cast<double>(i);
    integral = true;
    return true;
  }
  auto [pd, ed] = std::from_chars(first, last, out);
  integral = false;
  return ed == std::errc() && pd == last;
}

int CheckedInt(double d, const ScriptValue& from) {
  if (!std::isfinite(d) || d >= 2147483648.0 || d < -2147483648.0) CannotConvert(from, "Integer");
  return static_cast<int>(d);
}

struct SuperName {
  SClass_ID sclass;
  const char* name;
};
constexpr std::array kSuperNames = {
    SuperName{GEOMOBJECT_CLASS_ID, "GeometryClass"},
    SuperName{SHAPE_CLASS_ID, "shape"},
    SuperName{HELPER_CLASS_ID, "helper"},
    SuperName{CAMERA_CLASS_ID, "camera"},
    SuperName{LIGHT_CLASS_ID, "light"},
    SuperName{OSM_CLASS_ID, "modifier"},
    SuperName{WSM_CLASS_ID, "SpacewarpModifier"},
    SuperName{CTRL_FLOAT_CLASS_ID, "FloatController"},
    SuperName{CTRL_POINT3_CLASS_ID, "Point3Controller"},
    SuperName{CTRL_POSITION_CLASS_ID, "PositionController"},
    SuperName{CTRL_ROTATION_CLASS_ID, "RotationController"},
    SuperName{CTRL_SCALE_CLASS_ID, "ScaleController"},
    SuperName{CTRL_MATRIX3_CLASS_ID, "Matrix3Controller"},
    SuperName{CTRL_POINT4_CLASS_ID, "Point4Controller"},
    SuperName{CUST_ATTRIB_CLASS_ID, "CustAttrib"},
    SuperName{BASENODE_CLASS_ID, "Node"},
};

// The runner's own classes of values; the constructors among them are marked.
constexpr std::array<const char*, 25> kValueClasses = {
    "Integer",   "Float",          "Double",         "BooleanClass", "String",
    "Name",      "Time",           "Array",          "BitArray",     "Point2",
    "Point3",    "Point4",         "Quat",           "AngleAxis",    "EulerAngles",
    "Matrix3",   "Color",          "Interval",       "UndefinedClass", "OkClass",
    "SubAnim",   "MAXScriptFunction", "Primitive",   "Interface",    "MixinInterface",
};
constexpr std::array<const char*, 3> kValueSuperClasses = {"Number", "Value", "ReferenceTarget"};

ScriptValue ValueClass(const char* name) { return ScriptValue::Class({nullptr, name, false}); }
ScriptValue SuperClass(const char* name) { return ScriptValue::Class({nullptr, name, true}); }

const char* SuperNameOf(SClass_ID sclass) {
  for (const SuperName& s : kSuperNames) {
    if (s.sclass == sclass) return s.name;
  }
  return "ReferenceTarget";
}

// The object a node shows: its base object.
Animatable* ClassSubject(const ScriptValue& v) {
  if (INode* node = v.AsNode()) {
    Object* obj = node->GetObjectRef();
    return obj ? obj->FindBaseObject() : nullptr;
  }
  return AnimOf(v);
}

// Point2 arithmetic: with another Point2 component by component, with a number on each
// component (a number on the left adds, subtracts from or multiplies each component).
ScriptValue Point2Arithmetic(TokenKind op, const ScriptValue& a, const ScriptValue& b) {
  const bool both = a.IsPoint2() && b.IsPoint2();
  if (op == TokenKind::kPower || (!both && !(a.IsNumber() || b.IsNumber())) ||
      (a.IsNumber() && op == TokenKind::kDiv)) {
    NoFunction(OpText(op), a);
  }
  const Point2 p = a.IsPoint2() ? a.AsPoint2() : Point2(a.AsFloat(), a.AsFloat());
  const Point2 q = b.IsPoint2() ? b.AsPoint2() : Point2(b.AsFloat(), b.AsFloat());
  switch (op) {
    case TokenKind::kPlus:
      return ScriptValue::OfPoint2(p + q);
    case TokenKind::kMinus:
      return ScriptValue::OfPoint2(p - q);
    case TokenKind::kTimes:
      return ScriptValue::OfPoint2(Point2(p.x * q.x, p.y * q.y));
    default:
      if (q.x == 0.0f || q.y == 0.0f) DivideByZero();
      return ScriptValue::OfPoint2(Point2(p.x / q.x, p.y / q.y));
  }
}

Quat EulerDegrees(float x, float y, float z) {
  const float ang[3] = {x * kRadPerDeg, y * kRadPerDeg, z * kRadPerDeg};
  Quat q;
  EulerToQuat(ang, q, EULERTYPE_XYZ);
  return q;
}

}  // namespace

void Raise(const std::string& message) { throw MAXScriptException(message); }

void UnknownProperty(std::string_view name, const ScriptValue& in) {
  Raise("Unknown property: \"" + std::string(name) + "\" in " + ScriptValueString(in));
}

void NoFunction(std::string_view op, const ScriptValue& for_value) {
  Raise("No \"\"" + std::string(op) + "\"\" function for " + ScriptValueString(for_value));
}

TimeValue ToTime(const ScriptValue& v) {
  if (v.Is(FPType::TYPE_TIMEVALUE)) return v.Fp().AsTime();
  if (!v.IsNumber()) CannotConvert(v, "Time");
  return ClampTicks(static_cast<double>(v.AsFloat()) * GetCOREInterface()->GetTicksPerFrame());
}

float ToFloat(const ScriptValue& v) {
  if (!v.IsNumber()) CannotConvert(v, "Float");
  return v.AsFloat();
}

int ToInt(const ScriptValue& v) {
  if (v.Is(FPType::TYPE_INT)) return v.AsInt();
  if (!v.Is(FPType::TYPE_FLOAT)) CannotConvert(v, "Integer");
  return CheckedInt(std::trunc(static_cast<double>(v.AsFloat())), v);
}

bool ToBool(const ScriptValue& v, std::string_view what) {
  if (!v.Is(FPType::TYPE_BOOL)) {
    Raise("Type error: " + std::string(what) +
          " requires BooleanClass, got: " + ScriptValueString(v));
  }
  return v.AsBool();
}

const std::string& ToText(const ScriptValue& v) {
  if (!v.Is(FPType::TYPE_STRING) && !v.Is(FPType::TYPE_NAME)) CannotConvert(v, "String");
  return v.AsString();
}

ScriptValue Arithmetic(TokenKind op, const ScriptValue& a, const ScriptValue& b) {
  using enum FPType;
  if (a.IsNumber() && b.IsNumber()) {
    if (a.Is(TYPE_INT) && b.Is(TYPE_INT)) return IntArithmetic(op, a.AsInt(), b.AsInt());
    return FloatArithmetic(op, a.AsFloat(), b.AsFloat());
  }
  const bool time_a = a.Is(TYPE_TIMEVALUE);
  const bool time_b = b.Is(TYPE_TIMEVALUE);
  if (time_a || time_b) {
    // Times add and subtract as ticks (a number is frames) and scale by numbers.
    const bool additive = op == TokenKind::kPlus || op == TokenKind::kMinus;
    if (additive && (a.IsNumber() || time_a) && (b.IsNumber() || time_b)) {
      const double x = ToTime(a);
      const double y = ToTime(b);
      return FPValue::Time(ClampTicks(op == TokenKind::kPlus ? x + y : x - y));
    }
    if (time_a && b.IsNumber() && (op == TokenKind::kTimes || op == TokenKind::kDiv)) {
      const double f = b.AsFloat();
      if (op == TokenKind::kDiv && f == 0.0) DivideByZero();
      return FPValue::Time(
          ClampTicks(op == TokenKind::kTimes ? a.Fp().AsTime() * f : a.Fp().AsTime() / f));
    }
    if (time_a && time_b && op == TokenKind::kDiv) {
      if (b.Fp().AsTime() == 0) DivideByZero();
      return FPValue(static_cast<double>(a.Fp().AsTime()) / b.Fp().AsTime());
    }
    NoFunction(OpText(op), a);
  }
  if (a.IsPoint2() || b.IsPoint2()) return Point2Arithmetic(op, a, b);
  if (a.Is(TYPE_STRING) && op == TokenKind::kPlus) return FPValue(a.AsString() + ToText(b));
  if (a.Is(TYPE_POINT3)) {
    const Point3 p = a.AsPoint3();
    if (b.Is(TYPE_POINT3)) {
      const Point3 q = b.AsPoint3();
      switch (op) {
        case TokenKind::kPlus:
          return FPValue(p + q);
        case TokenKind::kMinus:
          return FPValue(p - q);
        case TokenKind::kTimes:
          return FPValue(p * q);
        case TokenKind::kDiv:
          if (q.x == 0.0f || q.y == 0.0f || q.z == 0.0f) DivideByZero();
          return FPValue(Point3(p.x / q.x, p.y / q.y, p.z / q.z));
        default:
          break;
      }
    } else if (b.IsNumber() && (op == TokenKind::kTimes || op == TokenKind::kDiv)) {
      const float f = b.AsFloat();
      if (op == TokenKind::kDiv && f == 0.0f) DivideByZero();
      return FPValue(op == TokenKind::kTimes ? p * f : p / f);
    } else if (b.Is(TYPE_MATRIX3) && op == TokenKind::kTimes) {
      return FPValue(p * b.Fp().AsMatrix3());
    }
  }
  if (a.IsNumber() && op == TokenKind::kTimes && (b.Is(TYPE_POINT3) || b.Is(TYPE_POINT4))) {
    return Arithmetic(op, b, a);
  }
  if (a.Is(TYPE_POINT4)) {
    const Point4 p = a.Fp().AsPoint4();
    if (b.Is(TYPE_POINT4) && (op == TokenKind::kPlus || op == TokenKind::kMinus)) {
      const Point4 q = b.Fp().AsPoint4();
      return FPValue(op == TokenKind::kPlus ? Point4(p.x + q.x, p.y + q.y, p.z + q.z, p.w + q.w)
                                            : Point4(p.x - q.x, p.y - q.y, p.z - q.z, p.w - q.w));
    }
    if (b.IsNumber() && (op == TokenKind::kTimes || op == TokenKind::kDiv)) {
      float f = b.AsFloat();
      if (op == TokenKind::kDiv) {
        if (f == 0.0f) DivideByZero();
        f = 1.0f / f;
      }
      return FPValue(Point4(p.x * f, p.y * f, p.z * f, p.w * f));
    }
  }
  if (a.Is(TYPE_COLOR)) {
    const Color c = a.Fp().AsColor();
    if (b.Is(TYPE_COLOR) && (op == TokenKind::kPlus || op == TokenKind::kMinus)) {
      const Color d = b.Fp().AsColor();
      return FPValue(op == TokenKind::kPlus ? c + d : Color(c.r - d.r, c.g - d.g, c.b - d.b));
    }
    if (b.IsNumber() && op == TokenKind::kTimes) return FPValue(c * b.AsFloat());
  }
  if (a.Is(TYPE_QUAT) && b.Is(TYPE_QUAT) && op == TokenKind::kTimes) {
    return FPValue(a.Fp().AsQuat() * b.Fp().AsQuat());
  }
  if (a.Is(TYPE_MATRIX3) && b.Is(TYPE_MATRIX3) && op == TokenKind::kTimes) {
    return FPValue(a.Fp().AsMatrix3() * b.Fp().AsMatrix3());
  }
  NoFunction(OpText(op), a);
}

bool Compare(TokenKind op, const ScriptValue& a, const ScriptValue& b) {
  using enum FPType;
  if (op == TokenKind::kEq) return ScriptEquals(a, b);
  if (op == TokenKind::kNe) return !ScriptEquals(a, b);
  int order = 0;
  if (a.IsNumber() && b.IsNumber()) {
    if (a.Is(TYPE_INT) && b.Is(TYPE_INT)) {
      order = (a.AsInt() > b.AsInt()) - (a.AsInt() < b.AsInt());
    } else {
      const double x = a.AsFloat();
      const double y = b.AsFloat();
      if (std::isnan(x) || std::isnan(y)) return false;
      order = (x > y) - (x < y);
    }
  } else if ((a.Is(TYPE_TIMEVALUE) || a.IsNumber()) && (b.Is(TYPE_TIMEVALUE) || b.IsNumber())) {
    const TimeValue x = ToTime(a);
    const TimeValue y = ToTime(b);
    order = (x > y) - (x < y);
  } else if (a.Is(TYPE_STRING) && b.Is(TYPE_STRING)) {
    const int c = a.AsString().compare(b.AsString());
    order = (c > 0) - (c < 0);
  } else {
    NoFunction(OpText(op), a);
  }
  switch (op) {
    case TokenKind::kLt:
      return order < 0;
    case TokenKind::kLe:
      return order <= 0;
    case TokenKind::kGt:
      return order > 0;
    default:
      return order >= 0;
  }
}

ScriptValue Negate(const ScriptValue& a) {
  using enum FPType;
  if (a.Is(TYPE_INT)) return WrapInt(-static_cast<long long>(a.AsInt()));
  if (a.Is(TYPE_FLOAT)) return FPValue(-a.AsFloat());
  if (a.Is(TYPE_TIMEVALUE)) return FPValue::Time(ClampTicks(-static_cast<double>(a.Fp().AsTime())));
  if (a.Is(TYPE_POINT3)) return FPValue(-a.AsPoint3());
  if (a.IsPoint2()) return ScriptValue::OfPoint2(-a.AsPoint2());
  if (a.Is(TYPE_POINT4)) {
    const Point4 p = a.Fp().AsPoint4();
    return FPValue(Point4(-p.x, -p.y, -p.z, -p.w));
  }
  NoFunction("-", a);
}

ScriptValue BuiltinClass(std::string_view name) {
  for (const char* c : kValueClasses) {
    if (ScriptNameEquals(c, name)) return ValueClass(c);
  }
  for (const char* c : kValueSuperClasses) {
    if (ScriptNameEquals(c, name)) return SuperClass(c);
  }
  for (const SuperName& s : kSuperNames) {
    if (ScriptNameEquals(s.name, name)) return SuperClass(s.name);
  }
  return ScriptValue();
}

ScriptValue ClassOf(const ScriptValue& v) {
  using enum FPType;
  using Kind = ScriptValue::Kind;
  switch (v.GetKind()) {
    case Kind::kArray:
      return ValueClass("Array");
    case Kind::kSubAnim:
      return ValueClass("SubAnim");
    case Kind::kInterval:
      return ValueClass("Interval");
    case Kind::kFunction:
      return ValueClass(v.AsFunction()->native ? "Primitive" : "MAXScriptFunction");
    case Kind::kClass:
      return ScriptValue::Class({nullptr, "Class", false});
    case Kind::kMixin:
      return ValueClass("MixinInterface");
    case Kind::kStruct:
      return ScriptValue::Class({nullptr, "StructDef", false});
    case Kind::kStream:
      return ValueClass(v.AsStream()->path.empty() ? "StringStream" : "FileStream");
    case Kind::kStructDef:
      return ScriptValue::Class({nullptr, "StructDef", false});
    case Kind::kStructInstance:
      // An instance's class is its definition, so that classOf s == Foo.
      return ScriptValue::StructDef(v.AsStructInstance()->instance_of);
    case Kind::kPoint2:
      return ValueClass("Point2");
    case Kind::kRef:
      return ScriptValue::Class({nullptr, "ValueRef", false});
    case Kind::kValue:
      break;
  }
  if (Animatable* anim = ClassSubject(v)) {
    // A scripted attribute's class is its definition; all of them share one saved class.
    if (auto* ca = dynamic_cast<ScriptedCustAttrib*>(anim); ca && ca->GetDef()) {
      return ScriptValue::Class({ca->GetDef(), ca->GetDef()->ClassName(), false});
    }
    if (ClassDesc2* cd = ClassDirectory::Get().FindClass(anim->SuperClassID(), anim->ClassID())) {
      const char* internal = cd->InternalName();
      return ScriptValue::Class({cd, internal ? internal : cd->ClassName(), false});
    }
    std::string name = anim->ClassName();
    std::replace(name.begin(), name.end(), ' ', '_');
    return ScriptValue::Class({nullptr, name.empty() ? "ReferenceTarget" : name, false});
  }
  switch (v.Fp().Type()) {
    case TYPE_INT:
      return ValueClass("Integer");
    case TYPE_FLOAT:
      return ValueClass("Float");
    case TYPE_BOOL:
      return ValueClass("BooleanClass");
    case TYPE_STRING:
      return ValueClass("String");
    case TYPE_NAME:
      return ValueClass("Name");
    case TYPE_TIMEVALUE:
      return ValueClass("Time");
    case TYPE_POINT3:
      return ValueClass("Point3");
    case TYPE_POINT4:
      return ValueClass("Point4");
    case TYPE_QUAT:
      return ValueClass("Quat");
    case TYPE_ANGAXIS:
      return ValueClass("AngleAxis");
    case TYPE_MATRIX3:
      return ValueClass("Matrix3");
    case TYPE_COLOR:
      return ValueClass("Color");
    case TYPE_BITARRAY:
      return ValueClass("BitArray");
    case TYPE_VOID:
      return ValueClass("OkClass");
    case TYPE_INTERFACE:
      return ValueClass("Interface");
    case TYPE_INODE:
      return v.AsNode() ? SuperClass("Node") : ValueClass("UndefinedClass");
    default:
      return ValueClass("UndefinedClass");
  }
}

ScriptValue SuperClassOf(const ScriptValue& v) {
  if (v.IsNumber()) return SuperClass("Number");
  if (v.AsNode()) {
    Animatable* obj = ClassSubject(v);
    return SuperClass(obj ? SuperNameOf(obj->SuperClassID()) : "Node");
  }
  if (Animatable* anim = AnimOf(v); anim && v.GetKind() == ScriptValue::Kind::kValue) {
    return SuperClass(SuperNameOf(anim->SuperClassID()));
  }
  return SuperClass("Value");
}

ScriptValue ConvertAs(const ScriptValue& value, const ScriptValue& cls_value) {
  using enum FPType;
  const ScriptClass* cls = cls_value.AsClass();
  if (!cls) Raise("Type error: as requires a class, got: " + ScriptValueString(cls_value));
  auto is = [cls](const char* name) { return !cls->desc && ScriptNameEquals(cls->name, name); };
  const FPValue& v = value.Fp();
  if (is("String")) return FPValue(ScriptValueText(value));
  if (is("Name")) return FPValue::Name(ToText(value));
  if (is("Integer") || is("Float") || is("Double")) {
    double d = 0.0;
    bool integral = false;
    if (value.IsNumber()) {
      d = value.Is(TYPE_INT) ? value.AsInt() : static_cast<double>(value.AsFloat());
      integral = value.Is(TYPE_INT);
    } else if (value.Is(TYPE_TIMEVALUE)) {
      d = static_cast<double>(v.AsTime()) / GetCOREInterface()->GetTicksPerFrame();
    } else if (value.Is(TYPE_BOOL)) {
      d = value.AsBool() ? 1.0 : 0.0;
    } else if (value.Is(TYPE_STRING)) {
      // A string that is not a number converts to undefined, as the host's script does.
      if (!ParseNumber(value.AsString(), d, integral)) return ScriptValue();
    } else {
      CannotConvert(value, cls->name);
    }
    if (is("Integer"))
      return FPValue(integral ? CheckedInt(d, value) : CheckedInt(std::trunc(d), value));
    return FPValue(d);
  }
  if (is("Time")) {
    if (value.Is(TYPE_STRING)) {
      double d = 0.0;
      bool integral = false;
      if (!ParseNumber(value.AsString(), d, integral)) return ScriptValue();
      return FPValue::Time(ToTime(FPValue(d)));
    }
    return FPValue::Time(ToTime(value));
  }
  if (is("BooleanClass")) {
    if (value.Is(TYPE_BOOL)) return value;
    if (value.Is(TYPE_STRING) && ScriptNameEquals(value.AsString(), "true")) return FPValue(true);
    if (value.Is(TYPE_STRING) && ScriptNameEquals(value.AsString(), "false")) return FPValue(false);
    CannotConvert(value, cls->name);
  }
  if (is("Point3")) {
    if (value.Is(TYPE_POINT3)) return value;
    if (value.Is(TYPE_POINT4)) {
      const Point4 p = v.AsPoint4();
      return FPValue(Point3(p.x, p.y, p.z));
    }
    if (value.Is(TYPE_COLOR)) {
      const Color c = v.AsColor();
      return FPValue(Point3(c.r, c.g, c.b) * 255.0f);
    }
  }
  if (is("Point3") && value.IsPoint2()) {
    return FPValue(Point3(value.AsPoint2().x, value.AsPoint2().y, 0.0f));
  }
  if (is("Point2")) {
    if (value.IsPoint2()) return value;
    if (value.Is(TYPE_POINT3)) {
      return ScriptValue::OfPoint2(Point2(value.AsPoint3().x, value.AsPoint3().y));
    }
  }
  if (is("Point4")) {
    if (value.Is(TYPE_POINT4)) return value;
    if (value.Is(TYPE_POINT3)) return FPValue(Point4(value.AsPoint3(), 0.0f));
  }
  if (is("Color")) {
    if (value.Is(TYPE_COLOR)) return value;
    if (value.Is(TYPE_POINT3)) return FPValue(Color(value.AsPoint3() / 255.0f));
  }
  if (is("Quat")) {
    if (value.Is(TYPE_QUAT) || value.Is(TYPE_ANGAXIS)) return FPValue(v.AsQuat());
    if (value.Is(TYPE_MATRIX3)) return FPValue(Quat(v.AsMatrix3()));
  }
  if (is("AngleAxis") && (value.Is(TYPE_QUAT) || value.Is(TYPE_ANGAXIS))) {
    return FPValue(v.AsAngAxis());
  }
  if (is("Matrix3")) {
    if (value.Is(TYPE_MATRIX3)) return value;
    if (value.Is(TYPE_QUAT) || value.Is(TYPE_ANGAXIS)) {
      Matrix3 m;
      v.AsQuat().MakeMatrix(m);
      return FPValue(m);
    }
  }
  if (is("Array") && value.IsArray()) return value;
  if (is("Array") && value.Is(TYPE_BITARRAY)) {
    std::vector<ScriptValue> numbers;
    const BitArray& bits = v.AsBitArray();
    for (int i = 0; i < bits.GetSize(); ++i) {
      if (bits[i]) numbers.emplace_back(FPValue(i + 1));
    }
    return ScriptValue::Array(std::move(numbers));
  }
  if (is("BitArray") && value.IsArray()) return FromScriptValue(value.ToFPValue(), TYPE_BITARRAY);
  // Any other class: a value that already is one converts to itself.
  if (ScriptEquals(ClassOf(value), cls_value)) return value;
  CannotConvert(value, cls->name);
}

ScriptValue ConstructBuiltin(const ScriptClass& cls, std::span<const ScriptValue> args) {
  const int n = static_cast<int>(args.size());
  auto is = [&cls](const char* name) { return ScriptNameEquals(cls.name, name); };
  auto want = [&cls, n](int count) {
    if (n != count) throw ArgCountError(cls.name, count, n);
  };
  auto f = [&args](int i) { return ToFloat(args[static_cast<size_t>(i)]); };
  if (is("Point2")) {
    want(2);
    return ScriptValue::OfPoint2(Point2(f(0), f(1)));
  }
  if (is("Point3")) {
    want(3);
    return FPValue(Point3(f(0), f(1), f(2)));
  }
  if (is("Point4")) {
    want(4);
    return FPValue(Point4(f(0), f(1), f(2), f(3)));
  }
  if (is("Quat") || is("AngleAxis")) {
    if (is("Quat") && n == 4) return FPValue(Quat(f(0), f(1), f(2), f(3)));
    want(2);
    if (!args[1].Is(FPType::TYPE_POINT3)) CannotConvert(args[1], "Point3");
    const AngAxis aa(args[1].AsPoint3(), f(0) * kRadPerDeg);
    return is("Quat") ? FPValue(Quat(aa)) : FPValue(aa);
  }
  if (is("EulerAngles")) {
    want(3);
    return FPValue(EulerDegrees(f(0), f(1), f(2)));
  }
  if (is("Color")) {
    if (n != 4) want(3);
    return FPValue(Color(f(0) / 255.0f, f(1) / 255.0f, f(2) / 255.0f));
  }
  if (is("Matrix3")) {
    if (n == 1) {
      const int which = ToInt(args[0]);
      if (which != 0 && which != 1) CannotConvert(args[0], "Matrix3");
      return FPValue(Matrix3(which == 1));
    }
    want(4);
    Point3 rows[4];
    for (int i = 0; i < 4; ++i) {
      if (!args[static_cast<size_t>(i)].Is(FPType::TYPE_POINT3)) {
        CannotConvert(args[static_cast<size_t>(i)], "Point3");
      }
      rows[i] = args[static_cast<size_t>(i)].AsPoint3();
    }
    return FPValue(Matrix3(rows[0], rows[1], rows[2], rows[3]));
  }
  if (is("Interval")) {
    want(2);
    return ScriptValue::OfInterval(ToTime(args[0]), ToTime(args[1]));
  }
  Raise("Type error: Call needs function or class, got: " + cls.name);
}

}  // namespace script_internal
