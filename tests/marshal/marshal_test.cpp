// The three interfaces, carried over a socket to objects that note what reaches them.
#include "marshal/marshal.h"

#include <array>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <new>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "channel/raw_peer.h"
#include "channel/server_thread.h"
#include "contract/results.h"
#include "payloads.h"
#include "served_recorders.h"
#include "support/support.h"

namespace {

using payloads::Method;
using payloads::Methods;
using payloads::Payload;
using recorder::Content;
using recorder::Script;
using served::MarshalerOf;

constexpr HRESULT kNotice = kestor::NoticeForm(KESTOR_ARQ_NAO_EXISTE);
constexpr HRESULT kFailure = kestor::ErrorForm(KESTOR_PROBLEMAS_AO_LER);

// What a client has of a call: the result and the payload of the answer behind it.
struct Outcome {
  HRESULT result;
  std::string answer;
  bool operator==(const Outcome&) const = default;
};

// Calls go two ways: as a payload that is sent to the server; and through a proxy, on which a stub of the client's own
// makes the call, so that every argument passes through the hands of a client.
class MarshalTest : public testing::Test {
 protected:
  template <typename Interface = IUnknown>
  ComPtr<Interface> Connect(const IID& iid) const {
    ComPtr<Interface> proxy;
    auto connection = channel_test::OpenObject(socket_, &iid);
    *proxy.OutVoid() = MarshalerOf(iid).newProxy(std::make_unique<com::RemoteObject>(std::move(connection)));
    return proxy;
  }

  static Outcome Send(channel::Connection& connection, std::uint16_t slot, const std::string& request) {
    connection.BeginCall(slot).Bytes(request.data(), request.size());
    channel::Decoder out;
    const HRESULT result = connection.Exchange(&out);
    const std::size_t bytes = out.Left();
    return {result, std::string(reinterpret_cast<const char*>(out.Bytes(bytes)), bytes)};
  }

  static Outcome CallProxy(IUnknown& proxy, const Method& method, const std::string& request) {
    channel::Decoder in(reinterpret_cast<const std::byte*>(request.data()), request.size());
    channel::Encoder out;
    out.BeginFrame(channel::FrameType::result);
    const HRESULT result = MarshalerOf(method.iid).newStub(&proxy)->Invoke(method.slot, in, out);
    const auto* payload = reinterpret_cast<const char*>(out.Frames().Data()) + channel::kHeadBytes;
    return {result, std::string(payload, out.PayloadBytes())};
  }

  void ExpectCarried(const Content& in, HRESULT result, const Content& out) {
    script_.result = result;
    script_.answer = out;
    for (const Method& method : Methods()) {
      const std::string request = Payload(method.request, in);
      Content answer = out;
      // A buffer of the client has as many items as it asks for, and is filled by success alone.
      if (method.request == "n") answer.count = FAILED(result) ? 0 : in.count;
      const Outcome expected = {result, Payload(method.answer, answer)};
      EXPECT_TRUE(Send(*channel_test::OpenObject(socket_, &method.iid), method.slot, request) == expected)
          << method.name;
      EXPECT_TRUE(script_.noted == method.name + request) << method.name;
      script_.noted.clear();
      EXPECT_TRUE(CallProxy(*Connect(method.iid), method, request) == expected) << method.name;
      EXPECT_TRUE(script_.noted == method.name + request) << method.name;
    }
  }

  support::TempFolder folder_;
  const std::string socket_ = folder_.Path() / "socket";
  served::Recorders recorders_;
  Script& script_ = recorders_.script;
  const channel_test::ServerThread server_{socket_, &recorders_};
};

TEST_F(MarshalTest, CarriesWhateverGoesIn) {
  ExpectCarried({}, S_OK, {});
  ExpectCarried({.texts = {{}, {}, {}}, .number = -1, .count = 0, .hasArray = false}, S_OK, {});
  ExpectCarried({.texts = {"", {}, ""}, .count = 0}, S_OK, {});
  ExpectCarried({.texts = {std::string("a\0\0\0b", 5), "", "x"}, .count = 1}, S_OK, {});
  ExpectCarried({.count = 65535}, S_OK, {});
}

TEST_F(MarshalTest, CarriesWhateverComesOut) {
  ExpectCarried({}, kNotice, {});
  ExpectCarried({}, kFailure, {});
  ExpectCarried({}, kNotice, {.texts = {{}}, .hasRecord = false});
  ExpectCarried({}, kFailure, {.texts = {""}, .hasRecord = false});
  ExpectCarried({}, S_OK, {.texts = {"odd"}, .number = -1, .count = 0});
  ExpectCarried({}, S_OK, {.number = 0, .count = 0, .hasArray = false});
  ExpectCarried({}, S_OK, {.count = 65535});
}

TEST_F(MarshalTest, TheObjectGoesWithItsLastReference) {
  auto proxy = Connect<IZNPL_Relatorio2>(IID_IZNPL_Relatorio2);
  void* none = &proxy;
  EXPECT_EQ(proxy->QueryInterface(IID_IZNPL_Rel, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
  ComPtr<IUnknown> unknown;
  EXPECT_EQ(proxy->QueryInterface(IID_IUnknown, unknown.OutVoid()), S_OK);
  proxy.Reset();
  ASSERT_EQ(unknown->QueryInterface(IID_IZNPL_Relatorio2, proxy.OutVoid()), S_OK);
  unknown.Reset();
  EXPECT_EQ(proxy->SetRelatorioPadrao(nullptr), S_OK);
  EXPECT_EQ(script_.objects, 1);
  proxy.Reset();
  EXPECT_TRUE(support::WaitUntil([this] { return script_.objects == 0; }));
}

TEST_F(MarshalTest, ThreadsShareAProxy) {
  auto proxy = Connect<IZNPL_Relatorio2>(IID_IZNPL_Relatorio2);
  std::atomic<int> right{0};
  std::array<std::thread, 4> threads;
  for (std::thread& thread : threads) {
    thread = std::thread([&proxy, &right] {
      for (int call = 0; call < 50; ++call) {
        proxy->AddRef();
        BSTR name = nullptr;
        if (proxy->GetRelatorioPadrao(&name) == S_OK && SysStringByteLen(name) == 6) ++right;
        SysFreeString(name);
        proxy->Release();
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(right, 200);
}

// ---- What is refused -----------------------------------------------------------------------------------------------

// The result of a call with a count and no array, by the last letter of the request's shape.
HRESULT ResultWithoutArray(const Method& method, LONG count) {
  if (method.request.empty() || method.name == "Grava") return S_OK;  // a store judges the count itself
  switch (method.request.back()) {
    case 'b':
      return count < 0 ? E_INVALIDARG : E_POINTER;
    case 'p':
      return count < 0 ? S_OK : E_POINTER;  // a renumbering of fewer than no pairs is one of none
    case 'c':
    case 'E':
    case 'F':
      return E_POINTER;
    default:
      return S_OK;
  }
}

TEST_F(MarshalTest, RefusesWhatNoMethodMayBeCalledWith) {
  for (const Method& method : Methods()) {
    const auto connection = channel_test::OpenObject(socket_, &method.iid);
    for (const LONG count : {1, -1, 0x40000001}) {
      if (method.request == "n" && count != 1) continue;
      script_.noted.clear();
      const std::string request = Payload(method.request, {.count = count, .hasArray = false});
      const HRESULT expected = ResultWithoutArray(method, count);
      EXPECT_EQ(Send(*connection, method.slot, request).result, expected) << method.name << ' ' << count;
      EXPECT_EQ(script_.noted, expected == S_OK ? method.name + request : "") << method.name << ' ' << count;
      EXPECT_EQ(CallProxy(*Connect(method.iid), method, request).result, expected) << method.name << ' ' << count;
    }
  }
  script_.noted.clear();
  auto rel = Connect<IZNPL_Rel>(IID_IZNPL_Rel);
  auto store = Connect<IZNPL_Relatorio2>(IID_IZNPL_Relatorio2);
  EXPECT_EQ(rel->GravaFiltroRelatorio(nullptr, nullptr), E_POINTER);
  for (const HRESULT withoutPlace :
       {rel->BuscaCampos(1, nullptr), rel->BuscaQdeCamposArquivo(nullptr), rel->BuscaNomeRelatoriosExistentes(nullptr),
        rel->LeFiltroRelatorio(nullptr, nullptr), store->GetNomeRelatoriosDemonstracaoExcluidos(nullptr)})
    EXPECT_EQ(withoutPlace, E_POINTER);
  std::vector<unsigned char> huge(channel::kMaxPayloadBytes);
  EXPECT_EQ(store->Grava(nullptr, 0, 0, LONG{channel::kMaxPayloadBytes}, huge.data()), E_INVALIDARG)
      << "a request that no frame holds";
  EXPECT_EQ(script_.noted, "");
  EXPECT_EQ(store->Grava(nullptr, 0, 0, 1, huge.data()), S_OK) << "the connection goes on";
  REL_CODIGO_CAMPOS_ALTERADOS pair{1, 2};
  EXPECT_EQ(Connect<IZNPL_RelConverte>(IID_IZNPL_RelConverte)->AlteraCodigoCampos(nullptr, nullptr, -5, &pair), S_OK);
}

// Such a count means something to the method alone, which gets no buffer with it.
TEST_F(MarshalTest, CountsThatNoAnswerHasRoomForAreTheMethodsToRefuse) {
  auto rel = Connect<IZNPL_Rel>(IID_IZNPL_Rel);
  tagREG_CAMPOS_RELATORIO field = {};
  unsigned char byte = 0;
  for (const HRESULT refusal : {kFailure, S_OK}) {
    script_.result = refusal;
    for (const LONG count : {-1, LONG{channel::kMaxPayloadBytes}, std::numeric_limits<LONG>::max()}) {
      const HRESULT seen = refusal == S_OK ? E_OUTOFMEMORY : refusal;
      EXPECT_EQ(rel->BuscaCampos(count, &field), seen) << count;
      EXPECT_EQ(rel->BuscaRelatorio(count, &byte), seen) << count;
      EXPECT_EQ(script_.noted, "BuscaRelatorio" + Payload("n", {.count = count}));
    }
  }
}

// A client that only gets a result finds null, zero, and its own buffer as it was.
TEST_F(MarshalTest, FailuresLeaveNothingInTheClientsHands) {
  auto rel = Connect<IZNPL_Rel>(IID_IZNPL_Rel);
  auto store = Connect<IZNPL_Relatorio2>(IID_IZNPL_Relatorio2);
  struct {
    REG_RELATORIO2* record;
    REG_ARRAY_RELATORIO2 names;
    BSTR text;
    LONG number;
    unsigned char byte;
  } hands;
  const auto call = [&](HRESULT expected) {
    std::memset(&hands, 0xEE, sizeof hands);
    for (const HRESULT result : {
             store->Le(nullptr, &hands.record),
             store->GetNomeRelatoriosDemonstracaoExcluidos(&hands.names),
             store->GetRelatorioPadrao(&hands.text),
             rel->BuscaQdeCamposArquivo(&hands.number),
             rel->BuscaRelatorio(1, &hands.byte),
         })
      EXPECT_EQ(result, expected);
    EXPECT_TRUE(hands.record == nullptr && hands.text == nullptr && hands.number == 0);
    EXPECT_TRUE(hands.names.nQtdeRelatorios == 0 && hands.names.pregRelatorios == nullptr);
    EXPECT_EQ(hands.byte, 0xEE);
  };
  script_.interrupt = [] { throw std::bad_alloc(); };
  call(E_OUTOFMEMORY);
  script_.interrupt = [] { throw std::runtime_error("unforeseen"); };
  call(rpc::kServerFault);
  script_.interrupt = [] {};
  recorders_.tamper = [](channel::Encoder& out) { out.U32(0); };
  call(rpc::kBadStubData);
  recorders_.tamper = nullptr;

  // Answers that no frame holds: of an object that has so much, and of one that has nothing of the kind.
  script_.answer.count = LONG{channel::kMaxPayloadBytes};
  EXPECT_EQ(store->Le(nullptr, &hands.record), E_OUTOFMEMORY);
  script_.result = kFailure;
  EXPECT_EQ(rel->BuscaRelatorio(LONG{channel::kMaxPayloadBytes - 4}, &hands.byte), kFailure);
}

// ---- Payloads that lie ---------------------------------------------------------------------------------------------

// `payload` cut short anywhere, with something behind it, or of its length with a number anywhere that is too large.
std::vector<std::string> Damaged(const std::string& payload) {
  std::vector<std::string> all = {payload + "x"};
  for (std::size_t at = 0; at < payload.size(); ++at) {
    all.push_back(payload.substr(0, at));
    for (const char* lie : {"\xFF\x7F", "\xFE\xFF"}) {
      if (at + 2 <= payload.size()) all.push_back(std::string(payload).replace(at, 2, lie));
    }
  }
  return all;
}

// Payloads of the shape in which a presence byte is neither 0 nor 1; none for a shape without presence bytes.
std::vector<std::string> OfOddPresence(const std::string& shape) {
  std::vector<std::string> all = {Payload(shape, {.hasRecord = 2}), Payload(shape, {.hasArray = 0xFF})};
  std::erase(all, Payload(shape, {}));
  return all;
}

TEST_F(MarshalTest, RequestsThatLieReachNoObject) {
  for (const Method& method : Methods()) {
    const std::string valid = Payload(method.request, {});
    const auto connection = channel_test::OpenObject(socket_, &method.iid);
    for (const std::string& request : Damaged(valid)) {
      script_.noted.clear();
      const Outcome got = Send(*connection, method.slot, request);
      // What still reads as arguments may be a call with others.
      EXPECT_TRUE(got.result == rpc::kBadStubData || request.size() == valid.size()) << method.name;
      const bool isAnswerTooLong = method.request == "n" && got.result == E_OUTOFMEMORY;
      EXPECT_EQ(script_.noted.empty(), got.result != S_OK && !isAnswerTooLong) << method.name;
      EXPECT_TRUE(got.result == S_OK || got.answer.empty()) << method.name;
    }
    script_.noted.clear();
    for (const std::string& request : OfOddPresence(method.request))
      EXPECT_EQ(Send(*connection, method.slot, request).result, rpc::kBadStubData) << method.name;
    EXPECT_EQ(script_.noted, "");
    for (const int slot : {0, 2, method.iid == IID_IZNPL_Rel ? 17 : 12, 0xFFFF})
      EXPECT_EQ(Send(*connection, static_cast<std::uint16_t>(slot), "").result, rpc::kSlotOutOfRange);
    EXPECT_EQ(Send(*connection, method.slot, valid).result, S_OK);
  }
}

TEST_F(MarshalTest, AnswersThatLieReachNoClient) {
  const Content none = {.texts = {{}}, .number = 0, .count = 0, .hasRecord = false, .hasArray = false};
  for (const Method& method : Methods()) {
    const auto proxy = Connect(method.iid);
    const auto call = [&](const std::string& answer) {
      recorders_.tamper = [&answer](channel::Encoder& out) {
        out.CutPayload(4);
        out.Bytes(answer.data(), answer.size());
      };
      return CallProxy(*proxy, method, Payload(method.request, {}));
    };
    const std::string valid = Payload(method.answer, {});
    const Outcome nothing = {rpc::kBadStubData, Payload(method.answer, none)};
    for (const std::string& answer : Damaged(valid)) {
      const Outcome got = call(answer);
      // What still reads as an answer may be another one.
      EXPECT_TRUE(got == nothing || (got.result == S_OK && answer.size() == valid.size())) << method.name;
    }
    for (const std::string& answer : OfOddPresence(method.answer))
      EXPECT_TRUE(call(answer) == nothing) << method.name;
    EXPECT_TRUE(call(valid) == (Outcome{S_OK, valid})) << method.name;
  }
}

// ---- The page that tells others ------------------------------------------------------------------------------------

// The page's example: lines "client: 4b 53 …" and "server: …", in the order in which they are sent.
TEST_F(MarshalTest, TheExampleOfTheProtocolPageIsTrue) {
  const channel_test::RawPeer client(socket_);
  std::ifstream page(PROTOCOL_PAGE);
  int frames = 0;
  for (std::string line; std::getline(page, line);) {
    const bool fromClient = line.starts_with("client: ");
    if (!fromClient && !line.starts_with("server: ")) continue;
    ++frames;
    std::istringstream words(line.substr(8));
    std::string bytes;
    for (std::string word; words >> word;)
      bytes += static_cast<char>(std::stoi(word, nullptr, 16));
    if (fromClient) {
      EXPECT_TRUE(client.Send(bytes));
    } else {
      EXPECT_EQ(testing::PrintToString(client.Receive(bytes.size())), testing::PrintToString(bytes)) << line;
    }
  }
  EXPECT_EQ(frames, 6);
  EXPECT_EQ(script_.noted, "Le" + Payload("t", {.texts = {std::string("V\0e\0n\0d\0a\0s\0", 12)}}));
}

}  // namespace
