// Copyright Marvolith contributors.
#include "host/scene/internal/node.h"

#include <algorithm>
#include <utility>

#include "host/base/scoped_flag.h"
#include "host/controllers/controller_classes.h"
#include "host/core/diagnostics.h"
#include "host/math/affine.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "support/hold_record.h"
#include "support/ref_slot_check.h"
#include "support/track_assign.h"

namespace marvolith_scene {
namespace {

// Chunk ids of a node's own data.
constexpr USHORT kNameChunk = 0x0100;
constexpr USHORT kWireColorChunk = 0x0110;
constexpr USHORT kFlagsChunk = 0x0120;
constexpr USHORT kLocksChunk = 0x0130;
constexpr USHORT kOffsetPosChunk = 0x0140;
constexpr USHORT kOffsetRotChunk = 0x0150;
constexpr USHORT kOffsetScaleChunk = 0x0160;

// A direction shorter than this has no axis left once locked axes are removed.
constexpr float kMinFreeAxisLength = 1e-6f;

Node* AsNode(Animatable* anim) { return dynamic_cast<Node*>(anim); }
Node* NodeByHandle(AnimHandle h) { return AsNode(Animatable::FindAnimIncludingDeleted(h)); }

// Undo of the node's own state (name, colours, flags, locks, offsets); one record per hold.
class NodeStateRestore : public RestoreObj {
 public:
  explicit NodeStateRestore(Node* node)
      : handle_(Animatable::GetHandleByAnim(node)), before_(node->State()) {}
  void Restore(int is_undo) override {
    Node* node = NodeByHandle(handle_);
    if (!node) return;
    if (is_undo) after_ = node->State();
    node->ApplyState(before_);
  }
  void Redo() override {
    if (Node* node = NodeByHandle(handle_)) node->ApplyState(after_);
  }
  void EndHold() override {
    if (Node* node = NodeByHandle(handle_)) node->ClearAFlag(A_HELD);
  }
  int Size() override { return static_cast<int>(sizeof(*this)); }
  MSTR Description() override { return "Node properties"; }

 private:
  AnimHandle handle_;
  NodeState before_;
  NodeState after_;
};

// Undo of the order of a node's children. Reference records move children between parents;
// this record puts them back in the order they had. Put one before a change (it serves undo) and
// one after (it serves redo).
class ChildListRestore : public RestoreObj {
 public:
  explicit ChildListRestore(Node* parent)
      : handle_(Animatable::GetHandleByAnim(parent)), before_(parent->ChildHandles()) {}
  void Restore(int is_undo) override {
    Node* parent = NodeByHandle(handle_);
    if (!parent) return;
    if (is_undo) after_ = parent->ChildHandles();
    parent->SetChildOrderByHandles(before_);
  }
  void Redo() override {
    if (Node* parent = NodeByHandle(handle_)) parent->SetChildOrderByHandles(after_);
  }
  MSTR Description() override { return "Child order"; }

 private:
  AnimHandle handle_;
  std::vector<AnimHandle> before_;
  std::vector<AnimHandle> after_;
};

// Drops a node's caches and tells its dependents on undo (on_undo) or on redo. Reference
// records relink slots without messages, so a structural change puts one before and one after.
class NodeNotifyRestore : public RestoreObj {
 public:
  NodeNotifyRestore(Node* node, bool on_undo)
      : handle_(Animatable::GetHandleByAnim(node)), on_undo_(on_undo) {}
  void Restore(int) override {
    if (on_undo_) Touch();
  }
  void Redo() override {
    if (!on_undo_) Touch();
  }
  MSTR Description() override { return "Node change"; }

 private:
  void Touch() {
    Node* node = NodeByHandle(handle_);
    if (!node) return;
    node->InvalidateWS();
    node->InvalidateTM();
  }
  AnimHandle handle_;
  bool on_undo_;
};

void PutNodeNotify(Node* node, bool on_undo) {
  if (theHold.Holding()) theHold.Put(new NodeNotifyRestore(node, on_undo));
}
void PutChildList(Node* parent) {
  if (parent && theHold.Holding()) theHold.Put(new ChildListRestore(parent));
}

TimeValue Now() { return GetCOREInterface()->GetTime(); }

}  // namespace

Node::Node(bool root) {
  // Nodes belong to the scene: only Delete and the scene's reset end them.
  SetAFlag(A_LOCK_TARGET);
  if (root) {
    state_.flags |= kNodeRoot;
    state_.name = "Scene Root";
  }
}

Node::~Node() = default;

RefTargetHandle Node::GetReference(int i) {
  switch (i) {
    case kTMRef:
      return tm_;
    case kObjRef:
      return obj_;
    case kParentRef:
      return parent_;
    case kLayerRef:
      return layer_;
    case kVisRef:
      return vis_;
    default:
      return nullptr;
  }
}

void Node::SetReference(int i, RefTargetHandle target) {
  switch (i) {
    case kTMRef:
      tm_ = dynamic_cast<Control*>(target);
      MV_ASSERT(tm_ == target);
      InvalidateTreeTM();
      break;
    case kObjRef:
      obj_ = dynamic_cast<Object*>(target);
      MV_ASSERT(obj_ == target);
      InvalidateWS();
      break;
    case kParentRef: {
      Node* parent = AsNode(target);
      MV_ASSERT(parent == target);
      if (parent_) {
        auto& siblings = parent_->children_;
        siblings.erase(std::remove(siblings.begin(), siblings.end(), this), siblings.end());
      }
      parent_ = parent;
      if (parent_) parent_->children_.push_back(this);
      InvalidateTreeTM();
      break;
    }
    case kLayerRef:
      layer_ = dynamic_cast<ILayer*>(target);
      MV_ASSERT(layer_ == target);
      break;
    case kVisRef:
      vis_ = dynamic_cast<Control*>(target);
      MV_ASSERT(vis_ == target);
      break;
    default:
      break;
  }
}

bool Node::CanReferenceAt(int i, ReferenceTarget* target) {
  switch (i) {
    case kTMRef:
      return target->SuperClassID() == CTRL_MATRIX3_CLASS_ID &&
             dynamic_cast<Control*>(target) != nullptr;
    case kObjRef:
      return dynamic_cast<Object*>(target) != nullptr;
    case kParentRef: {
      auto* parent = dynamic_cast<Node*>(target);
      return parent && parent != this && !IsRootNode();
    }
    case kLayerRef:
      return dynamic_cast<ILayer*>(target) != nullptr;
    case kVisRef:
      return target->SuperClassID() == CTRL_FLOAT_CLASS_ID &&
             dynamic_cast<Control*>(target) != nullptr;
    default:
      return false;
  }
}

void* Node::GetInterface(ULONG id) {
  if (id == I_REFSLOTCHECK) return static_cast<IRefSlotCheck*>(this);
  return INode::GetInterface(id);
}

Animatable* Node::SubAnim(int i) {
  if (i == 0) return tm_;
  if (i == 1) return obj_;
  if (i == 2) return vis_;
  return nullptr;
}

MSTR Node::SubAnimName(int i, bool) {
  if (i == 0) return "Transform";
  if (i == 1) return "Object";
  if (i == 2) return "Visibility";
  return MSTR();
}

int Node::SubNumToRefNum(int sub_num) {
  if (sub_num == 0) return kTMRef;
  if (sub_num == 1) return kObjRef;
  if (sub_num == 2) return kVisRef;
  return -1;
}

bool Node::AssignController(Animatable* control, int sub_anim) {
  auto* c = dynamic_cast<Control*>(control);
  if (sub_anim == 2) return c && SetVisController(c);
  return sub_anim == 0 && c && SetTMController(c);
}

RefResult Node::NotifyRefChanged(
    const Interval&, RefTargetHandle target, PartID& part_id, RefMessage message, bool) {
  if (!target) return REF_SUCCEED;
  if (target == parent_) {
    // From the parent only transform changes matter to this node and what depends on it.
    if (message == REFMSG_CHANGE && (part_id & PART_TM)) {
      DropOwnTM();
      part_id = PART_TM;
      return REF_SUCCEED;
    }
    if (message == REFMSG_TARGET_DELETED) {
      // The parent went without Delete (a plain DeleteMe): move up to its parent, keeping
      // the world transform, as Delete would have done.
      if (Node* grand = parent_->parent_) grand->Attach(this, true, Now());
    }
    return REF_STOP;
  }
  if (target == layer_) {
    if (message != REFMSG_CHANGE) return REF_STOP;
    part_id = PART_DISPLAY;
    return REF_SUCCEED;
  }
  if (message == REFMSG_NODE_NAMECHANGE) return REF_STOP;  // names of parts are not ours
  if (target == tm_) {
    if (message == REFMSG_CHANGE) {
      DropOwnTM();
      part_id = PART_TM;
    }
    return REF_SUCCEED;
  }
  if (target == vis_) {
    // The track shows or fades the node: no transform change.
    if (message == REFMSG_CHANGE) part_id = PART_DISPLAY;
    return REF_SUCCEED;
  }
  if (target == obj_) {
    if (message == REFMSG_CHANGE) {
      InvalidateWS();
      // The object does not move the node: children and users hear no transform change.
      part_id &= ~PART_TM;
      if (part_id == 0) return REF_STOP;
    }
    return REF_SUCCEED;
  }
  return REF_SUCCEED;
}

IOResult Node::Save(ISave* isave) {
  isave->BeginChunk(kNameChunk);
  isave->WriteWString(state_.name);
  isave->EndChunk();
  if (SaveChunk(isave, kWireColorChunk, state_.wire_color) != IO_OK) return IO_ERROR;
  if (SaveChunk(isave, kFlagsChunk, state_.flags) != IO_OK) return IO_ERROR;
  if (SaveChunk(isave, kLocksChunk, state_.locks) != IO_OK) return IO_ERROR;
  if (SaveChunk(isave, kOffsetPosChunk, state_.offset_pos) != IO_OK) return IO_ERROR;
  if (SaveChunk(isave, kOffsetRotChunk, state_.offset_rot) != IO_OK) return IO_ERROR;
  if (SaveChunk(isave, kOffsetScaleChunk, state_.offset_scale) != IO_OK) return IO_ERROR;
  return IO_OK;
}

IOResult Node::Load(ILoad* iload) {
  const IOResult res = ForEachChunk(iload, [&](USHORT id) {
    switch (id) {
      case kNameChunk:
        return iload->ReadWStringChunk(state_.name);
      case kWireColorChunk:
        return LoadValue(iload, state_.wire_color);
      case kFlagsChunk:
        return LoadValue(iload, state_.flags);
      case kLocksChunk:
        return LoadValue(iload, state_.locks);
      case kOffsetPosChunk:
        return LoadValue(iload, state_.offset_pos);
      case kOffsetRotChunk:
        return LoadValue(iload, state_.offset_rot);
      case kOffsetScaleChunk:
        return LoadValue(iload, state_.offset_scale);
      default:
        return IO_OK;
    }
  });
  state_.locks &= INODE_LOCK_ALL;
  return res;
}

INode* Node::GetChildNode(int i) {
  return i >= 0 && i < NumberOfChildren() ? children_[static_cast<size_t>(i)] : nullptr;
}

Node* Node::TopAncestor() {
  Node* top = this;
  while (top->parent_) top = top->parent_;
  return top;
}

std::vector<AnimHandle> Node::ChildHandles() const {
  std::vector<AnimHandle> out;
  out.reserve(children_.size());
  for (Node* c : children_) out.push_back(GetHandleByAnim(c));
  return out;
}

void Node::SetChildOrderByHandles(const std::vector<AnimHandle>& order) {
  std::vector<Node*> next;
  next.reserve(children_.size());
  for (AnimHandle h : order) {
    Node* c = NodeByHandle(h);
    if (c && c->parent_ == this && std::find(next.begin(), next.end(), c) == next.end())
      next.push_back(c);
  }
  for (Node* c : children_) {
    if (std::find(next.begin(), next.end(), c) == next.end()) next.push_back(c);
  }
  children_ = std::move(next);
}

bool Node::Attach(Node* child, bool keep_pos, TimeValue t) {
  if (!child || child == this || child->IsRootNode()) {
    LogLine("Marvolith: a node cannot be linked to itself, and the root node cannot be linked.\n");
    return false;
  }
  for (Node* a = this; a; a = a->parent_) {
    if (a == child) {
      LogLine("Marvolith: a node cannot be linked to one of its own descendants.\n");
      return false;
    }
  }
  if (child->parent_ && child->TopAncestor() != TopAncestor()) {
    LogLine("Marvolith: a node cannot be linked to a node of another scene.\n");
    return false;
  }
  if (child->parent_ == this) return true;
  Matrix3 world_ws;
  Matrix3 old_parent_ws;
  if (keep_pos) {
    world_ws = child->GetNodeTM(t);
    old_parent_ws = child->GetParentTM(t);
  }
  Node* old_parent = child->parent_;
  PutNodeNotify(child, true);
  PutChildList(old_parent);
  PutChildList(this);
  if (child->ReplaceReference(kParentRef, this, false) != REF_SUCCEED) return false;
  PutChildList(old_parent);
  PutChildList(this);
  PutNodeNotify(child, false);
  child->InvalidateTM();
  if (keep_pos) {
    Matrix3 new_parent_ws = GetNodeTM(t);
    bool kept = child->tm_ && child->tm_->ChangeParents(t, old_parent_ws, new_parent_ws, world_ws);
    if (!kept) child->SetNodeTM(t, world_ws);
    child->InvalidateTM();
  }
  child->NotifyDependents(FOREVER, PART_TM, REFMSG_NODE_LINK);
  return true;
}

void Node::AttachChild(INode* node, int keep_pos) {
  auto* child = AsNode(node);
  if (node && !child) {
    LogLine("Marvolith: only nodes of the headless scene can be linked.\n");
    return;
  }
  Attach(child, keep_pos != 0, Now());
}

void Node::Detach(TimeValue t, int keep_pos) {
  if (IsRootNode() || !parent_) return;
  Node* top = TopAncestor();
  if (!top->IsRootNode() || top == parent_) return;
  top->Attach(this, keep_pos != 0, t);
}

void Node::Delete(TimeValue t, int keep_child_position) {
  if (IsRootNode()) {
    LogLine("Marvolith: the root node cannot be deleted.\n");
    return;
  }
  if (TestAFlag(A_IS_DELETED)) return;
  Node* parent = parent_;
  std::vector<Node*> kids = children_;
  for (Node* kid : kids) {
    if (parent) parent->Attach(kid, keep_child_position != 0, t);
  }
  // Users of this node (constraints) drop what they computed from it, now and on undo.
  InvalidateTM();
  PutNodeNotify(this, true);
  PutChildList(parent);
  DeleteMe();
  PutChildList(parent);
}

void Node::DropOwnTM() {
  tm_valid_.SetEmpty();
  if (evaluating_) stale_during_eval_ = true;
}

void Node::InvalidateTreeTM() {
  DropOwnTM();
  for (Node* c : children_) c->InvalidateTreeTM();
}

void Node::NotifyTM() { NotifyDependents(FOREVER, PART_TM, REFMSG_CHANGE); }

void Node::InvalidateTM() {
  DropOwnTM();
  NotifyTM();
}

void Node::InvalidateWS() {
  ws_valid_.SetEmpty();
  if (ws_evaluating_) ws_stale_during_eval_ = true;
}

Matrix3 Node::GetNodeTM(TimeValue t, Interval* valid) {
  if (tm_valid_.InInterval(t)) {
    if (valid) *valid &= tm_valid_;
    return tm_cache_;
  }
  if (evaluating_) {
    // Re-entered through a dependency cycle: the last finished result, good for this instant.
    LogLine("Marvolith: a transform depends on itself; the last evaluated one is used.\n");
    if (valid) *valid &= Interval(t, t);
    return last_tm_;
  }
  stale_during_eval_ = false;
  Interval iv = FOREVER;
  Matrix3 tm;
  {
    // An exception from a controller passes on to the caller; the flag must not stay set, or
    // the node would answer its last result as a cycle for as long as the scene lives.
    ScopedFlag eval(evaluating_);
    // world = local * parent_ws: the controller applies its local transform to the parent's.
    if (parent_) tm = parent_->GetNodeTM(t, &iv);
    if (tm_) tm_->GetValue(t, &tm, iv, CTRL_RELATIVE);
  }
  if (!iv.InInterval(t)) iv.SetInstant(t);  // a controller that broke the interval
  if (!stale_during_eval_) {
    tm_cache_ = tm;
    tm_valid_ = iv;
  }
  last_tm_ = tm;
  if (valid) *valid &= iv;
  return tm;
}

Matrix3 Node::GetParentTM(TimeValue t) { return parent_ ? parent_->GetNodeTM(t) : Matrix3(); }

Matrix3 Node::ObjectOffset() const {
  // offset = scale * rotation * translation, applied before the node transform.
  Matrix3 m;
  m.SetRotate(state_.offset_rot);
  m.SetTrans(state_.offset_pos);
  ApplyScaling(m, state_.offset_scale);
  return m;
}

Matrix3 Node::GetObjectTM(TimeValue t, Interval* valid) {
  return ObjectOffset() * GetNodeTM(t, valid);
}

void Node::SendPacket(TimeValue t, SetXFormPacket& packet, bool affect_kids) {
  if (!tm_) {
    LogLine("Marvolith: the node has no transform controller; its transform was not changed.\n");
    return;
  }
  std::vector<std::pair<Node*, Matrix3>> kept;
  if (!affect_kids) {
    for (Node* c : children_) kept.emplace_back(c, c->GetNodeTM(t));
  }
  tm_->SetValue(t, &packet, 1, CTRL_ABSOLUTE);
  InvalidateTM();
  for (auto& [c, world_ws] : kept) c->SetNodeTM(t, world_ws);
}

void Node::SetNodeTM(TimeValue t, const Matrix3& tm) {
  SetXFormPacket packet(tm, GetParentTM(t));
  SendPacket(t, packet, true);
}

Point3 Node::MaskLockedAxes(TimeValue t, int type, const Point3& dir_ws) {
  DWORD bits = (state_.locks >> (3 * type)) & 7u;
  if (!bits) return dir_ws;
  Matrix3 tm = GetNodeTM(t);
  Point3 out = dir_ws;
  for (int axis = 0; axis < 3; ++axis) {
    if (!(bits & (1u << axis))) continue;
    Point3 a = Normalize(tm.GetRow(axis));
    out -= a * DotProd(out, a);
  }
  return out;
}

void Node::Move(TimeValue t,
                const Matrix3& tm_axis,
                const Point3& val,
                bool,
                bool affect_kids,
                int,
                bool ignore_locks) {
  Point3 move = val;
  if (!ignore_locks && (state_.locks & (INODE_LOCKPOS_X | INODE_LOCKPOS_Y | INODE_LOCKPOS_Z))) {
    Point3 free_ws = MaskLockedAxes(t, INODE_LOCKPOS, VectorTransform(tm_axis, val));
    move = VectorTransform(Inverse(tm_axis), free_ws);
  }
  SetXFormPacket packet(move, GetParentTM(t), tm_axis);
  SendPacket(t, packet, affect_kids);
}

void Node::Rotate(TimeValue t,
                  const Matrix3& tm_axis,
                  const AngAxis& val,
                  bool local_origin,
                  bool affect_kids,
                  int,
                  bool ignore_locks) {
  AngAxis rot = val;
  if (!ignore_locks && (state_.locks & (INODE_LOCKROT_X | INODE_LOCKROT_Y | INODE_LOCKROT_Z))) {
    Point3 free_ws =
        MaskLockedAxes(t, INODE_LOCKROT, VectorTransform(tm_axis, Normalize(val.axis)));
    if (free_ws.Length() < kMinFreeAxisLength) return;  // every free axis locked
    rot.axis = Normalize(VectorTransform(Inverse(tm_axis), free_ws));
  }
  SetXFormPacket packet(rot, local_origin, GetParentTM(t), tm_axis);
  SendPacket(t, packet, affect_kids);
}

void Node::Rotate(TimeValue t,
                  const Matrix3& tm_axis,
                  const Quat& val,
                  bool local_origin,
                  bool affect_kids,
                  int pivot_mode,
                  bool ignore_locks) {
  Rotate(t, tm_axis, AngAxis(val), local_origin, affect_kids, pivot_mode, ignore_locks);
}

void Node::Scale(TimeValue t,
                 const Matrix3& tm_axis,
                 const Point3& val,
                 bool local_origin,
                 bool affect_kids,
                 int,
                 bool ignore_locks) {
  Point3 factors = val;
  if (!ignore_locks) {
    // Factors are matched to the node's axes by index: a locked axis keeps a factor of 1.
    for (int axis = 0; axis < 3; ++axis) {
      if (state_.locks & (INODE_LOCKSCL_X << axis)) factors[axis] = 1.0f;
    }
  }
  SetXFormPacket packet = SetXFormPacket::Scale(factors, local_origin, GetParentTM(t), tm_axis);
  SendPacket(t, packet, affect_kids);
}

void Node::RecordState() {
  if (HoldWantsRecord(this)) theHold.Put(new NodeStateRestore(this));
}

void Node::ApplyState(const NodeState& s) {
  const bool renamed = s.name != state_.name;
  const bool offset = s.offset_pos != state_.offset_pos || !(s.offset_rot == state_.offset_rot) ||
                      !(s.offset_scale == state_.offset_scale);
  const bool display =
      s.wire_color != state_.wire_color || s.flags != state_.flags || s.locks != state_.locks;
  state_ = s;
  if (renamed) NotifyDependents(FOREVER, PART_ALL, REFMSG_NODE_NAMECHANGE);
  if (offset) {
    InvalidateWS();
    NotifyDependents(FOREVER, PART_OBJ, REFMSG_CHANGE);
  }
  if (display) NotifyDependents(FOREVER, PART_DISPLAY, REFMSG_CHANGE);
}

void Node::SetName(const MSTR& name) {
  if (name == state_.name) return;
  RecordState();
  NodeState s = state_;
  s.name = name;
  ApplyState(s);
}

void Node::SetFlag(DWORD bit, bool on) {
  if (((state_.flags & bit) != 0) == on) return;
  RecordState();
  NodeState s = state_;
  s.flags = on ? (s.flags | bit) : (s.flags & ~bit);
  ApplyState(s);
}

void Node::SetObjOffsetPos(const Point3& p) {
  if (p == state_.offset_pos) return;
  RecordState();
  NodeState s = state_;
  s.offset_pos = p;
  ApplyState(s);
}

void Node::SetObjOffsetRot(const Quat& q) {
  if (q == state_.offset_rot) return;
  RecordState();
  NodeState s = state_;
  s.offset_rot = q;
  ApplyState(s);
}

void Node::SetObjOffsetScale(const ScaleValue& sv) {
  if (sv == state_.offset_scale) return;
  RecordState();
  NodeState s = state_;
  s.offset_scale = sv;
  ApplyState(s);
}

bool Node::SetTMController(Control* m3cont) {
  if (!m3cont || m3cont->SuperClassID() != CTRL_MATRIX3_CLASS_ID) {
    LogLine("Marvolith: a node's transform controller must be a matrix3 controller.\n");
    return false;
  }
  if (IsRootNode()) return false;
  if (m3cont == tm_) return true;
  if (m3cont->TestForLoop(FOREVER, this) == REF_FAIL) return false;
  CopyReplaced(m3cont, tm_);
  PutNodeNotify(this, true);
  if (ReplaceReference(kTMRef, m3cont) != REF_SUCCEED) return false;
  PutNodeNotify(this, false);
  InvalidateTM();
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
  return true;
}

bool Node::SetVisController(Control* cont) {
  if (cont && cont->SuperClassID() != CTRL_FLOAT_CLASS_ID) {
    LogLine("Marvolith: a node's visibility track must be a float controller.\n");
    return false;
  }
  if (IsRootNode()) return false;
  if (cont == vis_) return true;
  if (cont && cont->TestForLoop(FOREVER, this) == REF_FAIL) return false;
  CopyReplaced(cont, vis_);
  if (ReplaceReference(kVisRef, cont) != REF_SUCCEED) return false;
  NotifyDependents(FOREVER, PART_DISPLAY, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
  return true;
}

float Node::GetVisibility(TimeValue t, Interval* valid) {
  if (!vis_) return 1.0f;
  float v = 1.0f;
  Interval iv = FOREVER;
  vis_->GetValue(t, &v, iv, CTRL_ABSOLUTE);
  if (valid) *valid &= iv;
  return v;
}

void Node::SetVisibility(TimeValue t, float vis) {
  if (IsRootNode()) return;
  if (!vis_ && !SetVisController(NewDefaultFloatController())) return;
  vis_->SetValue(t, &vis, 1, CTRL_ABSOLUTE);
}

void Node::SetObjectRef(Object* obj) {
  if (obj == obj_ || IsRootNode()) return;
  PutNodeNotify(this, true);
  if (ReplaceReference(kObjRef, obj) != REF_SUCCEED) return;
  PutNodeNotify(this, false);
  InvalidateWS();
  NotifyDependents(FOREVER, PART_OBJ, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
}

const ObjectState& Node::EvalWorldState(TimeValue t, bool) {
  if (ws_valid_.InInterval(t) || ws_evaluating_) return ws_;
  if (!obj_) {
    ws_ = ObjectState();
    ws_valid_ = FOREVER;
    return ws_;
  }
  ws_stale_during_eval_ = false;
  ObjectState os;
  {
    ScopedFlag eval(ws_evaluating_);
    if (obj_->SuperClassID() == GEN_DERIVOB_CLASS_ID) {
      os = static_cast<IDerivedObject*>(obj_)->EvalStack(t, this, 0);
    } else {
      os = obj_->Eval(t);
      os.NarrowObValid(obj_->ObjectValidity(t));
    }
  }
  Interval iv = os.Validity();
  if (!iv.InInterval(t)) iv.SetInstant(t);
  ws_ = os;
  // A change heard while evaluating leaves the result stale: handed out, not kept.
  if (ws_stale_during_eval_) {
    ws_valid_.SetEmpty();
  } else {
    ws_valid_ = iv;
  }
  return ws_;
}

bool Node::Selected() { return GetCOREInterface()->IsSelected(this); }

void Node::Hide(bool on) { SetFlag(kNodeHidden, on); }

bool Node::IsHidden(DWORD, bool) {
  return (state_.flags & kNodeHidden) != 0 || (layer_ && layer_->IsHidden());
}

void Node::Freeze(bool on) { SetFlag(kNodeFrozen, on); }

bool Node::IsFrozen() {
  return (state_.flags & kNodeFrozen) != 0 || (layer_ && layer_->IsFrozen());
}

void Node::SetWireColor(DWORD color) {
  if (color == state_.wire_color) return;
  RecordState();
  NodeState s = state_;
  s.wire_color = color;
  ApplyState(s);
}

void Node::NodeInvalidateRect(TimeValue t) { GetCOREInterface()->RedrawViews(t); }

void Node::SetTransformLock(int type, int axis, bool on) {
  if (type < INODE_LOCKPOS || type > INODE_LOCKSCL || axis < INODE_LOCK_X || axis > INODE_LOCK_Z)
    return;
  DWORD bit = 1u << (3 * type + axis);
  SetTransformLockBits(on ? (state_.locks | bit) : (state_.locks & ~bit));
}

bool Node::GetTransformLock(int type, int axis) {
  if (type < INODE_LOCKPOS || type > INODE_LOCKSCL || axis < INODE_LOCK_X || axis > INODE_LOCK_Z)
    return false;
  return (state_.locks & (1u << (3 * type + axis))) != 0;
}

void Node::SetTransformLockBits(DWORD bits) {
  bits &= INODE_LOCK_ALL;
  if (bits == state_.locks) return;
  RecordState();
  NodeState s = state_;
  s.locks = bits;
  ApplyState(s);
}

}  // namespace marvolith_scene

namespace {
INode* FindOwnerIn(ReferenceTarget* control, std::vector<ReferenceTarget*>& seen) {
  DependentIterator it(control);
  while (ReferenceMaker* dep = it.Next()) {
    if (dep->SuperClassID() == BASENODE_CLASS_ID) {
      auto* node = dynamic_cast<INode*>(dep);
      if (node && node->GetTMController() == control) return node;
    } else if (dep->SuperClassID() == CTRL_MATRIX3_CLASS_ID && dep->IsRefTarget()) {
      auto* m3 = static_cast<ReferenceTarget*>(dep);
      if (std::find(seen.begin(), seen.end(), m3) != seen.end()) continue;  // met already
      seen.push_back(m3);
      if (INode* node = FindOwnerIn(m3, seen)) return node;
    }
  }
  return nullptr;
}
}  // namespace

INode* FindOwnerNode(Control* control) {
  if (!control) return nullptr;
  std::vector<ReferenceTarget*> seen{control};
  return FindOwnerIn(control, seen);
}
