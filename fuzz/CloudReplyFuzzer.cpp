// Any bytes as the cloud's reply: nothing but what a whole good list says becomes harmless, and what is no such list
// teaches nothing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "Velmar/Cloud.h"
#include "common/cloud/CloudStatus.h"
#include "platform/sim/Sim.h"

namespace {

using RYL::NetDB::CloudStatus;
using RYL::NetDB::IPv4;
using Velmar::u32;
namespace Sim = Velmar::Sim;

void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

// A reply as another reader has it: every member, in order, names that come twice included.
struct Value {
  std::string name;
  std::vector<Value> members;
  bool isObject = false;
  bool isTrue = false;
  bool isZero = false;

  [[nodiscard]] const Value* Find(const std::string& wanted) const {
    for (const Value& member : members) {
      if (isObject && member.name == wanted) {
        return &member;
      }
    }
    return nullptr;
  }
  [[nodiscard]] bool IsHarmless() const {
    const Value* status = Find("status_code");
    const Value* data = Find("data");
    const Value* verdict = data == nullptr ? nullptr : data->Find("is_whitelisted");
    return (status == nullptr || status->isZero) && verdict != nullptr && verdict->isTrue;
  }
};

class Reader : public nlohmann::json_sax<nlohmann::json> {
 public:
  Value root;

  bool null() override { return Add({}); }
  bool boolean(bool value) override { return Add({.name = {}, .members = {}, .isTrue = value}); }
  bool number_integer(number_integer_t value) override {
    return Add({.name = {}, .members = {}, .isZero = value == 0});
  }
  bool number_unsigned(number_unsigned_t value) override {
    return Add({.name = {}, .members = {}, .isZero = value == 0});
  }
  bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { return Add({}); }
  bool string(string_t& /*value*/) override { return Add({}); }
  bool binary(binary_t& /*value*/) override { return false; }
  bool start_object(std::size_t /*size*/) override { return Open(true); }
  bool start_array(std::size_t /*size*/) override { return Open(false); }
  bool key(string_t& value) override {
    key_ = value;
    return true;
  }
  bool end_object() override { return Close(); }
  bool end_array() override { return Close(); }
  bool parse_error(std::size_t /*at*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    return false;
  }

 private:
  bool Add(Value value) {
    Value& holder = open_.empty() ? root : *open_.back();
    value.name = key_;
    holder.members.push_back(std::move(value));
    return true;
  }
  bool Open(bool isObject) {
    Add({.name = {}, .members = {}, .isObject = isObject});
    Value& holder = open_.empty() ? root : *open_.back();
    // Stays in place: its holder gets no further member before it is closed.
    open_.push_back(&holder.members.back());
    return true;
  }
  bool Close() {
    open_.pop_back();
    return true;
  }

  std::string key_;
  std::vector<Value*> open_;
};

std::vector<bool> WhatItSays(const std::string& reply) {
  Reader reader;
  std::vector<bool> verdicts;
  if (nlohmann::json::sax_parse(reply, &reader) && reader.root.members.size() == 1) {
    for (const Value& answer : reader.root.members[0].members) {
      verdicts.push_back(answer.IsHarmless());
    }
  }
  return verdicts;
}

// 203.0.113.0 and those behind it.
IPv4 Address(u32 number) {
  return IPv4::FromRaw(203U | 113U << 16 | number << 24);
}

class Addresses final : public CloudStatus<IPv4>::IPIterator {
 public:
  explicit Addresses(u32 count) : count_(count) {}
  bool HasNext() override { return next_ < count_; }
  const IPv4* Next() override {
    address_ = Address(next_++);
    return &address_;
  }

 private:
  u32 count_;
  u32 next_ = 0;
  IPv4 address_;
};

void Ask(const std::string& reply, u32 count, const std::vector<bool>& wanted) {
  Sim::Reset();
  Sim::SetEpochTime(1700042400000);
  Require(Velmar::Cloud::Configure({.endpoint = "https://cloud.example"}));
  Sim::SetCloudService([&reply](const Sim::CloudCall&) { return Sim::CloudReply{.texts = {reply}}; });
  CloudStatus<IPv4> status;
  Require(status.Open(nullptr, false));
  Addresses addresses(count);
  const bool resolved = status.Resolve(&addresses);
  Require(!resolved || wanted.size() == count);
  Require(status.GetItemCount() == (resolved ? count : 0));
  for (u32 i = 0; i < count; ++i) {
    const IPv4 address = Address(i);
    Require(status.IsWhitelisted(&address) == (resolved && wanted[i]));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr u32 kSome = 3;
  // A reply is a terminated text.
  const std::string reply = std::string(reinterpret_cast<const char*>(data), size).c_str();
  const std::vector<bool> wanted = WhatItSays(reply);
  Ask(reply, kSome, wanted);
  if (!wanted.empty() && wanted.size() <= CloudStatus<IPv4>::kBatchSize) {
    Ask(reply, static_cast<u32>(wanted.size()), wanted);
  }
  return 0;
}
