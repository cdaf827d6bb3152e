#include "entries.h"

#include <algorithm>

#include "field.h"

namespace vu {

namespace pb = google::protobuf;

Key to_key(const Field& field, const Place& place, py::Borrowed value) {
  const pb::FieldDescriptor& type = key_type(field);
  return to_map_key(type, to_scalar(type, place.key(), value));
}

Element to_value(Field& field, const Place& place, const Key& key, py::Borrowed value) {
  const Place place_of_value = place.entry(key);
  if (field.message) return {{}, to_native(element_info(field), place_of_value, value)};
  return {to_scalar(value_type(field), place_of_value, value), nullptr};
}

std::vector<std::pair<Key, Element>> to_entries(Field& field, const Place& place,
                                                py::Borrowed values) {
  // A dict of its own: converting an entry may run code that changes `values`.
  const py::Owned dict = py::Owned::steal(PyObject_CallFunctionObjArgs(
      reinterpret_cast<PyObject*>(&PyDict_Type), values.get(), nullptr));
  if (dict.is_null()) {
    py::expect_error(PyExc_TypeError);
    raise_type(place, "a mapping", values);
  }
  std::vector<std::pair<Key, Element>> entries;
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  Py_ssize_t position = 0;
  while (PyDict_Next(dict.get(), &position, &key, &value)) {
    Key native_key = to_key(field, place, py::Borrowed(key));
    Element element = to_value(field, place, native_key, py::Borrowed(value));
    entries.emplace_back(std::move(native_key), std::move(element));
  }
  return entries;
}

bool has_entry(const MessageObject& message, const Field& field, const Key& key) {
  return NativeMap::contains(*message.native, *field.descriptor, key);
}

py::Owned get_entry(MessageObject& message, Field& field, const Key& key) {
  pb::MapValueConstRef value;
  if (!NativeMap::look_up(*message.native, *field.descriptor, key, value)) {
    const py::Owned object = from_map_key(key_type(field), key);
    PyErr_SetObject(PyExc_KeyError, object.get());
    throw py::PythonError();
  }
  if (!field.message) return from_map_value(value_type(field), value);
  return element_of(message, field, const_cast<NativeMessage&>(value.GetMessageValue()));
}

py::Owned get_or_make_entry(MessageObject& message, Field& field, const Key& key) {
  if (!has_entry(message, field, key)) {
    if (field.message) check_depth(message, field);
    pb::MapValueRef value;
    NativeMap::insert(writable(message), *field.descriptor, key, value);
  }
  return get_entry(message, field, key);
}

void set_entry(MessageObject& message, const Field& field, const Key& key, Element&& value) {
  pb::MapValueRef target;
  NativeMap::insert(writable(message), *field.descriptor, key, target);
  if (!field.message) {
    set_map_value(target, value_type(field), std::move(value.scalar));
    return;
  }
  NativeMessage& native = *target.MutableMessageValue();
  release_map_value(native);
  native.GetReflection()->Swap(&native, value.message.get());
}

bool remove_entry(MessageObject& message, Field& field, const Key& key) {
  pb::MapValueConstRef value;
  if (!NativeMap::look_up(*message.native, *field.descriptor, key, value)) return false;
  if (field.message) release_map_value(const_cast<NativeMessage&>(value.GetMessageValue()));
  NativeMap::erase(*message.native, *field.descriptor, key);
  return true;
}

std::vector<Key> sorted_keys(const MessageObject& message, const Field& field) {
  std::vector<Key> keys;
  each_entry(*message.native, *field.descriptor,
             [&](const Key& key, pb::MapValueRef&) { keys.push_back(key); });
  std::sort(keys.begin(), keys.end());
  return keys;
}

}  // namespace vu
