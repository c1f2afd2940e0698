// Copyright Marvolith contributors.
// RigSystem: the helper a rigger drops into the scene to design a rig before it exists. It owns
// the parameter block (what creature, what counts), the template points regenerated from it
// (user edits kept by name) and the user's extra chains, and publishes IRigSystem.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/core/weak_ref.h"
#include "host/gfx/create_mouse_callback.h"
#include "host/math/box3.h"
#include "host/params/iparamb2.h"
#include "host/scene/object.h"
#include "host/script/fp_interface.h"
#include "plugin/class_table.h"
#include "rig/rig_params.h"
#include "rig/rig_template.h"

class ViewExp;

namespace marvolith {

/// Published interface id of IRigSystem.
inline constexpr Interface_ID IRIGSYSTEM_ID(0x45596d57, 0x1e847b41);
/// The block "params".
inline constexpr BlockID kRigParams = 0;

/// Function ids of IRigSystem. CreateRig (0) and ResetRig (1) belong to the build pipeline and
/// are not published yet.
enum RigSystemFunction : FunctionID {
  kRigFnGetPointPos = 2,
  kRigFnSetPointPos = 3,
  kRigFnLoad = 6,
  kRigFnLoadDlg = 7,
  kRigFnSave = 8,
  kRigFnSaveDlg = 9,
  kRigFnGetNumExtras = 10,
  kRigFnAddExtra = 11,
  kRigFnRemoveExtra = 12,
  kRigFnGetExtraName = 13,
  kRigFnSetExtraName = 14,
  kRigFnGetExtraParent = 15,
  kRigFnSetExtraParent = 16,
  kRigFnGetExtraSide = 17,
  kRigFnSetExtraSide = 18,
  kRigFnGetExtraNumControls = 19,
  kRigFnSetExtraNumControls = 20,
  kRigFnGetExtraNumBones = 21,
  kRigFnSetExtraNumBones = 22,
  kRigFnGetPointParent = 25,
};
/// Enumeration ids of IRigSystem's table: the extra's side (-1..3).
inline constexpr EnumID kRigSideEnum = 0;

/// The .rig file dialogs of the interactive front end: history list key, titles and filter.
/// The headless host has no dialog (LoadDlg and SaveDlg answer false, as a cancelled one).
inline constexpr const char* kRigFileHistoryKey = "RigSystemHistory";
inline constexpr const char* kRigLoadDialogTitle = "Load Rig Template File";
inline constexpr const char* kRigSaveDialogTitle = "Save Rig Template File";
inline constexpr const char* kRigFileFilter = "Rig Template Files (*.rig)";
inline constexpr const char* kRigFilePattern = "*.rig";

/// Bit of RigExtra::flags: the chain has bones of its own count.
inline constexpr std::uint32_t kExtraUseBones = 1u << 3;

/// One user appendage: a chain of points hanging from a template point.
struct RigExtra {
  std::string name;
  /// The name of the template point it hangs from.
  std::string parent;
  /// The previous name while a rename is applied.
  std::string previous_name;
  /// RigSide: -1 none, 0 right, 1 left, 2 both, 3 center.
  int side = kSideNone;
  /// Number of controls minus one.
  int num_controls = 0;
  int num_bones = 2;
  std::uint32_t flags = 0;

  bool UseBones() const { return (flags & kExtraUseBones) != 0; }
  bool operator==(const RigExtra&) const = default;
};

/// The published interface "interface" of RigSystem. Indices of extras are 0-based here and
/// 1-based in script; a bad one raises the host's Tab out-of-range exception. Point queries
/// compose the name with ComposePointName and answer the empty result for an unknown point.
class IRigSystem : public FPMixinInterface, public WeakRefOwner {
 public:
  IRigSystem() : WeakRefOwner(0) {}

  /// Position in rig units; the origin when the point doesn't exist.
  virtual Point3 GetPointPos(const std::string& name, int side, int index, int sub_index) = 0;
  /// Undoable; derived points follow. Nothing for an unknown point.
  virtual void SetPointPos(
      const std::string& name, Point3 pos, int side, int index, int sub_index) = 0;
  /// The parent's name; empty without parent or point.
  virtual std::string GetPointParent(const std::string& name,
                                     int side,
                                     int index,
                                     int sub_index) = 0;

  /// .rig files: false with nothing changed when the file can't be read or written.
  virtual bool Load(const std::string& file_name) = 0;
  virtual bool LoadDlg() = 0;
  virtual bool Save(const std::string& file_name) = 0;
  virtual bool SaveDlg() = 0;

  virtual int GetNumExtras() = 0;
  virtual bool AddExtra(const std::string& name,
                        const std::string& parent,
                        int side,
                        int num_controls,
                        int num_bones,
                        bool use_bones) = 0;
  virtual bool RemoveExtra(int index) = 0;
  virtual std::string GetExtraName(int index) = 0;
  virtual void SetExtraName(int index, const std::string& name) = 0;
  virtual std::string GetExtraParent(int index) = 0;
  virtual void SetExtraParent(int index, const std::string& parent) = 0;
  virtual int GetExtraSide(int index) = 0;
  virtual void SetExtraSide(int index, int side) = 0;
  /// The number of controls (the stored value plus one).
  virtual int GetExtraNumControls(int index) = 0;
  virtual void SetExtraNumControls(int index, int num_bones) = 0;
  virtual int GetExtraNumBones(int index) = 0;
  virtual void SetExtraNumBones(int index, int num_bones) = 0;

  FPInterfaceDesc* GetDesc() override;

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
};

/// The rig template helper (class name "Rig", HELPER_CLASS_ID). Reference 0 and sub-anim 0 are
/// the block. The template is regenerated whenever a structural parameter changes, after a
/// load and after an extra changes.
class RigSystem : public HelperObject, public IRigSystem {
 public:
  /// With loading true the block is not made: the scene file links the loaded one.
  explicit RigSystem(bool loading = false);
  ~RigSystem() override;

  Class_ID ClassID() override;
  void GetClassName(MSTR& s, bool localized = true) const override;
  BaseInterface* GetInterface(Interface_ID id) override;
  using HelperObject::GetInterface;

  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock_ : nullptr; }
  int NumSubs() override { return 1; }
  Animatable* SubAnim(int i) override { return i == 0 ? pblock_ : nullptr; }
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int sub_num) override { return sub_num == 0 ? 0 : -1; }
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  RefTargetHandle Clone(RemapDir& remap) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;
  CreateMouseCallBack* GetCreateMouseCallBack() override;

  ObjectState Eval(TimeValue t) override;
  Interval ObjectValidity(TimeValue t) override { return FOREVER; }
  /// Draws the template (points, bone previews, lines) for inode into vpt.
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override;
  void GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;
  void GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;
  /// The object open in the Modify panel selects a component's points when
  /// `selected_component` is set.
  void BeginEditParams(IObjParam* ip, ULONG flags, Animatable* prev) override;
  void EndEditParams(IObjParam* ip, ULONG flags, Animatable* next) override;
  bool IsEditing() const { return editing_; }
  /// Rig units to world at t: ScaleMatrix(helper_size) * the node's object TM (identity without
  /// a node).
  Matrix3 RigToWorld(TimeValue t, INode* inode);
  /// The creation rule on a construction-plane point p (what the creation callback does after
  /// mapping the cursor): press 0 places the object with size 0 and a random hue for its node,
  /// moves set `helper_size` to the distance, the second press ends (CREATE_STOP).
  int CreationPoint(int msg, int point, const Point3& p, Matrix3& mat);

  // IRigSystem.
  Point3 GetPointPos(const std::string& name, int side, int index, int sub_index) override;
  void SetPointPos(
      const std::string& name, Point3 pos, int side, int index, int sub_index) override;
  std::string GetPointParent(const std::string& name, int side, int index, int sub_index) override;
  bool Load(const std::string& file_name) override;
  bool LoadDlg() override;
  bool Save(const std::string& file_name) override;
  bool SaveDlg() override;
  int GetNumExtras() override { return static_cast<int>(extras_.size()); }
  bool AddExtra(const std::string& name,
                const std::string& parent,
                int side,
                int num_controls,
                int num_bones,
                bool use_bones) override;
  bool RemoveExtra(int index) override;
  std::string GetExtraName(int index) override;
  void SetExtraName(int index, const std::string& name) override;
  std::string GetExtraParent(int index) override;
  void SetExtraParent(int index, const std::string& parent) override;
  int GetExtraSide(int index) override;
  void SetExtraSide(int index, int side) override;
  int GetExtraNumControls(int index) override;
  void SetExtraNumControls(int index, int num_bones) override;
  int GetExtraNumBones(int index) override;
  void SetExtraNumBones(int index, int num_bones) override;

  /// The block; null for an object made for loading until its file is linked.
  IParamBlock2* ParamBlock() const { return pblock_; }
  const RigTemplate& Template() const { return template_; }
  RigTemplate& Template() { return template_; }
  const std::vector<RigExtra>& Extras() const { return extras_; }
  /// The block's int and bool values (the defaults without a block).
  RigParamValues ReadParams() const;

  /// Rebuilds the template from the block and the extras (a missing block leaves it empty);
  /// with forget_previous (a type change) user edits are dropped.
  void RegenerateTemplate(bool forget_previous = false);
  /// Told by the block's accessor after parameter id was set: presets on a type change, then a
  /// regeneration when id is structural.
  void ParamChanged(ParamID id);
  /// Writes the presets of type (arm and leg pairs, tails, ponytails, fangs, fingers and finger
  /// bones) without regenerating; the type's own store regenerates.
  void ApplyTypePreset(int type);
  /// Tells the dependents (the node, the viewport) that the template changed.
  void TemplateChanged();

  /// Puts the extras back as they were (undo and redo of the extra records); regenerates.
  void RestoreExtras(const std::vector<RigExtra>& extras);
  /// Puts the points' positions and selection back (undo and redo of point edits).
  void RestorePoints(const std::vector<RigPoint>& points);

  /// Selects the points of component (hidden ones skipped) and deselects the others, as setting
  /// `selected_component` does for the object open in the Modify panel.
  void SelectComponent(int component);
  /// The reverse: the component of the last selected point, or -1, written to
  /// `selected_component` with the accessor suppressed.
  void SelectionChanged();

 private:
  void SetReference(int i, RefTargetHandle target) override;
  // Appends the chains of the extras (inside a regeneration).
  void AddExtraPoints(bool keep_previous);
  // Inserts extra in the parents-first order and answers its index.
  int InsertExtraSorted(const RigExtra& extra);
  bool ExtraNameTaken(const std::string& name, int except) const;
  std::string DefaultExtraName() const;
  const RigExtra& ExtraAt(int index) const;
  // Applies edit to extra index under an ExtraRestore, then regenerates.
  template <typename F>
  void EditExtra(int index, F&& edit);

  IParamBlock2* pblock_ = nullptr;
  // Set while the object writes parameters of its own (presets, a template load).
  bool suppress_regeneration_ = false;
  bool editing_ = false;
  RigTemplate template_;
  std::vector<RigExtra> extras_;
  RigParamValues previous_values_;
  // World bounds of the points and their cache key.
  Box3 world_bounds_;
  Matrix3 bounds_tm_;
  bool bounds_valid_ = false;
};

/// The template names an extra may not take (without its index suffix, lower-cased): the role
/// vocabulary of the builder. The candidate alone is lowered, so the mixed-case words never
/// match.
bool IsReservedRigName(const std::string& name);

/// Descriptors: the non-public helper and the public system; both create RigSystem.
ClassDesc2* GetRigDesc();
ClassDesc2* GetRigSystemDesc();

}  // namespace marvolith
