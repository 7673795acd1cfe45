// The text form of the registry: the export format of the desktop's own tools.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "registry.h"
#include "tree.h"

namespace registry {

// Neither a large file nor a small one of deeply nested keys or short values is to fill the memory.
inline constexpr std::size_t kMaxFileSize = std::size_t{16} << 20;
inline constexpr std::size_t kMaxKeys = 100'000;
inline constexpr std::size_t kMaxValues = 250'000;

enum class Purpose {
  registryFile,  // the registry itself: deletions and keys below other roots are errors
  import,        // deletions are carried out; what lies below the desktop's other roots is passed over
};

// Reads the bytes of a file in any of the export formats and enters what it says into `*tree`. Throws FormatError,
// which names `file`; `*tree` then holds the part before the error. How many sections were redirected, if any are.
std::size_t ParseInto(std::string_view bytes, const std::string& file, Purpose purpose, Tree* tree,
                      const Redirection* redirection = nullptr);

// The whole registry, and one key with all below it, as version 5.00 text: UTF-8 without mark, lines ending in LF. A
// line end in the text is always the end of a line: values that hold one are written as bytes.
std::string Format(const Tree& tree);
std::string Format(const Tree& tree, const KeyPath& path);  // there must be such a key

}  // namespace registry
