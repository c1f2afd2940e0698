// Copyright Marvolith contributors.
// The contact sheet of the control figures: one labelled picture per figure type, drawn by
// ControlHelper objects made through the class directory. Header only, and written against the
// host alone, so that the marvolith tool draws it through the loaded module's classes while the
// tests draw it through the linked ones.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "host/gfx/headless_viewport.h"
#include "host/params/iparamb2.h"
#include "host/registry/class_desc.h"
#include "host/render/render.h"
#include "host/script/fp_interface.h"

namespace marvolith {

/// Layout of the contact sheet.
inline constexpr int kShapeSheetColumns = 8;
inline constexpr int kShapeSheetCellPx = 144;
/// The colour the figures are drawn in: the host's default wire yellow.
inline constexpr Point3 kShapeSheetWire{0.88f, 0.78f, 0.25f};

/// Fills cells with one cell per value of the figure enumeration of the registered Control
/// Helper class (HELPER_CLASS_ID, (0x45596d57, 0x1e847b30)), in order, labelled with the
/// figure's name: a helper with default parameters and that type draws into a headless viewport
/// at time 0. Flat figures are framed from the top, the others in perspective. False with a
/// one-line reason in *error when the class is missing or does not publish its enumeration.
inline bool BuildControlShapeSheet(std::vector<SheetCell>& cells, std::string* error = nullptr) {
  auto fail = [error](const char* why) {
    if (error) *error = why;
    return false;
  };
  constexpr Class_ID kHelperClass(0x45596d57, 0x1e847b30);
  constexpr Interface_ID kHelperInterface(0x45596d57, 0x1e847b30);
  ClassDesc2* cd = ClassDirectory::Get().FindClass(HELPER_CLASS_ID, kHelperClass);
  if (!cd) return fail("the Control Helper class is not registered");
  const FPInterfaceDesc* fp_desc = nullptr;
  if (FPInterface* fpi = cd->GetInterface(kHelperInterface)) fp_desc = fpi->GetDesc();
  const FPPropertyDef* type_prop = fp_desc ? fp_desc->FindProperty("type") : nullptr;
  const FPEnumDef* types = type_prop ? fp_desc->FindEnum(type_prop->enum_id) : nullptr;
  if (!types) return fail("the Control Helper class publishes no figure types");

  cells.clear();
  HeadlessViewport viewport;
  for (const FPEnumDef::Item& item : types->items) {
    auto* object = dynamic_cast<BaseObject*>(cd->Create(false));
    IParamBlock2* pb = object ? object->GetParamBlockByID(0) : nullptr;
    const int type_index = pb ? pb->GetDesc()->NameToIndex("type") : -1;
    if (type_index < 0) {
      if (object) object->MaybeAutoDelete();
      return fail("a Control Helper has no type parameter");
    }
    pb->SetValue(pb->IndextoID(type_index), 0, item.value);
    viewport.BeginFrame();
    viewport.getGW()->setColor(LINE_COLOR, kShapeSheetWire);
    object->Display(0, nullptr, &viewport, 0);
    object->MaybeAutoDelete();

    SheetCell cell;
    cell.list = viewport.GetDisplayList();
    cell.label = item.name;
    const Point3 extent = cell.list.Bounds().Width();
    const bool flat = extent.z <= 1e-3f * std::max(extent.x, extent.y);
    cell.view_type = flat ? VIEW_TOP : VIEW_PERSP_USER;
    cells.push_back(std::move(cell));
  }
  return true;
}

/// Draws the contact sheet into path (PNG or SVG by its extension); *figures, when given, gets the
/// number of cells. False with a one-line reason in *error, as BuildControlShapeSheet and
/// RenderSheet give it.
inline bool RenderControlShapeSheet(const std::string& path,
                                    std::string* error = nullptr,
                                    int* figures = nullptr) {
  std::vector<SheetCell> cells;
  if (!BuildControlShapeSheet(cells, error)) return false;
  if (figures) *figures = static_cast<int>(cells.size());
  RenderOptions options;
  options.grid = false;
  return RenderSheet(cells, kShapeSheetColumns, kShapeSheetCellPx, path, options, error);
}

}  // namespace marvolith
