// Copyright Marvolith contributors.
// libFuzzer target: the scene file reader must refuse any damaged input cleanly, leaving the open
// scene as it was, and a file it accepts must save again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/interpreter/scripted_attrib.h"
#include "host/scene/core_interface.h"
#include "host/scene/scene.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool registered = (RegisterHostClasses(), RegisterScriptedAttribClass(), true);
  (void)registered;
  Interface* ip = GetCOREInterface();
  ip->Reset();
  INode* sentinel = ip->CreateObjectNode(nullptr, "sentinel");
  std::string error;
  if (LoadSceneFromBytes(std::span(data, size), &error)) {
    // Accepted: the scene is whole enough to evaluate and to write again.
    std::vector<INode*> nodes;
    Scene::Active().CollectNodes(nodes);
    for (INode* node : nodes) {
      node->GetNodeTM(0);
      node->EvalWorldState(0);
    }
    std::vector<std::uint8_t> again;
    if (!SaveSceneToBytes(again, &error)) std::abort();
  } else {
    // Refused: a message, and the open scene untouched.
    if (error.rfind("Marvolith: ", 0) != 0) std::abort();
    if (ip->GetINodeByName("sentinel") != sentinel) std::abort();
  }
  ip->Reset();
  return 0;
}
