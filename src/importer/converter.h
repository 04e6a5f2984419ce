#pragma once
// C_ZV_MDL_Import converts one legacy model at a time. The driver sets it up for an input
// file, runs the pipeline and resets it; each stage is a method that reads the tables
// earlier stages built and adds its own. Nothing carries over from one model to the next.

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "base/hash.h"
#include "base/shared_work.h"
#include "dmx/dm_buffer.h"
#include "fs/file_system.h"
#include "importer/anim_dmx.h"
#include "importer/input_files.h"
#include "importer/particles.h"
#include "importer/pipeline.h"
#include "importer/run_options.h"
#include "importer/tables.h"
#include "legacy/family.h"
#include "output/output.h"

namespace zv::modeldoc {
class ModelDocument;
}

namespace zv {

// The per-model settings: the run's conversion options and where one input file goes.
struct ModelSettings : ConversionOptions {
  std::string inputPath;
  std::string baseName;
  std::string outputFolder;
  std::string outputRoot;
  std::string inputRoot;
  // Content hashes of the files read, which only a run report keeps (for -incremental).
  bool fingerprintInputs = false;
};

// Where one thread builds an animation file's tree and saves it: kept from file to file.
struct AnimationScratch {
  AnimationTreeBuilder animation;
  dmx::DmOutputBuffer buffer;
};

class C_ZV_MDL_Import {
 public:
  // particles: the run's particle name table, shared by every model of the run; without
  // one the converter keeps its own.
  C_ZV_MDL_Import(const fs::FileSystem& fileSystem, Output& output, ParticleResolver* particles = nullptr);

  void Setup(const RunOptions& options, size_t index);
  // Threads of a batch that may help write this converter's animation files once they
  // have no model of their own left; without, one thread writes them all.
  void shareWorkWith(SharedWork* sharing) { sharing_ = sharing ? sharing : &alone_; }
  // The per-model pipeline; false only when the legacy files fail to load.
  bool Convert();
  void Reset();

  // Stages, in pipeline order.
  bool LoadMDL();
  bool LoadPhysics();
  bool ExtractAnims();
  // The animations and sequences of one source model (0: the converted model, n: the n-th
  // included model) into the converter's records.
  bool ExtractLocalAnims(size_t source);
  bool ExtractMeshes();
  // Every animation file, on this thread and on the threads sharing the work.
  void WriteAnimations();
  // One animation file, on this thread.
  bool WriteAnimation(size_t index);
  bool WriteMeshes();
  bool WritePhysics();
  bool WriteQmdl(bool isStatic);
  // WriteQmdl into a document the caller made, e.g. one with a node limit.
  bool writeModelDocument(modeldoc::ModelDocument& document, bool isStatic);
  bool WriteRefs();
  bool WritePrefab();

  // Resolves material slot materialIndex for a LOD of the strip file: the first texture
  // directory under which its legacy material exists wins; a resolved slot is kept.
  void AddMaterial(int32_t lod, int32_t materialIndex);

  const ModelSettings& settings() const { return settings_; }
  const ModelPaths& paths() const { return paths_; }
  // Animations asking for more keys (frames times bones) than this are not converted. The
  // default bounds a file to some hundreds of megabytes; callers such as fuzzers lower it.
  static constexpr int64_t kDefaultAnimationKeyLimit = int64_t{1} << 22;
  void setAnimationKeyLimit(int64_t limit) { animationKeyLimit_ = limit; }
  ParticleResolver& particles() const { return *particles_; }
  ModelTables& tables() { return tables_; }
  const ModelTables& tables() const { return tables_; }
  // The loaded legacy model; nothing before LoadMDL succeeds.
  const legacy::LegacyModel* model() const { return model_ ? &*model_ : nullptr; }
  // Whether the last Convert found the model to be a static prop.
  bool isStatic() const { return isStatic_; }
  // What the current model's conversion read.
  const std::vector<InputFile>& inputsRead() const { return inputsRead_; }
  const std::vector<MaterialProbe>& materialProbes() const { return materialProbes_; }
  // Files a stage read on the model's behalf (the particle manifest and files).
  void recordInputs(const std::vector<InputFile>& files) const {
    inputsRead_.insert(inputsRead_.end(), files.begin(), files.end());
  }

 private:
  std::optional<std::vector<uint8_t>> readFamilyFile(const std::string& path) const;
  // The model's animation block file, found by the name it stores or beside the model;
  // nothing when the model has no blocks or the file does not read (then every animation
  // in a block reports it).
  std::optional<legacy::AnimBlockFile> readAnimBlockFile(const legacy::MdlFile& mdl, const std::string& mdlPath) const;
  std::vector<std::string> subModelNames() const;
  // Reads only what earlier stages built, so that several threads can write files at once;
  // the file is listed in `written`.
  bool writeAnimationFile(size_t index, AnimationScratch& scratch, std::vector<WrittenFile>& written) const;
  // The bind pose from the loaded bones, with model-space transforms.
  void buildSkeleton();
  void indexAnimationNames();
  // Mesh extraction helpers.
  const std::string& legacyMaterialName(int32_t lod, int32_t materialIndex) const;
  // Animation import helpers. A source model is the converted model (0) or an included one.
  struct SourceModel {
    const std::string& path;
    const legacy::MdlFile& mdl;
    const legacy::AnimBlockFile* animBlocks;
    const std::vector<int32_t>* skeletonBone;  // nullptr: the converted model, bone for bone
  };
  SourceModel source(size_t index) const;
  bool loadIncludedModels();
  void buildSkeletonIndex();
  std::vector<int32_t> skeletonBonesOf(const legacy::MdlFile& mdl) const;
  std::vector<int32_t> addAnimationRecords(size_t source, const std::string& prefix);
  void addSequenceRecords(size_t source, const std::vector<int32_t>& recordOf);
  SequenceRecord sequenceRecord(const legacy::MdlFile& mdl, const legacy::SequenceDesc& desc,
                                const std::vector<int32_t>& recordOf, int32_t sequenceBase) const;
  std::vector<float> skeletonWeights(const legacy::SequenceDesc& desc, const std::vector<int32_t>& skeletonBone) const;
  std::string uniqueAnimationName(const std::string& wanted);
  void finishMaterials();
  void nameUnresolvedMaterials();
  // sources receives, per gathered vertex, the resolved vertex it was gathered from.
  MeshPart extractPart(size_t bodyPart, size_t subModel, int32_t lod, const legacy::StripModelLod& strips,
                       std::vector<int32_t>& sources);
  // The flex notes said once per model: controllers that drive nothing, eyeballs.
  void noteFlexesLeftOut() const;

  const fs::FileSystem& fileSystem_;
  Output& output_;
  int64_t animationKeyLimit_ = kDefaultAnimationKeyLimit;
  std::unique_ptr<ParticleResolver> ownParticles_;
  ParticleResolver* particles_;
  ModelSettings settings_;
  ModelPaths paths_;
  std::optional<legacy::LegacyModel> model_;
  // Models whose animations are converted with this one's, in the order they were met.
  struct IncludedModel {
    std::string path;
    legacy::MdlFile mdl;
    std::optional<legacy::AnimBlockFile> animBlocks;
    std::vector<int32_t> skeletonBone;  // per bone, the skeleton bone of its name; -1 for none
  };
  std::vector<IncludedModel> includedModels_;
  // The skeleton's bones by name.
  std::unordered_map<std::string, int32_t, NameHasher> skeletonIndex_;
  std::set<std::string> animationFileNames_;
  ModelTables tables_;
  std::unordered_set<uint32_t> animationNameIndex_;
  bool isStatic_ = false;
  mutable std::vector<InputFile> inputsRead_;
  std::vector<MaterialProbe> materialProbes_;
  // Where this thread builds animation files and saves every DMX file before it is
  // written: kept from file to file and model to model.
  AnimationScratch scratch_;
  SharedWork alone_{1};  // the sharing of a converter outside a batch: this thread only
  SharedWork* sharing_ = &alone_;
};

}  // namespace zv
