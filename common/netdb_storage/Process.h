// Process: the program behind connections, as a day's table keeps it.
#pragma once

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Collections/StreamBuffer.h"
#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"

namespace RYL::NetDB {

// Threads: thread-compatible.
struct Process {
  Velmar::Utils::String proc_fpath;  // full path of the program
  u8 proc_md5[16] = {};              // zero when unknown
  u8 proc_qid[32] = {};              // zero when unknown
  u64 proc_puid = 0;                 // the host's unique identifier
  i64 proc_pid = -1;                 // -1 when unknown

  // False when the path finds no memory; the process is then empty.
  bool CopyFrom(const Process& other);
  // Back to the state of a new object; the path's storage stays.
  void Clear();
  [[nodiscard]] bool IsEmpty() const;

  bool operator==(const Process& other) const;
  // Path, then proc_md5 and proc_qid as little-endian 64-bit words, proc_pid signed, proc_puid unsigned.
  bool operator<(const Process& other) const { return Compare(other) < 0; }
  // That order in one pass: negative, 0 or positive.
  [[nodiscard]] int Compare(const Process& other) const;
};

// A row of ProcessesDB.
struct ProcessRecord : Process {
  i32 ref_count = 0;  // address rows that point here; negative marks a free slot, which is also empty

  bool CopyFrom(const ProcessRecord& other);

  // Stored form (docs/file-format.md). Level 5 on a failed push or a short read.
  bool Serialize(Velmar::Collections::Buffer& out) const;
  bool Deserialize(Velmar::Collections::StreamBuffer& in);
  static constexpr u32 kMinimumElementSize = 4 + 16 + 32 + 8 + 8 + 4;
  [[nodiscard]] u32 GetSerializedSize() const { return kMinimumElementSize + static_cast<u32>(proc_fpath.length); }
};

}  // namespace RYL::NetDB
