#pragma once
// The vertex file (.qvd). The converter keeps its own copy of the file with the LOD
// fixups resolved, so that stages index the full LOD 0 vertex set in mesh order.

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/byte_view.h"
#include "base/math.h"
#include "base/result.h"

namespace zv::legacy {

inline constexpr int32_t kVertexFileId = 0x56534449;  // "IDSV"
inline constexpr int32_t kVertexFileVersion = 4;
inline constexpr size_t kVertexFileHeaderSize = 64;
inline constexpr size_t kStudioVertexSize = 48;
inline constexpr size_t kTangentSize = 16;
inline constexpr size_t kFixupSize = 12;

struct VertexFileHeader {
  int32_t id = 0;
  int32_t version = 0;
  int32_t checksum = 0;
  int32_t lodCount = 0;
  std::array<int32_t, 8> lodVertexCounts{};
  int32_t fixupCount = 0;
  int32_t fixupOffset = 0;
  int32_t vertexOffset = 0;
  int32_t tangentOffset = 0;
};

struct VertexFixup {
  int32_t lod = 0;
  int32_t sourceVertex = 0;
  int32_t count = 0;
};

struct StudioVertex {
  std::array<float, 3> weights{};
  std::array<uint8_t, 3> bones{};
  uint8_t boneCount = 0;
  Vector3 position;
  Vector3 normal;
  Vector2 uv;
};

// The header fields, when the file holds a whole header.
std::optional<VertexFileHeader> readVertexFileHeader(ByteView bytes);

// Checks that every range the fixup resolution and the stages will touch lies inside the
// file; the message names the file, the table and the offset.
Status validateVertexFile(const std::string& fileName, ByteView bytes);

// Builds the LOD 0 vertex file from source into destination (at least source's size):
// the header and everything before the vertex array, then every fixup range of LOD 0 or
// more in table order (or the whole arrays when there are no fixups). Returns the number
// of vertices written. The source must have passed validateVertexFile.
int ResolveVertexFixups(ByteView source, std::span<uint8_t> destination);

// The converter's resolved copy of a vertex file, decoded.
class VertexFile {
 public:
  // Copies and resolves a validated vertex file of the right id, version and checksum.
  static VertexFile resolve(ByteView source);

  const VertexFileHeader& header() const { return header_; }
  const std::vector<uint8_t>& image() const { return image_; }  // the resolved copy
  const std::vector<StudioVertex>& vertices() const { return vertices_; }
  std::vector<StudioVertex>& vertices() { return vertices_; }
  bool hasTangents() const { return !tangents_.empty(); }
  const std::vector<Vector4>& tangents() const { return tangents_; }
  // The second texture coordinate set, in the same order as vertices(); empty when none.
  const std::vector<Vector2>& extraUvs() const { return extraUvs_; }

 private:
  VertexFileHeader header_;
  std::vector<uint8_t> image_;
  std::vector<StudioVertex> vertices_;
  std::vector<Vector4> tangents_;
  std::vector<Vector2> extraUvs_;
};

}  // namespace zv::legacy
