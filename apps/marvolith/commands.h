// Copyright Marvolith contributors.
// The subcommands of the marvolith tool. Each area adds its own with one Add...Commands call.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "host/app/plugin_loader.h"
#include "host/math/interval.h"

namespace marvolith::cli {

/// The version text of the tool, "Marvolith 2.02.02".
const char* VersionText();

/// `marvolith demo`: the most complete thing the tool can show on built-in defaults.
void AddDemoCommand(CLI::App& app);

/// `marvolith scene info|eval|resave|demo`: headless scene files.
void AddSceneCommands(CLI::App& app);

/// The plug-in module for the tool's lifetime: registers the host's classes, loads Marvolith.dlc
/// (from --module PATH, else $MARVOLITH_MODULE, else beside the tool) and tells it that the host
/// has started; at the end, shuts it down. A module that cannot be loaded is remembered, and the
/// commands that need it fail with that one line.
class ModuleSession {
 public:
  ModuleSession(int argc, char** argv);
  ~ModuleSession();
  ModuleSession(const ModuleSession&) = delete;
  ModuleSession& operator=(const ModuleSession&) = delete;
};

/// The loaded module; raises the one-line reason it could not be loaded when it is missing.
const LoadedPlugin* RequireModule();

/// `--module PATH`: the option, so that the parser accepts it and help lists it.
void AddModuleOption(CLI::App& app);

/// `marvolith classes`: one tab-separated line per class of the module, in LibClassDesc order.
void AddClassesCommand(CLI::App& app);

/// `marvolith script FILE | -e TEXT [--scene FILE] [--save FILE]`: runs a script on the host's
/// script runner; print and format go to stdout, an error is one line and a non-zero exit.
void AddScriptCommand(CLI::App& app);

/// `marvolith render SCENE --frame N --view front|side|top|persp --out FILE.png|svg`: a picture of
/// a scene as a viewport would draw it.
void AddRenderCommand(CLI::App& app);

/// Draws the open scene at t into a picture file (PNG or SVG by its extension) of the given size,
/// framed on the scene's visible nodes in view_type. False with a one-line reason in *error;
/// *nodes_drawn, when given, receives the number of visible nodes.
bool RenderOpenScene(TimeValue t,
                     int view_type,
                     int width_px,
                     int height_px,
                     const std::string& path,
                     std::string* error,
                     int* nodes_drawn = nullptr);

/// `marvolith shapes --out FILE.png|svg`: a labelled contact sheet of every control figure, drawn
/// by the loaded module's Control Helper class.
void AddShapesCommand(CLI::App& app);

/// `marvolith rig template|sheet|save-template|load-template|points`: rig templates drawn, listed
/// and moved through .rig files, by the loaded module's Rig class.
void AddRigCommands(CLI::App& app);

/// `marvolith layers list|add|weight|active|collapse SCENE ...`: the animation layers of a scene
/// file, through the loaded module's AnimationManager interface.
void AddLayersCommands(CLI::App& app);

/// Ends a command with message as its one error line and exit code 1.
[[noreturn]] inline void Refuse(const std::string& message) { throw CLI::RuntimeError(message, 1); }

/// An error line without its "Marvolith: " prefix (Fail adds the tool's own).
inline std::string Plain(const std::string& error) {
  const std::string prefix = "Marvolith: ";
  return error.rfind(prefix, 0) == 0 ? error.substr(prefix.size()) : error;
}

/// Reports a failure: one line on stderr, and the exit code to return.
int Fail(const std::string& message);

/// Opens the scene file at path, printing its load notes on stderr; refuses with the load's
/// error.
void LoadSceneOrRefuse(const std::string& path);

}  // namespace marvolith::cli
