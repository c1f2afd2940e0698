// Copyright Marvolith contributors.
// Shared helpers of the controller tests: value reads, key builders, save bytes, a fixture.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "host/controllers/keyframe_control.h"
#include "host/io/chunk_stream.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {

/// Flags of a key with in and out tangents of one type.
inline DWORD TangentFlags(int type) { return SetOutTanType(SetInTanType(0, type), type); }
inline constexpr DWORD kLinear = (1u << 7) | (1u << 10);  // 0x480

inline IBezFloatKey BezKey(TimeValue t, float v, DWORD flags = kLinear) {
  IBezFloatKey k;
  k.time = t;
  k.flags = flags;
  k.val = v;
  return k;
}

template <typename V>
V ValueAt(Control* c, TimeValue t, Interval* valid = nullptr) {
  V v{};
  Interval iv = FOREVER;
  c->GetValue(t, &v, iv, CTRL_ABSOLUTE);
  if (valid) *valid = iv;
  return v;
}

/// The world matrix a transform controller gives under parent.
inline Matrix3 WorldAt(Control* c, TimeValue t, const Matrix3& parent) {
  Matrix3 m = parent;
  Interval iv = FOREVER;
  c->GetValue(t, &m, iv, CTRL_RELATIVE);
  return m;
}

inline std::vector<std::uint8_t> SaveBytes(ReferenceMaker* maker) {
  ChunkWriter w;
  w.BeginChunk(1);
  EXPECT_EQ(maker->Save(&w), IO_OK);
  w.EndChunk();
  EXPECT_TRUE(w.Ok());
  return w.Bytes();
}

/// Loads bytes written by SaveBytes into maker; answers Load's result.
inline IOResult LoadBytes(ReferenceMaker* maker, const std::vector<std::uint8_t>& bytes) {
  ChunkReader r(bytes);
  if (r.OpenChunk() != IO_OK) return IO_ERROR;
  IOResult res = maker->Load(&r);
  r.CloseChunk();
  return res;
}

/// A fresh animation state per test; undo stacks and the kept roots are dropped at the end.
class ControllerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    GetCOREInterface()->Reset();
    AnimateOff();
    theHold.Clear();
  }
  void TearDown() override {
    AnimateOff();
    theHold.Clear();
  }
  template <typename T>
  T* Keep(T* target) {
    return sweep_.Keep(target);
  }
  /// A dependent that records the messages c sends.
  TestTarget* Listen(ReferenceTarget* c) {
    auto* t = Keep(new TestTarget(1));
    t->ReplaceReference(0, c);
    return t;
  }

 private:
  SceneSweeper sweep_;
};

}  // namespace marvolith::test
