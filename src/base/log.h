#pragma once
// Console messages: named channels with a verbosity, a severity per message and an
// optional RGBA colour. Every line the tool prints goes through here, so tests can
// capture it and colour is decided in one place.

#include <cstdint>
#include <optional>
#include <string>
#include <set>
#include <string_view>
#include <vector>

#include "base/strings.h"

namespace zv {

enum class Severity : int { Detail = 1, Message = 2, Warning = 3, Error = 4 };

struct Color {
  uint8_t r, g, b, a;
  friend bool operator==(const Color&, const Color&) = default;
};

namespace colors {
inline constexpr Color kCyan{0, 255, 255, 255};
inline constexpr Color kRed{255, 0, 0, 255};
inline constexpr Color kGreen{0, 255, 0, 255};
inline constexpr Color kYellow{255, 255, 0, 255};
}  // namespace colors

struct LogRecord {
  std::string channel;  // empty for the plain warning print
  Severity severity;
  std::optional<Color> color;
  std::string text;
  // Messages said once per run carry a key; a sink passes on the first record of a key.
  std::string onceKey = {};
};

class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void write(const LogRecord& record) = 0;
  // True the first time a key is claimed from this sink.
  bool claimOnce(const std::string& key) { return onceKeys_.insert(key).second; }

 private:
  std::set<std::string> onceKeys_;
};

class LogChannel {
 public:
  const std::string& name() const { return name_; }
  bool isEnabled(Severity severity) const { return static_cast<int>(severity) >= minimum_; }
  // Messages below this severity are dropped (1 shows everything).
  void setVerbosity(int minimumSeverity) { minimum_ = minimumSeverity; }

  void log(Severity severity, const char* fmt, ...) ZV_PRINTF_FORMAT(3, 4);
  void logColor(Severity severity, Color color, const char* fmt, ...) ZV_PRINTF_FORMAT(4, 5);

 private:
  friend LogChannel& logChannel(std::string_view name);
  explicit LogChannel(std::string name) : name_(std::move(name)) {}
  std::string name_;
  int minimum_ = static_cast<int>(Severity::Message);
};

// The channel of that name, registered on first use; lives for the process.
LogChannel& logChannel(std::string_view name);
// The channel of that name when it was registered, else nothing.
LogChannel* findLogChannel(std::string_view name);

// The converter's own channel.
inline constexpr std::string_view kMainChannel = "ZvMdlImport";
inline LogChannel& mainLog() { return logChannel(kMainChannel); }

// The plain warning print: printf-style text to the warning stream.
void warning(const char* fmt, ...) ZV_PRINTF_FORMAT(1, 2);
// The plain warning print of a message said once per run however often it happens: the
// run's sink (or a model's buffer, then the run's sink) lets the first one through.
void warningOnce(std::string_view key, const char* fmt, ...) ZV_PRINTF_FORMAT(2, 3);

// Replaces the sink for the lifetime of the object; the previous sink comes back after.
class ScopedLogSink {
 public:
  explicit ScopedLogSink(LogSink& sink);
  ~ScopedLogSink();
  ScopedLogSink(const ScopedLogSink&) = delete;
  ScopedLogSink& operator=(const ScopedLogSink&) = delete;

 private:
  LogSink* previous_;
};

// Routes the records this thread says to sink for the object's lifetime, so that work
// done on a thread (one model of a parallel run) can be printed whole afterwards.
class ScopedThreadLogSink {
 public:
  explicit ScopedThreadLogSink(LogSink& sink);
  ~ScopedThreadLogSink();
  ScopedThreadLogSink(const ScopedThreadLogSink&) = delete;
  ScopedThreadLogSink& operator=(const ScopedThreadLogSink&) = delete;

 private:
  LogSink* previous_;
};

// Says the records again, in order, to the sink of the calling thread (or the run's).
void replayLog(const std::vector<LogRecord>& records);

// Keeps what is said to it until it is printed, e.g. with replayLog.
class LogBuffer : public LogSink {
 public:
  void write(const LogRecord& record) override { records.push_back(record); }
  std::vector<LogRecord> records;
};

// Collects every record; for tests and for callers that want the text.
class LogCapture : public LogSink {
 public:
  LogCapture() : scope_(*this) {}
  void write(const LogRecord& record) override;
  const std::vector<LogRecord>& records() const { return records_; }
  // All texts concatenated in order.
  std::string text() const;
  // How many records contain needle.
  size_t count(std::string_view needle) const;
  void clear();

 private:
  std::vector<LogRecord> records_;
  ScopedLogSink scope_;
};

// Whether standard error is a terminal (a status line may be kept there).
bool standardErrorIsTerminal();

// ANSI colour escape for an RGBA colour, or "" when none applies.
std::string ansiColor(std::optional<Color> color);

}  // namespace zv
