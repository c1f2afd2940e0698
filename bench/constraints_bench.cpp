// Copyright Marvolith contributors.
// Benchmarks of the constraints: evaluations on targets that change every time, reported in
// nanoseconds per evaluation with the allocations per evaluation as a counter (0 expected).
#include <benchmark/benchmark.h>

#include <vector>

#include "constraints/parent_constraint.h"
#include "constraints/target_blend.h"
#include "host/core/clock.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "tests/support/alloc_counter.h"

namespace marvolith {
namespace {

constexpr int kTargets = 4;
constexpr TimeValue kSpan = 100 * 160;  // frames 0..100

/// Evaluations per second as items, and allocations per evaluation.
void Report(benchmark::State& state, std::size_t allocations) {
  state.SetItemsProcessed(state.iterations());
  state.counters["allocs_per_eval"] =
      static_cast<double>(allocations) / static_cast<double>(state.iterations());
}

/// Four keyed targets that move and turn over frames 0..100, and a node parent-constrained to
/// them: every new time gives the constraint new target transforms.
struct ParentScene {
  ParentScene() {
    Interface* ip = GetCOREInterface();
    ip->Reset();
    AnimateOn();
    for (int i = 0; i < kTargets; ++i) {
      INode* t = ip->CreateObjectNode(nullptr);
      const Point3 axis(1.0f, 0.5f * i, 2.0f - i);
      t->SetNodeTM(0, RotAngleAxisMatrix(Normalize(axis), 0.3f * i) *
                          TransMatrix(Point3(10.0f * i, 0, 0)));
      t->SetNodeTM(kSpan, RotAngleAxisMatrix(Normalize(axis), 1.5f + i) *
                              TransMatrix(Point3(0, 10.0f * i, 5.0f)));
      targets.push_back(t);
    }
    AnimateOff();
    node = ip->CreateObjectNode(nullptr);
    pc = new ParentConstraint;
    node->SetTMController(pc);
    for (INode* t : targets) pc->AppendTarget(t, 25.0f);
  }
  ~ParentScene() { GetCOREInterface()->Reset(); }

  std::vector<INode*> targets;
  INode* node = nullptr;
  ParentConstraint* pc = nullptr;
};

void BM_ParentConstraint4Targets(benchmark::State& state) {
  ParentScene scene;
  TimeValue t = 1;
  Matrix3 tm;
  Interval valid = FOREVER;
  scene.pc->GetValue(0, &tm, valid, CTRL_RELATIVE);  // trackers reach their size
  const std::size_t before = test::AllocationCount();
  for (auto _ : state) {
    tm = Matrix3();
    valid = FOREVER;
    scene.pc->GetValue(t, &tm, valid, CTRL_RELATIVE);
    benchmark::DoNotOptimize(tm);
    t = t % kSpan + 1;
  }
  Report(state, test::AllocationCount() - before);
}
BENCHMARK(BM_ParentConstraint4Targets)->Iterations(1000000);

/// The blend alone, on four matrices that turn a little every evaluation: rigid targets
/// (argument 0) or targets with a stretch each (argument 1), which take the full decomposition.
void BM_ParentBlendCore4Targets(benchmark::State& state) {
  const bool scaled = state.range(0) != 0;
  Matrix3 inputs[kTargets];
  for (int i = 0; i < kTargets; ++i) {
    inputs[i] = ScaleMatrix(Point3(scaled ? 1.5f + i : 1.0f, 1, 1)) * RotateZMatrix(0.4f * i) *
                TransMatrix(Point3(3.0f * i, 1, 0));
  }
  int frame = 0;
  const std::size_t before = test::AllocationCount();
  for (auto _ : state) {
    const Matrix3 turn = RotateXMatrix(0.001f * static_cast<float>(frame));
    frame = (frame + 1) % 1000;
    TargetBlend blend;
    for (int i = 0; i < kTargets; ++i) blend.Add(StableDecompose(turn * inputs[i]), 25.0f);
    benchmark::DoNotOptimize(blend.Result());
  }
  Report(state, test::AllocationCount() - before);
}
BENCHMARK(BM_ParentBlendCore4Targets)->Arg(0)->Arg(1)->Iterations(1000000);

}  // namespace
}  // namespace marvolith

BENCHMARK_MAIN();
