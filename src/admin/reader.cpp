// Reads models and catalogues with the decoders of the server.
#include <cstring>
#include <limits>

#include "admin/admin.h"
#include "common/arquivos_modelo.h"
#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "common/texto_bstr.h"
#include "legacy/catalogo_campos.h"
#include "legacy/repositorio_rel.h"
#include "migration/documento_rel.h"
#include "platform/text/text.h"

namespace admin {

namespace {

// The objects live as long as the reader and change nothing.
class NoServer final : public kestor::Servidor {
  LONG Trava() override { return 0; }
  LONG Destrava() override { return 0; }
};

std::string ReasonOr(const char* otherwise) {
  const std::string reason = kestor::RazaoDita();
  return reason.empty() ? otherwise : reason;
}

void ReadCatalogue(const Pair& pair, Catalogue* catalogue) try {
  kestor::EsqueceRazao();
  kestor::CCatalogoCampos file;
  if (file.Le(CataloguePath(pair)) != S_OK) {
    catalogue->trouble = ReasonOr("the field catalogue cannot be read");
    return;
  }
  catalogue->fields.resize(file.Quantidade(std::numeric_limits<USHORT>::max()));
  file.Preenche(catalogue->fields.data(), catalogue->fields.size());
  for (const tagREG_CAMPOS_RELATORIO2& field : catalogue->fields)
    catalogue->places.try_emplace(field.nCodigo, static_cast<std::size_t>(&field - catalogue->fields.data()));
} catch (const Failure& failure) {
  catalogue->trouble = failure.what();
}

}  // namespace

const tagREG_CAMPOS_RELATORIO2* Catalogue::Find(std::int32_t code) const {
  const auto place = places.find(code);
  return place == places.end() ? nullptr : &fields[place->second];
}

// What the models of a pair share.
struct Reader::State {
  State(std::size_t which, const Pair& pair) : place(which) {
    ReadCatalogue(pair, &catalogue);
    kestor::EsqueceRazao();
    HRESULT result =
        kestor::CRepositorioRel::Cria<kestor::CRepositorioRel>(nullptr, IID_IZNPL_Rel, store.OutVoid(), server);
    if (SUCCEEDED(result)) {
      result = store->Inicializa(nullptr, kestor::NovoBstr(text::FromUtf8(pair.module)).get(),
                                 kestor::NovoBstr(text::FromUtf8(pair.component)).get());
    }
    if (FAILED(result)) {
      trouble = ReasonOr("first-generation models cannot be read");
      return;
    }
    content.DefineRepositorio(*store.Get());
    content.CarregaCatalogo();  // without one, columns have no titles
  }

  const std::size_t place;
  Catalogue catalogue;
  NoServer server;
  ComPtr<IZNPL_Rel> store;
  kestor::CConteudoRel content;
  std::string trouble;
};

Reader::Reader(const Inventory& inventory) : inventory_(inventory) {}
Reader::~Reader() = default;

Reader::State& Reader::Of(std::size_t pair) {
  if (!state_ || state_->place != pair) state_ = std::make_unique<State>(pair, inventory_.pairs[pair]);
  return *state_;
}

const Catalogue& Reader::CatalogueOf(std::size_t pair) {
  return Of(pair).catalogue;
}

std::string ReadContent(const std::string& path, std::string* content) {
  kestor::EsqueceRazao();
  CFile file;
  CFileException failure;
  if (!file.Open(path.c_str(), kestor::kLeituraModelo, &failure)) {
    kestor::DizRazao("read", failure);
    return ReasonOr("it cannot be read");
  }
  const kestor::ConteudoLido read = kestor::LeConteudo(file, path);
  if (!read.inteiro) return ReasonOr("it cannot be read");
  content->assign(read.bytes.begin(), read.bytes.end());
  return {};
}

std::string CataloguePath(const Pair& pair) {
  const std::string module = text::FromUtf8(pair.module);
  std::string path;
  if (kestor::CCaminhosInstalacao::BuscaCaminhoModulo(module, path) != 0)
    throw Failure(kestor::CCaminhosInstalacao::PorQueFalta(module));
  return kestor::CaminhoCatalogo(path, module, text::FromUtf8(pair.component));
}

std::string Reader::Read(const Model& model, kestor::CDocRelatorio& document) {
  std::string bytes;
  std::string trouble = ReadContent(inventory_.folder + model.file, &bytes);
  if (!trouble.empty()) return trouble;
  const std::string shown = text::Presentable(text::ToUtf8(model.file));
  USHORT version = 0;
  if (bytes.size() < sizeof version) return shown + " is too short for a model";
  std::memcpy(&version, bytes.data(), sizeof version);
  std::string reason;
  auto* const content = reinterpret_cast<std::uint8_t*>(bytes.data()) + sizeof version;
  const auto size = static_cast<LONG>(bytes.size() - sizeof version);
  return document.CarregaConteudo({version, size, content}, &reason) ? "" : shown + ": " + reason;
}

std::string Reader::Read(const Model& model, const kestor::CConteudoRel** content) {
  *content = nullptr;
  State& state = Of(model.pair);
  if (!state.trouble.empty()) return state.trouble;
  const std::string shown = text::Presentable(text::ToUtf8(model.file));
  kestor::EsqueceRazao();
  if (state.content.Carrega(text::FromUtf8(model.name)) != S_OK) return ReasonOr((shown + " cannot be read").c_str());
  *content = &state.content;
  return state.content.Completo() ? "" : shown + " is empty, cut short, or of a version that is not known";
}

std::string Reader::ReadConverted(const Model& model, kestor::CDocRelatorio& document) {
  const kestor::CConteudoRel* content = nullptr;
  std::string trouble = Read(model, &content);
  if (content == nullptr) return trouble;
  kestor::CMemStream stream;
  const std::string shown = text::Presentable(text::ToUtf8(model.file));
  if (!kestor::GeraDocumento(*content, text::FromUtf8(model.name), stream))
    return shown + ": no document can be made of it";
  std::string reason;
  const auto size = static_cast<LONG>(stream.Size());
  return document.CarregaConteudo({kestor::kVersaoDocumento, size, stream.Buffer()}, &reason) ? trouble
                                                                                              : shown + ": " + reason;
}

}  // namespace admin
