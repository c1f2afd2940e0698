// Copyright Marvolith contributors.
#include "host/io/chunk_stream.h"

#include <algorithm>
#include <cstring>

namespace {
constexpr std::uint32_t kContainerBit = 0x80000000u;
constexpr std::size_t kHeaderBytes = 6;

void PutU16(std::vector<std::uint8_t>& out, std::size_t at, std::uint16_t v) {
  out[at] = static_cast<std::uint8_t>(v);
  out[at + 1] = static_cast<std::uint8_t>(v >> 8);
}
void PutU32(std::vector<std::uint8_t>& out, std::size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) out[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}
std::uint32_t GetU32(std::span<const std::uint8_t> in, std::size_t at) {
  std::uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v |= std::uint32_t(in[at + i]) << (8 * i);
  return v;
}
}  // namespace

IOResult ISave::WriteWString(std::string_view text) {
  ULONG written = 0;
  IOResult res = Write(text.data(), static_cast<ULONG>(text.size()), &written);
  if (res != IO_OK) return res;
  const char zero = 0;
  return Write(&zero, 1, &written);
}

IOResult ILoad::ReadWStringChunk(std::string& text) {
  ULONG length = CurChunkLength();
  std::string buf(length, '\0');
  ULONG read = 0;
  if (length > 0 && Read(buf.data(), length, &read) != IO_OK) return IO_ERROR;
  // Text ends at the first zero byte; a chunk without one is damaged.
  auto zero = buf.find('\0');
  if (zero == std::string::npos) return IO_ERROR;
  buf.resize(zero);
  text = std::move(buf);
  return IO_OK;
}

void ChunkWriter::BeginChunk(USHORT id) {
  if (!open_.empty()) {
    if (open_.back().has_data) ok_ = false;
    open_.back().has_chunks = true;
  }
  open_.push_back({bytes_.size(), false, false});
  bytes_.resize(bytes_.size() + kHeaderBytes);
  PutU16(bytes_, open_.back().start, id);
}

void ChunkWriter::EndChunk() {
  if (open_.empty()) {
    ok_ = false;
    return;
  }
  Open chunk = open_.back();
  open_.pop_back();
  std::size_t length = bytes_.size() - chunk.start;
  if (length >= kContainerBit) {
    ok_ = false;
    return;
  }
  PutU32(bytes_, chunk.start + 2,
         static_cast<std::uint32_t>(length) | (chunk.has_chunks ? kContainerBit : 0));
}

IOResult ChunkWriter::Write(const void* buf, ULONG nbytes, ULONG* written) {
  if (written) *written = 0;
  if (open_.empty() || open_.back().has_chunks) {
    ok_ = false;
    return IO_ERROR;
  }
  open_.back().has_data = true;
  const auto* p = static_cast<const std::uint8_t*>(buf);
  bytes_.insert(bytes_.end(), p, p + nbytes);
  if (written) *written = nbytes;
  return IO_OK;
}

ChunkReader::ChunkReader(std::span<const std::uint8_t> data) : data_(data) {}

IOResult ChunkReader::Fail() {
  ok_ = false;
  return IO_ERROR;
}

IOResult ChunkReader::OpenChunk() {
  if (!ok_) return IO_ERROR;
  if (!open_.empty() && !open_.back().container) return IO_END;  // data chunks hold no chunks
  const std::size_t end = LevelEnd();
  if (pos_ == end) return IO_END;
  if (end - pos_ < kHeaderBytes || static_cast<int>(open_.size()) >= kMaxDepth) return Fail();
  const USHORT id = static_cast<USHORT>(data_[pos_] | (data_[pos_ + 1] << 8));
  const std::uint32_t raw = GetU32(data_, pos_ + 2);
  const std::size_t length = raw & ~kContainerBit;
  if (length < kHeaderBytes || length > end - pos_) return Fail();
  open_.push_back({id, (raw & kContainerBit) != 0, pos_ + kHeaderBytes, pos_ + length});
  pos_ += kHeaderBytes;
  return IO_OK;
}

USHORT ChunkReader::CurChunkID() { return open_.empty() ? 0 : open_.back().id; }

ULONG ChunkReader::CurChunkLength() {
  return open_.empty() ? 0 : static_cast<ULONG>(open_.back().end - open_.back().data_start);
}

bool ChunkReader::CurChunkIsContainer() const { return !open_.empty() && open_.back().container; }

IOResult ChunkReader::CloseChunk() {
  if (open_.empty()) return Fail();
  pos_ = open_.back().end;
  open_.pop_back();
  return ok_ ? IO_OK : IO_ERROR;
}

IOResult ChunkReader::Read(void* buf, ULONG nbytes, ULONG* read) {
  if (read) *read = 0;
  if (!ok_ || open_.empty() || open_.back().container) return Fail();
  const std::size_t available = open_.back().end - pos_;
  const std::size_t n = std::min<std::size_t>(available, nbytes);
  if (n > 0) std::memcpy(buf, data_.data() + pos_, n);
  pos_ += n;
  if (read) *read = static_cast<ULONG>(n);
  return n == nbytes ? IO_OK : IO_ERROR;
}
