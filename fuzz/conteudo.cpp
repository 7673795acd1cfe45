// Whatever the bytes of a first-generation model and of its export settings, decoded values lie within them, and the
// document made from them can be read. Input: the length of the model (16 bits, little-endian), the model, the
// settings.
#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

#include "document/doc_relatorio.h"
#include "documento_rel.h"
#include "legacy/repositorio_rel.h"
#include "marcacao/componente_marcacao.h"
#include "platform/home/home.h"

namespace {

using namespace kestor;

void Require(bool condition) {
  if (!condition) abort();
}

// A home whose drive D holds the model, its settings and the field catalogue, and a store on it; removed at the end of
// the process.
class Installation {
 public:
  Installation() {
    std::string folder = (std::filesystem::temp_directory_path() / "kestor-fuzz-XXXXXX").string();
    Require(mkdtemp(folder.data()) != nullptr);
    home_ = folder;
    std::filesystem::create_directories(Drive());
    std::ofstream(home_ / "registry.reg", std::ios::binary) << "REGEDIT4\r\n\r\n"
                                                               "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvela]\r\n"
                                                               "\"Relatorios\"=\"D:\\\\\"\r\n\r\n"
                                                               "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvela\\Contabil]\r\n"
                                                               "\"Path\"=\"D:\\\\\"\r\n";
    platform::Home::Use(home_);
    Write("XCT01.REL", "   205 Valor                Valor                 D  12   S  V  S  S\r\n   310\r\n");
    Require(CRepositorioRel::Cria<CRepositorioRel>(nullptr, IID_IZNPL_Rel, rel_.OutVoid(), counter_) == S_OK);
    const OwnedBstr module(SysAllocString(u"CT"));
    const OwnedBstr component(SysAllocString(u"01"));
    Require(rel_->Inicializa(nullptr, module.get(), component.get()) == S_OK);
  }
  ~Installation() {
    std::error_code ignored;
    std::filesystem::remove_all(home_, ignored);
  }
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  void Write(const char* name, std::string_view bytes) const {
    std::ofstream file(Drive() / name, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    Require(file.good());
  }

  IZNPL_Rel& Rel() const { return *rel_; }

 private:
  class Counter final : public Servidor {
   public:
    LONG Trava() override { return 1; }
    LONG Destrava() override { return 1; }
  };

  std::filesystem::path Drive() const { return home_ / "drives" / "d"; }

  std::filesystem::path home_;
  Counter counter_;
  ComponenteMarcacao component_;
  ComPtr<IZNPL_Rel> rel_;
};

void RequireWithin(const ValoresRel& values, std::size_t size) {
  for (const std::string& text : {values.textoCabecalho, values.textoRodape, values.textoFinal})
    Require(text.size() <= size && text.find('\0') == std::string::npos);
  for (const SecaoRel& section :
       {values.colunas, values.filtros, values.ordenacoes, values.subtotais, values.totaisGerais})
    Require(section.quantidade == 0 || section.quantidade <= size / section.largura);
}

void RequireDocument(const CConteudoRel& content) {
  CMemStream stream;
  ComPtr<IEscritorMarcacao> writer;
  ComPtr<IAtributosMarcacao> list;
  Require(CoCreateInstance(CLSID_EscritorMarcacao, nullptr, CLSCTX_ALL, IID_IEscritorMarcacao, writer.OutVoid()) ==
          S_OK);
  Require(CoCreateInstance(CLSID_AtributosMarcacao, nullptr, CLSCTX_ALL, IID_IAtributosMarcacao, list.OutVoid()) ==
          S_OK);
  writer->DefineSaida(&stream);
  writer->IniciaDocumento();
  EscreveDocumento(content, "Vendas", *writer, *list);
  Require(writer->FinalizaDocumento() == S_OK);

  CDocRelatorio document;
  Require(document.CarregaConteudo({1, static_cast<LONG>(stream.Size()), stream.Buffer()}));
  const ValoresRel& values = content.Valores();
  Require(document.impressao.cabecalho.texto == values.textoCabecalho);
  Require(document.impressao.detalhe.textoFinal == values.textoFinal);
  Require(document.impressao.paginaInicial == values.primeiraPagina);
  Require(document.camposEscolhidos.campos.size() <= values.colunas.quantidade);
  Require(document.filtro.condicoes.size() == values.filtros.quantidade);
  Require(document.ordenacao.campos.size() == values.ordenacoes.quantidade);
  Require(document.ordenacao.totalizacoes.size() <= values.subtotais.quantidade + values.totaisGerais.quantidade);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Installation installation;
  if (size < 2) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data + 2), size - 2);
  const std::size_t announced = data[0] + std::size_t{256} * data[1];
  const std::size_t length = std::min(announced, input.size());
  installation.Write("CT01M.REL", input.substr(0, length));
  installation.Write("CT01M.REE", input.substr(length));

  CConteudoRel content;
  Require(content.DefineRepositorio(installation.Rel()));
  Require(content.Carrega("M") == S_OK);
  Require(content.CarregaCatalogo() == S_OK);
  RequireWithin(content.Valores(), length);
  RequireDocument(content);
  return 0;
}
