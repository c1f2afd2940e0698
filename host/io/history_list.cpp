// Copyright Marvolith contributors.
#include "host/io/history_list.h"

#include <algorithm>
#include <optional>

#include "host/io/app_dirs.h"
#include "host/io/ini_file.h"

namespace {

std::string KeyOf(int i) { return "Path" + std::to_string(i + 1); }

// "a/b/" and "a/b" name one folder; "/" keeps its separator.
std::string Normalized(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

bool Storable(const std::string& path) {
  return !path.empty() && path.find_first_of("\r\n") == std::string::npos;
}

}  // namespace

void bmmHistoryList::LoadList(const char* section) {
  paths_.clear();
  if (!section || !*section) return;
  const std::string file = HostIniFile();
  for (int i = 0; i < kMaxEntries; ++i) {
    std::optional<std::string> value = ReadIniValue(file, section, KeyOf(i));
    if (!value) break;
    std::string path = Normalized(std::move(*value));
    // A hand-edited file may repeat a folder or leave one empty: keep the first of each.
    if (!Storable(path) || std::find(paths_.begin(), paths_.end(), path) != paths_.end()) continue;
    paths_.push_back(std::move(path));
  }
}

bool bmmHistoryList::SaveList(const char* section) const {
  if (!section || !*section) return false;
  const std::string file = HostIniFile();
  // Removing the section first drops entries of a longer list saved before. Removing a section
  // from a file that does not exist yet fails; only the writes below decide.
  WritePrivateProfileString(section, nullptr, nullptr, file.c_str());
  bool ok = true;
  for (int i = 0; i < Count(); ++i) {
    // Quoted so that blanks at either end of a folder name survive the reader's trimming.
    const std::string value = "\"" + paths_[static_cast<size_t>(i)] + "\"";
    ok = WritePrivateProfileString(section, KeyOf(i).c_str(), value.c_str(), file.c_str()) && ok;
  }
  return ok;
}

bool bmmHistoryList::NewPath(const char* path) {
  if (!path) return false;
  std::string p = Normalized(path);
  if (!Storable(p)) return false;
  auto it = std::find(paths_.begin(), paths_.end(), p);
  if (it != paths_.end()) paths_.erase(it);
  paths_.insert(paths_.begin(), std::move(p));
  if (Count() > kMaxEntries) paths_.resize(kMaxEntries);
  return true;
}

const char* bmmHistoryList::Path(int i) const {
  return i >= 0 && i < Count() ? paths_[static_cast<size_t>(i)].c_str() : nullptr;
}
