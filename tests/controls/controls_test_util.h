// Copyright Marvolith contributors.
// The fixture of the control object tests: a fresh scene with the host's classes and both
// control classes registered, and the module's strings reachable.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "controls/control_helper.h"
#include "controls/control_shape.h"
#include "host/app/host_classes.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "plugin/strings.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {

class ControlsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    GetCOREInterface()->Reset();
    RegisterHostClasses();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    for (ClassDesc2* cd : {GetControlHelperDesc(), GetControlShapeDesc()}) {
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    }
    theHold.Clear();
  }
  void TearDown() override {
    GetCOREInterface()->Reset();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    SetModuleInstance(nullptr);
  }
  /// Deletes target at the end of the test.
  template <typename T>
  T* Keep(T* target) {
    return sweep_.Keep(target);
  }

  Interface* ip = GetCOREInterface();

 private:
  std::vector<ClassDesc2*> added_;
  SceneSweeper sweep_;
};

}  // namespace marvolith::test
