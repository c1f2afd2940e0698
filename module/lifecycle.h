// Copyright Marvolith contributors.
// The module's start and end: what LibInitialize and LibShutdown do, the start-up and shut-down
// callbacks, and the shut-down routine that both the notification and LibShutdown run.
#pragma once

namespace marvolith {

/// LibInitialize: registers the module's start-up callback (NOTIFY_SYSTEM_STARTUP) and shut-down
/// callback (NOTIFY_SYSTEM_SHUTDOWN). Registering twice keeps one of each. Always answers 1.
int InitializeModule();

/// LibShutdown: unregisters the two callbacks of InitializeModule, then runs the shut-down routine
/// (a second time when the shut-down notification has run it already). Always answers 1.
int ShutdownModule();

/// The shut-down routine. Everything it touches is a guarded global that it clears, so any
/// further run finds nothing to do.
void RunShutdownRoutine();

}  // namespace marvolith
