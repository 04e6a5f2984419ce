#pragma once
// The tables the converter builds for one model. Each stage reads what earlier stages
// left here and adds its own; the converter clears them between models.

#include <cstdint>
#include <string>
#include <vector>

namespace zv {

// One animation to export.
struct AnimExportRecord {
  std::string outputFolder;
  std::string name;      // unique, lower case
  std::string fileName;  // name with "@" made "_", then ".dmx"
  float frameRate = 0;
  int32_t frameCount = 0;
  bool looping = false;
  bool allZeros = false;  // flag 0x0020
  bool hidden = false;    // flag 0x0400
  bool delta = false;
  bool world = false;     // flag 0x4000
};

// One sequence to write into the model document.
struct SequenceRecord {
  std::string name;
};

struct ModelTables {
  std::vector<AnimExportRecord> animations;
  size_t ownAnimationCount = 0;  // the main model's; the rest come from included models
  std::vector<SequenceRecord> sequences;
  // Material names in their new form (".qmat"), in the order the reference list names them.
  std::vector<std::string> referencedMaterials;
};

}  // namespace zv
