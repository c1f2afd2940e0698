// Copyright Marvolith contributors.
// The module's Track View filters, installed at start-up into the host's registry, run against
// stand-ins of the layer classes: anything that answers AnimationLayers' class id or the layer
// interface is a layer stack to them.
#include <memory>

#include "host/core/base_interface.h"
#include "host/core/reference.h"
#include "host/params/iparam_block2.h"
#include "tests/module/module_test_support.h"

namespace marvolith::test {
namespace {

constexpr Class_ID kLayersClassID(0x45596d56, 0x1e847b69);
constexpr Interface_ID kLayersInterfaceID(0x45596d56, 0x1e847b69);
constexpr Class_ID kRotationXYZClassID(0x45596d56, 0x1e847b74);
enum : ParamID { kTypes = 1, kActiveLayer = 3, kDisplayAll = 4 };

class StandInLayersDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool) override { return nullptr; }
  const char* ClassName() override { return "Stand-in Layers"; }
  SClass_ID SuperClassID() override { return REF_TARGET_CLASS_ID; }
  Class_ID ClassID() override { return kLayersClassID; }
  const char* Category() override { return ""; }
};
StandInLayersDesc g_layers_desc;
ParamBlockDesc2 g_layers_params(
    0,
    "params",
    0,
    &g_layers_desc,
    P_AUTO_CONSTRUCT,
    0,
    {
        ParamDef(kTypes, "types", TYPE_INT_TAB, 0).TabSize(0),
        ParamDef(kActiveLayer, "active_layer", TYPE_INDEX, 0),
        ParamDef(kDisplayAll, "display_all_layers_keys_tracks", TYPE_BOOL, 0),
    });

// A layer stack: the block of AnimationLayers under its class id, with a chosen super class.
class StandInLayers : public ReferenceTarget {
 public:
  explicit StandInLayers(SClass_ID sclass = REF_TARGET_CLASS_ID) : sclass_(sclass) {
    g_layers_desc.MakeAutoParamBlocks(this);
  }
  Class_ID ClassID() override { return kLayersClassID; }
  SClass_ID SuperClassID() override { return sclass_; }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock_ : nullptr; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  IParamBlock2* GetParamBlockByID(BlockID id) override { return id == 0 ? pblock_ : nullptr; }

  void SetLayers(int count, int active, bool display_all) {
    pblock_->SetCount(kTypes, count);
    pblock_->SetValue(kActiveLayer, 0, active);
    pblock_->SetValue(kDisplayAll, 0, display_all);
  }

 protected:
  void SetReference(int i, RefTargetHandle t) override {
    if (i == 0) pblock_ = static_cast<IParamBlock2*>(t);
  }

 private:
  SClass_ID sclass_;
  IParamBlock2* pblock_ = nullptr;
};

class LayerInterface : public BaseInterface {
 public:
  Interface_ID GetID() override { return kLayersInterfaceID; }
};

// A layered controller: answers the layer interface and holds its stack in reference 0.
class StandInLayeredControl : public ReferenceTarget {
 public:
  explicit StandInLayeredControl(ReferenceTarget* layers) { ReplaceReference(0, layers); }
  SClass_ID SuperClassID() override { return CTRL_FLOAT_CLASS_ID; }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? layers_ : nullptr; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  BaseInterface* GetInterface(Interface_ID id) override {
    return id == kLayersInterfaceID ? &interface_ : nullptr;
  }
  using ReferenceTarget::GetInterface;

 protected:
  void SetReference(int i, RefTargetHandle t) override {
    if (i == 0) layers_ = t;
  }

 private:
  ReferenceTarget* layers_ = nullptr;
  LayerInterface interface_;
};

// Any other track, with a chosen class.
class Track : public ReferenceTarget {
 public:
  Track(SClass_ID sclass, Class_ID cid) : sclass_(sclass), cid_(cid) {}
  Class_ID ClassID() override { return cid_; }
  SClass_ID SuperClassID() override { return sclass_; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }

 private:
  SClass_ID sclass_;
  Class_ID cid_;
};

class TrackViewFilterTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    registry_ = GetTrackViewFilterRegistry();
    ASSERT_NE(registry_, nullptr);
  }
  // Which of sub-anims 0..4 of parent are shown.
  std::string Shown(Animatable* parent) {
    std::string out;
    for (int i = 0; i < 5; ++i) out += registry_->ShowTrack(&track_, parent, i) ? '1' : '0';
    return out;
  }
  ITrackViewFilterRegistry* registry_ = nullptr;
  Track track_{CTRL_FLOAT_CLASS_ID, Class_ID(0x7e57, 1)};
};

TEST_F(TrackViewFilterTest, StartupInstallsBothFiltersOnce) {
  EXPECT_EQ(registry_->FindFilter(kLayersFilterId), nullptr) << "not before start-up";
  NotifySystemStartup();
  const TrackViewFilter* layers = registry_->FindFilter(kLayersFilterId);
  const TrackViewFilter* rotation = registry_->FindFilter(kRotationXYZFilterId);
  ASSERT_NE(layers, nullptr);
  ASSERT_NE(rotation, nullptr);
  EXPECT_EQ(layers->name, "Animation Layers Active Filter");
  EXPECT_TRUE(layers->enabled);
  EXPECT_TRUE(layers->listed);
  EXPECT_EQ(rotation->name, "");
  EXPECT_TRUE(rotation->enabled);
  EXPECT_FALSE(rotation->listed);
  const int count = registry_->NumFilters();
  BroadcastNotification(NOTIFY_SYSTEM_STARTUP);
  EXPECT_EQ(registry_->NumFilters(), count) << "a second start-up adds no second filter";
}

TEST_F(TrackViewFilterTest, RotationXYZFilterHidesOnlyRotationXYZByClassId) {
  NotifySystemStartup();
  Track rotation_xyz(CTRL_ROTATION_CLASS_ID, kRotationXYZClassID);
  Track same_id_elsewhere(REF_TARGET_CLASS_ID, kRotationXYZClassID);
  Track euler(CTRL_ROTATION_CLASS_ID, Class_ID(0x2012, 0));
  Track neighbour(CTRL_ROTATION_CLASS_ID, Class_ID(0x45596d56, 0x1e847b73));
  EXPECT_FALSE(registry_->ShowTrack(&rotation_xyz, nullptr, -1));
  EXPECT_FALSE(registry_->ShowTrack(&rotation_xyz, &track_, 2));
  EXPECT_FALSE(registry_->ShowTrack(&same_id_elsewhere, nullptr, -1)) << "the class id decides";
  EXPECT_TRUE(registry_->ShowTrack(&euler, nullptr, -1));
  EXPECT_TRUE(registry_->ShowTrack(&neighbour, &track_, 0));
  EXPECT_TRUE(registry_->ShowTrack(nullptr, nullptr, -1));
  registry_->SetFilterEnabled(kRotationXYZFilterId, false);
  EXPECT_TRUE(registry_->ShowTrack(&rotation_xyz, nullptr, -1)) << "a disabled filter is skipped";
}

TEST_F(TrackViewFilterTest, LayerFilterShowsEverythingWithoutALayerStack) {
  NotifySystemStartup();
  EXPECT_EQ(Shown(nullptr), "11111");
  EXPECT_EQ(Shown(&track_), "11111");
  // The class id of AnimationLayers under another super class is not a layer stack.
  auto* impostor = new StandInLayers(CTRL_FLOAT_CLASS_ID);
  impostor->SetLayers(3, 1, false);
  EXPECT_EQ(Shown(impostor), "11111");
  // Nor is a controller that answers the layer interface without a stack in reference 0.
  auto* orphan = new StandInLayeredControl(impostor);
  EXPECT_EQ(Shown(orphan), "11111");
  orphan->MaybeAutoDelete();
}

TEST_F(TrackViewFilterTest, LayerFilterShowsOnlyTheActiveLayerUnlessAllAreDisplayed) {
  NotifySystemStartup();
  auto* layers = new StandInLayers;
  auto* control = new StandInLayeredControl(layers);
  struct Case {
    int count, active;
    bool display_all;
    const char* shown;  // sub-anims 0..4 of the stack and of the layered controller
  };
  const Case cases[] = {
      {3, 1, false, "01011"},  // beyond the layer count everything is shown
      {3, 0, false, "10011"},  {3, 1, true, "11111"},
      {3, 7, false, "00111"},   // an active layer beyond the last reads as the last
      {3, -4, false, "10011"},  // a negative one as the base layer
      {1, 0, false, "11111"},  {0, 0, false, "11111"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.count << " layers, active " << c.active
                                    << (c.display_all ? ", all displayed" : ""));
    layers->SetLayers(c.count, c.active, c.display_all);
    EXPECT_EQ(Shown(layers), c.shown);
    EXPECT_EQ(Shown(control), c.shown);
  }
  EXPECT_TRUE(registry_->ShowTrack(&track_, layers, -1));
  registry_->SetFilterEnabled(kLayersFilterId, false);
  layers->SetLayers(3, 1, false);
  EXPECT_EQ(Shown(control), "11111");
  control->MaybeAutoDelete();
}

}  // namespace
}  // namespace marvolith::test
