// Single values.
#include "store_fixture.h"

namespace vu::store::test {
namespace {

TEST(Values, GetOfNothingHasNoDataAndNoError) {
  Client client;
  const Seen seen = client.get(port("device:'a' number:1"));
  EXPECT_FALSE(seen.has_data);
  EXPECT_EQ(seen.status, VU_MOM_OK);
  EXPECT_EQ(seen.end_mark, 0u);
  EXPECT_EQ(seen.key, port_key("a", 1));
}

TEST(Values, SetStoresTheWholeMessage) {
  Client client;
  const Live stored = port(
      "device:'a' number:1 rx:7 note:'n' samples:[1,2] hits:3 limits{key:'x' value:1} speed:0 "
      "blob:'\\000\\377'");
  client.set(stored);
  const Seen seen = client.get(port("device:'a' number:1 rx:99"));
  EXPECT_EQ(seen.text(), stored.text());
  EXPECT_EQ(seen.type_code, VU_MOM_TYPE_SET);
  EXPECT_EQ(seen.db, 0);
  EXPECT_GT(seen.time_us, 1500000000 * kSecond);
  EXPECT_FALSE(client.get(port("device:'a' number:2")).has_data);
  EXPECT_FALSE(client.get(port("device:'b' number:1")).has_data);
}

TEST(Values, SetReplacesWithShorterAndLongerValues) {
  Client client;
  for (const std::size_t size : {0u, 1u, 40u, 41u, 900u, 1100u, 100000u, 5u, 2000u, 3000u, 0u}) {
    const Live stored = port("device:'a' number:1 note:'" + std::string(size, 'x') + "' speed:5");
    client.set(stored);
    EXPECT_EQ(client.get(port("device:'a' number:1")).text(), stored.text());
  }
}

TEST(Values, DatabasesAndTypesAreApart) {
  Client client;
  client.set(port("device:'a' number:1 rx:1"), 0, 0);
  client.set(port("device:'a' number:1 rx:2"), 0, 7);
  client.set(Live("Single", "text:'only'"));
  EXPECT_EQ(client.get(port("device:'a' number:1")).text(), "device: \"a\" number: 1 rx: 1");
  const Seen other = client.get(port("device:'a' number:1"), 7);
  EXPECT_EQ(other.text(), "device: \"a\" number: 1 rx: 2");
  EXPECT_EQ(other.db, 7);
  EXPECT_EQ(client.get(Live("Single", "text:'asked'")).text(), "text: \"only\"");
  EXPECT_FALSE(client.get(port("device:'a' number:1"), 2147483647).has_data);
}

TEST(Values, EveryTypeOfKeyNamesAnObject) {
  Client client;
  const Live negative("Every",
                      "a:-5 b:true c:BLUE d:'\\000x' e:-1 f:18446744073709551615 rest:'r'");
  const Live zero("Every", "rest:'z'");
  client.set(negative);
  client.set(zero);
  EXPECT_EQ(
      client.get(Live("Every", "a:-5 b:true c:BLUE d:'\\000x' e:-1 f:18446744073709551615")).text(),
      negative.text());
  const Seen seen = client.get(Live("Every", ""));
  EXPECT_EQ(seen.text(), "rest: \"z\"");
  EXPECT_EQ(seen.key, std::string("i\0\0\0\0\0\0\0\0b\0i\0\0\0\0\0\0\0\0y\0\0\0\0i\0\0\0\0\0\0\0\0"
                                  "u\0\0\0\0\0\0\0\0",
                                  9 + 2 + 9 + 5 + 9 + 9));
  EXPECT_FALSE(client.get(Live("Every", "a:-5 b:false c:BLUE d:'\\000x' e:-1")).has_data);
}

TEST(Values, PresenceOfDefaultKeysSurvives) {
  Client client;
  const Live unset("Old", "must:1 Part{x:3}");
  client.set(unset);
  EXPECT_EQ(client.get(unset).text(), unset.text());
  const Live given("Old", "name:'nobody' level:ONE must:2");
  client.set(given);  // the same object: defaults name it, set or not
  EXPECT_EQ(client.get(unset).text(), given.text());
  const Live other("Old", "name:'x' level:TWO must:2");
  client.set(other);
  EXPECT_EQ(client.get(other).text(), other.text());
  EXPECT_EQ(client.get(unset).text(), given.text());
}

TEST(Values, SetnxStoresWhereNothingIs) {
  Client client;
  const Live first = port("device:'a' number:1 rx:1");
  EXPECT_EQ(client.ask(vu_mom_setnx, 0, first).integer, 1);
  const Seen second = client.ask(vu_mom_setnx, 0, port("device:'a' number:1 rx:2"));
  EXPECT_EQ(second.payload, VU_PLATFORM_PAYLOAD_INTEGER);
  EXPECT_EQ(second.integer, 0);
  client.send(vu_mom_setnx_noreply, 0, port("device:'a' number:1 rx:3"));
  client.send(vu_mom_setnx_noreply, 0, port("device:'a' number:2 rx:4"));
  EXPECT_EQ(client.get(first).text(), first.text());
  EXPECT_EQ(client.get(port("device:'a' number:2")).text(), "device: \"a\" number: 2 rx: 4");
}

TEST(Values, IncrCountsInTheMarkedField) {
  Client client;
  const Live asked = port("device:'a' number:1 note:'made' hits:40");
  EXPECT_EQ(client.ask(vu_mom_incr, 0, asked).integer, 1);
  EXPECT_EQ(client.get(asked).text(), "device: \"a\" number: 1 note: \"made\" hits: 1");
  client.set(port("device:'a' number:1 hits:-1 rx:9 speed:1"));
  EXPECT_EQ(client.ask(vu_mom_incr, 0, asked).integer, 0);
  EXPECT_EQ(client.ask(vu_mom_incr, 0, asked).integer, 1);
  EXPECT_EQ(client.get(asked).text(), "device: \"a\" number: 1 rx: 9 hits: 1 speed: 1");
}

struct Limit {
  const char* type;
  const char* largest;
  std::int64_t value;  // one less than the largest, plus one
};

class Counters : public testing::TestWithParam<Limit> {};

TEST_P(Counters, OverflowIsAnErrorAndChangesNothing) {
  Client client;
  const Limit& limit = GetParam();
  const Live largest(limit.type, std::string("n:") + limit.largest);
  Live below(limit.type, std::string("n:") + limit.largest);
  const auto* field = (*below).GetDescriptor()->FindFieldByNumber(2);
  const auto* reflection = (*below).GetReflection();
  switch (field->cpp_type()) {
    case google::protobuf::FieldDescriptor::CPPTYPE_INT32:
      reflection->SetInt32(&*below, field, static_cast<std::int32_t>(limit.value - 1));
      break;
    case google::protobuf::FieldDescriptor::CPPTYPE_UINT32:
      reflection->SetUInt32(&*below, field, static_cast<std::uint32_t>(limit.value - 1));
      break;
    case google::protobuf::FieldDescriptor::CPPTYPE_INT64:
      reflection->SetInt64(&*below, field, limit.value - 1);
      break;
    default:
      reflection->SetUInt64(&*below, field, static_cast<std::uint64_t>(limit.value - 1));
  }
  client.set(below);
  EXPECT_EQ(client.ask(vu_mom_incr, 0, below).integer, limit.value);
  EXPECT_EQ(client.get(below).text(), largest.text());
  const Seen failed = client.ask(vu_mom_incr, 0, below);
  EXPECT_EQ(failed.status, VU_MOM_FAILED);
  EXPECT_FALSE(failed.has_data);
  EXPECT_EQ(client.get(below).text(), largest.text());
}

INSTANTIATE_TEST_SUITE_P(AllForms, Counters,
                         testing::Values(Limit{"SmallCounter", "2147483647", 2147483647},
                                         Limit{"UnsignedCounter", "4294967295", 4294967295},
                                         Limit{"ZigzagCounter", "9223372036854775807", INT64_MAX},
                                         Limit{"FixedCounter", "4294967295", 4294967295},
                                         // Replies have 63 bits for numbers.
                                         Limit{"WideCounter", "9223372036854775807", INT64_MAX}));

TEST(Values, CountersOfOtherFormsCountNegativeNumbers) {
  Client client;
  client.set(Live("ZigzagCounter", "n:-3 tail:'t'"));
  EXPECT_EQ(client.ask(vu_mom_incr, 0, Live("ZigzagCounter", "")).integer, -2);
  EXPECT_EQ(client.get(Live("ZigzagCounter", "")).text(), "n: -2 tail: \"t\"");
  client.set(Live("SmallCounter", "name:'x' n:-7"));
  EXPECT_EQ(client.ask(vu_mom_incr, 0, Live("SmallCounter", "name:'x'")).integer, -6);
}

TEST(Values, ACounterThatIsNotCarriedCountsFromItsDefault) {
  Client client;
  EXPECT_EQ(client.ask(vu_mom_incr, 0, Live("Old", "name:'x' must:1")).integer, 11);
  client.set(Live("Old", "name:'y' must:1"));
  EXPECT_EQ(client.ask(vu_mom_incr, 0, Live("Old", "name:'y' must:1")).integer, 11);
}

TEST(Values, DeleteTakesTheObject) {
  Client client;
  const Live message = port("device:'a' number:1");
  client.set(message);
  EXPECT_EQ(client.ask(vu_mom_del, 0, message).integer, 1);
  EXPECT_FALSE(client.get(message).has_data);
  EXPECT_EQ(client.ask(vu_mom_del, 0, message).integer, 0);
}

class Owners : public testing::Test {
 protected:
  Seen setow(const std::string& text, std::int64_t owner, std::int32_t flag = 0) {
    return client.ask([&](vu_mom_handle* handle, vu_mom_reply_cb callback, void* privdata) {
      return vu_mom_setow_ext(handle, 0, &flag, port(text), callback, privdata, owner);
    });
  }
  Seen delow(const std::string& text, std::int64_t owner) {
    std::int32_t flag = 0;
    return client.ask([&](vu_mom_handle* handle, vu_mom_reply_cb callback, void* privdata) {
      return vu_mom_del_ow_ext(handle, 0, &flag, port(text), callback, privdata, owner);
    });
  }
  std::string stored() { return client.get(port("device:'a' number:1")).text(); }
  Client client;
};

TEST_F(Owners, AnotherOwnerIsRefused) {
  EXPECT_EQ(setow("device:'a' number:1 rx:1", -5).integer, 1);
  const Seen refused = setow("device:'a' number:1 rx:2", 6);
  EXPECT_EQ(refused.status, VU_MOM_FAILED);
  EXPECT_FALSE(refused.has_data);
  EXPECT_EQ(stored(), "device: \"a\" number: 1 rx: 1");
  EXPECT_EQ(setow("device:'a' number:1 rx:3 note:'longer than before'", -5).integer, 1);
  EXPECT_EQ(stored(), "device: \"a\" number: 1 rx: 3 note: \"longer than before\"");
  EXPECT_EQ(delow("device:'a' number:1", 6).status, VU_MOM_FAILED);
  EXPECT_EQ(delow("device:'a' number:1", -5).integer, 1);
  EXPECT_EQ(stored(), "");
  EXPECT_EQ(delow("device:'a' number:1", -5).integer, 0);
  EXPECT_EQ(setow("device:'a' number:1 rx:4", 6).integer, 1);
}

TEST_F(Owners, TheFirstOwnerTakesWhatNobodyHolds) {
  client.set(port("device:'a' number:1 rx:1"));
  EXPECT_EQ(delow("device:'a' number:1", 0).status, VU_MOM_FAILED);
  EXPECT_EQ(setow("device:'a' number:1 rx:2", 0).integer, 1);
  EXPECT_EQ(setow("device:'a' number:1 rx:3", 1).status, VU_MOM_FAILED);
  EXPECT_EQ(stored(), "device: \"a\" number: 1 rx: 2");
}

TEST_F(Owners, SetWritesAndLeavesTheOwner) {
  setow("device:'a' number:1 rx:1", 1);
  client.set(port("device:'a' number:1 rx:2"));
  EXPECT_EQ(stored(), "device: \"a\" number: 1 rx: 2");
  EXPECT_EQ(setow("device:'a' number:1 rx:3", 2).status, VU_MOM_FAILED);
  EXPECT_EQ(delow("device:'a' number:1", 1).integer, 1);
}

TEST_F(Owners, DeletionFreesTheName) {
  setow("device:'a' number:1 rx:1", 1);
  client.send(vu_mom_del, 0, port("device:'a' number:1"));
  EXPECT_EQ(setow("device:'a' number:1 rx:3", 2).integer, 1);
}

}  // namespace
}  // namespace vu::store::test
