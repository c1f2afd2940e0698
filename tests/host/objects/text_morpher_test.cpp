// Copyright Marvolith contributors.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "host/controllers/controller_classes.h"
#include "host/objects/morpher.h"
#include "host/objects/text_shape.h"
#include "host/scene/inode.h"
#include "tests/host/objects/object_test_util.h"

namespace marvolith::test {
namespace {

Box3 TextBox(std::string_view text, const StrokeTextLayout& layout, int* splines = nullptr) {
  BezierShape shape;
  BuildStrokeText(text, layout, shape);
  if (splines) *splines = shape.SplineCount();
  return shape.GetBoundingBox();
}

TEST(StrokeFont, EverySupportedCharacterDrawsInsideItsCell) {
  const std::string_view chars = StrokeFontCharacters();
  for (char c = 'A'; c <= 'Z'; ++c) EXPECT_NE(chars.find(c), std::string_view::npos) << c;
  for (char c = 'a'; c <= 'z'; ++c) EXPECT_NE(chars.find(c), std::string_view::npos) << c;
  for (char c = '0'; c <= '9'; ++c) EXPECT_NE(chars.find(c), std::string_view::npos) << c;
  for (char c : std::string_view(".,:;!?'\"-+=/()"))
    EXPECT_NE(chars.find(c), std::string_view::npos) << c;

  std::set<std::vector<std::vector<std::pair<float, float>>>> seen;
  for (char c : chars) {
    SCOPED_TRACE(::testing::Message() << "'" << c << "'");
    const StrokeGlyph* glyph = FindStrokeGlyph(static_cast<unsigned char>(c));
    ASSERT_NE(glyph, nullptr);
    int splines = 0;
    const Box3 box = TextBox(std::string(1, c), {8.0f, 0.0f, 0.0f}, &splines);  // 1 unit a unit
    EXPECT_EQ(splines, static_cast<int>(glyph->strokes.size()));
    ASSERT_FALSE(box.IsEmpty());
    EXPECT_GT(box.Width().x + box.Width().y, 0.5f) << "a visible mark";
    EXPECT_GE(box.Min().x, 0.0f);
    EXPECT_LE(box.Max().x, glyph->width);
    EXPECT_GE(box.Min().y, -2.0f);
    EXPECT_LE(box.Max().y, 6.0f);
    std::vector<std::vector<std::pair<float, float>>> strokes;
    for (const auto& stroke : glyph->strokes) {
      EXPECT_GE(stroke.size(), 2u);
      auto& s = strokes.emplace_back();
      for (const Point2& p : stroke) s.emplace_back(p.x, p.y);
    }
    EXPECT_TRUE(seen.insert(strokes).second) << "two characters draw the same figure";
  }
}

TEST(StrokeFont, UnsupportedCharactersDrawNothingAndAdvanceAsASpace) {
  const StrokeTextLayout unit_layout{8.0f, 0.0f, 0.0f};
  for (const char* text : {" ", "\t", "~", "@", "\xc3\xa9", "\xff"}) {
    SCOPED_TRACE(::testing::Message() << "text of " << std::string(text).size() << " bytes");
    int splines = -1;
    EXPECT_TRUE(TextBox(text, unit_layout, &splines).IsEmpty());
    EXPECT_EQ(splines, 0);
    // "l" after it starts one glyph advance (2 + 1) plus one space (4) later.
    const Box3 after = TextBox(std::string("l") + text + "l", unit_layout);
    EXPECT_FLOAT_EQ(after.Max().x, 3.0f + 4.0f + 2.0f);
  }
}

TEST(StrokeFont, LayoutAppliesSizeKerningAndLeading) {
  const StrokeTextLayout layout{16.0f, 1.0f, 3.0f};  // 2 world units a glyph unit
  const Box3 hh = TextBox("HH", layout);
  EXPECT_FLOAT_EQ(hh.Max().x, (4 + 1) * 2 + 1 + 4 * 2) << "advance, kerning, second H";
  EXPECT_FLOAT_EQ(hh.Max().y, 12.0f);
  for (const char* text : {"H\nI", "H\r\nI", "H\rI"}) {
    const Box3 two = TextBox(text, layout);
    EXPECT_FLOAT_EQ(two.Min().y, -(16.0f + 3.0f)) << "the second line, one size and leading down";
    EXPECT_FLOAT_EQ(two.Max().x, 8.0f) << "a new line starts at x 0 again";
  }
  EXPECT_TRUE(TextBox("H", {-5.0f, 0.0f, 0.0f}).Width() == Point3()) << "negative size is 0";
}

TEST_F(ObjectTest, TextShapeOutlineFollowsItsBlock) {
  auto* text = Make<TextShape>(SHAPE_CLASS_ID, TEXT_CLASS_ID);
  ASSERT_NE(text, nullptr);
  INode* node = ip->CreateObjectNode(text, "label");
  IParamBlock2* pb = text->GetParamBlock(0);
  const int default_curves = text->NumberOfCurves();
  EXPECT_GT(default_curves, 0) << "a new text reads \"MAX Text\"";
  Undoable([&] {
    text->SetText("Morpher");
    pb->SetValue(text_size, 0, 16.0f);
  });
  EXPECT_EQ(text->NumberOfCurves(), 11);
  Box3 box;
  text->GetWorldBoundBox(0, node, nullptr, box);
  EXPECT_FLOAT_EQ(box.Max().y, 12.0f);
  EXPECT_FLOAT_EQ(box.Min().y, -4.0f) << "the descender of p";
  EXPECT_GT(text->LengthOfCurve(0, 0), 0.0f);
  EXPECT_FALSE(text->CurveClosed(0, 0));
  ASSERT_TRUE(theHold.Undo());
  EXPECT_STREQ(text->GetText(), "MAX Text");
  EXPECT_EQ(text->NumberOfCurves(), default_curves);

  ASSERT_TRUE(pb->SetController(text_size, 0, NewDefaultFloatController()));
  AnimateOn();
  pb->SetValue(text_size, 0, 8.0f);
  pb->SetValue(text_size, 4800, 16.0f);
  AnimateOff();
  EXPECT_FALSE(text->ObjectValidity(2400).InInterval(0));
  text->GetLocalBoundBox(4800, node, nullptr, box);
  EXPECT_FLOAT_EQ(box.Max().y, 12.0f);
  text->GetLocalBoundBox(0, node, nullptr, box);
  EXPECT_FLOAT_EQ(box.Max().y, 6.0f) << "the outline is rebuilt for another time";
}

class MorpherTest : public ObjectTest {
 protected:
  void SetUp() override {
    ObjectTest::SetUp();
    text = Make<TextShape>(SHAPE_CLASS_ID, TEXT_CLASS_ID);
    IDerivedObject* dob = CreateDerivedObject(text);
    node = ip->CreateObjectNode(dob, "Morpher");
    morpher = Make<Morpher>(OSM_CLASS_ID, MORPHER_CLASS_ID);
    dob->AddModifier(morpher);
  }
  TextShape* text = nullptr;
  INode* node = nullptr;
  Morpher* morpher = nullptr;
};

TEST_F(MorpherTest, ChannelsAddRemoveAndRenameUndoably) {
  INode* target = ip->CreateObjectNode(nullptr, "target");
  MaxMorphModifier mm(morpher);
  ASSERT_TRUE(mm.IsValidMorpher());
  Undoable([&] {
    mm.AddMorphChannel("RBrowEndUp");
    mm.AddMorphChannel("LBrowEndUp", target);
  });
  ASSERT_EQ(mm.NumMorphChannels(), 2);
  Control* weight = mm.GetMorphChannel(1).GetMorphWeightController();
  ASSERT_NE(weight, nullptr);
  EXPECT_EQ(weight->SuperClassID(), CTRL_FLOAT_CLASS_ID);
  EXPECT_EQ(mm.GetMorphChannel(1).GetMorphTarget(), target);
  EXPECT_TRUE(mm.GetMorphChannel(0).IsActive());
  EXPECT_EQ(morpher->SubAnimName(1), "[2] LBrowEndUp");
  EXPECT_EQ(morpher->SubAnim(1), weight);

  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(mm.NumMorphChannels(), 0);
  ASSERT_TRUE(theHold.Redo());
  ASSERT_EQ(mm.NumMorphChannels(), 2);
  EXPECT_EQ(mm.GetMorphChannel(1).GetMorphWeightController(), weight) << "the same track";

  Undoable([&] {
    EXPECT_TRUE(mm.GetMorphChannel(0).SetName("Renamed"));
    EXPECT_TRUE(morpher->DeleteChannel(0));
  });
  ASSERT_EQ(mm.NumMorphChannels(), 1);
  EXPECT_EQ(mm.GetMorphChannel(0).GetName(), "LBrowEndUp");
  ASSERT_TRUE(theHold.Undo());
  ASSERT_EQ(mm.NumMorphChannels(), 2);
  EXPECT_EQ(mm.GetMorphChannel(0).GetName(), "RBrowEndUp");
  EXPECT_EQ(mm.GetMorphChannel(1).GetMorphTarget(), target);

  EXPECT_FALSE(morpher->SetChannelTarget(0, node)) << "the node that shows the Morpher: a loop";
  EXPECT_EQ(morpher->AddChannel("loop", node), -1);
  EXPECT_EQ(morpher->NumChannels(), 2);
  EXPECT_FALSE(mm.GetMorphChannel(5).SetName("x")) << "out of range";
  EXPECT_FALSE(MaxMorphModifier(nullptr).IsValidMorpher());
}

TEST_F(MorpherTest, ValidityComesFromTheActiveWeightsAndGeometryPassesThrough) {
  const int c = morpher->AddChannel("JawDownOpen");
  EXPECT_TRUE(morpher->LocalValidity(2400).IsInfinite());
  AnimateOn();
  morpher->SetChannelWeight(c, 0, 0.0f);
  morpher->SetChannelWeight(c, 4800, 100.0f);
  AnimateOff();
  EXPECT_NEAR(morpher->GetChannelWeight(c, 4800), 100.0f, 1e-4f);
  const Interval mid = morpher->LocalValidity(2400);
  EXPECT_TRUE(mid.InInterval(2400));
  EXPECT_FALSE(mid.InInterval(0));

  const ObjectState& os = node->EvalWorldState(2400);
  EXPECT_EQ(os.obj, text) << "the Morpher leaves the object alone";
  EXPECT_FALSE(os.obValid().InInterval(0));

  morpher->SetChannelActive(c, false);
  EXPECT_TRUE(morpher->LocalValidity(2400).IsInfinite()) << "inactive channels do not count";

  Control* fresh = NewDefaultFloatController();
  EXPECT_TRUE(morpher->AssignController(fresh, c));
  EXPECT_EQ(morpher->GetChannelWeightController(c), fresh);
}

}  // namespace
}  // namespace marvolith::test
