// Copyright Marvolith contributors.
// Marvolith.dlc loaded through its exports: the values they answer, the classes the host
// registers, the classes still pending, start-up and shut-down order, and the loader's refusals.
#include <dlfcn.h>

#include <climits>
#include <set>
#include <string>

#include "host/core/reference.h"
#include "host/registry/class_desc.h"
#include "host/script/script_primitives.h"
#include "tests/module/module_test_support.h"

namespace marvolith::test {
namespace {

// Classes whose descriptor answers null from Create until their folder lands, by internal name
// ("Rig" stands for both Rig and RigSystem). When a class lands, take it off this list: the list
// can only shrink.
const std::set<std::string> kPendingClasses = {
    "StepFloat",
    "MsgChecker",
    "UIPanel",
    "UIGroup",
    "UIImage",
    "UIPicker",
    "UIVisibility",
    "UIToggle",
    "UIAction",
    "UISlider",
    "UI2DSlider",
    "UISpinner",
    "UI2DSpinner",
    "UIPanelHolder",
    "PoseKit",
    "PoseKitHolder",
    "LimbAttrib",
    "CurveAttrib",
    "HeadAttrib",
    "FootAttrib",
    "LinkAttrib",
    "MirrorMorph",
    "CorrectiveMorph",
    "Dynamics",
    "RootAttrib",
    "UILabel",
    "MarvolithFBXExporter",
    "MarvolithFBXImporter",
};

bool IsPending(ClassDesc2* cd) { return kPendingClasses.count(cd->InternalName()) > 0; }

void Free(Animatable* anim) {
  if (auto* target = dynamic_cast<ReferenceTarget*>(anim)) {
    target->MaybeAutoDelete();
  } else if (anim) {
    anim->DeleteThis();
  }
}

std::string HostLibraryPath() {
  Dl_info info{};
  return dladdr(reinterpret_cast<void*>(&LoadPlugin), &info) && info.dli_fname ? info.dli_fname
                                                                               : "";
}

TEST_F(ModuleTest, ExportsAnswerTheDocumentedValues) {
  ASSERT_NE(ex_.LibDescription(), nullptr) << "the attach routine set the module instance";
  EXPECT_STREQ(ex_.LibDescription(), "Marvolith Animation");
  EXPECT_EQ(ex_.LibNumberClasses(), 70);
  EXPECT_EQ(ex_.LibVersion(), 0x65904000u);
  EXPECT_EQ(ex_.CanAutoDefer(), 0u);

  ClassDesc2* importer = ex_.LibClassDesc(69);
  ASSERT_NE(importer, nullptr);
  EXPECT_STREQ(importer->InternalName(), "MarvolithFBXImporter");
  EXPECT_EQ(importer->ClassID(), Class_ID(0x5d9b730a, 0x37c248f1));
  EXPECT_EQ(importer->SuperClassID(), SCENE_IMPORT_CLASS_ID);
  EXPECT_EQ(ex_.LibClassDesc(70), nullptr);
  EXPECT_EQ(ex_.LibClassDesc(UINT_MAX), nullptr);

  ClassDesc2* first = ex_.LibClassDesc(0);
  ASSERT_NE(first, nullptr);
  EXPECT_STREQ(first->ClassName(), "Static Float");
  EXPECT_NE(first->HInstance(), nullptr);
  EXPECT_STREQ(ex_.LibClassDesc(22)->ClassName(), "Vertical Offset");
  EXPECT_STREQ(ex_.LibClassDesc(67)->InternalName(), "Rotation XYZ");
}

TEST_F(ModuleTest, HostRegistersEveryClassInTableOrder) {
  ASSERT_EQ(plugin_->classes.size(), 70u);
  for (int i = 0; i < 70; ++i) {
    ClassDesc2* cd = plugin_->classes[static_cast<size_t>(i)];
    SCOPED_TRACE(cd->InternalName());
    EXPECT_EQ(cd, ex_.LibClassDesc(static_cast<unsigned>(i)));
    EXPECT_EQ(cd->HInstance(), plugin_->classes[0]->HInstance());
    EXPECT_EQ(ClassDirectory::Get().FindClass(cd->SuperClassID(), cd->ClassID()), cd)
        << "registered under its own (super class, Class_ID)";
  }
}

TEST_F(ModuleTest, ClassesSharingAClassIdAreSeparateClasses) {
  struct Shared {
    Class_ID id;
    SClass_ID first_super;
    const char* first;
    SClass_ID second_super;
    const char* second;
  };
  const Shared shared[] = {
      {Class_ID(0x45596d56, 0x1e847b60), CTRL_MATRIX3_CLASS_ID, "IKFKChain", CTRL_ROTATION_CLASS_ID,
       "RotationConnection"},
      {Class_ID(0x45596d56, 0x1e847b68), CTRL_ROTATION_CLASS_ID, "DummyRotation",
       REF_TARGET_CLASS_ID, "AnimLayersLocalWeights"},
      {Class_ID(0x45596d56, 0x1e847f0a), REF_TARGET_CLASS_ID, "UI2DSpinner", CTRL_FLOAT_CLASS_ID,
       "PoseKitHolder"},
  };
  ClassDirectory& directory = ClassDirectory::Get();
  for (const Shared& s : shared) {
    SCOPED_TRACE(s.first);
    ClassDesc2* a = directory.FindClass(s.first_super, s.id);
    ClassDesc2* b = directory.FindClass(s.second_super, s.id);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_NE(a, b);
    EXPECT_STREQ(a->InternalName(), s.first);
    EXPECT_STREQ(b->InternalName(), s.second);
  }
  // Rig and RigSystem share their names and are told apart by super class and Class_ID.
  ClassDesc2* rig = ex_.LibClassDesc(28);
  ClassDesc2* rig_system = ex_.LibClassDesc(29);
  const std::string rig_name = rig->ClassName();
  EXPECT_EQ(rig_name, rig_system->ClassName());
  EXPECT_STREQ(rig->InternalName(), rig_system->InternalName());
  EXPECT_FALSE(rig->IsPublic());
  EXPECT_TRUE(rig_system->IsPublic());
}

TEST_F(ModuleTest, PendingClassesCreateNothingAndTheOthersCreateThemselves) {
  std::set<std::string> listed;
  for (int i = 0; i < 70; ++i) {
    ClassDesc2* cd = ex_.LibClassDesc(static_cast<unsigned>(i));
    SCOPED_TRACE(cd->InternalName());
    listed.insert(cd->InternalName());
    for (bool loading : {false, true}) {
      Animatable* anim = cd->Create(loading);
      if (IsPending(cd)) {
        EXPECT_EQ(anim, nullptr) << "the class exists now: take it off kPendingClasses";
      } else {
        ASSERT_NE(anim, nullptr) << "a pending class must be on kPendingClasses";
        // The system class makes the Rig helper, which is what a scene file names.
        ClassDesc2* made_by = cd == ex_.LibClassDesc(29) ? ex_.LibClassDesc(28) : cd;
        EXPECT_EQ(anim->ClassID(), made_by->ClassID());
        EXPECT_EQ(anim->SuperClassID(), made_by->SuperClassID());
        MSTR name;
        anim->GetClassName(name);
        EXPECT_EQ(name, cd->ClassName()) << "objects answer their descriptor's name";
      }
      Free(anim);
    }
  }
  for (const std::string& name : kPendingClasses)
    EXPECT_EQ(listed.count(name), 1u) << name << " is not a class of the module";
  // The host creates through the directory the same way.
  Animatable* mod = CreateInstance(OSM_CLASS_ID, Class_ID(0x45596d58, 0x1e847b03));
  ASSERT_NE(mod, nullptr);
  EXPECT_NE(mod->GetParamBlockByID(0), nullptr) << "made with its block";
  Free(mod);
}

TEST_F(ModuleTest, ShutdownNotificationThenLibShutdownRunsTheRoutineTwiceSafely) {
  EXPECT_EQ(NumNotificationCallbacks(NOTIFY_SYSTEM_SHUTDOWN), shutdown_callbacks_before_ + 1)
      << "LibInitialize registered the shut-down callback";
  const int startup_callbacks = NumNotificationCallbacks(NOTIFY_SYSTEM_STARTUP);
  NotifySystemStartup();

  BroadcastNotification(NOTIFY_SYSTEM_SHUTDOWN);  // first run of the routine
  EXPECT_EQ(ex_.LibShutdown(), 1);                // second run
  EXPECT_EQ(NumNotificationCallbacks(NOTIFY_SYSTEM_SHUTDOWN), shutdown_callbacks_before_);
  EXPECT_EQ(NumNotificationCallbacks(NOTIFY_SYSTEM_STARTUP), startup_callbacks - 1)
      << "the module's own start-up callback is gone; the filter installers stay";
  EXPECT_EQ(ex_.LibShutdown(), 1) << "a third run finds nothing to do";
  BroadcastNotification(NOTIFY_SYSTEM_SHUTDOWN);  // reaches nothing of the module now

  // Initialising again registers each callback once.
  EXPECT_EQ(ex_.LibInitialize(), 1);
  EXPECT_EQ(ex_.LibInitialize(), 1);
  EXPECT_EQ(NumNotificationCallbacks(NOTIFY_SYSTEM_SHUTDOWN), shutdown_callbacks_before_ + 1);
  EXPECT_EQ(NumNotificationCallbacks(NOTIFY_SYSTEM_STARTUP), startup_callbacks);
  EXPECT_NE(FindScriptPrimitive("CreateIKFKSolver"), nullptr);

  // The host's exit: the notification, then LibShutdown, then the classes leave the directory.
  UnloadPlugins();
  EXPECT_EQ(NumLoadedPlugins(), 0);
  EXPECT_EQ(NumNotificationCallbacks(NOTIFY_SYSTEM_SHUTDOWN), shutdown_callbacks_before_);
  EXPECT_EQ(ClassDirectory::Get().FindClass(OSM_CLASS_ID, Class_ID(0x45596d58, 0x1e847b03)),
            nullptr);
  EXPECT_EQ(FindScriptPrimitive("CreateIKFKSolver"), nullptr) << "no function left dangling";
  UnloadPlugins();  // nothing left: nothing happens
}

TEST_F(ModuleTest, LoaderRefusesBadModulesWithOneClearLine) {
  std::string error;
  EXPECT_FALSE(LoadPlugin(MARVOLITH_MODULE_PATH, &error));
  EXPECT_EQ(error, std::string("Marvolith: the plug-in module '") + MARVOLITH_MODULE_PATH +
                       "' is loaded already.");

  EXPECT_FALSE(LoadPlugin("/no/such/Marvolith.dlc", &error));
  EXPECT_EQ(error.rfind("Marvolith: the plug-in module '/no/such/Marvolith.dlc' could not be "
                        "opened: ",
                        0),
            0u)
      << error;

  const std::string host = HostLibraryPath();
  ASSERT_FALSE(host.empty());
  EXPECT_FALSE(LoadPlugin(host, &error));
  EXPECT_EQ(error, "Marvolith: the plug-in module '" + host + "' does not export LibDescription.");

  EXPECT_FALSE(LoadPlugin(MARVOLITH_FAKE_OLD_API_PATH, &error));
  EXPECT_EQ(error, std::string("Marvolith: the plug-in module '") + MARVOLITH_FAKE_OLD_API_PATH +
                       "' was built for another host (version 0x65903e00, this host is "
                       "0x65904000).");

  EXPECT_FALSE(LoadPlugin(MARVOLITH_FAKE_INIT_FAILS_PATH, &error));
  EXPECT_EQ(error, std::string("Marvolith: the plug-in module '") + MARVOLITH_FAKE_INIT_FAILS_PATH +
                       "' failed to initialise.");

  EXPECT_EQ(NumLoadedPlugins(), 1) << "refusals leave the loaded module alone";
  EXPECT_EQ(GetLoadedPlugin(1), nullptr);
}

}  // namespace
}  // namespace marvolith::test
