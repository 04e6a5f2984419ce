#include "importer/converter.h"

#include "base/hash.h"
#include "base/log.h"
#include "base/path.h"

namespace zv {

C_ZV_MDL_Import::C_ZV_MDL_Import(const fs::FileSystem& fileSystem, Output& output, ParticleResolver* particles)
    : fileSystem_(fileSystem),
      output_(output),
      ownParticles_(particles ? nullptr : std::make_unique<ParticleResolver>(fileSystem)),
      particles_(particles ? particles : ownParticles_.get()) {}

void C_ZV_MDL_Import::Setup(const RunOptions& options, size_t index) {
  Reset();
  ModelSettings& s = settings_;
  static_cast<ConversionOptions&>(s) = options;
  s.inputPath = path::toForwardSlashes(options.inputFiles.at(index));
  s.baseName = path::toForwardSlashes(options.baseNames.at(index));
  // An archive path without ".qpk:" adds no output folder, which shifts the later ones;
  // an input left without a folder writes into the output root.
  std::string root = options.outputRoot.value_or("");
  s.outputFolder = path::toForwardSlashes(index < options.outputFolders.size() ? options.outputFolders[index] : root);
  s.outputRoot = path::toForwardSlashes(root);
  s.inputRoot = path::toForwardSlashes(options.inputRoot.value_or(""));
  s.weaponAnimPrefab = path::toForwardSlashes(options.weaponAnimPrefab);
  s.fingerprintInputs = options.reportFile.has_value();
  paths_ = buildModelPaths(s.outputFolder, s.baseName);
  output_.beginModel();
}

void C_ZV_MDL_Import::Reset() {
  settings_ = ModelSettings();
  paths_ = ModelPaths();
  model_.reset();
  includedModels_.clear();
  skeletonIndex_.clear();
  animationFileNames_.clear();
  inputsRead_.clear();
  materialProbes_.clear();
  tables_ = ModelTables();
  animationNameIndex_.clear();
  isStatic_ = false;
}

std::vector<std::string> C_ZV_MDL_Import::subModelNames() const {
  std::vector<std::string> names;
  for (const legacy::BodyPart& part : model_->mdl.bodyParts) {
    for (const legacy::SubModel& model : part.models) names.push_back(model.name);
  }
  return names;
}

void C_ZV_MDL_Import::indexAnimationNames() {
  for (const AnimExportRecord& anim : tables_.animations) animationNameIndex_.insert(fnv1a32(anim.name));
}

bool C_ZV_MDL_Import::Convert() {
  if (!LoadMDL()) return false;
  if (!LoadPhysics()) warning("No valid .phy for %s\n", settings_.inputPath.c_str());
  ExtractAnims();
  ExtractMeshes();
  std::vector<std::string> sequenceNames;
  for (const SequenceRecord& sequence : tables_.sequences) {
    if (sequence.usable) sequenceNames.push_back(sequence.name);
  }
  isStatic_ = isStaticModel(subModelNames(), sequenceNames);
  indexAnimationNames();
  for (const std::string& folder : {settings_.outputFolder, paths_.meshFolder, paths_.physFolder}) {
    if (Status made = output_.createFolder(folder); !made) warning("%s\n", made.message().c_str());
  }
  if (!isStatic_) WriteAnimations();
  WriteMeshes();
  WritePhysics();
  WriteQmdl(isStatic_);
  WriteRefs();
  if (settings_.writeWeaponAnimPrefab) WritePrefab();
  return true;
}

void C_ZV_MDL_Import::WriteAnimations() {
  size_t count = animationsToWrite(tables_.animations.size(), tables_.ownAnimationCount, settings_.skipCommonDmxWrite);
  // Per file, what it said and what it wrote: handed on in file order, whichever thread
  // finished first.
  std::vector<std::vector<LogRecord>> said(count);
  std::vector<std::vector<WrittenFile>> written(count);
  // Slot 0 is this thread's own scratch; a helper's is made when it first takes a file.
  std::vector<std::unique_ptr<AnimationScratch>> helperScratch(sharing_->width());
  auto writeOne = [&](size_t index, size_t slot) {
    AnimationScratch* scratch = &scratch_;
    if (slot > 0) {
      if (!helperScratch[slot]) helperScratch[slot] = std::make_unique<AnimationScratch>();
      scratch = helperScratch[slot].get();
    }
    LogBuffer log;  // what the file said, kept until the files before it have printed
    ScopedThreadLogSink capture(log);
    writeAnimationFile(index, *scratch, written[index]);
    said[index] = std::move(log.records);
  };
  sharing_->run(count, writeOne);
  printAnimationProgress(tables_.animations.size(), said);
  for (const std::vector<WrittenFile>& files : written) output_.addWritten(files);
  // The keys of the model's largest file need not outlast it.
  scratch_.animation.clear();
}

bool C_ZV_MDL_Import::WriteRefs() {
  Status written = output_.writeText(paths_.referenceList, referenceListText(tables_.referencedMaterials));
  if (!written) warning("Unable to write %s: %s\n", paths_.referenceList.c_str(), written.message().c_str());
  return true;
}

}  // namespace zv
