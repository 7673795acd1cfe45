// The text form of the registry: the export format of the desktop's own tools.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "registry.h"
#include "tree.h"

namespace registry {

// Keep a large file, or a small one of deeply nested keys or short values, from filling the memory.
inline constexpr std::size_t kMaxFileSize = std::size_t{16} << 20;
inline constexpr std::size_t kMaxKeys = 100'000;
inline constexpr std::size_t kMaxValues = 250'000;

enum class Purpose {
  registryFile,  // the registry itself: deletions and keys below other roots are errors
  import,        // deletions are carried out; keys below the desktop's other roots are ignored
};

// Parses the bytes of a file in any of the export formats into `*tree`. Throws FormatError, which names `file`; `*tree`
// then holds the part before the error. Returns how many sections were redirected.
std::size_t ParseInto(std::string_view bytes, const std::string& file, Purpose purpose, Tree* tree,
                      const Redirection* redirection = nullptr);

// Format the whole registry, or one key with everything below it, as version 5.00 text: UTF-8 without mark, lines
// ending in LF. Values that contain a line end are written as bytes, so that every line end in the text ends a line.
std::string Format(const Tree& tree);
std::string Format(const Tree& tree, const KeyPath& path);  // the key must exist

}  // namespace registry
