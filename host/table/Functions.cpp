#include "host/table/Functions.h"

#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "host/reputation/Network.h"
#include "host/text/TimeText.h"

namespace Host::Table {
namespace {

constexpr i64 kMsPerSecond = 1000;
constexpr i64 kEndOfTime = 253'402'300'800'000;  // 10000-01-01

// Nothing for what is no text. A view into the value.
std::optional<std::string_view> TextOf(sqlite3_value* value) {
  if (sqlite3_value_type(value) != SQLITE_TEXT) {
    return std::nullopt;
  }
  const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
  if (text == nullptr) {
    return std::nullopt;
  }
  return std::string_view(text, static_cast<std::size_t>(sqlite3_value_bytes(value)));
}

void GiveError(sqlite3_context* context, const std::string& message) {
  sqlite3_result_error(context, message.c_str(), static_cast<int>(message.size()));
}

bool Holds(const Reputation::Network& network, const Reputation::Address& address) {
  const Reputation::Bits last = network.Last();
  return network.family == address.family && !(address.bits < network.first) && !(last < address.bits);
}

void InCidr(sqlite3_context* context, int /*argc*/, sqlite3_value** argv) {
  if (sqlite3_value_type(argv[1]) == SQLITE_NULL) {
    return sqlite3_result_null(context);
  }
  const auto block = TextOf(argv[1]);
  bool hadHostBits = false;
  const auto network = block ? Reputation::ReadNetwork(*block, hadHostBits) : std::nullopt;
  if (!network) {
    return GiveError(context, "in_cidr: the second argument is no block of addresses such as 10.0.0.0/8");
  }
  const auto text = TextOf(argv[0]);
  const auto address = text ? Reputation::ReadAddress(*text) : std::nullopt;
  if (!address) {
    return sqlite3_result_null(context);
  }
  sqlite3_result_int(context, Holds(*network, *address) ? 1 : 0);
}

void IpNumber(sqlite3_context* context, int /*argc*/, sqlite3_value** argv) {
  const auto text = TextOf(argv[0]);
  const auto address = text ? Reputation::ReadAddress(*text) : std::nullopt;
  if (!address || address->family != Reputation::Family::kIPv4) {
    return sqlite3_result_null(context);
  }
  sqlite3_result_int64(context, static_cast<sqlite3_int64>(address->bits.low));
}

// Whole milliseconds of a number or of a text that is one.
std::optional<i64> MillisecondsOf(sqlite3_value* value) {
  const int type = sqlite3_value_numeric_type(value);
  if (type == SQLITE_INTEGER) {
    const i64 whole = sqlite3_value_int64(value);
    return whole >= 0 && whole < kEndOfTime ? std::optional<i64>(whole) : std::nullopt;
  }
  if (type != SQLITE_FLOAT) {
    return std::nullopt;
  }
  const double real = sqlite3_value_double(value);
  return real >= 0 && real < static_cast<double>(kEndOfTime) ? std::optional<i64>(static_cast<i64>(real))
                                                             : std::nullopt;
}

void Ts(sqlite3_context* context, int /*argc*/, sqlite3_value** argv) {
  const auto milliseconds = MillisecondsOf(argv[0]);
  if (!milliseconds) {
    return sqlite3_result_null(context);
  }
  std::string text = Text::FormatUtc(static_cast<u64>(*milliseconds / kMsPerSecond));
  text[text.find('T')] = ' ';
  text.pop_back();  // "Z"
  sqlite3_result_text(context, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

// No exception goes through SQLite's frames.
template <void (*Body)(sqlite3_context*, int, sqlite3_value**)>
void Guarded(sqlite3_context* context, int argc, sqlite3_value** argv) {
  try {
    Body(context, argc, argv);
  } catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(context);
  }
}

}  // namespace

int RegisterFunctions(sqlite3* db) {
  struct Function {
    const char* name;
    int arguments;
    void (*call)(sqlite3_context*, int, sqlite3_value**);
  };
  constexpr Function kFunctions[] = {
      {"in_cidr", 2, Guarded<InCidr>}, {"ip_number", 1, Guarded<IpNumber>}, {"ts", 1, Guarded<Ts>}};
  constexpr int kFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
  int code = SQLITE_OK;
  for (const Function& function : kFunctions) {
    if (code == SQLITE_OK) {
      code = sqlite3_create_function_v2(db, function.name, function.arguments, kFlags, nullptr, function.call, nullptr,
                                        nullptr, nullptr);
    }
  }
  return code;
}

}  // namespace Host::Table
