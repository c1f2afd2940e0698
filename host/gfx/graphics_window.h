// Copyright Marvolith contributors.
// GraphicsWindow: what an object's Display draws into. Primitives come in the space of the
// current transform (object space); the window takes them to world space and on to the screen.
// Also the screen-space records the drawing calls use: IPoint2, IPoint3, HitRegion.
#pragma once

#include "host/base/ids.h"
#include "host/math/matrix3.h"
#include "host/math/point3.h"

/// A point in pixels. Screen coordinates start at the top left corner, x right, y down.
struct IPoint2 {
  int x = 0;
  int y = 0;
  constexpr IPoint2() = default;
  constexpr IPoint2(int px, int py) : x(px), y(py) {}
  constexpr bool operator==(const IPoint2&) const = default;
};

/// A point in pixels with a depth.
struct IPoint3 {
  int x = 0;
  int y = 0;
  int z = 0;
  constexpr IPoint3() = default;
  constexpr IPoint3(int px, int py, int pz) : x(px), y(py), z(pz) {}
  constexpr bool operator==(const IPoint3&) const = default;
};

/// The colour slots of a graphics window. Markers are drawn in the line colour, as the host
/// does: MARKER_COLOR names that same slot.
enum ColorType {
  LINE_COLOR = 0,
  FILL_COLOR = 1,
  TEXT_COLOR = 2,
  CLEAR_COLOR = 3,
  MARKER_COLOR = LINE_COLOR,
};

/// The host's marker figures, drawn at a point with a fixed size in pixels.
enum MarkerType {
  POINT_MRKR,
  HOLLOW_BOX_MRKR,
  PLUS_SIGN_MRKR,
  ASTERISK_MRKR,
  X_MRKR,
  BIG_BOX_MRKR,
  CIRCLE_MRKR,
  TRIANGLE_MRKR,
  DIAMOND_MRKR,
  SM_HOLLOW_BOX_MRKR,
  SM_CIRCLE_MRKR,
  SM_TRIANGLE_MRKR,
  SM_DIAMOND_MRKR,
  DOT_MRKR,
  SM_DOT_MRKR,
  BOX2_MRKR,
  BOX3_MRKR,
  BOX4_MRKR,
  BOX5_MRKR,
  BOX6_MRKR,
  BOX7_MRKR,
  DOT2_MRKR,
  DOT3_MRKR,
  DOT4_MRKR,
  DOT5_MRKR,
  DOT6_MRKR,
  DOT7_MRKR,
};

// Render limits (setRndLimits). The headless window draws wires only; of these it acts on
// GW_Z_BUFFER (off: the primitives are drawn on top of everything drawn with it on) and GW_PICK
// (on: primitives are hit-tested against the hit region instead of being recorded). The others
// are kept and answered back.
inline constexpr DWORD GW_WIREFRAME = 0x0000001;
inline constexpr DWORD GW_ILLUM = 0x0000002;
inline constexpr DWORD GW_FLAT = 0x0000004;
inline constexpr DWORD GW_SPECULAR = 0x0000008;
inline constexpr DWORD GW_TEXTURE = 0x0000010;
inline constexpr DWORD GW_Z_BUFFER = 0x0000020;
inline constexpr DWORD GW_PERSP_CORRECT = 0x0000040;
inline constexpr DWORD GW_POLY_EDGES = 0x0000080;
inline constexpr DWORD GW_BACKCULL = 0x0000100;
inline constexpr DWORD GW_TWO_SIDED = 0x0000200;
inline constexpr DWORD GW_COLOR_VERTS = 0x0000400;
inline constexpr DWORD GW_SHADE_CVERTS = 0x0000800;
inline constexpr DWORD GW_PICK = 0x0001000;
inline constexpr DWORD GW_BOX_MODE = 0x0002000;
inline constexpr DWORD GW_ALL_EDGES = 0x0004000;
inline constexpr DWORD GW_VERT_TICKS = 0x0008000;
inline constexpr DWORD GW_SHADE_SEL_FACES = 0x0010000;
inline constexpr DWORD GW_TRANSPARENCY = 0x0020000;
/// The limits a new window starts with: wireframe, z-buffered, back faces culled.
inline constexpr DWORD GW_DEFAULT_RND_LIMITS = GW_WIREFRAME | GW_Z_BUFFER | GW_BACKCULL;

// Edge states of polyline's es array: edge i runs from point i to point i + 1 (the closing edge
// of a closed polyline is the last). Only visible edges are drawn.
inline constexpr int GW_EDGE_SKIP = 0;
inline constexpr int GW_EDGE_VIS = 1;
inline constexpr int GW_EDGE_INVIS = 2;

// Clip flags answered by transPoint and wTransPoint: 0 when the point is inside the view.
inline constexpr DWORD CLIP_RIGHT = 1u << 0;
inline constexpr DWORD CLIP_LEFT = 1u << 1;
inline constexpr DWORD CLIP_TOP = 1u << 2;
inline constexpr DWORD CLIP_BOTTOM = 1u << 3;
/// In front of the near plane (behind the eye) of a perspective view.
inline constexpr DWORD CLIP_FRONT = 1u << 4;
inline constexpr DWORD CLIP_BACK = 1u << 5;

// Hit region types.
inline constexpr DWORD POINT_RGN = 0x0001;
inline constexpr DWORD RECT_RGN = 0x0002;
inline constexpr DWORD CIRCLE_RGN = 0x0004;

/// A region of the screen to hit-test against, in pixels.
struct HitRegion {
  DWORD type = POINT_RGN;
  /// RECT_RGN and CIRCLE_RGN: nonzero hits what touches the region (crossing), zero only what
  /// lies wholly inside it (window).
  int crossing = 1;
  /// POINT_RGN: the distance in pixels within which a primitive hits.
  int epsilon = 4;
  IPoint2 pt;  ///< POINT_RGN
  struct {
    int left = 0, top = 0, right = 0, bottom = 0;
  } rect;  ///< RECT_RGN, corners included
  struct {
    int x = 0, y = 0, r = 0;
  } circle;  ///< CIRCLE_RGN: centre and radius
};

/// Fills hr: type POINT_RGN takes p[0]; RECT_RGN the corners p[0] and p[1] in any order;
/// CIRCLE_RGN the centre p[0] and a point on the rim p[1]. A null p leaves the points at zero.
void MakeHitRegion(HitRegion& hr, DWORD type, int crossing, int epsilon, const IPoint2* p);

/// A graphics window of a viewport. Objects set the transform (object to world) and the colours,
/// then draw primitives; a point array argument holds object-space points. Arguments are read
/// during the call only.
///
/// In pick mode (GW_PICK in the render limits) primitives are not drawn: each is tested against
/// the hit region, and checkHitCode answers whether any hit since clearHitCode.
class GraphicsWindow {
 public:
  virtual ~GraphicsWindow() = default;

  /// The object-to-world transform of the points that follow.
  virtual void setTransform(const Matrix3& m) = 0;
  virtual Matrix3 getTransform() = 0;

  /// Sets colour slot t to (r, g, b), each 0..1 (clamped when drawn).
  virtual void setColor(ColorType t, float r, float g, float b) = 0;
  void setColor(ColorType t, const Point3& clr) { setColor(t, clr.x, clr.y, clr.z); }
  virtual Point3 getColor(ColorType t) = 0;

  /// The render limits: a set of GW_ flags (see their comment).
  virtual void setRndLimits(DWORD limits) = 0;
  virtual DWORD getRndLimits() = 0;
  /// The mode in effect: the limits, as the headless window has no user override.
  virtual DWORD getRndMode() = 0;

  /// Window size in pixels.
  virtual int getWinSizeX() = 0;
  virtual int getWinSizeY() = 0;
  IPoint2 getViewportDim() { return {getWinSizeX(), getWinSizeY()}; }

  /// in (object space, through the current transform) to the screen: x and y in pixels (top
  /// left origin, y down, not rounded), z the depth in front of the eye in world units (for an
  /// orthographic view, along the view direction from the view's centre plane). Answers the clip
  /// flags: 0 when the point is inside the window and in front of a perspective eye.
  virtual DWORD transPoint(const Point3* in, Point3* out) = 0;
  /// As transPoint, rounded to whole pixels.
  virtual DWORD wTransPoint(const Point3* in, IPoint3* out) = 0;

  /// The user's scale for objects of constant screen size (the host's preference; 1 here).
  virtual float NonScalingObjectSize() { return 1.0f; }

  /// ct points joined by straight lines in the line colour; closed joins the last to the first.
  /// rgb, when given, holds one colour per point: each edge takes the colour of its first point.
  /// es, when given, holds one GW_EDGE_ state per edge (ct - 1, or ct when closed); only
  /// GW_EDGE_VIS edges are drawn. Fewer than two points draw nothing.
  virtual void polyline(
      int ct, const Point3* xyz, const Point3* rgb, int closed, const int* es) = 0;

  /// Brackets a run of segment calls (the host batches them; here they may be omitted).
  virtual void startSegments() = 0;
  /// One straight line from xyz[0] to xyz[1] in the line colour; vis 0 draws nothing.
  virtual void segment(const Point3* xyz, int vis) = 0;
  virtual void endSegments() = 0;

  /// Brackets a run of marker calls (may be omitted).
  virtual void startMarkers() = 0;
  /// A marker figure of fixed pixel size at *xyz, in the marker (line) colour.
  virtual void marker(const Point3* xyz, MarkerType type) = 0;
  virtual void endMarkers() = 0;

  /// Text s (UTF-8) in the text colour with its baseline starting at *xyz, of fixed pixel size.
  /// A null or empty s draws nothing.
  virtual void text(const Point3* xyz, const char* s) = 0;

  /// A filled triangle in the fill colour (rgb, when given, one colour per corner: the first is
  /// used).
  virtual void triangle(const Point3* xyz, const Point3* rgb) = 0;
  /// A filled polygon of ct points in the fill colour; rgb as for triangle, uvw ignored.
  virtual void polygon(int ct, const Point3* xyz, const Point3* rgb, const Point3* uvw) = 0;

  // Hit testing (pick mode).
  /// The region that pick mode tests against (copied).
  virtual void setHitRegion(const HitRegion* region) = 0;
  /// Forgets earlier hits.
  virtual void clearHitCode() = 0;
  /// True when a primitive hit since clearHitCode.
  virtual bool checkHitCode() = 0;
  /// The smallest distance in pixels from the region's point to a hit primitive since
  /// clearHitCode (0 for rectangle and circle regions and for primitives under the point);
  /// 0xFFFFFFFF while nothing hit.
  virtual DWORD getHitDistance() = 0;
};

class INode;

/// The colour the host draws selected wires in: white.
Point3 GetSelColor();
/// The colour the host draws frozen objects in: grey.
Point3 GetFreezeColor();
/// A wire colour 0x00BBGGRR as RGB 0..1.
Point3 WireColorToPoint3(DWORD color);
/// The colour the host draws node's wire in: GetSelColor when it is selected, GetFreezeColor when
/// frozen, otherwise its wire colour. White for a null node.
Point3 NodeWireColor(INode* node);
