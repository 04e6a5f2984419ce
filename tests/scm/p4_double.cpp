// Stand-in for the p4 command-line client in the tests, on every platform: it answers
// fstat, edit and add in the client's own output format, keeps the server's view of files
// in a small table and records every call.
//
// $ZV_P4_DOUBLE_DIR holds:
//   depot    one file a line: clientPath|depotPath|headRev|headAction|action|change
//            (headRev 0: not submitted; action empty: not opened by this client)
//   calls    appended: the arguments of each call, separated by tabs
//   offline  when present, every call fails as when the server cannot be reached
// $ZV_P4_DOUBLE_MISSING_EXIT: exit status of fstat for an unknown file (default 1).

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "base/native_path.h"
#include "base/strings.h"

namespace {

namespace stdfs = std::filesystem;
using zv::split;

struct DepotLine {
  std::string clientPath, depotPath;
  int headRev = 0;
  std::string headAction, action, change;

  std::string text() const {
    return clientPath + "|" + depotPath + "|" + std::to_string(headRev) + "|" + headAction + "|" + action + "|" + change;
  }
};

class Depot {
 public:
  explicit Depot(stdfs::path file) : file_(std::move(file)) {
    std::ifstream in(file_);
    for (std::string line; std::getline(in, line);) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      std::vector<std::string> f = split(line, '|');
      if (f.size() == 6) lines_.push_back({f[0], f[1], std::atoi(f[2].c_str()), f[3], f[4], f[5]});
    }
  }
  const DepotLine* find(const std::string& clientPath) const {
    for (const DepotLine& line : lines_)
      if (line.clientPath == clientPath) return &line;
    return nullptr;
  }
  // Replaces (or appends) the line of its client path.
  void store(const DepotLine& changed) {
    std::erase_if(lines_, [&](const DepotLine& l) { return l.clientPath == changed.clientPath; });
    lines_.push_back(changed);
    std::ofstream out(file_, std::ios::binary | std::ios::trunc);
    for (const DepotLine& line : lines_) out << line.text() << '\n';
  }

 private:
  stdfs::path file_;
  std::vector<DepotLine> lines_;
};

std::string unescape(const std::string& path) {
  std::string out;
  for (size_t i = 0; i < path.size(); ++i) {
    std::string code = path.substr(i, 3);
    if (code == "%40") out += '@';
    else if (code == "%23") out += '#';
    else if (code == "%2A") out += '*';
    else if (code == "%25") out += '%';
    else {
      out += path[i];
      continue;
    }
    i += 2;
  }
  return out;
}

void recordCall(const stdfs::path& dir, const std::vector<std::string>& args) {
  std::ofstream calls(dir / "calls", std::ios::binary | std::ios::app);
  for (size_t i = 0; i < args.size(); ++i) calls << (i ? "\t" : "") << args[i];
  calls << '\n';
}

int fstat(const Depot& depot, const std::string& arg) {
  std::string path = unescape(arg);
  const DepotLine* line = depot.find(path);
  if (!line) {
    std::fprintf(stderr, "%s - no such file(s).\n", arg.c_str());
    const char* missingExit = std::getenv("ZV_P4_DOUBLE_MISSING_EXIT");
    return missingExit ? std::atoi(missingExit) : 1;
  }
  std::printf("... depotFile %s\n... clientFile %s\n... isMapped \n", line->depotPath.c_str(), path.c_str());
  if (line->headRev > 0) {
    std::printf("... headAction %s\n... headType text\n... headTime 1700000000\n... headRev %d\n", line->headAction.c_str(),
                line->headRev);
    std::printf("... headChange 12\n... headModTime 1700000000\n... haveRev %d\n", line->headRev);
  }
  if (!line->action.empty()) {
    std::printf("... action %s\n... change %s\n... type text\n... actionOwner builder\n", line->action.c_str(),
                line->change.c_str());
  }
  std::printf("\n");
  return 0;
}

int edit(Depot& depot, const std::string& arg, const std::string& change) {
  std::string path = unescape(arg);
  const DepotLine* line = depot.find(path);
  if (!line || line->headRev == 0 || line->headAction == "delete") {
    std::fprintf(stderr, "%s - file(s) not on client.\n", arg.c_str());
    return 1;
  }
  if (!line->action.empty()) {
    std::printf("%s#%d - currently opened for %s\n", line->depotPath.c_str(), line->headRev, line->action.c_str());
    return 0;
  }
  DepotLine opened = *line;
  opened.action = "edit";
  opened.change = change;
  depot.store(opened);
  std::printf("%s#%d - opened for edit\n", opened.depotPath.c_str(), opened.headRev);
  return 0;
}

int add(Depot& depot, const std::string& arg, const std::string& change, bool force) {
  if (!force && arg.find_first_of("@#%*") != std::string::npos) {
    std::fprintf(stderr, "Can't add filenames with wildcards [@#%%*] in them.\nUse -f option to force add.\n");
    return 1;
  }
  if (depot.find(arg)) {
    std::fprintf(stderr, "p4 double: add of a known file is not modelled\n");
    return 2;
  }
  depot.store({arg, "//depot" + arg, 0, "", "add", change});
  std::printf("//depot%s#1 - opened for add\n", arg.c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args = zv::native::commandLineArguments(argc, argv);
  const char* dirText = std::getenv("ZV_P4_DOUBLE_DIR");
  if (!dirText) {
    std::fprintf(stderr, "p4 double: ZV_P4_DOUBLE_DIR is not set\n");
    return 2;
  }
  stdfs::path dir = zv::native::toPath(dirText);
  recordCall(dir, args);
  std::error_code ec;
  if (stdfs::exists(dir / "offline", ec)) {
    // The client's first line (its product name) is left out; the rest is as printed.
    std::fprintf(stderr,
                 "\tConnect to server failed; check $P4PORT.\n\tTCP connect to localhost:1666 failed.\n"
                 "\tconnect: 127.0.0.1:1666: Connection refused\n");
    return 1;
  }
  // Global options come before the command.
  size_t at = 0;
  while (at < args.size()) {
    const std::string& a = args[at];
    if (a == "-ztag" || a == "-s" || a == "-q") at += 1;
    else if (a == "-c" || a == "-p" || a == "-u" || a == "-C" || a == "-d" || a == "-P") at += 2;
    else break;
  }
  if (at >= args.size()) {
    std::fprintf(stderr, "p4 double: no command\n");
    return 2;
  }
  std::string command = args[at++];
  std::string change = "default";
  bool force = false;
  while (args.size() - at > 1) {
    if (args[at] == "-c") {
      change = args[at + 1];
      at += 2;
    } else if (args[at] == "-f") {
      force = true;
      at += 1;
    } else {
      break;
    }
  }
  if (args.size() - at != 1) {
    std::fprintf(stderr, "p4 double: expected one file argument\n");
    return 2;
  }
  const std::string& arg = args[at];
  Depot depot(dir / "depot");
  if (command == "fstat") return fstat(depot, arg);
  if (command == "edit") return edit(depot, arg, change);
  if (command == "add") return add(depot, arg, change, force);
  std::fprintf(stderr, "p4 double: command %s is not modelled\n", command.c_str());
  return 2;
}
