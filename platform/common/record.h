// The copy of a reply record that outlives its delivery.
#pragma once

#include <cstdint>
#include <string>

#include "delivered.h"

namespace vu {

struct Record {
  std::int64_t time_us = 0;  // microseconds since 1970, UTC
  std::int64_t count = 0;
  std::int32_t status = VU_MOM_OK;
  std::int32_t db = 0;
  std::int32_t type_code = VU_MOM_TYPE_NONE;
  std::uint32_t end = 0;
  std::uint32_t tag = 0;
  std::string error;  // UTF-8

  bool operator==(const Record&) const = default;
};

// Everything but the key and the data, which become Python objects.
Record copy_record(const vu_mom_reply& reply);

// The components of an identity as a tuple of int, bool, str and bytes. Text that is not
// UTF-8 is kept with surrogate escapes. ValueError where the identity is cut short.
py::Owned decode_key(const unsigned char* key, std::size_t size);

}  // namespace vu
