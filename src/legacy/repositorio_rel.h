// The store of first-generation report models.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "common/arquivos_modelo.h"
#include "common/objeto_contado.h"
#include "contract/interfaces.h"

namespace kestor {

// The object of the class ZNPL_Rel: the models of one application module and component, which the client names with
// Inicializa. A model is an opaque block of bytes in a file of the reports folder,
//
//   FOLDER + MODULE (2 characters at most) + COMPONENT (3 at most) + NAME + ".REL"
//
// with its export settings next to it in ".REE" and its filter in ".REF". Every call opens, uses and closes its files.
// Only two pending buffers are kept between calls, each from the call that reads a file to the one that hands it over.
// Unless its comment says otherwise, a method does not check whether the store has been initialised: a missing folder
// counts as empty text, and the file is then one of the server's current directory. All calls come on the server's main
// thread.
class CRepositorioRel final : public ObjetoAgregavel<IZNPL_Rel, IID_IZNPL_Rel> {
 public:
  CRepositorioRel(IUnknown* externo, Servidor& servidor);

  // Returns 0x80043F59 if the registry does not name the reports folder or the folder of the module; the store then has
  // no folders any more. Drops pending buffers in any case.
  HRESULT Inicializa(BSTR bNomeEmpresa, BSTR bModulo, BSTR bComponente) override;

  // Hands over what BuscaQdeCamposArquivo read. Returns 0x80040003 if nothing is pending; E_INVALIDARG for a number
  // below 0 or above that of the fields, which stay pending.
  HRESULT BuscaCampos(LONG lQde, tagREG_CAMPOS_RELATORIO* pDados) override;

  // Reads the field catalogue. Drops pending content of a model once the file is open. Returns 0x80040007 without a
  // component code; 0x80040001 if the file cannot be opened; 0x80040002, with the file's length in `*lQde`, if it
  // cannot be read whole or is longer than a call can carry; E_OUTOFMEMORY if it has more lines than a call can carry.
  HRESULT BuscaQdeCamposArquivo(LONG* lQde) override;

  // Hands over what BuscaTamanhoRelatorio read. Returns the same results as BuscaCampos.
  HRESULT BuscaRelatorio(LONG lQde, unsigned char* pDados) override;

  // Reads a model. Returns 0x80040007 without a reports folder; 0x00040001 if the file cannot be opened; 0x80040002,
  // with the file's length in `*lQde`, if it cannot be read whole or is longer than a call can carry.
  HRESULT BuscaTamanhoRelatorio(BSTR bNomeArq, LONG* lQde) override;

  // Writes a model, its name cut at the first dot. Returns 0x00040004 if it must not be overwritten and exists, even if
  // another station made it only just now; 0x80040005 if it cannot be opened or written; 0x80040006 if it must not be
  // overwritten and cannot be created or is in use; E_INVALIDARG for a negative size and for more than a call can carry
  // back. A failure leaves the old model untouched.
  HRESULT GravaRelatorio(BSTR bNomeArq, LONG bSobreescrever, LONG lQde, unsigned char* pDados) override;
  HRESULT GravaRelatorioSemCallBack(BSTR bNomeArq, LONG bSobreescrever, LONG lQde, unsigned char* pDados) override;

  // Gives the names of the models, separated by "|". Returns 0x80040007 without a reports folder; 0x00040008 if there
  // is no model.
  HRESULT BuscaNomeRelatoriosExistentes(BSTR* bNomes) override;

  // Deletes a model and its export settings, or only the one file that a name with a dot stands for. Skips what it
  // cannot delete. Returns 0x80040007 without a reports folder.
  HRESULT ExcluiRelatorio(BSTR bNomeArq) override;

  // Sets the margins, and the order and widths of the columns, all or none of them; an alignment stays with its place.
  // Returns 0x00040001 if the model cannot be opened; 0x80040002 if it cannot be read whole or is longer than a call
  // can carry; 0x0004000B if its columns are not those of the caller, an alias is not in the catalogue, or the model
  // has another layout or is too short; 0x80040005 if it cannot be written; otherwise what BuscaQdeCamposArquivo
  // returns.
  HRESULT AtualizaRelatorio(BSTR bsRelatorio, USHORT iMargemEsquerda, USHORT iMargemSuperior, USHORT iQdeColunas,
                            REG_ATUALIZACAO_RELATORIO* pregAtualizacao) override;

  // Returns 0x80040005 if the settings cannot be written; the old ones are then untouched.
  HRESULT GravaDadosExportacaoDoRelatorio(BSTR bsRelatorio, tagREG_RELEXPORTACAO regExportacao) override;

  // Returns 0x80040002 if there are none or their head cannot be read whole. Items that the file lacks are zeros.
  HRESULT BuscaDadosExportacaoDoRelatorio(BSTR bsRelatorio, tagREG_RELEXPORTACAO** pregExportacao) override;

  // Returns 0x80043Exx or 0x80043Fxx (a number of CZNArqEx) if the file cannot be opened; 0x80040002 if it cannot be
  // read. Entries that the file lacks are zeros.
  HRESULT LeFiltroRelatorio(BSTR bsRelatorio, tagFILTRO_RELATORIO** ppregFiltro) override;

  // Returns a number of CZNArqEx if the file cannot be opened or made; 0x80040005 if it cannot be written.
  HRESULT GravaFiltroRelatorio(BSTR bsRelatorio, tagFILTRO_RELATORIO* pregFiltro) override;

 private:
  ~CRepositorioRel() override = default;

  Mudanca MudancaDe(const char* metodo) const;
  std::string Prefixo() const;
  HRESULT GravaModeloRel(const char* metodo, BSTR nome, bool sobreescreve, LONG bytes, const unsigned char* dados);
  HRESULT GravaExportacao(BSTR bsRelatorio, const tagREG_RELEXPORTACAO& regExportacao) const;
  HRESULT GravaFiltro(BSTR bsRelatorio, const tagFILTRO_RELATORIO* pregFiltro) const;
  HRESULT AtualizaModelo(BSTR nome, USHORT margemEsquerda, USHORT margemSuperior, USHORT colunas,
                         const REG_ATUALIZACAO_RELATORIO* pedidas);

  Servidor& servidor_;
  std::string modulo_;
  std::string componente_;
  std::optional<std::string> caminhoRelatorios_;
  std::optional<std::string> caminhoModulo_;
  std::optional<Bytes> conteudoPendente_;
  std::unique_ptr<tagREG_CAMPOS_RELATORIO[]> camposPendentes_;
  LONG qdeCamposPendentes_ = 0;
};

}  // namespace kestor
