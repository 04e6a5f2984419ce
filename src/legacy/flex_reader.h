#pragma once
// Reading the flex records of a model header file, for its parser.

#include <string>
#include <vector>

#include "legacy/flex.h"
#include "legacy/record_reader.h"

namespace zv::legacy {

// The header's descriptor, controller, rule and controller UI tables. A broken table costs
// itself; a broken rule or UI entry only itself. Descriptors and controllers keep their
// places (rules and meshes name them by index): one whose name is broken keeps an empty
// name. Rules and UI entries are read only when the tables they name were. False when the
// descriptor table was lost, so that mesh flexes are not read either.
bool readFlexTables(RecordReader& reader, const Record& header, FlexTables& out);

// The flex records of one mesh record. A broken record costs itself; a vertex animation
// naming a vertex past the mesh's vertexCount is left out of its record.
std::vector<MeshFlex> readMeshFlexes(RecordReader& reader, const Record& mesh, int32_t vertexCount,
                                     const FlexTables& tables, const std::string& where);

}  // namespace zv::legacy
