// Copyright Marvolith contributors.
// The scripting global of the loaded module: registered with the host and reached by scripts.
#include "host/interpreter/runner.h"
#include "host/script/fp_interface.h"
#include "host/script/script_entry.h"
#include "tests/module/module_test_support.h"

namespace marvolith::test {
namespace {

TEST_F(ModuleTest, ScriptsReachTheMarvolithGlobal) {
  FPInterface* global = GetCOREInterface("Marvolith");
  ASSERT_NE(global, nullptr);
  EXPECT_EQ(global->GetID(), Interface_ID(0x4BC7724E, 0x227423FA));
  FPValue shown;
  ASSERT_TRUE(ExecuteMAXScriptScript(
      "Marvolith.activeUIPanel = Point name:\"Point001\"\n"
      "r = Marvolith.activeUIPanel == $Point001 and not Marvolith.uiPanelTransforming\n"
      "Marvolith.activeUIPanel = undefined\n"
      "r",
      false, &shown));
  EXPECT_EQ(shown, FPValue(true));
}

}  // namespace
}  // namespace marvolith::test
