// Copyright Marvolith contributors.
#include "host/core/param_dimension.h"

#include <numbers>

namespace {

class ScaledDimension final : public ParamDimension {
 public:
  constexpr ScaledDimension(DimType type, float scale, const char* name)
      : type_(type), scale_(scale), name_(name) {}
  DimType DimensionType() override { return type_; }
  float Convert(float value) override { return value * scale_; }
  float UnConvert(float value) override { return value / scale_; }
  float GetDimScale() override { return scale_; }
  const char* DimensionName() override { return name_; }

 private:
  DimType type_;
  float scale_;
  const char* name_;
};

ScaledDimension g_default(DIM_NONE, 1.0f, "");
ScaledDimension g_world(DIM_WORLD, 1.0f, "World");
ScaledDimension g_angle(DIM_ANGLE, static_cast<float>(180.0 / std::numbers::pi), "Angle");
ScaledDimension g_percent(DIM_PERCENT, 100.0f, "Percent");
ScaledDimension g_normalized(DIM_NORMALIZED, 1.0f, "Normalized");

}  // namespace

ParamDimension* const defaultDim = &g_default;
ParamDimension* const stdWorldDim = &g_world;
ParamDimension* const stdAngleDim = &g_angle;
ParamDimension* const stdPercentDim = &g_percent;
ParamDimension* const stdNormalizedDim = &g_normalized;
