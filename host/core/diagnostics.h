// Copyright Marvolith contributors.
// Assertions for programmer errors and the one routine that takes diagnostic lines.
#pragma once

#include <functional>
#include <string_view>

/// Programmer error: aborts with a message in builds with assertions; the caller still writes a
/// safe early return after it for builds without them.
#ifdef NDEBUG
#define MV_ASSERT(cond) ((void)0)
#else
#define MV_ASSERT(cond) \
  ((cond) ? (void)0 : ::marvolith_diagnostics::AssertFailed(#cond, __FILE__, __LINE__))
#endif

namespace marvolith_diagnostics {
[[noreturn]] void AssertFailed(const char* what, const char* file, int line);
}

/// Takes one diagnostic line that begins "Marvolith: ". The release form discards it; a sink set
/// with SetLogSink (tests, the CLI's --verbose) sees every line.
void LogLine(std::string_view line);

/// Installs a sink for LogLine; an empty function restores discarding. Returns the previous sink.
std::function<void(std::string_view)> SetLogSink(std::function<void(std::string_view)> sink);
