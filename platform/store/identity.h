// Identities: the bytes that name an object among those of its type. Their encoding is
// fixed in vu_platform.h; components delimit themselves, so the first components of an
// identity are its first bytes.
#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "type_info.h"

namespace vu::store {

// The identity that the key fields of `message` make.
std::string identity_of(const google::protobuf::Message& message, const TypeInfo& type);

// How many bytes the first `level` components of `identity` have; all of them where it
// has no more components.
std::size_t prefix_size(std::string_view identity, std::uint32_t level);

// Whether component `index` of the identity of `message` is the default of its field.
// Such key fields are left alone by fill_keys and stay in stored bytes, so that what
// was put away comes back exactly, presence included.
bool is_default_key(const google::protobuf::Message& message,
                    const google::protobuf::FieldDescriptor& field);

// The letter that begins the component of a key field: 'i', 'u', 'b', 's' or 'y'.
char letter_of(const google::protobuf::FieldDescriptor& field);

// Sets the key fields of `message` to the components of `identity`. False where the
// identity was not made for such a type.
bool fill_keys(google::protobuf::Message& message, const TypeInfo& type, std::string_view identity);

}  // namespace vu::store
