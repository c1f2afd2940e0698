// Copyright Marvolith contributors.
// Tab: the host's growable array. Indexing is checked and throws the host's exception.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <vector>

#include "host/base/exceptions.h"

template <typename T>
class Tab {
 public:
  Tab() = default;
  Tab(std::initializer_list<T> items) : items_(items) {}

  int Count() const { return static_cast<int>(items_.size()); }
  bool empty() const { return items_.empty(); }
  void ZeroCount() { items_.clear(); }
  /// Resizes; new elements are value-initialised.
  void SetCount(int n) { items_.resize(n < 0 ? 0 : static_cast<size_t>(n)); }
  void Resize(int n) { items_.reserve(n < 0 ? 0 : static_cast<size_t>(n)); }

  /// Checked access: an index outside [0, Count()) throws TabOutOfRangeException.
  T& operator[](int i) {
    Check(i);
    return items_[static_cast<size_t>(i)];
  }
  const T& operator[](int i) const {
    Check(i);
    return items_[static_cast<size_t>(i)];
  }
  T* Addr(int i) {
    Check(i);
    return &items_[static_cast<size_t>(i)];
  }

  /// Appends num elements from el; answers the index of the first.
  int Append(int num, const T* el) {
    int at = Count();
    items_.insert(items_.end(), el, el + num);
    return at;
  }
  int Append(const T& el) {
    items_.push_back(el);
    return Count() - 1;
  }
  /// Inserts num elements before index at (0..Count()); answers at, or -1 when at is out of range.
  int Insert(int at, int num, const T* el) {
    if (at < 0 || at > Count()) return -1;
    items_.insert(items_.begin() + at, el, el + num);
    return at;
  }
  /// Deletes num elements from start; answers the new count. Out-of-range parts are ignored.
  int Delete(int start, int num) {
    if (start < 0 || start >= Count() || num <= 0) return Count();
    int end = std::min(Count(), start + num);
    items_.erase(items_.begin() + start, items_.begin() + end);
    return Count();
  }
  /// Index of the first element equal to v, or -1.
  int Find(const T& v) const {
    auto it = std::find(items_.begin(), items_.end(), v);
    return it == items_.end() ? -1 : static_cast<int>(it - items_.begin());
  }

  auto begin() { return items_.begin(); }
  auto end() { return items_.end(); }
  auto begin() const { return items_.begin(); }
  auto end() const { return items_.end(); }
  std::vector<T>& Vector() { return items_; }
  const std::vector<T>& Vector() const { return items_; }
  bool operator==(const Tab& o) const { return items_ == o.items_; }

 private:
  void Check(int i) const {
    if (i < 0 || i >= Count()) throw MaxSDK::Util::TabOutOfRangeException();
  }
  std::vector<T> items_;
};
