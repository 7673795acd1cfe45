#include "common/arquivos_modelo.h"

#include <algorithm>
#include <memory>

namespace kestor {

bool ArquivoExiste(const std::string& caminho) {
  CFile arquivo;
  return arquivo.Open(caminho.c_str(), kLeituraModelo) != FALSE;
}

std::vector<std::string> NomesDosModelos(const std::string& pasta, const std::string& codigos, const char* extensao) {
  std::vector<std::string> nomes;
  _finddata_t achado;
  const std::intptr_t busca = _findfirst((pasta + codigos + "*" + extensao).c_str(), &achado);
  if (busca == -1) return nomes;
  const std::unique_ptr<const std::intptr_t, void (*)(const std::intptr_t*)> fim(
      &busca, [](const std::intptr_t* aberta) { _findclose(*aberta); });
  do {
    std::string_view nome = achado.name;
    nome.remove_prefix(std::min(codigos.size(), nome.size()));  // codes with wild cards match shorter names as well
    nomes.emplace_back(nome.substr(0, nome.find('.')));
  } while (_findnext(busca, &achado) == 0);
  return nomes;
}

}  // namespace kestor
