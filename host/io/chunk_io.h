// Copyright Marvolith contributors.
// ISave and ILoad: every object saves itself as a tree of flat chunks and skips unknown ones.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include "host/base/ids.h"

class ReferenceTarget;
using USHORT = std::uint16_t;

/// Writes a chunk tree. A chunk holds either raw data or other chunks, never both.
class ISave {
 public:
  virtual ~ISave() = default;
  /// Opens a chunk inside the current one (which thereby becomes a container).
  virtual void BeginChunk(USHORT id) = 0;
  /// Closes the innermost chunk.
  virtual void EndChunk() = 0;
  /// Appends nbytes to the innermost chunk; *written gets the count written.
  virtual IOResult Write(const void* buf, ULONG nbytes, ULONG* written) = 0;
  /// Writes text as UTF-8 followed by a terminating zero byte.
  virtual IOResult WriteWString(std::string_view text);
  IOResult WriteCString(std::string_view text) { return WriteWString(text); }
  /// The scene-wide number of target for back-patching, -1 for null or when no scene is being
  /// saved.
  virtual int GetRefID(ReferenceTarget* target) { return -1; }
};

/// Called after every object of a file is loaded and its references are set.
class PostLoadCallback {
 public:
  virtual ~PostLoadCallback() = default;
  virtual void proc(class ILoad* iload) = 0;
};

/// Reads a chunk tree written by ISave.
class ILoad {
 public:
  virtual ~ILoad() = default;
  /// Opens the next chunk at the current level: IO_OK, IO_END when the level has no more chunks,
  /// IO_ERROR when the data is damaged (every later call fails too).
  virtual IOResult OpenChunk() = 0;
  virtual USHORT CurChunkID() = 0;
  /// Bytes of data in the open chunk (for a container, the bytes of its sub-chunks).
  virtual ULONG CurChunkLength() = 0;
  /// Skips the rest of the open chunk and returns to its parent's level.
  virtual IOResult CloseChunk() = 0;
  /// Reads nbytes from the open chunk; IO_ERROR (with *read short) past its end.
  virtual IOResult Read(void* buf, ULONG nbytes, ULONG* read) = 0;
  /// Reads the zero-terminated text written by WriteWString.
  virtual IOResult ReadWStringChunk(std::string& text);
  IOResult ReadCStringChunk(std::string& text) { return ReadWStringChunk(text); }
  /// Asks for *slot to receive the object with scene number ref_id once all objects exist.
  /// Without a scene being loaded nothing is patched.
  virtual void RecordBackpatch(int ref_id, void** slot) {}
  /// The host's name of RecordBackpatch.
  void RegisterBackPatch(int ref_id, void** slot) { RecordBackpatch(ref_id, slot); }
  /// Runs cb->proc once every object of the file exists and is linked. The loader owns cb: it
  /// deletes it after proc ran, or unrun when the load fails; proc must not delete it. Without a
  /// scene being loaded cb is deleted at once.
  virtual void RegisterPostLoadCallback(PostLoadCallback* cb) { delete cb; }
};
