#include "host/verify/FileName.h"

#include "host/text/Numbers.h"

namespace Host::Verify {
namespace {

constexpr std::size_t kUsualDigits = 10;
// The only day of nine digits that the module takes connections of.
constexpr char kNineDigitDay[] = "999993600";

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

DayName ReadDayName(const std::string& name) {
  DayName result;
  const std::size_t found = name.find_first_not_of("0123456789");
  const std::size_t digits = found == std::string::npos ? name.size() : found;
  const std::string number = name.substr(0, digits);
  const std::string rest = name.substr(digits);
  const std::string lowered = Text::Lowered(rest);
  const bool nine = number == kNineDigitDay && (rest == ".db" || rest == ".db.f");
  const bool ten = digits == kUsualDigits && (EndsWith(lowered, ".db") || EndsWith(lowered, ".f"));
  if (!nine && !ten) {
    return result;
  }
  result.day = std::stoull(number);
  if (nine) {
    result.kind = DayName::Kind::kNineDigits;
  } else if (rest == ".db") {
    result.kind = DayName::Kind::kPlain;
  } else {
    result.kind = rest == ".db.f" ? DayName::Kind::kFiltered : DayName::Kind::kUnusual;
  }
  return result;
}

}  // namespace Host::Verify
