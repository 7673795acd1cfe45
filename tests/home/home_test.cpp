// Where a process finds its home, and where its sockets lie.
#include "platform/home/home.h"

#include <cstdlib>
#include <gtest/gtest.h>

#include "support/elsewhere.h"

namespace fs = std::filesystem;
using platform::Home;
using support::Elsewhere;

namespace {

TEST(HomeFolder, ComesFromTheEnvironment) {
  const struct {
    const char* own;
    const char* config;
    const char* expected;
  } cases[] = {{"/own/", "/config", "/own"}, {"", "/config", "/config/kestor"}, {"", "", "/home/ana/.config/kestor"}};
  for (const auto& c : cases) {
    Elsewhere([&] {  // a process looks for its home only once
      setenv("KESTOR_HOME", c.own, 1);
      setenv("XDG_CONFIG_HOME", c.config, 1);
      setenv("HOME", "/home/ana", 1);
      EXPECT_EQ(Home::Current().Folder(), c.expected);
      EXPECT_EQ(Home::Current().Drive('D'), std::string(c.expected) + "/drives/d");
      Home::Use("/other");
      EXPECT_EQ(Home::Current().Registry(), "/other/registry.reg");
      EXPECT_STREQ(getenv("KESTOR_HOME"), "/other");
    });
  }
}

TEST(SocketFolder, IsOneOfAHomeAndLeavesRoomForNames) {
  constexpr std::size_t kLongest = 107 - 39 - 24;  // the socket's name and what the folder adds go off
  const support::TempFolder folder;
  const std::size_t rest = kLongest - folder.Path().string().size() - 1;
  const fs::path fitting = folder.Path() / std::string(rest, 'r');
  const fs::path tooLong = folder.Path() / std::string(rest + 1, 'r');
  const fs::path home = folder.Path() / std::string(200, 'h');
  for (const fs::path& made : {fitting, tooLong, home})
    fs::create_directory(made);
  fs::create_directory_symlink(home, folder.Path() / "link");
  const auto sockets = [](const fs::path& ofHome, const fs::path& run) {
    setenv("XDG_RUNTIME_DIR", run.c_str(), 1);
    Home::Use(ofHome);
    return fs::path(Home::Current().SocketFolder());
  };
  Elsewhere([&] {
    const fs::path usual = sockets(home, fitting);
    EXPECT_EQ(usual.string().size() + 39, 107U);
    EXPECT_EQ(usual.parent_path(), fitting / "kestor");
    EXPECT_EQ(sockets(folder.Path() / "link", fitting), usual) << "another spelling";
    EXPECT_NE(sockets(folder.Path(), fitting), usual) << "another home";
    const fs::path other = fs::path("/tmp/kestor-" + std::to_string(geteuid())) / usual.filename();
    for (const fs::path& run : {tooLong, folder.Path() / "none", fs::path("run"), fs::path()})
      EXPECT_EQ(sockets(home, run), other) << run;
  });
}

TEST(SocketFolder, IsRefusedWhenOthersMayEnterIt) {
  const support::TempHome home;
  const fs::path sockets = Home::Current().SocketFolder();
  const auto refusal = [] {
    std::string reason = "none";
    Home::Current().PrepareSocketFolder(&reason);
    return reason;
  };
  EXPECT_EQ(refusal(), "none");
  for (const std::string& folder : {sockets.string(), sockets.parent_path().string()}) {
    EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
    fs::permissions(folder, fs::perms(0710));
    EXPECT_EQ(refusal(), folder + " may be entered by other users");
    fs::permissions(folder, fs::perms::owner_all);
    EXPECT_EQ(refusal(), "none");
    if (geteuid() == 0) {
      EXPECT_EQ(lchown(folder.c_str(), 65534, 65534), 0);
      EXPECT_EQ(refusal(), folder + " belongs to another user");
    }
    fs::rename(folder, folder + "-elsewhere");
    fs::create_directory_symlink(folder + "-elsewhere", folder);
    EXPECT_EQ(refusal(), folder + " is no folder");
    fs::remove(folder);
  }
}

}  // namespace
