// Copyright Marvolith contributors.
// The host's default controllers and the registration of every controller class.
#pragma once

#include "host/core/control.h"

/// A new Bezier float, holding 0.
Control* NewDefaultFloatController();
/// A new position XYZ of three Bezier floats, at the origin.
Control* NewDefaultPositionController();
/// A new Euler XYZ (order XYZ) of three Bezier floats, the identity.
Control* NewDefaultRotationController();
/// A new Bezier scale, factors 1, 1, 1 in the identity axis system.
Control* NewDefaultScaleController();
/// A new Bezier point3, (0, 0, 0).
Control* NewDefaultPoint3Controller();
/// A new Bezier colour, (0, 0, 0).
Control* NewDefaultColorController();
/// A new Bezier point4, (0, 0, 0, 0).
Control* NewDefaultPoint4Controller();
/// A new PRS with the default position, rotation and scale controllers above.
Control* NewDefaultMatrix3Controller();

/// The host's keyframe classes by value kind: Bezier float, position, point3, scale, point4 and
/// TCB rotation.
Control* CreateInterpFloat();
Control* CreateInterpPosition();
Control* CreateInterpPoint3();
Control* CreateInterpRotation();
Control* CreateInterpScale();
Control* CreateInterpPoint4();

/// Adds every controller class of the host (keyframe, Euler and XYZ, PRS, lists) to the class
/// directory; called by RegisterHostClasses. Later calls do nothing.
void RegisterControllerClasses();
