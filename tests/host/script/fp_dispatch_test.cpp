// Copyright Marvolith contributors.
#include "host/script/fp_dispatch.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <numbers>
#include <vector>

#include "host/base/exceptions.h"
#include "host/script/script_errors.h"
#include "host/script/value_printer.h"
#include "tests/host/script/script_test_objects.h"
#include "tests/support/alloc_counter.h"

namespace marvolith::test {
namespace {

using Args = std::vector<FPValue>;
using Keys = std::vector<FPKeyArg>;

class FPDispatchTest : public ::testing::Test {
 protected:
  void TearDown() override { rig_->DeleteMe(); }

  // The rig's published interface, reached as a script reaches it.
  FPInterface* Rig() { return GetFPInterface(rig_, kTestRigID); }
  FPValue Call(std::string_view name, Args args = {}, Keys keys = {}) {
    FPResult r = CallFunction(Rig(), name, args, keys);
    EXPECT_EQ(r.status, FPS_OK) << name;
    return r.value;
  }
  template <typename Fn>
  std::string ErrorText(Fn&& fn) {
    try {
      fn();
    } catch (const std::exception& e) {
      return e.what();
    }
    return "(no error)";
  }

  TestRig* rig_ = new TestRig;
};

TEST_F(FPDispatchTest, MixinIsReachedThroughAnimatableAndClassDesc) {
  Animatable* anim = rig_;
  BaseInterface* bi = anim->GetInterface(kTestRigID);
  ASSERT_NE(bi, nullptr);
  EXPECT_EQ(bi, static_cast<BaseInterface*>(static_cast<ITestRig*>(rig_)));
  EXPECT_EQ(Rig()->GetID(), kTestRigID);
  EXPECT_EQ(GetFPInterface(rig_, Interface_ID(1, 2)), nullptr);
  EXPECT_EQ(GetFPInterface(nullptr, kTestRigID), nullptr);

  // The class's table is registered on its descriptor, by id and by name.
  ClassDesc2& cd = TheTestRigClassDesc();
  EXPECT_EQ(cd.GetInterface(kTestRigID), Rig()->GetDesc());
  EXPECT_EQ(cd.GetInterface("INTERFACE"), Rig()->GetDesc());
  EXPECT_EQ(cd.GetInterface("other"), nullptr);
  EXPECT_EQ(cd.GetInterface(Interface_ID(1, 2)), nullptr);
}

TEST_F(FPDispatchTest, KeywordsDefaultsAndOneBasedIndices) {
  {
    SCOPED_TRACE("keyword arguments take their defaults: name \"\", index -1 appends");
    EXPECT_EQ(Call("AddLayer"), FPValue(1)) << "first layer at script index 1";
    EXPECT_EQ(rig_->layers, std::vector<std::string>{""});
  }
  {
    SCOPED_TRACE("keywords by name, without case; index 1 in script is C++ 0");
    EXPECT_EQ(Call("addlayer", {}, {{"NAME", FPValue("top")}, {"Index", FPValue(1)}}), FPValue(1));
    EXPECT_EQ(Call("AddLayer", {}, {{"name", FPValue("end")}}), FPValue(3));
    EXPECT_EQ(rig_->layers, (std::vector<std::string>{"top", "", "end"}));
  }
  {
    SCOPED_TRACE("index arguments and results");
    EXPECT_EQ(Call("GetLayerName", {FPValue(1)}), FPValue("top"));
    EXPECT_EQ(Call("GetLayerName", {FPValue(3.9f)}), FPValue("end")) << "floats truncate";
    EXPECT_EQ(Call("FindLayer", {FPValue("end")}), FPValue(3));
    EXPECT_EQ(Call("FindLayer", {FPValue("none")}), FPValue(0)) << "C++ -1 is script 0";
    EXPECT_EQ(Call("layer_count"), FPValue(3)) << "a property read by call";
  }
  {
    SCOPED_TRACE("a keyword naming no argument is ignored");
    EXPECT_EQ(Call("GetLayerName", {FPValue(2)}, {{"bogus", FPValue(7)}}), FPValue(""));
  }
  {
    SCOPED_TRACE("optional positional argument, by position or by keyword");
    EXPECT_EQ(Call("Scale", {FPValue(10)}), FPValue(10.0f)) << "by defaults to 100 percent";
    EXPECT_EQ(Call("Scale", {FPValue(10), FPValue(50)}), FPValue(5.0f));
    EXPECT_EQ(Call("Scale", {FPValue(10)}, {{"by", FPValue(25.0f)}}), FPValue(2.5f));
  }
  {
    SCOPED_TRACE("angles are degrees in script and radians in C++");
    FPValue r = Call("Turn", {FPValue(90)});
    EXPECT_NEAR(rig_->last_radians, std::numbers::pi / 2, 1e-6);
    EXPECT_EQ(r.Type(), FPType::TYPE_FLOAT);
    EXPECT_NEAR(r.AsFloat(), 180.0f, 1e-4f);
  }
  {
    SCOPED_TRACE("void result is OK");
    FPValue r = Call("SetFlag", {FPValue(true)});
    EXPECT_TRUE(r.IsVoid());
    EXPECT_TRUE(rig_->flag);
  }
}

TEST_F(FPDispatchTest, PropertiesReadWriteEnumsAndReadOnly) {
  EXPECT_EQ(SetProperty(Rig(), "Offset_Pos", FPValue(Point3(1, 2, 3))).status, FPS_OK);
  EXPECT_EQ(rig_->offset, Point3(1, 2, 3));
  EXPECT_EQ(GetProperty(Rig(), "offset_pos").value, FPValue(Point3(1, 2, 3)));

  // An enumeration property takes a name (any case) or a bare integer and reads back a name
  // when the value has one.
  SetProperty(Rig(), "point_type", FPValue::Name("smooth"));
  EXPECT_EQ(rig_->point_type, 3);
  EXPECT_EQ(GetProperty(Rig(), "point_type").value, FPValue::Name("Smooth"));
  SetProperty(Rig(), "point_type", FPValue(7));
  EXPECT_EQ(rig_->point_type, 7) << "values outside the enumeration pass through";
  EXPECT_EQ(GetProperty(Rig(), "point_type").value, FPValue(7));

  // Index properties convert both ways.
  SetProperty(Rig(), "active_layer", FPValue(2));
  EXPECT_EQ(rig_->active, 1);
  EXPECT_EQ(GetProperty(Rig(), "active_layer").value, FPValue(2));

  // By call: one argument sets, none reads.
  CallFunction(Rig(), "active_layer", Args{FPValue(5)});
  EXPECT_EQ(rig_->active, 4);

  EXPECT_EQ(ErrorText([&] { SetProperty(Rig(), "layer_count", FPValue(3)); }),
            "Cannot set read-only property: layer_count");
  EXPECT_EQ(GetProperty(Rig(), "no_such").status, FPS_NO_SUCH_FUNCTION);
  EXPECT_EQ(SetProperty(Rig(), "no_such", FPValue(1)).status, FPS_NO_SUCH_FUNCTION);
}

TEST_F(FPDispatchTest, ByIdMatchesByName) {
  rig_->layers = {"a", "b"};
  FPResult by_id = CallFunction(Rig(), FunctionID(kGetLayerName), Args{FPValue(2)});
  EXPECT_EQ(by_id.status, FPS_OK);
  EXPECT_EQ(by_id.value, FPValue("b"));

  EXPECT_EQ(CallFunction(Rig(), FunctionID(kSetActiveLayer), Args{FPValue(2)}).status, FPS_OK);
  EXPECT_EQ(rig_->active, 1);
  EXPECT_EQ(CallFunction(Rig(), FunctionID(kGetActiveLayer), Args{}).value, FPValue(2));
  EXPECT_EQ(ErrorText([&] { CallFunction(Rig(), FunctionID(kGetActiveLayer), Args{FPValue(1)}); }),
            "Argument count error: active_layer wanted 0, got 1");
}

TEST_F(FPDispatchTest, UnknownMemberAnswersTheFailureValue) {
  for (FunctionID id : {FunctionID(16), FunctionID(-1), FunctionID(999)}) {
    SCOPED_TRACE(id);
    FPResult r = CallFunction(Rig(), id, Args{FPValue(1)});
    EXPECT_EQ(r.status, FPS_NO_SUCH_FUNCTION);
    EXPECT_TRUE(r.value.IsUndefined());

    FPValue result(42);
    EXPECT_EQ(Rig()->Invoke(id, result), FPS_NO_SUCH_FUNCTION);
    EXPECT_TRUE(result.IsUndefined());
  }
  FPResult r = CallFunction(Rig(), "NoSuchFunction", Args{});
  EXPECT_EQ(r.status, FPS_NO_SUCH_FUNCTION);
  EXPECT_TRUE(r.value.IsUndefined());
  EXPECT_EQ(CallFunction(nullptr, "GetLayerCount", Args{}).status, FPS_FAIL);
}

TEST_F(FPDispatchTest, ErrorTextsAreExact) {
  SceneCleaner cleaner;
  auto* a = MakeNode("A");
  auto* b = MakeNode("B");
  struct Case {
    const char* what;
    std::function<void()> call;
    std::string text;
  };
  const std::vector<Case> cases = {
      {"missing argument", [&] { Call("GetLayerName"); },
       MaxSDK::Util::ArrayOutOfRangeException::kText},
      {"setter id without its value",
       [&] { CallFunction(Rig(), FunctionID(kSetOffsetPos), Args{}); },
       MaxSDK::Util::ArrayOutOfRangeException::kText},
      {"too many positional",
       [&] {
         Call("Scale", {FPValue(1), FPValue(2), FPValue(3)});
       },
       "Argument count error: Scale wanted 2, got 3"},
      {"keyword arguments are not positional", [&] { Call("AddLayer", {FPValue("x")}); },
       "Argument count error: AddLayer wanted 0, got 1"},
      {"string for an index", [&] { Call("GetLayerName", {FPValue("x")}); },
       "Unable to convert: \"x\" to type: Integer"},
      {"undefined for an index", [&] { Call("GetLayerName", {FPValue()}); },
       "Unable to convert: undefined to type: Integer"},
      {"integer for a bool", [&] { Call("SetFlag", {FPValue(1)}); },
       "Unable to convert: 1 to type: Boolean"},
      {"unknown enum name", [&] { SetProperty(Rig(), "point_type", FPValue::Name("Nope")); },
       "Unable to convert: #Nope to type: Enum"},
      {"bad table element",
       [&] {
         Call("PickNode",
              {FPValue::Table(FPType::TYPE_VALUE_TAB, {FPValue(a), FPValue(1)}), FPValue(1)});
       },
       "Unable to convert: 1 to type: Node"},
      {"not a table",
       [&] {
         Call("PickNode", {FPValue(a), FPValue(1)});
       },
       "Unable to convert: $A to type: Array"},
      {"member's own runtime error", [&] { Call("CheckNode", {FPValue(Point3(1, 2, 3))}); },
       "Expected a Node for the first argument, in function CheckNode [1,2,3]"},
      {"member's Tab access out of range",
       [&] {
         Call("PickNode", {FPValue(Tab<INode*>{a, b}), FPValue(3)});
       },
       MaxSDK::Util::TabOutOfRangeException::kText},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(ErrorText(c.call), c.text);
  }
  // The exceptions keep their host classes.
  EXPECT_THROW(Call("GetLayerName"), MaxSDK::Util::ArrayOutOfRangeException);
  EXPECT_THROW(Call("Scale", {FPValue(1), FPValue(2), FPValue(3)}), ArgCountError);
  EXPECT_THROW(Call("SetFlag", {FPValue(1)}), ConversionError);
  EXPECT_THROW(Call("CheckNode", {FPValue(1)}), RuntimeError);
  EXPECT_THROW(Call("PickNode", {FPValue(Tab<INode*>{a}), FPValue(0)}),
               MaxSDK::Util::TabOutOfRangeException);
  // A conversion failure stops the call before the member runs.
  EXPECT_FALSE(rig_->flag);

  EXPECT_EQ(Call("PickNode", {FPValue(Tab<INode*>{a, b}), FPValue(2)}), FPValue(b));
  EXPECT_EQ(Call("CheckNode", {FPValue(static_cast<ReferenceTarget*>(a))}), FPValue(true));
}

TEST_F(FPDispatchTest, InvokeTakesCppFormAndRaisesForMissingArguments) {
  rig_->layers = {"a", "b"};
  FPValue result;
  FPParams p{FPValue("c"), FPValue(0)};
  ASSERT_EQ(Rig()->Invoke(kAddLayer, &p, result), FPS_OK);
  EXPECT_EQ(result, FPValue::Index(0)) << "C++ indices stay 0-based, typed by the table";
  EXPECT_EQ(rig_->layers.front(), "c");

  // A setter (or any member) called with too few arguments raises the host's array error and
  // does not run.
  for (FunctionID id : {FunctionID(kSetOffsetPos), FunctionID(kGetLayerName)}) {
    SCOPED_TRACE(id);
    FPParams none;
    try {
      Rig()->Invoke(id, &none, result);
      ADD_FAILURE() << "no exception";
    } catch (const MaxSDK::Util::OutOfRangeException& e) {
      EXPECT_STREQ(e.what(), MaxSDK::Util::ArrayOutOfRangeException::kText);
    }
    EXPECT_THROW(Rig()->Invoke(id, result), MaxSDK::Util::ArrayOutOfRangeException);
  }
}

TEST_F(FPDispatchTest, InvokeWithScalarsDoesNotAllocate) {
  FPValue result;
  FPParams p{FPValue(4.0f), FPValue::PcntFrac(0.5f)};
  // The first round builds the test object and the interface's lookup tables; the rest must not
  // allocate.
  std::size_t first_round = 0;
  AllocationScope scope;
  for (int i = 0; i < 10; ++i) {
    if (i == 1) first_round = scope.Count();
    ASSERT_EQ(Rig()->Invoke(kScale, &p, result), FPS_OK);
    FPParams q{FPValue::Index(1)};
    ASSERT_EQ(Rig()->Invoke(kSetActiveLayer, &q, result), FPS_OK);
    ASSERT_EQ(Rig()->Invoke(kGetActiveLayer, result), FPS_OK);
  }
  EXPECT_EQ(scope.Count(), first_round);
  EXPECT_EQ(result, FPValue::Index(1));
}

// The Marvolith global's pattern: a core static interface of property pairs and functions with
// a gap in its ids.
class TestGlobal : public FPStaticInterface {
 public:
  static constexpr Interface_ID kID{0x7e57, 0x610b};
  TestGlobal()
      : FPStaticInterface(kID,
                          "MarvolithTest",
                          FP_CORE,
                          nullptr,
                          {{4, "About", FPType::TYPE_VOID},
                           {7, "Twice", FPType::TYPE_INT, {FPArg("n", FPType::TYPE_INT)}}},
                          {FPPropertyDef(0, 1, "transforming", FPType::TYPE_BOOL),
                           FPPropertyDef(2, 3, "current", FPType::TYPE_REFTARG)}) {}

  bool transforming = false;
  int about_calls = 0;

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override {
    switch (fid) {
      case 0:
        result = FPValue(transforming);
        return FPS_OK;
      case 1:
        transforming = p[0].AsBool();
        return FPS_OK;
      case 2:
        result = FPValue();  // undefined becomes a null target
        return FPS_OK;
      case 3:
        (void)p[0];  // checks that an argument is there, stores nothing
        return FPS_OK;
      case 4:
        ++about_calls;
        return FPS_OK;
      case 7:
        result = FPValue(2 * p[0].AsInt());
        return FPS_OK;
      default:
        return FPS_NO_SUCH_FUNCTION;
    }
  }
};

TEST(FPCoreInterfaceTest, RegistryByIdAndNameFollowsLifetime) {
  const int before = NumCOREInterfaces();
  {
    TestGlobal global;
    ASSERT_EQ(NumCOREInterfaces(), before + 1);
    EXPECT_EQ(GetCOREInterface(TestGlobal::kID), &global);
    EXPECT_EQ(GetCOREInterface("marvolithTEST"), &global);
    EXPECT_EQ(GetCOREInterfaceAt(before), &global);
    EXPECT_EQ(GetCOREInterfaceAt(before + 1), nullptr);
    EXPECT_EQ(GetCOREInterface("NotThere"), nullptr);
    EXPECT_EQ(GetCOREInterface(static_cast<const char*>(nullptr)), nullptr);

    TestGlobal duplicate;  // same id: refused, the first stays
    EXPECT_EQ(NumCOREInterfaces(), before + 1);
    EXPECT_EQ(GetCOREInterface(TestGlobal::kID), &global);
    EXPECT_FALSE(RegisterCOREInterface(&global));

    FPInterface* fpi = GetCOREInterface("MarvolithTest");
    EXPECT_EQ(CallFunction(fpi, "transforming", Args{FPValue(true)}).status, FPS_OK);
    EXPECT_TRUE(global.transforming);
    EXPECT_EQ(GetProperty(fpi, "transforming").value, FPValue(true));
    EXPECT_EQ(CallFunction(fpi, "Twice", Args{FPValue(21)}).value, FPValue(42));
    EXPECT_TRUE(GetProperty(fpi, "current").value.IsUndefined());
    EXPECT_TRUE(CallFunction(fpi, "About", Args{}).value.IsVoid());
    EXPECT_EQ(global.about_calls, 1);
    EXPECT_EQ(ToScriptString(FPValue(fpi)), "<Interface:MarvolithTest>");

    // Ids in the gap and past the end answer the failure value; a setter without its argument
    // raises the host's array error.
    for (FunctionID id : {5, 6, 8, 16}) {
      FPValue result(1);
      EXPECT_EQ(fpi->Invoke(id, result), FPS_NO_SUCH_FUNCTION) << id;
      EXPECT_TRUE(result.IsUndefined());
    }
    FPValue result;
    EXPECT_THROW(fpi->Invoke(3, result), MaxSDK::Util::ArrayOutOfRangeException);
  }
  EXPECT_EQ(NumCOREInterfaces(), before);
  EXPECT_EQ(GetCOREInterface(TestGlobal::kID), nullptr);
}

// Any script index set through an index property reads back the same, whatever C++ makes of it.
RC_GTEST_PROP(FPDispatchProperty, ScriptIndexRoundTripsThroughTheDispatcher, (int script_index)) {
  RC_PRE(script_index != INT_MIN);
  auto* rig = new TestRig;
  FPInterface* fpi = GetFPInterface(rig, kTestRigID);
  SetProperty(fpi, "active_layer", FPValue(script_index));
  const int stored = rig->active;
  const FPValue back = GetProperty(fpi, "active_layer").value;
  rig->DeleteMe();
  RC_ASSERT(stored == script_index - 1);
  RC_ASSERT(back == FPValue(script_index));
}

}  // namespace
}  // namespace marvolith::test
