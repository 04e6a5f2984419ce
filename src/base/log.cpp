#include "base/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>

#include "base/console.h"
#include "base/strings.h"

namespace zv {
namespace {

// Progress goes to standard output, problems to standard error; colour only on a
// terminal and never when NO_COLOR is set.
class ConsoleSink : public LogSink {
 public:
  void write(const LogRecord& record) override {
    FILE* stream = record.severity >= Severity::Warning ? stderr : stdout;
    bool colour = record.color && !std::getenv("NO_COLOR") && console::showsColour(stream);
    console::write(stream, colour ? ansiColor(record.color) + record.text + "\033[0m" : record.text);
  }
};

struct LogState {
  std::mutex mutex;
  ConsoleSink console;
  LogSink* sink = &console;
  std::map<std::string, std::unique_ptr<LogChannel>, std::less<>> channels;
};

LogState& state() {
  static LogState instance;
  return instance;
}

// A thread's own sink, when it has one: it is the thread's alone, so it needs no lock.
thread_local LogSink* tThreadSink = nullptr;

void deliver(LogSink& sink, const LogRecord& record) {
  if (!record.onceKey.empty() && !sink.claimOnce(record.onceKey)) return;
  sink.write(record);
}

void emit(const LogRecord& record) {
  if (tThreadSink != nullptr) return deliver(*tThreadSink, record);
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  deliver(*s.sink, record);
}

}  // namespace

// A terminal that takes control sequences: on Windows, a console in virtual-terminal mode.
bool standardErrorIsTerminal() { return console::showsColour(stderr); }

std::string ansiColor(std::optional<Color> color) {
  if (!color) return {};
  // Nearest of the eight basic terminal colours: each channel on or off.
  int code = (color->r >= 128 ? 1 : 0) | (color->g >= 128 ? 2 : 0) | (color->b >= 128 ? 4 : 0);
  return format("\033[%dm", 30 + code);
}

LogChannel& logChannel(std::string_view name) {
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  auto it = s.channels.find(name);
  if (it == s.channels.end()) {
    it = s.channels.emplace(std::string(name), std::unique_ptr<LogChannel>(new LogChannel(std::string(name)))).first;
  }
  return *it->second;
}

LogChannel* findLogChannel(std::string_view name) {
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  auto it = s.channels.find(name);
  return it == s.channels.end() ? nullptr : it->second.get();
}

void LogChannel::log(Severity severity, const char* fmt, ...) {
  if (!isEnabled(severity)) return;
  va_list args;
  va_start(args, fmt);
  std::string text = formatV(fmt, args);
  va_end(args);
  emit({name_, severity, std::nullopt, std::move(text)});
}

void LogChannel::logColor(Severity severity, Color color, const char* fmt, ...) {
  if (!isEnabled(severity)) return;
  va_list args;
  va_start(args, fmt);
  std::string text = formatV(fmt, args);
  va_end(args);
  emit({name_, severity, color, std::move(text)});
}

void warning(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  std::string text = formatV(fmt, args);
  va_end(args);
  emit({std::string(), Severity::Warning, std::nullopt, std::move(text)});
}

void warningOnce(std::string_view key, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  std::string text = formatV(fmt, args);
  va_end(args);
  emit({std::string(), Severity::Warning, std::nullopt, std::move(text), std::string(key)});
}

void replayLog(const std::vector<LogRecord>& records) {
  for (const LogRecord& record : records) emit(record);
}

ScopedThreadLogSink::ScopedThreadLogSink(LogSink& sink) : previous_(tThreadSink) { tThreadSink = &sink; }

ScopedThreadLogSink::~ScopedThreadLogSink() { tThreadSink = previous_; }

ScopedLogSink::ScopedLogSink(LogSink& sink) {
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  previous_ = s.sink;
  s.sink = &sink;
}

ScopedLogSink::~ScopedLogSink() {
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  s.sink = previous_;
}

void LogCapture::write(const LogRecord& record) { records_.push_back(record); }

std::string LogCapture::text() const {
  std::string all;
  for (const LogRecord& r : records_) all += r.text;
  return all;
}

size_t LogCapture::count(std::string_view needle) const {
  size_t n = 0;
  for (const LogRecord& r : records_) {
    if (r.text.find(needle) != std::string::npos) ++n;
  }
  return n;
}

void LogCapture::clear() { records_.clear(); }

}  // namespace zv
