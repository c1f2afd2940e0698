// Copyright Marvolith contributors.
// Registration of the host's own objects: bone, point helper, editable spline, text shape and
// Morpher.
#pragma once

/// Adds the host's object classes to the class directory; called by RegisterHostClasses. Later
/// calls do nothing.
void RegisterObjectClasses();
