// Small data files that many stations share in one folder.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/files/files.h"

namespace kestor {

// A file of fixed-size records that is opened, read or rewritten, and closed within one operation. It adds to the file
// class: opening with retries, a number for every failure, an entry in the registry for the file that failed last,
// creation of missing files through a control file, and a read cache. Record n of size s starts at offset n * s. Each
// operation has a local object. All objects of the process belong to one thread.
//
// Modes of opening: what other openers may do meanwhile, what happens to a missing and to an existing file
//   'L' reading    read and write   fileNotFound   stays as it is
//   'G' writing    read             fileNotFound   stays as it is
//   'C' creation   read             is made        is emptied
//
// A file that was made once and has disappeared is not made again. The control file ZNCTLARQ.DAT of each folder lists
// the files that were made there. It has records of 32 bytes: the first is all zeros, every other holds the upper-case
// name of a file, without folder, cut to 32 characters. A longer name is never found again.
//
// Every operation returns 0 or one of the numbers below and throws only std::bad_alloc. The owner of an open object may
// also use the file class's own operations. Those and the clock are virtual, so that a test can intercept them.
class CZNArqEx : public CFile {
 public:
  enum Numero : std::uint32_t {
    semErro = 0,
    falhaPosicao = 16012,
    alemDoFim = 16021,  // also: a path without a file name
    falhaDispositivo = 16039,
    naoEncontrado = 16055,  // also: made once and since disappeared
    caminhoInvalido = 16063,
    arquivosDemais = 16071,
    acessoNegado = 16080,
    somenteLeitura = 16081,  // access denied to a file with the read-only attribute
    arquivoInvalido = 16098,
    diretorioCheio = 16101,
    violacaoCompartilhamento = 16110,
    violacaoBloqueio = 16128,
    discoCheio = 16136,
    falhaGeral = 16144,  // any other failure, also of the last attempt
    argumentoInvalido = 16179,
    falhaRegistry = 16217,
  };

  static constexpr int kTentativas = 30;
  static constexpr DWORD kEsperaTentativaMs = 1;
  static constexpr DWORD kEsperaControleMs = 1000;
  static constexpr DWORD kValidadeCacheMs = 60000;
  static constexpr std::uint32_t kMaxCache = 32768;  // bytes; also the largest record

  CZNArqEx() = default;
  ~CZNArqEx() override;

  // Names the file. Opens it if `reabre` is true or the last file of the object had another name; otherwise the first
  // operation that needs the file opens it. With `criaSeNaoExiste`, a missing file is made through the control file. An
  // open file must be closed with Fecha before another one is named. Returns argumentoInvalido for an empty name, an
  // unknown mode, and a record size of 0 or above kMaxCache; caminhoInvalido for a path of more than kMaxCaminho
  // characters.
  std::uint32_t Abre(std::string nomeArquivo, char modo, std::uint32_t tamanhoRegistro, bool criaSeNaoExiste,
                     bool reabre);

  // Flushes what was written and closes the file. Returns 0 if none is open. After a failure the object still counts as
  // open.
  std::uint32_t Fecha();

  // Reads a record into `destino`, which has room for one, from the cache or together with the records after it. The
  // part that a truncated last record lacks reads as zeros. Returns alemDoFim for a record that starts at or after the
  // end of the file.
  std::uint32_t LeRegistro(std::uint32_t numeroRegistro, void* destino);

  // Returns true if the file had every byte of the record that was just read.
  bool LeuInteiro(std::uint32_t numeroRegistro) const;

  // Writes `tamanho` bytes at record `numeroRegistro`; number 0 appends. `numeroRegistro` receives the record's number.
  std::uint32_t GravaRegistro(const void* origem, std::uint32_t& numeroRegistro, std::uint32_t tamanho);

  // Writes `tamanho` bytes at the start of the file.
  std::uint32_t GravaInicio(const void* origem, std::uint32_t tamanho);

  // Moves to the start ('I'), to the end ('F') or to `posicao` ('P'). `resultado` receives the file's length for 'F',
  // 2^32 - 1 for a longer file, and otherwise 0.
  std::uint32_t Posiciona(char tipo, std::uint32_t posicao, std::uint32_t& resultado);

  // Opens for reading, reads one record, closes.
  std::uint32_t LeRegistroArquivo(std::string nomeArquivo, std::uint32_t numeroRegistro, void* destino,
                                  std::uint32_t tamanhoRegistro);

  // Makes the file, its name in upper case, with a first record of zeros. Enters the name in the control file and opens
  // the file in `modo`. Returns naoEncontrado if the control file has the name already, arquivoInvalido if the control
  // file is longer than kMaxArquivoRegistros or would be with one more entry, caminhoInvalido for a path of more than
  // kMaxCaminho characters.
  std::uint32_t CriaArquivo(const std::string& nomeArquivo, char modo, std::uint32_t tamanhoRegistro);

  // RegistraErro enters this object's file name, without folder, in the registry as that of the file that failed last.
  // LimpaErro clears the entry if it holds this name.
  std::uint32_t RegistraErro();
  std::uint32_t LimpaErro();

  // Returns the failure of the file class that led to the last number other than 0; it may be one of the control file.
  // Its cause is `none` if the number has another origin (alemDoFim, argumentoInvalido, a control file that has the
  // name already …). For a path that is too long it holds the path. RegistraErro and LimpaErro do not change it.
  const CFileException& Falha() const { return falha_; }

  // Returns the path of the file that was named last.
  const std::string& Nome() const { return nome_; }

  // Discards what this object has read ahead. No other object uses its cache until one of them fills its own.
  void InvalidaCache();

  // Called after the file was opened. The opening returns its number.
  virtual std::uint32_t AposAbrir() { return semErro; }

 protected:
  virtual void Espera(DWORD ms) { Sleep(ms); }
  virtual DWORD Instante() const { return GetTickCount(); }

 private:
  // What making a file does to one that exists already.
  enum class Existente { esvazia, preserva };

  struct Causas;
  static const Causas kCausasAbertura;
  static const Causas kCausasEsperaCriacao;
  static const Causas kCausasGravacao;

  void Nomeia(std::string nomeArquivo, char modo, std::uint32_t tamanhoRegistro, bool criaSeNaoExiste);
  std::uint32_t AbreNomeado();
  std::uint32_t AbreComTentativas(UINT modoArquivo, const Causas& causas);
  std::uint32_t CriaFaltante(UINT modoArquivo);
  std::uint32_t GravaComTentativas(const void* origem, std::uint32_t tamanho, UINT referencia, LONGLONG& posicao);
  std::uint32_t FalhaTentativa(const Causas& causas, int tentativa);
  std::uint32_t SemFalha(std::uint32_t numero);
  std::uint32_t RecusaCaminho(const std::string& caminho);
  std::uint32_t EncheCache(std::uint64_t posicao);
  bool EstaNoCache(std::uint64_t posicao) const;

  std::uint32_t CriaPeloControle(const std::string& nomeArquivo, char modo, std::uint32_t tamanhoRegistro,
                                 Existente existente);
  std::uint32_t AbreControle(const std::string& controle);
  std::uint32_t ProcuraNoControle(const std::string& nome, std::uint32_t& registros);
  std::uint32_t InscreveNoControle(const std::string& nome);
  std::uint32_t FechaDepois(std::uint32_t numero);
  std::uint32_t CriaComZeros(const std::string& nomeArquivo, std::uint32_t tamanhoRegistro, Existente existente);

  // Bytes that the last filling of any cache read; -1 after an invalidation.
  static std::int32_t marcaCache;

  std::unique_ptr<std::uint8_t[]> cache_;  // kMaxCache bytes; kept when the file is closed
  std::uint32_t capacidadeCache_ = 0;      // bytes: as many records as fit
  std::uint64_t posicaoCache_ = 0;         // offset in the file of the first cached byte
  std::int64_t bytesCache_ = -1;           // -1: empty
  std::uint32_t tamanhoRegistro_ = 0;
  bool aberto_ = false;
  DWORD instanteCache_ = 0;
  std::string nome_;      // full path
  CFileException falha_;  // see Falha
  char modo_ = 0;
  bool criaSeNaoExiste_ = false;
};

// Records (razao.h) why an operation failed with `numero`: the file cannot be `operacao`, such as "written".
void DizRazao(const char* operacao, const CZNArqEx& arquivo, std::uint32_t numero) noexcept;

}  // namespace kestor
