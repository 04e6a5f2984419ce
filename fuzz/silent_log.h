#pragma once
// Fuzz targets drop the converter's messages: printing them would dominate the run.

#include "base/log.h"

namespace zv::fuzz {

class SilentLog : public LogSink {
 public:
  void write(const LogRecord&) override {}
};

// Installs a silent sink once, for the whole fuzzing process.
inline void silenceLogs() {
  static SilentLog silent;
  static ScopedLogSink scope(silent);
}

}  // namespace zv::fuzz
