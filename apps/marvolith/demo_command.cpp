// Copyright Marvolith contributors.
#include <cstdio>

#include "apps/marvolith/commands.h"
#include "host/math/interval.h"
#include "host/scene/core_interface.h"

namespace marvolith::cli {

void AddDemoCommand(CLI::App& app) {
  auto* demo = app.add_subcommand("demo", "Show what this build can do, on built-in defaults");
  demo->callback([] {
    Interface* ip = GetCOREInterface();
    std::printf("%s\n", VersionText());
    std::printf("Headless host: %d ticks a second, %d ticks a frame, animation range %d..%d\n",
                TIME_TICKSPERSEC, ip->GetTicksPerFrame(),
                ip->GetAnimRange().Start() / ip->GetTicksPerFrame(),
                ip->GetAnimRange().End() / ip->GetTicksPerFrame());
    std::printf("Built: host math, references, undo, parameter blocks, function publishing, "
                "class directory, core interface\n");
  });
}

}  // namespace marvolith::cli
