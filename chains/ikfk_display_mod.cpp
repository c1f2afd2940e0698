// Copyright Marvolith contributors.
#include "chains/ikfk_display_mod.h"

#include <algorithm>
#include <cmath>

#include "host/math/box3.h"
#include "host/registry/class_desc.h"
#include "host/scene/inode.h"
#include "plugin/class_table.h"
#include "support/chunk_helpers.h"

namespace marvolith {
namespace {

class IKFKDisplayModClassDesc : public MarvolithClassDesc {
 public:
  IKFKDisplayModClassDesc() : MarvolithClassDesc(ClassIndex::IKFKDisplayMod) {}
  Animatable* Create(bool loading) override { return new IKFKDisplayMod(loading); }
};

IKFKDisplayModClassDesc display_cd;
ParamBlockDesc2 display_pb{0, "params", 0, &display_cd, P_AUTO_CONSTRUCT, 0, {}};

// The blocks of the chain classes, read by id so that this file needs neither class.
constexpr BlockID kChainBlock = 0;
constexpr ParamID kControlChainNode = 0;
constexpr ParamID kControlType = 1;
constexpr ParamID kChainBlend = 6;
constexpr ParamID kChainAffectHelpersDisplay = 24;

// The controller's block when it is of class `index`.
IParamBlock2* BlockOfClass(Control* c, ClassIndex index) {
  if (!c || !(c->ClassID() == GetClassInfo(index).class_id)) return nullptr;
  return c->GetParamBlockByID(kChainBlock);
}

}  // namespace

ClassDesc2* GetIKFKDisplayModDesc() { return &display_cd; }

float IKFKDisplayFactor(const IKFKDisplayInput& in) {
  if (!in.is_ikfk_control) return 0.5f;
  if (!in.chain_affects_display || std::isnan(in.blend)) return 1.0f;
  const float b = std::clamp(in.blend, 0.0f, 1.0f);
  return in.type > 0 ? b : 1.0f - b;
}

IKFKDisplayInput ReadIKFKDisplayInput(INode* node, TimeValue t, Interval& valid) {
  IKFKDisplayInput in;
  IParamBlock2* control =
      BlockOfClass(node ? node->GetTMController() : nullptr, ClassIndex::IKFKControl);
  if (!control) return in;
  in.is_ikfk_control = true;
  in.type = control->GetInt(kControlType);
  INode* chain_node = control->GetINode(kControlChainNode);
  IParamBlock2* chain =
      BlockOfClass(chain_node ? chain_node->GetTMController() : nullptr, ClassIndex::IKFKChain);
  if (!chain) return in;
  in.chain_affects_display = chain->GetInt(kChainAffectHelpersDisplay) != 0;
  if (in.chain_affects_display) chain->GetValue(kChainBlend, t, in.blend, valid);
  return in;
}

IKFKDisplayMod::IKFKDisplayMod(bool loading) {
  if (!loading) display_cd.MakeAutoParamBlocks(this);
}

Class_ID IKFKDisplayMod::ClassID() { return GetClassInfo(ClassIndex::IKFKDisplayMod).class_id; }

void IKFKDisplayMod::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(ClassIndex::IKFKDisplayMod);
}

MSTR IKFKDisplayMod::SubAnimName(int i, bool) { return i == 0 ? MSTR("Parameters") : MSTR(); }

IParamBlock2* IKFKDisplayMod::GetParamBlockByID(BlockID id) {
  return pblock_ && pblock_->ID() == id ? pblock_ : nullptr;
}

void IKFKDisplayMod::SetReference(int i, RefTargetHandle target) {
  if (i != 0) return;
  pblock_ = target && target->SuperClassID() == PARAMETER_BLOCK2_CLASS_ID
                ? static_cast<IParamBlock2*>(target)
                : nullptr;
}

void IKFKDisplayMod::ModifyObject(TimeValue t, ModContext&, ObjectState* os, INode* node) {
  if (!os || !os->obj) return;
  Interval valid = FOREVER;
  const float f = IKFKDisplayFactor(ReadIKFKDisplayInput(node, t, valid));
  os->NarrowObValid(valid);
  // A stack hands an object that cannot be copied to its modifiers as it is; only deformable
  // objects are changed.
  Object* obj = os->obj;
  const int count = obj->IsDeformable() ? obj->NumPoints() : 0;
  if (count == 0) return;
  Box3 box;
  for (int i = 0; i < count; ++i) box += obj->GetPoint(i);
  const Point3 c = box.Center();  // the mean of the corners
  for (int i = 0; i < count; ++i) obj->SetPoint(i, (obj->GetPoint(i) - c) * f + c);
  obj->PointsWereChanged();
}

RefTargetHandle IKFKDisplayMod::Clone(RemapDir& remap) {
  auto* c = new IKFKDisplayMod(true);
  c->ReplaceReference(0, remap.CloneRef(pblock_));
  BaseClone(this, c, remap);
  return c;
}

// Everything lives in the block (a reference): there is nothing of its own to write.
IOResult IKFKDisplayMod::Save(ISave*) { return IO_OK; }

IOResult IKFKDisplayMod::Load(ILoad* iload) {
  return ForEachChunk(iload, [](USHORT) { return IO_OK; });  // none known: all are skipped
}

}  // namespace marvolith
