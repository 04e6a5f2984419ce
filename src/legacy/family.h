#pragma once
// A legacy model family loaded from memory: the model header file, the strip file and
// the resolved vertex file, checked against each other. File I/O happens elsewhere, so
// tests and fuzzers hand bytes straight in.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/result.h"
#include "legacy/ani.h"
#include "legacy/mdl.h"
#include "legacy/qvd.h"
#include "legacy/vtx.h"

namespace zv::legacy {

struct FamilyFiles {
  std::string mdlPath;
  std::vector<uint8_t> mdl;
  std::string vtxPath;
  std::optional<std::vector<uint8_t>> vtx;  // nothing when the file does not read
  std::string qvdPath;
  std::optional<std::vector<uint8_t>> qvd;
};

struct LegacyModel {
  MdlFile mdl;
  std::optional<VtxFile> strips;        // absent when missing or rejected
  std::optional<VertexFile> vertices;   // the resolved copy; absent when missing or rejected
  std::optional<AnimBlockFile> animBlocks;  // the .ani file; absent when the model has none or it does not read
};

// Loads and validates a family, printing the load messages (wrong strip-file version or
// checksum, wrong vertex-file id, version or checksum). Fails when the model header file
// is broken, the vertex file has a wrong id, or a present file's tables leave it or do
// not match the model; the error text says what and where.
Result<LegacyModel> loadModelFamily(FamilyFiles files);

// The index into the resolved vertices of a strip vertex of a mesh of a sub-model.
inline int64_t resolvedVertexIndex(const SubModel& model, const Mesh& mesh, const StripVertex& vertex) {
  return int64_t(mesh.vertexOffset) + model.vertexIndex / 48 + vertex.meshVertex;
}

}  // namespace zv::legacy
