// Copyright Marvolith contributors.
// A drawn picture against its committed golden copy, compared with a tolerance. With
// MARVOLITH_UPDATE_GOLDEN=1 the golden copy is written anew instead and the test is skipped.
// For test binaries that link Qt5::Gui.
#pragma once

#include <gtest/gtest.h>

// Qt after the project's headers: its `slots` keyword macro would clash with their names.
#include <QImage>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace marvolith::test {

/// A pixel differs when one channel differs by more than this (0..255).
inline constexpr int kGoldenChannelTolerance = 40;
/// The pictures match when at most this fraction of their pixels differ.
inline constexpr double kGoldenDifferingFraction = 0.005;

/// Checks the picture at out against golden (or writes golden, see above); removes out when
/// they match. Call it as the last statement of a test: it may skip the test.
inline void ExpectMatchesGoldenPicture(const std::filesystem::path& out,
                                       const std::string& golden_path) {
  const char* update = std::getenv("MARVOLITH_UPDATE_GOLDEN");
  if (update && std::string(update) == "1") {
    std::filesystem::copy_file(out, golden_path, std::filesystem::copy_options::overwrite_existing);
    GTEST_SKIP() << "golden picture written to " << golden_path;
  }
  const QImage actual =
      QImage(QString::fromStdString(out.string())).convertToFormat(QImage::Format_RGB32);
  const QImage golden =
      QImage(QString::fromStdString(golden_path)).convertToFormat(QImage::Format_RGB32);
  ASSERT_FALSE(golden.isNull()) << "no golden picture at " << golden_path
                                << "; run with MARVOLITH_UPDATE_GOLDEN=1 to write it";
  ASSERT_EQ(actual.size(), golden.size());
  long differing = 0;
  for (int y = 0; y < actual.height(); ++y) {
    const auto* a = reinterpret_cast<const QRgb*>(actual.constScanLine(y));
    const auto* g = reinterpret_cast<const QRgb*>(golden.constScanLine(y));
    for (int x = 0; x < actual.width(); ++x) {
      const int d =
          std::max({std::abs(qRed(a[x]) - qRed(g[x])), std::abs(qGreen(a[x]) - qGreen(g[x])),
                    std::abs(qBlue(a[x]) - qBlue(g[x]))});
      if (d > kGoldenChannelTolerance) ++differing;
    }
  }
  const double fraction =
      static_cast<double>(differing) / (static_cast<double>(actual.width()) * actual.height());
  EXPECT_LE(fraction, kGoldenDifferingFraction)
      << differing << " pixels differ; the new picture is " << out.string();
  if (fraction <= kGoldenDifferingFraction) std::filesystem::remove(out);
}

}  // namespace marvolith::test
