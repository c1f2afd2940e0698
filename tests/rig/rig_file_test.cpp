// Copyright Marvolith contributors.
#include "rig/rig_file.h"

#include <flatbuffers/flatbuffers.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <stdlib.h>

#include <algorithm>
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

RigParamRecord Param(std::uint16_t id,
                     std::int32_t type,
                     std::int32_t i = 0,
                     float f = 0.0f,
                     Point3 v = {},
                     std::string s = {}) {
  return {id, type, i, f, v, std::move(s)};
}

// One record of every value kind, plus a type whose value the file does not keep.
RigFileData Sample() {
  return {
      {Param(11, 1, -7), Param(14, 4, 1), Param(29, 19, 12), Param(20, 0, 0, 0.5f),
       Param(25, 5, 0, -3.0f), Param(27, 7, 0, 100.0f), Param(30, 2, 0, 0, {0.25f, 0.5f, 1}),
       Param(31, 3, 0, 0, {-1, 2, -3}), Param(40, 8, 0, 0, {}, "\xE6\x89\x8B tail"), Param(50, 6)},
      {{"spine_1", {0.0f, 1.5f, -2.25f}}, {"l_hand", {3, 4, 5}}, {"", {}}},
      {{"antenna", "head", 3, 4}, {"r_strap", "r_clavicle", 0, 0}, {"odd", "", -1, -2}}};
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

TEST(RigFileCodec, EveryValueKindRoundTripsAndOnlyTheTypesFieldIsKept) {
  EXPECT_EQ(Decoded(EncodeRigFile(Sample())), Sample());
  EXPECT_EQ(Decoded(EncodeRigFile({})), RigFileData{});
  RigFileData all_fields{
      {Param(1, 1, 5, 2.0f, {1, 1, 1}, "x"), Param(2, 0, 5, 2.0f, {1, 1, 1})}, {}, {}};
  EXPECT_EQ(Decoded(EncodeRigFile(all_fields)).params,
            (std::vector{Param(1, 1, 5), Param(2, 0, 0, 2.0f)}));
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
  // Values in fields the type doesn't use stay out of the file.
  const std::vector<std::uint8_t> one =
      EncodeRigFile({{Param(1, 1, 5, 2.0f, {1, 1, 1}, "x")}, {}, {}});
  const Table* full =
      flatbuffers::GetRoot<Table>(one.data())->GetPointer<const TableVector*>(6)->Get(0);
  for (int unused : {12, 14, 16}) EXPECT_FALSE(full->CheckField(unused)) << unused;

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
  // Names that are not UTF-8: overlong, surrogate, cut short, a stray byte.
  for (const char* name : {"\xC0\xAF", "\xED\xA0\x80", "ab\xE6\x89"})
    ExpectRefused(EncodeRigFile({{}, {{name, {}}}, {}}));
  ExpectRefused(EncodeRigFile({{}, {}, {{"ok", "\xFF", 0, 0}}}));
  // Non-finite values are refused too; one in a field the type doesn't use never gets written.
  RigFileData bad_point = Sample(), bad_param = Sample(), unused = Sample();
  bad_point.points[1].pos.y = std::numeric_limits<float>::infinity();
  bad_param.params[7].vector_value.x = std::numeric_limits<float>::quiet_NaN();
  unused.params[0].float_value = std::numeric_limits<float>::quiet_NaN();
  ExpectRefused(EncodeRigFile(bad_point));
  ExpectRefused(EncodeRigFile(bad_param));
  EXPECT_EQ(Decoded(EncodeRigFile(unused)), Sample());
}

// A vector that names one table a million times is a million tables to the bound.
TEST(RigFileCodec, TableCountIsBounded) {
  auto many = [](std::size_t count) {
    flatbuffers::FlatBufferBuilder fbb;
    const auto name = fbb.CreateString("p");
    const auto start = fbb.StartTable();
    fbb.AddOffset(4, name);
    const auto points =
        fbb.CreateVector(std::vector(count, flatbuffers::Offset<Table>(fbb.EndTable(start))));
    const auto root = fbb.StartTable();
    fbb.AddOffset(4, points);
    fbb.Finish(flatbuffers::Offset<Table>(fbb.EndTable(root)));
    return std::vector<std::uint8_t>(fbb.GetBufferPointer(),
                                     fbb.GetBufferPointer() + fbb.GetSize());
  };
  EXPECT_EQ(Decoded(many(999999)).points.size(), 999999u);  // with the root, a million tables
  ExpectRefused(many(1000000));
}

// Valid UTF-8 from one- to four-byte sequences, including NUL.
rc::Gen<std::string> GenText() {
  return rc::gen::map(
      rc::gen::container<std::vector<std::string>>(rc::gen::element<std::string>(
          std::string(1, '\0'), "a", "Z_9", "\xC3\xA9", "\xE6\x89\x8B", "\xF0\x9F\x98\x80")),
      [](const std::vector<std::string>& parts) {
        std::string s;
        for (const std::string& p : parts) s += p;
        return s;
      });
}

// Records as a file holds them: the value fields a type does not use are zero.
rc::Gen<RigParamRecord> GenParam() {
  return rc::gen::exec([] {
    const int type = *rc::gen::element(0, 1, 2, 3, 4, 5, 6, 7, 8, 19, -3, 1 << 20);
    RigParamRecord p = Param(*rc::gen::arbitrary<std::uint16_t>(), type);
    if (type == 1 || type == 4 || type == 19) p.int_value = *rc::gen::arbitrary<int>();
    if (type == 0 || type == 5 || type == 7) p.float_value = *GenFloat(-1e6f, 1e6f);
    if (type == 2 || type == 3) p.vector_value = *GenPoint3(1e4f);
    if (type == 8) p.string_value = *GenText();
    return p;
  });
}

RC_GTEST_PROP(RigFileCodecLaws, DecodeUndoesEncode, ()) {
  RigFileData d;
  d.params = *rc::gen::container<std::vector<RigParamRecord>>(GenParam());
  d.points = *rc::gen::container<std::vector<RigPointRecord>>(
      rc::gen::construct<RigPointRecord>(GenText(), GenPoint3(1e4f)));
  d.extras = *rc::gen::container<std::vector<RigExtraRecord>>(rc::gen::construct<RigExtraRecord>(
      GenText(), GenText(), rc::gen::arbitrary<int>(), rc::gen::arbitrary<int>()));
  RigFileData out;
  RC_ASSERT(DecodeRigFile(EncodeRigFile(d), &out, nullptr));
  RC_ASSERT(out == d);
}

RC_GTEST_PROP(RigFileCodecLaws, DamagedBytesNeverGetPartlyIn, (std::vector<std::uint8_t> flips)) {
  std::vector<std::uint8_t> bytes = EncodeRigFile(Sample());
  for (std::uint8_t b : flips) bytes[b % bytes.size()] ^= static_cast<std::uint8_t>(b | 1);
  RigFileData out = Sample();
  std::string error;
  if (!DecodeRigFile(bytes, &out, &error))
    RC_ASSERT(out == Sample() && error.rfind("Marvolith: ", 0) == 0 &&
              error.find('\n') == std::string::npos);
}

class RigFileOnDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "marvolith_rig_file_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string Path(const char* name) const { return (dir_ / name).string(); }
  int FileCount() const {
    return std::distance(fs::directory_iterator(dir_), fs::directory_iterator());
  }
  fs::path dir_;
};

TEST_F(RigFileOnDisk, WritesWholeReadsBackAndFailuresSayWhy) {
  std::string error;
  ASSERT_TRUE(WriteRigFile(Path("a.rig"), {{}, {{"old", {}}}, {}}, &error)) << error;
  ASSERT_TRUE(WriteRigFile(Path("a.rig"), Sample(), &error)) << error;
  RigFileData out;
  ASSERT_TRUE(ReadRigFile(Path("a.rig"), &out, &error)) << error;
  EXPECT_EQ(out, Sample());

  auto refused = [&](bool ok, const char* says) {
    EXPECT_FALSE(ok);
    EXPECT_NE(error.find(says), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  };
  RigFileData bad = Sample();
  bad.points[0].pos.x = std::numeric_limits<float>::quiet_NaN();
  refused(WriteRigFile(Path("nan.rig"), bad, &error), "not a finite number");
  refused(WriteRigFile(Path("no/such/dir/a.rig"), Sample(), &error), "could not write");
  fs::create_directory(dir_ / "folder.rig");
  refused(WriteRigFile(Path("folder.rig"), Sample(), &error), "could not write");
  EXPECT_EQ(FileCount(), 2);  // a.rig and the folder: no partial file left behind

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

// Another reader with nothing but the schema text agrees with what we wrote.
TEST_F(RigFileOnDisk, FlatcReadsTheFileWithTheRepositorySchema) {
  if (!fs::exists(MARVOLITH_FLATC)) GTEST_SKIP() << "flatc not found at " << MARVOLITH_FLATC;
  ASSERT_TRUE(WriteRigFile(Path("s.rig"), Sample(), nullptr));
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

}  // namespace
}  // namespace marvolith::test
