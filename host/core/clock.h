// Copyright Marvolith contributors.
// The animation clock and the modes that controllers, parameters and files read: time, frame
// rate, animation range, animate mode, the reference coordinate system and pivot mode, and the
// host's notifications. The core interface (host/scene) forwards its time and mode calls here,
// so that the layers below the scene read them without it.
#pragma once

#include <vector>

#include "host/base/ids.h"
#include "host/math/interval.h"

// Notification codes.
inline constexpr int NOTIFY_UNITS_CHANGE = 0x01;
inline constexpr int NOTIFY_TIMEUNITS_CHANGE = 0x02;
inline constexpr int NOTIFY_SYSTEM_PRE_RESET = 0x05;
inline constexpr int NOTIFY_SYSTEM_POST_RESET = 0x06;
inline constexpr int NOTIFY_SYSTEM_PRE_NEW = 0x07;
inline constexpr int NOTIFY_SYSTEM_POST_NEW = 0x08;
inline constexpr int NOTIFY_FILE_PRE_OPEN = 0x09;
inline constexpr int NOTIFY_FILE_POST_OPEN = 0x0a;
inline constexpr int NOTIFY_FILE_PRE_SAVE = 0x0d;
inline constexpr int NOTIFY_FILE_POST_SAVE = 0x0e;
inline constexpr int NOTIFY_SELECTIONSET_CHANGED = 0x11;
inline constexpr int NOTIFY_ANIMATE_ON = 0x3a;
inline constexpr int NOTIFY_ANIMATE_OFF = 0x3b;
inline constexpr int NOTIFY_SYSTEM_SHUTDOWN = 0x49;
inline constexpr int NOTIFY_SYSTEM_STARTUP = 0x50;
inline constexpr int NOTIFY_TIME_CHANGED = 0x58;

/// What a notification callback receives.
struct NotifyInfo {
  int intcode = 0;
  void* callParam = nullptr;
};
using NOTIFYPROC = void (*)(void* param, NotifyInfo* info);

/// Registers proc for code; registering the same (proc, param, code) twice keeps one entry.
/// Answers true when added.
bool RegisterNotification(NOTIFYPROC proc, void* param, int code);
/// Removes (proc, param, code); answers true when it was registered.
bool UnRegisterNotification(NOTIFYPROC proc, void* param, int code);
/// Calls every callback registered for code, in registration order. A callback may register or
/// unregister during the broadcast; one removed before its turn is not called.
void BroadcastNotification(int code, void* call_param = nullptr);
/// Number of callbacks registered for code (a host query for start-up and shut-down checks).
int NumNotificationCallbacks(int code);

/// Told when the current time changes.
class TimeChangeCallback {
 public:
  virtual ~TimeChangeCallback() = default;
  virtual void TimeChanged(TimeValue t) = 0;
};

// Reference coordinate systems.
inline constexpr int COORDS_HYBRID = 0;
inline constexpr int COORDS_SCREEN = 1;
inline constexpr int COORDS_WORLD = 2;
inline constexpr int COORDS_PARENT = 3;
inline constexpr int COORDS_LOCAL = 4;
inline constexpr int COORDS_OBJECT = 5;
inline constexpr int COORDS_GIMBAL = 6;
inline constexpr int COORDS_WORKINGPIVOT = 7;

// Pivot modes.
inline constexpr int PIV_NONE = 0;
inline constexpr int PIV_PIVOT_ONLY = 1;
inline constexpr int PIV_OBJECT_ONLY = 2;
inline constexpr int PIV_HIERARCHY_ONLY = 3;

// Command panel task modes.
inline constexpr int TASK_MODE_CREATE = 1;
inline constexpr int TASK_MODE_MODIFY = 2;
inline constexpr int TASK_MODE_HIERARCHY = 3;
inline constexpr int TASK_MODE_MOTION = 4;
inline constexpr int TASK_MODE_DISPLAY = 5;
inline constexpr int TASK_MODE_UTILITY = 6;

/// The one clock of the process. Interface::GetTime and its kin read it.
class AnimClock {
 public:
  TimeValue Time() const { return time_; }
  /// Moves the clock: time-change callbacks, then NOTIFY_TIME_CHANGED. False when t is the time
  /// already (nothing is told).
  bool SetTime(TimeValue t);
  int TicksPerFrame() const { return ticks_per_frame_; }
  /// A rate that divides TIME_TICKSPERSEC; false, nothing changed, otherwise.
  bool SetFrameRate(int fps);
  int FrameRate() const { return TIME_TICKSPERSEC / ticks_per_frame_; }
  Interval AnimRange() const { return anim_range_; }
  /// False, nothing changed, for an empty or reversed range.
  bool SetAnimRange(const Interval& range);

  int RefCoordSys() const { return ref_coord_sys_; }
  void SetRefCoordSys(int cs) { ref_coord_sys_ = cs; }
  int PivotMode() const { return pivot_mode_; }
  void SetPivotMode(int mode) { pivot_mode_ = mode; }
  /// The "affect pivot only" state of the hierarchy panel: transforms move the pivot, not the
  /// object, whatever the pivot mode says.
  bool AffectPivot() const { return affect_pivot_; }
  void SetAffectPivot(bool on) { affect_pivot_ = on; }
  int CommandPanelTaskMode() const { return task_mode_; }
  void SetCommandPanelTaskMode(int mode) { task_mode_ = mode; }

  void RegisterTimeChangeCallback(TimeChangeCallback* tc);
  void UnRegisterTimeChangeCallback(TimeChangeCallback* tc);

  /// Back to a new session: time 0, 30 frames per second, frames 0..100, world coordinates, no
  /// pivot mode, the create panel, animate off. Callbacks stay registered.
  void Reset();

 private:
  TimeValue time_ = 0;
  int ticks_per_frame_ = 160;
  Interval anim_range_{0, 100 * 160};
  int ref_coord_sys_ = COORDS_WORLD;
  int pivot_mode_ = PIV_NONE;
  bool affect_pivot_ = false;
  int task_mode_ = TASK_MODE_CREATE;
  std::vector<TimeChangeCallback*> time_callbacks_;
};

AnimClock& TheAnimClock();

// Animate mode. Keyframe controllers key SetValue only while Animating() is true.
bool Animating();
void AnimateOn();
void AnimateOff();
/// Animating() answers false until the matching ResumeAnimate; nests.
void SuspendAnimate();
void ResumeAnimate();
void SetAnimateButtonState(bool on);

/// Suspends animate mode for a scope.
class AnimateSuspend {
 public:
  AnimateSuspend() { SuspendAnimate(); }
  ~AnimateSuspend() { ResumeAnimate(); }
  AnimateSuspend(const AnimateSuspend&) = delete;
  AnimateSuspend& operator=(const AnimateSuspend&) = delete;
};
