#include "common/arquivos_modelo.h"

#include <algorithm>
#include <limits>
#include <memory>

namespace kestor {

bool ArquivoExiste(const std::string& caminho) {
  CFile arquivo;
  return arquivo.Open(caminho.c_str(), kLeituraModelo) != FALSE;
}

ConteudoLido LeConteudo(CFile& arquivo) {
  ConteudoLido lido;
  try {
    const ULONGLONG comprimento = arquivo.GetLength();
    lido.comprimento = static_cast<LONG>(std::min<ULONGLONG>(comprimento, std::numeric_limits<LONG>::max()));
    if (comprimento > kMaxConteudo) return lido;
    lido.bytes.resize(static_cast<std::size_t>(comprimento));
    const UINT lidos = arquivo.Read(lido.bytes.data(), static_cast<UINT>(comprimento));
    std::fill(lido.bytes.begin() + lidos, lido.bytes.end(), '\0');
    lido.inteiro = lidos == comprimento;
  } catch (const CFileException&) {
    std::fill(lido.bytes.begin(), lido.bytes.end(), '\0');
  }
  return lido;
}

Gravacao GravaModelo(const std::string& caminho, UINT modos, std::initializer_list<std::string_view> partes) {
  Gravacao falhou = Gravacao::naoAberta;
  try {
    CFile arquivo;
    CFileException falha;
    if (!arquivo.Open(caminho.c_str(), kGravacaoModelo | modos, &falha)) throw falha;
    falhou = Gravacao::naoFeita;
    for (const std::string_view parte : partes)
      arquivo.Write(parte.data(), static_cast<UINT>(parte.size()));
    arquivo.Close();
    return Gravacao::feita;
  } catch (const CFileException& falha) {
    // Made by another station in the meantime, or let go by one: there is such a model after all. After any other
    // failure it might be this one.
    const bool deOutra = falha.m_lOsError == ERROR_FILE_EXISTS || falha.m_lOsError == ERROR_SHARING_VIOLATION;
    if ((modos & CFile::mustBeNew) != 0 && deOutra && ArquivoExiste(caminho)) return Gravacao::jaExiste;
    return falha.m_lOsError == ERROR_FILE_EXISTS ? Gravacao::naoAberta : falhou;
  }
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
