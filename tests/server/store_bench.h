// Requests carried out by the functions in a real server, without an engine in between.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "../store/test_messages.h"
#include "protocol.h"
#include "redis_server.h"

struct redisContext;
struct redisReply;

namespace vu::testing {

using store::Command;
using store::Request;

struct FreeReply {
  void operator()(redisReply* reply) const;
};
using Reply = std::unique_ptr<redisReply, FreeReply>;

// The reply that these bytes of the protocol are.
Reply parse(const std::string& bytes);

// A request about the object that a message of acme.net.TYPE names, with it as the value.
Request request(Command command, const std::string& type, const std::string& text);

// A notice in one line: "error: ..." or the type code and what it carries.
std::string show(const store::Notice& notice, const store::TypeInfo& type);

class StoreBench {
 public:
  StoreBench();
  StoreBench(const StoreBench&) = delete;
  StoreBench& operator=(const StoreBench&) = delete;
  ~StoreBench();

  store::Place place;
  RedisServer server;

  Reply send(const std::string& command);
  // The finishing notice; the identities that it acted on in front of it, as text.
  std::string run(const Request& request);
  // The same of several with one command.
  std::vector<std::string> run_batch(const std::vector<Request>& requests);

  // Watches a field, or with 0 the whole, of the objects that match the leading `level` key
  // components of the message.
  void watch(const std::string& type, const std::string& text, std::uint32_t level,
             std::uint32_t tag);
  // What the watchers were told since, one line each; the messages themselves.
  std::vector<std::string> told();
  std::vector<std::string> heard();

 private:
  struct Watched {
    std::string channel;
    const store::TypeInfo* type;
    std::uint32_t tag;
  };

  static std::string show_outcome(const Request& request, const redisReply& reply);
  // Calls visit(channel, message) with all that has come.
  template <typename Visit>
  void take_messages(Visit visit);

  redisContext* commands_;
  redisContext* events_;
  std::vector<Watched> watched_;
};

}  // namespace vu::testing
