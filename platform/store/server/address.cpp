#include "address.h"

#include <sys/un.h>

#include <array>
#include <charconv>
#include <cmath>
#include <string_view>

#include "secrets.h"

namespace vu::store {

namespace {

constexpr std::size_t kMostPath = sizeof(sockaddr_un::sun_path) - 1;
constexpr double kLongestTime = 86400;

struct Scheme {
  std::string_view name;
  Address::Kind kind;
  bool is_unix;
};

constexpr std::array<Scheme, 4> kSchemes = {{{"redis", Address::Kind::kServer, false},
                                             {"redis+unix", Address::Kind::kServer, true},
                                             {"redis+sentinel", Address::Kind::kSentinel, false},
                                             {"redis+cluster", Address::Kind::kCluster, false}}};

// What is wrong with which part.
struct Wrong {
  std::string text;
};

[[noreturn]] void refuse(const std::string& text) { throw Wrong{text}; }

std::string in_quotes(std::string_view text) { return "'" + std::string(text) + "'"; }

int digit_of(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string decoded(std::string_view text, const char* part) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '%') {
      const int high = i + 1 < text.size() ? digit_of(text[i + 1]) : -1;
      const int low = i + 2 < text.size() ? digit_of(text[i + 2]) : -1;
      if (high < 0 || low < 0) {
        refuse(std::string(part) + " has a '%' without two hexadecimal digits behind");
      }
      c = static_cast<char>(high * 16 + low);
      i += 2;
    }
    if (c == '\0') refuse(std::string(part) + " has a zero byte");
    result += c;
  }
  return result;
}

std::uint32_t integer(std::string_view text, std::uint32_t least, std::uint32_t most,
                      const char* part) {
  std::uint32_t value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() || value < least ||
      value > most) {
    refuse(std::string(part) + " " + in_quotes(text) + " is no number from " +
           std::to_string(least) + " to " + std::to_string(most));
  }
  return value;
}

std::int64_t microseconds(std::string_view text, const std::string& part) {
  double seconds = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() ||
      !(seconds >= 0.001 && seconds <= kLongestTime)) {
    refuse(part + " " + in_quotes(text) + " is no number of seconds from 0.001 to 86400");
  }
  return std::llround(seconds * 1e6);
}

Endpoint endpoint_of(std::string_view text, std::uint16_t default_port) {
  Endpoint endpoint;
  endpoint.port = default_port;
  std::string_view port;
  bool has_port = false;
  if (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    if (end == text.npos) refuse("host " + in_quotes(text) + " has no closing ']'");
    endpoint.host = text.substr(1, end - 1);
    const std::string_view rest = text.substr(end + 1);
    if (!rest.empty() && rest[0] != ':') {
      refuse("host " + in_quotes(text) + " has something other than a port behind ']'");
    }
    has_port = !rest.empty();
    if (has_port) port = rest.substr(1);
  } else {
    const std::size_t colon = text.find(':');
    if (colon != text.npos && text.find(':', colon + 1) != text.npos) {
      refuse("host " + in_quotes(text) + " has several ':'; an IPv6 address stands in brackets");
    }
    endpoint.host = decoded(text.substr(0, colon), "host");
    has_port = colon != text.npos;
    if (has_port) port = text.substr(colon + 1);
  }
  if (endpoint.host.empty()) refuse("a host is missing");
  if (endpoint.host.size() > 255) refuse("host is longer than 255 bytes");
  if (has_port) endpoint.port = static_cast<std::uint16_t>(integer(port, 1, 65535, "port"));
  return endpoint;
}

class Parser {
 public:
  explicit Parser(Address& address) : address_(address) {}

  void run(std::string_view store) {
    const std::size_t end = store.find(':');
    const std::string_view name = store.substr(0, end);
    const Scheme* scheme = nullptr;
    for (const Scheme& known : kSchemes) {
      if (known.name == name) scheme = &known;
    }
    if (scheme == nullptr) {
      refuse("unknown kind of server " + in_quotes(name) +
             ": there are redis, redis+unix, redis+sentinel and redis+cluster");
    }
    if (store.substr(end, 3) != "://")
      refuse("'//' is missing behind '" + std::string(name) + ":'");
    address_.kind = scheme->kind;
    std::string_view rest = store.substr(end + 3);
    if (rest.find('#') != rest.npos) refuse("'#' has to be written as %23");
    const std::size_t question = rest.find('?');
    if (question != rest.npos) options(rest.substr(question + 1));
    rest = rest.substr(0, question);
    if (scheme->is_unix) {
      socket_path(rest);
    } else {
      const std::size_t slash = rest.find('/');
      authority(rest.substr(0, slash));
      if (slash != rest.npos) path(rest.substr(slash + 1));
    }
    finish();
  }

 private:
  void once(bool& seen, const char* part) {
    if (seen) refuse(std::string(part) + " is given twice");
    seen = true;
  }

  void options(std::string_view text) {
    while (!text.empty()) {
      const std::size_t end = text.find('&');
      option(text.substr(0, end));
      text = end == text.npos ? std::string_view() : text.substr(end + 1);
    }
  }

  void option(std::string_view text) {
    const std::size_t equals = text.find('=');
    const std::string_view name = text.substr(0, equals);
    if (equals == text.npos) refuse("option " + in_quotes(name) + " has no value");
    const std::string value = decoded(text.substr(equals + 1), "an option's value");
    if (name == "prefix") {
      once(has_prefix_, "option 'prefix'");
      if (value.empty()) refuse("option 'prefix' is empty");
      if (value.find_first_of("{}") != value.npos) refuse("option 'prefix' has a brace in it");
      address_.prefix = value;
    } else if (name == "user") {
      once(has_user_, "user");
      address_.user = value;
    } else if (name == "password") {
      once(has_password_, "password");
      address_.password = value;
    } else if (name == "sentinel_user") {
      once(has_sentinel_user_, "option 'sentinel_user'");
      address_.sentinel_user = value;
    } else if (name == "sentinel_password") {
      once(has_sentinel_password_, "option 'sentinel_password'");
      address_.sentinel_password = value;
    } else if (name == "database") {
      database(value);
    } else if (name == "connect_timeout") {
      once(has_connect_timeout_, "option 'connect_timeout'");
      address_.connect_timeout_us = microseconds(value, "option 'connect_timeout'");
    } else if (name == "command_timeout") {
      once(has_command_timeout_, "option 'command_timeout'");
      address_.command_timeout_us = microseconds(value, "option 'command_timeout'");
    } else {
      refuse("unknown option " + in_quotes(name) +
             ": there are prefix, user, password, sentinel_user, sentinel_password, database, "
             "connect_timeout and command_timeout");
    }
  }

  void database(std::string_view text) {
    once(has_database_, "database");
    address_.database = integer(text, 0, 0x7fffffff, "database");
  }

  void socket_path(std::string_view text) {
    Endpoint endpoint;
    endpoint.path = decoded(text, "the path of the socket");
    if (endpoint.path.empty()) refuse("the path of the socket is missing");
    if (endpoint.path[0] != '/') {
      refuse("the path of the socket " + in_quotes(endpoint.path) + " does not begin with '/'");
    }
    if (endpoint.path.size() > kMostPath) {
      refuse("the path of the socket is longer than " + std::to_string(kMostPath) + " bytes");
    }
    address_.endpoints.push_back(endpoint);
  }

  void authority(std::string_view text) {
    const std::size_t at = text.rfind('@');
    if (at != text.npos) {
      const std::string_view who = text.substr(0, at);
      const std::size_t colon = who.find(':');
      if (colon != 0) {
        once(has_user_, "user");
        address_.user = decoded(who.substr(0, colon), "user");
      }
      if (colon != who.npos) {
        once(has_password_, "password");
        address_.password = decoded(who.substr(colon + 1), "password");
      }
      text = text.substr(at + 1);
    }
    const bool is_sentinel = address_.kind == Address::Kind::kSentinel;
    const std::uint16_t port = is_sentinel ? 26379 : 6379;
    for (bool is_last = false; !is_last;) {
      const std::size_t comma = text.find(',');
      is_last = comma == text.npos;
      address_.endpoints.push_back(endpoint_of(text.substr(0, comma), port));
      if (!is_last) text = text.substr(comma + 1);
    }
    if (address_.kind == Address::Kind::kServer && address_.endpoints.size() != 1) {
      refuse("there are several hosts; they go with redis+sentinel and redis+cluster");
    }
  }

  void path(std::string_view text) {
    if (address_.kind == Address::Kind::kSentinel) {
      const std::size_t slash = text.find('/');
      address_.master = decoded(text.substr(0, slash), "the name of the master");
      text = slash == text.npos ? std::string_view() : text.substr(slash + 1);
    }
    if (!text.empty()) database(text);
  }

  void finish() const {
    if (address_.kind == Address::Kind::kSentinel && address_.master.empty()) {
      refuse("the name of the master is missing: redis+sentinel://HOST,.../NAME");
    }
    if (address_.kind == Address::Kind::kCluster && address_.database != 0) {
      refuse("a cluster has no database but 0");
    }
    if (!address_.user.empty() && !has_password_) {
      refuse("user " + in_quotes(address_.user) + " is given without a password");
    }
    if (has_sentinel_user_ && !has_sentinel_password_) {
      refuse("option 'sentinel_user' is given without option 'sentinel_password'");
    }
    if (has_sentinel_password_ && address_.kind != Address::Kind::kSentinel) {
      refuse("option 'sentinel_password' goes with redis+sentinel");
    }
  }

  Address& address_;
  bool has_prefix_ = false;
  bool has_user_ = false;
  bool has_password_ = false;
  bool has_sentinel_user_ = false;
  bool has_sentinel_password_ = false;
  bool has_database_ = false;
  bool has_connect_timeout_ = false;
  bool has_command_timeout_ = false;
};

}  // namespace

bool is_server_store(const std::string& store) {
  const std::size_t colon = store.find(':');
  if (colon == store.npos) return false;
  const std::string_view name = std::string_view(store).substr(0, colon);
  return name == "redis" || name.starts_with("redis+");
}

bool parse_address(const std::string& store, Address& address, std::string& error) {
  try {
    Address parsed;
    Parser(parsed).run(store);
    address = parsed;
    return true;
  } catch (const Wrong& wrong) {
    error = wrong.text;
  }
  const std::string hidden = without_password(store);
  if (hidden == store || error.starts_with("password ")) return false;
  // What is wrong is told of the text without the password, so that none of it is.
  try {
    Address parsed;
    Parser(parsed).run(hidden);
    error = "a character of the password has to be percent-encoded";
  } catch (const Wrong& wrong) {
    error = wrong.text;
  }
  return false;
}

}  // namespace vu::store
