// Copyright Marvolith contributors.
// The plug-in loader: opens a plug-in module, resolves its seven exports, initialises it and
// registers its classes; tells the modules when the host has started and when it shuts down.
#pragma once

#include <string>
#include <vector>

#include "host/registry/class_desc.h"
#include "host/registry/plugin_api.h"

// The host's version, as a module built for it answers from LibVersion: release 26000, API
// number 64, SDK revision 0.

/// The resolved exports of one module.
struct PluginExports {
  LibDescriptionProc LibDescription = nullptr;
  LibNumberClassesProc LibNumberClasses = nullptr;
  LibClassDescProc LibClassDesc = nullptr;
  LibVersionProc LibVersion = nullptr;
  CanAutoDeferProc CanAutoDefer = nullptr;
  LibInitializeProc LibInitialize = nullptr;
  LibShutdownProc LibShutdown = nullptr;
};

/// A loaded module.
struct LoadedPlugin {
  std::string path;
  PluginExports exports;
  /// What LibClassDesc answered, in its order, up to the first null.
  std::vector<ClassDesc2*> classes;
};

/// Loads the module at path as the host does at start: opens it (its static objects are built
/// and its attach routine runs), resolves the seven exports, checks that LibVersion carries this
/// host's API number, calls LibInitialize, then reads LibNumberClasses and LibClassDesc(i) and
/// adds each class to the ClassDirectory. A class that collides with a registered one (same
/// super class and Class_ID) is left out with a log line.
///
/// The module's code stays mapped until the process ends, as the host keeps its plug-ins, so
/// objects made by its classes and callbacks it registered stay valid after UnloadPlugins.
///
/// False, with *error (when given) set to one "Marvolith: ..." line, when the module cannot be
/// opened, lacks an export, was built for another API, is loaded already, or its LibInitialize
/// answers 0; the module is then closed again and nothing is registered.
[[nodiscard]] bool LoadPlugin(const std::string& path, std::string* error = nullptr);

/// Tells the loaded modules that the host has finished starting: broadcasts
/// NOTIFY_SYSTEM_STARTUP. Only the first call after loading broadcasts.
void NotifySystemStartup();

/// The host's exit: broadcasts NOTIFY_SYSTEM_SHUTDOWN, then, newest module first, calls
/// LibShutdown, removes the module's classes from the ClassDirectory and closes it. Nothing
/// happens when no module is loaded.
void UnloadPlugins();

int NumLoadedPlugins();
/// The i-th loaded module in load order, or null out of range.
const LoadedPlugin* GetLoadedPlugin(int i);
