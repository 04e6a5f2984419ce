#pragma once
// Where every vertex of a description goes: its place in the full (LOD 0) vertex array,
// the per-LOD vertex counts, and the order in which the vertex file stores it, with the
// fixups that undo that order. The model, vertex and strip writers all read this one
// plan, so the three files agree.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/result.h"
#include "mdlforge/description.h"

namespace zv::mdlforge {

inline constexpr int kMaxLods = 8;
using LodCounts = std::array<int32_t, kMaxLods>;

struct VertexRange {
  size_t first = 0;  // index into VertexPlan::vertices
  size_t count = 0;
  LodCounts lodCounts{};  // meshes only
};

struct VertexPlan {
  int32_t lodCount = 1;
  std::vector<const Vertex*> vertices;                        // full array, mesh after mesh
  std::vector<std::vector<VertexRange>> models;               // [body part][model]
  std::vector<std::vector<std::vector<VertexRange>>> meshes;  // [body part][model][mesh]
  LodCounts lodCounts{};
  std::vector<int32_t> storedOrder;  // stored position -> index into vertices
  std::vector<Fixup> fixups;
  bool secondUv = false;
};

// The strip file's LOD count: the explicit one, else the most LODs of any mesh (at least 1).
int32_t stripLodCount(const Description& description);

Result<VertexPlan> planVertices(const Description& description);

}  // namespace zv::mdlforge
