// Copyright Marvolith contributors.
// The Track View filter registry: plug-ins add filters that decide which tracks Track View shows.
// It is a core interface, reached by its Interface_ID alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/script/fp_interface.h"

/// Id of the registry among the core interfaces.
inline constexpr Interface_ID TRACKVIEW_FILTER_REGISTRY_INTERFACE(0x00c85046, 0x2def7c7d);

/// Answers whether the track anim, sub-anim sub_num of parent, is shown. parent is null for a
/// track shown at the top of the tree (sub_num is then -1).
using TrackViewFilterProc = bool (*)(Animatable* anim, Animatable* parent, int sub_num);

/// One registered filter.
struct TrackViewFilter {
  TrackViewFilterProc proc = nullptr;
  std::string name;      ///< display name in the filter menu; may be empty
  std::uint64_t id = 0;  ///< unique among the registry's filters
  bool enabled = false;  ///< the filter runs in ShowTrack
  bool listed = false;   ///< the user sees it in the filter menu and may switch it
};

/// The registry. One instance, registered as a core interface while the host library is loaded.
class ITrackViewFilterRegistry : public FPStaticInterface {
 public:
  ITrackViewFilterRegistry();

  /// Adds a filter. False, and nothing changes, for a null proc or an id that is registered.
  /// A null name is taken as "".
  bool AddFilter(
      TrackViewFilterProc proc, const char* name, std::uint64_t id, bool enabled, bool listed);
  /// Removes the filter id; false when there is none.
  bool RemoveFilter(std::uint64_t id);
  /// Switches the filter id on or off; false when there is none.
  bool SetFilterEnabled(std::uint64_t id, bool on);

  int NumFilters() const { return static_cast<int>(filters_.size()); }
  /// The i-th filter in the order they were added, or null out of range.
  const TrackViewFilter* GetFilter(int i) const;
  /// The filter id, or null.
  const TrackViewFilter* FindFilter(std::uint64_t id) const;

  /// Runs every enabled filter on the track: true (shown) unless one of them answers false. A
  /// filter may add or remove filters while it runs; the ones added then do not run this time.
  bool ShowTrack(Animatable* anim, Animatable* parent, int sub_num);

 private:
  std::vector<TrackViewFilter> filters_;
};

/// The registry found among the core interfaces by TRACKVIEW_FILTER_REGISTRY_INTERFACE, or null.
ITrackViewFilterRegistry* GetTrackViewFilterRegistry();
