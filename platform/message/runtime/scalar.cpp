#include "scalar.h"

#include <google/protobuf/reflection.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <utility>

namespace vu {

namespace pb = google::protobuf;
using Type = pb::FieldDescriptor;

void raise_type(const Place& place, const char* expected, py::Borrowed value) {
  py::raise(PyExc_TypeError, "%s: expected %s, got %.200s", place.text().c_str(), expected,
            Py_TYPE(value.get())->tp_name);
}

namespace {

[[noreturn]] void raise_range(const Type& type, const Place& place, py::Borrowed value) {
  py::raise(PyExc_ValueError, "%s: value out of range for %s: %R", place.text().c_str(),
            type.type_name(), value.get());
}

// An exact int from an int or from anything with __index__, which a float does not have.
py::Owned whole_number(const Place& place, py::Borrowed value) {
  if (PyLong_Check(value.get())) return py::Owned::share(value);
  if (!PyIndex_Check(value.get())) raise_type(place, "an integer", value);
  return py::checked(PyNumber_Index(value.get()));
}

std::int64_t to_signed(const Type& type, const Place& place, py::Borrowed value, std::int64_t least,
                       std::int64_t most) {
  const py::Owned number = whole_number(place, value);
  int overflow = 0;
  const long long result = PyLong_AsLongLongAndOverflow(number.get(), &overflow);
  if (result == -1 && overflow == 0 && PyErr_Occurred() != nullptr) throw py::PythonError();
  if (overflow != 0 || result < least || result > most) raise_range(type, place, number);
  return result;
}

std::uint64_t to_unsigned(const Type& type, const Place& place, py::Borrowed value,
                          std::uint64_t most) {
  const py::Owned number = whole_number(place, value);
  int overflow = 0;
  const long long result = PyLong_AsLongLongAndOverflow(number.get(), &overflow);
  if (result == -1 && overflow == 0 && PyErr_Occurred() != nullptr) throw py::PythonError();
  if (overflow == 0) {
    if (result < 0 || static_cast<std::uint64_t>(result) > most) raise_range(type, place, number);
    return static_cast<std::uint64_t>(result);
  }
  if (overflow < 0 || most <= std::numeric_limits<std::uint32_t>::max()) {
    raise_range(type, place, number);
  }
  const unsigned long long large = PyLong_AsUnsignedLongLong(number.get());
  if (PyErr_Occurred() != nullptr) {
    py::expect_error(PyExc_OverflowError);
    raise_range(type, place, number);
  }
  return large;
}

double to_real(const Type& type, const Place& place, py::Borrowed value) {
  const PyNumberMethods* number = Py_TYPE(value.get())->tp_as_number;
  const bool real = PyFloat_Check(value.get()) || PyLong_Check(value.get()) ||
                    (number != nullptr && number->nb_float != nullptr);
  if (!real) raise_type(place, "a number", value);
  const double result = PyFloat_AsDouble(value.get());
  if (result == -1.0 && PyErr_Occurred() != nullptr) {
    py::expect_error(PyExc_OverflowError);
    raise_range(type, place, value);
  }
  if (type.cpp_type() == Type::CPPTYPE_FLOAT && std::isfinite(result) &&
      std::isinf(static_cast<float>(result))) {
    raise_range(type, place, value);
  }
  return result;
}

// Only messages of proto3 keep numbers that their enum does not name.
bool is_closed(const Type& type) {
  return type.file()->syntax() != pb::FileDescriptor::SYNTAX_PROTO3;
}

std::int64_t to_enum(const Type& type, const Place& place, py::Borrowed value) {
  const pb::EnumDescriptor& names = *type.enum_type();
  if (PyUnicode_Check(value.get())) {
    const char* name = PyUnicode_AsUTF8(value.get());
    if (name == nullptr) throw py::PythonError();
    const pb::EnumValueDescriptor* named = names.FindValueByName(name);
    if (named == nullptr) {
      py::raise(PyExc_ValueError, "%s: %s has no value %R", place.text().c_str(),
                names.full_name().c_str(), value.get());
    }
    return named->number();
  }
  const std::int64_t number =
      to_signed(type, place, value, std::numeric_limits<std::int32_t>::min(),
                std::numeric_limits<std::int32_t>::max());
  if (is_closed(type) && names.FindValueByNumber(static_cast<int>(number)) == nullptr) {
    py::raise(PyExc_ValueError, "%s: %s has no value %d", place.text().c_str(),
              names.full_name().c_str(), static_cast<int>(number));
  }
  return number;
}

py::Owned from_signed(std::int64_t value) { return py::checked(PyLong_FromLongLong(value)); }
py::Owned from_unsigned(std::uint64_t value) {
  return py::checked(PyLong_FromUnsignedLongLong(value));
}
py::Owned from_real(double value) { return py::checked(PyFloat_FromDouble(value)); }
py::Owned from_bool(bool value) { return py::checked(PyBool_FromLong(value)); }

// A list of convert(element) for all elements of a repeated field of T.
template <typename T, typename Convert>
py::Owned list_of(const pb::Message& message, const Type& field, Convert&& convert) {
  const pb::RepeatedFieldRef<T> elements =
      message.GetReflection()->GetRepeatedFieldRef<T>(message, &field);
  const int count = elements.size();
  py::Owned list = py::checked(PyList_New(count));
  for (int i = 0; i < count; ++i) {
    PyList_SET_ITEM(list.get(), i, convert(elements.Get(i)).release());
  }
  return list;
}

}  // namespace

std::string_view to_text(const Type& type, const Place& place, py::Borrowed value) {
  if (type.type() == Type::TYPE_BYTES) {
    if (PyBytes_Check(value.get())) {
      return {PyBytes_AS_STRING(value.get()),
              static_cast<std::size_t>(PyBytes_GET_SIZE(value.get()))};
    }
    if (PyByteArray_Check(value.get())) {
      return {PyByteArray_AS_STRING(value.get()),
              static_cast<std::size_t>(PyByteArray_GET_SIZE(value.get()))};
    }
    raise_type(place, "bytes", value);
  }
  if (!PyUnicode_Check(value.get())) raise_type(place, "a str", value);
  Py_ssize_t size = 0;
  const char* text = PyUnicode_AsUTF8AndSize(value.get(), &size);
  if (text == nullptr) {
    py::expect_error(PyExc_UnicodeEncodeError);
    py::raise(PyExc_ValueError, "%s: not encodable as UTF-8: %A", place.text().c_str(),
              value.get());
  }
  return {text, static_cast<std::size_t>(size)};
}

py::Owned from_text(const Type& type, const std::string& value) {
  const auto size = static_cast<Py_ssize_t>(value.size());
  if (type.type() == Type::TYPE_BYTES) {
    return py::checked(PyBytes_FromStringAndSize(value.data(), size));
  }
  py::Owned text = py::Owned::steal(PyUnicode_DecodeUTF8(value.data(), size, nullptr));
  if (text.is_null()) {
    py::expect_error(PyExc_UnicodeDecodeError);
    py::raise(PyExc_ValueError, "%s: the bytes received are not UTF-8", type.full_name().c_str());
  }
  return text;
}

Scalar to_scalar(const Type& type, const Place& place, py::Borrowed value) {
  Scalar scalar;
  switch (type.cpp_type()) {
    case Type::CPPTYPE_INT32:
      scalar.integer = to_signed(type, place, value, std::numeric_limits<std::int32_t>::min(),
                                 std::numeric_limits<std::int32_t>::max());
      break;
    case Type::CPPTYPE_INT64:
      scalar.integer = to_signed(type, place, value, std::numeric_limits<std::int64_t>::min(),
                                 std::numeric_limits<std::int64_t>::max());
      break;
    case Type::CPPTYPE_UINT32:
      scalar.natural = to_unsigned(type, place, value, std::numeric_limits<std::uint32_t>::max());
      break;
    case Type::CPPTYPE_UINT64:
      scalar.natural = to_unsigned(type, place, value, std::numeric_limits<std::uint64_t>::max());
      break;
    case Type::CPPTYPE_DOUBLE:
    case Type::CPPTYPE_FLOAT:
      scalar.real = to_real(type, place, value);
      break;
    case Type::CPPTYPE_BOOL:
      if (!PyIndex_Check(value.get())) raise_type(place, "a bool", value);
      scalar.integer = py::checked(PyObject_IsTrue(value.get()));
      break;
    case Type::CPPTYPE_ENUM:
      scalar.integer = to_enum(type, place, value);
      break;
    case Type::CPPTYPE_STRING:
      scalar.text = to_text(type, place, value);
      break;
    case Type::CPPTYPE_MESSAGE:
      raise_type(place, "a scalar", value);
  }
  return scalar;
}

py::Owned get_scalar(const pb::Message& message, const Type& field) {
  const pb::Reflection& get = *message.GetReflection();
  switch (field.cpp_type()) {
    case Type::CPPTYPE_INT32:
      return from_signed(get.GetInt32(message, &field));
    case Type::CPPTYPE_INT64:
      return from_signed(get.GetInt64(message, &field));
    case Type::CPPTYPE_UINT32:
      return from_unsigned(get.GetUInt32(message, &field));
    case Type::CPPTYPE_UINT64:
      return from_unsigned(get.GetUInt64(message, &field));
    case Type::CPPTYPE_DOUBLE:
      return from_real(get.GetDouble(message, &field));
    case Type::CPPTYPE_FLOAT:
      return from_real(static_cast<double>(get.GetFloat(message, &field)));
    case Type::CPPTYPE_BOOL:
      return from_bool(get.GetBool(message, &field));
    case Type::CPPTYPE_ENUM:
      return from_signed(get.GetEnumValue(message, &field));
    case Type::CPPTYPE_STRING: {
      std::string scratch;
      return from_text(field, get.GetStringReference(message, &field, &scratch));
    }
    case Type::CPPTYPE_MESSAGE:
      break;
  }
  py::raise(PyExc_SystemError, "%s: no scalar field", field.full_name().c_str());
}

py::Owned get_scalar(const pb::Message& message, const Type& field, int index) {
  const pb::Reflection& get = *message.GetReflection();
  switch (field.cpp_type()) {
    case Type::CPPTYPE_INT32:
      return from_signed(get.GetRepeatedInt32(message, &field, index));
    case Type::CPPTYPE_INT64:
      return from_signed(get.GetRepeatedInt64(message, &field, index));
    case Type::CPPTYPE_UINT32:
      return from_unsigned(get.GetRepeatedUInt32(message, &field, index));
    case Type::CPPTYPE_UINT64:
      return from_unsigned(get.GetRepeatedUInt64(message, &field, index));
    case Type::CPPTYPE_DOUBLE:
      return from_real(get.GetRepeatedDouble(message, &field, index));
    case Type::CPPTYPE_FLOAT:
      return from_real(static_cast<double>(get.GetRepeatedFloat(message, &field, index)));
    case Type::CPPTYPE_BOOL:
      return from_bool(get.GetRepeatedBool(message, &field, index));
    case Type::CPPTYPE_ENUM:
      return from_signed(get.GetRepeatedEnumValue(message, &field, index));
    case Type::CPPTYPE_STRING: {
      std::string scratch;
      return from_text(field, get.GetRepeatedStringReference(message, &field, index, &scratch));
    }
    case Type::CPPTYPE_MESSAGE:
      break;
  }
  py::raise(PyExc_SystemError, "%s: no scalar field", field.full_name().c_str());
}

py::Owned get_scalars(const pb::Message& message, const Type& field) {
  switch (field.cpp_type()) {
    case Type::CPPTYPE_INT32:
    case Type::CPPTYPE_ENUM:
      return list_of<std::int32_t>(message, field, from_signed);
    case Type::CPPTYPE_INT64:
      return list_of<std::int64_t>(message, field, from_signed);
    case Type::CPPTYPE_UINT32:
      return list_of<std::uint32_t>(message, field, from_unsigned);
    case Type::CPPTYPE_UINT64:
      return list_of<std::uint64_t>(message, field, from_unsigned);
    case Type::CPPTYPE_DOUBLE:
      return list_of<double>(message, field, from_real);
    case Type::CPPTYPE_FLOAT:
      return list_of<float>(message, field,
                            [](float value) { return from_real(static_cast<double>(value)); });
    case Type::CPPTYPE_BOOL:
      return list_of<bool>(message, field, from_bool);
    case Type::CPPTYPE_STRING:
      return list_of<std::string>(
          message, field, [&](const std::string& value) { return from_text(field, value); });
    case Type::CPPTYPE_MESSAGE:
      break;
  }
  py::raise(PyExc_SystemError, "%s: no scalar field", field.full_name().c_str());
}

void set_scalar(pb::Message& message, const Type& field, Scalar&& value) {
  const pb::Reflection& set = *message.GetReflection();
  switch (field.cpp_type()) {
    case Type::CPPTYPE_INT32:
      return set.SetInt32(&message, &field, static_cast<std::int32_t>(value.integer));
    case Type::CPPTYPE_INT64:
      return set.SetInt64(&message, &field, value.integer);
    case Type::CPPTYPE_UINT32:
      return set.SetUInt32(&message, &field, static_cast<std::uint32_t>(value.natural));
    case Type::CPPTYPE_UINT64:
      return set.SetUInt64(&message, &field, value.natural);
    case Type::CPPTYPE_DOUBLE:
      return set.SetDouble(&message, &field, value.real);
    case Type::CPPTYPE_FLOAT:
      return set.SetFloat(&message, &field, static_cast<float>(value.real));
    case Type::CPPTYPE_BOOL:
      return set.SetBool(&message, &field, value.integer != 0);
    case Type::CPPTYPE_ENUM:
      return set.SetEnumValue(&message, &field, static_cast<int>(value.integer));
    case Type::CPPTYPE_STRING:
      return set.SetString(&message, &field, std::move(value.text));
    case Type::CPPTYPE_MESSAGE:
      break;
  }
}

void set_scalar(pb::Message& message, const Type& field, int index, Scalar&& value) {
  const pb::Reflection& set = *message.GetReflection();
  switch (field.cpp_type()) {
    case Type::CPPTYPE_INT32:
      return set.SetRepeatedInt32(&message, &field, index,
                                  static_cast<std::int32_t>(value.integer));
    case Type::CPPTYPE_INT64:
      return set.SetRepeatedInt64(&message, &field, index, value.integer);
    case Type::CPPTYPE_UINT32:
      return set.SetRepeatedUInt32(&message, &field, index,
                                   static_cast<std::uint32_t>(value.natural));
    case Type::CPPTYPE_UINT64:
      return set.SetRepeatedUInt64(&message, &field, index, value.natural);
    case Type::CPPTYPE_DOUBLE:
      return set.SetRepeatedDouble(&message, &field, index, value.real);
    case Type::CPPTYPE_FLOAT:
      return set.SetRepeatedFloat(&message, &field, index, static_cast<float>(value.real));
    case Type::CPPTYPE_BOOL:
      return set.SetRepeatedBool(&message, &field, index, value.integer != 0);
    case Type::CPPTYPE_ENUM:
      return set.SetRepeatedEnumValue(&message, &field, index, static_cast<int>(value.integer));
    case Type::CPPTYPE_STRING:
      return set.SetRepeatedString(&message, &field, index, std::move(value.text));
    case Type::CPPTYPE_MESSAGE:
      break;
  }
}

void add_scalar(pb::Message& message, const Type& field, Scalar&& value) {
  const pb::Reflection& add = *message.GetReflection();
  switch (field.cpp_type()) {
    case Type::CPPTYPE_INT32:
      return add.AddInt32(&message, &field, static_cast<std::int32_t>(value.integer));
    case Type::CPPTYPE_INT64:
      return add.AddInt64(&message, &field, value.integer);
    case Type::CPPTYPE_UINT32:
      return add.AddUInt32(&message, &field, static_cast<std::uint32_t>(value.natural));
    case Type::CPPTYPE_UINT64:
      return add.AddUInt64(&message, &field, value.natural);
    case Type::CPPTYPE_DOUBLE:
      return add.AddDouble(&message, &field, value.real);
    case Type::CPPTYPE_FLOAT:
      return add.AddFloat(&message, &field, static_cast<float>(value.real));
    case Type::CPPTYPE_BOOL:
      return add.AddBool(&message, &field, value.integer != 0);
    case Type::CPPTYPE_ENUM:
      return add.AddEnumValue(&message, &field, static_cast<int>(value.integer));
    case Type::CPPTYPE_STRING:
      return add.AddString(&message, &field, std::move(value.text));
    case Type::CPPTYPE_MESSAGE:
      break;
  }
}

pb::MapKey to_map_key(const Type& type, Scalar&& value) {
  pb::MapKey key;
  switch (type.cpp_type()) {
    case Type::CPPTYPE_INT32:
      key.SetInt32Value(static_cast<std::int32_t>(value.integer));
      break;
    case Type::CPPTYPE_INT64:
      key.SetInt64Value(value.integer);
      break;
    case Type::CPPTYPE_UINT32:
      key.SetUInt32Value(static_cast<std::uint32_t>(value.natural));
      break;
    case Type::CPPTYPE_UINT64:
      key.SetUInt64Value(value.natural);
      break;
    case Type::CPPTYPE_BOOL:
      key.SetBoolValue(value.integer != 0);
      break;
    case Type::CPPTYPE_STRING:
      key.SetStringValue(std::move(value.text));
      break;
    default:
      py::raise(PyExc_SystemError, "%s: no type of keys", type.full_name().c_str());
  }
  return key;
}

py::Owned from_map_key(const Type& type, const pb::MapKey& key) {
  switch (type.cpp_type()) {
    case Type::CPPTYPE_INT32:
      return from_signed(key.GetInt32Value());
    case Type::CPPTYPE_INT64:
      return from_signed(key.GetInt64Value());
    case Type::CPPTYPE_UINT32:
      return from_unsigned(key.GetUInt32Value());
    case Type::CPPTYPE_UINT64:
      return from_unsigned(key.GetUInt64Value());
    case Type::CPPTYPE_BOOL:
      return from_bool(key.GetBoolValue());
    case Type::CPPTYPE_STRING:
      return from_text(type, key.GetStringValue());
    default:
      py::raise(PyExc_SystemError, "%s: no type of keys", type.full_name().c_str());
  }
}

void set_map_value(pb::MapValueRef& target, const Type& type, Scalar&& value) {
  switch (type.cpp_type()) {
    case Type::CPPTYPE_INT32:
      return target.SetInt32Value(static_cast<std::int32_t>(value.integer));
    case Type::CPPTYPE_INT64:
      return target.SetInt64Value(value.integer);
    case Type::CPPTYPE_UINT32:
      return target.SetUInt32Value(static_cast<std::uint32_t>(value.natural));
    case Type::CPPTYPE_UINT64:
      return target.SetUInt64Value(value.natural);
    case Type::CPPTYPE_DOUBLE:
      return target.SetDoubleValue(value.real);
    case Type::CPPTYPE_FLOAT:
      return target.SetFloatValue(static_cast<float>(value.real));
    case Type::CPPTYPE_BOOL:
      return target.SetBoolValue(value.integer != 0);
    case Type::CPPTYPE_ENUM:
      return target.SetEnumValue(static_cast<int>(value.integer));
    case Type::CPPTYPE_STRING:
      return target.SetStringValue(value.text);
    case Type::CPPTYPE_MESSAGE:
      break;
  }
}

py::Owned from_map_value(const Type& type, const pb::MapValueConstRef& value) {
  switch (type.cpp_type()) {
    case Type::CPPTYPE_INT32:
      return from_signed(value.GetInt32Value());
    case Type::CPPTYPE_INT64:
      return from_signed(value.GetInt64Value());
    case Type::CPPTYPE_UINT32:
      return from_unsigned(value.GetUInt32Value());
    case Type::CPPTYPE_UINT64:
      return from_unsigned(value.GetUInt64Value());
    case Type::CPPTYPE_DOUBLE:
      return from_real(value.GetDoubleValue());
    case Type::CPPTYPE_FLOAT:
      return from_real(static_cast<double>(value.GetFloatValue()));
    case Type::CPPTYPE_BOOL:
      return from_bool(value.GetBoolValue());
    case Type::CPPTYPE_ENUM:
      return from_signed(value.GetEnumValue());
    case Type::CPPTYPE_STRING:
      return from_text(type, value.GetStringValue());
    case Type::CPPTYPE_MESSAGE:
      break;
  }
  py::raise(PyExc_SystemError, "%s: no scalar field", type.full_name().c_str());
}

}  // namespace vu
