#include "fs/positioned_file.h"

#include <algorithm>
#include <limits>

#include "base/native_path.h"
#include "base/strings.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#endif

namespace zv::fs {

#ifdef _WIN32

namespace {
HANDLE asHandle(intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }
}  // namespace

Result<std::shared_ptr<PositionedFile>> PositionedFile::open(const std::string& path) {
  // Others may read, and may replace or delete the file: an archive being read never
  // blocks a write elsewhere.
  HANDLE handle = CreateFileW(native::toPath(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    if (GetLastError() == ERROR_ACCESS_DENIED && (GetFileAttributesW(native::toPath(path).c_str()) & FILE_ATTRIBUTE_DIRECTORY))
      return Error{format("%s is not a file", path.c_str())};
    return Error{format("cannot open %s: error %lu", path.c_str(), GetLastError())};
  }
  auto file = std::shared_ptr<PositionedFile>(new PositionedFile(reinterpret_cast<intptr_t>(handle)));
  LARGE_INTEGER size{};
  if (GetFileType(handle) != FILE_TYPE_DISK || !GetFileSizeEx(handle, &size))
    return Error{format("%s is not a file", path.c_str())};
  file->size_ = static_cast<uint64_t>(size.QuadPart);
  return file;
}

PositionedFile::~PositionedFile() { CloseHandle(asHandle(handle_)); }

bool PositionedFile::readAt(uint64_t offset, uint8_t* out, size_t count) const {
  while (count > 0) {
    // The offset travels with the call, so reads from several threads do not interfere.
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD got = 0;
    if (!ReadFile(asHandle(handle_), out, DWORD(std::min<size_t>(count, size_t{1} << 30)), &got, &at) || got == 0)
      return false;
    out += got;
    offset += got;
    count -= got;
  }
  return true;
}

#else

Result<std::shared_ptr<PositionedFile>> PositionedFile::open(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return Error{format("cannot open %s: %s", path.c_str(), std::strerror(errno))};
  auto file = std::shared_ptr<PositionedFile>(new PositionedFile(fd));
  struct stat info {};
  if (::fstat(fd, &info) != 0) return Error{format("cannot examine %s: %s", path.c_str(), std::strerror(errno))};
  if (!S_ISREG(info.st_mode)) return Error{format("%s is not a file", path.c_str())};
  file->size_ = static_cast<uint64_t>(info.st_size);
  return file;
}

PositionedFile::~PositionedFile() { ::close(static_cast<int>(handle_)); }

bool PositionedFile::readAt(uint64_t offset, uint8_t* out, size_t count) const {
  while (count > 0) {
    if (offset > static_cast<uint64_t>(std::numeric_limits<off_t>::max())) return false;
    ssize_t got = ::pread(static_cast<int>(handle_), out, std::min<size_t>(count, size_t{1} << 30), static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    out += got;
    offset += static_cast<uint64_t>(got);
    count -= static_cast<size_t>(got);
  }
  return true;
}

#endif

}  // namespace zv::fs
