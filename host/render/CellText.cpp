#include "host/render/CellText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "host/text/TimeText.h"
#include "host/text/Utf8.h"

namespace Host::Render {
namespace {

// Stays a real number where it is read again: "3.0", not "3".
std::string RealText(double number) {
  if (std::isnan(number)) {
    return "NaN";
  }
  if (std::isinf(number)) {
    return number < 0 ? "-Inf" : "Inf";
  }
  char digits[32];
  const std::string text(digits, std::to_chars(digits, digits + sizeof(digits), number).ptr);
  return text.find_first_of(".e") == std::string::npos ? text + ".0" : text;
}

std::string UtcText(u64 milliseconds) {
  std::string text = Text::FormatUtc(milliseconds / 1000);
  if (milliseconds % 1000 != 0) {
    char fraction[8];
    std::snprintf(fraction, sizeof(fraction), ".%03u", static_cast<unsigned>(milliseconds % 1000));
    text.insert(text.size() - 1, fraction);
  }
  return text;
}

// As JSON writes them: no sign but a minus, no zero in front.
bool IsWholeNumber(const std::string& text) {
  const std::string digits = text.substr(text.rfind('-', 0) == 0 ? 1 : 0);
  return !digits.empty() && std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
         (digits[0] != '0' || digits.size() == 1);
}

}  // namespace

std::string TextOf(const Cell& cell, ColumnKind kind, TimeStyle times) {
  if (const i64* number = std::get_if<i64>(&cell)) {
    const bool asTime = kind == ColumnKind::kTimeMs && times == TimeStyle::kUtc && *number >= 0;
    return asTime ? UtcText(static_cast<u64>(*number)) : std::to_string(*number);
  }
  if (const double* number = std::get_if<double>(&cell)) {
    return RealText(*number);
  }
  const std::string* text = std::get_if<std::string>(&cell);
  return text == nullptr ? std::string() : *text;
}

std::string JsonOf(const Cell& cell, ColumnKind kind) {
  const double* real = std::get_if<double>(&cell);
  if (std::holds_alternative<std::monostate>(cell) || (real != nullptr && !std::isfinite(*real))) {
    return "null";
  }
  const std::string text = TextOf(cell, kind, TimeStyle::kEpochMs);
  const bool isString =
      std::holds_alternative<std::string>(cell) && (kind != ColumnKind::kNumber || !IsWholeNumber(text));
  return isString ? Text::ToJsonString(text) : text;
}

}  // namespace Host::Render
