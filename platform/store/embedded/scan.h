// A scan under way. It goes on from the last identity that it delivered, so changes in
// between do not disturb it: what is there throughout is delivered, once.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "../delivery.h"
#include "store.h"

namespace vu::store {

class ScanDelivery : public Delivery {
 public:
  ScanDelivery(const Receiver& receiver, std::shared_ptr<Store> store, Shelf& shelf,
               std::string prefix, bool keys_only)
      : receiver_(receiver),
        store_(std::move(store)),
        shelf_(&shelf),
        prefix_(std::move(prefix)),
        keys_only_(keys_only) {
    last_.end_mark = VU_MOM_END_SCAN;
    last_.db = shelf.db();
  }

  Progress step(Counters& counters) noexcept override;
  void fail(const char* reason) noexcept override;

 private:
  Progress deliver_next(Counters& counters);
  Progress finish(Counters& counters);

  Receiver receiver_;
  std::shared_ptr<Store> store_;  // null once it has failed
  Shelf* shelf_;
  std::string prefix_;
  bool keys_only_;
  bool started_ = false;
  std::string position_;  // the identity delivered last
  Notice last_;
};

}  // namespace vu::store
