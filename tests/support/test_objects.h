// Copyright Marvolith contributors.
// Small scene objects for host tests: a target with reference slots that records what it hears.
#pragma once

#include <vector>

#include "host/core/reference.h"
#include "host/undo/hold.h"

namespace marvolith::test {

/// A reference target with a fixed number of slots. It records every message it hears and can be
/// told to stop propagation. Its Clone copies its slots through the remap directory.
class TestTarget : public ReferenceTarget {
 public:
  explicit TestTarget(int slots = 2) : refs_(static_cast<size_t>(slots), nullptr) {}

  struct Heard {
    RefMessage message;
    ReferenceTarget* from;
  };

  Class_ID ClassID() override { return Class_ID(0x7e57, 1); }
  int NumRefs() override { return static_cast<int>(refs_.size()); }
  RefTargetHandle GetReference(int i) override {
    return i >= 0 && i < NumRefs() ? refs_[static_cast<size_t>(i)] : nullptr;
  }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle target, PartID&, RefMessage message,
                             bool) override {
    heard.push_back({message, target});
    return stop ? REF_STOP : REF_SUCCEED;
  }
  RefTargetHandle Clone(RemapDir& remap) override {
    auto* c = new TestTarget(NumRefs());
    c->value = value;
    for (int i = 0; i < NumRefs(); ++i) c->ReplaceReference(i, remap.CloneRef(GetReference(i)));
    BaseClone(this, c, remap);
    return c;
  }

  int Count(RefMessage message) const {
    int n = 0;
    for (const auto& h : heard) n += h.message == message ? 1 : 0;
    return n;
  }

  std::vector<Heard> heard;
  bool stop = false;
  int value = 0;

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    refs_[static_cast<size_t>(i)] = target;
  }

 private:
  std::vector<RefTargetHandle> refs_;
};

/// Clears the undo stacks and deletes the given roots at the end of a test, so that leak checks
/// see a clean process.
class SceneSweeper {
 public:
  ~SceneSweeper() {
    theHold.Clear();
    for (AnimHandle h : roots_) {
      if (auto* t = static_cast<ReferenceTarget*>(Animatable::GetAnimByHandle(h))) t->DeleteMe();
    }
    theHold.Clear();
  }
  template <typename T>
  T* Keep(T* target) {
    roots_.push_back(Animatable::GetHandleByAnim(target));
    return target;
  }

 private:
  std::vector<AnimHandle> roots_;
};

}  // namespace marvolith::test
