// Copyright Marvolith contributors.
// Animatable: the root of every scene object. Class identity, sub-anims, interfaces, the flag
// word, key operations, and handles that outlive the object.
#pragma once

#include <string>

#include "host/base/ids.h"
#include "host/base/tab.h"
#include "host/core/param_dimension.h"
#include "host/math/interval.h"


class BaseInterface;
class IParamBlock2;
class IObjParam;
class ICustAttribContainer;

// Animatable flag bits.
inline constexpr DWORD A_EVALUATING = 1u << 0;
inline constexpr DWORD A_NOTIFYDEP = 1u << 1;
inline constexpr DWORD A_WORK1 = 1u << 4;
inline constexpr DWORD A_WORK2 = 1u << 5;
inline constexpr DWORD A_LOCK_TARGET = 1u << 8;  ///< never auto-deleted when unreferenced
/// Set while a hold already has this object's restore record; cleared by the record's EndHold.
inline constexpr DWORD A_HELD = 1u << 12;
inline constexpr DWORD A_IS_DELETED = 1u << 16;  ///< deleted, kept alive only by undo records

// Key operation flags.
inline constexpr DWORD TRACK_DOSEL = 1u << 0;
inline constexpr DWORD TRACK_DOALL = 1u << 1;
inline constexpr DWORD TRACK_SLIDEUNSEL = 1u << 2;
inline constexpr DWORD TRACK_RIGHTTOLEFT = 1u << 3;
inline constexpr DWORD TRACK_DOSUBANIMS = 1u << 4;
inline constexpr DWORD TRACK_DOCHILDNODES = 1u << 5;
inline constexpr DWORD TRACK_MAPRANGE = 1u << 6;
inline constexpr DWORD KEYAT_POSITION = 1u << 0;
inline constexpr DWORD KEYAT_ROTATION = 1u << 1;
inline constexpr DWORD KEYAT_SCALE = 1u << 2;
inline constexpr DWORD NEXTKEY_LEFT = 1u << 0;
inline constexpr DWORD NEXTKEY_RIGHT = 1u << 1;
inline constexpr DWORD TIMERANGE_ALL = 1u << 0;
inline constexpr DWORD TIMERANGE_SELONLY = 1u << 1;
inline constexpr DWORD TIMERANGE_CHILDNODES = 1u << 2;
inline constexpr DWORD TIMERANGE_CHILDANIMS = 1u << 3;
/// NumKeys of an animatable that has no keys of its own.
inline constexpr int NOT_KEYFRAMEABLE = -1;

/// Maps times for MapKeys: slide, scale and reverse of key times.
class TimeMap {
 public:
  virtual ~TimeMap() = default;
  virtual TimeValue map(TimeValue t) = 0;
  virtual TimeValue prevmap(TimeValue t) { return t; }
};

/// Base of every object the host can animate, reference or save.
class Animatable {
 public:
  Animatable();
  virtual ~Animatable();
  Animatable(const Animatable&) = delete;
  Animatable& operator=(const Animatable&) = delete;

  virtual Class_ID ClassID() { return Class_ID(0, 0); }
  virtual SClass_ID SuperClassID() = 0;
  /// The class's user-visible name.
  virtual void GetClassName(MSTR& s, bool localized = true) const { s.clear(); }
  MSTR ClassName() const {
    MSTR s;
    GetClassName(s);
    return s;
  }
  /// Frees the object. Reference targets are deleted through ReferenceTarget::DeleteMe instead.
  virtual void DeleteThis() { delete this; }

  // Sub-anims: the tracks this object shows below itself.
  virtual int NumSubs() { return 0; }
  virtual Animatable* SubAnim(int i) { return nullptr; }
  virtual MSTR SubAnimName(int i, bool localized = true) { return MSTR(); }
  /// The display dimension of sub-anim i's values (degrees for an angle track, say).
  virtual ParamDimension* GetParamDimension(int i) { return defaultDim; }
  virtual bool CanAssignController(int sub_anim) { return false; }
  /// Puts control at sub-anim sub_anim; answers true when it was assigned.
  virtual bool AssignController(Animatable* control, int sub_anim) { return false; }
  /// The reference index that holds sub-anim sub_num, or -1.
  virtual int SubNumToRefNum(int sub_num) { return -1; }

  // Interfaces.
  /// Old-style interfaces by number (e.g. 5008 locked track, 4992 Euler control); null when absent.
  virtual void* GetInterface(ULONG id) { return nullptr; }
  /// Function-publishing and extension interfaces by id; null when absent.
  virtual BaseInterface* GetInterface(Interface_ID id) { return nullptr; }

  // Parameter blocks.
  virtual int NumParamBlocks() { return 0; }
  virtual IParamBlock2* GetParamBlock(int i) { return nullptr; }
  virtual IParamBlock2* GetParamBlockByID(BlockID id) { return nullptr; }

  // Panels. The headless host opens none; the calls exist for the classes that forward them.
  virtual void BeginEditParams(IObjParam* ip, ULONG flags, Animatable* prev) {}
  virtual void EndEditParams(IObjParam* ip, ULONG flags, Animatable* next) {}

  // Custom attributes: a container exists on demand on any animatable.
  virtual ICustAttribContainer* GetCustAttribContainer() { return custattrib_; }
  void SetCustAttribContainer(ICustAttribContainer* cc) { custattrib_ = cc; }
  /// Makes this animatable's container when it has none (host/scene implements it).
  void AllocCustAttribContainer();
  /// Deletes the container and its attributes (undoable); nothing when there is none.
  void DeleteCustAttribContainer();

  // Flags.
  void SetAFlag(DWORD mask) { aflag_ |= mask; }
  void ClearAFlag(DWORD mask) { aflag_ &= ~mask; }
  bool TestAFlag(DWORD mask) const { return (aflag_ & mask) != 0; }
  DWORD GetAFlags() const { return aflag_; }

  // Keys. Defaults describe an animatable without keys of its own.
  virtual int NumKeys() { return NOT_KEYFRAMEABLE; }
  virtual TimeValue GetKeyTime(int index) { return 0; }
  virtual int GetKeyIndex(TimeValue t) { return -1; }
  virtual bool GetNextKeyTime(TimeValue t, DWORD flags, TimeValue& nt) { return false; }
  virtual void CopyKeysFromTime(TimeValue src, TimeValue dst, DWORD flags) {}
  virtual void AddNewKey(TimeValue t, DWORD flags) {}
  virtual void DeleteKeyAtTime(TimeValue t) {}
  virtual bool IsKeyAtTime(TimeValue t, DWORD flags) { return false; }
  virtual void DeleteKeys(DWORD flags) {}
  virtual void DeleteKeyByIndex(int index) {}
  virtual void SelectKeyByIndex(int index, bool select) {}
  virtual bool IsKeySelected(int index) { return false; }
  virtual int NumSelKeys() { return 0; }
  virtual void MapKeys(TimeMap* map, DWORD flags) {}
  virtual Interval GetTimeRange(DWORD flags) { return NEVER; }
  virtual int GetKeyTimes(Tab<TimeValue>& times, Interval range, DWORD flags) { return 0; }
  virtual bool IsAnimated() { return false; }

  // Handles.
  /// A stable number for anim, 0 for null. It stays valid after the object is deleted.
  static AnimHandle GetHandleByAnim(const Animatable* anim);
  /// The live object with this handle, or null when it was deleted (or is held only by undo).
  static Animatable* GetAnimByHandle(AnimHandle handle);
  /// Like GetAnimByHandle, but also answers an object deleted while a hold keeps it (undo
  /// records of the host use it to bring such objects back).
  static Animatable* FindAnimIncludingDeleted(AnimHandle handle);
  /// Number of animatables alive now, deleted-but-held ones included.
  static int LiveCount();

 private:
  DWORD aflag_ = 0;
  AnimHandle handle_ = 0;
  ICustAttribContainer* custattrib_ = nullptr;
};
