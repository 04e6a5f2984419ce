// The rasterizer on solids whose pictures are known: a cube and a tetrahedron cover the
// middle of the picture and never its border, only faces turned to the viewer are drawn,
// the nearest face wins whatever the order, a model far from the origin is framed as one
// at it, bad coordinates give a blank picture and a reason, and the PNG is stable.

#include <gtest/gtest.h>

#include <zlib.h>

#include <cmath>
#include <set>

#include "base/hash.h"
#include "thumbnail/thumbnail.h"

namespace zv::thumbnail {
namespace {

// A cube of side `side` at `at`, each face two triangles wound counter-clockwise seen
// from outside.
Mesh cube(Vector3 at = {}, float side = 1) {
  Mesh m;
  for (int i = 0; i < 8; ++i)
    m.positions.push_back(at + Vector3{float(i & 1), float((i >> 1) & 1), float((i >> 2) & 1)} * side);
  // Corners of each face in counter-clockwise order from outside.
  const int faces[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
  for (const auto& f : faces) {
    m.triangles.push_back({f[0], f[1], f[2]});
    m.triangles.push_back({f[0], f[2], f[3]});
  }
  return m;
}

Mesh tetrahedron() {
  Mesh m;
  m.positions = {{1, 1, 1}, {1, -1, -1}, {-1, 1, -1}, {-1, -1, 1}};
  // Wound counter-clockwise from outside: the normal of each face points away from the
  // opposite corner.
  m.triangles = {{0, 1, 2}, {0, 3, 1}, {0, 2, 3}, {1, 3, 2}};
  return m;
}

Mesh reversed(Mesh m) {
  for (auto& t : m.triangles) std::swap(t[1], t[2]);
  return m;
}

std::set<std::array<uint8_t, 4>> colorsOf(const Image& image) {
  std::set<std::array<uint8_t, 4>> colors;
  for (size_t i = 0; i < image.rgba.size(); i += 4) {
    if (image.rgba[i + 3]) colors.insert({image.rgba[i], image.rgba[i + 1], image.rgba[i + 2], image.rgba[i + 3]});
  }
  return colors;
}

bool borderClear(const Image& image) {
  for (int k = 0; k < image.width; ++k) {
    if (image.covered(k, 0) || image.covered(k, image.height - 1) || image.covered(0, k) || image.covered(image.width - 1, k))
      return false;
  }
  return true;
}

// How many of the mesh's faces turn toward the viewer of the fixed view.
size_t facesTowardViewer(const Mesh& mesh) {
  std::string problem;
  Projection view = frame(mesh.positions, kDefaultSize, problem);
  size_t n = 0;
  for (const auto& t : mesh.triangles) {
    const Vector3 &a = mesh.positions[size_t(t[0])], &b = mesh.positions[size_t(t[1])], &c = mesh.positions[size_t(t[2])];
    n += dot(cross(b - a, c - a), view.toViewer) > 0;
  }
  return n;
}

TEST(Thumbnail, CubeCoversTheMiddleAndNeverTheBorder) {
  Rendered r = renderMesh(cube());
  ASSERT_TRUE(r.problem.empty()) << r.problem;
  ASSERT_EQ(r.image.width, 160);
  ASSERT_EQ(r.image.height, 160);
  EXPECT_TRUE(r.image.covered(80, 80));
  EXPECT_FALSE(r.image.covered(0, 0));
  EXPECT_TRUE(borderClear(r.image));
  // A cube seen from above at three quarters fills a good part of the circle it is framed
  // in, but not all of it.
  double share = double(r.image.coveredCount()) / (160.0 * 160.0);
  EXPECT_GT(share, 0.35);
  EXPECT_LT(share, 0.75);
  // Three faces (six triangles) face the viewer; each face is flat, one shade per face.
  EXPECT_EQ(facesTowardViewer(cube()), 6u);
  EXPECT_EQ(colorsOf(r.image).size(), 3u);
  for (const auto& c : colorsOf(r.image)) EXPECT_EQ(c[3], 255);
}

TEST(Thumbnail, BackFacesAreCulled) {
  // The cube turned inside out shows its three far faces from within: the same outline,
  // other faces in it.
  Image outside = renderMesh(cube()).image, inside = renderMesh(reversed(cube())).image;
  EXPECT_EQ(colorsOf(inside).size(), 3u);
  EXPECT_EQ(inside.coveredCount(), outside.coveredCount());
  EXPECT_NE(inside.rgba, outside.rgba);
  // A lone triangle seen from its back draws nothing.
  Mesh one = tetrahedron();
  one.triangles = {one.triangles[0]};
  size_t front = renderMesh(one).image.coveredCount(), back = renderMesh(reversed(one)).image.coveredCount();
  EXPECT_TRUE((front == 0) != (back == 0)) << front << " " << back;
}

TEST(Thumbnail, TetrahedronShowsExactlyItsFacesTowardTheViewer) {
  Mesh t = tetrahedron();
  Rendered r = renderMesh(t);
  size_t toward = facesTowardViewer(t);
  ASSERT_GT(toward, 0u);
  ASSERT_LT(toward, 4u);
  EXPECT_EQ(colorsOf(r.image).size(), toward);
  EXPECT_TRUE(borderClear(r.image));
  // Its silhouette is the same whichever way round the faces are: the far ones fill it.
  EXPECT_EQ(renderMesh(reversed(t)).image.coveredCount(), r.image.coveredCount());
}

TEST(Thumbnail, TheNearestFaceWinsWhateverTheOrder) {
  // A small cube in front of a big wall: the cube's faces show in the middle whether the
  // wall is drawn first or last.
  Mesh scene = cube({-0.5f, -0.5f, -0.5f});
  std::string problem;
  Projection view = frame(scene.positions, kDefaultSize, problem);
  // A wall square to the view, well behind the cube.
  Vector3 back = view.toViewer * -5.0f;
  auto base = int32_t(scene.positions.size());
  for (Vector3 corner : {view.right * -3 + view.up * -3, view.right * 3 + view.up * -3, view.right * 3 + view.up * 3,
                         view.right * -3 + view.up * 3})
    scene.positions.push_back(back + corner);
  Mesh wallFirst = scene, wallLast = scene;
  std::vector<std::array<int32_t, 3>> wall = {{base, base + 1, base + 2}, {base, base + 2, base + 3}};
  wallFirst.triangles.insert(wallFirst.triangles.begin(), wall.begin(), wall.end());
  wallLast.triangles.insert(wallLast.triangles.end(), wall.begin(), wall.end());
  Image a = renderMesh(wallFirst).image, b = renderMesh(wallLast).image;
  EXPECT_EQ(a.rgba, b.rgba);
  // Where the cube's middle shows, a cube face is seen; beside it, the wall.
  Projection whole = frame(wallFirst.positions, kDefaultSize, problem);
  Vector3 middle = whole.apply({0, 0, 0}), beside = whole.apply(back + view.right * 2.5f);
  auto shadeAt = [&](const Vector3& p) {
    const uint8_t* px = a.pixel(int(p.x), int(p.y));
    return std::array<uint8_t, 4>{px[0], px[1], px[2], px[3]};
  };
  ASSERT_TRUE(a.covered(int(middle.x), int(middle.y)));
  ASSERT_TRUE(a.covered(int(beside.x), int(beside.y)));
  std::set<std::array<uint8_t, 4>> cubeShades = colorsOf(renderMesh(cube({-0.5f, -0.5f, -0.5f})).image);
  EXPECT_TRUE(cubeShades.count(shadeAt(middle)));
  EXPECT_FALSE(cubeShades.count(shadeAt(beside)));
}

TEST(Thumbnail, AFarOffOrLargeModelIsFramedLikeOneAtTheOrigin) {
  Image home = renderMesh(cube()).image;
  EXPECT_EQ(renderMesh(cube({100000, -300000, 20000})).image.rgba, home.rgba);
  Image big = renderMesh(cube({-512, 0, 4096}, 1024)).image;
  EXPECT_TRUE(borderClear(big));
  EXPECT_NEAR(double(big.coveredCount()), double(home.coveredCount()), 0.02 * double(home.coveredCount()));
  // Vertices no triangle uses do not move the framing.
  Mesh stray = cube();
  stray.positions.push_back({1000, 1000, 1000});
  EXPECT_EQ(renderMesh(stray).image.rgba, home.rgba);
}

TEST(Thumbnail, BadCoordinatesGiveABlankPictureAndWhy) {
  Mesh nan = cube();
  nan.positions[3].y = NAN;
  Mesh inf = cube();
  inf.positions[0].z = INFINITY;
  Mesh huge = cube();
  huge.positions[5].x = 3e30f;
  for (const Mesh& m : {nan, inf, huge}) {
    Rendered r = renderMesh(m);
    EXPECT_FALSE(r.problem.empty());
    EXPECT_EQ(blankReason(m), r.problem);  // the check made before drawing says the same
    EXPECT_EQ(r.image.coveredCount(), 0u);
    EXPECT_EQ(r.image.width, 160);
  }
  // Corners out of range are skipped; the rest is drawn.
  Mesh broken = cube();
  broken.triangles.push_back({0, 1, 99});
  broken.triangles.push_back({-1, 0, 1});
  EXPECT_EQ(renderMesh(broken).image.rgba, renderMesh(cube()).image.rgba);
  EXPECT_FALSE(renderMesh(Mesh{}).problem.empty());
  // A flat or point-like mesh draws without dividing by zero.
  Mesh point;
  point.positions = {{1, 1, 1}, {1, 1, 1}, {1, 1, 1}};
  point.triangles = {{0, 1, 2}};
  EXPECT_TRUE(renderMesh(point).problem.empty());
  EXPECT_TRUE(blankReason(point).empty());
  EXPECT_TRUE(blankReason(cube()).empty());
  Skeleton lost{{{0, 0, 0}, {NAN, 0, 0}}, {-1, 0}};
  EXPECT_EQ(blankReason(lost), renderSkeleton(lost).problem);
  EXPECT_FALSE(blankReason(lost).empty());
}

TEST(Thumbnail, SkeletonsAreDrawnAsBonesAndJoints) {
  Skeleton s;
  s.joints = {{0, 0, 0}, {0, 0, 40}, {0, 10, 60}, {0, -10, 60}};
  s.parents = {-1, 0, 1, 1};
  Rendered r = renderSkeleton(s);
  ASSERT_TRUE(r.problem.empty());
  EXPECT_GT(r.image.coveredCount(), 100u);
  EXPECT_TRUE(borderClear(r.image));
  // Without its bones only the joints show.
  Skeleton joints = s;
  joints.parents = {-1, -1, -1, 42};  // a parent out of range is no bone
  EXPECT_LT(renderSkeleton(joints).image.coveredCount(), r.image.coveredCount());
  s.joints[2].x = NAN;
  EXPECT_FALSE(renderSkeleton(s).problem.empty());
  EXPECT_FALSE(renderSkeleton(Skeleton{}).problem.empty());
}

uint32_t bigEndian(const std::vector<uint8_t>& b, size_t at) {
  return uint32_t(b[at]) << 24 | uint32_t(b[at + 1]) << 16 | uint32_t(b[at + 2]) << 8 | uint32_t(b[at + 3]);
}

TEST(Thumbnail, PngIsRgbaOfTheImageSizeAndTheSameBytesEachTime) {
  Image image = renderMesh(tetrahedron()).image;
  std::vector<uint8_t> png = encodePng(image);
  ASSERT_GT(png.size(), 33u);
  const uint8_t signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  EXPECT_TRUE(std::equal(signature, signature + 8, png.begin()));
  EXPECT_EQ(std::string(png.begin() + 12, png.begin() + 16), "IHDR");
  EXPECT_EQ(bigEndian(png, 16), 160u);
  EXPECT_EQ(bigEndian(png, 20), 160u);
  EXPECT_EQ(png[24], 8);  // bits per channel
  EXPECT_EQ(png[25], 6);  // colour with alpha
  EXPECT_EQ(encodePng(renderMesh(tetrahedron()).image), png);
  EXPECT_NE(encodePng(renderMesh(cube()).image), png);
  EXPECT_TRUE(encodePng(Image{}).empty());
  EXPECT_TRUE(encodePng(Image{2, 2, {1, 2, 3}}).empty());
}

// A picture made with integers only (no float rounding that could differ between
// compilers): a transparent ground, two flat faces and a band of changing colour.
Image knownPicture() {
  Image image{160, 160, std::vector<uint8_t>(160 * 160 * 4, 0)};
  for (int y = 0; y < 160; ++y) {
    for (int x = 0; x < 160; ++x) {
      uint8_t* p = &image.rgba[(size_t(y) * 160 + size_t(x)) * 4];
      if (x > 30 && x < 90 && y > 20 && y < 120) {
        p[0] = 90, p[1] = 100, p[2] = 120, p[3] = 255;
      } else if (x >= 90 && x < 130 && y > 40 && y < 140 && x - 90 < y - 40) {
        p[0] = 60, p[1] = 70, p[2] = 85, p[3] = 255;
      } else if (y >= 145 && y < 150) {
        p[0] = uint8_t(x), p[1] = uint8_t(255 - x), p[2] = uint8_t(x * 3), p[3] = 255;
      }
    }
  }
  return image;
}

// The rows inside the PNG's image data, decompressed: each is a filter byte and the row.
std::vector<uint8_t> imageData(const std::vector<uint8_t>& png, size_t rawSize) {
  std::vector<uint8_t> compressed;
  for (size_t at = 8; at + 12 <= png.size();) {
    uint32_t length = bigEndian(png, at);
    if (std::string(png.begin() + long(at) + 4, png.begin() + long(at) + 8) == "IDAT")
      compressed.insert(compressed.end(), png.begin() + long(at) + 8, png.begin() + long(at) + 8 + length);
    at += 12 + length;
  }
  std::vector<uint8_t> raw(rawSize + 1);
  uLongf size = raw.size();
  if (uncompress(raw.data(), &size, compressed.data(), uLong(compressed.size())) != Z_OK) return {};
  raw.resize(size);
  return raw;
}

TEST(Thumbnail, PngRowsDecompressToThePixels) {
  Image image = knownPicture();
  std::vector<uint8_t> raw = imageData(encodePng(image), 160 * (160 * 4 + 1));
  ASSERT_EQ(raw.size(), 160u * (160 * 4 + 1));
  for (size_t y = 0; y < 160; ++y) {
    const uint8_t* row = &raw[y * (160 * 4 + 1)];
    ASSERT_EQ(row[0], 0) << "row " << y << " is filtered";
    ASSERT_TRUE(std::equal(row + 1, row + 1 + 160 * 4, image.pixel(0, int(y)))) << "row " << y;
  }
}

// The bytes of a known picture, pinned: the Linux and Windows tools link different builds
// of zlib, and a zlib that compressed differently would give them different thumbnails.
TEST(Thumbnail, PngBytesOfAKnownPictureArePinned) {
  std::vector<uint8_t> png = encodePng(knownPicture());
  EXPECT_EQ(png.size(), 1771u);
  EXPECT_EQ(fnv1a64(png.data(), png.size()), 0x278a52b2052587f3u);
}

}  // namespace
}  // namespace zv::thumbnail
