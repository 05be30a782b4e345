#include "host/commands/HistoryFilter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Host;
using namespace Host::Commands;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

HistoryFilter Read(const FilterTexts& texts) {
  std::string error;
  const auto filter = ReadFilter(texts, {}, error);
  EXPECT_TRUE(filter) << error;
  return filter.value_or(HistoryFilter());
}

std::string ErrorOf(const FilterTexts& texts) {
  std::string error;
  EXPECT_FALSE(ReadFilter(texts, {}, error));
  return error;
}

TEST(ReadFilter, NothingGivenFiltersNothing) {
  std::string error;
  const auto filter = ReadFilter({}, {5, 7}, error);
  ASSERT_TRUE(filter);
  EXPECT_EQ(filter->range.since, 5U);
  EXPECT_EQ(filter->range.until, 7U);
  EXPECT_THAT(filter->addresses, IsEmpty());
  EXPECT_THAT(filter->blocks, IsEmpty());
  EXPECT_THAT(filter->paths, IsEmpty());
  EXPECT_THAT(filter->pathPatterns, IsEmpty());
  EXPECT_THAT(filter->ports, IsEmpty());
  EXPECT_THAT(filter->protocols, IsEmpty());
  EXPECT_THAT(filter->md5s, IsEmpty());
  EXPECT_THAT(filter->qids, IsEmpty());
}

TEST(ReadFilter, AddressesAndBlocksAreToldApart) {
  const HistoryFilter filter = Read({.ips = {"203.0.113.9", "10.0.0.0/8", "192.0.2.1/32", "10.1.2.3/16", "0.0.0.0/0"}});
  EXPECT_THAT(filter.addresses, ElementsAre("203.0.113.9", "192.0.2.1"));
  EXPECT_THAT(filter.blocks, ElementsAre("10.0.0.0/8", "10.1.0.0/16", "0.0.0.0/0"));
}

TEST(ReadFilter, WhatIsNoAddressIsRefused) {
  for (const char* text : {"", "example.org", "10.0.0.0/33", "10.0.0.0/", "10.0.0.256", "10.0.0.1 ", "/8"}) {
    EXPECT_THAT(ErrorOf({.ips = {"10.0.0.1", text}}), HasSubstr("\"" + std::string(text) + "\" is no address")) << text;
  }
  EXPECT_THAT(ErrorOf({.ips = {"2001:db8::1"}}), HasSubstr("IPv4 connections only"));
  EXPECT_THAT(ErrorOf({.ips = {"2001:db8::/32"}}), HasSubstr("IPv4 connections only"));
}

TEST(ReadFilter, PercentMakesAPattern) {
  const HistoryFilter filter = Read({.processes = {"/usr/bin/curl", "%/curl", "/opt/a_b"}});
  EXPECT_THAT(filter.paths, ElementsAre("/usr/bin/curl", "/opt/a_b"));
  EXPECT_THAT(filter.pathPatterns, ElementsAre("%/curl"));
  EXPECT_EQ(ErrorOf({.processes = {""}}), "the path of a process is empty");
}

TEST(ReadFilter, PortsAreNumbersOf16Bits) {
  EXPECT_THAT(Read({.ports = {"0", "443", "65535"}}).ports, ElementsAre(0, 443, 65535));
  for (const char* text : {"", "65536", "-1", "https", "0x50", "443 ", "99999999999999999999"}) {
    EXPECT_THAT(ErrorOf({.ports = {text}}), HasSubstr("\"" + std::string(text) + "\" is no port")) << text;
  }
}

TEST(ReadFilter, ProtocolsAreKnownByEachName) {
  EXPECT_THAT(Read({.protocols = {"tcp", "UDP", "icmp", "Telnet", "tELNET", "rpc", "wmi", "rdp", "smb", "ssl", "ssh"}})
                  .protocols,
              ElementsAre("TCP", "UDP", "ICMP", "Telnet", "Telnet", "RPC", "WMI", "RDP", "SMB", "SSL", "SSH"));
  EXPECT_THAT(Read({.protocols = {"http", "HTTPS", "http(s)", "ftp", "ftps", "DCE_RPC"}}).protocols,
              ElementsAre("HTTP", "HTTP", "HTTP", "FTP", "FTP", "RPC"));
}

TEST(ReadFilter, UnknownProtocolIsAnsweredWithTheNames) {
  EXPECT_EQ(
      ErrorOf({.protocols = {"quic"}}),
      "\"quic\" is no protocol; the protocols are HTTP, SMB, FTP, Telnet, RDP, SSH, SSL, WMI, RPC, ICMP, UDP, TCP");
  EXPECT_THAT(ErrorOf({.protocols = {""}}), HasSubstr("\"\" is no protocol"));
  EXPECT_THAT(ErrorOf({.protocols = {"tcp,udp"}}), HasSubstr("\"tcp,udp\" is no protocol"));
}

TEST(ReadFilter, DigestsAreHexOfTheirLength) {
  const std::string md5 = "00112233445566778899AAbbccddeeff";
  EXPECT_THAT(Read({.md5s = {md5}}).md5s, ElementsAre("00112233445566778899aabbccddeeff"));
  EXPECT_THAT(Read({.qids = {md5 + md5}}).qids,
              ElementsAre("00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff"));
  EXPECT_THAT(ErrorOf({.md5s = {md5 + md5}}), HasSubstr("is no MD5 digest; give 32 hex digits"));
  EXPECT_THAT(ErrorOf({.md5s = {"zz112233445566778899aabbccddeeff"}}), HasSubstr("is no MD5 digest"));
  EXPECT_THAT(ErrorOf({.qids = {md5}}), HasSubstr("is no process identity; give 64 hex digits"));
  EXPECT_THAT(ErrorOf({.qids = {""}}), HasSubstr("\"\" is no process identity"));
}

}  // namespace
