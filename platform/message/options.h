// The field options of vu/options.proto, read from descriptors by number. Nothing of the
// project links generated code for them, so they always arrive as unknown fields.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/unknown_field_set.h>

#include <cstdint>
#include <optional>

#include "vu_options.h"

namespace vu {

// The option's last value, which counts where it is given more than once; or nothing.
inline std::optional<std::uint64_t> field_option(const google::protobuf::FieldDescriptor& field,
                                                 int number) {
  std::optional<std::uint64_t> value;
  const google::protobuf::UnknownFieldSet& options = field.options().unknown_fields();
  for (int i = 0; i < options.field_count(); ++i) {
    const google::protobuf::UnknownField& option = options.field(i);
    if (option.number() == number && option.type() == google::protobuf::UnknownField::TYPE_VARINT) {
      value = option.varint();
    }
  }
  return value;
}

// The position among the key fields, from 1; nothing where the field is no key field.
inline std::optional<std::uint32_t> key_position(const google::protobuf::FieldDescriptor& field) {
  const std::optional<std::uint64_t> value = field_option(field, kKeyOption);
  if (!value) return std::nullopt;
  return static_cast<std::uint32_t>(*value);
}

inline bool is_counter(const google::protobuf::FieldDescriptor& field) {
  return field_option(field, kCounterOption).value_or(0) != 0;
}

}  // namespace vu
