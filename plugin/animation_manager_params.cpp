// Copyright Marvolith contributors.
#include "plugin/animation_manager_params.h"

#include "host/params/iparam_block2.h"
#include "host/scene/inode.h"
#include "host/scene/object.h"

namespace marvolith::animation_manager {
namespace {

// Derived objects nest (a stack over a stack); a damaged scene cannot make the walk endless.
constexpr int kMaxStackDepth = 256;

IParamBlock2* BlockOf(Modifier* mod) {
  if (IParamBlock2* pb = mod->GetParamBlockByID(kParamsBlock)) return pb;
  for (int i = 0, n = mod->NumParamBlocks(); i < n; ++i) {
    IParamBlock2* pb = mod->GetParamBlock(i);
    if (pb && pb->GetDesc() && pb->ID() == kParamsBlock) return pb;
  }
  return nullptr;
}

}  // namespace

IParamBlock2* FindManagerParams(INode* node) {
  if (!node) return nullptr;
  Object* obj = node->GetObjectRef();
  for (int depth = 0; obj && depth < kMaxStackDepth; ++depth) {
    if (obj->SuperClassID() != GEN_DERIVOB_CLASS_ID) return nullptr;
    auto* derived = dynamic_cast<IDerivedObject*>(obj);
    if (!derived) return nullptr;
    for (int i = 0, n = derived->NumModifiers(); i < n; ++i) {
      Modifier* mod = derived->GetModifier(i);
      if (mod && mod->SuperClassID() == OSM_CLASS_ID && mod->ClassID() == kClassID) {
        return BlockOf(mod);
      }
    }
    obj = derived->GetObjRef();
  }
  return nullptr;
}

INode* FindRigRoot(INode* node) {
  if (!node || node->IsRootNode()) return nullptr;
  for (;;) {
    IParamBlock2* pb = FindManagerParams(node);
    if (pb && pb->GetInt(kRoot) != 0) return node;
    INode* parent = node->GetParentNode();
    if (!parent || parent->IsRootNode()) return node;
    node = parent;
  }
}

}  // namespace marvolith::animation_manager
