// A child process for the process-runner tests, the same on every platform (no shell
// there on Windows). Modes:
//   args A B ...         reads standard input to its end, then prints "[A][B]..."
//   exit CODE OUT ERR    prints OUT and ERR on the two streams and exits with CODE
//   flood OUT ERR        writes OUT bytes to standard output, then ERR bytes to standard error
//   sleep MS             sleeps
//   orphan MS            starts "sleep MS" holding its streams, prints "started", exits

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "base/native_path.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace {

void sleepFor(const std::string& ms) { std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(ms))); }

void flood(std::FILE* stream, long bytes) {
  std::vector<char> block(65536, 'z');
  for (long left = bytes; left > 0; left -= long(block.size())) {
    std::fwrite(block.data(), 1, std::min<size_t>(block.size(), size_t(left)), stream);
  }
  std::fflush(stream);
}

// Starts "sleep MS" with this process's streams and does not wait for it.
bool startOrphan(const std::string& ms) {
#ifdef _WIN32
  wchar_t self[32768];
  DWORD length = GetModuleFileNameW(nullptr, self, 32768);
  if (length == 0 || length >= 32768) return false;
  std::wstring commandLine = L"\"" + std::wstring(self, length) + L"\" sleep " + zv::native::widen(ms);
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION child{};
  if (!CreateProcessW(self, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &child)) return false;
  CloseHandle(child.hThread);
  CloseHandle(child.hProcess);
  return true;
#else
  pid_t pid = fork();
  if (pid == 0) {
    sleepFor(ms);
    _exit(0);
  }
  return pid > 0;
#endif
}

}  // namespace

int main(int argc, char** argv) {
#ifdef _WIN32
  // Bytes out as they are: no "\r" added before each "\n".
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
#endif
  std::vector<std::string> args = zv::native::commandLineArguments(argc, argv);
  if (args.empty()) return 100;
  const std::string& mode = args[0];
  if (mode == "args") {
    while (std::fgetc(stdin) != EOF) {
    }
    for (size_t i = 1; i < args.size(); ++i) std::printf("[%s]", args[i].c_str());
    return 0;
  }
  if (mode == "exit" && args.size() == 4) {
    std::fputs(args[2].c_str(), stdout);
    std::fputs(args[3].c_str(), stderr);
    return std::atoi(args[1].c_str());
  }
  if (mode == "flood" && args.size() == 3) {
    flood(stdout, std::atol(args[1].c_str()));
    flood(stderr, std::atol(args[2].c_str()));
    return 0;
  }
  if (mode == "sleep" && args.size() == 2) {
    sleepFor(args[1]);
    return 0;
  }
  if (mode == "orphan" && args.size() == 2) {
    if (!startOrphan(args[1])) return 101;
    std::puts("started");
    return 0;
  }
  return 100;
}
