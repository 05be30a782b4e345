#include "host/sql/DotCommands.h"

#include <algorithm>
#include <optional>
#include <sstream>

#include "host/table/Columns.h"

namespace Host::Sql {
namespace {

constexpr char kTable[] = "edr_netdb";
constexpr char kHelp[] =
    ".tables          the tables and views\n"
    ".schema [NAME]   the columns of all, or of one\n"
    ".mode [FORMAT]   how results are printed: table, json, jsonl, csv or line; without one, which it is\n"
    ".help            this list\n"
    ".quit            leave; so does .exit, and Ctrl-D\n"
    "\n"
    "A statement ends with a semicolon and may have many lines. Ctrl-C drops what is typed, or interrupts\n"
    "the statement that runs.\n";
constexpr const char* kFormatNames[] = {"table", "json", "jsonl", "csv", "line"};

// Rows of texts.
class TextRows final : public Table::Database::Sink {
 public:
  bool Begin(const std::vector<Table::Database::Column>& /*columns*/) override { return true; }
  bool Row(const std::vector<Cell>& cells) override {
    std::vector<std::string> texts;
    for (const Cell& cell : cells) {
      const std::string* text = std::get_if<std::string>(&cell);
      texts.push_back(text == nullptr ? std::string() : *text);
    }
    rows.push_back(texts);
    return true;
  }
  bool End() override { return true; }

  std::vector<std::vector<std::string>> rows;
};

struct NamedStatement {
  std::string name;
  std::string sql;
};

// As SQLite keeps them. They are texts of ours or the user's own tables in memory; no file is read.
std::vector<NamedStatement> SchemaOf(Table::Database& database) {
  constexpr char kStatement[] =
      "SELECT name, sql FROM (SELECT * FROM sqlite_schema UNION ALL SELECT * FROM sqlite_temp_schema)"
      " WHERE type IN ('table', 'view') AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\' ORDER BY name";
  TextRows rows;
  std::string error;
  database.Run(kStatement, {}, rows, error);
  std::vector<NamedStatement> schema;
  for (const std::vector<std::string>& row : rows.rows) {
    schema.push_back({row[0], row[1]});
  }
  return schema;
}

// A virtual table's own statement does not name its columns.
std::string DeclarationOfTable() {
  std::string text = std::string("CREATE TABLE ") + kTable + "(";
  for (const Table::TableColumn& column : Table::kColumns) {
    text += (text.back() == '(' ? "\n  " : ",\n  ") + std::string(column.name) + ' ' + column.type;
  }
  return text + "\n)";
}

bool SameName(const std::string& a, const std::string& b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&lower](char x, char y) { return lower(x) == lower(y); });
}

std::vector<std::string> WordsOf(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> word;) {
    if (word.back() == ';') {  // out of habit
      word.pop_back();
    }
    if (!word.empty()) {
      words.push_back(word);
    }
  }
  return words;
}

}  // namespace

std::vector<std::string> TableNames(Table::Database& database) {
  std::vector<std::string> names;
  for (const NamedStatement& statement : SchemaOf(database)) {
    names.push_back(statement.name);
  }
  return names;
}

Outcome DotCommands::Run(const std::string& line) {
  using Method = Outcome (DotCommands::*)(const std::string& argument);
  struct Known {
    const char* name;
    bool takesOne;
    Method method;
  };
  static constexpr Known kKnown[] = {
      {".tables", false, &DotCommands::ShowTables}, {".schema", true, &DotCommands::ShowSchema},
      {".mode", true, &DotCommands::SetMode},       {".help", false, &DotCommands::ShowHelp},
      {".quit", false, &DotCommands::Quit},         {".exit", false, &DotCommands::Quit}};
  const std::vector<std::string> words = WordsOf(line);
  const std::string command = words.empty() ? std::string() : words[0];
  for (const Known& known : kKnown) {
    if (command == known.name) {
      const bool tooMany = words.size() > (known.takesOne ? 2U : 1U);
      return tooMany ? Fail(command + " takes " + (known.takesOne ? "one word" : "nothing") + " after it")
                     : (this->*known.method)(words.size() > 1 ? words[1] : std::string());
    }
  }
  return Fail("there is no command \"" + command + "\"; there are .tables, .schema, .mode, .help and .quit");
}

Outcome DotCommands::ShowTables(const std::string& /*argument*/) {
  for (const std::string& name : TableNames(database_)) {
    printer_.out << name << '\n';
  }
  return Printed();
}

Outcome DotCommands::ShowSchema(const std::string& name) {
  bool found = false;
  for (const NamedStatement& statement : SchemaOf(database_)) {
    if (name.empty() || SameName(name, statement.name)) {
      printer_.out << (statement.name == kTable ? DeclarationOfTable() : statement.sql) << ";\n";
      found = true;
    }
  }
  return found ? Printed() : Fail("there is no table \"" + name + "\"; .tables lists them");
}

Outcome DotCommands::SetMode(const std::string& name) {
  if (name.empty()) {
    printer_.out << kFormatNames[static_cast<std::size_t>(printer_.options.format)] << '\n';
    return Printed();
  }
  const std::optional<Render::Format> format = Render::FormatOf(name);
  if (!format) {
    return Fail("there is no format \"" + name + "\"; there are table, json, jsonl, csv and line");
  }
  printer_.options.format = *format;
  return Outcome::kDone;
}

Outcome DotCommands::ShowHelp(const std::string& /*argument*/) {
  printer_.out << kHelp;
  return Printed();
}

Outcome DotCommands::Quit(const std::string& /*argument*/) {
  return Outcome::kQuit;
}

Outcome DotCommands::Fail(const std::string& message) {
  printer_.error(message);
  return Outcome::kFailed;
}

Outcome DotCommands::Printed() {
  printer_.out.flush();
  return printer_.out.good() ? Outcome::kDone : Outcome::kOutputLost;
}

}  // namespace Host::Sql
