// Copyright Marvolith contributors.
// Benchmarks of layered tracks, in nanoseconds per evaluation with the allocations per
// evaluation (0 expected: blending allocates nothing). Run with --benchmark_repetitions=N
// --benchmark_report_aggregates_only=true for medians.

#include <benchmark/benchmark.h>

#include <chrono>

#include "host/math/affine.h"
#include "host/math/matrix3.h"
#include "layers/layer_blend.h"
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

}  // namespace
}  // namespace marvolith

BENCHMARK_MAIN();
