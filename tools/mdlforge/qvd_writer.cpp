// The vertex file: a 64-byte header, the fixup table, the vertices and tangents in their
// stored order, and the extra-data table of a second texture coordinate when one is given.

#include "mdlforge/byte_writer.h"
#include "mdlforge/writers.h"

namespace zv::mdlforge {
namespace {

constexpr size_t kVertexAlignment = 16;
constexpr int32_t kSecondUvType = 1;
constexpr int32_t kExtraHeaderSize = 8;
constexpr int32_t kExtraEntrySize = 12;
constexpr int32_t kUvBytes = 8;

void writeVertex(ByteWriter& w, const Vertex& v) {
  for (float weight : v.weights) w.f32(weight);
  for (uint8_t bone : v.bones) w.u8(bone);
  w.u8(v.boneCount);
  w.vec3(v.position);
  w.vec3(v.normal);
  w.vec2(v.uv);
}

}  // namespace

WrittenFile writeVertexFile(const Description& description, const VertexPlan& plan) {
  const VertexFileOptions& options = description.vertexFile;
  ByteWriter w;
  OffsetMap where;
  w.i32(options.id);
  w.i32(options.version);
  w.i32(options.checksum.value_or(description.checksum));
  w.i32(options.lodCount.value_or(plan.lodCount));
  for (int32_t count : plan.lodCounts) w.i32(count);
  w.i32(static_cast<int32_t>(plan.fixups.size()));
  size_t fixupField = w.reserveI32();
  size_t vertexField = w.reserveI32();
  size_t tangentField = w.reserveI32();

  where.set("fixups", w.size());
  w.patchOffsetHere(fixupField, 0);
  for (const Fixup& fixup : plan.fixups) {
    w.i32(fixup.lod);
    w.i32(fixup.source);
    w.i32(fixup.count);
  }

  w.alignTo(kVertexAlignment);
  where.set("vertices", w.size());
  w.patchOffsetHere(vertexField, 0);
  for (int32_t index : plan.storedOrder) writeVertex(w, *plan.vertices[static_cast<size_t>(index)]);

  if (options.tangents) {
    where.set("tangents", w.size());
    w.patchOffsetHere(tangentField, 0);
    for (int32_t index : plan.storedOrder) w.vec4(plan.vertices[static_cast<size_t>(index)]->tangent);
  }

  if (plan.secondUv) {
    // One entry: type, offset from the table start, bytes per vertex; the data follows.
    size_t count = plan.storedOrder.size();
    where.set("extra", w.size());
    w.i32(1);
    w.i32(static_cast<int32_t>(kExtraHeaderSize + kExtraEntrySize + kUvBytes * count));
    w.i32(kSecondUvType);
    w.i32(kExtraHeaderSize + kExtraEntrySize);
    w.i32(kUvBytes);
    for (int32_t index : plan.storedOrder)
      w.vec2(plan.vertices[static_cast<size_t>(index)]->uv2.value_or(Vector2{}));
  }
  return {w.take(), std::move(where)};
}

}  // namespace zv::mdlforge
