#include "host/render/LogText.h"

#include <algorithm>
#include <type_traits>

namespace Host::Render {
namespace {

using namespace Velmar;  // NOLINT(google-build-using-namespace): the argument types of the rows

template <class T>
std::string TakeArgument(std::va_list& arguments) {
  if constexpr (std::is_same_v<T, const char*>) {
    const char* text = va_arg(arguments, const char*);
    return text == nullptr ? "(null)" : text;
  } else if constexpr (std::is_same_v<T, double>) {
    std::string text = std::to_string(va_arg(arguments, double));
    text.erase(std::max(text.find_last_not_of('0'), text.find('.') + 1) + 1);
    return text;
  } else {
    static_assert(std::is_integral_v<T>, "a log argument is a number or a text");
    return std::to_string(static_cast<T>(va_arg(arguments, decltype(+T{}))));
  }
}

template <class Signature>
struct Decoder;

template <class... Arguments>
struct Decoder<void(Arguments...)> {
  static std::vector<std::string> Decode(std::va_list arguments) {
    std::va_list copy;
    va_copy(copy, arguments);
    // Braces evaluate from left to right.
    std::vector<std::string> texts{TakeArgument<std::remove_cv_t<Arguments>>(copy)...};
    va_end(copy);
    return texts;
  }
};

std::vector<LogText> SortedRows() {
  std::vector<LogText> rows = {
#define MESSAGE_OF(folder, name, level, arguments, text) \
  {HashIdentifier(folder "." #name), level, folder "." #name, text, &Decoder<void arguments>::Decode},
#define MESSAGE(name, level, arguments, text) MESSAGE_OF("base", name, level, arguments, text)
#include "base/Messages.def"
#undef MESSAGE
#define MESSAGE(name, level, arguments, text) MESSAGE_OF("velmar", name, level, arguments, text)
#include "velmarlib/Messages.def"
#undef MESSAGE
#define MESSAGE(name, level, arguments, text) MESSAGE_OF("cloud", name, level, arguments, text)
#include "common/cloud/Messages.def"
#undef MESSAGE
#define MESSAGE(name, level, arguments, text) MESSAGE_OF("netdb_storage", name, level, arguments, text)
#include "common/netdb_storage/Messages.def"
#undef MESSAGE
#define MESSAGE(name, level, arguments, text) MESSAGE_OF("osquery", name, level, arguments, text)
#include "osquery/osquery/Messages.def"
#undef MESSAGE
#define MESSAGE(name, level, arguments, text) MESSAGE_OF("ryl_netdb", name, level, arguments, text)
#include "common/libryl_netdb/Messages.def"
#undef MESSAGE
#undef MESSAGE_OF
  };
  std::sort(rows.begin(), rows.end(), [](const LogText& a, const LogText& b) { return a.id < b.id; });
  return rows;
}

}  // namespace

const std::vector<LogText>& AllLogTexts() {
  static const std::vector<LogText> rows = SortedRows();
  return rows;
}

const LogText* FindLogText(u32 messageId) {
  const auto& rows = AllLogTexts();
  const auto found =
      std::lower_bound(rows.begin(), rows.end(), messageId, [](const LogText& row, u32 id) { return row.id < id; });
  return found != rows.end() && found->id == messageId ? &*found : nullptr;
}

std::string FormatLogText(const LogText& row, const std::vector<std::string>& arguments) {
  std::string result;
  for (const char* at = row.text; *at != '\0'; ++at) {
    const bool isPlace = at[0] == '{' && at[1] >= '0' && at[1] <= '9' && at[2] == '}';
    if (!isPlace) {
      result += *at;
      continue;
    }
    const auto index = static_cast<std::size_t>(at[1] - '0');
    result += index < arguments.size() ? arguments[index] : "?";
    at += 2;
  }
  return result;
}

}  // namespace Host::Render
