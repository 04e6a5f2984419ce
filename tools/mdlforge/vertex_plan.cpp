#include "mdlforge/vertex_plan.h"

#include <algorithm>

#include "base/strings.h"

namespace zv::mdlforge {
namespace {

// For each vertex of the mesh, the last LOD whose strip groups use it (0 when unused):
// a vertex survives every root LOD up to that one.
std::vector<int> lastLodUse(const Mesh& mesh, int32_t lodCount) {
  std::vector<int> tags(mesh.vertices.size(), 0);
  size_t lods = std::min(mesh.lods.size(), static_cast<size_t>(std::max(lodCount, 0)));
  for (size_t lod = 0; lod < lods; ++lod) {
    int tag = std::min(static_cast<int>(lod), kMaxLods - 1);
    for (const auto& group : mesh.lods[lod]) {
      for (uint16_t v : group.vertices) {
        if (v < tags.size()) tags[v] = std::max(tags[v], tag);
      }
    }
  }
  return tags;
}

// Vertices kept at each root LOD; slots past the last LOD repeat the last LOD's count.
LodCounts countByLod(const std::vector<int>& tags, int32_t lodCount) {
  LodCounts counts{};
  int used = std::clamp(lodCount, 1, kMaxLods);
  for (int lod = 0; lod < used; ++lod) {
    counts[lod] =
        static_cast<int32_t>(std::count_if(tags.begin(), tags.end(), [&](int t) { return t >= lod; }));
  }
  for (int lod = used; lod < kMaxLods; ++lod) counts[lod] = counts[used - 1];
  return counts;
}

std::vector<int32_t> identityOrder(size_t count) {
  std::vector<int32_t> order(count);
  for (size_t i = 0; i < count; ++i) order[i] = static_cast<int32_t>(i);
  return order;
}

// Stores the vertices used by the coarsest LOD first, as the legacy compiler grouped
// them, and lists fixups that bring them back into mesh order.
void planFixups(VertexPlan& plan, const std::vector<int>& tags) {
  int highest = tags.empty() ? 0 : *std::max_element(tags.begin(), tags.end());
  std::vector<int32_t> storedAt(tags.size());
  for (int tag = highest; tag >= 0; --tag) {
    for (size_t i = 0; i < tags.size(); ++i) {
      if (tags[i] != tag) continue;
      storedAt[i] = static_cast<int32_t>(plan.storedOrder.size());
      plan.storedOrder.push_back(static_cast<int32_t>(i));
    }
  }
  for (size_t i = 0; i < tags.size(); ++i) {
    if (!plan.fixups.empty()) {
      Fixup& last = plan.fixups.back();
      if (last.lod == tags[i] && last.source + last.count == storedAt[i]) {
        ++last.count;
        continue;
      }
    }
    plan.fixups.push_back({tags[i], storedAt[i], 1});
  }
}

}  // namespace

int32_t stripLodCount(const Description& description) {
  if (description.strip.lodCount) return *description.strip.lodCount;
  size_t most = 1;
  for (const auto& part : description.bodyParts) {
    for (const auto& model : part.models) {
      for (const auto& mesh : model.meshes) most = std::max(most, mesh.lods.size());
    }
  }
  return static_cast<int32_t>(most);
}

Result<VertexPlan> planVertices(const Description& description) {
  VertexPlan plan;
  plan.lodCount = stripLodCount(description);
  std::vector<int> tags;
  for (const auto& part : description.bodyParts) {
    plan.models.emplace_back();
    plan.meshes.emplace_back();
    for (const auto& model : part.models) {
      VertexRange modelRange{plan.vertices.size()};
      plan.meshes.back().emplace_back();
      for (const auto& mesh : model.meshes) {
        std::vector<int> meshTags = lastLodUse(mesh, plan.lodCount);
        VertexRange range{plan.vertices.size(), mesh.vertices.size(), countByLod(meshTags, plan.lodCount)};
        for (int lod = 0; lod < kMaxLods; ++lod) plan.lodCounts[lod] += range.lodCounts[lod];
        for (const auto& vertex : mesh.vertices) {
          plan.vertices.push_back(&vertex);
          plan.secondUv = plan.secondUv || vertex.uv2.has_value();
        }
        tags.insert(tags.end(), meshTags.begin(), meshTags.end());
        plan.meshes.back().back().push_back(range);
      }
      modelRange.count = plan.vertices.size() - modelRange.first;
      plan.models.back().push_back(modelRange);
    }
  }

  const auto& options = description.vertexFile;
  switch (options.fixupMode) {
    case FixupMode::None:
      plan.storedOrder = identityOrder(plan.vertices.size());
      break;
    case FixupMode::Auto:
      planFixups(plan, tags);
      break;
    case FixupMode::Explicit:
      plan.storedOrder =
          options.storedOrder.empty() ? identityOrder(plan.vertices.size()) : options.storedOrder;
      for (int32_t index : plan.storedOrder) {
        if (index < 0 || static_cast<size_t>(index) >= plan.vertices.size()) {
          return Error{format("stored vertex order names vertex %d of %zu", index, plan.vertices.size())};
        }
      }
      plan.fixups = options.fixups;
      break;
  }
  return plan;
}

}  // namespace zv::mdlforge
