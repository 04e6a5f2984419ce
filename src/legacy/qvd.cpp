#include "legacy/qvd.h"

#include <cstring>

#include "base/strings.h"
#include "legacy/record_reader.h"

namespace zv::legacy {
namespace {

constexpr int32_t kExtraUvType = 1;
constexpr size_t kExtraEntrySize = 12;
constexpr int32_t kMaxExtraEntries = 64;

std::vector<VertexFixup> readFixups(ByteView bytes, const VertexFileHeader& h) {
  std::vector<VertexFixup> fixups;
  for (int32_t i = 0; i < h.fixupCount; ++i) {
    size_t at = size_t(h.fixupOffset) + kFixupSize * size_t(i);
    fixups.push_back({bytes.readOr<int32_t>(at, 0), bytes.readOr<int32_t>(at + 4, 0), bytes.readOr<int32_t>(at + 8, 0)});
  }
  return fixups;
}

StudioVertex decodeVertex(const uint8_t* p) {
  StudioVertex v;
  for (size_t k = 0; k < 3; ++k) v.weights[k] = ByteView::load<float>(p + 4 * k);
  for (size_t k = 0; k < 3; ++k) v.bones[k] = p[12 + k];
  v.boneCount = p[15];
  v.position = {ByteView::load<float>(p + 16), ByteView::load<float>(p + 20), ByteView::load<float>(p + 24)};
  v.normal = {ByteView::load<float>(p + 28), ByteView::load<float>(p + 32), ByteView::load<float>(p + 36)};
  v.uv = {ByteView::load<float>(p + 40), ByteView::load<float>(p + 44)};
  return v;
}

// The source ranges [first, first + count) that make up the resolved order.
std::vector<std::pair<size_t, size_t>> resolvedRanges(const VertexFileHeader& h, ByteView bytes) {
  size_t total = size_t(std::max(h.lodVertexCounts[0], 0));
  if (h.fixupCount == 0) return {{0, total}};
  // A negative count walks no fixups, so nothing is appended.
  std::vector<std::pair<size_t, size_t>> ranges;
  for (const VertexFixup& f : readFixups(bytes, h)) {
    if (f.lod >= 0) ranges.emplace_back(size_t(f.sourceVertex), size_t(f.count));
  }
  return ranges;
}

// The extra-data table follows the tangents; the first texture coordinate entry holds
// two floats per vertex in source order. A table that does not fit is ignored.
std::vector<Vector2> readExtraUvs(ByteView bytes, const VertexFileHeader& h) {
  if (h.tangentOffset <= 0 || h.lodVertexCounts[0] <= 0) return {};
  size_t total = size_t(h.lodVertexCounts[0]);
  size_t table = size_t(h.tangentOffset) + kTangentSize * total;
  int32_t count = bytes.readOr<int32_t>(table, 0);
  if (count <= 0 || count > kMaxExtraEntries || !bytes.contains(table + 8, kExtraEntrySize * size_t(count))) return {};
  for (int32_t i = 0; i < count; ++i) {
    size_t entry = table + 8 + kExtraEntrySize * size_t(i);
    int32_t type = bytes.readOr<int32_t>(entry, -1);
    int32_t offset = bytes.readOr<int32_t>(entry + 4, -1);
    int32_t itemSize = bytes.readOr<int32_t>(entry + 8, 0);
    if (type != kExtraUvType) continue;
    auto start = offsetFrom(table, offset, bytes.size());
    if (itemSize < 8 || offset <= 0 || !start || !bytes.contains(*start, size_t(itemSize) * total)) return {};
    std::vector<Vector2> uvs(total);
    for (size_t v = 0; v < total; ++v) {
      const uint8_t* p = bytes.data() + *start + size_t(itemSize) * v;
      uvs[v] = {ByteView::load<float>(p), ByteView::load<float>(p + 4)};
    }
    return uvs;
  }
  return {};
}

}  // namespace

std::optional<VertexFileHeader> readVertexFileHeader(ByteView bytes) {
  if (!bytes.contains(0, kVertexFileHeaderSize)) return std::nullopt;
  VertexFileHeader h;
  h.id = bytes.readOr<int32_t>(0, 0);
  h.version = bytes.readOr<int32_t>(4, 0);
  h.checksum = bytes.readOr<int32_t>(8, 0);
  h.lodCount = bytes.readOr<int32_t>(12, 0);
  for (size_t l = 0; l < 8; ++l) h.lodVertexCounts[l] = bytes.readOr<int32_t>(16 + 4 * l, 0);
  h.fixupCount = bytes.readOr<int32_t>(48, 0);
  h.fixupOffset = bytes.readOr<int32_t>(52, 0);
  h.vertexOffset = bytes.readOr<int32_t>(56, 0);
  h.tangentOffset = bytes.readOr<int32_t>(60, 0);
  return h;
}

Status validateVertexFile(const std::string& fileName, ByteView bytes) {
  RecordReader r(fileName, bytes);
  auto header = readVertexFileHeader(bytes);
  if (!header) {
    r.fail(format("vertex file header needs %zu bytes, the file has %zu", kVertexFileHeaderSize, bytes.size()));
    return Error{r.error()};
  }
  const VertexFileHeader& h = *header;
  int64_t total = h.lodVertexCounts[0];
  if (h.vertexOffset == 0) {
    if (total != 0) r.fail(format("vertex file declares %lld vertices but has no vertex data", static_cast<long long>(total)));
    return r.failed() ? Status(Error{r.error()}) : Status::success();
  }
  if (h.vertexOffset < int32_t(kVertexFileHeaderSize)) r.fail(format("vertex data offset %d lies inside the header", h.vertexOffset));
  auto vertices = r.table(0, h.vertexOffset, total, kStudioVertexSize, "vertex array");
  if (h.tangentOffset != 0) r.table(0, h.tangentOffset, total, kTangentSize, "tangent array");
  // The resolved copy writes vertices, then tangents when the file has them, from the
  // vertex data offset on; they must fit in a copy of the file's size.
  size_t perVertex = kStudioVertexSize + (h.tangentOffset != 0 ? kTangentSize : 0);
  if (vertices && !bytes.contains(size_t(h.vertexOffset), perVertex * size_t(total))) {
    r.fail(format("vertex array at offset %d: %lld vertices%s do not fit in the file (%zu bytes)", h.vertexOffset,
                  static_cast<long long>(total), h.tangentOffset != 0 ? " and their tangents" : "", bytes.size()));
  }
  if (h.fixupCount > 0) {
    auto fixups = r.table(0, h.fixupOffset, h.fixupCount, kFixupSize, "fixup table");
    std::vector<VertexFixup> table = fixups ? readFixups(bytes, h) : std::vector<VertexFixup>();
    int64_t appended = 0;
    for (size_t i = 0; i < table.size() && !r.failed(); ++i) {
      const VertexFixup& f = table[i];
      if (f.lod < 0) continue;
      if (f.sourceVertex < 0 || f.count < 0 || int64_t(f.sourceVertex) + f.count > total) {
        r.fail(format("fixup[%zu] at offset %zu: vertices %d+%d lie outside the %lld stored", i, fixups->at(i),
                      f.sourceVertex, f.count, static_cast<long long>(total)));
      }
      appended += f.count;
    }
    if (!r.failed() && appended > total) {
      r.fail(format("fixup table at offset %d resolves to %lld vertices, more than the %lld stored", h.fixupOffset,
                    static_cast<long long>(appended), static_cast<long long>(total)));
    }
  }
  return r.failed() ? Status(Error{r.error()}) : Status::success();
}

int ResolveVertexFixups(ByteView source, std::span<uint8_t> destination) {
  auto header = readVertexFileHeader(source);
  if (!header || destination.size() < source.size() || header->vertexOffset <= 0) return 0;
  const VertexFileHeader& h = *header;
  size_t vertexStart = size_t(h.vertexOffset);
  size_t total = size_t(std::max(h.lodVertexCounts[0], 0));
  std::memcpy(destination.data(), source.data(), std::min(vertexStart, source.size()));
  // Without tangents in the source there is nothing to copy; the copy says so too.
  int32_t tangentOffset = h.tangentOffset != 0 ? int32_t(vertexStart + kStudioVertexSize * total) : 0;
  std::memcpy(destination.data() + 60, &tangentOffset, sizeof tangentOffset);
  size_t written = 0;
  for (auto [first, count] : resolvedRanges(h, source)) {
    // An empty range may carry any offsets (nothing vouches for them): it copies nothing.
    if (count == 0) continue;
    if (written + count > total) break;
    std::memcpy(destination.data() + vertexStart + kStudioVertexSize * written,
                source.data() + vertexStart + kStudioVertexSize * first, kStudioVertexSize * count);
    if (tangentOffset != 0) {
      std::memcpy(destination.data() + size_t(tangentOffset) + kTangentSize * written,
                  source.data() + size_t(h.tangentOffset) + kTangentSize * first, kTangentSize * count);
    }
    written += count;
  }
  int32_t noFixups = 0;
  std::memcpy(destination.data() + 48, &noFixups, sizeof noFixups);
  return int(written);
}

VertexFile VertexFile::resolve(ByteView source) {
  VertexFile file;
  file.image_.assign(source.data(), source.data() + source.size());
  int count = ResolveVertexFixups(source, file.image_);
  file.header_ = *readVertexFileHeader(ByteView(file.image_));
  const VertexFileHeader& h = file.header_;
  const uint8_t* image = file.image_.data();
  for (int v = 0; v < count; ++v) {
    file.vertices_.push_back(decodeVertex(image + size_t(h.vertexOffset) + kStudioVertexSize * size_t(v)));
  }
  if (h.tangentOffset != 0) {
    for (int v = 0; v < count; ++v) {
      const uint8_t* p = image + size_t(h.tangentOffset) + kTangentSize * size_t(v);
      file.tangents_.push_back({ByteView::load<float>(p), ByteView::load<float>(p + 4), ByteView::load<float>(p + 8),
                                ByteView::load<float>(p + 12)});
    }
  }
  // The second texture coordinates follow the fixups like the vertices do.
  std::vector<Vector2> raw = readExtraUvs(source, *readVertexFileHeader(source));
  if (!raw.empty()) {
    for (auto [first, n] : resolvedRanges(*readVertexFileHeader(source), source)) {
      for (size_t k = 0; k < n && file.extraUvs_.size() < size_t(count); ++k) file.extraUvs_.push_back(raw[first + k]);
    }
  }
  return file;
}

}  // namespace zv::legacy
