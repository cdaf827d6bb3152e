#include "text.h"

#include <vector>

#include "entries.h"
#include "recursion.h"
#include "scalar.h"

namespace vu {

namespace pb = google::protobuf;

namespace {

py::Owned text_of_message(const NativeMessage& message);

py::Owned repr_of(py::Borrowed value) { return py::checked(PyObject_Repr(value.get())); }

py::Owned joined(const char* separator, py::Borrowed parts) {
  const py::Owned text = py::checked(PyUnicode_FromString(separator));
  return py::checked(PyUnicode_Join(text.get(), parts.get()));
}

// What the bytes of a string field are shown as: text, or the bytes where they are none.
py::Owned text_of_string(const pb::FieldDescriptor& field, const std::string& value) {
  const auto size = static_cast<Py_ssize_t>(value.size());
  if (field.type() == pb::FieldDescriptor::TYPE_STRING) {
    const py::Owned text = py::Owned::steal(PyUnicode_DecodeUTF8(value.data(), size, nullptr));
    if (!text.is_null()) return repr_of(text);
    py::expect_error(PyExc_UnicodeDecodeError);
  }
  return repr_of(py::checked(PyBytes_FromStringAndSize(value.data(), size)));
}

py::Owned text_of_enum(const pb::FieldDescriptor& field, int number) {
  const pb::EnumValueDescriptor* value = field.enum_type()->FindValueByNumber(number);
  return value != nullptr ? py::checked(PyUnicode_FromString(value->name().c_str()))
                          : py::checked(PyUnicode_FromFormat("%d", number));
}

// A singular field (index -1) or one element.
py::Owned text_of_value(const NativeMessage& message, const pb::FieldDescriptor& field, int index) {
  const pb::Reflection& get = *message.GetReflection();
  switch (field.cpp_type()) {
    case pb::FieldDescriptor::CPPTYPE_MESSAGE:
      return text_of_message(index < 0 ? get.GetMessage(message, &field)
                                       : get.GetRepeatedMessage(message, &field, index));
    case pb::FieldDescriptor::CPPTYPE_ENUM:
      return text_of_enum(field, index < 0 ? get.GetEnumValue(message, &field)
                                           : get.GetRepeatedEnumValue(message, &field, index));
    case pb::FieldDescriptor::CPPTYPE_STRING: {
      std::string scratch;
      return text_of_string(
          field, index < 0 ? get.GetStringReference(message, &field, &scratch)
                           : get.GetRepeatedStringReference(message, &field, index, &scratch));
    }
    default:
      return repr_of(index < 0 ? get_scalar(message, field) : get_scalar(message, field, index));
  }
}

py::Owned text_of_map_value(const pb::FieldDescriptor& type, const pb::MapValueRef& value) {
  switch (type.cpp_type()) {
    case pb::FieldDescriptor::CPPTYPE_MESSAGE:
      return text_of_message(value.GetMessageValue());
    case pb::FieldDescriptor::CPPTYPE_ENUM:
      return text_of_enum(type, value.GetEnumValue());
    case pb::FieldDescriptor::CPPTYPE_STRING:
      return text_of_string(type, value.GetStringValue());
    default:
      return repr_of(from_map_value(type, value));
  }
}

// By way of the hash map, in the order of the texts: the list of entries that libprotobuf
// offers for reading would go stale with the next change of a value.
py::Owned text_of_map(const NativeMessage& message, const pb::FieldDescriptor& field) {
  const pb::Descriptor& entry = *field.message_type();
  py::Owned parts = py::checked(PyList_New(0));
  each_entry(const_cast<NativeMessage&>(message), field,
             [&](const Key& key, const pb::MapValueRef& value) {
               const py::Owned name = repr_of(from_map_key(*entry.map_key(), key));
               const py::Owned shown = text_of_map_value(*entry.map_value(), value);
               const py::Owned text =
                   py::checked(PyUnicode_FromFormat("%U: %U", name.get(), shown.get()));
               py::checked(PyList_Append(parts.get(), text.get()));
             });
  py::checked(PyList_Sort(parts.get()));
  return py::checked(PyUnicode_FromFormat("{%U}", joined(", ", parts).get()));
}

py::Owned text_of_field(const NativeMessage& message, const pb::FieldDescriptor& field) {
  if (!field.is_repeated()) return text_of_value(message, field, -1);
  const int count = message.GetReflection()->FieldSize(message, &field);
  py::Owned parts = py::checked(PyList_New(count));
  for (int i = 0; i < count; ++i) {
    PyList_SET_ITEM(parts.get(), i, text_of_value(message, field, i).release());
  }
  return py::checked(PyUnicode_FromFormat("[%U]", joined(", ", parts).get()));
}

py::Owned text_of_message(const NativeMessage& message) {
  const Recursion recursion(" while showing a message");
  std::vector<const pb::FieldDescriptor*> set;
  message.GetReflection()->ListFields(message, &set);
  py::Owned parts = py::checked(PyList_New(0));
  for (const pb::FieldDescriptor* field : set) {
    const py::Owned value =
        field->is_map() ? text_of_map(message, *field) : text_of_field(message, *field);
    const py::Owned text =
        py::checked(PyUnicode_FromFormat("%s=%U", field->name().c_str(), value.get()));
    py::checked(PyList_Append(parts.get(), text.get()));
  }
  return py::checked(PyUnicode_FromFormat("%s(%U)", message.GetDescriptor()->full_name().c_str(),
                                          joined(", ", parts).get()));
}

}  // namespace

py::Owned readable(MessageObject& message) { return text_of_message(*message.native); }

}  // namespace vu
