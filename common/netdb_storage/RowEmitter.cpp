#include "common/netdb_storage/RowEmitter.h"

#include <cstring>

#include "Velmar/Utils/Utf8.h"
#include "common/netdb_storage/StorageLog.h"

namespace RYL::NetDB {

namespace {

bool IsContinuation(char c) {
  return (static_cast<u8>(c) & 0xC0) == 0x80;
}

// The length of the longest start of `text` that has at most `limit` bytes and splits no UTF-8 character; bytes that
// are none are cut at the limit.
u32 CutAtCharacter(const char* text, u32 length, u32 limit) {
  if (length <= limit) {
    return length;
  }
  constexpr u32 kMostContinuations = 3;
  u32 start = limit;
  while (start > 0 && limit - start < kMostContinuations && IsContinuation(text[start])) {
    --start;
  }
  const bool isSplit = start + Velmar::Utils::Utf8Length(text + start, length - start) > limit;
  return isSplit ? start : limit;
}

}  // namespace

// The scratch path starts in an area that holds what a record can take, so that most rows need no memory.
RowEmitter::RowEmitter(const ProcessesDB& processes, u64 day, const QuerySink& sink)
    : processes_(processes), day_(day), sink_(sink) {
  process_.proc_fpath.Create(pathArea_, sizeof(pathArea_), true, true);
}

bool RowEmitter::Emit(const IPDB<IPv4>::IPRecord& row) {
  if (row.proc_index == kNone) {
    process_.Clear();
  } else if (!processes_.Get(row.proc_index, process_)) {
    RYL_LOG(netdb_storage, RowPointsNowhere, row.proc_index);
    return false;
  }
  FillProcess();
  std::memcpy(record_.address, row.ip.bytes, IPv4::kSize);
  record_.first_seen = day_ + row.first_seen;
  record_.last_seen = day_ + row.last_seen;
  record_.protos = static_cast<u16>(row.protos);
  record_.port = row.port;
  record_.conns_total = row.conns_total;
  record_.conns_in = row.conns_in;
  record_.conns_out = row.conns_out;
  record_.bytes_in = row.bytes_in;
  record_.bytes_out = row.bytes_out;
  return sink_(record_);
}

void RowEmitter::FillProcess() {
  std::memcpy(record_.proc_md5, process_.proc_md5, sizeof(record_.proc_md5));
  std::memcpy(record_.proc_qid, process_.proc_qid, sizeof(record_.proc_qid));
  record_.proc_puid = process_.proc_puid;
  record_.proc_pid = process_.proc_pid;
  const u32 kept = CutAtCharacter(process_.proc_fpath.text, static_cast<u32>(process_.proc_fpath.length),
                                  sizeof(record_.proc_fpath) - 1);
  std::memcpy(record_.proc_fpath, process_.proc_fpath.text, kept);
  record_.proc_fpath[kept] = '\0';
}

}  // namespace RYL::NetDB
