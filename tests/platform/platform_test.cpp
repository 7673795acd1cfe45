// The smaller parts of the platform: texts, memory and identities, threads and messages, the home.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <sstream>

#include "platform/com/object.h"
#include "platform/home/home.h"
#include "platform/kernel/kernel.h"
#include "platform/text/text.h"
#include "support/elsewhere.h"

namespace {

using namespace std::string_literals;

namespace fs = std::filesystem;

using platform::Home;
using support::Elsewhere;

// ---- Texts ---------------------------------------------------------------------------------------------------------

TEST(CodePage, EveryByteComesBackFromUtf8AndUtf16) {
  std::string all;
  for (int i = 0; i < 256; ++i)
    all += static_cast<char>(i);
  std::string exact;
  EXPECT_TRUE(text::FromUtf8Exactly(text::ToUtf8(all), &exact));
  EXPECT_EQ(exact, all);
  EXPECT_EQ(text::FromUtf16(text::ToUtf16(all)), all);
  EXPECT_EQ(text::Utf16ToUtf8(text::ToUtf16(all)), text::ToUtf8(all));
  EXPECT_EQ(text::ToUtf8("Relat\xF3rio \x80\x8A\x92\x9F\xFF"), "Relatório €Š’Ÿÿ");
}

TEST(CodePage, WhatItLacksBecomesAQuestionMark) {
  const std::tuple<std::string, std::string, bool> cases[] = {
      {"aЖb", "a?b", true},                       // a letter of another alphabet
      {"a😀b", "a?b", true},                       // one character, whatever its length
      {"\xC2\x80", "?", true},                    // the euro sign has taken this control character's byte
      {"\xE0\x80\xAF", "???", false},             // overlong
      {"\xED\xA0\x80", "???", false},             // a surrogate
      {"\xF4\x90\x80\x80", "????", false},        // beyond the last character
      {"12345678\xE2\x82", "12345678??", false},  // cut off
      {"\xE2\x28\xA1", "?(?", false}};
  for (const auto& [utf8, ansi, valid] : cases) {
    SCOPED_TRACE(testing::PrintToString(utf8));
    std::string exact;
    EXPECT_EQ(text::FromUtf8(utf8), ansi);
    EXPECT_FALSE(text::FromUtf8Exactly(utf8, &exact));
    EXPECT_EQ(text::IsValidUtf8(utf8), valid);
  }
  EXPECT_FALSE(text::IsValidUtf8(std::string_view("€", 2))) << "cut off before its last byte";
  EXPECT_EQ(text::FromUtf16(u"a\xD83D\xDE00z\xDE00\xDE00"), "a?z??");
  EXPECT_EQ(text::Utf8ToUtf16("aé€😀\xFFz\xE2"), u"aé€😀\xFFFDz\xFFFD");
  EXPECT_EQ(text::Utf16ToUtf8(u"aé€😀\xDC00z\xD800"), "aé€😀\uFFFDz\uFFFD");
}

TEST(LetterCase, PairsLettersOverTheWholeCodePage) {
  const std::string others = "09_@[`{\x83\xB5\xD7\xDF\xF7\xAA\xBA";
  const std::string upper = "ABCZ\xC0\xC9\xD6\xD8\xDE\x8A\x8C\x8E\x9F" + others;
  const std::string lower = "abcz\xE0\xE9\xF6\xF8\xFE\x9A\x9C\x9E\xFF" + others;
  EXPECT_EQ(text::Upper(lower), upper);
  EXPECT_TRUE(text::EqualNoCase(lower, upper) && text::EndsWithNoCase(lower, upper));
  EXPECT_EQ(lstrcmpiA(lower.c_str(), upper.c_str()), 0);
  EXPECT_FALSE(text::EqualNoCase("rel", "re") || text::EndsWithNoCase("el", "rel") || lstrcmpiA("rel", "re") == 0);
}

TEST(Numbers, AreReadAsTheStandardLibraryReadsThemAndWrittenWithSixDecimals) {
  const std::string zeros(400, '0');
  std::vector<std::string> numbers = {"1" + zeros, "0." + zeros + "1", "0." + zeros + "1e401"};
  std::istringstream others(
      "|x|.|-|-.|1|+1.5| \t-0.25e2x| \t\n\v\f\r+12x3|- 7|-007|.5|5.|1e|1e+|1e5|1E-5|1.5.5|123456789.123456789|1,5|"
      "1e308|1e309|-1e309|1e-400|-1e-400|4.9e-324|1e99999999999999|1e-99999999999999|0e999999|0.000000e-9|--1|+-1|1 2|"
      "2147483647|2147483648|-2147483648|-2147483649|99999999999999999999999999");
  for (std::string number; std::getline(others, number, '|');)
    numbers.push_back(number);
  for (const std::string& number : numbers) {
    const long long whole = std::strtoll(number.c_str(), nullptr, 10);
    EXPECT_EQ(text::ToInt(number), std::clamp<long long>(whole, INT32_MIN, INT32_MAX)) << number;
    EXPECT_EQ(text::ToDouble(number), std::strtod(number.c_str(), nullptr)) << number;
  }
  EXPECT_EQ(text::FormatDouble(-2.5) + text::FormatDouble(0.0000005), "-2.5000000.000000");
  EXPECT_EQ(text::FormatDouble(-1.7976931348623157e308).size(), 1 + 309 + 1 + 6U);
}

// ---- Memory and identities -----------------------------------------------------------------------------------------

TEST(Memory, BstrsHaveTheirLengthInFrontAndANulAtTheEnd) {
  const OLECHAR source[] = u"a\0ção";
  const OwnedBstr copy(SysAllocStringLen(source, 5));
  EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(copy.get()) - 4, "\x0A\0\0\0", 4), 0);
  EXPECT_EQ(std::memcmp(copy.get(), source, sizeof source), 0);
  EXPECT_EQ(SysStringLen(copy.get()), 5u);
  EXPECT_EQ(SysStringLen(OwnedBstr(SysAllocString(source)).get()), 1u) << "up to the NUL";
  const OwnedBstr odd(SysAllocStringByteLen("abc", 3));
  EXPECT_EQ(SysStringByteLen(odd.get()), 3u);
  EXPECT_EQ(SysStringLen(odd.get()), 1u);
  EXPECT_EQ(std::memcmp(odd.get(), "abc\0\0\0", 6), 0);

  for (const UINT characters : {0x7FFFFFFDu, 0x80000000u})
    EXPECT_EQ(SysAllocStringLen(nullptr, characters), nullptr) << characters;
  EXPECT_EQ(SysAllocStringByteLen(nullptr, 0xFFFFFFFAu), nullptr);
  EXPECT_TRUE(TaskBlock<char>(static_cast<char*>(CoTaskMemAlloc(0)))) << "a block of no bytes is a block";
}

TEST(Memory, ClearingAVariantGivesUpWhatItOwns) {
  struct CountedUnknown final : com::UncountedObject<IUnknown, IID_IUnknown> {
    ULONG Release() override { return --references; }
    ULONG references = 1;
  } object;
  VARIANT value{VT_UNKNOWN, 0, 0, 0, {.punkVal = &object}};
  EXPECT_EQ(VariantClear(&value), S_OK);
  EXPECT_EQ(VariantClear(&value), S_OK) << "empty by now";
  EXPECT_EQ(object.references, 0u);
  value.vt = 0x1234;
  EXPECT_EQ(VariantClear(&value), E_INVALIDARG);
}

TEST(Identities, TheirTextComesBackAndNothingElseDoes) {
  const GUID guid = {0x627C07C1, 0x2803, 0x4BE4, {0x99, 0xFD, 0x10, 0x79, 0x6E, 0x46, 0x47, 0x0A}};
  const std::string text = "{627C07C1-2803-4BE4-99FD-10796E46470A}";
  EXPECT_EQ(GuidText(guid), text);
  GUID back{};
  EXPECT_TRUE(GuidFromText("{627c07c1-2803-4BE4-99fd-10796e46470a}", &back));
  EXPECT_EQ(back, guid);
  for (std::size_t i = 0; i < text.size(); ++i) {
    EXPECT_FALSE(GuidFromText(std::string(text).replace(i, 1, "g"), &back)) << i;
    EXPECT_FALSE(GuidFromText(std::string(text).erase(i, 1), &back)) << i;
    EXPECT_FALSE(GuidFromText(std::string(text).insert(i, 1, '0'), &back)) << i;
  }
}

// ---- Threads and messages ------------------------------------------------------------------------------------------

struct Shared {
  HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  std::atomic<int> released{0};
  LONG volatile counter = 0;
};

DWORD CountAndWait(void* parameter) {
  auto& shared = *static_cast<Shared*>(parameter);
  for (int i = 0; i < 2000000; ++i) {
    InterlockedIncrement(&shared.counter);
    if (i > 0) InterlockedDecrement(&shared.counter);
  }
  if (WaitForSingleObject(shared.event, INFINITE) == WAIT_OBJECT_0) ++shared.released;
  return 0;
}

TEST(Threads, WaitForEventsAndAreWaitedFor) {
  Shared shared;
  std::map<DWORD, HANDLE> threads;
  for (int i = 0; i < 4; ++i) {
    DWORD id = 0;
    HANDLE thread = CreateThread(nullptr, 0, CountAndWait, &shared, 0, &id);
    threads[id] = thread;
  }
  EXPECT_EQ(threads.size() + threads.count(GetCurrentThreadId()), 4U);
  for (int signalled = 1; signalled <= 4; ++signalled) {
    SetEvent(shared.event);
    EXPECT_TRUE(support::WaitUntil([&] { return shared.released == signalled; })) << "each signal lets one thread go";
  }
  EXPECT_EQ(WaitForSingleObject(shared.event, 0), WAIT_TIMEOUT);
  for (const auto& [id, thread] : threads) {
    for (const DWORD limit : {INFINITE, DWORD{0}})
      EXPECT_EQ(WaitForSingleObject(thread, limit), WAIT_OBJECT_0) << "an end stays";
    CloseHandle(thread);
  }
  EXPECT_EQ(shared.counter, 4);
  CloseHandle(shared.event);
}

struct BusySource final : platform::MessageSource {
  bool Wait(int /*wakeDescriptor*/, MSG* message) override {
    *message = {nullptr, WM_USER, 5, 0};
    return true;
  }
  void Dispatch(const MSG& message) override { dispatched += message.wParam; }

  WPARAM dispatched = 0;
};

TEST(Messages, PostedOnesComeBeforeThoseOfTheSource) {
  BusySource source;
  platform::AttachMessageSource(&source);
  EXPECT_TRUE(PostThreadMessageA(GetCurrentThreadId(), WM_USER + 7, 1, 2));
  MSG message{};
  EXPECT_EQ(GetMessageA(&message, nullptr, 0, 0), TRUE);
  EXPECT_TRUE(message.message == WM_USER + 7 && message.wParam == 1 && message.lParam == 2);
  EXPECT_EQ(GetMessageA(&message, nullptr, 0, 0), TRUE);
  DispatchMessageA(&message);
  EXPECT_EQ(source.dispatched, 5U);
  platform::AttachMessageSource(nullptr);
  EXPECT_EQ(PostThreadMessageA(0, WM_QUIT, 0, 0), FALSE) << "no thread has this identity";
}

TEST(CommandLine, IsTheWholeLineInTheCodePage) {
  const char* told = getenv("TELL_COMMAND_LINE");
  if (told != nullptr) return support::WriteFile(told, GetCommandLineA());
  const support::TempFolder folder;
  const fs::path file = folder.Path() / "told";
  Elsewhere([&file] {
    setenv("TELL_COMMAND_LINE", file.c_str(), 1);
    execl("/proc/self/exe", "/opt/a b/kestor", "--gtest_filter=CommandLine.*", "", "caf\xC3\xA9", "-RegServer",
          nullptr);
  });
  EXPECT_EQ(support::ReadFile(file), "\"/opt/a b/kestor\" --gtest_filter=CommandLine.* \"\" caf\xE9 -RegServer");
}

// ---- The home ------------------------------------------------------------------------------------------------------

TEST(HomeFolder, ComesFromTheEnvironment) {
  using Row = std::tuple<const char*, const char*, std::string>;
  for (const Row& row : {Row("/own/", "/config", "/own"), Row("", "/config", "/config/kestor"),
                         Row("", "", "/home/ana/.config/kestor")}) {
    Elsewhere([&row] {  // a process looks for its home only once
      const auto& [own, config, expected] = row;
      setenv("KESTOR_HOME", own, 1);
      setenv("XDG_CONFIG_HOME", config, 1);
      setenv("HOME", "/home/ana", 1);
      EXPECT_EQ(Home::Current().Folder(), expected);
      EXPECT_EQ(Home::Current().Drive('D'), expected + "/drives/d");
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
  EXPECT_TRUE(fs::create_directory(fitting) && fs::create_directory(tooLong) && fs::create_directory(home));
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
    for (const fs::path& run : {tooLong, folder.Path() / "none", fs::path("."), fs::path()})
      EXPECT_EQ(sockets(home, run), other) << run;
  });
}

TEST(SocketFolder, IsRefusedWhenOthersMayEnterIt) {
  const support::TempHome home;
  const std::string sockets = Home::Current().SocketFolder();
  const auto refusal = [] {
    std::string reason = "none";
    Home::Current().PrepareSocketFolder(&reason);
    return reason;
  };
  EXPECT_EQ(refusal(), "none");
  for (const std::string& folder : {sockets, sockets.substr(0, sockets.rfind('/'))}) {
    EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
    fs::permissions(folder, fs::perms(0710));
    EXPECT_EQ(refusal(), folder + " may be entered by other users");
    fs::permissions(folder, fs::perms::owner_all);
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
