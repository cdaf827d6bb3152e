// What the engine and its peers hold: the same keys and the same bytes.
#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "embedded/embedded_engine.h"
#include "vu_platform.h"

namespace vu::bench {

inline constexpr std::size_t kValueSize = 60;
inline constexpr int kReads = 10;  // members that are read at once

// 16 characters each, all different, in no order; at least `count` of them.
const std::vector<std::string>& names(std::size_t count);

// The stored bytes of an object: 60, of which the first ones tell it from others.
std::string bytes_of(std::size_t number);

// Goes through all numbers below `count`, jumping about, each time from somewhere else.
class Numbers {
 public:
  explicit Numbers(std::size_t count) : count_(count), last_(starts_ += kStep) {}
  std::size_t next() {
    last_ = (last_ + kStep) % count_;
    return last_;
  }

 private:
  static constexpr std::size_t kStep = 611953;  // a prime that divides no count we use
  static inline std::size_t starts_ = 0;
  std::size_t count_;
  std::size_t last_;
};

// A message as applications have them: type bench.Object, made at run time, with one key
// field and 60 bytes.
class Message {
 public:
  Message();
  ~Message();
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  void set_key(const std::string& key);
  void set_bytes(const std::string& bytes);
  vu_mom_message address() const;
  const google::protobuf::Message& native() const { return *native_; }

 private:
  std::unique_ptr<google::protobuf::Message> native_;
};

// The identity of the object with this key: 21 bytes.
std::string identity_of(const std::string& key);

// The engine of a store that no other test uses, behind the front that makes requests.
class Engine {
 public:
  explicit Engine(const std::string& name);
  ~Engine();

  vu_mom_handle* handle() { return handle_; }
  store::Store& store() { return *engine().store(); }
  store::Shelf& shelf() { return store().shelf(0, type_); }
  void submit(store::Request& request) { engine().submit(request); }
  // A request that wants no reply.
  store::Request request(store::Command command) const;

  // Stores `count` single values.
  void fill(std::size_t count);

 private:
  store::EmbeddedEngine& engine() { return static_cast<store::EmbeddedEngine&>(handle_->engine()); }

  vu_mom_handle* handle_;
  Message message_;
  const store::TypeInfo& type_;
};

}  // namespace vu::bench
