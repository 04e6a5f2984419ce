// Model document stages for the game data of the key-value text: door options, particles
// and prop data, each a generic game data node.

#include "base/log.h"
#include "importer/particles.h"
#include "importer/qmdl_writer.h"

namespace zv {
namespace {

// A section's members as game keys, in order; nested sections add their members as
// "section.key", so that nothing of the section is lost.
void copyKeys(modeldoc::Node& node, const KeyValues& section, const std::string& prefix = {}) {
  for (const KeyValues& member : section.children()) {
    std::string key = prefix + member.name();
    if (member.isSection()) {
      copyKeys(node, member, key + ".");
    } else {
      node.setGameKey(key, member.value());
    }
  }
}

}  // namespace

void QmdlWriter::writeDoorOptions() {
  const KeyValues* options = modelSection("door_options");
  if (options == nullptr) return;
  modeldoc::Node* node = document_.createNode("GenericGameData", "", nullptr);
  if (node == nullptr) return;
  node->set("game_class", "door_options");
  copyKeys(*node, *options);
}

void QmdlWriter::writeParticles() {
  const KeyValues* particles = modelSection("particles");
  if (particles == nullptr) return;
  converter_.recordInputs(converter_.particles().inputs());
  for (const KeyValues& particle : particles->children()) {
    modeldoc::Node* node = document_.createNode("GenericGameData", "", nullptr);
    if (node == nullptr) continue;
    node->set("game_class", "particle");
    std::string system = particle.getString("name");
    if (auto file = converter_.particles().resolve(system)) {
      node->setGameKey("name", *file);
    } else {
      warning("Particle system \"%s\" is defined in no particle file of the game; its name is not converted\n",
              system.c_str());
    }
    if (auto type = particleAttachmentType(particle.getString("attachment_type"))) {
      node->setGameKey("attachment_type", *type);
    }
    node->setGameKey("attachment_point", particle.getString("attachment_point"));
  }
}

void QmdlWriter::writePropData() {
  const KeyValues* propData = modelSection("prop_data");
  if (propData == nullptr) return;
  modeldoc::Node* node = document_.createNode("GenericGameData", "", nullptr);
  if (node == nullptr) return;
  node->set("game_class", "prop_data");
  copyKeys(*node, *propData);
}

}  // namespace zv
