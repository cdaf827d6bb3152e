#include "native_map.h"

#include <vector>

namespace vu {

namespace pb = google::protobuf;

void settle_maps(const MessageInfo& info, pb::Message& message) {
  if (!info.has_maps) return;
  std::vector<const pb::FieldDescriptor*> set;
  info.reflection->ListFields(message, &set);
  for (const pb::FieldDescriptor* field : set) {
    if (field->cpp_type() != pb::FieldDescriptor::CPPTYPE_MESSAGE) continue;
    if (field->is_map()) {
      const pb::FieldDescriptor& values = *field->message_type()->map_value();
      const pb::Descriptor* type = values.message_type();  // null: no messages
      const MessageInfo* within = type == nullptr ? nullptr : &info_of(*type);
      each_entry(message, *field, [&](const pb::MapKey&, pb::MapValueRef& value) {
        if (within != nullptr) settle_maps(*within, *value.MutableMessageValue());
      });
      continue;
    }
    const MessageInfo& within = info_of(*field->message_type());
    if (!within.has_maps) continue;
    if (!field->is_repeated()) {
      settle_maps(within, *info.reflection->MutableMessage(&message, field));
      continue;
    }
    for (int i = 0; i < info.reflection->FieldSize(message, field); ++i) {
      settle_maps(within, *info.reflection->MutableRepeatedMessage(&message, field, i));
    }
  }
}

}  // namespace vu
