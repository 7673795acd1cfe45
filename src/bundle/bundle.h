// Bundles: the models of modules and components in one archive, for backup or for another home. A bundle is a tar file
// that ordinary tools can open. "manifest.json" comes first and lists what follows, with the size and the SHA-256 of
// each file. The files follow in the order of the manifest, those of a model together, under paths such as
// CT/01/Vendas.RXL. A field catalogue is stored as CT/01/fields/XCT01.REL.
//
// Texts are UTF-8. Any thread may call; one thread at a time may use an object. Throws std::bad_alloc.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/descriptor.h"

namespace bundle {

// Why a bundle cannot be made or cannot be trusted; `what()` is a line for people.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class Kind { document, firstGeneration, exportSettings, filter, catalogue };

// The extension of a model's file, with its dot.
std::string_view ExtensionOf(Kind kind);

struct File {
  Kind kind = Kind::document;
  std::uint64_t bytes = 0;
  std::string sha256;  // 64 hexadecimal digits
};

// A document, or the existing files of a first-generation model: the model, its export settings, its filter, in that
// order.
struct Model {
  std::string name;  // as the store lists it
  std::vector<File> files;
  std::vector<std::int32_t> codes;  // of the fields that it uses, as far as the model could be read
};

struct Pair {
  std::string module;
  std::string component;
  std::string defaultReport;        // empty: none
  std::vector<std::string> hidden;  // deleted demonstration models
  std::optional<File> catalogue;
  std::vector<Model> models;  // documents first
};

struct Manifest {
  std::string made;  // the time, such as 2026-11-26T22:15:44Z
  std::vector<Pair> pairs;
};

// Collects the files of a bundle on disk, then writes the archive.
class Writer {
 public:
  Writer();

  // Stores the content of a file. Call in the order of the manifest that Finish gets. Throws Failure if the disk is
  // full.
  File Add(Kind kind, std::string_view content);

  // Passes the archive to `take`. Throws Failure for a manifest that a reader would refuse, and if the disk is full.
  void Finish(const Manifest& manifest, const std::function<void(std::string_view archive)>& take);

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  using TemporaryFile = std::unique_ptr<std::FILE, Close>;
  static TemporaryFile Open();

  TemporaryFile contents_;
};

// Reads a bundle, which is not trusted: the reader never writes to a path that the bundle names.
class Reader {
 public:
  // Opens the archive and reads the manifest. Throws Failure if the file cannot be read or is no bundle.
  explicit Reader(std::string archive);

  const Manifest& Contents() const { return manifest_; }

  // Reads the archive, which must hold exactly what the manifest lists. Calls `take` for the catalogue of a pair
  // (`model` is null, with one content) and for each model with the contents of its files. Throws Failure at the first
  // file that differs from the manifest; its model is not passed on.
  using Take = std::function<void(const Pair& pair, const Model* model, std::vector<std::string>& contents)>;
  void Visit(const Take& take);

 private:
  const std::string archive_;  // its path
  const platform::Descriptor file_;
  std::string text_;  // of the manifest
  Manifest manifest_;
};

}  // namespace bundle
