// The store of second-generation report models.
#pragma once

#include <string>

#include "common/objeto_contado.h"
#include "contract/interfaces.h"

namespace kestor {

// The object behind the class ZNPL_Relatorio2: the models of one application module and component, which the client
// names with Inicializa. It keeps texts only; every call opens, uses and closes its files. All calls come on the
// server's main thread.
//
// A model is the file CAMINHO + MODULE + COMPONENT + NAME + ".RXL" of the reports folder: a 16-bit version and the
// content. Until module, component and reports folder are all known, every method but Inicializa answers 0x80040007 and
// touches no file.
class CRepositorioRel2 final : public ObjetoContado<IZNPL_Relatorio2> {
 public:
  explicit CRepositorioRel2(ContagemServidor& servidor);

  // 0x80043F59 when the registry does not name the reports folder, or the folder of the module.
  HRESULT Inicializa(BSTR bsModulo, BSTR bsComponente) override;

  HRESULT GetCamposDisponiveis(REG_CAMPOS_DISPONIVEIS2** ppregCamposDisponiveis) override;

  // 0x00040001 when the model cannot be opened, for whatever reason; 0x80040002 when it is not read whole or is shorter
  // than its version.
  HRESULT Le(BSTR bsRelatorio, REG_RELATORIO2** ppregRelatorio) override;

  // 0x00040004 when the model exists and must not be overwritten; 0x0004000C when it has the name of a deleted
  // demonstration model and that was to be checked; 0x80040005 when it cannot be written, the old model then being
  // untouched; E_INVALIDARG for a negative size.
  HRESULT Grava(BSTR bsRelatorio, USHORT nVersao, unsigned char flagGravacao, LONG nTamanho,
                unsigned char* lpRelatorio) override;

  HRESULT GetNomeRelatorios(REG_ARRAY_RELATORIO2** ppregRelatorios) override;
  HRESULT ExcluiRelatorio(BSTR nome, char bModeloDemo, char* result) override;
  HRESULT GetRelatorioPadrao(BSTR* bsRelatorio) override;
  HRESULT SetRelatorioPadrao(BSTR bsRelatorio) override;
  HRESULT GetNomeRelatoriosDemonstracaoExcluidos(REG_ARRAY_RELATORIO2* pregRelatorios) override;

 private:
  ~CRepositorioRel2() override = default;

  bool Inicializado() const;
  std::string CaminhoModelo(const std::string& nome, bool comExtensao) const;
  bool DemonstracaoExcluida(const std::string& nome);

  std::string caminhoRelatorios_;
  std::string caminhoModulo_;
  std::string modulo_;
  std::string componente_;
  std::string chaveModulo_;       // module and component: the key of the record files
  std::string arquivoPadrao_;     // the default-report file
  std::string arquivoExcluidos_;  // the file of deleted demonstration models
};

}  // namespace kestor
