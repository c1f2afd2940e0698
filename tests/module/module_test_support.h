// Copyright Marvolith contributors.
// The fixture of the module's tests: a fresh headless host with the built Marvolith.dlc loaded
// through the plug-in loader, as the host loads it at start.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "host/app/host_classes.h"
#include "host/app/plugin_loader.h"
#include "host/scene/core_interface.h"
#include "host/script/track_view_filter.h"

namespace marvolith::test {

// The module's filters, by the ids the host knows them by.
inline constexpr std::uint64_t kLayersFilterId = 0x8b57c48e683a39ccull;
inline constexpr std::uint64_t kRotationXYZFilterId = 0x2f4c4168333e373full;

class ModuleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    GetCOREInterface()->Reset();
    // The module's code stays mapped between loads, and so do the filters it installed: start
    // each test without them.
    if (ITrackViewFilterRegistry* registry = GetTrackViewFilterRegistry()) {
      registry->RemoveFilter(kLayersFilterId);
      registry->RemoveFilter(kRotationXYZFilterId);
    }
    shutdown_callbacks_before_ = NumNotificationCallbacks(NOTIFY_SYSTEM_SHUTDOWN);
    std::string error;
    ASSERT_TRUE(LoadPlugin(MARVOLITH_MODULE_PATH, &error)) << error;
    ASSERT_EQ(NumLoadedPlugins(), 1);
    plugin_ = GetLoadedPlugin(0);
    ex_ = plugin_->exports;
  }
  void TearDown() override {
    GetCOREInterface()->Reset();  // objects of the module's classes go while it is loaded
    UnloadPlugins();
  }

  const LoadedPlugin* plugin_ = nullptr;
  PluginExports ex_;
  int shutdown_callbacks_before_ = 0;
};

}  // namespace marvolith::test
