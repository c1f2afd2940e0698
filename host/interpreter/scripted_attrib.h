// Copyright Marvolith contributors.
// Custom attributes defined by scripts: a definition made at run time (its class and parameter
// blocks) and the attribute objects of it that scenes hold and save.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/core/cust_attrib.h"
#include "host/params/param_block_desc2.h"
#include "host/registry/class_desc.h"

/// Every scripted attribute object has this class; its definition travels in its own data, so
/// that a scene file can make the object before it knows the definition.
inline constexpr Class_ID SCRIPTED_CUSTATTRIB_CLASS_ID(0x5ddb3627, 0x5c41a7b1);

/// One parameter of a scripted definition: script name, type (tables with TYPE_TAB), flags
/// (P_ANIMATABLE, P_VARIABLE_SIZE), initial table size and default in stored units.
struct ScriptedParamSpec {
  std::string name;
  ParamType2 type = TYPE_FLOAT;
  int flags = 0;
  int tab_size = 0;
  PBStoredValue def;
};

/// One `parameters` clause: the block's name and its parameters in order.
struct ScriptedBlockSpec {
  std::string name;
  std::vector<ScriptedParamSpec> params;
};

/// A whole `attributes` definition.
struct ScriptedAttribSpec {
  std::string name;
  std::vector<ScriptedBlockSpec> blocks;
};

/// The class of one scripted definition (super class CUST_ATTRIB_CLASS_ID). Its Class_ID is the
/// one the script gave (attribID:) or a hash of the definition's text, so that running the same
/// definition again, or loading a scene that holds it, finds the same class. It owns one
/// ParamBlockDesc2 per block (block id = index, at the attribute's reference of that index).
/// Definitions live until the process ends: blocks of any scene may point at them.
class ScriptedAttribDef : public ClassDesc2 {
 public:
  ScriptedAttribDef(ScriptedAttribSpec spec, Class_ID id);
  ScriptedAttribDef(const ScriptedAttribDef&) = delete;
  ScriptedAttribDef& operator=(const ScriptedAttribDef&) = delete;

  bool IsPublic() override { return false; }
  /// A new attribute of this definition (with its blocks unless loading).
  Animatable* Create(bool loading = false) override;
  const char* ClassName() override { return spec_.name.c_str(); }
  const char* InternalName() override { return spec_.name.c_str(); }
  SClass_ID SuperClassID() override { return CUST_ATTRIB_CLASS_ID; }
  Class_ID ClassID() override { return id_; }
  const char* Category() override { return "Scripted"; }

  const ScriptedAttribSpec& Spec() const { return spec_; }
  /// The definition's canonical text: what is hashed and what scene files keep.
  const std::string& Text() const { return text_; }
  int BlockCount() const { return static_cast<int>(spec_.blocks.size()); }

 private:
  ScriptedAttribSpec spec_;  // never changed after construction: the tables point into it
  std::string text_;
  Class_ID id_;
  std::vector<std::unique_ptr<ParamBlockDesc2>> blocks_;
};

/// The definition of spec: an existing one with the same class and text, else a new one,
/// registered with the class directory. explicit_id is the script's attribID (null: hash).
/// Null, with *error set, when another class or another definition holds that Class_ID.
ScriptedAttribDef* DefineScriptedAttrib(const ScriptedAttribSpec& spec,
                                        const Class_ID* explicit_id,
                                        std::string* error);

/// The canonical text of spec, and its inverse (false for damaged text).
std::string ScriptedSpecText(const ScriptedAttribSpec& spec);
bool ParseScriptedSpecText(const std::string& text, ScriptedAttribSpec& spec);

/// An attribute object of a scripted definition: its blocks at references 0.. (also its
/// sub-anims, named after the blocks). Saved as chunks 0x0001 (the definition's Class_ID, 2 x
/// u32) and 0x0002 (its canonical text); loading re-creates the definition when the session
/// lacks it, before the blocks (which come later in the file) look for their descriptors.
class ScriptedCustAttrib : public CustAttrib {
 public:
  /// def may be null only for an object about to be loaded.
  ScriptedCustAttrib(ScriptedAttribDef* def, bool loading);

  Class_ID ClassID() override { return SCRIPTED_CUSTATTRIB_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  MSTR GetName(bool localized = true) override;
  ScriptedAttribDef* GetDef() const { return def_; }

  int NumRefs() override { return static_cast<int>(blocks_.size()); }
  RefTargetHandle GetReference(int i) override;
  int NumSubs() override { return NumRefs(); }
  Animatable* SubAnim(int i) override { return GetReference(i); }
  MSTR SubAnimName(int i, bool localized = true) override;
  int NumParamBlocks() override { return NumRefs(); }
  IParamBlock2* GetParamBlock(int i) override;
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  RefTargetHandle Clone(RemapDir& remap) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  ScriptedAttribDef* def_;
  std::vector<IParamBlock2*> blocks_;
};

/// Registers the class of scripted attribute objects (once), so scene files can make them.
void RegisterScriptedAttribClass();
