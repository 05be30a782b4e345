#include "host/sql/Shell.h"

#include <utility>

#include "host/sql/SqlText.h"
#include "host/table/Database.h"

namespace Host::Sql {
namespace {

constexpr char kPrompt[] = "netdb> ";
constexpr char kPromptWithin[] = "  ...> ";

}  // namespace

Outcome Shell::Run() {
  for (;;) {
    std::string line;
    switch (lines_.Read(pending_.empty() ? kPrompt : kPromptWithin, line)) {
      case LineSource::Got::kLine:
        if (!Take(line)) {
          return result_;
        }
        break;
      case LineSource::Got::kDropped:
        pending_.clear();
        break;
      case LineSource::Got::kEnd:
        if (manner_ == Manner::kScript && !pending_.empty()) {
          RunPending();
        }
        return result_;
    }
  }
}

bool Shell::Take(const std::string& line) {
  const std::string trimmed = Trimmed(line);
  if (pending_.empty() && trimmed.rfind('.', 0) == 0) {
    lines_.Remember(trimmed);
    return GoesOnAfter(actions_.RunCommand(trimmed));
  }
  pending_ += line + '\n';
  if (IsBlank(pending_)) {
    pending_.clear();
    return true;
  }
  // Only a semicolon, or the end of a comment behind one, makes a statement whole. Without this look at the line alone
  // a statement of many lines would be read anew for each.
  const bool mayEnd = line.find_first_of(";/") != std::string::npos;
  return !mayEnd || !Table::Database::IsComplete(pending_) || RunPending();
}

bool Shell::RunPending() {
  const std::string sql = Trimmed(std::exchange(pending_, {}));
  lines_.Remember(sql);
  return GoesOnAfter(actions_.RunStatements(sql));
}

bool Shell::GoesOnAfter(Outcome outcome) {
  if (outcome == Outcome::kQuit) {
    return false;
  }
  const bool isScript = manner_ == Manner::kScript;
  if (outcome == Outcome::kOutputLost || (isScript && outcome != Outcome::kDone)) {
    result_ = outcome;
  }
  const bool hasFailed = outcome == Outcome::kFailed || outcome == Outcome::kInterrupted;
  return outcome != Outcome::kOutputLost && !(isScript && hasFailed);
}

}  // namespace Host::Sql
