// Writing the mesh stage's outputs: one DMX file per mesh part and meshinfo.txt.

#include "base/log.h"
#include "base/path.h"
#include "importer/converter.h"
#include "importer/dmx_output.h"
#include "importer/mesh_dmx.h"

namespace zv {

bool C_ZV_MDL_Import::WriteMeshes() {
  if (!model_) return false;
  int32_t texcoordSets = 1;
  for (MeshPart& part : tables_.meshParts) {
    std::string file = path::toForwardSlashes(path::join(paths_.meshFolder, part.name + ".dmx"));
    dmx::DmElementTree tree;
    const dmx::CDmElement* root = buildMeshPartTree(tree, part, tables_.skeleton, tables_.materials, tables_.flexes);
    if (part.texcoordSets == 2) texcoordSets = 2;
    if (Status saved = saveDmxFile(output_, file, *root, scratch_.buffer); !saved) {
      warning("C_ZV_MDL_Import::WriteMeshes(2264): Unable to save %s: %s\n", file.c_str(),
              saved.message().c_str());
      return false;
    }
  }
  std::string info = path::toForwardSlashes(path::join(paths_.meshFolder, "meshinfo.txt"));
  if (Status written = output_.writeText(info, meshInfoText(allowsStaticProp(model_->mdl, tables_.modelKeys), texcoordSets));
      !written) {
    warning("C_ZV_MDL_Import::WriteMeshes(2290): Unable to write %s: %s\n", info.c_str(),
            written.message().c_str());
    return false;
  }
  return true;
}

}  // namespace zv
