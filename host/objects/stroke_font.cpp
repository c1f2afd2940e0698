// Copyright Marvolith contributors.
#include "host/objects/stroke_font.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>

namespace {

// Glyphs as text: strokes separated by ';', points "x,y" separated by spaces, in glyph units.
struct GlyphText {
  char c;
  float width;
  const char* strokes;
};

// clang-format off
constexpr GlyphText kGlyphs[] = {
    {'A', 4, "0,0 2,6 4,0; 1,3 3,3"},
    {'B', 4, "0,0 0,6 3,6 4,5 4,4 3,3 0,3; 3,3 4,2 4,1 3,0 0,0"},
    {'C', 4, "4,5 3,6 1,6 0,5 0,1 1,0 3,0 4,1"},
    {'D', 4, "0,0 0,6 2,6 4,4 4,2 2,0 0,0"},
    {'E', 4, "4,6 0,6 0,0 4,0; 0,3 3,3"},
    {'F', 4, "4,6 0,6 0,0; 0,3 3,3"},
    {'G', 4, "4,5 3,6 1,6 0,5 0,1 1,0 3,0 4,1 4,3 2,3"},
    {'H', 4, "0,0 0,6; 4,0 4,6; 0,3 4,3"},
    {'I', 4, "1,6 3,6; 2,6 2,0; 1,0 3,0"},
    {'J', 4, "4,6 4,1 3,0 1,0 0,1"},
    {'K', 4, "0,0 0,6; 4,6 0,2; 1.3,3.3 4,0"},
    {'L', 4, "0,6 0,0 4,0"},
    {'M', 4, "0,0 0,6 2,3 4,6 4,0"},
    {'N', 4, "0,0 0,6 4,0 4,6"},
    {'O', 4, "1,0 0,1 0,5 1,6 3,6 4,5 4,1 3,0 1,0"},
    {'P', 4, "0,0 0,6 3,6 4,5 4,4 3,3 0,3"},
    {'Q', 4, "1,0 0,1 0,5 1,6 3,6 4,5 4,1 3,0 1,0; 2,2 4,0"},
    {'R', 4, "0,0 0,6 3,6 4,5 4,4 3,3 0,3; 2,3 4,0"},
    {'S', 4, "4,5 3,6 1,6 0,5 0,4 1,3 3,3 4,2 4,1 3,0 1,0 0,1"},
    {'T', 4, "0,6 4,6; 2,6 2,0"},
    {'U', 4, "0,6 0,1 1,0 3,0 4,1 4,6"},
    {'V', 4, "0,6 2,0 4,6"},
    {'W', 4, "0,6 1,0 2,4 3,0 4,6"},
    {'X', 4, "0,0 4,6; 0,6 4,0"},
    {'Y', 4, "0,6 2,3 4,6; 2,3 2,0"},
    {'Z', 4, "0,6 4,6 0,0 4,0"},

    {'a', 4, "4,4 4,0; 4,3 3,4 1,4 0,3 0,1 1,0 3,0 4,1"},
    {'b', 4, "0,6 0,0; 0,3 1,4 3,4 4,3 4,1 3,0 1,0 0,1"},
    {'c', 4, "4,3 3,4 1,4 0,3 0,1 1,0 3,0 4,1"},
    {'d', 4, "4,6 4,0; 4,3 3,4 1,4 0,3 0,1 1,0 3,0 4,1"},
    {'e', 4, "0,2 4,2 4,3 3,4 1,4 0,3 0,1 1,0 4,0"},
    {'f', 4, "4,5 3,6 2,6 1,5 1,0; 0,4 3,4"},
    {'g', 4, "4,4 4,-1 3,-2 1,-2 0,-1; 4,3 3,4 1,4 0,3 0,1 1,0 3,0 4,1"},
    {'h', 4, "0,6 0,0; 0,3 1,4 3,4 4,3 4,0"},
    {'i', 2, "1,0 1,4; 1,5 1,5.6"},
    {'j', 3, "2,4 2,-1 1,-2 0,-2; 2,5 2,5.6"},
    {'k', 4, "0,6 0,0; 3,4 0,1; 1,2 3,0"},
    {'l', 2, "0,6 1,6 1,1 2,0"},
    {'m', 4, "0,4 0,0; 0,3 1,4 2,3 2,0; 2,3 3,4 4,3 4,0"},
    {'n', 4, "0,4 0,0; 0,3 1,4 3,4 4,3 4,0"},
    {'o', 4, "1,0 0,1 0,3 1,4 3,4 4,3 4,1 3,0 1,0"},
    {'p', 4, "0,4 0,-2; 0,3 1,4 3,4 4,3 4,1 3,0 1,0 0,1"},
    {'q', 4, "4,4 4,-2; 4,3 3,4 1,4 0,3 0,1 1,0 3,0 4,1"},
    {'r', 4, "0,4 0,0; 0,3 1,4 3,4 4,3"},
    {'s', 4, "4,3 3,4 1,4 0,3 1,2 3,2 4,1 3,0 1,0 0,1"},
    {'t', 3, "1,6 1,1 2,0 3,0; 0,4 3,4"},
    {'u', 4, "0,4 0,1 1,0 3,0 4,1; 4,4 4,0"},
    {'v', 4, "0,4 2,0 4,4"},
    {'w', 4, "0,4 1,0 2,3 3,0 4,4"},
    {'x', 4, "0,0 4,4; 0,4 4,0"},
    {'y', 4, "0,4 2,0; 4,4 1,-2"},
    {'z', 4, "0,4 4,4 0,0 4,0"},

    {'0', 4, "1,0 0,1 0,5 1,6 3,6 4,5 4,1 3,0 1,0; 0,1 4,5"},
    {'1', 4, "1,5 2,6 2,0; 1,0 3,0"},
    {'2', 4, "0,5 1,6 3,6 4,5 4,4 0,0 4,0"},
    {'3', 4, "0,5 1,6 3,6 4,5 4,4 3,3 4,2 4,1 3,0 1,0 0,1; 1,3 3,3"},
    {'4', 4, "3,0 3,6 0,2 4,2"},
    {'5', 4, "4,6 0,6 0,3 3,3 4,2 4,1 3,0 1,0 0,1"},
    {'6', 4, "4,5 3,6 1,6 0,5 0,1 1,0 3,0 4,1 4,2 3,3 0,3"},
    {'7', 4, "0,6 4,6 1,0"},
    {'8', 4, "1,3 0,4 0,5 1,6 3,6 4,5 4,4 3,3 1,3 0,2 0,1 1,0 3,0 4,1 4,2 3,3"},
    {'9', 4, "0,1 1,0 3,0 4,1 4,5 3,6 1,6 0,5 0,4 1,3 4,3"},

    {'.', 1, "0.5,0 0.5,0.6"},
    {',', 1, "0.5,0.6 0.5,0 0,-1"},
    {':', 1, "0.5,0 0.5,0.6; 0.5,3.4 0.5,4"},
    {';', 1, "0.5,3.4 0.5,4; 0.5,0.6 0.5,0 0,-1"},
    {'!', 1, "0.5,6 0.5,2; 0.5,0 0.5,0.6"},
    {'?', 4, "0,5 1,6 3,6 4,5 4,4 2,3 2,2; 2,0 2,0.6"},
    {'\'', 1, "0.5,6 0.5,4.5"},
    {'"', 2, "0.5,6 0.5,4.5; 1.5,6 1.5,4.5"},
    {'-', 3, "0,3 3,3"},
    {'+', 4, "0,3 4,3; 2,1 2,5"},
    {'=', 4, "0,2 4,2; 0,4 4,4"},
    {'/', 4, "0,0 4,6"},
    {'\\', 4, "0,6 4,0"},
    {'(', 2, "2,6 1,5 1,1 2,0"},
    {')', 2, "0,6 1,5 1,1 0,0"},
    {'[', 2, "2,6 1,6 1,0 2,0"},
    {']', 2, "0,6 1,6 1,0 0,0"},
    {'<', 4, "4,5 0,3 4,1"},
    {'>', 4, "0,5 4,3 0,1"},
    {'_', 4, "0,-1 4,-1"},
    {'*', 4, "2,1 2,5; 0,2 4,4; 0,4 4,2"},
    {'#', 4, "1,0 1,6; 3,0 3,6; 0,2 4,2; 0,4 4,4"},
    {'%', 4, "0,0 4,6; 0,6 0,5; 4,1 4,0"},
};
// clang-format on

// Space's advance, in glyph units.
constexpr float kSpaceUnits = 4.0f;
// Room after each glyph, in glyph units.
constexpr float kGapUnits = 1.0f;
// Glyph units in the font's height (descender -2 to cap 6).
constexpr float kUnitsPerSize = 8.0f;

StrokeGlyph Parse(const GlyphText& g) {
  StrokeGlyph glyph;
  glyph.width = g.width;
  glyph.strokes.emplace_back();
  const char* p = g.strokes;
  while (*p) {
    if (*p == ' ') {
      ++p;
    } else if (*p == ';') {
      glyph.strokes.emplace_back();
      ++p;
    } else {
      char* end = nullptr;
      const float x = std::strtof(p, &end);
      const float y = std::strtof(end + 1, &end);  // skips the ','
      glyph.strokes.back().push_back(Point2(x, y));
      p = end;
    }
  }
  return glyph;
}

// The parsed glyphs by character code (ASCII only); the table is built on first use.
const std::array<StrokeGlyph, 128>& Table() {
  static const std::array<StrokeGlyph, 128> table = [] {
    std::array<StrokeGlyph, 128> t{};
    for (const GlyphText& g : kGlyphs) t[static_cast<unsigned char>(g.c)] = Parse(g);
    return t;
  }();
  return table;
}

// Decodes the next code point of text at i (advancing i); malformed bytes come back one at a
// time as U+FFFD.
char32_t NextCodePoint(std::string_view text, size_t& i) {
  const auto b0 = static_cast<unsigned char>(text[i++]);
  if (b0 < 0x80) return b0;
  int extra = 0;
  char32_t cp = 0;
  if ((b0 & 0xe0) == 0xc0) {
    extra = 1;
    cp = b0 & 0x1f;
  } else if ((b0 & 0xf0) == 0xe0) {
    extra = 2;
    cp = b0 & 0x0f;
  } else if ((b0 & 0xf8) == 0xf0) {
    extra = 3;
    cp = b0 & 0x07;
  } else {
    return 0xfffd;
  }
  if (text.size() - i < static_cast<size_t>(extra)) return 0xfffd;
  for (int k = 0; k < extra; ++k) {
    const auto b = static_cast<unsigned char>(text[i + static_cast<size_t>(k)]);
    if ((b & 0xc0) != 0x80) return 0xfffd;
    cp = (cp << 6) | (b & 0x3f);
  }
  i += static_cast<size_t>(extra);
  return cp;
}

}  // namespace

std::string_view StrokeFontCharacters() {
  static const std::string chars = [] {
    std::string s;
    for (const GlyphText& g : kGlyphs) s += g.c;
    return s;
  }();
  return chars;
}

const StrokeGlyph* FindStrokeGlyph(char32_t c) {
  if (c >= 128) return nullptr;
  const StrokeGlyph& g = Table()[c];
  return g.strokes.empty() ? nullptr : &g;
}

void BuildStrokeText(std::string_view text, const StrokeTextLayout& layout, BezierShape& shape) {
  const float unit = std::max(layout.size, 0.0f) / kUnitsPerSize;
  float x = 0.0f, y = 0.0f;
  size_t i = 0;
  while (i < text.size()) {
    const char32_t c = NextCodePoint(text, i);
    if (c == '\n' || c == '\r') {
      // "\r\n" is one line break.
      if (c == '\r' && i < text.size() && text[i] == '\n') ++i;
      x = 0.0f;
      y -= std::max(layout.size, 0.0f) + layout.leading;
      continue;
    }
    const StrokeGlyph* glyph = FindStrokeGlyph(c);
    if (!glyph) {
      x += kSpaceUnits * unit + layout.kerning;
      continue;
    }
    for (const auto& stroke : glyph->strokes) {
      Spline3D* spline = shape.NewSpline();
      for (const Point2& q : stroke) {
        const Point3 p(x + q.x * unit, y + q.y * unit, 0.0f);
        spline->AddKnot(SplineKnot(KTYPE_CORNER, LTYPE_CURVE, p, p, p));
      }
    }
    x += (glyph->width + kGapUnits) * unit + layout.kerning;
  }
}
