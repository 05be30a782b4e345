#include "host/commands/HistoryFilter.h"

#include <algorithm>
#include <iterator>

#include "common/netdb_storage/RecordText.h"
#include "host/reputation/Network.h"
#include "host/text/Numbers.h"

namespace Host::Commands {
namespace {

constexpr u64 kMaxPort = 65535;
constexpr std::size_t kMd5Digits = 32;
constexpr std::size_t kQidDigits = 64;

// Other names of protocols, as logs and events have them.
struct Alias {
  const char* name;
  const char* protocol;
};
constexpr Alias kAliases[] = {{"https", "http"}, {"http(s)", "http"}, {"ftps", "ftp"}, {"dce_rpc", "rpc"}};

// Every name that rows show.
std::vector<std::string> ProtocolNames() {
  constexpr u32 kAllBits = 0xFFF;
  Velmar::Utils::String list;
  RYL::NetDB::ProtocolsToString(kAllBits, list);
  const std::string text = list.text;
  const auto parts = Text::SplitList(text, ',');
  return {parts.begin(), parts.end()};
}

std::string JoinedNames(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    text += (text.empty() ? "" : ", ") + name;
  }
  return text;
}

bool AddPort(const std::string& text, HistoryFilter& filter, std::string& error) {
  const auto port = Text::ReadCount(text, kMaxPort);
  if (!port) {
    error = "\"" + text + "\" is no port; give a number from 0 to 65535";
    return false;
  }
  filter.ports.push_back(static_cast<i64>(*port));
  return true;
}

bool AddProtocol(const std::string& text, HistoryFilter& filter, std::string& error) {
  std::string wanted = Text::Lowered(text);
  const auto* alias =
      std::find_if(std::begin(kAliases), std::end(kAliases), [&](const Alias& known) { return wanted == known.name; });
  wanted = alias == std::end(kAliases) ? wanted : alias->protocol;
  const std::vector<std::string> names = ProtocolNames();
  const auto found =
      std::find_if(names.begin(), names.end(), [&](const std::string& name) { return Text::Lowered(name) == wanted; });
  if (found == names.end()) {
    error = "\"" + text + "\" is no protocol; the protocols are " + JoinedNames(names);
    return false;
  }
  filter.protocols.push_back(*found);
  return true;
}

bool AddDigest(const std::string& text, std::size_t digits, const char* what, std::vector<std::string>& digests,
               std::string& error) {
  std::vector<u8> bytes(digits / 2);
  if (!Text::ReadHex(text, bytes.data(), bytes.size())) {
    error = "\"" + text + "\" is no " + what + "; give " + std::to_string(digits) + " hex digits";
    return false;
  }
  digests.push_back(Text::Lowered(text));
  return true;
}

bool AddMd5(const std::string& text, HistoryFilter& filter, std::string& error) {
  return AddDigest(text, kMd5Digits, "MD5 digest", filter.md5s, error);
}

bool AddQid(const std::string& text, HistoryFilter& filter, std::string& error) {
  return AddDigest(text, kQidDigits, "process identity", filter.qids, error);
}

using Adder = bool (*)(const std::string& text, HistoryFilter& filter, std::string& error);

bool AddAll(const std::vector<std::string>& texts, Adder add, HistoryFilter& filter, std::string& error) {
  return std::all_of(texts.begin(), texts.end(), [&](const std::string& text) { return add(text, filter, error); });
}

}  // namespace

bool AddIp(const std::string& text, HistoryFilter& filter, std::string& error) {
  constexpr u32 kWholeAddress = 32;
  bool hadHostBits = false;
  const auto network = Reputation::ReadNetwork(text, hadHostBits);
  if (!network) {
    error = "\"" + text + "\" is no address; give an IPv4 address (192.0.2.7) or a block of them (10.0.0.0/8)";
    return false;
  }
  if (network->family != Reputation::Family::kIPv4) {
    error = "\"" + text + "\" is an IPv6 address; the history holds IPv4 connections only";
    return false;
  }
  const std::string block = Reputation::ToText(*network);
  if (network->prefixLength == kWholeAddress) {
    filter.addresses.push_back(block.substr(0, block.find('/')));
  } else {
    filter.blocks.push_back(block);
  }
  return true;
}

bool AddProcess(const std::string& text, HistoryFilter& filter, std::string& error) {
  if (text.empty()) {
    error = "the path of a process is empty";
    return false;
  }
  const bool isPattern = text.find('%') != std::string::npos;
  (isPattern ? filter.pathPatterns : filter.paths).push_back(text);
  return true;
}

std::optional<HistoryFilter> ReadFilter(const FilterTexts& texts, const TimeRange& range, std::string& error) {
  HistoryFilter filter;
  filter.range = range;
  const bool isRead = AddAll(texts.ips, &AddIp, filter, error) && AddAll(texts.processes, &AddProcess, filter, error) &&
                      AddAll(texts.ports, &AddPort, filter, error) &&
                      AddAll(texts.protocols, &AddProtocol, filter, error) &&
                      AddAll(texts.md5s, &AddMd5, filter, error) && AddAll(texts.qids, &AddQid, filter, error);
  return isRead ? std::optional<HistoryFilter>(std::move(filter)) : std::nullopt;
}

}  // namespace Host::Commands
