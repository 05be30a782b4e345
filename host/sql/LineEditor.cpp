#include "host/sql/LineEditor.h"

#include <histedit.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <stdexcept>
#include <utility>

#include "host/sql/Completion.h"

namespace Host::Sql {
namespace {

struct EditorEnd {
  void operator()(EditLine* editor) const { el_end(editor); }
};
struct HistoryEnd {
  void operator()(History* history) const { history_end(history); }
};

}  // namespace

struct LineEditor::State {
  State(HistoryFile file, std::vector<std::string> known) : historyFile(std::move(file)), words(std::move(known)) {}

  HistoryFile historyFile;
  std::vector<std::string> words;
  std::string prompt;
  bool dropped = false;
  std::unique_ptr<History, HistoryEnd> history;
  std::unique_ptr<EditLine, EditorEnd> editor;  // uses the history, so it goes first
};

namespace {

using Editor = EditLine;

// libedit knows its client by an untyped pointer.
template <class State>
State& StateOf(Editor* editor) {
  void* state = nullptr;
  el_get(editor, EL_CLIENTDATA, &state);
  return *static_cast<State*>(state);
}

// What stands left of the cursor.
std::string BeforeCursor(Editor* editor) {
  const LineInfo* line = el_line(editor);
  return {line->buffer, line->cursor};
}

void Replace(Editor* editor, std::size_t characters, const std::string& text) {
  el_deletestr(editor, static_cast<int>(characters));
  el_insertstr(editor, text.c_str());
}

void PrintChoices(const std::vector<std::string>& choices) {
  std::string text = "\n";
  for (const std::string& choice : choices) {
    text += choice + "  ";
  }
  std::fputs((text + "\n").c_str(), stdout);
}

unsigned char CompleteWord(Editor* editor, const std::vector<std::string>& words) {
  const std::string before = BeforeCursor(editor);
  const std::string word(WordAtEnd(before));
  const std::vector<std::string> choices = Completions(words, word);
  if (choices.empty()) {
    return CC_REFRESH_BEEP;
  }
  const std::string start = CommonStart(choices);
  if (choices.size() == 1) {
    Replace(editor, word.size(), start + (start.back() == '(' ? "" : " "));
    return CC_REFRESH;
  }
  if (start.size() > word.size()) {
    Replace(editor, word.size(), start);
    return CC_REFRESH;
  }
  PrintChoices(choices);
  return CC_REDISPLAY;
}

// As a terminal does it, which does not while a line is edited.
unsigned char StopProgram(Editor* editor, wint_t /*key*/) {
  std::fputs("^Z\n", stdout);
  el_set(editor, EL_PREP_TERM, 0);
  std::raise(SIGTSTP);
  el_set(editor, EL_PREP_TERM, 1);
  return CC_REDISPLAY;
}

void UseLocale() {
  std::setlocale(LC_CTYPE, "");
  if (MB_CUR_MAX == 1) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
  }
}

void BindKeys(Editor* editor) {
  // Keys, not signals, while a line is edited: an interrupted read of the terminal would be the end of the input.
  el_set(editor, EL_SETTY, "-d", "-isig", nullptr);
  el_set(editor, EL_BIND, "^C", "netdb-drop", nullptr);
  el_set(editor, EL_BIND, "^Z", "netdb-stop", nullptr);
  el_set(editor, EL_BIND, "^I", "netdb-complete", nullptr);
  el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
}

}  // namespace

LineEditor::LineEditor(HistoryFile historyFile, std::vector<std::string> words)
    : state_(std::make_unique<State>(std::move(historyFile), std::move(words))) {
  UseLocale();
  State& state = *state_;
  state.history.reset(history_init());
  state.editor.reset(el_init("netdb", stdin, stdout, stderr));
  if (state.history == nullptr || state.editor == nullptr) {
    throw std::runtime_error("the terminal cannot be used");
  }
  HistEvent event = {};
  ::history(state.history.get(), &event, H_SETSIZE, static_cast<int>(HistoryFile::kMostEntries));
  ::history(state.history.get(), &event, H_SETUNIQUE, 1);
  for (const std::string& entry : state.historyFile.Open()) {
    ::history(state.history.get(), &event, H_ENTER, entry.c_str());
  }

  Editor* editor = state.editor.get();
  const auto prompt = +[](Editor* client) { return StateOf<State>(client).prompt.data(); };
  const auto drop = +[](Editor* client, wint_t) -> unsigned char {
    StateOf<State>(client).dropped = true;
    std::fputs("^C\n", stdout);
    return CC_NEWLINE;
  };
  const auto complete = +[](Editor* client, wint_t) { return CompleteWord(client, StateOf<State>(client).words); };
  el_set(editor, EL_CLIENTDATA, &state);
  el_set(editor, EL_PROMPT, prompt);
  el_set(editor, EL_EDITOR, "emacs");
  el_set(editor, EL_HIST, ::history, state.history.get());
  // The narrow form leaks its names.
  el_wset(editor, EL_ADDFN, L"netdb-drop", L"Drop the line", drop);
  el_wset(editor, EL_ADDFN, L"netdb-stop", L"Stop the program", StopProgram);
  el_wset(editor, EL_ADDFN, L"netdb-complete", L"Complete a word", complete);
  BindKeys(editor);
  el_source(editor, nullptr);  // what the user wants otherwise
}

LineEditor::~LineEditor() = default;

LineSource::Got LineEditor::Read(const std::string& prompt, std::string& line) {
  State& state = *state_;
  state.prompt = prompt;
  state.dropped = false;
  el_resize(state.editor.get());
  el_set(state.editor.get(), EL_PREP_TERM, 1);  // before the prompt: what follows it is keys
  int size = 0;
  const char* text = el_gets(state.editor.get(), &size);
  if (state.dropped) {
    return Got::kDropped;
  }
  if (text == nullptr || size <= 0) {
    std::fputs("\n", stdout);
    return Got::kEnd;
  }
  line = text;
  if (!line.empty() && line.back() == '\n') {
    line.pop_back();
  }
  return Got::kLine;
}

void LineEditor::Remember(const std::string& entry) {
  HistEvent event = {};
  if (::history(state_->history.get(), &event, H_ENTER, entry.c_str()) == 1) {  // not the last one again
    state_->historyFile.Add(entry);
  }
}

}  // namespace Host::Sql
