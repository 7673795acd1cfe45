// What a markup reader tells, written down.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "document/mem_stream.h"
#include "markup/interfaces_marcacao.h"
#include "platform/com/object.h"

struct RecordedElement {
  std::string name;
  std::size_t depth = 0;
  std::vector<std::pair<std::string, std::string>> attributes;  // those asked for, in this order

  bool operator==(const RecordedElement&) const = default;
};

// Writes down every element with the values of the attributes `asked`. Fails at element `failAt` (counted from 1).
class Recorder final : public com::UncountedObject<kestor::ITratadorMarcacao, kestor::IID_ITratadorMarcacao> {
 public:
  explicit Recorder(std::vector<std::string> asked = {}, std::size_t failAt = 0)
      : asked_(std::move(asked)), failAt_(failAt) {}

  HRESULT InicioDocumento() override {
    ++begun;
    return S_OK;
  }
  HRESULT FimDocumento() override {
    ++finished;
    return S_OK;
  }
  HRESULT InicioElemento(const char* name, kestor::IAtributosMarcacao* attributes) override {
    RecordedElement element{name, ++depth_, {}};
    for (const std::string& attribute : asked_) {
      const char* value = nullptr;
      if (SUCCEEDED(attributes->BuscaValor(attribute.c_str(), &value)))
        element.attributes.emplace_back(attribute, value);
    }
    elements.push_back(element);
    return elements.size() == failAt_ ? E_FAIL : S_OK;
  }
  HRESULT FimElemento(const char*) override {
    --depth_;
    return S_OK;
  }
  HRESULT Notifica(std::int32_t) override { return S_OK; }

  std::vector<RecordedElement> elements;
  int begun = 0;
  int finished = 0;

 private:
  const std::vector<std::string> asked_;
  const std::size_t failAt_;
  std::size_t depth_ = 0;
};

template <typename Interface>
ComPtr<Interface> NewMarkup(REFCLSID clsid, REFIID iid) {
  ComPtr<Interface> object;
  CoCreateInstance(clsid, nullptr, CLSCTX_ALL, iid, object.OutVoid());
  return object;
}

// Hands out at most `piece` bytes a reading.
class PieceStream final : public kestor::CMemStream {
 public:
  PieceStream(std::string_view bytes, ULONG piece)
      : CMemStream(bytes.data(), static_cast<ULONG>(bytes.size())), piece_(piece) {}
  HRESULT Read(void* to, ULONG count, ULONG* got) override {
    return CMemStream::Read(to, std::min(count, piece_), got);
  }

 private:
  const ULONG piece_;
};

inline constexpr ULONG kWhole = 0xFFFFFFFF;

inline HRESULT Read(std::string_view bytes, kestor::ITratadorMarcacao& handler, std::string* reason = nullptr,
                    ULONG piece = kWhole) {
  PieceStream stream(bytes, piece);
  const auto reader = NewMarkup<kestor::ILeitorMarcacao>(kestor::CLSID_LeitorMarcacao, kestor::IID_ILeitorMarcacao);
  reader->DefineTratador(&handler);
  VARIANT source{};
  source.vt = VT_UNKNOWN;
  source.punkVal = &stream;
  const HRESULT result = reader->Analisa(source);
  ComPtr<IUnknown> unknown;
  reader->BuscaErro(unknown.Out());
  if (reason == nullptr || !unknown) return result;
  ComPtr<kestor::IErroMarcacao> error;
  unknown->QueryInterface(kestor::IID_IErroMarcacao, error.OutVoid());
  ULONG line = 0;
  BSTR text = nullptr;
  error->BuscaLinha(&line);
  error->BuscaDescricao(&text);
  const OwnedBstr owner(text);
  *reason = std::to_string(line) + ": ";
  for (const OLECHAR* c = text; *c != 0; ++c)
    *reason += static_cast<char>(*c);
  return result;
}
