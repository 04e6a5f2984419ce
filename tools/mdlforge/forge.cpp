#include "mdlforge/forge.h"

#include <stdexcept>

#include "base/strings.h"
#include "mdlforge/anim_encoder.h"
#include "mdlforge/vertex_plan.h"
#include "mdlforge/writers.h"

namespace zv::mdlforge {
namespace {

constexpr size_t kFixedNameLimit = 63;  // char[64] fields keep their NUL

Status checkFixedName(std::string_view what, const std::string& text) {
  if (text.size() <= kFixedNameLimit) return {};
  return Error{format("%.*s \"%s\" is longer than %zu characters", static_cast<int>(what.size()), what.data(),
                      text.c_str(), kFixedNameLimit)};
}

// Tracks whose records outgrow their 16-bit offsets cannot be written.
Status checkTracks(const Animation& anim) {
  if (!anim.tracks) return {};
  std::vector<std::pair<int32_t, int32_t>> ranges = anim.framesPerSection > 0
                                                        ? sectionFrames(anim.frames, anim.framesPerSection)
                                                        : std::vector<std::pair<int32_t, int32_t>>{{0, anim.frames - 1}};
  for (auto [first, last] : ranges) {
    auto encoded = encodeTracks(*anim.tracks, first, last);
    if (!encoded) return Error{format("animation \"%s\": %s", anim.name.c_str(), encoded.message().c_str())};
  }
  return {};
}

// What cannot be written at all; everything else is written as given.
Status check(const Description& d) {
  if (auto s = checkFixedName("model name", d.name); !s) return s;
  for (const auto& part : d.bodyParts) {
    for (const auto& model : part.models) {
      if (auto s = checkFixedName("sub-model name", model.name); !s) return s;
    }
  }
  for (const auto& sequence : d.sequences) {
    for (const auto& event : sequence.events) {
      if (auto s = checkFixedName("event options", event.options); !s) return s;
    }
  }
  for (const auto& anim : d.animations) {
    if (int(bool(anim.data)) + int(!anim.sections.empty()) + int(bool(anim.tracks)) > 1) {
      return Error{format("animation \"%s\" has more than one of data, sections and tracks", anim.name.c_str())};
    }
    if (auto s = checkTracks(anim); !s) return s;
  }
  if (static_cast<int64_t>(d.strip.replacements.size()) > std::max<int64_t>(stripLodCount(d), 0)) {
    return Error{format("material replacements are given for %zu LODs, the strip file has %d",
                        d.strip.replacements.size(), stripLodCount(d))};
  }
  return {};
}

}  // namespace

size_t OffsetMap::at(std::string_view key) const {
  auto found = offsets_.find(key);
  if (found == offsets_.end()) throw std::out_of_range("nothing was placed at \"" + std::string(key) + "\"");
  return found->second;
}

std::string placeKey(std::string_view name, const std::vector<size_t>& indices) {
  std::string key(name);
  for (size_t index : indices) key += "[" + std::to_string(index) + "]";
  return key;
}

std::string placeKey(std::string_view name, std::initializer_list<size_t> indices) {
  return placeKey(name, std::vector<size_t>(indices));
}

StripGroup triangleGroup(size_t vertexCount, std::vector<uint16_t> corners) {
  StripGroup group;
  for (size_t i = 0; i < vertexCount; ++i) group.vertices.push_back(static_cast<uint16_t>(i));
  group.strips.push_back({std::move(corners)});
  return group;
}

Result<ModelFiles> build(const Description& description) {
  if (auto status = check(description); !status) return status.error();
  auto plan = planVertices(description);
  if (!plan) return plan.error();

  ModelFiles files;
  WrittenModel model = writeModelFile(description, *plan);
  files.mdl = std::move(model.mdl.bytes);
  files.where.mdl = std::move(model.mdl.where);
  if (model.ani) {
    files.ani = std::move(model.ani->bytes);
    files.where.ani = std::move(model.ani->where);
  }
  if (description.vertexFile.write) {
    WrittenFile qvd = writeVertexFile(description, *plan);
    files.qvd = std::move(qvd.bytes);
    files.where.qvd = std::move(qvd.where);
  }
  if (description.strip.write) {
    WrittenFile vtx = writeStripFile(description, *plan);
    files.vtx = std::move(vtx.bytes);
    files.where.vtx = std::move(vtx.where);
  }
  return files;
}

}  // namespace zv::mdlforge
