#pragma once
// The model document writer: fills a document from the loaded legacy model and the
// converter's tables, one stage per method, in the order the document expects.

#include <cstdint>
#include <string>
#include <string_view>

#include "base/result.h"
#include "importer/converter.h"
#include "kv/keyvalues.h"
#include "modeldoc/model_document.h"

namespace zv {

class QmdlWriter {
 public:
  QmdlWriter(const C_ZV_MDL_Import& converter, const legacy::MdlFile& mdl, modeldoc::ModelDocument& document);

  // Fills the document. skipAnimationData (a static prop) leaves out the skeleton, bone
  // markup and pose parameters. False when the document must not be saved: a pose
  // parameter could not be created.
  bool build(bool skipAnimationData);

 private:
  void writeBoundsHull();
  void writeBones();
  void writeBoneMarkup();
  bool writePoseParameters();
  void writeMaterialGroups();
  void writeBodyGroups();
  void writeBodyGroupPresets();
  void writeLodGroups();
  // Body markups, joints and hull files, when the model has collision data.
  void writePhysics();
  void writePhysicsBodies();
  void writePhysicsJoints();
  void writePhysicsHullFiles();
  void writeBreakList();
  void writeAttachments();
  void writeHitboxSets();
  void writeHitbox(modeldoc::Node& set, const legacy::Hitbox& box);
  void writeRenderMeshFiles();
  void writeIkChains();
  void writeIkChain(modeldoc::Node& list, const legacy::IkChain& chain);
  void writeSequences();
  void writeJiggleBones();
  void writeWeightLists();
  void writeSnapshotWeights();
  void writeDoorOptions();
  void writeParticles();
  void writePropData();
  void writePrefab();

  // A top-level section of the model's key-value text; nullptr when it has none.
  const KeyValues* modelSection(std::string_view name) const;

  // A new node under the root list of listClass; nullptr when either cannot be made.
  modeldoc::Node* createInList(std::string_view listClass, std::string_view nodeClass, std::string_view name);
  // The converted name of a bone of the skeleton table; empty for an index outside it.
  std::string boneReference(int32_t bone) const;
  // A solid as a physics body: its bone's converted name; empty when no bone has its name.
  std::string physicsBodyName(const PhysicsSolid& solid) const;
  void setJointFrame(modeldoc::Node& joint, const PhysicsSolid& parent, const PhysicsSolid& child, bool conical) const;
  // The name of a body part's body group node, before sanitising.
  std::string bodyGroupName(size_t bodyPart) const;

  const C_ZV_MDL_Import& converter_;
  const legacy::MdlFile& mdl_;
  const ModelTables& tables_;
  modeldoc::ModelDocument& document_;
};

// Legacy numbers go into the document as they are, except that a non-finite one cannot be
// written (it becomes 0, with the shared repair warning) and -0 is written as 0.
float documentFloat(float value);
Vector3 documentVector(const Vector3& value);
QAngle documentAngles(const QAngle& value);

// Saves a document to path through the output layer (and so through source control).
// The error is the document library's text; why the output layer refused is logged.
Status saveModelDocument(Output& output, const modeldoc::ModelDocument& document, const std::string& path);

}  // namespace zv
