// The whole per-model pipeline on one input family: load, materials, mesh extraction,
// animation decoding and every writer, with the family (and its animation block file)
// served from memory and outputs written to a scratch folder.

#include <cstdlib>
#include <filesystem>
#include <map>

#include "family_input.h"
#include "fs/file_system.h"
#include "importer/converter.h"
#include "output/output.h"
#include "silent_log.h"

namespace {

// The fuzzed family as the only content there is.
class MemorySource : public zv::fs::ContentSource {
 public:
  void set(std::string name, std::optional<std::vector<uint8_t>> bytes) {
    if (bytes) files_[std::move(name)] = std::move(*bytes);
  }
  void clear() { files_.clear(); }
  const std::string& location() const override { return location_; }
  zv::Result<std::vector<uint8_t>> read(std::string_view relative) const override {
    auto it = files_.find(std::string(relative));
    if (it == files_.end()) return zv::Error{"no such file"};
    return it->second;
  }
  bool isFile(std::string_view relative) const override { return files_.count(std::string(relative)) > 0; }
  bool isDirectory(std::string_view) const override { return false; }
  std::vector<zv::fs::DirEntry> list(std::string_view) const override { return {}; }
  std::string fullPath(std::string_view relative) const override { return std::string(relative); }

 private:
  std::string location_ = "memory";
  std::map<std::string, std::vector<uint8_t>> files_;
};

std::string scratchFolder() {
  char pattern[] = "/tmp/zv-fuzz-convert-XXXXXX";
  const char* folder = mkdtemp(pattern);
  return folder ? folder : "/tmp";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zv::fuzz::silenceLogs();
  static const std::string out = scratchFolder();
  static auto memory = std::make_shared<MemorySource>();
  static zv::fs::FileSystem fileSystem(out);
  static const bool mounted = (fileSystem.addSource(memory, "LOCAL", zv::fs::Placement::Tail), true);
  (void)mounted;
  static zv::Output output(out, nullptr);

  zv::fuzz::FuzzFamily family = zv::fuzz::splitFamilyInput(data, size);
  memory->clear();
  memory->set("models/fuzz.mdl", std::move(family.files.mdl));
  memory->set("models/fuzz.dx90.vtx", std::move(family.files.vtx));
  memory->set("models/fuzz.qvd", std::move(family.files.qvd));
  // Found beside the model when the name the model stores is not.
  memory->set("models/fuzz.ani", std::move(family.ani));

  zv::RunOptions options;
  options.inputFiles = {"models/fuzz.mdl"};
  options.baseNames = {"fuzz"};
  options.outputFolders = {out};
  options.outputRoot = out;
  options.allLods = size % 2 == 1;
  options.yUpToZUp = size % 3 == 1;
  zv::C_ZV_MDL_Import converter(fileSystem, output);
  // Hostile frame counts within the converter's limit still cost seconds an input.
  converter.setAnimationKeyLimit(1 << 14);
  converter.Setup(options, 0);
  converter.Convert();
  converter.Reset();
  return 0;
}
