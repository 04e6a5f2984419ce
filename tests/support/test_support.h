#pragma once
// Helpers shared by the tests: temporary folders on the real file system and file I/O.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace zv::testing {

// A fresh folder under the system's temporary folder, removed with everything in it
// when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string str() const { return path_.string(); }
  // path() / relative, as a string with "/" separators.
  std::string file(std::string_view relative) const;

 private:
  std::filesystem::path path_;
};

// Runs with the process's current folder set to dir; the old one comes back after.
class ScopedCurrentDir {
 public:
  explicit ScopedCurrentDir(const std::filesystem::path& dir);
  ~ScopedCurrentDir();

 private:
  std::filesystem::path previous_;
};

// Sets (or with nullptr, removes) an environment variable for the object's lifetime.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value);
  ~ScopedEnv();

 private:
  void set(const char* value);
  std::string name_;
  bool had_ = false;
  std::string old_;
};

// A program run to its end, without a shell: its exit status (-1 when it could not be
// started) and what it printed on each stream.
struct ProgramRun {
  int status = -1;
  std::string out;
  std::string err;
};
ProgramRun runProgram(const std::vector<std::string>& argv);

std::vector<uint8_t> readBytes(const std::filesystem::path& file);
std::string readText(const std::filesystem::path& file);
// Writes the file, creating missing parent folders.
void writeBytes(const std::filesystem::path& file, const std::vector<uint8_t>& bytes);
void writeText(const std::filesystem::path& file, std::string_view text);

// A "/"-separated path in the spelling the platform's own paths take ("\" on Windows),
// as the tool reports full paths.
std::string nativeSpelling(std::string_view path);
// The root of absolute paths in tests that name made-up places: "/" or "C:/".
std::string absoluteRoot();

// The project's source folder (from the test environment, else the compile-time path).
std::filesystem::path sourceDir();
// The shared folder beside the project, when it exists (real corpus, tools); else empty.
std::filesystem::path sharedDir();

}  // namespace zv::testing
