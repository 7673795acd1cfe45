#include "common/zn_arq_ex.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <initializer_list>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "platform/text/text.h"
#include "texto_registry.h"

namespace kestor {

namespace {

constexpr UINT kModoLeitura = CFile::modeRead | CFile::shareDenyNone;
// Many users share the folder: a symbolic link must not redirect what is written here to another file.
constexpr UINT kModoGravacao = CFile::modeReadWrite | CFile::shareDenyWrite | files::noLink;
constexpr UINT kModoCriacao = kModoGravacao | CFile::modeCreate;

constexpr std::uint32_t kRegistroControle = 32;

std::optional<UINT> ModoArquivo(char modo) {
  switch (modo) {
    case 'L':
      return kModoLeitura;
    case 'G':
      return kModoGravacao;
    case 'C':
      return kModoCriacao;
    default:
      return std::nullopt;
  }
}

class ConjuntoCausas {
 public:
  constexpr ConjuntoCausas(std::initializer_list<CFileException::Cause> causas) {
    for (const auto causa : causas)
      bits_ |= 1U << causa;
  }
  constexpr ConjuntoCausas operator|(ConjuntoCausas outro) const {
    ConjuntoCausas uniao = *this;
    uniao.bits_ |= outro.bits_;
    return uniao;
  }
  constexpr bool Tem(CFileException::Cause causa) const { return (bits_ >> causa & 1U) != 0; }

 private:
  unsigned bits_ = 0;
};

std::uint32_t NumeroDaCausa(CFileException::Cause causa) {
  switch (causa) {
    case CFileException::fileNotFound:
      return CZNArqEx::naoEncontrado;
    case CFileException::badPath:
      return CZNArqEx::caminhoInvalido;
    case CFileException::tooManyOpenFiles:
      return CZNArqEx::arquivosDemais;
    case CFileException::accessDenied:
      return CZNArqEx::acessoNegado;
    case CFileException::invalidFile:
      return CZNArqEx::arquivoInvalido;
    case CFileException::directoryFull:
      return CZNArqEx::diretorioCheio;
    case CFileException::badSeek:
      return CZNArqEx::falhaPosicao;
    case CFileException::hardIO:
      return CZNArqEx::falhaDispositivo;
    case CFileException::sharingViolation:
      return CZNArqEx::violacaoCompartilhamento;
    case CFileException::lockViolation:
      return CZNArqEx::violacaoBloqueio;
    case CFileException::diskFull:
      return CZNArqEx::discoCheio;
    case CFileException::endOfFile:
      return CZNArqEx::alemDoFim;
    default:
      return CZNArqEx::falhaGeral;
  }
}

// Each operation gives only some causes a number of their own.
constexpr ConjuntoCausas kCausasFecho = {CFileException::hardIO, CFileException::accessDenied,
                                         CFileException::invalidFile, CFileException::sharingViolation,
                                         CFileException::lockViolation};
constexpr ConjuntoCausas kCausasLeitura =
    kCausasFecho | ConjuntoCausas{CFileException::badSeek, CFileException::endOfFile};

std::uint32_t NumeroEntre(ConjuntoCausas causas, CFileException::Cause causa) {
  return causas.Tem(causa) ? NumeroDaCausa(causa) : std::uint32_t{CZNArqEx::falhaGeral};
}

std::string ChaveErros() {
  return CCaminhosInstalacao::kChaveBase + std::string("Erros");
}

// The entry only informs: a registry that another program has locked must not delay the stations.
bool RegistraTexto(std::string_view arquivo) {
  constexpr std::chrono::milliseconds kEsperaRegistry{20};
  return registry::SetTexts(HKEY_LOCAL_MACHINE, ChaveErros().c_str(), {{"Usuario", "0"}, {"Arquivo", arquivo}},
                            kEsperaRegistry) == 0;
}

}  // namespace

// The causes on which an operation with retries gives up at once, and those with a number of their own if the last
// attempt fails.
struct CZNArqEx::Causas {
  ConjuntoCausas semRepetir;
  ConjuntoCausas naUltima;
};

constexpr CZNArqEx::Causas CZNArqEx::kCausasAbertura = {
    {CFileException::fileNotFound, CFileException::badPath, CFileException::invalidFile, CFileException::directoryFull},
    {CFileException::tooManyOpenFiles, CFileException::accessDenied, CFileException::sharingViolation,
     CFileException::lockViolation, CFileException::diskFull}};

// For a file that another station may be making.
constexpr CZNArqEx::Causas CZNArqEx::kCausasEsperaCriacao = {
    {CFileException::badPath, CFileException::invalidFile, CFileException::directoryFull},
    kCausasAbertura.naUltima | ConjuntoCausas{CFileException::fileNotFound}};

constexpr CZNArqEx::Causas CZNArqEx::kCausasGravacao = {
    {CFileException::badSeek, CFileException::hardIO, CFileException::fileNotFound, CFileException::badPath,
     CFileException::invalidFile},
    {CFileException::accessDenied, CFileException::sharingViolation, CFileException::lockViolation,
     CFileException::diskFull}};

std::int32_t CZNArqEx::marcaCache = -1;

CZNArqEx::~CZNArqEx() {
  if (!aberto_) return;
  try {
    CFile::Close();
  } catch (const CFileException&) {
    // A caller that needs the result calls Fecha.
  }
}

std::uint32_t CZNArqEx::Abre(std::string nomeArquivo, char modo, std::uint32_t tamanhoRegistro, bool criaSeNaoExiste,
                             bool reabre) {
  if (tamanhoRegistro == 0 || tamanhoRegistro > kMaxCache) return SemFalha(argumentoInvalido);
  if (nomeArquivo.size() > kMaxCaminho && ModoArquivo(modo)) return RecusaCaminho(nomeArquivo);
  const bool semCache = cache_ == nullptr || nomeArquivo != nome_;
  Nomeia(std::move(nomeArquivo), modo, tamanhoRegistro, criaSeNaoExiste);
  return reabre || semCache ? AbreNomeado() : std::uint32_t{semErro};
}

void CZNArqEx::Nomeia(std::string nomeArquivo, char modo, std::uint32_t tamanhoRegistro, bool criaSeNaoExiste) {
  if (cache_ != nullptr && nomeArquivo != nome_) InvalidaCache();
  if (cache_ == nullptr) cache_ = std::make_unique_for_overwrite<std::uint8_t[]>(kMaxCache);
  capacidadeCache_ = kMaxCache / tamanhoRegistro * tamanhoRegistro;
  nome_ = std::move(nomeArquivo);
  modo_ = modo;
  tamanhoRegistro_ = tamanhoRegistro;
  criaSeNaoExiste_ = criaSeNaoExiste;
}

// ---- Opening and closing -------------------------------------------------------------------------------------------

std::uint32_t CZNArqEx::AbreNomeado() {
  if (aberto_) return semErro;
  const std::optional<UINT> modoArquivo = ModoArquivo(modo_);
  if (nome_.empty() || !modoArquivo) return SemFalha(argumentoInvalido);
  return AbreComTentativas(*modoArquivo, kCausasAbertura);
}

std::uint32_t CZNArqEx::AbreComTentativas(UINT modoArquivo, const Causas& causas) {
  for (int tentativa = 1; !Open(nome_.c_str(), modoArquivo, &falha_); ++tentativa) {
    if (falha_.m_cause == CFileException::fileNotFound && criaSeNaoExiste_) {
      const std::uint32_t numero = CriaFaltante(modoArquivo);
      if (numero != semErro) RegistraErro();
      return numero;
    }
    const std::uint32_t numero = FalhaTentativa(causas, tentativa);
    if (numero == acessoNegado) {
      const DWORD atributos = GetFileAttributesA(nome_.c_str());
      const bool marcado = atributos != INVALID_FILE_ATTRIBUTES && (atributos & FILE_ATTRIBUTE_READONLY) != 0;
      return marcado ? somenteLeitura : acessoNegado;
    }
    if (numero != semErro) return numero;
    Espera(kEsperaTentativaMs);
  }
  if (modo_ == 'C') LimpaErro();
  aberto_ = true;
  const std::uint32_t numero = AposAbrir();
  return numero == semErro ? numero : SemFalha(numero);
}

// Returns the number with which a failed operation ends, or 0 if it is to be retried.
std::uint32_t CZNArqEx::FalhaTentativa(const Causas& causas, int tentativa) {
  const CFileException::Cause causa = falha_.m_cause;
  // The attempts in between would record the same.
  if (tentativa == 1 || tentativa == kTentativas) RegistraErro();
  if (causas.semRepetir.Tem(causa)) return NumeroDaCausa(causa);
  return tentativa < kTentativas ? std::uint32_t{semErro} : NumeroEntre(causas.naUltima, causa);
}

// Returns `numero`, and clears the failure: the number does not come from the file class.
std::uint32_t CZNArqEx::SemFalha(std::uint32_t numero) {
  falha_ = {};
  return numero;
}

// Records only the beginning of the name: a client must not fill the registry with a name of any length.
std::uint32_t CZNArqEx::RecusaCaminho(const std::string& caminho) {
  RegistraTexto(NomeDoArquivo(caminho).substr(0, kMaxCaminho));
  falha_ = {CFileException::none, 0, caminho};
  return caminhoInvalido;
}

std::uint32_t CZNArqEx::Fecha() {
  if (!aberto_) return semErro;
  try {
    Close();
  } catch (const CFileException& falha) {
    falha_ = falha;
    RegistraErro();
    return NumeroEntre(kCausasFecho, falha.m_cause);
  }
  aberto_ = false;
  return semErro;
}

// ---- Reading and writing -------------------------------------------------------------------------------------------

std::uint32_t CZNArqEx::LeRegistro(std::uint32_t numeroRegistro, void* destino) {
  const std::uint64_t posicao = std::uint64_t{numeroRegistro} * tamanhoRegistro_;
  if (!EstaNoCache(posicao)) {
    if (const std::uint32_t numero = EncheCache(posicao); numero != semErro) return numero;
  }
  std::memcpy(destino, cache_.get() + (posicao - posicaoCache_), tamanhoRegistro_);
  return semErro;
}

bool CZNArqEx::LeuInteiro(std::uint32_t numeroRegistro) const {
  return EstaNoCache(std::uint64_t{numeroRegistro} * tamanhoRegistro_);
}

bool CZNArqEx::EstaNoCache(std::uint64_t posicao) const {
  if (marcaCache == -1 || cache_ == nullptr || bytesCache_ < 0) return false;
  if (Instante() - instanteCache_ > kValidadeCacheMs) return false;
  return posicao >= posicaoCache_ &&
         posicao + tamanhoRegistro_ <= posicaoCache_ + static_cast<std::uint64_t>(bytesCache_);
}

std::uint32_t CZNArqEx::EncheCache(std::uint64_t posicao) {
  if (const std::uint32_t numero = AbreNomeado(); numero != semErro) return numero;
  try {
    Seek(static_cast<LONGLONG>(posicao), begin);
    const std::int64_t bytesAntes = std::exchange(bytesCache_, -1);  // a read that fails may overwrite the cache
    const UINT lidos = Read(cache_.get(), capacidadeCache_);
    if (lidos == 0) {
      bytesCache_ = bytesAntes;
      RegistraErro();
      return SemFalha(alemDoFim);
    }
    if (lidos < tamanhoRegistro_) std::memset(cache_.get() + lidos, 0, tamanhoRegistro_ - lidos);
    bytesCache_ = lidos;
    marcaCache = static_cast<std::int32_t>(lidos);
    posicaoCache_ = posicao;
    instanteCache_ = Instante();
    return semErro;
  } catch (const CFileException& falha) {
    falha_ = falha;
    if (falha.m_cause != CFileException::endOfFile) RegistraErro();
    return NumeroEntre(kCausasLeitura, falha.m_cause);
  }
}

std::uint32_t CZNArqEx::GravaRegistro(const void* origem, std::uint32_t& numeroRegistro, std::uint32_t tamanho) {
  LONGLONG posicao = LONGLONG{numeroRegistro} * tamanho;
  const std::uint32_t numero = GravaComTentativas(origem, tamanho, posicao == 0 ? end : begin, posicao);
  if (numero != semErro) return numero;
  if (numeroRegistro != 0) InvalidaCache();
  numeroRegistro = static_cast<std::uint32_t>(posicao / tamanhoRegistro_);
  return semErro;
}

std::uint32_t CZNArqEx::GravaInicio(const void* origem, std::uint32_t tamanho) {
  LONGLONG posicao = 0;
  const std::uint32_t numero = GravaComTentativas(origem, tamanho, begin, posicao);
  if (numero == semErro) InvalidaCache();
  return numero;
}

// Writes at `posicao`, relative to the start or the end of the file. `posicao` receives the offset from the start.
std::uint32_t CZNArqEx::GravaComTentativas(const void* origem, std::uint32_t tamanho, UINT referencia,
                                           LONGLONG& posicao) {
  if (const std::uint32_t numero = AbreNomeado(); numero != semErro) return numero;
  for (int tentativa = 1;; ++tentativa) {
    try {
      const LONGLONG inicio = Seek(posicao, referencia);
      Write(origem, tamanho);
      posicao = inicio;
      return semErro;
    } catch (const CFileException& falha) {
      falha_ = falha;
      const std::uint32_t numero = FalhaTentativa(kCausasGravacao, tentativa);
      if (numero != semErro) return numero;
    }
  }
}

std::uint32_t CZNArqEx::Posiciona(char tipo, std::uint32_t posicao, std::uint32_t& resultado) {
  if (tipo != 'I' && tipo != 'F' && tipo != 'P') return SemFalha(argumentoInvalido);
  if (const std::uint32_t numero = AbreNomeado(); numero != semErro) return numero;
  resultado = 0;
  try {
    if (tipo == 'F') {
      constexpr LONGLONG kMaximo = std::numeric_limits<std::uint32_t>::max();
      resultado = static_cast<std::uint32_t>(std::min(Seek(0, end), kMaximo));
    } else if (tipo == 'I') {
      Seek(0, begin);
    } else if (posicao < GetLength()) {
      Seek(posicao, begin);
    } else {
      RegistraErro();
      return SemFalha(alemDoFim);
    }
    return semErro;
  } catch (const CFileException& falha) {
    falha_ = falha;
    RegistraErro();
    return NumeroEntre(kCausasLeitura, falha.m_cause);
  }
}

std::uint32_t CZNArqEx::LeRegistroArquivo(std::string nomeArquivo, std::uint32_t numeroRegistro, void* destino,
                                          std::uint32_t tamanhoRegistro) {
  std::uint32_t numero = Abre(std::move(nomeArquivo), 'L', tamanhoRegistro, false, false);
  if (numero != semErro) return numero;
  numero = LeRegistro(numeroRegistro, destino);
  CFileException falha = numero == semErro ? CFileException() : falha_;
  Fecha();
  falha_ = std::move(falha);
  return numero;
}

void CZNArqEx::InvalidaCache() {
  bytesCache_ = -1;
  marcaCache = -1;
}

// ---- Making a missing file -----------------------------------------------------------------------------------------

std::uint32_t CZNArqEx::CriaArquivo(const std::string& nomeArquivo, char modo, std::uint32_t tamanhoRegistro) {
  return CriaPeloControle(nomeArquivo, modo, tamanhoRegistro, Existente::esvazia);
}

std::uint32_t CZNArqEx::CriaFaltante(UINT modoArquivo) {
  const char modo = modo_;
  const std::uint32_t tamanhoRegistro = tamanhoRegistro_;
  std::uint32_t numero = CriaPeloControle(nome_, modo, tamanhoRegistro, Existente::preserva);
  if (numero != naoEncontrado) return numero;
  // The control file has the name. The file was removed, or the station that entered the name is still making it.
  Nomeia(nome_, modo, tamanhoRegistro, false);
  numero = AbreComTentativas(modoArquivo, kCausasEsperaCriacao);
  criaSeNaoExiste_ = true;
  return numero;
}

std::uint32_t CZNArqEx::CriaPeloControle(const std::string& nomeArquivo, char modo, std::uint32_t tamanhoRegistro,
                                         Existente existente) {
  if (nomeArquivo.size() > kMaxCaminho) return RecusaCaminho(nomeArquivo);
  const std::string nome = text::Upper(NomeDoArquivo(nomeArquivo));
  if (nome.empty()) return SemFalha(alemDoFim);
  const std::string_view pasta = PastaDoCaminho(nomeArquivo);
  const std::string caminho = std::string(pasta) + nome;
  const std::string controle = CaminhoControle(pasta);
  std::uint32_t registros = 0;
  std::uint32_t numero = AbreControle(controle);
  if (numero == semErro) numero = FechaDepois(ProcuraNoControle(nome, registros));
  InvalidaCache();
  if (numero == naoEncontrado) nome_ = caminho;
  // The file is made before its name is entered: a failure in between leaves a file that every station can open. An
  // entry without a file would keep the file from ever being made.
  if (numero == semErro) numero = CriaComZeros(caminho, tamanhoRegistro, existente);
  if (numero != semErro) return numero;
  numero = AbreControle(controle);
  if (numero == semErro) numero = FechaDepois(InscreveNoControle(nome));
  InvalidaCache();
  const bool inscritoPorOutra = numero == naoEncontrado;
  if (numero != semErro && !inscritoPorOutra) return numero;
  return Abre(caminho, modo, tamanhoRegistro, true, true);
}

// Closes the current file before another one is named. Returns `numero`, or the number of closing if that was 0.
std::uint32_t CZNArqEx::FechaDepois(std::uint32_t numero) {
  CFileException falha = numero == semErro ? CFileException() : falha_;
  const std::uint32_t fecho = Fecha();
  aberto_ = false;
  if (numero == semErro) return fecho;
  falha_ = std::move(falha);
  return numero;
}

// Counts the records of the open control file. Returns naoEncontrado if it has the name already, arquivoInvalido if it
// has no room for it.
std::uint32_t CZNArqEx::ProcuraNoControle(const std::string& nome, std::uint32_t& registros) {
  InvalidaCache();
  std::uint32_t comprimento = 0;
  std::uint32_t numero = Posiciona('F', 0, comprimento);
  if (numero != semErro) return numero;
  if (comprimento > kMaxArquivoRegistros) return SemFalha(arquivoInvalido);
  char registro[kRegistroControle];
  for (registros = 0; (numero = LeRegistro(registros, registro)) == semErro; ++registros) {
    if (nome == std::string_view(registro, strnlen(registro, sizeof registro))) return SemFalha(naoEncontrado);
  }
  if (numero != alemDoFim) return numero;
  // With one more entry the control file would be refused from then on.
  return registros < kMaxArquivoRegistros / kRegistroControle ? std::uint32_t{semErro} : SemFalha(arquivoInvalido);
}

std::uint32_t CZNArqEx::InscreveNoControle(const std::string& nome) {
  std::uint32_t registros = 0;
  std::uint32_t numero = ProcuraNoControle(nome, registros);
  if (numero != semErro) return numero;
  char registro[kRegistroControle] = {};
  if (registros == 0) {  // a station that was killed while making the file left it empty
    numero = GravaInicio(registro, sizeof registro);
    if (numero != semErro) return numero;
    registros = 1;
  }
  nome.copy(registro, sizeof registro);
  numero = GravaRegistro(registro, registros, sizeof registro);
  if (numero != semErro) return numero;
  try {
    // Other stations wait until the control file is closed, not until the disk has the entry.
    Flush();
    return semErro;
  } catch (const CFileException& falha) {
    falha_ = falha;
    RegistraErro();
    return NumeroEntre(kCausasFecho, falha.m_cause);
  }
}

std::uint32_t CZNArqEx::AbreControle(const std::string& controle) {
  const auto abre = [&](bool criaSeNaoExiste) {
    const std::uint32_t numero = Abre(controle, 'G', kRegistroControle, criaSeNaoExiste, true);
    if (numero != violacaoCompartilhamento) return numero;
    Espera(kEsperaControleMs);
    return Abre(controle, 'G', kRegistroControle, criaSeNaoExiste, true);
  };
  std::uint32_t numero = abre(false);
  if (numero != naoEncontrado) return numero;
  numero = CriaComZeros(controle, kRegistroControle, Existente::preserva);
  // If another station has it open, it exists, and this one waits for it as usual.
  return numero == semErro || numero == violacaoCompartilhamento ? abre(true) : numero;
}

// Makes a file with a first record of zeros. `preserva` is for a file that this station found missing: another one may
// have made it since, and its content must not be lost.
std::uint32_t CZNArqEx::CriaComZeros(const std::string& nomeArquivo, std::uint32_t tamanhoRegistro,
                                     Existente existente) {
  const UINT conteudo = existente == Existente::preserva ? UINT{modeNoTruncate} : 0U;
  Nomeia(nomeArquivo, 'C', tamanhoRegistro, false);  // a file that even this mode does not find cannot be made
  std::uint32_t numero = AbreComTentativas(kModoCriacao | conteudo, kCausasAbertura);
  if (numero != semErro) return numero;
  std::uint32_t comprimento = 0;
  numero = Posiciona('F', 0, comprimento);
  if (numero == semErro && comprimento == 0) {
    const std::vector<std::uint8_t> zeros(tamanhoRegistro);
    numero = GravaInicio(zeros.data(), tamanhoRegistro);
  }
  return FechaDepois(numero);
}

// ---- Error record --------------------------------------------------------------------------------------------------

std::uint32_t CZNArqEx::RegistraErro() {
  const bool registrado = RegistraTexto(NomeDoArquivo(nome_));
  return registrado ? semErro : falhaRegistry;
}

std::uint32_t CZNArqEx::LimpaErro() {
  registry::OwnedKey chave;
  if (RegOpenKeyA(HKEY_LOCAL_MACHINE, ChaveErros().c_str(), chave.Out()) != 0) return semErro;
  std::string arquivo;
  if (!LeTexto(chave.Get(), "Arquivo", &arquivo)) return falhaRegistry;
  if (arquivo == NomeDoArquivo(nome_)) RegistraTexto(" ");
  return semErro;
}

void DizRazao(const char* operacao, const CZNArqEx& arquivo, std::uint32_t numero) noexcept {
  const CFileException& falha = arquivo.Falha();
  try {
    if (numero == CZNArqEx::naoEncontrado && operacao == std::string_view("written")) {
      DizRazao(operacao, arquivo.Nome(),
               "it was made once and is gone; a file of no bytes put in its place can be written again");
    } else if (numero == CZNArqEx::arquivoInvalido && falha.m_cause != CFileException::invalidFile) {
      DizRazao(operacao, arquivo.Nome(), "it has its largest size, " + std::to_string(kMaxArquivoRegistros) + " bytes");
    } else if (falha.m_cause != CFileException::none) {
      DizRazao(operacao, falha);
    } else if (numero == CZNArqEx::caminhoInvalido) {
      DizRazao(operacao, falha.m_strFileName, "its path has more than " + std::to_string(kMaxCaminho) + " characters");
    } else if (numero == CZNArqEx::alemDoFim) {
      DizRazao(operacao, arquivo.Nome(), "it ends before the record that was looked for");
    } else {
      DizRazao(operacao, arquivo.Nome(), "the operation ended with " + std::to_string(numero));
    }
  } catch (const std::exception&) {
    // Then without a reason.
  }
}

}  // namespace kestor
