// Copyright Marvolith contributors.
#include "tests/host/params/param_test_objects.h"

#include <sstream>

namespace marvolith::test {

CountingAccessor test_accessor;
TestValidator test_validator;

void CountingAccessor::Get(
    PB2Value& v, ReferenceMaker* owner, ParamID id, int tab_index, TimeValue t, Interval& valid) {
  ++gets;
  last_get_time = t;
  last_owner = owner;
  if (v.Kind() == PBKind::kFloat) v.SetFloat(v.GetFloat() + get_offset);
}

void CountingAccessor::Set(
    PB2Value& v, ReferenceMaker* owner, ParamID id, int tab_index, TimeValue t) {
  ++sets;
  last_owner = owner;
  if (v.Kind() == PBKind::kFloat) v.SetFloat(v.GetFloat() * set_scale);
}

void CountingAccessor::TabChanged(tab_changes code,
                                  Tab<PB2Value>* tab,
                                  ReferenceMaker* owner,
                                  ParamID id,
                                  int tab_index,
                                  int count) {
  last_owner = owner;
  tab_calls.push_back({code, id, tab_index, count, tab ? tab->Count() : -1});
}

bool TestValidator::Validate(PB2Value& v) {
  ++calls;
  if (v.Kind() == PBKind::kFloat) return v.GetFloat() >= 0.0f;
  return !(v.Kind() == PBKind::kNode && forbidden && v.GetINode() == forbidden);
}

namespace {

class OwnerClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool loading) override { return new TestOwner(!loading); }
  const char* ClassName() override { return "Param Test Owner"; }
  SClass_ID SuperClassID() override { return REF_TARGET_CLASS_ID; }
  Class_ID ClassID() override { return Class_ID(0x7e57, 0x9a9a); }
  const char* Category() override { return ""; }
};

OwnerClassDesc owner_cd;

ParamDef TabOf(ParamID plain, ParamType2 type) {
  return ParamDef(ParamID(kTabBase + plain), "", type | TYPE_TAB, P_VARIABLE_SIZE)
      .Accessor(&test_accessor);
}

ParamBlockDesc2 test_pb(
    kTestBlock,
    "params",
    0,
    &owner_cd,
    P_AUTO_CONSTRUCT | P_VERSION,
    kTestBlockVersion,
    0,
    {
        ParamDef(kInt, "int", TYPE_INT, 0).Default(3).Range(-10, 10),
        ParamDef(kBool, "bool", TYPE_BOOL, P_RESET_DEFAULT).Default(true),
        ParamDef(kFloat, "float", TYPE_FLOAT, 0).Default(1.5f).Accessor(&test_accessor),
        ParamDef(kAngle, "angle", TYPE_ANGLE, 0).Range(-90.0, 90.0),
        ParamDef(kPcnt, "pcnt", TYPE_PCNT_FRAC, 0).Default(0.5f).Range(0.0, 100.0),
        ParamDef(kWorld, "world", TYPE_WORLD, 0).Default(10.0).Validator(&test_validator),
        ParamDef(kColor, "color", TYPE_RGBA, 0).Default(Color(0.75f, 0.0f, 0.0f)),
        ParamDef(kPoint3, "point3", TYPE_POINT3, 0),
        ParamDef(kPoint4, "point4", TYPE_POINT4, 0),
        ParamDef(kAColor, "acolor", TYPE_FRGBA, 0),
        ParamDef(kMatrix, "offsetTM", TYPE_MATRIX3, 0),
        ParamDef(kString, "rig_name", TYPE_STRING, 0).Default("Rig"),
        ParamDef(kFile, "file", TYPE_FILENAME, 0),
        ParamDef(kNode, "target", TYPE_INODE, 0)
            .Accessor(&test_accessor)
            .Validator(&test_validator)
            .Label("Target Node"),
        ParamDef(kRefTarg, "curve_ctrl", TYPE_REFTARG, 0),
        ParamDef(kIndex, "active_layer", TYPE_INDEX, 0).Range(0, 2147483647),
        ParamDef(kTime, "time", TYPE_TIMEVALUE, 0),
        ParamDef(kAnimFloat, "ikfk_blend", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Range(0.0, 100.0)
            .Accessor(&test_accessor)
            .Label("IKFK Blend"),
        ParamDef(kAnimPoint3, "anim_point3", TYPE_POINT3, P_ANIMATABLE),
        ParamDef(kWeakNode, "mirror_node", TYPE_INODE, P_NO_REF),
        ParamDef(kAnimFloatTab, "weight", TYPE_FLOAT_TAB, P_ANIMATABLE | P_TV_SHOW_ALL)
            .TabSize(2)
            .Default(50.0f)
            .Range(0.0, 100.0)
            .Accessor(&test_accessor)
            .Label("Parent Weight"),
        TabOf(kInt, TYPE_INT),
        TabOf(kBool, TYPE_BOOL),
        TabOf(kFloat, TYPE_FLOAT),
        TabOf(kAngle, TYPE_ANGLE),
        TabOf(kPcnt, TYPE_PCNT_FRAC),
        TabOf(kWorld, TYPE_WORLD),
        TabOf(kColor, TYPE_RGBA),
        TabOf(kPoint3, TYPE_POINT3),
        TabOf(kPoint4, TYPE_POINT4),
        TabOf(kAColor, TYPE_FRGBA),
        TabOf(kMatrix, TYPE_MATRIX3),
        TabOf(kString, TYPE_STRING),
        TabOf(kFile, TYPE_FILENAME),
        TabOf(kNode, TYPE_INODE),
        TabOf(kRefTarg, TYPE_REFTARG),
        TabOf(kIndex, TYPE_INDEX),
        TabOf(kTime, TYPE_TIMEVALUE),
    });

}  // namespace

ClassDesc2& TestOwnerClassDesc() { return owner_cd; }
ParamBlockDesc2& TestBlockDesc() { return test_pb; }

TestOwner::TestOwner(bool make_blocks) {
  if (make_blocks) owner_cd.MakeAutoParamBlocks(this);
}

RefResult TestOwner::NotifyRefChanged(
    const Interval&, RefTargetHandle target, PartID&, RefMessage message, bool) {
  if (message == REFMSG_CHANGE && target == pblock && pblock)
    heard.push_back(pblock->LastNotifyParamID());
  return REF_SUCCEED;
}

std::string Dump(IParamBlock2* pb) {
  std::ostringstream out;
  ParamBlockDesc2* desc = pb->GetDesc();
  for (int i = 0; i < desc->Count(); ++i) {
    const ParamID id = desc->IndextoID(i);
    const int count = IsParamTypeTab(desc->GetParamDefByIndex(i)->type) ? pb->Count(id) : 1;
    out << id << "[" << count << "]:";
    for (int e = 0; e < count; ++e) {
      PB2Value v;
      Interval valid = FOREVER;
      pb->GetValue(id, 0, v, valid, e);
      const Point3 p = v.GetPoint3();
      const Point4 q = v.GetPoint4();
      out << " " << v.GetInt() << "," << v.GetFloat() << ",(" << p.x << "," << p.y << "," << p.z
          << "),(" << q.x << "," << q.y << "," << q.z << "," << q.w << ")," << v.GetStr() << ","
          << v.GetReferenceTarget() << "," << pb->GetController(id, e);
      const Matrix3& m = v.GetMatrix3();
      for (int r = 0; r < 4; ++r) out << "," << m[r].x << "," << m[r].y << "," << m[r].z;
    }
    out << "\n";
  }
  return out.str();
}

RefTargetHandle TestOwner::Clone(RemapDir& remap) {
  auto* clone = new TestOwner(false);
  clone->ReplaceReference(0, remap.CloneRef(pblock));
  BaseClone(this, clone, remap);
  return clone;
}

}  // namespace marvolith::test
