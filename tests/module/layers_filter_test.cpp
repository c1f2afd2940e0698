// Copyright Marvolith contributors.
// The Track View's layer filter on real layered tracks of the loaded module: a node put on layers
// through the AnimationManager shows only its active layer's track until all are displayed.
#include <string>

#include "host/scene/inode.h"
#include "host/script/fp_interface.h"
#include "host/script/script_entry.h"
#include "tests/module/module_test_support.h"

namespace marvolith::test {
namespace {

constexpr Interface_ID kLayersInterfaceID(0x45596d56, 0x1e847b69);

class LayersFilterTest : public ModuleTest {
 protected:
  // Which of the track's layers 0..count (one beyond) the Track View shows.
  static std::string Shown(Animatable* parent, int count) {
    ITrackViewFilterRegistry* registry = GetTrackViewFilterRegistry();
    std::string out;
    for (int i = 0; i <= count; ++i) {
      out += registry->ShowTrack(parent->SubAnim(i), parent, i) ? '1' : '0';
    }
    return out;
  }
};

TEST_F(LayersFilterTest, InactiveLayersOfLayeredTracksAreHidden) {
  NotifySystemStartup();
  ASSERT_TRUE(ExecuteMAXScriptScript(R"(
    p = Point name:"p"
    AnimationManager.EnableLayersOnNodes #(p)
    c = p.position.controller
    c.AddAdjustmentLayer name:"one"
    c.AddOverrideLayer name:"two"
    c.SetActiveLayer 2
  )"));
  INode* node = GetCOREInterface()->GetINodeByName("p");
  ASSERT_NE(node, nullptr);
  Control* pos = node->GetTMController()->GetPositionController();
  Control* scl = node->GetTMController()->GetScaleController();
  ASSERT_NE(GetFPInterface(pos, kLayersInterfaceID), nullptr);
  ReferenceTarget* stack = pos->GetReference(0);
  ASSERT_NE(stack, nullptr);

  EXPECT_EQ(Shown(pos, 3), "0101");  // layer 1 of 0..2 is active; index 3 is beyond the layers
  EXPECT_EQ(Shown(scl, 3), "0101");
  EXPECT_EQ(Shown(stack, 3), "0101");  // the stack's weight tracks follow the same rule

  ASSERT_TRUE(ExecuteMAXScriptScript("$p.position.controller.SetDisplayAllLayersKeysTracks true"));
  EXPECT_EQ(Shown(pos, 3), "1111");
  ASSERT_TRUE(ExecuteMAXScriptScript("AnimationManager.DisableLayersOnNodes #($p)"));
  EXPECT_EQ(GetFPInterface(node->GetTMController()->GetPositionController(), kLayersInterfaceID),
            nullptr);
}

}  // namespace
}  // namespace marvolith::test
