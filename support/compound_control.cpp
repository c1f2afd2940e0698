// Copyright Marvolith contributors.
#include "support/compound_control.h"

#include <algorithm>

std::vector<TimeValue> CompoundControl::KeyTimes() {
  std::vector<TimeValue> times;
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    Control* c = KeySub(i);
    if (!c) continue;
    Tab<TimeValue> sub;
    c->GetKeyTimes(sub, FOREVER, 0);
    times.insert(times.end(), sub.begin(), sub.end());
  }
  std::sort(times.begin(), times.end());
  times.erase(std::unique(times.begin(), times.end()), times.end());
  return times;
}

int CompoundControl::NumKeys() { return static_cast<int>(KeyTimes().size()); }

TimeValue CompoundControl::GetKeyTime(int index) {
  std::vector<TimeValue> times = KeyTimes();
  return index >= 0 && index < static_cast<int>(times.size()) ? times[index] : 0;
}

int CompoundControl::GetKeyIndex(TimeValue t) {
  std::vector<TimeValue> times = KeyTimes();
  auto it = std::lower_bound(times.begin(), times.end(), t);
  return it != times.end() && *it == t ? static_cast<int>(it - times.begin()) : -1;
}

bool CompoundControl::GetNextKeyTime(TimeValue t, DWORD flags, TimeValue& nt) {
  bool found = false;
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    Control* c = KeySub(i);
    TimeValue sub_t = 0;
    if (!c || !c->GetNextKeyTime(t, flags, sub_t)) continue;
    if (!found || ((flags & NEXTKEY_LEFT) ? sub_t > nt : sub_t < nt)) nt = sub_t;
    found = true;
  }
  return found;
}

void CompoundControl::CopyKeysFromTime(TimeValue src, TimeValue dst, DWORD flags) {
  if (GetLocked()) return;
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    if (Control* c = KeySub(i)) c->CopyKeysFromTime(src, dst, flags);
  }
}

void CompoundControl::AddNewKey(TimeValue t, DWORD flags) {
  if (GetLocked()) return;
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    if (Control* c = KeySub(i)) c->AddNewKey(t, flags);
  }
}

void CompoundControl::DeleteKeyAtTime(TimeValue t) {
  if (GetLocked()) return;
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    if (Control* c = KeySub(i)) c->DeleteKeyAtTime(t);
  }
}

bool CompoundControl::IsKeyAtTime(TimeValue t, DWORD flags) {
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    Control* c = KeySub(i);
    if (c && c->IsKeyAtTime(t, flags)) return true;
  }
  return false;
}

bool CompoundControl::IsTransformKeyAtTime(TimeValue t, DWORD flags) {
  constexpr DWORD kMasks[3] = {KEYAT_POSITION, KEYAT_ROTATION, KEYAT_SCALE};
  if (!(flags & (KEYAT_POSITION | KEYAT_ROTATION | KEYAT_SCALE))) {
    return CompoundControl::IsKeyAtTime(t, flags);
  }
  for (int i = 0; i < 3; ++i) {
    Control* c = KeySub(i);
    if ((flags & kMasks[i]) && c && c->IsKeyAtTime(t, flags)) return true;
  }
  return false;
}

void CompoundControl::DeleteKeys(DWORD flags) {
  if (GetLocked()) return;
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    if (Control* c = KeySub(i)) c->DeleteKeys(flags);
  }
}

void CompoundControl::DeleteKeyByIndex(int index) {
  if (GetLocked()) return;
  std::vector<TimeValue> times = KeyTimes();
  if (index < 0 || index >= static_cast<int>(times.size())) return;
  DeleteKeyAtTime(times[index]);
}

void CompoundControl::SelectKeyByIndex(int index, bool select) {
  std::vector<TimeValue> times = KeyTimes();
  if (index < 0 || index >= static_cast<int>(times.size())) return;
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    Control* c = KeySub(i);
    if (!c) continue;
    int k = c->GetKeyIndex(times[index]);
    if (k >= 0) c->SelectKeyByIndex(k, select);
  }
}

bool CompoundControl::IsKeySelected(int index) {
  std::vector<TimeValue> times = KeyTimes();
  if (index < 0 || index >= static_cast<int>(times.size())) return false;
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    Control* c = KeySub(i);
    if (!c) continue;
    int k = c->GetKeyIndex(times[index]);
    if (k >= 0 && c->IsKeySelected(k)) return true;
  }
  return false;
}

int CompoundControl::NumSelKeys() {
  int n = 0;
  for (int i = 0, count = NumKeys(); i < count; ++i) n += IsKeySelected(i) ? 1 : 0;
  return n;
}

void CompoundControl::MapKeys(TimeMap* map, DWORD flags) {
  if (GetLocked()) return;
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    if (Control* c = KeySub(i)) c->MapKeys(map, flags);
  }
}

Interval CompoundControl::GetTimeRange(DWORD flags) {
  Interval r = NEVER;
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    Control* c = KeySub(i);
    if (!c) continue;
    Interval sub = c->GetTimeRange(flags);
    if (sub.Empty()) continue;
    r += sub.Start();
    r += sub.End();
  }
  return r;
}

int CompoundControl::GetKeyTimes(Tab<TimeValue>& times, Interval range, DWORD flags) {
  int added = 0;
  for (TimeValue t : KeyTimes()) {
    if (!range.InInterval(t)) continue;
    times.Append(t);
    ++added;
  }
  return added;
}

bool CompoundControl::IsAnimated() {
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    Control* c = KeySub(i);
    if (c && c->IsAnimated()) return true;
  }
  return false;
}

void CompoundControl::SetORT(int ort, int type) {
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    if (Control* c = KeySub(i)) c->SetORT(ort, type);
  }
}

int CompoundControl::GetORT(int type) {
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    if (Control* c = KeySub(i)) return c->GetORT(type);
  }
  return ORT_CONSTANT;
}

void CompoundControl::EnableORTs(bool enable) {
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    if (Control* c = KeySub(i)) c->EnableORTs(enable);
  }
}

void CompoundControl::CommitValue(TimeValue t) {
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    if (Control* c = KeySub(i)) c->CommitValue(t);
  }
}

void CompoundControl::RestoreValue(TimeValue t) {
  for (int i = 0, n = NumKeySubs(); i < n; ++i) {
    if (Control* c = KeySub(i)) c->RestoreValue(t);
  }
}

void CompoundControl::SetLocked(bool locked, bool set_children) {
  if (set_children) {
    for (int i = 0, n = NumKeySubs(); i < n; ++i) {
      Control* c = KeySub(i);
      auto* lt = c ? static_cast<ILockedTrack*>(c->GetInterface(I_LOCKED)) : nullptr;
      if (lt) lt->SetLocked(locked, true);
    }
  }
  if (locked == locked_) return;
  HoldState();
  locked_ = locked;
  NotifyChange();
}
