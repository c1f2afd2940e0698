// Copyright Marvolith contributors.
#include "rig/rig_file.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>
#include <utility>

#include "flatbuffers/flatbuffers.h"
#include "host/core/diagnostics.h"
#include "rig/rig_file_generated.h"

namespace marvolith {

namespace {

namespace fb = rigfile;

// A template holds a few hundred points; anything near this is not a rig file, and refusing it
// before reading keeps a stray multi-gigabyte file from being pulled into memory.
constexpr std::uintmax_t kMaxRigFileBytes = 64u * 1024u * 1024u;
constexpr flatbuffers::uoffset_t kMaxDepth = 64;
constexpr flatbuffers::uoffset_t kMaxTables = 1000000;

// The host's parameter type numbers, grouped by the value field each one uses.
enum class ValueField { kNone, kInt, kFloat, kVector, kString };

ValueField FieldOfType(std::int32_t type) {
  switch (type) {
    case 0:  // TYPE_FLOAT
    case 5:  // TYPE_ANGLE
    case 7:  // TYPE_WORLD
      return ValueField::kFloat;
    case 1:   // TYPE_INT
    case 4:   // TYPE_BOOL
    case 19:  // TYPE_INDEX
      return ValueField::kInt;
    case 2:  // TYPE_RGBA
    case 3:  // TYPE_POINT3
      return ValueField::kVector;
    case 8:  // TYPE_STRING
      return ValueField::kString;
    default:
      return ValueField::kNone;
  }
}

bool Fail(std::string* error, const std::string& text) {
  const std::string line = "Marvolith: " + text;
  LogLine(line + "\n");
  if (error) *error = line;
  return false;
}

fb::Vec3 ToVec3(const Point3& p) { return fb::Vec3(p.x, p.y, p.z); }
Point3 FromVec3(const fb::Vec3* v) { return v ? Point3(v->x(), v->y(), v->z()) : Point3(); }

bool IsFinite(const Point3& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool IsUtf8(std::string_view s) {
  std::size_t i = 0;
  while (i < s.size()) {
    const auto c = static_cast<unsigned char>(s[i]);
    std::size_t extra = 0;
    std::uint32_t code = 0;
    if (c < 0x80) {
      ++i;
      continue;
    } else if (c >= 0xC2 && c <= 0xDF) {
      extra = 1;
      code = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      extra = 2;
      code = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      extra = 3;
      code = c & 0x07;
    } else {
      return false;
    }
    if (i + extra >= s.size()) return false;
    for (std::size_t k = 1; k <= extra; ++k) {
      const auto cc = static_cast<unsigned char>(s[i + k]);
      if ((cc & 0xC0) != 0x80) return false;
      code = (code << 6) | (cc & 0x3F);
    }
    if ((extra == 2 && (code < 0x800 || (code >= 0xD800 && code <= 0xDFFF))) ||
        (extra == 3 && (code < 0x10000 || code > 0x10FFFF)))
      return false;
    i += extra + 1;
  }
  return true;
}

// The first value of data that a file may not hold, described for a message; empty when none.
std::string FindUnstorable(const RigFileData& data) {
  for (std::size_t i = 0; i < data.points.size(); ++i)
    if (!IsFinite(data.points[i].pos))
      return "point " + std::to_string(i) + " has a position that is not a finite number";
  for (std::size_t i = 0; i < data.params.size(); ++i) {
    const RigParamRecord& p = data.params[i];
    const ValueField field = FieldOfType(p.type);
    if ((field == ValueField::kFloat && !std::isfinite(p.float_value)) ||
        (field == ValueField::kVector && !IsFinite(p.vector_value)))
      return "parameter " + std::to_string(p.id) + " has a value that is not a finite number";
  }
  return {};
}

// Empty strings are the field's default and stay out of the buffer, like zero scalars.
flatbuffers::Offset<flatbuffers::String> OptionalString(flatbuffers::FlatBufferBuilder& fbb,
                                                        const std::string& s) {
  return s.empty() ? 0 : fbb.CreateString(s);
}

std::string ReadString(const flatbuffers::String* s) {
  return s ? std::string(s->data(), s->size()) : std::string();
}

// Reads a verified buffer. Answers a reason for the first record that can't be taken in.
std::optional<std::string> ReadVerified(const fb::RigFile& root, RigFileData& out) {
  if (const auto* points = root.points()) {
    out.points.reserve(points->size());
    for (flatbuffers::uoffset_t i = 0; i < points->size(); ++i) {
      const fb::RigPointRecord* rec = points->Get(i);
      RigPointRecord point{ReadString(rec->name()), FromVec3(rec->pos())};
      if (!IsUtf8(point.name)) return "the name of point " + std::to_string(i) + " is not UTF-8";
      if (!IsFinite(point.pos))
        return "point " + std::to_string(i) + " has a position that is not a finite number";
      out.points.push_back(std::move(point));
    }
  }
  if (const auto* params = root.params()) {
    out.params.reserve(params->size());
    for (const fb::ParamRecord* rec : *params) {
      RigParamRecord param;
      param.id = rec->id();
      param.type = rec->type();
      // Only the field the type uses is read: a value in another field is not part of the record.
      switch (FieldOfType(param.type)) {
        case ValueField::kInt:
          param.int_value = rec->int_value();
          break;
        case ValueField::kFloat:
          param.float_value = rec->float_value();
          break;
        case ValueField::kVector:
          param.vector_value = FromVec3(rec->vector_value());
          break;
        case ValueField::kString:
          param.string_value = ReadString(rec->string_value());
          break;
        case ValueField::kNone:
          break;
      }
      const std::string which = "parameter " + std::to_string(param.id);
      if (!std::isfinite(param.float_value) || !IsFinite(param.vector_value))
        return which + " has a value that is not a finite number";
      if (!IsUtf8(param.string_value)) return which + " has a text that is not UTF-8";
      out.params.push_back(std::move(param));
    }
  }
  if (const auto* extras = root.extras()) {
    out.extras.reserve(extras->size());
    for (flatbuffers::uoffset_t i = 0; i < extras->size(); ++i) {
      const fb::RigExtraRecord* rec = extras->Get(i);
      RigExtraRecord extra{ReadString(rec->name()), ReadString(rec->parent()), rec->side(),
                           rec->num_controls()};
      if (!IsUtf8(extra.name) || !IsUtf8(extra.parent))
        return "the name or parent of extra " + std::to_string(i) + " is not UTF-8";
      out.extras.push_back(std::move(extra));
    }
  }
  return std::nullopt;
}

// The reason bytes are refused, or nothing with *out filled.
std::optional<std::string> Decode(std::span<const std::uint8_t> bytes, RigFileData* out) {
  if (bytes.empty()) return "it is empty";
  if (bytes.size() > kMaxRigFileBytes) return "it is larger than 64 MB";
  // Scalars are read in place: a buffer that starts off an 8-byte boundary is read from a copy.
  std::vector<std::uint8_t> aligned;
  if (reinterpret_cast<std::uintptr_t>(bytes.data()) % alignof(std::max_align_t) != 0) {
    aligned.assign(bytes.begin(), bytes.end());
    bytes = aligned;
  }
  flatbuffers::Verifier verifier(bytes.data(), bytes.size(), kMaxDepth, kMaxTables);
  if (!verifier.VerifyBuffer<fb::RigFile>(nullptr))
    return "it is not a rig template buffer (it does not verify)";
  RigFileData data;
  if (auto why = ReadVerified(*flatbuffers::GetRoot<fb::RigFile>(bytes.data()), data)) return why;
  *out = std::move(data);
  return std::nullopt;
}

}  // namespace

std::vector<std::uint8_t> EncodeRigFile(const RigFileData& data) {
  flatbuffers::FlatBufferBuilder fbb;
  std::vector<flatbuffers::Offset<fb::RigPointRecord>> points;
  points.reserve(data.points.size());
  for (const RigPointRecord& point : data.points) {
    const auto name = OptionalString(fbb, point.name);
    const fb::Vec3 pos = ToVec3(point.pos);
    points.push_back(fb::CreateRigPointRecord(fbb, name, &pos));
  }
  std::vector<flatbuffers::Offset<fb::ParamRecord>> params;
  params.reserve(data.params.size());
  for (const RigParamRecord& param : data.params) {
    const ValueField field = FieldOfType(param.type);
    const auto text = field == ValueField::kString ? OptionalString(fbb, param.string_value)
                                                   : flatbuffers::Offset<flatbuffers::String>();
    const fb::Vec3 vector = ToVec3(param.vector_value);
    fb::ParamRecordBuilder rec(fbb);
    rec.add_id(param.id);
    rec.add_type(param.type);
    rec.add_reserved(0);
    if (field == ValueField::kInt) rec.add_int_value(param.int_value);
    if (field == ValueField::kFloat) rec.add_float_value(param.float_value);
    if (field == ValueField::kVector) rec.add_vector_value(&vector);
    if (field == ValueField::kString) rec.add_string_value(text);
    params.push_back(rec.Finish());
  }
  std::vector<flatbuffers::Offset<fb::RigExtraRecord>> extras;
  extras.reserve(data.extras.size());
  for (const RigExtraRecord& extra : data.extras) {
    const auto name = OptionalString(fbb, extra.name);
    const auto parent = OptionalString(fbb, extra.parent);
    extras.push_back(fb::CreateRigExtraRecord(fbb, name, parent, extra.side, extra.num_controls));
  }
  const auto root = fb::CreateRigFile(fbb, fbb.CreateVector(points), fbb.CreateVector(params),
                                      fbb.CreateVector(extras));
  fbb.Finish(root);
  return {fbb.GetBufferPointer(), fbb.GetBufferPointer() + fbb.GetSize()};
}

bool DecodeRigFile(std::span<const std::uint8_t> bytes, RigFileData* out, std::string* error) {
  if (!out) return Fail(error, "the rig data has nowhere to go.");
  if (auto why = Decode(bytes, out))
    return Fail(error, "the rig data can't be read: " + *why + ".");
  return true;
}

bool WriteRigFile(const std::string& path, const RigFileData& data, std::string* error) {
  if (std::string why = FindUnstorable(data); !why.empty())
    return Fail(error, "the rig file " + path + " was not written: " + why + ".");
  const std::vector<std::uint8_t> bytes = EncodeRigFile(data);
  // Written beside the target and renamed over it, so a failed write leaves no half file and
  // keeps the previous one.
  const std::filesystem::path target(path);
  std::filesystem::path partial = target;
  partial += ".partial";
  bool written = false;
  {
    std::ofstream file(partial, std::ios::binary | std::ios::trunc);
    if (file) {
      file.write(reinterpret_cast<const char*>(bytes.data()),
                 static_cast<std::streamsize>(bytes.size()));
      file.close();
      written = !file.fail();
    }
  }
  std::error_code ec;
  if (written) std::filesystem::rename(partial, target, ec);
  if (!written || ec) {
    std::filesystem::remove(partial, ec);
    return Fail(error, "could not write the rig file " + path + ".");
  }
  return true;
}

bool ReadRigFile(const std::string& path, RigFileData* out, std::string* error) {
  if (!out) return Fail(error, "the rig data has nowhere to go.");
  std::error_code ec;
  const std::filesystem::path file_path(path);
  if (std::filesystem::is_directory(file_path, ec))
    return Fail(error, "the rig file " + path + " is a folder.");
  const std::uintmax_t size_bytes = std::filesystem::file_size(file_path, ec);
  if (ec) return Fail(error, "could not open the rig file " + path + ".");
  if (size_bytes > kMaxRigFileBytes)
    return Fail(error, "the rig file " + path + " is larger than 64 MB.");
  std::ifstream file(file_path, std::ios::binary);
  if (!file) return Fail(error, "could not open the rig file " + path + ".");
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size_bytes));
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  // A file that grows while being read is taken as its first size_bytes; one that shrank fails.
  if (file.gcount() != static_cast<std::streamsize>(bytes.size()))
    return Fail(error, "could not read the rig file " + path + ".");
  if (auto why = Decode(bytes, out))
    return Fail(error, "the rig file " + path + " can't be read: " + *why + ".");
  return true;
}

}  // namespace marvolith
