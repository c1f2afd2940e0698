// Copyright Marvolith contributors.
// Benchmarks of the control objects: a frame of 500 controls drawn through the graphics window
// of a headless viewport, reported in microseconds per control, and the figure generator alone.
#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

#include "controls/control_helper.h"
#include "controls/control_shape.h"
#include "controls/figure_builders.h"
#include "host/gfx/headless_viewport.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"

namespace marvolith {
namespace {

constexpr int kControlsPerFrame = 500;

/// Counts polyline points without keeping them.
class CountingOut : public PolylineOut {
 public:
  void Polyline(std::span<const Point3> points, bool) override { count += points.size(); }
  size_t count = 0;
};

/// A scene of 500 controls of every figure type in turn, on a grid, and the viewport to draw
/// them in.
struct ControlFrame {
  explicit ControlFrame(bool shapes) {
    GetCOREInterface()->Reset();
    for (int i = 0; i < kControlsPerFrame; ++i) {
      const int type = 1 + i % (kControlTypeCount - 1);
      BaseObject* object = nullptr;
      if (shapes) {
        auto* s = new ControlShape;
        s->SetType(type);
        object = s;
      } else {
        auto* h = new ControlHelper;
        h->SetType(type);
        object = h;
      }
      INode* node = GetCOREInterface()->CreateObjectNode(static_cast<Object*>(object));
      node->SetNodeTM(0, TransMatrix(Point3(30.0f * (i % 25), 30.0f * (i / 25), 0)));
      nodes.push_back(node);
      objects.push_back(object);
    }
  }
  ~ControlFrame() { GetCOREInterface()->Reset(); }

  /// Draws every control once; answers the points recorded.
  size_t Draw() {
    viewport.BeginFrame();
    for (int i = 0; i < kControlsPerFrame; ++i) objects[i]->Display(0, nodes[i], &viewport, 0);
    return viewport.GetDisplayList().points_ws.size();
  }

  std::vector<INode*> nodes;
  std::vector<BaseObject*> objects;
  HeadlessViewport viewport{ViewCamera::Framing(
      VIEW_PERSP_USER, Box3(Point3(0, 0, -20), Point3(750, 600, 20)), 1280, 720)};
};

/// Microseconds per control of the timed loop, as a counter.
void ReportPerControl(benchmark::State& state, std::chrono::steady_clock::duration elapsed) {
  const double controls = static_cast<double>(state.iterations()) * kControlsPerFrame;
  state.counters["us_per_control"] =
      std::chrono::duration<double, std::micro>(elapsed).count() / controls;
  state.SetItemsProcessed(static_cast<int64_t>(controls));
}

void BM_ControlHelperFrame(benchmark::State& state) {
  ControlFrame frame(false);
  frame.Draw();  // the display list and the point arrays reach their size
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) benchmark::DoNotOptimize(frame.Draw());
  ReportPerControl(state, std::chrono::steady_clock::now() - start);
}
BENCHMARK(BM_ControlHelperFrame)->Unit(benchmark::kMillisecond);

void BM_ControlShapeFrame(benchmark::State& state) {
  ControlFrame frame(true);
  frame.Draw();  // builds every shape cache
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) benchmark::DoNotOptimize(frame.Draw());
  ReportPerControl(state, std::chrono::steady_clock::now() - start);
}
BENCHMARK(BM_ControlShapeFrame)->Unit(benchmark::kMillisecond);

/// The generator alone, per figure type, at the default parameters.
void BM_GenerateFigure(benchmark::State& state) {
  FigureInput in;
  in.type = static_cast<int>(state.range(0));
  std::vector<Point3> points;
  points.reserve(1024);
  CountingOut out;
  for (auto _ : state) {
    PolylineBuilder builder(in.steps, points, out);
    GenerateFigure(in, FigureSet::kHelper, builder);
    benchmark::DoNotOptimize(out.count);
  }
  state.SetLabel(ControlTypeName(in.type));
}
BENCHMARK(BM_GenerateFigure)->DenseRange(1, kControlTypeCount - 1, 1);

/// A ControlShape rebuilt from scratch (after a parameter change) per figure type.
void BM_RebuildShape(benchmark::State& state) {
  FigureInput in;
  in.type = static_cast<int>(state.range(0));
  BezierShape shape;
  for (auto _ : state) {
    BuildFigureShape(in, shape);
    benchmark::DoNotOptimize(shape.SplineCount());
  }
  state.SetLabel(ControlTypeName(in.type));
}
BENCHMARK(BM_RebuildShape)->Arg(5)->Arg(9)->Arg(27)->Arg(31)->Arg(38);

}  // namespace
}  // namespace marvolith

BENCHMARK_MAIN();
