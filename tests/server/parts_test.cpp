// What the server process is made of: its command line, its class objects, and what decides when it ends.
#include <gtest/gtest.h>
#include <stdexcept>
#include <tuple>

#include "contract/interfaces.h"
#include "server/fabrica_classe.h"
#include "server/linha_comando.h"
#include "server/monitor_encerramento.h"

namespace {

using kestor::Chamada;
using kestor::ExaminaLinhaComando;

TEST(CommandLine, OnlyASwitchAtTheEndCounts) {
  for (const char* line :
       {"", "kestor -Embedding", "kestor -RegServer ", "kestor -RegServer /s", "kestor RegServer", "-"})
    EXPECT_EQ(ExaminaLinhaComando(line), Chamada::servidor) << line;
  for (const char* line :
       {"kestor -RegServer", "kestor /rEGSERVER", "/opt/kestor-1.0/kestor --RegServer", "/RegServer"})
    EXPECT_EQ(ExaminaLinhaComando(line), Chamada::registro) << line;
  EXPECT_EQ(ExaminaLinhaComando("/opt/kestor-1.0/kestor -UNREGSERVER"), Chamada::cancelamento);
}

TEST(ClassObject, ChecksBeforeTheClassIsAskedAndCountsLocksAlone) {
  const auto create = [](kestor::CModuloServidor&, IUnknown*, REFIID, void**) { return S_FALSE; };
  kestor::CModuloServidor module({});
  ComPtr<IClassFactory> factory;
  ASSERT_EQ(kestor::CFabricaClasse::Cria(module, create, factory.Out()), S_OK);
  void* object = &module;
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(factory->CreateInstance(factory.Get(), IID_IZNPL_Rel, &object), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(factory->CreateInstance(factory.Get(), IID_IUnknown, &object), S_FALSE);
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IZNPL_Rel, &object), S_FALSE);
  factory->LockServer(TRUE);
  EXPECT_EQ(module.Travas(), 1);
  factory->LockServer(FALSE);
  EXPECT_EQ(module.Travas(), 0);
}

TEST(ShutdownMonitor, WhatHappensMeanwhileStartsTheWaitAnew) {
  constexpr DWORD kIdle = 5000;
  // What the monitor waits for in turn; whether the event is signalled, an object has come and gone, and one is there.
  const std::tuple<DWORD, bool, bool, LONG> waits[] = {
      {INFINITE, true, true, 0},
      {kIdle, true, true, 0},  // an object comes and goes in the idle time, twice
      {kIdle, true, true, 0},
      {kIdle, false, false, 1},  // an object is there when the time is over: back to waiting for its end
      {INFINITE, true, false, 0},
      {kIdle, false, true, 0},  // the last object goes between the time-out and the look at the flag
      {INFINITE, true, false, 0},
      {kIdle, false, false, 0},
  };
  std::atomic<bool> activity{true};
  std::atomic<LONG> locks{0};
  std::size_t round = 0;
  const auto wait = [&](DWORD limit) {
    if (round == std::size(waits)) throw std::runtime_error("the monitor waits although it should end");
    const auto& [expected, isSignalled, hasActivity, objects] = waits[round++];
    EXPECT_EQ(limit, expected) << "wait " << round;
    activity = activity || hasActivity;
    locks = objects;
    return isSignalled;
  };
  kestor::AguardaOciosidade(wait, kIdle, activity, locks);
  EXPECT_EQ(round, std::size(waits)) << "the monitor ends too early";
}

}  // namespace
