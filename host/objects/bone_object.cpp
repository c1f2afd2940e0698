// Copyright Marvolith contributors.
#include "host/objects/bone_object.h"

#include <algorithm>

#include "host/gfx/graphics_window.h"
#include "host/gfx/view_exp.h"
#include "host/registry/class_desc.h"
#include "host/scene/inode.h"

namespace {

class BoneObjClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return true; }
  Animatable* Create(bool loading) override { return new BoneObj(loading); }
  const char* ClassName() override { return "Bone"; }
  const char* InternalName() override { return "BoneGeometry"; }
  SClass_ID SuperClassID() override { return GEOMOBJECT_CLASS_ID; }
  Class_ID ClassID() override { return BONE_OBJ_CLASSID; }
  const char* Category() override { return "Bones"; }
};

BoneObjClassDesc bone_cd;

ParamDef World(ParamID id, const char* name, const char* label, float def) {
  return ParamDef(id, name, TYPE_WORLD, P_ANIMATABLE).Default(def).Range(0.0, 1e30).Label(label);
}
ParamDef Taper(ParamID id, const char* name, const char* label) {
  return ParamDef(id, name, TYPE_PCNT_FRAC, P_ANIMATABLE)
      .Default(0.1f)
      .Range(0.0, 100.0)
      .Label(label);
}
ParamDef Flag(ParamID id, const char* name, const char* label) {
  return ParamDef(id, name, TYPE_BOOL, P_ANIMATABLE).Default(false).Label(label);
}

ParamBlockDesc2 bone_pb(
    kBoneObjParams,
    "BoneObjectParameters",
    0,
    &bone_cd,
    P_AUTO_CONSTRUCT,
    0,
    {
        World(boneobj_width, "width", "Width", 10.0f),
        World(boneobj_height, "height", "Height", 10.0f),
        ParamDef(boneobj_taper, "taper", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(0.9f)
            .Range(-100.0, 100.0)
            .Label("Taper"),
        World(boneobj_length, "length", "Length", 10.0f),
        Flag(boneobj_sidefins, "sidefins", "Side Fins"),
        World(boneobj_sidefins_size, "sidefinssize", "Side Fins Size", 5.0f),
        Taper(boneobj_sidefins_starttaper, "sidefinsstarttaper", "Side Fins Start Taper"),
        Taper(boneobj_sidefins_endtaper, "sidefinsendtaper", "Side Fins End Taper"),
        Flag(boneobj_frontfin, "frontfin", "Front Fin"),
        World(boneobj_frontfin_size, "frontfinsize", "Front Fin Size", 5.0f),
        Taper(boneobj_frontfin_starttaper, "frontfinstarttaper", "Front Fin Start Taper"),
        Taper(boneobj_frontfin_endtaper, "frontfinendtaper", "Front Fin End Taper"),
        Flag(boneobj_backfin, "backfin", "Back Fin"),
        World(boneobj_backfin_size, "backfinsize", "Back Fin Size", 5.0f),
        Taper(boneobj_backfin_starttaper, "backfinstarttaper", "Back Fin Start Taper"),
        Taper(boneobj_backfin_endtaper, "backfinendtaper", "Back Fin End Taper"),
    });

// Adds one fin: base from `base0` (at the full ring) to `base1` (at the end), standing out by
// `size` along `out`.
void AddFin(const BoneFin& fin,
            const Point3& base0,
            const Point3& base1,
            const Point3& out,
            TriMesh& mesh) {
  const float start = std::clamp(fin.start_taper, 0.0f, 1.0f);
  const float end = std::clamp(fin.end_taper, 0.0f, 1.0f);
  // Outer edge from `start` to 1 - `end` along the base; tapers that overlap meet in the middle
  // of the overlap.
  float u0 = start, u1 = 1.0f - end;
  if (u0 > u1) u0 = u1 = 0.5f * (u0 + u1);
  const Point3 lift = out * std::max(fin.size, 0.0f);
  const int first = static_cast<int>(mesh.verts.size());
  mesh.verts.push_back(base0);
  mesh.verts.push_back(base1);
  mesh.verts.push_back(base0 + (base1 - base0) * u1 + lift);
  mesh.verts.push_back(base0 + (base1 - base0) * u0 + lift);
  mesh.faces.push_back({first, first + 1, first + 2});
  mesh.faces.push_back({first, first + 2, first + 3});
}

}  // namespace

void BuildBoneMesh(const BoneShapeInput& in, TriMesh& out) {
  out.Clear();
  const float length = std::max(in.length, 0.0f);
  const float hw = 0.5f * std::max(in.width, 0.0f);
  const float hh = 0.5f * std::max(in.height, 0.0f);
  const float end_scale = 1.0f - std::clamp(in.taper, -1.0f, 1.0f);
  const float nose = std::min(0.5f * length, std::min(hw, hh));
  const float ew = hw * end_scale, eh = hh * end_scale;

  // Corners of a ring in the order +Y+Z, -Y+Z, -Y-Z, +Y-Z.
  static constexpr float kSy[4] = {1, -1, -1, 1};
  static constexpr float kSz[4] = {1, 1, -1, -1};
  out.verts.push_back(Point3(0, 0, 0));
  for (int i = 0; i < 4; ++i) out.verts.push_back(Point3(nose, kSy[i] * hw, kSz[i] * hh));
  for (int i = 0; i < 4; ++i) out.verts.push_back(Point3(length, kSy[i] * ew, kSz[i] * eh));
  for (int i = 0; i < 4; ++i) {
    const int a = 1 + i, b = 1 + (i + 1) % 4, c = 5 + (i + 1) % 4, d = 5 + i;
    out.faces.push_back({0, b, a});  // the pointed start
    out.faces.push_back({a, b, c});  // the sides
    out.faces.push_back({a, c, d});
  }
  out.faces.push_back({5, 6, 7});  // the end cap
  out.faces.push_back({5, 7, 8});

  if (in.side.on) {
    AddFin(in.side, Point3(nose, hw, 0), Point3(length, ew, 0), Point3(0, 1, 0), out);
    AddFin(in.side, Point3(nose, -hw, 0), Point3(length, -ew, 0), Point3(0, -1, 0), out);
  }
  if (in.front.on)
    AddFin(in.front, Point3(nose, 0, hh), Point3(length, 0, eh), Point3(0, 0, 1), out);
  if (in.back.on)
    AddFin(in.back, Point3(nose, 0, -hh), Point3(length, 0, -eh), Point3(0, 0, -1), out);
}

ClassDesc2* GetBoneObjDesc() { return &bone_cd; }

BoneObj::BoneObj(bool loading) {
  if (!loading) bone_cd.MakeAutoParamBlocks(this);
}

MSTR BoneObj::SubAnimName(int i, bool localized) { return i == 0 ? MSTR("Bone Object") : MSTR(); }

IParamBlock2* BoneObj::GetParamBlockByID(BlockID id) {
  return pblock_ && pblock_->ID() == id ? pblock_ : nullptr;
}

void BoneObj::SetReference(int i, RefTargetHandle target) {
  if (i != 0) return;
  pblock_ = static_cast<IParamBlock2*>(target);
  mesh_valid_ = NEVER;
}

RefResult BoneObj::NotifyRefChanged(const Interval& change_int,
                                    RefTargetHandle target,
                                    PartID& part_id,
                                    RefMessage message,
                                    bool propagate) {
  if (message == REFMSG_CHANGE && target == pblock_) mesh_valid_ = NEVER;
  return REF_SUCCEED;
}

BoneShapeInput BoneObj::GetShapeInput(TimeValue t, Interval& valid) {
  BoneShapeInput in;
  if (!pblock_) return in;
  auto flag = [&](ParamID id) {
    int v = 0;
    pblock_->GetValue(id, t, v, valid);
    return v != 0;
  };
  auto number = [&](ParamID id, float& v) { pblock_->GetValue(id, t, v, valid); };
  number(boneobj_width, in.width);
  number(boneobj_height, in.height);
  number(boneobj_taper, in.taper);
  number(boneobj_length, in.length);
  BoneFin* fins[3] = {&in.side, &in.front, &in.back};
  for (int f = 0; f < 3; ++f) {
    const auto base = static_cast<ParamID>(boneobj_sidefins + 4 * f);
    fins[f]->on = flag(base);
    number(static_cast<ParamID>(base + 1), fins[f]->size);
    number(static_cast<ParamID>(base + 2), fins[f]->start_taper);
    number(static_cast<ParamID>(base + 3), fins[f]->end_taper);
  }
  return in;
}

const TriMesh& BoneObj::GetMesh(TimeValue t) {
  if (!mesh_valid_.InInterval(t)) {
    Interval valid = FOREVER;
    BuildBoneMesh(GetShapeInput(t, valid), mesh_);
    mesh_.GetVisibleEdges(edges_);
    mesh_valid_ = valid;
  }
  return mesh_;
}

Interval BoneObj::ObjectValidity(TimeValue t) {
  Interval valid = FOREVER;
  GetShapeInput(t, valid);
  return valid;
}

ObjectState BoneObj::Eval(TimeValue t) {
  ObjectState os(this);
  os.NarrowObValid(ObjectValidity(t));
  return os;
}

int BoneObj::Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) {
  if (!inode || !vpt) return 0;
  const TriMesh& mesh = GetMesh(t);
  GraphicsWindow* gw = vpt->getGW();
  gw->setTransform(inode->GetObjectTM(t));
  gw->setColor(LINE_COLOR, NodeWireColor(inode));
  gw->startSegments();
  for (const auto& e : edges_) {
    const Point3 ends[2] = {mesh.verts[static_cast<size_t>(e[0])],
                            mesh.verts[static_cast<size_t>(e[1])]};
    gw->segment(ends, 1);
  }
  gw->endSegments();
  return 0;
}

void BoneObj::GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) {
  box = GetMesh(t).BoundBox();
}

void BoneObj::GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) {
  if (!inode) {
    GetLocalBoundBox(t, inode, vpt, box);
    return;
  }
  const Matrix3 tm = inode->GetObjectTM(t);
  box = GetMesh(t).BoundBox(&tm);
}

RefTargetHandle BoneObj::Clone(RemapDir& remap) {
  auto* clone = new BoneObj(true);
  clone->ReplaceReference(0, remap.CloneRef(pblock_));
  BaseClone(this, clone, remap);
  return clone;
}
