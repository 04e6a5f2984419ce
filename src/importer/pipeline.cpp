#include "importer/pipeline.h"

#include <algorithm>

#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"

namespace zv {

ModelPaths buildModelPaths(std::string_view outputFolder, std::string_view baseName) {
  std::string refs = path::join(outputFolder, std::string(baseName) + "_refs");
  ModelPaths paths;
  paths.document = path::toForwardSlashes(path::join(outputFolder, std::string(baseName) + ".qmdl"));
  paths.animFolder = path::toForwardSlashes(path::join(refs, "anim"));
  paths.meshFolder = path::toForwardSlashes(path::join(refs, "mesh"));
  paths.physFolder = path::toForwardSlashes(path::join(refs, "phys"));
  paths.prefabFolder = path::toForwardSlashes(path::join(refs, "prefab"));
  paths.referenceList = replaceAll(paths.document, ".qmdl", "_refs.txt");
  return paths;
}

bool isStaticModel(const std::vector<std::string>& subModelNames, const std::vector<std::string>& sequenceNames) {
  if (subModelNames.size() != 1 || subModelNames[0] != "static_prop") return false;
  return std::all_of(sequenceNames.begin(), sequenceNames.end(), [](const std::string& name) {
    std::string base = toLower(path::fileBase(name));
    return base == "idle" || base == "@idle";
  });
}

size_t animationsToWrite(size_t count, size_t ownCount, bool skipIncluded) {
  return skipIncluded ? std::min(count, ownCount) : count;
}

void printAnimationProgress(size_t count, const std::vector<std::vector<LogRecord>>& said) {
  mainLog().log(Severity::Message, "Writing %d Animations:", int(count));
  size_t step = std::max<size_t>(1, count / 10);
  int mark = 0;
  for (size_t i = 0; i < count; ++i) {
    if (i % step == 0) mainLog().log(Severity::Message, "%d..", mark++);
    if (i < said.size()) replayLog(said[i]);
  }
  mainLog().log(Severity::Message, "Done\n");
}

std::string referenceListText(const std::vector<std::string>& materials) {
  std::string text = "importfilelist\n{\n";
  for (const std::string& material : materials) text += format("\t\"file\"\t\"%s\"\n", replaceAll(material, ".qmat", ".qmt").c_str());
  text += "}\n";
  return text;
}

}  // namespace zv
