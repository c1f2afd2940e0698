// Copyright Marvolith contributors.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>
#include <numbers>
#include <string>

#include "host/core/diagnostics.h"
#include "host/params/iparam_block2.h"
#include "host/undo/hold.h"
#include "tests/host/params/param_test_objects.h"
#include "tests/support/alloc_counter.h"

namespace marvolith::test {
namespace {

// A value of type that differs from every default of the test block.
PB2Value Sample(ParamType2 type, INode* node, ReferenceTarget* target) {
  PB2Value v(type);
  v.SetInt(BaseParamType(type) == TYPE_BOOL ? 0 : 7);
  v.SetFloat(0.25f);
  v.SetPoint3(Point3(1.0f, 2.0f, 3.0f));
  v.SetPoint4(Point4(1.0f, 2.0f, 3.0f, 4.0f));
  v.SetMatrix3(RotateZMatrix(0.5f) * TransMatrix(Point3(1.0f, 2.0f, 3.0f)));
  v.SetStr("l_upper_arm");
  v.SetINode(node);
  if (v.Kind() == PBKind::kRefTarg) v.SetReferenceTarget(target);
  return v;
}

bool Same(const PB2Value& a, const PB2Value& b) {
  return a.Type() == b.Type() && a.GetInt() == b.GetInt() && a.GetFloat() == b.GetFloat() &&
         a.GetPoint3() == b.GetPoint3() && a.GetPoint4() == b.GetPoint4() &&
         a.GetMatrix3() == b.GetMatrix3() && std::strcmp(a.GetStr(), b.GetStr()) == 0 &&
         a.GetReferenceTarget() == b.GetReferenceTarget();
}

TEST_F(ParamBlockTest, EveryTypeAndTableFormRoundTrips) {
  INode* node = NewNode();
  auto* target = sweep.Keep(new TestTarget);
  for (ParamID id = kInt; id <= kTime; ++id) {
    SCOPED_TRACE(::testing::Message() << "parameter " << id);
    const ParamType2 type = pb->GetParameterType(id);
    const PB2Value v = Sample(type, node, target);
    Interval valid = FOREVER;
    PB2Value out;
    ASSERT_TRUE(pb->SetValue(id, 0, v));
    ASSERT_TRUE(pb->GetValue(id, 0, out, valid));
    EXPECT_TRUE(Same(out, v));

    // The table form: one entry appended, one inserted before it.
    const ParamID tab = kTabBase + id;
    const PB2Value zero(type);
    ASSERT_EQ(pb->GetParameterType(tab), type | TYPE_TAB);
    EXPECT_EQ(pb->Append(tab, 1, &v), 0);
    EXPECT_EQ(pb->Insert(tab, 0, 1, &zero), 0);
    ASSERT_EQ(pb->Count(tab), 2);
    ASSERT_TRUE(pb->GetValue(tab, 0, out, valid, 1));
    EXPECT_TRUE(Same(out, v));
    ASSERT_TRUE(pb->GetValue(tab, 0, out, valid, 0));
    EXPECT_TRUE(Same(out, zero));
  }
  // The typed calls of each kind read what was written through the generic ones.
  EXPECT_EQ(pb->GetColor(kColor), Color(1.0f, 2.0f, 3.0f));
  EXPECT_EQ(pb->GetAColor(kAColor), AColor(1.0f, 2.0f, 3.0f, 4.0f));
  EXPECT_STREQ(pb->GetStr(kFile), "l_upper_arm");
  EXPECT_EQ(pb->GetINode(kNode), node);
  EXPECT_EQ(pb->GetReferenceTarget(kNode), node) << "a node is a reference target too";
  EXPECT_EQ(pb->GetReferenceTarget(kRefTarg), target);
  EXPECT_EQ(pb->GetTimeValue(kTime), 7);
  EXPECT_FALSE(pb->GetInt(kBool));
  {
    INode* nodes[] = {node, nullptr};
    const MSTR names[] = {"a", "b"};
    EXPECT_EQ(pb->Append(kTabBase + kNode, 2, nodes), 2);
    EXPECT_EQ(pb->Insert(kTabBase + kString, 1, 2, names), 1);
    EXPECT_STREQ(pb->GetStr(kTabBase + kString, 0, 2), "b");
    const Matrix3 m = TransMatrix(Point3(0.0f, 0.0f, 5.0f));
    EXPECT_TRUE(pb->SetValue(kTabBase + kMatrix, 0, m, 1));
    EXPECT_EQ(pb->GetMatrix3(kTabBase + kMatrix, 0, 1), m);
  }
}

TEST_F(ParamBlockTest, BadReadsAndWritesAnswerDefaultsAndChangeNothing) {
  int logged = 0;
  auto old_sink = SetLogSink([&](std::string_view) { ++logged; });
  const std::string before = Dump(pb);
  {
    SCOPED_TRACE("table index out of range: default, no exception, not logged");
    float f = -1.0f;
    Interval valid = FOREVER;
    EXPECT_EQ(pb->GetFloat(kAnimFloatTab, 0, 2), 50.0f);
    EXPECT_EQ(pb->GetFloat(kAnimFloatTab, 0, -1), 50.0f);
    EXPECT_FALSE(pb->GetValue(kAnimFloatTab, 0, f, valid, 7));
    EXPECT_EQ(f, -1.0f);
    EXPECT_FALSE(pb->SetValue(kAnimFloatTab, 0, 3.0f, 2));
    EXPECT_STREQ(pb->GetStr(kTabBase + kString, 0, 0), "");
    EXPECT_EQ(logged, 0);
  }
  EXPECT_EQ(pb->GetInt(kInt, 0, 7), 3) << "the table index of a plain parameter is ignored";
  {
    SCOPED_TRACE("wrong kind or unknown id: default and logged");
    Point3 p;
    Interval valid = FOREVER;
    EXPECT_EQ(pb->GetFloat(kPoint3), 0.0f);
    EXPECT_STREQ(pb->GetStr(kInt), "");
    EXPECT_FALSE(pb->GetValue(kString, 0, p, valid));
    EXPECT_FALSE(pb->SetValue(kFloat, 0, Point3(1.0f, 1.0f, 1.0f)));
    EXPECT_FALSE(pb->SetValue(kNode, 0, static_cast<ReferenceTarget*>(owner)))
        << "a node parameter takes nodes only";
    EXPECT_EQ(pb->GetInt(999), 0);
    EXPECT_EQ(pb->Append(kInt, 1, static_cast<const int*>(nullptr)), -1);
    EXPECT_FALSE(pb->SetCount(kFloat, 3));
    EXPECT_EQ(pb->Count(999), 0);
    const float wrong[] = {1.0f};
    EXPECT_EQ(pb->Append(kTabBase + kInt, 1, wrong), -1);
    EXPECT_GE(logged, 9);
  }
  EXPECT_EQ(Dump(pb), before);
  SetLogSink(old_sink);
}

TEST_F(ParamBlockTest, RangesClampWritesInDisplayUnits) {
  pb->SetValue(kInt, 0, 50);
  EXPECT_EQ(pb->GetInt(kInt), 10);
  pb->SetValue(kInt, 0, -50);
  EXPECT_EQ(pb->GetInt(kInt), -10);
  pb->SetValue(kPcnt, 0, 1.5f);
  EXPECT_FLOAT_EQ(pb->GetFloat(kPcnt), 1.0f) << "0 to 100 percent is a fraction of 0 to 1";
  pb->SetValue(kAngle, 0, -3.0f);
  EXPECT_FLOAT_EQ(pb->GetFloat(kAngle), -std::numbers::pi_v<float> / 2) << "-90 degrees";
  const float weights[] = {150.0f, -1.0f};
  pb->Append(kAnimFloatTab, 2, weights);
  EXPECT_EQ(pb->GetFloat(kAnimFloatTab, 0, 2), 100.0f);
  EXPECT_EQ(pb->GetFloat(kAnimFloatTab, 0, 3), 0.0f);

  // A controller may animate outside the range; only what is written is clamped.
  auto* c = new FakeFloat(3.0f);
  ASSERT_TRUE(pb->SetController(kAnimFloat, 0, c, false));
  EXPECT_EQ(pb->GetFloat(kAnimFloat), 3.0f);
  pb->SetValue(kAnimFloat, 0, 2.0f);
  EXPECT_EQ(c->value, 1.0f);
}

TEST_F(ParamBlockTest, AccessorSeesEveryReadWriteAndTableChange) {
  EXPECT_EQ(pb->GetFloat(kFloat), 1.5f);
  EXPECT_EQ(test_accessor.gets, 1);
  EXPECT_EQ(test_accessor.last_owner, owner);
  test_accessor.get_offset = 1.0f;
  EXPECT_EQ(pb->GetFloat(kFloat), 2.5f) << "Get may replace the value read";
  test_accessor.get_offset = 0.0f;
  test_accessor.set_scale = 2.0f;
  pb->SetValue(kFloat, 0, 2.0f);
  EXPECT_EQ(test_accessor.sets, 1);
  EXPECT_EQ(pb->GetFloat(kFloat), 4.0f) << "Set may replace the value stored";

  // The weight table starts with two entries.
  using Call = CountingAccessor::TabCall;
  auto expect_call = [&](tab_changes code, int tab_index, int count, int tab_count) {
    ASSERT_FALSE(test_accessor.tab_calls.empty());
    const Call& c = test_accessor.tab_calls.back();
    EXPECT_EQ(c.code, code);
    EXPECT_EQ(c.id, kAnimFloatTab);
    EXPECT_EQ(c.tab_index, tab_index);
    EXPECT_EQ(c.count, count);
    EXPECT_EQ(c.tab_count, tab_count);
  };
  pb->Append(kAnimFloatTab, 1, static_cast<const float*>(nullptr));
  expect_call(tab_append, 2, 1, 3);
  const float two[] = {1.0f, 2.0f};
  pb->Insert(kAnimFloatTab, 0, 2, two);
  expect_call(tab_insert, 0, 2, 5);
  EXPECT_EQ(pb->Delete(kAnimFloatTab, 1, 10), 1);
  expect_call(tab_delete, 1, 4, 1);
  pb->SetCount(kAnimFloatTab, 3);
  expect_call(tab_setcount, 0, 3, 3);
  pb->ZeroCount(kAnimFloatTab);
  expect_call(tab_setcount, 0, 0, 0);
  EXPECT_EQ(test_accessor.tab_calls.size(), 5u);
}

TEST_F(ParamBlockTest, UndoAndRedoTellTheAccessors) {
  // Caches kept by accessors must drop when undo or redo changes a value behind them.
  theHold.Begin();
  pb->SetValue(kFloat, 0, 3.0f);
  pb->Append(kAnimFloatTab, 1, static_cast<const float*>(nullptr));
  theHold.Accept("Change");
  test_accessor.Clear();
  test_accessor.set_scale = 10.0f;  // what the accessor answers on undo is not kept

  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(test_accessor.sets, 1) << "one changed plain value";
  ASSERT_EQ(test_accessor.tab_calls.size(), 1u);
  EXPECT_EQ(test_accessor.tab_calls.back().code, tab_setcount);
  EXPECT_EQ(test_accessor.tab_calls.back().count, 2);
  test_accessor.set_scale = 1.0f;
  EXPECT_EQ(pb->GetFloat(kFloat), 1.5f);

  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(test_accessor.sets, 2);
  ASSERT_EQ(test_accessor.tab_calls.size(), 2u);
  EXPECT_EQ(test_accessor.tab_calls.back().count, 3);
  EXPECT_EQ(pb->GetFloat(kFloat), 3.0f);
  theHold.Clear();
}

TEST_F(ParamBlockTest, ValidatorRefusalLeavesEverythingUnchanged) {
  INode* node = NewNode();
  test_validator.forbidden = node;
  const std::string before = Dump(pb);
  owner->heard.clear();
  test_accessor.Clear();
  theHold.Begin();
  EXPECT_FALSE(pb->SetValue(kWorld, 0, -1.0f));
  EXPECT_FALSE(pb->SetValue(kNode, 0, node));
  EXPECT_FALSE(pb->TestAFlag(A_HELD)) << "a refused value records nothing";
  theHold.Accept("Refused");
  EXPECT_EQ(theHold.UndoCount(), 0);
  EXPECT_EQ(test_validator.calls, 2);
  EXPECT_EQ(test_accessor.sets, 0);
  EXPECT_TRUE(owner->heard.empty());
  EXPECT_EQ(node->NumDependents(), 0);
  EXPECT_EQ(Dump(pb), before);
  EXPECT_TRUE(pb->SetValue(kWorld, 0, 2.0f));
  EXPECT_EQ(pb->GetFloat(kWorld), 2.0f);
}

TEST_F(ParamBlockTest, NonAnimatableParametersAreReadAtTimeZero) {
  pb->GetFloat(kFloat, 4800);
  EXPECT_EQ(test_accessor.last_get_time, 0);
  auto* c = new FakeFloat(0.3f);
  ASSERT_TRUE(pb->SetController(kAnimFloat, 0, c, false));
  EXPECT_FLOAT_EQ(pb->GetFloat(kAnimFloat, 4800), 0.3f);
  EXPECT_EQ(c->last_get_time, 4800);
  EXPECT_EQ(test_accessor.last_get_time, 4800);
}

TEST_F(ParamBlockTest, GetValueNarrowsValidityOnlyThroughControllers) {
  float f = 0.0f;
  Interval valid = FOREVER;
  pb->GetValue(kFloat, 100, f, valid);
  EXPECT_EQ(valid, FOREVER) << "a stored value holds forever";

  auto* c = new FakeFloat(0.5f);
  c->validity = Interval(0, 160);
  ASSERT_TRUE(pb->SetController(kAnimFloat, 0, c, false));
  pb->GetValue(kAnimFloat, 80, f, valid);
  EXPECT_EQ(valid, Interval(0, 160));
  valid = Interval(100, 500);
  pb->GetValue(kAnimFloat, 120, f, valid);
  EXPECT_EQ(valid, Interval(100, 160)) << "GetValue only narrows";

  auto* p = new FakePoint3(Point3(1.0f, 2.0f, 3.0f));
  p->validity = Interval(50, 60);
  ASSERT_TRUE(pb->SetController(kAnimPoint3, 0, p, false));
  Point3 v;
  valid = FOREVER;
  ASSERT_TRUE(pb->GetValue(kAnimPoint3, 55, v, valid));
  EXPECT_EQ(v, Point3(1.0f, 2.0f, 3.0f));
  EXPECT_EQ(valid, Interval(50, 60));
}

TEST_F(ParamBlockTest, ReadingAllocatesNothing) {
  INode* node = NewNode();
  pb->SetValue(kString, 0, "a name long enough to live on the heap, not in the string");
  pb->SetValue(kNode, 0, node);
  pb->SetValue(kWeakNode, 0, node);
  pb->SetController(kAnimFloat, 0, new FakeFloat(0.5f));
  pb->SetCount(kTabBase + kMatrix, 4);

  AllocationScope scope;
  float sum = 0.0f;
  for (int i = 0; i < 50; ++i) {
    Interval valid = FOREVER;
    const char* s = nullptr;
    PB2Value v;
    sum += static_cast<float>(std::strlen(pb->GetStr(kString)));
    pb->GetValue(kString, i, s, valid);
    pb->GetValue(kMatrix, i, v, valid);
    sum +=
        pb->GetFloat(kAnimFloat, i * 10) + pb->GetFloat(kFloat) + pb->GetFloat(kAnimFloatTab, 0, 1);
    sum += pb->GetMatrix3(kTabBase + kMatrix, 0, 3).GetTrans().x + pb->GetPoint3(kPoint3).x;
    sum += pb->GetINode(kNode) == pb->GetINode(kWeakNode) ? 1.0f : 0.0f;
    sum += static_cast<float>(pb->GetFloat(kAnimFloatTab, 0, 9) + pb->Count(kAnimFloatTab));
    sum += pb->GetController(kAnimFloat) ? 1.0f : 0.0f;
  }
  EXPECT_EQ(scope.Count(), 0u);
  EXPECT_GT(sum, 0.0f);
}

TEST_F(ParamBlockTest, ResetPutsParametersBackAsInANewBlock) {
  INode* node = NewNode();
  pb->SetValue(kString, 0, "Changed");
  pb->SetValue(kNode, 0, node);
  pb->SetController(kAnimFloat, 0, new FakeFloat(0.2f));
  pb->SetCount(kAnimFloatTab, 5);
  pb->SetValue(kInt, 0, 9);
  const std::string changed = Dump(pb);

  theHold.Begin();
  EXPECT_TRUE(pb->Reset(kInt));
  EXPECT_EQ(pb->GetInt(kInt), 3);
  EXPECT_EQ(pb->LastNotifyParamID(), kInt);
  pb->ResetAll();
  EXPECT_EQ(pb->LastNotifyParamID(), -1);
  theHold.Accept("Reset");

  EXPECT_STREQ(pb->GetStr(kString), "Rig");
  EXPECT_EQ(pb->GetINode(kNode), nullptr);
  EXPECT_EQ(node->NumDependents(), 0);
  EXPECT_EQ(pb->GetController(kAnimFloat), nullptr);
  EXPECT_EQ(pb->GetFloat(kAnimFloat), 1.0f);
  EXPECT_EQ(pb->Count(kAnimFloatTab), 2);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(Dump(pb), changed);
  EXPECT_EQ(node->NumDependents(), 1);
}

// Table edits inside one hold match a plain vector; undo brings back the table before the
// hold exactly, redo the one after.
RC_GTEST_PROP(ParamBlockProperty,
              TableEditsMatchAVectorAndUndoExactly,
              (const std::vector<std::tuple<int, int, int>>& ops)) {
  theHold.Clear();
  SceneSweeper sweep;
  IParamBlock2* pb = sweep.Keep(new TestOwner)->pblock;
  const ParamID id = kTabBase + kInt;
  auto read = [&] {
    std::vector<int> values;
    for (int i = 0; i < pb->Count(id); ++i) values.push_back(pb->GetInt(id, 0, i));
    return values;
  };
  const std::vector<int> start = {4, 5, 6};
  pb->Append(id, 3, start.data());
  std::vector<int> model = start;

  theHold.Begin();
  for (const auto& [op, a, b] : ops) {
    const int count = static_cast<int>(model.size());
    switch ((op % 4 + 4) % 4) {
      case 0: {  // insert b at a position that may be one past the end
        const int at = count ? std::abs(a) % (count + 1) : 0;
        RC_ASSERT(pb->Insert(id, at, 1, &b) == at);
        model.insert(model.begin() + at, b);
        break;
      }
      case 1:  // delete up to b entries from a, out-of-range starts change nothing
        pb->Delete(id, a % 5, std::abs(b) % 4);
        if (a % 5 >= 0 && a % 5 < count && std::abs(b) % 4 > 0)
          model.erase(model.begin() + a % 5,
                      model.begin() + std::min(count, a % 5 + std::abs(b) % 4));
        break;
      case 2:  // set one entry; bad indices are refused
        RC_ASSERT(pb->SetValue(id, 0, b, a % 6) == (a % 6 >= 0 && a % 6 < count));
        if (a % 6 >= 0 && a % 6 < count) model[static_cast<size_t>(a % 6)] = b;
        break;
      case 3:  // resize
        pb->SetCount(id, std::abs(a) % 6);
        model.resize(static_cast<size_t>(std::abs(a) % 6), 0);
        break;
    }
    RC_ASSERT(read() == model);
  }
  theHold.Accept("Table edits");
  if (theHold.UndoCount() == 0) {
    RC_ASSERT(model == start);
    return;
  }
  RC_ASSERT(theHold.Undo());
  RC_ASSERT(read() == start);
  RC_ASSERT(theHold.Redo());
  RC_ASSERT(read() == model);
  theHold.Clear();
}

}  // namespace
}  // namespace marvolith::test
