#include "message_bytes.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "identity.h"
#include "wire.h"

namespace vu::store {

using google::protobuf::Message;

bool serialise(const Message& message, std::string& bytes) {
  const std::size_t size = message.ByteSizeLong();
  if (size > static_cast<std::size_t>(std::numeric_limits<int>::max())) return false;
  bytes.resize(size);
  google::protobuf::io::ArrayOutputStream array(bytes.data(), static_cast<int>(size));
  google::protobuf::io::CodedOutputStream out(&array);
  out.SetSerializationDeterministic(true);
  message.SerializeWithCachedSizes(&out);
  return !out.HadError();
}

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

std::unique_ptr<Message> restore(const TypeInfo& type, std::string_view bytes,
                                 std::string_view identity) {
  std::unique_ptr<Message> message(type.prototype->New());
  if (!message->ParsePartialFromArray(bytes.data(), static_cast<int>(bytes.size()))) return nullptr;
  if (!fill_keys(*message, type, identity)) return nullptr;
  return message;
}

}  // namespace vu::store
