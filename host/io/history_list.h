// Copyright Marvolith contributors.
// bmmHistoryList: the recent folders of a file dialog, kept per section in the host's ini file.
#pragma once

#include <string>
#include <vector>

/// A list of recently used folders, most recent first, at most kMaxEntries long. A list is
/// stored in the host's ini file (Interface::GetMAXIniFile) under a section of its own, one
/// key per folder: "Path1" is the most recent. Folders compare exactly after trailing '/'
/// separators are dropped (the root "/" stays as it is).
class bmmHistoryList {
 public:
  static constexpr int kMaxEntries = 20;

  /// Empties the list (the stored one is untouched).
  void Init() { paths_.clear(); }
  /// Replaces the list with the one stored under section: "Path1", "Path2", ... up to the first
  /// missing key or kMaxEntries. Empty and repeated entries are skipped. A missing file or
  /// section gives an empty list.
  void LoadList(const char* section);
  /// Stores the list under section, replacing what was there; an empty list removes the
  /// section. False when the ini file cannot be written or section is null or empty.
  bool SaveList(const char* section) const;
  /// Puts path at the front. An equal entry already in the list moves to the front instead of
  /// appearing twice; the oldest entries beyond kMaxEntries drop off. A null or empty path, or
  /// one holding a line break (the ini file could not keep it), is ignored: false.
  bool NewPath(const char* path);

  int Count() const { return static_cast<int>(paths_.size()); }
  /// Entry i (0 is the most recent), or null out of range.
  const char* Path(int i) const;

 private:
  std::vector<std::string> paths_;
};
