// Plain fields against libprotobuf's reflection and its own serialisation.
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "plain_codec.h"
#include "random.h"
#include "test_messages.h"

namespace vu::store::test {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

std::string by_protobuf(const Message& message) {
  std::string bytes;
  google::protobuf::io::StringOutputStream stream(&bytes);
  google::protobuf::io::CodedOutputStream out(&stream);
  out.SetSerializationDeterministic(true);
  message.SerializePartialToCodedStream(&out);
  out.Trim();
  return bytes;
}

// A value that is often at the border of something.
std::uint64_t number(Random& random) {
  const std::uint64_t edges[] = {0, 1, 127, 128, 0x7fffffff, 0x80000000, 0xffffffff, 1ull << 63};
  const std::uint64_t wide = std::uint64_t{random()} << 32 | random();
  return random() % 2 == 0 ? edges[random() % 8] : wide >> random() % 64;
}

double real(Random& random) {
  const double edges[] = {0.0, -0.0, 1.5, std::numeric_limits<double>::infinity(),
                          std::numeric_limits<double>::quiet_NaN()};
  return edges[random() % 5];
}

void set_by_reflection(Message& message, const FieldDescriptor& field, Random& random) {
  const auto& set = *message.GetReflection();
  const std::uint64_t value = number(random);
  switch (field.cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
      return set.SetInt32(&message, &field, static_cast<std::int32_t>(value));
    case FieldDescriptor::CPPTYPE_INT64:
      return set.SetInt64(&message, &field, static_cast<std::int64_t>(value));
    case FieldDescriptor::CPPTYPE_UINT32:
      return set.SetUInt32(&message, &field, static_cast<std::uint32_t>(value));
    case FieldDescriptor::CPPTYPE_UINT64:
      return set.SetUInt64(&message, &field, value);
    case FieldDescriptor::CPPTYPE_DOUBLE:
      return set.SetDouble(&message, &field, real(random));
    case FieldDescriptor::CPPTYPE_FLOAT:
      return set.SetFloat(&message, &field, static_cast<float>(real(random)));
    case FieldDescriptor::CPPTYPE_BOOL:
      return set.SetBool(&message, &field, value % 2 != 0);
    case FieldDescriptor::CPPTYPE_ENUM: {
      const auto& names = *field.enum_type();
      const int index = static_cast<int>(random() % static_cast<unsigned>(names.value_count()));
      return set.SetEnum(&message, &field, names.value(index));
    }
    default:
      return set.SetString(&message, &field, std::string(random() % 30, 'x'));
  }
}

class Plain : public testing::TestWithParam<const char*> {
 protected:
  std::unique_ptr<Message> make() const { return make_message(GetParam(), ""); }

  std::unique_ptr<Message> make_random() {
    std::unique_ptr<Message> message = make();
    for (const plain::Slot& slot : fields.slots()) {
      if (random() % 3 != 0) set_by_reflection(*message, *slot.field, random);
    }
    return message;
  }

  const google::protobuf::LogSilencer quiet;  // it complains of texts that are not UTF-8
  Random random{7};
  const std::unique_ptr<Message> prototype = make();
  const plain::Fields fields{*prototype};
};

TEST_P(Plain, PresenceIsThatOfReflection) {
  for (int i = 0; i < 2000; ++i) {
    const std::unique_ptr<Message> message = make_random();
    for (const plain::Slot& slot : fields.slots()) {
      ASSERT_EQ(plain::has(*message, slot),
                message->GetReflection()->HasField(*message, slot.field))
          << slot.field->full_name();
    }
  }
}

TEST_P(Plain, BytesAreThoseOfProtobuf) {
  ASSERT_TRUE(fields.is_plain());
  for (int i = 0; i < 2000; ++i) {
    const std::unique_ptr<Message> message = make_random();
    std::string bytes;
    ASSERT_TRUE(plain::serialise(*message, fields, bytes));
    ASSERT_EQ(bytes, by_protobuf(*message));
  }
}

// Whatever is parsed here is parsed to the same by protobuf.
TEST_P(Plain, DamagedBytesAreParsedAsByProtobuf) {
  int parsed = 0;
  for (int i = 0; i < 20000; ++i) {
    std::string bytes = by_protobuf(*make_random()) + by_protobuf(*make_random());
    for (unsigned changes = random() % 3; changes > 0 && !bytes.empty(); --changes) {
      const std::size_t at = random() % bytes.size();
      if (random() % 2 == 0) {
        bytes[at] = static_cast<char>(random());
      } else {
        bytes.resize(at);
      }
    }
    const std::unique_ptr<Message> ours = make();
    if (!plain::parse(*ours, fields, bytes)) continue;
    ++parsed;
    const std::unique_ptr<Message> theirs = make();
    ASSERT_TRUE(theirs->ParsePartialFromString(bytes));
    ASSERT_EQ(by_protobuf(*ours), by_protobuf(*theirs));
  }
  EXPECT_GT(parsed, 5000);
}

TEST_P(Plain, MessagesWithUnknownFieldsAreLeftToProtobuf) {
  const std::unique_ptr<Message> message = make_random();
  message->GetReflection()->MutableUnknownFields(message.get())->AddVarint(1000, 1);
  std::string bytes;
  EXPECT_FALSE(plain::serialise(*message, fields, bytes));
  EXPECT_EQ(bytes, "");
  EXPECT_FALSE(plain::parse(*make(), fields, by_protobuf(*message)));
}

// As if it had been made just now: nothing is left of what was in it.
TEST_P(Plain, ClearedMessagesAreLikeNewOnes) {
  constexpr std::size_t kEnough = 1u << 20;
  const std::unique_ptr<Message> reused = make();
  for (int i = 0; i < 2000; ++i) {
    const std::unique_ptr<Message> first = make_random();
    ASSERT_TRUE(plain::parse(*reused, fields, by_protobuf(*first)));
    ASSERT_EQ(by_protobuf(*reused), by_protobuf(*first));
    ASSERT_TRUE(plain::clear(*reused, fields, kEnough));
    ASSERT_EQ(by_protobuf(*reused), "");
    ASSERT_EQ(text_of(*reused), text_of(*prototype));
    const std::unique_ptr<Message> filled_by_protobuf = make_random();
    ASSERT_TRUE(plain::clear(*filled_by_protobuf, fields, kEnough));
    ASSERT_EQ(by_protobuf(*filled_by_protobuf), "");
  }
}

TEST_P(Plain, MessagesWithMoreThanTheirFieldsAreNotCleared) {
  const std::unique_ptr<Message> message = make_random();
  const std::string before = by_protobuf(*message);
  std::size_t room = 0;
  for (const plain::Slot& slot : fields.slots()) {
    if (slot.is_text()) room += plain::read_text(*message, slot).capacity();
  }
  if (room != 0) {
    EXPECT_FALSE(plain::clear(*message, fields, room - 1));
    EXPECT_EQ(by_protobuf(*message), before);
  }
  message->GetReflection()->MutableUnknownFields(message.get())->AddVarint(1000, 1);
  EXPECT_FALSE(plain::clear(*message, fields, room));
  message->GetReflection()->MutableUnknownFields(message.get())->Clear();
  EXPECT_TRUE(plain::clear(*message, fields, room));
}

INSTANTIATE_TEST_SUITE_P(Types, Plain,
                         testing::Values("Every", "Entry", "ZigzagCounter", "FixedCounter",
                                         "SmallCounter", "Numbers", "OldNumbers"),
                         [](const auto& type) { return std::string(type.param); });

TEST(PlainFields, TypesWithOtherFieldsAreNotPlain) {
  const std::unique_ptr<Message> message = make_message("Port", "");
  const plain::Fields fields(*message);
  EXPECT_FALSE(fields.is_plain());
  const auto& type = *message->GetDescriptor();
  EXPECT_NE(fields.slot(*type.FindFieldByName("note")), nullptr);
  EXPECT_EQ(fields.slot(*type.FindFieldByName("samples")), nullptr);
  EXPECT_EQ(fields.slot(*type.FindFieldByName("limits")), nullptr);
  const std::unique_ptr<Message> old = make_message("Old", "");
  EXPECT_EQ(plain::Fields(*old).slot(*old->GetDescriptor()->FindFieldByName("name")), nullptr);
}

}  // namespace
}  // namespace vu::store::test
