// Stations that share a reports folder and a module folder, do everything at once, and are killed at any moment.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <random>
#include <sstream>

#include "document/rel_converte.h"
#include "migration/conversion_fixture.h"
#include "support/shared_memory.h"

namespace {

using support::Text;

constexpr unsigned kStations = 4;
constexpr unsigned kMostDeleted = 4000;
constexpr unsigned kMostConverted = 12;
constexpr unsigned kNothing = 0;  // no content
constexpr char kDone[] = "0x00000000";

// What a station stores under its own names: models of both generations, filters, and the default report of its key.
enum class Kind { model, relModel, filter, standard };
constexpr std::array kKinds = {Kind::model, Kind::relModel, Kind::filter, Kind::standard};
constexpr unsigned kNames = 4;  // of each kind; one default report

// The sequence numbers of the content that was last acknowledged and of the content that a call is about to write. A
// station that is killed in between leaves either.
struct Entry {
  std::atomic<unsigned> kept{kNothing};
  std::atomic<unsigned> pending{kNothing};
};

struct Account {
  std::array<std::array<Entry, kNames>, kKinds.size()> entries;
  std::atomic<unsigned> sequence{kNothing};                   // the last number assigned
  std::atomic<unsigned> deleted{0};                           // demonstration models whose names are remembered
  std::array<std::atomic<bool>, kMostConverted> converted{};  // models acknowledged that the migration converts
};

// In memory that the stations share, so that it survives stations that are killed.
struct Books {
  std::array<Account, kStations> accounts;
  std::atomic<unsigned> calls{0};
  std::atomic<unsigned> failures{0};
  std::atomic<bool> closed{false};
};

// Counts failures in shared memory: a station that has failed may be killed before it can report.
class FailureCounter : public testing::EmptyTestEventListener {
 public:
  explicit FailureCounter(std::atomic<unsigned>* failures) : failures_(failures) {}
  void OnTestPartResult(const testing::TestPartResult& result) override { *failures_ += result.failed() ? 1 : 0; }

 private:
  std::atomic<unsigned>* failures_;
};

// The migration leaves a model with this start alone, because its version is later than any known.
constexpr std::string_view kLaterVersion("\x01\xA5\x09\x00", 4);

// Returns a content that identifies its name, its station and its sequence number, and that differs from every other
// content and from any part of itself.
std::string Proof(Kind kind, const std::string& name, unsigned station, unsigned sequence) {
  std::string content(kLaterVersion);
  content += name + ' ' + std::to_string(station) + ' ' + std::to_string(sequence) + ' ';
  std::minstd_rand random(sequence * kStations + station + 1);
  std::size_t size = content.size() + random() % 3000;
  if (kind == Kind::model && sequence % 16 == 0) size += 200'000;
  if (kind == Kind::filter) size = (1 + random() % 30) * sizeof(tagCAMPO_FILTRO);
  while (content.size() < size)
    content += static_cast<char>(random());
  return content;
}

constexpr auto Wide = text::Utf8ToUtf16;

// Expects that a call succeeded, found the file in use by others, or answered `otherwise`.
void ExpectDone(const std::string& result, const std::string& what, const std::string& otherwise = kDone) {
  const std::set<std::string> expected = {kDone, otherwise, "0x80070020", "0x80043EEE", "0x80040005"};
  EXPECT_TRUE(expected.contains(result)) << what << ": " << result;
}

// Each process of the test is a station with a home of its own. A station that finds a loss exits.
class ContentionTest : public ConversionTest {
 protected:
  ContentionTest() {
    std::filesystem::copy_file(Catalogue(), Module() / "XCT02.REL");
    if (!mounts_.empty()) {
      std::filesystem::create_directories(OnMount(0) / "Rel");
      std::filesystem::remove_all(home_.Data() / kReports);
      std::filesystem::create_directory_symlink(OnMount(0), home_.Data() / kReports);
    }
    for (unsigned i = 0; i < kStations; ++i) {
      homes_.push_back(std::make_unique<support::TempHome>(mounts_.empty() ? home_.Data() : DataOfMachine(i)));
      support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "D:\\Dados.v2\\Rel");
      support::SetRegistryText("SOFTWARE\\Norvela\\Contabil", "Path", "D:\\Contabil.v2");
    }
  }

  ~ContentionTest() override {
    std::error_code ignored;
    if (!mounts_.empty()) std::filesystem::remove_all(OnMount(0), ignored);
  }

  // The mounts that stand in for the stations' machines, if machines.sh has mounted one volume twice:
  // $KESTOR_MACHINES/a and /b. Without them all stations share one folder.
  static std::vector<std::filesystem::path> Mounts() {
    const char* const machines = getenv("KESTOR_MACHINES");
    if (machines == nullptr) return {};
    return {std::filesystem::path(machines) / "a", std::filesystem::path(machines) / "b"};
  }

  std::filesystem::path OnMount(unsigned machine) const {
    return mounts_.at(machine % mounts_.size()) / home_.Home().parent_path().filename();
  }

  // Makes the drive of a station, whose reports are on its own mount.
  std::filesystem::path DataOfMachine(unsigned station) const {
    std::filesystem::path data = home_.Home().parent_path() / ("machine" + std::to_string(station));
    std::filesystem::create_directory(data);
    std::filesystem::create_directory_symlink(OnMount(station), data / kReports);
    std::filesystem::create_directory_symlink(Module(), data / "Contabil.v2");
    return data;
  }

  void Start(unsigned number, std::minstd_rand::result_type seed) {
    stations_.at(number).emplace([=, this] {
      testing::UnitTest::GetInstance()->listeners().Append(new FailureCounter(&books_->failures));
      Become(number);
      Work(seed);
      return HasFailure() ? 1 : 0;
    });
  }

  static void Machines(const std::string& command) {
    EXPECT_EQ(std::system(("'" KESTOR_MACHINES_SCRIPT "' " + command).c_str()), 0) << command;
  }

  // Kills the process that serves the second mount, and with it whatever that machine has not sent yet. Stops its
  // stations first, so that they die without another step.
  void LoseMachine(std::minstd_rand* random) {
    for (unsigned i = 1; i < kStations; i += 2)
      kill(stations_.at(i)->Pid(), SIGSTOP);
    Machines("kill-client b");
    for (unsigned i = 1; i < kStations; i += 2)
      EndStation(i);
    Machines("mount b");
    for (unsigned i = 1; i < kStations; i += 2)
      Start(i, (*random)());
  }

  void EndStation(unsigned number) {
    stations_.at(number)->Kill();
    EXPECT_EQ(stations_.at(number)->Wait(), 128 + SIGKILL) << "station " << number << " ended by itself";
  }

  // Replaces a station that may have been killed: each name holds the old content or the new one.
  void Become(unsigned number) {
    homes_.at(number)->Enter();
    number_ = number;
    own_ = &books_->accounts.at(number);
    common_ = OpenStore("01");
    keys_ = OpenStore("K" + std::to_string(number));
    rel_ = ReadyRel();
    converting_ = NewRel();
    EXPECT_EQ(Initialise(*converting_, u"CT", u"02"), kDone);
    for (unsigned i = 0; i < kNames; ++i)
      WriteOwn(Name(Kind::standard, i));
    for (const Kind kind : kKinds) {
      for (unsigned i = 0; i < NamesOf(kind); ++i)
        Settle(kind, i);
    }
    if (Remembered() == DeletedNames(own_->deleted + 1)) ++own_->deleted;
  }

  // Performs random operations until the books are closed.
  void Work(std::minstd_rand::result_type seed) {
    SCOPED_TRACE("station " + std::to_string(number_));
    random_.seed(seed);
    while (!books_->closed && !HasFailure()) {
      const Kind kind = kKinds.at(random_() % kKinds.size());
      const auto index = static_cast<unsigned>(random_() % NamesOf(kind));
      const auto action = random_() % 16;
      if (action < 5)
        Change(kind, index);
      else if (action < 8)
        Check(kind, index);
      else if (action < 12)
        UseShared();
      else if (action == 12)
        UseSharedDefault();
      else if (action == 13)
        CheckLists();
      else if (action == 14)
        DeleteDemonstrations();
      else if (Chance(6))
        Convert();  // takes as long as a hundred other operations
    }
  }

  // Checks that no record exists twice and that each key has one default report. Ignores a partial record that a killed
  // station left.
  void CheckRecords(const char* file, std::size_t size, std::size_t keySize) const {
    std::string bytes;
    std::string trouble;
    // A volume that has lost a disk may need time to recover.
    const bool isRead = WaitForOthers([&] {
      try {
        bytes = support::ReadFile(Reports() / file);
        return true;
      } catch (const std::exception& failure) {
        trouble = failure.what();
        return false;
      }
    });
    ASSERT_TRUE(isRead) << trouble;
    EXPECT_TRUE(bytes.starts_with(std::string(size, '\0'))) << file << " does not begin with a record of zeros";
    std::set<std::string> keys;
    for (std::size_t i = 0; i + size <= bytes.size(); i += size)
      EXPECT_TRUE(keys.insert(bytes.substr(i, keySize)).second) << file << " has twice " << bytes.substr(i, keySize);
  }

  static unsigned NamesOf(Kind kind) { return kind == Kind::standard ? 1 : kNames; }

  bool Chance(unsigned one) { return random_() % one == 0; }

  // ---- Stores, names and contents ----------------------------------------------------------------------------------

  ComPtr<IZNPL_Relatorio2> OpenStore(const std::string& component) {
    ComPtr<IZNPL_Relatorio2> store = NewStore();
    const HRESULT result = store->Inicializa(Text(u"CT"), Text(Wide(component)));
    EXPECT_TRUE(SUCCEEDED(result)) << "no store, or no migration: " << kestor::ResultCode(result);
    return store;
  }

  std::string Numbered(const char* name, unsigned index) const {
    return name + std::to_string(number_) + "n" + std::to_string(index);
  }

  std::string Name(Kind kind, unsigned index) const {
    static constexpr std::array kNamesOfKinds = {"Modelo", "Antigo", "Filtro", "Padrao"};
    return Numbered(kNamesOfKinds.at(static_cast<std::size_t>(kind)), index);
  }

  bool HasFile(Kind kind, const std::string& name) const {
    static constexpr std::array kExtensions = {".RXL", ".REL", ".REF"};
    return std::filesystem::exists(File(name, kExtensions.at(static_cast<std::size_t>(kind))));
  }

  Entry& EntryOf(Kind kind, unsigned index) const { return own_->entries.at(static_cast<std::size_t>(kind)).at(index); }

  // A default report is one of the station's own models that always exist.
  std::string Expected(Kind kind, unsigned index, unsigned sequence) const {
    if (sequence == kNothing) return {};
    if (kind == Kind::standard) return Name(kind, sequence % kNames);
    return Proof(kind, Name(kind, index), number_, sequence);
  }

  // ---- Calls -------------------------------------------------------------------------------------------------------

  std::string Put(Kind kind, const std::string& name, const std::string& content, unsigned char flags = 0) {
    ++books_->calls;
    if (kind == Kind::standard) return SetDefault(*keys_, Wide(content));
    if (kind == Kind::relModel) return Write(*rel_, Wide(name), content);
    if (kind == Kind::model) return kestor::ResultCode(support::WriteModel(*common_, Wide(name), content, 2, flags));
    return WriteFilter(*rel_, Wide(name), content);
  }

  std::string Remove(Kind kind, const std::string& name) {
    ++books_->calls;
    if (kind == Kind::standard) return kestor::ResultCode(keys_->SetRelatorioPadrao(nullptr));
    if (kind == Kind::relModel) return kestor::ResultCode(rel_->ExcluiRelatorio(Text(Wide(name))));
    return Delete(*common_, Wide(name));
  }

  // Returns the content, or the result if there is none or it is not available at the moment.
  std::string Get(Kind kind, const std::string& name) {
    ++books_->calls;
    if (kind == Kind::standard) return Default(*keys_);
    if (kind == Kind::relModel) return Read(*rel_, Wide(name));
    if (kind == Kind::model) return support::ReadModel(*common_, Wide(name));
    return ReadFilter(*rel_, Wide(name));
  }

  // Returns the content of a name that no other station changes; empty if there is none. Other stations may hold its
  // file for a moment.
  std::string Fetch(Kind kind, const std::string& name) {
    std::string found;
    const bool fetched = WaitForOthers([&] {
      found = Get(kind, name);
      return !found.starts_with("0x") || (kind != Kind::standard && !HasFile(kind, name));
    });
    EXPECT_TRUE(fetched) << name << " is there and not to be had: " << found;
    return found.starts_with("0x") || found == "(null)" ? "" : found;
  }

  // Other stations hold a file only for a moment. But a network file system may keep the locks of a lost machine for a
  // minute, and a flush on it may take two minutes; both may add up.
  bool WaitForOthers(const std::function<bool()>& condition) const {
    return support::WaitUntil(condition, mounts_.empty() ? 30 : 300);
  }

  // Writes a model that no other station uses.
  void WriteOwn(const std::string& name) {
    HRESULT result = S_OK;
    EXPECT_TRUE(WaitForOthers([&] { return (result = support::WriteModel(*keys_, Wide(name), "x")) == S_OK; }))
        << name << ": " << kestor::ResultCode(result);
  }

  // ---- What is the station's own -----------------------------------------------------------------------------------

  void Change(Kind kind, unsigned index) {
    Entry& entry = EntryOf(kind, index);
    const std::string name = Name(kind, index);
    const bool removes = kind != Kind::filter && entry.kept != kNothing && Chance(5);
    entry.pending = removes ? kNothing : ++own_->sequence;
    const std::string result = removes ? Remove(kind, name) : Put(kind, name, Expected(kind, index, entry.pending));
    // A first-generation deletion skips files that are in use, and reports success.
    if (removes && kind == Kind::relModel) return Settle(kind, index);
    ExpectDone(result, "changing " + name);
    if (result == kDone) entry.kept = entry.pending.load();
    entry.pending = entry.kept.load();
  }

  void Check(Kind kind, unsigned index) {
    const std::string name = Name(kind, index);
    EXPECT_TRUE(Fetch(kind, name) == Expected(kind, index, EntryOf(kind, index).kept))
        << name << " is not what it was left as";
  }

  // Finds out what a call has done whose effect is unknown.
  void Settle(Kind kind, unsigned index) {
    Entry& entry = EntryOf(kind, index);
    if (Fetch(kind, Name(kind, index)) == Expected(kind, index, entry.pending)) entry.kept = entry.pending.load();
    entry.pending = entry.kept.load();
    Check(kind, index);
  }

  void DeleteDemonstrations() {
    for (int i = 0; i < 5 && own_->deleted < kMostDeleted; ++i) {
      const std::string name = Numbered("Demo", own_->deleted);
      WriteOwn(name);
      std::string result;
      EXPECT_TRUE(WaitForOthers([&] { return (result = Delete(*keys_, Wide(name), Model::demonstration)) == kDone; }))
          << name << ": " << result;
      // The name is not added to a list that other stations have in use all the time.
      if (Remembered() != DeletedNames(own_->deleted + 1)) return;
      ++own_->deleted;
    }
  }

  std::string DeletedNames(unsigned count) const {
    std::string names;
    for (unsigned i = 0; i < count; ++i)
      names += Numbered("Demo", i) + ",";
    return names;
  }

  // Returns the names of deleted demonstration models as the store lists them.
  std::string Remembered() {
    std::string names;
    WaitForOthers([&] { return (names = Deleted(*keys_)) != "0x80070020"; });
    return names == "(null)" ? "" : names;
  }

  void CheckLists() {
    EXPECT_EQ(Remembered(), DeletedNames(own_->deleted));
    const std::pair<Kind, std::string> lists[] = {{Kind::model, "," + Listed(*common_)},
                                                  {Kind::relModel, "|" + Listed(*rel_) + "|"}};
    for (const auto& [kind, list] : lists) {
      for (unsigned i = 0; i < kNames; ++i) {
        const bool listed = list.find(list[0] + Name(kind, i) + list[0]) != std::string::npos;
        EXPECT_EQ(listed, EntryOf(kind, i).kept != kNothing) << Name(kind, i) << " in " << list;
      }
    }
  }

  // ---- What all stations share -------------------------------------------------------------------------------------

  std::string SharedName(Kind kind) {
    return "Comum" + std::to_string(static_cast<int>(kind)) + "n" + std::to_string(random_() % 3);
  }

  void UseShared() {
    const Kind kind = Chance(2) ? Kind::model : Kind::relModel;
    const std::string name = SharedName(kind);
    const auto action = random_() % 6;
    if (action > 3) return CheckShared(kind, name);
    if (action == 0) return ExpectDone(Remove(kind, name), "deleting " + name, "0x80070002");
    const bool mustBeNew = action == 3 && kind == Kind::model;
    const std::string content = Proof(kind, name, number_, ++own_->sequence);
    ExpectDone(Put(kind, name, content, mustBeNew ? KESTOR_NaoSobreescrever : 0), "writing " + name,
               mustBeNew ? "0x00040004" : kDone);
  }

  void CheckShared(Kind kind, const std::string& name) {
    const std::string content = Get(kind, name);
    if (content == "0x00040001") return;
    std::istringstream head(content);
    std::string writtenFor;
    unsigned station = 0, sequence = 0;
    head.ignore(kLaterVersion.size()) >> writtenFor >> station >> sequence;
    EXPECT_TRUE(content == Proof(kind, name, station, sequence)) << name << " holds what no station has written";
  }

  void UseSharedDefault() {
    const std::string name = SharedName(Kind::model);
    if (Chance(2)) return ExpectDone(SetDefault(*common_, Wide(name)), "setting the common default", "0x00000001");
    const std::string found = Default(*common_);
    if (!found.starts_with("Comum0n")) ExpectDone(found, "the common default", "(null)");
  }

  // ---- Migration and renumbering -----------------------------------------------------------------------------------

  // Works on models that any station may convert, and renumbers them back and forth.
  void Convert() {
    for (unsigned i = 0; i < kMostConverted && Chance(2); ++i) {
      if (own_->converted.at(i)) continue;
      const std::string name = Numbered("Converte", i);
      const std::vector<LegacyModel::Column> columns(1 + i * 10, {205, 10, 'D'});
      const LegacyContent model({.header = name, .columns = columns}, static_cast<int>(i % 4));
      tagREG_RELEXPORTACAO settings{};
      name.copy(settings.cCabDescricao, sizeof settings.cCabDescricao - 1);
      std::string result = kestor::ResultCode(converting_->GravaDadosExportacaoDoRelatorio(Text(Wide(name)), settings));
      if (result == kDone) result = Write(*converting_, Wide(name), model.bytes);
      ExpectDone(result, name);
      if (result == kDone) own_->converted.at(i) = true;
    }
    const std::string component = Chance(4) ? "01" : "02";
    if (Chance(2)) return static_cast<void>(OpenStore(component));
    ComPtr<IZNPL_RelConverte> renumbering;
    kestor::CRelConverte::Cria<kestor::CRelConverte>(IID_IZNPL_RelConverte, renumbering.OutVoid(), counter_,
                                                     MakeMigratingStore);
    REL_CODIGO_CAMPOS_ALTERADOS pair = {205, 310};
    if (Chance(2)) std::swap(pair.nCodigoAntigo, pair.nNovoCodigo);
    EXPECT_TRUE(SUCCEEDED(renumbering->AlteraCodigoCampos(Text(u"CT"), Text(Wide(component)), 1, &pair)));
  }

  // Once all stations have stopped, every acknowledged model is a document with its content unchanged except for the
  // codes.
  void CheckConverted() {
    for (unsigned i = 0; i < kMostConverted; ++i) {
      if (!own_->converted.at(i)) continue;
      const std::string name = Numbered("Converte", i);
      std::string content;
      EXPECT_TRUE(WaitForOthers([&] {
        content = support::ReadModel(*OpenStore("02"), Wide(name));
        return !content.starts_with("0x") && !std::filesystem::exists(Reports() / ("CT02" + name + ".REL"));
      })) << name
          << ": " << content.substr(0, 10) << ", or not migrated";
      kestor::CDocRelatorio document;
      EXPECT_TRUE(Load(document, content)) << name;
      for (const auto& text :
           {document.nome, document.impressao.cabecalho.texto, document.exportacao.cabecalho.descricao})
        EXPECT_EQ(text, name);
      EXPECT_EQ(document.camposEscolhidos.campos.size(), 1 + i * 10) << name;
      for (const auto& column : document.camposEscolhidos.campos)
        EXPECT_TRUE(column.codigo == 205 || column.codigo == 310) << column.codigo << " in " << name;
    }
  }

  static constexpr const char* kReports = "Dados.v2";

  const std::vector<std::filesystem::path> mounts_ = Mounts();
  const SharedMemory<Books> books_;
  std::array<std::optional<support::Child>, kStations> stations_;
  std::vector<std::unique_ptr<support::TempHome>> homes_;
  unsigned number_ = 0;
  Account* own_ = nullptr;
  std::mt19937 random_;
  ComPtr<IZNPL_Relatorio2> common_;  // component 01, which all stations share
  ComPtr<IZNPL_Relatorio2> keys_;    // the station's own key
  Rel rel_;                          // component 01
  Rel converting_;                   // component 02, whose models are converted
};

TEST_F(ContentionTest, NothingAcknowledgedIsLost) {
  std::chrono::milliseconds duration = std::chrono::seconds(8);
  const char* minutes = getenv("KESTOR_CONTENTION_MINUTES");
  if (support::LongTests()) duration = std::chrono::minutes(minutes != nullptr ? std::stol(minutes) : 5);
  std::minstd_rand random(11);
  unsigned kills = 0;
  for (unsigned i = 0; i < kStations; ++i)
    Start(i, random());
  const auto now = std::chrono::steady_clock::now;
  const auto begun = now();
  bool mishap = mounts_.empty();
  for (const auto end = begun + duration; now() < end; ++kills) {
    usleep(static_cast<useconds_t>(random() % 300'000));
    const auto number = static_cast<unsigned>(random() % kStations);
    EndStation(number);
    Start(number, random());
    if (!mishap && now() > begun + duration / 2) {
      mishap = true;
      LoseMachine(&random);
      Machines("kill-brick");
    }
  }
  books_->closed = true;
  for (auto& station : stations_)
    EXPECT_EQ(station->Wait(), 0);
  EXPECT_EQ(books_->failures, 0U);

  std::size_t deleted = 0;
  for (unsigned i = 0; i < kStations; ++i) {
    Become(i);
    CheckLists();
    CheckConverted();
    deleted += own_->deleted;
  }
  EXPECT_GT(deleted, 0U) << "no deletion was remembered";
  EXPECT_EQ(std::filesystem::file_size(Reports() / "ZNRELDEL.DAT") / 264, 1 + deleted);
  CheckRecords("ZNRELPAD.DAT", 264, 8);
  CheckRecords("ZNRELDEL.DAT", 264, 264);
  CheckRecords("ZNCTLARQ.DAT", 32, 32);
  std::printf("contention: %u calls of %u stations, %u kills\n", books_->calls.load(), kStations, kills);
}

}  // namespace
