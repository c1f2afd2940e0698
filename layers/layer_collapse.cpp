// Copyright Marvolith contributors.
// Collapsing a layered track: the key times of its layers and weights, and baking the blended
// value into one keyed controller that becomes the only layer.
#include <algorithm>

#include "host/controllers/control_interfaces.h"
#include "host/controllers/keys.h"
#include "host/core/clock.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "layers/layer_control.h"

namespace marvolith {

namespace {

constexpr Class_ID kBezierFloatClassID(0x2007, 0);
constexpr Class_ID kBezierScaleClassID(0x2010, 0);
constexpr Class_ID kPositionXYZClassID(0x118F7E02, 0xFFEE238A);
constexpr Class_ID kScaleXYZClassID(0x118F7C01, 0xFEEE238B);
/// Custom in and out tangents.
constexpr DWORD kBakedKeyFlags = 5760;
/// The part of a change of keys without a change of structure.
constexpr PartID kKeysChangedPart = 0x800037FF;

void AddKeyTimes(Animatable* anim, std::vector<TimeValue>& times) {
  if (!anim) return;
  const int n = anim->NumKeys();
  for (int k = 0; k < n; ++k) times.push_back(anim->GetKeyTime(k));
  for (int i = 0, subs = anim->NumSubs(); i < subs; ++i) AddKeyTimes(anim->SubAnim(i), times);
}

IKeyControl* KeysOf(Control* c) {
  return c ? static_cast<IKeyControl*>(c->GetInterface(I_KEYCONTROL)) : nullptr;
}

int HalfFrame() { return GetCOREInterface()->GetTicksPerFrame() / 2; }

// A Bezier float holding source's value at every time of `times`, with the slopes of source half
// a frame either side. Built with the hold suspended: it is new, and only its placing is an edit.
Control* BakeFloat(Control* source, const std::vector<TimeValue>& times) {
  auto* b = dynamic_cast<Control*>(CreateInstance(CTRL_FLOAT_CLASS_ID, kBezierFloatClassID));
  if (!b) return nullptr;
  HoldSuspend no_undo;
  AnimateSuspend no_key;
  Interval scratch = FOREVER;
  float v0 = 0.0f;
  source->GetValue(0, &v0, scratch, CTRL_ABSOLUTE);
  b->SetValue(0, &v0, 1, CTRL_ABSOLUTE);
  IKeyControl* keys = KeysOf(b);
  if (!keys || times.empty()) return b;
  const int h = HalfFrame();
  for (std::size_t k = 0; k < times.size(); ++k) {
    const TimeValue t = times[k];
    float v = 0.0f, a = 0.0f, c = 0.0f;
    source->GetValue(t, &v, scratch, CTRL_ABSOLUTE);
    source->GetValue(t - h, &a, scratch, CTRL_ABSOLUTE);
    source->GetValue(t + h, &c, scratch, CTRL_ABSOLUTE);
    const BakedTangents tan = BakeTangents(v, a, c, h);
    IBezFloatKey key;
    key.time = t;
    key.flags = kBakedKeyFlags;
    key.val = v;
    key.intan = tan.in;
    key.outtan = tan.out;
    key.inLength = k == 0 ? -1.0f : BakedTangentLength();
    key.outLength = BakedTangentLength();
    keys->AppendKey(&key);
  }
  keys->SortKeys();
  return b;
}

// A compound target (position or scale XYZ, or the rotation of a new layer) following this
// track frame by frame over [start, end], then each keyable channel rebaked at the key times.
template <typename V>
void SampleAndRebake(AnimationLayersControl* track, Control* target) {
  std::vector<TimeValue> times;
  TimeValue start = 0, end = 0;
  track->GetKeyTimeRange(times, start, end);
  HoldSuspend no_undo;
  const bool was_animating = Animating();
  AnimateOn();
  const int tpf = std::max(1, GetCOREInterface()->GetTicksPerFrame());
  for (TimeValue t = start - start % tpf; t <= end; t += tpf) {
    V v{};
    Interval scratch = FOREVER;
    track->GetValue(t, &v, scratch, CTRL_ABSOLUTE);
    target->SetValue(t, &v, 1, CTRL_ABSOLUTE);
  }
  if (!was_animating) AnimateOff();
  for (int i = 0, n = target->NumSubs(); i < n; ++i) {
    auto* sub = dynamic_cast<Control*>(target->SubAnim(i));
    if (!sub || !sub->IsKeyable() || sub->SuperClassID() != CTRL_FLOAT_CLASS_ID) continue;
    if (Control* baked = BakeFloat(sub, times)) target->AssignController(baked, i);
  }
}

// A compound controller of class cid whose channels are all Bezier floats.
Control* NewBezierTriple(SClass_ID sclass, const Class_ID& cid) {
  auto* c = dynamic_cast<Control*>(CreateInstance(sclass, cid));
  if (!c) return nullptr;
  HoldSuspend no_undo;
  for (int i = 0, n = c->NumSubs(); i < n; ++i) {
    auto* sub = dynamic_cast<Control*>(c->SubAnim(i));
    if (sub && sub->ClassID() == kBezierFloatClassID) continue;
    c->AssignController(CreateInstance(CTRL_FLOAT_CLASS_ID, kBezierFloatClassID), i);
  }
  return c;
}

// The three channels of a scale XYZ joined into one Bezier scale: key by key, as far as all
// three have keys. Null when a channel is missing.
Control* JoinScale(Control* xyz) {
  Control* ch[3] = {xyz->GetXController(), xyz->GetYController(), xyz->GetZController()};
  if (!ch[0] || !ch[1] || !ch[2]) {
    for (int i = 0; i < 3; ++i) ch[i] = dynamic_cast<Control*>(xyz->SubAnim(i));
    if (!ch[0] || !ch[1] || !ch[2]) return nullptr;
  }
  auto* b = dynamic_cast<Control*>(CreateInstance(CTRL_SCALE_CLASS_ID, kBezierScaleClassID));
  if (!b) return nullptr;
  HoldSuspend no_undo;
  AnimateSuspend no_key;
  Interval scratch = FOREVER;
  ScaleValue v0;
  for (int a = 0; a < 3; ++a) ch[a]->GetValue(0, &v0.s[a], scratch, CTRL_ABSOLUTE);
  b->SetValue(0, &v0, 1, CTRL_ABSOLUTE);
  IKeyControl* out = KeysOf(b);
  IKeyControl* in[3] = {KeysOf(ch[0]), KeysOf(ch[1]), KeysOf(ch[2])};
  if (!out || !in[0] || !in[1] || !in[2]) return b;
  const int n = std::min({in[0]->GetNumKeys(), in[1]->GetNumKeys(), in[2]->GetNumKeys()});
  for (int k = 0; k < n; ++k) {
    IBezFloatKey f[3];
    for (int a = 0; a < 3; ++a) in[a]->GetKey(k, &f[a]);
    IBezScaleKey key;
    key.time = f[0].time;
    key.flags = kBakedKeyFlags;
    key.val = ScaleValue(Point3(f[0].val, f[1].val, f[2].val), Quat());
    key.intan = Point3(f[0].intan, f[1].intan, f[2].intan);
    key.outtan = Point3(f[0].outtan, f[1].outtan, f[2].outtan);
    key.inLength = Point3(f[0].inLength, f[1].inLength, f[2].inLength);
    key.outLength = Point3(f[0].outLength, f[1].outLength, f[2].outLength);
    out->AppendKey(&key);
  }
  out->SortKeys();
  b->NotifyDependents(FOREVER, kKeysChangedPart, REFMSG_CHANGE);
  return b;
}

}  // namespace

void AnimationLayersControl::CollectKeyTimes(std::vector<TimeValue>& times) {
  times.clear();
  for (int i = 0, n = layer_controls_.Count(); i < n; ++i) {
    if (i > 0 && layers_ && layers_->GetLayerIgnore(i)) continue;
    AddKeyTimes(layer_controls_[i], times);
    if (layers_) AddKeyTimes(layers_->GetWeightControl(i), times);
    if (local_weights_) AddKeyTimes(local_weights_->GetWeightControl(i), times);
  }
  std::sort(times.begin(), times.end());
  times.erase(std::unique(times.begin(), times.end()), times.end());
}

void AnimationLayersControl::GetKeyTimeRange(std::vector<TimeValue>& times,
                                             TimeValue& start,
                                             TimeValue& end) {
  CollectKeyTimes(times);
  start = times.empty() ? 0 : times.front();
  end = times.empty() ? 0 : times.back();
}

namespace {

// Makes c the track's only layer; the layers it replaces go with their references.
void ReplaceLayers(AnimationLayersControl* track, Control* c) {
  Tab<Control*>& tab = track->LayerTab();
  for (int i = tab.Count() - 1; i >= 0; --i) track->DeleteReference(i + 1);
  track->HoldLayerControllers();
  tab.SetCount(1);
  tab[0] = nullptr;
  track->ReplaceReference(1, c);
  track->TabRestored();
}

}  // namespace

void FloatLayers::CollapseLayerControllers() {
  std::vector<TimeValue> times;
  CollectKeyTimes(times);
  if (Control* baked = BakeFloat(this, times)) ReplaceLayers(this, baked);
}

void PositionLayers::CollapseLayerControllers() {
  Control* xyz = NewBezierTriple(CTRL_POSITION_CLASS_ID, kPositionXYZClassID);
  if (!xyz) return;
  SampleAndRebake<Point3>(this, xyz);
  ReplaceLayers(this, xyz);
}

void RotationLayers::CollapseLayerControllers() {
  Control* target = nullptr;
  {
    HoldSuspend no_undo;
    target = NewLayerController(kLayerAdjustment);
  }
  if (!target) return;
  SampleAndRebake<Quat>(this, target);
  ReplaceLayers(this, target);
}

void ScaleLayers::CollapseLayerControllers() {
  Control* xyz = NewBezierTriple(CTRL_SCALE_CLASS_ID, kScaleXYZClassID);
  if (!xyz) return;
  SampleAndRebake<ScaleValue>(this, xyz);
  Control* joined = JoinScale(xyz);
  if (!joined) {
    xyz->MaybeAutoDelete();
    return;
  }
  ReplaceLayers(this, joined);
  xyz->MaybeAutoDelete();
}

}  // namespace marvolith
