#include "common/netdb_storage/Process.h"

#include <cstring>

#include "common/netdb_storage/StorageLog.h"

namespace RYL::NetDB {

namespace {

using Velmar::Collections::Buffer;
using Velmar::Collections::StreamBuffer;

template <class T>
int CompareValues(T a, T b) {
  return a < b ? -1 : (a > b ? 1 : 0);
}

// Digests as the integers that lie in memory.
template <std::size_t Size>
int CompareWords(const u8 (&a)[Size], const u8 (&b)[Size]) {
  for (std::size_t at = 0; at < Size; at += sizeof(u64)) {
    u64 mine;
    u64 its;
    std::memcpy(&mine, a + at, sizeof(mine));
    std::memcpy(&its, b + at, sizeof(its));
    if (mine != its) {
      return mine < its ? -1 : 1;
    }
  }
  return 0;
}

template <std::size_t Size>
bool IsZero(const u8 (&digest)[Size]) {
  constexpr u8 kZero[Size] = {};
  return std::memcmp(digest, kZero, Size) == 0;
}

constexpr u32 kFieldsSize = ProcessRecord::kMinimumElementSize - sizeof(u32);

template <class T>
void Append(u8*& end, const T& field) {
  std::memcpy(end, &field, sizeof(field));
  end += sizeof(field);
}

template <class T>
void Extract(const u8*& next, T& field) {
  std::memcpy(&field, next, sizeof(field));
  next += sizeof(field);
}

}  // namespace

bool Process::CopyFrom(const Process& other) {
  if (this == &other) {
    return true;
  }
  if (!proc_fpath.Set(&other.proc_fpath)) {
    Clear();
    return false;
  }
  std::memcpy(proc_md5, other.proc_md5, sizeof(proc_md5));
  std::memcpy(proc_qid, other.proc_qid, sizeof(proc_qid));
  proc_puid = other.proc_puid;
  proc_pid = other.proc_pid;
  return true;
}

void Process::Clear() {
  proc_fpath.Clear();
  std::memset(proc_md5, 0, sizeof(proc_md5));
  std::memset(proc_qid, 0, sizeof(proc_qid));
  proc_puid = 0;
  proc_pid = -1;
}

bool Process::IsEmpty() const {
  return proc_fpath.length == 0 && IsZero(proc_md5) && IsZero(proc_qid) && proc_puid == 0 && proc_pid == -1;
}

bool Process::operator==(const Process& other) const {
  return std::memcmp(proc_md5, other.proc_md5, sizeof(proc_md5)) == 0 &&
         std::memcmp(proc_qid, other.proc_qid, sizeof(proc_qid)) == 0 && !(proc_fpath != other.proc_fpath) &&
         proc_pid == other.proc_pid && proc_puid == other.proc_puid;
}

int Process::Compare(const Process& other) const {
  if (const int byPath = proc_fpath.Compare(other.proc_fpath, false); byPath != 0) {
    return byPath;
  }
  if (const int byMd5 = CompareWords(proc_md5, other.proc_md5); byMd5 != 0) {
    return byMd5;
  }
  if (const int byQid = CompareWords(proc_qid, other.proc_qid); byQid != 0) {
    return byQid;
  }
  if (const int byPid = CompareValues(proc_pid, other.proc_pid); byPid != 0) {
    return byPid;
  }
  return CompareValues(proc_puid, other.proc_puid);
}

bool ProcessRecord::CopyFrom(const ProcessRecord& other) {
  if (!Process::CopyFrom(other)) {
    return false;
  }
  ref_count = other.ref_count;
  return true;
}

// The fields behind the path lie in the stored form as they do here: digests, then copies of the memory words.
bool ProcessRecord::Serialize(Buffer& out) const {
  u8 fields[kFieldsSize];
  u8* end = fields;
  Append(end, proc_md5);
  Append(end, proc_qid);
  Append(end, proc_puid);
  Append(end, proc_pid);
  Append(end, ref_count);
  if (proc_fpath.Serialize(out, nullptr) && out.PushBuffer(fields, sizeof(fields)) != kNone) {
    return true;
  }
  RYL_LOG(netdb_storage, ProcessNotWritten);
  return false;
}

bool ProcessRecord::Deserialize(StreamBuffer& in) {
  const u8* fields = nullptr;
  if (!proc_fpath.Deserialize(in, nullptr) || (fields = in.Take(kFieldsSize)) == nullptr) {
    RYL_LOG(netdb_storage, ProcessNotRead);
    return false;
  }
  Extract(fields, proc_md5);
  Extract(fields, proc_qid);
  Extract(fields, proc_puid);
  Extract(fields, proc_pid);
  Extract(fields, ref_count);
  return true;
}

}  // namespace RYL::NetDB
