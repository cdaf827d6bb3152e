// How much may be on its way before requests are refused.
#include <gtest/gtest.h>

#include "process.h"
#include "redis_server.h"

namespace vu::testing {
namespace {

constexpr std::int32_t kNoFlags = 0;

std::int32_t set(Process& process, const Live& message) {
  std::int32_t flags = kNoFlags;
  return vu_mom_set_ext(process.handle.handle(), 0, &flags, message, nullptr, nullptr);
}

TEST(LimitsTest, OfCommandsThatWait) {
#ifdef __arm__
  GTEST_SKIP() << "a million commands take an emulated processor minutes";
#endif
  constexpr int kMost = 1 << 20;
  RedisServer server;
  Process process(server.url("?command_timeout=1&connect_timeout=1"));
  vu_mom_handle* const handle = process.handle.handle();
  server.kill();
  struct Told {
    int done = 0;
    int not_done = 0;
  };
  Told told;
  const auto count = [](void*, const vu_mom_reply* reply, void* privdata) {
    Told& all = *static_cast<Told*>(privdata);
    ++(vu_platform_details_of(reply)->status == VU_MOM_OK ? all.done : all.not_done);
  };
  const Live message = port("device:'a'");
  for (int i = 0; i < kMost; ++i) {
    ASSERT_EQ(vu_mom_get(handle, 0, message, count, &told), VU_MOM_OK) << i;
  }
  // Whatever it is, it is refused, and nothing comes of it.
  EXPECT_EQ(vu_mom_get(handle, 0, message, count, &told), VU_MOM_FAILED);
  EXPECT_EQ(set(process, message), VU_MOM_FAILED);
  EXPECT_EQ(vu_mom_scan(handle, 0, message, 0, &store::test::Client::on_stream, nullptr),
            VU_MOM_FAILED);
  EXPECT_EQ(told.not_done + told.done, 0);
  ASSERT_TRUE(process.drive_until([&] { return told.not_done == kMost; }));
  EXPECT_EQ(told.done, 0);

  server.start();
  EXPECT_FALSE(process.ask(message).has_data);
  EXPECT_EQ(set(process, message), VU_MOM_OK);
  EXPECT_TRUE(process.ask(message).has_data);
  EXPECT_EQ(told.not_done, kMost);
}

TEST(LimitsTest, OfBytesThatAreNotSent) {
#ifdef __arm__
  GTEST_SKIP() << "it takes more memory than a device has";
#endif
  constexpr unsigned kMost = 256;
  RedisServer server;
  Process process(server.url("?command_timeout=100"));
  const std::string large(1 << 20, 'x');
  const auto set_number = [&](unsigned number) {
    const std::string text = "device:'a' rx:" + std::to_string(number) + " note:'" + large + "'";
    return set(process, port(text));
  };
  unsigned accepted = 0;
  while (accepted <= kMost && set_number(accepted + 1) == VU_MOM_OK) ++accepted;
  EXPECT_EQ(accepted, kMost);
  EXPECT_EQ(set(process, port("device:'refused'")), VU_MOM_FAILED);
  int completed = 0;
  void* const slot = process.handle.slot(1, [&](const Seen&) { ++completed; });
  EXPECT_EQ(vu_mom_get(process.handle.handle(), 0, port("device:'a'"),
                       &store::test::Client::on_reply, slot),
            VU_MOM_FAILED);

  // What was accepted is carried out, and what was not is not.
  ASSERT_TRUE(process.drive_until([&] { return set(process, port("device:'b'")) == VU_MOM_OK; }));
  const Seen stored = process.ask(port("device:'a'"));
  EXPECT_TRUE(stored.text().starts_with("device: \"a\" rx: 256 note: \"xxx")) << stored.error;
  EXPECT_FALSE(process.ask(port("device:'refused'")).has_data);
  EXPECT_EQ(completed, 0);
}

}  // namespace
}  // namespace vu::testing
