// Copyright Marvolith contributors.
// Benchmarks of the constraints, each a million evaluations on targets that change every time,
// in nanoseconds per evaluation with the allocations per evaluation (0 expected): a parent
// constraint on four keyed targets and its blend alone; a stretch constraint through its node
// on an animated end, its GetValue alone, and the pure stretch frame.
#include <benchmark/benchmark.h>

#include <chrono>

#include "constraints/aim_frames.h"
#include "constraints/parent_constraint.h"
#include "constraints/stretch_constraint.h"
#include "constraints/target_blend.h"
#include "host/app/host_classes.h"
#include "host/core/clock.h"
#include "host/params/iparamb2.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "tests/support/alloc_counter.h"

namespace marvolith {
namespace {

constexpr int kEvaluations = 1000000;
/// The end's animation runs over this many ticks; each evaluation takes the next tick, so no
/// two evaluations in a row share a time and the node caches never answer.
constexpr TimeValue kAnimTicks = 9600;

/// start, an animated end and a bone on a StretchConstraint (align 2, inherit_scale 2, stretch
/// on) between them.
struct StretchScene {
  StretchScene() {
    RegisterHostClasses();
    Interface* ip = GetCOREInterface();
    ip->Reset();
    start = ip->CreateObjectNode(nullptr, "start");
    start->SetNodeTM(0, RotateZMatrix(0.3f) * TransMatrix(Point3(1, 2, 3)));
    end = ip->CreateObjectNode(nullptr, "end");
    Control* end_pos = end->GetTMController()->GetPositionController();
    AnimateOn();
    for (TimeValue t = 0; t <= kAnimTicks; t += kAnimTicks / 4) {
      Point3 p(10.0f + 0.003f * t, 5.0f * (t % 4800 == 0 ? 1.0f : -1.0f), 0.001f * t);
      end_pos->SetValue(t, &p, 1, CTRL_ABSOLUTE);
    }
    AnimateOff();
    bone = ip->CreateObjectNode(nullptr, "bone");
    stretch = new StretchConstraint;
    bone->SetTMController(stretch);
    IParamBlock2* pb = stretch->ParamBlock();
    pb->SetValue(kStretchStart, 0, start);
    pb->SetValue(kStretchEnd, 0, end);
    pb->SetValue(kStretchAlign, 0, 2);
    pb->SetValue(kStretchInheritScale, 0, 2);
    pb->SetValue(kStretchScaleActive, 0, true);
    pb->SetValue(kStretchSquash, 0, 0.5f);
  }
  ~StretchScene() { GetCOREInterface()->Reset(); }

  INode* start = nullptr;
  INode* end = nullptr;
  INode* bone = nullptr;
  StretchConstraint* stretch = nullptr;
};

void ReportPerEvaluation(benchmark::State& state,
                         std::chrono::steady_clock::duration elapsed,
                         std::size_t allocations) {
  const double evaluations = static_cast<double>(state.iterations());
  state.counters["ns_per_eval"] =
      std::chrono::duration<double, std::nano>(elapsed).count() / evaluations;
  state.counters["allocs_per_eval"] = static_cast<double>(allocations) / evaluations;
  state.SetItemsProcessed(state.iterations());
}

// The whole road through the node: the bone's transform at a new time each evaluation, which
// evaluates the end's animation (the start is static and stays cached) and the constraint.
void BM_StretchConstraint(benchmark::State& state) {
  StretchScene scene;
  TimeValue t = 0;
  const test::AllocationScope allocations;
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    t = t == kAnimTicks ? 0 : t + 1;
    benchmark::DoNotOptimize(scene.bone->GetNodeTM(t));
  }
  ReportPerEvaluation(state, std::chrono::steady_clock::now() - start, allocations.Count());
}
BENCHMARK(BM_StretchConstraint)->Iterations(kEvaluations);

// The controller's GetValue alone, the start and end transforms cached at one time: what the
// constraint itself costs, and that it allocates nothing.
void BM_StretchConstraintGetValue(benchmark::State& state) {
  StretchScene scene;
  scene.start->GetNodeTM(0);
  scene.end->GetNodeTM(0);
  const Matrix3 parent = RotateXMatrix(0.2f);
  const test::AllocationScope allocations;
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    Matrix3 tm = parent;
    Interval valid = FOREVER;
    scene.stretch->GetValue(0, &tm, valid, CTRL_RELATIVE);
    benchmark::DoNotOptimize(tm);
  }
  ReportPerEvaluation(state, std::chrono::steady_clock::now() - start, allocations.Count());
}
BENCHMARK(BM_StretchConstraintGetValue)->Iterations(kEvaluations);

// The pure stretch frame on a moving end.
void BM_StretchFrameCore(benchmark::State& state) {
  const Matrix3 start_ws = RotateZMatrix(0.3f) * TransMatrix(Point3(1, 2, 3));
  Matrix3 end_ws = TransMatrix(Point3(20, 0, 0));
  StretchInput in;
  in.start_ws = &start_ws;
  in.end_ws = &end_ws;
  in.end_active = true;
  in.squash = 0.5f;
  float x = 0.0f;
  const test::AllocationScope allocations;
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    x = x > 50.0f ? 0.0f : x + 0.01f;
    end_ws.SetTrans(Point3(20.0f + x, 5.0f - x, 0.5f * x));
    benchmark::DoNotOptimize(StretchFrame(in));
  }
  ReportPerEvaluation(state, std::chrono::steady_clock::now() - start, allocations.Count());
}
BENCHMARK(BM_StretchFrameCore)->Iterations(kEvaluations);

constexpr int kTargets = 4;
constexpr TimeValue kSpan = 100 * 160;  // frames 0..100

/// Four keyed targets that move and turn over frames 0..100, and a node parent-constrained to
/// them: every new time gives the constraint new target transforms.
struct ParentScene {
  ParentScene() {
    RegisterHostClasses();
    Interface* ip = GetCOREInterface();
    ip->Reset();
    AnimateOn();
    for (int i = 0; i < kTargets; ++i) {
      INode* t = ip->CreateObjectNode(nullptr);
      const Point3 axis(1.0f, 0.5f * i, 2.0f - i);
      t->SetNodeTM(
          0, RotAngleAxisMatrix(Normalize(axis), 0.3f * i) * TransMatrix(Point3(10.0f * i, 0, 0)));
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
  const test::AllocationScope allocations;
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    tm = Matrix3();
    valid = FOREVER;
    scene.pc->GetValue(t, &tm, valid, CTRL_RELATIVE);
    benchmark::DoNotOptimize(tm);
    t = t % kSpan + 1;
  }
  ReportPerEvaluation(state, std::chrono::steady_clock::now() - start, allocations.Count());
}
BENCHMARK(BM_ParentConstraint4Targets)->Iterations(kEvaluations);

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
  const test::AllocationScope allocations;
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    const Matrix3 turn = RotateXMatrix(0.001f * static_cast<float>(frame));
    frame = (frame + 1) % 1000;
    TargetBlend blend;
    for (int i = 0; i < kTargets; ++i) blend.Add(StableDecompose(turn * inputs[i]), 25.0f);
    benchmark::DoNotOptimize(blend.Result());
  }
  ReportPerEvaluation(state, std::chrono::steady_clock::now() - start, allocations.Count());
}
BENCHMARK(BM_ParentBlendCore4Targets)->Arg(0)->Arg(1)->Iterations(kEvaluations);

}  // namespace
}  // namespace marvolith

BENCHMARK_MAIN();
