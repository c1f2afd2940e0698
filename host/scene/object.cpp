// Copyright Marvolith contributors.
#include "host/scene/object.h"

#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "support/hold_record.h"

void ObjectState::SetTM(const Matrix3* tm, Interval valid) {
  has_tm_ = tm != nullptr;
  if (tm) {
    tm_ = *tm;
    tm_valid_ = valid;
  } else {
    tm_ = Matrix3();
    tm_valid_ = FOREVER;
  }
}

void BaseObject::GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) {
  GetLocalBoundBox(t, inode, vpt, box);
  if (inode) box = box * inode->GetObjectTM(t);
}

void ShapeObject::BaseClone(ReferenceTarget* from, ReferenceTarget* to, RemapDir& remap) {
  auto* src = dynamic_cast<ShapeObject*>(from);
  auto* dst = dynamic_cast<ShapeObject*>(to);
  if (src && dst) {
    dst->renderable_ = src->renderable_;
    dst->disp_render_mesh_ = src->disp_render_mesh_;
  }
  GeomObject::BaseClone(from, to, remap);
}

ModContext::ModContext(const ModContext& other)
    : tm(other.tm ? new Matrix3(*other.tm) : nullptr),
      box(other.box ? new Box3(*other.box) : nullptr),
      localData(other.localData ? other.localData->Clone() : nullptr) {}

ModContext::~ModContext() {
  delete tm;
  delete box;
  delete localData;
}

// Undo of a modifier's stack name and enabled state; one record per hold.
class ModifierStateRestore : public RestoreObj {
 public:
  explicit ModifierStateRestore(Modifier* mod)
      : handle_(Animatable::GetHandleByAnim(mod)), name_(mod->name_), enabled_(mod->enabled_) {}
  void Restore(int is_undo) override {
    Modifier* mod = Find();
    if (!mod) return;
    if (is_undo) {
      redo_name_ = mod->name_;
      redo_enabled_ = mod->enabled_;
    }
    Apply(mod, name_, enabled_);
  }
  void Redo() override {
    if (Modifier* mod = Find()) Apply(mod, redo_name_, redo_enabled_);
  }
  void EndHold() override {
    if (Modifier* mod = Find()) mod->ClearAFlag(A_HELD);
  }
  MSTR Description() override { return "Modifier"; }

  static void Apply(Modifier* mod, const MSTR& name, bool enabled) {
    const bool renamed = name != mod->name_;
    const bool toggled = enabled != mod->enabled_;
    mod->name_ = name;
    mod->enabled_ = enabled;
    if (renamed) mod->NotifyDependents(FOREVER, PART_ALL, REFMSG_NODE_NAMECHANGE);
    if (toggled) mod->NotifyDependents(FOREVER, PART_ALL & ~PART_TM, REFMSG_CHANGE);
  }

 private:
  Modifier* Find() {
    return dynamic_cast<Modifier*>(Animatable::FindAnimIncludingDeleted(handle_));
  }
  AnimHandle handle_;
  MSTR name_;
  bool enabled_;
  MSTR redo_name_;
  bool redo_enabled_ = true;
};

void Modifier::SetEnabled(bool on) {
  if (on == enabled_) return;
  if (HoldWantsRecord(this)) theHold.Put(new ModifierStateRestore(this));
  ModifierStateRestore::Apply(this, name_, on);
}

MSTR Modifier::GetName(bool localized) { return name_.empty() ? GetObjectName(localized) : name_; }

void Modifier::SetName(const MSTR& name) {
  if (name == name_) return;
  if (HoldWantsRecord(this)) theHold.Put(new ModifierStateRestore(this));
  ModifierStateRestore::Apply(this, name, enabled_);
}

void Modifier::BaseClone(ReferenceTarget* from, ReferenceTarget* to, RemapDir& remap) {
  auto* src = dynamic_cast<Modifier*>(from);
  auto* dst = dynamic_cast<Modifier*>(to);
  if (src && dst) {
    dst->name_ = src->name_;
    dst->enabled_ = src->enabled_;
  }
  BaseObject::BaseClone(from, to, remap);
}
