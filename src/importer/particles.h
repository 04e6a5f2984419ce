#pragma once
// From a legacy particle system name to the new particle file that holds it. The game's
// particle manifest lists the legacy particle files; the systems each defines are read
// from its element list, and the first file in manifest order that defines a name wins.
// The table is built once per run, on first use, and only then; a missing or unreadable
// manifest or particle file is reported once and leaves its systems unknown.

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/byte_view.h"
#include "base/result.h"
#include "fs/file_system.h"
#include "importer/input_files.h"

namespace zv {

inline constexpr std::string_view kParticleManifest = "particles/particles_manifest.txt";

// The particle system names an older-encoding particle file defines (elements of type
// "DmeParticleSystemDefinition"), in file order.
Result<std::vector<std::string>> particleSystemNames(ByteView file);

// The new file of a system defined in a legacy particle file:
// "particles/<folder below particles/><base name>/<system>.qpcf", lower case.
std::string newParticleFile(std::string_view legacyFile, std::string_view system);

// The canonical name of a particle attachment type, matched ignoring case and the
// spaces around it; nothing for a type the new particles do not have.
std::optional<std::string> particleAttachmentType(std::string_view text);

class ParticleResolver {
 public:
  explicit ParticleResolver(const fs::FileSystem& fileSystem) : fileSystem_(fileSystem) {}

  // The new file of a legacy system; nothing when no particle file defines it. The first
  // call builds the table; the problems met then are said again (once per sink) on every
  // call, so that a parallel run prints them with the first model in input order.
  std::optional<std::string> resolve(std::string_view system);
  // The manifest and particle files the table was built from.
  const std::vector<InputFile>& inputs();

 private:
  void build();
  void read(std::string_view name, std::vector<uint8_t>* into);

  const fs::FileSystem& fileSystem_;
  std::once_flag built_;
  std::map<std::string, std::string, std::less<>> files_;  // system name -> new file
  std::vector<std::string> problems_;
  std::vector<InputFile> inputs_;
};

}  // namespace zv
