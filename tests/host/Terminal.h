// Terminal: runs the built netdb on a terminal of its own.
#pragma once

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

// What it prints there, both streams; `columns` is the terminal's width. It has to end with exit code 0.
inline std::string RunOnTerminal(std::vector<std::string> arguments, unsigned short columns = 100) {
  winsize size = {};
  size.ws_col = columns;
  size.ws_row = 24;
  std::vector<char*> words = {const_cast<char*>("netdb")};
  for (std::string& argument : arguments) {
    words.push_back(argument.data());
  }
  words.push_back(nullptr);
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
  if (child == 0) {
    execv(NETDB_PROGRAM, words.data());
    _exit(127);
  }
  std::string text;
  char block[4096];
  for (ssize_t got = 0; (got = read(terminal, block, sizeof(block))) > 0;) {
    text.append(block, static_cast<std::size_t>(got));
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  close(terminal);
  return text;
}
