// The smaller parts of the platform: texts, memory and identities, threads and messages, the home.
// A server's start, end, limits and sockets are in kestorctl/transcripts: server.txt, sockets.txt, without_rights.txt.
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <sstream>

#include "platform/com/object.h"
#include "platform/home/home.h"
#include "platform/kernel/kernel.h"
#include "platform/text/text.h"
#include "support/elsewhere.h"

namespace {

namespace fs = std::filesystem;

using platform::Home;

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
      {"\xC2\x80", "?", true},                    // the euro sign occupies this control character's byte
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

TEST(Presentable, NeitherBreaksALineNorSteersATerminalNorIsLong) {
  EXPECT_EQ(text::Presentable("Relatório €😀 \\.RXL"), "Relatório €😀 \\.RXL");
  EXPECT_EQ(text::Presentable("a\n\x1B[2J\x7F\u0085\u202E\u2066\u2028\xFF"),
            "a\\u000A\\u001B[2J\\u007F\\u0085\\u202E\\u2066\\u2028\uFFFD");
  EXPECT_EQ(text::Presentable("<" + std::string(199, 'x')), "<" + std::string(199, 'x'));
  const std::string cut = std::string(98, 'x') + "😀" + std::string(200, 'x') + "😀" + std::string(98, 'x');
  EXPECT_EQ(text::Presentable(cut), std::string(98, 'x') + "…" + std::string(98, 'x'));
  EXPECT_EQ(text::Printable("a\tb\u061Cc\uFEFFd\u2028"), "a b c d ");
  EXPECT_EQ(text::Presentable("<" + std::string(5'000'000, '\n') + ">").size(), 1 + 98 * 6 + 3 + 98 * 6 + 1U);
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

TEST(Memory, BstrsKnowTheirLengthAndEndInANul) {
  const OLECHAR source[] = u"a\0ção";
  const OwnedBstr copy(SysAllocStringLen(source, 5));
  EXPECT_EQ(SysStringLen(copy.get()), 5u);
  EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(copy.get()) - 4, "\x0A\0\0\0", 4), 0);
  EXPECT_EQ(std::memcmp(copy.get(), source, sizeof source), 0);
  EXPECT_EQ(SysStringLen(OwnedBstr(SysAllocString(source)).get()), 1u) << "up to the NUL";
  const OwnedBstr odd(SysAllocStringByteLen("abc", 3));
  EXPECT_EQ(SysStringByteLen(odd.get()), 3u);
  EXPECT_EQ(SysStringLen(odd.get()), 1u);
  EXPECT_EQ(std::memcmp(odd.get(), "abc\0\0\0", 6), 0);

  for (const UINT characters : {0x7FFFFFFDu, 0x80000000u})
    EXPECT_EQ(SysAllocStringLen(nullptr, characters), nullptr) << characters;
  EXPECT_EQ(SysAllocStringByteLen(nullptr, 0xFFFFFFFAu), nullptr);
}

TEST(Memory, ClearingAVariantGivesUpWhatItOwns) {
  struct CountedUnknown final : com::UncountedObject<IUnknown, IID_IUnknown> {
    ULONG Release() override { return --references; }
    ULONG references = 1;
  } object;
  VARIANT value{VT_UNKNOWN, 0, 0, 0, {.punkVal = &object}};
  for (int clearing = 1; clearing <= 2; ++clearing) {
    EXPECT_EQ(VariantClear(&value), S_OK);
    EXPECT_EQ(object.references, 0u) << "cleared " << clearing;
  }
  value.vt = 0x1234;
  EXPECT_EQ(VariantClear(&value), E_INVALIDARG);
}

TEST(Identities, TheirTextComesBackAndNothingElseDoes) {
  const std::string text = "{627C07C1-2803-4BE4-99FD-10796E46470A}";
  GUID guid{};
  EXPECT_TRUE(GuidFromText("{627c07c1-2803-4BE4-99fd-10796e46470a}", &guid));
  EXPECT_EQ(guid, (GUID{0x627C07C1, 0x2803, 0x4BE4, {0x99, 0xFD, 0x10, 0x79, 0x6E, 0x46, 0x47, 0x0A}}));
  EXPECT_EQ(GuidText(guid), text);
  for (std::size_t i = 0; i < text.size(); ++i) {
    for (const std::string& wrong :
         {std::string(text).replace(i, 1, "g"), std::string(text).erase(i, 1), std::string(text).insert(i, 1, '0')})
      EXPECT_FALSE(GuidFromText(wrong, &guid)) << wrong;
  }
}

// ---- Threads and messages ------------------------------------------------------------------------------------------

TEST(Threads, CountTogetherAndWaitForEachOther) {
  static constexpr LONG kCounts = 30000000;
  struct Shared {
    const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    LONG volatile counter = 0;
    std::atomic<bool> hasCounted{false};
  } shared;
  const auto countAndWait = [](void* parameter) {
    auto& own = *static_cast<Shared*>(parameter);
    for (LONG i = 0; i < kCounts; ++i)
      InterlockedIncrement(&own.counter);
    own.hasCounted = true;
    return WaitForSingleObject(own.event, INFINITE);
  };
  DWORD id = 0;
  const HANDLE thread = CreateThread(nullptr, 0, countAndWait, &shared, 0, &id);
  EXPECT_TRUE(id != 0 && id != GetCurrentThreadId());
  LONG taken = 0;
  for (; !shared.hasCounted; ++taken) {
    InterlockedDecrement(&shared.counter);
    sched_yield();  // lets the other thread run if threads run one at a time
  }
  EXPECT_EQ(WaitForSingleObject(thread, 1), WAIT_TIMEOUT) << "nothing signals the event that it waits for";
  SetEvent(shared.event);
  for (const DWORD limit : {30000U, 0U})
    EXPECT_EQ(WaitForSingleObject(thread, limit), WAIT_OBJECT_0) << "an end stays";
  EXPECT_EQ(WaitForSingleObject(shared.event, 0), WAIT_TIMEOUT) << "a signal lets one go";
  EXPECT_EQ(shared.counter, kCounts - taken);
  CloseHandle(thread);
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
  if (const char* told = getenv("TELL_COMMAND_LINE")) return support::WriteFile(told, GetCommandLineA());
  const support::TempFolder folder;
  const fs::path file = folder.Path() / "told";
  support::Elsewhere([&file] {
    setenv("TELL_COMMAND_LINE", file.c_str(), 1);
    execl("/proc/self/exe", "/opt/a b/kestor", "--gtest_filter=CommandLine.*", "", "caf\xC3\xA9", "-RegServer",
          nullptr);
  });
  EXPECT_EQ(support::ReadFile(file), "\"/opt/a b/kestor\" --gtest_filter=CommandLine.* \"\" caf\xE9 -RegServer");
}

// ---- The home ------------------------------------------------------------------------------------------------------

TEST(SocketFolder, IsOneOfAHomeAndLeavesRoomForNames) {
  support::Elsewhere([] {  // its home, environment and folder are its own
    const support::TempFolder folder;
    fs::current_path(folder.Path());
    const fs::path here = "/proc/self/cwd";  // equally long on every machine
    constexpr std::size_t kName = 39;        // of a socket, with the separator
    constexpr std::size_t kAdded = 24;       // what is added to the folder of the environment
    const std::string fitting(107 - kName - kAdded - here.native().size() - 1, 'r');
    const std::string home(200, 'h');
    for (const std::string& name : {fitting, fitting + 'r', home})
      fs::create_directory(name);
    fs::create_directory_symlink(home, "link");
    const auto sockets = [](const fs::path& ofHome, const fs::path& run) {
      setenv("XDG_RUNTIME_DIR", run.c_str(), 1);
      Home::Use(ofHome);
      return fs::path(Home::Current().SocketFolder());
    };
    const fs::path usual = sockets(home, here / fitting);
    EXPECT_EQ(usual.native().size() + kName, 107U);
    EXPECT_EQ(usual.parent_path(), here / fitting / "kestor");
    EXPECT_EQ(sockets("link", here / fitting), usual) << "another spelling";
    EXPECT_NE(sockets(".", here / fitting), usual) << "another home";
    const fs::path other = fs::path("/tmp/kestor-" + std::to_string(geteuid())) / usual.filename();
    for (const fs::path& run : {here / (fitting + 'r'), here / "none", fs::path("."), fs::path()})
      EXPECT_EQ(sockets(home, run), other) << run;
  });
}

}  // namespace
