// The parts of the server process: its command line, its class objects, and what decides when it ends.
#include <algorithm>
#include <gmock/gmock.h>
#include <map>

#include "contract/interfaces.h"
#include "server/fabrica_classe.h"
#include "server/linha_comando.h"
#include "server/monitor_encerramento.h"
#include "store/repositorio_rel2.h"
#include "support/installation.h"
#include "support/system_calls.h"

namespace {

using kestor::Chamada;
using kestor::ExaminaLinhaComando;

TEST(Switches, CountOnlyAtTheEnd) {
  for (const char* line :
       {"", "kestor -Embedding", "kestor -RegServer ", "kestor -RegServer /s", "kestor RegServer", "-"})
    EXPECT_EQ(ExaminaLinhaComando(line), Chamada::servidor) << line;
  for (const char* line :
       {"kestor -RegServer", "kestor /rEGSERVER", "/opt/kestor-1.0/kestor --RegServer", "/RegServer"})
    EXPECT_EQ(ExaminaLinhaComando(line), Chamada::registro) << line;
  EXPECT_EQ(ExaminaLinhaComando("/opt/kestor-1.0/kestor -UNREGSERVER"), Chamada::cancelamento);
}

TEST(ClassObject, ChecksBeforeTheClassIsAskedAndCountsLocks) {
  const auto create = [](kestor::CModuloServidor&, IUnknown*, REFIID, void**) { return S_FALSE; };
  kestor::CModuloServidor module({});
  ComPtr<IClassFactory> factory;
  ASSERT_EQ(kestor::CFabricaClasse::Cria(module, create, factory.Out()), S_OK);
  void* object = &module;
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(factory->CreateInstance(factory.Get(), IID_IZNPL_Rel, &object), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(factory->CreateInstance(factory.Get(), IID_IUnknown, &object), S_FALSE);
  for (const LONG locks : {1, 0}) {
    factory->LockServer(locks);
    EXPECT_EQ(module.Travas(), locks);
  }
}

// Counts the system calls, by name, while a store of a module with that journal overwrites a model.
std::map<std::string, int> CallsOfGrava(journal::Writer* journal) {
  kestor::CModuloServidor module({}, 0, journal);
  ComPtr<IZNPL_Relatorio2> store;
  EXPECT_EQ(kestor::CRepositorioRel2::Cria<kestor::CRepositorioRel2>(IID_IZNPL_Relatorio2, store.OutVoid(), module),
            S_OK);
  EXPECT_EQ(store->Inicializa(support::Text(u"CT"), support::Text(u"01")), S_OK);
  EXPECT_EQ(support::WriteModel(*store, u"Modelo", "the first call opens the journal"), S_OK);
  std::map<std::string, int> calls;
  const support::SystemCalls seen([&calls](const host::SystemCall& call) {
    ++calls[call.name];
    return host::Fate{};
  });
  EXPECT_EQ(support::WriteModel(*store, u"Modelo", "content"), S_OK);
  return calls;
}

TEST(Journal, CostsAGravaOneWriteAndNoFlush) {
  const support::Installation installation;
  std::map<std::string, int> expected = CallsOfGrava(nullptr);
  ++expected["write"];
  ++expected["statx"];  // checks that the journal still has its name
  journal::Writer journal(platform::Home::Current());
  EXPECT_EQ(CallsOfGrava(&journal), expected);
}

// A folder may have models that no initialisation can convert, and every client initialises.
TEST(Journal, ModelsThatStayAreEnteredOnceForEachReason) {
  const support::Installation installation;
  journal::Writer journal(platform::Home::Current());
  kestor::CModuloServidor module({}, 0, &journal);
  const auto tell = [&module](kestor::Destino fate, const char* model, const char* reason) {
    module.Relata({.modulo = "CT", .modelo = model, .razao = reason, .destino = fate, .feitos = 1, .total = 1});
  };
  for (int i = 0; i < 3; ++i) {
    tell(kestor::Destino::fica, "A", "in use");
    tell(kestor::Destino::fica, "A", "cut");
    tell(kestor::Destino::fica, "B", "cut");
    tell(kestor::Destino::renumerado, "A", "");
  }
  const std::string lines = support::ReadFile(platform::Home::Current().Folder() / "journal.jsonl");
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 3 + 3) << lines;
}

TEST(ShutdownMonitor, WhatHappensMeanwhileStartsTheWaitAnew) {
  constexpr DWORD kIdle = 5000;
  std::atomic<bool> activity{true};
  std::atomic<LONG> locks{0};
  testing::StrictMock<testing::MockFunction<bool(DWORD)>> wait;
  // Expects a wait in which the event is signalled or not, an object comes and goes or not, and `objects` exist at the
  // end.
  const auto expect = [&](DWORD limit, bool isSignalled, bool hasActivity, LONG objects) {
    EXPECT_CALL(wait, Call(limit)).WillOnce([&, isSignalled, hasActivity, objects] {
      activity = activity || hasActivity;
      locks = objects;
      return isSignalled;
    });
  };
  const testing::InSequence inTurn;
  expect(INFINITE, true, true, 0);
  expect(kIdle, true, true, 0);  // an object comes and goes in the idle time, twice
  expect(kIdle, true, true, 0);
  expect(kIdle, false, false, 1);  // an object exists at the time-out: back to waiting for its end
  expect(INFINITE, true, false, 0);
  expect(kIdle, false, true, 0);  // the last object goes between the time-out and the check of the flag
  expect(INFINITE, true, false, 0);
  expect(kIdle, false, false, 0);
  kestor::AguardaOciosidade(wait.AsStdFunction(), kIdle, activity, locks);
}

}  // namespace
