#include "mdlforge/flex_writer.h"

#include "mdlforge/anim_encoder.h"

namespace zv::mdlforge {
namespace {

// Header fields (count, then offset from the file start).
constexpr size_t kDescriptors = 260;
constexpr size_t kControllers = 268;
constexpr size_t kRules = 276;
constexpr size_t kControllerUis = 384;
// Mesh record fields.
constexpr size_t kMeshFlexCount = 16;
constexpr size_t kMeshFlexSize = 60;
constexpr size_t kControllerSize = 20;

}  // namespace

// An empty table writes nothing, so that models without flexes keep their bytes.
size_t FlexWriter::beginTable(size_t field, size_t count, const char* key) {
  if (count == 0) return w_.size();
  w_.alignTo(4);
  where_.set(key, w_.size());
  w_.patchI32(field, static_cast<int32_t>(count));
  w_.patchOffsetHere(field + 4, 0);
  return w_.size();
}

void FlexWriter::writeTables() {
  beginTable(kDescriptors, d_.flexDescriptors.size(), "flexdescs");
  for (size_t i = 0; i < d_.flexDescriptors.size(); ++i) {
    where_.set(placeKey("flexdesc", {i}), w_.size());
    pool_.reference(w_, w_.size(), d_.flexDescriptors[i]);
  }
  size_t controllers = beginTable(kControllers, d_.flexControllers.size(), "flexcontrollers");
  for (size_t i = 0; i < d_.flexControllers.size(); ++i) {
    const FlexController& c = d_.flexControllers[i];
    size_t start = w_.size();
    where_.set(placeKey("flexcontroller", {i}), start);
    pool_.reference(w_, start, c.type);
    pool_.reference(w_, start, c.name);
    w_.i32(-1);  // run-time slot
    w_.f32(c.min);
    w_.f32(c.max);
  }
  writeRules();
  writeControllerUis(controllers);
}

void FlexWriter::writeRules() {
  beginTable(kRules, d_.flexRules.size(), "flexrules");
  std::vector<size_t> starts;
  for (size_t i = 0; i < d_.flexRules.size(); ++i) {
    const FlexRule& rule = d_.flexRules[i];
    starts.push_back(w_.size());
    where_.set(placeKey("flexrule", {i}), w_.size());
    w_.i32(rule.target);
    w_.i32(static_cast<int32_t>(rule.ops.size()));
    w_.i32(0);  // op offset, patched below
  }
  for (size_t i = 0; i < d_.flexRules.size(); ++i) {
    if (d_.flexRules[i].ops.empty()) continue;
    where_.set(placeKey("flexops", {i}), w_.size());
    w_.patchOffsetHere(starts[i] + 8, starts[i]);
    for (const FlexOp& op : d_.flexRules[i].ops) {
      w_.i32(op.code);
      op.code == 1 ? w_.f32(op.value) : w_.i32(op.index);
    }
  }
}

void FlexWriter::writeControllerUis(size_t controllers) {
  beginTable(kControllerUis, d_.flexControllerUis.size(), "flexuis");
  for (size_t i = 0; i < d_.flexControllerUis.size(); ++i) {
    const FlexControllerUi& ui = d_.flexControllerUis[i];
    size_t start = w_.size();
    where_.set(placeKey("flexui", {i}), start);
    pool_.reference(w_, start, ui.name);
    for (int32_t controller : {ui.controller, ui.right, ui.value}) {
      if (controller < 0) {
        w_.i32(0);
      } else {
        w_.patchOffset(w_.reserveI32(), start, controllers + kControllerSize * size_t(controller));
      }
    }
    w_.u8(ui.remap);
    w_.u8(ui.stereo ? 1 : 0);
    w_.zeros(2);
  }
}

void FlexWriter::writeMeshFlexes(size_t b, size_t m, size_t k, size_t meshStart) {
  const std::vector<MeshFlex>& flexes = d_.bodyParts[b].models[m].meshes[k].flexes;
  if (flexes.empty()) return;
  w_.alignTo(4);
  w_.patchI32(meshStart + kMeshFlexCount, static_cast<int32_t>(flexes.size()));
  w_.patchOffsetHere(meshStart + kMeshFlexCount + 4, meshStart);
  std::vector<size_t> starts;
  for (size_t f = 0; f < flexes.size(); ++f) {
    const MeshFlex& flex = flexes[f];
    size_t start = w_.size();
    starts.push_back(start);
    where_.set(placeKey("flex", {b, m, k, f}), start);
    w_.i32(flex.descriptor);
    for (float t : flex.window) w_.f32(t);
    w_.i32(static_cast<int32_t>(flex.deltas.size()));
    w_.i32(0);  // vertex animation offset, patched below
    w_.i32(flex.partner);
    w_.u8(flex.wrinkle ? 1 : 0);
    w_.zeros(kMeshFlexSize - (w_.size() - start));
  }
  for (size_t f = 0; f < flexes.size(); ++f) {
    if (flexes[f].deltas.empty()) continue;
    where_.set(placeKey("vertanims", {b, m, k, f}), w_.size());
    w_.patchOffsetHere(starts[f] + 24, starts[f]);
    writeVertexAnims(flexes[f]);
    w_.alignTo(4);
  }
}

// Records are packed: wrinkle records follow each other 18 bytes apart.
void FlexWriter::writeVertexAnims(const MeshFlex& flex) {
  for (const VertexDelta& delta : flex.deltas) {
    w_.u16(delta.vertex);
    w_.u8(delta.speed);
    w_.u8(delta.side);
    for (int i = 0; i < 3; ++i) w_.u16(packHalf(delta.position[i]));
    for (int i = 0; i < 3; ++i) w_.u16(packHalf(delta.normal[i]));
    if (flex.wrinkle) w_.u16(packHalf(delta.wrinkle));
  }
}

}  // namespace zv::mdlforge
