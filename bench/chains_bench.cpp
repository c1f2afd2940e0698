// Copyright Marvolith contributors.
// Benchmarks of the chain solvers, in nanoseconds per solve with the allocations per solve (0
// expected once the buffers have their size).
#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

#include "chains/ikfk_solver.h"
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

// ---- IKFK chain -------------------------------------------------------------------------------

/// A limb of joint_count joints, each bent a little towards -Y, under a moved and turned parent,
/// with the buffers a chain controller keeps between solves.
struct IKFKLimb {
  explicit IKFKLimb(int joint_count)
      : joints(joint_count),
        tms(joint_count),
        pos(joint_count),
        rot(joint_count),
        pref(joint_count) {
    joints[0].position = Point3(1, 2, 3);
    joints[0].rotation = QFromAngAxis(0.3f, Normalize(Point3(1, 1, 0)));
    for (int i = 1; i < joint_count; ++i) {
      joints[i].position = Point3(10.0f / static_cast<float>(joint_count - 1), 0, 0);
      if (i + 1 < joint_count) joints[i].rotation = QFromAngAxis(0.3f, Point3::ZAxis);
    }
    in.parent_ws = RotateZMatrix(0.2f) * TransMatrix(Point3(5, 0, 0));
    in.joints_fk = joints;
    in.soft_ik = 0.05f;
    in.swivel_angle = 0.3f;
  }

  /// Solves with the goal at a point that moves every call, within and beyond reach.
  void Solve(float x) {
    in.goal_ws = TransMatrix(Point3(6.0f + x, 3.0f - 0.5f * x, 1.0f + 0.2f * x));
    IKFKSolveOutput out{tms, pos, rot, pref};
    benchmark::DoNotOptimize(SolveIKFK(in, out, ws));
    benchmark::DoNotOptimize(out.stretch_factor);
  }

  std::vector<IKFKJointFK> joints;
  IKFKSolveInput in;
  IKFKWorkspace ws;
  std::vector<Matrix3> tms;
  std::vector<Point3> pos;
  std::vector<Quat> rot;
  std::vector<Quat> pref;
};

/// One solve of the pure core per iteration; argument 0 is the joint count (3: the two-bone
/// closed form, 5: the N-joint search), argument 1 the blend in percent (100 pure IK; below it
/// every joint also blends toward FK).
void BM_IKFKSolveCore(benchmark::State& state) {
  IKFKLimb limb(static_cast<int>(state.range(0)));
  limb.in.ikfk_blend = static_cast<float>(state.range(1)) / 100.0f;
  limb.Solve(0.0f);  // the workspace takes its size
  float x = 0.0f;
  const test::AllocationScope allocations;
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    x = x > 10.0f ? 0.0f : x + 0.001f;
    limb.Solve(x);
  }
  ReportPerSolve(state, std::chrono::steady_clock::now() - start, allocations.Count());
}
BENCHMARK(BM_IKFKSolveCore)
    ->Args({3, 100})
    ->Args({3, 80})
    ->Args({5, 100})
    ->Args({5, 80})
    ->Iterations(1000000);

}  // namespace
}  // namespace marvolith

BENCHMARK_MAIN();
