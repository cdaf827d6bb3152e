// A program in C++ that stores a message and reads it back.
#include <google/protobuf/wrappers.pb.h>
#include <vu_platform.h>
#include <vu_store.h>

#include <cstdint>
#include <iostream>
#include <string>

namespace {

using google::protobuf::Message;
using google::protobuf::StringValue;

void on_reply(void*, const vu_mom_reply* reply, void* privdata) {
  const auto* message = static_cast<const Message*>(reply->data);
  if (message == nullptr) return;
  // Its class is the store's own, of the same type.
  StringValue value;
  value.ParseFromString(message->SerializeAsString());
  *static_cast<std::string*>(privdata) = value.value();
}

}  // namespace

int main() {
  char error[200] = "";
  vu_mom_handle* handle =
      vu_platform_open("embedded:", nullptr, [](void*) {}, nullptr, error, sizeof error);
  if (handle == nullptr) {
    std::cerr << error << '\n';
    return 1;
  }
  StringValue value;
  value.set_value("stored by C++");
  const auto address = reinterpret_cast<vu_mom_message>(static_cast<Message*>(&value));
  vu_platform_message_add(address);
  std::int32_t flag = VU_STORE_QUIET;
  std::string read;
  const bool accepted =
      vu_mom_set_ext(handle, 0, &flag, address, nullptr, nullptr) == VU_MOM_OK &&
      vu_mom_get(handle, 0, address, on_reply, &read) == VU_MOM_OK;
  while (vu_platform_deliver(handle, 8) != 0) {
  }
  std::cout << read << '\n';
  vu_platform_message_remove(address);
  vu_platform_close(handle);
  vu_platform_free(handle);
  return accepted && read == value.value() ? 0 : 1;
}
