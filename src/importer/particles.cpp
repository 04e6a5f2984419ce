#include "importer/particles.h"

#include "base/hash.h"
#include "base/log.h"
#include "base/path.h"
#include "base/strings.h"
#include "kv/keyvalues.h"

namespace zv {
namespace {

constexpr std::string_view kSystemType = "DmeParticleSystemDefinition";
constexpr std::string_view kHeaderStart = "<!-- dmx encoding binary ";
constexpr size_t kElementIdBytes = 16;

// Reads front to back; every read checks the bytes left first.
class Cursor {
 public:
  explicit Cursor(ByteView bytes, size_t position) : bytes_(bytes), position_(position) {}
  std::optional<int64_t> integer(size_t width) {
    std::optional<int64_t> value;
    if (width == 2) value = bytes_.read<int16_t>(position_);
    if (width == 4) value = bytes_.read<int32_t>(position_);
    if (value) position_ += width;
    return value;
  }
  std::optional<std::string_view> string() {
    auto text = bytes_.cstr(position_);
    if (text) position_ += text->size() + 1;
    return text;
  }
  bool skip(size_t count) {
    if (!bytes_.contains(position_, count)) return false;
    position_ += count;
    return true;
  }
  size_t left() const { return bytes_.size() - position_; }

 private:
  ByteView bytes_;
  size_t position_;
};

// The encoding version of a particle file's header line, and where its body starts.
std::optional<std::pair<int, size_t>> encodingOf(ByteView file) {
  std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
  size_t line = text.find('\n');
  if (line == std::string_view::npos || text.substr(0, kHeaderStart.size()) != kHeaderStart) return std::nullopt;
  int version = textToInt(text.substr(kHeaderStart.size(), line - kHeaderStart.size()));
  size_t body = line + 1;
  if (body < file.size() && file.data()[body] == 0) ++body;
  return std::make_pair(version, body);
}

}  // namespace

Result<std::vector<std::string>> particleSystemNames(ByteView file) {
  auto encoding = encodingOf(file);
  if (!encoding || encoding->first < 2 || encoding->first > 5)
    return Error{"not a particle file of encoding 2 to 5"};
  int version = encoding->first;
  Cursor in(file, encoding->second);
  size_t countWidth = version <= 3 ? 2 : 4;
  size_t indexWidth = version <= 4 ? 2 : 4;
  auto stringCount = in.integer(countWidth);
  // Every string takes at least its terminator: a count beyond the bytes left is a lie.
  if (!stringCount || *stringCount < 0 || size_t(*stringCount) > in.left()) return Error{"bad string table"};
  std::vector<std::string_view> strings;
  for (int64_t i = 0; i < *stringCount; ++i) {
    auto text = in.string();
    if (!text) return Error{"string table leaves the file"};
    strings.push_back(*text);
  }
  auto elementCount = in.integer(4);
  if (!elementCount || *elementCount < 0 || size_t(*elementCount) > in.left() / kElementIdBytes)
    return Error{"bad element count"};
  auto lookup = [&](std::optional<int64_t> index) -> std::optional<std::string_view> {
    if (!index || *index < 0 || size_t(*index) >= strings.size()) return std::nullopt;
    return strings[size_t(*index)];
  };
  std::vector<std::string> systems;
  for (int64_t e = 0; e < *elementCount; ++e) {
    auto type = lookup(in.integer(indexWidth));
    auto name = version <= 3 ? in.string() : lookup(in.integer(indexWidth));
    if (!type || !name || !in.skip(kElementIdBytes)) return Error{format("element %lld does not read", static_cast<long long>(e))};
    if (*type == kSystemType) systems.emplace_back(*name);
  }
  return systems;
}

std::string newParticleFile(std::string_view legacyFile, std::string_view system) {
  std::string file = toLower(path::toForwardSlashes(path::removeDoubleSlashes(legacyFile)));
  if (startsWithNoCase(file, "particles/")) file.erase(0, std::string_view("particles/").size());
  std::string folder(path::parent(file));
  std::string base(path::fileBase(file));
  return toLower("particles/" + (folder.empty() ? "" : folder + "/") + base + "/" + std::string(system) + ".qpcf");
}

std::optional<std::string> particleAttachmentType(std::string_view text) {
  static constexpr std::string_view kTypes[] = {"start_at_origin",     "follow_origin",     "start_at_customorigin",
                                                "start_at_attachment", "follow_attachment", "follow_rootbone",
                                                "start_at_worldorigin"};
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  for (std::string_view type : kTypes) {
    if (equalsNoCase(text, type)) return std::string(type);
  }
  return std::nullopt;
}

std::optional<std::string> ParticleResolver::resolve(std::string_view system) {
  std::call_once(built_, [this] { build(); });
  for (const std::string& problem : problems_) warningOnce(problem, "%s", problem.c_str());
  auto found = files_.find(system);
  if (found == files_.end()) return std::nullopt;
  return found->second;
}

const std::vector<InputFile>& ParticleResolver::inputs() {
  std::call_once(built_, [this] { build(); });
  return inputs_;
}

// Reads a file of the table, recording it; into is left empty when it does not read.
void ParticleResolver::read(std::string_view name, std::vector<uint8_t>* into) {
  auto bytes = fileSystem_.readFile(name);
  InputFile& record = inputs_.emplace_back(InputFile{std::string(name), bytes.ok(), 0});
  if (!bytes) return;
  record.hash = fnv1a64(bytes->data(), bytes->size());
  *into = std::move(bytes.value());
}

void ParticleResolver::build() {
  std::vector<uint8_t> manifest;
  read(kParticleManifest, &manifest);
  std::string_view text(reinterpret_cast<const char*>(manifest.data()), manifest.size());
  std::vector<std::string> notes;
  auto tree = KeyValues::parse(text, notes, KeyValuesOptions{.escapes = false});
  for (const std::string& note : notes)
    problems_.push_back(format("%.*s: %s\n", int(kParticleManifest.size()), kParticleManifest.data(), note.c_str()));
  const KeyValues* list = tree ? tree->firstSection() : nullptr;
  if (list == nullptr) {
    problems_.push_back(format("Particle names cannot be converted: %.*s %s\n", int(kParticleManifest.size()),
                               kParticleManifest.data(), inputs_.back().exists ? "does not read" : "could not be read"));
    return;
  }
  for (const KeyValues* entry : list->findAll("file")) {
    std::string name = entry->value();
    if (!name.empty() && name.front() == '!') name.erase(0, 1);  // "load at start-up" only
    std::vector<uint8_t> bytes;
    read(name, &bytes);
    auto systems = inputs_.back().exists ? particleSystemNames(ByteView(bytes))
                                         : Result<std::vector<std::string>>(Error{"could not be read"});
    if (!systems) {
      problems_.push_back(format("Particle file %s: %s; its systems are not converted\n", name.c_str(),
                                 systems.message().c_str()));
      continue;
    }
    for (const std::string& system : *systems) files_.emplace(system, newParticleFile(name, system));
  }
}

}  // namespace zv
