// Copyright Marvolith contributors.
// The contact sheet of the control figures against its golden picture, compared with a
// tolerance. MARVOLITH_UPDATE_GOLDEN=1 writes the golden picture anew instead.
#include "apps/marvolith/shape_sheet.h"

#include <filesystem>
#include <string>

#include "controls/shape_library.h"
#include "tests/controls/controls_test_util.h"
#include "tests/support/golden_picture.h"

namespace marvolith::test {
namespace {

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
  ExpectMatchesGoldenPicture(out, kGoldenPath);
}

}  // namespace
}  // namespace marvolith::test
