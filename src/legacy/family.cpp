#include "legacy/family.h"

#include "base/log.h"
#include "base/strings.h"

namespace zv::legacy {
namespace {

// The strip file if it is of the right version and belongs to the model; a rejected
// one is reported and treated as absent.
bool acceptStripFile(const FamilyFiles& files, const MdlFile& mdl) {
  if (!files.vtx) return false;
  auto header = peekStripFileHeader(ByteView(*files.vtx));
  int32_t version = header ? header->version : 0;
  if (version != kStripFileVersion) {
    warning("Error! Invalid VTX file version: %d, expected %d \"%s\"\n", version, kStripFileVersion, files.vtxPath.c_str());
    return false;
  }
  if (header->checksum != mdl.header.checksum) {
    warning("Error! Invalid VTX file checksum: %ld, expected %d \"%s\"\n", long(header->checksum), mdl.header.checksum,
            files.vtxPath.c_str());
    return false;
  }
  return true;
}

enum class VertexFileVerdict { Absent, Accepted, WrongId };

VertexFileVerdict judgeVertexFile(const FamilyFiles& files, const MdlFile& mdl) {
  if (!files.qvd || files.qvd->empty()) return VertexFileVerdict::Absent;
  ByteView bytes(*files.qvd);
  int32_t id = bytes.readOr<int32_t>(0, 0);
  if (id != kVertexFileId) {
    warning("Error Vertex File %s id %d should be %d\n", files.qvdPath.c_str(), id, kVertexFileId);
    return VertexFileVerdict::WrongId;
  }
  int32_t version = bytes.readOr<int32_t>(4, 0);
  if (version != kVertexFileVersion) {
    warning("Error! Invalid QVD file version: %d, expected %d \"%s\"\n", version, kVertexFileVersion, files.qvdPath.c_str());
    return VertexFileVerdict::Absent;
  }
  int32_t checksum = bytes.readOr<int32_t>(8, 0);
  if (checksum != mdl.header.checksum) {
    warning("Error! Invalid QVD file checksum: %ld, expected %d \"%s\"\n", long(checksum), mdl.header.checksum,
            files.qvdPath.c_str());
    return VertexFileVerdict::Absent;
  }
  return VertexFileVerdict::Accepted;
}

// The strip file must run parallel to the model's body parts, sub-models, LODs and
// meshes, and every strip vertex must name a vertex that exists.
Status checkStripsAgainstModel(const std::string& vtxPath, const MdlFile& mdl, const VtxFile& vtx,
                               const VertexFile* vertices) {
  auto fail = [&](std::string what) { return Status(Error{vtxPath + ": " + what}); };
  for (size_t b = 0; b < mdl.bodyParts.size(); ++b) {
    const BodyPart& part = mdl.bodyParts[b];
    if (part.models.empty()) continue;
    if (b >= vtx.bodyParts.size()) return fail(format("has %zu body parts, the model has %zu", vtx.bodyParts.size(), mdl.bodyParts.size()));
    for (size_t m = 0; m < part.models.size(); ++m) {
      const SubModel& model = part.models[m];
      if (m >= vtx.bodyParts[b].models.size()) {
        return fail(format("bodypart[%zu] has %zu models, the model has %zu", b, vtx.bodyParts[b].models.size(), part.models.size()));
      }
      const StripModel& strips = vtx.bodyParts[b].models[m];
      if (strips.lods.size() < size_t(vtx.lodCount)) {
        return fail(format("bodypart[%zu].model[%zu] has %zu LODs, the file has %d", b, m, strips.lods.size(), vtx.lodCount));
      }
      if (model.vertexIndex < 0) return fail(format("model bodypart[%zu].model[%zu] has a negative vertex index %d", b, m, model.vertexIndex));
      for (size_t l = 0; l < size_t(vtx.lodCount); ++l) {
        if (strips.lods[l].meshes.size() < model.meshes.size()) {
          return fail(format("bodypart[%zu].model[%zu].lod[%zu] has %zu meshes, the model has %zu", b, m, l,
                             strips.lods[l].meshes.size(), model.meshes.size()));
        }
        if (!vertices) continue;
        for (size_t k = 0; k < model.meshes.size(); ++k) {
          for (const StripGroup& group : strips.lods[l].meshes[k].stripGroups) {
            for (const StripVertex& v : group.vertices) {
              int64_t index = resolvedVertexIndex(model, model.meshes[k], v);
              if (index < 0 || index >= int64_t(vertices->vertices().size())) {
                return fail(format("bodypart[%zu].model[%zu].lod[%zu].mesh[%zu] names vertex %lld of %zu", b, m, l, k,
                                   static_cast<long long>(index), vertices->vertices().size()));
              }
            }
          }
        }
      }
    }
  }
  return Status::success();
}

}  // namespace

Result<LegacyModel> loadModelFamily(FamilyFiles files) {
  auto mdl = MdlFile::parse(files.mdlPath, std::move(files.mdl));
  if (!mdl) return mdl.error();
  for (const std::string& note : mdl->notes) warning("%s\n", note.c_str());
  LegacyModel model{std::move(mdl.value()), std::nullopt, std::nullopt, std::nullopt};

  if (acceptStripFile(files, model.mdl)) {
    auto vtx = VtxFile::parse(files.vtxPath, ByteView(*files.vtx), model.mdl.header.version);
    if (!vtx) return vtx.error();
    model.strips = std::move(vtx.value());
  }

  switch (judgeVertexFile(files, model.mdl)) {
    case VertexFileVerdict::WrongId:
      return Error{format("%s: the vertex file has a wrong id", files.qvdPath.c_str())};
    case VertexFileVerdict::Accepted: {
      ByteView bytes(*files.qvd);
      if (Status valid = validateVertexFile(files.qvdPath, bytes); !valid) return valid.error();
      model.vertices = VertexFile::resolve(bytes);
      break;
    }
    case VertexFileVerdict::Absent:
      break;
  }

  if (model.strips) {
    Status match = checkStripsAgainstModel(files.vtxPath, model.mdl, *model.strips,
                                           model.vertices ? &*model.vertices : nullptr);
    if (!match) return match.error();
  }
  return model;
}

}  // namespace zv::legacy
