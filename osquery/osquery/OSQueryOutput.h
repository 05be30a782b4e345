// OSQueryOutput: the rows that a table query found, as messages in one buffer.
//
//   OSQueryOutput output(external, &selectors, maxRows);
//   if (!output.Init(maxBytes)) return false;
//   ... output.WriteRow(record) ...
//   output.Finish();
#pragma once

#include "RYL/Events/ExternalData.h"
#include "Velmar/Collections/Buffer.h"
#include "Velmar/Utils/String.h"
#include "osquery/osquery/Selectors.h"

namespace RYL::NetDB::OSQuery {

// What became of a query, as its reply carries it.
enum QueryError : u32 {
  kNoError = 0,  // also where a constraint makes any answer impossible
  kRowLimit = 1,
  kBufferFull = 2,
  kRowNotEncoded = 3,
  kBadQuery = 4,
  kInternalFailure = 5,
};

// The buffer, little-endian: u8 version, u32 error, u32 message count, then each message behind its u32 length.
//
// Lifetime: Init once, then WriteRow, then Finish or ToJson. What the constructor gets must outlive it.
// Threads: thread-compatible. Exceptions: std::bad_function_call for an empty selector; no other.
class OSQueryOutput {
 public:
  static constexpr u8 kVersion = 1;
  static constexpr u32 kHeaderSize = 9;
  static constexpr u32 kMinQueryBytes = 0x80000;
  static constexpr u32 kBufferStep = 0x80000;
  // A row of this size or more is refused.
  static constexpr u32 kRowSizeLimit = 65535;
  static constexpr u32 kArenaBlockSize = 1296;

  // Where WriteRow and its kin stand. Read-only for callers, but for `error`, which RunTableQuery sets too.
  u32 error = kNoError;
  u32 message_count = 0;
  u32 committed_size = kHeaderSize;  // the buffer's length after the last complete row
  u32 max_rows;

  OSQueryOutput(Events::ExternalData* target, const SelectorArray* columns, u32 maxRows);
  OSQueryOutput(const OSQueryOutput&) = delete;
  OSQueryOutput& operator=(const OSQueryOutput&) = delete;

  // `maxQueryBytes`: most bytes that the buffer may take. False (level 5) below kMinQueryBytes, and without memory.
  bool Init(u32 maxQueryBytes);
  // Appends a row. False, with `error` set and the complete rows in place, ends the query.
  bool WriteRow(const QueryRecord& record);
  // Completes the header, drops all rows if there is an error, and hands the buffer to the target as "events". False
  // (level 5) when the target does not take it.
  bool Finish();
  // {"osquery_msg":{"version":1,"error":...,"message_count":...,"messages":[...]}}, with all complete rows whatever the
  // error. Fields that are 0 or empty are left out; 64-bit numbers are texts. Empty without a buffer. False without
  // memory.
  bool ToJson(Velmar::Utils::String& out);
  // The messages one after another: call first with `offset` 0. False behind the last.
  bool NextMessage(u32& offset, const u8*& message, u32& size) const;

 private:
  // kNoError with the row in the buffer, or what went wrong, with a part of it there. May throw.
  QueryError AppendRow(const QueryRecord& record);
  bool AppendJson(Velmar::Utils::String& out);

  Events::ExternalData* external;
  Velmar::Collections::Buffer buffer;
  alignas(8) char arena_block[kArenaBlockSize];
  const SelectorArray* selectors;
};

}  // namespace RYL::NetDB::OSQuery
