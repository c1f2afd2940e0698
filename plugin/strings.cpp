// Copyright Marvolith contributors.
#include "plugin/strings.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace marvolith {
namespace {

struct StringEntry {
  int id;
  const char* text;
};

// Sorted by id.
constexpr StringEntry kStrings[] = {
    {1, "Marvolith Animation"},
    {53, "Up Axis Flip"},
    {100, "Animation"},
    {101, "Splines"},
    {102, ""},
    {256, "Vertical Offset"},
    {702, "Reset Length"},
    {759, "Create IKFK Solver"},
    {962, "Animation Layers Active Filter"},
    {963, "Anim Layer"},
    {1000, "Static Float"},
    {1001, "Step Float"},
    {1002, "MsgChecker"},
    {1003, "Stretch Constraint"},
    {1004, "Aim Constraint"},
    {1005, "Float Expose TM"},
    {1006, "Float Connection"},
    {1007, "Scale Constraint"},
    {1008, "Transform Constraint"},
    {1009, "Static Position"},
    {1010, "Static Rotation"},
    {1011, "Static Scale"},
    {1012, "Static Transform"},
    {1013, "CurveIK Control"},
    {1014, "CurveIK Chain"},
    {1015, "Control Helper"},
    {1016, "UI Panel"},
    {1017, "UIGroup"},
    {1018, "UIImage"},
    {1019, "UIPicker"},
    {1020, "UIVisibility"},
    {1021, "UIToggle"},
    {1023, "UISlider"},
    {1024, "UI2DSlider"},
    {1025, "UISpinner"},
    {1026, "UI2DSpinner"},
    {1027, "UIPanel Holder"},
    {1028, "Rig"},
    {1029, "Rig"},
    {1030, "IKFK Chain"},
    {1031, "IKFK Control"},
    {1032, "IKFK Link"},
    {1033, "Parent Constraint"},
    {1034, "Rotation Space"},
    {1035, "Pose Kit"},
    {1036, "Pose Kit Holder"},
    {1037, "LimbAttrib"},
    {1038, "CurveAttrib"},
    {1039, "HeadAttrib"},
    {1040, "FootAttrib"},
    {1041, "LinkAttrib"},
    {1042, "Float Operation"},
    {1043, "Float Wave"},
    {1044, "Rig Transform"},
    {1045, "Position Connection"},
    {1046, "Rotation Connection"},
    {1047, "Scale Connection"},
    {1048, "Mirror Morph"},
    {1049, "CorrectiveMorph"},
    {1050, "Dynamics"},
    {1051, "Animation Manager"},
    {1052, "RootAttrib"},
    {1053, "Root Constraint"},
    {1054, "Twist Poses Float"},
    {1055, "Twist Poses Rotation"},
    {1056, "UI Label"},
    {1057, "Dummy Float"},
    {1058, "Dummy Rotation"},
    {1059, "Animation Layers"},
    {1060, "Float Layers"},
    {1061, "Position Layers"},
    {1062, "Rotation Layers"},
    {1063, "Scale Layers"},
    {1064, "Control Shape"},
    {1065, "IKFK Display"},
    {1066, "Animation Layers Local Weights"},
    {1067, "Rotation XYZ"},
    {1068, "Marvolith FBX Exporter"},
    {1069, "Marvolith FBX Importer"},
    {2000, "Tags"},
    {2001, "Root"},
    {2002, "Mirror Pos Axis"},
    {2003, "Mirror Rot Axis"},
    {2004, "Mirror Position"},
    {2005, "Mirror Rotation"},
    {2006, "Use Mirror Node"},
    {2007, "Mirror Node"},
    {2008, "Use Retarget Size"},
    {2009, "Retarget Size"},
    {2010, "Select Mirror Node"},
};

HINSTANCE g_instance = nullptr;
char g_buffer[512];

}  // namespace

const char* GetString(int id) {
  if (!g_instance) return nullptr;
  auto it = std::lower_bound(std::begin(kStrings), std::end(kStrings), id,
                             [](const StringEntry& e, int v) { return e.id < v; });
  if (it == std::end(kStrings) || it->id != id) return nullptr;
  std::strncpy(g_buffer, it->text, sizeof(g_buffer) - 1);
  g_buffer[sizeof(g_buffer) - 1] = '\0';
  return g_buffer;
}

HINSTANCE GetModuleInstance() { return g_instance; }

void SetModuleInstance(HINSTANCE instance) { g_instance = instance; }

}  // namespace marvolith
