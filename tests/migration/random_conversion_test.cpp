// Random models with random catalogues and export settings: what their documents must hold is computed here from what
// was written, apart from how the server reads it.
#include <algorithm>
#include <map>

#include "conversion_fixture.h"
#include "random_model.h"

namespace {

using namespace kestor;

struct Field {
  std::string alias;
  char type;
};

// A model in which columns meet the catalogue and the settings: known and unknown codes, fixed columns, negative codes.
class RandomInstallation : public RandomModel {
 public:
  using RandomModel::RandomModel;

  LegacyModel ModelOfFields() {
    LegacyModel model = Model();
    for (LegacyModel::Column& column : model.columns)
      column.code = Code();
    for (LegacyModel::Filter& filter : model.filters)
      filter.code = static_cast<std::uint32_t>(100 + Below(30));
    for (auto* totals : {&model.subtotals, &model.totals}) {
      for (LegacyModel::Total& code : *totals)
        code = static_cast<LegacyModel::Total>(100 + Below(6));
    }
    // A run of layout 0 cannot hold what begins with zeros; texts come back without what XML has no place for.
    std::erase_if(model.columns, [](const auto& column) { return column.code == 0; });
    return model;
  }

  std::map<int, Field> Catalogue() {
    std::map<int, Field> fields;
    for (int code = 100; code < 120; ++code) {
      if (Below(4) != 0) fields[code] = {"F" + std::to_string(Below(1000)), "ADNVdCHX"[Below(8)]};
    }
    return fields;
  }

  std::vector<tagREG_RELEXPORTACAO_ITEM> Items() {
    std::vector<tagREG_RELEXPORTACAO_ITEM> items(Below(7));
    for (tagREG_RELEXPORTACAO_ITEM& item : items) {
      ("12.3" + std::to_string(Below(100))).copy(item.cConteudo, sizeof item.cConteudo - 1);
      ("I" + std::to_string(Below(100))).copy(item.cApelido, sizeof item.cApelido - 1);
      item.cTipo = "AFNVX"[Below(5)];
    }
    return items;
  }

 private:
  std::int32_t Code() {
    const int kind = static_cast<int>(Below(6));
    if (kind == 0) return -5;
    return static_cast<std::int32_t>(kind < 3 ? 1 + Below(99) : 100 + Below(25));
  }
};

std::string FixedContent(const tagREG_RELEXPORTACAO_ITEM& item) {
  std::string text = item.cConteudo;  // "12.3" and one or two digits
  if (item.cTipo == 'A' || item.cTipo == 'F') return text;
  if (item.cTipo == 'N') return text.substr(0, 2) + text.substr(3);
  return item.cTipo == 'V' ? text.substr(0, 2) + "," + text.substr(3) : "";
}

std::string Columns(const LegacyModel& model, const std::map<int, Field>& catalogue,
                    const std::vector<tagREG_RELEXPORTACAO_ITEM>& items) {
  std::string told;
  int fixed = 0;
  for (std::size_t i = 0; i < model.columns.size(); ++i) {
    const LegacyModel::Column& column = model.columns[i];
    if (column.code < 0 || (column.code >= 100 && catalogue.count(column.code) == 0)) continue;
    if (column.code < 100) {
      const tagREG_RELEXPORTACAO_ITEM item = i < items.size() ? items[i] : tagREG_RELEXPORTACAO_ITEM{"", "", 'A', 0};
      told += "fixed " + std::to_string(++fixed) + " " + item.cApelido + item.cTipo + " " + FixedContent(item);
    } else {
      const Field& field = catalogue.at(column.code);
      told += std::to_string(column.code) + " " + field.alias + field.type + " ";
    }
    told += " " + std::to_string(static_cast<std::int32_t>(column.width)) + column.alignment + "\n";
  }
  return told;
}

std::string Columns(const CDocRelatorio& document) {
  std::string told;
  for (const CampoEscolhido& c : document.camposEscolhidos.campos) {
    told += (c.fixo ? "fixed " : "") + std::to_string(c.codigo) + " " + c.cabecalho + c.tipoDado + " " + c.conteudo +
            " " + std::to_string(c.tamanho) + c.alinhamento + "\n";
  }
  return told;
}

std::string Rest(const LegacyModel& model) {
  constexpr const char* kOperators[] = {"igual",      "diferente",  "maior", "menor",
                                        "maiorIgual", "menorIgual", "igual", "igual"};
  constexpr const char* kSeparators[] = {"nenhum", "linha", "pagina", "nenhum"};
  std::string told = model.header + "|" + model.footer + "|" + std::to_string(model.firstDate) + "|" +
                     (model.bySheet != 0 ? "folha" : "pagina") + "\n";
  for (const LegacyModel::Key& key : model.keys)
    told += std::to_string(key.code & 0xFFFF) + kSeparators[key.separator] + "\n";
  std::vector<LegacyModel::Total> order;
  for (const auto* totals : {&model.subtotals, &model.totals}) {
    for (const LegacyModel::Total code : *totals) {
      if (std::find(order.begin(), order.end(), code) == order.end()) order.push_back(code);
    }
  }
  const auto has = [](const std::vector<LegacyModel::Total>& totals, LegacyModel::Total code) {
    return std::find(totals.begin(), totals.end(), code) != totals.end() ? "1" : "0";
  };
  for (const LegacyModel::Total code : order)
    told += std::to_string(code) + has(model.subtotals, code) + has(model.totals, code) + "\n";
  for (const LegacyModel::Filter& filter : model.filters) {
    told += std::to_string(filter.code) + kOperators[filter.comparison] + (filter.connector != 0 ? "e" : "ou") +
            filter.value + "\n";
  }
  return told;
}

std::string Rest(const CDocRelatorio& d) {
  constexpr const char* kOperators[] = {"igual", "diferente", "maior", "maiorIgual", "menor", "menorIgual"};
  constexpr const char* kSeparators[] = {"nenhum", "linha", "pagina"};
  std::string told = d.impressao.cabecalho.texto + "|" + d.impressao.rodape.texto + "|" +
                     std::to_string(d.dataInicial) + "|" + (d.impressao.tipoNumeracao != 0 ? "folha" : "pagina") + "\n";
  for (const CampoOrdenacao& key : d.ordenacao.campos)
    told += std::to_string(key.codigo) + kSeparators[key.separador] + "\n";
  for (const CampoTotalizacao& total : d.ordenacao.totalizacoes)
    told += std::to_string(total.codigo) + (total.naQuebra ? "1" : "0") + (total.geral ? "1" : "0") + "\n";
  for (const CondicaoFiltro& condition : d.filtro.condicoes) {
    told += std::to_string(condition.codigo) + kOperators[condition.operador] +
            (condition.comparador == comparadorE ? "e" : "ou") + condition.valorComparar + "\n";
  }
  return told;
}

TEST_F(ConversionTest, RandomModelsBecomeWhatTheyWere) {
  for (unsigned seed = 0; seed < 120; ++seed) {
    const int layout = static_cast<int>(seed % 4);
    SCOPED_TRACE(std::to_string(seed) + " in layout " + std::to_string(layout));
    RandomInstallation random(seed);
    const LegacyModel model = random.ModelOfFields();
    const std::map<int, Field> fields = random.Catalogue();
    const std::vector<tagREG_RELEXPORTACAO_ITEM> items = random.Items();
    std::string lines;
    for (const auto& [code, field] : fields)
      lines += CatalogueLine(code, field.alias, field.type);
    support::WriteFile(Catalogue(), lines);
    WriteModel("M", model, layout);
    tagREG_RELEXPORTACAO settings{};
    settings.iQtdeItens = static_cast<std::uint16_t>(items.size());
    WriteSettings("M", settings, items);

    ASSERT_EQ(Initialise2(), "0x00000000");
    std::string stored = support::ReadFile(File("M", ".RXL")).substr(2);
    CDocRelatorio document;
    ASSERT_TRUE(document.CarregaConteudo(
        {1, static_cast<LONG>(stored.size()), reinterpret_cast<std::uint8_t*>(stored.data())}));
    EXPECT_EQ(Columns(document), Columns(model, fields, items));
    EXPECT_EQ(Rest(document), Rest(model));
    std::filesystem::remove(File("M", ".RXL"));
  }
}

}  // namespace
