// Program: runs the built netdb and collects what it says.
#pragma once

#include <string>
#include <vector>

struct ProgramResult {
  int exitCode = -1;  // 128 + the signal's number when one ended it
  std::string out;
  std::string err;
};

// `input` is standard input, through a pipe. `environment` holds NAME=VALUE texts that are added to this process's own.
ProgramResult RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& input = {}, const std::vector<std::string>& environment = {});

// The netdb of this build.
ProgramResult RunNetdb(const std::vector<std::string>& arguments, const std::string& input = {},
                       const std::vector<std::string>& environment = {});
