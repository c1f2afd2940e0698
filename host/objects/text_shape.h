// Copyright Marvolith contributors.
// The host's text shape: a line of text as spline outlines, from one parameter block.
#pragma once

#include <vector>

#include "host/objects/bezier_shape.h"
#include "host/objects/stroke_font.h"
#include "host/params/iparamb2.h"
#include "host/scene/object.h"

class ClassDesc2;

/// Class of the text shape (super class SHAPE_CLASS_ID).
inline constexpr Class_ID TEXT_CLASS_ID(0x1993, 0);

/// Parameter ids of the text shape's block (block id 0). Ids are stored in scene files.
enum TextShapeParam : ParamID {
  text_text = 0,  ///< `text`, string, default "MAX Text"
  text_font,      ///< `font`, string, default "Arial"
  text_size,      ///< `size`, world, animatable, default 100
  text_kerning,   ///< `kerning`, world, animatable, default 0
  text_leading,   ///< `leading`, world, animatable, default 0
};
/// Id of the text shape's parameter block.
inline constexpr BlockID kTextShapeParams = 0;

/// The host's text shape ("Text"). Reference 0 is its parameter block; its one sub-anim is that
/// block. Its curves are the text laid out by BuildStrokeText in the XY plane: the headless host
/// draws every `font` with its built-in stroke font, so the font name is kept and saved but
/// does not change the outline. The outline is built on demand and cached over the validity of
/// size, kerning and leading; any change of the block drops it.
class TextShape : public ShapeObject {
 public:
  /// With loading true the block is not made: the scene file links the loaded one.
  explicit TextShape(bool loading = false);

  Class_ID ClassID() override { return TEXT_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override { s = "Text"; }

  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock_ : nullptr; }
  int NumSubs() override { return 1; }
  Animatable* SubAnim(int i) override { return i == 0 ? pblock_ : nullptr; }
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int sub_num) override { return sub_num == 0 ? 0 : -1; }
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;

  /// The text (never null); "" without a block.
  const char* GetText();
  /// Sets `text` through the block (undoable).
  void SetText(const MSTR& text);

  /// The outline at t; the reference holds until the next call or change of the block.
  const BezierShape& GetShape(TimeValue t);

  ObjectState Eval(TimeValue t) override;
  /// Draws the outline's strokes (straight: no interpolation steps) with DisplayBezierShape.
  /// Answers 0.
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override;
  /// The validity of size, kerning and leading at t.
  Interval ObjectValidity(TimeValue t) override;
  /// The exact box of the outline; empty for a text without strokes.
  void GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;
  void GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;

  int NumberOfCurves() override;
  bool CurveClosed(TimeValue t, int curve) override;
  Point3 InterpCurve3D(TimeValue t, int curve, float param) override;
  Point3 TangentCurve3D(TimeValue t, int curve, float param) override;
  float LengthOfCurve(TimeValue t, int curve) override;

  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  StrokeTextLayout GetLayout(TimeValue t, Interval& valid);
  // The outline at t, or at the time of the last build for the time-free curve queries.
  const Spline3D* Curve(TimeValue t, int curve);

  IParamBlock2* pblock_ = nullptr;
  BezierShape shape_;
  Interval shape_valid_ = NEVER;
  std::vector<Point3> display_points_;  // drawing's scratch, not state
};

/// The text shape's class descriptor.
ClassDesc2* GetTextShapeDesc();
