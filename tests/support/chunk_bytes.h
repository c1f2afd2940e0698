// Copyright Marvolith contributors.
// Chunk bytes built by hand from the documented layout, so that a writer and a reader cannot share
// a mistake: a 6-byte header (id u16, then a u32 length that counts the header, its top bit set
// for a chunk of chunks), little-endian, then the body.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <vector>

namespace marvolith::test {

using Bytes = std::vector<std::uint8_t>;

/// The bytes of value as they lie in memory, as the writer stores a trivially copyable value.
template <typename T>
Bytes RawBytes(const T& value) {
  Bytes b(sizeof(T));
  std::memcpy(b.data(), &value, sizeof(T));
  return b;
}

/// parts one after another.
inline Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

/// One chunk of id around body; container marks body as a run of chunks.
inline Bytes Chunk(std::uint16_t id, const Bytes& body, bool container = false) {
  const std::uint32_t length =
      static_cast<std::uint32_t>(body.size() + 6) | (container ? 1u << 31 : 0u);
  Bytes out = {static_cast<std::uint8_t>(id), static_cast<std::uint8_t>(id >> 8)};
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<std::uint8_t>(length >> (8 * i)));
  out.insert(out.end(), body.begin(), body.end());
  return out;
}
inline Bytes DataChunk(std::uint16_t id, const Bytes& data) { return Chunk(id, data, false); }
inline Bytes ContainerChunk(std::uint16_t id, std::initializer_list<Bytes> kids) {
  return Chunk(id, Cat(kids), true);
}

}  // namespace marvolith::test
