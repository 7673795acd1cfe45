// The markup component by itself: what is written comes back, and what is no document is refused.
#include <gtest/gtest.h>
#include <random>

#include "marcacao/componente_marcacao.h"
#include "platform/text/text.h"
#include "recorded.h"

namespace {

using namespace kestor;

class MarkupTest : public testing::Test {
 protected:
  ComPtr<IEscritorMarcacao> NewWriter(CMemStream& stream) {
    auto writer = NewMarkup<IEscritorMarcacao>(CLSID_EscritorMarcacao, IID_IEscritorMarcacao);
    writer->DefineSaida(&stream);
    return writer;
  }
  ComPtr<IAtributosMarcacao> NewList() {
    return NewMarkup<IAtributosMarcacao>(CLSID_AtributosMarcacao, IID_IAtributosMarcacao);
  }

  ComponenteMarcacao component_;
};

std::string Bytes(const CMemStream& stream) {
  return {reinterpret_cast<const char*>(stream.Buffer()), stream.Size()};
}

std::string AllBytes() {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte)
    bytes += static_cast<char>(byte);
  return bytes;
}

TEST_F(MarkupTest, DocumentsLookAsDescribed) {
  CMemStream stream;
  const auto writer = NewWriter(stream);
  const auto list = NewList();
  writer->IniciaDocumento();
  list->Adiciona("a", "1 < 2 & \"x\"\t\r\n\x01\xE9\x80");
  list->Adiciona("b", "");
  writer->IniciaElemento("raiz", list.Get());
  list->Limpa();
  writer->IniciaElemento("vazio", nullptr);
  writer->FinalizaElemento("vazio");
  writer->IniciaElemento("cheio", list.Get());
  writer->IniciaElemento("x", nullptr);
  writer->FinalizaElemento("x");
  writer->FinalizaElemento("cheio");
  writer->FinalizaElemento("raiz");
  EXPECT_EQ(stream.Size(), 0U);
  EXPECT_EQ(writer->FinalizaDocumento(), S_OK);
  EXPECT_EQ(Bytes(stream),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<raiz a=\"1 &lt; 2 &amp; &quot;x&quot;&#9;&#13;&#10;\xEE\x80\x81\xC3\xA9\xE2\x82\xAC\" b=\"\">\n"
            "  <vazio/>\n"
            "  <cheio>\n"
            "    <x/>\n"
            "  </cheio>\n"
            "</raiz>\n");
}

// Trees of random shape with random values: every byte of a value, and the order and depth of elements, come back.
TEST_F(MarkupTest, WhatIsWrittenComesBack) {
  std::mt19937 random(20);
  const std::vector<std::string> names = {"a", "B_2", "nome.longo-x", "_"};
  const auto pick = [&](std::size_t below) { return random() % below; };
  for (int round = 0; round < 200; ++round) {
    CMemStream stream;
    const auto writer = NewWriter(stream);
    std::vector<RecordedElement> written;
    std::vector<std::string> open;
    writer->IniciaDocumento();
    const std::size_t elements = 1 + pick(30);
    for (std::size_t i = 0; i < elements; ++i) {
      while (open.size() > 1 && pick(2) == 0) {
        writer->FinalizaElemento(open.back().c_str());
        open.pop_back();
      }
      const auto list = NewList();
      open.push_back(names[pick(names.size())]);
      written.push_back({open.back(), open.size(), {}});
      for (const std::string& name : names) {
        if (pick(3) == 0) continue;
        std::string value = round == 0 ? AllBytes() : "";
        for (std::size_t n = pick(40); n > 0; --n)
          value += static_cast<char>(1 + pick(255));
        EXPECT_EQ(list->Adiciona(name.c_str(), value.c_str()), S_OK);
        written.back().attributes.emplace_back(name, value);
        const char* found = nullptr;
        EXPECT_EQ(list->BuscaValor(name.c_str(), &found), S_OK);
        EXPECT_STREQ(found, value.c_str());
      }
      EXPECT_EQ(writer->IniciaElemento(open.back().c_str(), list.Get()), S_OK);
    }
    for (; !open.empty(); open.pop_back())
      writer->FinalizaElemento(open.back().c_str());
    ASSERT_EQ(writer->FinalizaDocumento(), S_OK);

    Recorder recorder(names);
    ASSERT_EQ(Read(Bytes(stream), recorder), S_OK);
    EXPECT_EQ(recorder.elements, written);
    EXPECT_EQ(recorder.begun + recorder.finished, 2);
  }
}

// Of a document in which anything went wrong, nothing reaches the stream, whoever ignores the results.
TEST_F(MarkupTest, BrokenDocumentsAreNotWritten) {
  const auto spoilt = [&](const char* name) {
    auto list = NewList();
    list->Adiciona("a", "1");
    list->Adiciona(name, "2");
    return list;
  };
  using Steps = std::function<void(IEscritorMarcacao&)>;
  const std::pair<const char*, Steps> cases[] = {
      {"no element", [](auto&) {}},
      {"not closed", [](auto& w) { w.IniciaElemento("a", nullptr); }},
      {"two roots",
       [](auto& w) {
         for (int i = 0; i < 2; ++i) {
           w.IniciaElemento("a", nullptr);
           w.FinalizaElemento("a");
         }
       }},
      {"crossed",
       [](auto& w) {
         w.IniciaElemento("a", nullptr);
         w.IniciaElemento("b", nullptr);
         w.FinalizaElemento("a");
         w.FinalizaElemento("b");
       }},
      {"name", [](auto& w) { w.IniciaElemento("1a", nullptr), w.FinalizaElemento("1a"); }},
      {"attribute name", [&](auto& w) { w.IniciaElemento("a", spoilt("b c").Get()), w.FinalizaElemento("a"); }},
      {"attribute twice", [&](auto& w) { w.IniciaElemento("a", spoilt("a").Get()), w.FinalizaElemento("a"); }},
  };
  for (const auto& [what, steps] : cases) {
    SCOPED_TRACE(what);
    CMemStream stream;
    const auto writer = NewWriter(stream);
    writer->IniciaDocumento();
    steps(*writer);
    EXPECT_TRUE(FAILED(writer->FinalizaDocumento()));
    EXPECT_EQ(stream.Size(), 0U);
  }
}

TEST_F(MarkupTest, WhatIsNoDocumentIsRefused) {
  using namespace std::string_literals;
  const std::string kTwoEncodings = "1: the document has the mark of UTF-8 but declares another encoding";
  const std::pair<std::string, std::string> cases[] = {
      {"", "1: "},
      {"texto", "1: "},
      {"<a>\n<b>\n</a>", "3: "},
      {"<a/><b/>", "1: "},
      {"<a b='1' b='2'/>", "1: "},
      {"<a b='1<'/>", "1: "},
      {"<a b='&nada;'/>", "1: "},
      {"<a b='&#0;'/>", "1: "},
      {"<a b='\xC3('/>", "1: "},
      {"<a b='\x01'/>", "1: "},
      {"<a\0b/>"s, "1: "},
      {"<!DOCTYPE a [<!ENTITY x 'y'>]><a b='&x;'/>", "1: document type declarations are not accepted"},
      {"<!DOCTYPE a SYSTEM 'file:///etc/passwd'><a/>", "1: document type declarations are not accepted"},
      {"<?xml version='1.0' encoding='KOI8-R'?><a/>", "1: "},
      {"\xEF\xBB\xBF<?xml version='1.0' encoding='ISO-8859-1'?><a b='\xC3\xA9'/>", kTwoEncodings},
      {"\xEF\xBB\xBF<?xml version='1.0' encoding='us-ascii'?><a/>", kTwoEncodings},
      {"\xEF\xBB\xBF<?xml version='1.0' encoding='cp1252'?><a b='\xC3\xA9'/>", kTwoEncodings},
  };
  for (const auto& [document, expected] : cases) {
    for (const ULONG piece : {ULONG{1}, kWhole}) {
      Recorder recorder;
      std::string reason;
      EXPECT_EQ(Read(document, recorder, &reason, piece), E_FAIL) << document;
      EXPECT_TRUE(reason.starts_with(expected) && reason.size() > 3) << document << ": " << reason;
      EXPECT_EQ(recorder.finished, 0);
    }
  }
  Recorder stops({}, 2);
  std::string reason;
  EXPECT_EQ(Read("<a>\n<b/><c/></a>", stops, &reason), E_FAIL);
  EXPECT_EQ(stops.elements.size(), 2U);
  EXPECT_EQ(reason, "2: an element is not known in this place, or an attribute is missing or wrong");
}

TEST_F(MarkupTest, OtherEncodingsAreRead) {
  const std::u16string wide = u"\xFEFF<?xml version='1.0' encoding='UTF-16'?><a b='\xE9\x20AC\x416'/>";
  const std::pair<std::string, std::string> cases[] = {
      {"<?xml version='1.0' encoding='ISO-8859-1'?><a b='\xE9\x80\x81'/>", "\xE9\x80\x81"},
      {"<?xml version='1.0' encoding='CP1252'?><a b='\x9F'/>", "\x9F"},
      {"<?xml version='1.0' encoding='windows-1252'?><a b='\xE9\x80'/>", "\xE9\x80"},
      {{reinterpret_cast<const char*>(wide.data()), wide.size() * 2}, "\xE9\x80?"},
      {"\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8'?><a b='\xC3\xA9'/>", "\xE9"},
      {"\xEF\xBB\xBF<?xml version='1.0'?><a b='\xC3\xA9'/>", "\xE9"},
      {"\xEF\xBB\xBF<a b='\xC3\xA9'/>", "\xE9"},
      {"<a b='\xD0\x96\xF0\x9F\x98\x80\xEE\x80\x80\xEE\x82\x85'/>", "????"},  // characters that the code page lacks
  };
  for (const auto& [document, value] : cases) {
    for (const ULONG piece : {ULONG{1}, kWhole}) {
      Recorder recorder({"b"});
      ASSERT_EQ(Read(document, recorder, nullptr, piece), S_OK) << document;
      EXPECT_EQ(recorder.elements.front().attributes.front().second, value);
    }
  }
}

// Length costs no more than in proportion, which would take minutes otherwise, and depth nothing.
TEST_F(MarkupTest, HugeDocumentsAreReadInProportion) {
  std::string deep = "<a>";
  for (int i = 0; i < 1'000'000; ++i)
    deep += "<a>";
  Recorder recorder;
  std::string reason;
  EXPECT_EQ(Read(deep, recorder, &reason), E_FAIL);
  EXPECT_EQ(recorder.elements.size(), 1000U);
  EXPECT_EQ(reason, "1: elements are nested too deeply");

  std::string wide = "<a";
  for (int i = 0; i < 1'000'000; ++i)
    wide += " b" + std::to_string(i) + "=''";
  Recorder many({"b999999"});
  EXPECT_EQ(Read(wide + "/>", many), S_OK);
  EXPECT_EQ(many.elements.front().attributes.size(), 1U);

  Recorder longValue({"b"});
  EXPECT_EQ(Read("<a b='" + std::string(8'000'000, 'x') + "'/>", longValue), S_OK);
  EXPECT_EQ(longValue.elements.front().attributes.front().second.size(), 8'000'000U);
}

}  // namespace
