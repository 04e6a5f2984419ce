#include "fs/atomic_write.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>

#include "base/native_path.h"
#include "base/strings.h"

#ifdef _WIN32
#include <windows.h>

#include <chrono>
#include <cstddef>
#include <thread>
#include <vector>
#else
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#endif

namespace zv::fs {
namespace stdfs = std::filesystem;

namespace {

std::atomic<unsigned> gTemporaryCounter{0};

#ifdef _WIN32

using Handle = HANDLE;
const Handle kNoHandle = INVALID_HANDLE_VALUE;
unsigned long processId() { return GetCurrentProcessId(); }

std::string lastErrorText() {
  DWORD code = GetLastError();
  wchar_t* text = nullptr;
  DWORD size = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                              nullptr, code, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  std::string message = size ? native::narrow(std::wstring_view(text, size)) : format("error %lu", code);
  if (text) LocalFree(text);
  while (!message.empty() && (message.back() == '\n' || message.back() == '\r' || message.back() == '.')) message.pop_back();
  return message;
}

Handle createExclusive(const stdfs::path& file, bool& exists) {
  HANDLE handle = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
  exists = handle == INVALID_HANDLE_VALUE && GetLastError() == ERROR_FILE_EXISTS;
  return handle;
}

bool writeSome(Handle handle, const uint8_t* data, size_t size, size_t& written) {
  DWORD done = 0;
  bool ok = WriteFile(handle, data, DWORD(std::min<size_t>(size, 1u << 30)), &done, nullptr);
  written = done;
  return ok && done > 0;
}

bool closeFile(Handle handle) { return CloseHandle(handle) != 0; }
void removeFile(const stdfs::path& file) { DeleteFileW(file.c_str()); }

// Renames the file over the target the way POSIX does: a target that others have open
// (sharing deletion, as readers of this tool do) is replaced, and they keep reading the
// old bytes. Systems older than that rename, and some file systems, refuse it.
bool replaceOpenTarget(const stdfs::path& from, const stdfs::path& to) {
  HANDLE file = CreateFileW(from.c_str(), DELETE | SYNCHRONIZE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                            nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  // FILE_RENAME_INFO with its flags word, declared here since older headers lack it.
  struct RenameInfo {
    DWORD flags;
    HANDLE rootDirectory;
    DWORD nameLength;
    WCHAR name[1];
  };
  constexpr DWORD kReplaceIfExists = 0x1, kPosixSemantics = 0x2;
  constexpr auto kFileRenameInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);
  const std::wstring& name = to.native();
  std::vector<uint8_t> buffer(offsetof(RenameInfo, name) + (name.size() + 1) * sizeof(WCHAR));
  auto* info = reinterpret_cast<RenameInfo*>(buffer.data());
  info->flags = kReplaceIfExists | kPosixSemantics;
  info->nameLength = DWORD(name.size() * sizeof(WCHAR));
  std::copy(name.begin(), name.end(), info->name);
  bool renamed = SetFileInformationByHandle(file, kFileRenameInfoEx, info, DWORD(buffer.size())) != 0;
  DWORD error = GetLastError();
  CloseHandle(file);
  SetLastError(error);
  return renamed;
}

// A rename over the target, which stays whole. Where the POSIX-style rename is refused,
// the classic one is used: a target that another program holds open refuses that for a
// while (a scanner, an indexer), so it is tried again for about two seconds.
bool replaceFile(const stdfs::path& from, const stdfs::path& to) {
  if (replaceOpenTarget(from, to)) return true;
  for (int attempt = 0;; ++attempt) {
    if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return true;
    DWORD error = GetLastError();
    DWORD attributes = GetFileAttributesW(to.c_str());
    bool folder = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
    bool busy = !folder && (error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION);
    if (!busy || attempt == 20) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    SetLastError(error);
  }
}

#else

using Handle = int;
const Handle kNoHandle = -1;
unsigned long processId() { return static_cast<unsigned long>(getpid()); }
std::string lastErrorText() { return std::strerror(errno); }

Handle createExclusive(const stdfs::path& file, bool& exists) {
  int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  exists = fd < 0 && errno == EEXIST;
  return fd;
}

bool writeSome(Handle fd, const uint8_t* data, size_t size, size_t& written) {
  for (;;) {
    ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    written = n > 0 ? size_t(n) : 0;
    return n > 0;
  }
}

bool closeFile(Handle fd) { return ::close(fd) == 0; }
void removeFile(const stdfs::path& file) { ::unlink(file.c_str()); }
bool replaceFile(const stdfs::path& from, const stdfs::path& to) { return std::rename(from.c_str(), to.c_str()) == 0; }

#endif

// A new, exclusively created temporary file beside target.
Handle createTemporary(const stdfs::path& target, stdfs::path& temporary) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    temporary = target;
    static const unsigned long pid = processId();  // asked once: it is a system call per file otherwise
    temporary += native::toPath(format(".tmp%lu-%u", pid, gTemporaryCounter.fetch_add(1)));
    bool exists = false;
    Handle handle = createExclusive(temporary, exists);
    if (handle != kNoHandle || !exists) return handle;
  }
  return kNoHandle;
}

bool writeAll(Handle handle, std::span<const uint8_t> bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    size_t written = 0;
    if (!writeSome(handle, bytes.data() + done, bytes.size() - done, written)) return false;
    done += written;
  }
  return true;
}

}  // namespace

Status writeFileAtomic(const stdfs::path& target, std::span<const uint8_t> bytes,
                       const std::function<void()>& beforeRename) {
  std::string name = native::fromPath(target);
  stdfs::path temporary;
  Handle handle = createTemporary(target, temporary);
  if (handle == kNoHandle) return Error{format("cannot create a file beside %s: %s", name.c_str(), lastErrorText().c_str())};
  bool written = writeAll(handle, bytes);
  std::string writeError = written ? std::string() : lastErrorText();
  bool closed = closeFile(handle);
  if (!written || !closed) {
    std::string reason = written ? lastErrorText() : writeError;
    removeFile(temporary);
    return Error{format("cannot write %s: %s", name.c_str(), reason.c_str())};
  }
  if (beforeRename) beforeRename();
  if (!replaceFile(temporary, target)) {
    std::string reason = lastErrorText();
    removeFile(temporary);
    return Error{format("cannot replace %s: %s", name.c_str(), reason.c_str())};
  }
  return Status::success();
}

}  // namespace zv::fs
