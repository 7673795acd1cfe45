#include "store/registros.h"

#include <algorithm>
#include <vector>

#include "contract/campo_texto.h"

namespace kestor {

namespace {

constexpr UINT kTamanho = sizeof(RegistroNome);

}  // namespace

RegistroNome::RegistroNome(std::string_view chaveModulo, std::string_view nomeRelatorio) {
  PreencheCampo(chave, chaveModulo);
  PreencheCampo(nome, nomeRelatorio);
}

bool RegistroNome::EDe(std::string_view chaveModulo) const {
  return chaveModulo.size() < sizeof chave && TextoDoCampo(chave) == chaveModulo;
}

std::string_view RegistroNome::Nome() const {
  return TextoDoCampo(nome).substr(0, sizeof nome - 1);
}

void PercorreRegistros(const std::string& caminho, bool soLeitura,
                       const std::function<bool(std::uint32_t, const RegistroNome&)>& visita) {
  CFile arquivo;
  CFileException falha;
  if (caminho.size() > kMaxCaminho) throw CFileException::FromOsError(ERROR_FILENAME_EXCED_RANGE, caminho);
  constexpr UINT kModo = CFile::shareExclusive | files::noLink;
  constexpr UINT kFeitura = CFile::modeReadWrite | CFile::modeCreate | CFile::modeNoTruncate;
  if (!arquivo.Open(caminho.c_str(), kModo | (soLeitura ? UINT{CFile::modeRead} : kFeitura), &falha)) {
    if (soLeitura && falha.m_cause == CFileException::fileNotFound) return;
    throw falha;
  }
  const ULONGLONG comprimento = arquivo.GetLength();
  if (comprimento > kMaxArquivoRegistros) throw CFileException::FromOsError(ERROR_BAD_FORMAT, caminho);
  if (comprimento == 0 && !soLeitura) {
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
  std::uint32_t numero = arquivo.Abre(caminho, 'G', kTamanho, true, false);
  if (numero != CZNArqEx::semErro) return numero;
  std::uint32_t comprimento = 0;
  numero = arquivo.Posiciona('F', 0, comprimento);
  if (numero != CZNArqEx::semErro) return numero;
  if (comprimento > kMaxArquivoRegistros) return CZNArqEx::arquivoInvalido;
  // A process that was killed while making the file left part of a record or nothing: an appended record must not
  // become the first one, which belongs to no key.
  const RegistroNome deNinguem;
  return comprimento < kTamanho ? arquivo.GravaInicio(&deNinguem, kTamanho) : std::uint32_t{CZNArqEx::semErro};
}

std::uint32_t GravaNome(CZNArqEx& arquivo, const RegistroNome& registro, std::uint32_t numeroRegistro) {
  if (numeroRegistro != 0) return arquivo.GravaRegistro(&registro, numeroRegistro, kTamanho);
  std::uint32_t comprimento = 0;
  std::uint32_t numero = arquivo.Posiciona('F', 0, comprimento);
  if (numero != CZNArqEx::semErro) return numero;
  // A process that was killed while appending left part of a record: a record after it would not be found, because it
  // starts at no multiple of the record size. Neither would one that makes the file too long.
  const bool cortado = comprimento % kTamanho != 0;
  std::uint32_t registros = comprimento / kTamanho;
  if ((registros + (cortado ? 2 : 1)) * kTamanho > kMaxArquivoRegistros) return CZNArqEx::arquivoInvalido;
  const RegistroNome deNinguem;
  if (cortado) numero = arquivo.GravaRegistro(&deNinguem, registros, kTamanho);
  return numero == CZNArqEx::semErro ? arquivo.GravaRegistro(&registro, numeroRegistro, kTamanho) : numero;
}

}  // namespace kestor
