// Copyright Marvolith contributors.
// The folders that the system's file dialogs remember, one history list per kind of file.
#pragma once

#include <string>

#include "host/io/history_list.h"

namespace marvolith {

// History sections of the host's ini file, by the files their dialogs open and save.
inline constexpr char kDefaultHistorySection[] = "MarvolithHistory";     ///< all other files
inline constexpr char kAnimHistorySection[] = "AnimMgrHistory";          ///< .anim
inline constexpr char kPoseHistorySection[] = "AnimMgrPoseHistory";      ///< .pose
inline constexpr char kImportHistorySection[] = "AnimMgrImportHistory";  ///< import sources
inline constexpr char kRigHistorySection[] = "RigSystemHistory";         ///< .rig

/// The history of one kind of file dialog. Made with its section, it loads the stored list at
/// once and takes its most recent folder as the folder the dialog opens in (empty when the
/// list is empty). Each file the user picks puts its folder first and stores the list again.
class HistoryList {
 public:
  /// A null or empty section stands for kDefaultHistorySection.
  explicit HistoryList(const char* section = kDefaultHistorySection);

  const std::string& Section() const { return section_; }
  /// The folder the dialog opens in.
  const std::string& InitialDir() const { return initial_dir_; }
  /// The folders, most recent first.
  const bmmHistoryList& List() const { return list_; }

  /// Records the folder of file_path (the part before its last '/'; a bare file name has none
  /// and changes nothing), as RememberFolder does.
  bool RememberFile(const std::string& file_path);
  /// Puts folder first, stores the list and makes folder the dialog's folder. False, with
  /// nothing changed, for a folder the list refuses (see bmmHistoryList::NewPath); false, with
  /// the list changed in memory, when the ini file cannot be written.
  bool RememberFolder(const std::string& folder);

 private:
  std::string section_;
  bmmHistoryList list_;
  std::string initial_dir_;
};

}  // namespace marvolith
