// Copyright Marvolith contributors.
// Rig templates from the outside: "Rig" objects made through the class directory, their type and
// block values set by script name, their published interface found by name, their drawing, and
// the contact sheet of every creature type. Header only, and written against the host alone, so
// that the marvolith tool draws through the loaded module's classes while the tests draw through
// the linked ones.
#pragma once

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/gfx/headless_viewport.h"
#include "host/params/iparamb2.h"
#include "host/registry/class_desc.h"
#include "host/render/render.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/scene/object.h"
#include "host/script/fp_interface.h"

namespace marvolith {

/// The class of the template object: "Rig", a helper.
inline constexpr Class_ID kRigObjectClass(0x45596d57, 0x1e847b40);
/// Its public twin in the systems category; both make the same object.
inline constexpr Class_ID kRigSystemObjectClass(0x45596d57, 0x1e847b41);
/// The block parameter that holds the rig type: it has no script name.
inline constexpr ParamID kRigTypeParamId = 3;

/// The names of the rig type enumeration, by value.
inline constexpr std::string_view kRigTypeNames[] = {
    "Biped",     "Hands",    "Feet",      "Arms",     "Legs",      "Spine",    "Head",
    "Tail",      "Ears",     "FrontLegs", "BackLegs", "Quadruped", "Minotaur", "Centaur",
    "FrontPaws", "BackPaws", "InsectLeg", "Insect",   "Face",      "Ant",      "Bird",
    "Octopus",   "Snake",    "Fish",      "Claws",    "BirdLeg",   "Wing",     "Tentacle"};
inline constexpr int kRigTypeCount = static_cast<int>(std::size(kRigTypeNames));
/// Types past this one have no template; Ears (8) has none either.
inline constexpr int kLastTemplatedRigType = 18;
inline constexpr int kRigTypeWithoutTemplate = 8;

/// Layout of the template sheet.
inline constexpr int kRigSheetColumns = 6;
inline constexpr int kRigSheetCellPx = 192;
/// The wire colour of the drawn templates: the host's default wire yellow, as 0x00BBGGRR.
inline constexpr DWORD kRigSheetWire = 0x0040C8E0;

inline bool EqualsNoCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

/// The type named by text: an enumeration name in any case, or its number 0..27.
inline std::optional<int> ParseRigType(std::string_view text) {
  for (int i = 0; i < kRigTypeCount; ++i)
    if (EqualsNoCase(text, kRigTypeNames[i])) return i;
  int value = -1;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec == std::errc() && end == text.data() + text.size() && value >= 0 && value < kRigTypeCount)
    return value;
  return std::nullopt;
}

/// "biped, hands, ..., tentacle": what --type accepts, for its error line.
inline std::string RigTypeChoices() {
  std::string out;
  for (std::string_view name : kRigTypeNames) {
    if (!out.empty()) out += ", ";
    for (char c : name) out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return out + " or 0.." + std::to_string(kRigTypeCount - 1);
}

/// True for an object of either template class.
inline bool IsRigObject(Animatable* anim) {
  if (!anim) return false;
  const Class_ID cid = anim->ClassID();
  return cid == kRigObjectClass || cid == kRigSystemObjectClass;
}

/// The published mixin interface of a template object that has the function named function,
/// found through its class's interface tables; null when there is none.
inline FPInterface* RigInterfaceWith(Animatable* anim, std::string_view function) {
  if (!anim) return nullptr;
  ClassDesc2* cd = ClassDirectory::Get().FindClass(anim->SuperClassID(), anim->ClassID());
  if (!cd) return nullptr;
  for (int i = 0; i < cd->NumInterfaces(); ++i) {
    FPInterface* table = cd->GetInterfaceAt(i);
    FPInterfaceDesc* desc = table ? table->GetDesc() : nullptr;
    if (!desc || !desc->FindFunction(function)) continue;
    if (FPInterface* fpi = GetFPInterface(anim, desc->ID())) return fpi;
  }
  return nullptr;
}

/// A new template object with its node in the open scene, the node drawn in the sheet's wire
/// colour. Null, with the one-line reason in *error, when the class is not registered.
inline INode* CreateRigNode(const char* name, std::string* error) {
  ClassDesc2* cd = ClassDirectory::Get().FindClass(HELPER_CLASS_ID, kRigObjectClass);
  auto* object = cd ? dynamic_cast<Object*>(cd->Create(false)) : nullptr;
  if (!object || !object->GetParamBlockByID(0)) {
    if (object) object->MaybeAutoDelete();
    if (error) *error = "the Rig class is not registered";
    return nullptr;
  }
  INode* node = GetCOREInterface()->CreateObjectNode(object, name);
  if (node) node->SetWireColor(kRigSheetWire);
  return node;
}

/// Sets the rig type of object (which applies that type's presets and makes its template).
inline bool SetRigType(Animatable* object, int type, std::string* error) {
  IParamBlock2* pb = object ? object->GetParamBlockByID(0) : nullptr;
  if (pb && pb->SetValue(kRigTypeParamId, 0, type)) return true;
  if (error) *error = "the Rig object refused type " + std::to_string(type);
  return false;
}

namespace rig_sheet_internal {

inline std::optional<double> ParseNumber(std::string_view text) {
  std::string s(text);
  char* end = nullptr;
  const double v = std::strtod(s.c_str(), &end);
  if (s.empty() || end != s.c_str() + s.size() || !std::isfinite(v)) return std::nullopt;
  return v;
}

inline std::optional<int> ParseInt(std::string_view text) {
  int v = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return v;
}

inline std::optional<bool> ParseBool(std::string_view text) {
  for (std::string_view t : {"true", "on", "1", "yes"})
    if (EqualsNoCase(text, t)) return true;
  for (std::string_view f : {"false", "off", "0", "no"})
    if (EqualsNoCase(text, f)) return false;
  return std::nullopt;
}

inline std::optional<Point3> ParseTriple(std::string_view text) {
  double v[3];
  for (int k = 0; k < 3; ++k) {
    const size_t comma = text.find(',');
    if ((k < 2) != (comma != std::string_view::npos)) return std::nullopt;
    const auto n = ParseNumber(text.substr(0, comma));
    if (!n) return std::nullopt;
    v[k] = *n;
    text = k < 2 ? text.substr(comma + 1) : std::string_view();
  }
  return Point3(static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2]));
}

inline std::string FormatRange(double low, double high) {
  char text[64];
  std::snprintf(text, sizeof text, "%g..%g", low, high);
  return text;
}

}  // namespace rig_sheet_internal

/// Applies one "name=value" to the block of object by the parameter's script name: ints and
/// indices as whole numbers, bools as true/false/on/off/1/0, floats and lengths as numbers,
/// angles in degrees, colours and points as "r,g,b", strings as they stand. A value outside the
/// parameter's range is refused, not clamped. False, with the one-line reason in *error and
/// nothing written, for an unknown name, a value that does not parse or a parameter of another
/// kind.
inline bool ApplyRigSetting(Animatable* object, std::string_view setting, std::string* error) {
  using namespace rig_sheet_internal;
  auto fail = [&](const std::string& why) {
    if (error) *error = why;
    return false;
  };
  const size_t eq = setting.find('=');
  if (eq == std::string_view::npos || eq == 0)
    return fail("--set '" + std::string(setting) + "' is not name=value");
  const std::string name(setting.substr(0, eq));
  const std::string_view text = setting.substr(eq + 1);
  IParamBlock2* pb = object ? object->GetParamBlockByID(0) : nullptr;
  const int index = pb ? pb->GetDesc()->NameToIndex(name.c_str()) : -1;
  const ParamDef* def = index >= 0 ? pb->GetDesc()->GetParamDefByIndex(index) : nullptr;
  if (!def) return fail("the Rig object has no parameter '" + name + "'");
  const std::string bad = "bad value '" + std::string(text) + "' for " + name;
  double low = 0.0, high = 0.0;
  const bool ranged = def->has_range;
  if (ranged) {
    low = def->range_low;
    high = def->range_high;
  }
  auto out_of_range = [&](double v) {
    return ranged && (v < low - 1e-9 || v > high + 1e-9)
               ? fail(bad + ": outside " + FormatRange(low, high))
               : false;
  };
  const ParamID id = def->ID;
  bool written = false;
  switch (def->type) {
    case TYPE_INT:
    case TYPE_INDEX: {
      const auto v = ParseInt(text);
      if (!v) return fail(bad + ": expected a whole number");
      if (out_of_range(*v)) return false;
      written = pb->SetValue(id, 0, *v);
      break;
    }
    case TYPE_BOOL: {
      const auto v = ParseBool(text);
      if (!v) return fail(bad + ": expected true or false");
      written = pb->SetValue(id, 0, *v);
      break;
    }
    case TYPE_FLOAT:
    case TYPE_WORLD:
    case TYPE_ANGLE:
    case TYPE_PCNT_FRAC: {
      const auto v = ParseNumber(text);
      if (!v) return fail(bad + ": expected a number");
      if (out_of_range(*v)) return false;
      double stored = *v;
      if (def->type == TYPE_ANGLE) stored = *v * 3.14159265358979323846 / 180.0;
      if (def->type == TYPE_PCNT_FRAC) stored = *v / 100.0;
      written = pb->SetValue(id, 0, static_cast<float>(stored));
      break;
    }
    case TYPE_RGBA:
    case TYPE_POINT3: {
      const auto v = ParseTriple(text);
      if (!v) return fail(bad + ": expected three numbers r,g,b");
      written = def->type == TYPE_RGBA ? pb->SetValue(id, 0, Color(v->x, v->y, v->z))
                                       : pb->SetValue(id, 0, *v);
      break;
    }
    case TYPE_STRING:
      written = pb->SetValue(id, 0, std::string(text).c_str());
      break;
    default:
      return fail("the parameter '" + name + "' cannot be set from the command line");
  }
  return written ? true : fail(bad + ": refused by the Rig object");
}

/// Draws node's object at time 0 into a fresh frame of viewport.
inline void DrawRigNode(INode* node, HeadlessViewport& viewport) {
  viewport.BeginFrame();
  if (Object* object = node ? node->GetObjectRef() : nullptr) {
    viewport.GetHeadlessGW().SetDrawingNode(Animatable::GetHandleByAnim(node));
    object->Display(0, node, &viewport, 0);
  }
}

/// Fills cells with one cell per rig type that has a template (0..18 but Ears), in order,
/// labelled with the type's name: one Rig object of the registered class, default parameters and
/// that type, drawn into a headless viewport at time 0 and framed in a three-quarter perspective.
/// The object and its node are made in the open scene and deleted again. False with a one-line
/// reason in *error when the class is missing.
inline bool BuildRigTemplateSheet(std::vector<SheetCell>& cells, std::string* error = nullptr) {
  INode* node = CreateRigNode("rig_template_sheet", error);
  if (!node) return false;
  cells.clear();
  HeadlessViewport viewport;
  bool ok = true;
  for (int type = 0; type <= kLastTemplatedRigType && ok; ++type) {
    if (type == kRigTypeWithoutTemplate) continue;
    ok = SetRigType(node->GetObjectRef(), type, error);
    DrawRigNode(node, viewport);
    SheetCell cell;
    cell.list = viewport.GetDisplayList();
    cell.label = std::string(kRigTypeNames[type]);
    cell.view_type = VIEW_PERSP_USER;
    cells.push_back(std::move(cell));
  }
  GetCOREInterface()->DeleteNode(node, false);
  return ok;
}

/// Draws the template sheet into path (PNG or SVG by its extension); *types, when given, gets the
/// number of cells. False with a one-line reason in *error.
inline bool RenderRigTemplateSheet(const std::string& path,
                                   std::string* error = nullptr,
                                   int* types = nullptr) {
  std::vector<SheetCell> cells;
  if (!BuildRigTemplateSheet(cells, error)) return false;
  if (types) *types = static_cast<int>(cells.size());
  RenderOptions options;
  options.grid = false;
  return RenderSheet(cells, kRigSheetColumns, kRigSheetCellPx, path, options, error);
}

}  // namespace marvolith
