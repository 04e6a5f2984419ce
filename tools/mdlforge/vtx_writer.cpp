// The strip file. Like the legacy compiler, it writes the hierarchy level by level (all
// body parts, then all models, LODs, meshes, strip groups, strips, strip vertices and
// indices), so each level is one contiguous run of packed records; material replacement
// lists and their strings come last.

#include <set>
#include <vector>

#include "mdlforge/byte_writer.h"
#include "mdlforge/writers.h"

namespace zv::mdlforge {
namespace {

// A record of one level, with the offset field that its children fill in.
struct Node {
  std::vector<size_t> path;  // body part, model, LOD, mesh, strip group indices
  PendingOffset children;
};

std::vector<size_t> extend(const std::vector<size_t>& path, size_t index) {
  std::vector<size_t> out = path;
  out.push_back(index);
  return out;
}

float switchPoint(const StripFileOptions& options, size_t lod) {
  if (lod < options.switchPoints.size()) return options.switchPoints[lod];
  return 10.0f * static_cast<float>(lod);
}

class StripWriter {
 public:
  StripWriter(const Description& d, const VertexPlan& plan)
      : d_(d), options_(d.strip), lodCount_(plan.lodCount), extended_(usesExtendedLayout()) {}

  WrittenFile write() {
    w_.i32(options_.version);
    w_.i32(options_.vertexCacheSize);
    w_.u16(options_.maxBonesPerStrip);
    w_.u16(options_.maxBonesPerTriangle);
    w_.i32(options_.maxBonesPerVertex);
    w_.i32(options_.checksum.value_or(d_.checksum));
    w_.i32(lodCount_);
    size_t replacementField = w_.reserveI32();
    w_.i32(static_cast<int32_t>(d_.bodyParts.size()));
    Node root{{}, {w_.reserveI32(), 0}};

    auto nothing = [](const Node&) {};
    std::vector<Node> parts = level(
        {root}, "bodypart", [&](const Node&) { return d_.bodyParts.size(); },
        [&](const Node& n) { w_.i32(static_cast<int32_t>(part(n).models.size())); }, nothing);
    std::vector<Node> models = level(
        parts, "model", [&](const Node& n) { return part(n).models.size(); },
        [&](const Node&) { w_.i32(lodCount_); }, nothing);
    std::vector<Node> lods = level(
        models, "lod", [&](const Node&) { return static_cast<size_t>(std::max(lodCount_, 0)); },
        [&](const Node& n) { w_.i32(static_cast<int32_t>(model(n).meshes.size())); },
        [&](const Node& n) { w_.f32(switchPoint(options_, n.path[2])); });
    std::vector<Node> meshes = level(
        lods, "mesh", [&](const Node& n) { return model(n).meshes.size(); },
        [&](const Node& n) { w_.i32(static_cast<int32_t>(groups(n).size())); },
        [&](const Node& n) { w_.u8(mesh(n).stripFlags); });
    writeGroups(meshes);
    writeReplacements(replacementField);
    pool_.flush(w_);
    return {w_.take(), std::move(where_)};
  }

 private:
  bool usesExtendedLayout() const {
    switch (options_.layout) {
      case StripLayout::Short:
        return false;
      case StripLayout::Extended:
        return true;
      case StripLayout::Auto:
        break;
    }
    return d_.version >= 49;
  }

  const BodyPart& part(const Node& n) const { return d_.bodyParts[n.path[0]]; }
  const SubModel& model(const Node& n) const { return part(n).models[n.path[1]]; }
  const Mesh& mesh(const Node& n) const { return model(n).meshes[n.path[3]]; }
  const std::vector<StripGroup>& groups(const Node& n) const {
    static const std::vector<StripGroup> kNone;
    const Mesh& m = mesh(n);
    return n.path[2] < m.lods.size() ? m.lods[n.path[2]] : kNone;
  }

  // Writes the children of every parent, parent after parent. Each child record is its
  // leading fields, the offset field to its own children, then its trailing fields.
  template <class Count, class Leading, class Trailing>
  std::vector<Node> level(const std::vector<Node>& parents, const char* name, Count count, Leading leading,
                          Trailing trailing) {
    std::vector<Node> children;
    for (const Node& parent : parents) {
      w_.patchOffsetHere(parent.children.field, parent.children.base);
      size_t n = count(parent);
      for (size_t i = 0; i < n; ++i) {
        Node child{extend(parent.path, i), {}};
        size_t start = w_.size();
        where_.set(placeKey(name, child.path), start);
        leading(child);
        child.children = {w_.reserveI32(), start};
        trailing(child);
        children.push_back(std::move(child));
      }
    }
    return children;
  }

  void writeGroups(const std::vector<Node>& meshes) {
    struct Group {
      std::vector<size_t> path;
      const Mesh* mesh;
      const StripGroup* group;
      size_t start, vertices, indices, strips;
    };
    std::vector<Group> all;
    for (const Node& meshNode : meshes) {
      w_.patchOffsetHere(meshNode.children.field, meshNode.children.base);
      const auto& list = groups(meshNode);
      for (size_t g = 0; g < list.size(); ++g) {
        const StripGroup& group = list[g];
        Group out{extend(meshNode.path, g), &mesh(meshNode), &group, w_.size(), 0, 0, 0};
        where_.set(placeKey("stripgroup", out.path), out.start);
        w_.i32(static_cast<int32_t>(group.vertices.size()));
        out.vertices = w_.reserveI32();
        w_.i32(static_cast<int32_t>(indexCount(group)));
        out.indices = w_.reserveI32();
        w_.i32(static_cast<int32_t>(group.strips.size()));
        out.strips = w_.reserveI32();
        w_.u8(group.flags);
        if (extended_) w_.zeros(8);  // topology: none
        all.push_back(std::move(out));
      }
    }
    for (const Group& g : all) {
      w_.patchOffsetHere(g.strips, g.start);
      writeStrips(g.path, *g.mesh, *g.group);
    }
    for (const Group& g : all) {
      where_.set(placeKey("vertices", g.path), w_.size());
      w_.patchOffsetHere(g.vertices, g.start);
      for (uint16_t v : g.group->vertices) writeStripVertex(*g.mesh, v);
    }
    for (const Group& g : all) {
      where_.set(placeKey("indices", g.path), w_.size());
      w_.patchOffsetHere(g.indices, g.start);
      for (const Strip& strip : g.group->strips) {
        for (uint16_t index : strip.indices) w_.u16(index);
      }
    }
  }

  static size_t indexCount(const StripGroup& group) {
    size_t count = 0;
    for (const Strip& strip : group.strips) count += strip.indices.size();
    return count;
  }

  void writeStrips(const std::vector<size_t>& groupPath, const Mesh& m, const StripGroup& group) {
    size_t firstIndex = 0;
    for (size_t s = 0; s < group.strips.size(); ++s) {
      const Strip& strip = group.strips[s];
      where_.set(placeKey("strip", extend(groupPath, s)), w_.size());
      w_.i32(static_cast<int32_t>(strip.indices.size()));
      w_.i32(static_cast<int32_t>(firstIndex));
      w_.i32(static_cast<int32_t>(group.vertices.size()));
      w_.i32(0);  // first vertex
      w_.i16(static_cast<int16_t>(bonesUsed(m, group)));
      w_.u8(strip.flags);
      w_.i32(0);  // bone state changes: none
      w_.i32(0);
      if (extended_) w_.zeros(8);  // topology: none
      firstIndex += strip.indices.size();
    }
  }

  static size_t bonesUsed(const Mesh& m, const StripGroup& group) {
    std::set<uint8_t> bones;
    for (uint16_t v : group.vertices) {
      if (v >= m.vertices.size()) continue;
      const Vertex& vertex = m.vertices[v];
      for (size_t i = 0; i < vertex.bones.size() && i < vertex.boneCount; ++i) bones.insert(vertex.bones[i]);
    }
    return bones.size();
  }

  void writeStripVertex(const Mesh& m, uint16_t v) {
    Vertex vertex = v < m.vertices.size() ? m.vertices[v] : Vertex{};
    for (uint8_t i = 0; i < 3; ++i) w_.u8(i);  // weight slot of each bone
    w_.u8(vertex.boneCount);
    w_.u16(v);
    for (size_t i = 0; i < 3; ++i) w_.u8(i < vertex.boneCount ? vertex.bones[i] : 0);
  }

  void writeReplacements(size_t listField) {
    where_.set("replacements", w_.size());
    w_.patchOffsetHere(listField, 0);
    std::vector<PendingOffset> lists;
    for (int32_t lod = 0; lod < lodCount_; ++lod) {
      size_t start = w_.size();
      w_.i32(static_cast<int32_t>(replacementsOf(lod).size()));
      lists.push_back({w_.reserveI32(), start});
    }
    for (int32_t lod = 0; lod < lodCount_; ++lod) {
      w_.patchOffsetHere(lists[static_cast<size_t>(lod)].field, lists[static_cast<size_t>(lod)].base);
      const auto& list = replacementsOf(lod);
      for (size_t r = 0; r < list.size(); ++r) {
        size_t start = w_.size();
        where_.set(placeKey("replacement", {static_cast<size_t>(lod), r}), start);
        w_.i16(list[r].material);
        pool_.reference(w_, start, list[r].name);
      }
    }
  }

  const std::vector<MaterialReplacement>& replacementsOf(int32_t lod) const {
    static const std::vector<MaterialReplacement> kNone;
    size_t index = static_cast<size_t>(lod);
    return index < options_.replacements.size() ? options_.replacements[index] : kNone;
  }

  const Description& d_;
  const StripFileOptions& options_;
  int32_t lodCount_;
  bool extended_;
  ByteWriter w_;
  StringPool pool_;
  OffsetMap where_;
};

}  // namespace

WrittenFile writeStripFile(const Description& description, const VertexPlan& plan) {
  return StripWriter(description, plan).write();
}

}  // namespace zv::mdlforge
