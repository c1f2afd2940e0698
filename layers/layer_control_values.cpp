// Copyright Marvolith contributors.
// The four layered classes: identity, the controller of a new layer, and evaluation and writing
// through the blending cores. Evaluation allocates nothing: the sources below live on the stack.
#include <cmath>

#include "controllers/rotation_xyz.h"
#include "host/controllers/control_interfaces.h"
#include "host/controllers/controller_classes.h"
#include "host/math/affine.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "layers/layer_control.h"
#include "plugin/class_table.h"

namespace marvolith {

namespace {

// A layer source of the blend loops over one track's tab and the stack's weights.
template <typename T>
struct TrackLayers {
  AnimationLayersControl* track;
  TimeValue t;
  Interval& valid;

  bool Share(int i, LayerShare& out) { return track->LayerShareAt(i, t, valid, out); }
  void Apply(int i, T& value) {
    track->LayerController(i)->GetValue(t, &value, valid, CTRL_RELATIVE);
  }
};

// Scale layers: host scale controllers replace the stretch of the matrix they apply to, so an
// Adjustment layer multiplies its own value onto what lies under it instead.
struct ScaleTrackLayers {
  AnimationLayersControl* track;
  TimeValue t;
  Interval& valid;

  bool Share(int i, LayerShare& out) { return track->LayerShareAt(i, t, valid, out); }
  void Apply(int i, Matrix3& m) {
    Control* c = track->LayerController(i);
    if (!IsAdditiveLayer(i, track->GetAnimationLayers()->GetLayerType(i))) {
      c->GetValue(t, &m, valid, CTRL_RELATIVE);
      return;
    }
    ScaleValue s;
    c->GetValue(t, &s, valid, CTRL_ABSOLUTE);
    ApplyScaling(m, s);
  }
};

IEulerControl* EulerOf(Control* c) {
  return c ? static_cast<IEulerControl*>(c->GetInterface(I_EULERCTRL)) : nullptr;
}

Control* AxisController(Control* c, int axis) {
  switch (axis) {
    case 0:
      return c->GetXController();
    case 1:
      return c->GetYController();
    default:
      return c->GetZController();
  }
}

// Euler layers: a controller with X, Y and Z tracks gives their angles, any other its rotation
// converted in the track's order.
struct EulerLayers {
  AnimationLayersControl* track;
  TimeValue t;
  Interval& valid;
  int order;

  bool Share(int i, LayerShare& out) { return track->LayerShareAt(i, t, valid, out); }
  void ReadEuler(int i, float e[3]) {
    Control* c = track->LayerController(i);
    if (EulerOf(c)) {
      for (int a = 0; a < 3; ++a) {
        e[a] = 0.0f;
        if (Control* axis = AxisController(c, a)) axis->GetValue(t, &e[a], valid, CTRL_ABSOLUTE);
      }
      return;
    }
    Quat q;
    c->GetValue(t, &q, valid, CTRL_ABSOLUTE);
    QuatToEulerByAxis(q, order, e);
  }
};

// The controller of a new layer: a fresh one of the base layer's class when that is a keyable
// leaf of the track's kind, else null (the caller takes its default).
Control* LikeBase(AnimationLayersControl* track) {
  Control* base = track->LayerController(0);
  if (!base || !base->IsKeyable() || !base->IsLeaf()) return nullptr;
  if (base->SuperClassID() != track->SuperClassID()) return nullptr;
  return dynamic_cast<Control*>(CreateInstance(base->SuperClassID(), base->ClassID()));
}

TimeValue Now() { return GetCOREInterface()->GetTime(); }

// Seeds an Override layer's controller with the value on screen. It is a fresh controller: its
// value is no edit of its own (the tab records undo) and makes no key.
template <typename V>
void Seed(AnimationLayersControl* track, Control* c, int type) {
  if (type != kLayerOverride || !c || !track->GetAnimationLayers()) return;
  V v{};
  Interval scratch = FOREVER;
  track->GetLayeredValue(Now(), &v, scratch, CTRL_ABSOLUTE, 0, track->BlendCount());
  HoldSuspend no_undo;
  AnimateSuspend no_key;
  c->SetValue(0, &v, 1, CTRL_ABSOLUTE);
}

// What every write needs: the active layer, writable (existing, counted, not ignored, weight not
// 0, with a controller), its weight, type and controller.
struct ActiveLayer {
  int index = 0;
  float weight = 0.0f;
  int type = kLayerOverride;
  Control* control = nullptr;
};

bool WritableActive(AnimationLayersControl* track, TimeValue t, ActiveLayer& out) {
  AnimationLayers* layers = track->GetAnimationLayers();
  if (!layers || track->GetLocked()) return false;
  const int active = layers->GetActiveLayer();
  if (active < 0 || active >= track->BlendCount()) return false;
  if (active > 0 && layers->GetLayerIgnore(active)) return false;
  Interval scratch = FOREVER;
  float w = layers->GetWeight(active, t, scratch);
  if (AnimLayersLocalWeights* local = track->GetLocalWeights()) {
    w *= local->GetWeight(active, t, scratch);
  }
  Control* c = track->LayerController(active);
  if (w == 0.0f || !std::isfinite(w) || !c) return false;
  out.index = active;
  out.weight = w;
  out.type = layers->GetLayerType(active);
  out.control = c;
  return true;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Identity and cloning.

FloatLayers::FloatLayers(bool) {}
PositionLayers::PositionLayers(bool) {}
RotationLayers::RotationLayers(bool) {}
ScaleLayers::ScaleLayers(bool) {}

Class_ID FloatLayers::ClassID() { return GetClassInfo(ClassIndex::FloatLayers).class_id; }
Class_ID PositionLayers::ClassID() { return GetClassInfo(ClassIndex::PositionLayers).class_id; }
Class_ID RotationLayers::ClassID() { return GetClassInfo(ClassIndex::RotationLayers).class_id; }
Class_ID ScaleLayers::ClassID() { return GetClassInfo(ClassIndex::ScaleLayers).class_id; }

void FloatLayers::GetClassName(MSTR& s, bool) const { s = ClassNameOf(ClassIndex::FloatLayers); }
void PositionLayers::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(ClassIndex::PositionLayers);
}
void RotationLayers::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(ClassIndex::RotationLayers);
}
void ScaleLayers::GetClassName(MSTR& s, bool) const { s = ClassNameOf(ClassIndex::ScaleLayers); }

RefTargetHandle FloatLayers::Clone(RemapDir& remap) {
  auto* c = new FloatLayers(true);
  CloneInto(c, remap);
  return c;
}
RefTargetHandle PositionLayers::Clone(RemapDir& remap) {
  auto* c = new PositionLayers(true);
  CloneInto(c, remap);
  return c;
}
RefTargetHandle RotationLayers::Clone(RemapDir& remap) {
  auto* c = new RotationLayers(true);
  CloneInto(c, remap);
  return c;
}
RefTargetHandle ScaleLayers::Clone(RemapDir& remap) {
  auto* c = new ScaleLayers(true);
  CloneInto(c, remap);
  return c;
}

// ---------------------------------------------------------------------------------------------
// New layers.

Control* FloatLayers::NewLayerController(int type) {
  Control* c = LikeBase(this);
  if (!c) c = NewDefaultFloatController();
  Seed<float>(this, c, type);
  return c;
}

Control* PositionLayers::NewLayerController(int type) {
  Control* c = LikeBase(this);
  if (!c) c = NewDefaultPositionController();
  Seed<Point3>(this, c, type);
  return c;
}

Control* ScaleLayers::NewLayerController(int type) {
  Control* c = LikeBase(this);
  if (!c) c = NewDefaultScaleController();
  Seed<ScaleValue>(this, c, type);
  return c;
}

Control* RotationLayers::NewLayerController(int type) {
  Control* c = LikeBase(this);
  if (c) {
    IEulerControl* base = EulerOf(LayerController(0));
    IEulerControl* mine = EulerOf(c);
    if (base && mine) {
      HoldSuspend no_undo;
      mine->SetOrder(base->GetOrder());
    }
  } else {
    c = new RotationXYZ();
  }
  if (type != kLayerOverride || !layers_) return c;
  IEulerControl* euler = EulerOf(c);
  if (!euler) {
    Seed<Quat>(this, c, type);
    return c;
  }
  // Through the angles, so that turns beyond a half turn survive in the new layer.
  float e[3] = {0.0f, 0.0f, 0.0f};
  Interval scratch = FOREVER;
  const TimeValue t = Now();
  if (layers_->GetEulerBlending()) {
    BlendedEuler(t, scratch, 0, BlendCount(), e);
  } else {
    Quat q;
    GetLayeredValue(t, &q, scratch, CTRL_ABSOLUTE, 0, BlendCount());
    QuatToEulerByAxis(q, euler->GetOrder(), e);
  }
  HoldSuspend no_undo;
  AnimateSuspend no_key;
  for (int a = 0; a < 3; ++a) {
    if (Control* axis = AxisController(c, a)) axis->SetValue(0, &e[a], 1, CTRL_ABSOLUTE);
  }
  return c;
}

// ---------------------------------------------------------------------------------------------
// Evaluation.

void FloatLayers::GetLayeredValue(
    TimeValue t, void* val, Interval& valid, GetSetMethod method, int first, int last) {
  if (!layers_ || !val) return;
  last = std::min(last, layer_controls_.Count());
  auto* v = static_cast<float*>(val);
  const float initial = method == CTRL_ABSOLUTE ? 0.0f : *v;
  *v = BlendFloatLayers(initial, first, last, TrackLayers<float>{this, t, valid});
}

void PositionLayers::GetLayeredValue(
    TimeValue t, void* val, Interval& valid, GetSetMethod method, int first, int last) {
  if (!layers_ || !val) return;
  last = std::min(last, layer_controls_.Count());
  const Matrix3 m0 = method == CTRL_ABSOLUTE ? Matrix3() : *static_cast<Matrix3*>(val);
  const Matrix3 m = BlendPositionLayers(m0, first, last, TrackLayers<Matrix3>{this, t, valid});
  if (method == CTRL_ABSOLUTE) {
    *static_cast<Point3*>(val) = m.GetTrans();
  } else {
    *static_cast<Matrix3*>(val) = m;
  }
}

void ScaleLayers::GetLayeredValue(
    TimeValue t, void* val, Interval& valid, GetSetMethod method, int first, int last) {
  if (!layers_ || !val) return;
  last = std::min(last, layer_controls_.Count());
  const Matrix3 m0 = method == CTRL_ABSOLUTE ? Matrix3() : *static_cast<Matrix3*>(val);
  ScaleValue v;
  const Matrix3 m = BlendScaleLayers(m0, v, first, last, ScaleTrackLayers{this, t, valid});
  if (method == CTRL_ABSOLUTE) {
    *static_cast<ScaleValue*>(val) = v;
  } else {
    *static_cast<Matrix3*>(val) = m;
  }
}

int RotationLayers::BlendOrder() {
  IEulerControl* euler = EulerOf(LayerController(0));
  return euler ? euler->GetOrder() : 0;
}

void RotationLayers::BlendedEuler(
    TimeValue t, Interval& valid, int first, int last, float by_axis[3]) {
  last = std::min(last, layer_controls_.Count());
  BlendEulerLayers(by_axis, first, last, EulerLayers{this, t, valid, BlendOrder()});
}

void RotationLayers::GetLayeredValue(
    TimeValue t, void* val, Interval& valid, GetSetMethod method, int first, int last) {
  if (!layers_ || !val) return;
  last = std::min(last, layer_controls_.Count());
  if (layers_->GetEulerBlending()) {
    float e[3];
    BlendedEuler(t, valid, first, last, e);
    const Matrix3 r = EulerByAxisToMatrix(e, BlendOrder());
    if (method == CTRL_ABSOLUTE) {
      *static_cast<Quat*>(val) = Quat(r);
    } else {
      auto* m = static_cast<Matrix3*>(val);
      *m = r * *m;
    }
    return;
  }
  const Matrix3 m0 = method == CTRL_ABSOLUTE ? Matrix3() : *static_cast<Matrix3*>(val);
  Quat q;
  const Matrix3 m = BlendRotationLayers(m0, q, first, last, TrackLayers<Matrix3>{this, t, valid});
  if (method == CTRL_ABSOLUTE) {
    *static_cast<Quat*>(val) = q;
  } else {
    *static_cast<Matrix3*>(val) = m;
  }
}

// ---------------------------------------------------------------------------------------------
// Writing through the active layer.

void FloatLayers::SetLayeredValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  ActiveLayer a;
  if (!val || !WritableActive(this, t, a)) return;
  const float v = *static_cast<float*>(val);
  float out = 0.0f;
  if (method == CTRL_RELATIVE) {
    out = v / a.weight;
  } else {
    float below = 0.0f;
    Interval scratch = FOREVER;
    GetLayeredValue(t, &below, scratch, CTRL_ABSOLUTE, 0, a.index);
    out = SolveFloatLayer(v, below, a.weight, a.type);
  }
  if (!std::isfinite(out)) return;
  a.control->SetValue(t, &out, commit, method);
}

void PositionLayers::SetLayeredValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  ActiveLayer a;
  if (!val || !WritableActive(this, t, a)) return;
  const Point3 v = *static_cast<Point3*>(val);
  Interval scratch = FOREVER;
  Point3 out;
  if (method == CTRL_RELATIVE) {
    out = v / a.weight;
    if (a.type == kLayerAdjustment) {
      // The displacement is meant in the frame of the layers underneath.
      Matrix3 below;
      GetLayeredValue(t, &below, scratch, CTRL_RELATIVE, 0, a.index);
      out = VectorTransform(Inverse(below), out);
    }
  } else {
    Point3 below;
    GetLayeredValue(t, &below, scratch, CTRL_ABSOLUTE, 0, a.index);
    out = SolvePositionLayer(v, below, a.weight, a.type);
  }
  if (!std::isfinite(out.x) || !std::isfinite(out.y) || !std::isfinite(out.z)) return;
  a.control->SetValue(t, &out, commit, method);
}

void ScaleLayers::SetLayeredValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  ActiveLayer a;
  if (!val || !WritableActive(this, t, a)) return;
  ScaleValue v = *static_cast<ScaleValue*>(val);
  Interval scratch = FOREVER;
  if (method == CTRL_RELATIVE) {
    // A relative scale is taken on top of everything up to the active layer, then written as
    // the absolute value it makes.
    Matrix3 m;
    GetLayeredValue(t, &m, scratch, CTRL_RELATIVE, 0, a.index + 1);
    ApplyScaling(m, v);
    v = ScaleValueOf(m);
  }
  ScaleValue below;
  GetLayeredValue(t, &below, scratch, CTRL_ABSOLUTE, 0, a.index);
  ScaleValue out;
  if (!SolveScaleLayer(v, below, a.weight, a.type, out)) return;
  a.control->SetValue(t, &out, commit, CTRL_ABSOLUTE);
}

void RotationLayers::SetLayeredValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  ActiveLayer a;
  if (!val || !WritableActive(this, t, a)) return;
  Interval scratch = FOREVER;
  const int order = BlendOrder();
  if (layers_->GetEulerBlending()) {
    float e[3];
    BlendedEuler(t, scratch, 0, a.index + 1, e);
    if (method == CTRL_ABSOLUTE) {
      ContinuousQuatToEulerByAxis(*static_cast<Quat*>(val), order, e);
    } else {
      ApplyEulerTurn(e, order, *static_cast<AngAxis*>(val));
    }
    float below[3];
    BlendedEuler(t, scratch, 0, a.index, below);
    float x[3];
    SolveEulerLayer(e, below, a.weight, a.type, x);
    if (EulerOf(a.control)) {
      for (int i = 0; i < 3; ++i) {
        if (Control* axis = AxisController(a.control, i)) {
          axis->SetValue(t, &x[i], commit, CTRL_ABSOLUTE);
        }
      }
    } else {
      Quat r(EulerByAxisToMatrix(x, order));
      a.control->SetValue(t, &r, commit, CTRL_ABSOLUTE);
    }
    return;
  }
  Quat q;
  if (method == CTRL_ABSOLUTE) {
    q = *static_cast<Quat*>(val);
  } else {
    GetLayeredValue(t, &q, scratch, CTRL_ABSOLUTE, 0, a.index + 1);
    q = q * Quat(*static_cast<AngAxis*>(val));
  }
  Quat below;
  GetLayeredValue(t, &below, scratch, CTRL_ABSOLUTE, 0, a.index);
  Quat r = SolveRotationLayer(q, below, a.weight, a.type);
  a.control->SetValue(t, &r, commit, CTRL_ABSOLUTE);
}

}  // namespace marvolith
