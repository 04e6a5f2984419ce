#pragma once
// Packed archives (".qpk"): a directory file NAME_dir.qpk and numbered data files beside it.

#include <memory>
#include <string>

#include "base/result.h"
#include "fs/content_source.h"

namespace zv::fs {

// Opens the archive whose directory file is at path (a name without "_dir" means the
// directory file beside it with "_dir" added).
Result<std::shared_ptr<ContentSource>> openQpkArchive(const std::string& path);

}  // namespace zv::fs
