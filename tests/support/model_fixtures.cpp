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

namespace {

mdlforge::MeshFlex meshFlex(int32_t descriptor, std::array<float, 4> window, std::vector<mdlforge::VertexDelta> deltas) {
  mdlforge::MeshFlex flex;
  flex.descriptor = descriptor;
  flex.window = window;
  flex.deltas = std::move(deltas);
  return flex;
}

mdlforge::VertexDelta moved(uint16_t vertex, Vector3 position, uint8_t side = 0) {
  mdlforge::VertexDelta delta;
  delta.vertex = vertex;
  delta.side = side;
  delta.position = position;
  return delta;
}

}  // namespace

mdlforge::Description faceModel() {
  using mdlforge::FlexOp;
  mdlforge::Description d = crateModel();
  d.flexDescriptors = {"smile_r", "smile_l", "blink", "mid", "pucker"};
  d.flexControllers = {{"mouth", "smile_r", 0, 1}, {"mouth", "smile_l", 0, 1}, {"eyelid", "blink", 0, 1},
                       {"head", "head_turn", -30, 30}};
  d.flexRules = {{0, {FlexOp{2, 0, 0}}},
                 {1, {FlexOp{2, 0, 1}}},
                 {3, {FlexOp{1, 1, 0}, FlexOp{2, 0, 2}, FlexOp{5, 0, 0}}},
                 {2, {FlexOp{2, 0, 2}, FlexOp{3, 0, 3}, FlexOp{6, 0, 0}}},
                 {4, {FlexOp{2, 0, 0}}}};
  d.flexControllerUis = {{"smile", 0, 1, -1, 0, true}, {"blink", 2, -1, -1, 0, false}, {"head_turn", 3, -1, -1, 0, false}};
  mdlforge::Mesh& mesh = d.bodyParts[0].models[0].meshes[0];
  mdlforge::MeshFlex smile = meshFlex(0, {0, 1, 10, 11}, {moved(0, {0, 0, 0.25f}, 0), moved(1, {0, 0, 0.25f}, 255),
                                                          moved(2, {0, 0, 0.25f}, 128)});
  smile.partner = 1;
  mdlforge::MeshFlex pucker = meshFlex(4, {0, 1, 10, 11}, {moved(5, {0, -0.5f, 0})});
  pucker.wrinkle = true;
  pucker.deltas[0].wrinkle = 0.75f;
  mesh.flexes = {smile, meshFlex(2, {-11, -10, -0.5f, 0}, {moved(3, {0, 0, -0.25f}), moved(4, {0, 0, -0.25f})}),
                 meshFlex(2, {0, 0.5f, 10, 11}, {moved(3, {0, 0, 0.5f}), moved(4, {0, 0, 0.5f})}), pucker};
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
  if (files.ani) writeBytes(stem + ".ani", *files.ani);
}

}  // namespace zv::testing
