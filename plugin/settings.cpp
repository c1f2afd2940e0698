// Copyright Marvolith contributors.
#include "plugin/settings.h"

#include <climits>
#include <cstdlib>

#include "host/io/ini_file.h"
#include "host/scene/core_interface.h"
#include "host/script/fp_value.h"
#include "host/script/script_entry.h"

namespace marvolith {
namespace {

// The host's profile reader fills a fixed buffer; longer texts are cut, as there.
constexpr DWORD kSettingBufferSize = 64;

// _wtoi and wcstol both read a leading integer; on the host their result is a 32-bit int or
// long, which saturates instead of wrapping.
int ParseLeadingInt(const char* text) {
  const long long v = std::strtoll(text, nullptr, 10);
  if (v > INT_MAX) return INT_MAX;
  if (v < INT_MIN) return INT_MIN;
  return static_cast<int>(v);
}

bool IsText(const FPValue& v) {
  return v.Type() == FPType::TYPE_STRING || v.Type() == FPType::TYPE_TSTR;
}

}  // namespace

std::string SettingsFilePath() {
  std::string dir = GetCOREInterface()->GetDir(APP_PLUGCFG_DIR);
  if (!dir.empty() && dir.back() != '/') dir += '/';
  return dir + "3dsMax.ini";
}

int ReadSettingInt(const std::string& section, const std::string& key) {
  char buffer[kSettingBufferSize] = {};
  MaxSDK::Util::GetPrivateProfileString(section.c_str(), key.c_str(), "", buffer,
                                        kSettingBufferSize, SettingsFilePath().c_str());
  return ParseLeadingInt(buffer);
}

bool WriteSettingInt(const std::string& section, const std::string& key, int value) {
  return WritePrivateProfileString(section.c_str(), key.c_str(), std::to_string(value).c_str(),
                                   SettingsFilePath().c_str());
}

bool ReadScriptSetting(const std::string& key, int& out) {
  const std::string script =
      "GetINISetting (getMAXIniFile()) \"" + std::string(kSettingsSection) + "\" \"" + key + "\"";
  FPValue result;
  if (!ExecuteMAXScriptScript(script.c_str(), true, &result)) return false;
  // An absent key reads as "", which is how a caller tells it from a stored 0.
  if (!IsText(result) || result.AsString().empty()) return false;
  out = ParseLeadingInt(result.AsString().c_str());
  return true;
}

bool WriteScriptSetting(const std::string& key, int value) {
  const std::string script = "SetINISetting (getMAXIniFile()) \"" + std::string(kSettingsSection) +
                             "\" \"" + key + "\" \"" + std::to_string(value) + "\"";
  FPValue result;
  return ExecuteMAXScriptScript(script.c_str(), true, &result) && result.AsBool();
}

}  // namespace marvolith
