// Copyright Marvolith contributors.
// IParamBlock2: the values of one parameter block of an object, described by a ParamBlockDesc2.
#pragma once

#include <memory>

#include <vector>

#include "host/core/control.h"
#include "host/core/diagnostics.h"
#include "host/core/reference.h"
#include "host/params/param_block_desc2.h"
#include "host/params/pb2_value.h"
#include "host/params/pb_accessor.h"
#include "support/ref_slot_check.h"

/// Makes the controller an animatable parameter of type gets when it is first set with animate
/// mode on: the host's keyframe controller of that kind, or null when there is none.
using ParamControllerFactory = Control* (*)(ParamType2 type);
/// Installs the factory (null removes it) and answers the previous one. Without a factory, a
/// parameter set with animate mode on just stores its value.
ParamControllerFactory SetParamControllerFactory(ParamControllerFactory factory);
ParamControllerFactory GetParamControllerFactory();

/// The values of one block: one entry per plain parameter, Count(id) entries per table parameter.
///
/// Reading. Every read (typed getters, GetValue) finds the value in the parameter's controller or
/// store, then hands it to the parameter's PBAccessor::Get. Animatable parameters are read at the
/// time asked; all others at 0, whatever time is passed (the accessor is told 0 too). GetValue
/// only narrows `valid`: a controller narrows it by its own validity, a stored value leaves it.
/// Reads allocate nothing; strings come back as pointers into the block, valid until the
/// parameter next changes.
///
/// Bad reads. An unknown id or a getter of another kind (GetFloat of a Point3 parameter) is
/// logged. A table index outside 0..Count(id)-1 is not: the host keeps indices checked before
/// reading. Either way GetValue answers false and leaves its output alone, and the typed getters
/// answer the parameter's default (0, the origin, the identity, "", null for an unknown id).
/// The table index of a plain parameter is ignored. Kinds, not types, must match: GetPoint3
/// reads a TYPE_RGBA parameter, GetInt a TYPE_BOOL one.
///
/// Writing. SetValue clamps numbers into the parameter's range (ParamDef::Range), asks the
/// PBValidator (a refusal answers false, changes nothing and sends nothing), hands the value to
/// PBAccessor::Set, then stores it. A parameter with a controller forwards the value to the
/// controller's SetValue at t instead, and the controller's own change message reaches the owner
/// through the block. An animatable parameter without a controller set while Animating() gets a
/// controller from the installed ParamControllerFactory first; with none it stores the value.
///
/// Messages. Each change of a stored value, table or controller sends REFMSG_CHANGE to the
/// block's dependents with LastNotifyParamID() set to the changed parameter. Undo and redo
/// restore the stored state and send one REFMSG_CHANGE with LastNotifyParamID() == -1; they do
/// not call accessors. EnableNotifications(false) silences the block.
///
/// Undo. While theHold is holding, the first change of a hold records the whole block once (the
/// A_HELD idiom); the record keeps the block's AnimHandle and keeps every target it mentions
/// alive. Value, table, controller and reference changes all restore exactly.
///
/// References. A node or reference-target parameter without P_NO_REF references its targets;
/// each entry of an animatable parameter references its controller. References are numbered in
/// table order of the parameters, each entry of a table taking one number. When a referenced
/// node, target or controller is deleted its entries read null (a controller's last value stays
/// as the stored value), a table hears PBAccessor::TabChanged(tab_ref_deleted), and the owner
/// hears REFMSG_CHANGE for that parameter. P_NO_REF targets are kept by handle and read null
/// once deleted, without any message.
///
/// Sub-anims are the animatable parameters that can hold a controller (float, Point3 and Point4
/// kinds with P_ANIMATABLE), in table order: one per plain parameter, one per entry of a table.
/// SubAnim answers the controller, or while the parameter has none the shared stand-in of
/// GetParamValueAnim, so that walks over the tracks meet a parameter that holds a plain value.
///
/// Files. Save writes the block as flat chunks; Load reads them back (layout and rules below, at
/// Save). A block read from a scene file is made by the class directory (class
/// PARAMETER_BLOCK2_CLASS_ID, (0x82, 0)) without a descriptor; Load finds its descriptor by the
/// owner class and block id written in the file, and the owner becomes the dependent of that
/// class once the whole file is linked.
/// Super class and class of the stand-in sub-anim of an animatable parameter without a controller.
inline constexpr SClass_ID PARAM_VALUE_SUPER_CLASS_ID = 36879;
inline constexpr Class_ID PARAM_VALUE_CLASS_ID(0xEFFFFFFF, 0);

/// The one stand-in that IParamBlock2::SubAnim answers for every parameter without a controller:
/// an Animatable of PARAM_VALUE_SUPER_CLASS_ID and PARAM_VALUE_CLASS_ID with no keys and no
/// sub-anims. The value lives in the block (read it through the block and the sub-anim index);
/// the stand-in only tells the parameter is there. It lives as long as the program.
Animatable* GetParamValueAnim();

class IParamBlock2 : public ReferenceTarget, public IRefSlotCheck {
 public:
  ~IParamBlock2() override;

  SClass_ID SuperClassID() override { return PARAMETER_BLOCK2_CLASS_ID; }
  Class_ID ClassID() override { return Class_ID(0x00000082, 0); }
  void GetClassName(MSTR& s, bool localized = true) const override { s = "ParamBlock2"; }

  ParamBlockDesc2* GetDesc() const { return desc_; }
  BlockID ID() const { return desc_->ID; }
  /// The object that made the block (and whose accessors are told); null once it is freed.
  ReferenceMaker* GetOwner() const;
  void SetOwner(ReferenceMaker* owner);
  int NumParams() const { return desc_->Count(); }
  ParamID IndextoID(int i) const { return desc_->IndextoID(i); }
  int IDtoIndex(ParamID id) const { return desc_->IDtoIndex(id); }
  /// The type of parameter id (with the table bit), or -1.
  ParamType2 GetParameterType(ParamID id) const;

  // Typed reads: the value, or the parameter's default on a bad read.
  int GetInt(ParamID id, TimeValue t = 0, int tab_index = 0);
  float GetFloat(ParamID id, TimeValue t = 0, int tab_index = 0);
  TimeValue GetTimeValue(ParamID id, TimeValue t = 0, int tab_index = 0);
  Point3 GetPoint3(ParamID id, TimeValue t = 0, int tab_index = 0);
  Color GetColor(ParamID id, TimeValue t = 0, int tab_index = 0);
  Point4 GetPoint4(ParamID id, TimeValue t = 0, int tab_index = 0);
  AColor GetAColor(ParamID id, TimeValue t = 0, int tab_index = 0);
  Matrix3 GetMatrix3(ParamID id, TimeValue t = 0, int tab_index = 0);
  /// Never null: "" for an empty or missing string.
  const char* GetStr(ParamID id, TimeValue t = 0, int tab_index = 0);
  INode* GetINode(ParamID id, TimeValue t = 0, int tab_index = 0);
  /// The target of a reference-target or node parameter.
  ReferenceTarget* GetReferenceTarget(ParamID id, TimeValue t = 0, int tab_index = 0);

  // Reads that narrow valid; false (output untouched) on a bad read.
  bool GetValue(ParamID id, TimeValue t, int& v, Interval& valid, int tab_index = 0);
  bool GetValue(ParamID id, TimeValue t, bool& v, Interval& valid, int tab_index = 0);
  bool GetValue(ParamID id, TimeValue t, float& v, Interval& valid, int tab_index = 0);
  bool GetValue(ParamID id, TimeValue t, Point3& v, Interval& valid, int tab_index = 0);
  bool GetValue(ParamID id, TimeValue t, Color& v, Interval& valid, int tab_index = 0);
  bool GetValue(ParamID id, TimeValue t, Point4& v, Interval& valid, int tab_index = 0);
  bool GetValue(ParamID id, TimeValue t, AColor& v, Interval& valid, int tab_index = 0);
  bool GetValue(ParamID id, TimeValue t, Matrix3& v, Interval& valid, int tab_index = 0);
  bool GetValue(ParamID id, TimeValue t, const char*& v, Interval& valid, int tab_index = 0);
  bool GetValue(ParamID id, TimeValue t, INode*& v, Interval& valid, int tab_index = 0);
  bool GetValue(ParamID id, TimeValue t, ReferenceTarget*& v, Interval& valid, int tab_index = 0);
  /// Any kind: v becomes a value of the parameter's type.
  bool GetValue(ParamID id, TimeValue t, PB2Value& v, Interval& valid, int tab_index = 0);

  // Writes; false when nothing was written (bad id, kind or index, refused by the validator,
  // or a reference that would close a loop).
  bool SetValue(ParamID id, TimeValue t, int v, int tab_index = 0);
  bool SetValue(ParamID id, TimeValue t, bool v, int tab_index = 0);
  bool SetValue(ParamID id, TimeValue t, float v, int tab_index = 0);
  bool SetValue(ParamID id, TimeValue t, const Point3& v, int tab_index = 0);
  bool SetValue(ParamID id, TimeValue t, const Color& v, int tab_index = 0);
  bool SetValue(ParamID id, TimeValue t, const Point4& v, int tab_index = 0);
  bool SetValue(ParamID id, TimeValue t, const AColor& v, int tab_index = 0);
  bool SetValue(ParamID id, TimeValue t, const Matrix3& v, int tab_index = 0);
  /// Null writes "".
  bool SetValue(ParamID id, TimeValue t, const char* v, int tab_index = 0);
  bool SetValue(ParamID id, TimeValue t, const MSTR& v, int tab_index = 0);
  bool SetValue(ParamID id, TimeValue t, INode* v, int tab_index = 0);
  /// A node parameter takes only nodes (or null).
  bool SetValue(ParamID id, TimeValue t, ReferenceTarget* v, int tab_index = 0);
  /// Any kind; v's kind must be the parameter's.
  bool SetValue(ParamID id, TimeValue t, const PB2Value& v, int tab_index = 0);

  // Tables. Each change calls PBAccessor::TabChanged. Values inserted are clamped to the range
  // but not validated; null `values` inserts defaults. Every call on a plain parameter, and
  // every index out of range, changes nothing.
  /// Entry count of a table parameter; 1 for a plain one, 0 for an unknown id.
  int Count(ParamID id);
  /// Grows with defaults or shrinks from the end; false on a bad id or a negative count.
  bool SetCount(ParamID id, int n);
  bool ZeroCount(ParamID id) { return SetCount(id, 0); }
  /// Reserves room for n entries; changes nothing visible.
  bool Resize(ParamID id, int n);
  /// Appends num entries; answers the index of the first, or -1.
  template <typename T>
  int Append(ParamID id, int num, const T* values, int alloc_extra = 0) {
    return InsertTyped(id, Count(id), num, values, tab_append);
  }
  /// Inserts num entries before index at (0..Count); answers at, or -1.
  template <typename T>
  int Insert(ParamID id, int at, int num, const T* values) {
    return InsertTyped(id, at, num, values, tab_insert);
  }
  /// Deletes up to num entries from start; answers the new count, or -1 on a bad id.
  int Delete(ParamID id, int start, int num);

  // Controllers of animatable parameters.
  /// The controller of the entry, or null.
  Control* GetController(ParamID id, int tab_index = 0);
  /// Puts c (null removes) on an animatable parameter. c must be of the parameter's controller
  /// kind: CTRL_FLOAT_CLASS_ID for float kinds, CTRL_POINT3_CLASS_ID for Point3 kinds,
  /// CTRL_POINT4_CLASS_ID for Point4 kinds. With preserve_value the new controller first takes
  /// the parameter's present value at the current time (animate mode suspended). A removed
  /// controller leaves its value at the current time as the stored value. False when refused.
  bool SetController(ParamID id, int tab_index, Control* c, bool preserve_value = true);

  // Messages.
  /// The parameter of the last change message, -1 after undo, redo or ResetAll.
  ParamID LastNotifyParamID() const { return last_notify_id_; }
  ParamID LastNotifyParamID(int& tab_index) const {
    tab_index = last_notify_tab_;
    return last_notify_id_;
  }
  /// While off, changes send no REFMSG_CHANGE and change messages of targets stop here.
  void EnableNotifications(bool on) { notifications_ = on; }
  bool NotificationsEnabled() const { return notifications_; }

  /// Puts parameter id back to its state in a new block: default value (zero with P_NO_INIT),
  /// no controller, the table at its initial size. Undoable; calls the accessor's Set or
  /// TabChanged(tab_setcount). False on a bad id.
  bool Reset(ParamID id);
  /// Reset of every parameter, with one change message (LastNotifyParamID() == -1).
  void ResetAll();

  // Sub-anims.
  int NumSubs() override { return anim_base_.back(); }
  Animatable* SubAnim(int i) override;
  /// The parameter's label (else script name); table entries add their 1-based number.
  MSTR SubAnimName(int i, bool localized = true) override;
  /// By the parameter's type: angles in degrees, fractions as percentages, world units as they
  /// are.
  ParamDimension* GetParamDimension(int i) override;
  bool CanAssignController(int sub_anim) override;
  /// SetController of the sub-anim's entry; a controller it replaces is first copied into it
  /// (Control::Copy).
  bool AssignController(Animatable* control, int sub_anim) override;
  int SubNumToRefNum(int sub_num) override;
  /// The parameter of sub-anim anim_num, or -1; tab_index becomes the entry of a table
  /// parameter, -1 for a plain one.
  ParamID AnimNumToParamID(int anim_num, int& tab_index) const;
  /// The sub-anim number of an entry, or -1 when it is not a sub-anim.
  int GetAnimNum(ParamID id, int tab_index = 0) const;

  // References.
  int NumRefs() override { return ref_base_.back(); }
  RefTargetHandle GetReference(int i) override;
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  /// A block of the same descriptor with the same values; controllers and reference targets are
  /// cloned through remap, nodes are kept or, after Backpatch, mapped to their clones. The clone's
  /// owner becomes the clone of this block's owner at Backpatch (null until then).
  RefTargetHandle Clone(RemapDir& remap) override;

  /// Writes the block as flat chunks, little-endian:
  ///
  ///   0x0001 header, 20 bytes: block id (i32), descriptor version (i32, 0 without P_VERSION),
  ///          owner class: super class (u32), Class_ID part A (u32), part B (u32); zeros when the
  ///          descriptor has no class
  ///   0x0002 one per parameter in table order, P_TRANSIENT ones left out: id (i32), type with
  ///          the table bit (i32), entry count (i32, 1 for a plain parameter), then per entry:
  ///            int kinds 4 bytes (i32), float kinds 4 bytes (f32), Point3 kinds 12, Point4
  ///            kinds 16, TYPE_MATRIX3 52 (the Matrix3 file form), strings a byte count (u32)
  ///            and that many bytes of UTF-8 text without a terminator;
  ///            nodes and targets the block references: nothing, since they are references of
  ///            the block that the scene file links again;
  ///            P_NO_REF nodes and targets: the target's scene number (i32, ISave::GetRefID; -1
  ///            for none or when no scene is being saved).
  ///          An animatable entry writes its stored value; its controller is a reference.
  ///
  /// Saving the same state gives the same bytes.
  IOResult Save(ISave* isave) override;
  /// Reads what Save wrote. The header comes first; a block made for loading takes the
  /// descriptor found through the class directory, any other block must have the block id of
  /// the file. Every parameter starts at its default (tables at their initial size, entries
  /// without references), then each parameter chunk replaces its parameter. A parameter id the
  /// descriptor does not know, or one whose kind or table form differ from the descriptor's, is
  /// skipped (the latter logged); P_TRANSIENT parameters keep their default. P_NO_REF targets
  /// come back through ILoad::RecordBackpatch: outside a scene load they read null. Accessors
  /// are not called and nothing is recorded for undo.
  ///
  /// IO_ERROR, with a "Marvolith: ..." line, for damaged data: no header first, a chunk of the
  /// wrong size, a negative count, a plain parameter with a count other than 1, a table of over
  /// kMaxLoadedEntries entries, or an owner class and block id that name no known descriptor.
  /// The block is then left with defaults, never half-read values of a parameter.
  IOResult Load(ILoad* iload) override;
  /// Most entries a table parameter may have in a file.
  static constexpr int kMaxLoadedEntries = 1 << 16;

  void* GetInterface(ULONG id) override;
  using ReferenceTarget::GetInterface;
  /// IRefSlotCheck: a controller slot takes a controller of the parameter's kind, a node slot a
  /// node, a reference-target slot any target.
  bool CanReferenceAt(int i, ReferenceTarget* target) override;
  /// Every slot change of a block is followed by its own message naming the parameter.
  bool TellsItsOwnSlotChanges() override { return true; }

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  friend IParamBlock2* CreateParameterBlock2(ParamBlockDesc2* desc, ReferenceMaker* owner);
  friend class ParamBlockRestore;
  friend class ParamBlockPostPatch;
  friend class ParamBlockLoadPatch;
  friend class ParamBlock2ClassDesc;

  struct Entry {
    PBStoredValue value;
    Control* control = nullptr;  // animatable parameters only; a reference
  };
  using State = std::vector<std::vector<Entry>>;  // entries per parameter, in table order

  IParamBlock2(ParamBlockDesc2* desc, ReferenceMaker* owner);

  const ParamDef* Def(int param_index) const { return desc_->GetParamDefByIndex(param_index); }
  // Parameter index of id with kind checked against want (kNone: any); -1, logged, when bad.
  int Find(ParamID id, PBKind want) const;
  // Entry of tab_index in parameter pi (0 for plain ones), or -1.
  int EntryIndex(int pi, int tab_index) const;
  bool Read(ParamID id, TimeValue t, PB2Value& v, Interval& valid, int tab_index, PBKind want);
  PB2Value ReadOrDefault(ParamID id, TimeValue t, int tab_index, PBKind want);
  bool Write(ParamID id, TimeValue t, PB2Value v, int tab_index);
  PB2Value StoredAsValue(int pi, const Entry& e) const;
  // After undo or redo replaced the state: the accessors hear what changed against previous.
  void TellAccessors(const State& previous);
  PBStoredValue ValueAsStored(int pi, const PB2Value& v) const;
  // v re-tagged as parameter pi's type; false when the kinds differ.
  bool Retag(int pi, const PB2Value& v, PB2Value& out) const;
  PB2Value CurrentValue(int pi, int e);
  Entry NewEntry(int pi) const;

  template <typename T>
  int InsertTyped(ParamID id, int at, int num, const T* values, tab_changes code);
  int InsertValues(ParamID id, int at, int num, const PB2Value* values, tab_changes code);
  bool ShrinkTo(int pi, int count, int start, tab_changes code);
  void ResetParam(int pi);
  void CallTabChanged(int pi, tab_changes code, int tab_index, int count);

  bool AnimateWrite(int pi, int e, TimeValue t, const PB2Value& v);
  void DropTarget(ReferenceTarget* target);

  // References: slot of entry e of parameter pi, and the reverse.
  int RefSlot(int pi, int e) const { return ref_base_[static_cast<size_t>(pi)] + e; }
  bool SlotToEntry(int slot, int& pi, int& e) const;
  bool ReplaceSlot(int slot, ReferenceTarget* target);
  void RebuildMaps();
  void HoldState();
  void ApplyState(const State& state);
  void NotifyChanged(ParamID id, int tab_index);
  ParamID ParamOfTarget(ReferenceTarget* target, int& tab_index) const;

  ParamBlockDesc2* desc_;
  AnimHandle owner_ = 0;
  State params_;
  std::vector<int> ref_base_{0};   // first reference slot per parameter, plus the total
  std::vector<int> anim_base_{0};  // first sub-anim number per parameter, plus the total
  ParamID last_notify_id_ = -1;
  int last_notify_tab_ = 0;
  bool notifications_ = true;

  // P_NO_REF targets are watched, not referenced: their changes reach the block's dependents as
  // a change of the parameter that holds them, without the owner depending on them.
  class WeakWatch;
  friend class WeakWatch;
  void WatchWeakTargets();
  ParamID ParamOfWeakTarget(ReferenceTarget* target, int& tab_index) const;
  std::unique_ptr<WeakWatch> weak_watch_;
};

/// Makes a block for desc owned by owner, every parameter at its default and every table at its
/// initial size. The caller puts it in a reference of owner. Null when desc is null.
IParamBlock2* CreateParameterBlock2(ParamBlockDesc2* desc, ReferenceMaker* owner);

/// Registers the class of parameter blocks (PARAMETER_BLOCK2_CLASS_ID, (0x82, 0)) in the class
/// directory, so that scene files can make blocks to load. Its Create(true) makes a block
/// without a descriptor that only Load can fill; Create(false) answers null. Later calls do
/// nothing.
void RegisterParamBlockClasses();

// ---------------------------------------------------------------------------------------------
// Table inserts of typed arrays.

namespace pb2_detail {
inline bool Put(PB2Value& v, int x) { return v.SetInt(x); }
inline bool Put(PB2Value& v, bool x) { return v.SetBool(x); }
inline bool Put(PB2Value& v, float x) { return v.SetFloat(x); }
inline bool Put(PB2Value& v, const Point3& x) { return v.SetPoint3(x); }
inline bool Put(PB2Value& v, const Color& x) { return v.SetColor(x); }
inline bool Put(PB2Value& v, const Point4& x) { return v.SetPoint4(x); }
inline bool Put(PB2Value& v, const AColor& x) { return v.SetAColor(x); }
inline bool Put(PB2Value& v, const Matrix3& x) { return v.SetMatrix3(x); }
inline bool Put(PB2Value& v, const char* x) { return v.SetStr(x); }
inline bool Put(PB2Value& v, const MSTR& x) { return v.SetStr(x.c_str()); }
inline bool Put(PB2Value& v, INode* x) { return v.SetINode(x); }
inline bool Put(PB2Value& v, ReferenceTarget* x) { return v.SetReferenceTarget(x); }
inline bool Put(PB2Value& v, const PB2Value& x) {
  if (x.Kind() != v.Kind()) return false;
  v = x;
  return true;
}
}  // namespace pb2_detail

template <typename T>
int IParamBlock2::InsertTyped(ParamID id, int at, int num, const T* values, tab_changes code) {
  const ParamType2 type = GetParameterType(id);
  if (!values || num <= 0 || type < 0) return InsertValues(id, at, num, nullptr, code);
  std::vector<PB2Value> converted(static_cast<size_t>(num), PB2Value(type));
  for (int i = 0; i < num; ++i) {
    if (!pb2_detail::Put(converted[static_cast<size_t>(i)], values[i])) {
      LogLine("Marvolith: a parameter table was given values of another kind.\n");
      return -1;
    }
  }
  return InsertValues(id, at, num, converted.data(), code);
}
