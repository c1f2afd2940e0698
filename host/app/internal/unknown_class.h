// Copyright Marvolith contributors.
// Placeholders for objects of classes this session does not know (a module that is not loaded):
// the scene file keeps them with their chunks and references and saves them back unchanged.
// Private to host/io.
#pragma once

#include <cstdint>
#include <vector>

#include "host/core/reference.h"
#include "host/core/weak_ref.h"
#include "host/io/chunk_io.h"
#include "host/io/chunk_stream.h"

namespace host_io_internal {

/// One chunk as the file held it: its id and either its raw data or its sub-chunks.
struct RawChunk {
  USHORT id = 0;
  bool container = false;
  std::vector<std::uint8_t> data;
  std::vector<RawChunk> children;
};

/// The contents of the open chunk of iload, whole (sub-chunks and data); out.id is left as it
/// is. False on damaged data.
[[nodiscard]] bool CaptureChunk(ChunkReader* iload, RawChunk& out);
/// Writes what CaptureChunk read back into the open chunk of isave.
[[nodiscard]] IOResult ReplayChunk(ISave* isave, const RawChunk& chunk);

/// What every placeholder keeps: the class it stands for, its reference slots and the chunks
/// that the object and the host saved for it.
class UnknownClassData {
 public:
  virtual ~UnknownClassData() = default;
  SClass_ID StandInSuperClass() const { return sclass_; }
  Class_ID StandInClassID() const { return class_id_; }
  /// The object's own Save data, as read.
  RawChunk& Data() { return data_; }
  /// The state the host keeps for the base class (modifier name, shape flags), when the file
  /// had one.
  RawChunk& BaseState() { return base_state_; }
  bool has_base_state = false;
  /// Sets the number of reference slots, as the file gives it (before the slots are linked).
  void SetSlotCount(int count) { refs_.assign(static_cast<size_t>(count), nullptr); }
  /// The weak references the file gave the object, kept (weakly) and saved back in order.
  WeakRefOwner& Weak() { return weak_; }

 protected:
  UnknownClassData(SClass_ID sclass, Class_ID class_id) : sclass_(sclass), class_id_(class_id) {}
  std::vector<ReferenceTarget*> refs_;

 private:
  SClass_ID sclass_;
  Class_ID class_id_;
  RawChunk data_;
  RawChunk base_state_;
  WeakRefOwner weak_{1};
};

/// A new placeholder for an object of class (sclass, class_id) with ref_count reference slots:
/// a Control for the controller super classes (it leaves the value it is given unchanged, so a
/// node whose transform controller is missing sits at its parent), an object for the object
/// super classes (it evaluates to itself), a modifier for modifiers (it changes nothing), and
/// a plain reference target otherwise. It takes any target in its slots, answers messages with
/// REF_SUCCEED, and saves back exactly what it loaded.
ReferenceTarget* NewUnknownClassPlaceholder(SClass_ID sclass, Class_ID class_id, int ref_count);

/// The placeholder part of target, or null when target is a real object.
UnknownClassData* AsUnknownClass(ReferenceTarget* target);

}  // namespace host_io_internal
