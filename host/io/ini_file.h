// Copyright Marvolith contributors.
// Ini files as the host reads and writes them: "[section]" lines, "key=value" lines and ";"
// comments. Sections and keys compare without case.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/base/ids.h"

/// The value of key in section of the ini file at path, with surrounding blanks and one pair of
/// surrounding double quotes dropped; nullopt when the file, the section or the key is missing.
std::optional<std::string> ReadIniValue(const std::string& path,
                                        const std::string& section,
                                        const std::string& key);
/// The section names of the file, in file order; empty for a missing file.
std::vector<std::string> ReadIniSections(const std::string& path);
/// The key names of section, in file order; empty when the file or section is missing.
std::vector<std::string> ReadIniKeys(const std::string& path, const std::string& section);
/// Writes key=value into section, adding the section (at the end) and the key (at the end of its
/// section) when missing and keeping every other line as it was. A null value removes the key;
/// a null key removes the whole section. The file is made when missing (not its directory).
/// False when the file cannot be written.
bool WriteIniValue(const std::string& path,
                   const std::string& section,
                   const char* key,
                   const char* value);

namespace MaxSDK::Util {
/// The host's reader: copies the value (or default_value when missing) into buffer, cut to
/// size - 1 characters and zero-terminated; answers the number of characters copied. A null
/// buffer or a size of 0 copies nothing.
DWORD GetPrivateProfileString(const char* section,
                              const char* key,
                              const char* default_value,
                              char* buffer,
                              DWORD size,
                              const char* path);
}  // namespace MaxSDK::Util

/// The host's writer: WriteIniValue with the same meaning of null key and value.
bool WritePrivateProfileString(const char* section,
                               const char* key,
                               const char* value,
                               const char* path);
