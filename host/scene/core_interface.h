// Copyright Marvolith contributors.
// The core interface: the open scene, selection, redraw and directories; its time and mode
// calls forward to the clock (host/core/clock.h).
#pragma once

#include <vector>

#include "host/core/animatable.h"
#include "host/core/clock.h"

class INode;
class Object;
class ILayerManager;

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
  TimeValue GetTime() const { return TheAnimClock().Time(); }
  /// Moves the current time and tells every TimeChangeCallback when it changed.
  void SetTime(TimeValue t, bool redraw = true);
  /// Ticks per frame: 160 by default (30 frames a second).
  int GetTicksPerFrame() const { return TheAnimClock().TicksPerFrame(); }
  /// Sets the frame rate; ticks per frame become 4800 / fps. Rates that do not divide 4800 or are
  /// not positive are refused (false).
  bool SetFrameRate(int fps) { return TheAnimClock().SetFrameRate(fps); }
  int GetFrameRate() const { return TheAnimClock().FrameRate(); }
  Interval GetAnimRange() const { return TheAnimClock().AnimRange(); }
  /// Sets the animation range; an empty or reversed range is refused.
  bool SetAnimRange(const Interval& range) { return TheAnimClock().SetAnimRange(range); }

  // Modes.
  int GetRefCoordSys() const { return TheAnimClock().RefCoordSys(); }
  void SetRefCoordSys(int cs) { TheAnimClock().SetRefCoordSys(cs); }
  int GetPivotMode() const { return TheAnimClock().PivotMode(); }
  void SetPivotMode(int mode) { TheAnimClock().SetPivotMode(mode); }
  /// The affect-pivot-only state (see AnimClock::AffectPivot).
  bool GetAffectPivot() const { return TheAnimClock().AffectPivot(); }
  void SetAffectPivot(bool on) { TheAnimClock().SetAffectPivot(on); }
  int GetCommandPanelTaskMode() const { return TheAnimClock().CommandPanelTaskMode(); }
  void SetCommandPanelTaskMode(int mode) { TheAnimClock().SetCommandPanelTaskMode(mode); }

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
  void RegisterTimeChangeCallback(TimeChangeCallback* tc) {
    TheAnimClock().RegisterTimeChangeCallback(tc);
  }
  void UnRegisterTimeChangeCallback(TimeChangeCallback* tc) {
    TheAnimClock().UnRegisterTimeChangeCallback(tc);
  }

  /// Back to a new scene's state: time 0, 30 fps, range 0..100 frames, world coordinates, no
  /// selection, animate off, and an empty scene with empty undo stacks (Scene::Reset). Callbacks
  /// stay registered.
  void Reset();

 private:
  friend class SelectionRestore;
  void SetSelection(std::vector<AnimHandle> selection);

  std::vector<AnimHandle> selection_;
  int redraw_count_ = 0;
  int redraw_disabled_ = 0;
  TimeValue last_redraw_time_ = 0;
};

using Interface7 = Interface;
using Interface13 = Interface;
Interface* GetCOREInterface();
inline Interface7* GetCOREInterface7() { return GetCOREInterface(); }
inline Interface13* GetCOREInterface13() { return GetCOREInterface(); }

