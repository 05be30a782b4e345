// Outcome: what came of a statement or a command of the shell.
#pragma once

namespace Host::Sql {

enum class Outcome {
  kDone,
  kPartial,      // rows are missing, and messages said which
  kFailed,       // a message said why
  kInterrupted,  // so did one
  kOutputLost,   // nothing more can be printed
  kQuit,         // the user wants to leave
};

}  // namespace Host::Sql
