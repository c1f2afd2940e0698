// Copyright Marvolith contributors.
// Save and load of every controller class, damaged chunks, undo of key edits, and evaluation
// without allocation.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <functional>

#include "host/controllers/controller_classes.h"
#include "host/controllers/list_control.h"
#include "host/controllers/prs_control.h"
#include "host/controllers/xyz_control.h"
#include "host/registry/class_desc.h"
#include "support/track_assign.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/controller_test_util.h"

namespace marvolith::test {
namespace {

Bytes Int32(std::int32_t v) { return RawBytes(v); }

using PersistenceTest = ControllerTest;

TEST_F(PersistenceTest, EveryClassSavesLoadsAndSavesTheSameBytes) {
  RegisterControllerClasses();
  const struct {
    SClass_ID super_class;
    Class_ID id;
    const char* internal_name;
  } classes[] = {
      {CTRL_FLOAT_CLASS_ID, {0x2007, 0}, "Bezier_Float"},
      {CTRL_POSITION_CLASS_ID, {0x2008, 0}, "Bezier_Position"},
      {CTRL_POINT3_CLASS_ID, {0x200A, 0}, "Bezier_Point3"},
      {CTRL_POINT3_CLASS_ID, {0x2011, 0}, "Bezier_Color"},
      {CTRL_SCALE_CLASS_ID, {0x2010, 0}, "Bezier_Scale"},
      {CTRL_POINT4_CLASS_ID, {0x2012, 0}, "Bezier_Point4"},
      {CTRL_FLOAT_CLASS_ID, {0x442311, 0}, "TCB_Float"},
      {CTRL_POSITION_CLASS_ID, {0x442312, 0}, "TCB_Position"},
      {CTRL_ROTATION_CLASS_ID, {0x442313, 0}, "TCB_Rotation"},
      {CTRL_SCALE_CLASS_ID, {0x442315, 0}, "TCB_Scale"},
      {CTRL_ROTATION_CLASS_ID, {0x2012, 0}, "Euler_XYZ"},
      {CTRL_POSITION_CLASS_ID, {0x118F7E02, 0xFFEE238A}, "Position_XYZ"},
      {CTRL_SCALE_CLASS_ID, {0x118F7C01, 0xFEEE238B}, "ScaleXYZ"},
      {CTRL_MATRIX3_CLASS_ID, {kPRSClassIDPartA, 0}, "PRS"},
      {CTRL_FLOAT_CLASS_ID, {0x4b4b1000, 0}, "Float_List"},
      {CTRL_POSITION_CLASS_ID, {0x4b4b1002, 0}, "Position_List"},
      {CTRL_ROTATION_CLASS_ID, {0x4b4b1003, 0}, "Rotation_List"},
      {CTRL_SCALE_CLASS_ID, {0x4b4b1004, 0}, "Scale_List"},
  };
  for (const auto& cls : classes) {
    SCOPED_TRACE(cls.internal_name);
    ClassDesc2* cd = ClassDirectory::Get().FindClass(cls.super_class, cls.id);
    ASSERT_NE(cd, nullptr);
    EXPECT_STREQ(cd->InternalName(), cls.internal_name);
    auto* c = Keep(static_cast<Control*>(cd->Create(false)));
    EXPECT_EQ(c->ClassID(), cls.id);
    c->AddNewKey(0, 0);
    c->AddNewKey(160, ADDKEY_SELECT);
    c->SetORT(ORT_OSCILLATE, ORT_AFTER);
    if (auto* e = static_cast<IEulerControl*>(c->GetInterface(I_EULERCTRL))) e->SetOrder(4);
    if (auto* l = static_cast<IListControl*>(c->GetInterface(LIST_CONTROLLER_INTERFACE))) {
      auto item = [&] {
        switch (cls.super_class) {
          case CTRL_FLOAT_CLASS_ID:
            return NewDefaultFloatController();
          case CTRL_POSITION_CLASS_ID:
            return NewDefaultPositionController();
          case CTRL_ROTATION_CLASS_ID:
            return NewDefaultRotationController();
          default:
            return NewDefaultScaleController();
        }
      };
      l->Append(item());
      l->Append(item(), "second");
      l->SetSubCtrlWeight(1, 0.25f);
      l->SetActive(1);
    }
    static_cast<ILockedTrack*>(c->GetInterface(I_LOCKED))->SetLocked(true);
    const Bytes first = SaveBytes(c);
    auto* loaded = Keep(static_cast<Control*>(cd->Create(true)));
    ASSERT_EQ(LoadBytes(loaded, first), IO_OK);
    EXPECT_EQ(SaveBytes(loaded), first);
    EXPECT_TRUE(IsTrackLocked(loaded));
  }
}

TEST_F(PersistenceTest, DamagedChunksFailCleanly) {
  auto* c = Keep(new BezierFloatControl());
  IBezFloatKey k = BezKey(10, 4.0f);
  c->AppendKey(&k);
  const Bytes good = SaveBytes(c);
  auto wrap = [](const Bytes& inner) { return Chunk(1, inner, true); };
  const struct {
    const char* what;
    Bytes bytes;
  } damaged[] = {
      {"truncated", wrap(Bytes(good.begin() + 6, good.end() - 3))},
      {"keys not a whole number of records", wrap(Chunk(0x0030, Bytes(29, 0)))},
      {"invalid key time", wrap(Chunk(0x0030, Cat({Int32(0x7FFFFFFF), Bytes(24, 0)})))},
      {"unknown out-of-range type", wrap(Chunk(0x0010, Cat({Int32(1), Int32(99)})))},
      {"value of the wrong size", wrap(Chunk(0x0020, Bytes(3, 0)))},
      {"sub-chunk longer than its parent",
       wrap(Cat({Chunk(0x0020, Int32(1)), Bytes{0x40, 0, 200}}))},
  };
  for (const auto& d : damaged) {
    SCOPED_TRACE(d.what);
    auto* target = Keep(new BezierFloatControl());
    EXPECT_EQ(LoadBytes(target, d.bytes), IO_ERROR);
    EXPECT_EQ(target->NumKeys(), 0) << "a failed load changes nothing";
  }
  // Unknown chunks are skipped.
  auto* tolerant = Keep(new BezierFloatControl());
  float three = 3.0f;
  Bytes value(4);
  std::memcpy(value.data(), &three, 4);
  EXPECT_EQ(LoadBytes(tolerant, wrap(Cat({Chunk(0x7777, Bytes(5, 1)), Chunk(0x0020, value)}))),
            IO_OK);
  EXPECT_FLOAT_EQ(ValueAt<float>(tolerant, 0), 3.0f);
  // Compound classes check their own data.
  EXPECT_EQ(LoadBytes(Keep(new EulerXYZControl(true)), wrap(Chunk(0x0100, Int32(12)))), IO_ERROR);
  EXPECT_EQ(LoadBytes(Keep(new ListControl(CTRL_FLOAT_CLASS_ID)),
                      wrap(Cat({Chunk(0x0100, Int32(2)), Chunk(0x0120, Bytes(4, 0))}))),
            IO_ERROR);
}

// Undo then redo of any run of key edits in one hold restores each state exactly.
RC_GTEST_PROP(KeyframeUndoProps, UndoThenRedoRestoresExactly, ()) {
  theHold.Clear();
  AnimateOff();
  SceneSweeper sweep;
  const bool rotation = *rc::gen::arbitrary<bool>();
  Control* c = sweep.Keep(rotation ? static_cast<Control*>(new TCBRotationControl())
                                   : static_cast<Control*>(new BezierFloatControl()));
  auto set = [&](TimeValue t, float v, GetSetMethod m) {
    if (rotation) {
      Quat q(AngAxis(Point3(1, v, 0.5f), v));
      AngAxis aa(Point3(0, 1, v), v);
      c->SetValue(t, m == CTRL_ABSOLUTE ? static_cast<void*>(&q) : &aa, 1, m);
    } else {
      c->SetValue(t, &v, 1, m);
    }
  };
  AnimateOn();
  for (int t : *rc::gen::container<std::vector<int>>(rc::gen::inRange(-5, 6)))
    set(t * 80, t * 0.3f, CTRL_ABSOLUTE);
  AnimateOff();
  const Bytes before = SaveBytes(c);
  theHold.Begin();
  const int ops = *rc::gen::inRange(1, 8);
  for (int i = 0; i < ops; ++i) {
    const int t = *rc::gen::inRange(-500, 500);
    const float v = *rc::gen::inRange(-30, 30) * 0.1f;
    switch (*rc::gen::inRange(0, 8)) {
      case 0:
        c->AddNewKey(t, ADDKEY_SELECT);
        break;
      case 1:
        c->DeleteKeyByIndex(*rc::gen::inRange(0, 4));
        break;
      case 2:
        AnimateOn();
        set(t, v, CTRL_ABSOLUTE);
        AnimateOff();
        break;
      case 3:
        set(t, v, *rc::gen::arbitrary<bool>() ? CTRL_ABSOLUTE : CTRL_RELATIVE);
        break;
      case 4: {
        struct Shift : TimeMap {
          TimeValue d;
          TimeValue map(TimeValue x) override { return x + d; }
        } shift;
        shift.d = t;
        c->MapKeys(&shift, *rc::gen::arbitrary<bool>() ? TRACK_DOSEL : TRACK_DOALL);
        break;
      }
      case 5:
        c->SelectKeyByIndex(*rc::gen::inRange(0, 4), *rc::gen::arbitrary<bool>());
        break;
      case 6:
        c->SetORT(*rc::gen::inRange(1, 8), *rc::gen::inRange(1, 3));
        break;
      default:
        c->DeleteKeys(TRACK_DOSEL);
        break;
    }
  }
  theHold.Accept("Edit");
  const Bytes after = SaveBytes(c);
  theHold.Undo();
  RC_ASSERT(SaveBytes(c) == before);
  theHold.Redo();
  RC_ASSERT(SaveBytes(c) == after);
  theHold.Clear();
}

TEST_F(PersistenceTest, GetValueAllocatesNothing) {
  auto* f = Keep(new BezierFloatControl());
  auto* r = Keep(new TCBRotationControl());
  auto* prs = Keep(NewDefaultMatrix3Controller());
  auto* list = Keep(new ListControl(CTRL_ROTATION_CLASS_ID));
  list->Append(NewDefaultRotationController());
  list->Append(CreateInterpRotation());
  AnimateOn();
  list->SetSubCtrlWeight(1, 0.5f, 0);  // a keyed weight track is read at every evaluation
  list->SetSubCtrlWeight(1, 0.9f, 9600);
  for (int i = 0; i < 100; ++i) {
    float v = static_cast<float>(i % 7);
    f->SetValue(i * 160, &v);
    Quat q(AngAxis(Point3(1, 1, 0), 0.1f * i));
    r->SetValue(i * 320, &q);
    Matrix3 w = RotateZMatrix(0.05f * i) * TransMatrix(Point3(0.1f * i, 0, 1));
    SetXFormPacket set(w, Matrix3());
    if (i % 10 == 0) prs->SetValue(i * 160, &set);
  }
  AnimateOff();
  f->SetORT(ORT_CYCLE, ORT_AFTER);
  f->SetORT(ORT_LINEAR, ORT_BEFORE);
  r->SetORT(ORT_RELATIVE_REPEAT, ORT_AFTER);
  auto evaluate = [&](TimeValue t) {
    Interval iv = FOREVER;
    float v;
    Quat q;
    Matrix3 m;
    f->GetValue(t, &v, iv);
    r->GetValue(t, &q, iv);
    prs->GetValue(t, &m, iv, CTRL_RELATIVE);
    list->GetValue(t, &q, iv);
  };
  evaluate(0);  // tangents and caches are built on the first evaluation after an edit
  AllocationScope scope;
  for (TimeValue t = -20000; t < 60000; t += 37) evaluate(t);
  EXPECT_EQ(scope.Count(), 0u);
}

}  // namespace
}  // namespace marvolith::test
