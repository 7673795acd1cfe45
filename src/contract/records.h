// The records and enumerations that cross the process boundary, as the type library KESTORLib declares them.
//
// Records have 2-byte packing and no gaps. Texts are code page 1252 with a NUL inside the field. Numbers are
// little-endian. A pointer is always the last field: it is 4 bytes wide in the reference layout and as wide as the
// machine's pointers here, so it changes the record's size and no other offset. Fields typed `long` or `char` that
// start with b hold 1 for true and 0 for false.
#pragma once

#include <cstddef>
#include <cstdint>

// Bytes of a record in the reference layout without its pointer: the part that is stored in files and sent between
// processes.
template <typename Record>
inline constexpr std::size_t kBytesWithoutPointer = sizeof(Record) - sizeof(void*);

enum KESTOR_FlagGravacao : std::int32_t {
  KESTOR_Sobreescrever = 0,
  KESTOR_NaoSobreescrever = 1,
  KESTOR_VerificarModelosDemoExcluidos = 2
};

enum KESTOR_Erros : std::int32_t {
  KESTOR_ARQ_NAO_EXISTE = 1,
  KESTOR_PROBLEMAS_AO_LER = 2,
  KESTOR_NAO_BUSCOU_QTDE = 3,
  KESTOR_ARQUIVO_JA_EXISTE = 4,
  KESTOR_PROBLEMAS_AO_GRAVAR = 5,
  KESTOR_PROBLEMAS_AO_CRIAR_ARQUIVO = 6,
  KESTOR_NAO_FOI_INICIALIZADO = 7,
  KESTOR_NENHUM_ARQUIVO_ENCONTRADO = 8,
  KESTOR_PROBLEMAS_NO_REGISTRY = 9,
  KESTOR_MODULO_DESCONHECIDO = 10,
  KESTOR_ARQ_JA_FOI_ALTERADO = 11,
  KESTOR_MODELO_DEMO_COM_MESMO_NOME_EXCLUIDO = 12
};

// Data type of a field; the `cTipo` fields carry it as a character.
enum KESTOR2_TipoDado : std::int32_t {
  KESTOR_Alfanumerico = 65,
  KESTOR_Data = 68,
  KESTOR_Numerico = 78,
  KESTOR_Valor = 86,
  KESTOR_MesAno = 100,
  KESTOR_Conta = 67,
  KESTOR_Historico = 72,
  KESTOR_Opcoes = 88
};

// Alignment of a field; the `cAlinhamento` fields carry it as a character.
enum KESTOR2_Alinhamento : std::int32_t { KESTOR_Esquerda = 69, KESTOR_Direita = 68, KESTOR_Centro = 67 };

// The platform's fixed-point amount, scaled by 10,000.
struct CURRENCY {
  std::int64_t int64;
};

#pragma pack(push, 2)

// One field of the field catalogue, for first-generation clients.
struct tagREG_CAMPOS_RELATORIO {
  std::int32_t iCod;
  std::int32_t iTamanho;  // printed width in characters
  char cDescricao[26];
  char cApelido[26];  // the alias by which clients refer to the field
  char cOpcoes[200];
  std::int32_t bCondicao;     // may be used in a filter condition
  std::int32_t bTotalizavel;  // may be totalled
  std::int32_t bOrdenavel;    // may be sorted by
  char cTipo;                 // KESTOR2_TipoDado
  char cAlinhamento;          // KESTOR2_Alinhamento
};
static_assert(offsetof(tagREG_CAMPOS_RELATORIO, iCod) == 0);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO, iTamanho) == 4);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO, cDescricao) == 8);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO, cApelido) == 34);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO, cOpcoes) == 60);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO, bCondicao) == 260);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO, bTotalizavel) == 264);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO, bOrdenavel) == 268);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO, cTipo) == 272);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO, cAlinhamento) == 273);
static_assert(sizeof(tagREG_CAMPOS_RELATORIO) == 274);

// One column of a first-generation model that gets a new place and width.
struct REG_ATUALIZACAO_RELATORIO {
  char cNomeColuna[26];  // the field's alias in the catalogue
  std::int32_t iTamanho;
};
static_assert(offsetof(REG_ATUALIZACAO_RELATORIO, cNomeColuna) == 0);
static_assert(offsetof(REG_ATUALIZACAO_RELATORIO, iTamanho) == 26);
static_assert(sizeof(REG_ATUALIZACAO_RELATORIO) == 30);

// One exported item of a first-generation model.
struct tagREG_RELEXPORTACAO_ITEM {
  char cConteudo[200];
  char cApelido[26];
  char cTipo;
  char cFiller;  // carried unchanged
};
static_assert(offsetof(tagREG_RELEXPORTACAO_ITEM, cConteudo) == 0);
static_assert(offsetof(tagREG_RELEXPORTACAO_ITEM, cApelido) == 200);
static_assert(offsetof(tagREG_RELEXPORTACAO_ITEM, cTipo) == 226);
static_assert(offsetof(tagREG_RELEXPORTACAO_ITEM, cFiller) == 227);
static_assert(sizeof(tagREG_RELEXPORTACAO_ITEM) == 228);

// The export settings of a first-generation model.
struct tagREG_RELEXPORTACAO {
  char cNomeArquivo[200];
  char cCabDescricao[200];
  char cRodapeDescricao[200];
  std::uint16_t iCabTamanho;
  std::uint16_t iRodapeTamanho;
  std::uint16_t iQtdeItens;
  char cCabTipoCampo;
  char cRodapeTipoCampo;
  char cSeparadorDecimal;
  char cSeparadorCampo;
  char cVersao;
  char cDelimitador;
  tagREG_RELEXPORTACAO_ITEM* pregItens;  // iQtdeItens items
};
static_assert(offsetof(tagREG_RELEXPORTACAO, cNomeArquivo) == 0);
static_assert(offsetof(tagREG_RELEXPORTACAO, cCabDescricao) == 200);
static_assert(offsetof(tagREG_RELEXPORTACAO, cRodapeDescricao) == 400);
static_assert(offsetof(tagREG_RELEXPORTACAO, iCabTamanho) == 600);
static_assert(offsetof(tagREG_RELEXPORTACAO, iRodapeTamanho) == 602);
static_assert(offsetof(tagREG_RELEXPORTACAO, iQtdeItens) == 604);
static_assert(offsetof(tagREG_RELEXPORTACAO, cCabTipoCampo) == 606);
static_assert(offsetof(tagREG_RELEXPORTACAO, cRodapeTipoCampo) == 607);
static_assert(offsetof(tagREG_RELEXPORTACAO, cSeparadorDecimal) == 608);
static_assert(offsetof(tagREG_RELEXPORTACAO, cSeparadorCampo) == 609);
static_assert(offsetof(tagREG_RELEXPORTACAO, cVersao) == 610);
static_assert(offsetof(tagREG_RELEXPORTACAO, cDelimitador) == 611);
static_assert(offsetof(tagREG_RELEXPORTACAO, pregItens) == 612);
static_assert(kBytesWithoutPointer<tagREG_RELEXPORTACAO> == 612);

// The value of a filtered field. Only clients know which member counts: the server carries the bytes.
union tagVALOR {
  float fValor;
  CURRENCY vValor;
  std::uint16_t uValor;
  std::int32_t iValor;
  std::int32_t lValor;
  char szValor[100];
  char flag;
};
static_assert(sizeof(tagVALOR) == 100);

struct tagVALOR_FILTRO {
  tagVALOR valor;
  std::int16_t nTipo;
};
static_assert(offsetof(tagVALOR_FILTRO, valor) == 0);
static_assert(offsetof(tagVALOR_FILTRO, nTipo) == 100);
static_assert(sizeof(tagVALOR_FILTRO) == 102);

// One filtered field of a first-generation model.
struct tagCAMPO_FILTRO {
  std::uint16_t nCodigoCampo;
  tagVALOR_FILTRO valorCampo;
};
static_assert(offsetof(tagCAMPO_FILTRO, nCodigoCampo) == 0);
static_assert(offsetof(tagCAMPO_FILTRO, valorCampo) == 2);
static_assert(sizeof(tagCAMPO_FILTRO) == 104);

// The filter of a first-generation model.
struct tagFILTRO_RELATORIO {
  std::uint16_t nQtdCampos;
  tagCAMPO_FILTRO* pregValoresFiltro;  // nQtdCampos entries
};
static_assert(offsetof(tagFILTRO_RELATORIO, nQtdCampos) == 0);
static_assert(offsetof(tagFILTRO_RELATORIO, pregValoresFiltro) == 2);
static_assert(kBytesWithoutPointer<tagFILTRO_RELATORIO> == 2);

// One field of the field catalogue, for second-generation clients.
struct tagREG_CAMPOS_RELATORIO2 {
  std::uint16_t nCodigo;
  std::uint16_t nTamanho;
  char szDescricao[26];
  char szApelido[26];
  char szOpcoes[200];
  char bPodeFiltrar;
  char bPodeTotalizar;
  char bPodeOrdenar;
  char cTipo;         // KESTOR2_TipoDado
  char cAlinhamento;  // KESTOR2_Alinhamento
  char cFiller;
};
static_assert(offsetof(tagREG_CAMPOS_RELATORIO2, nCodigo) == 0);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO2, nTamanho) == 2);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO2, szDescricao) == 4);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO2, szApelido) == 30);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO2, szOpcoes) == 56);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO2, bPodeFiltrar) == 256);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO2, bPodeTotalizar) == 257);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO2, bPodeOrdenar) == 258);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO2, cTipo) == 259);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO2, cAlinhamento) == 260);
static_assert(offsetof(tagREG_CAMPOS_RELATORIO2, cFiller) == 261);
static_assert(sizeof(tagREG_CAMPOS_RELATORIO2) == 262);

// The available fields of a module and component.
struct REG_CAMPOS_DISPONIVEIS2 {
  std::uint16_t nQtdeCampos;
  tagREG_CAMPOS_RELATORIO2* pregCampos;  // nQtdeCampos records
};
static_assert(offsetof(REG_CAMPOS_DISPONIVEIS2, nQtdeCampos) == 0);
static_assert(offsetof(REG_CAMPOS_DISPONIVEIS2, pregCampos) == 2);
static_assert(kBytesWithoutPointer<REG_CAMPOS_DISPONIVEIS2> == 2);

// A second-generation model as read.
struct REG_RELATORIO2 {
  std::uint16_t nVersao;
  std::int32_t nQtdeBytes;
  std::uint8_t* lpRelatorio;  // nQtdeBytes bytes
};
static_assert(offsetof(REG_RELATORIO2, nVersao) == 0);
static_assert(offsetof(REG_RELATORIO2, nQtdeBytes) == 2);
static_assert(offsetof(REG_RELATORIO2, lpRelatorio) == 6);
static_assert(kBytesWithoutPointer<REG_RELATORIO2> == 6);

struct tagREG_NOME_RELATORIO2 {
  char szNomeRelatorio[256];
};
static_assert(sizeof(tagREG_NOME_RELATORIO2) == 256);

// A list of model names.
struct REG_ARRAY_RELATORIO2 {
  std::uint16_t nQtdeRelatorios;
  tagREG_NOME_RELATORIO2* pregRelatorios;  // nQtdeRelatorios names
};
static_assert(offsetof(REG_ARRAY_RELATORIO2, nQtdeRelatorios) == 0);
static_assert(offsetof(REG_ARRAY_RELATORIO2, pregRelatorios) == 2);
static_assert(kBytesWithoutPointer<REG_ARRAY_RELATORIO2> == 2);

// One renumbering of a field code.
struct REL_CODIGO_CAMPOS_ALTERADOS {
  std::uint16_t nCodigoAntigo;
  std::uint16_t nNovoCodigo;
};
static_assert(offsetof(REL_CODIGO_CAMPOS_ALTERADOS, nCodigoAntigo) == 0);
static_assert(offsetof(REL_CODIGO_CAMPOS_ALTERADOS, nNovoCodigo) == 2);
static_assert(sizeof(REL_CODIGO_CAMPOS_ALTERADOS) == 4);

#pragma pack(pop)
