// What a reply or an event says, in bytes that no message type is needed for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "byte_list.h"
#include "vu_mom_impl.h"

namespace vu::store {

// The carried value. `items` are stored bytes (see message_bytes.h) of messages of the
// identity that the notice names; with key fields or without makes no difference.
struct Content {
  enum class Form { kNothing, kInteger, kScore, kMessage, kHash, kMessages, kScored };

  Form form = Form::kNothing;
  std::int64_t integer = 0;
  double score = 0;
  ByteList items;                   // kMessage, kHash: one
  std::vector<double> scores;       // kScored: one per item
  std::vector<std::uint32_t> tags;  // kHash: ascending

  static Content of_integer(std::int64_t value) {
    Content content;
    content.form = Form::kInteger;
    content.integer = value;
    return content;
  }
  static Content of_score(double value) {
    Content content;
    content.form = Form::kScore;
    content.score = value;
    return content;
  }
  static Content of_message(std::string_view bytes) {
    Content content;
    content.form = Form::kMessage;
    content.items.add(bytes);
    return content;
  }
  static Content of_element(std::string_view bytes) {
    Content content;
    content.form = Form::kMessages;
    content.items.add(bytes);
    return content;
  }
};

struct Notice {
  std::int32_t status = VU_MOM_OK;
  std::string error;  // UTF-8, where status is not VU_MOM_OK
  std::int32_t type_code = VU_MOM_TYPE_NONE;
  std::uint32_t end_mark = 0;
  std::int64_t time_us = 0;
  std::int64_t count = 0;
  std::int32_t db = 0;
  std::uint32_t tag = 0;
  bool names_object = false;
  std::string identity;
  Content content;
};

}  // namespace vu::store
