// Copyright Marvolith contributors.
// Helpers of the value controller tests: a fixture with a fresh scene, value reads, and chunk
// bytes built by hand from the documented layout (6-byte headers: id u16, then a u32 length
// that counts the header, its top bit set for a chunk of chunks).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "host/core/control.h"
#include "host/io/chunk_stream.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {

using Bytes = std::vector<std::uint8_t>;

template <typename T>
Bytes RawBytes(const T& value) {
  Bytes b(sizeof(T));
  std::memcpy(b.data(), &value, sizeof(T));
  return b;
}

inline Bytes Chunk(std::uint16_t id, const Bytes& body, bool container) {
  const std::uint32_t length =
      static_cast<std::uint32_t>(body.size() + 6) | (container ? 1u << 31 : 0u);
  Bytes b = RawBytes(id);
  for (const Bytes& part : {RawBytes(length), body}) b.insert(b.end(), part.begin(), part.end());
  return b;
}
inline Bytes DataChunk(std::uint16_t id, const Bytes& data) { return Chunk(id, data, false); }
inline Bytes ContainerChunk(std::uint16_t id, std::initializer_list<Bytes> kids) {
  Bytes body;
  for (const Bytes& k : kids) body.insert(body.end(), k.begin(), k.end());
  return Chunk(id, body, true);
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

/// Loads bytes of the SaveBytes form into maker; answers Load's result.
inline IOResult LoadBytes(ReferenceMaker* maker, const Bytes& bytes) {
  ChunkReader r(bytes);
  if (r.OpenChunk() != IO_OK) return IO_ERROR;
  return maker->Load(&r);
}

template <typename V>
V ValueAt(Control* c, TimeValue t, Interval* valid = nullptr) {
  V v{};
  Interval iv = FOREVER;
  c->GetValue(t, &v, iv, CTRL_ABSOLUTE);
  if (valid) *valid = iv;
  return v;
}

/// A fresh scene and animation state per test; kept objects and undo go at the end.
class ValueControllerTest : public ::testing::Test {
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
