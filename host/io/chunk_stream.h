// Copyright Marvolith contributors.
// The chunk tree in memory: a writer that produces bytes and a reader that checks them.
//
// Layout, little-endian: each chunk is a 6-byte header, the 16-bit id and a 32-bit length that
// counts the header, with the top bit set when the chunk holds chunks rather than data.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/io/chunk_io.h"

class ChunkWriter : public ISave {
 public:
  void BeginChunk(USHORT id) override;
  void EndChunk() override;
  IOResult Write(const void* buf, ULONG nbytes, ULONG* written) override;

  /// The bytes written. Valid once every chunk is closed and Ok() is true.
  const std::vector<std::uint8_t>& Bytes() const { return bytes_; }
  /// False after a misuse: data and chunks mixed in one chunk, EndChunk without BeginChunk,
  /// a chunk over 2 GiB, or chunks left open.
  bool Ok() const { return ok_ && open_.empty(); }

 private:
  struct Open {
    std::size_t start;
    bool has_data;
    bool has_chunks;
  };
  std::vector<std::uint8_t> bytes_;
  std::vector<Open> open_;
  bool ok_ = true;
};

class ChunkReader : public ILoad {
 public:
  /// Reads data; the bytes must outlive the reader.
  explicit ChunkReader(std::span<const std::uint8_t> data);

  IOResult OpenChunk() override;
  USHORT CurChunkID() override;
  ULONG CurChunkLength() override;
  IOResult CloseChunk() override;
  IOResult Read(void* buf, ULONG nbytes, ULONG* read) override;

  /// True when the open chunk holds chunks.
  bool CurChunkIsContainer() const;
  /// Nesting depth of open chunks.
  int Depth() const { return static_cast<int>(open_.size()); }
  /// False once damaged data was met.
  bool Ok() const { return ok_; }
  /// Maximum nesting accepted; deeper trees are damaged data.
  static constexpr int kMaxDepth = 64;

 private:
  struct Open {
    USHORT id;
    bool container;
    std::size_t data_start;
    std::size_t end;
  };
  std::size_t LevelEnd() const { return open_.empty() ? data_.size() : open_.back().end; }
  IOResult Fail();

  std::span<const std::uint8_t> data_;
  std::size_t pos_ = 0;
  std::vector<Open> open_;
  bool ok_ = true;
};
