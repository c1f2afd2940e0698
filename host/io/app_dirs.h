// Copyright Marvolith contributors.
// The host's directories: where the headless host keeps the user's settings.
#pragma once

#include "host/base/ids.h"

/// The user settings directory, made if missing: $MARVOLITH_SETTINGS_DIR when set, else
/// $XDG_CONFIG_HOME/marvolith, else ~/.config/marvolith. Interface::GetDir(APP_PLUGCFG_DIR).
MSTR HostSettingsDir();
/// The host's own ini file in that directory. Interface::GetMAXIniFile.
MSTR HostIniFile();
