// Copyright Marvolith contributors.
#include "host/scene/core_interface.h"

#include <algorithm>
#include <utility>

#include "host/io/app_dirs.h"
#include "host/scene/inode.h"
#include "host/scene/scene.h"
#include "host/undo/hold.h"


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

Interface* GetCOREInterface() {
  static Interface core;
  return &core;
}

void Interface::SetTime(TimeValue t, bool redraw) {
  if (TheAnimClock().SetTime(t) && redraw) RedrawViews(t);
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
  if (redraw) RedrawViews(GetTime());
}

void Interface::RedrawViews(TimeValue t) {
  if (redraw_disabled_ > 0) return;
  ++redraw_count_;
  last_redraw_time_ = t;
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
  node->Delete(GetTime(), 1);
  if (redraw) RedrawViews(GetTime());
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
    if (node && !node->TestAFlag(A_IS_DELETED)) node->Delete(GetTime(), keep_child_tm ? 1 : 0);
  }
  if (redraw) RedrawViews(GetTime());
}

ILayerManager* Interface::GetLayerManager() { return Scene::Active().GetLayerManager(); }

void Interface::Reset() {
  Scene::Active().Reset();
  TheAnimClock().Reset();
  selection_.clear();
}

MSTR Interface::GetDir(int which) const {
  return which == APP_PLUGCFG_DIR ? HostSettingsDir() : MSTR();
}

MSTR Interface::GetMAXIniFile() const { return HostIniFile(); }
