// Copyright Marvolith contributors.
#include "host/interpreter/runner.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "host/controllers/controller_classes.h"
#include "host/interpreter/runner_parser.h"
#include "host/scene/core_interface.h"
#include "host/scene/scene.h"
#include "host/script/script_entry.h"
#include "host/script/script_errors.h"
#include "host/script/script_primitives.h"
#include "host/undo/hold.h"
#include "tests/host/interpreter/runner_test_objects.h"
#include "tests/support/math_matchers.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {
namespace {

class RunnerTest : public ::testing::Test {
 public:
  static void SetUpTestSuite() { RegisterRunnerTestClasses(); }
  void SetUp() override {
    runner.SetOutput([this](std::string_view s) { out += s; });
    runner.SetMessageBoxHandler([this](std::string_view text, std::string_view title) {
      boxes.push_back(std::string(title) + ": " + std::string(text));
    });
  }
  void TearDown() override { GetCOREInterface()->Reset(); }

  ScriptValue Run(std::string_view text) {
    ScriptResult r = runner.Run(text);
    EXPECT_TRUE(r.ok) << text << "\n" << r.ErrorText();
    return r.value;
  }
  std::string Show(std::string_view text) { return ScriptValueString(Run(text)); }
  std::string Error(std::string_view text) {
    ScriptResult r = runner.Run(text);
    EXPECT_FALSE(r.ok) << text;
    return r.ErrorText();
  }
  INode* Node(const char* name) { return GetCOREInterface()->GetINodeByName(name); }

  std::string out;
  std::vector<std::string> boxes;
  ScriptRunner runner;
};

struct Case {
  const char* script;
  const char* shown;
};

void ExpectShown(RunnerTest& t,
                 std::initializer_list<Case> cases,
                 std::string (RunnerTest::*show)(std::string_view)) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.script);
    EXPECT_EQ((t.*show)(c.script), c.shown);
  }
}

TEST_F(RunnerTest, LiteralsOperatorsAndConversions) {
  ExpectShown(*this,
              {
                  {"1 + 2 * 3 - 4", "3"},
                  {"7 / 2", "3"},
                  {"7 / 2.0", "3.5"},
                  {"2 ^ 10", "1024"},
                  {"-2 ^ 2", "4"},
                  {"2147483647 + 1", "-2147483648"},
                  {"0x10 + 1e2", "116.0"},
                  {"10f + 5", "15f"},
                  {"100t", "0.625f"},
                  {"(20f - 10f) / 5f", "2.0"},
                  {"\"a\\tb\\\"\" + \"c\"", "\"a\\tb\\\"c\""},
                  {"@\"C:\\temp\\new\"", "\"C:\\\\temp\\\\new\""},
                  {"#foo", "#foo"},
                  {"[1,2,3] + [1,1,1] * 2", "[3,4,5]"},
                  {"[1,0,0] * (transMatrix [0,5,0])", "[1,5,0]"},
                  {"[1, 2, 3, 4]", "[1,2,3,4]"},
                  {"#(1, \"a\", #b, #())", "#(1, \"a\", #b, #())"},
                  {"true and not false or undefined", "true"},
                  {"1 < 2 and 2 >= 2.0 and 3 != 4 and 10f > 9", "true"},
                  {"\"abc\" == \"abc\" and #abc == #ABC and \"a\" != \"A\"", "true"},
                  {"#(1, #(2)) == #(1, #(2))", "true"},
                  {"ok", "OK"},
                  {"12 as string + (#nm as string)", "\"12nm\""},
                  {"\" 12 \" as integer + (\"2.5\" as float)", "14.5"},
                  {"\"x\" as integer", "undefined"},
                  {"-3.7 as integer", "-3"},
                  {"30f as integer", "30"},
                  {"\"TRUE\" as BooleanClass", "true"},
                  {"[255, 0, 0] as color", "(color 255 0 0)"},
                  {"classOf 1.5 == Float and isKindOf 2 Number", "true"},
                  {"(point3 1 2 3).y + (color 0 51 0).g", "53.0"},
                  {"(interval 5 10).end", "10f"},
              },
              &RunnerTest::Show);
  // Quaternions follow the host's convention: its matrix is the right-handed turn by -angle.
  EXPECT_MATRIX3_NEAR(Run("(quat 90 [0,0,1]) as matrix3").Fp().AsMatrix3(),
                      RotateZMatrix(-1.5707964f), 1e-5f);
}

TEST_F(RunnerTest, BitArrays) {
  ExpectShown(*this,
              {
                  {"#{}", "#{}"},
                  {"#{5, 1..3, 2, 7..6}", "#{1..3, 5}"},
                  {"b = #{2}; b[6] = true; b[2] = false; b", "#{6}"},
                  {"b = #{1..3}; #(b.count, b.numberSet, b[3], b[4], b[100])",
                   "#(3, 3, true, false, false)"},
                  {"#(4, 1, 2) as bitArray == #{1..2, 4}", "true"},
                  {"#{2, 4..5} as array", "#(2, 4, 5)"},
                  {"classOf #{1}", "BitArray"},
              },
              &RunnerTest::Show);
  EXPECT_EQ(Error("#(1, -2) as bitArray"),
            "-- Unable to convert: -2 to type: BitArray (line 1, column 10)");
}

TEST_F(RunnerTest, AngleTracksReadAndWriteInDegrees) {
  Run("n = TestPoint name:\"a\"; n.rotation.controller = Euler_XYZ()\n"
      "n.rotation.controller.Z_Rotation = 90");
  EXPECT_MATRIX3_NEAR(Node("a")->GetNodeTM(0), RotateZMatrix(1.5707964f), 1e-5f);
  EXPECT_EQ(Show("n.rotation.controller.Z_Rotation"), "90.0");
  // Position tracks have no dimension: their values pass as they are.
  Run("n.pos.controller = Position_XYZ(); n.pos.controller.X_Position = 90");
  EXPECT_EQ(Show("n.pos.controller.X_Position"), "90.0");
}

TEST_F(RunnerTest, VariablesScopesAndFunctions) {
  // Top-level assignments are globals and live on to the next run; block assignments are local.
  Run("g = 5; (inner = 1; g += inner)");
  EXPECT_EQ(Show("g"), "6");
  EXPECT_EQ(Show("inner"), "undefined");
  EXPECT_EQ(Show("(local a = 1, b; b = a + 1; (a = 10); a + b)"), "12");
  EXPECT_EQ(Show("fn setG = (global g; g = 99); (local g = 1; setG(); g)"), "1");
  EXPECT_EQ(Show("g"), "99");
  ExpectShown(
      *this,
      {
          {"fn fact n = if n <= 1 then 1 else n * fact (n - 1); fact 10", "3628800"},
          {"fn scale v factor:2 bias: = (if bias == undefined do bias = 0; v * factor + bias)"
           "\n#(scale 3, scale 3 factor:3, scale 3 bias:1 factor:1)",
           "#(6, 9, 4)"},
          {"fn early x = (if x > 0 do return #pos; #neg); #(early 1, early (-1))", "#(#pos, #neg)"},
          // A function sees the locals of the block it was defined in.
          {"(local k = 3; fn addK x = x + k; addK 4)", "7"},
          {"p = [1,2,3]; p.z = 9; p[1] = 7; p", "[7,2,9]"},
          {"a = #(1); b = a; append b 2; a.count", "2"},
          {"a = #(); a[3] = #x; a", "#(undefined, undefined, #x)"},
          {"execute \"1 + 1\"", "2"},
      },
      &RunnerTest::Show);
  EXPECT_EQ(runner.GetGlobal("FACT").GetKind(), ScriptValue::Kind::kFunction);
}

TEST_F(RunnerTest, ControlFlow) {
  ExpectShown(
      *this,
      {
          {"if false then 1\nelse 2", "2"},
          {"if false do 1", "undefined"},
          {"i = 0; while i < 5 do i += 2; i", "6"},
          {"i = 10; do i += 1 while i < 5; i", "11"},
          {"for i = 10 to 1 by -3 collect i", "#(10, 7, 4, 1)"},
          {"for x = 0.5 to 2 by 0.5 collect x", "#(0.5, 1.0, 1.5, 2.0)"},
          {"for t = 0f to 320t collect t", "#(0f, 1f, 2f)"},
          {"for x in #(1,2,3,4) where mod x 2 == 0 collect x * 10", "#(20, 40)"},
          {"for i = 1 to 9 collect (if i == 3 do continue; if i == 5 do exit; i)", "#(1, 2, 4)"},
          {"for i = 1 to 9 do if i == 4 do exit with i * 2", "8"},
          {"s = 0; for i = 1 to 3 do for j = 1 to 3 do s += i * j; s", "36"},
          {"case 2 of (1: #a; 2: #b; default: #c)", "#b"},
          {"case \"z\" of (\"a\": 1\ndefault: 0)", "0"},
          {"x = 7; case of ((x < 5): #low; (x < 10): #mid)", "#mid"},
          {"try (try (throw \"inner\") catch (throw())) catch (getCurrentException())",
           "\"-- Runtime error: inner\""},
      },
      &RunnerTest::Show);
  EXPECT_EQ(Run("try (1 + \"a\"; 2) catch (getCurrentException())").AsString(),
            "-- No \"\"+\"\" function for 1");
  Run("for c in #(\"a\", \"b\") do format \"<%>\" c; print #(1, \"x\"); format \"%+%\\n\" 1 "
      "[1,2,3]");
  EXPECT_EQ(out, "<a><b>#(1, \"x\")\n1+[1,2,3]\n");
}

TEST_F(RunnerTest, ErrorsNameTheirPlace) {
  ExpectShown(
      *this,
      {
          {"x = (1 +",
           "-- Syntax error: at end of script, expected an expression (line 1, column 9)"},
          {"a = 1\n  b = )", "-- Syntax error: at ), expected an expression (line 2, column 7)"},
          {"if 1 > 0 then\n 2 else",
           "-- Syntax error: at end of script, expected an expression (line 2, column 8)"},
          {"for i = 1 do 2", "-- Syntax error: at do, expected to (line 1, column 11)"},
          {"struct Foo (a, b\n  c)", "-- Syntax error: at c, expected , or ) (line 2, column 3)"},
          {"struct Foo (a, fn A = 1)",
           "-- Syntax error: duplicate struct member A (line 1, column 19)"},
          {"struct Foo (a, on clone do 1)",
           "-- Syntax error: a struct takes no event handler but on create (line 1, column 19)"},
          {"x = [1]", "-- Syntax error: a point takes 2, 3 or 4 components (line 1, column 5)"},
          {"f &(a + 1)",
           "-- Syntax error: & takes a variable, a property or an array element (line 1, column "
           "3)"},
          {"fn g k:&out = 1",
           "-- Syntax error: a by-reference keyword parameter is written &k: (line 1, column 8)"},
          {"#{1, 0}",
           "-- Syntax error: bit array element out of range 1..268435456 (line 1, column 6)"},
          {"#{1..}",
           "-- Syntax error: in #{...}, expected the number ending the range (line 1, column 3)"},
          {"#{1 2}", "-- Syntax error: in #{...}, expected , or } (line 1, column 5)"},
          {"#{3}[0]", "-- Runtime error: index out of range: 0 (line 1, column 5)"},
          {"s = \"abc", "-- Syntax error: unterminated string (line 1, column 5)"},
          {"$Box*",
           "-- Syntax error: path names with wildcards or levels are not supported (line 1, column "
           "1)"},
          {"1 + 2 = 3",
           "-- Syntax error: at =, the left side cannot be assigned to (line 1, column 7)"},
          {"a = 1\nb = a.foo", "-- Unknown property: \"foo\" in 1 (line 2, column 6)"},
          {"\"a\" * 2", "-- No \"\"*\"\" function for \"a\" (line 1, column 5)"},
          {"if 1 then 2",
           "-- Type error: if-test requires BooleanClass, got: 1 (line 1, column 1)"},
          {"x = 5\nx 3", "-- Type error: Call needs function or class, got: 5 (line 2, column 1)"},
          {"fn f a = a\nf 1 2", "-- Argument count error: f wanted 1, got 2 (line 2, column 1)"},
          {"(\n  exit\n)", "-- Runtime error: exit outside of a loop (line 2, column 3)"},
          {"return 1", "-- Runtime error: return outside of a function (line 1, column 1)"},
          {"x = 1 / 0", "-- Runtime error: divide by zero (line 1, column 7)"},
          {"#(1,2)[0]",
           "-- Runtime error: array index must be positive number, got: 0 (line 1, column 7)"},
          {"substring 1 1 1", "-- Unable to convert: 1 to type: String (line 1, column 1)"},
          {"print = 3",
           "-- Runtime error: cannot assign to the system global print (line 1, column 7)"},
          {"a = #(); append a a",
           "-- Runtime error: an array cannot contain itself (line 1, column 10)"},
          {"for i in 5 do ()",
           "-- Runtime error: for ... in needs an array, got: 5 (line 1, column 1)"},
          {"execute \"1 +\"",
           "-- Syntax error: at end of script, expected an expression (in execute, line 1, column "
           "4) (line 1, column 1)"},
      },
      &RunnerTest::Error);
}

TEST_F(RunnerTest, RunawayScriptsStopAtTheLimitsAndTryCannotCatchThem) {
  ScriptRunner small({.max_steps = 10'000, .max_depth = 200});
  small.SetOutput([this](std::string_view s) { out += s; });
  ScriptResult loop = small.Run("try (while true do ()) catch (print \"caught\")");
  EXPECT_EQ(loop.error.message,
            "Runtime error: the script ran longer than its limit of 10000 steps");
  ScriptResult recursion = small.Run("fn down n = down (n + 1)\ndown 0");
  EXPECT_FALSE(recursion.ok);
  EXPECT_EQ(recursion.error.message,
            "Runtime error: the script nested too deeply (limit of 200 levels)");
  EXPECT_EQ(out, "");
  // At the default limits too, deep expressions and runaway recursion end as errors.
  std::string chain = "1";
  for (int i = 0; i < 3000; ++i) chain += "+1";
  for (const std::string& text : {chain, std::string("fn down n = down (n + 1)\ndown 0")}) {
    ScriptResult r = runner.Run(text);
    // The nesting limit, or under sanitizers with their large frames, the stack's.
    EXPECT_EQ(r.error.message.rfind("Runtime error: the script nested too deeply (limit of ", 0),
              0u)
        << r.ErrorText();
  }
  // Each outermost run starts with a fresh allowance.
  EXPECT_TRUE(small.Run("for i = 1 to 100 do ()").ok);
}

TEST_F(RunnerTest, SettingsFunctionsUseTheHostsIniFile) {
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("marvolith_runner_" + std::to_string(::getpid()));
  std::filesystem::remove_all(dir);
  ::setenv("MARVOLITH_SETTINGS_DIR", dir.c_str(), 1);
  const std::string ini = (dir / "3dsMax.ini").string();
  EXPECT_EQ(Run("getMAXIniFile()").AsString(), ini);
  EXPECT_TRUE(std::filesystem::is_directory(dir));

  // The texts the settings services run, exactly.
  FPValue v;
  ASSERT_TRUE(ExecuteMAXScriptScript(
      "GetINISetting (getMAXIniFile()) \"Marvolith\" \"ImportStartFrame\"", true, &v));
  EXPECT_EQ(v, FPValue(""));
  ASSERT_TRUE(ExecuteMAXScriptScript(
      "SetINISetting (getMAXIniFile()) \"Marvolith\" \"ImportStartFrame\" \"12\"", true, &v));
  EXPECT_EQ(v, FPValue(true));
  ASSERT_TRUE(ExecuteMAXScriptScript(
      "GetINISetting (getMAXIniFile()) \"Marvolith\" \"ImportStartFrame\"", true, &v));
  EXPECT_EQ(v, FPValue("12"));

  Run("f = getMAXIniFile(); SetINISetting f \"Other\" \"a\" \"1\"; "
      "SetINISetting f \"marvolith\" \"importstartframe\" \"13\"");
  std::ifstream file(ini);
  std::stringstream text;
  text << file.rdbuf();
  EXPECT_EQ(text.str(), "[Marvolith]\nImportStartFrame=13\n[Other]\na=1\n");
  EXPECT_EQ(Show("GetINISetting f"), "#(\"Marvolith\", \"Other\")");
  EXPECT_EQ(Show("#(hasINISetting f \"other\" \"a\", delINISetting f \"Other\" \"a\", "
                 "hasINISetting f \"Other\" \"a\")"),
            "#(true, true, false)");
  EXPECT_EQ(Error("SetINISetting f \"Marvolith\" \"k\" 5"),
            "-- Unable to convert: 5 to type: String (line 1, column 1)");
  ::unsetenv("MARVOLITH_SETTINGS_DIR");
  std::filesystem::remove_all(dir);
}

TEST_F(RunnerTest, ClassesCreateObjectsAndSceneObjectsGetNodes) {
  Run("p = TestPoint name:\"tip\" size:25 pos:[1,2,3]\nq = TestPoint()");
  INode* tip = Node("tip");
  ASSERT_NE(tip, nullptr);
  EXPECT_EQ(Show("q.name"), "\"TestPoint001\"");
  auto* obj = static_cast<TestPoint*>(tip->GetObjectRef());
  EXPECT_FLOAT_EQ(obj->pblock->GetFloat(kSize), 25.0f);
  EXPECT_EQ(tip->GetNodeTM(0).GetTrans(), Point3(1, 2, 3));
  ExpectShown(*this,
              {
                  {"classOf p", "TestPoint"},
                  {"superClassOf p == helper and isKindOf p TestPoint", "true"},
                  {"c = Bezier_Float value:2.5; c.value", "2.5"},
                  {"classOf c == Bezier_Float and superClassOf c == FloatController", "true"},
              },
              &RunnerTest::Show);
  EXPECT_EQ(Error("TestPoint 1"),
            "-- Argument count error: TestPoint wanted 0, got 1 (line 1, column 1)");
  EXPECT_EQ(Error("TestPoint colour:red"),
            "-- Unknown property: \"colour\" in $TestPoint002 (line 1, column 1)");
  EXPECT_EQ(Error("helper()"),
            "-- Type error: Call needs function or class, got: helper (line 1, column 1)");
}

TEST_F(RunnerTest, ObjectsLeftUnreferencedAreDeletedAfterTheRun) {
  const int before = Animatable::LiveCount();
  {
    ScriptRunner r;
    ASSERT_TRUE(r.Run("Bezier_Float(); local kept = Bezier_Position(); held = Bezier_Scale()").ok);
    EXPECT_EQ(Animatable::LiveCount(), before + 1) << "only the one a global holds remains";
    ASSERT_TRUE(r.Run("held = undefined").ok);
    EXPECT_EQ(Animatable::LiveCount(), before);
    // A run's value keeps what it made until a later run finds it unheld.
    ScriptResult made = r.Run("Bezier_Float()");
    EXPECT_NE(made.value.AsControl(), nullptr);
    ASSERT_TRUE(r.Run("1").ok);
    EXPECT_EQ(made.value.AsControl(), nullptr);
    // One the scene takes stays with the scene.
    ASSERT_TRUE(
        r.Run("n = TestPoint(); n.pos.controller.x_position.controller = Bezier_Float()").ok);
  }
  INode* n = Node("TestPoint001");
  ASSERT_NE(n, nullptr);
  EXPECT_EQ(n->GetTMController()->GetPositionController()->GetXController()->ClassName(),
            "Bezier Float");
}

TEST_F(RunnerTest, ParameterBlockByScriptName) {
  Run("p = TestPoint name:\"p\"; t = TestPoint name:\"t\"");
  auto* pb = static_cast<TestPoint*>(Node("p")->GetObjectRef())->pblock;
  Run("p.size = 2000; p.spin = 90; p.amount = 25; p.visible = false; p.pick = 3; "
      "p.label = \"x\"; p.target = $t; p.weights = #(1, 2.5); p.weights[3] = 4; "
      "p.tint = color 255 0 0");
  EXPECT_FLOAT_EQ(pb->GetFloat(kSize), 1000.0f) << "clamped to the range";
  EXPECT_NEAR(pb->GetFloat(kSpin), 1.5707964f, 1e-6f);
  EXPECT_FLOAT_EQ(pb->GetFloat(kAmount), 0.25f);
  EXPECT_EQ(pb->GetInt(kVisible), 0);
  EXPECT_EQ(pb->GetInt(kPick), 2) << "1-based in script";
  EXPECT_STREQ(pb->GetStr(kLabel), "x");
  EXPECT_EQ(pb->GetINode(kTarget), Node("t"));
  EXPECT_EQ(pb->Count(kWeights), 3);
  EXPECT_FLOAT_EQ(pb->GetFloat(kWeights, 0, 2), 4.0f);
  EXPECT_EQ(Show("#(p.size, p.spin, p.amount, p.visible, p.pick, p.label, p.target, p.weights, "
                 "p.tint, p.baseObject.size)"),
            "#(1000.0, 90.0, 25.0, false, 3, \"x\", $t, #(1.0, 2.5, 4.0), (color 255 0 0), "
            "1000.0)");
  EXPECT_EQ(Error("p.size = \"big\""),
            "-- Unable to convert: \"big\" to type: Float (line 1, column 8)");
  EXPECT_EQ(Error("p.visible = 1"), "-- Unable to convert: 1 to type: Boolean (line 1, column 11)");

  // An animatable parameter is a track: its controller is reached and keyed through the script.
  Run("p.size.controller = Bezier_Float(); with animate on (at time 0 p.size = 1; "
      "at time 10 p.size = 11)");
  EXPECT_EQ(Show("#(at time 5 p.size, numKeys p.size.controller, p.size.isAnimated)"),
            "#(6.0, 2, true)");
}

TEST_F(RunnerTest, PublishedInterfacesOfObjectsAndCoreInterfaces) {
  auto* rig = new TestRig;
  SceneSweeper sweep;
  sweep.Keep(rig);
  runner.SetGlobal("rig", FPValue(static_cast<ReferenceTarget*>(rig)));
  ExpectShown(*this,
              {
                  {"rig.AddLayer name:\"base\"", "1"},
                  {"rig.interface.AddLayer name:\"top\" index:1", "1"},
                  {"rig.GetLayerName 2", "\"base\""},
                  {"rig.GetLayerCount()", "2"},
                  {"rig.Turn 90", "180.0"},
                  {"rig.offset_pos = [1,2,3]; rig.offset_pos", "[1,2,3]"},
                  {"rig.point_type = #smooth; rig.point_type", "#Smooth"},
                  {"rig.interface", "<MixinInterface:interface>"},
                  {"TestCore.count = 4; TestCore.Greet \"you\" + (TestCore.count as string)",
                   "\"hello you4\""},
              },
              &RunnerTest::Show);
  EXPECT_EQ(rig->offset, Point3(1, 2, 3));
  EXPECT_EQ(TheTestCore().count, 4);
  ExpectShown(
      *this,
      {
          {"rig.layer_count = 3",
           "-- Cannot set read-only property: layer_count (line 1, column 17)"},
          {"rig.CheckNode 5",
           "-- Expected a Node for the first argument, in function CheckNode 5 (line 1, column 1)"},
          {"rig.GetLayerName()",
           "-- Argument index out of bounds, passed into a MaxSDK::Array::operator[] (line 1, "
           "column 1)"},
          {"rig.Turn \"far\"", "-- Unable to convert: \"far\" to type: Float (line 1, column 1)"},
          {"rig.NoSuch 1",
           "-- Unknown property: \"NoSuch\" in ReferenceTarget:Test_Rig (line 1, column 1)"},
          {"TestCore.Shout 1",
           "-- Unknown property: \"Shout\" in <Interface:TestCore> (line 1, column 1)"},
      },
      &RunnerTest::Error);
}

TEST_F(RunnerTest, NodesByPathNameAndTheirProperties) {
  Run("a = TestPoint name:\"Arm\" pos:[0,0,10]; b = TestPoint name:\"left hand\" pos:[5,0,10]; "
      "b.parent = a");
  ExpectShown(*this,
              {
                  {"$arm == a and $'left hand' == b and $nobody == undefined", "true"},
                  {"#($'LEFT HAND'.parent, a.children, (getNodeByName \"arm\").name)",
                   "#($Arm, #($'left hand'), \"Arm\")"},
                  {"a.pos = [0,0,20]; b.pos", "[5,0,20]"},
                  {"b.pos.x = 7; b.pos.controller.x_position", "7.0"},
                  {"b.wirecolor = color 0 255 0; b.wirecolor", "(color 0 255 0)"},
                  {"b.isHidden = true; b.isHidden", "true"},
                  {"select #(a, b); selection.count", "2"},
                  {"clearSelection(); select b; $.name", "\"left hand\""},
                  {"b.scale = [2,2,2]; b.scale", "[2,2,2]"},
                  {"getSubAnimNames a.controller", "#(#Position, #Rotation, #Scale)"},
                  {"(getSubAnim a.controller 1).controller == a.pos.controller", "true"},
                  {"classOf a.rotation.controller", "Euler_XYZ"},
                  {"delete b; #(isValidNode b, a.children)", "#(false, #())"},
              },
              &RunnerTest::Show);
  EXPECT_EQ(Error("b.name"),
            "-- Unknown property: \"name\" in <Deleted scene node> (line 1, column 2)");
}

TEST_F(RunnerTest, TwoNodesAnimatedAndReadAtSeveralTimes) {
  // What a pipeline user writes: build two nodes, link them, key the parent, read both back.
  Run(R"(
    root = TestPoint name:"root"
    tip = TestPoint name:"tip" pos:[10, 0, 0]
    tip.parent = root
    with animate on, undo "build" on (
      at time 0 root.pos = [0, 0, 0]
      at time 20 root.pos = [0, 0, 40]
      at time 20 root.rotation = eulerAngles 0 0 90
    )
  )");
  EXPECT_EQ(theHold.UndoName(), "build");
  INode* root = Node("root");
  INode* tip = Node("tip");
  for (int frame : {0, 5, 10, 20, 30}) {
    SCOPED_TRACE(frame);
    const TimeValue t = frame * GetCOREInterface()->GetTicksPerFrame();
    ScriptValue v = Run("at time " + std::to_string(frame) + " #(root.transform, tip.transform)");
    ASSERT_EQ(v.Count(), 2);
    EXPECT_MATRIX3_NEAR(v.Items()[0].Fp().AsMatrix3(), root->GetNodeTM(t), 1e-4f);
    EXPECT_MATRIX3_NEAR(v.Items()[1].Fp().AsMatrix3(), tip->GetNodeTM(t), 1e-4f);
  }
  EXPECT_EQ(Show("at time 10 root.pos"), "[0,0,20]");
  EXPECT_EQ(Show("sliderTime = 20; tip.pos.z"), "40.0");
  EXPECT_TRUE(theHold.Undo());
  EXPECT_EQ(Show("at time 20 root.pos"), "[0,0,0]") << "undo takes the keys back";
}

TEST_F(RunnerTest, ExecuteMAXScriptScriptAnswersPublishedValues) {
  FPValue v;
  ASSERT_TRUE(ExecuteMAXScriptScript("#(1, #(\"a\"), 2f)", true, &v));
  ASSERT_EQ(v.Type(), FPType::TYPE_VALUE_TAB);
  EXPECT_EQ(v.Item(1).Item(0), FPValue("a"));
  EXPECT_EQ(v.Item(2).AsTime(), 2 * GetCOREInterface()->GetTicksPerFrame());
  EXPECT_FALSE(ExecuteMAXScriptScript("undefined.x", true, &v));
  EXPECT_TRUE(v.IsUndefined());
  // The generated action text: an error inside reaches a message box titled by the action.
  ScriptResult r = runner.Run(
      "try(\nundo \"UI Action\" on(\nchain=undefined\nchain.controller.FK()\n)\n)"
      "catch(messagebox (getCurrentException()) title:\"UI Action\")");
  EXPECT_TRUE(r.ok);
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0], "UI Action: -- Unknown property: \"controller\" in undefined");
}

TEST_F(RunnerTest, GlobalRegistryTakesNewFunctionsAndStructures) {
  ASSERT_TRUE(RegisterScriptGlobal("testTwice", [](ScriptCall& call) {
    call.ExpectArgs(1, 1);
    const ScriptValue* plus = call.Key("plus");
    return ScriptValue(FPValue(call.Arg(0).AsInt() * 2 + (plus ? plus->AsInt() : 0)));
  }));
  ASSERT_TRUE(RegisterScriptGlobal("testOps.half", [](ScriptCall& call) {
    return ScriptValue(FPValue(call.Arg(0).AsFloat() / 2));
  }));
  EXPECT_FALSE(RegisterScriptGlobal("print", [](ScriptCall&) { return ScriptValue(); }));
  EXPECT_EQ(Show("#(testTwice 4 plus:1, TESTOPS.Half 3)"), "#(9, 1.5)");
  EXPECT_EQ(Error("testTwice()"),
            "-- Argument count error: testTwice wanted 1, got 0 (line 1, column 1)");
  EXPECT_TRUE(UnRegisterScriptGlobal("testTwice"));
  EXPECT_TRUE(UnRegisterScriptGlobal("testOps.half"));
  EXPECT_EQ(Show("testTwice"), "undefined");
}

TEST_F(RunnerTest, PluginPrimitivesTakePublishedValues) {
  // A plug-in's function sees published values: nodes by handle, undefined as a default value.
  ASSERT_TRUE(RegisterScriptPrimitive("testKind", [](const PrimitiveCall& call) -> FPValue {
    if (call.args.size() != 1) throw ArgCountError(std::string(call.function), 1, 0);
    const FPValue& a = call.args[0];
    if (a.Type() == FPType::TYPE_INODE) {
      return a.AsNode() ? FPValue(std::string("node")) : FPValue(std::string("gone"));
    }
    if (a.IsUndefined()) {
      throw RuntimeError("Expected a Node for the first argument, in function testKind");
    }
    const FPValue* scale = call.Key("scale");
    return FPValue(a.AsFloat() * (scale ? scale->AsFloat() : 1.0f));
  }));
  EXPECT_FALSE(RegisterScriptPrimitive("TESTKIND", [](const PrimitiveCall&) { return FPValue(); }));
  EXPECT_EQ(Show("n = TestPoint name:\"a\"; #(testKind n, testKind 2 scale:3)"),
            "#(\"node\", 6.0)");
  EXPECT_EQ(Show("delete n; testKind n"), "\"gone\"");
  EXPECT_EQ(Error("testKind undefined"),
            "-- Expected a Node for the first argument, in function testKind "
            "(line 1, column 1)");
  EXPECT_TRUE(UnRegisterScriptPrimitive("testkind"));
  EXPECT_EQ(Show("testKind"), "undefined");
}

TEST_F(RunnerTest, FuzzSeedsParse) {
  for (const auto& entry : std::filesystem::directory_iterator("fuzz/corpus/script_parser")) {
    SCOPED_TRACE(entry.path().string());
    std::ifstream in(entry.path(), std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    ScriptError error;
    EXPECT_NE(ParseScript(text.str(), error), nullptr) << error.Text();
  }
}

TEST_F(RunnerTest, ClosuresOutliveTheirBlockAndRunsWhileAGlobalHoldsThem) {
  // A global keeps the closure's block alive into later runs.
  Run("counter = (local n = 0; fn step = (n += 1; n))");
  EXPECT_EQ(Show("counter()"), "1");
  EXPECT_EQ(Show("counter()"), "2");
  // A closure that only the run's value held is released at the next run's end; one the new
  // global replaced too. What a released closure saw is gone, never dangling.
  Run("counter = 5");
  EXPECT_EQ(Show("f = (local x = 3; fn g = x); f()"), "3");
  EXPECT_EQ(Show("(local y = 4; fn h = y)()"), "4");
  {
    SCOPED_TRACE("a closure made inside a nested run");
    EXPECT_EQ(Show("execute \"k = (local z = 9; fn kz = z)\"; k()"), "9");
  }
}

TEST_F(RunnerTest, StructInstancesAndReferencesLiveWhileAGlobalHoldsThem) {
  // The instance's scope is among those the end of a run empties when nothing reaches them; a
  // global holding the instance (or an array of them, or a function bound to one) keeps it.
  Run("struct Acc (total = 0, fn add x = (total += x; total))\n"
      "sum = Acc()\nmany = #(Acc total:10)\nadder = sum.add");
  EXPECT_EQ(Show("adder 2; sum.add 3"), "5");
  EXPECT_EQ(Show("many[1].add 1"), "11");
  EXPECT_EQ(Show("(Acc total:1).add 1"), "2");
  // A by-reference argument to a closure's local made in an earlier run.
  Run("bump = (local n = 0; fn step = (fn inc &v = v += 1; inc &n; n))");
  EXPECT_EQ(Show("bump(); bump()"), "2");
  // Cycles through an instance are broken once no global reaches them (no leak under asan).
  Run("self = Acc(); self.total = self; bound = Acc(); bound.total = bound.add");
  Run("self = bound = undefined");
  EXPECT_EQ(Show("sum.total"), "5");
}

TEST_F(RunnerTest, ByReferenceParametersAreLivePlaces) {
  ExpectShown(
      *this,
      {
          // Set before a failure: the caller's variable already holds it.
          {"fn f &x = (x = 5; throw \"stop\"); v = 1; try (f &v) catch (); v", "5"},
          // The callee reads the caller's variable as it changes under it.
          {"fn g &x = (y += 1; x); y = 1; g &y", "2"},
          // A closure made in the call keeps the place after the call.
          {"fn mk &x = (fn put n = x = n); w = 0; (mk &w) 9; w", "9"},
          // The loop variable of a for loop.
          {"fn dbl &x = x *= 2; for i = 1 to 1 collect (dbl &i; i)", "#(2)"},
          // A member from inside a member function, and a node's property.
          {"fn z &x = x = 0; struct S (a = 4, fn clear = (z &a; a)); (S()).clear()", "0"},
          {"fn up &x = x = [0, 0, 7]; t = TestPoint(); up &t.pos; t.pos", "[0,0,7]"},
          // Native functions take the value.
          {"fn h &x = (format \"%\" x to:(s = stringStream \"\"); s as string); q = 3; h &q",
           "\"3\""},
      },
      &RunnerTest::Show);
}

TEST_F(RunnerTest, StructInstancesKeepTheObjectsTheirMembersHold) {
  const int before = Animatable::LiveCount();
  {
    ScriptRunner r;
    ASSERT_TRUE(
        r.Run("struct Holder (ctl); keep = Holder (Bezier_Float()); Holder (Bezier_Float())").ok);
    EXPECT_EQ(Animatable::LiveCount(), before + 2) << "the run's value keeps its instance's";
    ASSERT_TRUE(r.Run("1").ok);
    EXPECT_EQ(Animatable::LiveCount(), before + 1) << "only the global's instance holds one";
    ASSERT_TRUE(r.Run("keep.ctl = undefined").ok);
    EXPECT_EQ(Animatable::LiveCount(), before);
  }
  {
    SCOPED_TRACE("a long chain of instances, through arrays too, frees without deep recursion");
    Run("struct Link (next); head = undefined\n"
        "for i = 1 to 300000 do head = Link head\n"
        "head = undefined\n"
        "for i = 1 to 150000 do head = Link #(head)\n"
        "head = undefined");
  }
  // Printing and comparing follow instances, not the text they print as.
  ExpectShown(*this,
              {
                  {"struct N (v, next); a = N 1 (N 2); a", "(N v:1 next:(N v:2 next:undefined))"},
                  {"struct P (v); P 1 == P 1", "false"},
                  {"struct P (v); x = P 1; x == x", "true"},
                  {"struct P (v); classOf P", "StructDef"},
              },
              &RunnerTest::Show);
}

}  // namespace
}  // namespace marvolith::test
