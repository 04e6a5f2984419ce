#include "fs/atomic_write.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "base/strings.h"

namespace zv::fs {
namespace stdfs = std::filesystem;

namespace {

std::atomic<unsigned> gTemporaryCounter{0};

// A new, exclusively created temporary file beside target.
int createTemporary(const stdfs::path& target, stdfs::path& temporary) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    temporary = target;
    static const int pid = int(getpid());
    temporary += format(".tmp%d-%u", pid, gTemporaryCounter.fetch_add(1));
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
}

bool writeAll(int fd, std::span<const uint8_t> bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += size_t(n);
  }
  return true;
}

}  // namespace

Status writeFileAtomic(const stdfs::path& target, std::span<const uint8_t> bytes,
                       const std::function<void()>& beforeRename) {
  stdfs::path temporary;
  int fd = createTemporary(target, temporary);
  if (fd < 0) return Error{format("cannot create a file beside %s: %s", target.c_str(), std::strerror(errno))};
  bool written = writeAll(fd, bytes);
  int writeError = errno;
  bool closed = ::close(fd) == 0;
  if (!written || !closed) {
    std::remove(temporary.c_str());
    return Error{format("cannot write %s: %s", target.c_str(), std::strerror(written ? errno : writeError))};
  }
  if (beforeRename) beforeRename();
  if (std::rename(temporary.c_str(), target.c_str()) != 0) {
    int renameError = errno;
    std::remove(temporary.c_str());
    return Error{format("cannot replace %s: %s", target.c_str(), std::strerror(renameError))};
  }
  return Status::success();
}

}  // namespace zv::fs
