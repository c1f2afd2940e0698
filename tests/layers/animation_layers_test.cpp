// Copyright Marvolith contributors.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "host/controllers/controller_classes.h"
#include "host/io/chunk_stream.h"
#include "tests/layers/layers_fixture.h"
#include "tests/support/controller_test_util.h"

namespace marvolith::test {
namespace {

namespace al = animation_layers;
using Strings = std::vector<std::string>;
using Floats = std::vector<float>;
using Controls = std::vector<Control*>;

class AnimationLayersTest : public LayersTest {
 protected:
  // Layers "Base Layer", "A" (Adjustment), "B" (Override, ignored), "C"; global weights 1.0,
  // 0.25, 0.5, 0.75; active layer 3; no undo entries.
  AnimationLayers* FourLayers() {
    AnimationLayers* layers = NewLayers();
    layers->AddLayer(0, "A", -1);
    layers->AddLayer(1, "B", -1);
    layers->AddLayer(0, "C", -1);
    layers->SetLayerIgnore(2, true);
    for (int i = 1; i < 4; ++i) layers->SetWeight(i, 0.25f * static_cast<float>(i), 0);
    theHold.Clear();
    return layers;
  }
  static Controls WeightControls(AnimationLayers* layers) {
    Controls out;
    for (int i = 0; i < layers->GetLayerCount(); ++i) out.push_back(layers->GetWeightControl(i));
    return out;
  }
  AnimLayersLocalWeights* LocalWeightsOf(AnimationLayers* layers) {
    auto* w = Keep(new AnimLayersLocalWeights);
    w->ReplaceReference(AnimLayersLocalWeights::kLayersRef, layers);
    w->SyncWeights();
    return w;
  }
};

TEST_F(AnimationLayersTest, NewStackHasOneOverrideBaseLayerAndBlendsInEuler) {
  AnimationLayers* layers = NewLayers();
  EXPECT_EQ(Names(layers), (Strings{"Base Layer"}));
  EXPECT_EQ(layers->GetLayerType(0), 1);
  EXPECT_TRUE(layers->GetEulerBlending());
  EXPECT_EQ(Weights(layers, 1), (Floats{1.0f}));
  EXPECT_EQ(theHold.UndoCount(), 0);
  // One made for loading keeps the block's defaults, as an old scene that stored false does.
  auto* loaded = Keep(new AnimationLayers(true));
  GetAnimationLayersDesc()->MakeAutoParamBlocks(loaded);
  EXPECT_EQ(loaded->GetLayerCount(), 0);
  EXPECT_FALSE(loaded->GetEulerBlending());
}

TEST_F(AnimationLayersTest, NewLayerNamesCountOnFromTheHighestNumber) {
  AnimationLayers* layers = NewLayers();
  layers->AddLayer(0, "", -1);
  layers->AddLayer(0, "", -1);
  EXPECT_EQ(Names(layers), (Strings{"Base Layer", "Anim Layer 01", "Anim Layer 02"}));
  EXPECT_EQ(layers->GetActiveLayer(), 2);
  // The highest number counts, wherever it stands; a name without a number does not disturb.
  layers->SetLayerName(1, "Anim Layer 09");
  layers->AddLayer(0, "Anim Layer x", -1);
  layers->AddLayer(1, "", -1);
  EXPECT_EQ(layers->GetLayerName(4), "Anim Layer 10");
  EXPECT_EQ(layers->GetLayerType(4), 1);
  // Above the active layer, not on top; beyond the stack is on top.
  layers->SetActiveLayer(0);
  layers->AddLayer(0, "low", -1);
  layers->AddLayer(0, "top", 99);
  EXPECT_EQ(Names(layers), (Strings{"Base Layer", "low", "Anim Layer 09", "Anim Layer 02",
                                    "Anim Layer x", "Anim Layer 10", "top"}));
  EXPECT_EQ(layers->NumRefs(), 8);
}

TEST_F(AnimationLayersTest, BaseLayerAndBadInputAreRefused) {
  AnimationLayers* layers = FourLayers();
  auto* rec = Keep(new LayerMessageRecorder);
  rec->ReplaceReference(0, layers);
  layers->RemoveLayer(0);
  layers->RemoveLayer(4);
  layers->MoveLayerUp(1);
  layers->MoveLayerDown(0);
  layers->MoveLayerDown(3);
  layers->AddLayer(2, "bad type", -1);
  layers->SetLayerType(0, 0);
  layers->SetActiveLayer(4);
  layers->SetWeight(1, NAN, 0);
  layers->SetWeightControl(1, Keep(NewDefaultPositionController()));
  EXPECT_EQ(Names(layers), (Strings{"Base Layer", "A", "B", "C"}));
  EXPECT_EQ(theHold.UndoCount(), 0);
  EXPECT_TRUE(rec->Private().empty());

  // Reads guard the base layer and the active index whatever the block holds.
  IParamBlock2* pb = layers->GetParamBlock(0);
  pb->SetValue(al::kTypes, 0, 0, 0);
  pb->SetValue(al::kIgnore, 0, true, 0);
  pb->SetValue(al::kActiveLayer, 0, 12);
  EXPECT_EQ(layers->GetLayerType(0), 1);
  EXPECT_FALSE(layers->GetLayerIgnore(0));
  EXPECT_EQ(layers->GetActiveLayer(), 3);
  EXPECT_EQ(layers->GetLayerName(4), "");
  layers->SetActiveLayer(1);
  EXPECT_EQ(layers->GetEffectiveLayerCount(), 2);
}

TEST_F(AnimationLayersTest, ChangesUndoAndRedoExactly) {
  AnimationLayers* layers = FourLayers();
  AnimLayersLocalWeights* local = LocalWeightsOf(layers);
  for (int i = 1; i < 4; ++i) local->SetWeight(i, 0.1f * static_cast<float>(i), 0);
  theHold.Clear();
  const Strings names = Names(layers);
  const Controls controls = WeightControls(layers);
  const Floats weights = Weights(layers, 4), local_weights = Weights(local, 4);
  const struct {
    const char* what;
    void (*edit)(AnimationLayers*);
    Strings names;
    Floats weights;
    Floats local;
    int active;
  } cases[] = {
      {"add",
       [](AnimationLayers* l) { l->AddLayer(1, "D", 2); },
       {"Base Layer", "A", "D", "B", "C"},
       {1, 0.25f, 1, 0.5f, 0.75f},
       {1, 0.1f, 1, 0.2f, 0.3f},
       2},
      {"remove below the active layer",
       [](AnimationLayers* l) {
         l->SetActiveLayer(2);
         l->RemoveLayer(1);
       },
       {"Base Layer", "B", "C"},
       {1, 0.5f, 0.75f},
       {1, 0.2f, 0.3f},
       1},
      {"move up",
       [](AnimationLayers* l) { l->MoveLayerUp(3); },
       {"Base Layer", "A", "C", "B"},
       {1, 0.25f, 0.75f, 0.5f},
       {1, 0.1f, 0.3f, 0.2f},
       2},
      {"move down",
       [](AnimationLayers* l) { l->MoveLayerDown(1); },
       {"Base Layer", "B", "A", "C"},
       {1, 0.5f, 0.25f, 0.75f},
       {1, 0.2f, 0.1f, 0.3f},
       3},
      {"collapse", [](AnimationLayers* l) { l->CollapseLayers(); }, {"Base Layer"}, {1}, {1}, 0},
      {"several in one hold",
       [](AnimationLayers* l) {
         Undoable("outer", [&] {
           l->AddLayer(0, "X", 4);
           l->RemoveLayer(2);
           l->MoveLayerDown(1);
         });
       },
       {"Base Layer", "C", "A", "X"},
       {1, 0.75f, 0.25f, 1},
       {1, 0.3f, 0.1f, 1},
       3},
      {"setters",
       [](AnimationLayers* l) {
         l->SetLayerName(1, "renamed");
         l->SetLayerIgnore(2, false);
         l->SetWeight(3, 0.0f, 0);
         l->SetWeightControl(1, NewWeightController(0.125f));
       },
       {"Base Layer", "renamed", "B", "C"},
       {1, 0.125f, 0.5f, 0},
       {1, 0.1f, 0.2f, 0.3f},
       3},
  };
  for (const auto& c : cases) {
    const int undo_count = theHold.UndoCount();
    c.edit(layers);
    EXPECT_EQ(theHold.UndoName(),
              c.what == std::string("several in one hold") ? "outer" : kLayersHoldName);
    const int n = static_cast<int>(c.names.size());
    EXPECT_EQ(Names(layers), c.names) << c.what;
    EXPECT_EQ(Weights(layers, n), c.weights) << c.what;
    EXPECT_EQ(Weights(local, n), c.local) << c.what;
    EXPECT_EQ(local->WeightTab().Count(), n) << c.what;
    EXPECT_EQ(layers->GetActiveLayer(), c.active) << c.what;
    const Controls changed = WeightControls(layers);
    while (theHold.UndoCount() > undo_count) theHold.Undo();
    EXPECT_EQ(Names(layers), names) << c.what;
    EXPECT_TRUE(layers->GetLayerIgnore(2)) << c.what;
    EXPECT_EQ(layers->GetActiveLayer(), 3) << c.what;
    EXPECT_EQ(WeightControls(layers), controls) << c.what;
    EXPECT_EQ(Weights(layers, 4), weights) << c.what;
    EXPECT_EQ(Weights(local, 4), local_weights) << c.what;
    for (Control* w : controls) {
      EXPECT_EQ(Animatable::GetAnimByHandle(Animatable::GetHandleByAnim(w)), w) << c.what;
      EXPECT_EQ(w->NumDependents(), 1) << c.what << ": referenced once, by the stack";
    }
    while (theHold.Redo()) {
    }
    EXPECT_EQ(Names(layers), c.names) << c.what;
    EXPECT_EQ(WeightControls(layers), changed) << c.what;
    while (theHold.UndoCount() > undo_count) theHold.Undo();
  }
  // Setting what is there already makes no step.
  const int redo_count = theHold.RedoCount();
  layers->SetLayerName(1, "A");
  layers->SetActiveLayer(3);
  layers->SetWeight(1, 0.25f, 0);
  layers->SetEulerBlending(true);
  EXPECT_EQ(theHold.UndoCount(), 0);
  EXPECT_EQ(theHold.RedoCount(), redo_count);
}

TEST_F(AnimationLayersTest, DependentsHearWhichLayerChangedBeforeTheGeneralChange) {
  static int ui_calls = 0, seen_count = 0;
  static AnimationLayers* watched = nullptr;
  AnimationLayers* layers = watched = FourLayers();
  SetLayersUIUpdate([](bool) {
    ++ui_calls;
    seen_count = watched->GetLayerCount();
  });
  auto* rec = Keep(new LayerMessageRecorder);
  rec->ReplaceReference(0, layers);
  // A track that uses local weights must not hear the private messages through them.
  auto* track = Keep(new LayerMessageRecorder);
  track->ReplaceReference(0, LocalWeightsOf(layers));

  layers->AddLayer(0, "", 2);
  layers->AddLayer(1, "over", 1);
  layers->MoveLayerUp(3);
  layers->MoveLayerDown(1);
  layers->RemoveLayer(4);
  layers->CollapseLayers();
  const auto heard = rec->Private();
  ASSERT_EQ(heard.size(), 7u);
  const struct {
    RefMessage message;
    PartID part;
    const char* name;  // of layer `part` when told: after an insert, before a swap
  } expected[] = {{kLayerAddedAdjustmentMsg, 2, "Anim Layer 01"},
                  {kLayerAddedOverrideMsg, 1, "over"},
                  {kLayerMovedUpMsg, 3, "Anim Layer 01"},
                  {kLayerMovedDownMsg, 1, "over"},
                  {kLayerRemovedMsg, 4, "C"},
                  {kLayersCollapseMsg, 0, "Base Layer"},
                  {kLayersResetMsg, 0, "Base Layer"}};
  for (size_t i = 0; i < 7; ++i) {
    EXPECT_EQ(heard[i].message, expected[i].message) << i;
    EXPECT_EQ(heard[i].part, expected[i].part) << i;
    EXPECT_EQ(heard[i].name, expected[i].name) << i;
  }
  EXPECT_TRUE(track->Private().empty());
  // Each structural message is followed by the change and the structure messages.
  for (size_t i = 0; i + 1 < rec->heard.size(); ++i) {
    if (!LayerMessageRecorder::IsPrivate(rec->heard[i].message) ||
        rec->heard[i].message == kLayersCollapseMsg)
      continue;
    bool change = false, structure = false;
    for (size_t j = i + 1; j < rec->heard.size(); ++j) {
      if (LayerMessageRecorder::IsPrivate(rec->heard[j].message)) break;
      change |= rec->heard[j].message == REFMSG_CHANGE;
      structure |= rec->heard[j].message == REFMSG_SUBANIM_STRUCTURE_CHANGED;
    }
    EXPECT_TRUE(change && structure) << "after message " << i;
  }

  // The active layer and the track display tell the tracks; the names only the layer UI.
  theHold.Undo();
  EXPECT_EQ(seen_count, 5) << "undo refreshes the list at its end";
  rec->heard.clear();
  ui_calls = 0;
  layers->SetActiveLayer(1);
  layers->SetDisplayAllLayersKeysTracks(true);
  layers->SetLayerName(1, "renamed");
  std::vector<PartID> parts;
  for (const auto& h : rec->heard) {
    if (h.message == REFMSG_SUBANIM_STRUCTURE_CHANGED) parts.push_back(h.part);
  }
  EXPECT_EQ(parts, (std::vector<PartID>{PART_LAYER_CHANGE, PART_LAYER_CHANGE}));
  EXPECT_EQ(ui_calls, 2);
  SetLayersUIUpdate(nullptr);

  int keyable = 0;
  PartID part = reinterpret_cast<PartID>(&keyable);
  EXPECT_EQ(
      layers->NotifyRefChanged(FOREVER, layers->GetParamBlock(0), part, REFMSG_KEYABLE_QUERY, true),
      REF_STOP);
  EXPECT_EQ(keyable, 1);
}

TEST_F(AnimationLayersTest, SubAnimsShowTheActiveWeightUnlessAllAreAsked) {
  AnimationLayers* layers = FourLayers();
  layers->SetActiveLayer(2);
  AnimLayersLocalWeights* local = LocalWeightsOf(layers);
  for (Animatable* owner : {static_cast<Animatable*>(layers), static_cast<Animatable*>(local)}) {
    EXPECT_EQ(owner->NumSubs(), 4);
    EXPECT_EQ(owner->SubAnim(1), nullptr);
    EXPECT_NE(owner->SubAnim(2), nullptr);
    EXPECT_EQ(owner->SubAnimName(2), "B");
    EXPECT_EQ(owner->SubNumToRefNum(4), -1);
    EXPECT_FALSE(owner->AssignController(NewWeightController(0.5f), 4));
  }
  layers->SetDisplayAllLayersKeysTracks(true);
  EXPECT_EQ(local->SubAnim(1), local->GetWeightControl(1));
  Control* c = NewWeightController(0.5f);
  EXPECT_TRUE(local->AssignController(c, 3));
  EXPECT_EQ(local->SubAnim(3), c);
}

TEST_F(AnimationLayersTest, ScenesSaveLoadAndSaveAgainToTheSameBytes) {
  AnimationLayers* layers = FourLayers();
  layers->SetEulerBlending(false);
  AnimLayersLocalWeights* local = LocalWeightsOf(layers);
  local->SetWeight(1, 0.1f, 0);
  HoldOnNode("holder", layers, local);
  std::vector<std::uint8_t> first, second;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
  LayersHolderMod* holder = HolderOf("holder");
  ASSERT_TRUE(holder && holder->Layers() && holder->Weights());
  EXPECT_EQ(Names(holder->Layers()), (Strings{"Base Layer", "A", "B", "C"}));
  EXPECT_TRUE(holder->Layers()->GetLayerIgnore(2));
  EXPECT_FALSE(holder->Layers()->GetEulerBlending()) << "kept as the file says";
  EXPECT_EQ(Weights(holder->Layers(), 4), (Floats{1, 0.25f, 0.5f, 0.75f}));
  EXPECT_EQ(holder->Weights()->GetAnimationLayers(), holder->Layers());
  EXPECT_EQ(Weights(holder->Weights(), 4), (Floats{1, 0.1f, 1, 1}));
  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(first, second);

  // Chunks that this version does not know are skipped.
  for (ReferenceTarget* target : {static_cast<ReferenceTarget*>(new AnimLayersLocalWeights(true)),
                                  static_cast<ReferenceTarget*>(new AnimationLayers(true))}) {
    ChunkWriter w;
    ULONG written = 0;
    const std::int32_t count = 3;
    w.BeginChunk(1);
    w.BeginChunk(0x7777);
    w.Write(&count, sizeof(count), &written);
    w.EndChunk();
    w.BeginChunk(1);
    w.Write(&count, sizeof(count), &written);
    w.EndChunk();
    w.EndChunk();
    EXPECT_EQ(LoadBytes(Keep(target), w.Bytes()), IO_OK);
    EXPECT_EQ(target->NumRefs(), 4);
  }
}

}  // namespace
}  // namespace marvolith::test
