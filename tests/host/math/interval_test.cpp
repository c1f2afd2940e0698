// Copyright Marvolith contributors.
#include "host/math/interval.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

// Times over a small range so that overlaps are common, with the infinities mixed in.
static rc::Gen<TimeValue> GenTime() {
  return rc::gen::weightedOneOf<TimeValue>(
      {{10, rc::gen::inRange<TimeValue>(-50, 51)},
       {1, rc::gen::element(TIME_NegInfinity, TIME_PosInfinity)}});
}

RC_GTEST_PROP(IntervalProperty, IntersectionHoldsExactlyTheCommonTimes, ()) {
  Interval a(*GenTime(), *GenTime());
  Interval b(*GenTime(), *GenTime());
  TimeValue t = *GenTime();
  Interval both = a & b;
  RC_ASSERT(both.InInterval(t) == (a.InInterval(t) && b.InInterval(t)));
  RC_ASSERT(both == (b & a));
  RC_ASSERT((a & FOREVER) == a);
  Interval grown = a;
  grown += t;
  RC_ASSERT(grown.InInterval(t) || t == TIME_NegInfinity);  // see EmptyFormsAndDurations
  TimeValue old_time = *GenTime();
  RC_ASSERT(!a.InInterval(old_time) || grown.InInterval(old_time));
}

TEST(IntervalTest, EmptyFormsAndDurations) {
  EXPECT_TRUE(NEVER.Empty());
  EXPECT_TRUE(Interval(10, 5).Empty());
  EXPECT_EQ(Interval(0, 10) & Interval(11, 20), NEVER) << "disjoint ranges intersect to NEVER";
  EXPECT_EQ(Interval(0, 10) & Interval(10, 20), Interval(10, 10));
  EXPECT_EQ(Interval(7, 7).Duration(), 1);
  EXPECT_EQ(NEVER.Duration(), 0);
  EXPECT_EQ(FOREVER.Duration(), std::int64_t(1) << 32);
  EXPECT_TRUE(FOREVER.InInterval(TIME_NegInfinity) && FOREVER.InInterval(TIME_PosInfinity));
  // The host spells NEVER as (NegInfinity, NegInfinity), so that one instant cannot be held.
  Interval at_start;
  at_start.SetInstant(TIME_NegInfinity);
  EXPECT_TRUE(at_start.Empty());
}
