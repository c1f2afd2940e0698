// Copyright Marvolith contributors.
// The headless host's one font: letters made of straight strokes, so that text shapes have
// recognisable outlines without font files.
#pragma once

#include <string_view>
#include <vector>

#include "host/math/point3.h"
#include "host/objects/bezier_shape.h"

/// One glyph: polylines in glyph units. The baseline is y 0, capitals and ascenders reach y 6,
/// the x-height is 4 and descenders reach y -2; x runs from 0 to `width`.
struct StrokeGlyph {
  float width = 4.0f;
  std::vector<std::vector<Point2>> strokes;
};

/// Every character the font draws: A-Z, a-z, 0-9 and . , : ; ! ? ' " - + = / \ ( ) [ ] < > _ * # %
std::string_view StrokeFontCharacters();

/// The glyph of c, or null for a character the font does not draw (space included).
const StrokeGlyph* FindStrokeGlyph(char32_t c);

/// How text is laid out.
struct StrokeTextLayout {
  /// Height from the lowest descender to the top of the capitals, world units: a glyph unit is
  /// size / 8. Negative counts as 0.
  float size = 100.0f;
  /// Extra room after each character, world units (may be negative).
  float kerning = 0.0f;
  /// Extra room between lines, world units (may be negative).
  float leading = 0.0f;
};

/// Appends text (UTF-8) to shape as open splines of corner knots, one per stroke, in the XY
/// plane: the first line's baseline on the X axis starting at the origin, reading along +X, each
/// further line (after "\n", or "\r" not followed by "\n") size + leading lower in Y. A character
/// advances by (glyph width + 1) glyph units plus kerning. A character the font does not draw
/// (space, tab, any other character, and each byte of malformed UTF-8) adds no spline and advances
/// as a space, 4 glyph units plus kerning.
void BuildStrokeText(std::string_view text, const StrokeTextLayout& layout, BezierShape& shape);
