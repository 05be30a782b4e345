#include "host/reputation/Answer.h"

#include <nlohmann/json.hpp>

namespace Host::Reputation {
namespace {

constexpr unsigned kOk = 200;
constexpr unsigned kBadRequest = 400;

std::string AnswerOne(const std::string& text, const AddressList& harmless) {
  const auto address = ReadAddress(text);
  const bool isHarmless = address && harmless.Find(*address) != nullptr;
  return R"({"status_code":)" + std::to_string(address ? 0 : kNoAddress) + R"(,"data":{"is_whitelisted":)" +
         (isHarmless ? "true" : "false") + "}}";
}

}  // namespace

HttpAnswer ErrorAnswer(unsigned status, const std::string& text) {
  return {status, nlohmann::json{{"error", text}}.dump()};
}

HttpAnswer AnswerBatch(std::string_view body, const AddressList& harmless) {
  const nlohmann::json request = nlohmann::json::parse(body.begin(), body.end(), nullptr, false);
  if (!request.is_array()) {
    return ErrorAnswer(kBadRequest, request.is_discarded() ? "this is no JSON" : "a request is a list");
  }
  if (request.size() > kMaxAddresses) {
    return ErrorAnswer(kBadRequest, "a request may have " + std::to_string(kMaxAddresses) + " addresses");
  }
  HttpAnswer answer{kOk, "["};
  for (const nlohmann::json& entry : request) {
    const auto ip = entry.is_object() ? entry.find("ip") : entry.end();
    if (ip == entry.end() || !ip->is_string()) {
      return ErrorAnswer(kBadRequest, "an entry is an object with a text \"ip\"");
    }
    answer.body += answer.body.size() > 1 ? "," : "";
    answer.body += AnswerOne(ip->get_ref<const std::string&>(), harmless);
  }
  answer.body += "]";
  return answer;
}

}  // namespace Host::Reputation
