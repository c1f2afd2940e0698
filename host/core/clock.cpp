// Copyright Marvolith contributors.
#include "host/core/clock.h"

#include <algorithm>

namespace {

struct Registration {
  NOTIFYPROC proc;
  void* param;
  int code;
  bool live;
};

std::vector<Registration>& Registrations() {
  static std::vector<Registration> regs;
  return regs;
}

struct AnimateState {
  bool on = false;
  int suspended = 0;
};
AnimateState& Animate() {
  static AnimateState state;
  return state;
}

}  // namespace

bool RegisterNotification(NOTIFYPROC proc, void* param, int code) {
  if (!proc) return false;
  auto& regs = Registrations();
  for (const auto& r : regs) {
    if (r.live && r.proc == proc && r.param == param && r.code == code) return false;
  }
  regs.push_back({proc, param, code, true});
  return true;
}

bool UnRegisterNotification(NOTIFYPROC proc, void* param, int code) {
  for (auto& r : Registrations()) {
    if (r.live && r.proc == proc && r.param == param && r.code == code) {
      r.live = false;
      return true;
    }
  }
  return false;
}

void BroadcastNotification(int code, void* call_param) {
  static int depth = 0;
  auto& regs = Registrations();
  ++depth;
  // Index loop: callbacks may register more while we run; those added now are not called.
  const size_t count = regs.size();
  for (size_t i = 0; i < count && i < regs.size(); ++i) {
    if (!regs[i].live || regs[i].code != code) continue;
    NotifyInfo info{code, call_param};
    regs[i].proc(regs[i].param, &info);
  }
  if (--depth == 0) {
    regs.erase(std::remove_if(regs.begin(), regs.end(), [](const auto& r) { return !r.live; }),
               regs.end());
  }
}

int NumNotificationCallbacks(int code) {
  return static_cast<int>(std::count_if(Registrations().begin(), Registrations().end(),
                                        [code](const auto& r) { return r.live && r.code == code; }));
}

AnimClock& TheAnimClock() {
  static AnimClock clock;
  return clock;
}

bool AnimClock::SetTime(TimeValue t) {
  if (t == time_) return false;
  time_ = t;
  auto callbacks = time_callbacks_;  // a callback may unregister itself
  for (TimeChangeCallback* tc : callbacks) {
    if (std::find(time_callbacks_.begin(), time_callbacks_.end(), tc) != time_callbacks_.end())
      tc->TimeChanged(t);
  }
  BroadcastNotification(NOTIFY_TIME_CHANGED, &time_);
  return true;
}

bool AnimClock::SetFrameRate(int fps) {
  if (fps <= 0 || TIME_TICKSPERSEC % fps != 0) return false;
  ticks_per_frame_ = TIME_TICKSPERSEC / fps;
  BroadcastNotification(NOTIFY_TIMEUNITS_CHANGE);
  return true;
}

bool AnimClock::SetAnimRange(const Interval& range) {
  if (range.Empty() || range.Start() > range.End()) return false;
  anim_range_ = range;
  return true;
}

void AnimClock::RegisterTimeChangeCallback(TimeChangeCallback* tc) {
  if (tc && std::find(time_callbacks_.begin(), time_callbacks_.end(), tc) == time_callbacks_.end())
    time_callbacks_.push_back(tc);
}

void AnimClock::UnRegisterTimeChangeCallback(TimeChangeCallback* tc) {
  time_callbacks_.erase(std::remove(time_callbacks_.begin(), time_callbacks_.end(), tc),
                        time_callbacks_.end());
}

void AnimClock::Reset() {
  time_ = 0;
  ticks_per_frame_ = 160;
  anim_range_ = Interval(0, 100 * 160);
  ref_coord_sys_ = COORDS_WORLD;
  pivot_mode_ = PIV_NONE;
  affect_pivot_ = false;
  task_mode_ = TASK_MODE_CREATE;
  Animate() = AnimateState{};
}

bool Animating() { return Animate().on && Animate().suspended == 0; }

void AnimateOn() { SetAnimateButtonState(true); }
void AnimateOff() { SetAnimateButtonState(false); }

void SuspendAnimate() { ++Animate().suspended; }
void ResumeAnimate() {
  if (Animate().suspended > 0) --Animate().suspended;
}

void SetAnimateButtonState(bool on) {
  if (Animate().on == on) return;
  Animate().on = on;
  BroadcastNotification(on ? NOTIFY_ANIMATE_ON : NOTIFY_ANIMATE_OFF);
}
