// Copyright Marvolith contributors.
#include "controls/control_object.h"

#include <cmath>

#include "controls/display_transform.h"
#include "host/gfx/view_exp.h"
#include "host/math/affine.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "support/hold_record.h"

namespace marvolith {

// ---------------------------------------------------------------------------------------------
// The block's table.

ParamDef ControlParamDef(ParamID id) {
  auto flag = [](ParamID pid, const char* name, const char* label, bool def) {
    return ParamDef(pid, name, TYPE_BOOL, 0).Default(def).Label(label);
  };
  auto world = [](ParamID pid, const char* name, const char* label, float def) {
    return ParamDef(pid, name, TYPE_WORLD, P_ANIMATABLE).Default(def).Range(0.0, 1e30).Label(label);
  };
  switch (id) {
    case kControlGizmo:
      return ParamDef(kControlGizmo, "gizmo", TYPE_MATRIX3, P_RESET_DEFAULT)
          .Default(Matrix3())
          .Label("Gizmo");
    case kControlUniform:
      return flag(kControlUniform, "uniform", "Uniform", true);
    case kControlSize:
      return world(kControlSize, "size", "Size", 20.0f);
    case kControlLength:
      return world(kControlLength, "length", "Length", 20.0f);
    case kControlWidth:
      return world(kControlWidth, "width", "Width", 20.0f);
    case kControlHeight:
      return world(kControlHeight, "height", "Height", 20.0f);
    case kControlAxis:
      return ParamDef(kControlAxis, "axis", TYPE_INT, 0).Default(2).Range(0, 2).Label("Axis");
    case kControlThickness:
      return ParamDef(kControlThickness, "thickness", TYPE_PCNT_FRAC, P_ANIMATABLE)
          .Default(0.5f)
          .Range(0.0, 100.0)
          .Label("Thickness");
    case kControlCorner:
      return world(kControlCorner, "corner", "Corner", 0.0f);
    case kControlSteps:
      return ParamDef(kControlSteps, "steps", TYPE_INT, 0).Default(6).Range(0, 999).Label("Steps");
    case kControlWarpAmount:
      return ParamDef(kControlWarpAmount, "warp_amount", TYPE_PCNT_FRAC, P_ANIMATABLE)
          .Default(0.0f)
          .Range(-100.0, 100.0)
          .Label("Warp Amount");
    case kControlWarpAxis:
      return ParamDef(kControlWarpAxis, "warp_axis", TYPE_INT, 0)
          .Default(0)
          .Range(0, 2)
          .Label("Warp Axis");
    case kControlOffsetLine:
      return flag(kControlOffsetLine, "offset_line", "Offset Line", false);
    case kControlFaceCamera:
      return flag(kControlFaceCamera, "face_camera", "Face Camera", false);
    case kControlConstantScreenSize:
      return flag(kControlConstantScreenSize, "constant_screen_size", "Constant Screen Size",
                  false);
    case kControlDrawOnTop:
      return flag(kControlDrawOnTop, "draw_on_top", "Draw On Top", false);
    case kControlSelectorActive:
      return flag(kControlSelectorActive, "selector_active", "Selector Active", false);
    case kControlSelectorNode:
      return ParamDef(kControlSelectorNode, "selector_node", TYPE_INODE, 0).Label("Selector Node");
    case kControlSelectorIgnoreBackfacing:
      return flag(kControlSelectorIgnoreBackfacing, "selector_ignore_backfacing",
                  "Selector Ignore Backfacing", false);
    case kControlSelectorUseWireColor:
      return flag(kControlSelectorUseWireColor, "selector_use_wire_color",
                  "Selector Use Wire Color", true);
    case kControlSelectorColor:
      return ParamDef(kControlSelectorColor, "selector_color", TYPE_POINT3, 0)
          .Default(Point3(0, 0, 0))
          .Label("Selector Color");
    case kControlSelectorSelOpacity:
      return ParamDef(kControlSelectorSelOpacity, "selector_sel_opacity", TYPE_PCNT_FRAC, 0)
          .Default(0.5f)
          .Range(0.0, 100.0)
          .Label("Selector Sel Opacity");
    case kControlSelectorUnselOpacity:
      return ParamDef(kControlSelectorUnselOpacity, "selector_unsel_opacity", TYPE_PCNT_FRAC, 0)
          .Default(0.25f)
          .Range(0.0, 100.0)
          .Label("Use Position");
    case kControlSelectorPushValue:
      return ParamDef(kControlSelectorPushValue, "selector_push_value", TYPE_FLOAT, 0)
          .Default(0.1f)
          .Range(0.0, 1e30)
          .Label("Selector Push Value");
    case kControlScale:
      return ParamDef(kControlScale, "scale", TYPE_PCNT_FRAC, P_ANIMATABLE)
          .Default(1.0f)
          .Range(0.0, 1e30)
          .Label("Scale");
    default:
      // No range: the interface's setter keeps values outside the enumeration.
      return ParamDef(kControlType, "type", TYPE_INT, 0).Default(9).Label("Helper Type");
  }
}

std::vector<ParamDef> ControlParamDefs(bool with_scale) {
  std::vector<ParamDef> defs;
  const ParamID last = with_scale ? kControlScale : kControlSelectorPushValue;
  for (ParamID id = kControlType; id <= last; ++id) defs.push_back(ControlParamDef(id));
  return defs;
}

std::vector<FPPropertyDef> ControlHelperProperties() {
  using enum FPType;
  return {
      FPPropertyDef(kGetControlType, kSetControlType, "type", TYPE_ENUM).Enum(kControlTypeEnum),
      FPPropertyDef(kGetGizmoPos, kSetGizmoPos, "gizmoPos", TYPE_POINT3),
      FPPropertyDef(kGetGizmoRot, kSetGizmoRot, "gizmoRot", TYPE_QUAT),
      FPPropertyDef(kGetGizmoScale, kSetGizmoScale, "gizmoScale", TYPE_POINT3),
      FPPropertyDef(kGetGizmoTM, kSetGizmoTM, "gizmoTM", TYPE_MATRIX3),
      FPPropertyDef(kGetSelectorFaceSel, kSetSelectorFaceSel, "selector_face_sel", TYPE_BITARRAY),
  };
}

std::vector<FPEnumDef> ControlHelperEnums() {
  FPEnumDef types(kControlTypeEnum, {});
  for (int i = 0; i < kControlTypeCount; ++i) types.items.push_back({ControlTypeName(i), i});
  return {types};
}

FPStatus IControlHelper::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  switch (fid) {
    case kGetControlType:
      return FPBind(result, p, this, &IControlHelper::GetType);
    case kSetControlType:
      return FPBind(result, p, this, &IControlHelper::SetType);
    case kGetGizmoPos:
      return FPBind(result, p, this, &IControlHelper::GetGizmoPos);
    case kSetGizmoPos:
      return FPBind(result, p, this, &IControlHelper::SetGizmoPos);
    case kGetGizmoRot:
      return FPBind(result, p, this, &IControlHelper::GetGizmoRot);
    case kSetGizmoRot:
      return FPBind(result, p, this, &IControlHelper::SetGizmoRot);
    case kGetGizmoScale:
      return FPBind(result, p, this, &IControlHelper::GetGizmoScale);
    case kSetGizmoScale:
      return FPBind(result, p, this, &IControlHelper::SetGizmoScale);
    case kGetGizmoTM:
      return FPBind(result, p, this, &IControlHelper::GetGizmoTM);
    case kSetGizmoTM:
      return FPBind(result, p, this, &IControlHelper::SetGizmoTM);
    case kGetSelectorFaceSel:
      return FPBind(result, p, this, &IControlHelper::GetSelectorFaceSel);
    case kSetSelectorFaceSel:
      return FPBind(result, p, this, &IControlHelper::SetSelectorFaceSel);
    default:
      return FPS_NO_SUCH_FUNCTION;
  }
}

// ---------------------------------------------------------------------------------------------
// ControlObject.

namespace {

/// Undo record of the selector's face selection.
template <class Base>
class FaceSelRestore : public RestoreObj {
 public:
  FaceSelRestore(ControlObject<Base>* obj, BitArray before)
      : handle_(Animatable::GetHandleByAnim(obj)), before_(std::move(before)) {}
  void Restore(int is_undo) override {
    ControlObject<Base>* obj = Get();
    if (!obj) return;
    if (is_undo) after_ = obj->GetSelectorFaceSel();
    obj->RestoreSelectorFaceSel(before_);
  }
  void Redo() override {
    if (ControlObject<Base>* obj = Get()) obj->RestoreSelectorFaceSel(after_);
  }
  void EndHold() override {
    if (ControlObject<Base>* obj = Get()) obj->ClearAFlag(A_HELD);
  }
  int Size() override { return before_.GetSize() / 8 + 16; }
  MSTR Description() override { return "Selector Face Selection"; }

 private:
  ControlObject<Base>* Get() const {
    return dynamic_cast<ControlObject<Base>*>(Animatable::GetAnimByHandle(handle_));
  }
  AnimHandle handle_;
  BitArray before_;
  BitArray after_;
};

}  // namespace

template <class Base>
MSTR ControlObject<Base>::SubAnimName(int i, bool) {
  return i == 0 ? MSTR("Parameters") : MSTR();
}

template <class Base>
IParamBlock2* ControlObject<Base>::GetParamBlockByID(BlockID id) {
  return pblock_ && pblock_->ID() == id ? pblock_ : nullptr;
}

template <class Base>
BaseInterface* ControlObject<Base>::GetInterface(Interface_ID id) {
  // Both classes answer their own id; GetDesc names which one this is.
  if (id == GetDesc()->ID()) return static_cast<IControlHelper*>(this);
  return Base::GetInterface(id);
}

template <class Base>
void ControlObject<Base>::SetReference(int i, RefTargetHandle target) {
  if (i != 0) return;
  pblock_ = static_cast<IParamBlock2*>(target);
  FigureChanged();
}

template <class Base>
RefResult ControlObject<Base>::NotifyRefChanged(
    const Interval&, RefTargetHandle target, PartID&, RefMessage message, bool) {
  if (message == REFMSG_CHANGE && target == pblock_) FigureChanged();
  return REF_SUCCEED;
}

template <class Base>
IOResult ControlObject<Base>::Save(ISave* isave) {
  isave->BeginChunk(kFaceSelChunk);
  const IOResult res = face_sel_.Save(isave);
  isave->EndChunk();
  return res;
}

template <class Base>
IOResult ControlObject<Base>::Load(ILoad* iload) {
  return ForEachChunk(
      iload, [&](USHORT id) { return id == kFaceSelChunk ? face_sel_.Load(iload) : IO_OK; });
}

template <class Base>
CreateMouseCallBack* ControlObject<Base>::GetCreateMouseCallBack() {
  static ControlCreateCallBack callback;  // one per class, as the host keeps them
  callback.SetObject(pblock_);
  return &callback;
}

template <class Base>
int ControlObject<Base>::GetType() {
  return pblock_ ? pblock_->GetInt(kControlType) : static_cast<int>(ControlType::Sphere);
}

template <class Base>
void ControlObject<Base>::SetType(int type) {
  if (pblock_) pblock_->SetValue(kControlType, 0, type);
}

template <class Base>
Matrix3 ControlObject<Base>::GetGizmoTM() {
  return pblock_ ? pblock_->GetMatrix3(kControlGizmo) : Matrix3();
}

template <class Base>
void ControlObject<Base>::SetGizmoTM(Matrix3 m) {
  if (pblock_) pblock_->SetValue(kControlGizmo, 0, m);
}

template <class Base>
Point3 ControlObject<Base>::GetGizmoPos() {
  return GetGizmoTM().GetTrans();
}

template <class Base>
void ControlObject<Base>::SetGizmoPos(Point3 p) {
  Matrix3 m = GetGizmoTM();
  m.SetTrans(p);
  SetGizmoTM(m);
}

template <class Base>
Quat ControlObject<Base>::GetGizmoRot() {
  Point3 pos;
  Quat rot;
  ScaleValue scale;
  DecomposeMatrix(GetGizmoTM(), pos, rot, scale);
  return rot;
}

template <class Base>
void ControlObject<Base>::SetGizmoRot(Quat q) {
  Point3 pos;
  Quat rot;
  ScaleValue scale;
  DecomposeMatrix(GetGizmoTM(), pos, rot, scale);
  Matrix3 r;
  q.MakeMatrix(r);
  SetGizmoTM(MatrixFromScaleValue(scale) * r * TransMatrix(pos));
}

template <class Base>
Point3 ControlObject<Base>::GetGizmoScale() {
  Point3 pos;
  Quat rot;
  ScaleValue scale;
  DecomposeMatrix(GetGizmoTM(), pos, rot, scale);
  return scale.s;
}

template <class Base>
void ControlObject<Base>::SetGizmoScale(Point3 s) {
  Point3 pos;
  Quat rot;
  ScaleValue scale;
  DecomposeMatrix(GetGizmoTM(), pos, rot, scale);
  Matrix3 r;
  rot.MakeMatrix(r);
  SetGizmoTM(MatrixFromScaleValue(ScaleValue(s, scale.q)) * r * TransMatrix(pos));
}

template <class Base>
void ControlObject<Base>::SetSelectorFaceSel(BitArray sel) {
  if (sel == face_sel_) return;
  if (HoldWantsRecord(this)) theHold.Put(new FaceSelRestore<Base>(this, face_sel_));
  RestoreSelectorFaceSel(sel);
}

template <class Base>
void ControlObject<Base>::RestoreSelectorFaceSel(const BitArray& sel) {
  face_sel_ = sel;
  this->NotifyDependents(FOREVER, PART_SELECT, REFMSG_CHANGE);
}

template <class Base>
void ControlObject<Base>::EditGizmo(const Matrix3& partm,
                                    const Matrix3& tm_axis,
                                    const Matrix3& delta,
                                    bool local) {
  if (!pblock_) return;
  // gizmo_ws = gizmo * partm; the delta acts in the axis system: ws * Inverse(axis) * d * axis.
  const Matrix3 gizmo_ws = GetGizmoTM() * partm;
  const Matrix3 to_axis = Inverse(tm_axis);
  Matrix3 d = delta;
  if (local) {
    // About the gizmo's own origin: move it to the axis origin, apply, move back.
    const Point3 origin_as = gizmo_ws.GetTrans() * to_axis;
    d = TransMatrix(-origin_as) * delta * TransMatrix(origin_as);
  }
  SetGizmoTM(gizmo_ws * to_axis * d * tm_axis * Inverse(partm));
}

template <class Base>
void ControlObject<Base>::Move(
    TimeValue, const Matrix3& partm, const Matrix3& tm_axis, const Point3& val, bool) {
  EditGizmo(partm, tm_axis, TransMatrix(val), false);
}

template <class Base>
void ControlObject<Base>::Rotate(
    TimeValue, const Matrix3& partm, const Matrix3& tm_axis, const Quat& val, bool local_origin) {
  Matrix3 r;
  val.MakeMatrix(r);
  EditGizmo(partm, tm_axis, r, local_origin);
}

template <class Base>
void ControlObject<Base>::Scale(
    TimeValue, const Matrix3& partm, const Matrix3& tm_axis, const Point3& val, bool local_origin) {
  EditGizmo(partm, tm_axis, ScaleMatrix(val), local_origin);
}

template <class Base>
FigureInput ControlObject<Base>::ReadFigure(TimeValue t, Interval& valid) {
  FigureInput in;
  if (!pblock_) return in;
  IParamBlock2& pb = *pblock_;
  pb.GetValue(kControlType, t, in.type, valid);
  pb.GetValue(kControlUniform, t, in.uniform, valid);
  pb.GetValue(kControlSize, t, in.size, valid);
  pb.GetValue(kControlLength, t, in.length, valid);
  pb.GetValue(kControlWidth, t, in.width, valid);
  pb.GetValue(kControlHeight, t, in.height, valid);
  pb.GetValue(kControlThickness, t, in.thickness, valid);
  pb.GetValue(kControlCorner, t, in.corner, valid);
  pb.GetValue(kControlSteps, t, in.steps, valid);
  pb.GetValue(kControlWarpAmount, t, in.warp_amount, valid);
  pb.GetValue(kControlWarpAxis, t, in.warp_axis, valid);
  pb.GetValue(kControlOffsetLine, t, in.offset_line, valid);
  pb.GetValue(kControlFaceCamera, t, in.face_camera, valid);
  if (pb.GetDesc()->GetParamDef(kControlScale)) pb.GetValue(kControlScale, t, in.scale, valid);
  return in;
}

template <class Base>
Matrix3 ControlObject<Base>::FigureToObject(TimeValue) {
  if (!pblock_) return Matrix3();
  return AxisPermutation(pblock_->GetInt(kControlAxis)) * GetGizmoTM();
}

template class ControlObject<HelperObject>;
template class ControlObject<ShapeObject>;

// ---------------------------------------------------------------------------------------------
// Creation by mouse.

bool PointOnConstructionPlane(ViewExp& vpt, const IPoint2& m, Point3& out_ws) {
  GraphicsWindow* gw = vpt.getGW();
  const float width_px = static_cast<float>(gw->getWinSizeX());
  const float height_px = static_cast<float>(gw->getWinSizeY());
  if (!(width_px > 0.0f)) return false;
  Matrix3 world_to_view;
  vpt.GetAffineTM(world_to_view);
  const Matrix3 view_to_world = Inverse(world_to_view);
  // Offsets from the window's centre, y up.
  const float sx = static_cast<float>(m.x) - 0.5f * width_px;
  const float sy = 0.5f * height_px - static_cast<float>(m.y);
  Point3 origin_ws;
  Point3 dir_ws;
  if (vpt.IsPerspView()) {
    // The view's width at depth 1 gives the ray's slope per pixel.
    const Point3 unit_depth_ws = Point3(0, 0, -1) * view_to_world;
    const float per_px = vpt.GetScreenScaleFactor(unit_depth_ws) / width_px;
    origin_ws = view_to_world.GetTrans();
    dir_ws = view_to_world.VectorTransform(Point3(sx * per_px, sy * per_px, -1.0f));
  } else {
    const float per_px = vpt.GetScreenScaleFactor(view_to_world.GetTrans()) / width_px;
    origin_ws = Point3(sx * per_px, sy * per_px, 0.0f) * view_to_world;
    dir_ws = view_to_world.VectorTransform(Point3(0, 0, -1));
  }
  int normal_axis = 2;
  switch (vpt.GetViewType()) {
    case VIEW_FRONT:
    case VIEW_BACK:
      normal_axis = 1;
      break;
    case VIEW_LEFT:
    case VIEW_RIGHT:
      normal_axis = 0;
      break;
    default:
      break;
  }
  const float denom = dir_ws[normal_axis];
  if (std::fabs(denom) < 1e-6f) return false;
  const float s = -origin_ws[normal_axis] / denom;
  out_ws = origin_ws + dir_ws * s;
  out_ws[normal_axis] = 0.0f;
  return true;
}

void ControlCreateCallBack::SetSizes(float d) {
  if (!pblock_) return;
  // Creation writes values, never keys.
  AnimateSuspend suspend;
  const TimeValue t = GetCOREInterface()->GetTime();
  for (ParamID id : {kControlSize, kControlLength, kControlWidth, kControlHeight})
    pblock_->SetValue(id, t, d);
}

int ControlCreateCallBack::OnPoint(int msg, int point, const Point3& p, Matrix3& mat) {
  switch (msg) {
    case MOUSE_POINT:
      if (point == 0) {
        start_ = p;
        mat.IdentityMatrix();
        mat.SetTrans(p);
        SetSizes(0.0f);
        return CREATE_CONTINUE;
      }
      SetSizes(Length(p - start_));
      return CREATE_STOP;
    case MOUSE_MOVE:
      SetSizes(Length(p - start_));
      return CREATE_CONTINUE;
    case MOUSE_ABORT:
      return CREATE_ABORT;
    default:
      return CREATE_CONTINUE;
  }
}

int ControlCreateCallBack::proc(ViewExp* vpt, int msg, int point, int, IPoint2 m, Matrix3& mat) {
  if (msg == MOUSE_ABORT) return CREATE_ABORT;
  if (msg != MOUSE_POINT && msg != MOUSE_MOVE) return CREATE_CONTINUE;
  Point3 p;
  if (!vpt || !PointOnConstructionPlane(*vpt, m, p)) {
    // Without a plane point the first click cannot place the node; later events are skipped.
    return msg == MOUSE_POINT && point == 0 ? CREATE_ABORT : CREATE_CONTINUE;
  }
  return OnPoint(msg, point, p, mat);
}

}  // namespace marvolith
