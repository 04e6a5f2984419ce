#include "importer/flex_dmx.h"

#include <algorithm>

namespace zv {
namespace {

// The arrays move into the tree: a face's deltas run to tens of megabytes.
template <class T>
void addField(dmx::CDmElement& delta, const std::string& field, std::vector<T>& values,
              std::vector<int32_t>& indices) {
  if constexpr (std::is_same_v<T, float>) {
    delta.floatArray(field) = std::move(values);
  } else {
    delta.vector3Array(field) = std::move(values);
  }
  delta.intArray(field + "Indices") = std::move(indices);
}

dmx::CDmElement* deltaState(dmx::DmElementTree& tree, MorphTarget& target) {
  dmx::CDmElement* delta = tree.create("DmeVertexDeltaData", target.name);
  std::vector<std::string> format{"position$0", "normal$0"};
  if (target.wrinkle) format.push_back("wrinkle$0");
  delta->stringArray("vertexFormat") = format;
  addField(*delta, "position$0", target.positionDeltas, target.positionIndices);
  addField(*delta, "normal$0", target.normalDeltas, target.normalIndices);
  if (target.wrinkle) addField(*delta, "wrinkle$0", target.wrinkleDeltas, target.wrinkleIndices);
  return delta;
}

// Where 0 lies in the control's range, the value a control rests at.
float restingValue(const FlexControl& control) {
  float span = control.max - control.min;
  if (!(span > 0)) return 0;
  return std::clamp((0 - control.min) / span, 0.0f, 1.0f);
}

dmx::CDmElement* controlElement(dmx::DmElementTree& tree, const PartControl& used) {
  dmx::CDmElement* control = tree.create("DmeCombinationInputControl", used.control->name);
  control->stringArray("rawControlNames") = used.targets;
  control->setBool("stereo", used.control->stereo);
  control->setBool("eyelid", used.control->eyelid);
  control->setFloat("flexMin", used.control->min);
  control->setFloat("flexMax", used.control->max);
  control->floatArray("wrinkleScales").assign(used.targets.size(), 0.0f);
  return control;
}

dmx::CDmElement* flexRulesElement(dmx::DmElementTree& tree, const PartFlexes& selected, dmx::CDmElement& mesh) {
  dmx::CDmElement* rules = tree.create("DmeFlexRules", "flexRules");
  std::vector<dmx::CDmElement*>& expressions = rules->addElementArray("deltaStates");
  for (const FlexRuleExpression* rule : selected.rules) {
    dmx::CDmElement* expression = tree.create("DmeFlexRuleExpression", rule->name);
    expression->setString("expression", rule->expression);
    expressions.push_back(expression);
  }
  rules->setElement("target", &mesh);
  return rules;
}

void addOperator(dmx::DmElementTree& tree, dmx::CDmElement& root, dmx::CDmElement& mesh, const PartFlexes& selected) {
  dmx::CDmElement* op = root.addElement("combinationOperator", "DmeCombinationOperator", "combinationOperator");
  std::vector<dmx::CDmElement*>& controls = op->addElementArray("controls");
  std::vector<Vector3>& values = op->vector3Array("controlValues");
  for (const PartControl& used : selected.controls) {
    controls.push_back(controlElement(tree, used));
    values.push_back({restingValue(*used.control), 0.5f, 0.5f});
  }
  op->vector3Array("controlValuesLagged") = values;
  op->setBool("usesLaggedValues", false);
  op->addElementArray("dominators");
  op->addElementArray("targets") = {&mesh, flexRulesElement(tree, selected, mesh)};
}

}  // namespace

void addMorphTargetElements(dmx::DmElementTree& tree, dmx::CDmElement& root, dmx::CDmElement& mesh,
                            MeshPart& part, const FlexModel& flexes) {
  if (part.morphTargets.empty()) return;
  std::vector<dmx::CDmElement*>& deltas = mesh.addElementArray("deltaStates");
  for (MorphTarget& target : part.morphTargets) deltas.push_back(deltaState(tree, target));
  mesh.vector2Array("deltaStateWeights").assign(part.morphTargets.size(), Vector2{});
  mesh.vector2Array("deltaStateWeightsLagged").assign(part.morphTargets.size(), Vector2{});
  // The selection reads the targets' names and descriptors, which stay.
  addOperator(tree, root, mesh, selectPartFlexes(part, flexes));
}

}  // namespace zv
