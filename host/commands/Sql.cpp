#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <memory>

#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/sql/Completion.h"
#include "host/sql/DotCommands.h"
#include "host/sql/HistoryFile.h"
#include "host/sql/InterruptGuard.h"
#include "host/sql/LineEditor.h"
#include "host/sql/Shell.h"
#include "host/sql/SqlText.h"
#include "host/sql/StatementRunner.h"
#include "host/table/Columns.h"

namespace Host::Commands {
namespace {

using Sql::Outcome;

constexpr char kExamples[] =
    "  netdb sql                                             a shell; .help there tells more\n"
    "  netdb sql 'SELECT ip, sum(bytes_out) FROM edr_netdb GROUP BY ip ORDER BY 2 DESC LIMIT 10'\n"
    "  netdb sql \"SELECT ts(first_seen), proc_fpath FROM edr_netdb WHERE in_cidr(ip, '198.51.100.0/24')\"\n"
    "  netdb sql --format csv 'SELECT * FROM processes' > processes.csv\n"
    "  netdb sql .schema                                     the columns; also .tables, '.mode FORMAT'\n"
    "  netdb sql < questions.sql                             each statement of a file; the first that fails ends it\n";

struct Arguments {
  std::string dataFolder;
  std::string format = "table";
  std::vector<std::string> statements;
};

// What the shell does with what it reads.
class Actions final : public Sql::Shell::Actions {
 public:
  Actions(Table::Database& database, Sql::Printer& printer)
      : runner_(database, printer), commands_(database, printer) {}
  Outcome RunStatements(const std::string& sql) override { return runner_.Run(sql); }
  Outcome RunCommand(const std::string& line) override { return commands_.Run(line); }

 private:
  Sql::StatementRunner runner_;
  Sql::DotCommands commands_;
};

Sql::Printer PrinterOf(const Arguments& arguments) {
  Sql::Printer printer{std::cout, {}, PrintError, nullptr};
  printer.options.format = Render::FormatOf(arguments.format).value_or(Render::Format::kTable);
  printer.options.width = TerminalWidth(STDOUT_FILENO);
  printer.options.colour = WantsColour(STDOUT_FILENO);
  if (IsTerminal(STDOUT_FILENO) && IsTerminal(STDERR_FILENO)) {
    printer.footnote = [](const std::string& text) { std::cerr << text << '\n'; };
  }
  return printer;
}

std::vector<std::string> WordsToComplete(Table::Database& database) {
  std::vector<std::string> words = Sql::KnownWords();
  for (const std::string& name : Sql::TableNames(database)) {
    words.push_back(name);
  }
  for (const Table::TableColumn& column : Table::kColumns) {
    words.emplace_back(column.name);
  }
  return words;
}

Outcome RunStatements(Actions& actions, const std::vector<std::string>& statements) {
  Outcome worst = Outcome::kDone;
  for (const std::string& statement : statements) {
    const std::string trimmed = Sql::Trimmed(statement);
    const bool isCommand = trimmed.rfind('.', 0) == 0;
    const Outcome outcome = isCommand ? actions.RunCommand(trimmed) : actions.RunStatements(statement);
    if (outcome == Outcome::kQuit) {
      break;
    }
    worst = outcome == Outcome::kDone ? worst : outcome;
    if (worst != Outcome::kDone && worst != Outcome::kPartial) {
      break;
    }
  }
  return worst;
}

Outcome RunScript(Actions& actions) {
  Sql::StreamLines lines(std::cin);
  const Outcome outcome = Sql::Shell(lines, actions, Sql::Shell::Manner::kScript).Run();
  if (std::ferror(stdin) != 0) {
    PrintError("cannot read standard input");
    return Outcome::kFailed;
  }
  return outcome;
}

Outcome RunShell(Table::Database& database, Actions& actions) {
  const Sql::InterruptGuard ignored(nullptr);  // between statements
  Sql::LineEditor editor(Sql::HistoryFile(Sql::HistoryFile::UsualPath()), WordsToComplete(database));
  std::cout << "Statements end with a semicolon; .help tells more.\n" << std::flush;
  return Sql::Shell(editor, actions, Sql::Shell::Manner::kInteractive).Run();
}

int Run(const Arguments& arguments) {
  Table::Database database(arguments.dataFolder);
  std::string error;
  if (!database.Open(error)) {
    PrintError(error);
    return kFailed;
  }
  Sql::Printer printer = PrinterOf(arguments);
  Actions actions(database, printer);
  const bool isShell = arguments.statements.empty() && IsTerminal(STDIN_FILENO) && IsTerminal(STDOUT_FILENO);
  const Outcome outcome = !arguments.statements.empty() ? RunStatements(actions, arguments.statements)
                          : isShell                     ? RunShell(database, actions)
                                                        : RunScript(actions);
  if (!FinishOutput(std::cout)) {
    return kFailed;
  }
  return outcome == Outcome::kDone ? kDone : outcome == Outcome::kPartial ? kPartial : kFailed;
}

}  // namespace

Command AddSql(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("sql", "Ask the stored connections in SQL, or open a shell for it");
  AddDataOption(options, arguments->dataFolder);
  options.Text("--format", arguments->format, "How results are printed")
      .OneOf({"table", "json", "jsonl", "csv", "line"})
      .ShowDefault();
  options.Texts("STATEMENT", arguments->statements,
                "SQL; without it statements are read from standard input, or typed in a shell");
  return {options.Name(), [arguments] { return Run(*arguments); }, kExamples};
}

}  // namespace Host::Commands
