// Copyright Marvolith contributors.
// Scripted custom attribute definitions: their canonical text, and objects of them through
// cloning and scene files.
#include "host/interpreter/scripted_attrib.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/interpreter/runner.h"
#include "host/params/iparam_block2.h"
#include "host/scene/core_interface.h"
#include "host/script/script_value.h"

namespace marvolith::test {
namespace {

ScriptedAttribSpec SampleSpec(const std::string& name, float weight, const std::string& label) {
  ScriptedAttribSpec spec;
  spec.name = name;
  ScriptedBlockSpec block;
  block.name = "main";
  block.params.push_back({"weight", TYPE_FLOAT, P_ANIMATABLE, 0, weight});
  block.params.push_back({"label", TYPE_STRING, 0, 0, label});
  block.params.push_back({"target", TYPE_INODE, 0, 0, ZeroStoredValue(PBKind::kNode)});
  block.params.push_back(
      {"tm", TYPE_MATRIX3, 0, 0,
       Matrix3(Point3(1, 2, 3), Point3(4, 5, 6), Point3(7, 8, 9), Point3(weight, 0, 1))});
  block.params.push_back({"list", TYPE_INT_TAB, P_VARIABLE_SIZE, 3, 7});
  spec.blocks.push_back(block);
  spec.blocks.push_back({"second", {{"p", TYPE_POINT4, 0, 0, Point4(1, weight, 3, 4)}}});
  return spec;
}

RC_GTEST_PROP(ScriptedSpecText,
              ParsesBackToTheSameText,
              (std::string name, float weight, std::string label)) {
  const std::string text = ScriptedSpecText(SampleSpec(name, weight, label));
  ScriptedAttribSpec back;
  RC_ASSERT(ParseScriptedSpecText(text, back));
  RC_ASSERT(ScriptedSpecText(back) == text);
}

TEST(ScriptedSpecText, EveryCutIsRefusedOrACompleteShorterDefinition) {
  const std::string text = ScriptedSpecText(SampleSpec("Cut Me", 0.25f, "x\ny:1"));
  for (size_t n = 0; n < text.size(); ++n) {
    SCOPED_TRACE(n);
    ScriptedAttribSpec back;
    if (ParseScriptedSpecText(text.substr(0, n), back)) {
      EXPECT_EQ(ScriptedSpecText(back), text.substr(0, n)) << "only whole records may parse";
    }
  }
  ScriptedAttribSpec back;
  EXPECT_FALSE(ParseScriptedSpecText("A 3:abc\nP 1:x 0 0 0 0x1p+0\n", back)) << "no block";
  EXPECT_FALSE(ParseScriptedSpecText("A 3:abc\nB 1:b\nP 1:x 999 0 0 1\n", back)) << "bad type";
  EXPECT_FALSE(ParseScriptedSpecText("A 99:abc\n", back)) << "string past the end";
}

class ScriptedAttribTest : public ::testing::Test {
 public:
  static void SetUpTestSuite() {
    RegisterHostClasses();
    RegisterScriptedAttribClass();
  }
  void TearDown() override { GetCOREInterface()->Reset(); }
  ScriptRunner runner;
};

TEST_F(ScriptedAttribTest, DefinitionsShareAClassByTextAndRefuseAClashingID) {
  const Class_ID id(0x7e57, 0xa77b);
  std::string error;
  ScriptedAttribDef* first = DefineScriptedAttrib(SampleSpec("Clash", 1.0f, "a"), &id, &error);
  ASSERT_NE(first, nullptr) << error;
  EXPECT_EQ(DefineScriptedAttrib(SampleSpec("Clash", 1.0f, "a"), &id, &error), first);
  EXPECT_EQ(DefineScriptedAttrib(SampleSpec("Clash", 2.0f, "a"), &id, &error), nullptr);
  EXPECT_EQ(error, "attributes Clash has the class of another definition with other parameters");
  ScriptedAttribDef* hashed = DefineScriptedAttrib(SampleSpec("Clash", 2.0f, "a"), nullptr, &error);
  ASSERT_NE(hashed, nullptr);
  EXPECT_FALSE(hashed->ClassID() == id);
  EXPECT_EQ(ClassDirectory::Get().FindClass(CUST_ATTRIB_CLASS_ID, hashed->ClassID()), hashed);
}

TEST_F(ScriptedAttribTest, CloneAndSceneFileKeepDefinitionAndValues) {
  ScriptResult made = runner.Run(R"(
    d = attributes kept (parameters main (w type:#float default:1; s type:#string default:"x"))
    a = Point name:"a"
    custAttributes.add a d
    a.w = 3.5
    a.s = "saved")");
  ASSERT_TRUE(made.ok) << made.ErrorText();
  INode* a = GetCOREInterface()->GetINodeByName("a");
  ASSERT_NE(a, nullptr);
  Animatable* base = a->GetObjectRef()->FindBaseObject();
  auto* ca = dynamic_cast<ScriptedCustAttrib*>(base->GetCustAttribContainer()->GetCustAttrib(0));
  ASSERT_NE(ca, nullptr);
  {
    SCOPED_TRACE("clone");
    auto* clone = dynamic_cast<ScriptedCustAttrib*>(CloneRefHierarchy(ca));
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(clone->GetDef(), ca->GetDef());
    ASSERT_NE(clone->GetParamBlock(0), nullptr);
    EXPECT_NE(clone->GetParamBlock(0), ca->GetParamBlock(0));
    EXPECT_FLOAT_EQ(clone->GetParamBlock(0)->GetFloat(0, 0), 3.5f);
    clone->MaybeAutoDelete();
  }
  std::vector<std::uint8_t> bytes;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(bytes, &error)) << error;
  GetCOREInterface()->Reset();
  ASSERT_TRUE(LoadSceneFromBytes(bytes, &error)) << error;
  ScriptResult r = runner.Run("a = $a; #(a.w, a.s, (custAttributes.get a 1).w)");
  ASSERT_TRUE(r.ok) << r.ErrorText();
  EXPECT_EQ(ScriptValueString(r.value), "#(3.5, \"saved\", 3.5)");
  std::vector<std::uint8_t> again;
  ASSERT_TRUE(SaveSceneToBytes(again, &error)) << error;
  EXPECT_EQ(again, bytes) << "save, load, save gives the same bytes";
}

}  // namespace
}  // namespace marvolith::test
