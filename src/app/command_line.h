#pragma once
// The command line: options into RunOptions, file specifications into the ordered list of
// input models with their base names and output folders.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fs/file_system.h"
#include "importer/run_options.h"

namespace zv::app {

// Prints the usage text, line by line.
void printUsage();

// Parses the arguments after the program name into options, expanding file
// specifications through the file system (and adding the input root to it). Returns true
// when conversion may begin; problems are logged.
bool parseCommandLine(const std::vector<std::string>& args, RunOptions& options, fs::FileSystem& fileSystem);

// The mod the command line names with "-game <mod>", read before anything else starts.
std::optional<std::string> findGameArgument(const std::vector<std::string>& args);

// Expands one file filespec ("folder/pattern", "qpk:<archive>:folder/pattern") into
// the names of the files it matches: a folder's own files (sorted by name) before those
// of its sub-folders when recursing.
std::vector<std::string> gatherFiles(const fs::FileSystem& fileSystem, std::string_view filespec, bool recurse);

// The output folder of an input file: nothing only for an archive path without ".qpk:".
std::optional<std::string> mapOutputFolder(std::string_view inputFile, const std::optional<std::string>& inputRoot,
                                           std::string_view outputRoot);

}  // namespace zv::app
