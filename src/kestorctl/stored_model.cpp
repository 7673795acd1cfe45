#include "stored_model.h"

#include <algorithm>
#include <vector>

#include "common/nomes_arquivos.h"
#include "marcacao/componente_marcacao.h"
#include "model_names.h"
#include "platform/text/text.h"

namespace kestorctl {

unsigned char* BytesOf(std::string& content) {
  return reinterpret_cast<unsigned char*>(content.data());
}

std::string Warnings(const ReportStore& store, const std::string& name, USHORT version, std::string& content) {
  std::vector<std::string> warnings;
  const std::string ansi = text::FromUtf8(name);
  const std::string file = kestor::CaminhoRelatorioGravado({}, ansi);
  const std::string listed(kestor::NomeDoModelo(file, 0));
  const std::string key = kestor::ChaveRelatorio(ansi);
  if (!key.ends_with(kestor::kExtensaoRelatorio)) {
    warnings.push_back("its file " + text::Presentable(text::ToUtf8(file)) + " is neither listed nor read");
  } else if (kestor::ChaveRelatorio(listed) != key) {
    warnings.push_back("it is listed as \"" + text::Presentable(text::ToUtf8(listed)) + "\", which reads another file");
  }
  std::vector<std::string> deleted;
  DeletedNames(store, &deleted);
  if (std::any_of(deleted.begin(), deleted.end(),
                  [&](const std::string& one) { return text::EqualNoCase(text::FromUtf8(one), listed); })) {
    warnings.emplace_back("it is not listed: a demonstration model of that name was deleted");
  }
  const kestor::ComponenteMarcacao markup;
  kestor::CDocRelatorio document;
  if (document.CarregaConteudo({version, static_cast<LONG>(content.size()), BytesOf(content)}) &&
      kestor::ChaveRelatorio(document.nome) != key) {
    warnings.push_back("its document bears another name, \"" + text::Presentable(text::ToUtf8(document.nome)) +
                       "\", under which renumber stores it");
  }
  std::string sentence;
  for (const std::string& warning : warnings)
    sentence += (sentence.empty() ? "the model is stored, but " : "; ") + warning;
  return sentence;
}

}  // namespace kestorctl
