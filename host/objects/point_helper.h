// Copyright Marvolith contributors.
// The host's point helper: a marker drawn as lines (centre marker, axis tripod, cross, box)
// from one parameter block. BuildPointHelperLines is the pure geometry.
#pragma once

#include <vector>

#include "host/objects/object_geometry.h"
#include "host/params/iparamb2.h"
#include "host/scene/object.h"

class ClassDesc2;

/// Class of the point helper (super class HELPER_CLASS_ID).
inline constexpr Class_ID POINTHELP_CLASSID(0x2013, 0);

/// Parameter ids of the point helper's block (block id 0). Ids are stored in scene files.
enum PointHelpParam : ParamID {
  pointobj_size = 0,      ///< `size`, world, animatable, default 20
  pointobj_centermarker,  ///< `centermarker`, bool, default off
  pointobj_axistripod,    ///< `axistripod`, bool, default off
  pointobj_cross,         ///< `cross`, bool, default on
  pointobj_box,           ///< `box`, bool, default off
  pointobj_screensize,    ///< `constantscreensize`, bool, default off
  pointobj_drawontop,     ///< `drawontop`, bool, default off
};
/// Id of the point helper's parameter block.
inline constexpr BlockID kPointHelpParams = 0;

/// What a point helper's lines are made from.
struct PointHelperInput {
  float size = 20.0f;  ///< edge of the cube the figures span, world units; negative counts as 0
  bool center_marker = false;
  bool axis_tripod = false;
  bool cross = true;
  bool box = false;
};

/// Appends the helper's lines, in its local space, figure by figure in this order:
///   centre marker: an X in the XY plane, 2 segments from (-m, -m, 0) to (m, m, 0) and from
///                  (-m, m, 0) to (m, -m, 0), m = size / 20;
///   axis tripod:   3 segments from the origin to size / 2 along +X, +Y, +Z;
///   cross:         3 segments from -size / 2 to size / 2 along X, Y, Z;
///   box:           the 12 edges of the cube from -size / 2 to size / 2.
/// out is cleared first. Nothing on gives no lines.
void BuildPointHelperLines(const PointHelperInput& in, std::vector<Segment3>& out);

/// The host's point helper ("Point"). Reference 0 is its parameter block; its one sub-anim is
/// that block. `constantscreensize` and `drawontop` change only viewport drawing: without a
/// viewport (vpt null) the lines and boxes are in world units whatever they say.
class PointHelpObject : public HelperObject {
 public:
  /// With loading true the block is not made: the scene file links the loaded one.
  explicit PointHelpObject(bool loading = false);

  Class_ID ClassID() override { return POINTHELP_CLASSID; }
  void GetClassName(MSTR& s, bool localized = true) const override { s = "Point"; }

  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock_ : nullptr; }
  int NumSubs() override { return 1; }
  Animatable* SubAnim(int i) override { return i == 0 ? pblock_ : nullptr; }
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int sub_num) override { return sub_num == 0 ? 0 : -1; }
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;

  /// The object itself, valid over ObjectValidity(t).
  ObjectState Eval(TimeValue t) override;
  /// The validity of `size` at t (the flags are not animated).
  Interval ObjectValidity(TimeValue t) override;
  /// Draws the lines for inode into vpt (nothing without both): in NodeWireColor, through
  /// DisplayTM, with the z-buffer off when `drawontop` is on. Answers 0.
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override;
  /// The factor by which the figure is drawn: 1, or with `constantscreensize` and a viewport
  /// NonScalingObjectSize x the view's world width at pivot_ws / 360, so that `size` counts in
  /// 360ths of the view's width.
  float ScreenSizeFactor(TimeValue t, ViewExp* vpt, const Point3& pivot_ws);
  /// inode's object TM, pre-scaled by ScreenSizeFactor at its position.
  Matrix3 DisplayTM(TimeValue t, INode* inode, ViewExp* vpt);
  /// The box of the lines at t, scaled by ScreenSizeFactor at the node's pivot (at the origin
  /// without a node); the origin alone when no figure is on.
  void GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;
  /// The box of the line ends through DisplayTM (the local box without a node).
  void GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;

  /// The parameters at t, narrowing valid.
  PointHelperInput GetInput(TimeValue t, Interval& valid);
  /// The lines at t; the reference holds until the next call or change of the block.
  const std::vector<Segment3>& GetLines(TimeValue t);

  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  IParamBlock2* pblock_ = nullptr;
  std::vector<Segment3> lines_;
  Interval lines_valid_ = NEVER;
};

/// The point helper's class descriptor.
ClassDesc2* GetPointHelpDesc();
