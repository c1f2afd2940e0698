// Copyright Marvolith contributors.
// A minimal Morpher modifier: named channels with weight tracks, an active flag and an optional
// target node. It blends nothing: the geometry passes through, with the validity of the weights.
#pragma once

#include "host/params/iparamb2.h"
#include "host/scene/object.h"

class ClassDesc2;

/// Class of the Morpher modifier (super class OSM_CLASS_ID).
inline constexpr Class_ID MORPHER_CLASS_ID(0x17bb6854, 0xa5cba2a3);

/// Parameter ids of the Morpher's block (block id 0): four tables kept the same length, entry i
/// of each describing channel i. Ids are stored in scene files.
enum MorpherParam : ParamID {
  morpher_channel_names = 0,  ///< `channel_names`, string table
  morpher_channel_weights,  ///< `channel_weights`, float table, animatable (0 to 100 is 0 to 100%)
  morpher_channel_active,   ///< `channel_active`, bool table
  morpher_channel_targets,  ///< `channel_targets`, node table (referenced)
};
/// Id of the Morpher's parameter block.
inline constexpr BlockID kMorpherParams = 0;

/// The Morpher modifier ("Morpher"). Reference 0 is its parameter block, which holds the
/// channels; every channel change goes through the block and is therefore undoable and saved.
/// The sub-anims are the channels' weight tracks: sub-anim i is channel i's controller.
///
/// Channel operations take a channel index; an index out of range does nothing and answers
/// false, -1, "", 0 or null.
class Morpher : public Modifier {
 public:
  /// With loading true the block is not made: the scene file links the loaded one.
  explicit Morpher(bool loading = false);

  Class_ID ClassID() override { return MORPHER_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override { s = "Morpher"; }

  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock_ : nullptr; }
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override {
    return REF_SUCCEED;
  }

  int NumSubs() override { return NumChannels(); }
  Animatable* SubAnim(int i) override { return GetChannelWeightController(i); }
  /// "[n] name", n counting from 1.
  MSTR SubAnimName(int i, bool localized = true) override;
  bool CanAssignController(int sub_anim) override;
  /// Puts a float controller on channel sub_anim's weight (undoable).
  bool AssignController(Animatable* control, int sub_anim) override;

  // Channels.
  int NumChannels();
  /// Appends an active channel called name, with a new default float track (holding 0) as its
  /// weight and target (may be null) as its target. Answers its index, or -1 when target would
  /// close a loop of references (the node that shows this Morpher, say).
  int AddChannel(const MSTR& name, INode* target = nullptr);
  /// Removes channel i; its weight track goes when nothing else uses it.
  bool DeleteChannel(int i);
  MSTR GetChannelName(int i);
  bool SetChannelName(int i, const MSTR& name);
  bool IsChannelActive(int i);
  bool SetChannelActive(int i, bool active);
  /// Channel i's weight at t; valid, when given, is narrowed.
  float GetChannelWeight(int i, TimeValue t, Interval* valid = nullptr);
  /// Sets the weight at t through its track (a key while animating).
  bool SetChannelWeight(int i, TimeValue t, float weight);
  Control* GetChannelWeightController(int i);
  /// Replaces the weight track of channel i by c, a float controller (null removes the track,
  /// keeping the present value).
  bool SetChannelWeightController(int i, Control* c);
  INode* GetChannelTarget(int i);
  /// Sets the target node (null clears); false when it would close a loop.
  bool SetChannelTarget(int i, INode* target);

  // Modifier.
  /// Leaves the object alone: the Morpher of this host blends no geometry.
  ChannelMask ChannelsChanged() override { return 0; }
  /// The intersection of the active channels' weight validity at t.
  Interval LocalValidity(TimeValue t) override;
  /// Narrows os's validity to LocalValidity(t); the object is untouched.
  void ModifyObject(TimeValue t, ModContext& mc, ObjectState* os, INode* node) override;

  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  bool Valid(int i);

  IParamBlock2* pblock_ = nullptr;
};

/// The Morpher's class descriptor.
ClassDesc2* GetMorpherDesc();

/// One channel of a Morpher, as the host's morph library hands it out: the modifier's handle and
/// the channel index. Every call does nothing (answers false, "", 0 or null) once the modifier is
/// gone or the index is out of range.
class MaxMorphChannel {
 public:
  MaxMorphChannel(Morpher* morpher, int index);
  bool IsValid() const;
  int GetIndex() const { return index_; }
  MSTR GetName() const;
  bool SetName(const MSTR& name);
  bool IsActive() const;
  bool SetActive(bool active);
  float GetMorphWeight(TimeValue t) const;
  bool SetMorphWeight(TimeValue t, float weight);
  Control* GetMorphWeightController() const;
  bool SetMorphWeightController(Control* c);
  INode* GetMorphTarget() const;
  bool SetMorphTarget(INode* target);

 private:
  Morpher* Get() const;
  AnimHandle morpher_;
  int index_;
};

/// The host's morph library's view of a Morpher modifier.
class MaxMorphModifier {
 public:
  /// mod may be null or another modifier: IsValidMorpher() then answers false.
  explicit MaxMorphModifier(Modifier* mod);
  bool IsValidMorpher() const;
  /// The Morpher, or null.
  Morpher* GetModifier() const;
  int NumMorphChannels() const;
  MaxMorphChannel GetMorphChannel(int index) const;
  /// Appends a channel (Morpher::AddChannel) and answers it.
  MaxMorphChannel AddMorphChannel(const MSTR& name, INode* target = nullptr);

 private:
  AnimHandle morpher_;
};
