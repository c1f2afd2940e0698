// Copyright Marvolith contributors.
#include "rig/rig_system.h"

#include <cmath>
#include <random>

#include "host/base/exceptions.h"
#include "host/core/diagnostics.h"
#include "host/gfx/view_exp.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "rig/internal/rig_system_parts.h"
#include "rig/rig_components.h"
#include "rig/rig_draw.h"
#include "rig/rig_templates.h"
#include "support/chunk_helpers.h"
#include "support/hold_record.h"

namespace marvolith {

namespace rig_internal {
bool g_suppress_selected_component = false;
}  // namespace rig_internal

namespace {

using namespace rig_internal;

/// Both descriptors create the same object: the system class is how a user finds it in the
/// create panel, the helper class is what the object answers and what scene files name.
class RigClassDesc : public MarvolithClassDesc {
 public:
  explicit RigClassDesc(ClassIndex index) : MarvolithClassDesc(index) {}
  Animatable* Create(bool loading = false) override { return new RigSystem(loading); }
};

/// Structural parameters: a type set writes its presets first (the regeneration itself follows
/// the stored value, in RigSystem::NotifyRefChanged).
class RigParamAccessor : public PBAccessor {
 public:
  void Set(PB2Value& v, ReferenceMaker* owner, ParamID id, int, TimeValue) override {
    auto* rig = dynamic_cast<RigSystem*>(owner);
    if (!rig || id != kRigType || IsUndoingOrRedoing()) return;
    rig->ApplyTypePreset(v.GetInt());
  }
};

/// `selected_component`: selects the component's points on the object open in the panel,
/// unless the code itself is writing it.
class SelectedComponentAccessor : public PBAccessor {
 public:
  void Set(PB2Value& v, ReferenceMaker* owner, ParamID, int, TimeValue) override {
    auto* rig = dynamic_cast<RigSystem*>(owner);
    if (!rig || g_suppress_selected_component || IsUndoingOrRedoing()) return;
    if (rig->IsEditing()) rig->SelectComponent(v.GetInt());
  }
};

// The class's static tables, built at module load in this order: descriptors, block, interface.
RigClassDesc rig_cd(ClassIndex::Rig);
RigClassDesc rig_system_cd(ClassIndex::RigSystem);
RigParamAccessor rig_param_accessor;
SelectedComponentAccessor selected_component_accessor;
const std::vector<ParamDef> rig_param_defs =
    RigParamDefs(&rig_param_accessor, &selected_component_accessor);
ParamBlockDesc2 rig_pb{kRigParams, "params", 0, &rig_cd, P_AUTO_CONSTRUCT, 0, rig_param_defs};

/// Getter and setter of the property `type` (the block's unnamed type parameter).
constexpr FunctionID kRigFnGetType = 100;
constexpr FunctionID kRigFnSetType = 101;
/// Getter of the read-only property `components`: the component list as DescribeRigComponents
/// writes it.
constexpr FunctionID kRigFnGetComponents = 102;
constexpr EnumID kRigTypeEnum = 1;

FPEnumDef RigTypeEnum() {
  FPEnumDef types(kRigTypeEnum, {});
  for (int i = 0; i < kRigTypeCount; ++i) types.items.push_back({RigTypeName(i), i});
  return types;
}

FPInterfaceDesc& RigInterfaceDesc() {
  using enum FPType;
  auto side = [] { return FPArg("side", TYPE_ENUM).Enum(kRigSideEnum).KeyArg(kSideNone); };
  auto index = [](const char* name) { return FPArg(name, TYPE_INDEX).KeyArg(-1); };
  auto extra = [](const char* name) { return FPArg(name, TYPE_INDEX); };
  static FPInterfaceDesc desc(
      IRIGSYSTEM_ID, "interface", FP_MIXIN, &rig_cd,
      {
          {kRigFnGetPointPos,
           "GetPointPos",
           TYPE_POINT3,
           {FPArg("name", TYPE_STRING), side(), index("index"), index("sub_index")}},
          {kRigFnSetPointPos,
           "SetPointPos",
           TYPE_VOID,
           {FPArg("name", TYPE_STRING), FPArg("pos", TYPE_POINT3), side(), index("index"),
            index("sub_index")}},
          {kRigFnGetPointParent,
           "GetPointParent",
           TYPE_STRING,
           {FPArg("name", TYPE_STRING), side(), index("index"), index("sub_index")}},
          {kRigFnLoad, "Load", TYPE_BOOL, {FPArg("fileName", TYPE_FILENAME)}},
          {kRigFnLoadDlg, "LoadDlg", TYPE_BOOL},
          {kRigFnSave, "Save", TYPE_BOOL, {FPArg("fileName", TYPE_FILENAME)}},
          {kRigFnSaveDlg, "SaveDlg", TYPE_BOOL},
          {kRigFnGetNumExtras, "GetNumExtras", TYPE_INT},
          {kRigFnAddExtra,
           "AddExtra",
           TYPE_BOOL,
           {FPArg("name", TYPE_STRING).KeyArg(""), FPArg("parent", TYPE_STRING).KeyArg(""), side(),
            FPArg("num_controls", TYPE_INT).KeyArg(1), FPArg("num_bones", TYPE_INT).KeyArg(2),
            FPArg("use_bones", TYPE_BOOL).KeyArg(false)}},
          {kRigFnRemoveExtra, "RemoveExtra", TYPE_BOOL, {extra("index")}},
          {kRigFnGetExtraName, "GetExtraName", TYPE_STRING, {extra("index")}},
          {kRigFnSetExtraName,
           "SetExtraName",
           TYPE_VOID,
           {extra("index"), FPArg("name", TYPE_STRING)}},
          {kRigFnGetExtraParent, "GetExtraParent", TYPE_STRING, {extra("index")}},
          {kRigFnSetExtraParent,
           "SetExtraParent",
           TYPE_VOID,
           {extra("index"), FPArg("parent", TYPE_STRING)}},
          FPFunctionDef(kRigFnGetExtraSide, "GetExtraSide", TYPE_ENUM, {extra("index")})
              .Enum(kRigSideEnum),
          {kRigFnSetExtraSide,
           "SetExtraSide",
           TYPE_VOID,
           {extra("index"), FPArg("side", TYPE_ENUM).Enum(kRigSideEnum)}},
          {kRigFnGetExtraNumControls, "GetExtraNumControls", TYPE_INT, {extra("index")}},
          {kRigFnSetExtraNumControls,
           "SetExtraNumControls",
           TYPE_VOID,
           {extra("index"), FPArg("num_bones", TYPE_INT)}},
          {kRigFnGetExtraNumBones, "GetExtraNumBones", TYPE_INT, {extra("index")}},
          {kRigFnSetExtraNumBones,
           "SetExtraNumBones",
           TYPE_VOID,
           {extra("index"), FPArg("num_bones", TYPE_INT)}},
      },
      {FPPropertyDef(kRigFnGetType, kRigFnSetType, "type", TYPE_ENUM).Enum(kRigTypeEnum),
       FPPropertyDef(kRigFnGetComponents, FP_NO_FUNCTION, "components", TYPE_STRING)},
      {FPEnumDef(kRigSideEnum, {{"None", kSideNone},
                                {"Right", kSideRight},
                                {"Left", kSideLeft},
                                {"Both", kSideBoth},
                                {"Center", kSideCenter}}),
       RigTypeEnum()});
  return desc;
}
FPInterfaceDesc& rig_fp = RigInterfaceDesc();

// Chunks of the object. Points and extras are containers of a name chunk and a fields chunk.
constexpr USHORT kPointChunk = 0;
constexpr USHORT kExtraChunk = 1;
constexpr USHORT kVersionChunk = 2;
constexpr USHORT kNameChunk = 0;
constexpr USHORT kFieldsChunk = 1;
constexpr USHORT kParentChunk = 2;
constexpr std::int32_t kFileVersion = 20202;

#pragma pack(push, 1)
/// The raw fields of a point, in the order of RigPoint.
struct PointFields {
  std::uint32_t flags;
  Point3 pos;
  float blend;
  std::int32_t parent;
  std::int32_t link1;
  std::int32_t link2;
};
struct ExtraFields {
  std::int32_t side;
  std::int32_t num_controls;
  std::int32_t num_bones;
  std::uint32_t flags;
};
#pragma pack(pop)

/// Regenerates the loaded object once the file has linked its block.
class RigPostLoad : public PostLoadCallback {
 public:
  explicit RigPostLoad(RigSystem* rig) : handle_(Animatable::GetHandleByAnim(rig)) {}
  void proc(ILoad*) override {
    if (auto* rig = dynamic_cast<RigSystem*>(Animatable::GetAnimByHandle(handle_)))
      rig->RegenerateTemplate();
  }

 private:
  AnimHandle handle_;
};

/// A colour of random hue at full saturation and value, as a wire colour (0x00BBGGRR).
DWORD RandomHueColor() {
  static std::mt19937 engine(0x52494721u);
  const float hue = std::uniform_real_distribution<float>(0.0f, 6.0f)(engine);
  const int sector = static_cast<int>(hue) % 6;
  const float f = hue - std::floor(hue);
  float r = 0, g = 0, b = 0;
  switch (sector) {
    case 0:
      r = 1;
      g = f;
      break;
    case 1:
      r = 1 - f;
      g = 1;
      break;
    case 2:
      g = 1;
      b = f;
      break;
    case 3:
      g = 1 - f;
      b = 1;
      break;
    case 4:
      r = f;
      b = 1;
      break;
    default:
      r = 1;
      b = 1 - f;
      break;
  }
  auto byte = [](float c) { return static_cast<DWORD>(std::lround(c * 255.0f)); };
  return byte(r) | (byte(g) << 8) | (byte(b) << 16);
}

/// Creation in the viewport: the first press places the object at the click with a size of 0,
/// moves set `helper_size` to the distance from it, the second release or a right click ends.
class RigSystemCreateCallBack : public CreateMouseCallBack {
 public:
  void SetObject(RigSystem* rig) { rig_ = rig; }
  int proc(ViewExp* vpt, int msg, int point, int, IPoint2 m, Matrix3& mat) override {
    if (msg == MOUSE_ABORT) return CREATE_ABORT;
    if (msg != MOUSE_POINT && msg != MOUSE_MOVE) return CREATE_CONTINUE;
    Point3 p;
    if (!vpt || !PlanePoint(*vpt, m, p))
      return msg == MOUSE_POINT && point == 0 ? CREATE_ABORT : CREATE_CONTINUE;
    return OnPoint(msg, point, p, mat);
  }
  /// The rule on a construction-plane point p.
  int OnPoint(int msg, int point, const Point3& p, Matrix3& mat) {
    if (msg == MOUSE_POINT && point == 0) {
      start_ = p;
      mat.IdentityMatrix();
      mat.SetTrans(p);
      SetSize(0.0f);
      PaintNode();
      return CREATE_CONTINUE;
    }
    SetSize(Length(p - start_));
    return msg == MOUSE_POINT ? CREATE_STOP : CREATE_CONTINUE;
  }

 private:
  static bool PlanePoint(ViewExp& vpt, const IPoint2& m, Point3& out) {
    // The home grid seen from the view: world XY through the view's ray at m.
    Matrix3 world_to_view;
    vpt.GetAffineTM(world_to_view);
    const Matrix3 view_to_world = Inverse(world_to_view);
    GraphicsWindow* gw = vpt.getGW();
    const float width_px = static_cast<float>(gw->getWinSizeX());
    const float height_px = static_cast<float>(gw->getWinSizeY());
    if (!(width_px > 0.0f)) return false;
    const float sx = static_cast<float>(m.x) - 0.5f * width_px;
    const float sy = 0.5f * height_px - static_cast<float>(m.y);
    const float per_px = vpt.GetScreenScaleFactor(view_to_world.GetTrans()) / width_px;
    Point3 origin = Point3(sx * per_px, sy * per_px, 0.0f) * view_to_world;
    Point3 dir = view_to_world.VectorTransform(Point3(0, 0, -1));
    if (vpt.IsPerspView()) {
      origin = view_to_world.GetTrans();
      dir = view_to_world.VectorTransform(Point3(sx * per_px, sy * per_px, -1.0f));
    }
    if (std::fabs(dir.z) < 1e-6f) return false;
    out = origin + dir * (-origin.z / dir.z);
    out.z = 0.0f;
    return true;
  }
  // The node made for the object takes a wire colour of random hue.
  void PaintNode() {
    if (!rig_) return;
    DependentIterator it(rig_);
    while (ReferenceMaker* maker = it.Next()) {
      auto* node = dynamic_cast<INode*>(maker);
      if (node && node->GetObjectRef() == rig_) node->SetWireColor(RandomHueColor());
    }
  }
  void SetSize(float size) {
    if (!rig_ || !rig_->ParamBlock()) return;
    AnimateSuspend suspend;
    rig_->ParamBlock()->SetValue(kRigHelperSize, 0, size);
  }
  RigSystem* rig_ = nullptr;
  Point3 start_;
};
RigSystemCreateCallBack rig_create_callback;  // one per class, as the host keeps them

}  // namespace

ClassDesc2* GetRigDesc() { return &rig_cd; }
ClassDesc2* GetRigSystemDesc() { return &rig_system_cd; }

// ---------------------------------------------------------------------------------------------
// The published interface.

FPInterfaceDesc* IRigSystem::GetDesc() { return &rig_fp; }

FPStatus IRigSystem::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  switch (fid) {
    case kRigFnGetPointPos:
      return FPBind(result, p, this, &IRigSystem::GetPointPos);
    case kRigFnSetPointPos:
      return FPBind(result, p, this, &IRigSystem::SetPointPos);
    case kRigFnGetPointParent:
      return FPBind(result, p, this, &IRigSystem::GetPointParent);
    case kRigFnLoad:
      return FPBind(result, p, this,
                    static_cast<bool (IRigSystem::*)(const std::string&)>(&IRigSystem::Load));
    case kRigFnLoadDlg:
      return FPBind(result, p, this, &IRigSystem::LoadDlg);
    case kRigFnSave:
      return FPBind(result, p, this,
                    static_cast<bool (IRigSystem::*)(const std::string&)>(&IRigSystem::Save));
    case kRigFnSaveDlg:
      return FPBind(result, p, this, &IRigSystem::SaveDlg);
    case kRigFnGetNumExtras:
      return FPBind(result, p, this, &IRigSystem::GetNumExtras);
    case kRigFnAddExtra:
      return FPBind(result, p, this, &IRigSystem::AddExtra);
    case kRigFnRemoveExtra:
      return FPBind(result, p, this, &IRigSystem::RemoveExtra);
    case kRigFnGetExtraName:
      return FPBind(result, p, this, &IRigSystem::GetExtraName);
    case kRigFnSetExtraName:
      return FPBind(result, p, this, &IRigSystem::SetExtraName);
    case kRigFnGetExtraParent:
      return FPBind(result, p, this, &IRigSystem::GetExtraParent);
    case kRigFnSetExtraParent:
      return FPBind(result, p, this, &IRigSystem::SetExtraParent);
    case kRigFnGetExtraSide:
      result = FPValue::Enum(GetExtraSide(p[0].Get<int>()));
      return FPS_OK;
    case kRigFnSetExtraSide:
      return FPBind(result, p, this, &IRigSystem::SetExtraSide);
    case kRigFnGetExtraNumControls:
      return FPBind(result, p, this, &IRigSystem::GetExtraNumControls);
    case kRigFnSetExtraNumControls:
      return FPBind(result, p, this, &IRigSystem::SetExtraNumControls);
    case kRigFnGetExtraNumBones:
      return FPBind(result, p, this, &IRigSystem::GetExtraNumBones);
    case kRigFnSetExtraNumBones:
      return FPBind(result, p, this, &IRigSystem::SetExtraNumBones);
    case kRigFnGetType:
    case kRigFnSetType: {
      auto* rig = dynamic_cast<RigSystem*>(this);
      IParamBlock2* pb = rig ? rig->ParamBlock() : nullptr;
      if (fid == kRigFnGetType) {
        result = FPValue::Enum(pb ? pb->GetInt(kRigType) : 0);
      } else {
        if (pb) pb->SetValue(kRigType, 0, p[0].Get<int>());
        result = FPValue::Void();
      }
      return FPS_OK;
    }
    case kRigFnGetComponents: {
      auto* rig = dynamic_cast<RigSystem*>(this);
      std::vector<std::string> extras;
      if (rig)
        for (const RigExtra& e : rig->Extras()) extras.push_back(e.name);
      result = FPValue(DescribeRigComponents(rig ? rig->ReadParams() : RigParamValues(), extras));
      return FPS_OK;
    }
    default:
      return FPS_NO_SUCH_FUNCTION;
  }
}

// ---------------------------------------------------------------------------------------------
// RigSystem: identity, references, parameters.

RigSystem::RigSystem(bool loading) {
  if (!loading) {
    rig_cd.MakeAutoParamBlocks(this);
    RegenerateTemplate();
  }
}

RigSystem::~RigSystem() = default;

Class_ID RigSystem::ClassID() { return rig_cd.ClassID(); }

void RigSystem::GetClassName(MSTR& s, bool) const { s = ClassNameOf(ClassIndex::Rig); }

BaseInterface* RigSystem::GetInterface(Interface_ID id) {
  if (id == IRIGSYSTEM_ID) return static_cast<IRigSystem*>(this);
  return HelperObject::GetInterface(id);
}

MSTR RigSystem::SubAnimName(int i, bool) { return i == 0 ? MSTR("Parameters") : MSTR(); }

IParamBlock2* RigSystem::GetParamBlockByID(BlockID id) {
  return pblock_ && pblock_->ID() == id ? pblock_ : nullptr;
}

void RigSystem::SetReference(int i, RefTargetHandle target) {
  if (i == 0) pblock_ = static_cast<IParamBlock2*>(target);
}

RefResult RigSystem::NotifyRefChanged(
    const Interval&, RefTargetHandle target, PartID&, RefMessage message, bool) {
  if (message == REFMSG_CHANGE && target == pblock_ && pblock_) {
    bounds_valid_ = false;
    if (!suppress_regeneration_) ParamChanged(pblock_->LastNotifyParamID());
  }
  return REF_SUCCEED;
}

RigParamValues RigSystem::ReadParams() const {
  RigParamValues values;
  if (!pblock_) return values;
  for (int id = 0; id < kRigParamIdCount; ++id)
    if (IsRigIntParam(id)) values.Set(id, pblock_->GetInt(id));
  return values;
}

void RigSystem::ApplyTypePreset(int type) {
  if (!pblock_) return;
  const TypePreset p = PresetOfType(type);
  // The regeneration follows the type's own store; these writes alone regenerate nothing.
  const bool was = suppress_regeneration_;
  suppress_regeneration_ = true;
  pblock_->SetValue(kRigArmPairs, 0, p.arm_pairs);
  pblock_->SetValue(kRigLegPairs, 0, p.leg_pairs);
  pblock_->SetValue(kRigTails, 0, p.tails);
  pblock_->SetValue(kRigPonytails, 0, p.ponytails);
  pblock_->SetValue(kRigFangs, 0, p.fangs);
  pblock_->SetValue(kRigFingers, 0, p.fingers);
  pblock_->SetValue(kRigFingerBones, 0, p.finger_bones);
  suppress_regeneration_ = was;
}

void RigSystem::ParamChanged(ParamID id) {
  if (!pblock_) return;
  // -1: undo or redo replaced the whole block; compare every structural value.
  if (id >= 0 && !IsRigIntParam(id)) return;
  if (id == kRigActive || id == kRigSelectedComponent) return;
  const RigParamValues now = ReadParams();
  bool changed = false;
  for (int pid = 0; pid < kRigParamIdCount && !changed; ++pid) {
    if (!IsRigIntParam(pid) || pid == kRigActive || pid == kRigSelectedComponent) continue;
    changed = now[pid] != previous_values_[pid];
  }
  if (!changed) return;
  RegenerateTemplate(now[kRigType] != previous_values_[kRigType]);
}

// ---------------------------------------------------------------------------------------------
// Regeneration.

void RigSystem::RegenerateTemplate(bool forget_previous) {
  if (!pblock_) return;
  const RigParamValues p = ReadParams();
  template_.SetSelectedComponent(p[kRigSelectedComponent]);
  template_.BeginRegeneration(forget_previous);
  const bool keep = !forget_previous;
  if (p[kRigType] >= 0 && p[kRigType] < kRigFirstTypeWithoutTemplate)
    BuildRigTemplate(template_, p, keep);
  AddExtraPoints(keep);
  template_.EndRegeneration();
  previous_values_ = p;
  bounds_valid_ = false;
}

void RigSystem::TemplateChanged() {
  bounds_valid_ = false;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void RigSystem::AddExtraPoints(bool keep_previous) {
  // The step between the points of a chain, in rig units, outward from its parent point.
  constexpr float kStep = 0.1f;
  for (int e = 0; e < GetNumExtras(); ++e) {
    const RigExtra& extra = extras_[static_cast<size_t>(e)];
    const int component = kComponentExtraBase + e;
    const int count = extra.num_controls + 2;
    for (int side : {kSideRight, kSideLeft, kSideCenter}) {
      const bool sided =
          extra.side == kSideRight || extra.side == kSideLeft || extra.side == kSideBoth;
      if (sided ? (side == kSideCenter || (extra.side != kSideBoth && extra.side != side))
                : side != kSideCenter)
        continue;
      std::string base = extra.name;
      std::string parent_name = extra.parent;
      std::uint32_t side_flag = 0;
      Point3 dir(0.0f, 0.0f, kStep);
      if (side != kSideCenter) {
        const std::string prefix = side == kSideRight ? "r_" : "l_";
        base = prefix + base;
        side_flag = side == kSideRight ? kPointRight : kPointLeft;
        dir = Point3(side == kSideRight ? -kStep : kStep, 0.0f, 0.0f);
        // The parent on the matching side: a sided parent name takes this side's prefix.
        if (parent_name.size() > 2 && parent_name[1] == '_' &&
            (parent_name[0] == 'r' || parent_name[0] == 'l' || parent_name[0] == 'R' ||
             parent_name[0] == 'L'))
          parent_name = prefix + parent_name.substr(2);
      }
      int parent = template_.Find(parent_name);
      const Point3 start = parent >= 0 ? template_.Points()[static_cast<size_t>(parent)].pos
                                       : Point3(0.0f, 0.0f, 0.0f);
      for (int k = 0; k < count; ++k) {
        const std::uint32_t shape = k + 1 < count ? kPointBonePreview : kPointEnd;
        parent = template_.AddPoint(component, base, k, start + dir * static_cast<float>(k + 1),
                                    parent, Matrix3(), keep_previous, shape | side_flag);
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Points.

Point3 RigSystem::GetPointPos(const std::string& name, int side, int index, int sub_index) {
  const int i = template_.Find(ComposePointName(name, side, index, sub_index));
  return i >= 0 ? template_.Points()[static_cast<size_t>(i)].pos : Point3(0.0f, 0.0f, 0.0f);
}

void RigSystem::SetPointPos(
    const std::string& name, Point3 pos, int side, int index, int sub_index) {
  const int i = template_.Find(ComposePointName(name, side, index, sub_index));
  if (i < 0 || !std::isfinite(pos.x) || !std::isfinite(pos.y) || !std::isfinite(pos.z)) return;
  HoldPoints(this);
  template_.Points()[static_cast<size_t>(i)].pos = pos;
  template_.UpdateDependants();
  TemplateChanged();
}

std::string RigSystem::GetPointParent(const std::string& name, int side, int index, int sub_index) {
  const int i = template_.Find(ComposePointName(name, side, index, sub_index));
  if (i < 0) return {};
  const int parent = template_.Points()[static_cast<size_t>(i)].parent;
  return parent >= 0 && parent < template_.NumPoints()
             ? template_.Points()[static_cast<size_t>(parent)].name
             : std::string();
}

void RigSystem::RestorePoints(const std::vector<RigPoint>& points) {
  std::vector<RigPoint>& live = template_.Points();
  for (const RigPoint& p : points) {
    const int i = template_.Find(p.name);
    if (i < 0) continue;
    live[static_cast<size_t>(i)].pos = p.pos;
    live[static_cast<size_t>(i)].selected = p.selected;
  }
  template_.UpdateDependants();
  TemplateChanged();
}

void RigSystem::SelectComponent(int component) {
  for (RigPoint& p : template_.Points())
    p.selected = !p.Hidden() && p.component == component ? 1 : 0;
  TemplateChanged();
}

void RigSystem::SelectionChanged() {
  int component = -1;
  for (const RigPoint& p : template_.Points())
    if (p.selected && !p.Hidden()) component = p.component;
  if (!pblock_) return;
  const bool was = g_suppress_selected_component;
  g_suppress_selected_component = true;
  pblock_->SetValue(kRigSelectedComponent, 0, component);
  g_suppress_selected_component = was;
}

void RigSystem::BeginEditParams(IObjParam*, ULONG, Animatable*) { editing_ = true; }
void RigSystem::EndEditParams(IObjParam*, ULONG, Animatable*) { editing_ = false; }

// ---------------------------------------------------------------------------------------------
// Display.

ObjectState RigSystem::Eval(TimeValue) { return ObjectState(this); }

Matrix3 RigSystem::RigToWorld(TimeValue t, INode* inode) {
  const float size = pblock_ ? pblock_->GetFloat(kRigHelperSize) : 100.0f;
  const Matrix3 node_tm = inode ? inode->GetObjectTM(t) : Matrix3();
  return ScaleMatrix(Point3(size, size, size)) * node_tm;
}

int RigSystem::Display(TimeValue t, INode* inode, ViewExp* vpt, int) {
  if (!vpt) return 0;
  GraphicsWindow* gw = vpt->getGW();
  RigDrawStyle style;
  if (inode) style.wire = NodeWireColor(inode);
  style.on_top = !pblock_ || pblock_->GetInt(kRigDrawOnTop) != 0;
  DrawRigTemplate(*gw, template_, RigToWorld(t, inode), style);
  return 0;
}

void RigSystem::GetWorldBoundBox(TimeValue t, INode* inode, ViewExp*, Box3& box) {
  const Matrix3 tm = RigToWorld(t, inode);
  if (!bounds_valid_ || !(tm == bounds_tm_)) {
    world_bounds_ = RigTemplateBounds(template_, tm);
    if (world_bounds_.IsEmpty()) world_bounds_ += tm.GetTrans();
    bounds_tm_ = tm;
    bounds_valid_ = true;
  }
  box = world_bounds_;
}

void RigSystem::GetLocalBoundBox(TimeValue t, INode* inode, ViewExp*, Box3& box) {
  const float size = pblock_ ? pblock_->GetFloat(kRigHelperSize, t) : 100.0f;
  box = RigTemplateBounds(template_, ScaleMatrix(Point3(size, size, size)));
  if (box.IsEmpty()) box += Point3(0.0f, 0.0f, 0.0f);
  (void)inode;
}

CreateMouseCallBack* RigSystem::GetCreateMouseCallBack() {
  rig_create_callback.SetObject(this);
  return &rig_create_callback;
}

int RigSystem::CreationPoint(int msg, int point, const Point3& p, Matrix3& mat) {
  rig_create_callback.SetObject(this);
  return rig_create_callback.OnPoint(msg, point, p, mat);
}

// ---------------------------------------------------------------------------------------------
// Copies and files.

RefTargetHandle RigSystem::Clone(RemapDir& remap) {
  auto* clone = new RigSystem(true);
  clone->ReplaceReference(0, remap.CloneRef(pblock_));
  clone->template_ = template_;
  clone->extras_ = extras_;
  clone->previous_values_ = previous_values_;
  BaseClone(this, clone, remap);
  return clone;
}

IOResult RigSystem::Save(ISave* isave) {
  IOResult res = SaveChunk(isave, kVersionChunk, kFileVersion);
  for (const RigPoint& p : template_.Points()) {
    if (res != IO_OK) return res;
    isave->BeginChunk(kPointChunk);
    isave->BeginChunk(kNameChunk);
    res = isave->WriteWString(p.name);
    isave->EndChunk();
    const PointFields fields{p.flags, p.pos, p.blend, p.parent, p.link1, p.link2};
    if (res == IO_OK) res = SaveChunk(isave, kFieldsChunk, fields);
    isave->EndChunk();
  }
  for (const RigExtra& e : extras_) {
    if (res != IO_OK) return res;
    isave->BeginChunk(kExtraChunk);
    isave->BeginChunk(kNameChunk);
    res = isave->WriteWString(e.name);
    isave->EndChunk();
    isave->BeginChunk(kParentChunk);
    if (res == IO_OK) res = isave->WriteWString(e.parent);
    isave->EndChunk();
    const ExtraFields fields{e.side, e.num_controls, e.num_bones, e.flags};
    if (res == IO_OK) res = SaveChunk(isave, kFieldsChunk, fields);
    isave->EndChunk();
  }
  return res;
}

IOResult RigSystem::Load(ILoad* iload) {
  std::vector<RigPoint> points;
  std::vector<RigExtra> extras;
  const IOResult res = ForEachChunk(iload, [&](USHORT id) -> IOResult {
    if (id == kVersionChunk) {
      std::int32_t version = 0;
      return LoadValue(iload, version);
    }
    if (id == kPointChunk) {
      RigPoint p;
      const IOResult r = ForEachChunk(iload, [&](USHORT sub) -> IOResult {
        if (sub == kNameChunk) return iload->ReadWStringChunk(p.name);
        if (sub != kFieldsChunk) return IO_OK;
        PointFields f{};
        if (LoadValue(iload, f) != IO_OK) return IO_ERROR;
        p.flags = f.flags;
        p.pos = f.pos;
        p.blend = f.blend;
        p.parent = f.parent;
        p.link1 = f.link1;
        p.link2 = f.link2;
        return IO_OK;
      });
      points.push_back(std::move(p));
      return r;
    }
    if (id == kExtraChunk) {
      RigExtra e;
      const IOResult r = ForEachChunk(iload, [&](USHORT sub) -> IOResult {
        if (sub == kNameChunk) return iload->ReadWStringChunk(e.name);
        if (sub == kParentChunk) return iload->ReadWStringChunk(e.parent);
        if (sub != kFieldsChunk) return IO_OK;
        ExtraFields f{};
        if (LoadValue(iload, f) != IO_OK) return IO_ERROR;
        e.side = f.side;
        e.num_controls = f.num_controls;
        e.num_bones = f.num_bones;
        e.flags = f.flags;
        return IO_OK;
      });
      extras.push_back(std::move(e));
      return r;
    }
    return IO_OK;
  });
  template_.Points() = std::move(points);
  template_.MarkLinksDirty();
  extras_ = std::move(extras);
  // The block is linked after this: regenerate from it then, keeping the loaded positions.
  iload->RegisterPostLoadCallback(new RigPostLoad(this));
  return res;
}

}  // namespace marvolith
