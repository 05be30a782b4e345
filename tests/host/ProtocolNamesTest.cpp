#include "host/import/ProtocolNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Host::Import;

TEST(ServiceName, KnowsTheModulesNamesInAnyCase) {
  for (const char* name :
       {"tcp", "ssl", "https", "http(s)", "http", "ftp", "ftps", "smb", "ssh", "rdp", "telnet", "wmi", "rpc"}) {
    EXPECT_EQ(ServiceName(name), name);
  }
  EXPECT_EQ(ServiceName("HTTP"), "http");
}

TEST(ServiceName, DceRpcIsRpc) {
  EXPECT_EQ(ServiceName("dce_rpc"), "rpc");
  EXPECT_EQ(ServiceName("DCE_RPC"), "rpc");
}

TEST(ServiceName, OthersHaveNone) {
  for (const char* name : {"", "dns", "krb_tcp", "gssapi", "dhcp", "http ", "udp", "icmp"}) {
    EXPECT_EQ(ServiceName(name), std::nullopt) << name;
  }
}

TEST(EventNamesOf, ReadsWhatRowsShow) {
  EXPECT_THAT(*EventNamesOf("HTTP,SMB,FTP,Telnet,RDP,SSH,SSL,WMI,RPC,ICMP,UDP,TCP"),
              testing::ElementsAre("http", "smb", "ftp", "telnet", "rdp", "ssh", "ssl", "wmi", "rpc", "tcp"));
  EXPECT_THAT(*EventNamesOf(""), testing::IsEmpty());
}

TEST(EventNamesOf, UnknownNameIsAnError) {
  for (const char* names : {"HTTP,", ",", "DNS", "TCP,DNS", "TCP TCP"}) {
    EXPECT_EQ(EventNamesOf(names), std::nullopt) << names;
  }
}

}  // namespace
