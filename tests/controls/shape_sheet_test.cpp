// Copyright Marvolith contributors.
// The contact sheet of the control figures against its golden picture, compared with a
// tolerance. MARVOLITH_UPDATE_GOLDEN=1 writes the golden picture anew instead.
#include "apps/marvolith/shape_sheet.h"

#include "controls/shape_library.h"
#include "tests/controls/controls_test_util.h"

// Qt after the project's headers: its `slots` keyword macro would clash with their names.
#include <QImage>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace marvolith::test {
namespace {

/// A pixel differs when one channel differs by more than this (0..255).
constexpr int kChannelTolerance = 40;
/// The pictures match when at most this fraction of their pixels differ.
constexpr double kDifferingFraction = 0.005;

const std::string kGoldenPath = std::string(MARVOLITH_CONTROLS_GOLDEN_DIR) + "/shapes_sheet.png";

using ShapeSheetTest = ControlsTest;

TEST_F(ShapeSheetTest, OneLabelledCellPerFigureWithSomethingDrawn) {
  std::vector<SheetCell> cells;
  std::string error;
  ASSERT_TRUE(BuildControlShapeSheet(cells, &error)) << error;
  ASSERT_EQ(cells.size(), static_cast<size_t>(kControlTypeCount));
  for (int type = 0; type < kControlTypeCount; ++type) {
    SCOPED_TRACE(type);
    EXPECT_EQ(cells[type].label, ControlTypeName(type));
    EXPECT_EQ(cells[type].list.LineCount() > 0, type != 0);
  }
}

TEST_F(ShapeSheetTest, MissingClassIsReported) {
  ClassDirectory::Get().RemoveClass(GetControlHelperDesc());
  std::vector<SheetCell> cells;
  std::string error;
  EXPECT_FALSE(BuildControlShapeSheet(cells, &error));
  EXPECT_EQ(error, "the Control Helper class is not registered");
  ClassDirectory::Get().AddClass(GetControlHelperDesc());
}

TEST_F(ShapeSheetTest, MatchesTheGoldenPicture) {
  const std::filesystem::path out =
      std::filesystem::temp_directory_path() / "marvolith_controls_shapes_sheet.png";
  std::string error;
  ASSERT_TRUE(RenderControlShapeSheet(out.string(), &error)) << error;
  const char* update = std::getenv("MARVOLITH_UPDATE_GOLDEN");
  if (update && std::string(update) == "1") {
    std::filesystem::copy_file(out, kGoldenPath, std::filesystem::copy_options::overwrite_existing);
    GTEST_SKIP() << "golden picture written to " << kGoldenPath;
  }
  const QImage actual =
      QImage(QString::fromStdString(out.string())).convertToFormat(QImage::Format_RGB32);
  const QImage golden =
      QImage(QString::fromStdString(kGoldenPath)).convertToFormat(QImage::Format_RGB32);
  ASSERT_FALSE(golden.isNull()) << "no golden picture at " << kGoldenPath
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
      if (d > kChannelTolerance) ++differing;
    }
  }
  const double fraction =
      static_cast<double>(differing) / (static_cast<double>(actual.width()) * actual.height());
  EXPECT_LE(fraction, kDifferingFraction)
      << differing << " pixels differ; the new picture is " << out.string();
  std::filesystem::remove(out);
}

}  // namespace
}  // namespace marvolith::test
