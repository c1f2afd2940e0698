// Copyright Marvolith contributors.
#include "host/scene/scene.h"

#include <algorithm>
#include <cstdio>

#include "host/controllers/controller_classes.h"
#include "host/core/diagnostics.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/cust_attrib_container.h"
#include "host/scene/internal/node.h"
#include "host/undo/hold.h"

ClassDesc2* GetDerivedObjectClassDesc();

namespace marvolith_scene {

ClassDesc2* GetLayerClassDesc();
ClassDesc2* GetLayerManagerClassDesc();

namespace {

// Undo of a node's creation. A builder makes its nodes with the hold on and wires them with the
// hold suspended, so the wiring has no records of its own: undo deletes the node as a user
// would (dependents told, slots emptied, children moved up) and keeps the records of that
// deletion, and redo plays them back, which brings the node back as it was when undone. Keeps
// the node's memory while the record exists.
class NodeCreateRestore : public RestoreObj {
 public:
  explicit NodeCreateRestore(Node* node) : node_(node) { node_->IncHoldCount(); }
  ~NodeCreateRestore() override {
    // The deletion's records first: they may hold the last references to the node's parts.
    deletion_.clear();
    node_->DecHoldCount();
  }
  void Restore(int) override {
    if (node_->TestAFlag(A_IS_DELETED)) return;
    deletion_.clear();
    theHold.BeginCapture();
    try {
      node_->Delete(GetCOREInterface()->GetTime(), true);
    } catch (...) {
      deletion_ = theHold.EndCapture();
      throw;
    }
    deletion_ = theHold.EndCapture();
  }
  void Redo() override {
    for (size_t i = deletion_.size(); i > 0; --i) deletion_[i - 1]->Restore(0);
    deletion_.clear();
  }
  int Size() override { return static_cast<int>(sizeof(*this) + deletion_.size() * 64); }
  MSTR Description() override { return "Create"; }

 private:
  Node* node_;
  std::vector<std::unique_ptr<RestoreObj>> deletion_;
};

class NodeClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool) override { return new Node(false); }
  const char* ClassName() override { return "Node"; }
  SClass_ID SuperClassID() override { return BASENODE_CLASS_ID; }
  Class_ID ClassID() override { return NODE_CLASS_ID; }
  const char* Category() override { return ""; }
};

void CollectPreOrder(Node* node, std::vector<INode*>& out) {
  for (Node* child : node->Children()) {
    out.push_back(child);
    CollectPreOrder(child, out);
  }
}

}  // namespace

MSTR MakeUniqueName(const MSTR& name,
                    const MSTR& fallback,
                    const std::function<bool(const MSTR&)>& taken) {
  const MSTR wanted = name.empty() ? fallback : name;
  if (!taken(wanted)) return wanted;
  size_t end = wanted.size();
  while (end > 0 && wanted[end - 1] >= '0' && wanted[end - 1] <= '9') --end;
  const MSTR stem = wanted.substr(0, end);
  for (unsigned n = 1;; ++n) {
    char digits[16];
    std::snprintf(digits, sizeof(digits), "%03u", n);
    MSTR candidate = stem + digits;
    if (!taken(candidate)) return candidate;
  }
}

}  // namespace marvolith_scene

using marvolith_scene::Node;

Scene::~Scene() { Clear(); }

Scene& Scene::Active() {
  // Never destroyed: nodes may still be reachable from undo records during static destruction.
  static Scene* active = new Scene;
  return *active;
}

INode* Scene::GetRootNode() {
  if (auto* root = dynamic_cast<Node*>(Animatable::GetAnimByHandle(root_))) return root;
  auto* root = new Node(true);
  root_ = Animatable::GetHandleByAnim(root);
  return root;
}

ILayerManager* Scene::GetLayerManager() {
  if (auto* mgr = dynamic_cast<ILayerManager*>(Animatable::GetAnimByHandle(layers_))) return mgr;
  ILayerManager* mgr = marvolith_scene::NewLayerManager(false);
  // Kept by the scene, not by references.
  mgr->SetAFlag(A_LOCK_TARGET);
  layers_ = Animatable::GetHandleByAnim(mgr);
  return mgr;
}

INode* Scene::CreateObjectNode(Object* obj, const MSTR& name) {
  auto* root = static_cast<Node*>(GetRootNode());
  ILayerManager* layers = GetLayerManager();
  MSTR unique = name;
  if (unique.empty()) {
    MSTR base = obj ? obj->GetObjectName() : MSTR();
    unique = (base.empty() ? MSTR("Object") : base) + "001";
  }
  MakeNameUnique(unique);

  auto* node = new Node(false);
  if (theHold.Holding()) theHold.Put(new marvolith_scene::NodeCreateRestore(node));
  // The creation is one record: its undo deletes the node as it is then, whatever was wired.
  HoldSuspend one_record;
  marvolith_scene::NodeState state = node->State();
  state.name = unique;
  node->ApplyState(state);
  root->Attach(node, false, GetCOREInterface()->GetTime());
  node->ReplaceReference(marvolith_scene::kLayerRef, layers->GetCurrentLayer(), false);
  node->ReplaceReference(marvolith_scene::kTMRef, NewDefaultMatrix3Controller());
  if (obj && node->ReplaceReference(marvolith_scene::kObjRef, obj) != REF_SUCCEED)
    LogLine("Marvolith: the new node could not take its object.\n");
  return node;
}

INode* Scene::GetINodeByName(const MSTR& name) {
  if (name.empty()) return nullptr;
  std::vector<INode*> nodes;
  CollectNodes(nodes);
  for (INode* node : nodes) {
    if (name == node->GetName()) return node;
  }
  return nullptr;
}

void Scene::MakeNameUnique(MSTR& name) {
  std::vector<INode*> nodes;
  CollectNodes(nodes);
  name = marvolith_scene::MakeUniqueName(name, "Object001", [&nodes](const MSTR& n) {
    return std::any_of(nodes.begin(), nodes.end(),
                       [&n](INode* node) { return n == node->GetName(); });
  });
}

void Scene::CollectNodes(std::vector<INode*>& out) {
  out.clear();
  auto* root = dynamic_cast<Node*>(Animatable::GetAnimByHandle(root_));
  if (root) marvolith_scene::CollectPreOrder(root, out);
}

void Scene::Clear() {
  HoldSuspend suspend;
  if (auto* root = dynamic_cast<Node*>(Animatable::FindAnimIncludingDeleted(root_))) {
    std::vector<INode*> nodes;
    marvolith_scene::CollectPreOrder(root, nodes);
    // Children before parents: nobody is re-linked on the way.
    for (auto it = nodes.rbegin(); it != nodes.rend(); ++it) (*it)->DeleteMe();
    root->DeleteMe();
  }
  if (auto* mgr = dynamic_cast<ILayerManager*>(Animatable::FindAnimIncludingDeleted(layers_)))
    mgr->DeleteMe();
  root_ = 0;
  layers_ = 0;
}

void Scene::Reset() {
  theHold.Clear();
  Clear();
  theHold.Clear();
}

void Scene::TakeContentOf(Scene& other) {
  if (&other == this) return;
  Clear();
  root_ = other.root_;
  layers_ = other.layers_;
  other.root_ = 0;
  other.layers_ = 0;
}

void Scene::Adopt(INode* root, ILayerManager* manager) {
  Clear();
  root_ = Animatable::GetHandleByAnim(root);
  layers_ = Animatable::GetHandleByAnim(manager);
  if (manager) manager->SetAFlag(A_LOCK_TARGET);
}

bool Scene::Contains(INode* node) {
  auto* n = dynamic_cast<Node*>(node);
  return n && root_ != 0 && Animatable::GetHandleByAnim(n->TopAncestor()) == root_;
}

bool SetChildOrder(INode* parent, std::span<INode* const> order) {
  auto* p = dynamic_cast<Node*>(parent);
  if (!p || order.size() != p->Children().size()) return false;
  std::vector<AnimHandle> handles;
  for (INode* child : order) {
    if (!child || child->GetParentNode() != parent) return false;
    AnimHandle h = Animatable::GetHandleByAnim(child);
    if (std::find(handles.begin(), handles.end(), h) != handles.end()) return false;
    handles.push_back(h);
  }
  p->SetChildOrderByHandles(handles);
  return true;
}

INode* NewSceneNode(bool root) { return new Node(root); }

namespace {

class CustAttribContainerClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool) override { return NewCustAttribContainer(); }
  const char* ClassName() override { return "Custom Attributes"; }
  SClass_ID SuperClassID() override { return REF_TARGET_CLASS_ID; }
  Class_ID ClassID() override { return CUSTATTRIB_CONTAINER_CLASS_ID; }
  const char* Category() override { return ""; }
};

}  // namespace

void RegisterSceneClasses() {
  static marvolith_scene::NodeClassDesc node_desc;
  ClassDirectory& dir = ClassDirectory::Get();
  dir.AddClass(&node_desc);
  dir.AddClass(GetDerivedObjectClassDesc());
  static CustAttribContainerClassDesc cust_attrib_container_desc;
  dir.AddClass(&cust_attrib_container_desc);
  dir.AddClass(marvolith_scene::GetLayerClassDesc());
  dir.AddClass(marvolith_scene::GetLayerManagerClassDesc());
}
