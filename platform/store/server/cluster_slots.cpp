#include "cluster_slots.h"

#include <hiredis/hiredis.h>

#include <charconv>
#include <string>

namespace vu::store {

namespace {

constexpr unsigned kSlots = 16384;

// The checksum that clusters use: CRC-16 with the polynomial x^16 + x^12 + x^5 + 1.
unsigned crc16(std::string_view text) {
  unsigned crc = 0;
  for (const char c : text) {
    crc ^= static_cast<unsigned>(static_cast<unsigned char>(c)) << 8;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 0x8000) != 0 ? (crc << 1) ^ 0x1021 : crc << 1;
    }
    crc &= 0xffff;
  }
  return crc;
}

bool is_slot(const redisReply& reply) {
  return reply.type == REDIS_REPLY_INTEGER && reply.integer >= 0 && reply.integer < kSlots;
}

bool read_master(const redisReply& reply, const Endpoint& asked, Endpoint& master) {
  if (reply.type != REDIS_REPLY_ARRAY || reply.elements < 2) return false;
  const redisReply& host = *reply.element[0];
  const redisReply& port = *reply.element[1];
  if (port.type != REDIS_REPLY_INTEGER || port.integer < 1 || port.integer > 65535) return false;
  const bool has_name = host.type == REDIS_REPLY_STRING && host.len != 0 &&
                        std::string_view(host.str, host.len) != "?";
  if (!has_name && host.type != REDIS_REPLY_NIL && host.type != REDIS_REPLY_STRING) return false;
  master.host = has_name ? std::string(host.str, host.len) : asked.host;
  master.port = static_cast<std::uint16_t>(port.integer);
  return true;
}

}  // namespace

unsigned slot_of_partition(unsigned partition) { return crc16(std::to_string(partition)) % kSlots; }

bool read_slots(const redisReply& reply, const Endpoint& asked, std::vector<SlotRange>& ranges) {
  if (reply.type != REDIS_REPLY_ARRAY) return false;
  for (std::size_t i = 0; i < reply.elements; ++i) {
    const redisReply& range = *reply.element[i];
    if (range.type != REDIS_REPLY_ARRAY || range.elements < 3) return false;
    if (!is_slot(*range.element[0]) || !is_slot(*range.element[1])) return false;
    SlotRange read;
    read.first = static_cast<unsigned>(range.element[0]->integer);
    read.last = static_cast<unsigned>(range.element[1]->integer);
    if (!read_master(*range.element[2], asked, read.master)) return false;
    ranges.push_back(read);
  }
  return true;
}

bool read_redirection(std::string_view text, const Endpoint& asked, Endpoint& place) {
  const std::size_t space = text.rfind(' ');
  const std::size_t colon = text.rfind(':');
  if (space == text.npos || colon == text.npos || colon < space) return false;
  const std::string_view host = text.substr(space + 1, colon - space - 1);
  const std::string_view port = text.substr(colon + 1);
  const auto result = std::from_chars(port.data(), port.data() + port.size(), place.port);
  if (result.ec != std::errc() || result.ptr != port.data() + port.size()) return false;
  place.host = host.empty() || host == "?" ? asked.host : std::string(host);
  return place.port != 0;
}

}  // namespace vu::store
