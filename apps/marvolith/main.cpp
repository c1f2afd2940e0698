// Copyright Marvolith contributors.
// marvolith: the command-line front end of the headless host.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "apps/marvolith/commands.h"
#include "host/app/scene_file.h"
#include "plugin/version.h"

namespace marvolith::cli {

const char* VersionText() {
  static const std::string text = std::string("Marvolith ") + kVersionText;
  return text.c_str();
}

int Fail(const std::string& message) {
  std::fprintf(stderr, "marvolith: %s\n", message.c_str());
  return 1;
}

void LoadSceneOrRefuse(const std::string& path) {
  std::string error;
  std::vector<std::string> notes;
  if (!LoadScene(path, &error, &notes)) Refuse(Plain(error));
  for (const std::string& note : notes) std::fprintf(stderr, "%s\n", Plain(note).c_str());
}

}  // namespace marvolith::cli

int main(int argc, char** argv) {
  using namespace marvolith::cli;
  ModuleSession session(argc, argv);  // the tool runs on top of the loaded module
  CLI::App app{"Marvolith: character rigging and animation toolkit (headless host)", "marvolith"};
  app.set_version_flag("--version", VersionText());
  app.require_subcommand(0, 1);
  AddModuleOption(app);
  AddDemoCommand(app);
  AddSceneCommands(app);
  AddClassesCommand(app);
  AddScriptCommand(app);
  AddRenderCommand(app);
  AddShapesCommand(app);
  AddRigCommands(app);
  AddLayersCommands(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion&) {
    std::printf("%s\n", VersionText());
    return 0;
  } catch (const CLI::ParseError& e) {
    return Fail(e.what());
  } catch (const std::exception& e) {
    return Fail(e.what());
  }
  if (app.get_subcommands().empty()) {
    std::printf("%s", app.help().c_str());
  }
  return 0;
}
