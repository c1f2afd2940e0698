// Copyright Marvolith contributors.
// Helpers of the controller tests, host and toolkit alike: key builders, value reads, save and
// load through chunk bytes, and a fixture with a fresh scene per test.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "host/controllers/keyframe_control.h"
#include "host/core/control.h"
#include "host/io/chunk_stream.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "tests/support/chunk_bytes.h"
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

/// The absolute value of c at t; *valid, when given, gets the interval it holds over.
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

/// What maker saves, inside one chunk of id 1.
inline Bytes SaveBytes(ReferenceMaker* maker) {
  ChunkWriter w;
  w.BeginChunk(1);
  EXPECT_EQ(maker->Save(&w), IO_OK);
  w.EndChunk();
  EXPECT_TRUE(w.Ok());
  return w.Bytes();
}

/// Loads bytes of the SaveBytes form into maker; answers Load's result, IO_ERROR when the outer
/// chunk is missing.
inline IOResult LoadBytes(ReferenceMaker* maker, const Bytes& bytes) {
  ChunkReader r(bytes);
  if (r.OpenChunk() != IO_OK) return IO_ERROR;
  IOResult res = maker->Load(&r);
  r.CloseChunk();
  return res;
}

/// A fresh scene and animation state per test (time 0, animate off, empty undo); the kept
/// objects go at the end, after the scene is emptied again.
class ControllerTest : public ::testing::Test {
 protected:
  void SetUp() override { GetCOREInterface()->Reset(); }
  void TearDown() override { GetCOREInterface()->Reset(); }
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
