#include "osquery/osquery/Selectors.h"

#include <cstring>

#include "Velmar/Utils/String.h"
#include "Velmar/Utils/Utf8.h"
#include "common/HashKind.h"
#include "common/netdb_storage/RecordText.h"
#include "osquery/netdb_osquery_schema/netdb_osquery_schema.pb.h"
#include "osquery/osquery/OSQueryLog.h"
#include "osquery/osquery/RowLibrary.h"

namespace RYL::NetDB::OSQuery {

namespace {

using Velmar::Utils::String;

constexpr u64 kMsPerSecond = 1000;
constexpr u8 kFirstBeyondAscii = 0x80;
constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

// Texts go into a field that is there already: a message that gets a text at once registers it before it has the
// memory, and would end it without.
//
// A message takes valid UTF-8 only, and a path is whatever bytes the system had; U+FFFD stands for each bad one.
void SetText(std::string& field, const char* text, u64 size) {
  field.clear();
  u64 start = 0;
  u64 at = 0;
  while (at < size) {
    if (static_cast<u8>(text[at]) < kFirstBeyondAscii) {
      ++at;
      continue;
    }
    const u32 length = Velmar::Utils::Utf8Length(text + at, size - at);
    if (length == 0) {
      field.append(text + start, at - start);
      field.append(kReplacement);
      start = at + 1;
    }
    at += length == 0 ? 1 : length;
  }
  field.append(text + start, size - start);
}

// For what is ASCII by its making.
void SetAscii(std::string& field, const char* text) {
  field.assign(text);
}

template <u32 kSize>
void SetHex(std::string& field, const u8 (&digest)[kSize]) {
  char text[2 * kSize + 1] = "";
  if (!String::BufferToHex(digest, kSize, text, sizeof(text), false, false)) {
    RYL_LOG(osquery, DigestNotWritten);
    text[0] = '\0';
  }
  SetAscii(field, text);
}

void SelectIp(const QueryRecord& record, edr_netdb& message) {
  char text[kAddressTextSize];
  if (!AddressToString(record, text)) {
    RYL_LOG(osquery, AddressNotWritten);
  }
  SetAscii(*message.mutable_ip(), text);
}

void SelectFirstSeen(const QueryRecord& record, edr_netdb& message) {
  message.set_first_seen(record.first_seen * kMsPerSecond);
}

void SelectLastSeen(const QueryRecord& record, edr_netdb& message) {
  message.set_last_seen(record.last_seen * kMsPerSecond);
}

void SelectPort(const QueryRecord& record, edr_netdb& message) {
  message.set_port(record.port);
}

void SelectProtos(const QueryRecord& record, edr_netdb& message) {
  char area[kProtocolsTextSize];
  String text;
  text.Create(area, sizeof(area), true, false);
  if (!ProtocolsToString(record.protos, text)) {
    text.Clear();
  }
  SetAscii(*message.mutable_protos(), text.text);
}

void SelectConnsTotal(const QueryRecord& record, edr_netdb& message) {
  message.set_conns_total(record.conns_total);
}

void SelectConnsIn(const QueryRecord& record, edr_netdb& message) {
  message.set_conns_in(record.conns_in);
}

void SelectConnsOut(const QueryRecord& record, edr_netdb& message) {
  message.set_conns_out(record.conns_out);
}

void SelectBytesIn(const QueryRecord& record, edr_netdb& message) {
  message.set_bytes_in(record.bytes_in);
}

void SelectBytesOut(const QueryRecord& record, edr_netdb& message) {
  message.set_bytes_out(record.bytes_out);
}

void SelectPath(const QueryRecord& record, edr_netdb& message) {
  SetText(*message.mutable_proc_fpath(), record.proc_fpath, strnlen(record.proc_fpath, sizeof(record.proc_fpath)));
}

void SelectMD5(const QueryRecord& record, edr_netdb& message) {
  SetHex(*message.mutable_proc_md5(), record.proc_md5);
}

void SelectQID(const QueryRecord& record, edr_netdb& message) {
  SetHex(*message.mutable_proc_qid(), record.proc_qid);
}

void SelectPuid(const QueryRecord& record, edr_netdb& message) {
  message.set_proc_puid(record.proc_puid);
}

void SelectPid(const QueryRecord& record, edr_netdb& message) {
  message.set_proc_pid(record.proc_pid);
}

struct Column {
  u32 nameHash;
  void (*select)(const QueryRecord& record, edr_netdb& message);
};

constexpr Column kColumns[] = {
    {HashKind("ip"), SelectIp},
    {HashKind("first_seen"), SelectFirstSeen},
    {HashKind("last_seen"), SelectLastSeen},
    {HashKind("port"), SelectPort},
    {HashKind("protos"), SelectProtos},
    {HashKind("conns_total"), SelectConnsTotal},
    {HashKind("conns_in"), SelectConnsIn},
    {HashKind("conns_out"), SelectConnsOut},
    {HashKind("bytes_in"), SelectBytesIn},
    {HashKind("bytes_out"), SelectBytesOut},
    {HashKind("proc_fpath"), SelectPath},
    {HashKind("proc_md5"), SelectMD5},
    {HashKind("proc_qid"), SelectQID},
    {HashKind("proc_puid"), SelectPuid},
    {HashKind("proc_pid"), SelectPid},
};

}  // namespace

u32 ColumnCount() {
  const google::protobuf::Descriptor* descriptor = RowDescriptor();
  return descriptor == nullptr ? 0 : static_cast<u32>(descriptor->field_count());
}

bool CreateSelectors(SelectorArray& selectors) {
  const u32 columns = ColumnCount();
  return selectors.Create(columns, columns, 1, false, Velmar::Collections::GrowType::kFixedStep);
}

bool AddSelector(const char* column, SelectorArray& selectors) {
  const u32 nameHash = HashKind(column);
  for (const Column& known : kColumns) {
    if (known.nameHash == nameHash) {
      return selectors.Add(Selector(known.select));
    }
  }
  return false;
}

bool AddAllSelectors(SelectorArray& selectors) {
  const google::protobuf::Descriptor* descriptor = RowDescriptor();
  if (descriptor == nullptr) {
    return false;
  }
  for (int i = 0; i < descriptor->field_count(); ++i) {
    if (!AddSelector(descriptor->field(i)->name().c_str(), selectors)) {
      return false;
    }
  }
  return true;
}

}  // namespace RYL::NetDB::OSQuery
