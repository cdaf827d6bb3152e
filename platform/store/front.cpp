#include "front.h"

#include <algorithm>
#include <new>
#include <stdexcept>

#include "identity.h"
#include "live.h"
#include "message_bytes.h"

namespace vu::store {

using google::protobuf::Message;

namespace {

std::int32_t status_of(std::int32_t (*run)(void*), void* context) noexcept {
  try {
    return run(context);
  } catch (const Refused& refused) {
    return refused.status();
  } catch (const std::bad_alloc&) {
    return VU_MOM_NO_MEMORY;
  } catch (const std::length_error&) {
    return VU_MOM_NO_MEMORY;
  } catch (const std::exception&) {
    return VU_MOM_FAILED;
  }
}

}  // namespace

std::int32_t answer_with_status(vu_mom_handle* handle, std::int32_t (*run)(void*),
                                void* context) noexcept {
  const std::int32_t status = status_of(run, context);
  if (status != VU_MOM_OK && handle != nullptr) ++handle->counters().refused;
  return status;
}

const Message& message_at(vu_mom_message address) {
  require(is_live(address));
  // NOLINTNEXTLINE(performance-no-int-to-ptr): addresses come as integers
  return *reinterpret_cast<const Message*>(address);
}

const Message& name_object(Request& request, std::int32_t db, vu_mom_message message) {
  require(db >= 0);
  const Message& named = message_at(message);
  request.db = db;
  request.type = type_of(named);
  require(request.type != nullptr);
  request.identity = identity_of(named, *request.type);
  return named;
}

std::string stored_bytes(const Request& request, const Message& named) {
  std::string bytes;
  require(store_bytes(named, *request.type, bytes));
  return bytes;
}

namespace {

const Message& same_object_at(const Request& request, vu_mom_message message) {
  const Message& other = message_at(message);
  const TypeInfo* type = type_of(other);
  require(type != nullptr && type->id == request.type->id);
  require(identity_of(other, *type) == request.identity);
  return other;
}

}  // namespace

std::string stored_bytes_at(const Request& request, vu_mom_message message) {
  const Message& other = same_object_at(request, message);
  std::string bytes;
  require(store_bytes(other, *type_of(other), bytes));
  return bytes;
}

std::string member_bytes(const Message& named) {
  std::string bytes;
  require(serialise(named, *type_of(named), bytes));
  return bytes;
}

std::string member_bytes_at(const Request& request, vu_mom_message message) {
  return member_bytes(same_object_at(request, message));
}

std::vector<std::uint32_t> field_numbers(const Request& request, const std::size_t* tags,
                                         std::int32_t count) {
  require(count >= 0 && (tags != nullptr || count == 0));
  std::vector<std::uint32_t> numbers;
  numbers.reserve(static_cast<std::size_t>(count));
  for (std::int32_t i = 0; i < count; ++i) {
    constexpr std::size_t kLargest = google::protobuf::FieldDescriptor::kMaxNumber;
    require(tags[i] <= kLargest);
    require(request.type->descriptor->FindFieldByNumber(static_cast<int>(tags[i])) != nullptr);
    numbers.push_back(static_cast<std::uint32_t>(tags[i]));
  }
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  return numbers;
}

std::int32_t submit(vu_mom_handle* handle, Request& request) {
  if (handle == nullptr || handle->closed()) throw Refused(VU_MOM_FAILED);
  if (request.receiver.wanted() && handle->waiting() >= Session::kMostWaiting) {
    throw Refused(VU_MOM_FAILED);
  }
  const std::int32_t status = handle->engine().submit(request);
  if (status == VU_MOM_OK) ++handle->counters().commands;
  return status;
}

}  // namespace vu::store
