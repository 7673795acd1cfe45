#include <archive.h>
#include <archive_entry.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "bundle.h"
#include "checksum.h"
#include "manifest.h"

namespace bundle {
namespace {

constexpr mode_t kMode = 0644;

void Require(bool isDone, const char* reason) {
  if (!isDone) throw Failure(std::string("the bundle cannot be made: ") + reason);
}

// Writes a tar file.
class Archive {
 public:
  explicit Archive(int descriptor) : archive_(archive_write_new()) {
    Require(archive_ != nullptr, "no memory");
    // This format stores names as raw bytes, whatever the locale.
    archive_write_set_format_gnutar(archive_.get());
    Check(archive_write_open_fd(archive_.get(), descriptor));
  }

  void Begin(const std::string& path, std::uint64_t bytes) {
    const std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(), archive_entry_free);
    Require(entry != nullptr, "no memory");
    archive_entry_copy_pathname(entry.get(), path.c_str());
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(bytes));
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), kMode);
    archive_entry_set_mtime(entry.get(), now_, 0);
    Check(archive_write_header(archive_.get(), entry.get()));
  }

  void Write(std::string_view bytes) {
    const la_ssize_t written = archive_write_data(archive_.get(), bytes.data(), bytes.size());
    Require(written == static_cast<la_ssize_t>(bytes.size()), archive_error_string(archive_.get()));
  }

  void End() { Check(archive_write_close(archive_.get())); }

 private:
  struct Free {
    void operator()(archive* one) const { archive_write_free(one); }
  };

  void Check(int result) {
    if (result != ARCHIVE_OK) Require(false, archive_error_string(archive_.get()));
  }

  const std::unique_ptr<archive, Free> archive_;
  const std::time_t now_ = std::time(nullptr);
};

// Maps the content of a file.
class Mapping {
 public:
  explicit Mapping(int descriptor) {
    struct stat status = {};
    Require(fstat(descriptor, &status) == 0, std::strerror(errno));
    bytes_ = static_cast<std::size_t>(status.st_size);
    start_ = mmap(nullptr, bytes_, PROT_READ, MAP_PRIVATE, descriptor, 0);
    Require(start_ != MAP_FAILED, std::strerror(errno));
  }
  ~Mapping() { munmap(start_, bytes_); }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;

  std::string_view Text() const { return {static_cast<const char*>(start_), bytes_}; }

 private:
  void* start_ = nullptr;
  std::size_t bytes_ = 0;
};

}  // namespace

Writer::TemporaryFile Writer::Open() {
  TemporaryFile file(std::tmpfile());
  Require(file != nullptr, std::strerror(errno));
  return file;
}

Writer::Writer() : contents_(Open()) {}

File Writer::Add(Kind kind, std::string_view content) {
  Require(std::fwrite(content.data(), 1, content.size(), contents_.get()) == content.size(), std::strerror(errno));
  return {kind, content.size(), Sha256(content)};
}

void Writer::Finish(const Manifest& manifest, const std::function<void(std::string_view archive)>& take) {
  Require(std::fseek(contents_.get(), 0, SEEK_SET) == 0, std::strerror(errno));
  const TemporaryFile file = Open();
  Archive archive(fileno(file.get()));
  const std::string text = TextOf(manifest);
  if (text.size() > kMostManifestBytes) throw Failure("there are too many models for one bundle");
  ParseManifest(text);
  archive.Begin(kManifestName, text.size());
  archive.Write(text);
  const auto add = [&](const Pair& pair, const Model* model, const File& one) {
    std::string content(one.bytes, '\0');
    Require(std::fread(content.data(), 1, content.size(), contents_.get()) == content.size(), std::strerror(errno));
    archive.Begin(PathOf(pair, model, one.kind), one.bytes);
    archive.Write(content);
  };
  for (const Pair& pair : manifest.pairs) {
    if (pair.catalogue) add(pair, nullptr, *pair.catalogue);
    for (const Model& model : pair.models) {
      for (const File& one : model.files)
        add(pair, &model, one);
    }
  }
  archive.End();
  take(Mapping(fileno(file.get())).Text());
}

}  // namespace bundle
