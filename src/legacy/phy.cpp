#include "legacy/phy.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>
#include <set>

#include "base/strings.h"

namespace zv::legacy {
namespace {

constexpr size_t kFileHeaderBytes = 16;
constexpr size_t kSolidHeaderBytes = 28;
constexpr size_t kSurfaceHeaderBytes = 48;
constexpr size_t kLedgeBytes = 16;
constexpr size_t kTriangleBytes = 16;
constexpr size_t kPointBytes = 16;
constexpr size_t kNodeBytes = 28;
constexpr size_t kSurfaceRootField = 32;
constexpr int16_t kConvexPieceSurface = 0;
constexpr uint32_t kHasChildrenBits = 0x3;

// Decodes one solid. Positions are relative to the solid's data; messages give them from
// the file start.
class SolidDecoder {
 public:
  SolidDecoder(std::string_view fileName, size_t index, size_t fileOffset, ByteView data)
      : fileName_(fileName), index_(index), fileOffset_(fileOffset), data_(data) {}

  Result<PhySolid> decode() {
    PhySolid solid;
    size_t cs = 0;
    if (data_.size() >= 4 && std::memcmp(data_.data(), "VPHY", 4) == 0) {
      if (data_.size() < kSolidHeaderBytes) return fail(0, "solid header", "leaves the solid");
      int16_t type = data_.readOr<int16_t>(6, -1);
      if (type != kConvexPieceSurface) return fail(6, "solid header", format("has surface type %d", type));
      solid.hasSolidHeader = true;
      cs = kSolidHeaderBytes;
    }
    if (!data_.contains(cs, kSurfaceHeaderBytes))
      return fail(cs, "compact surface header", "leaves the solid");
    auto root = offsetFrom(cs, data_.readOr<int32_t>(cs + kSurfaceRootField, 0), data_.size());
    Status walked = root ? walkTree(*root, solid.pieces)
                         : fail(cs + kSurfaceRootField, "ledge tree root offset", "points outside the solid");
    if (walked) return solid;
    // Real files carry solids whose tree is missing (its root offset points at the end of
    // the solid) while the pieces are all there; they are then read in file order.
    solid.pieces.clear();
    seenLedges_.clear();
    if (Status listed = walkLedges(cs + kSurfaceHeaderBytes, solid.pieces); !listed) {
      std::string tree = walked.message().substr(std::min(walked.message().size(), where().size()));
      return Error{listed.message() + "; its ledge tree: " + tree};
    }
    return solid;
  }

 private:
  // Ledges lie back to back after the surface header, up to the shared point array. The
  // terminal ones are the pieces; the others wrap a subtree's pieces. Every step moves on
  // by at least one ledge header and one triangle, so the walk ends.
  Status walkLedges(size_t first, std::vector<PhyPiece>& pieces) {
    size_t end = data_.size();
    for (size_t ledge = first; ledge < end;) {
      if (!data_.contains(ledge, kLedgeBytes)) return fail(ledge, "ledge", "leaves the solid");
      auto points = offsetFrom(ledge, data_.readOr<int32_t>(ledge, 0), data_.size());
      if (!points || *points <= ledge) return fail(ledge, "ledge", "has its point array outside the solid");
      end = std::min(end, *points);
      int16_t triangles = data_.readOr<int16_t>(ledge + 12, 0);
      size_t size = kLedgeBytes + size_t(std::max<int16_t>(triangles, 0)) * kTriangleBytes;
      if (triangles <= 0 || ledge + size > end)
        return fail(ledge, "ledge", format("has %d triangles, which overrun the ledges", triangles));
      bool terminal = (data_.readOr<uint32_t>(ledge + 8, 0) & kHasChildrenBits) == 0;
      if (terminal) {
        auto piece = decodePiece(ledge, pieces.size());
        if (!piece) return piece.error();
        pieces.push_back(std::move(piece.value()));
      }
      ledge += size;
    }
    if (pieces.empty()) return fail(first, "ledges", "hold no pieces");
    return Status::success();
  }

  // Every node, whatever its shape, takes 28 bytes, so a walk that visits more nodes than
  // fit in the solid has met a node twice.
  Status walkTree(size_t root, std::vector<PhyPiece>& pieces) {
    size_t visitsLeft = data_.size() / kNodeBytes;
    std::vector<size_t> stack{root};
    while (!stack.empty()) {
      size_t node = stack.back();
      stack.pop_back();
      if (visitsLeft-- == 0) return fail(node, "ledge tree", "visits more nodes than the solid holds");
      if (!data_.contains(node, kNodeBytes)) return fail(node, "ledge tree node", "leaves the solid");
      int32_t right = data_.readOr<int32_t>(node, 0);
      if (right == 0) {
        auto ledge = offsetFrom(node, data_.readOr<int32_t>(node + 4, 0), data_.size());
        if (!ledge) return fail(node + 4, "ledge tree node", "names a ledge outside the solid");
        auto piece = decodePiece(*ledge, pieces.size());
        if (!piece) return piece.error();
        pieces.push_back(std::move(piece.value()));
        continue;
      }
      // Children follow their node (left at +28, right further on): positions only grow,
      // so offsets that point back cannot make a cycle.
      if (right <= int32_t(kNodeBytes)) {
        return fail(node, "ledge tree node",
                    format("has right-child offset %d before its left child", right));
      }
      auto rightChild = offsetFrom(node, right, data_.size());
      if (!rightChild) return fail(node, "ledge tree node", "has its right child outside the solid");
      stack.push_back(*rightChild);
      stack.push_back(node + kNodeBytes);  // popped first: left before right
    }
    if (pieces.empty()) return fail(root, "ledge tree", "holds no pieces");
    return Status::success();
  }

  Result<PhyPiece> decodePiece(size_t ledge, size_t pieceIndex) {
    std::string what = format("ledge of piece %zu", pieceIndex);
    if (!seenLedges_.insert(ledge).second) return fail(ledge, what, "is named twice by the ledge tree");
    if (!data_.contains(ledge, kLedgeBytes)) return fail(ledge, what, "leaves the solid");
    auto points = offsetFrom(ledge, data_.readOr<int32_t>(ledge, 0), data_.size());
    if (!points) return fail(ledge, what, "has its point array outside the solid");
    int32_t clientData = data_.readOr<int32_t>(ledge + 4, 0);
    int16_t triangles = data_.readOr<int16_t>(ledge + 12, 0);
    auto bytes = tableBytes(triangles, kTriangleBytes);
    if (triangles <= 0 || !bytes || !data_.contains(ledge + kLedgeBytes, *bytes)) {
      return fail(ledge, what, format("has %d triangles, which do not fit in the solid", triangles));
    }
    PhyPiece piece;
    piece.bone = clientData > 0 ? clientData - 1 : -1;
    std::map<uint32_t, int32_t> localIndex;  // point array index -> piece point
    for (int16_t t = 0; t < triangles; ++t) {
      size_t triangle = ledge + kLedgeBytes + size_t(t) * kTriangleBytes;
      std::array<int32_t, 3>& corners = piece.triangles.emplace_back();
      for (size_t k = 0; k < 3; ++k) {
        uint32_t point = data_.readOr<uint32_t>(triangle + 4 + 4 * k, 0) & 0xffffu;
        size_t at = *points + size_t(point) * kPointBytes;
        if (!data_.contains(at, 12)) {
          return fail(triangle, what,
                      format("triangle %d names point %u past the end of the solid", t, point));
        }
        auto [it, added] = localIndex.emplace(point, int32_t(piece.points.size()));
        if (added) {
          Vector3 collision{data_.readOr<float>(at, 0), data_.readOr<float>(at + 4, 0),
                            data_.readOr<float>(at + 8, 0)};
          piece.points.push_back(collisionToModel(collision));
        }
        corners[k] = it->second;
      }
    }
    return piece;
  }

  std::string where() const {
    return format("%.*s: solid %zu: ", int(fileName_.size()), fileName_.data(), index_);
  }

  Error fail(size_t position, std::string_view what, std::string_view problem) const {
    return Error{where() + format("%.*s at offset %zu %.*s", int(what.size()), what.data(), fileOffset_ + position,
                                  int(problem.size()), problem.data())};
  }

  std::string_view fileName_;
  size_t index_;
  size_t fileOffset_;
  ByteView data_;
  std::set<size_t> seenLedges_;
};

std::array<float, 3> axisValues(const KeyValues& block, const char* suffix) {
  std::array<float, 3> values{};
  const char* axes[] = {"x", "y", "z"};
  for (size_t i = 0; i < 3; ++i) values[i] = block.getFloat(std::string(axes[i]) + suffix);
  return values;
}

// "a,b" as two integers; nothing when the comma is missing.
std::optional<std::pair<std::string, std::string>> splitPair(std::string_view text) {
  size_t comma = text.find(',');
  if (comma == std::string_view::npos) return std::nullopt;
  return std::make_pair(std::string(text.substr(0, comma)), std::string(text.substr(comma + 1)));
}

void readSolidKeys(const KeyValues& block, size_t ordinal, PhyFile& file) {
  int index = block.getInt("index", int(ordinal));
  if (index < 0 || size_t(index) >= file.solids.size()) {
    file.notes.push_back(
        format("text block for solid %d, but the file has %zu solids", index, file.solids.size()));
    return;
  }
  PhySolidKeys& keys = file.solids[size_t(index)].keys;
  keys.name = block.getString("name");
  keys.parent = block.getString("parent");
  keys.surfaceProp = block.getString("surfaceprop");
  keys.mass = block.getFloat("mass");
  keys.damping = block.getFloat("damping");
  keys.rotDamping = block.getFloat("rotdamping");
  keys.inertia = block.getFloat("inertia", 1.0f);
  keys.drag = block.getFloat("drag");
  keys.volume = block.getFloat("volume");
}

void readCollisionRules(const KeyValues& block, CollisionRules& rules) {
  rules.selfCollisions = block.getBool("selfcollisions", true);
  for (const KeyValues* pair : block.findAll("collisionpair")) {
    if (auto parts = splitPair(pair->value()))
      rules.pairs.emplace_back(textToInt(parts->first), textToInt(parts->second));
  }
}

void readEditParams(const KeyValues& block, EditParams& params) {
  params.rootName = block.getString("rootname");
  params.totalMass = block.getFloat("totalmass");
  params.concave = block.getBool("concave");
  for (const KeyValues* merge : block.findAll("jointmerge")) {
    if (auto parts = splitPair(merge->value())) params.jointMerges.push_back(*parts);
  }
}

Status readText(std::string_view fileName, std::string_view text, PhyFile& file) {
  // Model paths in break blocks use back-slashes: no escapes.
  auto root = KeyValues::parse(text, KeyValuesOptions{.escapes = false});
  if (!root)
    return Error{
        format("%.*s: text section: %s", int(fileName.size()), fileName.data(), root.message().c_str())};
  size_t solidOrdinal = 0;
  for (const KeyValues& block : root->children()) {
    if (!block.isSection()) continue;
    const std::string& name = block.name();
    if (equalsNoCase(name, "solid")) {
      readSolidKeys(block, solidOrdinal++, file);
    } else if (equalsNoCase(name, "ragdollconstraint")) {
      file.constraints.push_back({block.getInt("parent", -1), block.getInt("child", -1),
                                  axisValues(block, "min"), axisValues(block, "max"),
                                  axisValues(block, "friction")});
    } else if (equalsNoCase(name, "collisionrules")) {
      readCollisionRules(block, file.collisionRules);
    } else if (equalsNoCase(name, "editparams")) {
      readEditParams(block, file.editParams);
    } else if (equalsNoCase(name, "break")) {
      file.breaks.push_back(block);
    }
  }
  return Status::success();
}

}  // namespace

Vector3 collisionToModel(const Vector3& c) {
  return {c.x * kCollisionToInches, c.z * kCollisionToInches, -c.y * kCollisionToInches};
}

Result<PhyFile> PhyFile::parse(std::string_view fileName, ByteView bytes) {
  auto failAt = [&](size_t offset, const std::string& problem) {
    return Error{
        format("%.*s: %s at offset %zu", int(fileName.size()), fileName.data(), problem.c_str(), offset)};
  };
  if (bytes.size() < kFileHeaderBytes)
    return failAt(0, format("file header needs %zu bytes", kFileHeaderBytes));
  int32_t headerSize = bytes.readOr<int32_t>(0, 0);
  int32_t solidCount = bytes.readOr<int32_t>(8, 0);
  if (headerSize < int32_t(kFileHeaderBytes) || size_t(headerSize) > bytes.size()) {
    return failAt(0,
                  format("header size %d is outside %zu..%zu", headerSize, kFileHeaderBytes, bytes.size()));
  }
  // Every solid takes at least its 4-byte size field.
  if (solidCount < 0 || size_t(solidCount) > (bytes.size() - size_t(headerSize)) / 4) {
    return failAt(8, format("solid count %d does not fit in the file", solidCount));
  }
  PhyFile file;
  file.checksum = bytes.readOr<int32_t>(12, 0);
  size_t position = size_t(headerSize);
  for (int32_t i = 0; i < solidCount; ++i) {
    auto size = bytes.read<int32_t>(position);
    if (!size) return failAt(position, format("solid %d has no size field before the end of the file", i));
    size_t start = position + 4;
    auto data = *size >= 0 ? bytes.sub(start, size_t(*size)) : std::nullopt;
    if (!data) return failAt(position, format("solid %d has size %d, past the end of the file", i, *size));
    // A solid that does not decode costs only itself; it keeps its place, since the text
    // section and the constraints name solids by index.
    auto solid = SolidDecoder(fileName, size_t(i), start, *data).decode();
    if (solid) {
      file.solids.push_back(std::move(solid.value()));
    } else {
      file.notes.push_back(solid.message() + format("; solid %d has no pieces", i));
      file.solids.emplace_back();
    }
    position = start + size_t(*size);
  }
  // The text runs to the end of the file or its first NUL.
  std::string_view text(reinterpret_cast<const char*>(bytes.data()) + position, bytes.size() - position);
  text = text.substr(0, text.find('\0'));
  if (Status read = readText(fileName, text, file); !read) return read.error();
  return file;
}

}  // namespace zv::legacy
