// Reports as pages: values, lines of data, the layout, and drawings.
#include "preview/preview.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <gmock/gmock.h>
#include <iomanip>
#include <limits>
#include <map>
#include <random>
#include <sstream>

#include "contract/records.h"
#include "marcacao/componente_marcacao.h"
#include "platform/text/text.h"
#include "support/support.h"
#include "value.h"

namespace preview {
namespace {

using kestor::CDocRelatorio;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

// ---- Values --------------------------------------------------------------------------------------------------------

TEST(Decimal, IsReadAsTheDesktopWritesIt) {
  for (const auto& [written, printed] :
       std::map<std::string, std::string>{{"1.234,56", "1234,56"},
                                          {"1234.56", "1234,56"},
                                          {"1.234", "1234"},
                                          {"1.234.567", "1234567"},
                                          {"1.23", "1,23"},
                                          {" -0,5 ", "-0,5"},
                                          {"12,50-", "-12,5"},
                                          {"+7", "7"},
                                          {"-0", "0"},
                                          {"999999999999999999,9999999999", "999999999999999999,9999999999"}}) {
    const auto number = Decimal::Parse(written);
    ASSERT_TRUE(number) << written;
    EXPECT_EQ(number->Print(0, false), printed) << written;
  }
  for (const char* other : {"", "-", ",", "1,", ",5", "1,2,3", "1.2.3", "12.34,5", "1,234.56", "1e5", "R$ 1", "--1",
                            "1234567890123456789", "0,12345678901", "12a"})
    EXPECT_FALSE(Decimal::Parse(other)) << other;
}

TEST(Decimal, IsPrintedAsTheFormatSays) {
  EXPECT_EQ(Decimal::Parse("1234567,5")->Print(2, true), "1.234.567,50");
  EXPECT_EQ(Decimal::Parse("-1234567,5")->Print(-1, true), "-1.234.568");
  EXPECT_EQ(Decimal::Parse("-0,4")->Print(-1, true), "0");
  EXPECT_EQ(Decimal::Parse("0,125")->Print(2, false), "0,125");
  EXPECT_EQ(Decimal::Parse("100")->Print(0, true), "100");
}

TEST(Value, IsShownAndComparedByItsType) {
  EXPECT_EQ(Show('D', 0, "2026-02-28", ""), "28/02/2026");
  EXPECT_EQ(Show('D', 0, "29/02/2025", ""), "29/02/2025");  // no such day: left as it is
  EXPECT_EQ(KeyOf('D', "29/02/2025").kind, Key::Kind::text);
  EXPECT_EQ(Show('d', 0, "2026-2", ""), "02/2026");
  EXPECT_EQ(Show('X', 0, "2", "1=Lucro real;2=Simples"), "Simples");
  EXPECT_EQ(Show('X', 0, "3", "1=Lucro real;2=Simples"), "3");
  EXPECT_LT(KeyOf('D', "31/12/2025"), KeyOf('D', "01/01/2026"));
  EXPECT_LT(KeyOf('N', "9"), KeyOf('N', "10"));
  EXPECT_LT(KeyOf('A', "Água"), KeyOf('A', "banco"));
  EXPECT_EQ(KeyOf('A', "AÇÃO"), KeyOf('A', "ação"));
  EXPECT_LT(KeyOf('N', ""), KeyOf('N', "-1"));
  EXPECT_LT(KeyOf('N', "1"), KeyOf('N', "a"));
}

// ---- A report of everything ----------------------------------------------------------------------------------------

const Fields kFields = {{10, "Conta", "Conta contábil", 'C', 8, ""},
                        {20, "Data", "Data", 'D', 10, ""},
                        {30, "Valor", "Valor", 'V', 12, ""},
                        {40, "Regime", "Regime", 'X', 8, "1=Real;2=Simples"},
                        {50, "Texto", "Histórico", 'H', 12, ""},
                        {60, "Qtde", "Quantidade", 'N', 5, ""},
                        {70, "Mes", "Mês", 'd', 7, ""}};

kestor::CampoEscolhido Column(std::uint16_t code, const char* title, char type, char alignment, std::int32_t width) {
  kestor::CampoEscolhido column;
  column.codigo = code;
  column.cabecalho = text::FromUtf8(title);
  column.tipoDado = type;
  column.alinhamento = alignment;
  column.tamanho = width;
  return column;
}

void FillIn(CDocRelatorio* document) {
  document->nome = "Tudo";
  document->dataInicial = 3;
  document->dataFinal = 9;
  auto& print = document->impressao;
  print.paginaInicial = 7;
  print.cabecalho.texto = "EMPRESA\nResumo";
  print.cabecalho.cabecalhoAdicional = "Filial 2";
  print.cabecalho.dataEmissao = print.cabecalho.periodo = true;
  print.detalhe.textoFinal = "Fim do relato";
  print.rodape.texto = text::FromUtf8("Rodapé um");
  print.rodape.texto2 = text::FromUtf8("Rodapé dois");
  auto& columns = document->camposEscolhidos.campos;
  columns = {Column(10, "Conta", 'C', 'E', 8), Column(1, "Fixo", 'A', 'C', 6), Column(50, "Histórico", 'H', 'E', 12),
             Column(30, "Valor", 'V', 'D', 12), Column(60, "Qtde", 'N', 'D', 5)};
  columns[1].fixo = true;
  columns[1].conteudo = "ab";
  columns[3].formatoValor = kestor::formatoMilharComDecimal;
  columns[4].formatoValor = kestor::formatoMilhar;
  document->ordenacao.campos = {{40, kestor::separadorPagina}, {10, kestor::separadorLinha}};
  document->ordenacao.totalizacoes = {{30, true, true}, {60, false, true}};
  document->filtro.condicoes = {{30, "0", kestor::operadorMaior, kestor::comparadorE},
                                {40, "Simples", kestor::operadorIgual, kestor::comparadorE},
                                {60, "1000", kestor::operadorMaiorIgual, kestor::comparadorOu}};
}

class Preview : public testing::Test {
 protected:
  std::string File(const std::string& content) {
    std::string file = (folder_.Path() / "data.csv").string();
    std::ofstream(file, std::ios::binary) << content;
    return file;
  }

  Lines Read(const std::string& content, std::size_t count = kAll) {
    Lines lines = ReadCsv(File(content), document_, kFields, count, &notes_);
    Sort(document_, kFields, &lines);
    return lines;
  }

  std::string FailureOf(const std::string& content) {
    try {
      Read(content);
    } catch (const Failure& failure) {
      return failure.what();
    }
    return {};
  }

  std::vector<std::string> Pages(const Lines& lines, std::size_t width = 60) {
    std::vector<std::string> pages;
    LayOut(
        document_, kFields, lines, {"27/11/2026", false, width},
        [&](const Page& page) {
          pages.push_back(PlainText(page));
          return true;
        },
        &notes_);
    return pages;
  }

  const kestor::ComponenteMarcacao markup_;
  support::TempFolder folder_;
  CDocRelatorio document_;
  std::vector<std::string> notes_;
};

TEST_F(Preview, SaysWhatIsWrongWithAFile) {
  FillIn(&document_);
  EXPECT_THAT(FailureOf(""), HasSubstr("is empty"));
  EXPECT_THAT(FailureOf("a;b\n1;2\n"), HasSubstr("no column is named like a field"));
  EXPECT_THAT(FailureOf("Conta;Valor\n1;2\n1;\"2\"x\n"), HasSubstr("record 3: a quotation mark"));
  EXPECT_THAT(FailureOf("Conta;Valor\n1;\"2\n"), HasSubstr("ends within quotation marks"));
  EXPECT_THAT(FailureOf("Conta;Valor\n1;\"" + std::string(3 << 20, 'x')), HasSubstr("more than a million"));
  EXPECT_THROW(ReadCsv("/nowhere", document_, kFields, kAll, &notes_), Failure);
  EXPECT_THAT(FailureOf("Conta,Valor\n1,2\n1,1000,50\n"), HasSubstr("record 3: it has more values"));
  EXPECT_THAT(FailureOf(std::string("\xFF\xFE\0C", 4)), HasSubstr("UTF-16"));
  EXPECT_THAT(FailureOf(std::string(20'000, ';') + '\n'), HasSubstr("more than ten thousand columns"));

  document_.filtro.condicoes = {{20, "31/12/99", kestor::operadorDiferente, kestor::comparadorE},
                                {40, "Nenhum", kestor::operadorDiferente, kestor::comparadorE}};
  notes_.clear();
  EXPECT_EQ(Read("Conta;Valor;Regime;Qtde;Data;Texto\n;1.234;simples;;;a\n;x;3;;1/1/26;b\n\n;1234.5;;\n1;2;;;;;;c\n", 2)
                .Count(),
            2U);
  EXPECT_THAT(
      notes_,
      ElementsAre("a condition of the field 20 (Data) compares with what are no dates: 31/12/99",
                  "a condition of the field 40 (Regime) compares with what are no options: Nenhum",
                  "values of the field 20 (Data) that are no dates: 1, the first one 1/1/26 in record 3",
                  "values of the field 30 (Valor) that are no numbers: 1, the first one x in record 3",
                  "in some values of the field 30 (Valor) a dot is taken to separate thousands, in others decimals",
                  "values of the field 40 (Regime) that are no options: 1, the first one 3 in record 3",
                  "records with more or fewer values than the first one: 1, the first one is record 4",
                  "lines beyond the first 2 are left out, of totals as well"));
}

TEST_F(Preview, TakesFilesAsTheyCome) {
  document_.camposEscolhidos.campos = {Column(30, "Valor", 'V', 'D', 12), Column(70, "Mes", 'd', 'D', 7)};
  const Lines expected = Read("Valor;M\xC3\xAAs\n1,5;2/2026\n");
  ASSERT_EQ(expected.Count(), 1U);
  for (const char* file : {"sep=,\r\n30,M\xEAs\r\n\"1,5\",2/2026\r\n", "\n\nvalor\tMES\n1,5\t2/2026",
                           "\xEF\xBB\xBFVALOR;x;mes;valor\n1,5;;2/2026;9\n"})
    EXPECT_EQ(Read(file).values, expected.values) << file;
  EXPECT_THAT(notes_, testing::IsEmpty());
  // If two fields fit a name, the one with that alias wins over the one with that description.
  const Fields fields = {{30, "x", "Mes", 'V', 12, ""}, {70, "Mes", "", 'd', 7, ""}};
  const Lines lines = ReadCsv(File("mes\n1/2026\n"), document_, fields, kAll, &notes_);
  EXPECT_THAT(lines.values, ElementsAre("", "1/2026"));
  // A report of fixed columns has as many lines as the file has.
  document_.camposEscolhidos.campos.resize(1);
  document_.camposEscolhidos.campos[0].fixo = true;
  EXPECT_EQ(Read("a;b\n1;2\n3;4\n").Count(), 2U);
  // A field that the catalogue lacks is as its column says.
  EXPECT_EQ(FieldWithout(document_, 30).type, 'A');
  document_.camposEscolhidos.campos[0].fixo = false;
  EXPECT_EQ(FieldWithout(document_, 30).type, 'V');
}

TEST_F(Preview, AddsUpExactlyInEveryGroup) {
  document_.ordenacao.campos = {{40, kestor::separadorNenhum}, {10, kestor::separadorNenhum}};
  document_.ordenacao.totalizacoes = {{30, true, true}};
  document_.camposEscolhidos.campos = {Column(30, "Valor", 'V', 'D', 30)};
  std::mt19937_64 random(1);
  constexpr std::int64_t kOne = 10'000'000'000;
  std::map<std::string, std::int64_t> sums;  // in units of the tenth decimal
  std::int64_t all = 0;
  const auto printed = [](std::int64_t sum, std::size_t atLeast) {
    const std::uint64_t size = sum < 0 ? 0 - static_cast<std::uint64_t>(sum) : static_cast<std::uint64_t>(sum);
    std::string decimals = std::to_string(size % kOne);
    decimals.insert(0, 10 - decimals.size(), '0');
    while (decimals.size() > atLeast && decimals.back() == '0')
      decimals.pop_back();
    return (sum < 0 ? "-" : "") + std::to_string(size / kOne) + (decimals.empty() ? "" : ',' + decimals);
  };
  std::string csv = "Regime;Conta;Valor\n";
  for (int i = 0; i < 100'000; ++i) {
    std::int64_t step = 1;  // of the value's last decimal
    for (std::uint64_t decimals = random() % 11; decimals < 10; ++decimals)
      step *= 10;
    const std::int64_t value = (static_cast<std::int64_t>(random() % 2000) - 1000) * step;
    const std::string account = std::to_string(random() % 20 + 10);
    const bool isReal = random() % 2 == 0;
    csv.append(isReal ? "1;" : "2;").append(account).append(";").append(printed(value, 0)).append("\n");
    sums[(isReal ? "Real/" : "Simples/") + account] += value;
    all += value;
  }
  document_.ordenacao.somenteTotais = true;
  std::string text;
  for (const std::string& page : Pages(Read(csv)))
    text += page;
  EXPECT_THAT(notes_, testing::IsEmpty());
  std::size_t from = 0;
  const auto expectSum = [&](const std::string& label, std::int64_t expected) {
    from = text.find(label, from);
    ASSERT_NE(from, std::string::npos) << label;
    const std::size_t sum = text.find_first_not_of(' ', text.find('\n', from) + 1);
    EXPECT_EQ(text.substr(sum, text.find('\n', sum) - sum), printed(expected, 2)) << label;
  };
  for (const auto& [group, sum] : sums)
    expectSum("Total de Conta contábil: " + group.substr(group.find('/') + 1) + "\n", sum);
  expectSum("Total geral\n", all);
}

TEST_F(Preview, DrawsSamplesTheSameEveryTime) {
  FillIn(&document_);
  document_.impressao.cabecalho.logotipo = true;
  document_.impressao.orientacao = kestor::orientacaoPaisagem;
  Lines lines = SampleLines(document_, kFields, 30);
  EXPECT_EQ(lines.Count(), 30U);
  EXPECT_EQ(lines.values, SampleLines(document_, kFields, 30).values);
  Sort(document_, kFields, &lines);
  Pdf pdf("Tudo", "");
  std::size_t pages = 0;
  LayOut(
      document_, kFields, lines, {"27/11/2026", true, 0},
      [&](const Page& page) {
        EXPECT_GT(page.width, page.height);
        EXPECT_TRUE(page.logo);
        const std::string png = DrawPng(page, "");
        EXPECT_EQ(png.substr(0, 8), "\x89PNG\r\n\x1A\n");
        EXPECT_EQ(png.substr(16, 8), std::string("\0\0\x06\x94\0\0\x04\xA7", 8));  // 1684 by 1191 pixels
        EXPECT_EQ(png.substr(png.size() - 8, 4), "IEND");
        EXPECT_THAT(DrawSvg(page, ""), HasSubstr("<svg"));
        EXPECT_THROW(DrawSvg(page, "/nowhere.png"), Failure);
        const bool saysConditions = std::any_of(page.texts.begin(), page.texts.end(), [](const PlacedText& text) {
          return text.text == "Condições: Valor > 0 e Regime = Simples ou Qtde ≥ 1000";
        });
        EXPECT_TRUE(saysConditions);
        pdf.Add(page);
        ++pages;
        return true;
      },
      nullptr);
  EXPECT_GT(pages, 1U);
  EXPECT_EQ(pdf.Finish().substr(0, 5), "%PDF-");
}

TEST_F(Preview, EndsWithTheLastPageThatIsWanted) {
  FillIn(&document_);
  document_.ordenacao.campos = {{10, kestor::separadorNenhum}, {20, kestor::separadorNenhum}};
  for (std::size_t lines = 1; lines < 100; ++lines) {
    int shown = 0;
    LayOut(
        document_, kFields, SampleLines(document_, kFields, lines), {"", true, 60},
        [&](const Page&) {
          ++shown;
          return false;
        },
        nullptr);
    EXPECT_EQ(shown, 1) << lines;
  }
}

TEST_F(Preview, DrawsWhateverADocumentSays) {
  const std::string noise = "\x01\x1B[2J\r\n\t\xFF" + std::string(3 << 20, 'W');
  for (const std::int32_t size : {-5, 0, 10'000, std::numeric_limits<std::int32_t>::max()}) {
    for (const float margin : {-1.0F, 1e30F, std::numeric_limits<float>::quiet_NaN()}) {
      FillIn(&document_);
      auto& print = document_.impressao;
      print.margemEsquerda = print.margemSuperior = margin;
      print.paginaInicial = std::numeric_limits<std::int32_t>::max();
      print.cabecalho.tamanhoFonte = print.detalhe.tamanhoFonteColuna = print.detalhe.tamanhoFonteDetalhe =
          print.rodape.tamanhoFonte = size;
      print.cabecalho.texto = print.cabecalho.fonte = print.rodape.texto = print.detalhe.textoFinal = noise;
      document_.camposEscolhidos.campos[1].tamanho = size;
      document_.camposEscolhidos.campos[1].conteudo = noise;
      document_.camposEscolhidos.campos.resize(1'000'000, document_.camposEscolhidos.campos[3]);
      document_.camposEscolhidos.campos[0].cabecalho = noise;
      document_.ordenacao.campos.resize(10'000, {40, 77});
      document_.ordenacao.totalizacoes.resize(10'000, {30, true, true});
      std::size_t pages = 0;
      LayOut(
          document_, kFields, SampleLines(document_, kFields, 3), {"", true, 0},
          [&](const Page& page) {
            for (const PlacedText& text : page.texts) {
              EXPECT_GE(text.x, 0);
              EXPECT_LE(text.x + text.width, page.width + 1);
              EXPECT_LE(text.baseline, page.height + 1) << text.text;
            }
            EXPECT_TRUE(pages != 0 || !DrawPng(page, "").empty());
            return ++pages < 50;
          },
          &notes_);
      EXPECT_GT(pages, 0U);
      EXPECT_LE(pages, 50U);
    }
  }
}

// ---- Whole pages ---------------------------------------------------------------------------------------------------

// Returns everything on a page with its place in points.
std::string Placed(const Page& page) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(1) << page.width << " x " << page.height << '\n';
  for (const Font& font : page.fonts)
    out << "font " << font.family << ' ' << font.size << (font.bold ? " bold\n" : "\n");
  if (page.logo)
    out << "logo " << page.logo->x << ' ' << page.logo->y << ", " << page.logo->width << " x " << page.logo->height
        << '\n';
  for (const Rule& rule : page.rules)
    out << "rule " << rule.x << ' ' << rule.y << ", " << rule.width << '\n';
  for (const PlacedText& text : page.texts)
    out << text.x << ' ' << text.baseline << ", " << text.width
        << (text.align == Align::left    ? " left "
            : text.align == Align::right ? " right "
                                         : " centre ")
        << text.font << ": " << text.text << '\n';
  return out.str();
}

// Each file has a title, a document, its data or the number of sample lines, the kind of page, and the expected pages
// with their notes.
class WholePages : public Preview, public testing::WithParamInterface<std::string> {
 protected:
  // Returns what follows the line that begins with the word, up to the next such line; `*rest` gets the rest of that
  // line.
  std::string Part(const std::string& word, std::string* rest) {
    const std::string mark = "\n== " + word;
    const std::size_t at = text_.find(mark);
    if (at == std::string::npos) return {};
    const std::size_t end = text_.find('\n', at + 1);
    *rest = text_.substr(at + mark.size(), end - at - mark.size());
    return text_.substr(end + 1, text_.find("\n== ", end) - end);
  }

  const std::string text_ = support::ReadFile(std::string(PREVIEW_PAGES) + '/' + GetParam() + ".txt");
};

TEST_P(WholePages, AreLaidOut) {
  std::string rest;
  std::string content = Part("document", &rest);
  std::string reason;
  ASSERT_TRUE(document_.CarregaConteudo(
      {1, static_cast<LONG>(content.size()), reinterpret_cast<std::uint8_t*>(content.data())}, &reason))
      << reason;
  const std::string data = Part("data", &rest);
  Lines lines;
  if (!data.empty()) {
    lines = ReadCsv(File(data), document_, kFields, kAll, &notes_);
  } else {
    Part("samples", &rest);
    lines = SampleLines(document_, kFields, std::stoul(rest));
  }
  Sort(document_, kFields, &lines);
  const bool isDrawing = text_.find("\n== drawing\n") != std::string::npos;
  const std::string expected = Part(isDrawing ? "drawing" : "text", &rest);
  std::string printed;
  int number = 0;
  LayOut(
      document_, kFields, lines, {"27/11/2026", data.empty(), isDrawing ? 0 : std::stoul(rest)},
      [&](const Page& page) {
        printed += "-- page " + std::to_string(++number) + '\n' + (isDrawing ? Placed(page) : PlainText(page));
        return true;
      },
      &notes_);
  for (const std::string& note : notes_)
    printed += "! " + note + '\n';
  EXPECT_TRUE(printed == expected) << "expected:\n" << expected << "printed:\n" << printed;
}

std::vector<std::string> PageFiles() {
  std::vector<std::string> files;
  for (const std::string& name : support::Names(PREVIEW_PAGES)) {
    if (name.ends_with(".txt")) files.push_back(name.substr(0, name.size() - 4));
  }
  return files;
}

INSTANTIATE_TEST_SUITE_P(, WholePages, testing::ValuesIn(PageFiles()), [](const auto& test) { return test.param; });

}  // namespace
}  // namespace preview
