// Copyright Marvolith contributors.
#include "layers/layer_sets.h"

#include <cwctype>
#include <map>
#include <set>
#include <string>

#include "host/controllers/control_interfaces.h"
#include "host/controllers/controller_classes.h"
#include "host/core/cust_attrib.h"
#include "host/params/iparam_block2.h"
#include "host/params/param_block_desc2.h"
#include "host/params/param_types.h"
#include "host/scene/core_interface.h"
#include "host/scene/object.h"
#include "layers/layer_control.h"
#include "plugin/animation_manager_params.h"
#include "plugin/class_table.h"

namespace marvolith {
namespace {

// References of the manager modifier (kept here by number: the modifier's class sits above us).
constexpr int kManagerLayersRef = 1;
constexpr int kManagerWeightsRef = 2;

// Derived objects nest; a damaged scene cannot make the walk endless.
constexpr int kMaxStackDepth = 256;
// Lists nest too; the same guard for a list that holds itself through a damaged file.
constexpr int kMaxListDepth = 64;

// Where a track sits: a sub-controller of a transform or list controller (a reference of
// `maker`), or an entry of an animatable float parameter.
struct TrackSlot {
  ReferenceMaker* maker = nullptr;  // the transform or list controller, or the block
  IParamBlock2* pblock = nullptr;   // set for a parameter
  ParamID id = 0;
  int tab_index = 0;
  SClass_ID super_class = 0;
  Control* control = nullptr;  // what sits there now (null for a parameter without one)
};

bool IsFloatLike(ParamType2 type) {
  const ParamType2 base = type & ~TYPE_TAB;
  return base == TYPE_FLOAT || base == TYPE_ANGLE || base == TYPE_PCNT_FRAC || base == TYPE_WORLD;
}

// The objects whose custom attributes hold layerable parameters: the modifiers of each derived
// object from the top down, then the base object.
std::vector<Animatable*> AttributeOwners(INode* node) {
  std::vector<Animatable*> owners;
  Object* obj = node->GetObjectRef();
  for (int depth = 0; obj && depth < kMaxStackDepth; ++depth) {
    if (obj->SuperClassID() != GEN_DERIVOB_CLASS_ID) break;
    auto* derived = dynamic_cast<IDerivedObject*>(obj);
    if (!derived) break;
    for (int i = 0, n = derived->NumModifiers(); i < n; ++i) {
      if (Modifier* mod = derived->GetModifier(i)) owners.push_back(mod);
    }
    obj = derived->GetObjRef();
  }
  if (obj) owners.push_back(obj);
  return owners;
}

ReferenceTarget* FindManagerMod(INode* node) {
  for (Animatable* owner : AttributeOwners(node)) {
    if (owner->SuperClassID() == OSM_CLASS_ID && owner->ClassID() == animation_manager::kClassID) {
      return dynamic_cast<ReferenceTarget*>(owner);
    }
  }
  return nullptr;
}

std::string ManagerGroup(ReferenceTarget* mod) {
  IParamBlock2* pb = mod ? mod->GetParamBlockByID(animation_manager::kParamsBlock) : nullptr;
  const char* group = pb ? pb->GetStr(animation_manager::kGroup) : nullptr;
  return group ? std::string(group) : std::string();
}

IListControl* ListOf(Control* c) {
  return c ? dynamic_cast<IListControl*>(c->GetInterface(LIST_CONTROLLER_INTERFACE)) : nullptr;
}

// A list stands for its active item (clamped to the list), through nested lists.
void EnterLists(TrackSlot& slot) {
  for (int depth = 0; depth < kMaxListDepth; ++depth) {
    IListControl* list = ListOf(slot.control);
    if (!list || list->GetListCount() <= 0) return;
    const int count = list->GetListCount();
    int active = list->GetActive();
    if (active < 0) active = 0;
    if (active >= count) active = count - 1;
    Control* item = list->GetSubCtrl(active);
    if (!item) return;
    slot.maker = slot.control;
    slot.pblock = nullptr;
    slot.super_class = slot.control->SuperClassID();
    slot.control = item;
  }
}

// Every layerable track of a node, custom attribute parameters first, then the position,
// rotation and scale of the transform controller; lists are entered at their active item.
std::vector<TrackSlot> NodeTracks(INode* node, bool attributes_first) {
  std::vector<TrackSlot> attribute_tracks, transform_tracks;
  for (Animatable* owner : AttributeOwners(node)) {
    ICustAttribContainer* cc = owner->GetCustAttribContainer();
    if (!cc) continue;
    for (int a = 0, na = cc->GetNumCustAttribs(); a < na; ++a) {
      CustAttrib* attrib = cc->GetCustAttrib(a);
      if (!attrib) continue;
      for (int b = 0, nb = attrib->NumParamBlocks(); b < nb; ++b) {
        IParamBlock2* pb = attrib->GetParamBlock(b);
        if (!pb || !pb->GetDesc()) continue;
        for (int p = 0, np = pb->NumParams(); p < np; ++p) {
          const ParamDef* def = pb->GetDesc()->GetParamDefByIndex(p);
          if (!def || !(def->flags & P_ANIMATABLE) || !IsFloatLike(def->type)) continue;
          const int entries = (def->type & TYPE_TAB) ? pb->Count(def->ID) : 1;
          for (int e = 0; e < entries; ++e) {
            TrackSlot slot;
            slot.maker = pb;
            slot.pblock = pb;
            slot.id = def->ID;
            slot.tab_index = e;
            slot.super_class = CTRL_FLOAT_CLASS_ID;
            slot.control = pb->GetController(def->ID, e);
            EnterLists(slot);
            attribute_tracks.push_back(slot);
          }
        }
      }
    }
  }
  if (Control* tm = node->GetTMController()) {
    Control* parts[3] = {tm->GetPositionController(), tm->GetRotationController(),
                         tm->GetScaleController()};
    const SClass_ID supers[3] = {CTRL_POSITION_CLASS_ID, CTRL_ROTATION_CLASS_ID,
                                 CTRL_SCALE_CLASS_ID};
    for (int i = 0; i < 3; ++i) {
      if (!parts[i]) continue;
      TrackSlot slot;
      slot.maker = tm;
      slot.super_class = supers[i];
      slot.control = parts[i];
      EnterLists(slot);
      transform_tracks.push_back(slot);
    }
  }
  std::vector<TrackSlot>& first = attributes_first ? attribute_tracks : transform_tracks;
  std::vector<TrackSlot>& second = attributes_first ? transform_tracks : attribute_tracks;
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// Puts c in the slot in place of what is there. A controller slot is re-pointed directly, not
// through the owner's assignment, which would make c copy the old track's value and wipe the
// keys of a base layer coming back.
bool SetTrack(TrackSlot& slot, Control* c) {
  if (slot.pblock) {
    // A parameter that had no controller keeps its value through the new one.
    const bool preserve = slot.control == nullptr;
    if (!slot.pblock->SetController(slot.id, slot.tab_index, c, preserve)) return false;
  } else {
    int ref = -1;
    for (int i = 0, n = slot.maker->NumRefs(); i < n; ++i) {
      if (slot.maker->GetReference(i) == slot.control) {
        ref = i;
        break;
      }
    }
    if (ref < 0 || slot.maker->ReplaceReference(ref, c) != REF_SUCCEED) return false;
    if (auto* target = dynamic_cast<ReferenceTarget*>(slot.maker)) {
      target->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
      target->NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
    }
  }
  slot.control = c;
  return true;
}

// The first layered track of a node gives its set and weights.
AnimationLayersControl* FirstLayered(const std::vector<TrackSlot>& tracks) {
  for (const TrackSlot& slot : tracks) {
    if (AnimationLayersControl* layered = AsLayeredControl(slot.control)) {
      if (layered->GetAnimationLayers()) return layered;
    }
  }
  return nullptr;
}

// Group names compare case-insensitively as wide characters (UTF-8 decoded).
std::wstring Folded(const std::string& text) {
  std::wstring out;
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    int extra = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    char32_t code = extra == 0   ? lead
                    : extra == 1 ? (lead & 0x1F)
                    : extra == 2 ? (lead & 0x0F)
                                 : (lead & 0x07);
    ++i;
    for (; extra > 0 && i < text.size(); --extra, ++i) {
      code = (code << 6) | (static_cast<unsigned char>(text[i]) & 0x3F);
    }
    out.push_back(static_cast<wchar_t>(std::towlower(static_cast<wint_t>(code))));
  }
  return out;
}

struct CaseInsensitiveLess {
  bool operator()(const std::string& a, const std::string& b) const {
    return Folded(a) < Folded(b);
  }
};

// Counts sets as GetAnimLayers does: one more each time the set differs from the last one seen.
struct SetTally {
  AnimationLayers* last = nullptr;
  int distinct = 0;
  bool have_weights = false;
  bool weights_differ = false;
  AnimLayersLocalWeights* weights = nullptr;
  std::set<Animatable*> counted;  // the tracks of the first pass
  std::set<Animatable*> met;      // what the visit has entered

  void Count(AnimationLayersControl* layered) {
    AnimationLayers* layers = layered->GetAnimationLayers();
    if (!layers) return;
    if (layers != last) {
      ++distinct;
      last = layers;
    }
    if (!have_weights) {
      have_weights = true;
      weights = layered->GetLocalWeights();
    } else if (layered->GetLocalWeights() != weights) {
      weights_differ = true;
    }
  }

  // Depth first through every sub-anim; nodes are not entered, and each animatable once.
  void Visit(Animatable* anim) {
    if (!anim || anim->SuperClassID() == BASENODE_CLASS_ID || !met.insert(anim).second) return;
    if (AnimationLayersControl* layered = AsLayeredControl(anim)) {
      if (!counted.count(anim)) Count(layered);
    }
    for (int i = 0, n = anim->NumSubs(); i < n; ++i) Visit(anim->SubAnim(i));
  }
};

}  // namespace

FoundLayers GetAnimLayers(const std::vector<INode*>& nodes) {
  SetTally tally;
  for (INode* node : nodes) {
    if (!node) continue;
    std::vector<TrackSlot> tracks = NodeTracks(node, false);
    for (const TrackSlot& slot : tracks) tally.counted.insert(slot.control);
    if (AnimationLayersControl* layered = FirstLayered(tracks)) tally.Count(layered);
  }
  for (INode* node : nodes) {
    if (!node) continue;
    // The tracks counted above are not counted again; what they hold is still visited.
    tally.Visit(node->GetTMController());
    for (Animatable* owner : AttributeOwners(node)) {
      if (ICustAttribContainer* cc = owner->GetCustAttribContainer()) tally.Visit(cc);
    }
  }
  FoundLayers found;
  found.layers = tally.last;
  found.multiple = tally.distinct > 1;
  found.local_weights = tally.weights_differ ? nullptr : tally.weights;
  return found;
}

void EnableLayers(const std::vector<INode*>& nodes, bool keep_existing_sets) {
  if (nodes.empty()) return;
  theHold.Begin();
  theHold.Put(new AnimationLayersUIRestore(true, true));

  const FoundLayers found = GetAnimLayers(nodes);
  AnimationLayers* shared = found.layers;
  if (keep_existing_sets && found.multiple) shared = nullptr;
  // Objects made here are new: only their placing into the scene's slots is recorded, so that
  // redo puts back the very objects that undo took out, whole.
  AnimationLayers* made = nullptr;
  auto new_set = [&made] {
    HoldSuspend new_object;
    made = new AnimationLayers();
    return made;
  };
  if (!shared && !(keep_existing_sets && found.multiple)) shared = new_set();

  std::map<std::string, AnimLayersLocalWeights*, CaseInsensitiveLess> groups;
  auto new_weights = [](AnimationLayers* set) {
    HoldSuspend new_object;
    auto* weights = new AnimLayersLocalWeights();
    weights->ReplaceReference(AnimLayersLocalWeights::kLayersRef, set);
    weights->SyncWeights();
    return weights;
  };

  for (INode* node : nodes) {
    if (!node) continue;
    ReferenceTarget* mod = FindManagerMod(node);
    // The node's own set is that of its first layered transform track, else attribute track.
    AnimationLayersControl* first = FirstLayered(NodeTracks(node, false));
    std::vector<TrackSlot> tracks = NodeTracks(node, true);
    AnimationLayers* node_set = first ? first->GetAnimationLayers() : nullptr;
    AnimLayersLocalWeights* node_weights = first ? first->GetLocalWeights() : nullptr;

    AnimationLayers* set = nullptr;
    if (keep_existing_sets && node_set) {
      set = node_set;
    } else {
      if (!shared) shared = new_set();
      set = shared;
    }
    if (mod) mod->ReplaceReference(kManagerLayersRef, set);

    const bool own_weights_fit = node_weights && node_weights->GetAnimationLayers() == set;
    AnimLayersLocalWeights* weights = nullptr;
    const std::string group = ManagerGroup(mod);
    if (!group.empty()) {
      auto it = groups.find(group);
      if (it != groups.end() && it->second->GetAnimationLayers() == set) {
        weights = it->second;
      } else if (own_weights_fit) {
        weights = node_weights;
        if (it == groups.end()) groups.emplace(group, weights);
      } else {
        weights = new_weights(set);
        groups[group] = weights;
      }
    } else {
      weights = own_weights_fit ? node_weights : new_weights(set);
    }
    if (mod) mod->ReplaceReference(kManagerWeightsRef, weights);

    for (TrackSlot& slot : tracks) {
      if (AnimationLayersControl* layered = AsLayeredControl(slot.control)) {
        AnimationLayers* on = layered->GetAnimationLayers();
        if (keep_existing_sets) {
          AnimLayersLocalWeights* held = layered->GetLocalWeights();
          if (on == set && (!held || held->GetAnimationLayers() != set)) {
            layered->ReplaceReference(layered->NumRefs() - 1, weights);
          }
          continue;
        }
        if (on == set) continue;
      }
      // A parameter without a controller gets a layered float with a fresh base layer.
      AnimationLayersControl* wrapped = nullptr;
      {
        HoldSuspend new_object;
        wrapped = WrapInLayers(slot.super_class, slot.control, set, weights);
      }
      if (!wrapped) continue;
      if (!SetTrack(slot, wrapped)) wrapped->DeleteMe();
    }
  }

  // A stack made for nodes that turned out to have no track is nobody's.
  if (made) {
    HoldSuspend new_object;
    made->MaybeAutoDelete();
  }
  UpdateLayersUI(true);
  theHold.Put(new AnimationLayersUIRestore(false, true));
  theHold.Accept(kLayersHoldName);
}

void DisableLayers(const std::vector<INode*>& nodes) {
  if (nodes.empty()) return;
  theHold.Begin();
  theHold.Put(new AnimationLayersUIRestore(true, true));
  const Class_ID float_layers = GetClassInfo(ClassIndex::FloatLayers).class_id;
  for (INode* node : nodes) {
    if (!node) continue;
    if (ReferenceTarget* mod = FindManagerMod(node)) {
      mod->ReplaceReference(kManagerLayersRef, nullptr);
      mod->ReplaceReference(kManagerWeightsRef, nullptr);
    }
    for (TrackSlot& slot : NodeTracks(node, true)) {
      AnimationLayersControl* layered = AsLayeredControl(slot.control);
      if (!layered) continue;
      if (slot.pblock && layered->ClassID() != float_layers) continue;
      Control* base = layered->LayerController(0);
      if (!base) {
        base = slot.pblock ? NewDefaultFloatController() : layered->NewLayerController(0);
      }
      if (!base) continue;
      SetTrack(slot, base);
    }
    if (Control* tm = node->GetTMController()) {
      tm->NotifyDependents(FOREVER, PART_TM, REFMSG_CHANGE);
      tm->NotifyDependents(FOREVER, PART_TM, REFMSG_SUBANIM_STRUCTURE_CHANGED);
    }
  }
  UpdateLayersUI(true);
  theHold.Put(new AnimationLayersUIRestore(false, true));
  theHold.Accept(kLayersHoldName);
  GetCOREInterface()->RedrawViews(GetCOREInterface()->GetTime());
}

}  // namespace marvolith
