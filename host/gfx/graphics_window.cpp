// Copyright Marvolith contributors.
#include "host/gfx/graphics_window.h"

#include <algorithm>
#include <cmath>

#include "host/scene/inode.h"

void MakeHitRegion(HitRegion& hr, DWORD type, int crossing, int epsilon, const IPoint2* p) {
  hr = HitRegion();
  hr.type = type;
  hr.crossing = crossing;
  hr.epsilon = epsilon;
  if (!p) return;
  if (type == RECT_RGN) {
    hr.rect.left = std::min(p[0].x, p[1].x);
    hr.rect.right = std::max(p[0].x, p[1].x);
    hr.rect.top = std::min(p[0].y, p[1].y);
    hr.rect.bottom = std::max(p[0].y, p[1].y);
  } else if (type == CIRCLE_RGN) {
    hr.circle.x = p[0].x;
    hr.circle.y = p[0].y;
    const double dx = p[1].x - p[0].x, dy = p[1].y - p[0].y;
    hr.circle.r = static_cast<int>(std::lround(std::sqrt(dx * dx + dy * dy)));
  } else {
    hr.pt = p[0];
  }
}

Point3 GetSelColor() { return {1.0f, 1.0f, 1.0f}; }

Point3 GetFreezeColor() { return {0.53f, 0.53f, 0.53f}; }

Point3 WireColorToPoint3(DWORD color) {
  return {static_cast<float>(color & 0xffu) / 255.0f,
          static_cast<float>((color >> 8) & 0xffu) / 255.0f,
          static_cast<float>((color >> 16) & 0xffu) / 255.0f};
}

Point3 NodeWireColor(INode* node) {
  if (!node) return {1.0f, 1.0f, 1.0f};
  if (node->Selected()) return GetSelColor();
  if (node->IsFrozen()) return GetFreezeColor();
  return WireColorToPoint3(node->GetWireColor());
}
