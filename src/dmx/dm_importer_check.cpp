#include "dmx/dm_importer_check.h"

#include <algorithm>
#include <set>

#include "base/strings.h"

namespace zv::dmx {
namespace {

// Typed lookups that never log: a wrong type is simply absent here.
template <DmType T>
const DmValue<T>* valueOf(const CDmElement* element, std::string_view name) {
  const CDmAttribute* attribute = element ? element->find(name) : nullptr;
  return attribute ? attribute->tryValue<T>() : nullptr;
}

const CDmElement* elementOf(const CDmElement* element, std::string_view name) {
  const CDmElement* const* value = valueOf<DmType::Element>(element, name);
  return value ? *value : nullptr;
}

size_t arraySizeOf(const CDmElement* element, std::string_view name) {
  const CDmAttribute* attribute = element ? element->find(name) : nullptr;
  return attribute ? attribute->arraySize() : 0;
}

bool hasText(const CDmElement* element, std::string_view name) {
  const std::string* text = valueOf<DmType::String>(element, name);
  return text && !text->empty();
}

class Checker {
 public:
  std::set<std::string> problems;

  void checkMesh(const CDmElement& mesh) {
    const CDmElement* data = elementOf(&mesh, "currentState");
    if (!data) {
      add("mesh '%s' has no current vertex data", mesh);
      return;
    }
    size_t corners = checkPositionsAndNormals(mesh, *data);
    checkJointWeights(mesh, *data);
    const CDmElement* bind = elementOf(&mesh, "bindState");
    const std::vector<CDmElement*>* deltas = valueOf<DmType::ElementArray>(&mesh, "deltaStates");
    for (const CDmElement* delta : deltas ? *deltas : std::vector<CDmElement*>{}) {
      if (delta) checkDeltaState(mesh, *delta, bind ? *bind : *data);
    }
    const std::vector<CDmElement*>* faceSets = valueOf<DmType::ElementArray>(&mesh, "faceSets");
    for (const CDmElement* faceSet : faceSets ? *faceSets : std::vector<CDmElement*>{}) {
      if (!hasText(elementOf(faceSet, "material"), "mtlName"))
        add("mesh '%s': a face set has no material with a non-empty mtlName", mesh);
      const std::vector<int32_t>* faces = valueOf<DmType::IntArray>(faceSet, "faces");
      bool inRange = faces && std::all_of(faces->begin(), faces->end(),
                                          [&](int32_t corner) { return corner < int64_t(corners); });
      if (!faces || faces->empty() || faces->back() != -1 || !inRange)
        add("mesh '%s': face list not -1 terminated or past the vertex table", mesh);
    }
  }

  void checkClip(const CDmElement& clip) {
    if (!valueOf<DmType::Time>(elementOf(&clip, "timeFrame"), "duration"))
      add("clip '%s' has no time frame with a duration", clip);
    const std::vector<CDmElement*>* channels = valueOf<DmType::ElementArray>(&clip, "channels");
    for (const CDmElement* channel : channels ? *channels : std::vector<CDmElement*>{}) {
      if (!isBoundChannel(channel)) {
        add("channel '%s' is not bound to a transform with one value per key", channel ? *channel : clip);
        break;
      }
    }
  }

  void add(const char* message, const CDmElement& element) { problems.insert(format(message, element.name().c_str())); }

 private:
  // The number of corners the index lists describe; faces must stay below it.
  size_t checkPositionsAndNormals(const CDmElement& mesh, const CDmElement& data) {
    const std::vector<std::string>* vertexFormat = valueOf<DmType::StringArray>(&data, "vertexFormat");
    std::optional<size_t> corners;
    for (const char* field : {"position$0", "normal$0"}) {
      std::string indicesName = std::string(field) + "Indices";
      const std::vector<int32_t>* indices = valueOf<DmType::IntArray>(&data, indicesName);
      const CDmAttribute* values = data.find(field);
      bool listed = vertexFormat && std::find(vertexFormat->begin(), vertexFormat->end(), field) != vertexFormat->end();
      if (!listed || !values || !values->isArray() || !indices) {
        problems.insert(format("mesh '%s' lacks %s with its indices", mesh.name().c_str(), field));
        continue;
      }
      if (!corners) corners = indices->size();
      bool inRange = std::all_of(indices->begin(), indices->end(),
                                 [&](int32_t i) { return i >= 0 && size_t(i) < values->arraySize(); });
      if (indices->size() != *corners || !inRange)
        problems.insert(format("mesh '%s': %s indices out of range or of another length", mesh.name().c_str(), field));
    }
    return corners.value_or(SIZE_MAX);
  }

  // Shape-key importers add each delta to the bind value its index names: every field of
  // the delta's format needs values and as many indices, each inside the bind state's
  // values of that field (wrinkles index the texture coordinates).
  void checkDeltaState(const CDmElement& mesh, const CDmElement& delta, const CDmElement& bind) {
    const std::vector<std::string>* vertexFormat = valueOf<DmType::StringArray>(&delta, "vertexFormat");
    auto say = [&](const std::string& what) {
      problems.insert(format("mesh '%s': delta state '%s' %s", mesh.name().c_str(), delta.name().c_str(), what.c_str()));
    };
    if (!vertexFormat) return say("has no vertexFormat");
    for (const std::string& field : *vertexFormat) {
      const CDmAttribute* values = delta.find(field);
      const std::vector<int32_t>* indices = valueOf<DmType::IntArray>(&delta, field + "Indices");
      if (!values || !values->isArray() || !indices) {
        say("lacks " + field + " values or their indices");
        continue;
      }
      if (values->arraySize() != indices->size()) say(format("has %zu %s values and %zu indices", values->arraySize(), field.c_str(), indices->size()));
      size_t limit = arraySizeOf(&bind, field == "wrinkle$0" ? "texcoord$0" : field);
      if (!std::all_of(indices->begin(), indices->end(), [&](int32_t i) { return i >= 0 && size_t(i) < limit; }))
        say("has " + field + " indices past the bind state's values");
    }
  }

  void checkJointWeights(const CDmElement& mesh, const CDmElement& data) {
    const std::vector<std::string>* vertexFormat = valueOf<DmType::StringArray>(&data, "vertexFormat");
    if (!vertexFormat || std::find(vertexFormat->begin(), vertexFormat->end(), "blendweights$0") == vertexFormat->end())
      return;
    const int32_t* jointCount = valueOf<DmType::Int>(&data, "jointCount");
    size_t weights = arraySizeOf(&data, "blendweights$0");
    bool consistent = jointCount && *jointCount > 0 &&
                      weights == arraySizeOf(&data, "position$0") * size_t(*jointCount) &&
                      arraySizeOf(&data, "blendindices$0") == weights;
    if (!consistent) add("mesh '%s': weights are not one set of jointCount per position", mesh);
  }

  static bool isBoundChannel(const CDmElement* channel) {
    const std::string* target = valueOf<DmType::String>(channel, "toAttribute");
    if (!elementOf(channel, "toElement") || !target || (*target != "position" && *target != "orientation"))
      return false;
    const std::vector<CDmElement*>* layers = valueOf<DmType::ElementArray>(elementOf(channel, "log"), "layers");
    if (!layers || layers->empty() || layers->front() == nullptr) return false;
    return arraySizeOf(layers->front(), "times") == arraySizeOf(layers->front(), "values");
  }
};

bool mustBeNamed(const std::string& type) {
  return type == "DmeJoint" || type == "DmeDag" || type == "DmeModel" || type == "DmeMaterial";
}

}  // namespace

std::vector<std::string> importerProblems(const DmDocument& document) {
  if (document.elements.empty()) return {"no elements"};
  Checker checker;
  if (!elementOf(document.elements.front(), "skeleton")) checker.problems.insert("root has no skeleton model");
  for (const CDmElement* element : document.elements) {
    const std::string& type = element->type();
    if (type == "DmeMesh") {
      checker.checkMesh(*element);
    } else if (type == "DmeChannelsClip") {
      checker.checkClip(*element);
    } else if (mustBeNamed(type) && element->name().empty()) {
      checker.problems.insert(format("a %s has an empty name", type.c_str()));
    }
  }
  return {checker.problems.begin(), checker.problems.end()};
}

}  // namespace zv::dmx
