#include "scm/process.h"

#include <algorithm>
#include <climits>
#include <filesystem>

#ifdef _WIN32
#include <io.h>
#else
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

extern char** environ;
#endif

namespace zv::scm {

#ifdef _WIN32

// Source control through child processes is only wired for POSIX systems; on Windows
// the calls report that nothing ran, which the backends log as a failed call.
ProcessResult runProcess(const std::vector<std::string>& argv, std::chrono::milliseconds) {
  ProcessResult result;
  result.startError =
      "running " + (argv.empty() ? std::string() : argv[0]) + " is not supported on this system";
  return result;
}

static constexpr char kPathListSeparator = ';';
static bool isExecutable(const std::string& file) { return _access(file.c_str(), 0) == 0; }
static const char* const kProgramSuffixes[] = {".exe", ""};

#else

namespace {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  ~FileDescriptor() { reset(); }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

// A pipe whose ends are not inherited by other children; the spawn duplicates the write
// end onto the child's stdout or stderr, which clears the flag there only.
bool makePipe(FileDescriptor& readEnd, FileDescriptor& writeEnd) {
  int fds[2];
  if (::pipe(fds) != 0) return false;
  for (int fd : fds) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
  ::fcntl(fds[0], F_SETFL, ::fcntl(fds[0], F_GETFL) | O_NONBLOCK);
  readEnd.reset(fds[0]);
  writeEnd.reset(fds[1]);
  return true;
}

// Reads what is available now; false once the stream has ended.
bool drain(FileDescriptor& fd, std::string& into) {
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
    if (n > 0) {
      size_t room = kMaxCapturedOutput - std::min(into.size(), kMaxCapturedOutput);
      into.append(buffer, std::min(static_cast<size_t>(n), room));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return true;
    fd.reset();
    return false;
  }
}

void waitForExit(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

ProcessResult runProcess(const std::vector<std::string>& argv, std::chrono::milliseconds timeout) {
  ProcessResult result;
  if (argv.empty()) {
    result.startError = "no program given";
    return result;
  }
  FileDescriptor outRead, outWrite, errRead, errWrite;
  if (!makePipe(outRead, outWrite) || !makePipe(errRead, errWrite)) {
    result.startError = std::strerror(errno);
    return result;
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, outWrite.get(), 1);
  posix_spawn_file_actions_adddup2(&actions, errWrite.get(), 2);

  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);

  pid_t pid = 0;
  int rc = ::posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  outWrite.reset();
  errWrite.reset();
  if (rc != 0) {
    result.startError = std::strerror(rc);
    return result;
  }
  result.started = true;

  // Both streams are read together so that a child filling one pipe never blocks while
  // we wait on the other. Short poll slices notice a child that exited while something
  // it started still holds the pipes open.
  auto deadline = std::chrono::steady_clock::now() + timeout;
  auto pastDeadline = [&] { return std::chrono::steady_clock::now() >= deadline; };
  std::optional<int> exitCode;
  auto reaped = [&] {
    int status = 0;
    if (::waitpid(pid, &status, WNOHANG) != pid) return false;
    exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return true;
  };
  while (outRead.get() >= 0 || errRead.get() >= 0) {
    if (pastDeadline()) break;
    pollfd fds[2] = {{outRead.get(), POLLIN, 0}, {errRead.get(), POLLIN, 0}};
    if (::poll(fds, 2, 200) == 0) {
      if (reaped()) break;
      continue;
    }
    if (outRead.get() >= 0) drain(outRead, result.out);
    if (errRead.get() >= 0) drain(errRead, result.err);
  }
  // Once its streams have ended the child is normally gone; still keep to the deadline.
  while (!exitCode && !reaped()) {
    if (pastDeadline()) {
      result.timedOut = true;
      ::kill(pid, SIGKILL);
      waitForExit(pid);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  if (outRead.get() >= 0) drain(outRead, result.out);
  if (errRead.get() >= 0) drain(errRead, result.err);
  result.exitCode = exitCode.value_or(-1);
  return result;
}

static constexpr char kPathListSeparator = ':';
static bool isExecutable(const std::string& file) { return ::access(file.c_str(), X_OK) == 0; }
static const char* const kProgramSuffixes[] = {""};

#endif

std::optional<std::string> findOnPath(std::string_view program, std::string_view pathList) {
  namespace fs = std::filesystem;
  // No PATH at all finds nothing (rather than the current folder).
  if (program.empty() || pathList.empty() || program.find('/') != std::string_view::npos) return std::nullopt;
  size_t start = 0;
  while (start <= pathList.size()) {
    size_t end = std::min(pathList.find(kPathListSeparator, start), pathList.size());
    std::string folder(pathList.substr(start, end - start));
    if (folder.empty()) folder = ".";  // an empty entry means the current folder
    for (const char* suffix : kProgramSuffixes) {
      std::string candidate = (fs::path(folder) / (std::string(program) + suffix)).string();
      std::error_code ec;
      if (fs::is_regular_file(candidate, ec) && isExecutable(candidate)) return candidate;
    }
    start = end + 1;
  }
  return std::nullopt;
}

std::string describeCommand(const std::vector<std::string>& argv) {
  std::string text;
  for (const std::string& arg : argv) {
    if (!text.empty()) text += ' ';
    bool plain = !arg.empty() && std::all_of(arg.begin(), arg.end(), [](char c) {
      return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
             std::string_view("_-./:=@%+,#").find(c) != std::string_view::npos;
    });
    if (plain) {
      text += arg;
      continue;
    }
    text += '\'';
    for (char c : arg) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    text += '\'';
  }
  return text;
}

}  // namespace zv::scm
