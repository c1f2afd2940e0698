// Copyright Marvolith contributors.
// Benchmarks of the chain solvers, in nanoseconds per solve with the allocations per solve (0
// expected once the buffers are sized).

#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

#include "chains/curve_ik_solver.h"
#include "host/math/matrix3.h"
#include "tests/support/alloc_counter.h"

namespace marvolith {
namespace {

void ReportPerSolve(benchmark::State& state,
                    std::chrono::steady_clock::duration elapsed,
                    std::size_t allocations) {
  const double solves = static_cast<double>(state.iterations());
  state.counters["ns_per_solve"] =
      std::chrono::duration<double, std::nano>(elapsed).count() / solves;
  state.counters["allocs_per_solve"] = static_cast<double>(allocations) / solves;
  state.SetItemsProcessed(state.iterations());
}

// ---------------------------------------------------------------------------------------------
// Curve IK

/// A spine-sized curve: 4 Smooth points (turned and scaled, so the point rotation and scale
/// paths run), 16 steps per span, 12 joints at even percents, Child follow, twist and squash.
struct CurveChain {
  CurveChain() {
    const Point3 at[4] = {{0, 0, 0}, {10, 15, 2}, {20, -5, 6}, {30, 5, 0}};
    for (int i = 0; i < 4; ++i) {
      CurveIKPoint p;
      p.tm_cs = RotateXMatrix(0.3f * static_cast<float>(i)) * TransMatrix(at[i]);
      p.twist = 0.1f * static_cast<float>(i);
      points.push_back(p);
    }
    for (int i = 0; i < 12; ++i) {
      percents.push_back(static_cast<float>(i) / 11.0f);
      squash.push_back(1.0f);
    }
    joints.resize(12);
    in.params.steps = 16;
    in.params.twist = 0.5f;
    in.params.squash = 0.5f;
    in.params.chain_length = 30.0f;
    in.space_tm = RotateZMatrix(0.2f) * TransMatrix(Point3(1, 2, 3));
  }
  void Solve() {
    in.points = points;
    in.joint_percents = percents;
    in.joint_squash = squash;
    SolveCurveIK(in, ws, joints);
  }

  std::vector<CurveIKPoint> points;
  std::vector<float> percents, squash;
  std::vector<Matrix3> joints;
  CurveIKInput in;
  CurveIKWorkspace ws;
};

// The whole solve, with a point moving every time so that nothing could be reused.
void BM_CurveIKSolve(benchmark::State& state) {
  CurveChain chain;
  chain.Solve();  // sizes the workspace
  float x = 0.0f;
  const test::AllocationScope allocations;
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    x = x > 5.0f ? 0.0f : x + 0.001f;
    chain.points[2].tm_cs.SetTrans(Point3(20, -5 + x, 6));
    chain.Solve();
    benchmark::DoNotOptimize(chain.joints.data());
  }
  ReportPerSolve(state, std::chrono::steady_clock::now() - start, allocations.Count());
}
BENCHMARK(BM_CurveIKSolve)->Iterations(200000);

// The same with the wave on: every span is sampled and the samples are moved and re-measured.
void BM_CurveIKSolveWave(benchmark::State& state) {
  CurveChain chain;
  chain.in.params.use_wave = true;
  chain.in.params.wave_amplitude = 1.0f;
  chain.in.params.wave_length = 12.0f;
  chain.Solve();
  float phase = 0.0f;
  const test::AllocationScope allocations;
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    phase += 0.001f;
    chain.in.params.wave_phase = phase;
    chain.Solve();
    benchmark::DoNotOptimize(chain.joints.data());
  }
  ReportPerSolve(state, std::chrono::steady_clock::now() - start, allocations.Count());
}
BENCHMARK(BM_CurveIKSolveWave)->Iterations(200000);

}  // namespace
}  // namespace marvolith

BENCHMARK_MAIN();
