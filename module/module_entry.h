// Copyright Marvolith contributors.
// What the seven exports of Marvolith.dlc answer, and the module's attach routine. The exports
// themselves, with C linkage, are in dlc/marvolith_dlc.cpp.
#pragma once

#include "host/registry/class_desc.h"

namespace marvolith {

/// LibDescription: "Marvolith Animation"; null before the module is attached.
const char* ModuleDescription();
/// LibNumberClasses: 70.
int ModuleClassCount();
/// LibClassDesc: the descriptor at index, null above 69.
ClassDesc2* ModuleClassDesc(unsigned int index);
/// LibVersion: the host's version constant, 0x65904000.
ULONG ModuleVersion();
/// CanAutoDefer: 0, the module is loaded at start-up.
ULONG ModuleCanAutoDefer();
/// LibInitialize and LibShutdown: see module/lifecycle.h. Both answer 1.
int ModuleInitialize();
int ModuleShutdown();
/// The attach routine: stores the module's instance handle for HInstance and string lookups.
/// Acts on process attach only; always answers 1.
int AttachModule(HINSTANCE instance);

}  // namespace marvolith
