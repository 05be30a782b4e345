#include "host/render/Rows.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

namespace {

using namespace Host;
using namespace Host::Render;

Row ExampleRow() {
  Row row{};
  const u8 address[] = {203, 0, 113, 9};
  std::memcpy(row.address, address, sizeof(address));
  row.first_seen = 1700000001;
  row.last_seen = 1700000099;
  row.protos = 0x0841;
  row.port = 443;
  row.conns_total = 3;
  row.conns_in = 1;
  row.conns_out = 2;
  row.bytes_in = 18446744073709551615U;
  row.bytes_out = 12;
  std::memset(row.proc_md5, 0xAB, sizeof(row.proc_md5));
  std::memset(row.proc_qid, 0x01, sizeof(row.proc_qid));
  row.proc_puid = 18446744073709551614U;
  row.proc_pid = 4321;
  std::strcpy(row.proc_fpath, "/usr/bin/curl");
  return row;
}

Row EmptyRow() {
  Row row{};
  row.proc_pid = -1;
  return row;
}

std::string Rendered(Format format, const std::vector<Row>& rows) {
  std::ostringstream out;
  RenderOptions options;
  options.format = format;
  const auto writer = MakeRowWriter(options, out);
  for (const Row& row : rows) {
    writer->Write(row);
  }
  writer->Finish();
  return out.str();
}

constexpr char kExampleJson[] =
    R"({"ip":"203.0.113.9","first_seen":1700000001000,"last_seen":1700000099000,"port":443,"protos":"HTTP,SSL,TCP",)"
    R"("conns_total":3,"conns_in":1,"conns_out":2,"bytes_in":18446744073709551615,"bytes_out":12,)"
    R"("proc_fpath":"/usr/bin/curl","proc_md5":"abababababababababababababababab",)"
    R"("proc_qid":"0101010101010101010101010101010101010101010101010101010101010101",)"
    R"("proc_puid":18446744073709551614,"proc_pid":4321})";
constexpr char kEmptyJson[] =
    R"({"ip":"0.0.0.0","first_seen":0,"last_seen":0,"port":0,"protos":"","conns_total":0,"conns_in":0,"conns_out":0,)"
    R"("bytes_in":0,"bytes_out":0,"proc_fpath":"","proc_md5":"00000000000000000000000000000000",)"
    R"("proc_qid":"0000000000000000000000000000000000000000000000000000000000000000","proc_puid":0,"proc_pid":-1})";

TEST(Rows, JsonlIsAnObjectALineWithEveryField) {
  EXPECT_EQ(Rendered(Format::kJsonl, {ExampleRow(), EmptyRow()}), std::string(kExampleJson) + "\n" + kEmptyJson + "\n");
  EXPECT_EQ(Rendered(Format::kJsonl, {}), "");
}

TEST(Rows, JsonIsOneArray) {
  EXPECT_EQ(Rendered(Format::kJson, {ExampleRow(), EmptyRow()}),
            std::string("[\n") + kExampleJson + ",\n" + kEmptyJson + "\n]\n");
  EXPECT_EQ(Rendered(Format::kJson, {}), "[]\n");
}

TEST(Rows, CsvHasAHeaderAndQuotesWhatNeedsIt) {
  Row row = ExampleRow();
  std::strcpy(row.proc_fpath, "C:\\a, \"b\"\nc");
  EXPECT_EQ(Rendered(Format::kCsv, {row}),
            "ip,first_seen,last_seen,port,protos,conns_total,conns_in,conns_out,bytes_in,bytes_out,proc_fpath,proc_md5,"
            "proc_qid,proc_puid,proc_pid\r\n"
            "203.0.113.9,1700000001000,1700000099000,443,\"HTTP,SSL,TCP\",3,1,2,18446744073709551615,12,"
            "\"C:\\a, \"\"b\"\"\nc\",abababababababababababababababab,"
            "0101010101010101010101010101010101010101010101010101010101010101,18446744073709551614,4321\r\n");
}

TEST(Rows, CsvWithoutRowsIsItsHeader) {
  const std::string text = Rendered(Format::kCsv, {});
  EXPECT_EQ(text.find("\r\n"), text.size() - 2);
}

TEST(Rows, LineHasAFieldALine) {
  EXPECT_EQ(Rendered(Format::kLine, {ExampleRow(), EmptyRow()}),
            "         ip = 203.0.113.9\n"
            " first_seen = 2023-11-14T22:13:21Z\n"
            "  last_seen = 2023-11-14T22:14:59Z\n"
            "       port = 443\n"
            "     protos = HTTP,SSL,TCP\n"
            "conns_total = 3\n"
            "   conns_in = 1\n"
            "  conns_out = 2\n"
            "   bytes_in = 18446744073709551615\n"
            "  bytes_out = 12\n"
            " proc_fpath = /usr/bin/curl\n"
            "   proc_md5 = abababababababababababababababab\n"
            "   proc_qid = 0101010101010101010101010101010101010101010101010101010101010101\n"
            "  proc_puid = 18446744073709551614\n"
            "   proc_pid = 4321\n"
            "\n"
            "         ip = 0.0.0.0\n"
            " first_seen = 1970-01-01T00:00:00Z\n"
            "  last_seen = 1970-01-01T00:00:00Z\n"
            "       port = 0\n"
            "     protos = \n"
            "conns_total = 0\n"
            "   conns_in = 0\n"
            "  conns_out = 0\n"
            "   bytes_in = 0\n"
            "  bytes_out = 0\n"
            " proc_fpath = \n"
            "   proc_md5 = 00000000000000000000000000000000\n"
            "   proc_qid = 0000000000000000000000000000000000000000000000000000000000000000\n"
            "  proc_puid = 0\n"
            "   proc_pid = -1\n");
}

TEST(Rows, PathThatIsNoUtf8IsReplacedInJsonAndKeptInCsv) {
  Row row = EmptyRow();
  std::strcpy(row.proc_fpath, "/\xFF/\x1B[2J");
  EXPECT_NE(Rendered(Format::kJsonl, {row}).find("\"proc_fpath\":\"/\xEF\xBF\xBD/\\u001b[2J\""), std::string::npos);
  EXPECT_NE(Rendered(Format::kCsv, {row}).find(",/\xFF/\x1B[2J,"), std::string::npos);
  EXPECT_NE(Rendered(Format::kLine, {row}).find("= /\xEF\xBF\xBD/\\x1B[2J\n"), std::string::npos);
}

TEST(Rows, PathWithoutATerminatorStaysInside) {
  Row row = EmptyRow();
  std::memset(row.proc_fpath, 'x', sizeof(row.proc_fpath));
  EXPECT_NE(Rendered(Format::kJsonl, {row}).find("\"" + std::string(512, 'x') + "\""), std::string::npos);
}

TEST(Rows, IPv6AddressHasItsText) {
  Row row = EmptyRow();
  row.is_ipv6 = 1;
  row.address[15] = 1;
  EXPECT_EQ(TextsOf(row, TimeStyle::kUtc)[0], "::1");
}

TEST(Rows, FormatsAreFoundByName) {
  EXPECT_EQ(FormatOf("table"), Format::kTable);
  EXPECT_EQ(FormatOf("json"), Format::kJson);
  EXPECT_EQ(FormatOf("jsonl"), Format::kJsonl);
  EXPECT_EQ(FormatOf("csv"), Format::kCsv);
  EXPECT_EQ(FormatOf("line"), Format::kLine);
  EXPECT_EQ(FormatOf("xml"), std::nullopt);
}

TEST(ProtocolsOf, NamesTheTwelveBits) {
  EXPECT_EQ(ProtocolsOf(0xFFFF), "HTTP,SMB,FTP,Telnet,RDP,SSH,SSL,WMI,RPC,ICMP,UDP,TCP");
  EXPECT_EQ(ProtocolsOf(0), "");
  EXPECT_EQ(ProtocolsOf(0x0800), "TCP");
}

}  // namespace
