// Copyright Marvolith contributors.
// A scene per test with IKFKLink and IKFKDisplayMod registered, and a transform controller that
// holds a link the way the goal of a chain does: the link's matrix is the parent of a local
// transform track.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "chains/ikfk_display_mod.h"
#include "chains/ikfk_link.h"
#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/controllers/controller_classes.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "plugin/strings.h"
#include "tests/support/math_matchers.h"
#include "tests/support/scene_checks.h"
#include "tests/support/scene_objects.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {

/// Transform controller with an IKFKLink (reference 0) over a local track (reference 1, the
/// host's default transform controller): world = local * link, or local * parent while the link
/// has no links. Writes and ChangeParents go to the local track under the link's matrix.
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
  void GetClassName(MSTR& s, bool = true) const override { s = "Linked Transform"; }
  int NumRefs() override { return 2; }
  RefTargetHandle GetReference(int i) override {
    return i == 0 ? static_cast<RefTargetHandle>(link_) : i == 1 ? local_ : nullptr;
  }
  int NumSubs() override { return 2; }
  Animatable* SubAnim(int i) override { return GetReference(i); }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }

  void GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) override {
    auto* tm = static_cast<Matrix3*>(val);
    if (link_) link_->Evaluate(t, *tm, valid);
    if (local_) local_->GetValue(t, tm, valid, CTRL_RELATIVE);
  }
  void SetValue(TimeValue t, void* val, int commit, GetSetMethod method) override {
    if (!local_) return;
    SetXFormPacket pk = *static_cast<SetXFormPacket*>(val);
    Interval ignored = FOREVER;
    if (link_) link_->Evaluate(t, pk.tmParent, ignored);
    local_->SetValue(t, &pk, commit, method);
  }
  bool ChangeParents(TimeValue t,
                     const Matrix3& old_parent,
                     const Matrix3& new_parent,
                     const Matrix3& tm) override {
    return local_ && local_->ChangeParents(t, old_parent, new_parent, tm);
  }

  IOResult Save(ISave*) override { return IO_OK; }
  IOResult Load(ILoad*) override { return IO_OK; }
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

class LinkedTransformClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool loading) override { return new LinkedTransform(loading); }
  const char* ClassName() override { return "Linked Transform"; }
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  Class_ID ClassID() override { return LinkedTransform::kClassID; }
  const char* Category() override { return "Test"; }
};

/// Ticks per frame at the default frame rate.
inline constexpr TimeValue kFrame = 160;

class IKFKLinkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    RegisterSceneTestClasses();
    instance_ = GetModuleInstance();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    static LinkedTransformClassDesc linked_cd;
    for (ClassDesc2* cd :
         {GetIKFKLinkDesc(), GetIKFKDisplayModDesc(), static_cast<ClassDesc2*>(&linked_cd)}) {
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    }
    GetCOREInterface()->Reset();
    ASSERT_EQ(GetCOREInterface()->GetTicksPerFrame(), kFrame);
  }
  void TearDown() override {
    AnimateOff();
    GetCOREInterface()->Reset();
    theHold.Clear();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    SetModuleInstance(instance_);
  }

  /// A plain node at world transform tm.
  static INode* Node(const char* name, const Matrix3& tm = Matrix3()) {
    INode* node = GetCOREInterface()->CreateObjectNode(nullptr, name);
    node->SetNodeTM(0, tm);
    return node;
  }
  /// A node whose TestTransform moves it linearly from `from` (frame 0) to `to` (frame 100).
  static INode* MovingNode(const char* name,
                           const Point3& from,
                           const Point3& to,
                           float turn_to = 0.0f) {
    INode* node = GetCOREInterface()->CreateObjectNode(nullptr, name);
    auto* c = new TestTransform;
    node->SetTMController(c);
    c->AddKey(0, from, 0.0f);
    c->AddKey(100 * kFrame, to, turn_to);
    return node;
  }
  /// A node on a LinkedTransform, with local transform `local` under its links.
  static INode* Owner(const char* name, const Matrix3& local) {
    INode* node = GetCOREInterface()->CreateObjectNode(nullptr, name);
    auto* c = new LinkedTransform;
    node->SetTMController(c);
    SetXFormPacket pk(local, Matrix3());
    c->SetValue(0, &pk, 1, CTRL_RELATIVE);
    return node;
  }
  static IKFKLink* LinkOf(INode* owner) {
    return static_cast<LinkedTransform*>(owner->GetTMController())->Link();
  }

  template <typename F>
  static void Undoable(const char* name, F&& edit) {
    theHold.Begin();
    edit();
    theHold.Accept(name);
  }

  /// Saves the scene, loads it back and saves again: both files must be the same bytes.
  static void RoundTrip() {
    std::vector<std::uint8_t> first, second;
    std::string error;
    ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
    ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
    ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
    EXPECT_EQ(first, second);
  }

 private:
  std::vector<ClassDesc2*> added_;
  HINSTANCE instance_ = nullptr;
};

/// A transform with a turn about Z and a position, to tell matrices apart.
inline Matrix3 Pose(float turn_z, const Point3& pos) {
  Matrix3 m = RotateZMatrix(turn_z);
  m.SetTrans(pos);
  return m;
}

}  // namespace marvolith::test
