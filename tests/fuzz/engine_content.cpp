#include "engine_content.h"

#include <cstdio>
#include <cstdlib>

#include "input.h"
#include "message_bytes.h"

namespace vu::fuzz {

bool tells() {
  static const bool wanted = std::getenv("VU_FUZZ_TELL") != nullptr;
  return wanted;
}

Content content_of(const vu_mom_reply& reply) {
  const auto address = reinterpret_cast<std::intptr_t>(reply.data);
  const auto read = [](vu_mom_message message) {
    check(vu_platform_message_is_live(message) != 0, "a delivered message is not live");
    return bytes_of(*reinterpret_cast<const google::protobuf::Message*>(message));
  };
  Content content;
  if (address == 0) return content;
  if (vu_platform_is_payload(address) == 0) return Content::of_message(read(address));
  const auto& payload = *static_cast<const vu_platform_payload*>(reply.data);
  switch (payload.kind) {
    case VU_PLATFORM_PAYLOAD_INTEGER:
      return Content::of_integer(payload.integer);
    case VU_PLATFORM_PAYLOAD_SCORE:
      return Content::of_score(payload.score);
    case VU_PLATFORM_PAYLOAD_HASH:
      content.form = Content::Form::kHash;
      content.messages.push_back(read(payload.messages[0]));
      for (std::uint32_t i = 0; i < payload.count; ++i) {
        content.tags.push_back(static_cast<std::uint32_t>(payload.tags[i]));
      }
      return content;
    case VU_PLATFORM_PAYLOAD_SCORED:
      content.form = Content::Form::kScored;
      content.scores.assign(payload.scores, payload.scores + payload.count);
      break;
    default:
      check(payload.kind == VU_PLATFORM_PAYLOAD_MESSAGES, "a payload of an unknown kind");
      content.form = Content::Form::kMessages;
  }
  for (std::uint32_t i = 0; i < payload.count; ++i)
    content.messages.push_back(read(payload.messages[i]));
  return content;
}

void show(const char* what, const Content& content) {
  std::fprintf(stderr, "%s: form %d, integer %lld, score %g\n", what,
               static_cast<int>(content.form), static_cast<long long>(content.integer),
               content.score);
  for (std::size_t i = 0; i < content.messages.size(); ++i) {
    std::fprintf(stderr, "  message");
    for (const char c : content.messages[i]) {
      std::fprintf(stderr, " %02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
    }
    if (i < content.scores.size()) std::fprintf(stderr, ", score %g", content.scores[i]);
    std::fprintf(stderr, "\n");
  }
  for (const std::uint32_t tag : content.tags) std::fprintf(stderr, "  tag %u\n", tag);
}

void check_content(Content found, const Content& wanted, bool unordered, const char* what) {
  Content sorted = wanted;
  if (unordered) {
    sorted.sort();
    found.sort();
  }
  if (found == sorted) return;
  show("found", found);
  show("wanted", sorted);
  fail(what);
}

std::string identity_of(const vu_platform_details& details) {
  if (details.key == nullptr) return {};
  return {static_cast<const char*>(static_cast<const void*>(details.key)), details.key_size};
}

void check_names(const vu_platform_details& details, std::int32_t db, const Name* name) {
  check(details.db == db, "a record of another database");
  check((details.key != nullptr) == (name != nullptr), "a record names an object, or does not");
  if (name != nullptr) check(identity_of(details) == name->identity, "a record of another object");
}

}  // namespace vu::fuzz
