// Copyright Marvolith contributors.
#include "host/render/render.h"

#include <QBuffer>
#include <QByteArray>
#include <QFont>
#include <QSvgGenerator>
#include <algorithm>
#include <cctype>
#include <fstream>

#include "host/render/painter.h"

namespace {

bool Refuse(std::string* error, const std::string& message) {
  if (error) *error = message;
  return false;
}

bool EndsWithNoCase(std::string_view text, std::string_view suffix) {
  if (text.size() < suffix.size()) return false;
  return std::equal(suffix.begin(), suffix.end(), text.end() - static_cast<long>(suffix.size()),
                    [](char a, char b) {
                      return std::tolower(static_cast<unsigned char>(a)) ==
                             std::tolower(static_cast<unsigned char>(b));
                    });
}

// Writing goes through our own stream, so that a failure is one clear line and not a warning
// of Qt's on stderr.
bool WriteBytes(const QByteArray& bytes, const std::string& path, std::string* error) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (out) out.write(bytes.constData(), bytes.size());
  if (out) out.close();
  if (!out) return Refuse(error, "cannot write '" + path + "'");
  return true;
}

// Encodes whatever paint draws on a width x height canvas as format.
template <typename Paint>
bool Encode(ImageFormat format,
            int width,
            int height,
            const RenderOptions& options,
            const std::string& path,
            std::string* error,
            Paint&& paint) {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  if (format == ImageFormat::kSvg) {
    QSvgGenerator svg;
    svg.setOutputDevice(&buffer);
    svg.setSize(QSize(width, height));
    svg.setViewBox(QRect(0, 0, width, height));
    svg.setTitle("Marvolith");
    // At 96 dots an inch a pixel of the canvas is a CSS pixel, as browsers measure them.
    svg.setResolution(96);
    QPainter painter;
    if (!painter.begin(&svg)) return Refuse(error, "cannot draw the picture for '" + path + "'");
    // Text is drawn as strokes; the font is set only so that the file names a valid one (with no
    // font database the default has no size).
    QFont font(QStringLiteral("sans-serif"));
    font.setPointSizeF(9.0);
    painter.setFont(font);
    paint(painter);
    painter.end();
  } else {
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::black);
    QPainter painter(&image);
    paint(painter);
    painter.end();
    if (!image.save(&buffer, "PNG")) return Refuse(error, "cannot encode '" + path + "' as PNG");
  }
  buffer.close();
  return WriteBytes(bytes, path, error);
}

std::optional<ImageFormat> FormatOrRefuse(const std::string& path, std::string* error) {
  std::optional<ImageFormat> format = ImageFormatForPath(path);
  if (!format) Refuse(error, "the picture file '" + path + "' must end in .png or .svg");
  return format;
}

}  // namespace

std::optional<ImageFormat> ImageFormatForPath(std::string_view path) {
  if (EndsWithNoCase(path, ".png")) return ImageFormat::kPng;
  if (EndsWithNoCase(path, ".svg")) return ImageFormat::kSvg;
  return std::nullopt;
}

bool RenderToFile(const DisplayList& list,
                  const ViewCamera& camera,
                  const RenderOptions& options,
                  const std::string& path,
                  std::string* error) {
  const std::optional<ImageFormat> format = FormatOrRefuse(path, error);
  if (!format) return false;
  const int w = camera.WidthPx(), h = camera.HeightPx();
  return Encode(*format, w, h, options, path, error, [&](QPainter& painter) {
    PaintDisplayList(painter, QRectF(0, 0, w, h), list, camera, options);
  });
}

bool RenderSheet(std::span<const SheetCell> cells,
                 int columns,
                 int cell_px,
                 const std::string& path,
                 const RenderOptions& options,
                 std::string* error) {
  const std::optional<ImageFormat> format = FormatOrRefuse(path, error);
  if (!format) return false;
  if (cells.empty()) return Refuse(error, "a sheet needs at least one picture");
  columns = std::max(columns, 1);
  cell_px = std::max(cell_px, 16);
  const int count = static_cast<int>(cells.size());
  const int cols = std::min(columns, count);
  const int rows = (count + cols - 1) / cols;
  const double text_px = options.text_height_px;
  const int strip_px = static_cast<int>(std::ceil(text_px * 1.6)) + 4;
  const int pitch_y = cell_px + strip_px;
  return Encode(*format, cols * cell_px, rows * pitch_y, options, path, error,
                [&](QPainter& painter) {
                  painter.fillRect(QRect(0, 0, cols * cell_px, rows * pitch_y), QColor(40, 40, 40));
                  for (int i = 0; i < count; ++i) {
                    const SheetCell& cell = cells[static_cast<size_t>(i)];
                    const int x = (i % cols) * cell_px, y = (i / cols) * pitch_y;
                    const ViewCamera camera =
                        ViewCamera::Framing(cell.view_type, cell.list.Bounds(), cell_px, cell_px);
                    // A hair of space between neighbours, so that the cells read as separate
                    // pictures.
                    PaintDisplayList(painter, QRectF(x + 1, y + 1, cell_px - 2, cell_px - 2),
                                     cell.list, camera, options);
                    if (cell.label.empty()) continue;
                    const double width = StrokeTextWidth(cell.label, text_px);
                    const double scale = std::min(1.0, (cell_px - 4) / std::max(width, 1.0));
                    painter.save();
                    painter.setRenderHint(QPainter::Antialiasing, options.antialias);
                    painter.setPen(QPen(QColor(220, 220, 220), 1.0));
                    // Labels wider than the cell are drawn smaller rather than cut.
                    const QPointF base(x + (cell_px - width * scale) * 0.5,
                                       y + cell_px + strip_px * 0.5 + text_px * scale * 0.25);
                    PaintStrokeText(painter, base, cell.label, text_px * scale);
                    painter.restore();
                  }
                });
}
