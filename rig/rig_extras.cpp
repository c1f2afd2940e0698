// Copyright Marvolith contributors.
// The extras of RigSystem (user chains), their undo records and the .rig template files.
#include <algorithm>
#include <cctype>
#include <map>
#include <set>

#include "host/base/exceptions.h"
#include "host/core/diagnostics.h"
#include "rig/internal/rig_system_parts.h"
#include "rig/rig_file.h"
#include "support/hold_record.h"

namespace marvolith {

namespace rig_internal {
namespace {

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

bool SameText(std::string_view a, std::string_view b) { return Lower(a) == Lower(b); }

/// The side a parent name tells: "r_" right, "l_" left (either case), center otherwise.
int SideOfName(std::string_view name) {
  if (name.size() < 2) return kSideCenter;
  const std::string prefix = Lower(name.substr(0, 2));
  if (prefix == "r_") return kSideRight;
  if (prefix == "l_") return kSideLeft;
  return kSideCenter;
}

std::string WithoutSidePrefix(const std::string& name) {
  return SideOfName(name) == kSideCenter ? name : name.substr(2);
}

}  // namespace

ExtraListRestore::ExtraListRestore(RigSystem* rig, const char* name)
    : handle_(Animatable::GetHandleByAnim(rig)), before_(rig->Extras()), name_(name) {}

RigSystem* ExtraListRestore::Get() const {
  return dynamic_cast<RigSystem*>(Animatable::GetAnimByHandle(handle_));
}

void ExtraListRestore::Restore(int is_undo) {
  RigSystem* rig = Get();
  if (!rig) return;
  if (is_undo) after_ = rig->Extras();
  rig->RestoreExtras(before_);
}

void ExtraListRestore::Redo() {
  if (RigSystem* rig = Get()) rig->RestoreExtras(after_);
}

int ExtraListRestore::Size() {
  return static_cast<int>((before_.size() + after_.size()) * sizeof(RigExtra)) + 16;
}

PointsRestore::PointsRestore(RigSystem* rig)
    : handle_(Animatable::GetHandleByAnim(rig)), before_(rig->Template().Points()) {}

RigSystem* PointsRestore::Get() const {
  return dynamic_cast<RigSystem*>(Animatable::GetAnimByHandle(handle_));
}

void PointsRestore::Restore(int is_undo) {
  RigSystem* rig = Get();
  if (!rig) return;
  if (is_undo) after_ = rig->Template().Points();
  rig->RestorePoints(before_);
}

void PointsRestore::Redo() {
  if (RigSystem* rig = Get()) rig->RestorePoints(after_);
}

void PointsRestore::EndHold() {
  if (RigSystem* rig = Get()) rig->ClearAFlag(A_HELD);
}

int PointsRestore::Size() {
  return static_cast<int>((before_.size() + after_.size()) * sizeof(RigPoint)) + 16;
}

void HoldPoints(RigSystem* rig) {
  if (HoldWantsRecord(rig)) theHold.Put(new PointsRestore(rig));
}

// Where the index suffix "(_<digits>)+" at the end of name begins; name.size() without one.
size_t IndexSuffixStart(std::string_view name) {
  size_t end = name.size();
  while (true) {
    size_t digits = end;
    while (digits > 0 && std::isdigit(static_cast<unsigned char>(name[digits - 1]))) --digits;
    if (digits == end || digits == 0 || name[digits - 1] != '_') return end;
    end = digits - 1;
  }
}

bool IsPointOfExtra(const std::string& point_name, const std::string& extra_name) {
  const std::string bare = WithoutSidePrefix(point_name);
  const size_t suffix = IndexSuffixStart(bare);
  return suffix < bare.size() && bare.compare(0, suffix, extra_name) == 0 &&
         suffix == extra_name.size();
}

std::vector<RigExtra> SortExtras(const std::vector<RigExtra>& extras) {
  const int n = static_cast<int>(extras.size());
  // The parent extra of each: the extra whose chain holds its parent point; -1 for a root.
  std::vector<int> parent(static_cast<size_t>(n), -1);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n && parent[static_cast<size_t>(i)] < 0; ++j)
      if (i != j && IsPointOfExtra(extras[static_cast<size_t>(i)].parent,
                                   extras[static_cast<size_t>(j)].name))
        parent[static_cast<size_t>(i)] = j;
  // Siblings by name.
  std::vector<int> order(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) order[static_cast<size_t>(i)] = i;
  std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
    return extras[static_cast<size_t>(a)].name < extras[static_cast<size_t>(b)].name;
  });
  std::vector<RigExtra> sorted;
  std::vector<bool> placed(static_cast<size_t>(n), false);
  auto walk = [&](auto&& self, int i) -> void {
    placed[static_cast<size_t>(i)] = true;
    sorted.push_back(extras[static_cast<size_t>(i)]);
    for (int c : order)
      if (!placed[static_cast<size_t>(c)] && parent[static_cast<size_t>(c)] == i) self(self, c);
  };
  for (int i : order)
    if (parent[static_cast<size_t>(i)] < 0) walk(walk, i);
  // Extras in a cycle of parents have no root: they follow in name order.
  for (int i : order)
    if (!placed[static_cast<size_t>(i)]) walk(walk, i);
  return sorted;
}

}  // namespace rig_internal

using namespace rig_internal;

namespace {

// The role vocabulary of the builder: names an extra may not take.
const std::set<std::string> kReservedRigNames = {"main",
                                                 "pelvis",
                                                 "torso",
                                                 "spine",
                                                 "neck",
                                                 "head",
                                                 "head_end",
                                                 "clavicle",
                                                 "upper_arm",
                                                 "fore_arm",
                                                 "hand",
                                                 "metacarpal",
                                                 "finger",
                                                 "thigh",
                                                 "calf",
                                                 "foot",
                                                 "metatarsal",
                                                 "toe",
                                                 "foot_heel",
                                                 "foot_outer",
                                                 "foot_inner",
                                                 "foot_tip",
                                                 "hand_heel",
                                                 "hand_outer",
                                                 "hand_inner",
                                                 "hand_tip",
                                                 "tail",
                                                 "ponytail",
                                                 "cannon",
                                                 "front_cannon",
                                                 "leg_clavicle",
                                                 "front_thigh",
                                                 "front_calf",
                                                 "fang",
                                                 "coxa",
                                                 "femur",
                                                 "tibia",
                                                 "metatarsus",
                                                 "tarsus",
                                                 "leg_tip",
                                                 "fk_spine",
                                                 "ik_spine",
                                                 "ik_foot",
                                                 "ik_front_foot",
                                                 "ik_hand",
                                                 "ik_hip",
                                                 "ik_chest",
                                                 "ik_elbow",
                                                 "ik_knee",
                                                 "ik_front_knee",
                                                 "ikfk_arm",
                                                 "ikfk_leg",
                                                 "ikfk_front_leg",
                                                 "jaw",
                                                 "tongue",
                                                 "eyebrow",
                                                 "eyelid_top",
                                                 "eyelid_bottom",
                                                 "nose",
                                                 "lip_top",
                                                 "lip_bottom",
                                                 "nasolabial",
                                                 "nasolabial_corner",
                                                 "chin",
                                                 "cheek",
                                                 "cheek_bone",
                                                 "lip_top_main",
                                                 "lip_bottom_main",
                                                 "lip_corner_main",
                                                 "mouth",
                                                 "nose_main",
                                                 "eye_main",
                                                 "face",
                                                 "eyes",
                                                 "eye_target",
                                                 "UIPanel",
                                                 "PoseKit",
                                                 "Face_UIPanel",
                                                 "Face_PoseKit"};

constexpr const char* kRigSystemChange = "Rig System Change";
constexpr const char* kLoadRigTemplate = "Load Rig Template";

}  // namespace

bool IsReservedRigName(const std::string& name) {
  // Only the candidate is lowered: the mixed-case words of the list never match.
  return kReservedRigNames.count(Lower(name.substr(0, IndexSuffixStart(name)))) > 0;
}

// ---------------------------------------------------------------------------------------------
// Extras.

const RigExtra& RigSystem::ExtraAt(int index) const {
  if (index < 0 || index >= static_cast<int>(extras_.size()))
    throw MaxSDK::Util::TabOutOfRangeException();
  return extras_[static_cast<size_t>(index)];
}

bool RigSystem::ExtraNameTaken(const std::string& name, int except) const {
  for (int i = 0; i < static_cast<int>(extras_.size()); ++i)
    if (i != except && SameText(extras_[static_cast<size_t>(i)].name, name)) return true;
  return false;
}

std::string RigSystem::DefaultExtraName() const {
  for (int n = 1;; ++n) {
    std::string name = "extra_" + std::to_string(n);
    if (!ExtraNameTaken(name, -1)) return name;
  }
}

int RigSystem::InsertExtraSorted(const RigExtra& extra) {
  extras_.push_back(extra);
  extras_ = SortExtras(extras_);
  for (int i = 0; i < GetNumExtras(); ++i)
    if (extras_[static_cast<size_t>(i)].name == extra.name) return i;
  return GetNumExtras() - 1;
}

void RigSystem::RestoreExtras(const std::vector<RigExtra>& extras) {
  extras_ = extras;
  RegenerateTemplate();
  TemplateChanged();
}

bool RigSystem::AddExtra(const std::string& name,
                         const std::string& parent,
                         int side,
                         int num_controls,
                         int num_bones,
                         bool use_bones) {
  if (side < kSideNone || side > kSideCenter) return false;
  theHold.Begin();
  HoldExtras<AddExtraRestore>(this);
  HoldPoints(this);
  for (RigPoint& p : template_.Points()) p.selected = 0;

  RigExtra extra;
  extra.name = !name.empty() && !ExtraNameTaken(name, -1) && !IsReservedRigName(name)
                   ? name
                   : DefaultExtraName();
  extra.parent = !parent.empty()             ? parent
                 : template_.NumPoints() > 0 ? template_.Points().front().name
                                             : std::string();
  const int parent_side = SideOfName(extra.parent);
  if (side == kSideNone) {
    side = parent_side;
  } else if ((side == kSideRight || side == kSideLeft) && parent_side != kSideCenter &&
             parent_side != side) {
    // A parent on the other side is taken on this one.
    extra.parent = (side == kSideRight ? "r_" : "l_") + extra.parent.substr(2);
  }
  extra.side = side;
  extra.num_controls = std::max(num_controls, 1) - 1;
  extra.num_bones = std::max(num_bones, 1);
  extra.flags = use_bones ? kExtraUseBones : 0u;

  const int index = InsertExtraSorted(extra);
  RegenerateTemplate();
  if (pblock_) {
    const bool was = g_suppress_selected_component;
    g_suppress_selected_component = true;
    pblock_->SetValue(kRigSelectedComponent, 0, kComponentExtraBase + index);
    g_suppress_selected_component = was;
  }
  TemplateChanged();
  theHold.Accept(kRigSystemChange);
  return true;
}

bool RigSystem::RemoveExtra(int index) {
  ExtraAt(index);
  HoldExtras<RemoveExtraRestore>(this);
  extras_.erase(extras_.begin() + index);
  RegenerateTemplate();
  TemplateChanged();
  return true;
}

template <typename F>
void RigSystem::EditExtra(int index, F&& edit) {
  ExtraAt(index);
  HoldExtras<ExtraRestore>(this);
  edit(extras_[static_cast<size_t>(index)]);
  std::vector<RigExtra> sorted = SortExtras(extras_);
  if (sorted != extras_) {
    HoldExtras<SortExtraRestore>(this);
    extras_ = std::move(sorted);
  }
  RegenerateTemplate();
  TemplateChanged();
}

std::string RigSystem::GetExtraName(int index) { return ExtraAt(index).name; }

void RigSystem::SetExtraName(int index, const std::string& name) {
  ExtraAt(index);
  const std::string old = extras_[static_cast<size_t>(index)].name;
  const std::string wanted =
      !name.empty() && !ExtraNameTaken(name, index) && !IsReservedRigName(name)
          ? name
          : DefaultExtraName();
  if (wanted == old) return;
  HoldExtras<ExtraRestore>(this);
  RigExtra& renamed = extras_[static_cast<size_t>(index)];
  renamed.previous_name = old;
  renamed.name = wanted;
  // Chains hanging from the renamed one follow its new point names.
  for (RigExtra& e : extras_) {
    if (&e == &renamed || !IsPointOfExtra(e.parent, old)) continue;
    e.parent.replace(e.parent.find(old), old.size(), wanted);
  }
  renamed.previous_name.clear();
  extras_ = SortExtras(extras_);
  RegenerateTemplate();
  TemplateChanged();
}

std::string RigSystem::GetExtraParent(int index) { return ExtraAt(index).parent; }

void RigSystem::SetExtraParent(int index, const std::string& parent) {
  EditExtra(index, [&](RigExtra& e) { e.parent = parent; });
}

int RigSystem::GetExtraSide(int index) { return ExtraAt(index).side; }

void RigSystem::SetExtraSide(int index, int side) {
  if (side < kSideNone || side > kSideCenter) {
    ExtraAt(index);
    return;
  }
  EditExtra(index, [&](RigExtra& e) { e.side = side; });
}

int RigSystem::GetExtraNumControls(int index) { return ExtraAt(index).num_controls + 1; }

void RigSystem::SetExtraNumControls(int index, int num_bones) {
  EditExtra(index, [&](RigExtra& e) { e.num_controls = std::max(num_bones, 1) - 1; });
}

int RigSystem::GetExtraNumBones(int index) { return ExtraAt(index).num_bones; }

void RigSystem::SetExtraNumBones(int index, int num_bones) {
  EditExtra(index, [&](RigExtra& e) { e.num_bones = std::max(num_bones, 1); });
}

// ---------------------------------------------------------------------------------------------
// .rig files.

bool RigSystem::Save(const std::string& file_name) {
  if (!pblock_) return false;
  RigFileData data;
  const ParamBlockDesc2* desc = pblock_->GetDesc();
  for (int i = 0; i < desc->Count(); ++i) {
    const ParamDef* def = desc->GetParamDefByIndex(i);
    // Built nodes belong to the scene, not to the template.
    if (!def || IsParamTypeTab(def->type)) continue;
    RigParamRecord r;
    r.id = static_cast<std::uint16_t>(def->ID);
    r.type = def->type;
    switch (ParamKind(def->type)) {
      case PBKind::kInt:
        r.int_value = pblock_->GetInt(def->ID);
        break;
      case PBKind::kFloat:
        r.float_value = pblock_->GetFloat(def->ID);
        break;
      case PBKind::kPoint3:
        r.vector_value = pblock_->GetPoint3(def->ID);
        break;
      case PBKind::kString:
        r.string_value = pblock_->GetStr(def->ID);
        break;
      default:
        continue;
    }
    data.params.push_back(std::move(r));
  }
  for (const RigPoint& p : template_.Points())
    if (!p.Hidden()) data.points.push_back({p.name, p.pos});
  for (const RigExtra& e : extras_)
    data.extras.push_back({e.name, e.parent, e.side, e.num_controls});
  // The codec logs the reason of a failure.
  return WriteRigFile(file_name, data, nullptr);
}

bool RigSystem::Load(const std::string& file_name) {
  if (!pblock_) return false;
  RigFileData data;
  if (!ReadRigFile(file_name, &data, nullptr)) return false;
  theHold.Begin();
  HoldPoints(this);
  HoldExtras<RemoveExtraRestore>(this);
  // Parameters in file order; the regeneration runs once, after all of them.
  suppress_regeneration_ = true;
  for (const RigParamRecord& r : data.params) {
    const ParamDef* def = pblock_->GetDesc()->GetParamDef(r.id);
    if (!def || IsParamTypeTab(def->type) || def->type != r.type) continue;
    switch (ParamKind(def->type)) {
      case PBKind::kInt:
        if (r.id == kRigType) ApplyTypePreset(r.int_value);
        pblock_->SetValue(r.id, 0, r.int_value);
        break;
      case PBKind::kFloat:
        pblock_->SetValue(r.id, 0, r.float_value);
        break;
      case PBKind::kPoint3:
        pblock_->SetValue(r.id, 0, r.vector_value);
        break;
      case PBKind::kString:
        pblock_->SetValue(r.id, 0, r.string_value.c_str());
        break;
      default:
        break;
    }
  }
  suppress_regeneration_ = false;
  extras_.clear();
  RegenerateTemplate(ReadParams()[kRigType] != previous_values_[kRigType]);
  for (const RigExtraRecord& e : data.extras)
    AddExtra(e.name, e.parent, e.side, e.num_controls + 1, 2, false);
  RegenerateTemplate();
  for (const RigPointRecord& p : data.points) {
    const int i = template_.Find(p.name);
    if (i >= 0) template_.Points()[static_cast<size_t>(i)].pos = p.pos;
  }
  template_.UpdateDependants();
  TemplateChanged();
  theHold.Accept(kLoadRigTemplate);
  return true;
}

// The headless host has no file dialog: both answer as a cancelled dialog does. The
// interactive front end shows one with the titles, filter and history key above.
bool RigSystem::LoadDlg() { return false; }
bool RigSystem::SaveDlg() { return false; }

}  // namespace marvolith
