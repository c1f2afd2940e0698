// Copyright Marvolith contributors.
// The program's version: the text shown to users and the number written into files.
#pragma once

#include <string_view>

namespace marvolith {

/// The version as users see it (about box, `marvolith --version`).
inline constexpr char kVersionText[] = "2.02.02";

/// The number of a version text read as "%d.%d.%d": (major * 100 + minor) * 100 + patch.
/// Each field is read as %d reads it (leading blanks, an optional sign, then digits); reading
/// stops at the first field that does not match, and fields not read count as 0, so "2.1"
/// gives 20100 and "" gives 0. No clamping: fields are expected to stay below 100.
constexpr int VersionNumber(std::string_view text) {
  int fields[3] = {0, 0, 0};
  std::size_t i = 0;
  for (int f = 0; f < 3; ++f) {
    if (f > 0) {
      if (i >= text.size() || text[i] != '.') break;
      ++i;
    }
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n')) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) negative = text[i++] == '-';
    if (i >= text.size() || text[i] < '0' || text[i] > '9') break;
    int v = 0;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') v = v * 10 + (text[i++] - '0');
    fields[f] = negative ? -v : v;
  }
  return (fields[0] * 100 + fields[1]) * 100 + fields[2];
}

/// The version number written as the file version of rig systems (20202).
inline constexpr int kVersionNumber = VersionNumber(kVersionText);

}  // namespace marvolith
