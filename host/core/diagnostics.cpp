// Copyright Marvolith contributors.
#include "host/core/diagnostics.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {
std::function<void(std::string_view)>& Sink() {
  static std::function<void(std::string_view)> sink;
  return sink;
}
}  // namespace

namespace marvolith_diagnostics {
void AssertFailed(const char* what, const char* file, int line) {
  std::fprintf(stderr, "Marvolith: assertion failed: %s (%s:%d)\n", what, file, line);
  std::abort();
}
}  // namespace marvolith_diagnostics

void LogLine(std::string_view line) {
  if (Sink()) Sink()(line);
}

std::function<void(std::string_view)> SetLogSink(std::function<void(std::string_view)> sink) {
  return std::exchange(Sink(), std::move(sink));
}
