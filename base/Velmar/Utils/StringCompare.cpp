#include <cstring>

#include "Velmar/Utils/String.h"

namespace Velmar::Utils {

namespace {

u8 Fold(char c) {
  return static_cast<u8>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

const char* OrEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

// What a text and its length argument stand for; a null text has no bytes, whatever its length says.
std::size_t LengthOf(const char* text, int length) {
  if (text == nullptr) {
    return 0;
  }
  return length == -1 ? std::strlen(text) : static_cast<std::size_t>(length);
}

int CompareBytes(const char* a, const char* b, std::size_t count, bool ignoreCase) {
  if (!ignoreCase) {
    return std::memcmp(a, b, count);
  }
  for (std::size_t i = 0; i < count; ++i) {
    const int difference = Fold(a[i]) - Fold(b[i]);
    if (difference != 0) {
      return difference;
    }
  }
  return 0;
}

int CompareTexts(const char* a, std::size_t aLength, const char* b, std::size_t bLength, bool ignoreCase) {
  const int order = CompareBytes(a, b, aLength < bLength ? aLength : bLength, ignoreCase);
  if (order != 0 || aLength == bLength) {
    return order;
  }
  return aLength < bLength ? -1 : 1;
}

}  // namespace

void String::ConvertToLower() {
  for (i32 i = 0; i < length; ++i) {
    storage_[i] = static_cast<char>(Fold(storage_[i]));
  }
}

int String::Compare(const char* other, bool ignoreCase) const {
  const char* b = OrEmpty(other);
  return CompareTexts(text, static_cast<std::size_t>(length), b, std::strlen(b), ignoreCase);
}

int String::Compare(const String& other, bool ignoreCase) const {
  return CompareTexts(text, static_cast<std::size_t>(length), other.text, static_cast<std::size_t>(other.length),
                      ignoreCase);
}

int String::Compare(const char* a, const char* b, bool ignoreCase) {
  a = OrEmpty(a);
  b = OrEmpty(b);
  return CompareTexts(a, std::strlen(a), b, std::strlen(b), ignoreCase);
}

bool String::operator==(const String& other) const {
  return Compare(other, false) == 0;
}
bool String::operator!=(const String& other) const {
  return Compare(other, false) != 0;
}
bool String::operator<(const String& other) const {
  return Compare(other, false) < 0;
}
bool String::operator>(const String& other) const {
  return Compare(other, false) > 0;
}

bool String::Equals(const char* a, const char* b, bool ignoreCase) {
  return Compare(a, b, ignoreCase) == 0;
}

bool String::EndsWith(const char* tail, bool ignoreCase) const {
  return EndsWith(text, tail, ignoreCase, length, -1);
}

bool String::EndsWith(char tail, bool ignoreCase) const {
  return EndsWith(text, &tail, ignoreCase, length, 1);
}

bool String::EndsWith(const char* text, const char* tail, bool ignoreCase, int textLength, int tailLength) {
  if (textLength < -1 || tailLength < -1) {
    return false;
  }
  const std::size_t whole = LengthOf(text, textLength);
  const std::size_t part = LengthOf(tail, tailLength);
  return part <= whole && CompareBytes(OrEmpty(text) + (whole - part), OrEmpty(tail), part, ignoreCase) == 0;
}

int String::Find(const char* text, const char* what, bool ignoreCase, int start, bool backwards, int textLength,
                 int whatLength) {
  if (textLength < -1 || whatLength < -1 || start < 0) {
    return -1;
  }
  const i64 whole = static_cast<i64>(LengthOf(text, textLength));
  const i64 part = static_cast<i64>(LengthOf(what, whatLength));
  const i64 last = whole - part;
  if (part == 0) {
    return start <= whole ? start : -1;
  }
  const i64 step = backwards ? -1 : 1;
  for (i64 i = backwards ? last : start; i >= start && i <= last; i += step) {
    if (CompareBytes(text + i, what, static_cast<std::size_t>(part), ignoreCase) == 0) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

bool String::IsSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace Velmar::Utils
