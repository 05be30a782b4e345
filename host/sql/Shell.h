// Shell: reads statements and dot commands, line by line, and has them run.
#pragma once

#include <string>

#include "host/sql/LineSource.h"
#include "host/sql/Outcome.h"

namespace Host::Sql {

// Statements are gathered until a semicolon ends them; a line that begins with a dot, where no statement is under way,
// is a command. Lifetime: one Run. Threads: thread-compatible.
class Shell {
 public:
  class Actions {
   public:
    Actions() = default;
    virtual ~Actions() = default;
    Actions(const Actions&) = delete;
    Actions& operator=(const Actions&) = delete;

    // One statement or several.
    virtual Outcome RunStatements(const std::string& sql) = 0;
    // A line such as ".tables", without blanks around it.
    virtual Outcome RunCommand(const std::string& line) = 0;
  };

  enum class Manner {
    kInteractive,  // goes on after a failure; a statement that the end of the input cuts short is dropped
    kScript,       // stops at the first failure; what is left at the end of the input is run too
  };

  Shell(LineSource& lines, Actions& actions, Manner manner) : lines_(lines), actions_(actions), manner_(manner) {}
  // To the end of the lines, or until the user leaves. Of a script: kFailed or kInterrupted when that ended it,
  // kPartial when rows were missing from any result. An interactive shell has told of both, and is done. kOutputLost
  // ends either.
  Outcome Run();

 private:
  // False when it is time to end.
  bool Take(const std::string& line);
  bool RunPending();
  bool GoesOnAfter(Outcome outcome);

  LineSource& lines_;
  Actions& actions_;
  Manner manner_;
  std::string pending_;  // whole lines
  Outcome result_ = Outcome::kDone;
};

}  // namespace Host::Sql
