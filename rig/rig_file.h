// Copyright Marvolith contributors.
// The .rig file: one flatbuffers buffer with the template's parameters, visible points and
// extras. The codec works on plain records; RigSystem gathers and applies them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/math/point3.h"

namespace marvolith {

/// One parameter as the file stores it. type is the host's parameter type number (TYPE_FLOAT 0,
/// TYPE_INT 1, TYPE_RGBA 2, TYPE_POINT3 3, TYPE_BOOL 4, TYPE_ANGLE 5, TYPE_WORLD 7, TYPE_STRING
/// 8, TYPE_INDEX 19); the value field that type uses is the one written and read.
struct RigParamRecord {
  std::uint16_t id = 0;
  std::int32_t type = 0;
  std::int32_t int_value = 0;
  float float_value = 0.0f;
  Point3 vector_value;
  std::string string_value;
  bool operator==(const RigParamRecord&) const = default;
};

struct RigPointRecord {
  std::string name;
  Point3 pos;
  bool operator==(const RigPointRecord&) const = default;
};

/// An extra as the file stores it: num_bones and use_bones are not in the format.
struct RigExtraRecord {
  std::string name;
  std::string parent;
  std::int32_t side = 0;
  /// As RigExtra keeps it: the number of controls minus one.
  std::int32_t num_controls = 0;
  bool operator==(const RigExtraRecord&) const = default;
};

struct RigFileData {
  std::vector<RigParamRecord> params;
  std::vector<RigPointRecord> points;
  std::vector<RigExtraRecord> extras;
  bool operator==(const RigFileData&) const = default;
};

/// The buffer of data (root offset first, no file identifier; fields equal to 0 and empty
/// strings omitted). A parameter keeps only the value field of its type; the others are dropped.
std::vector<std::uint8_t> EncodeRigFile(const RigFileData& data);
/// Verifies bytes (depth 64, 1,000,000 tables) and reads them into *out; missing fields read as
/// their defaults. False with a one-line "Marvolith: " reason in *error (may be null), and *out
/// untouched, for a buffer that is empty, over 64 MB, does not verify, or holds a text that is
/// not UTF-8 or a position or value that is not finite.
bool DecodeRigFile(std::span<const std::uint8_t> bytes, RigFileData* out, std::string* error);

/// Whole-file forms: false with a one-line "Marvolith: " reason for a file that can't be opened,
/// read, written or decoded. Write refuses data with a non-finite value and replaces the file
/// only once the whole buffer is written (through a temporary beside it); Read refuses a file
/// over 64 MB before reading it.
bool WriteRigFile(const std::string& path, const RigFileData& data, std::string* error);
bool ReadRigFile(const std::string& path, RigFileData* out, std::string* error);

}  // namespace marvolith
