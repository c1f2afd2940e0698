// Copyright Marvolith contributors.
// `marvolith script FILE` and `marvolith script -e TEXT`: run a script against a scene.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include "apps/marvolith/commands.h"
#include "host/app/scene_file.h"
#include "host/interpreter/runner.h"

namespace marvolith::cli {
namespace {

std::string ReadScript(const std::string& path) {
  // A folder opens as a stream on some systems and reads as nothing: refuse it by name.
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    Refuse("cannot read the script file '" + path + "': it is a folder");
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) Refuse("cannot read the script file '" + path + "'");
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

struct ScriptOptions {
  std::string file;
  std::optional<std::string> eval;
  std::optional<std::string> scene;
  std::optional<std::string> save;
};

void RunScriptCommand(const ScriptOptions& o) {
  if (o.file.empty() == !o.eval) Refuse("script wants a script FILE or -e TEXT (one of them)");
  std::string error;
  if (o.scene && !LoadScene(*o.scene, &error)) Refuse(Plain(error));
  const std::string text = o.eval ? *o.eval : ReadScript(o.file);
  // The host's own runner, so that scripts the toolkit runs share the globals of this one.
  const ScriptResult result = TheScriptRunner().Run(text);
  if (!result.ok) Refuse(result.ErrorText());
  if (o.save && !SaveScene(*o.save, &error)) Refuse(Plain(error));
}

}  // namespace

void AddScriptCommand(CLI::App& app) {
  auto options = std::make_shared<ScriptOptions>();
  auto* cmd = app.add_subcommand("script", "Run a script against a scene (the host's scripting)");
  cmd->add_option("file", options->file, "Script file to run");
  cmd->add_option("-e,--eval", options->eval, "Script text to run instead of a file");
  cmd->add_option("--scene", options->scene, "Scene file to load before the script runs");
  cmd->add_option("--save", options->save, "Scene file to save after the script ran");
  cmd->callback([options]() { RunScriptCommand(*options); });
}

}  // namespace marvolith::cli
