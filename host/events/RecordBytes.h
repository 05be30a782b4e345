// RecordBytes: a packed event record as it grows: numbers at fixed offsets, texts and tables behind them.
#pragma once

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "host/Types.h"

namespace Host {

// Every text ends with a NUL inside the record, and every offset that it gives fits its field and is not 0.
class RecordBytes {
 public:
  // `fixedSize` bytes of 0; more than 0.
  explicit RecordBytes(u32 fixedSize) : bytes_(fixedSize) {}

  // `offset` and the value lie in what the record has.
  template <class T>
  void PutAt(u32 offset, T value) {
    std::memcpy(bytes_.data() + offset, &value, sizeof(value));
  }

  // Appends the text and a NUL and writes where it begins into the u16 at `field`. False, with a sentence in `error`
  // that calls it `name`, for a text with a NUL inside and one that begins beyond what a field can say.
  bool AddText(u32 field, const std::string& text, const std::string& name, std::string& error);
  // Appends the text that needs no offset, since it stands behind the fixed fields. False as AddText.
  bool AddText(const std::string& text, const std::string& name, std::string& error);
  // Appends `size` bytes of 0 and writes where they begin into the u16 at `field`. The place is in `offset`.
  bool AddArea(u32 field, u32 size, u32& offset, std::string& error);

  [[nodiscard]] std::vector<u8> Take() { return std::move(bytes_); }

 private:
  // Writes where the next byte will stand.
  bool PutOffset(u32 field, std::string& error);

  std::vector<u8> bytes_;
};

}  // namespace Host
