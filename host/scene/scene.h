// Copyright Marvolith contributors.
// The headless scene: its root node and layers, node creation and lookup, and the hooks the
// scene file uses to build a scene and to swap it in.
#pragma once

#include <span>
#include <vector>

#include "host/scene/inode.h"
#include "host/scene/layer.h"

/// One scene: a root node with the node tree under it, and a layer manager. The open scene is
/// Scene::Active() (what the core interface works on); the scene file loads into a separate
/// staging scene and moves its content into the open one only when the whole file was good.
///
/// A scene identifies its content by handles; the root node and the layer manager (with the
/// default layer "0") are made on first use.
class Scene {
 public:
  Scene() = default;
  /// Frees the content (see Clear).
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  /// The open scene.
  static Scene& Active();

  INode* GetRootNode();
  ILayerManager* GetLayerManager();

  /// A new node for obj (which may be null) under the root node, in the current layer, with a
  /// new default transform controller (NewDefaultMatrix3Controller: PRS with position XYZ,
  /// Euler XYZ and Bezier scale tracks, all at rest). The name is name, or the
  /// object's class name followed by "001" when name is empty, made unique. Undoable: undo
  /// removes the node again.
  INode* CreateObjectNode(Object* obj, const MSTR& name = MSTR());
  /// The first node called name, depth first from the root (parents before children, children
  /// in order); null when there is none or name is empty.
  INode* GetINodeByName(const MSTR& name);
  /// Makes name unique among the node names of this scene: a name in use loses its trailing
  /// digits and gets the smallest free three-digit (or longer) number, "Box" -> "Box001". A free
  /// name is left as it is; an empty one becomes "Object001" (or the next free number).
  void MakeNameUnique(MSTR& name);
  /// Every node except the root, parents first, children in order.
  void CollectNodes(std::vector<INode*>& out);

  /// Deletes every node, the root, the layers and the layer manager, with theHold suspended; the
  /// undo stacks are left alone. The scene is empty afterwards (made again on use).
  void Clear();
  /// Clear, then drops theHold's undo and redo stacks: a new scene.
  void Reset();
  /// Moves the content of other into this scene after clearing this one; other ends empty.
  void TakeContentOf(Scene& other);
  /// Makes root and manager this scene's content (for the loader). The previous content, if any,
  /// is cleared first.
  void Adopt(INode* root, ILayerManager* manager);
  /// True when node belongs to this scene (its top ancestor is this scene's root).
  bool Contains(INode* node);

 private:
  AnimHandle root_ = 0;
  AnimHandle layers_ = 0;
};

/// Sets the order of parent's children to order (for the scene file): every node in order must be
/// a child of parent and every child must be listed once. False, nothing changed, otherwise.
bool SetChildOrder(INode* parent, std::span<INode* const> order);

/// A new node that is not yet in any scene (for the scene file's class directory entry); root
/// marks it as a root node.
INode* NewSceneNode(bool root);

/// Registers the scene's own classes (node, derived object, custom attribute container, layer,
/// layer manager) in the class directory.
void RegisterSceneClasses();
