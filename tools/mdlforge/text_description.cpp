#include "mdlforge/text_description.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <functional>
#include <limits>

#include "base/path.h"
#include "base/strings.h"
#include "kv/keyvalues.h"

namespace zv::mdlforge {
namespace {

// ---- Values ---------------------------------------------------------------------------

std::vector<std::string_view> words(std::string_view text) {
  std::vector<std::string_view> out;
  size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r')) ++i;
    size_t start = i;
    while (i < text.size() && !(text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r')) ++i;
    if (i > start) out.push_back(text.substr(start, i - start));
  }
  return out;
}

// Decimal or 0x-prefixed hexadecimal, with an optional sign.
bool toInteger(std::string_view word, int64_t& out) {
  bool negative = !word.empty() && word[0] == '-';
  if (!word.empty() && (word[0] == '-' || word[0] == '+')) word.remove_prefix(1);
  int base = 10;
  if (word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X')) {
    word.remove_prefix(2);
    base = 16;
  }
  uint64_t magnitude = 0;
  auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), magnitude, base);
  if (error != std::errc() || end != word.data() + word.size() || word.empty()) return false;
  if (magnitude > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return false;
  out = negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
  return true;
}

bool toFloat(std::string_view word, float& out) {
  if (!word.empty() && word[0] == '+') word.remove_prefix(1);
  auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), out);
  return error == std::errc() && end == word.data() + word.size() && !word.empty();
}

Error valueError(const KeyValues& kv, const char* expected) {
  return Error{format("\"%s\" %s: \"%s\"", kv.name().c_str(), expected, kv.value().c_str())};
}

Status needLeaf(const KeyValues& kv) {
  if (kv.isSection()) return Error{format("\"%s\" must be a value, not a section", kv.name().c_str())};
  return {};
}

template <class T>
Status integerList(const KeyValues& kv, std::vector<T>& out, size_t count = 0) {
  if (auto s = needLeaf(kv); !s) return s;
  std::vector<T> values;
  for (std::string_view word : words(kv.value())) {
    int64_t value = 0;
    if (!toInteger(word, value) || value < std::numeric_limits<T>::min() ||
        value > static_cast<int64_t>(std::numeric_limits<T>::max())) {
      return valueError(kv, "holds a value that is not an integer of its range");
    }
    values.push_back(static_cast<T>(value));
  }
  if (count && values.size() != count) return valueError(kv, format("needs %zu integers", count).c_str());
  out = std::move(values);
  return {};
}

Status floatList(const KeyValues& kv, std::vector<float>& out, size_t count = 0) {
  if (auto s = needLeaf(kv); !s) return s;
  std::vector<float> values;
  for (std::string_view word : words(kv.value())) {
    float value = 0;
    if (!toFloat(word, value)) return valueError(kv, "holds a value that is not a number");
    values.push_back(value);
  }
  if (count && values.size() != count) return valueError(kv, format("needs %zu numbers", count).c_str());
  out = std::move(values);
  return {};
}

template <class T>
requires std::is_integral_v<T> Status parseValue(const KeyValues& kv, T& out) {
  if constexpr (std::is_same_v<T, bool>) {
    if (auto s = needLeaf(kv); !s) return s;
    std::string v = toLower(kv.value());
    if (v == "1" || v == "true" || v == "yes") {
      out = true;
    } else if (v == "0" || v == "false" || v == "no") {
      out = false;
    } else {
      return valueError(kv, "is not 0 or 1");
    }
    return {};
  } else {
    std::vector<T> values;
    if (auto s = integerList(kv, values, 1); !s) return s;
    out = values[0];
    return {};
  }
}

Status parseValue(const KeyValues& kv, std::string& out) {
  if (auto s = needLeaf(kv); !s) return s;
  out = kv.value();
  return {};
}

Status parseValue(const KeyValues& kv, float& out) {
  std::vector<float> v;
  if (auto s = floatList(kv, v, 1); !s) return s;
  out = v[0];
  return {};
}

template <size_t N>
Status parseValue(const KeyValues& kv, std::array<float, N>& out) {
  std::vector<float> v;
  if (auto s = floatList(kv, v, N); !s) return s;
  std::copy(v.begin(), v.end(), out.begin());
  return {};
}

template <class T, size_t N>
requires std::is_integral_v<T> Status parseValue(const KeyValues& kv, std::array<T, N>& out) {
  std::vector<T> v;
  if (auto s = integerList(kv, v, N); !s) return s;
  std::copy(v.begin(), v.end(), out.begin());
  return {};
}

Status parseValue(const KeyValues& kv, Vector2& out) {
  std::array<float, 2> v;
  if (auto s = parseValue(kv, v); !s) return s;
  out = {v[0], v[1]};
  return {};
}

Status parseValue(const KeyValues& kv, Vector3& out) {
  std::array<float, 3> v;
  if (auto s = parseValue(kv, v); !s) return s;
  out = {v[0], v[1], v[2]};
  return {};
}

Status parseValue(const KeyValues& kv, Vector4& out) {
  std::array<float, 4> v;
  if (auto s = parseValue(kv, v); !s) return s;
  out = {v[0], v[1], v[2], v[3]};
  return {};
}

Status parseValue(const KeyValues& kv, Quaternion& out) {
  std::array<float, 4> v;
  if (auto s = parseValue(kv, v); !s) return s;
  out = {v[0], v[1], v[2], v[3]};
  return {};
}

Status parseValue(const KeyValues& kv, RadianEuler& out) {
  std::array<float, 3> v;
  if (auto s = parseValue(kv, v); !s) return s;
  out = {v[0], v[1], v[2]};
  return {};
}

Status parseValue(const KeyValues& kv, Matrix3x4& out) {
  std::array<float, 12> v;
  if (auto s = parseValue(kv, v); !s) return s;
  for (size_t i = 0; i < 12; ++i) out.m[i / 4][i % 4] = v[i];
  return {};
}

Status parseValue(const KeyValues& kv, std::vector<float>& out) { return floatList(kv, out); }

template <class T>
requires std::is_integral_v<T> Status parseValue(const KeyValues& kv, std::vector<T>& out) {
  return integerList(kv, out);
}

template <class T>
Status parseValue(const KeyValues& kv, std::optional<T>& out) {
  T value{};
  if (auto s = parseValue(kv, value); !s) return s;
  out = value;
  return {};
}

// Bytes written as hexadecimal pairs; blanks between them are allowed.
Status parseHex(const KeyValues& kv, std::vector<uint8_t>& out) {
  if (auto s = needLeaf(kv); !s) return s;
  std::string digits;
  for (std::string_view word : words(kv.value())) digits += word;
  if (digits.size() % 2) return valueError(kv, "needs an even number of hexadecimal digits");
  out.clear();
  for (size_t i = 0; i < digits.size(); i += 2) {
    uint8_t byte = 0;
    auto [end, error] = std::from_chars(digits.data() + i, digits.data() + i + 2, byte, 16);
    if (error != std::errc() || end != digits.data() + i + 2) return valueError(kv, "is not hexadecimal");
    out.push_back(byte);
  }
  return {};
}

// A file id as a number or as its four characters ("IDSV").
Status parseFileId(const KeyValues& kv, int32_t& out) {
  if (kv.value().size() == 4 && !std::isdigit(static_cast<unsigned char>(kv.value()[0]))) {
    const std::string& t = kv.value();
    out = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint8_t>(t[0])) |
                               static_cast<uint32_t>(static_cast<uint8_t>(t[1])) << 8 |
                               static_cast<uint32_t>(static_cast<uint8_t>(t[2])) << 16 |
                               static_cast<uint32_t>(static_cast<uint8_t>(t[3])) << 24);
    return {};
  }
  return parseValue(kv, out);
}

// ---- Sections -------------------------------------------------------------------------

using Handler = std::function<Status(const KeyValues&)>;

struct Field {
  std::string_view key;
  Handler handle;
};

template <class T>
Field value(std::string_view key, T& out) {
  return {key, [&out](const KeyValues& kv) { return parseValue(kv, out); }};
}

Status withContext(const std::string& context, Status status) {
  if (status) return status;
  return Error{context + ": " + status.message()};
}

// Runs the handler of each child by key (ignoring case); an unknown key is an error, so
// that a misspelt key does not silently keep a default.
Status readFields(const KeyValues& node, const std::vector<Field>& fields) {
  if (!node.isSection()) return Error{format("\"%s\" must be a section", node.name().c_str())};
  for (const KeyValues& child : node.children()) {
    const Field* field = nullptr;
    for (const Field& f : fields) {
      if (equalsNoCase(f.key, child.name())) field = &f;
    }
    if (!field) return Error{format("unknown key \"%s\"", child.name().c_str())};
    if (auto s = field->handle(child); !s) return s;
  }
  return {};
}

// "bone \"arm\"" or "bone 2" for messages.
std::string describe(const KeyValues& node, size_t index) {
  std::string name = node.isSection() ? node.getString("name") : node.value();
  return name.empty() ? format("%s %zu", node.name().c_str(), index)
                      : format("%s \"%s\"", node.name().c_str(), name.c_str());
}

// A repeated key whose sections (or values) are read into new elements of list.
template <class T, class Read>
Field repeated(std::string_view key, std::vector<T>& list, Read read) {
  return {key, [&list, read](const KeyValues& kv) {
            T item{};
            Status status = read(kv, item);
            size_t index = list.size();
            list.push_back(std::move(item));
            return withContext(describe(kv, index), status);
          }};
}

// Names of the top-level sections of one kind, so references may use names.
class Names {
 public:
  Names(const KeyValues& root, std::string_view kind) {
    for (const KeyValues* node : root.findAll(kind))
      names_.push_back(node->isSection() ? node->getString("name") : node->value());
  }

  // An index, or the name of an element.
  Status resolve(const KeyValues& kv, std::string_view word, int32_t& out) const {
    int64_t number = 0;
    if (toInteger(word, number) && number >= INT32_MIN && number <= INT32_MAX) {
      out = static_cast<int32_t>(number);
      return {};
    }
    for (size_t i = 0; i < names_.size(); ++i) {
      if (equalsNoCase(names_[i], word)) {
        out = static_cast<int32_t>(i);
        return {};
      }
    }
    return Error{format("\"%s\" names nothing called \"%.*s\"", kv.name().c_str(),
                        static_cast<int>(word.size()), word.data())};
  }

  template <class T>
  Status resolveAll(const KeyValues& kv, std::vector<T>& out) const {
    if (auto s = needLeaf(kv); !s) return s;
    out.clear();
    for (std::string_view word : words(kv.value())) {
      int32_t index = 0;
      if (auto s = resolve(kv, word, index); !s) return s;
      out.push_back(static_cast<T>(index));
    }
    return {};
  }

  Field field(std::string_view key, int32_t& out) const {
    return {key, [this, &out](const KeyValues& kv) {
              std::vector<int32_t> one;
              if (auto s = resolveAll(kv, one); !s) return s;
              if (one.size() != 1) return Status(valueError(kv, "needs one reference"));
              out = one[0];
              return Status();
            }};
  }

 private:
  std::vector<std::string> names_;
};

// Key-value text written back as text, for sections given in structured form.
void writeKeyValues(const KeyValues& node, int depth, std::string& out) {
  std::string indent(static_cast<size_t>(depth), '\t');
  if (!node.isSection()) {
    out += indent + "\"" + node.name() + "\" \"" + node.value() + "\"\n";
    return;
  }
  out += indent + "\"" + node.name() + "\"\n" + indent + "{\n";
  for (const KeyValues& child : node.children()) writeKeyValues(child, depth + 1, out);
  out += indent + "}\n";
}

Field keyValueText(std::string_view key, std::string& out) {
  return {key, [&out](const KeyValues& kv) {
            if (!kv.isSection()) {
              out = kv.value();
              return Status();
            }
            out.clear();
            for (const KeyValues& child : kv.children()) writeKeyValues(child, 0, out);
            return Status();
          }};
}

class DescriptionReader {
 public:
  explicit DescriptionReader(const KeyValues& model)
      : bones_(model, "bone"),
        animations_(model, "animation"),
        poseParameters_(model, "poseparam"),
        sequences_(model, "sequence"),
        flexDescriptors_(model, "flexdesc"),
        flexControllers_(model, "flexcontroller") {}

  Status read(const KeyValues& model, Description& d) {
    return readFields(
        model, {value("name", d.name),
                value("long_name", d.longName),
                value("version", d.version),
                value("checksum", d.checksum),
                value("flags", d.flags),
                value("eye_position", d.eyePosition),
                value("illum_position", d.illumPosition),
                value("hull_min", d.hullMin),
                value("hull_max", d.hullMax),
                value("view_min", d.viewMin),
                value("view_max", d.viewMax),
                value("mass", d.mass),
                value("contents", d.contents),
                value("surfaceprop", d.surfaceProp),
                value("light_dot", d.constDirectionalLightDot),
                value("root_lod", d.rootLod),
                value("allowed_root_lods", d.allowedRootLods),
                value("illum_attachment", d.illumAttachment),
                value("max_eye_deflection", d.maxEyeDeflection),
                value("linear_bones", d.linearBoneTable),
                value("secondary_header", d.secondaryHeader),
                value("ani_name", d.animBlockFile.name),
                {"ani_id", [&d](const KeyValues& i) { return parseFileId(i, d.animBlockFile.id); }},
                repeated("texture", d.textures, parseLeaf),
                repeated("texturedir", d.textureDirs, parseLeaf),
                repeated("skinfamily", d.skinFamilies, parseIntegers),
                keyValueText("keyvalues", d.keyValues),
                repeated("bone", d.bones, [this](const KeyValues& kv, Bone& b) { return readBone(kv, b); }),
                repeated("bodypart", d.bodyParts,
                         [this](const KeyValues& kv, BodyPart& b) { return readBodyPart(kv, b); }),
                repeated("flexdesc", d.flexDescriptors, parseLeaf),
                repeated("flexcontroller", d.flexControllers, readFlexController),
                repeated("flexrule", d.flexRules,
                         [this](const KeyValues& kv, FlexRule& r) { return readFlexRule(kv, r); }),
                repeated("flexui", d.flexControllerUis,
                         [this](const KeyValues& kv, FlexControllerUi& u) { return readFlexUi(kv, u); }),
                repeated("poseparam", d.poseParameters, readPoseParameter),
                repeated("attachment", d.attachments,
                         [this](const KeyValues& kv, Attachment& a) { return readAttachment(kv, a); }),
                repeated("hitboxset", d.hitboxSets,
                         [this](const KeyValues& kv, HitboxSet& s) { return readHitboxSet(kv, s); }),
                repeated("ikchain", d.ikChains,
                         [this](const KeyValues& kv, IkChain& c) { return readIkChain(kv, c); }),
                repeated("include", d.includes, readInclude),
                repeated("preset", d.presets, readPreset),
                repeated("animation", d.animations,
                         [this](const KeyValues& kv, Animation& a) { return readAnimation(kv, a); }),
                repeated("sequence", d.sequences,
                         [this](const KeyValues& kv, Sequence& s) { return readSequence(kv, s); }),
                {"stripfile",
                 [&d](const KeyValues& kv) { return withContext("stripfile", readStripFile(kv, d.strip)); }},
                {"vertexfile", [&d](const KeyValues& kv) {
                   return withContext("vertexfile", readVertexFile(kv, d.vertexFile));
                 }}});
  }

 private:
  static Status parseLeaf(const KeyValues& kv, std::string& out) { return parseValue(kv, out); }
  static Status parseIntegers(const KeyValues& kv, std::vector<int16_t>& out) { return integerList(kv, out); }

  Status readBone(const KeyValues& kv, Bone& b) const {
    return readFields(
        kv, {value("name", b.name),
             bones_.field("parent", b.parent),
             value("position", b.position),
             value("quaternion", b.quaternion),
             value("euler", b.euler),
             value("position_scale", b.positionScale),
             value("rotation_scale", b.rotationScale),
             value("pose_to_bone", b.poseToBone),
             value("alignment", b.alignment),
             value("flags", b.flags),
             value("surfaceprop", b.surfaceProp),
             value("contents", b.contents),
             {"jiggle", [&b](const KeyValues& j) { return readJiggle(j, b.jiggle.emplace()); }},
             {"procedural", [&b](const KeyValues& p) { return readProcedural(p, b.procedural.emplace()); }}});
  }

  static Status readJiggle(const KeyValues& kv, Jiggle& j) {
    return withContext("jiggle", readFields(kv, {value("flags", j.flags), value("values", j.values),
                                                 value("boing", j.boing)}));
  }

  static Status readProcedural(const KeyValues& kv, Procedural& p) {
    return withContext("procedural",
                       readFields(kv, {value("type", p.type),
                                       {"data", [&p](const KeyValues& d) { return parseHex(d, p.bytes); }}}));
  }

  Status readBodyPart(const KeyValues& kv, BodyPart& part) const {
    return readFields(kv, {value("name", part.name), value("base", part.base),
                           repeated("model", part.models,
                                    [this](const KeyValues& m, SubModel& model) { return readSubModel(m, model); })});
  }

  Status readSubModel(const KeyValues& kv, SubModel& model) const {
    return readFields(kv, {value("name", model.name),
                           repeated("mesh", model.meshes, [this](const KeyValues& m, Mesh& mesh) { return readMesh(m, mesh); })});
  }

  // "triangles" groups cover every vertex of the mesh, which may be listed after them.
  Status readMesh(const KeyValues& kv, Mesh& mesh) const {
    std::vector<std::pair<size_t, size_t>> wholeMesh;  // LOD and group of each such group
    auto readLod = [&](const KeyValues& lod, std::vector<StripGroup>& groups) {
      std::vector<uint16_t> triangles;
      Status status =
          readFields(lod, {repeated("stripgroup", groups, readStripGroup), value("triangles", triangles)});
      if (lod.isSection() && lod.find("triangles")) {
        wholeMesh.emplace_back(mesh.lods.size(), groups.size());
        groups.push_back(triangleGroup(0, std::move(triangles)));
      }
      return status;
    };
    Status status =
        readFields(kv, {value("material", mesh.material), value("material_type", mesh.materialType),
                        value("material_param", mesh.materialParam), value("flags", mesh.stripFlags),
                        repeated("vertex", mesh.vertices, readVertex), repeated("lod", mesh.lods, readLod),
                        repeated("flex", mesh.flexes,
                                 [this](const KeyValues& f, MeshFlex& flex) { return readMeshFlex(f, flex); })});
    for (auto [lod, group] : wholeMesh) {
      if (lod >= mesh.lods.size() || group >= mesh.lods[lod].size()) continue;
      for (size_t i = 0; i < mesh.vertices.size(); ++i)
        mesh.lods[lod][group].vertices.push_back(static_cast<uint16_t>(i));
    }
    return status;
  }

  // A value of 3, 5 or 8 numbers (position; position and uv; position, normal and uv) or
  // a section with every field.
  static Status readVertex(const KeyValues& kv, Vertex& v) {
    if (kv.isSection()) {
      std::vector<uint8_t> bones;
      std::vector<float> weights;
      Status status =
          readFields(kv, {value("position", v.position), value("normal", v.normal), value("uv", v.uv),
                          value("uv2", v.uv2), value("tangent", v.tangent), value("bones", bones),
                          value("weights", weights), value("bone_count", v.boneCount)});
      if (!status) return status;
      if (bones.size() > 3 || weights.size() > 3) return Error{"a vertex has at most 3 bones"};
      if (!bones.empty()) {
        v.bones = {0, 0, 0};
        std::copy(bones.begin(), bones.end(), v.bones.begin());
        if (!kv.find("bone_count")) v.boneCount = static_cast<uint8_t>(bones.size());
      }
      if (!weights.empty()) {
        v.weights = {0, 0, 0};
        std::copy(weights.begin(), weights.end(), v.weights.begin());
      }
      return status;
    }
    std::vector<float> n;
    if (auto s = floatList(kv, n); !s) return s;
    if (n.size() != 3 && n.size() != 5 && n.size() != 8) return valueError(kv, "needs 3, 5 or 8 numbers");
    v.position = {n[0], n[1], n[2]};
    if (n.size() == 8) v.normal = {n[3], n[4], n[5]};
    if (n.size() >= 5) v.uv = {n[n.size() - 2], n[n.size() - 1]};
    return {};
  }

  static Status readStripGroup(const KeyValues& kv, StripGroup& group) {
    std::vector<uint16_t> triangles;
    Status status =
        readFields(kv, {value("vertices", group.vertices), value("flags", group.flags),
                        repeated("strip", group.strips, readStrip), value("triangles", triangles)});
    if (!triangles.empty()) group.strips.push_back({std::move(triangles)});
    return status;
  }

  // Deltas are values "vertex side px py pz nx ny nz [wrinkle]".
  Status readMeshFlex(const KeyValues& kv, MeshFlex& flex) const {
    auto readDelta = [](const KeyValues& d, VertexDelta& delta) {
      std::vector<float> n;
      if (auto s = floatList(d, n); !s) return s;
      if (n.size() != 8 && n.size() != 9) return Status(valueError(d, "needs 8 or 9 numbers"));
      if (n[0] < 0 || n[0] > 65535 || n[1] < 0 || n[1] > 255) return Status(valueError(d, "has a vertex or side out of range"));
      delta.vertex = static_cast<uint16_t>(n[0]);
      delta.side = static_cast<uint8_t>(n[1]);
      delta.position = {n[2], n[3], n[4]};
      delta.normal = {n[5], n[6], n[7]};
      if (n.size() == 9) delta.wrinkle = n[8];
      return Status();
    };
    return readFields(kv, {flexDescriptors_.field("descriptor", flex.descriptor), value("window", flex.window),
                           flexDescriptors_.field("partner", flex.partner), value("wrinkle", flex.wrinkle),
                           repeated("delta", flex.deltas, readDelta)});
  }

  static Status readFlexController(const KeyValues& kv, FlexController& c) {
    return readFields(kv, {value("name", c.name), value("type", c.type), value("min", c.min), value("max", c.max)});
  }

  Status readFlexRule(const KeyValues& kv, FlexRule& rule) const {
    return readFields(kv, {flexDescriptors_.field("target", rule.target),
                           {"ops", [this, &rule](const KeyValues& o) { return readFlexOps(o, rule.ops); }}});
  }

  // Postfix words: a number is a constant; c:REF and f:REF fetch a controller and a
  // descriptor; + - * / neg exp ( ) , max min; 2way0:REF 2way1:REF nway:REF
  // lowereyelid:REF uppereyelid:REF name a controller, combo:N dominate:N a count;
  // op:CODE:N writes any op as given.
  Status readFlexOps(const KeyValues& kv, std::vector<FlexOp>& ops) const {
    if (auto s = needLeaf(kv); !s) return s;
    static const std::vector<std::pair<std::string_view, int32_t>> kPlain{
        {"+", 4}, {"-", 5}, {"*", 6}, {"/", 7}, {"neg", 8}, {"exp", 9}, {"(", 10}, {")", 11}, {",", 12}, {"max", 13}, {"min", 14}};
    static const std::vector<std::pair<std::string_view, int32_t>> kIndexed{
        {"c", 2}, {"f", 3}, {"2way0", 15}, {"2way1", 16}, {"nway", 17}, {"combo", 18}, {"dominate", 19},
        {"lowereyelid", 20}, {"uppereyelid", 21}};
    for (std::string_view word : words(kv.value())) {
      FlexOp op;
      if (toFloat(word, op.value)) {
        op.code = 1;
      } else if (auto plain = std::find_if(kPlain.begin(), kPlain.end(), [&](auto& p) { return equalsNoCase(p.first, word); });
                 plain != kPlain.end()) {
        op.code = plain->second;
      } else if (auto s = readIndexedOp(kv, word, kIndexed, op); !s) {
        return s;
      }
      ops.push_back(op);
    }
    return {};
  }

  Status readIndexedOp(const KeyValues& kv, std::string_view word,
                       const std::vector<std::pair<std::string_view, int32_t>>& kinds, FlexOp& op) const {
    size_t colon = word.find(':');
    std::string_view kind = word.substr(0, colon), operand = colon == word.npos ? "" : word.substr(colon + 1);
    int64_t number = 0;
    if (equalsNoCase(kind, "op")) {
      size_t second = operand.find(':');
      int64_t code = 0;
      if (second == operand.npos || !toInteger(operand.substr(0, second), code) || !toInteger(operand.substr(second + 1), number))
        return valueError(kv, "has an op:CODE:N word that is not two integers");
      op.code = static_cast<int32_t>(code);
      op.index = static_cast<int32_t>(number);
      if (op.code == 1) op.value = static_cast<float>(number);
      return {};
    }
    auto found = std::find_if(kinds.begin(), kinds.end(), [&](auto& k) { return equalsNoCase(k.first, kind); });
    if (found == kinds.end() || colon == word.npos) return valueError(kv, "holds a word that is no flex op");
    op.code = found->second;
    if (op.code == 18 || op.code == 19) {
      if (!toInteger(operand, number)) return valueError(kv, "needs a count after combo: or dominate:");
      op.index = static_cast<int32_t>(number);
      return {};
    }
    return (op.code == 3 ? flexDescriptors_ : flexControllers_).resolve(kv, operand, op.index);
  }

  Status readFlexUi(const KeyValues& kv, FlexControllerUi& ui) const {
    return readFields(kv, {value("name", ui.name), flexControllers_.field("controller", ui.controller),
                           flexControllers_.field("right", ui.right), flexControllers_.field("value", ui.value),
                           value("remap", ui.remap), value("stereo", ui.stereo)});
  }

  static Status readStrip(const KeyValues& kv, Strip& strip) {
    return readFields(kv, {value("indices", strip.indices), value("flags", strip.flags)});
  }

  static Status readPoseParameter(const KeyValues& kv, PoseParameter& p) {
    return readFields(kv, {value("name", p.name), value("flags", p.flags), value("start", p.start),
                           value("end", p.end), value("loop", p.loop)});
  }

  // The matrix is given whole, or as origin and angles in degrees (pitch, yaw, roll).
  Status readAttachment(const KeyValues& kv, Attachment& a) const {
    Vector3 origin;
    QAngle angles;
    std::array<float, 3> degrees{};
    Status status =
        readFields(kv, {value("name", a.name), value("flags", a.flags), bones_.field("bone", a.bone),
                        value("matrix", a.local), value("origin", origin), value("angles", degrees)});
    if (status && (kv.find("origin") || kv.find("angles"))) {
      angles = {degrees[0], degrees[1], degrees[2]};
      a.local = angleMatrix(angles, origin);
    }
    return status;
  }

  Status readHitboxSet(const KeyValues& kv, HitboxSet& set) const {
    return readFields(kv, {value("name", set.name),
                           repeated("hitbox", set.hitboxes,
                                    [this](const KeyValues& h, Hitbox& box) { return readHitbox(h, box); })});
  }

  Status readHitbox(const KeyValues& kv, Hitbox& box) const {
    return readFields(kv, {bones_.field("bone", box.bone), value("group", box.group), value("min", box.min),
                           value("max", box.max), value("name", box.name),
                           value("orientation", box.orientation), value("radius", box.radius)});
  }

  Status readIkChain(const KeyValues& kv, IkChain& chain) const {
    auto readLink = [this](const KeyValues& l, IkLink& link) {
      if (!l.isSection()) return bones_.resolve(l, l.value(), link.bone);
      return readFields(l, {bones_.field("bone", link.bone), value("knee", link.kneeDirection)});
    };
    return readFields(kv, {value("name", chain.name), value("link_type", chain.linkType),
                           repeated("link", chain.links, readLink)});
  }

  static Status readInclude(const KeyValues& kv, IncludeModel& include) {
    return readFields(kv, {value("label", include.label), value("file", include.fileName)});
  }

  static Status readPreset(const KeyValues& kv, BodyGroupPreset& preset) {
    return readFields(kv,
                      {value("name", preset.name), value("value", preset.value), value("mask", preset.mask)});
  }

  Status readAnimation(const KeyValues& kv, Animation& anim) const {
    auto readSection = [](const KeyValues& s, std::vector<uint8_t>& bytes) { return parseHex(s, bytes); };
    auto tracks = [&anim]() -> AnimationTracks& { return anim.tracks ? *anim.tracks : anim.tracks.emplace(); };
    return readFields(kv, {value("name", anim.name),
                           value("fps", anim.fps),
                           value("flags", anim.flags),
                           value("frames", anim.frames),
                           {"data", [&anim](const KeyValues& d) { return parseHex(d, anim.data.emplace()); }},
                           value("frames_per_section", anim.framesPerSection),
                           repeated("section", anim.sections, readSection),
                           repeated("movement", anim.movements, readMovement),
                           value("block", anim.block),
                           value("section_blocks", anim.sectionBlocks),
                           {"track",
                            [this, tracks](const KeyValues& t) {
                              std::vector<RleTrack>& rle = tracks().rle;
                              rle.emplace_back();
                              return withContext(describe(t, rle.size() - 1), readTrack(t, rle.back()));
                            }},
                           {"framepacked", [tracks](const KeyValues& f) {
                              return withContext("framepacked", readFramePacked(f, tracks().framePacked.emplace()));
                            }}});
  }

  // A run-length record: raw values, value channels as one integer per frame (or as
  // explicit runs "total: values, total: values"), the delta flag, or flags as given.
  Status readTrack(const KeyValues& kv, RleTrack& t) const {
    int32_t bone = 0;
    std::array<std::optional<ValueChannel>, 6> channels;
    std::vector<Field> fields = {bones_.field("bone", bone),
                                 value("raw_rotation", t.rawRotation),
                                 value("raw_rotation_64", t.rawRotation64),
                                 value("raw_position", t.rawPosition),
                                 value("delta", t.delta),
                                 value("flags", t.flags)};
    static constexpr const char* kChannels[] = {"rotation_x", "rotation_y", "rotation_z",
                                                "position_x", "position_y", "position_z"};
    for (size_t c = 0; c < 6; ++c) {
      fields.push_back({kChannels[c], [&channels, c](const KeyValues& v) {
                          return integerList(v, channels[c].emplace().frames);
                        }});
      fields.push_back({std::string_view(kChannelRuns[c]), [&channels, c](const KeyValues& v) {
                          ValueChannel& channel = channels[c] ? *channels[c] : channels[c].emplace();
                          return readRuns(v, channel.runs.emplace());
                        }});
    }
    Status status = readFields(kv, fields);
    t.bone = uint8_t(bone);
    for (size_t group = 0; group < 2; ++group) {
      auto& target = group == 0 ? t.rotation : t.position;
      for (size_t axis = 0; axis < 3; ++axis) {
        if (!channels[3 * group + axis]) continue;
        if (!target) target.emplace();
        (*target)[axis] = std::move(*channels[3 * group + axis]);
      }
    }
    return status;
  }

  static constexpr const char* kChannelRuns[] = {"rotation_x_runs", "rotation_y_runs", "rotation_z_runs",
                                                 "position_x_runs", "position_y_runs", "position_z_runs"};

  // "3: 10 20, 2: 30, 0:" - each run its frame count, a colon and its values.
  static Status readRuns(const KeyValues& kv, std::vector<ValueRun>& runs) {
    if (auto s = needLeaf(kv); !s) return s;
    for (std::string_view text : split(kv.value(), ',')) {
      size_t colon = text.find(':');
      if (colon == std::string_view::npos) return valueError(kv, "needs runs written \"total: values\"");
      int64_t total = 0;
      std::vector<std::string_view> head = words(text.substr(0, colon));
      if (head.size() != 1 || !toInteger(head[0], total) || total < 0 || total > 255)
        return valueError(kv, "has a run whose frame count is not 0 to 255");
      ValueRun run{uint8_t(total), {}};
      for (std::string_view word : words(text.substr(colon + 1))) {
        int64_t v = 0;
        if (!toInteger(word, v) || v < INT16_MIN || v > INT16_MAX) return valueError(kv, "has a value that is not a 16-bit integer");
        run.values.push_back(int16_t(v));
      }
      if (run.values.size() > 255) return valueError(kv, "has a run of more than 255 values");
      runs.push_back(std::move(run));
    }
    return {};
  }

  // One "bone" per bone of the model, in order: its rotation and position forms and values.
  static Status readFramePacked(const KeyValues& kv, std::vector<FramePackedBone>& bones) {
    return readFields(kv, {repeated("bone", bones, readPackedBone)});
  }

  static Status readPackedBone(const KeyValues& kv, FramePackedBone& bone) {
    auto rotationForm = [&bone](const KeyValues& v) {
      static constexpr std::pair<const char*, PackedRotation> kForms[] = {
          {"none", PackedRotation::None}, {"frame48", PackedRotation::Frame48},
          {"frame_omitted", PackedRotation::FrameOmitted}, {"const48", PackedRotation::Constant48},
          {"const_omitted", PackedRotation::ConstantOmitted}};
      return pickForm(v, kForms, bone.rotationForm);
    };
    auto positionForm = [&bone](const KeyValues& v) {
      static constexpr std::pair<const char*, PackedPosition> kForms[] = {
          {"none", PackedPosition::None}, {"frame_half", PackedPosition::FrameHalf},
          {"const_half", PackedPosition::ConstantHalf}, {"frame_float", PackedPosition::FrameFloat},
          {"const_float", PackedPosition::ConstantFloat}};
      return pickForm(v, kForms, bone.positionForm);
    };
    return readFields(kv, {{"rotation", rotationForm},
                           {"position", positionForm},
                           {"rotations", [&bone](const KeyValues& v) { return readTuples(v, bone.rotations); }},
                           {"positions", [&bone](const KeyValues& v) { return readTuples(v, bone.positions); }},
                           value("flags", bone.flags)});
  }

  template <class Form, size_t N>
  static Status pickForm(const KeyValues& kv, const std::pair<const char*, Form> (&forms)[N], Form& out) {
    for (const auto& [name, form] : forms) {
      if (equalsNoCase(kv.value(), name)) {
        out = form;
        return {};
      }
    }
    return valueError(kv, "is not one of the forms");
  }

  // Values separated by ";", each of as many numbers as the type holds.
  template <class T>
  static Status readTuples(const KeyValues& kv, std::vector<T>& out) {
    if (auto s = needLeaf(kv); !s) return s;
    out.clear();
    for (std::string_view part : split(kv.value(), ';')) {
      T item{};
      if (auto s = parseValue(KeyValues(kv.name(), std::string(part)), item); !s) return s;
      out.push_back(item);
    }
    return {};
  }

  static Status readMovement(const KeyValues& kv, Movement& m) {
    return readFields(kv,
                      {value("end_frame", m.endFrame), value("motion_flags", m.motionFlags),
                       value("start_velocity", m.startVelocity), value("end_velocity", m.endVelocity),
                       value("yaw", m.yaw), value("direction", m.direction), value("position", m.position)});
  }

  Status readSequence(const KeyValues& kv, Sequence& s) const {
    auto animations = [this, &s](const KeyValues& a) { return animations_.resolveAll(a, s.animations); };
    auto params = [this, &s](const KeyValues& p) {
      std::vector<int32_t> indices;
      if (auto status = poseParameters_.resolveAll(p, indices); !status) return status;
      if (indices.empty() || indices.size() > 2) return Status(valueError(p, "needs one or two parameters"));
      s.paramIndex = {indices[0], indices.size() > 1 ? indices[1] : -1};
      return Status();
    };
    auto readLayer = [this](const KeyValues& l, AutoLayer& layer) {
      int32_t sequence = 0;
      Status status =
          readFields(l, {sequences_.field("sequence", sequence), value("pose", layer.pose),
                         value("flags", layer.flags), value("start", layer.start), value("peak", layer.peak),
                         value("tail", layer.tail), value("end", layer.end)});
      layer.sequence = static_cast<int16_t>(sequence);
      return status;
    };
    return readFields(kv, {value("name", s.name),
                           value("activity", s.activity),
                           value("activity_weight", s.activityWeight),
                           value("flags", s.flags),
                           value("bounds_min", s.boundsMin),
                           value("bounds_max", s.boundsMax),
                           value("width", s.width),
                           value("height", s.height),
                           {"animations", animations},
                           {"params", params},
                           value("param_start", s.paramStart),
                           value("param_end", s.paramEnd),
                           value("fade_in", s.fadeIn),
                           value("fade_out", s.fadeOut),
                           value("entry_node", s.entryNode),
                           value("exit_node", s.exitNode),
                           value("node_flags", s.nodeFlags),
                           value("entry_phase", s.entryPhase),
                           value("exit_phase", s.exitPhase),
                           value("last_frame", s.lastFrame),
                           value("next_sequence", s.nextSequence),
                           value("cycle_pose", s.cyclePose),
                           repeated("event", s.events, readEvent),
                           keyValueText("keyvalues", s.keyValues),
                           value("weights", s.weights),
                           value("pose_keys", s.poseKeys),
                           repeated("autolayer", s.autoLayers, readLayer),
                           repeated("activity_modifier", s.activityModifiers, parseLeaf)});
  }

  static Status readEvent(const KeyValues& kv, Event& e) {
    return readFields(kv, {value("cycle", e.cycle), value("id", e.id), value("type", e.type),
                           value("options", e.options), value("name", e.name)});
  }

  static Status readStripFile(const KeyValues& kv, StripFileOptions& o) {
    auto layout = [&o](const KeyValues& l) {
      std::string name = toLower(l.value());
      if (name == "auto")
        o.layout = StripLayout::Auto;
      else if (name == "short")
        o.layout = StripLayout::Short;
      else if (name == "extended")
        o.layout = StripLayout::Extended;
      else
        return Status(valueError(l, "is not auto, short or extended"));
      return Status();
    };
    auto readReplacement = [&o](const KeyValues& r) {
      int32_t lod = 0;
      MaterialReplacement replacement;
      Status status = readFields(
          r, {value("lod", lod), value("material", replacement.material), value("name", replacement.name)});
      if (!status) return status;
      if (lod < 0 || lod >= 8) return Status(Error{"a replacement's LOD must be 0 to 7"});
      if (o.replacements.size() <= static_cast<size_t>(lod))
        o.replacements.resize(static_cast<size_t>(lod) + 1);
      o.replacements[static_cast<size_t>(lod)].push_back(replacement);
      return Status();
    };
    return readFields(kv, {value("write", o.write),
                           {"layout", layout},
                           value("version", o.version),
                           value("checksum", o.checksum),
                           value("lods", o.lodCount),
                           value("switch_points", o.switchPoints),
                           {"replacement", readReplacement},
                           value("vertex_cache_size", o.vertexCacheSize),
                           value("max_bones_per_strip", o.maxBonesPerStrip),
                           value("max_bones_per_triangle", o.maxBonesPerTriangle),
                           value("max_bones_per_vertex", o.maxBonesPerVertex)});
  }

  static Status readVertexFile(const KeyValues& kv, VertexFileOptions& o) {
    auto mode = [&o](const KeyValues& m) {
      std::string name = toLower(m.value());
      if (name == "none")
        o.fixupMode = FixupMode::None;
      else if (name == "auto")
        o.fixupMode = FixupMode::Auto;
      else if (name == "explicit")
        o.fixupMode = FixupMode::Explicit;
      else
        return Status(valueError(m, "is not none, auto or explicit"));
      return Status();
    };
    auto readFixup = [&o](const KeyValues& f) {
      std::array<int32_t, 3> v{};
      if (auto s = parseValue(f, v); !s) return s;
      o.fixups.push_back({v[0], v[1], v[2]});
      o.fixupMode = FixupMode::Explicit;
      return Status();
    };
    return readFields(kv, {value("write", o.write),
                           {"id", [&o](const KeyValues& i) { return parseFileId(i, o.id); }},
                           value("version", o.version),
                           value("checksum", o.checksum),
                           value("lods", o.lodCount),
                           value("tangents", o.tangents),
                           {"fixups", mode},
                           {"fixup", readFixup},
                           value("order", o.storedOrder)});
  }

  Names bones_, animations_, poseParameters_, sequences_, flexDescriptors_, flexControllers_;
};

}  // namespace

Result<Description> parseDescription(std::string_view text) {
  // Back-slash paths ("models\props\") are common here, so no escapes.
  // A description is written by hand for a test: what a lenient read repairs is an error.
  std::vector<std::string> notes;
  auto root = KeyValues::parse(text, notes, {.escapes = false});
  if (!root) return root.error();
  if (!notes.empty()) return Error{notes.front()};
  const KeyValues* model = root->find("model");
  if (!model || !model->isSection()) return Error{"the description has no \"model\" section"};
  if (root->children().size() != 1) return Error{"the description holds more than the \"model\" section"};
  Description d;
  if (auto status = DescriptionReader(*model).read(*model, d); !status)
    return Error{"model > " + status.message()};
  return d;
}

std::string outputBaseName(const Description& description) {
  return std::string(path::fileBase(description.name));
}

}  // namespace zv::mdlforge
