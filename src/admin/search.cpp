// Finds where fields and texts are used.
#include <algorithm>
#include <set>
#include <string_view>

#include "admin/admin.h"
#include "contract/campo_texto.h"
#include "platform/text/text.h"

namespace admin {

namespace {

using Code = std::optional<std::int32_t>;

bool IsNumber(std::string_view text) {
  constexpr std::size_t kMostDigits = 5;
  return !text.empty() && text.size() <= kMostDigits &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// What to look for in the models of one pair.
class Filter {
 public:
  Filter(const Query& query, std::vector<std::int32_t> codes)
      : query_(query), codes_(std::move(codes)), text_(text::Upper(text::FromUtf8(query.text))) {}

  bool Wants(Use use, const Code& code, std::string_view title) const {
    if (!query_.uses.empty() && std::find(query_.uses.begin(), query_.uses.end(), use) == query_.uses.end())
      return false;
    if (!query_.field.empty() && (!code || std::find(codes_.begin(), codes_.end(), *code) == codes_.end()))
      return false;
    return text_.empty() || std::search(title.begin(), title.end(), text_.begin(), text_.end(),
                                        [](char a, char b) { return text::UpperChar(a) == b; }) != title.end();
  }

 private:
  const Query& query_;
  const std::vector<std::int32_t> codes_;
  const std::string text_;
};

std::string WithContent(std::string title, const std::string& content) {
  return content.empty() ? title : title.append(": ").append(content);
}

// Calls `visit` with use, code and text.
template <typename Visit>
void VisitUses(const kestor::CDocRelatorio& document, const Visit& visit) {
  for (const kestor::CampoEscolhido& column : document.camposEscolhidos.campos) {
    if (!column.fixo) {
      visit(Use::column, Code(column.codigo), column.cabecalho);
    } else {
      visit(Use::column, Code(), WithContent(column.cabecalho, column.conteudo));
    }
  }
  for (const kestor::CampoOrdenacao& key : document.ordenacao.campos)
    visit(Use::sortKey, Code(key.codigo), std::string());
  for (const kestor::CondicaoFiltro& condition : document.filtro.condicoes)
    visit(Use::filter, Code(condition.codigo), condition.valorComparar);
  for (const kestor::CampoTotalizacao& total : document.ordenacao.totalizacoes)
    visit(Use::total, Code(total.codigo), std::string());
  const kestor::CSecaoImpressao& page = document.impressao;
  for (const std::string* text : {&document.nome, &page.cabecalho.texto, &page.cabecalho.cabecalhoAdicional,
                                  &page.detalhe.textoFinal, &page.rodape.texto, &page.rodape.texto2,
                                  &document.exportacao.cabecalho.descricao, &document.exportacao.rodape.descricao}) {
    if (!text->empty()) visit(Use::title, Code(), *text);
  }
}

template <typename Visit>
void VisitUses(const kestor::CConteudoRel& content, const Visit& visit) {
  const kestor::ValoresRel& values = content.Valores();
  for (std::size_t i = 0; i < values.colunas.quantidade; ++i) {
    const kestor::ColunaRel column = values.Coluna(i);
    tagREG_CAMPOS_RELATORIO field{};
    content.BuscaCampoColuna(i, field);
    const std::string title(kestor::TextoDoCampo(field.cApelido));
    if (column.Fixa()) {
      visit(Use::column, Code(), WithContent(title, content.BuscaConteudoFixo(i)));
    } else if (column.codigo >= 0) {
      visit(Use::column, Code(column.codigo), title);
    }
  }
  for (std::size_t i = 0; i < values.ordenacoes.quantidade; ++i)
    visit(Use::sortKey, Code(values.Ordenacao(i).codigo), std::string());
  for (std::size_t i = 0; i < values.filtros.quantidade; ++i) {
    const kestor::FiltroRel condition = values.Filtro(i);
    visit(Use::filter, Code(condition.codigo), condition.valor);
  }
  std::set<std::int32_t> totals;  // a field that is totalled at breaks and at the end counts as one use
  for (std::size_t i = 0; i < values.subtotais.quantidade; ++i)
    totals.insert(values.Subtotal(i));
  for (std::size_t i = 0; i < values.totaisGerais.quantidade; ++i)
    totals.insert(values.TotalGeral(i));
  for (const std::int32_t total : totals)
    visit(Use::total, Code(total), std::string());
  for (const std::string& text : {values.textoCabecalho, values.textoFinal, values.textoRodape,
                                  content.CabecalhoExportacao().descricao, content.RodapeExportacao().descricao}) {
    if (!text.empty()) visit(Use::title, Code(), text);
  }
}

std::vector<std::int32_t> CodesOfAlias(const Catalogue& catalogue, const std::string& alias) {
  std::vector<std::int32_t> codes;
  for (const tagREG_CAMPOS_RELATORIO2& field : catalogue.fields) {
    std::string_view known = kestor::TextoDoCampo(field.szApelido);
    known = known.substr(0, known.find_last_not_of(' ') + 1);
    if (text::EqualNoCase(known, alias)) codes.push_back(field.nCodigo);
  }
  return codes;
}

void SearchModel(Reader& reader, const Model& model, const Filter& filter, const Visitor& visitor) {
  const auto visit = [&](Use use, const Code& code, const std::string& text) {
    if (filter.Wants(use, code, text)) visitor.found(model, {use, code, text});
  };
  std::string reason;
  if (model.generation == Generation::second) {
    kestor::CDocRelatorio document;
    reason = reader.Read(model, document);
    VisitUses(document, visit);
  } else {
    const kestor::CConteudoRel* content = nullptr;
    reason = reader.Read(model, &content);
    if (content != nullptr) VisitUses(*content, visit);
  }
  if (!reason.empty()) visitor.unread(model, reason);
}

}  // namespace

bool Search(Reader& reader, const Inventory& inventory, const Query& query, const Visitor& visitor) {
  const bool isAlias = !query.field.empty() && !IsNumber(query.field);
  bool isKnown = !isAlias;
  auto model = inventory.models.begin();
  for (std::size_t pair = 0; pair < inventory.pairs.size(); ++pair) {
    const auto end = std::find_if(model, inventory.models.end(), [&](const Model& one) { return one.pair != pair; });
    std::vector<std::int32_t> codes;
    if (isAlias) {
      const Catalogue& catalogue = reader.CatalogueOf(pair);
      codes = CodesOfAlias(catalogue, text::FromUtf8(query.field));
      isKnown = isKnown || !codes.empty();
      if (!catalogue.trouble.empty() && model != end) visitor.unreadCatalogue(inventory.pairs[pair], catalogue.trouble);
      if (codes.empty()) model = end;
    } else if (!query.field.empty()) {
      codes.push_back(text::ToInt(query.field));
    }
    const Filter filter(query, std::move(codes));
    for (; model != end; ++model)
      SearchModel(reader, *model, filter, visitor);
  }
  return isKnown;
}

}  // namespace admin
