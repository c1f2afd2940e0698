// Copyright Marvolith contributors.
// CurveIKChain: the transform controller of a curve chain's node. It owns the control points,
// their tangents and the joints, solves the curve once per time and serves each joint's
// transform to the joint's CurveIKControl. Its published interface ICurveIKChain.
#pragma once

#include <vector>

#include "chains/curve_ik_solver.h"
#include "constraints/block_constraint.h"
#include "host/script/fp_interface.h"

namespace marvolith {

/// Id of ICurveIKChain; the same pair as CurveIKChain's Class_ID.
inline constexpr Interface_ID ICURVEIKCHAIN_ID(0x45596d56, 0x1e847b52);

/// Parameters of CurveIKChain's block "params" (block id 0, reference 0, version 5).
enum CurveIKChainParam : ParamID {
  kCurveJoints = 0,                ///< node tab, not referenced: the joints in order
  kCurvePoints = 1,                ///< node tab: control points
  kCurvePointsTypes = 2,           ///< int tab: CurvePointType per point
  kCurveInTangents = 3,            ///< node tab
  kCurveOutTangents = 4,           ///< node tab
  kCurvePercent = 5,               ///< fraction, animatable
  kCurveRotation = 6,              ///< angle, animatable
  kCurveTwist = 7,                 ///< angle, animatable
  kCurvePointsTwist = 8,           ///< angle tab, animatable
  kCurveManualStretch = 9,         ///< fraction, animatable
  kCurveAutoStretch = 10,          ///< fraction 0..1, animatable
  kCurveSquash = 11,               ///< fraction, animatable
  kCurveBackwards = 12,            ///< fraction 0..1, animatable
  kCurveSlideJoints = 13,          ///< fraction 0..1, animatable
  kCurveUseWave = 14,              ///< bool
  kCurveWaveAmplitude = 15,        ///< world, animatable
  kCurvePointsWaveAmplitude = 16,  ///< fraction tab, animatable
  kCurveWaveLength = 17,           ///< world, animatable
  kCurveWaveOrientation = 18,      ///< angle, animatable
  kCurveWavePhase = 19,            ///< float, animatable
  kCurveSteps = 20,                ///< int 1..99999 (a stored 0 counts as 1)
  kCurveChainLength = 21,          ///< world, animatable: rest length ("Length")
  kCurveUsePointsRotation = 22,    ///< bool
  kCurveUsePointsScale = 23,       ///< bool
  kCurveAdditiveTwist = 24,        ///< bool
  kCurveClosedLoop = 25,           ///< bool
  kCurveFollowType = 26,           ///< int 0..2: CurveFollow
  kCurveAimAxis = 27,              ///< int 0..2
  kCurveAimAxisFlip = 28,          ///< bool
  kCurveAlignAxis = 29,            ///< int 0..2 ("Up Axis")
  kCurveAlignAxisFlip = 30,        ///< bool
  kCurveParentSpace = 31,          ///< int: 0 world, 1 the first joint's parent, 2 a node
  kCurveParentSpaceNode = 32,      ///< node
  kCurveDisplayCurve = 33,         ///< int 0 never, 1 when selected, 2 always
  kCurveDisplayTangents = 34,      ///< int, as display_curve
  kCurveInnerInTangents = 35,      ///< Point3 tab: stored in tangents in the point's frame
  kCurveInnerOutTangents = 36,     ///< Point3 tab: stored out tangents in the point's frame
  kCurveUseTangentNodes = 37,      ///< bool tab: Bezier tangents from the nodes
};
inline constexpr BlockID kCurveIKChainParams = 0;

/// Function ids of ICurveIKChain.
enum CurveIKChainFunction : FunctionID {
  kCurveNumPoints = 0,
  kCurveAddPoint = 1,
  kCurveRemovePoint = 2,
  kCurveSetPoint = 3,
  kCurveGetPoint = 4,
  kCurveSetPointType = 5,
  kCurveGetPointType = 6,
  kCurveSetInTangent = 7,
  kCurveGetInTangent = 8,
  kCurveSetOutTangent = 9,
  kCurveGetOutTangent = 10,
  kCurveSetTwist = 11,
  kCurveGetTwist = 12,
  kCurveSetAmplitude = 13,
  kCurveGetAmplitude = 14,
  kCurveResetLength = 15,
  kCurveResetTangents = 16,
  kCurveSetUseTangentNodes = 17,
  kCurveGetUseTangentNodes = 18,
};
/// Id of the point type enumeration in ICurveIKChain's table.
inline constexpr EnumID kCurvePointTypeEnum = 0;

/// The published interface of CurveIKChain ("interface"). Indices are 0-based here and 1-based
/// in script. A bad index (or a null point for AddPoint) answers false, a null node, 0 or
/// nothing changes; no error is raised. Every change is undoable through the block.
class ICurveIKChain : public FPMixinInterface {
 public:
  FPInterfaceDesc* GetDesc() override;

  virtual int NumPoints() = 0;
  /// Appends a point with one entry in every per-point table (nodes, type, stored tangents at
  /// the origin, use_tangent_nodes, twist, amplitude).
  virtual bool AddPoint(INode* point,
                        int type,
                        INode* in_tangent,
                        INode* out_tangent,
                        float twist,
                        float amplitude,
                        bool use_tangent_nodes) = 0;
  /// Deletes the entry at index from every per-point table.
  virtual bool RemovePoint(int index) = 0;
  virtual bool SetPoint(int index, INode* point) = 0;
  virtual INode* GetPoint(int index) = 0;
  /// type outside 0..3 is refused.
  virtual bool SetPointType(int index, int type) = 0;
  /// The type, or -1 for a bad index.
  virtual int GetPointType(int index) = 0;
  virtual bool SetInTangent(int index, INode* node) = 0;
  virtual INode* GetInTangent(int index) = 0;
  virtual bool SetOutTangent(int index, INode* node) = 0;
  virtual INode* GetOutTangent(int index) = 0;
  /// Twist of a point, radians (at the current time).
  virtual bool SetTwist(int index, float twist) = 0;
  virtual float GetTwist(int index) = 0;
  /// Wave amplitude factor of a point (at the current time).
  virtual bool SetAmplitude(int index, float amplitude) = 0;
  virtual float GetAmplitude(int index) = 0;
  /// chain_length becomes the present curve length, at the current time.
  virtual void ResetLength() = 0;
  /// Stores the automatic (Smooth) tangents of every point as its inner tangents.
  virtual void ResetTangents() = 0;
  virtual bool SetUseTangentNodes(int index, bool use) = 0;
  virtual bool GetUseTangentNodes(int index) = 0;

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
};

/// The curve chain ("CurveIK Chain", super class CTRL_MATRIX3_CLASS_ID).
///
/// One solve per time serves all joints: it is redone when the time differs, when the block
/// (a parameter, a point or tangent node, the space node) or a joint's CurveIKControl reported
/// a change, or when the first joint's parent moved (parent_space 1 is not referenced, so its
/// transform is compared). GetValue writes the last joint's world transform (nothing without
/// joints or points) and narrows valid by what the solve read. Evaluation allocates nothing once
/// the workspace has the chain's sizes.
///
/// Display draws the solved curve (display_curve) and the Bezier tangents of curved spans
/// (display_tangents): 0 never, 1 while the chain's node is selected, 2 always.
class CurveIKChain : public BlockConstraint, public ICurveIKChain {
 public:
  explicit CurveIKChain(bool loading = false);

  MarvolithClassDesc* GetClassDesc() const override;
  using BlockConstraint::GetInterface;
  BaseInterface* GetInterface(Interface_ID id) override;

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override;
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override;
  RefTargetHandle Clone(RemapDir& remap) override;

  /// Joint index's world transform at t into out, narrowing valid; false (out untouched) for an
  /// index outside the solved joints.
  bool GetJointTM(int index, TimeValue t, Matrix3& out, Interval& valid);
  /// True when any point, in tangent or out tangent node of the chain is selected.
  bool AnyMemberSelected();
  /// Drops the solve and tells the dependents (a joint's percent or squash changed).
  void Invalidate();
  /// Drops the solve without a message (the block's own message follows).
  void MarkStale() { dirty_ = true; }
  int NumJoints();

  /// The solve's tables, for display and tests (valid after a solve).
  const CurveIKWorkspace& Workspace() const { return ws_; }
  const Matrix3& SpaceTM() const { return space_tm_; }

  // ICurveIKChain.
  int NumPoints() override;
  bool AddPoint(INode* point,
                int type,
                INode* in_tangent,
                INode* out_tangent,
                float twist,
                float amplitude,
                bool use_tangent_nodes) override;
  bool RemovePoint(int index) override;
  bool SetPoint(int index, INode* point) override;
  INode* GetPoint(int index) override;
  bool SetPointType(int index, int type) override;
  int GetPointType(int index) override;
  bool SetInTangent(int index, INode* node) override;
  INode* GetInTangent(int index) override;
  bool SetOutTangent(int index, INode* node) override;
  INode* GetOutTangent(int index) override;
  bool SetTwist(int index, float twist) override;
  float GetTwist(int index) override;
  bool SetAmplitude(int index, float amplitude) override;
  float GetAmplitude(int index) override;
  void ResetLength() override;
  void ResetTangents() override;
  bool SetUseTangentNodes(int index, bool use) override;
  bool GetUseTangentNodes(int index) override;

 private:
  void EnsureSolved(TimeValue t);
  void Solve(TimeValue t);
  Matrix3 SpaceAt(TimeValue t, Interval& valid);
  // Fills point_inputs_ in chain space from the block at t (validity narrowed).
  void ReadPoints(TimeValue t, Interval& valid);
  bool ValidPoint(int index);

  TimeValue solved_time_ = 0;
  bool dirty_ = true;
  Interval validity_;
  bool closed_ = false;
  float slide_ = 1.0f;
  Matrix3 space_tm_;
  Matrix3 space_inverse_;
  Matrix3 parent_seen_;  // the first joint's parent at the solve (parent_space 1)
  std::vector<CurveIKPoint> point_inputs_;
  std::vector<float> joint_percents_;
  std::vector<float> joint_squash_;
  std::vector<Matrix3> joint_tms_;
  CurveIKWorkspace ws_;
  std::vector<Point3> display_points_;
};

/// The class descriptor (module table index 14).
ClassDesc2* GetCurveIKChainDesc();

/// The CurveIKChain that is node's transform controller, or null.
CurveIKChain* FindCurveIKChain(INode* node);

}  // namespace marvolith
