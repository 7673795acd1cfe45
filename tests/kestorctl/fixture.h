// Runs the real program, and through it the real server, on a home of the test's own.
#pragma once

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/support.h"

// What a run of the program left.
struct Outcome {
  int status = -1;
  std::string output;  // standard output
  std::string errors;  // standard error

  nlohmann::json Document() const { return nlohmann::json::parse(output); }
};

using Arguments = std::vector<std::string>;

class KestorctlTest : public testing::Test {
 protected:
  KestorctlTest();
  void TearDown() override;  // ends the server of the home
  static void EndServer(const Outcome& status);

  const std::filesystem::path& Folder() const { return folder_.Path(); }
  std::filesystem::path Home() const { return Folder() / "home"; }
  std::filesystem::path Reports() const { return Folder() / "reports"; }
  std::filesystem::path Contabil() const { return Folder() / "contabil"; }
  std::filesystem::path RegistryFile() const { return Home() / "registry.reg"; }

  // The current folder of the program is Folder().
  Outcome Run(Arguments arguments, const std::string& input = {}) const;

  // The same by a user who has no rights on anything of the test but what everybody has. Root alone can do that.
  Outcome RunAsNobody(Arguments arguments) const;

  // `command` for the shell, in which $ctl is the program.
  Outcome RunShell(const std::string& command) const;

  // Makes the home with Reports() and, for module CT, Contabil(). Fails the test unless that succeeds.
  void SetUpHome() const;

  std::string Registered(const std::string& key, const std::string& name) const;  // as `registry get` tells it

 private:
  // `prepare` is done by the new process before it starts the command.
  Outcome Execute(
      const Arguments& command, const std::string& input, const std::function<void()>& prepare = [] {}) const;

  support::TempFolder folder_;
};

// That the program has ended with `status` and one line on standard error, in which `told` stands.
void ExpectTold(const Outcome& outcome, int status, const std::string& told);
