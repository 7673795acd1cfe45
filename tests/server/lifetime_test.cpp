// What keeps the server alive and when it ends, without a process and without waiting.
#include <array>
#include <deque>
#include <gtest/gtest.h>

#include "server/entrada.h"
#include "server/fabrica_classe.h"
#include "server/monitor_encerramento.h"

namespace {

constexpr DWORD kIdle = 5000;

// Plays a script: each wait of the monitor is answered by the next entry, which may change the world first.
class Script {
 public:
  struct Wait {
    DWORD expectedLimit;
    bool signalled;
    std::function<void()> before = [] {};
  };

  explicit Script(std::deque<Wait> waits) : waits_(std::move(waits)) {}

  void Run(std::atomic<bool>& activity, const std::atomic<LONG>& locks) {
    kestor::AguardaOciosidade(
        [this](DWORD limit) {
          if (waits_.empty()) throw std::runtime_error("the monitor waits although it should end");
          const Wait wait = waits_.front();
          waits_.pop_front();
          EXPECT_EQ(limit, wait.expectedLimit);
          wait.before();
          return wait.signalled;
        },
        kIdle, activity, locks);
    EXPECT_TRUE(waits_.empty()) << "the monitor ends too early";
  }

 private:
  std::deque<Wait> waits_;
};

TEST(ShutdownMonitor, EndsAfterTheIdleTimeWithoutObjects) {
  std::atomic<bool> activity{true};
  std::atomic<LONG> locks{0};
  Script({{INFINITE, true}, {kIdle, false}}).Run(activity, locks);
  EXPECT_FALSE(activity);
}

TEST(ShutdownMonitor, WhatHappensMeanwhileStartsTheWaitAnew) {
  std::atomic<bool> activity{true};
  std::atomic<LONG> locks{0};
  Script({
             {INFINITE, true},
             // An object comes and goes in the idle time, twice.
             {kIdle, true, [&] { activity = true; }},
             {kIdle, true, [&] { activity = true; }},
             // An object is there when the time is over: back to waiting for its end.
             {kIdle, false, [&] { locks = 1; }},
             {INFINITE, true, [&] { locks = 0; }},
             // The last object goes between the time-out and the look at the flag.
             {kIdle, false, [&] { activity = true; }},
             {INFINITE, true},
             {kIdle, false},
         })
      .Run(activity, locks);
}

HRESULT NoObject(kestor::CModuloServidor&, IUnknown*, REFIID, void**) {
  return E_OUTOFMEMORY;
}

TEST(ShutdownMonitor, PostsTheQuitMessageToTheMainThread) {
  CoInitialize(nullptr);
  {
    kestor::CModuloServidor module({}, 1);
    ASSERT_TRUE(module.IniciaMonitor());
    kestor::CFabricaClasse* factory = nullptr;
    IClassFactory* created = nullptr;
    ASSERT_EQ(kestor::CFabricaClasse::Cria(module, NoObject, &created), S_OK);
    factory = static_cast<kestor::CFabricaClasse*>(created);
    EXPECT_EQ(module.Travas(), 0) << "class objects do not count";
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    EXPECT_EQ(module.Travas(), 2);
    factory->LockServer(FALSE);
    factory->LockServer(FALSE);
    factory->Release();
    MSG message{};
    EXPECT_EQ(GetMessageA(&message, nullptr, 0, 0), FALSE);
  }
  CoUninitialize();
}

}  // namespace
