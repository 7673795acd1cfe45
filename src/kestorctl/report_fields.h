// A report and its fields, as previews take them.
#pragma once

#include "admin/admin.h"
#include "contract/campo_texto.h"
#include "platform/text/text.h"
#include "preview/preview.h"

namespace kestorctl {

// Returns the fields that the document uses. Adds a note for each that a readable catalogue lacks.
inline preview::Fields FieldsOf(const admin::Catalogue& catalogue, const kestor::CDocRelatorio& document,
                                std::vector<std::string>* notes) {
  preview::Fields fields;
  for (const std::uint16_t code : preview::UsedCodes(document)) {
    if (const tagREG_CAMPOS_RELATORIO2* const field = catalogue.Find(code)) {
      fields.push_back({field->nCodigo, text::ToUtf8(kestor::TextoDoCampo(field->szApelido)),
                        text::ToUtf8(kestor::TextoDoCampo(field->szDescricao)), field->cTipo, field->nTamanho,
                        text::ToUtf8(kestor::TextoDoCampo(field->szOpcoes))});
    } else {
      fields.push_back(preview::FieldWithout(document, code));
      if (catalogue.trouble.empty()) notes->push_back("the catalogue has no field " + std::to_string(code));
    }
  }
  return fields;
}

// Fills the document from a model of either generation. Returns why there is none, or what it lacks; empty when it is
// whole.
inline std::string ReadReport(admin::Reader& reader, const admin::Model& model, kestor::CDocRelatorio& document) {
  return model.generation == admin::Generation::first ? reader.ReadConverted(model, document)
                                                      : reader.Read(model, document);
}

}  // namespace kestorctl
