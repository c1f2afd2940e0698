// Copyright Marvolith contributors.
// Interfaces of the host's compound controllers that other code reaches by id: IEulerControl
// (GetInterface(I_EULERCTRL)) and IListControl (GetInterface(LIST_CONTROLLER_INTERFACE)).
#pragma once

#include "host/core/animatable.h"
#include "host/core/base_interface.h"
#include "host/core/control.h"

/// An Euler rotation controller: three angle channels combined in one of the nine orders of
/// host/math/euler.h.
class IEulerControl {
 public:
  virtual ~IEulerControl() = default;
  virtual int GetOrder() = 0;
  /// Sets the order (0..8); other values and the present order change nothing. The channels
  /// keep their values, so the rotation changes.
  virtual void SetOrder(int order) = 0;
};

/// Id of IListControl.
inline constexpr Interface_ID LIST_CONTROLLER_INTERFACE(0x444E7687, 0x722E6E36);

/// A list controller: named, weighted items combined into one value, with one active item that
/// receives SetValue. Indices outside the list are ignored (null, empty or 0 answers).
class IListControl : public BaseInterface {
 public:
  Interface_ID GetID() override { return LIST_CONTROLLER_INTERFACE; }
  virtual int GetListCount() = 0;
  virtual void SetActive(int index) = 0;
  virtual int GetActive() = 0;
  /// Removes item index; the active index follows its item, or moves to the new last one.
  virtual void DeleteItem(int index) = 0;
  virtual void SetName(int index, const MSTR& name) = 0;
  /// The item's name; an item without one answers its class name.
  virtual MSTR GetName(int index) = 0;
  virtual Control* GetSubCtrl(int index) = 0;
  /// Replaces item index by ctrl (of the list's super class); false when refused.
  virtual bool SetSubCtrl(int index, Control* ctrl) = 0;
  virtual float GetSubCtrlWeight(int index, TimeValue t) = 0;
  virtual void SetSubCtrlWeight(int index, float weight, TimeValue t = 0) = 0;
  /// Appends ctrl (of the list's super class) with weight 1; answers its index, or -1 when
  /// refused (wrong super class, null, or a reference loop).
  virtual int Append(Control* ctrl, const MSTR& name = MSTR()) = 0;
};
