// Copyright Marvolith contributors.
#include "host/controllers/controller_classes.h"

#include "host/controllers/keyframe_control.h"
#include "host/controllers/list_control.h"
#include "host/controllers/prs_control.h"
#include "host/controllers/xyz_control.h"
#include "host/registry/class_desc.h"

Control* NewDefaultFloatController() { return new BezierFloatControl(); }
Control* NewDefaultPositionController() { return new PositionXYZControl(); }
Control* NewDefaultRotationController() { return new EulerXYZControl(); }
Control* NewDefaultScaleController() { return new BezierScaleControl(); }
Control* NewDefaultPoint3Controller() { return new BezierPoint3Control(); }
Control* NewDefaultColorController() { return new BezierColorControl(); }
Control* NewDefaultPoint4Controller() { return new BezierPoint4Control(); }
Control* NewDefaultMatrix3Controller() { return new PRSControl(); }

Control* CreateInterpFloat() { return new BezierFloatControl(); }
Control* CreateInterpPosition() { return new BezierPositionControl(); }
Control* CreateInterpPoint3() { return new BezierPoint3Control(); }
Control* CreateInterpRotation() { return new TCBRotationControl(); }
Control* CreateInterpScale() { return new BezierScaleControl(); }
Control* CreateInterpPoint4() { return new BezierPoint4Control(); }

void RegisterControllerClasses() {
  static bool done = false;
  if (done) return;
  done = true;
  ClassDesc2* const descs[] = {
      KeyframeClassDesc<BezierFloatTraits>(),
      KeyframeClassDesc<BezierPositionTraits>(),
      KeyframeClassDesc<BezierPoint3Traits>(),
      KeyframeClassDesc<BezierColorTraits>(),
      KeyframeClassDesc<BezierScaleTraits>(),
      KeyframeClassDesc<BezierPoint4Traits>(),
      KeyframeClassDesc<TCBFloatTraits>(),
      KeyframeClassDesc<TCBPositionTraits>(),
      KeyframeClassDesc<TCBRotationTraits>(),
      KeyframeClassDesc<TCBScaleTraits>(),
      EulerXYZClassDesc(),
      PositionXYZClassDesc(),
      ScaleXYZClassDesc(),
      PRSClassDesc(),
      FloatListClassDesc(),
      Point3ListClassDesc(),
      PositionListClassDesc(),
      RotationListClassDesc(),
      ScaleListClassDesc(),
  };
  for (ClassDesc2* cd : descs) ClassDirectory::Get().AddClass(cd);
}
