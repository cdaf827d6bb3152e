#include "store_messages.h"

#include <algorithm>
#include <deque>
#include <map>
#include <memory>

#include "../store/test_messages.h"
#include "input.h"
#include "message_bytes.h"

namespace vu::fuzz {

namespace {

namespace pb = google::protobuf;
using store::test::Live;
using store::test::make_message;

struct Description {
  const char* name;
  std::vector<int> keys;
  int counter;
  std::int64_t most;
};

const Description kTypes[] = {
    {"Port", {1, 2}, 6, INT64_MAX},
    {"Single", {}, 0, 0},
    {"Every", {10, 2, 7, 4, 5, 6}, 0, 0},
    {"SmallCounter", {1}, 2, INT32_MAX},
    {"UnsignedCounter", {}, 2, UINT32_MAX},
    {"ZigzagCounter", {}, 2, INT64_MAX},
    {"FixedCounter", {}, 2, UINT32_MAX},
    {"WideCounter", {}, 2, INT64_MAX},
    {"Entry", {1}, 0, 0},
    {"Old", {1, 2}, 6, INT32_MAX},
};

constexpr int kPort = 0, kSingle = 1, kEvery = 2, kSmall = 3, kUnsigned = 4, kZigzag = 5,
              kFixed = 6, kWide = 7, kEntry = 8, kOld = 9;

struct Texts {
  int type;
  const char* key;
  std::vector<const char*> contents;
};

const Texts kGroups[] = {
    {kPort,
     "device: 'a' number: 1",
     {"", "note: 'x'", "rx: 7 note: 'y' hits: 3", "samples: [1, 2] speed: 0",
      "limits { key: 'b' value: 1 } limits { key: 'a' value: 2 }", "hits: 9223372036854775806",
      "hits: -1 blob: '\\377\\000'"}},
    {kPort, "device: 'a' number: 2", {"", "note: 'x'", "rx: 7 note: 'y' hits: 3", "speed: -5"}},
    {kEntry, "key: 'k'", {"", "value: 'v'", "value: '\\000\\377'", "value: 'w'"}},
    {kPort, "", {"", "note: 'x'", "hits: 9223372036854775807"}},
    {kOld,
     "",
     {"", "must: 1", "must: 0 n: 10", "n: 2147483647", "Part { x: 1 } must: 2", "name: 'nobody'",
      "level: ONE must: 1"}},
    {kSingle, "", {"", "text: 'a'", "text: 'bb'"}},
    {kSmall, "name: 'c'", {"", "n: 2147483646", "n: 2147483647", "n: -1", "n: -2147483648"}},
    {kEvery, "a: -1 b: true c: BLUE d: '\\000' e: -7 f: 18446744073709551615", {"", "rest: 'r'"}},
    {kEvery, "a: -1 b: true", {"", "rest: 'r'"}},
    {kEvery, "", {"", "rest: 'r'", "rest: 's'"}},
    {kEntry, "key: ''", {"", "value: 'v'"}},
    {kEntry, "key: 'kk'", {"", "value: 'v'"}},
    {kUnsigned, "", {"", "n: 4294967294", "n: 4294967295"}},
    {kZigzag, "", {"", "n: -1", "n: -9223372036854775808 tail: 't'", "n: 9223372036854775806"}},
    {kFixed, "", {"", "n: 4294967294", "n: 1"}},
    {kWide, "", {"", "n: 9223372036854775806", "n: 18446744073709551615"}},
    {kOld, "name: 'x' level: TWO", {"", "must: 1 n: 10", "Part { }"}},
    {kPort, "device: 'b' number: 1", {"", "note: 'x' speed: 1"}},
};

std::string little_endian(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text.push_back(static_cast<char>(value >> (8 * i)));
  return text;
}

// A key component as vu_platform.h defines it.
std::string component_of(const pb::Message& message, const pb::FieldDescriptor& field) {
  const pb::Reflection& reflection = *message.GetReflection();
  using Field = pb::FieldDescriptor;
  switch (field.cpp_type()) {
    case Field::CPPTYPE_INT32:
      return "i" +
             little_endian(
                 static_cast<std::uint64_t>(std::int64_t{reflection.GetInt32(message, &field)}), 8);
    case Field::CPPTYPE_INT64:
      return "i" +
             little_endian(static_cast<std::uint64_t>(reflection.GetInt64(message, &field)), 8);
    case Field::CPPTYPE_ENUM:
      return "i" +
             little_endian(static_cast<std::uint64_t>(reflection.GetEnumValue(message, &field)), 8);
    case Field::CPPTYPE_UINT32:
      return "u" + little_endian(reflection.GetUInt32(message, &field), 8);
    case Field::CPPTYPE_UINT64:
      return "u" + little_endian(reflection.GetUInt64(message, &field), 8);
    case Field::CPPTYPE_BOOL:
      return "b" + std::string(1, reflection.GetBool(message, &field) ? '\1' : '\0');
    default: {
      const std::string text = reflection.GetString(message, &field);
      const char letter = field.type() == Field::TYPE_BYTES ? 'y' : 's';
      return letter + little_endian(text.size(), 4) + text;
    }
  }
}

// The records of each field that the message carries.
Fields fields_of(const pb::Message& message) {
  std::vector<const pb::FieldDescriptor*> carried;
  message.GetReflection()->ListFields(message, &carried);
  Fields fields;
  for (const auto* field : carried) {
    const std::unique_ptr<pb::Message> one(message.New());
    one->CopyFrom(message);
    for (const auto* other : carried) {
      if (other != field) one->GetReflection()->ClearField(one.get(), other);
    }
    fields[static_cast<std::uint32_t>(field->number())] = bytes_of(*one);
  }
  return fields;
}

pb::Message& scratch_of(int type) {
  static auto* const all = new std::map<int, std::unique_ptr<pb::Message>>();
  auto& scratch = (*all)[type];
  if (!scratch) scratch = make_message(kTypes[type].name, "");
  return *scratch;
}

const pb::FieldDescriptor& counter_of(int type) {
  return *scratch_of(type).GetDescriptor()->FindFieldByNumber(kTypes[type].counter);
}

std::int64_t read_counter(const pb::Message& message, const pb::FieldDescriptor& field) {
  const pb::Reflection& reflection = *message.GetReflection();
  switch (field.cpp_type()) {
    case pb::FieldDescriptor::CPPTYPE_INT32:
      return reflection.GetInt32(message, &field);
    case pb::FieldDescriptor::CPPTYPE_INT64:
      return reflection.GetInt64(message, &field);
    case pb::FieldDescriptor::CPPTYPE_UINT32:
      return reflection.GetUInt32(message, &field);
    default: {
      const std::uint64_t value = reflection.GetUInt64(message, &field);
      return value > INT64_MAX ? INT64_MAX : static_cast<std::int64_t>(value);
    }
  }
}

std::string make_record(int type, std::int64_t value) {
  pb::Message& message = scratch_of(type);
  message.Clear();
  const pb::FieldDescriptor& field = counter_of(type);
  const pb::Reflection& reflection = *message.GetReflection();
  switch (field.cpp_type()) {
    case pb::FieldDescriptor::CPPTYPE_INT32:
      reflection.SetInt32(&message, &field, static_cast<std::int32_t>(value));
      break;
    case pb::FieldDescriptor::CPPTYPE_INT64:
      reflection.SetInt64(&message, &field, value);
      break;
    case pb::FieldDescriptor::CPPTYPE_UINT32:
      reflection.SetUInt32(&message, &field, static_cast<std::uint32_t>(value));
      break;
    default:
      reflection.SetUInt64(&message, &field, static_cast<std::uint64_t>(value));
  }
  return bytes_of(message);
}

std::int64_t read_record(int type, const std::string& record) {
  pb::Message& message = scratch_of(type);
  check(message.ParsePartialFromString(record), "a record of a counter is none");
  return read_counter(message, counter_of(type));
}

std::vector<Type> make_types() {
  std::vector<Type> all;
  for (int i = 0; i < static_cast<int>(std::size(kTypes)); ++i) {
    const Description& description = kTypes[i];
    const pb::Descriptor& descriptor = *scratch_of(i).GetDescriptor();
    Type type;
    type.keys.assign(description.keys.begin(), description.keys.end());
    for (int field = 0; field < descriptor.field_count(); ++field) {
      type.numbers.push_back(static_cast<std::uint32_t>(descriptor.field(field)->number()));
    }
    std::sort(type.numbers.begin(), type.numbers.end());
    if (description.counter != 0) {
      type.counter.number = static_cast<std::uint32_t>(description.counter);
      type.counter.initial = read_counter(scratch_of(i), counter_of(i));
      type.counter.most = description.most;
      type.counter.record = make_record;
      type.counter.value = read_record;
    }
    all.push_back(type);
  }
  return all;
}

std::vector<Group> make_groups() {
  static auto* const names = new std::deque<Name>();  // for the whole process
  std::vector<Group> all;
  for (const Texts& texts : kGroups) {
    const Description& description = kTypes[texts.type];
    Name* const name = &names->emplace_back();
    name->type = texts.type;
    Group group;
    for (const char* const content : texts.contents) {
      const auto live =
          std::make_shared<Live>(description.name, std::string(texts.key) + " " + content);
      const pb::Message& message = **live;
      if (name->components.empty()) {
        const auto named = make_message(description.name, texts.key);
        name->keys = fields_of(*named);
        for (const int key : description.keys) {
          name->components.push_back(
              component_of(message, *message.GetDescriptor()->FindFieldByNumber(key)));
          name->identity += name->components.back();
        }
      }
      Known known;
      known.name = name;
      known.fields = fields_of(message);
      known.bytes = bytes_of(message);
      known.address = *live;
      known.held = live;
      group.push_back(known);
    }
    all.push_back(group);
  }
  return all;
}

}  // namespace

const std::vector<Type>& types() {
  static const auto* const all = new std::vector<Type>(make_types());
  return *all;
}

const std::vector<Group>& groups() {
  static const auto* const all = new std::vector<Group>(make_groups());
  return *all;
}

}  // namespace vu::fuzz
