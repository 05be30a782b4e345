// EventReply: what the module answers to a query event, for people who look at it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/agent/Policy.h"
#include "host/agent/ReplyReceiver.h"

namespace Host::Commands {

// Either is missing when it did not come.
struct EventReply {
  std::unique_ptr<ReplyReceiver::Reply> event;
  std::optional<std::vector<u8>> binary;
  bool complete = true;              // false: the query passed over day files, which was said
  std::vector<std::string> reasons;  // errors that the module reported meanwhile, as sentences
};

// Loads the module for the data folder, whose lock is taken, and sends it one query; no stored day changes. Says on
// standard error what went wrong, with the module's reasons when the reply has neither part. Nothing when the module
// was not asked.
std::optional<EventReply> AskModule(const std::string& dataFolder, const Policy& policy, const std::vector<u8>& event);

// Documents with two spaces an indent and a newline behind; text that is not valid UTF-8 has U+FFFD in its place.
std::optional<std::string> ToJson(const ReplyReceiver::Reply& reply, std::string& error);
// Of a binary reply: version, error, message_count and messages, the rows as proto3 JSON with the names of the fields.
// Nothing, with a sentence in `error`, for bytes that are none.
std::optional<std::string> ToJson(const std::vector<u8>& binary, std::string& error);

// The error code of the reply to a table query; nothing where it has none.
std::optional<u32> ErrorOf(const EventReply& reply);
// The exit code for it; says on standard error what it means, with the reasons unless it is a limit.
int ExitCodeOf(u32 error, const EventReply& reply);

}  // namespace Host::Commands
