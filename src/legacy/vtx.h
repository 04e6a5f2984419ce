#pragma once
// The strip file (.dx90.vtx): per body part, sub-model, LOD and mesh, strip groups of
// strip vertices, indices and strips. Two record layouts share version 7: one with
// topology fields (33-byte groups, 35-byte strips) and an older one without (25, 27).
// The layout is decided per file; callers see one decoded tree.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "base/byte_view.h"
#include "base/result.h"

namespace zv::legacy {

inline constexpr int32_t kStripFileVersion = 7;
inline constexpr size_t kStripFileHeaderSize = 36;

enum class StripLayout { WithoutTopology, WithTopology };  // 25/27 and 33/35 bytes

struct StripVertex {
  std::array<uint8_t, 3> boneWeightIndex{};
  uint8_t boneCount = 0;
  uint16_t meshVertex = 0;  // index into the mesh's vertices
  std::array<int8_t, 3> boneId{};
};

struct Strip {
  int32_t indexCount = 0;
  int32_t indexOffset = 0;  // first index, counted in indices of the group's index array
  int32_t vertexCount = 0;
  int32_t vertexOffset = 0;
  int16_t boneCount = 0;
  uint8_t flags = 0;
};

struct StripGroup {
  std::vector<StripVertex> vertices;
  std::vector<uint16_t> indices;  // into vertices
  std::vector<Strip> strips;
  uint8_t flags = 0;
};

struct StripMesh {
  std::vector<StripGroup> stripGroups;
  uint8_t flags = 0;
};

struct StripModelLod {
  std::vector<StripMesh> meshes;
  float switchPoint = 0;
};

struct StripModel {
  std::vector<StripModelLod> lods;
};

struct StripBodyPart {
  std::vector<StripModel> models;
};

struct MaterialReplacement {
  int16_t material = 0;
  std::string name;
};

struct StripFileHeader {
  int32_t version = 0;
  int32_t checksum = 0;
};

// The version and checksum fields, when the file is long enough to hold them.
std::optional<StripFileHeader> peekStripFileHeader(ByteView bytes);

class VtxFile {
 public:
  // Decodes the tree, deciding the record layout; modelVersion breaks a tie.
  static Result<VtxFile> parse(const std::string& fileName, ByteView bytes, int32_t modelVersion);

  int32_t version = 0;
  int32_t vertexCacheSize = 0;
  uint16_t maxBonesPerStrip = 0;
  uint16_t maxBonesPerTriangle = 0;
  int32_t maxBonesPerVertex = 0;
  int32_t checksum = 0;
  int32_t lodCount = 0;
  std::vector<std::vector<MaterialReplacement>> materialReplacements;  // one list per LOD
  std::vector<StripBodyPart> bodyParts;
  StripLayout layout = StripLayout::WithoutTopology;
};

}  // namespace zv::legacy
