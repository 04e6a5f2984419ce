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
constexpr int16_t kMaxLedgeTriangles = 4095;  // the triangles number themselves in 12 bits

// A ledge whose fields agree with each other; its triangles start right after it.
struct LedgeHeader {
  size_t at = 0;
  size_t points = 0;  // start of the point array its triangles index
  size_t size = 0;    // bytes the ledge says it takes
  int32_t clientData = 0;
  int16_t triangles = 0;
  bool terminal = false;

  size_t trianglesEnd() const { return at + kLedgeBytes + size_t(triangles) * kTriangleBytes; }
  size_t triangle(int16_t t) const { return at + kLedgeBytes + size_t(t) * kTriangleBytes; }
  // The ledge's record runs over its size, but never into its point array: one-piece
  // solids give a size that covers the points too.
  size_t end() const { return std::max(trianglesEnd(), std::min(at + size, points)); }
};

// A record read as a ledge: the ledge when every check passed, else the first check that
// failed and how many passed before it (the record that got furthest is the one to blame
// when a solid yields no ledge).
struct LedgeRead {
  std::optional<LedgeHeader> ledge;
  std::string problem;
  int checksPassed = 0;
  size_t next = 0;  // where a walk goes on when this is not a ledge
};

// Decodes one solid. Positions are relative to the solid's data; messages give them from
// the file start. Bytes skipped on the way are noted in `notes`.
class SolidDecoder {
 public:
  SolidDecoder(std::string_view fileName, size_t index, size_t fileOffset, ByteView data,
               std::vector<std::string>& notes)
      : fileName_(fileName), index_(index), fileOffset_(fileOffset), data_(data), notes_(notes) {}

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
    if (Status listed = scanLedges(cs + kSurfaceHeaderBytes, solid.pieces); !listed) {
      std::string tree = walked.message().substr(std::min(walked.message().size(), where().size()));
      return Error{listed.message() + "; its ledge tree: " + tree};
    }
    return solid;
  }

 private:
  // Ledges lie after the surface header, up to the shared point array; the terminal ones
  // are the pieces, the others wrap a subtree's pieces. Real files also hold records that
  // are not ledges among them (16 bytes before the first ledge, say), so the walk goes in
  // 16-byte steps and takes a step as a ledge only where its header is consistent: the
  // point array 16-byte aligned, after its triangles and inside the solid, a triangle
  // count the 12-bit triangle numbers can hold, a size covering the header and its
  // triangles, and every triangle's points inside the point array. A ledge is passed over
  // by its size (up to its point array); anything else is skipped with a note, and a solid
  // where no ledge is found has no pieces. Every step moves on by at least 16 bytes, so
  // the walk ends, and no byte is read as a triangle twice.
  Status scanLedges(size_t first, std::vector<PhyPiece>& pieces) {
    size_t end = data_.size();
    std::vector<std::string> skippedNotes;
    std::optional<std::pair<size_t, std::string>> skipped;  // where and why a run began
    LedgeRead blamed;
    size_t at = first;
    while (at < end && data_.contains(at, kLedgeBytes)) {
      LedgeRead read = readLedge(at, "ledge");
      if (!read.ledge) {
        if (!skipped) skipped.emplace(at, read.problem);
        if (blamed.problem.empty() || read.checksPassed > blamed.checksPassed) blamed = read;
        at = read.next;
        continue;
      }
      noteSkipped(skipped, at, skippedNotes);
      end = std::min(end, read.ledge->points);
      if (read.ledge->terminal) pieces.push_back(decodePiece(*read.ledge));
      at = read.ledge->end();
    }
    noteSkipped(skipped, std::min(at, end), skippedNotes);
    if (pieces.empty()) {
      if (!blamed.problem.empty()) return Error{blamed.problem};
      return fail(first, "ledges", "hold no pieces");
    }
    notes_.insert(notes_.end(), skippedNotes.begin(), skippedNotes.end());
    return Status::success();
  }

  void noteSkipped(std::optional<std::pair<size_t, std::string>>& skipped, size_t upTo,
                   std::vector<std::string>& notes) const {
    if (!skipped) return;
    auto [from, why] = std::move(*skipped);
    skipped.reset();
    upTo = std::max(upTo, from);
    std::string reason = why.substr(std::min(why.size(), where().size()));
    notes.push_back(solidName() + format("%zu bytes at offset %zu hold no ledge and are skipped (%s)", upTo - from,
                                      fileOffset_ + from, reason.c_str()));
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
        std::string what = format("ledge of piece %zu", pieces.size());
        if (!seenLedges_.insert(*ledge).second) return fail(*ledge, what, "is named twice by the ledge tree");
        LedgeRead read = readLedge(*ledge, what);
        if (!read.ledge) return Error{read.problem};
        pieces.push_back(decodePiece(*read.ledge));
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

  LedgeRead readLedge(size_t at, std::string_view what) const {
    LedgeRead read;
    read.next = at + kLedgeBytes;
    auto refuse = [&](size_t position, std::string_view problem) {
      read.problem = fail(position, what, problem).message;
      return read;
    };
    if (!data_.contains(at, kLedgeBytes)) return refuse(at, "leaves the solid");
    int32_t pointOffset = data_.readOr<int32_t>(at, 0);
    auto points = offsetFrom(at, pointOffset, data_.size());
    if (!points || *points <= at || !data_.contains(*points, kPointBytes))
      return refuse(at, "has its point array outside the solid");
    ++read.checksPassed;
    if (pointOffset % int32_t(kPointBytes) != 0)
      return refuse(at, format("has point array offset %d, which is not a whole number of points", pointOffset));
    ++read.checksPassed;
    LedgeHeader ledge;
    ledge.at = at;
    ledge.points = *points;
    ledge.clientData = data_.readOr<int32_t>(at + 4, 0);
    uint32_t bits = data_.readOr<uint32_t>(at + 8, 0);
    ledge.terminal = (bits & kHasChildrenBits) == 0;
    ledge.size = size_t(bits >> 8) * 16;
    ledge.triangles = data_.readOr<int16_t>(at + 12, 0);
    if (ledge.triangles <= 0 || ledge.triangles > kMaxLedgeTriangles || ledge.trianglesEnd() > ledge.points)
      return refuse(at, format("has %d triangles, which overrun its point array", ledge.triangles));
    ++read.checksPassed;
    if (ledge.size < ledge.trianglesEnd() - at)
      return refuse(at, format("has size %zu, short of its header and %d triangles", ledge.size, ledge.triangles));
    ++read.checksPassed;
    // A ledge-shaped record whose triangles are broken is passed over whole, so that no
    // byte is read as a triangle twice.
    read.next = ledge.trianglesEnd();
    for (int16_t t = 0; t < ledge.triangles; ++t) {
      for (size_t k = 0; k < 3; ++k) {
        uint32_t point = pointIndex(ledge, t, k);
        if (!data_.contains(ledge.points + size_t(point) * kPointBytes, 12)) {
          return refuse(ledge.triangle(t), format("triangle %d names point %u past the end of the solid", t, point));
        }
      }
    }
    read.ledge = ledge;
    return read;
  }

  uint32_t pointIndex(const LedgeHeader& ledge, int16_t t, size_t corner) const {
    return data_.readOr<uint32_t>(ledge.triangle(t) + 4 + 4 * corner, 0) & 0xffffu;
  }

  // The header and its triangles' points have been checked.
  PhyPiece decodePiece(const LedgeHeader& ledge) const {
    PhyPiece piece;
    piece.bone = ledge.clientData > 0 ? ledge.clientData - 1 : -1;
    std::map<uint32_t, int32_t> localIndex;  // point array index -> piece point
    for (int16_t t = 0; t < ledge.triangles; ++t) {
      std::array<int32_t, 3>& corners = piece.triangles.emplace_back();
      for (size_t k = 0; k < 3; ++k) {
        uint32_t point = pointIndex(ledge, t, k);
        auto [it, added] = localIndex.emplace(point, int32_t(piece.points.size()));
        if (added) {
          size_t at = ledge.points + size_t(point) * kPointBytes;
          Vector3 collision{data_.readOr<float>(at, 0), data_.readOr<float>(at + 4, 0),
                            data_.readOr<float>(at + 8, 0)};
          piece.points.push_back(collisionToModel(collision));
        }
        corners[k] = it->second;
      }
    }
    return piece;
  }

  std::string solidName() const { return format("solid %zu: ", index_); }
  std::string where() const { return format("%.*s: ", int(fileName_.size()), fileName_.data()) + solidName(); }

  Error fail(size_t position, std::string_view what, std::string_view problem) const {
    return Error{where() + format("%.*s at offset %zu %.*s", int(what.size()), what.data(), fileOffset_ + position,
                                  int(problem.size()), problem.data())};
  }

  std::string_view fileName_;
  size_t index_;
  size_t fileOffset_;
  ByteView data_;
  std::vector<std::string>& notes_;
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
  std::vector<std::string> notes;
  auto root = KeyValues::parse(text, notes, KeyValuesOptions{.escapes = false});
  if (!root)
    return Error{format("%.*s: text section: %s", int(fileName.size()), fileName.data(), root.message().c_str())};
  for (const std::string& note : notes) file.notes.push_back("text section: " + note);
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
    auto solid = SolidDecoder(fileName, size_t(i), start, *data, file.notes).decode();
    if (solid) {
      file.solids.push_back(std::move(solid.value()));
    } else {
      // Notes leave the file's name to the caller.
      std::string_view message = solid.message();
      message.remove_prefix(std::min(message.size(), fileName.size() + 2));
      file.notes.push_back(std::string(message) + format("; solid %d has no pieces", i));
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
