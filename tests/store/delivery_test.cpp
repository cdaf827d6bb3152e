// Handles, the queue, closing, and calls from inside callbacks.
#include "store_fixture.h"

namespace vu::store::test {
namespace {

void get(Client& client, unsigned number, int label, std::function<void(const Seen&)> then = {}) {
  EXPECT_EQ(vu_mom_get(client.handle(), 0, at("a", number), &Client::on_reply,
                       client.slot(label, std::move(then))),
            VU_MOM_OK);
}

std::vector<int> labels(const std::vector<Seen>& seen) {
  std::vector<int> all;
  for (const Seen& one : seen) all.push_back(one.label);
  return all;
}

TEST(Delivery, WakesOnceUntilDelivered) {
  Client client;
  get(client, 1, 1);
  get(client, 2, 2);
  EXPECT_EQ(client.wakes(), 1);
  EXPECT_EQ(client.take().size(), 0u);
  EXPECT_TRUE(client.deliver(1));  // says that more waits: nobody needs to be told again
  get(client, 3, 3);
  EXPECT_EQ(client.wakes(), 1);
  EXPECT_FALSE(client.deliver(10));
  EXPECT_EQ(labels(client.take()), (std::vector<int>{1, 2, 3}));
  get(client, 4, 4);
  EXPECT_EQ(client.wakes(), 2);
  EXPECT_TRUE(client.deliver(0));
  EXPECT_EQ(client.take().size(), 0u);
}

TEST(Delivery, NextDueIsNowWhileSomethingWaits) {
  Client client;
  EXPECT_EQ(vu_platform_next_due(client.handle()), -1);
  get(client, 1, 1);
  EXPECT_EQ(vu_platform_next_due(client.handle()), 0);
}

TEST(Delivery, ValuesAreThoseOfTheCommand) {
  Client client;
  client.set(at("a", 1, "rx:1"));
  get(client, 1, 1);
  client.set(at("a", 1, "rx:2"));
  get(client, 1, 2);
  const std::vector<Seen> seen = client.drain();
  EXPECT_EQ(seen[0].text(), at("a", 1, "rx:1").text());
  EXPECT_EQ(seen[1].text(), at("a", 1, "rx:2").text());
}

TEST(Delivery, CommandsFromCallbacksAreDeliveredAfterwards) {
  Client client;
  get(client, 1, 1, [&](const Seen&) {
    get(client, 2, 3);
    EXPECT_EQ(vu_platform_deliver(client.handle(), 10), 1);  // the outer call goes on
    EXPECT_EQ(labels(client.take()), std::vector<int>{1});
  });
  get(client, 2, 2);
  EXPECT_FALSE(client.deliver(10));
  EXPECT_EQ(labels(client.take()), (std::vector<int>{2, 3}));
  EXPECT_EQ(client.wakes(), 1);
}

TEST(Delivery, AnotherHandleMayDeliverInsideACallback) {
  Client outer;
  Client inner;
  inner.set(at("a", 1, "rx:1"));
  get(inner, 1, 2);
  get(outer, 1, 1, [&](const Seen& seen) {
    EXPECT_EQ(inner.drain().size(), 1u);
    EXPECT_EQ(seen.text(), at("a", 1, "rx:1").text());
  });
  EXPECT_EQ(outer.drain().size(), 1u);
}

TEST(Delivery, RecordsAndMessagesAreKnownOnlyWhileTheyLast) {
  Client client;
  client.set(at("a", 1));
  static const vu_mom_reply* record;
  static vu_mom_message message;
  ASSERT_EQ(vu_mom_get(
                client.handle(), 0, at("a", 1),
                [](void*, const vu_mom_reply* reply, void* handle) {
                  record = reply;
                  message = reinterpret_cast<vu_mom_message>(reply->data);
                  // What is being delivered can be passed back.
                  EXPECT_EQ(
                      vu_mom_get(static_cast<vu_mom_handle*>(handle), 0, message, nullptr, nullptr),
                      VU_MOM_OK);
                },
                client.handle()),
            VU_MOM_OK);
  client.drain();
  EXPECT_FALSE(vu_platform_is_record(reinterpret_cast<intptr_t>(record)));
  EXPECT_FALSE(vu_platform_message_is_live(message));
}

TEST(Delivery, MessagesRegisteredTwiceCountTwice) {
  const auto message = make_message("Port", "");
  const auto address = reinterpret_cast<vu_mom_message>(message.get());
  EXPECT_FALSE(vu_platform_message_is_live(address));
  vu_platform_message_remove(address);
  vu_platform_message_add(address);
  vu_platform_message_add(address);
  vu_platform_message_remove(address);
  EXPECT_TRUE(vu_platform_message_is_live(address));
  vu_platform_message_remove(address);
  EXPECT_FALSE(vu_platform_message_is_live(address));
}

// The owner of what it takes, as a wrapper is.
std::unique_ptr<google::protobuf::Message> take(const vu_mom_reply& reply) {
  std::intptr_t taken = 0;
  EXPECT_EQ(vu_platform_message_take(reinterpret_cast<std::intptr_t>(reply.data), &taken),
            VU_MOM_OK);
  return std::unique_ptr<google::protobuf::Message>(
      reinterpret_cast<google::protobuf::Message*>(taken));
}

TEST(Delivery, WhatIsMadeOfADroppedMessageHasNothingOfIt) {
  Client client;
  const Live full("Entry", "key: 'k' value: 'v'");
  const Live bare("Entry", "");
  client.set(full);
  client.set(bare);
  for (int i = 0; i < 40; ++i) {
    std::string text;
    const auto keep_and_drop = [](void*, const vu_mom_reply* reply, void* to) {
      std::unique_ptr<google::protobuf::Message> message = take(*reply);
      *static_cast<std::string*>(to) = text_of(*message);
      vu_platform_message_drop(reinterpret_cast<std::intptr_t>(message.release()));
    };
    ASSERT_EQ(vu_mom_get(client.handle(), 0, full, keep_and_drop, &text), VU_MOM_OK);
    client.drain();
    EXPECT_EQ(text, full.text());
    ASSERT_EQ(vu_mom_get(client.handle(), 0, bare, keep_and_drop, &text), VU_MOM_OK);
    client.drain();
    EXPECT_EQ(text, bare.text());
  }
}

TEST(Delivery, MessagesOfUnknownTypesCanBeDropped) {
  for (const char* type : {"Port", "Entry", "SamePosition", "TwoCounters"}) {
    for (int i = 0; i < 40; ++i) {
      std::unique_ptr<google::protobuf::Message> message = make_message(type, "");
      vu_platform_message_drop(reinterpret_cast<std::intptr_t>(message.release()));
    }
  }
}

TEST(Delivery, HandlesOfOneNameShareAStore) {
  Client one("embedded:shared");
  Client other("embedded:shared");
  Client apart("embedded:apart");
  Client unnamed;
  one.set(at("a", 1));
  EXPECT_TRUE(other.get(at("a", 1)).has_data);
  EXPECT_FALSE(apart.get(at("a", 1)).has_data);
  EXPECT_FALSE(unnamed.get(at("a", 1)).has_data);
  other.subscribe(at("a", 1), 2, 1);
  one.set(at("a", 1));
  EXPECT_EQ(other.wakes(), 2);
  EXPECT_EQ(other.drain().size(), 1u);
  one.free();
  EXPECT_TRUE(other.get(at("a", 1)).has_data);
  other.close();  // the last one takes the store with it
  Client again("embedded:shared");
  EXPECT_FALSE(again.get(at("a", 1)).has_data);
}

TEST(Closing, CompletesEverythingOnce) {
  Client client;
  for (unsigned i = 0; i < 10; ++i) client.set(at("a", i));
  client.subscribe(at("a", 0), 1, 1);
  client.subscribe_field(at("a", 0), 1, 3, 2);
  get(client, 1, 10);
  client.set(at("a", 1));
  EXPECT_EQ(vu_mom_pdel(client.handle(), 0, at("a", 0), 1, &Client::on_reply, client.slot(11)),
            VU_MOM_OK);
  EXPECT_EQ(vu_mom_scan(client.handle(), 0, at("a", 0), 1, &Client::on_stream, client.slot(12)),
            VU_MOM_OK);
  client.close();
  client.close();
  EXPECT_EQ(vu_mom_get(client.handle(), 0, at("a", 1), nullptr, nullptr), VU_MOM_FAILED);
  EXPECT_EQ(vu_mom_subscribe(client.handle(), 0, at("a", 1), 0, &Client::on_stream, nullptr),
            VU_MOM_FAILED);
  EXPECT_EQ(vu_platform_next_due(client.handle()), 0);
  const std::vector<Seen> seen = client.drain();
  EXPECT_EQ(vu_platform_next_due(client.handle()), -1);
  int events = 0;
  std::vector<int> ended;
  for (const Seen& one : seen) {
    if (one.label <= 2 && one.type_code != VU_MOM_TYPE_SUBSCRIPTION_ENDED) {
      ++events;  // what had happened before
      EXPECT_EQ(one.status, VU_MOM_OK);
      continue;
    }
    ended.push_back(one.label);
    EXPECT_EQ(one.status, VU_MOM_FAILED);
    EXPECT_EQ(one.error, "the store handle was closed");
    EXPECT_FALSE(one.has_data);
    EXPECT_EQ(one.end_mark, one.label == 11   ? static_cast<unsigned>(VU_MOM_END_PDEL)
                            : one.label == 12 ? static_cast<unsigned>(VU_MOM_END_SCAN)
                                              : 0u);
    if (one.label == 12) {
      EXPECT_EQ(one.type_code, VU_MOM_TYPE_NONE);
    }
  }
  EXPECT_EQ(ended, (std::vector<int>{10, 11, 12, 1, 2}));
  EXPECT_EQ(events, 11);
}

TEST(Closing, StopsEventsForOthersFromReachingIt) {
  Client client("embedded:closing");
  Client other("embedded:closing");
  client.subscribe(at("a", 0), 1, 1);
  client.close();
  other.set(at("a", 1));
  EXPECT_EQ(client.drain().size(), 1u);
}

TEST(Closing, InsideACallback) {
  Client client;
  client.subscribe(at("a", 1), 2, 3);
  get(client, 1, 1, [&](const Seen& seen) {
    EXPECT_EQ(seen.status, VU_MOM_OK);
    client.close();
  });
  get(client, 1, 2);
  const std::vector<Seen> seen = client.drain();
  ASSERT_EQ(labels(seen), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(seen[1].status, VU_MOM_FAILED);
  EXPECT_EQ(seen[2].type_code, VU_MOM_TYPE_SUBSCRIPTION_ENDED);
}

TEST(Closing, InsideTheRepliesOfOneRequest) {
  for (const bool scan : {true, false}) {
    Client client;
    for (unsigned i = 0; i < 10; ++i) client.set(at("a", i));
    int calls = 0;
    const auto close_at_third = [&](const Seen&) {
      if (++calls == 3) client.close();
    };
    if (scan) {
      EXPECT_EQ(vu_mom_scan(client.handle(), 0, at("a", 0), 1, &Client::on_stream,
                            client.slot(1, close_at_third)),
                VU_MOM_OK);
    } else {
      EXPECT_EQ(vu_mom_pdel(client.handle(), 0, at("a", 0), 1, &Client::on_reply,
                            client.slot(1, close_at_third)),
                VU_MOM_OK);
    }
    const std::vector<Seen> seen = client.drain();
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[3].status, VU_MOM_FAILED);
    EXPECT_EQ(seen[3].end_mark, static_cast<unsigned>(scan ? VU_MOM_END_SCAN : VU_MOM_END_PDEL));
  }
}

TEST(Closing, FreeInsideACallbackDropsTheRest) {
  Client client;
  for (unsigned i = 0; i < 5; ++i) client.set(at("a", i));
  EXPECT_EQ(vu_mom_scan(client.handle(), 0, at("a", 0), 1, &Client::on_stream,
                        client.slot(1, [&](const Seen&) { client.free(); })),
            VU_MOM_OK);
  vu_mom_handle* const handle = client.handle();
  EXPECT_EQ(vu_platform_deliver(handle, 100), 0);
  EXPECT_EQ(client.take().size(), 1u);
  EXPECT_EQ(client.handle(), nullptr);
}

TEST(Closing, FreeWithWorkPendingIsHarmless) {
  Client client;
  client.subscribe(at("a", 1), 2, 3);
  get(client, 1, 1);
  client.free();
  EXPECT_EQ(client.take().size(), 0u);
}

TEST(Closing, UnsubscribeInsideAnEvent) {
  Client client;
  EXPECT_EQ(vu_mom_subscribe(client.handle(), 0, at("a", 1), 2, &Client::on_stream,
                             client.slot(1,
                                         [&](const Seen& seen) {
                                           if (seen.type_code != VU_MOM_TYPE_SET) return;
                                           vu_mom_unsubscribe(client.handle(), 0, at("a", 1), 2,
                                                              nullptr, nullptr);
                                           client.set(at("a", 1, "rx:2"));
                                         })),
            VU_MOM_OK);
  client.set(at("a", 1, "rx:1"));
  const std::vector<Seen> seen = client.drain();
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[1].type_code, VU_MOM_TYPE_SUBSCRIPTION_ENDED);
}

TEST(Closing, AFullQueueRefusesRequestsThatWantAReply) {
  Client client;
  void* const privdata = client.slot(1);
  const Live message = at("a", 1);
  for (int i = 0; i < 1 << 20; ++i) {
    ASSERT_EQ(vu_mom_llen(client.handle(), 0, message, &Client::on_reply, privdata), VU_MOM_OK);
  }
  EXPECT_EQ(vu_mom_llen(client.handle(), 0, message, &Client::on_reply, privdata), VU_MOM_FAILED);
  EXPECT_EQ(vu_mom_incr(client.handle(), 0, message, &Client::on_reply, privdata), VU_MOM_FAILED);
  client.set(message);
  client.deliver(1);
  EXPECT_EQ(vu_mom_get(client.handle(), 0, message, &Client::on_reply, privdata), VU_MOM_OK);
}

TEST(BadInput, IsSeenBeforeAnythingHappens) {
  Client client;
  vu_mom_handle* const handle = client.handle();
  const Live message = at("a", 1);
  std::int32_t flag = 0;
  vu_mom_message dead = 0;
  {
    const Live gone = at("a", 1);
    dead = gone;
  }
  for (const vu_mom_message address : {vu_mom_message{0}, dead, vu_mom_message{-8}}) {
    EXPECT_EQ(vu_mom_get(handle, 0, address, nullptr, nullptr), VU_MOM_BAD_INPUT);
    EXPECT_EQ(vu_mom_publish(handle, 0, address, nullptr, nullptr), VU_MOM_BAD_INPUT);
  }
  EXPECT_EQ(vu_mom_get(handle, -1, message, nullptr, nullptr), VU_MOM_BAD_INPUT);
  EXPECT_EQ(vu_mom_set_ext(handle, INT32_MIN, &flag, message, nullptr, nullptr), VU_MOM_BAD_INPUT);
  for (const std::int32_t bits : {4, 7, -1, INT32_MIN}) {
    flag = bits;
    EXPECT_EQ(vu_mom_set_ext(handle, 0, &flag, message, nullptr, nullptr), VU_MOM_BAD_INPUT);
    EXPECT_EQ(vu_mom_setow_ext(handle, 0, &flag, message, nullptr, nullptr, 1), VU_MOM_BAD_INPUT);
    EXPECT_EQ(vu_mom_del_ow_ext(handle, 0, &flag, message, nullptr, nullptr, 1), VU_MOM_BAD_INPUT);
  }
  EXPECT_EQ(vu_mom_incr(handle, 0, Live("Entry", ""), nullptr, nullptr), VU_MOM_BAD_INPUT);
  for (const char* type :
       {"SamePosition", "Gap", "FloatKey", "ListKey", "TwoCounters", "TextCounter"}) {
    EXPECT_EQ(vu_mom_get(handle, 0, Live(type, ""), nullptr, nullptr), VU_MOM_BAD_INPUT) << type;
  }
  EXPECT_EQ(client.scan(message, 0).size(), 1u);
  // No flag at all is none set.
  EXPECT_EQ(vu_mom_set_ext(handle, 0, nullptr, message, nullptr, nullptr), VU_MOM_OK);
  EXPECT_EQ(client.scan(message, 0).size(), 2u);
}

TEST(ShowAll, NamesWhatIsStored) {
  Client client("embedded:shown");
  client.set(at("a", 1));
  client.send(vu_mom_rpush, 0, at("a", 2));
  client.send(vu_mom_rpush, 0, at("a", 2));
  client.send(vu_mom_pexpire, 0, at("a", 1), 2u, 10, 0);
  client.subscribe(at("a", 1), 2, 1);
  get(client, 1, 1);
  testing::internal::CaptureStdout();
  EXPECT_EQ(vu_mom_debug_show_all(client.handle()), VU_MOM_OK);
  const std::string shown = testing::internal::GetCapturedStdout();
  for (const char* part : {"store embedded:shown", "1 handles", "1 lifetimes",
                           "db 0 acme.net.Port: 2 objects", "1 subscriptions", "1 single values",
                           "1 lists with 2 elements", "this handle: 1 waiting to be delivered"}) {
    EXPECT_NE(shown.find(part), std::string::npos) << part << " in\n" << shown;
  }
}

}  // namespace
}  // namespace vu::store::test
