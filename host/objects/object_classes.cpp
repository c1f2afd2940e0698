// Copyright Marvolith contributors.
#include "host/objects/object_classes.h"

#include "host/objects/bone_object.h"
#include "host/objects/morpher.h"
#include "host/objects/point_helper.h"
#include "host/objects/spline_shape.h"
#include "host/objects/text_shape.h"
#include "host/registry/class_desc.h"

void RegisterObjectClasses() {
  ClassDirectory& dir = ClassDirectory::Get();
  for (ClassDesc2* cd : {GetBoneObjDesc(), GetPointHelpDesc(), GetSplineShapeDesc(),
                         GetTextShapeDesc(), GetMorpherDesc()}) {
    dir.AddClass(cd);  // false (kept) when it is registered already
  }
}
