#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <set>
#include <tuple>

#include "folders.h"
#include "history.h"
#include "platform/host/system.h"
#include "platform/host/whole_file.h"
#include "platform/text/text.h"

namespace history {
namespace {

constexpr std::string_view kGone = "gone";
constexpr std::string_view kInPlace = "inplace";
constexpr std::string_view kNew = "new";
constexpr char kSeparator = '-';
constexpr char kSizeAndTime = 'x';
constexpr std::size_t kFields = 5;
constexpr std::string_view kTimePattern = "00000000T000000000000Z";

// The years that the system clock can represent in full.
constexpr std::chrono::year kFirstYear{1678};
constexpr std::chrono::year kLastYear{2261};

template <typename Number>
std::string Digits(Number number, int base = 10) {
  std::array<char, 32> digits{};
  return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number, base).ptr};
}

// Reads a number that makes up the whole text and is spelt as Digits spells it.
template <typename Number>
bool ReadNumber(std::string_view text, Number* number, int base = 10) {
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, *number, base);
  return read.ec == std::errc() && read.ptr == end && Digits(*number, base) == text;
}

std::string TextOf(Time time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  std::string text(kTimePattern);
  const auto write = [&](std::size_t at, std::size_t length, std::int64_t number) {
    for (std::size_t i = at + length; i-- > at; number /= 10)
      text[i] = static_cast<char>('0' + number % 10);
  };
  write(0, 4, int{date.year()});
  write(4, 2, unsigned{date.month()});
  write(6, 2, unsigned{date.day()});
  write(9, 2, clock.hours().count());
  write(11, 2, clock.minutes().count());
  write(13, 2, clock.seconds().count());
  write(15, 6, clock.subseconds().count());
  return text;
}

bool ReadTime(std::string_view text, Time* time) {
  if (text.size() != kTimePattern.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isDigit = text[i] >= '0' && text[i] <= '9';
    if (kTimePattern[i] == '0' ? !isDigit : text[i] != kTimePattern[i]) return false;
  }
  const auto number = [&](std::size_t at, std::size_t length) {
    int value = 0;
    std::from_chars(text.data() + at, text.data() + at + length, value);
    return value;
  };
  const std::chrono::year year(number(0, 4));
  const std::chrono::year_month_day date(year, std::chrono::month(static_cast<unsigned>(number(4, 2))),
                                         std::chrono::day(static_cast<unsigned>(number(6, 2))));
  const std::chrono::hours hours(number(9, 2));
  const std::chrono::minutes minutes(number(11, 2));
  const std::chrono::seconds seconds(number(13, 2));
  if (!date.ok() || hours.count() > 23 || minutes.count() > 59 || seconds.count() > 59) return false;
  if (year < kFirstYear || year > kLastYear) return false;
  *time = std::chrono::sys_days(date) + hours + minutes + seconds + std::chrono::microseconds(number(15, 6));
  return true;
}

bool ReadAfter(std::string_view text, Version* version) {
  if (text == kGone || text == kInPlace) {
    version->after = text == kGone ? After::gone : After::overwritten;
    return true;
  }
  version->after = text.starts_with(kNew) ? After::made : After::replaced;
  if (version->after == After::made) text.remove_prefix(kNew.size());
  const std::size_t between = text.find(kSizeAndTime);
  return between != text.npos && ReadNumber(text.substr(0, between), &version->sizeAfter, 16) &&
         ReadNumber(text.substr(between + 1), &version->timeAfter, 16);
}

std::string TextOfAfter(const Version& version) {
  if (version.after == After::gone) return std::string(kGone);
  if (version.after == After::overwritten) return std::string(kInPlace);
  return (version.after == After::made ? std::string(kNew) : std::string()) + Digits(version.sizeAfter, 16) +
         kSizeAndTime + Digits(version.timeAfter, 16);
}

}  // namespace

std::string OperationName(Time time, pid_t process) {
  return TextOf(time) + kSeparator + Digits(process) + kSeparator;
}

std::string_view OperationOf(std::string_view versionName) {
  return versionName.substr(0, versionName.find(kSeparator, kTimePattern.size() + 1) + 1);
}

std::string NameOf(const Version& version) {
  return OperationName(version.time, version.process) + Digits(version.user) + kSeparator + version.method +
         kSeparator + TextOfAfter(version) + version.extension;
}

std::optional<Version> ParseName(std::string_view name) {
  const std::size_t dot = std::min(name.find('.'), name.size());
  Version version;
  version.extension = name.substr(dot);
  std::array<std::string_view, kFields> fields;
  std::string_view rest = name.substr(0, dot);
  for (std::string_view& field : fields) {
    const std::size_t length = &field == &fields.back() ? rest.size() : std::min(rest.find(kSeparator), rest.size());
    field = rest.substr(0, length);
    rest.remove_prefix(std::min(length + 1, rest.size()));
  }
  version.method = fields[3];
  const bool isOne = ReadTime(fields[0], &version.time) && ReadNumber(fields[1], &version.process) &&
                     ReadNumber(fields[2], &version.user) && !version.method.empty() && ReadAfter(fields[4], &version);
  if (!isOne) return std::nullopt;
  return version;
}

std::int64_t Nanoseconds(const struct timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// ---- Finding -------------------------------------------------------------------------------------------------------

std::vector<Version> FindVersions(const std::filesystem::path& folder, const std::string& module,
                                  const std::string& component, std::string* trouble, const std::string& only) {
  std::vector<Version> found;
  VisitModels(folder, module, component, only, trouble, [&](const Descriptor& models, const std::string& model) {
    const std::filesystem::path place = FolderOfPair(folder, module, component) / model;
    VisitVersions(models, [&](const Version& parsed, const std::string& name) {
      struct stat status = {};
      if (host::StatLinkWithTimes(models.Number(), name, &status) != 0 || !S_ISREG(status.st_mode)) return;
      Version version = parsed;
      if (model != kNameless) version.model = model;
      version.file = place / name;
      version.size = static_cast<std::uint64_t>(status.st_size);
      version.written = Nanoseconds(status.st_mtim);
      version.device = status.st_dev;
      version.inode = status.st_ino;
      found.push_back(std::move(version));
    });
  });
  std::stable_sort(found.begin(), found.end(), [](const Version& a, const Version& b) {
    return std::tie(a.time, a.process, a.model, a.extension) < std::tie(b.time, b.process, b.model, b.extension);
  });
  return found;
}

// ---- Operations that are taken back --------------------------------------------------------------------------------

std::string UndoneName(const Version& operation) {
  std::string name = std::string(kUndone) + OperationName(operation.time, operation.process);
  name.pop_back();
  return name;
}

int NoteUndone(const std::filesystem::path& folder, const std::string& module, const std::string& component,
               const Version& operation) {
  Descriptor pair;
  Descriptor note;
  int error = OpenPair(folder, module, component, &pair);
  const int flags = O_WRONLY | O_CREAT | O_NOFOLLOW;
  if (error == 0) error = host::Open(pair.Number(), UndoneName(operation), flags, &note, 0666);
  return error == 0 ? host::TakeFolderRights(note, pair) : error;
}

void RemoveUndone(const std::filesystem::path& folder, const std::string& module, const std::string& component,
                  std::vector<Version>* versions) {
  Descriptor pair;
  std::set<std::string> undone;
  if (OpenPair(folder, module, component, &pair) != 0) return;
  host::ReadNames(pair, [&](const char* name, unsigned char) {
    if (std::string_view(name).starts_with(kUndone)) undone.insert(name);
  });
  std::erase_if(*versions, [&](const Version& one) { return undone.contains(UndoneName(one)); });
}

}  // namespace history
