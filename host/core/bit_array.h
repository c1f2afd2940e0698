// Copyright Marvolith contributors.
// BitArray: the host's fixed-size set of bits (face, vertex and knot selections).
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <vector>

#include "host/io/chunk_io.h"

/// A set of GetSize() bits, all clear when made or grown. Indices outside 0..GetSize()-1 read 0
/// and are ignored by the setters.
class BitArray {
 public:
  BitArray() = default;
  explicit BitArray(int size) { SetSize(size); }

  int GetSize() const { return size_; }
  /// Resizes to size bits (negative counts as 0); with keep, the bits that remain keep their
  /// values, else all are cleared.
  void SetSize(int size, bool keep = false) {
    size = std::max(size, 0);
    if (!keep) words_.assign(WordCount(size), 0);
    words_.resize(WordCount(size), 0);
    size_ = size;
    ClearTail();
  }

  int operator[](int i) const {
    return InRange(i) ? static_cast<int>((words_[Word(i)] >> Bit(i)) & 1u) : 0;
  }
  void Set(int i) {
    if (InRange(i)) words_[Word(i)] |= Mask(i);
  }
  void Clear(int i) {
    if (InRange(i)) words_[Word(i)] &= ~Mask(i);
  }
  void Set(int i, bool on) { on ? Set(i) : Clear(i); }
  void SetAll() {
    std::fill(words_.begin(), words_.end(), ~std::uint64_t{0});
    ClearTail();
  }
  void ClearAll() { std::fill(words_.begin(), words_.end(), 0); }

  /// Number of set bits.
  int NumberSet() const {
    int n = 0;
    for (std::uint64_t w : words_) n += std::popcount(w);
    return n;
  }
  bool IsEmpty() const { return NumberSet() == 0; }

  bool operator==(const BitArray& o) const = default;

  /// Writes into the open chunk: the bit count (u32), then the bits, eight to a byte, lowest
  /// index in the lowest bit of the first byte.
  IOResult Save(ISave* isave) const {
    ULONG written = 0;
    const std::uint32_t n = static_cast<std::uint32_t>(size_);
    if (isave->Write(&n, sizeof(n), &written) != IO_OK || written != sizeof(n)) return IO_ERROR;
    std::vector<std::uint8_t> bytes((static_cast<size_t>(size_) + 7) / 8, 0);
    for (int i = 0; i < size_; ++i) {
      if ((*this)[i]) bytes[static_cast<size_t>(i) / 8] |= static_cast<std::uint8_t>(1u << (i % 8));
    }
    if (bytes.empty()) return IO_OK;
    const IOResult res = isave->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
    return res == IO_OK && written == bytes.size() ? IO_OK : IO_ERROR;
  }
  /// Reads what Save wrote from the open chunk. IO_ERROR, the array left empty, when the chunk's
  /// length does not match its bit count.
  IOResult Load(ILoad* iload) {
    SetSize(0);
    std::uint32_t n = 0;
    ULONG read = 0;
    const ULONG length = iload->CurChunkLength();
    if (length < sizeof(n) || iload->Read(&n, sizeof(n), &read) != IO_OK || read != sizeof(n))
      return IO_ERROR;
    const std::uint64_t byte_count = (std::uint64_t{n} + 7) / 8;
    if (byte_count != length - sizeof(n) || n > static_cast<std::uint32_t>(INT32_MAX))
      return IO_ERROR;
    std::vector<std::uint8_t> bytes(static_cast<size_t>(byte_count));
    if (!bytes.empty() &&
        (iload->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read) != IO_OK ||
         read != bytes.size()))
      return IO_ERROR;
    SetSize(static_cast<int>(n));
    for (int i = 0; i < size_; ++i) {
      if (bytes[static_cast<size_t>(i) / 8] & (1u << (i % 8))) Set(i);
    }
    return IO_OK;
  }

 private:
  static size_t WordCount(int size) { return (static_cast<size_t>(size) + 63) / 64; }
  static size_t Word(int i) { return static_cast<size_t>(i) / 64; }
  static int Bit(int i) { return i % 64; }
  static std::uint64_t Mask(int i) { return std::uint64_t{1} << Bit(i); }
  bool InRange(int i) const { return i >= 0 && i < size_; }
  void ClearTail() {
    if (size_ % 64 != 0 && !words_.empty()) words_.back() &= (std::uint64_t{1} << (size_ % 64)) - 1;
  }

  std::vector<std::uint64_t> words_;
  int size_ = 0;
};
