// The copy of a reply record that outlives its delivery.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>

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
  std::string key;    // the identity, to be decoded

  // Whether everything but the key is equal.
  bool operator==(const Record& other) const {
    const auto rest = [](const Record& record) {
      return std::tie(record.time_us, record.count, record.status, record.db, record.type_code,
                      record.end, record.tag, record.error);
    };
    return rest(*this) == rest(other);
  }
};

// Everything but the data, which becomes a Python object, into a record of any content.
// ValueError where decode_key would raise it.
void copy_record(const vu_mom_reply& reply, Record& record);

// The components of an identity as a tuple of int, bool, str and bytes. Text that is not
// UTF-8 is kept with surrogate escapes. ValueError where the identity is cut short.
py::Owned decode_key(const std::string& key);

}  // namespace vu
