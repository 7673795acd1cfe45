// Whatever the bytes of a field catalogue, each of its lines is a record, and both record kinds say the same about it.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include "common/nomes_arquivos.h"
#include "legacy/catalogo_campos.h"
#include "platform/home/home.h"
#include "platform/text/text.h"

namespace {

using kestor::CCatalogoCampos;

void Require(bool condition) {
  if (!condition) abort();
}

// A home whose drive D holds the catalogue under test; it is removed at the end of the process.
class Installation {
 public:
  Installation() {
    std::string folder = (std::filesystem::temp_directory_path() / "kestor-fuzz-XXXXXX").string();
    Require(mkdtemp(folder.data()) != nullptr);
    home_ = folder;
    std::filesystem::create_directories(home_ / "drives" / "d");
    platform::Home::Use(home_);
  }
  ~Installation() {
    std::error_code ignored;
    std::filesystem::remove_all(home_, ignored);
  }
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  void Install(std::string_view catalogue) const {
    std::ofstream file(home_ / "drives" / "d" / "XCT01.REL", std::ios::binary | std::ios::trunc);
    file.write(catalogue.data(), static_cast<std::streamsize>(catalogue.size()));
    file.close();
    Require(file.good());
  }

 private:
  std::filesystem::path home_;
};

std::size_t Lines(std::string_view catalogue) {
  const std::size_t nul = catalogue.find('\0');
  const std::string_view text = catalogue.substr(0, nul);
  const auto ends = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  return nul == std::string_view::npos ? ends + 1 : ends;
}

// Returns the records in a block of exactly their size. Fills it with 0xFF first, so that bytes left unwritten are
// noticed.
template <typename Record>
std::unique_ptr<Record[]> Records(const CCatalogoCampos& catalogue, std::size_t count) {
  auto records = std::make_unique<Record[]>(count);
  memset(records.get(), 0xFF, count * sizeof(Record));
  catalogue.Preenche(records.get(), count);
  return records;
}

template <std::size_t N>
std::string_view Text(const char (&field)[N]) {
  const std::size_t length = strnlen(field, N);
  Require(length < N);
  Require(length == 0 || field[length - 1] != ' ');
  Require(std::all_of(field + length, field + N, [](char c) { return c == '\0'; }));
  return {field, length};
}

void RequirePermission(std::int32_t older, char newer) {
  Require(older == 0 || older == 1);
  Require(newer == 0 || newer == 1);
  Require(older <= newer);
}

void RequireSameField(const tagREG_CAMPOS_RELATORIO& older, const tagREG_CAMPOS_RELATORIO2& newer) {
  Require(newer.nCodigo == static_cast<std::uint16_t>(older.iCod));
  Require(newer.nTamanho == static_cast<std::uint16_t>(older.iTamanho));
  Require(Text(newer.szDescricao) == Text(older.cDescricao));
  Require(Text(newer.szApelido) == Text(older.cApelido));
  Require(Text(newer.szOpcoes) == Text(older.cOpcoes));
  RequirePermission(older.bCondicao, newer.bPodeFiltrar);
  RequirePermission(older.bTotalizavel, newer.bPodeTotalizar);
  RequirePermission(older.bOrdenavel, newer.bPodeOrdenar);
  Require(newer.cTipo == older.cTipo);
  Require(newer.cAlinhamento == text::UpperChar(older.cAlinhamento));
  Require(newer.cFiller == 0);
}

// Requires that a caller with room for fewer lines gets the first ones.
template <typename Record>
void RequireFirst(const CCatalogoCampos& catalogue, const Record* all, std::size_t count) {
  Require(catalogue.Quantidade(count) == count);
  const auto first = Records<Record>(catalogue, count);
  Require(memcmp(first.get(), all, count * sizeof(Record)) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Installation installation;
  const std::string bytes(data, data + size);
  installation.Install(bytes);

  CCatalogoCampos catalogue;
  Require(catalogue.Le(kestor::CaminhoCatalogo("D:\\", "CT", "01")) == S_OK);
  Require(std::equal(bytes.begin(), bytes.end(), catalogue.Conteudo().begin(), catalogue.Conteudo().end()));

  const std::size_t count = Lines(bytes);
  Require(catalogue.Quantidade(SIZE_MAX) == count);
  const auto older = Records<tagREG_CAMPOS_RELATORIO>(catalogue, count);
  const auto newer = Records<tagREG_CAMPOS_RELATORIO2>(catalogue, count);
  for (std::size_t i = 0; i < count; ++i)
    RequireSameField(older[i], newer[i]);
  RequireFirst(catalogue, older.get(), count / 2);
  RequireFirst(catalogue, newer.get(), count / 2);
  return 0;
}
