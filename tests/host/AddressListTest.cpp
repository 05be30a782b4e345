#include "host/reputation/AddressList.h"

#include <gtest/gtest.h>

#include <random>
#include <utility>

#include "host/reputation/ListFiles.h"
#include "host/reputation/ListText.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using namespace Host::Reputation;

Network NetworkOf(const std::string& text) {
  bool hadHostBits = false;
  const auto network = ReadNetwork(text, hadHostBits);
  EXPECT_TRUE(network) << text;
  EXPECT_FALSE(hadHostBits) << text;
  return network.value_or(Network{});
}

AddressList ListOf(const std::vector<std::string>& texts) {
  std::vector<Network> networks;
  for (const std::string& text : texts) {
    networks.push_back(NetworkOf(text));
  }
  return AddressList(std::move(networks));
}

// The text of the network that is found, "" for none.
std::string Found(const AddressList& list, const std::string& address) {
  const auto read = ReadAddress(address);
  EXPECT_TRUE(read) << address;
  const Network* network = read ? list.Find(*read) : nullptr;
  return network == nullptr ? "" : ToText(*network);
}

bool IsNetwork(const std::string& text) {
  bool hadHostBits = false;
  return ReadNetwork(text, hadHostBits).has_value();
}

ListContent Read(const std::string& text, bool expected = true) {
  ListContent content;
  EXPECT_EQ(ReadList(text, content), expected) << text;
  return content;
}

std::vector<std::string> Texts(const ListContent& content) {
  std::vector<std::string> texts;
  for (const Network& network : content.networks) {
    texts.push_back(ToText(network));
  }
  return texts;
}

std::vector<std::string> Faults(const ListContent& content) {
  std::vector<std::string> faults;
  for (const ListFault& fault : content.faults) {
    faults.push_back(std::to_string(fault.line) + ": " + fault.sentence);
  }
  return faults;
}

using Strings = std::vector<std::string>;

TEST(NetworkText, EachFormIsRead) {
  EXPECT_EQ(ToText(NetworkOf("192.0.2.7")), "192.0.2.7/32");
  EXPECT_EQ(ToText(NetworkOf("192.0.2.0/24")), "192.0.2.0/24");
  EXPECT_EQ(ToText(NetworkOf("0.0.0.0/0")), "0.0.0.0/0");
  EXPECT_EQ(ToText(NetworkOf("2001:DB8::1")), "2001:db8::1/128");
  EXPECT_EQ(ToText(NetworkOf("2001:db8::/32")), "2001:db8::/32");
  EXPECT_EQ(ToText(NetworkOf("::/0")), "::/0");
}

TEST(NetworkText, AnythingElseIsNone) {
  for (const char* text : {"", "/", "/8", "10.0.0.0/", "10.0.0.0/33", "10.0.0.0/-1", "10.0.0.0/8/8", "10.0.0.0/ 8",
                           "10.0.0", "010.0.0.0/8", "256.0.0.0", "10.0.0.0/+8", "::/129", "fe80::1%eth0", ":::", "x",
                           "10.0.0.0/4294967304", " 10.0.0.1", "1.2.3.4:80"}) {
    EXPECT_FALSE(IsNetwork(text)) << text;
  }
  EXPECT_FALSE(IsNetwork(std::string("10.0.0.1\0", 9)));
  EXPECT_FALSE(IsNetwork(std::string(5000, '1')));
}

TEST(NetworkText, HostBitsAreCutAndTold) {
  const std::pair<const char*, const char*> cases[] = {{"10.1.2.3/8", "10.0.0.0/8"},
                                                       {"255.255.255.255/0", "0.0.0.0/0"},
                                                       {"192.0.2.1/31", "192.0.2.0/31"},
                                                       {"2001:db8::1/64", "2001:db8::/64"},
                                                       {"2001:db8:0:0:8000::/64", "2001:db8::/64"},
                                                       {"2001:db8:0:1::/63", "2001:db8::/63"},
                                                       {"::1/0", "::/0"}};
  for (const auto& [text, cut] : cases) {
    bool hadHostBits = false;
    const auto network = ReadNetwork(text, hadHostBits);
    ASSERT_TRUE(network) << text;
    EXPECT_TRUE(hadHostBits) << text;
    EXPECT_EQ(ToText(*network), cut);
  }
}

TEST(AddressList, FirstAndLastAddressBelongToANetwork) {
  const AddressList list = ListOf({"192.0.2.0/24", "198.51.100.4/30", "203.0.113.9", "2001:db8::/33"});
  EXPECT_EQ(Found(list, "192.0.1.255"), "");
  EXPECT_EQ(Found(list, "192.0.2.0"), "192.0.2.0/24");
  EXPECT_EQ(Found(list, "192.0.2.255"), "192.0.2.0/24");
  EXPECT_EQ(Found(list, "192.0.3.0"), "");
  EXPECT_EQ(Found(list, "198.51.100.3"), "");
  EXPECT_EQ(Found(list, "198.51.100.7"), "198.51.100.4/30");
  EXPECT_EQ(Found(list, "198.51.100.8"), "");
  EXPECT_EQ(Found(list, "203.0.113.8"), "");
  EXPECT_EQ(Found(list, "203.0.113.9"), "203.0.113.9/32");
  EXPECT_EQ(Found(list, "203.0.113.10"), "");
  EXPECT_EQ(Found(list, "2001:db7:ffff:ffff:ffff:ffff:ffff:ffff"), "");
  EXPECT_EQ(Found(list, "2001:db8:7fff:ffff:ffff:ffff:ffff:ffff"), "2001:db8::/33");
  EXPECT_EQ(Found(list, "2001:db8:8000::"), "");
}

TEST(AddressList, LongestPrefixIsFound) {
  const AddressList list =
      ListOf({"10.1.2.0/24", "10.0.0.0/8", "10.1.0.0/16", "10.1.2.0/32", "10.255.255.255", "10.0.0.0/8"});
  EXPECT_EQ(list.Count(), 5U);
  EXPECT_EQ(Found(list, "10.0.0.0"), "10.0.0.0/8");
  EXPECT_EQ(Found(list, "10.1.0.0"), "10.1.0.0/16");
  EXPECT_EQ(Found(list, "10.1.2.0"), "10.1.2.0/32");
  EXPECT_EQ(Found(list, "10.1.2.1"), "10.1.2.0/24");
  EXPECT_EQ(Found(list, "10.1.3.0"), "10.1.0.0/16");
  EXPECT_EQ(Found(list, "10.2.0.0"), "10.0.0.0/8");
  EXPECT_EQ(Found(list, "10.255.255.255"), "10.255.255.255/32");
  EXPECT_EQ(Found(list, "11.0.0.0"), "");
}

TEST(AddressList, EverythingOfAFamilyIsOneNetwork) {
  const AddressList shortOnly = ListOf({"0.0.0.0/0"});
  EXPECT_EQ(Found(shortOnly, "0.0.0.0"), "0.0.0.0/0");
  EXPECT_EQ(Found(shortOnly, "255.255.255.255"), "0.0.0.0/0");
  EXPECT_EQ(Found(shortOnly, "::"), "");
  EXPECT_EQ(Found(shortOnly, "::ffff:192.0.2.1"), "");
  const AddressList longOnly = ListOf({"::/0", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"});
  EXPECT_EQ(Found(longOnly, "::"), "::/0");
  EXPECT_EQ(Found(longOnly, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"), "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128");
  EXPECT_EQ(Found(longOnly, "192.0.2.1"), "");
  EXPECT_EQ(Found(AddressList(), "192.0.2.1"), "");
}

TEST(AddressList, TouchingTheEndsOfAFamilyIsSafe) {
  const AddressList list = ListOf({"255.255.255.254/31", "255.255.255.255", "0.0.0.0"});
  EXPECT_EQ(Found(list, "0.0.0.0"), "0.0.0.0/32");
  EXPECT_EQ(Found(list, "0.0.0.1"), "");
  EXPECT_EQ(Found(list, "255.255.255.253"), "");
  EXPECT_EQ(Found(list, "255.255.255.254"), "255.255.255.254/31");
  EXPECT_EQ(Found(list, "255.255.255.255"), "255.255.255.255/32");
}

// Few different bits, so that networks nest and addresses hit.
Bits SomeBits(std::mt19937_64& random, Family family) {
  const u64 mask = 0xC0C00003000000C3 & random();
  return family == Family::kIPv4 ? Bits{0, mask & 0xFFFFFFFF} : Bits{mask, 0xC0C00003000000C3 & random()};
}

Network SomeNetwork(std::mt19937_64& random) {
  const Family family = random() % 2 == 0 ? Family::kIPv4 : Family::kIPv6;
  const std::string text = ToText({family, SomeBits(random, family), WidthOf(family)});
  bool ignored = false;
  return *ReadNetwork(text.substr(0, text.find('/')) + "/" + std::to_string(random() % (WidthOf(family) + 1)), ignored);
}

const Network* FindByScan(const std::vector<Network>& networks, const Address& address) {
  const Network* best = nullptr;
  for (const Network& network : networks) {
    const bool holds =
        network.family == address.family && !(address.bits < network.first) && !(network.Last() < address.bits);
    if (holds && (best == nullptr || network.prefixLength > best->prefixLength)) {
      best = &network;
    }
  }
  return best;
}

TEST(AddressList, AgreesWithALinearScan) {
  const u64 seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937_64 random(seed);
  for (int round = 0; round < 200; ++round) {
    std::vector<Network> networks;
    for (u64 count = random() % 60; count > 0; --count) {
      networks.push_back(SomeNetwork(random));
    }
    const AddressList list(networks);
    for (int question = 0; question < 200; ++question) {
      Address address{random() % 2 == 0 ? Family::kIPv4 : Family::kIPv6, {}};
      address.bits = SomeBits(random, address.family);
      if (question % 4 == 0 && !networks.empty()) {
        const Network& network = networks[random() % networks.size()];
        address = {network.family, network.Last()};
      }
      const Network* expected = FindByScan(networks, address);
      const Network* found = list.Find(address);
      ASSERT_EQ(found != nullptr, expected != nullptr);
      ASSERT_TRUE(found == nullptr || ToText(*found) == ToText(*expected)) << ToText(*found);
    }
  }
}

TEST(AddressList, HundredThousandNetworksAreFoundAgain) {
  constexpr u32 kCount = 150000;
  std::vector<Network> networks;
  for (u32 i = 0; i < kCount; ++i) {
    networks.push_back({Family::kIPv4, {0, u64{i} << 8}, 25});
    networks.push_back({Family::kIPv6, {u64{i} << 32, 0}, 32});
  }
  const AddressList list(std::move(networks));
  EXPECT_EQ(list.Count(), 2 * kCount);
  for (u32 i = 0; i < kCount; ++i) {
    ASSERT_NE(list.Find({Family::kIPv4, {0, (u64{i} << 8) + 0x7F}}), nullptr);
    ASSERT_EQ(list.Find({Family::kIPv4, {0, (u64{i} << 8) + 0x80}}), nullptr);
    ASSERT_NE(list.Find({Family::kIPv6, {u64{i} << 32, ~u64{0}}}), nullptr);
  }
}

TEST(ListText, LinesHoldNetworksAndComments) {
  const ListContent content = Read("# head\r\n192.0.2.0/24\r\n\n \t203.0.113.9 # one\n2001:db8::/32#\n#10.0.0.0/8");
  EXPECT_EQ(Texts(content), (Strings{"192.0.2.0/24", "203.0.113.9/32", "2001:db8::/32"}));
  EXPECT_EQ(content.faultCount, 0U);
  EXPECT_TRUE(Read("").networks.empty());
}

TEST(ListText, BadLineIsToldWithItsNumberAndSkipped) {
  const ListContent content = Read("192.0.2.0/24\nexample.org\n\n10.0.0.1/8\n1.1.1.1 2.2.2.2\n[x\n8.8.8.8");
  EXPECT_EQ(Texts(content), (Strings{"192.0.2.0/24", "10.0.0.0/8", "8.8.8.8/32"}));
  EXPECT_EQ(Faults(content), (Strings{"2: \"example.org\" is no address and no network; it is skipped",
                                      "4: \"10.0.0.1/8\" has bits behind its prefix; it is taken as 10.0.0.0/8",
                                      "5: \"1.1.1.1 2.2.2.2\" is no address and no network; it is skipped",
                                      "6: \"[x\" is no address and no network; it is skipped"}));
}

TEST(ListText, FaultsAreCountedButNotAllKept) {
  std::string text;
  for (int i = 0; i < 100; ++i) {
    text += "x\n";
  }
  const ListContent content = Read(text);
  EXPECT_EQ(content.faultCount, 100U);
  EXPECT_EQ(content.faults.size(), ListContent::kMaxFaults);
}

TEST(ListText, JsonListIsRead) {
  const ListContent content = Read(
      "\n{\"description\": \"d\",\n \"list\": [\n  \"192.0.2.0/24\",\n  \"x\",\n  5,\n  [\"10.0.0.0/8\"],\n"
      "  {\"list\": [\"10.0.0.0/8\"]},\n  null,\n  \"2001:db8::1\"\n ],\n"
      " \"matching_attributes\": [\"ip-src\"], \"name\": \"n\", \"type\": \"cidr\", \"version\": 3}\n");
  EXPECT_EQ(Texts(content), (Strings{"192.0.2.0/24", "2001:db8::1/128"}));
  EXPECT_EQ(Faults(content), (Strings{"5: \"x\" is no address and no network; it is skipped",
                                      "6: an entry is a text, not a number; it is skipped",
                                      "7: an entry is a text, not a list; it is skipped",
                                      "8: an entry is a text, not an object; it is skipped",
                                      "9: an entry is a text, not null; it is skipped"}));
  EXPECT_EQ(content.leftOut, "");
}

TEST(ListText, JsonListThatSaysNothingOfItsKindCounts) {
  EXPECT_EQ(Texts(Read("{\"list\":[\"192.0.2.1\"]}")), Strings{"192.0.2.1/32"});
  EXPECT_EQ(
      Texts(Read("{\"type\":\"string\",\"matching_attributes\":[\"ip-src\",\"ip-dst\"],\"list\":[\"192.0.2.1\"]}")),
      Strings{"192.0.2.1/32"});
}

TEST(ListText, JsonListOfNamesIsLeftOut) {
  const ListContent content =
      Read("{\"list\":[\".example.org\",\"192.0.2.1\"],\"matching_attributes\":[\"domain\"],\"type\":\"string\"}");
  EXPECT_TRUE(content.networks.empty());
  EXPECT_EQ(content.faultCount, 0U);
  EXPECT_EQ(content.leftOut, "it is no list of addresses: its type is \"string\"");
}

TEST(ListText, WhatIsNoJsonListIsRefused) {
  EXPECT_EQ(Faults(Read("{\"list\":[\n\"192.0.2.1\",\n", false)), Strings{"2: this is no JSON"});
  EXPECT_EQ(Faults(Read("{\"list\":[\"192.0.2.1\"]} x", false)), Strings{"1: this is no JSON"});
  EXPECT_EQ(Faults(Read("{\"name\":\"n\"}", false)), Strings{"1: there is no member \"list\" that is a list"});
  EXPECT_EQ(Faults(Read("{\"list\":{\"a\":\"192.0.2.1\"}}", false)),
            Strings{"1: there is no member \"list\" that is a list"});
  EXPECT_TRUE(Read("{\"x\":{\"list\":[\"192.0.2.1\"]}}", false).networks.empty());
}

TEST(ListFiles, FoldersGiveTheirLists) {
  const TemporaryFolder folder;
  folder.Put("b.txt", "192.0.2.1\nbad\n");
  folder.Put("a.json", R"({"list":["192.0.2.2"]})");
  folder.Put("c.list", "192.0.2.3");
  folder.Put(".hidden.txt", "192.0.2.4");
  folder.Put("README", "192.0.2.5");
  std::filesystem::create_directory(folder.Path("d.txt"));
  const TemporaryFolder other;
  const std::string named = other.Put("named", "192.0.2.6");
  Strings reports;
  std::string error;
  const auto lists = LoadLists(
      {folder.Path(), named}, [&reports](const std::string& text) { reports.push_back(text); }, error);
  ASSERT_TRUE(lists) << error;
  EXPECT_EQ(lists->files, 4U);
  EXPECT_EQ(lists->addresses.Count(), 4U);
  EXPECT_EQ(reports, Strings{folder.Path("b.txt") + ":2: \"bad\" is no address and no network; it is skipped"});
  EXPECT_EQ(Found(lists->addresses, "192.0.2.6"), "192.0.2.6/32");
  EXPECT_EQ(Found(lists->addresses, "192.0.2.4"), "");
}

TEST(ListFiles, OneThatCannotBeReadFailsAll) {
  const TemporaryFolder folder;
  const std::string good = folder.Put("good.txt", "192.0.2.1");
  const std::string bad = folder.Put("bad.json", "{");
  const auto errorOf = [](const Strings& paths) {
    std::string error;
    EXPECT_FALSE(LoadLists(
        paths, [](const std::string&) {}, error));
    return error;
  };
  EXPECT_EQ(errorOf({good, folder.Path("none")}),
            "cannot read the list " + folder.Path("none") + ": No such file or directory");
  EXPECT_EQ(errorOf({good, bad}), bad + ":1: this is no JSON");
  EXPECT_EQ(errorOf({"/dev/null"}), "cannot read the list /dev/null: it is not a regular file");
  EXPECT_EQ(errorOf({folder.Put("empty.txt", "# nothing\n")}), "the lists hold no network");
}

}  // namespace
