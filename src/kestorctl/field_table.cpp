#include "field_table.h"

#include <algorithm>

#include "contract/campo_texto.h"
#include "platform/text/text.h"
#include "text_table.h"

namespace kestorctl {

namespace {

struct Word {
  char letter;
  const char* word;
};

constexpr Word kTypes[] = {
    {KESTOR_Alfanumerico, "text"}, {KESTOR_Data, "date"},     {KESTOR_Numerico, "number"},   {KESTOR_Valor, "amount"},
    {KESTOR_MesAno, "month"},      {KESTOR_Conta, "account"}, {KESTOR_Historico, "history"}, {KESTOR_Opcoes, "options"},
};

constexpr Word kAlignments[] = {{KESTOR_Esquerda, "left"}, {KESTOR_Direita, "right"}, {KESTOR_Centro, "centre"}};

// The server does not check the catalogue, so a letter without a meaning is returned unchanged.
template <std::size_t N>
std::string InWords(const std::string& letter, const Word (&words)[N]) {
  const Word* found = std::find_if(std::begin(words), std::end(words),
                                   [&letter](const Word& row) { return letter == std::string(1, row.letter); });
  return found == std::end(words) ? letter : found->word;
}

std::string Uses(const Field& field) {
  std::string uses;
  for (const auto& [allowed, use] : {std::pair(field.filter, "filter"), {field.total, "total"}, {field.sort, "sort"}}) {
    if (allowed) uses += (uses.empty() ? "" : ", ") + std::string(use);
  }
  return uses;
}

bool IsEmpty(const Field& field) {
  return field.code == 0 && field.width == 0 && !field.filter && !field.total && !field.sort && field.alias.empty() &&
         field.description.empty() && field.type.empty() && field.alignment.empty() && field.options.empty();
}

const std::vector<TableColumn> kColumns = {{"CODE", true}, {"ALIAS"},       {"DESCRIPTION"}, {"TYPE"},
                                           {"ALIGNED"},    {"WIDTH", true}, {"USE"},         {"OPTIONS"}};

TableRow RowOf(const Field& field) {
  return {std::to_string(field.code),
          field.alias,
          field.description,
          TypeInWords(field.type),
          AlignmentInWords(field.alignment),
          std::to_string(field.width),
          Uses(field),
          field.options};
}

std::string Table(const std::vector<Field>& fields) {
  std::vector<TableRow> rows;
  for (const Field& field : fields) {
    if (!IsEmpty(field)) rows.push_back(RowOf(field));
  }
  return TextTable(kColumns, rows);
}

nlohmann::ordered_json Object(const Field& field) {
  return {{"code", field.code},      {"alias", field.alias},         {"description", field.description},
          {"type", field.type},      {"alignment", field.alignment}, {"width", field.width},
          {"filter", field.filter},  {"total", field.total},         {"sort", field.sort},
          {"options", field.options}};
}

}  // namespace

std::string Letter(char letter) {
  return letter == '\0' ? std::string() : text::ToUtf8({&letter, 1});
}

std::string TypeInWords(const std::string& letter) {
  return InWords(letter, kTypes);
}

std::string AlignmentInWords(const std::string& letter) {
  return InWords(letter, kAlignments);
}

Field::Field(const tagREG_CAMPOS_RELATORIO& record)
    : code(record.iCod),
      alias(text::ToUtf8(kestor::TextoDoCampo(record.cApelido))),
      description(text::ToUtf8(kestor::TextoDoCampo(record.cDescricao))),
      type(Letter(record.cTipo)),
      alignment(Letter(record.cAlinhamento)),
      width(record.iTamanho),
      filter(record.bCondicao != 0),
      total(record.bTotalizavel != 0),
      sort(record.bOrdenavel != 0),
      options(text::ToUtf8(kestor::TextoDoCampo(record.cOpcoes))) {}

Field::Field(const tagREG_CAMPOS_RELATORIO2& record)
    : code(record.nCodigo),
      alias(text::ToUtf8(kestor::TextoDoCampo(record.szApelido))),
      description(text::ToUtf8(kestor::TextoDoCampo(record.szDescricao))),
      type(Letter(record.cTipo)),
      alignment(Letter(record.cAlinhamento)),
      width(record.nTamanho),
      filter(record.bPodeFiltrar != 0),
      total(record.bPodeTotalizar != 0),
      sort(record.bPodeOrdenar != 0),
      options(text::ToUtf8(kestor::TextoDoCampo(record.szOpcoes))) {}

void TellFields(const std::vector<Field>& fields, Answer& answer) {
  nlohmann::ordered_json& told = answer.data["fields"] = nlohmann::ordered_json::array();
  for (const Field& field : fields)
    told.push_back(Object(field));
  answer.output = Table(fields);
}

}  // namespace kestorctl
