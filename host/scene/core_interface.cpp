// Copyright Marvolith contributors.
#include "host/scene/core_interface.h"

#include <algorithm>
#include <utility>

#include "host/scene/inode.h"
#include "host/scene/scene.h"
#include "host/undo/hold.h"

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

// Undo of a selection change: swaps the whole selection list.
class SelectionRestore : public RestoreObj {
 public:
  SelectionRestore(Interface* ip, std::vector<AnimHandle> before)
      : ip_(ip), before_(std::move(before)) {}
  void Restore(int is_undo) override {
    if (is_undo) after_ = ip_->selection_;
    ip_->SetSelection(before_);
  }
  void Redo() override { ip_->SetSelection(after_); }
  MSTR Description() override { return "Select"; }

 private:
  Interface* ip_;
  std::vector<AnimHandle> before_;
  std::vector<AnimHandle> after_;
};

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

Interface* GetCOREInterface() {
  static Interface core;
  return &core;
}

void Interface::SetTime(TimeValue t, bool redraw) {
  if (t == time_) return;
  time_ = t;
  auto callbacks = time_callbacks_;  // a callback may unregister itself
  for (TimeChangeCallback* tc : callbacks) {
    if (std::find(time_callbacks_.begin(), time_callbacks_.end(), tc) != time_callbacks_.end())
      tc->TimeChanged(t);
  }
  BroadcastNotification(NOTIFY_TIME_CHANGED, &time_);
  if (redraw) RedrawViews(t);
}

bool Interface::SetFrameRate(int fps) {
  if (fps <= 0 || TIME_TICKSPERSEC % fps != 0) return false;
  ticks_per_frame_ = TIME_TICKSPERSEC / fps;
  BroadcastNotification(NOTIFY_TIMEUNITS_CHANGE);
  return true;
}

bool Interface::SetAnimRange(const Interval& range) {
  if (range.Empty() || range.Start() > range.End()) return false;
  anim_range_ = range;
  return true;
}

int Interface::GetSelNodeCount() const {
  int n = 0;
  for (AnimHandle h : selection_) n += Animatable::GetAnimByHandle(h) ? 1 : 0;
  return n;
}

INode* Interface::GetSelNode(int i) const {
  if (i < 0) return nullptr;
  for (AnimHandle h : selection_) {
    Animatable* anim = Animatable::GetAnimByHandle(h);
    if (anim && i-- == 0) return static_cast<INode*>(anim);
  }
  return nullptr;
}

bool Interface::IsSelected(const INode* node) const {
  if (!node) return false;
  AnimHandle h = Animatable::GetHandleByAnim(node);
  return std::find(selection_.begin(), selection_.end(), h) != selection_.end() &&
         Animatable::GetAnimByHandle(h) != nullptr;
}

void Interface::SetSelection(std::vector<AnimHandle> selection) {
  selection_ = std::move(selection);
  BroadcastNotification(NOTIFY_SELECTIONSET_CHANGED);
}

void Interface::SelectNode(INode* node, bool clear_sel) {
  if (!node) return;
  std::vector<AnimHandle> next = clear_sel ? std::vector<AnimHandle>{} : selection_;
  AnimHandle h = Animatable::GetHandleByAnim(node);
  if (std::find(next.begin(), next.end(), h) == next.end()) next.push_back(h);
  if (next == selection_) return;
  if (theHold.Holding()) theHold.Put(new SelectionRestore(this, selection_));
  SetSelection(std::move(next));
}

void Interface::DeSelectNode(INode* node) {
  AnimHandle h = Animatable::GetHandleByAnim(node);
  auto it = std::find(selection_.begin(), selection_.end(), h);
  if (!node || it == selection_.end()) return;
  if (theHold.Holding()) theHold.Put(new SelectionRestore(this, selection_));
  std::vector<AnimHandle> next = selection_;
  next.erase(next.begin() + (it - selection_.begin()));
  SetSelection(std::move(next));
}

void Interface::ClearNodeSelection(bool redraw) {
  if (selection_.empty()) return;
  if (theHold.Holding()) theHold.Put(new SelectionRestore(this, selection_));
  SetSelection({});
  if (redraw) RedrawViews(time_);
}

void Interface::RedrawViews(TimeValue t) {
  if (redraw_disabled_ > 0) return;
  ++redraw_count_;
  last_redraw_time_ = t;
}

void Interface::RegisterTimeChangeCallback(TimeChangeCallback* tc) {
  if (tc && std::find(time_callbacks_.begin(), time_callbacks_.end(), tc) == time_callbacks_.end())
    time_callbacks_.push_back(tc);
}

void Interface::UnRegisterTimeChangeCallback(TimeChangeCallback* tc) {
  time_callbacks_.erase(std::remove(time_callbacks_.begin(), time_callbacks_.end(), tc),
                        time_callbacks_.end());
}

INode* Interface::GetRootNode() { return Scene::Active().GetRootNode(); }

INode* Interface::CreateObjectNode(Object* obj) { return Scene::Active().CreateObjectNode(obj); }

INode* Interface::CreateObjectNode(Object* obj, const char* name) {
  return Scene::Active().CreateObjectNode(obj, name ? MSTR(name) : MSTR());
}

INode* Interface::GetINodeByName(const char* name) {
  return name ? Scene::Active().GetINodeByName(name) : nullptr;
}

void Interface::MakeNameUnique(MSTR& name) { Scene::Active().MakeNameUnique(name); }

void Interface::DeleteNode(INode* node, bool redraw) {
  if (!node) return;
  node->Delete(time_, 1);
  if (redraw) RedrawViews(time_);
}

void Interface::DeleteNodes(const Tab<INode*>& nodes, bool keep_child_tm, bool redraw) {
  // Handles, taken first: deleting one node must not leave a dangling pointer to a later one.
  std::vector<AnimHandle> handles;
  for (int i = 0; i < nodes.Count(); ++i) {
    INode* node = nodes[i];
    if (!node || node->IsRootNode()) continue;
    const AnimHandle h = Animatable::GetHandleByAnim(node);
    if (std::find(handles.begin(), handles.end(), h) == handles.end()) handles.push_back(h);
  }
  for (AnimHandle h : handles) {
    auto* node = dynamic_cast<INode*>(Animatable::GetAnimByHandle(h));
    if (node && !node->TestAFlag(A_IS_DELETED)) node->Delete(time_, keep_child_tm ? 1 : 0);
  }
  if (redraw) RedrawViews(time_);
}

ILayerManager* Interface::GetLayerManager() { return Scene::Active().GetLayerManager(); }

void Interface::Reset() {
  Scene::Active().Reset();
  time_ = 0;
  ticks_per_frame_ = 160;
  anim_range_ = Interval(0, 100 * 160);
  ref_coord_sys_ = COORDS_WORLD;
  pivot_mode_ = PIV_NONE;
  task_mode_ = TASK_MODE_CREATE;
  selection_.clear();
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
