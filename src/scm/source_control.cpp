#include "scm/source_control.h"

#include <cstdlib>

#include "base/log.h"
#include "base/strings.h"
#include "scm/git_source_control.h"
#include "scm/p4_source_control.h"
#include "scm/process.h"

namespace zv::scm {
namespace {

bool isSet(const EnvironmentLookup& environment, const char* name) {
  std::optional<std::string> value = environment(name);
  return value && !value->empty();
}

std::optional<std::string> findProgram(const EnvironmentLookup& environment, std::string_view program) {
  return findOnPath(program, environment("PATH").value_or(""));
}

std::unique_ptr<SourceControl> clientFor(Backend backend, const EnvironmentLookup& environment) {
  std::string_view name = backendName(backend);
  std::optional<std::string> program = findProgram(environment, name);
  if (!program) {
    warning("Source control %.*s was asked for but no %.*s program is on the PATH; files are not opened\n",
            static_cast<int>(name.size()), name.data(), static_cast<int>(name.size()), name.data());
    return std::make_unique<NoSourceControl>();
  }
  if (backend == Backend::P4) return std::make_unique<P4SourceControl>(*program);
  return std::make_unique<GitSourceControl>(*program);
}

}  // namespace

std::string_view backendName(Backend backend) {
  switch (backend) {
    case Backend::P4:
      return "p4";
    case Backend::Git:
      return "git";
    case Backend::None:
      break;
  }
  return "none";
}

std::optional<Backend> parseBackend(std::string_view name) {
  for (Backend backend : {Backend::None, Backend::P4, Backend::Git}) {
    if (equalsNoCase(name, backendName(backend))) return backend;
  }
  return std::nullopt;
}

std::optional<std::string> processEnvironment(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  if (!value) return std::nullopt;
  return std::string(value);
}

std::unique_ptr<SourceControl> chooseSourceControl(const Choice& choice,
                                                   const EnvironmentLookup& environment) {
  Backend backend = Backend::None;
  if (choice.forced) {
    backend = *choice.forced;
  } else if ((isSet(environment, "P4PORT") || isSet(environment, "P4CONFIG")) &&
             findProgram(environment, "p4")) {
    backend = Backend::P4;
  }
  // -nop4 is the switch that keeps p4 away from a run, whatever else was asked.
  if (backend == Backend::None || (backend == Backend::P4 && choice.noP4)) {
    return std::make_unique<NoSourceControl>();
  }
  return clientFor(backend, environment);
}

std::string sourceControlBanner(const SourceControl& system) {
  return "Source control: " + std::string(backendName(system.backend())) + "\n";
}

}  // namespace zv::scm
