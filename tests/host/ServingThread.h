// ServingThread: a control socket that answers every request with one message, while it lives.
#pragma once

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <string>
#include <thread>
#include <vector>

#include "host/Descriptor.h"
#include "host/control/Client.h"
#include "host/control/Server.h"

class ServingThread {
 public:
  ServingThread(const std::string& dataFolder, Host::Control::Message answer)
      : server_([answer](const Host::Control::Message&) { return answer; }), stop_(eventfd(0, EFD_CLOEXEC)) {
    std::string error;
    EXPECT_TRUE(server_.Open(dataFolder, error)) << error;
    thread_ = std::thread([this] { Serve(); });
  }
  ~ServingThread() {
    eventfd_write(stop_.Get(), 1);
    thread_.join();
  }
  ServingThread(const ServingThread&) = delete;
  ServingThread& operator=(const ServingThread&) = delete;

 private:
  void Serve() {
    const auto nowMs = Host::Control::Waiting::Real().nowMs;
    std::vector<pollfd> descriptors;
    do {
      server_.Serve(nowMs());
      descriptors = {{stop_.Get(), POLLIN, 0}};
      server_.Watch(descriptors, nowMs());
    } while (poll(descriptors.data(), descriptors.size(), server_.TimeoutMs(nowMs())) >= 0 &&
             descriptors[0].revents == 0);
  }

  Host::Control::Server server_;
  Host::Descriptor stop_;
  std::thread thread_;
};
