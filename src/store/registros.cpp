#include "registros.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace kestor {

namespace {

constexpr UINT kTamanho = sizeof(RegistroNome);

template <std::size_t N>
std::string_view Texto(const char (&campo)[N]) {
  return {campo, strnlen(campo, N)};
}

template <std::size_t N>
void Copia(std::string_view texto, char (&campo)[N]) {
  texto.copy(campo, N - 1);
}

}  // namespace

RegistroNome::RegistroNome(std::string_view chaveModulo, std::string_view nomeRelatorio) {
  Copia(chaveModulo, chave);
  Copia(nomeRelatorio, nome);
}

bool RegistroNome::EDe(std::string_view chaveModulo) const {
  return chaveModulo.size() < sizeof chave && Texto(chave) == chaveModulo;
}

std::string_view RegistroNome::Nome() const {
  return Texto(nome).substr(0, sizeof nome - 1);
}

void PercorreRegistros(const std::string& caminho,
                       const std::function<bool(std::uint32_t, const RegistroNome&)>& visita) {
  CFile arquivo;
  CFileException falha;
  constexpr UINT kModo =
      CFile::modeReadWrite | CFile::modeCreate | CFile::modeNoTruncate | CFile::shareExclusive | files::noLink;
  if (!arquivo.Open(caminho.c_str(), kModo, &falha)) throw falha;
  const ULONGLONG comprimento = arquivo.GetLength();
  if (comprimento > kMaxArquivoRegistros) throw CFileException::FromOsError(ERROR_BAD_FORMAT, caminho);
  if (comprimento == 0) {
    const RegistroNome primeiro;
    arquivo.Write(&primeiro, kTamanho);
  }
  arquivo.Seek(kTamanho, CFile::begin);
  const auto registros = static_cast<std::uint32_t>(comprimento / kTamanho);
  std::vector<RegistroNome> bloco(CZNArqEx::kMaxCache / kTamanho);
  std::uint32_t numero = 1;
  bool continua = true;
  while (continua && numero < registros) {
    const auto pedidos = std::min(registros - numero, static_cast<std::uint32_t>(bloco.size()));
    const UINT lidos = arquivo.Read(bloco.data(), pedidos * kTamanho) / kTamanho;
    if (lidos == 0) break;
    for (UINT i = 0; continua && i < lidos; ++i)
      continua = visita(numero++, bloco[i]);
  }
  arquivo.Close();
}

std::uint32_t AbreParaGravar(CZNArqEx& arquivo, const std::string& caminho) {
  // Opens it now, also for an object that has tried in vain before and would leave it to its next operation.
  std::uint32_t numero = arquivo.Abre(caminho, 'G', kTamanho, true, true);
  if (numero != CZNArqEx::semErro) return numero;
  std::uint32_t comprimento = 0;
  numero = arquivo.Posiciona('F', 0, comprimento);
  if (numero != CZNArqEx::semErro) return numero;
  // With what may be appended: a longer file would not be searched again.
  if (comprimento > kMaxArquivoRegistros - 2 * kTamanho) return CZNArqEx::arquivoInvalido;
  // A process that was killed while it made the file or appended to it has left part of a record, or nothing: what is
  // appended must not become the first record, which is nobody's, nor stand where no record is looked for.
  const RegistroNome deNinguem;
  std::uint32_t cortado = comprimento / kTamanho;
  if (cortado == 0) return arquivo.GravaInicio(&deNinguem, kTamanho);
  return comprimento % kTamanho == 0 ? std::uint32_t{CZNArqEx::semErro}
                                     : arquivo.GravaRegistro(&deNinguem, cortado, kTamanho);
}

}  // namespace kestor
