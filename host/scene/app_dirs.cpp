// Copyright Marvolith contributors.
// The host's directories: where the headless host keeps the user's settings.
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "host/scene/core_interface.h"

namespace {

std::string Env(const char* name) {
  const char* v = std::getenv(name);
  return v ? std::string(v) : std::string();
}

std::string UserSettingsDir() {
  std::string dir = Env("MARVOLITH_SETTINGS_DIR");
  if (dir.empty()) {
    const std::string xdg = Env("XDG_CONFIG_HOME");
    const std::string home = Env("HOME");
    if (!xdg.empty()) {
      dir = xdg + "/marvolith";
    } else if (!home.empty()) {
      dir = home + "/.config/marvolith";
    } else {
      dir = ".marvolith";  // no home at all: beside the working directory
    }
  }
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);  // a failure shows when a file is written there
  return dir;
}

}  // namespace

MSTR Interface::GetDir(int which) const {
  return which == APP_PLUGCFG_DIR ? UserSettingsDir() : MSTR();
}

MSTR Interface::GetMAXIniFile() const { return UserSettingsDir() + "/3dsMax.ini"; }
