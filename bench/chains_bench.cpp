// Copyright Marvolith contributors.
// Benchmarks of the chain solvers, in nanoseconds per solve with the allocations per solve (0
// expected once the buffers have their size).

#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

#include "chains/curve_ik_solver.h"
#include "chains/ikfk_chain.h"
#include "chains/ikfk_scripts.h"
#include "chains/ikfk_solver.h"
#include "host/app/host_classes.h"
#include "host/params/iparamb2.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
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

// ---- IKFK chain in a scene ------------------------------------------------------------------

/// A chain made by CreateIKFKSolver over joint_count plain joints bent in the XZ plane, with the
/// goal pulled in so that IK bends it.
IKFKChain* MakeSceneChain(int joint_count) {
  RegisterHostClasses();
  GetCOREInterface()->Reset();
  INode* parent = nullptr;
  INode* first = nullptr;
  for (int i = 0; i < joint_count; ++i) {
    INode* joint = GetCOREInterface()->CreateObjectNode(nullptr, "joint");
    if (parent) parent->AttachChild(joint, 0);
    const float x = 20.0f * static_cast<float>(i) / static_cast<float>(joint_count - 1);
    joint->SetNodeTM(0, TransMatrix(Point3(x, 0, (i % 2) ? 2.0f : 0.0f)));
    if (!first) first = joint;
    parent = joint;
  }
  const FPValue args[2] = {FPValue(first), FPValue(parent)};
  PrimitiveCall call;
  call.args = args;
  INode* chain_node = CreateIKFKSolver(call).AsNode();
  theHold.Clear();
  auto* chain = dynamic_cast<IKFKChain*>(chain_node->GetTMController());
  chain->GoalNode()->SetNodeTM(0, TransMatrix(Point3(14, 3, 4)));
  return chain;
}

/// One solve of a chain controller per iteration, reading its joints' FK tracks, goal and target
/// through their member controllers, then every joint's transform from the cache; argument 0 is
/// the joint count, argument 1 the blend in percent.
void BM_IKFKChainSolve(benchmark::State& state) {
  IKFKChain* chain = MakeSceneChain(static_cast<int>(state.range(0)));
  chain->ParamBlock()->SetValue(kIKFKBlend, 0, static_cast<float>(state.range(1)) / 100.0f);
  Matrix3 tm;
  Interval valid = FOREVER;
  chain->GetJointTM(0, 0, tm, valid);  // the cache takes its size
  const int joints = chain->NumJoints();
  const test::AllocationScope allocations;
  const auto start = std::chrono::steady_clock::now();
  TimeValue t = 0;
  for (auto _ : state) {
    t = t >= 160 * 1000 ? 0 : t + 160;  // a new frame: the cache solves again
    for (int i = 0; i < joints; ++i) chain->GetJointTM(i, t, tm, valid);
    benchmark::DoNotOptimize(tm);
  }
  ReportPerSolve(state, std::chrono::steady_clock::now() - start, allocations.Count());
  GetCOREInterface()->Reset();
}
BENCHMARK(BM_IKFKChainSolve)->Args({3, 100})->Args({3, 50})->Args({5, 100})->Iterations(200000);

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
