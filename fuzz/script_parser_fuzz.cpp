// Copyright Marvolith contributors.
// libFuzzer target: the script parser must answer any text with a program or a syntax error
// that names a place inside the text, and never crash or run out of stack.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "host/interpreter/runner_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  ScriptError error;
  std::shared_ptr<const ScriptProgram> program = ParseScript(text, error);
  if (program) return 0;
  if (error.message.rfind("Syntax error: ", 0) != 0) std::abort();
  // The place is a real line and column of the text (one past the end at most).
  int lines = 1;
  for (char c : text) lines += c == '\n' ? 1 : 0;
  if (error.pos.line < 1 || error.pos.line > lines || error.pos.column < 1) std::abort();
  if (static_cast<std::size_t>(error.pos.column) > size + 1) std::abort();
  return 0;
}
