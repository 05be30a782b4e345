#include "tests/host/Program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "tests/host/TemporaryFolder.h"

namespace {

void WriteAll(int descriptor, const std::string& text) {
  std::size_t at = 0;
  while (at < text.size()) {
    const ssize_t size = write(descriptor, text.data() + at, text.size() - at);
    if (size <= 0) {
      break;
    }
    at += static_cast<std::size_t>(size);
  }
  close(descriptor);
}

void Redirect(const std::string& path, int to) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  dup2(descriptor, to);
  close(descriptor);
}

[[noreturn]] void Become(std::vector<std::string> words, std::vector<std::string> environment) {
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  for (std::string& text : environment) {
    putenv(text.data());
  }
  execv(arguments[0], arguments.data());
  _exit(127);
}

}  // namespace

ProgramResult RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& input, const std::vector<std::string>& environment) {
  const TemporaryFolder folder;
  int ends[2] = {-1, -1};
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  std::vector<std::string> words = {program};
  words.insert(words.end(), arguments.begin(), arguments.end());

  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[0], STDIN_FILENO);
    Redirect(folder.Path("out"), STDOUT_FILENO);
    Redirect(folder.Path("err"), STDERR_FILENO);
    Become(std::move(words), environment);
  }
  close(ends[0]);
  signal(SIGPIPE, SIG_IGN);
  std::thread writer(&WriteAll, ends[1], input);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  writer.join();

  ProgramResult result;
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = TemporaryFolder::Get(folder.Path("out"));
  result.err = TemporaryFolder::Get(folder.Path("err"));
  return result;
}

ProgramResult RunNetdb(const std::vector<std::string>& arguments, const std::string& input,
                       const std::vector<std::string>& environment) {
  return RunProgram(NETDB_PROGRAM, arguments, input, environment);
}
