// Copyright Marvolith contributors.
// The built-in global functions and variables of the script runner.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>

#include "host/interpreter/runner.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/script/script_errors.h"
#include "host/script/script_value.h"
#include "host/script/value_printer.h"
#include "host/undo/hold.h"
#include "tests/host/interpreter/runner_test_objects.h"

namespace marvolith::test {
namespace {

class RunnerLibraryTest : public ::testing::Test {
 public:
  static void SetUpTestSuite() { RegisterRunnerTestClasses(); }
  void SetUp() override {
    runner.SetOutput([this](std::string_view s) { out += s; });
  }
  void TearDown() override {
    AnimateOff();
    GetCOREInterface()->Reset();
  }
  std::string Show(std::string_view text) {
    ScriptResult r = runner.Run(text);
    EXPECT_TRUE(r.ok) << text << "\n" << r.ErrorText();
    return ScriptValueString(r.value);
  }
  std::string Error(std::string_view text) {
    ScriptResult r = runner.Run(text);
    EXPECT_FALSE(r.ok) << text;
    return r.error.message;
  }
  struct Case {
    const char* script;
    const char* shown;
  };
  void Expect(std::initializer_list<Case> cases, bool errors = false) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.script);
      EXPECT_EQ(errors ? Error(c.script) : Show(c.script), c.shown);
    }
  }

  std::string out;
  ScriptRunner runner;
};

TEST_F(RunnerLibraryTest, SubAnimsReachPublishedFunctionsAsTracks) {
  ScriptResult r = runner.Run("p = Point name:\"p\"\np[#pos]");
  ASSERT_TRUE(r.ok) << r.ErrorText();
  const FPValue track = r.value.ToFPValue();
  ASSERT_TRUE(track.IsSubAnim());
  INode* node = GetCOREInterface()->GetINodeByName("p");
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(track.AsSubAnimParent(), node->GetTMController());
  // An argument that wants an object gets the one at the track; a number does not convert.
  EXPECT_EQ(FromScriptValue(track, FPType::TYPE_CONTROL).AsControl(),
            node->GetTMController()->GetPositionController());
  EXPECT_THROW(FromScriptValue(track, FPType::TYPE_FLOAT), MAXScriptException);
  // Back in script form it is the same track, and prints as one.
  EXPECT_TRUE(ScriptEquals(ScriptValue(track), r.value));
  EXPECT_EQ(ToScriptString(track), "SubAnim:Position");
  GetCOREInterface()->DeleteNode(node, false);
  EXPECT_EQ(track.AsSubAnimParent(), nullptr) << "the parent went with its node";
  EXPECT_EQ(ToScriptString(track), "<Deleted SubAnim>");
}

TEST_F(RunnerLibraryTest, CoordSysNestsAndEndsWithItsBody) {
  Show("a = Point name:\"a\"; b = Point name:\"b\"; b.parent = a; a.pos = [0, 0, 5]");
  EXPECT_EQ(Show("in coordsys parent (in coordsys world b.pos) + b.pos"), "[0,0,5]");
  EXPECT_EQ(Error("in coordsys parent (throw \"x\")"), "Runtime error: x");
  EXPECT_EQ(Show("b.pos"), "[0,0,5]") << "an error leaves the coordinate system";
  EXPECT_EQ(Error("max"), "Syntax error: at end of script, expected a command name");
}

TEST_F(RunnerLibraryTest, Strings) {
  Expect({
      {"filterString \"a,,b; c\" \",; \"", "#(\"a\", \"b\", \"c\")"},
      {"filterString \"a,,b\" \",\" splitEmptyTokens:true", "#(\"a\", \"\", \"b\")"},
      {"#(substring \"abcdef\" 2 3, substring \"abc\" 2 (-1), substring \"abc\" 9 1)",
       "#(\"bcd\", \"bc\", \"\")"},
      {"#(findString \"abcabc\" \"ca\", findString \"abc\" \"x\")", "#(3, undefined)"},
      {"#(toLower \"AbC\", toUpper \"aBc\")", "#(\"abc\", \"ABC\")"},
      {"#(matchPattern \"Left_Arm\" pattern:\"left*a?m\", "
       "matchPattern \"Left_Arm\" pattern:\"left*\" ignoreCase:false, "
       "matchPattern \"aXbXc\" pattern:\"*X*X*\", matchPattern \"ab\" pattern:\"*c*\")",
       "#(true, false, true, false)"},
      {"substituteString \"l_arm_l\" \"l\" \"r\"", "\"r_arm_r\""},
      {"#(trimLeft \"  a \", trimRight \"xxaxx\" \"x\")", "#(\"a \", \"xxa\")"},
      {"replace \"abcdef\" 2 3 \"X\"", "\"aXef\""},
      {"#(formattedPrint 3.14159 format:\"6.2f\", formattedPrint 42 format:\"05d\", "
       "formattedPrint \"ab\" format:\"-4s\", formattedPrint 255 format:\"x\")",
       "#(\"  3.14\", \"00042\", \"ab  \", \"ff\")"},
      {"\"abc\".count", "3"},
      {"\"abc\"[2]", "\"b\""},
  });
  Expect(
      {
          {"formattedPrint 1 format:\"n\"", "Runtime error: unsupported formattedPrint format: n"},
          {"formattedPrint 1 format:\"d%d\"",
           "Runtime error: unsupported formattedPrint format: d%d"},
          {"\"abc\"[4]", "Runtime error: index out of range: 4"},
          {"substring \"abc\" 0 1", "Runtime error: substring start must be 1 or more, got: 0"},
          {"matchPattern \"a\"", "Runtime error: matchPattern needs pattern:"},
      },
      true);
}

TEST_F(RunnerLibraryTest, Arrays) {
  Expect({
      {"a = #(1, 2); join a #(3, 4); a", "#(1, 2, 3, 4)"},
      {"deleteItem a 1; insertItem 9 a 2; a", "#(2, 9, 3, 4)"},
      {"#(findItem a 3, findItem a 7, findItem #(#(1)) #(1))", "#(3, 0, 1)"},
      {"makeUniqueArray #(1, 1.0, \"a\", \"a\", #b)", "#(1, \"a\", #b)"},
      {"sort #(3, 1.5, -2)", "#(-2, 1.5, 3)"},
      {"sort #(\"b\", \"a\")", "#(\"a\", \"b\")"},
      {"#(amax #(3, 9, 1), amin 4 2 8, amax #())", "#(9, 2, undefined)"},
      {"b = copy a; append b 5; #(a.count, b.count)", "#(4, 5)"},
      {"a.count = 2; a", "#(2, 9)"},
      {"x = #(#(1)); x[1][2] = 5; x", "#(#(1, 5))"},
  });
  Expect(
      {
          {"sort #(1, \"a\")", "Runtime error: sort needs an array of numbers, strings or times"},
          {"deleteItem #(1) 2", "Runtime error: array index out of range: 2"},
          {"a = #(); b = #(a); join a b", "Runtime error: an array cannot contain itself"},
          {"a = #(1); a[1] = #(a)", "Runtime error: an array cannot contain itself"},
          {"a = #(); a[20000000] = 1", "Runtime error: array index too large: 20000000"},
          {"append 1 2", "Unable to convert: 1 to type: Array"},
      },
      true);
  // Nesting that printing does not follow, and that frees without recursion.
  EXPECT_EQ(Show("a = #(); for i = 1 to 100000 do a = #(a); b = #(); for i = 1 to 70 do "
                 "b = #(b); b")
                .substr(0, 14),
            "#(#(#(#(#(#(#(");
  EXPECT_NE(Show("b").find("#(...)"), std::string::npos);
  EXPECT_EQ(Error("c = #(); for i = 1 to 70 do c = #(c); b == c"),
            "Runtime error: arrays nested too deeply");
  EXPECT_TRUE(runner.Run("a = undefined; b = undefined").ok);
}

TEST_F(RunnerLibraryTest, Math) {
  Expect({
      {"#(abs (-3), abs (-2.5), floor 2.7, ceil 2.1, sqrt 16, mod 7 3, pow 2 3)",
       "#(3, 2.5, 2.0, 3.0, 4.0, 1.0, 8)"},
      {"#(sin 90, cos 180, atan2 1 1, acos 0)", "#(1.0, -1.0, 45.0, 90.0)"},
      {"#(radToDeg (degToRad 270), degToRad 180 == pi)", "#(270.0, true)"},
      {"#(length [3,4,0], normalize [0,0,5], dot x_axis y_axis, cross x_axis y_axis)",
       "#(5.0, [0,0,1], 0.0, [0,0,1])"},
      {"inverse (transMatrix [1,2,3]) * (transMatrix [1,2,3]) == matrix3 1", "true"},
      {"(scaleMatrix [2,2,2]).row1", "[2,0,0]"},
      {"m = matrix3 1; m.row4 = [1,2,3]; m.translation = [4,5,6]; m.pos", "[4,5,6]"},
      {"q = quat 90 z_axis; #(q.angle, q.axis)", "#(90.0, [0,0,1])"},
      {"#(30f.frame, 30f.ticks)", "#(30.0, 4800)"},
      {"pi > 3.14159 and pi < 3.1416", "true"},
  });
  EXPECT_EQ(Error("mod 1 0"), "Runtime error: divide by zero");
}

RC_GTEST_PROP(RunnerLibraryProps, EulerAnglesRoundTripThroughQuatToEuler, ()) {
  RegisterRunnerTestClasses();
  ScriptRunner runner;
  const int x = *rc::gen::inRange(-89, 90);
  const int y = *rc::gen::inRange(-89, 90);
  const int z = *rc::gen::inRange(-179, 180);
  // Negative arguments need parentheses: "f -1" is a subtraction in the host's script.
  const std::string script = "quatToEuler (eulerAngles (" + std::to_string(x) + ") (" +
                             std::to_string(y) + ") (" + std::to_string(z) + "))";
  ScriptResult r = runner.Run(script);
  RC_ASSERT(r.ok);
  const Point3 back = r.value.AsPoint3();
  RC_ASSERT(std::fabs(back.x - x) < 1e-2f && std::fabs(back.y - y) < 1e-2f &&
            std::fabs(back.z - z) < 1e-2f);
}

RC_GTEST_PROP(RunnerLibraryProps, IntegerArithmeticWrapsAsThirtyTwoBits, (int a, int b)) {
  ScriptRunner runner;
  ScriptResult r = runner.Run(std::to_string(a) + " * " + std::to_string(b) + " + " +
                              std::to_string(a) + " as string as integer");
  RC_ASSERT(r.ok);
  const auto expected =
      static_cast<std::uint32_t>(static_cast<std::int64_t>(a) * b) + static_cast<std::uint32_t>(a);
  RC_ASSERT(r.value.AsInt() == static_cast<int>(expected));
}

TEST_F(RunnerLibraryTest, TimeAndSceneVariables) {
  Expect({
      {"sliderTime = 12; #(sliderTime, currentTime, at time 3 currentTime)", "#(12f, 12f, 3f)"},
      {"animationRange = interval 10 50; animationRange", "(interval 10f 50f)"},
      {"r = animationRange; r.end = 80f; animationRange = r; animationRange.end", "80f"},
      {"frameRate = 25; #(frameRate, ticksPerFrame, 1f as integer)", "#(25, 192, 1)"},
  });
  Expect(
      {
          {"animationRange = interval 50 10",
           "Runtime error: animationRange must not be empty, got: (interval 50f 10f)"},
          {"frameRate = 7", "Runtime error: frameRate must divide 4800, got: 7"},
          {"currentTime = 3", "Runtime error: cannot assign to the system global currenttime"},
          {"ticksPerFrame = 1", "Runtime error: cannot assign to the system global ticksperframe"},
      },
      true);
}

TEST_F(RunnerLibraryTest, SceneFunctions) {
  Show("a = TestPoint name:\"a\"; b = TestPoint name:\"b\"; c = TestPoint name:\"B\"");
  Expect({
      {"(getNodeByName \"B\" all:true).count", "2"},
      {"(getNodeByName \"B\" ignoreCase:false).name", "\"B\""},
      {"select a; selectMore #(b, c); deselect b; for n in selection collect n.name",
       "#(\"a\", \"B\")"},
      {"h = getHandleByAnim a; #(getAnimByHandle h, maxOps.getNodeByHandle h, "
       "maxOps.getNodeByHandle (getHandleByAnim a.controller))",
       "#($a, $a, undefined)"},
      {"(getSubAnim a 1).controller == a.controller", "true"},
      {"#(getSubAnimName a.controller 2, (getSubAnim a.controller 1).index)", "#(#Rotation, 1)"},
      {"objects.count", "3"},
      {"delete #(b, c); #(objects.count, isValidNode a, isValidObj b)", "#(1, true, false)"},
      {"getProperty a #name", "\"a\""},
      {"setProperty a \"name\" \"a2\"; #(a.name, isProperty a #size, isProperty a #nope)",
       "#(\"a2\", true, false)"},
  });
  Expect(
      {
          {"getSubAnim a 9", "Runtime error: sub-anim index out of range: 9"},
          {"select 5", "Unable to convert: 5 to type: Node"},
          {"a.children = #()", "Cannot set read-only property: children"},
          {"a.controller = 5", "Runtime error: 5 cannot be the transform controller of $a2"},
          {"a.pos.controller = Bezier_Float()",
           "Runtime error: cannot assign Controller:Bezier_Float to SubAnim:Position"},
      },
      true);
}

TEST_F(RunnerLibraryTest, KeysOnTracks) {
  Show(
      "n = TestPoint(); c = n.pos.controller.x_position.controller; "
      "addNewKey c 10; addNewKey c 30f");
  Expect({
      {"#(numKeys c, getKeyTime c 2, c.isAnimated)", "#(2, 30f, true)"},
      {"deleteKeys c; numKeys c", "0"},
      {"with animate on (at time 20 n.pos = [5,0,0]); "
       "#(numKeys c, at time 0 c.value, at time 20 c.value)",
       "#(2, 0.0, 5.0)"},
      {"s = (getSubAnim n.pos.controller 2); s.value = 8; #(s.name, s.value, s.parent == "
       "n.pos.controller)",
       "#(\"Y Position\", 8.0, true)"},
  });
  EXPECT_EQ(Error("getKeyTime c 5"), "Runtime error: key index out of range: 5");
}

TEST_F(RunnerLibraryTest, UndoAndAnimateContextsRestoreTheirState) {
  Show("n = TestPoint name:\"n\"");
  theHold.Clear();
  Show(
      "undo off (n.pos = [1,0,0]); undo on (n.pos = [2,0,0]); undo \"named\" on "
      "(n.pos = [3,0,0])");
  EXPECT_EQ(theHold.UndoCount(), 2);
  EXPECT_EQ(theHold.UndoName(), "named");
  EXPECT_EQ(theHold.UndoName(1), "MAXScript");
  // An error inside keeps what was done so far, as one entry; the hold is closed again.
  EXPECT_EQ(Error("undo \"half\" on (n.pos = [4,0,0]; undefined.x)"),
            "Unknown property: \"x\" in undefined");
  EXPECT_EQ(theHold.UndoName(), "half");
  EXPECT_EQ(theHold.HoldLevel(), 0);
  EXPECT_EQ(Error("animate on (n.pos = [5,0,0]; throw \"stop\")"), "Runtime error: stop");
  EXPECT_FALSE(Animating());
  AnimateOn();
  EXPECT_EQ(Show("animate off (at time 50 n.pos = [6,0,0]); "
                 "numKeys n.pos.controller.x_position.controller"),
            "1")
      << "the key the animate context made, and none from the animate off";
  EXPECT_TRUE(Animating()) << "animate off only suspends for its body";
}

TEST_F(RunnerLibraryTest, FilesThroughScripts) {
  const std::string path = (std::filesystem::temp_directory_path() /
                            ("marvolith_runner_" + std::to_string(::getpid()) + ".mvscene"))
                               .string();
  Show("TestPoint name:\"kept\" pos:[1,2,3]; saveMaxFile @\"" + path + "\"");
  EXPECT_EQ(Show("resetMaxFile #noPrompt; objects.count"), "0");
  EXPECT_EQ(Show("loadMaxFile @\"" + path + "\""), "true");
  EXPECT_EQ(Show("$kept.pos"), "[1,2,3]");
  EXPECT_EQ(Show("loadMaxFile \"/no/such/file\""), "false");
  std::filesystem::remove(path);
}

TEST_F(RunnerLibraryTest, ValuesPrintAndCompareByKind) {
  Show("n = TestPoint name:\"n\"; global f2; fn f2 = 1");
  Expect({
      {"#(classOf #(), classOf (getSubAnim n 1), classOf (interval 0 1), classOf f2, "
       "classOf print, classOf Point3)",
       "#(Array, SubAnim, Interval, MAXScriptFunction, Primitive, Class)"},
      {"#(superClassOf 1, superClassOf \"s\", superClassOf n.controller)",
       "#(Number, Value, Matrix3Controller)"},
      {"#(getSubAnim n 1, f2, maxOps)", "#(SubAnim:Transform, f2(), #Struct:maxops)"},
      {"#(n == $n, (getSubAnim n 1) == (getSubAnim n 1), interval 1 2 == interval 1 2, "
       "1 == 1f, \"a\" == #a, f2 == f2)",
       "#(true, true, true, true, false, true)"},
      {"#(0f == 0, 1 as time, \"2\" as time, [1,2,3] as point4)", "#(true, 1f, 2f, [1,2,3,0])"},
  });
}

}  // namespace
}  // namespace marvolith::test
