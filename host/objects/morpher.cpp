// Copyright Marvolith contributors.
#include "host/objects/morpher.h"

#include <algorithm>
#include <string>

#include "host/controllers/controller_classes.h"
#include "host/registry/class_desc.h"
#include "host/scene/inode.h"

namespace {

class MorpherClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return true; }
  Animatable* Create(bool loading) override { return new Morpher(loading); }
  const char* ClassName() override { return "Morpher"; }
  const char* InternalName() override { return "Morpher"; }
  SClass_ID SuperClassID() override { return OSM_CLASS_ID; }
  Class_ID ClassID() override { return MORPHER_CLASS_ID; }
  const char* Category() override { return "Animation Modifiers"; }
};

MorpherClassDesc morpher_cd;

ParamBlockDesc2 morpher_pb(
    kMorpherParams,
    "morpher_params",
    0,
    &morpher_cd,
    P_AUTO_CONSTRUCT,
    0,
    {
        ParamDef(morpher_channel_names, "channel_names", TYPE_STRING_TAB, P_VARIABLE_SIZE)
            .Label("Channel Name"),
        ParamDef(morpher_channel_weights,
                 "channel_weights",
                 TYPE_FLOAT_TAB,
                 P_ANIMATABLE | P_VARIABLE_SIZE)
            .Default(0.0f)
            .Label("Channel Weight"),
        ParamDef(morpher_channel_active, "channel_active", TYPE_BOOL_TAB, P_VARIABLE_SIZE)
            .Default(true)
            .Label("Channel Active"),
        ParamDef(morpher_channel_targets, "channel_targets", TYPE_INODE_TAB, P_VARIABLE_SIZE)
            .Label("Channel Target"),
    });

constexpr ParamID kChannelTables[] = {morpher_channel_names, morpher_channel_weights,
                                      morpher_channel_active, morpher_channel_targets};

}  // namespace

ClassDesc2* GetMorpherDesc() { return &morpher_cd; }

Morpher::Morpher(bool loading) {
  if (!loading) morpher_cd.MakeAutoParamBlocks(this);
}

IParamBlock2* Morpher::GetParamBlockByID(BlockID id) {
  return pblock_ && pblock_->ID() == id ? pblock_ : nullptr;
}

void Morpher::SetReference(int i, RefTargetHandle target) {
  if (i == 0) pblock_ = static_cast<IParamBlock2*>(target);
}

int Morpher::NumChannels() {
  if (!pblock_) return 0;
  // The tables change together; a damaged file could leave them uneven, and then only the
  // channels every table has are channels.
  int n = pblock_->Count(kChannelTables[0]);
  for (ParamID id : kChannelTables) n = std::min(n, pblock_->Count(id));
  return n;
}

bool Morpher::Valid(int i) { return i >= 0 && i < NumChannels(); }

MSTR Morpher::SubAnimName(int i, bool localized) {
  if (!Valid(i)) return MSTR();
  return "[" + std::to_string(i + 1) + "] " + GetChannelName(i);
}

bool Morpher::CanAssignController(int sub_anim) { return Valid(sub_anim); }

bool Morpher::AssignController(Animatable* control, int sub_anim) {
  if (!Valid(sub_anim)) return false;
  return pblock_->AssignController(control, pblock_->GetAnimNum(morpher_channel_weights, sub_anim));
}

int Morpher::AddChannel(const MSTR& name, INode* target) {
  if (!pblock_) return -1;
  const int index = NumChannels();
  // The target goes first: it is the only entry that can be refused, and nothing else has
  // changed when it is.
  if (pblock_->Append(morpher_channel_targets, 1, &target) < 0) return -1;
  const char* text = name.c_str();
  const float weight = 0.0f;
  const bool active = true;
  pblock_->Append(morpher_channel_names, 1, &text);
  pblock_->Append(morpher_channel_weights, 1, &weight);
  pblock_->Append(morpher_channel_active, 1, &active);
  pblock_->SetController(morpher_channel_weights, index, NewDefaultFloatController());
  return index;
}

bool Morpher::DeleteChannel(int i) {
  if (!Valid(i)) return false;
  for (ParamID id : kChannelTables) pblock_->Delete(id, i, 1);
  return true;
}

MSTR Morpher::GetChannelName(int i) {
  return Valid(i) ? MSTR(pblock_->GetStr(morpher_channel_names, 0, i)) : MSTR();
}

bool Morpher::SetChannelName(int i, const MSTR& name) {
  return Valid(i) && pblock_->SetValue(morpher_channel_names, 0, name, i);
}

bool Morpher::IsChannelActive(int i) {
  return Valid(i) && pblock_->GetInt(morpher_channel_active, 0, i) != 0;
}

bool Morpher::SetChannelActive(int i, bool active) {
  return Valid(i) && pblock_->SetValue(morpher_channel_active, 0, active, i);
}

float Morpher::GetChannelWeight(int i, TimeValue t, Interval* valid) {
  if (!Valid(i)) return 0.0f;
  float w = 0.0f;
  Interval iv = FOREVER;
  pblock_->GetValue(morpher_channel_weights, t, w, iv, i);
  if (valid) *valid &= iv;
  return w;
}

bool Morpher::SetChannelWeight(int i, TimeValue t, float weight) {
  return Valid(i) && pblock_->SetValue(morpher_channel_weights, t, weight, i);
}

Control* Morpher::GetChannelWeightController(int i) {
  return Valid(i) ? pblock_->GetController(morpher_channel_weights, i) : nullptr;
}

bool Morpher::SetChannelWeightController(int i, Control* c) {
  return Valid(i) && pblock_->SetController(morpher_channel_weights, i, c);
}

INode* Morpher::GetChannelTarget(int i) {
  return Valid(i) ? pblock_->GetINode(morpher_channel_targets, 0, i) : nullptr;
}

bool Morpher::SetChannelTarget(int i, INode* target) {
  return Valid(i) && pblock_->SetValue(morpher_channel_targets, 0, target, i);
}

Interval Morpher::LocalValidity(TimeValue t) {
  Interval valid = FOREVER;
  for (int i = 0, n = NumChannels(); i < n; ++i) {
    if (IsChannelActive(i)) GetChannelWeight(i, t, &valid);
  }
  return valid;
}

void Morpher::ModifyObject(TimeValue t, ModContext& mc, ObjectState* os, INode* node) {
  if (os) os->NarrowObValid(LocalValidity(t));
}

RefTargetHandle Morpher::Clone(RemapDir& remap) {
  auto* clone = new Morpher(true);
  clone->ReplaceReference(0, remap.CloneRef(pblock_));
  BaseClone(this, clone, remap);
  return clone;
}

// ---------------------------------------------------------------------------------------------
// The morph library's view.

MaxMorphChannel::MaxMorphChannel(Morpher* morpher, int index)
    : morpher_(Animatable::GetHandleByAnim(morpher)), index_(index) {}

Morpher* MaxMorphChannel::Get() const {
  return dynamic_cast<Morpher*>(Animatable::GetAnimByHandle(morpher_));
}

bool MaxMorphChannel::IsValid() const {
  Morpher* m = Get();
  return m && index_ >= 0 && index_ < m->NumChannels();
}

MSTR MaxMorphChannel::GetName() const {
  Morpher* m = Get();
  return m ? m->GetChannelName(index_) : MSTR();
}

bool MaxMorphChannel::SetName(const MSTR& name) {
  Morpher* m = Get();
  return m && m->SetChannelName(index_, name);
}

bool MaxMorphChannel::IsActive() const {
  Morpher* m = Get();
  return m && m->IsChannelActive(index_);
}

bool MaxMorphChannel::SetActive(bool active) {
  Morpher* m = Get();
  return m && m->SetChannelActive(index_, active);
}

float MaxMorphChannel::GetMorphWeight(TimeValue t) const {
  Morpher* m = Get();
  return m ? m->GetChannelWeight(index_, t) : 0.0f;
}

bool MaxMorphChannel::SetMorphWeight(TimeValue t, float weight) {
  Morpher* m = Get();
  return m && m->SetChannelWeight(index_, t, weight);
}

Control* MaxMorphChannel::GetMorphWeightController() const {
  Morpher* m = Get();
  return m ? m->GetChannelWeightController(index_) : nullptr;
}

bool MaxMorphChannel::SetMorphWeightController(Control* c) {
  Morpher* m = Get();
  return m && m->SetChannelWeightController(index_, c);
}

INode* MaxMorphChannel::GetMorphTarget() const {
  Morpher* m = Get();
  return m ? m->GetChannelTarget(index_) : nullptr;
}

bool MaxMorphChannel::SetMorphTarget(INode* target) {
  Morpher* m = Get();
  return m && m->SetChannelTarget(index_, target);
}

MaxMorphModifier::MaxMorphModifier(Modifier* mod)
    : morpher_(Animatable::GetHandleByAnim(dynamic_cast<Morpher*>(mod))) {}

Morpher* MaxMorphModifier::GetModifier() const {
  return dynamic_cast<Morpher*>(Animatable::GetAnimByHandle(morpher_));
}

bool MaxMorphModifier::IsValidMorpher() const { return GetModifier() != nullptr; }

int MaxMorphModifier::NumMorphChannels() const {
  Morpher* m = GetModifier();
  return m ? m->NumChannels() : 0;
}

MaxMorphChannel MaxMorphModifier::GetMorphChannel(int index) const {
  return MaxMorphChannel(GetModifier(), index);
}

MaxMorphChannel MaxMorphModifier::AddMorphChannel(const MSTR& name, INode* target) {
  Morpher* m = GetModifier();
  return MaxMorphChannel(m, m ? m->AddChannel(name, target) : -1);
}
