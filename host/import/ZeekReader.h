// ZeekReader: connections out of Zeek's conn.log, in its tab-separated form and as one JSON object a line.
#pragma once

#include <array>

#include "host/import/FlatJson.h"
#include "host/import/RecordedConnection.h"

namespace Host::Import {

// Columns of the tab-separated form are found by the `#fields` line, whatever stands before or behind those needed; a
// row with another number of columns is malformed. In the JSON form both "id.orig_h" and "id_orig_h" are read.
class ZeekReader final : public ConnectionReader {
 public:
  // `local` must outlive this.
  explicit ZeekReader(const LocalNetworks& local) : local_(local) {}

  void StartFile() override;
  Finding Read(std::string_view line, RecordedConnection& connection) override;

 private:
  enum Field {
    kTime,
    kOriginator,
    kResponder,
    kResponderPort,
    kProtocol,
    kService,
    kDuration,
    kSent,
    kReceived,
    kFields
  };
  // A value per field; nothing where it is unset.
  using Values = std::array<std::optional<std::string>, kFields>;

  void ReadHeader(std::string_view line);
  bool ReadColumns(std::string_view line, Values& values) const;
  bool ReadObject(std::string_view line, Values& values);
  Finding Interpret(const Values& values, RecordedConnection& connection) const;
  static bool ReadTraffic(const Values& values, bool originatorIsLocal, RecordedConnection& connection);

  const LocalNetworks& local_;
  FlatJson object_;
  char separator_ = '\t';
  std::string unset_ = "-";
  std::string empty_ = "(empty)";
  char setSeparator_ = ',';
  bool isConnectionLog_ = true;
  std::size_t columns_ = 0;  // 0 before a `#fields` line
  std::array<std::size_t, kFields> columnOf_{};
};

}  // namespace Host::Import
