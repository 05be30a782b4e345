// Ten years of a module's life: what its folder holds, hour by hour, and what is left of it to read.
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "Velmar/OS/Time.h"
#include "host/verify/FileVerifier.h"
#include "tests/libryl_netdb/ModuleFixture.h"
#include "tests/years/FolderWatch.h"
#include "tests/years/RowModel.h"

namespace RYL::Module {
namespace {

using Comm::Interfaces::INetDBQuery;
using Velmar::Sim::AdvanceTime;
using Velmar::Sim::WaitUntilWaiting;

constexpr char kSeedVariable[] = "RYL_YEARS_SEED";
constexpr u32 kDefaultSeed = 20231114;
constexpr u32 kDays = 3653;
constexpr u32 kYear = 365;
constexpr u64 kMinuteMs = 60000;
constexpr u64 kHourMs = 60 * kMinuteMs;
constexpr u64 kDayMs = 24 * kHourMs;
constexpr u64 kSecondsPerDay = 86400;
constexpr u64 kNoAgeLimit = 100000;
constexpr u32 kAddresses = 600;
constexpr u32 kPrograms = 40;
// A turn that comes later than this after the last one dumps.
constexpr u64 kShortestGapMs = kMinuteMs + 1;

u32 Seed() {
  const char* given = std::getenv(kSeedVariable);
  return given != nullptr ? static_cast<u32>(std::strtoul(given, nullptr, 10)) : kDefaultSeed;
}

// How the machine is used for some days: turns come every gap to twice the gap, and connections evenly.
struct Season {
  u32 weight;
  u32 eventsPerDay;  // half of it to one and a half
  u64 gapMs;
  u64 lengthMs;  // half of it to one and a half
};
constexpr Season kSeasons[] = {
    {2, 0, 12 * kHourMs, 7 * kDayMs},       // switched on, and nothing goes on
    {2, 0, 3 * kDayMs, 6 * kDayMs},         // asleep
    {8, 5, 10 * kHourMs, 10 * kDayMs},      // quiet
    {7, 60, 4 * kHourMs, 10 * kDayMs},      // usual
    {3, 300, 45 * kMinuteMs, 2 * kDayMs},   // busy
    {1, 1500, 45 * kMinuteMs, kDayMs},      // a burst
    {1, 800, kShortestGapMs, 3 * kHourMs},  // looked at by the minute
};

// A policy that comes into force on a day of the ten years.
struct Policy {
  u32 day;
  u64 maxBytes;
  u64 maxDays;
  u64 verdictBytes;  // length of the verdicts' file, 0 for none
};

class TenYearsTest : public ModuleTest {
 protected:
  TenYearsTest() {
    log.Clear();
    for (u32 program = 0; program < kPrograms; ++program) {
      host.lookup.AddProcess(program + 1, 1000 + program, "/opt/" + RandomText(200));
    }
    std::cout << "seed " << seed << "; another one: " << kSeedVariable << "=NUMBER, also before ctest\n";
  }
  ~TenYearsTest() override {
    // The watch goes before the fixture ends the module.
    module.reset();
  }

  void Live(const std::vector<Policy>& policies) {
    nextPolicy = 0;
    Obey(policies[nextPolicy++]);
    InitializeAndStart();
    ASSERT_TRUE(WaitUntilWaiting(1));
    u32 nextYear = kYear;
    while (!HasFailure() && Today() < kDays) {
      if (nextPolicy < policies.size() && policies[nextPolicy].day <= Today()) {
        Obey(policies[nextPolicy++]);
        module->ApplySettings(&policy);
        PutVerdicts();
      }
      LiveOn();
      if (Today() >= nextYear) {
        nextYear += kYear;
        CheckContents();
      }
    }
    Turn(kShortestGapMs);
    CheckContents();
    ASSERT_TRUE(module->Stop());
    Report();
  }

  const FolderWatch::Totals& Totals() const { return watch.GetTotals(); }

 private:
  static u64 Now() { return Velmar::OS::Time::GetEpochTime(nullptr); }
  static u32 Today() { return static_cast<u32>((Now() / 1000 - kDay) / kSecondsPerDay); }
  u64 Below(u64 bound) { return bound == 0 ? 0 : random() % bound; }
  // Does not pack well, so that the files are not too many for a test to list at each check.
  std::string RandomText(u32 length) {
    std::string text;
    while (text.size() < length) {
      text += static_cast<char>('0' + Below(75));
    }
    return text;
  }
  u64 Around(u64 middle) { return middle / 2 + Below(middle + 1); }

  void Obey(const Policy& next) {
    policy.values = {{PolicyKey::kMaxDbSize, next.maxBytes},
                     {PolicyKey::kMaxDbDays, next.maxDays},
                     {PolicyKey::kCloudQueryEnabled, 0}};
    watch.SetLimits({next.maxBytes, next.maxDays});
    watch.SetVerdictBytes(next.verdictBytes);
    verdictBytes = next.verdictBytes;
  }

  // One gap without connections, in which the worker has a turn, and then the connections of that time.
  void LiveOn() {
    if (Below(300) == 0) {
      Restart();
    }
    if (!clockWasSet && Today() == kDays / 2) {
      Velmar::Sim::SetEpochTime(Now() - 30 * kHourMs);
      clockWasSet = true;
    }
    if (Now() >= seasonEndMs) {
      DrawSeason();
    }
    const u64 gapMs = season.gapMs + Below(season.gapMs);
    Turn(gapMs);
    Connect(gapMs);
  }

  void DrawSeason() {
    u64 total = 0;
    for (const Season& one : kSeasons) {
      total += one.weight;
    }
    u64 drawn = Below(total);
    const Season* chosen = kSeasons;
    for (; drawn >= chosen->weight; ++chosen) {
      drawn -= chosen->weight;
    }
    season = *chosen;
    season.eventsPerDay = static_cast<u32>(Around(season.eventsPerDay));
    seasonEndMs = Now() + Around(season.lengthMs);
  }

  // A turn by time-out: it dumps, and checks when an hour has gone by.
  void Turn(u64 afterMs) {
    AdvanceTime(afterMs);
    ASSERT_TRUE(WaitUntilWaiting(1));
    ++turns;
    rows.Dump();
    for (const u64 day : watch.TakeDeleted()) {
      rows.Delete(day);
    }
    watch.ExpectCheckedInTime();
  }

  void Connect(u64 gapMs) {
    const u64 now = Now();
    const u64 perDay = season.eventsPerDay;
    const u64 count = (perDay * gapMs + Below(kDayMs)) / kDayMs / RYL_EVENTS_DIVISOR;
    if (count > 0 && Below(12) == 0) {
      ConnectAt(now - Below(40 * kDayMs));
    }
    for (u64 i = 0; i < count; ++i) {
      ConnectAt(now - gapMs + gapMs * i / count);
    }
    ASSERT_TRUE(WaitUntilWaiting(1));
  }

  void ConnectAt(u64 timeMs) {
    // The smaller the number, the more often the address.
    const u32 host16 = static_cast<u32>(Below(Below(kAddresses) + 1));
    const u32 address = 0xC6120000U | host16;
    const bool isTraffic = Below(4) == 0;
    const bool isOutbound = Below(5) != 0;
    const RowModel::Counts counts =
        isTraffic
            ? RowModel::Counts{.bytesIn = Below(1000000), .bytesOut = Below(50000)}
            : RowModel::Counts{.connections = 1, .inbound = isOutbound ? 0U : 1U, .outbound = isOutbound ? 1U : 0U};
    EventBuilder event(isTraffic ? Events::kTraffic : Events::kNewConnection);
    event.Address("198.18." + std::to_string(host16 >> 8) + "." + std::to_string(host16 & 0xFF))
        .Time(timeMs)
        .Port(host16 % 3 == 0 ? 80 : 443)
        .Protocol("https")
        .Direction(isOutbound ? 1 : 0)
        .Puid(1 + Below(kPrograms));
    if (isTraffic) {
      event.Traffic(static_cast<u32>(counts.bytesIn), static_cast<u32>(counts.bytesOut));
    }
    ASSERT_TRUE(Handle(event));
    ++connections;
    rows.Add(timeMs / 1000 / kSecondsPerDay * kSecondsPerDay, address, counts);
  }

  void Restart() {
    ASSERT_TRUE(module->Stop());
    module.reset();
    Uninit();
    rows.Close();
    Velmar::Sim::RemoveFile(kVerdictFile);
    watch.BeginRun();
    module.reset(Init(nullptr));
    InitializeAndStart();
    ASSERT_TRUE(WaitUntilWaiting(1));
    PutVerdicts();
    ++restarts;
  }

  // Stands in for the verdicts' file of a module that runs, of which the check wants to know the length alone.
  void PutVerdicts() {
    if (verdictBytes != 0) {
      Velmar::Sim::PutFile(kVerdictFile, std::string(verdictBytes, 'v'));
    }
  }

  // Behind a turn, so that all rows are in files.
  void CheckContents() {
    Turn(kShortestGapMs);
    for (const auto& [day, size] : watch.GetFiles()) {
      VerifyFile(day, size);
    }
    RowModel::Days found;
    auto& query = *static_cast<INetDBQuery*>(module->QueryInterface(Comm::Interfaces::kNetDBQueryInterface));
    ASSERT_TRUE(query.Iterate(&TakeRow, &found, 0, ~u64{0}));
    EXPECT_TRUE(found == rows.OnDisk()) << "on day " << Today()
                                        << " the rows are not those that came in: " << found.size()
                                        << " days, expected " << rows.OnDisk().size();
  }

  void VerifyFile(u64 day, u64 size) {
    const std::string name = std::to_string(day) + ".db";
    std::string bytes;
    ASSERT_TRUE(Velmar::Sim::GetFile("/data/netdb/" + name, bytes)) << name;
    EXPECT_EQ(bytes.size(), size);
    Host::Inspect::MemoryBytes source(reinterpret_cast<const u8*>(bytes.data()), bytes.size());
    const Host::Verify::VerifyReport report = Host::Verify::VerifyDayFile(source, name);
    EXPECT_EQ(report.day, day);
    for (const Host::Inspect::Problem& problem : report.problems) {
      ADD_FAILURE() << name << " at " << problem.position << ": " << problem.text;
    }
    ++verified;
  }

  static bool TakeRow(const INetDBQuery::Record& row, void* context) {
    const u32 address =
        u32{row.address[0]} << 24 | u32{row.address[1]} << 16 | u32{row.address[2]} << 8 | row.address[3];
    RowModel::Day& day = (*static_cast<RowModel::Days*>(context))[row.first_seen / kSecondsPerDay * kSecondsPerDay];
    day[address] += {.connections = row.conns_total,
                     .inbound = row.conns_in,
                     .outbound = row.conns_out,
                     .bytesIn = row.bytes_in,
                     .bytesOut = row.bytes_out};
    return true;
  }

  void Report() const {
    const FolderWatch::Totals& totals = watch.GetTotals();
    std::cout << "seed " << seed << ": " << Today() << " days, " << turns << " turns, " << connections
              << " connections, " << totals.dumps << " dumps, " << totals.checks << " checks, " << totals.deleted
              << " files deleted, " << verified << " verified, " << restarts << " restarts, at most "
              << totals.largestFolder << " bytes, of which a check interval added " << totals.largestAddition
              << " at most\n";
  }

  static constexpr char kVerdictFile[] = "/data/netdb/cache.4.db";

  const u32 seed = Seed();
  std::mt19937_64 random{seed};
  FolderWatch watch{"/data/netdb"};
  RowModel rows;
  std::size_t nextPolicy = 0;
  Season season = {};
  u64 seasonEndMs = 0;
  u64 verdictBytes = 0;
  bool clockWasSet = false;
  u64 turns = 0;
  u64 connections = 0;
  u64 restarts = 0;
  u64 verified = 0;
};

TEST_F(TenYearsTest, FolderStaysWithinItsSize) {
  Live({{0, 0x40000, kNoAgeLimit, 0}});
  EXPECT_GT(Totals().deleted, 100U);
}

TEST_F(TenYearsTest, DaysGoWhenTheyAreTooOld) {
  Live({{0, 0x8000000, 45, 0}, {1500, 0x8000000, 20, 0}, {2500, 0x8000000, 60, 0}});
  EXPECT_GT(Totals().deleted, 1000U);
}

// Size, then age, then a size of which the verdicts take more than the days.
TEST_F(TenYearsTest, EachNewPolicyHolds) {
  Live({{0, 0x60000, kNoAgeLimit, 0},
        {1200, 0x40000, kNoAgeLimit, 0},
        {1800, 0x60000, 30, 0},
        {2400, 0x880000, kNoAgeLimit, 0x840000},
        {3000, 0x880000, kNoAgeLimit, 0x860000},
        {3400, 0x880000, 3653, 0x880000}});
  EXPECT_GT(Totals().deleted, 100U);
}

}  // namespace
}  // namespace RYL::Module
