// The three interfaces, carried over a socket to objects that record what reaches them.
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

#include "channel/server_thread.h"
#include "contract/results.h"
#include "served_recorders.h"
#include "support/support.h"

namespace {

using channel_test::Outcome;
using payloads::Content;
using payloads::Method;
using payloads::Methods;
using payloads::Payload;

constexpr HRESULT kNotice = kestor::NoticeForm(KESTOR_ARQ_NAO_EXISTE);
constexpr HRESULT kFailure = kestor::ErrorForm(KESTOR_PROBLEMAS_AO_LER);

// Makes calls in two ways: as a payload that is sent to the server; and through a proxy that a stub in the client
// calls, so that every argument passes through a client.
class MarshalTest : public testing::Test {
 protected:
  template <typename Interface = IUnknown>
  ComPtr<Interface> Connect(const IID& iid) const {
    ComPtr<Interface> proxy;
    auto remote = std::make_unique<com::RemoteObject>(channel_test::OpenObject(socket_, &iid));
    *proxy.OutVoid() = served::MarshalerOf(iid).newProxy(std::move(remote));
    return proxy;
  }

  Outcome Send(const Method& method, const std::string& request) const {
    return channel_test::Call(*channel_test::OpenObject(socket_, &method.iid), method.slot, request);
  }

  Outcome CallProxy(const Method& method, const std::string& request) const {
    channel::Decoder in(reinterpret_cast<const std::byte*>(request.data()), request.size());
    channel::Encoder out;
    out.BeginFrame(channel::FrameType::result);
    const auto proxy = Connect(method.iid);
    const HRESULT result = served::MarshalerOf(method.iid).newStub(proxy.Get())->Invoke(method.slot, in, out);
    const auto* payload = reinterpret_cast<const char*>(out.Frames().Data()) + channel::kHeadBytes;
    return {result, std::string(payload, out.PayloadBytes())};
  }

  // Returns what the object has noted of a call.
  std::string Noted() { return std::exchange(script_.noted, ""); }

  // Returns S_OK if a method may be called with these arguments. The last letter of the request's shape stands for the
  // array.
  static HRESULT Refusal(const Method& method, const Content& in) {
    const char last = method.request.empty() ? 't' : method.request.back();
    if (last == 'b' && in.count < 0) return E_INVALIDARG;
    if (last == 'F' && in.hasRecord == 0) return E_POINTER;
    // A negative number of pairs means none.
    const bool hasItems = last == 'p' ? in.count > 0 : in.count != 0 && strchr("bcEF", last) != nullptr;
    return hasItems && in.hasArray == 0 ? E_POINTER : S_OK;
  }

  support::TempFolder folder_;
  const std::string socket_ = folder_.Path() / "socket";
  served::Recorders recorders_;
  recorder::Script& script_ = recorders_.script;
  const channel_test::ServerThread server_{socket_, &recorders_};
  ComPtr<IZNPL_Rel> rel_ = Connect<IZNPL_Rel>(IID_IZNPL_Rel);
  ComPtr<IZNPL_Relatorio2> store_ = Connect<IZNPL_Relatorio2>(IID_IZNPL_Relatorio2);
};

TEST_F(MarshalTest, CarriesWhateverGoesInAndComesOut) {
  const std::tuple<HRESULT, Content, Content> cases[] = {
      {S_OK, {}, {}},
      {kFailure, {}, {}},
      {kNotice, {.texts = {{}, {}, {}}, .number = -1, .count = 0, .hasArray = 0}, {.texts = {{}}, .hasRecord = 0}},
      {kFailure, {.texts = {"", {}, ""}, .count = 0}, {.texts = {""}, .hasRecord = 0}},
      {kNotice, {.texts = {std::string("a\0\0\0b", 5), "", "x"}, .count = 1}, {.texts = {"odd"}, .count = 0}},
      {S_OK, {.count = 65535}, {.count = 65535}},
      {S_OK, {.hasRecord = 0}, {.number = 0, .count = 0, .hasArray = 0}},
      {S_OK, {.count = 1, .hasArray = 0}, {.number = -1}},
      {S_OK, {.count = -1, .hasArray = 0}, {}},
      {kFailure, {.count = -1, .hasArray = 0}, {}},
      {S_OK, {.count = 0x40000001, .hasArray = 0}, {}},
      {S_OK, {.count = 0x7FFFFFFF, .hasArray = 0}, {}},
      {kFailure, {.count = 0x7FFFFFFF, .hasArray = 0}, {}},
  };
  for (int row = 0; const auto& [result, in, out] : cases) {
    ++row;
    script_.result = result;
    script_.answer = out;
    for (const Method& method : Methods()) {
      SCOPED_TRACE(method.name + ", row " + std::to_string(row));
      const std::string request = Payload(method.request, in);
      HRESULT expected = Refusal(method, in);
      const std::string noted = expected == S_OK ? method.name + request : "";
      if (expected == S_OK) expected = result;
      Content answer = out;
      if (method.request == "n") {
        // A client's buffer has as many items as it asks for, and only success fills it. A count beyond what an answer
        // can hold reaches only the method, without a buffer.
        const bool isFilled = SUCCEEDED(result) && in.count >= 0 && in.count <= 65535;
        if (SUCCEEDED(result) && !isFilled) expected = E_OUTOFMEMORY;
        answer.count = isFilled ? in.count : 0;
      }
      const Outcome outcome = {expected, Payload(method.answer, answer)};
      EXPECT_TRUE(Send(method, request) == outcome);
      EXPECT_TRUE(Noted() == noted);
      if (in.count > 65535) continue;  // a client cannot have such a buffer
      EXPECT_TRUE(CallProxy(method, request) == outcome);
      EXPECT_TRUE(Noted() == noted);
    }
  }
}

// Checks the places of arguments independently: recorders and clients share code, which could agree on a wrong format.
TEST_F(MarshalTest, ArgumentsHaveTheirPlacesInTheProtocol) {
  std::vector<tagREG_RELEXPORTACAO_ITEM> items(3);
  payloads::Fill(items.data(), items.size() * sizeof items[0]);
  tagREG_RELEXPORTACAO settings;
  payloads::Fill(&settings, sizeof settings);
  settings.iQtdeItens = 3;
  settings.pregItens = items.data();
  const OwnedBstr name(SysAllocStringByteLen("Vendas", 6));
  EXPECT_EQ(rel_->GravaDadosExportacaoDoRelatorio(name.get(), settings), S_OK);
  EXPECT_TRUE(Noted() == "GravaDadosExportacaoDoRelatorio" + Payload("tE", {}));

  REG_RELATORIO2* model = nullptr;
  EXPECT_EQ(store_->Le(name.get(), &model), S_OK);
  ASSERT_NE(model, nullptr);
  EXPECT_EQ(model->nVersao, 0x0A03);
  EXPECT_EQ(LONG{model->nQtdeBytes}, 3);  // the record is packed
  EXPECT_EQ(std::string(model->lpRelatorio, model->lpRelatorio + 3), "\x03\x0A\x11");
  CoTaskMemFree(model->lpRelatorio);
  CoTaskMemFree(model);
}

TEST_F(MarshalTest, ThreadsShareAProxyWhichGoesWithItsLastReference) {
  std::array<std::jthread, 4> threads;
  for (std::jthread& thread : threads) {
    thread = std::jthread([this] {
      for (int call = 0; call < 50; ++call) {
        store_->AddRef();
        BSTR name = nullptr;
        EXPECT_EQ(store_->GetRelatorioPadrao(&name), S_OK);
        EXPECT_EQ(SysStringByteLen(OwnedBstr(name).get()), 6U);
        store_->Release();
      }
    });
  }
  for (std::jthread& thread : threads)
    thread.join();
  void* none = &none;
  EXPECT_EQ(store_->QueryInterface(IID_IZNPL_Rel, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
  ComPtr<IUnknown> unknown;
  EXPECT_EQ(store_->QueryInterface(IID_IUnknown, unknown.OutVoid()), S_OK);
  store_.Reset();
  EXPECT_EQ(script_.objects, 2);
  unknown.Reset();
  EXPECT_TRUE(support::WaitUntil([this] { return script_.objects == 1; }));
}

// A client that gets only a result finds null, zero, and its own buffer unchanged.
TEST_F(MarshalTest, FailuresLeaveNothingInTheClientsHands) {
  // One method for each kind of out-argument.
  const auto call = [this](REG_RELATORIO2** record, REG_ARRAY_RELATORIO2* names, BSTR* text, LONG* number, BYTE* byte) {
    return std::array{store_->Le(nullptr, record), store_->GetNomeRelatoriosDemonstracaoExcluidos(names),
                      store_->GetRelatorioPadrao(text), rel_->BuscaQdeCamposArquivo(number),
                      rel_->BuscaRelatorio(1, byte)};
  };
  REG_RELATORIO2 model{};
  REG_RELATORIO2* record = &model;
  tagREG_NOME_RELATORIO2 name{};
  REG_ARRAY_RELATORIO2 names{1, &name};
  OLECHAR empty = 0;
  BSTR text = &empty;
  LONG number = 1;
  BYTE byte = 0xEE;
  script_.interrupt = [] { throw std::bad_alloc(); };
  EXPECT_THAT(call(&record, &names, &text, &number, &byte), testing::Each(E_OUTOFMEMORY));
  EXPECT_TRUE(record == nullptr && names.nQtdeRelatorios == 0 && names.pregRelatorios == nullptr);
  EXPECT_TRUE(text == nullptr && number == 0 && byte == 0xEE);

  script_.interrupt = [] { throw std::runtime_error("unforeseen"); };
  EXPECT_THAT(call(&record, &names, &text, &number, &byte), testing::Each(rpc::kServerFault));
  Noted();
  EXPECT_THAT(call(nullptr, nullptr, nullptr, nullptr, nullptr), testing::Each(E_POINTER));
  EXPECT_EQ(rel_->GravaFiltroRelatorio(nullptr, nullptr), E_POINTER);
  EXPECT_EQ(Noted(), "");
}

// This also holds for answers.
TEST_F(MarshalTest, WhatNoFrameHoldsIsNotCarried) {
  std::vector<unsigned char> huge(channel::kMaxPayloadBytes);
  const auto all = static_cast<LONG>(huge.size());
  EXPECT_EQ(store_->Grava(nullptr, 0, 0, all, huge.data()), E_INVALIDARG);
  EXPECT_EQ(Noted(), "");
  EXPECT_EQ(store_->Grava(nullptr, 0, 0, 1, huge.data()), S_OK) << "the connection goes on";
  EXPECT_EQ(rel_->BuscaRelatorio(all, huge.data()), E_OUTOFMEMORY);
  script_.answer.count = all;
  REG_RELATORIO2* model = nullptr;
  EXPECT_EQ(store_->Le(nullptr, &model), E_OUTOFMEMORY);
  script_.result = kFailure;
  EXPECT_EQ(rel_->BuscaRelatorio(all - 4, huge.data()), kFailure);
}

// Returns payloads of the shape with trailing bytes, with presence bytes that are neither 0 nor 1 (also where nothing
// follows), cut short anywhere, or with a number anywhere that is too large.
std::vector<std::string> Damaged(const std::string& shape) {
  const std::string payload = Payload(shape, {});
  std::vector<std::string> all = {payload + "x", Payload(shape, {.hasRecord = 2}), Payload(shape, {.hasArray = 0xFF}),
                                  Payload(shape, {.count = 0, .hasArray = 2})};
  const std::size_t record = shape.find('?');
  if (record != std::string::npos) all.push_back(Payload(shape.substr(0, record), {}) + '\2');
  for (std::size_t at = 0; at < payload.size(); ++at) {
    all.push_back(payload.substr(0, at));
    for (const char* lie : {"\xFF\x7F", "\xFE\xFF"}) {
      if (at + 2 <= payload.size()) all.push_back(std::string(payload).replace(at, 2, lie));
    }
  }
  return all;
}

TEST_F(MarshalTest, RequestsThatLieReachNoObject) {
  for (const Method& method : Methods()) {
    SCOPED_TRACE(method.name);
    const std::size_t size = Payload(method.request, {}).size();
    const auto connection = channel_test::OpenObject(socket_, &method.iid);
    for (const std::string& request : Damaged(method.request)) {
      const auto [result, answer] = channel_test::Call(*connection, method.slot, request);
      // Damaged bytes may still decode as other arguments.
      EXPECT_TRUE(result == rpc::kBadStubData || request.size() == size);
      const bool isAnswerTooLong = method.request == "n" && result == E_OUTOFMEMORY;
      EXPECT_EQ(Noted(), result == S_OK || isAnswerTooLong ? method.name + request : "");
      EXPECT_TRUE(result == S_OK || answer.empty());
    }
    for (const int slot : {0, 2, method.iid == IID_IZNPL_Rel ? 17 : 12, 0xFFFF})
      EXPECT_EQ(channel_test::Call(*connection, static_cast<std::uint16_t>(slot), "").first, rpc::kSlotOutOfRange);
  }
}

TEST_F(MarshalTest, AnswersThatLieReachNoClient) {
  const Content none = {.texts = {{}}, .number = 0, .count = 0, .hasRecord = 0, .hasArray = 0};
  for (const Method& method : Methods()) {
    const Outcome nothing = {rpc::kBadStubData, Payload(method.answer, none)};
    const std::size_t size = Payload(method.answer, {}).size();
    std::vector<std::string> lies = Damaged(method.answer);
    lies.push_back(Payload(method.answer, {.hasArray = 0}));  // a count without its items
    for (const std::string& answer : lies) {
      recorders_.tamper = [&answer](channel::Encoder& out) {
        out.CutPayload(4);
        out.Bytes(answer.data(), answer.size());
      };
      // Damaged bytes may still decode as another answer.
      const Outcome got = CallProxy(method, Payload(method.request, {}));
      EXPECT_TRUE(got == nothing || (got == Outcome{S_OK, answer} && answer.size() == size)) << method.name;
    }
  }
}

// Checks the page's example: lines "client: 4b 53 …" and "server: …", in the order in which they are sent.
TEST_F(MarshalTest, TheExampleOfTheProtocolPageIsTrue) {
  const channel_test::RawPeer client(socket_);
  std::ifstream page(PROTOCOL_PAGE);
  int frames = 0;
  for (std::string line; std::getline(page, line);) {
    std::istringstream words(line);
    std::string sender;
    words >> sender >> std::hex;
    if (sender != "client:" && sender != "server:") continue;
    ++frames;
    std::string bytes;
    for (int byte = 0; words >> byte;)
      bytes += static_cast<char>(byte);
    if (sender == "client:") {
      EXPECT_TRUE(client.Send(bytes));
    } else {
      EXPECT_EQ(client.Receive(bytes.size()), bytes) << line;
    }
  }
  EXPECT_EQ(frames, 6);
  EXPECT_EQ(script_.noted, "Le" + Payload("t", {.texts = {std::string("V\0e\0n\0d\0a\0s\0", 12)}}));
}

}  // namespace
