// Copyright Marvolith contributors.
// The host's bone object: a tapered box along local +X with optional fins, driven by one
// parameter block. BuildBoneMesh is the pure geometry; BoneObj the scene object around it.
#pragma once

#include <array>
#include <vector>

#include "host/objects/object_geometry.h"
#include "host/params/iparamb2.h"
#include "host/scene/object.h"

class ClassDesc2;

/// Class of the bone object (super class GEOMOBJECT_CLASS_ID).
inline constexpr Class_ID BONE_OBJ_CLASSID(0x28bf6e8d, 0x2ecca840);

/// Parameter ids of the bone's block (block id 0). Ids are stored in scene files.
enum BoneObjParam : ParamID {
  boneobj_width = 0,  ///< `width`, world, animatable, default 10
  boneobj_height,     ///< `height`, world, animatable, default 10
  boneobj_taper,      ///< `taper`, percent (-100 to 100), animatable, default 90
  boneobj_length,     ///< `length`, world, animatable, default 10
  boneobj_sidefins,   ///< `sidefins`, bool, default off; then size, start and end taper
  boneobj_sidefins_size,
  boneobj_sidefins_starttaper,
  boneobj_sidefins_endtaper,
  boneobj_frontfin,  ///< `frontfin` and its three values
  boneobj_frontfin_size,
  boneobj_frontfin_starttaper,
  boneobj_frontfin_endtaper,
  boneobj_backfin,  ///< `backfin` and its three values
  boneobj_backfin_size,
  boneobj_backfin_starttaper,
  boneobj_backfin_endtaper,
};
/// Id of the bone's parameter block.
inline constexpr BlockID kBoneObjParams = 0;

/// One fin of a bone: a flat plate standing out of the bone's side.
struct BoneFin {
  bool on = false;
  float size = 5.0f;  ///< how far the plate stands out, in world units; negative counts as 0
  /// Fractions (0 to 1, clamped) of the fin's length by which its outer edge is shortened at the
  /// start and at the end. When the two add up to more than 1 the outer edge is a point.
  float start_taper = 0.1f;
  float end_taper = 0.1f;
};

/// What a bone's geometry is made from. Lengths in world units; negative ones count as 0.
struct BoneShapeInput {
  float width = 10.0f;   ///< cross-section along local Y
  float height = 10.0f;  ///< cross-section along local Z
  /// Fraction by which the end's cross-section shrinks: 1 ends in a point, 0 keeps it, -1 doubles
  /// it. Clamped to -1..1.
  float taper = 0.9f;
  float length = 10.0f;  ///< along local +X
  BoneFin side;          ///< a pair of fins along +Y and -Y
  BoneFin front;         ///< a fin along +Z
  BoneFin back;          ///< a fin along -Z
};

/// Builds the bone in its local space: a pointed start at the origin that widens to the full
/// width x height cross-section at x = min(length / 2, min(width, height) / 2), then runs to the
/// end cross-section at x = length, scaled by (1 - taper). That is 9 vertices (origin, the full
/// ring, the end ring; corners in the order +Y+Z, -Y+Z, -Y-Z, +Y-Z) and 14 faces. Each fin that is
/// on adds 4 vertices and 2 faces: its base runs on the bone's surface from the full ring to the
/// end, its outer edge stands `size` further out. A zero length gives a flat bone at x = 0.
/// out is cleared first; its storage is reused.
void BuildBoneMesh(const BoneShapeInput& in, TriMesh& out);

/// The host's bone object ("Bone"; script class `BoneGeometry`). Reference 0 is its parameter
/// block; its one sub-anim is that block. The mesh is built on demand and cached over the
/// validity of the parameters read; any change of the block drops it. Display draws the mesh's
/// visible edges.
class BoneObj : public GeomObject {
 public:
  /// With loading true the block is not made: the scene file links the loaded one.
  explicit BoneObj(bool loading = false);

  Class_ID ClassID() override { return BONE_OBJ_CLASSID; }
  void GetClassName(MSTR& s, bool localized = true) const override { s = "Bone"; }

  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock_ : nullptr; }
  int NumSubs() override { return 1; }
  Animatable* SubAnim(int i) override { return i == 0 ? pblock_ : nullptr; }
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int sub_num) override { return sub_num == 0 ? 0 : -1; }
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;

  /// The object itself, valid over ObjectValidity(t).
  ObjectState Eval(TimeValue t) override;
  /// The intersection of the validity of every parameter at t.
  Interval ObjectValidity(TimeValue t) override;
  /// Draws the mesh's visible edges (TriMesh::GetVisibleEdges) through inode's object TM in
  /// NodeWireColor; nothing without inode or vpt. Answers 0.
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override;
  /// The box of the mesh at t, in the bone's space.
  void GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;
  /// The box of the mesh's vertices taken through inode's object TM (the local box without a
  /// node).
  void GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;

  /// The parameters at t, narrowing valid by each.
  BoneShapeInput GetShapeInput(TimeValue t, Interval& valid);
  /// The mesh at t; the reference holds until the next call or change of the block.
  const TriMesh& GetMesh(TimeValue t);

  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  IParamBlock2* pblock_ = nullptr;
  TriMesh mesh_;
  std::vector<std::array<int, 2>> edges_;  // visible edges of mesh_
  Interval mesh_valid_ = NEVER;
};

/// The bone's class descriptor.
ClassDesc2* GetBoneObjDesc();
