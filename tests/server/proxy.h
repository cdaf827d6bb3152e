// What stands between a client and a unix socket and does harm to what passes.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

#include "redis_server.h"

namespace vu::testing {

class Proxy {
 public:
  enum class Harm {
    kNone,
    kBlackHole,  // nothing passes, in either direction
    kTrickle,    // replies come in single bytes, one each millisecond
    kCorrupt,    // `after` bytes of replies pass, then other bytes come
    kReset       // `after` bytes of replies pass, then the connection breaks
  };

  explicit Proxy(const std::string& server);
  Proxy(const Proxy&) = delete;
  Proxy& operator=(const Proxy&) = delete;
  ~Proxy();

  std::string url(const std::string& options = "") const {
    return "redis+unix://" + socket_ + options;
  }
  // From now on; `after` counts from now.
  void harm(Harm harm, std::size_t after = 0);
  unsigned connections() const { return connections_; }

 private:
  void accept_all();
  void serve(int client);
  bool pass(int from, int to, bool is_reply);

  Directory directory_;
  std::string socket_;
  std::string server_;
  int listener_ = -1;
  std::atomic<Harm> harm_ = Harm::kNone;
  std::atomic<std::size_t> left_ = 0;
  std::atomic<unsigned> connections_ = 0;
  std::atomic<bool> is_ending_ = false;
  std::atomic<int> serving_ = 0;
  std::thread thread_;
};

}  // namespace vu::testing
