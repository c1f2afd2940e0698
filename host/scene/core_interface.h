// Copyright Marvolith contributors.
// The core interface: time, animate mode, coordinate system, selection, redraw, notifications.
#pragma once

#include <vector>

#include "host/core/animatable.h"

class INode;
class Object;
class ILayerManager;

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

/// Directory numbers of Interface::GetDir. The user settings directory holds "3dsMax.ini" and the
/// ini files of plug-ins.
inline constexpr int APP_PLUGCFG_DIR = 9;

/// The host's core interface. One instance, from GetCOREInterface().
class Interface {
 public:
  Interface() = default;
  Interface(const Interface&) = delete;
  Interface& operator=(const Interface&) = delete;

  // Time.
  TimeValue GetTime() const { return time_; }
  /// Moves the current time and tells every TimeChangeCallback when it changed.
  void SetTime(TimeValue t, bool redraw = true);
  /// Ticks per frame: 160 by default (30 frames a second).
  int GetTicksPerFrame() const { return ticks_per_frame_; }
  /// Sets the frame rate; ticks per frame become 4800 / fps. Rates that do not divide 4800 or are
  /// not positive are refused (false).
  bool SetFrameRate(int fps);
  int GetFrameRate() const { return TIME_TICKSPERSEC / ticks_per_frame_; }
  Interval GetAnimRange() const { return anim_range_; }
  /// Sets the animation range; an empty or reversed range is refused.
  bool SetAnimRange(const Interval& range);

  // Modes.
  int GetRefCoordSys() const { return ref_coord_sys_; }
  void SetRefCoordSys(int cs) { ref_coord_sys_ = cs; }
  int GetPivotMode() const { return pivot_mode_; }
  void SetPivotMode(int mode) { pivot_mode_ = mode; }
  int GetCommandPanelTaskMode() const { return task_mode_; }
  void SetCommandPanelTaskMode(int mode) { task_mode_ = mode; }

  // Selection of nodes. Deleted nodes drop out by themselves.
  int GetSelNodeCount() const;
  /// The i-th selected live node, or null when i is out of range.
  INode* GetSelNode(int i) const;
  bool IsSelected(const INode* node) const;
  /// Selects node, first clearing the selection when clear_sel is true. Undoable.
  void SelectNode(INode* node, bool clear_sel = true);
  /// Removes node from the selection. Undoable.
  void DeSelectNode(INode* node);
  /// Empties the selection. Undoable.
  void ClearNodeSelection(bool redraw = true);

  // The open scene (Scene::Active()).
  /// The scene's root node, made on first use.
  INode* GetRootNode();
  /// A new node for obj (null allowed) under the root; see Scene::CreateObjectNode. Undoable.
  INode* CreateObjectNode(Object* obj);
  /// The same, named name (made unique).
  INode* CreateObjectNode(Object* obj, const char* name);
  /// The first node called name, or null.
  INode* GetINodeByName(const char* name);
  /// Makes name unique among the scene's node names ("Box" -> "Box001").
  void MakeNameUnique(MSTR& name);
  /// Deletes node (children move to its parent keeping their world transforms). Undoable.
  void DeleteNode(INode* node, bool redraw = true);
  /// Deletes every node of nodes in one call (Interface13's operation), in the order given:
  /// nulls, the root, nodes already deleted and repeats are skipped. Children of a deleted node
  /// that are not deleted themselves move to its parent, keeping their world transforms when
  /// keep_child_tm is true. One redraw at the end when redraw is true. Undoable as one change
  /// of the hold that is open (the caller's hold gives one undo step).
  void DeleteNodes(const Tab<INode*>& nodes, bool keep_child_tm = true, bool redraw = true);
  /// The scene's host layers.
  ILayerManager* GetLayerManager();

  // Directories (host/scene/app_dirs.cpp).
  /// The path of directory which, without a trailing separator; "" for a number the headless host
  /// does not keep. APP_PLUGCFG_DIR is the user settings directory: $MARVOLITH_SETTINGS_DIR when
  /// set, else $XDG_CONFIG_HOME/marvolith, else $HOME/.config/marvolith; it is created on use.
  MSTR GetDir(int which) const;
  /// The host's ini file: "3dsMax.ini" in the user settings directory.
  MSTR GetMAXIniFile() const;

  // Views. The headless host has no views: redraw requests are counted so that tests can see
  // them, and the last time asked for is kept.
  /// Counts a redraw at t, unless scene redraw is disabled.
  void RedrawViews(TimeValue t);
  int RedrawCount() const { return redraw_count_; }
  /// Scene redraw off until the matching EnableSceneRedraw: the calls nest, and RedrawViews does
  /// nothing meanwhile. An EnableSceneRedraw without a disable is ignored.
  void DisableSceneRedraw() { ++redraw_disabled_; }
  void EnableSceneRedraw() {
    if (redraw_disabled_ > 0) --redraw_disabled_;
  }
  bool IsSceneRedrawDisabled() const { return redraw_disabled_ > 0; }
  TimeValue LastRedrawTime() const { return last_redraw_time_; }

  // Callbacks.
  void RegisterTimeChangeCallback(TimeChangeCallback* tc);
  void UnRegisterTimeChangeCallback(TimeChangeCallback* tc);

  /// Back to a new scene's state: time 0, 30 fps, range 0..100 frames, world coordinates, no
  /// selection, animate off, and an empty scene with empty undo stacks (Scene::Reset). Callbacks
  /// stay registered.
  void Reset();

 private:
  friend class SelectionRestore;
  void SetSelection(std::vector<AnimHandle> selection);

  TimeValue time_ = 0;
  int ticks_per_frame_ = 160;
  Interval anim_range_{0, 100 * 160};
  int ref_coord_sys_ = COORDS_WORLD;
  int pivot_mode_ = PIV_NONE;
  int task_mode_ = TASK_MODE_CREATE;
  std::vector<AnimHandle> selection_;
  std::vector<TimeChangeCallback*> time_callbacks_;
  int redraw_count_ = 0;
  int redraw_disabled_ = 0;
  TimeValue last_redraw_time_ = 0;
};

using Interface7 = Interface;
using Interface13 = Interface;
Interface* GetCOREInterface();
inline Interface7* GetCOREInterface7() { return GetCOREInterface(); }
inline Interface13* GetCOREInterface13() { return GetCOREInterface(); }

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
