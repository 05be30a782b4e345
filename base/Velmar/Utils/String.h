// String: the growable byte string of the whole system, able to start in a caller's area.
//
//   char area[256];
//   String path;
//   path.Create(area, sizeof(area), true, true);
//   if (!path.SetFormat("%s/%llu.db", folder, day)) return false;
#pragma once

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::Collections {
class Buffer;
class StreamBuffer;
}  // namespace Velmar::Collections

namespace Velmar::Utils {

// A NUL-terminated byte string (UTF-8 by convention) with its length.
//
// Lifetime: starts empty, in its own one-byte area, in a caller's area after Create(area, ...), and on the heap when it
// outgrows that. The area must outlive the string or its next move to the heap.
// Threads: thread-compatible.
// Errors: every growing call returns false when memory is exhausted or the length would pass 2^31 - 2; the content is
// then what it was before. Copy construction that fails leaves an empty string; callers that care use Set.
// `ignoreCase` folds ASCII A to Z only. A length of -1 means up to the terminator.
class RYL_API String {
 public:
  const char* text;  // Never null, always terminated. Read-only for callers.
  i32 length;        // Bytes before the terminator. Read-only for callers.

  String();
  // Copies `initial`; null is empty. `copy` is always true.
  String(const char* initial, bool copy);
  String(const String& other);
  String(String&& other) noexcept;
  String& operator=(const String& other);
  String& operator=(String&& other) noexcept;
  ~String();

  // Room for `capacity` bytes and the terminator. Content becomes empty.
  bool Create(int capacity);
  // Works in `area` of `size` bytes. `startEmpty`: content becomes empty, else the text that is in the area.
  // `mayLeaveArea`: outgrowing moves to the heap, else it fails.
  bool Create(char* area, int size, bool startEmpty, bool mayLeaveArea);

  bool Set(const char* source, int sourceLength = -1);
  bool Set(const String* source, int sourceLength = -1);
  // printf formatting, the same on every platform (%llu too) and in every locale while no floating-point conversion is
  // used. The arguments may not point into this string.
  bool SetFormat(const char* format, ...) RYL_PRINTF(2, 3);
  bool AddFormat(const char* format, ...) RYL_PRINTF(2, 3);
  bool Add(const char* source, int sourceLength = -1);
  bool AddChar(char c);

  void Clear();
  // Shortens to `newLength`; false, with nothing changed, if that is negative or beyond the end.
  bool Truncate(int newLength);
  // The byte at `index`, -1 being the last one; 0 when there is none.
  [[nodiscard]] char GetChar(int index) const;
  void ConvertToLower();

  // Negative, 0 or positive, bytes compared as unsigned values. Null compares as the empty text.
  [[nodiscard]] int Compare(const char* other, bool ignoreCase) const;
  [[nodiscard]] int Compare(const String& other, bool ignoreCase) const;
  static int Compare(const char* a, const char* b, bool ignoreCase);

  bool operator==(const String& other) const;
  bool operator!=(const String& other) const;
  bool operator<(const String& other) const;
  bool operator>(const String& other) const;

  static bool Equals(const char* a, const char* b, bool ignoreCase);
  [[nodiscard]] bool EndsWith(const char* tail, bool ignoreCase) const;
  [[nodiscard]] bool EndsWith(char tail, bool ignoreCase) const;
  static bool EndsWith(const char* text, const char* tail, bool ignoreCase, int textLength, int tailLength);

  // Index of the first match of `what` in `text` at or after `start`, or -1. With `backwards` the last match at or
  // before the end. `what` empty matches at `start`.
  static int Find(const char* text, const char* what, bool ignoreCase, int start, bool backwards, int textLength,
                  int whatLength);
  // Space, tab, newline, vertical tab, form feed, carriage return.
  static bool IsSpace(char c);

  // Hex digits of `data` with a terminator. `upperCase` and `separate` (a blank between bytes) are false in all calls
  // of this system. False, with `out` untouched, if the output does not fit `outSize`.
  static bool BufferToHex(const void* data, u32 size, char* out, u32 outSize, bool upperCase, bool separate);

  // Parses a whole number; false on a bad digit, an empty text or overflow, with `value` untouched.
  // `textLength` 0 or -1: to the terminator. `base` -1: by prefix, 0x is 16, else 10. `stop`: the number may end at
  // that character; 0xFF means no stop character.
  static bool ConvertToUInt16(const char* text, u16& value, u32 textLength, int base);
  static bool ConvertToUInt64(const char* text, u64& value, u32 textLength, int base, char stop);

  // Serial form: u32 length, then the bytes. The second argument is always null. On a failed read the string is as it
  // was; a length above what is left in the stream fails before anything is allocated.
  bool Serialize(Collections::Buffer& out, void* context) const;
  bool Deserialize(Collections::StreamBuffer& in, void* context);

 private:
  bool ReserveFor(i32 newLength);
  void SetLength(i32 newLength);
  bool FormatAt(i32 at, const char* format, __builtin_va_list arguments) RYL_PRINTF(3, 0);
  void Release();
  void TakeFrom(String& other);

  char* storage_;     // Writable view of `text`; equals &empty_ when there is no storage.
  i32 capacity_;      // Bytes in storage_, terminator included.
  bool ownsStorage_;  // storage_ is on the heap.
  bool mayLeaveArea_;
  char empty_;
};

}  // namespace Velmar::Utils
