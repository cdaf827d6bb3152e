#include "message_bytes.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include "input.h"

namespace vu::fuzz {

namespace pb = google::protobuf;

std::string bytes_of(const pb::Message& message) {
  std::string bytes;
  {
    pb::io::StringOutputStream stream(&bytes);
    pb::io::CodedOutputStream out(&stream);
    out.SetSerializationDeterministic(true);
    check(message.SerializePartialToCodedStream(&out), "a message cannot be serialised");
  }
  return bytes;
}

}  // namespace vu::fuzz
