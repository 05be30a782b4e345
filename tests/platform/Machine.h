// Machine: what the contract tests need of the machine they run on, real or simulated.
#pragma once

#include <gtest/gtest.h>

#include <string>

// Makes and removes an empty folder for one test.
class Machine {
 public:
  Machine();
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  [[nodiscard]] const std::string& Folder() const { return folder_; }
  // Beside the platform door, so that the tests see what is really there.
  void Put(const std::string& path, const std::string& content);
  bool Get(const std::string& path, std::string& content);

 private:
  std::string folder_;
};

class MachineTest : public testing::Test {
 protected:
  [[nodiscard]] std::string Path(const std::string& name) const { return machine_.Folder() + "/" + name; }
  void Put(const std::string& name, const std::string& content) { machine_.Put(Path(name), content); }
  // "(missing)" when there is no such file.
  std::string Content(const std::string& name) {
    std::string content;
    return machine_.Get(Path(name), content) ? content : "(missing)";
  }

  Machine machine_;
};
