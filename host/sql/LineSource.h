// LineSource: where a shell has its lines from.
#pragma once

#include <istream>
#include <string>

namespace Host::Sql {

class LineSource {
 public:
  enum class Got {
    kLine,
    kDropped,  // the user gave up what was typed so far
    kEnd,
  };

  LineSource() = default;
  virtual ~LineSource() = default;
  LineSource(const LineSource&) = delete;
  LineSource& operator=(const LineSource&) = delete;

  // `line` is without its line feed; one that was recalled may hold line feeds within.
  virtual Got Read(const std::string& prompt, std::string& line) = 0;
  // Keeps an entry for recall, where there is recall.
  virtual void Remember(const std::string& entry) = 0;
};

// Lines of a script: no prompts, nothing to recall.
class StreamLines final : public LineSource {
 public:
  explicit StreamLines(std::istream& in) : in_(in) {}
  Got Read(const std::string& /*prompt*/, std::string& line) override {
    return std::getline(in_, line) ? Got::kLine : Got::kEnd;
  }
  void Remember(const std::string& /*entry*/) override {}

 private:
  std::istream& in_;
};

}  // namespace Host::Sql
