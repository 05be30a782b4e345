// The release log: records identified by numbers, rendered only by the host.
//
// Each folder lists its messages in Messages.def, a row a message:
//
//   MESSAGE(ArrayCeilingReached, 3, (u32 maxCapacity), "array is at its ceiling of {0} elements")
//
// and compiles identifiers, levels and argument types out of it (BaseLog.h, VelmarLog.h and so on); the texts are
// compiled by the host alone. A site logs with
//
//   RYL_LOG(velmar, ArrayCeilingReached, maxCapacity_);
//
// which is a compile error when the arguments do not convert to the declared types.
#pragma once

#include <cstdarg>

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar {

// Module number of every record of this system.
inline constexpr u32 kModuleNumber = 41;

// FNV-1a, 32 bits (Fowler, Noll, Vo). Identifiers of the log are made with it, at build time only, so that no text of
// them reaches a binary.
consteval u32 HashIdentifier(const char* text) {
  u32 hash = 0x811C9DC5U;
  for (; *text != '\0'; ++text) {
    hash = (hash ^ static_cast<u8>(*text)) * 0x01000193U;
  }
  return hash;
}

class RYL_API Log {
 public:
  // Severity rises with the number: 1 normal progress, 2 notable, 3 warning, 5 error.
  using Level = u32;

  struct Record {
    Level level;
    u32 moduleId;
    u32 fileId;
    u32 functionId;
    u32 conditionId;
    u32 line;
    u32 messageId;
  };
  // Receives each record on the thread that logs, possibly under any lock of the module, so it must neither block nor
  // call back into the module. `arguments` are those of the message's row, after the default promotions.
  using Callback = void (*)(const Record& record, std::va_list arguments);

  // Null: all log sites are skipped. Set before the module starts, and left alone while it runs.
  static Callback fnLogCallback;

  static void WriteRelease(Level level, u32 moduleId, u32 fileId, u32 functionId, u32 conditionId, u32 line,
                           u32 messageId, ...);
};

// One row of a Messages.def: identifier, level and argument types, no text.
template <u32 MessageId, Log::Level MessageLevel, class Signature>
struct LogMessage;

template <u32 MessageId, Log::Level MessageLevel, class... Arguments>
struct LogMessage<MessageId, MessageLevel, void(Arguments...)> {
  static_assert(MessageLevel == 1 || MessageLevel == 2 || MessageLevel == 3 || MessageLevel == 5);
  static constexpr u32 kId = MessageId;

  static void Write(u32 fileId, u32 functionId, u32 line, Arguments... arguments) {
    Log::WriteRelease(MessageLevel, kModuleNumber, fileId, functionId, 0, line, MessageId, arguments...);
  }
};

}  // namespace Velmar

// Logs message `name` of folder `folder` with the row's arguments. Nothing is evaluated when nobody listens.
#define RYL_LOG(folder, name, ...)                                                                           \
  do {                                                                                                       \
    if (::Velmar::Log::fnLogCallback != nullptr) {                                                           \
      constexpr ::Velmar::u32 rylLogFile = ::Velmar::HashIdentifier(__FILE__);                               \
      constexpr ::Velmar::u32 rylLogFunction = ::Velmar::HashIdentifier(__builtin_FUNCTION());               \
      ::RYL::Messages::folder::name::Write(rylLogFile, rylLogFunction, __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
    }                                                                                                        \
  } while (false)
