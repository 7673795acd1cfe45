// What is understood of the content of first-generation models, whole and damaged.
#include <gtest/gtest.h>
#include <map>
#include <sstream>

#include "common/zn_array.h"
#include "migration/valor_fixo.h"
#include "migration/valores_rel.h"
#include "random_model.h"

namespace {

using namespace kestor;

// Everything that is told, in one text. Reading it must not go beyond the content.
std::string Told(const ValoresRel& v) {
  std::ostringstream told;
  told << v.textoCabecalho << '|' << v.textoRodape << '|' << v.textoFinal;
  for (const std::int32_t number : {v.dataInicial, v.dataFinal, v.somenteTotais, v.numeracao, v.reservado, v.periodo,
                                    v.logo, v.margemEsquerda, v.margemSuperior, v.primeiraPagina})
    told << '|' << number;
  told << '|' << v.fonteCabecalho << v.tamanhoFonteCabecalho << '|' << v.fonteColuna << v.tamanhoFonteColuna << '|'
       << v.fonteDetalhe << v.tamanhoFonteDetalhe << '|' << v.fonteRodape << v.tamanhoFonteRodape;
  for (std::size_t i = 0; i < v.colunas.quantidade; ++i)
    told << "|c" << v.Coluna(i).codigo << ' ' << v.Coluna(i).tamanho << v.Coluna(i).alinhamento;
  for (std::size_t i = 0; i < v.filtros.quantidade; ++i) {
    const FiltroRel filter = v.Filtro(i);
    told << "|f" << filter.codigo << ' ' << filter.conector << ' ' << filter.operador << ' ' << filter.valor;
  }
  for (std::size_t i = 0; i < v.ordenacoes.quantidade; ++i)
    told << "|o" << v.Ordenacao(i).codigo << ' ' << v.Ordenacao(i).separador;
  for (std::size_t i = 0; i < v.subtotais.quantidade; ++i)
    told << "|s" << v.Subtotal(i);
  for (std::size_t i = 0; i < v.totaisGerais.quantidade; ++i)
    told << "|t" << v.TotalGeral(i);
  return told.str();
}

// The same from a model as it was written.
std::string Expected(const LegacyModel& m, int layout) {
  const auto number = [](std::uint32_t value) { return static_cast<std::int32_t>(value); };
  std::ostringstream told;
  told << m.header << '|' << m.footer << '|' << (layout == 3 ? m.closing : "") << '|' << m.firstDate << '|'
       << m.lastDate << '|' << number(m.totalsOnly) << '|' << number(m.bySheet) << '|' << number(m.reserved) << '|'
       << (layout == 0 ? 0 : number(m.period)) << '|' << (layout < 2 ? 0 : number(m.logo)) << '|' << m.left << '|'
       << m.top << '|' << (layout == 0 || layout == 3 ? number(m.firstPage) : number(m.firstPage & 0xFFFF));
  for (const LegacyModel::Font& font : {m.headerFont, m.columnFont, m.detailFont, m.footerFont}) {
    const bool named = layout == 2 || (layout == 3 && !font.name.empty());
    told << '|' << (named ? font.name : "MS Sans Serif") << (layout < 2 || font.size == 0 ? 10 : font.size);
  }
  for (const LegacyModel::Column& column : m.columns)
    told << "|c" << column.code << ' ' << number(column.width) << column.alignment;
  for (const LegacyModel::Filter& filter : m.filters)
    told << "|f" << number(filter.code) << ' ' << number(filter.connector) << ' ' << number(filter.comparison) << ' '
         << filter.value;
  for (const LegacyModel::Key& key : m.keys)
    told << "|o" << number(key.code) << ' ' << number(key.separator);
  for (const LegacyModel::Total code : m.subtotals)
    told << "|s" << code;
  for (const LegacyModel::Total code : m.totals)
    told << "|t" << code;
  return told.str();
}

TEST(ContentTest, RandomModelsOfEachLayoutWholeAndCut) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    for (int layout = 0; layout <= 3; ++layout) {
      SCOPED_TRACE(std::to_string(seed) + " in layout " + std::to_string(layout));
      const LegacyModel model = seed == 0 ? LegacyModel() : RandomModel(seed).Model();
      const LegacyContent content(model, layout);
      ValoresRel whole;
      ASSERT_TRUE(DecodificaConteudo(content.bytes, whole));
      ASSERT_EQ(Told(whole), Expected(model, layout));
      for (std::size_t size = 0; seed < 10 && size < content.bytes.size(); ++size) {
        const std::vector<char> cut(content.bytes.begin(), content.bytes.begin() + static_cast<std::ptrdiff_t>(size));
        ValoresRel values;
        ASSERT_EQ(DecodificaConteudo({cut.data(), size}, values), content.ends.count(size) != 0) << size;
        Told(values);
        ASSERT_TRUE(size < 88 || values.dataFinal == whole.dataFinal) << size;
      }
    }
  }
}

// Counts, lengths and everything else become the largest numbers in turn.
TEST(ContentTest, HostileNumbers) {
  const LegacyModel model = RandomModel(1).Model();
  for (int layout = 0; layout <= 3; ++layout) {
    const std::string bytes = LegacyContent(model, layout).bytes;
    for (std::size_t at = 4; at + 4 <= bytes.size(); ++at) {
      for (const char value : {'\xFF', '\x7F', '\0'}) {
        ValoresRel values;
        const std::string hostile = std::string(bytes).replace(at, 4, 4, value);
        DecodificaConteudo(hostile, values);
        EXPECT_LT(Told(values).size(), 30 * hostile.size());
      }
    }
  }
}

// The first byte and, after a 1, the number of the version tell the layout.
TEST(ContentTest, Versions) {
  LegacyModel model;
  model.footer = "Rodape";
  for (const auto& [version, footer] : std::map<char, std::string>{{0, "Rodape"}, {1, "Rodape"}, {4, ""}}) {
    std::string bytes = LegacyContent(model, 1).bytes;
    bytes[2] = version;
    ValoresRel values;
    EXPECT_EQ(DecodificaConteudo(bytes, values), version != 4);
    EXPECT_EQ(values.textoRodape, footer);
  }
  model.header = "\x01\x02\x03";
  ValoresRel values;
  EXPECT_FALSE(DecodificaConteudo(LegacyContent(model, 0).bytes, values));
}

TEST(FixedValueTest, AmountsAndDigits) {
  const std::map<std::string, std::string> amounts = {{"1,234.56", "1.234,56"},
                                                      {"1.234,56", "1.234,56"},
                                                      {"-1234.5", "-1.234,5"},
                                                      {"1234", "1.234"},
                                                      {"0,5", "0,5"},
                                                      {"", ""},
                                                      {"  -", "-"},
                                                      {"5.", "5,"},
                                                      {",5", ",5"},
                                                      {"1234567,", "1.234.567"},
                                                      {"000,10", "0,10"},
                                                      {"-100000", "-100.000"},
                                                      {"R$ 12,5-", "12,5"},
                                                      {"0001234", "1.234"},
                                                      {"1.234.567", "1.234,567"},
                                                      {"000", "0"}};
  for (const auto& [text, amount] : amounts)
    EXPECT_EQ(FormataValor(text), amount) << text;
  EXPECT_EQ(SomenteDigitos("12.345-6"), "123456");
}

TEST(ArrayTest, GrowsInStepsOrNotAtAll) {
  ZN::CArray<int> numbers(3);
  for (int i = 0; i < 7; ++i)
    numbers.Add(i == 0 ? 41 : numbers[0]);
  EXPECT_EQ(numbers.Capacity(), 9U);
  EXPECT_EQ(std::vector<int>(numbers.begin(), numbers.end()), std::vector<int>(7, 41));

  ZN::CArray<int> tooLarge(SIZE_MAX);
  try {
    tooLarge.Add(1);
    FAIL();
  } catch (const ZN::CException& failure) {
    EXPECT_STREQ(failure.Mensagem(), "ZN::CArray::Add - mem\xF3ria insuficiente");
    EXPECT_STREQ(failure.Fonte(), "common\\array");
    EXPECT_EQ(failure.Codigo(), 0U);
  }
  EXPECT_EQ(tooLarge.Count(), 0U);
  const ZN::CException cut(5, std::string(150, 'm').c_str(), std::string(260, 'f').c_str(), 1);
  EXPECT_EQ(cut.Mensagem() + std::string(cut.Fonte()), std::string(149, 'm') + std::string(259, 'f'));
}

}  // namespace
