// The server's interfaces, and the identities of its interfaces, classes, type library and application.
//
// Every method returns a result code (results.h). The proxy of a client sets out-arguments to null or zero before the
// call; a caller in the process of the object does so itself, because not every method does on a failure. A record
// handed out through a pointer to a pointer is two task-memory blocks, the record and its inner array: the caller frees
// the array, then the record (CoTaskMemFree). The caller frees strings handed out with SysFreeString. In-arguments stay
// the caller's. A null BSTR counts as an empty text.
#pragma once

#include "contract/records.h"
#include "platform/com/com.h"

// Store of first-generation models: opaque blocks of bytes, with export settings and filters in files next to them.
struct IZNPL_Rel : IUnknown {
  virtual HRESULT Inicializa(BSTR bNomeEmpresa, BSTR bModulo, BSTR bComponente) = 0;
  // Fills `lQde` records of the caller's array from what BuscaQdeCamposArquivo read.
  virtual HRESULT BuscaCampos(LONG lQde, tagREG_CAMPOS_RELATORIO* pDados) = 0;
  virtual HRESULT BuscaQdeCamposArquivo(LONG* lQde) = 0;
  // Fills `lQde` bytes of the caller's buffer from what BuscaTamanhoRelatorio read.
  virtual HRESULT BuscaRelatorio(LONG lQde, unsigned char* pDados) = 0;
  virtual HRESULT BuscaTamanhoRelatorio(BSTR bNomeArq, LONG* lQde) = 0;
  virtual HRESULT GravaRelatorio(BSTR bNomeArq, LONG bSobreescrever, LONG lQde, unsigned char* pDados) = 0;
  virtual HRESULT BuscaNomeRelatoriosExistentes(BSTR* bNomes) = 0;  // separated by "|"
  virtual HRESULT ExcluiRelatorio(BSTR bNomeArq) = 0;
  virtual HRESULT AtualizaRelatorio(BSTR bsRelatorio, USHORT iMargemEsquerda, USHORT iMargemSuperior,
                                    USHORT iQdeColunas, REG_ATUALIZACAO_RELATORIO* pregAtualizacao) = 0;
  virtual HRESULT GravaRelatorioSemCallBack(BSTR bNomeArq, LONG bSobreescrever, LONG lQde, unsigned char* pDados) = 0;
  virtual HRESULT GravaDadosExportacaoDoRelatorio(BSTR bsRelatorio, tagREG_RELEXPORTACAO regExportacao) = 0;
  virtual HRESULT BuscaDadosExportacaoDoRelatorio(BSTR bsRelatorio, tagREG_RELEXPORTACAO** pregExportacao) = 0;
  virtual HRESULT LeFiltroRelatorio(BSTR bsRelatorio, tagFILTRO_RELATORIO** ppregFiltro) = 0;
  virtual HRESULT GravaFiltroRelatorio(BSTR bsRelatorio, tagFILTRO_RELATORIO* pregFiltro) = 0;

 protected:
  ~IZNPL_Rel() = default;
};

// Store of second-generation models: a version and a content; with the default report, the deleted demonstration
// models and the available fields of the module and component.
struct IZNPL_Relatorio2 : IUnknown {
  virtual HRESULT Inicializa(BSTR bsModulo, BSTR bsComponente) = 0;
  virtual HRESULT GetCamposDisponiveis(REG_CAMPOS_DISPONIVEIS2** ppregCamposDisponiveis) = 0;
  virtual HRESULT Le(BSTR bsRelatorio, REG_RELATORIO2** ppregRelatorio) = 0;
  // `flagGravacao`: bits of KESTOR_FlagGravacao.
  virtual HRESULT Grava(BSTR bsRelatorio, USHORT nVersao, unsigned char flagGravacao, LONG nTamanho,
                        unsigned char* lpRelatorio) = 0;
  virtual HRESULT GetNomeRelatorios(REG_ARRAY_RELATORIO2** ppregRelatorios) = 0;
  virtual HRESULT ExcluiRelatorio(BSTR nome, char bModeloDemo, char* result) = 0;  // `*result`: 1 when deleted
  // A null string when there is no default; the argument stays as it is when the store is not initialised.
  virtual HRESULT GetRelatorioPadrao(BSTR* bsRelatorio) = 0;
  virtual HRESULT SetRelatorioPadrao(BSTR bsRelatorio) = 0;  // null: clears the default
  // The caller supplies the record; only the inner array is the server's allocation.
  virtual HRESULT GetNomeRelatoriosDemonstracaoExcluidos(REG_ARRAY_RELATORIO2* pregRelatorios) = 0;

 protected:
  ~IZNPL_Relatorio2() = default;
};

// Renumbering of field codes inside all second-generation models of a module and component.
struct IZNPL_RelConverte : IUnknown {
  virtual HRESULT AlteraCodigoCampos(BSTR modulo, BSTR componente, LONG nQtdeCampos,
                                     REL_CODIGO_CAMPOS_ALTERADOS* aCodigoAlterados) = 0;

 protected:
  ~IZNPL_RelConverte() = default;
};

inline constexpr GUID LIBID_KESTORLib = {0x627C07C1, 0x2803, 0x4BE4, {0x99, 0xFD, 0x10, 0x79, 0x6E, 0x46, 0x47, 0x9A}};
inline constexpr GUID APPID_KESTOR = {0xABE457EC, 0x0C04, 0x4CC1, {0x9A, 0x7F, 0xC0, 0x7F, 0x7E, 0x68, 0x53, 0x46}};
inline constexpr CLSID CLSID_ZNPL_Rel = {0xD6CD5BA3, 0x1286, 0x4104, {0xBF, 0x0F, 0x41, 0x4C, 0xEF, 0x8D, 0xD9, 0x45}};
inline constexpr CLSID CLSID_ZNPL_Relatorio2 = {
    0xB122667E, 0xA9F0, 0x49A4, {0x82, 0x3C, 0x02, 0x4B, 0xC9, 0xCB, 0x1A, 0x1E}};
inline constexpr CLSID CLSID_ZNPL_RelConverte = {
    0x0A010D46, 0xD3F2, 0x4E10, {0xB7, 0x42, 0x37, 0xCB, 0x1D, 0x80, 0x1A, 0xF2}};
inline constexpr IID IID_IZNPL_Rel = {0x343065ED, 0x50EB, 0x478A, {0x82, 0xB9, 0x79, 0x68, 0x02, 0xDB, 0x44, 0x54}};
inline constexpr IID IID_IZNPL_Relatorio2 = {
    0x5DE18D6B, 0xA012, 0x4C2B, {0x85, 0x10, 0x59, 0x8B, 0xCC, 0x82, 0x30, 0x32}};
inline constexpr IID IID_IZNPL_RelConverte = {
    0x217CB51B, 0x76B2, 0x42D4, {0x89, 0x9B, 0x30, 0x47, 0x1F, 0xE4, 0xE0, 0xE8}};
