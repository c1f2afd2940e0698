// Copyright Marvolith contributors.
#include "host/script/fp_value.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <climits>
#include <numbers>

#include "host/base/exceptions.h"
#include "host/scene/core_interface.h"
#include "host/script/script_errors.h"
#include "host/script/script_value.h"
#include "host/script/value_printer.h"
#include "tests/host/script/script_test_objects.h"

namespace marvolith::test {
namespace {

RC_GTEST_PROP(ScriptIndexProperty, ConversionsAreInverse, (int i)) {
  RC_PRE(i != INT_MIN && i != INT_MAX);
  RC_ASSERT(ToScriptIndex(FromScriptIndex(i)) == i);
  RC_ASSERT(FromScriptIndex(ToScriptIndex(i)) == i);
}

TEST(ScriptIndexTest, ExtremesSaturateInsteadOfWrapping) {
  EXPECT_EQ(FromScriptIndex(1), 0);
  EXPECT_EQ(FromScriptIndex(0), -1);
  EXPECT_EQ(FromScriptIndex(INT_MIN), INT_MIN);
  EXPECT_EQ(ToScriptIndex(INT_MAX), INT_MAX);
}

TEST(FPValueTest, CopiesOwnTheirStringsAndTables) {
  FPValue table = FPValue::Table(FPType::TYPE_VALUE_TAB, {FPValue("a"), FPValue(1)});
  FPValue copy = table;
  copy.Item(0) = FPValue("changed");
  copy.Append(FPValue(2));
  EXPECT_EQ(table.Item(0), FPValue("a"));
  EXPECT_EQ(table.Count(), 2);
  EXPECT_EQ(copy.Count(), 3);

  // Out-of-range element access raises the host's Tab error, also on a value that is no table.
  for (int i : {-1, 2}) {
    try {
      (void)table.Item(i);
      ADD_FAILURE() << "no exception for " << i;
    } catch (const MaxSDK::Util::OutOfRangeException& e) {
      EXPECT_STREQ(e.what(), MaxSDK::Util::TabOutOfRangeException::kText);
    }
  }
  EXPECT_THROW((void)FPValue(3).Item(0), MaxSDK::Util::TabOutOfRangeException);
}

TEST(FPValueTest, ParamsSpillPastTheInlineCountAndCheckIndices) {
  FPParams p;
  for (int i = 0; i < FPParams::kInlineCount + 3; ++i) p.Append(FPValue(i * 10));
  ASSERT_EQ(p.Count(), FPParams::kInlineCount + 3);
  for (int i = 0; i < p.Count(); ++i) EXPECT_EQ(p[i], FPValue(i * 10)) << i;
  try {
    (void)p[p.Count()];
    ADD_FAILURE() << "no exception";
  } catch (const MaxSDK::Util::OutOfRangeException& e) {
    EXPECT_STREQ(e.what(), MaxSDK::Util::ArrayOutOfRangeException::kText);
  }
  EXPECT_THROW((void)p[-1], MaxSDK::Util::ArrayOutOfRangeException);
  p.Clear();
  EXPECT_THROW((void)p[0], MaxSDK::Util::ArrayOutOfRangeException);
}

TEST(FPValueTest, CoercionKeepsKindsApartAndFailsWithoutChange) {
  SceneCleaner cleaner;
  auto* node = MakeNode("N");
  auto* rig = new TestRig;
  {
    SCOPED_TRACE("a target that is no controller stays a target");
    FPValue v(static_cast<ReferenceTarget*>(rig));
    EXPECT_FALSE(v.CoerceTo(FPType::TYPE_CONTROL));
    EXPECT_FALSE(v.CoerceTo(FPType::TYPE_INODE));
    EXPECT_FALSE(v.Retag(FPType::TYPE_INODE));
    EXPECT_EQ(v.Type(), FPType::TYPE_REFTARG);
    EXPECT_EQ(v.AsNode(), nullptr);
  }
  {
    SCOPED_TRACE("a node held as a target becomes a node");
    FPValue v(static_cast<ReferenceTarget*>(node));
    EXPECT_TRUE(v.CoerceTo(FPType::TYPE_INODE));
    EXPECT_EQ(v.AsNode(), node);
  }
  {
    SCOPED_TRACE("a table with one bad element is left whole");
    FPValue v = FPValue::Table(FPType::TYPE_VALUE_TAB, {FPValue(node), FPValue(1.5f)});
    const FPValue before = v;
    EXPECT_FALSE(v.CoerceTo(FPType::TYPE_INODE_TAB));
    EXPECT_EQ(v, before);
    EXPECT_TRUE(v.CoerceTo(FPType::TYPE_INT_TAB) == false);
  }
  {
    SCOPED_TRACE("numbers convert among kinds; undefined becomes a null pointer");
    FPValue f(2.9f);
    EXPECT_TRUE(f.CoerceTo(FPType::TYPE_INDEX));
    EXPECT_EQ(f, FPValue::Index(2));
    FPValue u;
    EXPECT_TRUE(u.CoerceTo(FPType::TYPE_INODE));
    EXPECT_TRUE(u.IsNullPointer());
    FPValue u2;
    EXPECT_FALSE(u2.CoerceTo(FPType::TYPE_INT));
    EXPECT_TRUE(u2.IsUndefined());
  }
  {
    SCOPED_TRACE("held by handle: a deleted object reads as null");
    auto* gone = MakeNode("Gone");
    FPValue v(gone);
    gone->Delete(0);
    EXPECT_EQ(v.AsNode(), nullptr);
    EXPECT_FALSE(v.IsNullPointer());
    EXPECT_EQ(ToScriptString(v), "<Deleted scene node>");
  }
  rig->DeleteMe();
}

TEST(FPValueTest, ScriptBoundaryConvertsUnits) {
  // Script form in, C++ form out, and back.
  struct Case {
    FPType type;
    FPValue script;
    FPValue cpp;
  };
  const Case cases[] = {
      {FPType::TYPE_INDEX, FPValue(1), FPValue::Index(0)},
      {FPType::TYPE_PCNT_FRAC, FPValue(50), FPValue::PcntFrac(0.5f)},
      {FPType::TYPE_ANGLE, FPValue(180.0f), FPValue::Angle(std::numbers::pi_v<float>)},
      {FPType::TYPE_FILENAME, FPValue("a.anim"), FPValue::FileName("a.anim")},
      {FPType::TYPE_INDEX_TAB, FPValue::Table(FPType::TYPE_VALUE_TAB, {FPValue(1), FPValue(3)}),
       FPValue(Tab<int>{0, 2}, FPType::TYPE_INDEX)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(ToScriptString(c.script));
    FPValue cpp = FromScriptValue(c.script, c.type);
    EXPECT_EQ(cpp.Type(), c.cpp.Type());
    EXPECT_NEAR(cpp.AsFloat(), c.cpp.AsFloat(), 1e-6f);
    EXPECT_EQ(cpp.Count(), c.cpp.Count());
    if (cpp.IsTab()) {
      EXPECT_EQ(cpp, c.cpp);
    }
    FPValue back = ToScriptValue(cpp);
    EXPECT_NEAR(back.AsFloat(), c.script.AsFloat(), 1e-4f);
    if (back.IsTab()) {
      EXPECT_EQ(back, c.script);
    }
  }
  // Frames become ticks at the current frame rate; a time passes as it is.
  const int tpf = GetCOREInterface()->GetTicksPerFrame();
  EXPECT_EQ(FromScriptValue(FPValue(2.5f), FPType::TYPE_TIMEVALUE), FPValue::Time(tpf * 5 / 2));
  EXPECT_EQ(FromScriptValue(FPValue::Time(7), FPType::TYPE_TIMEVALUE), FPValue::Time(7));
  EXPECT_THROW(FromScriptValue(FPValue::Index(0), FPType::TYPE_INDEX), ConversionError)
      << "C++-form values are no script values";
}

TEST(ValuePrinterTest, PrintsAsTheListener) {
  const int tpf = GetCOREInterface()->GetTicksPerFrame();
  SceneCleaner cleaner;
  auto* box = MakeNode("Box001");
  auto* arm = MakeNode("left arm");
  auto* rig = new TestRig;
  const std::pair<FPValue, const char*> cases[] = {
      {FPValue(), "undefined"},
      {FPValue::Void(), "OK"},
      {FPValue(true), "true"},
      {FPValue(-12), "-12"},
      {FPValue(1.5f), "1.5"},
      {FPValue(2.0f), "2.0"},
      {FPValue(-0.25f), "-0.25"},
      {FPValue(1e10f), "1e+10"},
      {FPValue(1.0f / 3.0f), "0.333333"},
      {FPValue("say \"hi\"\\\n"), "\"say \\\"hi\\\"\\\\\\n\""},
      {FPValue::Name("Smooth"), "#Smooth"},
      {FPValue::Name("two words"), "#'two words'"},
      {FPValue(Point3(1, 2.5f, -3)), "[1,2.5,-3]"},
      {FPValue(Point4(1, 2, 3, 4)), "[1,2,3,4]"},
      {FPValue(Quat()), "(quat 0 0 0 1)"},
      {FPValue(AngAxis(Point3(0, 0, 1), std::numbers::pi_v<float> / 2)), "(angleAxis 90 [0,0,1])"},
      {FPValue(Matrix3()), "(matrix3 [1,0,0] [0,1,0] [0,0,1] [0,0,0])"},
      {FPValue(Color(1, 0, 0.5f)), "(color 255 0 127.5)"},
      {FPValue::Time(2 * tpf), "2f"},
      {FPValue::Time(5 * tpf / 2), "2.5f"},
      {FPValue::Index(0), "1"},
      {FPValue::PcntFrac(0.5f), "50.0"},
      {FPValue::FileName("c:\\a.anim"), "\"c:\\\\a.anim\""},
      {FPValue(box), "$Box001"},
      {FPValue(static_cast<ReferenceTarget*>(arm)), "$'left arm'"},
      {FPValue(static_cast<INode*>(nullptr)), "undefined"},
      {FPValue(static_cast<ReferenceTarget*>(rig)), "ReferenceTarget:Test_Rig"},
      {FPValue(static_cast<FPInterface*>(static_cast<ITestRig*>(rig))),
       "<MixinInterface:interface>"},
      {FPValue(Tab<INode*>{box, nullptr}), "#($Box001, undefined)"},
      {FPValue::Table(FPType::TYPE_VALUE_TAB,
                      {FPValue(1), FPValue("a"), FPValue::Table(FPType::TYPE_VALUE_TAB)}),
       "#(1, \"a\", #())"},
      {FPValue(Tab<int>{0, 4}, FPType::TYPE_INDEX), "#(1, 5)"},
  };
  for (const auto& [value, text] : cases) EXPECT_EQ(ToScriptString(value), text);

  // Errors join their fixed text and the printed value directly.
  EXPECT_STREQ(RuntimeError("Invalid Variable Name ", FPValue("1abc")).what(),
               "Invalid Variable Name \"1abc\"");
  EXPECT_STREQ(
      RuntimeError("Expected a Node for the first argument, in function CreateIKFKSolver").what(),
      "Expected a Node for the first argument, in function CreateIKFKSolver");
  EXPECT_STREQ(ConversionError(FPValue(box), FPType::TYPE_FLOAT).what(),
               "Unable to convert: $Box001 to type: Float");
  EXPECT_STREQ(ArgCountError("CreateIKFKSolver", 2, 3).what(),
               "Argument count error: CreateIKFKSolver wanted 2, got 3");
  rig->DeleteMe();
}

}  // namespace
}  // namespace marvolith::test
