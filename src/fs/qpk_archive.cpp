#include "fs/qpk_archive.h"

namespace zv::fs {

Result<std::shared_ptr<ContentSource>> openQpkArchive(const std::string& path) {
  return Error{"cannot open archive " + path + ": archive support is not built yet"};
}

}  // namespace zv::fs
