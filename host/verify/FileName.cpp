#include "host/verify/FileName.h"

#include "common/netdb_storage/DayFileName.h"

namespace Host::Verify {
namespace {

constexpr std::size_t kUsualDigits = 10;
// The only day of nine digits that the module takes connections of.
constexpr u64 kNineDigitDay = 999993600;

}  // namespace

DayName ReadDayName(const std::string& name) {
  DayName result;
  if (RYL::NetDB::IsDayFileName(name.c_str(), result.day)) {
    const std::string rest = name.substr(kUsualDigits);
    result.kind = rest == ".db"     ? DayName::Kind::kPlain
                  : rest == ".db.f" ? DayName::Kind::kFiltered
                                    : DayName::Kind::kUnusual;
    return result;
  }
  const std::string nineDigits = std::to_string(kNineDigitDay);
  if (name == nineDigits + ".db" || name == nineDigits + ".db.f") {
    return {DayName::Kind::kNineDigits, kNineDigitDay};
  }
  return {};
}

}  // namespace Host::Verify
