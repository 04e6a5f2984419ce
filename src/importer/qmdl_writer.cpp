// The model document stage: build the document, then save it.

#include "importer/qmdl_writer.h"

#include "base/float_sanitize.h"
#include "base/log.h"
#include "importer/model_keys.h"

namespace zv {

QmdlWriter::QmdlWriter(const C_ZV_MDL_Import& converter, const legacy::MdlFile& mdl,
                       modeldoc::ModelDocument& document)
    : converter_(converter),
      mdl_(mdl),
      tables_(converter.tables()),
      document_(document) {}

bool QmdlWriter::build(bool skipAnimationData) {
  writeBoundsHull();
  if (!skipAnimationData) {
    writeBones();
    writeBoneMarkup();
    if (!writePoseParameters()) return false;
  }
  writeMaterialGroups();
  writeBodyGroups();
  writeBodyGroupPresets();
  writeLodGroups();
  // The root lists keep the order in which they are first made, so the stages must run
  // in this order.
  writePhysics();
  writeAttachments();
  if (!skipAnimationData) writeHitboxSets();
  writeRenderMeshFiles();
  writeIkChains();
  if (!skipAnimationData) writeSequences();
  writeJiggleBones();
  if (!skipAnimationData) writeWeightLists();
  writeSnapshotWeights();
  writeDoorOptions();
  writeParticles();
  writePropData();
  writeBreakList();
  writePrefab();
  return true;
}

const KeyValues* QmdlWriter::modelSection(std::string_view name) const {
  return tables_.modelKeys ? tables_.modelKeys->find(name) : nullptr;
}

modeldoc::Node* QmdlWriter::createInList(std::string_view listClass, std::string_view nodeClass,
                                         std::string_view name) {
  modeldoc::Node* list = document_.rootList(listClass);
  // Without the list, a null parent would put the node in the game data list instead.
  if (list == nullptr) return nullptr;
  return document_.createNode(nodeClass, name, list);
}

float documentFloat(float value) { return sanitizeFloat(value) + 0.0f; }

Vector3 documentVector(const Vector3& value) {
  return {documentFloat(value.x), documentFloat(value.y), documentFloat(value.z)};
}

QAngle documentAngles(const QAngle& value) {
  return {documentFloat(value.pitch), documentFloat(value.yaw), documentFloat(value.roll)};
}

Status saveModelDocument(Output& output, const modeldoc::ModelDocument& document, const std::string& path) {
  return document.save(path, [&output](const std::string& target, std::span<const uint8_t> bytes) {
    Status written = output.write(target, bytes);
    if (!written) mainLog().log(Severity::Warning, "%s\n", written.message().c_str());
    return written.ok();
  });
}

bool C_ZV_MDL_Import::WriteQmdl(bool isStatic) {
  modeldoc::ModelDocument document(modeldoc::DocumentKind::Model);
  return writeModelDocument(document, isStatic);
}

bool C_ZV_MDL_Import::writeModelDocument(modeldoc::ModelDocument& document, bool isStatic) {
  if (!model_) return false;
  if (!QmdlWriter(*this, model_->mdl, document).build(isStatic)) return false;
  Status saved = saveModelDocument(output_, document, paths_.document);
  if (!saved) mainLog().logColor(Severity::Warning, colors::kRed, "%s\n", saved.message().c_str());
  return saved.ok();
}

}  // namespace zv
