#include "support/model_fixtures.h"

#include <stdexcept>

#include "support/test_support.h"

namespace zv::testing {

mdlforge::Vertex vertexAt(float x, float y, float z) {
  mdlforge::Vertex v;
  v.position = {x, y, z};
  v.uv = {x / 10, y / 10};
  return v;
}

mdlforge::Mesh triangleMesh(int32_t material, int triangles, float offset) {
  mdlforge::Mesh mesh;
  mesh.material = material;
  std::vector<uint16_t> corners;
  for (int t = 0; t < triangles; ++t) {
    float x = offset + float(t);
    mesh.vertices.push_back(vertexAt(x, 0, 0));
    mesh.vertices.push_back(vertexAt(x + 1, 0, 0));
    mesh.vertices.push_back(vertexAt(x, 1, 0));
    for (int k = 0; k < 3; ++k) corners.push_back(uint16_t(3 * t + k));
  }
  mesh.lods = {{mdlforge::triangleGroup(mesh.vertices.size(), corners)}};
  return mesh;
}

mdlforge::Description crateModel() {
  mdlforge::Description d;
  d.name = "models/props/crate.mdl";
  mdlforge::Bone root;
  root.name = "root";
  d.bones = {root};
  d.textures = {"crate"};
  d.textureDirs = {"models\\props\\"};
  mdlforge::SubModel crate;
  crate.name = "crate";
  crate.meshes = {triangleMesh(0, 2)};
  mdlforge::BodyPart body;
  body.name = "body";
  body.models = {crate};
  d.bodyParts = {body};
  return d;
}

mdlforge::ModelFiles buildFiles(const mdlforge::Description& description) {
  auto files = mdlforge::build(description);
  if (!files) throw std::runtime_error("the model builder refused the description: " + files.message());
  return std::move(files.value());
}

legacy::FamilyFiles familyFiles(const mdlforge::ModelFiles& files, const std::string& base) {
  return {base + ".mdl", files.mdl, base + ".dx90.vtx", files.vtx, base + ".qvd", files.qvd};
}

void writeFamily(const mdlforge::ModelFiles& files, const std::string& folder, const std::string& base) {
  std::string stem = folder + "/" + base;
  writeBytes(stem + ".mdl", files.mdl);
  if (files.qvd) writeBytes(stem + ".qvd", *files.qvd);
  if (files.vtx) writeBytes(stem + ".dx90.vtx", *files.vtx);
}

}  // namespace zv::testing
