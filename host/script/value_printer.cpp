// Copyright Marvolith contributors.
#include "host/script/value_printer.h"

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <numbers>

#include "host/core/control.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/script/fp_interface.h"
#include "host/script/script_value.h"

namespace {

constexpr float kDegPerRad = static_cast<float>(180.0 / std::numbers::pi);

// "%g": six significant digits, no trailing zeros; components of points and the like.
std::string G(float f) {
  char buf[32];
  std::snprintf(buf, sizeof(buf), "%g", static_cast<double>(f));
  return buf;
}

// A name that is a plain identifier prints bare; others in single quotes ($'left arm').
bool IsPlainIdentifier(std::string_view s) {
  if (s.empty() || std::isdigit(static_cast<unsigned char>(s[0]))) return false;
  for (char c : s) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') return false;
  }
  return true;
}

std::string QuotedIfNeeded(std::string_view s) {
  return IsPlainIdentifier(s) ? std::string(s) : "'" + std::string(s) + "'";
}

// The class name as script shows it: blanks become underscores.
std::string ScriptClassName(const Animatable& anim) {
  std::string name = anim.ClassName();
  for (char& c : name) {
    if (c == ' ') c = '_';
  }
  return name;
}

void Print(const FPValue& v, std::string& out);

void PrintPoint3(const Point3& p, std::string& out) {
  out += "[" + G(p.x) + "," + G(p.y) + "," + G(p.z) + "]";
}

void PrintString(const std::string& s, std::string& out) {
  out += '"';
  for (char c : s) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        out += c;
    }
  }
  out += '"';
}

void PrintTime(TimeValue ticks, std::string& out) {
  const int tpf = GetCOREInterface()->GetTicksPerFrame();
  if (ticks % tpf == 0) {
    out += std::to_string(ticks / tpf) + "f";
  } else {
    out += G(static_cast<float>(static_cast<double>(ticks) / tpf)) + "f";
  }
}

// #{1..3, 7}: 1-based element numbers, runs of two or more as ranges.
void PrintBitArray(const BitArray& bits, std::string& out) {
  out += "#{";
  bool first = true;
  for (int i = 0; i < bits.GetSize(); ++i) {
    if (!bits[i]) continue;
    int last = i;
    while (bits[last + 1]) ++last;
    if (!first) out += ", ";
    first = false;
    out += std::to_string(i + 1);
    if (last > i) out += ".." + std::to_string(last + 1);
    i = last;
  }
  out += "}";
}

void Print(const FPValue& v, std::string& out) {
  using enum FPType;
  if (!IsScriptType(v.Type())) {
    Print(ToScriptValue(v), out);
    return;
  }
  switch (v.Type()) {
    case TYPE_UNDEFINED:
      out += "undefined";
      return;
    case TYPE_VOID:
      out += "OK";
      return;
    case TYPE_INT:
      out += std::to_string(v.AsInt());
      return;
    case TYPE_FLOAT:
      out += ScriptFloatString(v.AsFloat());
      return;
    case TYPE_BOOL:
      out += v.AsBool() ? "true" : "false";
      return;
    case TYPE_STRING:
      PrintString(v.AsString(), out);
      return;
    case TYPE_NAME:
      out += "#" + QuotedIfNeeded(v.AsString());
      return;
    case TYPE_POINT3:
      PrintPoint3(v.AsPoint3(), out);
      return;
    case TYPE_POINT4: {
      Point4 p = v.AsPoint4();
      out += "[" + G(p.x) + "," + G(p.y) + "," + G(p.z) + "," + G(p.w) + "]";
      return;
    }
    case TYPE_QUAT: {
      Quat q = v.AsQuat();
      out += "(quat " + G(q.x) + " " + G(q.y) + " " + G(q.z) + " " + G(q.w) + ")";
      return;
    }
    case TYPE_ANGAXIS: {
      AngAxis a = v.AsAngAxis();
      out += "(angleAxis " + G(a.angle * kDegPerRad) + " ";
      PrintPoint3(a.axis, out);
      out += ")";
      return;
    }
    case TYPE_MATRIX3: {
      Matrix3 m = v.AsMatrix3();
      out += "(matrix3";
      for (int row = 0; row < 4; ++row) {
        out += " ";
        PrintPoint3(m.GetRow(row), out);
      }
      out += ")";
      return;
    }
    case TYPE_COLOR: {
      Color c = v.AsColor();
      out += "(color " + G(c.r * 255.0f) + " " + G(c.g * 255.0f) + " " + G(c.b * 255.0f) + ")";
      return;
    }
    case TYPE_BITARRAY:
      PrintBitArray(v.AsBitArray(), out);
      return;
    case TYPE_TIMEVALUE:
      PrintTime(v.AsTime(), out);
      return;
    case TYPE_INODE:
    case TYPE_REFTARG:
    case TYPE_CONTROL: {
      if (v.IsNullPointer()) {
        out += "undefined";
      } else if (INode* node = v.AsNode()) {
        out += "$" + QuotedIfNeeded(node->GetName());
      } else if (Control* control = v.AsControl()) {
        out += "Controller:" + ScriptClassName(*control);
      } else if (ReferenceTarget* target = v.AsRefTarg()) {
        out += "ReferenceTarget:" + ScriptClassName(*target);
      } else {
        out += v.Type() == TYPE_INODE ? "<Deleted scene node>" : "<Deleted object>";
      }
      return;
    }
    case TYPE_INTERFACE: {
      FPInterface* fpi = v.AsInterface();
      FPInterfaceDesc* desc = fpi ? fpi->GetDesc() : nullptr;
      if (!desc) {
        out += "undefined";
        return;
      }
      out += (desc->Flags() & FP_MIXIN) ? "<MixinInterface:" : "<Interface:";
      out += desc->InternalName() + ">";
      return;
    }
    case TYPE_HWND: {
      char buf[32];
      std::snprintf(buf, sizeof(buf), "%" PRIdPTR, reinterpret_cast<intptr_t>(v.AsHWnd()));
      out += v.IsNullPointer() ? "undefined" : buf;
      return;
    }
    case TYPE_SUBANIM: {
      Animatable* parent = v.AsSubAnimParent();
      if (!parent || v.AsSubAnimIndex() < 0 || v.AsSubAnimIndex() >= parent->NumSubs()) {
        out += "<Deleted SubAnim>";
        return;
      }
      std::string name = parent->SubAnimName(v.AsSubAnimIndex());
      std::replace(name.begin(), name.end(), ' ', '_');
      out += "SubAnim:" + name;
      return;
    }
    case TYPE_VALUE_TAB:
      out += "#(";
      for (int i = 0; i < v.Count(); ++i) {
        if (i > 0) out += ", ";
        Print(v.Item(i), out);
      }
      out += ")";
      return;
    default:
      out += "undefined";
      return;
  }
}

}  // namespace

std::string ScriptFloatString(float f) {
  std::string s = G(f);
  // A whole number keeps a ".0" so that it reads as a float; inf and nan stay as they are.
  if (s.find_first_not_of("-0123456789") == std::string::npos) s += ".0";
  return s;
}

std::string ToScriptString(const FPValue& value) {
  std::string out;
  Print(value, out);
  return out;
}
