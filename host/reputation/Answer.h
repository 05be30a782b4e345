// The service's answer to the body of a request.
#pragma once

#include <string>
#include <string_view>

#include "host/reputation/AddressList.h"

namespace Host::Reputation {

inline constexpr std::size_t kMaxAddresses = 1000;
// Of an answer's "status_code" for a text that is no address.
inline constexpr int kNoAddress = 400;

struct HttpAnswer {
  unsigned status = 0;
  std::string body;  // JSON
};

// {"error": TEXT}
HttpAnswer ErrorAnswer(unsigned status, const std::string& text);
// `body` is an array of objects with a text "ip"; the answer has an object for each, in order, and other members such
// as "projection" change nothing. 400 for anything else and for more than kMaxAddresses. Thread-safe.
HttpAnswer AnswerBatch(std::string_view body, const AddressList& harmless);

}  // namespace Host::Reputation
