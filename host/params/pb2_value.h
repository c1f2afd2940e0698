// Copyright Marvolith contributors.
// PB2Value: one parameter value in flight, as accessors and validators see it.
#pragma once

#include <variant>

#include "host/math/interval.h"
#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/params/param_types.h"
#include "host/scene/inode.h"

/// A tagged parameter value: the tag is the parameter's type (without the table bit), the payload
/// the value of that type's kind (see PBKind). Copying never allocates: strings are carried as a
/// pointer to text owned elsewhere (the block, or an accessor that replaces it), valid until the
/// next change of the parameter.
///
/// Getters of a kind other than the value's answer a zero value (0, the origin, the identity,
/// "", null); setters of another kind answer false and change nothing. A node value only takes
/// null or a target of the node super class.
class PB2Value {
 public:
  /// An empty value of no type (kind kNone).
  PB2Value() = default;
  /// The zero value of type's kind: 0, the origin, the identity matrix, "", null.
  explicit PB2Value(ParamType2 type) : type_(BaseParamType(type)) {
    switch (ParamKind(type)) {
      case PBKind::kInt:
        data_ = 0;
        break;
      case PBKind::kFloat:
        data_ = 0.0f;
        break;
      case PBKind::kPoint3:
        data_ = Point3();
        break;
      case PBKind::kPoint4:
        data_ = Point4();
        break;
      case PBKind::kMatrix3:
        data_ = Matrix3();
        break;
      case PBKind::kString:
        data_ = static_cast<const char*>("");
        break;
      case PBKind::kNode:
      case PBKind::kRefTarg:
        data_ = static_cast<ReferenceTarget*>(nullptr);
        break;
      case PBKind::kNone:
        type_ = -1;
        break;
    }
  }

  /// The parameter type, without the table bit; -1 for an empty value.
  ParamType2 Type() const { return type_; }
  PBKind Kind() const { return ParamKind(type_); }

  int GetInt() const { return Is(PBKind::kInt) ? std::get<int>(data_) : 0; }
  bool GetBool() const { return GetInt() != 0; }
  TimeValue GetTimeValue() const { return GetInt(); }
  float GetFloat() const { return Is(PBKind::kFloat) ? std::get<float>(data_) : 0.0f; }
  Point3 GetPoint3() const { return Is(PBKind::kPoint3) ? std::get<Point3>(data_) : Point3(); }
  Color GetColor() const { return Color(GetPoint3()); }
  Point4 GetPoint4() const { return Is(PBKind::kPoint4) ? std::get<Point4>(data_) : Point4(); }
  AColor GetAColor() const {
    Point4 p = GetPoint4();
    return {p.x, p.y, p.z, p.w};
  }
  /// The matrix of a Matrix3 value; the identity for other kinds.
  const Matrix3& GetMatrix3() const {
    static constexpr Matrix3 kIdentity{};
    return Is(PBKind::kMatrix3) ? std::get<Matrix3>(data_) : kIdentity;
  }
  /// The text of a string value, never null; "" for other kinds.
  const char* GetStr() const { return Is(PBKind::kString) ? std::get<const char*>(data_) : ""; }
  /// The target of a node or reference-target value; null for other kinds.
  ReferenceTarget* GetReferenceTarget() const {
    return Is(PBKind::kNode) || Is(PBKind::kRefTarg) ? std::get<ReferenceTarget*>(data_) : nullptr;
  }
  /// The node of a node value; null for other kinds.
  INode* GetINode() const {
    return Is(PBKind::kNode) ? static_cast<INode*>(std::get<ReferenceTarget*>(data_)) : nullptr;
  }

  bool SetInt(int v) { return Put(PBKind::kInt, v); }
  bool SetBool(bool v) { return SetInt(v ? 1 : 0); }
  bool SetTimeValue(TimeValue t) { return SetInt(t); }
  bool SetFloat(float v) { return Put(PBKind::kFloat, v); }
  bool SetPoint3(const Point3& p) { return Put(PBKind::kPoint3, p); }
  bool SetColor(const Color& c) { return SetPoint3(Point3(c.r, c.g, c.b)); }
  bool SetPoint4(const Point4& p) { return Put(PBKind::kPoint4, p); }
  bool SetAColor(const AColor& c) { return SetPoint4(Point4(c.r, c.g, c.b, c.a)); }
  bool SetMatrix3(const Matrix3& m) { return Put(PBKind::kMatrix3, m); }
  /// Points the value at text (null reads as ""); the text must outlive the value's use.
  bool SetStr(const char* s) { return Put(PBKind::kString, s ? s : ""); }
  bool SetINode(INode* node) { return SetReferenceTarget(node); }
  /// Sets a reference-target value, or a node value when target is null or a node.
  bool SetReferenceTarget(ReferenceTarget* target) {
    if (Is(PBKind::kNode) && target && target->SuperClassID() != BASENODE_CLASS_ID) return false;
    if (!Is(PBKind::kNode) && !Is(PBKind::kRefTarg)) return false;
    data_ = target;
    return true;
  }

 private:
  bool Is(PBKind kind) const { return Kind() == kind; }
  template <typename T>
  bool Put(PBKind kind, const T& v) {
    if (!Is(kind)) return false;
    data_ = v;
    return true;
  }

  ParamType2 type_ = -1;
  std::variant<std::monostate, int, float, Point3, Point4, Matrix3, const char*, ReferenceTarget*>
      data_;
};
