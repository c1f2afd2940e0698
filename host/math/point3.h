// Copyright Marvolith contributors.
// Small vectors of the host: Point2, Point3, Point4, and the colours Color and AColor.
// As in the host, `%` is the dot product and `^` the cross product of two Point3, and `*` of two
// Point3 is the component-wise product.
#pragma once

#include <cmath>
#include <cstdlib>
#include <type_traits>

#include "host/math/tolerances.h"

/// Two 32-bit floats.
class Point2 {
 public:
  float x = 0.0f;
  float y = 0.0f;

  constexpr Point2() = default;
  constexpr Point2(float px, float py) : x(px), y(py) {}

  /// Component i: 0 is x, anything else is y.
  constexpr float& operator[](int i) { return i == 0 ? x : y; }
  constexpr const float& operator[](int i) const { return i == 0 ? x : y; }

  constexpr Point2 operator-() const { return {-x, -y}; }
  constexpr Point2 operator+(const Point2& p) const { return {x + p.x, y + p.y}; }
  constexpr Point2 operator-(const Point2& p) const { return {x - p.x, y - p.y}; }
  constexpr Point2 operator*(float f) const { return {x * f, y * f}; }
  constexpr Point2 operator/(float f) const { return {x / f, y / f}; }
  constexpr Point2& operator+=(const Point2& p) { return *this = *this + p; }
  constexpr Point2& operator-=(const Point2& p) { return *this = *this - p; }
  constexpr Point2& operator*=(float f) { return *this = *this * f; }
  constexpr bool operator==(const Point2& p) const { return x == p.x && y == p.y; }
  /// Dot product.
  constexpr float operator%(const Point2& p) const { return x * p.x + y * p.y; }

  float Length() const { return std::sqrt(x * x + y * y); }
  constexpr float LengthSquared() const { return x * x + y * y; }
};

constexpr Point2 operator*(float f, const Point2& p) { return p * f; }
/// Dot product.
constexpr float DotProd(const Point2& a, const Point2& b) { return a % b; }
inline float Length(const Point2& p) { return p.Length(); }

/// Three 32-bit floats: a position, direction or set of per-axis factors. 12 bytes in files.
class Point3 {
 public:
  float x = 0.0f;
  float y = 0.0f;
  float z = 0.0f;

  constexpr Point3() = default;
  constexpr Point3(float px, float py, float pz) : x(px), y(py), z(pz) {}
  /// From three consecutive floats.
  explicit constexpr Point3(const float* f) : x(f[0]), y(f[1]), z(f[2]) {}

  static const Point3 Origin;
  static const Point3 XAxis;
  static const Point3 YAxis;
  static const Point3 ZAxis;

  /// Component i: 0 is x, 1 is y, anything else is z.
  constexpr float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
  constexpr const float& operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }

  constexpr Point3 operator-() const { return {-x, -y, -z}; }
  constexpr Point3 operator+() const { return *this; }
  constexpr Point3 operator+(const Point3& p) const { return {x + p.x, y + p.y, z + p.z}; }
  constexpr Point3 operator-(const Point3& p) const { return {x - p.x, y - p.y, z - p.z}; }
  /// Component-wise product.
  constexpr Point3 operator*(const Point3& p) const { return {x * p.x, y * p.y, z * p.z}; }
  /// Component-wise quotient (IEEE results for zero components).
  constexpr Point3 operator/(const Point3& p) const { return {x / p.x, y / p.y, z / p.z}; }
  constexpr Point3 operator+(float f) const { return {x + f, y + f, z + f}; }
  constexpr Point3 operator-(float f) const { return {x - f, y - f, z - f}; }
  constexpr Point3 operator*(float f) const { return {x * f, y * f, z * f}; }
  /// Division by a scalar (IEEE result for 0).
  constexpr Point3 operator/(float f) const { return {x / f, y / f, z / f}; }
  constexpr Point3& operator+=(const Point3& p) { return *this = *this + p; }
  constexpr Point3& operator-=(const Point3& p) { return *this = *this - p; }
  constexpr Point3& operator*=(const Point3& p) { return *this = *this * p; }
  constexpr Point3& operator/=(const Point3& p) { return *this = *this / p; }
  constexpr Point3& operator+=(float f) { return *this = *this + f; }
  constexpr Point3& operator-=(float f) { return *this = *this - f; }
  constexpr Point3& operator*=(float f) { return *this = *this * f; }
  constexpr Point3& operator/=(float f) { return *this = *this / f; }
  /// Exact comparison; use Equals for computed values.
  constexpr bool operator==(const Point3& p) const { return x == p.x && y == p.y && z == p.z; }
  constexpr bool operator!=(const Point3& p) const { return !(*this == p); }

  /// Dot product.
  constexpr float operator%(const Point3& p) const { return x * p.x + y * p.y + z * p.z; }
  /// Cross product (right-handed: XAxis ^ YAxis is ZAxis).
  constexpr Point3 operator^(const Point3& p) const {
    return {y * p.z - z * p.y, z * p.x - x * p.z, x * p.y - y * p.x};
  }

  constexpr Point3& Set(float px, float py, float pz) {
    x = px;
    y = py;
    z = pz;
    return *this;
  }

  /// True when every component differs from p's by at most epsilon.
  constexpr bool Equals(const Point3& p, float epsilon = kMatrixEqualsEpsilon) const {
    return (x > p.x ? x - p.x : p.x - x) <= epsilon && (y > p.y ? y - p.y : p.y - y) <= epsilon &&
           (z > p.z ? z - p.z : p.z - z) <= epsilon;
  }

  /// Euclidean length, computed in double so tiny and huge vectors keep their precision.
  float Length() const {
    return static_cast<float>(std::sqrt(double(x) * x + double(y) * y + double(z) * z));
  }
  /// Euclidean length in float arithmetic (the host's fast form).
  float FLength() const { return std::sqrt(x * x + y * y + z * z); }
  constexpr float LengthSquared() const { return x * x + y * y + z * z; }

  /// Unit vector along this one; a vector shorter than kNormalizeMinLength (zero included)
  /// gives the zero vector. Non-finite components give non-finite results.
  Point3 Normalize() const {
    double len = std::sqrt(double(x) * x + double(y) * y + double(z) * z);
    if (!(len >= kNormalizeMinLength)) return len != len ? Point3(len, len, len) : Point3();
    return {static_cast<float>(x / len), static_cast<float>(y / len), static_cast<float>(z / len)};
  }
  /// As Normalize, in float arithmetic (the host's fast form); zero stays zero.
  Point3 FNormalize() const {
    float len = FLength();
    if (!(len > 0.0f)) return len != len ? Point3(len, len, len) : Point3();
    return *this / len;
  }
  /// Normalises in place (zero stays zero) and returns *this.
  Point3& Unify() { return *this = Normalize(); }
  /// Normalises in place and returns the length it had.
  float LengthUnify() {
    float len = Length();
    Unify();
    return len;
  }

  /// Index 0, 1 or 2 of the component with the largest absolute value (the first on ties).
  constexpr int MaxComponent() const {
    float ax = x < 0 ? -x : x, ay = y < 0 ? -y : y, az = z < 0 ? -z : z;
    return ax >= ay ? (ax >= az ? 0 : 2) : (ay >= az ? 1 : 2);
  }
  /// Index 0, 1 or 2 of the component with the smallest absolute value (the first on ties).
  constexpr int MinComponent() const {
    float ax = x < 0 ? -x : x, ay = y < 0 ? -y : y, az = z < 0 ? -z : z;
    return ax <= ay ? (ax <= az ? 0 : 2) : (ay <= az ? 1 : 2);
  }
};

inline constexpr Point3 Point3::Origin{0.0f, 0.0f, 0.0f};
inline constexpr Point3 Point3::XAxis{1.0f, 0.0f, 0.0f};
inline constexpr Point3 Point3::YAxis{0.0f, 1.0f, 0.0f};
inline constexpr Point3 Point3::ZAxis{0.0f, 0.0f, 1.0f};

static_assert(sizeof(Point3) == 12 && std::is_trivially_copyable_v<Point3> &&
                  std::is_standard_layout_v<Point3>,
              "Point3 is written to files as three floats");

constexpr Point3 operator*(float f, const Point3& p) { return p * f; }
/// Dot product.
constexpr float DotProd(const Point3& a, const Point3& b) { return a % b; }
/// Cross product, right-handed.
constexpr Point3 CrossProd(const Point3& a, const Point3& b) { return a ^ b; }
inline float Length(const Point3& p) { return p.Length(); }
inline float FLength(const Point3& p) { return p.FLength(); }
constexpr float LengthSquared(const Point3& p) { return p.LengthSquared(); }
/// Unit vector along p; zero (or shorter than kNormalizeMinLength) gives zero.
inline Point3 Normalize(const Point3& p) { return p.Normalize(); }
/// Unit vector along p in float arithmetic; zero gives zero.
inline Point3 FNormalize(const Point3& p) { return p.FNormalize(); }

/// Four 32-bit floats (x, y, z, w), 16 bytes in files.
class Point4 {
 public:
  float x = 0.0f;
  float y = 0.0f;
  float z = 0.0f;
  float w = 0.0f;

  constexpr Point4() = default;
  constexpr Point4(float px, float py, float pz, float pw) : x(px), y(py), z(pz), w(pw) {}
  constexpr Point4(const Point3& p, float pw) : x(p.x), y(p.y), z(p.z), w(pw) {}

  /// Component i: 0 x, 1 y, 2 z, anything else w.
  constexpr float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : (i == 2 ? z : w)); }
  constexpr const float& operator[](int i) const {
    return i == 0 ? x : (i == 1 ? y : (i == 2 ? z : w));
  }
  constexpr Point4 operator-() const { return {-x, -y, -z, -w}; }
  constexpr Point4 operator+(const Point4& p) const { return {x + p.x, y + p.y, z + p.z, w + p.w}; }
  constexpr Point4 operator-(const Point4& p) const { return {x - p.x, y - p.y, z - p.z, w - p.w}; }
  constexpr Point4 operator*(float f) const { return {x * f, y * f, z * f, w * f}; }
  constexpr Point4 operator/(float f) const { return {x / f, y / f, z / f, w / f}; }
  constexpr bool operator==(const Point4& p) const {
    return x == p.x && y == p.y && z == p.z && w == p.w;
  }
  /// Dot product of all four components.
  constexpr float operator%(const Point4& p) const { return x * p.x + y * p.y + z * p.z + w * p.w; }
  /// The first three components.
  constexpr Point3 XYZ() const { return {x, y, z}; }
};

static_assert(sizeof(Point4) == 16, "Point4 is written to files as four floats");

/// An RGB colour, components nominally 0..1 (not clamped).
class Color {
 public:
  float r = 0.0f;
  float g = 0.0f;
  float b = 0.0f;

  constexpr Color() = default;
  constexpr Color(float cr, float cg, float cb) : r(cr), g(cg), b(cb) {}
  explicit constexpr Color(const Point3& p) : r(p.x), g(p.y), b(p.z) {}

  constexpr float& operator[](int i) { return i == 0 ? r : (i == 1 ? g : b); }
  constexpr const float& operator[](int i) const { return i == 0 ? r : (i == 1 ? g : b); }
  constexpr Color operator+(const Color& c) const { return {r + c.r, g + c.g, b + c.b}; }
  constexpr Color operator-(const Color& c) const { return {r - c.r, g - c.g, b - c.b}; }
  constexpr Color operator*(const Color& c) const { return {r * c.r, g * c.g, b * c.b}; }
  constexpr Color operator*(float f) const { return {r * f, g * f, b * f}; }
  constexpr bool operator==(const Color& c) const { return r == c.r && g == c.g && b == c.b; }
  constexpr explicit operator Point3() const { return {r, g, b}; }
  /// Each component clamped to 0..1.
  constexpr Color Clamped() const {
    auto c = [](float v) { return v < 0.0f ? 0.0f : (v > 1.0f ? 1.0f : v); };
    return {c(r), c(g), c(b)};
  }
};

/// An RGBA colour; alpha 1 is opaque.
class AColor {
 public:
  float r = 0.0f;
  float g = 0.0f;
  float b = 0.0f;
  float a = 1.0f;

  constexpr AColor() = default;
  constexpr AColor(float cr, float cg, float cb, float ca = 1.0f) : r(cr), g(cg), b(cb), a(ca) {}
  constexpr AColor(const Color& c, float ca = 1.0f) : r(c.r), g(c.g), b(c.b), a(ca) {}

  constexpr float& operator[](int i) { return i == 0 ? r : (i == 1 ? g : (i == 2 ? b : a)); }
  constexpr const float& operator[](int i) const {
    return i == 0 ? r : (i == 1 ? g : (i == 2 ? b : a));
  }
  constexpr AColor operator+(const AColor& c) const { return {r + c.r, g + c.g, b + c.b, a + c.a}; }
  constexpr AColor operator-(const AColor& c) const { return {r - c.r, g - c.g, b - c.b, a - c.a}; }
  constexpr AColor operator*(float f) const { return {r * f, g * f, b * f, a * f}; }
  constexpr bool operator==(const AColor& c) const {
    return r == c.r && g == c.g && b == c.b && a == c.a;
  }
  constexpr explicit operator Color() const { return {r, g, b}; }
};
