// Copyright Marvolith contributors.
// What the scene file asks a maker before it puts a loaded object into one of its slots.
#pragma once

#include "host/core/reference.h"

/// Number of the IRefSlotCheck interface for Animatable::GetInterface(ULONG).
inline constexpr ULONG I_REFSLOTCHECK = 0x4d560001;

/// A maker whose slots take targets of particular kinds answers this interface, so that a damaged
/// file cannot put, say, a modifier where a controller belongs. Makers without it take anything
/// into any slot below NumRefs().
class IRefSlotCheck {
 public:
  virtual ~IRefSlotCheck() = default;
  /// True when target (never null) may sit in slot i.
  virtual bool CanReferenceAt(int i, ReferenceTarget* target) = 0;
};
