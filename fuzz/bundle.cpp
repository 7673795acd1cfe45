// Whatever the bytes of an archive, it is read as a bundle or refused, and what is read matches the manifest.
#include "bundle/bundle.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/host/descriptor.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const platform::Descriptor file(memfd_create("bundle", MFD_CLOEXEC));
  if (!file || write(file.Number(), data, size) != static_cast<ssize_t>(size)) std::abort();
  try {
    bundle::Reader reader("/proc/self/fd/" + std::to_string(file.Number()));
    reader.Visit([](const bundle::Pair&, const bundle::Model* model, std::vector<std::string>& contents) {
      for (std::size_t i = 0; model != nullptr && i < contents.size(); ++i)
        if (contents[i].size() != model->files[i].bytes) std::abort();
    });
  } catch (const bundle::Failure&) {
    // Refused.
  }
  return 0;
}
