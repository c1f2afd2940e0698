// Copyright Marvolith contributors.
#include "controllers/connection_controls.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <unordered_set>
#include <vector>

#include "controllers/float_math.h"
#include "host/controllers/std_control.h"
#include "host/core/cust_attrib.h"
#include "host/math/affine.h"
#include "host/math/euler.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/script/script_errors.h"
#include "host/undo/hold.h"
#include "plugin/class_table.h"
#include "support/chunk_helpers.h"
#include "support/hold_record.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace marvolith {
namespace {

// ---- Descriptors and tables ----

template <typename T, ClassIndex kIndex>
class ConnectionClassDesc : public MarvolithClassDesc {
 public:
  ConnectionClassDesc() : MarvolithClassDesc(kIndex) {}
  Animatable* Create(bool loading) override { return new T(loading); }
};

ConnectionClassDesc<FloatConnection, ClassIndex::FloatConnection> float_conn_cd;
ConnectionClassDesc<PositionConnection, ClassIndex::PositionConnection> position_conn_cd;
ConnectionClassDesc<RotationConnection, ClassIndex::RotationConnection> rotation_conn_cd;
ConnectionClassDesc<ScaleConnection, ClassIndex::ScaleConnection> scale_conn_cd;

ParamBlockDesc2 float_conn_pb(
    0,
    "params",
    0,
    &float_conn_cd,
    P_AUTO_CONSTRUCT,
    ConnectionControl::kBlockRef,
    {
        ParamDef(kConnSubAnim, "", TYPE_INT, 0).Default(0).Label("Track SubAnim"),
        ParamDef(kConnTwoWay, "two_way", TYPE_BOOL, 0).Default(false).Label("Two-Way"),
        ParamDef(kConnClamp, "clamp", TYPE_BOOL, 0).Default(false).Label("Clamp Output"),
        ParamDef(kConnTransform, "transform", TYPE_INT, 0)
            .Default(0)
            .Range(0, 4)
            .Label("Transform"),
        ParamDef(kConnOffset, "offset", TYPE_FLOAT, P_ANIMATABLE).Default(0.0f).Label("Offset"),
        ParamDef(kConnWeight, "weight", TYPE_PCNT_FRAC, P_ANIMATABLE).Default(1.0f).Label("Weight"),
        ParamDef(kConnInputMin, "input_min", TYPE_FLOAT, P_ANIMATABLE)
            .Default(0.0f)
            .Label("Input Min"),
        ParamDef(kConnInputMax, "input_max", TYPE_FLOAT, P_ANIMATABLE)
            .Default(100.0f)
            .Label("Input Max"),
        ParamDef(kConnOutputMin, "output_min", TYPE_FLOAT, P_ANIMATABLE)
            .Default(0.0f)
            .Label("Output Min"),
        ParamDef(kConnOutputMax, "output_max", TYPE_FLOAT, P_ANIMATABLE)
            .Default(100.0f)
            .Label("Output Max"),
        ParamDef(kConnCurve, "curve_ctrl", TYPE_REFTARG, 0).Label("Curve"),
        ParamDef(kConnUseTimeOffset, "use_time_offset", TYPE_BOOL, 0)
            .Default(false)
            .Label("Use Time Offset"),
        ParamDef(kConnTimeOffset, "time_offset", TYPE_FLOAT, P_ANIMATABLE)
            .Default(0.0f)
            .Label("Time Offset (Seconds)"),
    });

// The one table of the three vector classes.
#define MV_VECTOR_CONNECTION_PARAMS                                                        \
  {                                                                                        \
    ParamDef(kVecConnSubAnim, "", TYPE_INT, 0).Default(0).Label("Track SubAnim"),          \
        ParamDef(kVecConnTwoWay, "two_way", TYPE_BOOL, 0).Default(false).Label("Two-Way"), \
        ParamDef(kVecConnUseWeight, "use_weight", TYPE_BOOL, 0)                            \
            .Default(false)                                                                \
            .Label("Use Weight"),                                                          \
        ParamDef(kVecConnWeightX, "weight_x", TYPE_PCNT_FRAC, P_ANIMATABLE)                \
            .Default(1.0f)                                                                 \
            .Label("Weight X"),                                                            \
        ParamDef(kVecConnWeightY, "weight_y", TYPE_PCNT_FRAC, P_ANIMATABLE)                \
            .Default(1.0f)                                                                 \
            .Label("Weight Y"),                                                            \
        ParamDef(kVecConnWeightZ, "weight_z", TYPE_PCNT_FRAC, P_ANIMATABLE)                \
            .Default(1.0f)                                                                 \
            .Label("Weight Z"),                                                            \
        ParamDef(kVecConnUseTimeOffset, "use_time_offset", TYPE_BOOL, 0)                   \
            .Default(false)                                                                \
            .Label("Use Time Offset"),                                                     \
        ParamDef(kVecConnTimeOffset, "time_offset", TYPE_FLOAT, P_ANIMATABLE)              \
            .Default(0.0f)                                                                 \
            .Label("Time Offset (Seconds)"),                                               \
  }

ParamBlockDesc2 position_conn_pb(0,
                                 "params",
                                 0,
                                 &position_conn_cd,
                                 P_AUTO_CONSTRUCT,
                                 ConnectionControl::kBlockRef,
                                 MV_VECTOR_CONNECTION_PARAMS);
ParamBlockDesc2 rotation_conn_pb(0,
                                 "params",
                                 0,
                                 &rotation_conn_cd,
                                 P_AUTO_CONSTRUCT,
                                 ConnectionControl::kBlockRef,
                                 MV_VECTOR_CONNECTION_PARAMS);
ParamBlockDesc2 scale_conn_pb(0,
                              "params",
                              0,
                              &scale_conn_cd,
                              P_AUTO_CONSTRUCT,
                              ConnectionControl::kBlockRef,
                              MV_VECTOR_CONNECTION_PARAMS);
#undef MV_VECTOR_CONNECTION_PARAMS

std::vector<FPFunctionDef> ConnectionFunctions() {
  using enum FPType;
  return {
      {kConnFnSetTarget,
       "SetTarget",
       TYPE_BOOL,
       {FPArg("target", TYPE_VALUE), FPArg("owner", TYPE_REFTARG).Default(FPValue())}},
      {kConnFnGetTarget,
       "GetTarget",
       TYPE_VALUE,
       {FPArg("asController", TYPE_BOOL).Default(false)}},
  };
}

Interface_ID InterfaceOf(ClassIndex index) { return Interface_ID(GetClassInfo(index).class_id); }

FPInterfaceDesc float_conn_fp(InterfaceOf(ClassIndex::FloatConnection),
                              "interface",
                              FP_MIXIN,
                              &float_conn_cd,
                              ConnectionFunctions());
FPInterfaceDesc position_conn_fp(InterfaceOf(ClassIndex::PositionConnection),
                                 "interface",
                                 FP_MIXIN,
                                 &position_conn_cd,
                                 ConnectionFunctions());
FPInterfaceDesc rotation_conn_fp(InterfaceOf(ClassIndex::RotationConnection),
                                 "interface",
                                 FP_MIXIN,
                                 &rotation_conn_cd,
                                 ConnectionFunctions());
FPInterfaceDesc scale_conn_fp(InterfaceOf(ClassIndex::ScaleConnection),
                              "interface",
                              FP_MIXIN,
                              &scale_conn_cd,
                              ConnectionFunctions());

// ---- Script texts ----

constexpr const char* kNotControllerOrSubAnim =
    "AddTarget - Target needs to be controller or subAnim, got:  ";
constexpr const char* kNotFound = "SetTarget - could not find target controller in scene: ";
constexpr const char* kCircular =
    "AddTarget - setting reference would create circular dependency: ";
constexpr const char* kDeletedObject = "Attempt to access deleted object";

// ---- Reading and writing tracks ----

// Parameter types read as floats and as integers: the masks over type numbers below 12 and 20.
constexpr std::uint32_t kFloatTypeMask = 0x8e1;  // FLOAT, ANGLE, PCNT_FRAC, WORLD, COLOR_CHANNEL
constexpr std::uint32_t kIntTypeMask = 0x82012;  // INT, BOOL, RADIOBTN_INDEX, INDEX
constexpr bool ReadsAsFloat(ParamType2 base) {
  return base < 12 && ((kFloatTypeMask >> base) & 1u);
}
constexpr bool ReadsAsInt(ParamType2 base) { return base < 20 && ((kIntTypeMask >> base) & 1u); }

// A track that is a parameter of a block: the block, the parameter and its entry.
struct BlockTrack {
  IParamBlock2* pb = nullptr;
  ParamID id = -1;
  int tab = 0;
  ParamType2 base = -1;
};

bool FindBlockTrack(ReferenceTarget* target, int sub_num, BlockTrack& out) {
  if (!target || target->SuperClassID() != PARAMETER_BLOCK2_CLASS_ID) return false;
  auto* pb = static_cast<IParamBlock2*>(target);
  int tab = -1;
  const ParamID id = pb->AnimNumToParamID(sub_num, tab);
  if (id < 0) return false;
  const ParamType2 type = pb->GetParameterType(id);
  if (IsParamTypeTab(type) && tab < 0) return false;
  out = {pb, id, tab < 0 ? 0 : tab, BaseParamType(type)};
  return true;
}

// The controller of super class sclass at sub-anim sub_num of target, or null.
Control* TrackController(ReferenceTarget* target, int sub_num, SClass_ID sclass) {
  if (!target || sub_num < 0 || sub_num >= target->NumSubs()) return nullptr;
  Animatable* sub = target->SubAnim(sub_num);
  auto* c = sub ? static_cast<Control*>(sub->GetInterface(I_CONTROL)) : nullptr;
  return c && c->SuperClassID() == sclass ? c : nullptr;
}

int RoundToInt(float x) {
  const double r = std::round(static_cast<double>(x));
  if (!(r > INT_MIN)) return INT_MIN;  // NaN too
  return r >= INT_MAX ? INT_MAX : static_cast<int>(r);
}

// How each value type reads and writes a block parameter.
template <typename V>
struct TrackIO;

template <>
struct TrackIO<float> {
  static bool Accepts(ParamType2 base) { return ReadsAsFloat(base) || ReadsAsInt(base); }
  static bool Read(const BlockTrack& b, TimeValue t, float& x, Interval& valid) {
    if (ReadsAsFloat(b.base)) return b.pb->GetValue(b.id, t, x, valid, b.tab);
    int v = 0;
    if (!ReadsAsInt(b.base) || !b.pb->GetValue(b.id, t, v, valid, b.tab)) return false;
    x = static_cast<float>(v);
    return true;
  }
  static void Write(const BlockTrack& b, TimeValue t, float x) {
    if (ReadsAsFloat(b.base)) {
      b.pb->SetValue(b.id, t, x, b.tab);
    } else if (ReadsAsInt(b.base)) {
      b.pb->SetValue(b.id, t, RoundToInt(x), b.tab);
    }
  }
};

// Point3 parameters serve the three vector kinds.
bool ReadPoint3(const BlockTrack& b, TimeValue t, Point3& p, Interval& valid) {
  return ParamKind(b.base) == PBKind::kPoint3 && b.pb->GetValue(b.id, t, p, valid, b.tab);
}

template <>
struct TrackIO<Point3> {
  static bool Accepts(ParamType2 base) { return ParamKind(base) == PBKind::kPoint3; }
  static bool Read(const BlockTrack& b, TimeValue t, Point3& x, Interval& valid) {
    return ReadPoint3(b, t, x, valid);
  }
  static void Write(const BlockTrack& b, TimeValue t, const Point3& x) {
    b.pb->SetValue(b.id, t, x, b.tab);
  }
};

// A rotation parameter is a Point3 of Euler XYZ angles in radians.
template <>
struct TrackIO<Quat> {
  static bool Accepts(ParamType2 base) { return ParamKind(base) == PBKind::kPoint3; }
  static bool Read(const BlockTrack& b, TimeValue t, Quat& x, Interval& valid) {
    Point3 p;
    if (!ReadPoint3(b, t, p, valid)) return false;
    const float ang[3] = {p.x, p.y, p.z};
    EulerToQuat(ang, x, EULERTYPE_XYZ);
    return true;
  }
  static void Write(const BlockTrack& b, TimeValue t, const Quat& x) {
    float ang[3];
    QuatToEuler(x, ang, EULERTYPE_XYZ);
    b.pb->SetValue(b.id, t, Point3(ang[0], ang[1], ang[2]), b.tab);
  }
};

// A scale parameter is a Point3 of factors along the identity axes.
template <>
struct TrackIO<ScaleValue> {
  static bool Accepts(ParamType2 base) { return ParamKind(base) == PBKind::kPoint3; }
  static bool Read(const BlockTrack& b, TimeValue t, ScaleValue& x, Interval& valid) {
    Point3 p;
    if (!ReadPoint3(b, t, p, valid)) return false;
    x = ScaleValue(p);
    return true;
  }
  static void Write(const BlockTrack& b, TimeValue t, const ScaleValue& x) {
    b.pb->SetValue(b.id, t, x.s, b.tab);
  }
};

template <typename V>
SClass_ID TrackClassOf();
template <>
SClass_ID TrackClassOf<float>() {
  return CTRL_FLOAT_CLASS_ID;
}
template <>
SClass_ID TrackClassOf<Point3>() {
  return CTRL_POSITION_CLASS_ID;
}
template <>
SClass_ID TrackClassOf<Quat>() {
  return CTRL_ROTATION_CLASS_ID;
}
template <>
SClass_ID TrackClassOf<ScaleValue>() {
  return CTRL_SCALE_CLASS_ID;
}

// ---- Undo of the constant value ----

template <typename V>
class ConstantRestore : public RestoreObj {
 public:
  explicit ConstantRestore(TypedConnection<V>* c)
      : handle_(Animatable::GetHandleByAnim(c)), before_(c->GetConstantValue()) {}
  void Restore(int is_undo) override {
    TypedConnection<V>* c = Get();
    if (!c) return;
    if (is_undo) after_ = c->GetConstantValue();
    Apply(c, before_);
  }
  void Redo() override {
    if (TypedConnection<V>* c = Get()) Apply(c, after_);
  }
  void EndHold() override {
    if (TypedConnection<V>* c = Get()) c->ClearAFlag(A_HELD);
  }
  MSTR Description() override { return "Connection Value"; }

 private:
  TypedConnection<V>* Get() {
    return dynamic_cast<TypedConnection<V>*>(Animatable::GetAnimByHandle(handle_));
  }
  static void Apply(TypedConnection<V>* c, const V& v) {
    c->SetConstantValue(v);
    c->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  }
  AnimHandle handle_;
  V before_;
  V after_{};
};

// ---- The animation tree ----

// True when parent holds wanted as sub-anim i through a reference of its own (a connection's
// view of its connected track does not count as owning it).
bool OwnsSubAnim(Animatable* parent, int i, Animatable* wanted) {
  if (parent->SubAnim(i) != wanted) return false;
  auto* maker = dynamic_cast<ReferenceMaker*>(parent);
  auto* target = dynamic_cast<ReferenceTarget*>(wanted);
  return maker && target && maker->FindRef(target) >= 0;
}

// The first animatable that owns wanted as a sub-anim, depth first from root through sub-anims,
// custom attribute containers and node children.
bool FindTrackOwner(Animatable* root, Animatable* wanted, ReferenceTarget*& parent, int& sub_num) {
  std::vector<Animatable*> stack{root};
  std::unordered_set<Animatable*> seen{root};
  std::vector<Animatable*> next;
  while (!stack.empty()) {
    Animatable* a = stack.back();
    stack.pop_back();
    next.clear();
    for (int i = 0, n = a->NumSubs(); i < n; ++i) {
      if (OwnsSubAnim(a, i, wanted)) {
        parent = dynamic_cast<ReferenceTarget*>(a);
        sub_num = i;
        if (parent) return true;
      }
      next.push_back(a->SubAnim(i));
    }
    next.push_back(a->GetCustAttribContainer());
    if (a->SuperClassID() == BASENODE_CLASS_ID) {
      auto* node = static_cast<INode*>(a);
      for (int i = 0, n = node->NumberOfChildren(); i < n; ++i)
        next.push_back(node->GetChildNode(i));
    }
    // Pushed in reverse so that the walk visits them in order.
    for (auto it = next.rbegin(); it != next.rend(); ++it) {
      if (*it && seen.insert(*it).second) stack.push_back(*it);
    }
  }
  return false;
}

// A sub-anim as the script listener shows it: SubAnim:X_Position.
std::string SubAnimText(Animatable* parent, int sub_num) {
  std::string name = parent->SubAnimName(sub_num);
  std::replace(name.begin(), name.end(), ' ', '_');
  return "SubAnim:" + name;
}

bool IsObjectValue(const FPValue& v) {
  const FPType t = v.Type();
  return t == FPType::TYPE_INODE || t == FPType::TYPE_REFTARG || t == FPType::TYPE_CONTROL;
}

// Re-points a clone's target once the whole clone exists; holds the clone by handle.
class ConnectionClonePatch : public PostPatchProc {
 public:
  explicit ConnectionClonePatch(ConnectionControl* clone)
      : clone_(Animatable::GetHandleByAnim(clone)) {}
  int Proc(RemapDir& remap) override {
    if (auto* c = dynamic_cast<ConnectionControl*>(Animatable::GetAnimByHandle(clone_))) {
      c->PostPatch(remap);
    }
    return 1;
  }

 private:
  AnimHandle clone_;
};

// x with each component divided by its weight, weights of magnitude below the guard counting
// as the guard.
Point3 DivideByWeights(const Point3& x, const Point3& w) {
  Point3 r;
  for (int i = 0; i < 3; ++i)
    r[i] = x[i] / (std::fabs(w[i]) < kConnectionGuard ? kConnectionGuard : w[i]);
  return r;
}

}  // namespace

ClassDesc2* GetFloatConnectionDesc() { return &float_conn_cd; }
ClassDesc2* GetPositionConnectionDesc() { return &position_conn_cd; }
ClassDesc2* GetRotationConnectionDesc() { return &rotation_conn_cd; }
ClassDesc2* GetScaleConnectionDesc() { return &scale_conn_cd; }

// ---- ConnectionControl ----

void ConnectionControl::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(GetClassDesc()->Index());
}

RefTargetHandle ConnectionControl::GetReference(int i) {
  if (i == kBlockRef) return pblock_;
  if (i == kTargetRef) return target_;
  return nullptr;
}

void ConnectionControl::SetReference(int i, RefTargetHandle target) {
  if (i == kBlockRef) {
    // Anything but a block is refused (the slot stays empty), as the loader expects.
    pblock_ = target && target->SuperClassID() == PARAMETER_BLOCK2_CLASS_ID
                  ? static_cast<IParamBlock2*>(target)
                  : nullptr;
  } else if (i == kTargetRef) {
    target_ = target;
  }
}

Animatable* ConnectionControl::SubAnim(int i) {
  if (i == 0) return pblock_;
  if (i == kConnectedTrackSub) return GetTargetController();
  return nullptr;
}

MSTR ConnectionControl::SubAnimName(int i, bool localized) {
  if (i == 0) return "Parameters";
  if (i == kConnectedTrackSub && GetTargetController()) {
    return target_->SubAnimName(GetTargetSubNum(), localized);
  }
  return MSTR();
}

bool ConnectionControl::CanAssignController(int sub_anim) {
  return sub_anim == kConnectedTrackSub && GetTargetController() &&
         target_->CanAssignController(GetTargetSubNum());
}

bool ConnectionControl::AssignController(Animatable* control, int sub_anim) {
  if (!CanAssignController(sub_anim)) return false;
  return target_->AssignController(control, GetTargetSubNum());
}

IParamBlock2* ConnectionControl::GetParamBlockByID(BlockID id) {
  return pblock_ && pblock_->ID() == id ? pblock_ : nullptr;
}

void* ConnectionControl::GetInterface(ULONG id) {
  if (id == I_LOCKED) return static_cast<ILockedTrack*>(this);
  return Control::GetInterface(id);
}

BaseInterface* ConnectionControl::GetInterface(Interface_ID id) {
  if (id == Interface_ID(ClassID())) return static_cast<FPMixinInterface*>(this);
  return Control::GetInterface(id);
}

RefResult ConnectionControl::NotifyRefChanged(const Interval& change_int,
                                              RefTargetHandle target,
                                              PartID& part_id,
                                              RefMessage message,
                                              bool propagate) {
  if (reentry_) return REF_SUCCEED;
  // A deleted target's slot is emptied by the host; the last value stays as the constant.
  if (target != pblock_ || !pblock_) return REF_SUCCEED;
  if (message == REFMSG_KEYABLE_QUERY) {
    Animatable* track = GetTargetController();
    auto* maker = track ? dynamic_cast<ReferenceMaker*>(track) : nullptr;
    if (maker) return maker->NotifyRefChanged(change_int, this, part_id, message, propagate);
  }
  return REF_SUCCEED;
}

int ConnectionControl::GetTargetSubNum() { return pblock_ ? pblock_->GetInt(kConnSubAnim) : 0; }

Animatable* ConnectionControl::GetTargetController() {
  if (!pblock_ || !target_ || !pblock_->GetInt(kConnTwoWay)) return nullptr;
  const int sub = GetTargetSubNum();
  return sub >= 0 && sub < target_->NumSubs() ? target_->SubAnim(sub) : nullptr;
}

int ConnectionControl::NumKeys() {
  Animatable* track = GetTargetController();
  return track ? track->NumKeys() : 0;
}

TimeValue ConnectionControl::GetKeyTime(int index) {
  Animatable* track = GetTargetController();
  return track ? track->GetKeyTime(index) : 0;
}

void ConnectionControl::AddNewKey(TimeValue t, DWORD flags) {
  if (GetLocked()) return;
  if (Animatable* track = GetTargetController()) track->AddNewKey(t, flags);
}

bool ConnectionControl::IsKeyAtTime(TimeValue t, DWORD flags) {
  Animatable* track = GetTargetController();
  return track && track->IsKeyAtTime(t, flags);
}

Interval ConnectionControl::GetTimeRange(DWORD flags) {
  Animatable* track = GetTargetController();
  return track ? track->GetTimeRange(flags) : NEVER;
}

void ConnectionControl::EnableORTs(bool enable) {
  Animatable* track = GetTargetController();
  if (auto* c = track ? static_cast<Control*>(track->GetInterface(I_CONTROL)) : nullptr) {
    c->EnableORTs(enable);
  }
}

void ConnectionControl::SetORT(int ort, int type) {
  Animatable* track = GetTargetController();
  if (auto* c = track ? static_cast<Control*>(track->GetInterface(I_CONTROL)) : nullptr) {
    c->SetORT(ort, type);
  }
}

bool ConnectionControl::CreatesLoop(ReferenceTarget* target) {
  if (!target) return false;
  target->ClearAFlag(kConnectionLoopFlag);
  // The walk follows what the loop-test message reaches: the makers that depend on this
  // controller, and theirs in turn. Reaching the target marks it.
  std::vector<ReferenceTarget*> stack{this};
  std::unordered_set<ReferenceTarget*> seen{this};
  while (!stack.empty()) {
    ReferenceTarget* rt = stack.back();
    stack.pop_back();
    if (rt == target) {
      target->SetAFlag(kConnectionLoopFlag);
      break;
    }
    DependentIterator it(rt);
    for (ReferenceMaker* m = it.Next(); m; m = it.Next()) {
      if (!m->IsRefTarget() || !m->IsRealDependency(rt)) continue;
      auto* dep = static_cast<ReferenceTarget*>(m);
      if (seen.insert(dep).second) stack.push_back(dep);
    }
  }
  const bool loop = target->TestAFlag(kConnectionLoopFlag);
  target->ClearAFlag(kConnectionLoopFlag);
  return loop;
}

ConnectResult ConnectionControl::Connect(ReferenceTarget* parent, int sub_num) {
  if (!pblock_) return ConnectResult::kNoBlock;
  if (!parent) return ConnectResult::kNoTarget;
  if (!AcceptsTrack(parent, sub_num)) return ConnectResult::kWrongKind;
  if (CreatesLoop(parent)) return ConnectResult::kCircular;
  theHold.Begin();
  if (ReplaceReference(kTargetRef, parent, true) != REF_SUCCEED) {
    theHold.Cancel();
    return ConnectResult::kCircular;
  }
  pblock_->SetValue(kConnSubAnim, 0, sub_num);
  theHold.Accept(GetTexts().hold_name);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  return ConnectResult::kConnected;
}

ConnectResult ConnectionControl::ConnectController(Control* control, Animatable* search_root) {
  if (!pblock_) return ConnectResult::kNoBlock;
  if (!control) return ConnectResult::kNoTarget;
  if (control->SuperClassID() != TrackSuperClass()) return ConnectResult::kWrongKind;
  if (!search_root) search_root = GetCOREInterface()->GetRootNode();
  ReferenceTarget* parent = nullptr;
  int sub_num = -1;
  if (!FindTrackOwner(search_root, control, parent, sub_num)) return ConnectResult::kNoTarget;
  return Connect(parent, sub_num);
}

bool ConnectionControl::SetTarget(const FPValue& target, ReferenceTarget* owner) {
  if (target.IsSubAnim()) return SetTargetSubAnim(target.AsSubAnimParent(), target.AsSubAnimIndex());
  if (IsObjectValue(target) && target.AsHandle() != 0 && !target.AsRefTarg()) {
    throw RuntimeError(kDeletedObject);
  }
  Control* control = target.AsControl();
  if (!control) throw RuntimeError(kNotControllerOrSubAnim, target);
  if (control->SuperClassID() != TrackSuperClass()) {
    throw RuntimeError(GetTexts().need_controller, target);
  }
  Animatable* root = owner ? static_cast<Animatable*>(owner) : GetCOREInterface()->GetRootNode();
  ReferenceTarget* parent = nullptr;
  int sub_num = -1;
  if (!FindTrackOwner(root, control, parent, sub_num)) throw RuntimeError(kNotFound, target);
  if (CreatesLoop(parent)) throw RuntimeError(kCircular, target);
  return Connect(parent, sub_num) == ConnectResult::kConnected;
}

bool ConnectionControl::SetTargetSubAnim(Animatable* parent, int sub_num) {
  if (!parent) throw RuntimeError(kDeletedObject);
  auto* target = dynamic_cast<ReferenceTarget*>(parent);
  if (!target || !AcceptsTrack(target, sub_num)) {
    throw RuntimeError(GetTexts().need_sub_anim + SubAnimText(parent, sub_num));
  }
  if (CreatesLoop(target)) throw RuntimeError(kCircular + SubAnimText(parent, sub_num));
  return Connect(target, sub_num) == ConnectResult::kConnected;
}

FPValue ConnectionControl::GetTarget(bool as_controller) {
  if (!target_) return FPValue();
  if (!as_controller) {
    // The track itself, which need not have a controller (an un-animated parameter).
    const int sub = GetTargetSubNum();
    return sub >= 0 && sub < target_->NumSubs() ? FPValue::SubAnim(target_, sub) : FPValue();
  }
  Animatable* track = GetTargetController();
  if (!track) return FPValue();
  if (auto* c = static_cast<Control*>(track->GetInterface(I_CONTROL))) return FPValue(c);
  if (auto* rt = dynamic_cast<ReferenceTarget*>(track)) return FPValue(rt);
  return FPValue();
}

FPStatus ConnectionControl::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  switch (fid) {
    case kConnFnSetTarget:
      result = FPValue(SetTarget(p[0], p[1].AsRefTarg()));
      return FPS_OK;
    case kConnFnGetTarget:
      result = GetTarget(p[0].AsBool());
      return FPS_OK;
    default:
      return FPS_NO_SUCH_FUNCTION;
  }
}

TimeValue ConnectionControl::InputTime(TimeValue t, Interval& valid) {
  const ParamID use = UseTimeOffsetParam();
  if (!pblock_ || !pblock_->GetInt(use)) return t;
  float seconds = 0.0f;
  pblock_->GetValue(static_cast<ParamID>(use + 1), t, seconds, valid);
  const double shifted =
      static_cast<double>(t) + std::round(static_cast<double>(seconds) * TIME_TICKSPERSEC);
  if (!std::isfinite(shifted)) return t;
  return static_cast<TimeValue>(std::clamp(shifted, static_cast<double>(TIME_NegInfinity),
                                           static_cast<double>(TIME_PosInfinity)));
}

void ConnectionControl::PostPatch(RemapDir& remap) {
  if (!target_) return;
  RefTargetHandle mapped = remap.FindMapping(target_);
  if (mapped && mapped != target_) ReplaceReference(kTargetRef, mapped, false);
}

void ConnectionControl::CloneInto(ConnectionControl* c, RemapDir& remap) {
  c->ReplaceReference(kBlockRef, remap.CloneRef(pblock_));
  c->locked_ = locked_;
  if (target_) {
    c->ReplaceReference(kTargetRef, target_, false);
    remap.AddPostPatchProc(new ConnectionClonePatch(c), true);
  }
  BaseClone(this, c, remap);
}

// ---- TypedConnection ----

template <typename V>
V TypedConnection<V>::ReadInput(TimeValue t, Interval& valid) {
  if (!pblock_ || !target_) return constant_;
  const TimeValue at = InputTime(t, valid);
  const int sub = GetTargetSubNum();
  V x = constant_;
  Interval track_valid = FOREVER;
  BlockTrack b;
  bool read = false;
  if (FindBlockTrack(target_, sub, b)) {
    read = TrackIO<V>::Read(b, at, x, track_valid);
  } else if (Control* c = TrackController(target_, sub, TrackClassOf<V>())) {
    c->GetValue(at, &x, track_valid, CTRL_ABSOLUTE);
    read = true;
  }
  if (!read) return constant_;  // a track gone out of range keeps the last value
  // The track's validity is in its own (shifted) time; a shifted read holds at t alone.
  valid &= at == t ? track_valid : Interval(t, t);
  constant_ = x;
  return x;
}

template <typename V>
void TypedConnection<V>::WriteInput(TimeValue t, const V& x, int commit) {
  if (!target_) {
    if (HoldWantsRecord(this)) theHold.Put(new ConstantRestore<V>(this));
    constant_ = x;
    NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
    return;
  }
  ReentryGuard guard(*this);
  Interval ignored = FOREVER;
  const TimeValue at = InputTime(t, ignored);
  const int sub = GetTargetSubNum();
  BlockTrack b;
  if (FindBlockTrack(target_, sub, b)) {
    TrackIO<V>::Write(b, at, x);
  } else if (Control* c = TrackController(target_, sub, TrackClassOf<V>())) {
    V value = x;
    c->SetValue(at, &value, commit, CTRL_ABSOLUTE);
  }
}

template <typename V>
bool TypedConnection<V>::AcceptsTrack(ReferenceTarget* parent, int sub_num) {
  BlockTrack b;
  if (FindBlockTrack(parent, sub_num, b)) return TrackIO<V>::Accepts(b.base);
  return TrackController(parent, sub_num, TrackClassOf<V>()) != nullptr;
}

template <typename V>
void TypedConnection<V>::Copy(Control* from) {
  if (!from || from == this) return;
  if (from->SuperClassID() == SuperClassID()) {
    V v = constant_;
    Interval ignored = FOREVER;
    from->GetValue(GetCOREInterface()->GetTime(), &v, ignored, CTRL_ABSOLUTE);
    constant_ = v;
  }
  SetLocked(IsTrackLocked(from));
}

template <typename V>
IOResult TypedConnection<V>::Save(ISave* isave) {
  const std::uint8_t locked = locked_ ? 1 : 0;
  IOResult res = SaveChunk(isave, kLockedChunk, locked);
  if (res == IO_OK) res = SaveChunk(isave, kConstantChunk, constant_);
  return res;
}

template <typename V>
IOResult TypedConnection<V>::Load(ILoad* iload) {
  return ForEachChunk(iload, [&](USHORT id) {
    if (id == kLockedChunk) return LoadLockChunk(iload, locked_);
    if (id == kConstantChunk) return LoadValue(iload, constant_);
    return IO_OK;
  });
}

template <typename V>
void TypedConnection<V>::CloneInto(TypedConnection* c, RemapDir& remap) {
  c->constant_ = constant_;
  ConnectionControl::CloneInto(c, remap);
}

template class TypedConnection<float>;
template class TypedConnection<Point3>;
template class TypedConnection<Quat>;
template class TypedConnection<ScaleValue>;

// ---- FloatConnection ----

namespace {

// The parameters a mode uses, read at t (the others keep their defaults, so they do not
// narrow validity).
ConnectionMapping ReadMapping(IParamBlock2* pb, TimeValue t, Interval& valid) {
  ConnectionMapping m;
  m.transform = pb->GetInt(kConnTransform);
  m.clamp = pb->GetInt(kConnClamp) != 0;
  switch (static_cast<ConnectionTransform>(m.transform)) {
    case ConnectionTransform::OffsetWeight:
      pb->GetValue(kConnOffset, t, m.offset, valid);
      pb->GetValue(kConnWeight, t, m.weight, valid);
      break;
    case ConnectionTransform::Range:
      pb->GetValue(kConnInputMin, t, m.input_min, valid);
      pb->GetValue(kConnInputMax, t, m.input_max, valid);
      pb->GetValue(kConnOutputMin, t, m.output_min, valid);
      pb->GetValue(kConnOutputMax, t, m.output_max, valid);
      break;
    default:
      break;
  }
  return m;
}

}  // namespace

FloatConnection::FloatConnection(bool loading) {
  if (!loading) float_conn_cd.MakeAutoParamBlocks(this);
}

MarvolithClassDesc* FloatConnection::GetClassDesc() const { return &float_conn_cd; }
FPInterfaceDesc* FloatConnection::GetDesc() { return &float_conn_fp; }

const ConnectionControl::Texts& FloatConnection::GetTexts() const {
  static const Texts texts{"SetTarget - Need float, int, or bool subAnim, got: ",
                           "SetTarget - Need float controller, got: ", "Float Connection Change"};
  return texts;
}

Animatable* FloatConnection::SubAnim(int i) {
  return i == kCurveSub ? GetCurveControl(false) : ConnectionControl::SubAnim(i);
}

MSTR FloatConnection::SubAnimName(int i, bool localized) {
  return i == kCurveSub ? MSTR("Curve") : ConnectionControl::SubAnimName(i, localized);
}

ICurveCtl* FloatConnection::GetCurveControl(bool create) {
  if (!pblock_) return nullptr;
  ReferenceTarget* rt = pblock_->GetReferenceTarget(kConnCurve);
  if (rt && rt->ClassID() == CURVE_CONTROL_CLASS_ID && rt->SuperClassID() == REF_MAKER_CLASS_ID) {
    return static_cast<ICurveCtl*>(rt);
  }
  if (!create || rt) return nullptr;  // something else sits in the parameter: leave it
  auto* curve_ctl = new ICurveCtl();
  ICurve* curve = curve_ctl->GetControlCurve(0);
  CurvePoint a = curve->GetPoint(0, 0);
  CurvePoint b = curve->GetPoint(0, 1);
  a.p = Point2(pblock_->GetFloat(kConnInputMin, 0), pblock_->GetFloat(kConnOutputMin, 0));
  b.p = Point2(pblock_->GetFloat(kConnInputMax, 0), pblock_->GetFloat(kConnOutputMax, 0));
  if (b.p.x < a.p.x) std::swap(a, b);
  {
    HoldSuspend no_undo;  // a new object: its own history starts now
    curve->SetPoint(0, 1, b, false);
    curve->SetPoint(0, 0, a, false);
  }
  if (!pblock_->SetValue(kConnCurve, 0, static_cast<ReferenceTarget*>(curve_ctl))) {
    curve_ctl->MaybeAutoDelete();
    return nullptr;
  }
  return curve_ctl;
}

ICurve* FloatConnection::FirstCurve() {
  ICurveCtl* c = GetCurveControl(false);
  return c ? c->GetControlCurve(0) : nullptr;
}

void FloatConnection::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val || !pblock_) return;
  float x = ReadInput(t, valid);
  const ConnectionMapping m = ReadMapping(pblock_, t, valid);
  float y;
  if (m.transform == static_cast<int>(ConnectionTransform::Curve)) {
    ICurve* curve = FirstCurve();
    if (!curve) return;  // no curve: the value stays as it is
    const int n = curve->GetNumPts();
    if (m.clamp && n > 0)
      x = std::clamp(x, curve->GetPoint(t, 0).p.x, curve->GetPoint(t, n - 1).p.x);
    y = curve->GetValue(t, x, &valid);
  } else {
    y = ConnectionForward(m, x);
  }
  auto* out = static_cast<float*>(val);
  *out = method == CTRL_RELATIVE ? *out + y : y;
}

void FloatConnection::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (GetLocked() || !val || !pblock_ || !pblock_->GetInt(kConnTwoWay)) return;
  float y = *static_cast<const float*>(val);
  Interval ignored = FOREVER;
  const ConnectionMapping m = ReadMapping(pblock_, t, ignored);
  float x;
  if (m.transform == static_cast<int>(ConnectionTransform::Curve)) {
    ICurve* curve = FirstCurve();
    const int n = curve ? curve->GetNumPts() : 0;
    if (n == 0) return;
    // No inverse: step along the curve from the present input, the way its slope runs there.
    const float present = ReadInput(t, ignored);
    const bool falling =
        curve->GetValue(t, present + kConnectionGuard) - curve->GetValue(t, present) < 0.0f;
    if (method == CTRL_RELATIVE) {
      x = present + (falling ? -y : y);
    } else {
      x = falling ? 2.0f * present - y : y;
    }
    x = std::clamp(x, curve->GetPoint(t, 0).p.x, curve->GetPoint(t, n - 1).p.x);
  } else {
    if (method == CTRL_RELATIVE) {
      float present = 0.0f;
      GetValue(t, &present, ignored, CTRL_ABSOLUTE);
      y += present;
    }
    x = ConnectionInverse(m, y);
  }
  WriteInput(t, x, commit);
}

RefTargetHandle FloatConnection::Clone(RemapDir& remap) {
  auto* c = new FloatConnection(true);
  CloneInto(c, remap);
  return c;
}

// ---- The vector classes ----

namespace {

// The three weights at t, or ones when use_weight is off.
Point3 ReadWeights(IParamBlock2* pb, TimeValue t, Interval& valid, bool& use) {
  Point3 w(1.0f, 1.0f, 1.0f);
  use = pb->GetInt(kVecConnUseWeight) != 0;
  if (!use) return w;
  pb->GetValue(kVecConnWeightX, t, w.x, valid);
  pb->GetValue(kVecConnWeightY, t, w.y, valid);
  pb->GetValue(kVecConnWeightZ, t, w.z, valid);
  return w;
}

// The Euler XYZ angles of q scaled component-wise by f (multiplied, or divided when inverse).
Quat ScaleEuler(const Quat& q, const Point3& w, bool inverse) {
  float ang[3];
  QuatToEuler(q, ang, EULERTYPE_XYZ);
  Point3 a(ang[0], ang[1], ang[2]);
  a = inverse ? DivideByWeights(a, w) : a * w;
  const float scaled[3] = {a.x, a.y, a.z};
  Quat r;
  EulerToQuat(scaled, r, EULERTYPE_XYZ);
  return r;
}

}  // namespace

PositionConnection::PositionConnection(bool loading) {
  if (!loading) position_conn_cd.MakeAutoParamBlocks(this);
}
MarvolithClassDesc* PositionConnection::GetClassDesc() const { return &position_conn_cd; }
FPInterfaceDesc* PositionConnection::GetDesc() { return &position_conn_fp; }
const ConnectionControl::Texts& PositionConnection::GetTexts() const {
  static const Texts texts{
      "SetTarget - Need position or Point3 subAnim, got: ",
      "SetTarget - Need position controller, got: ", "Position Connection Change"};
  return texts;
}

void PositionConnection::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val || !pblock_) return;
  bool use = false;
  const Point3 y = ReadInput(t, valid) * ReadWeights(pblock_, t, valid, use);
  if (method == CTRL_RELATIVE) {
    static_cast<Matrix3*>(val)->PreTranslate(y);
  } else {
    *static_cast<Point3*>(val) = y;
  }
}

void PositionConnection::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (GetLocked() || !val || !pblock_ || !pblock_->GetInt(kVecConnTwoWay)) return;
  Point3 y = *static_cast<const Point3*>(val);
  Interval ignored = FOREVER;
  if (method == CTRL_RELATIVE) {
    Point3 present;
    GetValue(t, &present, ignored, CTRL_ABSOLUTE);
    y = present + y;
  }
  bool use = false;
  const Point3 w = ReadWeights(pblock_, t, ignored, use);
  WriteInput(t, use ? DivideByWeights(y, w) : y, commit);
}

RefTargetHandle PositionConnection::Clone(RemapDir& remap) {
  auto* c = new PositionConnection(true);
  CloneInto(c, remap);
  return c;
}

RotationConnection::RotationConnection(bool loading) {
  if (!loading) rotation_conn_cd.MakeAutoParamBlocks(this);
}
MarvolithClassDesc* RotationConnection::GetClassDesc() const { return &rotation_conn_cd; }
FPInterfaceDesc* RotationConnection::GetDesc() { return &rotation_conn_fp; }
const ConnectionControl::Texts& RotationConnection::GetTexts() const {
  static const Texts texts{
      "SetTarget - Need rotation or Point3 subAnim, got: ",
      "SetTarget - Need rotation controller, got: ", "Rotation Connection Change"};
  return texts;
}

void RotationConnection::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val || !pblock_) return;
  Quat y = ReadInput(t, valid);
  bool use = false;
  const Point3 w = ReadWeights(pblock_, t, valid, use);
  if (use) y = ScaleEuler(y, w, false);
  if (method == CTRL_RELATIVE) {
    static_cast<Matrix3*>(val)->PreRotate(y);  // val = Matrix(y) * val
  } else {
    *static_cast<Quat*>(val) = y;
  }
}

void RotationConnection::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (GetLocked() || !val || !pblock_ || !pblock_->GetInt(kVecConnTwoWay)) return;
  Interval ignored = FOREVER;
  Quat y;
  if (method == CTRL_RELATIVE) {
    // A relative rotation arrives as an AngAxis that turns after the present rotation.
    Quat present;
    GetValue(t, &present, ignored, CTRL_ABSOLUTE);
    y = Normalize(present * Quat(*static_cast<const AngAxis*>(val)));
  } else {
    y = *static_cast<const Quat*>(val);
  }
  bool use = false;
  const Point3 w = ReadWeights(pblock_, t, ignored, use);
  WriteInput(t, use ? ScaleEuler(y, w, true) : y, commit);
}

RefTargetHandle RotationConnection::Clone(RemapDir& remap) {
  auto* c = new RotationConnection(true);
  CloneInto(c, remap);
  return c;
}

ScaleConnection::ScaleConnection(bool loading) {
  if (!loading) scale_conn_cd.MakeAutoParamBlocks(this);
}
MarvolithClassDesc* ScaleConnection::GetClassDesc() const { return &scale_conn_cd; }
FPInterfaceDesc* ScaleConnection::GetDesc() { return &scale_conn_fp; }
const ConnectionControl::Texts& ScaleConnection::GetTexts() const {
  static const Texts texts{"SetTarget - Need scale or Point3 subAnim, got: ",
                           "SetTarget - Need scale controller, got: ", "Scale Connection Change"};
  return texts;
}

void ScaleConnection::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val || !pblock_) return;
  ScaleValue y = ReadInput(t, valid);
  bool use = false;
  y.s = y.s * ReadWeights(pblock_, t, valid, use);
  if (method == CTRL_RELATIVE) {
    ApplyScaling(*static_cast<Matrix3*>(val), y);
  } else {
    *static_cast<ScaleValue*>(val) = y;
  }
}

void ScaleConnection::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (GetLocked() || !val || !pblock_ || !pblock_->GetInt(kVecConnTwoWay)) return;
  ScaleValue y = *static_cast<const ScaleValue*>(val);
  Interval ignored = FOREVER;
  if (method == CTRL_RELATIVE) {
    // Relative factors multiply the present ones, in the present axis system.
    ScaleValue present;
    GetValue(t, &present, ignored, CTRL_ABSOLUTE);
    y = ScaleValue(present.s * y.s, present.q);
  }
  bool use = false;
  const Point3 w = ReadWeights(pblock_, t, ignored, use);
  if (use) y.s = DivideByWeights(y.s, w);
  WriteInput(t, y, commit);
}

RefTargetHandle ScaleConnection::Clone(RemapDir& remap) {
  auto* c = new ScaleConnection(true);
  CloneInto(c, remap);
  return c;
}

}  // namespace marvolith
