// A complete installation of the server: a home with its folders entered and the real executable registered.
#pragma once

#include <new>
#include <optional>
#include <string>

#include "contract/interfaces.h"
#include "support/support.h"

namespace support {

// Enters a text in the registry of the current home.
void SetRegistryText(const std::string& keyBelowLocalMachine, const std::string& name, const std::string& text);

// D:\ is the reports folder (Data()); module CT has the folder D:\Contabil\. The classes are registered for the
// executable under test, or for `command` instead. The destructor ends a server that still runs.
class Installation {
 public:
  explicit Installation(const std::optional<std::string>& command = std::nullopt);
  ~Installation() { EndServer(); }
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  std::filesystem::path Reports() const { return home_.Data(); }
  const TempHome& Home() const { return home_; }

  // 0 when no server runs.
  pid_t ServerPid() const { return static_cast<pid_t>(Status().processId); }
  DWORD LiveObjects() const { return Status().liveObjects; }

  void EndServer() const;  // kills it and waits until it is gone

 private:
  static com::ServerStatus Status();

  TempHome home_;
};

// Returns the socket at which the class's server listens for clients of the current home.
std::string SocketPath(const CLSID& clsid = CLSID_ZNPL_Relatorio2);

// Returns the folder with one name for each open descriptor of a process.
std::string FolderOfDescriptors(pid_t process);

// A BSTR that the object owns.
class Text {
 public:
  explicit Text(const std::u16string& text) : text_(SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {
    if (!text_) throw std::bad_alloc();
  }
  operator BSTR() const { return text_.get(); }  // NOLINT: stands where a BSTR stands

 private:
  OwnedBstr text_;
};

// Returns a new report store in the server process, initialised for CT 01; null if anything failed.
ComPtr<IZNPL_Relatorio2> OpenStore();

// Call Grava and Le of the store. ReadModel returns the content, or the result as text ("0x00040001") if it is not
// S_OK.
HRESULT WriteModel(IZNPL_Relatorio2& store, const std::u16string& name, std::string content, USHORT version = 1,
                   unsigned char flags = 0);
std::string ReadModel(IZNPL_Relatorio2& store, const std::u16string& name, USHORT* version = nullptr);

}  // namespace support
