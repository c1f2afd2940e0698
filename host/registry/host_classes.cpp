// Copyright Marvolith contributors.
#include "host/registry/host_classes.h"

// Each area of the host declares its classes in its own registration function.

void RegisterHostClasses() {
  static bool done = false;
  if (done) return;
  done = true;
}
