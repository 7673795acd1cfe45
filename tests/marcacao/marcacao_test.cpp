// The markup component: output is XML that can be read back, and large documents can be read. The transcript
// documents_from_elsewhere.txt of kestorctl shows encodings and content that is no document.
#include <functional>
#include <libxml/xmlreader.h>
#include <random>
#include <sstream>

#include "../document/document_fixture.h"
#include "platform/text/text.h"

namespace {

using namespace kestor;

class MarkupTest : public DocumentTest {};

// ---- Writing -------------------------------------------------------------------------------------------------------

// Returns what the steps of a writer produce.
std::string Written(std::function<void(IEscritorMarcacao&)> steps) {
  struct Steps : CDocRelatorio {
    void EscreveMarcacao(IEscritorMarcacao& writer) const override { steps(writer); }
    std::function<void(IEscritorMarcacao&)> steps;
  } document;
  document.steps = std::move(steps);
  return Content(document);
}

ComPtr<IAtributosMarcacao> NewList() {
  ComPtr<IAtributosMarcacao> list;
  CoCreateInstance(CLSID_AtributosMarcacao, nullptr, CLSCTX_ALL, IID_IAtributosMarcacao, list.OutVoid());
  return list;
}

// Returns the elements of a document with their attributes, as another XML parser finds them: "0 relatorio versao=1".
std::string Outline(const std::string& document) {
  const std::unique_ptr<xmlTextReader, decltype(&xmlFreeTextReader)> reader(
      xmlReaderForMemory(document.data(), static_cast<int>(document.size()), nullptr, nullptr, XML_PARSE_NONET),
      xmlFreeTextReader);
  const auto text = [](const xmlChar* value) { return std::string(reinterpret_cast<const char*>(value)); };
  std::string outline;
  int result = 0;
  while ((result = xmlTextReaderRead(reader.get())) == 1) {
    if (xmlTextReaderNodeType(reader.get()) != XML_READER_TYPE_ELEMENT) continue;
    outline += std::to_string(xmlTextReaderDepth(reader.get())) + " " + text(xmlTextReaderConstName(reader.get()));
    while (xmlTextReaderMoveToNextAttribute(reader.get()) == 1)
      outline += " " + text(xmlTextReaderConstName(reader.get())) + "=" + text(xmlTextReaderConstValue(reader.get()));
    outline += "\n";
  }
  EXPECT_EQ(result, 0) << document;
  return outline;
}

// Returns a value in UTF-8, with private-use characters for the control characters that XML cannot hold.
std::string Utf8(const std::string& value) {
  std::string utf8;
  for (const char c : value) {
    const bool isForbidden = c > 0 && c < ' ' && c != '\t' && c != '\n' && c != '\r';
    utf8 += isForbidden ? std::string("\xEE\x80") + static_cast<char>(0x80 + c) : text::ToUtf8({&c, 1});
  }
  return utf8;
}

// Trees of random shape with random values: every byte of a value, and the order and depth of elements.
TEST_F(MarkupTest, AnotherParserFindsWhatIsWritten) {
  std::mt19937 random(20);
  const std::vector<std::string> names = {"a", "B_2", "nome.longo-x", "_"};
  const auto pick = [&](std::size_t below) { return random() % below; };
  const auto list = NewList();
  for (int round = 0; round < 200; ++round) {
    std::string outline;
    const std::string document = Written([&](IEscritorMarcacao& writer) {
      std::vector<std::string> open;
      for (std::size_t elements = 1 + pick(30); elements > 0; --elements) {
        for (; open.size() > 1 && pick(2) == 0; open.pop_back())
          writer.FinalizaElemento(open.back().c_str());
        const std::string& element = names[pick(names.size())];
        outline += std::to_string(open.size()) + " " + element;
        list->Limpa();
        for (const std::string& name : names) {
          if (pick(3) == 0) continue;
          std::string value;
          for (std::size_t n = pick(40); n > 0; --n)
            value += static_cast<char>(1 + pick(255));
          EXPECT_EQ(list->Adiciona(name.c_str(), value.c_str()), S_OK);
          outline += " " + name + "=" + Utf8(value);
          const char* found = nullptr;
          EXPECT_EQ(list->BuscaValor(name.c_str(), &found), S_OK);
          EXPECT_STREQ(found, value.c_str());
        }
        outline += "\n";
        EXPECT_EQ(writer.IniciaElemento(element.c_str(), list.Get()), S_OK);
        open.push_back(element);
      }
      for (; !open.empty(); open.pop_back())
        writer.FinalizaElemento(open.back().c_str());
    });
    EXPECT_EQ(Outline(document), outline);
  }
}

// If anything goes wrong in a document, nothing reaches the stream, even though the results are ignored. A step starts
// an element, with the attributes x and the text after "@", or ends one.
TEST_F(MarkupTest, BrokenDocumentsAreNotWritten) {
  const std::pair<const char*, bool> cases[] = {{"a@y b /b /a", true}, {"", false},          {"a", false},
                                                {"a /a a /a", false},  {"a b /a /b", false}, {"1a /1a", false},
                                                {"a@1 /a", false},     {"a@y? /a", false},   {"a@x /a", false}};
  for (const auto& [steps, isWritten] : cases) {
    std::istringstream words(steps);
    HRESULT result = E_FAIL;
    const std::string document = Written([&](IEscritorMarcacao& writer) {
      for (std::string step; words >> step;) {
        const std::size_t at = step.find('@');
        const auto list = NewList();
        list->Adiciona("x", "1");
        if (at != std::string::npos) list->Adiciona(step.substr(at + 1).c_str(), "2");
        if (step[0] == '/')
          writer.FinalizaElemento(step.substr(1).c_str());
        else
          writer.IniciaElemento(step.substr(0, at).c_str(), list.Get());
      }
      result = writer.FinalizaDocumento();
    });
    EXPECT_TRUE(SUCCEEDED(result) == isWritten && document.empty() != isWritten) << steps;
  }
}

// ---- Reading -------------------------------------------------------------------------------------------------------

constexpr const char* kBegin = "<relatorio dataInicial='' dataFinal='' nome='";

// Returns the name in the document, or why it is refused.
std::string Read(const std::string& content) {
  CDocRelatorio document;
  std::string reason;
  return Load(document, content, 1, &reason) ? "read: " + document.nome : reason;
}

// Time grows in proportion to length, otherwise the test would take minutes. Depth costs nothing.
TEST_F(MarkupTest, HugeDocumentsAreReadInProportion) {
  const auto repeated = [](int times, const std::string& text) {
    std::string all;
    for (int i = 0; i < times; ++i)
      all += text;
    return all;
  };
  const auto nested = [&](int levels) {
    return kBegin + std::string("'><exportacao>") + repeated(levels - 2, "<a>") + repeated(levels - 2, "</a>") +
           "</exportacao></relatorio>";
  };
  EXPECT_EQ(Read(nested(1000)), "read: ");
  EXPECT_EQ(Read(nested(1001)), "its content is no report document, line 1: elements are nested too deeply");
  EXPECT_EQ(Read(nested(1'000'000)), "its content is no report document, line 1: elements are nested too deeply");

  std::string wide = kBegin + std::string("'");
  for (int i = 0; i < 1'000'000; ++i)
    wide += " b" + std::to_string(i) + "=''";
  EXPECT_EQ(Read(wide + "/>"), "read: ");
  const std::string name(8'000'000, 'x');
  EXPECT_TRUE(Read(kBegin + name + "'/>") == "read: " + name);
  CDocRelatorio many;
  many.camposEscolhidos.campos.assign(60'000, {1, "c", "", 1, 'E', 'A', true, 0});
  CDocRelatorio again;
  EXPECT_TRUE(Load(again, Content(many)) && again.camposEscolhidos.campos.back().codigo == 60'000);
}

}  // namespace
