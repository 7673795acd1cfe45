// What the server process is made of: its command line, its class objects, and what decides when it ends.
#include <deque>
#include <gtest/gtest.h>

#include "contract/interfaces.h"
#include "server/fabrica_classe.h"
#include "server/linha_comando.h"
#include "server/monitor_encerramento.h"

namespace {

using kestor::Chamada;
using kestor::ExaminaLinhaComando;

TEST(CommandLine, OnlyASwitchAtTheEndCounts) {
  for (const char* line : {"", "kestor", "kestor -Embedding", "kestor -RegServer ", "kestor -RegServer /s",
                           "kestor RegServer", "kestor - RegServer", "kestor -"})
    EXPECT_EQ(ExaminaLinhaComando(line), Chamada::servidor) << line;
  for (const char* line : {"kestor -RegServer", "kestor /rEGSERVER", "/opt/kestor-1.0/kestor -- -RegServer",
                           "kestor --RegServer", "/RegServer"})
    EXPECT_EQ(ExaminaLinhaComando(line), Chamada::registro) << line;
  for (const char* line : {"kestor -UnregServer", "/opt/kestor-1.0/kestor /UNREGSERVER"})
    EXPECT_EQ(ExaminaLinhaComando(line), Chamada::cancelamento) << line;
}

std::vector<std::pair<IUnknown*, IID>> asked;

HRESULT Record(kestor::CModuloServidor&, IUnknown* outer, REFIID iid, void** object) {
  EXPECT_EQ(*object, nullptr);
  asked.emplace_back(outer, iid);
  return S_FALSE;
}

TEST(ClassObject, ChecksBeforeTheClassIsAsked) {
  kestor::CModuloServidor module({});
  ComPtr<IClassFactory> factory;
  ASSERT_EQ(kestor::CFabricaClasse::Cria(module, Record, factory.Out()), S_OK);
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
  void* object = &module;
  EXPECT_EQ(factory->CreateInstance(factory.Get(), IID_IZNPL_Rel, &object), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(object, nullptr);
  object = &module;
  EXPECT_EQ(factory->CreateInstance(factory.Get(), IID_IUnknown, &object), S_FALSE);
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IZNPL_Rel, &object), S_FALSE);
  EXPECT_EQ(asked, (decltype(asked){{factory.Get(), IID_IUnknown}, {nullptr, IID_IZNPL_Rel}}));
  EXPECT_EQ(factory->QueryInterface(IID_IZNPL_Rel, &object), E_NOINTERFACE);

  EXPECT_EQ(module.Travas(), 0) << "class objects do not count";
  factory->LockServer(TRUE);
  EXPECT_EQ(module.Travas(), 1);
  factory->LockServer(FALSE);
  EXPECT_EQ(module.Travas(), 0);
}

constexpr DWORD kIdle = 5000;

// One wait of the monitor: what it waits for, and how it ends after something may have happened meanwhile.
struct Wait {
  DWORD limit;
  bool signalled;
  std::function<void()> meanwhile = [] {};
};

TEST(ShutdownMonitor, WhatHappensMeanwhileStartsTheWaitAnew) {
  std::atomic<bool> activity{true};
  std::atomic<LONG> locks{0};
  std::deque<Wait> waits = {
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
  };
  const auto next = [&waits](DWORD limit) {
    if (waits.empty()) throw std::runtime_error("the monitor waits although it should end");
    const Wait wait = waits.front();
    waits.pop_front();
    EXPECT_EQ(limit, wait.limit);
    wait.meanwhile();
    return wait.signalled;
  };
  kestor::AguardaOciosidade(next, kIdle, activity, locks);
  EXPECT_TRUE(waits.empty()) << "the monitor ends too early";
}

}  // namespace
