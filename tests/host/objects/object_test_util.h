// Copyright Marvolith contributors.
// A fresh headless scene per test of the host's objects, with every host class registered.
#pragma once

#include <gtest/gtest.h>

#include "host/app/host_classes.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"

namespace marvolith::test {

class ObjectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    ip->Reset();
  }
  void TearDown() override {
    AnimateOff();
    ip->Reset();  // frees every node with its object; clears undo
  }
  /// A new instance of a registered class, made as a user would (not for loading).
  template <typename T>
  static T* Make(SClass_ID sclass, Class_ID cid) {
    return dynamic_cast<T*>(CreateInstance(sclass, cid));
  }
  /// Runs change inside one accepted hold.
  template <typename F>
  static void Undoable(F&& change) {
    theHold.Begin();
    change();
    theHold.Accept("change");
  }

  Interface* ip = GetCOREInterface();
};

}  // namespace marvolith::test
