// Copyright Marvolith contributors.
// Custom attributes: extra parameter sets that any animatable can carry in its container.
#pragma once

#include "host/core/reference.h"

class ICustAttribContainer;

/// Class of the host's custom attribute container (super class REF_TARGET_CLASS_ID).
inline constexpr Class_ID CUSTATTRIB_CONTAINER_CLASS_ID(0x5ddb3626, 0x23b708db);

/// A custom attribute: a reference target, usually holding one parameter block, that lives in
/// the container of some animatable and is saved, cloned and deleted with it.
class CustAttrib : public ReferenceTarget {
 public:
  SClass_ID SuperClassID() override { return CUST_ATTRIB_CLASS_ID; }
  /// The attribute's name as the host lists it; the class name unless the class says otherwise.
  virtual MSTR GetName(bool localized = true) { return ClassName(); }
  /// May this attribute be copied into container to (when its owner is cloned).
  virtual bool CheckCopyAttribTo(ICustAttribContainer* to) { return true; }
};

/// The ordered list of custom attributes of one animatable (its owner). The container references
/// each attribute (reference i is attribute i), so an attribute removed from it and referenced
/// nowhere else is deleted. Every change is undoable and tells the container's dependents
/// REFMSG_SUBANIM_STRUCTURE_CHANGED. Its sub-anims are its attributes.
///
/// A container is made by Animatable::AllocCustAttribContainer and lives as long as its owner:
/// deleting the owner deletes it, and the owner's clone (BaseClone) gets clones of the
/// attributes that agree to be copied. The scene file saves it with its owner.
class ICustAttribContainer : public ReferenceTarget {
 public:
  virtual int GetNumCustAttribs() = 0;
  /// Attribute i, or null when i is out of range.
  virtual CustAttrib* GetCustAttrib(int i) = 0;
  /// Appends attr; null is ignored.
  virtual void AppendCustAttrib(CustAttrib* attr) = 0;
  /// Replaces attribute i (the old one is deleted when nothing else references it). An index out
  /// of range or a null attr does nothing.
  virtual void SetCustAttrib(int i, CustAttrib* attr) = 0;
  /// Inserts attr before index i (0..count). An index out of range or a null attr does nothing.
  virtual void InsertCustAttrib(int i, CustAttrib* attr) = 0;
  /// Removes attribute i; an index out of range does nothing.
  virtual void RemoveCustAttrib(int i) = 0;
  /// The animatable that owns this container; null once it is gone.
  virtual Animatable* GetOwner() = 0;
  virtual void SetOwner(Animatable* owner) = 0;
};

/// Gives to a container holding clones (through remap) of the attributes of from's container
/// that agree to be copied. Called by ReferenceTarget::BaseClone.
void CloneCustAttribs(ReferenceTarget* from, ReferenceTarget* to, RemapDir& remap);

/// What Animatable::AllocCustAttribContainer makes: the scene's container class installs it
/// (host/scene/cust_attrib_container.h). Without one no container can be made.
using CustAttribContainerFactory = ICustAttribContainer* (*)();
void SetCustAttribContainerFactory(CustAttribContainerFactory factory);
