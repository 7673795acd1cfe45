// Bundles: the models of modules and components in one archive, to be kept or to be taken to another home. A bundle is
// a tar file, which ordinary tools open. "manifest.json" comes first and says what follows, with the bytes and the
// SHA-256 of each file; then come the files as they lay in the reports folder, such as CT/01/Vendas.RXL, those of a
// model one after the other, in the order of the manifest. A field catalogue comes as CT/01/fields/XCT01.REL.
//
// Texts are UTF-8. From any thread, an object by one at a time. Throws std::bad_alloc.
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
  std::string sha256;  // 64 digits
};

// A document, or what there is of a first-generation model: itself, its export settings, its filter, in that order.
struct Model {
  std::string name;  // as the store lists it
  std::vector<File> files;
  std::vector<std::int32_t> codes;  // of the fields that it uses, as far as it could be read
};

struct Pair {
  std::string module;
  std::string component;
  std::string defaultReport;        // empty: none
  std::vector<std::string> hidden;  // deleted demonstration models
  std::optional<File> catalogue;
  std::vector<Model> models;  // the documents first
};

struct Manifest {
  std::string made;  // when, such as 2026-11-26T22:15:44Z
  std::vector<Pair> pairs;
};

// Collects the files of a bundle, on disk, and makes the archive of them.
class Writer {
 public:
  Writer();

  // Takes the content of a file; in the order of the manifest that Finish gets. Throws Failure when the disk is full.
  File Add(Kind kind, std::string_view content);

  // Hands the archive to `take`. Throws Failure for a manifest that a reader would refuse.
  void Finish(const Manifest& manifest, const std::function<void(std::string_view archive)>& take);

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  using TemporaryFile = std::unique_ptr<std::FILE, Close>;
  static TemporaryFile Open();

  TemporaryFile contents_;
};

// Reads a bundle that anybody may have made. Nothing of it is ever written to a place that it names.
class Reader {
 public:
  // Opens the archive and reads the manifest. Throws Failure when that cannot be done or it is none.
  explicit Reader(std::string archive);

  const Manifest& Contents() const { return manifest_; }

  // Reads the archive, which must hold what the manifest says and nothing else, and calls `take` for the catalogue of a
  // pair (`model` null, a content) and for each model, with the contents of its files. Throws Failure at the first file
  // that is not as it should be; its model is not shown.
  using Take = std::function<void(const Pair& pair, const Model* model, std::vector<std::string>& contents)>;
  void Visit(const Take& take);

 private:
  const std::string archive_;  // its path
  const platform::Descriptor file_;
  std::string text_;  // of the manifest
  Manifest manifest_;
};

}  // namespace bundle
