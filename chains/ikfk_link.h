// Copyright Marvolith contributors.
// IKFKLink, the keyed parent space of an IKFK goal, goal parent or target: at each link's start
// time the node is re-parented to another node (or the world) without a jump. Also the helper
// that keeps a node in place while its parent matrix changes.
#pragma once

#include "host/controllers/std_control.h"
#include "host/io/chunk_io.h"
#include "host/math/matrix3.h"
#include "host/params/iparamb2.h"
#include "host/script/fp_interface.h"
#include "plugin/class_table.h"

class INode;
class ClassDesc2;

namespace marvolith {

/// Id of IIKFKLink; the same pair as IKFKLink's Class_ID.
inline constexpr Interface_ID IIKFKLINK_ID(0x45596d56, 0x1e847b63);

/// Parameters of IKFKLink's block "params" (block id 0, reference 0). The three tabs are kept
/// the same size, one entry per link, in ascending start time.
enum IKFKLinkParam : ParamID {
  kLinkTargets = 0,     ///< INode tab: the target of each link; null is the world
  kLinkStartTimes = 1,  ///< TimeValue tab: when each link starts
  kLinkKeySel = 2,      ///< bool tab: key selection of each link in the track view
};
inline constexpr BlockID kIKFKLinkParams = 0;

/// Function ids of IIKFKLink.
enum IKFKLinkFunction : FunctionID {
  kLinkGetNumTargets = 0,
  kLinkGetNode = 1,
  kLinkGetFrameNo = 2,
  kLinkSetFrameNo = 3,
  kLinkAddTarget = 4,
  kLinkDeleteTarget = 5,
  kLinkAddWorld = 6,
};

/// The published interface of IKFKLink ("interface"). Link indices are 0-based here. Script
/// passes the `targetNumber` arguments (index type) 1-based; GetNode's `nodeNumber` and
/// AddWorld's answer are plain ints and reach script unchanged, 0-based. Out-of-range indices
/// answer false, 0 or null and change nothing. Each change is one undoable step ("IKFK Link
/// Change" unless a hold is open); with keep_tm the owner node (the node whose transform
/// controller holds the link, found through dependents) keeps its world transform at the frame
/// of the change (the new start frame; a deleted link's start).
class IIKFKLink : public FPMixinInterface {
 public:
  FPInterfaceDesc* GetDesc() override;

  /// Number of links; 0 when the tabs disagree in size.
  virtual int GetNumTargets() = 0;
  /// Target of link `index`; null for the world or an index out of range.
  virtual INode* GetNode(int index) = 0;
  /// Start frame of link `index` (start time over ticks per frame, rounded down); 0 when out
  /// of range.
  virtual int GetFrameNo(int index) = 0;
  /// Moves link `index` to start at frame_no, keeping the links in time order and the owner in
  /// place. False when out of range.
  virtual bool SetFrameNo(int index, int frame_no) = 0;
  /// Adds a link to target (null: the world) starting at frame_no. False when the target would
  /// make a dependency loop.
  virtual bool AddTarget(INode* target, int frame_no, bool keep_tm = true) = 0;
  /// Removes link `index`. False when out of range.
  virtual bool DeleteTarget(int index, bool keep_tm = true) = 0;
  /// Adds a world link at frame_no; answers its index (0-based), or -1 when nothing was added.
  virtual int AddWorld(int frame_no, bool keep_tm = true) = 0;

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
};

/// The float "IKFK Link". Each link i has a target node N (null: the world) and a start time.
/// The active link at t is the last one starting at or before t (link 0 before the first
/// start). Its matrix is Offset(i) * TM(N, t), where Offset(0) is the identity and
/// Offset(i) = LinkTM(i - 1, s_i) * Inverse(TM(N_i, s_i)): each switch carries the matrix of the
/// moment forward, so the owner does not jump however many links lie before. As a float track
/// its value is the index of the active link (0 with fewer than two links), so the links show
/// as keys.
class IKFKLink : public StdControl, public IIKFKLink {
 public:
  /// With loading true no block is made (the file links one).
  explicit IKFKLink(bool loading = false);

  /// val becomes the active link's matrix at t, and valid is narrowed to the active link's
  /// span (from its start up to the next link's start). False, with val and valid unchanged,
  /// when the block has no links or its target and time tabs differ in size.
  bool Evaluate(TimeValue t, Matrix3& val, Interval& valid);
  /// The matrix of link `index` at t (see the class comment), narrowing valid by the nodes
  /// read; the identity for an index out of range or an inconsistent block.
  Matrix3 LinkTM(int index, TimeValue t, Interval& valid);

  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return CTRL_FLOAT_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  void* GetInterface(ULONG id) override;
  BaseInterface* GetInterface(Interface_ID id) override;

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

  /// The index of the active link as a float (see the class comment).
  void GetValueLocalTime(TimeValue t,
                         void* val,
                         Interval& valid,
                         GetSetMethod method = CTRL_ABSOLUTE) override;
  /// The value is computed from the links: setting it does nothing.
  void SetValueLocalTime(TimeValue, void*, int = 1, GetSetMethod = CTRL_ABSOLUTE) override {}

  // Keys: the links are the keys, their start times the key times, and the key selection is the
  // block's "Key Selection" tab. Moving keys keeps each link with its target, in time order.
  int NumKeys() override { return GetNumTargets(); }
  /// Start time of link index; 0 out of range.
  TimeValue GetKeyTime(int index) override;
  /// The first link starting exactly at t, or -1.
  int GetKeyIndex(TimeValue t) override;
  bool GetNextKeyTime(TimeValue t, DWORD flags, TimeValue& nt) override;
  bool IsKeyAtTime(TimeValue t, DWORD flags) override { return GetKeyIndex(t) >= 0; }
  /// Removes the link (keeping the owner in place, as DeleteTarget); undoable.
  void DeleteKeyByIndex(int index) override;
  /// With TRACK_DOALL every link, else the selected ones; undoable.
  void DeleteKeys(DWORD flags) override;
  void DeleteKeyAtTime(TimeValue t) override;
  void SelectKeyByIndex(int index, bool select) override;
  bool IsKeySelected(int index) override;
  int NumSelKeys() override;
  /// Moves the start times (all with TRACK_DOALL, else the selected ones) through map, then
  /// restores the time order; undoable.
  void MapKeys(TimeMap* map, DWORD flags) override;
  /// First to last start time (selected ones only with TIMERANGE_SELONLY); NEVER without links.
  Interval GetTimeRange(DWORD flags) override;
  int GetKeyTimes(Tab<TimeValue>& times, Interval range, DWORD flags) override;
  bool IsAnimated() override { return GetNumTargets() > 1; }

  RefTargetHandle Clone(RemapDir& remap) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

  // IIKFKLink.
  int GetNumTargets() override;
  INode* GetNode(int index) override;
  int GetFrameNo(int index) override;
  bool SetFrameNo(int index, int frame_no) override;
  bool AddTarget(INode* target, int frame_no, bool keep_tm = true) override;
  bool DeleteTarget(int index, bool keep_tm = true) override;
  int AddWorld(int frame_no, bool keep_tm = true) override;

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  IParamBlock2* pblock_ = nullptr;
};

/// Keeps node n where it is at t while its parent matrix changes from old_parent to
/// new_parent: with animation off, the node's transform controller reads its value at t under
/// old_parent and is offered ChangeParents; when it declines, it gets an XFORM_SET packet of
/// that value under new_parent. Does nothing for a null node or one without a controller.
void KeepNodeInPlace(INode* n, TimeValue t, const Matrix3& old_parent, const Matrix3& new_parent);

/// The class descriptor (module table index 32).
ClassDesc2* GetIKFKLinkDesc();

}  // namespace marvolith
