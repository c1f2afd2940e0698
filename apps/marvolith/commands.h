// Copyright Marvolith contributors.
// The subcommands of the marvolith tool. Each area adds its own with one Add...Commands call.
#pragma once

#include <CLI/CLI.hpp>

namespace marvolith::cli {

/// The version text of the tool, "Marvolith 2.02.02".
const char* VersionText();

/// `marvolith demo`: the most complete thing the tool can show on built-in defaults.
void AddDemoCommand(CLI::App& app);

/// Reports a failure: one line on stderr, and the exit code to return.
int Fail(const std::string& message);

}  // namespace marvolith::cli
