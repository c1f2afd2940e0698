// Copyright Marvolith contributors.
#include "host/registry/class_desc.h"

#include <gtest/gtest.h>

#include "tests/support/test_objects.h"

namespace marvolith::test {
namespace {

// A class desc for TestTarget under any super class, so that one Class_ID can name two classes.
class TestDesc : public ClassDesc2 {
 public:
  TestDesc(SClass_ID sclass, const char* name) : sclass_(sclass), name_(name) {}
  bool IsPublic() override { return true; }
  Animatable* Create(bool) override {
    auto* t = new TestTarget;
    t->value = static_cast<int>(sclass_);
    return t;
  }
  const char* ClassName() override { return name_; }
  const char* InternalName() override { return name_; }
  SClass_ID SuperClassID() override { return sclass_; }
  Class_ID ClassID() override { return Class_ID(0x45596d56, 0x1e847b60); }
  const char* Category() override { return "Animation"; }

 private:
  SClass_ID sclass_;
  const char* name_;
};

TEST(ClassDirectoryTest, SameClassIdUnderTwoSuperClassesNamesTwoClasses) {
  TestDesc chain(CTRL_MATRIX3_CLASS_ID, "IKFKChain");
  TestDesc connection(CTRL_ROTATION_CLASS_ID, "RotationConnection");
  TestDesc duplicate(CTRL_ROTATION_CLASS_ID, "Duplicate");
  ClassDirectory& dir = ClassDirectory::Get();
  ASSERT_TRUE(dir.AddClass(&chain));
  ASSERT_TRUE(dir.AddClass(&connection));
  EXPECT_FALSE(dir.AddClass(&duplicate)) << "same super class and id";

  const Class_ID cid(0x45596d56, 0x1e847b60);
  EXPECT_EQ(dir.FindClass(CTRL_MATRIX3_CLASS_ID, cid), &chain);
  EXPECT_EQ(dir.FindClass(CTRL_ROTATION_CLASS_ID, cid), &connection);
  EXPECT_EQ(dir.FindClass(CTRL_FLOAT_CLASS_ID, cid), nullptr);
  EXPECT_EQ(dir.FindClassByInternalName("rotationconnection"), &connection);

  auto* made = static_cast<TestTarget*>(CreateInstance(CTRL_ROTATION_CLASS_ID, cid));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->value, static_cast<int>(CTRL_ROTATION_CLASS_ID));
  made->DeleteMe();
  EXPECT_EQ(CreateInstance(CTRL_SCALE_CLASS_ID, cid), nullptr);

  EXPECT_TRUE(dir.RemoveClass(&chain));
  EXPECT_TRUE(dir.RemoveClass(&connection));
  EXPECT_FALSE(dir.RemoveClass(&duplicate));
}

}  // namespace
}  // namespace marvolith::test
