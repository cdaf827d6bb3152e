#include "field.h"

#include <utility>

#include "map_view.h"
#include "message_class.h"
#include "plain_value.h"
#include "python/module.h"
#include "recursion.h"
#include "repeated_view.h"
#include "scalar.h"

namespace vu {

namespace pb = google::protobuf;

PyTypeObject field_type = py::static_type("vu_message.Field", sizeof(Field));

namespace {

Field& self_field(PyObject* self) { return *static_cast<Field*>(self); }

MessageObject& checked_instance(const Field& field, PyObject* instance) {
  if (!is_message(py::Borrowed(instance)) ||
      static_cast<MessageObject*>(instance)->info != field.owner) {
    py::raise(PyExc_TypeError, "%s is no field of %.200s", field.descriptor->full_name().c_str(),
              Py_TYPE(instance)->tp_name);
  }
  return *static_cast<MessageObject*>(instance);
}

PyObject* descr_get(PyObject* self, PyObject* instance, PyObject* /*type*/) {
  if (instance == nullptr) return py::Owned::share(py::Borrowed(self)).release();
  return py::enter(
      [&] { return get_field(checked_instance(self_field(self), instance), self_field(self)); });
}

int descr_set(PyObject* self, PyObject* instance, PyObject* value) {
  return py::enter_status([&] {
    Field& field = self_field(self);
    MessageObject& message = checked_instance(field, instance);
    if (value == nullptr) {
      py::raise(PyExc_AttributeError, "%s: fields are cleared with ClearField(%R)",
                field.descriptor->full_name().c_str(), field.name);
    }
    set_field(message, field, py::Borrowed(value));
  });
}

PyObject* repr(PyObject* self) {
  const pb::FieldDescriptor& field = *self_field(self).descriptor;
  return PyUnicode_FromFormat("<field %s = %d>", field.full_name().c_str(), field.number());
}

PyObject* get_name(PyObject* self, void*) {
  return py::Owned::share(py::Borrowed(self_field(self).name)).release();
}

PyObject* get_full_name(PyObject* self, void*) {
  return PyUnicode_FromString(self_field(self).descriptor->full_name().c_str());
}

PyObject* get_number(PyObject* self, void*) {
  return PyLong_FromLong(self_field(self).descriptor->number());
}

PyObject* get_type(PyObject* self, void*) {
  return PyUnicode_FromString(self_field(self).map ? "map"
                                                   : self_field(self).descriptor->type_name());
}

PyObject* get_repeated(PyObject* self, void*) { return PyBool_FromLong(self_field(self).repeated); }

PyObject* get_key(PyObject* self, void*) { return PyLong_FromUnsignedLong(self_field(self).key); }

PyObject* get_counter(PyObject* self, void*) { return PyBool_FromLong(self_field(self).counter); }

PyObject* get_presence(PyObject* self, void*) {
  return PyBool_FromLong(self_field(self).descriptor->has_presence());
}

PyObject* get_message_type(PyObject* self, void*) {
  return py::enter([&] {
    Field& field = self_field(self);
    PyObject* info = field.message ? static_cast<PyObject*>(&element_info(field)) : Py_None;
    return py::Owned::share(py::Borrowed(info));
  });
}

PyGetSetDef attributes[] = {
    py::attribute("name", get_name, nullptr, "The field's name."),
    py::attribute("full_name", get_full_name, nullptr, "The name with package and message."),
    py::attribute("number", get_number, nullptr, "The field number, which commands call tag."),
    py::attribute("type", get_type, nullptr, "The type as in the .proto file, or \"map\"."),
    py::attribute("repeated", get_repeated, nullptr, "Whether it is a repeated field or a map."),
    py::attribute("key", get_key, nullptr, "The position among the key fields, from 1; else 0."),
    py::attribute("counter", get_counter, nullptr, "Whether `incr` adds one to it."),
    py::attribute("has_presence", get_presence, nullptr, "Whether HasField applies to it."),
    py::attribute("message_type", get_message_type, nullptr,
                  "The type of the messages it (or the values of the map) holds, or None."),
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

}  // namespace

py::Owned get_field(MessageObject& message, Field& field) {
  if (field.slot != nullptr) return get_plain(*message.native, *field.slot);
  if (field.map) return map_view_of(message, field);
  if (field.repeated) return repeated_view_of(message, field);
  if (field.message) return part_of(message, field);
  return get_scalar(*message.native, *field.descriptor);
}

void set_field(MessageObject& message, Field& field, py::Borrowed value, const Place* around) {
  const Place place(message, field, around);
  if (field.slot != nullptr) {
    set_plain(message, *field.slot, place, value);
  } else if (field.map) {
    assign_map(message, field, place, value);
  } else if (field.repeated) {
    assign_repeated(message, field, place, value);
  } else if (field.message) {
    Node* part = find_part(message, field);
    if (value.is(part)) {  // to itself: only sets it
      writable(static_cast<MessageObject&>(*part));
    } else {
      set_message(message, field, to_native(element_info(field), place, value));
    }
  } else {
    Scalar scalar = to_scalar(*field.descriptor, place, value);
    NativeMessage& native = writable(message);
    clear_rivals(message, field);
    set_scalar(native, *field.descriptor, std::move(scalar));
  }
}

void set_named(MessageObject& message, py::Borrowed name, py::Borrowed value, const Place* around) {
  Field& field = find_field(*message.info, name, around);
  const py::Owned kept = py::Owned::share(value);
  if (!kept.is_none()) set_field(message, field, kept, around);
}

void set_fields(MessageObject& message, py::Borrowed values, const Place* around) {
  PyObject* name = nullptr;
  PyObject* value = nullptr;
  Py_ssize_t position = 0;
  while (PyDict_Next(values.get(), &position, &name, &value)) {
    set_named(message, py::Borrowed(name), py::Borrowed(value), around);
  }
}

std::unique_ptr<NativeMessage> native_of(MessageInfo& info, const Place& place,
                                         py::Borrowed values) {
  if (values.is_null()) return new_native(info);
  const Recursion recursion(" while building a message");
  const py::Owned object = new_message(class_of(info), new_native(info));
  auto& message = *static_cast<MessageObject*>(object.get());
  set_fields(message, values, &place);
  // Code that ran for a value can hold nothing of a message it never saw.
  return std::unique_ptr<NativeMessage>(std::exchange(message.native, nullptr));
}

std::unique_ptr<NativeMessage> to_native(MessageInfo& info, const Place& place,
                                         py::Borrowed value) {
  if (PyDict_Check(value.get())) {
    // A copy: converting the values may run code that changes the dict.
    const py::Owned values = py::checked(PyDict_Copy(value.get()));
    return native_of(info, place, values);
  }
  if (!is_message(value) || static_cast<MessageObject*>(value.get())->info != &info) {
    raise_type(place, info.name(), value);
  }
  return copy_native(info, *static_cast<MessageObject*>(value.get())->native, &place);
}

void add_field_type(py::Borrowed module) {
  field_type.tp_flags = Py_TPFLAGS_DEFAULT;
  field_type.tp_doc = "A field of a message type, and the attribute for it.";
  field_type.tp_descr_get = descr_get;
  field_type.tp_descr_set = descr_set;
  field_type.tp_repr = repr;
  field_type.tp_getset = attributes;
  py::checked(PyType_Ready(&field_type));
  py::add_to_module(module, "Field", field_type);
}

}  // namespace vu
