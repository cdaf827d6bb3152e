#include "message_bytes.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <limits>

#include "errors.h"
#include "native_map.h"
#include "plain_codec.h"

namespace vu {

namespace pb = google::protobuf;

namespace {

constexpr std::size_t kUsualSize = 200;  // of a message's bytes

void check_size(const MessageObject& message, std::size_t size) {
  if (size > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    py::raise(encode_error, "%s: more than 2 GiB", message.info->name());
  }
}

// Fills as many bytes as ByteSizeLong has just told.
void serialize_to(const NativeMessage& message, std::size_t size, void* start, bool deterministic) {
  if (!deterministic) {
    message.SerializeWithCachedSizesToArray(static_cast<std::uint8_t*>(start));
    return;
  }
  pb::io::ArrayOutputStream array(start, static_cast<int>(size));
  pb::io::CodedOutputStream out(&array);
  out.SetSerializationDeterministic(true);
  message.SerializeWithCachedSizes(&out);
}

}  // namespace

py::Owned serialized(const MessageObject& message, bool deterministic) {
  std::string plain_bytes;
  plain_bytes.reserve(kUsualSize);
  if (plain::serialise(*message.native, *message.info->plain, plain_bytes)) {
    check_size(message, plain_bytes.size());
    return py::checked(
        PyBytes_FromStringAndSize(plain_bytes.data(), static_cast<Py_ssize_t>(plain_bytes.size())));
  }
  const std::size_t size = message.native->ByteSizeLong();
  check_size(message, size);
  py::Owned bytes = py::checked(PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(size)));
  serialize_to(*message.native, size, PyBytes_AS_STRING(bytes.get()), deterministic);
  return bytes;
}

std::string serialized_text(const MessageObject& message) {
  const std::size_t size = message.native->ByteSizeLong();
  check_size(message, size);
  std::string bytes(size, '\0');
  serialize_to(*message.native, size, bytes.data(), true);
  return bytes;
}

std::unique_ptr<NativeMessage> parsed(const MessageInfo& info, std::string_view bytes) {
  std::unique_ptr<NativeMessage> native = new_native(info);
  if (plain::parse(*native, *info.plain, bytes)) return native;
  native = new_native(info);
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()) ||
      !native->ParseFrom<NativeMessage::kMergePartial>(
          pb::StringPiece(bytes.data(), bytes.size()))) {
    py::raise(decode_error, "%s: these %zd bytes are no such message", info.name(),
              static_cast<Py_ssize_t>(bytes.size()));
  }
  settle_maps(info, *native);
  return native;
}

}  // namespace vu
