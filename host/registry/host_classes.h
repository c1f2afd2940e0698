// Copyright Marvolith contributors.
// The host's own classes (nodes, keyframe controllers, objects, parameter blocks) in the class
// directory, so that scene files can create them by (SClass_ID, Class_ID).
#pragma once

/// Registers every class of the headless host once; later calls do nothing.
void RegisterHostClasses();
