// Copyright Marvolith contributors.
// The QPainter side of marvolith_host_render: paint a display list into any painter's
// rectangle (for sheets, widgets and tests), and render one into an image in memory.
#pragma once

#include <QImage>
#include <QPainter>
#include <QRectF>
#include <string_view>

#include "host/gfx/display_list.h"
#include "host/gfx/view_camera.h"
#include "host/render/render.h"

/// Paints list as seen by camera into target of painter: the camera's window is scaled to
/// target (keeping its aspect ratio: centred, letter-boxed), clipped to it, over the background
/// and grid of options. The painter's state is restored afterwards.
void PaintDisplayList(QPainter& painter,
                      const QRectF& target,
                      const DisplayList& list,
                      const ViewCamera& camera,
                      const RenderOptions& options);

/// Draws text (UTF-8) in the host's stroke font with its baseline starting at baseline_px,
/// height_px tall from the lowest descender to the top of the capitals, in the painter's pen.
/// Characters the font does not draw leave a space. Answers the width drawn, in pixels.
double PaintStrokeText(QPainter& painter,
                       const QPointF& baseline_px,
                       std::string_view text,
                       double height_px);

/// The width PaintStrokeText would draw text at height_px, in pixels (0 for no strokes).
double StrokeTextWidth(std::string_view text, double height_px);

/// The picture RenderToFile writes as PNG, in memory (ARGB32, premultiplied).
QImage RenderImage(const DisplayList& list, const ViewCamera& camera, const RenderOptions& options);
