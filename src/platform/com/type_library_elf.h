// Sections of an executable in the system's own format (ELF, 64 bits, little-endian).
#pragma once

#include <elf.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "type_library_file.h"

namespace com {

// Headers are copied out of the file as they stand there.
static_assert(std::endian::native == std::endian::little);

// A file that may be an executable. Whatever its headers claim is checked against the file before it is used: a
// damaged or hostile file reads as one without sections.
class ElfFile {
 public:
  explicit ElfFile(const HostFile& file) : file_(file) {}

  bool HasSignature() const {
    char signature[SELFMAG];
    return file_.ReadAt(0, signature, sizeof signature) && std::memcmp(signature, ELFMAG, SELFMAG) == 0;
  }

  // The bytes of the section `name`; nothing when there is no such section with content, or one of more than
  // `maxBytes`.
  std::optional<std::string> Section(std::string_view name, std::size_t maxBytes) const {
    Elf64_Ehdr header;
    Elf64_Shdr names;
    if (!ReadHeader(&header) || !ReadSectionHeader(header, header.e_shstrndx, &names)) return std::nullopt;
    for (unsigned index = 0; index < header.e_shnum; ++index) {
      Elf64_Shdr section;
      if (!ReadSectionHeader(header, index, &section)) return std::nullopt;
      if (section.sh_type == SHT_PROGBITS && IsNamed(section, names, name)) return Content(section, maxBytes);
    }
    return std::nullopt;
  }

 private:
  bool ReadHeader(Elf64_Ehdr* header) const {
    return HasSignature() && file_.ReadAt(0, header, sizeof *header) && header->e_ident[EI_CLASS] == ELFCLASS64 &&
           header->e_ident[EI_DATA] == ELFDATA2LSB && header->e_ident[EI_VERSION] == EV_CURRENT &&
           (header->e_type == ET_EXEC || header->e_type == ET_DYN) && header->e_shentsize == sizeof(Elf64_Shdr);
  }

  bool ReadSectionHeader(const Elf64_Ehdr& header, unsigned index, Elf64_Shdr* section) const {
    if (index >= header.e_shnum || header.e_shoff > file_.Size()) return false;
    return file_.ReadAt(header.e_shoff + std::uint64_t{index} * sizeof *section, section, sizeof *section);
  }

  bool IsNamed(const Elf64_Shdr& section, const Elf64_Shdr& names, std::string_view name) const {
    const std::uint64_t bytes = name.size() + 1;  // with the NUL behind it
    if (names.sh_type != SHT_STRTAB || names.sh_offset > file_.Size()) return false;
    if (section.sh_name > names.sh_size || bytes > names.sh_size - section.sh_name) return false;
    std::string stored(bytes, '\0');
    return file_.ReadAt(names.sh_offset + section.sh_name, stored.data(), bytes) &&
           std::string_view(stored.data(), name.size()) == name && stored.back() == '\0';
  }

  std::optional<std::string> Content(const Elf64_Shdr& section, std::size_t maxBytes) const {
    if (section.sh_size == 0 || section.sh_size > maxBytes || (section.sh_flags & SHF_COMPRESSED) != 0) {
      return std::nullopt;
    }
    std::string bytes;
    if (!file_.Read(section.sh_offset, section.sh_size, &bytes)) return std::nullopt;
    return bytes;
  }

  const HostFile& file_;
};

}  // namespace com
