// The type library says what the headers say: clients are made from the one, the server from the other.
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "contract/interfaces.h"
#include "support/support.h"

namespace {

std::string Description() {
  static const std::string text = support::ReadFile(KESTOR_TYPE_LIBRARY);
  return text;
}

std::vector<std::smatch> Matches(const std::string& text, const char* pattern) {
  const std::regex expression(pattern);
  return {std::sregex_iterator(text.begin(), text.end(), expression), std::sregex_iterator()};
}

// ---- Records -------------------------------------------------------------------------------------------------------

struct Field {
  std::string name;
  std::size_t offset = 0;
  std::size_t bytes = 0;
  bool operator==(const Field&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Field& field) {
  return out << field.name << " at " << field.offset << ", " << field.bytes << " bytes";
}

struct Record {
  std::vector<Field> fields;
  std::size_t bytes = 0;
  std::size_t alignment = 1;
};

constexpr std::size_t kPointerBytes = 4;
constexpr std::size_t kPacking = 2;

// Lays out every record as a client's compiler would, and checks on the way what stands beside it for people.
std::map<std::string, Record> DescribedRecords() {
  std::map<std::string, Record> records;
  for (const auto& [type, bytes] : std::map<std::string, std::size_t>{{"char", 1},
                                                                      {"unsigned char", 1},
                                                                      {"short", 2},
                                                                      {"unsigned short", 2},
                                                                      {"int", 4},
                                                                      {"long", 4},
                                                                      {"float", 4},
                                                                      {"CURRENCY", 8}}) {
    records[type] = {{}, bytes, std::min(bytes, kPacking)};
  }
  std::set<std::string> declared;
  const std::string text = Description();
  for (const std::smatch& block : Matches(text, R"((\d+) bytes\.\s+(struct|union) (\w+)\s*\{([^}]*)\})")) {
    Record record;
    const std::string body = block[4];
    for (const std::smatch& line :
         Matches(body, R"((?:\[size_is\((\w+)\)\] )?([a-zA-Z_0-9 ]+?)(\**) (\w+)(?:\[(\d+)\])?;\s*// (\d+))")) {
      const bool isPointer = line[3].length() > 0;
      EXPECT_EQ(isPointer, line[1].matched) << line[4];
      EXPECT_TRUE(!isPointer || body.find(" " + line[1].str() + ";") != std::string::npos) << line[1];
      const std::string typeName = std::regex_replace(line[2].str(), std::regex("^ +"), "");
      const Record type = isPointer ? Record{{}, kPointerBytes, kPacking} : records.at(typeName);
      const std::size_t count = line[5].matched ? std::stoul(line[5]) : 1;
      Field field{line[4], 0, type.bytes * count};
      if (block[2] == "struct") field.offset = (record.bytes + type.alignment - 1) / type.alignment * type.alignment;
      EXPECT_EQ(field.offset, std::stoul(line[6])) << block[3] << "::" << field.name;
      record.bytes = std::max(record.bytes, field.offset + field.bytes);
      record.alignment = std::max(record.alignment, type.alignment);
      record.fields.push_back(field);
    }
    record.bytes = (record.bytes + record.alignment - 1) / record.alignment * record.alignment;
    EXPECT_EQ(record.bytes, std::stoul(block[1])) << block[3];
    declared.insert(block[3]);
    records[block[3]] = record;
  }
  std::erase_if(records, [&](const auto& entry) { return !declared.contains(entry.first); });
  return records;
}

template <typename T>
constexpr std::size_t kReferenceBytes = std::is_pointer_v<T> ? kPointerBytes : sizeof(T);

#define FIELD(record, field)                                                    \
  Field {                                                                       \
#field, offsetof(record, field), kReferenceBytes < decltype(record::field)> \
  }

std::map<std::string, std::vector<Field>> DeclaredRecords() {
  std::map<std::string, std::vector<Field>> all;
  {
    using R = tagREG_CAMPOS_RELATORIO;
    all["tagREG_CAMPOS_RELATORIO"] = {
        FIELD(R, iCod),      FIELD(R, iTamanho),     FIELD(R, cDescricao), FIELD(R, cApelido), FIELD(R, cOpcoes),
        FIELD(R, bCondicao), FIELD(R, bTotalizavel), FIELD(R, bOrdenavel), FIELD(R, cTipo),    FIELD(R, cAlinhamento)};
  }
  {
    using R = REG_ATUALIZACAO_RELATORIO;
    all["REG_ATUALIZACAO_RELATORIO"] = {FIELD(R, cNomeColuna), FIELD(R, iTamanho)};
  }
  {
    using R = tagREG_RELEXPORTACAO_ITEM;
    all["tagREG_RELEXPORTACAO_ITEM"] = {FIELD(R, cConteudo), FIELD(R, cApelido), FIELD(R, cTipo), FIELD(R, cFiller)};
  }
  {
    using R = tagREG_RELEXPORTACAO;
    all["tagREG_RELEXPORTACAO"] = {FIELD(R, cNomeArquivo),    FIELD(R, cCabDescricao),    FIELD(R, cRodapeDescricao),
                                   FIELD(R, iCabTamanho),     FIELD(R, iRodapeTamanho),   FIELD(R, iQtdeItens),
                                   FIELD(R, cCabTipoCampo),   FIELD(R, cRodapeTipoCampo), FIELD(R, cSeparadorDecimal),
                                   FIELD(R, cSeparadorCampo), FIELD(R, cVersao),          FIELD(R, cDelimitador),
                                   FIELD(R, pregItens)};
  }
  {
    using R = tagVALOR;
    all["tagVALOR"] = {FIELD(R, fValor), FIELD(R, vValor),  FIELD(R, uValor), FIELD(R, iValor),
                       FIELD(R, lValor), FIELD(R, szValor), FIELD(R, flag)};
  }
  {
    using R = tagVALOR_FILTRO;
    all["tagVALOR_FILTRO"] = {FIELD(R, valor), FIELD(R, nTipo)};
  }
  {
    using R = tagCAMPO_FILTRO;
    all["tagCAMPO_FILTRO"] = {FIELD(R, nCodigoCampo), FIELD(R, valorCampo)};
  }
  {
    using R = tagFILTRO_RELATORIO;
    all["tagFILTRO_RELATORIO"] = {FIELD(R, nQtdCampos), FIELD(R, pregValoresFiltro)};
  }
  {
    using R = tagREG_CAMPOS_RELATORIO2;
    all["tagREG_CAMPOS_RELATORIO2"] = {FIELD(R, nCodigo),        FIELD(R, nTamanho),     FIELD(R, szDescricao),
                                       FIELD(R, szApelido),      FIELD(R, szOpcoes),     FIELD(R, bPodeFiltrar),
                                       FIELD(R, bPodeTotalizar), FIELD(R, bPodeOrdenar), FIELD(R, cTipo),
                                       FIELD(R, cAlinhamento),   FIELD(R, cFiller)};
  }
  {
    using R = REG_CAMPOS_DISPONIVEIS2;
    all["REG_CAMPOS_DISPONIVEIS2"] = {FIELD(R, nQtdeCampos), FIELD(R, pregCampos)};
  }
  {
    using R = REG_RELATORIO2;
    all["REG_RELATORIO2"] = {FIELD(R, nVersao), FIELD(R, nQtdeBytes), FIELD(R, lpRelatorio)};
  }
  {
    using R = tagREG_NOME_RELATORIO2;
    all["tagREG_NOME_RELATORIO2"] = {FIELD(R, szNomeRelatorio)};
  }
  {
    using R = REG_ARRAY_RELATORIO2;
    all["REG_ARRAY_RELATORIO2"] = {FIELD(R, nQtdeRelatorios), FIELD(R, pregRelatorios)};
  }
  {
    using R = REL_CODIGO_CAMPOS_ALTERADOS;
    all["REL_CODIGO_CAMPOS_ALTERADOS"] = {FIELD(R, nCodigoAntigo), FIELD(R, nNovoCodigo)};
  }
  return all;
}

TEST(TypeLibrary, RecordsAreLaidOutAsTheHeadersDo) {
  std::map<std::string, std::vector<Field>> described;
  for (const auto& [name, record] : DescribedRecords())
    described[name] = record.fields;
  EXPECT_EQ(described, DeclaredRecords());
}

// ---- Enumerations --------------------------------------------------------------------------------------------------

#define VALUE(name) \
  { #name, name }

TEST(TypeLibrary, EnumeratorsHaveTheValuesOfTheHeaders) {
  using Values = std::map<std::string, int>;
  std::map<std::string, Values> described;
  const std::string text = Description();
  for (const std::smatch& block : Matches(text, R"(typedef enum\s*\{([^}]*)\} (\w+);)")) {
    const std::string body = block[1];
    for (const std::smatch& item : Matches(body, R"((\w+) = (\d+))"))
      described[block[2]][item[1]] = std::stoi(item[2]);
  }
  const std::map<std::string, Values> declared = {
      {"KESTOR_FlagGravacao",
       {VALUE(KESTOR_Sobreescrever), VALUE(KESTOR_NaoSobreescrever), VALUE(KESTOR_VerificarModelosDemoExcluidos)}},
      {"KESTOR_Erros",
       {VALUE(KESTOR_ARQ_NAO_EXISTE), VALUE(KESTOR_PROBLEMAS_AO_LER), VALUE(KESTOR_NAO_BUSCOU_QTDE),
        VALUE(KESTOR_ARQUIVO_JA_EXISTE), VALUE(KESTOR_PROBLEMAS_AO_GRAVAR), VALUE(KESTOR_PROBLEMAS_AO_CRIAR_ARQUIVO),
        VALUE(KESTOR_NAO_FOI_INICIALIZADO), VALUE(KESTOR_NENHUM_ARQUIVO_ENCONTRADO),
        VALUE(KESTOR_PROBLEMAS_NO_REGISTRY), VALUE(KESTOR_MODULO_DESCONHECIDO), VALUE(KESTOR_ARQ_JA_FOI_ALTERADO),
        VALUE(KESTOR_MODELO_DEMO_COM_MESMO_NOME_EXCLUIDO)}},
      {"KESTOR2_TipoDado",
       {VALUE(KESTOR_Alfanumerico), VALUE(KESTOR_Data), VALUE(KESTOR_Numerico), VALUE(KESTOR_Valor),
        VALUE(KESTOR_MesAno), VALUE(KESTOR_Conta), VALUE(KESTOR_Historico), VALUE(KESTOR_Opcoes)}},
      {"KESTOR2_Alinhamento", {VALUE(KESTOR_Esquerda), VALUE(KESTOR_Direita), VALUE(KESTOR_Centro)}},
  };
  EXPECT_EQ(described, declared);
}

// ---- Interfaces and classes ----------------------------------------------------------------------------------------

template <typename T>
struct TypeName;
template <typename T>
struct TypeName<T*> {
  static std::string Text() { return TypeName<T>::Text() + "*"; }
};

#define TYPE_NAME(type, text)                  \
  template <>                                  \
  struct TypeName<type> {                      \
    static std::string Text() { return text; } \
  }
TYPE_NAME(BSTR, "BSTR");
TYPE_NAME(LONG, "long");
TYPE_NAME(USHORT, "unsigned short");
TYPE_NAME(unsigned char, "unsigned char");
TYPE_NAME(char, "char");
TYPE_NAME(tagREG_CAMPOS_RELATORIO, "tagREG_CAMPOS_RELATORIO");
TYPE_NAME(REG_ATUALIZACAO_RELATORIO, "REG_ATUALIZACAO_RELATORIO");
TYPE_NAME(tagREG_RELEXPORTACAO, "tagREG_RELEXPORTACAO");
TYPE_NAME(tagFILTRO_RELATORIO, "tagFILTRO_RELATORIO");
TYPE_NAME(REG_CAMPOS_DISPONIVEIS2, "REG_CAMPOS_DISPONIVEIS2");
TYPE_NAME(REG_RELATORIO2, "REG_RELATORIO2");
TYPE_NAME(REG_ARRAY_RELATORIO2, "REG_ARRAY_RELATORIO2");
TYPE_NAME(REL_CODIGO_CAMPOS_ALTERADOS, "REL_CODIGO_CAMPOS_ALTERADOS");

struct Method {
  std::string name;
  std::vector<std::string> types;
  bool operator==(const Method&) const = default;
};
using Slots = std::map<std::size_t, Method>;

// The compilers' common object model keeps a virtual method's place in the table of methods in a pointer to it.
template <typename Interface, typename... Arguments>
Slots::value_type Declared(const char* name, HRESULT (Interface::*method)(Arguments...)) {
  std::size_t place = 0;
  static_assert(sizeof method >= sizeof place);
  std::memcpy(&place, &method, sizeof place);
  return {place / sizeof(void*), {name, {TypeName<Arguments>::Text()...}}};
}
#define METHOD(name) Declared(#name, &I::name)

Slots DescribedMethods(const std::string& interfaceBody) {
  Slots slots;
  std::size_t slot = 3;  // behind those of IUnknown
  for (const std::smatch& method : Matches(interfaceBody, R"(HRESULT (\w+)\(([^;]*)\);)")) {
    Method& described = slots[slot++];
    described.name = method[1];
    const std::string parameters = method[2];
    for (const std::smatch& one : Matches(parameters, R"(\[([^\]]*)\] ([a-zA-Z_0-9 ]+?)(\**) (\w+)(?=,|$))")) {
      described.types.push_back((one[2] == "int" ? "long" : one[2].str()) + one[3].str());
      const std::string attributes = one[1];
      EXPECT_EQ(attributes.find("out") != std::string::npos || attributes.find("size_is") != std::string::npos ||
                    one[2] == "tagFILTRO_RELATORIO",
                one[3].length() > 0)
          << method[1] << " " << one[4];
      for (const std::smatch& extent : Matches(attributes, R"(size_is\((\w+)\))")) {
        EXPECT_TRUE(std::regex_search(parameters, std::regex(R"(\[in\] [\w ]+ )" + extent[1].str() + ",")));
      }
    }
  }
  return slots;
}

struct Described {
  std::string identity;
  Slots methods;
};

TEST(TypeLibrary, InterfacesHaveTheIdentitiesSlotsAndArgumentsOfTheHeaders) {
  std::map<std::string, Described> described;
  const std::string text = Description();
  for (const std::smatch& block :
       Matches(text, R"(\[\s*object,\s*uuid\(([-0-9A-F]+)\)\s*\]\s*interface (\w+) : IUnknown\s*\{([^}]*)\};)")) {
    described[block[2]] = {"{" + block[1].str() + "}", DescribedMethods(block[3])};
  }
  ASSERT_EQ(described.size(), 3u);
  EXPECT_EQ(described["IZNPL_Rel"].identity, GuidText(IID_IZNPL_Rel));
  EXPECT_EQ(described["IZNPL_Relatorio2"].identity, GuidText(IID_IZNPL_Relatorio2));
  EXPECT_EQ(described["IZNPL_RelConverte"].identity, GuidText(IID_IZNPL_RelConverte));
  {
    using I = IZNPL_Rel;
    const Slots declared = {METHOD(Inicializa),
                            METHOD(BuscaCampos),
                            METHOD(BuscaQdeCamposArquivo),
                            METHOD(BuscaRelatorio),
                            METHOD(BuscaTamanhoRelatorio),
                            METHOD(GravaRelatorio),
                            METHOD(BuscaNomeRelatoriosExistentes),
                            METHOD(ExcluiRelatorio),
                            METHOD(AtualizaRelatorio),
                            METHOD(GravaRelatorioSemCallBack),
                            METHOD(GravaDadosExportacaoDoRelatorio),
                            METHOD(BuscaDadosExportacaoDoRelatorio),
                            METHOD(LeFiltroRelatorio),
                            METHOD(GravaFiltroRelatorio)};
    EXPECT_EQ(described["IZNPL_Rel"].methods, declared);
  }
  {
    using I = IZNPL_Relatorio2;
    const Slots declared = {METHOD(Inicializa),
                            METHOD(GetCamposDisponiveis),
                            METHOD(Le),
                            METHOD(Grava),
                            METHOD(GetNomeRelatorios),
                            METHOD(ExcluiRelatorio),
                            METHOD(GetRelatorioPadrao),
                            METHOD(SetRelatorioPadrao),
                            METHOD(GetNomeRelatoriosDemonstracaoExcluidos)};
    EXPECT_EQ(described["IZNPL_Relatorio2"].methods, declared);
  }
  {
    using I = IZNPL_RelConverte;
    EXPECT_EQ(described["IZNPL_RelConverte"].methods, (Slots{METHOD(AlteraCodigoCampos)}));
  }
}

TEST(TypeLibrary, ClassesHaveTheIdentitiesOfTheHeaders) {
  std::set<std::vector<std::string>> described;
  const std::string text = Description();
  for (const std::smatch& block :
       Matches(text, R"re(uuid\(([-0-9A-F]+)\),\s*helpstring\("([^"]*)"\)\s*\]\s*coclass (\w+)\s*\{([^}]*)\};)re")) {
    const std::string body = block[4];
    for (const std::smatch& line : Matches(body, R"(\[default\] interface (\w+);)")) {
      described.insert({block[3], "{" + block[1].str() + "}", block[2], line[1]});
    }
  }
  const std::set<std::vector<std::string>> declared = {
      {"ZNPL_Rel", GuidText(CLSID_ZNPL_Rel), "ZNPL_Rel Class", "IZNPL_Rel"},
      {"ZNPL_Relatorio2", GuidText(CLSID_ZNPL_Relatorio2), "ZNPLRelatorio2 Class", "IZNPL_Relatorio2"},
      {"ZNPL_RelConverte", GuidText(CLSID_ZNPL_RelConverte), "ZNPL_RelConverte Class", "IZNPL_RelConverte"}};
  EXPECT_EQ(described, declared);
}

TEST(TypeLibrary, LoadsWithItsOwnIdentity) {
  const std::string path = KESTOR_TYPE_LIBRARY;
  ComPtr<ITypeLib> library;
  ASSERT_EQ(LoadTypeLib(std::u16string(path.begin(), path.end()).c_str(), library.Out()), S_OK);
  TLIBATTR* attributes = nullptr;
  ASSERT_EQ(library->GetLibAttr(&attributes), S_OK);
  EXPECT_EQ(attributes->guid, LIBID_KESTORLib);
  EXPECT_EQ(attributes->lcid, 1033u);
  EXPECT_EQ(attributes->wMajorVerNum, 1);
  EXPECT_EQ(attributes->wMinorVerNum, 0);
  library->ReleaseTLibAttr(attributes);
  BSTR name = nullptr;
  BSTR help = nullptr;
  ASSERT_EQ(library->GetDocumentation(&name, &help), S_OK);
  EXPECT_EQ(std::u16string(name), u"KESTORLib");
  EXPECT_EQ(std::u16string(help), u"KESTOR 1.0 Type Library");
  SysFreeString(name);
  SysFreeString(help);
}

}  // namespace
