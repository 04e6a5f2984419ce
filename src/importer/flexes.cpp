#include "importer/flexes.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <set>

#include "base/log.h"
#include "base/strings.h"
#include "importer/flex_expression.h"
#include "importer/names.h"

namespace zv {
namespace {

// Face rigs have a few hundred controllers at most; the dependency sets and the controls'
// targets cost controllers times rules times targets, so a file claiming far more is
// treated as having no rules and no controls.
constexpr size_t kMaxFlexTable = 4096;

// Safe names, unique among themselves; an empty one becomes "<fallback>_<index>".
std::vector<std::string> uniqueNames(const std::vector<std::string>& raw, const char* fallback) {
  std::vector<std::string> out;
  std::set<std::string> used;
  for (size_t i = 0; i < raw.size(); ++i) {
    std::string safe = raw[i].empty() ? format("%s_%zu", fallback, i) : SanitizeNodeName(raw[i]);
    std::string name = safe;
    for (int n = 2; !used.insert(name).second; ++n) name = format("%s_%d", safe.c_str(), n);
    out.push_back(std::move(name));
  }
  return out;
}

void insertSorted(std::vector<int32_t>& set, int32_t value) {
  auto at = std::lower_bound(set.begin(), set.end(), value);
  if (at == set.end() || *at != value) set.insert(at, value);
}

bool hasController(const std::vector<uint64_t>& mask, int32_t controller) {
  size_t word = size_t(controller) / 64;
  return word < mask.size() && (mask[word] >> (size_t(controller) % 64) & 1) != 0;
}

FlexRuleExpression readsOf(const legacy::FlexRule& rule) {
  FlexRuleExpression out;
  out.descriptor = rule.target;
  for (const legacy::FlexOp& op : rule.ops) {
    if (op.code == legacy::kFlexFetchDescriptor) {
      insertSorted(out.descriptors, op.index);
    } else if (op.code == legacy::kFlexFetchController || op.code == legacy::kFlexTwoWay0 ||
               op.code == legacy::kFlexTwoWay1) {
      insertSorted(out.controllers, op.index);
    }
  }
  return out;
}

void addRules(const legacy::FlexTables& tables, const std::string& modelPath, FlexModel& out) {
  for (size_t i = 0; i < tables.rules.size(); ++i) {
    const legacy::FlexRule& rule = tables.rules[i];
    auto expression = flexRuleExpression(rule, out.controllerNames, out.descriptorNames);
    if (!expression) {
      warning("%s: flex rule %zu (for %s) is left out: %s\n", modelPath.c_str(), i,
              out.descriptorNames[size_t(rule.target)].c_str(), expression.error().message.c_str());
      continue;
    }
    FlexRuleExpression converted = readsOf(rule);
    converted.name = out.descriptorNames[size_t(rule.target)];
    converted.expression = std::move(*expression);
    out.rules.push_back(std::move(converted));
  }
  // Rules read only weights that earlier rules computed, so one pass in order suffices.
  size_t words = (tables.controllers.size() + 63) / 64;
  out.descriptorControllers.assign(tables.descriptors.size(), std::vector<uint64_t>(words, 0));
  for (const FlexRuleExpression& rule : out.rules) {
    std::vector<uint64_t>& deps = out.descriptorControllers[size_t(rule.descriptor)];
    for (int32_t c : rule.controllers) deps[size_t(c) / 64] |= uint64_t{1} << (size_t(c) % 64);
    for (int32_t read : rule.descriptors) {
      const std::vector<uint64_t>& more = out.descriptorControllers[size_t(read)];
      for (size_t w = 0; w < words; ++w) deps[w] |= more[w];
    }
  }
}

// A control over controllers, with the range of the first; named once all are known.
FlexControl controlOf(const legacy::FlexController& first, std::vector<int32_t> controllers) {
  FlexControl control;
  control.controllers = std::move(controllers);
  control.min = first.min;
  control.max = first.max;
  return control;
}

// One control per UI entry (a stereo entry over its left and right controllers), then
// one per controller that no entry shows.
void addControls(const legacy::FlexTables& tables, FlexModel& out) {
  std::vector<std::string> raw;
  std::vector<FlexControl> controls;
  std::vector<bool> shown(tables.controllers.size(), false);
  for (const legacy::FlexControllerUi& ui : tables.controllerUis) {
    int32_t first = ui.controllers[0] >= 0 ? ui.controllers[0] : ui.controllers[1];
    if (first < 0) continue;
    std::vector<int32_t> members{first};
    if (ui.stereo && ui.controllers[1] >= 0 && ui.controllers[1] != first) members.push_back(ui.controllers[1]);
    for (int32_t c : members) shown[size_t(c)] = true;
    FlexControl control = controlOf(tables.controllers[size_t(first)], members);
    control.stereo = ui.stereo;
    control.eyelid = ui.remap == 3;
    raw.push_back(ui.name.empty() ? tables.controllers[size_t(first)].name : ui.name);
    controls.push_back(std::move(control));
  }
  for (size_t c = 0; c < tables.controllers.size(); ++c) {
    if (shown[c]) continue;
    raw.push_back(tables.controllers[c].name);
    controls.push_back(controlOf(tables.controllers[c], {int32_t(c)}));
  }
  std::vector<std::string> names = uniqueNames(raw, "control");
  for (size_t i = 0; i < controls.size(); ++i) controls[i].name = names[i];
  out.controls = std::move(controls);
}

// ---- Morph targets --------------------------------------------------------------------

// For each resolved vertex in [first, first + size), the part vertices gathered from it.
class VertexLookup {
 public:
  explicit VertexLookup(std::span<const int32_t> sources) {
    if (sources.empty()) return;
    auto [lo, hi] = std::minmax_element(sources.begin(), sources.end());
    first_ = *lo;
    starts_.assign(size_t(int64_t(*hi) - *lo) + 2, 0);
    for (int32_t s : sources) ++starts_[size_t(s - first_) + 1];
    for (size_t i = 1; i < starts_.size(); ++i) starts_[i] += starts_[i - 1];
    vertices_.resize(sources.size());
    std::vector<int32_t> fill(starts_.begin(), starts_.end() - 1);
    for (size_t v = 0; v < sources.size(); ++v) vertices_[size_t(fill[size_t(sources[v] - first_)]++)] = int32_t(v);
  }

  std::span<const int32_t> of(int64_t resolved) const {
    int64_t at = resolved - first_;
    if (starts_.empty() || at < 0 || at + 1 >= int64_t(starts_.size())) return {};
    return std::span<const int32_t>(vertices_).subspan(size_t(starts_[size_t(at)]),
                                                      size_t(starts_[size_t(at) + 1] - starts_[size_t(at)]));
  }

 private:
  int32_t first_ = 0;
  std::vector<int32_t> starts_;
  std::vector<int32_t> vertices_;
};

// The mesh flexes of one target, in mesh and record order.
struct TargetSource {
  int32_t descriptor = 0;
  std::array<uint32_t, 4> windowBits{};
  std::vector<std::pair<size_t, size_t>> records;  // mesh, flex
};

std::array<uint32_t, 4> windowBits(const std::array<float, 4>& window) {
  std::array<uint32_t, 4> bits{};
  for (size_t k = 0; k < 4; ++k) std::memcpy(&bits[k], &window[k], 4);
  return bits;
}

// Targets by descriptor, then by first appearance of their window.
std::vector<TargetSource> groupTargets(const legacy::SubModel& model) {
  std::vector<TargetSource> targets;
  std::map<std::pair<int32_t, std::array<uint32_t, 4>>, size_t> index;  // finds, never orders
  for (size_t k = 0; k < model.meshes.size(); ++k) {
    for (size_t f = 0; f < model.meshes[k].flexes.size(); ++f) {
      const legacy::MeshFlex& flex = model.meshes[k].flexes[f];
      auto [at, added] = index.try_emplace({flex.descriptor, windowBits(flex.window)}, targets.size());
      if (added) targets.push_back(TargetSource{flex.descriptor, at->first.second, {}});
      targets[at->second].records.emplace_back(k, f);
    }
  }
  std::stable_sort(targets.begin(), targets.end(),
                   [](const TargetSource& a, const TargetSource& b) { return a.descriptor < b.descriptor; });
  return targets;
}

class TargetGatherer {
 public:
  TargetGatherer(MeshPart& part, const legacy::SubModel& model, std::span<const int32_t> sources)
      : part_(part), model_(model), lookup_(sources), stamp_(part.vertices.size(), -1) {}

  MorphTarget gather(const TargetSource& source, int32_t id) {
    MorphTarget target;
    target.descriptor = source.descriptor;
    reserve(target, source);
    for (auto [k, f] : source.records) {
      const legacy::Mesh& mesh = model_.meshes[k];
      const legacy::MeshFlex& flex = mesh.flexes[f];
      bool stereo = flex.partner >= 0;
      target.window = flex.window;
      target.stereo = target.stereo || stereo;
      target.wrinkle = target.wrinkle || flex.wrinkle;
      int64_t base = int64_t(mesh.vertexOffset) + model_.vertexIndex / 48;
      if (stereo && part_.balance.empty()) part_.balance.assign(part_.vertices.size(), -1.0f);
      flex.deltas.forEach([&](const legacy::VertexDelta& delta) {
        addDelta(target, delta, base + delta.vertex, id, stereo);
      });
    }
    return target;
  }

  // Unset balances are 0.5: both sides alike.
  void finishBalance() {
    for (float& share : part_.balance) {
      if (share < 0) share = 0.5f;
    }
  }

 private:
  // Room for one position per delta up front, so the per-delta loop seldom grows a list.
  void reserve(MorphTarget& target, const TargetSource& source) const {
    size_t deltas = 0;
    for (auto [k, f] : source.records) deltas += model_.meshes[k].flexes[f].deltas.size();
    target.positionIndices.reserve(deltas);
    target.positionDeltas.reserve(deltas);
    target.normalIndices.reserve(deltas);
    target.normalDeltas.reserve(deltas);
  }

  // Deltas are never NaN (non-finite halves read as 0), so zero is all bits but the signs.
  static bool isZero(const Vector3& v) {
    return ((std::bit_cast<uint32_t>(v.x) | std::bit_cast<uint32_t>(v.y) | std::bit_cast<uint32_t>(v.z)) << 1) == 0;
  }

  void addDelta(MorphTarget& target, const legacy::VertexDelta& delta, int64_t resolved, int32_t id, bool stereo) {
    bool moves = !isZero(delta.position), turns = !isZero(delta.normal), wrinkles = delta.wrinkle != 0;
    for (int32_t v : lookup_.of(resolved)) {
      if (stamp_[size_t(v)] == id) continue;
      stamp_[size_t(v)] = id;
      if (moves) {
        target.positionIndices.push_back(v);
        target.positionDeltas.push_back(delta.position);
      }
      if (turns) {
        target.normalIndices.push_back(v);
        target.normalDeltas.push_back(delta.normal);
      }
      if (wrinkles) {
        target.wrinkleIndices.push_back(v);
        target.wrinkleDeltas.push_back(delta.wrinkle);
      }
      if (stereo && part_.balance[size_t(v)] < 0) part_.balance[size_t(v)] = float(delta.side) / 255.0f;
    }
  }

  MeshPart& part_;
  const legacy::SubModel& model_;
  VertexLookup lookup_;
  std::vector<int32_t> stamp_;  // the last target that moved each vertex
};

bool isEmpty(const MorphTarget& t) {
  return t.positionIndices.empty() && t.normalIndices.empty() && t.wrinkleIndices.empty();
}

// How far weight 1 lies from a window's full-weight range; NaN windows are farthest.
float distanceFromOne(const std::array<float, 4>& w) {
  if (!(w[1] <= w[2])) return std::numeric_limits<float>::infinity();
  if (w[1] <= 1 && 1 <= w[2]) return 0;
  float d = std::min(std::fabs(w[1] - 1), std::fabs(w[2] - 1));
  return std::isnan(d) ? std::numeric_limits<float>::infinity() : d;
}

// Targets of one descriptor [first, last): the window nearest weight 1 keeps the plain
// name; the others are "_lower" or "_upper" of it, numbered from the second on.
void nameDescriptorTargets(std::vector<MorphTarget>& targets, size_t first, size_t last, const std::string& name) {
  size_t plain = first;
  for (size_t i = first + 1; i < last; ++i) {
    if (distanceFromOne(targets[i].window) < distanceFromOne(targets[plain].window)) plain = i;
  }
  float centre = (targets[plain].window[1] + targets[plain].window[2]) / 2;
  int lower = 0, upper = 0;
  for (size_t i = first; i < last; ++i) {
    if (i == plain) {
      targets[i].name = name;
      continue;
    }
    bool below = (targets[i].window[1] + targets[i].window[2]) / 2 < centre;
    int n = ++(below ? lower : upper);
    targets[i].name = name + (below ? "_lower" : "_upper") + (n > 1 ? format("%d", n) : "");
  }
}

void nameTargets(std::vector<MorphTarget>& targets, const FlexModel& flexes) {
  for (size_t first = 0; first < targets.size();) {
    size_t last = first + 1;
    while (last < targets.size() && targets[last].descriptor == targets[first].descriptor) ++last;
    nameDescriptorTargets(targets, first, last, flexes.descriptorNames[size_t(targets[first].descriptor)]);
    first = last;
  }
  std::set<std::string> used;
  for (MorphTarget& target : targets) {
    std::string base = target.name;
    for (int n = 2; !used.insert(target.name).second; ++n) target.name = format("%s_%d", base.c_str(), n);
  }
}

}  // namespace

FlexModel buildFlexModel(const legacy::MdlFile& mdl, const std::string& modelPath) {
  const legacy::FlexTables& tables = mdl.flexes;
  FlexModel out;
  out.descriptorNames = uniqueNames(tables.descriptors, "flex");
  std::vector<std::string> controllerNames;
  for (const legacy::FlexController& c : tables.controllers) controllerNames.push_back(c.name);
  out.controllerNames = uniqueNames(controllerNames, "controller");
  if (std::max({tables.controllers.size(), tables.rules.size(), tables.controllerUis.size()}) > kMaxFlexTable) {
    warning("%s: %zu flex controllers, %zu rules and %zu controller UI entries are more than a face has; rules and "
            "controls are left out\n",
            modelPath.c_str(), tables.controllers.size(), tables.rules.size(), tables.controllerUis.size());
    return out;
  }
  addRules(tables, modelPath, out);
  addControls(tables, out);
  return out;
}

void addMorphTargets(MeshPart& part, const legacy::SubModel& model, std::span<const int32_t> sources,
                     const FlexModel& flexes) {
  std::vector<TargetSource> sourcesByTarget = groupTargets(model);
  if (sourcesByTarget.empty() || sources.size() != part.vertices.size()) return;
  TargetGatherer gatherer(part, model, sources);
  for (size_t i = 0; i < sourcesByTarget.size(); ++i) {
    MorphTarget target = gatherer.gather(sourcesByTarget[i], int32_t(i));
    if (!isEmpty(target)) part.morphTargets.push_back(std::move(target));
  }
  gatherer.finishBalance();
  nameTargets(part.morphTargets, flexes);
}

PartFlexes selectPartFlexes(const MeshPart& part, const FlexModel& flexes) {
  PartFlexes out;
  if (part.morphTargets.empty()) return out;
  std::vector<bool> needed(flexes.descriptorNames.size(), false);
  for (const MorphTarget& target : part.morphTargets) needed[size_t(target.descriptor)] = true;
  for (auto rule = flexes.rules.rbegin(); rule != flexes.rules.rend(); ++rule) {
    if (!needed[size_t(rule->descriptor)]) continue;
    for (int32_t read : rule->descriptors) needed[size_t(read)] = true;
  }
  for (const FlexRuleExpression& rule : flexes.rules) {
    if (needed[size_t(rule.descriptor)]) out.rules.push_back(&rule);
  }
  for (const FlexControl& control : flexes.controls) {
    PartControl drives{&control, {}};
    for (const MorphTarget& target : part.morphTargets) {
      if (size_t(target.descriptor) >= flexes.descriptorControllers.size()) continue;
      const std::vector<uint64_t>& deps = flexes.descriptorControllers[size_t(target.descriptor)];
      if (std::any_of(control.controllers.begin(), control.controllers.end(),
                      [&](int32_t c) { return hasController(deps, c); }))
        drives.targets.push_back(target.name);
    }
    if (!drives.targets.empty()) out.controls.push_back(std::move(drives));
  }
  return out;
}

}  // namespace zv
