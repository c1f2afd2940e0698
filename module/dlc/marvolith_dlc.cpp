// Copyright Marvolith contributors.
// Marvolith.dlc: the seven exports the host looks up by name, and the attach routine.
#include <dlfcn.h>

#include "module/module_entry.h"

#define MV_EXPORT extern "C" __attribute__((visibility("default")))

MV_EXPORT const char* LibDescription() { return marvolith::ModuleDescription(); }
MV_EXPORT int LibNumberClasses() { return marvolith::ModuleClassCount(); }
MV_EXPORT ClassDesc2* LibClassDesc(unsigned int i) { return marvolith::ModuleClassDesc(i); }
MV_EXPORT ULONG LibVersion() { return marvolith::ModuleVersion(); }
MV_EXPORT ULONG CanAutoDefer() { return marvolith::ModuleCanAutoDefer(); }
MV_EXPORT int LibInitialize() { return marvolith::ModuleInitialize(); }
MV_EXPORT int LibShutdown() { return marvolith::ModuleShutdown(); }

namespace {

// Process attach: runs once when the module is mapped, after its static objects are built. The
// module's instance handle is its load address, found through one of its own symbols.
__attribute__((constructor)) void OnProcessAttach() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&LibDescription), &info) && info.dli_fbase)
    marvolith::AttachModule(info.dli_fbase);
}

}  // namespace
