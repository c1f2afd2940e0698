// Copyright Marvolith contributors.
// The locked flag of a track as a chunk of its own.
#pragma once

#include <cstdint>

#include "support/chunk_helpers.h"

/// The chunk that holds a track's locked flag: one byte, nonzero when locked.
inline constexpr USHORT kLockChunkID = 0x2535;

/// Writes locked as chunk kLockChunkID.
inline IOResult SaveLockChunk(ISave* isave, bool locked) {
  return SaveChunk(isave, kLockChunkID, static_cast<std::uint8_t>(locked ? 1 : 0));
}

/// Reads the one-byte flag from the open chunk (kLockChunkID, or a class's own id for the same
/// record). A chunk of another size is damaged: locked is left as it was and IO_ERROR is
/// answered.
inline IOResult LoadLockChunk(ILoad* iload, bool& locked) {
  std::uint8_t b = 0;
  const IOResult res = LoadValue(iload, b);
  if (res == IO_OK) locked = b != 0;
  return res;
}

/// Reads the chunks of a track whose only saved state is its locked flag: the lock chunk into
/// locked, every other chunk skipped.
inline IOResult LoadLockOnly(ILoad* iload, bool& locked) {
  return ForEachChunk(
      iload, [&](USHORT id) { return id == kLockChunkID ? LoadLockChunk(iload, locked) : IO_OK; });
}
