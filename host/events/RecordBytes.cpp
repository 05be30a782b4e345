#include "host/events/RecordBytes.h"

#include <limits>

namespace Host {

bool RecordBytes::PutOffset(u32 field, std::string& error) {
  if (bytes_.size() > std::numeric_limits<u16>::max()) {
    error = "the event record is too large: its texts must begin within the first 65536 bytes";
    return false;
  }
  PutAt(field, static_cast<u16>(bytes_.size()));
  return true;
}

bool RecordBytes::AddText(u32 field, const std::string& text, const std::string& name, std::string& error) {
  return PutOffset(field, error) && AddText(text, name, error);
}

bool RecordBytes::AddText(const std::string& text, const std::string& name, std::string& error) {
  if (text.find('\0') != std::string::npos) {
    error = name + ": a NUL byte inside, where the module would end it";
    return false;
  }
  bytes_.insert(bytes_.end(), text.begin(), text.end());
  bytes_.push_back(0);
  return true;
}

bool RecordBytes::AddArea(u32 field, u32 size, u32& offset, std::string& error) {
  offset = static_cast<u32>(bytes_.size());
  if (!PutOffset(field, error)) {
    return false;
  }
  bytes_.resize(bytes_.size() + size);
  return true;
}

}  // namespace Host
