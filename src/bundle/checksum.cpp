#include "checksum.h"

#include <array>
#include <cstdint>
#include <nettle/base16.h>
#include <nettle/sha2.h>

namespace bundle {

std::string Sha256(std::string_view bytes) {
  sha256_ctx context;
  sha256_init(&context);
  sha256_update(&context, bytes.size(), reinterpret_cast<const std::uint8_t*>(bytes.data()));
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
  sha256_digest(&context, digest.size(), digest.data());
  std::string digits(BASE16_ENCODE_LENGTH(SHA256_DIGEST_SIZE), '\0');
  base16_encode_update(digits.data(), digest.size(), digest.data());
  return digits;
}

}  // namespace bundle
