// Copyright Marvolith contributors.
// The global `Marvolith` of scripts: the running state that no scene object owns (active panel
// and pose kit, the running UI action, panel transform mode), and the enumeration of point types
// shared by the curve chains' script interfaces.
#pragma once

#include "host/core/animatable.h"
#include "host/script/fp_interface.h"

class INode;
class ReferenceTarget;

namespace marvolith {

inline constexpr Interface_ID MARVOLITH_INTERFACE_ID(0x4BC7724E, 0x227423FA);

/// Point types of curve chains, as the enumeration of published interfaces names them.
enum PointType : int {
  kPointBezierCorner = 0,
  kPointBezier = 1,
  kPointCorner = 2,
  kPointSmooth = 3,
  kPointFixedSmooth = 4,
};
/// The enumeration BezierCorner 0, Bezier 1, Corner 2, Smooth 3, FixedSmooth 4 under id, for
/// any interface table that publishes point types.
FPEnumDef PointTypeEnum(EnumID id);

/// The static core interface "Marvolith". One instance per process (GetMarvolithInterface), made
/// when the module loads and registered as a core interface from then on, so scripts reach it
/// by name.
///
/// The state holds nodes and objects by handle, not by reference: nothing here keeps them
/// alive, and one deleted since reads as null.
class MarvolithInterface : public FPStaticInterface {
 public:
  /// Member ids; properties are getter/setter pairs. 11 and 12 are unused.
  enum : FunctionID {
    kGetActiveUIPanel = 0,
    kSetActiveUIPanel = 1,
    kGetActivePoseKit = 2,
    kSetActivePoseKit = 3,
    kGetUIPanelTransforming = 4,
    kSetUIPanelTransforming = 5,
    kGetCurrentUIAction = 6,
    kSetCurrentUIAction = 7,
    kGetUIPanelHolder = 8,
    kGetPoseKitHolder = 9,
    kAbout = 10,
    kOpenCurveEditor = 13,
    kGetReplaceNativeCurveEditor = 14,
    kSetReplaceNativeCurveEditor = 15,
  };
  enum : EnumID { kPointTypeEnumId = 0 };

  MarvolithInterface();

  /// The node of the active panel, and its base object (the node's object reference stepped
  /// down through derived objects). Null when unset or deleted.
  INode* ActiveUIPanel() const;
  ReferenceTarget* ActiveUIPanelObject() const;
  /// Stores node (null clears) and its base object, then, when there is a base object, tells
  /// its dependents REFMSG_CHANGE over all time for all parts so that open views of the panel
  /// redraw. Null node, or a node whose object walk ends without an object, sends nothing.
  void SetActiveUIPanel(INode* node);

  /// The node of the active pose kit and its base object, as for the panel.
  INode* ActivePoseKit() const;
  ReferenceTarget* ActivePoseKitObject() const;
  /// Stores node and its base object. Unlike SetActiveUIPanel it sends no message: kit views
  /// refresh on their own.
  void SetActivePoseKit(INode* node);

  /// True while the panel manager is in transform mode; starts false.
  bool UIPanelTransforming() const { return ui_panel_transforming_; }
  void SetUIPanelTransforming(bool on) { ui_panel_transforming_ = on; }

  /// The UIAction in the middle of its RunScript, else null. Scripts read it; its setter in the
  /// table stores nothing. Only RunScript sets it, for the length of one run.
  ReferenceTarget* CurrentUIAction() const;
  void SetCurrentUIAction(ReferenceTarget* action);

  /// Clears all of the state above (a fresh process's state).
  void ResetState();

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;

 private:
  AnimHandle panel_node_ = 0;
  AnimHandle panel_object_ = 0;
  AnimHandle pose_kit_node_ = 0;
  AnimHandle pose_kit_object_ = 0;
  AnimHandle current_action_ = 0;
  bool ui_panel_transforming_ = false;
};

/// The one instance of the global, built with the module's static objects.
MarvolithInterface& GetMarvolithInterface();

/// The base object under node: its object reference, stepped down through derived objects.
/// Null for a null node, a node without object, or a derived object with nothing below it.
ReferenceTarget* FindNodeBaseObject(INode* node);

}  // namespace marvolith
