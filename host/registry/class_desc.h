// Copyright Marvolith contributors.
// ClassDesc2 and the class directory: how the host creates objects from (SClass_ID, Class_ID).
#pragma once

#include <string>
#include <vector>

#include "host/core/animatable.h"

class ParamBlockDesc2;
class FPInterface;
class ReferenceMaker;
class Interface;
using HINSTANCE = void*;

/// Describes one class to the host: identity, names, how to create an instance, and the parameter
/// block and function-publishing tables that belong to it.
class ClassDesc2 {
 public:
  virtual ~ClassDesc2() = default;

  /// May the user create the class from a list.
  virtual bool IsPublic() = 0;
  /// A new instance; loading is true when the instance is about to be filled from a file (the
  /// class then skips making default sub-objects). Null when the class cannot be created.
  virtual Animatable* Create(bool loading = false) = 0;
  /// The localised class name; may point to a shared buffer that the next lookup overwrites.
  virtual const char* ClassName() = 0;
  virtual const char* NonLocalizedClassName() { return ClassName(); }
  /// The fixed script name.
  virtual const char* InternalName() { return nullptr; }
  virtual SClass_ID SuperClassID() = 0;
  virtual Class_ID ClassID() = 0;
  virtual const char* Category() = 0;
  virtual HINSTANCE HInstance() { return nullptr; }
  virtual bool OkToCreate(Interface* ip) { return true; }
  virtual int BeginCreate(Interface* ip) { return 0; }
  virtual int EndCreate(Interface* ip) { return 0; }

  // Parameter block descriptors of the class, in the order they were added.
  int NumParamBlockDescs() const { return static_cast<int>(pbdescs_.size()); }
  ParamBlockDesc2* GetParamBlockDesc(int i);
  ParamBlockDesc2* GetParamBlockDescByID(BlockID id);
  void AddParamBlockDesc(ParamBlockDesc2* pbd);
  /// Makes and references the blocks of every descriptor flagged P_AUTO_CONSTRUCT on owner.
  void MakeAutoParamBlocks(ReferenceMaker* owner);

  // Function-publishing interfaces of the class.
  int NumInterfaces() const { return static_cast<int>(interfaces_.size()); }
  FPInterface* GetInterfaceAt(int i);
  FPInterface* GetInterface(Interface_ID id);
  FPInterface* GetInterface(const char* name);
  void AddInterface(FPInterface* fpi);

 private:
  std::vector<ParamBlockDesc2*> pbdescs_;
  std::vector<FPInterface*> interfaces_;
};

/// The class directory: every registered class. Two classes may share a Class_ID as long as their
/// super classes differ.
class ClassDirectory {
 public:
  static ClassDirectory& Get();

  /// Registers cd; false (and nothing changes) when a class with the same super class and
  /// Class_ID is registered already.
  bool AddClass(ClassDesc2* cd);
  /// Removes cd (module unload); false when it was not registered.
  bool RemoveClass(ClassDesc2* cd);
  ClassDesc2* FindClass(SClass_ID sclass, const Class_ID& cid) const;
  /// The first class whose internal name is name (case-insensitive, as scripts compare), or null.
  ClassDesc2* FindClassByInternalName(const std::string& name) const;
  int Count() const { return static_cast<int>(classes_.size()); }
  ClassDesc2* At(int i) const;

 private:
  std::vector<ClassDesc2*> classes_;
};

/// Creates an instance of the registered class (sclass, cid); null when no such class is
/// registered or it cannot create.
Animatable* CreateInstance(SClass_ID sclass, const Class_ID& cid, bool loading = false);
