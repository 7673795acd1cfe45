// A second-generation model as the server returns it.
#pragma once

#include <string>

#include "document/doc_relatorio.h"
#include "store_session.h"

namespace kestorctl {

class StoredModel {
 public:
  StoredModel(const ReportStore& store, const std::string& name)
      : result_(store->Le(ToBstr(name).get(), &record_)),
        content_(record_ != nullptr ? record_->lpRelatorio : nullptr) {}
  ~StoredModel() { CoTaskMemFree(record_); }
  StoredModel(const StoredModel&) = delete;
  StoredModel& operator=(const StoredModel&) = delete;

  HRESULT Result() const { return result_; }
  const REG_RELATORIO2& Record() const { return *record_; }  // only when the result is S_OK
  std::string_view Content() const {
    return {reinterpret_cast<const char*>(content_.get()), static_cast<std::size_t>(record_->nQtdeBytes)};
  }

 private:
  REG_RELATORIO2* record_ = nullptr;
  const HRESULT result_;
  const TaskBlock<std::uint8_t> content_;
};

// Returns the bytes of a content as the interfaces take them.
unsigned char* BytesOf(std::string& content);

// Returns what a user should know about a model that was just stored; empty when there is nothing.
std::string Warnings(const ReportStore& store, const std::string& name, USHORT version, std::string& content);

// Fills the document. Returns why the model is no report document; empty when it is one. Needs the markup component.
inline std::string LoadDocument(const REG_RELATORIO2& model, kestor::CDocRelatorio& document) {
  std::string reason;
  return document.CarregaConteudo(model, &reason) ? std::string() : reason;
}

}  // namespace kestorctl
