// Where a server store is, read from the text that opens it.
//
//   redis://[user[:password]@]host[:port][/database][?option=value&...]
//   redis+unix:///path/to/socket[?...]
//   redis+sentinel://[user[:password]@]a[:port],b[:port],.../name[/database][?...]
//   redis+cluster://[user[:password]@]a[:port],b[:port],...[?...]
//
// Options: prefix (of all keys, "vu"), user, password (for sockets, or beside the place in
// front of the host), sentinel_user and sentinel_password (for the Sentinels), database,
// connect_timeout and command_timeout (seconds, fractions allowed). Users, passwords, path,
// prefix and name are percent-decoded.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vu::store {

// Where one process listens: a path, or a host and a port.
struct Endpoint {
  std::string path;  // of a unix socket; empty: host and port
  std::string host;
  std::uint16_t port = 6379;

  bool operator==(const Endpoint&) const = default;
};

struct Address {
  enum class Kind { kServer, kSentinel, kCluster };

  Kind kind = Kind::kServer;
  std::vector<Endpoint> endpoints;  // one for kServer; Sentinels; members of the cluster
  std::string master;               // kSentinel: the name that the Sentinels know
  std::string user;                 // empty: the default user
  std::string password;             // empty: none
  std::string sentinel_user;        // kSentinel: as what Sentinels want to be asked, likewise
  std::string sentinel_password;
  std::uint32_t database = 0;
  std::string prefix = "vu";
  std::int64_t connect_timeout_us = 5'000'000;
  std::int64_t command_timeout_us = 10'000'000;
};

// Whether `store` names a server store at all: its kind of URL.
bool is_server_store(const std::string& store);

// False, with what is wrong with which part in `error`, where it cannot be used.
bool parse_address(const std::string& store, Address& address, std::string& error);

}  // namespace vu::store
