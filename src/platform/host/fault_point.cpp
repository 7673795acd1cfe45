#include "platform/host/fault_point.h"

namespace host {

Fate FateOf(const char* /*call*/, std::size_t /*bytes*/) {
  return {};
}

}  // namespace host
