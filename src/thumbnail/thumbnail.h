#pragma once
// Small pictures of a model for the run report: a software rasterizer (depth-buffered,
// back faces culled, flat-shaded with one light) that draws a mesh or a skeleton from one
// fixed three-quarter view framed on its bounding box, and the PNG of the result. The same
// input gives the same pixels and the same bytes.

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/math.h"

namespace zv::thumbnail {

inline constexpr int kDefaultSize = 160;

// RGBA, row by row from the top; a pixel nothing covers is fully transparent.
struct Image {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> rgba;

  const uint8_t* pixel(int x, int y) const { return &rgba[(size_t(y) * size_t(width) + size_t(x)) * 4]; }
  bool covered(int x, int y) const { return pixel(x, y)[3] != 0; }
  size_t coveredCount() const;
};

// Triangles wound counter-clockwise seen from outside (front faces).
struct Mesh {
  std::vector<Vector3> positions;
  std::vector<std::array<int32_t, 3>> triangles;
};

// Joints in model space; parents[i] is the joint i hangs from, -1 for a root.
struct Skeleton {
  std::vector<Vector3> joints;
  std::vector<int32_t> parents;
};

// A picture, or a blank one and why (coordinates that are not numbers or too far out).
struct Rendered {
  Image image;
  std::string problem;
};

Rendered renderMesh(const Mesh& mesh, int size = kDefaultSize);
Rendered renderSkeleton(const Skeleton& skeleton, int size = kDefaultSize);
// The problem rendering would meet (and draw a blank picture for), or empty: a cheap
// check that needs no picture.
std::string blankReason(const Mesh& mesh, int size = kDefaultSize);
std::string blankReason(const Skeleton& skeleton, int size = kDefaultSize);

// The image as PNG bytes.
std::vector<uint8_t> encodePng(const Image& image);

// Where the view puts points: the fixed three-quarter direction, scaled so that the
// bounding box's sphere fills the picture with a small margin. Exposed for the tests.
struct Projection {
  Vector3 center;
  Vector3 right, up, toViewer;
  float scale = 1;
  float half = 0;  // half the picture's size in pixels

  // Picture x (right), y (down) and depth (larger is nearer).
  Vector3 apply(const Vector3& p) const;
};

// The projection framing the points; an empty problem when it could be made.
Projection frame(std::span<const Vector3> points, int size, std::string& problem);

}  // namespace zv::thumbnail
