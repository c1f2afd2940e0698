// Copyright Marvolith contributors.
#include "plugin/marvolith_interface.h"

#include "host/core/reference.h"
#include "host/scene/inode.h"
#include "host/scene/object.h"

namespace marvolith {
namespace {

using enum FPType;

template <typename T>
T* Resolve(AnimHandle handle) {
  return handle ? dynamic_cast<T*>(Animatable::GetAnimByHandle(handle)) : nullptr;
}

AnimHandle HandleOf(Animatable* anim) { return anim ? Animatable::GetHandleByAnim(anim) : 0; }

}  // namespace

FPEnumDef PointTypeEnum(EnumID id) {
  return FPEnumDef(id, {{"BezierCorner", kPointBezierCorner},
                        {"Bezier", kPointBezier},
                        {"Corner", kPointCorner},
                        {"Smooth", kPointSmooth},
                        {"FixedSmooth", kPointFixedSmooth}});
}

ReferenceTarget* FindNodeBaseObject(INode* node) {
  Object* obj = node ? node->GetObjectRef() : nullptr;
  // A modifier stack may sit on another one; the walk ends at the first object that is not a
  // derived object, or at nothing when a stack has no object below it.
  while (obj && obj->SuperClassID() == GEN_DERIVOB_CLASS_ID) {
    auto* derived = dynamic_cast<IDerivedObject*>(obj);
    obj = derived ? derived->GetObjRef() : nullptr;
  }
  return obj;
}

MarvolithInterface::MarvolithInterface()
    : FPStaticInterface(
          MARVOLITH_INTERFACE_ID,
          "Marvolith",
          FP_CORE,
          nullptr,
          {
              {kGetUIPanelHolder, "GetUIPanelHolder", TYPE_REFTARG},
              {kGetPoseKitHolder, "GetPoseKitHolder", TYPE_REFTARG},
              {kAbout, "About", TYPE_VOID},
              {kOpenCurveEditor, "OpenCurveEditor", TYPE_VOID},
          },
          {
              FPPropertyDef(kGetActiveUIPanel, kSetActiveUIPanel, "activeUIPanel", TYPE_INODE),
              FPPropertyDef(kGetActivePoseKit, kSetActivePoseKit, "activePoseKit", TYPE_INODE),
              FPPropertyDef(kGetUIPanelTransforming,
                            kSetUIPanelTransforming,
                            "uiPanelTransforming",
                            TYPE_BOOL),
              FPPropertyDef(
                  kGetCurrentUIAction, kSetCurrentUIAction, "currentUIAction", TYPE_REFTARG),
              FPPropertyDef(kGetReplaceNativeCurveEditor,
                            kSetReplaceNativeCurveEditor,
                            "replaceNativeCurveEditor",
                            TYPE_BOOL),
          },
          {PointTypeEnum(kPointTypeEnumId)}) {}

INode* MarvolithInterface::ActiveUIPanel() const { return Resolve<INode>(panel_node_); }

ReferenceTarget* MarvolithInterface::ActiveUIPanelObject() const {
  return Resolve<ReferenceTarget>(panel_object_);
}

void MarvolithInterface::SetActiveUIPanel(INode* node) {
  ReferenceTarget* obj = FindNodeBaseObject(node);
  panel_node_ = HandleOf(node);
  panel_object_ = HandleOf(obj);
  if (obj) obj->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

INode* MarvolithInterface::ActivePoseKit() const { return Resolve<INode>(pose_kit_node_); }

ReferenceTarget* MarvolithInterface::ActivePoseKitObject() const {
  return Resolve<ReferenceTarget>(pose_kit_object_);
}

void MarvolithInterface::SetActivePoseKit(INode* node) {
  pose_kit_node_ = HandleOf(node);
  pose_kit_object_ = HandleOf(FindNodeBaseObject(node));
}

ReferenceTarget* MarvolithInterface::CurrentUIAction() const {
  return Resolve<ReferenceTarget>(current_action_);
}

void MarvolithInterface::SetCurrentUIAction(ReferenceTarget* action) {
  current_action_ = HandleOf(action);
}

void MarvolithInterface::ResetState() {
  panel_node_ = panel_object_ = pose_kit_node_ = pose_kit_object_ = current_action_ = 0;
  ui_panel_transforming_ = false;
}

FPStatus MarvolithInterface::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  switch (fid) {
    case kGetActiveUIPanel:
      result = FPValue(ActiveUIPanel());
      return FPS_OK;
    case kSetActiveUIPanel:
      SetActiveUIPanel(p[0].AsNode());
      return FPS_OK;
    case kGetActivePoseKit:
      result = FPValue(ActivePoseKit());
      return FPS_OK;
    case kSetActivePoseKit:
      SetActivePoseKit(p[0].AsNode());
      return FPS_OK;
    case kGetUIPanelTransforming:
      result = FPValue(UIPanelTransforming());
      return FPS_OK;
    case kSetUIPanelTransforming:
      SetUIPanelTransforming(p[0].AsBool());
      return FPS_OK;
    case kGetCurrentUIAction:
      result = FPValue(CurrentUIAction());
      return FPS_OK;
    case kSetCurrentUIAction:
      // The argument is there (Invoke checked); the running action is RunScript's alone.
      return FPS_OK;
    // TODO(ui panels, pose kits): the scene's UIPanelHolder and PoseKitHolder, once those
    // classes exist. TODO(curve editor): About, OpenCurveEditor and the override switch
    // replaceNativeCurveEditor. Until then they answer the failure value, as an unknown id does.
    default:
      return FPS_NO_SUCH_FUNCTION;
  }
}

namespace {
// Built with the module's static objects, so scripts find the global as soon as the module is
// loaded; a function-local static would wait for the first call.
MarvolithInterface g_marvolith_interface;
}  // namespace

MarvolithInterface& GetMarvolithInterface() { return g_marvolith_interface; }

}  // namespace marvolith
