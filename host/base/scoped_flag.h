// Copyright Marvolith contributors.
// Sets a bool for a scope and puts its previous value back, also when an exception passes:
// evaluation, undo and notification guards must never stay set.
#pragma once

class ScopedFlag {
 public:
  explicit ScopedFlag(bool& flag) : flag_(flag), old_(flag) { flag_ = true; }
  ~ScopedFlag() { flag_ = old_; }
  ScopedFlag(const ScopedFlag&) = delete;
  ScopedFlag& operator=(const ScopedFlag&) = delete;

 private:
  bool& flag_;
  bool old_;
};
