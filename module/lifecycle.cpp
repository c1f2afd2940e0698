// Copyright Marvolith contributors.
#include "module/lifecycle.h"

#include "chains/curve_ik_scripts.h"
#include "chains/ikfk_scripts.h"
#include "controllers/rig_control.h"
#include "host/scene/core_interface.h"

namespace marvolith {
namespace {

// TODO(curve editor): this is where the curve editor starts: it registers its action table
// again, registers for NOTIFY_SYSTEM_PRE_RESET, NOTIFY_SYSTEM_PRE_NEW and NOTIFY_FILE_PRE_OPEN,
// builds its menus and installs the native editor override. Until the curve editor exists the
// start-up has nothing else to do; the Track View filters install themselves.
void OnSystemStartup(void*, NotifyInfo*) {}

void OnSystemShutdown(void*, NotifyInfo*) { RunShutdownRoutine(); }

}  // namespace

int InitializeModule() {
  // TODO(curve editor): register the curve editor's action table (id 1816476183, context
  // 1172992457) and, once, its menu upkeep callbacks for the codes 245 and 241, here, before the
  // callbacks below.
  RegisterNotification(&OnSystemStartup, nullptr, NOTIFY_SYSTEM_STARTUP);
  RegisterNotification(&OnSystemShutdown, nullptr, NOTIFY_SYSTEM_SHUTDOWN);
  RegisterIKFKScriptFunctions();
  RegisterCurveIKScriptFunctions();
  return 1;
}

int ShutdownModule() {
  UnRegisterNotification(&OnSystemStartup, nullptr, NOTIFY_SYSTEM_STARTUP);
  UnRegisterNotification(&OnSystemShutdown, nullptr, NOTIFY_SYSTEM_SHUTDOWN);
  UnRegisterIKFKScriptFunctions();
  UnRegisterCurveIKScriptFunctions();
  RunShutdownRoutine();
  // TODO(fbx): release the FBX manager singleton here once the FBX bridge makes one.
  return 1;
}

void RunShutdownRoutine() {
  // TODO(curve editor): remove the native editor override and its event filter, then save and
  // close the two long-lived curve editor windows, clearing each guarded pointer.
  // The rig transform's shared gimbal proxy is locked against auto-deletion; a second call finds
  // it gone.
  ReleaseGimbalProxy();
}

}  // namespace marvolith
