// Copyright Marvolith contributors.
#include "host/undo/hold.h"

#include <utility>

#include "host/base/scoped_flag.h"

Hold theHold;

Hold::~Hold() { Clear(); }

void Hold::Begin() {
  if (!levels_.empty()) {
    // The open levels' objects carry A_HELD: clear it so that this level records its own before
    // state. Only records put since the last nested Begin can have set it again.
    for (size_t i = held_cleared_; i < open_.size(); ++i) open_[i]->EndHold();
    held_cleared_ = open_.size();
  }
  levels_.push_back(open_.size());
}

bool Hold::Holding() const {
  if (!captures_.empty()) return suspend_ == captures_.back().suspend_base;
  return !levels_.empty() && suspend_ == 0 && !restoring_ && !redoing_;
}

void Hold::Put(RestoreObj* rob) {
  std::unique_ptr<RestoreObj> owned(rob);
  if (!owned || !Holding()) return;
  if (!captures_.empty()) {
    captures_.back().records.push_back(std::move(owned));
    return;
  }
  open_.push_back(std::move(owned));
}

void Hold::BeginCapture() { captures_.push_back(Capture{{}, suspend_}); }

std::vector<std::unique_ptr<RestoreObj>> Hold::EndCapture() {
  if (captures_.empty()) return {};
  std::vector<std::unique_ptr<RestoreObj>> records = std::move(captures_.back().records);
  captures_.pop_back();
  for (auto& rec : records) rec->EndHold();
  return records;
}

void Hold::Accept(const MSTR& name) {
  if (levels_.empty()) return;
  levels_.pop_back();
  if (!levels_.empty()) return;
  // Outermost hold: the records become one entry. Move them out before anything is dropped, since
  // dropping records can delete objects that were kept only for undo.
  Entry entry{name, std::move(open_)};
  open_.clear();
  held_cleared_ = 0;
  for (auto& rec : entry.records) rec->EndHold();
  if (entry.records.empty()) return;
  std::vector<Entry> dropped = std::move(redo_);
  redo_.clear();
  undo_.push_back(std::move(entry));
  Trim();
  HoldSuspend guard;
  dropped.clear();
}

void Hold::RestoreRange(size_t from, int is_undo) {
  ScopedFlag restoring(restoring_);
  for (size_t i = open_.size(); i > from; --i) open_[i - 1]->Restore(is_undo);
  for (size_t i = from; i < open_.size(); ++i) open_[i]->EndHold();
}

void Hold::RestoreAndDrop(size_t from) {
  RestoreRange(from, 0);
  std::vector<std::unique_ptr<RestoreObj>> dropped(std::make_move_iterator(open_.begin() + from),
                                                   std::make_move_iterator(open_.end()));
  open_.resize(from);
  if (held_cleared_ > from) held_cleared_ = from;
  HoldSuspend guard;
  dropped.clear();
}

void Hold::Cancel() {
  if (levels_.empty()) return;
  size_t from = levels_.back();
  levels_.pop_back();
  RestoreAndDrop(from);
}

void Hold::Restore() {
  if (levels_.empty()) return;
  RestoreAndDrop(levels_.back());
}

bool Hold::Undo() {
  if (!levels_.empty() || undo_.empty() || restoring_ || redoing_) return false;
  Entry entry = std::move(undo_.back());
  undo_.pop_back();
  {
    ScopedFlag restoring(restoring_);
    for (size_t i = entry.records.size(); i > 0; --i) entry.records[i - 1]->Restore(1);
  }
  redo_.push_back(std::move(entry));
  return true;
}

bool Hold::Redo() {
  if (!levels_.empty() || redo_.empty() || restoring_ || redoing_) return false;
  Entry entry = std::move(redo_.back());
  redo_.pop_back();
  {
    ScopedFlag redoing(redoing_);
    for (auto& rec : entry.records) rec->Redo();
  }
  undo_.push_back(std::move(entry));
  return true;
}

MSTR Hold::UndoName(int i) const {
  if (i < 0 || i >= UndoCount()) return MSTR();
  return undo_[undo_.size() - 1 - static_cast<size_t>(i)].name;
}

MSTR Hold::RedoName(int i) const {
  if (i < 0 || i >= RedoCount()) return MSTR();
  return redo_[redo_.size() - 1 - static_cast<size_t>(i)].name;
}

void Hold::Clear() {
  HoldSuspend guard;
  for (auto& rec : open_) rec->EndHold();
  held_cleared_ = 0;
  // Newest first, so that records drop their keep-alive counts in the reverse of their making.
  while (!open_.empty()) open_.pop_back();
  levels_.clear();
  while (!redo_.empty()) {
    while (!redo_.back().records.empty()) redo_.back().records.pop_back();
    redo_.pop_back();
  }
  while (!undo_.empty()) {
    while (!undo_.back().records.empty()) undo_.back().records.pop_back();
    undo_.pop_back();
  }
}

void Hold::SetMaxLevels(int levels) {
  max_levels_ = levels < 0 ? 0 : levels;
  Trim();
}

void Hold::Trim() {
  if (max_levels_ == 0) return;
  HoldSuspend guard;
  while (undo_.size() > static_cast<size_t>(max_levels_)) undo_.erase(undo_.begin());
}

bool IsUndoingOrRedoing() { return theHold.Restoring() || theHold.Redoing(); }
