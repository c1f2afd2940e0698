// Copyright Marvolith contributors.
#include "host/render/render.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "host/gfx/headless_viewport.h"
#include "host/render/painter.h"

namespace {

namespace fs = std::filesystem;

// Front view, 2 pixels a unit, origin at pixel (100, 50).
ViewCamera Front() { return ViewCamera::Orthographic(VIEW_FRONT, Point3(), 100.0f, 200, 100); }

RenderOptions Plain() {
  RenderOptions o;
  o.grid = false;
  return o;
}

bool Reddish(QRgb c) { return qRed(c) - qGreen(c) > 50 && qRed(c) - qBlue(c) > 50; }
bool Background(QRgb c) { return qRed(c) == 69 && qGreen(c) == 69 && qBlue(c) == 69; }

// A red horizontal line at world z 10 from x -20 to 20: pixels (60, 30) to (140, 30).
DisplayList RedLine() {
  HeadlessViewport vpt(Front());
  vpt.getGW()->setColor(LINE_COLOR, 1, 0, 0);
  const Point3 line[2] = {{-20, 0, 10}, {20, 0, 10}};
  vpt.getGW()->polyline(2, line, nullptr, 0, nullptr);
  return vpt.GetDisplayList();
}

class RenderFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ =
        fs::temp_directory_path() /
        ("marvolith_render_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
         "_" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string Path(const char* name) const { return (dir_ / name).string(); }

  fs::path dir_;
};

TEST(RenderImage, DrawsLinesWhereTheyProjectOverTheBackground) {
  const QImage image = RenderImage(RedLine(), Front(), Plain());
  ASSERT_EQ(image.size(), QSize(200, 100));
  // The line lies on the boundary between rows 29 and 30: antialiasing shares it.
  EXPECT_TRUE(Reddish(image.pixel(100, 30)) || Reddish(image.pixel(100, 29)));
  EXPECT_TRUE(Reddish(image.pixel(70, 30)) || Reddish(image.pixel(70, 29)));
  EXPECT_TRUE(Background(image.pixel(100, 40)));
  EXPECT_TRUE(Background(image.pixel(150, 30))) << "past the line's end";

  RenderOptions grid = Plain();
  grid.grid = true;
  const QImage with_grid = RenderImage(DisplayList(), Front(), grid);
  EXPECT_FALSE(Background(with_grid.pixel(100, 50)) && Background(with_grid.pixel(100, 49)))
      << "the grid's axis lines cross at the origin";
}

TEST(RenderImage, DrawOnTopGoesOverEverythingElse) {
  HeadlessViewport vpt(Front());
  GraphicsWindow& gw = *vpt.getGW();
  const Point3 line[2] = {{-20, 0, 0.25f}, {20, 0, 0.25f}};  // centred on pixel row 49
  gw.setRndLimits(gw.getRndLimits() & ~GW_Z_BUFFER);
  gw.setColor(LINE_COLOR, 0, 1, 0);
  gw.polyline(2, line, nullptr, 0, nullptr);
  gw.setRndLimits(GW_DEFAULT_RND_LIMITS);
  gw.setColor(LINE_COLOR, 0, 0, 1);
  gw.polyline(2, line, nullptr, 0, nullptr);
  RenderOptions options = Plain();
  options.line_width_px = 3.0f;
  const QRgb c = RenderImage(vpt.GetDisplayList(), Front(), options).pixel(100, 49);
  EXPECT_GT(qGreen(c), 200) << "recorded first, painted last";
  EXPECT_LT(qBlue(c), 50);
}

TEST(RenderImage, LabelsAndMarkersPaintNearTheirPoint) {
  HeadlessViewport vpt(Front());
  GraphicsWindow& gw = *vpt.getGW();
  const Point3 at(-30, 0, 0);  // pixel (40, 50)
  gw.text(&at, "HIP");
  const Point3 mark(30, 0, 0);  // pixel (160, 50)
  gw.marker(&mark, BIG_BOX_MRKR);
  auto painted_near = [](const QImage& img, int x0, int y0, int x1, int y1) {
    for (int y = y0; y <= y1; ++y)
      for (int x = x0; x <= x1; ++x)
        if (!Background(img.pixel(x, y))) return true;
    return false;
  };
  const QImage image = RenderImage(vpt.GetDisplayList(), Front(), Plain());
  EXPECT_TRUE(painted_near(image, 40, 40, 70, 50)) << "text runs right and up from its point";
  EXPECT_FALSE(painted_near(image, 0, 55, 35, 99));
  EXPECT_TRUE(painted_near(image, 156, 46, 164, 54));
  RenderOptions no_labels = Plain();
  no_labels.labels = false;
  EXPECT_FALSE(painted_near(RenderImage(vpt.GetDisplayList(), Front(), no_labels), 40, 40, 70, 50));
}

TEST(RenderImage, PerspectiveLinesPassingBehindTheEyeAreCutAtTheNearPlane) {
  Matrix3 eye = ViewAxes(VIEW_FRONT);  // at the origin, looking along +Y
  const ViewCamera cam = ViewCamera::Perspective(eye, 1.5707964f, 200, 100);
  HeadlessViewport vpt(cam);
  vpt.getGW()->setColor(LINE_COLOR, 1, 0, 0);
  const Point3 line[2] = {{10, -50, -5}, {10, 50, -5}};  // lands at (120, 60), far end
  vpt.getGW()->polyline(2, line, nullptr, 0, nullptr);
  const QImage image = RenderImage(vpt.GetDisplayList(), cam, Plain());
  EXPECT_TRUE(Background(image.pixel(100, 50))) << "nothing runs to the centre";
  EXPECT_TRUE(Reddish(image.pixel(130, 65)) || Reddish(image.pixel(130, 66)) ||
              Reddish(image.pixel(131, 66)));
}

TEST_F(RenderFileTest, WritesPngAndSvgThatShowTheSameLine) {
  std::string error;
  ASSERT_TRUE(RenderToFile(RedLine(), Front(), Plain(), Path("line.png"), &error)) << error;
  QImage png(QString::fromStdString(Path("line.png")));
  ASSERT_EQ(png.size(), QSize(200, 100));
  EXPECT_TRUE(Reddish(png.pixel(100, 30)) || Reddish(png.pixel(100, 29)));

  ASSERT_TRUE(RenderToFile(RedLine(), Front(), Plain(), Path("line.SVG"), &error)) << error;
  QSvgRenderer svg(QString::fromStdString(Path("line.SVG")));
  ASSERT_TRUE(svg.isValid());
  EXPECT_EQ(svg.viewBox(), QRect(0, 0, 200, 100));
  QImage drawn(200, 100, QImage::Format_ARGB32_Premultiplied);
  drawn.fill(Qt::black);
  QPainter painter(&drawn);
  svg.render(&painter);
  painter.end();
  EXPECT_TRUE(Reddish(drawn.pixel(100, 30)) || Reddish(drawn.pixel(100, 29)));
  EXPECT_TRUE(Background(drawn.pixel(100, 60)));
}

TEST_F(RenderFileTest, RefusesUnknownFormatsAndUnwritablePaths) {
  std::string error;
  EXPECT_FALSE(RenderToFile(RedLine(), Front(), Plain(), Path("line.jpg"), &error));
  EXPECT_EQ(error, "the picture file '" + Path("line.jpg") + "' must end in .png or .svg");
  EXPECT_FALSE(RenderToFile(RedLine(), Front(), Plain(), Path("no/such/dir/line.png"), &error));
  EXPECT_EQ(error, "cannot write '" + Path("no/such/dir/line.png") + "'");
  EXPECT_FALSE(fs::exists(Path("line.jpg")));
  EXPECT_FALSE(RenderSheet({}, 2, 64, Path("sheet.png"), Plain(), &error));
}

TEST_F(RenderFileTest, SheetFramesEachCellAndLabelsIt) {
  std::vector<SheetCell> cells(3);
  for (size_t i = 0; i < cells.size(); ++i) {
    cells[i].list = RedLine();
    cells[i].view_type = VIEW_FRONT;
    cells[i].label = "Cell" + std::to_string(i);
  }
  cells[2].list.points_ws[1] *= 100.0f;  // a far bigger figure is framed just the same
  std::string error;
  ASSERT_TRUE(RenderSheet(cells, 2, 64, Path("sheet.png"), Plain(), &error)) << error;
  const QImage sheet(QString::fromStdString(Path("sheet.png")));
  const int pitch = sheet.height() / 2;
  ASSERT_EQ(sheet.width(), 128);
  ASSERT_GT(pitch, 64);
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    const int x0 = (i % 2) * 64, y0 = (i / 2) * pitch;
    int red = 0, label = 0;
    for (int y = y0; y < y0 + 64; ++y)
      for (int x = x0; x < x0 + 64; ++x) red += Reddish(sheet.pixel(x, y)) ? 1 : 0;
    for (int y = y0 + 64; y < y0 + pitch; ++y)
      for (int x = x0; x < x0 + 64; ++x) label += qGreen(sheet.pixel(x, y)) > 120 ? 1 : 0;
    EXPECT_GT(red, 30) << "the line spans most of its cell";
    EXPECT_GT(label, 10);
  }
  ASSERT_TRUE(RenderSheet(cells, 2, 64, Path("sheet.svg"), Plain(), &error)) << error;
  std::ifstream in(Path("sheet.svg"));
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  EXPECT_NE(text.find("<svg"), std::string::npos);
}

}  // namespace
