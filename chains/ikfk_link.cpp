// Copyright Marvolith contributors.
#include "chains/ikfk_link.h"

#include <algorithm>
#include <vector>

#include "controllers/node_space.h"
#include "host/core/clock.h"
#include "host/params/iparamb2.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"

namespace marvolith {
namespace {

class IKFKLinkClassDesc : public MarvolithClassDesc {
 public:
  IKFKLinkClassDesc() : MarvolithClassDesc(ClassIndex::IKFKLink) {}
  Animatable* Create(bool loading) override { return new IKFKLink(loading); }
};

// Turns changes of the key selection into the key selection message, so that key views
// showing the links as keys redraw their marks.
class LinkKeyAccessor : public PBAccessor {
 public:
  void Set(PB2Value&, ReferenceMaker* owner, ParamID id, int, TimeValue) override {
    if (id != kLinkKeySel) return;
    if (auto* link = dynamic_cast<IKFKLink*>(owner)) {
      link->NotifyDependents(FOREVER, PART_ALL, REFMSG_KEY_SELECTION_CHANGED);
    }
  }
};

// Built at module load in this order: descriptor, accessor, block, interface.
IKFKLinkClassDesc link_cd;
LinkKeyAccessor link_accessor;
ParamBlockDesc2 link_pb{kIKFKLinkParams,
                        "params",
                        0,
                        &link_cd,
                        P_AUTO_CONSTRUCT,
                        0,
                        {
                            ParamDef(kLinkTargets, "", TYPE_INODE_TAB, P_VARIABLE_SIZE)
                                .TabSize(0)
                                .Accessor(&link_accessor)
                                .Validator(&GetNodeLoopValidator())
                                .Label("Target List"),
                            ParamDef(kLinkStartTimes, "", TYPE_TIMEVALUE_TAB, P_VARIABLE_SIZE)
                                .TabSize(0)
                                .Accessor(&link_accessor)
                                .Label("Start Time"),
                            ParamDef(kLinkKeySel, "", TYPE_BOOL_TAB, P_VARIABLE_SIZE)
                                .TabSize(0)
                                .Default(false)
                                .Accessor(&link_accessor)
                                .Label("Key Selection"),
                        }};

using enum FPType;
FPInterfaceDesc link_fp{
    IIKFKLINK_ID,
    "interface",
    FP_MIXIN,
    &link_cd,
    {
        FPFunctionDef(kLinkGetNumTargets, "GetNumTargets", TYPE_INT),
        FPFunctionDef(kLinkGetNode, "GetNode", TYPE_INODE, {FPArg("nodeNumber", TYPE_INT)}),
        FPFunctionDef(kLinkGetFrameNo, "GetFrameNo", TYPE_INT, {FPArg("targetNumber", TYPE_INDEX)}),
        FPFunctionDef(kLinkSetFrameNo,
                      "SetFrameNo",
                      TYPE_BOOL,
                      {FPArg("targetNumber", TYPE_INDEX), FPArg("frameNo", TYPE_INT)}),
        FPFunctionDef(kLinkAddTarget,
                      "AddTarget",
                      TYPE_BOOL,
                      {FPArg("target", TYPE_INODE), FPArg("frameNo", TYPE_INT),
                       FPArg("keepTM", TYPE_BOOL).Default(true)}),
        FPFunctionDef(
            kLinkDeleteTarget,
            "DeleteTarget",
            TYPE_BOOL,
            {FPArg("targetNumber", TYPE_INDEX), FPArg("keepTM", TYPE_BOOL).Default(true)}),
        FPFunctionDef(kLinkAddWorld,
                      "AddWorld",
                      TYPE_INT,
                      {FPArg("frameNo", TYPE_INT), FPArg("keepTM", TYPE_BOOL).Default(true)}),
    }};

constexpr const char* kUndoName = "IKFK Link Change";

// One link as the block holds it.
struct LinkEntry {
  INode* node = nullptr;
  TimeValue start = 0;
  bool selected = false;
};

Matrix3 NodeTM(INode* node, TimeValue t, Interval& valid) {
  return node ? node->GetNodeTM(t, &valid) : Matrix3();
}

// The link matrix of `index` at t over links given by entry(i) (see IKFKLink). The offsets are
// carried forward from link 0 instead of recursing, so any number of links costs no stack; they
// are read at fixed start times and do not narrow valid.
template <typename EntryFn>
Matrix3 LinkMatrix(EntryFn entry, int index, TimeValue t, Interval& valid) {
  Matrix3 offset;  // link 0 has none
  Interval ignored = FOREVER;
  for (int k = 1; k <= index; ++k) {
    const LinkEntry prev = entry(k - 1);
    const LinkEntry cur = entry(k);
    // At the switch the previous link's matrix becomes this link's offset over its node.
    const Matrix3 w = offset * NodeTM(prev.node, cur.start, ignored);
    offset = w * Inverse(NodeTM(cur.node, cur.start, ignored));
  }
  return offset * NodeTM(entry(index).node, t, valid);
}

// The active link at t of count links: the last one starting at or before t, link 0 before the
// first start.
template <typename EntryFn>
int ActiveLink(EntryFn entry, int count, TimeValue t) {
  int i = 0;
  while (i + 1 < count && entry(i + 1).start <= t) ++i;
  return i;
}

int TicksPerFrame() { return std::max(1, GetCOREInterface()->GetTicksPerFrame()); }

// A frame number in ticks, held inside the range of TimeValue for frames far out.
TimeValue FrameToTicks(int frame_no) {
  const long long t = static_cast<long long>(frame_no) * TicksPerFrame();
  return static_cast<TimeValue>(
      std::clamp<long long>(t, TIME_NegInfinity + 1, TIME_PosInfinity - 1));
}

// Runs change inside a hold of its own unless one is open already. A hold in which nothing was
// recorded leaves no undo entry.
template <typename Fn>
void InHold(Fn change) {
  const bool began = !theHold.Holding();
  if (began) theHold.Begin();
  change();
  if (began) theHold.Accept(kUndoName);
}

}  // namespace

ClassDesc2* GetIKFKLinkDesc() { return &link_cd; }

// ---------------------------------------------------------------------------------------------
// Keep-in-place helper.

void KeepNodeInPlace(INode* n, TimeValue t, const Matrix3& old_parent, const Matrix3& new_parent) {
  Control* tm = n ? n->GetTMController() : nullptr;
  if (!tm) return;
  // The fix-up is a correction of the pose, not a key.
  const bool animating = Animating();
  if (animating) AnimateOff();
  Matrix3 world = old_parent;  // a transform controller turns the parent into the world
  Interval ignored = FOREVER;
  tm->GetValue(t, &world, ignored, CTRL_RELATIVE);
  if (!tm->ChangeParents(t, old_parent, new_parent, world)) {
    SetXFormPacket pk(world, new_parent);
    tm->SetValue(t, &pk, 1, CTRL_RELATIVE);
  }
  if (animating) AnimateOn();
}

// ---------------------------------------------------------------------------------------------
// IIKFKLink

FPInterfaceDesc* IIKFKLink::GetDesc() { return &link_fp; }

FPStatus IIKFKLink::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  switch (fid) {
    case kLinkGetNumTargets:
      return FPBind(result, p, this, &IIKFKLink::GetNumTargets);
    case kLinkGetNode:
      return FPBind(result, p, this, &IIKFKLink::GetNode);
    case kLinkGetFrameNo:
      return FPBind(result, p, this, &IIKFKLink::GetFrameNo);
    case kLinkSetFrameNo:
      return FPBind(result, p, this, &IIKFKLink::SetFrameNo);
    case kLinkAddTarget:
      return FPBind(result, p, this, &IIKFKLink::AddTarget);
    case kLinkDeleteTarget:
      return FPBind(result, p, this, &IIKFKLink::DeleteTarget);
    case kLinkAddWorld:
      return FPBind(result, p, this, &IIKFKLink::AddWorld);
    default:
      return FPS_NO_SUCH_FUNCTION;
  }
}

// ---------------------------------------------------------------------------------------------
// IKFKLink: identity and references.

IKFKLink::IKFKLink(bool loading) {
  if (!loading) link_cd.MakeAutoParamBlocks(this);
}

Class_ID IKFKLink::ClassID() { return GetClassInfo(ClassIndex::IKFKLink).class_id; }

void IKFKLink::GetClassName(MSTR& s, bool) const { s = ClassNameOf(ClassIndex::IKFKLink); }

void* IKFKLink::GetInterface(ULONG id) { return StdControl::GetInterface(id); }

BaseInterface* IKFKLink::GetInterface(Interface_ID id) {
  if (id == IIKFKLINK_ID) return static_cast<IIKFKLink*>(this);
  return StdControl::GetInterface(id);
}

MSTR IKFKLink::SubAnimName(int i, bool) { return i == 0 ? MSTR("Parameters") : MSTR(); }

IParamBlock2* IKFKLink::GetParamBlockByID(BlockID id) {
  return pblock_ && pblock_->ID() == id ? pblock_ : nullptr;
}

void IKFKLink::SetReference(int i, RefTargetHandle target) {
  if (i != 0) return;
  pblock_ = target && target->SuperClassID() == PARAMETER_BLOCK2_CLASS_ID
                ? static_cast<IParamBlock2*>(target)
                : nullptr;
}

RefResult IKFKLink::NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) {
  return REF_SUCCEED;
}

RefTargetHandle IKFKLink::Clone(RemapDir& remap) {
  auto* c = new IKFKLink(true);
  c->ReplaceReference(0, remap.CloneRef(pblock_));
  BaseClone(this, c, remap);
  return c;
}

// The links live in the block (a reference); the controller has no state of its own to write.
IOResult IKFKLink::Save(ISave*) { return IO_OK; }

IOResult IKFKLink::Load(ILoad* iload) {
  return ForEachChunk(iload, [](USHORT) { return IO_OK; });  // none known: all are skipped
}

// ---------------------------------------------------------------------------------------------
// Evaluation.

int IKFKLink::GetNumTargets() {
  if (!pblock_) return 0;
  const int n = pblock_->Count(kLinkTargets);
  return n == pblock_->Count(kLinkStartTimes) ? n : 0;
}

bool IKFKLink::Evaluate(TimeValue t, Matrix3& val, Interval& valid) {
  const int count = GetNumTargets();
  if (count < 1) return false;
  auto entry = [this](int i) {
    return LinkEntry{pblock_->GetINode(kLinkTargets, 0, i),
                     pblock_->GetTimeValue(kLinkStartTimes, 0, i)};
  };
  const int i = ActiveLink(entry, count, t);
  // Link 0 also serves the times before its start.
  const TimeValue from = i == 0 ? TIME_NegInfinity : entry(i).start;
  const TimeValue to = i + 1 < count ? entry(i + 1).start - 1 : TIME_PosInfinity;
  valid &= Interval(from, std::max(from, to));
  val = LinkMatrix(entry, i, t, valid);
  return true;
}

Matrix3 IKFKLink::LinkTM(int index, TimeValue t, Interval& valid) {
  if (index < 0 || index >= GetNumTargets()) return Matrix3();
  auto entry = [this](int i) {
    return LinkEntry{pblock_->GetINode(kLinkTargets, 0, i),
                     pblock_->GetTimeValue(kLinkStartTimes, 0, i)};
  };
  return LinkMatrix(entry, index, t, valid);
}

void IKFKLink::GetValueLocalTime(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  const int count = GetNumTargets();
  float value = 0.0f;
  if (count > 1) {
    auto entry = [this](int i) {
      return LinkEntry{nullptr, pblock_->GetTimeValue(kLinkStartTimes, 0, i)};
    };
    const int i = ActiveLink(entry, count, t);
    value = static_cast<float>(i);
    const TimeValue from = i == 0 ? TIME_NegInfinity : entry(i).start;
    const TimeValue to = i + 1 < count ? entry(i + 1).start - 1 : TIME_PosInfinity;
    valid &= Interval(from, std::max(from, to));
  }
  *static_cast<float*>(val) = value;
}

// ---------------------------------------------------------------------------------------------
// Editing the links.

namespace {

std::vector<LinkEntry> ReadEntries(IParamBlock2* pb, int count) {
  std::vector<LinkEntry> entries(static_cast<size_t>(count));
  const int selected_count = pb->Count(kLinkKeySel);
  for (int i = 0; i < count; ++i) {
    auto& e = entries[static_cast<size_t>(i)];
    e.node = pb->GetINode(kLinkTargets, 0, i);
    e.start = pb->GetTimeValue(kLinkStartTimes, 0, i);
    e.selected = i < selected_count && pb->GetInt(kLinkKeySel, 0, i) != 0;
  }
  return entries;
}

// Puts entries back in place of the block's three tabs.
void WriteEntries(IParamBlock2* pb, const std::vector<LinkEntry>& entries) {
  const int n = static_cast<int>(entries.size());
  pb->SetCount(kLinkTargets, n);
  pb->SetCount(kLinkStartTimes, n);
  pb->SetCount(kLinkKeySel, n);
  for (int i = 0; i < n; ++i) {
    const auto& e = entries[static_cast<size_t>(i)];
    pb->SetValue(kLinkTargets, 0, e.node, i);
    pb->SetValue(kLinkStartTimes, 0, static_cast<int>(e.start), i);
    pb->SetValue(kLinkKeySel, 0, e.selected, i);
  }
}

// Index at which a link starting at t goes: after every link that starts at or before t.
int InsertPosition(const std::vector<LinkEntry>& entries, TimeValue t) {
  int pos = 0;
  while (pos < static_cast<int>(entries.size()) && entries[static_cast<size_t>(pos)].start <= t) {
    ++pos;
  }
  return pos;
}

// The matrix that entries give the owner at t: the active link's, or, without links, the
// owner's parent (what the holder of the link passes on when it has none).
Matrix3 ParentMatrix(const std::vector<LinkEntry>& entries, INode* owner, TimeValue t) {
  if (entries.empty()) return owner ? owner->GetParentTM(t) : Matrix3();
  auto entry = [&entries](int i) { return entries[static_cast<size_t>(i)]; };
  Interval ignored = FOREVER;
  return LinkMatrix(entry, ActiveLink(entry, static_cast<int>(entries.size()), t), t, ignored);
}

// Replaces the links of link (block pb, present links before) by after. With keep_tm the owner
// node keeps its world transform at t. The owner's controller reads its world through the
// present links, so it is moved under the new parent matrix before the links change.
void ChangeLinks(IKFKLink* link,
                 IParamBlock2* pb,
                 const std::vector<LinkEntry>& before,
                 const std::vector<LinkEntry>& after,
                 TimeValue t,
                 bool keep_tm) {
  if (INode* owner = keep_tm ? FindOwnerNode(link) : nullptr) {
    KeepNodeInPlace(owner, t, ParentMatrix(before, owner, t), ParentMatrix(after, owner, t));
  }
  WriteEntries(pb, after);
}

}  // namespace

INode* IKFKLink::GetNode(int index) {
  if (index < 0 || index >= GetNumTargets()) return nullptr;
  return pblock_->GetINode(kLinkTargets, 0, index);
}

int IKFKLink::GetFrameNo(int index) {
  if (index < 0 || index >= GetNumTargets()) return 0;
  const long long t = pblock_->GetTimeValue(kLinkStartTimes, 0, index);
  const long long tpf = TicksPerFrame();
  // Rounded down, so negative times give the frame they lie in.
  return static_cast<int>(t >= 0 ? t / tpf : -((-t + tpf - 1) / tpf));
}

bool IKFKLink::SetFrameNo(int index, int frame_no) {
  if (index < 0 || index >= GetNumTargets()) return false;
  const TimeValue t = FrameToTicks(frame_no);
  const std::vector<LinkEntry> before = ReadEntries(pblock_, GetNumTargets());
  std::vector<LinkEntry> after = before;
  LinkEntry moved = after[static_cast<size_t>(index)];
  moved.start = t;
  after.erase(after.begin() + index);
  after.insert(after.begin() + InsertPosition(after, t), moved);
  InHold([&] { ChangeLinks(this, pblock_, before, after, t, true); });
  return true;
}

bool IKFKLink::AddTarget(INode* target, int frame_no, bool keep_tm) {
  if (!pblock_) return false;
  const int count = pblock_->Count(kLinkTargets);
  if (count != pblock_->Count(kLinkStartTimes)) return false;
  PB2Value v(::TYPE_INODE);
  v.SetINode(target);
  if (target && !GetNodeLoopValidator().Validate(v, this, kLinkTargets, count)) return false;
  const TimeValue t = FrameToTicks(frame_no);
  const std::vector<LinkEntry> before = ReadEntries(pblock_, count);
  std::vector<LinkEntry> after = before;
  after.insert(after.begin() + InsertPosition(after, t), LinkEntry{target, t, false});
  InHold([&] { ChangeLinks(this, pblock_, before, after, t, keep_tm); });
  return true;
}

bool IKFKLink::DeleteTarget(int index, bool keep_tm) {
  if (index < 0 || index >= GetNumTargets()) return false;
  const std::vector<LinkEntry> before = ReadEntries(pblock_, GetNumTargets());
  std::vector<LinkEntry> after = before;
  const TimeValue t = after[static_cast<size_t>(index)].start;
  after.erase(after.begin() + index);
  InHold([&] { ChangeLinks(this, pblock_, before, after, t, keep_tm); });
  return true;
}

int IKFKLink::AddWorld(int frame_no, bool keep_tm) {
  if (!AddTarget(nullptr, frame_no, keep_tm)) return -1;
  // The new link went after every link that starts at or before its time.
  const TimeValue t = FrameToTicks(frame_no);
  int index = 0;
  const int count = GetNumTargets();
  while (index + 1 < count && pblock_->GetTimeValue(kLinkStartTimes, 0, index + 1) <= t) ++index;
  return index;
}

// ---------------------------------------------------------------------------------------------
// Keys.

TimeValue IKFKLink::GetKeyTime(int index) {
  if (index < 0 || index >= GetNumTargets()) return 0;
  return pblock_->GetTimeValue(kLinkStartTimes, 0, index);
}

int IKFKLink::GetKeyIndex(TimeValue t) {
  const int count = GetNumTargets();
  for (int i = 0; i < count; ++i) {
    if (pblock_->GetTimeValue(kLinkStartTimes, 0, i) == t) return i;
  }
  return -1;
}

bool IKFKLink::GetNextKeyTime(TimeValue t, DWORD flags, TimeValue& nt) {
  const int count = GetNumTargets();
  bool found = false;
  for (int i = 0; i < count; ++i) {
    const TimeValue k = pblock_->GetTimeValue(kLinkStartTimes, 0, i);
    const bool wanted = (flags & NEXTKEY_LEFT) ? k < t : k > t;
    if (!wanted) continue;
    if (!found || ((flags & NEXTKEY_LEFT) ? k > nt : k < nt)) nt = k;
    found = true;
  }
  return found;
}

void IKFKLink::DeleteKeyByIndex(int index) { DeleteTarget(index, true); }

void IKFKLink::DeleteKeyAtTime(TimeValue t) {
  const int index = GetKeyIndex(t);
  if (index >= 0) DeleteTarget(index, true);
}

void IKFKLink::DeleteKeys(DWORD flags) {
  if (!(flags & TRACK_DOALL) && NumSelKeys() == 0) return;
  InHold([&] {
    for (int i = GetNumTargets() - 1; i >= 0; --i) {
      if ((flags & TRACK_DOALL) || IsKeySelected(i)) DeleteTarget(i, true);
    }
  });
}

void IKFKLink::SelectKeyByIndex(int index, bool select) {
  if (index < 0 || index >= GetNumTargets()) return;
  if (pblock_->Count(kLinkKeySel) != GetNumTargets())
    pblock_->SetCount(kLinkKeySel, GetNumTargets());
  pblock_->SetValue(kLinkKeySel, 0, select, index);
}

bool IKFKLink::IsKeySelected(int index) {
  if (index < 0 || index >= GetNumTargets() || index >= pblock_->Count(kLinkKeySel)) return false;
  return pblock_->GetInt(kLinkKeySel, 0, index) != 0;
}

int IKFKLink::NumSelKeys() {
  int n = 0;
  for (int i = 0; i < GetNumTargets(); ++i) n += IsKeySelected(i) ? 1 : 0;
  return n;
}

void IKFKLink::MapKeys(TimeMap* map, DWORD flags) {
  const int count = GetNumTargets();
  if (!map || count == 0) return;
  std::vector<LinkEntry> entries = ReadEntries(pblock_, count);
  bool changed = false;
  for (auto& e : entries) {
    if (!(flags & TRACK_DOALL) && !e.selected) continue;
    const TimeValue mapped = map->map(e.start);
    changed = changed || mapped != e.start;
    e.start = mapped;
  }
  if (!changed) return;
  // Links that met at one time keep their former order.
  std::stable_sort(entries.begin(), entries.end(),
                   [](const LinkEntry& a, const LinkEntry& b) { return a.start < b.start; });
  InHold([&] { WriteEntries(pblock_, entries); });
}

Interval IKFKLink::GetTimeRange(DWORD flags) {
  const int count = GetNumTargets();
  bool any = false;
  TimeValue lo = 0, hi = 0;
  for (int i = 0; i < count; ++i) {
    if ((flags & TIMERANGE_SELONLY) && !IsKeySelected(i)) continue;
    const TimeValue k = pblock_->GetTimeValue(kLinkStartTimes, 0, i);
    lo = any ? std::min(lo, k) : k;
    hi = any ? std::max(hi, k) : k;
    any = true;
  }
  return any ? Interval(lo, hi) : NEVER;
}

int IKFKLink::GetKeyTimes(Tab<TimeValue>& times, Interval range, DWORD flags) {
  const int count = GetNumTargets();
  for (int i = 0; i < count; ++i) {
    if ((flags & TIMERANGE_SELONLY) && !IsKeySelected(i)) continue;
    const TimeValue k = pblock_->GetTimeValue(kLinkStartTimes, 0, i);
    if (range.InInterval(k)) times.Append(1, &k);
  }
  return times.Count();
}

}  // namespace marvolith
