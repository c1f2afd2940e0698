// Copyright Marvolith contributors.
#include "host/script/track_view_filter.h"

#include <algorithm>

ITrackViewFilterRegistry::ITrackViewFilterRegistry()
    : FPStaticInterface(
          TRACKVIEW_FILTER_REGISTRY_INTERFACE, "TrackViewFilters", FP_CORE, nullptr, {}) {}

bool ITrackViewFilterRegistry::AddFilter(
    TrackViewFilterProc proc, const char* name, std::uint64_t id, bool enabled, bool listed) {
  if (!proc || FindFilter(id)) return false;
  filters_.push_back({proc, name ? name : "", id, enabled, listed});
  return true;
}

bool ITrackViewFilterRegistry::RemoveFilter(std::uint64_t id) {
  auto it = std::find_if(filters_.begin(), filters_.end(),
                         [id](const TrackViewFilter& f) { return f.id == id; });
  if (it == filters_.end()) return false;
  filters_.erase(it);
  return true;
}

bool ITrackViewFilterRegistry::SetFilterEnabled(std::uint64_t id, bool on) {
  for (TrackViewFilter& f : filters_) {
    if (f.id == id) {
      f.enabled = on;
      return true;
    }
  }
  return false;
}

const TrackViewFilter* ITrackViewFilterRegistry::GetFilter(int i) const {
  return i >= 0 && i < NumFilters() ? &filters_[static_cast<size_t>(i)] : nullptr;
}

const TrackViewFilter* ITrackViewFilterRegistry::FindFilter(std::uint64_t id) const {
  for (const TrackViewFilter& f : filters_) {
    if (f.id == id) return &f;
  }
  return nullptr;
}

bool ITrackViewFilterRegistry::ShowTrack(Animatable* anim, Animatable* parent, int sub_num) {
  // A snapshot: a filter may change the list while it runs.
  std::vector<TrackViewFilterProc> procs;
  for (const TrackViewFilter& f : filters_) {
    if (f.enabled) procs.push_back(f.proc);
  }
  for (TrackViewFilterProc proc : procs) {
    if (!proc(anim, parent, sub_num)) return false;
  }
  return true;
}

ITrackViewFilterRegistry* GetTrackViewFilterRegistry() {
  return dynamic_cast<ITrackViewFilterRegistry*>(
      GetCOREInterface(TRACKVIEW_FILTER_REGISTRY_INTERFACE));
}

namespace {
// The host's one registry, a core interface from the moment the host library is loaded.
ITrackViewFilterRegistry g_track_view_filters;
}  // namespace
