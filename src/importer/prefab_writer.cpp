// The weapon animation prefab: the model's sequences and weight lists, every name prefixed
// with the model's base name, so that several weapons merge into one model.

#include "base/log.h"
#include "importer/converter.h"
#include "importer/qmdl_sequences.h"
#include "importer/qmdl_writer.h"

namespace zv {

bool C_ZV_MDL_Import::WritePrefab() {
  modeldoc::ModelDocument document(modeldoc::DocumentKind::Prefab);
  std::string prefix = settings_.baseName + "_";
  writeSequenceNodes(document, tables_, {prefix, settings_.outputRoot, settings_.overrideLean});
  writeWeightListNodes(document, tables_, prefix);
  if (Status made = output_.createFolder(paths_.prefabFolder); !made) warning("%s\n", made.message().c_str());
  std::string file = paths_.prefabFolder + "/" + settings_.baseName + ".qmdl_prefab";
  Status saved = saveModelDocument(output_, document, file);
  if (!saved) {
    mainLog().logColor(Severity::Warning, colors::kRed, "Couldn't save prefab :: %s :: %s\n", file.c_str(),
                       saved.message().c_str());
  }
  return saved.ok();
}

}  // namespace zv
