// Hashes.
#include "store_fixture.h"

namespace vu::store::test {
namespace {

using Tags = std::vector<std::size_t>;

enum Field : std::size_t { kDevice = 1, kNumber, kRx, kNote, kSamples, kHits, kLimits, kSpeed };

class Hashes : public testing::Test {
 protected:
  template <typename Function>
  Seen write(Function function, const std::string& fields, const Tags& tags) {
    const Live message = port("device:'a' number:1 " + fields);
    return client.ask(function, 0, message, tags.empty() ? nullptr : tags.data(),
                      static_cast<std::int32_t>(tags.size()));
  }
  std::int64_t hmset(const std::string& fields, const Tags& tags = {}) {
    return write(vu_mom_hmset, fields, tags).integer;
  }
  Seen hmget(const Tags& tags) {
    return client.ask(vu_mom_hmget, 0, name, tags.empty() ? nullptr : tags.data(),
                      static_cast<std::int32_t>(tags.size()));
  }
  Seen all() { return client.ask(vu_mom_hgetall, 0, name); }

  Client client;
  const Live name = port("device:'a' number:1");
};

TEST_F(Hashes, NothingStoredHasNoData) {
  EXPECT_FALSE(all().has_data);
  EXPECT_FALSE(hmget({kRx}).has_data);
  EXPECT_EQ(all().status, VU_MOM_OK);
}

TEST_F(Hashes, HmsetWithoutNamesWritesWhatIsPresent) {
  EXPECT_EQ(hmset("rx:5 samples:[1,2,3] limits{key:'a' value:1} speed:0"), 6);
  const Seen seen = all();
  EXPECT_EQ(seen.type_code, VU_MOM_TYPE_HMSET);
  EXPECT_EQ(seen.payload, VU_PLATFORM_PAYLOAD_HASH);
  EXPECT_EQ(seen.tags, (Tags{kDevice, kNumber, kRx, kSamples, kLimits, kSpeed}));
  EXPECT_EQ(seen.text(),
            "device: \"a\" number: 1 rx: 5 samples: 1 samples: 2 samples: 3 "
            "limits { key: \"a\" value: 1 } speed: 0");
  // Others stay.
  EXPECT_EQ(hmset("note:'n'"), 3);
  EXPECT_EQ(all().tags, (Tags{kDevice, kNumber, kRx, kNote, kSamples, kLimits, kSpeed}));
}

TEST_F(Hashes, HmsetWritesNamedFieldsAndDeletesThoseNotCarried) {
  EXPECT_EQ(hmset("rx:5 note:'n' hits:1", {kRx, kNote}), 2);
  EXPECT_EQ(all().tags, (Tags{kRx, kNote}));
  EXPECT_EQ(all().text(), "device: \"a\" number: 1 rx: 5 note: \"n\"");
  EXPECT_EQ(hmset("hits:2 note:'m'", {kHits, kRx, kSpeed, kHits}), 2);
  EXPECT_EQ(all().tags, (Tags{kNote, kHits}));
  EXPECT_EQ(all().text(), "device: \"a\" number: 1 note: \"n\" hits: 2");
}

TEST_F(Hashes, AHashWithoutFieldsIsGone) {
  hmset("rx:5", {kRx});
  EXPECT_EQ(hmset("", {kRx}), 1);
  EXPECT_FALSE(all().has_data);
  client.set(port("device:'a' number:1 rx:1"));  // the name is free for another kind
  EXPECT_TRUE(client.get(name).has_data);
}

TEST_F(Hashes, DeletingFieldsOfNothingMakesNothing) {
  EXPECT_EQ(hmset("", {kRx, kNote}), 0);
  EXPECT_FALSE(all().has_data);
  client.set(port("device:'a' number:1 rx:1"));
  EXPECT_TRUE(client.get(name).has_data);
}

TEST_F(Hashes, HmsetnxWritesIfNoneOfTheFieldsExists) {
  EXPECT_EQ(write(vu_mom_hmsetnx, "rx:1 note:'n'", {kRx}).integer, 1);
  EXPECT_EQ(write(vu_mom_hmsetnx, "rx:2 note:'n'", {kNote, kRx}).integer, 0);
  EXPECT_EQ(all().tags, Tags{kRx});
  EXPECT_EQ(write(vu_mom_hmsetnx, "rx:2 note:'n'", {kNote}).integer, 1);
  EXPECT_EQ(all().text(), "device: \"a\" number: 1 rx: 1 note: \"n\"");
  EXPECT_EQ(write(vu_mom_hmsetnx, "rx:7", {}).integer, 0);
  EXPECT_EQ(write(vu_mom_hmsetnx, "", {kRx}).integer, 0);  // exists, and is not deleted
  EXPECT_EQ(all().tags, (Tags{kRx, kNote}));
}

TEST_F(Hashes, HmupdateWritesFieldsOfAnObjectThatExists) {
  EXPECT_EQ(write(vu_mom_hmupdate, "rx:1", {kRx}).integer, 0);
  EXPECT_FALSE(all().has_data);
  hmset("rx:1", {kRx});
  EXPECT_EQ(write(vu_mom_hmupdate, "rx:2 note:'n'", {kRx, kNote}).integer, 2);
  EXPECT_EQ(all().text(), "device: \"a\" number: 1 rx: 2 note: \"n\"");
  EXPECT_EQ(write(vu_mom_hmupdate, "", {kRx}).integer, 1);
  EXPECT_EQ(all().tags, Tags{kNote});
}

TEST_F(Hashes, HmgetTellsWhichFieldsWereNamed) {
  hmset("rx:5 note:'n'", {kRx, kNote});
  const Seen seen = hmget({kHits, kNote});
  EXPECT_EQ(seen.tags, (Tags{kNote, kHits}));
  EXPECT_EQ(seen.text(), "device: \"a\" number: 1 note: \"n\"");
  EXPECT_EQ(hmget({}).tags, (Tags{kRx, kNote}));
  const Seen none = hmget({kSpeed});
  EXPECT_TRUE(none.has_data);
  EXPECT_EQ(none.tags, Tags{kSpeed});
  EXPECT_EQ(none.text(), "device: \"a\" number: 1");
}

TEST_F(Hashes, OtherKindsAreRefused) {
  client.set(port("device:'a' number:1 rx:1"));
  for (const Seen& seen :
       {all(), hmget({kRx}), write(vu_mom_hmset, "rx:2", {}),
        write(vu_mom_hmsetnx, "hits:2", {kHits}), write(vu_mom_hmupdate, "rx:2", {kRx})}) {
    EXPECT_EQ(seen.status, VU_MOM_FAILED);
    EXPECT_EQ(seen.error, "the object is a single value, not a hash");
    EXPECT_FALSE(seen.has_data);
  }
  EXPECT_EQ(client.get(name).text(), "device: \"a\" number: 1 rx: 1");
}

TEST_F(Hashes, UnknownFieldsAreBadInput) {
  const Tags unknown{kRx, 77};
  const Tags zero{0};
  const Tags huge{static_cast<std::size_t>(-1)};
  for (const Tags* tags : {&unknown, &zero, &huge}) {
    const auto count = static_cast<std::int32_t>(tags->size());
    EXPECT_EQ(vu_mom_hmset(client.handle(), 0, name, tags->data(), count, nullptr, nullptr),
              VU_MOM_BAD_INPUT);
    EXPECT_EQ(vu_mom_hmget(client.handle(), 0, name, tags->data(), count, nullptr, nullptr),
              VU_MOM_BAD_INPUT);
  }
  EXPECT_EQ(vu_mom_hmset(client.handle(), 0, name, nullptr, 2, nullptr, nullptr), VU_MOM_BAD_INPUT);
  EXPECT_EQ(vu_mom_hmset(client.handle(), 0, name, unknown.data(), -1, nullptr, nullptr),
            VU_MOM_BAD_INPUT);
}

}  // namespace
}  // namespace vu::store::test
