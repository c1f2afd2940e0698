// Copyright Marvolith contributors.
#include "plugin/history_list.h"

namespace marvolith {

HistoryList::HistoryList(const char* section)
    : section_(section && *section ? section : kDefaultHistorySection) {
  list_.Init();
  list_.LoadList(section_.c_str());
  if (list_.Count() > 0) initial_dir_ = list_.Path(0);
}

bool HistoryList::RememberFile(const std::string& file_path) {
  const std::string::size_type slash = file_path.find_last_of('/');
  if (slash == std::string::npos) return false;
  // A file right under the root keeps "/" as its folder.
  return RememberFolder(slash == 0 ? std::string("/") : file_path.substr(0, slash));
}

bool HistoryList::RememberFolder(const std::string& folder) {
  if (!list_.NewPath(folder.c_str())) return false;
  initial_dir_ = list_.Path(0);
  return list_.SaveList(section_.c_str());
}

}  // namespace marvolith
