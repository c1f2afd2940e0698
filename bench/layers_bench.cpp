// Copyright Marvolith contributors.
// Benchmarks of layered tracks, in nanoseconds per evaluation with the allocations per
// evaluation (0 expected: blending allocates nothing). Run with --benchmark_repetitions=N
// --benchmark_report_aggregates_only=true for medians.

#include <benchmark/benchmark.h>

#include <chrono>

#include "controllers/rotation_xyz.h"
#include "host/app/host_classes.h"
#include "host/core/clock.h"
#include "host/math/affine.h"
#include "host/math/matrix3.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "layers/animation_layers.h"
#include "layers/layer_blend.h"
#include "layers/layer_control.h"
#include "plugin/strings.h"
#include "tests/support/alloc_counter.h"

namespace marvolith {
namespace {

void ReportPerEvaluation(benchmark::State& state,
                         std::chrono::steady_clock::duration elapsed,
                         std::size_t allocations) {
  const double evaluations = static_cast<double>(state.iterations());
  state.counters["ns_per_eval"] =
      std::chrono::duration<double, std::nano>(elapsed).count() / evaluations;
  state.counters["allocs_per_eval"] = static_cast<double>(allocations) / evaluations;
  state.SetItemsProcessed(state.iterations());
}

constexpr int kLayerCount = 4;

// ---- The cores ----------------------------------------------------------------------------------

/// Four layers of every kind: an Override base, an Adjustment at 0.7, an Override at 0.4 and an
/// Adjustment at 1.5, with values that change with a phase so that nothing is constant.
struct FourLayers {
  float phase = 0.0f;

  bool Share(int i, LayerShare& out) const {
    static constexpr float kWeights[kLayerCount] = {1.0f, 0.7f, 0.4f, 1.5f};
    static constexpr int kTypes[kLayerCount] = {kLayerOverride, kLayerAdjustment, kLayerOverride,
                                                kLayerAdjustment};
    out.weight = kWeights[i];
    out.additive = IsAdditiveLayer(i, kTypes[i]);
    return true;
  }
  float Value(int i) const { return phase + 0.25f * static_cast<float>(i + 1); }
  void Apply(int i, float& v) const { v += Value(i); }
  void ReadEuler(int i, float e[3]) const {
    e[0] = Value(i);
    e[1] = -0.5f * Value(i);
    e[2] = 0.1f;
  }
};

struct PositionSource : FourLayers {
  void Apply(int i, Matrix3& m) const { m.PreTranslate(Point3(Value(i), 1.0f, -Value(i))); }
};
struct RotationSource : FourLayers {
  void Apply(int i, Matrix3& m) const {
    m.PreRotate(QFromAngAxis(Value(i), Normalize(Point3(1.0f, 2.0f, 3.0f))));
  }
};
struct ScaleSource : FourLayers {
  void Apply(int i, Matrix3& m) const {
    ApplyScaleValue(m, ScaleValue(Point3(1.0f + 0.1f * Value(i), 1.0f, 2.0f)));
  }
};

/// One absolute blend of four layers per iteration; argument 0 picks the kind (0 float,
/// 1 position, 2 quaternion rotation, 3 scale, 4 Euler rotation).
void BM_BlendCore4Layers(benchmark::State& state) {
  const int kind = static_cast<int>(state.range(0));
  const Matrix3 identity;
  const test::AllocationScope allocations;
  const auto start = std::chrono::steady_clock::now();
  float phase = 0.0f;
  for (auto _ : state) {
    phase = phase > 3.0f ? 0.0f : phase + 0.001f;
    switch (kind) {
      case 0: {
        FourLayers layers{phase};
        benchmark::DoNotOptimize(BlendFloatLayers(0.0f, 0, kLayerCount, layers));
        break;
      }
      case 1: {
        PositionSource layers;
        layers.phase = phase;
        benchmark::DoNotOptimize(BlendPositionLayers(identity, 0, kLayerCount, layers));
        break;
      }
      case 2: {
        RotationSource layers;
        layers.phase = phase;
        Quat q;
        benchmark::DoNotOptimize(BlendRotationLayers(identity, q, 0, kLayerCount, layers));
        benchmark::DoNotOptimize(q);
        break;
      }
      case 3: {
        ScaleSource layers;
        layers.phase = phase;
        ScaleValue v;
        benchmark::DoNotOptimize(BlendScaleLayers(identity, v, 0, kLayerCount, layers));
        benchmark::DoNotOptimize(v);
        break;
      }
      default: {
        FourLayers layers{phase};
        float acc[3];
        BlendEulerLayers(acc, 0, kLayerCount, layers);
        benchmark::DoNotOptimize(EulerByAxisToMatrix(acc, 0));
        break;
      }
    }
  }
  ReportPerEvaluation(state, std::chrono::steady_clock::now() - start, allocations.Count());
}
BENCHMARK(BM_BlendCore4Layers)->DenseRange(0, 4, 1)->Iterations(1000000);

// ---- A layered node against the same node unlayered ----------------------------------------

/// The animation runs over this many ticks; each evaluation takes the next tick, so the node
/// caches never answer.
constexpr TimeValue kAnimTicks = 9600;
constexpr TimeValue kKeyStep = kAnimTicks / 4;

// Keys at five times on a position, rotation and scale controller.
void KeyTransform(Control* pos, Control* rot, Control* scl, float amount) {
  for (TimeValue t = 0; t <= kAnimTicks; t += kKeyStep) {
    const float x = amount * static_cast<float>(t) / static_cast<float>(kAnimTicks);
    Point3 p(x, 2.0f * x, -x);
    pos->SetValue(t, &p, 1, CTRL_ABSOLUTE);
    Quat q = QFromAngAxis(x, Normalize(Point3(1, 2, 3)));
    rot->SetValue(t, &q, 1, CTRL_ABSOLUTE);
    ScaleValue s(Point3(1.0f + 0.1f * x, 1.0f, 1.0f - 0.05f * x));
    scl->SetValue(t, &s, 1, CTRL_ABSOLUTE);
  }
}

/// Two nodes under one parent with the same keys on their base tracks; `layered` has four
/// layers on each of position, rotation and scale (an Override base, an Adjustment at 0.7, an
/// Override at 0.4, an Adjustment at 1.5), each keyed, and the top layer active so that all
/// four blend.
struct LayeredScene {
  explicit LayeredScene(bool euler_blending) {
    RegisterHostClasses();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    for (ClassDesc2* cd : {GetAnimationLayersDesc(), GetAnimLayersLocalWeightsDesc(),
                           GetFloatLayersDesc(), GetPositionLayersDesc(), GetRotationLayersDesc(),
                           GetScaleLayersDesc(), GetRotationXYZDesc()}) {
      ClassDirectory::Get().AddClass(cd);
    }
    Interface* ip = GetCOREInterface();
    ip->Reset();
    HoldSuspend no_undo;
    INode* parent = ip->CreateObjectNode(nullptr, "parent");
    parent->SetNodeTM(0, RotateZMatrix(0.3f) * TransMatrix(Point3(5, 1, 2)));
    plain = ip->CreateObjectNode(nullptr, "plain");
    layered = ip->CreateObjectNode(nullptr, "layered");
    AnimateOn();
    for (INode* n : {plain, layered}) {
      parent->AttachChild(n, 0);
      Control* tm = n->GetTMController();
      KeyTransform(tm->GetPositionController(), tm->GetRotationController(),
                   tm->GetScaleController(), 1.0f);
    }
    auto* layers = new AnimationLayers();
    auto* weights = new AnimLayersLocalWeights();
    weights->ReplaceReference(AnimLayersLocalWeights::kLayersRef, layers);
    weights->SyncWeights();
    layers->SetEulerBlending(euler_blending);
    Control* tm = layered->GetTMController();
    AnimationLayersControl* tracks[3];
    const SClass_ID kinds[3] = {CTRL_POSITION_CLASS_ID, CTRL_ROTATION_CLASS_ID,
                                CTRL_SCALE_CLASS_ID};
    for (int i = 0; i < 3; ++i) {
      tracks[i] =
          WrapInLayers(kinds[i], static_cast<Control*>(tm->GetReference(i)), layers, weights);
      tm->ReplaceReference(i, tracks[i]);
    }
    layers->AddLayer(kLayerAdjustment, "adjust", 1);
    layers->AddLayer(kLayerOverride, "override", 2);
    layers->AddLayer(kLayerAdjustment, "overshoot", 3);
    const float layer_weights[kLayerCount] = {1.0f, 0.7f, 0.4f, 1.5f};
    for (int i = 1; i < kLayerCount; ++i) {
      layers->SetWeight(i, layer_weights[i], 0);
      KeyTransform(tracks[0]->LayerController(i), tracks[1]->LayerController(i),
                   tracks[2]->LayerController(i), 0.2f * static_cast<float>(i));
    }
    AnimateOff();
    layers->SetActiveLayer(kLayerCount - 1);
    theHold.Clear();
  }
  ~LayeredScene() {
    GetCOREInterface()->Reset();
    theHold.Clear();
  }

  INode* plain = nullptr;
  INode* layered = nullptr;
};

/// The world transform of each node at a new time, in blocks of 64 evaluations timed apart:
/// ns_plain and ns_layered per evaluation, and their ratio. Argument 0: Euler blending off (0)
/// or on (1).
void BM_LayeredNodeAgainstPlain(benchmark::State& state) {
  LayeredScene scene(state.range(0) != 0);
  constexpr int kBlock = 64;
  std::chrono::steady_clock::duration plain_time{}, layered_time{};
  TimeValue t = 0;
  const test::AllocationScope allocations;
  std::size_t layered_allocations = 0;
  for (auto _ : state) {
    const TimeValue block_start = t;
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kBlock; ++i) {
      t = t == kAnimTicks ? 0 : t + 1;
      benchmark::DoNotOptimize(scene.plain->GetNodeTM(t));
    }
    plain_time += std::chrono::steady_clock::now() - start;
    t = block_start;
    const std::size_t before = allocations.Count();
    start = std::chrono::steady_clock::now();
    for (int i = 0; i < kBlock; ++i) {
      t = t == kAnimTicks ? 0 : t + 1;
      benchmark::DoNotOptimize(scene.layered->GetNodeTM(t));
    }
    layered_time += std::chrono::steady_clock::now() - start;
    layered_allocations += allocations.Count() - before;
  }
  const double evaluations = static_cast<double>(state.iterations()) * kBlock;
  const double plain_ns = std::chrono::duration<double, std::nano>(plain_time).count();
  const double layered_ns = std::chrono::duration<double, std::nano>(layered_time).count();
  state.counters["ns_plain"] = plain_ns / evaluations;
  state.counters["ns_layered"] = layered_ns / evaluations;
  state.counters["ratio"] = plain_ns > 0.0 ? layered_ns / plain_ns : 0.0;
  state.counters["allocs_per_layered_eval"] =
      static_cast<double>(layered_allocations) / evaluations;
}
BENCHMARK(BM_LayeredNodeAgainstPlain)->Arg(0)->Arg(1)->Iterations(20000);

}  // namespace
}  // namespace marvolith

BENCHMARK_MAIN();
