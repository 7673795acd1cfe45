// A station of an installation that many stations share, and the books about what all of them have done.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "contract/interfaces.h"
#include "platform/files/files.h"

namespace contention {

inline constexpr unsigned kStations = 4;
inline constexpr unsigned kNames = 4;  // of each kind that a station has to itself; one default report
inline constexpr unsigned kMostDeleted = 4000;
inline constexpr unsigned kMostConverted = 12;
inline constexpr unsigned kNothing = 0;  // the content that is not there
inline constexpr unsigned kNoChange = ~0U;

// What a station keeps under a name. Settings and filter belong to models of the first generation; the default report
// is the station's own key's.
enum class Kind { model, relModel, settings, filter, standard };
inline constexpr std::array kKinds = {Kind::model, Kind::relModel, Kind::settings, Kind::filter, Kind::standard};

// The sequence number of the content that was last acknowledged, and of the one that a call is about to put there. A
// station that is killed in between leaves either.
struct Entry {
  std::atomic<unsigned> kept{kNothing};
  std::atomic<unsigned> pending{kNoChange};
};

enum class Deletion : unsigned char { none, begun, acknowledged };

struct Account {
  std::array<std::array<Entry, kNames>, kKinds.size()> entries;
  std::atomic<unsigned> sequence{kNothing};                   // the last number that was given out
  std::array<std::atomic<Deletion>, kMostDeleted> deleted{};  // demonstration models
  std::array<std::atomic<bool>, kMostConverted> converted{};  // models acknowledged that the migration converts
};

// In memory that the stations share; outlives those that are killed.
struct Books {
  std::array<Account, kStations> accounts;
  std::atomic<unsigned> calls{0};
  std::atomic<unsigned> changes{0};  // acknowledged, of entries and common names
  std::atomic<unsigned> faults{0};
  std::atomic<bool> closed{false};
};

// One process's access to the shared folders, for the names of station `number`. What is not as it must be is printed
// and counted in the books.
class Station {
 public:
  Station(Books& books, unsigned number, std::filesystem::path reports);

  // What a killed predecessor left: each name holds the old content or the new one. To be called before anything else.
  void TakeOver();
  // Does something, at random; again and again until the books are closed.
  void Work(std::uint32_t seed);
  // All that was acknowledged is there.
  void CheckAll();
  void CheckConverted();

  std::string Key() const { return "K" + std::to_string(number_); }
  std::string DeletedName(unsigned index) const;

 private:
  using Content = std::optional<std::string>;

  std::string Name(Kind kind, unsigned index) const;
  std::filesystem::path File(Kind kind, const std::string& name) const;
  Content Expected(Kind kind, unsigned index, unsigned sequence) const;
  Entry& EntryOf(Kind kind, unsigned index) const;
  unsigned NextSequence() { return ++Own().sequence; }
  Account& Own() const { return books_.accounts[number_]; }

  HRESULT Put(Kind kind, const std::string& name, const std::string& content);
  HRESULT Remove(Kind kind, const std::string& name);
  HRESULT Get(Kind kind, const std::string& name, Content* content);
  Content Fetch(Kind kind, const std::string& name);

  void Change(Kind kind, unsigned index);
  void Check(Kind kind, unsigned index);
  void Settle(Kind kind, unsigned index);
  void UseShared();
  void UseSharedDefault();
  void DeleteDemonstration();
  void CheckDeleted();
  void CheckLists();
  void Convert();
  void Fault(const std::string& what) const;
  bool Chance(unsigned one) { return random_() % one == 0; }

  Books& books_;
  const unsigned number_;
  const std::filesystem::path reports_;
  std::mt19937 random_;
  Counter counter_;
  ComPtr<IZNPL_Relatorio2> store_;  // component 01: everybody's
  ComPtr<IZNPL_Relatorio2> own_;    // the station's own key
  ComPtr<IZNPL_Rel> rel_;           // component 01
  ComPtr<IZNPL_Rel> converting_;    // component 02, whose models are converted
};

}  // namespace contention
