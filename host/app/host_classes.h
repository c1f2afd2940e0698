// Copyright Marvolith contributors.
// The host's own classes (nodes, keyframe controllers, objects, parameter blocks) in the class
// directory, so that scene files can create them by (SClass_ID, Class_ID).
#pragma once

#include "host/params/param_types.h"

class Control;

/// Registers every class of the headless host once; later calls do nothing.
void RegisterHostClasses();

/// The host's default keyframe track for an animatable parameter of type: Bezier float for float
/// kinds, Bezier colour for TYPE_RGBA, Bezier point3 for the other Point3 kinds, Bezier point4 for
/// Point4 kinds; null for the rest. RegisterHostClasses installs it as the parameter blocks'
/// controller factory, so that a parameter set in animate mode gets a track and a key.
Control* MakeDefaultParamController(ParamType2 type);
