// mdlforge DESCRIPTION OUTDIR: writes <name>.mdl, .qvd and .dx90.vtx (and .ani when the
// description puts animation data in blocks) into OUTDIR from a text description.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "mdlforge/forge.h"
#include "mdlforge/text_description.h"

namespace {

namespace fs = std::filesystem;

bool readFile(const fs::path& file, std::string& out) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return false;
  out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

bool writeFile(const fs::path& file, const std::vector<uint8_t>& bytes) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

int fail(const std::string& message) {
  std::fprintf(stderr, "mdlforge: %s\n", message.c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: mdlforge DESCRIPTION OUTDIR\n");
    return 2;
  }
  std::string text;
  if (!readFile(argv[1], text)) return fail(std::string("cannot read ") + argv[1]);
  auto description = zv::mdlforge::parseDescription(text);
  if (!description) return fail(std::string(argv[1]) + ": " + description.message());
  auto files = zv::mdlforge::build(*description);
  if (!files) return fail(std::string(argv[1]) + ": " + files.message());

  fs::path outDir(argv[2]);
  std::error_code ec;
  fs::create_directories(outDir, ec);
  if (ec) return fail("cannot create " + outDir.string() + ": " + ec.message());
  std::string base = zv::mdlforge::outputBaseName(*description);
  if (base.empty()) return fail("the model name has no file name");
  std::vector<std::pair<std::string, const std::vector<uint8_t>*>> outputs = {{".mdl", &files->mdl}};
  if (files->qvd) outputs.emplace_back(".qvd", &*files->qvd);
  if (files->vtx) outputs.emplace_back(".dx90.vtx", &*files->vtx);
  if (files->ani) outputs.emplace_back(".ani", &*files->ani);
  for (const auto& [extension, bytes] : outputs) {
    fs::path file = outDir / (base + extension);
    if (!writeFile(file, *bytes)) return fail("cannot write " + file.string());
  }
  return 0;
}
