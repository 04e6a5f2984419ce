#pragma once
// The element tree of one mesh part file, and the small mesh information file that goes
// beside the part files.

#include <string>
#include <vector>

#include "dmx/dm_element.h"
#include "importer/tables.h"
#include "legacy/mdl.h"

namespace zv {

// Builds root -> DmeModel (skeleton and mesh) for one part in tree and returns the root.
// Corners are numbered across all face sets of the part; each vertex field's index list
// maps a corner to its gathered vertex. Face sets name their material slot's mesh name
// (its path, or the placeholder of an unresolved slot); a slot the model does not have
// gets a "missing_material" name. A part with morph targets carries them on its mesh,
// with the combination operator that drives them on the root; their delta arrays move
// into the tree, as the part file is their only use.
dmx::CDmElement* buildMeshPartTree(dmx::DmElementTree& tree, MeshPart& part,
                                   const std::vector<SkeletonBone>& skeleton, const MaterialSlots& materials,
                                   const FlexModel& flexes);

// Whether a model may become a static prop: it must carry the static-prop flag, and a
// "prop_data" block of its key-value text, when there is one, must allow it.
bool allowsStaticProp(const legacy::MdlFile& mdl, const std::optional<KeyValues>& modelKeys);

// The four lines of meshinfo.txt.
std::string meshInfoText(bool staticProp, int32_t texcoordSets);

}  // namespace zv
