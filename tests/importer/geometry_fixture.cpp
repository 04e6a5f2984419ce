#include "geometry_fixture.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace zv::testing {

GeometryRun::GeometryRun(const mdlforge::Description& description, bool allLods, bool yUpToZUp) {
  EXPECT_TRUE(fileSystem.addSearchPath("", "LOCAL", fs::Placement::Tail));
  writeFamily(buildFiles(description), dir.file("models/props"), "crate");
  RunOptions options;
  options.inputFiles = {dir.file("models/props/crate.mdl")};
  options.baseNames = {"crate"};
  options.outputFolders = {dir.file("out/props")};
  options.outputRoot = dir.file("out");
  options.allLods = allLods;
  options.yUpToZUp = yUpToZUp;
  converter.Setup(options, 0);
}

void GeometryRun::material(const std::string& name) const {
  writeText(dir.path() / "materials" / (name + ".qmt"), "");
}

bool GeometryRun::extract() { return converter.LoadMDL() && converter.ExtractMeshes(); }

bool GeometryRun::extractAndWrite() { return extract() && converter.WriteMeshes(); }

dmx::DmDocument GeometryRun::readMesh(const std::string& part) const {
  std::vector<uint8_t> bytes = readBytes(meshFile(part));
  auto document = dmx::readDmx(ByteView(bytes));
  if (!document) throw std::runtime_error(meshFile(part).string() + " does not read: " + document.message());
  return std::move(document.value());
}

}  // namespace zv::testing
