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
  std::string name_;
  bool had_ = false;
  std::string old_;
};

std::vector<uint8_t> readBytes(const std::filesystem::path& file);
std::string readText(const std::filesystem::path& file);
// Writes the file, creating missing parent folders.
void writeBytes(const std::filesystem::path& file, const std::vector<uint8_t>& bytes);
void writeText(const std::filesystem::path& file, std::string_view text);

// The project's source folder (from the test environment, else the compile-time path).
std::filesystem::path sourceDir();
// The shared folder beside the project, when it exists (real corpus, tools); else empty.
std::filesystem::path sharedDir();

}  // namespace zv::testing
