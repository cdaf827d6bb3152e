#include "plain_value.h"

#include "scalar.h"

namespace vu {

using Type = google::protobuf::FieldDescriptor;

py::Owned get_plain(const NativeMessage& message, const plain::Slot& slot) {
  switch (slot.type) {
    case Type::TYPE_STRING:
    case Type::TYPE_BYTES:
      return from_text(*slot.field, plain::read_text(message, slot));
    case Type::TYPE_DOUBLE:
      return py::checked(PyFloat_FromDouble(plain::read<double>(message, slot)));
    case Type::TYPE_FLOAT:
      return py::checked(
          PyFloat_FromDouble(static_cast<double>(plain::read<float>(message, slot))));
    case Type::TYPE_BOOL:
      return py::checked(PyBool_FromLong(plain::read<bool>(message, slot)));
    case Type::TYPE_UINT32:
    case Type::TYPE_FIXED32:
      return py::checked(PyLong_FromUnsignedLong(plain::read<std::uint32_t>(message, slot)));
    case Type::TYPE_UINT64:
    case Type::TYPE_FIXED64:
      return py::checked(PyLong_FromUnsignedLongLong(plain::read<std::uint64_t>(message, slot)));
    case Type::TYPE_INT64:
    case Type::TYPE_SINT64:
    case Type::TYPE_SFIXED64:
      return py::checked(PyLong_FromLongLong(plain::read<std::int64_t>(message, slot)));
    default:
      return py::checked(PyLong_FromLong(plain::read<std::int32_t>(message, slot)));
  }
}

void set_plain(MessageObject& message, const plain::Slot& slot, const Place& place,
               py::Borrowed value) {
  if (slot.field->cpp_type() == Type::CPPTYPE_STRING) {
    const std::string_view text = to_text(*slot.field, place, value);
    plain::write_text(writable(message), slot, text.data(), text.size());
    return;
  }
  const Scalar scalar = to_scalar(*slot.field, place, value);
  NativeMessage& native = writable(message);
  switch (slot.field->cpp_type()) {
    case Type::CPPTYPE_DOUBLE:
      return plain::write(native, slot, scalar.real);
    case Type::CPPTYPE_FLOAT:
      return plain::write(native, slot, static_cast<float>(scalar.real));
    case Type::CPPTYPE_BOOL:
      return plain::write(native, slot, scalar.integer != 0);
    case Type::CPPTYPE_UINT64:
      return plain::write(native, slot, scalar.natural);
    case Type::CPPTYPE_UINT32:
      return plain::write(native, slot, static_cast<std::uint32_t>(scalar.natural));
    case Type::CPPTYPE_INT64:
      return plain::write(native, slot, scalar.integer);
    default:
      plain::write(native, slot, static_cast<std::int32_t>(scalar.integer));
  }
}

}  // namespace vu
