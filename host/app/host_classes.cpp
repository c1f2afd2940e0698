// Copyright Marvolith contributors.
#include "host/app/host_classes.h"

#include "host/controllers/controller_classes.h"
#include "host/controllers/curve_control.h"
#include "host/objects/object_classes.h"
#include "host/params/iparam_block2.h"
#include "host/scene/scene.h"

Control* MakeDefaultParamController(ParamType2 type) {
  switch (ParamKind(type)) {
    case PBKind::kFloat:
      return NewDefaultFloatController();
    case PBKind::kPoint3:
      return BaseParamType(type) == TYPE_RGBA ? NewDefaultColorController()
                                              : NewDefaultPoint3Controller();
    case PBKind::kPoint4:
      return NewDefaultPoint4Controller();
    default:
      return nullptr;
  }
}

// Each area of the host declares its classes in its own registration function.

void RegisterHostClasses() {
  static bool done = false;
  if (done) return;
  done = true;
  RegisterSceneClasses();
  RegisterControllerClasses();
  RegisterCurveControlClass();
  RegisterParamBlockClasses();
  RegisterObjectClasses();
  SetParamControllerFactory(&MakeDefaultParamController);
}
