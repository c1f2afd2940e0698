// Copyright Marvolith contributors.
#include "host/io/chunk_stream.h"
#include "support/chunk_helpers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace marvolith::test {
namespace {

std::vector<std::uint8_t> SampleTree() {
  ChunkWriter w;
  w.BeginChunk(0x100);
  SaveChunk(&w, 0x0000, 1.5f);
  w.BeginChunk(0x0200);
  SaveChunk(&w, 0x0001, std::int32_t{-7});
  w.EndChunk();
  w.BeginChunk(0x0002);
  w.WriteWString("Parent Rot");
  w.EndChunk();
  SaveChunk(&w, 0x7777, std::uint8_t{9});  // a chunk an old reader does not know
  w.EndChunk();
  EXPECT_TRUE(w.Ok());
  return w.Bytes();
}

TEST(ChunkStreamTest, TreeReadsBackAndUnknownChunksAreSkipped) {
  const auto bytes = SampleTree();
  ASSERT_EQ(bytes.size(), 6u + (6 + 4) + (6 + 6 + 4) + (6 + 11) + (6 + 1));
  ChunkReader r(bytes);
  ASSERT_EQ(r.OpenChunk(), IO_OK);
  EXPECT_EQ(r.CurChunkID(), 0x100);
  EXPECT_TRUE(r.CurChunkIsContainer());
  float f = 0;
  std::int32_t i = 0;
  std::string text;
  IOResult res;
  int seen = 0;
  while ((res = r.OpenChunk()) == IO_OK) {
    switch (r.CurChunkID()) {
      case 0x0000:
        EXPECT_EQ(LoadValue(&r, f), IO_OK);
        break;
      case 0x0200:
        ASSERT_EQ(r.OpenChunk(), IO_OK);
        EXPECT_EQ(LoadValue(&r, i), IO_OK);
        r.CloseChunk();
        EXPECT_EQ(r.OpenChunk(), IO_END);
        break;
      case 0x0002:
        EXPECT_EQ(r.ReadWStringChunk(text), IO_OK);
        break;
      default:
        break;
    }
    ++seen;
    ASSERT_EQ(r.CloseChunk(), IO_OK);
  }
  EXPECT_EQ(res, IO_END);
  EXPECT_EQ(seen, 4);
  EXPECT_EQ(f, 1.5f);
  EXPECT_EQ(i, -7);
  EXPECT_EQ(text, "Parent Rot");
  r.CloseChunk();
  EXPECT_EQ(r.OpenChunk(), IO_END);
  EXPECT_TRUE(r.Ok());
}

TEST(ChunkStreamTest, DamagedDataFailsWithoutReadingPastTheEnd) {
  const auto bytes = SampleTree();
  {
    SCOPED_TRACE("every truncation fails cleanly somewhere");
    for (size_t cut = 1; cut < bytes.size(); ++cut) {
      std::vector<std::uint8_t> part(bytes.begin(), bytes.begin() + cut);
      ChunkReader r(part);
      IOResult res = r.OpenChunk();
      EXPECT_EQ(res, IO_ERROR) << "cut at " << cut << ": the outer length no longer fits";
    }
  }
  {
    SCOPED_TRACE("a value chunk of the wrong size leaves the value alone");
    ChunkWriter w;
    SaveChunk(&w, 1, std::uint16_t{3});
    ChunkReader r(w.Bytes());
    ASSERT_EQ(r.OpenChunk(), IO_OK);
    float f = 2.0f;
    EXPECT_EQ(LoadValue(&r, f), IO_ERROR);
    EXPECT_EQ(f, 2.0f);
  }
  {
    SCOPED_TRACE("nesting deeper than the limit is refused");
    ChunkWriter w;
    for (int d = 0; d < ChunkReader::kMaxDepth + 1; ++d) w.BeginChunk(1);
    for (int d = 0; d < ChunkReader::kMaxDepth + 1; ++d) w.EndChunk();
    ChunkReader r(w.Bytes());
    IOResult res = IO_OK;
    while (res == IO_OK) res = r.OpenChunk();
    EXPECT_EQ(res, IO_ERROR);
    EXPECT_EQ(r.Depth(), ChunkReader::kMaxDepth);
  }
  {
    SCOPED_TRACE("text without its terminating zero");
    ChunkWriter w;
    w.BeginChunk(1);
    ULONG n;
    w.Write("abc", 3, &n);
    w.EndChunk();
    ChunkReader r(w.Bytes());
    ASSERT_EQ(r.OpenChunk(), IO_OK);
    std::string text = "kept";
    EXPECT_EQ(r.ReadWStringChunk(text), IO_ERROR);
    EXPECT_EQ(text, "kept");
  }
}

TEST(ChunkStreamTest, ForEachChunkSkipsUnknownStopsAtFirstErrorAndAnswersDamage) {
  ChunkWriter w;
  SaveChunk(&w, 1, std::int32_t{10});
  SaveChunk(&w, 0x7777, std::uint8_t{9});  // a chunk the caller does not know
  SaveChunk(&w, 2, std::int32_t{20});
  SaveChunk(&w, 3, std::int32_t{30});
  ASSERT_TRUE(w.Ok());
  const auto bytes = w.Bytes();
  {
    SCOPED_TRACE("every chunk handed over in order, unknown ones skipped");
    ChunkReader r(bytes);
    std::vector<USHORT> ids;
    std::vector<std::int32_t> values;
    EXPECT_EQ(ForEachChunk(&r,
                           [&](USHORT id) {
                             ids.push_back(id);
                             if (id == 0x7777) return IO_OK;
                             std::int32_t v = 0;
                             const IOResult res = LoadValue(&r, v);
                             values.push_back(v);
                             return res;
                           }),
              IO_OK);
    EXPECT_EQ(ids, (std::vector<USHORT>{1, 0x7777, 2, 3}));
    EXPECT_EQ(values, (std::vector<std::int32_t>{10, 20, 30}));
    EXPECT_EQ(r.Depth(), 0);
  }
  {
    SCOPED_TRACE("the callback's failure ends the walk and is answered, its chunk closed");
    ChunkReader r(bytes);
    std::vector<USHORT> ids;
    EXPECT_EQ(ForEachChunk(&r,
                           [&](USHORT id) {
                             ids.push_back(id);
                             return id == 2 ? IO_ERROR : IO_OK;
                           }),
              IO_ERROR);
    EXPECT_EQ(ids, (std::vector<USHORT>{1, 0x7777, 2}));
    ASSERT_EQ(r.OpenChunk(), IO_OK) << "the reader stands at the chunk after the failed one";
    EXPECT_EQ(r.CurChunkID(), 3);
  }
  {
    SCOPED_TRACE("damaged data: the chunks before it are handed over, then the error answered");
    const std::vector<std::uint8_t> cut(bytes.begin(), bytes.end() - 2);
    ChunkReader r(cut);
    int seen = 0;
    EXPECT_EQ(ForEachChunk(&r,
                           [&](USHORT) {
                             ++seen;
                             return IO_OK;
                           }),
              IO_ERROR);
    EXPECT_EQ(seen, 3);
  }
}

TEST(ChunkStreamTest, WriterRefusesMixedChunks) {
  ChunkWriter w;
  w.BeginChunk(1);
  ULONG n;
  w.Write("x", 1, &n);
  w.BeginChunk(2);
  w.EndChunk();
  w.EndChunk();
  EXPECT_FALSE(w.Ok());
  ChunkWriter unbalanced;
  unbalanced.EndChunk();
  EXPECT_FALSE(unbalanced.Ok());
  ChunkWriter open;
  open.BeginChunk(1);
  EXPECT_FALSE(open.Ok());
}

}  // namespace
}  // namespace marvolith::test
