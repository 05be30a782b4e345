#include "Velmar/Log.h"

namespace Velmar {

Log::Callback Log::fnLogCallback = nullptr;

void Log::WriteRelease(Level level, u32 moduleId, u32 fileId, u32 functionId, u32 conditionId, u32 line, u32 messageId,
                       ...) {
  const Callback callback = fnLogCallback;
  if (callback == nullptr) {
    return;
  }
  const Record record = {level, moduleId, fileId, functionId, conditionId, line, messageId};
  std::va_list arguments;
  va_start(arguments, messageId);
  callback(record, arguments);
  va_end(arguments);
}

}  // namespace Velmar
