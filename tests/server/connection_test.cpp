// A connection to a peer whose every byte the test sends.
#include "connection.h"

#include <gtest/gtest.h>
#include <hiredis/hiredis.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "client.h"
#include "redis_server.h"

namespace vu::testing {
namespace {

class Peer final : store::Connection::Owner {
 public:
  Peer() : listener_(socket(AF_UNIX, SOCK_STREAM, 0)), connection_(loop_.get(), *this) {
    const std::string path = directory_.path() + "/peer.sock";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof(address.sun_path) - 1));
    EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(listener_, 1), 0);
    store::Endpoint endpoint;
    endpoint.path = path;
    connection_.open(endpoint);
    EXPECT_TRUE(loop_.run_until([this] { return is_connected_; }));
    socket_ = accept(listener_, nullptr, nullptr);
  }
  ~Peer() {
    connection_.close();
    close(socket_);
    close(listener_);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  // Returns when the connection has read it all.
  void say(const std::string& bytes) {
    std::size_t said = 0;
    int unread = 0;
    const auto is_read = [&] {
      const ssize_t size =
          send(socket_, bytes.data() + said, bytes.size() - said, MSG_DONTWAIT | MSG_NOSIGNAL);
      if (size > 0) said += static_cast<std::size_t>(size);
      return said == bytes.size() && ioctl(socket_, TIOCOUTQ, &unread) == 0 && unread == 0;
    };
    EXPECT_TRUE(bytes.empty() || loop_.run_until(is_read)) << reason_;
  }

  const std::vector<std::string>& replies() const { return replies_; }
  const std::string& reason() const { return reason_; }

 private:
  void on_connected() noexcept override { is_connected_ = true; }
  void on_reply(const redisReply& reply) noexcept override {
    std::string text(reply.type == REDIS_REPLY_STRING ? std::string(reply.str, reply.len) : "");
    for (std::size_t i = 0; i < reply.elements; ++i) {
      text += std::string(reply.element[i]->str, reply.element[i]->len) + " ";
    }
    replies_.push_back(text);
  }
  void on_writable() noexcept override {}
  void on_closed(const char* reason) noexcept override { reason_ = reason; }

  Directory directory_;
  UvLoop loop_;
  int listener_;
  int socket_ = -1;
  store::Connection connection_;
  bool is_connected_ = false;
  std::vector<std::string> replies_;
  std::string reason_;
};

// The parser is replaced after much was read, and that is not to be while it has read a
// part of a reply, wherever that ends.
TEST(ConnectionTest, KeepsWhatItHasOfAReplyAfterReadingALot) {
  const std::string large(1'200'000, 'x');
  const std::string channel(2000, 'c');  // the parser forgets what it has read by kilobytes
  const std::string first = "$" + std::to_string(large.size()) + "\r\n" + large + "\r\n";
  const std::vector<std::string> parts = {"*3\r\n", "$7\r\nmessage\r\n",
                                          "$2000\r\n" + channel + "\r\n", "$5\r\nevent\r\n"};
  std::string second;
  std::vector<std::size_t> cuts = {0};
  for (const std::string& part : parts) {
    second += part;
    for (const int near : {-1, 0, 1})
      cuts.push_back(second.size() + static_cast<std::size_t>(near));
  }
  cuts.pop_back();  // behind the end
  Peer peer;
  std::vector<std::string> expected;
  for (const std::size_t cut : cuts) {
    peer.say(first + second.substr(0, cut));
    peer.say(second.substr(cut));
    expected.push_back(large);
    expected.push_back("message " + channel + " event ");
    ASSERT_EQ(peer.reason(), "");
    ASSERT_TRUE(peer.replies() == expected) << "cut behind byte " << cut;
  }
}

}  // namespace
}  // namespace vu::testing
