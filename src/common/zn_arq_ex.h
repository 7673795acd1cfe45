// Small data files that many stations share in one folder.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/files/files.h"

namespace kestor {

// A file of fixed-size records that is opened, read or rewritten and closed again within one operation. To the file
// class it adds opening with retries, a number for every failure, a record in the registry of the last file that
// failed, creation of missing files through a control file, and a read cache. Record n of size s lies at n * s. A local
// object of each operation; used by one thread, the same one for all objects of the process.
//
// Modes of opening: what others may do meanwhile, what becomes of a missing and of an existing file
//   'L' reading    read and write   fileNotFound   stays as it is
//   'G' writing    read             fileNotFound   stays as it is
//   'C' creation   read             is made        is emptied
//
// A file that was made once and is gone is not made again: the control file ZNCTLARQ.DAT of its folder tells. It has
// records of 32 bytes, the first of zeros, every other the upper-case name (without folder, 32 characters at most) of a
// file that was made.
//
// Every operation gives 0 or one of the numbers below and throws nothing but std::bad_alloc. The owner of an open
// object may also use the file class's own operations. They are virtual, and so is the clock, so that a test can stand
// in between.
class CZNArqEx : public CFile {
 public:
  enum Numero : std::uint32_t {
    semErro = 0,
    falhaPosicao = 16012,
    alemDoFim = 16021,  // also: a path without a file name
    falhaDispositivo = 16039,
    naoEncontrado = 16055,  // also: made once and gone
    caminhoInvalido = 16063,
    arquivosDemais = 16071,
    acessoNegado = 16080,
    somenteLeitura = 16081,  // access denied to a file with the read-only attribute
    arquivoInvalido = 16098,
    diretorioCheio = 16101,
    violacaoCompartilhamento = 16110,
    violacaoBloqueio = 16128,
    discoCheio = 16136,
    falhaGeral = 16144,  // any other failure, also after all attempts
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

  // Names the file, and opens it when `reabre` says so or the object has had no file of this name yet; otherwise the
  // first operation that needs the file opens it. A missing file is made through the control file when
  // `criaSeNaoExiste` says so. An open file is closed with Fecha before another one is named. argumentoInvalido for an
  // empty name, an unknown mode, a record size of 0 or above kMaxCache; caminhoInvalido for a path of more than
  // kMaxCaminho characters.
  std::uint32_t Abre(std::string nomeArquivo, char modo, std::uint32_t tamanhoRegistro, bool criaSeNaoExiste,
                     bool reabre);

  // Flushes what was written and closes; 0 when nothing is open. After a failure the object still counts as open.
  std::uint32_t Fecha();

  // Reads a record into `destino` (record size), from the cache or together with the records after it. Of a last
  // record that is cut, what is missing reads as zeros. alemDoFim for a record that starts at the end or after it.
  std::uint32_t LeRegistro(std::uint32_t numeroRegistro, void* destino);

  // Whether the record that was just read was there to its last byte.
  bool LeuInteiro(std::uint32_t numeroRegistro) const;

  // Writes `tamanho` bytes at record `numeroRegistro`; number 0 appends. `numeroRegistro` is then the record's number.
  std::uint32_t GravaRegistro(const void* origem, std::uint32_t& numeroRegistro, std::uint32_t tamanho);

  // Writes `tamanho` bytes at the start of the file.
  std::uint32_t GravaInicio(const void* origem, std::uint32_t tamanho);

  // Moves to the start ('I'), to the end ('F'; `resultado` is then the file's length, 2^32 - 1 for a longer one) or to
  // `posicao` ('P'). `resultado` is 0 but for 'F'.
  std::uint32_t Posiciona(char tipo, std::uint32_t posicao, std::uint32_t& resultado);

  // Opens for reading, reads one record, closes.
  std::uint32_t LeRegistroArquivo(std::string nomeArquivo, std::uint32_t numeroRegistro, void* destino,
                                  std::uint32_t tamanhoRegistro);

  // Makes the file (its name in upper case) with a first record of zeros, enters the name in the control file and opens
  // the file in `modo`. naoEncontrado when the control file has the name already, arquivoInvalido when that file is
  // longer than kMaxArquivoRegistros or would be with one more entry, caminhoInvalido for a path of more than
  // kMaxCaminho characters.
  std::uint32_t CriaArquivo(const std::string& nomeArquivo, char modo, std::uint32_t tamanhoRegistro);

  // Writes this object's file name, without folder, to the registry as that of the file that failed last; takes it out
  // again if it is the one that stands there.
  std::uint32_t RegistraErro();
  std::uint32_t LimpaErro();

  // The failure of the file class from which the last number that was not 0 comes, of whichever file it was, the
  // control file too. Its cause is `none` where the number comes from elsewhere (alemDoFim, argumentoInvalido, a
  // control file that has the name already …); of a path that is too long it has the path. RegistraErro and LimpaErro
  // leave it as it is.
  const CFileException& Falha() const { return falha_; }

  // The path of the file that was named last.
  const std::string& Nome() const { return nome_; }

  // From now on no object of the process uses what it has read ahead.
  void InvalidaCache();

  // Called when the file has been opened; the opening's number is its number.
  virtual std::uint32_t AposAbrir() { return semErro; }

 protected:
  virtual void Espera(DWORD ms) { Sleep(ms); }
  virtual DWORD Instante() const { return GetTickCount(); }

 private:
  // What becomes of a file that is there when it is to be made.
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

  // Bytes that the last filling of any cache read; -1 when no cache is up to date.
  static std::int32_t marcaCache;

  std::unique_ptr<std::uint8_t[]> cache_;  // kMaxCache bytes; stays when the file is closed
  std::uint32_t capacidadeCache_ = 0;      // bytes: as many records as fit
  std::uint64_t posicaoCache_ = 0;         // in the file, of the first cached byte
  std::int64_t bytesCache_ = -1;           // -1: empty
  std::uint32_t tamanhoRegistro_ = 0;
  bool aberto_ = false;
  DWORD instanteCache_ = 0;
  std::string nome_;      // full path
  CFileException falha_;  // see Falha
  char modo_ = 0;
  bool criaSeNaoExiste_ = false;
};

// Says why (razao.h) an operation has failed with `numero`: the file cannot be `operacao`, such as "written".
void DizRazao(const char* operacao, const CZNArqEx& arquivo, std::uint32_t numero) noexcept;

}  // namespace kestor
