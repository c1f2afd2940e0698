// Copyright Marvolith contributors.
#include "module/module_entry.h"

#include "host/registry/plugin_api.h"
#include "module/class_list.h"
#include "module/lifecycle.h"
#include "plugin/class_table.h"
#include "plugin/marvolith_interface.h"
#include "plugin/strings.h"

namespace marvolith {
namespace {

// The scripting global is a static object of the plug-in library that nothing in the module
// calls; naming it here keeps it in the module however the link is made.
[[maybe_unused]] MarvolithInterface* const kMarvolithGlobal = &GetMarvolithInterface();

}  // namespace

const char* ModuleDescription() { return GetString(IDS_LIB_DESCRIPTION); }

int ModuleClassCount() { return kClassCount; }

ClassDesc2* ModuleClassDesc(unsigned int index) { return GetModuleClassDesc(index); }

ULONG ModuleVersion() { return VERSION_3DSMAX; }

ULONG ModuleCanAutoDefer() { return 0; }

int ModuleInitialize() { return InitializeModule(); }

int ModuleShutdown() { return ShutdownModule(); }

int AttachModule(HINSTANCE instance) {
  SetModuleInstance(instance);
  return 1;
}

}  // namespace marvolith
