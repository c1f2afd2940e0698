// Copyright Marvolith contributors.
// The fixed outlines of the icon figures and the "IKFK" lettering. Outlines are tables in icon
// space (about -0.5 .. 0.5, y up); rings stand for eyes, toes and heads.
#include <array>

#include "controls/internal/figure_path.h"

namespace marvolith::figure {
namespace {

// A standing figure, arms lowered away from the body; the head is a ring.
constexpr std::array kCharacterBody = {
    M(0.05f, 0.28f),
    C(0.11f, 0.28f, 0.16f, 0.27f, 0.18f, 0.23f),
    L(0.27f, 0.0f),
    L(0.22f, -0.02f),
    L(0.14f, 0.13f),
    L(0.13f, -0.06f),
    L(0.14f, -0.5f),
    L(0.04f, -0.5f),
    L(0.0f, -0.13f),
    L(-0.04f, -0.5f),
    L(-0.14f, -0.5f),
    L(-0.13f, -0.06f),
    L(-0.14f, 0.13f),
    L(-0.22f, -0.02f),
    L(-0.27f, 0.0f),
    L(-0.18f, 0.23f),
    C(-0.16f, 0.27f, -0.11f, 0.28f, -0.05f, 0.28f),
    Z(),
};

// An almond of two lids meeting at the corners; iris and pupil are rings.
constexpr std::array kEyeLids = {
    M(-0.5f, 0.0f),
    C(-0.248659f, 0.205359f, 0.248659f, 0.205359f, 0.5f, 0.0f),
    C(0.362051f, -0.16f, -0.362051f, -0.16f, -0.5f, 0.0f),
    Z(),
};

// Upper lip with its bow, lower lip, and the line between them.
constexpr std::array kLips = {
    M(-0.5f, 0.0f),
    C(-0.379722f, 0.0886266f, -0.22f, 0.2f, -0.12f, 0.2f),
    C(-0.06f, 0.2f, -0.03f, 0.15f, 0.0f, 0.13f),
    C(0.03f, 0.15f, 0.06f, 0.2f, 0.12f, 0.2f),
    C(0.22f, 0.2f, 0.379722f, 0.0886266f, 0.5f, 0.0f),
    C(0.3f, -0.248559f, -0.215293f, -0.248559f, -0.5f, 0.0f),
    Z(),
    M(-0.5f, 0.0f),
    C(-0.2f, -0.04f, 0.2f, -0.04f, 0.5f, 0.0f),
    E(),
};

// An open hand, palm towards the viewer: four fingers with rounded tips and the thumb out to
// the left; the wrist closes the outline.
constexpr std::array kHand = {
    M(0.15f, -0.5f),
    L(0.215f, -0.02f),
    L(0.215f, 0.2f),
    C(0.215f, 0.253f, 0.135f, 0.253f, 0.135f, 0.2f),
    L(0.135f, 0.06f),
    L(0.1275f, 0.03f),
    L(0.12f, 0.06f),
    L(0.12f, 0.33f),
    C(0.12f, 0.383f, 0.04f, 0.383f, 0.04f, 0.33f),
    L(0.04f, 0.08f),
    L(0.0325f, 0.05f),
    L(0.025f, 0.08f),
    L(0.025f, 0.38f),
    C(0.025f, 0.433f, -0.055f, 0.433f, -0.055f, 0.38f),
    L(-0.055f, 0.08f),
    L(-0.0625f, 0.05f),
    L(-0.07f, 0.08f),
    L(-0.07f, 0.32f),
    C(-0.07f, 0.373f, -0.15f, 0.373f, -0.15f, 0.32f),
    L(-0.15f, -0.02f),
    L(-0.33f, 0.12f),
    C(-0.36f, 0.15f, -0.41f, 0.1f, -0.38f, 0.07f),
    L(-0.22f, -0.2f),
    L(-0.17f, -0.5f),
    Z(),
};

// A footprint seen from below: the sole, narrow at the arch; the toes are rings.
constexpr std::array kFootSole = {
    M(0.0f, -0.5f),
    C(0.12f, -0.5f, 0.16f, -0.38f, 0.15f, -0.25f),
    C(0.14f, -0.1f, 0.2f, 0.05f, 0.2f, 0.18f),
    C(0.2f, 0.3f, 0.1f, 0.32f, 0.0f, 0.3f),
    C(-0.12f, 0.28f, -0.16f, 0.2f, -0.12f, 0.05f),
    C(-0.09f, -0.05f, -0.13f, -0.2f, -0.13f, -0.3f),
    C(-0.13f, -0.42f, -0.1f, -0.5f, 0.0f, -0.5f),
    Z(),
};

// A shoe from the side, heel left and toe right, with the line of its sole.
constexpr std::array kShoe = {
    M(-0.45f, -0.25f),
    L(0.42f, -0.25f),
    C(0.5f, -0.25f, 0.52f, -0.12f, 0.44f, -0.09f),
    C(0.3f, -0.05f, 0.12f, 0.0f, 0.02f, 0.08f),
    L(-0.1f, 0.08f),
    C(-0.12f, 0.2f, -0.2f, 0.22f, -0.28f, 0.22f),
    L(-0.44f, 0.22f),
    C(-0.48f, 0.1f, -0.48f, -0.1f, -0.45f, -0.25f),
    Z(),
    M(-0.46f, -0.17f),
    L(0.48f, -0.17f),
    E(),
};

// A face: the smile and the nose line; head outline and eyes are rings.
constexpr std::array kFaceLines = {
    M(-0.18f, -0.2f),
    C(-0.1f, -0.3f, 0.1f, -0.3f, 0.18f, -0.2f),
    E(),
    M(0.0f, 0.06f),
    L(-0.04f, -0.08f),
    L(0.03f, -0.08f),
    E(),
};

// A nose from the front: the bridge down to the wings around the nostrils.
constexpr std::array kNose = {
    M(-0.08f, 0.5f),
    C(-0.08f, 0.2f, -0.15f, 0.0f, -0.25f, -0.2f),
    C(-0.35f, -0.35f, -0.2f, -0.45f, -0.1f, -0.38f),
    C(-0.05f, -0.45f, 0.05f, -0.45f, 0.1f, -0.38f),
    C(0.2f, -0.45f, 0.35f, -0.35f, 0.25f, -0.2f),
    C(0.15f, 0.0f, 0.08f, 0.2f, 0.08f, 0.5f),
    E(),
};

/// A circle given in icon space.
void IconCircle(FigureWriter& w, float x, float y, float r) {
  w.Circle({2.0f * x, 2.0f * y, 0.0f}, 2.0f * r);
}

}  // namespace

void WriteIcon(ControlType type, FigureWriter& w) {
  switch (type) {
    case ControlType::Character:
      IconCircle(w, 0.0f, 0.39f, 0.1f);
      w.Table(kCharacterBody);
      break;
    case ControlType::Eye:
      w.Table(kEyeLids);
      IconCircle(w, 0.0f, 0.0f, 0.15f);
      IconCircle(w, 0.0f, 0.0f, 0.06f);
      break;
    case ControlType::Lips:
      w.Table(kLips);
      break;
    case ControlType::Hand:
      w.Table(kHand);
      break;
    case ControlType::Foot:
      w.Table(kFootSole);
      IconCircle(w, -0.07f, 0.38f, 0.055f);
      IconCircle(w, 0.04f, 0.39f, 0.04f);
      IconCircle(w, 0.11f, 0.36f, 0.035f);
      IconCircle(w, 0.16f, 0.31f, 0.03f);
      IconCircle(w, 0.2f, 0.25f, 0.025f);
      break;
    case ControlType::Shoe:
      w.Table(kShoe);
      break;
    case ControlType::Face: {
      FigureRing head;
      head.u = {0.8f, 0.0f, 0.0f};
      head.v = {0.0f, 1.0f, 0.0f};
      w.Ring(head);
      IconCircle(w, -0.15f, 0.1f, 0.06f);
      IconCircle(w, 0.15f, 0.1f, 0.06f);
      w.Table(kFaceLines);
      break;
    }
    case ControlType::Nose:
      w.Table(kNose);
      IconCircle(w, -0.12f, -0.32f, 0.035f);
      IconCircle(w, 0.12f, -0.32f, 0.035f);
      break;
    default:
      break;
  }
}

void WriteLettering(FigureWriter& w) {
  // Four letters 0.36 wide with gaps of 0.16, 0.8 high, centred on the origin.
  constexpr float kWidth = 0.36f;
  constexpr float kGap = 0.16f;
  constexpr float kTop = 0.4f;
  constexpr float kMid = 0.0f;
  float x0 = -0.5f * (4.0f * kWidth + 3.0f * kGap);
  auto next = [&] { x0 += kWidth + kGap; };
  auto k_letter = [&] {
    w.Line({x0, -kTop, 0}, {x0, kTop, 0});
    const Point3 arms[3] = {{x0 + kWidth, kTop, 0}, {x0, kMid, 0}, {x0 + kWidth, -kTop, 0}};
    w.Polygon(arms, false);
  };
  // I
  const float xc = x0 + 0.5f * kWidth;
  w.Line({xc, -kTop, 0}, {xc, kTop, 0});
  w.Line({x0, kTop, 0}, {x0 + kWidth, kTop, 0});
  w.Line({x0, -kTop, 0}, {x0 + kWidth, -kTop, 0});
  next();
  k_letter();
  next();
  // F
  const Point3 f[3] = {{x0 + kWidth, kTop, 0}, {x0, kTop, 0}, {x0, -kTop, 0}};
  w.Polygon(f, false);
  w.Line({x0, kMid, 0}, {x0 + 0.75f * kWidth, kMid, 0});
  next();
  k_letter();
}

}  // namespace marvolith::figure
