#pragma once
// Morph targets in a mesh part file: delta states on the part's mesh, and on the root the
// combination operator with the controls that drive them and the rules as expressions.

#include "dmx/dm_element.h"
#include "importer/flexes.h"
#include "importer/tables.h"

namespace zv {

// Adds one delta state per morph target of the part to mesh, and to root the combination
// operator over mesh. Nothing for a part without morph targets. The targets' delta and
// index arrays move into the tree and must not be read again; their names, windows and
// descriptors stay.
void addMorphTargetElements(dmx::DmElementTree& tree, dmx::CDmElement& root, dmx::CDmElement& mesh,
                            MeshPart& part, const FlexModel& flexes);

}  // namespace zv
