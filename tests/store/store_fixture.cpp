#include "store_fixture.h"

#include <utility>

namespace vu::store::test {

Client::Client(const std::string& store, uv_loop_s* loop) {
  char error[100] = "";
  handle_ = vu_platform_open(
      store.c_str(), loop, [](void* user) { ++static_cast<Client*>(user)->wakes_; }, this, error,
      sizeof(error));
  EXPECT_NE(handle_, nullptr) << error;
}

Client::~Client() { free(); }

void Client::free() {
  if (handle_ != nullptr) vu_platform_free(std::exchange(handle_, nullptr));
}

void* Client::slot(int label, std::function<void(const Seen&)> then) {
  slots_.push_back({this, label, std::move(then)});
  return &slots_.back();
}

void Client::on_reply(void*, const vu_mom_reply* reply, void* privdata) { keep(reply, privdata); }

std::int32_t Client::on_stream(void*, const vu_mom_reply* reply, void* privdata) {
  keep(reply, privdata);
  return 0;
}

void Client::keep(const vu_mom_reply* reply, void* privdata) {
  Slot& slot = *static_cast<Slot*>(privdata);
  const vu_platform_details& details = *vu_platform_details_of(reply);
  EXPECT_TRUE(vu_platform_is_record(reinterpret_cast<intptr_t>(reply)));
  Seen seen;
  seen.label = slot.label;
  seen.type_code = reply->type_code;
  seen.end_mark = reply->end_mark;
  seen.status = details.status;
  seen.error = details.error;
  EXPECT_EQ(seen.error.empty(), seen.status == VU_MOM_OK);
  seen.time_us = details.time_us;
  seen.count = details.count;
  seen.tag = details.tag;
  seen.db = details.db;
  seen.has_key = details.key != nullptr;
  if (seen.has_key) {
    seen.key.assign(static_cast<const char*>(static_cast<const void*>(details.key)),
                    details.key_size);
  }
  seen.has_data = reply->data != nullptr;
  const auto address = reinterpret_cast<intptr_t>(reply->data);
  const auto read = [](vu_mom_message message) {
    EXPECT_TRUE(vu_platform_message_is_live(message));
    return text_of(*reinterpret_cast<const google::protobuf::Message*>(message));
  };
  if (seen.has_data && !vu_platform_is_payload(address)) {
    seen.texts.push_back(read(address));
  } else if (seen.has_data) {
    const auto& payload = *static_cast<const vu_platform_payload*>(reply->data);
    seen.payload = payload.kind;
    seen.integer = payload.integer;
    seen.score = payload.score;
    if (payload.kind == VU_PLATFORM_PAYLOAD_HASH) {
      seen.texts.push_back(read(payload.messages[0]));
      seen.tags.assign(payload.tags, payload.tags + payload.count);
    } else if (payload.kind == VU_PLATFORM_PAYLOAD_MESSAGES ||
               payload.kind == VU_PLATFORM_PAYLOAD_SCORED) {
      for (std::uint32_t i = 0; i < payload.count; ++i) {
        seen.texts.push_back(read(payload.messages[i]));
        if (payload.kind == VU_PLATFORM_PAYLOAD_SCORED) seen.scores.push_back(payload.scores[i]);
      }
    }
  }
  Client& client = *slot.client;
  client.seen_.push_back(seen);
  if (slot.then) slot.then(seen);
}

std::vector<Seen> Client::take() { return std::exchange(seen_, {}); }

std::vector<Seen> Client::drain() {
  while (deliver(1000)) {
  }
  return take();
}

std::vector<Seen> Client::events() {
  std::vector<Seen> all = std::exchange(others_, {});
  for (Seen& seen : drain()) all.push_back(std::move(seen));
  return all;
}

std::vector<Seen> Client::scan(const Live& message, std::uint32_t level, std::int32_t db) {
  EXPECT_EQ(vu_mom_scan(handle_, db, message, level, &on_stream, slot(0)), VU_MOM_OK);
  return drain();
}

std::vector<Seen> Client::scan_index(const Live& message, std::uint32_t level, std::int32_t db) {
  EXPECT_EQ(vu_mom_scan_index(handle_, db, message, level, &on_stream, slot(0)), VU_MOM_OK);
  return drain();
}

void Client::subscribe(const Live& message, std::uint32_t level, int label, std::int32_t db) {
  EXPECT_EQ(vu_mom_subscribe(handle_, db, message, level, &on_stream, slot(label)), VU_MOM_OK);
}

void Client::subscribe_field(const Live& message, std::uint32_t level, std::size_t tag, int label) {
  const vu_mom_stream_cb callback = &on_stream;
  void* const privdata = slot(label);
  EXPECT_EQ(vu_mom_subscribe_field(handle_, 0, message, level, &tag, &callback, &privdata, 1),
            VU_MOM_OK);
}

}  // namespace vu::store::test
