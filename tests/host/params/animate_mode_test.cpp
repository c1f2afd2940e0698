// Copyright Marvolith contributors.
// Animate mode on a constant parameter: the host's default track and a key appear.
#include <gtest/gtest.h>

#include "host/app/host_classes.h"
#include "host/controllers/keys.h"
#include "tests/host/params/param_test_objects.h"

namespace marvolith::test {
namespace {

TEST_F(ParamBlockTest, AnimateModeKeysAConstantParameterThroughTheHostTrack) {
  SetParamControllerFactory(&MakeDefaultParamController);
  ASSERT_TRUE(pb->SetValue(kAnimFloat, 0, 0.25f));
  EXPECT_EQ(pb->GetController(kAnimFloat), nullptr) << "animate off: the constant changes";

  AnimateOn();
  ASSERT_TRUE(pb->SetValue(kAnimFloat, 3200, 0.75f));
  Control* track = pb->GetController(kAnimFloat);
  ASSERT_NE(track, nullptr);
  EXPECT_EQ(track->ClassID(), Class_ID(0x2007, 0)) << "a Bezier float";
  EXPECT_TRUE(track->IsKeyAtTime(3200, 0));
  EXPECT_FLOAT_EQ(pb->GetFloat(kAnimFloat, 3200), 0.75f);
  EXPECT_TRUE(track->IsKeyAtTime(0, 0)) << "the first key away from 0 keeps the old value at 0";
  EXPECT_FLOAT_EQ(pb->GetFloat(kAnimFloat, 0), 0.25f);
  ASSERT_TRUE(pb->SetValue(kAnimFloat, 6400, 0.5f));
  EXPECT_EQ(track->NumKeys(), 3);
  Interval valid = FOREVER;
  float v = 0;
  pb->GetValue(kAnimFloat, 4800, v, valid);
  EXPECT_EQ(valid, Interval(4800, 4800)) << "between keys the value holds for that instant";

  ASSERT_TRUE(pb->SetValue(kAnimPoint3, 3200, Point3(1, 2, 3)));
  ASSERT_NE(pb->GetController(kAnimPoint3), nullptr);
  EXPECT_EQ(pb->GetController(kAnimPoint3)->SuperClassID(), CTRL_POINT3_CLASS_ID);

  ASSERT_TRUE(pb->SetValue(kInt, 3200, 7));
  EXPECT_EQ(pb->GetController(kInt), nullptr) << "not animatable: no track";
  EXPECT_EQ(MakeDefaultParamController(TYPE_STRING), nullptr);
}

}  // namespace
}  // namespace marvolith::test
