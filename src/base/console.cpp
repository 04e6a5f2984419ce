#include "base/console.h"

#ifdef _WIN32
#include <windows.h>

#include "base/native_path.h"
#else
#include <unistd.h>
#endif

namespace zv::console {

#ifdef _WIN32

namespace {

// The console behind a standard stream, or nothing when it goes to a file or a pipe.
HANDLE consoleOf(std::FILE* stream) {
  HANDLE handle = GetStdHandle(stream == stderr ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  if (stream != stderr && stream != stdout) return nullptr;
  return handle != INVALID_HANDLE_VALUE && handle && GetConsoleMode(handle, &mode) ? handle : nullptr;
}

}  // namespace

bool showsColour(std::FILE* stream) {
  HANDLE console = consoleOf(stream);
  DWORD mode = 0;
  if (!console || !GetConsoleMode(console, &mode)) return false;
  if (mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) return true;
  // Consoles older than the virtual-terminal mode refuse it: those get plain text.
  return SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

void write(std::FILE* stream, std::string_view text) {
  if (HANDLE console = consoleOf(stream)) {
    std::fflush(stream);
    std::wstring wide = native::widen(text);
    DWORD written = 0;
    if (WriteConsoleW(console, wide.data(), DWORD(wide.size()), &written, nullptr)) return;
  }
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

#else

bool showsColour(std::FILE* stream) { return isatty(fileno(stream)) != 0; }

void write(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

#endif

}  // namespace zv::console
