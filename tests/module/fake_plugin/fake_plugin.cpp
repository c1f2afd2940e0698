// Copyright Marvolith contributors.
// A minimal plug-in module for the loader's refusals: built once answering another host's API
// number (FAKE_PLUGIN_OLD_API) and once failing its LibInitialize (FAKE_PLUGIN_INIT_FAILS).
#include "host/app/plugin_loader.h"

#define MV_EXPORT extern "C" __attribute__((visibility("default")))

MV_EXPORT const char* LibDescription() { return "Fake"; }
MV_EXPORT int LibNumberClasses() { return 0; }
MV_EXPORT ClassDesc2* LibClassDesc(unsigned int) { return nullptr; }
#ifdef FAKE_PLUGIN_OLD_API
MV_EXPORT ULONG LibVersion() { return (MAX_RELEASE << 16) | (62u << 8); }
#else
MV_EXPORT ULONG LibVersion() { return VERSION_3DSMAX; }
#endif
MV_EXPORT ULONG CanAutoDefer() { return 0; }
#ifdef FAKE_PLUGIN_INIT_FAILS
MV_EXPORT int LibInitialize() { return 0; }
#else
MV_EXPORT int LibInitialize() { return 1; }
#endif
MV_EXPORT int LibShutdown() { return 1; }
