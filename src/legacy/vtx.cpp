#include "legacy/vtx.h"

#include <algorithm>

#include "base/strings.h"
#include "legacy/record_reader.h"

namespace zv::legacy {
namespace {

constexpr size_t kBodyPartSize = 8;
constexpr size_t kModelSize = 8;
constexpr size_t kModelLodSize = 12;
constexpr size_t kMeshSize = 9;
constexpr size_t kStripVertexSize = 9;
constexpr size_t kReplacementListSize = 8;
constexpr size_t kReplacementSize = 6;

size_t groupSize(StripLayout layout) { return layout == StripLayout::WithTopology ? 33 : 25; }
size_t stripSize(StripLayout layout) { return layout == StripLayout::WithTopology ? 35 : 27; }

struct Range {
  size_t start, end;
};

// One reading of the file under one layout. Besides the tree it keeps where the group
// and strip arrays lie, which tells a right reading from a wrong one.
class VtxReading {
 public:
  VtxReading(const std::string& fileName, ByteView bytes, StripLayout layout)
      : r_(fileName, bytes), layout_(layout) {}

  bool run(VtxFile& out) {
    out.layout = layout_;
    auto h = r_.record(0, kStripFileHeaderSize, "strip file header");
    if (!h) return false;
    out.version = h->i32(0);
    out.vertexCacheSize = h->i32(4);
    out.maxBonesPerStrip = h->get<uint16_t>(8);
    out.maxBonesPerTriangle = h->get<uint16_t>(10);
    out.maxBonesPerVertex = h->i32(12);
    out.checksum = h->i32(16);
    out.lodCount = h->i32(20);
    if (out.lodCount < 0 || out.lodCount > 8) return r_.fail(format("LOD count %d is outside 0..8", out.lodCount)), false;
    readReplacements(*h, out);
    auto parts = r_.table(0, h->i32(32), h->i32(28), kBodyPartSize, "strip body part table");
    for (size_t i = 0; parts && i < parts->count && !r_.failed(); ++i) {
      out.bodyParts.push_back(readBodyPart(*r_.record(parts->at(i), kBodyPartSize, "strip body part"), i));
    }
    if (!r_.failed()) checkArraysDoNotOverlap();
    return !r_.failed();
  }

  const std::string& error() const { return r_.error(); }

  // How many record arrays start exactly where another ends: the compiler packs them.
  size_t adjacency() const {
    std::vector<Range> sorted = arrays_;
    std::sort(sorted.begin(), sorted.end(), [](const Range& a, const Range& b) { return a.start < b.start; });
    size_t hits = 0;
    for (size_t i = 1; i < sorted.size(); ++i) hits += sorted[i].start == sorted[i - 1].end;
    return hits;
  }

 private:
  void readReplacements(const Record& h, VtxFile& out) {
    if (h.i32(24) == 0) return;
    auto lists = r_.table(0, h.i32(24), out.lodCount, kReplacementListSize, "material replacement lists");
    for (size_t l = 0; lists && l < lists->count && !r_.failed(); ++l) {
      Record list = *r_.record(lists->at(l), kReplacementListSize, "material replacement list");
      std::string where = format("replacement list[%zu]", l);
      std::vector<MaterialReplacement> replacements;
      auto items = r_.table(list.position(), list.i32(4), list.i32(0), kReplacementSize, where);
      for (size_t k = 0; items && k < items->count && !r_.failed(); ++k) {
        Record item = *r_.record(items->at(k), kReplacementSize, "material replacement");
        replacements.push_back({item.get<int16_t>(0),
                                r_.string(item.position(), item.i32(2), where + format("[%zu].name", k)).value_or("")});
      }
      out.materialReplacements.push_back(std::move(replacements));
    }
  }

  StripBodyPart readBodyPart(const Record& p, size_t index) {
    StripBodyPart part;
    std::string where = format("strip bodypart[%zu]", index);
    auto models = r_.table(p.position(), p.i32(4), p.i32(0), kModelSize, where + ".model table");
    for (size_t m = 0; models && m < models->count && !r_.failed(); ++m) {
      Record model = *r_.record(models->at(m), kModelSize, "strip model");
      std::string modelWhere = where + format(".model[%zu]", m);
      StripModel out;
      auto lods = r_.table(model.position(), model.i32(4), model.i32(0), kModelLodSize, modelWhere + ".LOD table");
      for (size_t l = 0; lods && l < lods->count && !r_.failed(); ++l) {
        out.lods.push_back(readLod(*r_.record(lods->at(l), kModelLodSize, "strip model LOD"),
                                   modelWhere + format(".lod[%zu]", l)));
      }
      part.models.push_back(std::move(out));
    }
    return part;
  }

  StripModelLod readLod(const Record& lod, const std::string& where) {
    StripModelLod out;
    out.switchPoint = lod.f32(8);
    auto meshes = r_.table(lod.position(), lod.i32(4), lod.i32(0), kMeshSize, where + ".mesh table");
    for (size_t k = 0; meshes && k < meshes->count && !r_.failed(); ++k) {
      Record mesh = *r_.record(meshes->at(k), kMeshSize, "strip mesh");
      std::string meshWhere = where + format(".mesh[%zu]", k);
      StripMesh m;
      m.flags = mesh.get<uint8_t>(8);
      auto groups = r_.table(mesh.position(), mesh.i32(4), mesh.i32(0), groupSize(layout_), meshWhere + ".strip group table");
      if (groups && groups->count) arrays_.push_back({groups->start, groups->start + groups->count * groups->stride});
      for (size_t g = 0; groups && g < groups->count && !r_.failed(); ++g) {
        m.stripGroups.push_back(readGroup(*r_.record(groups->at(g), groupSize(layout_), "strip group"),
                                          meshWhere + format(".stripgroup[%zu]", g)));
      }
      out.meshes.push_back(std::move(m));
    }
    return out;
  }

  StripGroup readGroup(const Record& g, const std::string& where) {
    StripGroup group;
    group.flags = g.get<uint8_t>(24);
    auto verts = r_.table(g.position(), g.i32(4), g.i32(0), kStripVertexSize, where + ".vertex table");
    for (size_t v = 0; verts && v < verts->count; ++v) {
      Record sv = *r_.record(verts->at(v), kStripVertexSize, "strip vertex");
      group.vertices.push_back({{sv.get<uint8_t>(0), sv.get<uint8_t>(1), sv.get<uint8_t>(2)},
                                sv.get<uint8_t>(3),
                                sv.get<uint16_t>(4),
                                {sv.get<int8_t>(6), sv.get<int8_t>(7), sv.get<int8_t>(8)}});
    }
    auto indices = r_.table(g.position(), g.i32(12), g.i32(8), 2, where + ".index table");
    for (size_t i = 0; indices && i < indices->count && !r_.failed(); ++i) {
      uint16_t index = r_.record(indices->at(i), 2, "index")->get<uint16_t>(0);
      if (index >= group.vertices.size()) {
        r_.fail(format("%s: index[%zu] = %u is past the group's %zu vertices", where.c_str(), i, index,
                       group.vertices.size()));
      }
      group.indices.push_back(index);
    }
    auto strips = r_.table(g.position(), g.i32(20), g.i32(16), stripSize(layout_), where + ".strip table");
    if (strips && strips->count) arrays_.push_back({strips->start, strips->start + strips->count * strips->stride});
    for (size_t s = 0; strips && s < strips->count && !r_.failed(); ++s) {
      group.strips.push_back(readStrip(*r_.record(strips->at(s), stripSize(layout_), "strip"), group,
                                       where + format(".strip[%zu]", s)));
    }
    return group;
  }

  Strip readStrip(const Record& s, const StripGroup& group, const std::string& where) {
    Strip strip{s.i32(0), s.i32(4), s.i32(8), s.i32(12), s.get<int16_t>(16), s.get<uint8_t>(18)};
    auto inside = [](int64_t offset, int64_t count, size_t limit) {
      return offset >= 0 && count >= 0 && offset + count <= int64_t(limit);
    };
    if (!inside(strip.indexOffset, strip.indexCount, group.indices.size())) {
      r_.fail(format("%s at offset %zu: indices %d..%d+%d lie outside the group's %zu indices", where.c_str(),
                     s.position(), strip.indexOffset, strip.indexOffset, strip.indexCount, group.indices.size()));
    } else if (!inside(strip.vertexOffset, strip.vertexCount, group.vertices.size())) {
      r_.fail(format("%s at offset %zu: vertices %d..%d+%d lie outside the group's %zu vertices", where.c_str(),
                     s.position(), strip.vertexOffset, strip.vertexOffset, strip.vertexCount, group.vertices.size()));
    }
    return strip;
  }

  void checkArraysDoNotOverlap() {
    std::vector<Range> sorted = arrays_;
    std::sort(sorted.begin(), sorted.end(), [](const Range& a, const Range& b) { return a.start < b.start; });
    for (size_t i = 1; i < sorted.size(); ++i) {
      if (sorted[i].start < sorted[i - 1].end) {
        r_.fail(format("strip records at offsets %zu and %zu overlap", sorted[i - 1].start, sorted[i].start));
        return;
      }
    }
  }

  RecordReader r_;
  StripLayout layout_;
  std::vector<Range> arrays_;
};

}  // namespace

std::optional<StripFileHeader> peekStripFileHeader(ByteView bytes) {
  auto version = bytes.read<int32_t>(0);
  auto checksum = bytes.read<int32_t>(16);
  if (!version || !checksum) return std::nullopt;
  return StripFileHeader{*version, *checksum};
}

Result<VtxFile> VtxFile::parse(const std::string& fileName, ByteView bytes, int32_t modelVersion) {
  // Both layouts are read; a reading that leaves the file, puts strips outside their
  // group, indexes past its vertices or overlaps records is wrong. When both survive,
  // the one whose records pack the file wins; a tie goes to the layout the model
  // version usually has.
  StripLayout preferred = modelVersion >= 49 ? StripLayout::WithTopology : StripLayout::WithoutTopology;
  StripLayout other = preferred == StripLayout::WithTopology ? StripLayout::WithoutTopology : StripLayout::WithTopology;
  VtxFile first, second;
  VtxReading a(fileName, bytes, preferred), b(fileName, bytes, other);
  bool aOk = a.run(first);
  bool bOk = b.run(second);
  if (aOk && bOk) return b.adjacency() > a.adjacency() ? std::move(second) : std::move(first);
  if (aOk) return first;
  if (bOk) return second;
  return Error{a.error()};
}

}  // namespace zv::legacy
