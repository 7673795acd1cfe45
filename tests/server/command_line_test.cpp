#include <gtest/gtest.h>

#include "server/linha_comando.h"

namespace {

using kestor::Chamada;
using kestor::ExaminaLinhaComando;

TEST(CommandLine, OnlyASwitchAtTheEndCounts) {
  const std::vector<std::pair<const char*, Chamada>> cases = {
      {"", Chamada::servidor},
      {"kestor", Chamada::servidor},
      {"kestor -Embedding", Chamada::servidor},
      {"kestor /Embedding", Chamada::servidor},
      {"kestor -RegServer", Chamada::registro},
      {"kestor /rEGSERVER", Chamada::registro},
      {"kestor -UnregServer", Chamada::cancelamento},
      {"/opt/kestor-1.0/kestor /UNREGSERVER", Chamada::cancelamento},
      {"/opt/kestor-1.0/kestor -- -RegServer", Chamada::registro},
      {"kestor --RegServer", Chamada::registro},
      {"kestor -RegServer ", Chamada::servidor},
      {"kestor -RegServer /s", Chamada::servidor},
      {"kestor RegServer", Chamada::servidor},
      {"kestor - RegServer", Chamada::servidor},
      {"/RegServer", Chamada::registro},
      {"kestor -", Chamada::servidor},
  };
  for (const auto& [line, expected] : cases)
    EXPECT_EQ(ExaminaLinhaComando(line), expected) << line;
}

}  // namespace
