// Copyright Marvolith contributors.
// The plug-in module under the tool: finding and loading Marvolith.dlc, and `marvolith classes`.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "apps/marvolith/commands.h"
#include "host/app/host_classes.h"
#include "host/app/plugin_loader.h"
#include "host/interpreter/scripted_attrib.h"

namespace marvolith::cli {
namespace {

std::string g_module_path;
std::string g_module_error;

/// --module PATH (or --module=PATH), else $MARVOLITH_MODULE, else Marvolith.dlc beside the tool.
std::string FindModulePath(int argc, char** argv) {
  constexpr std::string_view kOption = "--module";
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == kOption && i + 1 < argc) return argv[i + 1];
    if (arg.size() > kOption.size() && arg.substr(0, kOption.size() + 1) == "--module=")
      return std::string(arg.substr(kOption.size() + 1));
  }
  if (const char* env = std::getenv("MARVOLITH_MODULE"); env && *env) return env;
  std::error_code ec;
  const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::string("Marvolith.dlc") : (exe.parent_path() / "Marvolith.dlc").string();
}

void PrintClasses() {
  const LoadedPlugin* plugin = RequireModule();
  const PluginExports& ex = plugin->exports;
  const int count = ex.LibNumberClasses();
  for (int i = 0; i < count; ++i) {
    ClassDesc2* cd = ex.LibClassDesc(static_cast<unsigned int>(i));
    if (!cd) break;
    // ClassName and Category share one lookup buffer: copy the first before asking the second.
    const char* name = cd->ClassName();
    const std::string class_name = name ? name : "";
    const char* category = cd->Category();
    const char* internal = cd->InternalName();
    const Class_ID id = cd->ClassID();
    std::printf("%d\t%s\t%s\t0x%x\t(0x%08x, 0x%08x)\t%s\t%s\n", i, class_name.c_str(),
                internal ? internal : "", static_cast<unsigned>(cd->SuperClassID()),
                static_cast<unsigned>(id.PartA()), static_cast<unsigned>(id.PartB()),
                category ? category : "", cd->IsPublic() ? "public" : "private");
  }
}

}  // namespace

const LoadedPlugin* RequireModule() {
  const LoadedPlugin* plugin = NumLoadedPlugins() > 0 ? GetLoadedPlugin(0) : nullptr;
  if (!plugin) throw CLI::RuntimeError(Plain(g_module_error), 1);
  return plugin;
}

ModuleSession::ModuleSession(int argc, char** argv) {
  RegisterHostClasses();
  RegisterScriptedAttribClass();
  g_module_path = FindModulePath(argc, argv);
  if (LoadPlugin(g_module_path, &g_module_error)) NotifySystemStartup();
}

ModuleSession::~ModuleSession() { UnloadPlugins(); }

void AddModuleOption(CLI::App& app) {
  // Read before parsing by ModuleSession; declared here so that the parser accepts and lists it.
  app.add_option("--module", g_module_path,
                 "Plug-in module to load (default: $MARVOLITH_MODULE, else Marvolith.dlc beside "
                 "the tool); give it before the command");
}

void AddClassesCommand(CLI::App& app) {
  CLI::App* classes = app.add_subcommand(
      "classes",
      "List the module's classes: index, class name, internal name, super class, "
      "class id, category, public or private");
  classes->callback(PrintClasses);
}

}  // namespace marvolith::cli
