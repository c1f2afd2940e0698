// Copyright Marvolith contributors.
// The class descriptor shared by the compound controller classes.
#pragma once

#include "host/registry/class_desc.h"

namespace host_controllers_internal {

/// A public controller class made by a factory function (loading true skips default parts).
class ControllerDesc : public ClassDesc2 {
 public:
  using Factory = Animatable* (*)(bool loading);
  ControllerDesc(const char* name,
                 const char* internal_name,
                 SClass_ID super_class,
                 Class_ID class_id,
                 Factory factory)
      : name_(name),
        internal_(internal_name),
        super_(super_class),
        class_id_(class_id),
        factory_(factory) {}

  bool IsPublic() override { return true; }
  Animatable* Create(bool loading) override { return factory_(loading); }
  const char* ClassName() override { return name_; }
  const char* InternalName() override { return internal_; }
  SClass_ID SuperClassID() override { return super_; }
  Class_ID ClassID() override { return class_id_; }
  const char* Category() override { return ""; }

 private:
  const char* name_;
  const char* internal_;
  SClass_ID super_;
  Class_ID class_id_;
  Factory factory_;
};

}  // namespace host_controllers_internal
