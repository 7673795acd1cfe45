#include "leitor_marcacao.h"

#include <expat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>

#include "platform/text/text.h"
#include "texto_marcacao.h"

namespace kestor {

namespace {

// Deeper than any sensible document. A handler keeps something for every open element: a document of nothing but open
// elements would take many times its own size in memory.
constexpr std::size_t kNiveis = 1000;

constexpr const char* kSemMemoria = "memory has run out";
constexpr const char* kElementoRecusado = "an element is not known in this place, or an attribute is missing or wrong";

// The attributes of the element that the parser has just found.
class AtributosLidos final : public com::UncountedObject<IAtributosMarcacao, IID_IAtributosMarcacao> {
 public:
  void Define(const XML_Char** pares) {
    pares_ = pares;
    proximo_ = pares;
  }

  HRESULT BuscaValor(const char* nome, const char** valor) override {
    if (nome == nullptr || valor == nullptr) return E_POINTER;
    *valor = nullptr;
    const XML_Char** par = Busca(nome);
    if (par == nullptr) return E_FAIL;
    proximo_ = par + 2;
    try {
      *valor = TextoLido(par[1], espaco_);
      return S_OK;
    } catch (const std::bad_alloc&) {
      return E_OUTOFMEMORY;
    }
  }

  // What has been read cannot be changed.
  HRESULT Adiciona(const char*, const char*) override { return E_NOTIMPL; }
  HRESULT Limpa() override { return E_NOTIMPL; }
  HRESULT Reservado3() override { return E_NOTIMPL; }
  HRESULT Reservado4() override { return E_NOTIMPL; }
  HRESULT Reservado5() override { return E_NOTIMPL; }
  HRESULT Reservado7() override { return E_NOTIMPL; }
  HRESULT Reservado8() override { return E_NOTIMPL; }

 private:
  // As a rule, handlers ask for attributes in document order: the search goes on where the last one ended, and then
  // starts again at the front.
  const XML_Char** Busca(const char* nome) const {
    for (const XML_Char** par = proximo_; *par != nullptr; par += 2) {
      if (std::strcmp(*par, nome) == 0) return par;
    }
    for (const XML_Char** par = pares_; par != proximo_; par += 2) {
      if (std::strcmp(*par, nome) == 0) return par;
    }
    return nullptr;
  }

  const XML_Char** pares_ = nullptr;
  const XML_Char** proximo_ = nullptr;
  std::string espaco_;
};

// One run of the parser over one stream.
class Analise {
 public:
  Analise(IStream& fonte, ITratadorMarcacao& tratador) : fonte_(fonte), tratador_(tratador) {
    if (!analisador_) throw std::bad_alloc();
    XML_SetUserData(analisador_.get(), this);
    XML_SetElementHandler(analisador_.get(), InicioElemento, FimElemento);
    XML_SetXmlDeclHandler(analisador_.get(), DeclaracaoDocumento);
    XML_SetStartDoctypeDeclHandler(analisador_.get(), DeclaracaoTipo);
    XML_SetUnknownEncodingHandler(analisador_.get(), Codificacao, nullptr);
  }

  HRESULT Executa() {
    resultado_ = tratador_.InicioDocumento();
    if (SUCCEEDED(resultado_)) Percorre();
    if (SUCCEEDED(resultado_)) resultado_ = tratador_.FimDocumento();
    if (FAILED(resultado_) && recusa_ == nullptr) {
      const XML_Error erro = XML_GetErrorCode(analisador_.get());
      recusa_ = erro == XML_ERROR_NONE ? "the document is not accepted" : XML_ErrorString(erro);
    }
    return resultado_;
  }

  ULONG Linha() const { return static_cast<ULONG>(XML_GetCurrentLineNumber(analisador_.get())); }

  // Returns why Executa failed; a text that lives as long as the program.
  const char* Descricao() const { return recusa_; }

 private:
  struct Liberacao {
    void operator()(XML_Parser analisador) const { XML_ParserFree(analisador); }
  };
  using Analisador = std::unique_ptr<std::remove_pointer_t<XML_Parser>, Liberacao>;

  // The parser scans an unfinished element again with each piece that it gets. The first piece is therefore the whole
  // document if its size is known, and pieces grow with what has been read: a long element must not cost the square of
  // its length.
  void Percorre() {
    ULONGLONG lidos = 0;
    ULONG pedaco = PrimeiroPedaco();
    for (bool fim = false; !fim && SUCCEEDED(resultado_);) {
      void* espaco = XML_GetBuffer(analisador_.get(), static_cast<int>(pedaco));
      if (espaco == nullptr) return Falha(E_OUTOFMEMORY, kSemMemoria);
      ULONG quantidade = 0;
      const HRESULT leitura = fonte_.Read(espaco, pedaco, &quantidade);
      if (FAILED(leitura) || quantidade > pedaco) {
        return Falha(FAILED(leitura) ? leitura : E_FAIL, "the stream cannot be read");
      }
      fim = quantidade == 0;
      lidos += quantidade;
      if (XML_ParseBuffer(analisador_.get(), static_cast<int>(quantidade), fim ? XML_TRUE : XML_FALSE) ==
          XML_STATUS_ERROR) {
        const bool semMemoria = XML_GetErrorCode(analisador_.get()) == XML_ERROR_NO_MEMORY;
        Falha(semMemoria ? E_OUTOFMEMORY : E_FAIL, nullptr);
      }
      pedaco = quantidade < pedaco ? kPedacoMinimo : Pedaco(lidos);
    }
  }

  ULONG PrimeiroPedaco() const {
    STATSTG estado{};
    if (FAILED(fonte_.Stat(&estado, 0))) return kPedacoMinimo;
    return Pedaco(estado.cbSize + 1);  // one byte more than there is, so that the end is seen at once
  }

  static ULONG Pedaco(ULONGLONG bytes) {
    return static_cast<ULONG>(std::clamp<ULONGLONG>(bytes, kPedacoMinimo, kPedacoMaximo));
  }

  // The first failure counts. A null `recusa` stands for the parser's own reason.
  void Falha(HRESULT resultado, const char* recusa) {
    if (FAILED(resultado_)) return;
    resultado_ = resultado;
    recusa_ = recusa;
  }

  void Para(HRESULT resultado, const char* recusa) {
    Falha(resultado, recusa);
    XML_StopParser(analisador_.get(), XML_FALSE);
  }

  // ---- Called by the parser, through which no exception may pass ----

  static void InicioElemento(void* analise, const XML_Char* nome, const XML_Char** pares) noexcept {
    auto& esta = *static_cast<Analise*>(analise);
    if (++esta.nivel_ > kNiveis) return esta.Para(E_FAIL, "elements are nested too deeply");
    esta.atributos_.Define(pares);
    try {
      const HRESULT resultado = esta.tratador_.InicioElemento(TextoLido(nome, esta.nome_), &esta.atributos_);
      if (FAILED(resultado)) esta.Para(resultado, resultado == E_OUTOFMEMORY ? kSemMemoria : kElementoRecusado);
    } catch (const std::bad_alloc&) {
      esta.Para(E_OUTOFMEMORY, kSemMemoria);
    }
  }

  static void FimElemento(void* analise, const XML_Char* nome) noexcept {
    auto& esta = *static_cast<Analise*>(analise);
    if (FAILED(esta.resultado_)) return;  // an element without content ends although its start was refused
    --esta.nivel_;
    try {
      const HRESULT resultado = esta.tratador_.FimElemento(TextoLido(nome, esta.nome_));
      if (FAILED(resultado)) esta.Para(resultado, kElementoRecusado);
    } catch (const std::bad_alloc&) {
      esta.Para(E_OUTOFMEMORY, kSemMemoria);
    }
  }

  // The parser lets the declaration override the mark of UTF-8, and would read each letter with an accent as two
  // characters. Only a mark can precede a declaration, and only that of UTF-8 has three bytes.
  static void DeclaracaoDocumento(void* analise, const XML_Char*, const XML_Char* codificacao, int) noexcept {
    auto& esta = *static_cast<Analise*>(analise);
    const bool temMarca = XML_GetCurrentByteIndex(esta.analisador_.get()) == kBytesMarcaUtf8;
    if (!temMarca || codificacao == nullptr || text::EqualNoCase(codificacao, "UTF-8")) return;
    esta.Para(E_FAIL, "the document has the mark of UTF-8 but declares another encoding");
  }

  static void DeclaracaoTipo(void* analise, const XML_Char*, const XML_Char*, const XML_Char*, int) noexcept {
    static_cast<Analise*>(analise)->Para(E_FAIL, "document type declarations are not accepted");
  }

  // The desktop's code page; the parser knows the other encodings itself.
  static int Codificacao(void*, const XML_Char* nome, XML_Encoding* codificacao) noexcept {
    if (!text::EqualNoCase(nome, "windows-1252") && !text::EqualNoCase(nome, "cp1252")) return XML_STATUS_ERROR;
    try {
      for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        codificacao->map[byte] = text::ToUtf16(std::string_view(&c, 1)).front();
      }
    } catch (const std::bad_alloc&) {
      return XML_STATUS_ERROR;
    }
    codificacao->data = nullptr;
    codificacao->convert = nullptr;
    codificacao->release = nullptr;
    return XML_STATUS_OK;
  }

  // The program's allocation functions, even if the library would use others.
  static constexpr XML_Memory_Handling_Suite kMemoria = {std::malloc, std::realloc, std::free};
  static constexpr XML_Index kBytesMarcaUtf8 = 3;
  static constexpr ULONG kPedacoMinimo = 4096;
  static constexpr ULONG kPedacoMaximo = 1u << 30;

  IStream& fonte_;
  ITratadorMarcacao& tratador_;
  Analisador analisador_{XML_ParserCreate_MM(nullptr, &kMemoria, nullptr)};
  AtributosLidos atributos_;
  std::string nome_;
  std::size_t nivel_ = 0;
  HRESULT resultado_ = S_OK;
  const char* recusa_ = nullptr;
};

class CErroMarcacao final : public ObjetoMarcacao<IErroMarcacao, IID_IErroMarcacao> {
 public:
  CErroMarcacao(ULONG linha, const char* descricao) : linha_(linha), descricao_(descricao) {}

  HRESULT BuscaLinha(ULONG* linha) override {
    if (linha == nullptr) return E_POINTER;
    *linha = linha_;
    return S_OK;
  }

  HRESULT BuscaDescricao(BSTR* descricao) override {
    if (descricao == nullptr) return E_POINTER;
    *descricao = nullptr;
    try {
      *descricao = SysAllocString(text::ToUtf16(descricao_).c_str());
    } catch (const std::bad_alloc&) {
    }
    return *descricao != nullptr ? S_OK : E_OUTOFMEMORY;
  }

 private:
  ~CErroMarcacao() override = default;

  const ULONG linha_;
  const char* const descricao_;
};

}  // namespace

CLeitorMarcacao::~CLeitorMarcacao() {
  DefineTratador(nullptr);
}

HRESULT CLeitorMarcacao::DefineTratador(ITratadorMarcacao* tratador) {
  if (tratador != nullptr) tratador->AddRef();
  if (tratador_ != nullptr) tratador_->Release();
  tratador_ = tratador;
  return S_OK;
}

HRESULT CLeitorMarcacao::Analisa(VARIANT fonte) {
  resultado_ = Le(fonte);
  DefineTratador(nullptr);
  return resultado_;
}

HRESULT CLeitorMarcacao::Le(const VARIANT& fonte) {
  linha_ = 1;
  descricao_ = "there is nothing to read";
  if (tratador_ == nullptr || fonte.vt != VT_UNKNOWN || fonte.punkVal == nullptr) return E_INVALIDARG;
  ComPtr<IStream> bytes;
  if (FAILED(fonte.punkVal->QueryInterface(IID_IStream, bytes.OutVoid()))) return E_INVALIDARG;
  try {
    Analise analise(*bytes, *tratador_);
    const HRESULT resultado = analise.Executa();
    linha_ = analise.Linha();
    descricao_ = analise.Descricao();
    return resultado;
  } catch (const std::bad_alloc&) {
    descricao_ = kSemMemoria;
    return E_OUTOFMEMORY;
  }
}

HRESULT CLeitorMarcacao::BuscaErro(IUnknown** erro) {
  if (erro == nullptr) return E_POINTER;
  *erro = nullptr;
  if (SUCCEEDED(resultado_)) return S_FALSE;
  try {
    auto* novo = new CErroMarcacao(linha_, descricao_);
    novo->AddRef();
    *erro = novo;
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace kestor
