// What the runtime needs to know of a library description: its head. The rest is there for those who make clients.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "com.h"

namespace com {

struct LibraryHead {
  GUID guid{};
  WORD majorVersion = 0;
  WORD minorVersion = 0;
  LCID lcid = 0;
  std::string name;
  std::string helpString;  // UTF-8
};

// Nothing when the text does not describe a library.
std::optional<LibraryHead> ReadLibraryHead(std::string_view description);

}  // namespace com
