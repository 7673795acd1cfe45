// Whatever the bytes of a registry file, reading it gives a tree or an error, and a tree is written in a form that
// reads back the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/registry/registry.h"
#include "reg_format.h"

namespace {

using registry::Purpose;
using registry::Tree;

bool Reads(std::string_view bytes, Purpose purpose, Tree* tree) {
  try {
    registry::ParseInto(bytes, "input", purpose, tree);
    return true;
  } catch (const registry::FormatError&) {
    return false;
  }
}

void Require(bool condition) {
  if (!condition) std::abort();
}

void ComesBack(const Tree& tree, std::string_view bytes) {
  Tree again;
  Require(Reads(bytes, Purpose::registryFile, &again));
  Require(again == tree);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  for (const Purpose purpose : {Purpose::registryFile, Purpose::import}) {
    Tree tree;
    if (!Reads(bytes, purpose, &tree)) continue;
    const std::string text = registry::Format(tree);
    ComesBack(tree, text);
    ComesBack(tree, registry::ToDesktopEncoding(text));
  }
  return 0;
}
