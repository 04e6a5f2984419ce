#include "support/test_support.h"

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

#include "scm/process.h"

#ifdef _WIN32
#include <process.h>
#define getpid _getpid
#else
#include <unistd.h>
#endif

namespace zv::testing {
namespace fs = std::filesystem;

TempDir::TempDir() {
  static std::atomic<unsigned> counter{0};
  std::random_device random;
  for (int attempt = 0; attempt < 100; ++attempt) {
    fs::path candidate = fs::temp_directory_path() /
                         ("zvtest-" + std::to_string(getpid()) + "-" + std::to_string(counter++) + "-" +
                          std::to_string(random() % 1000000));
    std::error_code ec;
    if (fs::create_directory(candidate, ec)) {
      path_ = fs::canonical(candidate);
      return;
    }
  }
  throw std::runtime_error("cannot create a temporary folder");
}

TempDir::~TempDir() {
  std::error_code ec;
  fs::remove_all(path_, ec);
}

std::string TempDir::file(std::string_view relative) const { return (path_ / relative).generic_string(); }

ScopedCurrentDir::ScopedCurrentDir(const fs::path& dir) : previous_(fs::current_path()) { fs::current_path(dir); }
ScopedCurrentDir::~ScopedCurrentDir() {
  std::error_code ec;
  fs::current_path(previous_, ec);
}

ScopedEnv::ScopedEnv(const char* name, const char* value) : name_(name) {
  if (const char* old = std::getenv(name)) {
    had_ = true;
    old_ = old;
  }
  set(value);
}

ScopedEnv::~ScopedEnv() { set(had_ ? old_.c_str() : nullptr); }

void ScopedEnv::set(const char* value) {
#ifdef _WIN32
  // An empty value removes the variable on Windows.
  _putenv_s(name_.c_str(), value ? value : "");
#else
  if (value) {
    setenv(name_.c_str(), value, 1);
  } else {
    unsetenv(name_.c_str());
  }
#endif
}

ProgramRun runProgram(const std::vector<std::string>& argv) {
  scm::ProcessResult result = scm::runProcess(argv, std::chrono::minutes(2));
  if (!result.started) return {-1, result.startError, result.startError};
  return {result.exitCode, result.out, result.err};
}

std::vector<uint8_t> readBytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + file.string());
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

std::string readText(const fs::path& file) {
  std::vector<uint8_t> bytes = readBytes(file);
  return std::string(bytes.begin(), bytes.end());
}

void writeBytes(const fs::path& file, const std::vector<uint8_t>& bytes) {
  if (file.has_parent_path()) fs::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  if (!out) throw std::runtime_error("cannot write " + file.string());
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void writeText(const fs::path& file, std::string_view text) {
  writeBytes(file, std::vector<uint8_t>(text.begin(), text.end()));
}

std::string nativeSpelling(std::string_view path) {
  std::string out(path);
#ifdef _WIN32
  for (char& c : out) {
    if (c == '/') c = '\\';
  }
#endif
  return out;
}

std::string absoluteRoot() {
#ifdef _WIN32
  return "C:/";
#else
  return "/";
#endif
}

fs::path sourceDir() {
  if (const char* dir = std::getenv("ZV_SOURCE_DIR")) return dir;
  return ZV_SOURCE_DIR_FALLBACK;
}

fs::path sharedDir() {
  fs::path shared = sourceDir().parent_path() / "shared";
  return fs::is_directory(shared) ? shared : fs::path();
}

}  // namespace zv::testing
