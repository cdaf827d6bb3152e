#include "message_bytes.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "identity.h"
#include "plain_codec.h"
#include "wire.h"

namespace vu::store {

using google::protobuf::Message;

namespace {

constexpr std::size_t kLargest = std::numeric_limits<int>::max();

bool serialise_any(const Message& message, std::string& bytes) {
  const std::size_t size = message.ByteSizeLong();
  if (size > kLargest) return false;
  bytes.resize(size);
  google::protobuf::io::ArrayOutputStream array(bytes.data(), static_cast<int>(size));
  google::protobuf::io::CodedOutputStream out(&array);
  out.SetSerializationDeterministic(true);
  message.SerializeWithCachedSizes(&out);
  return !out.HadError();
}

// Takes the key fields out of a serialisation.
std::string strip_keys(const Message& message, const TypeInfo& type, std::string_view bytes) {
  std::vector<std::uint32_t> dropped;
  for (const auto* field : type.keys) {
    if (!is_default_key(message, *field)) {
      dropped.push_back(static_cast<std::uint32_t>(field->number()));
    }
  }
  std::string rest;
  rest.reserve(bytes.size());
  WireReader reader(bytes);
  for (WireRecord record; reader.next(record);) {
    // Known fields come first and once; an unknown one of the same number stays.
    const auto found = std::find(dropped.begin(), dropped.end(), record.number);
    if (found == dropped.end()) {
      rest.append(record.bytes);
    } else {
      dropped.erase(found);
    }
  }
  return rest;
}

}  // namespace

bool serialise(const Message& message, const TypeInfo& type, std::string& bytes) {
  bytes.clear();
  if (plain::serialise(message, *type.plain_fields, bytes)) return bytes.size() <= kLargest;
  return serialise_any(message, bytes);
}

bool store_bytes(const Message& message, const TypeInfo& type, std::string& bytes) {
  const auto is_stored = [&](const plain::Slot& slot) {
    const auto& keys = type.key_slots;
    return std::find(keys.begin(), keys.end(), &slot) == keys.end() ||
           plain::is_default(message, slot);
  };
  bytes.clear();
  if (plain::serialise(message, *type.plain_fields, bytes, is_stored))
    return bytes.size() <= kLargest;
  if (!serialise_any(message, bytes)) return false;
  bytes = strip_keys(message, type, bytes);
  return true;
}

std::unique_ptr<Message> restore(const TypeInfo& type, std::string_view bytes,
                                 std::string_view identity) {
  std::unique_ptr<Message> message = type.spare->take();
  if (!plain::parse(*message, *type.plain_fields, bytes) &&
      !message->ParsePartialFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
    return nullptr;
  }
  if (!fill_keys(*message, type, identity)) return nullptr;
  return message;
}

}  // namespace vu::store
