// The store of second-generation report models.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/objeto_contado.h"
#include "contract/interfaces.h"

namespace kestor {

class CZNArqEx;

// Moves first-generation models of a module and component into the store, which has been initialised for these.
// `existentes` has the names of the store's models. May throw std::bad_alloc.
using MigraModelos = HRESULT (*)(Servidor& servidor, IZNPL_Relatorio2& repositorio, const std::string& modulo,
                                 const std::string& componente, const std::vector<std::string>& existentes);

// Returns the names of the models that a store lists; none if they cannot be listed. Throws std::bad_alloc.
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

  // Inicializa calls `migra`; null for a store that leaves the first generation alone.
  explicit CRepositorioRel2(Servidor& servidor, MigraModelos migra = nullptr, Modo modo = Modo::normal);

  // Returns 0x80043F59 if the registry does not name the reports folder or the folder of the module. Otherwise
  // initialises the store, runs the migration, each time anew, and returns its result; E_OUTOFMEMORY.
  HRESULT Inicializa(BSTR bsModulo, BSTR bsComponente) override;

  // Gives the fields that reports can use, one for each line of the field catalogue; the first 65535. Needs no reports
  // folder. Returns 0x80040001 if the catalogue cannot be opened, 0x80040002 if it cannot be read whole.
  HRESULT GetCamposDisponiveis(REG_CAMPOS_DISPONIVEIS2** ppregCamposDisponiveis) override;

  // Returns 0x00040001 if the model cannot be opened, for whatever reason; 0x80040002 if it cannot be read whole, is
  // shorter than its version or is longer than a call can carry.
  HRESULT Le(BSTR bsRelatorio, REG_RELATORIO2** ppregRelatorio) override;

  // Returns 0x00040004 if the model exists and must not be overwritten; 0x0004000C if names of deleted demonstration
  // models are to be checked and this is one; 0x80040005 if it cannot be written, and the old model is then untouched;
  // E_INVALIDARG for a negative size and for more than a call can carry back; E_POINTER without a block for a size
  // above 0.
  HRESULT Grava(BSTR bsRelatorio, USHORT nVersao, unsigned char flagGravacao, LONG nTamanho,
                unsigned char* lpRelatorio) override;

  // Gives the names of the models without extension, sorted without regard to letter case. Leaves out deleted
  // demonstration models. At most 65535 names of at most 255 characters; null if there is no model file at all.
  HRESULT GetNomeRelatorios(REG_ARRAY_RELATORIO2** ppregRelatorios) override;

  // Deletes a model. Returns a file error (0x8007xxxx) if it cannot be deleted, and does nothing else then. Remembers
  // the name of a demonstration model (`bModeloDemo` not 0); if that fails, the model is deleted all the same. Clears
  // the default report if it was this model.
  HRESULT ExcluiRelatorio(BSTR nome, char bModeloDemo, char* result) override;

  // Gives the default report, or null. Returns 0x80043Exx or 0x80043Fxx (a number of CZNArqEx) or a file error if its
  // file cannot be read.
  HRESULT GetRelatorioPadrao(BSTR* bsRelatorio) override;

  // Sets the default report, or clears it with null. Returns S_FALSE if the model cannot be opened; a number of
  // CZNArqEx if the file cannot be written, for instance 0x80043EEE if another station has it open during all attempts.
  HRESULT SetRelatorioPadrao(BSTR bsRelatorio) override;

  // Gives the names of deleted demonstration models, in the order of their deletion, each as often as it was deleted;
  // null if there is none. Returns a file error if their file cannot be read or made.
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

  // Number of this key's record in the default-report file, where it was last found; 0 if not known.
  std::uint32_t registroPadrao_ = 0;
};

}  // namespace kestor
