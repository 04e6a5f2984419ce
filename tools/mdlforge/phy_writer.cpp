// Writes collision files: per solid an optional "VPHY" header, the compact surface header,
// the ledges back to back, the shared point array and the ledge tree in pre-order.

#include <algorithm>
#include <optional>

#include "base/strings.h"
#include "mdlforge/byte_writer.h"
#include "mdlforge/physics.h"

namespace zv::mdlforge {
namespace {

constexpr float kMetresPerInch = 0.0254f;
constexpr size_t kMaxPointsPerSolid = 65536;    // 16-bit point indices in the edges
constexpr size_t kMaxTrianglesPerLedge = 4095;  // 12-bit triangle numbers
constexpr uint32_t kIsCompact = 1u << 2;
constexpr uint32_t kHasChildren = 1u;

// Model (x, y, z) came from collision (x, z, -y) * k: invert that.
Vector3 modelToCollision(const Vector3& p) {
  return {p.x * kMetresPerInch, -p.z * kMetresPerInch, p.y * kMetresPerInch};
}

// A ledge tree node in pre-order: a piece (leaf) or the split of a range of pieces.
struct TreeNode {
  size_t firstPiece = 0;
  size_t endPiece = 0;
  size_t rightChild = 0;  // node index; inner nodes only
  bool leaf() const { return endPiece - firstPiece == 1; }
};

void buildTree(size_t first, size_t end, std::vector<TreeNode>& nodes) {
  size_t self = nodes.size();
  nodes.push_back({first, end, 0});
  if (end - first == 1) return;
  size_t middle = first + (end - first) / 2;
  buildTree(first, middle, nodes);
  nodes[self].rightChild = nodes.size();
  buildTree(middle, end, nodes);
}

class SolidWriter {
 public:
  SolidWriter(ByteWriter& out, OffsetMap& where, size_t index) : out_(out), where_(where), index_(index) {}

  void write(const PhysicsSolid& solid) {
    for (const PhysicsPiece& piece : solid.pieces) {
      pointBase_.push_back(points_.size());
      for (const Vector3& p : piece.points) points_.push_back(modelToCollision(p));
    }
    buildTree(0, solid.pieces.size(), nodes_);

    size_t sizeField = out_.reserveI32();
    where_.set(placeKey("solid", {index_}), sizeField);
    size_t start = out_.size();
    size_t surfaceSizeField = 0;
    if (solid.solidHeader) surfaceSizeField = writeSolidHeader();
    size_t cs = out_.size();
    where_.set(placeKey("surface", {index_}), cs);
    size_t rootField = writeSurfaceHeader();
    out_.raw(solid.bytesBeforeLedges);

    for (size_t n = 0; n < nodes_.size(); ++n) {
      const TreeNode& node = nodes_[n];
      if (node.leaf()) {
        where_.set(placeKey("ledge", {index_, node.firstPiece}), out_.size());
        const PhysicsPiece& piece = solid.pieces[node.firstPiece];
        ledges_.push_back(writeLedge(piece, pointBase_[node.firstPiece], piece.bone + 1, 0));
      } else if (solid.subtreeHulls) {
        // The wrapping hull's shape does not matter to readers: the first piece's triangles.
        const PhysicsPiece& piece = solid.pieces[node.firstPiece];
        ledges_.push_back(writeLedge(piece, pointBase_[node.firstPiece], 0, kHasChildren));
      } else {
        ledges_.push_back(std::nullopt);
      }
    }

    out_.zeros(solid.bytesBeforePoints);
    size_t pointStart = out_.size();
    where_.set(placeKey("points", {index_}), pointStart);
    for (const Vector3& p : points_) {
      out_.vec3(p);
      out_.i32(0);
    }
    for (const auto& ledge : ledges_) {
      if (!ledge) continue;
      out_.patchOffset(ledge->pointField, ledge->position, pointStart);
      if (solid.ledgeSizesCoverPoints) patchLedgeSize(*ledge, out_.size() - ledge->position);
    }
    if (solid.ledgeTree) {
      writeTree(rootField, cs);
    } else {
      out_.patchOffset(rootField, cs, out_.size());
    }

    size_t surfaceBytes = out_.size() - cs;
    if (solid.surfaceByteSize) out_.patchI32(cs + 28, int32_t(uint32_t(surfaceBytes) << 8));
    if (solid.solidHeader) out_.patchI32(surfaceSizeField, int32_t(surfaceBytes));
    out_.patchI32(sizeField, int32_t(out_.size() - start));
  }

 private:
  struct WrittenLedge {
    size_t position;
    size_t pointField;
    size_t clientField;
    uint32_t flags;  // children and compact bits, below the size
  };

  void patchLedgeSize(const WrittenLedge& ledge, size_t bytes) {
    out_.patchI32(ledge.position + 8, int32_t(ledge.flags | uint32_t(bytes / 16) << 8));
  }

  size_t writeSolidHeader() {
    out_.raw(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>("VPHY"), 4));
    out_.i16(0x100);  // version
    out_.i16(0);      // convex-piece surface
    size_t surfaceSizeField = out_.reserveI32();
    out_.vec3({1, 1, 1});  // drag-axis areas
    out_.i32(0);           // axis-map size
    return surfaceSizeField;
  }

  // Returns the root-offset field.
  size_t writeSurfaceHeader() {
    auto [centre, radius] = bounds(0, points_.size());
    out_.vec3(centre);
    out_.vec3({1, 1, 1});  // rotational inertia
    out_.f32(radius);
    out_.i32(0);  // byte size, patched
    size_t rootField = out_.reserveI32();
    out_.i32(0);
    out_.i32(0);
    out_.raw(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>("IVPS"), 4));
    return rootField;
  }

  WrittenLedge writeLedge(const PhysicsPiece& piece, size_t pointBase, int32_t clientData,
                          uint32_t children) {
    WrittenLedge ledge{out_.size(), 0, 0, children | kIsCompact};
    ledge.pointField = out_.reserveI32();
    ledge.clientField = out_.size();
    out_.i32(clientData);
    out_.i32(0);  // flags and size, patched
    patchLedgeSize(ledge, 16 + 16 * piece.triangles.size());
    out_.i16(int16_t(piece.triangles.size()));
    out_.i16(0);
    for (size_t t = 0; t < piece.triangles.size(); ++t) {
      out_.i32(int32_t(t));  // triangle number; no pierce, material or virtual bits
      for (uint16_t corner : piece.triangles[t]) out_.i32(int32_t(pointBase + corner));
    }
    return ledge;
  }

  void writeTree(size_t rootField, size_t cs) {
    std::vector<size_t> positions(nodes_.size());
    for (size_t n = 0; n < nodes_.size(); ++n) {
      positions[n] = out_.size();
      where_.set(placeKey("node", {index_, n}), positions[n]);
      const TreeNode& node = nodes_[n];
      size_t rightField = out_.reserveI32();
      size_t ledgeField = out_.reserveI32();
      if (ledges_[n]) out_.patchOffset(ledgeField, positions[n], ledges_[n]->position);
      if (!node.leaf()) {
        rightFields_.push_back({rightField, n});
        if (ledges_[n]) out_.patchOffset(ledges_[n]->clientField, ledges_[n]->position, positions[n]);
      }
      auto [centre, radius] =
          bounds(pointBase_[node.firstPiece],
                 node.endPiece < pointBase_.size() ? pointBase_[node.endPiece] : points_.size());
      out_.vec3(centre);
      out_.f32(radius);
      out_.zeros(4);  // box sizes and padding
    }
    for (auto [field, n] : rightFields_)
      out_.patchOffset(field, positions[n], positions[nodes_[n].rightChild]);
    out_.patchOffset(rootField, cs, positions[0]);
  }

  // Centre and radius of points [first, end).
  std::pair<Vector3, float> bounds(size_t first, size_t end) const {
    if (first >= end) return {{}, 0.0f};
    Vector3 lo = points_[first], hi = points_[first];
    for (size_t i = first; i < end; ++i) {
      for (int k = 0; k < 3; ++k) {
        lo[k] = std::min(lo[k], points_[i][k]);
        hi[k] = std::max(hi[k], points_[i][k]);
      }
    }
    Vector3 centre = (lo + hi) * 0.5f;
    return {centre, length(hi - centre)};
  }

  ByteWriter& out_;
  OffsetMap& where_;
  size_t index_;
  std::vector<Vector3> points_;  // collision units
  std::vector<size_t> pointBase_;
  std::vector<TreeNode> nodes_;
  std::vector<std::optional<WrittenLedge>> ledges_;  // per tree node
  std::vector<std::pair<size_t, size_t>> rightFields_;
};

std::string block(std::string_view name, const TextKeys& keys) {
  std::string text = std::string(name) + " {\n";
  for (const auto& [key, value] : keys) text += format("\"%s\" \"%s\"\n", key.c_str(), value.c_str());
  return text + "}\n";
}

std::string textSection(const PhysicsDescription& d) {
  if (d.text) return *d.text;
  std::string text;
  for (size_t i = 0; i < d.solids.size(); ++i) {
    TextKeys keys{{"index", std::to_string(i)}};
    keys.insert(keys.end(), d.solids[i].keys.begin(), d.solids[i].keys.end());
    text += block("solid", keys);
  }
  for (const PhysicsConstraint& c : d.constraints) {
    TextKeys keys{{"parent", std::to_string(c.parent)}, {"child", std::to_string(c.child)}};
    const char* axes[] = {"x", "y", "z"};
    for (size_t a = 0; a < 3; ++a) {
      keys.push_back({std::string(axes[a]) + "min", format("%f", c.min[a])});
      keys.push_back({std::string(axes[a]) + "max", format("%f", c.max[a])});
      keys.push_back({std::string(axes[a]) + "friction", format("%f", c.friction[a])});
    }
    text += block("ragdollconstraint", keys);
  }
  for (const TextBlock& b : d.blocks) text += block(b.name, b.keys);
  return text;
}

std::optional<std::string> unwritable(const PhysicsDescription& d) {
  for (size_t i = 0; i < d.solids.size(); ++i) {
    const PhysicsSolid& solid = d.solids[i];
    if (solid.pieces.empty()) return format("solid %zu has no pieces", i);
    size_t points = 0;
    for (const PhysicsPiece& piece : solid.pieces) {
      if (piece.triangles.empty() || piece.triangles.size() > kMaxTrianglesPerLedge) {
        return format("solid %zu has a piece with %zu triangles", i, piece.triangles.size());
      }
      points += piece.points.size();
    }
    if (points > kMaxPointsPerSolid) return format("solid %zu has %zu points", i, points);
  }
  if (d.headerSize < 16) return format("header size %d is below 16", d.headerSize);
  return std::nullopt;
}

}  // namespace

Result<PhysicsFile> buildPhysics(const PhysicsDescription& description, int32_t checksum) {
  if (auto problem = unwritable(description)) return Error{*problem};
  PhysicsFile file;
  ByteWriter out;
  out.i32(description.headerSize);
  out.i32(0);  // id
  out.i32(int32_t(description.solids.size()));
  out.i32(checksum);
  out.zeros(size_t(description.headerSize) - 16);
  for (size_t i = 0; i < description.solids.size(); ++i) {
    SolidWriter(out, file.where, i).write(description.solids[i]);
  }
  file.where.set("text", out.size());
  out.cstring(textSection(description));
  file.bytes = out.take();
  return file;
}

PhysicsPiece boxPiece(const Vector3& mins, const Vector3& maxs, int32_t bone) {
  PhysicsPiece piece;
  piece.bone = bone;
  for (int i = 0; i < 8; ++i) {
    piece.points.push_back({(i & 1) ? maxs.x : mins.x, (i & 2) ? maxs.y : mins.y, (i & 4) ? maxs.z : mins.z});
  }
  // Two triangles per face, counter-clockwise seen from outside.
  piece.triangles = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
                     {2, 6, 3}, {3, 6, 7}, {0, 4, 2}, {2, 4, 6}, {1, 3, 5}, {3, 7, 5}};
  return piece;
}

}  // namespace zv::mdlforge
