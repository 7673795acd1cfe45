// Objects of the three interfaces that record the calls they get, byte by byte as on the wire, and answer as a script
// tells them; and the server's end of their calls.
#pragma once

#include <atomic>
#include <functional>

#include "marshal/marshal.h"
#include "payloads.h"
#include "proxy.h"

namespace recorder {

using namespace marshal::sent;
using payloads::Content;

struct Script {
  HRESULT result = S_OK;
  Content answer;
  std::function<void()> interrupt = [] {};  // runs inside the method; may throw

  std::string noted;  // the last call: the method's name and its encoded arguments
  std::atomic<int> objects{0};
};

// A recorder is the client half of an object without a connection: it encodes the arguments for the note, and decodes
// the answer for the caller.
template <typename Interface, const IID& iid>
struct Recorder : com::CountedObject<Interface, iid> {
  explicit Recorder(Script& ofAll) : script(ofAll) {
    ++script.objects;
    Recorder::CountedObject::AddRef();
  }
  ~Recorder() override { --script.objects; }

  template <typename... Arguments>
  HRESULT Answer(const char* name, Arguments... arguments) {
    channel::Encoder in;
    in.BeginFrame(channel::FrameType::call);
    (arguments.Encode(in), ...);
    const auto* came = reinterpret_cast<const char*>(in.Frames().Data()) + channel::kHeadBytes;
    script.noted = name + std::string(came, in.PayloadBytes());
    script.interrupt();
    const payloads::Method& method = payloads::MethodOf(iid, name);
    const std::string answer = method.request == "n" ? "" : Payload(method.answer, script.answer);
    channel::Decoder out(reinterpret_cast<const std::byte*>(answer.data()), answer.size());
    return marshal::TakeAnswer(script.result, out, arguments...);
  }

  // Serves a method that fills a buffer of the caller. The buffer is null if no answer has room for the count.
  template <typename Item>
  HRESULT FillBuffer(const char* name, LONG count, Item* buffer) {
    const HRESULT result = Answer(name, InValue(count));
    if (SUCCEEDED(result) && buffer != nullptr) payloads::Fill(buffer, static_cast<std::size_t>(count) * sizeof(Item));
    return result;
  }

  Script& script;
};

struct Rel final : Recorder<IZNPL_Rel, IID_IZNPL_Rel> {
  using Recorder::Recorder;

  HRESULT Inicializa(BSTR t, BSTR t2, BSTR t3) override { return Answer(__func__, InText(t), InText(t2), InText(t3)); }
  HRESULT BuscaCampos(LONG n, tagREG_CAMPOS_RELATORIO* out) override { return FillBuffer(__func__, n, out); }
  HRESULT BuscaQdeCamposArquivo(LONG* out) override { return Answer(__func__, OutValue(out)); }
  HRESULT BuscaRelatorio(LONG n, BYTE* out) override { return FillBuffer(__func__, n, out); }
  HRESULT BuscaTamanhoRelatorio(BSTR t, LONG* out) override { return Answer(__func__, InText(t), OutValue(out)); }
  HRESULT GravaRelatorio(BSTR t, LONG i, LONG n, BYTE* in) override {
    return Answer(__func__, InText(t), InValue(i), InArray(n, in));
  }
  HRESULT BuscaNomeRelatoriosExistentes(BSTR* out) override { return Answer(__func__, OutText(out)); }
  HRESULT ExcluiRelatorio(BSTR t) override { return Answer(__func__, InText(t)); }
  HRESULT AtualizaRelatorio(BSTR t, USHORT i, USHORT i2, USHORT n, REG_ATUALIZACAO_RELATORIO* in) override {
    return Answer(__func__, InText(t), InValue(i), InValue(i2), InArray(n, in));
  }
  HRESULT GravaRelatorioSemCallBack(BSTR t, LONG i, LONG n, BYTE* in) override {
    return Answer(__func__, InText(t), InValue(i), InArray(n, in));
  }
  HRESULT GravaDadosExportacaoDoRelatorio(BSTR t, tagREG_RELEXPORTACAO in) override {
    return Answer(__func__, InText(t), InRecord(in));
  }
  HRESULT BuscaDadosExportacaoDoRelatorio(BSTR t, tagREG_RELEXPORTACAO** out) override {
    return Answer(__func__, InText(t), OutRecord(out));
  }
  HRESULT LeFiltroRelatorio(BSTR t, tagFILTRO_RELATORIO** out) override {
    return Answer(__func__, InText(t), OutRecord(out));
  }
  HRESULT GravaFiltroRelatorio(BSTR t, tagFILTRO_RELATORIO* in) override {
    return Answer(__func__, InText(t), InRecordPointer(in));
  }
};

struct Relatorio2 final : Recorder<IZNPL_Relatorio2, IID_IZNPL_Relatorio2> {
  using Recorder::Recorder;

  HRESULT Inicializa(BSTR t, BSTR t2) override { return Answer(__func__, InText(t), InText(t2)); }
  HRESULT GetCamposDisponiveis(REG_CAMPOS_DISPONIVEIS2** out) override { return Answer(__func__, OutRecord(out)); }
  HRESULT Le(BSTR t, REG_RELATORIO2** out) override { return Answer(__func__, InText(t), OutRecord(out)); }
  HRESULT Grava(BSTR t, USHORT i, BYTE i2, LONG n, BYTE* in) override {
    return Answer(__func__, InText(t), InValue(i), InValue(i2), InArray(n, in));
  }
  HRESULT GetNomeRelatorios(REG_ARRAY_RELATORIO2** out) override { return Answer(__func__, OutRecord(out)); }
  HRESULT ExcluiRelatorio(BSTR t, char i, char* out) override {
    return Answer(__func__, InText(t), InValue(i), OutValue(out));
  }
  HRESULT GetRelatorioPadrao(BSTR* out) override { return Answer(__func__, OutText(out)); }
  HRESULT SetRelatorioPadrao(BSTR t) override { return Answer(__func__, InText(t)); }
  HRESULT GetNomeRelatoriosDemonstracaoExcluidos(REG_ARRAY_RELATORIO2* out) override {
    return Answer(__func__, OutFilledRecord(out));
  }
};

struct RelConverte final : Recorder<IZNPL_RelConverte, IID_IZNPL_RelConverte> {
  using Recorder::Recorder;

  HRESULT AlteraCodigoCampos(BSTR t, BSTR t2, LONG n, REL_CODIGO_CAMPOS_ALTERADOS* in) override {
    return Answer(__func__, InText(t), InText(t2), InArray(n, in));
  }
};

inline ComPtr<IUnknown> NewObject(const IID& iid, Script& script) {
  ComPtr<IUnknown> object;
  if (iid == IID_IZNPL_Rel) *object.Out() = new Rel(script);
  if (iid == IID_IZNPL_Relatorio2) *object.Out() = new Relatorio2(script);
  if (iid == IID_IZNPL_RelConverte) *object.Out() = new RelConverte(script);
  return object;
}

}  // namespace recorder

namespace served {

inline com::Marshaler MarshalerOf(const IID& iid) {
  const auto all = marshal::Marshalers();
  return *std::find_if(all.begin(), all.end(), [&iid](const auto& marshaler) { return marshaler.iid == iid; });
}

class Recorders final : public channel::Service {
 public:
  HRESULT Create(const std::byte* interfaceId, std::unique_ptr<channel::Session>* session) override {
    IID iid{};
    std::memcpy(&iid, interfaceId, sizeof iid);
    *session = std::make_unique<StubSession>(iid, *this);
    return S_OK;
  }

  recorder::Script script;
  std::function<void(channel::Encoder&)> tamper;  // changes answers before they go out

 private:
  struct StubSession final : channel::Session {
    StubSession(const IID& iid, Recorders& recorders)
        : stub(MarshalerOf(iid).newStub(recorder::NewObject(iid, recorders.script).Get())), tamper(recorders.tamper) {}

    HRESULT Call(channel::Caller& /*caller*/, std::uint16_t slot, channel::Decoder& arguments,
                 channel::Encoder& out) override {
      const HRESULT result = stub->Invoke(slot, arguments, out);
      if (tamper) tamper(out);
      return result;
    }

    const std::unique_ptr<com::CallStub> stub;
    const std::function<void(channel::Encoder&)>& tamper;
  };
};

}  // namespace served
