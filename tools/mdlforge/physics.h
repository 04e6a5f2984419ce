#pragma once
// What a forged collision file (.phy) holds, and its builder. Points are given in model
// units and axes (in their bone's frame); the builder writes them in collision units.
// As for models, inconsistent values (bad point indices, bones, solid numbers) are
// written as given.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/math.h"
#include "base/result.h"
#include "mdlforge/forge.h"

namespace zv::mdlforge {

using TextKeys = std::vector<std::pair<std::string, std::string>>;

struct PhysicsPiece {
  std::vector<Vector3> points;
  std::vector<std::array<uint16_t, 3>> triangles;  // into points
  int32_t bone = -1;                               // written as client data bone + 1
};

struct PhysicsSolid {
  std::vector<PhysicsPiece> pieces;
  bool solidHeader = true;  // the 28-byte "VPHY" header; without it, the older form
  // Writes, for every inner node of the ledge tree, a wrapping hull ledge of the subtree
  // among the pieces' ledges (as the legacy compiler does for solids of several pieces).
  bool subtreeHulls = false;
  // The solid's text block; "index" is written first by the builder.
  TextKeys keys;
  // false: no ledge tree is written and the root offset points at the end of the solid, as
  // in real files whose pieces can only be found by reading the ledges in order.
  bool ledgeTree = true;
  // Layouts of real files that a reader must take as they come: bytes that are not a ledge
  // between the surface header and the first ledge, zero bytes between the last ledge and
  // the point array, ledge sizes that run to the end of the point array (as one-piece
  // solids have them), and a surface byte size left at 0.
  std::vector<uint8_t> bytesBeforeLedges;
  size_t bytesBeforePoints = 0;
  bool ledgeSizesCoverPoints = false;
  bool surfaceByteSize = true;
};

struct PhysicsConstraint {
  int32_t parent = 0;
  int32_t child = 0;
  std::array<float, 3> min{};  // x, y, z in degrees
  std::array<float, 3> max{};
  std::array<float, 3> friction{};
};

struct TextBlock {
  std::string name;  // "collisionrules", "editparams", "break", ...
  TextKeys keys;
};

struct PhysicsDescription {
  int32_t headerSize = 16;
  std::vector<PhysicsSolid> solids;
  std::vector<PhysicsConstraint> constraints;
  std::vector<TextBlock> blocks;  // after the solid and constraint blocks
  // Replaces the whole text section when set.
  std::optional<std::string> text;
};

struct PhysicsFile {
  std::vector<uint8_t> bytes;
  // "solid[i]" (its size field), "surface[i]" (compact surface), "ledge[i][j]" (piece j),
  // "points[i]", "node[i][k]" (tree nodes in walk order), "text".
  OffsetMap where;
};

// Fails only for what cannot be written: a solid without pieces, a piece without
// triangles, or more points or triangles than the record fields hold.
Result<PhysicsFile> buildPhysics(const PhysicsDescription& description, int32_t checksum);

// A box piece from mins to maxs: 8 points and 12 outward-facing triangles.
PhysicsPiece boxPiece(const Vector3& mins, const Vector3& maxs, int32_t bone = -1);

}  // namespace zv::mdlforge
