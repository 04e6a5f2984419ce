#include "scm/process.h"

#include <algorithm>
#include <climits>
#include <filesystem>

#include "base/native_path.h"
#include "base/strings.h"

#ifdef _WIN32
#include <windows.h>

#include <atomic>
#include <mutex>
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

namespace {

class OwnedHandle {
 public:
  OwnedHandle() = default;
  explicit OwnedHandle(HANDLE handle) { reset(handle); }
  ~OwnedHandle() { reset(); }
  OwnedHandle(const OwnedHandle&) = delete;
  OwnedHandle& operator=(const OwnedHandle&) = delete;
  HANDLE get() const { return handle_; }
  void reset(HANDLE handle = nullptr) {
    if (handle_) CloseHandle(handle_);
    handle_ = handle == INVALID_HANDLE_VALUE ? nullptr : handle;
  }

 private:
  HANDLE handle_ = nullptr;
};

std::string errorText(DWORD code) {
  wchar_t* text = nullptr;
  DWORD size = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                              nullptr, code, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  std::string message = size ? native::narrow(std::wstring_view(text, size)) : "error " + std::to_string(code);
  if (text) LocalFree(text);
  while (!message.empty() && (message.back() == '\n' || message.back() == '\r' || message.back() == '.')) message.pop_back();
  return message;
}

// Anonymous pipes cannot be read with a time limit, so each stream is a named pipe
// whose reading end is overlapped; the child gets the plain writing end.
bool makePipe(OwnedHandle& readEnd, OwnedHandle& writeEnd) {
  static std::atomic<unsigned> counter{0};
  std::wstring name = L"\\\\.\\pipe\\zv-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(counter++);
  readEnd.reset(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                 PIPE_TYPE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1, 65536, 65536, 0, nullptr));
  if (!readEnd.get()) return false;
  writeEnd.reset(CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  return writeEnd.get() != nullptr;
}

// One stream of the child, read with overlapped reads so that both streams and the
// child's exit are waited on together.
class PipeReader {
 public:
  PipeReader(std::string& into) : into_(into), event_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
  ~PipeReader() { stop(); }
  OwnedHandle& pipe() { return pipe_; }
  bool pending() const { return pending_; }
  HANDLE event() const { return event_.get(); }

  // Reads until a read has to wait or the stream has ended.
  void start() {
    while (pipe_.get() && !pending_) {
      overlapped_ = {};
      overlapped_.hEvent = event_.get();
      if (ReadFile(pipe_.get(), buffer_, sizeof buffer_, nullptr, &overlapped_) || GetLastError() == ERROR_IO_PENDING) {
        pending_ = true;
        if (!HasOverlappedIoCompleted(&overlapped_)) return;
        complete();
      } else {
        pipe_.reset();
      }
    }
  }
  // Takes the data of the read that finished, then reads on.
  void complete() {
    DWORD got = 0;
    pending_ = false;
    if (!GetOverlappedResult(pipe_.get(), &overlapped_, &got, FALSE)) {
      pipe_.reset();
      return;
    }
    append(got);
  }
  void stop() {
    if (pending_) {
      DWORD got = 0;
      CancelIoEx(pipe_.get(), &overlapped_);
      if (GetOverlappedResult(pipe_.get(), &overlapped_, &got, TRUE)) append(got);
      pending_ = false;
    }
    pipe_.reset();
  }

 private:
  void append(DWORD got) {
    into_.append(buffer_, std::min<size_t>(got, kMaxCapturedOutput - std::min(into_.size(), kMaxCapturedOutput)));
  }

  std::string& into_;
  OwnedHandle pipe_;
  OwnedHandle event_;
  OVERLAPPED overlapped_{};
  bool pending_ = false;
  char buffer_[65536];
};

// Handles become inheritable only inside this lock and only until the child has them,
// so a child started by another thread never inherits the pipes of this one (and keeps
// them open past this child's end).
std::mutex gSpawnMutex;

bool spawn(const std::vector<std::string>& argv, HANDLE input, HANDLE output, HANDLE error, PROCESS_INFORMATION& child) {
  std::optional<std::string> program;
  const std::string& name = argv[0];
  if (name.find_first_of("/\\") == std::string::npos) {
    if (const wchar_t* path = _wgetenv(L"PATH")) program = findOnPath(name, native::narrow(path));
  }
  std::wstring application = native::widen(program.value_or(name));
  std::wstring commandLine = native::widen(windowsCommandLine(argv));
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = input;
  startup.hStdOutput = output;
  startup.hStdError = error;
  std::lock_guard lock(gSpawnMutex);
  for (HANDLE handle : {input, output, error}) SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
  bool started = CreateProcessW(program ? application.c_str() : nullptr, commandLine.data(), nullptr, nullptr, TRUE,
                                CREATE_NO_WINDOW, nullptr, nullptr, &startup, &child);
  DWORD startError = GetLastError();
  for (HANDLE handle : {input, output, error}) SetHandleInformation(handle, HANDLE_FLAG_INHERIT, 0);
  SetLastError(startError);
  return started;
}

}  // namespace

ProcessResult runProcess(const std::vector<std::string>& argv, std::chrono::milliseconds timeout) {
  ProcessResult result;
  if (argv.empty()) {
    result.startError = "no program given";
    return result;
  }
  PipeReader out(result.out), err(result.err);
  OwnedHandle outWrite, errWrite;
  OwnedHandle input(CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
  if (!makePipe(out.pipe(), outWrite) || !makePipe(err.pipe(), errWrite) || !input.get()) {
    result.startError = errorText(GetLastError());
    return result;
  }
  PROCESS_INFORMATION child{};
  bool started = spawn(argv, input.get(), outWrite.get(), errWrite.get(), child);
  DWORD startError = GetLastError();
  outWrite.reset();
  errWrite.reset();
  input.reset();
  if (!started) {
    result.startError = errorText(startError);
    return result;
  }
  result.started = true;
  OwnedHandle process(child.hProcess), thread(child.hThread);

  // Both streams and the exit are waited on together, so that a child filling one pipe
  // never blocks while we wait on the other. Once the child has exited, output that
  // stops for a moment means something it started holds the pipes: that is not waited for.
  auto deadline = std::chrono::steady_clock::now() + timeout;
  bool exited = false;
  out.start();
  err.start();
  for (;;) {
    HANDLE waits[3];
    PipeReader* readers[3] = {};
    DWORD count = 0;
    for (PipeReader* reader : {&out, &err}) {
      if (reader->pending()) readers[count] = reader, waits[count++] = reader->event();
    }
    if (!exited) waits[count++] = process.get();
    if (count == 0) break;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    DWORD slice = DWORD(std::min<long long>(left.count(), exited ? 200 : 1000));
    DWORD signalled = WaitForMultipleObjects(count, waits, FALSE, slice);
    if (signalled == WAIT_TIMEOUT) {
      if (exited) break;
      continue;
    }
    if (signalled >= WAIT_OBJECT_0 + count) break;
    DWORD index = signalled - WAIT_OBJECT_0;
    if (readers[index]) {
      readers[index]->complete();
      readers[index]->start();
    } else {
      exited = true;
    }
  }
  if (!exited && WaitForSingleObject(process.get(), 0) != WAIT_OBJECT_0) {
    result.timedOut = true;
    TerminateProcess(process.get(), 1);
    WaitForSingleObject(process.get(), 5000);
  }
  out.stop();
  err.stop();
  DWORD code = 0;
  if (!result.timedOut && GetExitCodeProcess(process.get(), &code)) result.exitCode = int(code);
  return result;
}

static constexpr char kPathListSeparator = ';';
static constexpr std::string_view kFolderSeparators = "/\\";
static bool isExecutable(const std::string&) { return true; }

// "git" is looked for as "git.exe" and "git.com"; a name that has such an extension
// already is taken as it is.
static std::vector<std::string> programFileNames(std::string_view program) {
  std::string_view extension = program.substr(std::min(program.size(), program.rfind('.')));
  if (equalsNoCase(extension, ".exe") || equalsNoCase(extension, ".com")) return {std::string(program)};
  return {std::string(program) + ".exe", std::string(program) + ".com"};
}

// PATH entries may be quoted on Windows.
static std::string_view unquoted(std::string_view folder) {
  if (folder.size() >= 2 && folder.front() == '"' && folder.back() == '"') return folder.substr(1, folder.size() - 2);
  return folder;
}

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
static constexpr std::string_view kFolderSeparators = "/";
static bool isExecutable(const std::string& file) { return ::access(file.c_str(), X_OK) == 0; }
static std::vector<std::string> programFileNames(std::string_view program) { return {std::string(program)}; }
static std::string_view unquoted(std::string_view folder) { return folder; }

#endif

std::optional<std::string> findOnPath(std::string_view program, std::string_view pathList) {
  namespace fs = std::filesystem;
  // No PATH at all finds nothing (rather than the current folder).
  if (program.empty() || pathList.empty() || program.find_first_of(kFolderSeparators) != std::string_view::npos)
    return std::nullopt;
  size_t start = 0;
  while (start <= pathList.size()) {
    size_t end = std::min(pathList.find(kPathListSeparator, start), pathList.size());
    std::string folder(unquoted(pathList.substr(start, end - start)));
    if (folder.empty()) folder = ".";  // an empty entry means the current folder
    for (const std::string& name : programFileNames(program)) {
      std::string candidate = native::fromPath(native::toPath(folder) / native::toPath(name));
      std::error_code ec;
      if (fs::is_regular_file(native::toPath(candidate), ec) && isExecutable(candidate)) return candidate;
    }
    start = end + 1;
  }
  return std::nullopt;
}

std::string windowsArgument(std::string_view arg) {
  if (!arg.empty() && arg.find_first_of(" \t\n\v\"") == std::string_view::npos) return std::string(arg);
  // Backslashes are literal except before a quote, where they pair up: so the ones that
  // precede a quote, or the closing quote, are doubled.
  std::string quoted = "\"";
  size_t backslashes = 0;
  for (char c : arg) {
    if (c == '\\') {
      ++backslashes;
      continue;
    }
    quoted.append(c == '"' ? backslashes * 2 + 1 : backslashes, '\\');
    quoted += c;
    backslashes = 0;
  }
  quoted.append(backslashes * 2, '\\');
  return quoted + "\"";
}

std::string windowsCommandLine(const std::vector<std::string>& argv) {
  std::string line;
  for (size_t i = 0; i < argv.size(); ++i) {
    if (i) line += ' ';
    // The program name is read up to the next quote without escapes; it cannot hold one.
    line += i == 0 ? "\"" + argv[0] + "\"" : windowsArgument(argv[i]);
  }
  return line;
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
