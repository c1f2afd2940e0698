// Copyright Marvolith contributors.
#include "controllers/connection_controls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/controllers/controller_classes.h"
#include "host/interpreter/runner.h"
#include "host/math/affine.h"
#include "host/scene/scene.h"
#include "host/script/fp_dispatch.h"
#include "host/script/script_errors.h"
#include "plugin/strings.h"
#include "tests/support/controller_test_util.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

/// A float track whose value is its time in ticks; it records the messages it is sent.
class TimeFloat : public Control {
 public:
  SClass_ID SuperClassID() override { return CTRL_FLOAT_CLASS_ID; }
  void GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) override {
    *static_cast<float*>(val) = static_cast<float>(t);
    valid &= Interval(t, t);
  }
  void SetValue(TimeValue t, void* val, int, GetSetMethod) override {
    written.push_back({t, *static_cast<float*>(val)});
  }
  RefResult NotifyRefChanged(
      const Interval&, RefTargetHandle, PartID& part, RefMessage message, bool) override {
    if (message == REFMSG_KEYABLE_QUERY) *reinterpret_cast<int*>(part) = 1;
    heard.push_back(message);
    return REF_STOP;
  }
  struct Write {
    TimeValue t;
    float v;
  };
  std::vector<Write> written;
  std::vector<RefMessage> heard;
};

class ConnectionTest : public ControllerTest {
 protected:
  void SetUp() override {
    ControllerTest::SetUp();
    RegisterHostClasses();
    SetModuleInstance(reinterpret_cast<HINSTANCE>(this));
    for (ClassDesc2* cd : {GetFloatConnectionDesc(), GetPositionConnectionDesc(),
                           GetRotationConnectionDesc(), GetScaleConnectionDesc()}) {
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    }
    driver = ip->CreateObjectNode(nullptr, "driver");
    driven = ip->CreateObjectNode(nullptr, "driven");
    theHold.Clear();
  }
  void TearDown() override {
    ControllerTest::TearDown();
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
    SetModuleInstance(nullptr);
  }
  static Control* Pos(INode* n) { return n->GetTMController()->GetPositionController(); }
  /// A FloatConnection on the driven node's X position reading the driver's X position.
  FloatConnection* Wire() {
    auto* c = new FloatConnection;
    EXPECT_TRUE(Pos(driven)->AssignController(c, 0));
    EXPECT_EQ(c->Connect(Pos(driver), 0), ConnectResult::kConnected);
    return c;
  }
  void SetDriverX(float x, TimeValue t = 0) { Pos(driver)->GetXController()->SetValue(t, &x); }
  float DriverX(TimeValue t = 0) { return driver->GetNodeTM(t).GetTrans().x; }
  float DrivenX(TimeValue t = 0) { return driven->GetNodeTM(t).GetTrans().x; }
  static void SetParam(ConnectionControl* c, ParamID id, float v) {
    c->GetParamBlock(0)->SetValue(id, 0, v);
  }
  static void SetParam(ConnectionControl* c, ParamID id, int v) {
    c->GetParamBlock(0)->SetValue(id, 0, v);
  }
  static std::string ScriptError(ConnectionControl* c, std::vector<FPValue> args) {
    try {
      CallFunction(GetFPInterface(c, Interface_ID(c->ClassID())), "SetTarget", args);
    } catch (const MAXScriptException& e) {
      return e.what();
    }
    return "no error";
  }

  Interface* ip = GetCOREInterface();
  INode* driver = nullptr;
  INode* driven = nullptr;

 private:
  std::vector<ClassDesc2*> added_;
};

TEST_F(ConnectionTest, TransformModesForwardsAndBackwards) {
  FloatConnection* c = Wire();
  SetDriverX(25.0f);
  EXPECT_FLOAT_EQ(DrivenX(), 25.0f) << "None passes the value";
  SetParam(c, kConnTwoWay, 1);
  struct Mode {
    const char* name;
    int transform;
    float expected;  // driven X for a driver X of 25
  };
  SetParam(c, kConnOffset, 3.0f);
  SetParam(c, kConnWeight, 2.0f);
  SetParam(c, kConnInputMin, 0.0f);
  SetParam(c, kConnInputMax, 50.0f);
  SetParam(c, kConnOutputMin, -10.0f);
  SetParam(c, kConnOutputMax, 10.0f);
  for (const Mode& m :
       {Mode{"offset weight", 1, 53.0f}, Mode{"range", 2, 0.0f}, Mode{"four is none", 4, 25.0f}}) {
    SCOPED_TRACE(m.name);
    SetParam(c, kConnTransform, m.transform);
    SetDriverX(25.0f);
    EXPECT_NEAR(DrivenX(), m.expected, 1e-4f);
    // Two-way: setting the driven value writes the inverse into the driver.
    float y = m.expected + 4.0f;
    c->SetValue(0, &y);
    EXPECT_NEAR(DrivenX(), y, 1e-3f);
    float dy = -4.0f;
    c->SetValue(0, &dy, 1, CTRL_RELATIVE);
    EXPECT_NEAR(DriverX(), 25.0f, 1e-3f);
  }
  {
    SCOPED_TRACE("weight 0 writes back through 0.001");
    SetParam(c, kConnTransform, 1);
    SetParam(c, kConnWeight, 0.0f);
    float y = 3.5f;
    c->SetValue(0, &y);
    EXPECT_NEAR(DriverX(), 500.0f, 1e-2f);
  }
  {
    SCOPED_TRACE("locked or one-way: SetValue does nothing");
    c->SetLocked(true);
    float y = 1.0f;
    c->SetValue(0, &y);
    c->SetLocked(false);
    SetParam(c, kConnTwoWay, 0);
    c->SetValue(0, &y);
    EXPECT_NEAR(DriverX(), 500.0f, 1e-2f);
  }
}

TEST_F(ConnectionTest, CurveModeOnAHostCurveControl) {
  FloatConnection* c = Wire();
  SetParam(c, kConnTransform, 3);
  SetDriverX(25.0f);
  EXPECT_FLOAT_EQ(DrivenX(), 0.0f) << "no curve: the value stays as it was";
  ICurveCtl* ctl = c->GetCurveControl(true);
  ASSERT_NE(ctl, nullptr);
  ICurve* curve = ctl->GetControlCurve(0);
  EXPECT_FLOAT_EQ(DrivenX(), 25.0f) << "the new curve spans the ranges";
  // A tent: 0 at 0 and 100, 100 at 50.
  CurvePoint top;
  top.p = Point2(50.0f, 100.0f);
  curve->Insert(1, top);
  CurvePoint end = curve->GetPoint(0, 2);
  end.p.y = 0.0f;
  curve->SetPoint(0, 2, end);
  EXPECT_FLOAT_EQ(DrivenX(), 50.0f) << "curve changes reach the node";
  SetDriverX(150.0f);
  SetParam(c, kConnClamp, 1);
  EXPECT_FLOAT_EQ(DrivenX(), 0.0f);

  SetParam(c, kConnTwoWay, 1);
  SetDriverX(25.0f);
  float y = 30.0f;
  c->SetValue(0, &y);
  EXPECT_FLOAT_EQ(DriverX(), 30.0f) << "rising: x takes y";
  SetDriverX(75.0f);
  c->SetValue(0, &y);
  EXPECT_FLOAT_EQ(DriverX(), 100.0f) << "falling: 2x - y, limited to the curve";
  SetDriverX(75.0f);
  float dy = 5.0f;
  c->SetValue(0, &dy, 1, CTRL_RELATIVE);
  EXPECT_FLOAT_EQ(DriverX(), 70.0f) << "falling: a relative step goes the other way";

  theHold.Begin();
  curve->Delete(1);
  theHold.Accept("Delete point");
  EXPECT_EQ(curve->GetNumPts(), 2);
  theHold.Undo();
  EXPECT_EQ(curve->GetNumPts(), 3);
}

TEST_F(ConnectionTest, TimeOffsetReadsAndWritesShiftedTime) {
  auto* clock = new TimeFloat;
  ASSERT_TRUE(Pos(driver)->AssignController(clock, 0));
  FloatConnection* c = Wire();
  SetParam(c, kConnUseTimeOffset, 1);
  SetParam(c, kConnTimeOffset, 0.5f);
  Interval valid = FOREVER;
  EXPECT_FLOAT_EQ(ValueAt<float>(c, 1000, &valid), 3400.0f) << "0.5 s is 2400 ticks later";
  EXPECT_EQ(valid, Interval(1000, 1000));
  SetParam(c, kConnTwoWay, 1);
  float y = 7.0f;
  c->SetValue(160, &y);
  ASSERT_EQ(clock->written.size(), 1u);
  EXPECT_EQ(clock->written[0].t, 2560);
  // Keys and message 264 go to the connected track only while two-way.
  int flag = 0;
  const PartID answer = reinterpret_cast<PartID>(&flag);
  c->GetParamBlock(0)->NotifyDependents(FOREVER, answer, REFMSG_KEYABLE_QUERY);
  EXPECT_EQ(flag, 1);
  SetParam(c, kConnTwoWay, 0);
  clock->heard.clear();
  c->GetParamBlock(0)->NotifyDependents(FOREVER, answer, REFMSG_KEYABLE_QUERY);
  EXPECT_TRUE(clock->heard.empty());
}

TEST_F(ConnectionTest, KeyOperationsForwardToTheConnectedTrack) {
  FloatConnection* c = Wire();
  AnimateOn();
  for (TimeValue t : {0, 1600, 3200}) SetDriverX(t / 100.0f, t);
  AnimateOff();
  EXPECT_EQ(c->NumKeys(), 0) << "one-way shows no keys";
  SetParam(c, kConnTwoWay, 1);
  EXPECT_EQ(c->NumKeys(), 3);
  EXPECT_EQ(c->GetKeyTime(1), 1600);
  EXPECT_EQ(c->GetTimeRange(TIMERANGE_ALL), Interval(0, 3200));
  c->AddNewKey(800, 0);
  EXPECT_TRUE(c->IsKeyAtTime(800, 0));
  EXPECT_EQ(Pos(driver)->GetXController()->NumKeys(), 4);
  c->SetLocked(true);
  c->AddNewKey(2400, 0);
  EXPECT_EQ(c->NumKeys(), 4) << "locked adds no keys";
  EXPECT_EQ(c->SubAnim(ConnectionControl::kConnectedTrackSub), Pos(driver)->GetXController());
}

TEST_F(ConnectionTest, LostTargetKeepsItsValueAndUndoBringsItBack) {
  FloatConnection* c = Wire();
  SetDriverX(12.0f);
  EXPECT_FLOAT_EQ(DrivenX(), 12.0f);
  ReferenceTarget* target = Pos(driver);
  theHold.Begin();
  target->DeleteMe();
  theHold.Accept("Delete");
  EXPECT_EQ(c->GetTargetAnim(), nullptr);
  EXPECT_FLOAT_EQ(DrivenX(), 12.0f);
  EXPECT_FLOAT_EQ(c->GetConstantValue(), 12.0f);
  theHold.Undo();
  EXPECT_EQ(c->GetTargetAnim(), target);
  SetDriverX(4.0f);
  EXPECT_FLOAT_EQ(DrivenX(), 4.0f);
}

TEST_F(ConnectionTest, LoopsAreRefusedWithTheirText) {
  // A on the driven X reads the driver's Y; B on the driver's X would read the driven Y.
  auto* a = new FloatConnection;
  ASSERT_TRUE(Pos(driven)->AssignController(a, 0));
  ASSERT_EQ(a->Connect(Pos(driver), 1), ConnectResult::kConnected);
  auto* b = new FloatConnection;
  ASSERT_TRUE(Pos(driver)->AssignController(b, 0));
  const int undo_count = theHold.UndoCount();
  EXPECT_EQ(b->Connect(Pos(driven), 1), ConnectResult::kCircular);
  EXPECT_EQ(ScriptError(b, {FPValue(Pos(driven)->GetYController())}),
            "AddTarget - setting reference would create circular dependency: "
            "Controller:Bezier_Float");
  EXPECT_EQ(b->GetTargetAnim(), nullptr);
  EXPECT_EQ(theHold.UndoCount(), undo_count) << "errors come before any change";

  EXPECT_EQ(ScriptError(b, {FPValue(driven)}),
            "AddTarget - Target needs to be controller or subAnim, got:  $driven");
  EXPECT_EQ(ScriptError(b, {FPValue(Pos(driven))}),
            "SetTarget - Need float controller, got: Controller:Position_XYZ");
  Control* loose = Keep(NewDefaultFloatController());
  EXPECT_EQ(ScriptError(b, {FPValue(loose)}),
            "SetTarget - could not find target controller in scene: Controller:Bezier_Float");
  EXPECT_EQ(ScriptError(b, {FPValue(loose), FPValue(static_cast<ReferenceTarget*>(driven))}),
            "SetTarget - could not find target controller in scene: Controller:Bezier_Float");
  try {
    b->SetTargetSubAnim(driven->GetTMController(), 1);
    ADD_FAILURE();
  } catch (const RuntimeError& e) {
    EXPECT_STREQ(e.what(), "SetTarget - Need float, int, or bool subAnim, got: SubAnim:Rotation");
  }
  auto* pos = new PositionConnection;
  EXPECT_EQ(ScriptError(pos, {FPValue(Pos(driver)->GetXController())}),
            "SetTarget - Need position controller, got: Controller:Float_Connection");
  Keep(pos);
}

TEST_F(ConnectionTest, ScriptTargetsAreUndoable) {
  auto* c = new FloatConnection;
  ASSERT_TRUE(Pos(driven)->AssignController(c, 0));
  FPInterface* fpi = GetFPInterface(c, Interface_ID(c->ClassID()));
  Control* z = Pos(driver)->GetZController();
  const FPValue args[] = {FPValue(z)};
  EXPECT_TRUE(CallFunction(fpi, "SetTarget", args).value.AsBool());
  EXPECT_EQ(c->GetTargetAnim(), Pos(driver));
  EXPECT_EQ(c->GetTargetSubNum(), 2);
  EXPECT_EQ(theHold.UndoName(), "Float Connection Change");
  const FPValue track = CallFunction(fpi, "GetTarget", {}).value;
  EXPECT_EQ(track.AsSubAnimParent(), Pos(driver));
  EXPECT_EQ(track.AsSubAnimIndex(), 2);
  const FPValue as_controller[] = {FPValue(true)};
  EXPECT_TRUE(CallFunction(fpi, "GetTarget", as_controller).value.IsUndefined())
      << "the controller form needs two-way";
  theHold.Undo();
  EXPECT_EQ(c->GetTargetAnim(), nullptr);
  EXPECT_TRUE(CallFunction(fpi, "GetTarget", {}).value.IsUndefined());
  theHold.Redo();
  EXPECT_EQ(c->GetTargetSubNum(), 2);
}

TEST_F(ConnectionTest, VectorConnectionsWeighAndWriteBack) {
  {
    SCOPED_TRACE("position");
    auto* c = new PositionConnection;
    ASSERT_TRUE(driven->GetTMController()->SetPositionController(c));
    ASSERT_EQ(c->Connect(driver->GetTMController(), 0), ConnectResult::kConnected);
    driver->SetNodeTM(0, TransMatrix(Point3(2, 4, 6)));
    SetParam(c, kVecConnUseWeight, 1);
    SetParam(c, kVecConnWeightY, 0.5f);
    SetParam(c, kVecConnWeightZ, 0.0f);
    EXPECT_POINT3_NEAR(driven->GetNodeTM(0).GetTrans(), Point3(2, 2, 0), 1e-5f);
    SetParam(c, kVecConnTwoWay, 1);
    Point3 p(1, 1, 0.001f);
    c->SetValue(0, &p);
    EXPECT_POINT3_NEAR(driver->GetNodeTM(0).GetTrans(), Point3(1, 2, 1), 1e-4f);
  }
  {
    SCOPED_TRACE("rotation");
    auto* c = new RotationConnection;
    ASSERT_TRUE(driven->GetTMController()->SetRotationController(c));
    ASSERT_EQ(c->Connect(driver->GetTMController(), 1), ConnectResult::kConnected);
    driver->SetNodeTM(0, RotateZMatrix(0.8f));
    SetParam(c, kVecConnUseWeight, 1);
    SetParam(c, kVecConnWeightZ, 0.5f);
    EXPECT_MATRIX3_NEAR(driven->GetNodeTM(0), RotateZMatrix(0.4f), 1e-5f);
    SetParam(c, kVecConnTwoWay, 1);
    AngAxis turn(Point3(0, 0, 1), -0.1f);  // the quaternion's -0.1: right-handed 0.1 more
    c->SetValue(0, &turn, 1, CTRL_RELATIVE);
    EXPECT_MATRIX3_NEAR(driver->GetNodeTM(0), RotateZMatrix(1.0f), 1e-4f);
  }
  {
    SCOPED_TRACE("scale");
    auto* c = new ScaleConnection;
    ASSERT_TRUE(driven->GetTMController()->SetScaleController(c));
    ASSERT_EQ(c->Connect(driver->GetTMController(), 2), ConnectResult::kConnected);
    EXPECT_EQ(c->Connect(driver->GetTMController(), 1), ConnectResult::kWrongKind);
    driver->SetNodeTM(0, ScaleMatrix(Point3(2, 3, 4)));
    SetParam(c, kVecConnUseWeight, 1);
    SetParam(c, kVecConnWeightX, 0.5f);
    EXPECT_POINT3_NEAR(GetScaleLengths(driven->GetNodeTM(0)), Point3(1, 3, 4), 1e-4f);
  }
}

TEST_F(ConnectionTest, ClonesRepointToTheClonedTarget) {
  // A holder of a position track and a connection reading it, cloned as one.
  auto* holder = Keep(new TestTarget(2));
  Control* track = NewDefaultPositionController();
  holder->ReplaceReference(0, track);
  auto* c = new FloatConnection;
  holder->ReplaceReference(1, c);
  ASSERT_EQ(c->Connect(track, 1), ConnectResult::kConnected);
  SetParam(c, kConnTransform, 1);
  auto* copy = Keep(static_cast<TestTarget*>(CloneRefHierarchy(holder)));
  auto* c2 = static_cast<FloatConnection*>(copy->GetReference(1));
  ASSERT_NE(c2, c);
  EXPECT_EQ(c2->GetTargetAnim(), copy->GetReference(0));
  EXPECT_EQ(c2->GetParamBlock(0)->GetInt(kConnTransform), 1);
  EXPECT_NE(c2->GetParamBlock(0), c->GetParamBlock(0));
  // The connection alone keeps the original target.
  auto* alone = Keep(static_cast<FloatConnection*>(CloneRefHierarchy(c)));
  EXPECT_EQ(alone->GetTargetAnim(), track);
}

TEST_F(ConnectionTest, SceneSavesLoadsAndResavesTheSameBytes) {
  FloatConnection* f = Wire();
  SetParam(f, kConnTransform, 2);
  SetParam(f, kConnClamp, 1);
  SetParam(f, kConnUseTimeOffset, 1);
  SetParam(f, kConnTimeOffset, -0.25f);
  auto* curved = new FloatConnection;
  ASSERT_TRUE(Pos(driven)->AssignController(curved, 1));
  ASSERT_EQ(curved->Connect(Pos(driver), 2), ConnectResult::kConnected);
  SetParam(curved, kConnTransform, 3);
  ASSERT_NE(curved->GetCurveControl(true), nullptr);
  auto* rot = new RotationConnection;
  ASSERT_TRUE(driven->GetTMController()->SetRotationController(rot));
  ASSERT_EQ(rot->Connect(driver->GetTMController(), 1), ConnectResult::kConnected);
  auto* orphan = new ScaleConnection;  // its constant is all it has
  orphan->SetConstantValue(ScaleValue(Point3(1, 2, 3)));
  ASSERT_TRUE(driven->GetTMController()->SetScaleController(orphan));
  orphan->SetLocked(true);
  AnimateOn();
  for (TimeValue t : {0, 2400, 4800}) {
    driver->SetNodeTM(t,
                      RotateXMatrix(t / 4800.0f) * TransMatrix(Point3(t / 40.0f, 60, -t / 96.0f)));
  }
  AnimateOff();
  theHold.Clear();
  const std::vector<TimeValue> times = {0, 1200, 2400, 4800, 6000};
  std::vector<Matrix3> before;
  for (TimeValue t : times) before.push_back(driven->GetNodeTM(t));
  std::string error;
  Bytes first;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ip->Reset();
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
  INode* loaded = ip->GetINodeByName("driven");
  ASSERT_NE(loaded, nullptr);
  for (size_t i = 0; i < times.size(); ++i) {
    EXPECT_MATRIX3_NEAR(loaded->GetNodeTM(times[i]), before[i], 1e-5f) << times[i];
  }
  auto* scale = dynamic_cast<ScaleConnection*>(loaded->GetTMController()->GetScaleController());
  ASSERT_NE(scale, nullptr);
  EXPECT_TRUE(scale->GetLocked());
  Bytes second;
  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(first, second);
}

TEST_F(ConnectionTest, ChunksAreLockedThenConstant) {
  auto* c = Keep(new FloatConnection);
  c->SetConstantValue(2.5f);
  c->SetLocked(true);
  const Bytes expected = ContainerChunk(1, {DataChunk(0, {1}), DataChunk(1, RawBytes(2.5f))});
  EXPECT_EQ(SaveBytes(c), expected);
  auto* back = Keep(new FloatConnection(true));
  EXPECT_EQ(LoadBytes(back, expected), IO_OK);
  EXPECT_FLOAT_EQ(back->GetConstantValue(), 2.5f);
  EXPECT_TRUE(back->GetLocked());
  EXPECT_EQ(LoadBytes(back, ContainerChunk(1, {DataChunk(1, {1, 2})})), IO_ERROR);
}

// What a user would write: two nodes wired in Range mode with clamp, read at several times.
TEST_F(ConnectionTest, ScriptWiresARangeWithClamp) {
  ScriptRunner runner;
  const ScriptResult r = runner.Run(R"(
    a = Point name:"a"
    b = Point name:"b"
    c = FloatConnection()
    b.pos.controller.X_Position.controller = c
    c.transform = 2
    c.clamp = true
    c.input_max = 50
    c.SetTarget a.pos.controller.X_Position.controller
    with animate on (
      at time 0 a.pos.x = -20
      at time 30 a.pos.x = 80
    )
    for t in #(0, 10, 15, 20, 30) collect #(at time t a.pos.x, at time t b.pos.x)
  )");
  ASSERT_TRUE(r.ok) << r.ErrorText();
  ASSERT_EQ(r.value.Count(), 5);
  for (const ScriptValue& pair : r.value.Items()) {
    const float a = pair.Items()[0].AsFloat();
    SCOPED_TRACE(a);
    EXPECT_NEAR(pair.Items()[1].AsFloat(), std::clamp(a, 0.0f, 50.0f) * 2.0f, 1e-3f);
  }
  EXPECT_FLOAT_EQ(r.value.Items()[0].Items()[1].AsFloat(), 0.0f);
  EXPECT_FLOAT_EQ(r.value.Items()[4].Items()[1].AsFloat(), 100.0f);
  const ScriptResult loop = runner.Run(R"(
    d = FloatConnection()
    a.pos.controller.Y_Position.controller = d
    d.SetTarget b.pos.controller.Y_Position.controller
  )");
  EXPECT_FALSE(loop.ok);
  EXPECT_NE(loop.ErrorText().find("AddTarget - setting reference would create circular "
                                  "dependency: Controller:Bezier_Float"),
            std::string::npos)
      << loop.ErrorText();
}

}  // namespace
}  // namespace marvolith::test
