#include "support/installation.h"

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <stdexcept>

#include "contract/results.h"
#include "marshal/marshal.h"
#include "platform/home/home.h"
#include "platform/registry/registry.h"

namespace support {

namespace {

void SetText(HKEY root, const std::string& path, const std::string& name, const std::string& text) {
  registry::OwnedKey key;
  if (RegCreateKeyA(root, path.c_str(), key.Out()) != 0 ||
      RegSetValueExA(key.Get(), name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                     static_cast<DWORD>(text.size())) != 0) {
    throw std::runtime_error("cannot write the registry");
  }
}

}  // namespace

void SetRegistryText(const std::string& keyBelowLocalMachine, const std::string& name, const std::string& text) {
  SetText(HKEY_LOCAL_MACHINE, keyBelowLocalMachine, name, text);
}

Installation::Installation(const std::optional<std::string>& command) {
  marshal::RegisterInterfaces();
  std::filesystem::create_directory(Reports() / "Contabil");
  SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "D:\\");
  SetRegistryText("SOFTWARE\\Norvela\\Contabil", "Path", "D:\\Contabil");
  if (command) {
    SetText(HKEY_CLASSES_ROOT, "CLSID\\" + GuidText(CLSID_ZNPL_Relatorio2) + "\\LocalServer32", "", *command);
  } else if (Child([] { return execl(KESTOR_EXECUTABLE, KESTOR_EXECUTABLE, "-RegServer", nullptr); }).Wait() != 0) {
    throw std::runtime_error("the server does not register");
  }
}

com::ServerStatus Installation::Status() {
  com::ServerStatus status{};
  return com::AskServerStatus(CLSID_ZNPL_Relatorio2, &status) == S_OK ? status : com::ServerStatus{};
}

void Installation::EndServer() const {
  const pid_t server = ServerPid();
  if (server == 0) return;
  kill(server, SIGKILL);
  WaitUntil([server] { return HasEnded(server); });
}

std::string SocketPath(const CLSID& clsid) {
  return platform::Home::Current().SocketFolder() + "/" + GuidText(clsid);
}

std::string FolderOfDescriptors(pid_t process) {
  return "/proc/" + std::to_string(process) + "/fd";
}

ComPtr<IZNPL_Relatorio2> OpenStore() {
  ComPtr<IZNPL_Relatorio2> store;
  if (FAILED(CoCreateInstance(CLSID_ZNPL_Relatorio2, nullptr, CLSCTX_LOCAL_SERVER, IID_IZNPL_Relatorio2,
                              store.OutVoid())) ||
      FAILED(store->Inicializa(Text(u"CT"), Text(u"01")))) {
    store.Reset();
  }
  return store;
}

HRESULT WriteModel(IZNPL_Relatorio2& store, const std::u16string& name, std::string content, USHORT version,
                   unsigned char flags) {
  return store.Grava(Text(name), version, flags, static_cast<LONG>(content.size()),
                     reinterpret_cast<unsigned char*>(content.data()));
}

std::string ReadModel(IZNPL_Relatorio2& store, const std::u16string& name, USHORT* version) {
  REG_RELATORIO2* model = nullptr;
  const HRESULT result = store.Le(Text(name), &model);
  if (result != S_OK) return kestor::ResultCode(result);
  const TaskBlock<REG_RELATORIO2> owner(model);
  const TaskBlock<std::uint8_t> content(model->lpRelatorio);
  if (version != nullptr) *version = model->nVersao;
  return {reinterpret_cast<const char*>(content.get()), static_cast<std::size_t>(model->nQtdeBytes)};
}

}  // namespace support
