// A redis-server of a test's own, in a directory of its own, on a unix socket or a port.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vu::testing {

// A directory that goes with what is in it.
class Directory {
 public:
  Directory();
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  ~Directory();
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Milliseconds that never go back.
std::int64_t now_ms();
void sleep_ms(unsigned milliseconds);

class RedisServer {
 public:
  // Starts it and waits until it answers. `port` 0: on a unix socket alone.
  explicit RedisServer(std::vector<std::string> options = {}, std::uint16_t port = 0);
  RedisServer(const RedisServer&) = delete;
  RedisServer& operator=(const RedisServer&) = delete;
  ~RedisServer() { kill(); }

  void start();
  void kill();           // SIGKILL, as a crash
  void shutdown_save();  // keeps the data for the next start()
  void pause();
  void resume();

  std::string url(const std::string& options = "") const;
  const std::string& socket() const { return socket_; }
  std::uint16_t port() const { return port_; }

  // One command; its reply in one line, arrays in brackets, errors as they are.
  std::string call(const std::vector<std::string>& words) const;
  void set_password(const std::string& password) { password_ = password; }

 private:
  bool answers() const;

  Directory directory_;
  std::string socket_;
  std::uint16_t port_;
  std::vector<std::string> options_;
  std::string password_;
  pid_t pid_ = -1;
};

}  // namespace vu::testing
