// Copyright Marvolith contributors.
#include "constraints/blend_constraints.h"

#include <cstdint>

#include "controllers/node_space.h"
#include "host/math/affine.h"
#include "host/params/param_block_desc2.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "support/hold_record.h"
#include "support/track_assign.h"

namespace marvolith {
namespace {

class ScaleConstraintClassDesc : public MarvolithClassDesc {
 public:
  ScaleConstraintClassDesc() : MarvolithClassDesc(ClassIndex::ScaleConstraint) {}
  Animatable* Create(bool loading) override { return new ScaleConstraint(loading); }
};

class TransformConstraintClassDesc : public MarvolithClassDesc {
 public:
  TransformConstraintClassDesc() : MarvolithClassDesc(ClassIndex::TransformConstraint) {}
  Animatable* Create(bool loading) override { return new TransformConstraint(loading); }
};

std::vector<ParamDef> BlockParams(const char* weight,
                                  const char* list,
                                  const char* relative,
                                  const char* local_world) {
  return {
      ParamDef(kTargetWeight, "weight", TYPE_FLOAT_TAB, P_ANIMATABLE)
          .TabSize(0)
          .Default(50.0f)
          .Range(0.0f, 100.0f)
          .Label(weight),
      ParamDef(kTargetList, "target_list", TYPE_INODE_TAB, 0)
          .TabSize(0)
          .Validator(&GetNodeLoopValidator())
          .Label(list),
      ParamDef(kTargetRelative, "relative", TYPE_BOOL, 0).Default(false).Label(relative),
      ParamDef(kTargetLocalWorld, "local_world", TYPE_INT, 0)
          .Default(0)
          .Range(0, 1)
          .Label(local_world),
  };
}

// Built at module load in this order: descriptors, blocks, interfaces.
ScaleConstraintClassDesc scale_cd;
TransformConstraintClassDesc transform_cd;
ParamBlockDesc2 scale_pb{kTargetConstraintParams,
                         "params",
                         0,
                         &scale_cd,
                         P_AUTO_CONSTRUCT,
                         0,
                         BlockParams("Scale Weight", "Scale List", "Relative", "Local World")};
ParamBlockDesc2 transform_pb{
    kTargetConstraintParams,
    "params",
    0,
    &transform_cd,
    P_AUTO_CONSTRUCT,
    0,
    BlockParams("Transform Weight", "Transform List", "Transform Weight UI", "Local World")};
FPInterfaceDesc scale_fp{Interface_ID(scale_cd.ClassID()), "constraints", FP_MIXIN, &scale_cd,
                         TargetConstraintFunctions()};
FPInterfaceDesc transform_fp{Interface_ID(transform_cd.ClassID()), "constraints", FP_MIXIN,
                             &transform_cd, TargetConstraintFunctions()};

/// The scale part of m, the sign of a mirror on its factors.
ScaleValue ScaleOf(const Matrix3& m) {
  AffineParts parts;
  decomp_affine(m, &parts);
  return ScaleValue(parts.k * parts.f, parts.u);
}

}  // namespace

ClassDesc2* GetScaleConstraintDesc() { return &scale_cd; }
ClassDesc2* GetTransformConstraintDesc() { return &transform_cd; }

// ---------------------------------------------------------------------------------------------
// Shared state.

template <typename V>
void BlendStateConstraint<V>::HoldState() {
  PutStateRestore(this, "Constraint State");
}

template <typename V>
MSTR BlendStateConstraint<V>::SubAnimName(int i, bool) {
  return i == 0 ? MSTR("Parameters") : MSTR();
}

template <typename V>
void BlendStateConstraint<V>::SetLocked(bool locked, bool) {
  if (locked == locked_) return;
  HoldState();
  locked_ = locked;
  this->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

template <typename V>
void BlendStateConstraint<V>::Copy(Control* from) {
  if (GetLocked() || !from || from == this) return;
  HoldState();
  if (from->ClassID() == ClassID()) {
    auto* same = static_cast<BlendStateConstraint<V>*>(from);
    if (same->pblock_) this->ReplaceReference(0, CloneRefHierarchy(same->pblock_));
    locked_ = same->GetLocked();
  } else {
    locked_ = IsTrackLocked(from);
    state_.base = ValueOf(from, GetCOREInterface()->GetTime());
    state_.first_evaluation = true;
  }
  this->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

template <typename V>
void BlendStateConstraint<V>::CloneStateInto(BlendStateConstraint& c, RemapDir& remap) {
  c.ReplaceReference(0, remap.CloneRef(pblock_));
  c.SetState(GetState());
  BaseClone(this, &c, remap);
}

template <typename V>
IOResult BlendStateConstraint<V>::Save(ISave* isave) {
  IOResult res = SaveChunk(isave, kBaseChunk, state_.base);
  if (res == IO_OK) res = SaveChunk(isave, kInitialChunk, state_.initial);
  if (res == IO_OK) res = SaveChunk(isave, kBlendAtAddChunk, state_.blend_at_add);
  if (res == IO_OK)
    res = SaveChunk(isave, kLastCountChunk, static_cast<std::int32_t>(state_.last_count));
  if (res == IO_OK)
    res = SaveChunk(isave, kLockedChunk, static_cast<std::int32_t>(locked_ ? 1 : 0));
  return res;
}

template <typename V>
IOResult BlendStateConstraint<V>::Load(ILoad* iload) {
  State s = GetState();
  bool have_base = false;
  bool have_initial = false;
  std::int32_t count = s.last_count;
  std::int32_t locked = s.locked ? 1 : 0;
  const IOResult res = ForEachChunk(iload, [&](USHORT id) -> IOResult {
    switch (id) {
      case kBaseChunk:
        have_base = true;
        return LoadValue(iload, s.base);
      case kInitialChunk:
        have_initial = true;
        return LoadValue(iload, s.initial);
      case kBlendAtAddChunk:
        return LoadValue(iload, s.blend_at_add);
      case kLastCountChunk:
        return LoadValue(iload, count);
      case kLockedChunk:
        return LoadValue(iload, locked);
      default:
        return IO_OK;
    }
  });
  if (res != IO_OK) return res;
  s.last_count = count;
  s.locked = locked != 0;
  // Without the stored start values the next evaluation takes them again.
  s.first_evaluation = !(have_base && have_initial);
  SetState(s);
  return IO_OK;
}

template class BlendStateConstraint<ScaleValue>;
template class BlendStateConstraint<Matrix3>;

// ---------------------------------------------------------------------------------------------
// ScaleConstraint

ScaleConstraint::ScaleConstraint(bool loading) {
  if (!loading) {
    HoldSuspend no_undo;
    scale_cd.MakeAutoParamBlocks(this);
  }
}

MarvolithClassDesc* ScaleConstraint::Desc() const { return &scale_cd; }
FPInterfaceDesc* ScaleConstraint::GetDesc() { return &scale_fp; }

ScaleValue ScaleConstraint::ValueOf(Control* from, TimeValue t) {
  ScaleValue s;
  Interval ignored = FOREVER;
  from->GetValue(t, &s, ignored, CTRL_ABSOLUTE);
  return s;
}

void ScaleConstraint::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val || !pblock_) return;
  const bool relative_call = method == CTRL_RELATIVE;
  const bool world = pblock_->GetInt(kTargetLocalWorld) != 0;
  if (state_.first_evaluation) {
    Matrix3 m = relative_call ? *static_cast<Matrix3*>(val) : Matrix3();
    ApplyScaling(m, state_.base);
    state_.initial = ScaleOf(m);
    state_.first_evaluation = false;
  }
  const int n = GetNumTargets();
  TargetBlend blend;
  for (int i = 0; i < n; ++i) {
    blend.AddScale(ScaleOf(TargetTransform(i, t, !world, valid)), WeightAt(i, t, valid));
  }
  const ScaleValue& reference = world ? state_.base : state_.initial;
  ScaleValue result = reference;
  if (blend.HasBlend()) {
    result = blend.Scale();
    if (state_.last_count != n) state_.blend_at_add = result;
    if (pblock_->GetInt(kTargetRelative) != 0) {
      result = RelativeScale(result, state_.blend_at_add, reference);
    }
  }
  state_.last_count = n;
  if (!relative_call) {
    *static_cast<ScaleValue*>(val) = result;
  } else if (world) {
    ApplyScaling(*static_cast<Matrix3*>(val), result);
  } else {
    ApplyScaleValue(*static_cast<Matrix3*>(val), result);
  }
}

RefTargetHandle ScaleConstraint::Clone(RemapDir& remap) {
  auto* c = new ScaleConstraint(true);
  CloneStateInto(*c, remap);
  return c;
}

// ---------------------------------------------------------------------------------------------
// TransformConstraint

TransformConstraint::TransformConstraint(bool loading) {
  if (!loading) {
    HoldSuspend no_undo;
    transform_cd.MakeAutoParamBlocks(this);
  }
}

MarvolithClassDesc* TransformConstraint::Desc() const { return &transform_cd; }
FPInterfaceDesc* TransformConstraint::GetDesc() { return &transform_fp; }

Matrix3 TransformConstraint::ValueOf(Control* from, TimeValue t) {
  Matrix3 local;  // from's world under an identity parent: its local transform
  Interval ignored = FOREVER;
  from->GetValue(t, &local, ignored, CTRL_RELATIVE);
  return local;
}

void TransformConstraint::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  if (!val || !pblock_) return;
  Matrix3& tm = *static_cast<Matrix3*>(val);
  const bool world = pblock_->GetInt(kTargetLocalWorld) != 0;
  if (state_.first_evaluation) {
    state_.initial = state_.base * tm;
    state_.first_evaluation = false;
  }
  const int n = GetNumTargets();
  TargetBlend blend;
  for (int i = 0; i < n; ++i) {
    blend.Add(StableDecompose(TargetTransform(i, t, !world, valid)), WeightAt(i, t, valid));
  }
  Matrix3 result = state_.base * tm;
  if (blend.HasBlend()) {
    const Matrix3 now = blend.Result();
    if (state_.last_count != n) state_.blend_at_add = now;
    if (pblock_->GetInt(kTargetRelative) == 0) {
      result = world ? now : now * tm;
    } else if (world) {
      result = ApplyBlendChange(state_.initial, state_.blend_at_add, now);
    } else {
      result = ApplyBlendChange(state_.base, state_.blend_at_add, now) * tm;
    }
  }
  state_.last_count = n;
  tm = result;
}

RefTargetHandle TransformConstraint::Clone(RemapDir& remap) {
  auto* c = new TransformConstraint(true);
  CloneStateInto(*c, remap);
  return c;
}

}  // namespace marvolith
