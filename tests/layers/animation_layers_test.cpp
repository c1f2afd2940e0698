// Copyright Marvolith contributors.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/controllers/controller_classes.h"
#include "host/io/chunk_stream.h"
#include "host/params/param_block_desc2.h"
#include "tests/layers/layers_fixture.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/controller_test_util.h"

namespace marvolith::test {
namespace {

namespace al = animation_layers;
using Strings = std::vector<std::string>;
using Floats = std::vector<float>;

class AnimationLayersTest : public LayersTest {
 protected:
  // A stack with layers "Base Layer", "A" (Adjustment), "B" (Override), "C" (Adjustment), the
  // global weights 1.0, 0.25, 0.5, 0.75 and the active layer 3, built without undo entries.
  AnimationLayers* FourLayers() {
    AnimationLayers* layers = NewLayers();
    layers->AddLayer(0, "A", -1);
    layers->AddLayer(1, "B", -1);
    layers->AddLayer(0, "C", -1);
    layers->SetWeight(1, 0.25f, 0);
    layers->SetWeight(2, 0.5f, 0);
    layers->SetWeight(3, 0.75f, 0);
    theHold.Clear();
    return layers;
  }

  static std::vector<int> Types(AnimationLayers* layers) {
    std::vector<int> types;
    for (int i = 0; i < layers->GetLayerCount(); ++i) types.push_back(layers->GetLayerType(i));
    return types;
  }

  static std::vector<Control*> WeightControls(AnimationLayers* layers) {
    std::vector<Control*> out;
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
  EXPECT_EQ(layers->GetLayerCount(), 1);
  EXPECT_EQ(layers->GetLayerName(0), "Base Layer");
  EXPECT_EQ(layers->GetLayerType(0), 1);
  EXPECT_TRUE(layers->GetEulerBlending());
  EXPECT_TRUE(layers->GetIgnoreAboveActive());
  EXPECT_EQ(layers->NumRefs(), 2);
  Interval valid = FOREVER;
  EXPECT_FLOAT_EQ(layers->GetWeight(0, 0, valid), 1.0f);
  EXPECT_EQ(theHold.UndoCount(), 0) << "creating a stack is not an undo step of its own";

  // A stack made for loading takes the block's own defaults: old scenes keep what they stored.
  auto* loaded = Keep(new AnimationLayers(true));
  GetAnimationLayersDesc()->MakeAutoParamBlocks(loaded);
  ASSERT_NE(loaded->GetParamBlock(0), nullptr);
  EXPECT_EQ(loaded->GetLayerCount(), 0);
  EXPECT_FALSE(loaded->GetEulerBlending());
}

TEST_F(AnimationLayersTest, BlockPublishesItsParametersUnderTheirScriptNames) {
  IParamBlock2* pb = NewLayers()->GetParamBlock(0);
  ASSERT_NE(pb, nullptr);
  ParamBlockDesc2* desc = pb->GetDesc();
  EXPECT_EQ(std::string(desc->int_name), "params");
  const struct {
    ParamID id;
    const char* name;
    const char* label;
  } rows[] = {{al::kNames, "names", "Names"},
              {al::kTypes, "types", "Types"},
              {al::kIgnore, "ignore", "Ignore"},
              {al::kActiveLayer, "active_layer", "Active Layer"},
              {al::kDisplayAllLayersKeysTracks, "display_all_layers_keys_tracks",
               "Display All Layers Keys Tracks"},
              {al::kIgnoreAboveActive, "ignore_above_active", "Ignore Above Active"},
              {al::kEulerBlending, "euler_blending", "Euler Blending"}};
  EXPECT_EQ(pb->NumParams(), 7);
  EXPECT_LT(pb->IDtoIndex(5), 0) << "id 5 is not used";
  for (const auto& row : rows) {
    const int index = pb->IDtoIndex(row.id);
    ASSERT_GE(index, 0) << row.name;
    const ParamDef* def = desc->GetParamDefByIndex(index);
    EXPECT_STREQ(def->int_name, row.name);
    EXPECT_STREQ(def->DisplayName(), row.label);
  }
  EXPECT_EQ(pb->GetParameterType(al::kActiveLayer), TYPE_INDEX);
  EXPECT_FALSE(pb->GetInt(al::kDisplayAllLayersKeysTracks));
}

TEST_F(AnimationLayersTest, NewLayerNamesCountOnFromTheHighestNumber) {
  AnimationLayers* layers = NewLayers();
  layers->AddLayer(0, "", -1);
  EXPECT_EQ(Names(layers), (Strings{"Base Layer", "Anim Layer 01"}));
  EXPECT_EQ(layers->GetActiveLayer(), 1);
  EXPECT_EQ(layers->GetLayerType(1), 0);
  layers->AddLayer(0, "", -1);
  EXPECT_EQ(Names(layers), (Strings{"Base Layer", "Anim Layer 01", "Anim Layer 02"}));
  EXPECT_EQ(layers->GetActiveLayer(), 2);

  layers->SetLayerName(1, "Anim Layer 09");
  layers->SetLayerName(2, "Anim Layer x");
  layers->AddLayer(1, "", -1);
  EXPECT_EQ(layers->GetLayerName(3), "Anim Layer 10");
  EXPECT_EQ(layers->GetLayerType(3), 1);

  // Above the active layer, not at the top; an index beyond the stack lands on top.
  layers->SetActiveLayer(0);
  layers->AddLayer(0, "low", -1);
  EXPECT_EQ(layers->GetLayerName(1), "low");
  EXPECT_EQ(layers->GetActiveLayer(), 1);
  layers->AddLayer(0, "top", 99);
  EXPECT_EQ(layers->GetLayerName(layers->GetLayerCount() - 1), "top");
  EXPECT_EQ(layers->NumRefs(), layers->GetLayerCount() + 1);

  const int before = layers->GetLayerCount();
  layers->AddLayer(2, "bad type", -1);
  EXPECT_EQ(layers->GetLayerCount(), before);
}

TEST_F(AnimationLayersTest, BaseLayerAndBadIndicesAreRefused) {
  AnimationLayers* layers = FourLayers();
  LayerMessageRecorder* rec = Keep(new LayerMessageRecorder);
  rec->ReplaceReference(0, layers);
  const Strings names = Names(layers);
  layers->RemoveLayer(0);
  layers->RemoveLayer(4);
  layers->RemoveLayer(-1);
  layers->MoveLayerUp(1);
  layers->MoveLayerUp(4);
  layers->MoveLayerDown(0);
  layers->MoveLayerDown(3);
  layers->SetLayerType(0, 0);
  layers->SetLayerIgnore(0, true);
  layers->SetActiveLayer(4);
  layers->SetWeight(9, 0.5f, 0);
  layers->SetWeightControl(-1, NewWeightController(0.5f));
  EXPECT_EQ(Names(layers), names);
  EXPECT_EQ(theHold.UndoCount(), 0);
  EXPECT_TRUE(rec->Private().empty());
}

TEST_F(AnimationLayersTest, AccessorsGuardTheBaseLayerAndTheActiveIndex) {
  AnimationLayers* layers = FourLayers();
  IParamBlock2* pb = layers->GetParamBlock(0);
  pb->SetValue(al::kTypes, 0, 0, 0);
  pb->SetValue(al::kIgnore, 0, true, 0);
  EXPECT_EQ(layers->GetLayerType(0), 1);
  EXPECT_FALSE(layers->GetLayerIgnore(0));
  EXPECT_EQ(layers->GetLayerType(7), 1);
  EXPECT_FALSE(layers->GetLayerIgnore(-2));
  EXPECT_EQ(layers->GetLayerName(4), "");
  EXPECT_EQ(layers->GetWeightControl(4), nullptr);
  Interval valid = FOREVER;
  EXPECT_EQ(layers->GetWeight(4, 0, valid), 0.0f);

  pb->SetValue(al::kActiveLayer, 0, 12);
  EXPECT_EQ(layers->GetActiveLayer(), 3);
  EXPECT_EQ(layers->GetEffectiveLayerCount(), 4);
  layers->SetActiveLayer(1);
  EXPECT_EQ(layers->GetEffectiveLayerCount(), 2);
  layers->SetIgnoreAboveActive(false);
  EXPECT_EQ(layers->GetEffectiveLayerCount(), 4);
}

TEST_F(AnimationLayersTest, WeightReadNarrowsValidityAndAllocatesNothing) {
  AnimationLayers* layers = FourLayers();
  AnimateOn();
  layers->SetWeight(1, 0.0f, 0);
  layers->SetWeight(1, 1.0f, 100 * 160);
  AnimateOff();
  Interval valid = FOREVER;
  float w = 0.0f;
  {
    AllocationScope scope;
    w = layers->GetWeight(1, 50 * 160, valid);
    EXPECT_EQ(scope.Count(), 0u);
  }
  EXPECT_GT(w, 0.0f);
  EXPECT_LT(w, 1.0f);
  EXPECT_NE(valid, FOREVER) << "a keyed weight holds only at its time";
}

TEST_F(AnimationLayersTest, StructuralChangesUndoAndRedoExactly) {
  AnimationLayers* layers = FourLayers();
  layers->SetLayerIgnore(2, true);
  theHold.Clear();
  const Strings names = Names(layers);
  const std::vector<int> types = Types(layers);
  const std::vector<Control*> controls = WeightControls(layers);
  const Floats weights = Weights(layers, 4);

  auto expect_original = [&](const char* step) {
    EXPECT_EQ(Names(layers), names) << step;
    EXPECT_EQ(Types(layers), types) << step;
    EXPECT_TRUE(layers->GetLayerIgnore(2)) << step;
    EXPECT_FALSE(layers->GetLayerIgnore(3)) << step;
    EXPECT_EQ(WeightControls(layers), controls) << step;
    EXPECT_EQ(Weights(layers, 4), weights) << step;
    EXPECT_EQ(layers->GetActiveLayer(), 3) << step;
    EXPECT_EQ(layers->NumRefs(), 5) << step;
  };

  layers->AddLayer(1, "D", 2);
  EXPECT_EQ(theHold.UndoName(), kLayersHoldName);
  EXPECT_EQ(Names(layers), (Strings{"Base Layer", "A", "D", "B", "C"}));
  EXPECT_TRUE(layers->GetLayerIgnore(3)) << "B's flag moved up with it";
  Control* added = layers->GetWeightControl(2);
  ASSERT_NE(added, nullptr);
  Undo();
  expect_original("undo add");
  Redo();
  EXPECT_EQ(Names(layers), (Strings{"Base Layer", "A", "D", "B", "C"}));
  EXPECT_EQ(layers->GetWeightControl(2), added);
  Undo();

  layers->RemoveLayer(2);
  EXPECT_EQ(Names(layers), (Strings{"Base Layer", "A", "C"}));
  EXPECT_EQ(Weights(layers, 3), (Floats{1.0f, 0.25f, 0.75f}));
  EXPECT_EQ(layers->GetActiveLayer(), 2);
  Undo();
  expect_original("undo remove");
  Redo();
  EXPECT_EQ(Names(layers), (Strings{"Base Layer", "A", "C"}));
  EXPECT_EQ(layers->NumRefs(), 4);
  Undo();

  layers->MoveLayerUp(3);
  EXPECT_EQ(Names(layers), (Strings{"Base Layer", "A", "C", "B"}));
  EXPECT_EQ(Types(layers), (std::vector<int>{1, 0, 0, 1}));
  EXPECT_TRUE(layers->GetLayerIgnore(3));
  EXPECT_EQ(Weights(layers, 4), (Floats{1.0f, 0.25f, 0.75f, 0.5f}));
  EXPECT_EQ(layers->GetActiveLayer(), 2) << "the active layer moves with its layer";
  Undo();
  expect_original("undo move up");

  layers->MoveLayerDown(1);
  EXPECT_EQ(Names(layers), (Strings{"Base Layer", "B", "A", "C"}));
  EXPECT_EQ(Weights(layers, 4), (Floats{1.0f, 0.5f, 0.25f, 0.75f}));
  Undo();
  expect_original("undo move down");
  Redo();
  EXPECT_EQ(Names(layers), (Strings{"Base Layer", "B", "A", "C"}));
  Undo();

  layers->CollapseLayers();
  EXPECT_EQ(Names(layers), (Strings{"Base Layer"}));
  EXPECT_EQ(layers->GetActiveLayer(), 0);
  EXPECT_EQ(layers->NumRefs(), 2);
  Undo();
  expect_original("undo collapse");
}

TEST_F(AnimationLayersTest, SeveralChangesInOneHoldUndoTogether) {
  AnimationLayers* layers = FourLayers();
  const Strings names = Names(layers);
  const std::vector<Control*> controls = WeightControls(layers);
  Undoable("outer", [&] {
    layers->AddLayer(0, "X", 1);
    layers->AddLayer(0, "Y", 1);
    layers->MoveLayerDown(1);
    layers->RemoveLayer(4);
  });
  const Strings changed{"Base Layer", "X", "Y", "A", "C"};
  EXPECT_EQ(Names(layers), changed);
  const std::vector<Control*> changed_controls = WeightControls(layers);
  EXPECT_EQ(theHold.UndoCount(), 1);
  Undo();
  EXPECT_EQ(Names(layers), names);
  EXPECT_EQ(WeightControls(layers), controls);
  Redo();
  EXPECT_EQ(Names(layers), changed);
  EXPECT_EQ(WeightControls(layers), changed_controls);
  for (Control* c : changed_controls) {
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->NumDependents(), 1) << "each weight is referenced once, by the stack";
  }
}

TEST_F(AnimationLayersTest, SettersAreHeldAndSkipEqualValues) {
  AnimationLayers* layers = FourLayers();
  layers->SetLayerName(1, "A");
  layers->SetLayerType(1, 0);
  layers->SetLayerIgnore(1, false);
  layers->SetActiveLayer(3);
  layers->SetEulerBlending(true);
  layers->SetWeight(1, 0.25f, 0);
  layers->SetWeightControl(1, layers->GetWeightControl(1));
  EXPECT_EQ(theHold.UndoCount(), 0);

  Control* replacement = NewWeightController(0.125f);
  layers->SetLayerName(1, "renamed");
  layers->SetLayerType(1, 1);
  layers->SetLayerIgnore(1, true);
  layers->SetActiveLayer(1);
  layers->SetDisplayAllLayersKeysTracks(true);
  layers->SetIgnoreAboveActive(false);
  layers->SetEulerBlending(false);
  layers->SetWeight(2, 0.0f, 0);
  layers->SetWeightControl(3, replacement);
  EXPECT_EQ(theHold.UndoCount(), 9);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(theHold.UndoName(i), kLayersHoldName);
  EXPECT_EQ(Weights(layers, 4), (Floats{1.0f, 0.25f, 0.0f, 0.125f}));

  for (int i = 0; i < 9; ++i) Undo();
  EXPECT_EQ(layers->GetLayerName(1), "A");
  EXPECT_EQ(layers->GetLayerType(1), 0);
  EXPECT_FALSE(layers->GetLayerIgnore(1));
  EXPECT_EQ(layers->GetActiveLayer(), 3);
  EXPECT_FALSE(layers->GetDisplayAllLayersKeysTracks());
  EXPECT_TRUE(layers->GetIgnoreAboveActive());
  EXPECT_TRUE(layers->GetEulerBlending());
  EXPECT_EQ(Weights(layers, 4), (Floats{1.0f, 0.25f, 0.5f, 0.75f}));

  // A weight controller must be a float controller.
  Control* position = Keep(NewDefaultPositionController());
  layers->SetWeightControl(1, position);
  EXPECT_FALSE(layers->AssignController(position, 1));
  EXPECT_NE(layers->GetWeightControl(1), position);
}

TEST_F(AnimationLayersTest, DependentsHearWhichLayerChangedBeforeTheGeneralChange) {
  AnimationLayers* layers = FourLayers();
  LayerMessageRecorder* rec = Keep(new LayerMessageRecorder);
  rec->ReplaceReference(0, layers);

  layers->AddLayer(0, "", 2);
  layers->AddLayer(1, "over", 1);
  layers->MoveLayerUp(3);
  layers->MoveLayerDown(1);
  layers->RemoveLayer(4);
  const auto heard = rec->Private();
  ASSERT_EQ(heard.size(), 5u);
  EXPECT_EQ(heard[0].message, kLayerAddedAdjustmentMsg);
  EXPECT_EQ(heard[0].part, 2u);
  EXPECT_EQ(heard[0].name, "Anim Layer 01") << "told after the layer is in place";
  EXPECT_EQ(heard[1].message, kLayerAddedOverrideMsg);
  EXPECT_EQ(heard[1].part, 1u);
  EXPECT_EQ(heard[2].message, kLayerMovedUpMsg);
  EXPECT_EQ(heard[2].part, 3u);
  EXPECT_EQ(heard[2].name, "Anim Layer 01") << "told before the stack swaps";
  EXPECT_EQ(heard[3].message, kLayerMovedDownMsg);
  EXPECT_EQ(heard[3].part, 1u);
  EXPECT_EQ(heard[3].name, "over");
  EXPECT_EQ(heard[4].message, kLayerRemovedMsg);
  EXPECT_EQ(heard[4].part, 4u);

  // Each structural message is followed by the change and the structure messages.
  size_t private_at = 0;
  for (size_t i = 0; i < rec->heard.size(); ++i) {
    if (!LayerMessageRecorder::IsPrivate(rec->heard[i].message)) continue;
    private_at = i;
    bool change = false, structure = false;
    for (size_t j = i + 1; j < rec->heard.size(); ++j) {
      if (LayerMessageRecorder::IsPrivate(rec->heard[j].message)) break;
      change |= rec->heard[j].message == REFMSG_CHANGE;
      structure |= rec->heard[j].message == REFMSG_SUBANIM_STRUCTURE_CHANGED;
    }
    EXPECT_TRUE(change && structure) << "after private message " << i;
  }
  EXPECT_GT(private_at, 0u);

  rec->heard.clear();
  layers->CollapseLayers();
  const auto collapse = rec->Private();
  ASSERT_EQ(collapse.size(), 2u);
  EXPECT_EQ(collapse[0].message, kLayersCollapseMsg);
  EXPECT_EQ(collapse[0].name, "Base Layer");
  EXPECT_EQ(collapse[1].message, kLayersResetMsg);
  EXPECT_EQ(layers->GetLayerCount(), 1);
}

TEST_F(AnimationLayersTest, BlockChangesReachTheLayerUIAndTheTracks) {
  static int ui_calls = 0;
  ui_calls = 0;
  SetLayersUIUpdate([](bool) { ++ui_calls; });
  AnimationLayers* layers = FourLayers();
  LayerMessageRecorder* rec = Keep(new LayerMessageRecorder);
  rec->ReplaceReference(0, layers);
  ui_calls = 0;

  auto structure_parts = [&] {
    std::vector<PartID> parts;
    for (const auto& h : rec->heard) {
      if (h.message == REFMSG_SUBANIM_STRUCTURE_CHANGED) parts.push_back(h.part);
    }
    rec->heard.clear();
    return parts;
  };
  layers->SetActiveLayer(1);
  EXPECT_EQ(structure_parts(), (std::vector<PartID>{PART_LAYER_CHANGE}));
  EXPECT_EQ(ui_calls, 1);
  layers->SetDisplayAllLayersKeysTracks(true);
  EXPECT_EQ(structure_parts(), (std::vector<PartID>{PART_LAYER_CHANGE}));
  EXPECT_EQ(ui_calls, 1);
  layers->SetLayerName(1, "renamed");
  EXPECT_TRUE(structure_parts().empty());
  EXPECT_EQ(ui_calls, 2);
  layers->SetEulerBlending(false);
  EXPECT_EQ(ui_calls, 2);

  // Undoing a structural change refreshes the list once, at the end.
  layers->AddLayer(0, "", -1);
  ui_calls = 0;
  Undo();
  EXPECT_EQ(ui_calls, 1);
  Redo();
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
    EXPECT_EQ(owner->SubAnimName(9), "");
    EXPECT_EQ(owner->SubNumToRefNum(3), 4);
    EXPECT_EQ(owner->SubNumToRefNum(4), -1);
  }
  layers->SetDisplayAllLayersKeysTracks(true);
  EXPECT_EQ(layers->SubAnim(1), layers->GetWeightControl(1));
  EXPECT_EQ(local->SubAnim(1), local->GetWeightControl(1));

  LayerMessageRecorder* rec = Keep(new LayerMessageRecorder);
  rec->ReplaceReference(0, local);
  Control* c = NewWeightController(0.5f);
  EXPECT_TRUE(local->AssignController(c, 3));
  EXPECT_EQ(local->GetWeightControl(3), c);
  EXPECT_GE(rec->Count(REFMSG_SUBANIM_STRUCTURE_CHANGED), 1);
  EXPECT_FALSE(local->AssignController(NewWeightController(0.5f), 4));
}

TEST_F(AnimationLayersTest, LocalWeightsFollowTheStack) {
  AnimationLayers* layers = FourLayers();
  AnimLayersLocalWeights* local = LocalWeightsOf(layers);
  ASSERT_EQ(local->WeightTab().Count(), 4);
  local->SetWeight(1, 0.1f, 0);
  local->SetWeight(2, 0.2f, 0);
  local->SetWeight(3, 0.3f, 0);
  // A track that uses the local weights must not hear the stack's private messages through them.
  LayerMessageRecorder* track = Keep(new LayerMessageRecorder);
  track->ReplaceReference(0, local);
  theHold.Clear();

  layers->AddLayer(0, "", 1);
  EXPECT_EQ(Weights(local, 5), (Floats{1.0f, 1.0f, 0.1f, 0.2f, 0.3f}));
  layers->MoveLayerUp(2);
  EXPECT_EQ(Weights(local, 5), (Floats{1.0f, 0.1f, 1.0f, 0.2f, 0.3f}));
  layers->MoveLayerDown(3);
  EXPECT_EQ(Weights(local, 5), (Floats{1.0f, 0.1f, 1.0f, 0.3f, 0.2f}));
  layers->RemoveLayer(2);
  EXPECT_EQ(Weights(local, 4), (Floats{1.0f, 0.1f, 0.3f, 0.2f}));
  EXPECT_EQ(local->NumRefs(), 5);
  EXPECT_TRUE(track->Private().empty());

  for (int i = 0; i < 4; ++i) Undo();
  EXPECT_EQ(local->WeightTab().Count(), 4);
  EXPECT_EQ(Weights(local, 4), (Floats{1.0f, 0.1f, 0.2f, 0.3f}));
  for (int i = 0; i < 4; ++i) Redo();
  EXPECT_EQ(Weights(local, 4), (Floats{1.0f, 0.1f, 0.3f, 0.2f}));

  layers->CollapseLayers();
  EXPECT_EQ(local->WeightTab().Count(), 1);
  EXPECT_EQ(Weights(local, 1), (Floats{1.0f}));
  Undo();
  EXPECT_EQ(Weights(local, 4), (Floats{1.0f, 0.1f, 0.3f, 0.2f}));
}

TEST_F(AnimationLayersTest, ScenesSaveLoadAndSaveAgainToTheSameBytes) {
  AnimationLayers* layers = NewLayers();
  layers->AddLayer(0, "", -1);
  layers->AddLayer(1, "over", -1);
  layers->SetLayerIgnore(1, true);
  layers->SetWeight(2, 0.5f, 0);
  layers->SetEulerBlending(false);
  AnimLayersLocalWeights* local = Keep(new AnimLayersLocalWeights);
  local->ReplaceReference(0, layers);
  local->SyncWeights();
  local->SetWeight(1, 0.25f, 0);
  HoldOnNode("holder", layers, local);
  theHold.Clear();

  std::vector<std::uint8_t> first, second;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
  LayersHolderMod* holder = HolderOf("holder");
  ASSERT_NE(holder, nullptr);
  AnimationLayers* loaded = holder->Layers();
  AnimLayersLocalWeights* loaded_local = holder->Weights();
  ASSERT_NE(loaded, nullptr);
  ASSERT_NE(loaded_local, nullptr);
  EXPECT_EQ(Names(loaded), (Strings{"Base Layer", "Anim Layer 01", "over"}));
  EXPECT_TRUE(loaded->GetLayerIgnore(1));
  EXPECT_FALSE(loaded->GetEulerBlending()) << "a loaded stack keeps what the file says";
  EXPECT_EQ(Weights(loaded, 3), (Floats{1.0f, 1.0f, 0.5f}));
  EXPECT_EQ(loaded_local->GetAnimationLayers(), loaded);
  EXPECT_EQ(Weights(loaded_local, 3), (Floats{1.0f, 0.25f, 1.0f}));
  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(first, second);
}

TEST_F(AnimationLayersTest, LoadReadsTheWeightCountAndSkipsUnknownChunks) {
  for (bool local : {false, true}) {
    ChunkWriter w;
    w.BeginChunk(1);
    w.BeginChunk(0x7777);
    const float junk = 3.0f;
    ULONG written = 0;
    w.Write(&junk, sizeof(junk), &written);
    w.EndChunk();
    w.BeginChunk(1);
    const std::int32_t count = 3;
    w.Write(&count, sizeof(count), &written);
    w.EndChunk();
    w.EndChunk();
    ReferenceTarget* target = local
                                  ? static_cast<ReferenceTarget*>(new AnimLayersLocalWeights(true))
                                  : static_cast<ReferenceTarget*>(new AnimationLayers(true));
    Keep(target);
    EXPECT_EQ(LoadBytes(target, w.Bytes()), IO_OK);
    EXPECT_EQ(target->NumRefs(), 4) << (local ? "local weights" : "stack");
  }
}

TEST_F(AnimationLayersTest, ClonesCopyTheStackAndRemapTheirWeights) {
  AnimationLayers* layers = FourLayers();
  AnimLayersLocalWeights* local = LocalWeightsOf(layers);
  local->SetWeight(2, 0.2f, 0);
  RemapDir remap;
  auto* copy = Keep(dynamic_cast<AnimationLayers*>(remap.CloneRef(layers)));
  auto* copy_local = Keep(dynamic_cast<AnimLayersLocalWeights*>(remap.CloneRef(local)));
  ASSERT_NE(copy, nullptr);
  ASSERT_NE(copy_local, nullptr);
  EXPECT_EQ(Names(copy), Names(layers));
  EXPECT_EQ(Weights(copy, 4), Weights(layers, 4));
  EXPECT_NE(copy->GetWeightControl(1), layers->GetWeightControl(1));
  EXPECT_NE(copy->GetParamBlock(0), layers->GetParamBlock(0));
  EXPECT_EQ(copy_local->GetAnimationLayers(), copy) << "the remap gives the cloned stack";
  EXPECT_EQ(Weights(copy_local, 4), (Floats{1.0f, 1.0f, 0.2f, 1.0f}));
  EXPECT_NE(copy_local->GetWeightControl(2), local->GetWeightControl(2));
}

}  // namespace
}  // namespace marvolith::test
