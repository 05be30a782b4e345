#include "osquery/osquery/OSQueryOutput.h"

#include <cstring>
#include <exception>
#include <functional>

#include <google/protobuf/arena.h>

#include "osquery/netdb_osquery_schema/netdb_osquery_schema.pb.h"
#include "osquery/osquery/OSQueryLog.h"
#include "osquery/osquery/RowLibrary.h"

namespace RYL::NetDB::OSQuery {

namespace {

constexpr u32 kErrorOffset = 1;
constexpr u32 kCountOffset = 5;
constexpr char kResultName[] = "events";

}  // namespace

OSQueryOutput::OSQueryOutput(Events::ExternalData* target, const SelectorArray* columns, u32 maxRows)
    : max_rows(maxRows), external(target), buffer(true), selectors(columns) {
  SilenceLibrary();
}

bool OSQueryOutput::Init(u32 maxQueryBytes) {
  if (maxQueryBytes < kMinQueryBytes) {
    RYL_LOG(osquery, QueryBytesTooSmall, kMinQueryBytes, maxQueryBytes);
    return false;
  }
  if (!buffer.Create(kBufferStep, maxQueryBytes, kBufferStep, false, Velmar::Collections::GrowType::kFixedStep)) {
    RYL_LOG(osquery, NoOutputBuffer, maxQueryBytes);
    return false;
  }
  buffer.PushUInt8(kVersion);
  buffer.PushUInt32(error);
  buffer.PushUInt32(message_count);
  return true;
}

bool OSQueryOutput::WriteRow(const QueryRecord& record) {
  if (message_count >= max_rows) {
    error = kRowLimit;
    RYL_LOG(osquery, RowLimitReached, max_rows);
    return false;
  }
  try {
    error = AppendRow(record);
  } catch (const std::bad_function_call&) {
    throw;
  } catch (const std::exception&) {
    RYL_LOG(osquery, RowNotEncoded, message_count);
    error = kRowNotEncoded;
  }
  if (error != kNoError) {
    buffer.Truncate(committed_size);
    return false;
  }
  ++message_count;
  committed_size = buffer.size;
  return true;
}

QueryError OSQueryOutput::AppendRow(const QueryRecord& record) {
  google::protobuf::Arena arena(arena_block, sizeof(arena_block));
  auto* message = google::protobuf::Arena::CreateMessage<edr_netdb>(&arena);
  for (u32 i = 0; i < selectors->count; ++i) {
    const Selector& selector = selectors->data[i];
    if (!selector) {
      throw std::bad_function_call();
    }
    selector(record, *message);
  }
  const u64 size = message->ByteSizeLong();
  if (size >= kRowSizeLimit) {
    RYL_LOG(osquery, RowTooLarge, size);
    return kRowNotEncoded;
  }
  const auto messageSize = static_cast<u32>(size);
  const u32 roomSize = messageSize + static_cast<u32>(sizeof(messageSize));
  const u32 offset = buffer.PushZeroedBuffer(roomSize);
  u8* room = offset == kNone ? nullptr : buffer.GetUnsafePointer(offset, roomSize);
  if (room == nullptr) {
    RYL_LOG(osquery, BufferFull, committed_size, roomSize);
    return kBufferFull;
  }
  std::memcpy(room, &messageSize, sizeof(messageSize));
  if (!message->SerializeToArray(room + sizeof(messageSize), static_cast<int>(messageSize))) {
    RYL_LOG(osquery, RowNotEncoded, message_count);
    return kRowNotEncoded;
  }
  return kNoError;
}

bool OSQueryOutput::Finish() {
  if (error != kNoError) {
    buffer.Truncate(kHeaderSize);
    message_count = 0;
    committed_size = kHeaderSize;
  }
  u8* header = buffer.GetUnsafePointer(0, kHeaderSize);
  if (header == nullptr) {
    RYL_LOG(osquery, ResultNotTaken, buffer.size);
    return false;
  }
  std::memcpy(header + kErrorOffset, &error, sizeof(error));
  std::memcpy(header + kCountOffset, &message_count, sizeof(message_count));
  RYL_LOG(osquery, ResultComplete, message_count, buffer.size);
  if (external == nullptr || !external->SetBinary(kResultName, header, buffer.size)) {
    RYL_LOG(osquery, ResultNotTaken, buffer.size);
    return false;
  }
  return true;
}

bool OSQueryOutput::NextMessage(u32& offset, const u8*& message, u32& size) const {
  const u32 start = offset < kHeaderSize ? kHeaderSize : offset;
  u32 length = 0;
  const u8* lengthAt = buffer.GetUnsafePointer(start, sizeof(length));
  if (lengthAt == nullptr) {
    return false;
  }
  std::memcpy(&length, lengthAt, sizeof(length));
  const u32 bodyStart = start + static_cast<u32>(sizeof(length));
  const u8* body = buffer.GetUnsafePointer(bodyStart, length);
  if (body == nullptr) {
    return false;
  }
  message = body;
  size = length;
  offset = bodyStart + length;
  return true;
}

}  // namespace RYL::NetDB::OSQuery
