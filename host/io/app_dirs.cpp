// Copyright Marvolith contributors.
#include "host/io/app_dirs.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace {

std::string Env(const char* name) {
  const char* v = std::getenv(name);
  return v ? std::string(v) : std::string();
}

}  // namespace

MSTR HostSettingsDir() {
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

MSTR HostIniFile() { return HostSettingsDir() + "/3dsMax.ini"; }
