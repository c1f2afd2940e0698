// Copyright Marvolith contributors.
#include "host/io/ini_file.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

bool SameName(const std::string& a, const std::string& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
           return lower(x) == lower(y);
         });
}

std::string Trim(const std::string& s) {
  const size_t first = s.find_first_not_of(" \t\r");
  if (first == std::string::npos) return std::string();
  const size_t last = s.find_last_not_of(" \t\r");
  return s.substr(first, last - first + 1);
}

std::vector<std::string> ReadLines(const std::string& path, bool& exists) {
  std::vector<std::string> lines;
  std::ifstream in(path, std::ios::binary);
  exists = static_cast<bool>(in);
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

// "[name]" gives name; anything else is not a section line.
bool SectionOf(const std::string& line, std::string& name) {
  const std::string t = Trim(line);
  if (t.size() < 2 || t.front() != '[') return false;
  const size_t close = t.find(']');
  if (close == std::string::npos) return false;
  name = Trim(t.substr(1, close - 1));
  return true;
}

// "key=value" gives both; comments and lines without '=' are not entries.
bool EntryOf(const std::string& line, std::string& key, std::string& value) {
  const std::string t = Trim(line);
  if (t.empty() || t.front() == ';' || t.front() == '#') return false;
  const size_t eq = t.find('=');
  if (eq == std::string::npos) return false;
  key = Trim(t.substr(0, eq));
  value = Trim(t.substr(eq + 1));
  return true;
}

}  // namespace

std::optional<std::string> ReadIniValue(const std::string& path,
                                        const std::string& section,
                                        const std::string& key) {
  bool exists = false;
  std::string current;
  bool in_section = false;
  for (const std::string& line : ReadLines(path, exists)) {
    std::string k, v;
    if (SectionOf(line, current)) {
      in_section = SameName(current, section);
    } else if (in_section && EntryOf(line, k, v) && SameName(k, key)) {
      if (v.size() >= 2 && v.front() == '"' && v.back() == '"') v = v.substr(1, v.size() - 2);
      return v;
    }
  }
  return std::nullopt;
}

std::vector<std::string> ReadIniSections(const std::string& path) {
  bool exists = false;
  std::vector<std::string> out;
  std::string name;
  for (const std::string& line : ReadLines(path, exists)) {
    if (SectionOf(line, name)) out.push_back(name);
  }
  return out;
}

std::vector<std::string> ReadIniKeys(const std::string& path, const std::string& section) {
  bool exists = false;
  std::vector<std::string> out;
  std::string current;
  bool in_section = false;
  for (const std::string& line : ReadLines(path, exists)) {
    std::string k, v;
    if (SectionOf(line, current)) {
      in_section = SameName(current, section);
    } else if (in_section && EntryOf(line, k, v)) {
      out.push_back(k);
    }
  }
  return out;
}

bool WriteIniValue(const std::string& path,
                   const std::string& section,
                   const char* key,
                   const char* value) {
  bool exists = false;
  std::vector<std::string> lines = ReadLines(path, exists);
  std::vector<std::string> out;
  out.reserve(lines.size() + 2);
  bool in_section = false;
  bool found_section = false;
  bool written = false;
  auto close_section = [&]() {
    // Leaving the section without having met the key: it goes last in the section.
    if (in_section && key && value && !written) {
      out.push_back(std::string(key) + "=" + value);
      written = true;
    }
  };
  for (const std::string& line : lines) {
    std::string name, k, v;
    if (SectionOf(line, name)) {
      close_section();
      in_section = SameName(name, section);
      found_section = found_section || in_section;
      if (in_section && !key) continue;  // removing the whole section
      out.push_back(line);
      continue;
    }
    if (in_section && !key) continue;
    if (in_section && EntryOf(line, k, v) && SameName(k, std::string(key))) {
      // The key keeps the spelling the file has.
      if (value && !written) out.push_back(k + "=" + value);
      written = true;
      continue;
    }
    out.push_back(line);
  }
  close_section();
  if (!found_section && key && value) {
    out.push_back("[" + section + "]");
    out.push_back(std::string(key) + "=" + value);
  }
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file) return false;
  for (const std::string& line : out) file << line << '\n';
  return static_cast<bool>(file.flush());
}

namespace MaxSDK::Util {

DWORD GetPrivateProfileString(const char* section,
                              const char* key,
                              const char* default_value,
                              char* buffer,
                              DWORD size,
                              const char* path) {
  if (!buffer || size == 0) return 0;
  std::optional<std::string> value;
  if (section && key && path) value = ReadIniValue(path, section, key);
  const std::string text = value ? *value : std::string(default_value ? default_value : "");
  const size_t n = std::min<size_t>(text.size(), size - 1);
  std::memcpy(buffer, text.data(), n);
  buffer[n] = '\0';
  return static_cast<DWORD>(n);
}

}  // namespace MaxSDK::Util

bool WritePrivateProfileString(const char* section,
                               const char* key,
                               const char* value,
                               const char* path) {
  if (!section || !path) return false;
  return WriteIniValue(path, section, key, value);
}
