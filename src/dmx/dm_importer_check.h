#pragma once
// What common DMX importers of 3D suites refuse or silently drop in a file that reads
// fine: they take an empty string for an absent one, need every mesh's positions and
// normals with their index lists, a named material on every face set, per-position joint
// weights, named joints, dags, models and materials, and animation channels bound to a
// transform with one value per key. Every writer's output is held against these rules.

#include <string>
#include <vector>

#include "dmx/dm_reader.h"

namespace zv::dmx {

// One line per problem, sorted, each once; empty when common importers take the file.
std::vector<std::string> importerProblems(const DmDocument& document);

}  // namespace zv::dmx
