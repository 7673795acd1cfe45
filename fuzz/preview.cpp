// Whatever a document and a file of values contain, their pages are laid out, and every text lies on its page. The
// input is a document, a NUL and the file.
#include "preview/preview.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "marcacao/componente_marcacao.h"

namespace {

const preview::Fields kFields = {{1, "Conta", "Conta", 'C', 10, ""}, {2, "Data", "Data", 'D', 10, ""},
                                 {3, "Valor", "Valor", 'V', 12, ""}, {4, "Tipo", "Tipo", 'X', 9, "1=Um;2=Dois"},
                                 {5, "Mes", "Mes", 'd', 7, ""},      {6, "Qtde", "Qtde", 'N', 5, ""},
                                 {7, "Texto", "Texto", 'H', 30, ""}};
constexpr std::size_t kMostLines = 50;
constexpr int kMostPages = 20;

void Require(bool condition) {
  if (!condition) std::abort();
}

void Show(const kestor::CDocRelatorio& document, const preview::Lines& lines, std::size_t width) {
  int pages = 0;
  std::vector<std::string> notes;
  preview::LayOut(
      document, kFields, lines, {"27/11/2026", width != 0, width},
      [&](const preview::Page& page) {
        for (const preview::PlacedText& text : page.texts)
          Require(text.x >= 0 && text.x + text.width <= page.width + 1 && text.baseline <= page.height + 1);
        Require(!preview::PlainText(page).empty());
        return ++pages < kMostPages;
      },
      &notes);
  Require(pages > 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const kestor::ComponenteMarcacao component;
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t end = input.find('\0');
  std::string content = input.substr(0, end);
  kestor::CDocRelatorio document;
  // What has been read of a damaged document is a document as well.
  document.CarregaConteudo(
      {kestor::kVersaoDocumento, static_cast<LONG>(content.size()), reinterpret_cast<unsigned char*>(content.data())});
  preview::Lines samples = preview::SampleLines(document, kFields, kMostLines);
  preview::Sort(document, kFields, &samples);
  Show(document, samples, 0);
  if (end == std::string::npos) return 0;
  const int file = memfd_create("values", MFD_CLOEXEC);
  Require(file >= 0 && write(file, input.data() + end + 1, size - end - 1) == static_cast<ssize_t>(size - end - 1));
  std::vector<std::string> notes;
  try {
    preview::Lines lines =
        preview::ReadCsv("/proc/self/fd/" + std::to_string(file), document, kFields, kMostLines, &notes);
    preview::Sort(document, kFields, &lines);
    Show(document, lines, 1 + size % 200);
  } catch (const preview::Failure&) {
  }
  close(file);
  return 0;
}
