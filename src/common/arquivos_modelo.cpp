#include "common/arquivos_modelo.h"

#include <algorithm>
#include <limits>
#include <memory>

#include "common/nomes_arquivos.h"
#include "common/razao.h"

namespace kestor {

namespace {

// Up to this size, joining header and content into one write is cheaper than two writes: a file system does nearly as
// much work for two bytes as for a few pages.
constexpr std::size_t kConteudoCurto = std::size_t{64} << 10;

template <typename Visita>
void Procura(const std::string& mascara, const Visita& visita) {
  _finddata_t achado;
  const std::intptr_t busca = _findfirst(mascara.c_str(), &achado);
  if (busca == -1) return;
  const std::unique_ptr<const std::intptr_t, void (*)(const std::intptr_t*)> fim(
      &busca, [](const std::intptr_t* aberta) { _findclose(*aberta); });
  do {
    visita(achado.name);
  } while (_findnext(busca, &achado) == 0);
}

}  // namespace

bool ArquivoExiste(const std::string& caminho, CFileException* falha) {
  CFile arquivo;
  return arquivo.Open(caminho.c_str(), kLeituraModelo, falha) != FALSE;
}

ConteudoLido LeConteudo(CFile& arquivo, const std::string& caminho) {
  ConteudoLido lido;
  try {
    const ULONGLONG comprimento = arquivo.GetLength();
    lido.comprimento = static_cast<LONG>(std::min<ULONGLONG>(comprimento, std::numeric_limits<LONG>::max()));
    if (comprimento > kMaxConteudo) {
      DizRazao("read", caminho,
               "it has " + std::to_string(comprimento) + " bytes, more than the " + std::to_string(kMaxConteudo) +
                   " that a call carries");
      return lido;
    }
    lido.bytes.resize(static_cast<std::size_t>(comprimento));
    const UINT lidos = arquivo.Read(lido.bytes.data(), static_cast<UINT>(comprimento));
    std::fill(lido.bytes.begin() + lidos, lido.bytes.end(), '\0');
    lido.inteiro = lidos == comprimento;
    if (!lido.inteiro) DizRazao("read", caminho, "another program has cut it meanwhile");
  } catch (const CFileException& falha) {
    DizRazao("read", falha);
    std::fill(lido.bytes.begin(), lido.bytes.end(), '\0');
  }
  return lido;
}

Gravacao GravaModelo(const std::string& caminho, UINT modos, std::string_view cabecalho, std::string_view conteudo) {
  if (conteudo.size() > kMaxConteudo) {
    DizRazao("the content has " + std::to_string(conteudo.size()) + " bytes; a model has at most " +
             std::to_string(kMaxConteudo));
    return Gravacao::grandeDemais;
  }
  Gravacao falhou = Gravacao::naoAberta;
  try {
    CFile arquivo;
    CFileException falha;
    if (!arquivo.Open(caminho.c_str(), kGravacaoModelo | modos, &falha)) throw falha;
    falhou = Gravacao::naoFeita;
    std::string curto;
    if (!cabecalho.empty() && conteudo.size() <= kConteudoCurto) {
      curto.reserve(cabecalho.size() + conteudo.size());
      curto.append(cabecalho).append(conteudo);
      cabecalho = {};
      conteudo = curto;
    }
    for (const std::string_view parte : {cabecalho, conteudo}) {
      if (!parte.empty()) arquivo.Write(parte.data(), static_cast<UINT>(parte.size()));
    }
    arquivo.Close();
    return Gravacao::feita;
  } catch (const CFileException& falha) {
    // Another station has made the file in the meantime, or has released it: the model exists after all. After any
    // other failure, the file that exists may be the one written here.
    const bool deOutra = falha.m_lOsError == ERROR_FILE_EXISTS || falha.m_lOsError == ERROR_SHARING_VIOLATION;
    if ((modos & files::mustBeNew) != 0 && deOutra) {
      CFileException outra;
      if (ArquivoExiste(caminho, &outra)) return Gravacao::jaExiste;
      DizRazao("written", outra.m_lOsError == ERROR_SHARING_VIOLATION ? outra : falha);
    } else {
      DizRazao("written", falha);
    }
    return falha.m_lOsError == ERROR_FILE_EXISTS ? Gravacao::naoAberta : falhou;
  }
}

std::vector<std::string> NomesDosModelos(const std::string& mascara, std::size_t codigos) {
  std::vector<std::string> nomes;
  Procura(mascara, [&](std::string_view arquivo) { nomes.emplace_back(NomeDoModelo(arquivo, codigos)); });
  return nomes;
}

std::vector<std::string> ArquivosDaMascara(const std::string& mascara) {
  std::vector<std::string> arquivos;
  Procura(mascara, [&](std::string_view arquivo) { arquivos.emplace_back(arquivo); });
  return arquivos;
}

}  // namespace kestor
