#include <gtest/gtest.h>

#include <algorithm>

#include "base/byte_view.h"
#include "fs/qpk_archive.h"
#include "qpkpack/qpk_writer.h"
#include "qpkpack/qpkpack_main.h"
#include "support/test_support.h"

namespace zv::qpkpack {
namespace {

using zv::testing::TempDir;
using zv::testing::writeText;

std::vector<uint8_t> filled(size_t size, uint8_t value) { return std::vector<uint8_t>(size, value); }

const PlacedFile& placed(const QpkImage& image, std::string_view path) {
  auto it = std::find_if(image.placed.begin(), image.placed.end(),
                         [&](const PlacedFile& p) { return p.path == path; });
  if (it == image.placed.end()) throw std::runtime_error("not packed: " + std::string(path));
  return *it;
}

TEST(QpkPack, SameFilesGiveTheSameBytesInTreeOrder) {
  std::vector<PackedFile> files = {
      {"b/z.txt", {1}}, {"a/y.mdl", {2}}, {"b/a.txt", {3}}, {"a/x.txt", {4}}, {"n", {5}}};
  auto first = buildQpkArchive(files, {});
  std::reverse(files.begin(), files.end());
  auto second = buildQpkArchive(files, {});
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->directory, second->directory);
  std::vector<std::string> order;
  for (const PlacedFile& p : first->placed) order.push_back(p.path);
  // By extension (" " meaning none sorts first), then folder, then name.
  EXPECT_EQ(order, (std::vector<std::string>{"n", "a/y.mdl", "a/x.txt", "b/a.txt", "b/z.txt"}));
}

TEST(QpkPack, FilesGoWhereTheLimitsSay) {
  PackOptions options;
  options.maxDirectoryBytes = 10;
  options.maxDataFileBytes = 30;
  options.preloadBytes = 2;
  std::vector<PackedFile> files = {
      {"a.bin", filled(12, 1)},  // 10 after the preload: directory file
      {"b.bin", filled(13, 2)},  // 11: first data file
      {"c.bin", filled(21, 3)},  // 19: still fits the first data file (11 + 19 = 30)
      {"d.bin", filled(3, 4)},   // 1: directory file
      {"e.bin", filled(50, 5)},  // 48: past the limit alone, a data file of its own
      {"f.bin", filled(13, 6)},  // 11: the next data file
      {"g.bin", filled(1, 7)},   // all preload
  };
  auto image = buildQpkArchive(files, options);
  ASSERT_TRUE(image) << image.message();
  auto where = [&](std::string_view path) {
    const PlacedFile& p = placed(*image, path);
    return std::to_string(p.archiveIndex) + "@" + std::to_string(p.offset) + "+" + std::to_string(p.length) +
           "/" + std::to_string(p.preloadSize);
  };
  EXPECT_EQ(where("a.bin"), "32767@0+10/2");
  EXPECT_EQ(where("b.bin"), "0@0+11/2");
  EXPECT_EQ(where("c.bin"), "0@11+19/2");
  EXPECT_EQ(where("d.bin"), "32767@10+1/2");
  EXPECT_EQ(where("e.bin"), "1@0+48/2");
  EXPECT_EQ(where("f.bin"), "2@0+11/2");
  EXPECT_EQ(where("g.bin"), "32767@11+0/1");
  ASSERT_EQ(image->dataFiles.size(), 3u);
  EXPECT_EQ(image->dataFiles[0].size(), 30u);
  EXPECT_EQ(image->dataFiles[2], filled(11, 6));
}

TEST(QpkPack, HeadersOfBothVersionsDescribeTheFile) {
  std::vector<PackedFile> files = {{"a.txt", filled(5, 1)}, {"b.txt", filled(7, 2)}};
  for (uint32_t version : {1u, 2u}) {
    PackOptions options;
    options.version = version;
    auto image = buildQpkArchive(files, options);
    ASSERT_TRUE(image) << image.message();
    ByteView bytes(image->directory);
    auto header = fs::parseQpkHeader(bytes);
    ASSERT_TRUE(header) << header.message();
    EXPECT_EQ(header->version, version);
    // Header, tree, then the 12 data bytes; version 2 adds no checksum or signature bytes.
    EXPECT_EQ(header->dataStart() + 12, image->directory.size());
    if (version == 2) {
      EXPECT_EQ(header->dataSectionSize, 12u);
      EXPECT_EQ(header->archiveChecksumSize + header->otherChecksumSize + header->signatureSize, 0u);
    }
    EXPECT_EQ(bytes.readOr<uint16_t>(placed(*image, "b.txt").entryOffset + 16, 0), fs::kQpkEntryTerminator);
  }
}

TEST(QpkPack, RefusesWhatAnArchiveCannotHold) {
  auto refusal = [](std::vector<PackedFile> files, PackOptions options = {}) {
    auto image = buildQpkArchive(files, options);
    return image ? std::string("accepted") : image.message();
  };
  EXPECT_NE(refusal({{"Models/A.mdl", {}}, {"models/a.MDL", {}}}).find("two files are named"),
            std::string::npos);
  EXPECT_NE(refusal({{"models", {}}, {"Models/a.mdl", {}}}).find("both a file and a folder"),
            std::string::npos);
  EXPECT_NE(refusal({{"./", {}}}).find("empty name"), std::string::npos);
  EXPECT_NE(refusal({{"../outside.txt", {}}}).find("leaves the archive"), std::string::npos);
  EXPECT_NE(refusal({{"odd. ", {}}}).find("single space"), std::string::npos);
  EXPECT_NE(refusal({{" /x.txt", {}}}).find("single space"), std::string::npos);
  PackOptions v3;
  v3.version = 3;
  EXPECT_NE(refusal({}, v3).find("version 3"), std::string::npos);
  // Names that merely look unusual are kept as they are.
  EXPECT_EQ(refusal({{".hidden", {}}, {"name.", {}}, {"a.b.c", {}}}), "accepted");
}

TEST(QpkPack, CommandLinePacksAFolderAndSkipsItsOwnOutput) {
  TempDir dir;
  writeText(dir.file("content/models/Crate.mdl"), std::string(5000, 'c'));
  writeText(dir.file("content/materials/crate.qmt"), "material");
  writeText(dir.file("content/README"), "top");
  std::string out, err;
  std::string archive = dir.file("content/pak01_dir.qpk");
  // Packing twice into the folder itself must not pick up the first run's archive.
  for (int run = 0; run < 2; ++run) {
    out.clear();
    ASSERT_EQ(
        runQpkpack({"-v1", "-preload", "4", "-max-dir-bytes", "100", archive, dir.file("content")}, out, err),
        0)
        << err;
  }
  EXPECT_NE(out.find("wrote " + dir.file("content/pak01_000.qpk")), std::string::npos) << out;
  EXPECT_NE(out.find("packed 3 files"), std::string::npos) << out;
  auto opened = fs::QpkArchive::open(archive);
  ASSERT_TRUE(opened) << opened.message();
  EXPECT_EQ((*opened)->header().version, 1u);
  EXPECT_EQ((*opened)->entries().size(), 3u);
  auto crate = (*opened)->read("MODELS/crate.mdl");
  ASSERT_TRUE(crate) << crate.message();
  EXPECT_EQ(crate->size(), 5000u);

  EXPECT_EQ(runQpkpack({}, out, err), 2);
  EXPECT_NE(err.find("usage: qpkpack"), std::string::npos);
  EXPECT_EQ(runQpkpack({"-preload", "70000", archive, dir.file("content")}, out, err), 2);
  EXPECT_EQ(runQpkpack({"-max-dir-bytes", "ten", archive, dir.file("content")}, out, err), 2);
  EXPECT_EQ(runQpkpack({"-v3", archive, dir.file("content")}, out, err), 2);
  EXPECT_EQ(runQpkpack({archive, dir.file("missing")}, out, err), 1);
  EXPECT_NE(err.find("missing"), std::string::npos);
}

}  // namespace
}  // namespace zv::qpkpack
