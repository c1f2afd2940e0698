// Copyright Marvolith contributors.
// Settings of the system's windows and dialogs: integers in the host's ini file, read and
// written either directly or by script.
#pragma once

#include <string>

namespace marvolith {

/// The section of the host's ini file that holds the system's own settings.
inline constexpr char kSettingsSection[] = "Marvolith";
/// The section of the animation manager's window and filters.
inline constexpr char kAnimationManagerSection[] = "AnimationManager";

/// "3dsMax.ini" in the host's directory of user settings (Interface::GetDir(APP_PLUGCFG_DIR)),
/// with a '/' put between the two when the directory lacks one.
std::string SettingsFilePath();

/// The integer under key in section of SettingsFilePath(). The stored text is read into a
/// buffer of 64 characters and converted as _wtoi does: leading blanks, an optional sign, the
/// digits up to the first other character, clamped to the range of int. A missing file,
/// section or key, and a text that does not start with a number, give 0.
int ReadSettingInt(const std::string& section, const std::string& key);
/// Writes the decimal text of value under key in section. False when the file cannot be
/// written.
bool WriteSettingInt(const std::string& section, const std::string& key, int value);

/// Reads key of section "Marvolith" through the host's script
/// (GetINISetting (getMAXIniFile()) "Marvolith" "<key>"). When the script answers a text that
/// is not empty, out receives it converted as wcstol does in base 10 (a text that is not a
/// number gives 0, a number beyond int clamps) and the call answers true; otherwise (a missing
/// key, a failed script) it answers false and leaves out as it was. Unlike ReadSettingInt this
/// tells a missing key from 0.
bool ReadScriptSetting(const std::string& key, int& out);
/// Writes key of section "Marvolith" through the host's script
/// (SetINISetting (getMAXIniFile()) "Marvolith" "<key>" "<value>"). False when the script
/// failed or the file could not be written.
bool WriteScriptSetting(const std::string& key, int value);

}  // namespace marvolith
