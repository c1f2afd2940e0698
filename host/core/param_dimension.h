// Copyright Marvolith contributors.
// Parameter dimensions: how a track's stored value reads in display units (radians shown as
// degrees, fractions as percentages). The parent of a track gives its dimension.
#pragma once

enum DimType {
  DIM_WORLD,
  DIM_ANGLE,
  DIM_COLOR,
  DIM_COLOR255,
  DIM_PERCENT,
  DIM_NORMALIZED,
  DIM_SEGMENTS,
  DIM_TIME,
  DIM_CUSTOM,
  DIM_NONE,
};

/// Converts a track's stored value to display units (Convert) and back (UnConvert).
class ParamDimensionBase {
 public:
  virtual ~ParamDimensionBase() = default;
  virtual DimType DimensionType() = 0;
  virtual float Convert(float value) = 0;
  virtual float UnConvert(float value) = 0;
};

class ParamDimension : public ParamDimensionBase {
 public:
  /// Display units per stored unit.
  virtual float GetDimScale() { return 1.0f; }
  virtual const char* DimensionName() { return ""; }
};

/// The host's shared dimensions. defaultDim (DIM_NONE) and stdWorldDim leave values as they are;
/// stdAngleDim shows radians as degrees; stdPercentDim shows fractions as percentages;
/// stdNormalizedDim leaves 0..1 values as they are.
extern ParamDimension* const defaultDim;
extern ParamDimension* const stdWorldDim;
extern ParamDimension* const stdAngleDim;
extern ParamDimension* const stdPercentDim;
extern ParamDimension* const stdNormalizedDim;
