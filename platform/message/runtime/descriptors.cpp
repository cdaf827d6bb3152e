#include "descriptors.h"

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <set>
#include <unordered_map>

#include "field.h"
#include "message_class.h"
#include "options.h"
#include "pool.h"
#include "python/module.h"
#include "type_walk.h"

namespace vu {

namespace pb = google::protobuf;

namespace {

PyTypeObject info_type = py::static_type("vu_message.MessageDescriptor", sizeof(MessageInfo));

py::Owned text(const std::string& value) {
  return py::checked(
      PyUnicode_FromStringAndSize(value.data(), static_cast<Py_ssize_t>(value.size())));
}

// A map field consists of messages of a type of its own.
bool has_map(const pb::Descriptor& type) { return type.options().map_entry(); }

bool has_required_or_extensions(const pb::Descriptor& type) {
  if (type.extension_range_count() != 0) return true;
  for (int i = 0; i < type.field_count(); ++i) {
    if (type.field(i)->is_required()) return true;
  }
  return false;
}

// Whether a path of types comes back to one that it has passed.
bool has_cycle(const pb::Descriptor& type, std::set<const pb::Descriptor*>& path,
               std::set<const pb::Descriptor*>& done) {
  if (done.count(&type) != 0) return false;
  if (!path.insert(&type).second) return true;
  for (int i = 0; i < type.field_count(); ++i) {
    const pb::Descriptor* within = type.field(i)->message_type();
    if (within != nullptr && has_cycle(*within, path, done)) return true;
  }
  path.erase(&type);
  done.insert(&type);
  return false;
}

bool has_cycle(const pb::Descriptor& type) {
  std::set<const pb::Descriptor*> path;
  std::set<const pb::Descriptor*> done;
  return has_cycle(type, path, done);
}

Field* new_field(MessageInfo& owner, const pb::FieldDescriptor& descriptor) {
  py::Owned name = text(descriptor.name());
  PyObject* interned = name.release();
  PyUnicode_InternInPlace(&interned);
  name = py::Owned::steal(interned);
  py::Owned object = py::checked(PyType_GenericAlloc(&field_type, 0));
  auto* field = static_cast<Field*>(object.get());
  field->descriptor = &descriptor;
  field->reflection = owner.reflection;
  field->owner = &owner;
  field->slot = owner.plain->slot(descriptor);
  field->key = key_position(descriptor).value_or(0);
  field->counter = is_counter(descriptor);
  field->repeated = descriptor.is_repeated();
  field->map = descriptor.is_map();
  const pb::FieldDescriptor& holder =
      field->map ? *descriptor.message_type()->map_value() : descriptor;
  field->message = holder.cpp_type() == pb::FieldDescriptor::CPPTYPE_MESSAGE;
  field->oneof = descriptor.real_containing_oneof() != nullptr;
  py::checked(PyDict_SetItem(owner.by_name, name.get(), object.get()));
  field->name = name.release();
  return static_cast<Field*>(object.release());  // for good: cached pointers need no counting
}

MessageInfo& self_info(PyObject* self) { return *static_cast<MessageInfo*>(self); }

PyObject* repr(PyObject* self) {
  return PyUnicode_FromFormat("<message type %s>", self_info(self).name());
}

PyObject* get_full_name(PyObject* self, void*) {
  return py::enter([&] { return text(self_info(self).descriptor->full_name()); });
}

PyObject* get_name(PyObject* self, void*) {
  return py::enter([&] { return text(self_info(self).descriptor->name()); });
}

PyObject* get_file(PyObject* self, void*) {
  return py::enter([&] { return text(self_info(self).descriptor->file()->name()); });
}

py::Owned tuple_of(const std::vector<Field*>& fields) {
  py::Owned tuple = py::checked(PyTuple_New(static_cast<Py_ssize_t>(fields.size())));
  for (std::size_t i = 0; i < fields.size(); ++i) {
    PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(i),
                     py::Owned::share(py::Borrowed(fields[i])).release());
  }
  return tuple;
}

PyObject* get_fields(PyObject* self, void*) {
  return py::enter([&] { return tuple_of(*self_info(self).fields); });
}

PyObject* get_fields_by_name(PyObject* self, void*) {
  return PyDictProxy_New(self_info(self).by_name);
}

PyObject* get_key_fields(PyObject* self, void*) {
  return py::enter([&] {
    std::vector<Field*> keys;
    for (Field* field : *self_info(self).fields) {
      if (field->key != 0) keys.push_back(field);
    }
    std::sort(keys.begin(), keys.end(),
              [](const Field* a, const Field* b) { return a->key < b->key; });
    return tuple_of(keys);
  });
}

PyObject* get_counter(PyObject* self, void*) {
  for (Field* field : *self_info(self).fields) {
    if (field->counter) return py::Owned::share(py::Borrowed(field)).release();
  }
  return py::Owned::share(py::Borrowed(Py_None)).release();
}

PyObject* get_class(PyObject* self, void*) {
  return py::enter([&] {
    return py::Owned::share(py::Borrowed(reinterpret_cast<PyObject*>(class_of(self_info(self)))));
  });
}

PyObject* get_oneofs(PyObject* self, void*) {
  return py::enter([&] {
    const pb::Descriptor& type = *self_info(self).descriptor;
    py::Owned names = py::checked(PyTuple_New(type.real_oneof_decl_count()));
    for (int i = 0; i < type.real_oneof_decl_count(); ++i) {
      PyTuple_SET_ITEM(names.get(), i, text(type.oneof_decl(i)->name()).release());
    }
    return names;
  });
}

PyObject* field_named(PyObject* self, PyObject* name) {
  return py::enter([&] {
    return py::Owned::share(py::Borrowed(&find_field(self_info(self), py::Borrowed(name))));
  });
}

PyGetSetDef attributes[] = {
    py::attribute("full_name", get_full_name, nullptr, "The name with the package: \"demo.Port\"."),
    py::attribute("name", get_name, nullptr, "The message's own name: \"Port\"."),
    py::attribute("file", get_file, nullptr, "The name of the .proto file."),
    py::attribute("fields", get_fields, nullptr, "The fields, in the order of the .proto file."),
    py::attribute("fields_by_name", get_fields_by_name, nullptr, "The fields by name."),
    py::attribute("key_fields", get_key_fields, nullptr, "The key fields, by position."),
    py::attribute("counter", get_counter, nullptr, "The counter field, or None."),
    py::attribute("oneofs", get_oneofs, nullptr, "The names of the oneofs."),
    py::attribute("message_class", get_class, nullptr, "The wrapper class of this type."),
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

PyMethodDef methods[] = {
    {"field", field_named, METH_O, "field(name)\n--\n\nThe field of that name."},
    {nullptr, nullptr, 0, nullptr}};

}  // namespace

MessageInfo& info_of(const pb::Descriptor& descriptor) {
  static auto& known = *new std::unordered_map<const pb::Descriptor*, MessageInfo*>();
  const auto found = known.find(&descriptor);
  if (found != known.end()) return *found->second;

  py::Owned object = py::checked(PyType_GenericAlloc(&info_type, 0));
  auto* info = static_cast<MessageInfo*>(object.get());
  info->descriptor = &descriptor;
  info->prototype = &Pool::instance().prototype(descriptor);
  info->reflection = info->prototype->GetReflection();
  info->by_name = py::checked(PyDict_New()).release();
  info->fields = new std::vector<Field*>();
  info->plain = new plain::Fields(*info->prototype);
  for (int i = 0; i < descriptor.field_count(); ++i) {
    info->fields->push_back(new_field(*info, *descriptor.field(i)));
  }
  info->has_maps = anywhere(descriptor, has_map);
  info->endless = has_cycle(descriptor);
  info->may_lack = anywhere(descriptor, has_required_or_extensions);
  known.emplace(&descriptor, info);
  return *static_cast<MessageInfo*>(object.release());
}

MessageInfo& descriptor_argument(py::Borrowed object) {
  if (Py_TYPE(object.get()) != &info_type) {
    py::raise(PyExc_TypeError, "DESCRIPTOR must be a MessageDescriptor, not %.200s",
              Py_TYPE(object.get())->tp_name);
  }
  return *static_cast<MessageInfo*>(object.get());
}

Field& find_field(const MessageInfo& info, py::Borrowed name, const Place* around) {
  const auto where = [&] { return around == nullptr ? std::string() : around->text() + ": "; };
  if (!PyUnicode_Check(name.get())) {
    py::raise(PyExc_TypeError, "%s%s: a field name must be a str, not %.200s", where().c_str(),
              info.name(), Py_TYPE(name.get())->tp_name);
  }
  PyObject* field = PyDict_GetItemWithError(info.by_name, name.get());
  if (field == nullptr && PyErr_Occurred() != nullptr) throw py::PythonError();
  if (field == nullptr) {
    py::raise(PyExc_ValueError, "%s%s has no field %R", where().c_str(), info.name(), name.get());
  }
  return *static_cast<Field*>(field);
}

void add_descriptor_types(py::Borrowed module) {
  info_type.tp_flags = Py_TPFLAGS_DEFAULT;
  info_type.tp_doc = "A message type: its fields, keys and counter.";
  info_type.tp_repr = repr;
  info_type.tp_getset = attributes;
  info_type.tp_methods = methods;
  py::checked(PyType_Ready(&info_type));
  py::add_to_module(module, "MessageDescriptor", info_type);
}

}  // namespace vu
