// Copyright Marvolith contributors.
// A scene per test with the layer stack classes registered, a dependent that records what a stack
// tells it, and a modifier that keeps a stack in a node's scene so that it is saved with it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/object.h"
#include "host/undo/hold.h"
#include "layers/animation_layers.h"
#include "plugin/strings.h"
#include "tests/support/scene_objects.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {

/// Stands where a layered controller stands: reference 0 is the stack. It records every message,
/// its part id and, for the private messages, the name of that layer at that moment; it answers
/// the private messages with REF_STOP as a controller does.
class LayerMessageRecorder : public ReferenceTarget {
 public:
  struct Heard {
    RefMessage message;
    PartID part;
    std::string name;  ///< layer `part` of the stack when the message came
  };

  Class_ID ClassID() override { return Class_ID(0x7e57, 0x1a1); }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? layers_ : nullptr; }
  RefResult NotifyRefChanged(
      const Interval&, RefTargetHandle, PartID& part, RefMessage message, bool) override {
    AnimationLayers* layers = AsAnimationLayers(layers_);
    const bool own = IsPrivate(message) && layers;
    heard.push_back({message, part, own ? layers->GetLayerName(static_cast<int>(part)) : ""});
    return IsPrivate(message) ? REF_STOP : REF_SUCCEED;
  }
  static bool IsPrivate(RefMessage m) {
    return m >= kLayerAddedAdjustmentMsg && m <= kLayersResetMsg;
  }
  /// The private messages heard, in order, with their part ids.
  std::vector<Heard> Private() const {
    std::vector<Heard> out;
    for (const Heard& h : heard) {
      if (IsPrivate(h.message)) out.push_back(h);
    }
    return out;
  }
  std::vector<Heard> heard;

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i == 0) layers_ = target;
  }

 private:
  RefTargetHandle layers_ = nullptr;
};

/// Keeps a stack (reference 0) and local weights (reference 1) on a node's modifier stack, as the
/// animation manager's modifier does, so that scene files carry them.
class LayersHolderMod : public Modifier {
 public:
  static constexpr Class_ID kClassID{0x7e57, 0x1a2};
  Class_ID ClassID() override { return kClassID; }
  void GetClassName(MSTR& s, bool = true) const override { s = "LayersHolderMod"; }
  int NumRefs() override { return 2; }
  RefTargetHandle GetReference(int i) override { return i >= 0 && i < 2 ? refs_[i] : nullptr; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  ChannelMask ChannelsChanged() override { return 0; }
  void ModifyObject(TimeValue, ModContext&, ObjectState*, INode*) override {}
  AnimationLayers* Layers() { return AsAnimationLayers(refs_[0]); }
  AnimLayersLocalWeights* Weights() { return AsLocalWeights(refs_[1]); }

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i >= 0 && i < 2) refs_[i] = target;
  }

 private:
  RefTargetHandle refs_[2] = {nullptr, nullptr};
};

class LayersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    RegisterSceneTestClasses();
    static TestClassDesc<LayersHolderMod, OSM_CLASS_ID> holder_cd;
    ClassDirectory::Get().AddClass(&holder_cd);
    instance_ = GetModuleInstance();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    for (ClassDesc2* cd : {GetAnimationLayersDesc(), GetAnimLayersLocalWeightsDesc()}) {
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    }
    GetCOREInterface()->Reset();
  }
  void TearDown() override {
    GetCOREInterface()->Reset();
    theHold.Clear();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    SetModuleInstance(instance_);
  }

  /// A new stack, kept until the end of the test.
  AnimationLayers* NewLayers() { return Keep(new AnimationLayers); }

  /// A node named name whose modifier keeps layers and weights (either may be null).
  static LayersHolderMod* HoldOnNode(const char* name,
                                     AnimationLayers* layers,
                                     AnimLayersLocalWeights* weights) {
    IDerivedObject* dob = CreateDerivedObject(new TestHelper);
    GetCOREInterface()->CreateObjectNode(dob, name);
    auto* holder = new LayersHolderMod;
    holder->ReplaceReference(0, layers);
    holder->ReplaceReference(1, weights);
    dob->AddModifier(holder);
    return holder;
  }

  /// The holder on the node named name, or null.
  static LayersHolderMod* HolderOf(const char* name) {
    INode* node = GetCOREInterface()->GetINodeByName(name);
    auto* dob = node ? dynamic_cast<IDerivedObject*>(node->GetObjectRef()) : nullptr;
    for (int i = 0, n = dob ? dob->NumModifiers() : 0; i < n; ++i) {
      if (auto* h = dynamic_cast<LayersHolderMod*>(dob->GetModifier(i))) return h;
    }
    return nullptr;
  }

  template <typename T>
  T* Keep(T* target) {
    return sweep_.Keep(target);
  }

  /// Runs edit inside an accepted hold.
  template <typename F>
  static void Undoable(const char* name, F&& edit) {
    theHold.Begin();
    edit();
    theHold.Accept(name);
  }

  /// The layer names, bottom first.
  static std::vector<std::string> Names(AnimationLayers* layers) {
    std::vector<std::string> names;
    for (int i = 0; i < layers->GetLayerCount(); ++i) names.push_back(layers->GetLayerName(i));
    return names;
  }

  /// The weight value of each layer at time 0.
  template <typename W>
  static std::vector<float> Weights(W* w, int count) {
    std::vector<float> values;
    for (int i = 0; i < count; ++i) {
      Interval valid = FOREVER;
      values.push_back(w->GetWeight(i, 0, valid));
    }
    return values;
  }

 private:
  SceneSweeper sweep_;
  std::vector<ClassDesc2*> added_;
  HINSTANCE instance_ = nullptr;
};

}  // namespace marvolith::test
