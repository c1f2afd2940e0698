// Copyright Marvolith contributors.
#include "host/app/plugin_loader.h"

#include <dlfcn.h>

#include <cstdio>
#include <memory>

#include "host/core/diagnostics.h"
#include "host/scene/core_interface.h"

namespace {

struct PluginRecord {
  void* handle = nullptr;
  LoadedPlugin info;
  std::vector<ClassDesc2*> registered;  // the classes this module added to the directory
};

struct LoaderState {
  std::vector<std::unique_ptr<PluginRecord>> plugins;
  bool started = false;
};

LoaderState& State() {
  static LoaderState state;
  return state;
}

bool Refuse(std::string* error, const std::string& line) {
  LogLine(line + "\n");
  if (error) *error = line;
  return false;
}

std::string Hex(ULONG v) {
  char buf[16];
  std::snprintf(buf, sizeof(buf), "0x%08x", static_cast<unsigned>(v));
  return buf;
}

template <typename Proc>
bool Resolve(void* handle, const char* name, Proc& out) {
  out = reinterpret_cast<Proc>(dlsym(handle, name));
  return out != nullptr;
}

}  // namespace

bool LoadPlugin(const std::string& path, std::string* error) {
  const std::string module = "the plug-in module '" + path + "'";
  dlerror();
  // RTLD_NODELETE: plug-in code lives until the process ends, so that nothing it left behind
  // (objects, callbacks, filters) can point into unmapped code.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (!handle) {
    const char* why = dlerror();
    return Refuse(error, "Marvolith: " + module +
                             " could not be opened: " + (why ? why : "unknown error") + ".");
  }
  LoaderState& state = State();
  for (const auto& p : state.plugins) {
    if (p->handle == handle) {
      dlclose(handle);  // drops the count this dlopen added
      return Refuse(error, "Marvolith: " + module + " is loaded already.");
    }
  }

  auto record = std::make_unique<PluginRecord>();
  record->handle = handle;
  record->info.path = path;
  PluginExports& ex = record->info.exports;
  const char* missing = nullptr;
  if (!Resolve(handle, "LibDescription", ex.LibDescription))
    missing = "LibDescription";
  else if (!Resolve(handle, "LibNumberClasses", ex.LibNumberClasses))
    missing = "LibNumberClasses";
  else if (!Resolve(handle, "LibClassDesc", ex.LibClassDesc))
    missing = "LibClassDesc";
  else if (!Resolve(handle, "LibVersion", ex.LibVersion))
    missing = "LibVersion";
  else if (!Resolve(handle, "CanAutoDefer", ex.CanAutoDefer))
    missing = "CanAutoDefer";
  else if (!Resolve(handle, "LibInitialize", ex.LibInitialize))
    missing = "LibInitialize";
  else if (!Resolve(handle, "LibShutdown", ex.LibShutdown))
    missing = "LibShutdown";
  if (missing) {
    dlclose(handle);
    return Refuse(error, "Marvolith: " + module + " does not export " + missing + ".");
  }

  // The API number decides binary compatibility; the release and revision may differ.
  const ULONG version = ex.LibVersion();
  if (((version >> 8) & 0xff) != MAX_API_NUM) {
    dlclose(handle);
    return Refuse(error, "Marvolith: " + module + " was built for another host (version " +
                             Hex(version) + ", this host is " + Hex(VERSION_3DSMAX) + ").");
  }
  if (!ex.LibInitialize()) {
    dlclose(handle);
    return Refuse(error, "Marvolith: " + module + " failed to initialise.");
  }

  const int count = ex.LibNumberClasses();
  ClassDirectory& directory = ClassDirectory::Get();
  for (int i = 0; i < count; ++i) {
    ClassDesc2* cd = ex.LibClassDesc(static_cast<unsigned int>(i));
    if (!cd) break;  // the host stops at the first null
    record->info.classes.push_back(cd);
    if (directory.AddClass(cd)) {
      record->registered.push_back(cd);
    } else {
      LogLine("Marvolith: class " + std::to_string(i) + " of " + module +
              " has the identity of a registered class and was left out.\n");
    }
  }
  state.plugins.push_back(std::move(record));
  return true;
}

void NotifySystemStartup() {
  LoaderState& state = State();
  if (state.started || state.plugins.empty()) return;
  state.started = true;
  BroadcastNotification(NOTIFY_SYSTEM_STARTUP);
}

void UnloadPlugins() {
  LoaderState& state = State();
  if (state.plugins.empty()) return;
  BroadcastNotification(NOTIFY_SYSTEM_SHUTDOWN);
  while (!state.plugins.empty()) {
    std::unique_ptr<PluginRecord> record = std::move(state.plugins.back());
    state.plugins.pop_back();
    record->info.exports.LibShutdown();
    for (ClassDesc2* cd : record->registered) ClassDirectory::Get().RemoveClass(cd);
    dlclose(record->handle);
  }
  state.started = false;
}

int NumLoadedPlugins() { return static_cast<int>(State().plugins.size()); }

const LoadedPlugin* GetLoadedPlugin(int i) {
  const auto& plugins = State().plugins;
  return i >= 0 && i < static_cast<int>(plugins.size()) ? &plugins[static_cast<size_t>(i)]->info
                                                        : nullptr;
}
