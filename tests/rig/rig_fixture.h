// Copyright Marvolith contributors.
// A scene per test with the rig classes registered, a rig template object on a node, and
// snapshots of its template for comparisons across undo, redo and files.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "plugin/strings.h"
#include "rig/rig_system.h"
#include "tests/support/scene_objects.h"

namespace marvolith::test {

/// The parts of a template that edits, undo and files must keep: names, positions, extras.
struct RigSnapshot {
  std::vector<std::string> names;
  std::vector<Point3> positions;
  std::vector<RigExtra> extras;
  bool operator==(const RigSnapshot&) const = default;
};

inline void PrintTo(const RigSnapshot& s, std::ostream* os) {
  *os << s.names.size() << " points, " << s.extras.size() << " extras";
}

class RigTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    instance_ = GetModuleInstance();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    for (ClassDesc2* cd : {GetRigDesc(), GetRigSystemDesc()})
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    GetCOREInterface()->Reset();
  }
  void TearDown() override {
    GetCOREInterface()->Reset();
    theHold.Clear();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    SetModuleInstance(instance_);
  }

  /// A new rig template object on a node of the scene.
  static RigSystem* MakeRig(const char* name = "rig") {
    auto* rig = new RigSystem();
    GetCOREInterface()->CreateObjectNode(rig, name);
    return rig;
  }

  static void SetParam(RigSystem* rig, ParamID id, int value) {
    rig->ParamBlock()->SetValue(id, 0, value);
  }
  static int Param(RigSystem* rig, ParamID id) { return rig->ParamBlock()->GetInt(id); }

  static RigSnapshot Snapshot(const RigSystem* rig) {
    RigSnapshot s;
    for (const RigPoint& p : rig->Template().Points()) {
      s.names.push_back(p.name);
      s.positions.push_back(p.pos);
    }
    s.extras = rig->Extras();
    return s;
  }

  /// Names of the template's points that start with prefix.
  static int CountPrefixed(const RigSystem* rig, const std::string& prefix) {
    int n = 0;
    for (const RigPoint& p : rig->Template().Points())
      if (p.name.rfind(prefix, 0) == 0) ++n;
    return n;
  }

  /// Runs edit inside an accepted hold.
  template <typename F>
  static void Undoable(const char* name, F&& edit) {
    theHold.Begin();
    edit();
    theHold.Accept(name);
  }

 private:
  std::vector<ClassDesc2*> added_;
  HINSTANCE instance_ = nullptr;
};

}  // namespace marvolith::test
