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
// with its export settings beside it in ".REE" and its filter in ".REF". Every call opens, uses and closes its files;
// what is kept between calls are two pending buffers, each from the call that reads a file to the one that hands it
// over. Unless a method says otherwise it does not ask whether the store has been initialised: a missing folder counts
// as empty text, and the file is then one of the server's current directory. All calls come on the server's main
// thread.
class CRepositorioRel final : public ObjetoAgregavel<IZNPL_Rel, IID_IZNPL_Rel> {
 public:
  CRepositorioRel(IUnknown* externo, Servidor& servidor);

  // 0x80043F59 when the registry does not name the reports folder, or the folder of the module; the store then has no
  // folders any more. Pending buffers are gone in any case.
  HRESULT Inicializa(BSTR bNomeEmpresa, BSTR bModulo, BSTR bComponente) override;

  // Hands over what BuscaQdeCamposArquivo read: 0x80040003 when nothing is pending; E_INVALIDARG, and all stays
  // pending, for a number below 0 or above that of the fields.
  HRESULT BuscaCampos(LONG lQde, tagREG_CAMPOS_RELATORIO* pDados) override;

  // Reads the field catalogue; pending content of a model is gone once the file is open. 0x80040007 without a component
  // code; 0x80040001 when it cannot be opened; 0x80040002 when it is not read whole, or is longer than a call can
  // carry, `*lQde` being the file's length; E_OUTOFMEMORY when it has more lines than a call can carry.
  HRESULT BuscaQdeCamposArquivo(LONG* lQde) override;

  // Hands over what BuscaTamanhoRelatorio read, with results as BuscaCampos.
  HRESULT BuscaRelatorio(LONG lQde, unsigned char* pDados) override;

  // Reads a model. 0x80040007 without a reports folder; 0x00040001 when it cannot be opened; 0x80040002 when it is not
  // read whole, or is longer than a call can carry, `*lQde` being the file's length.
  HRESULT BuscaTamanhoRelatorio(BSTR bNomeArq, LONG* lQde) override;

  // Writes a model, the name cut at its first dot. 0x00040004 when it exists and must not be overwritten, also when it
  // came to be only now; 0x80040005 when it cannot be opened or written, 0x80040006 when it must not be overwritten and
  // cannot be created or is in use, the old model then being untouched; E_INVALIDARG for a negative size and for more
  // than a call can carry back.
  HRESULT GravaRelatorio(BSTR bNomeArq, LONG bSobreescrever, LONG lQde, unsigned char* pDados) override;
  HRESULT GravaRelatorioSemCallBack(BSTR bNomeArq, LONG bSobreescrever, LONG lQde, unsigned char* pDados) override;

  // The names of the models, "|" between them. 0x80040007 without a reports folder; 0x00040008 when there is none.
  HRESULT BuscaNomeRelatoriosExistentes(BSTR* bNomes) override;

  // Deletes a model and its export settings, or with a dot in the name that one file; what cannot be opened is passed
  // over. 0x80040007 without a reports folder.
  HRESULT ExcluiRelatorio(BSTR bNomeArq) override;

  // Sets margins, order and widths of the columns, whole or not at all; an alignment stays with its place. 0x00040001
  // when the model cannot be opened; 0x80040002 when it is not read whole, or is longer than a call can carry;
  // 0x0004000B when its columns are not those of the caller, an alias is not in the catalogue, or the model is of
  // another layout or too short; 0x80040005 when it cannot be written; what BuscaQdeCamposArquivo gives otherwise.
  HRESULT AtualizaRelatorio(BSTR bsRelatorio, USHORT iMargemEsquerda, USHORT iMargemSuperior, USHORT iQdeColunas,
                            REG_ATUALIZACAO_RELATORIO* pregAtualizacao) override;

  // 0x80040005 when the settings cannot be written, the old ones then being untouched.
  HRESULT GravaDadosExportacaoDoRelatorio(BSTR bsRelatorio, tagREG_RELEXPORTACAO regExportacao) override;

  // 0x80040002 when there are none or their head is not read whole; items that the file lacks are zeros.
  HRESULT BuscaDadosExportacaoDoRelatorio(BSTR bsRelatorio, tagREG_RELEXPORTACAO** pregExportacao) override;

  // 0x80043Exx or 0x80043Fxx (a number of CZNArqEx) when the file cannot be opened; 0x80040002 when it cannot be read.
  // Entries that the file lacks are zeros.
  HRESULT LeFiltroRelatorio(BSTR bsRelatorio, tagFILTRO_RELATORIO** ppregFiltro) override;

  // A number of CZNArqEx when the file cannot be opened or made; 0x80040005 when it cannot be written.
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
