// The text of the manifest, and the paths of the files in a bundle.
#pragma once

#include <string>
#include <string_view>

#include "bundle.h"

namespace bundle {

inline constexpr const char* kManifestName = "manifest.json";
inline constexpr std::size_t kMostManifestBytes = std::size_t{64} << 20;

// Returns the path of a file in the archive. Throws Failure for codes and names that cannot be part of a path.
std::string PathOf(const Pair& pair, const Model* model, Kind kind);

// Throws Failure for what PathOf refuses.
std::string TextOf(const Manifest& manifest);

// Throws Failure for a text that is no manifest, for two files with the same path, and for what no store would take.
Manifest ParseManifest(std::string_view text);

}  // namespace bundle
