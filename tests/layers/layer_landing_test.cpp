// Copyright Marvolith contributors.
// Layered transforms as an animator meets them: a node whose position, rotation and scale tracks
// share one stack of mixed layers. What is put on screen lands there, on whichever layer is
// active; collapse keeps the motion; undo and redo of the stack's changes give the motion back;
// files keep it byte for byte.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "controllers/rotation_xyz.h"
#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/controllers/controller_classes.h"
#include "host/core/clock.h"
#include "host/math/affine.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "layers/animation_layers.h"
#include "layers/layer_control.h"
#include "plugin/strings.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {
namespace {

constexpr float kDeg = 3.14159265358979f / 180.0f;
constexpr float kLandingTolerance = 1e-5f;
const TimeValue kTicksPerFrame = 160;

// A stack of four layers: the base, an Adjustment at 0.7 (global 1.4 times local 0.5), an
// Override at 0.4 and an Adjustment at 1.6, above full weight.
constexpr int kLayerCount = 4;
constexpr float kGlobal[kLayerCount] = {1.0f, 1.4f, 0.4f, 1.6f};
constexpr float kLocal[kLayerCount] = {1.0f, 0.5f, 1.0f, 1.0f};

// The value every layer of each track holds before a test writes.
const Point3 kPositions[kLayerCount] = {{1, 2, 3}, {0.5f, -1, 0}, {4, 0, 1}, {0, 0.25f, -0.5f}};
constexpr float kEuler[kLayerCount][3] = {
    {10, 20, 30}, {5, -10, 15}, {-20, 40, 10}, {0, 5, -5}};  // degrees by axis
const Point3 kScales[kLayerCount] = {{1.2f, 0.8f, 1}, {1, 1.1f, 1}, {0.9f, 1, 1.3f}, {1, 1, 1.05f}};

void ExpectMatrixNear(const Matrix3& got, const Matrix3& want, float eps, const std::string& what) {
  for (int r = 0; r < 4; ++r) {
    const Point3 g = got.GetRow(r), w = want.GetRow(r), d = g - w;
    EXPECT_LE(std::max({std::fabs(d.x), std::fabs(d.y), std::fabs(d.z)}), eps)
        << what << ", row " << r << ": " << g.x << " " << g.y << " " << g.z << " want " << w.x
        << " " << w.y << " " << w.z;
  }
}

int CountKeys(Animatable* anim, int depth = 0) {
  if (!anim || depth > 8) return 0;
  int n = std::max(anim->NumKeys(), 0);
  for (int i = 0; i < anim->NumSubs(); ++i) n += CountKeys(anim->SubAnim(i), depth + 1);
  return n;
}

struct LandingCase {
  bool euler_blending;
  bool animate;
  int active;
  std::string Name() const {
    return std::string(euler_blending ? "euler" : "quaternion") + (animate ? ", animate" : "") +
           ", active " + std::to_string(active);
  }
};

class LayerLandingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    instance_ = GetModuleInstance();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    for (ClassDesc2* cd : {GetAnimationLayersDesc(), GetAnimLayersLocalWeightsDesc(),
                           GetFloatLayersDesc(), GetPositionLayersDesc(), GetRotationLayersDesc(),
                           GetScaleLayersDesc(), GetRotationXYZDesc()}) {
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    }
    GetCOREInterface()->Reset();
    GetCOREInterface()->SetTime(0);
    theHold.Clear();
  }
  void TearDown() override {
    AnimateOff();
    GetCOREInterface()->Reset();
    theHold.Clear();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    SetModuleInstance(instance_);
  }

  // A turned, moved and scaled parent. Under it `node_`, whose position and rotation are layered,
  // `stretch_`, whose scale is, and an unlayered twin of each at the same start. A float track
  // shares the stack.
  void BuildScene(bool euler_blending) {
    HoldSuspend no_undo;
    Interface* core = GetCOREInterface();
    parent_ = core->CreateObjectNode(nullptr, "parent");
    parent_->SetNodeTM(
        0, ScaleMatrix({1.5f, 1.5f, 1.5f}) * RotateZMatrix(0.3f) * TransMatrix(Point3(5, 1, 2)));
    node_ = core->CreateObjectNode(nullptr, "layered");
    twin_ = core->CreateObjectNode(nullptr, "twin");
    stretch_ = core->CreateObjectNode(nullptr, "stretch");
    stretch_twin_ = core->CreateObjectNode(nullptr, "stretch twin");
    for (INode* n : {node_, twin_, stretch_, stretch_twin_}) parent_->AttachChild(n, 0);

    layers_ = new AnimationLayers();
    weights_ = new AnimLayersLocalWeights();
    weights_->ReplaceReference(AnimLayersLocalWeights::kLayersRef, layers_);
    weights_->SyncWeights();
    holder_ = sweep_.Keep(new TestTarget(4));
    holder_->ReplaceReference(0, weights_);
    layers_->SetEulerBlending(euler_blending);

    tracks_[0] = Wrap(node_, 0, CTRL_POSITION_CLASS_ID);
    tracks_[1] = Wrap(node_, 1, CTRL_ROTATION_CLASS_ID);
    tracks_[2] = Wrap(stretch_, 2, CTRL_SCALE_CLASS_ID);
    float_track_ = WrapInLayers(CTRL_FLOAT_CLASS_ID, CreateInterpFloat(), layers_, weights_);
    holder_->ReplaceReference(1, float_track_);

    layers_->AddLayer(kLayerAdjustment, "adjust", 1);
    layers_->AddLayer(kLayerOverride, "override", 2);
    layers_->AddLayer(kLayerAdjustment, "overshoot", 3);
    ASSERT_EQ(layers_->GetLayerCount(), kLayerCount);
    for (int i = 0; i < kLayerCount; ++i) {
      for (AnimationLayersControl* track : tracks_) {
        ASSERT_EQ(track->LayerControllerCount(), kLayerCount);
      }
      layers_->SetWeight(i, kGlobal[i], 0);
      weights_->SetWeight(i, kLocal[i], 0);
      Point3 p = kPositions[i];
      tracks_[0]->LayerController(i)->SetValue(0, &p, 1, CTRL_ABSOLUTE);
      float e[3] = {kEuler[i][0] * kDeg, kEuler[i][1] * kDeg, kEuler[i][2] * kDeg};
      Quat q(EulerByAxisToMatrix(e, 0));
      tracks_[1]->LayerController(i)->SetValue(0, &q, 1, CTRL_ABSOLUTE);
      ScaleValue s(kScales[i]);
      tracks_[2]->LayerController(i)->SetValue(0, &s, 1, CTRL_ABSOLUTE);
      float f = 10.0f * static_cast<float>(i + 1);
      float_track_->LayerController(i)->SetValue(0, &f, 1, CTRL_ABSOLUTE);
    }
    twin_->SetNodeTM(0, node_->GetNodeTM(0));
    stretch_twin_->SetNodeTM(0, stretch_->GetNodeTM(0));
    theHold.Clear();
  }

  AnimationLayersControl* Wrap(INode* node, int part, SClass_ID sclass) {
    Control* prs = node->GetTMController();
    auto* original = static_cast<Control*>(prs->GetReference(part));
    AnimationLayersControl* track = WrapInLayers(sclass, original, layers_, weights_);
    EXPECT_NE(track, nullptr);
    EXPECT_EQ(prs->ReplaceReference(part, track), REF_SUCCEED);
    return track;
  }

  // The node's world transform evaluated through its controllers, past every cache.
  static Matrix3 WorldOf(INode* node, TimeValue t) {
    Matrix3 m = node->GetParentTM(t);
    Interval valid = FOREVER;
    node->GetTMController()->GetValue(t, &m, valid, CTRL_RELATIVE);
    return m;
  }
  // Every layer's own value at t, all tracks, as plain floats.
  std::vector<float> LayerValues(TimeValue t) const {
    std::vector<float> out;
    for (int i = 0; i < kLayerCount; ++i) {
      Interval valid = FOREVER;
      Point3 p;
      tracks_[0]->LayerController(i)->GetValue(t, &p, valid, CTRL_ABSOLUTE);
      Quat q;
      tracks_[1]->LayerController(i)->GetValue(t, &q, valid, CTRL_ABSOLUTE);
      ScaleValue s;
      tracks_[2]->LayerController(i)->GetValue(t, &s, valid, CTRL_ABSOLUTE);
      float f = 0.0f;
      float_track_->LayerController(i)->GetValue(t, &f, valid, CTRL_ABSOLUTE);
      out.insert(out.end(), {p.x, p.y, p.z, q.x, q.y, q.z, q.w, s.s.x, s.s.y, s.s.z, s.q.x, s.q.y,
                             s.q.z, s.q.w, f});
    }
    return out;
  }
  int LayerKeyCount() const {
    int n = 0;
    for (int i = 0; i < kLayerCount; ++i) {
      for (AnimationLayersControl* track : tracks_) n += CountKeys(track->LayerController(i));
      n += CountKeys(float_track_->LayerController(i));
    }
    return n;
  }
  float FloatAt(TimeValue t) const {
    float v = 0.0f;
    Interval valid = FOREVER;
    float_track_->GetValue(t, &v, valid, CTRL_ABSOLUTE);
    return v;
  }

  // Runs check(case, time) on a fresh scene for each blending mode, in and out of animate mode,
  // with each layer active.
  template <typename F>
  void ForEachLandingCase(F&& check) {
    for (bool euler : {false, true}) {
      for (bool animate : {false, true}) {
        for (int active = 0; active < kLayerCount; ++active) {
          const LandingCase c{euler, animate, active};
          SCOPED_TRACE(c.Name());
          GetCOREInterface()->Reset();
          BuildScene(euler);
          layers_->SetActiveLayer(active);
          if (animate) AnimateOn();
          check(c, animate ? 10 * kTicksPerFrame : 0);
          AnimateOff();
        }
      }
    }
  }

  INode* parent_ = nullptr;
  INode* node_ = nullptr;
  INode* twin_ = nullptr;
  INode* stretch_ = nullptr;
  INode* stretch_twin_ = nullptr;
  AnimationLayers* layers_ = nullptr;
  AnimLayersLocalWeights* weights_ = nullptr;
  AnimationLayersControl* tracks_[3] = {nullptr, nullptr, nullptr};
  AnimationLayersControl* float_track_ = nullptr;
  TestTarget* holder_ = nullptr;

 private:
  SceneSweeper sweep_;
  std::vector<ClassDesc2*> added_;
  HINSTANCE instance_ = nullptr;
};

// ---------------------------------------------------------------------------------------------
// Landing: the transform put on the node is the one it shows, whatever layer takes it.

// Euler angles sum, so any turn can be written on a layer of any weight. A quaternion layer
// reaches at most a half turn from what lies under it, and a slerp by w covers w of that: the
// turn is kept within reach of the lightest layer (0.4).
float BigTurn(const LandingCase& c) { return c.euler_blending ? 200 * kDeg : 40 * kDeg; }

// The parts of a node's world transform, and the transform they make.
struct WorldParts {
  Point3 pos;
  Quat rot;
  ScaleValue scale;
  explicit WorldParts(const Matrix3& world) { DecomposeMatrix(world, pos, rot, scale); }
  Matrix3 World() const {
    Matrix3 r;
    rot.MakeMatrix(r);
    return MatrixFromScaleValue(scale) * r * TransMatrix(pos);
  }
};

TEST_F(LayerLandingTest, PositionAndRotationLandOnEveryActiveLayer) {
  ForEachLandingCase([&](const LandingCase& c, TimeValue t) {
    WorldParts want(WorldOf(node_, t));
    want.pos += Point3(3, -2, 0.5f);
    node_->SetNodeTM(t, want.World());
    ExpectMatrixNear(WorldOf(node_, t), want.World(), kLandingTolerance, "moved");
    want.rot = want.rot * QFromAngAxis(BigTurn(c), Normalize(Point3(1, 2, -1)));
    node_->SetNodeTM(t, want.World());
    ExpectMatrixNear(WorldOf(node_, t), want.World(), kLandingTolerance, "turned");
  });
}

TEST_F(LayerLandingTest, RelativeMovesAndTurnsMatchTheUnlayeredTwin) {
  ForEachLandingCase([&](const LandingCase& c, TimeValue t) {
    twin_->SetNodeTM(t, WorldOf(node_, t));
    for (INode* n : {node_, twin_}) n->Move(t, Matrix3(), Point3(1, -2, 0.5f));
    ExpectMatrixNear(WorldOf(node_, t), WorldOf(twin_, t), kLandingTolerance, "moved");
    // A turn about the node's own axes, then one about the world's.
    for (INode* n : {node_, twin_}) {
      n->Rotate(t, WorldOf(n, t), AngAxis(Normalize(Point3(0, 1, 1)), BigTurn(c)), true);
    }
    ExpectMatrixNear(WorldOf(node_, t), WorldOf(twin_, t), kLandingTolerance, "turned locally");
    for (INode* n : {node_, twin_}) n->Rotate(t, Matrix3(), AngAxis(Point3(0, 0, 1), 0.4f));
    ExpectMatrixNear(WorldOf(node_, t), WorldOf(twin_, t), kLandingTolerance, "turned");
  });
}

// Adjustment layers multiply the stretch under them (base 1.2 by 0.8 by 1 here), so a write on
// one divides by it; Overrides cross-fade. A stretch set absolute, then scaled relative along the
// node's axes, shows as it does on the unlayered twin.
TEST_F(LayerLandingTest, ScaleLandsOnEveryActiveLayer) {
  ForEachLandingCase([&](const LandingCase&, TimeValue t) {
    WorldParts want(WorldOf(stretch_, t));
    want.scale = ScaleValue(Point3(1.3f, 0.7f, 1.1f));
    stretch_->SetNodeTM(t, want.World());
    ExpectMatrixNear(WorldOf(stretch_, t), want.World(), kLandingTolerance, "scaled");
    stretch_twin_->SetNodeTM(t, WorldOf(stretch_, t));
    for (INode* n : {stretch_, stretch_twin_}) n->Scale(t, WorldOf(n, t), {1.2f, 0.9f, 1.0f}, true);
    ExpectMatrixNear(WorldOf(stretch_, t), WorldOf(stretch_twin_, t), kLandingTolerance,
                     "relative");
  });
}

TEST_F(LayerLandingTest, FloatWritesLandOnEveryActiveLayer) {
  ForEachLandingCase([&](const LandingCase&, TimeValue t) {
    float want = 12.5f, step = -3.0f;
    float_track_->SetValue(t, &want, 1, CTRL_ABSOLUTE);
    EXPECT_NEAR(FloatAt(t), want, kLandingTolerance * 100.0f);
    float_track_->SetValue(t, &step, 1, CTRL_RELATIVE);
    EXPECT_NEAR(FloatAt(t), want + step, kLandingTolerance * 100.0f);
  });
}

TEST_F(LayerLandingTest, ActiveLayerAtWeightZeroTakesNothingAndKeysNothing) {
  for (bool animate : {false, true}) {
    SCOPED_TRACE(animate ? "animate" : "set");
    GetCOREInterface()->Reset();
    BuildScene(true);
    layers_->SetActiveLayer(2);
    layers_->SetWeight(2, 0.0f, 0);
    const TimeValue t = 5 * kTicksPerFrame;
    const Matrix3 before = WorldOf(node_, t);
    const Matrix3 stretch_before = WorldOf(stretch_, t);
    const std::vector<float> layers_before = LayerValues(t);
    const int keys_before = LayerKeyCount();
    if (animate) AnimateOn();
    // Each node is asked to change only its layered parts.
    WorldParts moved(before);
    moved.pos += Point3(40, 50, 60);
    moved.rot = moved.rot * QFromAngAxis(1.0f, Point3(0, 0, 1));
    node_->SetNodeTM(t, moved.World());
    node_->Move(t, Matrix3(), Point3(1, 1, 1));
    node_->Rotate(t, Matrix3(), AngAxis(Point3(1, 0, 0), 0.5f));
    WorldParts stretched(stretch_before);
    stretched.scale = ScaleValue(Point3(2, 3, 4));
    stretch_->SetNodeTM(t, stretched.World());
    stretch_->Scale(t, stretch_before, Point3(2, 2, 2), true);
    float f = 99.0f;
    float_track_->SetValue(t, &f, 1, CTRL_ABSOLUTE);
    AnimateOff();
    EXPECT_EQ(LayerValues(t), layers_before);
    EXPECT_EQ(LayerKeyCount(), keys_before);
    // The unlayered parts were written back as they were, within rounding.
    ExpectMatrixNear(WorldOf(node_, t), before, kLandingTolerance, "the transform stays");
    ExpectMatrixNear(WorldOf(stretch_, t), stretch_before, kLandingTolerance, "the stretch stays");
  }
}

// ---------------------------------------------------------------------------------------------
// Collapse, undo and redo, files: the motion survives.

constexpr int kLastFrame = 20;

// Keys on every frame of the range on layer 1, a few on layer 3, and a weight that fades layer 2
// in over the range.
void AnimateLayers(AnimationLayers* layers,
                   AnimationLayersControl* const tracks[3],
                   AnimationLayersControl* float_track) {
  HoldSuspend no_undo;
  AnimateOn();
  for (int frame = 0; frame <= kLastFrame; ++frame) {
    const TimeValue t = frame * kTicksPerFrame;
    const float x = static_cast<float>(frame);
    Point3 p(0.1f * x, std::sin(0.3f * x), -0.05f * x);
    tracks[0]->LayerController(1)->SetValue(t, &p, 1, CTRL_ABSOLUTE);
    float e[3] = {3.0f * x * kDeg, -2.0f * x * kDeg, 10.0f * std::sin(0.2f * x) * kDeg};
    Quat q(EulerByAxisToMatrix(e, 0));
    tracks[1]->LayerController(1)->SetValue(t, &q, 1, CTRL_ABSOLUTE);
    ScaleValue s(Point3(1.0f + 0.01f * x, 1.0f, 1.0f - 0.005f * x));
    tracks[2]->LayerController(1)->SetValue(t, &s, 1, CTRL_ABSOLUTE);
    float f = 2.0f * std::cos(0.4f * x);
    float_track->LayerController(1)->SetValue(t, &f, 1, CTRL_ABSOLUTE);
    if (frame % 10 == 0) {
      Point3 p3(0, 0.5f * x, 0);
      tracks[0]->LayerController(3)->SetValue(t, &p3, 1, CTRL_ABSOLUTE);
      float f3 = -x;
      float_track->LayerController(3)->SetValue(t, &f3, 1, CTRL_ABSOLUTE);
    }
  }
  layers->SetWeight(2, 0.2f, 0);
  layers->SetWeight(2, 0.9f, kLastFrame * kTicksPerFrame);
  AnimateOff();
}

// What the scene shows at one time.
struct Shown {
  Matrix3 node;
  Matrix3 stretch;
  float value = 0.0f;
};

class LayerMotionTest : public LayerLandingTest {
 protected:
  void BuildAnimated(bool euler_blending) {
    BuildScene(euler_blending);
    AnimateLayers(layers_, tracks_, float_track_);
    layers_->SetActiveLayer(kLayerCount - 1);
    theHold.Clear();
  }
  Shown ShownAt(TimeValue t) const { return {WorldOf(node_, t), WorldOf(stretch_, t), FloatAt(t)}; }
  std::vector<Shown> ShownAt(const std::vector<TimeValue>& times) const {
    std::vector<Shown> out;
    for (TimeValue t : times) out.push_back(ShownAt(t));
    return out;
  }
  // got equals want exactly, sample by sample.
  static void ExpectSame(const std::vector<Shown>& got,
                         const std::vector<Shown>& want,
                         const std::string& what) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) {
      const std::string sample = what + ", sample " + std::to_string(i);
      ExpectMatrixNear(got[i].node, want[i].node, 0.0f, sample + " node");
      ExpectMatrixNear(got[i].stretch, want[i].stretch, 0.0f, sample + " stretch");
      EXPECT_EQ(got[i].value, want[i].value) << sample;
    }
  }
};

TEST_F(LayerMotionTest, CollapseKeepsEveryFrameOfTheRange) {
  for (bool euler : {false, true}) {
    SCOPED_TRACE(euler ? "euler" : "quaternion");
    GetCOREInterface()->Reset();
    BuildAnimated(euler);
    std::vector<Shown> before;
    for (int frame = 0; frame <= kLastFrame; ++frame)
      before.push_back(ShownAt(frame * kTicksPerFrame));
    ASSERT_FALSE(before.front().node.Equals(before.back().node)) << "the layers move the node";
    layers_->CollapseLayers();
    ASSERT_EQ(layers_->GetLayerCount(), 1);
    for (AnimationLayersControl* track : tracks_) EXPECT_EQ(track->LayerControllerCount(), 1);
    EXPECT_EQ(float_track_->LayerControllerCount(), 1);
    // Floats and stretches bake into Bezier keys.
    EXPECT_EQ(float_track_->LayerController(0)->ClassID(), Class_ID(0x2007, 0));
    EXPECT_EQ(tracks_[2]->LayerController(0)->ClassID(), Class_ID(0x2010, 0));
    for (int frame = 0; frame <= kLastFrame; ++frame) {
      SCOPED_TRACE(frame);
      const Shown after = ShownAt(frame * kTicksPerFrame);
      ExpectMatrixNear(after.node, before[frame].node, kLandingTolerance, "node");
      ExpectMatrixNear(after.stretch, before[frame].stretch, kLandingTolerance, "stretch");
      EXPECT_NEAR(after.value, before[frame].value, kLandingTolerance * 10.0f);
    }
  }
}

TEST_F(LayerMotionTest, UndoAndRedoOfStackChangesGiveTheMotionBack) {
  const std::vector<TimeValue> times = {0, 7 * kTicksPerFrame, 15 * kTicksPerFrame + 40};
  struct Change {
    const char* name;
    void (*apply)(AnimationLayers*);
  };
  const Change changes[] = {
      {"add", [](AnimationLayers* l) { l->AddLayer(kLayerOverride, "added", 2); }},
      {"remove", [](AnimationLayers* l) { l->RemoveLayer(1); }},
      {"move up", [](AnimationLayers* l) { l->MoveLayerUp(2); }},
      {"move down", [](AnimationLayers* l) { l->MoveLayerDown(1); }},
      {"collapse", [](AnimationLayers* l) { l->CollapseLayers(); }},
  };
  for (const Change& change : changes) {
    SCOPED_TRACE(change.name);
    GetCOREInterface()->Reset();
    BuildAnimated(false);
    const std::vector<Shown> before = ShownAt(times);
    const int count_before = layers_->GetLayerCount();
    change.apply(layers_);
    const std::vector<Shown> after = ShownAt(times);
    const int count_after = layers_->GetLayerCount();
    if (std::string(change.name) != "add" && std::string(change.name) != "collapse") {
      EXPECT_FALSE(after[1].node.Equals(before[1].node)) << "the change shows";
    }
    ASSERT_EQ(theHold.UndoCount(), 1) << "one step";
    EXPECT_EQ(theHold.UndoName(), kLayersHoldName);
    ASSERT_TRUE(theHold.Undo());
    EXPECT_EQ(layers_->GetLayerCount(), count_before);
    for (AnimationLayersControl* track : tracks_) {
      EXPECT_EQ(track->LayerControllerCount(), count_before);
    }
    ExpectSame(ShownAt(times), before, "undone");
    ASSERT_TRUE(theHold.Redo());
    EXPECT_EQ(layers_->GetLayerCount(), count_after);
    ExpectSame(ShownAt(times), after, "redone");
  }
}

TEST_F(LayerMotionTest, ScenesWithLayeredTracksLoadByteForByteAndMoveAlike) {
  BuildAnimated(true);
  const std::vector<TimeValue> times = {0, 5 * kTicksPerFrame, 13 * kTicksPerFrame + 80};
  const std::vector<Shown> before = ShownAt(times);
  std::vector<std::uint8_t> first, second;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(first, second);
  node_ = GetCOREInterface()->GetINodeByName("layered");
  stretch_ = GetCOREInterface()->GetINodeByName("stretch");
  ASSERT_TRUE(node_ && stretch_);
  ASSERT_NE(AsLayeredControl(node_->GetTMController()->GetPositionController()), nullptr);
  ASSERT_NE(AsLayeredControl(stretch_->GetTMController()->GetScaleController()), nullptr);
  ExpectSame(ShownAt(times), before, "loaded");
}

}  // namespace
}  // namespace marvolith::test
