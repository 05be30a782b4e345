// PurgePlan: what `netdb purge` is asked for, and which day files that takes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/netdb_storage/Footprint.h"
#include "host/Types.h"

namespace Host::Commands {

struct PurgeRequest {
  std::optional<u64> before;  // first second of the first day that stays
  std::optional<u64> toSize;  // bytes

  // The limits whose enforcement at that time is what is asked for.
  [[nodiscard]] RYL::NetDB::FootprintLimits LimitsAt(u64 epochMs) const;
};

// Bytes of a whole number with nothing, K, M or G behind it, of either case; they stand for 1024, 1024^2 and 1024^3.
std::optional<u64> ReadSize(const std::string& text);

// `before` is a date or an age such as "90d", whose day stays; `toSize` as above; one may be empty.
// Nothing, with a sentence in `error`, for anything else and for a date beyond tomorrow.
std::optional<PurgeRequest> ReadPurgeRequest(const std::string& before, const std::string& toSize, u64 nowSeconds,
                                             std::string& error);

struct StoredFile {
  std::string name;
  u64 day = 0;
  u64 size = 0;
};

// The day files in the order of the folder. False when it cannot be listed.
bool ListStoredFiles(const std::string& folder, std::vector<StoredFile>& files);

struct PurgePlan {
  std::vector<StoredFile> files;    // that go, in this order
  std::vector<std::string> strays;  // that should, but have not the name of their day's file: the purge ends there
};

// What DBManager::EnsureDiskFootprintConstraints does to a folder of these files.
PurgePlan PlanPurge(std::vector<StoredFile> files, const RYL::NetDB::FootprintLimits& limits);

}  // namespace Host::Commands
