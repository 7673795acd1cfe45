// What the document makes of a markup reader other than the server's own: one that gives null values and null lists,
// goes on behind failures, ends what it has not begun, raises exceptions.
#include <functional>
#include <map>
#include <optional>

#include "common/zn_exception.h"
#include "document_fixture.h"
#include "markup/interfaces_marcacao.h"

namespace {

using namespace kestor;

// The counting is for what the document releases.
template <typename Interface>
class Counted : public Interface {
 public:
  HRESULT QueryInterface(REFIID, void** object) override {
    AddRef();
    *object = static_cast<Interface*>(this);
    return S_OK;
  }
  ULONG AddRef() override { return ++references; }
  ULONG Release() override { return --references; }

  ULONG references = 0;

 protected:
  ~Counted() = default;
};

// A null value is given as such, with success.
class Attributes final : public Counted<IAtributosMarcacao> {
 public:
  using Values = std::map<std::string, std::optional<std::string>>;
  explicit Attributes(Values values) : values_(std::move(values)) {}

  HRESULT Reservado3() override { return E_NOTIMPL; }
  HRESULT Reservado4() override { return E_NOTIMPL; }
  HRESULT Reservado5() override { return E_NOTIMPL; }
  HRESULT Adiciona(const char*, const char*) override { return E_NOTIMPL; }
  HRESULT Reservado7() override { return E_NOTIMPL; }
  HRESULT Reservado8() override { return E_NOTIMPL; }
  HRESULT BuscaValor(const char* name, const char** value) override {
    const auto found = values_.find(name);
    if (found == values_.end()) return E_INVALIDARG;
    *value = found->second ? found->second->c_str() : nullptr;
    return S_OK;
  }
  HRESULT Limpa() override { return E_NOTIMPL; }

 private:
  Values values_;
};

using Script = std::function<HRESULT(ITratadorMarcacao&)>;

class Reader final : public Counted<ILeitorMarcacao> {
 public:
  HRESULT DefineTratador(ITratadorMarcacao* handler) override {
    handler_ = handler;
    return S_OK;
  }
  HRESULT Reservado4() override { return E_NOTIMPL; }
  HRESULT Analisa(VARIANT source) override {
    streamGiven = source.vt == VT_UNKNOWN && source.punkVal != nullptr;
    return script(*handler_);
  }
  HRESULT BuscaErro(IUnknown** given) override {
    ++errorsAsked;
    error.AddRef();
    *given = &error;
    return S_OK;
  }

  Script script;
  bool streamGiven = false;
  int errorsAsked = 0;
  class Error final : public Counted<IUnknown> {
    HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  } error;

 private:
  ITratadorMarcacao* handler_ = nullptr;
};

class Factory final : public Counted<IClassFactory> {
 public:
  explicit Factory(Reader& reader) : reader_(reader) {}
  HRESULT CreateInstance(IUnknown*, REFIID iid, void** object) override { return reader_.QueryInterface(iid, object); }
  HRESULT LockServer(BOOL) override { return S_OK; }

 private:
  Reader& reader_;
};

class ForeignReaderTest : public testing::Test {
 protected:
  ForeignReaderTest() {
    CoRegisterClassObject(CLSID_LeitorMarcacao, &factory_, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie_);
  }
  ~ForeignReaderTest() override { CoRevokeClassObject(cookie_); }

  bool LoadBy(Script script) {
    reader_.script = std::move(script);
    const bool loaded = Load(document_, "anything");
    EXPECT_TRUE(reader_.streamGiven);
    EXPECT_EQ(reader_.references, 0U);
    EXPECT_EQ(reader_.error.references, 0U);
    return loaded;
  }

  static HRESULT Begin(ITratadorMarcacao& handler, const char* name, Attributes::Values values = {}) {
    Attributes attributes(std::move(values));
    return handler.InicioElemento(name, &attributes);
  }
  static HRESULT BeginRoot(ITratadorMarcacao& handler) {
    return Begin(handler, "relatorio", {{"dataInicial", "1"}, {"dataFinal", "2"}, {"nome", "N"}});
  }
  static HRESULT Column(ITratadorMarcacao& handler, const char* fixed) {
    const HRESULT result = Begin(handler, "campo",
                                 {{"fixo", fixed},
                                  {"codigo", "9"},
                                  {"cabecalho", std::nullopt},
                                  {"tamanho", std::nullopt},
                                  {"alinhamento", std::nullopt},
                                  {"tipoDado", "V"},
                                  {"conteudo", "c"},
                                  {"formatoValor", std::nullopt}});
    handler.FimElemento("campo");
    return result;
  }

  CDocRelatorio document_;
  Reader reader_;

 private:
  Factory factory_{reader_};
  DWORD cookie_ = 0;
};

TEST_F(ForeignReaderTest, NullValuesAreEmptyTexts) {
  EXPECT_TRUE(LoadBy([](ITratadorMarcacao& handler) {
    EXPECT_EQ(BeginRoot(handler), S_OK);
    EXPECT_EQ(Begin(handler, "camposEscolhidos"), S_OK);
    EXPECT_EQ(Column(handler, "0"), S_OK);
    return S_OK;
  }));
  EXPECT_EQ(document_.camposEscolhidos.campos, (std::vector<CampoEscolhido>{{9, "", "c", 0, '\0', 'V', false, 0}}));
  EXPECT_EQ(reader_.errorsAsked, 0);
}

TEST_F(ForeignReaderTest, ANullListHasNoAttributes) {
  EXPECT_TRUE(LoadBy([](ITratadorMarcacao& handler) {
    EXPECT_EQ(handler.InicioElemento("relatorio", nullptr), E_FAIL);
    EXPECT_EQ(handler.InicioElemento("filtro", nullptr), S_OK);
    EXPECT_EQ(handler.InicioElemento("campo", nullptr), E_FAIL);
    return S_OK;
  }));
  EXPECT_TRUE(document_.nome.empty());
  EXPECT_TRUE(document_.filtro.condicoes.empty());
}

// An element that was refused is open until it ends, whatever name its end is told with; whether to go on is the
// reader's.
TEST_F(ForeignReaderTest, ElementsAreOpenUntilTheyEnd) {
  EXPECT_TRUE(LoadBy([](ITratadorMarcacao& handler) {
    EXPECT_EQ(handler.FimElemento("relatorio"), S_OK);  // nothing is open
    EXPECT_EQ(Begin(handler, "outro"), E_FAIL);
    EXPECT_EQ(BeginRoot(handler), E_FAIL);
    EXPECT_EQ(handler.FimElemento("?"), S_OK);
    EXPECT_EQ(handler.FimElemento("?"), S_OK);
    EXPECT_EQ(BeginRoot(handler), S_OK);
    EXPECT_EQ(Begin(handler, "outro"), E_FAIL);
    EXPECT_EQ(Begin(handler, "filtro"), E_FAIL);
    handler.FimElemento("filtro");
    handler.FimElemento("outro");
    EXPECT_EQ(Begin(handler, "ordenacao", {{"somenteTotais", "1"}}), S_OK);
    return S_OK;
  }));
  EXPECT_EQ(document_.nome, "N");
  EXPECT_TRUE(document_.ordenacao.somenteTotais);
}

TEST_F(ForeignReaderTest, WhatIsNoElementChangesNothing) {
  EXPECT_TRUE(LoadBy([](ITratadorMarcacao& handler) {
    EXPECT_EQ(handler.InicioDocumento(), S_OK);
    EXPECT_EQ(handler.Notifica(7), S_OK);
    EXPECT_EQ(handler.FimDocumento(), S_OK);
    return S_FALSE;  // no failure
  }));
}

// What was read stays, in order: fixed columns have their numbers also where the reading breaks off.
TEST_F(ForeignReaderTest, FailuresAndExceptionsLeaveWhatWasRead) {
  const auto fails = [](const std::function<HRESULT()>& end) {
    return [end](ITratadorMarcacao& handler) {
      BeginRoot(handler);
      Begin(handler, "camposEscolhidos");
      for (const char* fixed : {"1", "0", "1"})
        Column(handler, fixed);
      return end();
    };
  };
  const Script scripts[] = {
      fails([] { return E_INVALIDARG; }),
      fails([]() -> HRESULT { throw ZN::CException(1, "no more", "reader", 2); }),
      fails([]() -> HRESULT { throw std::bad_alloc(); }),
  };
  for (const Script& script : scripts) {
    EXPECT_FALSE(LoadBy(script));
    EXPECT_EQ(document_.nome, "N");
    std::vector<int> codes;
    for (const CampoEscolhido& campo : document_.camposEscolhidos.campos)
      codes.push_back(campo.codigo);
    EXPECT_EQ(codes, (std::vector<int>{1, 9, 2}));
  }
  EXPECT_EQ(reader_.errorsAsked, 1) << "it is asked for after a failure only";
}

}  // namespace
