// Stages whose converters are not part of this build yet. Each leaves the model's
// tables as they are, so the pipeline around them runs unchanged.

#include "importer/converter.h"

namespace zv {

// No collision reader yet: no model has a valid collision file.
bool C_ZV_MDL_Import::LoadPhysics() { return false; }
bool C_ZV_MDL_Import::ExtractAnims() { return true; }
bool C_ZV_MDL_Import::WriteAnimation(size_t) { return true; }
bool C_ZV_MDL_Import::WritePhysics() { return true; }
bool C_ZV_MDL_Import::WritePrefab() { return true; }

}  // namespace zv
