// Copyright Marvolith contributors.
// What ControlHelper and ControlShape share: the parameter block "params", the published
// interface IControlHelper, the gizmo and its sub-object edits, the selector's face selection,
// creation by mouse, and the reading of the block into a figure.
#pragma once

#include "controls/shape_library.h"
#include "host/core/bit_array.h"
#include "host/gfx/create_mouse_callback.h"
#include "host/params/iparamb2.h"
#include "host/scene/object.h"
#include "host/script/fp_interface.h"

class ViewExp;

namespace marvolith {

/// Class ids of the two control objects; each publishes IControlHelper under the same pair.
inline constexpr Class_ID CONTROL_HELPER_CLASS_ID(0x45596d57, 0x1e847b30);
inline constexpr Class_ID CONTROL_SHAPE_CLASS_ID(0x45596d57, 0xed40c435);
inline constexpr Interface_ID ICONTROLHELPER_HELPER_ID(0x45596d57, 0x1e847b30);
inline constexpr Interface_ID ICONTROLHELPER_SHAPE_ID(0x45596d57, 0xed40c435);

/// Parameters of the block "params" (block id 0, reference 0), the same in both classes; the ids
/// are stored in scene files. kControlScale exists in ControlShape only.
enum ControlParam : ParamID {
  kControlType = 0,                       ///< int, the figure (ControlType); not clamped
  kControlGizmo = 1,                      ///< Matrix3, figure to object space
  kControlUniform = 2,                    ///< bool
  kControlSize = 3,                       ///< world, animatable
  kControlLength = 4,                     ///< world, animatable
  kControlWidth = 5,                      ///< world, animatable
  kControlHeight = 6,                     ///< world, animatable
  kControlAxis = 7,                       ///< int 0..2, the figure's plane normal
  kControlThickness = 8,                  ///< percent, animatable
  kControlCorner = 9,                     ///< world, animatable
  kControlSteps = 10,                     ///< int 0..999
  kControlWarpAmount = 11,                ///< percent -100..100, animatable
  kControlWarpAxis = 12,                  ///< int 0..2
  kControlOffsetLine = 13,                ///< bool
  kControlFaceCamera = 14,                ///< bool
  kControlConstantScreenSize = 15,        ///< bool
  kControlDrawOnTop = 16,                 ///< bool
  kControlSelectorActive = 17,            ///< bool (selector parameters are kept and saved only)
  kControlSelectorNode = 18,              ///< INode
  kControlSelectorIgnoreBackfacing = 19,  ///< bool
  kControlSelectorUseWireColor = 20,      ///< bool
  kControlSelectorColor = 21,             ///< Point3
  kControlSelectorSelOpacity = 22,        ///< percent
  kControlSelectorUnselOpacity = 23,      ///< percent
  kControlSelectorPushValue = 24,         ///< float
  kControlScale = 25,                     ///< percent, animatable; ControlShape only
};
inline constexpr BlockID kControlParams = 0;

/// The row of parameter id in the block's table (kControlScale included); every other id is a
/// programmer error and answers the row of kControlType.
ParamDef ControlParamDef(ParamID id);
/// The rows of the block's table in id order: kControlType to kControlSelectorPushValue, then
/// kControlScale when with_scale (ControlShape's table).
std::vector<ParamDef> ControlParamDefs(bool with_scale);

/// Function ids of IControlHelper (getter, setter pairs).
enum ControlHelperFunction : FunctionID {
  kGetControlType = 0,
  kSetControlType = 1,
  kGetGizmoPos = 2,
  kSetGizmoPos = 3,
  kGetGizmoRot = 4,
  kSetGizmoRot = 5,
  kGetGizmoScale = 6,
  kSetGizmoScale = 7,
  kGetGizmoTM = 8,
  kSetGizmoTM = 9,
  kGetSelectorFaceSel = 10,
  kSetSelectorFaceSel = 11,
};
/// Id of the enumeration of figure types in IControlHelper's table.
inline constexpr EnumID kControlTypeEnum = 0;

/// The properties and enumeration of IControlHelper's table ("interface"), the same for both
/// classes: type (an enumeration of the figure names), gizmoPos, gizmoRot, gizmoScale, gizmoTM,
/// selector_face_sel.
std::vector<FPPropertyDef> ControlHelperProperties();
std::vector<FPEnumDef> ControlHelperEnums();

/// The published interface of both control objects. Without a parameter block the getters
/// answer the defaults (type 9, the identity gizmo) and the setters do nothing. Setters write
/// through the block, so they are undoable.
class IControlHelper : public FPMixinInterface {
 public:
  virtual int GetType() = 0;
  /// Any value is kept; values outside the enumeration draw nothing.
  virtual void SetType(int type) = 0;
  /// Translation of `gizmo`.
  virtual Point3 GetGizmoPos() = 0;
  virtual void SetGizmoPos(Point3 p) = 0;
  /// Rotation of `gizmo` (the shared decomposition).
  virtual Quat GetGizmoRot() = 0;
  /// Rebuilds `gizmo` from q with its present scale and translation.
  virtual void SetGizmoRot(Quat q) = 0;
  /// Scale factors of `gizmo` (negative for a mirror).
  virtual Point3 GetGizmoScale() = 0;
  /// Rebuilds `gizmo` from factors s along its present stretch axes, its rotation and position.
  virtual void SetGizmoScale(Point3 s) = 0;
  virtual Matrix3 GetGizmoTM() = 0;
  virtual void SetGizmoTM(Matrix3 m) = 0;
  /// The selector's face selection.
  virtual BitArray GetSelectorFaceSel() = 0;
  /// Replaces the face selection; undoable.
  virtual void SetSelectorFaceSel(BitArray sel) = 0;

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
};

/// Sub-object level of the gizmo and its name.
inline constexpr int kGizmoLevel = 1;
inline constexpr const char* kGizmoLevelName = "Gizmo";

/// The common part of ControlHelper (Base = HelperObject) and ControlShape (Base =
/// ShapeObject). Reference 0 and sub-anim 0 are the block ("Parameters").
///
/// Saves one chunk of its own, kFaceSelChunk: the selector's face selection (BitArray::Save).
/// The block is a reference, which the scene file saves.
template <class Base>
class ControlObject : public Base, public IControlHelper {
 public:
  static constexpr USHORT kFaceSelChunk = 0x0100;

  ControlObject() = default;
  ControlObject(const ControlObject&) = delete;
  ControlObject& operator=(const ControlObject&) = delete;

  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock_ : nullptr; }
  int NumSubs() override { return 1; }
  Animatable* SubAnim(int i) override { return i == 0 ? pblock_ : nullptr; }
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int sub_num) override { return sub_num == 0 ? 0 : -1; }
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  BaseInterface* GetInterface(Interface_ID id) override;
  using Base::GetInterface;
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;
  CreateMouseCallBack* GetCreateMouseCallBack() override;

  // IControlHelper.
  int GetType() override;
  void SetType(int type) override;
  Point3 GetGizmoPos() override;
  void SetGizmoPos(Point3 p) override;
  Quat GetGizmoRot() override;
  void SetGizmoRot(Quat q) override;
  Point3 GetGizmoScale() override;
  void SetGizmoScale(Point3 s) override;
  Matrix3 GetGizmoTM() override;
  void SetGizmoTM(Matrix3 m) override;
  BitArray GetSelectorFaceSel() override { return face_sel_; }
  void SetSelectorFaceSel(BitArray sel) override;
  /// Puts sel back without recording (undo and redo of SetSelectorFaceSel).
  void RestoreSelectorFaceSel(const BitArray& sel);

  // The gizmo as a sub-object, with the host's signatures of sub-object transforms. partm is the
  // object's world transform (object TM), tm_axis the axis system the delta is given in (world
  // to axis space is its inverse). The new gizmo is set through the block, so it is undoable.
  /// Moves the gizmo by val, given in tm_axis's axes.
  void Move(TimeValue t,
            const Matrix3& partm,
            const Matrix3& tm_axis,
            const Point3& val,
            bool local_origin = false);
  /// Rotates the gizmo by val about tm_axis's origin (the gizmo's own with local_origin).
  void Rotate(TimeValue t,
              const Matrix3& partm,
              const Matrix3& tm_axis,
              const Quat& val,
              bool local_origin = false);
  /// Scales the gizmo by the factors val along tm_axis's axes about its origin (the gizmo's own
  /// with local_origin).
  void Scale(TimeValue t,
             const Matrix3& partm,
             const Matrix3& tm_axis,
             const Point3& val,
             bool local_origin = false);
  /// "Reset Gizmo": writes the identity (undoable).
  void ResetGizmo() { SetGizmoTM(Matrix3()); }
  /// The active sub-object level: 0 the object, kGizmoLevel the gizmo.
  void ActivateSubobjSel(int level) { subobj_level_ = level == kGizmoLevel ? kGizmoLevel : 0; }
  int GetSubobjectLevel() const { return subobj_level_; }

  /// The figure's parameters at t, narrowing valid by each one read (pivot left at the origin).
  /// Defaults without a block.
  FigureInput ReadFigure(TimeValue t, Interval& valid);
  /// AxisPermutation(axis) * gizmo at t: figure space to object space.
  Matrix3 FigureToObject(TimeValue t);

  /// The block; null for an object made for loading until its file is linked.
  IParamBlock2* ParamBlock() const { return pblock_; }

 protected:
  void SetReference(int i, RefTargetHandle target) override;
  /// Told when anything that alters the figure changed (the block, undo of the selection).
  virtual void FigureChanged() {}
  /// Copies the face selection to a clone.
  void CopySelectionTo(ControlObject& clone) const { clone.face_sel_ = face_sel_; }
  /// Applies the edit delta (axis space) to the gizmo; see Move.
  void EditGizmo(const Matrix3& partm, const Matrix3& tm_axis, const Matrix3& delta, bool local);

 private:
  IParamBlock2* pblock_ = nullptr;
  BitArray face_sel_;
  int subobj_level_ = 0;
};

/// The construction-plane point under the cursor m of vpt (the home grid: world XY, or XZ for
/// front and back views, YZ for left and right); false when the view looks along the plane.
bool PointOnConstructionPlane(ViewExp& vpt, const IPoint2& m, Point3& out_ws);

/// The drag rule of creation by mouse, in construction-plane points: the first click places the
/// node there and sets `size`, `length`, `width` and `height` to 0; each move, and the release,
/// set all four to the distance from the first click; the release ends creation (CREATE_STOP),
/// MOUSE_ABORT cancels it. Values are written at the current time with animate mode suspended.
class ControlCreateCallBack : public CreateMouseCallBack {
 public:
  /// The block of the object being created (null: the sizes are not written).
  void SetObject(IParamBlock2* pblock) { pblock_ = pblock; }
  /// Maps m to the construction plane of vpt first (PointOnConstructionPlane); a first click off
  /// the plane aborts, a later event off it is skipped.
  int proc(ViewExp* vpt, int msg, int point, int flags, IPoint2 m, Matrix3& mat) override;
  /// The rule on a construction-plane point p (world units).
  int OnPoint(int msg, int point, const Point3& p, Matrix3& mat);

 private:
  void SetSizes(float d);
  IParamBlock2* pblock_ = nullptr;
  Point3 start_;
};

extern template class ControlObject<HelperObject>;
extern template class ControlObject<ShapeObject>;

}  // namespace marvolith
