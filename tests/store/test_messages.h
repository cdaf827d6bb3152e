// Message types for the tests, described in the .proto language at run time, and
// messages of them that are registered with the library.
#pragma once

#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <string_view>

#include "vu_mom_impl.h"

namespace vu::store::test {

// A new message of acme.net.TYPE, filled from protobuf text.
std::unique_ptr<google::protobuf::Message> make_message(const std::string& type,
                                                        const std::string& text);

// The message as text on one line.
std::string text_of(const google::protobuf::Message& message);

// A message whose address the library accepts as long as this object lives.
class Live {
 public:
  Live(const std::string& type, const std::string& text);
  Live(Live&&) = default;
  Live(const Live&) = delete;
  Live& operator=(const Live&) = delete;
  ~Live();

  operator vu_mom_message() const { return reinterpret_cast<vu_mom_message>(message_.get()); }
  google::protobuf::Message& operator*() const { return *message_; }
  std::string text() const { return text_of(*message_); }

 private:
  std::unique_ptr<google::protobuf::Message> message_;
};

inline Live port(const std::string& text) { return Live("Port", text); }

// The Port of that key.
inline Live at(const std::string& device, unsigned number, const std::string& rest = "") {
  return port("device:'" + device + "' number:" + std::to_string(number) + " " + rest);
}

// The identity that a Port has, as vu_platform.h encodes it.
std::string port_key(const std::string& device, unsigned number);

}  // namespace vu::store::test
