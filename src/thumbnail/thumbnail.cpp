#include "thumbnail/thumbnail.h"

#include <algorithm>
#include <cmath>

#include "base/strings.h"

namespace zv::thumbnail {
namespace {

// Farther out than any model is built; squares of such numbers lose all precision.
constexpr float kLargestCoordinate = 1.0e7f;
constexpr float kMargin = 0.92f;  // of the half size, so that edges never touch the border

Vector3 normalized(const Vector3& v) {
  float l = length(v);
  return l > 0 ? v * (1.0f / l) : v;
}

// From the front-right and somewhat above: legacy models face +X with Z up.
Vector3 viewDirection() {
  const float azimuth = -35.0f * kDegToRad, elevation = 25.0f * kDegToRad;
  return {std::cos(elevation) * std::cos(azimuth), std::cos(elevation) * std::sin(azimuth), std::sin(elevation)};
}

// One light from above the viewer's left shoulder, wrapped half way round so that faces
// turned away from it still differ from one another.
constexpr float kAmbient = 0.25f, kDiffuse = 0.75f;
constexpr std::array<float, 3> kMeshColor{0.72f, 0.76f, 0.82f};
constexpr std::array<uint8_t, 4> kBoneColor{230, 140, 40, 255};

Vector3 lightDirection() { return normalized(Vector3{0.6f, 0.5f, 1.0f}); }

Image blankImage(int size) {
  size = std::max(size, 1);
  return Image{size, size, std::vector<uint8_t>(size_t(size) * size_t(size) * 4, 0)};
}

void setPixel(Image& image, int x, int y, const std::array<uint8_t, 4>& color) {
  uint8_t* p = &image.rgba[(size_t(y) * size_t(image.width) + size_t(x)) * 4];
  std::copy(color.begin(), color.end(), p);
}

std::array<uint8_t, 4> shade(const Vector3& normal) {
  float light = kAmbient + kDiffuse * (0.5f + 0.5f * dot(normal, lightDirection()));
  std::array<uint8_t, 4> color{0, 0, 0, 255};
  for (int c = 0; c < 3; ++c) color[size_t(c)] = uint8_t(std::lround(std::clamp(kMeshColor[size_t(c)] * light, 0.0f, 1.0f) * 255));
  return color;
}

float edge(const Vector3& a, const Vector3& b, float x, float y) { return (b.x - a.x) * (y - a.y) - (b.y - a.y) * (x - a.x); }

// The depth-tested fill of one projected triangle of positive area by edge().
void fillTriangle(Image& image, std::vector<float>& depth, const std::array<Vector3, 3>& s,
                  const std::array<uint8_t, 4>& color) {
  float area = edge(s[0], s[1], s[2].x, s[2].y);
  int x0 = std::max(0, int(std::floor(std::min({s[0].x, s[1].x, s[2].x}))));
  int x1 = std::min(image.width - 1, int(std::ceil(std::max({s[0].x, s[1].x, s[2].x}))));
  int y0 = std::max(0, int(std::floor(std::min({s[0].y, s[1].y, s[2].y}))));
  int y1 = std::min(image.height - 1, int(std::ceil(std::max({s[0].y, s[1].y, s[2].y}))));
  for (int y = y0; y <= y1; ++y) {
    for (int x = x0; x <= x1; ++x) {
      float px = float(x) + 0.5f, py = float(y) + 0.5f;
      float w0 = edge(s[1], s[2], px, py), w1 = edge(s[2], s[0], px, py), w2 = edge(s[0], s[1], px, py);
      if (w0 < 0 || w1 < 0 || w2 < 0) continue;
      float z = (w0 * s[0].z + w1 * s[1].z + w2 * s[2].z) / area;
      float& nearest = depth[size_t(y) * size_t(image.width) + size_t(x)];
      if (z <= nearest) continue;
      nearest = z;
      setPixel(image, x, y, color);
    }
  }
}

bool validTriangle(const std::array<int32_t, 3>& t, size_t count) {
  return std::all_of(t.begin(), t.end(), [&](int32_t i) { return i >= 0 && size_t(i) < count; });
}

void drawDot(Image& image, float cx, float cy, int radius) {
  int x = int(std::floor(cx)), y = int(std::floor(cy));
  for (int dy = -radius; dy <= radius; ++dy) {
    for (int dx = -radius; dx <= radius; ++dx) {
      int px = x + dx, py = y + dy;
      if (px >= 0 && py >= 0 && px < image.width && py < image.height) setPixel(image, px, py, kBoneColor);
    }
  }
}

// A line as a row of small dots, one per pixel of its length.
void drawLine(Image& image, const Vector3& a, const Vector3& b) {
  float dx = b.x - a.x, dy = b.y - a.y;
  int steps = std::max(1, int(std::ceil(std::max(std::fabs(dx), std::fabs(dy)))));
  for (int i = 0; i <= steps; ++i) {
    float t = float(i) / float(steps);
    drawDot(image, a.x + dx * t, a.y + dy * t, 0);
  }
}

}  // namespace

size_t Image::coveredCount() const {
  size_t n = 0;
  for (size_t i = 3; i < rgba.size(); i += 4) n += rgba[i] != 0;
  return n;
}

Vector3 Projection::apply(const Vector3& p) const {
  Vector3 d = p - center;
  return {half + dot(d, right) * scale, half - dot(d, up) * scale, dot(d, toViewer)};
}

Projection frame(std::span<const Vector3> points, int size, std::string& problem) {
  Projection view;
  view.toViewer = viewDirection();
  view.right = normalized(cross(view.toViewer * -1.0f, Vector3{0, 0, 1}));
  view.up = cross(view.right, view.toViewer * -1.0f);
  view.half = float(std::max(size, 1)) * 0.5f;
  if (points.empty()) {
    problem = "nothing to draw";
    return view;
  }
  Vector3 low = points[0], high = points[0];
  for (const Vector3& p : points) {
    for (int axis = 0; axis < 3; ++axis) {
      if (!std::isfinite(p[axis])) {
        problem = "a coordinate is not a number";
        return view;
      }
      if (std::fabs(p[axis]) > kLargestCoordinate) {
        problem = format("a coordinate is out of range (%g)", double(p[axis]));
        return view;
      }
      low[axis] = std::min(low[axis], p[axis]);
      high[axis] = std::max(high[axis], p[axis]);
    }
  }
  view.center = (low + high) * 0.5f;
  float radius = length(high - low) * 0.5f;
  view.scale = radius > 0 ? view.half * kMargin / radius : 1.0f;
  return view;
}

namespace {

// The corners of the triangles drawn, three by three. Only they frame the view: unused
// vertices are not the model.
std::vector<Vector3> usedCorners(const Mesh& mesh) {
  std::vector<Vector3> used;
  used.reserve(mesh.triangles.size() * 3);
  for (const auto& t : mesh.triangles) {
    if (!validTriangle(t, mesh.positions.size())) continue;
    for (int32_t i : t) used.push_back(mesh.positions[size_t(i)]);
  }
  return used;
}

}  // namespace

std::string blankReason(const Mesh& mesh, int size) {
  std::string problem;
  frame(usedCorners(mesh), size, problem);
  return problem;
}

std::string blankReason(const Skeleton& skeleton, int size) {
  std::string problem;
  frame(skeleton.joints, size, problem);
  return problem;
}

Rendered renderMesh(const Mesh& mesh, int size) {
  Rendered out{blankImage(size), {}};
  std::vector<Vector3> used = usedCorners(mesh);
  Projection view = frame(used, size, out.problem);
  if (!out.problem.empty()) return out;
  std::vector<float> depth(out.image.rgba.size() / 4, -INFINITY);
  for (size_t k = 0; k + 2 < used.size(); k += 3) {
    const Vector3 &a = used[k], &b = used[k + 1], &c = used[k + 2];
    std::array<Vector3, 3> s{view.apply(a), view.apply(b), view.apply(c)};
    // The picture's y runs down, which turns a face seen counter-clockwise (a front
    // face) into one of negative area; its corners are then swapped for the fill.
    if (edge(s[0], s[1], s[2].x, s[2].y) >= 0) continue;
    std::swap(s[1], s[2]);
    fillTriangle(out.image, depth, s, shade(normalized(cross(b - a, c - a))));
  }
  return out;
}

Rendered renderSkeleton(const Skeleton& skeleton, int size) {
  Rendered out{blankImage(size), {}};
  Projection view = frame(skeleton.joints, size, out.problem);
  if (!out.problem.empty()) return out;
  for (size_t i = 0; i < skeleton.joints.size(); ++i) {
    Vector3 joint = view.apply(skeleton.joints[i]);
    int32_t parent = i < skeleton.parents.size() ? skeleton.parents[i] : -1;
    if (parent >= 0 && size_t(parent) < skeleton.joints.size()) drawLine(out.image, joint, view.apply(skeleton.joints[size_t(parent)]));
    drawDot(out.image, joint.x, joint.y, 1);
  }
  return out;
}

}  // namespace zv::thumbnail
