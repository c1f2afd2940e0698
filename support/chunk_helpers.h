// Copyright Marvolith contributors.
// Small readers and writers of flat chunks over ISave and ILoad.
#pragma once

#include <cstring>
#include <type_traits>

#include "host/io/chunk_io.h"

/// Writes a trivially copyable value as its bytes, in one chunk of id.
template <typename T>
IOResult SaveChunk(ISave* isave, USHORT id, const T& value) {
  static_assert(std::is_trivially_copyable_v<T>);
  ULONG written = 0;
  isave->BeginChunk(id);
  IOResult res = isave->Write(&value, sizeof(T), &written);
  isave->EndChunk();
  return res == IO_OK && written == sizeof(T) ? IO_OK : IO_ERROR;
}

/// Reads a trivially copyable value from the open chunk. A chunk of another size is damaged: the
/// value is left as it was and IO_ERROR is answered.
template <typename T>
IOResult LoadValue(ILoad* iload, T& value) {
  static_assert(std::is_trivially_copyable_v<T>);
  if (iload->CurChunkLength() != sizeof(T)) return IO_ERROR;
  unsigned char tmp[sizeof(T)];
  ULONG read = 0;
  IOResult res = iload->Read(tmp, sizeof(T), &read);
  if (res != IO_OK || read != sizeof(T)) return IO_ERROR;
  std::memcpy(&value, tmp, sizeof(T));  // memcpy: T may be an array
  return IO_OK;
}

/// Walks the chunks at the current level: opens each, calls on_chunk(USHORT id) -> IOResult
/// while it is open, then closes it. on_chunk answers IO_OK for ids it does not know, so those
/// are skipped. The first failure ends the walk and is answered: on_chunk's own result, then
/// that of closing, then that of opening (damaged data). The level's end answers IO_OK.
template <typename F>
IOResult ForEachChunk(ILoad* iload, F&& on_chunk) {
  static_assert(std::is_invocable_r_v<IOResult, F&, USHORT>);
  IOResult res;
  while ((res = iload->OpenChunk()) == IO_OK) {
    const IOResult r = on_chunk(iload->CurChunkID());
    const IOResult closed = iload->CloseChunk();
    if (r != IO_OK) return r;
    if (closed != IO_OK) return closed;
  }
  return res == IO_END ? IO_OK : res;
}
