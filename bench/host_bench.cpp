// Copyright Marvolith contributors.
// Benchmarks of the host layer. Math kernels first; other host areas append theirs below.
#include <benchmark/benchmark.h>

#include "host/math/affine.h"
#include "host/math/euler.h"
#include "host/math/matrix3.h"
#include "host/math/quat.h"

namespace {

Matrix3 SampleAffine() {
  Matrix3 m = ScaleMatrix(Point3(1.5f, 0.7f, 2.0f)) * RotateXMatrix(0.3f) * RotateZMatrix(-1.2f);
  m.PreRotateY(0.8f);
  m.SetTrans(Point3(10, -4, 2));
  return m;
}

void BM_Matrix3Multiply(benchmark::State& state) {
  Matrix3 a = SampleAffine();
  Matrix3 b = Inverse(a) * RotateYMatrix(0.1f);
  for (auto _ : state) {
    benchmark::DoNotOptimize(a);
    Matrix3 c = a * b;
    benchmark::DoNotOptimize(c);
  }
}
BENCHMARK(BM_Matrix3Multiply);

void BM_DecompAffine(benchmark::State& state) {
  Matrix3 m = SampleAffine() * ScaleMatrix(Point3(1, -1, 1));
  for (auto _ : state) {
    benchmark::DoNotOptimize(m);
    AffineParts parts;
    decomp_affine(m, &parts);
    benchmark::DoNotOptimize(parts);
  }
}
BENCHMARK(BM_DecompAffine);

void BM_EulerToQuat(benchmark::State& state) {
  const int order = static_cast<int>(state.range(0));
  float ang[3] = {0.3f, -1.1f, 2.4f};
  for (auto _ : state) {
    benchmark::DoNotOptimize(ang);
    Quat q;
    EulerToQuat(ang, q, order);
    benchmark::DoNotOptimize(q);
  }
}
BENCHMARK(BM_EulerToQuat)->Arg(EULERTYPE_XYZ)->Arg(EULERTYPE_ZXZ);

void BM_ContinuousQuatToEuler(benchmark::State& state) {
  Quat q(RotateXMatrix(0.3f) * RotateYMatrix(-1.1f) * RotateZMatrix(2.4f));
  for (auto _ : state) {
    float ang[3] = {0.25f, -1.0f, 2.5f};
    benchmark::DoNotOptimize(q);
    ContinuousQuatToEuler(q, ang, EULERTYPE_XYZ);
    benchmark::DoNotOptimize(ang);
  }
}
BENCHMARK(BM_ContinuousQuatToEuler);

}  // namespace

BENCHMARK_MAIN();

// ---- host/controllers: evaluation of keyed tracks --------------------------------------------
#include <cmath>

#include "host/controllers/controller_classes.h"
#include "host/controllers/keyframe_control.h"
#include "host/scene/core_interface.h"

namespace {

constexpr TimeValue kControllerBenchFrame = 160;

// A Bezier float with 100 keys of automatic tangents, sampled across its whole range.
void BM_BezierFloat100Keys(benchmark::State& state) {
  auto* c = new BezierFloatControl();
  AnimateOn();
  for (int i = 0; i < 100; ++i) {
    float v = std::sin(0.3f * static_cast<float>(i)) * 10.0f;
    c->SetValue(i * kControllerBenchFrame, &v);
  }
  AnimateOff();
  TimeValue t = 0;
  for (auto _ : state) {
    float v = 0.0f;
    Interval valid = FOREVER;
    c->GetValue(t, &v, valid);
    benchmark::DoNotOptimize(v);
    t = (t + 37) % (100 * kControllerBenchFrame);
  }
  c->DeleteMe();
}
BENCHMARK(BM_BezierFloat100Keys);

// A default PRS (position XYZ, Euler XYZ, Bezier scale) keyed every 10 frames over 100 frames.
void BM_PRSKeyed(benchmark::State& state) {
  Control* prs = NewDefaultMatrix3Controller();
  AnimateOn();
  for (int i = 0; i <= 10; ++i) {
    const float f = static_cast<float>(i);
    Matrix3 world = ScaleMatrix(Point3(1.0f + 0.05f * f, 1.0f, 1.0f)) * RotateXMatrix(0.2f * f) *
                    RotateZMatrix(-0.1f * f) * TransMatrix(Point3(f, 2.0f * f, -f));
    SetXFormPacket set(world, Matrix3());
    prs->SetValue(i * 10 * kControllerBenchFrame, &set);
  }
  AnimateOff();
  const Matrix3 parent = RotateYMatrix(0.3f) * TransMatrix(Point3(1, 2, 3));
  TimeValue t = 0;
  for (auto _ : state) {
    Matrix3 m = parent;
    Interval valid = FOREVER;
    prs->GetValue(t, &m, valid, CTRL_RELATIVE);
    benchmark::DoNotOptimize(m);
    t = (t + 37) % (100 * kControllerBenchFrame);
  }
  prs->DeleteMe();
}
BENCHMARK(BM_PRSKeyed);

}  // namespace

// --- Scene: node world transforms of a keyed hierarchy ---------------------------------------
#include "host/app/host_classes.h"
#include "host/scene/demo_scene.h"
#include "host/scene/inode.h"

namespace {

// World transforms of every node of a 1,000-node keyed binary tree (default PRS tracks with
// position and rotation keys), one new frame per pass over 1,000 frames: what a redraw of a
// large rig costs. Reports nanoseconds per node per frame as ns_per_node_frame.
void BM_SceneHierarchyWorldTransforms(benchmark::State& state) {
  RegisterHostClasses();
  Interface* ip = GetCOREInterface();
  ip->Reset();
  const int node_count = static_cast<int>(state.range(0));
  const std::vector<INode*> nodes = BuildKeyedHierarchy(node_count);
  const TimeValue frame = ip->GetTicksPerFrame();
  constexpr int kFrames = 1000;
  for (auto _ : state) {
    for (int f = 0; f < kFrames; ++f) {
      // Frames cycle through 0..99 with an offset per pass, so every one is a new time.
      const TimeValue t = (f % 100) * frame + f / 100 + 1;
      for (INode* node : nodes) {
        Matrix3 tm = node->GetNodeTM(t);
        benchmark::DoNotOptimize(tm);
      }
    }
  }
  const double evaluations = double(state.iterations()) * kFrames * node_count;
  state.counters["ns_per_node_frame"] = benchmark::Counter(
      evaluations, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.SetItemsProcessed(static_cast<int64_t>(evaluations));
  ip->Reset();
}
BENCHMARK(BM_SceneHierarchyWorldTransforms)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace

// --- Viewport drawing: recording a scene into the headless viewport --------------------------
#include "host/gfx/draw_scene.h"
#include "host/gfx/headless_viewport.h"
#include "host/objects/point_helper.h"
#include "host/registry/class_desc.h"

namespace {

// One redraw of 500 point helpers (cross and box, every other one of constant screen size and
// drawn on top) into a perspective headless viewport, each frame recorded afresh. Reports
// microseconds per object as us_per_object.
void BM_RecordPointHelpers(benchmark::State& state) {
  RegisterHostClasses();
  Interface* ip = GetCOREInterface();
  ip->Reset();
  const int count = static_cast<int>(state.range(0));
  for (int i = 0; i < count; ++i) {
    auto* point =
        dynamic_cast<PointHelpObject*>(CreateInstance(HELPER_CLASS_ID, POINTHELP_CLASSID));
    point->GetParamBlock(0)->SetValue(pointobj_box, 0, true);
    point->GetParamBlock(0)->SetValue(pointobj_screensize, 0, i % 2 == 0);
    point->GetParamBlock(0)->SetValue(pointobj_drawontop, 0, i % 2 == 0);
    INode* node = ip->CreateObjectNode(point, ("point_" + std::to_string(i)).c_str());
    node->SetNodeTM(0, TransMatrix(Point3(float(i % 25) * 10.0f, float(i / 25) * 10.0f, 0.0f)));
  }
  HeadlessViewport vpt(ViewCamera::Framing(VIEW_PERSP_USER, SceneWorldBox(0), 1280, 720));
  for (auto _ : state) {
    vpt.BeginFrame();
    DrawScene(0, vpt);
    benchmark::DoNotOptimize(vpt.GetDisplayList().points_ws.data());
  }
  const double objects = double(state.iterations()) * count;
  state.counters["us_per_object"] =
      benchmark::Counter(objects * 1e-6, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  ip->Reset();
}
BENCHMARK(BM_RecordPointHelpers)->Arg(500)->Unit(benchmark::kMicrosecond);

}  // namespace

// --- References: one change in a graph full of diamonds --------------------------------------
#include <string>
#include <vector>

#include "host/core/reference.h"

namespace {

// A transform that also reads another node (as a space switch or a follow constraint does):
// local offset applied to the parent's transform, plus a small share of the followed node's
// translation, so the dependency is real.
class FollowTransform : public Control {
 public:
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  Class_ID ClassID() override { return Class_ID(0x4d56beef, 1); }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? followed_ : nullptr; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage,
                             bool) override {
    return REF_SUCCEED;
  }
  void GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) override {
    auto* tm = static_cast<Matrix3*>(val);
    Point3 shift(0, 0, 1);
    if (followed_) shift += followed_->GetNodeTM(t, &valid).GetTrans() * 0.001f;
    tm->PreTranslate(shift);
  }
  void SetValue(TimeValue, void*, int, GetSetMethod) override {}

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i == 0) followed_ = static_cast<INode*>(target);
  }

 private:
  INode* followed_ = nullptr;
};

// A 250-node parent chain in which every node also follows the node ten above it; one key change
// at the top. Reports the messages delivered per change; the goal is well under a millisecond.
void BM_KeyChangeInDiamondChain(benchmark::State& state) {
  RegisterHostClasses();
  Interface* ip = GetCOREInterface();
  ip->Reset();
  const int count = static_cast<int>(state.range(0));
  std::vector<INode*> nodes;
  for (int i = 0; i < count; ++i) {
    INode* n = ip->CreateObjectNode(nullptr, ("chain" + std::to_string(i)).c_str());
    if (i > 0) {
      auto* follow = new FollowTransform;
      n->SetTMController(follow);
      nodes.back()->AttachChild(n, 0);
      if (i >= 10) follow->ReplaceReference(0, nodes[static_cast<size_t>(i - 10)]);
    }
    nodes.push_back(n);
  }
  Control* top = nodes.front()->GetTMController()->GetPositionController();
  float x = 0.0f;
  std::uint64_t delivered = 0;
  for (auto _ : state) {
    state.PauseTiming();
    for (INode* n : nodes) benchmark::DoNotOptimize(n->GetNodeTM(0));  // fill the caches
    state.ResumeTiming();
    Point3 p(x += 1.0f, 0, 0);
    const std::uint64_t before = RefMsgDeliveries();
    top->SetValue(0, &p, 1, CTRL_ABSOLUTE);
    delivered = RefMsgDeliveries() - before;
  }
  state.counters["messages_per_change"] = static_cast<double>(delivered);
  ip->Reset();
}
BENCHMARK(BM_KeyChangeInDiamondChain)->Arg(250)->Unit(benchmark::kMicrosecond);

}  // namespace
