// A field catalogue as previews take it.
#pragma once

#include "admin/admin.h"
#include "contract/campo_texto.h"
#include "platform/text/text.h"
#include "preview/preview.h"

namespace kestorctl {

inline preview::Fields FieldsOf(const admin::Catalogue& catalogue) {
  preview::Fields fields;
  for (const tagREG_CAMPOS_RELATORIO2& field : catalogue.fields) {
    fields.push_back({field.nCodigo, text::ToUtf8(kestor::TextoDoCampo(field.szApelido)),
                      text::ToUtf8(kestor::TextoDoCampo(field.szDescricao)), field.cTipo, field.nTamanho,
                      text::ToUtf8(kestor::TextoDoCampo(field.szOpcoes))});
  }
  return fields;
}

// Fills the document from a model of either generation. Returns why there is none; empty when there is.
inline std::string ReadReport(admin::Reader& reader, const admin::Model& model, kestor::CDocRelatorio& document) {
  return model.generation == admin::Generation::first ? reader.ReadConverted(model, document)
                                                      : reader.Read(model, document);
}

}  // namespace kestorctl
