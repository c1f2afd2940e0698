// Copyright Marvolith contributors.
// Host layers: named groups of nodes that can be hidden and frozen together and nested.
#pragma once

#include "host/base/tab.h"
#include "host/core/reference.h"

class INode;

/// Class of a host layer (super class LAYER_CLASS_ID).
inline constexpr Class_ID LAYER_OBJECT_CLASS_ID(0x7e3a1c00, 0x1);
/// Class of the layer manager (super class REF_TARGET_CLASS_ID).
inline constexpr Class_ID LAYER_MANAGER_CLASS_ID(0x7e3a1c00, 0x2);
/// Name of the default layer that every scene has and that cannot be deleted or renamed.
inline constexpr const char* kDefaultLayerName = "0";

/// One layer. Its nodes are the nodes that reference it; a nested layer references its parent.
/// Changes are undoable and tell the layer's nodes REFMSG_CHANGE with PART_DISPLAY.
class ILayer : public ReferenceTarget {
 public:
  SClass_ID SuperClassID() override { return LAYER_CLASS_ID; }
  Class_ID ClassID() override { return LAYER_OBJECT_CLASS_ID; }

  virtual MSTR GetName() = 0;
  /// Renames the layer; false for an empty name, one another layer of the scene has, or the
  /// default layer.
  virtual bool SetName(const MSTR& name) = 0;
  /// Moves node into this layer; false for null or a node already in it.
  virtual bool AddToLayer(INode* node) = 0;
  /// The nodes in this layer, in the order they joined it.
  virtual void Nodes(Tab<INode*>& nodes) = 0;

  virtual void Hide(bool on) = 0;
  /// Hidden itself or through a parent layer.
  virtual bool IsHidden(bool check_parents = true) = 0;
  virtual void Freeze(bool on) = 0;
  virtual bool IsFrozen(bool check_parents = true) = 0;

  /// The parent layer, null for a top-level layer.
  virtual ILayer* GetParentLayer() = 0;
  /// Nests this layer under parent (null makes it top level); false when parent is this layer or
  /// one of its descendants, or when this is the default layer.
  virtual bool SetParentLayer(ILayer* parent) = 0;
  virtual int GetNumOfChildLayers() = 0;
  /// Child layer i, or null.
  virtual ILayer* GetChildLayer(int i) = 0;
};

/// The layers of one scene. It references every layer, so layers live as long as the scene.
class ILayerManager : public ReferenceTarget {
 public:
  Class_ID ClassID() override { return LAYER_MANAGER_CLASS_ID; }

  /// A new layer named name, made unique with a number when the name is taken; an empty name
  /// becomes "Layer001". Undoable.
  virtual ILayer* CreateLayer(const MSTR& name) = 0;
  /// The layer called name (exact match), or null.
  virtual ILayer* GetLayer(const MSTR& name) = 0;
  virtual int GetLayerCount() = 0;
  /// Layer i in creation order (0 is the default layer), or null.
  virtual ILayer* GetLayer(int i) = 0;
  /// Deletes the layer called name; false for the default layer, an unknown name, or a layer
  /// that still holds nodes or child layers. Undoable.
  virtual bool DeleteLayer(const MSTR& name) = 0;
  /// The layer new nodes join.
  virtual ILayer* GetCurrentLayer() = 0;
  /// Makes the layer called name current; false when there is none.
  virtual bool SetCurrentLayer(const MSTR& name) = 0;
};
