// Random models: the expected documents are computed from what was written, independently of how the server reads it.
#include <algorithm>
#include <map>
#include <random>

#include "conversion_fixture.h"
#include "migration/valor_fixo.h"
#include "migration/valores_rel.h"

namespace {

using namespace kestor;

// Models with all kinds of columns: known and unknown codes, fixed columns, negative codes.
class RandomModel {
 public:
  explicit RandomModel(unsigned seed) : random_(seed) {}

  LegacyModel Model() {
    LegacyModel m;
    for (std::string* text : {&m.header, &m.footer, &m.closing})
      *text = Text(40);
    for (std::uint32_t* number : {&m.firstDate, &m.lastDate, &m.left, &m.top})
      *number = Below(65536);
    for (std::uint32_t* number : {&m.totalsOnly, &m.bySheet, &m.reserved, &m.firstPage, &m.period})
      *number = Below(3) * Number();
    m.logo = Below(256) - 128;
    for (LegacyModel::Font& font : m.fonts)
      font = {Text(100), Below(3) * 30000};
    for (unsigned n = Below(6); n > 0; --n)
      m.columns.push_back({Code(), Number(), "EDC"[Below(3)]});
    for (unsigned n = Below(4); n > 0; --n)
      m.filters.push_back({100 + Below(30), Below(2), Below(8), Text(40)});
    for (unsigned n = Below(9); n > 0; --n)
      m.keys.push_back({Number(), Below(4)});
    for (auto* totals : {&m.subtotals, &m.totals}) {
      const unsigned codes = Below(8) == 0 ? 300 : 6;
      for (unsigned n = Below(codes); n > 0; --n)
        totals->push_back(static_cast<LegacyModel::Total>(100 + Below(codes)));
    }
    return m;
  }

 private:
  unsigned Below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  std::uint32_t Number() { return static_cast<std::uint32_t>(random_()) | 1; }
  std::uint32_t Code() {
    const std::uint32_t codes[] = {205, 310, 100, 311, 0xFFFFFFFB, 1 + Below(99)};
    return codes[Below(6)];
  }
  // Returns a text of any bytes but NUL, which may fill its field. It does not start with the mark of the later
  // layouts.
  std::string Text(unsigned width) {
    std::string text;
    for (unsigned n = Below(3) == 0 ? width : Below(width); n > 0; --n)
      text += static_cast<char>(2 + Below(254));
    return text;
  }

  std::mt19937 random_;
};

// Returns the document that a model must become.
std::string Expected(const LegacyModel& m, int layout) {
  const auto isFlagged = [](std::uint32_t n) { return std::to_string(static_cast<std::int32_t>(n)).starts_with("1"); };
  CDocRelatorio d;
  d.nome = "M";
  d.dataInicial = static_cast<std::uint16_t>(m.firstDate);
  d.dataFinal = static_cast<std::uint16_t>(m.lastDate);
  CSecaoImpressao& page = d.impressao;
  page.margemEsquerda = static_cast<float>(m.left) * 0.01F;
  page.margemSuperior = static_cast<float>(m.top) * 0.01F;
  page.paginaInicial = static_cast<std::int32_t>(layout == 1 || layout == 2 ? m.firstPage & 0xFFFF : m.firstPage);
  page.tipoNumeracao = m.bySheet != 0 ? numeracaoFolha : numeracaoPagina;
  page.cabecalho.texto = m.header;
  page.cabecalho.periodo = layout != 0 && isFlagged(m.period);
  page.cabecalho.logotipo = layout >= 2 && isFlagged(m.logo);
  page.detalhe.textoFinal = layout == 3 ? m.closing : "";
  page.rodape.texto = m.footer;
  const std::pair<std::string&, std::int32_t&> fonts[] = {{page.cabecalho.fonte, page.cabecalho.tamanhoFonte},
                                                          {page.detalhe.fonteColuna, page.detalhe.tamanhoFonteColuna},
                                                          {page.detalhe.fonteDetalhe, page.detalhe.tamanhoFonteDetalhe},
                                                          {page.rodape.fonte, page.rodape.tamanhoFonte}};
  for (std::size_t i = 0; i < 4 && layout >= 2; ++i) {
    if (layout == 2 || !m.fonts[i].name.empty()) fonts[i].first = m.fonts[i].name;
    if (m.fonts[i].size != 0) fonts[i].second = static_cast<std::int32_t>(m.fonts[i].size);
  }

  const std::map<std::uint32_t, std::pair<const char*, char>> fields = {{205, {"Valor", 'V'}},
                                                                        {310, {"Data & hora", 'D'}}};
  std::uint16_t fixed = 0;
  for (const auto& [code, width, alignment] : m.columns) {
    const bool isFixed = code < 100;
    if (!isFixed && !fields.contains(code)) continue;
    const auto [title, type] = isFixed ? std::pair("", 'A') : fields.at(code);
    d.camposEscolhidos.campos.push_back({isFixed ? ++fixed : static_cast<std::uint16_t>(code), title, "",
                                         static_cast<std::int32_t>(width), alignment, type, isFixed, 0});
  }
  d.ordenacao.somenteTotais = isFlagged(m.totalsOnly);
  for (const auto& [code, separator] : m.keys)
    d.ordenacao.campos.push_back({static_cast<std::uint16_t>(code), static_cast<std::int32_t>(separator % 3)});
  auto& sums = d.ordenacao.totalizacoes;
  for (const auto& [codes, wanted] :
       {std::pair(&m.subtotals, &CampoTotalizacao::naQuebra), std::pair(&m.totals, &CampoTotalizacao::geral)}) {
    for (const LegacyModel::Total code : *codes) {
      auto sum = std::find_if(sums.begin(), sums.end(), [&](const auto& each) { return each.codigo == code; });
      if (sum == sums.end()) sum = sums.insert(sum, {code, false, false});
      (*sum).*wanted = true;
    }
  }
  constexpr Operador kOperators[] = {operadorIgual,      operadorDiferente,  operadorMaior, operadorMenor,
                                     operadorMaiorIgual, operadorMenorIgual, operadorIgual, operadorIgual};
  for (const auto& [code, connector, comparison, value] : m.filters) {
    d.filtro.condicoes.push_back(
        {static_cast<std::uint16_t>(code), value, kOperators[comparison], connector != 0 ? comparadorE : comparadorOu});
  }
  d.exportacao.cabecalho.tamanho = 10;
  d.exportacao.rodape.tamanho = 10;
  return Content(d);
}

TEST_F(ConversionTest, RandomModelsBecomeWhatTheyWere) {
  constexpr unsigned kModels = 160;
  const auto name = [](unsigned seed) { return "M" + std::to_string(seed); };
  const auto modelOf = [](unsigned seed) { return seed < 4 ? LegacyModel() : RandomModel(seed).Model(); };
  const auto layoutOf = [](unsigned seed) { return static_cast<int>(seed % 4); };
  for (unsigned seed = 0; seed < kModels; ++seed)
    WriteModel(name(seed), modelOf(seed), layoutOf(seed));
  ASSERT_EQ(Initialise2(), "0x00000000");
  for (unsigned seed = 0; seed < kModels; ++seed) {
    SCOPED_TRACE(std::to_string(seed) + " in layout " + std::to_string(layoutOf(seed)));
    CDocRelatorio document;
    ASSERT_TRUE(Load(document, support::ReadFile(File(name(seed), ".RXL")).substr(2)));
    EXPECT_EQ(document.nome, name(seed));
    document.nome = "M";
    EXPECT_EQ(Content(document), Expected(modelOf(seed), layoutOf(seed)));
  }
}

// Returns whether the content is complete. Requires that everything found lies within the content in any case.
bool Decode(std::string_view content) {
  ValoresRel values;
  const bool isWhole = DecodificaConteudo(content, values);
  for (const SecaoRel& section :
       {values.colunas, values.filtros, values.ordenacoes, values.subtotais, values.totaisGerais})
    EXPECT_LE(section.quantidade, section.largura == 0 ? 0 : section.registros.size() / section.largura);
  return isWhole;
}

// Contents that end anywhere, and contents in which each number in turn has its largest value.
TEST(ContentTest, CutAndHostileContents) {
  for (unsigned seed = 0; seed < 10; ++seed) {
    for (int layout = 0; layout <= 3; ++layout) {
      SCOPED_TRACE(std::to_string(seed) + " in layout " + std::to_string(layout));
      const LegacyContent content(RandomModel(seed).Model(), layout);
      for (std::size_t size = 0; size <= content.bytes.size(); ++size) {
        const std::vector<char> cut(content.bytes.data(), content.bytes.data() + size);
        ASSERT_EQ(Decode({cut.data(), size}), content.ends.contains(size)) << size;
      }
      for (std::size_t at = 4; at + 4 <= content.bytes.size(); ++at) {
        for (const char value : {'\xFF', '\x7F', '\0'})
          Decode(std::string(content.bytes).replace(at, 4, 4, value));
      }
    }
  }
}

TEST(FixedValueTest, Amounts) {
  for (const std::string row :
       {"1,234.56=1.234,56", "1.234,56=1.234,56", "1.234.567=1.234,567", "0,5=0,5", "=", "  -=-", "5.=5,", ",5=,5",
        "1234567,=1.234.567", "000,10=0,10", "-100000=-100.000", "R$ 12,5-=12,5", "0001234=1.234"}) {
    const std::size_t middle = row.find('=');
    EXPECT_EQ(FormataValor(row.substr(0, middle)), row.substr(middle + 1)) << row;
  }
}

}  // namespace
