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
