// Copyright Marvolith contributors.
// A fresh scene per test with the given classes registered under this module's instance, and
// the helpers every chain test uses: plain nodes, undo steps, save/load round trips.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "plugin/strings.h"
#include "tests/support/math_matchers.h"
#include "tests/support/scene_checks.h"
#include "tests/support/scene_objects.h"

namespace marvolith::test {

/// A node's world position at t.
inline Point3 Pos(INode* n, TimeValue t = 0) { return n->GetNodeTM(t).GetTrans(); }

class ChainSceneTest : public ::testing::Test {
 protected:
  explicit ChainSceneTest(std::initializer_list<ClassDesc2*> classes) : classes_(classes) {}
  void SetUp() override {
    RegisterHostClasses();
    RegisterSceneTestClasses();
    instance_ = GetModuleInstance();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));  // the class names are the module's
    for (ClassDesc2* cd : classes_) {
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    }
    GetCOREInterface()->Reset();
  }
  void TearDown() override {
    AnimateOff();
    GetCOREInterface()->Reset();
    theHold.Clear();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    SetModuleInstance(instance_);
  }

  /// A plain node (the host's transform controller) at world transform tm.
  static INode* Node(const char* name, const Matrix3& tm = Matrix3(), INode* parent = nullptr) {
    INode* node = GetCOREInterface()->CreateObjectNode(nullptr, name);
    if (parent) parent->AttachChild(node, 0);
    node->SetNodeTM(0, tm);
    return node;
  }

  /// Runs edit inside an accepted hold.
  template <typename F>
  static void Undoable(const char* name, F&& edit) {
    theHold.Begin();
    edit();
    theHold.Accept(name);
  }

  /// Saves the scene, loads it back and saves again: both files must be the same bytes.
  static void RoundTrip() {
    std::vector<std::uint8_t> first, second;
    std::string error;
    ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
    ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
    ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
    EXPECT_EQ(first, second);
  }

 private:
  std::vector<ClassDesc2*> classes_;
  std::vector<ClassDesc2*> added_;
  HINSTANCE instance_ = nullptr;
};

}  // namespace marvolith::test
