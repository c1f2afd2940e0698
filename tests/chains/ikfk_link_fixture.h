// Copyright Marvolith contributors.
// A scene per test with IKFKLink and IKFKDisplayMod registered, and a transform controller that
// holds a link as a chain's goal does: the link's matrix is the parent of a local track.
#pragma once

#include "chains/ikfk_display_mod.h"
#include "chains/ikfk_link.h"
#include "host/controllers/controller_classes.h"
#include "tests/chains/chain_scene_fixture.h"

namespace marvolith::test {

/// Ticks per frame at the default frame rate.
inline constexpr TimeValue kFrame = 160;

/// world = local * link (local * parent while the link has no links); reference 0 the link,
/// 1 the host's default transform as the local track, which takes writes and ChangeParents.
class LinkedTransform : public Control {
 public:
  static constexpr Class_ID kClassID{0x7e57, 0x1a0};
  explicit LinkedTransform(bool loading = false) {
    if (loading) return;
    ReplaceReference(0, new IKFKLink);
    ReplaceReference(1, NewDefaultMatrix3Controller());
  }
  IKFKLink* Link() { return link_; }
  Class_ID ClassID() override { return kClassID; }
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  int NumRefs() override { return 2; }
  RefTargetHandle GetReference(int i) override {
    return i == 0 ? static_cast<RefTargetHandle>(link_) : i == 1 ? local_ : nullptr;
  }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  void GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) override {
    auto* tm = static_cast<Matrix3*>(val);
    if (link_) link_->Evaluate(t, *tm, valid);
    if (local_) local_->GetValue(t, tm, valid, CTRL_RELATIVE);
  }
  void SetValue(TimeValue t, void* val, int commit, GetSetMethod method) override {
    SetXFormPacket pk = *static_cast<SetXFormPacket*>(val);
    Interval ignored = FOREVER;
    if (link_) link_->Evaluate(t, pk.tmParent, ignored);
    if (local_) local_->SetValue(t, &pk, commit, method);
  }
  bool ChangeParents(TimeValue t,
                     const Matrix3& old_parent,
                     const Matrix3& new_parent,
                     const Matrix3& tm) override {
    return local_ && local_->ChangeParents(t, old_parent, new_parent, tm);
  }
  RefTargetHandle Clone(RemapDir& remap) override {
    auto* c = new LinkedTransform(true);
    c->ReplaceReference(0, remap.CloneRef(link_));
    c->ReplaceReference(1, remap.CloneRef(local_));
    BaseClone(this, c, remap);
    return c;
  }

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i == 0) link_ = dynamic_cast<IKFKLink*>(target);
    if (i == 1) local_ = dynamic_cast<Control*>(target);
  }

 private:
  IKFKLink* link_ = nullptr;
  Control* local_ = nullptr;
};

class LinkedTransformDesc : public TestClassDesc<LinkedTransform, CTRL_MATRIX3_CLASS_ID> {
 public:
  Animatable* Create(bool loading) override { return new LinkedTransform(loading); }
};

inline ClassDesc2& LinkedCD() {
  static LinkedTransformDesc cd;
  return cd;
}

class IKFKLinkTest : public ChainSceneTest {
 protected:
  IKFKLinkTest() : ChainSceneTest({GetIKFKLinkDesc(), GetIKFKDisplayModDesc(), &LinkedCD()}) {}

  /// A node moving linearly from `from` at frame 0 to `to` at frame 100, turning by turn_z.
  static INode* MovingNode(const char* name, const Point3& from, const Point3& to, float turn_z) {
    INode* node = GetCOREInterface()->CreateObjectNode(nullptr, name);
    auto* c = new TestTransform;
    node->SetTMController(c);
    c->AddKey(0, from, 0.0f);
    c->AddKey(100 * kFrame, to, turn_z);
    return node;
  }
  /// A node on a LinkedTransform whose local track holds `local`.
  static INode* Owner(const Matrix3& local) {
    INode* node = GetCOREInterface()->CreateObjectNode(nullptr, "owner");
    node->SetTMController(new LinkedTransform);
    node->SetNodeTM(0, local);
    return node;
  }
  static IKFKLink* LinkOf(INode* owner) {
    return static_cast<LinkedTransform*>(owner->GetTMController())->Link();
  }
  /// The world transform evaluated afresh.
  static Matrix3 World(INode* n, TimeValue t) {
    n->InvalidateTM();
    return n->GetNodeTM(t);
  }
};

/// A turn about Z and a position, to tell matrices apart.
inline Matrix3 Pose(float turn_z, const Point3& pos) {
  Matrix3 m = RotateZMatrix(turn_z);
  m.SetTrans(pos);
  return m;
}

}  // namespace marvolith::test
