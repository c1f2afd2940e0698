// Copyright Marvolith contributors.
// The descriptors of the four layered classes, their published interface and its functions,
// which all act on the shared stack.

#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "layers/layer_control.h"
#include "plugin/class_table.h"

namespace marvolith {

namespace {

template <class C>
class LayersClassDesc : public MarvolithClassDesc {
 public:
  explicit LayersClassDesc(ClassIndex index) : MarvolithClassDesc(index) {}
  Animatable* Create(bool loading) override { return new C(loading); }
};

LayersClassDesc<FloatLayers> float_layers_cd(ClassIndex::FloatLayers);
LayersClassDesc<PositionLayers> position_layers_cd(ClassIndex::PositionLayers);
LayersClassDesc<RotationLayers> rotation_layers_cd(ClassIndex::RotationLayers);
LayersClassDesc<ScaleLayers> scale_layers_cd(ClassIndex::ScaleLayers);

// The same table on each class: a table belongs to one owner class.
std::vector<FPFunctionDef> LayerFunctions() {
  using enum FPType;
  auto index = [] { return FPArg("index", TYPE_INDEX); };
  auto state = [] { return FPArg("state", TYPE_BOOL); };
  auto weight = [] { return FPArg("weight", TYPE_PCNT_FRAC); };
  auto control = [] { return FPArg("control", TYPE_CONTROL); };
  auto add = [](FunctionID id, std::string name) {
    return FPFunctionDef(id, std::move(name), TYPE_VOID,
                         {FPArg("name", TYPE_STRING).KeyArg(FPValue("")),
                          FPArg("index", TYPE_INDEX).KeyArg(FPValue::Index(-1))});
  };
  std::vector<FPFunctionDef> f = {
      {kLayersGetLayerCount, "GetLayerCount", TYPE_INT},
      add(kLayersAddAdjustmentLayer, "AddAdjustmentLayer"),
      add(kLayersAddOverrideLayer, "AddOverrideLayer"),
      {kLayersRemoveLayer, "RemoveLayer", TYPE_VOID, {index()}},
      {kLayersCollapseLayers, "CollapseLayers", TYPE_VOID},
      {kLayersMoveLayerUp, "MoveLayerUp", TYPE_VOID, {index()}},
      {kLayersMoveLayerDown, "MoveLayerDown", TYPE_VOID, {index()}},
      {kLayersGetLayerControl, "GetLayerControl", TYPE_CONTROL, {index()}},
      {kLayersSetLayerControl, "SetLayerControl", TYPE_VOID, {index(), control()}},
      {kLayersGetLayerName, "GetLayerName", TYPE_STRING, {index()}},
      {kLayersSetLayerName, "SetLayerName", TYPE_VOID, {index(), FPArg("string", TYPE_STRING)}},
      {kLayersGetLayerType, "GetLayerType", TYPE_INT, {index()}},
      {kLayersSetLayerType, "SetLayerType", TYPE_VOID, {index(), FPArg("type", TYPE_INT)}},
      {kLayersGetLayerIgnore, "GetLayerIgnore", TYPE_BOOL, {index()}},
      {kLayersSetLayerIgnore, "SetLayerIgnore", TYPE_VOID, {index(), state()}},
      {kLayersGetLayerGlobalWeight, "GetLayerGlobalWeight", TYPE_PCNT_FRAC, {index()}},
      {kLayersSetLayerGlobalWeight, "SetLayerGlobalWeight", TYPE_VOID, {index(), weight()}},
      {kLayersGetLayerGlobalWeightControl, "GetLayerGlobalWeightControl", TYPE_CONTROL, {index()}},
      {kLayersSetLayerGlobalWeightControl,
       "SetLayerGlobalWeightControl",
       TYPE_VOID,
       {index(), control()}},
      {kLayersGetLayerLocalWeight, "GetLayerLocalWeight", TYPE_PCNT_FRAC, {index()}},
      {kLayersSetLayerLocalWeight, "SetLayerLocalWeight", TYPE_VOID, {index(), weight()}},
      {kLayersGetLayerLocalWeightControl, "GetLayerLocalWeightControl", TYPE_CONTROL, {index()}},
      {kLayersSetLayerLocalWeightControl,
       "SetLayerLocalWeightControl",
       TYPE_VOID,
       {index(), control()}},
      {kLayersGetActiveLayer, "GetActiveLayer", TYPE_INDEX},
      {kLayersSetActiveLayer, "SetActiveLayer", TYPE_VOID, {index()}},
      {kLayersGetDisplayAllLayersKeysTracks, "GetDisplayAllLayersKeysTracks", TYPE_BOOL},
      {kLayersSetDisplayAllLayersKeysTracks, "SetDisplayAllLayersKeysTracks", TYPE_VOID, {state()}},
      {kLayersGetIgnoreAboveActive, "GetIgnoreAboveActive", TYPE_BOOL},
      {kLayersSetIgnoreAboveActive, "SetIgnoreAboveActive", TYPE_VOID, {state()}},
      {kLayersGetEulerBlending, "GetEulerBlending", TYPE_BOOL},
      {kLayersSetEulerBlending, "SetEulerBlending", TYPE_VOID, {state()}},
  };
  return f;
}

FPInterfaceDesc float_layers_fp{animation_layers::kInterfaceID, "interface", FP_MIXIN,
                                &float_layers_cd, LayerFunctions()};
FPInterfaceDesc position_layers_fp{animation_layers::kInterfaceID, "interface", FP_MIXIN,
                                   &position_layers_cd, LayerFunctions()};
FPInterfaceDesc rotation_layers_fp{animation_layers::kInterfaceID, "interface", FP_MIXIN,
                                   &rotation_layers_cd, LayerFunctions()};
FPInterfaceDesc scale_layers_fp{animation_layers::kInterfaceID, "interface", FP_MIXIN,
                                &scale_layers_cd, LayerFunctions()};

TimeValue Now() { return GetCOREInterface()->GetTime(); }

// One undo step of the given edit, named as every layer change.
template <typename F>
void Held(F&& edit) {
  theHold.Begin();
  edit();
  theHold.Accept(kLayersHoldName);
}

}  // namespace

ClassDesc2* GetFloatLayersDesc() { return &float_layers_cd; }
ClassDesc2* GetPositionLayersDesc() { return &position_layers_cd; }
ClassDesc2* GetRotationLayersDesc() { return &rotation_layers_cd; }
ClassDesc2* GetScaleLayersDesc() { return &scale_layers_cd; }

FPInterfaceDesc* IAnimationLayers::GetDesc() {
  auto* c = dynamic_cast<Animatable*>(this);
  switch (c ? c->SuperClassID() : 0) {
    case CTRL_POSITION_CLASS_ID:
      return &position_layers_fp;
    case CTRL_ROTATION_CLASS_ID:
      return &rotation_layers_fp;
    case CTRL_SCALE_CLASS_ID:
      return &scale_layers_fp;
    default:
      return &float_layers_fp;
  }
}

FPStatus IAnimationLayers::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  using I = IAnimationLayers;
  switch (fid) {
    case kLayersGetLayerCount:
      return FPBind(result, p, this, &I::GetLayerCount);
    case kLayersAddAdjustmentLayer:
      return FPBind(result, p, this, &I::AddAdjustmentLayer);
    case kLayersAddOverrideLayer:
      return FPBind(result, p, this, &I::AddOverrideLayer);
    case kLayersRemoveLayer:
      return FPBind(result, p, this, &I::RemoveLayer);
    case kLayersCollapseLayers:
      return FPBind(result, p, this, &I::CollapseLayers);
    case kLayersMoveLayerUp:
      return FPBind(result, p, this, &I::MoveLayerUp);
    case kLayersMoveLayerDown:
      return FPBind(result, p, this, &I::MoveLayerDown);
    case kLayersGetLayerControl:
      return FPBind(result, p, this, &I::GetLayerControl);
    case kLayersSetLayerControl:
      return FPBind(result, p, this, &I::SetLayerControl);
    case kLayersGetLayerName:
      return FPBind(result, p, this, &I::GetLayerName);
    case kLayersSetLayerName:
      return FPBind(result, p, this, &I::SetLayerName);
    case kLayersGetLayerType:
      return FPBind(result, p, this, &I::GetLayerType);
    case kLayersSetLayerType:
      return FPBind(result, p, this, &I::SetLayerType);
    case kLayersGetLayerIgnore:
      return FPBind(result, p, this, &I::GetLayerIgnore);
    case kLayersSetLayerIgnore:
      return FPBind(result, p, this, &I::SetLayerIgnore);
    case kLayersGetLayerGlobalWeight:
      return FPBind(result, p, this, &I::GetLayerGlobalWeight);
    case kLayersSetLayerGlobalWeight:
      return FPBind(result, p, this, &I::SetLayerGlobalWeight);
    case kLayersGetLayerGlobalWeightControl:
      return FPBind(result, p, this, &I::GetLayerGlobalWeightControl);
    case kLayersSetLayerGlobalWeightControl:
      return FPBind(result, p, this, &I::SetLayerGlobalWeightControl);
    case kLayersGetLayerLocalWeight:
      return FPBind(result, p, this, &I::GetLayerLocalWeight);
    case kLayersSetLayerLocalWeight:
      return FPBind(result, p, this, &I::SetLayerLocalWeight);
    case kLayersGetLayerLocalWeightControl:
      return FPBind(result, p, this, &I::GetLayerLocalWeightControl);
    case kLayersSetLayerLocalWeightControl:
      return FPBind(result, p, this, &I::SetLayerLocalWeightControl);
    case kLayersGetActiveLayer:
      return FPBind(result, p, this, &I::GetActiveLayer);
    case kLayersSetActiveLayer:
      return FPBind(result, p, this, &I::SetActiveLayer);
    case kLayersGetDisplayAllLayersKeysTracks:
      return FPBind(result, p, this, &I::GetDisplayAllLayersKeysTracks);
    case kLayersSetDisplayAllLayersKeysTracks:
      return FPBind(result, p, this, &I::SetDisplayAllLayersKeysTracks);
    case kLayersGetIgnoreAboveActive:
      return FPBind(result, p, this, &I::GetIgnoreAboveActive);
    case kLayersSetIgnoreAboveActive:
      return FPBind(result, p, this, &I::SetIgnoreAboveActive);
    case kLayersGetEulerBlending:
      return FPBind(result, p, this, &I::GetEulerBlending);
    case kLayersSetEulerBlending:
      return FPBind(result, p, this, &I::SetEulerBlending);
    default:
      return FPS_NO_SUCH_FUNCTION;
  }
}

// ---------------------------------------------------------------------------------------------
// The functions. The stack's own operations hold and name their steps; the ones that act on
// this track alone are wrapped here.

int AnimationLayersControl::GetLayerCount() { return layers_ ? layers_->GetLayerCount() : 0; }

void AnimationLayersControl::AddAdjustmentLayer(const std::string& name, int index) {
  if (layers_) layers_->AddLayer(kLayerAdjustment, name, index);
}

void AnimationLayersControl::AddOverrideLayer(const std::string& name, int index) {
  if (layers_) layers_->AddLayer(kLayerOverride, name, index);
}

void AnimationLayersControl::RemoveLayer(int index) {
  if (layers_) layers_->RemoveLayer(index);
}

void AnimationLayersControl::CollapseLayers() {
  if (layers_) layers_->CollapseLayers();
}

void AnimationLayersControl::MoveLayerUp(int index) {
  if (layers_) layers_->MoveLayerUp(index);
}

void AnimationLayersControl::MoveLayerDown(int index) {
  if (layers_) layers_->MoveLayerDown(index);
}

Control* AnimationLayersControl::GetLayerControl(int index) { return LayerController(index); }

void AnimationLayersControl::SetLayerControl(int index, Control* control) {
  if (!layers_ || !CanAssignController(index)) return;
  Held([&] { AssignController(control, index); });
}

std::string AnimationLayersControl::GetLayerName(int index) {
  return layers_ ? layers_->GetLayerName(index) : std::string();
}

void AnimationLayersControl::SetLayerName(int index, const std::string& name) {
  if (layers_) layers_->SetLayerName(index, name);
}

int AnimationLayersControl::GetLayerType(int index) {
  return layers_ ? layers_->GetLayerType(index) : kLayerOverride;
}

void AnimationLayersControl::SetLayerType(int index, int type) {
  if (layers_) layers_->SetLayerType(index, type);
}

bool AnimationLayersControl::GetLayerIgnore(int index) {
  return layers_ && layers_->GetLayerIgnore(index);
}

void AnimationLayersControl::SetLayerIgnore(int index, bool state) {
  if (layers_) layers_->SetLayerIgnore(index, state);
}

float AnimationLayersControl::GetLayerGlobalWeight(int index) {
  Interval scratch = FOREVER;
  return layers_ ? layers_->GetWeight(index, Now(), scratch) : 0.0f;
}

// The stack's and the weights' setters refuse bad indices, NaN and controllers of another kind,
// and make their own undo step.
void AnimationLayersControl::SetLayerGlobalWeight(int index, float weight) {
  if (layers_) layers_->SetWeight(index, weight, Now());
}

Control* AnimationLayersControl::GetLayerGlobalWeightControl(int index) {
  return layers_ ? layers_->GetWeightControl(index) : nullptr;
}

void AnimationLayersControl::SetLayerGlobalWeightControl(int index, Control* control) {
  if (layers_) layers_->SetWeightControl(index, control);
}

float AnimationLayersControl::GetLayerLocalWeight(int index) {
  Interval scratch = FOREVER;
  return layers_ && local_weights_ ? local_weights_->GetWeight(index, Now(), scratch) : 0.0f;
}

void AnimationLayersControl::SetLayerLocalWeight(int index, float weight) {
  if (layers_ && local_weights_) local_weights_->SetWeight(index, weight, Now());
}

Control* AnimationLayersControl::GetLayerLocalWeightControl(int index) {
  return layers_ && local_weights_ ? local_weights_->GetWeightControl(index) : nullptr;
}

void AnimationLayersControl::SetLayerLocalWeightControl(int index, Control* control) {
  if (layers_ && local_weights_) local_weights_->SetWeightControl(index, control);
}

int AnimationLayersControl::GetActiveLayer() { return layers_ ? layers_->GetActiveLayer() : 0; }

void AnimationLayersControl::SetActiveLayer(int index) {
  if (layers_) layers_->SetActiveLayer(index);
}

bool AnimationLayersControl::GetDisplayAllLayersKeysTracks() {
  return layers_ && layers_->GetDisplayAllLayersKeysTracks();
}

void AnimationLayersControl::SetDisplayAllLayersKeysTracks(bool state) {
  if (layers_) layers_->SetDisplayAllLayersKeysTracks(state);
}

bool AnimationLayersControl::GetIgnoreAboveActive() {
  return layers_ && layers_->GetIgnoreAboveActive();
}

void AnimationLayersControl::SetIgnoreAboveActive(bool state) {
  if (layers_) layers_->SetIgnoreAboveActive(state);
}

bool AnimationLayersControl::GetEulerBlending() { return layers_ && layers_->GetEulerBlending(); }

void AnimationLayersControl::SetEulerBlending(bool state) {
  if (layers_) layers_->SetEulerBlending(state);
}

}  // namespace marvolith
