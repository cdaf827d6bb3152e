// What a command will deliver once it is done: gathered while it may still fail, posted
// by a step that cannot.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "../delivery.h"
#include "../session.h"

namespace vu::store {

class Outbox {
 public:
  void add(Session& to, std::unique_ptr<Delivery> delivery) {
    entries_.emplace_back(&to, std::move(delivery));
  }

  void post() noexcept {
    for (auto& [session, delivery] : entries_) session->post(std::move(delivery));
    entries_.clear();
  }

 private:
  std::vector<std::pair<Session*, std::unique_ptr<Delivery>>> entries_;
};

}  // namespace vu::store
