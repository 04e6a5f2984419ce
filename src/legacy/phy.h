#pragma once
// The collision file (.phy): a header, one size-prefixed solid per physics body, then a
// key-value text section. Each solid is a compact surface whose convex pieces ("ledges")
// hang off a binary ledge tree and share one point array.
//
// Pieces are found by walking the ledge tree: the terminal nodes name the pieces, in tree
// order (left subtree before right). The walk is iterative, children must lie after their
// node, and the number of visits is bounded by the nodes that fit in the surface, so no
// file can make it loop or blow up. A solid whose tree is missing or unusable has its
// ledges read in file order instead, the ones without children being the pieces.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/byte_view.h"
#include "base/math.h"
#include "base/result.h"
#include "kv/keyvalues.h"

namespace zv::legacy {

// Collision space is metres with a different axis order; model space is inches.
inline constexpr float kCollisionToInches = 1.0f / 0.0254f;
// (x, y, z) in collision space is (x, z, -y) * k in model space.
Vector3 collisionToModel(const Vector3& collision);

struct PhyPiece {
  // Bone whose frame the points are in (client data - 1); -1 when the file names none.
  int32_t bone = -1;
  // Points in model units and axes, still in the bone's frame, in first-use order.
  std::vector<Vector3> points;
  // Corners as indices into points, in the stored corner order.
  std::vector<std::array<int32_t, 3>> triangles;
};

// A solid's text block. Numbers that are absent keep these defaults.
struct PhySolidKeys {
  std::string name;  // bone name for ragdolls
  std::string parent;
  std::string surfaceProp;
  float mass = 0;
  float damping = 0;
  float rotDamping = 0;
  float inertia = 1;
  float drag = 0;
  float volume = 0;
};

struct PhySolid {
  bool hasSolidHeader = false;  // the 28-byte "VPHY" header before the compact surface
  std::vector<PhyPiece> pieces;
  PhySolidKeys keys;
};

struct RagdollConstraint {
  int32_t parent = -1;  // solid indices
  int32_t child = -1;
  // Per axis x, y, z: degrees and friction.
  std::array<float, 3> min{};
  std::array<float, 3> max{};
  std::array<float, 3> friction{};
};

struct CollisionRules {
  bool selfCollisions = true;
  std::vector<std::pair<int32_t, int32_t>> pairs;  // when any, only these pairs collide
};

struct EditParams {
  std::string rootName;
  float totalMass = 0;
  bool concave = false;
  std::vector<std::pair<std::string, std::string>> jointMerges;
};

struct PhyFile {
  int32_t checksum = 0;
  std::vector<PhySolid> solids;
  std::vector<RagdollConstraint> constraints;
  CollisionRules collisionRules;
  EditParams editParams;
  std::vector<KeyValues> breaks;  // each "break" block, keys in file order
  // Problems that do not make the file unusable (a text block naming a solid that does
  // not exist, a solid without pieces, ...), for the caller to report with the file's name.
  std::vector<std::string> notes;

  // Decodes the whole file. A solid that does not decode is kept without pieces and noted;
  // a fault in the framing (header, solid sizes) or the text fails the file. Messages name
  // the file, the solid, the record and the offset (from the file start).
  static Result<PhyFile> parse(std::string_view fileName, ByteView bytes);
};

}  // namespace zv::legacy
