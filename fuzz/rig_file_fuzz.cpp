// Copyright Marvolith contributors.
// libFuzzer target: the .rig decoder must refuse any damaged input with one line and an untouched
// output, and what it accepts must encode to a buffer that decodes to the same records.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "rig/rig_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using marvolith::RigFileData;
  RigFileData sentinel;
  sentinel.points.push_back({"sentinel", Point3(1, 2, 3)});
  RigFileData out = sentinel;
  std::string error;
  if (!marvolith::DecodeRigFile(std::span(data, size), &out, &error)) {
    if (error.rfind("Marvolith: ", 0) != 0 || error.find('\n') != std::string::npos) std::abort();
    if (!(out == sentinel)) std::abort();
    return 0;
  }
  // Accepted: writing it again keeps every record.
  const std::vector<std::uint8_t> again = marvolith::EncodeRigFile(out);
  RigFileData back;
  if (!marvolith::DecodeRigFile(again, &back, &error) || !(back == out)) std::abort();
  return 0;
}
