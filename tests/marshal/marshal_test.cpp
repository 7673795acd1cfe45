#include "marshal/marshal.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "contract/results.h"
#include "recorder.h"
#include "support/support.h"

namespace {

using recorder::Array;
using recorder::Line;
using recorder::Script;
using recorder::WithoutPointer;

constexpr HRESULT kNotice = kestor::NoticeForm(KESTOR_ARQ_NAO_EXISTE);
constexpr HRESULT kFailure = kestor::ErrorForm(KESTOR_PROBLEMAS_AO_LER);

// ---- A server ------------------------------------------------------------------------------------------------------

struct Exchange {
  std::uint16_t slot = 0;
  std::string request;  // the payload
  std::string answer;   // the payload behind the result
};

// What the server saw of the last call, and what it does to the answer before it goes out.
struct Wire {
  Exchange last;
  std::function<void(channel::Encoder&)> tamper = [](channel::Encoder&) {};
};

class RecordingSession final : public channel::Session {
 public:
  RecordingSession(Wire& wire, std::unique_ptr<com::CallStub> stub) : wire_(wire), stub_(std::move(stub)) {}

  HRESULT Call(std::uint16_t slot, channel::Decoder& arguments, channel::Encoder& out) override {
    channel::Decoder all = arguments;
    const std::size_t bytes = all.Left();
    wire_.last = {slot, std::string(reinterpret_cast<const char*>(all.Bytes(bytes)), bytes), ""};
    const std::size_t start = out.PayloadBytes();
    const HRESULT result = stub_->Invoke(slot, arguments, out);
    const std::byte* answer = out.Frames().Data() + channel::kHeadBytes + start;
    wire_.last.answer.assign(reinterpret_cast<const char*>(answer), out.PayloadBytes() - start);
    wire_.tamper(out);
    return result;
  }

 private:
  Wire& wire_;
  std::unique_ptr<com::CallStub> stub_;
};

IUnknown* NewRecorder(const IID& iid, Script& script) {
  if (iid == IID_IZNPL_Rel) return static_cast<IZNPL_Rel*>(new recorder::Rel(script));
  if (iid == IID_IZNPL_Relatorio2) return static_cast<IZNPL_Relatorio2*>(new recorder::Relatorio2(script));
  return static_cast<IZNPL_RelConverte*>(new recorder::RelConverte(script));
}

const com::Marshaler& MarshalerOf(const IID& iid) {
  static const auto all = marshal::Marshalers();
  return *std::find_if(all.begin(), all.end(), [&iid](const auto& marshaler) { return marshaler.iid == iid; });
}

// Recorders behind stubs behind a socket, served by a thread of its own.
class RecordingServer final : channel::Service {
 public:
  RecordingServer() {
    std::promise<DWORD> ready;
    auto threadId = ready.get_future();
    thread_ = std::thread([this, &ready] {
      channel::Server server;
      AttachMessageSource(&server);
      if (!server.Listen(Socket(), this)) throw std::runtime_error("cannot listen");
      ready.set_value(GetCurrentThreadId());
      MSG message{};
      while (GetMessageA(&message, nullptr, 0, 0))
        DispatchMessageA(&message);
      AttachMessageSource(nullptr);
    });
    threadId_ = threadId.get();
  }
  ~RecordingServer() {
    PostThreadMessageA(threadId_, WM_QUIT, 0, 0);
    thread_.join();
  }

  std::string Socket() const { return folder_.Path() / "socket"; }

  std::unique_ptr<channel::Connection> Open(const IID& iid) const {
    std::unique_ptr<channel::Connection> connection;
    channel::Decoder answer;
    const auto outcome =
        channel::Connection::Open(Socket(), channel::FrameType::create, &iid, sizeof iid, 30, &connection, &answer);
    EXPECT_EQ(outcome, channel::Connection::Outcome::ok);
    EXPECT_EQ(answer.U32(), 0u);
    return connection;
  }

  template <typename Interface>
  ComPtr<Interface> Connect(const IID& iid) const {
    ComPtr<Interface> proxy;
    *proxy.OutVoid() = MarshalerOf(iid).newProxy(std::make_unique<com::RemoteObject>(Open(iid)));
    return proxy;
  }

  Script script;
  Wire wire;

 private:
  HRESULT Create(const std::byte* interfaceId, std::unique_ptr<channel::Session>* session) override {
    IID iid{};
    std::memcpy(&iid, interfaceId, sizeof iid);
    ComPtr<IUnknown> object;
    *object.Out() = NewRecorder(iid, script);
    *session = std::make_unique<RecordingSession>(wire, MarshalerOf(iid).newStub(object.Get()));
    return S_OK;
  }

  support::TempFolder folder_;
  std::thread thread_;
  DWORD threadId_ = 0;
};

// ---- Every method --------------------------------------------------------------------------------------------------

class TextArgument {
 public:
  explicit TextArgument(const char* bytes, UINT count) : text_(SysAllocStringByteLen(bytes, count)) {}
  TextArgument(const TextArgument&) = delete;
  TextArgument& operator=(const TextArgument&) = delete;
  ~TextArgument() { SysFreeString(text_); }
  BSTR Get() const { return text_; }

 private:
  BSTR text_;
};

// What a method is called with.
struct Input {
  Input(BSTR one, BSTR other, int items, bool array = true)
      : text(one), otherText(other), count(items), hasArray(array), bytes(static_cast<std::size_t>(items + 1) * 274) {
    recorder::Fill(bytes.data(), bytes.size());
  }

  template <typename Item>
  Item* Items() const {
    return hasArray ? reinterpret_cast<Item*>(bytes.data()) : nullptr;
  }
  USHORT ShortCount() const { return static_cast<USHORT>(count); }
  tagREG_RELEXPORTACAO Settings() const {
    tagREG_RELEXPORTACAO record;
    recorder::Fill(&record, sizeof record);
    record.iQtdeItens = ShortCount();
    record.pregItens = Items<tagREG_RELEXPORTACAO_ITEM>();
    return record;
  }

  BSTR text;
  BSTR otherText;
  int count;
  bool hasArray;
  mutable std::vector<std::byte> bytes;
};

// What a caller gets out of a call, as a line; and what is handed out is freed. Every out-argument holds garbage
// before.
template <typename T>
T* Garbage() {
  alignas(16) static std::byte notMemoryOfTheHeap[16];
  return reinterpret_cast<T*>(notMemoryOfTheHeap);
}

template <typename Scalar, typename Call>
std::string Value(Call call) {
  Scalar value = 99;
  const HRESULT result = call(&value);
  return Line(result, value);
}

template <typename Call>
std::string GivenText(Call call) {
  BSTR text = Garbage<OLECHAR>();
  const HRESULT result = call(&text);
  std::string line = Line(result, text);
  SysFreeString(text);
  return line;
}

template <typename Item, typename Call>
std::string Buffer(const Input& in, Call call) {
  std::vector<Item> items(static_cast<std::size_t>(in.count + 1));
  std::memset(items.data(), 0xEE, items.size() * sizeof(Item));
  const HRESULT result = call(in.count, items.data());
  return Line(result, Array(items.data(), in.count));
}

template <typename Item>
std::string GivenArray(Item* items, std::int64_t count) {
  std::string line = Line(Array(items, count));
  CoTaskMemFree(items);
  return line;
}
std::string ArrayOf(const tagREG_RELEXPORTACAO& r) {
  return GivenArray(r.pregItens, r.iQtdeItens);
}
std::string ArrayOf(const tagFILTRO_RELATORIO& r) {
  return GivenArray(r.pregValoresFiltro, r.nQtdCampos);
}
std::string ArrayOf(const REG_CAMPOS_DISPONIVEIS2& r) {
  return GivenArray(r.pregCampos, r.nQtdeCampos);
}
std::string ArrayOf(const REG_RELATORIO2& r) {
  return GivenArray(r.lpRelatorio, r.nQtdeBytes);
}
std::string ArrayOf(const REG_ARRAY_RELATORIO2& r) {
  return GivenArray(r.pregRelatorios, r.nQtdeRelatorios);
}

template <typename T, typename Call>
std::string Record(Call call) {
  T* record = Garbage<T>();
  const HRESULT result = call(&record);
  if (record == nullptr) return Line(result, "null");
  std::string line = Line(result, WithoutPointer(*record)) + ArrayOf(*record);
  CoTaskMemFree(record);
  return line;
}

template <typename Call>
std::string FilledRecord(Call call) {
  REG_ARRAY_RELATORIO2 record{99, Garbage<tagREG_NOME_RELATORIO2>()};
  const HRESULT result = call(&record);
  return Line(result, record.nQtdeRelatorios) + ArrayOf(record);
}

// One method: the shapes of request and answer, a letter a field (see FieldReader); and a call.
struct Method {
  const IID& iid;
  std::uint16_t slot;
  const char* request;
  const char* answer;
  std::function<std::string(void* object, const Input& input)> call;
};

template <typename Interface, const IID& iid, typename Call>
Method Of(std::uint16_t slot, const char* request, const char* answer, Call call) {
  return {iid, slot, request, answer, [call](void* object, const Input& in) {
            auto made = call(*static_cast<Interface*>(object), in);
            if constexpr (std::is_same_v<decltype(made), HRESULT>) {
              return Line(made);
            } else {
              return made;
            }
          }};
}

template <typename Call>
Method Rel(std::uint16_t slot, const char* request, const char* answer, Call call) {
  return Of<IZNPL_Rel, IID_IZNPL_Rel>(slot, request, answer, call);
}
template <typename Call>
Method Rel2(std::uint16_t slot, const char* request, const char* answer, Call call) {
  return Of<IZNPL_Relatorio2, IID_IZNPL_Relatorio2>(slot, request, answer, call);
}
template <typename Call>
Method Conv(std::uint16_t slot, const char* request, const char* answer, Call call) {
  return Of<IZNPL_RelConverte, IID_IZNPL_RelConverte>(slot, request, answer, call);
}

const std::vector<Method>& Methods() {
  using In = const Input&;
  using Field = tagREG_CAMPOS_RELATORIO;
  using Byte = unsigned char;
  using Column = REG_ATUALIZACAO_RELATORIO;
  using Entry = tagCAMPO_FILTRO;
  using Pair = REL_CODIGO_CAMPOS_ALTERADOS;
  using R = IZNPL_Rel&;
  using R2 = IZNPL_Relatorio2&;
  static const std::vector<Method> methods = {
      Rel(3, "ttt", "", [](R o, In in) { return o.Inicializa(in.text, in.otherText, in.text); }),
      Rel(4, "4", "*", [](R o, In in) { return Buffer<Field>(in, [&](auto... a) { return o.BuscaCampos(a...); }); }),
      Rel(5, "", "4", [](R o, In) { return Value<LONG>([&](auto* v) { return o.BuscaQdeCamposArquivo(v); }); }),
      Rel(6, "4", "*", [](R o, In in) { return Buffer<Byte>(in, [&](auto... a) { return o.BuscaRelatorio(a...); }); }),
      Rel(7, "t", "4",
          [](R o, In in) { return Value<LONG>([&](auto* v) { return o.BuscaTamanhoRelatorio(in.text, v); }); }),
      Rel(8, "t4b", "", [](R o, In in) { return o.GravaRelatorio(in.text, 0x01020304, in.count, in.Items<Byte>()); }),
      Rel(9, "", "t", [](R o, In) { return GivenText([&](auto* t) { return o.BuscaNomeRelatoriosExistentes(t); }); }),
      Rel(10, "t", "", [](R o, In in) { return o.ExcluiRelatorio(in.text); }),
      Rel(11, "t22c", "",
          [](R o, In in) { return o.AtualizaRelatorio(in.text, 0xFEDC, 7, in.ShortCount(), in.Items<Column>()); }),
      Rel(12, "t4b", "",
          [](R o, In in) { return o.GravaRelatorioSemCallBack(in.text, -2, in.count, in.Items<Byte>()); }),
      Rel(13, "tE", "", [](R o, In in) { return o.GravaDadosExportacaoDoRelatorio(in.text, in.Settings()); }),
      Rel(14, "t", "?E",
          [](R o, In in) {
            return Record<tagREG_RELEXPORTACAO>(
                [&](auto** r) { return o.BuscaDadosExportacaoDoRelatorio(in.text, r); });
          }),
      Rel(15, "t", "?F",
          [](R o, In in) {
            return Record<tagFILTRO_RELATORIO>([&](auto** r) { return o.LeFiltroRelatorio(in.text, r); });
          }),
      Rel(16, "t?F", "",
          [](R o, In in) {
            tagFILTRO_RELATORIO filter{in.ShortCount(), in.Items<Entry>()};
            return o.GravaFiltroRelatorio(in.text, &filter);
          }),

      Rel2(3, "tt", "", [](R2 o, In in) { return o.Inicializa(in.text, in.otherText); }),
      Rel2(4, "", "?K",
           [](R2 o, In) {
             return Record<REG_CAMPOS_DISPONIVEIS2>([&](auto** r) { return o.GetCamposDisponiveis(r); });
           }),
      Rel2(5, "t", "?L",
           [](R2 o, In in) { return Record<REG_RELATORIO2>([&](auto** r) { return o.Le(in.text, r); }); }),
      Rel2(6, "t21b", "", [](R2 o, In in) { return o.Grava(in.text, 0xFEDC, 0x83, in.count, in.Items<Byte>()); }),
      Rel2(7, "", "?M",
           [](R2 o, In) { return Record<REG_ARRAY_RELATORIO2>([&](auto** r) { return o.GetNomeRelatorios(r); }); }),
      Rel2(8, "t1", "1",
           [](R2 o, In in) { return Value<char>([&](auto* v) { return o.ExcluiRelatorio(in.text, -3, v); }); }),
      Rel2(9, "", "t", [](R2 o, In) { return GivenText([&](auto* t) { return o.GetRelatorioPadrao(t); }); }),
      Rel2(10, "t", "", [](R2 o, In in) { return o.SetRelatorioPadrao(in.text); }),
      Rel2(11, "", "M",
           [](R2 o, In) { return FilledRecord([&](auto* r) { return o.GetNomeRelatoriosDemonstracaoExcluidos(r); }); }),

      Conv(3, "ttp", "",
           [](IZNPL_RelConverte& o, In in) {
             return o.AlteraCodigoCampos(in.text, in.otherText, in.count, in.Items<Pair>());
           }),
  };
  return methods;
}

// A proxy as a pointer to its interface, for as long as the object lives.
class AnyProxy {
 public:
  AnyProxy(const RecordingServer& server, const IID& iid)
      : pointer_(MarshalerOf(iid).newProxy(std::make_unique<com::RemoteObject>(server.Open(iid)))) {}
  AnyProxy(const AnyProxy&) = delete;
  AnyProxy& operator=(const AnyProxy&) = delete;
  ~AnyProxy() { static_cast<IUnknown*>(pointer_)->Release(); }
  void* Get() const { return pointer_; }

 private:
  void* pointer_;
};

void SetPlain(Script* script) {
  script->result = S_OK;
  script->number = 0x01020304;
  script->text = u"Compras|Vendas";
  script->hasRecord = script->hasArray = true;
  script->items = 3;
}

// A call through proxy and stub must be what the same call is on the object itself, for the object and for the caller.
void ExpectSameAsDirect(RecordingServer& server, const std::function<void(Script*)>& change, const Input& input) {
  for (const Method& method : Methods()) {
    Script direct;
    SetPlain(&direct);
    change(&direct);
    IUnknown* object = NewRecorder(method.iid, direct);
    const std::string expected = method.call(object, input);
    object->Release();

    SetPlain(&server.script);
    change(&server.script);
    const AnyProxy proxy(server, method.iid);
    EXPECT_TRUE(method.call(proxy.Get(), input) == expected) << direct.noted.substr(0, 60);
    EXPECT_TRUE(server.script.noted == direct.noted) << direct.noted.substr(0, 60);
    EXPECT_EQ(server.wire.last.slot, method.slot);
  }
}

const TextArgument& Vendas() {
  static const TextArgument text("V\0e\0n\0d\0a\0s\0", 12);
  return text;
}
const TextArgument& Component() {
  static const TextArgument text("0\0001\0", 4);
  return text;
}

Input Typical() {
  return {Vendas().Get(), Component().Get(), 3};
}

TEST(Marshal, CarriesWhateverComesIn) {
  RecordingServer server;
  const TextArgument empty("", 0);
  const TextArgument withNulAndHalfCharacter("a\0\0\0b", 5);
  const auto plain = [](Script*) {};
  ExpectSameAsDirect(server, plain, Typical());
  ExpectSameAsDirect(server, plain, {nullptr, nullptr, 0, false});
  ExpectSameAsDirect(server, plain, {empty.Get(), nullptr, 0});
  ExpectSameAsDirect(server, plain, {withNulAndHalfCharacter.Get(), empty.Get(), 1});
  ExpectSameAsDirect(server, plain, {Vendas().Get(), Component().Get(), 65535});
}

TEST(Marshal, CarriesWhateverComesOut) {
  RecordingServer server;
  const std::vector<std::function<void(Script*)>> scripts = {
      [](Script* script) { script->result = kNotice; },
      [](Script* script) { script->result = kFailure; },
      [](Script* script) { script->result = kNotice, script->hasRecord = false, script->text.reset(); },
      [](Script* script) { script->result = kFailure, script->hasRecord = false, script->text = u""; },
      [](Script* script) { script->number = -1, script->items = 0; },
      [](Script* script) { script->number = 0, script->items = 0, script->hasArray = false; },
      [](Script* script) { script->items = 65535; },
  };
  for (const auto& script : scripts)
    ExpectSameAsDirect(server, script, Typical());
}

TEST(Marshal, TheObjectGoesWithItsLastReference) {
  RecordingServer server;
  auto proxy = server.Connect<IZNPL_Relatorio2>(IID_IZNPL_Relatorio2);
  ComPtr<IUnknown> unknown;
  EXPECT_EQ(proxy->QueryInterface(IID_IUnknown, unknown.OutVoid()), S_OK);
  ComPtr<IZNPL_Rel> other;
  EXPECT_EQ(proxy->QueryInterface(IID_IZNPL_Rel, other.OutVoid()), E_NOINTERFACE);
  EXPECT_EQ(other.Get(), nullptr);
  EXPECT_EQ(proxy->QueryInterface(IID_IUnknown, nullptr), E_POINTER);

  proxy.Reset();
  ComPtr<IZNPL_Relatorio2> again;
  ASSERT_EQ(unknown->QueryInterface(IID_IZNPL_Relatorio2, again.OutVoid()), S_OK);
  EXPECT_EQ(again->SetRelatorioPadrao(nullptr), S_OK);
  EXPECT_EQ(server.script.objects, 1);
  unknown.Reset();
  again.Reset();
  EXPECT_TRUE(support::WaitUntil([&server] { return server.script.objects == 0; }));
}

TEST(Marshal, ThreadsShareAProxy) {
  RecordingServer server;
  server.script.result = S_OK;
  auto proxy = server.Connect<IZNPL_Relatorio2>(IID_IZNPL_Relatorio2);
  std::array<std::thread, 4> threads;
  std::atomic<int> right{0};
  for (std::thread& thread : threads) {
    thread = std::thread([&proxy, &right] {
      for (int call = 0; call < 50; ++call) {
        proxy->AddRef();
        BSTR name = nullptr;
        if (proxy->GetRelatorioPadrao(&name) == S_OK && SysStringLen(name) == 14) ++right;
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

TEST(Marshal, RefusesWhatNoMethodMayBeCalledWith) {
  RecordingServer server;
  auto rel = server.Connect<IZNPL_Rel>(IID_IZNPL_Rel);
  auto store = server.Connect<IZNPL_Relatorio2>(IID_IZNPL_Relatorio2);
  auto renumbering = server.Connect<IZNPL_RelConverte>(IID_IZNPL_RelConverte);
  unsigned char byte = 0xEE;
  tagREG_CAMPOS_RELATORIO field;
  tagREG_RELEXPORTACAO settings{};
  settings.iQtdeItens = 1;
  tagFILTRO_RELATORIO filter{1, nullptr};
  REL_CODIGO_CAMPOS_ALTERADOS pair{1, 2};

  // Without a place for the answer nothing is even sent.
  EXPECT_EQ(rel->BuscaCampos(1, nullptr), E_POINTER);
  EXPECT_EQ(rel->BuscaQdeCamposArquivo(nullptr), E_POINTER);
  EXPECT_EQ(rel->BuscaNomeRelatoriosExistentes(nullptr), E_POINTER);
  EXPECT_EQ(rel->LeFiltroRelatorio(nullptr, nullptr), E_POINTER);
  EXPECT_EQ(store->GetNomeRelatoriosDemonstracaoExcluidos(nullptr), E_POINTER);
  EXPECT_EQ(server.wire.last.slot, 0);

  // A promised array that is not there.
  EXPECT_EQ(rel->GravaRelatorio(nullptr, 0, 1, nullptr), E_POINTER);
  EXPECT_EQ(rel->AtualizaRelatorio(nullptr, 0, 0, 1, nullptr), E_POINTER);
  EXPECT_EQ(rel->GravaDadosExportacaoDoRelatorio(nullptr, settings), E_POINTER);
  EXPECT_EQ(rel->GravaFiltroRelatorio(nullptr, &filter), E_POINTER);
  EXPECT_EQ(rel->GravaFiltroRelatorio(nullptr, nullptr), E_POINTER);
  EXPECT_EQ(renumbering->AlteraCodigoCampos(nullptr, nullptr, 1, nullptr), E_POINTER);

  // Counts out of bounds.
  constexpr LONG kTooMany = 1 << 30;
  EXPECT_EQ(rel->GravaRelatorio(nullptr, 0, -1, &byte), E_INVALIDARG);
  EXPECT_EQ(store->Grava(nullptr, 0, 0, -1, &byte), E_INVALIDARG);
  EXPECT_EQ(rel->BuscaRelatorio(-1, &byte), E_INVALIDARG);
  EXPECT_EQ(rel->BuscaRelatorio(kTooMany, &byte), E_INVALIDARG);
  EXPECT_EQ(rel->BuscaCampos(-1, &field), E_INVALIDARG);
  EXPECT_EQ(rel->BuscaCampos(kTooMany, &field), E_INVALIDARG);
  EXPECT_EQ(byte, 0xEE);
  EXPECT_EQ(server.script.noted, "");

  // A request that no frame holds is never sent; a renumbering of fewer than no pairs is one of none.
  const std::unique_ptr<unsigned char[]> huge(new unsigned char[channel::kMaxPayloadBytes]);
  EXPECT_EQ(store->Grava(nullptr, 0, 0, LONG{channel::kMaxPayloadBytes}, huge.get()), E_INVALIDARG);
  EXPECT_EQ(server.script.noted, "");
  EXPECT_EQ(store->Grava(nullptr, 0, 0, 1, &byte), S_OK);
  EXPECT_EQ(renumbering->AlteraCodigoCampos(nullptr, nullptr, -5, &pair), S_OK);
  EXPECT_EQ(server.script.noted, "AlteraCodigoCampos null null -5 [] ");
}

TEST(Marshal, FailuresOfTheServerAreResults) {
  RecordingServer server;
  auto rel = server.Connect<IZNPL_Rel>(IID_IZNPL_Rel);
  auto store = server.Connect<IZNPL_Relatorio2>(IID_IZNPL_Relatorio2);
  REG_RELATORIO2* record = nullptr;

  const auto expect = [&](HRESULT result) {
    record = Garbage<REG_RELATORIO2>();
    EXPECT_EQ(store->Le(Vendas().Get(), &record), result);
    EXPECT_EQ(record, nullptr);
  };
  server.script.interrupt = [] { throw std::bad_alloc(); };
  expect(E_OUTOFMEMORY);
  server.script.interrupt = [] { throw std::runtime_error("unforeseen"); };
  expect(kestor::kUnexpectedFailure);
  server.script.interrupt = [] {};
  server.script.items = static_cast<LONG>(channel::kMaxPayloadBytes);
  expect(E_OUTOFMEMORY);

  // The most that a frame holds is asked for, and the object has nothing of the kind.
  unsigned char byte = 0xEE;
  server.script.result = kestor::ErrorForm(KESTOR_NAO_BUSCOU_QTDE);
  EXPECT_EQ(rel->BuscaRelatorio(static_cast<LONG>(channel::kMaxPayloadBytes - 4), &byte), server.script.result);
  EXPECT_EQ(byte, 0xEE);
}

TEST(Marshal, AServerThatDiesLeavesNothingInTheCallersHands) {
  auto server = std::make_unique<RecordingServer>();
  auto proxy = server->Connect<IZNPL_Relatorio2>(IID_IZNPL_Relatorio2);
  server.reset();
  auto* name = Garbage<OLECHAR>();
  EXPECT_LT(proxy->GetRelatorioPadrao(&name), 0);
  EXPECT_EQ(name, nullptr);
  REG_ARRAY_RELATORIO2 names{99, Garbage<tagREG_NOME_RELATORIO2>()};
  EXPECT_EQ(proxy->GetNomeRelatoriosDemonstracaoExcluidos(&names), channel::kServerUnavailable);
  EXPECT_EQ(names.nQtdeRelatorios, 0);
  EXPECT_TRUE(names.pregRelatorios == nullptr);
}

// ---- Payloads that lie ---------------------------------------------------------------------------------------------

struct LengthField {
  std::size_t offset;
  std::size_t width;
};

// Reads a payload by its shape, on its own knowledge of the protocol. Letters: t text; 1 2 4 scalar of that width;
// array behind its count: b bytes (32-bit), c columns (16-bit), p pairs (32-bit); record with array: E export settings,
// F filter, K catalogue fields, L model, M names; ? presence, which must be there; * the rest.
class FieldReader {
 public:
  explicit FieldReader(const std::string& payload) : payload_(payload) {}

  // The fields that tell a length.
  std::vector<LengthField> Lengths(const char* shape) {
    for (; *shape != '\0'; ++shape)
      Field(*shape);
    EXPECT_EQ(at_, payload_.size());
    return lengths_;
  }

 private:
  void Field(char letter) {
    switch (letter) {
      case 't':
        at_ += Length(at_, 4) + 4;
        break;
      case '?':
        Presence();
        break;
      case 'b':
        return CountedArray(4, 0, 4, 1);
      case 'c':
        return CountedArray(2, 0, 2, 30);
      case 'p':
        return CountedArray(4, 0, 4, 4);
      case 'E':
        return CountedArray(612, 604, 2, 228);
      case 'F':
        return CountedArray(2, 0, 2, 104);
      case 'K':
        return CountedArray(2, 0, 2, 262);
      case 'L':
        return CountedArray(6, 2, 4, 1);
      case 'M':
        return CountedArray(2, 0, 2, 256);
      case '*':
        at_ = payload_.size();
        break;
      default:
        at_ += static_cast<std::size_t>(letter - '0');
    }
  }
  void CountedArray(std::size_t fixedBytes, std::size_t countOffset, std::size_t countWidth, std::size_t itemBytes) {
    const std::size_t count = Length(at_ + countOffset, countWidth);
    at_ += fixedBytes;
    Presence();
    at_ += count * itemBytes;
  }
  void Presence() {
    EXPECT_EQ(payload_.at(at_), 1);
    ++at_;
  }
  std::size_t Length(std::size_t offset, std::size_t width) {
    lengths_.push_back({offset, width});
    std::size_t value = 0;
    for (std::size_t i = width; i-- > 0;)
      value = value << 8 | static_cast<unsigned char>(payload_.at(offset + i));
    return value;
  }

  const std::string& payload_;
  std::size_t at_ = 0;
  std::vector<LengthField> lengths_;
};

// Every payload that is `payload` cut short, with something behind it, or with a length that lies.
std::vector<std::string> Malformed(const std::string& payload, const char* shape) {
  std::vector<std::string> variants;
  const bool takesAnyLength = *shape == '*';
  for (std::size_t length = 0; length < payload.size(); ++length)
    variants.push_back(payload.substr(0, length));
  variants.push_back(payload + "x");
  if (takesAnyLength) return variants;
  for (const LengthField& field : FieldReader(payload).Lengths(shape)) {
    for (const char* lie : {"\xFF\xFF\xFF\x7F", "\x04\x10\x00\x00", "\xFE\xFF\xFF\xFF"}) {
      if (field.width == 2 && lie[0] == '\xFE') continue;
      variants.push_back(payload);
      variants.back().replace(field.offset, field.width, lie, field.width);
    }
  }
  return variants;
}

TEST(Marshal, RequestsThatLieReachNoObject) {
  RecordingServer server;
  for (const Method& method : Methods()) {
    const AnyProxy proxy(server, method.iid);
    method.call(proxy.Get(), Typical());
    const Exchange valid = server.wire.last;
    server.script.noted.clear();

    auto connection = server.Open(method.iid);
    channel::Decoder out;
    for (const std::string& request : Malformed(valid.request, method.request)) {
      connection->BeginCall(method.slot).Bytes(request.data(), request.size());
      const HRESULT result = connection->Exchange(&out);
      // A count below zero is understood, and refused or taken as none: then bytes are left over.
      EXPECT_EQ(result, channel::kBadStubData) << method.slot << ' ' << request.size();
      EXPECT_EQ(out.Left(), 0u);
      EXPECT_EQ(server.script.noted, "");
    }
    for (const unsigned slot : {0u, 2u, method.iid == IID_IZNPL_Rel ? 17u : 12u, 0xFFFFu}) {
      connection->BeginCall(static_cast<std::uint16_t>(slot));
      EXPECT_EQ(connection->Exchange(&out), channel::kSlotOutOfRange);
    }
    connection->BeginCall(method.slot).Bytes(valid.request.data(), valid.request.size());
    EXPECT_EQ(connection->Exchange(&out), S_OK);
    EXPECT_NE(server.script.noted, "");
  }
}

TEST(Marshal, AnswersThatLieReachNoCaller) {
  RecordingServer server;
  for (const Method& method : Methods()) {
    const AnyProxy proxy(server, method.iid);
    const auto callWithAnswer = [&](const std::string& answer) {
      server.wire.tamper = [&answer](channel::Encoder& out) {
        out.CutPayload(4);
        out.Bytes(answer.data(), answer.size());
      };
      std::string got = method.call(proxy.Get(), Typical());
      server.wire.tamper = [](channel::Encoder&) {};
      return got;
    };
    const std::string right = method.call(proxy.Get(), Typical());
    const std::string valid = server.wire.last.answer;

    // What a caller has who got only the result.
    server.script.result = channel::kBadStubData;
    const std::string nothing = callWithAnswer("");
    if (*method.answer != '*') {
      EXPECT_THAT(nothing, testing::MatchesRegex("-[0-9]+ (0 )?(null )?"));
    }
    server.script.result = S_OK;

    for (const std::string& answer : Malformed(valid, method.answer)) {
      EXPECT_TRUE(callWithAnswer(answer) == nothing) << method.slot << ' ' << answer.size();
    }
    EXPECT_TRUE(callWithAnswer(valid) == right);
  }
}

// ---- The page that tells others ------------------------------------------------------------------------------------

// The bytes of the page's example: lines "client: 4b 53 …" and "server: …", in the order in which they are sent.
std::vector<std::pair<bool, std::string>> ExampleFrames() {
  std::ifstream page(PROTOCOL_PAGE);
  std::vector<std::pair<bool, std::string>> frames;
  for (std::string line; std::getline(page, line);) {
    const bool fromClient = line.starts_with("client: ");
    if (!fromClient && !line.starts_with("server: ")) continue;
    std::istringstream words(line.substr(8));
    std::string bytes;
    for (std::string word; words >> word;)
      bytes += static_cast<char>(std::stoi(word, nullptr, 16));
    frames.emplace_back(fromClient, bytes);
  }
  return frames;
}

TEST(Marshal, TheExampleOfTheProtocolPageIsTrue) {
  RecordingServer server;
  server.script.items = 3;
  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  server.Socket().copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const auto frames = ExampleFrames();
  EXPECT_EQ(frames.size(), 6u);
  for (const auto& [fromClient, bytes] : frames) {
    std::string received(bytes.size(), '\0');
    if (fromClient) {
      ASSERT_EQ(send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    } else {
      ASSERT_EQ(recv(descriptor, received.data(), received.size(), MSG_WAITALL), static_cast<ssize_t>(bytes.size()));
      EXPECT_EQ(testing::PrintToString(received), testing::PrintToString(bytes));
    }
  }
  EXPECT_EQ(server.script.noted, Line("Le", Vendas().Get()));
  close(descriptor);
}

}  // namespace
