// Copyright Marvolith contributors.
// Save and Load of parameter blocks, and the class entry through which scene files make them.
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "host/params/iparam_block2.h"
#include "host/registry/class_desc.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"

namespace {

constexpr USHORT kHeaderChunk = 0x0001;
constexpr USHORT kParamChunk = 0x0002;

struct BlockHeader {
  std::int32_t block_id;
  std::int32_t version;
  std::uint32_t owner_sclass;
  std::uint32_t owner_a;
  std::uint32_t owner_b;
};
static_assert(sizeof(BlockHeader) == 20);

bool IsAnimatable(const ParamDef& pd) {
  return (pd.flags & P_ANIMATABLE) != 0 && KindCanAnimate(ParamKind(pd.type));
}

bool HoldsReference(const ParamDef& pd) {
  const PBKind kind = ParamKind(pd.type);
  return (kind == PBKind::kNode || kind == PBKind::kRefTarg) && (pd.flags & P_NO_REF) == 0;
}

bool IsWeakTarget(const ParamDef& pd) {
  const PBKind kind = ParamKind(pd.type);
  return (kind == PBKind::kNode || kind == PBKind::kRefTarg) && (pd.flags & P_NO_REF) != 0;
}

// Bytes of one entry of a fixed-size kind; 0 for strings (variable) and referenced targets.
size_t FixedBytes(const ParamDef& pd) {
  switch (ParamKind(pd.type)) {
    case PBKind::kInt:
    case PBKind::kFloat:
      return 4;
    case PBKind::kPoint3:
      return 12;
    case PBKind::kPoint4:
      return 16;
    case PBKind::kMatrix3:
      return kMatrix3FileBytes;
    case PBKind::kNode:
    case PBKind::kRefTarg:
      return HoldsReference(pd) ? 0 : 4;
    default:
      return 0;
  }
}

template <typename T>
void Put(std::vector<std::uint8_t>& out, const T& v) {
  const auto* p = reinterpret_cast<const std::uint8_t*>(&v);
  out.insert(out.end(), p, p + sizeof(T));
}

// Reads values from the bytes of one parameter chunk; every read is bounds-checked.
class Cursor {
 public:
  explicit Cursor(const std::vector<std::uint8_t>& bytes) : bytes_(bytes) {}
  template <typename T>
  bool Get(T& v) {
    return GetBytes(&v, sizeof(T));
  }
  bool GetBytes(void* out, size_t n) {
    if (bytes_.size() - pos_ < n) return false;
    if (n > 0) std::memcpy(out, bytes_.data() + pos_, n);
    pos_ += n;
    return true;
  }
  bool GetText(std::string& text) {
    std::uint32_t n = 0;
    if (!Get(n) || bytes_.size() - pos_ < n) return false;
    text.assign(reinterpret_cast<const char*>(bytes_.data() + pos_), n);
    pos_ += n;
    return true;
  }
  size_t Left() const { return bytes_.size() - pos_; }

 private:
  const std::vector<std::uint8_t>& bytes_;
  size_t pos_ = 0;
};

IOResult Damaged(const char* what) {
  LogLine(std::string("Marvolith: a parameter block could not be read: ") + what + "\n");
  return IO_ERROR;
}

// The descriptor of a block made for loading, until Load finds the real one: no parameters.
ParamBlockDesc2& UnloadedDesc() {
  static ParamBlockDesc2 desc(-1, "", 0, nullptr, 0, {});
  return desc;
}

}  // namespace

// Completes a loaded block once every object of the file exists: P_NO_REF entries take their
// targets by handle, and a block without an owner takes the dependent of its descriptor's class.
class ParamBlockLoadPatch : public PostLoadCallback {
 public:
  struct WeakSlot {
    ParamID id;
    int entry;
    void* target = nullptr;  // set by the loader's back-patching
  };

  ParamBlockLoadPatch(IParamBlock2* pb, size_t weak_count)
      : block_(Animatable::GetHandleByAnim(pb)), weak_(weak_count) {}

  // Sized once at construction: the loader keeps pointers into it.
  std::vector<WeakSlot>& Slots() { return weak_; }

  void proc(ILoad*) override {
    auto* pb = static_cast<IParamBlock2*>(Animatable::GetAnimByHandle(block_));
    if (!pb) return;
    for (const WeakSlot& slot : weak_) {
      auto* target = static_cast<ReferenceTarget*>(slot.target);
      const int pi = pb->desc_->IDtoIndex(slot.id);
      if (!target || pi < 0 || !IsWeakTarget(*pb->Def(pi))) continue;
      auto& entries = pb->params_[static_cast<size_t>(pi)];
      if (slot.entry < 0 || static_cast<size_t>(slot.entry) >= entries.size()) continue;
      // A node parameter only ever holds nodes, whatever the file says.
      if (ParamKind(pb->Def(pi)->type) == PBKind::kNode &&
          target->SuperClassID() != BASENODE_CLASS_ID)
        continue;
      entries[static_cast<size_t>(slot.entry)].value = Animatable::GetHandleByAnim(target);
    }
    if (!pb->GetOwner()) pb->SetOwner(FindOwner(pb));
    pb->WatchWeakTargets();
  }

 private:
  static ReferenceMaker* FindOwner(IParamBlock2* pb) {
    ClassDesc2* cd = pb->desc_->cd;
    if (!cd) return nullptr;
    DependentIterator it(pb);
    while (ReferenceMaker* maker = it.Next()) {
      if (maker->SuperClassID() == cd->SuperClassID() && maker->ClassID() == cd->ClassID())
        return maker;
    }
    return nullptr;
  }

  AnimHandle block_;
  std::vector<WeakSlot> weak_;
};

class ParamBlock2ClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool loading) override {
    // A block without its descriptor means nothing except as the target of Load.
    return loading ? new IParamBlock2(&UnloadedDesc(), nullptr) : nullptr;
  }
  const char* ClassName() override { return "ParamBlock2"; }
  const char* InternalName() override { return "ParamBlock2"; }
  SClass_ID SuperClassID() override { return PARAMETER_BLOCK2_CLASS_ID; }
  Class_ID ClassID() override { return Class_ID(0x00000082, 0); }
  const char* Category() override { return ""; }
};

void RegisterParamBlockClasses() {
  static ParamBlock2ClassDesc desc;
  ClassDirectory::Get().AddClass(&desc);
}

IOResult IParamBlock2::Save(ISave* isave) {
  BlockHeader header{desc_->ID, desc_->version, 0, 0, 0};
  if (ClassDesc2* cd = desc_->cd) {
    header.owner_sclass = cd->SuperClassID();
    header.owner_a = cd->ClassID().PartA();
    header.owner_b = cd->ClassID().PartB();
  }
  if (SaveChunk(isave, kHeaderChunk, header) != IO_OK) return IO_ERROR;

  std::vector<std::uint8_t> bytes;
  for (int pi = 0; pi < NumParams(); ++pi) {
    const ParamDef& pd = *Def(pi);
    if (pd.flags & P_TRANSIENT) continue;
    const auto& entries = params_[static_cast<size_t>(pi)];
    bytes.clear();
    Put(bytes, static_cast<std::int32_t>(pd.ID));
    Put(bytes, static_cast<std::int32_t>(pd.type));
    Put(bytes, static_cast<std::int32_t>(entries.size()));
    for (const Entry& entry : entries) {
      const PBStoredValue& v = entry.value;
      switch (ParamKind(pd.type)) {
        case PBKind::kInt:
          Put(bytes, static_cast<std::int32_t>(std::get<int>(v)));
          break;
        case PBKind::kFloat:
          Put(bytes, std::get<float>(v));
          break;
        case PBKind::kPoint3:
          Put(bytes, std::get<Point3>(v));
          break;
        case PBKind::kPoint4:
          Put(bytes, std::get<Point4>(v));
          break;
        case PBKind::kMatrix3: {
          std::array<std::byte, kMatrix3FileBytes> m{};
          std::get<Matrix3>(v).WriteBytes(m);
          Put(bytes, m);
          break;
        }
        case PBKind::kString: {
          const std::string& text = std::get<std::string>(v);
          Put(bytes, static_cast<std::uint32_t>(text.size()));
          bytes.insert(bytes.end(), text.begin(), text.end());
          break;
        }
        case PBKind::kNode:
        case PBKind::kRefTarg:
          if (!HoldsReference(pd)) {
            const auto* h = std::get_if<AnimHandle>(&v);
            auto* target = h ? static_cast<ReferenceTarget*>(GetAnimByHandle(*h)) : nullptr;
            Put(bytes, static_cast<std::int32_t>(target ? isave->GetRefID(target) : -1));
          }
          break;
        case PBKind::kNone:
          break;
      }
    }
    ULONG written = 0;
    isave->BeginChunk(kParamChunk);
    const IOResult res = isave->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
    isave->EndChunk();
    if (res != IO_OK || written != bytes.size()) return IO_ERROR;
  }
  return IO_OK;
}

IOResult IParamBlock2::Load(ILoad* iload) {
  HoldSuspend loading_is_not_undoable;
  bool have_header = false;
  // P_NO_REF entries to patch once the file is linked: parameter, entry, scene number.
  struct Weak {
    ParamID id;
    int entry;
    std::int32_t ref_id;
  };
  std::vector<Weak> weak;
  std::vector<std::uint8_t> bytes;

  // Every parameter back at its default; a damaged file leaves the block so.
  auto reset = [this] {
    for (int slot = 0; slot < NumRefs(); ++slot) {
      if (GetReference(slot)) ReplaceReference(slot, nullptr);
    }
    params_.assign(static_cast<size_t>(desc_->Count()), {});
    for (int pi = 0; pi < desc_->Count(); ++pi) {
      const ParamDef& pd = *Def(pi);
      params_[static_cast<size_t>(pi)].assign(
          static_cast<size_t>(IsParamTypeTab(pd.type) ? pd.tab_size : 1), NewEntry(pi));
    }
    RebuildMaps();
  };
  auto fail = [&](const char* what) {
    reset();
    return Damaged(what);
  };

  IOResult res;
  while ((res = iload->OpenChunk()) == IO_OK) {
    const USHORT chunk = iload->CurChunkID();
    if (chunk == kHeaderChunk) {
      BlockHeader header{};
      if (have_header || LoadValue(iload, header) != IO_OK) return fail("its header is damaged.");
      if (desc_ == &UnloadedDesc()) {
        ClassDesc2* cd = ClassDirectory::Get().FindClass(header.owner_sclass,
                                                         Class_ID(header.owner_a, header.owner_b));
        ParamBlockDesc2* desc =
            cd ? cd->GetParamBlockDescByID(static_cast<BlockID>(header.block_id)) : nullptr;
        if (!desc || desc->ID != header.block_id)
          return fail("its owner class and block id name no known parameter block.");
        desc_ = desc;
      } else if (header.block_id != desc_->ID) {
        return fail("the file holds a block of another id.");
      }
      have_header = true;
      reset();
    } else if (chunk == kParamChunk) {
      if (!have_header) return fail("a parameter comes before the header.");
      bytes.resize(iload->CurChunkLength());
      ULONG read = 0;
      if (!bytes.empty() &&
          (iload->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read) != IO_OK ||
           read != bytes.size()))
        return fail("a parameter chunk is truncated.");
      Cursor in(bytes);
      std::int32_t id = 0, type = 0, count = 0;
      if (!in.Get(id) || !in.Get(type) || !in.Get(count) || count < 0)
        return fail("a parameter chunk has a damaged header.");
      if (count > kMaxLoadedEntries) return fail("a parameter table is too long.");
      const int pi = id >= INT16_MIN && id <= INT16_MAX ? IDtoIndex(static_cast<ParamID>(id)) : -1;
      // A parameter this version does not have, one of another kind, or a transient one is
      // passed over; it keeps its default.
      bool skip = pi < 0;
      if (!skip && (ParamKind(type) != ParamKind(Def(pi)->type) ||
                    IsParamTypeTab(type) != IsParamTypeTab(Def(pi)->type))) {
        LogLine(
            "Marvolith: a parameter of another type in a file was skipped; it keeps its "
            "default.\n");
        skip = true;
      }
      if (skip || (Def(pi)->flags & P_TRANSIENT)) {
        if (iload->CloseChunk() != IO_OK) return fail("a chunk could not be closed.");
        continue;
      }
      const ParamDef& pd = *Def(pi);
      if (!IsParamTypeTab(pd.type) && count != 1)
        return fail("a plain parameter has a count other than 1.");
      const size_t fixed = FixedBytes(pd);
      const PBKind kind = ParamKind(pd.type);
      if (kind != PBKind::kString && in.Left() != fixed * static_cast<size_t>(count))
        return fail("a parameter chunk has the wrong size.");
      std::vector<Entry> entries(static_cast<size_t>(count), NewEntry(pi));
      std::vector<Weak> weak_here;
      for (int e = 0; e < count; ++e) {
        PBStoredValue& v = entries[static_cast<size_t>(e)].value;
        switch (kind) {
          case PBKind::kInt: {
            std::int32_t x = 0;
            in.Get(x);
            v = static_cast<int>(x);
            break;
          }
          case PBKind::kFloat: {
            float x = 0;
            in.Get(x);
            v = x;
            break;
          }
          case PBKind::kPoint3: {
            Point3 x;
            in.Get(x);
            v = x;
            break;
          }
          case PBKind::kPoint4: {
            Point4 x;
            in.Get(x);
            v = x;
            break;
          }
          case PBKind::kMatrix3: {
            std::array<std::byte, kMatrix3FileBytes> m{};
            in.Get(m);
            Matrix3 x;
            x.ReadBytes(m);
            v = x;
            break;
          }
          case PBKind::kString: {
            std::string text;
            if (!in.GetText(text)) return fail("a string parameter is truncated.");
            v = std::move(text);
            break;
          }
          case PBKind::kNode:
          case PBKind::kRefTarg:
            if (!HoldsReference(pd)) {
              std::int32_t ref_id = -1;
              in.Get(ref_id);
              v = AnimHandle{0};
              if (ref_id >= 0) weak_here.push_back({pd.ID, e, ref_id});
            } else {
              v = static_cast<ReferenceTarget*>(nullptr);
            }
            break;
          case PBKind::kNone:
            break;
        }
      }
      if (in.Left() != 0) return fail("a string table has bytes left over.");
      // Replace the entries, dropping the references of earlier ones (a repeated parameter).
      const int first = ref_base_[static_cast<size_t>(pi)];
      const int old_slots = ref_base_[static_cast<size_t>(pi) + 1] - first;
      for (int s = 0; s < old_slots; ++s) {
        if (GetReference(first + s)) ReplaceReference(first + s, nullptr);
      }
      std::erase_if(weak, [&](const Weak& w) { return w.id == pd.ID; });
      weak.insert(weak.end(), weak_here.begin(), weak_here.end());
      params_[static_cast<size_t>(pi)] = std::move(entries);
      RebuildMaps();
    }
    if (iload->CloseChunk() != IO_OK) return fail("a chunk could not be closed.");
  }
  if (res != IO_END) return fail("the chunks are damaged.");
  if (!have_header) return fail("it has no header.");

  auto* patch = new ParamBlockLoadPatch(this, weak.size());
  for (size_t i = 0; i < weak.size(); ++i) {
    patch->Slots()[i].id = weak[i].id;
    patch->Slots()[i].entry = weak[i].entry;
    iload->RecordBackpatch(weak[i].ref_id, &patch->Slots()[i].target);
  }
  iload->RegisterPostLoadCallback(patch);
  return IO_OK;
}

void* IParamBlock2::GetInterface(ULONG id) {
  if (id == I_REFSLOTCHECK) return static_cast<IRefSlotCheck*>(this);
  return ReferenceTarget::GetInterface(id);
}

bool IParamBlock2::CanReferenceAt(int i, ReferenceTarget* target) {
  int pi = 0, e = 0;
  if (!target || !SlotToEntry(i, pi, e)) return false;
  const ParamDef& pd = *Def(pi);
  if (IsAnimatable(pd)) {
    switch (ParamKind(pd.type)) {
      case PBKind::kFloat:
        return target->SuperClassID() == CTRL_FLOAT_CLASS_ID;
      case PBKind::kPoint3:
        return target->SuperClassID() == CTRL_POINT3_CLASS_ID;
      case PBKind::kPoint4:
        return target->SuperClassID() == CTRL_POINT4_CLASS_ID;
      default:
        return false;
    }
  }
  if (ParamKind(pd.type) == PBKind::kNode) return target->SuperClassID() == BASENODE_CLASS_ID;
  return true;
}
