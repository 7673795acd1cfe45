// A server on a thread of its own, and the way to its objects.
#pragma once

#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/channel/channel.h"

namespace channel_test {

class ServerThread {
 public:
  ServerThread(const std::string& path, channel::Service* service) {
    std::promise<DWORD> ready;
    auto id = ready.get_future();
    thread_ = std::thread([&ready, path, service] {
      channel::Server server;
      platform::AttachMessageSource(&server);
      if (!server.Listen(path, service)) throw std::runtime_error("cannot listen");
      ready.set_value(GetCurrentThreadId());
      MSG message{};
      while (GetMessageA(&message, nullptr, 0, 0) != FALSE) {
        if (message.message == kWithdraw) {
          server.Withdraw(path);
        } else {
          DispatchMessageA(&message);
        }
      }
      platform::AttachMessageSource(nullptr);
    });
    id_ = id.get();
  }
  ~ServerThread() {
    PostThreadMessageA(id_, WM_QUIT, 0, 0);
    thread_.join();
  }
  ServerThread(const ServerThread&) = delete;
  ServerThread& operator=(const ServerThread&) = delete;

  void Withdraw() const { PostThreadMessageA(id_, kWithdraw, 0, 0); }

 private:
  static constexpr UINT kWithdraw = WM_USER + 100;

  std::thread thread_;
  DWORD id_ = 0;
};

// A connection that carries an object with the interface, of 16 bytes.
inline std::unique_ptr<channel::Connection> OpenObject(const std::string& path, const void* interfaceId) {
  std::unique_ptr<channel::Connection> connection;
  channel::Decoder answer;
  EXPECT_EQ(channel::Connection::Open(path, channel::FrameType::create, interfaceId, 16, 30, &connection, &answer),
            channel::Connection::Outcome::ok);
  EXPECT_EQ(answer.U32(), 0u);
  return connection;
}

}  // namespace channel_test
