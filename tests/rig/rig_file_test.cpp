// Copyright Marvolith contributors.
#include "rig/rig_file.h"

#include <flatbuffers/flatbuffers.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

#include "tests/support/math_generators.h"

namespace marvolith::test {
namespace {

namespace fs = std::filesystem;
using flatbuffers::String;
using flatbuffers::Table;
using TableVector = flatbuffers::Vector<flatbuffers::Offset<Table>>;

// The file's three-float struct, laid out as a reader without our schema would.
struct Floats3 {
  float x, y, z;
};

RigParamRecord Param(std::uint16_t id, std::int32_t type) {
  RigParamRecord p;
  p.id = id;
  p.type = type;
  return p;
}

// One record of every value kind, plus a type whose value the file does not keep.
RigFileData Sample() {
  RigFileData d;
  d.points = {{"spine_1", Point3(0.0f, 1.5f, -2.25f)}, {"l_hand", Point3(3, 4, 5)}, {"", {}}};
  for (std::int32_t type : {1, 4, 19}) d.params.push_back(Param(10 + type, type));
  d.params[0].int_value = -7;
  d.params[1].int_value = 1;
  d.params[2].int_value = 12;
  for (std::int32_t type : {0, 5, 7}) d.params.push_back(Param(20 + type, type));
  d.params[3].float_value = 0.5f;
  d.params[4].float_value = -3.0f;
  d.params[5].float_value = 100.0f;
  d.params.push_back(Param(30, 2));
  d.params.back().vector_value = Point3(0.25f, 0.5f, 1.0f);
  d.params.push_back(Param(31, 3));
  d.params.back().vector_value = Point3(-1, 2, -3);
  d.params.push_back(Param(40, 8));
  d.params.back().string_value = "\xE6\x89\x8B tail";
  d.params.push_back(Param(50, 6));  // TYPE_RGB-like kinds keep only id and type
  d.extras = {{"antenna", "head", 3, 4}, {"r_strap", "r_clavicle", 0, 0}, {"odd", "", -1, -2}};
  return d;
}

// A refusal is one "Marvolith: " line and leaves the output as it was.
void ExpectRefused(std::span<const std::uint8_t> bytes) {
  RigFileData out = Sample();
  std::string error;
  EXPECT_FALSE(DecodeRigFile(bytes, &out, &error));
  EXPECT_EQ(error.rfind("Marvolith: ", 0), 0u) << error;
  EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  EXPECT_EQ(out, Sample());
}

RigFileData Decoded(std::span<const std::uint8_t> bytes) {
  RigFileData out;
  std::string error;
  EXPECT_TRUE(DecodeRigFile(bytes, &out, &error)) << error;
  return out;
}

TEST(RigFileCodec, EveryValueKindRoundTrips) {
  EXPECT_EQ(Decoded(EncodeRigFile(Sample())), Sample());
  EXPECT_EQ(Decoded(EncodeRigFile({})), RigFileData{});
}

TEST(RigFileCodec, OnlyTheFieldOfTheTypeIsKept) {
  RigFileData d;
  d.params = {Param(1, 1), Param(2, 0), Param(3, 6)};
  for (RigParamRecord& p : d.params) {
    p.int_value = 5;
    p.float_value = 2.0f;
    p.vector_value = Point3(1, 1, 1);
    p.string_value = "x";
  }
  const RigFileData back = Decoded(EncodeRigFile(d));
  ASSERT_EQ(back.params.size(), 3u);
  RigParamRecord int_only = Param(1, 1), float_only = Param(2, 0);
  int_only.int_value = 5;
  float_only.float_value = 2.0f;
  EXPECT_EQ(back.params[0], int_only);
  EXPECT_EQ(back.params[1], float_only);
  EXPECT_EQ(back.params[2], Param(3, 6));
}

// Read with the raw table API at the documented offsets, never through generated accessors.
TEST(RigFileCodec, FieldsSitAtTheDocumentedOffsetsAndDefaultsAreOmitted) {
  const std::vector<std::uint8_t> bytes = EncodeRigFile(Sample());
  const Table* root = flatbuffers::GetRoot<Table>(bytes.data());
  const auto* points = root->GetPointer<const TableVector*>(4);
  const auto* params = root->GetPointer<const TableVector*>(6);
  const auto* extras = root->GetPointer<const TableVector*>(8);
  ASSERT_TRUE(points && params && extras);
  ASSERT_EQ(points->size(), 3u);
  EXPECT_EQ(points->Get(1)->GetPointer<const String*>(4)->str(), "l_hand");
  const auto* pos = points->Get(0)->GetStruct<const Floats3*>(6);
  ASSERT_TRUE(pos);
  EXPECT_EQ(pos->z, -2.25f);
  EXPECT_FALSE(points->Get(2)->CheckField(4));  // empty name

  const Table* int_param = params->Get(0);  // id 11, TYPE_INT, -7
  EXPECT_EQ((int_param->GetField<std::uint16_t>(4, 0)), 11);
  EXPECT_EQ(int_param->GetField<std::int32_t>(6, 0), 1);
  EXPECT_EQ(int_param->GetField<std::int32_t>(10, 0), -7);
  for (int unused : {8, 12, 14, 16}) EXPECT_FALSE(int_param->CheckField(unused)) << unused;
  EXPECT_FLOAT_EQ(params->Get(3)->GetField<float>(12, 0), 0.5f);
  EXPECT_EQ(params->Get(7)->GetStruct<const Floats3*>(14)->z, -3.0f);
  EXPECT_EQ(params->Get(8)->GetPointer<const String*>(16)->str(), "\xE6\x89\x8B tail");
  EXPECT_FALSE(params->Get(9)->CheckField(10) || params->Get(9)->CheckField(12));

  const Table* antenna = extras->Get(0);
  EXPECT_EQ(antenna->GetPointer<const String*>(4)->str(), "antenna");
  EXPECT_EQ(antenna->GetPointer<const String*>(6)->str(), "head");
  EXPECT_EQ(antenna->GetField<std::int32_t>(8, 0), 3);
  EXPECT_EQ(antenna->GetField<std::int32_t>(10, 0), 4);
  EXPECT_FALSE(extras->Get(1)->CheckField(8) || extras->Get(1)->CheckField(10));
}

// Written as another program would, from the offsets alone; includes an extra field this build
// does not know and a value in a field that the type does not use.
TEST(RigFileCodec, ReadsABufferBuiltFromTheOffsetsAlone) {
  flatbuffers::FlatBufferBuilder fbb;
  auto table = [&](auto&& fill) {
    const auto start = fbb.StartTable();
    fill();
    return flatbuffers::Offset<Table>(fbb.EndTable(start));
  };
  const auto name = fbb.CreateString("neck");
  const Floats3 pos{1, 2, 3};
  const auto point = table([&] {
    fbb.AddOffset(4, name);
    fbb.AddStruct(6, &pos);
  });
  const auto text = fbb.CreateString("abc");
  const auto string_param = table([&] {
    fbb.AddElement<std::uint16_t>(4, 9, 0);
    fbb.AddElement<std::int32_t>(6, 8, 0);
    fbb.AddOffset(16, text);
    fbb.AddElement<std::int32_t>(18, 77, 0);  // a later field
  });
  const auto index_param = table([&] {
    fbb.AddElement<std::uint16_t>(4, 3, 0);
    fbb.AddElement<std::int32_t>(6, 19, 0);
    fbb.AddElement<std::int32_t>(10, 2, 0);
    fbb.AddElement<float>(12, 9.0f, 0);  // not read for an index
  });
  const auto empty_param = table([] {});
  const auto extra_name = fbb.CreateString("tail");
  const auto extra = table([&] {
    fbb.AddOffset(4, extra_name);
    fbb.AddElement<std::int32_t>(8, 2, 0);
  });
  const auto points = fbb.CreateVector(std::vector{point});
  const auto params = fbb.CreateVector(std::vector{string_param, index_param, empty_param});
  const auto extras = fbb.CreateVector(std::vector{extra});
  fbb.Finish(table([&] {
    fbb.AddOffset(4, points);
    fbb.AddOffset(6, params);
    fbb.AddOffset(8, extras);
  }));

  RigFileData want;
  want.points = {{"neck", Point3(1, 2, 3)}};
  want.params = {Param(9, 8), Param(3, 19), Param(0, 0)};
  want.params[0].string_value = "abc";
  want.params[1].int_value = 2;
  want.extras = {{"tail", "", 2, 0}};
  EXPECT_EQ(Decoded({fbb.GetBufferPointer(), fbb.GetSize()}), want);
}

TEST(RigFileCodec, DamagedBuffersAreRefusedWithOneLine) {
  const std::vector<std::uint8_t> good = EncodeRigFile(Sample());
  // Every object is referenced, so every cut reaches one.
  for (std::size_t n = 0; n < good.size(); ++n) ExpectRefused(std::span(good).first(n));
  for (std::uint32_t root : {0u, 2u, static_cast<std::uint32_t>(good.size()), 0xFFFFFFF0u}) {
    std::vector<std::uint8_t> bad = good;
    std::memcpy(bad.data(), &root, sizeof(root));
    ExpectRefused(bad);
  }
  // A string whose length runs past the end of the buffer.
  std::vector<std::uint8_t> long_string = EncodeRigFile({{}, {{"p", {}}}, {}});
  const std::uint8_t len[] = {1, 0, 0, 0, 'p'};
  auto at = std::search(long_string.begin(), long_string.end(), std::begin(len), std::end(len));
  ASSERT_NE(at, long_string.end());
  at[3] = 0x40;
  ExpectRefused(long_string);
  // Names that are not UTF-8: overlong, surrogate, cut short.
  for (const char* name : {"\xC0\xAF", "\xED\xA0\x80", "ab\xE6\x89"})
    ExpectRefused(EncodeRigFile({{}, {{name, {}}}, {}}));
  ExpectRefused(EncodeRigFile({{}, {}, {{"ok", "\xFF", 0, 0}}}));
}

TEST(RigFileCodec, NonFiniteValuesAreRefusedOnReadAndNeverWritten) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  RigFileData bad_point = Sample(), bad_param = Sample();
  bad_point.points[1].pos.y = std::numeric_limits<float>::infinity();
  bad_param.params[7].vector_value.x = nan;
  ExpectRefused(EncodeRigFile(bad_point));
  ExpectRefused(EncodeRigFile(bad_param));
  // A NaN in a field the type doesn't use never reaches the file, so it is harmless.
  RigFileData unused = Sample();
  unused.params[0].float_value = nan;
  EXPECT_EQ(Decoded(EncodeRigFile(unused)), Sample());

  const fs::path path = fs::temp_directory_path() / "marvolith_rig_nan.rig";
  std::string error;
  EXPECT_FALSE(WriteRigFile(path.string(), bad_point, &error));
  EXPECT_NE(error.find("finite"), std::string::npos) << error;
  EXPECT_FALSE(fs::exists(path));
}

// Each point is a table; a vector that names one table a million times must not get through.
TEST(RigFileCodec, TableCountIsBounded) {
  auto many = [](std::size_t count) {
    flatbuffers::FlatBufferBuilder fbb;
    const auto name = fbb.CreateString("p");
    const auto start = fbb.StartTable();
    fbb.AddOffset(4, name);
    const flatbuffers::Offset<Table> point(fbb.EndTable(start));
    const auto points = fbb.CreateVector(std::vector(count, point));
    const auto root = fbb.StartTable();
    fbb.AddOffset(4, points);
    fbb.Finish(flatbuffers::Offset<Table>(fbb.EndTable(root)));
    return std::vector<std::uint8_t>(fbb.GetBufferPointer(),
                                     fbb.GetBufferPointer() + fbb.GetSize());
  };
  EXPECT_EQ(Decoded(many(999999)).points.size(), 999999u);  // with the root, a million tables
  ExpectRefused(many(1000000));
}

std::string Utf8(const std::vector<std::uint32_t>& code_points) {
  std::string s;
  for (std::uint32_t c : code_points) {
    if (c < 0x80) {
      s += static_cast<char>(c);
    } else if (c < 0x800) {
      s += {static_cast<char>(0xC0 | (c >> 6)), static_cast<char>(0x80 | (c & 0x3F))};
    } else if (c < 0x10000) {
      s += {static_cast<char>(0xE0 | (c >> 12)), static_cast<char>(0x80 | ((c >> 6) & 0x3F)),
            static_cast<char>(0x80 | (c & 0x3F))};
    } else {
      s += {static_cast<char>(0xF0 | (c >> 18)), static_cast<char>(0x80 | ((c >> 12) & 0x3F)),
            static_cast<char>(0x80 | ((c >> 6) & 0x3F)), static_cast<char>(0x80 | (c & 0x3F))};
    }
  }
  return s;
}

rc::Gen<std::string> GenText() {
  const auto code_point = rc::gen::weightedOneOf<std::uint32_t>(
      {{6, rc::gen::inRange<std::uint32_t>(0, 0x80)},
       {1, rc::gen::inRange<std::uint32_t>(0x80, 0xD800)},
       {1, rc::gen::inRange<std::uint32_t>(0xE000, 0x110000)}});
  return rc::gen::map(rc::gen::container<std::vector<std::uint32_t>>(code_point), Utf8);
}

// Records as a file holds them: the value fields a type does not use are zero.
rc::Gen<RigParamRecord> GenParam() {
  return rc::gen::exec([] {
    RigParamRecord p = Param(*rc::gen::arbitrary<std::uint16_t>(),
                             *rc::gen::element(0, 1, 2, 3, 4, 5, 6, 7, 8, 19, -3, 1 << 20));
    if (p.type == 1 || p.type == 4 || p.type == 19) p.int_value = *rc::gen::arbitrary<int>();
    if (p.type == 0 || p.type == 5 || p.type == 7) p.float_value = *GenFloat(-1e6f, 1e6f);
    if (p.type == 2 || p.type == 3) p.vector_value = *GenPoint3(1e4f);
    if (p.type == 8) p.string_value = *GenText();
    return p;
  });
}

RC_GTEST_PROP(RigFileCodecLaws, DecodeUndoesEncode, ()) {
  RigFileData d;
  d.params = *rc::gen::container<std::vector<RigParamRecord>>(GenParam());
  d.points = *rc::gen::container<std::vector<RigPointRecord>>(rc::gen::apply(
      [](std::string n, Point3 p) {
        return RigPointRecord{std::move(n), p};
      },
      GenText(), GenPoint3(1e4f)));
  d.extras = *rc::gen::container<std::vector<RigExtraRecord>>(rc::gen::apply(
      [](std::string n, std::string p, int side, int count) {
        return RigExtraRecord{std::move(n), std::move(p), side, count};
      },
      GenText(), GenText(), rc::gen::arbitrary<int>(), rc::gen::arbitrary<int>()));
  RigFileData out;
  std::string error;
  RC_ASSERT(DecodeRigFile(EncodeRigFile(d), &out, &error));
  RC_ASSERT(out == d);
}

RC_GTEST_PROP(RigFileCodecLaws, ArbitraryBytesNeverGetPartlyIn, (std::vector<std::uint8_t> bytes)) {
  // Half the time, start from a real file with some bytes changed.
  if (*rc::gen::arbitrary<bool>()) {
    std::vector<std::uint8_t> good = EncodeRigFile(Sample());
    for (std::uint8_t b : bytes) good[b % good.size()] ^= static_cast<std::uint8_t>(b | 1);
    bytes = good;
  }
  RigFileData out = Sample();
  std::string error;
  if (!DecodeRigFile(bytes, &out, &error)) {
    RC_ASSERT(out == Sample());
    RC_ASSERT(error.rfind("Marvolith: ", 0) == 0);
    RC_ASSERT(error.find('\n') == std::string::npos);
  }
}

class RigFileOnDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "marvolith_rig_file_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  std::string Path(const char* name) const { return (dir_ / name).string(); }
  fs::path dir_;
};

TEST_F(RigFileOnDisk, WritesWholeAndReadsBack) {
  std::string error;
  ASSERT_TRUE(WriteRigFile(Path("a.rig"), {{}, {{"old", {}}}, {}}, &error)) << error;
  ASSERT_TRUE(WriteRigFile(Path("a.rig"), Sample(), &error)) << error;
  RigFileData out;
  ASSERT_TRUE(ReadRigFile(Path("a.rig"), &out, &error)) << error;
  EXPECT_EQ(out, Sample());
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 1);
}

TEST_F(RigFileOnDisk, FailuresLeaveNoFileAndSayWhy) {
  std::string error;
  auto refused = [&](bool ok, const char* says) {
    EXPECT_FALSE(ok);
    EXPECT_NE(error.find(says), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  };
  refused(WriteRigFile(Path("no/such/dir/a.rig"), Sample(), &error), "could not write");
  fs::create_directory(dir_ / "folder.rig");
  refused(WriteRigFile(Path("folder.rig"), Sample(), &error), "could not write");
  EXPECT_TRUE(fs::is_directory(dir_ / "folder.rig"));
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 1);

  RigFileData out = Sample();
  refused(ReadRigFile(Path("missing.rig"), &out, &error), "could not open");
  refused(ReadRigFile(Path("folder.rig"), &out, &error), "is a folder");
  std::ofstream(Path("text.rig")) << "not a rig file at all";
  refused(ReadRigFile(Path("text.rig"), &out, &error), "does not verify");
  // A sparse file: refused by its size, before anything is read.
  std::ofstream(Path("huge.rig")).close();
  fs::resize_file(dir_ / "huge.rig", 64u * 1024u * 1024u + 1u);
  refused(ReadRigFile(Path("huge.rig"), &out, &error), "larger than 64 MB");
  EXPECT_EQ(out, Sample());
}

// The fuzz seeds were written by flatc from JSON, a writer other than ours.
TEST(RigFileSeeds, FilesFromAnotherWriterRead) {
  RigFileData out;
  std::string error;
  for (const char* name : {"empty", "value_kinds", "template"})
    EXPECT_TRUE(ReadRigFile(std::string("fuzz/corpus/rig_file/") + name + ".rig", &out, &error))
        << error;
  ASSERT_EQ(out.extras.size(), 3u);
  EXPECT_EQ(out.extras[1], (RigExtraRecord{"r_strap", "r_upper_arm", 0, 0}));
  EXPECT_EQ(out.points[3], (RigPointRecord{"head", Point3(0.0f, 0.2f, 16.0f)}));
}

#if defined(MARVOLITH_FLATC) && defined(MARVOLITH_RIG_SCHEMA)
// Another reader with nothing but the schema text agrees with what we wrote.
TEST_F(RigFileOnDisk, FlatcReadsTheFileWithTheRepositorySchema) {
  if (!fs::exists(MARVOLITH_FLATC)) GTEST_SKIP() << "flatc not found at " << MARVOLITH_FLATC;
  std::string error;
  ASSERT_TRUE(WriteRigFile(Path("s.rig"), Sample(), &error)) << error;
  const std::string command = std::string(MARVOLITH_FLATC) +
                              " --json --raw-binary --strict-json -o " + dir_.string() + " " +
                              MARVOLITH_RIG_SCHEMA + " -- " + Path("s.rig");
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  std::ifstream json(Path("s.json"));
  const std::string text((std::istreambuf_iterator<char>(json)), std::istreambuf_iterator<char>());
  for (const char* expect :
       {"\"name\": \"l_hand\"", "\"z\": -2.25", "\"int_value\": -7", "\"float_value\": 100.0",
        "\"parent\": \"r_clavicle\"", "\"num_controls\": 4", "\"id\": 50"})
    EXPECT_NE(text.find(expect), std::string::npos) << expect << " in\n" << text;
  EXPECT_EQ(text.find("reserved"), std::string::npos);
}
#endif

}  // namespace
}  // namespace marvolith::test
