// Copyright Marvolith contributors.
#include "host/app/internal/unknown_class.h"

#include "host/core/control.h"
#include "host/io/chunk_stream.h"
#include "host/scene/object.h"

namespace host_io_internal {
namespace {

/// A chunk tree deeper than this is damaged data (the reader refuses deeper files anyway).
constexpr int kMaxCaptureDepth = 64;

bool Capture(ChunkReader* iload, RawChunk& out, int depth) {
  if (depth > kMaxCaptureDepth) return false;
  out.container = iload->CurChunkIsContainer();
  if (!out.container) {
    out.data.resize(iload->CurChunkLength());
    ULONG read = 0;
    return out.data.empty() ||
           (iload->Read(out.data.data(), static_cast<ULONG>(out.data.size()), &read) == IO_OK &&
            read == out.data.size());
  }
  IOResult res;
  while ((res = iload->OpenChunk()) == IO_OK) {
    RawChunk child;
    child.id = iload->CurChunkID();
    if (!Capture(iload, child, depth + 1)) return false;
    out.children.push_back(std::move(child));
    if (iload->CloseChunk() != IO_OK) return false;
  }
  return res == IO_END;
}

// Every placeholder, whatever it derives from, keeps its slots and data the same way.
template <typename Base>
class Placeholder final : public Base, public UnknownClassData {
 public:
  Placeholder(SClass_ID sclass, Class_ID class_id, int ref_count)
      : UnknownClassData(sclass, class_id) {
    refs_.assign(static_cast<size_t>(ref_count), nullptr);
  }
  SClass_ID SuperClassID() override { return StandInSuperClass(); }
  Class_ID ClassID() override { return StandInClassID(); }
  void GetClassName(MSTR& s, bool = true) const override { s = "Missing class"; }
  int NumRefs() override { return static_cast<int>(refs_.size()); }
  RefTargetHandle GetReference(int i) override {
    return i >= 0 && i < NumRefs() ? refs_[static_cast<size_t>(i)] : nullptr;
  }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  IOResult Save(ISave* isave) override { return ReplayChunk(isave, Data()); }

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i >= 0 && i < NumRefs()) refs_[static_cast<size_t>(i)] = target;
  }
};

// A controller of a missing class: the value passed in stays as it is.
class MissingControl : public Control {
 public:
  void GetValue(TimeValue, void*, Interval&, GetSetMethod) override {}
  void SetValue(TimeValue, void*, int, GetSetMethod) override {}
};

// An object of a missing class: it evaluates to itself, which draws and converts to nothing.
class MissingObject : public Object {
 public:
  ObjectState Eval(TimeValue) override { return ObjectState(this); }
};

// A modifier of a missing class: the object passes through unchanged.
class MissingModifier : public Modifier {
 public:
  void ModifyObject(TimeValue, ModContext&, ObjectState*, INode*) override {}
};

class MissingTarget : public ReferenceTarget {};

}  // namespace

bool CaptureChunk(ChunkReader* iload, RawChunk& out) { return Capture(iload, out, 0); }

IOResult ReplayChunk(ISave* isave, const RawChunk& chunk) {
  if (!chunk.container) {
    ULONG written = 0;
    if (chunk.data.empty()) return IO_OK;
    return isave->Write(chunk.data.data(), static_cast<ULONG>(chunk.data.size()), &written) ==
                       IO_OK &&
                   written == chunk.data.size()
               ? IO_OK
               : IO_ERROR;
  }
  for (const RawChunk& child : chunk.children) {
    isave->BeginChunk(child.id);
    const IOResult res = ReplayChunk(isave, child);
    isave->EndChunk();
    if (res != IO_OK) return res;
  }
  return IO_OK;
}

ReferenceTarget* NewUnknownClassPlaceholder(SClass_ID sclass, Class_ID class_id, int ref_count) {
  switch (sclass) {
    case CTRL_FLOAT_CLASS_ID:
    case CTRL_POINT3_CLASS_ID:
    case CTRL_MATRIX3_CLASS_ID:
    case CTRL_POSITION_CLASS_ID:
    case CTRL_ROTATION_CLASS_ID:
    case CTRL_SCALE_CLASS_ID:
    case CTRL_POINT4_CLASS_ID:
      return new Placeholder<MissingControl>(sclass, class_id, ref_count);
    case GEOMOBJECT_CLASS_ID:
    case CAMERA_CLASS_ID:
    case LIGHT_CLASS_ID:
    case SHAPE_CLASS_ID:
    case HELPER_CLASS_ID:
    case SYSTEM_CLASS_ID:
      return new Placeholder<MissingObject>(sclass, class_id, ref_count);
    case OSM_CLASS_ID:
    case WSM_CLASS_ID:
      return new Placeholder<MissingModifier>(sclass, class_id, ref_count);
    default:
      return new Placeholder<MissingTarget>(sclass, class_id, ref_count);
  }
}

UnknownClassData* AsUnknownClass(ReferenceTarget* target) {
  return dynamic_cast<UnknownClassData*>(target);
}

}  // namespace host_io_internal
