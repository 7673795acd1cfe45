// The field catalogue, as both generations hand it out.
#include <cstring>

#include "legacy_fixture.h"
#include "platform/files/files.h"

namespace {

using Field = tagREG_CAMPOS_RELATORIO;
using Field2 = tagREG_CAMPOS_RELATORIO2;
using support::WriteFile;

// The record is packed: nothing may refer to its numbers in place.
std::int32_t CodeOf(const Field& field) {
  return field.iCod;
}

// A line with its texts in the catalogue's columns.
std::string Line(const std::string& code, const std::string& description, const std::string& alias, char alignment,
                 const std::string& width, char filter, char type, char total, char sort, const std::string& options) {
  std::string line(69, ' ');
  line.replace(0, code.size(), code);
  line.replace(6, description.size(), description);
  line.replace(27, alias.size(), alias);
  line[49] = alignment;
  line.replace(52, width.size(), width);
  line[57] = filter;
  line[60] = type;
  line[63] = total;
  line[66] = sort;
  return line + options;
}

class CatalogueTest : public LegacyTest {
 protected:
  // The fields of the first generation; the result in `*result`.
  std::vector<Field> Fields(IZNPL_Rel& rel, std::string* result = nullptr) {
    LONG count = -1;
    const HRESULT searched = rel.BuscaQdeCamposArquivo(&count);
    if (result != nullptr) *result = kestor::ResultCode(searched);
    if (searched != S_OK) return {};
    std::vector<Field> fields(static_cast<std::size_t>(count));
    EXPECT_EQ(rel.BuscaCampos(count, fields.data()), S_OK);
    return fields;
  }

  std::vector<Field2> Fields2(IZNPL_Relatorio2& store, std::string* result = nullptr) {
    REG_CAMPOS_DISPONIVEIS2* available = nullptr;
    const HRESULT asked = store.GetCamposDisponiveis(&available);
    if (result != nullptr) *result = kestor::ResultCode(asked);
    if (asked != S_OK) return {};
    const TaskBlock<REG_CAMPOS_DISPONIVEIS2> owner(available);
    const TaskBlock<Field2> fields(available->pregCampos);
    return {fields.get(), fields.get() + available->nQtdeCampos};
  }
};

template <typename Record>
void ExpectRecords(const std::vector<Record>& found, const std::vector<Record>& expected) {
  ASSERT_EQ(found.size(), expected.size());
  for (std::size_t i = 0; i < found.size(); ++i)
    EXPECT_EQ(std::memcmp(&found[i], &expected[i], sizeof expected[i]), 0) << i;
}

TEST_F(CatalogueTest, ColumnsOfBothGenerations) {
  WriteFile(Catalogue(),
            Line("  12", " Conta cont\341bil  ", "Conta", 'e', "15", 'S', 'C', 's', 'N', "Sim|N\343o  ") + "\r\n" +
                Line("70000", "Valor", "Valor", 'D', "99999", 's', 'V', 'S', 'S', std::string(300, 'o')) + "\r\n");
  std::vector<Field> fields = {{12, 15, " Conta cont\341bil", "Conta", "Sim|N\343o", 1, 0, 0, 'C', 'e'},
                               {70000, 99999, "Valor", "Valor", "", 0, 1, 1, 'V', 'D'},
                               {}};
  std::vector<Field2> fields2 = {{12, 15, " Conta cont\341bil", "Conta", "Sim|N\343o", 1, 1, 0, 'C', 'E', 0},
                                 {4464, 34463, "Valor", "Valor", "", 1, 1, 1, 'V', 'D', 0},
                                 {}};
  std::memset(fields[1].cOpcoes, 'o', 199);
  std::memset(fields2[1].szOpcoes, 'o', 199);
  ExpectRecords(Fields(*ReadyRel()), fields);
  ExpectRecords(Fields2(*ReadyStore()), fields2);
}

TEST_F(CatalogueTest, LinesAsTheyCome) {
  struct Case {
    std::string content;
    std::vector<std::int32_t> codes;
  };
  const std::vector<Case> cases = {
      {"", {0}},
      {"1\r\n2\r\n", {1, 2, 0}},
      {"1\r\n2", {1, 0}},  // the last byte stands where the CR would be
      {"1\r\n23\n", {1, 2, 0}},
      {"\n\n\n", {0, 0, 0, 0}},
      {"\n1\r\n", {0, 1, 0}},
      {std::string("1\r\n2\0\r\n3\r\n", 10), {1}},
      {std::string("\0001\r\n", 4), {}},
      {" +7x\r\n -8 \r\n+-9\r\n", {7, -8, 0, 0}},
      {"999999\r\n", {999999, 0}},
      {std::string(1 << 20, '1') + "\r\n5\r\n", {111111, 5, 0}},
  };
  for (const Case& c : cases) {
    WriteFile(Catalogue(), c.content);
    std::vector<std::int32_t> codes;
    for (const Field& field : Fields(*ReadyRel()))
      codes.push_back(CodeOf(field));
    EXPECT_EQ(codes, c.codes) << c.content.substr(0, 20);
    EXPECT_EQ(Fields2(*ReadyStore()).size(), c.codes.size());
  }

  // A line ends anywhere: what it does not reach is zero.
  WriteFile(Catalogue(), Line("1", "Descricao", "Apelido", 'E', "10", 'S', 'A', 'S', 'S', "x").substr(0, 40) + "\r\n");
  const Field cut = Fields(*ReadyRel())[0];
  EXPECT_STREQ(cut.cApelido, "Apelido");
  EXPECT_EQ(cut.iTamanho + cut.bCondicao + cut.cTipo + cut.cAlinhamento, 0);

  // More lines than the newer list can tell of.
  WriteFile(Catalogue(), std::string(70000, '\n'));
  EXPECT_EQ(Fields(*ReadyRel()).size(), 70001U);
  EXPECT_EQ(Fields2(*ReadyStore()).size(), 65535U);
  WriteFile(Catalogue(), std::string(1 << 20, '\n'));
  std::string result;
  Fields(*ReadyRel(), &result);
  EXPECT_EQ(result, "0x8007000E");
}

TEST_F(CatalogueTest, WhereItLies) {
  const auto codeFrom = [this](const std::string& file, const std::u16string& module, const std::u16string& component) {
    WriteFile(Module() / file, "7\r\n");
    auto rel = NewRel();
    EXPECT_EQ(Initialise(*rel, module, component), "0x00000000");
    const std::vector<Field> fields = Fields(*rel);
    std::filesystem::remove(Module() / file);
    return fields.empty() ? 0 : CodeOf(fields[0]);
  };
  EXPECT_EQ(codeFrom("XCT01.REL", u"CT", u"01"), 7);
  EXPECT_EQ(codeFrom("xct0123.rel", u"CT", u"012345"), 0) << "three characters of the component";
  EXPECT_EQ(codeFrom("XCT012.REL", u"CT", u"012345"), 7);
  EXPECT_EQ(codeFrom("XCT0.1", u"CT", u"0.1"), 7) << "a dot in a code is an extension";

  WriteFile(Module() / "XCT012345.REL", "9\r\n");
  EXPECT_EQ(Fields2(*ReadyStore(u"012345")).size(), 2U) << "the newer store takes the codes whole";
}

TEST_F(CatalogueTest, CallsInAndOutOfOrder) {
  WriteFile(Catalogue(), "1\r\n2\r\n3\r\n");
  auto rel = NewRel();
  LONG count = 7;
  Field fields[4] = {};
  EXPECT_EQ(kestor::ResultCode(rel->BuscaQdeCamposArquivo(&count)), "0x80040007");
  EXPECT_EQ(kestor::ResultCode(rel->BuscaCampos(0, nullptr)), "0x80040003");
  EXPECT_EQ(Initialise(*rel, u"CT", u"01"), "0x00000000");

  ASSERT_EQ(rel->BuscaQdeCamposArquivo(&count), S_OK);
  EXPECT_EQ(rel->BuscaCampos(-1, fields), E_INVALIDARG);
  EXPECT_EQ(rel->BuscaCampos(5, fields), E_INVALIDARG);
  EXPECT_EQ(rel->BuscaCampos(2, fields), S_OK);
  EXPECT_EQ(CodeOf(fields[1]), 2);
  EXPECT_EQ(CodeOf(fields[2]), 0);
  EXPECT_EQ(kestor::ResultCode(rel->BuscaCampos(2, fields)), "0x80040003");

  ASSERT_EQ(rel->BuscaQdeCamposArquivo(&count), S_OK);
  EXPECT_EQ(Initialise(*rel, u"CT", u"01"), "0x00000000");
  EXPECT_EQ(kestor::ResultCode(rel->BuscaCampos(2, fields)), "0x80040003");

  // A catalogue that cannot be opened leaves what is pending; one that can takes a model's content away.
  EXPECT_EQ(Write(*rel, u"M", "content"), "0x00000000");
  ASSERT_EQ(rel->BuscaTamanhoRelatorio(support::Text(u"M"), &count), S_OK);
  {
    CFile held;
    ASSERT_TRUE(held.Open("D:\\Contabil.v2\\XCT01.REL", CFile::modeRead | CFile::shareDenyNone));
    EXPECT_EQ(kestor::ResultCode(rel->BuscaQdeCamposArquivo(&count)), "0x80040001");
    EXPECT_EQ(count, 0);
    std::string result;
    Fields2(*ReadyStore(), &result);
    EXPECT_EQ(result, "0x80040001");
  }
  unsigned char content[7];
  EXPECT_EQ(rel->BuscaRelatorio(7, content), S_OK);
  ASSERT_EQ(rel->BuscaTamanhoRelatorio(support::Text(u"M"), &count), S_OK);
  ASSERT_EQ(rel->BuscaQdeCamposArquivo(&count), S_OK);
  EXPECT_EQ(kestor::ResultCode(rel->BuscaRelatorio(7, content)), "0x80040003");
}

}  // namespace
