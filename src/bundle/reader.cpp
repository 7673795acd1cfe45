#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "bundle.h"
#include "checksum.h"
#include "manifest.h"
#include "platform/text/text.h"

namespace bundle {
namespace {

// Reads a tar file from its start. Its entries must come in the order in which the caller asks for them.
class Archive {
 public:
  explicit Archive(int file) : archive_(archive_read_new()) {
    if (archive_ == nullptr) throw std::bad_alloc();
    archive_read_support_format_tar(archive_.get());
    constexpr std::size_t kBlock = std::size_t{64} << 10;
    if (lseek(file, 0, SEEK_SET) != 0) throw Failure("it must be a file that can be read twice");
    if (archive_read_open_fd(archive_.get(), file, kBlock) != ARCHIVE_OK) Refuse();
  }

  // Goes to the next entry, which must be a plain file with this path. Returns its size in bytes.
  std::uint64_t Next(const std::string& path) {
    archive_entry* entry = nullptr;
    const int result = archive_read_next_header(archive_.get(), &entry);
    if (result == ARCHIVE_EOF) throw Failure("it ends before " + text::Presentable(path));
    if (result != ARCHIVE_OK && result != ARCHIVE_WARN) Refuse();
    const char* const name = archive_entry_pathname(entry);
    if (name == nullptr || path != name)
      throw Failure("it holds " + text::Presentable(name == nullptr ? "a file without a name" : name) + " where " +
                    text::Presentable(path) + " is expected");
    if (archive_entry_filetype(entry) != AE_IFREG || archive_entry_hardlink(entry) != nullptr ||
        archive_entry_symlink(entry) != nullptr) {
      throw Failure(text::Presentable(path) + " is no plain file");
    }
    return static_cast<std::uint64_t>(archive_entry_size(entry));
  }

  // Returns the whole content of the entry, which has `bytes` bytes.
  std::string Read(const std::string& path, std::uint64_t bytes) {
    std::string content(bytes, '\0');
    std::size_t done = 0;
    while (done < content.size()) {
      const la_ssize_t some = archive_read_data(archive_.get(), content.data() + done, content.size() - done);
      if (some < 0) Refuse();
      if (some == 0) throw Failure(text::Presentable(path) + " is cut short");
      done += static_cast<std::size_t>(some);
    }
    return content;
  }

  void RequireEnd() {
    archive_entry* entry = nullptr;
    if (archive_read_next_header(archive_.get(), &entry) != ARCHIVE_EOF)
      throw Failure("more follows than its manifest says");
  }

 private:
  struct Free {
    void operator()(archive* one) const { archive_read_free(one); }
  };

  [[noreturn]] void Refuse() const {
    const char* const reason = archive_error_string(archive_.get());
    throw Failure(reason == nullptr ? "it cannot be read" : reason);
  }

  const std::unique_ptr<archive, Free> archive_;
};

std::string ReadManifest(Archive& archive) {
  const std::uint64_t bytes = archive.Next(kManifestName);
  if (bytes > kMostManifestBytes) throw Failure("its manifest is too long");
  return archive.Read(kManifestName, bytes);
}

// Adds the archive's path to the message of a Failure.
template <typename Work>
auto Naming(const std::string& archive, const Work& work) {
  try {
    return work();
  } catch (const Failure& failure) {
    throw Failure(text::Presentable(archive) + " is no bundle: " + failure.what());
  }
}

}  // namespace

Reader::Reader(std::string archive)
    : archive_(std::move(archive)), file_(open(archive_.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (!file_) throw Failure("cannot read " + text::Presentable(archive_) + ": " + std::strerror(errno));
  Naming(archive_, [&] {
    Archive file(file_.Number());
    text_ = ReadManifest(file);
    manifest_ = ParseManifest(text_);
  });
}

void Reader::Visit(const Take& take) {
  Archive archive = Naming(archive_, [&] { return Archive(file_.Number()); });
  const auto read = [&](const Pair& pair, const Model* model, const File& file) {
    return Naming(archive_, [&] {
      const std::string path = PathOf(pair, model, file.kind);
      if (archive.Next(path) != file.bytes)
        throw Failure(text::Presentable(path) + " is not as long as the manifest says");
      std::string content = archive.Read(path, file.bytes);
      if (Sha256(content) != file.sha256)
        throw Failure(text::Presentable(path) + " does not have the sum that the manifest tells");
      return content;
    });
  };
  Naming(archive_, [&] {
    if (ReadManifest(archive) != text_) throw Failure("it has been changed meanwhile");
  });
  std::vector<std::string> contents;
  for (const Pair& pair : manifest_.pairs) {
    if (pair.catalogue) {
      contents.assign(1, read(pair, nullptr, *pair.catalogue));
      take(pair, nullptr, contents);
    }
    for (const Model& model : pair.models) {
      contents.clear();
      for (const File& file : model.files)
        contents.push_back(read(pair, &model, file));
      take(pair, &model, contents);
    }
  }
  Naming(archive_, [&] { archive.RequireEnd(); });
}

}  // namespace bundle
