// Copyright Marvolith contributors.
// The connection controllers: FloatConnection, PositionConnection, RotationConnection and
// ScaleConnection wire one track to another without scripts. Each reads a sub-anim of another
// animatable (optionally at a time offset), transforms it and answers it as its own value; with
// `two_way` on, setting the connected value writes back into the source track.
#pragma once

#include "host/controllers/curve_control.h"
#include "host/core/control.h"
#include "host/io/chunk_io.h"
#include "host/params/iparamb2.h"
#include "host/registry/class_desc.h"
#include "host/script/fp_interface.h"
#include "plugin/class_table.h"

namespace marvolith {

/// Parameters of FloatConnection's block "params" (block id 0).
enum FloatConnectionParam : ParamID {
  kConnSubAnim = 0,         ///< "Track SubAnim": sub-anim number of the target track
  kConnTwoWay = 1,          ///< bool
  kConnClamp = 2,           ///< bool, "Clamp Output"
  kConnTransform = 3,       ///< a ConnectionTransform, 0..4
  kConnOffset = 4,          ///< animatable
  kConnWeight = 5,          ///< percent, animatable, default 1
  kConnInputMin = 6,        ///< animatable, default 0
  kConnInputMax = 7,        ///< animatable, default 100
  kConnOutputMin = 8,       ///< animatable, default 0
  kConnOutputMax = 9,       ///< animatable, default 100
  kConnCurve = 10,          ///< the curve control (ICurveCtl) of the Curve mode
  kConnUseTimeOffset = 11,  ///< bool
  kConnTimeOffset = 12,     ///< seconds, animatable
};

/// Parameters of the block "params" (block id 0) of PositionConnection, RotationConnection and
/// ScaleConnection.
enum VectorConnectionParam : ParamID {
  kVecConnSubAnim = 0,
  kVecConnTwoWay = 1,
  kVecConnUseWeight = 2,
  kVecConnWeightX = 3,  ///< percent, animatable, default 1
  kVecConnWeightY = 4,
  kVecConnWeightZ = 5,
  kVecConnUseTimeOffset = 6,
  kVecConnTimeOffset = 7,  ///< seconds, animatable
};

/// Function ids of the connection interfaces (IFloatConnection and its three siblings; each
/// interface id is its class's Class_ID pair).
enum ConnectionFunction : FunctionID {
  kConnFnSetTarget = 0,  ///< SetTarget(target: value, owner: reftarg = undefined): bool
  kConnFnGetTarget = 1,  ///< GetTarget(asController: bool = false): value
};

/// Animatable flag bit 26: set on a target that the loop test (REFMSG_CONNECTION_LOOP_TEST)
/// reached.
inline constexpr DWORD kConnectionLoopFlag = 1u << 26;

/// Why a connection was or was not made.
enum class [[nodiscard]] ConnectResult{
    kConnected,
    kNoBlock,    ///< the controller has no parameter block
    kNoTarget,   ///< null target, or a controller not found in the animation tree
    kWrongKind,  ///< the track is not of a kind this connection reads
    kCircular,   ///< the target depends on this controller
};

/// What the four connection classes share: the target reference, the loop test, two-way
/// forwarding, key forwarding, the reentry guard, cloning and the script interface.
///
/// References: 0 the block, 1 the target, an animatable that owns the connected track (a
/// parameter block, an XYZ controller, ...). The track is sub-anim `kConnSubAnim` of the target.
/// Sub-anims: 0 the block ("Parameters"); 1 the connected track while `two_way` is on (see
/// GetTargetController), assignable through the target; FloatConnection adds 2, its curve control.
///
/// Deleting the target nulls reference 1; the last value read stays as the constant value, which
/// is saved with the controller (chunk 0 the locked flag, 1 byte; chunk 1 the constant value),
/// so a scene whose target is missing opens with it. Without a target the controller answers
/// its constant value. A clone shares the target until the clone's post-patch step re-points it
/// to the target's clone, when the same clone made one.
class ConnectionControl : public Control, public ILockedTrackImp, public FPMixinInterface {
 public:
  static constexpr int kBlockRef = 0;
  static constexpr int kTargetRef = 1;
  static constexpr int kConnectedTrackSub = 1;
  static constexpr USHORT kLockedChunk = 0;
  static constexpr USHORT kConstantChunk = 1;

  /// The class's descriptor; never null.
  virtual MarvolithClassDesc* GetClassDesc() const = 0;

  Class_ID ClassID() override { return GetClassDesc()->ClassID(); }
  SClass_ID SuperClassID() override { return GetClassDesc()->SuperClassID(); }
  void GetClassName(MSTR& s, bool localized = true) const override;

  int NumRefs() override { return 2; }
  RefTargetHandle GetReference(int i) override;
  int NumSubs() override { return 2; }
  Animatable* SubAnim(int i) override;
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int sub_num) override { return sub_num == 0 ? kBlockRef : -1; }
  bool CanAssignController(int sub_anim) override;
  /// Sub-anim 1: assigns control to the connected track of the target.
  bool AssignController(Animatable* control, int sub_anim) override;
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  void* GetInterface(ULONG id) override;
  BaseInterface* GetInterface(Interface_ID id) override;

  /// Answers REF_SUCCEED at once while writing into the target (the reentry guard). Message
  /// REFMSG_KEYABLE_QUERY from the block goes on to the connected track (two-way with a target)
  /// and its answer is returned. Every other message passes.
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;

  // Key operations go to the connected track (GetTargetController); without one there are no
  // keys, and while locked nothing is added.
  int NumKeys() override;
  TimeValue GetKeyTime(int index) override;
  void AddNewKey(TimeValue t, DWORD flags) override;
  bool IsKeyAtTime(TimeValue t, DWORD flags) override;
  Interval GetTimeRange(DWORD flags) override;
  void EnableORTs(bool enable) override;
  void SetORT(int ort, int type) override;

  // Targets (C++).
  /// The animatable that owns the connected track, or null.
  ReferenceTarget* GetTargetAnim() const { return target_; }
  /// The sub-anim number of the connected track (parameter 0); 0 without a block.
  int GetTargetSubNum();
  /// The connected track itself when `two_way` is on, a target is set and its number is in
  /// range; null otherwise.
  Animatable* GetTargetController();
  /// True when target depends on this controller (the reach of the private loop-test message
  /// through dependents): connecting would close a loop. target ends with kConnectionLoopFlag
  /// clear.
  bool CreatesLoop(ReferenceTarget* target);
  /// Connects to track sub_num of parent: kind check, loop test, then in one hold ("Float
  /// Connection Change" and its siblings) reference 1 and parameter 0. Dependents hear
  /// REFMSG_CHANGE.
  ConnectResult Connect(ReferenceTarget* parent, int sub_num);
  /// Connects to the track held by control: its first owner in a depth-first walk of the
  /// animation tree from search_root (the scene root when null), which visits sub-anims, custom
  /// attributes and a node's children. The owner must reference control.
  ConnectResult ConnectController(Control* control, Animatable* search_root = nullptr);

  // Targets (script). Errors are raised before anything changes, with the texts of the
  // class's kind (Float: "SetTarget - Need float controller, got: " and so on).
  /// A controller value (searched from owner, or the scene root) or a sub-anim value
  /// (TYPE_SUBANIM, handed to SetTargetSubAnim); see the interface table. Answers false without a block.
  bool SetTarget(const FPValue& target, ReferenceTarget* owner);
  /// The script form of a sub-anim value: parent's track sub_num. Raises the deleted-object
  /// error for a null parent and the class's sub-anim error for a track of the wrong kind.
  bool SetTargetSubAnim(Animatable* parent, int sub_num);
  /// undefined without a target. as_controller: the connected track's controller through
  /// GetTargetController (so undefined unless `two_way` is on). Otherwise the sub-anim value
  /// (TYPE_SUBANIM) of the connected track, also when the track holds no controller; undefined
  /// when the sub-anim number is out of the target's range.
  FPValue GetTarget(bool as_controller);

  /// Re-points reference 1 of a clone to the clone of its target, when remap made one.
  void PostPatch(RemapDir& remap);

 protected:
  /// The script texts and hold name of a class.
  struct Texts {
    const char* need_sub_anim;
    const char* need_controller;
    const char* hold_name;
  };
  virtual const Texts& GetTexts() const = 0;
  /// The controller super class of the tracks the class reads.
  virtual SClass_ID TrackSuperClass() const = 0;
  /// Is track sub_num of parent one the class reads (the pick filter).
  virtual bool AcceptsTrack(ReferenceTarget* parent, int sub_num) = 0;
  /// Parameter ids of the time offset in the class's block.
  virtual ParamID UseTimeOffsetParam() const = 0;

  void SetReference(int i, RefTargetHandle target) override;
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
  /// The time the target is read and written at: t shifted by round(`time_offset` * 4800)
  /// ticks (the offset read at t, narrowing valid) when `use_time_offset` is on.
  TimeValue InputTime(TimeValue t, Interval& valid);
  /// Completes clone c: the block through remap, the shared target with the post-patch step,
  /// the locked flag, BaseClone.
  void CloneInto(ConnectionControl* c, RemapDir& remap);
  /// Sets the reentry guard for a scope.
  class ReentryGuard {
   public:
    explicit ReentryGuard(ConnectionControl& c) : c_(c) { c_.reentry_ = true; }
    ~ReentryGuard() { c_.reentry_ = false; }
    ReentryGuard(const ReentryGuard&) = delete;
    ReentryGuard& operator=(const ReentryGuard&) = delete;

   private:
    ConnectionControl& c_;
  };

  IParamBlock2* pblock_ = nullptr;
  ReferenceTarget* target_ = nullptr;
  bool reentry_ = false;
};

/// The part the four classes share over their value type V (float, Point3, Quat, ScaleValue).
template <typename V>
class TypedConnection : public ConnectionControl {
 public:
  /// The value answered without a target: the last value read from it, or what was set.
  const V& GetConstantValue() const { return constant_; }
  void SetConstantValue(const V& v) { constant_ = v; }

  /// Reads from's value at the current time (absolute) as the constant value, and its locked
  /// state.
  void Copy(Control* from) override;
  IOResult Save(ISave* isave) override;
  /// Unknown chunks are skipped; a chunk of the wrong size answers IO_ERROR.
  IOResult Load(ILoad* iload) override;

 protected:
  /// The input at t: the connected track read at InputTime(t), which also becomes the
  /// constant value; the constant value without a target or when the track cannot be read.
  V ReadInput(TimeValue t, Interval& valid);
  /// Writes x into the connected track at InputTime(t) (into the constant value without a
  /// target), under the reentry guard.
  void WriteInput(TimeValue t, const V& x, int commit);
  bool AcceptsTrack(ReferenceTarget* parent, int sub_num) override;
  void CloneInto(TypedConnection* c, RemapDir& remap);

  V constant_{};
};

extern template class TypedConnection<float>;
extern template class TypedConnection<Point3>;
extern template class TypedConnection<Quat>;
extern template class TypedConnection<ScaleValue>;

/// The float "Float Connection".
///
/// Reads: a float, integer or boolean parameter of a parameter block (`TYPE_FLOAT` kinds as
/// floats, integer kinds converted), or a float controller's value. The value is the input mapped
/// by `transform` (ConnectionForward; Curve through the first curve of `curve_ctrl`, x limited to
/// the curve's points with `clamp`; without a curve the value is left as it is).
///
/// SetValue, with `two_way` on and not locked, runs the value back through ConnectionInverse
/// (relative values are added to the present value first) and writes it into the track. Curve
/// has no inverse: from the present input x and the curve's slope at x, an absolute y gives
/// y (2x - y where the slope falls), a relative y moves x by y (by -y where it falls); x is
/// then limited to the curve's points.
class FloatConnection final : public TypedConnection<float> {
 public:
  static constexpr int kCurveSub = 2;

  /// loading true makes no block (the file links one).
  explicit FloatConnection(bool loading = false);
  MarvolithClassDesc* GetClassDesc() const override;
  FPInterfaceDesc* GetDesc() override;

  int NumSubs() override { return 3; }
  Animatable* SubAnim(int i) override;
  MSTR SubAnimName(int i, bool localized = true) override;

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  RefTargetHandle Clone(RemapDir& remap) override;

  /// The curve control of `curve_ctrl`, or null. With create, a missing one is made (undoable):
  /// one curve straight from (input_min, output_min) to (input_max, output_max) at time 0.
  ICurveCtl* GetCurveControl(bool create = false);

 protected:
  const Texts& GetTexts() const override;
  SClass_ID TrackSuperClass() const override { return CTRL_FLOAT_CLASS_ID; }
  ParamID UseTimeOffsetParam() const override { return kConnUseTimeOffset; }

 private:
  ICurve* FirstCurve();
};

/// The position "Position Connection": a position controller's value or a Point3 parameter,
/// each axis multiplied by `weight_x`, `weight_y`, `weight_z` when `use_weight` is on. Relative
/// GetValue applies it to the matrix with PreTranslate. SetValue (two-way) takes a Point3,
/// added to the present value when relative, and divides by the weights (each guarded to
/// kConnectionGuard) before writing back.
class PositionConnection final : public TypedConnection<Point3> {
 public:
  explicit PositionConnection(bool loading = false);
  MarvolithClassDesc* GetClassDesc() const override;
  FPInterfaceDesc* GetDesc() override;
  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  const Texts& GetTexts() const override;
  SClass_ID TrackSuperClass() const override { return CTRL_POSITION_CLASS_ID; }
  ParamID UseTimeOffsetParam() const override { return kVecConnUseTimeOffset; }
};

/// The rotation "Rotation Connection": a rotation controller's value, or a Point3 parameter read
/// as Euler XYZ angles in radians. With `use_weight` its Euler XYZ angles are multiplied by the
/// weights. Relative GetValue applies it with PreRotate. SetValue (two-way) takes a Quat, or when
/// relative an AngAxis turning after the present rotation, and divides the Euler angles by the
/// guarded weights before writing back.
class RotationConnection final : public TypedConnection<Quat> {
 public:
  explicit RotationConnection(bool loading = false);
  MarvolithClassDesc* GetClassDesc() const override;
  FPInterfaceDesc* GetDesc() override;
  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  const Texts& GetTexts() const override;
  SClass_ID TrackSuperClass() const override { return CTRL_ROTATION_CLASS_ID; }
  ParamID UseTimeOffsetParam() const override { return kVecConnUseTimeOffset; }
};

/// The scale "Scale Connection": a scale controller's value, or a Point3 parameter read as
/// factors (identity axis system). With `use_weight` each factor is multiplied by its weight.
/// Relative GetValue applies it with the host's ApplyScaling; absolute writes the ScaleValue.
/// SetValue (two-way) takes a ScaleValue, whose factors multiply the present ones when relative,
/// and divides the factors by the guarded weights before writing back.
class ScaleConnection final : public TypedConnection<ScaleValue> {
 public:
  explicit ScaleConnection(bool loading = false);
  MarvolithClassDesc* GetClassDesc() const override;
  FPInterfaceDesc* GetDesc() override;
  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  const Texts& GetTexts() const override;
  SClass_ID TrackSuperClass() const override { return CTRL_SCALE_CLASS_ID; }
  ParamID UseTimeOffsetParam() const override { return kVecConnUseTimeOffset; }
};

/// The class descriptors (module table indices 6, 45, 46 and 47).
ClassDesc2* GetFloatConnectionDesc();
ClassDesc2* GetPositionConnectionDesc();
ClassDesc2* GetRotationConnectionDesc();
ClassDesc2* GetScaleConnectionDesc();

}  // namespace marvolith
