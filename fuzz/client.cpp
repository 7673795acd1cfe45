// Whatever a server sends, a program that uses the client library survives: each call ends, and returns complete data
// or nothing.
//
// The first byte chooses the class. The rest is what the server sends on each connection, one frame for each frame that
// it receives.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "class_table.h"
#include "contract/interfaces.h"
#include "kestor.h"
#include "platform/home/home.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// Reads what a call returns, so that AddressSanitizer checks it.
volatile unsigned sum = 0;
void Use(const void* bytes, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    sum = sum + static_cast<const unsigned char*>(bytes)[i];
}

// ---- The server ----------------------------------------------------------------------------------------------------

class Server {
 public:
  explicit Server(const CLSID& clsid) {
    const std::string path = com::OwnSocketPath(clsid);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    Require(path.size() < sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    listening_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    Require(bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
    Require(listen(listening_, 16) == 0);
    std::thread([this] { Serve(); }).detach();
  }

  void Say(std::string bytes) {
    const std::lock_guard<std::mutex> lock(mutex_);
    said_ = std::move(bytes);
  }

 private:
  [[noreturn]] void Serve() {
    for (;;) {
      const int client = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
      Require(client >= 0);
      std::string said;
      {
        const std::lock_guard<std::mutex> lock(mutex_);
        said = said_;
      }
      Answer(client, said);
      close(client);
    }
  }

  // Sends one frame for each that it receives, until there are no more.
  static void Answer(int client, std::string_view said) {
    std::string heard;
    std::array<char, 4096> block;
    for (ssize_t size = 1; size > 0 && !said.empty();) {
      size = recv(client, block.data(), block.size(), 0);
      if (size > 0) heard.append(block.data(), static_cast<std::size_t>(size));
      for (std::size_t frame = FrameBytes(heard); !said.empty() && frame <= heard.size(); frame = FrameBytes(heard)) {
        heard.erase(0, frame);
        const std::string_view next = said.substr(0, FrameBytes(said));
        said.remove_prefix(next.size());
        (void)!send(client, next.data(), next.size(), MSG_NOSIGNAL);
      }
    }
    shutdown(client, SHUT_WR);
    while (recv(client, block.data(), block.size(), 0) > 0) {
    }
  }

  // Returns the size of a frame: its header and as many bytes as the first four bytes of it say.
  static std::size_t FrameBytes(std::string_view bytes) {
    constexpr std::size_t kHeader = 8;
    std::uint32_t following = 0;
    if (bytes.size() < kHeader) return kHeader;
    std::memcpy(&following, bytes.data(), sizeof following);
    return kHeader + following;
  }

  int listening_ = -1;
  std::mutex mutex_;
  std::string said_;
};

// ---- The program ---------------------------------------------------------------------------------------------------

void Look(kestor_result result) {
  const char* const reason = result == 0 ? "" : kestor_last_reason();
  Use(reason, std::strlen(reason));
  Require(std::strlen(kestor_result_name(result)) > 0);
}

void Take(kestor_result result, kestor_names names) {
  Require(result == 0 || (names.names == nullptr && names.count == 0));
  for (std::size_t i = 0; i < names.count; ++i)
    Use(names.names[i], std::strlen(names.names[i]));
  kestor_free(names.names);
  Look(result);
}

void Take(kestor_result result, kestor_content content) {
  Require(result == 0 || (content.bytes == nullptr && content.size == 0));
  Use(content.bytes, content.size);
  kestor_free(content.bytes);
  Look(result);
}

template <typename Record>
void Take(kestor_result result, Record* records, std::size_t count) {
  Require(result == 0 || (records == nullptr && count == 0));
  Use(records, count * sizeof(Record));
  kestor_free(records);
  Look(result);
}

constexpr kestor_options kOptions = {sizeof(kestor_options), 5000, 1};

void UseReports() {
  kestor_reports* store = nullptr;
  const kestor_result opened = kestor_reports_open(&kOptions, "CT", "01", &store);
  Require((opened >= 0) == (store != nullptr));
  Look(opened);
  if (store == nullptr) return;
  kestor_names names;
  kestor_content content;
  char* name = nullptr;
  kestor_field* fields = nullptr;
  std::size_t count = 0;
  Take(kestor_reports_list(store, &names), names);
  Take(kestor_reports_read(store, "Vendas", &content), content);
  Look(kestor_reports_write(store, "Vendas", 1, 0, "x", 1));
  Look(kestor_reports_set_default(store, "Vendas"));
  const kestor_result got = kestor_reports_get_default(store, &name);
  Take(got, name, name == nullptr ? 0 : std::strlen(name));
  Look(kestor_reports_delete(store, "Vendas", 1));
  Take(kestor_reports_deleted(store, &names), names);
  const kestor_result listed = kestor_reports_fields(store, &fields, &count);
  Take(listed, fields, count);
  kestor_reports_close(store);
}

void UseLegacy() {
  kestor_legacy* store = nullptr;
  const kestor_result opened = kestor_legacy_open(&kOptions, "CT", "01", &store);
  Require((opened >= 0) == (store != nullptr));
  Look(opened);
  if (store == nullptr) return;
  kestor_names names;
  kestor_content content;
  kestor_export settings = {};
  kestor_export_item* items = nullptr;
  kestor_filter_entry* entries = nullptr;
  kestor_legacy_field* fields = nullptr;
  std::size_t count = 0;
  const kestor_column column = {"Conta", 3};
  const kestor_filter_entry entry = {};
  Look(kestor_legacy_write(store, "Vendas", 0, "x", 1));
  Look(kestor_legacy_write_quietly(store, "Vendas", 0, "x", 1));
  Take(kestor_legacy_list(store, &names), names);
  Take(kestor_legacy_read(store, "Vendas", &content), content);
  Look(kestor_legacy_update(store, "Vendas", 1, 1, &column, 1));
  Look(kestor_legacy_put_export(store, "Vendas", &settings, nullptr));
  const kestor_result exported = kestor_legacy_get_export(store, "Vendas", &settings, &items);
  Take(exported, items, exported == 0 ? settings.item_count : 0);
  Look(kestor_legacy_put_filter(store, "Vendas", &entry, 1));
  const kestor_result filtered = kestor_legacy_get_filter(store, "Vendas", &entries, &count);
  Take(filtered, entries, count);
  const kestor_result listed = kestor_legacy_fields(store, &fields, &count);
  Take(listed, fields, count);
  Look(kestor_legacy_delete(store, "Vendas"));
  kestor_legacy_close(store);
}

void Renumber() {
  const kestor_code_change change = {1, 2};
  Look(kestor_renumber(&kOptions, "CT", "01", &change, 1));
}

struct Class {
  Server server;
  void (*use)();
};

Class* Classes() {
  static bool made = [] {
    static std::string folder = (std::filesystem::temp_directory_path() / "kestor-fuzz-XXXXXX").string();
    Require(mkdtemp(folder.data()) != nullptr);
    std::atexit([] { std::filesystem::remove_all(folder); });
    // The library has its own copy of the home's code, and finds the same home through the environment.
    for (const char* variable : {"XDG_RUNTIME_DIR", "KESTOR_HOME", "KESTOR_SYSTEM"})
      Require(setenv(variable, folder.c_str(), 1) == 0);
    std::string reason;
    return platform::Home::Current().PrepareSocketFolder(&reason);
  }();
  Require(made);
  static Class classes[] = {{Server(CLSID_ZNPL_Relatorio2), UseReports},
                            {Server(CLSID_ZNPL_Rel), UseLegacy},
                            {Server(CLSID_ZNPL_RelConverte), Renumber}};
  return classes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  Class& chosen = Classes()[data[0] % 3];
  chosen.server.Say(std::string(data + 1, data + size));
  chosen.use();
  return 0;
}
