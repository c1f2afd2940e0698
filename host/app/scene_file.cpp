// Copyright Marvolith contributors.
#include "host/app/scene_file.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "host/app/host_classes.h"
#include "host/app/internal/unknown_class.h"
#include "host/core/cust_attrib.h"
#include "host/core/diagnostics.h"
#include "host/core/weak_ref.h"
#include "host/io/chunk_stream.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/cust_attrib_container.h"
#include "host/scene/inode.h"
#include "host/scene/layer.h"
#include "host/scene/object.h"
#include "host/scene/scene.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "support/ref_slot_check.h"

namespace {
namespace hii = host_io_internal;

constexpr size_t kHeaderBytes = sizeof(kSceneFileMagic) + sizeof(std::uint32_t);

constexpr USHORT kClassTableChunk = 0x0001;
constexpr USHORT kClassChunk = 0x0002;
constexpr USHORT kObjectsChunk = 0x0010;
constexpr USHORT kObjectChunk = 0x0011;
constexpr USHORT kClassIndexChunk = 0x0012;
constexpr USHORT kRefsChunk = 0x0013;
constexpr USHORT kCustAttribChunk = 0x0014;
constexpr USHORT kBaseStateChunk = 0x0015;
constexpr USHORT kModNameChunk = 0x0016;
constexpr USHORT kModEnabledChunk = 0x0017;
constexpr USHORT kShapeFlagsChunk = 0x0018;
constexpr USHORT kIndirectRefsChunk = 0x0019;
constexpr USHORT kDataChunk = 0x0020;
constexpr USHORT kSceneChunk = 0x0030;
constexpr USHORT kRootChunk = 0x0031;
constexpr USHORT kLayerManagerChunk = 0x0032;
constexpr USHORT kChildOrderChunk = 0x0033;
constexpr USHORT kInterfaceChunk = 0x0034;
constexpr USHORT kSelectionChunk = 0x0035;

struct ClassKey {
  SClass_ID sclass;
  ULONG a;
  ULONG b;
  bool operator==(const ClassKey&) const = default;
};

struct InterfaceState {
  std::int32_t time;
  std::int32_t ticks_per_frame;
  std::int32_t range_start;
  std::int32_t range_end;
  std::int32_t coord_sys;
  std::int32_t pivot_mode;
};

MSTR Fail(std::string* error, const std::string& text) {
  std::string line = "Marvolith: " + text;
  LogLine(line + "\n");
  if (error) *error = line;
  return line;
}

std::string Hex(std::uint32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof(buf), "0x%x", v);
  return buf;
}

std::string ClassText(const ClassKey& k) {
  return "super class " + Hex(k.sclass) + ", class (" + Hex(k.a) + ", " + Hex(k.b) + ")";
}

// Appends the bytes of a trivially copyable value.
template <typename T>
void WriteRaw(ISave& s, const T& v) {
  ULONG written = 0;
  s.Write(&v, sizeof(T), &written);
}

// The weak references an object keeps outside its slots: its own, or a placeholder's.
IIndirectReferenceMaker* IndirectRefsOf(ReferenceTarget* obj) {
  if (hii::UnknownClassData* unknown = hii::AsUnknownClass(obj)) return &unknown->Weak();
  return static_cast<IIndirectReferenceMaker*>(obj->GetInterface(I_INDIRECT_REFMAKER));
}

// ---------------------------------------------------------------------------------------------
// Saving.

class SceneSaver : public ChunkWriter {
 public:
  int GetRefID(ReferenceTarget* target) override {
    auto it = ids_.find(target);
    return it == ids_.end() ? -1 : it->second;
  }

  // Numbers target and everything it holds, depth first.
  void Walk(ReferenceTarget* target) {
    std::vector<ReferenceTarget*> stack{target};
    // Explicit stack in reverse push order keeps the recursive order without deep recursion.
    while (!stack.empty()) {
      ReferenceTarget* t = stack.back();
      stack.pop_back();
      if (!t || t->TestAFlag(A_IS_DELETED) || ids_.count(t)) continue;
      ids_.emplace(t, static_cast<int>(objects_.size()));
      objects_.push_back(t);
      std::vector<ReferenceTarget*> next;
      for (int i = 0, n = t->NumRefs(); i < n; ++i) {
        RefTargetHandle r = t->GetReference(i);
        if (r && t->IsRealDependency(r)) next.push_back(r);
      }
      if (ICustAttribContainer* cc = t->GetCustAttribContainer()) next.push_back(cc);
      if (t->SuperClassID() == BASENODE_CLASS_ID) {
        if (auto* node = dynamic_cast<INode*>(t)) {
          for (int i = 0; i < node->NumberOfChildren(); ++i) next.push_back(node->GetChildNode(i));
        }
      }
      for (auto it = next.rbegin(); it != next.rend(); ++it) stack.push_back(*it);
    }
  }

  std::unordered_map<ReferenceTarget*, int> ids_;
  std::vector<ReferenceTarget*> objects_;
};

void SaveBaseState(SceneSaver& s, ReferenceTarget* obj) {
  if (hii::UnknownClassData* unknown = hii::AsUnknownClass(obj)) {
    if (!unknown->has_base_state) return;
    s.BeginChunk(kBaseStateChunk);
    (void)hii::ReplayChunk(&s, unknown->BaseState());
    s.EndChunk();
    return;
  }
  const SClass_ID sc = obj->SuperClassID();
  auto* mod = sc == OSM_CLASS_ID ? dynamic_cast<Modifier*>(obj) : nullptr;
  auto* shape = sc == SHAPE_CLASS_ID ? dynamic_cast<ShapeObject*>(obj) : nullptr;
  if (!mod && !shape) return;
  s.BeginChunk(kBaseStateChunk);
  if (mod) {
    s.BeginChunk(kModNameChunk);
    s.WriteWString(mod->GetSetName());
    s.EndChunk();
    std::uint8_t enabled = mod->IsEnabled() ? 1 : 0;
    SaveChunk(&s, kModEnabledChunk, enabled);
  }
  if (shape) {
    std::array<std::uint8_t, 2> flags{std::uint8_t(shape->GetRenderable() ? 1 : 0),
                                      std::uint8_t(shape->GetDispRenderMesh() ? 1 : 0)};
    SaveChunk(&s, kShapeFlagsChunk, flags);
  }
  s.EndChunk();
}

// ---------------------------------------------------------------------------------------------
// Loading.

class SceneLoader : public ChunkReader {
 public:
  using ChunkReader::ChunkReader;
  void RecordBackpatch(int ref_id, void** slot) override {
    if (slot) backpatches.emplace_back(ref_id, slot);
  }
  void RegisterPostLoadCallback(PostLoadCallback* cb) override {
    if (cb) callbacks.emplace_back(cb);
  }
  std::vector<std::pair<int, void**>> backpatches;
  std::vector<std::unique_ptr<PostLoadCallback>> callbacks;
};

struct LoadedObject {
  ReferenceTarget* obj = nullptr;
  AnimHandle handle = 0;
  std::vector<std::int32_t> refs;
  std::int32_t cust_attrib = -1;
  bool has_refs = false;
  std::vector<std::int32_t> indirect;  // weak references, set once every object exists
};

struct ChildOrder {
  std::int32_t parent;
  std::vector<std::int32_t> children;
};

// Everything a load builds before it may replace the open scene. On failure it frees what it
// made; on success it hands the scene over.
class LoadJob {
 public:
  LoadJob(std::span<const std::uint8_t> data,
          std::string* error,
          std::vector<std::string>* notes)
      : loader_(data.subspan(kHeaderBytes)), error_(error), notes_(notes) {}
  ~LoadJob() {
    if (!done_) FreeAll();
  }

  bool Run();

 private:
  bool Error(const std::string& text) {
    Fail(error_, text);
    return false;
  }
  bool Damaged() { return Error("the scene file is damaged or truncated."); }
  bool ReadClassTable();
  bool ReadObjects();
  bool ReadObject();
  bool ReadBaseState(ReferenceTarget* obj);
  /// Stands a placeholder in for the object being read, of class key, and says so once per class.
  void StandIn(const ClassKey& key, bool say = true);
  /// True for a parameter block held by a placeholder: its descriptor belongs to the missing
  /// class, so it is kept as read too.
  bool HeldByPlaceholder(int index) const;
  bool ReadScene();
  bool Link();
  bool Validate();
  void FreeAll();
  template <typename T>
  bool ReadValue(T& v) {
    return LoadValue(&loader_, v) == IO_OK;
  }
  bool ReadInts(std::vector<std::int32_t>& out) {
    const ULONG len = loader_.CurChunkLength();
    if (len % 4 != 0) return false;
    out.resize(len / 4);
    ULONG read = 0;
    return len == 0 || (loader_.Read(out.data(), len, &read) == IO_OK && read == len);
  }
  // A list written as its count followed by its entries: the entries, or false when the count
  // does not match.
  bool ReadCountedInts(std::vector<std::int32_t>& out) {
    std::vector<std::int32_t> v;
    if (!ReadInts(v) || v.empty() || v[0] < 0 || static_cast<size_t>(v[0]) != v.size() - 1)
      return false;
    out.assign(v.begin() + 1, v.end());
    return true;
  }
  ReferenceTarget* Obj(std::int32_t id) {
    return id >= 0 && id < static_cast<std::int32_t>(objects_.size())
               ? objects_[static_cast<size_t>(id)].obj
               : nullptr;
  }

  SceneLoader loader_;
  std::string* error_;
  std::vector<std::string>* notes_;
  std::vector<ClassKey> classes_;
  std::vector<LoadedObject> objects_;
  // Slots set by linking, undone before freeing after a failure.
  std::vector<std::pair<ReferenceTarget*, int>> linked_;
  std::vector<Animatable*> cc_owners_;
  std::int32_t root_id_ = -1;
  std::int32_t layers_id_ = -1;
  std::vector<ChildOrder> child_order_;
  bool have_interface_ = false;
  InterfaceState interface_{};
  std::vector<std::int32_t> selection_;
  std::vector<ClassKey> unknown_classes_;
  ClassKey class_key_{};  // class of the object being read
  bool done_ = false;
};

void LoadJob::StandIn(const ClassKey& key, bool say) {
  LoadedObject& lo = objects_.back();
  if (lo.obj) lo.obj->DeleteMe();
  class_key_ = key;
  lo.obj = hii::NewUnknownClassPlaceholder(key.sclass, Class_ID(key.a, key.b),
                                           static_cast<int>(lo.refs.size()));
  lo.handle = Animatable::GetHandleByAnim(lo.obj);
  if (!say || std::find(unknown_classes_.begin(), unknown_classes_.end(), key) != unknown_classes_.end())
    return;
  unknown_classes_.push_back(key);
  const std::string line = "Marvolith: the scene file holds objects of an unknown class (" +
                           ClassText(key) + "); they are kept as read and saved back unchanged.";
  LogLine(line + "\n");
  if (notes_) notes_->push_back(line);
}

bool LoadJob::HeldByPlaceholder(int index) const {
  for (const LoadedObject& lo : objects_) {
    if (!hii::AsUnknownClass(lo.obj)) continue;
    for (std::int32_t id : lo.refs) {
      if (id == index) return true;
    }
  }
  return false;
}

bool LoadJob::ReadClassTable() {
  IOResult res;
  while ((res = loader_.OpenChunk()) == IO_OK) {
    if (loader_.CurChunkID() == kClassChunk) {
      std::array<std::uint32_t, 3> v{};
      if (!ReadValue(v)) return Damaged();
      classes_.push_back({v[0], v[1], v[2]});
    }
    if (loader_.CloseChunk() != IO_OK) return Damaged();
  }
  return res == IO_END ? true : Damaged();
}

bool LoadJob::ReadBaseState(ReferenceTarget* obj) {
  auto* mod = obj->SuperClassID() == OSM_CLASS_ID ? dynamic_cast<Modifier*>(obj) : nullptr;
  auto* shape = obj->SuperClassID() == SHAPE_CLASS_ID ? dynamic_cast<ShapeObject*>(obj) : nullptr;
  IOResult res;
  while ((res = loader_.OpenChunk()) == IO_OK) {
    const USHORT id = loader_.CurChunkID();
    if (id == kModNameChunk && mod) {
      std::string name;
      if (loader_.ReadWStringChunk(name) != IO_OK) return Damaged();
      mod->SetName(name);
    } else if (id == kModEnabledChunk && mod) {
      std::uint8_t on = 1;
      if (!ReadValue(on)) return Damaged();
      mod->SetEnabled(on != 0);
    } else if (id == kShapeFlagsChunk && shape) {
      std::array<std::uint8_t, 2> flags{};
      if (!ReadValue(flags)) return Damaged();
      shape->SetRenderable(flags[0] != 0);
      shape->SetDispRenderMesh(flags[1] != 0);
    }
    if (loader_.CloseChunk() != IO_OK) return Damaged();
  }
  return res == IO_END ? true : Damaged();
}

bool LoadJob::ReadObject() {
  const int index = static_cast<int>(objects_.size());
  // The object read, once its class chunk was: always objects_.back(), registered at once so
  // that a failure below frees it.
  LoadedObject* lo = nullptr;
  IOResult res;
  while ((res = loader_.OpenChunk()) == IO_OK) {
    const USHORT id = loader_.CurChunkID();
    if (id == kClassIndexChunk) {
      std::uint32_t ci = 0;
      if (!ReadValue(ci) || lo) return Damaged();
      if (ci >= classes_.size()) return Damaged();
      const ClassKey& key = classes_[ci];
      objects_.emplace_back();
      lo = &objects_.back();
      ClassDesc2* cd = ClassDirectory::Get().FindClass(key.sclass, Class_ID(key.a, key.b));
      if (!cd) {
        StandIn(key);
      } else {
        Animatable* anim = cd->Create(true);
        lo->obj = dynamic_cast<ReferenceTarget*>(anim);
        if (!lo->obj) {
          objects_.pop_back();
          if (anim) anim->DeleteThis();
          return Error("the class " + ClassText(key) + " could not be created from the file.");
        }
        lo->handle = Animatable::GetHandleByAnim(lo->obj);
        class_key_ = key;
      }
    } else if (!lo) {
      return Damaged();  // the class comes first
    } else if (id == kRefsChunk) {
      if (!ReadCountedInts(lo->refs)) return Damaged();
      lo->has_refs = true;
      if (hii::UnknownClassData* unknown = hii::AsUnknownClass(lo->obj))
        unknown->SetSlotCount(static_cast<int>(lo->refs.size()));
    } else if (id == kIndirectRefsChunk) {
      if (!ReadCountedInts(lo->indirect)) return Damaged();
    } else if (id == kCustAttribChunk) {
      if (!ReadValue(lo->cust_attrib)) return Damaged();
    } else if (id == kBaseStateChunk) {
      if (hii::UnknownClassData* unknown = hii::AsUnknownClass(lo->obj)) {
        if (!hii::CaptureChunk(&loader_, unknown->BaseState())) return Damaged();
        unknown->has_base_state = true;
      } else if (!ReadBaseState(lo->obj)) {
        return false;
      }
    } else if (id == kDataChunk) {
      if (!hii::AsUnknownClass(lo->obj) && lo->obj->SuperClassID() == PARAMETER_BLOCK2_CLASS_ID &&
          HeldByPlaceholder(index)) {
        StandIn(class_key_, false);
      }
      if (hii::UnknownClassData* unknown = hii::AsUnknownClass(lo->obj)) {
        if (!hii::CaptureChunk(&loader_, unknown->Data())) return Damaged();
      } else {
        const int depth = loader_.Depth();
        IOResult lr = lo->obj->Load(&loader_);
        if (lr != IO_OK || !loader_.Ok() || loader_.Depth() < depth) {
          MSTR name = lo->obj->ClassName();
          return Error(
              "the data of object " + std::to_string(index) + " (" +
              (name.empty() ? std::string("class ") + Hex(lo->obj->ClassID().PartA()) : name) +
              ") could not be read.");
        }
        while (loader_.Depth() > depth) {
          if (loader_.CloseChunk() != IO_OK) return Damaged();
        }
      }
    }
    if (loader_.CloseChunk() != IO_OK) return Damaged();
  }
  if (res != IO_END || !lo) return Damaged();
  return true;
}

bool LoadJob::ReadObjects() {
  IOResult res;
  while ((res = loader_.OpenChunk()) == IO_OK) {
    if (loader_.CurChunkID() == kObjectChunk && !ReadObject()) return false;
    if (loader_.CloseChunk() != IO_OK) return Damaged();
  }
  return res == IO_END ? true : Damaged();
}

bool LoadJob::ReadScene() {
  IOResult res;
  while ((res = loader_.OpenChunk()) == IO_OK) {
    bool ok = true;
    switch (loader_.CurChunkID()) {
      case kRootChunk:
        ok = ReadValue(root_id_);
        break;
      case kLayerManagerChunk:
        ok = ReadValue(layers_id_);
        break;
      case kChildOrderChunk: {
        std::vector<std::int32_t> v;
        ok = ReadInts(v);
        for (size_t i = 0; ok && i < v.size();) {
          if (v.size() - i < 2 || v[i + 1] < 0 ||
              static_cast<size_t>(v[i + 1]) > v.size() - i - 2) {
            ok = false;
            break;
          }
          ChildOrder co{v[i], {}};
          co.children.assign(v.begin() + static_cast<std::ptrdiff_t>(i + 2),
                             v.begin() + static_cast<std::ptrdiff_t>(i + 2 + v[i + 1]));
          i += 2 + static_cast<size_t>(v[i + 1]);
          child_order_.push_back(std::move(co));
        }
        break;
      }
      case kInterfaceChunk:
        ok = ReadValue(interface_);
        have_interface_ = ok;
        break;
      case kSelectionChunk:
        ok = ReadInts(selection_);
        break;
      default:
        break;
    }
    if (!ok || loader_.CloseChunk() != IO_OK) return Damaged();
  }
  return res == IO_END ? true : Damaged();
}

bool LoadJob::Link() {
  const auto count = static_cast<std::int32_t>(objects_.size());
  for (LoadedObject& lo : objects_) {
    if (static_cast<int>(lo.refs.size()) > lo.obj->NumRefs()) return Damaged();
    auto* check = static_cast<IRefSlotCheck*>(lo.obj->GetInterface(I_REFSLOTCHECK));
    for (size_t i = 0; i < lo.refs.size(); ++i) {
      const std::int32_t id = lo.refs[i];
      if (id == -1) continue;
      if (id < 0 || id >= count) return Damaged();
      ReferenceTarget* target = Obj(id);
      const int slot = static_cast<int>(i);
      if (target == lo.obj || lo.obj->GetReference(slot) ||
          (check && !check->CanReferenceAt(slot, target)) ||
          !RefAccess::RelinkChecked(lo.obj, slot, target)) {
        return Error("the scene file links object " + std::to_string(id) +
                     " into a reference it cannot take.");
      }
      linked_.emplace_back(lo.obj, slot);
    }
  }
  for (LoadedObject& lo : objects_) {
    if (lo.cust_attrib == -1) continue;
    auto* cc = dynamic_cast<ICustAttribContainer*>(Obj(lo.cust_attrib));
    if (!cc || cc == lo.obj || cc->GetOwner() || !LinkCustAttribContainer(lo.obj, cc))
      return Error("the scene file gives an object a custom attribute container it cannot take.");
    cc_owners_.push_back(lo.obj);
  }
  for (auto& [id, slot] : loader_.backpatches) {
    if (id < -1 || id >= count) return Damaged();
    *slot = id == -1 ? nullptr : Obj(id);
  }
  // Weak references last: they do not make their targets part of the file, so a target that
  // was not saved for another reason comes back empty.
  for (LoadedObject& lo : objects_) {
    if (lo.indirect.empty()) continue;
    IIndirectReferenceMaker* irm = IndirectRefsOf(lo.obj);
    if (!irm) continue;  // the class no longer keeps weak references: nothing to restore
    // A placeholder keeps as many as the file gives.
    if (hii::UnknownClassData* unknown = hii::AsUnknownClass(lo.obj))
      unknown->Weak().SetWeakCount(0, static_cast<int>(lo.indirect.size()));
    for (size_t i = 0; i < lo.indirect.size(); ++i) {
      const std::int32_t id = lo.indirect[i];
      if (id < -1 || id >= count) return Damaged();
      if (id >= 0) irm->SetIndirectReference(static_cast<int>(i), Obj(id));
    }
  }
  return true;
}

bool LoadJob::Validate() {
  // A loop of references would make every message travel forever.
  enum : std::uint8_t { kNew, kOpen, kDone };
  std::unordered_map<ReferenceTarget*, std::uint8_t> state;
  for (LoadedObject& start : objects_) {
    if (state[start.obj] == kDone) continue;
    std::vector<std::pair<ReferenceTarget*, int>> stack{{start.obj, 0}};
    state[start.obj] = kOpen;
    while (!stack.empty()) {
      auto& [maker, next] = stack.back();
      if (next >= maker->NumRefs()) {
        state[maker] = kDone;
        stack.pop_back();
        continue;
      }
      RefTargetHandle r = maker->GetReference(next++);
      if (!r || !maker->IsRealDependency(r)) continue;
      std::uint8_t& s = state[r];
      if (s == kOpen) return Error("the scene file holds a loop of references.");
      if (s == kNew) {
        s = kOpen;
        stack.emplace_back(r, 0);
      }
    }
  }

  auto* root = dynamic_cast<INode*>(Obj(root_id_));
  auto* layers = dynamic_cast<ILayerManager*>(Obj(layers_id_));
  if (!root || !root->IsRootNode() || root->GetParentNode() || !layers ||
      layers->GetLayerCount() < 1 || !layers->GetLayer(0) ||
      layers->GetLayer(0)->GetName() != kDefaultLayerName)
    return Error("the scene file has no scene root or no default layer.");
  for (LoadedObject& lo : objects_) {
    auto* node =
        lo.obj->SuperClassID() == BASENODE_CLASS_ID ? dynamic_cast<INode*>(lo.obj) : nullptr;
    if (!node || node == root) continue;
    INode* top = node;
    while (top->GetParentNode()) top = top->GetParentNode();
    if (top != root || node->IsRootNode() || !node->GetNodeLayer())
      return Error("the scene file holds a node outside the scene's tree.");
  }
  for (ChildOrder& co : child_order_) {
    auto* parent = dynamic_cast<INode*>(Obj(co.parent));
    std::vector<INode*> kids;
    for (std::int32_t id : co.children) kids.push_back(dynamic_cast<INode*>(Obj(id)));
    if (!parent || !SetChildOrder(parent, kids))
      return Error("the scene file's node tree does not match its nodes.");
  }
  for (std::int32_t id : selection_) {
    if (!dynamic_cast<INode*>(Obj(id))) return Damaged();
  }
  if (have_interface_ &&
      (interface_.ticks_per_frame <= 0 || TIME_TICKSPERSEC % interface_.ticks_per_frame != 0 ||
       interface_.range_start > interface_.range_end))
    return Damaged();

  // Everything in the file must belong to the scene, so that nothing is left unowned and a
  // new save writes the same objects.
  SceneSaver walk;
  walk.Walk(root);
  walk.Walk(layers);
  if (walk.objects_.size() != objects_.size())
    return Error("the scene file holds objects that belong to no scene.");
  return true;
}

void LoadJob::FreeAll() {
  HoldSuspend suspend;
  loader_.callbacks.clear();
  for (Animatable* owner : cc_owners_) owner->SetCustAttribContainer(nullptr);
  for (auto& [maker, slot] : linked_) RefAccess::Relink(maker, slot, nullptr);
  // Objects the file made are now unlinked from each other; what each made for itself goes
  // with it.
  for (LoadedObject& lo : objects_) {
    auto* obj = dynamic_cast<ReferenceTarget*>(Animatable::FindAnimIncludingDeleted(lo.handle));
    if (obj && !obj->TestAFlag(A_IS_DELETED)) obj->DeleteMe();
  }
  objects_.clear();
}

bool LoadJob::Run() {
  HoldSuspend suspend;
  AnimateSuspend no_keys;
  RegisterHostClasses();
  bool have_classes = false, have_objects = false, have_scene = false;
  IOResult res;
  while ((res = loader_.OpenChunk()) == IO_OK) {
    switch (loader_.CurChunkID()) {
      case kClassTableChunk:
        if (have_classes || !ReadClassTable()) return have_classes ? Damaged() : false;
        have_classes = true;
        break;
      case kObjectsChunk:
        if (!have_classes || have_objects) return Damaged();
        if (!ReadObjects()) return false;
        have_objects = true;
        break;
      case kSceneChunk:
        if (have_scene || !ReadScene()) return have_scene ? Damaged() : false;
        have_scene = true;
        break;
      default:
        break;
    }
    if (loader_.CloseChunk() != IO_OK) return Damaged();
  }
  if (res != IO_END || !have_objects || !have_scene) return Damaged();
  if (!Link() || !Validate()) return false;

  auto* root = static_cast<INode*>(Obj(root_id_));
  auto* layers = static_cast<ILayerManager*>(Obj(layers_id_));
  for (auto& cb : loader_.callbacks) cb->proc(&loader_);
  loader_.callbacks.clear();
  std::vector<INode*> selection;
  for (std::int32_t id : selection_) selection.push_back(static_cast<INode*>(Obj(id)));

  // The file is good: it becomes the open scene.
  done_ = true;
  theHold.Clear();
  Scene staging;
  staging.Adopt(root, layers);
  Scene::Active().TakeContentOf(staging);
  theHold.Clear();
  Interface* ip = GetCOREInterface();
  if (have_interface_) {
    ip->SetFrameRate(TIME_TICKSPERSEC / interface_.ticks_per_frame);
    ip->SetAnimRange(Interval(interface_.range_start, interface_.range_end));
    ip->SetTime(interface_.time, false);
    ip->SetRefCoordSys(interface_.coord_sys);
    ip->SetPivotMode(interface_.pivot_mode);
  }
  ip->ClearNodeSelection(false);
  for (INode* node : selection) ip->SelectNode(node, false);
  return true;
}

bool ReadFile(const std::string& path, std::vector<std::uint8_t>& out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

}  // namespace

bool SaveSceneToBytes(std::vector<std::uint8_t>& out, std::string* error) {
  RegisterHostClasses();
  BroadcastNotification(NOTIFY_FILE_PRE_SAVE);
  Scene& scene = Scene::Active();
  SceneSaver s;
  s.Walk(scene.GetRootNode());
  s.Walk(scene.GetLayerManager());

  std::vector<ClassKey> classes;
  std::vector<std::uint32_t> class_of;
  for (ReferenceTarget* obj : s.objects_) {
    ClassKey key{obj->SuperClassID(), obj->ClassID().PartA(), obj->ClassID().PartB()};
    auto it = std::find(classes.begin(), classes.end(), key);
    class_of.push_back(static_cast<std::uint32_t>(it - classes.begin()));
    if (it == classes.end()) classes.push_back(key);
  }

  s.BeginChunk(kClassTableChunk);
  for (const ClassKey& key : classes) {
    std::array<std::uint32_t, 3> v{key.sclass, key.a, key.b};
    SaveChunk(&s, kClassChunk, v);
  }
  s.EndChunk();

  s.BeginChunk(kObjectsChunk);
  for (size_t i = 0; i < s.objects_.size(); ++i) {
    ReferenceTarget* obj = s.objects_[i];
    s.BeginChunk(kObjectChunk);
    SaveChunk(&s, kClassIndexChunk, class_of[i]);
    s.BeginChunk(kRefsChunk);
    const int n = obj->NumRefs();
    WriteRaw(s, static_cast<std::int32_t>(n));
    for (int r = 0; r < n; ++r)
      WriteRaw(s, static_cast<std::int32_t>(s.GetRefID(obj->GetReference(r))));
    s.EndChunk();
    if (IIndirectReferenceMaker* irm = IndirectRefsOf(obj)) {
      const int ni = irm->NumIndirectRefs();
      if (ni > 0) {
        s.BeginChunk(kIndirectRefsChunk);
        WriteRaw(s, static_cast<std::int32_t>(ni));
        for (int r = 0; r < ni; ++r) {
          RefTargetHandle t = irm->GetIndirectReference(r);
          const bool keep = t && irm->ShouldPersistIndirectRef(t);
          WriteRaw(s, static_cast<std::int32_t>(keep ? s.GetRefID(t) : -1));
        }
        s.EndChunk();
      }
    }
    if (ICustAttribContainer* cc = obj->GetCustAttribContainer())
      SaveChunk(&s, kCustAttribChunk, static_cast<std::int32_t>(s.GetRefID(cc)));
    SaveBaseState(s, obj);
    s.BeginChunk(kDataChunk);
    IOResult res = obj->Save(&s);
    s.EndChunk();
    s.EndChunk();
    if (res != IO_OK) {
      Fail(error,
           "object " + std::to_string(i) + " (" + obj->ClassName() + ") could not be saved.");
      return false;
    }
  }
  s.EndChunk();

  s.BeginChunk(kSceneChunk);
  SaveChunk(&s, kRootChunk, static_cast<std::int32_t>(s.GetRefID(scene.GetRootNode())));
  SaveChunk(&s, kLayerManagerChunk, static_cast<std::int32_t>(s.GetRefID(scene.GetLayerManager())));
  s.BeginChunk(kChildOrderChunk);
  for (ReferenceTarget* obj : s.objects_) {
    auto* node = obj->SuperClassID() == BASENODE_CLASS_ID ? dynamic_cast<INode*>(obj) : nullptr;
    if (!node || node->NumberOfChildren() == 0) continue;
    WriteRaw(s, static_cast<std::int32_t>(s.GetRefID(node)));
    WriteRaw(s, static_cast<std::int32_t>(node->NumberOfChildren()));
    for (int c = 0; c < node->NumberOfChildren(); ++c)
      WriteRaw(s, static_cast<std::int32_t>(s.GetRefID(node->GetChildNode(c))));
  }
  s.EndChunk();
  Interface* ip = GetCOREInterface();
  InterfaceState is{ip->GetTime(),
                    ip->GetTicksPerFrame(),
                    ip->GetAnimRange().Start(),
                    ip->GetAnimRange().End(),
                    ip->GetRefCoordSys(),
                    ip->GetPivotMode()};
  SaveChunk(&s, kInterfaceChunk, is);
  s.BeginChunk(kSelectionChunk);
  for (int i = 0; i < ip->GetSelNodeCount(); ++i) {
    std::int32_t id = s.GetRefID(ip->GetSelNode(i));
    if (id >= 0) WriteRaw(s, id);
  }
  s.EndChunk();
  s.EndChunk();

  if (!s.Ok()) {
    Fail(error, "an object of the scene wrote damaged chunks; the scene was not saved.");
    return false;
  }
  out.assign(kSceneFileMagic, kSceneFileMagic + sizeof(kSceneFileMagic));
  for (int i = 0; i < 4; ++i)
    out.push_back(static_cast<std::uint8_t>(kSceneFileVersion >> (8 * i)));
  out.insert(out.end(), s.Bytes().begin(), s.Bytes().end());
  BroadcastNotification(NOTIFY_FILE_POST_SAVE);
  return true;
}

bool SaveScene(const std::string& path, std::string* error) {
  std::vector<std::uint8_t> bytes;
  if (!SaveSceneToBytes(bytes, error)) return false;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (out)
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
  if (!out) {
    Fail(error, "could not write the scene file " + path + ".");
    return false;
  }
  return true;
}

bool LoadSceneFromBytes(std::span<const std::uint8_t> data,
                        std::string* error,
                        std::vector<std::string>* notes) {
  if (data.size() < kHeaderBytes ||
      std::memcmp(data.data(), kSceneFileMagic, sizeof(kSceneFileMagic)) != 0) {
    Fail(error, "this is not a Marvolith scene file.");
    return false;
  }
  std::uint32_t version = 0;
  for (int i = 0; i < 4; ++i) version |= std::uint32_t(data[8 + i]) << (8 * i);
  if (version == 0 || version > kSceneFileVersion) {
    Fail(error, "the scene file has version " + std::to_string(version) +
                    "; this build reads versions up to " + std::to_string(kSceneFileVersion) + ".");
    return false;
  }
  BroadcastNotification(NOTIFY_FILE_PRE_OPEN);
  LoadJob job(data, error, notes);
  if (!job.Run()) return false;
  BroadcastNotification(NOTIFY_FILE_POST_OPEN);
  return true;
}

bool LoadScene(const std::string& path, std::string* error, std::vector<std::string>* notes) {
  std::vector<std::uint8_t> bytes;
  if (!ReadFile(path, bytes)) {
    Fail(error, "could not open the scene file " + path + ".");
    return false;
  }
  return LoadSceneFromBytes(bytes, error, notes);
}
