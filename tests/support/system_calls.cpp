#include "support/system_calls.h"

#include <sys/stat.h>

#include <string_view>

namespace support {

namespace {

SystemCalls::Judge current;

std::string Shown(std::string_view name) {
  return ' ' + std::string(name.starts_with('.') ? "hidden" : name);
}

// Returns an empty string for a call that is no step.
std::string StepOf(const host::SystemCall& call) {
  std::string name = call.name;
  if (name == "F_OFD_SETLK") return "lock";
  if (name.ends_with("sync")) {
    struct stat status {};
    fstat(call.descriptor, &status);
    return name + (S_ISDIR(status.st_mode) ? " folder" : " file");
  }
  if (!name.starts_with("rename") && !name.ends_with("linkat")) return "";
  name.erase(name.find("at"), 2);
  return name + Shown(call.path) + (call.newFolder < 0 ? "" : Shown(call.newPath));
}

}  // namespace

SystemCalls::SystemCalls(Judge judge) {
  current = std::move(judge);
}

SystemCalls::SystemCalls(const Failures& failures)
    : SystemCalls([this, failures](const host::SystemCall& call) {
        const std::string step = StepOf(call);
        if (!step.empty() && step != "lock") seen_.push_back(step);
        for (const auto& [failing, error] : failures) {
          if (!step.empty() && step.starts_with(failing)) return host::Fate{.error = error};
        }
        return host::Fate{};
      }) {}

SystemCalls::~SystemCalls() {
  current = nullptr;
}

}  // namespace support

host::Fate host::FateOf(const SystemCall& call) {
  return support::current ? support::current(call) : Fate{};
}
