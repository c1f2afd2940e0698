// Copyright Marvolith contributors.
// CreateMouseCallBack: how an object takes part in its interactive creation. The host feeds the
// mouse events of a creation drag to the object's callback, which places the node through mat
// and sets the object's parameters.
#pragma once

#include "host/gfx/graphics_window.h"
#include "host/math/matrix3.h"

class ViewExp;

// Mouse messages, the host's numbers.
inline constexpr int MOUSE_ABORT = 0;
inline constexpr int MOUSE_IDLE = 0;
inline constexpr int MOUSE_POINT = 1;
inline constexpr int MOUSE_MOVE = 2;
inline constexpr int MOUSE_DBLCLICK = 3;
inline constexpr int MOUSE_INIT = 4;
inline constexpr int MOUSE_UNINIT = 5;
inline constexpr int MOUSE_FREEMOVE = 6;

// Answers of CreateMouseCallBack::proc.
/// Creation is done; the object stays.
inline constexpr int CREATE_STOP = 0;
/// More events are wanted.
inline constexpr int CREATE_CONTINUE = 1;
/// Creation is cancelled; the host deletes the object.
inline constexpr int CREATE_ABORT = -1;

/// One object's creation procedure.
class CreateMouseCallBack {
 public:
  virtual ~CreateMouseCallBack() = default;
  /// Handles one event: msg is a MOUSE_ message, point the number of the click so far (0 for the
  /// first), flags the mouse and key state, m the cursor in pixels of vpt. mat is the new node's
  /// transform, which the callback sets (on the first click, to place the node). Answers a
  /// CREATE_ value.
  virtual int proc(ViewExp* vpt, int msg, int point, int flags, IPoint2 m, Matrix3& mat) = 0;
};
