// Copyright Marvolith contributors.
// Pictures of display lists: PNG and SVG files drawn through Qt's QPainter, headless (no display,
// no font files: text uses the host's stroke font). Library marvolith_host_render; this header
// needs no Qt.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/gfx/display_list.h"
#include "host/gfx/view_camera.h"
#include "host/math/point3.h"

/// How a display list becomes a picture.
struct RenderOptions {
  /// Background, RGB 0..1: the host viewport's dark grey.
  Point3 background{0.27f, 0.27f, 0.27f};
  /// The home grid through the origin, the lines through the origin darker: in the plane of a
  /// fixed view (world XZ for front and back, YZ for left and right, XY for top and bottom) every
  /// smallest power of ten at least 10 pixels apart; on the ground (XY) in user views, some 10
  /// to 100 lines each way out to three times the eye's distance.
  bool grid = true;
  /// Text primitives (labels).
  bool labels = true;
  bool antialias = true;
  /// Width of lines in pixels.
  float line_width_px = 1.0f;
  /// Height of text in pixels, from the lowest descender to the top of the capitals.
  float text_height_px = 12.0f;
};

enum class ImageFormat { kPng, kSvg };

/// The format that path's extension names (".png" or ".svg", any case); nullopt otherwise.
std::optional<ImageFormat> ImageFormatForPath(std::string_view path);

/// Draws list as seen by camera into the file path, a PNG or an SVG by its extension, the size
/// of the camera's window. Polylines and markers recorded with draw_on_top come after all
/// others. Lines are clipped to a perspective camera's near plane. False with a one-line reason
/// in *error (when given) for an unknown extension or a file that cannot be written.
[[nodiscard]] bool RenderToFile(const DisplayList& list,
                                const ViewCamera& camera,
                                const RenderOptions& options,
                                const std::string& path,
                                std::string* error = nullptr);

/// One picture of a contact sheet.
struct SheetCell {
  DisplayList list;
  /// The view it is framed in (ViewCamera::Framing of the list's bounds).
  int view_type = VIEW_PERSP_USER;
  /// Shown under the picture; may be empty.
  std::string label;
};

/// A contact sheet: cells left to right, top to bottom, columns to a row (at least 1), each a
/// square picture of cell_px (at least 16) framing its own list, with its label in a strip
/// under it, on one background. Written as PNG or SVG by path's extension; false with a reason
/// as RenderToFile. The grid is drawn only when options.grid is on.
[[nodiscard]] bool RenderSheet(std::span<const SheetCell> cells,
                               int columns,
                               int cell_px,
                               const std::string& path,
                               const RenderOptions& options = {},
                               std::string* error = nullptr);
