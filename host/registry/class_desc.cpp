// Copyright Marvolith contributors.
#include "host/registry/class_desc.h"

#include <algorithm>
#include <cstring>
#include <strings.h>

#include "host/core/base_interface.h"

ParamBlockDesc2* ClassDesc2::GetParamBlockDesc(int i) {
  return i >= 0 && i < NumParamBlockDescs() ? pbdescs_[static_cast<size_t>(i)] : nullptr;
}

void ClassDesc2::AddParamBlockDesc(ParamBlockDesc2* pbd) {
  if (pbd && std::find(pbdescs_.begin(), pbdescs_.end(), pbd) == pbdescs_.end())
    pbdescs_.push_back(pbd);
}

FPInterface* ClassDesc2::GetInterfaceAt(int i) {
  return i >= 0 && i < NumInterfaces() ? interfaces_[static_cast<size_t>(i)] : nullptr;
}

void ClassDesc2::AddInterface(FPInterface* fpi) {
  if (fpi && std::find(interfaces_.begin(), interfaces_.end(), fpi) == interfaces_.end())
    interfaces_.push_back(fpi);
}

ClassDirectory& ClassDirectory::Get() {
  static ClassDirectory directory;
  return directory;
}

bool ClassDirectory::AddClass(ClassDesc2* cd) {
  if (!cd || FindClass(cd->SuperClassID(), cd->ClassID())) return false;
  classes_.push_back(cd);
  return true;
}

bool ClassDirectory::RemoveClass(ClassDesc2* cd) {
  auto it = std::find(classes_.begin(), classes_.end(), cd);
  if (it == classes_.end()) return false;
  classes_.erase(it);
  return true;
}

ClassDesc2* ClassDirectory::FindClass(SClass_ID sclass, const Class_ID& cid) const {
  for (ClassDesc2* cd : classes_) {
    if (cd->SuperClassID() == sclass && cd->ClassID() == cid) return cd;
  }
  return nullptr;
}

ClassDesc2* ClassDirectory::FindClassByInternalName(const std::string& name) const {
  for (ClassDesc2* cd : classes_) {
    const char* internal = cd->InternalName();
    if (internal && strcasecmp(internal, name.c_str()) == 0) return cd;
  }
  return nullptr;
}

ClassDesc2* ClassDirectory::At(int i) const {
  return i >= 0 && i < Count() ? classes_[static_cast<size_t>(i)] : nullptr;
}

Animatable* CreateInstance(SClass_ID sclass, const Class_ID& cid, bool loading) {
  ClassDesc2* cd = ClassDirectory::Get().FindClass(sclass, cid);
  return cd ? cd->Create(loading) : nullptr;
}
