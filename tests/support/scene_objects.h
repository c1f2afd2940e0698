// Copyright Marvolith contributors.
// Small scene classes for host scene and file tests: a keyed transform controller that can follow
// another node, a helper object, a modifier and a custom attribute. All save, load and clone.
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include "host/core/control.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/scene/object.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "support/hold_record.h"

namespace marvolith::test {

/// Load of an object whose whole state is one float in chunk 1.
inline IOResult LoadFloatChunk(ILoad* iload, float& value) {
  return ForEachChunk(iload, [&](USHORT id) { return id == 1 ? LoadValue(iload, value) : IO_OK; });
}

/// Clone of an object whose whole state is the float member of T.
template <typename T>
T* CloneWithFloat(T* from, float T::*member, RemapDir& remap) {
  auto* c = new T;
  c->*member = from->*member;
  from->BaseClone(from, c, remap);
  return c;
}

/// A transform controller with linear keys of a position and a Z angle (constant outside the
/// keys), or one constant local transform without keys. With a target node in reference 0 it
/// places the node relative to the target instead of the parent (a minimal constraint).
class TestTransform : public Control {
 public:
  static constexpr Class_ID kClassID{0x7e57, 0x100};
  struct Key {
    TimeValue t;
    Point3 pos;
    float rot_z;
  };
  struct State {
    std::vector<Key> keys;
    Point3 pos;
    float rot_z = 0.0f;
  };

  Class_ID ClassID() override { return kClassID; }
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  void GetClassName(MSTR& s, bool = true) const override { s = "Test Transform"; }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? target_ : nullptr; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }

  void SetTarget(INode* node) { ReplaceReference(0, node); }
  void AddKey(TimeValue t, const Point3& pos, float rot_z) {
    Record();
    auto it = std::find_if(state_.keys.begin(), state_.keys.end(),
                           [t](const Key& k) { return k.t >= t; });
    if (it != state_.keys.end() && it->t == t) {
      *it = {t, pos, rot_z};
    } else {
      state_.keys.insert(it, {t, pos, rot_z});
    }
    NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  }
  const State& GetState() const { return state_; }
  /// The local transform without keys (undoable).
  void SetConstant(const Point3& pos, float rot_z) {
    Record();
    state_.pos = pos;
    state_.rot_z = rot_z;
    NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  }

  /// The local transform at t and the interval it holds over.
  Matrix3 Local(TimeValue t, Interval& valid) const {
    Point3 pos = state_.pos;
    float rot = state_.rot_z;
    const auto& k = state_.keys;
    if (!k.empty()) {
      if (t <= k.front().t) {
        pos = k.front().pos;
        rot = k.front().rot_z;
        valid &= Interval(TIME_NegInfinity, k.front().t);
      } else if (t >= k.back().t) {
        pos = k.back().pos;
        rot = k.back().rot_z;
        valid &= Interval(k.back().t, TIME_PosInfinity);
      } else {
        size_t i = 1;
        while (k[i].t < t) ++i;
        const float u = float(t - k[i - 1].t) / float(k[i].t - k[i - 1].t);
        pos = k[i - 1].pos + (k[i].pos - k[i - 1].pos) * u;
        rot = k[i - 1].rot_z + (k[i].rot_z - k[i - 1].rot_z) * u;
        valid &= Interval(t, t);
      }
    }
    Matrix3 m = RotateZMatrix(rot);
    m.SetTrans(pos);
    return m;
  }

  void GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) override {
    auto* tm = static_cast<Matrix3*>(val);
    if (target_) *tm = target_->GetNodeTM(t, &valid);
    if (weak_target) *tm = weak_target->GetNodeTM(t, &valid);
    *tm = Local(t, valid) * *tm;  // world = local * parent_ws
  }

  void SetValue(TimeValue t, void* val, int, GetSetMethod) override {
    auto* pk = static_cast<SetXFormPacket*>(val);
    Matrix3 parent = target_ ? target_->GetNodeTM(t) : pk->tmParent;
    Interval iv = FOREVER;
    Matrix3 world = Local(t, iv) * parent;
    switch (pk->command) {
      case XFORM_SET:
        world = pk->tmAxis;
        break;
      case XFORM_MOVE:
        world.Translate(VectorTransform(pk->tmAxis, pk->p));
        break;
      case XFORM_ROTATE: {
        Matrix3 axis = pk->tmAxis;
        if (pk->localOrigin) axis.SetTrans(world.GetTrans());
        Matrix3 rot;
        pk->q.MakeMatrix(rot);
        world = world * Inverse(axis) * rot * axis;
        break;
      }
      case XFORM_SCALE:
        return;
    }
    SetLocal(t, world * Inverse(parent));
  }

  bool ChangeParents(TimeValue t,
                     const Matrix3&,
                     const Matrix3& new_parent,
                     const Matrix3& tm) override {
    if (target_) return false;
    SetLocal(t, tm * Inverse(new_parent));
    return true;
  }

  IOResult Save(ISave* isave) override {
    SaveChunk(isave, 1, state_.pos);
    SaveChunk(isave, 2, state_.rot_z);
    for (const Key& k : state_.keys) SaveChunk(isave, 3, k);
    return IO_OK;
  }
  IOResult Load(ILoad* iload) override {
    return ForEachChunk(iload, [&](USHORT id) {
      switch (id) {
        case 1:
          return LoadValue(iload, state_.pos);
        case 2:
          return LoadValue(iload, state_.rot_z);
        case 3: {
          Key k{};
          const IOResult r = LoadValue(iload, k);
          if (r == IO_OK) state_.keys.push_back(k);
          return r;
        }
        default:
          return IO_OK;
      }
    });
  }
  RefTargetHandle Clone(RemapDir& remap) override {
    auto* c = new TestTransform;
    c->state_ = state_;
    c->ReplaceReference(0, remap.CloneRef(target_));
    BaseClone(this, c, remap);
    return c;
  }

 protected:
  void SetReference(int i, RefTargetHandle t) override {
    if (i == 0) target_ = dynamic_cast<INode*>(t);
  }

 private:
  class StateRestore : public RestoreObj {
   public:
    explicit StateRestore(TestTransform* c) : h_(GetHandleByAnim(c)), before_(c->state_) {}
    void Restore(int is_undo) override {
      if (auto* c = Find()) {
        if (is_undo) after_ = c->state_;
        c->Apply(before_);
      }
    }
    void Redo() override {
      if (auto* c = Find()) c->Apply(after_);
    }
    void EndHold() override {
      if (auto* c = Find()) c->ClearAFlag(A_HELD);
    }

   private:
    TestTransform* Find() { return static_cast<TestTransform*>(FindAnimIncludingDeleted(h_)); }
    AnimHandle h_;
    State before_, after_;
  };

  void Apply(const State& s) {
    state_ = s;
    NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  }
  void Record() {
    if (HoldWantsRecord(this)) theHold.Put(new StateRestore(this));
  }
  void SetLocal(TimeValue t, const Matrix3& local) {
    const Point3 pos = local.GetTrans();
    const float rot = std::atan2(local.GetRow(0).y, local.GetRow(0).x);
    if (Animating() || !state_.keys.empty()) {
      AddKey(t, pos, rot);
      return;
    }
    SetConstant(pos, rot);
  }

  State state_;
  INode* target_ = nullptr;

 public:
  /// A node read like the target but not referenced (as a weak pointer of a parameter block is):
  /// evaluation can then form a cycle that references could not.
  INode* weak_target = nullptr;
};

/// A point helper with a size; its box is a cube of that size.
class TestHelper : public HelperObject {
 public:
  static constexpr Class_ID kClassID{0x7e57, 0x101};
  Class_ID ClassID() override { return kClassID; }
  void GetClassName(MSTR& s, bool = true) const override { s = "TestHelper"; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  ObjectState Eval(TimeValue) override { return ObjectState(this); }
  Interval ObjectValidity(TimeValue) override { return validity; }
  void GetLocalBoundBox(TimeValue, INode*, ViewExp*, Box3& box) override {
    box = Box3(Point3(-size, -size, -size) * 0.5f, Point3(size, size, size) * 0.5f);
  }
  Object* MakeShallowCopy(ChannelMask) override {
    auto* copy = new TestHelper;
    copy->size = size;
    return copy;
  }
  IOResult Save(ISave* isave) override { return SaveChunk(isave, 1, size); }
  IOResult Load(ILoad* iload) override { return LoadFloatChunk(iload, size); }
  RefTargetHandle Clone(RemapDir& remap) override {
    return CloneWithFloat(this, &TestHelper::size, remap);
  }

  float size = 10.0f;
  Interval validity = FOREVER;
};

/// Multiplies a TestHelper's size by a factor; valid over a set interval.
class TestModifier : public Modifier {
 public:
  static constexpr Class_ID kClassID{0x7e57, 0x102};
  Class_ID ClassID() override { return kClassID; }
  void GetClassName(MSTR& s, bool = true) const override { s = "TestModifier"; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  ChannelMask ChannelsChanged() override { return GEOM_CHANNEL; }
  Interval LocalValidity(TimeValue) override { return validity; }
  void ModifyObject(TimeValue, ModContext&, ObjectState* os, INode* node) override {
    ++calls;
    last_node = node;
    if (auto* h = dynamic_cast<TestHelper*>(os->obj)) h->size *= factor;
  }
  void SetFactor(float f) {
    factor = f;
    NotifyDependents(FOREVER, PART_GEOM, REFMSG_CHANGE);
  }
  IOResult Save(ISave* isave) override { return SaveChunk(isave, 1, factor); }
  IOResult Load(ILoad* iload) override { return LoadFloatChunk(iload, factor); }
  RefTargetHandle Clone(RemapDir& remap) override {
    return CloneWithFloat(this, &TestModifier::factor, remap);
  }

  float factor = 2.0f;
  Interval validity = FOREVER;
  int calls = 0;
  INode* last_node = nullptr;
};

/// A custom attribute holding one float, and a weak (non-dependency) reference to a node that it
/// saves through the back-patch mechanism.
class TestAttrib : public CustAttrib {
 public:
  static constexpr Class_ID kClassID{0x7e57, 0x103};
  Class_ID ClassID() override { return kClassID; }
  void GetClassName(MSTR& s, bool = true) const override { s = "TestAttrib"; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  IOResult Save(ISave* isave) override {
    SaveChunk(isave, 1, value);
    return SaveChunk(isave, 2, isave->GetRefID(watched));
  }
  IOResult Load(ILoad* iload) override {
    return ForEachChunk(iload, [&](USHORT chunk) {
      if (chunk == 1) return LoadValue(iload, value);
      if (chunk != 2) return IO_OK;
      int id = -1;
      const IOResult r = LoadValue(iload, id);
      if (r == IO_OK) iload->RecordBackpatch(id, reinterpret_cast<void**>(&watched));
      return r;
    });
  }
  RefTargetHandle Clone(RemapDir& remap) override {
    auto* c = new TestAttrib;
    c->value = value;
    c->watched = watched;
    BaseClone(this, c, remap);
    return c;
  }

  float value = 0.0f;
  ReferenceTarget* watched = nullptr;
};

template <typename T, SClass_ID kSuper>
class TestClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool) override { return new T; }
  const char* ClassName() override { return "test class"; }
  SClass_ID SuperClassID() override { return kSuper; }
  Class_ID ClassID() override { return T::kClassID; }
  const char* Category() override { return "Test"; }
};

/// Registers the classes above (once).
inline void RegisterSceneTestClasses() {
  static TestClassDesc<TestTransform, CTRL_MATRIX3_CLASS_ID> transform;
  static TestClassDesc<TestHelper, HELPER_CLASS_ID> helper;
  static TestClassDesc<TestModifier, OSM_CLASS_ID> modifier;
  static TestClassDesc<TestAttrib, CUST_ATTRIB_CLASS_ID> attrib;
  ClassDirectory& dir = ClassDirectory::Get();
  dir.AddClass(&transform);
  dir.AddClass(&helper);
  dir.AddClass(&modifier);
  dir.AddClass(&attrib);
}

/// A node with a TestTransform at local position pos (and Z angle rot_z) under parent (the root
/// when null).
inline INode* MakeTestNode(const char* name,
                           INode* parent = nullptr,
                           Point3 pos = Point3(),
                           float rot_z = 0.0f) {
  Interface* ip = GetCOREInterface();
  INode* node = ip->CreateObjectNode(nullptr, name);
  auto* c = new TestTransform;
  node->SetTMController(c);
  c->SetConstant(pos, rot_z);
  if (parent) parent->AttachChild(node, 0);
  return node;
}

}  // namespace marvolith::test
