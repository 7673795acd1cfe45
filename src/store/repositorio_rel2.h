// The store of second-generation report models.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/objeto_contado.h"
#include "contract/interfaces.h"

namespace kestor {

class CZNArqEx;

// Moves first-generation models of a module and component into the store, which has been initialised for them.
// `existentes`: names of the models that the store has. May throw std::bad_alloc.
using MigraModelos = HRESULT (*)(Servidor& servidor, IZNPL_Relatorio2& repositorio, const std::string& modulo,
                                 const std::string& componente, const std::vector<std::string>& existentes);

// The names of the models that a store lists; none when they cannot be listed. Throws std::bad_alloc.
std::vector<std::string> NomesDosModelos(IZNPL_Relatorio2& repositorio);

// The object of the class ZNPL_Relatorio2: the models of one application module and component, which the client
// names with Inicializa. It keeps texts only; every call opens, uses and closes its files. All calls come on the
// server's main thread.
//
// A model is the file CAMINHO + MODULE + COMPONENT + NAME + ".RXL" of the reports folder: a 16-bit version and the
// content. Until module, component and reports folder are all known, every method but Inicializa answers 0x80040007 and
// touches no file.
class CRepositorioRel2 final : public ObjetoContado<IZNPL_Relatorio2, IID_IZNPL_Relatorio2> {
 public:
  // In a rehearsal nothing is written: no record file is made, and Grava only answers as it would.
  enum class Modo { normal, ensaio };

  // `migra`: what Inicializa calls; null for a store that leaves the first generation alone.
  explicit CRepositorioRel2(Servidor& servidor, MigraModelos migra = nullptr, Modo modo = Modo::normal);

  // 0x80043F59 when the registry does not name the reports folder, or the folder of the module. Otherwise the store is
  // initialised, and the result is that of the migration, which is run each time; E_OUTOFMEMORY.
  HRESULT Inicializa(BSTR bsModulo, BSTR bsComponente) override;

  // The fields that reports can use, a line of the module's field catalogue each; the first 65535. Needs no reports
  // folder. 0x80040001 when the catalogue cannot be opened, 0x80040002 when it is not read whole.
  HRESULT GetCamposDisponiveis(REG_CAMPOS_DISPONIVEIS2** ppregCamposDisponiveis) override;

  // 0x00040001 when the model cannot be opened, for whatever reason; 0x80040002 when it is not read whole or is shorter
  // than its version.
  HRESULT Le(BSTR bsRelatorio, REG_RELATORIO2** ppregRelatorio) override;

  // 0x00040004 when the model exists and must not be overwritten; 0x0004000C when it has the name of a deleted
  // demonstration model and that was to be checked; 0x80040005 when it cannot be written, the old model then being
  // untouched; E_INVALIDARG for a negative size and for more than a call can carry back; E_POINTER without a block for
  // a size above 0.
  HRESULT Grava(BSTR bsRelatorio, USHORT nVersao, unsigned char flagGravacao, LONG nTamanho,
                unsigned char* lpRelatorio) override;

  // Names of the models, sorted without regard to letter case, without extension and without the names of deleted
  // demonstration models; at most 65535 names of at most 255 characters. Null when no model file is there at all.
  HRESULT GetNomeRelatorios(REG_ARRAY_RELATORIO2** ppregRelatorios) override;

  // Deletes a model; a file error (0x8007xxxx) when it cannot be deleted, nothing else being done then. The name of a
  // demonstration model (`bModeloDemo` not 0) is remembered; when that fails, the model is deleted all the same. If it
  // was the default report, there is none afterwards.
  HRESULT ExcluiRelatorio(BSTR nome, char bModeloDemo, char* result) override;

  // The default report, or null. 0x80043Exx or 0x80043Fxx (a number of CZNArqEx) or a file error when its file cannot
  // be read.
  HRESULT GetRelatorioPadrao(BSTR* bsRelatorio) override;

  // Sets the default report, or with null clears it. S_FALSE when the model cannot be opened; a number of CZNArqEx when
  // the file cannot be written, for instance 0x80043EEE when another station has held it all the time.
  HRESULT SetRelatorioPadrao(BSTR bsRelatorio) override;

  // Names of deleted demonstration models, in the order of their deletion, each as often as it was deleted; null when
  // there is none. A file error when their file cannot be read or made.
  HRESULT GetNomeRelatoriosDemonstracaoExcluidos(REG_ARRAY_RELATORIO2* pregRelatorios) override;

 private:
  ~CRepositorioRel2() override = default;

  bool Inicializado() const;
  Mudanca MudancaDe(const char* metodo) const;
  HRESULT GravaModelo2(BSTR bsRelatorio, USHORT nVersao, unsigned char flagGravacao, LONG nTamanho,
                       unsigned char* lpRelatorio);
  static HRESULT EnsaiaGravacao(const std::string& caminho, bool deveSerNovo);
  HRESULT ExcluiModelo(BSTR nome, char bModeloDemo, char* result);
  HRESULT GravaPadrao(BSTR bsRelatorio);
  HRESULT Migra();
  std::string Prefixo() const;
  bool DemonstracaoExcluida(const std::string& nome);
  HRESULT ListaModelos(REG_ARRAY_RELATORIO2** ppregRelatorios);
  void RetiraExcluidos(std::vector<std::string>& nomes);
  HRESULT RegistraModeloDemoExcluido(const std::string& nome);
  void EsquecePadrao(BSTR nome);
  std::uint32_t ProcuraRegistroPadrao(CZNArqEx& arquivo);

  Servidor& servidor_;
  const MigraModelos migra_;
  const Modo modo_;

  std::string caminhoRelatorios_;
  std::string caminhoModulo_;
  std::string modulo_;
  std::string componente_;
  std::string chaveModulo_;       // module and component: the key of the record files
  std::string arquivoPadrao_;     // the default-report file
  std::string arquivoExcluidos_;  // the file of deleted demonstration models

  // Where this key's record was last found in the default-report file; 0 when not known.
  std::uint32_t registroPadrao_ = 0;
};

}  // namespace kestor
